// dict_tables.h - the three lane tables of the packed dictionary compares,
// computed by the compiler from their rule.
//
// A packed column holds code j of width w at bits j*w .. j*w+w-1 of one
// big-endian bit string.  The compares never unpack a code: a shuffle moves
// the bytes that code j touches into lane j (last byte lowest, so the lane
// reads them as one big-endian number), an AND keeps the code's bits, and
// the code then stands in its lane shifted left by s, the number of bits
// that follow it in its last byte.  The literal is shifted to meet it.
//
// Each table has 24 rows of 32 bytes, row w-1 for width w: the lanes of one
// group of codes, 32, 16 or 8 by lane size, which is two 16-byte vectors.
// Lane values of 16 and 32 bits are stored little-endian, as a vector load
// reads them.  The second vector of a group is loaded at the byte where its
// first code starts, so its shuffle bytes count from there; the two halves
// of a row differ only where half a group is not a whole number of bytes
// (32-bit lanes of an odd width).
#pragma once

#include <array>

#include "frame/base.h"

namespace vorn {

// Lane size in bits: 8 where a code never leaves its byte (w divides 8),
// 16 where every code's bytes fit in two, 32 for the rest.  Width 16 is laid
// out in 32-bit lanes; its kernels swap whole bytes and read no table.
constexpr ub4 dict_lane_bits(ub4 w) {
    switch (w) {
        case 1: case 2: case 4: case 8: return 8;
        case 3: case 5: case 6: case 7: case 9: case 10: case 12: return 16;
        default: return 32;
    }
}

inline constexpr ub4 kDictTableRows = 24;
using DictTable = std::array<std::array<ub1, 32>, kDictTableRows>;

namespace dict_rule {

constexpr ub4 lane_bytes(ub4 w) { return dict_lane_bits(w) / 8; }
// Lanes in one 16-byte vector, and in one row (a group of codes).
constexpr ub4 vector_lanes(ub4 w) { return 16 / lane_bytes(w); }
constexpr ub4 group_lanes(ub4 w) { return 2 * vector_lanes(w); }

// First and last byte that code j touches.
constexpr ub4 first_byte(ub4 w, ub4 j) { return (j * w) >> 3; }
constexpr ub4 last_byte(ub4 w, ub4 j) { return (j * w + w - 1) >> 3; }
// The byte at which the vector holding code j is loaded.
constexpr ub4 load_byte(ub4 w, ub4 j) { return first_byte(w, j / vector_lanes(w) * vector_lanes(w)); }

// Where code j ends within its last byte: the left shift it has in its lane.
constexpr ub4 shift(ub4 w, ub4 j) { return (0u - (j + 1) * w) & 7; }
constexpr ub4 mask(ub4 w, ub4 j) {
    return static_cast<ub4>(((ub8{1} << w) - 1) << shift(w, j));
}

template <class Lane>
constexpr DictTable by_lane(Lane lane) {
    DictTable t{};
    for (ub4 w = 1; w <= kDictTableRows; ++w) {
        const ub4 bytes = lane_bytes(w);
        for (ub4 j = 0; j < group_lanes(w); ++j)
            for (ub4 k = 0; k < bytes; ++k) t[w - 1][j * bytes + k] = lane(w, j, k);
    }
    return t;
}

// Byte k (0 = lowest) of lane j: source byte last - k while it belongs to
// the code, else 0x80, which the shuffle turns into zero.
constexpr ub1 shuffle_byte(ub4 w, ub4 j, ub4 k) {
    const ub4 l = last_byte(w, j);
    if (k > l || l - k < first_byte(w, j)) return 0x80;
    return static_cast<ub1>(l - k - load_byte(w, j));
}
constexpr ub1 shift_byte(ub4 w, ub4 j, ub4 k) { return static_cast<ub1>(k == 0 ? shift(w, j) : 0); }
constexpr ub1 mask_byte(ub4 w, ub4 j, ub4 k) { return static_cast<ub1>(mask(w, j) >> (8 * k)); }

// Every code of every width fits in its lane, and every shuffle byte lies
// inside the 16 bytes loaded for its vector.
constexpr bool lanes_hold_their_codes() {
    for (ub4 w = 1; w <= kDictTableRows; ++w) {
        for (ub4 j = 0; j < group_lanes(w); ++j) {
            if (last_byte(w, j) - first_byte(w, j) + 1 > lane_bytes(w)) return false;
            if (last_byte(w, j) - load_byte(w, j) >= 16) return false;
            if (shift(w, j) + w > dict_lane_bits(w)) return false;
        }
    }
    return true;
}
static_assert(lanes_hold_their_codes());

}  // namespace dict_rule

inline constexpr DictTable vorn_shuffle_masks = dict_rule::by_lane(dict_rule::shuffle_byte);
inline constexpr DictTable vorn_shift_masks = dict_rule::by_lane(dict_rule::shift_byte);
inline constexpr DictTable vorn_and_masks = dict_rule::by_lane(dict_rule::mask_byte);

// Lane j of row w of a table, as a number.
constexpr ub4 dict_lane(const DictTable &t, ub4 w, ub4 j) {
    const ub4 bytes = dict_rule::lane_bytes(w);
    ub4 v = 0;
    for (ub4 k = 0; k < bytes; ++k) v |= ub4{t[w - 1][j * bytes + k]} << (8 * k);
    return v;
}

}  // namespace vorn
