// The machinery of the by-reference forms (suffix _ref), which serve callers
// that pass every argument by address and each text as a pointer with a
// hidden length (the lengths trail the list, after the result argument).
//
// A form is one line: its form-1 core and the list of argument adapters.
// Each adapter turns one caller argument into one core argument in a Slot
// that lives across the call, and finishes it afterwards (copying text or a
// start back). The runner gives the k-th text adapter the k-th length,
// refuses the call when an adapter did (4001 for a missing argument, 3025
// when a copy can't be made), stores the core's result in the caller's
// result argument and returns it too.
//
// Invariants: no adapter keeps a pointer into the core's memory after its
// finish; text handed out by the core is freed there; a buffer given by the
// caller is filled in place and never replaced, so the library allocates
// only for the forms that exist to allocate.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#include "sdf_fixed_rank.h"

namespace sdfref {

template <class P>
struct Raw {
    P p;
    size_t len;
};

struct Slot0 {
    int rc = 0;
    const char* why = nullptr;
    void refuse(int code, const char* text) {
        rc = code;
        why = text;
    }
    void finish() {}
};

// Length of a caller's text with trailing blanks cut; a NUL ends it early.
size_t text_length(const char* p, size_t len);
// Copies text (null reads as "") into a field of len bytes, blank-padded.
void put_field(char* field, size_t len, const char* text);

// Indices come in counting from 1 and go back the same way; the extremes
// stay put so the shift never overflows (they are refused below anyway).
template <class I>
I from_one(I v) {
    return v == std::numeric_limits<I>::min() ? v : I(v - 1);
}
template <class I>
I to_one(I v) {
    return v == std::numeric_limits<I>::max() ? v : I(v + 1);
}

// A scalar by reference.
template <class T>
struct In {
    using Param = const T*;
    static constexpr bool text = false;
    struct Slot : Slot0 {
        T v{};
        explicit Slot(Raw<Param> r) {
            if (r.p)
                v = *r.p;
            else
                refuse(4001, "A required argument is null.");
        }
        T arg() const { return v; }
    };
};

// A separate index that counts from 1.
template <class I>
struct Index {
    using Param = const I*;
    static constexpr bool text = false;
    struct Slot : In<I>::Slot {
        explicit Slot(Raw<Param> r) : In<I>::Slot(r) { this->v = from_one(this->v); }
    };
};

// Anything the core takes as a pointer already: out scalars, dimension,
// step and tr_vec arrays, values, data to write.
template <class T>
struct Ptr {
    using Param = T*;
    static constexpr bool text = false;
    struct Slot : Slot0 {
        T* p;
        explicit Slot(Raw<Param> r) : p(r.p) {}
        T* arg() const { return p; }
    };
};

// A variable name: trailing blanks cut, at most 512 characters; a longer one
// gets "&" as its 512th, which no valid name holds.
struct Name {
    using Param = const char*;
    static constexpr bool text = true;
    struct Slot : Slot0 {
        char buf[SDF_MAX_NAME + 1];
        explicit Slot(Raw<Param> r);
        const char* arg() const { return buf; }
    };
};

// Any other text in: a new string with trailing blanks cut.
struct Text {
    using Param = const char*;
    static constexpr bool text = true;
    struct Slot : Slot0 {
        char* s = nullptr;
        explicit Slot(Raw<Param> r);
        ~Slot();
        Slot(const Slot&) = delete;
        Slot& operator=(const Slot&) = delete;
        const char* arg() const { return s; }
    };
};

// Text out that the core hands over as new memory (char **).
struct TextOut {
    using Param = char*;
    static constexpr bool text = true;
    struct Slot : Slot0 {
        char* field;
        size_t len;
        char* got = nullptr;
        explicit Slot(Raw<Param> r) : field(r.p), len(r.len) {}
        ~Slot() { Sdf_Free(got); }
        Slot(const Slot&) = delete;
        Slot& operator=(const Slot&) = delete;
        char** arg() { return &got; }
        void finish() { put_field(field, len, got); }
    };
};

// Text out that the core writes into a buffer of N bytes.
template <size_t N>
struct TextBuf {
    using Param = char*;
    static constexpr bool text = true;
    struct Slot : Slot0 {
        char* field;
        size_t len;
        char buf[N];
        explicit Slot(Raw<Param> r) : field(r.p), len(r.len) { buf[0] = 0; }
        char* arg() { return buf; }
        void finish() {
            buf[N - 1] = 0;
            put_field(field, len, buf);
        }
    };
};

// A start array counting from 1, read and written: the core moves it.
template <class I>
struct Start {
    using Param = I*;
    static constexpr bool text = false;
    struct Slot : Slot0 {
        I* caller;
        I a[8] = {};
        int n = 0;
        explicit Slot(Raw<Param> r) : caller(r.p) {
            if (!caller) return;
            a[0] = caller[0];
            n = caller[0] < 0 ? 0 : caller[0] > I(SDF_MAX_RANK) ? SDF_MAX_RANK : int(caller[0]);
            for (int i = 1; i <= n; i++) a[i] = from_one(caller[i]);
        }
        I* arg() { return caller ? a : nullptr; }
        void finish() {
            for (int i = 1; i <= n; i++) caller[i] = to_one(a[i]);
        }
    };
};

// A begin or end array counting from 1, read only.
template <class I>
struct Bound {
    using Param = const I*;
    static constexpr bool text = false;
    struct Slot : Start<I>::Slot {
        explicit Slot(Raw<Param> r) : Start<I>::Slot(Raw<I*>{const_cast<I*>(r.p), 0}) {}
        const I* arg() { return this->caller ? this->a : nullptr; }
        void finish() {}
    };
};

// The caller's buffer to read into: the core gets a pointer to it, so it
// fills the buffer rather than allocating.
struct Data {
    using Param = void*;
    static constexpr bool text = false;
    struct Slot : Slot0 {
        void* p;
        explicit Slot(Raw<Param> r) : p(r.p) {
            if (!p) refuse(4001, "No data buffer given.");
        }
        void** arg() { return &p; }
    };
};

// Where a form that allocates leaves its memory; null until it does.
struct AllocOut {
    using Param = void**;
    static constexpr bool text = false;
    struct Slot : Slot0 {
        void** p;
        explicit Slot(Raw<Param> r) : p(r.p) {
            if (p)
                *p = nullptr;
            else
                refuse(4001, "No pointer given for the data.");
        }
        void** arg() { return p; }
    };
};

// A position out that counts from 1 (0 for none) where the core counts
// from 0 (-1 for none).
struct PosOut {
    using Param = int*;
    static constexpr bool text = false;
    struct Slot : Slot0 {
        int* p;
        int v = -1;
        explicit Slot(Raw<Param> r) : p(r.p) {}
        int* arg() { return &v; }
        void finish() {
            if (p) *p = v + 1;
        }
    };
};

// Character arrays as fixed-width fields: the caller's text argument is the
// buffer and its length the width.
struct Fields {
    char** buffer;
    int width;
};
struct FieldsConst {
    const char* buffer;
    int width;
};
template <class F>
struct FieldsArg {
    using Param = std::conditional_t<std::is_same_v<F, Fields>, char*, const char*>;
    static constexpr bool text = true;
    struct Slot : Slot0 {
        Param p;
        int width = 0;
        explicit Slot(Raw<Param> r) : p(r.p) {
            if (!p)
                refuse(4001, "No field buffer given.");
            else if (r.len < 1 || r.len > size_t(INT_MAX))
                refuse(4001, "The field width must be 1 to 2147483647.");
            else
                width = int(r.len);
        }
        F arg() {
            if constexpr (std::is_same_v<F, Fields>)
                return F{&p, width};
            else
                return F{p, width};
        }
    };
};
using FieldsOut = FieldsArg<Fields>;
using FieldsIn = FieldsArg<FieldsConst>;

// A core of the fields kind, F(ch, name, buffer, width, rest...), called
// with the buffer and width as one argument.
template <auto F>
struct Spread {
    template <class B, class... R>
    int operator()(int ch, const char* name, B f, R... rest) const {
        return F(ch, name, f.buffer, f.width, rest...);
    }
};

// Runs one form: Ret the result type, NT the number of text arguments, A
// the adapters in the order of the caller's arguments.
template <class Ret, size_t NT, class... A>
struct Form {
    static constexpr bool texts[sizeof...(A) + 1] = {A::text..., false};
    static constexpr size_t texts_before(size_t k) {
        size_t n = 0;
        for (size_t i = 0; i < k; i++) n += texts[i];
        return n;
    }
    static_assert(texts_before(sizeof...(A)) == NT, "one hidden length per text argument");

    template <class Core, size_t... K>
    static Ret go(std::index_sequence<K...>, const char* routine, Core core, Ret* result,
                  [[maybe_unused]] const size_t* lens, typename A::Param... p) {
        [[maybe_unused]] std::tuple<typename A::Slot...> s{Raw<typename A::Param>{p, texts[K] ? lens[texts_before(K)] : 0}...};
        int bad = 0;
        const char* why = nullptr;
        [[maybe_unused]] auto check = [&](const Slot0& x) {
            if (!bad && x.rc) {
                bad = x.rc;
                why = x.why;
            }
        };
        (check(std::get<K>(s)), ...);
        Ret rc;
        if (bad) {
            rc = static_cast<Ret>(sdf_error(routine, bad, why));
        } else {
            rc = static_cast<Ret>(core(std::get<K>(s).arg()...));
            (std::get<K>(s).finish(), ...);
        }
        if (result) *result = rc;
        return rc;
    }
    template <class Core>
    static Ret run(const char* routine, Core core, Ret* result, const size_t* lens, typename A::Param... p) {
        return go(std::index_sequence_for<A...>{}, routine, core, result, lens, p...);
    }
};

}  // namespace sdfref

// Counting the adapters (0 to 12) and spelling the parameters p0, p1, ...
#define SDF_REF_NARGS(...) SDF_REF_NARGS_(__VA_ARGS__ __VA_OPT__(, ) 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define SDF_REF_NARGS_(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, n, ...) n
#define SDF_REF_CAT(a, b) SDF_REF_CAT_(a, b)
#define SDF_REF_CAT_(a, b) a##b

#define SDF_REF_P0()
#define SDF_REF_P1(A0) A0::Param p0,
#define SDF_REF_P2(A0, A1) SDF_REF_P1(A0) A1::Param p1,
#define SDF_REF_P3(A0, A1, A2) SDF_REF_P2(A0, A1) A2::Param p2,
#define SDF_REF_P4(A0, A1, A2, A3) SDF_REF_P3(A0, A1, A2) A3::Param p3,
#define SDF_REF_P5(A0, A1, A2, A3, A4) SDF_REF_P4(A0, A1, A2, A3) A4::Param p4,
#define SDF_REF_P6(A0, A1, A2, A3, A4, A5) SDF_REF_P5(A0, A1, A2, A3, A4) A5::Param p5,
#define SDF_REF_P7(A0, A1, A2, A3, A4, A5, A6) SDF_REF_P6(A0, A1, A2, A3, A4, A5) A6::Param p6,
#define SDF_REF_P8(A0, A1, A2, A3, A4, A5, A6, A7) SDF_REF_P7(A0, A1, A2, A3, A4, A5, A6) A7::Param p7,
#define SDF_REF_P9(A0, A1, A2, A3, A4, A5, A6, A7, A8) SDF_REF_P8(A0, A1, A2, A3, A4, A5, A6, A7) A8::Param p8,
#define SDF_REF_P10(A0, A1, A2, A3, A4, A5, A6, A7, A8, A9) \
    SDF_REF_P9(A0, A1, A2, A3, A4, A5, A6, A7, A8) A9::Param p9,
#define SDF_REF_P11(A0, A1, A2, A3, A4, A5, A6, A7, A8, A9, A10) \
    SDF_REF_P10(A0, A1, A2, A3, A4, A5, A6, A7, A8, A9) A10::Param p10,
#define SDF_REF_P12(A0, A1, A2, A3, A4, A5, A6, A7, A8, A9, A10, A11) \
    SDF_REF_P11(A0, A1, A2, A3, A4, A5, A6, A7, A8, A9, A10) A11::Param p11,
#define SDF_REF_PARAMS(...) SDF_REF_CAT(SDF_REF_P, SDF_REF_NARGS(__VA_ARGS__))(__VA_ARGS__)

#define SDF_REF_A0
#define SDF_REF_A1 , p0
#define SDF_REF_A2 SDF_REF_A1, p1
#define SDF_REF_A3 SDF_REF_A2, p2
#define SDF_REF_A4 SDF_REF_A3, p3
#define SDF_REF_A5 SDF_REF_A4, p4
#define SDF_REF_A6 SDF_REF_A5, p5
#define SDF_REF_A7 SDF_REF_A6, p6
#define SDF_REF_A8 SDF_REF_A7, p7
#define SDF_REF_A9 SDF_REF_A8, p8
#define SDF_REF_A10 SDF_REF_A9, p9
#define SDF_REF_A11 SDF_REF_A10, p10
#define SDF_REF_A12 SDF_REF_A11, p11
#define SDF_REF_ARGS(...) SDF_REF_CAT(SDF_REF_A, SDF_REF_NARGS(__VA_ARGS__))

// The hidden lengths, one per text argument, and the same as values.
#define SDF_REF_L0
#define SDF_REF_L1 , size_t l0
#define SDF_REF_L2 SDF_REF_L1, size_t l1
#define SDF_REF_L3 SDF_REF_L2, size_t l2
#define SDF_REF_L4 SDF_REF_L3, size_t l3
#define SDF_REF_V0 0
#define SDF_REF_V1 l0
#define SDF_REF_V2 SDF_REF_V1, l1
#define SDF_REF_V3 SDF_REF_V2, l2
#define SDF_REF_V4 SDF_REF_V3, l3

// One by-reference form and its alias for gfortran (lower case, trailing
// underscore). NAME is the form-1 name, LOWER the same in lower case, RET
// the type of the result argument, CORE the form-1 routine (or a callable
// with its arguments), NT the number of text arguments, then the adapters.
#define SDF_REF_FORM_R(RET, NAME, LOWER, CORE, NT, ...)                                                       \
    RET NAME##_ref(SDF_REF_PARAMS(__VA_ARGS__) RET* result SDF_REF_L##NT) {                                   \
        const size_t lens[] = {SDF_REF_V##NT};                                                                \
        return sdfref::Form<RET, NT __VA_OPT__(, ) __VA_ARGS__>::run(#NAME "_ref", CORE, result,             \
                                                                       lens SDF_REF_ARGS(__VA_ARGS__));       \
    }                                                                                                         \
    SDF_API RET LOWER##_ref_(SDF_REF_PARAMS(__VA_ARGS__) RET* result SDF_REF_L##NT)                           \
        __attribute__((alias(#NAME "_ref")));
#define SDF_REF_FORM(NAME, LOWER, CORE, NT, ...) SDF_REF_FORM_R(int, NAME, LOWER, CORE, NT, __VA_ARGS__)
