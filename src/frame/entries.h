// entries.h - the library's named entries: the slot functions of the context
// record and the internal symbols of the frame.  All are hidden: the host
// reaches the slots through vorn_global_specialized_ctx, and the internal
// symbols serve the library and the white-box tests.
#pragma once

#include <array>

#include "frame/base.h"

extern "C" {

// ---- The frame -------------------------------------------------------------
VORN_INTERNAL extern const std::array<vorn_kernel, VORN_DISPATCH_TABLE_WORDS> vorn_dispatch_table;
VORN_INTERNAL extern const std::array<const char *, VORN_DISPATCH_SCHEME_SIZE>
    vorn_dispatch_func_names;
VORN_INTERNAL sb4 vorn_dispatch_table_size(void);
VORN_INTERNAL ub4 vorn_convert_width(ub4 bits);
VORN_INTERNAL ub4 vorn_xlate_convert_width(sb4 elem_size, ub4 form);
VORN_INTERNAL ub4 vorn_xlate_convert_type(ub4 kind);
VORN_INTERNAL ub4 vorn_build_cla_1_ub1(ub4 *res, ub4 res_len, const ub1 *src, ub4 src_len);
VORN_INTERNAL ub4 vorn_build_cla_1_ub2(ub4 *res, ub4 res_len, const ub2 *src, ub4 src_len);
VORN_INTERNAL ub8 vorn_null(void *unused, vorn_vec *res, const vorn_vec *src, void *unused2);
VORN_INTERNAL void vorn_stats_dump(const vorn_stats *stats, ub8 only_called);

// Process-wide words written by vorn_init_sharedlib_dydi alone.
VORN_INTERNAL extern ub4 cpuinfo[3];
VORN_INTERNAL extern ub4 vorn_is_Intel;
VORN_INTERNAL extern ub4 vorn_is_AMD;
VORN_INTERNAL extern ub4 vorn_has_fsrm;
VORN_INTERNAL extern ub4 vorn_has_avx_vnni;
VORN_INTERNAL extern ub4 vorn_has_fsrs;
VORN_INTERNAL extern ub4 vorn_has_avx_ifma;
VORN_INTERNAL extern ub4 vorn_has_avx_vnni_int8;

VORN_INTERNAL void vorn_init_sharedlib_dydi(void *host, const ub4 *cpu_words);
VORN_INTERNAL void vorn_set_trace_level_dydi(ub8 level);
VORN_INTERNAL ub8 vorn_thread_ctx_init_dydi(void);
VORN_INTERNAL ub8 vorn_thread_ctx_fini_dydi(void);
// The entry of every slot whose family this build does not serve, and the
// kernels of each shape at the dispatch indexes it does not serve: they
// write nothing and return 2.
VORN_INTERNAL ub8 vorn_unserved_dydi(void *first, ...);
VORN_INTERNAL ub8 vorn_unserved_cmp(vorn_vec *, vorn_vec *, const void *const *, vorn_kernel_ctx *);
VORN_INTERNAL ub8 vorn_unserved_range(vorn_vec *, vorn_vec *, const void *const *, const void *const *,
                                      vorn_kernel_ctx *);
VORN_INTERNAL ub8 vorn_unserved_decode(vorn_vec *, vorn_vec *, vorn_kernel_ctx *);
VORN_INTERNAL ub8 vorn_unserved_minmax(vorn_vec *, vorn_vec *, vorn_kernel_ctx *, ub4);
VORN_INTERNAL ub8 vorn_unserved_xlate(vorn_vec *, vorn_vec *, const void *, vorn_kernel_ctx *);
VORN_INTERNAL ub8 vorn_unserved_arith(vorn_vec *, vorn_vec *, vorn_vec *, vorn_kernel_ctx *);

// ---- Bit vectors, byte form and word form ----------------------------------
VORN_INTERNAL extern const std::array<ub1, 256> vorn_byte_popc;

#define VORN_BV_FAMILY(f)                                                              \
    VORN_INTERNAL ub4 vorn_##f##popcnt_dydi(ub4 *count, const void *a, ub8 bits);            \
    VORN_INTERNAL void vorn_##f##not_dydi(void *dst, ub4 *count, const void *a, ub8 bits);   \
    VORN_INTERNAL void vorn_##f##and_dydi(void *dst, ub4 *count, const void *a, const void *b, \
                                          ub8 bits);                                         \
    VORN_INTERNAL void vorn_##f##or_dydi(void *dst, ub4 *count, const void *a, const void *b, \
                                         ub8 bits);                                          \
    VORN_INTERNAL void vorn_##f##xor_dydi(void *dst, ub4 *count, const void *a, const void *b, \
                                          ub8 bits);                                         \
    VORN_INTERNAL void vorn_##f##andnot_dydi(void *dst, ub4 *count, const void *a,            \
                                             const void *b, ub8 bits);                       \
    VORN_INTERNAL void vorn_##f##and3_dydi(void *dst, ub4 *count, const void *a, const void *b, \
                                           const void *c, ub8 bits);                         \
    VORN_INTERNAL void vorn_##f##or3_dydi(void *dst, ub4 *count, const void *a, const void *b, \
                                          const void *c, ub8 bits);                          \
    VORN_INTERNAL void vorn_##f##xor3_dydi(void *dst, ub4 *count, const void *a, const void *b, \
                                           const void *c, ub8 bits);                         \
    VORN_INTERNAL void vorn_##f##set_range_dydi(void *a, ub8 first, ub8 last);               \
    VORN_INTERNAL void vorn_##f##clr_range_dydi(void *a, ub8 first, ub8 last);               \
    VORN_INTERNAL void vorn_##f##_ictx_ini2_dydi(vorn_bv_iter *iter, const void *a, ub8 bits, \
                                                 ub1 complement, ub8 start);                 \
    VORN_INTERNAL ub8 vorn_##f##iter_dydi(vorn_bv_iter *iter);                               \
    VORN_INTERNAL ub8 vorn_##f##iter_clr_dydi(vorn_bv_iter *iter);                           \
    VORN_INTERNAL ub4 vorn_##f##ones_dydi(vorn_bv_iter *iter, ub4 *out, ub4 max);            \
    VORN_INTERNAL ub8 vorn_##f##run_dydi(void *a, void *b);                                  \
    VORN_INTERNAL ub8 vorn_##f##runs_dydi(void *a, void *b, void *c, void *d);

VORN_BV_FAMILY(lbiv)
VORN_BV_FAMILY(lbiwv)
#undef VORN_BV_FAMILY

// ---- Entries of the predicate and decoding subsystems -----------------------
VORN_INTERNAL ub8 vorn_eq_stream_dydi(vorn_vec *res, vorn_vec *a, vorn_vec *b,
                                      vorn_kernel_ctx *kctx);
VORN_INTERNAL ub8 vorn_selective_dydi(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);
VORN_INTERNAL ub8 vorn_lookup_and_compare_dydi(vorn_vec *res, vorn_vec *src,
                                               const ub4 *const *second, const ub4 *const *map1,
                                               const ub4 *const *map2, const ub1 *const *op,
                                               vorn_kernel_ctx *kctx);
VORN_INTERNAL ub8 vorn_lomp_decode_dydi(const vorn_lomp_ctx *ctx, const ub1 *stream, ub1 *out,
                                        ub4 *out_length, ub4 capacity);

// ---- Hashing and partitioning ------------------------------------------------
VORN_INTERNAL ub8 vorn_hash_dydi(vorn_vec *res, vorn_vec *src, vorn_vec *seeds, vorn_hash_fn hash,
                                 vorn_kernel_ctx *kctx);
VORN_INTERNAL ub8 vorn_partition_dydi(vorn_partition_ctrl *ctrl, vorn_vec *src, vorn_vec *second,
                                      vorn_vec *third, vorn_hash_fn hash, vorn_kernel_ctx *kctx);

}  // extern "C"
