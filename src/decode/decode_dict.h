// decode_dict.h - vorn_decode_dict_<w>bit: a stretch of a dictionary column
// turned into, per produced row, the address of its symbol (data), the
// symbol's length (ub2, data2) and an indicator (ub2, data3: 2 when the
// length, cut to 16 bits, is 0).  No symbol byte is read or copied.
//
// The rows are either all rows 0..size-1 or the ascending row numbers of
// kctx->ones_vec, written densely at positions 0, 1, ...  Dictionaries:
//   sym_layout 1  big-endian ub4 offsets from sym_base, one per symbol and
//                 one behind the last; length = next - this, low 16 bits
//   sym_layout 0  one big-endian ub2 length L at sym_header; symbol c at
//                 sym_base + c*L.  L = 0 makes every row empty without
//                 reading the code stream, and takes ones_vec as present.
//   other         result 24, nothing written.
// The two walks carry the bit position differently: the walk over all rows
// adds w to a 64-bit sum, the ones_vec walk multiplies row by w in 32 bits,
// which wraps at 2^32 bits.  The variable-length walks prefetch the offset
// entry of the code 8 positions ahead and the stream byte 16 positions
// ahead; fixed-length walks prefetch nothing.
//
// Finish: row_pos = the last row done (so size - 1, 0xFFFFFFFF for an empty
// column), num_ones = rows produced, done_flags |= 0x4.
#pragma once

#include <xmmintrin.h>

#include "decode/decode_entries.h"
#include "frame/decompress.h"
#include "frame/packed_read.h"

namespace vorn {

struct DecodeOut {
    const ub1 **ptr;
    ub2 *len;
    ub2 *flag;
};

VORN_INLINE DecodeOut decode_out(const vorn_vec *res) {
    return {static_cast<const ub1 **>(res->data), static_cast<ub2 *>(res->data2),
            static_cast<ub2 *>(res->data3)};
}

// Shared by every width: the fixed-length-0 path, the cleared indicators
// and the finish.
VORN_INTERNAL ub8 decode_all_empty(vorn_vec *res, vorn_kernel_ctx *kctx);
VORN_INTERNAL bool clear_indicators(const vorn_vec *res, const vorn_vec *src, const vorn_kernel_ctx *kctx,
                                    bool var_walk);
VORN_INTERNAL ub8 finish_decode(vorn_vec *res, const vorn_vec *src, vorn_kernel_ctx *kctx);

VORN_INLINE void prefetch_read(const void *p) { _mm_prefetch(static_cast<const char *>(p), _MM_HINT_T0); }

// Symbols by offset table.  An empty symbol's indicator is 2; a non-empty
// one's is written 0 only where the walk owns the indicators (see
// clear_indicators), else left as it is.
struct VarDict {
    const ub1 *base;
    const ub4 *offsets;
    bool owns_indicators;

    VORN_INLINE void put(const DecodeOut &o, ub4 j, ub4 code) const {
        const ub4 off = load_be32(offsets + code);
        const ub4 len = (load_be32(offsets + code + 1) - off) & 0xffff;
        o.ptr[j] = base + off;
        o.len[j] = static_cast<ub2>(len);
        if (len == 0) o.flag[j] = 2;
        else if (owns_indicators) o.flag[j] = 0;
    }
    VORN_INLINE void prefetch_symbol(ub4 code) const { prefetch_read(offsets + code); }
    static constexpr bool kPrefetch = true;
};

// Symbols of one length L > 0: no indicator is set.
struct FixedDict {
    const ub1 *base;
    ub4 len;

    VORN_INLINE void put(const DecodeOut &o, ub4 j, ub4 code) const {
        o.ptr[j] = base + static_cast<ub8>(code) * len;
        o.len[j] = static_cast<ub2>(len);
    }
    VORN_INLINE void prefetch_symbol(ub4) const {}
    static constexpr bool kPrefetch = false;
};

// The prefetching walks go in batches of 8 rows whose codes were read one
// batch earlier, when their offset entries were prefetched: each code is
// read once, and the batch's codes stay in registers.
inline constexpr ub4 kBatch = 8;
inline constexpr ub4 kSymbolAhead = 8;   // rows ahead whose offset entry is prefetched
inline constexpr ub4 kStreamAhead = 16;  // rows ahead whose stream byte is prefetched

// All rows 0..n-1; the bit position is a 64-bit running sum.
template <ub4 W, class Dict>
VORN_INLINE void decode_all_rows(const ub1 *stream, ub4 n, const Dict &dict, const DecodeOut &o) {
    ub8 bit = 0;
    ub4 i = 0;
    if constexpr (Dict::kPrefetch) {
        if (n >= kBatch + kStreamAhead + 1) {
            ub4 code[kBatch];
            for (ub4 k = 0; k < kBatch; ++k) code[k] = read_code_at<W>(stream, ub8{k} * W);
            // While row i + 16 exists, for every row of the batch.
            for (; ub8{i} + kBatch + kStreamAhead <= n; i += kBatch, bit += kBatch * W) {
#pragma GCC unroll 8
                for (ub4 k = 0; k < kBatch; ++k) {
                    const ub8 at = bit + k * W;
                    const ub4 ahead = read_code_at<W>(stream, at + kSymbolAhead * W);
                    dict.prefetch_symbol(ahead);
                    prefetch_read(stream + ((at + kStreamAhead * W) >> 3));
                    dict.put(o, i + k, code[k]);
                    code[k] = ahead;
                }
            }
        }
        for (; ub8{i} + kStreamAhead < n; ++i, bit += W) {
            dict.prefetch_symbol(read_code_at<W>(stream, bit + kSymbolAhead * W));
            prefetch_read(stream + ((bit + kStreamAhead * W) >> 3));
            dict.put(o, i, read_code_at<W>(stream, bit));
        }
    }
    for (; i < n; ++i, bit += W) dict.put(o, i, read_code_at<W>(stream, bit));
}

// The bit position of a selected row: row * W in 32 bits.
template <ub4 W>
VORN_INLINE ub4 selected_bit(ub4 row) {
    return row * W;
}

template <ub4 W>
VORN_INLINE ub4 selected_code(const ub1 *stream, ub4 row) {
    return read_code_at<W>(stream, selected_bit<W>(row));
}

// The rows of ones_vec, at dense positions.
template <ub4 W, class Dict>
VORN_INLINE void decode_selected_rows(const ub1 *stream, const ub4 *rows, ub4 k, const Dict &dict,
                                      const DecodeOut &o) {
    ub4 j = 0;
    if constexpr (Dict::kPrefetch) {
        if (k >= kBatch + kStreamAhead + 1) {
            ub4 code[kBatch];
            for (ub4 b = 0; b < kBatch; ++b) code[b] = selected_code<W>(stream, rows[b]);
            for (; ub8{j} + kBatch + kStreamAhead <= k; j += kBatch) {
#pragma GCC unroll 8
                for (ub4 b = 0; b < kBatch; ++b) {
                    const ub4 ahead = selected_code<W>(stream, rows[j + b + kSymbolAhead]);
                    dict.prefetch_symbol(ahead);
                    prefetch_read(stream + (selected_bit<W>(rows[j + b + kStreamAhead]) >> 3));
                    dict.put(o, j + b, code[b]);
                    code[b] = ahead;
                }
            }
        }
        for (; ub8{j} + kStreamAhead < k; ++j) {
            dict.prefetch_symbol(selected_code<W>(stream, rows[j + kSymbolAhead]));
            prefetch_read(stream + (selected_bit<W>(rows[j + kStreamAhead]) >> 3));
            dict.put(o, j, selected_code<W>(stream, rows[j]));
        }
    }
    for (; j < k; ++j) dict.put(o, j, selected_code<W>(stream, rows[j]));
}

template <ub4 W, class Dict>
VORN_INLINE void decode_rows(const ub1 *stream, const vorn_vec *src, const vorn_kernel_ctx *kctx,
                             const Dict &dict, const DecodeOut &o) {
    if (kctx->ones_vec)
        decode_selected_rows<W>(stream, kctx->ones_vec, kctx->ones_vec_size, dict, o);
    else
        decode_all_rows<W>(stream, src->size, dict, o);
}

template <ub4 W>
ub8 decode_dict(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx) {
    using Text = KernelText<kernel_name<decode_dict_index(W)>()>;
    const vorn_enc_ctx *enc = src->enc_ctx;
    const ub4 layout = enc->sym_layout;
    if (layout > 1) return 24;
    const auto *base = static_cast<const ub1 *>(enc->sym_base);
    const ub4 fixed_len = layout == 0 ? load_be16(enc->sym_header) : 0;
    if (layout == 0 && fixed_len == 0) return decode_all_empty(res, kctx);

    const ub1 *stream = column_stream<Text>(src, kctx);
    const bool walk_owns = clear_indicators(res, src, kctx, layout == 1);
    const DecodeOut o = decode_out(res);
    if (layout == 1)
        decode_rows<W>(stream, src, kctx, VarDict{base, enc->sym_offsets, walk_owns}, o);
    else
        decode_rows<W>(stream, src, kctx, FixedDict{base, fixed_len}, o);
    return finish_decode(res, src, kctx);
}

}  // namespace vorn
