// kv_add_folded.cpp - the vorn_kv_add_* members: the bucket loop with the
// reading of the input vectors folded in.  Each member serves both links,
// a fixed segment or the hash's, and row numbers or a payload as values;
// those ways are chosen once a call.
#include "kv/kv_build.h"

namespace vorn::kv {
namespace {

#define VORN_KV_ADD_ARGS                                                                      \
    vorn_kv *kv, vorn_vec *hash_vec, vorn_vec *val_vec, vorn_vec *key_vec, sb8 segment_id,    \
        vorn_kernel_ctx *ctx, vorn_kv_grow_fn grow, ub8 *status

// Every folded member of a value kind needs the value column.
#define VORN_KV_NEEDS_VALUES(K) \
    if (kBucketKinds[K].value_bytes != 0 && val_vec == nullptr) return 2

// A column of hashes (ub8 or ub4) with keys that are the hashes' tags or
// the ub4 dictionary codes of key_vec; values from val_vec.
template <ub4 K, bool Hash32, KeyFrom Key>
ub8 add_hashed(VORN_KV_ADD_ARGS) {
    VORN_KV_NEEDS_VALUES(K);
    ub1 *segment = vorn_map_segment(kv, segment_id);
    const ub1 *codes = Key == kCode ? static_cast<const ub1 *>(key_vec->data) : nullptr;
    return run_values<K, Hash32, Key, Key == kCode ? 4 : 0>(kv, segment, hash_vec->size, hash_vec->data, codes,
                                                             val_vec, ctx, grow, status);
}
template <ub4 K> constexpr auto add_hash64_values_hash = add_hashed<K, false, kTag>;
template <ub4 K> constexpr auto add_hash32_values_hash = add_hashed<K, true, kTag>;
template <ub4 K> constexpr auto add_gd_gd = add_hashed<K, false, kCode>;
template <ub4 K> constexpr auto add_gdhc_gd = add_hashed<K, true, kCode>;

// A fixed-width key column staged into slots, 32-bit hashes.
template <ub4 K, ValueFrom Value>
ub8 add_fixed_blocks(vorn_kv *kv, ub1 *segment, const vorn_vec *hash_vec, const vorn_vec *val_vec,
                     const vorn_vec *key_vec, vorn_kernel_ctx *ctx, vorn_kv_grow_fn grow, ub8 *status) {
    constexpr ub4 V = kBucketKinds[K].value_bytes;
    const ub4 *hashes = static_cast<const ub4 *>(hash_vec->data);
    const ub1 *payload = static_cast<const ub1 *>(val_vec->data);
    const ub8 base_rid = val_vec->base_rid;
    auto stage = [&](ub1 *slots, ub8 first, ub8 n) { return stage_fixed_keys<K>(slots, key_vec, first, n); };
    auto add = [&](ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
        const ArrayInput<true, kBytes, Value, V, K> in{hashes + first, slots,
                                                       Value == kPayload ? payload + first * V : nullptr,
                                                       base_rid + first};
        return add_linked<K>(kv, segment, n, in, done, grow, status);
    };
    return staged_blocks<K>(hash_vec->size, ctx, stage, add);
}
template <ub4 K> ub8 add_hash32_fixed(VORN_KV_ADD_ARGS) {
    VORN_KV_NEEDS_VALUES(K);
    ub1 *segment = vorn_map_segment(kv, segment_id);
    if (is_autorid(val_vec))
        return add_fixed_blocks<K, kAutorid>(kv, segment, hash_vec, val_vec, key_vec, ctx, grow, status);
    return add_fixed_blocks<K, kPayload>(kv, segment, hash_vec, val_vec, key_vec, ctx, grow, status);
}

// Records with the key by address and length: 0x28 {address, length, hash
// at 16}; 0x29 {row id, hash, address, length}.
template <ub4 K> ub8 add_lphash_direct(VORN_KV_ADD_ARGS) {
    ub1 *segment = vorn_map_segment(kv, segment_id);
    return run_links<K>(kv, segment, hash_vec->size,
                        RecordInput<24, 16, false, kLenPtr, 0, -1>{static_cast<const ub1 *>(hash_vec->data)}, ctx,
                        grow, status);
}
template <ub4 K> ub8 add_ridlphash_direct(VORN_KV_ADD_ARGS) {
    ub1 *segment = vorn_map_segment(kv, segment_id);
    return run_links<K>(kv, segment, hash_vec->size,
                        RecordInput<32, 8, false, kLenPtr, 16, 0>{static_cast<const ub1 *>(hash_vec->data)}, ctx,
                        grow, status);
}

}  // namespace
}  // namespace vorn::kv

#define VORN_KV_ADD_DEFINE(kind, input)                                                          \
    VORN_KV_ADD_SIGNATURE(kind, input) {                                                         \
        return vorn::kv::add_##input<vorn::kv::kind_number(#kind)>(kv, hash_vec, val_vec, key_vec, \
                                                                   segment_id, ctx, grow, status); \
    }

extern "C" {
VORN_KV_ADD_MEMBERS(VORN_KV_ADD_DEFINE)
}  // extern "C"
