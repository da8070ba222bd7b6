// bv_combine.cpp - the element-wise operations of both bit-vector families
// (and, or, xor, andnot, not, and3, or3, xor3) and popcnt, from one template:
//
//   1. prefix, one unit at a time, until dst stands on a 16-byte boundary;
//   2. whole 128-bit blocks, in a counting and a non-counting version so that
//      nobody pays for a count they did not ask for;
//   3. the tail, one unit at a time;
//   4. the count mended for the bits of the last unit behind the end, which
//      are written as they come and not cleared.
#include "bitvector/bv_unit.h"

namespace vorn::bv {
namespace {

struct OpAnd {
    static constexpr int kSources = 2;
    template <class T> static VORN_INLINE T s(T a, T b, T) { return a & b; }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i) { return _mm_and_si128(a, b); }
};
struct OpOr {
    static constexpr int kSources = 2;
    template <class T> static VORN_INLINE T s(T a, T b, T) { return a | b; }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i) { return _mm_or_si128(a, b); }
};
struct OpXor {
    static constexpr int kSources = 2;
    template <class T> static VORN_INLINE T s(T a, T b, T) { return a ^ b; }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i) { return _mm_xor_si128(a, b); }
};
// The first source is the complemented one: (NOT a) AND b.
struct OpAndNot {
    static constexpr int kSources = 2;
    template <class T> static VORN_INLINE T s(T a, T b, T) { return static_cast<T>(~a & b); }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i) { return _mm_andnot_si128(a, b); }
};
struct OpNot {
    static constexpr int kSources = 1;
    template <class T> static VORN_INLINE T s(T a, T, T) { return static_cast<T>(~a); }
    static VORN_INLINE __m128i v(__m128i a, __m128i, __m128i) {
        return _mm_xor_si128(a, _mm_set1_epi32(-1));
    }
};
struct OpAnd3 {
    static constexpr int kSources = 3;
    template <class T> static VORN_INLINE T s(T a, T b, T c) { return a & b & c; }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i c) {
        return _mm_and_si128(_mm_and_si128(a, b), c);
    }
};
struct OpOr3 {
    static constexpr int kSources = 3;
    template <class T> static VORN_INLINE T s(T a, T b, T c) { return a | b | c; }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i c) {
        return _mm_or_si128(_mm_or_si128(a, b), c);
    }
};
struct OpXor3 {
    static constexpr int kSources = 3;
    template <class T> static VORN_INLINE T s(T a, T b, T c) { return a ^ b ^ c; }
    static VORN_INLINE __m128i v(__m128i a, __m128i b, __m128i c) {
        return _mm_xor_si128(_mm_xor_si128(a, b), c);
    }
};

VORN_INLINE ub8 ones128(__m128i v) {
    return _mm_popcnt_u64(static_cast<ub8>(_mm_cvtsi128_si64(v))) +
           _mm_popcnt_u64(static_cast<ub8>(_mm_extract_epi64(v, 1)));
}

VORN_INLINE __m128i load128(const void *base, ub8 byte_offset) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(static_cast<const ub1 *>(base) + byte_offset));
}

template <class U, class Op>
VORN_INLINE U unit_result(const void *a, const void *b, const void *c, ub8 i) {
    const U va = load<U>(static_cast<const U *>(a) + i);
    const U vb = Op::kSources > 1 ? load<U>(static_cast<const U *>(b) + i) : U(0);
    const U vc = Op::kSources > 2 ? load<U>(static_cast<const U *>(c) + i) : U(0);
    return Op::s(va, vb, vc);
}

// Whole 128-bit blocks from byte offset `from` on; dst is 16-byte aligned there.
template <class Op, bool Counting>
VORN_INLINE ub8 combine_blocks(ub1 *dst, const void *a, const void *b, const void *c, ub8 from,
                               ub8 blocks) {
    ub8 total = 0;
    for (ub8 k = 0, off = from; k < blocks; ++k, off += 16) {
        const __m128i va = load128(a, off);
        const __m128i vb = Op::kSources > 1 ? load128(b, off) : va;
        const __m128i vc = Op::kSources > 2 ? load128(c, off) : va;
        const __m128i r = Op::v(va, vb, vc);
        _mm_store_si128(reinterpret_cast<__m128i *>(dst + off), r);
        if constexpr (Counting) total += ones128(r);
    }
    return total;
}

template <class U, class Op>
void combine(void *dst, ub4 *count, const void *a, const void *b, const void *c, ub8 bits) {
    U *d = static_cast<U *>(dst);
    const ub8 units = units_for_bits<U>(bits);
    const bool counting = count != nullptr;
    ub8 total = 0;
    ub8 i = 0;
    for (; i < units && (reinterpret_cast<uintptr_t>(d + i) & 15) != 0; ++i) {
        const U r = unit_result<U, Op>(a, b, c, i);
        store(d + i, r);
        if (counting) total += Unit<U>::ones(r);
    }
    constexpr ub8 kPerBlock = 16 / sizeof(U);
    const ub8 blocks = (units - i) / kPerBlock;
    ub1 *dbytes = static_cast<ub1 *>(dst);
    if (counting)
        total += combine_blocks<Op, true>(dbytes, a, b, c, i * sizeof(U), blocks);
    else
        combine_blocks<Op, false>(dbytes, a, b, c, i * sizeof(U), blocks);
    for (i += blocks * kPerBlock; i < units; ++i) {
        const U r = unit_result<U, Op>(a, b, c, i);
        store(d + i, r);
        if (counting) total += Unit<U>::ones(r);
    }
    if (counting) {
        if (units) total -= ones_behind_end<U>(load<U>(d + units - 1), bits);
        *count = static_cast<ub4>(total);
    }
}

template <class U>
ub4 popcount(ub4 *count, const void *a, ub8 bits) {
    const U *s = static_cast<const U *>(a);
    const ub8 units = units_for_bits<U>(bits);
    ub8 total = 0;
    ub8 i = 0;
    for (; i < units && (reinterpret_cast<uintptr_t>(s + i) & 15) != 0; ++i)
        total += Unit<U>::ones(load<U>(s + i));
    constexpr ub8 kPerBlock = 16 / sizeof(U);
    const ub8 blocks = (units - i) / kPerBlock;
    for (ub8 k = 0, off = i * sizeof(U); k < blocks; ++k, off += 16)
        total += ones128(_mm_load_si128(reinterpret_cast<const __m128i *>(static_cast<const ub1 *>(a) + off)));
    for (i += blocks * kPerBlock; i < units; ++i) total += Unit<U>::ones(load<U>(s + i));
    if (units) total -= ones_behind_end<U>(load<U>(s + units - 1), bits);
    if (count) *count = static_cast<ub4>(total);
    return static_cast<ub4>(total);
}

}  // namespace
}  // namespace vorn::bv

using vorn::bv::combine;

#define VORN_BV_COMBINE_ENTRIES(f, U)                                                            \
    ub4 vorn_##f##popcnt_dydi(ub4 *count, const void *a, ub8 bits) {                             \
        return vorn::bv::popcount<U>(count, a, bits);                                            \
    }                                                                                            \
    void vorn_##f##not_dydi(void *dst, ub4 *count, const void *a, ub8 bits) {                    \
        combine<U, vorn::bv::OpNot>(dst, count, a, nullptr, nullptr, bits);                      \
    }                                                                                            \
    void vorn_##f##and_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 bits) {     \
        combine<U, vorn::bv::OpAnd>(dst, count, a, b, nullptr, bits);                            \
    }                                                                                            \
    void vorn_##f##or_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 bits) {      \
        combine<U, vorn::bv::OpOr>(dst, count, a, b, nullptr, bits);                             \
    }                                                                                            \
    void vorn_##f##xor_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 bits) {     \
        combine<U, vorn::bv::OpXor>(dst, count, a, b, nullptr, bits);                            \
    }                                                                                            \
    void vorn_##f##andnot_dydi(void *dst, ub4 *count, const void *a, const void *b, ub8 bits) {  \
        combine<U, vorn::bv::OpAndNot>(dst, count, a, b, nullptr, bits);                         \
    }                                                                                            \
    void vorn_##f##and3_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, \
                             ub8 bits) {                                                         \
        combine<U, vorn::bv::OpAnd3>(dst, count, a, b, c, bits);                                 \
    }                                                                                            \
    void vorn_##f##or3_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c,  \
                            ub8 bits) {                                                          \
        combine<U, vorn::bv::OpOr3>(dst, count, a, b, c, bits);                                  \
    }                                                                                            \
    void vorn_##f##xor3_dydi(void *dst, ub4 *count, const void *a, const void *b, const void *c, \
                             ub8 bits) {                                                         \
        combine<U, vorn::bv::OpXor3>(dst, count, a, b, c, bits);                                 \
    }

extern "C" {
VORN_BV_COMBINE_ENTRIES(lbiv, ub1)
VORN_BV_COMBINE_ENTRIES(lbiwv, ub8)
}
