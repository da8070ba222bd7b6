// kv_probe_define.h - the definition of a low-level probe member from its
// list entry.  Included by the translation units that instantiate the family.
#pragma once

#include "kv/kv_bucket_add.h"
#include "kv/kv_probe.h"
#include "kv/kv_probe_entries.h"

namespace vorn::kv {

// Key source and hash width of an input part.
constexpr bool input_is_tag(const char *input) { return name_has(input, "value"); }
constexpr bool input_is_hash32(const char *input) { return name_has(input, "hash32"); }

}  // namespace vorn::kv

#define VORN_KV_PROBE_DEFINE_LINK(kind, input, op, link, L, PF)                                          \
    VORN_KV_PROBE_SIGNATURE(kind, input, op, link) {                                                     \
        using namespace vorn::kv;                                                                        \
        constexpr ub4 K = kind_number(#kind);                                                            \
        constexpr ProbeKey Key = input_is_tag(#input) ? kProbeTag : kProbeSlot;                          \
        const ProbeIo io{hashes, keys, payload, base_rid, capacity, rows_out, values_out, bv, bv_base};  \
        return probe_rows<K, L, PF, input_is_hash32(#input), Key, probe_op(#op)>(kv, rows, io, row_reached, \
                                                                                  out_count, ctx, stats); \
    }
#define VORN_KV_PROBE_DEFINE_PTR(kind, input, op)                                \
    VORN_KV_PROBE_DEFINE_LINK(kind, input, op, ptr, kPtr, false)                 \
    VORN_KV_PROBE_DEFINE_LINK(kind, input, op, ptr_prefetch, kPtr, true)
#define VORN_KV_PROBE_DEFINE(kind, input, op)                                    \
    VORN_KV_PROBE_DEFINE_LINK(kind, input, op, idx, kIdx, false)                 \
    VORN_KV_PROBE_DEFINE_PTR(kind, input, op)
