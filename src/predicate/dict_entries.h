// dict_entries.h - places the packed dictionary compares and their _null
// forms in the dispatch table: vorn_<c>_dict_<w>bit and
// vorn_<c>_dict_<w>bit_null for the widths that need a shuffle and a mask
// (2 to 7, 9 to 15, 17 to 20, 24) and for width 1.  The whole-byte widths 8, 16, 32
// and 64 are the fixed-width compares and are placed by that family.
//
// The kernels are defined in dict_kernels.h and instantiated, a few widths
// to a translation unit, in the dict_w*.cpp files; only their declarations
// are seen here.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// Literals: native ub4 codes at literals[0], or low[0] and high[0].
template <ub4 W, Cmp C, bool Null>
ub8 dict_compare(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx);
template <ub4 W, Cmp C, bool Null>
ub8 dict_range(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
               vorn_kernel_ctx *kctx);

// The widths this family serves: every dictionary width but those of the
// fixed-width compares, whose codes are whole 1, 2, 4 or 8-byte numbers.
constexpr bool is_packed_dict_width(ub4 w) {
    return width_code(w) != kNoWidth && !is_fixed_width_code(width_code(w));
}

inline constexpr ub4 kDictForms = 2 * kCompareCount;  // ten forms, plain and _null

// Form f of a width's kernels: compare f % 10, _null when f >= 10.
template <ub4 W, ub4 F>
constexpr vorn_kernel dict_kernel() {
    constexpr Cmp c = static_cast<Cmp>(F % kCompareCount);
    constexpr bool null = F >= kCompareCount;
    vorn_kernel k{};
    if constexpr (is_range(c)) k.range = &dict_range<W, c, null>;
    else k.cmp = &dict_compare<W, c, null>;
    return k;
}

template <ub4 W>
constexpr std::array<vorn_kernel, kDictForms> dict_width_kernels() {
    return []<ub4... F>(std::integer_sequence<ub4, F...>) {
        return std::array<vorn_kernel, kDictForms>{dict_kernel<W, F>()...};
    }(std::make_integer_sequence<ub4, kDictForms>{});
}

template <ub4 W>
constexpr void put_dict_width(KernelTable &t) {
    constexpr auto kernels = dict_width_kernels<W>();
    for (ub4 f = 0; f < kDictForms; ++f)
        t[dispatch_index(width_code(W), VORN_ENC_DICT, f % kCompareCount, f >= kCompareCount)] = kernels[f];
}

template <ub4 W>
constexpr void put_dict_width_if_packed(KernelTable &t) {
    if constexpr (is_packed_dict_width(W)) put_dict_width<W>(t);
}

constexpr void put_dict(KernelTable &t) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (put_dict_width_if_packed<kDictWidths[I]>(t), ...);
    }(std::make_index_sequence<kDictWidths.size()>{});
}

}  // namespace vorn
