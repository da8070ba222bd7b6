// The fixed-width compares and their _tz forms, through the dispatch table,
// against the model of whole_byte_model.h: every form, width and short
// element size, row counts around the block, literals at the extremes and
// with noise in their dropped bytes (so short elements compare only their
// own bytes), empty ranges (a above b), filters and selections, the selective
// path, compressed and run-length columns, the tz stream and the constant tz,
// the 8-bit _tz kernels, and the names in the _tz_selective strings.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/kernel_checks_b.h"
#include "support/whole_byte_model.h"

namespace {

using namespace vorntest;

struct Layout {
    unsigned bits;  // the kernel's width
    unsigned elem;  // bytes per row
    unsigned lane() const { return bits / 8; }
    ub4 block_rows() const { return 128 / lane(); }
    unsigned tz_bits() const { return bits / 16; }  // 0: the 8-bit kernels have none
    ub8 max() const { return elem == 8 ? ~ub8{0} : (ub8{1} << 8 * elem) - 1; }
    ub8 top() const { return ub8{1} << (8 * elem - 1); }
};

const Layout kLayouts[] = {{8, 1}, {16, 2}, {32, 4}, {32, 3}, {64, 8}, {64, 7}, {64, 6}, {64, 5}};

ub4 index_of(unsigned bits, unsigned op, bool tz) { return kernel_index(bits, VORN_ENC_FIXED, op, tz); }

std::string name_of(unsigned bits, unsigned op, bool tz) {
    return std::string("vorn_") + compare_name(op) + "_fixed_" + std::to_string(bits) + "bit" + (tz ? "_tz" : "");
}

std::string describe(const Layout &l, unsigned op, bool tz, ub4 n) {
    return name_of(l.bits, op, tz) + " elem " + std::to_string(l.elem) + " rows " + std::to_string(n);
}

// A literal in stored form: the lane's bytes, of which the first `elem`
// hold the value and the rest noise that must not count; and its tz.
struct Literal {
    ub1 bytes[8];
    ub1 tz;
    const void *addr[2];
    Literal(const Layout &l, ub8 value, ub1 tz_value, ub8 noise) : tz(tz_value) {
        for (unsigned k = 0; k < 8; ++k)
            bytes[k] = k < l.elem ? static_cast<ub1>(value >> 8 * (l.elem - 1 - k)) : static_cast<ub1>(noise >> 8 * k);
        addr[0] = bytes;
        addr[1] = &tz;
    }
    Literal(const Literal &) = delete;
};

ub8 call(unsigned bits, unsigned op, bool tz, Result &res, Column &col, const Literal &a, const Literal &b,
         vorn_kernel_ctx *k) {
    const vorn_kernel &f = kernel(index_of(bits, op, tz));
    return is_range_op(op) ? f.range(&res.vec, &col.vec, a.addr, b.addr, k) : f.cmp(&res.vec, &col.vec, a.addr, k);
}

// Values that meet at the edges of the order, and a few others.
std::vector<ub8> value_pool(const Layout &l, std::mt19937_64 &rng) {
    return {0, 1, l.max(), l.max() - 1, l.top(), l.top() - 1, l.top() + 1, rng() & l.max(), rng() & l.max()};
}
ub8 pick(const std::vector<ub8> &pool, const Layout &l, std::mt19937_64 &rng) {
    return rng() % 4 ? pool[rng() % pool.size()] : rng() & l.max();
}

std::unique_ptr<Column> column_of(const Layout &l, const std::vector<ub8> &values) {
    return fixed_column(values, l.elem, 8 * l.elem);
}
void attach_tz_stream(Column &c, const Layout &l, const std::vector<unsigned> &tz) {
    c.data2 = tz_stream(tz, l.tz_bits());
    c.vec.data2 = c.data2.data();
}
void attach_const_tz(Column &c, ub1 t) {
    c.data2 = Bytes(1);
    c.data2.data()[0] = t;
    c.vec.data2 = c.data2.data();
    c.enc.flags |= VORN_TZ_CONST;
}

// The rows' match by the model: the pair order for the _tz kernels of 16 bits
// and more, the value order otherwise.
std::vector<bool> model(const Layout &l, unsigned op, bool tz, const std::vector<ub8> &values,
                        const std::vector<unsigned> &row_tz, const Literal &a, const Literal &b) {
    const bool pair = tz && l.bits > 8;
    const ub8 av = be_number(a.bytes, l.elem), bv = be_number(b.bytes, l.elem);
    std::vector<bool> m(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const unsigned t = pair ? row_tz[i] : 0;
        m[i] = form_holds(op, pair_order(values[i], t, av, pair ? a.tz : 0), pair_order(values[i], t, bv, pair ? b.tz : 0));
    }
    return m;
}

Expected all_rows(const std::vector<bool> &match) { return restrict_rows(match, nullptr, nullptr); }

// One call of one kernel on a random column, checked against the model.
void check_random(const Layout &l, unsigned op, bool tz, ub4 n, Mode mode, std::mt19937_64 &rng) {
    SCOPED_TRACE(describe(l, op, tz, n) + " mode " + std::to_string(static_cast<int>(mode)));
    const auto pool = value_pool(l, rng);
    std::vector<ub8> values(n);
    for (auto &v : values) v = pick(pool, l, rng);
    auto col = column_of(l, values);

    const unsigned tz_max = l.tz_bits() ? (1u << l.tz_bits()) - 1 : 0;
    auto tz_literal = [&] { return static_cast<ub1>(rng() % 5 ? rng() % (tz_max + 1) : rng() % 256); };
    std::vector<unsigned> row_tz(n);
    if (tz && l.bits > 8) {
        if (rng() % 2) {
            const ub1 t = tz_literal();
            attach_const_tz(*col, t);
            for (auto &r : row_tz) r = t;
        } else {
            for (auto &r : row_tz) r = static_cast<unsigned>(rng() % (tz_max + 1));
            attach_tz_stream(*col, l, row_tz);
        }
    } else if (tz && rng() % 2) {
        col->enc.flags |= VORN_TZ_CONST;  // the 8-bit _tz kernels must not look at data2
    }
    const Literal a(l, pick(pool, l, rng), tz_literal(), rng()), b(l, pick(pool, l, rng), tz_literal(), rng());
    const auto match = model(l, op, tz, values, row_tz, a, b);

    ModeRun run(mode, *col, n, rng);
    Result res(n);
    const ub8 code = call(l.bits, op, tz, res, *col, a, b, run.kctx());
    EXPECT_TRUE(matches(res, run.expect(match), code));
    const bool own_selective = tz && l.bits >= 32 && is_range_op(op) && is_selective(mode);
    run.check_after(name_of(l.bits, op, tz) + (own_selective ? "_selective" : ""));
}

std::vector<ub4> row_counts(const Layout &l) {
    const ub4 r = l.block_rows();
    return {0, 1, 2, 3, r - 1, r, r + 1, 2 * r - 1, 2 * r, 3 * r + 7, 7 * r + r / 2 + 1};
}

TEST(FixedCompare, EveryKernelAgreesWithTheModel) {
    std::mt19937_64 rng(101);
    for (const Layout &l : kLayouts)
        for (unsigned op = 0; op < 10; ++op)
            for (bool tz : {false, true})
                for (ub4 n : row_counts(l))
                    for (Mode mode : kModes) check_random(l, op, tz, n, mode, rng);
}

// The column in memory of exactly its size plus the lane - elem bytes that
// the tail's lane-wide read of the last row needs: under AddressSanitizer a
// read past them stops the test.
TEST(FixedCompare, ReadsNoFurtherThanTheLastRowNeeds) {
    std::mt19937_64 rng(104);
    for (const Layout &l : kLayouts) {
        for (ub4 n : {l.block_rows(), 2 * l.block_rows(), 2 * l.block_rows() + 1, 3 * l.block_rows() - 1}) {
            std::vector<ub8> values(n);
            for (auto &v : values) v = rng() % 3;
            const Bytes packed = vornhost::fixed_column(values, l.elem);
            std::vector<ub1> exact(packed.data(), packed.data() + n * l.elem + (l.lane() - l.elem));
            auto col = column_of(l, values);
            col->vec.data = exact.data();
            for (unsigned op : {VORN_OP_EQ, VORN_OP_GE_LT}) {
                for (bool tz : {false, true}) {
                    std::vector<unsigned> row_tz(n, 1);
                    std::vector<ub1> tz_exact;
                    if (tz && l.tz_bits()) {
                        const Bytes s = tz_stream(row_tz, l.tz_bits());
                        tz_exact.assign(s.data(), s.data() + (n * l.tz_bits() + 7) / 8);
                        col->vec.data2 = tz_exact.data();
                    }
                    const Literal a(l, 1, 1, 0), b(l, 2, 1, 0);
                    Result res(n);
                    const ub8 code = call(l.bits, op, tz, res, *col, a, b, nullptr);
                    EXPECT_TRUE(matches(res, all_rows(model(l, op, tz, values, row_tz, a, b)), code))
                        << describe(l, op, tz, n);
                    col->vec.data2 = nullptr;
                }
            }
        }
    }
}

// Columns past the size at which the 8- and 16-bit kernels write their
// results around the cache: the same bits and counts, and the tail behind.
TEST(FixedCompare, ColumnsLargerThanTheCache) {
    std::mt19937_64 rng(107);
    for (const Layout l : {Layout{8, 1}, Layout{16, 2}}) {
        const ub4 n = (ub4{32} << 20) / l.elem + l.block_rows() + 3;
        Column col;
        col.enc.flags = VORN_FIXED;
        col.enc.bit_width = l.bits;
        col.vec.enc_ctx = &col.enc;
        col.vec.size = n;
        Bytes data(ub8{n} * l.elem);
        for (ub8 i = 0; i + 8 <= data.size(); i += 8) {
            const ub8 r = rng() & 0x0303030303030303ull;  // small values, so that eq finds rows
            std::memcpy(data.data() + i, &r, 8);
        }
        col.set_data(std::move(data));
        for (unsigned op : {VORN_OP_EQ, VORN_OP_GE_LT}) {
            const Literal a(l, 1, 0, 0), b(l, l.bits == 8 ? 3 : 0x0300, 0, 0);
            std::vector<bool> match(n);
            for (ub4 i = 0; i < n; ++i) {
                const ub8 x = be_number(col.data.data() + ub8{i} * l.elem, l.elem);
                match[i] = op == VORN_OP_EQ ? x == 1 : (x >= 1 && x < be_number(b.bytes, l.elem));
            }
            Result res(n);
            const ub8 code = call(l.bits, op, false, res, col, a, b, nullptr);
            EXPECT_TRUE(matches(res, all_rows(match), code)) << describe(l, op, false, n);
        }
    }
}

// ---- Run-length columns ---------------------------------------------------------

TEST(FixedCompare, RunLengthColumnsCompareRunsAndExpand) {
    std::mt19937_64 rng(105);
    for (const Layout &l : kLayouts) {
        for (ub4 runs : {1u, l.block_rows() - 1, l.block_rows(), 2 * l.block_rows() + 3}) {
            for (unsigned op : {VORN_OP_EQ, VORN_OP_LE, VORN_OP_NE, VORN_OP_GT_LE}) {
                for (bool tz : {false, true}) {
                    SCOPED_TRACE(describe(l, op, tz, runs));
                    const auto pool = value_pool(l, rng);
                    std::vector<ub8> values(runs);
                    for (auto &v : values) v = pick(pool, l, rng);
                    std::vector<ub4> lengths(runs);
                    for (auto &len : lengths) len = static_cast<ub4>(rng() % 4);
                    auto col = column_of(l, values);
                    std::vector<unsigned> run_tz(runs);
                    if (tz && l.tz_bits()) {
                        for (auto &t : run_tz) t = static_cast<unsigned>(rng() % 2);
                        attach_tz_stream(*col, l, run_tz);
                    }
                    col->make_rle(lengths, rng() % 2 ? 8 : 16);
                    const auto filter = random_bits(rng, runs, 0.8), aux = random_bits(rng, runs, 0.8);
                    col->vec.filter_bv = filter.data();
                    TestHost host;
                    vorn_kernel_ctx k = host.kctx();
                    k.bv_aux = aux.data();
                    const Literal a(l, pick(pool, l, rng), 1, rng()), b(l, pick(pool, l, rng), 0, rng());
                    const Expected per_run = restrict_rows(model(l, op, tz, values, run_tz, a, b), filter.data(), aux.data());
                    Result res(col->vec.size);
                    const unsigned before = rle_expand_calls;
                    const ub8 code = call(l.bits, op, tz, res, *col, a, b, &k);
                    EXPECT_EQ(rle_expand_calls, before + 1);
                    EXPECT_TRUE(matches(res, expand_runs(per_run, lengths), code));
                }
            }
        }
    }
}

// ---- The second key ------------------------------------------------------------------

// Every pair (value, tz) of a few values and tz against every pair of
// literals, from a stream and as a constant tz: the ties at each end of each
// form, the empty forms, literals and constants above the stream's range.
TEST(FixedTz, EveryPairAgainstEveryLiteralPair) {
    for (const Layout &l : kLayouts) {
        if (!l.tz_bits()) continue;
        const ub8 mid = l.top();
        const std::vector<ub8> points = {0, 1, mid - 1, mid, mid + 1, l.max() - 1, l.max()};
        const unsigned tz_max = (1u << l.tz_bits()) - 1;
        std::vector<ub8> values;
        std::vector<unsigned> row_tz;
        for (int rep = 0; rep < 3; ++rep)
            for (ub8 v : points)
                for (unsigned t : {0u, 1u, tz_max}) values.push_back(v), row_tz.push_back(t);
        const std::vector<ub1> tz_literals = {0, 1, static_cast<ub1>(tz_max), 200};
        auto stream_col = column_of(l, values);
        attach_tz_stream(*stream_col, l, row_tz);
        for (unsigned op = 0; op < 10; ++op)
            for (ub8 av : {ub8{0}, mid, l.max()})
                for (ub8 bv : is_range_op(op) ? std::vector<ub8>{0, mid, l.max()} : std::vector<ub8>{0})
                    for (ub1 u : tz_literals)
                        for (ub1 v : is_range_op(op) ? tz_literals : std::vector<ub1>{0}) {
                            const Literal a(l, av, u, 0), b(l, bv, v, 0);
                            SCOPED_TRACE(testing::Message() << describe(l, op, true, values.size()) << " a " << av << "/"
                                                            << int{u} << " b " << bv << "/" << int{v});
                            Result res(values.size());
                            ub8 code = call(l.bits, op, true, res, *stream_col, a, b, nullptr);
                            EXPECT_TRUE(matches(res, all_rows(model(l, op, true, values, row_tz, a, b)), code)) << "stream";
                            for (ub1 t : tz_literals) {
                                auto const_col = column_of(l, values);
                                attach_const_tz(*const_col, t);
                                code = call(l.bits, op, true, res, *const_col, a, b, nullptr);
                                const std::vector<unsigned> same(values.size(), t);
                                EXPECT_TRUE(matches(res, all_rows(model(l, op, true, values, same, a, b)), code))
                                    << "constant tz " << int{t};
                            }
                        }
    }
}

TEST(FixedTz, ConstantTzIsTheWholeByteAtData2) {
    for (const Layout &l : kLayouts) {
        if (!l.tz_bits()) continue;
        const ub4 n = 2 * l.block_rows() + 3;
        auto col = column_of(l, std::vector<ub8>(n, 9));
        // The stream form of these bytes would give other tz values to most rows.
        col->data2 = Bytes(n);
        col->data2.data()[0] = 1;
        col->vec.data2 = col->data2.data();
        col->enc.flags |= VORN_TZ_CONST;
        for (ub1 u : {ub1{0}, ub1{1}, ub1{2}}) {
            const Literal lit(l, 9, u, 0);
            Result res(n);
            call(l.bits, VORN_OP_EQ, true, res, *col, lit, lit, nullptr);
            EXPECT_EQ(res.vec.num_ones, u == 1 ? n : 0u) << describe(l, VORN_OP_EQ, true, n);
            call(l.bits, VORN_OP_LT, true, res, *col, lit, lit, nullptr);
            EXPECT_EQ(res.vec.num_ones, u == 2 ? n : 0u) << describe(l, VORN_OP_LT, true, n);
        }
    }
}

TEST(FixedTz, SelectiveKernelsCarryTheirOwnName) {
    for (unsigned bits : {16u, 32u, 64u}) {
        const Layout l{bits, bits / 8};
        for (unsigned op = 0; op < 10; ++op) {
            for (bool selective : {false, true}) {
                const ub4 n = 40;
                auto col = column_of(l, std::vector<ub8>(n, 0));
                attach_tz_stream(*col, l, std::vector<unsigned>(n, 0));
                col->compress_by_copy();
                TestHost host;
                host.use_failing_decoder();
                const std::vector<ub8> aux(2, 0x00000000000f0f0full);
                vorn_kernel_ctx k = host.kctx();
                k.bv_aux = aux.data();
                if (selective) k.flags = VORN_CTX_SELECTIVE;
                const Literal a(l, 0, 0, 0), b(l, 1, 0, 0);
                clear_raised();
                Result res(n);
                const ub8 code = call(bits, op, true, res, *col, a, b, &k);
                const std::string name =
                    name_of(bits, op, true) + (selective && bits >= 32 && is_range_op(op) ? "_selective" : "");
                SCOPED_TRACE(name);
                expect_one_raise(name + ": vorn_lomp_decode failed");
                ASSERT_EQ(host.allocs.size(), 1u);
                EXPECT_EQ(host.allocs[0].name, name + ": vec1_decomp");
                // The kernel goes on with the zeroed buffer: every value is 0.
                const auto match = model(l, op, true, std::vector<ub8>(n, 0), std::vector<unsigned>(n), a, b);
                EXPECT_TRUE(matches(res, restrict_rows(match, nullptr, aux.data()), code));
            }
        }
    }
}

}  // namespace
