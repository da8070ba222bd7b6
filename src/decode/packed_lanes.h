// packed_lanes.h - codes of a packed stream brought into vector lanes, for
// the kernels that take whole blocks of rows at once (decode with unpack,
// min/max).
//
// A group of codes starts on a byte boundary (or, for odd widths in 32-bit
// lanes, every second group four bits in).  One unaligned 16-byte load at
// the group's byte holds all of its codes; one byte shuffle moves the bytes
// of each code into its lane, big-endian, at the low end of the lane; a
// multiply by a power of two per lane lifts the code's first bit to the top
// of the lane and drops the bits of the code before it; a common right shift
// by (lane bits - w) drops the bits of the code after it.  No AND is needed:
// the multiply keeps only the low lane bits.
//
// Codes of a width that never straddle more than two bytes (1 to 10, 12, 16)
// take 16-bit lanes, eight codes a vector; the others take 32-bit lanes,
// four codes a vector, with the 32-bit multiply of SSE4.1.  Widths 8, 16, 24
// and 32 lie on whole bytes: the shuffle alone places them.
//
// All tables are computed here by the compiler from that rule.
#pragma once

#include <nmmintrin.h>

#include <array>
#include <utility>

#include "frame/base.h"

namespace vorn::lanes {

// Calls f(std::integral_constant<ub4, i>) for i = 0..N-1, unrolled, so that
// table rows and offsets are compile-time constants in the body.
template <ub4 N, class F>
VORN_INLINE void static_for(F &&f) {
    [&]<ub4... I>(std::integer_sequence<ub4, I...>) {
        (f(std::integral_constant<ub4, I>{}), ...);
    }(std::make_integer_sequence<ub4, N>{});
}

constexpr ub4 gcd(ub4 a, ub4 b) { return b == 0 ? a : gcd(b, a % b); }
constexpr ub4 lcm(ub4 a, ub4 b) { return a / gcd(a, b) * b; }

// Whether every code of width w, in a byte-aligned group of eight, lies
// within two bytes.
constexpr bool fits_two_bytes(ub4 w) {
    for (ub4 k = 0; k < 8; ++k)
        if ((k * w) % 8 + w > 16) return false;
    return true;
}

template <ub4 W>
struct Layout {
    static_assert(W >= 1 && W <= 32 && (W <= 25 || W == 32));
    static constexpr ub4 kLaneBits = fits_two_bytes(W) ? 16 : 32;
    static constexpr ub4 kLanes = 128 / kLaneBits;  // codes per vector
    static constexpr bool kExact = W % 8 == 0;      // the shuffle alone places a code
    // Groups whose codes start at the same bit offsets share a pattern: all
    // groups do, unless a group of four odd-width codes ends mid-byte.
    static constexpr ub4 kPatterns = (kLanes * W) % 8 == 0 ? 1 : 2;

    // Byte offset of group g from the block's first byte.
    static constexpr ub4 group_byte(ub4 g) { return g * kLanes * W / 8; }

    struct Pattern {
        alignas(16) std::array<ub1, 16> shuffle{};
        alignas(16) std::array<ub4, 4> mult32{};  // 32-bit lanes
        alignas(16) std::array<ub2, 8> mult16{};  // 16-bit lanes
    };

    static constexpr Pattern make_pattern(ub4 pattern) {
        Pattern p{};
        const ub4 lane_bytes = kLaneBits / 8;
        const ub4 first_bit = pattern * ((kLanes * W) % 8);  // 0, or 4 for the odd groups
        for (ub4 k = 0; k < kLanes; ++k) {
            const ub4 s = first_bit + k * W, byte = s / 8, b = s % 8;
            const ub4 need = (b + W + 7) / 8;  // bytes the code touches
            for (ub4 i = 0; i < lane_bytes; ++i) p.shuffle[k * lane_bytes + i] = 0x80;
            // Big-endian at the low end of the lane: the code's first byte
            // is the lane's byte need - 1.
            for (ub4 i = 0; i < need; ++i)
                p.shuffle[k * lane_bytes + (need - 1 - i)] = static_cast<ub1>(byte + i);
            const ub4 lift = kLaneBits - 8 * need + b;
            if (kLaneBits == 16)
                p.mult16[k] = static_cast<ub2>(1u << lift);
            else
                p.mult32[k] = 1u << lift;
        }
        return p;
    }

    static constexpr std::array<Pattern, kPatterns> kPattern = [] {
        std::array<Pattern, kPatterns> a{};
        for (ub4 i = 0; i < kPatterns; ++i) a[i] = make_pattern(i);
        return a;
    }();

    // The codes of group G (compile-time) of the block at `block`, one a lane.
    template <ub4 G>
    static VORN_INLINE __m128i extract(const ub1 *block) {
        const Pattern &p = kPattern[G % kPatterns];
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block + group_byte(G)));
        __m128i v = _mm_shuffle_epi8(x, _mm_load_si128(reinterpret_cast<const __m128i *>(p.shuffle.data())));
        if constexpr (!kExact) {
            if constexpr (kLaneBits == 16)
                v = _mm_srli_epi16(
                    _mm_mullo_epi16(v, _mm_load_si128(reinterpret_cast<const __m128i *>(p.mult16.data()))),
                    16 - W);
            else
                v = _mm_srli_epi32(
                    _mm_mullo_epi32(v, _mm_load_si128(reinterpret_cast<const __m128i *>(p.mult32.data()))),
                    32 - W);
        }
        return v;
    }

    // A block of R rows reads up to this many bytes from its first byte.
    template <ub4 R>
    static constexpr ub4 kReadBytes = group_byte(R / kLanes - 1) + 16;

    // A block of R rows that starts at row r may be taken only if
    // r + kSpanRows<R> <= rows of the stream: its loads then stay within the
    // stream and the three readable bytes behind it, the bytes the reference
    // read may touch as well.
    template <ub4 R>
    static constexpr ub4 kSpanRows = [] {
        const ub4 bits = (kReadBytes<R> - 3) * 8;
        const ub4 rows = (bits + W - 1) / W;
        return rows > R ? rows : R;
    }();

    // Rows are taken one at a time up to a multiple of this, where both a
    // row's bit position and a bit vector's byte are byte-aligned.
    static constexpr ub4 kAlignRows = lcm(W, 8);
};

// The 32-bit lanes of a 16-bit lane vector: lanes 0-3 and 4-7, zero-extended.
VORN_INLINE __m128i widen_low(__m128i v) { return _mm_cvtepu16_epi32(v); }
VORN_INLINE __m128i widen_high(__m128i v) { return _mm_unpackhi_epi16(v, _mm_setzero_si128()); }

VORN_INLINE ub8 round_up(ub8 v, ub4 m) { return (v + m - 1) / m * m; }

}  // namespace vorn::lanes
