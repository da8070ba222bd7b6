// Decode with unpack: the dense path (all rows, no selection) for widths 1
// to 16 in cache, beside a scalar loop of reference reads.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kRows = 1 << 15;

struct Packed {
    unsigned w;
    Bytes stream;
    vorn_enc_ctx enc{};
    vorn_vec src{};
    std::vector<ub4> out;  // room for kRows elements of any size

    explicit Packed(unsigned width) : w(width), out(kRows + 16) {
        std::vector<ub8> codes(kRows);
        for (auto &c : codes) c = rng()() & ((ub8{1} << w) - 1);
        stream = vornhost::pack_codes(codes, w);
        enc.flags = VORN_PACKED;
        enc.bit_width = w;
        src.enc_ctx = &enc;
        src.data = stream.data();
        src.size = kRows;
    }
    double bytes() const { return kRows * (w / 8.0 + (w <= 8 ? 1 : 2)); }
};

Packed &packed(unsigned w) {
    static std::map<unsigned, std::unique_ptr<Packed>> cache;
    auto &p = cache[w];
    if (!p) p = std::make_unique<Packed>(w);
    return *p;
}

void unpack_kernel(benchmark::State &state, unsigned w) {
    Packed &p = packed(w);
    const vorn_decode_fn f =
        kernel(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(VORN_WIDTH_CODE(w), VORN_ENC_DICT), VORN_OP_DECODE_UNPACK, 0)).decode;
    vorn_vec res{};
    res.data = p.out.data();
    res.size = kRows;
    for (auto _ : state) {
        vorn_kernel_ctx k{};
        benchmark::DoNotOptimize(f(&res, &p.src, &k));
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, p.bytes());
}

template <class E>
VORN_SCALAR void scalar_unpack(const ub1 *s, unsigned w, ub4 n, E *out) {
    for (ub4 i = 0; i < n; ++i) {
        out[i] = static_cast<E>(reference_read(s, w, static_cast<ub8>(i) * w));
    }
}

void unpack_scalar(benchmark::State &state, unsigned w) {
    Packed &p = packed(w);
    for (auto _ : state) {
        if (w <= 8)
            scalar_unpack(p.stream.data(), w, kRows, reinterpret_cast<ub1 *>(p.out.data()));
        else
            scalar_unpack(p.stream.data(), w, kRows, reinterpret_cast<ub2 *>(p.out.data()));
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, p.bytes());
}

void register_all() {
    for (unsigned w = 1; w <= 16; ++w) {
        const std::string g = "unpack/w" + std::to_string(w);
        register_group(
            g, [w](benchmark::State &st) { unpack_kernel(st, w); }, [w](benchmark::State &st) { unpack_scalar(st, w); },
            [w](benchmark::State &st) { bandwidth(st, packed(w).stream.data(), kRows * w / 8, kRows); });
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
