// kv_probe_hash32.cpp - the probe loops of 32-bit hashes over slot keys
// (fixed keys and ub4 dictionary codes, which are 4-byte slots).  They have
// no low-level member of their own: the vorn_kv_probe_*_hash32_fixed and
// *_gdhc_gd functions run them through this table.
#include <utility>

#include "kv/kv_probe_named.h"

namespace vorn::kv {
namespace {

template <ub4 K, Link L, bool PF, ub4 Op>
ub8 inline_probe_hash32(const vorn_kv *kv, ub8 rows, const void *hashes, const ub1 *keys, const ub8 *payload,
                        ub8 base_rid, ub8 capacity, ub8 *rows_out, void *values_out, ub8 *bv, ub8 bv_base,
                        ub8 *row_reached, ub8 *out_count, vorn_kernel_ctx *ctx, ub8 *stats) {
    const ProbeIo io{hashes, keys, payload, base_rid, capacity, rows_out, values_out, bv, bv_base};
    return probe_rows<K, L, PF, true, kProbeSlot, Op>(kv, rows, io, row_reached, out_count, ctx, stats);
}
// Only the ops a mode can pick for the kind: value kinds write values or
// count, key-only kinds never touch values.
template <ub4 K, ub4 Op>
constexpr bool op_fits_kind() {
    constexpr ProbeOp o = probe_op_traits(Op);
    if (kBucketKinds[K].value_bytes == 0) return !(o.value || o.segbv || o.mutkv);
    return o.value || (o.count && !o.distinct && !o.nonmatch);
}
template <ub4 K, ub4 Op, ub4 LinkNo>
constexpr ProbeFn inline_member() {
    constexpr ProbeOp o = probe_op_traits(Op);
    if constexpr (!op_fits_kind<K, Op>() || (o.mutkv && LinkNo == kLinkIdx)) {
        return nullptr;
    } else {
        return &inline_probe_hash32<K, LinkNo == kLinkIdx ? kIdx : kPtr, LinkNo == kLinkPrefetch, Op>;
    }
}
template <ub4 K, ub4... Ops>
constexpr void take_inline(ProbeTable &t, std::integer_sequence<ub4, Ops...>) {
    ((t.fn[K][Ops][kLinkIdx] = inline_member<K, Ops, kLinkIdx>(),
      t.fn[K][Ops][kLinkPtr] = inline_member<K, Ops, kLinkPtr>(),
      t.fn[K][Ops][kLinkPrefetch] = inline_member<K, Ops, kLinkPrefetch>()),
     ...);
}
template <ub4... Kinds>
constexpr ProbeTable inline_members() {
    ProbeTable t;
    (take_inline<Kinds>(t, std::make_integer_sequence<ub4, kProbeOps>{}), ...);
    return t;
}

}  // namespace

constexpr ProbeTable kFixedHash32 = inline_members<3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15>();

}  // namespace vorn::kv
