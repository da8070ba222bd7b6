// xlate_lookup.h - how a translation finds a code's entry: the per-call view
// of the table (range, base, page shift and mask), the entry elements, and
// the lookup of one code or of a block of 16 clamped codes.
//
// The range test comes first and is the only bounds check: a code outside
// [lo, hi] is never looked up.  The block clamps every code into the range
// (unsigned min and max), so all 16 lanes read inside the table and the
// lanes whose clamped code differs from the code are dropped afterwards.
#pragma once

#include <nmmintrin.h>

#include <type_traits>
#include <utility>

#include "xlate/xlate_entries.h"
#include "xlate/xlate_tables.h"

namespace vorn::xlate {

// ---- Entry elements ----------------------------------------------------------
// An entry lives in a storage unit: entry i is in unit i >> kSubBits, at
// position i & kSubMask within it (bit tables: 8 a byte, nib: 2 a byte).
template <XlateElem E>
struct Elem {
    using Unit = std::conditional_t<E == XlateElem::ub4, ub4, std::conditional_t<E == XlateElem::ub2, ub2, ub1>>;
    // The output element of a _c2d member: nibbles come out as bytes.
    using Out = Unit;
    static constexpr ub4 kSubBits = E == XlateElem::bit ? 3 : E == XlateElem::nib ? 1 : 0;
    static constexpr ub4 kSubMask = (1u << kSubBits) - 1;
    // Whether some entry value says "no mapping": a set bit, nibble 15, byte
    // 255.  Every ub2 and ub4 entry is a mapping.
    static constexpr bool kHasNoMap = E == XlateElem::bit || E == XlateElem::nib || E == XlateElem::ub1;

    // The entry at position `sub` of unit `u`.
    static VORN_INLINE ub4 value(Unit u, ub4 sub) {
        if constexpr (E == XlateElem::bit) return (u >> sub) & 1;
        else if constexpr (E == XlateElem::nib) return (u >> (4 * sub)) & 15;
        else return u;
    }
    static VORN_INLINE bool mapped(ub4 v) {
        if constexpr (E == XlateElem::bit) return v == 0;
        else if constexpr (E == XlateElem::nib) return v != 15;
        else if constexpr (E == XlateElem::ub1) return v != 255;
        else return true;
    }
};

// ---- The table as one call sees it ------------------------------------------
struct View {
    const void *table;  // sim, off: the entries; ind: the page directory
    ub4 lo, hi;         // codes with a possible mapping, inclusive; off: lo >= base
    ub4 base;           // off
    ub4 shift, mask;    // ind
    bool empty;         // no code can have a mapping
};

template <XlateKind K>
VORN_INLINE View make_view(const vorn_xlate_ctx *x, const vorn_xlate_table *t) {
    View v{};
    v.table = t->table;
    ub8 lo = x->low_code;
    v.hi = x->high_code;
    if constexpr (K == XlateKind::off) {
        // Codes below base have no entry: the range starts at base at the
        // lowest, and a base beyond every ub4 code leaves nothing.
        if (t->base > lo) lo = t->base;
        v.base = static_cast<ub4>(t->base);
    }
    if constexpr (K == XlateKind::ind) {
        v.shift = static_cast<ub4>(t->page_shift);
        v.mask = static_cast<ub4>(t->page_mask);
    }
    v.empty = lo > v.hi;
    v.lo = static_cast<ub4>(lo);
    return v;
}

// The entry index of code c, and for ind the page that holds it (null: no
// mapping).  c is inside [lo, hi].
template <XlateKind K>
VORN_INLINE const void *entry_base(const View &v, ub4 c, ub4 &index) {
    if constexpr (K == XlateKind::sim) {
        index = c;
        return v.table;
    } else if constexpr (K == XlateKind::off) {
        index = c - v.base;
        return v.table;
    } else {
        index = c & v.mask;
        return static_cast<const void *const *>(v.table)[c >> v.shift];
    }
}

// One code: whether it has a mapping, and its entry in `value`.
template <XlateKind K, XlateElem E>
VORN_INLINE bool find_one(const View &v, ub4 c, ub4 &value) {
    using T = Elem<E>;
    if (c < v.lo || c > v.hi) return false;
    ub4 index;
    const void *base = entry_base<K>(v, c, index);
    if (K == XlateKind::ind && !base) return false;
    const auto *unit = static_cast<const typename T::Unit *>(base) + (index >> T::kSubBits);
    value = T::value(*unit, index & T::kSubMask);
    return T::mapped(value);
}

// ---- A block of 16 codes --------------------------------------------------------
// The constants of one call in vector form.
struct VecView {
    __m128i lo, hi, base, mask, shift;
};

VORN_INLINE VecView make_vec_view(const View &v) {
    VecView w;
    w.lo = _mm_set1_epi32(static_cast<int>(v.lo));
    w.hi = _mm_set1_epi32(static_cast<int>(v.hi));
    w.base = _mm_set1_epi32(static_cast<int>(v.base));
    w.mask = _mm_set1_epi32(static_cast<int>(v.mask));
    w.shift = _mm_cvtsi32_si128(static_cast<int>(v.shift));
    return w;
}

// Whether a block must read entries at all: plain ub2 and ub4 members of sim
// and off keep every code in range, so their answer is the range test.
template <XlateKind K, XlateElem E, bool C2D>
inline constexpr bool kReadsTable = C2D || Elem<E>::kHasNoMap || K == XlateKind::ind;

// Four 32-bit lanes of 0/1 each, 16 lanes in all, packed to 16 bytes.
VORN_INLINE __m128i pack_small_lanes(const __m128i *q) {
    return _mm_packus_epi16(_mm_packus_epi32(q[0], q[1]), _mm_packus_epi32(q[2], q[3]));
}

// 16 units gathered one lane at a time into unit-wide vector lanes: one
// vector of bytes, two of ub2, four of ub4.  unit_at(k) reads lane k.
template <class Unit, class F, std::size_t... L>
VORN_INLINE void gather_units(__m128i *g, const F &unit_at, std::index_sequence<L...>) {
    if constexpr (sizeof(Unit) == 1) {
        __m128i v = _mm_setzero_si128();
        ((v = _mm_insert_epi8(v, unit_at(L), L)), ...);
        g[0] = v;
    } else {
        constexpr ub4 per = 16 / sizeof(Unit);
        for (ub4 h = 0; h < 16 / per; ++h) g[h] = _mm_setzero_si128();
        auto put = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
            if constexpr (sizeof(Unit) == 2)
                g[I / per] = _mm_insert_epi16(g[I / per], unit_at(I), I % per);
            else
                g[I / per] = _mm_insert_epi32(g[I / per], static_cast<int>(unit_at(I)), I % per);
        };
        (put(std::integral_constant<std::size_t, L>{}), ...);
    }
}

// The lookup of 16 codes that are already clamped into [lo, hi].  Returns the
// rows whose entry is a mapping (bit k for lane k) and, when the member
// writes values, leaves the 16 entries in `values` in Out-wide lanes.
template <XlateKind K, XlateElem E, bool C2D>
VORN_INLINE ub4 lookup_block(const View &v, const VecView &w, const __m128i *clamped, __m128i *values) {
    using T = Elem<E>;
    using Unit = typename T::Unit;
    alignas(16) ub4 unit[16];
    alignas(16) ub4 page[16];
    __m128i sub[4];
    for (ub4 j = 0; j < 4; ++j) {
        __m128i i = clamped[j];
        if constexpr (K == XlateKind::off) i = _mm_sub_epi32(i, w.base);
        if constexpr (K == XlateKind::ind) {
            _mm_store_si128(reinterpret_cast<__m128i *>(page) + j, _mm_srl_epi32(i, w.shift));
            i = _mm_and_si128(i, w.mask);
        }
        if constexpr (T::kSubBits != 0) {
            sub[j] = _mm_and_si128(i, _mm_set1_epi32(T::kSubMask));
            i = _mm_srli_epi32(i, T::kSubBits);
        }
        _mm_store_si128(reinterpret_cast<__m128i *>(unit) + j, i);
    }

    ub4 found = 0xffff;
    const Unit *lane_unit[16];
    if constexpr (K == XlateKind::ind) {
        // A null page has no mapping: its lanes read a zero unit instead and
        // are dropped by `found`.
        static constexpr Unit kNoPage = 0;
        const auto *dir = static_cast<const void *const *>(v.table);
        ub4 ok = 0;
        for (ub4 k = 0; k < 16; ++k) {
            const auto *p = static_cast<const Unit *>(dir[page[k]]);
            ok |= ub4{p != nullptr} << k;
            lane_unit[k] = p ? p + unit[k] : &kNoPage;
        }
        found = ok;
        if constexpr (!C2D && !T::kHasNoMap) return found;
    } else {
        const auto *table = static_cast<const Unit *>(v.table);
        for (ub4 k = 0; k < 16; ++k) lane_unit[k] = table + unit[k];
    }

    __m128i g[16 / (16 / sizeof(Unit))];
    gather_units<Unit>(g, [&](std::size_t k) { return *lane_unit[k]; }, std::make_index_sequence<16>{});

    if constexpr (E == XlateElem::bit) {
        // The bit of each entry by pshufb of the weights; a clear bit keeps.
        const __m128i bit = _mm_shuffle_epi8(kByteWeights.vec(), pack_small_lanes(sub));
        found &= static_cast<ub4>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(g[0], bit), _mm_setzero_si128())));
    } else if constexpr (E == XlateElem::nib) {
        // Odd entries are the high nibble: 0 - 1 = all ones selects them.
        const __m128i odd = _mm_sub_epi8(_mm_setzero_si128(), pack_small_lanes(sub));
        const __m128i low4 = _mm_set1_epi8(0x0f);
        const __m128i nib = _mm_blendv_epi8(_mm_and_si128(g[0], low4),
                                            _mm_and_si128(_mm_srli_epi16(g[0], 4), low4), odd);
        found &= ~static_cast<ub4>(_mm_movemask_epi8(_mm_cmpeq_epi8(nib, low4)));
        values[0] = nib;
    } else if constexpr (E == XlateElem::ub1) {
        found &= ~static_cast<ub4>(_mm_movemask_epi8(_mm_cmpeq_epi8(g[0], _mm_set1_epi8(-1))));
        values[0] = g[0];
    } else {
        for (ub4 h = 0; h < 16 / (16 / sizeof(Unit)); ++h) values[h] = g[h];
    }
    return found & 0xffff;
}

// Lanes of rows that are not kept, all ones, in Out-wide lanes: the 16 row
// bits spread back over the lanes by their weights.
template <class Out>
VORN_INLINE void dropped_lanes(ub4 kept, __m128i *lanes) {
    const __m128i zero = _mm_setzero_si128();
    if constexpr (sizeof(Out) == 1) {
        const __m128i spread = _mm_shuffle_epi8(_mm_cvtsi32_si128(static_cast<int>(kept)), kByteSpread.vec());
        lanes[0] = _mm_cmpeq_epi8(_mm_and_si128(spread, kByteWeights.vec()), zero);
    } else if constexpr (sizeof(Out) == 2) {
        for (ub4 h = 0; h < 2; ++h) {
            const __m128i b = _mm_set1_epi16(static_cast<short>(kept >> (8 * h)));
            lanes[h] = _mm_cmpeq_epi16(_mm_and_si128(b, kWordWeights.vec()), zero);
        }
    } else {
        for (ub4 q = 0; q < 4; ++q) {
            const __m128i b = _mm_set1_epi32(static_cast<int>(kept >> (4 * q)));
            lanes[q] = _mm_cmpeq_epi32(_mm_and_si128(b, kDwordWeights.vec()), zero);
        }
    }
}

}  // namespace vorn::xlate
