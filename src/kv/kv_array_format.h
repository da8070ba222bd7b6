// kv_array_format.h - where a key lives in the array tables, shared by the
// adds and the probes.  arid4: 34-byte elements of eight keys in region 0,
// 17-byte list records in region 1, chunks of 2-byte units in region 2.
// arid8: one ub8 word a key in region 0, list records and chunks of 8-byte
// units in region 1.  acnt: a seen bit and a seen-again bit a key in
// region 0, a ub8 count a key in region 1.
#pragma once

#include "frame/base.h"
#include "kv/kv_kinds.h"

namespace vorn::kv {

inline constexpr ub4 kArid4ChunkHead = 12;   // ub2 count, ub2 capacity, ub8 next; ub4 rids from 12
inline constexpr ub4 kArid8ChunkHead = 16;   // ub8 next, ub4 count, ub4 capacity; ub8 rids from 16
inline constexpr ub8 kArid8ChainEnd = 1;     // a next word with bit 0 set ends an arid8 chain

// Unit `id` of a region of `unit_bytes` units.
VORN_INLINE ub1 *array_unit(const vorn_kv_region &r, ub8 id, ub4 unit_bytes) {
    return r.pages[id >> r.page_bits] + (id & ((ub8{1} << r.page_bits) - 1)) * unit_bytes;
}

VORN_INLINE ub1 *arid4_element(const vorn_kv *kv, ub4 key) {
    return kv->regions[0].pages[key >> kArid4PageBits] +
           ((key & ((1u << kArid4PageBits) - 1)) >> 3) * kArid4ElementBytes;
}
VORN_INLINE ub1 *arid8_word(const vorn_kv *kv, ub4 key) {
    return kv->regions[0].pages[key >> kArid8PageBits] + (key & ((1u << kArid8PageBits) - 1)) * 8;
}
VORN_INLINE ub1 *acnt_element(const vorn_kv *kv, ub4 key) {
    return kv->regions[0].pages[key >> kAcntPageBits] + ((key & ((1u << kAcntPageBits) - 32)) >> 5) * 8;
}
// The count word of an acnt key, or null when its page is not mapped.
VORN_INLINE ub1 *acnt_count(const vorn_kv *kv, ub4 key) {
    const vorn_kv_region &r1 = kv->regions[1];
    const ub4 page = key >> kAcntPageBits;
    if (r1.pages == nullptr || page >= r1.mapped || r1.pages[page] == nullptr) return nullptr;
    return r1.pages[page] + ub8{key & ((1u << kAcntPageBits) - 1)} * 8;
}

}  // namespace vorn::kv
