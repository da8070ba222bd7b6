// dict_kernels.h - the definitions of the packed dictionary compares.  A
// kernel reads its literals, brings them to the lanes once, and runs in the
// compare frame, which does the selection, the decompression, the filter and
// bv_aux ANDs, the run-length hand-over and the result code.
//
// Included only by the dict_w*.cpp files, each of which instantiates the
// twenty kernels of a few widths through DictWidthKernels.
#pragma once

#include <type_traits>

#include "frame/compare_frame.h"
#include "predicate/dict_bit1.h"
#include "predicate/dict_nibble_table.h"
#include "predicate/dict_entries.h"
#include "predicate/dict_lanes.h"
#include "predicate/dict_windows.h"

namespace vorn {

template <ub4 W, Cmp C, bool Null>
using DictCompare =
    std::conditional_t<W == 1, dict::Bit1Compare<C, Null>,
                       std::conditional_t<dict::is_nibble_table_width(W), dict::NibbleTableCompare<W, C, Null>,
                                          std::conditional_t<dict::is_window_width(W), dict::WindowCompare<W, C, Null>,
                                                             dict::LaneCompare<W, C, Null>>>>;

template <ub4 W, Cmp C, bool Null>
ub8 dict_compare(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx) {
    const DictCompare<W, C, Null> cmp(load<ub4>(literals[0]), 0);
    return compare_frame(res, src, cmp, kctx);
}

template <ub4 W, Cmp C, bool Null>
ub8 dict_range(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
               vorn_kernel_ctx *kctx) {
    const DictCompare<W, C, Null> cmp(load<ub4>(low[0]), load<ub4>(high[0]));
    return compare_frame(res, src, cmp, kctx);
}

// An explicit instantiation of this class emits the twenty kernels of width
// W in the translation unit that names it: its member refers to all of them.
template <ub4 W>
struct DictWidthKernels {
    static_assert(is_packed_dict_width(W));
    static constexpr std::array<vorn_kernel, kDictForms> kernels = dict_width_kernels<W>();
    static const vorn_kernel *emit() { return kernels.data(); }
};

}  // namespace vorn
