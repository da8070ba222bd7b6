// kv_kinds.h - the shape of every bucket kind, written once.  The layout,
// the adds and the probes take their geometry from these records at compile
// time: entries per bucket, count bits, and where key i and value i lie, for
// both ways of linking a chain.
#pragma once

#include <initializer_list>

#include "frame/base.h"

namespace vorn::kv {

// The two ways a chain of buckets is linked.  `idx`: a ub4 header at byte 0
// holding the count and the overflow id + 1; `ptr`: the next bucket's
// address at byte 0 and a ub2 count word at byte 8.
enum Link : ub1 { kIdx = 0, kPtr = 1 };

inline constexpr ub4 kBucketBytes = 64;
inline constexpr ub4 kBucketShift = 6;
// Bits of the word at byte 8 of a `ptr` bucket: the count below, the matched
// flags of the entries above, the last possible entry at bit 15.
inline constexpr ub4 kPtrCountWordBits = 16;

struct BucketKind {
    ub1 kind;          // number in bits 0 to 7 of the table's flags; 0: none
    const char *name;  // "k4v4"
    ub1 key_bytes;
    ub1 value_bytes;   // 0 for the key-only kinds
    ub1 entries[2];    // by Link
    ub1 count_bits;
    ub1 key_base[2];   // byte of key 0, by Link
    ub1 value_base[2]; // byte of value 0, by Link

    constexpr bool exists() const { return key_bytes != 0; }
    constexpr ub4 key_offset(Link l, ub4 i) const { return key_base[l] + key_bytes * i; }
    constexpr ub4 value_offset(Link l, ub4 i) const { return value_base[l] + value_bytes * i; }
    constexpr ub4 count_mask() const { return (1u << count_bits) - 1; }
    // Bit of entry 0's matched flag in the count word of a `ptr` bucket.
    constexpr ub4 first_matched_bit() const { return kPtrCountWordBits - entries[kPtr]; }
};

// Indexed by kind number; kinds 0 and 14 do not exist.
inline constexpr BucketKind kBucketKinds[16] = {
    {0, "", 0, 0, {0, 0}, 0, {0, 0}, {0, 0}},
    {1, "k2v4", 2, 4, {10, 9}, 4, {4, 10}, {24, 28}},
    {2, "k2v8", 2, 8, {6, 5}, 3, {4, 10}, {16, 24}},
    {3, "k4", 4, 0, {15, 13}, 4, {4, 12}, {0, 0}},
    {4, "k4v4", 4, 4, {7, 6}, 3, {4, 12}, {32, 36}},
    {5, "k4v8", 4, 8, {5, 4}, 3, {4, 12}, {24, 32}},
    {6, "k6", 6, 0, {10, 9}, 4, {4, 10}, {0, 0}},
    {7, "k6v4", 6, 4, {6, 5}, 3, {4, 10}, {40, 40}},
    {8, "k6v8", 6, 8, {4, 3}, 3, {4, 10}, {32, 32}},
    {9, "k8", 8, 0, {7, 6}, 3, {8, 16}, {0, 0}},
    {10, "k8v4", 8, 4, {5, 4}, 3, {4, 12}, {44, 44}},
    {11, "k8v8", 8, 8, {3, 3}, 2, {8, 16}, {32, 40}},
    {12, "k10v4", 10, 4, {4, 3}, 3, {4, 10}, {44, 40}},
    {13, "k12", 12, 0, {5, 4}, 3, {4, 12}, {0, 0}},
    {0, "", 0, 0, {0, 0}, 0, {0, 0}, {0, 0}},
    {15, "k12v4", 12, 4, {3, 3}, 2, {4, 12}, {40, 48}},
};

// Every kind fills one cache line without overlap, its count fits the count
// bits, and a `ptr` bucket of a value kind has room above the count for one
// matched flag an entry.
constexpr bool kinds_are_consistent() {
    for (ub4 k = 0; k < 16; ++k) {
        const BucketKind &d = kBucketKinds[k];
        if (!d.exists()) continue;
        if (d.kind != k) return false;
        for (Link l : {kIdx, kPtr}) {
            const ub4 header = l == kIdx ? 4 : 10;
            const ub4 n = d.entries[l];
            if (n >= (1u << d.count_bits)) return false;
            if (d.key_base[l] < header) return false;
            const ub4 keys_end = d.key_offset(l, n);
            if (d.value_bytes == 0 ? keys_end > kBucketBytes
                                   : (keys_end > d.value_base[l] || d.value_offset(l, n) > kBucketBytes))
                return false;
        }
        // Matched flags exist in the value kinds, whose tables may be mutable.
        if (d.value_bytes != 0 && d.count_bits > d.first_matched_bit()) return false;
    }
    return true;
}
static_assert(kinds_are_consistent(), "every bucket kind fits its cache line");

constexpr const BucketKind &bucket_kind(ub4 kind) { return kBucketKinds[kind]; }

// Array tables: the page shift of region 0, by table.
inline constexpr ub4 kArid4PageBits = 17;  // 2^17 keys a page, 8 keys an element of 34 bytes
inline constexpr ub4 kArid4ElementBytes = 34;
inline constexpr ub4 kArid4ListBytes = 17;  // count byte and four ub4 rids
inline constexpr ub4 kArid8PageBits = 17;  // one ub8 word a key
inline constexpr ub4 kAcntPageBits = 18;   // one bit a key, two ub4 words for 32 keys

}  // namespace vorn::kv
