// dynp_lanes.h - compares of 16-byte vectors of 2-, 4- or 8-byte lanes and
// the gathering of their masks into one bit per lane, in lane order.
//
// SSE has only signed lane compares, so the order of unsigned values is
// taken after flipping each lane's sign bit on both sides.
#pragma once

#include <nmmintrin.h>

#include <type_traits>

#include "frame/base.h"

namespace vorn::dynp {

template <ub4 Bytes>
struct Lanes;

template <>
struct Lanes<2> {
    using Value = ub2;
    using Bits = ub4;  // four vectors of 8 lanes
    static VORN_INLINE __m128i set1(ub8 v) { return _mm_set1_epi16(static_cast<short>(v)); }
    static VORN_INLINE __m128i sign() { return _mm_set1_epi16(static_cast<short>(0x8000)); }
    static VORN_INLINE __m128i eq(__m128i a, __m128i b) { return _mm_cmpeq_epi16(a, b); }
    static VORN_INLINE __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi16(a, b); }
    static VORN_INLINE Bits gather(__m128i m0, __m128i m1, __m128i m2, __m128i m3) {
        const ub4 lo = static_cast<ub4>(_mm_movemask_epi8(_mm_packs_epi16(m0, m1)));
        const ub4 hi = static_cast<ub4>(_mm_movemask_epi8(_mm_packs_epi16(m2, m3)));
        return lo | hi << 16;
    }
};

template <>
struct Lanes<4> {
    using Value = ub4;
    using Bits = ub2;  // four vectors of 4 lanes
    static VORN_INLINE __m128i set1(ub8 v) { return _mm_set1_epi32(static_cast<int>(v)); }
    static VORN_INLINE __m128i sign() { return _mm_set1_epi32(static_cast<int>(0x80000000u)); }
    static VORN_INLINE __m128i eq(__m128i a, __m128i b) { return _mm_cmpeq_epi32(a, b); }
    static VORN_INLINE __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi32(a, b); }
    static VORN_INLINE Bits gather(__m128i m0, __m128i m1, __m128i m2, __m128i m3) {
        const __m128i words = _mm_packs_epi16(_mm_packs_epi32(m0, m1), _mm_packs_epi32(m2, m3));
        return static_cast<Bits>(_mm_movemask_epi8(words));
    }
};

template <>
struct Lanes<8> {
    using Value = ub8;
    using Bits = ub1;  // four vectors of 2 lanes
    static VORN_INLINE __m128i set1(ub8 v) { return _mm_set1_epi64x(static_cast<long long>(v)); }
    static VORN_INLINE __m128i sign() { return _mm_set1_epi64x(static_cast<long long>(0x8000000000000000ull)); }
    static VORN_INLINE __m128i eq(__m128i a, __m128i b) { return _mm_cmpeq_epi64(a, b); }
    static VORN_INLINE __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi64(a, b); }
    // A lane mask is all ones or all zeros, so the low half of each lane
    // stands for it: two shuffles pick the low halves, two sign gathers.
    static VORN_INLINE Bits gather(__m128i m0, __m128i m1, __m128i m2, __m128i m3) {
        const __m128 lo = _mm_shuffle_ps(_mm_castsi128_ps(m0), _mm_castsi128_ps(m1), _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 hi = _mm_shuffle_ps(_mm_castsi128_ps(m2), _mm_castsi128_ps(m3), _MM_SHUFFLE(2, 0, 2, 0));
        return static_cast<Bits>(_mm_movemask_ps(lo) | _mm_movemask_ps(hi) << 4);
    }
};

}  // namespace vorn::dynp
