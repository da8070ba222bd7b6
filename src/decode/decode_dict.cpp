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
// ones_vec is there: the caller sets the size in both cases.  Where every
// row the variable-length walk produces lies inside that cleared range, the
// walk writes those indicators itself (0 or 2), so that out of cache they
// are written once, and only the rest is cleared here; returns whether it
// does.  Otherwise (no ones_vec and more rows than ones_vec_size) all of the
// range is cleared and the walk writes only its 2s: the indicators behind
// the cleared range keep what the caller left there.
bool clear_indicators(const vorn_vec *res, const vorn_vec *src, const vorn_kernel_ctx *kctx, bool var_walk) {
    const ub4 clear = kctx->ones_vec_size;
    const ub4 produced = kctx->ones_vec ? clear : src->size;
    const bool walk_owns = var_walk && produced <= clear;
    const ub4 from = walk_owns ? produced : 0;
    if (from < clear) std::memset(static_cast<ub2 *>(res->data3) + from, 0, ub8{clear - from} * 2);
    return walk_owns;
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
