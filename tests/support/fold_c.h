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

// The model's distance of row b against query a: bit hamming for bit
// vectors, else euclid with the query in form L.
inline double model_for(unsigned elem, unsigned L, const std::vector<ub1> &a, const std::vector<ub1> &b,
                        unsigned dim, unsigned metric) {
    if (elem == UnifColumn::kBits) return hamming_bits_model(a, b, dim);
    return euclid_model(L, elem, a, b, dim, metric);
}

}  // namespace vorntest::vec
