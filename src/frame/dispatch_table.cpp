// dispatch_table.cpp - vorn_dispatch_table and vorn_dispatch_func_names, both
// computed by the compiler: the names from the generating rule, the table
// from the families' put_* functions, each of which places its template
// instances at the indexes their parameters give.
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

namespace vorn {
namespace {

// Every index that the scheme names starts with the entry of its shape that
// writes nothing and returns 2; the families then put their kernels over
// them.  So a named index is never a null call, also for the families this
// build does not serve.
constexpr void put_unserved(KernelTable &t) {
    for (ub4 i = 0; i < kSchemeSize; ++i) {
        NameText name;
        if (!scheme_name(i, name)) continue;
        const ub4 op = i & 31;
        if (op < kCompareCount) {
            if (is_range(static_cast<Cmp>(op))) t[i].range = vorn_unserved_range;
            else t[i].cmp = vorn_unserved_cmp;
        } else if (op == VORN_OP_XLATE) {
            t[i].xlate = vorn_unserved_xlate;
        } else if (op == VORN_OP_MINMAX) {
            t[i].minmax = vorn_unserved_minmax;
        } else if (op == VORN_OP_ADD || op == VORN_OP_SUB || op == VORN_OP_MUL) {
            t[i].arith = vorn_unserved_arith;
        } else {
            t[i].decode = vorn_unserved_decode;
        }
    }
}

constexpr KernelTable build_table() {
    KernelTable t{};
    put_unserved(t);
    put_fixed(t);
    put_dict(t);
    put_dict_whole_bytes(t);
    put_dynp(t);
    put_decode(t);
    put_unpack(t);
    put_burst(t);
    put_minmax(t);
    put_xlate(t);
    return t;
}

// All valid names end to end, each with its terminating zero, behind the one
// shared "vorn_invalid_dispatch".
constexpr ub4 names_bytes() {
    ub4 total = sizeof(kInvalidName);
    for (ub4 i = 0; i < kSchemeSize; ++i) {
        NameText t;
        if (scheme_name(i, t)) total += t.len + 1;
    }
    return total;
}

struct NameStore {
    char text[names_bytes()] = {};
    ub4 offset[kSchemeSize] = {};
};

constexpr NameStore build_names() {
    NameStore store;
    ub4 pos = 0;
    for (char c : kInvalidName) store.text[pos++] = c;
    for (ub4 i = 0; i < kSchemeSize; ++i) {
        NameText t;
        if (!scheme_name(i, t)) continue;  // offset 0: the invalid name
        store.offset[i] = pos;
        for (ub4 k = 0; k < t.len; ++k) store.text[pos++] = t.s[k];
        store.text[pos++] = '\0';
    }
    return store;
}

constexpr NameStore kNames = build_names();

constexpr std::array<const char *, kSchemeSize> name_pointers() {
    std::array<const char *, kSchemeSize> a{};
    for (ub4 i = 0; i < kSchemeSize; ++i) a[i] = kNames.text + kNames.offset[i];
    return a;
}

}  // namespace
}  // namespace vorn

extern "C" {

constinit const std::array<vorn_kernel, VORN_DISPATCH_TABLE_WORDS> vorn_dispatch_table = vorn::build_table();
constinit const std::array<const char *, VORN_DISPATCH_SCHEME_SIZE> vorn_dispatch_func_names =
    vorn::name_pointers();

sb4 vorn_dispatch_table_size(void) { return static_cast<sb4>(vorn::kSchemeSize); }

}  // extern "C"
