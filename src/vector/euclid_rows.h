// euclid_rows.h - squared euclid of one query against eight rows at once,
// for the single-query uniform driver over float and int8 columns.
//
// A kernel call sums one row's squares strictly in element order, so its
// time is the latency of a chain of double additions.  Here each row still
// has its own chain in element order - the same operations in the same
// order, so every result is bit-identical to the kernel's - but eight rows
// run side by side, two in the lanes of each of four double accumulators:
// the difference and the square are taken in float as the kernel takes
// them, four elements of a row at a time against the query as it lies, and
// only the squares of a pair of rows are interleaved before they widen.
// Elements behind the last group of four continue each row's chain one by
// one.
#pragma once

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

// out[j] = sum over i of (row_j[i] - q[i])^2, each in element order.
// q is the query as floats; rows are float or int8 bodies.
template <bool Int8>
VORN_INLINE void euclid_rows8(const float *q, const void *const *rows, ub4 dim, double *out) {
    __m128d acc[kEuclidRows / 2];
    for (ub4 p = 0; p < kEuclidRows / 2; ++p) acc[p] = _mm_setzero_pd();
    const ub4 blocks = dim & ~3u;
    for (ub4 i = 0; i < blocks; i += 4) {
        const __m128 qv = _mm_loadu_ps(q + i);
#pragma GCC unroll 16
        for (ub4 p = 0; p < kEuclidRows / 2; ++p)
            add_two_rows(load_row4<Int8>(rows[2 * p], i), load_row4<Int8>(rows[2 * p + 1], i), qv, acc[p]);
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
