// bloom_rule.h - which filter bits a hash names, and the shuffle tables of
// the 16-row block.
//
// A hash is read as its last four bytes in memory, byte-swapped: all of a
// 32-bit hash, the low word of a 64-bit one.  For that word h:
//   a  = h & mask
//   flat:  b1 = a                     second = (h >> 26) & mask
//   paged: b1 = a & bit_mask in page a >> page_shift
//                                     second = (h >> 26) & mask & bit_mask
//   b2 = (b1 & ~63) | second          (two-bit filters)
// so both bits of a two-bit filter lie in one 64-bit word of the filter (of
// the page), chosen by a, the second placed by the top six bits of h.
#pragma once

#include <array>

#include "frame/base.h"

extern "C" {

// Two 64-bit hashes of a 16-byte load to four 32-bit lanes, each hash's
// swapped low word twice: lanes [h0, h0, h1, h1].
VORN_INTERNAL extern const std::array<ub1, 16> vorn_dup_bswapped_hi32;
// One byte per filter bit number: entry i is 1 << (i & 7).
VORN_INTERNAL extern const std::array<ub1, 16> vorn_bit_possible;
// The block's one-bit results come in row order 0, 2, 1, 3 within each four
// rows; this brings them back (the permutation is its own inverse).
VORN_INTERNAL extern const std::array<ub1, 16> vorn_bloom_reorder_16;
// 32-bit hashes: the swapped words of a 16-byte load in lane order 0, 2, 1,
// 3 (the order the one-bit block works in), and rows 0, 1 or 2, 3 of the
// load twice each (the lanes of the two-bit block).
VORN_INTERNAL extern const std::array<ub1, 16> vorn_bswapped_02_13;
VORN_INTERNAL extern const std::array<ub1, 16> vorn_dup_bswapped_lo64;
VORN_INTERNAL extern const std::array<ub1, 16> vorn_dup_bswapped_hi64;

}  // extern "C"

namespace vorn::bloom {

// The shuffle that puts hash lane_hash[l] of a 16-byte load of hashes of
// `hash_bytes` bytes, swapped, into 32-bit lane l.
constexpr std::array<ub1, 16> lane_shuffle(ub4 hash_bytes, std::array<ub4, 4> lane_hash) {
    std::array<ub1, 16> t{};
    for (ub4 l = 0; l < 4; ++l)
        for (ub4 k = 0; k < 4; ++k) t[4 * l + k] = static_cast<ub1>(lane_hash[l] * hash_bytes + hash_bytes - 1 - k);
    return t;
}

// What a call reads of the filter's vector, once.
struct Filter {
    const ub1 *bytes = nullptr;          // flat: the filter
    const ub1 *const *pages = nullptr;   // paged: the page addresses
    ub4 mask = 0;                        // the hash bits that count
    ub4 page_shift = 0;                  // at most 32: a shift of 32 or more leaves page 0
    ub4 bit_mask = 0;                    // paged: the bits within a page
    ub4 second_mask = 0;                 // what the top six hash bits keep for b2

    static Filter of(const vorn_vec *filter) {
        const vorn_enc_ctx *enc = filter->enc_ctx;
        Filter f;
        f.bytes = reinterpret_cast<const ub1 *>(filter->res_bv);
        f.pages = reinterpret_cast<const ub1 *const *>(filter->res_bv);
        f.mask = enc->bloom_mask;
        f.page_shift = enc->bloom_page_shift < 32 ? enc->bloom_page_shift : 32;
        f.bit_mask = enc->bloom_bit_mask;
        f.second_mask = enc->bloom_paged ? enc->bloom_mask & enc->bloom_bit_mask : enc->bloom_mask;
        return f;
    }
};

template <ub4 HashBytes>
VORN_INLINE ub4 hash_word(const ub1 *hashes, ub8 row) {
    return load_be32(hashes + row * HashBytes + (HashBytes - 4));
}

VORN_INLINE bool bit_of(const ub1 *base, ub4 n) { return (base[n >> 3] >> (n & 7)) & 1; }

// The rule for one hash word.
template <bool Paged, bool TwoBit>
VORN_INLINE bool passes(const Filter &f, ub4 h) {
    const ub4 a = h & f.mask;
    const ub1 *base = f.bytes;
    ub4 b1 = a;
    if constexpr (Paged) {
        base = f.pages[static_cast<ub4>(ub8{a} >> f.page_shift)];
        b1 = a & f.bit_mask;
    }
    if constexpr (!TwoBit) {
        return bit_of(base, b1);
    } else {
        const ub4 b2 = (b1 & ~63u) | ((h >> 26) & f.second_mask);
        return bit_of(base, b1) & bit_of(base, b2);
    }
}

}  // namespace vorn::bloom
