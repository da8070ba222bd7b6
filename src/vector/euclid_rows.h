// euclid_rows.h - squared euclid of one query against eight rows at once,
// for the single-query uniform driver over float and int8 columns.
//
// A kernel call sums one row's squares strictly in element order, so its
// time is the latency of a chain of double additions.  Here each row still
// has its own chain in element order - the same operations in the same
// order, so every result is bit-identical to the kernel's - but eight rows
// run side by side, two in the lanes of each of four double accumulators:
// the difference and the square are taken in float as the kernel takes
// them.  Float rows are interleaved by blends of offset loads before the
// difference (add_two_float_rows); int8 rows take four elements of a row
// at a time against the query as it lies, and only the squares of a pair of
// rows are interleaved before they widen.  The double additions, the
// conversions and the differences share two of the vector units, so every
// shuffle taken off them counts.
// Elements behind the last group of four continue each row's chain one by
// one.
#pragma once

#include <pmmintrin.h>
#include <smmintrin.h>

#include "frame/base.h"

namespace vorn::vec {

inline constexpr ub4 kEuclidRows = 8;
// The widest query that the driver widens on its stack for these rows.
inline constexpr ub4 kEuclidMaxDim = 2048;

template <bool Int8>
VORN_INLINE __m128 load_row4(const void *row, ub4 i) {
    if constexpr (Int8) {
        const __m128i bytes = _mm_cvtsi32_si128(static_cast<int>(load<ub4>(static_cast<const ub1 *>(row) + i)));
        return _mm_cvtepi32_ps(_mm_cvtepi8_epi32(bytes));
    } else {
        return _mm_loadu_ps(static_cast<const float *>(row) + i);
    }
}

template <bool Int8>
VORN_INLINE float load_row1(const void *row, ub4 i) {
    if constexpr (Int8) return static_cast<float>(static_cast<const sb1 *>(row)[i]);
    else return static_cast<const float *>(row)[i];
}

// Adds (element - query)^2 of elements i to i + 3 of two rows, x and y,
// to their sums s = [sum x, sum y]: the squares are taken four at a time in
// each row, then interleaved so that each double addition takes element k
// of both rows, k = i to i + 3 in order.
VORN_INLINE void add_two_rows(__m128 x, __m128 y, __m128 q, __m128d &s) {
    const __m128 dx = _mm_sub_ps(x, q), dy = _mm_sub_ps(y, q);
    const __m128 sx = _mm_mul_ps(dx, dx), sy = _mm_mul_ps(dy, dy);
    const __m128 lo = _mm_unpacklo_ps(sx, sy), hi = _mm_unpackhi_ps(sx, sy);
    s = _mm_add_pd(s, _mm_cvtps_pd(lo));
    s = _mm_add_pd(s, _mm_cvtps_pd(_mm_movehl_ps(lo, lo)));
    s = _mm_add_pd(s, _mm_cvtps_pd(hi));
    s = _mm_add_pd(s, _mm_cvtps_pd(_mm_movehl_ps(hi, hi)));
}

// The query of the float rows laid out for add_two_float_rows: per group
// of four elements i..i+3, [q_i q_i q_i+2 q_i+2 | q_i+1 q_i+1 q_i+3 q_i+3].
// qx holds 2 * (dim & ~3) floats.
VORN_INLINE void pair_query(const float *q, ub4 dim, float *qx) {
    for (ub4 i = 0; i + 4 <= dim; i += 4) {
        float *g = qx + 2 * i;
        g[0] = g[1] = q[i];
        g[2] = g[3] = q[i + 2];
        g[4] = g[5] = q[i + 1];
        g[6] = g[7] = q[i + 3];
    }
}

// The float rows' group of four, without unpacks: x is read at i and i + 1,
// y at i - 1 and i, and a blend of the odd lanes gives [x_i y_i x_i+2 y_i+2]
// and [x_i+1 y_i+1 x_i+3 y_i+3], each lane then taking its difference and
// square against the paired query.  The low halves convert to the pairs of
// elements i and i + 1, the high halves to i + 2 and i + 3.  Reads never
// leave the rows: the first group takes y_i from its own load (moveldup)
// and the last takes x_i+1 from its own (movehdup).
template <bool First, bool Last>
VORN_INLINE void add_two_float_rows(const float *x, const float *y, const float *qx, __m128d &s) {
    const __m128 xv = _mm_loadu_ps(x), yv = _mm_loadu_ps(y);
    const __m128 y_before = First ? _mm_moveldup_ps(yv) : _mm_loadu_ps(y - 1);
    const __m128 x_after = Last ? _mm_movehdup_ps(xv) : _mm_loadu_ps(x + 1);
    __m128 even = _mm_blend_ps(xv, y_before, 0xA), odd = _mm_blend_ps(x_after, yv, 0xA);
    even = _mm_sub_ps(even, _mm_load_ps(qx));
    odd = _mm_sub_ps(odd, _mm_load_ps(qx + 4));
    even = _mm_mul_ps(even, even);
    odd = _mm_mul_ps(odd, odd);
    s = _mm_add_pd(s, _mm_cvtps_pd(even));
    s = _mm_add_pd(s, _mm_cvtps_pd(odd));
    s = _mm_add_pd(s, _mm_cvtps_pd(_mm_movehl_ps(even, even)));
    s = _mm_add_pd(s, _mm_cvtps_pd(_mm_movehl_ps(odd, odd)));
}

template <bool First, bool Last>
VORN_INLINE void float_rows8_group(const float *qx, const void *const *rows, ub4 i, __m128d *acc) {
#pragma GCC unroll 16
    for (ub4 p = 0; p < kEuclidRows / 2; ++p)
        add_two_float_rows<First, Last>(static_cast<const float *>(rows[2 * p]) + i,
                                        static_cast<const float *>(rows[2 * p + 1]) + i, qx + 2 * i, acc[p]);
}

// out[j] = sum over i of (row_j[i] - q[i])^2, each in element order.
// q is the query as floats (qx its paired layout, for float rows); rows
// are float or int8 bodies.
template <bool Int8>
VORN_INLINE void euclid_rows8(const float *q, const float *qx, const void *const *rows, ub4 dim, double *out) {
    __m128d acc[kEuclidRows / 2];
    for (ub4 p = 0; p < kEuclidRows / 2; ++p) acc[p] = _mm_setzero_pd();
    const ub4 blocks = dim & ~3u;
    if constexpr (Int8) {
        for (ub4 i = 0; i < blocks; i += 4) {
            const __m128 qv = _mm_loadu_ps(q + i);
#pragma GCC unroll 16
            for (ub4 p = 0; p < kEuclidRows / 2; ++p)
                add_two_rows(load_row4<Int8>(rows[2 * p], i), load_row4<Int8>(rows[2 * p + 1], i), qv, acc[p]);
        }
    } else if (blocks == 4) {
        float_rows8_group<true, true>(qx, rows, 0, acc);
    } else if (blocks != 0) {
        float_rows8_group<true, false>(qx, rows, 0, acc);
        for (ub4 i = 4; i + 4 < blocks; i += 4) float_rows8_group<false, false>(qx, rows, i, acc);
        float_rows8_group<false, true>(qx, rows, blocks - 4, acc);
    }
    alignas(16) double s[kEuclidRows];
    for (ub4 p = 0; p < kEuclidRows / 2; ++p) _mm_store_pd(s + 2 * p, acc[p]);
    for (ub4 i = blocks; i < dim; ++i)
        for (ub4 j = 0; j < kEuclidRows; ++j) {
            const float d = load_row1<Int8>(rows[j], i) - q[i];
            s[j] += static_cast<double>(d * d);
        }
    for (ub4 j = 0; j < kEuclidRows; ++j) out[j] = s[j];
}

}  // namespace vorn::vec
