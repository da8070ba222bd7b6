// vorn_selective_dydi against a model of this test's own: every layout,
// selections by bit vector and by row list, copies resumed under row and
// byte limits that must give the rows of one call with room for all, the
// stop fields, the decreasing-list message, and refused layouts.
#include <gtest/gtest.h>

#include "support/kernel_checks_b.h"
#include "support/value_columns.h"

namespace {

using namespace vorntest;

constexpr ub4 kRowLayouts[] = {VORN_LEN_PTR, VORN_PTR_LEN, VORN_LV, VORN_LV_SEP, VORN_FIXED};

bool walked(ub4 layout) { return layout == VORN_LV || layout == VORN_LV_SEP; }

// The bytes a row takes at res.data in the walked layouts.
ub8 row_bytes(ub4 layout, const Value &v) { return layout == VORN_LV ? v.size() + 2 : v.size(); }

struct Selection {
    std::vector<ub8> bits;       // used when list is empty
    std::vector<ub4> list;
    bool by_list = false;
    std::vector<ub4> rows() const {
        if (by_list) return list;
        std::vector<ub4> r;
        for (ub4 i = 0; i < bits.size() * 64; ++i)
            if (vornhost::test_bit(bits.data(), i)) r.push_back(i);
        return r;
    }
};

// A context of `host` that selects the rows of `list`.
vorn_kernel_ctx listing(TestHost &host, const std::vector<ub4> &list) {
    static const ub4 no_entries[1] = {};  // an empty list is still a list
    vorn_kernel_ctx k = host.kctx();
    k.ones_vec = list.empty() ? no_entries : list.data();
    k.ones_vec_size = static_cast<ub4>(list.size());
    return k;
}

struct Outcome {
    std::vector<Value> rows;
    ub4 calls = 0;
    bool stuck = false;
};

// Calls until the entry returns 0, each time with a fresh result column of
// `room_rows` rows and `room_bytes` bytes, and gathers what was copied.
Outcome copy_all(const ValueColumn &src, ub4 layout, const Selection &sel, ub4 room_rows, ub8 room_bytes,
                 ub4 fixed_size) {
    Outcome out;
    TestHost host;
    vorn_kernel_ctx k = listing(host, sel.list);
    if (!sel.by_list) k = host.kctx(), k.bv_aux = sel.bits.data();
    for (;;) {
        auto res = result_column(layout, room_rows, room_bytes, fixed_size);
        const ub8 code = ctx().vorn_selective_dydi(&res->vec, const_cast<vorn_vec *>(&src.vec), &k);
        ++out.calls;
        EXPECT_TRUE(code == 0 || code == 23) << code;
        const auto got = copied_values(*res, fixed_size);
        out.rows.insert(out.rows.end(), got.begin(), got.end());
        if (walked(layout)) {
            ub8 bytes = 0;
            for (const auto &v : got) bytes += row_bytes(layout, v);
            EXPECT_EQ(res->vec.byte_capacity, bytes);
            EXPECT_LE(bytes, room_bytes);
        } else {
            EXPECT_EQ(res->vec.byte_capacity, room_bytes);  // not written
        }
        if (code == 0) break;
        if (out.calls > 100000) {
            out.stuck = true;
            break;
        }
    }
    return out;
}

TEST(Selective, ResumedCopiesGiveTheRowsOfOneCall) {
    std::mt19937_64 rng(71);
    for (ub4 layout : kRowLayouts) {
        for (ub4 n : {0u, 1u, 5u, 64u, 65u, 200u}) {
            for (int by_list = 0; by_list < 2; ++by_list) {
                const ub4 fixed_size = layout == VORN_FIXED ? 1 + rng() % 9 : 0;
                std::vector<Value> values(n);
                for (auto &v : values) v = fixed_size ? random_value(rng, fixed_size, fixed_size) : random_value(rng, 12);
                auto src = value_column(values, layout);
                Selection sel;
                sel.by_list = by_list;
                sel.bits = random_bits(rng, n, 0.4);
                if (by_list) {
                    for (ub4 i = 0; i < n; ++i)
                        if (rng() % 3 == 0) {
                            sel.list.push_back(i);
                            if (rng() % 8 == 0) sel.list.push_back(i);  // a repeated row is copied twice
                        }
                }
                std::vector<Value> want;
                for (ub4 r : sel.rows()) want.push_back(values[r]);
                const std::string what = std::string(layout_name(layout)) + " n " + std::to_string(n) +
                                         (by_list ? " list" : " bits");
                // One call with room for all.
                const ub8 all_bytes = 12 * 14 * (n + 1);
                const Outcome all = copy_all(*src, layout, sel, static_cast<ub4>(want.size()), all_bytes, fixed_size);
                EXPECT_EQ(all.calls, 1u) << what;
                EXPECT_EQ(all.rows, want) << what;
                // Row limits, byte limits, and both.
                std::vector<std::pair<ub4, ub8>> limits = {{1, all_bytes}, {2, all_bytes}, {7, all_bytes}};
                if (walked(layout))
                    for (ub8 bytes : {14ull, 15ull, 40ull}) limits.insert(limits.end(), {{1000, bytes}, {3, bytes}});
                for (const auto &[rows, bytes] : limits) {
                    const Outcome resumed = copy_all(*src, layout, sel, rows, bytes, fixed_size);
                    ASSERT_FALSE(resumed.stuck) << what;
                    EXPECT_EQ(resumed.rows, want) << what << " rows " << rows << " bytes " << bytes;
                }
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST(Selective, ByteLimitJustExceededStopsAtThatRow) {
    auto src = value_column({{1, 1, 1, 1, 1}, {2, 2, 2, 2, 2}, {3, 3}}, VORN_LV);
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    // Row 0 takes 7 bytes, row 1 another 7: 13 bytes hold one row only.
    auto res = result_column(VORN_LV, 10, 13);
    EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 23u);
    EXPECT_EQ(k.row_pos, 1u);
    EXPECT_EQ(k.byte_pos, 7u);
    EXPECT_EQ(res->vec.size, 1u);
    EXPECT_EQ(res->vec.byte_capacity, 7u);
    // A second call with more room copies that row first.
    auto more = result_column(VORN_LV, 10, 100);
    EXPECT_EQ(ctx().vorn_selective_dydi(&more->vec, &src->vec, &k), 0u);
    const auto got = copied_values(*more);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0], (Value{2, 2, 2, 2, 2}));
    EXPECT_EQ(got[1], (Value{3, 3}));
    EXPECT_EQ(k.row_pos, 3u);
    EXPECT_EQ(more->vec.byte_capacity, 11u);
}

TEST(Selective, ListWithNoRoomReturnsAtOnce) {
    for (ub4 layout : kRowLayouts) {
        auto src = value_column({{1}, {2}, {3}}, layout);
        const std::vector<ub4> list = {0, 2};
        TestHost host;
        vorn_kernel_ctx k = listing(host, list);
        auto res = result_column(layout, 0, 100, 1);
        EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 23u) << layout_name(layout);
        EXPECT_EQ(res->vec.size, 0u);
        EXPECT_EQ(k.row_pos, 0u);
        // Exactly as many rows as entries: done.
        auto fits = result_column(layout, 2, 100, 1);
        EXPECT_EQ(ctx().vorn_selective_dydi(&fits->vec, &src->vec, &k), 0u);
        EXPECT_EQ(fits->vec.size, 2u);
        EXPECT_EQ(k.row_pos, 2u);
    }
}

TEST(Selective, DecreasingListOverLvRaisesAtTheThirdEntry) {
    const std::vector<ub4> list = {3, 7, 5};
    // One call with the list {3, 7, 5}; returns the values copied.
    auto copy_listed = [&](const std::vector<Value> &values, ub4 layout, TestHost &host) {
        auto src = value_column(values, layout);
        vorn_kernel_ctx k = listing(host, list);
        auto res = result_column(layout, 10, 100);
        clear_raised();
        EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 0u);
        return copied_values(*res);
    };
    for (ub4 layout : {VORN_LV, VORN_LV_SEP}) {
        std::vector<Value> values;
        for (ub1 i = 0; i < 10; ++i) values.push_back(Value(i % 3 + 1, i));
        TestHost host;
        const auto got = copy_listed(values, layout, host);
        SCOPED_TRACE(layout_name(layout));
        const char *message = "vorn_selective found decreasing indices in ones_vec with LV or LV_SEP input";
        ASSERT_NO_FATAL_FAILURE(expect_one_raise(message));
        EXPECT_EQ(raised()[0].env, host.services.env);
        // The walk stayed at row 7 and copied it again.
        ASSERT_EQ(got.size(), 3u);
        EXPECT_EQ(got[0], values[3]);
        EXPECT_EQ(got[1], values[7]);
        EXPECT_EQ(got[2], values[7]);
        clear_raised();
    }
    // The pointer layouts have random access and say nothing.
    TestHost host;
    const auto got = copy_listed({{1}, {2}, {3}, {4}, {5}, {6}, {7}, {8}}, VORN_PTR_LEN, host);
    EXPECT_TRUE(raised().empty());
    EXPECT_EQ(got[2], (Value{6}));
}

// A stop right after an entry that went back leaves byte_pos at that entry's
// row, so that the next call's walk stands where row_pos says.
TEST(Selective, StopAfterADecreasingEntryResumesAtThatEntrysRow) {
    for (ub4 layout : {VORN_LV, VORN_LV_SEP}) {
        std::vector<Value> values;
        for (ub1 i = 0; i < 12; ++i) values.push_back(Value(i % 3 + 1, i));
        auto src = value_column(values, layout);
        const std::vector<ub4> list = {3, 7, 5, 9};
        TestHost host;
        vorn_kernel_ctx k = listing(host, list);
        clear_raised();
        auto first = result_column(layout, 2, 100);
        EXPECT_EQ(ctx().vorn_selective_dydi(&first->vec, &src->vec, &k), 23u);
        EXPECT_EQ(raised().size(), 1u);
        EXPECT_EQ(k.row_pos, 2u);
        ub8 offset_of_5 = 0;
        for (ub4 i = 0; i < 5; ++i) offset_of_5 += values[i].size() + (layout == VORN_LV ? 2 : 0);
        EXPECT_EQ(k.byte_pos, offset_of_5) << layout_name(layout);
        auto second = result_column(layout, 10, 100);
        EXPECT_EQ(ctx().vorn_selective_dydi(&second->vec, &src->vec, &k), 0u);
        const auto got = copied_values(*second);
        ASSERT_EQ(got.size(), 2u);
        EXPECT_EQ(got[0], values[5]) << layout_name(layout);
        EXPECT_EQ(got[1], values[9]) << layout_name(layout);
        clear_raised();
    }
}

TEST(Selective, BitVectorStopLeavesRowAndOffset) {
    auto src = value_column({{9}, {8, 8}, {7, 7, 7}, {6}}, VORN_LV_SEP);
    std::vector<ub8> bits = {0b1110};
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    k.bv_aux = bits.data();
    auto res = result_column(VORN_LV_SEP, 1, 100);
    EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 23u);
    EXPECT_EQ(k.row_pos, 2u);   // row 1 copied, row 2 did not fit
    EXPECT_EQ(k.byte_pos, 3u);  // 1 + 2 bytes before row 2
    EXPECT_EQ(res->vec.size, 1u);
    EXPECT_EQ(res->vec.byte_capacity, 2u);
}

TEST(Selective, LayoutsMustBeOnBothColumns) {
    for (ub4 ls : kRowLayouts) {
        for (ub4 lr : kRowLayouts) {
            if (ls == lr) continue;
            auto src = value_column({{1}}, ls);
            auto res = result_column(lr, 5, 50, 1);
            TestHost host;
            vorn_kernel_ctx k = host.kctx();
            k.row_pos = 0;
            EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 2u);
            EXPECT_EQ(res->vec.size, 5u);
            EXPECT_EQ(res->vec.byte_capacity, 50u);
        }
    }
    auto src = value_column({{1}}, VORN_LV);
    auto res = result_column(VORN_LV, 5, 50);
    res->vec.enc_ctx = nullptr;
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 2u);
}

TEST(Selective, NullBitVectorSelectsEveryRow) {
    auto src = value_column({{1}, {2, 2}, {3}}, VORN_LV);
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    auto res = result_column(VORN_LV, 10, 100);
    EXPECT_EQ(ctx().vorn_selective_dydi(&res->vec, &src->vec, &k), 0u);
    EXPECT_EQ(res->vec.size, 3u);
    EXPECT_EQ(k.row_pos, 3u);
    EXPECT_EQ(k.byte_pos, 10u);
}

}  // namespace
