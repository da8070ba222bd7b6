// kit_served.cpp - which dispatch indexes this build serves, decided by the
// compiler from the families' own put_* functions: the same table the
// library builds, with the "not served" entry of each shape told apart from
// a kernel.  Only the comparison of addresses is evaluated, at compile time,
// so no kernel is linked into the kit.
#include "aggregate/minmax_entries.h"
#include "decode/burst_entries.h"
#include "decode/decode_entries.h"
#include "decode/unpack_entries.h"
#include "frame/dispatch_scheme.h"
#include "frame/entries.h"
#include "predicate/dict_entries.h"
#include "predicate/dict_whole_byte_entries.h"
#include "predicate/dynp_entries.h"
#include "predicate/fixed_entries.h"
#include "xlate/xlate_entries.h"

namespace vornkit {
namespace {

using vorn::KernelTable;

// The member of vorn_kernel that an operation's kernels fill.
enum class Shape { cmp, range, decode, minmax, xlate, arith };

constexpr Shape shape_of(ub4 index) {
    const ub4 op = index & 31;
    if (op < vorn::kCompareCount) return vorn::is_range(static_cast<vorn::Cmp>(op)) ? Shape::range : Shape::cmp;
    if (op == VORN_OP_XLATE) return Shape::xlate;
    if (op == VORN_OP_MINMAX) return Shape::minmax;
    if (op == VORN_OP_ADD || op == VORN_OP_SUB || op == VORN_OP_MUL) return Shape::arith;
    return Shape::decode;
}

struct ServedBits {
    ub8 words[vorn::kSchemeSize / 64] = {};
};

constexpr ServedBits build_served() {
    // Every family the library's table takes; the list follows
    // build_table() in src/frame/dispatch_table.cpp (the kit test compares
    // the two tables index by index).
    KernelTable t{};
    // A null of the index's own shape first, so that the member read below
    // is the one the families write.
    for (ub4 i = 0; i < vorn::kSchemeSize; ++i) {
        switch (shape_of(i)) {
            case Shape::cmp: t[i].cmp = nullptr; break;
            case Shape::range: t[i].range = nullptr; break;
            case Shape::decode: t[i].decode = nullptr; break;
            case Shape::minmax: t[i].minmax = nullptr; break;
            case Shape::xlate: t[i].xlate = nullptr; break;
            case Shape::arith: t[i].arith = nullptr; break;
        }
    }
    vorn::put_fixed(t);
    vorn::put_dict(t);
    vorn::put_dict_whole_bytes(t);
    vorn::put_dynp(t);
    vorn::put_decode(t);
    vorn::put_unpack(t);
    vorn::put_burst(t);
    vorn::put_minmax(t);
    vorn::put_xlate(t);
    ServedBits bits;
    for (ub4 i = 0; i < vorn::kSchemeSize; ++i) {
        vorn::NameText name;
        if (!vorn::scheme_name(i, name)) continue;
        bool served = false;
        switch (shape_of(i)) {
            case Shape::cmp: served = t[i].cmp != nullptr; break;
            case Shape::range: served = t[i].range != nullptr; break;
            case Shape::decode: served = t[i].decode != nullptr; break;
            case Shape::minmax: served = t[i].minmax != nullptr; break;
            case Shape::xlate: served = t[i].xlate != nullptr; break;
            case Shape::arith: served = t[i].arith != nullptr; break;
        }
        if (served) bits.words[i >> 6] |= ub8{1} << (i & 63);
    }
    return bits;
}

constexpr ServedBits kServed = build_served();

}  // namespace

bool index_served(ub4 index) { return (kServed.words[index >> 6] >> (index & 63)) & 1; }

}  // namespace vornkit
