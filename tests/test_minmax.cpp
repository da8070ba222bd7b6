// Min/max over codes: every width, both forms, against a scalar model for
// every form of selection on plain, compressed and run-length columns, from
// start rows anywhere in a block; the empty answers and the messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/guarded_stream.h"
#include "support/lomp_column.h"
#include "support/run_columns.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;

constexpr const auto &kWidths = kPackedWidths;

ub4 minmax_index(unsigned w, bool null) { return kernel_index(w, VORN_ENC_DICT, VORN_OP_MINMAX, null); }

std::string kernel_name(unsigned w, bool null) {
    return "vorn_minmax_dict_" + std::to_string(w) + "bit" + (null ? "_null" : "");
}

enum class Layout { plain, rle8, rle16 };

struct Source {
    std::unique_ptr<Column> col;
    std::vector<ub8> rows;
    ub4 num_symbols;
};

// Codes in a random band of the dictionary, with the null code 0 in about a
// third of the values when `nulls` is set.
std::vector<ub8> band_codes(std::mt19937_64 &rng, std::size_t n, ub4 num_symbols, bool nulls) {
    const ub8 a = rng() % num_symbols, b = rng() % num_symbols;
    const ub8 lo = std::min(a, b), hi = std::max(a, b);
    std::vector<ub8> v(n);
    for (auto &c : v) c = nulls && rng() % 3 == 0 ? 0 : lo + rng() % (hi - lo + 1);
    return v;
}

Source make_source(std::mt19937_64 &rng, unsigned w, Layout layout, bool compressed, ub4 approx_rows, bool nulls) {
    Source s;
    const ub8 codes = w == 32 ? 0xffffffffull : ub8{1} << w;
    s.num_symbols = static_cast<ub4>(rng() % 4 == 0 ? codes : 1 + rng() % codes);
    if (layout == Layout::plain) {
        s.rows = band_codes(rng, approx_rows, s.num_symbols, nulls);
        s.col = packed_column(s.rows, w);
    } else {
        const unsigned bits = layout == Layout::rle8 ? 8 : 16;
        const ub4 runs = std::max<ub4>(1, approx_rows / 9);
        const auto lengths = random_lengths(rng, runs, bits);
        const auto run_codes = band_codes(rng, runs, s.num_symbols, nulls);
        s.col = packed_column(run_codes, w);
        s.col->make_rle(lengths, bits);
        s.rows = rows_of_runs(run_codes, lengths);
    }
    s.col->enc.num_symbols = s.num_symbols;
    if (compressed) compress_column(*s.col);  // a real stream, for the library's decoder
    return s;
}


struct Answer {
    bool seen = false;
    ub4 min = 0, max = 0;
    ub4 row_pos = 0;
};

Answer model(const std::vector<ub8> &rows, const Selection &s, ub4 start, bool null) {
    Answer a;
    auto take = [&](ub4 r) {
        const ub4 c = static_cast<ub4>(rows[r]);
        if (null && c == 0) return;
        a.min = a.seen ? std::min(a.min, c) : c;
        a.max = a.seen ? std::max(a.max, c) : c;
        a.seen = true;
    };
    const ub4 size = static_cast<ub4>(rows.size());
    if (s.kind == Sel::list) {
        for (ub4 r : s.list) take(r);
        a.row_pos = s.list.empty() ? 0 : s.list.back() + 1;
        return a;
    }
    for (ub4 r = start; r < size; ++r)
        if (s.kind == Sel::none || vornhost::test_bit(s.aux.data(), r)) take(r);
    a.row_pos = size;
    return a;
}

constexpr ub4 kUntouched = 0xabababab;

// Calls the kernel; `start` is row_pos going in.
Answer run(TestHost &host, Source &src, const Selection &sel, unsigned w, bool null, ub4 start, ub4 mode,
           ub8 *code, ub4 out[2]) {
    vorn_kernel_ctx k = host.kctx();
    apply(k, sel);
    k.row_pos = start;
    out[0] = out[1] = kUntouched;
    vorn_vec res{};
    res.data = out;
    *code = kernel(minmax_index(w, null)).minmax(&res, &src.col->vec, &k, mode);
    Answer a;
    a.seen = *code == 0;
    a.min = out[0];
    a.max = out[1];
    a.row_pos = k.row_pos;
    return a;
}

void expect_answer(const Answer &got, ub8 code, const ub4 out[2], const Answer &want, ub4 start, const std::string &what) {
    EXPECT_EQ(code, want.seen ? 0u : 1u) << what;
    if (want.seen) {
        EXPECT_EQ(got.min, want.min) << what;
        EXPECT_EQ(got.max, want.max) << what;
        EXPECT_EQ(got.row_pos, want.row_pos) << what;
    } else {
        EXPECT_EQ(out[0], kUntouched) << what;
        EXPECT_EQ(out[1], kUntouched) << what;
        EXPECT_EQ(got.row_pos, start) << what;
    }
}

TEST(MinMax, EveryWidthFormSelectionAndStorageAgreesWithTheModel) {
    std::mt19937_64 rng(31);
    TestHost host;
    for (unsigned w : kWidths) {
        for (bool null : {false, true}) {
            for (Layout layout : {Layout::plain, Layout::rle8, Layout::rle16}) {
                for (bool compressed : {false, true}) {
                    for (Sel kind : {Sel::none, Sel::dense, Sel::selective, Sel::list}) {
                        for (ub4 n : {1u, 31u, 32u, 33u, 300u, 3000u}) {
                            Source src = make_source(rng, w, layout, compressed, n, null);
                            const ub4 size = src.col->vec.size;
                            const double density = rng() % 4 == 0 ? 0.02 : 0.7;
                            const Selection sel = make_selection(rng, kind, size, density);
                            const ub4 start = size && rng() % 2 ? static_cast<ub4>(rng() % size) : 0;
                            ub8 code;
                            ub4 out[2];
                            const Answer got = run(host, src, sel, w, null, start, static_cast<ub4>(rng() % 4), &code, out);
                            const Answer want = model(src.rows, sel, start, null);
                            expect_answer(got, code, out, want, start,
                                          kernel_name(w, null) + " layout " + std::to_string(static_cast<int>(layout)) +
                                              (compressed ? " compressed " : " ") + sel_name(kind) + " rows " +
                                              std::to_string(size) + " start " + std::to_string(start));
                        }
                    }
                }
            }
        }
    }
}

// The extremes at every row of a few blocks, so that each lane of each
// group of the vector scan, and the lead-in and tail, hold them once.
TEST(MinMax, ExtremesInEveryLane) {
    TestHost host;
    for (unsigned w : kWidths) {
        const ub4 n = 200;
        const ub4 top = w == 32 ? 0xfffffffeu : static_cast<ub4>((ub8{1} << w) - 1);
        const ub4 mid = top / 2 + (top > 1 ? 1 : 0);
        for (ub4 at = 0; at < n; ++at) {
            for (bool low : {false, true}) {
                if (top < 2) continue;  // width 1: no middle to stand out from
                std::vector<ub8> codes(n, mid);
                codes[at] = low ? 1 : top;
                auto col = packed_column(codes, w);
                col->enc.num_symbols = top + 1;
                Source src{std::move(col), codes, top + 1};
                ub8 code;
                ub4 out[2];
                const Answer got = run(host, src, Selection{}, w, false, 0, 0, &code, out);
                ASSERT_EQ(code, 0u);
                ASSERT_EQ(got.min, low ? 1u : mid) << kernel_name(w, false) << " row " << at;
                ASSERT_EQ(got.max, low ? mid : top) << kernel_name(w, false) << " row " << at;
            }
        }
    }
}

// The stream with exactly the three readable bytes behind it that the
// reference read may touch, and a page of no access behind them.
TEST(MinMax, BlocksReadNothingBehindTheStreamsThreeSpareBytes) {
    std::mt19937_64 rng(34);
    TestHost host;
    for (unsigned w : kWidths) {
        for (ub4 n : {32u, 50u, 64u, 95u, 96u, 160u, 1000u}) {
            for (Sel kind : {Sel::none, Sel::dense}) {
                Source src = make_source(rng, w, Layout::plain, false, n, false);
                const GuardedStream exact(src.col->data, (static_cast<std::size_t>(n) * w + 7) / 8 + 3);
                src.col->vec.data = exact.data();
                const Selection sel = make_selection(rng, kind, n, 0.9);
                ub8 code;
                ub4 out[2];
                const Answer got = run(host, src, sel, w, false, 0, 0, &code, out);
                expect_answer(got, code, out, model(src.rows, sel, 0, false), 0, kernel_name(w, false) + " exact");
            }
        }
    }
}

TEST(MinMax, EmptyAndAllNullGiveOneAndStoreNothing) {
    TestHost host;
    for (unsigned w : {1u, 8u, 17u, 32u}) {
        // An empty column.
        {
            auto col = packed_column({}, w);
            col->enc.num_symbols = 2;
            Source src{std::move(col), {}, 2};
            ub8 code;
            ub4 out[2];
            const Answer got = run(host, src, Selection{}, w, false, 0, 0, &code, out);
            expect_answer(got, code, out, Answer{}, 0, "empty " + std::to_string(w));
        }
        // Only nulls, in the _null form; and an empty selection.
        for (Sel kind : {Sel::none, Sel::dense, Sel::selective, Sel::list}) {
            std::vector<ub8> zeros(500, 0);
            auto col = packed_column(zeros, w);
            col->enc.num_symbols = 2;
            Source src{std::move(col), zeros, 2};
            std::mt19937_64 rng(32);
            const Selection sel = make_selection(rng, kind, 500, 0.5);
            ub8 code;
            ub4 out[2];
            const Answer nulls = run(host, src, sel, w, true, 7, 1, &code, out);
            expect_answer(nulls, code, out, Answer{}, 7, kernel_name(w, true) + " nulls " + sel_name(kind));
            if (kind == Sel::none) continue;
            const Selection none = make_selection(rng, kind, 500, 0.0);
            const Answer nothing = run(host, src, none, w, false, 7, 1, &code, out);
            expect_answer(nothing, code, out, Answer{}, 7,
                          kernel_name(w, false) + " nothing selected " + sel_name(kind));
        }
    }
}

TEST(MinMax, AllTheTopCode) {
    TestHost host;
    for (unsigned w : {3u, 12u, 24u}) {
        const ub4 num_symbols = static_cast<ub4>(1u << (w - 1)) + 3;
        std::vector<ub8> codes(777, num_symbols - 1);
        auto col = packed_column(codes, w);
        col->enc.num_symbols = num_symbols;
        Source src{std::move(col), codes, num_symbols};
        for (bool null : {false, true}) {
            ub8 code;
            ub4 out[2];
            const Answer got = run(host, src, Selection{}, w, null, 0, 2, &code, out);
            EXPECT_EQ(code, 0u);
            EXPECT_EQ(got.min, num_symbols - 1);
            EXPECT_EQ(got.max, num_symbols - 1);
            EXPECT_EQ(got.row_pos, 777u);
        }
    }
}

TEST(MinMax, AnEmptyOnesVecOnRunsIsRaised) {
    TestHost host;
    for (bool null : {false, true}) {
        auto col = packed_column({1, 0}, 1);
        col->make_rle({4, 4}, 8);
        col->enc.num_symbols = 2;
        Source src{std::move(col), {}, 2};
        Selection sel;
        sel.kind = Sel::list;
        clear_raised();
        ub8 code;
        ub4 out[2];
        const Answer got = run(host, src, sel, 1, null, 0, 0, &code, out);
        expect_answer(got, code, out, Answer{}, 0, "empty ones_vec");
        ASSERT_EQ(raised().size(), 1u);
        EXPECT_EQ(raised()[0].message, kernel_name(1, null) + ": [rle] ones_vec size is zero");
    }
}

TEST(MinMax, ACompressedColumnIsDecodedOnceUnderTheKernelsName) {
    std::mt19937_64 rng(33);
    TestHost host;
    Source src = make_source(rng, 7, Layout::plain, true, 400, true);
    for (int round = 0; round < 2; ++round) {
        ub8 code;
        ub4 out[2];
        const Answer got = run(host, src, Selection{}, 7, true, 0, 0, &code, out);
        expect_answer(got, code, out, model(src.rows, Selection{}, 0, true), 0, "compressed");
    }
    ASSERT_EQ(host.allocs.size(), 1u);
    EXPECT_EQ(host.allocs[0].name, "vorn_minmax_dict_7bit_null: vec1_decomp");
    EXPECT_EQ(host.decode_calls, 1u);

    host.decoder = [](const vorn_lomp_ctx *, const ub1 *, ub1 *, ub4 *, ub4) -> ub8 { return 24; };
    Source other = make_source(rng, 24, Layout::rle8, true, 100, false);
    clear_raised();
    ub8 code;
    ub4 out[2];
    run(host, other, Selection{}, 24, false, 0, 0, &code, out);
    ASSERT_EQ(raised().size(), 1u);
    EXPECT_EQ(raised()[0].message, "vorn_minmax_dict_24bit: vorn_lomp_decode failed");
}

}  // namespace
