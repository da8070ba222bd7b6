// xlate_entries.h - places vorn_xlate_* in the dispatch table.  The family is
// one template over the lookup kind, the entry element, the layout form and
// the _c2d variant; put_xlate() walks every combination and stores each
// served member at the index its parameters give.  The layouts _cla, _const
// and _sep and the group-key members are not settled: their indexes keep the
// table's entry that writes nothing and returns 2.
#pragma once

#include <utility>

#include "frame/dispatch_scheme.h"

namespace vorn {

// The lookup kinds in the order of their encoding field; the group-key
// members stand at encoding 3.
enum class XlateKind : ub4 { sim, off, ind, groupkey };

// The kernel: vorn_xlate_<kind>_<elem>[_c2d][<form>](res, src, table_vec, kctx).
// Defined in xlate_kernel.h, instantiated in the xlate_*.cpp files.
template <XlateKind K, XlateElem E, XlateForm F, bool C2D>
ub8 xlate_kernel(vorn_vec *res, vorn_vec *src, const void *table_vec, vorn_kernel_ctx *kctx);

template <XlateKind K, XlateElem E, XlateForm F, bool C2D>
constexpr ub4 xlate_index() {
    return dispatch_index(xlate_width_field(F, E), static_cast<ub4>(K), VORN_OP_XLATE, C2D);
}

// Which combinations are members: bit tables have no _c2d form; the group-key
// members are _c2d only, without a layout suffix, for nib, ub1, ub2 and ub4.
template <XlateKind K, XlateElem E, XlateForm F, bool C2D>
constexpr bool xlate_member() {
    if constexpr (K == XlateKind::groupkey) return C2D && F == XlateForm::plain && E != XlateElem::bit;
    else return !(C2D && E == XlateElem::bit);
}

// The members this build translates: sim, off and ind without a layout suffix.
template <XlateKind K, XlateForm F>
constexpr bool xlate_served() {
    return K != XlateKind::groupkey && F == XlateForm::plain;
}

namespace xlate_detail {

constexpr bool scheme_has(ub4 index) {
    NameText t;
    return scheme_name(index, t);
}

inline constexpr ub4 kKinds = 4, kElems = 5, kForms = 4;

template <XlateKind K, XlateElem E, XlateForm F, bool C2D>
constexpr void put_one(KernelTable &t) {
    constexpr ub4 index = xlate_index<K, E, F, C2D>();
    static_assert(xlate_member<K, E, F, C2D>() == scheme_has(index),
                  "the translation members are exactly the scheme's names");
    if constexpr (xlate_member<K, E, F, C2D>() && xlate_served<K, F>())
        t[index].xlate = &xlate_kernel<K, E, F, C2D>;
}

// I runs over kind x element x form x variant, variant fastest.
template <ub4... I>
constexpr void put_all(KernelTable &t, std::integer_sequence<ub4, I...>) {
    (put_one<static_cast<XlateKind>(I / (2 * kForms * kElems)),
             static_cast<XlateElem>(I / (2 * kForms) % kElems),
             static_cast<XlateForm>(I / 2 % kForms), (I % 2) != 0>(t),
     ...);
}

}  // namespace xlate_detail

constexpr void put_xlate(KernelTable &t) {
    using namespace xlate_detail;
    put_all(t, std::make_integer_sequence<ub4, kKinds * kElems * kForms * 2>{});
}

}  // namespace vorn
