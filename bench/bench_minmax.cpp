// Min/max: the dense scan for widths 1 to 16 in cache, beside a scalar loop
// of reference reads.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kRows = 1 << 16;

struct Packed {
    unsigned w;
    Bytes stream;
    vorn_enc_ctx enc{};
    vorn_vec src{};

    explicit Packed(unsigned width) : w(width) {
        std::vector<ub8> codes(kRows);
        const ub8 n = ub8{1} << w;
        // Codes away from both ends, so that no shortcut could stop early.
        for (auto &c : codes) c = n > 4 ? 1 + rng()() % (n - 2) : rng()() % n;
        stream = vornhost::pack_codes(codes, w);
        enc.flags = VORN_PACKED;
        enc.bit_width = w;
        enc.num_symbols = static_cast<ub4>(n);
        src.enc_ctx = &enc;
        src.data = stream.data();
        src.size = kRows;
    }
};

Packed &packed(unsigned w) {
    static std::map<unsigned, std::unique_ptr<Packed>> cache;
    auto &p = cache[w];
    if (!p) p = std::make_unique<Packed>(w);
    return *p;
}

void minmax_kernel(benchmark::State &state, unsigned w) {
    Packed &p = packed(w);
    const vorn_minmax_fn f =
        kernel(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(VORN_WIDTH_CODE(w), VORN_ENC_DICT), VORN_OP_MINMAX, 0)).minmax;
    ub4 out[2];
    vorn_vec res{};
    res.data = out;
    for (auto _ : state) {
        vorn_kernel_ctx k{};
        benchmark::DoNotOptimize(f(&res, &p.src, &k, 0));
        benchmark::DoNotOptimize(out[0] + out[1]);
    }
    set_rates(state, kRows, kRows * w / 8.0);
}

VORN_SCALAR ub8 scalar_minmax(const ub1 *s, unsigned w, ub4 n, ub4 none) {
    ub4 lo = none, hi = 0;
    for (ub4 i = 0; i < n; ++i) {
        const ub4 c = reference_read(s, w, static_cast<ub8>(i) * w);
        lo = c < lo ? c : lo;
        hi = c > hi ? c : hi;
    }
    return static_cast<ub8>(lo) << 32 | hi;
}

void minmax_scalar(benchmark::State &state, unsigned w) {
    Packed &p = packed(w);
    for (auto _ : state) benchmark::DoNotOptimize(scalar_minmax(p.stream.data(), w, kRows, p.enc.num_symbols));
    set_rates(state, kRows, kRows * w / 8.0);
}

void register_all() {
    for (unsigned w = 1; w <= 16; ++w) {
        const std::string g = "minmax/w" + std::to_string(w);
        register_group(
            g, [w](benchmark::State &st) { minmax_kernel(st, w); }, [w](benchmark::State &st) { minmax_scalar(st, w); },
            [w](benchmark::State &st) { bandwidth(st, packed(w).stream.data(), kRows * w / 8, kRows); });
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
