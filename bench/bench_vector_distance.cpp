// Vector distances: one kernel call per pair of vectors, 128 and 960
// dimensions, float, Cfloat, int8 and bitmsb0, each metric, over 256 pairs
// in cache.  The kernel is the one vorn_vector_pick_metric_dydi returns; the
// scalar row is a plain loop giving the same result (the same sequential
// double sums, the order-preserving form decoded element by element, bits
// counted a byte at a time); the bandwidth row streams the same bytes.
#include <cmath>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr std::size_t kPairs = 256;

enum class Form { Float, Cfloat, Int8, Bits };

const char *form_name(Form f) {
    return f == Form::Float ? "float" : f == Form::Cfloat ? "Cfloat" : f == Form::Int8 ? "int8" : "bitmsb0";
}
std::size_t body_bytes(Form f, ub4 dims) {
    return f == Form::Int8 ? dims : f == Form::Bits ? (dims + 7) / 8 : 4 * std::size_t(dims);
}

// 2 * kPairs bodies end to end, pair p = bodies 2p and 2p + 1.
struct Data {
    std::vector<ub8> words;
    std::size_t stride;
    const ub1 *body(std::size_t i) const { return reinterpret_cast<const ub1 *>(words.data()) + i * stride; }
};

ub4 order_encode(float v) {
    const ub4 b = std::bit_cast<ub4>(v);
    return __builtin_bswap32((b & 0x80000000u) ? (b == 0x80000000u ? b : ~b) : b + 0x80000000u);
}

const Data &data(Form f, ub4 dims) {
    static std::map<std::pair<int, ub4>, std::unique_ptr<Data>> cache;
    auto &d = cache[{int(f), dims}];
    if (d) return *d;
    d = std::make_unique<Data>();
    d->stride = (body_bytes(f, dims) + 15) & ~std::size_t(15);
    d->words.assign(d->stride * 2 * kPairs / 8, 0);
    for (std::size_t i = 0; i < 2 * kPairs; ++i) {
        ub1 *p = const_cast<ub1 *>(d->body(i));
        for (ub4 k = 0; k < dims; ++k) {
            const float v = float(int(rng()() % 2001) - 1000) / 37.0f;
            switch (f) {
                case Form::Float: std::memcpy(p + 4 * k, &v, 4); break;
                case Form::Cfloat: { const ub4 e = order_encode(v); std::memcpy(p + 4 * k, &e, 4); } break;
                case Form::Int8: p[k] = ub1(rng()()); break;
                case Form::Bits: if (k % 8 == 0) p[k / 8] = ub1(rng()()); break;
            }
        }
    }
    return *d;
}

// ---- The plain loop ------------------------------------------------------------

inline float scalar_load(Form f, const ub1 *p, ub4 k) {
    if (f == Form::Int8) return float(sb1(p[k]));
    ub4 w;
    std::memcpy(&w, p + 4 * k, 4);
    if (f == Form::Cfloat) {
        w = __builtin_bswap32(w);
        w = (w & 0x80000000u) ? w - 0x80000000u : ~w;
    }
    return std::bit_cast<float>(w);
}

template <Form F>
VORN_SCALAR double scalar_distance(ub4 metric, ub4 dims, const ub1 *a, const ub1 *b) {
    if constexpr (F == Form::Bits) {
        // Only the counts the metric needs, a byte at a time.
        const ub4 bytes = (dims + 7) / 8;
        ub8 x = 0, y = 0, z = 0;
        switch (metric) {
            case 3:
                for (ub4 k = 0; k < bytes; ++k) {
                    x += __builtin_popcount(a[k] & b[k]);
                    y += __builtin_popcount(a[k]);
                    z += __builtin_popcount(b[k]);
                }
                return double(x) / (std::sqrt(double(y)) * std::sqrt(double(z)));
            case 5:
                for (ub4 k = 0; k < bytes; ++k) x += __builtin_popcount(a[k] & b[k]);
                return double(x);
            case 9:
                for (ub4 k = 0; k < bytes; ++k) {
                    x += __builtin_popcount(a[k] & b[k]);
                    y += __builtin_popcount(a[k] | b[k]);
                }
                return double(x) / double(y);
            default:
                for (ub4 k = 0; k < bytes; ++k) x += __builtin_popcount(a[k] ^ b[k]);
                return metric == 1 ? std::sqrt(double(x)) : double(x);
        }
    } else {
        double s = 0, aa = 0, bb = 0;
        ub8 n = 0;
        for (ub4 k = 0; k < dims; ++k) {
            const float x = scalar_load(F, a, k), y = scalar_load(F, b, k);
            switch (metric) {
                case 1: { const float d = y - x; const float sq = d * d; s += sq; } break;
                case 3: { const float ab = x * y, xx = x * x, yy = y * y; s += ab; aa += xx; bb += yy; } break;
                case 5: { const float ab = x * y; s += ab; } break;
                case 7: { float d = y - x; if (d < 0) d = -d; s += d; } break;
                default: {
                    const float d = y - x;
                    const float tol = F == Form::Int8 ? 0.0f : 1.1920929e-7f;
                    n += d > tol || d < -tol;
                }
            }
        }
        switch (metric) {
            case 1: return s < 0 ? 0.0 : std::sqrt(s);
            case 3: return s / (std::sqrt(aa) * std::sqrt(bb));
            case 5: case 7: return s;
            default: return double(n);
        }
    }
}

// ---- Rows ---------------------------------------------------------------------------

ub4 type_of(Form f) { return f == Form::Int8 ? 5 : f == Form::Bits ? 6 : 1; }

void kernel_row(benchmark::State &state, Form f, ub4 metric, ub4 dims) {
    const Data &d = data(f, dims);
    const vorn_dbv_fn fn = ctx().vorn_vector_pick_metric_dydi(metric, type_of(f), f == Form::Cfloat, 0, type_of(f),
                                                              f == Form::Cfloat, 0);
    // One result per pair into an array, as the drivers write them; the
    // bodies' addresses come from locals, as a driver's row walk has them.
    std::vector<double> out(kPairs);
    const ub1 *const base = d.body(0);
    const std::size_t stride = d.stride;
    double *const res = out.data();
    for (auto _ : state) {
        const ub1 *pair = base;
        for (std::size_t p = 0; p < kPairs; ++p, pair += 2 * stride) fn(dims, pair, pair + stride, metric, res + p);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_rates(state, kPairs, 2.0 * kPairs * body_bytes(f, dims));
}

template <Form F>
void scalar_row(benchmark::State &state, ub4 metric, ub4 dims) {
    const Data &d = data(F, dims);
    std::vector<double> out(kPairs);
    const ub1 *const base = d.body(0);
    const std::size_t stride = d.stride;
    double *const res = out.data();
    for (auto _ : state) {
        const ub1 *pair = base;
        for (std::size_t p = 0; p < kPairs; ++p, pair += 2 * stride)
            res[p] = scalar_distance<F>(metric, dims, pair, pair + stride);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    set_rates(state, kPairs, 2.0 * kPairs * body_bytes(F, dims));
}

void bandwidth_row(benchmark::State &state, Form f, ub4 dims) {
    const Data &d = data(f, dims);
    bandwidth(state, d.words.data(), d.words.size() * 8, kPairs);
}

template <Form F>
void register_form() {
    const std::vector<ub4> metrics = F == Form::Bits ? std::vector<ub4>{1, 3, 5, 7, 8, 9}
                                                     : std::vector<ub4>{1, 3, 5, 7, 8};
    static const char *names[] = {"", "euclid", "", "cosine", "", "dotprod", "", "manhattan", "hamming", "jaccard"};
    for (ub4 dims : {128u, 960u})
        for (ub4 m : metrics) {
            const std::string group = std::string("distance/") + form_name(F) + "/" + names[m] + "/" + std::to_string(dims);
            register_group(
                group, [=](benchmark::State &s) { kernel_row(s, F, m, dims); },
                [=](benchmark::State &s) { scalar_row<F>(s, m, dims); },
                [=](benchmark::State &s) { bandwidth_row(s, F, dims); });
        }
}

int register_all() {
    register_form<Form::Float>();
    register_form<Form::Cfloat>();
    register_form<Form::Int8>();
    register_form<Form::Bits>();
    return 0;
}

const int registered = register_all();

}  // namespace

VORN_BENCH_MAIN()
