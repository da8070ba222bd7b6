// kv_add_arrays.cpp - adds to the array tables, addressed by a dense 32-bit
// key: arid4 and arid8 (key to the list of its row ids) and acnt (key to
// its number of occurrences).  Keys run in blocks of 16: a first pass finds
// each key's element and prefetches it, refusing the whole block if a key
// lies above the mapped pages; a second pass adds the rows in order.
#include <algorithm>

#include "frame/fail.h"
#include "kv/kv_array_format.h"
#include "kv/kv_bucket_add.h"
#include "kv/kv_entries.h"

namespace vorn::kv {
namespace {

// ---- Where the rows come from ------------------------------------------------------
// Key records of 16 bytes: ub4 key at byte 0, ub4 row id at byte 8.
struct KeyRecords {
    const ub1 *rec;
    VORN_INLINE ub4 key(ub8 i) const { return load<ub4>(rec + i * 16); }
    VORN_INLINE ub8 rid(ub8 i) const { return load<ub4>(rec + i * 16 + 8); }
};
struct KeysAutorid {
    const ub4 *keys;
    ub8 base_rid;
    VORN_INLINE ub4 key(ub8 i) const { return keys[i]; }
    VORN_INLINE ub8 rid(ub8 i) const { return base_rid + i; }
};
template <class Rid>
struct KeysPayload {
    const ub4 *keys;
    const void *payload;
    VORN_INLINE ub4 key(ub8 i) const { return keys[i]; }
    VORN_INLINE ub8 rid(ub8 i) const { return load<Rid>(static_cast<const Rid *>(payload) + i); }
};
struct KeysOnly {
    const ub4 *keys;
    VORN_INLINE ub4 key(ub8 i) const { return keys[i]; }
    VORN_INLINE ub8 rid(ub8) const { return 0; }
};

// A request for `units` units of `region`; on refusal status names the
// region and the page of the id tried.
VORN_INLINE ub8 request(vorn_kv *kv, ub4 region, ub8 units, ub8 *id, vorn_kv_grow_fn grow, ub8 *status) {
    vorn_kv_region &r = kv->regions[region];
    *id = 0;
    const ub8 code = grow(&r, units, id);
    if (code != 0) {
        status[0] = region;
        status[1] = *id >> r.page_bits;
    }
    return code;
}

VORN_INLINE ub1 *unit_address(const vorn_kv_region &r, ub8 id, ub4 unit_bytes) { return array_unit(r, id, unit_bytes); }

// The next chunk's capacity: the golden ratio of the last, plus two, up to 4000.
VORN_INLINE ub4 grown_capacity(ub4 capacity) {
    return std::min<ub4>(4000, static_cast<ub4>((capacity + 2) * 1.618));
}

// ---- arid4: 34-byte elements of eight keys --------------------------------------------
// Element: byte 0 list bits, byte 1 chunk bits, eight ub4 slot words at 2.
// List record (region 1, 17 bytes): count byte, four ub4 rids at 1; with
// the chunk bit, bytes 9 to 16 hold the newest chunk's address instead of
// rids 3 and 4.  Chunk (region 2, 2-byte units): ub2 count, ub2 capacity,
// ub8 next at 4, ub4 rids at 12; the chunks of a key form a ring.
template <bool Unique>
struct Arid4 {
    static constexpr ub4 kPageBits = kArid4PageBits;
    static constexpr ub4 kListUnit = kArid4ListBytes;
    static constexpr ub4 kChunkUnit = 2;
    static constexpr ub4 kChunkHead = kArid4ChunkHead;

    VORN_INLINE static ub1 *element(const vorn_kv *kv, ub4 key) { return arid4_element(kv, key); }

    static ub8 append2(vorn_kv *kv, ub1 *elem, ub1 bit, ub1 *word, ub4 w, ub8 rid, vorn_kv_grow_fn grow,
                       ub8 *status) {
        ub8 id;
        if (const ub8 code = request(kv, 1, 1, &id, grow, status)) return code;
        VORN_ASSERT(id == (ub4) id, "vorn_kv_list4_append2");
        ub1 *rec = unit_address(kv->regions[1], id, kListUnit);
        rec[0] = 2;
        store<ub4>(rec + 1, w - 1);
        store<ub4>(rec + 5, static_cast<ub4>(rid));
        store<ub4>(word, static_cast<ub4>(id));
        elem[0] |= bit;
        return 0;
    }

    static ub8 first_chunk(vorn_kv *kv, ub1 *elem, ub1 bit, ub1 *rec, ub8 rid, vorn_kv_grow_fn grow,
                           ub8 *status) {
        ub8 id;
        if (const ub8 code = request(kv, 2, (8 * 4 + kChunkHead + 1) >> 1, &id, grow, status)) return code;
        ub1 *c = unit_address(kv->regions[2], id, kChunkUnit);
        store<ub2>(c, 3);
        store<ub2>(c + 2, 8);
        store<ub8>(c + 4, reinterpret_cast<ub8>(c));
        store<ub4>(c + kChunkHead, load<ub4>(rec + 9));
        store<ub4>(c + kChunkHead + 4, load<ub4>(rec + 13));
        store<ub4>(c + kChunkHead + 8, static_cast<ub4>(rid));
        store<ub8>(rec + 9, reinterpret_cast<ub8>(c));
        rec[0] = 2;
        elem[1] |= bit;
        return 0;
    }

    static ub8 next_chunk(vorn_kv *kv, ub1 *rec, ub1 *newest, ub8 rid, vorn_kv_grow_fn grow, ub8 *status) {
        const ub4 capacity = grown_capacity(load<ub2>(newest + 2));
        ub8 id;
        if (const ub8 code = request(kv, 2, (capacity * 4 + kChunkHead + 1) >> 1, &id, grow, status))
            return code;
        ub1 *c = unit_address(kv->regions[2], id, kChunkUnit);
        store<ub2>(c, 1);
        store<ub2>(c + 2, static_cast<ub2>(capacity));
        store<ub8>(c + 4, load<ub8>(newest + 4));
        store<ub4>(c + kChunkHead, static_cast<ub4>(rid));
        store<ub8>(newest + 4, reinterpret_cast<ub8>(c));
        store<ub8>(rec + 9, reinterpret_cast<ub8>(c));
        return 0;
    }

    VORN_INLINE static ub8 add(vorn_kv *kv, ub1 *elem, ub4 key, ub8 rid, vorn_kv_grow_fn grow, ub8 *status) {
        const ub1 bit = static_cast<ub1>(1u << (key & 7));
        ub1 *word = elem + 2 + 4 * (key & 7);
        const ub4 w = load<ub4>(word);
        if (!(elem[0] & bit)) {
            if (w == 0) {
                store<ub4>(word, static_cast<ub4>(rid + 1));
                return 0;
            }
            if constexpr (Unique) return 0;
            return append2(kv, elem, bit, word, w, rid, grow, status);
        }
        ub1 *rec = unit_address(kv->regions[1], w, kListUnit);
        if (!(elem[1] & bit)) {
            if (rec[0] < 4) {
                store<ub4>(rec + 1 + 4 * rec[0], static_cast<ub4>(rid));
                ++rec[0];
                return 0;
            }
            return first_chunk(kv, elem, bit, rec, rid, grow, status);
        }
        ub1 *newest = reinterpret_cast<ub1 *>(load<ub8>(rec + 9));
        const ub2 count = load<ub2>(newest);
        if (count < load<ub2>(newest + 2)) {
            store<ub4>(newest + kChunkHead + 4 * count, static_cast<ub4>(rid));
            store<ub2>(newest, static_cast<ub2>(count + 1));
            return 0;
        }
        return next_chunk(kv, rec, newest, rid, grow, status);
    }
};

// ---- arid8: one ub8 word a key ---------------------------------------------------
// Word: 0 empty; even: (rid + 1) * 2; tag 1, 3, 5: a 32-byte list record
// (region 1) with 2, 3, 4 rids in words 2, 3, 0, 1; tag 7: the record's word
// 0 less 1 is the newest chunk.  Chunk: ub8 next (bit 0 set ends the chain),
// ub4 count at 8, ub4 capacity at 12, ub8 rids at 16.
template <bool Unique>
struct Arid8 {
    static constexpr ub4 kPageBits = kArid8PageBits;
    static constexpr ub4 kUnit = 8;
    static constexpr ub4 kChunkHead = kArid8ChunkHead;
    static constexpr ub8 kChainEnd = kArid8ChainEnd;

    VORN_INLINE static ub1 *element(const vorn_kv *kv, ub4 key) { return arid8_word(kv, key); }

    static ub8 new_chunk(vorn_kv *kv, ub4 capacity, ub1 **chunk, vorn_kv_grow_fn grow, ub8 *status) {
        ub8 id;
        if (const ub8 code = request(kv, 1, (kChunkHead >> 3) + capacity, &id, grow, status)) return code;
        *chunk = unit_address(kv->regions[1], id, kUnit);
        store<ub4>(*chunk + 12, capacity);
        return 0;
    }

    VORN_INLINE static ub8 add(vorn_kv *kv, ub1 *word, ub4, ub8 rid, vorn_kv_grow_fn grow, ub8 *status) {
        const ub8 w = load<ub8>(word);
        if (w == 0) {
            store<ub8>(word, (rid + 1) * 2);
            return 0;
        }
        if ((w & 1) == 0) {
            if constexpr (Unique) return 0;
            ub8 id;
            if (const ub8 code = request(kv, 1, 4, &id, grow, status)) return code;
            ub1 *rec = unit_address(kv->regions[1], id, kUnit);
            store<ub8>(rec + 16, (w >> 1) - 1);
            store<ub8>(rec + 24, rid);
            store<ub8>(word, reinterpret_cast<ub8>(rec) | 1);
            return 0;
        }
        ub1 *rec = reinterpret_cast<ub1 *>(w & ~ub8{7});
        switch (w & 7) {
            case 1:
                store<ub8>(rec, rid);
                store<ub8>(word, reinterpret_cast<ub8>(rec) | 3);
                return 0;
            case 3:
                store<ub8>(rec + 8, rid);
                store<ub8>(word, reinterpret_cast<ub8>(rec) | 5);
                return 0;
            case 5: {
                ub1 *c;
                if (const ub8 code = new_chunk(kv, 7, &c, grow, status)) return code;
                store<ub8>(c, kChainEnd);
                store<ub4>(c + 8, 3);
                store<ub8>(c + kChunkHead, load<ub8>(rec));
                store<ub8>(c + kChunkHead + 8, load<ub8>(rec + 8));
                store<ub8>(c + kChunkHead + 16, rid);
                store<ub8>(rec, reinterpret_cast<ub8>(c) + 1);
                store<ub8>(word, reinterpret_cast<ub8>(rec) | 7);
                return 0;
            }
            default: {
                ub1 *newest = reinterpret_cast<ub1 *>(load<ub8>(rec) - 1);
                const ub4 count = load<ub4>(newest + 8);
                const ub4 capacity = load<ub4>(newest + 12);
                if (count < capacity) {
                    store<ub8>(newest + kChunkHead + 8 * count, rid);
                    store<ub4>(newest + 8, count + 1);
                    return 0;
                }
                ub1 *c;
                if (const ub8 code = new_chunk(kv, grown_capacity(capacity), &c, grow, status)) return code;
                store<ub8>(c, reinterpret_cast<ub8>(newest));
                store<ub4>(c + 8, 1);
                store<ub8>(c + kChunkHead, rid);
                store<ub8>(rec, reinterpret_cast<ub8>(c) + 1);
                return 0;
            }
        }
    }
};

// ---- acnt: a seen bit and a seen-again bit a key, counts in region 1 ------------------
template <bool Unique>
struct Acnt {
    static constexpr ub4 kPageBits = kAcntPageBits;

    VORN_INLINE static ub1 *element(const vorn_kv *kv, ub4 key) { return acnt_element(kv, key); }

    VORN_INLINE static ub8 add(vorn_kv *kv, ub1 *elem, ub4 key, ub8, vorn_kv_grow_fn, ub8 *status) {
        const ub4 bit = 1u << (key & 31);
        const ub4 seen = load<ub4>(elem);
        if (!(seen & bit)) {
            store<ub4>(elem, seen | bit);
            return 0;
        }
        if constexpr (Unique) return 0;
        const vorn_kv_region &r1 = kv->regions[1];
        const ub4 page = key >> kPageBits;
        if (page >= r1.mapped || r1.pages[page] == nullptr) {
            status[0] = 1;
            status[1] = page;
            return 12;
        }
        ub1 *count = r1.pages[page] + ub8{key & ((1u << kPageBits) - 1)} * 8;
        const ub4 again = load<ub4>(elem + 4);
        if (!(again & bit)) {
            store<ub4>(elem + 4, again | bit);
            store<ub8>(count, 1);
        } else {
            store<ub8>(count, load<ub8>(count) + 1);
        }
        return 0;
    }
};

template <class Table, class Rows>
ub8 add_keys(vorn_kv *kv, ub8 rows, const Rows &in, ub8 *pos, vorn_kv_grow_fn grow, ub8 *status) {
    if (*pos >= rows) return 0;
    const ub8 key_limit = ub8{kv->regions[0].mapped} << Table::kPageBits;
    for (ub8 i = *pos; i < rows; i += kBatch) {
        const ub4 n = static_cast<ub4>(std::min<ub8>(kBatch, rows - i));
        ub1 *elem[kBatch];
        ub8 greatest = 0;
        bool outside = false;
        for (ub4 j = 0; j < n; ++j) {
            const ub4 key = in.key(i + j);
            if (key >= key_limit) {
                outside = true;
                greatest = std::max<ub8>(greatest, key);
                continue;
            }
            elem[j] = Table::element(kv, key);
            prefetch_read(elem[j]);
        }
        if (outside) {
            status[0] = 0;
            status[1] = greatest >> Table::kPageBits;
            *pos = i;
            return 11;
        }
        for (ub4 j = 0; j < n; ++j) {
            if (const ub8 code = Table::add(kv, elem[j], in.key(i + j), in.rid(i + j), grow, status)) {
                *pos = i + j;
                return code;
            }
        }
    }
    *pos = rows;
    return 0;
}

// The unique-keys flag is read once a call.
template <template <bool> class Table, class Rows>
ub8 add_array(vorn_kv *kv, ub8 rows, const Rows &in, ub8 *pos, vorn_kv_grow_fn grow, ub8 *status) {
    if (kv->flags & VORN_KV_UNIQUE) return add_keys<Table<true>>(kv, rows, in, pos, grow, status);
    return add_keys<Table<false>>(kv, rows, in, pos, grow, status);
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

using namespace vorn::kv;

// The three inputs of a row-id list table: key records, keys with row
// numbers, keys with a payload of the table's value width.
#define VORN_KV_ARID_MEMBERS(kind, table, Table, Rid)                                                             \
    ub8 vorn_kv_ll_add_##kind##_ridgd_##table(vorn_kv *kv, ub8 rows, const void *records, ub8 *pos,               \
                                              vorn_kv_grow_fn grow, ub8 *status) {                                \
        return add_array<Table>(kv, rows, KeyRecords{static_cast<const ub1 *>(records)}, pos, grow, status);      \
    }                                                                                                             \
    ub8 vorn_kv_ll_add_##kind##_key32_autorid_##table(vorn_kv *kv, ub8 rows, const ub4 *keys, ub8 base_rid,       \
                                                      ub8 *pos, vorn_kv_grow_fn grow, ub8 *status) {              \
        return add_array<Table>(kv, rows, KeysAutorid{keys, base_rid}, pos, grow, status);                        \
    }                                                                                                             \
    ub8 vorn_kv_ll_add_##kind##_key32_payload_##table(vorn_kv *kv, ub8 rows, const ub4 *keys,                     \
                                                      const void *payload, ub8 *pos, vorn_kv_grow_fn grow,        \
                                                      ub8 *status) {                                              \
        return add_array<Table>(kv, rows, KeysPayload<Rid>{keys, payload}, pos, grow, status);                    \
    }

VORN_KV_ARID_MEMBERS(k4v4, arid4, Arid4, ub4)
VORN_KV_ARID_MEMBERS(k4v8, arid8, Arid8, ub8)

ub8 vorn_kv_ll_add_k4_key32_acnt(vorn_kv *kv, ub8 rows, const ub4 *keys, ub8 *pos, vorn_kv_grow_fn grow,
                                 ub8 *status) {
    return add_array<Acnt>(kv, rows, KeysOnly{keys}, pos, grow, status);
}

}  // extern "C"
