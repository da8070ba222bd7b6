// Top-K: vorn_vector_topk_dydi against two models.  The first says what
// any correct answer is: the K best distances of the walk, ascending (NaN
// worst, of NaNs the larger row worse), and the rows better than the cut.
// The second is the exact heap with its pop-then-push
// replacement and its sorting pops, which also fixes where equal distances
// stand inside the list.  Over K larger than the rows, K of 1, many ties,
// several NaNs, the three selections, results in both forms, flexible
// columns with faulty rows, and the shape codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "support/distance_model.h"
#include "support/fold_c.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;
using namespace vorntest::vec;

struct Entry {
    ub4 row;
    double d;
};

bool worse(const Entry &x, const Entry &y) {
    if (std::isnan(x.d) && std::isnan(y.d)) return x.row > y.row;
    if (std::isnan(x.d)) return true;
    if (std::isnan(y.d)) return false;
    return x.d > y.d;
}

// The exact heap, as a plain array.
struct HeapModel {
    std::vector<Entry> h;
    std::size_t k;
    void up(std::size_t i, Entry e) {
        while (i > 0 && worse(e, h[(i - 1) / 2])) {
            h[i] = h[(i - 1) / 2];
            i = (i - 1) / 2;
        }
        h[i] = e;
    }
    void pop(std::size_t n) {
        Entry saved = h[n - 1];
        h[n - 1] = h[0];
        std::size_t m = n - 1, i = 0;
        while (2 * i + 2 < m) {
            std::size_t c = worse(h[2 * i + 1], h[2 * i + 2]) ? 2 * i + 1 : 2 * i + 2;
            h[i] = h[c];
            i = c;
        }
        if (2 * i + 1 < m) {
            h[i] = h[2 * i + 1];
            i = 2 * i + 1;
        }
        if (m > 0) up(i, saved);
    }
    void offer(Entry e) {
        if (h.size() < k) {
            h.push_back(e);
            up(h.size() - 1, e);
            return;
        }
        if (!worse(h[0], e)) return;
        if (h.size() == 1) {
            h[0] = e;
            return;
        }
        pop(h.size());
        up(h.size() - 1, e);
    }
    void sort() {
        for (std::size_t n = h.size(); n > 1; --n) pop(n);
    }
};

// Any correct answer: the best K, ascending (of equals, the earliest first).
std::vector<Entry> best_k(std::vector<Entry> seen, std::size_t k) {
    std::stable_sort(seen.begin(), seen.end(), [](const Entry &a, const Entry &b) { return worse(b, a); });
    if (seen.size() > k) seen.resize(k);
    return seen;
}

// A column of one-element native float rows.  Against the query {0}, a
// column of one such row, metric 2 gives each row's square.
struct FloatColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<float> values;
    std::vector<const void *> ptrs;
    explicit FloatColumn(std::vector<float> v) : values(std::move(v)) {
        enc.flags = VORN_VEC_COLUMN | VORN_NATIVE_FP;
        enc.elem_type = 1;
        enc.vec_dim = 1;
        for (auto &x : values) ptrs.push_back(&x);
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(values.size());
        vec.data = ptrs.data();
    }
};

// Rows with few distinct distances (many ties) and NaNs.
std::vector<float> tie_values(std::mt19937_64 &rng, std::size_t n, unsigned distinct, unsigned nan_every) {
    std::vector<float> values(n);
    for (auto &v : values)
        v = nan_every && rng() % nan_every == 0 ? std::numeric_limits<float>::quiet_NaN()
                                               : static_cast<float>(rng() % distinct);
    return values;
}

// The model's distances of the walked rows, each against the query (row r
// of `left` when paired).
std::vector<Entry> seen_rows(const std::vector<ub4> &rows, const UnifColumn &left, const UnifColumn &right,
                             unsigned elem, unsigned dim, unsigned metric, bool paired = false) {
    std::vector<Entry> seen;
    for (ub4 r : rows) seen.push_back({r, model_for(elem, elem, left.rows[paired ? r : 0], right.rows[r], dim, metric)});
    return seen;
}

struct TopKResult {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<vorn_topk_entry> entries;
    TopKResult(ub4 k, bool c_form) : entries(k + 1, vorn_topk_entry{0xdeadu, 0, -1.0}) {
        enc.flags = c_form ? 0 : VORN_NATIVE_FP;
        vec.enc_ctx = &enc;
        vec.data = entries.data();
        vec.size = k;
    }
    double distance(std::size_t i) const {
        if (VORN_ENC_CTX_FLAG(&enc, VORN_NATIVE_FP)) return entries[i].distance;
        ub8 v;
        std::memcpy(&v, &entries[i].distance, 8);
        return c_dec64(v);
    }
};

void check(const TopKResult &res, const std::vector<Entry> &seen, std::size_t k) {
    HeapModel heap{{}, k};
    for (const auto &e : seen) heap.offer(e);
    heap.sort();
    const auto best = best_k(seen, k);
    ASSERT_EQ(res.vec.size, best.size());
    ASSERT_EQ(heap.h.size(), best.size());
    for (std::size_t i = 0; i < best.size(); ++i) {
        ASSERT_EQ(res.entries[i].row, heap.h[i].row) << "entry " << i;
        ASSERT_TRUE(same_bits(res.distance(i), heap.h[i].d)) << "entry " << i;
        // The same set as any correct answer, in ascending order.
        ASSERT_TRUE(same_bits(res.distance(i), best[i].d)) << "entry " << i;
    }
    // The rows better than the cut are those of any correct answer; at the
    // cut the replacements' pops decide which of the equal rows stay.
    if (best.empty()) return;
    const Entry cut = best.back();
    std::vector<ub4> a, b;
    for (std::size_t i = 0; i < best.size(); ++i) {
        if (worse(cut, Entry{res.entries[i].row, res.distance(i)})) a.push_back(res.entries[i].row);
        if (worse(cut, best[i])) b.push_back(best[i].row);
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    ASSERT_EQ(a, b);
    ASSERT_EQ(res.entries[best.size()].row, 0xdeadu);
}

TEST(VectorTopK, TiesNaNsAndEveryK) {
    std::mt19937_64 rng(41);
    FloatColumn query({0.0f});
    for (unsigned trial = 0; trial < 300; ++trial) {
        const std::size_t n = 1 + rng() % 300;
        FloatColumn col(tie_values(rng, n, 1 + static_cast<unsigned>(rng() % 12), trial % 3 == 0 ? 0 : 1 + rng() % 6));
        const ub4 k = static_cast<ub4>(trial % 5 == 0 ? 1 : trial % 5 == 1 ? n + 5 : 1 + rng() % n);
        TopKResult res(k, rng() % 2);
        ASSERT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &col.vec, &query.vec, 2, 0, nullptr, nullptr), 0u);
        std::vector<Entry> seen;
        for (ub4 r = 0; r < n; ++r) seen.push_back({r, double(col.values[r]) * double(col.values[r])});
        SCOPED_TRACE(testing::Message() << "trial " << trial << " n " << n << " k " << k);
        check(res, seen, k);
    }
}

// The small cases by hand: equal distances arriving after the heap is full
// are refused, so the earlier rows stay; NaNs come last by ascending row;
// K of 1 keeps the smallest.
TEST(VectorTopK, SmallCasesByHand) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    auto run = [](std::vector<float> values, ub4 k) {
        FloatColumn col(std::move(values)), query({0.0f});
        TopKResult res(k, false);
        EXPECT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &col.vec, &query.vec, 2, 0, nullptr, nullptr), 0u);
        std::vector<ub4> rows;
        for (ub4 i = 0; i < res.vec.size; ++i) rows.push_back(res.entries[i].row);
        return rows;
    };
    EXPECT_EQ(run({1, 2, 2, 2, 2}, 3), (std::vector<ub4>{0, 2, 1}));  // the sorting pops order the equal ones
    EXPECT_EQ(run({nan, 3, nan, 1, nan}, 5), (std::vector<ub4>{3, 1, 0, 2, 4}));
    EXPECT_EQ(run({nan, nan, nan, 5}, 2), (std::vector<ub4>{3, 0}));
    EXPECT_EQ(run({4, 3, 5, 1, 2}, 1), (std::vector<ub4>{3}));
    EXPECT_EQ(run({4, 3}, 7), (std::vector<ub4>{1, 0}));
}

TEST(VectorTopK, SelectionsWalkEveryRowLeft) {
    std::mt19937_64 rng(42);
    for (unsigned elem : {unsigned(kFloat), unsigned(kCFloat), unsigned(kInt8), UnifColumn::kBits})
        for (unsigned kind = 0; kind < 3; ++kind)
            for (unsigned paired = 0; paired < 2; ++paired)
                for (unsigned trial = 0; trial < 6; ++trial) {
                    const unsigned dim = 1 + static_cast<unsigned>(rng() % 20);
                    const ub4 n = 1 + static_cast<ub4>(rng() % 900);
                    UnifColumn right(elem, dim, n, rng), left(elem, dim, paired ? n : 1, rng);
                    RowSelection sel(rng, kind, n, 0.4, 2, n);
                    vorn_kernel_ctx &k = sel.k;
                    const vorn_kernel_ctx before = k;
                    const auto rows = walked_rows(k, n, ~ub8{0});
                    const ub4 K = static_cast<ub4>(1 + rng() % 12);
                    TopKResult res(K, rng() % 2);
                    const unsigned metric = elem == UnifColumn::kBits ? 8 : 2;
                    ASSERT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &right.vec, &left.vec, metric, 0, &k, nullptr), 0u);
                    check(res, seen_rows(rows, left, right, elem, dim, 2, paired), K);
                    EXPECT_EQ(k.row_pos, cursor_after(before, rows));
                }
}

// The single-query walks of float and int8 euclid and of bit hamming test
// each distance against the heap's cut before offering it.  Over rows drawn
// from a small pool (many ties at the cut), NaN rows, the widths that the
// walks treat apart (128-bit rows, groups of four floats with and without
// a tail), both euclid metrics, and a selection that splits the groups of
// eight across batches, the result is still the exact heap's.
TEST(VectorTopK, OffersBelowTheCutOnlyChangeNothing) {
    std::mt19937_64 rng(44);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (unsigned elem : {unsigned(kFloat), unsigned(kInt8), UnifColumn::kBits})
        for (unsigned dim : {1u, 4u, 8u, 13u, 64u, 128u, 136u})
            for (unsigned trial = 0; trial < 4; ++trial) {
                const ub4 n = 1 + static_cast<ub4>(rng() % 700);
                UnifColumn right(elem, dim, n, rng), left(elem, dim, 1, rng);
                const ub4 pool = 1 + static_cast<ub4>(rng() % 8);
                for (ub4 r = pool; r < n; ++r) {
                    right.rows[r] = right.rows[rng() % pool];
                    if (elem == kFloat && rng() % 16 == 0) put(right.rows[r], elem, unsigned(rng() % dim), nan);
                    right.ptrs[r] = right.rows[r].data();
                }
                std::vector<ub8> bits = random_bits(rng, n, 0.7);
                vorn_kernel_ctx k{};
                if (trial % 2) k.bv_aux = bits.data();
                const auto rows = walked_rows(k, n, ~ub8{0});
                const ub4 K = trial == 0 ? 1 : static_cast<ub4>(1 + rng() % 12);
                TopKResult res(K, false);
                const unsigned metric = elem == UnifColumn::kBits ? 8 : 1 + trial % 2;
                SCOPED_TRACE(testing::Message() << "elem " << elem << " dim " << dim << " n " << n << " K " << K);
                ASSERT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &right.vec, &left.vec, metric, 0, &k, nullptr), 0u);
                check(res, seen_rows(rows, left, right, elem, dim, metric), K);
            }
}

// With no selection the single-query walks take every row from the cursor
// as one run, eight rows a group, prefetching sixteen rows ahead (float
// rows: the group four groups on): run lengths and cursors around those
// counts (a run shorter than a group, a partial last group, a run ending
// inside either prefetch distance), with and without a context, give the
// exact heap's result and the cursor behind the run.
TEST(VectorTopK, RunsFromTheCursorAroundGroupsAndPrefetch) {
    std::mt19937_64 rng(45);
    const ub4 lengths[] = {1, 2, 7, 8, 9, 15, 16, 17, 23, 24, 25, 31, 32, 33, 39, 40, 41, 47, 48, 49, 257};
    for (unsigned elem : {unsigned(kFloat), unsigned(kInt8), UnifColumn::kBits})
        for (unsigned dim : {4u, 13u, 128u})
            for (ub4 len : lengths) {
                const bool with_ctx = rng() % 3 != 0;
                const ub4 from = with_ctx ? static_cast<ub4>(rng() % 12) : 0;
                const ub4 n = from + len;
                UnifColumn right(elem, dim, n, rng), left(elem, dim, 1, rng);
                vorn_kernel_ctx k{};
                k.row_pos = from;
                const auto rows = walked_rows(k, n, ~ub8{0});
                const ub4 K = static_cast<ub4>(1 + rng() % 12);
                TopKResult res(K, rng() % 2);
                const unsigned metric = elem == UnifColumn::kBits ? 8 : 1 + rng() % 2;
                SCOPED_TRACE(testing::Message() << "elem " << elem << " dim " << dim << " from " << from << " len "
                                                << len << " K " << K);
                ASSERT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &right.vec, &left.vec, metric, 0,
                                                      with_ctx ? &k : nullptr, nullptr),
                          0u);
                check(res, seen_rows(rows, left, right, elem, dim, metric), K);
                if (with_ctx) {
                    EXPECT_EQ(k.row_pos, n);
                }
            }
}

TEST(VectorTopK, FlexibleRowsWithFaultsTakeNoPlace) {
    std::mt19937_64 rng(43);
    for (unsigned trial = 0; trial < 20; ++trial) {
        const unsigned dim = 1 + static_cast<unsigned>(rng() % 10);
        const ub4 n = 1 + static_cast<ub4>(rng() % 200);
        FlexColumn col(rng, n, dim, true, true), query(rng, 1, dim, false, false);
        const ub4 K = 1 + static_cast<ub4>(rng() % 15);
        TopKResult res(K, false);
        ASSERT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &col.vec, &query.vec, 2, 0, nullptr, nullptr), 0u);
        std::vector<Entry> seen;
        for (ub4 r = 0; r < n; ++r)
            if (col.good(r) && col.dims(r) == dim)
                seen.push_back({r, euclid_model(query.forms[0], col.forms[r], query.bodies[0], col.bodies[r], dim, 2)});
        check(res, seen, K);
    }
}

TEST(VectorTopK, ShapeCodes) {
    std::mt19937_64 rng(44);
    UnifColumn three(kFloat, 4, 3, rng), two(kFloat, 4, 2, rng);
    TopKResult res(4, false);
    EXPECT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &two.vec, &three.vec, 2, 0, nullptr, nullptr), 2u);
    EXPECT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &three.vec, &three.vec, 9, 0, nullptr, nullptr), 24u);
    three.enc.flags |= VORN_VEC_FLEX;
    EXPECT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &three.vec, &two.vec, 2, 0, nullptr, nullptr), 2u);
    UnifColumn one(kFloat, 4, 1, rng);
    EXPECT_EQ(ctx().vorn_vector_topk_dydi(&res.vec, &three.vec, &one.vec, 2, 0, nullptr, nullptr), 24u);
}

}  // namespace
