/*
 * zu_codes.cpp - the texts of the library's numbered codes. The codes and
 * their texts are defined once, in the X-macro lists of zutil.h; this file
 * only looks them up, so a code can't exist without its text.
 */
#include "zu_internal.h"

extern "C" {

const char *ZU_patErrText(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_PATTERN_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "Unknown error code.";
    }
}

const char *ZU_slotErrText(int number)
{
    switch (number) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_SLOT_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "Unknown error number (%d)";
    }
}

const char *ZU_optErrText(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_OPTION_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "";
    }
}

const char *ZU_pipeCodeText(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_PIPE_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "";
    }
}

const char *ZU_wrMesCodeText(int number)
{
    switch (number) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_WRMES_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "";
    }
}

const char *ZU_version(void)
{
    return "0.1";
}

} // extern "C"
