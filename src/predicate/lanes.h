// lanes.h - 128-bit lane operations of the whole-byte compares, by lane size
// (1, 2, 4 or 8 bytes), and the byte shuffles that bring stored big-endian
// elements into lanes.
//
// The processor has only signed lane compares, so an unsigned order is taken
// by adding the lane's sign bit to both sides first (the same as an XOR).  A
// mask of all-ones or all-zero lanes is narrowed to one byte per row by
// saturating packs, which keep -1 and 0 as they are, and the bytes' sign bits
// come out by movemask, one bit per row in row order.
#pragma once

#include <nmmintrin.h>

#include <array>
#include <type_traits>
#include <utility>

#include "frame/base.h"

namespace vorn::lanes {

using V = __m128i;

template <ub4 LaneBytes>
struct Lane;

template <>
struct Lane<1> {
    using T = ub1;
    static VORN_INLINE V eq(V a, V b) { return _mm_cmpeq_epi8(a, b); }
    static VORN_INLINE V gt(V a, V b) { return _mm_cmpgt_epi8(a, b); }
    static VORN_INLINE V add(V a, V b) { return _mm_add_epi8(a, b); }
    static VORN_INLINE V splat(T v) { return _mm_set1_epi8(static_cast<char>(v)); }
    // The lane's top bit in every lane.
    static VORN_INLINE V sign() { return _mm_set1_epi8(static_cast<char>(0x80)); }
};

template <>
struct Lane<2> {
    using T = ub2;
    static VORN_INLINE V eq(V a, V b) { return _mm_cmpeq_epi16(a, b); }
    static VORN_INLINE V gt(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static VORN_INLINE V add(V a, V b) { return _mm_add_epi16(a, b); }
    static VORN_INLINE V splat(T v) { return _mm_set1_epi16(static_cast<short>(v)); }
    static VORN_INLINE V sign() { return _mm_set1_epi16(static_cast<short>(0x8000)); }
};

template <>
struct Lane<4> {
    using T = ub4;
    static VORN_INLINE V eq(V a, V b) { return _mm_cmpeq_epi32(a, b); }
    static VORN_INLINE V gt(V a, V b) { return _mm_cmpgt_epi32(a, b); }
    static VORN_INLINE V add(V a, V b) { return _mm_add_epi32(a, b); }
    static VORN_INLINE V splat(T v) { return _mm_set1_epi32(static_cast<int>(v)); }
    static VORN_INLINE V sign() { return _mm_set1_epi32(static_cast<int>(0x80000000u)); }
};

template <>
struct Lane<8> {
    using T = ub8;
    static VORN_INLINE V eq(V a, V b) { return _mm_cmpeq_epi64(a, b); }
    static VORN_INLINE V gt(V a, V b) { return _mm_cmpgt_epi64(a, b); }
    static VORN_INLINE V add(V a, V b) { return _mm_add_epi64(a, b); }
    static VORN_INLINE V splat(T v) { return _mm_set1_epi64x(static_cast<long long>(v)); }
    static VORN_INLINE V sign() { return _mm_set1_epi64x(static_cast<long long>(0x8000000000000000ull)); }
};

// The top bit of a lane: added to both sides it turns the unsigned order
// into the signed order of the lane compares.
template <class T>
inline constexpr T kSignBit = static_cast<T>(T{1} << (8 * sizeof(T) - 1));

// A shuffle control as 16 bytes.
using Shuffle = std::array<ub1, 16>;

// Lane j receives the element of `elem` bytes that starts at byte
// skip + j * elem of the loaded vector, big-endian in memory, as a native
// number aligned to the lane's top: element byte k goes to lane byte
// LaneBytes - 1 - k, and the lane bytes below the element get 0x80, which
// the shuffle turns into zero.  With elem equal to the lane size this is the
// byte swap of every lane.
template <ub4 LaneBytes>
constexpr Shuffle element_shuffle(ub4 elem, ub4 skip) {
    Shuffle s{};
    for (ub4 j = 0; j < 16 / LaneBytes; ++j)
        for (ub4 k = 0; k < LaneBytes; ++k)
            s[j * LaneBytes + LaneBytes - 1 - k] = k < elem ? static_cast<ub1>(skip + j * elem + k) : 0x80;
    return s;
}

VORN_INLINE V load(const void *p) { return _mm_loadu_si128(static_cast<const V *>(p)); }
VORN_INLINE V control(const Shuffle &s) { return _mm_loadu_si128(reinterpret_cast<const V *>(s.data())); }

// Narrows the lane masks of one group of 16 rows (LaneBytes vectors) to one
// byte per row, in row order.
template <ub4 LaneBytes>
VORN_INLINE V pack_rows(const V *m) {
    if constexpr (LaneBytes == 1) {
        return m[0];
    } else if constexpr (LaneBytes == 2) {
        return _mm_packs_epi16(m[0], m[1]);
    } else if constexpr (LaneBytes == 4) {
        return _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
    } else {
        // A 64-bit lane is two equal 32-bit halves: the first pack leaves two
        // equal 16-bit words per row, the second two equal bytes, the third one.
        const V a = _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
        const V b = _mm_packs_epi16(_mm_packs_epi32(m[4], m[5]), _mm_packs_epi32(m[6], m[7]));
        return _mm_packs_epi16(a, b);
    }
}

VORN_INLINE ub4 row_bits(V row_bytes) { return static_cast<ub4>(_mm_movemask_epi8(row_bytes)); }

// Calls f(std::integral_constant<ub4, i>) for i = 0 .. N-1: the loops over the
// vectors of a block, unrolled so that every position is a constant.
template <class F, ub4... I>
VORN_INLINE void unroll(F &&f, std::integer_sequence<ub4, I...>) {
    (f(std::integral_constant<ub4, I>{}), ...);
}
template <ub4 N, class F>
VORN_INLINE void unroll(F &&f) {
    unroll(f, std::make_integer_sequence<ub4, N>{});
}

// A 16-entry table lookup by each nibble of every byte: the high nibble
// indexes `high`, the low nibble `low`, and the two answers are ORed.  The
// width-1, 2 and 4 compares build a byte's rows from it.
VORN_INLINE V nibble_lookup(V v, V high, V low) {
    const V nibble = _mm_set1_epi8(0x0f);
    const V lo = _mm_and_si128(v, nibble), hi = _mm_and_si128(_mm_srli_epi16(v, 4), nibble);
    return _mm_or_si128(_mm_shuffle_epi8(high, hi), _mm_shuffle_epi8(low, lo));
}

}  // namespace vorn::lanes
