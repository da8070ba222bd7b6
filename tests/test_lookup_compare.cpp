// vorn_lookup_and_compare_dydi against a model of this test's own: every
// operation with and without each look-up table, row_pos shortening the
// loop from the start, bits only ever set, and the operations that match
// nothing.
#include <gtest/gtest.h>

#include "support/test_host.h"

namespace {

using namespace vorntest;

bool model_holds(unsigned op, ub4 x, ub4 y) {
    switch (op) {
        case 0: return x == y;
        case 1: return x < y;
        case 2: return x > y;
        case 3: return x <= y;
        case 4: return x >= y;
        case 5: return x != y;
    }
    return false;
}

struct Columns {
    std::vector<ub4> x, y, map1, map2;
    vorn_vec src{};
};

TEST(LookupAndCompare, EveryOperationAndTableAgainstTheModel) {
    std::mt19937_64 rng(81);
    for (ub4 n : {0u, 1u, 63u, 64u, 65u, 500u}) {
        for (unsigned op = 0; op < 9; ++op) {
            for (int tables = 0; tables < 4; ++tables) {
                Columns c;
                c.x.resize(n);
                c.y.resize(n);
                for (auto &v : c.x) v = static_cast<ub4>(rng() % 16);
                for (auto &v : c.y) v = static_cast<ub4>(rng() % 16);
                c.map1.resize(16);
                c.map2.resize(16);
                for (auto &v : c.map1) v = static_cast<ub4>(rng() % 6);
                for (auto &v : c.map2) v = static_cast<ub4>(rng() % 6);
                c.src.data = c.x.data();
                c.src.size = n;
                const ub4 *second = c.y.data(), *m1 = c.map1.data(), *m2 = c.map2.data();
                const ub1 form = static_cast<ub1>(op), *form_ptr = &form;
                const ub4 skip = n ? static_cast<ub4>(rng() % (n + 1)) : 0;
                // Bits already set stay set.
                const auto before = random_bits(rng, n, 0.1);
                Result res(n, 0);
                for (ub8 w = 0; w < (n + 63) / 64; ++w) res.bv[w] = before[w];
                TestHost host;
                vorn_kernel_ctx k = host.kctx();
                k.row_pos = skip;
                const ub8 code = ctx().vorn_lookup_and_compare_dydi(&res.vec, &c.src, &second, tables & 1 ? &m1 : nullptr,
                                                                    tables & 2 ? &m2 : nullptr, &form_ptr, &k);
                EXPECT_EQ(code, 0u);
                ub8 count = 0;
                for (ub4 i = 0; i < n; ++i) {
                    bool hit = false;
                    if (i < n - skip) {
                        const ub4 x = tables & 1 ? c.map1[c.x[i]] : c.x[i];
                        const ub4 y = tables & 2 ? c.map2[c.y[i]] : c.y[i];
                        hit = model_holds(op, x, y);
                    }
                    count += hit;
                    ASSERT_EQ(res.bit(i), hit || vornhost::test_bit(before.data(), i))
                        << "n " << n << " op " << op << " tables " << tables << " row " << i;
                }
                EXPECT_EQ(res.vec.num_ones, count);
                EXPECT_TRUE(res.guard_intact());
            }
        }
    }
}

TEST(LookupAndCompare, OperationSevenMatchesNothing) {
    std::vector<ub4> x = {1, 2, 3}, y = {1, 2, 3};
    vorn_vec src{};
    src.data = x.data();
    src.size = 3;
    const ub4 *second = y.data();
    const ub1 form = 7, *form_ptr = &form;
    Result res(3, 0);
    res.vec.num_ones = 5;
    EXPECT_EQ(ctx().vorn_lookup_and_compare_dydi(&res.vec, &src, &second, nullptr, nullptr, &form_ptr, nullptr), 0u);
    EXPECT_EQ(res.bv[0], 0u);
    EXPECT_EQ(res.vec.num_ones, 0u);
}

TEST(LookupAndCompare, ANullTableInItsCellIsNoTable) {
    std::vector<ub4> x = {1, 2}, y = {1, 3};
    vorn_vec src{};
    src.data = x.data();
    src.size = 2;
    const ub4 *second = y.data(), *none = nullptr;
    const ub1 form = 0, *form_ptr = &form;
    Result res(2, 0);
    ctx().vorn_lookup_and_compare_dydi(&res.vec, &src, &second, &none, &none, &form_ptr, nullptr);
    EXPECT_EQ(res.bv[0], 1u);
}

}  // namespace
