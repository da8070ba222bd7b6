// run_lengths.h - the stored run lengths of a VORN_RLE column: one ub1 a
// run, or one big-endian ub2 a run, after the column's rle_len_bits.
#pragma once

#include "frame/base.h"

namespace vorn::runs {

// Length of run r in an array of LenBytes-byte lengths.
template <ub4 LenBytes>
VORN_INLINE ub4 length(const ub1 *lens, ub8 r) {
    static_assert(LenBytes == 1 || LenBytes == 2);
    if constexpr (LenBytes == 1)
        return lens[r];
    else
        return load_be16(lens + 2 * r);
}

// (rle_len_bits >> 3) - 1: 0 for ub1 lengths, 1 for big-endian ub2.
VORN_INLINE bool wide_lengths(const vorn_enc_ctx *enc) { return ((enc->rle_len_bits >> 3) - 1) != 0; }

}  // namespace vorn::runs
