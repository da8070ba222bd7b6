// whole_byte_kernels.h - the kernel functions of the whole-byte compares, for
// the translation units that instantiate them (one or two per width).
//
// A kernel picks its compare once per call and hands it to the frame:
//   fixed kernels  the element size from the ub1 of bit_width: 24 in the
//                  32-bit kernels, 40, 48, 56 in the 64-bit kernels, and
//                  any other value (normally the kernel's own width) the
//                  full-lane path without a cut; the _tz forms by
//                  VORN_TZ_CONST, constant tz or tz stream.  The 8-bit _tz
//                  kernels are the 8-bit compares under their own names and
//                  never read data2.
//   dict kernels   always the full lane; the _null forms with the null rule.
// The range forms of the 32- and 64-bit _tz kernels hand a selective call to
// their _tz_selective kernel, which is the frame's selective path under a
// name of its own.
#pragma once

#include "predicate/dict_whole_byte_entries.h"
#include "predicate/fixed_entries.h"
#include "predicate/whole_byte_compare.h"

namespace vorn {

// A compare with the name of the kernel that runs it, for the frame's
// messages.  The scan itself does not depend on the name, so kernels that
// differ only in name share their compare code.
template <class KernelTextT, class Compare>
struct Named : Compare {
    using Text = KernelTextT;
    using Compare::Compare;
};

template <class Text, ub4 Bits, ub4 Elem, Cmp C, Second S, class Go>
VORN_INLINE ub8 with_compare(const vorn_vec *src, const void *const *low, const void *const *high, Go &&go) {
    const Named<Text, WholeByteCompare<Bits, Elem, C, S>> cmp(src, low, high);
    return go(cmp);
}

template <class Text, ub4 Bits, ub4 Elem, Cmp C, bool Tz, class Go>
VORN_INLINE ub8 fixed_with_tz(const vorn_vec *src, const void *const *low, const void *const *high, Go &&go) {
    if constexpr (Tz && Bits > 8) {
        if (VORN_ENC_CTX_FLAG(src->enc_ctx, VORN_TZ_CONST))
            return with_compare<Text, Bits, Elem, C, Second::tz_const>(src, low, high, go);
        return with_compare<Text, Bits, Elem, C, Second::tz_stream>(src, low, high, go);
    } else {
        return with_compare<Text, Bits, Elem, C, Second::none>(src, low, high, go);
    }
}

template <class Text, ub4 Bits, Cmp C, bool Tz, class Go>
VORN_INLINE ub8 fixed_with_layout(const vorn_vec *src, const void *const *low, const void *const *high, Go &&go) {
    const ub1 bit_width = static_cast<ub1>(src->enc_ctx->bit_width);
    if constexpr (Bits == 32) {
        if (bit_width == 24) return fixed_with_tz<Text, Bits, 3, C, Tz>(src, low, high, go);
    } else if constexpr (Bits == 64) {
        switch (bit_width) {
            case 40: return fixed_with_tz<Text, Bits, 5, C, Tz>(src, low, high, go);
            case 48: return fixed_with_tz<Text, Bits, 6, C, Tz>(src, low, high, go);
            case 56: return fixed_with_tz<Text, Bits, 7, C, Tz>(src, low, high, go);
            default: break;
        }
    }
    return fixed_with_tz<Text, Bits, Bits / 8, C, Tz>(src, low, high, go);
}

template <ub4 Index>
using TextOf = KernelText<kernel_name<Index>()>;

template <ub4 Bits, Cmp C>
VORN_NOINLINE ub8 fixed_tz_selective(vorn_vec *res, vorn_vec *src, const void *const *low,
                                     const void *const *high, vorn_kernel_ctx *kctx) {
    using Text = KernelText<kernel_name<fixed_index(Bits, C, true)>() + "_selective">;
    return fixed_with_layout<Text, Bits, C, true>(
        src, low, high, [&](const auto &cmp) { return selective_compare(res, src, cmp, kctx); });
}

template <ub4 Bits, Cmp C, bool Tz>
VORN_INLINE ub8 fixed_kernel(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                             vorn_kernel_ctx *kctx) {
    if constexpr (Tz && Bits >= 32 && is_range(C))
        if (wants_selective(kctx)) return fixed_tz_selective<Bits, C>(res, src, low, high, kctx);
    return fixed_with_layout<TextOf<fixed_index(Bits, C, Tz)>, Bits, C, Tz>(
        src, low, high, [&](const auto &cmp) { return compare_frame(res, src, cmp, kctx); });
}

template <ub4 Bits, Cmp C, bool Tz>
ub8 fixed_cmp(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx) {
    return fixed_kernel<Bits, C, Tz>(res, src, literals, nullptr, kctx);
}

template <ub4 Bits, Cmp C, bool Tz>
ub8 fixed_range(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                vorn_kernel_ctx *kctx) {
    return fixed_kernel<Bits, C, Tz>(res, src, low, high, kctx);
}

template <ub4 Bits, Cmp C, bool Null>
VORN_INLINE ub8 dict_whole_byte_kernel(vorn_vec *res, vorn_vec *src, const void *const *low,
                                       const void *const *high, vorn_kernel_ctx *kctx) {
    constexpr Second kSecondForm = Null ? Second::null : Second::none;
    return with_compare<TextOf<dict_index(Bits, C, Null)>, Bits, Bits / 8, C, kSecondForm>(
        src, low, high, [&](const auto &cmp) { return compare_frame(res, src, cmp, kctx); });
}

template <ub4 Bits, Cmp C, bool Null>
ub8 dict_whole_byte_cmp(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx) {
    return dict_whole_byte_kernel<Bits, C, Null>(res, src, literals, nullptr, kctx);
}

template <ub4 Bits, Cmp C, bool Null>
ub8 dict_whole_byte_range(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                          vorn_kernel_ctx *kctx) {
    return dict_whole_byte_kernel<Bits, C, Null>(res, src, low, high, kctx);
}

}  // namespace vorn

// Explicit instantiation of one width's ten kernels of a family: `family` is
// fixed (second form: tz) or dict_whole_byte (second form: null).
#define VORN_WHOLE_BYTE_CMP(form, family, bits, second)                                      \
    template ub8 vorn::family##_cmp<bits, vorn::Cmp::form, second>(vorn_vec *, vorn_vec *, \
                                                                    const void *const *, vorn_kernel_ctx *);
#define VORN_WHOLE_BYTE_RANGE(form, family, bits, second)                                      \
    template ub8 vorn::family##_range<bits, vorn::Cmp::form, second>(                         \
        vorn_vec *, vorn_vec *, const void *const *, const void *const *, vorn_kernel_ctx *);
#define VORN_INSTANTIATE_WHOLE_BYTE(family, bits, second)   \
    VORN_WHOLE_BYTE_CMP(eq, family, bits, second)           \
    VORN_WHOLE_BYTE_CMP(lt, family, bits, second)           \
    VORN_WHOLE_BYTE_CMP(gt, family, bits, second)           \
    VORN_WHOLE_BYTE_CMP(le, family, bits, second)           \
    VORN_WHOLE_BYTE_CMP(ge, family, bits, second)           \
    VORN_WHOLE_BYTE_CMP(ne, family, bits, second)           \
    VORN_WHOLE_BYTE_RANGE(gt_lt, family, bits, second)      \
    VORN_WHOLE_BYTE_RANGE(gt_le, family, bits, second)      \
    VORN_WHOLE_BYTE_RANGE(ge_lt, family, bits, second)      \
    VORN_WHOLE_BYTE_RANGE(ge_le, family, bits, second)
