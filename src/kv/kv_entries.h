// kv_entries.h - the named symbols of the key-value tables: layout, the
// build entry, the folded adds and the low-level add family.  The member
// lists below are the one place a member's name and arguments are written;
// declarations here and definitions in the kv_add_*.cpp files expand them.
#pragma once

#include "frame/base.h"

extern "C" {

// ---- Layout ------------------------------------------------------------------
VORN_INTERNAL ub8 vorn_layout_kv_dydi(ub8 distinct_estimate, ub8 row_count, ub4 *flags, vorn_kv *table,
                                      ub4 page_hint, ub4 idx_min_units, ub4 fill_min_units,
                                      ub4 fill_percent, ub4 force_ptr);
VORN_INTERNAL ub8 vorn_kv_layout_bucketed(ub8 distinct_estimate, ub8 row_count, ub4 *flags,
                                          ub4 idx_entries, ub4 ptr_entries, ub4 count_bits,
                                          ub4 page_hint, vorn_kv *table, ub4 idx_min_units,
                                          ub4 fill_min_units, ub4 fill_percent, ub4 force_ptr);
VORN_INTERNAL ub8 vorn_kv_num_segments(const vorn_kv *kv);
// The base of segment `segment_id`, or null when segment_id < 0 (each row's
// hash picks its segment).
VORN_INTERNAL ub1 *vorn_map_segment(const vorn_kv *kv, sb8 segment_id);

// ---- Growth of a bucket chain ---------------------------------------------------
// Moves the full bucket b to a new overflow bucket and leaves b empty but
// for the link and a count of 1.  0, or the callback's code with status =
// {1, page wanted} and nothing changed.
VORN_INTERNAL ub8 vorn_kv_rotate_idx(vorn_kv *kv, ub1 *bucket, ub4 count_bits, vorn_kv_grow_fn grow,
                                     ub8 *status);
VORN_INTERNAL ub8 vorn_kv_rotate_ptr(vorn_kv *kv, ub1 *bucket, vorn_kv_grow_fn grow, ub8 *status);

// Copies rows of src_elem_bytes bytes into slots of DEST_ELEM_BYTES bytes,
// zero-extended (the slots must be cleared).
VORN_INTERNAL void vorn_fixed_array_copy(ub1 *dest, const ub1 *src, ub8 rows, ub8 src_elem_bytes,
                                         ub8 DEST_ELEM_BYTES);

// ---- The build entry and the folded adds ------------------------------------------
VORN_INTERNAL ub8 vorn_create_add_kv_dydi(vorn_kv *kv, vorn_vec *hash_vec, vorn_vec *val_vec,
                                          vorn_vec *key_vec, sb8 segment_id, vorn_kernel_ctx *ctx,
                                          vorn_kv_grow_fn grow, ub8 *status);

}  // extern "C"

// Arguments of a low-level bucket member by its input part, between the
// common head (kv, segment base or null, rows) and tail (pos, grow, status).
#define VORN_KV_ARGS_ridhash const void *records
#define VORN_KV_ARGS_hash32value_payload const ub4 *hashes, const void *payload
#define VORN_KV_ARGS_hash32value_autorid const ub4 *hashes, ub8 base_rid
#define VORN_KV_ARGS_ridgdhash const void *records
#define VORN_KV_ARGS_ridgdcachedhash const void *records
#define VORN_KV_ARGS_gdhash const void *records
#define VORN_KV_ARGS_gdcachedhash const void *records
#define VORN_KV_ARGS_gd_hash64 const ub4 *codes, const ub8 *hashes
#define VORN_KV_ARGS_gd_hash32 const ub4 *codes, const ub4 *hashes
#define VORN_KV_ARGS_fixed_hash64_payload const ub1 *slots, const ub8 *hashes, const void *payload
#define VORN_KV_ARGS_fixed_hash64_autorid const ub1 *slots, const ub8 *hashes, ub8 base_rid
#define VORN_KV_ARGS_ridfixedhash const void *records
#define VORN_KV_ARGS_fixed_hash64 const ub1 *slots, const ub8 *hashes
#define VORN_KV_ARGS_fixed_hash32 const ub1 *slots, const ub4 *hashes
#define VORN_KV_ARGS_fixedhash const void *records

// The bucket members, by translation unit: M(kind, input).
#define VORN_KV_LL_TAG_MEMBERS(M)                                                             \
    M(k2v4, ridhash) M(k2v8, ridhash) M(k4v4, ridhash) M(k4v8, ridhash)                        \
    M(k4v4, hash32value_payload) M(k4v8, hash32value_payload)                                  \
    M(k4v4, hash32value_autorid) M(k4v8, hash32value_autorid)
#define VORN_KV_LL_CODE_MEMBERS(M)                                                            \
    M(k4v4, ridgdhash) M(k4v8, ridgdhash) M(k4v4, ridgdcachedhash) M(k4v8, ridgdcachedhash)    \
    M(k4, gdhash) M(k4, gdcachedhash) M(k4, gd_hash64) M(k4, gd_hash32)
#define VORN_KV_LL_SLOT_VALUE_MEMBERS_A(M)                                                    \
    M(k4v4, fixed_hash64_payload) M(k4v8, fixed_hash64_payload) M(k6v4, fixed_hash64_payload)  \
    M(k6v8, fixed_hash64_payload) M(k8v4, fixed_hash64_payload) M(k8v8, fixed_hash64_payload)  \
    M(k10v4, fixed_hash64_payload) M(k12v4, fixed_hash64_payload)
#define VORN_KV_LL_SLOT_VALUE_MEMBERS_B(M)                                                    \
    M(k4v4, fixed_hash64_autorid) M(k4v8, fixed_hash64_autorid) M(k6v4, fixed_hash64_autorid)  \
    M(k6v8, fixed_hash64_autorid) M(k8v4, fixed_hash64_autorid) M(k8v8, fixed_hash64_autorid)  \
    M(k10v4, fixed_hash64_autorid) M(k12v4, fixed_hash64_autorid)
#define VORN_KV_LL_SLOT_KEY_MEMBERS(M)                                                        \
    M(k4v4, ridfixedhash) M(k4v8, ridfixedhash) M(k8v4, ridfixedhash) M(k8v8, ridfixedhash)    \
    M(k4, fixed_hash64) M(k6, fixed_hash64) M(k8, fixed_hash64) M(k12, fixed_hash64)           \
    M(k4, fixed_hash32) M(k6, fixed_hash32) M(k8, fixed_hash32) M(k12, fixed_hash32)           \
    M(k4, fixedhash) M(k8, fixedhash)
#define VORN_KV_LL_BUCKET_MEMBERS(M)                                                          \
    VORN_KV_LL_TAG_MEMBERS(M) VORN_KV_LL_CODE_MEMBERS(M) VORN_KV_LL_SLOT_VALUE_MEMBERS_A(M)    \
    VORN_KV_LL_SLOT_VALUE_MEMBERS_B(M) VORN_KV_LL_SLOT_KEY_MEMBERS(M)

#define VORN_KV_LL_SIGNATURE(kind, input, link)                                              \
    ub8 vorn_kv_ll_add_##kind##_##input##_##link(vorn_kv *kv, ub1 *segment_base, ub8 rows,    \
                                                 VORN_KV_ARGS_##input, ub8 *pos,              \
                                                 vorn_kv_grow_fn grow, ub8 *status)
#define VORN_KV_LL_DECLARE(kind, input)                                 \
    VORN_INTERNAL VORN_KV_LL_SIGNATURE(kind, input, idx);               \
    VORN_INTERNAL VORN_KV_LL_SIGNATURE(kind, input, ptr);

// The array members: (kv, rows, keys or records, [payload or base rid],
// pos, grow, status).
#define VORN_KV_ARRAY_MEMBERS(M)                                                               \
    M(k4v4_ridgd_arid4, const void *records)                                                    \
    M(k4v4_key32_autorid_arid4, const ub4 *keys, ub8 base_rid)                                  \
    M(k4v4_key32_payload_arid4, const ub4 *keys, const void *payload)                          \
    M(k4v8_ridgd_arid8, const void *records)                                                    \
    M(k4v8_key32_autorid_arid8, const ub4 *keys, ub8 base_rid)                                  \
    M(k4v8_key32_payload_arid8, const ub4 *keys, const void *payload)                          \
    M(k4_key32_acnt, const ub4 *keys)
#define VORN_KV_ARRAY_SIGNATURE(name, ...)                                                     \
    ub8 vorn_kv_ll_add_##name(vorn_kv *kv, ub8 rows, __VA_ARGS__, ub8 *pos, vorn_kv_grow_fn grow, \
                              ub8 *status)
#define VORN_KV_ARRAY_DECLARE(name, ...) VORN_INTERNAL VORN_KV_ARRAY_SIGNATURE(name, __VA_ARGS__);

// The folded adds: vorn_kv_add_<kind>_<input>, the entry's own arguments.
#define VORN_KV_ADD_MEMBERS(M)                                                                 \
    M(k2v4, hash64_values_hash) M(k2v8, hash64_values_hash) M(k4v4, hash64_values_hash)         \
    M(k4v8, hash64_values_hash) M(k2v4, hash32_values_hash) M(k2v8, hash32_values_hash)         \
    M(k4v4, gd_gd) M(k4v8, gd_gd) M(k4v4, gdhc_gd) M(k4v8, gdhc_gd)                             \
    M(k4v4, hash32_fixed) M(k4v8, hash32_fixed) M(k6v4, hash32_fixed) M(k6v8, hash32_fixed)     \
    M(k8v4, hash32_fixed) M(k8v8, hash32_fixed) M(k10v4, hash32_fixed) M(k12v4, hash32_fixed)   \
    M(k4, lphash_direct) M(k6, lphash_direct) M(k8, lphash_direct) M(k12, lphash_direct)        \
    M(k4v4, ridlphash_direct) M(k4v8, ridlphash_direct) M(k6v4, ridlphash_direct)               \
    M(k6v8, ridlphash_direct) M(k8v4, ridlphash_direct) M(k8v8, ridlphash_direct)               \
    M(k10v4, ridlphash_direct) M(k12v4, ridlphash_direct)
#define VORN_KV_ADD_SIGNATURE(kind, input)                                                     \
    ub8 vorn_kv_add_##kind##_##input(vorn_kv *kv, vorn_vec *hash_vec, vorn_vec *val_vec,        \
                                     vorn_vec *key_vec, sb8 segment_id, vorn_kernel_ctx *ctx,   \
                                     vorn_kv_grow_fn grow, ub8 *status)
#define VORN_KV_ADD_DECLARE(kind, input) VORN_INTERNAL VORN_KV_ADD_SIGNATURE(kind, input);

extern "C" {
VORN_KV_LL_BUCKET_MEMBERS(VORN_KV_LL_DECLARE)
VORN_KV_ARRAY_MEMBERS(VORN_KV_ARRAY_DECLARE)
VORN_KV_ADD_MEMBERS(VORN_KV_ADD_DECLARE)
}  // extern "C"
