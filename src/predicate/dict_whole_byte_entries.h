// dict_whole_byte_entries.h - places the dictionary compares of the widths
// that fall on whole bytes (8, 16, 32, 64) and their _null forms in the
// dispatch table.  Their codes are a ub1 or a big-endian ub2, ub4, ub8, so
// they are the fixed-width compares of the same widths, with the null rule as
// the second form; they read no bit_width.  The packed widths are placed by
// put_dict.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// eq, lt, gt, le, ge, ne: (res, src, literals, kctx).
template <ub4 Bits, Cmp C, bool Null>
ub8 dict_whole_byte_cmp(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx);
// gt_lt, gt_le, ge_lt, ge_le: (res, src, low, high, kctx).
template <ub4 Bits, Cmp C, bool Null>
ub8 dict_whole_byte_range(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                          vorn_kernel_ctx *kctx);

constexpr ub4 dict_index(ub4 bits, Cmp c, bool null) {
    return dispatch_index(width_code(bits), VORN_ENC_DICT, static_cast<ub4>(c), null);
}

namespace dict_whole_byte_table {

template <ub4 Bits, bool Null, ub4... Op>
constexpr void put_forms(KernelTable &t, std::integer_sequence<ub4, Op...>) {
    (
        [&] {
            constexpr Cmp c = static_cast<Cmp>(Op);
            if constexpr (is_range(c)) t[dict_index(Bits, c, Null)].range = &dict_whole_byte_range<Bits, c, Null>;
            else t[dict_index(Bits, c, Null)].cmp = &dict_whole_byte_cmp<Bits, c, Null>;
        }(),
        ...);
}

template <bool Null, ub4... Bits>
constexpr void put_widths(KernelTable &t) {
    (put_forms<Bits, Null>(t, std::make_integer_sequence<ub4, kCompareCount>{}), ...);
}

}  // namespace dict_whole_byte_table

constexpr void put_dict_whole_bytes(KernelTable &t) {
    dict_whole_byte_table::put_widths<false, 8, 16, 32, 64>(t);
    dict_whole_byte_table::put_widths<true, 8, 16, 32, 64>(t);
}

}  // namespace vorn
