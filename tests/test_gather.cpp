// The three gathers against a model of this test's own: stores built by the
// library's transposes from random columns of every source layout, fetched
// back by random ids of every id form into every result layout; calls
// resumed under random small rooms that must give the rows of one call;
// the plain copy; the refusals and the edge cases of room and columns.
#include <gtest/gtest.h>

#include <functional>

#include "support/row_store.h"

namespace {

using namespace vorntest;

constexpr ub4 kIdWidths[] = {1, 2, 4, 8, 16};
constexpr ub4 kVariableResults[] = {VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR};
constexpr ub4 kLowBits[] = {2, 5, 64};

// What a call fetches of a row: every column, one, or a list.
struct Fetch {
    enum Kind { kAll, kOne, kList } kind = kAll;
    ub4 col = 0;
    std::vector<ub2> list;
    std::vector<ub4> columns(ub4 num_cols) const {
        if (kind == kOne) return {col};
        if (kind == kList) return {list.begin(), list.end()};
        std::vector<ub4> all(num_cols);
        for (ub4 c = 0; c < num_cols; ++c) all[c] = c;
        return all;
    }
};

std::vector<Value> model(const Table &t, const std::vector<ub4> &rows, const std::vector<ub4> &columns) {
    std::vector<Value> out;
    for (ub4 r : rows)
        for (ub4 c : columns) out.push_back(t.at(r, c));
    return out;
}

using Call = std::function<ub8(vorn_vec *res, vorn_kernel_ctx *k)>;

Call gather_call(vorn_vec *src, const vorn_gather_spec *spec, const Fetch &f) {
    return [=](vorn_vec *res, vorn_kernel_ctx *k) -> ub8 {
        switch (f.kind) {
            case Fetch::kAll: return ctx().vorn_gather_dydi(res, src, spec, k);
            case Fetch::kOne: return ctx().vorn_gather_one_col_dydi(res, src, spec, k, f.col);
            case Fetch::kList:
                return ctx().vorn_gather_cols_dydi(res, src, f.list.data(), static_cast<ub4>(f.list.size()), spec, k);
        }
        return 99;
    };
}

// A result's values; a VORN_FIXED result is cut by the lengths its values
// have in turn, `lens` repeating row after row.
std::vector<Value> read_result(const ValueColumn &res, const std::vector<ub4> &lens) {
    if (!(res.enc.flags & VORN_FIXED)) return copied_values(res);
    std::vector<Value> out;
    ub8 at = 0;
    for (ub4 k = 0; k < res.vec.size; ++k) {
        const ub4 len = lens[k % lens.size()];
        out.emplace_back(res.data.data() + at, res.data.data() + at + len);
        at += len;
    }
    EXPECT_EQ(at, res.vec.byte_capacity);
    return out;
}

struct Gathered {
    std::vector<Value> values;
    ub4 calls = 0;
};

// Calls until 0, each time into a fresh result of the layout with a room of
// room() bytes (doubled while a call makes no progress).  Keeps the whole
// rows of each call: the values of a row cut by 19 are dropped, since the
// next call begins that row again.
Gathered run_resumed(const Call &call, ub4 layout, ub4 per_row, const std::vector<ub4> &lens,
                const std::function<ub8()> &room) {
    Gathered run;
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    ub8 boost = 0;
    for (;;) {
        const ub8 cap = room() + boost;
        auto res = result_column(layout, 1024, cap, 1);
        res->data.resize(cap + 16);  // every layout writes its bytes at data
        res->vec.data = res->data.data();
        const ub4 from = k.row_pos;
        const ub8 code = call(&res->vec, &k);
        ++run.calls;
        if (code != 0 && code != 19) {
            ADD_FAILURE() << "code " << code;
            return run;
        }
        EXPECT_LE(res->vec.byte_capacity, cap);
        auto got = read_result(*res, lens);
        const ub8 whole = ub8{k.row_pos - from} * per_row;
        if (code == 0) {
            EXPECT_EQ(got.size(), whole);
        } else {
            EXPECT_GE(got.size(), whole);
            EXPECT_LT(got.size(), whole + std::max<ub4>(per_row, 1));
        }
        got.resize(std::min<ub8>(got.size(), whole));
        run.values.insert(run.values.end(), got.begin(), got.end());
        if (code == 0) return run;
        boost = k.row_pos == from ? std::max<ub8>(2 * boost, 16) : 0;
        if (run.calls > 200000) {
            ADD_FAILURE() << "no end";
            return run;
        }
    }
}

std::vector<ub4> random_rows(std::mt19937_64 &rng, ub4 table_rows, ub4 n) {
    std::vector<ub4> rows;
    if (table_rows == 0) return rows;
    for (ub4 i = 0; i < n; ++i) rows.push_back(static_cast<ub4>(rng() % table_rows));
    return rows;
}

Fetch random_fetch(std::mt19937_64 &rng, ub4 num_cols, int kind) {
    Fetch f;
    f.kind = static_cast<Fetch::Kind>(kind);
    f.col = static_cast<ub4>(rng() % num_cols);
    const ub4 len = static_cast<ub4>(rng() % 7);
    for (ub4 i = 0; i < len; ++i) f.list.push_back(static_cast<ub2>(rng() % num_cols));
    return f;
}

std::string describe(const std::string &store, ub4 low_bit, ub4 id_width, ub4 layout, int fetch) {
    return store + " low_bit " + std::to_string(low_bit) + " ids " + std::to_string(id_width) + " res " +
           layout_name(layout) + " fetch " + std::to_string(fetch);
}

// One gather with room enough, checked against the model, then again with
// random small rooms, which must give the same values.
void check_gather(std::mt19937_64 &rng, const Table &t, const vorn_gather_spec &spec, ub4 id_width, ub4 layout,
                  const Fetch &f, const std::vector<ub4> &per_value_lens, const std::string &what) {
    SCOPED_TRACE(what);
    const auto rows = random_rows(rng, t.rows, static_cast<ub4>(rng() % 90));
    // Noise above high_bit must not reach page or slot.  In one page the
    // slot is the id's low 32 bits, so the noise starts above them.
    const ub4 id_bits = id_width == 16 ? 64 : 8 * id_width;
    ub4 high_bit = id_bits - 1;
    if (spec.low_bit >= 64) {
        if (id_bits == 64) high_bit = 31;
    } else if (id_width > 1) {
        high_bit = std::max<ub4>(needed_high_bit(t.rows), spec.low_bit) + static_cast<ub4>(rng() % 3);
    }
    vorn_gather_spec s = spec;
    s.high_bit = static_cast<ub1>(std::min<ub4>(high_bit, 63));
    auto ids = id_column(rows, id_width, s.high_bit, rng);
    const auto columns = f.columns(static_cast<ub4>(t.cols.size()));
    const auto want = model(t, rows, columns);
    std::vector<ub4> lens;
    for (ub4 c : columns) lens.push_back(per_value_lens.empty() ? 0 : per_value_lens[c]);
    if (lens.empty()) lens.push_back(0);
    const Call call = gather_call(&ids->vec, &s, f);
    const ub4 per_row = static_cast<ub4>(columns.size());
    ub8 enough = 16;
    for (const auto &v : want) enough += v.size() + 10;
    const Gathered one = run_resumed(call, layout, per_row, lens, [&] { return enough; });
    EXPECT_EQ(one.calls, 1u);
    EXPECT_TRUE(one.values == want);
    const ub8 max_room = 1 + rng() % 64;
    const Gathered resumed = run_resumed(call, layout, per_row, lens, [&] { return rng() % max_room; });
    EXPECT_TRUE(resumed.values == want) << "room below " << max_room;
}

TEST(Gather, VariableStoresRoundTripThroughEveryIdAndResultLayout) {
    std::mt19937_64 rng(811);
    const ub4 kStores[] = {VORN_STORE_REFS, VORN_STORE_REFS | VORN_STORE_LEN_FIELDS,
                           VORN_STORE_REFS | VORN_STORE_OFFSETS, VORN_STORE_OFFSETS};
    for (ub4 flags : kStores) {
        for (ub4 low_bit : kLowBits) {
            const ub4 rows = static_cast<ub4>(rng() % 200);
            const ub4 cols = 1 + static_cast<ub4>(rng() % 4);
            const Table t = random_table(rng, rows, cols);
            auto store = reference_store(t, flags, low_bit);
            ASSERT_TRUE(convert_blocks(*store, t));
            for (ub4 width : kIdWidths) {
                if (width == 1 && rows > 256) continue;
                for (ub4 layout : kVariableResults) {
                    for (int kind = 0; kind < 3; ++kind)
                        check_gather(rng, t, store->gspec, width, layout, random_fetch(rng, cols, kind), {},
                                     describe("store " + std::to_string(flags), low_bit, width, layout, kind));
                }
            }
        }
    }
}

TEST(Gather, FixedStoresRoundTripIntoFixedAndPointerResults) {
    std::mt19937_64 rng(812);
    for (ub4 low_bit : kLowBits) {
        for (int round = 0; round < 3; ++round) {
            const ub4 rows = static_cast<ub4>(rng() % 200);
            const Table t = random_table(rng, rows, 1 + static_cast<ub4>(rng() % 4), true);
            auto store = fixed_store(t, low_bit, rng);
            const std::vector<ub4> lens(store->lens.begin(), store->lens.end());
            for (ub4 width : kIdWidths)
                for (ub4 layout : {VORN_FIXED, VORN_PTR_LEN})
                    for (int kind = 0; kind < 3; ++kind)
                        check_gather(rng, t, store->gspec, width, layout,
                                     random_fetch(rng, static_cast<ub4>(t.cols.size()), kind), lens,
                                     describe("fixed", low_bit, width, layout, kind));
        }
    }
}

// One reference per row: a row comes back as its values, each behind its
// length.  One offset per row: a table of one column.
TEST(Gather, OneValueRowsComeBackWhole) {
    std::mt19937_64 rng(813);
    for (ub4 low_bit : kLowBits) {
        const Table t = random_table(rng, 1 + static_cast<ub4>(rng() % 150), 3);
        auto store = reference_store(t, VORN_STORE_REFS | VORN_STORE_ONE_COL, low_bit);
        ASSERT_TRUE(convert_blocks(*store, t));
        const auto rows = random_rows(rng, t.rows, 70);
        auto ids = id_column(rows, 8, 63, rng);
        std::vector<Value> want;
        for (ub4 r : rows) {
            Value blob;
            for (const auto &c : t.cols) {
                const ub2 len = static_cast<ub2>(c.values[r].size());
                blob.push_back(static_cast<ub1>(len));
                blob.push_back(static_cast<ub1>(len >> 8));
                blob.insert(blob.end(), c.values[r].begin(), c.values[r].end());
            }
            want.push_back(blob);
        }
        for (ub4 layout : kVariableResults) {
            const Gathered run = run_resumed(gather_call(&ids->vec, &store->gspec, Fetch{}), layout, 1, {0},
                                        [&] { return rng() % 200; });
            EXPECT_TRUE(run.values == want) << layout_name(layout);
        }

        const Table one = random_table(rng, 1 + static_cast<ub4>(rng() % 150), 1);
        auto offsets = reference_store(one, VORN_STORE_OFFSETS, low_bit);
        ASSERT_TRUE(convert_blocks(*offsets, one));
        offsets->gspec.flags |= VORN_STORE_ONE_COL;
        const auto rows1 = random_rows(rng, one.rows, 50);
        auto ids1 = id_column(rows1, 4, 31, rng);
        const Gathered run = run_resumed(gather_call(&ids1->vec, &offsets->gspec, Fetch{}), VORN_LV, 1, {0},
                                    [] { return ub8{1} << 16; });
        EXPECT_TRUE(run.values == model(one, rows1, {0}));
    }
}

TEST(Gather, PlainCopyOfPointerColumnsResumes) {
    std::mt19937_64 rng(815);
    for (ub4 layout : {VORN_PTR_LEN, VORN_LEN_PTR}) {
        for (ub4 n : {0u, 1u, 31u, 32u, 33u, 100u}) {
            std::vector<Value> values;
            for (ub4 i = 0; i < n; ++i) values.push_back(random_length_value(rng, 30));
            auto src = value_column(values, layout);
            const Call call = [&](vorn_vec *res, vorn_kernel_ctx *k) {
                return ctx().vorn_gather_dydi(res, &src->vec, nullptr, k);  // no store is read
            };
            EXPECT_TRUE(run_resumed(call, VORN_LV_SEP, 1, {0}, [] { return ub8{1} << 16; }).values == values);
            EXPECT_TRUE(run_resumed(call, VORN_LV_SEP, 1, {0}, [&] { return rng() % 40; }).values == values);
        }
    }
}

// ---- Edge cases ------------------------------------------------------------------

struct Small {
    Table t;
    std::unique_ptr<VarStore> store;
    std::unique_ptr<IdColumn> ids;
    TestHost host;
    vorn_kernel_ctx k{};
    Small(std::vector<std::vector<std::size_t>> lens_by_row, std::vector<ub4> rows, ub4 flags = VORN_STORE_REFS) {
        t.rows = static_cast<ub4>(lens_by_row.size());
        const std::size_t cols = lens_by_row.empty() ? 1 : lens_by_row[0].size();
        for (std::size_t c = 0; c < cols; ++c) {
            TableColumn col{VORN_LV_SEP, {}};
            for (const auto &row : lens_by_row) col.values.push_back(Value(row[c], static_cast<ub1>(c + 1)));
            t.cols.push_back(std::move(col));
        }
        store = reference_store(t, flags, 64);
        EXPECT_TRUE(convert_blocks(*store, t));
        std::mt19937_64 rng(1);
        ids = id_column(rows, 4, 31, rng);
        k = host.kctx();
    }
    ub8 gather(ValueColumn &res) { return ctx().vorn_gather_dydi(&res.vec, &ids->vec, &store->gspec, &k); }
};

TEST(GatherEdges, RoomIsTestedPerValueBeforeTheCopy) {
    // A value of length 0 needs no room in VORN_LV_SEP.
    Small zero({{0}, {5}}, {0, 0, 1});
    auto res = result_column(VORN_LV_SEP, 8, 0);
    EXPECT_EQ(zero.gather(*res), 19u);
    EXPECT_EQ(zero.k.row_pos, 2u);
    EXPECT_EQ(res->vec.size, 2u);
    EXPECT_EQ(res->vec.byte_capacity, 0u);

    // Exactly the value's length left takes it; the next value does not fit.
    Small exact({{4}, {1}}, {0, 1});
    res = result_column(VORN_LV_SEP, 8, 4);
    EXPECT_EQ(exact.gather(*res), 19u);
    EXPECT_EQ(exact.k.row_pos, 1u);
    EXPECT_EQ(res->vec.size, 1u);
    EXPECT_EQ(res->vec.byte_capacity, 4u);

    // The references take 8 and 10 bytes of room.
    for (ub4 layout : {VORN_PTR_LEN, VORN_LEN_PTR}) {
        const ub8 each = layout == VORN_PTR_LEN ? 8 : 10;
        Small refs({{3}, {3}}, {0, 1});
        res = result_column(layout, 8, 2 * each - 1);
        EXPECT_EQ(refs.gather(*res), 19u);
        EXPECT_EQ(res->vec.size, 1u);
        EXPECT_EQ(res->vec.byte_capacity, each);
    }
}

TEST(GatherEdges, ACutRowKeepsItsEarlierValuesAndBeginsAgain) {
    // 3 columns, room for 2 values: 19 at that row with 2 values written.
    Small three({{2, 2, 2}, {2, 2, 2}}, {1, 0});
    auto res = result_column(VORN_LV_SEP, 8, 5);
    EXPECT_EQ(three.gather(*res), 19u);
    EXPECT_EQ(three.k.row_pos, 0u);
    EXPECT_EQ(res->vec.size, 2u);
    res = result_column(VORN_LV_SEP, 8, 100);
    EXPECT_EQ(three.gather(*res), 0u);
    EXPECT_EQ(three.k.row_pos, 2u);
    EXPECT_EQ(res->vec.size, 6u);
}

TEST(GatherEdges, EmptySourcesAndEmptyListsFinish) {
    Small s({{1, 2}, {3, 4}}, {});
    auto res = result_column(VORN_LV, 8, 100);
    EXPECT_EQ(s.gather(*res), 0u);
    EXPECT_EQ(res->vec.size, 0u);

    Small rows({{1, 2}, {3, 4}}, {1, 0, 1});
    res = result_column(VORN_LV, 8, 100);
    EXPECT_EQ(ctx().vorn_gather_cols_dydi(&res->vec, &rows.ids->vec, nullptr, 0, &rows.store->gspec, &rows.k), 0u);
    EXPECT_EQ(rows.k.row_pos, 3u);
    EXPECT_EQ(res->vec.size, 0u);
}

TEST(GatherEdges, RefusedLayoutsWriteNothing) {
    Small s({{1, 2}}, {0});
    auto res = result_column(VORN_LV_SEP, 8, 100);
    std::mt19937_64 rng(2);
    auto three = id_column({0}, 4, 31, rng);
    three->enc.bit_width = 24;  // ids of 3 bytes
    EXPECT_EQ(ctx().vorn_gather_dydi(&res->vec, &three->vec, &s.store->gspec, &s.k), 2u);
    three->enc.flags = VORN_LV;  // neither fixed ids nor records
    EXPECT_EQ(ctx().vorn_gather_one_col_dydi(&res->vec, &three->vec, &s.store->gspec, &s.k, 0), 2u);

    vorn_gather_spec none = s.store->gspec;
    none.flags = VORN_STORE_ONE_COL;
    EXPECT_EQ(ctx().vorn_gather_dydi(&res->vec, &s.ids->vec, &none, &s.k), 2u);

    auto fixed_res = result_column(VORN_FIXED, 8, 100, 1);
    EXPECT_EQ(ctx().vorn_gather_dydi(&fixed_res->vec, &s.ids->vec, &s.store->gspec, &s.k), 2u);
    vorn_gather_spec fixed = s.store->gspec;
    fixed.flags = VORN_STORE_FIXED;
    EXPECT_EQ(ctx().vorn_gather_dydi(&res->vec, &s.ids->vec, &fixed, &s.k), 2u);
    auto lv = result_column(VORN_LEN_PTR, 8, 100);
    const ub2 list[] = {0};
    EXPECT_EQ(ctx().vorn_gather_cols_dydi(&lv->vec, &s.ids->vec, list, 1, &fixed, &s.k), 2u);
    EXPECT_EQ(s.k.row_pos, 0u);
}

}  // namespace
