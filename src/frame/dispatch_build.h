// dispatch_build.h - the one list of families that fill vorn_dispatch_table,
// and the name store of the scheme.  The library builds its table and names
// from these (dispatch_table.cpp); the host kit builds its served bits and
// kernel names from the same functions, so the two can never drift apart.
// Everything here is evaluated by the compiler; no kernel is called.
#pragma once

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

// The member of vorn_kernel that the kernels of an index's operation fill.
enum class EntryShape { cmp, range, decode, minmax, xlate, arith };

constexpr EntryShape entry_shape(ub4 index) {
    const ub4 op = index & 31;
    if (op < kCompareCount) return is_range(static_cast<Cmp>(op)) ? EntryShape::range : EntryShape::cmp;
    if (op == VORN_OP_XLATE) return EntryShape::xlate;
    if (op == VORN_OP_MINMAX) return EntryShape::minmax;
    if (op == VORN_OP_ADD || op == VORN_OP_SUB || op == VORN_OP_MUL) return EntryShape::arith;
    return EntryShape::decode;
}

// Every index that the scheme names starts with the entry of its shape that
// writes nothing and returns 2; the families then put their kernels over
// them.  So a named index is never a null call, also for the families this
// build does not serve.
constexpr void put_unserved(KernelTable &t) {
    for (ub4 i = 0; i < kSchemeSize; ++i) {
        NameText name;
        if (!scheme_name(i, name)) continue;
        switch (entry_shape(i)) {
            case EntryShape::cmp: t[i].cmp = vorn_unserved_cmp; break;
            case EntryShape::range: t[i].range = vorn_unserved_range; break;
            case EntryShape::decode: t[i].decode = vorn_unserved_decode; break;
            case EntryShape::minmax: t[i].minmax = vorn_unserved_minmax; break;
            case EntryShape::xlate: t[i].xlate = vorn_unserved_xlate; break;
            case EntryShape::arith: t[i].arith = vorn_unserved_arith; break;
        }
    }
}

// Every family with kernels in the dispatch table, each putting its template
// instances at the indexes their parameters give.  A new family adds its
// put_* call here and nowhere else.
constexpr void put_families(KernelTable &t) {
    put_fixed(t);
    put_dict(t);
    put_dict_whole_bytes(t);
    put_dynp(t);
    put_decode(t);
    put_unpack(t);
    put_burst(t);
    put_minmax(t);
    put_xlate(t);
}

constexpr KernelTable build_dispatch_table() {
    KernelTable t{};
    put_unserved(t);
    put_families(t);
    return t;
}

// Whether entry `index` of a table built above holds a kernel: named, and
// not the "not served" entry of its shape.
constexpr bool entry_served(const KernelTable &t, ub4 index) {
    NameText name;
    if (!scheme_name(index, name)) return false;
    switch (entry_shape(index)) {
        case EntryShape::cmp: return t[index].cmp != vorn_unserved_cmp;
        case EntryShape::range: return t[index].range != vorn_unserved_range;
        case EntryShape::decode: return t[index].decode != vorn_unserved_decode;
        case EntryShape::minmax: return t[index].minmax != vorn_unserved_minmax;
        case EntryShape::xlate: return t[index].xlate != vorn_unserved_xlate;
        case EntryShape::arith: return t[index].arith != vorn_unserved_arith;
    }
    return false;
}

// All valid names end to end, each with its terminating zero, behind the one
// shared "vorn_invalid_dispatch" at offset 0.
constexpr ub4 scheme_names_bytes() {
    ub4 total = sizeof(kInvalidName);
    for (ub4 i = 0; i < kSchemeSize; ++i) {
        NameText t;
        if (scheme_name(i, t)) total += t.len + 1;
    }
    return total;
}

struct NameStore {
    char text[scheme_names_bytes()] = {};
    ub4 offset[kSchemeSize] = {};  // 0: the invalid name
};

constexpr NameStore build_scheme_names() {
    NameStore store;
    ub4 pos = 0;
    for (char c : kInvalidName) store.text[pos++] = c;
    for (ub4 i = 0; i < kSchemeSize; ++i) {
        NameText t;
        if (!scheme_name(i, t)) continue;
        store.offset[i] = pos;
        for (ub4 k = 0; k < t.len; ++k) store.text[pos++] = t.s[k];
        store.text[pos++] = '\0';
    }
    return store;
}

}  // namespace vorn
