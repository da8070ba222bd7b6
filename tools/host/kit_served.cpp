// kit_served.cpp - which dispatch indexes this build serves: the library's
// own table, built by the compiler from the library's list of families
// (frame/dispatch_build.h), with the "not served" entry of each shape told
// apart from a kernel.  Only the comparison of addresses is evaluated, at
// compile time, so no kernel is linked into the kit.
#include "frame/dispatch_build.h"

namespace vornkit {
namespace {

struct ServedBits {
    ub8 words[vorn::kSchemeSize / 64] = {};
};

constexpr ServedBits build_served() {
    const vorn::KernelTable t = vorn::build_dispatch_table();
    ServedBits bits;
    for (ub4 i = 0; i < vorn::kSchemeSize; ++i)
        if (vorn::entry_served(t, i)) bits.words[i >> 6] |= ub8{1} << (i & 63);
    return bits;
}

constexpr ServedBits kServed = build_served();

}  // namespace

bool index_served(ub4 index) { return (kServed.words[index >> 6] >> (index & 63)) & 1; }

}  // namespace vornkit
