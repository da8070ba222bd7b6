// partition_shapes.h - the groups of loops of vorn_partition_dydi, one per
// step of its choice, each in a translation unit of its own.  Each returns
// the kernel's code: 0, 2 or 6.
#pragma once

#include <type_traits>

#include "kv/partition_records.h"

namespace vorn::part {

VORN_INLINE bool holds(ub4 flags, ub4 bits) { return (flags & bits) == bits; }

VORN_INLINE ub4 column_flags(const vorn_vec *v) { return v->enc_ctx ? v->enc_ctx->flags : 0; }

// Calls fn with the row-id reader type of `rids`: VORN_AUTORID numbers rows
// from base_rid, anything else holds ub8 row ids.
template <class Fn>
VORN_INLINE ub8 with_rids(const vorn_vec *rids, Fn &&fn) {
    if (column_flags(rids) & VORN_AUTORID) return fn(std::type_identity<AutoRids>{});
    return fn(std::type_identity<StoredRids>{});
}

// Hashes are there: src VORN_ALIGNED and a third column.
ub8 partition_hashed(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
                     const vorn_vec *third, vorn_kernel_ctx *k);
// Native 32-bit keys that are their own hash.
ub8 partition_key32(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
                    vorn_kernel_ctx *k);
// {row id, hash} over keys, hashes or finished records.
ub8 partition_rid_hash(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                       const vorn_vec *second, vorn_kernel_ctx *k, vorn_hash_fn fn);
// {hash, fixed payload}.
ub8 partition_hash_payload(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                           const vorn_vec *second, vorn_kernel_ctx *k, vorn_hash_fn fn);
// The self-describing variable record, and the re-partition of such records.
ub8 partition_variable(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                       const vorn_vec *second, vorn_kernel_ctx *k, vorn_hash_fn fn);

// Places the rows of `src` with `rec`: keys in one of the five value layouts
// are hashed here, a VORN_ALIGNED column is read as ub8 hashes.  The
// layouts are tried in the order VORN_FIXED, VORN_LV_SEP, VORN_LV,
// VORN_PTR_LEN, VORN_LEN_PTR, VORN_ALIGNED; none of them gives 2.
template <class Rec>
ub8 place_by_source(const vorn_partition_ctrl *ctrl, const vorn_vec *src, Rec rec,
                    vorn_kernel_ctx *k, vorn_hash_fn fn) {
    const ub4 f = column_flags(src);
    if (f & VORN_FIXED) return partition_keys<FixedKeys>(ctrl, src, rec, k, fn);
    if (f & VORN_LV_SEP) return partition_keys<WalkedKeys<LvSepWalk>>(ctrl, src, rec, k, fn);
    if (f & VORN_LV) return partition_keys<WalkedKeys<LvWalk>>(ctrl, src, rec, k, fn);
    if (f & VORN_PTR_LEN) return partition_keys<PointerKeys<layout::PtrLen>>(ctrl, src, rec, k, fn);
    if (f & VORN_LEN_PTR) return partition_keys<PointerKeys<layout::LenPtr>>(ctrl, src, rec, k, fn);
    if (f & VORN_ALIGNED) return partition_rows(ctrl, HashColumn<ub8>(src), rec, k, src->size);
    return kUnsupported;
}

inline constexpr ub4 kSourceLayouts =
    VORN_FIXED | VORN_LV_SEP | VORN_LV | VORN_PTR_LEN | VORN_LEN_PTR | VORN_ALIGNED;

}  // namespace vorn::part
