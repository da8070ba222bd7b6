// distance_model.h - vector columns for the distance and top-K tests, and a
// plain model of the distances they check: euclid (squared and rooted)
// over the float, double and int8 forms with its strictly sequential sum,
// and hamming over bit vectors.
#pragma once

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "support/vector_model.h"

namespace vorntest::vec {

// Squared euclid as the kernels define it: the difference in the pair's
// working precision (double if either side is double, else float), each
// step widened to double and added in element order.
inline double euclid_model(unsigned L, unsigned R, const std::vector<ub1> &a, const std::vector<ub1> &b, unsigned dim,
                           unsigned metric) {
    double s = 0.0;
    const bool dbl = is_dbl(L) || is_dbl(R);
    for (unsigned i = 0; i < dim; ++i) {
        if (dbl) {
            const double d = get(b, R, i) - get(a, L, i);
            s += d * d;
        } else {
            const float d = static_cast<float>(get(b, R, i)) - static_cast<float>(get(a, L, i));
            s += static_cast<double>(d * d);
        }
    }
    if (metric == 1) return s < 0.0 ? 0.0 : std::sqrt(s);
    return s;
}

inline double hamming_bits_model(const std::vector<ub1> &a, const std::vector<ub1> &b, unsigned dim) {
    unsigned n = 0;
    for (unsigned i = 0; i < (dim + 7) / 8; ++i) n += __builtin_popcount(a[i] ^ b[i]);
    return n;
}

// A uniform column: rows of bodies behind an array of row pointers.
struct UnifColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<std::vector<ub1>> rows;
    std::vector<const void *> ptrs;
    // elem: a form of vector_model.h, or kBits for bit vectors.
    static constexpr unsigned kBits = 99;
    UnifColumn(unsigned elem, unsigned dim, std::size_t n, std::mt19937_64 &rng, bool column = true) {
        enc.elem_type = elem == kBits ? 6 : type_of(elem);
        enc.flags = ((elem == kBits || !is_c(elem)) ? VORN_NATIVE_FP : 0u) | (column ? VORN_VEC_COLUMN : 0u);
        enc.vec_dim = dim;
        rows.resize(n);
        ptrs.resize(n);
        for (std::size_t r = 0; r < n; ++r) {
            if (elem == kBits) {
                rows[r].resize((dim + 7) / 8);
                for (auto &x : rows[r]) x = static_cast<ub1>(rng());
            } else {
                rows[r].resize(std::size_t(dim) * bytes_of(elem));
                for (unsigned i = 0; i < dim; ++i)
                    put(rows[r], elem, i, elem == kInt8 ? random_value(rng, elem) : double(int(rng() % 200) - 100) / 8);
            }
            ptrs[r] = rows[r].data();
        }
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(n);
        vec.data = column ? static_cast<void *>(ptrs.data()) : const_cast<ub1 *>(rows[0].data());
    }
};

// A stored value with its header: format byte, flags byte (0x02 for the
// C form, 0x0A for native), the big-endian count, the 8-byte field, and the
// body at its offset (17, or 24 for native floating formats).
inline std::vector<ub1> stored_value(ub1 format, ub1 flags, ub4 dims, const std::vector<ub1> &body) {
    const bool aligned = (flags & 0x08) && !(flags & 0x20) && format != 4 && format != 5;
    const std::size_t off = aligned ? 24 : 17;
    std::vector<ub1> v(off, 0);
    v[0] = 0xDB;
    v[1] = 1;
    v[3] = flags;
    v[4] = format;
    v[5] = static_cast<ub1>(dims >> 24);
    v[6] = static_cast<ub1>(dims >> 16);
    v[7] = static_cast<ub1>(dims >> 8);
    v[8] = static_cast<ub1>(dims);
    v.insert(v.end(), body.begin(), body.end());
    return v;
}

inline ub1 format_of(unsigned f) { return is_dbl(f) ? 3 : is_flt(f) ? 2 : 4; }

}  // namespace vorntest::vec
