// decompress.h - the one way every kernel obtains the code stream of a
// column.  A column flagged VORN_LOMP is decompressed once, into a buffer
// from the host's allocator that is cached in the cell behind decomp_slot;
// every later kernel that meets the column, this one or another, finds the
// cell filled and uses it.  The host clears the cell.
#pragma once

#include "frame/base.h"

namespace vorn {

// The decompression proper: alloc(decomp_size, "<kernel>: vec1_decomp"),
// store in the cell, host.lomp_decode, and on failure the raise with
// "<kernel>: vorn_lomp_decode failed" - in this order, so that after a
// failed decode the cell holds a buffer of unknown contents and the host has
// been told.  If the host returns from the raise the buffer is used as it is.
VORN_COLD VORN_INTERNAL const ub1 *decompress_column(const vorn_vec *src, const vorn_kernel_ctx *kctx,
                                                     const char *vec1_decomp_name,
                                                     const char *failed_message);

// The stream a kernel reads: src->data, or the decompressed buffer.  Text is
// the kernel's KernelText, so its name is in the literals at compile time.
template <class Text>
VORN_INLINE const ub1 *column_stream(const vorn_vec *src, const vorn_kernel_ctx *kctx) {
    if (!VORN_ENC_CTX_FLAG(src->enc_ctx, VORN_LOMP)) return static_cast<const ub1 *>(src->data);
    if (void *cached = *src->decomp_slot) return static_cast<const ub1 *>(cached);
    return decompress_column(src, kctx, Text::vec1_decomp.s, Text::lomp_failed.s);
}

}  // namespace vorn
