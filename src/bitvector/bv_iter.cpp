// bv_iter.cpp - iterators and range setters of both bit-vector families.
//
// An iteration costs in proportion to the ones, not the bits: a word is
// taken whole, and each one comes out by a trailing-zero count and a
// clear-lowest-bit.  The byte form never reads a byte outside the vector:
// its words start at the 8-byte boundary at or before the start, and a word
// that reaches outside is assembled from the bytes that belong.
#include "bitvector/bv_unit.h"

namespace vorn::bv {
namespace {

// The bytes of [from, from + 8) that lie inside [vec, vec + vec_bytes), in
// their places in a zeroed word.
VORN_INLINE ub8 partial_word(const ub1 *vec, ub8 vec_bytes, uintptr_t from) {
    const uintptr_t lo = reinterpret_cast<uintptr_t>(vec);
    const uintptr_t hi = lo + vec_bytes;
    const uintptr_t begin = from < lo ? lo : from;
    const uintptr_t end = from + 8 > hi ? hi : from + 8;
    ub8 w = 0;
    if (begin < end)
        std::memcpy(reinterpret_cast<ub1 *>(&w) + (begin - from),
                    reinterpret_cast<const void *>(begin), end - begin);
    return w;
}

template <class U>
void iter_init(vorn_bv_iter *it, const void *a, ub8 bits, ub1 complement, ub8 start) {
    if (bits == 0 || start >= bits) {
        *it = vorn_bv_iter{};
        return;
    }
    ub8 word, shift;
    uintptr_t next;
    if constexpr (sizeof(U) == 8) {
        const ub8 *w = static_cast<const ub8 *>(a) + (start >> 6);
        word = *w;
        next = reinterpret_cast<uintptr_t>(w + 1);
        it->base = start & ~ub8{63};
        shift = start & 63;
    } else {
        const ub1 *bytes = static_cast<const ub1 *>(a);
        const uintptr_t lo = reinterpret_cast<uintptr_t>(bytes);
        const uintptr_t at = lo + (start >> 3);
        const uintptr_t rounded = at & ~uintptr_t{7};
        shift = (start & 7) + 8 * (at - rounded);
        it->base = start - shift;  // may lie before bit 0, negative as a number
        if (rounded >= lo && (rounded - lo) * 8 + 64 <= bits)
            word = load<ub8>(reinterpret_cast<const void *>(rounded));
        else
            word = partial_word(bytes, (bits + 7) >> 3, rounded);
        next = rounded + 8;
    }
    if (complement == 1) word = ~word;
    const ub8 rest = bits - start;
    if (shift + rest < 64)
        word &= ((ub8{1} << rest) - 1) << shift;
    else
        word &= ~ub8{0} << shift;
    it->next = next;
    it->bits = bits;
    it->word = word;
}

// Moves on to the next word that has a wanted bit; false at the end.  With
// Clear the words are complemented before the bits behind the end are cut,
// so those bits are never reported as clear.
template <class U, bool Clear>
VORN_INLINE bool refill(vorn_bv_iter *it) {
    while (it->word == 0) {
        it->base += 64;
        if (static_cast<sb8>(it->base) >= static_cast<sb8>(it->bits)) {
            it->next = 0;
            return false;
        }
        const ub8 left = it->bits - it->base;
        const void *p = reinterpret_cast<const void *>(it->next);
        ub8 w;
        if (sizeof(U) == 1 && left < 64) {
            w = 0;
            std::memcpy(&w, p, (left + 7) >> 3);
        } else {
            w = load<ub8>(p);
        }
        it->next += 8;
        if (Clear) w = ~w;
        if (left < 64) w &= (ub8{1} << left) - 1;
        it->word = w;
    }
    return true;
}

template <class U, bool Clear>
ub8 iter_next(vorn_bv_iter *it) {
    if (!refill<U, Clear>(it)) return Unit<U>::kEnd;
    const ub8 w = it->word;
    it->word = w & (w - 1);
    return it->base + static_cast<ub8>(__builtin_ctzll(w));
}

// As repeated iter_next, with the iterator held in registers: a zero word
// costs a load and a test, a one a trailing-zero count and a store.
template <class U>
ub4 iter_ones(vorn_bv_iter *it, ub4 *out, ub4 max) {
    ub4 n = 0;
    ub8 w = it->word, base = it->base;
    const ub8 bits = it->bits;
    const ub1 *next = reinterpret_cast<const ub1 *>(it->next);
    for (;;) {
        // The ones left in the current word.
        while (w != 0 && n < max) {
            out[n++] = static_cast<ub4>(base + static_cast<ub8>(__builtin_ctzll(w)));
            w &= w - 1;
        }
        if (n == max) break;
        // Whole words.  A sparse vector's words hold no one or one, so each
        // word's first one is taken without a branch: it is written at out[n]
        // in any case (n < max), and n moves only if the word had a one.
        // Only a word with more ones leaves this loop.
        bool ended = false;
        while (n < max) {
            base += 64;
            if (static_cast<sb8>(base) >= static_cast<sb8>(bits)) {
                ended = true;
                break;
            }
            const ub8 left = bits - base;
            if (VORN_UNLIKELY(left < 64)) {
                w = 0;
                std::memcpy(&w, next, sizeof(U) == 1 ? (left + 7) >> 3 : 8);
                w &= (ub8{1} << left) - 1;
                next += 8;
                break;
            }
            w = load<ub8>(next);
            next += 8;
            out[n] = static_cast<ub4>(base + static_cast<ub8>(__builtin_ctzll(w | (ub8{1} << 63))));
            n += w != 0;
            w &= w - 1;
            if (w != 0) break;
        }
        if (ended) {
            next = nullptr;
            break;
        }
    }
    it->word = w;
    it->base = base;
    it->next = reinterpret_cast<uintptr_t>(next);
    return n;
}

// Both families set and clear ranges byte by byte.
template <bool Set>
void range(void *a, ub8 first, ub8 last) {
    ub1 *p = static_cast<ub1 *>(a);
    const ub8 f = first >> 3, l = last >> 3;
    const ub1 head = static_cast<ub1>(0xff << (first & 7));
    const ub1 tail = static_cast<ub1>(0xff >> (7 - (last & 7)));
    auto apply = [](ub1 &b, ub1 m) { b = Set ? static_cast<ub1>(b | m) : static_cast<ub1>(b & ~m); };
    if (f == l) {
        apply(p[f], static_cast<ub1>(head & tail));
        return;
    }
    apply(p[f], head);
    std::memset(p + f + 1, Set ? 0xff : 0x00, l - f - 1);
    apply(p[l], tail);
}

}  // namespace
}  // namespace vorn::bv

#define VORN_BV_ITER_ENTRIES(f, U)                                                           \
    void vorn_##f##set_range_dydi(void *a, ub8 first, ub8 last) {                            \
        vorn::bv::range<true>(a, first, last);                                               \
    }                                                                                        \
    void vorn_##f##clr_range_dydi(void *a, ub8 first, ub8 last) {                            \
        vorn::bv::range<false>(a, first, last);                                              \
    }                                                                                        \
    void vorn_##f##_ictx_ini2_dydi(vorn_bv_iter *it, const void *a, ub8 bits, ub1 complement, \
                                   ub8 start) {                                              \
        vorn::bv::iter_init<U>(it, a, bits, complement, start);                              \
    }                                                                                        \
    ub8 vorn_##f##iter_dydi(vorn_bv_iter *it) { return vorn::bv::iter_next<U, false>(it); }  \
    ub8 vorn_##f##iter_clr_dydi(vorn_bv_iter *it) { return vorn::bv::iter_next<U, true>(it); } \
    ub4 vorn_##f##ones_dydi(vorn_bv_iter *it, ub4 *out, ub4 max) {                           \
        return vorn::bv::iter_ones<U>(it, out, max);                                         \
    }

extern "C" {

VORN_BV_ITER_ENTRIES(lbiv, ub1)
VORN_BV_ITER_ENTRIES(lbiwv, ub8)

// The run entries hold their slots and are not implemented: they answer at
// once with the end value, or with 0 runs.
ub8 vorn_lbivrun_dydi(void *, void *) { return VORN_LBIV_END; }
ub8 vorn_lbiwvrun_dydi(void *, void *) { return VORN_LBIWV_END; }
ub8 vorn_lbivruns_dydi(void *, void *, void *, void *) { return 0; }
ub8 vorn_lbiwvruns_dydi(void *, void *, void *, void *) { return 0; }

// vorn_byte_popc[b] is the number of ones in b.
constinit const std::array<ub1, 256> vorn_byte_popc = [] {
    std::array<ub1, 256> t{};
    for (ub4 b = 0; b < 256; ++b) t[b] = static_cast<ub1>(__builtin_popcount(b));
    return t;
}();

}  // extern "C"
