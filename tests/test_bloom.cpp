// Bloom filter test, vorn_bloom_dydi: every kernel against a plain model of
// the bit rule over random filters (flat and paged, sparse, dense, all ones,
// masks with holes), random and adversarial hashes, start rows at every
// residue mod 8 and behind the end, lengths around the 16-row blocks (0
// included), selections; the result bits are only ever set; the first and
// last rows; the refusal.
#include <gtest/gtest.h>

#include <cstring>

#include "bloom/bloom_entries.h"
#include "support/fold_kv2.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;

// ---- The model ----------------------------------------------------------------
struct Filter {
    bool paged = false;
    ub4 mask = 0, page_shift = 0, bit_mask = 0;
    std::vector<ub1> flat;
    std::vector<std::vector<ub1>> pages;
    std::vector<const ub1 *> page_addresses;
    vorn_enc_ctx enc{};
    vorn_vec vec{};

    Filter() = default;
    Filter(const Filter &) = delete;

    void publish() {
        enc.bloom_paged = paged ? 0x80 : 0;  // any non-zero byte means paged
        enc.bloom_mask = mask;
        enc.bloom_page_shift = page_shift;
        enc.bloom_bit_mask = bit_mask;
        vec.enc_ctx = &enc;
        if (paged) {
            page_addresses.clear();
            for (auto &p : pages) page_addresses.push_back(p.data());
            vec.res_bv = reinterpret_cast<ub8 *>(page_addresses.data());
        } else {
            vec.res_bv = reinterpret_cast<ub8 *>(flat.data());
        }
    }

    static bool bit(const std::vector<ub1> &bytes, ub4 n) { return (bytes[n / 8] >> (n % 8)) & 1; }

    // The rule, written out as the host's filter build would use it.
    bool passes(ub4 h, bool two_bit) const {
        const ub4 a = h & mask;
        const std::vector<ub1> *bytes = &flat;
        ub4 b1 = a;
        ub4 second = (h >> 26) & mask;
        if (paged) {
            bytes = &pages[page_shift >= 32 ? 0 : a >> page_shift];
            b1 = a & bit_mask;
            second &= bit_mask;
        }
        if (!bit(*bytes, b1)) return false;
        if (!two_bit) return true;
        return bit(*bytes, (b1 / 64) * 64 + second);
    }
};

std::vector<ub1> random_bytes(std::mt19937_64 &rng, std::size_t n, double density) {
    std::vector<ub1> b(n);
    std::bernoulli_distribution d(density);
    for (std::size_t i = 0; i < n * 8; ++i)
        if (d(rng)) b[i / 8] = static_cast<ub1>(b[i / 8] | (1u << (i % 8)));
    return b;
}

// A mask of `bits` low bits, sometimes with holes in it (never in the top one).
ub4 random_mask(std::mt19937_64 &rng, unsigned bits) {
    const ub4 full = bits >= 32 ? 0xffffffffu : (1u << bits) - 1;
    if (rng() % 3) return full;
    return (static_cast<ub4>(rng()) & full) | (1u << (bits - 1));
}

// density 1 is the all-ones filter.  Filters are allocated to the byte that
// the masks can reach, so the sanitizer build sees a read beyond them.
std::unique_ptr<Filter> random_filter(std::mt19937_64 &rng, bool paged, double density) {
    auto f = std::make_unique<Filter>();
    f->paged = paged;
    if (!paged) {
        f->mask = random_mask(rng, 6 + static_cast<unsigned>(rng() % 11));
        f->flat = random_bytes(rng, f->mask / 8 + 1, density);
    } else {
        f->page_shift = 3 + static_cast<ub4>(rng() % 10);
        const unsigned page_bits = static_cast<unsigned>(rng() % 4);
        f->mask = random_mask(rng, f->page_shift + page_bits + (page_bits == 0 ? 1 : 0));
        // Most pages are indexed by the bits below the shift; some masks
        // overlap the page number.
        f->bit_mask = rng() % 4 ? (1u << f->page_shift) - 1 : random_mask(rng, f->page_shift + 1);
        if (f->bit_mask < 63) f->bit_mask |= 63;
        for (ub4 p = 0; p <= (f->mask >> f->page_shift); ++p)
            f->pages.push_back(random_bytes(rng, f->bit_mask / 8 + 1, density));
    }
    f->publish();
    return f;
}

// The hash words: uniform, the top six bits clear, the low word all zero or
// all ones, or sharing one filter word with a neighbour.
std::vector<ub4> random_words(std::mt19937_64 &rng, std::size_t n) {
    std::vector<ub4> w(n);
    for (std::size_t i = 0; i < n; ++i) {
        const ub4 r = static_cast<ub4>(rng());
        switch (rng() % 8) {
            case 0: w[i] = r & 0x03ffffffu; break;
            case 1: w[i] = rng() % 2 ? 0 : 0xffffffffu; break;
            case 2: w[i] = i ? (w[i - 1] & ~63u) | (r & 63u) : r; break;
            default: w[i] = r;
        }
    }
    return w;
}

// A hash column of 4 or 8 bytes per row, big-endian, allocated exactly.  The
// high word of a 64-bit hash is noise that no kernel may look at.
struct Hashes {
    std::vector<ub1> bytes;
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    Hashes(std::mt19937_64 &rng, const std::vector<ub4> &words, unsigned hash_bytes) : bytes(words.size() * hash_bytes) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            const ub8 h = hash_bytes == 8 ? (rng() << 32) | words[i] : words[i];
            for (unsigned k = 0; k < hash_bytes; ++k)
                bytes[i * hash_bytes + k] = static_cast<ub1>(h >> (8 * (hash_bytes - 1 - k)));
        }
        column_vec(vec, enc, bytes.empty() ? nullptr : bytes.data(), words.size(), VORN_ALIGNED, hash_bytes * 8);
    }
};

struct Outcome {
    ub8 code;
    ub4 num_ones, first, last;
    std::vector<ub8> bits;
};

// The model's outcome: the bits of `before` with the passing rows set.
Outcome model(const Filter &f, const std::vector<ub4> &words, bool two_bit, ub8 start, const std::vector<ub8> *selection,
              std::vector<ub8> before) {
    Outcome o{1, 0, 0xffffffffu, 0xffffffffu, std::move(before)};
    for (ub8 r = start; r < words.size(); ++r) {
        if (selection && !vornhost::test_bit(selection->data(), r)) continue;
        if (!f.passes(words[r], two_bit)) continue;
        vornhost::set_bit(o.bits.data(), r);
        ++o.num_ones;
        if (o.first == 0xffffffffu) o.first = static_cast<ub4>(r);
        o.last = static_cast<ub4>(r);
    }
    o.code = o.num_ones ? 0 : 1;
    return o;
}

constexpr ub8 kGuard = 0xa5a5a5a5a5a5a5a5ull;

// One call through the entry, checked against the model: code, count, both
// row words, every bit (set only, never cleared), the guard words.
void check(const Filter &f, const std::vector<ub4> &words, unsigned hash_bytes, ub1 mode, ub8 start,
           const std::vector<ub8> *selection, std::mt19937_64 &rng) {
    Hashes h(rng, words, hash_bytes);
    const ub8 n = words.size();
    const ub8 nwords = (n + 63) / 64;
    std::vector<ub8> before(nwords);
    for (auto &w : before) w = rng() % 4 ? 0 : rng();
    std::vector<ub8> bits = before;
    bits.push_back(kGuard);
    ub4 ends[3] = {0x1234, 0x5678, 0x9abc};
    vorn_vec res{};
    res.res_bv = bits.data();
    res.data = ends;
    res.num_ones = 777;
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    k.start_row = start;
    k.bv_aux = selection ? selection->data() : nullptr;
    const ub8 code = ctx().vorn_bloom_dydi(&res, &h.vec, const_cast<vorn_vec *>(&f.vec), &k, mode);
    const Outcome want = model(f, words, mode != 1, start, selection, before);
    SCOPED_TRACE(testing::Message() << "n " << n << " start " << start << " hash " << hash_bytes * 8 << " mode "
                                    << int{mode} << (f.paged ? " paged" : " flat") << " mask " << f.mask
                                    << (selection ? " selection" : ""));
    EXPECT_EQ(code, want.code);
    EXPECT_EQ(res.num_ones, want.num_ones);
    EXPECT_EQ(ends[0], want.first);
    EXPECT_EQ(ends[1], want.last);
    EXPECT_EQ(ends[2], 0x9abcu);
    for (ub8 w = 0; w < nwords; ++w) ASSERT_EQ(bits[w], want.bits[w]) << "word " << w;
    EXPECT_EQ(bits[nwords], kGuard);
}

// ---- Every kernel against the model -------------------------------------------
// All rows from every start residue and one behind, then a selection of
// rows (none, some, most, all chosen) from a random start.
TEST(Bloom, AllAndSelectedRowsAgainstTheModel) {
    std::mt19937_64 rng(91);
    const std::size_t lengths[] = {0, 1, 7, 8, 9, 15, 16, 17, 23, 24, 25, 31, 32, 33, 40, 47, 48, 63, 64, 65, 100, 129, 700, 1000};
    const double chosen[] = {0.0, 0.1, 0.6, 1.0};
    for (bool paged : {false, true})
        for (double density : {0.05, 0.5, 0.95, 1.0}) {
            auto f = random_filter(rng, paged, density);
            for (unsigned hash_bytes : {4u, 8u})
                for (ub1 mode : {ub1{1}, ub1{2}})
                    for (std::size_t n : lengths) {
                        const auto words = random_words(rng, n);
                        for (ub8 start = 0; start < 8; ++start) check(*f, words, hash_bytes, mode, start, nullptr, rng);
                        check(*f, words, hash_bytes, mode, 8 + rng() % 40, nullptr, rng);
                        const auto selection = random_bits(rng, n, chosen[rng() % 4]);
                        check(*f, words, hash_bytes, mode == 2 ? 0 : 1, rng() % 2 ? 0 : rng() % (n + 2), &selection, rng);
                    }
        }
}

// Many filters, few rows each: the masks, shifts and page layouts vary.
TEST(Bloom, ManyFilterShapes) {
    std::mt19937_64 rng(93);
    for (int trial = 0; trial < 300; ++trial) {
        auto f = random_filter(rng, trial % 2, 0.2 + 0.6 * static_cast<double>(rng() % 100) / 100);
        const auto words = random_words(rng, 40 + rng() % 60);
        check(*f, words, trial % 4 < 2 ? 4 : 8, static_cast<ub1>(rng() % 3), rng() % 12, nullptr, rng);
    }
}

// ---- The cases that matter on their own ------------------------------------------
// A result of `words` bit words and the two row words, for direct calls.
struct Out {
    std::vector<ub8> bits;
    ub4 ends[2] = {5, 6};
    vorn_vec res{};
    explicit Out(std::size_t words, ub8 fill = 0) : bits(words, fill) {
        res.res_bv = bits.data();
        res.data = ends;
    }
};

// A flat filter with one word set by hand: the second bit is placed by the
// top six bits of the hash word, within b1's 64-bit word.
TEST(Bloom, TwoBitsShareOneWord) {
    Filter f;
    f.mask = 1023;
    f.flat.assign(128, 0);
    f.flat[8 * 3 + 1] = 0x04;  // bit 3 * 64 + 10
    f.publish();
    std::mt19937_64 rng(96);
    const ub4 b1 = 3 * 64 + 10;
    // One bit: b1 alone.  Two bits: the top six bits 0 name bit 3 * 64 + 0,
    // clear here; 10 names b1 itself.
    const std::vector<ub4> words = {b1, b1 | (10u << 26), b1 | (11u << 26), b1 + 1};
    for (unsigned hash_bytes : {4u, 8u})
        for (ub1 mode : {ub1{1}, ub1{0}, ub1{2}, ub1{255}}) {
            Hashes h(rng, words, hash_bytes);
            Out o(1);
            EXPECT_EQ(ctx().vorn_bloom_dydi(&o.res, &h.vec, &f.vec, nullptr, mode), 0u);
            EXPECT_EQ(o.bits[0], mode == 1 ? 0x7u : 0x2u) << int{mode};
        }
    // With bit 3 * 64 + 0 set too, a top of 0 passes.
    f.flat[8 * 3] = 0x01;
    Hashes h(rng, {b1, b1 | (63u << 26)}, 8);
    Out o(1);
    EXPECT_EQ(ctx().vorn_bloom_dydi(&o.res, &h.vec, &f.vec, nullptr, 2), 0u);
    EXPECT_EQ(o.bits[0], 0x1u);
}

// The hash width comes from the low byte of bit_width: 32 means 32-bit
// hashes, any other width 64-bit.
TEST(Bloom, HashWidthByTheLowByteOfTheWidth) {
    std::mt19937_64 rng(97);
    auto f = random_filter(rng, false, 0.5);
    const auto words = random_words(rng, 50);
    for (ub4 width : {32u, 0x120u, 64u, 0u, 0x140u}) {
        const unsigned hash_bytes = (width & 0xff) == 32 ? 4 : 8;
        Hashes h(rng, words, hash_bytes);
        h.enc.bit_width = width;
        Out o(1);
        ctx().vorn_bloom_dydi(&o.res, &h.vec, &f->vec, nullptr, 1);
        EXPECT_EQ(o.bits[0], model(*f, words, false, 0, nullptr, {0}).bits[0]) << width;
    }
}

TEST(Bloom, RefusesAColumnThatIsNotAligned) {
    std::mt19937_64 rng(98);
    auto f = random_filter(rng, false, 1.0);
    Hashes h(rng, random_words(rng, 40), 8);
    h.enc.flags = VORN_FIXED;
    Out o(1, 0x77);
    o.res.num_ones = 9;
    const std::vector<ub8> sel(1, ~ub8{0});
    vorn_kernel_ctx k{};
    k.bv_aux = sel.data();
    for (ub1 mode : {ub1{1}, ub1{2}})
        for (vorn_kernel_ctx *c : {static_cast<vorn_kernel_ctx *>(nullptr), &k})
            EXPECT_EQ(ctx().vorn_bloom_dydi(&o.res, &h.vec, &f->vec, c, mode), 2u);
    EXPECT_EQ(o.bits[0], 0x77u);
    EXPECT_EQ(o.res.num_ones, 9u);
    EXPECT_EQ(o.ends[0], 5u);
    EXPECT_EQ(o.ends[1], 6u);
}

// The named kernels behind the entry: each is the entry's choice.
TEST(Bloom, NamedKernelsAreTheEntrysChoices) {
    std::mt19937_64 rng(99);
    auto f = random_filter(rng, true, 0.6);
    const auto words = random_words(rng, 90);
    const auto selection = random_bits(rng, 90, 0.5);
    using Kernel = ub8 (*)(vorn_vec *, vorn_vec *, vorn_vec *, vorn_kernel_ctx *, ub1);
    struct Named {
        Kernel fn;
        unsigned hash_bytes;
        bool two_bit, selective;
    };
    const Named named[] = {
        {vorn_bloom_hash64, 8, false, false},       {vorn_bloom_hash64_selective, 8, false, true},
        {vorn_2bit_bloom_hash64, 8, true, false},   {vorn_2bit_bloom_hash64_selective, 8, true, true},
        {vorn_bloom_hash32, 4, false, false},       {vorn_bloom_hash32_selective, 4, false, true},
        {vorn_2bit_bloom_hash32, 4, true, false},   {vorn_2bit_bloom_hash32_selective, 4, true, true},
    };
    for (const Named &k : named) {
        Hashes h(rng, words, k.hash_bytes);
        Out o(2);
        vorn_kernel_ctx c{};
        c.bv_aux = k.selective ? selection.data() : nullptr;
        const Outcome want = model(*f, words, k.two_bit, 0, k.selective ? &selection : nullptr, {0, 0});
        EXPECT_EQ(k.fn(&o.res, &h.vec, &f->vec, &c, 0), want.code);
        EXPECT_EQ(o.bits, want.bits);
        EXPECT_EQ(o.ends[0], want.first);
        EXPECT_EQ(o.ends[1], want.last);
    }
}

}  // namespace
