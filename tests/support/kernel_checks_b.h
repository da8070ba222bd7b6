// kernel_checks_b.h - checks and columns that the tests of the decode,
// min/max, compare and translation kernels share: the one message a kernel
// raised, a compressed column decompressed once under the kernel's name, a
// decoder that fails, and code columns stored plain or as runs.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/lomp_column.h"
#include "support/run_columns.h"
#include "support/test_host.h"

namespace vorntest {

// The library raised exactly `message` since the last clear_raised(), under
// the test host's error context.
inline void expect_one_raise(const std::string &message) {
    ASSERT_EQ(raised().size(), 1u);
    EXPECT_EQ(raised()[0].message, message);
    EXPECT_EQ(raised()[0].error_context, TestHost::kErrorContext);
}

// The host decompressed one column once, into one buffer named for `kernel`.
inline void expect_decoded_once(const TestHost &host, const std::string &kernel) {
    ASSERT_EQ(host.allocs.size(), 1u);
    EXPECT_EQ(host.allocs[0].name, kernel + ": vec1_decomp");
    EXPECT_EQ(host.decode_calls, 1u);
}

// A decoder that refuses every stream, as a corrupt one is refused.
inline ub8 failing_decode(const vorn_lomp_ctx *, const ub1 *, ub1 *, ub4 *, ub4) { return 24; }

// How a code column is stored: packed, or as runs with ub1 or ub2 lengths.
enum class Storage { plain, rle8, rle16 };
inline constexpr Storage kStorages[] = {Storage::plain, Storage::rle8, Storage::rle16};

struct CodeSource {
    std::unique_ptr<Column> col;
    std::vector<ub8> rows;  // the code of every row
};

// About `approx_rows` rows of width-w codes from `codes(n)`, stored as
// `storage` (one code a run, runs of random lengths), and really
// compressed when asked.
template <class Codes>
CodeSource code_source(std::mt19937_64 &rng, unsigned w, Storage storage, bool compressed, ub4 approx_rows,
                       Codes codes, bool zero_runs = true) {
    CodeSource s;
    if (storage == Storage::plain) {
        s.rows = codes(approx_rows);
        s.col = packed_column(s.rows, w);
    } else {
        const unsigned bits = storage == Storage::rle8 ? 8 : 16;
        const auto lengths = random_lengths(rng, std::max<ub4>(1, approx_rows / 9), bits, zero_runs);
        const auto run_codes = codes(lengths.size());
        s.col = packed_column(run_codes, w);
        s.col->make_rle(lengths, bits);
        s.rows = rows_of_runs(run_codes, lengths);
    }
    if (compressed) compress_column(*s.col);
    return s;
}

}  // namespace vorntest
