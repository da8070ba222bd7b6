// kv_probe_entries.h - the named symbols of probing: the probe entry, the
// table scan and the low-level probe family.  The member lists below are
// the one place a member's name is written; declarations here, definitions
// in the kv_ll_probe_*.cpp files and the entry's member tables expand them.
#pragma once

#include "frame/base.h"

extern "C" {

VORN_INTERNAL ub8 vorn_probe_kv_dydi(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec,
                                     vorn_vec *rows, vorn_vec *key_vec, vorn_kv *kv, ub4 mode,
                                     vorn_kernel_ctx *ctx, ub8 *stats);
VORN_INTERNAL ub8 vorn_mut_kv_scan_dydi(vorn_vec *out, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx,
                                        ub8 num_segments);

}  // extern "C"

// Every low-level probe member has the same arguments: the table, the rows,
// the hashes, the key slots (null for tags), the identities (a ub8 array,
// or the first row number), the output capacity and arrays (identities as
// ub8, values in the kind's width), the bit vector and its base, the row
// reached and the output count (both read and written), ctx and stats.
// Arguments an op does not use are ignored.
#define VORN_KV_PROBE_SIGNATURE(kind, input, op, link)                                                   \
    ub8 vorn_kv_ll_probe_##kind##_##input##_##op##_##link(                                               \
        const vorn_kv *kv, ub8 rows, const void *hashes, const ub1 *keys, const ub8 *payload, ub8 base_rid, \
        ub8 capacity, ub8 *rows_out, void *values_out, ub8 *bv, ub8 bv_base, ub8 *row_reached,            \
        ub8 *out_count, vorn_kernel_ctx *ctx, ub8 *stats)

// Ops by family: M(kind, input, op).
#define VORN_KV_PROBE_TAG_OPS(M, kind, input) M(kind, input, payload_value) M(kind, input, autorid_value)
#define VORN_KV_PROBE_KEY_OPS(M, kind, input)                                                         \
    M(kind, input, payload) M(kind, input, autorid) M(kind, input, count)                             \
    M(kind, input, distinct_payload) M(kind, input, distinct_autorid) M(kind, input, count_distinct)  \
    M(kind, input, payload_nonmatch) M(kind, input, autorid_nonmatch) M(kind, input, count_nonmatch)
#define VORN_KV_PROBE_VALUE_OPS(M, kind, input)                                                        \
    M(kind, input, payload_value) M(kind, input, autorid_value) M(kind, input, value)                  \
    M(kind, input, count) M(kind, input, distinct_payload_value) M(kind, input, distinct_autorid_value) \
    M(kind, input, payload_value_nonmatch) M(kind, input, autorid_value_nonmatch)                      \
    M(kind, input, payload_value_segbv) M(kind, input, autorid_value_segbv) M(kind, input, count_segbv)
#define VORN_KV_PROBE_MUTKV_OPS(M, kind, input) \
    M(kind, input, payload_value_mutkv) M(kind, input, autorid_value_mutkv) M(kind, input, count_mutkv)

// The members by translation unit: M(kind, input, op); each stands for its
// `idx`, `ptr` and `ptr_prefetch` links, the mutkv ones for the last two.
#define VORN_KV_PROBE_TAG_MEMBERS(M)                                                                   \
    VORN_KV_PROBE_TAG_OPS(M, k2v4, hash64value) VORN_KV_PROBE_TAG_OPS(M, k2v8, hash64value)             \
    VORN_KV_PROBE_TAG_OPS(M, k4v4, hash64value) VORN_KV_PROBE_TAG_OPS(M, k4v8, hash64value)             \
    VORN_KV_PROBE_TAG_OPS(M, k2v4, hash32value) VORN_KV_PROBE_TAG_OPS(M, k2v8, hash32value)             \
    VORN_KV_PROBE_TAG_OPS(M, k4v4, hash32value) VORN_KV_PROBE_TAG_OPS(M, k4v8, hash32value)
#define VORN_KV_PROBE_KEY_MEMBERS(M)                                                                   \
    VORN_KV_PROBE_KEY_OPS(M, k4, fixed_hash64) VORN_KV_PROBE_KEY_OPS(M, k6, fixed_hash64)               \
    VORN_KV_PROBE_KEY_OPS(M, k8, fixed_hash64) VORN_KV_PROBE_KEY_OPS(M, k12, fixed_hash64)
#define VORN_KV_PROBE_VALUE_MEMBERS_A(M)                                                               \
    VORN_KV_PROBE_VALUE_OPS(M, k4v4, fixed_hash64) VORN_KV_PROBE_VALUE_OPS(M, k4v8, fixed_hash64)       \
    VORN_KV_PROBE_VALUE_OPS(M, k6v4, fixed_hash64) VORN_KV_PROBE_VALUE_OPS(M, k6v8, fixed_hash64)
#define VORN_KV_PROBE_VALUE_MEMBERS_B(M)                                                               \
    VORN_KV_PROBE_VALUE_OPS(M, k8v4, fixed_hash64) VORN_KV_PROBE_VALUE_OPS(M, k8v8, fixed_hash64)       \
    VORN_KV_PROBE_VALUE_OPS(M, k10v4, fixed_hash64) VORN_KV_PROBE_VALUE_OPS(M, k12v4, fixed_hash64)
#define VORN_KV_PROBE_MUTKV_MEMBERS(M)                                                                 \
    VORN_KV_PROBE_MUTKV_OPS(M, k4v4, fixed_hash64) VORN_KV_PROBE_MUTKV_OPS(M, k4v8, fixed_hash64)       \
    VORN_KV_PROBE_MUTKV_OPS(M, k6v4, fixed_hash64) VORN_KV_PROBE_MUTKV_OPS(M, k6v8, fixed_hash64)       \
    VORN_KV_PROBE_MUTKV_OPS(M, k8v4, fixed_hash64) VORN_KV_PROBE_MUTKV_OPS(M, k8v8, fixed_hash64)       \
    VORN_KV_PROBE_MUTKV_OPS(M, k10v4, fixed_hash64) VORN_KV_PROBE_MUTKV_OPS(M, k12v4, fixed_hash64)
#define VORN_KV_PROBE_LINKED_MEMBERS(M)                                                                \
    VORN_KV_PROBE_TAG_MEMBERS(M) VORN_KV_PROBE_KEY_MEMBERS(M) VORN_KV_PROBE_VALUE_MEMBERS_A(M)           \
    VORN_KV_PROBE_VALUE_MEMBERS_B(M)

#define VORN_KV_PROBE_DECLARE(kind, input, op)                          \
    VORN_INTERNAL VORN_KV_PROBE_SIGNATURE(kind, input, op, idx);        \
    VORN_INTERNAL VORN_KV_PROBE_SIGNATURE(kind, input, op, ptr);        \
    VORN_INTERNAL VORN_KV_PROBE_SIGNATURE(kind, input, op, ptr_prefetch);
#define VORN_KV_PROBE_DECLARE_PTR(kind, input, op)                      \
    VORN_INTERNAL VORN_KV_PROBE_SIGNATURE(kind, input, op, ptr);        \
    VORN_INTERNAL VORN_KV_PROBE_SIGNATURE(kind, input, op, ptr_prefetch);

extern "C" {
VORN_KV_PROBE_LINKED_MEMBERS(VORN_KV_PROBE_DECLARE)
VORN_KV_PROBE_MUTKV_MEMBERS(VORN_KV_PROBE_DECLARE_PTR)
}  // extern "C"
