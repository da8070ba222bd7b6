// fixed_entries.h - places the fixed-width compares and their _tz forms in the
// dispatch table: ten forms in widths 8, 16, 32 and 64, at bit 12 the _tz
// forms.  The kernels are defined in the whole_byte_*.cpp and fixed_tz_*.cpp
// translation units.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// eq, lt, gt, le, ge, ne: (res, src, literals, kctx).
template <ub4 Bits, Cmp C, bool Tz>
ub8 fixed_cmp(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx);
// gt_lt, gt_le, ge_lt, ge_le: (res, src, low, high, kctx).
template <ub4 Bits, Cmp C, bool Tz>
ub8 fixed_range(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                vorn_kernel_ctx *kctx);

constexpr ub4 fixed_index(ub4 bits, Cmp c, bool tz) {
    return dispatch_index(width_code(bits), VORN_ENC_FIXED, static_cast<ub4>(c), tz);
}

namespace fixed_table {

template <ub4 Bits, bool Tz, ub4... Op>
constexpr void put_forms(KernelTable &t, std::integer_sequence<ub4, Op...>) {
    (
        [&] {
            constexpr Cmp c = static_cast<Cmp>(Op);
            if constexpr (is_range(c)) t[fixed_index(Bits, c, Tz)].range = &fixed_range<Bits, c, Tz>;
            else t[fixed_index(Bits, c, Tz)].cmp = &fixed_cmp<Bits, c, Tz>;
        }(),
        ...);
}

template <bool Tz, ub4... Bits>
constexpr void put_widths(KernelTable &t) {
    (put_forms<Bits, Tz>(t, std::make_integer_sequence<ub4, kCompareCount>{}), ...);
}

}  // namespace fixed_table

constexpr void put_fixed(KernelTable &t) {
    fixed_table::put_widths<false, 8, 16, 32, 64>(t);
    fixed_table::put_widths<true, 8, 16, 32, 64>(t);
}

}  // namespace vorn
