/*
 * vorn.h - the host's whole interface to librvtlsse42.
 *
 * The library exports one data symbol, vorn_global_specialized_ctx, a constant
 * record of 88 words.  Everything else is reached through it: the 73 entry
 * slots (functions ending in _dydi) and vorn_dispatch_table, in which the
 * scan kernels stand at 13-bit operation codes.  The host fills the records
 * below in its own memory and hands them to the kernels; the library keeps no
 * state of its own between calls and allocates only through the callbacks of
 * vorn_host_services.
 *
 * This header compiles as C11 and as C++.  The records are an interface
 * between separately built programs: field order and widths are fixed.
 */
#ifndef VORN_H
#define VORN_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Integers of the system, by bytes and signedness.                         */
/* ------------------------------------------------------------------------ */
typedef uint8_t ub1;
typedef uint16_t ub2;
typedef uint32_t ub4;
typedef uint64_t ub8;
typedef int8_t sb1;
typedef int16_t sb2;
typedef int32_t sb4;
typedef int64_t sb8;

typedef struct vorn_vec vorn_vec;
typedef struct vorn_enc_ctx vorn_enc_ctx;
typedef struct vorn_kernel_ctx vorn_kernel_ctx;
typedef struct vorn_host_services vorn_host_services;
typedef struct vorn_lomp_ctx vorn_lomp_ctx;
typedef struct vorn_xlate_ctx vorn_xlate_ctx;

/* ------------------------------------------------------------------------ */
/* Callbacks that the host puts into the records.                           */
/* ------------------------------------------------------------------------ */

/* result = alloc(env, heap, bytes, name, 8, 16, tag).  `name` says who asks
 * and why, e.g. "vorn_eq_dict_8bit: vec1_decomp"; 8 and 16 are constants at
 * every call and their meaning is the host's; `tag` is the source column's
 * alloc_tag.  The library never frees what it gets. */
typedef void *(*vorn_alloc_fn)(void *env, void *heap, ub8 bytes, const char *name,
                               ub4 eight, ub4 sixteen, ub8 tag);

/* Working arrays of the compressed-stream decoder: allocate(handle, bytes,
 * name, 8, 0, &release_handle) and release(handle, memory, release_handle). */
typedef void *(*vorn_work_alloc_fn)(void *handle, ub8 bytes, const char *name, ub4 eight,
                                    ub4 zero, void **release_handle);
typedef void (*vorn_work_free_fn)(void *handle, void *memory, void *release_handle);

/* The compressed-stream decoder: vorn_lomp_decode_dydi or one of the same
 * form.  Returns 0, or 24 for a stream it refuses. */
typedef ub8 (*vorn_lomp_decode_fn)(const vorn_lomp_ctx *ctx, const ub1 *stream, ub1 *out,
                                   ub4 *out_length, ub4 capacity);

/* Carries a predicate's result bits from runs to rows.  Called with the
 * host of the caller's kernel context, the result and source vectors of the
 * predicate, and a zeroed kernel context whose bv_aux is the run bit vector
 * and num_ones its count.  It writes res->res_bv and res->num_ones and its
 * return value is the predicate's result. */
typedef ub8 (*vorn_rle_expand_fn)(vorn_host_services *host, vorn_vec *res, vorn_vec *src,
                                  vorn_kernel_ctx *kctx);

/* ------------------------------------------------------------------------ */
/* vorn_vec: one column, or one result of a kernel.                         */
/* ------------------------------------------------------------------------ */
struct vorn_vec {
    void *data;                  /* values in the layout of enc_ctx's flags; a result's output */
    void *data2;                 /* ub2 lengths, selectors, tz stream, output lengths */
    void *data3;                 /* a decoder's ub2 indicators: 0 value, 2 empty */
    const vorn_enc_ctx *enc_ctx; /* how the column is stored; may be null on a result */
    const ub8 *filter_bv;        /* on a source: admissible rows, ANDed into every result */
    ub8 *res_bv;                 /* on a result: one bit per row */
    ub4 num_ones;                /* on a result: ones in res_bv, or output rows of a decoder */
    ub4 size;                    /* rows; for VORN_RLE the rows after expansion */
    ub4 decomp_size;             /* on a compressed source: bytes of the decompressed stream */
    void **decomp_slot;          /* on a compressed source: the cache cell of that stream */
    ub8 alloc_tag;               /* handed unchanged to alloc */
    ub4 base_rid;                /* row number of row 0 under VORN_AUTORID */
    ub8 byte_capacity;           /* variable-length results: bytes available in, written out */
};

#define VORN_VEC_SIZE(vec) ((vec)->size)
#define VORN_VEC_ENC_CTX(vec) ((vec)->enc_ctx)

/* ------------------------------------------------------------------------ */
/* vorn_enc_ctx: how a column is stored.  The library only reads it.        */
/* ------------------------------------------------------------------------ */
struct vorn_enc_ctx {
    ub1 kernel_group;           /* width code * 4 + encoding: dispatch bits 5 to 11 */
    const void *sym_base;       /* dictionary: base address of the symbols */
    const void *sym_header;     /* dictionary: big-endian ub2 fixed symbol length first */
    const ub4 *sym_offsets;     /* variable-length dictionary: big-endian ub4 offsets, n + 1 */
    ub4 num_symbols;            /* codes in the dictionary; also min/max's "nothing seen" */
    ub4 sym_layout;             /* 0 fixed-length symbols, 1 by sym_offsets, other: refused */
    const void *rle_lens;       /* VORN_RLE: run lengths, ub1 or big-endian ub2 per run */
    ub1 rle_len_bits;           /* VORN_RLE: bits of one run length, 8 or 16 */
    ub4 rle_runs;               /* VORN_RLE: number of runs = number of stored codes */
    const void *rle_cla;        /* VORN_RLE: rle_runs + 1 big-endian ub4 cumulative lengths */
    vorn_rle_expand_fn rle_expand; /* VORN_RLE: run bits to row bits */
    ub8 *rle_bv;                /* VORN_RLE: scratch bit vector, one bit per run */
    ub2 prefix_info[2];         /* read by the prefix decoder alone */
    ub4 flags;                  /* VORN_* flags below; bits 24 to 30 are the key kind */
    ub4 bit_width;              /* packed code width, or fixed value width in bits */
    ub1 width_code;             /* the width as vorn_convert_width's code */
    ub4 vec_dim;                /* vector columns: dimension */
    ub1 elem_type;              /* vector columns and group-by sum: element type */
    ub1 elem_type_ext;          /* one further byte, read by the vector parser only */
    ub2 max_len;                /* largest value length in bytes */
};

#define VORN_ENC_CTX_FLAG(enc_ctx, flag) (((enc_ctx)->flags & (ub4)(flag)) != 0)

#define VORN_NATIVE_FP 0x1u
#define VORN_CONST 0x4u
#define VORN_VEC_FLEX 0x10u
#define VORN_VEC_COLUMN 0x20u
#define VORN_ALIGNED 0x80u
#define VORN_PACKED 0x100u
#define VORN_RLE 0x200u
#define VORN_FIXED 0x800u
#define VORN_LV_SEP 0x1000u
#define VORN_LV 0x2000u
#define VORN_PTR_LEN 0x4000u
#define VORN_LEN_PTR 0x8000u
#define VORN_LOMP 0x10000u
#define VORN_AUTORID 0x20000u
#define VORN_SHORT_VALUES 0x40000u
#define VORN_TZ_CONST 0x80000u
#define VORN_CODE_ARRAY 0x100000u
#define VORN_GBY_OFFSETS 0x200000u
#define VORN_KEY32 0x400000u
#define VORN_KEY_KIND_MASK 0x7f000000u
#define VORN_KEY_KIND(flags) (((flags) & VORN_KEY_KIND_MASK) >> 24)

/* ------------------------------------------------------------------------ */
/* vorn_kernel_ctx: the per-call record, also the kernels' resumption point.  */
/* ------------------------------------------------------------------------ */
struct vorn_kernel_ctx {
    vorn_host_services *host;   /* the host's callbacks */
    const ub8 *bv_aux;          /* rows selected so far; never the same memory as res_bv */
    ub2 flags;                  /* VORN_CTX_* requests */
    ub8 num_ones;               /* ones in bv_aux, where the caller knows it */
    ub4 stop_part;              /* partition that was full */
    ub4 row_pos;                /* resumption: first row not yet processed */
    ub8 byte_pos;               /* resumption in bytes, or run index and run end */
    ub8 payload_byte_pos;       /* second resumption point in bytes */
    const ub4 *ones_vec;        /* selected rows as an ascending array; a run-length
                                   unpack keeps its place in it by row_pos: it goes on
                                   at the first entry >= row_pos (0 for a new list) */
    ub4 ones_vec_size;          /* entries of ones_vec */
    ub8 start_row;              /* first row for the translation kernels */
    ub1 done_flags;             /* VORN_DONE_* written by the kernel */
    ub1 done_flags2;            /* VORN_DONE2_* written by the translation kernels */
    vorn_xlate_ctx *xlate_ctx;  /* the translation kernels' record: range, output, ends */
};

#define VORN_CTX_SELECTIVE 0x2u     /* visit only the rows of bv_aux */
#define VORN_CTX_UNPACK_UB4 0x4u    /* unpacking decoders: ub4 elements for widths 1 to 16 */
#define VORN_CTX_KEY_MULTIPLY 0x10u /* group keys: multiply codes instead of shifting */
#define VORN_CTX_XLATE_NO_ENDS 0x400u /* translation: do not record the first and last kept rows */

#define VORN_DONE_BV_AUX 0x2u       /* the result already honours bv_aux */
#define VORN_DONE_DECODED 0x4u      /* a dictionary decoder has produced the output */
#define VORN_DONE_SET_BV_AUX 0x10u  /* vorn_set_dict_* has honoured bv_aux */
#define VORN_DONE_UNPACK_SEL 0x40u  /* an unpacking decoder has honoured the selection */
#define VORN_DONE2_XLATE_BV_AUX 0x1u /* a translation kernel has honoured bv_aux */

/* ------------------------------------------------------------------------ */
/* vorn_host_services: what the host offers to a kernel.                    */
/* ------------------------------------------------------------------------ */
struct vorn_host_services {
    void *env;                  /* the thread's environment; word 71 is its error context */
    void *heap;                 /* the heap handle of this scan */
    vorn_alloc_fn alloc;
    vorn_work_alloc_fn work_alloc;
    vorn_work_free_fn work_free;
    vorn_lomp_decode_fn lomp_decode;
    ub1 decoder_flags;          /* 0x10 or 0x20 set: the decoder record's last word is 1 */
};

/* The word of env that the host keeps its error context in. */
#define VORN_ENV_ERROR_CONTEXT_WORD 71

/* The one function the library imports from the host.  It is called as
 * vornhost_raise_internal(env, ((ub8 *)env)[71], message, 0).  If it returns,
 * the kernel carries on and its output is undefined. */
void vornhost_raise_internal(void *env, ub8 error_context, const char *message, ...);

/* ------------------------------------------------------------------------ */
/* vorn_lomp_ctx: the argument record of the compressed-stream decoder.     */
/* ------------------------------------------------------------------------ */
struct vorn_lomp_ctx {
    void *env;                  /* handed to work_alloc and work_free */
    void *heap;                 /* filled in; the decoder does not read it */
    vorn_work_alloc_fn work_alloc;
    vorn_work_free_fn work_free;
    ub8 decoder_flag;           /* 1 when decoder_flags holds 0x10 or 0x20, else 0 */
};

/* ------------------------------------------------------------------------ */
/* vorn_bv_iter: the bit-vector iterator, four words, on the caller's stack. */
/* ------------------------------------------------------------------------ */
typedef struct vorn_bv_iter {
    ub8 next;                   /* address of the next word to load; 0 when exhausted */
    ub8 bits;                   /* bits in the vector: the bound of row numbers */
    ub8 base;                   /* bit number of the current word's lowest bit */
    ub8 word;                   /* the set bits of the current word not yet taken */
} vorn_bv_iter;

/* End values of the iterators. */
#define VORN_LBIV_END 0xffffffffull
#define VORN_LBIWV_END 0xffffffffffffffffull

/* ------------------------------------------------------------------------ */
/* Translation: vorn_xlate_*(res, src, table_vec, kctx).                    */
/* ------------------------------------------------------------------------ */
/*
 * A translation carries each row's dictionary code through a table.  A row is
 * kept when its code has a mapping; its bit is then set in res->res_bv, and a
 * _c2d member also writes the translated value into an output array.
 *
 * Source: an array of big-endian ub4 codes, one a row (VORN_ALIGNED with
 * bit_width 32; a VORN_LOMP column is decompressed first, as everywhere).
 * Every other column is refused with 2 and nothing is written, with or
 * without bv_aux.  The forms _cla, _const and _sep and the group-key members
 * are not served by this build: they return 2 and write nothing.
 *
 * kctx and its xlate_ctx are required (no null is tolerated).
 *
 * Rows: kctx->start_row to src->size - 1.  Bit r of res->res_bv is row r; the
 * bits of these rows are written (set or cleared) and every other bit of
 * res_bv is left as it was, so a host may translate a column in pieces into
 * one bit vector (shrink src->size to a piece's end, advance start_row).
 *
 * Code c has a mapping when all of these hold:
 *   - low_code <= c <= high_code (the range of *kctx->xlate_ctx); codes
 *     outside are not looked up, so a table need only hold the range;
 *   - sim: the entry is entry c of `table`;
 *     off: c >= base, and the entry is entry c - base of `table`;
 *     ind: the page pointer page_dir[c >> page_shift] is not null, and the
 *     entry is entry (c & page_mask) of that page;
 *   - the entry says so: bit: the bit is CLEAR (a set bit excludes the
 *     code, so an all-zero table keeps every code in range); nib: the
 *     nibble is not 15; ub1: the byte is not 255; ub2, ub4: always.
 * Entry i of a table or page: bit: bit i % 8 of byte i / 8; nib: byte i / 2,
 * low nibble for even i, high nibble for odd i; ub1, ub2, ub4: element i, in
 * the host's (native) byte order.
 *
 * _c2d output: element r of xlate_ctx->out is written for every row r from
 * start_row to size - 1: the translated value of a kept row, all ones for a
 * row not kept.  Element type: ub1 for nib and ub1 tables, ub2 for ub2,
 * ub4 for ub4, native order.  (bit tables have no _c2d member.)
 *
 * bv_aux (kctx->bv_aux, one bit per row): only rows whose bit is set are
 * considered; every other row counts as not kept (bit cleared, all ones in
 * the output).  The kernel then sets VORN_DONE2_XLATE_BV_AUX in
 * done_flags2.  VORN_CTX_SELECTIVE and src->filter_bv are not read.
 *
 * Results: res->num_ones = the rows kept by this call.  In *xlate_ctx the
 * kernel adds that number to `kept` and, unless kctx->flags holds
 * VORN_CTX_XLATE_NO_ENDS (0x400), stores the last kept row in `last_kept`
 * and the first kept row in `first_kept` if that still holds
 * VORN_XLATE_NO_ROW.  A call that keeps nothing leaves both as they were.
 * The host sets kept = 0 and both ends to VORN_XLATE_NO_ROW before the
 * first piece of a scan.  Return: 0 when this call kept a row, 1 when it
 * kept none (also for start_row >= size), 2 when refused.
 */
struct vorn_xlate_ctx {
    ub4 low_code;               /* in: lowest code with a mapping (inclusive) */
    ub4 high_code;              /* in: highest code with a mapping (inclusive); below low_code: none maps */
    void *out;                  /* in, _c2d members: the output array, element r for row r */
    ub8 first_kept;             /* in/out: first kept row, VORN_XLATE_NO_ROW while none */
    ub8 last_kept;              /* in/out: last kept row, VORN_XLATE_NO_ROW while none */
    ub8 kept;                   /* in/out: kept rows, added to by every call */
};

#define VORN_XLATE_NO_ROW 0xffffffffffffffffull

/* table_vec: the table that a translation reads, six words.  Only the words
 * of the member's lookup are read.  What must be readable: sim, entries
 * low_code to high_code; off, entries max(low_code, base) - base to
 * high_code - base; ind, the page pointers of codes low_code to high_code,
 * and in each non-null page the entries of the codes in range that fall in
 * it.  An entry of a bit or nib table is read as its whole byte. */
typedef struct vorn_xlate_table {
    ub8 base;                   /* word 0, off: the code of entry 0; codes below it have no mapping */
    ub8 page_shift;             /* word 1, ind: page of a code = code >> page_shift, 0 to 31 */
    ub8 page_mask;              /* word 2, ind: entry in the page = code & page_mask (low 32 bits) */
    ub8 host_words[2];          /* words 3 and 4: the host's own; not read */
    const void *table;          /* word 5: sim, off: the entries; ind: the page directory,
                                   an array of page pointers (const void *), null for none */
} vorn_xlate_table;

/* ------------------------------------------------------------------------ */
/* Dispatch: operation codes, encodings, and the index of a kernel.         */
/* ------------------------------------------------------------------------ */
enum {
    VORN_OP_EQ = 0,
    VORN_OP_LT = 1,
    VORN_OP_GT = 2,
    VORN_OP_LE = 3,
    VORN_OP_GE = 4,
    VORN_OP_NE = 5,
    VORN_OP_GT_LT = 6,
    VORN_OP_GT_LE = 7,
    VORN_OP_GE_LT = 8,
    VORN_OP_GE_LE = 9,
    VORN_OP_DECODE = 10,
    VORN_OP_DECODE_UNPACK = 11,
    VORN_OP_DECODE_SYMBOL = 12,
    VORN_OP_SET = 13,
    VORN_OP_BURST = 14,
    VORN_OP_SUM = 15,
    VORN_OP_DISTINCT = 16,
    VORN_OP_XLATE = 17,
    VORN_OP_ADD = 19,
    VORN_OP_SUB = 20,
    VORN_OP_MUL = 21,
    VORN_OP_MINMAX = 23
};

enum {
    VORN_ENC_FIXED = 0,         /* fixed-width values */
    VORN_ENC_DICT = 1,          /* dictionary codes */
    VORN_ENC_DYNP = 2,          /* dynamic prefix */
    VORN_ENC_SPECIAL = 3,       /* run expansion, group-key translation */
    VORN_XLATE_SIM = 0,         /* for VORN_OP_XLATE the encoding field names the family */
    VORN_XLATE_OFF = 1,
    VORN_XLATE_IND = 2,
    VORN_XLATE_GROUPKEY = 3
};

/* Width codes of vorn_convert_width: bit widths 1 to 20 are codes 0 to 19. */
#define VORN_WIDTH_CODE(bits) \
    ((bits) == 24 ? 20u : (bits) == 32 ? 21u : (bits) == 64 ? 22u : (ub4)(bits) - 1u)

#define VORN_DISPATCH_SECOND 4096u  /* bit 12: _tz, _null, _c2d, _sum */
#define VORN_KERNEL_GROUP(width_code, encoding) ((ub4)(width_code) * 4u + (ub4)(encoding))
/* The index of a kernel: kernel group, operation, and the second-form bit. */
#define VORN_DISPATCH_INDEX(kernel_group, op, second) \
    (((ub4)(kernel_group) << 5) | (ub4)(op) | ((second) ? VORN_DISPATCH_SECOND : 0u))

#define VORN_DISPATCH_SCHEME_SIZE 8192u  /* indexes of the scheme */
#define VORN_DISPATCH_TABLE_WORDS 8256u  /* 64 zero words follow them */

/* Kernel shapes.  literals, low and high are arrays of addresses, each
 * leading to one literal in the family's form. */
typedef ub8 (*vorn_cmp_fn)(vorn_vec *res, vorn_vec *src, const void *const *literals,
                           vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_range_fn)(vorn_vec *res, vorn_vec *src, const void *const *low,
                             const void *const *high, vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_decode_fn)(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_minmax_fn)(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx, ub4 mode);
typedef ub8 (*vorn_xlate_fn)(vorn_vec *res, vorn_vec *src, const void *table_vec,
                             vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_arith_fn)(vorn_vec *res, vorn_vec *left, vorn_vec *right,
                             vorn_kernel_ctx *kctx);

/* One word of vorn_dispatch_table.  The host reads the member of the shape
 * that the operation has: cmp for eq..ne, range for gt_lt..ge_le, decode for
 * decode, unpack, symbol decode and run expansion, minmax, xlate, arith.  An
 * index without a kernel holds a null pointer. */
typedef union vorn_kernel {
    vorn_cmp_fn cmp;
    vorn_range_fn range;
    vorn_decode_fn decode;
    vorn_minmax_fn minmax;
    vorn_xlate_fn xlate;
    vorn_arith_fn arith;
} vorn_kernel;

/* ------------------------------------------------------------------------ */
/* The exported context record.                                             */
/* ------------------------------------------------------------------------ */

/* Slots whose family is not served by this build point at an entry that
 * writes nothing and returns 2.  Their prototypes join this header when the
 * family is served; until then they are called with any arguments. */
typedef ub8 (*vorn_unserved_fn)(void *first, ...);

/* Bit-vector entries.  `bits` is the vector's length in bits; `count`, when
 * not null, receives the ones of the result among those bits.  dst may be
 * the same memory as a source. */
typedef void (*vorn_bv2_fn)(void *dst, ub4 *count, const void *a, const void *b, ub8 bits);
typedef void (*vorn_bv3_fn)(void *dst, ub4 *count, const void *a, const void *b, const void *c,
                            ub8 bits);
typedef void (*vorn_bvnot_fn)(void *dst, ub4 *count, const void *a, ub8 bits);
typedef ub4 (*vorn_bvpopcnt_fn)(ub4 *count, const void *a, ub8 bits);
typedef void (*vorn_bvrange_fn)(void *a, ub8 first, ub8 last);
typedef void (*vorn_bviter_init_fn)(vorn_bv_iter *iter, const void *a, ub8 bits, ub1 complement,
                                    ub8 start);
typedef ub8 (*vorn_bviter_fn)(vorn_bv_iter *iter);
typedef ub4 (*vorn_bvones_fn)(vorn_bv_iter *iter, ub4 *out, ub4 max);
typedef ub8 (*vorn_bvrun_fn)(void *a, void *b);
typedef ub8 (*vorn_bvruns_fn)(void *a, void *b, void *c, void *d);

typedef ub8 (*vorn_eq_stream_fn)(vorn_vec *res, vorn_vec *a, vorn_vec *b, vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_selective_fn)(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_lookup_and_compare_fn)(vorn_vec *res, vorn_vec *src,
                                          const ub4 *const *second, const ub4 *const *map1,
                                          const ub4 *const *map2, const ub1 *const *op,
                                          vorn_kernel_ctx *kctx);

#define VORN_CTX_MAGIC 0xc16182c0ull
#define VORN_CTX_VERSION "TSL_23.0"
#define VORN_CTX_VARIANT "rvtlsse42"
#define VORN_CTX_VARIANT_NO 3u

typedef struct vorn_specialized_ctx {
    ub8 magic;                  /* 0xc16182c0 */
    const char *version;        /* "TSL_23.0" */
    ub8 variant_no;             /* 3 */
    const char *variant;        /* "rvtlsse42" */
    ub8 sizes[7];
    ub8 sizes2;
    ub8 sizes3;
    ub8 sizes4;
    const vorn_kernel *dispatch_table;

    /* Start-up: the host calls it once, before any kernel; cpu_words are
     * three ub4 that the library copies and never reads. */
    void (*vorn_init_sharedlib_dydi)(void *host, const ub4 *cpu_words);
    void (*vorn_set_trace_level_dydi)(ub8 level);

    /* Bit vectors as byte strings (any alignment). */
    vorn_bvpopcnt_fn vorn_lbivpopcnt_dydi;
    vorn_bvnot_fn vorn_lbivnot_dydi;
    vorn_bv2_fn vorn_lbivand_dydi;
    vorn_bv2_fn vorn_lbivor_dydi;
    vorn_bv2_fn vorn_lbivxor_dydi;
    vorn_bv2_fn vorn_lbivandnot_dydi;
    vorn_bv3_fn vorn_lbivand3_dydi;
    vorn_bv3_fn vorn_lbivor3_dydi;
    vorn_bv3_fn vorn_lbivxor3_dydi;
    vorn_bvrange_fn vorn_lbivset_range_dydi;
    vorn_bvrange_fn vorn_lbivclr_range_dydi;
    vorn_bviter_init_fn vorn_lbiv_ictx_ini2_dydi;
    vorn_bviter_fn vorn_lbiviter_dydi;
    vorn_bviter_fn vorn_lbiviter_clr_dydi;
    vorn_bvones_fn vorn_lbivones_dydi;
    vorn_bvrun_fn vorn_lbivrun_dydi;
    vorn_bvruns_fn vorn_lbivruns_dydi;

    /* Bit vectors as arrays of 64-bit words (8-byte aligned). */
    vorn_bvpopcnt_fn vorn_lbiwvpopcnt_dydi;
    vorn_bvnot_fn vorn_lbiwvnot_dydi;
    vorn_bv2_fn vorn_lbiwvand_dydi;
    vorn_bv2_fn vorn_lbiwvor_dydi;
    vorn_bv2_fn vorn_lbiwvxor_dydi;
    vorn_bv2_fn vorn_lbiwvandnot_dydi;
    vorn_bv3_fn vorn_lbiwvand3_dydi;
    vorn_bv3_fn vorn_lbiwvor3_dydi;
    vorn_bv3_fn vorn_lbiwvxor3_dydi;
    vorn_bvrange_fn vorn_lbiwvset_range_dydi;
    vorn_bvrange_fn vorn_lbiwvclr_range_dydi;
    vorn_bviter_init_fn vorn_lbiwv_ictx_ini2_dydi;
    vorn_bviter_fn vorn_lbiwviter_dydi;
    vorn_bviter_fn vorn_lbiwviter_clr_dydi;
    vorn_bvones_fn vorn_lbiwvones_dydi;
    vorn_bvrun_fn vorn_lbiwvrun_dydi;
    vorn_bvruns_fn vorn_lbiwvruns_dydi;

    vorn_unserved_fn vorn_bloom_dydi;
    vorn_unserved_fn vorn_spatial_pip_dydi;
    vorn_unserved_fn vorn_spheric_pip_dydi;
    vorn_unserved_fn vorn_groupkey_dydi;
    vorn_unserved_fn vorn_dgk_concatenate_dydi;
    vorn_unserved_fn vorn_extract_dgk_dydi;
    vorn_unserved_fn vorn_gby_sum_dydi;
    vorn_unserved_fn vorn_convert_dydi;
    vorn_unserved_fn vorn_prefix_decode_dydi;
    vorn_unserved_fn vorn_hash_dydi;
    vorn_unserved_fn vorn_partition_dydi;
    vorn_unserved_fn vorn_gather_dydi;
    vorn_unserved_fn vorn_gather_one_col_dydi;
    vorn_unserved_fn vorn_gather_cols_dydi;
    vorn_unserved_fn vorn_transpose_reference_dydi;
    vorn_unserved_fn vorn_transpose_convert_dydi;
    vorn_unserved_fn vorn_transpose_fixed_dydi;
    vorn_unserved_fn vorn_layout_kv_dydi;
    vorn_unserved_fn vorn_create_add_kv_dydi;
    vorn_unserved_fn vorn_probe_kv_dydi;
    vorn_unserved_fn vorn_mut_kv_scan_dydi;
    vorn_unserved_fn vorn_dgk_symbol2code_dydi;
    vorn_unserved_fn vorn_dgk_code2symbol_dydi;
    vorn_eq_stream_fn vorn_eq_stream_dydi;
    vorn_selective_fn vorn_selective_dydi;
    vorn_lomp_decode_fn vorn_lomp_decode_dydi;
    ub8 (*vorn_thread_ctx_init_dydi)(void);
    ub8 (*vorn_thread_ctx_fini_dydi)(void);
    vorn_unserved_fn vorn_sum_vec_dydi;
    vorn_lookup_and_compare_fn vorn_lookup_and_compare_dydi;
    vorn_unserved_fn vorn_prefix_sum_vec_dydi;
    vorn_unserved_fn vorn_vector_distance_dydi;
    vorn_unserved_fn vorn_vector_topk_dydi;
    vorn_unserved_fn vorn_vector_pick_metric_dydi;
    vorn_unserved_fn vorn_vector_parse_dydi;
    vorn_unserved_fn vorn_vector_convert_fp_dydi;
    vorn_unserved_fn vorn_vector_arith_dydi;
} vorn_specialized_ctx;

#ifdef __cplusplus
static_assert(sizeof(vorn_specialized_ctx) == 88 * 8, "the context record is 88 words");
static_assert(sizeof(vorn_kernel) == 8, "a dispatch entry is one word");
static_assert(sizeof(vorn_bv_iter) == 32, "the iterator is four words");
static_assert(offsetof(vorn_xlate_table, table) == 5 * 8, "the table is the sixth word");
#else
_Static_assert(sizeof(vorn_specialized_ctx) == 88 * 8, "the context record is 88 words");
_Static_assert(sizeof(vorn_kernel) == 8, "a dispatch entry is one word");
_Static_assert(sizeof(vorn_bv_iter) == 32, "the iterator is four words");
_Static_assert(offsetof(vorn_xlate_table, table) == 5 * 8, "the table is the sixth word");
#endif

/* The one exported symbol.  A host that links against the library rather
 * than opening it with dlopen may use this declaration. */
extern const vorn_specialized_ctx vorn_global_specialized_ctx;

/* The host's statistics record that vorn_stats_dump prints from: call counts
 * and throughputs (millions of rows per second), one of each per index. */
typedef struct vorn_stats {
    ub4 call_counts[VORN_DISPATCH_SCHEME_SIZE];
    double mrows_per_sec[VORN_DISPATCH_SCHEME_SIZE];
} vorn_stats;

#ifdef __cplusplus
}
#endif

#endif /* VORN_H */
