// transpose_rows.h - what the transpose entries share: the test that the
// store record is theirs, and the walk of a column's rows at a row stride.
#pragma once

#include "frame/entries.h"

namespace vorn::rows {

// src's encoding flags when the store record's flags hold `store`, else 0:
// with 0 no encoding test of an entry passes and it returns not served.
VORN_INLINE ub4 transposed_flags(const vorn_transpose_spec *spec, const vorn_vec *src, ub4 store) {
    return (spec->flags & store) ? src->enc_ctx->flags : 0;
}

// Row i of a column lands at dst + i * stride; write(at, i) stores it.
template <class WriteRow>
VORN_INLINE void write_rows(ub1 *dst, ub8 stride, ub8 n, WriteRow write) {
    for (ub8 i = 0; i < n; ++i, dst += stride) write(dst, i);
}

}  // namespace vorn::rows
