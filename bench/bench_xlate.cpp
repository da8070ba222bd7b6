// Translation: vorn_xlate_sim_ub2 and vorn_xlate_sim_ub2_c2d over big-endian
// ub4 codes, a quarter of them outside the range, in cache and out of it,
// against a plain loop that swaps, tests, looks up and sets one row at a time.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kLow = 1000, kHigh = 49999, kCodes = 60000;
constexpr ub4 kSimUb2 = (3u << 7) | 17u;  // sim, ub2, no layout suffix
constexpr ub4 kC2d = 4096;

struct Data {
    Bytes codes;
    ub8 rows;
    std::vector<ub2> table;
    std::vector<ub8> bits;
    std::vector<ub2> out;
    vorn_xlate_table rec{};

    explicit Data(std::size_t bytes) : codes(bytes), rows(bytes / 4), table(kHigh + 1), bits(rows / 64 + 2), out(rows + 16) {
        for (ub8 r = 0; r < rows; ++r) {
            const ub4 c = static_cast<ub4>(rng()() % kCodes);
            const ub4 be = __builtin_bswap32(c);
            std::memcpy(codes.data() + 4 * r, &be, 4);
        }
        for (auto &e : table) e = static_cast<ub2>(rng()());
        rec.table = table.data();
    }
};

Data &data(std::size_t bytes) {
    static std::map<std::size_t, std::unique_ptr<Data>> cache;
    auto &d = cache[bytes];
    if (!d) d = std::make_unique<Data>(bytes);
    return *d;
}

void kernel_run(benchmark::State &state, std::size_t bytes, bool c2d) {
    Data &d = data(bytes);
    vornhost::HostServices host;
    vorn_vec src{};
    vorn_enc_ctx enc{};
    enc.flags = VORN_ALIGNED;
    enc.bit_width = 32;
    src.enc_ctx = &enc;
    src.data = d.codes.data();
    src.size = static_cast<ub4>(d.rows);
    vorn_vec res{};
    res.res_bv = d.bits.data();
    const vorn_xlate_fn f = kernel(kSimUb2 | (c2d ? kC2d : 0)).xlate;
    for (auto _ : state) {
        vorn_xlate_ctx x{kLow, kHigh, d.out.data(), VORN_XLATE_NO_ROW, VORN_XLATE_NO_ROW, 0};
        vorn_kernel_ctx k{};
        k.host = &host.services;
        k.xlate_ctx = &x;
        benchmark::DoNotOptimize(f(&res, &src, &d.rec, &k));
        benchmark::ClobberMemory();
    }
    set_rates(state, d.rows, bytes + d.rows / 8.0 + (c2d ? 2.0 * d.rows : 0));
}

template <bool C2D>
VORN_SCALAR ub8 scalar_translate(const ub1 *codes, ub8 rows, const ub2 *table, ub8 *bits, ub2 *out) {
    ub8 count = 0, word = 0;
    for (ub8 r = 0; r < rows; ++r) {
        ub4 c;
        std::memcpy(&c, codes + 4 * r, 4);
        c = __builtin_bswap32(c);
        const bool kept = c >= kLow && c <= kHigh;
        if (C2D) out[r] = kept ? table[c] : 0xffff;
        word |= ub8{kept} << (r & 63);
        count += kept;
        if ((r & 63) == 63) bits[r >> 6] = word, word = 0;
    }
    if (rows & 63) bits[rows >> 6] = word;
    return count;
}

void scalar_run(benchmark::State &state, std::size_t bytes, bool c2d) {
    Data &d = data(bytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(c2d ? scalar_translate<true>(d.codes.data(), d.rows, d.table.data(), d.bits.data(), d.out.data())
                                     : scalar_translate<false>(d.codes.data(), d.rows, d.table.data(), d.bits.data(), d.out.data()));
        benchmark::ClobberMemory();
    }
    set_rates(state, d.rows, bytes + d.rows / 8.0 + (c2d ? 2.0 * d.rows : 0));
}

void register_all() {
    struct Size {
        const char *name;
        std::size_t bytes;
    };
    const Size sizes[] = {{"L2", kInCacheBytes}, {"64MiB", 64 << 20}};
    for (const Size &s : sizes) {
        for (bool c2d : {false, true}) {
            const std::string g = std::string(c2d ? "sim_ub2_c2d/" : "sim_ub2/") + s.name;
            const std::size_t bytes = s.bytes;
            register_group(
                g, [bytes, c2d](benchmark::State &st) { kernel_run(st, bytes, c2d); },
                [bytes, c2d](benchmark::State &st) { scalar_run(st, bytes, c2d); },
                [bytes](benchmark::State &st) { bandwidth(st, data(bytes).codes.data(), bytes, data(bytes).rows); });
        }
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
