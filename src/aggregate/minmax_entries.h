// minmax_entries.h - places vorn_minmax_dict_<w>bit and vorn_minmax_dict_<w>bit_null,
// widths 1 to 20, 24 and 32, in the dispatch table.  The kernels are
// defined in minmax.h and instantiated by width in minmax_w*.cpp.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// Null: the _null form, which skips rows of code 0.
template <ub4 W, bool Null>
VORN_INTERNAL ub8 minmax_dict(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx, ub4 mode);

constexpr ub4 minmax_index(ub4 w, bool null) {
    return dispatch_index(width_code(w), VORN_ENC_DICT, VORN_OP_MINMAX, null);
}

constexpr void put_minmax(KernelTable &t) {
    // The dictionary widths without 64.
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        ((t[minmax_index(kDictWidths[I], false)].minmax = &minmax_dict<kDictWidths[I], false>,
          t[minmax_index(kDictWidths[I], true)].minmax = &minmax_dict<kDictWidths[I], true>),
         ...);
    }(std::make_index_sequence<kDictWidths.size() - 1>{});
}

}  // namespace vorn
