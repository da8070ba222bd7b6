// arith_lanes.h - reading and writing a block of elements of one form, four
// floats or two doubles a register for the order-preserving forms, so that
// the arithmetic blocks decode and encode their C operands without an
// element loop the compiler cannot vectorise.
//
// Decode (per lane, after the byte swap): a set top bit is cleared, a clear
// one complements the word.  Encode (per lane): negative zero becomes
// positive zero, then a negative word is complemented and a positive one
// gets the top bit, then the byte swap.  The block encoder never sees a
// NaN: a block with an infinite or NaN result is redone element by element.
#pragma once

#include <smmintrin.h>

#include "vector/elem_forms.h"

namespace vorn::vec {

inline const __m128i kSwap32 = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
inline const __m128i kSwap64 = _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);

// XOR of a decoded lane: the sign alone where the top bit is set, all ones
// where it is clear; top: the lanes' top-bit masks.
VORN_INLINE __m128i decode_xor(__m128i top, __m128i sign) {
    return _mm_or_si128(_mm_xor_si128(top, _mm_set1_epi32(-1)), sign);
}

VORN_INLINE __m128 decode_c32(const ub1 *p) {
    const __m128i sign = _mm_set1_epi32(static_cast<int>(0x80000000u));
    const __m128i v = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)), kSwap32);
    return _mm_castsi128_ps(_mm_xor_si128(v, decode_xor(_mm_srai_epi32(v, 31), sign)));
}
VORN_INLINE __m128d decode_c64(const ub1 *p) {
    const __m128i sign = _mm_set1_epi64x(static_cast<long long>(0x8000000000000000ull));
    const __m128i v = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)), kSwap64);
    return _mm_castsi128_pd(_mm_xor_si128(v, decode_xor(_mm_cmpgt_epi64(_mm_setzero_si128(), v), sign)));
}

VORN_INLINE void encode_c32(ub1 *p, __m128 x) {
    const __m128i sign = _mm_set1_epi32(static_cast<int>(0x80000000u));
    __m128i v = _mm_castps_si128(x);
    v = _mm_andnot_si128(_mm_cmpeq_epi32(v, sign), v);
    v = _mm_xor_si128(v, _mm_or_si128(_mm_srai_epi32(v, 31), sign));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm_shuffle_epi8(v, kSwap32));
}
VORN_INLINE void encode_c64(ub1 *p, __m128d x) {
    const __m128i sign = _mm_set1_epi64x(static_cast<long long>(0x8000000000000000ull));
    __m128i v = _mm_castpd_si128(x);
    v = _mm_andnot_si128(_mm_cmpeq_epi64(v, sign), v);
    v = _mm_xor_si128(v, _mm_or_si128(_mm_cmpgt_epi64(_mm_setzero_si128(), v), sign));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), _mm_shuffle_epi8(v, kSwap64));
}

// Elements at..at+N-1 of an array in form F, read as W (N a multiple of 4).
template <Form F, ub4 N, class W>
VORN_INLINE void read_block(const void *p, ub8 at, W *out) {
    const ub1 *b = static_cast<const ub1 *>(p) + at * elem_bytes(F);
    if constexpr (F == Form::CFloat) {
        alignas(16) float f[N];
        for (ub4 j = 0; j < N; j += 4) _mm_store_ps(f + j, decode_c32(b + 4 * j));
        for (ub4 j = 0; j < N; ++j) out[j] = static_cast<W>(f[j]);
    } else if constexpr (F == Form::CDouble) {
        static_assert(std::is_same_v<W, double>, "a double operand works in double");
        for (ub4 j = 0; j < N; j += 2) _mm_storeu_pd(out + j, decode_c64(b + 8 * j));
    } else {
        for (ub4 j = 0; j < N; ++j) out[j] = static_cast<W>(read_elem<F>(p, at + j));
    }
}

// Writes N values of the result's element type at at..at+N-1 in form R.
template <Form R, ub4 N>
VORN_INLINE void write_block(void *p, ub8 at, const elem_t<R> *v) {
    ub1 *b = static_cast<ub1 *>(p) + at * elem_bytes(R);
    if constexpr (R == Form::CFloat) {
        for (ub4 j = 0; j < N; j += 4) encode_c32(b + 4 * j, _mm_loadu_ps(v + j));
    } else if constexpr (R == Form::CDouble) {
        for (ub4 j = 0; j < N; j += 2) encode_c64(b + 8 * j, _mm_loadu_pd(v + j));
    } else {
        for (ub4 j = 0; j < N; ++j) write_elem<R>(p, at + j, v[j]);
    }
}

}  // namespace vorn::vec
