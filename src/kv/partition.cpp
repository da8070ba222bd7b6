// partition.cpp - vorn_partition_dydi: rows scattered into the host's
// partition buffers by a range of bits of their hash.
//
// The loop is chosen once, before the first row, from the record flags and
// the columns' flags:
//   1. src VORN_ALIGNED with a third column: hashes are there, and the
//      record shapes with references, 32-bit values and payloads apply;
//   2. src VORN_KEY32: 32-bit keys that are their own hash;
//   3. row id and hash: keys hashed here, a column of hashes, or finished
//      {row id, hash} records;
//   4. the self-describing variable record, then {hash, payload}.
// A combination that none of these serves returns 2 with nothing written.
#include "frame/entries.h"
#include "kv/partition_shapes.h"

extern "C" ub8 vorn_partition_dydi(vorn_partition_ctrl *ctrl, vorn_vec *src, vorn_vec *second,
                                   vorn_vec *third, vorn_hash_fn hash, vorn_kernel_ctx *kctx) {
    using namespace vorn::part;
    const ub4 f = ctrl->flags;
    const ub4 sf = column_flags(src);
    if ((sf & VORN_ALIGNED) && third) return partition_hashed(ctrl, src, second, third, kctx);
    if (sf & VORN_KEY32) return partition_key32(ctrl, src, second, kctx);
    if (holds(f, VORN_PART_RID | VORN_PART_HASH)) return partition_rid_hash(ctrl, src, second, kctx, hash);
    const bool variable = holds(f, VORN_PART_VAR | VORN_PART_HASH);
    const bool payload = holds(f, VORN_PART_PAYLOAD | VORN_PART_HASH);
    // The shapes that copy payload bytes do not take bit 16.
    if ((variable || payload) && (f & VORN_PART_NO_COPY)) return kUnsupported;
    if (variable) return partition_variable(ctrl, src, second, kctx, hash);
    if (payload) return partition_hash_payload(ctrl, src, second, kctx, hash);
    return kUnsupported;
}
