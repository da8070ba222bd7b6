// vector_model.h - plain models of the vector elements that the tests of
// arithmetic, conversion, distances and top-K compare against: the five
// element forms, the order-preserving codec at every width, float16, and
// random element values that reach the edges (zeros, huge values, the int8
// limits).
#pragma once

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "vorn.h"

namespace vorntest::vec {

// Forms in the library's order: float, Cfloat, double, Cdouble, int8.
enum Form : unsigned { kFloat, kCFloat, kDouble, kCDouble, kInt8 };
inline constexpr unsigned kFormCount = 5;
inline const char *form_name(unsigned f) {
    static const char *n[] = {"float", "Cfloat", "double", "Cdouble", "int8"};
    return n[f];
}
inline bool is_dbl(unsigned f) { return f == kDouble || f == kCDouble; }
inline bool is_flt(unsigned f) { return f == kFloat || f == kCFloat; }
inline bool is_c(unsigned f) { return f == kCFloat || f == kCDouble; }
inline unsigned bytes_of(unsigned f) { return is_dbl(f) ? 8 : is_flt(f) ? 4 : 1; }
inline ub1 type_of(unsigned f) { return is_dbl(f) ? 2 : is_flt(f) ? 1 : 5; }

// The order-preserving image of a bits-wide pattern v (16, 32 or 64 bits),
// written from its definition: a NaN (magnitude above `inf`, the pattern
// of infinity) to the NaN image (sign, exponent and quiet bit set),
// negative values complemented (but -0 kept), positive ones with the sign
// bit added.  The result is the value before its big-endian store.
inline ub8 order_encode_model(ub8 v, int bits, ub8 inf, int mantissa_bits) {
    const ub8 top = ub8(1) << (bits - 1);
    const ub8 mask = bits == 64 ? ~ub8(0) : (ub8(1) << bits) - 1;
    if ((v & ~top & mask) > inf) return (~ub8(0) << (mantissa_bits - 1)) & mask;
    if (v & top) return v == top ? v : (~v & mask);
    return (v + top) & mask;
}
// The inverse, from the value read big-endian: a set top bit is dropped,
// a clear one complements the pattern.
inline ub8 order_decode_model(ub8 stored, int bits) {
    const ub8 top = ub8(1) << (bits - 1);
    const ub8 mask = bits == 64 ? ~ub8(0) : (ub8(1) << bits) - 1;
    return (stored & top) ? (stored - top) : (~stored & mask);
}

inline ub4 c_enc32(float x) {
    return __builtin_bswap32(ub4(order_encode_model(std::bit_cast<ub4>(x), 32, 0x7f800000u, 23)));
}
inline ub8 c_enc64(double x) {
    return __builtin_bswap64(order_encode_model(std::bit_cast<ub8>(x), 64, 0x7ff0000000000000ull, 52));
}
inline float c_dec32(ub4 s) { return std::bit_cast<float>(ub4(order_decode_model(__builtin_bswap32(s), 32))); }
inline double c_dec64(ub8 s) { return std::bit_cast<double>(order_decode_model(__builtin_bswap64(s), 64)); }

// float16 to float from the definition of the format: subnormals by
// ldexp, infinities and NaNs with the mantissa moved up and a NaN made
// quiet, the sign bit set apart.
inline float model_f16(ub2 h) {
    const int e = (h >> 10) & 31;
    const int m = h & 0x3FF;
    float v;
    if (e == 0) {
        v = float(std::ldexp(double(m), -24));
    } else if (e == 31) {
        ub4 bits = 0x7F800000u | (ub4(m) << 13);
        if (m) bits |= 0x00400000u;
        v = std::bit_cast<float>(bits);
    } else {
        v = float(std::ldexp(double(1024 + m), e - 25));
    }
    return (h & 0x8000) ? std::bit_cast<float>(std::bit_cast<ub4>(v) | 0x80000000u) : v;
}

// Element i of a byte array in form f, as a double (exact for every form).
inline double get(const std::vector<ub1> &a, unsigned f, std::size_t i) {
    const ub1 *p = a.data() + i * bytes_of(f);
    switch (f) {
        case kFloat: { float v; std::memcpy(&v, p, 4); return v; }
        case kCFloat: { ub4 v; std::memcpy(&v, p, 4); return c_dec32(v); }
        case kDouble: { double v; std::memcpy(&v, p, 8); return v; }
        case kCDouble: { ub8 v; std::memcpy(&v, p, 8); return c_dec64(v); }
        default: return static_cast<sb1>(*p);
    }
}
// Writes element i: float forms narrow v to float first.
inline void put(std::vector<ub1> &a, unsigned f, std::size_t i, double v) {
    ub1 *p = a.data() + i * bytes_of(f);
    switch (f) {
        case kFloat: { float x = static_cast<float>(v); std::memcpy(p, &x, 4); break; }
        case kCFloat: { ub4 x = c_enc32(static_cast<float>(v)); std::memcpy(p, &x, 4); break; }
        case kDouble: std::memcpy(p, &v, 8); break;
        case kCDouble: { ub8 x = c_enc64(v); std::memcpy(p, &x, 8); break; }
        default: *p = static_cast<ub1>(static_cast<sb1>(static_cast<int>(v)));
    }
}

// A random element for form f: mostly small numbers with fractions, and
// now and then a zero, a huge value near the type's top, or an int8 limit.
inline double random_value(std::mt19937_64 &rng, unsigned f) {
    const unsigned pick = rng() % 32;
    if (f == kInt8) {
        if (pick == 0) return 127;
        if (pick == 1) return -128;
        if (pick < 6) return 0;
        return static_cast<double>(static_cast<int>(rng() % 256) - 128);
    }
    if (pick == 0) return 0.0;
    if (pick == 1) return (rng() & 1 ? -1 : 1) * (is_dbl(f) ? 1.5e308 : 3.0e38);
    const double mag = std::ldexp(static_cast<double>(rng() % 100000) / 1000.0, static_cast<int>(rng() % 9) - 4);
    return (rng() & 1) ? -mag : mag;
}

inline std::vector<ub1> random_elems(std::mt19937_64 &rng, unsigned f, std::size_t n) {
    std::vector<ub1> a(n * bytes_of(f));
    for (std::size_t i = 0; i < n; ++i) put(a, f, i, random_value(rng, f));
    return a;
}

inline bool exp_ones(double v, bool as_float) {
    if (as_float) return (std::bit_cast<ub4>(static_cast<float>(v)) & 0x7f800000u) == 0x7f800000u;
    return (std::bit_cast<ub8>(v) & 0x7ff0000000000000ull) == 0x7ff0000000000000ull;
}

inline bool same_bits(double a, double b) { return std::bit_cast<ub8>(a) == std::bit_cast<ub8>(b); }

// The rows a vector driver walks, from the context's selection and cursor,
// at most `cap` of them: the set bits of bv_aux from bit row_pos, else the
// entries of ones_vec from index row_pos, else the rows from row_pos.
inline std::vector<ub4> walked_rows(const vorn_kernel_ctx &k, ub4 rows, ub8 cap) {
    std::vector<ub4> out;
    if (k.bv_aux) {
        for (ub4 r = k.row_pos; r < rows && out.size() < cap; ++r)
            if ((k.bv_aux[r / 64] >> (r % 64)) & 1) out.push_back(r);
    } else if (k.ones_vec) {
        for (ub4 i = k.row_pos; i < k.ones_vec_size && out.size() < cap; ++i) out.push_back(k.ones_vec[i]);
    } else {
        for (ub4 r = k.row_pos; r < rows && out.size() < cap; ++r) out.push_back(r);
    }
    return out;
}

// The cursor after a walk of `rows`: behind the last row taken from a bit
// vector (unchanged when none was), else advanced by the rows done.
inline ub4 cursor_after(const vorn_kernel_ctx &before, const std::vector<ub4> &rows) {
    if (before.bv_aux) return rows.empty() ? before.row_pos : rows.back() + 1;
    return before.row_pos + static_cast<ub4>(rows.size());
}

}  // namespace vorntest::vec
