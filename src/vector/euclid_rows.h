// euclid_rows.h - squared euclid of one query against eight rows at once,
// for the single-query uniform driver over float and int8 columns.
//
// A kernel call sums one row's squares strictly in element order, so its
// time is the latency of a chain of double additions.  Here each row still
// has its own chain in element order - the same operations in the same
// order, so every result is bit-identical to the kernel's - but eight rows
// run side by side in the lanes of four double accumulators: four rows are
// loaded four elements at a time and transposed, so that one vector holds
// element i of four rows; the difference and the square are taken in float
// as the kernel takes them, and the two halves widen into two accumulators.
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

// Adds (element - query)^2 of four rows, one element, into two accumulators.
VORN_INLINE void add_step(__m128 col, __m128 q, __m128d &lo, __m128d &hi) {
    const __m128 d = _mm_sub_ps(col, q);
    const __m128 sq = _mm_mul_ps(d, d);
    lo = _mm_add_pd(lo, _mm_cvtps_pd(sq));
    hi = _mm_add_pd(hi, _mm_cvtps_pd(_mm_movehl_ps(sq, sq)));
}

// out[j] = sum over i of (row_j[i] - q[i])^2, each in element order.
// q is the query as floats; rows are float or int8 bodies.
template <bool Int8>
VORN_INLINE void euclid_rows8(const float *q, const void *const *rows, ub4 dim, double *out) {
    __m128d s01 = _mm_setzero_pd(), s23 = _mm_setzero_pd(), s45 = _mm_setzero_pd(), s67 = _mm_setzero_pd();
    const ub4 blocks = dim & ~3u;
    for (ub4 i = 0; i < blocks; i += 4) {
        __m128 a0 = load_row4<Int8>(rows[0], i), a1 = load_row4<Int8>(rows[1], i);
        __m128 a2 = load_row4<Int8>(rows[2], i), a3 = load_row4<Int8>(rows[3], i);
        __m128 b0 = load_row4<Int8>(rows[4], i), b1 = load_row4<Int8>(rows[5], i);
        __m128 b2 = load_row4<Int8>(rows[6], i), b3 = load_row4<Int8>(rows[7], i);
        _MM_TRANSPOSE4_PS(a0, a1, a2, a3);
        _MM_TRANSPOSE4_PS(b0, b1, b2, b3);
        const __m128 qv = _mm_loadu_ps(q + i);
        const __m128 q0 = _mm_shuffle_ps(qv, qv, 0x00), q1 = _mm_shuffle_ps(qv, qv, 0x55);
        const __m128 q2 = _mm_shuffle_ps(qv, qv, 0xaa), q3 = _mm_shuffle_ps(qv, qv, 0xff);
        add_step(a0, q0, s01, s23);
        add_step(b0, q0, s45, s67);
        add_step(a1, q1, s01, s23);
        add_step(b1, q1, s45, s67);
        add_step(a2, q2, s01, s23);
        add_step(b2, q2, s45, s67);
        add_step(a3, q3, s01, s23);
        add_step(b3, q3, s45, s67);
    }
    alignas(16) double s[kEuclidRows];
    _mm_store_pd(s, s01);
    _mm_store_pd(s + 2, s23);
    _mm_store_pd(s + 4, s45);
    _mm_store_pd(s + 6, s67);
    for (ub4 i = blocks; i < dim; ++i)
        for (ub4 j = 0; j < kEuclidRows; ++j) {
            const float d = load_row1<Int8>(rows[j], i) - q[i];
            s[j] += static_cast<double>(d * d);
        }
    for (ub4 j = 0; j < kEuclidRows; ++j) out[j] = s[j];
}

}  // namespace vorn::vec
