// euclid_rows.h - squared euclid of one query against eight rows at once,
// for the single-query uniform driver over float and int8 columns.
//
// A kernel call sums one row's squares strictly in element order, so its
// time is the latency of a chain of double additions.  Here each float
// row still has its own chain in element order, with the difference and
// the square taken in float as the kernel takes them, but eight rows run
// side by side, two in the lanes of each of four double accumulators.
//
// The squares are not widened by the conversion instruction: it issues to
// the same two units as the double additions and the float differences,
// which would bound the loop at 80 cycles a row of 128.  A float's bits
// shifted up by 29 in a 64-bit word are a double of the same sign and
// digits whose exponent is 896 smaller: the float's value times 2^-896,
// exactly, subnormal floats included.  An unsigned 32x32 multiply by 2^29
// makes that word from a lane's low half, on the multiply units.  The
// chains then sum scaled squares; scaling by a power of two commutes with
// every rounding of the sums (squares are multiples of 2^-149, so sums
// below 2^-126 are exact both ways), and one multiply by 2^896 at the end
// gives each row's sum bit for bit.  A square that is infinite or NaN has
// a float exponent of 255 (511 with a sign) and comes out at 2^128 or more
// instead, so a row whose result is not below 2^128 is summed again with
// each square converted: the rows of ordinary data never are.  Elements
// behind the last group of four continue each row's chain one by one.
//
// int8 rows need no chain: an int8 element is a small integer, its
// difference with the query (at most 255 in size) and that difference's
// square (at most 65025) are exact in float, and every partial sum of up to
// kEuclidMaxDim such squares is an integer below 2^31, exact in double.  No
// step rounds, so the kernel's double is the integer sum of squares,
// whatever the order it is taken in: int8 rows sum in 32-bit integer lanes,
// sixteen elements at a time (int8_sum_squares).
#pragma once

#include <pmmintrin.h>
#include <smmintrin.h>

#include <bit>

#include "frame/base.h"

namespace vorn::vec {

inline constexpr ub4 kEuclidRows = 8;
// The widest query that the driver widens on its stack for these rows.
inline constexpr ub4 kEuclidMaxDim = 2048;

// The factor that undoes the scaling of squares read as doubles, and the
// bound below which no square was infinite or NaN.
inline constexpr double kSquareScale = std::bit_cast<double>(ub8{1023 + 896} << 52);
inline constexpr double kFiniteSquares = std::bit_cast<double>(ub8{1023 + 128} << 52);

// Adds the scaled squares of two elements of rows x and y, laid out as
// [x_e x_e+1 y_e y_e+1], to s = [x's sum, y's sum]: element e from the
// lanes' low halves, then e + 1 moved down to them.
VORN_INLINE void add_scaled_squares(__m128 sq, __m128d &s) {
    const __m128i shift = _mm_set1_epi64x(ub8{1} << 29);
    const __m128i bits = _mm_castps_si128(sq), next = _mm_shuffle_epi32(bits, 0xF5);
    s = _mm_add_pd(s, _mm_castsi128_pd(_mm_mul_epu32(bits, shift)));
    s = _mm_add_pd(s, _mm_castsi128_pd(_mm_mul_epu32(next, shift)));
}

// Elements i..i+3 of rows x and y: differences with the query squared in
// float, then the two rows' pairs of elements side by side.
VORN_INLINE void add_two_float_rows(const float *x, const float *y, const float *qi, __m128d &s) {
    const __m128 q = _mm_load_ps(qi);
    __m128 dx = _mm_sub_ps(_mm_loadu_ps(x), q), dy = _mm_sub_ps(_mm_loadu_ps(y), q);
    dx = _mm_mul_ps(dx, dx);
    dy = _mm_mul_ps(dy, dy);
    add_scaled_squares(_mm_movelh_ps(dx, dy), s);
    add_scaled_squares(_mm_movehl_ps(dy, dx), s);
}

// Elements i..i+3 of the eight rows; q is aligned to 16 bytes.
VORN_INLINE void float_rows8_group(const float *q, const void *const *rows, ub4 i, __m128d *acc) {
#pragma GCC unroll 16
    for (ub4 p = 0; p < kEuclidRows / 2; ++p)
        add_two_float_rows(static_cast<const float *>(rows[2 * p]) + i,
                           static_cast<const float *>(rows[2 * p + 1]) + i, q + i, acc[p]);
}

// A walk over consecutive rows prefetches the group of eight rows
// kGroupsAhead groups on while it computes one: two lines of it at each
// step of four elements, line 0 of its eight rows first, then line 1, and
// so on, which keeps pace with the two lines a step reads from the rows at
// hand.  Spread so, the prefetches never queue up behind each other as a
// burst of a group's sixty-four lines at once does, and the search out of
// cache runs about as fast as in it; two groups ahead was slower than one,
// three or four.
inline constexpr ub4 kGroupsAhead = 4;

VORN_INLINE void prefetch_two_lines(const void *const *ahead, ub4 line, ub4 row_bytes) {
    for (ub4 k = 0; k < 2; ++k) {
        const ub4 l = line + k, offset = (l / kEuclidRows) * 64;
        if (offset < row_bytes) __builtin_prefetch(static_cast<const char *>(ahead[l % kEuclidRows]) + offset);
    }
}

// Row x's sum of squares over its first n elements, each square
// converted: the kernel's own chain, for the rows whose scaled sums met an
// infinite or NaN square.
VORN_INLINE double converted_sum(const float *x, const float *q, ub4 n) {
    double s = 0;
    for (ub4 i = 0; i < n; ++i) {
        const float d = x[i] - q[i];
        s += static_cast<double>(d * d);
    }
    return s;
}

// out[j] = sum over i of (row_j[i] - q[i])^2 over eight float rows, each
// in element order; q is the query.  q and out are aligned to 16 bytes:
// the sums are stored in pairs, so that the walk's paired reads of them
// are served from those stores.  ahead, when not null, is the group of
// rows to prefetch on the way (rows of twelve elements or more).
VORN_INLINE void euclid_rows8(const float *q, const void *const *rows, ub4 dim, double *out, const void *const *ahead) {
    __m128d acc[kEuclidRows / 2];
    for (ub4 p = 0; p < kEuclidRows / 2; ++p) acc[p] = _mm_setzero_pd();
    const ub4 blocks = dim & ~3u;
    if (blocks != 0) {
        float_rows8_group(q, rows, 0, acc);
        for (ub4 i = 4, line = 0; i < blocks; i += 4, line += 2) {
            if (ahead != nullptr) prefetch_two_lines(ahead, line, dim * 4);
            float_rows8_group(q, rows, i, acc);
        }
    }
    const __m128d scale = _mm_set1_pd(kSquareScale), finite = _mm_set1_pd(kFiniteSquares);
    ub4 redo = 0;
    for (ub4 p = 0; p < kEuclidRows / 2; ++p) {
        const __m128d sum = _mm_mul_pd(acc[p], scale);
        redo |= ub4(_mm_movemask_pd(_mm_cmpnlt_pd(sum, finite))) << (2 * p);
        _mm_store_pd(out + 2 * p, sum);
    }
    for (; redo != 0; redo &= redo - 1) {
        const ub4 j = ub4(__builtin_ctz(redo));
        out[j] = converted_sum(static_cast<const float *>(rows[j]), q, blocks);
    }
    for (ub4 i = blocks; i < dim; ++i)
        for (ub4 j = 0; j < kEuclidRows; ++j) {
            const float d = static_cast<const float *>(rows[j])[i] - q[i];
            out[j] += static_cast<double>(d * d);
        }
}

// The sum of (row[i] - q[i])^2 over an int8 row, q the query widened to
// 16 bits: differences in 16-bit lanes, pairs of squares summed by madd
// into 32-bit lanes.  dim is at most kEuclidMaxDim, so no lane overflows.
VORN_INLINE sb4 int8_sum_squares(const sb1 *row, const sb2 *q, ub4 dim) {
    __m128i lo_sum = _mm_setzero_si128(), hi_sum = _mm_setzero_si128();
    ub4 i = 0;
    for (; i + 16 <= dim; i += 16) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + i));
        const __m128i lo = _mm_sub_epi16(_mm_cvtepi8_epi16(x), _mm_loadu_si128(reinterpret_cast<const __m128i *>(q + i)));
        const __m128i hi = _mm_sub_epi16(_mm_cvtepi8_epi16(_mm_unpackhi_epi64(x, x)),
                                         _mm_loadu_si128(reinterpret_cast<const __m128i *>(q + i + 8)));
        lo_sum = _mm_add_epi32(lo_sum, _mm_madd_epi16(lo, lo));
        hi_sum = _mm_add_epi32(hi_sum, _mm_madd_epi16(hi, hi));
    }
    if (i + 8 <= dim) {
        const __m128i x = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(row + i));
        const __m128i lo = _mm_sub_epi16(_mm_cvtepi8_epi16(x), _mm_loadu_si128(reinterpret_cast<const __m128i *>(q + i)));
        lo_sum = _mm_add_epi32(lo_sum, _mm_madd_epi16(lo, lo));
        i += 8;
    }
    __m128i t = _mm_add_epi32(lo_sum, hi_sum);
    t = _mm_add_epi32(t, _mm_shuffle_epi32(t, 0x4E));
    t = _mm_add_epi32(t, _mm_shuffle_epi32(t, 0xB1));
    sb4 s = _mm_cvtsi128_si32(t);
    for (; i < dim; ++i) {
        const sb4 d = sb4{row[i]} - sb4{q[i]};
        s += d * d;
    }
    return s;
}

// out[j] = the squared euclid of eight int8 rows against q (widened).
VORN_INLINE void int8_euclid_rows8(const sb2 *q, const void *const *rows, ub4 dim, double *out) {
    for (ub4 j = 0; j < kEuclidRows; ++j)
        out[j] = static_cast<double>(int8_sum_squares(static_cast<const sb1 *>(rows[j]), q, dim));
}

}  // namespace vorn::vec
