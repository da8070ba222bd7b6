// dispatch_scheme.h - the 13-bit operation codes and the rule that says which
// kernel stands at each.  The names table, the kernels' own message strings
// and the tests all come from scheme_name(); nothing here is typed by hand
// per kernel.
//
// An index: bits 0-4 operation, 5-6 encoding, 7-11 width field, 12 variant.
#pragma once

#include <array>

#include "frame/base.h"

namespace vorn {

inline constexpr ub4 kSchemeSize = VORN_DISPATCH_SCHEME_SIZE;
inline constexpr ub4 kTableWords = VORN_DISPATCH_TABLE_WORDS;
inline constexpr ub4 kSecond = VORN_DISPATCH_SECOND;

// The compare forms, operations 0 to 9, in their dispatch order.
enum class Cmp : ub4 { eq, lt, gt, le, ge, ne, gt_lt, gt_le, ge_lt, ge_le };
inline constexpr ub4 kCompareCount = 10;
inline constexpr bool is_range(Cmp c) { return static_cast<ub4>(c) >= 6; }

// Width codes: bit widths 1..20 are 0..19, 24 is 20, 32 is 21, 64 is 22.
inline constexpr ub4 kNoWidth = 0xffffffffu;
constexpr ub4 width_code(ub4 bits) {
    if (bits >= 1 && bits <= 20) return bits - 1;
    if (bits == 24) return 20;
    if (bits == 32) return 21;
    if (bits == 64) return 22;
    return kNoWidth;
}
constexpr ub4 width_bits(ub4 code) {
    if (code <= 19) return code + 1;
    if (code == 20) return 24;
    if (code == 21) return 32;
    if (code == 22) return 64;
    return 0;
}

// The dictionary widths D: 1 to 20, 24, 32, 64.  D' is D without 64.
inline constexpr std::array<ub4, 23> kDictWidths = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12,
                                                    13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};

constexpr ub4 dispatch_index(ub4 width_field, ub4 encoding, ub4 op, bool second = false) {
    return (second ? kSecond : 0u) | (width_field << 7) | (encoding << 5) | op;
}

// Translation: width field = form * 8 + element.
enum class XlateElem : ub4 { bit, nib, ub1, ub2, ub4 };
enum class XlateForm : ub4 { plain, cla, const_, sep };
constexpr ub4 xlate_width_field(XlateForm f, XlateElem e) {
    return static_cast<ub4>(f) * 8 + static_cast<ub4>(e);
}

// Run expansion: the width fields of the four burst kernels.
inline constexpr ub4 kBurst8 = 6, kBurst8Cla = 7, kBurst16 = 14, kBurst16Cla = 15;

// A kernel's name as built at compile time.
struct NameText {
    char s[48] = {};
    ub4 len = 0;
    constexpr void add(const char *t) {
        while (*t) s[len++] = *t++;
    }
    constexpr void add_num(ub4 v) {
        char d[10] = {};
        ub4 n = 0;
        do {
            d[n++] = static_cast<char>('0' + v % 10);
            v /= 10;
        } while (v);
        while (n) s[len++] = d[--n];
    }
};

inline constexpr const char *kCompareNames[kCompareCount] = {
    "eq", "lt", "gt", "le", "ge", "ne", "gt_lt", "gt_le", "ge_lt", "ge_le"};
inline constexpr const char kInvalidName[] = "vorn_invalid_dispatch";

constexpr bool is_fixed_width_code(ub4 wc) { return wc == 7 || wc == 15 || wc == 21 || wc == 22; }
constexpr bool is_dynp_width_code(ub4 wc) { return wc == 15 || wc == 21 || wc == 22; }

// The generating rule.  Writes the name of the kernel at `index` and returns
// true, or returns false for an index that holds no kernel.
constexpr bool scheme_name(ub4 index, NameText &t) {
    const ub4 op = index & 31, enc = (index >> 5) & 3, wf = (index >> 7) & 31;
    const bool second = (index >> 12) & 1;
    t = NameText{};
    t.add("vorn_");
    auto width_part = [&](ub4 code) {
        t.add_num(width_bits(code));
        t.add("bit");
    };
    if (op < kCompareCount) {
        const char *family = nullptr;
        const char *second_suffix = nullptr;
        if (enc == VORN_ENC_FIXED && is_fixed_width_code(wf)) family = "_fixed_", second_suffix = "_tz";
        if (enc == VORN_ENC_DICT && wf <= 22) family = "_dict_", second_suffix = "_null";
        if (enc == VORN_ENC_DYNP && is_dynp_width_code(wf)) family = "_dynp_", second_suffix = "_tz";
        if (!family) return false;
        t.add(kCompareNames[op]);
        t.add(family);
        width_part(wf);
        if (second) t.add(second_suffix);
        return true;
    }
    switch (op) {
        case VORN_OP_DECODE:
        case VORN_OP_DECODE_UNPACK:
        case VORN_OP_SET:
        case VORN_OP_DISTINCT:
        case VORN_OP_MINMAX: {
            if (enc != VORN_ENC_DICT || wf > 21) return false;
            if (second && op != VORN_OP_MINMAX) return false;
            t.add(op == VORN_OP_DECODE          ? "decode_dict_"
                  : op == VORN_OP_DECODE_UNPACK ? "decode_unpack_dict_"
                  : op == VORN_OP_SET           ? "set_dict_"
                  : op == VORN_OP_DISTINCT      ? "distinct_dict_"
                                                : "minmax_dict_");
            width_part(wf);
            if (second) t.add("_null");
            return true;
        }
        case VORN_OP_DECODE_SYMBOL:
            if (enc != VORN_ENC_DICT || second || !(wf == 7 || wf == 15 || wf == 21)) return false;
            t.add("decode_symbol_dict_");
            width_part(wf);
            return true;
        case VORN_OP_SUM:
            if (second) return false;
            if (enc == VORN_ENC_DICT && wf <= 21) t.add("sum_dict_");
            else if (enc == VORN_ENC_FIXED && is_fixed_width_code(wf)) t.add("sum_fixed_");
            else return false;
            width_part(wf);
            return true;
        case VORN_OP_BURST:
            if (enc != VORN_ENC_SPECIAL || second) return false;
            if (wf != kBurst8 && wf != kBurst8Cla && wf != kBurst16 && wf != kBurst16Cla) return false;
            t.add(wf < 8 ? "burst_rle_8bit" : "burst_rle_16bit");
            if (wf & 1) t.add("_cla");
            return true;
        case VORN_OP_XLATE: {
            constexpr const char *elems[5] = {"bit", "nib", "ub1", "ub2", "ub4"};
            constexpr const char *forms[4] = {"", "_cla", "_const", "_sep"};
            constexpr const char *kinds[3] = {"sim_", "off_", "ind_"};
            const ub4 elem = wf & 7, form = wf >> 3;
            if (enc == VORN_XLATE_GROUPKEY) {
                if (!second || elem < 1 || elem > 4 || form != 0) return false;
                t.add("xlate_groupkey_");
                t.add(elems[elem]);
                t.add("_c2d");
                return true;
            }
            if (elem > 4 || (second && elem == 0)) return false;
            t.add("xlate_");
            t.add(kinds[enc]);
            t.add(elems[elem]);
            if (second) t.add("_c2d");
            t.add(forms[form]);
            return true;
        }
        case VORN_OP_ADD:
        case VORN_OP_SUB:
        case VORN_OP_MUL: {
            const ub4 type = wf & 3;
            if (enc != VORN_ENC_FIXED || wf >= 16 || (type != 1 && type != 2)) return false;
            t.add(op == VORN_OP_ADD ? "add_" : op == VORN_OP_SUB ? "sub_" : "mul_");
            t.add(type == 1 ? "float_" : "double_");
            t.add((wf & 4) ? "c_" : "n_");
            t.add((wf & 8) ? "c" : "n");
            if (second) t.add("_sum");
            return true;
        }
        default:
            return false;
    }
}

// ---------------------------------------------------------------------------
// Compile-time strings for the kernels' messages.  A kernel knows its own
// dispatch index, so its name and every literal that carries the name are
// built by the compiler: "vorn_eq_dict_8bit: vec1_decomp".

template <std::size_t N>
struct Str {
    char s[N] = {};
    constexpr Str() = default;
    constexpr Str(const char (&a)[N]) {
        for (std::size_t i = 0; i < N; ++i) s[i] = a[i];
    }
    constexpr const char *c_str() const { return s; }
    static constexpr std::size_t length = N - 1;
};

template <std::size_t A, std::size_t B>
constexpr Str<A + B - 1> operator+(const Str<A> &a, const Str<B> &b) {
    Str<A + B - 1> r;
    for (std::size_t i = 0; i + 1 < A; ++i) r.s[i] = a.s[i];
    for (std::size_t i = 0; i < B; ++i) r.s[A - 1 + i] = b.s[i];
    return r;
}
template <std::size_t A, std::size_t B>
constexpr Str<A + B - 1> operator+(const Str<A> &a, const char (&b)[B]) {
    return a + Str<B>(b);
}

constexpr NameText scheme_text(ub4 index) {
    NameText t;
    if (!scheme_name(index, t)) {
        t = NameText{};
        t.add(kInvalidName);
    }
    return t;
}

// The name of the kernel at `Index`, as a Str of its exact length.
template <ub4 Index>
constexpr auto kernel_name() {
    constexpr NameText t = scheme_text(Index);
    Str<t.len + 1> r;
    for (ub4 i = 0; i < t.len; ++i) r.s[i] = t.s[i];
    return r;
}

// The literals that carry a kernel's name.  Name is a Str.
template <auto Name>
struct KernelText {
    static constexpr auto name = Name;
    static constexpr auto vec1_decomp = Name + ": vec1_decomp";
    static constexpr auto lomp_failed = Name + ": vorn_lomp_decode failed";
    static constexpr auto rle_ones_vec_zero = Name + ": [rle] ones_vec size is zero";
};

// The whole table: a union per index, filled by the families' put_*
// functions from their template parameters.
using KernelTable = std::array<vorn_kernel, kTableWords>;

}  // namespace vorn
