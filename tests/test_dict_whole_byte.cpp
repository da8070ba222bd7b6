// The dictionary compares of the whole-byte widths 8, 16, 32 and 64 and
// their _null forms, through the dispatch table, against the model of
// whole_byte_model.h: the packed codes are a ub1 or a big-endian ub2, ub4,
// ub8, the literal is in the stream's own form, and in a _null kernel a row
// of code 0 never matches.  Every form, row counts around the block, filters
// and selections, compressed and run-length columns, and bit_width ignored.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/whole_byte_model.h"

namespace {

using namespace vorntest;

const unsigned kWidths[] = {8, 16, 32, 64};

ub4 index_of(unsigned bits, unsigned op, bool null) { return kernel_index(bits, VORN_ENC_DICT, op, null); }

std::string name_of(unsigned bits, unsigned op, bool null) {
    return std::string("vorn_") + compare_name(op) + "_dict_" + std::to_string(bits) + "bit" + (null ? "_null" : "");
}

ub8 max_code(unsigned bits) { return bits == 64 ? ~ub8{0} : (ub8{1} << bits) - 1; }

// A literal code in the stream's form: one byte, or big-endian.
struct Code {
    ub1 bytes[8] = {};
    const void *addr[1];
    Code(unsigned bits, ub8 code) {
        for (unsigned k = 0; k < bits / 8; ++k) bytes[k] = static_cast<ub1>(code >> (bits - 8 - 8 * k));
        addr[0] = bytes;
    }
    Code(const Code &) = delete;
};

ub8 call(unsigned bits, unsigned op, bool null, Result &res, Column &col, const Code &a, const Code &b,
         vorn_kernel_ctx *k) {
    const vorn_kernel &f = kernel(index_of(bits, op, null));
    return is_range_op(op) ? f.range(&res.vec, &col.vec, a.addr, b.addr, k) : f.cmp(&res.vec, &col.vec, a.addr, k);
}

std::vector<bool> model(unsigned op, bool null, const std::vector<ub8> &codes, ub8 a, ub8 b) {
    std::vector<bool> m(codes.size());
    for (std::size_t i = 0; i < codes.size(); ++i)
        m[i] = !(null && codes[i] == 0) && form_holds(op, pair_order(codes[i], 0, a, 0), pair_order(codes[i], 0, b, 0));
    return m;
}

// Codes with many nulls and the edges of the order.
ub8 pick(unsigned bits, std::mt19937_64 &rng) {
    const ub8 top = ub8{1} << (bits - 1);
    const ub8 pool[] = {0, 0, 0, 1, 5, top - 1, top, max_code(bits)};
    return rng() % 4 ? pool[rng() % 8] : rng() & max_code(bits);
}

void check_random(unsigned bits, unsigned op, bool null, ub4 n, Mode mode, std::mt19937_64 &rng) {
    SCOPED_TRACE(name_of(bits, op, null) + " rows " + std::to_string(n) + " mode " + std::to_string(static_cast<int>(mode)));
    std::vector<ub8> codes(n);
    for (auto &c : codes) c = pick(bits, rng);
    auto col = packed_column(codes, bits);
    const ub8 av = pick(bits, rng), bv = pick(bits, rng);
    const Code a(bits, av), b(bits, bv);
    ModeRun run(mode, *col, n, rng);
    Result res(n);
    const ub8 code = call(bits, op, null, res, *col, a, b, run.kctx());
    EXPECT_TRUE(matches(res, run.expect(model(op, null, codes, av, bv)), code));
    run.check_after(name_of(bits, op, null));
}

TEST(DictWholeByte, EveryKernelAgreesWithTheModel) {
    std::mt19937_64 rng(201);
    for (unsigned bits : kWidths) {
        const ub4 r = 1024 / bits;  // rows of a 128-byte block
        for (unsigned op = 0; op < 10; ++op)
            for (bool null : {false, true})
                for (ub4 n : {0u, 1u, 2u, r - 1, r, r + 1, 2 * r, 5 * r + r / 2 + 3})
                    for (Mode mode : kModes) check_random(bits, op, null, n, mode, rng);
    }
}

TEST(DictWholeByte, AllNullColumnsMatchNothing) {
    for (unsigned bits : kWidths) {
        const ub4 n = 3 * 1024 / bits + 7;
        auto col = packed_column(std::vector<ub8>(n, 0), bits);
        TestHost host;
        const auto all = std::vector<ub8>((n + 63) / 64 + 1, ~ub8{0});
        for (unsigned op = 0; op < 10; ++op)
            for (ub8 lit : {ub8{0}, ub8{1}, max_code(bits)})
                for (ub2 flags : {ub2{0}, ub2{VORN_CTX_SELECTIVE}}) {
                    const Code a(bits, lit), b(bits, max_code(bits));
                    vorn_kernel_ctx k = host.kctx();
                    k.bv_aux = all.data();
                    k.flags = flags;
                    Result res(n);
                    EXPECT_EQ(call(bits, op, true, res, *col, a, b, &k), 1u) << name_of(bits, op, true) << " literal " << lit;
                    EXPECT_EQ(res.vec.num_ones, 0u);
                    EXPECT_TRUE(res.clear_behind(0) && res.bv[0] == 0);
                }
    }
}

TEST(DictWholeByte, NullRuleInTheFormsThatCouldHoldForZero) {
    for (unsigned bits : kWidths) {
        // 0, 5, 6 repeated past a block, so that blocks and tail both see them.
        std::vector<ub8> codes;
        for (int i = 0; i < 3 * 1024 / static_cast<int>(bits) + 2; ++i) codes.push_back(i % 3 == 0 ? 0 : i % 3 == 1 ? 5 : 6);
        auto col = packed_column(codes, bits);
        const ub4 n = static_cast<ub4>(codes.size());
        auto count_of = [&](unsigned op, ub8 lit, bool null) {
            const Code a(bits, lit), b(bits, 6);
            Result res(n);
            call(bits, op, null, res, *col, a, b, nullptr);
            return res.vec.num_ones;
        };
        const ub4 zeros = (n + 2) / 3, fives = (n + 1) / 3, sixes = n / 3;
        EXPECT_EQ(count_of(VORN_OP_NE, 5, true), sixes) << bits;
        EXPECT_EQ(count_of(VORN_OP_NE, 5, false), sixes + zeros) << bits;
        EXPECT_EQ(count_of(VORN_OP_LT, 1, true), 0u) << bits;
        EXPECT_EQ(count_of(VORN_OP_LT, 1, false), zeros) << bits;
        EXPECT_EQ(count_of(VORN_OP_GE, 0, true), fives + sixes) << bits;
        EXPECT_EQ(count_of(VORN_OP_GT, 0, true), fives + sixes) << bits;
        EXPECT_EQ(count_of(VORN_OP_LE, 5, true), fives) << bits;
        EXPECT_EQ(count_of(VORN_OP_GE_LE, 0, true), fives + sixes) << bits;  // 0 <= code <= 6
        EXPECT_EQ(count_of(VORN_OP_GE_LE, 0, false), n) << bits;
    }
}

// The dict kernels take their width from the dispatch index alone.
TEST(DictWholeByte, BitWidthOfTheColumnIsIgnored) {
    std::mt19937_64 rng(202);
    for (unsigned bits : kWidths) {
        const ub4 n = 2 * 1024 / bits + 5;
        std::vector<ub8> codes(n);
        for (auto &c : codes) c = pick(bits, rng);
        auto col = packed_column(codes, bits);
        for (ub4 bit_width : {24u, 40u, 48u, 56u, 0u}) {
            col->enc.bit_width = bit_width;
            for (unsigned op = 0; op < 10; ++op) {
                const ub8 av = pick(bits, rng), bv = pick(bits, rng);
                const Code a(bits, av), b(bits, bv);
                Result res(n);
                const ub8 code = call(bits, op, false, res, *col, a, b, nullptr);
                EXPECT_TRUE(matches(res, restrict_rows(model(op, false, codes, av, bv), nullptr, nullptr), code))
                    << name_of(bits, op, false) << " bit_width " << bit_width;
            }
        }
    }
}

TEST(DictWholeByte, RunLengthColumnsCompareRunsAndExpand) {
    std::mt19937_64 rng(203);
    for (unsigned bits : kWidths) {
        for (ub4 runs : {1u, 128u, 301u}) {
            for (bool null : {false, true}) {
                std::vector<ub8> codes(runs);
                for (auto &c : codes) c = pick(bits, rng);
                std::vector<ub4> lengths(runs);
                for (auto &len : lengths) len = static_cast<ub4>(rng() % 5);
                auto col = packed_column(codes, bits);
                col->make_rle(lengths, 16);
                TestHost host;
                vorn_kernel_ctx k = host.kctx();
                const ub8 av = pick(bits, rng);
                const Code a(bits, av);
                Result res(col->vec.size);
                const ub8 code = call(bits, VORN_OP_LE, null, res, *col, a, a, &k);
                const Expected per_run = restrict_rows(model(VORN_OP_LE, null, codes, av, av), nullptr, nullptr);
                EXPECT_TRUE(matches(res, expand_runs(per_run, lengths), code)) << name_of(bits, VORN_OP_LE, null);
            }
        }
    }
}

TEST(DictWholeByte, MessagesCarryTheDictionaryKernelsNames) {
    for (unsigned bits : kWidths)
        for (unsigned op = 0; op < 10; ++op)
            for (bool null : {false, true}) {
                auto col = packed_column(std::vector<ub8>(10, 3), bits);
                col->compress_by_copy();
                TestHost host;
                host.use_failing_decoder();
                vorn_kernel_ctx k = host.kctx();
                const Code a(bits, 0), b(bits, 1);
                clear_raised();
                Result res(10);
                call(bits, op, null, res, *col, a, b, &k);
                ASSERT_EQ(raised().size(), 1u);
                EXPECT_EQ(raised()[0].message, name_of(bits, op, null) + ": vorn_lomp_decode failed");
                ASSERT_EQ(host.allocs.size(), 1u);
                EXPECT_EQ(host.allocs[0].name, name_of(bits, op, null) + ": vec1_decomp");
                clear_raised();
            }
}

}  // namespace
