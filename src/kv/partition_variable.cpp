// partition_variable.cpp - the self-describing records of
// vorn_partition_dydi: ub2 (payload length + 8), the hash, the payload.  One
// loop for each pair of a key layout (or a column of hashes) and a payload
// layout, and the re-partition of such records on other hash bits.
#include "kv/partition_shapes.h"

namespace vorn::part {
namespace {

// Records that begin with their hash (VORN_LV whose values start with the
// ub8 hash) are copied whole, length included; byte_pos walks them.
VORN_NOINLINE ub8 repartition(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                              vorn_kernel_ctx *k) {
    const ub8 n = src->size;
    if (k->row_pos >= n) {
        k->row_pos = static_cast<ub4>(n);
        return kDone;
    }
    const Target t(ctrl, 0);
    const ub1 *base = layout::bytes_of(src->data);
    const ub1 *p = base + k->byte_pos;
    for (ub8 row = k->row_pos; row < n; ++row) {
        const ub8 size = ub8{load<ub2>(p)} + 2;
        const ub8 h = load<ub8>(p + 2);
        const ub8 part = t.part(h);
        ub1 *c = t.cursor(part);
        if (VORN_UNLIKELY(!t.room(part, c, size))) {
            k->stop_part = static_cast<ub4>(part);
            k->row_pos = static_cast<ub4>(row);
            k->byte_pos = static_cast<ub8>(p - base);
            return kFull;
        }
        fast_copy(c, p, size);
        t.cursors[part] = c + size;
        p += size;
    }
    k->row_pos = static_cast<ub4>(n);
    k->byte_pos = static_cast<ub8>(p - base);
    return kDone;
}

template <class Walk>
ub8 variable(const vorn_partition_ctrl *ctrl, const vorn_vec *src, const vorn_vec *payload,
             vorn_kernel_ctx *k, vorn_hash_fn fn) {
    return place_by_source(ctrl, src, VarRecord<Walk>(payload, k), k, fn);
}

}  // namespace

ub8 partition_variable(const vorn_partition_ctrl *ctrl, const vorn_vec *src,
                       const vorn_vec *second, vorn_kernel_ctx *k, vorn_hash_fn fn) {
    if (holds(column_flags(src), VORN_ALIGNED | VORN_LV)) return repartition(ctrl, src, k);
    if (!second || !(column_flags(src) & kSourceLayouts)) return kUnsupported;
    const ub4 f = column_flags(second);
    if (f & VORN_FIXED) return variable<RandomPayload<FixedRefs>>(ctrl, src, second, k, fn);
    if (f & VORN_LV_SEP) return variable<LvSepWalk>(ctrl, src, second, k, fn);
    if (f & VORN_LV) return variable<LvWalk>(ctrl, src, second, k, fn);
    if (f & VORN_PTR_LEN) return variable<RandomPayload<layout::PtrLen>>(ctrl, src, second, k, fn);
    if (f & VORN_LEN_PTR) return variable<RandomPayload<layout::LenPtr>>(ctrl, src, second, k, fn);
    return kUnsupported;
}

}  // namespace vorn::part
