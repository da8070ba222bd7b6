// Min/max over codes: every width, both forms, against a scalar model for
// every form of selection on plain, compressed and run-length columns, from
// start rows anywhere in a block; the empty answers and the messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "support/guarded_stream.h"
#include "support/kernel_checks_b.h"

namespace {

using namespace vorntest;

constexpr const auto &kWidths = kPackedWidths;

ub4 minmax_index(unsigned w, bool null) { return kernel_index(w, VORN_ENC_DICT, VORN_OP_MINMAX, null); }

std::string kernel_name(unsigned w, bool null) {
    return "vorn_minmax_dict_" + std::to_string(w) + "bit" + (null ? "_null" : "");
}

// Codes in a random band of the dictionary, with the null code 0 in about a
// third of the values when `nulls` is set.
std::vector<ub8> band_codes(std::mt19937_64 &rng, std::size_t n, ub4 num_symbols, bool nulls) {
    const ub8 a = rng() % num_symbols, b = rng() % num_symbols;
    const ub8 lo = std::min(a, b), hi = std::max(a, b);
    std::vector<ub8> v(n);
    for (auto &c : v) c = nulls && rng() % 3 == 0 ? 0 : lo + rng() % (hi - lo + 1);
    return v;
}

using Source = CodeSource;

Source make_source(std::mt19937_64 &rng, unsigned w, Storage storage, bool compressed, ub4 approx_rows, bool nulls) {
    const ub8 codes = w == 32 ? 0xffffffffull : ub8{1} << w;
    const ub4 num_symbols = static_cast<ub4>(rng() % 4 == 0 ? codes : 1 + rng() % codes);
    Source s = code_source(rng, w, storage, compressed, approx_rows,
                           [&](std::size_t n) { return band_codes(rng, n, num_symbols, nulls); });
    s.col->enc.num_symbols = num_symbols;
    return s;
}

// A plain column of `codes` with a dictionary of `num_symbols`.
Source plain_source(const std::vector<ub8> &codes, unsigned w, ub4 num_symbols) {
    Source s{packed_column(codes, w), codes};
    s.col->enc.num_symbols = num_symbols;
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

// What a call gave: the code, the result pair (min, max) and row_pos.
struct Got {
    ub8 code;
    ub4 min, max, row_pos;
};

// Calls the kernel; `start` is row_pos going in.
Got run(TestHost &host, Source &src, const Selection &sel, unsigned w, bool null, ub4 start, ub4 mode) {
    vorn_kernel_ctx k = host.kctx();
    apply(k, sel);
    k.row_pos = start;
    ub4 out[2] = {kUntouched, kUntouched};
    vorn_vec res{};
    res.data = out;
    const ub8 code = kernel(minmax_index(w, null)).minmax(&res, &src.col->vec, &k, mode);
    return {code, out[0], out[1], k.row_pos};
}

// Nothing seen: code 1, the pair untouched and row_pos where it was.
void expect_answer(const Got &got, const Answer &want, ub4 start, const std::string &what) {
    EXPECT_EQ(got.code, want.seen ? 0u : 1u) << what;
    EXPECT_EQ(got.min, want.seen ? want.min : kUntouched) << what;
    EXPECT_EQ(got.max, want.seen ? want.max : kUntouched) << what;
    EXPECT_EQ(got.row_pos, want.seen ? want.row_pos : start) << what;
}

TEST(MinMax, EveryWidthFormSelectionAndStorageAgreesWithTheModel) {
    std::mt19937_64 rng(31);
    TestHost host;
    for (unsigned w : kWidths) {
        for (bool null : {false, true}) {
            for (Storage layout : kStorages) {
                for (bool compressed : {false, true}) {
                    for (Sel kind : {Sel::none, Sel::dense, Sel::selective, Sel::list}) {
                        for (ub4 n : {1u, 31u, 32u, 33u, 300u, 3000u}) {
                            Source src = make_source(rng, w, layout, compressed, n, null);
                            const ub4 size = src.col->vec.size;
                            const double density = rng() % 4 == 0 ? 0.02 : 0.7;
                            const Selection sel = make_selection(rng, kind, size, density);
                            const ub4 start = size && rng() % 2 ? static_cast<ub4>(rng() % size) : 0;
                            const Got got = run(host, src, sel, w, null, start, static_cast<ub4>(rng() % 4));
                            expect_answer(got, model(src.rows, sel, start, null), start,
                                          kernel_name(w, null) + " layout " + std::to_string(int(layout)) +
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
                Source src = plain_source(codes, w, top + 1);
                const Got got = run(host, src, Selection{}, w, false, 0, 0);
                ASSERT_EQ(got.code, 0u);
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
                Source src = make_source(rng, w, Storage::plain, false, n, false);
                const GuardedStream exact(src.col->data, (static_cast<std::size_t>(n) * w + 7) / 8 + 3);
                src.col->vec.data = exact.data();
                const Selection sel = make_selection(rng, kind, n, 0.9);
                const Got got = run(host, src, sel, w, false, 0, 0);
                expect_answer(got, model(src.rows, sel, 0, false), 0, kernel_name(w, false) + " exact");
            }
        }
    }
}

TEST(MinMax, EmptyAndAllNullGiveOneAndStoreNothing) {
    TestHost host;
    for (unsigned w : {1u, 8u, 17u, 32u}) {
        Source empty = plain_source({}, w, 2);
        expect_answer(run(host, empty, Selection{}, w, false, 0, 0), Answer{}, 0, "empty " + std::to_string(w));
        // Only nulls, in the _null form; and an empty selection.
        for (Sel kind : {Sel::none, Sel::dense, Sel::selective, Sel::list}) {
            Source src = plain_source(std::vector<ub8>(500, 0), w, 2);
            std::mt19937_64 rng(32);
            const Selection sel = make_selection(rng, kind, 500, 0.5);
            const std::string form = sel_name(kind);
            expect_answer(run(host, src, sel, w, true, 7, 1), Answer{}, 7, kernel_name(w, true) + " nulls " + form);
            if (kind == Sel::none) continue;
            const Selection none = make_selection(rng, kind, 500, 0.0);
            expect_answer(run(host, src, none, w, false, 7, 1), Answer{}, 7, kernel_name(w, false) + " none " + form);
        }
    }
}

TEST(MinMax, AllTheTopCode) {
    TestHost host;
    for (unsigned w : {3u, 12u, 24u}) {
        const ub4 num_symbols = static_cast<ub4>(1u << (w - 1)) + 3;
        Source src = plain_source(std::vector<ub8>(777, num_symbols - 1), w, num_symbols);
        for (bool null : {false, true}) {
            const Got got = run(host, src, Selection{}, w, null, 0, 2);
            EXPECT_EQ(got.code, 0u);
            EXPECT_EQ(got.min, num_symbols - 1);
            EXPECT_EQ(got.max, num_symbols - 1);
            EXPECT_EQ(got.row_pos, 777u);
        }
    }
}

TEST(MinMax, AnEmptyOnesVecOnRunsIsRaised) {
    TestHost host;
    for (bool null : {false, true}) {
        Source src = plain_source({1, 0}, 1, 2);
        src.col->make_rle({4, 4}, 8);
        Selection sel;
        sel.kind = Sel::list;
        clear_raised();
        const Got got = run(host, src, sel, 1, null, 0, 0);
        expect_answer(got, Answer{}, 0, "empty ones_vec");
        expect_one_raise(kernel_name(1, null) + ": [rle] ones_vec size is zero");
    }
}

TEST(MinMax, ACompressedColumnIsDecodedOnceUnderTheKernelsName) {
    std::mt19937_64 rng(33);
    TestHost host;
    Source src = make_source(rng, 7, Storage::plain, true, 400, true);
    for (int round = 0; round < 2; ++round) {
        const Got got = run(host, src, Selection{}, 7, true, 0, 0);
        expect_answer(got, model(src.rows, Selection{}, 0, true), 0, "compressed");
    }
    expect_decoded_once(host, kernel_name(7, true));

    host.decoder = failing_decode;
    Source other = make_source(rng, 24, Storage::rle8, true, 100, false);
    clear_raised();
    run(host, other, Selection{}, 24, false, 0, 0);
    expect_one_raise("vorn_minmax_dict_24bit: vorn_lomp_decode failed");
}

}  // namespace
