// xlate_kernel.h - the translation kernel template, vorn_xlate_*.
//
// A call translates rows start_row .. size-1 of an array of big-endian ub4
// codes (VORN_ALIGNED, bit_width 32):
//   lead-in  rows one at a time up to the next multiple of 8, so that the
//            blocks write whole bytes of the result;
//   blocks   16 rows: four loads, the byte swap by shuffle, the range test
//            by clamping, the table indexes by vector, the entries gathered
//            one lane at a time, the 16 result bits formed at once and
//            stored as one ub2; _c2d members store 16 values, all ones for
//            the rows not kept.  The code array is prefetched 640 bytes
//            ahead, non-temporally: it is read once.
//   tail     the rest one at a time.
// With bv_aux the rows outside the selection count as not kept; a block
// without any selected row is written without a lookup.
//
#pragma once

#include "frame/decompress.h"
#include "xlate/xlate_lookup.h"

namespace vorn::xlate {

inline constexpr ub8 kNoRow = VORN_XLATE_NO_ROW;
inline constexpr ub8 kNotServed = 2;
inline constexpr ub4 kPrefetchBytes = 640;

// What one call has kept: the count and the first and last kept rows.
struct Tally {
    ub8 count = 0, first = kNoRow, last = kNoRow;
    VORN_INLINE void add_row(ub8 row) {
        ++count;
        last = row;
        if (first == kNoRow) first = row;
    }
    VORN_INLINE void add_block(ub8 row, ub4 kept) {
        if (!kept) return;
        count += static_cast<ub4>(__builtin_popcount(kept));
        last = row + 31 - static_cast<ub4>(__builtin_clz(kept));
        if (first == kNoRow) first = row + static_cast<ub4>(__builtin_ctz(kept));
    }
};

// The end of every call that was served: res.num_ones, the kept count and
// the ends in the translation record (not the ends under 0x400), the bv_aux
// flag, and 0, or 1 when nothing was kept.
VORN_INTERNAL ub8 finish(vorn_vec *res, vorn_kernel_ctx *kctx, const Tally &t);

// A call in which no code can have a mapping: rows start..end-1 cleared, and
// for _c2d (out_bytes > 0) their output elements set to all ones.
VORN_INTERNAL ub8 keep_nothing(vorn_vec *res, vorn_kernel_ctx *kctx, ub8 start, ub8 end, void *out,
                               ub4 out_bytes);

VORN_INLINE bool serves_column(const vorn_vec *src) {
    const vorn_enc_ctx *enc = src->enc_ctx;
    return VORN_ENC_CTX_FLAG(enc, VORN_ALIGNED) && enc->bit_width == 32;
}

VORN_INLINE void put_row_bit(ub1 *bits, ub8 row, bool kept) {
    const ub1 b = static_cast<ub1>(1u << (row & 7));
    bits[row >> 3] = static_cast<ub1>(kept ? bits[row >> 3] | b : bits[row >> 3] & ~b);
}

template <class Out>
inline constexpr Out kAllOnes = static_cast<Out>(~Out{0});

// One row of the lead-in or the tail.
template <XlateKind K, XlateElem E, bool C2D, bool Aux, class Out>
VORN_INLINE void translate_row(const View &v, const ub1 *codes, ub8 row, ub1 *bits, Out *out,
                               const ub8 *aux, Tally &t) {
    ub4 value = 0;
    const bool selected = !Aux || ((aux[row >> 6] >> (row & 63)) & 1);
    const bool kept = selected && find_one<K, E>(v, load_be32(codes + 4 * row), value);
    put_row_bit(bits, row, kept);
    if constexpr (C2D) out[row] = kept ? static_cast<Out>(value) : kAllOnes<Out>;
    if (kept) t.add_row(row);
}

// 16 rows from `row`, a multiple of 8.  `selected` holds the rows that may
// be kept (all 16 without bv_aux).
template <XlateKind K, XlateElem E, bool C2D, class Out>
VORN_INLINE ub4 translate_block(const View &v, const VecView &w, const ub1 *codes, ub8 row, Out *out,
                                ub4 selected) {
    const ub1 *at = codes + 4 * row;
    _mm_prefetch(reinterpret_cast<const char *>(at) + kPrefetchBytes, _MM_HINT_NTA);
    const __m128i swap = kSwap32.vec();
    __m128i clamped[4], in_range[4];
    for (ub4 j = 0; j < 4; ++j) {
        const __m128i c = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(at) + j), swap);
        clamped[j] = _mm_min_epu32(_mm_max_epu32(c, w.lo), w.hi);
        in_range[j] = _mm_cmpeq_epi32(clamped[j], c);
    }
    const __m128i rows8 = _mm_packs_epi16(_mm_packs_epi32(in_range[0], in_range[1]),
                                          _mm_packs_epi32(in_range[2], in_range[3]));
    ub4 kept = static_cast<ub4>(_mm_movemask_epi8(rows8)) & selected;
    __m128i values[4];
    if constexpr (kReadsTable<K, E, C2D>) kept &= lookup_block<K, E, C2D>(v, w, clamped, values);
    if constexpr (C2D) {
        __m128i dropped[4];
        dropped_lanes<Out>(kept, dropped);
        for (ub4 h = 0; h < 16 / (16 / sizeof(Out)); ++h)
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + row) + h, _mm_or_si128(values[h], dropped[h]));
    }
    return kept;
}

template <XlateKind K, XlateElem E, bool C2D, bool Aux, class Out>
VORN_INLINE Tally translate_rows(const View &v, const ub1 *codes, ub1 *bits, Out *out, const ub8 *aux,
                                 ub8 start, ub8 end) {
    Tally t;
    ub8 row = start;
    const ub8 lead_end = (start + 7) & ~ub8{7};
    for (; row < end && row < lead_end; ++row) translate_row<K, E, C2D, Aux>(v, codes, row, bits, out, aux, t);

    const VecView w = make_vec_view(v);
    for (; row + 16 <= end; row += 16) {
        ub4 selected = 0xffff;
        if constexpr (Aux) {
            selected = load<ub2>(reinterpret_cast<const ub1 *>(aux) + (row >> 3));
            if (!selected) {
                // Nothing selected: no lookup.
                store<ub2>(bits + (row >> 3), 0);
                if constexpr (C2D)
                    for (ub4 k = 0; k < 16; ++k) out[row + k] = kAllOnes<Out>;
                continue;
            }
        }
        const ub4 kept = translate_block<K, E, C2D>(v, w, codes, row, out, selected);
        store<ub2>(bits + (row >> 3), static_cast<ub2>(kept));
        t.add_block(row, kept);
    }

    for (; row < end; ++row) translate_row<K, E, C2D, Aux>(v, codes, row, bits, out, aux, t);
    return t;
}

template <XlateKind K, XlateElem E, XlateForm F, bool C2D>
VORN_INLINE ub8 translate(vorn_vec *res, vorn_vec *src, const void *table_vec, vorn_kernel_ctx *kctx) {
    using Text = KernelText<kernel_name<xlate_index<K, E, F, C2D>()>()>;
    using Out = typename Elem<E>::Out;
    if (!serves_column(src)) return kNotServed;
    vorn_xlate_ctx *x = kctx->xlate_ctx;
    Out *out = C2D ? static_cast<Out *>(x->out) : nullptr;
    const ub8 start = kctx->start_row, end = src->size;
    if (start >= end) return finish(res, kctx, Tally{});
    const View v = make_view<K>(x, static_cast<const vorn_xlate_table *>(table_vec));
    if (v.empty) return keep_nothing(res, kctx, start, end, out, C2D ? sizeof(Out) : 0);

    const ub1 *codes = column_stream<Text>(src, kctx);
    ub1 *bits = reinterpret_cast<ub1 *>(res->res_bv);
    const Tally t = kctx->bv_aux
                        ? translate_rows<K, E, C2D, true>(v, codes, bits, out, kctx->bv_aux, start, end)
                        : translate_rows<K, E, C2D, false>(v, codes, bits, out, nullptr, start, end);
    return finish(res, kctx, t);
}

}  // namespace vorn::xlate

namespace vorn {

template <XlateKind K, XlateElem E, XlateForm F, bool C2D>
ub8 xlate_kernel(vorn_vec *res, vorn_vec *src, const void *table_vec, vorn_kernel_ctx *kctx) {
    static_assert(xlate_served<K, F>(), "only the members without a layout suffix translate");
    return xlate::translate<K, E, F, C2D>(res, src, table_vec, kctx);
}

}  // namespace vorn
