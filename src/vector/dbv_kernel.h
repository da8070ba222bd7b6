// dbv_kernel.h - the distance kernels: one template over the metric and the
// two operands (base type, order-preserving form, sparse).
//
// Every element is converted first (float16 and bfloat16 to float, int8 to
// float, the order-preserving form decoded).  A pair works in double when
// either side is double, else in float; the difference or product of two
// elements is taken in that precision, widened and added to a double
// accumulator, one accumulator per sum, in element order.  The order of the
// additions is part of the result, so the SIMD paths below vectorise only
// the element work and add the lanes one after the other.  Where every term
// is an exact integer (int8 against int8) any order gives the same sum and
// the kernels add in integer lanes.
#pragma once

#include <nmmintrin.h>
#include <smmintrin.h>

#include <cfloat>
#include <cmath>
#include <type_traits>

#include "frame/entries.h"
#include "vector/dbv_lanes.h"
#include "vector/dbv_names.h"
#include "vector/dbv_roots.h"
#include "vector/value_format.h"

namespace vorn::vec {

enum class Metric : ub1 { euclid, cosine, dotprod, manhattan, hamming, jaccard };

// The operands by name.
inline constexpr Operand op_float{Base::f32, false, false};
inline constexpr Operand op_Cfloat{Base::f32, true, false};
inline constexpr Operand op_double{Base::f64, false, false};
inline constexpr Operand op_Cdouble{Base::f64, true, false};
inline constexpr Operand op_int8{Base::i8, false, false};
inline constexpr Operand op_float16{Base::f16, false, false};
inline constexpr Operand op_Cfloat16{Base::f16, true, false};
inline constexpr Operand op_bfloat16{Base::bf16, false, false};
inline constexpr Operand op_Cbfloat16{Base::bf16, true, false};
inline constexpr Operand op_bitmsb0{Base::bits, false, false};
inline constexpr Operand op_Sfloat{Base::f32, false, true};
inline constexpr Operand op_SCfloat{Base::f32, true, true};
inline constexpr Operand op_Sdouble{Base::f64, false, true};
inline constexpr Operand op_SCdouble{Base::f64, true, true};
inline constexpr Operand op_Sint8{Base::i8, false, true};
inline constexpr Operand op_Sfloat16{Base::f16, false, true};
inline constexpr Operand op_SCfloat16{Base::f16, true, true};
inline constexpr Operand op_Sbfloat16{Base::bf16, false, true};
inline constexpr Operand op_SCbfloat16{Base::bf16, true, true};
inline constexpr Operand op_Sbitmsb0{Base::bits, false, true};

// What a pair of operands decides: the working precision and the tolerance
// of hamming, the coarsest side deciding.
template <Operand L, Operand R>
struct Pair {
    static constexpr bool wide = L.base == Base::f64 || R.base == Base::f64;
    using W = std::conditional_t<wide, double, float>;
    static constexpr bool either(Base b) { return L.base == b || R.base == b; }
    static constexpr W tolerance() {
        if constexpr (either(Base::bf16)) {
            if constexpr (wide) return 0.001954;
            else return 0.001954f;
        } else if constexpr (either(Base::f16)) {
            return W(0.001953125);
        } else if constexpr (either(Base::f32)) {
            return W(FLT_EPSILON);
        } else if constexpr (wide) {
            return W(DBL_EPSILON);
        } else {
            return W(0);  // int8 with int8: any difference counts
        }
    }
    static constexpr W tol = tolerance();
    static constexpr bool int8s = L.base == Base::i8 && R.base == Base::i8;
    // Float-precision pairs whose elements load four at a time.
    static constexpr bool float_lanes = !wide && L.base != Base::bits;
};

// The sums of one kernel call.
struct Sums {
    double s = 0.0;   // euclid, dotprod, manhattan; cosine's a*b
    double aa = 0.0;  // cosine: a*a
    double bb = 0.0;  // cosine: b*b
    ub8 n = 0;        // hamming
};

// One element step in the working precision W.
template <Metric M, class W>
VORN_INLINE void step_both(Sums &acc, W a, W b, W tol) {
    if constexpr (M == Metric::euclid) {
        const W d = b - a;
        const W sq = d * d;
        acc.s += double(sq);
    } else if constexpr (M == Metric::cosine) {
        const W ab = a * b, aa = a * a, bb = b * b;
        acc.s += double(ab);
        acc.aa += double(aa);
        acc.bb += double(bb);
    } else if constexpr (M == Metric::dotprod) {
        const W ab = a * b;
        acc.s += double(ab);
    } else if constexpr (M == Metric::manhattan) {
        W d = b - a;
        if (d < W(0)) d = -d;
        acc.s += double(d);
    } else if constexpr (M == Metric::hamming) {
        const W d = b - a;
        acc.n += (d > tol || d < -tol) ? 1 : 0;
    }
}

// An element present on one side of a sparse pair: the other side is 0.
template <Metric M, bool Left, class W>
VORN_INLINE void step_lone(Sums &acc, W v, W tol) {
    if constexpr (M == Metric::euclid) {
        const W sq = v * v;
        acc.s += double(sq);
    } else if constexpr (M == Metric::cosine) {
        const W sq = v * v;
        if constexpr (Left) acc.aa += double(sq);
        else acc.bb += double(sq);
    } else if constexpr (M == Metric::manhattan) {
        W d = v;
        if (d < W(0)) d = -d;
        acc.s += double(d);
    } else if constexpr (M == Metric::hamming) {
        acc.n += (v > tol || v < -tol) ? 1 : 0;
    }
}

template <Metric M>
VORN_INLINE double finish(const Sums &acc, ub4 metric) {
    if constexpr (M == Metric::euclid) {
        return metric == VORN_METRIC_EUCLID ? guarded_sqrt(acc.s) : acc.s;
    } else if constexpr (M == Metric::cosine) {
        const double c = acc.s / (guarded_sqrt(acc.aa) * guarded_sqrt(acc.bb));
        return metric == VORN_METRIC_COSINE_DISTANCE ? 1.0 - c : c;
    } else if constexpr (M == Metric::dotprod) {
        return metric == VORN_METRIC_NEG_DOTPROD ? -acc.s : acc.s;
    } else if constexpr (M == Metric::manhattan) {
        return acc.s;
    } else {
        return double(acc.n);
    }
}

// Adds the four lanes of v to the double sum in the low lane of s, lane 0
// first.  The sum stays in a register across a whole loop.
VORN_INLINE void add_lanes_in_order(__m128d &s, __m128 v) {
    const __m128d lo = _mm_cvtps_pd(v);
    const __m128d hi = _mm_cvtps_pd(_mm_movehl_ps(v, v));
    s = _mm_add_sd(s, lo);
    s = _mm_add_sd(s, _mm_unpackhi_pd(lo, lo));
    s = _mm_add_sd(s, hi);
    s = _mm_add_sd(s, _mm_unpackhi_pd(hi, hi));
}

constexpr ub4 kPrefetchAhead = 384;

template <Operand O>
VORN_INLINE void prefetch_ahead(const void *p, ub8 i) {
    _mm_prefetch(static_cast<const char *>(p) + i * element_bytes(O.base) + kPrefetchAhead, _MM_HINT_T0);
}

// ---- Dense pairs, not bits --------------------------------------------------

template <Metric M, Operand L, Operand R>
struct DenseKernel {
    using P = Pair<L, R>;
    using W = typename P::W;
    using EL = Element<L.base, L.c>;
    using ER = Element<R.base, R.c>;

    static VORN_INLINE void scalar(Sums &acc, const void *l, const void *r, ub8 from, ub8 to) {
        for (ub8 i = from; i < to; ++i) step_both<M, W>(acc, W(EL::load(l, i)), W(ER::load(r, i)), P::tol);
    }

    // Float pairs: four elements a step.  The lanes are converted and
    // combined at once; the sums take them in element order.
    static VORN_INLINE ub8 float_blocks(Sums &acc, const void *l, const void *r, ub8 dims) {
        const ub8 blocks = dims & ~ub8(3);
        const __m128 tol = _mm_set1_ps(P::tol), ntol = _mm_set1_ps(-P::tol);
        const __m128 sign = _mm_set1_ps(-0.0f);
        __m128d s = _mm_set_sd(acc.s), aa = _mm_set_sd(acc.aa), bb = _mm_set_sd(acc.bb);
        for (ub8 i = 0; i < blocks; i += 4) {
            prefetch_ahead<L>(l, i);
            prefetch_ahead<R>(r, i);
            const __m128 a = Lanes<L.base, L.c>::load4(l, i);
            const __m128 b = Lanes<R.base, R.c>::load4(r, i);
            if constexpr (M == Metric::euclid) {
                const __m128 d = _mm_sub_ps(b, a);
                add_lanes_in_order(s, _mm_mul_ps(d, d));
            } else if constexpr (M == Metric::cosine) {
                add_lanes_in_order(s, _mm_mul_ps(a, b));
                add_lanes_in_order(aa, _mm_mul_ps(a, a));
                add_lanes_in_order(bb, _mm_mul_ps(b, b));
            } else if constexpr (M == Metric::dotprod) {
                add_lanes_in_order(s, _mm_mul_ps(a, b));
            } else if constexpr (M == Metric::manhattan) {
                // The sign flips where the difference is below zero: a NaN
                // and a negative zero pass as they are.
                const __m128 d = _mm_sub_ps(b, a);
                const __m128 neg = _mm_cmplt_ps(d, _mm_setzero_ps());
                add_lanes_in_order(s, _mm_xor_ps(d, _mm_and_ps(neg, sign)));
            } else if constexpr (M == Metric::hamming) {
                const __m128 d = _mm_sub_ps(b, a);
                const __m128 differ = _mm_or_ps(_mm_cmpgt_ps(d, tol), _mm_cmplt_ps(d, ntol));
                acc.n += ub8(_mm_popcnt_u32(ub4(_mm_movemask_ps(differ))));
            }
        }
        acc.s = _mm_cvtsd_f64(s);
        acc.aa = _mm_cvtsd_f64(aa);
        acc.bb = _mm_cvtsd_f64(bb);
        return blocks;
    }

    // int8 against int8: every term is an exact integer, so the sums are
    // exact in any order (a sum of dims * 65,025 at most stays far below
    // 2^53) and the lanes add as integers.
    static VORN_INLINE ub8 int8_blocks(Sums &acc, const void *l, const void *r, ub8 dims) {
        const ub8 blocks = dims & ~ub8(15);
        const auto *pa = static_cast<const ub1 *>(l);
        const auto *pb = static_cast<const ub1 *>(r);
        if constexpr (M == Metric::hamming) {
            ub8 n = 0;
            for (ub8 i = 0; i < blocks; i += 16) {
                const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pa + i));
                const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pb + i));
                n += 16 - ub8(_mm_popcnt_u32(ub4(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)))));
            }
            acc.n += n;
        } else if constexpr (M == Metric::manhattan) {
            // |b - a| of signed bytes is the same for both shifted to
            // unsigned, where the sum of absolute differences is one step.
            const __m128i bias = _mm_set1_epi8(char(0x80));
            __m128i sum = _mm_setzero_si128();
            for (ub8 i = 0; i < blocks; i += 16) {
                const __m128i a = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(pa + i)), bias);
                const __m128i b = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i *>(pb + i)), bias);
                sum = _mm_add_epi64(sum, _mm_sad_epu8(a, b));
            }
            acc.s += double(ub8(_mm_cvtsi128_si64(sum)) + ub8(_mm_extract_epi64(sum, 1)));
        } else {
            // Products of 16-bit lanes in pairs; 32-bit lanes are carried to
            // 64 bits every 4,096 blocks, well before they can overflow.
            sb8 s = 0, aa = 0, bb = 0;
            ub8 i = 0;
            while (i < blocks) {
                const ub8 stop = (blocks - i > 4096 * 16) ? i + 4096 * 16 : blocks;
                __m128i vs = _mm_setzero_si128(), va = _mm_setzero_si128(), vb = _mm_setzero_si128();
                for (; i < stop; i += 16) {
                    const __m128i a8 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pa + i));
                    const __m128i b8 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(pb + i));
                    const __m128i alo = _mm_cvtepi8_epi16(a8), ahi = _mm_cvtepi8_epi16(_mm_srli_si128(a8, 8));
                    const __m128i blo = _mm_cvtepi8_epi16(b8), bhi = _mm_cvtepi8_epi16(_mm_srli_si128(b8, 8));
                    if constexpr (M == Metric::euclid) {
                        const __m128i dlo = _mm_sub_epi16(blo, alo), dhi = _mm_sub_epi16(bhi, ahi);
                        vs = _mm_add_epi32(vs, _mm_add_epi32(_mm_madd_epi16(dlo, dlo), _mm_madd_epi16(dhi, dhi)));
                    } else {
                        vs = _mm_add_epi32(vs, _mm_add_epi32(_mm_madd_epi16(alo, blo), _mm_madd_epi16(ahi, bhi)));
                        if constexpr (M == Metric::cosine) {
                            va = _mm_add_epi32(va, _mm_add_epi32(_mm_madd_epi16(alo, alo), _mm_madd_epi16(ahi, ahi)));
                            vb = _mm_add_epi32(vb, _mm_add_epi32(_mm_madd_epi16(blo, blo), _mm_madd_epi16(bhi, bhi)));
                        }
                    }
                }
                s += horizontal(vs);
                aa += horizontal(va);
                bb += horizontal(vb);
            }
            acc.s += double(s);
            acc.aa += double(aa);
            acc.bb += double(bb);
        }
        return blocks;
    }

    static VORN_INLINE sb8 horizontal(__m128i v) {
        return sb8(_mm_extract_epi32(v, 0)) + _mm_extract_epi32(v, 1) + _mm_extract_epi32(v, 2) +
               _mm_extract_epi32(v, 3);
    }

    static VORN_INLINE double run(ub4 dims, const void *l, const void *r, ub4 metric) {
        Sums acc;
        ub8 done = 0;
        if constexpr (P::int8s) {
            done = int8_blocks(acc, l, r, dims);
        } else if constexpr (P::float_lanes) {
            done = float_blocks(acc, l, r, dims);
        }
        scalar(acc, l, r, done, dims);
        return finish<M>(acc, metric);
    }
};

// ---- Sparse pairs, not bits ---------------------------------------------------

template <Metric M, Operand L, Operand R>
struct SparseKernel {
    using P = Pair<L, R>;
    using W = typename P::W;
    using EL = Element<L.base, L.c>;
    using ER = Element<R.base, R.c>;

    static VORN_INLINE double run(const void *l, const void *r, ub4 metric) {
        const SparseView a = sparse_view(l), b = sparse_view(r);
        Sums acc;
        ub4 i = 0, j = 0;
        while (i < a.count && j < b.count) {
            const ub4 pa = sparse_position(a, i), pb = sparse_position(b, j);
            if (pa == pb) {
                step_both<M, W>(acc, W(EL::load(a.values, i)), W(ER::load(b.values, j)), P::tol);
                ++i;
                ++j;
            } else if (pa < pb) {
                step_lone<M, true, W>(acc, W(EL::load(a.values, i)), P::tol);
                ++i;
            } else {
                step_lone<M, false, W>(acc, W(ER::load(b.values, j)), P::tol);
                ++j;
            }
        }
        for (; i < a.count; ++i) step_lone<M, true, W>(acc, W(EL::load(a.values, i)), P::tol);
        for (; j < b.count; ++j) step_lone<M, false, W>(acc, W(ER::load(b.values, j)), P::tol);
        return finish<M>(acc, metric);
    }
};

// ---- Bits ---------------------------------------------------------------------

// The counts a bit metric needs: ones of a xor b, a and b, a or b, a, b.
// A count is at most 2^32, so it converts to double as a signed integer:
// one instruction, where an unsigned 64-bit conversion takes a branch.
struct BitCounts {
    sb8 x = 0, both = 0, either = 0, a = 0, b = 0;
};

VORN_INLINE double count_to_double(sb8 n) { return double(n); }

template <Metric M>
VORN_INLINE void count_word(BitCounts &c, ub8 a, ub8 b) {
    if constexpr (M == Metric::euclid || M == Metric::hamming || M == Metric::manhattan) {
        c.x += _mm_popcnt_u64(a ^ b);
    } else if constexpr (M == Metric::dotprod) {
        c.both += _mm_popcnt_u64(a & b);
    } else if constexpr (M == Metric::cosine) {
        c.both += _mm_popcnt_u64(a & b);
        c.a += _mm_popcnt_u64(a);
        c.b += _mm_popcnt_u64(b);
    } else {
        c.both += _mm_popcnt_u64(a & b);
        c.either += _mm_popcnt_u64(a | b);
    }
}

template <Metric M>
VORN_INLINE void count_byte(BitCounts &c, ub1 a, ub1 b) {
    if constexpr (M == Metric::euclid || M == Metric::hamming || M == Metric::manhattan) {
        c.x += vorn_byte_popc[ub1(a ^ b)];
    } else if constexpr (M == Metric::dotprod) {
        c.both += vorn_byte_popc[ub1(a & b)];
    } else if constexpr (M == Metric::cosine) {
        c.both += vorn_byte_popc[ub1(a & b)];
        c.a += vorn_byte_popc[a];
        c.b += vorn_byte_popc[b];
    } else {
        c.both += vorn_byte_popc[ub1(a & b)];
        c.either += vorn_byte_popc[ub1(a | b)];
    }
}

template <Metric M>
VORN_INLINE double finish_bits(const BitCounts &c, ub4 metric) {
    if constexpr (M == Metric::euclid) {
        return metric == VORN_METRIC_EUCLID ? count_root(c.x) : count_to_double(c.x);
    } else if constexpr (M == Metric::hamming || M == Metric::manhattan) {
        return count_to_double(c.x);
    } else if constexpr (M == Metric::dotprod) {
        const ub4 n = ub4(c.both);
        return metric == VORN_METRIC_NEG_DOTPROD ? double(sb4(0u - n)) : double(n);
    } else if constexpr (M == Metric::cosine) {
        // The roots of the counts come from the table: the division is the
        // one slow step left.
        const double cs = count_to_double(c.both) / (count_root(c.a) * count_root(c.b));
        return metric == VORN_METRIC_COSINE_DISTANCE ? 1.0 - cs : cs;
    } else {
        const double j = count_to_double(c.both) / count_to_double(c.either);
        return metric == VORN_METRIC_JACCARD_DISTANCE ? 1.0 - j : j;
    }
}

// A dense bit body of dims bits is (dims + 7) / 8 bytes: whole 64-bit words
// by population count, the rest bytewise by table.  Any length runs through
// one loop of two words for every whole 16-byte group, with a lone word and
// the byte tail laid out of the way.
template <Metric M>
[[gnu::noinline]] ub8 bits_dense_any(ub4 dims, const ub1 *pa, const ub1 *pb, ub4 metric, double *out) {
    const ub8 bytes = (ub8(dims) + 7) >> 3;
    const ub8 groups = bytes & ~ub8(15);
    BitCounts c;
    ub8 o = 0;
    for (; o != groups; o += 16) {
        count_word<M>(c, load<ub8>(pa + o), load<ub8>(pb + o));
        count_word<M>(c, load<ub8>(pa + o + 8), load<ub8>(pb + o + 8));
    }
    if (bytes & 15) [[unlikely]] {
        if (bytes & 8) {
            count_word<M>(c, load<ub8>(pa + o), load<ub8>(pb + o));
            o += 8;
        }
        // At most seven bytes remain: a short loop, which the bound keeps
        // from being vectorised.
        const ub4 rest = ub4(bytes & 7);
        for (ub4 k = 0; k < rest; ++k) count_byte<M>(c, pa[o + k], pb[o + k]);
    }
    *out = finish_bits<M>(c, metric);
    return 0;
}

// The kernel's entry.  A 128-bit code (121 to 128 dimensions, one 16-byte
// group) is the common short vector, and its call costs little more than
// its setup, so it runs straight through two words with nothing around
// them: one test of the dimension, no loop, no frame.  Every other length
// is one jump to the loop above, which writes the result itself.
template <Metric M>
VORN_INLINE ub8 bits_dense(ub4 dims, const void *l, const void *r, ub4 metric, double *out) {
    const auto *pa = static_cast<const ub1 *>(l);
    const auto *pb = static_cast<const ub1 *>(r);
    if (dims - 121 > 7) [[unlikely]] return bits_dense_any<M>(dims, pa, pb, metric, out);
    BitCounts c;
    count_word<M>(c, load<ub8>(pa), load<ub8>(pb));
    count_word<M>(c, load<ub8>(pa + 8), load<ub8>(pb + 8));
    *out = finish_bits<M>(c, metric);
    return 0;
}

// Sparse bits: each position is a set bit.
template <Metric M>
VORN_INLINE double bits_sparse(const void *l, const void *r, ub4 metric) {
    const SparseView a = sparse_view(l), b = sparse_view(r);
    sb8 shared = 0;
    ub4 i = 0, j = 0;
    while (i < a.count && j < b.count) {
        const ub4 pa = sparse_position(a, i), pb = sparse_position(b, j);
        shared += pa == pb;
        i += pa <= pb;
        j += pb <= pa;
    }
    BitCounts c;
    c.both = shared;
    c.a = a.count;
    c.b = b.count;
    c.x = sb8(a.count) + b.count - 2 * shared;
    c.either = sb8(a.count) + b.count - shared;
    return finish_bits<M>(c, metric);
}

// ---- The kernel -----------------------------------------------------------------

template <Metric M, Operand L, Operand R>
VORN_INLINE ub8 distance(ub4 dims, const void *l, const void *r, ub4 metric, double *out) {
    static_assert(L.sparse == R.sparse, "both operands are sparse or neither is");
    if constexpr (L.base == Base::bits) {
        static_assert(R.base == Base::bits);
        if constexpr (L.sparse) *out = bits_sparse<M>(l, r, metric);
        else return bits_dense<M>(dims, l, r, metric, out);
    } else if constexpr (L.sparse) {
        *out = SparseKernel<M, L, R>::run(l, r, metric);
    } else {
        *out = DenseKernel<M, L, R>::run(dims, l, r, metric);
    }
    return 0;
}

}  // namespace vorn::vec

// Definitions of a metric's kernels, for the translation units that hold
// them: dense pairs, sparse pairs, and the two bit pairs.
#define VORN_DBV_BODY_(metric, left, right)                                                   \
    (ub4 dims_, const void *left_, const void *right_, ub4 code_, double *out_) {            \
        return ::vorn::vec::distance<::vorn::vec::Metric::metric, ::vorn::vec::op_##left,     \
                                     ::vorn::vec::op_##right>(dims_, left_, right_, code_, out_); \
    }
#define VORN_DBV_DEFINE_DENSE_(metric, left, right) \
    ub8 vorn_dbv_##metric##_##left##_##right VORN_DBV_BODY_(metric, left, right)
#define VORN_DBV_DEFINE_SPARSE_(metric, left, right) \
    ub8 vorn_dbv_##metric##_S##left##_S##right VORN_DBV_BODY_(metric, S##left, S##right)
#define VORN_DBV_DEFINE_DENSE_METRIC(metric)               \
    extern "C" {                                           \
    VORN_DBV_PAIRS(VORN_DBV_DEFINE_DENSE_, metric)         \
    VORN_DBV_DEFINE_DENSE_(metric, bitmsb0, bitmsb0)       \
    }
#define VORN_DBV_DEFINE_SPARSE_METRIC(metric)              \
    extern "C" {                                           \
    VORN_DBV_PAIRS(VORN_DBV_DEFINE_SPARSE_, metric)        \
    VORN_DBV_DEFINE_SPARSE_(metric, bitmsb0, bitmsb0)      \
    }
