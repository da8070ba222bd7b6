// dynp_tables.h - the geometry of a dynamic-prefix column and the tables that
// expand one selector byte's rows in a single shuffle.
//
// A dynamic-prefix column keeps each value of at most Bytes bytes (2, 4, 8)
// without its trailing zero bytes.  The values stand end to end at `data`;
// the selector stream at `data2` gives each row's stored length minus one,
// in 1, 2 or 4 bits, the first row of a selector byte in its top bits.
//
// For each selector byte s the tables give
//   vorn_length_consumed_dynp_maxwidth<B>[s]  the bytes its rows take together;
//   vorn_shuffle_masks_dynp_maxwidth<B>[s]    a shuffle control that turns the
//       16 bytes at the group's start into the group's rows as lanes of B
//       bytes, left-aligned (first stored byte in the lane's top byte, 0x80
//       - a zero - in the lane's bytes behind the stored ones);
//   kSelectorLanes<B>[s]                      each row's selector in its lane,
//       the second key of the _tz kernels.
// A 64-bit selector nibble above 7 is not a valid length: a selector byte
// holding one gets an all-0x80 shuffle row, so both its rows read as zero,
// while the consumed length still counts the nibble as it stands.
//
// The shuffle tables have 288 rows: the 256 that a selector byte indexes and
// 32 rows of 0x80 behind them, never indexed.
#pragma once

#include <array>

#include "frame/base.h"

namespace vorn::dynp {

template <ub4 Bytes>
struct Geometry {
    static_assert(Bytes == 2 || Bytes == 4 || Bytes == 8, "maximum widths are 16, 32 and 64 bits");
    static constexpr ub4 kSelectorBits = Bytes == 2 ? 1 : Bytes == 4 ? 2 : 4;
    static constexpr ub4 kRowsPerSelector = 8 / kSelectorBits;
    static constexpr ub4 kSelectorMask = (1u << kSelectorBits) - 1;
    // A selector byte's rows fill one 16-byte vector of lanes.
    static_assert(kRowsPerSelector * Bytes == 16);

    // The selector of row j (0 is the first) of selector byte s.
    static constexpr ub4 selector(ub4 s, ub4 j) {
        return (s >> ((kRowsPerSelector - 1 - j) * kSelectorBits)) & kSelectorMask;
    }
    // The selector of row `row` of the stream.
    static VORN_INLINE ub4 selector_of(const ub1 *selectors, ub8 row) {
        return selector(selectors[row / kRowsPerSelector], static_cast<ub4>(row % kRowsPerSelector));
    }
    // A selector byte whose rows can all be read from its 16-byte load.
    static constexpr bool valid(ub4 s) {
        for (ub4 j = 0; j < kRowsPerSelector; ++j)
            if (selector(s, j) + 1 > Bytes) return false;
        return true;
    }
};

inline constexpr ub4 kShuffleRows = 288;
inline constexpr ub1 kZeroByte = 0x80;  // a shuffle control byte that writes zero

using Row16 = std::array<ub1, 16>;
using LengthTable = std::array<ub1, 256>;
using ShuffleTable = std::array<Row16, kShuffleRows>;
using LaneTable = std::array<Row16, 256>;

template <ub4 Bytes>
constexpr LengthTable build_lengths() {
    using G = Geometry<Bytes>;
    LengthTable t{};
    for (ub4 s = 0; s < 256; ++s) {
        ub4 total = 0;
        for (ub4 j = 0; j < G::kRowsPerSelector; ++j) total += G::selector(s, j) + 1;
        t[s] = static_cast<ub1>(total);
    }
    return t;
}

template <ub4 Bytes>
constexpr ShuffleTable build_shuffles() {
    using G = Geometry<Bytes>;
    ShuffleTable t{};
    for (auto &row : t)
        for (auto &b : row) b = kZeroByte;
    for (ub4 s = 0; s < 256; ++s) {
        if (!G::valid(s)) continue;
        ub4 offset = 0;
        for (ub4 j = 0; j < G::kRowsPerSelector; ++j) {
            const ub4 stored = G::selector(s, j) + 1;
            // Stored byte k is the k-th most significant: lane byte Bytes-1-k.
            for (ub4 k = 0; k < stored; ++k) t[s][j * Bytes + (Bytes - 1 - k)] = static_cast<ub1>(offset + k);
            offset += stored;
        }
    }
    return t;
}

template <ub4 Bytes>
constexpr LaneTable build_selector_lanes() {
    using G = Geometry<Bytes>;
    LaneTable t{};
    for (ub4 s = 0; s < 256; ++s)
        for (ub4 j = 0; j < G::kRowsPerSelector; ++j) t[s][j * Bytes] = static_cast<ub1>(G::selector(s, j));
    return t;
}

alignas(16) inline constexpr LaneTable kSelectorLanes2 = build_selector_lanes<2>();
alignas(16) inline constexpr LaneTable kSelectorLanes4 = build_selector_lanes<4>();
alignas(16) inline constexpr LaneTable kSelectorLanes8 = build_selector_lanes<8>();

}  // namespace vorn::dynp

extern "C" {
VORN_INTERNAL extern const vorn::dynp::LengthTable vorn_length_consumed_dynp_maxwidth2;
VORN_INTERNAL extern const vorn::dynp::LengthTable vorn_length_consumed_dynp_maxwidth4;
VORN_INTERNAL extern const vorn::dynp::LengthTable vorn_length_consumed_dynp_maxwidth8;
alignas(16) VORN_INTERNAL extern const vorn::dynp::ShuffleTable vorn_shuffle_masks_dynp_maxwidth2;
alignas(16) VORN_INTERNAL extern const vorn::dynp::ShuffleTable vorn_shuffle_masks_dynp_maxwidth4;
alignas(16) VORN_INTERNAL extern const vorn::dynp::ShuffleTable vorn_shuffle_masks_dynp_maxwidth8;
}

namespace vorn::dynp {

// The tables of one maximum width.
template <ub4 Bytes>
struct Tables;
template <>
struct Tables<2> {
    static constexpr const LengthTable &lengths = vorn_length_consumed_dynp_maxwidth2;
    static constexpr const ShuffleTable &shuffles = vorn_shuffle_masks_dynp_maxwidth2;
    static constexpr const LaneTable &selector_lanes = kSelectorLanes2;
};
template <>
struct Tables<4> {
    static constexpr const LengthTable &lengths = vorn_length_consumed_dynp_maxwidth4;
    static constexpr const ShuffleTable &shuffles = vorn_shuffle_masks_dynp_maxwidth4;
    static constexpr const LaneTable &selector_lanes = kSelectorLanes4;
};
template <>
struct Tables<8> {
    static constexpr const LengthTable &lengths = vorn_length_consumed_dynp_maxwidth8;
    static constexpr const ShuffleTable &shuffles = vorn_shuffle_masks_dynp_maxwidth8;
    static constexpr const LaneTable &selector_lanes = kSelectorLanes8;
};

}  // namespace vorn::dynp
