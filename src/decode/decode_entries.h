// decode_entries.h - places vorn_decode_dict_* in the dispatch table: one
// instance of the decode template per dictionary width but 64.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// The widths of the dictionary decoders: every dictionary width but 64.
inline constexpr auto kDecodeWidths = [] {
    std::array<ub4, kDictWidths.size() - 1> widths{};
    ub4 n = 0;
    for (ub4 w : kDictWidths)
        if (w != 64) widths[n++] = w;
    return widths;
}();

constexpr ub4 decode_dict_index(ub4 width) {
    return dispatch_index(width_code(width), VORN_ENC_DICT, VORN_OP_DECODE);
}

// vorn_decode_dict_<W>bit(res, src, kctx); defined in decode_dict_*.cpp.
template <ub4 W>
ub8 decode_dict(vorn_vec *res, vorn_vec *src, vorn_kernel_ctx *kctx);

template <std::size_t... I>
constexpr void put_decode_widths(KernelTable &t, std::index_sequence<I...>) {
    ((t[decode_dict_index(kDecodeWidths[I])].decode = &decode_dict<kDecodeWidths[I]>), ...);
}

constexpr void put_decode(KernelTable &t) {
    put_decode_widths(t, std::make_index_sequence<kDecodeWidths.size()>{});
}

}  // namespace vorn
