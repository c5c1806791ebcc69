/*
 * zu_ndim_text.cpp - the texts of the table module: its messages and how
 * they are raised, the map-file lexer and number fields, and the table of
 * file calls that the reader and writer go through.
 *
 * Number fields are read without the process locale (a host may have set
 * one with a decimal comma), and a field is a number only as a whole:
 * "1.5d3" or "2x" is not one, so the check reports it instead of the reader
 * silently taking a prefix.
 */
#include "zu_ndim.h"

#include <cerrno>
#include <cfloat>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

const char *const kMessages[] = {
#define ZU_NDIM_TEXT_(id, text) text,
    ZU_NDIM_MESSAGES(ZU_NDIM_TEXT_)
#undef ZU_NDIM_TEXT_
};
static_assert(sizeof kMessages / sizeof kMessages[0] == static_cast<size_t>(NdimMsg::Count_),
              "one text per message");

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

int ioOpen(const char *path, int flags, mode_t mode)
{
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

ssize_t ioRead(int fd, void *buf, size_t count)
{
    ssize_t n;
    do {
        n = ::read(fd, buf, count);
    } while (n < 0 && errno == EINTR);
    return n;
}

ssize_t ioWrite(int fd, const void *buf, size_t count)
{
    ssize_t n;
    do {
        n = ::write(fd, buf, count);
    } while (n < 0 && errno == EINTR);
    return n;
}

int ioClose(int fd)
{
    return ::close(fd);
}

} // namespace

const ZU_NdimIo zu_ndimIoDefault = {ioOpen, ioRead, ioWrite, ioClose};
ZU_NdimIo zu_ndimIo = zu_ndimIoDefault;

const char *zu_ndimMsg(NdimMsg id)
{
    size_t i = static_cast<size_t>(id);
    return i < static_cast<size_t>(NdimMsg::Count_) ? kMessages[i] : "";
}

void zu_ndimRaise(const char *routine, int code, int severity, NdimMsg id, ...)
{
    va_list ap, again;
    va_start(ap, id);
    va_copy(again, ap);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int n = vsnprintf(nullptr, 0, zu_ndimMsg(id), ap);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0)
        vsnprintf(text.data(), text.size() + 1, zu_ndimMsg(id), again);
#pragma GCC diagnostic pop
    va_end(again);
    va_end(ap);
    ZU_Err(routine, code, severity, text.c_str());
}

NdimToken NdimLexer::next()
{
    while (pos_ < length_ && isBlank(text_[pos_]))
        ++pos_;
    if (pos_ >= length_)
        return {NdimToken::End, length_, text_ + length_, 0};
    size_t start = pos_;
    if (text_[pos_] == '#') {
        ++pos_;
        return {NdimToken::Hash, start, text_ + start, 1};
    }
    while (pos_ < length_ && !isBlank(text_[pos_]) && text_[pos_] != '#')
        ++pos_;
    return {NdimToken::Word, start, text_ + start, pos_ - start};
}

size_t NdimLexer::countHashes() const
{
    size_t n = 0;
    for (size_t i = pos_; i < length_; ++i)
        n += text_[i] == '#';
    return n;
}

int NdimLexer::lineOf(size_t offset)
{
    if (offset > length_)
        offset = length_;
    if (offset < lineFrom_) {
        lineFrom_ = 0;
        lines_ = 1;
    }
    for (; lineFrom_ < offset; ++lineFrom_)
        lines_ += text_[lineFrom_] == '\n';
    return lines_;
}

bool zu_ndimParseFloat(const NdimToken &t, float *value)
{
    if (t.kind != NdimToken::Word)
        return false;
    const char *p = t.text, *end = t.text + t.length;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-'))
        negative = *p++ == '-';
    /* Only plain decimal forms: no inf, nan or hexadecimal. */
    if (p == end || !((*p >= '0' && *p <= '9') || *p == '.'))
        return false;
    double d = 0;
    auto [last, ec] = std::from_chars(p, end, d, std::chars_format::general);
    if (ec != std::errc() || last != end || d > FLT_MAX)
        return false;
    *value = static_cast<float>(negative ? -d : d);
    return true;
}

bool zu_ndimParseInt(const NdimToken &t, int32_t *value)
{
    if (t.kind != NdimToken::Word)
        return false;
    const char *p = t.text, *end = t.text + t.length;
    if (p < end && *p == '+' && p + 1 < end && p[1] != '-')
        ++p;
    if (p == end || *p == '+')
        return false;
    int32_t v = 0;
    auto [last, ec] = std::from_chars(p, end, v, 10);
    if (ec != std::errc() || last != end)
        return false;
    *value = v;
    return true;
}
