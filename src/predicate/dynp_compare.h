// dynp_compare.h - the dynamic-prefix compare family: one template for the
// ten forms, the maximum widths 16, 32 and 64 bits, and the _tz variant.
//
// A row's value is its stored bytes followed by zero bytes up to the full
// width, read as a big-endian number and compared unsigned.  In the _tz
// variant a row is the pair (value, selector) and a literal the pair (value,
// ub1 at literals[1]), compared lexically, value first; a literal key above
// the width in bytes makes the kernel return 2 with nothing written.
//
// Full path, in blocks of four selector bytes (32, 16 or 8 rows): the four
// group starts follow from the consumed-length table; each group's 16 bytes
// go through its selector byte's shuffle row, which lays its rows out as
// left-aligned lanes, and the lanes are compared with the literal in lane
// form.  The four masks gather to the block's bits, stored as a 32-, 16- or
// 8-bit piece.  Rows behind the last block are read one by one: L = selector
// + 1 bytes copied into a zeroed local and swapped.
//
// Selective path: a row's address is known only by walking, so the walk
// moves forward through the selected rows that the iterator yields in
// ascending order: by whole selector bytes through the consumed-length
// table, then row by row within the selector byte.
#pragma once

#include "frame/compare_frame.h"
#include "predicate/dynp_entries.h"
#include "predicate/dynp_lanes.h"
#include "predicate/dynp_tables.h"

namespace vorn::dynp {

// The value of a row of `stored` bytes at p.  A 64-bit selector nibble above
// 7 asks for up to 16 bytes; the local has room for them and the first 8
// stand for the row.
template <ub4 Bytes>
VORN_INLINE typename Lanes<Bytes>::Value read_value(const ub1 *p, ub4 stored) {
    ub1 local[Bytes == 8 ? 16 : Bytes] = {};
    for (ub4 k = 0; k < stored; ++k) local[k] = p[k];
    return bswap(load<typename Lanes<Bytes>::Value>(local));
}

// A literal brought to the forms of the compare: native, in lanes, and the
// second key in lanes.
template <ub4 Bytes>
struct Literal {
    using L = Lanes<Bytes>;
    typename L::Value value;
    ub4 key;
    __m128i lanes;      // value lanes, sign-flipped for the orders
    __m128i key_lanes;  // the second key in every lane

    Literal(const void *const *literal, bool ordered, bool with_key)
        : value(bswap(load<typename L::Value>(literal[0]))),
          key(with_key ? *static_cast<const ub1 *>(literal[1]) : 0) {
        lanes = L::set1(value);
        if (ordered) lanes = _mm_xor_si128(lanes, L::sign());
        key_lanes = L::set1(key);
    }
};

// The test of one form.  mask() gives the lanes of the form's base
// relation; the forms that are complements (ne, le, ge, ge_le) invert the
// gathered bits instead, which costs nothing per lane.
template <Cmp Form, ub4 Bytes, bool Tz>
struct Test {
    using L = Lanes<Bytes>;
    using Value = typename L::Value;
    static constexpr bool kOrdered = Form != Cmp::eq && Form != Cmp::ne;
    static constexpr bool kInvert = Form == Cmp::ne || Form == Cmp::le || Form == Cmp::ge || Form == Cmp::ge_le;

    Literal<Bytes> a, b;

    Test(const void *const *first, const void *const *second)
        : a(first, kOrdered, Tz), b(second, kOrdered, Tz) {}

    // Lanes: x sign-flipped for the orders, t the rows' selectors.
    static VORN_INLINE __m128i equal(__m128i x, __m128i t, const Literal<Bytes> &c) {
        __m128i m = L::eq(x, c.lanes);
        if constexpr (Tz) m = _mm_and_si128(m, L::eq(t, c.key_lanes));
        return m;
    }
    static VORN_INLINE __m128i above(__m128i x, __m128i t, const Literal<Bytes> &c) {
        __m128i m = L::gt(x, c.lanes);
        if constexpr (Tz) m = _mm_or_si128(m, _mm_and_si128(L::eq(x, c.lanes), L::gt(t, c.key_lanes)));
        return m;
    }
    static VORN_INLINE __m128i below(__m128i x, __m128i t, const Literal<Bytes> &c) {
        __m128i m = L::gt(c.lanes, x);
        if constexpr (Tz) m = _mm_or_si128(m, _mm_and_si128(L::eq(x, c.lanes), L::gt(c.key_lanes, t)));
        return m;
    }

    VORN_INLINE __m128i mask(__m128i x, __m128i t) const {
        if constexpr (kOrdered) x = _mm_xor_si128(x, L::sign());
        if constexpr (Form == Cmp::eq || Form == Cmp::ne) return equal(x, t, a);
        else if constexpr (Form == Cmp::lt || Form == Cmp::ge) return below(x, t, a);
        else if constexpr (Form == Cmp::gt || Form == Cmp::le) return above(x, t, a);
        else if constexpr (Form == Cmp::gt_lt) return _mm_and_si128(above(x, t, a), below(x, t, b));
        else if constexpr (Form == Cmp::gt_le) return _mm_andnot_si128(above(x, t, b), above(x, t, a));
        else if constexpr (Form == Cmp::ge_lt) return _mm_andnot_si128(below(x, t, a), below(x, t, b));
        else return _mm_or_si128(below(x, t, a), above(x, t, b));  // ge_le, inverted
    }

    // One row, written out as the pair compare.
    static VORN_INLINE bool equal(Value x, ub4 t, const Literal<Bytes> &c) {
        return x == c.value && (!Tz || t == c.key);
    }
    static VORN_INLINE bool above(Value x, ub4 t, const Literal<Bytes> &c) {
        return x > c.value || (Tz && x == c.value && t > c.key);
    }
    static VORN_INLINE bool below(Value x, ub4 t, const Literal<Bytes> &c) {
        return x < c.value || (Tz && x == c.value && t < c.key);
    }

    VORN_INLINE bool row(Value x, ub4 t) const {
        bool m;
        if constexpr (Form == Cmp::eq || Form == Cmp::ne) m = equal(x, t, a);
        else if constexpr (Form == Cmp::lt || Form == Cmp::ge) m = below(x, t, a);
        else if constexpr (Form == Cmp::gt || Form == Cmp::le) m = above(x, t, a);
        else if constexpr (Form == Cmp::gt_lt) m = above(x, t, a) && below(x, t, b);
        else if constexpr (Form == Cmp::gt_le) m = above(x, t, a) && !above(x, t, b);
        else if constexpr (Form == Cmp::ge_lt) m = !below(x, t, a) && below(x, t, b);
        else m = below(x, t, a) || above(x, t, b);
        return m != kInvert;
    }
};

// The rows of one selector byte as lanes.
template <ub4 Bytes>
VORN_INLINE __m128i group_lanes(const ub1 *p, ub4 s) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
    const __m128i control = _mm_load_si128(reinterpret_cast<const __m128i *>(Tables<Bytes>::shuffles[s].data()));
    return _mm_shuffle_epi8(bytes, control);
}
template <ub4 Bytes, bool Tz>
VORN_INLINE __m128i selector_lanes(ub4 s) {
    if constexpr (!Tz) return _mm_setzero_si128();
    else return _mm_load_si128(reinterpret_cast<const __m128i *>(Tables<Bytes>::selector_lanes[s].data()));
}

// All n rows into out; returns the count.
template <ub4 Bytes, bool Tz, class T>
VORN_INLINE ub8 scan_rows(const T &test, ub8 *out, const ub1 *values, const ub1 *selectors, ub4 n) {
    using G = Geometry<Bytes>;
    using Bits = typename Lanes<Bytes>::Bits;
    constexpr const LengthTable &len = Tables<Bytes>::lengths;
    constexpr ub4 kRowsPerBlock = 4 * G::kRowsPerSelector;
    static_assert(sizeof(Bits) * 8 == kRowsPerBlock);

    ub1 *bytes = reinterpret_cast<ub1 *>(out);
    const ub4 blocks = n / kRowsPerBlock;
    ub8 count = 0;
    for (ub4 blk = 0; blk < blocks; ++blk) {
        const ub4 s = load<ub4>(selectors + 4 * blk);
        const ub4 s0 = s & 0xff, s1 = (s >> 8) & 0xff, s2 = (s >> 16) & 0xff, s3 = s >> 24;
        const ub1 *p1 = values + len[s0];
        const ub1 *p2 = p1 + len[s1];
        const ub1 *p3 = p2 + len[s2];
        const __m128i m0 = test.mask(group_lanes<Bytes>(values, s0), selector_lanes<Bytes, Tz>(s0));
        const __m128i m1 = test.mask(group_lanes<Bytes>(p1, s1), selector_lanes<Bytes, Tz>(s1));
        const __m128i m2 = test.mask(group_lanes<Bytes>(p2, s2), selector_lanes<Bytes, Tz>(s2));
        const __m128i m3 = test.mask(group_lanes<Bytes>(p3, s3), selector_lanes<Bytes, Tz>(s3));
        values = p3 + len[s3];
        Bits bits = Lanes<Bytes>::gather(m0, m1, m2, m3);
        if constexpr (T::kInvert) bits = static_cast<Bits>(~bits);
        store<Bits>(bytes + ub8{blk} * sizeof(Bits), bits);
        count += static_cast<ub8>(_mm_popcnt_u32(bits));
    }
    // The words behind the last block, cleared for the tail's bits.
    const ub8 written = ub8{blocks} * sizeof(Bits);
    std::memset(bytes + written, 0, words_for_bits(n) * 8 - written);
    for (ub4 row = blocks * kRowsPerBlock; row < n; ++row) {
        const ub4 t = G::selector_of(selectors, row);
        const auto x = read_value<Bytes>(values, t + 1);
        values += t + 1;
        if (test.row(x, t)) {
            out[row >> 6] |= ub8{1} << (row & 63);
            ++count;
        }
    }
    return count;
}

// The selected rows, walking forward; out is cleared.  Returns the count.
template <ub4 Bytes, class T>
VORN_INLINE ub8 walk_selected(const T &test, ub8 *out, const ub1 *values, const ub1 *selectors,
                              vorn_bv_iter &it) {
    using G = Geometry<Bytes>;
    constexpr const LengthTable &len = Tables<Bytes>::lengths;
    ub4 rows[8];
    ub8 count = 0;
    ub4 sb = 0;                  // the selector byte the walk stands at
    const ub1 *group = values;   // where its rows' values begin
    for (;;) {
        const ub4 got = vorn_lbiwvones_dydi(&it, rows, 8);
        for (ub4 k = 0; k < got; ++k) {
            const ub4 row = rows[k];
            const ub4 target = row / G::kRowsPerSelector;
            for (; sb < target; ++sb) group += len[selectors[sb]];
            const ub4 s = selectors[sb];
            const ub1 *p = group;
            const ub4 j = row % G::kRowsPerSelector;
            for (ub4 r = 0; r < j; ++r) p += G::selector(s, r) + 1;
            const ub4 t = G::selector(s, j);
            const ub8 hit = test.row(read_value<Bytes>(p, t + 1), t) ? 1 : 0;
            out[row >> 6] |= hit << (row & 63);
            count += hit;
        }
        if (got < 8) return count;
    }
}

// What the frame calls: the full scan and the selective walk.
template <Cmp Form, ub4 Bytes, bool Tz>
struct Compare {
    using Text = KernelText<kernel_name<kernel_index(Form, Bytes, Tz)>()>;
    Test<Form, Bytes, Tz> test;
    const ub1 *selectors;

    Compare(const vorn_vec *src, const void *const *first, const void *const *second)
        : test(first, second), selectors(static_cast<const ub1 *>(src->data2)) {}

    ub8 scan(ub8 *out, const ub1 *stream, ub4 n) const {
        return scan_rows<Bytes, Tz>(test, out, stream, selectors, n);
    }
    ub8 select_rows(ub8 *out, const ub1 *stream, vorn_bv_iter &it) const {
        return walk_selected<Bytes>(test, out, stream, selectors, it);
    }
};

// A _tz literal's key above the width in bytes is refused.
template <ub4 Bytes, bool Tz>
VORN_INLINE bool key_refused(const void *const *literal) {
    if constexpr (!Tz) return false;
    else return *static_cast<const ub1 *>(literal[1]) > Bytes;
}

template <Cmp Form, ub4 Bytes, bool Tz>
ub8 compare_kernel(vorn_vec *res, vorn_vec *src, const void *const *literals, vorn_kernel_ctx *kctx) {
    static_assert(!is_range(Form));
    if (key_refused<Bytes, Tz>(literals)) return 2;
    const Compare<Form, Bytes, Tz> cmp(src, literals, literals);
    return compare_frame(res, src, cmp, kctx);
}

template <Cmp Form, ub4 Bytes, bool Tz>
ub8 range_kernel(vorn_vec *res, vorn_vec *src, const void *const *low, const void *const *high,
                 vorn_kernel_ctx *kctx) {
    static_assert(is_range(Form));
    if (key_refused<Bytes, Tz>(low) || key_refused<Bytes, Tz>(high)) return 2;
    const Compare<Form, Bytes, Tz> cmp(src, low, high);
    return compare_frame(res, src, cmp, kctx);
}

// Instantiates the ten forms of one width and variant in the translation
// unit that names Instances<Bytes, Tz> in an explicit instantiation: the
// table of their addresses makes the compiler emit each of them there.
template <ub4 Bytes, bool Tz>
struct Instances {
    static const std::array<vorn_kernel, kCompareCount> kernels;
};
template <ub4 Bytes, bool Tz>
const std::array<vorn_kernel, kCompareCount> Instances<Bytes, Tz>::kernels = all_forms<Bytes, Tz>();

}  // namespace vorn::dynp
