// Both bit-vector families against a plain model: the element-wise
// operations with and without counts, in place and not, at every length
// around 64 and 128 and, for the byte form, at every misalignment; the range
// setters; the iterators with starts, complements and batches.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "support/test_host.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define VORN_POISON(p, n) __asan_poison_memory_region((p), (n))
#define VORN_UNPOISON(p, n) __asan_unpoison_memory_region((p), (n))
#else
#define VORN_POISON(p, n) ((void)(p), (void)(n))
#define VORN_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace {

using namespace vorntest;

// A bit vector placed `offset` bytes into its own allocation, with guard
// bytes before and behind.  Under AddressSanitizer the guards are poisoned,
// so a read outside the vector's bytes stops the test.
class Placed {
public:
    Placed(ub8 bytes, unsigned offset, ub1 guard = 0xc3) : bytes_(bytes), offset_(offset) {
        store_.reset(new ub8[(offset + bytes + kBehind + 7) / 8 + 1]);
        std::memset(base(), guard, offset + bytes + kBehind);
        guard_ = guard;
    }
    ~Placed() { unpoison(); }
    ub1 *data() { return base() + offset_; }
    const ub1 *data() const { return const_cast<Placed *>(this)->data(); }
    void poison() {
        VORN_POISON(base(), offset_);
        VORN_POISON(data() + bytes_, kBehind);
    }
    void unpoison() { VORN_UNPOISON(base(), offset_ + bytes_ + kBehind); }
    bool guards_intact() const {
        const ub1 *b = reinterpret_cast<const ub1 *>(store_.get());
        for (ub8 i = 0; i < offset_; ++i)
            if (b[i] != guard_) return false;
        for (ub8 i = 0; i < kBehind; ++i)
            if (data()[bytes_ + i] != guard_) return false;
        return true;
    }

private:
    static constexpr ub8 kBehind = 24;
    ub1 *base() { return reinterpret_cast<ub1 *>(store_.get()); }
    std::unique_ptr<ub8[]> store_;
    ub8 bytes_;
    unsigned offset_;
    ub1 guard_ = 0;
};

struct Family {
    const char *name;
    unsigned unit_bytes;  // 1 byte form, 8 word form
    vorn_bv2_fn and_, or_, xor_, andnot;
    vorn_bvnot_fn not_;
    vorn_bv3_fn and3, or3, xor3;
    vorn_bvpopcnt_fn popcnt;
    vorn_bvrange_fn set_range, clr_range;
    vorn_bviter_init_fn init;
    vorn_bviter_fn iter, iter_clr;
    vorn_bvones_fn ones;
    ub8 end;
};

// The entries of one form, by its prefix: lbiv (bytes) or lbiwv (words).
#define VORN_BV_FAMILY(p, unit, end)                                                                            \
    Family{#p, unit, ctx().vorn_##p##and_dydi, ctx().vorn_##p##or_dydi, ctx().vorn_##p##xor_dydi,               \
           ctx().vorn_##p##andnot_dydi, ctx().vorn_##p##not_dydi, ctx().vorn_##p##and3_dydi,                    \
           ctx().vorn_##p##or3_dydi, ctx().vorn_##p##xor3_dydi, ctx().vorn_##p##popcnt_dydi,                    \
           ctx().vorn_##p##set_range_dydi, ctx().vorn_##p##clr_range_dydi, ctx().vorn_##p##_ictx_ini2_dydi,     \
           ctx().vorn_##p##iter_dydi, ctx().vorn_##p##iter_clr_dydi, ctx().vorn_##p##ones_dydi, end}

Family byte_family() { return VORN_BV_FAMILY(lbiv, 1, 0xffffffffull); }
Family word_family() { return VORN_BV_FAMILY(lbiwv, 8, ~0ull); }

// The lengths to try: all up to 300, which covers every length around 64 and
// 128 and their multiples, then a spread of larger ones.
std::vector<ub8> lengths() {
    std::vector<ub8> v;
    for (ub8 n = 0; n <= 300; ++n) v.push_back(n);
    for (ub8 n : {511, 512, 513, 1000, 1023, 1024, 1025, 2047, 2048, 2049, 3001, 4096, 4159}) v.push_back(n);
    return v;
}

ub8 unit_bytes_for(const Family &f, ub8 bits) {
    return f.unit_bytes == 1 ? (bits + 7) / 8 : (bits + 63) / 64 * 8;
}

bool bit_of(const ub1 *p, ub8 i) { return (p[i >> 3] >> (i & 7)) & 1; }

// An element-wise operation: its byte model and its entry, of one, two or
// three sources.
struct OpCase {
    const char *name;
    ub1 (*model)(ub1, ub1, ub1);
    vorn_bvnot_fn Family::*one = nullptr;
    vorn_bv2_fn Family::*two = nullptr;
    vorn_bv3_fn Family::*three = nullptr;
};

const OpCase kOps[] = {
    {"and", [](ub1 a, ub1 b, ub1) { return ub1(a & b); }, nullptr, &Family::and_},
    {"or", [](ub1 a, ub1 b, ub1) { return ub1(a | b); }, nullptr, &Family::or_},
    {"xor", [](ub1 a, ub1 b, ub1) { return ub1(a ^ b); }, nullptr, &Family::xor_},
    {"andnot", [](ub1 a, ub1 b, ub1) { return ub1(~a & b); }, nullptr, &Family::andnot},
    {"not", [](ub1 a, ub1, ub1) { return ub1(~a); }, &Family::not_},
    {"and3", [](ub1 a, ub1 b, ub1 c) { return ub1(a & b & c); }, nullptr, nullptr, &Family::and3},
    {"or3", [](ub1 a, ub1 b, ub1 c) { return ub1(a | b | c); }, nullptr, nullptr, &Family::or3},
    {"xor3", [](ub1 a, ub1 b, ub1 c) { return ub1(a ^ b ^ c); }, nullptr, nullptr, &Family::xor3},
};

void call(const Family &f, const OpCase &op, void *dst, ub4 *count, const void *a, const void *b,
          const void *c, ub8 bits) {
    if (op.one) (f.*op.one)(dst, count, a, bits);
    else if (op.two) (f.*op.two)(dst, count, a, b, bits);
    else (f.*op.three)(dst, count, a, b, c, bits);
}

// One operation at one length and placement against the model.
void check_op(const Family &f, const OpCase &op, ub8 bits, unsigned mis_dst, unsigned mis_src,
              bool counting, bool in_place, std::mt19937_64 &rng) {
    const ub8 bytes = unit_bytes_for(f, bits);
    Placed a(bytes, mis_src), b(bytes, f.unit_bytes == 1 ? (mis_src + 3) % 16 : (mis_src + 8) % 16),
        c(bytes, mis_src), dst(bytes, mis_dst, 0x3c);
    for (ub8 i = 0; i < bytes; ++i) {
        a.data()[i] = static_cast<ub1>(rng());
        b.data()[i] = static_cast<ub1>(rng());
        c.data()[i] = static_cast<ub1>(rng());
    }
    std::vector<ub1> want(bytes);
    for (ub8 i = 0; i < bytes; ++i) want[i] = op.model(a.data()[i], b.data()[i], c.data()[i]);
    ub8 ones = 0;
    for (ub8 i = 0; i < bits; ++i) ones += (want[i >> 3] >> (i & 7)) & 1;

    ub1 *out = in_place ? a.data() : dst.data();
    ub4 count = 0xdeadbeef;
    a.poison(), b.poison(), c.poison(), dst.poison();
    call(f, op, out, counting ? &count : nullptr, a.data(), b.data(), c.data(), bits);
    a.unpoison(), b.unpoison(), c.unpoison(), dst.unpoison();

    ASSERT_TRUE(bytes == 0 || std::memcmp(out, want.data(), bytes) == 0)
        << f.name << op.name << " bits " << bits << " mis " << mis_dst << "/" << mis_src;
    if (counting) {
        ASSERT_EQ(count, ones) << f.name << op.name << " bits " << bits;
    } else {
        ASSERT_EQ(count, 0xdeadbeefu);
    }
    ASSERT_TRUE(dst.guards_intact() && a.guards_intact()) << f.name << op.name << " bits " << bits;
}

class BitVectorFamily : public testing::TestWithParam<bool> {
protected:
    Family family() const { return GetParam() ? word_family() : byte_family(); }
    // Byte form: any address.  Word form: 8-byte aligned, on or off a
    // 16-byte boundary.
    std::vector<unsigned> offsets() const {
        if (GetParam()) return {0, 8};
        std::vector<unsigned> v;
        for (unsigned i = 0; i < 16; ++i) v.push_back(i);
        return v;
    }
    unsigned offset(ub8 k) const { const auto o = offsets(); return o[k % o.size()]; }
};

// Every length, each at its own pair of placements, counted or not, in
// place or not; the modes go round independently of the placements.
TEST_P(BitVectorFamily, ElementWiseOperationsAgreeWithTheModel) {
    const Family f = family();
    std::mt19937_64 rng(42);
    for (const OpCase &op : kOps) {
        for (ub8 bits : lengths()) {
            const int mode = static_cast<int>((bits + bits / 16) % 4);
            check_op(f, op, bits, offset(bits / 4), offset(bits * 7 + 1), mode & 1, mode & 2, rng);
            if (HasFatalFailure()) return;
        }
    }
}

TEST_P(BitVectorFamily, PopcntCountsOnlyTheBitsInside) {
    const Family f = family();
    std::mt19937_64 rng(44);
    for (ub8 bits : lengths())
        for (unsigned mis : offsets()) {
            const ub8 bytes = unit_bytes_for(f, bits);
            Placed a(bytes, mis);
            for (ub8 i = 0; i < bytes; ++i) a.data()[i] = static_cast<ub1>(rng());
            ub8 ones = 0;
            for (ub8 i = 0; i < bits; ++i) ones += bit_of(a.data(), i);
            ub4 count = 0;
            a.poison();
            const ub4 got = f.popcnt(&count, a.data(), bits);
            EXPECT_EQ(f.popcnt(nullptr, a.data(), bits), got);
            a.unpoison();
            ASSERT_EQ(got, ones) << f.name << " bits " << bits;
            ASSERT_EQ(count, ones);
        }
}

TEST_P(BitVectorFamily, SetAndClearRanges) {
    const Family f = family();
    std::mt19937_64 rng(45);
    for (int round = 0; round < 3000; ++round) {
        const ub8 bits = 1 + rng() % 700;
        const ub8 first = rng() % bits;
        const ub8 last = first + rng() % (bits - first);
        const bool set = round & 1;
        const ub8 bytes = unit_bytes_for(f, bits);
        Placed v(bytes, offset(round));
        std::vector<ub1> want(bytes);
        for (ub8 i = 0; i < bytes; ++i) want[i] = v.data()[i] = static_cast<ub1>(rng());
        for (ub8 i = first; i <= last; ++i) {
            if (set) want[i >> 3] |= ub1(1u << (i & 7));
            else want[i >> 3] &= ub1(~(1u << (i & 7)));
        }
        (set ? f.set_range : f.clr_range)(v.data(), first, last);
        ASSERT_TRUE(std::memcmp(v.data(), want.data(), bytes) == 0) << first << ".." << last;
        ASSERT_TRUE(v.guards_intact());
    }
}

// The set (or, for iter_clr, clear) bits from `start` to bits - 1.
std::vector<ub8> expected_positions(const ub1 *p, ub8 bits, ub8 start, bool clear) {
    std::vector<ub8> v;
    for (ub8 i = start; i < bits; ++i)
        if (bit_of(p, i) != clear) v.push_back(i);
    return v;
}

TEST_P(BitVectorFamily, IteratorsVisitExactlyTheWantedBits) {
    const Family f = family();
    std::mt19937_64 rng(46);
    for (int round = 0; round < 1500; ++round) {
        const ub8 bits = round < 300 ? static_cast<ub8>(round) : rng() % 2000;
        const ub8 start = bits ? (round % 3 == 0 ? 0 : rng() % (bits + 3)) : 0;
        const double density = std::vector<double>{0.0, 0.01, 0.5, 0.99, 1.0}[round % 5];
        const bool clear = round & 1;
        const ub8 bytes = unit_bytes_for(f, bits);
        Placed v(bytes, offset(round), 0xff);
        std::bernoulli_distribution d(density);
        for (ub8 i = 0; i < bytes * 8; ++i)
            if (!d(rng)) v.data()[i >> 3] &= ub1(~(1u << (i & 7)));
        const std::vector<ub8> want = expected_positions(v.data(), bits, start, clear);

        v.poison();
        vorn_bv_iter it;
        f.init(&it, v.data(), bits, clear ? 1 : 0, start);
        std::vector<ub8> got;
        for (ub8 pos; (pos = (clear ? f.iter_clr : f.iter)(&it)) != f.end;) {
            got.push_back(pos);
            ASSERT_LE(got.size(), bits + 1) << "runaway iterator";
        }
        // An exhausted iterator keeps answering the end value.
        EXPECT_EQ((clear ? f.iter_clr : f.iter)(&it), f.end);
        v.unpoison();
        ASSERT_EQ(got, want) << f.name << (clear ? " iter_clr" : " iter") << " bits " << bits
                             << " start " << start << " density " << density;
    }
}

TEST_P(BitVectorFamily, OnesInBatchesResumeWhereTheyStopped) {
    const Family f = family();
    std::mt19937_64 rng(47);
    for (int round = 0; round < 800; ++round) {
        const ub8 bits = rng() % 3000;
        const ub8 start = bits ? rng() % bits : 0;
        const ub8 bytes = unit_bytes_for(f, bits);
        // Ones behind the last bit, and poisoned guards around the vector:
        // ones must neither report nor read them.
        Placed v(bytes, offset(round), 0xff);
        const double density = std::vector<double>{0.01, 0.3, 0.9}[round % 3];
        std::bernoulli_distribution d(density);
        for (ub8 i = 0; i < bits; ++i)
            if (!d(rng)) v.data()[i >> 3] &= ub1(~(1u << (i & 7)));
        const std::vector<ub8> want = expected_positions(v.data(), bits, start, false);

        v.poison();
        vorn_bv_iter it;
        f.init(&it, v.data(), bits, 0, start);
        std::vector<ub8> got;
        const ub4 max = 1 + rng() % 300;
        std::vector<ub4> out(max + 1, 0xeeeeeeee);
        for (;;) {
            const ub4 n = f.ones(&it, out.data(), max);
            ASSERT_LE(n, max);
            ASSERT_EQ(out[max], 0xeeeeeeeeu) << "wrote past max";
            got.insert(got.end(), out.begin(), out.begin() + n);
            if (n < max) break;
        }
        v.unpoison();
        ASSERT_EQ(got, want) << f.name << " bits " << bits << " start " << start << " max " << max;
    }
}

TEST_P(BitVectorFamily, EdgeCasesOfTheIterators) {
    const Family f = family();
    std::vector<ub8> v(4, 0);
    vorn_bv_iter it;
    // bits 0, and a start at or past the end: exhausted at once.
    f.init(&it, v.data(), 0, 0, 0);
    EXPECT_EQ(it.next, 0u);
    EXPECT_EQ(f.iter(&it), f.end);
    v[0] = ~0ull;
    f.init(&it, v.data(), 10, 0, 10);
    EXPECT_EQ(f.iter(&it), f.end);
    // 65 bits: bit 64 is reported, bits 65 to 127 are not looked at.
    v[1] = ~0ull;
    v[0] = 0;
    f.init(&it, v.data(), 65, 0, 0);
    EXPECT_EQ(f.iter(&it), 64u);
    EXPECT_EQ(f.iter(&it), f.end);
    // iter_clr on all ones ends at once; on 70 zero bits it gives 0..69.
    v[0] = v[1] = ~0ull;
    f.init(&it, v.data(), 70, 1, 0);
    EXPECT_EQ(f.iter_clr(&it), f.end);
    v[0] = v[1] = 0;
    f.init(&it, v.data(), 70, 1, 0);
    for (ub8 i = 0; i < 70; ++i) ASSERT_EQ(f.iter_clr(&it), i);
    EXPECT_EQ(f.iter_clr(&it), f.end);
    // ones with max 8 over exactly 8 ones: 8, then 0.
    v[0] = 0x8040201008040201ull;
    v[1] = 0;
    ub4 out[8];
    f.init(&it, v.data(), 128, 0, 0);
    EXPECT_EQ(f.ones(&it, out, 8), 8u);
    EXPECT_EQ(f.ones(&it, out, 8), 0u);
}

INSTANTIATE_TEST_SUITE_P(Forms, BitVectorFamily, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool> &p) { return p.param ? "Word" : "Byte"; });

TEST(BitVectorByteForm, IteratorFromAnOddAddressStartsBeforeBitZero) {
    alignas(8) ub1 store[24] = {};
    ub1 *vec = store + 3;  // three bytes past an 8-byte boundary
    vec[0] = 0x01;
    vec[2] = 0x80;
    vorn_bv_iter it;
    ctx().vorn_lbiv_ictx_ini2_dydi(&it, vec, 24, 0, 0);
    EXPECT_EQ(static_cast<sb8>(it.base), -24);
    EXPECT_EQ(ctx().vorn_lbiviter_dydi(&it), 0u);
    EXPECT_EQ(ctx().vorn_lbiviter_dydi(&it), 23u);
    EXPECT_EQ(ctx().vorn_lbiviter_dydi(&it), 0xffffffffull);
}

TEST(BitVectorRuns, ArePlaceholders) {
    EXPECT_EQ(ctx().vorn_lbivrun_dydi(nullptr, nullptr), 0xffffffffull);
    EXPECT_EQ(ctx().vorn_lbiwvrun_dydi(nullptr, nullptr), ~0ull);
    EXPECT_EQ(ctx().vorn_lbivruns_dydi(nullptr, nullptr, nullptr, nullptr), 0u);
    EXPECT_EQ(ctx().vorn_lbiwvruns_dydi(nullptr, nullptr, nullptr, nullptr), 0u);
}

}  // namespace
