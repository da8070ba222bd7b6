// vorn_eq_stream_dydi against a model of this test's own: every layout, the
// short 8-byte way and the long way with their result codes, the result
// that is filled with ones at the first difference, the layout order, and
// refused layout pairs.
#include <gtest/gtest.h>

#include "support/value_columns.h"

namespace {

using namespace vorntest;

// The short way looks at a value's first `len` bytes, or at the eight bytes
// at its place when it is empty.
Value short_view(const ValueColumn &c, ub4 row, std::size_t len) {
    const ub1 *p = c.where[row];
    return len == 0 ? Value(p, p + 8) : Value(p, p + len);
}

struct Expected {
    std::vector<ub4> differing;
    ub8 code;
};

Expected model(const std::vector<Value> &a, const std::vector<Value> &b, const ValueColumn &ca,
               const ValueColumn &cb, bool short_way) {
    Expected e;
    for (ub4 i = 0; i < a.size(); ++i) {
        bool same = a[i].size() == b[i].size();
        if (same) same = short_way ? short_view(ca, i, a[i].size()) == short_view(cb, i, b[i].size()) : a[i] == b[i];
        if (!same) e.differing.push_back(i);
    }
    e.code = short_way ? 0 : e.differing.size() == a.size() ? 1 : 0;
    return e;
}

void expect_result(const Result &res, ub8 code, const Expected &e, ub4 n, ub8 fill, const std::string &what) {
    EXPECT_EQ(code, e.code) << what;
    EXPECT_EQ(res.vec.num_ones, n - e.differing.size()) << what;
    EXPECT_TRUE(res.guard_intact()) << what;
    const ub8 words = (n + 63) / 64;
    if (e.differing.empty()) {
        for (ub8 w = 0; w < words; ++w) ASSERT_EQ(res.bv[w], fill) << what << ": untouched";
        return;
    }
    std::vector<ub8> want(words, ~ub8{0});
    for (ub4 r : e.differing) want[r / 64] &= ~(ub8{1} << (r % 64));
    for (ub8 w = 0; w < words; ++w) ASSERT_EQ(res.bv[w], want[w]) << what << " word " << w;
}

// b is a with some rows changed: a byte, the length, or the whole value.
std::vector<Value> mutate(std::mt19937_64 &rng, std::vector<Value> v, std::size_t max_len, double rate) {
    std::bernoulli_distribution change(rate);
    for (auto &x : v) {
        if (!change(rng)) continue;
        const unsigned how = rng() % 3;
        if (how == 0 && !x.empty()) x[rng() % x.size()] ^= 0x40;
        else if (how == 1 && x.size() < max_len) x.push_back(0);
        else if (how == 1) x.pop_back();
        else if (how == 2) x = random_value(rng, max_len);
    }
    return v;
}

TEST(EqStream, EveryLayoutAndWayAgainstTheModel) {
    std::mt19937_64 rng(61);
    for (ub4 layout : kValueLayouts) {
        for (ub4 n : {0u, 1u, 63u, 64u, 65u, 127u, 128u, 129u, 300u}) {
            for (int variant = 0; variant < 6; ++variant) {
                // variant: short flag on a, on b, on neither; max_len up to 8 or above.
                const std::size_t max_len = layout == VORN_FIXED ? 1 + rng() % 12 : variant % 2 ? 8 : 20;
                const ub4 flag_a = variant / 2 == 0 ? VORN_SHORT_VALUES : 0, flag_b = variant / 2 == 1 ? VORN_SHORT_VALUES : 0;
                std::vector<Value> a(n);
                for (auto &v : a) v = layout == VORN_FIXED ? random_value(rng, max_len, max_len) : random_value(rng, max_len);
                const double rate = rng() % 3 == 0 ? 0.0 : n ? 1.5 / n + (rng() % 2) * 0.3 : 0;
                auto b = mutate(rng, a, max_len, rate);
                if (layout == VORN_FIXED)
                    for (auto &v : b) v.resize(max_len);
                auto ca = value_column(a, layout, flag_a), cb = value_column(b, layout, flag_b);
                const bool short_way = layout != VORN_FIXED && (flag_a | flag_b) && std::max(ca->enc.max_len, cb->enc.max_len) <= 8;
                const ub8 fill = 0x0123456789abcdefull;
                Result res(n, fill);
                res.vec.num_ones = 9;  // set for zero rows too
                const ub8 code = ctx().vorn_eq_stream_dydi(&res.vec, &ca->vec, &cb->vec, nullptr);
                const std::string what = std::string(layout_name(layout)) + " n " + std::to_string(n) + " variant " +
                                         std::to_string(variant);
                ASSERT_NO_FATAL_FAILURE(expect_result(res, code, model(a, b, *ca, *cb, short_way), n, fill, what));
            }
        }
    }
}

TEST(EqStream, ShortWayReturnsZeroEvenWhenNothingMatches) {
    auto a = value_column({{1}, {2}}, VORN_LV_SEP, VORN_SHORT_VALUES), b = value_column({{3}, {4}}, VORN_LV_SEP);
    Result res(2);
    EXPECT_EQ(ctx().vorn_eq_stream_dydi(&res.vec, &a->vec, &b->vec, nullptr), 0u);
    EXPECT_EQ(res.vec.num_ones, 0u);
    auto c = value_column({{1}, {2}}, VORN_LV_SEP);
    EXPECT_EQ(ctx().vorn_eq_stream_dydi(&res.vec, &c->vec, &b->vec, nullptr), 1u);
}

TEST(EqStream, EmptyValuesOnTheShortWayCompareTheBytesBehindThem) {
    // LV_SEP: the empty row's eight bytes are the values behind it.
    auto a = value_column({{}, {1, 2}}, VORN_LV_SEP, VORN_SHORT_VALUES);
    auto b = value_column({{}, {1, 3}}, VORN_LV_SEP);
    Result res(2, 0);
    ctx().vorn_eq_stream_dydi(&res.vec, &a->vec, &b->vec, nullptr);
    EXPECT_EQ(res.bv[0] & 3, 0u);  // both rows differ
    // The long way: two empty values are equal.
    a->enc.flags &= ~VORN_SHORT_VALUES;
    Result long_res(2, 0);
    ctx().vorn_eq_stream_dydi(&long_res.vec, &a->vec, &b->vec, nullptr);
    EXPECT_EQ(long_res.bv[0] & 3, 1u);
}

TEST(EqStream, DifferentLayoutsAreRefused) {
    for (ub4 la : kValueLayouts) {
        for (ub4 lb : kValueLayouts) {
            if (la == lb) continue;
            auto a = value_column({{1}}, la), b = value_column({{1}}, lb);
            Result res(1, 0x55);
            res.vec.num_ones = 7;
            EXPECT_EQ(ctx().vorn_eq_stream_dydi(&res.vec, &a->vec, &b->vec, nullptr), 2u);
            EXPECT_EQ(res.bv[0], 0x55u);
            EXPECT_EQ(res.vec.num_ones, 7u);
        }
    }
    auto a = value_column({{1}}, VORN_PACKED), b = value_column({{1}}, VORN_PACKED);
    Result res(1);
    EXPECT_EQ(ctx().vorn_eq_stream_dydi(&res.vec, &a->vec, &b->vec, nullptr), 2u);
}

TEST(EqStream, FirstLayoutBothColumnsHaveIsTaken) {
    // a carries VORN_LV besides its pointer layout; b has only the pointers.
    auto a = value_column({{1, 2}, {3}}, VORN_PTR_LEN, VORN_LV), b = value_column({{1, 2}, {4}}, VORN_PTR_LEN);
    Result res(2, 0);
    EXPECT_EQ(ctx().vorn_eq_stream_dydi(&res.vec, &a->vec, &b->vec, nullptr), 0u);
    EXPECT_EQ(res.bv[0] & 3, 1u);
}

}  // namespace
