/*
 * zu_patmatch.cpp - matching a text against a compiled pattern.
 *
 * Backtracking by recursion: a starred or counted operation takes all it can
 * and then tries the rest of the pattern from the longest run down, so the
 * depth is bounded by the pattern, never by the text. All state (the group
 * positions) lives on the stack; the buffer is only read, so one compiled
 * pattern can serve many threads at once. The text's terminating NUL is the
 * end of the text, which no character operation matches.
 */
#include "zu_internal.h"
#include "zu_pattern.h"

using namespace zu_pat;

namespace {

using Pos = const unsigned char *;

struct MatchState {
    Pos groupStart[MAX_GROUPS] = {};
    Pos groupEnd[MAX_GROUPS] = {};
    Pos matchEnd = nullptr;
};

size_t groupLength(const MatchState &st, int group)
{
    Pos s = st.groupStart[group], e = st.groupEnd[group];
    return s && e && e > s ? static_cast<size_t>(e - s) : 0;
}

/* One repetition of a plain operation at *lp; advances *lp on success. */
bool matchOne(int base, Pos op, Pos &lp, const MatchState &st)
{
    unsigned c = *lp;
    bool ok = false;
    switch (base) {
    case CHAR: ok = c != 0 && c == op[1]; break;
    case ANY: ok = c != 0; break;
    case SET7: ok = c < 128 && bitSet(op + 1, c); break;
    case NOTSET7: ok = c >= 128 || !bitSet(op + 1, c); break;
    case SET8: ok = bitSet(op + 1, c); break;
    case BACKREF: {
        size_t len = groupLength(st, op[1]);
        Pos g = st.groupStart[op[1]];
        size_t i = 0;
        while (i < len && lp[i] == g[i])
            ++i;
        if (i == len)
            lp += len;
        return i == len;
    }
    default: break;
    }
    if (ok)
        ++lp;
    return ok;
}

int patAdvance(Pos lp, Pos ep, MatchState &st);

/* Tries the rest of the pattern after `taken` repetitions (each `step`
 * long) from `start`, from the most down to `least`. */
int backOff(Pos start, int taken, int least, size_t step, Pos next, MatchState &st)
{
    for (int k = taken; k >= least; --k)
        if (patAdvance(start + static_cast<size_t>(k) * step, next, st))
            return 1;
    return 0;
}

int repeat(int base, int modifier, Pos &lp, Pos ep, MatchState &st)
{
    size_t step = base == BACKREF ? groupLength(st, ep[1]) : 1;
    Pos next = ep + sizeOf(base) + (modifier == COUNT ? 2 : 0);
    int least = 0, most = -1; /* -1: as many as there are */
    if (modifier == COUNT) {
        least = ep[sizeOf(base)];
        int n = ep[sizeOf(base) + 1];
        most = n == UNLIMITED ? least + MAX_EXTRA : n;
    }
    for (int i = 0; i < least; ++i)
        if (!matchOne(base, ep, lp, st))
            return 0;
    if (step == 0) /* an empty group: nothing to repeat */
        return patAdvance(lp, next, st);
    Pos start = lp;
    int taken = 0;
    while ((most < 0 || least + taken < most) && matchOne(base, ep, lp, st))
        ++taken;
    return backOff(start, taken, 0, step, next, st);
}

int patAdvance(Pos lp, Pos ep, MatchState &st)
{
    for (;;) {
        int modifier = 0;
        int base = baseOf(*ep, &modifier);
        switch (base) {
        case OPEN:
            st.groupStart[ep[1]] = lp;
            ep += 2;
            continue;
        case CLOSE:
            st.groupEnd[ep[1]] = lp;
            ep += 2;
            continue;
        case EOL:
            if (*lp)
                return 0;
            ++ep;
            continue;
        case END:
            st.matchEnd = lp;
            return 1;
        default:
            break;
        }
        if (!repeatable(base))
            return 0; /* not a pattern this library wrote */
        if (modifier)
            return repeat(base, modifier, lp, ep, st);
        if (!matchOne(base, ep, lp, st))
            return 0;
        ep += sizeOf(base);
    }
}

} // namespace

extern "C" {

int ZU_patMatch(const char *text, const unsigned char *buffer)
{
    if (!text || !buffer || buffer[0] == 0)
        return 0;
    Pos lp = reinterpret_cast<Pos>(text);
    MatchState st;
    if (buffer[0] == ANCHOR)
        return patAdvance(lp, buffer + 1, st);
    if (buffer[0] == CHAR) {
        for (; *lp; ++lp)
            if (*lp == buffer[1] && patAdvance(lp, buffer, st))
                return 1;
        return 0;
    }
    for (;; ++lp) {
        if (patAdvance(lp, buffer, st))
            return 1;
        if (!*lp)
            return 0;
    }
}

int ZU_patMatchText(const char *text, const char *template_)
{
    unsigned char buffer[ZU_PAT_BUFSIZE];
    if (ZU_patCompile(template_, buffer, -ZU_PAT_BUFSIZE) != 0)
        return 0;
    return ZU_patMatch(text, buffer);
}

} // extern "C"
