// Distance drivers: vorn_vector_distance_dydi over uniform and flexible
// columns, single and paired, against a plain distance model, with the
// three row selections, cursors that start inside the column, capacities
// that cut the walk, the one decode of a C query into scratch, results in
// both forms, flexible rows with every kind of fault, and the shape codes.
#include <gtest/gtest.h>

#include "support/distance_model.h"
#include "support/fold_c.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;
using namespace vorntest::vec;

constexpr double kUnset = -12345.0;

// A selection of one of the three kinds over `n` rows, its cursor in the
// first half.
RowSelection selection(std::mt19937_64 &rng, unsigned kind, ub4 n) {
    const double density = rng() % 2 ? 0.5 : 0.05;
    return RowSelection(rng, kind, n, density, 3, n / 2 + 1);
}

// Reads result k in the result's form.
double result_at(const std::vector<double> &out, std::size_t k, bool c_form) {
    if (!c_form) return out[k];
    ub8 v;
    std::memcpy(&v, &out[k], 8);
    return c_dec64(v);
}

TEST(VectorDistance, UniformSingleAndPairedAgainstTheModel) {
    std::mt19937_64 rng(31);
    const unsigned elems[] = {kFloat, kCFloat, kDouble, kCDouble, kInt8, UnifColumn::kBits};
    for (unsigned elem : elems)
        for (unsigned paired = 0; paired < 2; ++paired)
            for (unsigned kind = 0; kind < 3; ++kind)
                for (unsigned trial = 0; trial < 5; ++trial) {
                    const unsigned dim = static_cast<unsigned>(rng() % 40);
                    const ub4 n = 1 + static_cast<ub4>(rng() % 700);
                    const unsigned metric = elem == UnifColumn::kBits ? 8 : 1 + rng() % 2;
                    UnifColumn right(elem, dim, n, rng), left(elem, dim, paired ? n : 1, rng);
                    RowSelection sel = selection(rng, kind, n);
                    const ub8 cap = 1 + rng() % (n + 20);
                    const bool c_result = rng() % 2;
                    DoubleResult result(cap, c_result, kUnset);
                    const auto &out = result.out;
                    vorn_vec &res = result.vec;
                    std::vector<ub1> scratch(8 * dim + 16, 0x77);
                    const bool with_scratch = rng() % 2;
                    const vorn_kernel_ctx before = sel.k;
                    const auto rows = walked_rows(sel.k, n, cap);
                    const ub8 code = ctx().vorn_vector_distance_dydi(&res, &right.vec, &left.vec, metric, 0, &sel.k,
                                                                     with_scratch ? scratch.data() : nullptr);
                    SCOPED_TRACE(testing::Message() << "elem " << elem << " paired " << paired << " kind " << kind
                                                    << " n " << n << " dim " << dim);
                    ASSERT_EQ(code, 0u);
                    for (std::size_t i = 0; i < rows.size(); ++i) {
                        const ub4 r = rows[i];
                        const double want =
                            model_for(elem, elem, left.rows[paired ? r : 0], right.rows[r], dim, metric);
                        ASSERT_TRUE(same_bits(result_at(out, i, c_result), want)) << "row " << r;
                    }
                    ASSERT_EQ(out[rows.size()], kUnset);
                    EXPECT_EQ(res.num_ones, rows.size());
                    EXPECT_EQ(sel.k.row_pos, cursor_after(before, rows));
                }
}

TEST(VectorDistance, CQueryDecodedOnceIntoScratch) {
    std::mt19937_64 rng(32);
    for (unsigned elem : {kCFloat, kCDouble}) {
        const unsigned dim = 37;
        UnifColumn right(elem == kCFloat ? kFloat : kDouble, dim, 50, rng), left(elem, dim, 1, rng);
        std::vector<ub1> scratch(8 * dim + 16, 0x77);
        DoubleResult with(50, false, kUnset), without(50, false, kUnset);
        ASSERT_EQ(ctx().vorn_vector_distance_dydi(&with.vec, &right.vec, &left.vec, 2, 0, nullptr, scratch.data()), 0u);
        ASSERT_EQ(ctx().vorn_vector_distance_dydi(&without.vec, &right.vec, &left.vec, 2, 0, nullptr, nullptr), 0u);
        for (unsigned r = 0; r < 50; ++r) {
            const double want = euclid_model(elem, elem == kCFloat ? kFloat : kDouble, left.rows[0], right.rows[r], dim, 2);
            ASSERT_TRUE(same_bits(with.out[r], want));
            ASSERT_TRUE(same_bits(without.out[r], want));
        }
        // Against a single row the query is not decoded: scratch stays as it was.
        std::vector<ub1> untouched(scratch.size(), 0x77);
        right.vec.size = 1;
        with.vec.size = 1;
        ASSERT_EQ(ctx().vorn_vector_distance_dydi(&with.vec, &right.vec, &left.vec, 2, 0, nullptr, untouched.data()), 0u);
        EXPECT_TRUE(std::all_of(untouched.begin(), untouched.end(), [](ub1 b) { return b == 0x77; }));
    }
}

TEST(VectorDistance, Shapes) {
    std::mt19937_64 rng(33);
    UnifColumn one(kFloat, 4, 1, rng, false), other(kFloat, 4, 1, rng, false);
    UnifColumn three(kFloat, 4, 3, rng), two(kFloat, 4, 2, rng), flex(kFloat, 4, 3, rng);
    flex.enc.flags |= VORN_VEC_FLEX;
    std::vector<double> out(8);
    vorn_vec res{};
    res.data = out.data();
    res.size = 8;
    auto call = [&](vorn_vec *r, vorn_vec *l) {
        return ctx().vorn_vector_distance_dydi(&res, r, l, 2, 0, nullptr, nullptr);
    };
    EXPECT_EQ(call(&other.vec, &one.vec), 0u);     // 1 and 1 without VORN_VEC_COLUMN
    EXPECT_EQ(call(&two.vec, &three.vec), 2u);     // 3 left rows against 2
    EXPECT_EQ(call(&three.vec, &one.vec), 0u);
    three.enc.flags &= ~VORN_VEC_COLUMN;
    EXPECT_EQ(call(&three.vec, &one.vec), 2u);     // many right rows need the column flag
    three.enc.flags |= VORN_VEC_COLUMN;
    EXPECT_EQ(call(&flex.vec, &one.vec), 24u);     // flexible against uniform
    EXPECT_EQ(ctx().vorn_vector_distance_dydi(&res, &three.vec, &one.vec, 9, 0, nullptr, nullptr), 24u);
    EXPECT_EQ(ctx().vorn_vector_distance_dydi(&res, &three.vec, &one.vec, 2, 2, nullptr, nullptr), 24u);
    // A selection without bits leaves the cursor where it was.
    std::vector<ub8> none(1, 0);
    vorn_kernel_ctx k{};
    k.bv_aux = none.data();
    k.row_pos = 1;
    EXPECT_EQ(ctx().vorn_vector_distance_dydi(&res, &three.vec, &one.vec, 2, 0, &k, nullptr), 0u);
    EXPECT_EQ(k.row_pos, 1u);
    EXPECT_EQ(res.num_ones, 0u);
}

TEST(VectorDistance, FlexibleRowsWithFaults) {
    std::mt19937_64 rng(34);
    for (unsigned paired = 0; paired < 2; ++paired)
        for (unsigned kind = 0; kind < 3; ++kind)
            for (unsigned trial = 0; trial < 6; ++trial) {
                const unsigned dim = 1 + static_cast<unsigned>(rng() % 30);
                const ub4 n = 1 + static_cast<ub4>(rng() % 300);
                FlexColumn right(rng, n, dim, true, true), left(rng, paired ? n : 1, dim, paired, false);
                RowSelection sel = selection(rng, kind, n);
                const ub8 cap = 1 + rng() % (n + 10);
                DoubleResult result(cap, false, kUnset);
                const auto &out = result.out;
                vorn_vec &res = result.vec;
                const auto bits_before = sel.bits;
                const vorn_kernel_ctx before = sel.k;
                const auto rows = walked_rows(sel.k, n, cap);
                ASSERT_EQ(ctx().vorn_vector_distance_dydi(&res, &right.vec, &left.vec, 2, 0, &sel.k, nullptr), 0u);
                std::vector<ub8> bits_want = bits_before;
                for (std::size_t i = 0; i < rows.size(); ++i) {
                    const ub4 r = rows[i], l = paired ? r : 0;
                    const bool ok = right.good(r) && left.good(l) && right.dims(r) == left.dims(l);
                    if (!ok) {
                        ASSERT_EQ(out[i], kUnset) << "row " << r;
                        if (kind == 0) bits_want[r / 64] &= ~(ub8{1} << (r % 64));
                        continue;
                    }
                    const double want = euclid_model(left.forms[l], right.forms[r], left.bodies[l], right.bodies[r], dim, 2);
                    ASSERT_TRUE(same_bits(out[i], want)) << "row " << r;
                }
                EXPECT_EQ(sel.bits, bits_want);
                EXPECT_EQ(sel.k.row_pos, cursor_after(before, rows));
            }
}

}  // namespace
