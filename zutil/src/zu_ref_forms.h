/*
 * zu_ref_forms.h - the machinery of the utility library's by-reference
 * forms (suffix _ref), for callers that pass every argument by address and
 * each text as a pointer with a hidden length at the end of the list.
 *
 * A form is one line: its name, its gfortran alias, the by-value core, the
 * code and routine name its family uses for a missing argument, the number
 * of text arguments and the argument adapters in the caller's order. Each
 * adapter turns one caller argument into one core argument in a slot that
 * lives across the call. The result goes to the caller's extra `rc`
 * argument (which comes before the lengths) and is returned too.
 *
 * Invariants: a null scalar or text is refused before the core runs, with
 * the family's code; text copies are freed when the form returns; pointers
 * the core takes as pointers (arrays, out values) pass through untouched, so
 * the core's own null checks answer for them.
 */
#ifndef ZU_REF_FORMS_H
#define ZU_REF_FORMS_H

#include "zu_internal.h"

#include <climits>
#include <cstddef>
#include <tuple>
#include <utility>

namespace zuref {

/* A caller's argument and its hidden length (0 for all but texts). */
template <class P>
struct Raw {
    P p;
    size_t len;
};

/* A scalar by reference. */
template <class T>
struct In {
    using Param = const T *;
    static constexpr bool text = false;
    struct Slot {
        T v{};
        bool ok;
        explicit Slot(Raw<Param> r) : ok(r.p != nullptr)
        {
            if (r.p)
                v = *r.p;
        }
        T arg() const { return v; }
    };
};

/* Anything the core takes as a pointer already. */
template <class T>
struct Ptr {
    using Param = T *;
    static constexpr bool text = false;
    struct Slot {
        T *p;
        bool ok = true;
        explicit Slot(Raw<Param> r) : p(r.p) {}
        T *arg() const { return p; }
    };
};

/* A blank-padded text in: a terminated copy without trailing blanks. */
struct Text {
    using Param = const char *;
    static constexpr bool text = true;
    struct Slot {
        char *s = nullptr;
        bool ok;
        explicit Slot(Raw<Param> r)
            : s(r.p && r.len <= INT_MAX ? strf2cDup(r.p, static_cast<int>(r.len)) : nullptr), ok(s)
        {
        }
        ~Slot() { ZU_freeMem(s); }
        Slot(const Slot &) = delete;
        Slot &operator=(const Slot &) = delete;
        const char *arg() const { return s; }
    };
};

/* Runs one form: A are the adapters, NT the number of text arguments. */
template <size_t NT, class... A>
struct Form {
    static constexpr bool texts[sizeof...(A) + 1] = {A::text..., false};
    static constexpr size_t textsBefore(size_t k)
    {
        size_t n = 0;
        for (size_t i = 0; i < k; ++i)
            n += texts[i];
        return n;
    }
    static_assert(textsBefore(sizeof...(A)) == NT, "one hidden length per text argument");

    template <class Core, size_t... K>
    static int go(std::index_sequence<K...>, Core core, int badCode, const char *routine, int *rc,
                  [[maybe_unused]] const size_t *lens, typename A::Param... p)
    {
        std::tuple<typename A::Slot...> s{Raw<typename A::Param>{p, texts[K] ? lens[textsBefore(K)] : 0}...};
        const bool ok = (std::get<K>(s).ok && ...);
        int result;
        if (ok) {
            result = core(std::get<K>(s).arg()...);
        } else {
            ZU_Err(routine, badCode, ZU_SEV_ERROR, "Invalid pointer");
            result = badCode;
        }
        if (rc)
            *rc = result;
        return result;
    }
    template <class Core>
    static int run(Core core, int badCode, const char *routine, int *rc, const size_t *lens,
                   typename A::Param... p)
    {
        return go(std::index_sequence_for<A...>{}, core, badCode, routine, rc, lens, p...);
    }
};

} // namespace zuref

/* Parameter lists p0, p1, ... for 1 to 6 adapters. */
#define ZU_REF_NARGS(...) ZU_REF_NARGS_(__VA_ARGS__, 6, 5, 4, 3, 2, 1, 0)
#define ZU_REF_NARGS_(a1, a2, a3, a4, a5, a6, n, ...) n
#define ZU_REF_CAT(a, b) ZU_REF_CAT_(a, b)
#define ZU_REF_CAT_(a, b) a##b
#define ZU_REF_P1(A0) A0::Param p0,
#define ZU_REF_P2(A0, A1) ZU_REF_P1(A0) A1::Param p1,
#define ZU_REF_P3(A0, A1, A2) ZU_REF_P2(A0, A1) A2::Param p2,
#define ZU_REF_P4(A0, A1, A2, A3) ZU_REF_P3(A0, A1, A2) A3::Param p3,
#define ZU_REF_P5(A0, A1, A2, A3, A4) ZU_REF_P4(A0, A1, A2, A3) A4::Param p4,
#define ZU_REF_P6(A0, A1, A2, A3, A4, A5) ZU_REF_P5(A0, A1, A2, A3, A4) A5::Param p5,
#define ZU_REF_PARAMS(...) ZU_REF_CAT(ZU_REF_P, ZU_REF_NARGS(__VA_ARGS__))(__VA_ARGS__)
#define ZU_REF_A1 , p0
#define ZU_REF_A2 ZU_REF_A1, p1
#define ZU_REF_A3 ZU_REF_A2, p2
#define ZU_REF_A4 ZU_REF_A3, p3
#define ZU_REF_A5 ZU_REF_A4, p4
#define ZU_REF_A6 ZU_REF_A5, p5
#define ZU_REF_ARGS(...) ZU_REF_CAT(ZU_REF_A, ZU_REF_NARGS(__VA_ARGS__))
#define ZU_REF_L0
#define ZU_REF_L1 , size_t l0
#define ZU_REF_L2 , size_t l0, size_t l1
#define ZU_REF_V0 0
#define ZU_REF_V1 l0
#define ZU_REF_V2 l0, l1

/* One by-reference form NAME_ref of the core NAME and its gfortran alias
 * LOWER_ref_; BAD is the code for a missing argument. */
#define ZU_REF_FORM(NAME, LOWER, BAD, NT, ...)                                                        \
    int NAME##_ref(ZU_REF_PARAMS(__VA_ARGS__) int *rc ZU_REF_L##NT)                                   \
    {                                                                                                 \
        const size_t lens[] = {ZU_REF_V##NT};                                                         \
        return zuref::Form<NT, __VA_ARGS__>::run(NAME, BAD, #NAME "_ref", rc, lens ZU_REF_ARGS(__VA_ARGS__)); \
    }                                                                                                 \
    ZU_API int LOWER##_ref_(ZU_REF_PARAMS(__VA_ARGS__) int *rc ZU_REF_L##NT) __attribute__((alias(#NAME "_ref")));

/* The upper-case twin UPPER_REF of NAME_ref, for callers whose compiler
 * links names in capitals; RET and PARAMS repeat the form's signature. */
#define ZU_REF_UPPER(NAME, UPPER, RET, PARAMS) \
    ZU_API RET UPPER##_REF PARAMS __attribute__((alias(#NAME "_ref")));

#endif
