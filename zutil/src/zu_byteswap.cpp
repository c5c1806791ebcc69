/*
 * zu_byteswap.cpp - byte order codes and reversal of element bytes.
 *
 * Codes: 1 big-endian, 2 little-endian. Reversal reads both bytes of a
 * pair before writing either, so source and destination may coincide.
 */
#include "zu_internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {

int ZU_byteOrder(void)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return 1;
#else
    return 2;
#endif
}

int ZU_otherByteOrder(int code)
{
    return code == 1 ? 2 : 1;
}

void ZU_changeSex(const void *source, void *dest, int size, int count)
{
    if (size != 1 && size != 2 && size != 4 && size != 8) {
        fprintf(stderr, "ZUtil Error: bogus size (%d) to ZU_changeSex()\n", size);
        exit(1);
    }
    if (!source || !dest || count <= 0)
        return;
    const auto *in = static_cast<const unsigned char *>(source);
    auto *out = static_cast<unsigned char *>(dest);
    if (size == 1) {
        memmove(out, in, static_cast<size_t>(count));
        return;
    }
    for (int e = 0; e < count; ++e, in += size, out += size) {
        for (int lo = 0, hi = size - 1; lo <= hi; ++lo, --hi) {
            unsigned char a = in[lo];
            unsigned char b = in[hi];
            out[lo] = b;
            out[hi] = a;
        }
    }
}

} // extern "C"
