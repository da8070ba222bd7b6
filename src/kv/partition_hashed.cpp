// partition_hashed.cpp - the loops of vorn_partition_dydi over hashes that
// are already computed: a VORN_ALIGNED hash column with a third column, and
// native 32-bit keys.
#include "kv/partition_shapes.h"

namespace vorn::part {
namespace {

template <class Rec>
ub8 rows_of(const vorn_partition_ctrl *ctrl, const vorn_vec *src, Rec rec, vorn_kernel_ctx *k) {
    return partition_rows(ctrl, HashColumn<ub8>(src), rec, k, src->size);
}

// {address, length}, with or without row id, from a third column of
// VORN_FIXED, VORN_PTR_LEN or VORN_LEN_PTR.
template <class Rids>
ub8 references(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
               const vorn_vec *third, vorn_kernel_ctx *k) {
    const ub4 f = column_flags(third);
    if (f & VORN_FIXED) return rows_of(ctrl, src, RefRecord<FixedRefs, Rids>(second, third), k);
    if (f & VORN_PTR_LEN) return rows_of(ctrl, src, RefRecord<layout::PtrLen, Rids>(second, third), k);
    if (f & VORN_LEN_PTR) return rows_of(ctrl, src, RefRecord<layout::LenPtr, Rids>(second, third), k);
    return kUnsupported;
}

// A ub4 value from the third column beside a hash of 4 or 8 bytes.
template <class Rids>
ub8 values32(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
             const vorn_vec *third, vorn_kernel_ctx *k) {
    switch (src->enc_ctx->bit_width >> 3) {
        case 4:
            return partition_rows(ctrl, HashColumn<ub4>(src), Value32Record<ub4, Rids>(second, third),
                                  k, src->size);
        case 8:
            return rows_of(ctrl, src, Value32Record<ub8, Rids>(second, third), k);
        default:
            return kUnsupported;
    }
}

// A fixed payload of 4 or 8 bytes from the third column, widened to ub8.
template <class Rids>
ub8 payloads(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
             const vorn_vec *third, vorn_kernel_ctx *k) {
    if (!(column_flags(third) & VORN_FIXED)) return kUnsupported;
    switch (third->enc_ctx->bit_width >> 3) {
        case 4:
            return rows_of(ctrl, src, PayloadHashRecord<ub4, Rids>(second, third), k);
        case 8:
            return rows_of(ctrl, src, PayloadHashRecord<ub8, Rids>(second, third), k);
        default:
            return kUnsupported;
    }
}

}  // namespace

ub8 partition_hashed(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
                     const vorn_vec *third, vorn_kernel_ctx *k) {
    const ub4 f = ctrl->flags;
    auto with_row_ids = [&](auto loop) {
        return with_rids(second, [&](auto rids) { return loop(rids); });
    };
    if (holds(f, VORN_PART_HASH | VORN_PART_REF)) {
        if (f & VORN_PART_RID) {
            return with_row_ids([&](auto rids) {
                return references<typename decltype(rids)::type>(ctrl, src, second, third, k);
            });
        }
        return references<void>(ctrl, src, second, third, k);
    }
    if (holds(f, VORN_PART_RID | VORN_PART_HASH | VORN_PART_VALUE32)) {
        return with_row_ids([&](auto rids) {
            return values32<typename decltype(rids)::type>(ctrl, src, second, third, k);
        });
    }
    if (holds(f, VORN_PART_HASH | VORN_PART_VALUE32)) return values32<void>(ctrl, src, second, third, k);
    if (holds(f, VORN_PART_RID | VORN_PART_PAYLOAD | VORN_PART_HASH)) {
        return with_row_ids([&](auto rids) {
            return payloads<typename decltype(rids)::type>(ctrl, src, second, third, k);
        });
    }
    if (holds(f, VORN_PART_PAYLOAD | VORN_PART_HASH)) return payloads<void>(ctrl, src, second, third, k);
    if (holds(f, VORN_PART_RID | VORN_PART_HASH)) {
        return with_row_ids([&](auto rids) {
            return rows_of(ctrl, src, RidHashRecord<typename decltype(rids)::type>(second, src), k);
        });
    }
    if (f & VORN_PART_HASH) return rows_of(ctrl, src, HashRecord(second, src), k);
    return kUnsupported;
}

ub8 partition_key32(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *second,
                    vorn_kernel_ctx *k) {
    const ub4 f = ctrl->flags;
    const HashColumn<ub4> keys(src);
    if (holds(f, VORN_PART_RID | VORN_PART_VALUE32)) {
        return with_rids(second, [&](auto rids) {
            using Rids = typename decltype(rids)::type;
            return partition_rows(ctrl, keys, Key32Record<Rids>(second, src), k, src->size);
        });
    }
    if (f & VORN_PART_VALUE32) return partition_rows(ctrl, keys, Key32Record<void>(second, src), k, src->size);
    return kUnsupported;
}

}  // namespace vorn::part
