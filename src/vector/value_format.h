// value_format.h - the stored vector value: its header, its element types,
// and the two storage forms of an element.
//
// A stored vector is a 9-byte header (magic 0xDB, version, reserved, flags,
// format, big-endian element count), an optional 8-byte field and a body.
// Elements are either native (little-endian IEEE, signed bytes, bits) or in
// the order-preserving form `C`: the big-endian image of a transformed bit
// pattern, so that comparing the bytes follows numeric order.  Every kernel
// of the vector subsystem reads elements through the loads below.
#pragma once

#include <emmintrin.h>

#include <bit>

#include "frame/base.h"

extern "C" {

// Parses the header of a stored value into *header.  Returns 0, or
// VORN_LV_BAD_MAGIC, VORN_LV_BAD_VERSION, VORN_LV_UNUSABLE, tested in that
// order; on a failure *header is untouched.
VORN_INTERNAL sb4 lvector_to_header_basic(const void *value, vorn_lvector_header *header);

// The library's element type of a format byte (1 -> 7, 2 -> 1, 3 -> 2,
// 4 -> 5, 5 -> 6, 6 -> 8), or 0 for any other byte.
VORN_INTERNAL ub4 vorn_dbv_lvtype2vorn(ub4 format);

}  // extern "C"

namespace vorn::vec {

// The square root as the instruction gives it, correctly rounded like
// std::sqrt, without the library call std::sqrt keeps for errno.
VORN_INLINE double exact_sqrt(double x) { return _mm_cvtsd_f64(_mm_sqrt_pd(_mm_set1_pd(x))); }

// A norm or distance root: 0.0 for a sum below 0.0.
VORN_INLINE double guarded_sqrt(double x) { return x < 0.0 ? 0.0 : exact_sqrt(x); }

// ---- The header -------------------------------------------------------------

// Element alignment of a dense native body: the floating formats start on
// 8 bytes (the 2-byte ones too), int8 and bits on 1.
constexpr ub4 body_alignment(ub4 format) {
    return (format == VORN_LV_FLOAT16 || format == VORN_LV_FLOAT || format == VORN_LV_DOUBLE ||
            format == VORN_LV_BFLOAT16)
               ? 8u
               : 1u;
}

// The body offset of a value with this flags byte and format byte.
constexpr ub4 body_offset(ub4 flags, ub4 format) {
    if ((flags & VORN_LV_FIELD_MASK) == 0) return VORN_LV_HEADER_BYTES;
    const ub4 plain = VORN_LV_HEADER_BYTES + 8;
    if ((flags & VORN_LV_NATIVE) != 0 && (flags & VORN_LV_SPARSE) == 0) {
        const ub4 a = body_alignment(format);
        return (plain + a - 1) & ~(a - 1);
    }
    return plain;
}

static_assert(body_offset(0x01, VORN_LV_FLOAT) == 9);
static_assert(body_offset(0x02, VORN_LV_FLOAT) == 17);
static_assert(body_offset(0x0A, VORN_LV_FLOAT16) == 24);
static_assert(body_offset(0x0A, VORN_LV_INT8) == 17);
static_assert(body_offset(0x2A, VORN_LV_DOUBLE) == 17);
static_assert(body_offset(0x12, VORN_LV_DOUBLE) == 17);

// ---- Element types ----------------------------------------------------------

// Base types of the elements of a body.
enum class Base : ub1 { f32, f64, i8, f16, bf16, bits };

// One operand of a distance kernel: its base type, whether its elements are
// in the order-preserving form, and whether the body is sparse.
struct Operand {
    Base base;
    bool c;
    bool sparse;
};

constexpr ub4 element_bytes(Base b) {
    return b == Base::f64 ? 8u : b == Base::f32 ? 4u : (b == Base::f16 || b == Base::bf16) ? 2u : 1u;
}

// The library's type code of a base type.
constexpr ub4 type_code(Base b) {
    switch (b) {
        case Base::f32: return VORN_VTYPE_FLOAT;
        case Base::f64: return VORN_VTYPE_DOUBLE;
        case Base::i8: return VORN_VTYPE_INT8;
        case Base::f16: return VORN_VTYPE_FLOAT16;
        case Base::bf16: return VORN_VTYPE_BFLOAT16;
        case Base::bits: return VORN_VTYPE_BITMSB0;
    }
    return 0;
}

// ---- The order-preserving form ----------------------------------------------
//
// encode: a NaN becomes the NaN image; a negative value is complemented,
// except negative zero, which keeps its pattern and so meets positive zero;
// a positive value gets the sign bit.  Then the bytes are swapped.
// decode: swap, then a set top bit loses it, a clear one complements.
// The functions below take and give the word as it lies in memory (the
// stored image read with a plain load) on one side and the IEEE pattern on
// the other.

template <class U>
struct OrderBits;
template <>
struct OrderBits<ub2> {
    static constexpr ub2 sign = 0x8000;
};
template <>
struct OrderBits<ub4> {
    static constexpr ub4 sign = 0x80000000u;
    static constexpr ub4 nan_bound = 0x7F800000u;
    static constexpr ub4 nan_image = 0xFFC00000u;
};
template <>
struct OrderBits<ub8> {
    static constexpr ub8 sign = 0x8000000000000000ull;
    static constexpr ub8 nan_bound = 0x7FF0000000000000ull;
    static constexpr ub8 nan_image = 0xFFF8000000000000ull;
};

// IEEE pattern -> the word to store.  For 16-bit elements the NaN bound and
// image are those of the element type (float16: 0x7C00 and 0xFE00,
// bfloat16: 0x7F80 and 0xFFC0).
template <class U>
constexpr U order_encode(U v, U nan_bound, U nan_image) {
    constexpr U sign = OrderBits<U>::sign;
    U t;
    if (U(v & U(~sign)) > nan_bound)
        t = nan_image;
    else if (v & sign)
        t = v == sign ? v : U(~v);
    else
        t = U(v + sign);
    if constexpr (sizeof(U) == 2) return __builtin_bswap16(t);
    if constexpr (sizeof(U) == 4) return __builtin_bswap32(t);
    if constexpr (sizeof(U) == 8) return __builtin_bswap64(t);
}
constexpr ub4 order_encode32(ub4 v) {
    return order_encode<ub4>(v, OrderBits<ub4>::nan_bound, OrderBits<ub4>::nan_image);
}
constexpr ub8 order_encode64(ub8 v) {
    return order_encode<ub8>(v, OrderBits<ub8>::nan_bound, OrderBits<ub8>::nan_image);
}
constexpr ub2 order_encode_f16(ub2 v) { return order_encode<ub2>(v, 0x7C00, 0xFE00); }
constexpr ub2 order_encode_bf16(ub2 v) { return order_encode<ub2>(v, 0x7F80, 0xFFC0); }

// The stored word -> IEEE pattern.
template <class U>
constexpr U order_decode(U stored) {
    constexpr U sign = OrderBits<U>::sign;
    U t;
    if constexpr (sizeof(U) == 2) t = __builtin_bswap16(stored);
    if constexpr (sizeof(U) == 4) t = __builtin_bswap32(stored);
    if constexpr (sizeof(U) == 8) t = __builtin_bswap64(stored);
    return (t & sign) ? U(t - sign) : U(~t);
}

static_assert(order_encode32(0x80000000u) == 0x00000080u, "negative zero keeps its pattern");
static_assert(order_encode32(0x00000000u) == 0x00000080u, "positive zero meets it");
static_assert(order_decode<ub4>(order_encode32(0x3F800000u)) == 0x3F800000u);
static_assert(order_decode<ub4>(order_encode32(0xBF800000u)) == 0xBF800000u);
static_assert(order_encode32(0x7F800001u) == 0x0000C0FFu, "a NaN stores as its image");

// ---- Half-width floats --------------------------------------------------------

// float16 -> float.  A subnormal is built as (0.5f with the ten mantissa
// bits in its low bits) - 0.5f, which is mantissa * 2^-24 exactly; the
// all-ones exponent keeps its mantissa and a NaN gets the quiet bit.
VORN_INLINE float f16_to_f32(ub2 h) {
    const ub4 sign = ub4(h & 0x8000u) << 16;
    const ub4 exp = (h >> 10) & 0x1Fu;
    ub4 mant = h & 0x3FFu;
    if (exp == 0) {
        const float mag = std::bit_cast<float>(0x3F000000u | mant) - 0.5f;
        return std::bit_cast<float>(std::bit_cast<ub4>(mag) | sign);
    }
    if (exp == 31) {
        if (mant != 0) mant |= 0x200u;
        return std::bit_cast<float>(sign | 0x7F800000u | (mant << 13));
    }
    return std::bit_cast<float>(sign | ((exp + 112) << 23) | (mant << 13));
}

// bfloat16 -> float: the upper half of the float's pattern.
VORN_INLINE float bf16_to_f32(ub2 b) { return std::bit_cast<float>(ub4(b) << 16); }

// ---- Element loads ------------------------------------------------------------

// Element<B, C>::load(p, i): element i of a body of base B, in the
// order-preserving form when C; float for every base but double.  int8 and
// bits have no order-preserving form: C is ignored for them.
template <Base B, bool C>
struct Element;

template <bool C>
struct Element<Base::f32, C> {
    using value = float;
    static VORN_INLINE float load(const void *p, ub8 i) {
        const ub4 w = vorn::load<ub4>(static_cast<const ub1 *>(p) + 4 * i);
        return std::bit_cast<float>(C ? order_decode<ub4>(w) : w);
    }
};
template <bool C>
struct Element<Base::f64, C> {
    using value = double;
    static VORN_INLINE double load(const void *p, ub8 i) {
        const ub8 w = vorn::load<ub8>(static_cast<const ub1 *>(p) + 8 * i);
        return std::bit_cast<double>(C ? order_decode<ub8>(w) : w);
    }
};
template <bool C>
struct Element<Base::f16, C> {
    using value = float;
    static VORN_INLINE float load(const void *p, ub8 i) {
        const ub2 w = vorn::load<ub2>(static_cast<const ub1 *>(p) + 2 * i);
        return f16_to_f32(C ? order_decode<ub2>(w) : w);
    }
};
template <bool C>
struct Element<Base::bf16, C> {
    using value = float;
    static VORN_INLINE float load(const void *p, ub8 i) {
        const ub2 w = vorn::load<ub2>(static_cast<const ub1 *>(p) + 2 * i);
        return bf16_to_f32(C ? order_decode<ub2>(w) : w);
    }
};
template <bool C>
struct Element<Base::i8, C> {
    using value = float;
    static VORN_INLINE float load(const void *p, ub8 i) {
        return float(static_cast<const sb1 *>(p)[i]);
    }
};

// ---- Sparse bodies ------------------------------------------------------------

// A sparse body: a big-endian ub2 count, that many big-endian ub4 ascending
// positions, and for every type but bits the values at the first 8-byte
// aligned address behind the positions.
struct SparseView {
    ub4 count;
    const ub1 *positions;
    const ub1 *values;
};

VORN_INLINE SparseView sparse_view(const void *body) {
    const auto *p = static_cast<const ub1 *>(body);
    SparseView v;
    v.count = load_be16(p);
    v.positions = p + 2;
    const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(p + 2 + 4 * std::uintptr_t(v.count));
    v.values = p + ((end + 7) & ~std::uintptr_t(7)) - reinterpret_cast<std::uintptr_t>(p);
    return v;
}

VORN_INLINE ub4 sparse_position(const SparseView &v, ub4 k) { return load_be32(v.positions + 4 * k); }

}  // namespace vorn::vec
