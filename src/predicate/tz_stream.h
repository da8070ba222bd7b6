// tz_stream.h - the second key of a _tz column: a small number per row in a
// stream of its own at data2, 1, 2 or 4 bits per row in big-endian bit order
// (row 0 in the top bits of byte 0).
//
// In a block the rows' fields are brought to one byte per row: a shuffle
// repeats the stream byte that holds a row into the row's byte, and an AND
// keeps the row's field where it lies, shifted left by s.  Nothing shifts it
// back: the literal is shifted by the same s in each byte, as the packed
// dictionary compares do.  A literal above the largest field value becomes
// (largest << s) + 1, which is above every field and equal to none, so the
// shifted compare keeps the unsigned meaning for any ub1 literal.
#pragma once

#include "predicate/lanes.h"

namespace vorn {

template <ub4 Bits>
struct TzStream {
    static_assert(Bits == 1 || Bits == 2 || Bits == 4);
    static constexpr ub4 kMax = (1u << Bits) - 1;
    static constexpr ub4 kGroupBytes = 16 * Bits / 8;  // stream bytes of 16 rows
    static constexpr ub4 kGroups = 8 / kGroupBytes;    // groups of 16 rows in 8 stream bytes

    // Where row r's field ends within its byte.
    static constexpr ub4 shift(ub8 r) { return 8 - Bits - static_cast<ub4>((r * Bits) & 7); }

    // The field of one row, for the scalar tail and the selective path.
    static VORN_INLINE ub1 read(const ub1 *tz, ub8 row) {
        return static_cast<ub1>((tz[(row * Bits) >> 3] >> shift(row)) & kMax);
    }

    // Byte r of group g takes the stream byte that holds row 16 * g + r.
    static constexpr lanes::Shuffle group_shuffle(ub4 g) {
        lanes::Shuffle s{};
        for (ub4 r = 0; r < 16; ++r) s[r] = static_cast<ub1>(g * kGroupBytes + ((r * Bits) >> 3));
        return s;
    }
    static constexpr lanes::Shuffle field_mask() {
        lanes::Shuffle s{};
        for (ub4 r = 0; r < 16; ++r) s[r] = static_cast<ub1>(kMax << shift(r));
        return s;
    }
    static constexpr std::array<lanes::Shuffle, kGroups> group_shuffles() {
        std::array<lanes::Shuffle, kGroups> a{};
        for (ub4 g = 0; g < kGroups; ++g) a[g] = group_shuffle(g);
        return a;
    }
    static constexpr std::array<lanes::Shuffle, kGroups> kShuffles = group_shuffles();
    static constexpr lanes::Shuffle kFieldMask = field_mask();

    // The literal u in each row's field position, sign-flipped for the lane
    // compares.
    static VORN_INLINE lanes::V lane_literal(ub1 u) {
        alignas(16) ub1 l[16];
        for (ub4 r = 0; r < 16; ++r) {
            const ub4 s = shift(r);
            const ub4 shifted = u <= kMax ? ub4{u} << s : (kMax << s) + 1;
            l[r] = static_cast<ub1>(shifted + 0x80);
        }
        return _mm_load_si128(reinterpret_cast<const lanes::V *>(l));
    }

    // The fields of group g of a block whose 8 stream bytes are in `bytes`,
    // in field position and sign-flipped.
    static VORN_INLINE lanes::V group_fields(lanes::V bytes, ub4 g) {
        const lanes::V f = _mm_and_si128(_mm_shuffle_epi8(bytes, lanes::control(kShuffles[g])),
                                         lanes::control(kFieldMask));
        return _mm_add_epi8(f, _mm_set1_epi8(static_cast<char>(0x80)));
    }
};

}  // namespace vorn
