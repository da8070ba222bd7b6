// Shared pieces of the vector walk tests: a random row selection in the
// three forms the walks take, and a result column of doubles.
#pragma once

#include <random>
#include <vector>

#include "support/distance_model.h"
#include "support/test_host.h"

namespace vorntest::vec {

// A random selection over `n` rows: a bit vector of the given density
// (kind 0), a list of about one row in `list_one_in` (kind 1) or every row
// (kind 2).  The cursor starts at random within the list, or below
// `cursor_below` rows.  `k` starts as `base`.
struct RowSelection {
    std::vector<ub8> bits;
    std::vector<ub4> list;
    vorn_kernel_ctx k;
    RowSelection(std::mt19937_64 &rng, unsigned kind, ub4 n, double density, unsigned list_one_in, ub4 cursor_below,
              const vorn_kernel_ctx &base = {})
        : bits(random_bits(rng, n, density)), k(base) {
        for (ub4 r = 0; r < n; ++r)
            if (rng() % list_one_in == 0) list.push_back(r);
        if (kind == 0) k.bv_aux = bits.data();
        if (kind == 1) k.ones_vec = list.data(), k.ones_vec_size = static_cast<ub4>(list.size());
        k.row_pos = static_cast<ub4>(kind == 1 ? rng() % (list.size() + 1) : rng() % cursor_below);
    }
};

// A result column of `cap` doubles in the native or the C form, over the
// caller's array or (with no array given) its own, `cap + 1` of `fill`.
struct DoubleResult {
    std::vector<double> out;
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    DoubleResult(std::vector<double> &over, ub4 cap) { init(over.data(), cap, false); }
    explicit DoubleResult(std::size_t cap, bool c_form = false, double fill = -12345.0) : out(cap + 1, fill) {
        init(out.data(), static_cast<ub4>(cap), c_form);
    }
    void init(double *data, ub4 cap, bool c_form) {
        enc.flags = c_form ? 0 : VORN_NATIVE_FP;
        vec.enc_ctx = &enc;
        vec.data = data;
        vec.size = cap;
    }
};

// A flexible column: each row a stored value; `fault` breaks some rows.
struct FlexColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<std::vector<ub1>> values, bodies;
    std::vector<unsigned> forms;
    std::vector<const void *> ptrs;
    // faults: some rows broken; dim_faults: some of them by their count,
    // which only one side of a pair may have (two equal wrong counts would
    // make a good pair of bodies shorter or longer than they are).
    FlexColumn(std::mt19937_64 &rng, std::size_t n, unsigned dim, bool faults, bool dim_faults) {
        enc.flags = VORN_VEC_COLUMN | VORN_VEC_FLEX;
        for (std::size_t r = 0; r < n; ++r) {
            const unsigned f = static_cast<unsigned>(rng() % kFormCount);
            std::vector<ub1> body(std::size_t(dim) * bytes_of(f));
            for (unsigned i = 0; i < dim; ++i) put(body, f, i, double(int(rng() % 64) - 32) / 4);
            auto v = stored_value(format_of(f), is_c(f) ? 0x02 : 0x0A, dim, body);
            if (faults) switch (rng() % 12) {
                    case 0: v[0] = 0xDC; break;                  // bad magic
                    case 1: v[1] = 4; break;                     // version above 3
                    case 2: v[3] = 0x01; break;                  // neither 0x02 nor 0x10
                    case 3: if (dim_faults) v[8] ^= 1; break;    // other dimensions
                    case 4: v[4] = 9; break;                     // no type, no kernel
                    default: break;
                }
            values.push_back(v);
            bodies.push_back(body);
            forms.push_back(f);
        }
        for (auto &v : values) ptrs.push_back(v.data());
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(n);
        vec.data = ptrs.data();
    }
    bool good(std::size_t r) const {
        const auto &v = values[r];
        return v[0] == 0xDB && v[1] <= 3 && (v[3] & 0x12) && v[4] != 9;
    }
    ub4 dims(std::size_t r) const { return ub4(values[r][5]) << 24 | ub4(values[r][6]) << 16 | ub4(values[r][7]) << 8 | values[r][8]; }
};

// The model's distance of row b against query a: bit hamming for bit
// vectors, else euclid with the query in form L.
inline double model_for(unsigned elem, unsigned L, const std::vector<ub1> &a, const std::vector<ub1> &b,
                        unsigned dim, unsigned metric) {
    if (elem == UnifColumn::kBits) return hamming_bits_model(a, b, dim);
    return euclid_model(L, elem, a, b, dim, metric);
}

}  // namespace vorntest::vec
