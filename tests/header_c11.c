/* The host header compiles as C11 and lays out the context record as the
 * library does: 88 words, the slots from word 15 to word 87. */
#include <stddef.h>

#include "vorn.h"

_Static_assert(offsetof(vorn_specialized_ctx, dispatch_table) == 14 * 8, "word 14");

/* The Bloom filter's fields follow the column fields of vorn_enc_ctx. */
_Static_assert(offsetof(vorn_enc_ctx, bloom_paged) == offsetof(vorn_enc_ctx, max_len) + 2, "bloom_paged");
_Static_assert(offsetof(vorn_enc_ctx, bloom_mask) == offsetof(vorn_enc_ctx, bloom_paged) + 4, "bloom_mask");
_Static_assert(offsetof(vorn_enc_ctx, bloom_page_shift) == offsetof(vorn_enc_ctx, bloom_mask) + 4,
               "bloom_page_shift");
_Static_assert(offsetof(vorn_enc_ctx, bloom_bit_mask) == offsetof(vorn_enc_ctx, bloom_page_shift) + 4,
               "bloom_bit_mask");
_Static_assert(offsetof(vorn_sphere_points, count) == 3 * 8, "the count follows the three arrays");

/* Every slot at its word: 15 and on, in the record's order. */
#define VORN_SLOTS(X) \
    X(vorn_init_sharedlib_dydi) \
    X(vorn_set_trace_level_dydi) \
    X(vorn_lbivpopcnt_dydi) \
    X(vorn_lbivnot_dydi) \
    X(vorn_lbivand_dydi) \
    X(vorn_lbivor_dydi) \
    X(vorn_lbivxor_dydi) \
    X(vorn_lbivandnot_dydi) \
    X(vorn_lbivand3_dydi) \
    X(vorn_lbivor3_dydi) \
    X(vorn_lbivxor3_dydi) \
    X(vorn_lbivset_range_dydi) \
    X(vorn_lbivclr_range_dydi) \
    X(vorn_lbiv_ictx_ini2_dydi) \
    X(vorn_lbiviter_dydi) \
    X(vorn_lbiviter_clr_dydi) \
    X(vorn_lbivones_dydi) \
    X(vorn_lbivrun_dydi) \
    X(vorn_lbivruns_dydi) \
    X(vorn_lbiwvpopcnt_dydi) \
    X(vorn_lbiwvnot_dydi) \
    X(vorn_lbiwvand_dydi) \
    X(vorn_lbiwvor_dydi) \
    X(vorn_lbiwvxor_dydi) \
    X(vorn_lbiwvandnot_dydi) \
    X(vorn_lbiwvand3_dydi) \
    X(vorn_lbiwvor3_dydi) \
    X(vorn_lbiwvxor3_dydi) \
    X(vorn_lbiwvset_range_dydi) \
    X(vorn_lbiwvclr_range_dydi) \
    X(vorn_lbiwv_ictx_ini2_dydi) \
    X(vorn_lbiwviter_dydi) \
    X(vorn_lbiwviter_clr_dydi) \
    X(vorn_lbiwvones_dydi) \
    X(vorn_lbiwvrun_dydi) \
    X(vorn_lbiwvruns_dydi) \
    X(vorn_bloom_dydi) \
    X(vorn_spatial_pip_dydi) \
    X(vorn_spheric_pip_dydi) \
    X(vorn_groupkey_dydi) \
    X(vorn_dgk_concatenate_dydi) \
    X(vorn_extract_dgk_dydi) \
    X(vorn_gby_sum_dydi) \
    X(vorn_convert_dydi) \
    X(vorn_prefix_decode_dydi) \
    X(vorn_hash_dydi) \
    X(vorn_partition_dydi) \
    X(vorn_gather_dydi) \
    X(vorn_gather_one_col_dydi) \
    X(vorn_gather_cols_dydi) \
    X(vorn_transpose_reference_dydi) \
    X(vorn_transpose_convert_dydi) \
    X(vorn_transpose_fixed_dydi) \
    X(vorn_layout_kv_dydi) \
    X(vorn_create_add_kv_dydi) \
    X(vorn_probe_kv_dydi) \
    X(vorn_mut_kv_scan_dydi) \
    X(vorn_dgk_symbol2code_dydi) \
    X(vorn_dgk_code2symbol_dydi) \
    X(vorn_eq_stream_dydi) \
    X(vorn_selective_dydi) \
    X(vorn_lomp_decode_dydi) \
    X(vorn_thread_ctx_init_dydi) \
    X(vorn_thread_ctx_fini_dydi) \
    X(vorn_sum_vec_dydi) \
    X(vorn_lookup_and_compare_dydi) \
    X(vorn_prefix_sum_vec_dydi) \
    X(vorn_vector_distance_dydi) \
    X(vorn_vector_topk_dydi) \
    X(vorn_vector_pick_metric_dydi) \
    X(vorn_vector_parse_dydi) \
    X(vorn_vector_convert_fp_dydi) \
    X(vorn_vector_arith_dydi)

enum {
    VORN_SLOT_BEFORE_FIRST = 14,
#define VORN_SLOT_WORD(name) VORN_WORD_##name,
    VORN_SLOTS(VORN_SLOT_WORD)
#undef VORN_SLOT_WORD
    VORN_SLOT_END
};
_Static_assert(VORN_SLOT_END == 88, "73 slots fill words 15 to 87");
#define VORN_SLOT_AT(name) \
    _Static_assert(offsetof(vorn_specialized_ctx, name) == VORN_WORD_##name * 8, #name " at its word");
VORN_SLOTS(VORN_SLOT_AT)
#undef VORN_SLOT_AT

/* A host's call of a compare, as a C host writes it. */
ub8 vorn_header_c11_call(const vorn_specialized_ctx *ctx, vorn_vec *res, vorn_vec *src,
                         const void *const *literals, vorn_kernel_ctx *kctx) {
    const ub4 index = VORN_DISPATCH_INDEX(VORN_VEC_ENC_CTX(src)->kernel_group, VORN_OP_EQ, 0);
    if (VORN_ENC_CTX_FLAG(VORN_VEC_ENC_CTX(src), VORN_RLE)) return 2;
    return ctx->dispatch_table[index].cmp(res, src, literals, kctx);
}

/* The partition control record, in its field order. */
_Static_assert(offsetof(vorn_partition_ctrl, flags) == 0, "flags");
_Static_assert(offsetof(vorn_partition_ctrl, high_bit) == 4, "high_bit");
_Static_assert(offsetof(vorn_partition_ctrl, low_bit) == 5, "low_bit");
_Static_assert(offsetof(vorn_partition_ctrl, payload_bytes) == 8, "payload_bytes");
_Static_assert(offsetof(vorn_partition_ctrl, cursors) == 16, "cursors");
_Static_assert(offsetof(vorn_partition_ctrl, limits) == 24, "limits");
_Static_assert(sizeof(vorn_partition_ctrl) == 32, "four words");
/* stop_row is the partition kernel's name of stop_part. */
_Static_assert(offsetof(vorn_kernel_ctx, stop_row) == offsetof(vorn_kernel_ctx, stop_part), "one field");
/* The key-value table header, byte by byte, as a C host lays it out. */
_Static_assert(sizeof(vorn_kv) == 248, "the table header is 8 bytes and three regions");
_Static_assert(offsetof(vorn_kv, flags) == 0, "flags at byte 0");
_Static_assert(offsetof(vorn_kv, key_bits) == 4, "key_bits at byte 4");
_Static_assert(offsetof(vorn_kv, regions[0]) == 8, "region 0 at byte 8");
_Static_assert(offsetof(vorn_kv, regions[1]) == 88, "region 1 at byte 88");
_Static_assert(offsetof(vorn_kv, regions[2]) == 168, "region 2 at byte 168");
_Static_assert(offsetof(vorn_kv_region, page_count) == 0, "page_count at 0");
_Static_assert(offsetof(vorn_kv_region, segment_bits) == 4, "segment_bits at 4");
_Static_assert(offsetof(vorn_kv_region, page_bits) == 5, "page_bits at 5");
_Static_assert(offsetof(vorn_kv_region, group_bits) == 6, "group_bits at 6");
_Static_assert(offsetof(vorn_kv_region, unit_bits) == 8, "unit_bits at 8");
_Static_assert(offsetof(vorn_kv_region, entries) == 10, "entries at 10");
_Static_assert(offsetof(vorn_kv_region, active) == 12, "active at 12");
_Static_assert(offsetof(vorn_kv_region, pages) == 24, "pages at 24");
_Static_assert(offsetof(vorn_kv_region, mapped) == 48, "mapped at 48");
_Static_assert(VORN_KV_PTR == 0x4000 && VORN_KV_PREFETCH == 0x8000 && VORN_KV_UNIQUE == 0x10000,
               "the table flag bits");
/* The row-assembly records, field by field. */
_Static_assert(offsetof(vorn_gather_spec, flags) == 0, "gather flags");
_Static_assert(offsetof(vorn_gather_spec, num_cols) == 4, "gather num_cols");
_Static_assert(offsetof(vorn_gather_spec, row_stride) == 6, "gather row_stride");
_Static_assert(offsetof(vorn_gather_spec, col_lens) == 8, "gather col_lens");
_Static_assert(offsetof(vorn_gather_spec, col_offsets) == 16, "gather col_offsets");
_Static_assert(offsetof(vorn_gather_spec, high_bit) == 24, "gather high_bit");
_Static_assert(offsetof(vorn_gather_spec, low_bit) == 25, "gather low_bit");
_Static_assert(offsetof(vorn_gather_spec, ref_pages) == 32, "gather ref_pages");
_Static_assert(offsetof(vorn_gather_spec, offset_pages) == 40, "gather offset_pages");
_Static_assert(offsetof(vorn_gather_spec, data_pages) == 48, "gather data_pages");
_Static_assert(sizeof(vorn_gather_spec) == 56, "gather spec size");
_Static_assert(offsetof(vorn_transpose_spec, flags) == 0, "transpose flags");
_Static_assert(offsetof(vorn_transpose_spec, num_cols) == 2, "transpose num_cols");
_Static_assert(offsetof(vorn_transpose_spec, row_stride) == 4, "transpose row_stride");
_Static_assert(offsetof(vorn_transpose_spec, col_lens) == 8, "transpose col_lens");
_Static_assert(offsetof(vorn_transpose_spec, col_offsets) == 16, "transpose col_offsets");
_Static_assert(offsetof(vorn_transpose_spec, ref_tables) == 24, "transpose ref_tables");
_Static_assert(offsetof(vorn_transpose_spec, ref_cursors) == 32, "transpose ref_cursors");
_Static_assert(offsetof(vorn_transpose_spec, offset_cursors) == 40, "transpose offset_cursors");
_Static_assert(offsetof(vorn_transpose_spec, data_cursors) == 48, "transpose data_cursors");
_Static_assert(offsetof(vorn_transpose_spec, data_limits) == 56, "transpose data_limits");
_Static_assert(sizeof(vorn_transpose_spec) == 64, "transpose spec size");
/* The parsed vector header: four bytes, then the element count. */
_Static_assert(offsetof(vorn_lvector_header, body_off) == 1, "body offset second");
_Static_assert(offsetof(vorn_lvector_header, second_off) == 2, "second offset third");
_Static_assert(offsetof(vorn_lvector_header, flags) == 3, "kept flags fourth");
_Static_assert(offsetof(vorn_lvector_header, dims) == 4 && sizeof(vorn_lvector_header) == 8,
               "dimensions in the word behind them");

/* A top-K entry: the row in the first four bytes, the distance in the last eight. */
_Static_assert(offsetof(vorn_topk_entry, row) == 0, "row first");
_Static_assert(offsetof(vorn_topk_entry, distance) == 8 && sizeof(vorn_topk_entry) == 16,
               "distance in the last eight bytes");
