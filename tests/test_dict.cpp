// The packed dictionary compares vorn_<c>_dict_<w>bit and their _null forms,
// over every dictionary width whose kernels the table holds, against the
// test's own model of each row: the lane tables, all ten forms on random
// columns of every length around the block boundaries, literals at and
// beyond the ends of the code range, the filter and selection ANDs, the
// selective path, compressed and run-length columns, the bytes a kernel may
// read, and the particular answers of width 1.
#include <gtest/gtest.h>

#include <algorithm>

#include "predicate/dict_tables.h"
#include "support/dict_model.h"
#include "support/guarded_stream.h"

namespace {

using namespace vorntest;
using namespace vorntest::dict;

const unsigned kWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};

// Row counts around the blocks of every lane size (32, 64 and 128 rows).
const ub4 kRowCounts[] = {0,   1,   2,   7,   31,  32,  33,  63,  64,  65,  96,  127, 128,
                          129, 191, 192, 255, 256, 257, 383, 384, 385, 645, 1000, 2065};

// A draw of codes that lands on the literals of interest often enough for
// every form to see rows on both sides of its bounds.
struct CodePool {
    unsigned w;
    ub8 top, r1, r2;
    CodePool(unsigned width, std::mt19937_64 &rng) : w(width), top(top_code(width)) {
        r1 = rng() & top;
        r2 = rng() & top;
        if (r1 > r2) std::swap(r1, r2);
    }
    ub8 draw(std::mt19937_64 &rng) const {
        const ub8 near[] = {0, 1, 2, top, top - 1, r1, r1 + 1, r1 - 1, r2, r2 + 1, r2 - 1};
        if (rng() % 3 == 0) return rng() & top;
        return near[rng() % std::size(near)] & top;
    }
    std::vector<ub8> codes(std::mt19937_64 &rng, std::size_t n) const {
        std::vector<ub8> v(n);
        for (auto &c : v) c = draw(rng);
        return v;
    }
    // Literals: the ends of the range, the pool's codes, and for the widths
    // whose literal is a ub4, codes above the width.
    std::vector<ub8> literals() const {
        std::vector<ub8> v = {0, 1, top, top - 1, r1, r2};
        if (w < 32 && w != 8 && w != 16) v.insert(v.end(), {top + 1, 0xffffffffull});
        return v;
    }
};

struct Outcome {
    ub8 code;
    ub1 done_flags;
};

// Runs one call and checks everything a caller can see: bits, the count,
// the code, the cleared bits behind n, the guard words.
void expect_matches(const Result &res, const Expected &e, ub8 code, const std::string &what) {
    ASSERT_EQ(e.bits.size(), res.rows) << what;
    for (std::size_t i = 0; i < e.bits.size(); ++i) ASSERT_EQ(res.bit(i), e.bits[i]) << what << " row " << i;
    EXPECT_TRUE(res.clear_behind(res.rows)) << what;
    EXPECT_EQ(res.vec.num_ones, e.count) << what;
    EXPECT_EQ(code, e.count == 0 ? 1u : 0u) << what;
    EXPECT_TRUE(res.guard_intact()) << what;
}

std::string describe(unsigned w, unsigned op, bool null, ub4 n, ub8 a, ub8 b) {
    return "vorn_" + std::string(compare_name(op)) + "_dict_" + std::to_string(w) + "bit" + (null ? "_null" : "") +
           " n=" + std::to_string(n) + " a=" + std::to_string(a) + (is_range_op(op) ? " b=" + std::to_string(b) : "");
}

// ---- The lane tables --------------------------------------------------------

TEST(DictTables, LaneSizesFollowTheWidths) {
    for (ub4 w : {1u, 2u, 4u, 8u}) EXPECT_EQ(vorn::dict_lane_bits(w), 8u) << w;
    for (ub4 w : {3u, 5u, 6u, 7u, 9u, 10u, 12u}) EXPECT_EQ(vorn::dict_lane_bits(w), 16u) << w;
    for (ub4 w : {11u, 13u, 14u, 15u, 16u, 17u, 18u, 19u, 20u, 24u}) EXPECT_EQ(vorn::dict_lane_bits(w), 32u) << w;
    // 16-bit lanes: the row is 16 little-endian ub2, so byte 1 is the high byte of lane 0.
    EXPECT_EQ(vorn::vorn_and_masks[4][0], 0xf8);
    EXPECT_EQ(vorn::vorn_and_masks[4][2], 0xc0);
    EXPECT_EQ(vorn::vorn_and_masks[4][3], 0x07);
}

// Every shuffle, shift and mask of every width recovers every code of a group
// from its bytes: the rule's own check, by a byte-level simulation.
TEST(DictTables, LanesRecoverEveryCodeOfAGroup) {
    std::mt19937_64 rng(5);
    for (ub4 w = 1; w <= 24; ++w) {
        const ub4 lane_bytes = vorn::dict_lane_bits(w) / 8, per_vector = 16 / lane_bytes;
        std::vector<ub8> codes(2 * per_vector);
        for (auto &c : codes) c = rng() & top_code(w);
        const Bytes packed = vornhost::pack_codes(codes, w);
        for (ub4 j = 0; j < codes.size(); ++j) {
            const ub4 load_at = (j / per_vector) * per_vector * w / 8;
            ub8 lane = 0;
            for (ub4 k = 0; k < lane_bytes; ++k) {
                const ub1 sel = vorn::vorn_shuffle_masks[w - 1][j * lane_bytes + k];
                if (!(sel & 0x80)) lane |= ub8{packed.data()[load_at + sel]} << (8 * k);
            }
            const ub8 mask = vorn::dict_lane(vorn::vorn_and_masks, w, j);
            const ub4 s = vorn::dict_lane(vorn::vorn_shift_masks, w, j);
            EXPECT_EQ((lane & mask) >> s, codes[j]) << "width " << w << " code " << j;
            EXPECT_EQ(mask >> s, top_code(w)) << "width " << w << " code " << j;
        }
    }
}

// ---- All forms, all widths ----------------------------------------------------

// The full path with no filter: every form and variant, every literal of
// the pool, every row count.
TEST(DictCompare, AllFormsAgreeWithTheModel) {
    std::mt19937_64 rng(11);
    unsigned widths_run = 0;
    for (unsigned w : kWidths) {
        if (!served(w)) continue;
        ++widths_run;
        for (ub4 n : kRowCounts) {
            const CodePool pool(w, rng);
            const auto codes = pool.codes(rng, n);
            auto col = packed_column(codes, w);
            const auto lits = pool.literals();
            for (unsigned op = 0; op < 10; ++op) {
                for (bool null : {false, true}) {
                    std::vector<std::pair<ub8, ub8>> pairs;
                    if (!is_range_op(op)) {
                        for (ub8 a : lits) pairs.push_back({a, 0});
                    } else {
                        for (int k = 0; k < 10; ++k) pairs.push_back({lits[rng() % lits.size()], lits[rng() % lits.size()]});
                        pairs.push_back({pool.r1, pool.r1});
                        pairs.push_back({0, pool.top});
                    }
                    for (auto [a, b] : pairs) {
                        Result res(n);
                        const ub8 code = call_dict(w, op, null, &res.vec, &col->vec, a, b, nullptr);
                        expect_matches(res, model(w, codes, op, null, a, b), code, describe(w, op, null, n, a, b));
                        if (HasFatalFailure()) return;
                    }
                }
            }
        }
    }
    EXPECT_GE(widths_run, 19u);
}

// ---- The frame around the compare ---------------------------------------------

enum Mode : unsigned { kFilter = 1, kAux = 2, kSelective = 4, kCompressed = 8, kNullContext = 16 };

std::string mode_text(unsigned m) {
    const char *const names[] = {" filter", " aux", " selective", " compressed", " null-kctx"};
    std::string s;
    for (unsigned bit = 0; bit < std::size(names); ++bit) s += m >> bit & 1 ? names[bit] : "";
    return s;
}

// filter_bv, bv_aux with and without the selective flag, a compressed
// column, a null kernel context: every combination the frame allows.
TEST(DictCompare, FiltersSelectionsAndCompressedColumns) {
    std::mt19937_64 rng(13);
    for (unsigned w : kWidths) {
        if (!served(w)) continue;
        for (unsigned mode = 0; mode < 32; ++mode) {
            if ((mode & kSelective) && !(mode & kAux)) continue;
            if ((mode & kNullContext) && (mode & (kAux | kCompressed))) continue;
            for (int round = 0; round < 3; ++round) {
                const ub4 n = kRowCounts[rng() % std::size(kRowCounts)];
                const unsigned op = rng() % 10;
                const bool null = rng() & 1;
                const CodePool pool(w, rng);
                const auto codes = pool.codes(rng, n);
                const auto lits = pool.literals();
                const ub8 a = lits[rng() % lits.size()], b = lits[rng() % lits.size()];
                TestHost host;
                host.use_copying_decoder();
                auto col = packed_column(codes, w);
                if (mode & kCompressed) col->compress_by_copy();
                const auto filter = random_bits(rng, n, 0.7), aux = random_bits(rng, n, rng() % 2 ? 0.1 : 0.6);
                if (mode & kFilter) col->vec.filter_bv = filter.data();
                vorn_kernel_ctx k = host.kctx();
                if (mode & kAux) k.bv_aux = aux.data();
                if (mode & kSelective) k.flags = VORN_CTX_SELECTIVE;
                Result res(n);
                const ub8 code = call_dict(w, op, null, &res.vec, &col->vec, a, b, mode & kNullContext ? nullptr : &k);
                const std::string what = describe(w, op, null, n, a, b) + mode_text(mode);
                expect_matches(res, model(w, codes, op, null, a, b, mode & kFilter ? filter.data() : nullptr,
                                          mode & kAux ? aux.data() : nullptr),
                               code, what);
                EXPECT_EQ(k.done_flags, mode & kAux ? VORN_DONE_BV_AUX : 0u) << what;
                EXPECT_EQ(host.decode_calls, mode & kCompressed ? 1u : 0u) << what;
                if (HasFatalFailure()) return;
            }
        }
    }
}

// A compressed column is decompressed once into a buffer named after the
// kernel; a second kernel on it finds the cell filled.  A decoder that fails
// is raised under the kernel's name, and the zeros it left are all null.
TEST(DictCompare, CompressedColumnIsDecodedOnceUnderTheKernelsName) {
    std::mt19937_64 rng(14);
    for (unsigned w : kWidths) {
        if (!served(w)) continue;
        const CodePool pool(w, rng);
        const auto codes = pool.codes(rng, 300);
        TestHost host;
        host.use_copying_decoder();
        auto col = packed_column(codes, w);
        col->compress_by_copy();
        vorn_kernel_ctx k = host.kctx();
        Result first(300), second(300);
        const ub8 c1 = call_dict(w, VORN_OP_GE_LT, true, &first.vec, &col->vec, pool.r1, pool.r2, &k);
        const ub8 c2 = call_dict(w, VORN_OP_NE, false, &second.vec, &col->vec, pool.r2, 0, &k);
        const std::string name = "vorn_ge_lt_dict_" + std::to_string(w) + "bit_null";
        ASSERT_EQ(host.allocs.size(), 1u) << name;
        EXPECT_EQ(host.allocs[0].name, name + ": vec1_decomp");
        EXPECT_EQ(host.allocs[0].bytes, col->data.size());
        EXPECT_EQ(host.decode_calls, 1u);
        expect_matches(first, model(w, codes, VORN_OP_GE_LT, true, pool.r1, pool.r2), c1, name);
        expect_matches(second, model(w, codes, VORN_OP_NE, false, pool.r2, 0), c2, name + " then ne");

        host.decoder = [](const vorn_lomp_ctx *, const ub1 *, ub1 *out, ub4 *, ub4 cap) -> ub8 {
            std::memset(out, 0, cap);
            return 24;
        };
        auto failing = packed_column(std::vector<ub8>(100, 1), w);
        failing->compress_by_copy();
        Result res(100);
        clear_raised();
        const ub8 code = call_dict(w, VORN_OP_LT, true, &res.vec, &failing->vec, 5, 0, &k);
        ASSERT_EQ(raised().size(), 1u);
        EXPECT_EQ(raised()[0].message, "vorn_lt_dict_" + std::to_string(w) + "bit_null: vorn_lomp_decode failed");
        EXPECT_EQ(code, 1u);
        EXPECT_EQ(res.vec.num_ones, 0u);
        clear_raised();
    }
}

// A run-length column: the compare runs once per run into rle_bv, the
// filters are per run, and the host's expansion gives the rows and the code.
TEST(DictCompare, RunLengthColumnsCompareRunsAndExpand) {
    std::mt19937_64 rng(15);
    for (unsigned w : kWidths) {
        if (!served(w)) continue;
        for (ub4 runs : {1u, 31u, 64u, 129u, 300u}) {
            const unsigned op = rng() % 10;
            const bool null = rng() & 1, filtered = rng() & 1;
            const CodePool pool(w, rng);
            const auto run_codes = pool.codes(rng, runs);
            const auto lits = pool.literals();
            const ub8 a = lits[rng() % lits.size()], b = lits[rng() % lits.size()];
            std::vector<ub4> lengths(runs);
            for (auto &l : lengths) l = rng() % 6;
            auto col = packed_column(run_codes, w);
            col->make_rle(lengths, 8);
            const auto filter = random_bits(rng, runs, 0.7);
            if (filtered) col->vec.filter_bv = filter.data();
            const Expected per_run = model(w, run_codes, op, null, a, b, filtered ? filter.data() : nullptr);
            Expected rows;
            for (ub4 r = 0; r < runs; ++r)
                for (ub4 k = 0; k < lengths[r]; ++k) rows.bits.push_back(per_run.bits[r]), rows.count += per_run.bits[r];
            TestHost host;
            vorn_kernel_ctx k = host.kctx();
            Result res(col->vec.size);
            const unsigned calls = rle_expand_calls;
            const ub8 code = call_dict(w, op, null, &res.vec, &col->vec, a, b, &k);
            const std::string what = describe(w, op, null, runs, a, b) + " rle";
            EXPECT_EQ(rle_expand_calls, calls + 1) << what;
            for (ub4 r = 0; r < runs; ++r)
                ASSERT_EQ(vornhost::test_bit(col->rle_bv.data(), r), per_run.bits[r]) << what << " run " << r;
            if (runs % 64) {
                EXPECT_EQ(col->rle_bv[runs / 64] >> (runs % 64), 0u) << what;
            }
            expect_matches(res, rows, code, what);
        }
    }
}

// ---- What a kernel reads ------------------------------------------------------

// Rows of a whole block by width: 128 for 8-bit lanes (and width 1), 64 for
// 16-bit lanes, 32 for 32-bit lanes, 16 for width 64.
ub4 block_rows(unsigned w) {
    if (w == 1 || w == 2 || w == 4 || w == 8) return 128;
    if (w == 3 || w == 5 || w == 6 || w == 7 || w == 9 || w == 10 || w == 12 || w == 16) return 64;
    return w == 64 ? 16 : 32;
}

// Nothing is read behind the stream's last byte, but for what the reference
// read of a tail row or a selected row touches: its four bytes.
TEST(DictCompare, ReadsStayInsideTheStream) {
    std::mt19937_64 rng(16);
    for (unsigned w : kWidths) {
        if (!served(w)) continue;
        for (ub4 n : {32u, 64u, 128u, 256u, 640u, 1024u, 1u, 33u, 65u, 129u, 700u}) {
            const CodePool pool(w, rng);
            const auto codes = pool.codes(rng, n);
            auto col = packed_column(codes, w);
            const std::size_t bytes = (std::size_t{n} * w + 7) / 8;
            const std::size_t reference_read_end = (std::size_t{n - 1} * w >> 3) + 4;
            const auto aux = random_bits(rng, n, 0.3);
            for (bool selective : {false, true}) {
                const bool reads_by_reference = selective || n % block_rows(w) != 0;
                GuardedStream guarded(col->data, reads_by_reference ? std::max(bytes, reference_read_end) : bytes);
                col->vec.data = guarded.data();
                for (unsigned op : {unsigned(VORN_OP_EQ), unsigned(VORN_OP_LE), unsigned(VORN_OP_GE_LT)}) {
                    TestHost host;
                    vorn_kernel_ctx k = host.kctx();
                    if (selective) k.bv_aux = aux.data(), k.flags = VORN_CTX_SELECTIVE;
                    Result res(n);
                    const ub8 code = call_dict(w, op, true, &res.vec, &col->vec, pool.r1, pool.r2, &k);
                    expect_matches(res, model(w, codes, op, true, pool.r1, pool.r2, nullptr, selective ? aux.data() : nullptr),
                                   code, describe(w, op, true, n, pool.r1, pool.r2));
                }
            }
        }
    }
}

// ---- The cases that decide a form's ends ---------------------------------------

TEST(DictCompare, EndsOfTheCodeRange) {
    for (unsigned w : kWidths) {
        if (!served(w) || w == 1) continue;  // width 1 has its own cases below
        const ub8 top = top_code(w);
        const std::vector<ub8> codes = {0, 1, top, top - 1, 2 & top, top, 0, 1};
        auto col = packed_column(codes, w);
        auto run = [&](unsigned op, bool null, ub8 a, ub8 b = 0) {
            Result res(codes.size());
            const ub8 code = call_dict(w, op, null, &res.vec, &col->vec, a, b, nullptr);
            expect_matches(res, model(w, codes, op, null, a, b), code, describe(w, op, null, 8, a, b));
            return std::make_pair(code, res.vec.num_ones);
        };
        EXPECT_EQ(run(VORN_OP_LT, false, 0), std::make_pair(ub8{1}, ub4{0}));  // nothing below 0
        EXPECT_EQ(run(VORN_OP_GE, false, 0).second, codes.size());          // everything
        EXPECT_EQ(run(VORN_OP_LT, false, top).second, 6u);                   // all but the top code
        EXPECT_EQ(run(VORN_OP_LT, true, 1).first, 1u);                       // only null is below 1
        EXPECT_EQ(run(VORN_OP_GE, true, 0).second, 6u);                      // the non-null rows
        EXPECT_EQ(run(VORN_OP_GT_LT, false, top - 1, top - 1).first, 1u);    // a = b: empty
        EXPECT_EQ(run(VORN_OP_GE_LE, false, 1, 1).second, 2u);
        EXPECT_EQ(run(VORN_OP_GE_LE, false, top, 0).first, 1u);              // a above b
        if (w < 32 && w != 8 && w != 16) {
            EXPECT_EQ(run(VORN_OP_EQ, false, top + 1).first, 1u);  // never equal
            EXPECT_EQ(run(VORN_OP_LT, false, top + 1).second, codes.size());
            EXPECT_EQ(run(VORN_OP_GT, false, 0xffffffffull).first, 1u);
            EXPECT_EQ(run(VORN_OP_LE, true, 0xffffffffull).second, 6u);
            EXPECT_EQ(run(VORN_OP_NE, true, top + 1).second, 6u);
        }
    }
}

TEST(DictCompare, AllNullColumnMatchesNothing) {
    for (unsigned w : kWidths) {
        if (!served(w)) continue;
        for (ub4 n : {5u, 64u, 300u}) {
            auto col = packed_column(std::vector<ub8>(n, 0), w);
            for (unsigned op = 0; op < 10; ++op) {
                for (ub8 a : {ub8{0}, ub8{1}, top_code(w)}) {
                    Result res(n);
                    EXPECT_EQ(call_dict(w, op, true, &res.vec, &col->vec, a, top_code(w), nullptr), 1u)
                        << describe(w, op, true, n, a, top_code(w));
                    EXPECT_EQ(res.vec.num_ones, 0u);
                }
            }
        }
    }
}

// ---- Width 1 --------------------------------------------------------------------

ub1 reverse_bits(ub1 b) {
    ub1 r = 0;
    for (int k = 0; k < 8; ++k) r |= ((b >> k) & 1) << (7 - k);
    return r;
}

// A width-1 column of random bytes, built from its stream: no code vector,
// so that a column past the cache is cheap to make.
struct BitColumn {
    std::vector<ub8> words;
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    BitColumn(std::mt19937_64 &rng, ub4 n) : words(n / 64 + 2) {
        for (auto &w : words) w = rng();
        enc.flags = VORN_PACKED;
        enc.bit_width = 1;
        vec.data = words.data();
        vec.enc_ctx = &enc;
        vec.size = n;
    }
    ub1 byte(ub4 k) const { return reinterpret_cast<const ub1 *>(words.data())[k]; }
};

// eq 1 is the stream with each byte's bits reversed, eq 0 its complement; a
// last partial byte is cut at n.  Lengths around the 16-byte blocks and the
// four-block loop, and a result past the cache (the streaming stores).
TEST(DictWidthOne, EqIsTheStreamReversedOrItsComplement) {
    if (!served(1)) GTEST_SKIP();
    std::mt19937_64 rng(18);
    for (ub4 n : {1u, 8u, 100u, 127u, 128u, 129u, 255u, 256u, 257u, 511u, 512u, 513u, 640u, 1000u, (9u << 20) + 77}) {
        BitColumn col(rng, n);
        for (ub8 literal : {1u, 0u}) {
            Result res(n);
            const ub8 code = call_dict(1, VORN_OP_EQ, false, &res.vec, &col.vec, literal, 0, nullptr);
            const std::string what = describe(1, VORN_OP_EQ, false, n, literal, 0);
            const ub1 *out = reinterpret_cast<const ub1 *>(res.bv.data());
            ub8 count = 0;
            for (ub4 k = 0; k < (n + 7) / 8; ++k) {
                ub1 want = static_cast<ub1>(reverse_bits(col.byte(k)) ^ (literal ? 0 : 0xff));
                if (k == n / 8) want &= static_cast<ub1>((1u << (n % 8)) - 1);
                ASSERT_EQ(out[k], want) << what << " byte " << k;
                count += static_cast<ub8>(__builtin_popcount(want));
            }
            EXPECT_EQ(res.vec.num_ones, count) << what;
            EXPECT_EQ(code, count == 0 ? 1u : 0u) << what;
            EXPECT_TRUE(res.clear_behind(n)) << what;
            EXPECT_TRUE(res.guard_intact()) << what;
        }
    }
}

// The outcome of each form is decided by its answers for codes 0 and 1.
TEST(DictWidthOne, TheLiteralDecidesTheOutcome) {
    if (!served(1)) GTEST_SKIP();
    const std::vector<ub8> codes = {1, 0, 0, 1, 1, 1, 0, 1, 0, 0, 1};  // ones: 0, 3, 4, 5, 7, 10
    const ub8 stream = 0b10010111001, complement = 0b01101000110, all = 0b11111111111;
    auto col = packed_column(codes, 1);
    struct Case {
        unsigned op;
        bool null;
        ub8 a, b, bits;
    };
    const Case cases[] = {
        {VORN_OP_EQ, false, 1, 0, stream},       {VORN_OP_EQ, false, 0, 0, complement},
        {VORN_OP_NE, false, 0, 0, stream},       {VORN_OP_NE, false, 1, 0, complement},
        {VORN_OP_LT, false, 1, 0, complement},   {VORN_OP_LT, false, 0, 0, 0},
        {VORN_OP_LE, false, 0, 0, complement},   {VORN_OP_LE, false, 1, 0, all},
        {VORN_OP_GE, false, 0, 0, all},          {VORN_OP_GT, false, 0, 0, stream},
        {VORN_OP_GT_LT, false, 0, 1, 0},         {VORN_OP_GE_LE, false, 0, 1, all},
        {VORN_OP_EQ, true, 1, 0, stream},        {VORN_OP_EQ, true, 0, 0, 0},
        {VORN_OP_LT, true, 1, 0, 0},             {VORN_OP_LE, true, 1, 0, stream},
        {VORN_OP_NE, true, 0, 0, stream},        {VORN_OP_GE, true, 0, 0, stream},
        {VORN_OP_GE_LE, true, 0, 1, stream},     {VORN_OP_GT_LE, true, 0, 0, 0},
        // A nonzero literal stands for code 1, whatever its value.
        {VORN_OP_LT, false, 2, 0, complement},   {VORN_OP_EQ, false, 3, 0, stream},
        {VORN_OP_GT_LT, false, 0, 2, 0},         {VORN_OP_GE_LE, false, 7, 9, stream},
    };
    for (const Case &c : cases) {
        Result res(codes.size());
        const ub8 code = call_dict(1, c.op, c.null, &res.vec, &col->vec, c.a, c.b, nullptr);
        const std::string what = describe(1, c.op, c.null, 11, c.a, c.b);
        EXPECT_EQ(res.bv[0], c.bits) << what;  // and nothing behind row 11
        EXPECT_EQ(res.vec.num_ones, static_cast<ub4>(__builtin_popcountll(c.bits))) << what;
        EXPECT_EQ(code, c.bits ? 0u : 1u) << what;
    }
}

}  // namespace
