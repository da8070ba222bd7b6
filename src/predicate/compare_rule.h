// compare_rule.h - the ten compare forms as relations to one or two literals.
//
// Every form is one relation to the first literal (=, <, >), for a range form
// a second relation to the other end, a way of joining the two, and whether
// the result is complemented.  le is the complement of gt, ge of lt, ne of
// eq, and ge_le the complement of (below a or above b): the lanes then need
// only the compares the processor has, equality and greater-than.  The same
// rule drives the SIMD blocks, the scalar tail and the selective row test, so
// the three cannot disagree.
#pragma once

#include "frame/dispatch_scheme.h"
#include "predicate/lanes.h"

namespace vorn {

enum class Rel : ub1 { eq, lt, gt };
enum class Join : ub1 { single, both, first_not_second, second_not_first, either };

struct CompareRule {
    Rel first;
    Rel second;  // meaningful only when join is not single
    Join join;
    bool complement;
};

constexpr CompareRule compare_rule(Cmp c) {
    switch (c) {
        case Cmp::eq: return {Rel::eq, Rel::eq, Join::single, false};
        case Cmp::ne: return {Rel::eq, Rel::eq, Join::single, true};
        case Cmp::lt: return {Rel::lt, Rel::lt, Join::single, false};
        case Cmp::gt: return {Rel::gt, Rel::gt, Join::single, false};
        case Cmp::le: return {Rel::gt, Rel::gt, Join::single, true};
        case Cmp::ge: return {Rel::lt, Rel::lt, Join::single, true};
        case Cmp::gt_lt: return {Rel::gt, Rel::lt, Join::both, false};             // > a and < b
        case Cmp::gt_le: return {Rel::gt, Rel::gt, Join::first_not_second, false}; // > a and not > b
        case Cmp::ge_lt: return {Rel::lt, Rel::lt, Join::second_not_first, false}; // not < a and < b
        case Cmp::ge_le: return {Rel::lt, Rel::gt, Join::either, true};            // not (< a or > b)
    }
    return {};
}

constexpr bool needs_order(Cmp c) {
    const CompareRule r = compare_rule(c);
    return r.first != Rel::eq || (r.join != Join::single && r.second != Rel::eq);
}

// ---- Scalar ------------------------------------------------------------------

template <Rel R, class T>
VORN_INLINE bool holds(T x, T a) {
    if constexpr (R == Rel::eq) return x == a;
    else if constexpr (R == Rel::lt) return x < a;
    else return x > a;
}

// The pair (x, t) against (a, u), value first.
template <Rel R, class T>
VORN_INLINE bool pair_holds(T x, ub1 t, T a, ub1 u) {
    if constexpr (R == Rel::eq) return x == a && t == u;
    else return holds<R>(x, a) || (x == a && holds<R>(t, u));
}

template <Join J>
VORN_INLINE bool join(bool a, bool b) {
    if constexpr (J == Join::single) return a;
    else if constexpr (J == Join::both) return a && b;
    else if constexpr (J == Join::first_not_second) return a && !b;
    else if constexpr (J == Join::second_not_first) return !a && b;
    else return a || b;
}

// ---- Lanes -------------------------------------------------------------------

// The lanes of x that stand in relation R to the literal lanes a.  Both are
// in the same form: stored order for equality, sign-flipped for the orders.
template <Rel R, class L>
VORN_INLINE lanes::V holds_lanes(lanes::V x, lanes::V a) {
    if constexpr (R == Rel::eq) return L::eq(x, a);
    else if constexpr (R == Rel::lt) return L::gt(a, x);
    else return L::gt(x, a);
}

template <Join J>
VORN_INLINE lanes::V join(lanes::V a, lanes::V b) {
    if constexpr (J == Join::single) return a;
    else if constexpr (J == Join::both) return _mm_and_si128(a, b);
    else if constexpr (J == Join::first_not_second) return _mm_andnot_si128(b, a);
    else if constexpr (J == Join::second_not_first) return _mm_andnot_si128(a, b);
    else return _mm_or_si128(a, b);
}

}  // namespace vorn
