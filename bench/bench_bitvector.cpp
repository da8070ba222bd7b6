// Bit vectors: and, or, xor, not and popcnt in cache and out of it, and the
// ones iterator at two densities.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

struct Vectors {
    std::vector<ub8> a, b, dst;
    explicit Vectors(std::size_t bytes) : a(bytes / 8), b(bytes / 8), dst(bytes / 8) {
        for (auto &w : a) w = rng()();
        for (auto &w : b) w = rng()();
    }
    ub8 bits() const { return a.size() * 64; }
    std::size_t bytes() const { return a.size() * 8; }
};

Vectors &vectors(std::size_t bytes) {
    static std::map<std::size_t, std::unique_ptr<Vectors>> cache;
    auto &v = cache[bytes];
    if (!v) v = std::make_unique<Vectors>(bytes);
    return *v;
}

enum class Op { And, Or, Xor };

VORN_SCALAR void scalar_binary(Op op, ub1 *d, const ub1 *a, const ub1 *b, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) d[i] = op == Op::And ? a[i] & b[i] : op == Op::Or ? a[i] | b[i] : a[i] ^ b[i];
}

vorn_bv2_fn slot(Op op) {
    return op == Op::And ? ctx().vorn_lbiwvand_dydi : op == Op::Or ? ctx().vorn_lbiwvor_dydi : ctx().vorn_lbiwvxor_dydi;
}

void binary_kernel(benchmark::State &state, Op op, std::size_t bytes) {
    Vectors &v = vectors(bytes);
    const vorn_bv2_fn f = slot(op);
    for (auto _ : state) {
        f(v.dst.data(), nullptr, v.a.data(), v.b.data(), v.bits());
        benchmark::ClobberMemory();
    }
    set_rates(state, v.bits(), 3.0 * bytes);
}

void binary_scalar(benchmark::State &state, Op op, std::size_t bytes) {
    Vectors &v = vectors(bytes);
    for (auto _ : state) {
        scalar_binary(op, reinterpret_cast<ub1 *>(v.dst.data()), reinterpret_cast<const ub1 *>(v.a.data()),
                      reinterpret_cast<const ub1 *>(v.b.data()), bytes);
        benchmark::ClobberMemory();
    }
    set_rates(state, v.bits(), 3.0 * bytes);
}

void binary_bandwidth(benchmark::State &state, std::size_t bytes) {
    Vectors &v = vectors(bytes);
    for (auto _ : state) {
        stream_copy3(v.dst.data(), v.a.data(), v.b.data(), bytes);
        benchmark::ClobberMemory();
    }
    set_rates(state, v.bits(), 3.0 * bytes);
}

VORN_SCALAR ub8 scalar_popcount(const ub1 *p, std::size_t n) {
    ub8 c = 0;
    for (std::size_t i = 0; i < n; ++i) c += __builtin_popcount(p[i]);
    return c;
}

VORN_SCALAR void scalar_not(ub1 *d, const ub1 *a, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) d[i] = static_cast<ub1>(~a[i]);
}

// A vector of `bits` bits with ones at the given density.
const std::vector<ub8> &sparse(double density) {
    static std::map<double, std::vector<ub8>> cache;
    auto &v = cache[density];
    if (v.empty()) {
        v.assign((4 << 20) / 64, 0);
        std::bernoulli_distribution d(density);
        for (std::size_t i = 0; i < v.size() * 64; ++i)
            if (d(rng())) v[i / 64] |= ub8{1} << (i % 64);
    }
    return v;
}

void ones_kernel(benchmark::State &state, double density) {
    const auto &v = sparse(density);
    std::vector<ub4> out(1024);
    ub8 total = 0;
    for (auto _ : state) {
        vorn_bv_iter it;
        ctx().vorn_lbiwv_ictx_ini2_dydi(&it, v.data(), v.size() * 64, 0, 0);
        while (ub4 n = ctx().vorn_lbiwvones_dydi(&it, out.data(), 1024)) total += n;
    }
    benchmark::DoNotOptimize(total);
    set_rates(state, v.size() * 64.0, v.size() * 8.0);
}

VORN_SCALAR ub8 scalar_ones(const ub8 *v, ub8 bits, ub4 *out) {
    ub8 n = 0;
    for (ub8 i = 0; i < bits; ++i) {
        if ((v[i >> 6] >> (i & 63)) & 1) out[n++ & 1023] = static_cast<ub4>(i);
    }
    return n;
}

void ones_scalar(benchmark::State &state, double density) {
    const auto &v = sparse(density);
    std::vector<ub4> out(1024);
    for (auto _ : state) benchmark::DoNotOptimize(scalar_ones(v.data(), v.size() * 64, out.data()));
    set_rates(state, v.size() * 64.0, v.size() * 8.0);
}

void register_all() {
    struct Size { const char *name; std::size_t bytes; };
    const Size sizes[] = {{"L2", 32 << 10}, {"64MiB", 64 << 20}};
    const std::pair<const char *, Op> ops[] = {{"and", Op::And}, {"or", Op::Or}, {"xor", Op::Xor}};
    for (const Size &s : sizes) {
        for (const auto &[name, op] : ops) {
            const std::string g = std::string(name) + "/" + s.name;
            register_row(g, "kernel", binary_kernel, op, s.bytes);
            register_row(g, "scalar", binary_scalar, op, s.bytes);
            register_row(g, "bandwidth", binary_bandwidth, s.bytes);
        }
        const std::string p = std::string("popcnt/") + s.name;
        const std::size_t bytes = s.bytes;
        register_row(p, "kernel", [bytes](benchmark::State &st) {
            Vectors &v = vectors(bytes);
            for (auto _ : st) benchmark::DoNotOptimize(ctx().vorn_lbiwvpopcnt_dydi(nullptr, v.a.data(), v.bits()));
            set_rates(st, v.bits(), bytes);
        });
        register_row(p, "scalar", [bytes](benchmark::State &st) {
            Vectors &v = vectors(bytes);
            for (auto _ : st) benchmark::DoNotOptimize(scalar_popcount(reinterpret_cast<const ub1 *>(v.a.data()), bytes));
            set_rates(st, v.bits(), bytes);
        });
        register_row(p, "bandwidth", [bytes](benchmark::State &st) {
            Vectors &v = vectors(bytes);
            bandwidth(st, v.a.data(), bytes, v.bits());
        });
        const std::string n = std::string("not/") + s.name;
        register_row(n, "kernel", [bytes](benchmark::State &st) {
            Vectors &v = vectors(bytes);
            ub4 count;
            for (auto _ : st) {
                ctx().vorn_lbiwvnot_dydi(v.dst.data(), &count, v.a.data(), v.bits());
                benchmark::ClobberMemory();
            }
            set_rates(st, v.bits(), 2.0 * bytes);
        });
        register_row(n, "scalar", [bytes](benchmark::State &st) {
            Vectors &v = vectors(bytes);
            for (auto _ : st) {
                scalar_not(reinterpret_cast<ub1 *>(v.dst.data()), reinterpret_cast<const ub1 *>(v.a.data()), bytes);
                benchmark::ClobberMemory();
            }
            set_rates(st, v.bits(), 2.0 * bytes);
        });
    }
    for (double d : {0.01, 0.5}) {
        const std::string g = std::string("ones/") + (d < 0.1 ? "1pct" : "50pct");
        register_row(g, "kernel", ones_kernel, d);
        register_row(g, "scalar", ones_scalar, d);
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
