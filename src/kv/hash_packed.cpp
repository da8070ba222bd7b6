// hash_packed.cpp - vorn_hash_dydi over bit-packed dictionary codes: one
// loop pair per code width, reached through a table built from the width
// list.
#include <array>
#include <utility>

#include "frame/dispatch_scheme.h"
#include "frame/fail.h"
#include "kv/hash_walk.h"

namespace vorn::hash {
namespace {

using PackedLoop = void (*)(ub8 *, const vorn_vec *, Seeds, vorn_hash_fn);

template <ub4 W>
void hash_width(ub8 *out, const vorn_vec *src, Seeds seeds, vorn_hash_fn fn) {
    hash_dictionary<PackedCodes<W>>(out, src, seeds, fn);
}

// Entry c of the table is the loop of the width whose code is c.
template <std::size_t... C>
constexpr std::array<PackedLoop, sizeof...(C)> packed_loops(std::index_sequence<C...>) {
    return {hash_width<width_bits(static_cast<ub4>(C))>...};
}
constexpr auto kPackedLoops = packed_loops(std::make_index_sequence<23>{});

}  // namespace

void hash_packed(ub8 *out, const vorn_vec *src, Seeds seeds, vorn_hash_fn fn) {
    const ub4 code = width_code(src->enc_ctx->bit_width);
    // A width outside the list is a broken column: the assertion of a
    // kernel that switches on its width.
    if (code == kNoWidth) VORN_ASSERT(0, "vorn_hash_dydi");
    kPackedLoops[code](out, src, seeds, fn);
}

}  // namespace vorn::hash
