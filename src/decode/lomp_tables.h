// lomp_tables.h - the three tables with which the block phase of the
// compressed-stream decoder brings eight packed codes into eight 16-bit
// lanes: a byte shuffle, an AND mask and a right shift per lane.  Each table
// has one 16-byte row for each code width from 3 to 10, and every entry is
// computed here from the rule; none is typed by hand.
//
// The rule, for lane k of width w, with s = k*w and b = s mod 8:
//   b + w <= 8   the lane holds the byte at s/8 alone (its high byte comes
//                from shuffle index 0x80, i.e. zero); shift = 8 - w - b
//   otherwise    high byte = the byte at s/8, low byte = the next one;
//                shift = 16 - w - b
//   AND mask     ((1 << w) - 1) << shift
#pragma once

#include <array>

#include "frame/base.h"

namespace vorn {

inline constexpr ub4 kLompFirstRowWidth = 3;
inline constexpr ub4 kLompMaxWidth = 10;
inline constexpr ub4 kLompRows = kLompMaxWidth - kLompFirstRowWidth + 1;

using LompShuffleRow = std::array<ub1, 16>;
using LompLaneRow = std::array<ub2, 8>;
using LompShuffleTable = std::array<LompShuffleRow, kLompRows>;
using LompLaneTable = std::array<LompLaneRow, kLompRows>;

constexpr bool lomp_lane_in_one_byte(ub4 w, ub4 k) { return (k * w) % 8 + w <= 8; }

constexpr ub2 lomp_lane_shift(ub4 w, ub4 k) {
    const ub4 b = (k * w) % 8;
    return static_cast<ub2>(lomp_lane_in_one_byte(w, k) ? 8 - w - b : 16 - w - b);
}

constexpr LompShuffleRow lomp_shuffle_row(ub4 w) {
    LompShuffleRow row{};
    for (ub4 k = 0; k < 8; ++k) {
        const ub1 first = static_cast<ub1>(k * w / 8);
        // Lanes are little-endian: byte 2k is the low byte, 2k+1 the high.
        if (lomp_lane_in_one_byte(w, k)) {
            row[2 * k] = first;
            row[2 * k + 1] = 0x80;
        } else {
            row[2 * k] = static_cast<ub1>(first + 1);
            row[2 * k + 1] = first;
        }
    }
    return row;
}

constexpr LompLaneRow lomp_and_row(ub4 w) {
    LompLaneRow row{};
    for (ub4 k = 0; k < 8; ++k) row[k] = static_cast<ub2>(((1u << w) - 1) << lomp_lane_shift(w, k));
    return row;
}

constexpr LompLaneRow lomp_shift_row(ub4 w) {
    LompLaneRow row{};
    for (ub4 k = 0; k < 8; ++k) row[k] = lomp_lane_shift(w, k);
    return row;
}

template <class Table, class Row>
constexpr Table lomp_table(Row (*rule)(ub4)) {
    Table t{};
    for (ub4 r = 0; r < kLompRows; ++r) t[r] = rule(kLompFirstRowWidth + r);
    return t;
}

inline constexpr LompShuffleTable kLompShuffle = lomp_table<LompShuffleTable>(lomp_shuffle_row);
inline constexpr LompLaneTable kLompAnd = lomp_table<LompLaneTable>(lomp_and_row);
inline constexpr LompLaneTable kLompShift = lomp_table<LompLaneTable>(lomp_shift_row);

// The rows that a block of width w works with.  Widths 0, 1 and 2 have no
// row: the decoder indexes the tables at w - 3 all the same, and since the
// three tables lie back to back (shuffle, AND, shift), such a width reads the
// end of the table before.  Its AND row is thus a shuffle row taken as lanes,
// its shift row an AND row, and its shuffle row one of three zero rows in
// front of the shuffle table.  This makes width 0 right (its shift row is
// width 8's AND row, 0x00FF a lane, a shift by 31 modulo 32, so every code
// is 0) and widths 1 and 2 wrong in blocks: a stream of those widths decodes
// correctly only when it has too few codes for a block.
struct LompBlockRows {
    LompShuffleRow shuffle;
    LompLaneRow and_mask;
    LompLaneRow shift;
};

constexpr LompLaneRow lomp_lanes_of(const LompShuffleRow &bytes) {
    LompLaneRow row{};
    for (ub4 k = 0; k < 8; ++k) row[k] = static_cast<ub2>(bytes[2 * k] | bytes[2 * k + 1] << 8);
    return row;
}

constexpr LompBlockRows lomp_block_rows(ub4 w) {
    if (w >= kLompFirstRowWidth) {
        const ub4 r = w - kLompFirstRowWidth;
        return {kLompShuffle[r], kLompAnd[r], kLompShift[r]};
    }
    const ub4 behind = kLompRows + w - kLompFirstRowWidth;  // row index in the table before
    return {LompShuffleRow{}, lomp_lanes_of(kLompShuffle[behind]), kLompAnd[behind]};
}

static_assert(lomp_block_rows(0).shift == LompLaneRow{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
              "width 0 shifts every lane by 0xFF, 31 modulo 32");

}  // namespace vorn

// The tables under their own names, for the decoder and for inspection.
extern "C" {
VORN_INTERNAL extern const vorn::LompShuffleTable vorn_lomp_decode_shuffle_masks;
VORN_INTERNAL extern const vorn::LompLaneTable vorn_lomp_decode_and_masks;
VORN_INTERNAL extern const vorn::LompLaneTable vorn_lomp_decode_shift_masks;
}
