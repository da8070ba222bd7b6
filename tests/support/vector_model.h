// vector_model.h - plain models of the vector elements that the tests of
// arithmetic, conversion, distances and top-K compare against: the five
// element forms, the order-preserving codec, and random element values
// that reach the edges (zeros, huge values, the int8 limits).
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

// The order-preserving image, written from its definition: NaN to the NaN
// image, negative values complemented (but -0 kept), positive ones with the
// sign bit added; the result stored big-endian.
inline ub4 c_enc32(float x) {
    ub4 v = std::bit_cast<ub4>(x), t;
    if ((v & 0x7fffffffu) > 0x7f800000u) t = 0xffc00000u;
    else if (v == 0x80000000u) t = v;
    else if (v & 0x80000000u) t = ~v;
    else t = v + 0x80000000u;
    return __builtin_bswap32(t);
}
inline ub8 c_enc64(double x) {
    ub8 v = std::bit_cast<ub8>(x), t;
    if ((v & 0x7fffffffffffffffull) > 0x7ff0000000000000ull) t = 0xfff8000000000000ull;
    else if (v == 0x8000000000000000ull) t = v;
    else if (v & 0x8000000000000000ull) t = ~v;
    else t = v + 0x8000000000000000ull;
    return __builtin_bswap64(t);
}
inline float c_dec32(ub4 s) {
    ub4 t = __builtin_bswap32(s);
    return std::bit_cast<float>((t & 0x80000000u) ? t - 0x80000000u : ~t);
}
inline double c_dec64(ub8 s) {
    ub8 t = __builtin_bswap64(s);
    return std::bit_cast<double>((t & 0x8000000000000000ull) ? t - 0x8000000000000000ull : ~t);
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
