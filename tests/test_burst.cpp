// The burst kernels: run bits to row bits, each of the four kernels against
// a scalar model over random runs at densities that take every path, the
// run lengths at the 56-bit write boundaries, the seven-byte contract behind
// res_bv, the assertions, and the predicate's hand-over through the test
// host's rle_expand.
#include <gtest/gtest.h>

#include "decode/burst.h"
#include "support/byte_equals.h"
#include "support/run_columns.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;

constexpr ub4 burst_index(unsigned len_bits, bool cla) {
    const ub4 wf = (len_bits == 16 ? 14 : 6) + (cla ? 1 : 0);
    return VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(wf, VORN_ENC_SPECIAL), VORN_OP_BURST, 0);
}

std::string kernel_name(unsigned len_bits, bool cla) {
    return std::string("vorn_burst_rle_") + (len_bits == 16 ? "16bit" : "8bit") + (cla ? "_cla" : "");
}

// The model: each selected run's rows set, one by one.
struct Expected {
    std::vector<bool> rows;
    ub8 count = 0;
};

Expected model(const std::vector<ub4> &lengths, const std::vector<ub8> &run_bits) {
    Expected e;
    for (std::size_t r = 0; r < lengths.size(); ++r) {
        const bool on = vornhost::test_bit(run_bits.data(), r);
        e.rows.insert(e.rows.end(), lengths[r], on);
        if (on) e.count += lengths[r];
    }
    return e;
}

// A run bit vector with exactly `ones` ones among `runs` bits, and garbage
// behind the last run, which the kernels must not look at.
std::vector<ub8> run_bits_with(std::mt19937_64 &rng, ub4 runs, ub4 ones) {
    std::vector<ub8> v((runs + 63) / 64 + 2, 0);
    std::vector<ub4> order(runs);
    for (ub4 i = 0; i < runs; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), rng);
    for (ub4 i = 0; i < ones; ++i) vornhost::set_bit(v.data(), order[i]);
    if (runs % 64) v[runs / 64] |= ~0ull << (runs % 64);
    return v;
}

// A column of runs of zero codes with the given lengths, and its cumulative
// lengths (switched on and off by use_cla).
std::unique_ptr<Column> rle_column(const std::vector<ub4> &lengths, unsigned len_bits) {
    auto col = packed_column(std::vector<ub8>(lengths.size(), 0), 8);
    col->make_rle(lengths, len_bits);
    col->add_cla();
    return col;
}
void use_cla(Column &col, bool cla) { col.enc.rle_cla = cla ? col.cla.data() : nullptr; }

struct Call {
    ub8 code;
    ub4 num_ones;
};

Call burst(Column &col, vorn_vec &res, const std::vector<ub8> &run_bits, ub8 ones, unsigned len_bits, bool cla) {
    vorn_kernel_ctx k{};
    k.bv_aux = run_bits.data();
    k.num_ones = ones;
    const ub8 code = kernel(burst_index(len_bits, cla)).decode(&res, &col.vec, &k);
    return {code, res.num_ones};
}

void expect_rows(const Result &res, const Expected &e, const Call &c, const std::string &what) {
    for (std::size_t i = 0; i < e.rows.size(); ++i) ASSERT_EQ(res.bit(i), e.rows[i]) << what << " row " << i;
    EXPECT_TRUE(res.clear_behind(e.rows.size())) << what;
    EXPECT_EQ(c.num_ones, e.count) << what;
    EXPECT_EQ(c.code, e.count == 0 ? 1u : 0u) << what;
    EXPECT_TRUE(res.guard_intact()) << what;
}

// Counts of ones that put a kernel on each side of every threshold.
std::vector<ub4> ones_to_try(ub4 runs) {
    const ub4 sparse_limit = static_cast<ub4>(0.02 * runs), full_limit = static_cast<ub4>(0.98 * runs);
    std::vector<ub4> v = {0, 1, runs * 3 / 10, runs / 2, runs / 2 + 1, runs * 7 / 10, runs};
    if (sparse_limit > 0) v.push_back(sparse_limit - 1), v.push_back(sparse_limit);
    v.push_back(full_limit), v.push_back(full_limit + 1);
    std::vector<ub4> in_range;
    for (ub4 k : v)
        if (k <= runs) in_range.push_back(k);
    return in_range;
}

TEST(Burst, AgreesWithTheModelOnEveryPathAndForm) {
    std::mt19937_64 rng(11);
    TestHost host;
    bool seen[4] = {};
    for (unsigned len_bits : {8u, 16u}) {
        for (ub4 runs : {1u, 3u, 49u, 50u, 63u, 64u, 65u, 100u, 127u, 128u, 129u, 300u, 1001u, 4099u}) {
            for (ub4 ones : ones_to_try(runs)) {
                const auto lengths = random_lengths(rng, runs, len_bits);
                auto col = rle_column(lengths, len_bits);
                const auto run_bits = run_bits_with(rng, runs, ones);
                const Expected e = model(lengths, run_bits);
                seen[static_cast<int>(vorn::burst::choose_path(ones, runs))] = true;
                for (bool cla : {false, true}) {
                    use_cla(*col, cla);
                    Result res(col->vec.size, 0xfeedfacecafebeefull);
                    const Call c = burst(*col, res.vec, run_bits, ones, len_bits, cla);
                    expect_rows(res, e, c,
                                kernel_name(len_bits, cla) + " runs " + std::to_string(runs) + " ones " +
                                    std::to_string(ones));
                }
            }
        }
    }
    for (int p = 0; p < 4; ++p) EXPECT_TRUE(seen[p]) << "path " << p << " not exercised";
}

// One run of each length at every bit offset in a byte: the 56-bit writes
// and their remainders, and the neighbours' bits left alone.
TEST(Burst, LongRunsAtEveryOffset) {
    TestHost host;
    for (unsigned len_bits : {8u, 16u}) {
        for (ub4 len : {1u, 55u, 56u, 57u, 63u, 64u, 111u, 112u, 113u, 168u, 169u, 255u, 1000u, 65535u}) {
            if (len > 255 && len_bits == 8) continue;
            for (ub4 lead = 0; lead < 9; ++lead) {
                for (bool clear : {false, true}) {
                    // lead rows, the run, 3 rows; `clear` selects the other two
                    // runs instead, so that the run is cleared from all ones
                    // on the paths that start full.
                    std::vector<ub4> lengths = {lead, len, 3};
                    auto col = rle_column(lengths, len_bits);
                    std::vector<ub8> bits = {clear ? 0b101ull : 0b010ull, 0};
                    const Expected e = model(lengths, bits);
                    for (bool cla : {false, true}) {
                        use_cla(*col, cla);
                        // A count of 1 takes a walk of the ones, 3 the walk
                        // of the zeros from all ones: the kernels trust
                        // num_ones for the path and the bits for the rows.
                        for (ub8 ones : {ub8{1}, ub8{3}}) {
                            Result res(col->vec.size);
                            const Call c = burst(*col, res.vec, bits, ones, len_bits, cla);
                            expect_rows(res, e, c, kernel_name(len_bits, cla) + " len " + std::to_string(len));
                        }
                    }
                }
            }
        }
    }
}

TEST(Burst, RunsOfLengthZeroSetNothing) {
    TestHost host;
    auto col = rle_column({0, 0, 0}, 8);
    std::vector<ub8> bits = {0b111};
    for (bool cla : {false, true}) {
        use_cla(*col, cla);
        Result res(0);
        const Call c = burst(*col, res.vec, bits, 3, 8, cla);
        EXPECT_EQ(c.code, 1u);
        EXPECT_EQ(c.num_ones, 0u);
        EXPECT_TRUE(res.guard_intact());
    }
}

// res_bv needs seven bytes behind its last word and no more: a buffer of
// exactly that size, under the sanitizer, catches a write past them.
TEST(Burst, TouchesAtMostSevenBytesBehindTheLastWord) {
    std::mt19937_64 rng(13);
    TestHost host;
    for (int trial = 0; trial < 200; ++trial) {
        const ub4 runs = 1 + static_cast<ub4>(rng() % 40);
        auto lengths = random_lengths(rng, runs, 8);
        ub4 rows = 0;
        for (ub4 l : lengths) rows += l;
        lengths.push_back(static_cast<ub4>((64 - rows % 64) % 64));  // end on a word
        lengths.push_back(0);                                        // and a run of 0 there
        auto col = rle_column(lengths, 8);
        const ub4 n = static_cast<ub4>(lengths.size());
        const ub4 ones = static_cast<ub4>(rng() % (n + 1));
        const auto bits = run_bits_with(rng, n, ones);
        const Expected e = model(lengths, bits);
        const ub8 words = (col->vec.size + 63) / 64;
        // new[] gives an 8-byte aligned block that ends 7 bytes behind the
        // last word.
        std::unique_ptr<ub1[]> exact(new ub1[words * 8 + 7]);
        ub8 *bv = reinterpret_cast<ub8 *>(exact.get());
        for (bool cla : {false, true}) {
            use_cla(*col, cla);
            vorn_vec res{};
            res.size = col->vec.size;
            res.res_bv = bv;
            burst(*col, res, bits, ones, 8, cla);
            for (ub4 i = 0; i < e.rows.size(); ++i) ASSERT_EQ(vornhost::test_bit(bv, i), e.rows[i]);
        }
    }
}

TEST(BurstDeathTest, AssertsARunLengthColumnAndTwoVectors) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TestHost host;
    for (unsigned len_bits : {8u, 16u}) {
        for (bool cla : {false, true}) {
            const std::string name = kernel_name(len_bits, cla);
            auto col = rle_column({4}, len_bits);
            std::vector<ub8> run_bits = {1, 0};
            Result res(4);
            vorn_kernel_ctx k{};
            k.bv_aux = run_bits.data();
            k.num_ones = 1;
            const vorn_decode_fn f = kernel(burst_index(len_bits, cla)).decode;
            col->enc.flags &= ~VORN_RLE;
            EXPECT_DEATH(f(&res.vec, &col->vec, &k),
                         "vornc_x86:[0-9]+: " + name +
                             ": Assertion `VORN_ENC_CTX_FLAG\\(VORN_VEC_ENC_CTX\\(src\\), VORN_RLE\\)' failed");
            col->enc.flags |= VORN_RLE;
            k.bv_aux = res.bv.data();
            EXPECT_DEATH(f(&res.vec, &col->vec, &k),
                         "vornc_x86:[0-9]+: " + name + ": Assertion `vorn_bv_res != vorn_bv_aux' failed");
        }
    }
}

// ---- The predicate's hand-over ------------------------------------------------

TEST(Burst, PredicateOnRunsExpandsThroughTheHostsBurst) {
    std::mt19937_64 rng(14);
    TestHost host;
    for (unsigned len_bits : {8u, 16u}) {
        for (bool cla : {false, true}) {
            for (ub4 runs : {1u, 64u, 77u, 2000u}) {
                const auto codes = random_codes(rng, runs, 2);
                const auto lengths = random_lengths(rng, runs, len_bits);
                auto col = packed_column(codes, 8);
                col->make_rle(lengths, len_bits);
                if (cla) col->add_cla();
                const auto rows = rows_of_runs(codes, lengths);
                vorn_kernel_ctx k = host.kctx();
                Result res(col->vec.size);
                const unsigned calls = rle_expand_calls;
                const ub8 code = vorn::compare_frame(&res.vec, &col->vec, ByteEquals{1}, &k);
                EXPECT_EQ(rle_expand_calls, calls + 1);
                ub8 count = 0;
                for (std::size_t i = 0; i < rows.size(); ++i) {
                    ASSERT_EQ(res.bit(i), rows[i] == 1) << "row " << i;
                    count += rows[i] == 1;
                }
                EXPECT_TRUE(res.clear_behind(rows.size()));
                EXPECT_EQ(res.vec.num_ones, count);
                EXPECT_EQ(code, count == 0 ? 1u : 0u);
            }
        }
    }
}

}  // namespace
