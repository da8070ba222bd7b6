// xlate_finish.cpp - the parts of a translation call that do not depend on
// the kernel's parameters: the results written at the end of a call, and the
// call in which no code can have a mapping.
#include "frame/entries.h"
#include "xlate/xlate_kernel.h"

namespace vorn::xlate {

ub8 finish(vorn_vec *res, vorn_kernel_ctx *kctx, const Tally &t) {
    vorn_xlate_ctx *x = kctx->xlate_ctx;
    res->num_ones = static_cast<ub4>(t.count);
    x->kept += t.count;
    if (t.count && !(kctx->flags & VORN_CTX_XLATE_NO_ENDS)) {
        x->last_kept = t.last;
        if (x->first_kept == kNoRow) x->first_kept = t.first;
    }
    if (kctx->bv_aux) kctx->done_flags2 |= VORN_DONE2_XLATE_BV_AUX;
    return t.count ? 0 : 1;
}

ub8 keep_nothing(vorn_vec *res, vorn_kernel_ctx *kctx, ub8 start, ub8 end, void *out, ub4 out_bytes) {
    vorn_lbiwvclr_range_dydi(res->res_bv, start, end - 1);
    if (out_bytes) std::memset(static_cast<ub1 *>(out) + start * out_bytes, 0xff, (end - start) * out_bytes);
    return finish(res, kctx, Tally{});
}

}  // namespace vorn::xlate
