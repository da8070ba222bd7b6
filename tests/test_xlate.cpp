// Translation kernels, vorn_xlate_*: every served member against the plain
// model over random tables and codes (unmapped entries, codes outside the
// range and below an offset table's base, null pages), start rows off the
// byte grid and at or far behind the end, row counts around the blocks of 8 and 16, with and without
// bv_aux and the 0x400 request; translation in pieces; the refusals.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/test_host.h"
#include "support/xlate_model.h"

namespace {

using namespace vorntest;
using namespace vorntest::xlate;

constexpr ub8 kFill = 0x5a5a5a5a5a5a5a5aull;
constexpr ub1 kOutFill = 0xc3;

TestHost &host() {
    static TestHost h;
    return h;
}

std::unique_ptr<Column> code_column(const std::vector<ub4> &codes) {
    auto c = fixed_column(std::vector<ub8>(codes.begin(), codes.end()), 4, 32);
    c->enc.flags = VORN_ALIGNED;
    return c;
}

// The last code that the table holds an entry for.
ub4 table_top(const Table &t) { return static_cast<ub4>((t.kind == kOff ? t.rec.base : 0) + t.codes - 1); }

ub4 random_code(std::mt19937_64 &rng, ub4 top, ub4 low, ub4 high) {
    switch (rng() % 12) {
        case 0: return 0xffffffffu - static_cast<ub4>(rng() % 3);
        case 1: return 0x80000000u + static_cast<ub4>(rng() % 1000);
        case 2: return low - 1 + static_cast<ub4>(rng() % 3);
        case 3: return high - 1 + static_cast<ub4>(rng() % 3);
        case 4: return top + 1 + static_cast<ub4>(rng() % 100);
        default: return static_cast<ub4>(rng() % (ub8{top} + 1));
    }
}

std::vector<ub4> random_codes(std::mt19937_64 &rng, std::size_t n, ub4 top, ub4 low, ub4 high) {
    std::vector<ub4> codes(n);
    for (auto &c : codes) c = random_code(rng, top, low, high);
    return codes;
}

// A context of the test host for the translation record x.
vorn_kernel_ctx xlate_kctx(vorn_xlate_ctx &x) {
    vorn_kernel_ctx k = host().kctx();
    k.xlate_ctx = &x;
    return k;
}

struct Ends {
    ub8 first = VORN_XLATE_NO_ROW, last = VORN_XLATE_NO_ROW, kept = 0;
};

struct Member {
    ub4 kind, elem;
    bool c2d;
};

std::vector<Member> served_members() {
    std::vector<Member> m;
    for (ub4 k : {kSim, kOff, kInd})
        for (ub4 e = kBit; e <= kUb4; ++e)
            for (bool c2d : {false, true})
                if (!(c2d && e == kBit)) m.push_back({k, e, c2d});
    return m;
}

// One call of a served member and every check of its outcome against the
// model: code, count, the bits of rows [start, n) and no others, the output
// elements of those rows and no others, the record's ends and count, and the
// done flags.
void check_call(const Member &m, const Table &t, const std::vector<ub4> &codes, ub8 start, ub4 low, ub4 high,
                const ub8 *aux, bool no_ends, const Ends &preset) {
    const ub8 n = codes.size();
    auto col = code_column(codes);
    Result res(n, kFill);
    res.vec.num_ones = 777;
    const unsigned ob = out_bytes(m.elem);
    std::vector<ub1> out((n + 9) * ob, kOutFill);
    vorn_xlate_ctx x{low, high, out.data(), preset.first, preset.last, preset.kept};
    vorn_kernel_ctx k = xlate_kctx(x);
    k.start_row = start;
    k.bv_aux = aux;
    k.flags = no_ends ? VORN_CTX_XLATE_NO_ENDS : 0;
    k.done_flags = 0x40;
    k.done_flags2 = 0x80;

    const ub8 code = kernel(member_index(m.kind, m.elem, kPlain, m.c2d)).xlate(&res.vec, &col->vec, &t.rec, &k);
    const Expected e = translate_model(t, codes, std::min(start, n), n, low, high, aux);

    ASSERT_EQ(code, e.count ? 0u : 1u);
    ASSERT_EQ(res.vec.num_ones, e.count);
    for (ub8 r = 0; r < n; ++r) {
        const bool want = r < start ? ((kFill >> (r % 64)) & 1) : e.kept[r - start];
        ASSERT_EQ(res.bit(r), want) << "row " << r << " code " << codes[r];
    }
    if (n % 64) {
        ASSERT_EQ(res.bv[n / 64] >> (n % 64), kFill >> (n % 64)) << "bits behind the last row";
    }
    ASSERT_TRUE(res.guard_intact());
    for (ub8 r = 0; r < n + 9; ++r) {
        ub4 want = 0;
        std::memset(&want, kOutFill, ob);
        if (m.c2d && r >= start && r < n) want = e.values[r - start];
        ASSERT_EQ(get_entry(out.data(), out_elem(m.elem), r), want)
            << "output of row " << r << " code " << (r < n ? codes[r] : 0);
    }
    ASSERT_EQ(x.kept, preset.kept + e.count);
    const bool moves = e.count && !no_ends;
    ASSERT_EQ(x.last_kept, moves ? e.last : preset.last);
    ASSERT_EQ(x.first_kept, moves && preset.first == VORN_XLATE_NO_ROW ? e.first : preset.first);
    ASSERT_EQ(x.low_code, low);
    ASSERT_EQ(x.high_code, high);
    ASSERT_EQ(k.done_flags2, aux ? 0x81 : 0x80);
    ASSERT_EQ(k.done_flags, 0x40);
}

std::string describe(const Member &m, const Table &t, ub8 n, ub8 start, ub4 low, ub4 high, bool aux, bool no_ends) {
    return member_name(m.kind, m.elem, m.c2d) + " n=" + std::to_string(n) + " start=" + std::to_string(start) +
           " range=[" + std::to_string(low) + "," + std::to_string(high) + "] codes=" + std::to_string(t.codes) +
           " base=" + std::to_string(t.rec.base) + " shift=" + std::to_string(t.rec.page_shift) +
           " mask=" + std::to_string(t.rec.page_mask) + (aux ? " bv_aux" : "") + (no_ends ? " 0x400" : "");
}

// A random range inside the table; now and then an empty one.
void random_range(std::mt19937_64 &rng, const Table &t, ub4 &low, ub4 &high) {
    const ub4 top = table_top(t);
    high = rng() % 2 ? top : static_cast<ub4>(rng() % (ub8{top} + 1));
    low = rng() % 4 == 0 ? 0 : static_cast<ub4>(rng() % (ub8{high} + 1));
    if (rng() % 20 == 0) std::swap(low, high), ++low;
}

TEST(Xlate, EveryServedMemberAgreesWithTheModel) {
    std::mt19937_64 rng(5101);
    const ub8 sizes[] = {0, 1, 5, 7, 8, 9, 15, 16, 17, 23, 24, 25, 31, 32, 33, 40, 47, 48, 63, 64, 65, 100, 129, 300};
    for (const Member &m : served_members()) {
        for (int trial = 0; trial < 120; ++trial) {
            const ub4 table_codes = 1 + static_cast<ub4>(rng() % (rng() % 2 ? 40 : 600));
            auto t = random_table(rng, m.kind, m.elem, table_codes);
            ub4 low, high;
            random_range(rng, *t, low, high);
            const ub8 n = sizes[rng() % std::size(sizes)];
            const ub8 starts[] = {0, 1, 3, 7, 8, 9, 13, n ? n - 1 : 0, n, n + 1, ub8{1} << 40, n ? rng() % n : 0};
            const ub8 start = starts[rng() % std::size(starts)];
            const auto codes = random_codes(rng, n, table_top(*t), low, high);
            const bool with_aux = rng() % 2, no_ends = rng() % 3 == 0;
            const auto aux = random_bits(rng, n, std::uniform_real_distribution<double>(0.0, 1.0)(rng));
            Ends preset;
            if (rng() % 3 == 0) preset = {std::min<ub8>(start, 3), 2, 1000};
            SCOPED_TRACE(describe(m, *t, n, start, low, high, with_aux, no_ends));
            check_call(m, *t, codes, start, low, high, with_aux ? aux.data() : nullptr, no_ends, preset);
            if (HasFatalFailure()) return;
        }
    }
}

TEST(Xlate, LongColumnsWithSparseAndDenseSelections) {
    std::mt19937_64 rng(5102);
    for (const Member &m : served_members()) {
        auto t = random_table(rng, m.kind, m.elem, 4000);
        const ub4 low = 17, high = table_top(*t) - 5;
        const auto codes = random_codes(rng, 3001, table_top(*t), low, high);
        for (double density : {-1.0, 0.0, 0.01, 0.5, 1.0}) {
            const auto aux = random_bits(rng, codes.size(), std::max(density, 0.0));
            SCOPED_TRACE(member_name(m.kind, m.elem, m.c2d) + " density " + std::to_string(density));
            check_call(m, *t, codes, 11, low, high, density < 0 ? nullptr : aux.data(), false, Ends{});
            if (HasFatalFailure()) return;
        }
    }
}

// The host may translate a column in pieces into one bit vector and one
// output array: the record then holds the ends and count of the whole.
TEST(Xlate, PiecesAddUpToTheWholeColumn) {
    std::mt19937_64 rng(5103);
    for (const Member &m : served_members()) {
        auto t = random_table(rng, m.kind, m.elem, 300);
        const ub4 low = 3, high = table_top(*t);
        const ub8 n = 1000;
        const auto codes = random_codes(rng, n, high, low, high);
        auto col = code_column(codes);
        Result res(n, 0);
        std::vector<ub1> out(n * out_bytes(m.elem), kOutFill);
        vorn_xlate_ctx x{low, high, out.data(), VORN_XLATE_NO_ROW, VORN_XLATE_NO_ROW, 0};
        vorn_kernel_ctx k = xlate_kctx(x);
        std::vector<ub8> cuts = {0, n};
        for (int i = 0; i < 9; ++i) cuts.push_back(rng() % n);
        std::sort(cuts.begin(), cuts.end());
        for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
            k.start_row = cuts[i];
            col->vec.size = static_cast<ub4>(cuts[i + 1]);
            kernel(member_index(m.kind, m.elem, kPlain, m.c2d)).xlate(&res.vec, &col->vec, &t->rec, &k);
        }
        const Expected e = translate_model(*t, codes, 0, n, low, high, nullptr);
        SCOPED_TRACE(member_name(m.kind, m.elem, m.c2d));
        ASSERT_GT(e.count, 0u);
        EXPECT_EQ(x.kept, e.count);
        EXPECT_EQ(x.first_kept, e.first);
        EXPECT_EQ(x.last_kept, e.last);
        for (ub8 r = 0; r < n; ++r) {
            ASSERT_EQ(res.bit(r), e.kept[r]) << r;
            if (m.c2d) {
                ASSERT_EQ(get_entry(out.data(), out_elem(m.elem), r), e.values[r]) << r;
            }
        }
    }
}

// The entry layouts spelled out on fixed bytes: bit i % 8 of byte i / 8, a
// clear bit keeps; nibbles low first, 15 drops; byte 255 drops.
TEST(Xlate, EntryLayouts) {
    const std::vector<ub4> codes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    auto col = code_column(codes);
    auto run = [&](ub4 elem, bool c2d, const void *table, std::vector<ub1> *out) {
        vorn_xlate_table rec{};
        rec.table = table;
        vorn_xlate_ctx x{0, 15, out ? out->data() : nullptr, VORN_XLATE_NO_ROW, VORN_XLATE_NO_ROW, 0};
        vorn_kernel_ctx k = xlate_kctx(x);
        Result res(16, 0);
        kernel(member_index(kSim, elem, kPlain, c2d)).xlate(&res.vec, &col->vec, &rec, &k);
        return static_cast<ub4>(res.bv[0]);
    };
    const ub1 bits[2] = {0x05, 0x80};  // codes 0, 2 and 15 dropped
    EXPECT_EQ(run(kBit, false, bits, nullptr), 0xffffu & ~0x8005u);

    const ub1 nibs[8] = {0x3f, 0xf0, 0x21, 0x43, 0x65, 0x87, 0xa9, 0xfe};  // 0 and 3 and 15 drop
    std::vector<ub1> out(16);
    EXPECT_EQ(run(kNib, true, nibs, &out), 0xffffu & ~0x8009u);
    EXPECT_EQ(out, (std::vector<ub1>{0xff, 3, 0, 0xff, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 14, 0xff}));

    ub1 bytes[16];
    for (ub4 i = 0; i < 16; ++i) bytes[i] = static_cast<ub1>(i * 17);  // 15 * 17 = 255
    EXPECT_EQ(run(kUb1, true, bytes, &out), 0x7fffu);
    EXPECT_EQ(out[14], 238);
    EXPECT_EQ(out[15], 0xff);
}

// With no code that can have a mapping nothing is looked up, so the table
// pointer may be null; the rows are cleared and their outputs all ones.
TEST(Xlate, EmptyRangeKeepsNothingAndReadsNoTable) {
    std::mt19937_64 rng(5104);
    const auto codes = random_codes(rng, 77, 100, 0, 100);
    const auto aux = random_bits(rng, codes.size(), 0.5);
    struct Case {
        ub4 kind, low, high;
        ub8 base;
    } cases[] = {{kSim, 10, 9, 0}, {kInd, 0xffffffffu, 0, 0}, {kOff, 0, 50, 51}, {kOff, 0, 0xffffffffu, ub8{1} << 32}};
    for (const Case &c : cases) {
        for (bool with_aux : {false, true}) {
            auto col = code_column(codes);
            Result res(codes.size(), ~0ull);
            std::vector<ub2> out(codes.size(), 0x1234);
            vorn_xlate_table rec{};
            rec.base = c.base;
            vorn_xlate_ctx x{c.low, c.high, out.data(), 4, 5, 6};
            vorn_kernel_ctx k = xlate_kctx(x);
            k.start_row = 3;
            k.bv_aux = with_aux ? aux.data() : nullptr;
            EXPECT_EQ(kernel(member_index(c.kind, kUb2, kPlain, true)).xlate(&res.vec, &col->vec, &rec, &k), 1u);
            EXPECT_EQ(res.vec.num_ones, 0u);
            for (ub8 r = 0; r < codes.size(); ++r) {
                EXPECT_EQ(res.bit(r), r < 3) << r;
                EXPECT_EQ(out[r], r < 3 ? 0x1234 : 0xffff) << r;
            }
            EXPECT_EQ(x.first_kept, 4u);
            EXPECT_EQ(x.last_kept, 5u);
            EXPECT_EQ(x.kept, 6u);
            EXPECT_EQ(k.done_flags2, with_aux ? 1 : 0);
        }
    }
}

// A compressed code array is decompressed once, under the kernel's name, and
// the next translation of the column finds the cell filled.
TEST(Xlate, CompressedCodesAreDecompressedOnce) {
    std::mt19937_64 rng(5105);
    host().use_copying_decoder();
    auto t = random_table(rng, kSim, kUb2, 500);
    const auto codes = random_codes(rng, 203, 499, 0, 499);
    auto col = code_column(codes);
    col->compress_by_copy();
    const std::size_t allocs = host().allocs.size();
    for (ub4 pass = 0; pass < 2; ++pass) {
        Result res(codes.size(), 0);
        vorn_xlate_ctx x{0, 499, nullptr, VORN_XLATE_NO_ROW, VORN_XLATE_NO_ROW, 0};
        vorn_kernel_ctx k = xlate_kctx(x);
        kernel(member_index(kSim, kUb2, kPlain, false)).xlate(&res.vec, &col->vec, &t->rec, &k);
        const Expected e = translate_model(*t, codes, 0, codes.size(), 0, 499, nullptr);
        for (ub8 r = 0; r < codes.size(); ++r) ASSERT_EQ(res.bit(r), e.kept[r]) << r;
    }
    ASSERT_EQ(host().allocs.size(), allocs + 1);
    EXPECT_EQ(host().allocs.back().name, "vorn_xlate_sim_ub2: vec1_decomp");
    EXPECT_EQ(host().allocs.back().bytes, codes.size() * 4);
    EXPECT_NE(col->cell, nullptr);
}

// A call that is refused writes nothing: not the result, not the output, not
// the record, not the done flags.
void expect_refused(ub4 index, vorn_vec &src, const ub8 *aux) {
    std::mt19937_64 rng(5106);
    auto t = random_table(rng, kSim, kUb4, 100);
    Result res(src.size, kFill);
    res.vec.num_ones = 777;
    std::vector<ub4> out(src.size + 4, 0x77777777);
    vorn_xlate_ctx x{0, 99, out.data(), 1, 2, 3};
    vorn_kernel_ctx k = xlate_kctx(x);
    k.start_row = 5;
    k.bv_aux = aux;
    EXPECT_EQ(kernel(index).xlate(&res.vec, &src, &t->rec, &k), 2u);
    EXPECT_EQ(res.vec.num_ones, 777u);
    for (ub8 w = 0; w < (src.size + 63) / 64; ++w) EXPECT_EQ(res.bv[w], kFill);
    EXPECT_TRUE(res.guard_intact());
    for (ub4 v : out) EXPECT_EQ(v, 0x77777777u);
    EXPECT_EQ(x.first_kept, 1u);
    EXPECT_EQ(x.last_kept, 2u);
    EXPECT_EQ(x.kept, 3u);
    EXPECT_EQ(k.done_flags2, 0);
    EXPECT_EQ(k.done_flags, 0);
}

TEST(Xlate, RefusesEveryColumnButAlignedThirtyTwoBitCodes) {
    std::mt19937_64 rng(5107);
    const auto codes = random_codes(rng, 100, 99, 0, 99);
    const auto aux = random_bits(rng, codes.size(), 0.5);
    struct Layout {
        ub4 flags, bit_width;
    } layouts[] = {{VORN_ALIGNED, 16}, {VORN_ALIGNED, 64}, {VORN_ALIGNED, 8},  {VORN_ALIGNED, 24},
                   {VORN_FIXED, 32},   {VORN_PACKED, 32},  {VORN_CODE_ARRAY, 32}, {0, 32}};
    for (const Member &m : served_members()) {
        for (const Layout &l : layouts) {
            for (bool with_aux : {false, true}) {
                auto col = code_column(codes);
                col->enc.flags = l.flags;
                col->enc.bit_width = l.bit_width;
                SCOPED_TRACE(member_name(m.kind, m.elem, m.c2d) + " flags " + std::to_string(l.flags) + " width " +
                             std::to_string(l.bit_width) + (with_aux ? " bv_aux" : ""));
                expect_refused(member_index(m.kind, m.elem, kPlain, m.c2d), col->vec, with_aux ? aux.data() : nullptr);
            }
        }
    }
}

// The layouts _cla, _const and _sep and the group-key members are not
// settled: they stand in the table and refuse a column that the plain
// members serve.
TEST(Xlate, UnsettledMembersRefuse) {
    std::mt19937_64 rng(5108);
    const auto codes = random_codes(rng, 40, 99, 0, 99);
    auto col = code_column(codes);
    ub4 refused = 0;
    for (ub4 kind : {kSim, kOff, kInd})
        for (ub4 form : {kCla, kConst, kSep})
            for (ub4 elem = kBit; elem <= kUb4; ++elem)
                for (bool c2d : {false, true}) {
                    if (c2d && elem == kBit) continue;
                    SCOPED_TRACE(member_name(kind, elem, c2d) + " form " + std::to_string(form));
                    expect_refused(member_index(kind, elem, form, c2d), col->vec, nullptr);
                    ++refused;
                }
    for (ub4 elem = kNib; elem <= kUb4; ++elem) {
        SCOPED_TRACE(std::string("groupkey ") + elem_name(elem));
        expect_refused(member_index(3, elem, kPlain, true), col->vec, nullptr);
        ++refused;
    }
    EXPECT_EQ(refused, 85u);
}

TEST(Xlate, OneHundredTwelveMembersInTheTable) {
    ub4 members = 0;
    for (ub4 i = 0; i < VORN_DISPATCH_SCHEME_SIZE; ++i)
        if ((i & 31) == VORN_OP_XLATE && kernel(i).xlate) ++members;
    EXPECT_EQ(members, 112u);
    for (const Member &m : served_members())
        EXPECT_NE(kernel(member_index(m.kind, m.elem, kPlain, m.c2d)).xlate, nullptr);
}

}  // namespace
