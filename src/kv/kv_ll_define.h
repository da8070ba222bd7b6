// kv_ll_define.h - how each input part of a low-level bucket member reads
// its rows, and the definition of a member from its list entry.  Included
// by the translation units that instantiate the family.
#pragma once

#include "kv/kv_bucket_add.h"

namespace vorn::kv {

template <ub4 K>
inline constexpr ub4 kValueBytes = kBucketKinds[K].value_bytes;
template <ub4 K>
inline constexpr ub4 kKeyBytes = kBucketKinds[K].key_bytes;

}  // namespace vorn::kv

// Record shapes: RecordInput<stride, hash at, 32-bit hash, key from, key at, value at>.
#define VORN_KV_INPUT_ridhash(K) RecordInput<16, 8, false, kTag, 0, 0>{static_cast<const ub1 *>(records)}
#define VORN_KV_INPUT_ridgdhash(K) RecordInput<24, 16, false, kCode, 8, 0>{static_cast<const ub1 *>(records)}
#define VORN_KV_INPUT_ridgdcachedhash(K) RecordInput<16, 4, true, kCode, 0, 8>{static_cast<const ub1 *>(records)}
#define VORN_KV_INPUT_gdhash(K) RecordInput<16, 8, false, kCode, 0, -1>{static_cast<const ub1 *>(records)}
#define VORN_KV_INPUT_gdcachedhash(K) RecordInput<8, 4, true, kCode, 0, -1>{static_cast<const ub1 *>(records)}
#define VORN_KV_INPUT_ridfixedhash(K) RecordInput<24, 8, false, kBytes, 0, 16>{static_cast<const ub1 *>(records)}
#define VORN_KV_INPUT_fixedhash(K) RecordInput<16, 8, false, kBytes, 0, -1>{static_cast<const ub1 *>(records)}
// Array shapes: ArrayInput<32-bit hash, key from, value from, value bytes, key stride>.
#define VORN_KV_INPUT_hash32value_payload(K) \
    ArrayInput<true, kTag, kPayload, kValueBytes<K>, 0>{hashes, nullptr, payload, 0}
#define VORN_KV_INPUT_hash32value_autorid(K) \
    ArrayInput<true, kTag, kAutorid, kValueBytes<K>, 0>{hashes, nullptr, nullptr, base_rid}
#define VORN_KV_INPUT_gd_hash64(K) \
    ArrayInput<false, kCode, kNoValue, 0, 4>{hashes, reinterpret_cast<const ub1 *>(codes), nullptr, 0}
#define VORN_KV_INPUT_gd_hash32(K) \
    ArrayInput<true, kCode, kNoValue, 0, 4>{hashes, reinterpret_cast<const ub1 *>(codes), nullptr, 0}
#define VORN_KV_INPUT_fixed_hash64_payload(K) \
    ArrayInput<false, kBytes, kPayload, kValueBytes<K>, kKeyBytes<K>>{hashes, slots, payload, 0}
#define VORN_KV_INPUT_fixed_hash64_autorid(K) \
    ArrayInput<false, kBytes, kAutorid, kValueBytes<K>, kKeyBytes<K>>{hashes, slots, nullptr, base_rid}
#define VORN_KV_INPUT_fixed_hash64(K) ArrayInput<false, kBytes, kNoValue, 0, kKeyBytes<K>>{hashes, slots, nullptr, 0}
#define VORN_KV_INPUT_fixed_hash32(K) ArrayInput<true, kBytes, kNoValue, 0, kKeyBytes<K>>{hashes, slots, nullptr, 0}

#define VORN_KV_LL_DEFINE_LINK(kind, input, link, L)                                             \
    VORN_KV_LL_SIGNATURE(kind, input, link) {                                                    \
        using namespace vorn::kv;                                                                \
        constexpr ub4 K = kind_number(#kind);                                                    \
        return add_rows<K, L>(kv, segment_base, rows, VORN_KV_INPUT_##input(K), pos, grow, status); \
    }
#define VORN_KV_LL_DEFINE(kind, input)                         \
    VORN_KV_LL_DEFINE_LINK(kind, input, idx, kIdx)             \
    VORN_KV_LL_DEFINE_LINK(kind, input, ptr, kPtr)
