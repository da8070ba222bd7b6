// dbv_lanes.h - four elements of a dense body as four float lanes, for the
// pairs whose working precision is float.  Each load gives exactly what the
// scalar element load gives lane by lane: the order-preserving form is
// decoded, float16 goes through the same subnormal construction, int8 and
// bfloat16 convert exactly.
#pragma once

#include <smmintrin.h>

#include "vector/value_format.h"

namespace vorn::vec {

// Decodes four 32-bit order-preserving words: swap the bytes; a set top bit
// is dropped, a clear one complements the word.
VORN_INLINE __m128i order_decode_lanes32(__m128i stored) {
    const __m128i swap = _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
    const __m128i t = _mm_shuffle_epi8(stored, swap);
    const __m128i flip = _mm_or_si128(_mm_xor_si128(_mm_srai_epi32(t, 31), _mm_set1_epi32(-1)),
                                      _mm_set1_epi32(int(0x80000000u)));
    return _mm_xor_si128(t, flip);
}

// The same for 16-bit words, eight lanes.
VORN_INLINE __m128i order_decode_lanes16(__m128i stored) {
    const __m128i swap = _mm_set_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
    const __m128i t = _mm_shuffle_epi8(stored, swap);
    const __m128i flip = _mm_or_si128(_mm_xor_si128(_mm_srai_epi16(t, 15), _mm_set1_epi16(-1)),
                                      _mm_set1_epi16(short(0x8000)));
    return _mm_xor_si128(t, flip);
}

// float16 patterns in the low halves of four 32-bit lanes -> floats.
VORN_INLINE __m128 f16_lanes_to_f32(__m128i h) {
    const __m128i sign = _mm_slli_epi32(_mm_and_si128(h, _mm_set1_epi32(0x8000)), 16);
    const __m128i exp = _mm_and_si128(_mm_srli_epi32(h, 10), _mm_set1_epi32(0x1F));
    const __m128i mant = _mm_and_si128(h, _mm_set1_epi32(0x3FF));
    const __m128i normal = _mm_or_si128(_mm_slli_epi32(_mm_add_epi32(exp, _mm_set1_epi32(112)), 23),
                                        _mm_slli_epi32(mant, 13));
    const __m128 sub = _mm_sub_ps(_mm_castsi128_ps(_mm_or_si128(mant, _mm_set1_epi32(0x3F000000))),
                                  _mm_set1_ps(0.5f));
    const __m128i is_nan = _mm_andnot_si128(_mm_cmpeq_epi32(mant, _mm_setzero_si128()),
                                            _mm_set1_epi32(0x00400000));
    const __m128i special = _mm_or_si128(_mm_or_si128(_mm_set1_epi32(0x7F800000), _mm_slli_epi32(mant, 13)),
                                         is_nan);
    __m128 v = _mm_castsi128_ps(normal);
    v = _mm_blendv_ps(v, sub, _mm_castsi128_ps(_mm_cmpeq_epi32(exp, _mm_setzero_si128())));
    v = _mm_blendv_ps(v, _mm_castsi128_ps(special),
                      _mm_castsi128_ps(_mm_cmpeq_epi32(exp, _mm_set1_epi32(31))));
    return _mm_or_ps(v, _mm_castsi128_ps(sign));
}

// Lanes<B, C>::load4(body, i): elements i to i + 3 as floats.
template <Base B, bool C>
struct Lanes;

template <bool C>
struct Lanes<Base::f32, C> {
    static VORN_INLINE __m128 load4(const void *p, ub8 i) {
        const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i *>(static_cast<const ub1 *>(p) + 4 * i));
        return _mm_castsi128_ps(C ? order_decode_lanes32(w) : w);
    }
};

template <bool C>
struct Lanes<Base::i8, C> {
    static VORN_INLINE __m128 load4(const void *p, ub8 i) {
        const __m128i w = _mm_cvtsi32_si128(vorn::load<int>(static_cast<const ub1 *>(p) + i));
        return _mm_cvtepi32_ps(_mm_cvtepi8_epi32(w));
    }
};

template <bool C>
struct Lanes<Base::bf16, C> {
    static VORN_INLINE __m128 load4(const void *p, ub8 i) {
        __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(static_cast<const ub1 *>(p) + 2 * i));
        if constexpr (C) w = order_decode_lanes16(w);
        return _mm_castsi128_ps(_mm_unpacklo_epi16(_mm_setzero_si128(), w));
    }
};

template <bool C>
struct Lanes<Base::f16, C> {
    static VORN_INLINE __m128 load4(const void *p, ub8 i) {
        __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(static_cast<const ub1 *>(p) + 2 * i));
        if constexpr (C) w = order_decode_lanes16(w);
        return f16_lanes_to_f32(_mm_cvtepu16_epi32(w));
    }
};

}  // namespace vorn::vec
