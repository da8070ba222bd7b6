// unpack_entries.h - places vorn_decode_unpack_dict_<w>bit, widths 1 to 20,
// 24 and 32, in the dispatch table.  The kernels are defined in unpack.h and
// instantiated by width in unpack_w*.cpp.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

template <ub4 W>
VORN_INTERNAL ub8 decode_unpack_dict(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);

// The decoders' widths: the dictionary widths without 64.
inline constexpr std::size_t kDecodeWidthCount = kDictWidths.size() - 1;

constexpr ub4 unpack_index(ub4 w) { return dispatch_index(width_code(w), VORN_ENC_DICT, VORN_OP_DECODE_UNPACK); }

constexpr void put_unpack(KernelTable &t) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        ((t[unpack_index(kDictWidths[I])].decode = &decode_unpack_dict<kDictWidths[I]>), ...);
    }(std::make_index_sequence<kDecodeWidthCount>{});
}

}  // namespace vorn
