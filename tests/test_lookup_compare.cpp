// vorn_lookup_and_compare_dydi against a model of this test's own: every
// operation with and without each look-up table (a null in a table's cell
// is no table), row_pos shortening the loop from the start, no context,
// bits only ever set, and the operations that match nothing.
#include <gtest/gtest.h>

#include "support/test_host.h"

namespace {

using namespace vorntest;

// Operations 0..5: ==, <, >, <=, >=, !=; any other matches nothing.
bool model_holds(unsigned op, ub4 x, ub4 y) {
    const bool holds[] = {x == y, x < y, x > y, x <= y, x >= y, x != y};
    return op < 6 && holds[op];
}

// Every operation, each table given, absent, or a null in its cell (no
// table either); with a context whose row_pos shortens the loop, or none.
TEST(LookupAndCompare, EveryOperationAndTableAgainstTheModel) {
    std::mt19937_64 rng(81);
    auto random_column = [&](std::size_t n, ub4 below) {
        std::vector<ub4> v(n);
        for (auto &x : v) x = static_cast<ub4>(rng() % below);
        return v;
    };
    for (ub4 n : {0u, 1u, 3u, 63u, 64u, 65u, 500u}) {
        for (unsigned op = 0; op < 9; ++op) {
            for (int tables = 0; tables < 4; ++tables) {
                std::vector<ub4> x = random_column(n, 16), y = random_column(n, 16);
                const std::vector<ub4> map1 = random_column(16, 6), map2 = random_column(16, 6);
                vorn_vec src{};
                src.data = x.data();
                src.size = n;
                const ub4 *second = y.data(), *m1 = map1.data(), *m2 = map2.data(), *none = nullptr;
                const ub1 form = static_cast<ub1>(op), *form_ptr = &form;
                const bool with_ctx = rng() % 4 != 0, null_cells = rng() % 2;
                const ub4 skip = n && with_ctx ? static_cast<ub4>(rng() % (n + 1)) : 0;
                // Bits already set stay set.
                const auto before = random_bits(rng, n, 0.1);
                Result res(n, 0);
                for (ub8 w = 0; w < (n + 63) / 64; ++w) res.bv[w] = before[w];
                res.vec.num_ones = 5;
                TestHost host;
                vorn_kernel_ctx k = host.kctx();
                k.row_pos = skip;
                const ub4 **absent = null_cells ? &none : nullptr;
                const ub8 code = ctx().vorn_lookup_and_compare_dydi(&res.vec, &src, &second, tables & 1 ? &m1 : absent,
                                                                    tables & 2 ? &m2 : absent, &form_ptr,
                                                                    with_ctx ? &k : nullptr);
                EXPECT_EQ(code, 0u);
                ub8 count = 0;
                for (ub4 i = 0; i < n; ++i) {
                    const ub4 a = tables & 1 ? map1[x[i]] : x[i], b = tables & 2 ? map2[y[i]] : y[i];
                    const bool hit = i < n - skip && model_holds(op, a, b);
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

}  // namespace
