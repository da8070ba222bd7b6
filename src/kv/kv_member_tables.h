// kv_member_tables.h - the members of the add family as tables indexed by
// kind and link, built at compile time from the member lists, so that the
// build entry picks a member with one lookup.
#pragma once

#include <type_traits>

#include "kv/kv_bucket_add.h"
#include "kv/kv_entries.h"

namespace vorn::kv {

template <class Fn>
struct KindTable {
    Fn fn[16][2] = {};
    constexpr Fn at(ub4 kind, bool ptr) const { return kind < 16 ? fn[kind][ptr ? 1 : 0] : nullptr; }
};

constexpr bool same_name(const char *a, const char *b) {
    while (*a != 0 && *a == *b) ++a, ++b;
    return *a == *b;
}

template <class Fn, class G>
constexpr void take_member(KindTable<Fn> &t, ub4 kind, G idx, G ptr) {
    if constexpr (std::is_same_v<Fn, G>) {
        t.fn[kind][0] = idx;
        t.fn[kind][1] = ptr;
    }
}

#define VORN_KV_TAKE_LL(kind, input)                                                  \
    if (same_name(#input, input_name))                                                \
        take_member(t, kind_number(#kind), &vorn_kv_ll_add_##kind##_##input##_idx,    \
                    &vorn_kv_ll_add_##kind##_##input##_ptr);
#define VORN_KV_TAKE_ADD(kind, input)                                                 \
    if (same_name(#input, input_name))                                                \
        take_member(t, kind_number(#kind), &vorn_kv_add_##kind##_##input,             \
                    &vorn_kv_add_##kind##_##input);

// The low-level bucket members of one input part, e.g. "fixed_hash64".
template <class Fn>
constexpr KindTable<Fn> ll_members(const char *input_name) {
    KindTable<Fn> t;
    VORN_KV_LL_BUCKET_MEMBERS(VORN_KV_TAKE_LL)
    return t;
}
// The folded members of one input part, e.g. "hash64_values_hash".
constexpr KindTable<vorn_create_add_kv_fn> add_members(const char *input_name) {
    KindTable<vorn_create_add_kv_fn> t;
    VORN_KV_ADD_MEMBERS(VORN_KV_TAKE_ADD)
    return t;
}

#undef VORN_KV_TAKE_LL
#undef VORN_KV_TAKE_ADD

}  // namespace vorn::kv
