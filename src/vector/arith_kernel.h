// arith_kernel.h - the one template behind the 1,104 vector arithmetic
// kernels vorn_vector_arith_<op>_<A>_<B>_<R>_<shape>.
//
// Per element: both operands are read in their forms (C forms decoded),
// widened to the working type, combined, and stored in the result's form.
// The working type is double when any of the three forms is double, int
// for int8_int8_int8, float otherwise; it is always the result's own type.
//
// Failures, checked element by element in order; the elements before the
// failing one are stored, the failing one and those behind it are not, and
// no norm is written:
//   - floating results: an infinite or NaN result returns 4 (this is also
//     what a division by zero or 0/0 becomes);
//   - int8 results: add, sub and mul out of [-128, 127] return 4; a zero
//     divisor returns 5, a quotient above 127 (-128 / -1) returns 4, and
//     the quotient truncates toward zero.
//
// Blocks: 16 elements while they fit, then 4, then one at a time.  A block
// is computed whole, checked, and stored; a block with a failure is redone
// element by element so that exactly the elements before the failure stand.
// C operands are decoded and C results encoded four floats or two doubles a
// register (arith_lanes.h); int8 add, sub and mul into int8 run 16 lanes a
// register with saturating compares.
//
// Norm of the _wnorm shapes: the squares of the result elements (float
// results squared in float, double in double, int8 as integers), summed in
// double in this fixed lane order, which is part of the result:
//   - block of 16: four accumulators of two lanes; element j of the block
//     goes to accumulator j / 4, lane j % 2;
//   - block of 4: accumulator 0, lane j % 2;
//   - single elements: one scalar accumulator;
//   - at the end: (acc0 + acc1) + (acc2 + acc3) lane by lane, then
//     lane 0 + lane 1, then + the scalar accumulator.
// An infinite or NaN sum returns 4; a sum below 0.0 gives 0.0, else the root.
// The squares of int8 results are small integers whose sums are exact in
// double, so any order gives the same norm: the int8 blocks of 16 add their
// integer sum to the scalar accumulator.
#pragma once

#include <smmintrin.h>

#include "vector/arith_lanes.h"
#include "vector/elem_forms.h"
#include "vector/vector_entries.h"

namespace vorn::vec {

enum ArithOp : ub4 { kAdd = 0, kSub = 1, kMul = 2, kDiv = 3 };
inline constexpr ub4 kArithOps = 4;
inline constexpr ub4 kFirstArithCode = 19;  // 19 add, 20 sub, 21 mul, 22 div

// The form triples that have kernels: the result at least as wide as the
// wider operand, and an int8 result only from two int8 operands.
constexpr bool arith_triple(Form a, Form b, Form r) {
    if (is_int8(a) && is_int8(b)) return true;
    if (is_double(a) || is_double(b)) return is_double(r);
    return !is_int8(r);
}

template <Form A, Form B, Form R>
using work_t = std::conditional_t<is_int8(R), int,
                                  std::conditional_t<is_double(A) || is_double(B) || is_double(R), double, float>>;

// The square that a result element adds to the norm.
template <Form R>
VORN_INLINE double norm_square(elem_t<R> v) {
    if constexpr (is_float(R)) return static_cast<double>(v * v);
    else if constexpr (is_double(R)) return v * v;
    else return static_cast<double>(v * v);
}

// The norm's accumulators in their fixed lane order: four of two lanes,
// and the scalar one.
struct NormLanes {
    __m128d acc[4] = {_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()};
    double single = 0.0;
    VORN_INLINE double fold() const {
        const __m128d t = _mm_add_pd(_mm_add_pd(acc[0], acc[1]), _mm_add_pd(acc[2], acc[3]));
        return (_mm_cvtsd_f64(t) + _mm_cvtsd_f64(_mm_unpackhi_pd(t, t))) + single;
    }
};

template <ub4 Op, Form A, Form B, Form R>
struct ArithElem {
    using W = work_t<A, B, R>;
    static VORN_INLINE W widen_a(const void *p, ub8 i) { return static_cast<W>(read_elem<A>(p, i)); }
    static VORN_INLINE W widen_b(const void *p, ub8 i) { return static_cast<W>(read_elem<B>(p, i)); }

    // One element: the result in *out and 0, or the failure code.
    static VORN_INLINE ub4 apply(W a, W b, W *out) {
        if constexpr (std::is_same_v<W, int>) {
            int v;
            if constexpr (Op == kDiv) {
                if (b == 0) {
                    *out = 0;
                    return 5;
                }
                v = a / b;
            } else if constexpr (Op == kAdd) {
                v = a + b;
            } else if constexpr (Op == kSub) {
                v = a - b;
            } else {
                v = a * b;
            }
            *out = v;
            return (v < -128 || v > 127) ? 4 : 0;
        } else {
            *out = op(a, b);
            return exp_all_ones(*out) ? 4 : 0;
        }
    }

    // The operation alone (an int8 division goes through apply, which
    // tests the divisor).
    static VORN_INLINE W op(W a, W b) {
        if constexpr (Op == kAdd) return a + b;
        else if constexpr (Op == kSub) return a - b;
        else if constexpr (Op == kMul) return a * b;
        else return a / b;
    }
};

// True when one of n floating values (n a multiple of 4) is infinite or NaN,
// four floats or two doubles a compare.
template <ub4 N>
VORN_INLINE bool any_exp_all_ones(const float *v) {
    const __m128i exp = _mm_set1_epi32(0x7f800000);
    __m128i hit = _mm_setzero_si128();
    for (ub4 j = 0; j < N; j += 4) {
        const __m128i x = _mm_and_si128(_mm_castps_si128(_mm_loadu_ps(v + j)), exp);
        hit = _mm_or_si128(hit, _mm_cmpeq_epi32(x, exp));
    }
    return _mm_movemask_epi8(hit) != 0;
}
template <ub4 N>
VORN_INLINE bool any_exp_all_ones(const double *v) {
    const __m128i exp = _mm_set1_epi64x(0x7ff0000000000000ll);
    __m128i hit = _mm_setzero_si128();
    for (ub4 j = 0; j < N; j += 2) {
        const __m128i x = _mm_and_si128(_mm_castpd_si128(_mm_loadu_pd(v + j)), exp);
        hit = _mm_or_si128(hit, _mm_cmpeq_epi64(x, exp));
    }
    return _mm_movemask_epi8(hit) != 0;
}

// int8 add, sub and mul into int8, 16 lanes at once: the block stored and
// added to the norm, or false with nothing stored when a lane leaves
// [-128, 127].  Add and sub test the wrapped lanes against the saturated
// ones; mul multiplies in 16 bits and tests the narrowed lanes.  The squares
// of int8 results are small integers whose sums are exact in double in any
// order, so the block adds its sum to the scalar accumulator.
template <ub4 Op, bool Scalar, bool WNorm>
VORN_INLINE bool int8_block16(const ub1 *a, const ub1 *b, ub1 *out, int scalar, NormLanes &lanes) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(a));
    const __m128i y = Scalar ? _mm_set1_epi8(static_cast<char>(scalar))
                             : _mm_loadu_si128(reinterpret_cast<const __m128i *>(b));
    __m128i v;
    int same;
    if constexpr (Op == kAdd) {
        v = _mm_add_epi8(x, y);
        same = _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_adds_epi8(x, y)));
    } else if constexpr (Op == kSub) {
        v = _mm_sub_epi8(x, y);
        same = _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_subs_epi8(x, y)));
    } else {
        const __m128i lo = _mm_mullo_epi16(_mm_cvtepi8_epi16(x), _mm_cvtepi8_epi16(y));
        const __m128i hi = _mm_mullo_epi16(_mm_cvtepi8_epi16(_mm_srli_si128(x, 8)), _mm_cvtepi8_epi16(_mm_srli_si128(y, 8)));
        v = _mm_packs_epi16(lo, hi);
        same = _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi16(lo, _mm_cvtepi8_epi16(v)),
                                               _mm_cmpeq_epi16(hi, _mm_cvtepi8_epi16(_mm_srli_si128(v, 8)))));
    }
    if (same != 0xFFFF) return false;
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), v);
    if constexpr (WNorm) {
        const __m128i lo = _mm_cvtepi8_epi16(v), hi = _mm_cvtepi8_epi16(_mm_srli_si128(v, 8));
        __m128i s = _mm_add_epi32(_mm_madd_epi16(lo, lo), _mm_madd_epi16(hi, hi));
        s = _mm_add_epi32(s, _mm_srli_si128(s, 8));
        s = _mm_add_epi32(s, _mm_srli_si128(s, 4));
        lanes.single += static_cast<double>(_mm_cvtsi128_si32(s));
    }
    return true;
}

// A block of N elements from `at`: computed and checked whole, then stored
// and added to the norm (N 16: accumulator j / 4, lane j % 2; N 4:
// accumulator 0).  False, with nothing stored, when an element fails.
template <ub4 N, ub4 Op, Form A, Form B, Form R, bool Scalar, bool WNorm>
VORN_INLINE bool arith_block(const void *__restrict left, const void *__restrict right, void *__restrict res, ub8 at,
                             work_t<A, B, R> scalar, NormLanes &lanes) {
    if constexpr (N == 16 && is_int8(A) && is_int8(B) && is_int8(R) && Op != kDiv) {
        const ub1 *a = static_cast<const ub1 *>(left) + at, *b = static_cast<const ub1 *>(right) + at;
        return int8_block16<Op, Scalar, WNorm>(a, b, static_cast<ub1 *>(res) + at, scalar, lanes);
    }
    using E = ArithElem<Op, A, B, R>;
    using W = typename E::W;
    W x[N], y[N], v[N];
    read_block<A, N>(left, at, x);
    if constexpr (Scalar) {
        for (ub4 j = 0; j < N; ++j) y[j] = scalar;
    } else {
        read_block<B, N>(right, at, y);
    }
    bool bad;
    if constexpr (std::is_same_v<W, int> && Op == kDiv) {
        ub4 codes = 0;
        for (ub4 j = 0; j < N; ++j) codes |= E::apply(x[j], y[j], &v[j]);
        bad = codes != 0;
    } else if constexpr (std::is_same_v<W, int>) {
        // Sums, differences and products of two int8 values fit an int:
        // computed and range-tested in loops of their own, four lanes wide.
        int out_of_range = 0;
        for (ub4 j = 0; j < N; ++j) v[j] = E::op(x[j], y[j]);
        for (ub4 j = 0; j < N; ++j) out_of_range |= (v[j] < -128) | (v[j] > 127);
        bad = out_of_range != 0;
    } else {
        // The arithmetic and the test in loops of their own, so that both
        // run four lanes at a time.
        for (ub4 j = 0; j < N; ++j) v[j] = E::op(x[j], y[j]);
        bad = any_exp_all_ones<N>(v);
    }
    if (bad) return false;
    write_block<R, N>(res, at, v);
    if constexpr (WNorm) {
        double sq[N];
        for (ub4 j = 0; j < N; ++j) sq[j] = norm_square<R>(v[j]);
        for (ub4 j = 0; j < N; j += 2) {
            __m128d &acc = lanes.acc[N == 16 ? j / 4 : 0];
            acc = _mm_add_pd(acc, _mm_loadu_pd(sq + j));
        }
    }
    return true;
}

template <ub4 Op, Form A, Form B, Form R, bool Scalar, bool WNorm>
ub8 arith_kernel(ub4 dim, const void *left, const void *right, void *res, double *norm) {
    using E = ArithElem<Op, A, B, R>;
    using W = typename E::W;
    const W scalar = Scalar ? E::widen_b(right, 0) : W{};
    NormLanes lanes;
    ub8 i = 0;

    // Elements [from, to) one by one: stores each good one and returns the
    // first failure's code.  A failed block lands here.
    auto one_by_one = [&](ub8 from, ub8 to) -> ub4 {
        for (ub8 k = from; k < to; ++k) {
            W v;
            const ub4 code = E::apply(E::widen_a(left, k), Scalar ? scalar : E::widen_b(right, k), &v);
            if (code != 0) return code;
            write_elem<R>(res, k, v);
            if constexpr (WNorm) lanes.single += norm_square<R>(v);
        }
        return 0;
    };

    for (; i + 16 <= dim; i += 16) {
        if (!arith_block<16, Op, A, B, R, Scalar, WNorm>(left, right, res, i, scalar, lanes))
            return one_by_one(i, i + 16);
    }
    for (; i + 4 <= dim; i += 4) {
        if (!arith_block<4, Op, A, B, R, Scalar, WNorm>(left, right, res, i, scalar, lanes))
            return one_by_one(i, i + 4);
    }
    if (const ub4 code = one_by_one(i, dim); code != 0) return code;
    if constexpr (WNorm) return finish_norm(lanes.fold(), norm);
    return 0;
}

// ---- The table of one operation ----------------------------------------------

// Shapes in the order of the dispatch key's last two bits: scalar * 2 + wnorm.
inline constexpr ub4 kArithShapes = 4;
inline constexpr const char *kShapeNames[kArithShapes] = {"vec", "vec_wnorm", "scalar", "scalar_wnorm"};

// The kernels of one operation at ((a * 5 + b) * 5 + r) * 4 + shape; null
// where the triple has none.
struct ArithOpTable {
    vorn_vector_arith_fn kernels[kForms * kForms * kForms * kArithShapes];
    vorn_vector_arith_fn at(Form a, Form b, Form r, ub4 shape) const {
        return kernels[((static_cast<ub4>(a) * kForms + static_cast<ub4>(b)) * kForms + static_cast<ub4>(r)) *
                           kArithShapes +
                       shape];
    }
};

template <ub4 Op, ub4 Index>
constexpr vorn_vector_arith_fn arith_entry() {
    constexpr Form a = form_at(Index / (kForms * kForms * kArithShapes));
    constexpr Form b = form_at(Index / (kForms * kArithShapes) % kForms);
    constexpr Form r = form_at(Index / kArithShapes % kForms);
    constexpr ub4 shape = Index % kArithShapes;
    if constexpr (arith_triple(a, b, r)) return &arith_kernel<Op, a, b, r, (shape >> 1) != 0, (shape & 1) != 0>;
    else return nullptr;
}

template <ub4 Op, ub4... I>
constexpr ArithOpTable make_arith_table(std::integer_sequence<ub4, I...>) {
    ArithOpTable t{};
    ((t.kernels[I] = arith_entry<Op, I>()), ...);
    return t;
}

template <ub4 Op>
constexpr ArithOpTable arith_table() {
    return make_arith_table<Op>(std::make_integer_sequence<ub4, kForms * kForms * kForms * kArithShapes>{});
}

// The four tables, one per operation, each built in a translation unit of its own.
extern const ArithOpTable kArithAdd, kArithSub, kArithMul, kArithDiv;

}  // namespace vorn::vec
