// partition_keys.cpp - the {row id, hash} and {hash, payload} loops of
// vorn_partition_dydi, over keys hashed here, a column of hashes, or (for
// {row id, hash}) finished records.
#include "kv/partition_shapes.h"

namespace vorn::part {

ub8 partition_rid_hash(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                       const vorn_vec *second, vorn_kernel_ctx *k, vorn_hash_fn fn) {
    const ub4 f = column_flags(src);
    if (f & kSourceLayouts) {
        return with_rids(second, [&](auto rids) {
            using Rids = typename decltype(rids)::type;
            return place_by_source(ctrl, src, RidHashRecord<Rids>(second, src), k, fn);
        });
    }
    if (VORN_KEY_KIND(f) == VORN_KEY_KIND_RIDHASH) {
        return partition_rows(ctrl, RidHashRecords(src), RidHashCopy(second, src), k, src->size);
    }
    return kUnsupported;
}

ub8 partition_hash_payload(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                           const vorn_vec *second, vorn_kernel_ctx *k, vorn_hash_fn fn) {
    if (!second || !(column_flags(second) & VORN_FIXED)) return kUnsupported;
    return place_by_source(ctrl, src, HashPayloadRecord(second, ctrl->payload_bytes), k, fn);
}

}  // namespace vorn::part
