// minmax.h - the body of vorn_minmax_dict_<w>bit and its _null form,
// included by the translation units that instantiate it (minmax_w*.cpp).
//
// The smallest and largest code among the rows considered go to the two ub4
// at res.data, and row_pos to the row at which the scan ended; the result is
// then 0.  When no row was seen the two ub4 and row_pos are left alone and
// the result is 1.  The minimum starts at the dictionary's num_symbols, a
// code that cannot occur, so a minimum still equal to it means that nothing
// was seen; the maximum starts at 0.  The _null form skips rows whose code
// is 0, the null code of its columns.
//
// Rows considered, in the order the forms are chosen:
//   VORN_RLE     the run of each row is found by moving on by the lengths,
//                and its code folded: for the rows of bv_aux from row_pos,
//                for the rows of ones_vec (an empty list is the caller's
//                error and is raised), or else for all rows from row_pos;
//   bv_aux       the rows from row_pos whose bit is set: with
//                VORN_CTX_SELECTIVE by the word iterator, else by the dense
//                scan with the block's 32 bits of bv_aux as lane masks;
//   ones_vec     the rows it lists;
//   otherwise    all rows from row_pos, by the dense scan: rows one at a
//                time to a multiple of lcm(w, 8), then blocks of 32 rows
//                (4w bytes) whose codes are brought into lanes
//                (packed_lanes.h), widened to 32 bits and folded by unsigned
//                32-bit vector minimum and maximum, then the rest row by row.
// Every form gives the minimum and maximum over the same rows.  The scan
// ends at src.size, or after the last entry of ones_vec.
//
// `mode` is not read: every path gives the full minimum and maximum of the
// rows it considers, whatever the caller means to use of them.
#pragma once

#include <nmmintrin.h>

#include "aggregate/minmax_entries.h"
#include "decode/packed_lanes.h"
#include "decode/run_walk.h"
#include "frame/decompress.h"
#include "frame/entries.h"
#include "frame/fail.h"
#include "frame/packed_read.h"

namespace vorn::minmax {

struct Fold {
    ub4 min, max;
};

// Running minimum and maximum in four 32-bit lanes.
struct Lanes {
    __m128i min = _mm_set1_epi32(-1);
    __m128i max = _mm_setzero_si128();
};

VORN_INLINE void merge(Fold &f, const Lanes &v) {
    __m128i mn = _mm_min_epu32(v.min, _mm_shuffle_epi32(v.min, 0x4e));
    mn = _mm_min_epu32(mn, _mm_shuffle_epi32(mn, 0xb1));
    __m128i mx = _mm_max_epu32(v.max, _mm_shuffle_epi32(v.max, 0x4e));
    mx = _mm_max_epu32(mx, _mm_shuffle_epi32(mx, 0xb1));
    const ub4 lo = static_cast<ub4>(_mm_cvtsi128_si32(mn)), hi = static_cast<ub4>(_mm_cvtsi128_si32(mx));
    if (lo < f.min) f.min = lo;
    if (hi > f.max) f.max = hi;
}

// The bit of each of the four lanes of quarter q in a block's selection word.
template <ub4 Q>
VORN_INLINE __m128i quarter_bits() {
    return _mm_setr_epi32(1 << (4 * Q), 1 << (4 * Q + 1), 1 << (4 * Q + 2), static_cast<int>(1u << (4 * Q + 3)));
}

template <ub4 W, bool Null>
struct Scan {
    using L = lanes::Layout<W>;
    static constexpr ub4 kGroups = 32 / L::kLanes;
    static constexpr ub4 kSpan = L::template kSpanRows<32>;

    static VORN_INLINE ub4 read(const ub1 *stream, ub8 row) { return read_code<W>(stream, row); }

    static VORN_INLINE void fold(Fold &f, ub4 code) {
        if (Null && code == 0) return;
        f.min = code < f.min ? code : f.min;
        f.max = code > f.max ? code : f.max;
    }

    // Four codes in 32-bit lanes; `keep` has all ones in the lanes that
    // count.  A lane left out (or a null) takes all ones into the minimum
    // and 0 into the maximum.
    template <bool Selected>
    static VORN_INLINE void fold4(Lanes &a, __m128i v, __m128i keep) {
        __m128i for_min = v;
        if constexpr (Null) for_min = _mm_or_si128(for_min, _mm_cmpeq_epi32(v, _mm_setzero_si128()));
        if constexpr (Selected) {
            for_min = _mm_or_si128(for_min, _mm_xor_si128(keep, _mm_set1_epi32(-1)));
            v = _mm_and_si128(v, keep);
        }
        a.min = _mm_min_epu32(a.min, for_min);
        a.max = _mm_max_epu32(a.max, v);
    }

    // Two accumulators, taken in turn, halve the chain of dependent
    // minimum and maximum operations in a block.
    template <bool Selected>
    static VORN_INLINE void block(const ub1 *bytes, Lanes (&a)[2], ub4 sel) {
        _mm_prefetch(reinterpret_cast<const char *>(bytes + 640), _MM_HINT_T0);
        const __m128i sel_lanes = _mm_set1_epi32(static_cast<int>(sel));
        auto keep = [&](auto q) {
            if constexpr (!Selected) return _mm_setzero_si128();
            const __m128i bits = quarter_bits<decltype(q)::value>();
            return _mm_cmpeq_epi32(_mm_and_si128(sel_lanes, bits), bits);
        };
        lanes::static_for<kGroups>([&](auto g) {
            constexpr ub4 gi = decltype(g)::value;
            const __m128i v = L::template extract<gi>(bytes);
            if constexpr (L::kLaneBits == 16) {
                fold4<Selected>(a[0], lanes::widen_low(v), keep(std::integral_constant<ub4, 2 * gi>{}));
                fold4<Selected>(a[1], lanes::widen_high(v), keep(std::integral_constant<ub4, 2 * gi + 1>{}));
            } else {
                fold4<Selected>(a[gi % 2], v, keep(std::integral_constant<ub4, gi>{}));
            }
        });
    }

    // Rows [from, size), or with aux those of them whose bit is set.
    template <bool Selected>
    static void dense(Fold &f, const ub1 *stream, const ub8 *aux, ub4 from, ub4 size) {
        auto one = [&](ub8 row) {
            if (!Selected || ((aux[row >> 6] >> (row & 63)) & 1)) fold(f, read(stream, row));
        };
        ub8 row = from;
        const ub8 lead = size < lanes::round_up(row, L::kAlignRows) ? size : lanes::round_up(row, L::kAlignRows);
        for (; row < lead; ++row) one(row);
        Lanes a[2];
        const ub1 *aux_bytes = reinterpret_cast<const ub1 *>(aux);
        for (; row + 32 <= size && row + kSpan <= size; row += 32) {
            ub4 sel = 0;
            if constexpr (Selected) {
                sel = load<ub4>(aux_bytes + row / 8);
                if (sel == 0) continue;
            }
            block<Selected>(stream + row * W / 8, a, sel);
        }
        merge(f, a[0]);
        merge(f, a[1]);
        for (; row < size; ++row) one(row);
    }

    static void iterated(Fold &f, const ub1 *stream, const ub8 *aux, ub4 from, ub4 size) {
        vorn_bv_iter it;
        vorn_lbiwv_ictx_ini2_dydi(&it, aux, size, 0, from);
        ub4 rows[256];
        for (;;) {
            const ub4 got = vorn_lbiwvones_dydi(&it, rows, 256);
            for (ub4 j = 0; j < got; ++j) fold(f, read(stream, rows[j]));
            if (got < 256) return;
        }
    }

    static void listed(Fold &f, const ub1 *stream, const ub4 *rows, ub4 count) {
        for (ub4 j = 0; j < count; ++j) fold(f, read(stream, rows[j]));
    }

    // ---- Run-length columns: the code of the run of each row considered.
    template <ub4 LenBytes>
    static void runs_from(Fold &f, const ub1 *stream, const ub1 *lens, ub4 nruns, ub4 from) {
        ub8 end = 0;
        for (ub4 r = 0; r < nruns; ++r) {
            const ub4 len = runs::length<LenBytes>(lens, r);
            end += len;
            if (len != 0 && end > from) fold(f, read(stream, r));
        }
    }

    template <ub4 LenBytes>
    static void runs_selected(Fold &f, const ub1 *stream, const ub1 *lens, const ub8 *aux, ub4 from, ub4 size) {
        runs::RunWalk<W, ub4, LenBytes> walk{stream, lens, runs::kBeforeFirstRun};
        vorn_bv_iter it;
        vorn_lbiwv_ictx_ini2_dydi(&it, aux, size, 0, from);
        ub4 rows[256];
        for (;;) {
            const ub4 got = vorn_lbiwvones_dydi(&it, rows, 256);
            for (ub4 j = 0; j < got; ++j) fold(f, walk.at(rows[j]));
            if (got < 256) return;
        }
    }

    template <ub4 LenBytes>
    static void runs_listed(Fold &f, const ub1 *stream, const ub1 *lens, const ub4 *rows, ub4 count) {
        runs::RunWalk<W, ub4, LenBytes> walk{stream, lens, runs::kBeforeFirstRun};
        for (ub4 j = 0; j < count; ++j) fold(f, walk.at(rows[j]));
    }

    template <ub4 LenBytes>
    static ub4 runs_any(Fold &f, const ub1 *stream, const vorn_vec *src, const vorn_kernel_ctx *k,
                        const char *empty_ones_vec) {
        const vorn_enc_ctx *enc = src->enc_ctx;
        const ub1 *lens = static_cast<const ub1 *>(enc->rle_lens);
        if (k->bv_aux) {
            runs_selected<LenBytes>(f, stream, lens, k->bv_aux, k->row_pos, src->size);
            return src->size;
        }
        if (k->ones_vec) {
            if (k->ones_vec_size == 0) {
                raise_internal(k->host, empty_ones_vec);
                return 0;
            }
            runs_listed<LenBytes>(f, stream, lens, k->ones_vec, k->ones_vec_size);
            return k->ones_vec[k->ones_vec_size - 1] + 1;
        }
        runs_from<LenBytes>(f, stream, lens, enc->rle_runs, k->row_pos);
        return src->size;
    }

    // Folds the rows considered into f; returns the row at which the scan ended.
    static ub4 rows(Fold &f, const ub1 *stream, const vorn_vec *src, const vorn_kernel_ctx *k,
                    const char *empty_ones_vec) {
        const vorn_enc_ctx *enc = src->enc_ctx;
        if (VORN_ENC_CTX_FLAG(enc, VORN_RLE))
            return runs::wide_lengths(enc) ? runs_any<2>(f, stream, src, k, empty_ones_vec)
                                           : runs_any<1>(f, stream, src, k, empty_ones_vec);
        if (k->bv_aux) {
            if (k->flags & VORN_CTX_SELECTIVE)
                iterated(f, stream, k->bv_aux, k->row_pos, src->size);
            else
                dense<true>(f, stream, k->bv_aux, k->row_pos, src->size);
            return src->size;
        }
        if (k->ones_vec) {
            listed(f, stream, k->ones_vec, k->ones_vec_size);
            return k->ones_vec_size == 0 ? 0 : k->ones_vec[k->ones_vec_size - 1] + 1;
        }
        dense<false>(f, stream, nullptr, k->row_pos, src->size);
        return src->size;
    }
};

}  // namespace vorn::minmax

namespace vorn {

template <ub4 W, bool Null>
ub8 minmax_dict(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx, ub4 mode) {
    using Text = KernelText<kernel_name<minmax_index(W, Null)>()>;
    const ub1 *stream = column_stream<Text>(src, kctx);
    const ub4 none = src->enc_ctx->num_symbols;
    minmax::Fold f = {none, 0};
    const ub4 end = minmax::Scan<W, Null>::rows(f, stream, src, kctx, Text::rle_ones_vec_zero.s);
    if (f.min == none) return 1;
    ub4 *out = static_cast<ub4 *>(res->data);
    out[0] = f.min;
    out[1] = f.max;
    kctx->row_pos = end;
    return 0;
}

}  // namespace vorn

#define VORN_INSTANTIATE_MINMAX(W)                                                           \
    template ub8 vorn::minmax_dict<W, false>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *, ub4); \
    template ub8 vorn::minmax_dict<W, true>(vorn_vec *, vorn_vec *, vorn_kernel_ctx *, ub4);
