// hash.cpp - vorn_hash_dydi: one hash per row, from the host's callback.
//
// The layout flags are tested once, in the order VORN_FIXED, VORN_PACKED,
// VORN_CODE_ARRAY, VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR; the
// first one set picks the loop.  The rows are hashed in row order, one call
// each, never batched or reordered: the callback may be any function of the
// bytes and the seed.
#include "frame/entries.h"
#include "kv/hash_walk.h"

namespace {
constexpr ub8 kUnsupported = 2;
}  // namespace

extern "C" ub8 vorn_hash_dydi(vorn_vec *res, vorn_vec *src, vorn_vec *seeds, vorn_hash_fn fn,
                              vorn_kernel_ctx *) {
    using namespace vorn::hash;
    namespace layout = vorn::layout;
    // The seeds must be whole ub8 values; this is checked before anything
    // else is looked at.
    if (!seeds->enc_ctx || !VORN_ENC_CTX_FLAG(seeds->enc_ctx, VORN_ALIGNED)) return kUnsupported;
    if (!src->enc_ctx) return kUnsupported;
    const Seeds s{static_cast<const ub1 *>(seeds->data), seeds->size == 1};
    ub8 *out = static_cast<ub8 *>(res->data);
    const ub4 flags = src->enc_ctx->flags;
    if (flags & VORN_FIXED) {
        hash_rows<FixedWalk>(out, src, s, fn);
    } else if (flags & VORN_PACKED) {
        hash_packed(out, src, s, fn);
    } else if (flags & VORN_CODE_ARRAY) {
        hash_dictionary<ArrayCodes>(out, src, s, fn);
    } else if (flags & VORN_LV_SEP) {
        hash_rows<layout::LvSep>(out, src, s, fn);
    } else if (flags & VORN_LV) {
        hash_rows<layout::Lv>(out, src, s, fn);
    } else if (flags & VORN_PTR_LEN) {
        hash_rows<layout::PtrLen>(out, src, s, fn);
    } else if (flags & VORN_LEN_PTR) {
        hash_rows<layout::LenPtr>(out, src, s, fn);
    } else {
        return kUnsupported;
    }
    return 0;
}
