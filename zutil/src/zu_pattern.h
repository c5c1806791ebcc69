/*
 * zu_pattern.h - the layout of a compiled pattern, shared by the compiler
 * and the matcher. A buffer is: an optional anchor byte 1, then operations,
 * each a code byte and its operands, ended by END. A first byte of 0 means
 * the buffer holds no pattern.
 */
#ifndef ZU_PATTERN_H
#define ZU_PATTERN_H

namespace zu_pat {

enum Code : unsigned char {
    ANCHOR = 1,
    OPEN = 2,     /* group number */
    CHAR = 4,     /* the character */
    ANY = 8,
    SET7 = 12,    /* 16-byte map of characters below 128 */
    SET8 = 16,    /* 32-byte map of all characters */
    EOL = 20,
    END = 22,
    CLOSE = 24,   /* group number */
    BACKREF = 36, /* group number */
    NOTSET7 = 40, /* 16-byte map; 128 and above always match */
};

constexpr int STAR = 1;  /* added to a code: zero or more */
constexpr int COUNT = 3; /* added to a code: m to n times, 2 more bytes */
constexpr int UNLIMITED = 255;
constexpr int MAX_EXTRA = 20000; /* repetitions taken beyond m when unlimited */
constexpr int MAX_GROUPS = 9;

inline bool repeatable(int code)
{
    return code == CHAR || code == ANY || code == SET7 || code == SET8 || code == BACKREF ||
           code == NOTSET7;
}

/* The plain operation of a code, and whether it is starred or counted. */
inline int baseOf(int code, int *modifier)
{
    *modifier = 0;
    if (repeatable(code))
        return code;
    if (repeatable(code - STAR)) {
        *modifier = STAR;
        return code - STAR;
    }
    if (repeatable(code - COUNT)) {
        *modifier = COUNT;
        return code - COUNT;
    }
    return code;
}

/* Bytes of a plain operation with its operands. */
inline int sizeOf(int base)
{
    switch (base) {
    case SET7:
    case NOTSET7: return 17;
    case SET8: return 33;
    case ANY:
    case EOL:
    case END: return 1;
    default: return 2;
    }
}

inline bool bitSet(const unsigned char *map, unsigned c)
{
    return (map[c / 8] >> (c % 8)) & 1;
}

} // namespace zu_pat

#endif
