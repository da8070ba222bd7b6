// compare_frame.h - the frame that every predicate kernel runs in.  A family
// supplies only its row compare; the frame does the rest, the same for the
// _fixed_, _dict_ and _dynp_ kernels:
//
//   full path       n = src.size rows into res.res_bv, or for VORN_RLE
//                   n = rle_runs runs into rle_bv; the stream obtained
//                   (decompressed once if VORN_LOMP); all n rows compared;
//                   filter_bv ANDed, then bv_aux (setting done_flags 0x2);
//                   the count in res.num_ones; for VORN_RLE the host's
//                   rle_expand carries run bits to rows and its result is
//                   the kernel's; else 1 for an empty result, 0 otherwise.
//   selective path  with bv_aux and VORN_CTX_SELECTIVE: the result cleared,
//                   only the rows of bv_aux visited (batches of 8 row numbers
//                   from the word iterator), then filter_bv.  It ignores
//                   VORN_RLE: the caller must not ask for it on runs.
//
// A compare is a type C with
//   using Text = KernelText<...>;      the kernel's name in its literals
//   ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const;
//       compares rows 0..n-1 and returns the count.  Afterwards the words
//       0..(n+63)/64-1 of out are defined and no bit at n or beyond is set.
//   bool test(const ub1 *stream, ub4 row) const;
//       one row, for the selective path;
// or, instead of test, where rows cannot be addressed:
//   ub8 select_rows(ub8 *out, const ub1 *stream, vorn_bv_iter &it) const;
//       walks the rows the iterator yields, sets their bits in a cleared
//       out and returns the count.
// A null kctx is tolerated unless the column is VORN_LOMP or VORN_RLE.
#pragma once

#include "frame/decompress.h"
#include "frame/dispatch_scheme.h"
#include "frame/entries.h"

namespace vorn {

// Steps 5 to 8 of the full path: the filter and selection ANDs, the count,
// and the run expansion or the result code.
VORN_INTERNAL ub8 finish_full_compare(vorn_vec *res, vorn_vec *src, ub8 *out, ub4 n, ub8 count,
                                      vorn_kernel_ctx *kctx);
// The end of the selective path: filter_bv, the count, the result code.
VORN_INTERNAL ub8 finish_selective_compare(vorn_vec *res, const vorn_vec *src, ub8 count);

VORN_INLINE bool wants_selective(const vorn_kernel_ctx *kctx) {
    return kctx && kctx->bv_aux && (kctx->flags & VORN_CTX_SELECTIVE);
}

// Visits the selected rows in batches of 8 and tests each.
template <class C>
VORN_INLINE ub8 test_selected_rows(const C &cmp, ub8 *out, const ub1 *stream, vorn_bv_iter &it) {
    ub4 rows[8];
    ub8 count = 0;
    for (;;) {
        const ub4 got = vorn_lbiwvones_dydi(&it, rows, 8);
        for (ub4 k = 0; k < got; ++k) {
            const ub4 row = rows[k];
            const ub8 hit = cmp.test(stream, row) ? 1 : 0;
            out[row >> 6] |= hit << (row & 63);
            count += hit;
        }
        if (got < 8) return count;
    }
}

template <class C>
VORN_NOINLINE ub8 selective_compare(vorn_vec *res, vorn_vec *src, const C &cmp,
                                    vorn_kernel_ctx *kctx) {
    const ub1 *stream = column_stream<typename C::Text>(src, kctx);
    kctx->done_flags |= VORN_DONE_BV_AUX;
    ub8 *out = res->res_bv;
    std::memset(out, 0, words_for_bits(src->size) * 8);
    vorn_bv_iter it;
    vorn_lbiwv_ictx_ini2_dydi(&it, kctx->bv_aux, src->size, 0, 0);
    ub8 count;
    if constexpr (requires { cmp.select_rows(out, stream, it); })
        count = cmp.select_rows(out, stream, it);
    else
        count = test_selected_rows(cmp, out, stream, it);
    return finish_selective_compare(res, src, count);
}

template <class C>
VORN_INLINE ub8 compare_frame(vorn_vec *res, vorn_vec *src, const C &cmp, vorn_kernel_ctx *kctx) {
    if (wants_selective(kctx)) return selective_compare(res, src, cmp, kctx);
    const vorn_enc_ctx *enc = src->enc_ctx;
    const bool rle = VORN_ENC_CTX_FLAG(enc, VORN_RLE);
    const ub4 n = rle ? enc->rle_runs : src->size;
    ub8 *out = rle ? enc->rle_bv : res->res_bv;
    const ub1 *stream = column_stream<typename C::Text>(src, kctx);
    const ub8 count = cmp.scan(out, stream, n);
    return finish_full_compare(res, src, out, n, count, kctx);
}

}  // namespace vorn
