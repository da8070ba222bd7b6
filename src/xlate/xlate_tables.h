// xlate_tables.h - the 16-byte constants of the translation block, each
// computed from its rule: the byte swap of four big-endian codes, the bit
// weights that turn lane masks into row bits and back, and the byte spread
// that hands each byte of a 16-row mask to its eight lanes.
#pragma once

#include <nmmintrin.h>

#include "frame/base.h"

namespace vorn::xlate {

struct alignas(16) Lanes16 {
    ub1 b[16] = {};
    constexpr ub8 qword(ub4 half) const {
        ub8 q = 0;
        for (ub4 i = 0; i < 8; ++i) q |= ub8{b[half * 8 + i]} << (8 * i);
        return q;
    }
    VORN_INLINE __m128i vec() const { return _mm_load_si128(reinterpret_cast<const __m128i *>(b)); }
};

// Byte j of 32-bit lane i takes byte 3 - j of the same lane: the four codes
// of a load come out in native order.
constexpr Lanes16 swap32_shuffle() {
    Lanes16 t;
    for (ub4 i = 0; i < 16; ++i) t.b[i] = static_cast<ub1>((i & ~3u) + 3 - (i & 3));
    return t;
}
inline constexpr Lanes16 kSwap32 = swap32_shuffle();
static_assert(kSwap32.qword(0) == 0x0405060700010203ull && kSwap32.qword(1) == 0x0c0d0e0f08090a0bull,
              "the byte swap of four big-endian ub4");

// Byte lane i weighs 1 << (i % 8): bit i % 8 of the byte of rows i & 8 to
// (i & 8) + 7.  Also the table that pshufb reads for "the bit at position s"
// of a bit-table byte, s in 0..7.
constexpr Lanes16 byte_weights() {
    Lanes16 t;
    for (ub4 i = 0; i < 16; ++i) t.b[i] = static_cast<ub1>(1u << (i % 8));
    return t;
}
inline constexpr Lanes16 kByteWeights = byte_weights();

// Byte lane i takes byte i / 8 of the mask: rows 0..7 from the low byte,
// rows 8..15 from the high one.
constexpr Lanes16 byte_spread() {
    Lanes16 t;
    for (ub4 i = 0; i < 16; ++i) t.b[i] = static_cast<ub1>(i / 8);
    return t;
}
inline constexpr Lanes16 kByteSpread = byte_spread();

// Weights of 16-bit lanes (1 << i, eight lanes) and of 32-bit lanes (1 << i,
// four lanes), little-endian bytes.
template <ub4 LaneBytes>
constexpr Lanes16 lane_weights() {
    Lanes16 t;
    for (ub4 lane = 0; lane < 16 / LaneBytes; ++lane) {
        const ub4 w = 1u << lane;
        for (ub4 k = 0; k < LaneBytes; ++k) t.b[lane * LaneBytes + k] = static_cast<ub1>(w >> (8 * k));
    }
    return t;
}
inline constexpr Lanes16 kWordWeights = lane_weights<2>();
inline constexpr Lanes16 kDwordWeights = lane_weights<4>();
static_assert(kWordWeights.qword(1) == 0x0080004000200010ull && kDwordWeights.qword(1) == 0x0000000800000004ull);

}  // namespace vorn::xlate
