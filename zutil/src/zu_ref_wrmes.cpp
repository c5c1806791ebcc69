/*
 * zu_ref_wrmes.cpp - by-reference forms of the message writer, for callers
 * that pass every argument by address and texts with hidden lengths.
 *
 * Each form has its gfortran alias (lower case, trailing underscore) and an
 * upper-case twin. Text copies are made with strf2cDup and freed before the
 * form returns; a null argument is refused with "Invalid pointer" and
 * number 1, like every other by-reference form of the library.
 */
#include "zu_ref_forms.h"

using zuref::Text;

namespace {

bool present(const void *argument, const char *routine)
{
    if (!argument)
        ZU_Err(routine, 1, ZU_SEV_ERROR, "Invalid pointer");
    return argument != nullptr;
}

} // namespace

extern "C" {

ZU_REF_FORM(ZU_wrMesLog, zu_wrmeslog, 1, 2, Text, Text)
ZU_REF_UPPER(ZU_wrMesLog, ZU_WRMESLOG, int, (const char *, const char *, int *, size_t, size_t))

void ZU_wrMes_ref(const char *text, size_t text_len)
{
    const zuref::Text::Slot copy(zuref::Raw<const char *>{text, text_len});
    if (present(copy.arg(), "ZU_wrMes_ref"))
        ZU_wrMes(copy.arg());
}
ZU_API void zu_wrmes_ref_(const char *, size_t) __attribute__((alias("ZU_wrMes_ref")));
ZU_REF_UPPER(ZU_wrMes, ZU_WRMES, void, (const char *, size_t))

void ZU_wrMesPipe_ref(const int *handle)
{
    if (present(handle, "ZU_wrMesPipe_ref"))
        ZU_wrMesPipe(*handle);
}
ZU_API void zu_wrmespipe_ref_(const int *) __attribute__((alias("ZU_wrMesPipe_ref")));
ZU_REF_UPPER(ZU_wrMesPipe, ZU_WRMESPIPE, void, (const int *))

/* Procedures come as their addresses already; null switches the output off. */
void ZU_wrMesPrinterLen_ref(ZU_MesLenFn printer)
{
    ZU_wrMesPrinterLen(printer);
}
ZU_API void zu_wrmesprinterlen_ref_(ZU_MesLenFn) __attribute__((alias("ZU_wrMesPrinterLen_ref")));
ZU_REF_UPPER(ZU_wrMesPrinterLen, ZU_WRMESPRINTERLEN, void, (ZU_MesLenFn))

void ZU_wrMesEchoLen_ref(ZU_MesLenFn echo)
{
    ZU_wrMesEchoLen(echo);
}
ZU_API void zu_wrmesecholen_ref_(ZU_MesLenFn) __attribute__((alias("ZU_wrMesEchoLen_ref")));
ZU_REF_UPPER(ZU_wrMesEchoLen, ZU_WRMESECHOLEN, void, (ZU_MesLenFn))

} // extern "C"
