#include "frame/compare_frame.h"

namespace vorn {

ub8 finish_full_compare(vorn_vec *res, vorn_vec *src, ub8 *out, ub4 n, ub8 count,
                        vorn_kernel_ctx *kctx) {
    ub4 anded;
    if (src->filter_bv) {
        vorn_lbiwvand_dydi(out, &anded, out, src->filter_bv, n);
        count = anded;
    }
    if (kctx && kctx->bv_aux) {
        vorn_lbiwvand_dydi(out, &anded, out, kctx->bv_aux, n);
        count = anded;
        kctx->done_flags |= VORN_DONE_BV_AUX;
    }
    res->num_ones = static_cast<ub4>(count);
    const vorn_enc_ctx *enc = src->enc_ctx;
    if (VORN_ENC_CTX_FLAG(enc, VORN_RLE)) {
        vorn_kernel_ctx runs{};
        runs.bv_aux = out;
        runs.num_ones = count;
        return enc->rle_expand(kctx->host, res, src, &runs);
    }
    return count == 0 ? 1 : 0;
}

ub8 finish_selective_compare(vorn_vec *res, const vorn_vec *src, ub8 count) {
    if (src->filter_bv) {
        ub4 anded;
        vorn_lbiwvand_dydi(res->res_bv, &anded, res->res_bv, src->filter_bv, src->size);
        count = anded;
    }
    res->num_ones = static_cast<ub4>(count);
    return count == 0 ? 1 : 0;
}

}  // namespace vorn
