// Bloom filter: vorn_bloom_dydi over 16M 64-bit hashes against a flat filter
// of 64 KiB (in cache) and of 256 MiB (out of every cache), one bit and two
// bits, beside a plain loop that swaps, masks, tests and sets one row at a
// time, and the streaming read of the hash column.  The filters are half
// ones, so about half of the rows pass one bit and a quarter pass two.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub8 kRows = ub8{16} << 20;

struct Hashes {
    Bytes bytes{kRows * 8};
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    Hashes() {
        auto *p = reinterpret_cast<ub8 *>(bytes.data());
        for (ub8 r = 0; r < kRows; ++r) p[r] = rng()();
        enc.flags = VORN_ALIGNED;
        enc.bit_width = 64;
        vec.enc_ctx = &enc;
        vec.data = bytes.data();
        vec.size = static_cast<ub4>(kRows);
    }
};

Hashes &hashes() {
    static Hashes h;
    return h;
}

struct Filter {
    std::vector<ub8> words;
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    explicit Filter(std::size_t bytes) : words(bytes / 8) {
        for (auto &w : words) w = rng()();
        enc.bloom_mask = static_cast<ub4>(bytes * 8 - 1);
        vec.enc_ctx = &enc;
        vec.res_bv = words.data();
    }
};

Filter &filter(std::size_t bytes) {
    static std::map<std::size_t, std::unique_ptr<Filter>> cache;
    auto &f = cache[bytes];
    if (!f) f = std::make_unique<Filter>(bytes);
    return *f;
}

std::vector<ub8> &result_bits() {
    static std::vector<ub8> bits(kRows / 64 + 1);
    return bits;
}

void kernel_run(benchmark::State &state, std::size_t filter_bytes, ub1 mode) {
    Hashes &h = hashes();
    Filter &f = filter(filter_bytes);
    ub4 ends[2];
    vorn_vec res{};
    res.res_bv = result_bits().data();
    res.data = ends;
    for (auto _ : state) {
        std::memset(res.res_bv, 0, kRows / 8);
        vorn_kernel_ctx k{};
        benchmark::DoNotOptimize(ctx().vorn_bloom_dydi(&res, &h.vec, &f.vec, &k, mode));
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, kRows * 8.0);
}

struct Ends {
    ub4 count, first, last;
};

// The plain loop: one row at a time, the bits gathered into a word.
template <bool TwoBit>
VORN_SCALAR Ends scalar_bloom(const ub1 *hashes, ub8 rows, const ub1 *filter, ub4 mask, ub8 *bits) {
    Ends e{0, 0xffffffffu, 0xffffffffu};
    ub8 word = 0;
    for (ub8 r = 0; r < rows; ++r) {
        ub4 h;
        std::memcpy(&h, hashes + 8 * r + 4, 4);
        h = __builtin_bswap32(h);
        const ub4 b1 = h & mask;
        bool pass = (filter[b1 >> 3] >> (b1 & 7)) & 1;
        if (TwoBit) {
            const ub4 b2 = (b1 & ~63u) | ((h >> 26) & mask);
            pass = pass && ((filter[b2 >> 3] >> (b2 & 7)) & 1);
        }
        // Without a branch on the row's outcome, which is a coin toss here.
        word |= ub8{pass} << (r & 63);
        e.count += pass;
        e.last = pass ? static_cast<ub4>(r) : e.last;
        e.first = pass && e.first == 0xffffffffu ? static_cast<ub4>(r) : e.first;
        if ((r & 63) == 63) bits[r >> 6] |= word, word = 0;
    }
    if (rows & 63) bits[rows >> 6] |= word;
    return e;
}

void scalar_run(benchmark::State &state, std::size_t filter_bytes, ub1 mode) {
    Hashes &h = hashes();
    Filter &f = filter(filter_bytes);
    ub8 *bits = result_bits().data();
    const auto *fb = reinterpret_cast<const ub1 *>(f.words.data());
    for (auto _ : state) {
        std::memset(bits, 0, kRows / 8);
        benchmark::DoNotOptimize(mode == 1 ? scalar_bloom<false>(h.bytes.data(), kRows, fb, f.enc.bloom_mask, bits)
                                           : scalar_bloom<true>(h.bytes.data(), kRows, fb, f.enc.bloom_mask, bits));
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, kRows * 8.0);
}

void register_all() {
    struct Size {
        const char *name;
        std::size_t bytes;
    };
    const Size sizes[] = {{"filter64KiB", kInCacheBytes}, {"filter256MiB", kOutOfCacheBytes}};
    for (const Size &s : sizes)
        for (ub1 mode : {ub1{1}, ub1{2}}) {
            const std::string g = std::string("hash64/") + (mode == 1 ? "1bit/" : "2bit/") + s.name;
            const std::size_t bytes = s.bytes;
            register_row(g, "kernel", [bytes, mode](benchmark::State &st) { kernel_run(st, bytes, mode); })
                ->Unit(benchmark::kMillisecond);
            register_row(g, "scalar", [bytes, mode](benchmark::State &st) { scalar_run(st, bytes, mode); })
                ->Unit(benchmark::kMillisecond);
            register_row(g, "bandwidth", [](benchmark::State &st) {
                bandwidth(st, hashes().bytes.data(), kRows * 8, kRows);
            })->Unit(benchmark::kMillisecond);
        }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
