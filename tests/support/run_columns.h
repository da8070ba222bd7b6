// run_columns.h - random run-length data for the tests of the kernels that
// read VORN_RLE columns: run lengths with the lengths that matter (0, the
// 56-bit write boundaries, the largest ub1), one code per run, and the codes
// of the rows that the runs stand for.
#pragma once

#include <random>
#include <vector>

#include "support/test_host.h"

namespace vorntest {

// `runs` lengths, for ub1 (len_bits 8) or ub2 (16) storage.  A share of
// them are 0 when zeros is set; for 16 bits some are long.
inline std::vector<ub4> random_lengths(std::mt19937_64 &rng, ub4 runs, unsigned len_bits, bool zeros = true) {
    static const ub4 special[] = {1, 2, 7, 8, 55, 56, 57, 63, 64, 65, 111, 112, 113, 255};
    std::vector<ub4> v(runs);
    for (auto &len : v) {
        const ub4 pick = static_cast<ub4>(rng() % 20);
        if (pick == 0)
            len = zeros ? 0 : 1;
        else if (pick <= 3)
            len = special[rng() % (sizeof special / sizeof special[0])];
        else if (pick == 4 && len_bits == 16)
            len = 256 + static_cast<ub4>(rng() % 3000);
        else if (pick == 5 && len_bits == 16 && rng() % 8 == 0)
            len = rng() % 4 == 0 ? 65535 : 32768 + static_cast<ub4>(rng() % 32768);  // the longest runs
        else
            len = 1 + static_cast<ub4>(rng() % 12);
    }
    return v;
}

// Codes below 2^w, or below `limit` when it is smaller.
inline std::vector<ub8> random_codes(std::mt19937_64 &rng, std::size_t n, unsigned width, ub8 limit = ~0ull) {
    const ub8 top = width >= 64 ? ~0ull : (ub8{1} << width) - 1;
    const ub8 bound = limit - 1 < top ? limit - 1 : top;
    std::vector<ub8> v(n);
    for (auto &c : v) c = bound == ~0ull ? rng() : rng() % (bound + 1);
    return v;
}

// The row codes of runs.
inline std::vector<ub8> rows_of_runs(const std::vector<ub8> &run_codes, const std::vector<ub4> &lengths) {
    std::vector<ub8> rows;
    for (std::size_t r = 0; r < run_codes.size(); ++r) rows.insert(rows.end(), lengths[r], run_codes[r]);
    return rows;
}

// How a test selects rows: none, bv_aux scanned densely, bv_aux with
// VORN_CTX_SELECTIVE, or a ones_vec list.
enum class Sel { none, dense, selective, list };

inline const char *sel_name(Sel s) {
    return s == Sel::none ? "none" : s == Sel::dense ? "bv_aux" : s == Sel::selective ? "selective" : "ones_vec";
}

struct Selection {
    Sel kind = Sel::none;
    std::vector<ub8> aux;
    std::vector<ub4> list;
};

// Rows selected at `density`.  The bits of bv_aux behind the rows are set,
// to show that they are ignored.  With nonempty_list a list holds at least
// one row.
inline Selection make_selection(std::mt19937_64 &rng, Sel kind, ub4 rows, double density,
                                bool nonempty_list = false) {
    Selection s;
    s.kind = kind;
    if (kind == Sel::dense || kind == Sel::selective) {
        s.aux = random_bits(rng, rows, density);
        if (rows % 64) s.aux[rows / 64] |= ~0ull << (rows % 64);
    } else if (kind == Sel::list) {
        std::bernoulli_distribution d(density);
        for (ub4 i = 0; i < rows; ++i)
            if (d(rng)) s.list.push_back(i);
        if (nonempty_list && s.list.empty() && rows) s.list.push_back(static_cast<ub4>(rng() % rows));
    }
    return s;
}

// Puts a selection into a kernel context.  A present but empty list still
// has an address.
inline void apply(vorn_kernel_ctx &k, const Selection &s) {
    static const ub4 no_rows[1] = {0};
    if (s.kind == Sel::dense || s.kind == Sel::selective) k.bv_aux = s.aux.data();
    if (s.kind == Sel::selective) k.flags |= VORN_CTX_SELECTIVE;
    if (s.kind == Sel::list) {
        k.ones_vec = s.list.empty() ? no_rows : s.list.data();
        k.ones_vec_size = static_cast<ub4>(s.list.size());
    }
}

}  // namespace vorntest
