// kv_bucket_add.h - the insert loop of the bucket tables, one template over
// the kind, the way of linking and the input.  Every bucket member of the
// low-level add family and of the folded adds is an instance of add_rows.
//
// A row goes to the primary bucket its hash names.  While the bucket has a
// free entry the row is appended; a full bucket is first moved whole to a
// new overflow bucket (the rotation), so the primary bucket never moves and
// every overflow bucket is full.  Rows run in batches of 16 whose bucket
// lines are prefetched before the first of them is inserted.
#pragma once

#include "frame/base.h"
#include "frame/fast_copy.h"
#include "kv/kv_entries.h"
#include "kv/kv_kinds.h"

namespace vorn::kv {

// Input bytes prefetched ahead of the row being read.
inline constexpr ub8 kInputAhead = 256;
inline constexpr ub4 kBatch = 16;

VORN_INLINE void prefetch_read(const void *p) { __builtin_prefetch(p, 0, 3); }

// ---- Keys that stand for hashes ----------------------------------------------
// The tag of a hash is the bits above those that pick the bucket; a tag of
// 0 is stored as 1 so that an empty (zero) slot never matches.
template <ub4 KeyBytes, bool Hash32>
VORN_INLINE ub8 hash_tag(ub8 h) {
    static_assert(KeyBytes == 2 || KeyBytes == 4, "tags are 2 or 4 bytes");
    ub8 tag;
    if constexpr (Hash32) {
        tag = KeyBytes == 2 ? (h >> 16) & 0xffff : h & 0xffffffff;
    } else {
        tag = KeyBytes == 2 ? (h >> 32) & 0xffff : h >> 32;
    }
    return tag == 0 ? 1 : tag;
}

template <ub4 Bytes>
VORN_INLINE void store_low(ub1 *dst, ub8 v) {
    if constexpr (Bytes == 2) store<ub2>(dst, static_cast<ub2>(v));
    if constexpr (Bytes == 4) store<ub4>(dst, static_cast<ub4>(v));
    if constexpr (Bytes == 8) store<ub8>(dst, v);
}

// ---- Inputs --------------------------------------------------------------------
// An input says, for row i: its hash, its key (written to the slot), its
// value, and which input lines to prefetch.  Keys are one of: a hash tag, a
// ub4 code, or KeyBytes bytes of a slot or record.

// Records of `Stride` bytes with a ub8 (or ub4) hash at HashAt and the value
// or row id at ValueAt; the key is the tag of the hash, a ub4 code at KeyAt,
// or the key bytes at KeyAt.
// kLenPtr: a ub8 key address at KeyAt and its ub2 length at KeyAt + 8,
// brought to slot form as it is stored.
enum KeyFrom : ub1 { kTag, kCode, kBytes, kLenPtr };

// A key of `len` bytes in a slot of Slot bytes: the length byte and the
// bytes, zero-filled, when it is shorter than the slot; 255 and zeros when
// it is as long or longer.  Narrow slots take the bytes in pieces of 1 to 3.
template <ub4 Slot>
VORN_INLINE void write_slot(ub1 *dst, const ub1 *key, ub8 len) {
    ub1 slot[Slot] = {};
    if (len >= Slot) {
        slot[0] = 255;
    } else {
        slot[0] = static_cast<ub1>(len);
        if constexpr (Slot == 4) {
            switch (len) {
                case 3: slot[3] = key[2]; [[fallthrough]];
                case 2: slot[2] = key[1]; [[fallthrough]];
                case 1: slot[1] = key[0]; break;
                default: break;
            }
        } else {
            fast_copy(slot + 1, key, len);
        }
    }
    std::memcpy(dst, slot, Slot);
}

template <ub4 Stride, ub4 HashAt, bool Hash32, KeyFrom Key, ub4 KeyAt, int ValueAt>
struct RecordInput {
    const ub1 *rec;
    static constexpr bool kHash32 = Hash32;
    VORN_INLINE ub8 hash(ub8 i) const {
        return Hash32 ? load<ub4>(rec + i * Stride + HashAt) : load<ub8>(rec + i * Stride + HashAt);
    }
    template <ub4 KeyBytes>
    VORN_INLINE void key(ub1 *dst, ub8 i, ub8 h) const {
        if constexpr (Key == kTag) store_low<KeyBytes>(dst, hash_tag<KeyBytes, Hash32>(h));
        if constexpr (Key == kCode) store<ub4>(dst, load<ub4>(rec + i * Stride + KeyAt));
        if constexpr (Key == kBytes) std::memcpy(dst, rec + i * Stride + KeyAt, KeyBytes);
        if constexpr (Key == kLenPtr) {
            const ub1 *r = rec + i * Stride + KeyAt;
            write_slot<KeyBytes>(dst, reinterpret_cast<const ub1 *>(load<ub8>(r)), load<ub2>(r + 8));
        }
    }
    VORN_INLINE ub8 value(ub8 i) const {
        if constexpr (ValueAt >= 0) return load<ub8>(rec + i * Stride + ValueAt);
        return 0;
    }
    VORN_INLINE void prefetch(ub8 i) const { prefetch_read(rec + i * Stride + kInputAhead); }
};

// Separate arrays: hashes (ub8 or ub4), keys (tags, ub4 codes, or slots of
// the kind's key bytes), and values (none, a payload array, or row numbers).
enum ValueFrom : ub1 { kNoValue, kPayload, kAutorid };

template <bool Hash32, KeyFrom Key, ValueFrom Value, ub4 ValueBytes, ub4 KeyStride>
struct ArrayInput {
    const void *hashes;
    const ub1 *keys;     // codes or slots; unused for tags
    const void *payload; // kPayload
    ub8 base_rid;        // kAutorid
    static constexpr bool kHash32 = Hash32;
    VORN_INLINE ub8 hash(ub8 i) const {
        return Hash32 ? load<ub4>(static_cast<const ub4 *>(hashes) + i)
                      : load<ub8>(static_cast<const ub8 *>(hashes) + i);
    }
    template <ub4 KeyBytes>
    VORN_INLINE void key(ub1 *dst, ub8 i, ub8 h) const {
        if constexpr (Key == kTag) store_low<KeyBytes>(dst, hash_tag<KeyBytes, Hash32>(h));
        if constexpr (Key == kCode) store<ub4>(dst, load<ub4>(keys + i * 4));
        if constexpr (Key == kBytes) std::memcpy(dst, keys + i * KeyStride, KeyBytes);
    }
    VORN_INLINE ub8 value(ub8 i) const {
        if constexpr (Value == kAutorid) return base_rid + i;
        if constexpr (Value == kPayload) {
            if constexpr (ValueBytes == 4) return load<ub4>(static_cast<const ub1 *>(payload) + i * 4);
            else return load<ub8>(static_cast<const ub1 *>(payload) + i * 8);
        }
        return 0;
    }
    VORN_INLINE void prefetch(ub8 i) const {
        prefetch_read(static_cast<const ub1 *>(hashes) + i * (Hash32 ? 4 : 8) + kInputAhead);
        if constexpr (Key == kCode || Key == kBytes) prefetch_read(keys + i * KeyStride + kInputAhead);
        if constexpr (Value == kPayload) prefetch_read(static_cast<const ub1 *>(payload) + i * ValueBytes + kInputAhead);
    }
};

// ---- One bucket ------------------------------------------------------------------
template <ub4 Kind, Link L>
struct Bucket {
    static constexpr const BucketKind &D = kBucketKinds[Kind];
    static_assert(D.exists(), "no such kind");
    static constexpr ub4 kEntries = D.entries[L];
    static constexpr ub4 kCountMask = D.count_mask();

    VORN_INLINE static ub4 count(const ub1 *b) {
        if constexpr (L == kIdx) return load<ub4>(b) & kCountMask;
        else return load<ub2>(b + 8) & kCountMask;
    }
    VORN_INLINE static void bump(ub1 *b) {
        if constexpr (L == kIdx) store<ub4>(b, load<ub4>(b) + 1);
        else store<ub2>(b + 8, static_cast<ub2>(load<ub2>(b + 8) + 1));
    }
    template <class In>
    VORN_INLINE static void put(ub1 *b, ub4 n, const In &in, ub8 row, ub8 h) {
        in.template key<D.key_bytes>(b + D.key_offset(L, n), row, h);
        if constexpr (D.value_bytes != 0) store_low<D.value_bytes>(b + D.value_offset(L, n), in.value(row));
    }
    // Moves a full bucket behind itself; 0 or the callback's code.
    VORN_INLINE static ub8 rotate(vorn_kv *kv, ub1 *b, vorn_kv_grow_fn grow, ub8 *status) {
        if constexpr (L == kIdx) return vorn_kv_rotate_idx(kv, b, D.count_bits, grow, status);
        else return vorn_kv_rotate_ptr(kv, b, grow, status);
    }
    template <class In>
    VORN_INLINE static ub8 insert(vorn_kv *kv, ub1 *b, const In &in, ub8 row, ub8 h, vorn_kv_grow_fn grow,
                                  ub8 *status) {
        const ub4 n = count(b);
        if (VORN_LIKELY(n < kEntries)) {
            put(b, n, in, row, h);
            bump(b);
            return 0;
        }
        if (const ub8 code = rotate(kv, b, grow, status)) return code;
        put(b, 0, in, row, h);  // the rotation left a header of one entry
        return 0;
    }
};

// Where rows go: the primary bucket of a hash in the fixed segment or in
// the segment that the hash picks.
struct BucketAddress {
    ub1 *const *pages;
    ub1 *fixed[1];
    ub8 seg_mask;
    ub8 bucket_mask;
    ub4 page_bits;

    BucketAddress(const vorn_kv *kv, ub1 *segment_base) {
        const vorn_kv_region &r0 = kv->regions[0];
        fixed[0] = segment_base;
        pages = segment_base != nullptr ? fixed : r0.pages;
        seg_mask = segment_base != nullptr ? 0 : (ub8{1} << r0.segment_bits) - 1;
        page_bits = r0.page_bits;
        bucket_mask = (ub8{1} << page_bits) - 1;
    }
    VORN_INLINE ub1 *operator()(ub8 h) const {
        return pages[(h >> page_bits) & seg_mask] + ((h & 0xffffffffu & bucket_mask) << kBucketShift);
    }
};

// The loop of every bucket member.  Rows *pos to rows - 1; on a refused
// request *pos is the row that was not added and the callback's code is
// returned.  Each batch of 16 has its bucket addresses computed and its
// lines prefetched two batches ahead of its inserts, so that the misses of
// a batch are in flight while the two before it are inserted (one batch
// ahead left part of the memory latency uncovered).  With Prefetch false
// the batches keep their shape but nothing is prefetched (the benchmark's
// comparison).
inline constexpr ub4 kBatchesAhead = 2;

template <ub4 Kind, Link L, class In, bool Prefetch = true>
ub8 add_rows(vorn_kv *kv, ub1 *segment_base, ub8 rows, const In &in, ub8 *pos, vorn_kv_grow_fn grow,
             ub8 *status) {
    using B = Bucket<Kind, L>;
    constexpr ub4 kSets = kBatchesAhead + 1;
    ub8 i = *pos;
    if (i >= rows) return 0;
    const BucketAddress address(kv, segment_base);
    ub1 *bucket[kSets][kBatch];
    ub8 hash[kSets][kBatch];
    auto route = [&](ub8 first, ub4 set) {
        if constexpr (Prefetch) in.prefetch(first);
        for (ub4 j = 0; j < kBatch; ++j) {
            hash[set][j] = in.hash(first + j);
            bucket[set][j] = address(hash[set][j]);
            if constexpr (Prefetch) prefetch_read(bucket[set][j]);
        }
    };
    for (ub4 a = 0; a < kBatchesAhead && i + (a + 1) * kBatch <= rows; ++a) route(i + a * kBatch, a);
    for (ub4 set = 0; i + kBatch <= rows; i += kBatch, set = set + 1 == kSets ? 0 : set + 1) {
        const ub8 ahead = i + kBatchesAhead * kBatch;
        if (ahead + kBatch <= rows) route(ahead, (set + kBatchesAhead) % kSets);
        for (ub4 j = 0; j < kBatch; ++j) {
            if (const ub8 code = B::insert(kv, bucket[set][j], in, i + j, hash[set][j], grow, status)) {
                *pos = i + j;
                return code;
            }
        }
    }
    for (; i < rows; ++i) {
        if constexpr (Prefetch) in.prefetch(i);
        const ub8 h = in.hash(i);
        if (const ub8 code = B::insert(kv, address(h), in, i, h, grow, status)) {
            *pos = i;
            return code;
        }
    }
    *pos = rows;
    return 0;
}

// The kind number of a name such as "k4v4", found in the kind table.
constexpr ub4 kind_number(const char *name) {
    for (ub4 k = 0; k < 16; ++k) {
        const char *a = kBucketKinds[k].name;
        const char *b = name;
        while (*a != 0 && *a == *b) ++a, ++b;
        if (*a == 0 && *b == 0 && kBucketKinds[k].exists()) return k;
    }
    return 0;
}

}  // namespace vorn::kv
