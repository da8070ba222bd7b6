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

// The probe functions that the entry chooses by form and key shape have the
// entry's own arguments; each picks its loop by the mode and the link.
#define VORN_KV_PROBE_ENTRY_SIGNATURE(name)                                                              \
    ub8 name(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec, vorn_vec *rows, vorn_vec *key_vec, \
             vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 *stats)

// Array tables, keyed by ub4 keys (VORN_KEY32), or for arid4 and arid8 by
// key records of kind 0x03 in hash_vec.
VORN_INTERNAL VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_k4v4_gd_array_arid4);
VORN_INTERNAL VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_k4v8_gd_array_arid8);
VORN_INTERNAL VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_k4_gd_array_acnt);

// Bucket tables with slot keys, named by kind and key source: gd_gd and
// gdhc_gd (ub4 dictionary codes with a 64-bit or a 32-bit cached hash),
// lp_direct and lpsep_direct (keys of VORN_LEN_PTR and VORN_PTR_LEN,
// staged), hash64_fixed and hash32_fixed (VORN_FIXED keys).  X(kind, source).
#define VORN_KV_PROBE_VALUE_SOURCES(X, kind) \
    X(kind, lp_direct) X(kind, lpsep_direct) X(kind, hash64_fixed) X(kind, hash32_fixed)
#define VORN_KV_PROBE_KEY_SOURCES(X, kind) X(kind, hash32_fixed)
#define VORN_KV_PROBE_SLOT_FUNCTIONS(X)                                                          \
    X(k4, gd_gd) X(k4, gdhc_gd) X(k4v4, gd_gd) X(k4v4, gdhc_gd) X(k4v8, gd_gd) X(k4v8, gdhc_gd)  \
    VORN_KV_PROBE_VALUE_KINDS(VORN_KV_PROBE_VALUE_SOURCES, X) VORN_KV_PROBE_KEY_KINDS(VORN_KV_PROBE_KEY_SOURCES, X)
#define VORN_KV_PROBE_DECLARE_FUNCTION(kind, source) \
    VORN_INTERNAL VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_##kind##_##source);
// The list reader of arid8: where it stands in a chain of chunks.  Its two
// words are ctx->byte_pos and ctx->payload_byte_pos between calls.
typedef struct vorn_kv_list_reader {
    ub8 vorn_aux_stream2_current_pos;  // the chunk being read; 0 when no chain is open
    ub8 vorn_aux_stream2_read;         // rids of that chunk already read
} vorn_kv_list_reader;

// Reads the rids of a list word (tag 1, 3, 5 or 7) into out, given the room
// left: below 4 it reads nothing and returns 0.  Returns the rids written,
// or the negated room when the chain is not finished (the reader then
// holds the place to go on from).  _segbv also sets bit (rid - bv_base)
// of bv; _noridout_segbv only sets the bits, reads the whole list and
// returns its length.
VORN_INTERNAL sb8 vorn_kv_list8_read(ub8 word, ub8 *out, ub8 room, vorn_kv_list_reader *ai);
VORN_INTERNAL sb8 vorn_kv_list8_read_segbv(ub8 word, ub8 *out, ub8 room, vorn_kv_list_reader *ai, ub8 *bv,
                                           ub8 bv_base);
VORN_INTERNAL ub8 vorn_kv_list8_read_noridout_segbv(ub8 word, vorn_kv_list_reader *ai, ub8 *bv, ub8 bv_base);

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

// The kinds by family: X(M, kind).
#define VORN_KV_PROBE_KEY_KINDS(X, M) X(M, k4) X(M, k6) X(M, k8) X(M, k12)
#define VORN_KV_PROBE_VALUE_KINDS_A(X, M) X(M, k4v4) X(M, k4v8) X(M, k6v4) X(M, k6v8)
#define VORN_KV_PROBE_VALUE_KINDS_B(X, M) X(M, k8v4) X(M, k8v8) X(M, k10v4) X(M, k12v4)
#define VORN_KV_PROBE_VALUE_KINDS(X, M) VORN_KV_PROBE_VALUE_KINDS_A(X, M) VORN_KV_PROBE_VALUE_KINDS_B(X, M)

// The members by translation unit: M(kind, input, op); each stands for its
// `idx`, `ptr` and `ptr_prefetch` links, the mutkv ones for the last two.
#define VORN_KV_PROBE_TAGS_64(M, kind) VORN_KV_PROBE_TAG_OPS(M, kind, hash64value)
#define VORN_KV_PROBE_TAGS_32(M, kind) VORN_KV_PROBE_TAG_OPS(M, kind, hash32value)
#define VORN_KV_PROBE_KEYS(M, kind) VORN_KV_PROBE_KEY_OPS(M, kind, fixed_hash64)
#define VORN_KV_PROBE_VALUES(M, kind) VORN_KV_PROBE_VALUE_OPS(M, kind, fixed_hash64)
#define VORN_KV_PROBE_MUTKV(M, kind) VORN_KV_PROBE_MUTKV_OPS(M, kind, fixed_hash64)
#define VORN_KV_PROBE_TAG_KINDS(X, M) X(M, k2v4) X(M, k2v8) X(M, k4v4) X(M, k4v8)

#define VORN_KV_PROBE_TAG_MEMBERS(M) \
    VORN_KV_PROBE_TAG_KINDS(VORN_KV_PROBE_TAGS_64, M) VORN_KV_PROBE_TAG_KINDS(VORN_KV_PROBE_TAGS_32, M)
#define VORN_KV_PROBE_KEY_MEMBERS(M) VORN_KV_PROBE_KEY_KINDS(VORN_KV_PROBE_KEYS, M)
#define VORN_KV_PROBE_VALUE_MEMBERS_A(M) VORN_KV_PROBE_VALUE_KINDS_A(VORN_KV_PROBE_VALUES, M)
#define VORN_KV_PROBE_VALUE_MEMBERS_B(M) VORN_KV_PROBE_VALUE_KINDS_B(VORN_KV_PROBE_VALUES, M)
#define VORN_KV_PROBE_MUTKV_MEMBERS(M) VORN_KV_PROBE_VALUE_KINDS(VORN_KV_PROBE_MUTKV, M)
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
VORN_KV_PROBE_SLOT_FUNCTIONS(VORN_KV_PROBE_DECLARE_FUNCTION)
}  // extern "C"
