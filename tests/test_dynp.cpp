// The dynamic-prefix compares and their _tz forms against the whole-byte
// order of the values a block sees: every form at the maximum widths 16, 32 and 64 bits, row
// counts around the blocks, with filter_bv, bv_aux, the selective path, a
// compressed value stream and a run-length column; invalid 64-bit selector
// nibbles in whole blocks; the refused _tz keys; the edge cases of stored
// lengths and second keys.
#include <gtest/gtest.h>

#include "predicate/dynp_tables.h"
#include "support/dynp_model.h"
#include "support/whole_byte_model.h"

namespace {

using namespace vorntest;

// ---- The model ------------------------------------------------------------------

struct Form {
    unsigned bytes;
    bool tz;
    unsigned op;
};

std::string describe(const Form &f) {
    return std::string(compare_name(f.op)) + "_dynp_" + std::to_string(f.bytes * 8) + "bit" + (f.tz ? "_tz" : "");
}

// The value a kernel's block sees: a selector byte with an invalid nibble
// reads as zero in both of its rows.
std::vector<ub8> block_view(const std::vector<DynpRow> &rows, unsigned bytes) {
    std::vector<ub8> seen;
    const unsigned per = dynp_rows_per_selector(bytes);
    const std::size_t whole = rows.size() / dynp_block_rows(bytes) * dynp_block_rows(bytes);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        bool invalid = false;
        if (i < whole)
            for (std::size_t j = i / per * per; j < i / per * per + per; ++j) invalid |= rows[j].selector >= bytes;
        seen.push_back(invalid ? 0 : rows[i].value);
    }
    return seen;
}

std::vector<bool> model(const Form &f, const std::vector<DynpRow> &rows, const DynpLiteral &lo,
                        const DynpLiteral &hi, ub8 lo_value, ub8 hi_value) {
    const auto seen = block_view(rows, f.bytes);
    std::vector<bool> out;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const unsigned t = f.tz ? rows[i].selector : 0;  // without a second key only the values count
        out.push_back(form_holds(f.op, pair_order(seen[i], t, lo_value, f.tz ? lo.key : 0),
                                 pair_order(seen[i], t, hi_value, f.tz ? hi.key : 0)));
    }
    return out;
}

ub8 call(const Form &f, Result &res, Column &col, const DynpLiteral &lo, const DynpLiteral &hi,
         vorn_kernel_ctx *k) {
    const vorn_kernel &kern = kernel(VORN_DISPATCH_INDEX(dynp_kernel_group(f.bytes), f.op, f.tz));
    return is_range_op(f.op) ? kern.range(&res.vec, &col.vec, lo.ptrs, hi.ptrs, k)
                             : kern.cmp(&res.vec, &col.vec, lo.ptrs, k);
}

// A literal value: mostly one of the rows', so that equality happens.
ub8 pick_value(std::mt19937_64 &rng, const std::vector<DynpRow> &rows, unsigned bytes) {
    if (!rows.empty() && rng() % 4 != 0) return rows[rng() % rows.size()].value;
    return random_dynp_row(rng, bytes).value ^ (rng() % 3 == 0 ? 1 : 0);
}

// Every form, plain and _tz, of the three maximum widths.
const std::vector<Form> kAllForms = [] {
    std::vector<Form> forms;
    for (bool tz : {false, true})
        for (unsigned bytes : {2u, 4u, 8u})
            for (unsigned op = 0; op < 10; ++op) forms.push_back({bytes, tz, op});
    return forms;
}();

std::vector<ub4> row_counts(unsigned bytes) {
    const ub4 b = dynp_block_rows(bytes);
    return {0, 1, 2, b - 1, b, b + 1, 2 * b - 1, 63, 64, 65, 127, 128, 129, 5 * b + 3, 1000, 2048 + 17};
}

// ---- Randomised, every form -----------------------------------------------------------

// Every mode of the compare frame, and filter_bv with bv_aux on the dense path.
TEST(DynpCompare, EveryFormAgainstTheModel) {
    std::mt19937_64 rng(24);
    for (const Form &f : kAllForms) {
        for (ub4 n : row_counts(f.bytes)) {
            for (std::size_t m = 0; m <= std::size(kModes); ++m) {
                const bool both = m == std::size(kModes);
                const Mode mode = both ? Mode::aux : kModes[m];
                std::vector<DynpRow> rows(n);
                for (auto &r : rows) r = random_dynp_row(rng, f.bytes);
                auto col = dynp_column(rows, f.bytes);
                ModeRun run(mode, *col, n, rng);
                if (both) col->vec.filter_bv = run.filter.data();
                ub8 a = pick_value(rng, rows, f.bytes), b = pick_value(rng, rows, f.bytes);
                if (is_range_op(f.op) && a > b && rng() % 4 != 0) std::swap(a, b);
                const DynpLiteral lo(a, f.bytes, static_cast<ub1>(rng() % (f.bytes + 1)));
                const DynpLiteral hi(b, f.bytes, static_cast<ub1>(rng() % (f.bytes + 1)));
                const auto match = model(f, rows, lo, hi, a, b);
                Result res(n);
                const ub8 code = call(f, res, *col, lo, hi, run.kctx());
                SCOPED_TRACE(describe(f) + " n " + std::to_string(n) + " mode " + std::to_string(m));
                const Expected want = both ? restrict_rows(match, run.filter.data(), run.aux.data()) : run.expect(match);
                ASSERT_TRUE(matches(res, want, code));
                run.check_after("vorn_" + describe(f));
            }
        }
    }
}

// A run-length column compares one stored value per run and hands the run
// bits to the host.
TEST(DynpCompare, RunLengthColumns) {
    std::mt19937_64 rng(25);
    for (const Form &f : kAllForms) {
        for (ub4 runs : {1u, 31u, 33u, 200u}) {
            std::vector<DynpRow> rows(runs);
            for (auto &r : rows) r = random_dynp_row(rng, f.bytes);
            std::vector<ub4> lengths(runs);
            for (auto &l : lengths) l = static_cast<ub4>(rng() % 4);
            auto col = dynp_column(rows, f.bytes);
            col->make_rle(lengths, 8);
            TestHost host;
            vorn_kernel_ctx k = host.kctx();
            const ub8 a = pick_value(rng, rows, f.bytes), b = pick_value(rng, rows, f.bytes);
            const DynpLiteral lo(a, f.bytes, static_cast<ub1>(rng() % (f.bytes + 1)));
            const DynpLiteral hi(b, f.bytes, static_cast<ub1>(rng() % (f.bytes + 1)));
            const Expected want = expand_runs(restrict_rows(model(f, rows, lo, hi, a, b), nullptr, nullptr), lengths);
            Result res(col->vec.size);
            const unsigned calls = rle_expand_calls;
            const ub8 code = call(f, res, *col, lo, hi, &k);
            EXPECT_EQ(rle_expand_calls, calls + 1);
            ASSERT_TRUE(matches(res, want, code)) << describe(f) << " runs " << runs;
        }
    }
}

// In a whole block a 64-bit selector nibble above 7 makes its selector
// byte's two rows read as zero; the lengths still advance by the nibbles, so
// the rows behind stay in step.
TEST(DynpCompare, InvalidNibblesInWholeBlocksReadAsZero) {
    std::mt19937_64 rng(26);
    for (const Form &f : kAllForms) {
        if (f.bytes != 8) continue;
        for (ub4 n : {8u, 16u, 61u, 200u}) {
            std::vector<DynpRow> rows(n);
            for (auto &r : rows) r = random_dynp_row(rng, 8);
            const ub4 whole = n / 8 * 8;
            for (ub4 i = 0; i < whole; ++i)
                if (rng() % 5 == 0) rows[i] = {rng(), static_cast<ub4>(8 + rng() % 8)};
            auto col = dynp_column(rows, 8);
            const ub8 a = rng() % 3 == 0 ? 0 : pick_value(rng, rows, 8), b = pick_value(rng, rows, 8);
            const DynpLiteral lo(a, 8, static_cast<ub1>(rng() % 9)), hi(b, 8, static_cast<ub1>(rng() % 9));
            Result res(n);
            const ub8 code = call(f, res, *col, lo, hi, nullptr);
            ASSERT_TRUE(matches(res, restrict_rows(model(f, rows, lo, hi, a, b), nullptr, nullptr), code))
                << describe(f) << " n " << n;
        }
    }
}

// The result word of a 16-bit compare over a few rows, with no kernel context.
ub8 bits16(Column &col, unsigned op, bool tz, const DynpLiteral &lit, ub4 rows) {
    Result res(rows);
    kernel(VORN_DISPATCH_INDEX(dynp_kernel_group(2), op, tz)).cmp(&res.vec, &col.vec, lit.ptrs, nullptr);
    return res.bv[0];
}

// ---- The second key ----------------------------------------------------------------

TEST(DynpTz, KeyAboveTheWidthIsRefusedWithNothingWritten) {
    for (const Form &f : kAllForms) {
        if (!f.tz) continue;
        auto col = dynp_column({{0, 0}, {0, 1}}, f.bytes);
        for (int which = 0; which < (is_range_op(f.op) ? 2 : 1); ++which) {
            const DynpLiteral bad(0, f.bytes, static_cast<ub1>(f.bytes + 1 + which * 100));
            const DynpLiteral good(0, f.bytes, static_cast<ub1>(f.bytes));
            Result res(2, 0x1234);
            res.vec.num_ones = 77;
            TestHost host;
            vorn_kernel_ctx k = host.kctx();
            const ub8 code = which == 0 ? call(f, res, *col, bad, good, &k) : call(f, res, *col, good, bad, &k);
            EXPECT_EQ(code, 2u) << describe(f);
            EXPECT_EQ(res.bv[0], 0x1234u);
            EXPECT_EQ(res.vec.num_ones, 77u);
            EXPECT_EQ(k.done_flags, 0u);
        }
        // The width itself is a valid key.
        const DynpLiteral top(0, f.bytes, static_cast<ub1>(f.bytes));
        Result res(2);
        EXPECT_NE(call(f, res, *col, top, top, nullptr), 2u) << describe(f);
    }
}

TEST(DynpTz, EqSixteenBitsWithKeyThreeReturnsTwo) {
    auto col = dynp_column({{0x1200, 0}}, 2);
    const DynpLiteral lit(0x1200, 2, 3);
    Result res(1, 0);
    EXPECT_EQ(kernel(VORN_DISPATCH_INDEX(dynp_kernel_group(2), VORN_OP_EQ, 1)).cmp(&res.vec, &col->vec, lit.ptrs, nullptr), 2u);
    EXPECT_EQ(res.bv[0], 0u);
}

TEST(DynpTz, EqualValuesAreOrderedByStoredLength) {
    // 0x1200 stored as one byte (key 0) and as two (key 1): one padded value, two keys.
    auto col = dynp_column({{0x1200, 0}, {0x1200, 1}, {0x1201, 1}}, 2);
    auto run = [&](unsigned op, ub1 key) { return bits16(*col, op, true, DynpLiteral(0x1200, 2, key), 3); };
    EXPECT_EQ(run(VORN_OP_EQ, 0), 0b001u);
    EXPECT_EQ(run(VORN_OP_EQ, 1), 0b010u);
    EXPECT_EQ(run(VORN_OP_LT, 1), 0b001u);  // equal value, key 0 below 1
    EXPECT_EQ(run(VORN_OP_GT, 0), 0b110u);
    EXPECT_EQ(run(VORN_OP_NE, 0), 0b110u);  // equal value, other key: not equal
    EXPECT_EQ(run(VORN_OP_LE, 0), 0b001u);
    EXPECT_EQ(run(VORN_OP_GE, 2), 0b100u);
}

// ---- Edge cases of the stored form -----------------------------------------------------

TEST(DynpCompare, ValueStoredShortEqualsItsPaddedLiteral) {
    // 0x1200 stored as 0x12; 0x12 0x01 is above it.
    auto col = dynp_column({{0x1200, 0}, {0x1201, 1}, {0x1200, 1}}, 2);
    auto run = [&](unsigned op) { return bits16(*col, op, false, DynpLiteral(0x1200, 2, 0), 3); };
    EXPECT_EQ(run(VORN_OP_EQ), 0b101u);
    EXPECT_EQ(run(VORN_OP_GT), 0b010u);
    EXPECT_EQ(col->data.size(), 5u);
}

TEST(DynpCompare, AllRowsOfLengthOneInSixteenBits) {
    std::vector<DynpRow> rows;
    for (ub4 i = 0; i < 100; ++i) rows.push_back({ub8{(i % 7) << 8}, 0});
    auto col = dynp_column(rows, 2);
    EXPECT_EQ(col->data.size(), 100u);
    for (std::size_t i = 0; i < col->data2.size(); ++i) EXPECT_EQ(col->data2.data()[i], 0u);
    const DynpLiteral lit(3 << 8, 2, 0);
    Result res(100);
    kernel(VORN_DISPATCH_INDEX(dynp_kernel_group(2), VORN_OP_LE, 0)).cmp(&res.vec, &col->vec, lit.ptrs, nullptr);
    for (ub4 i = 0; i < 100; ++i) EXPECT_EQ(res.bit(i), i % 7 <= 3) << i;
    EXPECT_EQ(vorn_length_consumed_dynp_maxwidth2[0], 8u);
}

// The first row of a selector byte is in its top bits, and a lane is the
// row's stored bytes left-aligned: checked on rows worked out by hand.
TEST(DynpTables, RowsWorkedOutByHand) {
    // 64 bits, selector byte 0x13: rows of 2 and 4 bytes.
    EXPECT_EQ(vorn_length_consumed_dynp_maxwidth8[0x13], 6u);
    const ub1 want8[16] = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 1, 0, 0x80, 0x80, 0x80, 0x80, 5, 4, 3, 2};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(vorn_shuffle_masks_dynp_maxwidth8[0x13][i], want8[i]) << i;
    // A nibble above 7: all zero lanes, the length as the nibbles say.
    EXPECT_EQ(vorn_length_consumed_dynp_maxwidth8[0x90], 11u);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(vorn_shuffle_masks_dynp_maxwidth8[0x09][i], 0x80) << i;
    // 32 bits, 0b11'00'01'10: rows of 4, 1, 2, 3 bytes.
    EXPECT_EQ(vorn_length_consumed_dynp_maxwidth4[0xc6], 10u);
    const ub1 want4[16] = {3, 2, 1, 0, 0x80, 0x80, 0x80, 4, 0x80, 0x80, 6, 5, 0x80, 9, 8, 7};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(vorn_shuffle_masks_dynp_maxwidth4[0xc6][i], want4[i]) << i;
    // 16 bits, 0b1000'0001: rows of 2, 1 x 6, 2 bytes.
    EXPECT_EQ(vorn_length_consumed_dynp_maxwidth2[0x81], 10u);
    const ub1 want2[16] = {1, 0, 0x80, 2, 0x80, 3, 0x80, 4, 0x80, 5, 0x80, 6, 0x80, 7, 9, 8};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(vorn_shuffle_masks_dynp_maxwidth2[0x81][i], want2[i]) << i;
    // The 32 rows behind the indexed ones are never used and hold zeros' controls.
    for (int r = 256; r < 288; ++r) EXPECT_EQ(vorn_shuffle_masks_dynp_maxwidth4[r][0], 0x80);
}

}  // namespace
