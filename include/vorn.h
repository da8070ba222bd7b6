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
 *
 * A host in six steps (examples/scan_range.c does all of them in C):
 *   1. Define and export vornhost_raise_internal (see its declaration
 *      below; link the executable with -rdynamic), then
 *      dlopen("librvtlsse42.so", RTLD_NOW) and dlsym the record
 *      "vorn_global_specialized_ctx".  Check magic, version and variant
 *      against VORN_CTX_MAGIC, VORN_CTX_VERSION and VORN_CTX_VARIANT.
 *   2. Call ctx->vorn_init_sharedlib_dydi(NULL, cpu_words) once (three
 *      ub4, only copied), before any other thread enters the library.
 *   3. Describe each column by a vorn_enc_ctx: kernel_group =
 *      VORN_KERNEL_GROUP(VORN_WIDTH_CODE(bits), VORN_ENC_*), width_code,
 *      bit_width and the layout flag (VORN_PACKED, VORN_FIXED, ...).
 *   4. Fill a vorn_vec for the source (data, size, enc_ctx) and one for
 *      the result (res_bv with room for the bits), and a zeroed
 *      vorn_kernel_ctx whose host points at your vorn_host_services.
 *   5. Take the kernel at ctx->dispatch_table[VORN_DISPATCH_INDEX(
 *      kernel_group, VORN_OP_*, second_form)] and call the member of its
 *      shape (cmp, range, decode, minmax, xlate).  Check the code it
 *      returns (VORN_RC_*, below).
 *   6. Walk the result bits with the iterator slots or by hand (bit i of
 *      the result is bit i & 63 of word i >> 6), and decode the matching
 *      rows with a decode kernel.
 * Each family's section below says what its inputs look like, what may be
 * null, which callbacks it calls and how much slack its buffers need.
 *
 * Slack, in one rule: give every input stream 16 readable bytes behind its
 * last byte, and every result bit vector one writable word behind its
 * (size + 63) / 64 words.  The sections give the exact minimum per family.
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
    /* A Bloom filter (vorn_bloom_dydi), described on the filter's vector. */
    ub1 bloom_paged;            /* not 0: res_bv holds page addresses, not the filter's bytes */
    ub4 bloom_mask;             /* the hash bits that count */
    ub4 bloom_page_shift;       /* paged: page = (hash & bloom_mask) >> bloom_page_shift */
    ub4 bloom_bit_mask;         /* paged: the bits that index into a page */
    /* A dictionary-coded column whose values the fixed transpose writes. */
    const void *code_values;    /* VORN_CODE_VALUES: the value of each code, native ub4 or ub8 */
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
    union {                     /* the partition kernel's code 6: the partition that was full */
        ub4 stop_part;
        ub4 stop_row;           /* the same field under the partition kernel's name */
    };
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
 * the kernel carries on and its output is undefined.
 *
 * The host must define it with C linkage and make it visible to the
 * libraries it dlopens: the library is linked with this symbol undefined
 * and is loaded with RTLD_NOW, so dlopen fails ("undefined symbol:
 * vornhost_raise_internal") when the executable does not export it.  Link
 * the executable with -rdynamic (CMake: ENABLE_EXPORTS ON), or with
 * -Wl,--dynamic-list naming just this symbol, or define it in a shared
 * object of the host that is loaded with RTLD_GLOBAL before the library.
 * It is raised for exactly four messages:
 *   "<kernel>: vorn_lomp_decode failed"       lomp_decode returned nonzero;
 *   "<kernel>: [rle] ones_vec size is zero"   unpack decoders and min/max
 *                                             on a VORN_RLE column with a
 *                                             ones_vec of 0 entries;
 *   "vorn_selective found decreasing indices in ones_vec with LV or LV_SEP input";
 *   "vorn_dgk_symbol2code_dydi: hash vector is not 64 bits width".
 * env must therefore hold at least 72 words when a kernel can raise. */
void vornhost_raise_internal(void *env, ub8 error_context, const char *message, ...);

/* ------------------------------------------------------------------------ */
/* Result codes.  Every kernel and entry returns one of these as a ub8.     */
/* ------------------------------------------------------------------------ */
/* Which families return which:
 *   compares (_fixed_, _dict_, _dynp_, _null, _tz)   OK, EMPTY; the _tz
 *       kernels of dynamic prefix also UNSUPPORTED (a literal tz above the
 *       width in bytes); on a VORN_RLE column whatever rle_expand returns
 *   vorn_decode_dict_*                          OK, BAD_RECORD (sym_layout)
 *   vorn_decode_unpack_dict_*                   OK, EMPTY (no element written)
 *   vorn_burst_rle_*                            OK, EMPTY
 *   vorn_minmax_dict_*                          OK, EMPTY (nothing stored)
 *   vorn_xlate_*                                OK, EMPTY, UNSUPPORTED
 *   vorn_eq_stream_dydi                         OK, EMPTY, UNSUPPORTED
 *   vorn_selective_dydi                         OK, UNSUPPORTED, OUTPUT_FULL
 *   vorn_lookup_and_compare_dydi                OK (also when no row matched)
 *   vorn_lomp_decode_dydi                       OK, BAD_RECORD
 *   vorn_thread_ctx_init_dydi, _fini_dydi       OK
 *   every index or slot this build does not serve  UNSUPPORTED, nothing
 *       written (an index outside the scheme holds a null pointer instead)
 * PARTITION_FULL, TRANSPOSE_FULL and GATHER_FULL belong to the partition,
 * transpose and gather entries; codes 3, 4, 5, 7, 8, 11, 12, 14, 15, 16 are
 * local to the key-value table and vector families and told with them.
 * A code that asks to resume (6, 18, 19, 23) leaves its position in the
 * vorn_kernel_ctx: make room and call again with the same record. */
enum {
    VORN_RC_OK = 0,              /* done; for a compare at least one row matched */
    VORN_RC_EMPTY = 1,           /* done, and the result is empty */
    VORN_RC_UNSUPPORTED = 2,     /* layout or flags not served; nothing written */
    VORN_RC_PARTITION_FULL = 6,  /* a partition has no room; resume */
    VORN_RC_TRANSPOSE_FULL = 18, /* transposed output full; resume */
    VORN_RC_GATHER_FULL = 19,    /* gathered output full; resume */
    VORN_RC_OUTPUT_FULL = 23,    /* output full, rows left; resume at kctx row_pos, byte_pos */
    VORN_RC_BAD_RECORD = 24      /* bad or unsupported contents of a record */
};

/* ------------------------------------------------------------------------ */
/* vorn_lomp_ctx: the argument record of the compressed-stream decoder.     */
/* ------------------------------------------------------------------------ */
/* A column flagged VORN_LOMP holds at `data` a compressed code stream; its
 * decompressed form is the column's ordinary packed stream of
 * src->decomp_size bytes.  Every kernel that reads codes decompresses it
 * the same way: if *src->decomp_slot is null it calls
 *     host->alloc(env, heap, decomp_size, "<kernel>: vec1_decomp", 8, 16,
 *                 src->alloc_tag)
 * stores the address in the cell, and calls host->lomp_decode(&lomp_ctx,
 * src->data, buffer, &length, decomp_size); later kernels reuse the cell.
 * So a VORN_LOMP column needs: kctx and kctx->host (alloc, work_alloc,
 * work_free, lomp_decode; put ctx->vorn_lomp_decode_dydi into
 * lomp_decode unless you have your own), a decomp_slot cell that starts
 * null and that the host clears when it frees the buffer, and an alloc
 * that gives decomp_size + 16 bytes (the decoder writes up to 7 bytes
 * behind a block, and the kernels read the result as a packed stream).
 * The cell is filled without a lock: threads scanning one column use
 * their own cells.  The stream format is written by the host kit's
 * vorn_kit_lomp_compress (vorn_kit.h). */
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
/* Result bit vectors.  Every kernel that answers with rows writes
 * res->res_bv: bit i (row i) is bit i & 63 of the ub8 word i >> 6, in the
 * host's native order (little-endian: row 0 is bit 0 of byte 0).  A full
 * compare writes all (size + 63) / 64 words and leaves every bit at
 * position size or above 0, so a popcount of the words is the count; the
 * count is also in res->num_ones.  The words must be 8-byte aligned (the
 * SSE kernels store whole words; 16-byte alignment is better).  bv_aux and
 * filter_bv have the same form, one bit per row (per run on a VORN_RLE
 * column), and must not be the same memory as res_bv.
 *
 * Two families work on these vectors through the slots: vorn_lbiw* on
 * arrays of ub8 words (8-byte aligned), vorn_lbiv* on byte strings of any
 * alignment; both take the length in bits.  The iterator:
 *   vorn_bv_iter it;
 *   ctx->vorn_lbiwv_ictx_ini2_dydi(&it, bv, bits, 0, first_row);
 *   for (ub8 r; (r = ctx->vorn_lbiwviter_dydi(&it)) != VORN_LBIWV_END;) ...
 * yields the set rows in ascending order (complement 1: the clear rows
 * below `bits`); vorn_lbiwvones_dydi(&it, out, max) writes up to max row
 * numbers as ub4 and returns how many (0 at the end).  The byte family
 * ends with VORN_LBIV_END.  No callbacks; kctx is not taken. */
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
/* Hashing and partitioning: the first steps of a hash join.                */
/* ------------------------------------------------------------------------ */

/* The host's hash function: hash = fn(value address, length in bytes, seed).
 * It must be a pure function of the bytes and the seed.  The library has no
 * hash of its own: every hash value it handles comes from this callback. */
typedef ub8 (*vorn_hash_fn)(const void *value, ub8 length, ub8 seed);

/*
 * vorn_hash_dydi(res, src, seeds, hash, kctx): one hash per row of src into
 * the ub8 array at res->data, row i at element i.  kctx is not read and may
 * be null; res->data is the only thing written (res->size and num_ones are
 * left alone).
 *
 * seeds: a ub8 column that must carry VORN_ALIGNED (else 2, before anything
 * else is looked at).  With seeds->size == 1 its one value seeds every row;
 * otherwise row i takes element i.  A key of several columns is hashed by
 * feeding each result in as the seeds of the next column.
 *
 * src: the first of these layouts in its flags decides the walk; none of
 * them gives 2 with nothing written.  Rows: src->size, 0 returns 0.
 *   VORN_FIXED        data + i * (bit_width >> 3), bit_width >> 3 bytes
 *   VORN_PACKED       code i of width bit_width, then the dictionary
 *   VORN_CODE_ARRAY   code = ((ub4 *)data)[i], then the dictionary
 *   VORN_LV_SEP       values end to end at data, ub2 lengths at data2
 *   VORN_LV           each value behind its ub2 length, end to end
 *   VORN_PTR_LEN      ub8 addresses at data, ub2 lengths at data2
 *   VORN_LEN_PTR      ten-byte rows: ub2 length, unaligned ub8 address
 * Dictionary symbol of code c: sym_layout 0: the big-endian ub2 length at
 * sym_header, address sym_base + c * length; any other sym_layout: the
 * big-endian ub4 offsets o = sym_offsets[c], e = sym_offsets[c + 1], length
 * (e - o) & 0xffff, address sym_base + o.  A compressed (VORN_LOMP) or
 * run-length column is not decoded here: the host hands in its plain form.
 */
typedef ub8 (*vorn_hash_entry_fn)(vorn_vec *res, vorn_vec *src, vorn_vec *seeds, vorn_hash_fn hash,
                                  vorn_kernel_ctx *kctx);

/* Bits of vorn_partition_ctrl.flags: what a record carries. */
#define VORN_PART_RID 0x1u          /* a ub8 row id */
#define VORN_PART_VAR 0x2u          /* self-describing variable record */
#define VORN_PART_PAYLOAD 0x4u      /* a fixed payload (4 or 8 bytes, or payload_bytes) */
#define VORN_PART_HASH 0x8u         /* the hash */
#define VORN_PART_NO_COPY 0x10u     /* refused (2) by the shapes that copy payload */
#define VORN_PART_VALUE32 0x20u     /* a ub4 value */
#define VORN_PART_REF 0x40u         /* a payload by reference: ub8 address, ub2 length */

/* Key kind (bits 24 to 30 of the enc_ctx flags) of a column of finished
 * 16-byte {row id ub8, hash ub8} records. */
#define VORN_KEY_KIND_RIDHASH 0x21u
/* Key kind of a column of 16-byte {key ub8, row id ub8} records, the pairs a
 * probe leaves: the gathers read the row id at byte 8. */
#define VORN_KEY_KIND_KEYRID 0x41u
#define VORN_KEY_KIND_FLAGS(kind) ((ub4)(kind) << 24)

/*
 * vorn_partition_ctrl: how vorn_partition_dydi scatters rows.  The host
 * fills every field; the kernel writes only the cursors (and the records
 * behind them).
 *
 * Partition of hash h: (h & m) >> low_bit, m = 2^(high_bit + 1) - 1, all
 * ones for high_bit 63.  The host gives 2^(high_bit - low_bit + 1) cursors
 * and limits; nothing checks the number.  A record goes to partition p only
 * when limits[p] - cursors[p] is at least its size, and then cursors[p]
 * moves past it; records are packed with no gap, in row order.
 */
typedef struct vorn_partition_ctrl {
    ub4 flags;                  /* VORN_PART_* : the record shape */
    ub1 high_bit;               /* highest hash bit of the partition number */
    ub1 low_bit;                /* lowest one */
    ub4 payload_bytes;          /* {hash, payload} shape: payload bytes per row */
    ub1 **cursors;              /* per partition: next write address; moved by the kernel */
    ub1 *const *limits;         /* per partition: end of its buffer */
} vorn_partition_ctrl;

/*
 * vorn_partition_dydi(ctrl, src, second, third, hash, kctx): rows of src
 * from kctx->row_pos on, into the partitions.  Returns 0 when every row is
 * placed (row_pos = src->size), 2 when the combination is not served
 * (nothing written), 6 when partition kctx->stop_row has no room for the
 * record of row kctx->row_pos: that row and the rest are not placed.  The
 * host then gives that partition a new cursor and limit and calls again with
 * the same kctx.  Before the first call it sets row_pos, byte_pos and
 * payload_byte_pos to 0.  byte_pos / payload_byte_pos: the offset into
 * src->data / the payload column's data of row row_pos, for the walked
 * layouts (VORN_LV, VORN_LV_SEP); after code 0 the offsets of the end.
 *
 * Row ids (second): base_rid + row under VORN_AUTORID, else ub8 data[row].
 * Keys are hashed with `hash` and seed 0, in blocks of up to 1024 rows; a
 * column of hashes (VORN_ALIGNED) is read as ub8 (or ub4, see below).
 *
 * Records (little-endian, "-" bytes are never written):
 *   src VORN_ALIGNED with third present, tested in this order:
 *     8|64     address ub8, length ub2, 6 "-", hash  (24)
 *     8|64|1   row id, hash, address ub8, length ub2, 6 "-"  (32)
 *              reference from third: VORN_FIXED (data + i * width, width),
 *              VORN_PTR_LEN or VORN_LEN_PTR, else 2
 *     8|32|1   8-byte hash: row id, value ub4, 4 "-", hash (24);
 *              4-byte hash: value ub4, hash ub4, row id (16)
 *     8|32     8-byte hash: value ub4, 4 "-", hash (16); 4-byte: value, hash (8)
 *              value: ub4 third->data[i]; hash width: src bit_width 32 or 64, else 2
 *     8|4|1    payload as ub8, hash, row id  (24)
 *     8|4      payload as ub8, hash  (16)
 *              payload: third VORN_FIXED of 4 or 8 bytes (native, widened), else 2
 *     8|1      row id, hash  (16)
 *     8        hash  (8)
 *   src VORN_KEY32 (native ub4 keys that are their own hash):
 *     32|1     value ub4, 4 "-", row id  (16);   32  value ub4  (4)
 *   otherwise:
 *     8|1      row id, hash (16) over src VORN_FIXED, VORN_LV_SEP, VORN_LV,
 *              VORN_PTR_LEN, VORN_LEN_PTR (hashed), VORN_ALIGNED (hashes), or
 *              key kind VORN_KEY_KIND_RIDHASH (records copied, hash at byte 8)
 *     8|2      ub2 (payload length + 8), hash, payload (10 + length); src in
 *              one of the six forms above, payload `second` in one of the five
 *              layouts.  src VORN_ALIGNED|VORN_LV: re-partition of such
 *              records, hash read at byte 2, each copied whole.
 *     8|4      hash, payload_bytes bytes of second (VORN_FIXED) (8 + payload_bytes)
 *     VORN_PART_NO_COPY with 8|2 or 8|4 gives 2, as does any other combination.
 *
 * Every record is in memory when the kernel returns; the stores are plain
 * (cached) stores, so a host that reads a partition next finds it in cache.
 */
typedef ub8 (*vorn_partition_fn)(vorn_partition_ctrl *ctrl, vorn_vec *src, vorn_vec *second,
                                 vorn_vec *third, vorn_hash_fn hash, vorn_kernel_ctx *kctx);
/* Key-value tables: vorn_kv, the header of a hash-join table.              */
/* ------------------------------------------------------------------------ */
/*
 * A table is a header, up to three regions each with a page table, and
 * pages.  The host fills `flags` (kind, form, VORN_KV_UNIQUE) and calls
 * vorn_layout_kv_dydi, which writes the layout fields of the regions and the
 * bits VORN_KV_PTR and VORN_KV_PREFETCH.  The host then allocates each
 * region's page table and as many pages as it likes, setting `pages` and
 * `mapped`; the build asks for further units through a vorn_kv_grow_fn.
 * All bytes not named below are the host's: the library neither reads nor
 * writes them.
 *
 * Bucket tables (forms 0 to 3): a 64-byte, 64-aligned bucket per unit.
 * For a hash h: bucket = (ub4) h & (2^page_bits - 1) of region 0, segment =
 * (h >> page_bits) & (segments - 1) unless the caller fixes one, address =
 * pages[segment] + 64 * bucket.  Overflow bucket n lives in region 1 at
 * pages[n >> page_bits] + ((n * 64) & (2^(page_bits + 6) - 1)).
 *   idx: ub4 at byte 0 = entry count (low count bits) | link, where link 0
 *        ends the chain and otherwise is (overflow id + 1) << count bits.
 *   ptr: ub8 at byte 0 = address of the next bucket or 0; ub2 at byte 8 =
 *        entry count (low count bits), matched flags above.
 * A full primary bucket is moved whole to a new overflow bucket and the
 * primary starts again with one entry, so every overflow bucket is full and
 * a chain reads newest to oldest.
 *
 * Array tables (form 4: 32-bit key to rid lists, kinds 4 and 5; form 5:
 * key counts, kind 3) are addressed by the key itself, page key >> 17
 * (>> 18 for counts).
 */
typedef struct vorn_kv_region {
    ub4 page_count;             /* byte 0, library: pages this region asks for */
    ub1 segment_bits;           /* byte 4, library: region 0: log2 of the segments */
    ub1 page_bits;              /* byte 5, library: log2 of the units in a page */
    ub1 group_bits;             /* byte 6, library: keys per array element, log2 */
    ub1 host_byte7;             /* byte 7: the host's */
    ub2 unit_bits;              /* byte 8, library: bits of one unit (512: a bucket) */
    ub2 entries;                /* byte 10, library: entries of a region-0 bucket, else 0 */
    ub4 active;                 /* byte 12, library: 1 in region 0, 0 elsewhere */
    ub8 host_word16;            /* byte 16: the host's */
    ub1 **pages;                /* byte 24, host: the page table, one address per page */
    ub8 host_words32[2];        /* bytes 32 to 47: the host's */
    ub4 mapped;                 /* byte 48, host: pages of `pages` mapped so far */
    ub4 host_word52;            /* byte 52: the host's */
    ub8 host_words56[3];        /* bytes 56 to 79: the host's */
} vorn_kv_region;

typedef struct vorn_kv {
    ub4 flags;                  /* byte 0, host: kind, form, VORN_KV_UNIQUE; library: PTR, PREFETCH */
    ub4 key_bits;               /* byte 4, library: key bit width of form 1, 0 until the first add */
    vorn_kv_region regions[3];  /* bytes 8, 88, 168: primary; overflow or lists; chunks */
} vorn_kv;

#define VORN_KV_KIND(flags) ((flags) & 0xffu)         /* bits 0 to 7 */
#define VORN_KV_FORM(flags) (((flags) >> 8) & 0xfu)   /* bits 8 to 11 */
#define VORN_KV_PTR 0x4000u       /* linked by address; set by the layout */
#define VORN_KV_PREFETCH 0x8000u  /* probe with prefetch; set by the layout */
#define VORN_KV_UNIQUE 0x10000u   /* unique keys: an array table keeps a key's first row */

/* Kinds: key bytes and value bytes of a bucket entry (14 does not exist). */
#define VORN_KV_K2V4 1u
#define VORN_KV_K2V8 2u
#define VORN_KV_K4 3u
#define VORN_KV_K4V4 4u
#define VORN_KV_K4V8 5u
#define VORN_KV_K6 6u
#define VORN_KV_K6V4 7u
#define VORN_KV_K6V8 8u
#define VORN_KV_K8 9u
#define VORN_KV_K8V4 10u
#define VORN_KV_K8V8 11u
#define VORN_KV_K10V4 12u
#define VORN_KV_K12 13u
#define VORN_KV_K12V4 15u

/* Forms, bits 8 to 11 of flags. */
#define VORN_KV_FORM_TAGS 0u      /* bucket table of hash tags */
#define VORN_KV_FORM_RECORDS 1u   /* bucket table keyed by the keys inside records */
#define VORN_KV_FORM_CODES 2u     /* bucket table of dictionary codes */
#define VORN_KV_FORM_KEYS 3u      /* bucket table of key bytes in slots */
#define VORN_KV_FORM_RIDS 4u      /* array table: 32-bit key to rid lists */
#define VORN_KV_FORM_COUNTS 5u    /* array table: 32-bit key to counts */
#define VORN_KV_FLAGS(kind, form) ((ub4)(kind) | ((ub4)(form) << 8))

/* The growth callback: grow(region, units, &id, ...) asks the host for
 * `units` consecutive units of `region`.  It returns 0 and writes the id of
 * the first unit of the block (its page is id >> page_bits), or returns a
 * non-zero code and writes the id it tried.  The library calls it with three
 * arguments, reads the region's `pages` afresh after a 0 return, and reports
 * a non-zero code to its caller unchanged. */
typedef ub8 (*vorn_kv_grow_fn)(vorn_kv_region *region, ub8 units, ub8 *id, ...);

/* vorn_layout_kv_dydi(distinct_estimate, row_count, &kv->flags, kv,
 * page_hint, idx_min_units, fill_min_units, fill_percent, force_ptr):
 * 0, 10 when no link type fits 32 segment bits, 24 for an unknown kind and
 * form. */
typedef ub8 (*vorn_layout_kv_fn)(ub8 distinct_estimate, ub8 row_count, ub4 *flags, vorn_kv *table,
                                 ub4 page_hint, ub4 idx_min_units, ub4 fill_min_units,
                                 ub4 fill_percent, ub4 force_ptr);

/* vorn_create_add_kv_dydi(kv, hash_vec, val_vec, key_vec, segment_id, ctx,
 * grow, status) adds rows ctx->row_pos to the hash column's size - 1.
 * segment_id < 0: each row's hash picks the segment.  Returns 0 (all added),
 * 2 (no member fits), 11 (array table: status = {0, page of region 0
 * wanted}), 12 (count page missing: status = {1, page}), or the grow
 * callback's own code with status = {region, page wanted}.  After a non-zero
 * return ctx->row_pos is the first row not added; map and call again. */
typedef ub8 (*vorn_create_add_kv_fn)(vorn_kv *kv, vorn_vec *hash_vec, vorn_vec *val_vec,
                                     vorn_vec *key_vec, sb8 segment_id, vorn_kernel_ctx *ctx,
                                     vorn_kv_grow_fn grow, ub8 *status);

/* vorn_probe_kv_dydi(rows_out, values_out, hash_vec, rows, key_vec, kv, mode,
 * ctx, stats) probes rows ctx->row_pos on; ctx->byte_pos holds the links
 * walked in a row that stopped inside its chain.  rows_out->data: ub8 row
 * identities; values_out->data: values in the kind's width; the capacity is
 * rows_out->size (values_out->size without rows_out) and on return that
 * size is the rows written, or the total of a counting mode.  Modes 7, 10
 * and 11 use values_out->res_bv with base values_out->base_rid.  stats[0]
 * += matches, stats[1] += links followed.  Returns 0, 2 (no member fits),
 * 14 (no such mode for this table) or 15 (output full: call again). */
typedef ub8 (*vorn_probe_kv_fn)(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec, vorn_vec *rows,
                                vorn_vec *key_vec, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 *stats);
/* vorn_mut_kv_scan_dydi(out, kv, mode, ctx, num_segments): values (mode 1)
 * or number (2) of matched entries, values (3) or number (4) of unmatched
 * ones, from segment ctx->stop_row, bucket ctx->byte_pos, links walked
 * ctx->payload_byte_pos.  Returns 0, 2 (kind without scan), 3 (not a ptr
 * table), 14 (mode) or 16 (output full: call again). */
typedef ub8 (*vorn_mut_kv_scan_fn)(vorn_vec *out, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx,
                                   ub8 num_segments);
/* Row assembly: gathers out of paged row stores, transposes into them.     */
/* ------------------------------------------------------------------------ */
/*
 * A row store is laid out by the host in pages.  A row id names its page and
 * its slot in the page by two bit numbers: slot = id & (2^low_bit - 1), page
 * = (id & mask(high_bit)) >> low_bit, with mask(h) = 2^(h + 1) - 1 and all
 * ones for h = 63.  A low_bit of 64 makes the store one page: page 0, slot =
 * id.  A slot is 32 bits: of a 64-bit id only the low 32 bits reach it.
 *
 * Store forms (flags), the value of column c of slot r in page p:
 *   VORN_STORE_REFS (0x10): ten-byte references, ref_pages[p] + 10 *
 *     (r * num_cols + c): a native ub2 length, an unaligned native ub8
 *     address; with VORN_STORE_ONE_COL one reference per row, at 10 * r.
 *   VORN_STORE_OFFSETS (0x8): native ub4 offsets into data_pages[p], o =
 *     offset_pages[p] + r * num_cols: value c is o[c] to o[c + 1], so a row
 *     of n columns reads n + 1 offsets; with VORN_STORE_ONE_COL o =
 *     offset_pages[p] + r.
 *   VORN_STORE_FIXED (0x4): data_pages[p] + r * row_stride +
 *     col_offsets[c], col_lens[c] bytes.
 * A spec with several of them is read as the first of 0x10, 0x8, 0x4.
 * VORN_STORE_ONE_COL is read by vorn_gather_dydi alone: the one-column and
 * column-list gathers always address value c of a row as above.
 *
 * Results (res.enc_ctx's layout): every call writes from the start of
 * res.data; res.byte_capacity is the room in bytes at res.data on entry and
 * the bytes written on return, res.size the values written.  A value takes
 * its length (VORN_LV_SEP, VORN_FIXED), its length + 2 (VORN_LV), 8
 * (VORN_PTR_LEN) or 10 (VORN_LEN_PTR) bytes of room; VORN_LV_SEP and
 * VORN_PTR_LEN put their ub2 lengths at res.data2.  A value without room
 * stops the call with 19 and row_pos at its row: the row's earlier values
 * stay in the result and the next call begins the row again.
 */
#define VORN_STORE_ONE_COL 0x2u      /* a row is one value (one reference, one offset) */
#define VORN_STORE_FIXED 0x4u        /* rows of fixed stride */
#define VORN_STORE_OFFSETS 0x8u      /* rows addressed through ub4 offset pages */
#define VORN_STORE_REFS 0x10u        /* rows of ten-byte references */
#define VORN_STORE_LEN_FIELDS 0x20u  /* transpose only: values keep a ub2 length in the bytes */

/* On a VORN_CODE_ARRAY column: each code indexes enc_ctx->code_values, a
 * native array of ub4 (or ub8) values; vorn_transpose_fixed_dydi writes the
 * value instead of the code. */
#define VORN_CODE_VALUES 0x800000u

typedef struct vorn_gather_spec {
    ub4 flags;                   /* VORN_STORE_* */
    ub2 num_cols;                /* columns per row of the store; fetched per row by vorn_gather_dydi */
    ub2 row_stride;              /* VORN_STORE_FIXED: bytes of a row */
    const ub1 *col_lens;         /* VORN_STORE_FIXED: bytes of each column */
    const ub1 *col_offsets;      /* VORN_STORE_FIXED: each column's offset in the row */
    ub1 high_bit;                /* highest id bit of the page number */
    ub1 low_bit;                 /* lowest id bit of the page number; 64: one page */
    const ub1 *const *ref_pages; /* VORN_STORE_REFS: per page, its ten-byte references */
    const ub4 *const *offset_pages; /* VORN_STORE_OFFSETS: per page, its ub4 offsets */
    const ub1 *const *data_pages;   /* VORN_STORE_OFFSETS, VORN_STORE_FIXED: per page, its bytes */
} vorn_gather_spec;

/*
 * The transposes fill one block (one page) of a store at a time; the host
 * hands in, per block, the cursors at which the next record goes, and the
 * kernels move the cursors of the variable stores.  flags as above:
 * VORN_STORE_ONE_COL with VORN_STORE_REFS writes one reference per row to
 * the row's bytes, each value behind a native ub2 length; with
 * VORN_STORE_LEN_FIELDS and not VORN_STORE_ONE_COL each value has its ub2
 * length in the bytes and its reference points behind it.
 */
typedef struct vorn_transpose_spec {
    ub1 flags;                   /* VORN_STORE_* */
    ub2 num_cols;                /* references per row */
    ub2 row_stride;              /* VORN_STORE_FIXED: bytes of a row */
    const ub1 *col_lens;         /* VORN_STORE_FIXED: bytes of each column */
    const ub1 *col_offsets;      /* VORN_STORE_FIXED: each column's offset in the row */
    ub1 *const *ref_tables;      /* per block: the table of row references (ten bytes each) */
    ub1 **ref_cursors;           /* per block: where the next ten-byte record of the store goes */
    ub4 **offset_cursors;        /* per block: where the next ub4 offset goes */
    ub1 **data_cursors;          /* per block: the write address in the block's bytes */
    ub1 *const *data_limits;     /* per block: the end of the block's bytes */
} vorn_transpose_spec;

/* Gathers: 0 done, 2 not served, 19 res full (resume at row_pos). */
typedef ub8 (*vorn_gather_fn)(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec,
                              vorn_kernel_ctx *ctx);
typedef ub8 (*vorn_gather_one_col_fn)(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec,
                                      vorn_kernel_ctx *ctx, ub4 col);
typedef ub8 (*vorn_gather_cols_fn)(vorn_vec *res, vorn_vec *src, const ub2 *col_list, ub4 num,
                                   const vorn_gather_spec *spec, vorn_kernel_ctx *ctx);
/* Transposes: 0 done, 2 not served, 18 block full (resume at row_pos). */
typedef ub8 (*vorn_transpose_fn)(const vorn_transpose_spec *spec, vorn_vec *src, ub4 col, sb4 block,
                                 vorn_kernel_ctx *ctx);
typedef ub8 (*vorn_transpose_convert_fn)(const vorn_transpose_spec *spec, const ub1 *const *refs,
                                         sb4 block, sb4 ref_block, ub4 first_row, ub4 last_row,
                                         vorn_kernel_ctx *ctx);

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

/* Width codes of vorn_convert_width: bit widths 1 to 20 are codes 0 to 19,
 * 24 is 20, 32 is 21 and 64 is 22.  Any other width (0, 21 to 23, 25 to
 * 31, 33 to 63, above 64) gives VORN_WIDTH_NONE, a width field at which
 * the dispatch table holds no kernel for any encoding, operation or form:
 * the entry is a null pointer, never a neighbouring width's kernel. */
#define VORN_WIDTH_NONE 31u
#define VORN_WIDTH_CODE(bits) \
    ((bits) >= 1 && (bits) <= 20 ? (ub4)(bits) - 1u \
     : (bits) == 24 ? 20u : (bits) == 32 ? 21u : (bits) == 64 ? 22u : VORN_WIDTH_NONE)

#define VORN_DISPATCH_SECOND 4096u  /* bit 12: _tz, _null, _c2d, _sum */
#define VORN_KERNEL_GROUP(width_code, encoding) ((ub4)(width_code) * 4u + (ub4)(encoding))
/* The index of a kernel: kernel group, operation, and the second-form bit. */
#define VORN_DISPATCH_INDEX(kernel_group, op, second) \
    (((ub4)(kernel_group) << 5) | (ub4)(op) | ((second) ? VORN_DISPATCH_SECOND : 0u))

#define VORN_DISPATCH_SCHEME_SIZE 8192u  /* indexes of the scheme */
#define VORN_DISPATCH_TABLE_WORDS 8256u  /* 64 zero words follow them */

/* ---- The column forms every scan kernel reads ----
 *
 * Packed code stream (VORN_PACKED, all _dict_ kernels): one big-endian bit
 * string from data[0], MSB first, end to end with no padding between codes
 * at any width.  Code i of width w is bits i*w .. i*w+w-1 counted from the
 * top bit of byte 0; its first bit is the code's top bit.  Reference read:
 *     b = i*w;  c = (load_be32(data + (b >> 3)) << (b & 7)) >> (32 - w);
 * (for w up to 25).  So widths 8, 16, 32, 64 are plain big-endian ub1, ub2,
 * ub4, ub8 arrays.  The stream needs 3 readable bytes behind its last byte
 * (the reference read of the last code); give 16.  Widths: 1 to 20, 24, 32
 * and 64 (64 for the compares only); no kernel exists for any other.
 * VORN_CODE_ARRAY (native ub4 per row) is a different layout that the scan
 * kernels do not take.
 *
 * Fixed-width values (VORN_FIXED, _fixed_ kernels): row i is the unsigned
 * big-endian number of s = bit_width / 8 bytes at data + i*s, compared as
 * unsigned (the store keeps signed and floating-point values in a form
 * whose unsigned order is their order).  Kernel width 8: s = 1; 16: s = 2;
 * 32: bit_width 32 or 24; 64: bit_width 64, 56, 48 or 40.  Set bit_width:
 * the 32- and 64-bit kernels read it.  The kernel group names the kernel's
 * width, not the value's: VORN_WIDTH_CODE(32) for 24-bit values,
 * VORN_WIDTH_CODE(64) for 40 to 56 bits.  Readable bytes behind the column:
 * 8 - s for the 64-bit kernel, 4 - s for the 32-bit one; give 16.
 *
 * Dynamic prefix (_dynp_ kernels, widths 16, 32, 64): data holds each row's
 * stored bytes end to end; a row of L bytes is the big-endian number with
 * those bytes first and zeros after.  data2 is the selector stream, MSB
 * first in each byte: 16-bit, 1 bit a row (bit 7 - (i & 7) of byte i >> 3);
 * 32-bit, 2 bits (at 2 * (3 - (i & 3)) of byte i >> 2); 64-bit, a nibble
 * (high for even i, low for odd i of byte i >> 1).  L = selector + 1 (a
 * 64-bit nibble above 7 is invalid).  Both streams need 16 readable bytes
 * behind their ends: a group is loaded 16 bytes at a time.
 *
 * The literal, at literals[0] (range forms: low[0] and high[0]):
 *   _fixed_            the value in a row's own stored bytes, big-endian;
 *                      the 32-bit kernel reads 4 bytes there and the 64-bit
 *                      kernel 8, keeping the top bit_width bits.
 *   _dict_ width 8     one ub1 code.
 *   _dict_ 16, 32, 64  the code big-endian, as in the stream (ub2, ub4, ub8).
 *   _dict_ others      a native ub4 code.  Width 1: zero or not zero.
 *                      A code above the top code is cut into the range.
 *   _dynp_             big-endian at the kernel's full width (2, 4, 8 bytes).
 *   _tz forms          literals[1] (low[1], high[1]) is a ub1 tz; the pair
 *                      (value, tz) is compared lexically, value first.  A
 *                      _fixed_ _tz column has its tz stream at data2 (16: 1
 *                      bit, 32: 2 bits, 64: 4 bits a row, MSB first as the
 *                      selectors; VORN_TZ_CONST: the one byte at data2).  A
 *                      _dynp_ row's tz is its selector; a literal tz above
 *                      2, 4, 8 returns VORN_RC_UNSUPPORTED.
 *   _null forms        as _dict_; code 0 is null and never matches.
 * Forms: eq lt gt le ge ne take literals; gt_lt gt_le ge_lt ge_le take low
 * and high (gt_lt: low < x < high).  An empty range matches nothing.
 *
 * What a compare writes and may take as null:
 *   res->res_bv   required: (src->size + 63) / 64 words, 8-byte aligned,
 *                 written whole; bits at size and above come out 0.
 *   res->num_ones the count.  Return VORN_RC_OK, or VORN_RC_EMPTY for 0.
 *   res->enc_ctx  may be null; res's other fields are not read.
 *   src->filter_bv may be null; if set it is ANDed in (one bit per row).
 *   kctx          may be null for a plain column.  Required (with
 *                 kctx->host) for VORN_LOMP (alloc, work_alloc, work_free,
 *                 lomp_decode) and VORN_RLE (src->enc_ctx->rle_expand is
 *                 called; no vorn_host_services callback).  With bv_aux
 *                 set the result is ANDed with it and VORN_DONE_BV_AUX is
 *                 set in done_flags; with VORN_CTX_SELECTIVE as well only
 *                 bv_aux's rows are read (not on a VORN_RLE column).
 * VORN_RLE column: data holds one code a run, rle_runs runs; the compare
 * writes one bit a run into enc_ctx->rle_bv ((rle_runs + 63) / 64 words)
 * and calls rle_expand(kctx->host, res, src, runs_ctx) with runs_ctx a
 * zeroed vorn_kernel_ctx whose bv_aux is the run bits and num_ones their
 * count; rle_expand must fill res->res_bv and res->num_ones (calling the
 * vorn_burst_rle_* kernel of the lengths does exactly that) and its return
 * is the compare's.  filter_bv and bv_aux then have one bit per run.
 *
 * ---- Decoding ----
 * vorn_decode_dict_<w> (res, src, kctx): for each row (or each ones_vec
 * entry) writes the symbol's address (ub8) to res->data, its length (ub2)
 * to res->data2 and an indicator (ub2: 0 a value, 2 length 0) to
 * res->data3, at dense positions 0, 1, ...; no symbol byte is copied.
 * The dictionary: enc_ctx sym_base, sym_layout 0 (fixed length: the
 * big-endian ub2 at sym_header; symbol c at sym_base + c * length) or 1
 * (big-endian ub4 sym_offsets, num_symbols + 1 of them), another layout
 * returns VORN_RC_BAD_RECORD.  kctx is required: set ones_vec_size to the
 * rows even without ones_vec (data3 is cleared for that many entries).
 * Afterwards num_ones = rows produced, row_pos = the LAST row done, and
 * VORN_DONE_DECODED is set.  Arrays: one entry a row; give 16 bytes slack.
 * vorn_decode_unpack_dict_<w>: codes out as plain native integers at
 * res->data, zero-extended (ub1 for widths up to 8, ub2 up to 16, ub4
 * above, ub4 for all with VORN_CTX_UNPACK_UB4 in kctx->flags), no
 * dictionary read.  kctx required.  Rows: ones_vec's rows; else the
 * bv_aux selection (with VORN_CTX_SELECTIVE by iterator); else at most
 * res->size rows from row_pos.  row_pos is left at the next row;
 * num_ones = elements written; VORN_RC_EMPTY when none.
 * vorn_burst_rle_* (res, src, kctx): the rle_expand of a compare, run bits
 * in kctx->bv_aux; res->res_bv needs 7 readable and writable bytes behind
 * its last word (one spare word does it).
 *
 * ---- Min/max: vorn_minmax_dict_<w>[_null] (res, src, kctx, mode) ----
 * res->data points at two ub4, the smallest then the largest code of the
 * rows seen, written only when a row was seen (VORN_RC_OK; else
 * VORN_RC_EMPTY and both left as they were).  kctx required: row_pos is
 * the first row (set 0) and is written; ones_vec or bv_aux select rows;
 * enc_ctx->num_symbols must be set (it is the "nothing seen" minimum).
 * mode is not read by this build.  _null skips code 0.
 *
 * Every kernel that reads codes also takes the VORN_LOMP form: see
 * vorn_lomp_ctx above. */

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
/* Vector search: stored vector values, element types, metrics, kernels.    */
/* ------------------------------------------------------------------------ */
/*
 * A stored vector value: magic 0xDB, version 0 to 3, a reserved byte, the
 * flags byte, the format byte and a big-endian ub4 element count; an 8-byte
 * field follows when a bit of VORN_LV_FIELD_MASK is set, and the body begins
 * at the body offset that lvector_to_header_basic settles.
 */
#define VORN_LV_MAGIC 0xDBu
#define VORN_LV_MAX_VERSION 3u
#define VORN_LV_HEADER_BYTES 9u
#define VORN_LV_USABLE_MASK 0x12u   /* one of these bits must be set */
#define VORN_LV_NATIVE 0x08u        /* body in native form, not order-preserving */
#define VORN_LV_SPARSE 0x20u        /* body is sparse: count, positions, values */
#define VORN_LV_FIELD_MASK 0x3Au    /* any of these: the 8-byte field follows the header */
#define VORN_LV_KEPT_MASK 0x3Bu     /* the flag bits kept in the parsed header */

/* Format bytes of a stored value. */
#define VORN_LV_FLOAT16 1u
#define VORN_LV_FLOAT 2u
#define VORN_LV_DOUBLE 3u
#define VORN_LV_INT8 4u
#define VORN_LV_BITMSB0 5u
#define VORN_LV_BFLOAT16 6u

/* Returns of lvector_to_header_basic. */
#define VORN_LV_BAD_MAGIC (-251)
#define VORN_LV_BAD_VERSION (-226)
#define VORN_LV_UNUSABLE (-245)

/* The parsed header, as lvector_to_header_basic fills it. */
typedef struct vorn_lvector_header {
    ub1 format;                 /* the value's format byte */
    ub1 body_off;               /* bytes from the value's start to its body */
    ub1 second_off;             /* 9 when the 8-byte field is present, else 0 */
    ub1 flags;                  /* the flags byte & VORN_LV_KEPT_MASK */
    ub4 dims;                   /* element count */
} vorn_lvector_header;

/* The library's element types (vec_dim columns' elem_type; the pick's type
 * arguments). */
#define VORN_VTYPE_FLOAT 1u
#define VORN_VTYPE_DOUBLE 2u
#define VORN_VTYPE_INT8 5u
#define VORN_VTYPE_BITMSB0 6u
#define VORN_VTYPE_FLOAT16 7u
#define VORN_VTYPE_BFLOAT16 8u

/* Metric codes. */
#define VORN_METRIC_EUCLID 1u          /* root of the sum of squares */
#define VORN_METRIC_EUCLID_SQUARED 2u  /* sum of squares */
#define VORN_METRIC_COSINE 3u          /* cosine similarity */
#define VORN_METRIC_COSINE_DISTANCE 4u /* 1.0 minus similarity */
#define VORN_METRIC_DOTPROD 5u         /* dot product */
#define VORN_METRIC_NEG_DOTPROD 6u     /* negated dot product */
#define VORN_METRIC_MANHATTAN 7u       /* sum of absolute differences */
#define VORN_METRIC_HAMMING 8u         /* count of differing positions */
#define VORN_METRIC_JACCARD 9u         /* similarity of bit vectors */
#define VORN_METRIC_JACCARD_DISTANCE 10u /* 1.0 minus similarity */

/* Codes of the vector entries beyond those of every family. */
#define VORN_VEC_NORM_OVERFLOW 4u   /* a row's sum of squares is infinite or NaN */
#define VORN_VEC_TOO_MANY 20u       /* more elements than the dimension count */
#define VORN_VEC_BAD_NUMBER 21u     /* bad number or not representable in the result type */
#define VORN_VEC_SYNTAX 22u         /* any other fault of a vector's text */

/* A distance kernel vorn_dbv_<metric>_<left>_<right>: (dimensions, left body,
 * right body, metric code, output).  It writes one double and returns 0. */
typedef ub8 (*vorn_dbv_fn)(ub4 dims, const void *left, const void *right, ub4 metric,
                           double *out);

/* vorn_vector_pick_metric_dydi(metric, left type, left C, left sparse,
 * right type, right C, right sparse): the kernel, or null. */
typedef vorn_dbv_fn (*vorn_vector_pick_metric_fn)(ub4 metric, ub4 left_type, ub4 left_c,
                                                  ub4 left_sparse, ub4 right_type,
                                                  ub4 right_c, ub4 right_sparse);

/* vorn_vector_parse_dydi(res, norms, src, bad_rows, kctx): vector texts into
 * stored bodies.  See the parser's header comment for the fields read. */
typedef ub8 (*vorn_vector_parse_fn)(vorn_vec *res, double **norms, vorn_vec *src,
                                    ub8 *bad_rows, vorn_kernel_ctx *kctx);

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

/* Two-column entries (slots; no callbacks unless a column is VORN_LOMP):
 *   vorn_eq_stream_dydi(res, a, b, kctx): row i matches when a's and b's
 *     values are equal; both columns need the same layout, tried in the
 *     order VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR, VORN_FIXED,
 *     else VORN_RC_UNSUPPORTED.  With VORN_SHORT_VALUES values are read 8
 *     bytes at a time: 8 readable bytes behind each value.
 *   vorn_selective_dydi(res, src, kctx): copies the rows selected by
 *     kctx->ones_vec (ascending) or kctx->bv_aux from kctx->row_pos on,
 *     until res->size rows or res->byte_capacity bytes; VORN_RC_OUTPUT_FULL
 *     leaves row_pos and byte_pos for the next call.  Layout flags on both
 *     src and res: VORN_LEN_PTR, VORN_PTR_LEN, VORN_LV, VORN_LV_SEP,
 *     VORN_FIXED.  The ub2 lengths are native.
 *   vorn_lookup_and_compare_dydi(res, src, &second, &map1, &map2, &op,
 *     kctx): native ub4 codes of src and second, each optionally mapped
 *     through map1/map2 (cells holding null: no map), compared by the ub1
 *     op (VORN_OP_EQ..VORN_OP_NE; 6 and above match nothing); bits are
 *     only set, so res_bv must be cleared by the caller. */
typedef ub8 (*vorn_eq_stream_fn)(vorn_vec *res, vorn_vec *a, vorn_vec *b, vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_selective_fn)(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);
typedef ub8 (*vorn_lookup_and_compare_fn)(vorn_vec *res, vorn_vec *src,
                                          const ub4 *const *second, const ub4 *const *map1,
                                          const ub4 *const *map2, const ub1 *const *op,
                                          vorn_kernel_ctx *kctx);

/* ------------------------------------------------------------------------ */
/* Bloom filter: vorn_bloom_dydi(res, src, filter, kctx, mode).             */
/* ------------------------------------------------------------------------ */
/*
 * Tests a column of hashes against a filter that the host has built.
 *
 * src: the hashes, an array of big-endian elements (VORN_ALIGNED; without it
 * the call returns 2 and writes nothing).  A bit_width whose low byte is 32
 * means 32-bit hashes, any other width 64-bit hashes.  Only the low 32 bits
 * of a swapped hash are used: the last four bytes of a 64-bit hash.
 *
 * filter: filter->res_bv is the filter's bytes (bit n is bit n & 7 of byte
 * n >> 3), or, when enc_ctx->bloom_paged is not 0, an array of page
 * addresses.  For a hash word h:
 *   a  = h & bloom_mask
 *   flat:  b1 = a;                                s = (h >> 26) & bloom_mask
 *   paged: b1 = a & bloom_bit_mask in page a >> bloom_page_shift;
 *                                  s = (h >> 26) & bloom_mask & bloom_bit_mask
 *   b2 = (b1 & ~63) | s                           (two-bit filters only)
 * mode 1: a row passes when b1 is set; any other mode: when b1 and b2 are.
 *
 * Rows: kctx->start_row to src->size - 1 (a null kctx: from row 0, no
 * selection).  With kctx->bv_aux only the rows of the selection from
 * start_row on are tested.  Bit r of res->res_bv is set for each passing
 * row r and no bit is cleared: the caller clears the vector first.
 * res->num_ones = the passing rows; res->data receives two ub4, the first
 * and the last passing row, VORN_BLOOM_NO_ROW each when none passed.
 * Returns 0 when a row passed, 1 when none did, 2 when refused.
 */
#define VORN_BLOOM_NO_ROW 0xffffffffu
#define VORN_BLOOM_ONE_BIT 1u       /* mode: one-bit filter; every other mode: two bits */
typedef ub8 (*vorn_bloom_fn)(vorn_vec *res, vorn_vec *src, vorn_vec *filter, vorn_kernel_ctx *kctx,
                             ub1 mode);

/* ------------------------------------------------------------------------ */
/* Point in polygon.                                                        */
/* ------------------------------------------------------------------------ */
/*
 * vorn_spatial_pip_dydi(res, xs, ys, px, py): *res receives the number of
 * edges of a planar ring that the ray from (x, y) towards +X crosses.  xs is
 * a column whose data is the ring's X (doubles) and whose size is the vertex
 * count n; *ys its Y; **px, **py the point.  An edge (i, j) is looked at when
 * (y < Y[i]) differs from (y < Y[j]).  Edges (k, k+1) for k below 2(n/2 - 1)
 * are taken in pairs; the last n - 2(n/2 - 1) vertices (all n when n < 4)
 * are then walked as a closed ring of their own.  For even n that walks the
 * edge (n-2, n-1) in both directions, and the edge (n-1, 0) is never taken:
 * a host that wants the parity of the count to say "inside" passes the ring
 * closed (first vertex repeated) and padded with the first vertex to an even
 * count.  Returns 0.
 */
typedef ub8 (*vorn_spatial_pip_fn)(ub4 *const *res, const vorn_vec *xs, const double *const *ys,
                                   const double *const *px, const double *const *py);

/* Points on the unit sphere as three arrays of coordinates. */
typedef struct vorn_sphere_points {
    const double *x;
    const double *y;
    const double *z;
    ub4 count;
} vorn_sphere_points;

/*
 * vorn_spheric_pip_dydi(res, polygon, points, unused, unused, eps): one byte
 * per point into *res:
 *   0x40                   outside the polygon's bounding cap
 *   0xC0 | crossings       the point coincides with a vertex
 *   0x80 | crossings       the point lies on an edge
 *   crossings & 0x7F       else; odd means inside
 * Returns 24, writing nothing, when the polygon does not fit in a hemisphere
 * (also for no vertex), else 0.  The fourth and fifth arguments are not read.
 */
#define VORN_SPHERIC_OUTSIDE_CAP 0x40u
#define VORN_SPHERIC_ON_VERTEX 0xC0u
#define VORN_SPHERIC_ON_EDGE 0x80u
typedef ub8 (*vorn_spheric_pip_fn)(ub1 *const *res, const vorn_sphere_points *polygon,
                                   const vorn_sphere_points *points, void *unused4, void *unused5,
                                   double eps);
/* Vector search: distances, top-K, element conversion and arithmetic over
 * vector columns.  `metric` is read in its low 32 bits; `forms` holds the
 * left operand's sparse form in bits 1-2 and the right's in bits 3-4;
 * `scratch` is null or room for one decoded query vector.  `norms` is null
 * or the address of a pointer to one double per row. */
typedef ub8 (*vorn_vector_distance_fn)(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms,
                                       vorn_kernel_ctx *ctx, void *scratch);
typedef ub8 (*vorn_vector_convert_fp_fn)(vorn_vec *res, double **norms, vorn_vec *src, ub8 *bad_rows,
                                         vorn_kernel_ctx *ctx);
typedef ub8 (*vorn_vector_arith_entry_fn)(vorn_vec *res, double **norms, vorn_vec *left, vorn_vec *right,
                                          ub8 operation, vorn_kernel_ctx *ctx, void *unused);

/* One entry of a top-K result: the row and its distance (in the C form
 * unless the result has VORN_NATIVE_FP). */
typedef struct vorn_topk_entry {
    ub4 row;
    ub4 pad;
    double distance;
} vorn_topk_entry;

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

    vorn_bloom_fn vorn_bloom_dydi;
    vorn_spatial_pip_fn vorn_spatial_pip_dydi;
    vorn_spheric_pip_fn vorn_spheric_pip_dydi;
    vorn_unserved_fn vorn_groupkey_dydi;
    vorn_unserved_fn vorn_dgk_concatenate_dydi;
    vorn_unserved_fn vorn_extract_dgk_dydi;
    vorn_unserved_fn vorn_gby_sum_dydi;
    vorn_unserved_fn vorn_convert_dydi;
    vorn_unserved_fn vorn_prefix_decode_dydi;
    vorn_hash_entry_fn vorn_hash_dydi;
    vorn_partition_fn vorn_partition_dydi;
    vorn_gather_fn vorn_gather_dydi;
    vorn_gather_one_col_fn vorn_gather_one_col_dydi;
    vorn_gather_cols_fn vorn_gather_cols_dydi;
    vorn_transpose_fn vorn_transpose_reference_dydi;
    vorn_transpose_convert_fn vorn_transpose_convert_dydi;
    vorn_transpose_fn vorn_transpose_fixed_dydi;
    vorn_layout_kv_fn vorn_layout_kv_dydi;
    vorn_create_add_kv_fn vorn_create_add_kv_dydi;
    vorn_probe_kv_fn vorn_probe_kv_dydi;
    vorn_mut_kv_scan_fn vorn_mut_kv_scan_dydi;
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
    vorn_vector_distance_fn vorn_vector_distance_dydi;
    vorn_vector_distance_fn vorn_vector_topk_dydi;
    vorn_vector_pick_metric_fn vorn_vector_pick_metric_dydi;
    vorn_vector_parse_fn vorn_vector_parse_dydi;
    vorn_vector_convert_fp_fn vorn_vector_convert_fp_dydi;
    vorn_vector_arith_entry_fn vorn_vector_arith_dydi;
} vorn_specialized_ctx;

#ifdef __cplusplus
static_assert(sizeof(vorn_specialized_ctx) == 88 * 8, "the context record is 88 words");
static_assert(sizeof(vorn_kernel) == 8, "a dispatch entry is one word");
static_assert(sizeof(vorn_bv_iter) == 32, "the iterator is four words");
static_assert(offsetof(vorn_xlate_table, table) == 5 * 8, "the table is the sixth word");
static_assert(sizeof(vorn_kv_region) == 80, "a table region is 80 bytes");
static_assert(offsetof(vorn_kv_region, segment_bits) == 4 && offsetof(vorn_kv_region, page_bits) == 5 &&
    offsetof(vorn_kv_region, group_bits) == 6 && offsetof(vorn_kv_region, unit_bits) == 8 &&
    offsetof(vorn_kv_region, entries) == 10 && offsetof(vorn_kv_region, active) == 12 &&
    offsetof(vorn_kv_region, pages) == 24 && offsetof(vorn_kv_region, mapped) == 48,
    "the fields of a region at their bytes");
static_assert(offsetof(vorn_kv, key_bits) == 4, "key_bits at byte 4");
static_assert(offsetof(vorn_kv, regions[0]) == 8 && offsetof(vorn_kv, regions[1]) == 88 &&
    offsetof(vorn_kv, regions[2]) == 168, "the regions at bytes 8, 88 and 168");
#else
_Static_assert(sizeof(vorn_specialized_ctx) == 88 * 8, "the context record is 88 words");
_Static_assert(sizeof(vorn_kernel) == 8, "a dispatch entry is one word");
_Static_assert(sizeof(vorn_bv_iter) == 32, "the iterator is four words");
_Static_assert(sizeof(vorn_topk_entry) == 16, "a top-K entry is 16 bytes");
_Static_assert(offsetof(vorn_xlate_table, table) == 5 * 8, "the table is the sixth word");
_Static_assert(sizeof(vorn_kv_region) == 80, "a table region is 80 bytes");
_Static_assert(offsetof(vorn_kv_region, segment_bits) == 4 && offsetof(vorn_kv_region, page_bits) == 5 &&
     offsetof(vorn_kv_region, group_bits) == 6 && offsetof(vorn_kv_region, unit_bits) == 8 &&
     offsetof(vorn_kv_region, entries) == 10 && offsetof(vorn_kv_region, active) == 12 &&
     offsetof(vorn_kv_region, pages) == 24 && offsetof(vorn_kv_region, mapped) == 48,
     "the fields of a region at their bytes");
_Static_assert(offsetof(vorn_kv, key_bits) == 4, "key_bits at byte 4");
_Static_assert(offsetof(vorn_kv, regions[0]) == 8 && offsetof(vorn_kv, regions[1]) == 88 &&
     offsetof(vorn_kv, regions[2]) == 168, "the regions at bytes 8, 88 and 168");
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
