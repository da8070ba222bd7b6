// kv_probe_named.h - what the probe entry and the vorn_kv_probe_* functions
// share: the tables of loops by kind, op and link, the op of a mode, and
// running a loop over keys already in slot form or staged into slots block
// by block, as the build stages them.
#pragma once

#include "kv/kv_probe.h"
#include "kv/kv_probe_call.h"
#include "kv/kv_probe_entries.h"

namespace vorn::kv {

using ProbeFn = decltype(&vorn_kv_ll_probe_k4v4_fixed_hash64_payload_value_idx);
enum : ub4 { kLinkIdx = 0, kLinkPtr = 1, kLinkPrefetch = 2 };

VORN_INLINE ub4 table_link(const vorn_kv *kv) {
    return (kv->flags & VORN_KV_PTR) == 0 ? kLinkIdx : (kv->flags & VORN_KV_PREFETCH) ? kLinkPrefetch : kLinkPtr;
}

// Loops by kind, op and link; null where none exists.
struct ProbeTable {
    ProbeFn fn[16][kProbeOps][3] = {};
    constexpr ProbeFn at(ub4 kind, ub4 op, ub4 link) const {
        return kind < 16 && op < kProbeOps ? fn[kind][op][link] : nullptr;
    }
};

// The low-level members of one input part ("hash64value", "hash32value",
// "fixed_hash64"), and the 32-bit-hash loops over slots that stand inline.
extern const ProbeTable kHash64Value;
extern const ProbeTable kHash32Value;
extern const ProbeTable kFixedHash64;
extern const ProbeTable kFixedHash32;

// The op of a mode for a table with or without values; kProbeOps: none.
ub4 mode_op(ub4 mode, bool value_kind, bool autorid);

// Runs `fn` over the rows from ctx->row_pos with keys already in slot form
// (null for tags): one call over all rows.
ub8 run_direct(ProbeCall &p, ProbeFn fn, const ub1 *slots, ub4 slot_bytes);
// The same with the keys of key_vec brought to slots of the kind's key
// bytes: a fixed column of that width is used in place, other fixed
// widths and keys of length and address are staged in blocks.
ub8 run_key_bytes(ProbeCall &p, ProbeFn fn, ub4 key_bytes);

// Where the keys of a probe come from.
enum class KeyShape : ub1 { kCodes, kFixed, kStaged };
// Which loops: those of 64-bit or 32-bit hashes, or by the hash column.
enum class HashWidth : ub1 { k64, k32, kByColumn };

// A probe of a bucket table with slot keys, from the mode on: 14 for a
// mode the table lacks, 2 where no loop fits the link or the hash width.
template <ub4 Kind, KeyShape Shape, HashWidth Width>
ub8 probe_slots(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec, vorn_vec *rows, vorn_vec *key_vec,
                vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 *stats) {
    ProbeCall p{rows_out, values_out, hash_vec, rows, key_vec, kv, ctx, stats};
    if (mode > 11) return 14;
    const ub4 op = mode_op(mode, kBucketKinds[Kind].value_bytes != 0, p.autorid());
    if (op >= kProbeOps) return 14;
    const ub4 wc = width_code(hash_vec);
    const bool hash32 = Width == HashWidth::k32 || (Width == HashWidth::kByColumn && wc == kWidth32);
    if (Width == HashWidth::kByColumn && wc != kWidth32 && wc != kWidth64) return 2;
    const ProbeFn fn = (hash32 ? kFixedHash32 : kFixedHash64).at(Kind, op, table_link(kv));
    if (fn == nullptr) return 2;
    if (ctx->row_pos >= hash_vec->size) return p.finish(0);
    if constexpr (Shape == KeyShape::kCodes) return run_direct(p, fn, static_cast<const ub1 *>(key_vec->data), 4);
    return run_key_bytes(p, fn, kBucketKinds[Kind].key_bytes);
}

}  // namespace vorn::kv
