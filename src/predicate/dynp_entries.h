// dynp_entries.h - places the dynamic-prefix compares and their _tz forms in
// the dispatch table: ten forms for each of the maximum widths 16, 32 and 64
// bits, at encoding 2, and the _tz forms at bit 12 above them.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn::dynp {

// The maximum value widths, in bytes.
using MaxBytes = std::integer_sequence<ub4, 2, 4, 8>;

constexpr ub4 kernel_index(Cmp form, ub4 bytes, bool tz) {
    return dispatch_index(width_code(bytes * 8), VORN_ENC_DYNP, static_cast<ub4>(form), tz);
}

// The kernels: eq..ne take one literal, the range forms a low and a high.
// With Tz a literal is a value and, at [1], a ub1 second key.  Their
// definitions are in dynp_compare.h, instantiated in the dynp_*.cpp units.
template <Cmp Form, ub4 Bytes, bool Tz>
ub8 compare_kernel(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx);
template <Cmp Form, ub4 Bytes, bool Tz>
ub8 range_kernel(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                 vorn_kernel_ctx *kctx);

template <Cmp Form, ub4 Bytes, bool Tz>
constexpr void put_kernel(vorn_kernel &k) {
    if constexpr (is_range(Form)) k.range = &range_kernel<Form, Bytes, Tz>;
    else k.cmp = &compare_kernel<Form, Bytes, Tz>;
}

// The ten forms of one width and variant, in operation order.
template <ub4 Bytes, bool Tz, ub4... Ops>
constexpr std::array<vorn_kernel, kCompareCount> forms(std::integer_sequence<ub4, Ops...>) {
    std::array<vorn_kernel, kCompareCount> a{};
    (put_kernel<static_cast<Cmp>(Ops), Bytes, Tz>(a[Ops]), ...);
    return a;
}
template <ub4 Bytes, bool Tz>
constexpr std::array<vorn_kernel, kCompareCount> all_forms() {
    return forms<Bytes, Tz>(std::make_integer_sequence<ub4, kCompareCount>{});
}

template <ub4... Bytes>
constexpr void put_widths(KernelTable &t, std::integer_sequence<ub4, Bytes...>) {
    auto put = [&t]<ub4 B, bool Tz>() {
        const auto kernels = all_forms<B, Tz>();
        for (ub4 op = 0; op < kCompareCount; ++op) t[kernel_index(static_cast<Cmp>(op), B, Tz)] = kernels[op];
    };
    (put.template operator()<Bytes, false>(), ...);
    (put.template operator()<Bytes, true>(), ...);
}

}  // namespace vorn::dynp

namespace vorn {

constexpr void put_dynp(KernelTable &t) { dynp::put_widths(t, dynp::MaxBytes{}); }

}  // namespace vorn
