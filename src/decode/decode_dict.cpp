// decode_dict.cpp - the parts of vorn_decode_dict_* that do not depend on
// the width.
#include "decode/decode_dict.h"

namespace vorn {

// Fixed length 0: every selected row is empty.  The code stream is neither
// obtained nor read, the addresses are left alone, and ones_vec is taken as
// present: its last entry becomes row_pos.
ub8 decode_all_empty(vorn_vec *res, vorn_kernel_ctx *kctx) {
    const ub4 k = kctx->ones_vec_size;
    auto *len = static_cast<ub2 *>(res->data2);
    auto *flag = static_cast<ub2 *>(res->data3);
    std::memset(len, 0, ub8{k} * 2);
    for (ub4 j = 0; j < k; ++j) flag[j] = 2;
    kctx->row_pos = kctx->ones_vec[k - 1];
    res->num_ones = k;
    kctx->done_flags |= VORN_DONE_DECODED;
    return 0;
}

// The indicators start cleared, ones_vec_size of them whether or not
// ones_vec is there: the caller sets the size in both cases.  A walk that
// writes every produced row's indicator itself (the variable-length one)
// leaves those to the walk, so that out of cache they are written once.
void clear_indicators(const vorn_vec *res, const vorn_vec *src, const vorn_kernel_ctx *kctx,
                      bool walk_writes_them) {
    const ub4 clear = kctx->ones_vec_size;
    ub4 from = 0;
    if (walk_writes_them) from = kctx->ones_vec ? clear : src->size;
    if (from < clear) std::memset(static_cast<ub2 *>(res->data3) + from, 0, ub8{clear - from} * 2);
}

ub8 finish_decode(vorn_vec *res, const vorn_vec *src, vorn_kernel_ctx *kctx) {
    if (kctx->ones_vec) {
        kctx->row_pos = kctx->ones_vec[kctx->ones_vec_size - 1];
        res->num_ones = kctx->ones_vec_size;
    } else {
        kctx->row_pos = src->size - 1;
        res->num_ones = src->size;
    }
    kctx->done_flags |= VORN_DONE_DECODED;
    return 0;
}

}  // namespace vorn
