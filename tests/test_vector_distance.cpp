// Distance kernels, vorn_dbv_*: every one of the 822 against a scalar model
// that takes the elements one by one in the working precision of the pair
// and adds them in order, on random dense vectors (NaN, infinities, both
// zeros, subnormals, dimensions 0, 1, odd and around every block) and
// random sparse ones (disjoint, equal and interleaved positions, bodies at
// every offset from an 8-byte boundary), with every metric code.  The pick
// slot: each of the 1,680 keys gives the kernel of the right name, every
// other key in range gives null.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/distance_model.h"
#include "support/fold_c.h"
#include "support/test_host.h"
#include "support/vector_model.h"
#include "vector/dbv_names.h"
#include "vector/dbv_roots.h"

namespace {
using vorntest::vec::order_encode_model;
using vorntest::vec::order_decode_model;
using vorntest::vec::model_f16;

using vorntest::ctx;
using vorntest::vec::DoubleResult;

// ---- Operands by name ----------------------------------------------------------

enum Base { F32, F64, I8, F16, BF16, BITS };

struct Op {
    Base base;
    bool c;
    bool sparse;
};

Op parse_operand(std::string s) {
    Op o{F32, false, false};
    if ((o.sparse = s[0] == 'S')) s = s.substr(1);
    if ((o.c = s[0] == 'C')) s = s.substr(1);
    static const std::map<std::string, Base> bases = {{"float", F32},    {"double", F64},
                                                      {"int8", I8},      {"float16", F16},
                                                      {"bfloat16", BF16}, {"bitmsb0", BITS}};
    o.base = bases.at(s);
    return o;
}

struct KernelName {
    std::string metric;
    Op left, right;
};

KernelName split_name(const std::string &name) {
    // vorn_dbv_<metric>_<left>_<right>
    const std::string rest = name.substr(9);
    const size_t a = rest.find('_'), b = rest.find('_', a + 1);
    return {rest.substr(0, a), parse_operand(rest.substr(a + 1, b - a - 1)), parse_operand(rest.substr(b + 1))};
}

size_t elem_bytes(Base b) { return b == F64 ? 8 : b == F32 ? 4 : (b == F16 || b == BF16) ? 2 : 1; }

// ---- Model of the elements --------------------------------------------------------

uint64_t read_be(const uint8_t *p, size_t n) {
    uint64_t v = 0;
    for (size_t i = 0; i < n; ++i) v = (v << 8) | p[i];
    return v;
}
uint64_t read_le(const uint8_t *p, size_t n) {
    uint64_t v = 0;
    for (size_t i = n; i-- > 0;) v = (v << 8) | p[i];
    return v;
}

// Element k of a body as a double (every element type converts exactly).
double model_element(const Op &o, const uint8_t *body, size_t k) {
    const size_t n = elem_bytes(o.base);
    const uint8_t *p = body + k * n;
    if (o.base == I8) return double(int8_t(*p));
    const uint64_t bits = o.c ? order_decode_model(read_be(p, n), int(8 * n)) : read_le(p, n);
    switch (o.base) {
        case F32: return double(std::bit_cast<float>(uint32_t(bits)));
        case F64: return std::bit_cast<double>(bits);
        case F16: return double(model_f16(uint16_t(bits)));
        case BF16: return double(std::bit_cast<float>(uint32_t(bits) << 16));
        default: return 0;
    }
}

// ---- Model of the metrics ----------------------------------------------------------

template <class W>
W tolerance(const Op &l, const Op &r) {
    auto either = [&](Base b) { return l.base == b || r.base == b; };
    if (either(BF16)) return std::is_same_v<W, double> ? W(0.001954) : W(0.001954f);
    if (either(F16)) return W(0.001953125);
    if (either(F32)) return W(1.1920929e-7f);
    if (either(F64)) return W(2.220446049250313e-16);
    return W(0);
}

struct ModelSums {
    double s = 0, aa = 0, bb = 0;
    uint64_t n = 0;
};

// present: 1 left only, 2 right only, 3 both.
template <class W>
void model_step(const std::string &m, ModelSums &acc, int present, W a, W b, W tol) {
    if (m == "euclid") {
        const W d = b - a;  // a lone element meets 0 on the other side
        const W sq = present == 3 ? d * d : (present == 1 ? a * a : b * b);
        acc.s += double(sq);
    } else if (m == "cosine" || m == "dotprod") {
        // Each product rounds in W before it widens into the double sum.
        if (present == 3) acc.s += double(W(a * b));
        if (m == "cosine" && (present & 1)) acc.aa += double(W(a * a));
        if (m == "cosine" && (present & 2)) acc.bb += double(W(b * b));
    } else if (m == "manhattan") {
        W d = present == 3 ? b - a : (present == 1 ? a : b);
        if (d < 0) d = -d;
        acc.s += double(d);
    } else if (m == "hamming") {
        const W d = present == 3 ? b - a : (present == 1 ? a : b);
        if (d > tol || d < -tol) acc.n++;
    }
}

double model_finish(const std::string &m, const ModelSums &acc, uint32_t code) {
    auto g = [](double x) { return x < 0.0 ? 0.0 : std::sqrt(x); };
    if (m == "euclid") return code == 1 ? g(acc.s) : acc.s;
    if (m == "cosine") {
        const double c = acc.s / (g(acc.aa) * g(acc.bb));
        return code == 4 ? 1.0 - c : c;
    }
    if (m == "dotprod") return code == 6 ? -acc.s : acc.s;
    if (m == "manhattan") return acc.s;
    return double(acc.n);
}

double model_bits(const std::string &m, uint64_t x, uint64_t both, uint64_t either, uint64_t pa,
                  uint64_t pb, uint32_t code) {
    if (m == "euclid") return code == 1 ? std::sqrt(double(x)) : double(x);
    if (m == "hamming" || m == "manhattan") return double(x);
    if (m == "dotprod") return code == 6 ? double(-int32_t(uint32_t(both))) : double(both);
    if (m == "cosine") {
        const double c = double(both) / (std::sqrt(double(pa)) * std::sqrt(double(pb)));
        return code == 4 ? 1.0 - c : c;
    }
    const double j = double(both) / double(either);
    return code == 10 ? 1.0 - j : j;
}

struct SparseBody {
    std::vector<uint32_t> positions;
    const uint8_t *values = nullptr;
};

SparseBody read_sparse(const Op &o, const uint8_t *body) {
    SparseBody s;
    const size_t n = read_be(body, 2);
    for (size_t k = 0; k < n; ++k) s.positions.push_back(uint32_t(read_be(body + 2 + 4 * k, 4)));
    const uintptr_t end = reinterpret_cast<uintptr_t>(body + 2 + 4 * n);
    s.values = body + (((end + 7) & ~uintptr_t(7)) - reinterpret_cast<uintptr_t>(body));
    return s;
}

template <class W>
double model_values(const KernelName &k, uint32_t dims, const uint8_t *l, const uint8_t *r, uint32_t code) {
    const W tol = tolerance<W>(k.left, k.right);
    ModelSums acc;
    if (!k.left.sparse) {
        for (uint32_t i = 0; i < dims; ++i)
            model_step<W>(k.metric, acc, 3, W(model_element(k.left, l, i)), W(model_element(k.right, r, i)), tol);
        return model_finish(k.metric, acc, code);
    }
    const SparseBody a = read_sparse(k.left, l), b = read_sparse(k.right, r);
    size_t i = 0, j = 0;
    auto av = [&](size_t x) { return W(model_element(k.left, a.values, x)); };
    auto bv = [&](size_t x) { return W(model_element(k.right, b.values, x)); };
    while (i < a.positions.size() && j < b.positions.size()) {
        if (a.positions[i] == b.positions[j]) {
            model_step<W>(k.metric, acc, 3, av(i), bv(j), tol);
            ++i, ++j;
        } else if (a.positions[i] < b.positions[j]) {
            model_step<W>(k.metric, acc, 1, av(i), W(0), tol);
            ++i;
        } else {
            model_step<W>(k.metric, acc, 2, W(0), bv(j), tol);
            ++j;
        }
    }
    for (; i < a.positions.size(); ++i) model_step<W>(k.metric, acc, 1, av(i), W(0), tol);
    for (; j < b.positions.size(); ++j) model_step<W>(k.metric, acc, 2, W(0), bv(j), tol);
    return model_finish(k.metric, acc, code);
}

double model(const KernelName &k, uint32_t dims, const uint8_t *l, const uint8_t *r, uint32_t code) {
    if (k.left.base == BITS) {
        uint64_t x = 0, both = 0, either = 0, pa = 0, pb = 0;
        if (!k.left.sparse) {
            for (uint32_t i = 0; i < (dims + 7) / 8; ++i) {
                x += __builtin_popcount(l[i] ^ r[i]);
                both += __builtin_popcount(l[i] & r[i]);
                either += __builtin_popcount(l[i] | r[i]);
                pa += __builtin_popcount(l[i]);
                pb += __builtin_popcount(r[i]);
            }
        } else {
            const SparseBody a = read_sparse(k.left, l), b = read_sparse(k.right, r);
            std::map<uint32_t, int> seen;
            for (uint32_t p : a.positions) seen[p] |= 1;
            for (uint32_t p : b.positions) seen[p] |= 2;
            for (auto [p, w] : seen) {
                x += w != 3;
                both += w == 3;
                either += 1;
            }
            pa = a.positions.size();
            pb = b.positions.size();
        }
        return model_bits(k.metric, x, both, either, pa, pb, code);
    }
    const bool wide = k.left.base == F64 || k.right.base == F64;
    return wide ? model_values<double>(k, dims, l, r, code) : model_values<float>(k, dims, l, r, code);
}

// ---- Random operands ------------------------------------------------------------------

// A native element pattern: mostly moderate values, with every special kind.
uint64_t random_pattern(std::mt19937_64 &rng, Base b) {
    const unsigned pick = rng() % 20;
    if (b == I8 || b == BITS) return rng() & 0xFF;
    if (b == F16 || b == BF16) {
        const uint16_t specials[] = {0x0000, 0x8000, 0x0001, 0x8001, 0x03FF, 0x7C00, 0xFC00, 0x7C01, 0x7E00,
                                     0x7F80, 0xFF80, 0x7FC0, 0x7F81, 0x0040};
        if (pick == 0) return specials[rng() % 14];
        if (pick == 1) return rng() & 0xFFFF;
        // Moderate values: exponents near the middle.
        const uint16_t sign = (rng() & 1) << 15;
        if (b == F16) return sign | ((13 + rng() % 5) << 10) | (rng() & 0x3FF);
        return sign | ((125 + rng() % 5) << 7) | (rng() & 0x7F);
    }
    if (b == F32) {
        const uint32_t specials[] = {0, 0x80000000u, 1, 0x80000001u, 0x007FFFFFu, 0x7F800000u, 0xFF800000u,
                                     0x7FC00000u, 0x7F800001u, 0xFFC00001u, 0x3F800000u, 0x3F800001u};
        if (pick == 0) return specials[rng() % 12];
        if (pick == 1) return uint32_t(rng());
        const float v = float(int(rng() % 20001) - 10000) / 64.0f + float(rng() % 1000) * 1e-6f;
        return std::bit_cast<uint32_t>(v);
    }
    const uint64_t specials[] = {0, 0x8000000000000000ull, 1, 0x000FFFFFFFFFFFFFull, 0x7FF0000000000000ull,
                                 0xFFF0000000000000ull, 0x7FF8000000000000ull, 0x7FF0000000000001ull,
                                 0x3FF0000000000000ull, 0x3FF0000000000001ull};
    if (pick == 0) return specials[rng() % 10];
    if (pick == 1) return rng();
    const double v = double(int(rng() % 20001) - 10000) / 64.0 + double(rng() % 1000) * 1e-9;
    return std::bit_cast<uint64_t>(v);
}

uint64_t order_encode_of(uint64_t v, Base b) {
    switch (b) {
        case F32: return order_encode_model(v, 32, 0x7F800000u, 23);
        case F64: return order_encode_model(v, 64, 0x7FF0000000000000ull, 52);
        case F16: return order_encode_model(v, 16, 0x7C00, 10);
        default: return order_encode_model(v, 16, 0x7F80, 7);
    }
}

void put_element(const Op &o, uint8_t *p, uint64_t native) {
    const size_t n = elem_bytes(o.base);
    const uint64_t v = o.c ? order_encode_of(native, o.base) : native;
    for (size_t i = 0; i < n; ++i) p[i] = o.c ? uint8_t(v >> (8 * (n - 1 - i))) : uint8_t(v >> (8 * i));
}

// A body in an 8-aligned buffer at byte offset `shift`, with 64 bytes of
// slack behind it.
struct Body {
    std::vector<uint64_t> words;
    size_t shift = 0;
    uint8_t *p() { return reinterpret_cast<uint8_t *>(words.data()) + shift; }
};

Body dense_body(std::mt19937_64 &rng, const Op &o, uint32_t dims) {
    Body b;
    const size_t bytes = o.base == BITS ? (dims + 7) / 8 : dims * elem_bytes(o.base);
    b.words.assign(bytes / 8 + 10, 0);
    b.shift = rng() % 8;
    for (size_t i = 0; i < (o.base == BITS ? bytes : dims); ++i) {
        if (o.base == BITS) b.p()[i] = uint8_t(rng());
        else put_element(o, b.p() + i * elem_bytes(o.base), random_pattern(rng, o.base));
    }
    return b;
}

Body sparse_body(std::mt19937_64 &rng, const Op &o, const std::vector<uint32_t> &positions) {
    Body b;
    const size_t n = positions.size();
    b.words.assign((2 + 4 * n) / 8 + n + 12, 0);
    b.shift = rng() % 8;
    uint8_t *p = b.p();
    p[0] = uint8_t(n >> 8), p[1] = uint8_t(n);
    for (size_t k = 0; k < n; ++k)
        for (int i = 0; i < 4; ++i) p[2 + 4 * k + i] = uint8_t(positions[k] >> (24 - 8 * i));
    if (o.base != BITS) {
        const uintptr_t end = reinterpret_cast<uintptr_t>(p + 2 + 4 * n);
        uint8_t *values = reinterpret_cast<uint8_t *>((end + 7) & ~uintptr_t(7));
        for (size_t k = 0; k < n; ++k) put_element(o, values + k * elem_bytes(o.base), random_pattern(rng, o.base));
    }
    return b;
}

// Two position lists: disjoint, equal, interleaved or random overlap.
void random_positions(std::mt19937_64 &rng, std::vector<uint32_t> &a, std::vector<uint32_t> &b) {
    a.clear(), b.clear();
    const unsigned kind = rng() % 4;
    const uint32_t n = rng() % 40;
    uint32_t p = rng() % 3;
    for (uint32_t i = 0; i < n; ++i, p += 1 + rng() % 3) {
        switch (kind) {
            case 0: (i < n / 2 ? a : b).push_back(p); break;       // disjoint ranges
            case 1: a.push_back(p), b.push_back(p); break;          // equal
            case 2: (i & 1 ? a : b).push_back(p); break;            // interleaved
            default:
                if (rng() & 1) a.push_back(p);
                if (rng() & 1) b.push_back(p);
        }
    }
    if (rng() % 8 == 0) a.clear();
}

bool same_double(double x, double y) {
    if (std::isnan(x) && std::isnan(y)) return true;
    return std::bit_cast<uint64_t>(x) == std::bit_cast<uint64_t>(y);
}

const uint32_t kDims[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 200};

TEST(VectorDistance, EveryKernelAgainstModel) {
    std::mt19937_64 rng(2024);
    std::vector<uint32_t> pa, pb;
    for (size_t k = 0; k < 822; ++k) {
        const std::string name = vorn_dbv_kernel_names[k];
        const KernelName kn = split_name(name);
        const vorn_dbv_fn fn = vorn_dbv_kernels[k];
        const int reps = kn.left.sparse ? 12 : 2;
        for (uint32_t dims : kDims) {
            for (int rep = 0; rep < reps; ++rep) {
                Body l, r;
                if (kn.left.sparse) {
                    random_positions(rng, pa, pb);
                    l = sparse_body(rng, kn.left, pa);
                    r = sparse_body(rng, kn.right, pb);
                } else {
                    l = dense_body(rng, kn.left, dims);
                    r = dense_body(rng, kn.right, dims);
                }
                for (uint32_t code = 0; code <= 10; ++code) {
                    double out = 12345.0;
                    ASSERT_EQ(fn(dims, l.p(), r.p(), code, &out), 0u);
                    const double want = model(kn, dims, l.p(), r.p(), code);
                    ASSERT_TRUE(same_double(out, want))
                        << name << " dims " << dims << " code " << code << ": " << out << " vs " << want;
                }
                if (kn.left.sparse) break;  // sparse kernels ignore dims
            }
        }
    }
}

uint64_t spread_pattern(std::mt19937_64 &rng, Base b) {
    const double v = double(rng() % 100000) / 7.0 * std::ldexp(1.0, int(rng() % 24) - 12);
    switch (b) {
        case I8: return rng() & 0xFF;
        case F16: return ((rng() & 1) << 15) | ((8 + rng() % 15) << 10) | (rng() & 0x3FF);
        case BF16: return std::bit_cast<uint32_t>(float(v)) >> 16;
        case F32: return std::bit_cast<uint32_t>(float(v));
        default: return std::bit_cast<uint64_t>(v * std::ldexp(1.0, int(rng() % 40)));
    }
}

// Long vectors of moderate values, where a reordered sum would round apart.
TEST(VectorDistance, LongFloatSumsInOrder) {
    std::mt19937_64 rng(99);
    for (size_t k = 0; k < 822; ++k) {
        const KernelName kn = split_name(vorn_dbv_kernel_names[k]);
        if (kn.left.sparse || kn.left.base == BITS) continue;
        for (uint32_t dims : {960u, 1001u}) {
            Body l = dense_body(rng, kn.left, dims), r = dense_body(rng, kn.right, dims);
            // Finite values over a wide range of magnitudes, where a sum
            // taken in another order rounds apart.
            for (uint32_t i = 0; i < dims; ++i)
                put_element(kn.left, l.p() + i * elem_bytes(kn.left.base), spread_pattern(rng, kn.left.base));
            for (uint32_t code : {1u, 3u, 5u, 7u, 8u}) {
                double out;
                vorn_dbv_kernels[k](dims, l.p(), r.p(), code, &out);
                ASSERT_TRUE(same_double(out, model(kn, dims, l.p(), r.p(), code))) << vorn_dbv_kernel_names[k];
            }
        }
    }
}

// ---- Named cases ---------------------------------------------------------------------

vorn_dbv_fn by_name(const std::string &name) {
    for (size_t k = 0; k < 822; ++k)
        if (name == vorn_dbv_kernel_names[k]) return vorn_dbv_kernels[k];
    return nullptr;
}

// ---- Bit kernels: the 128-bit path and the table of roots --------------------

TEST(VectorDistance, CountRootsAreTheCorrectlyRoundedRoots) {
    for (uint32_t n = 0; n < vorn::vec::kCountRoots; ++n)
        ASSERT_EQ(std::bit_cast<uint64_t>(vorn_count_roots[n]), std::bit_cast<uint64_t>(std::sqrt(double(n)))) << n;
}

// The dimensions around the one-group path (121 to 128 bits) and counts on
// both sides of the table's end (1,024): dense vectors whose bits are set
// with a chosen density, so a count reaches every range, and every code.
TEST(VectorDistance, BitKernelsAroundTheShortPathAndTheRootTable) {
    std::mt19937_64 rng(128);
    const Op bits{BITS, false, false};
    std::vector<KernelName> names;
    for (const char *m : {"euclid", "cosine", "dotprod", "manhattan", "hamming", "jaccard"})
        names.push_back(split_name(std::string("vorn_dbv_") + m + "_bitmsb0_bitmsb0"));
    for (uint32_t dims : {112u, 119u, 120u, 121u, 122u, 126u, 127u, 128u, 129u, 136u, 256u, 1016u, 1024u, 1025u,
                          1032u, 1100u, 2048u}) {
        for (int rep = 0; rep < 6; ++rep) {
            Body l = dense_body(rng, bits, dims), r = dense_body(rng, bits, dims);
            // Densities from all clear to all set, on each side apart.
            const unsigned dl = rep, dr = 5 - rep;
            for (uint32_t i = 0; i < (dims + 7) / 8; ++i) {
                l.p()[i] = dl == 0 ? 0 : dl == 5 ? 0xFF : uint8_t(l.p()[i] & (dl < 3 ? rng() : ~rng()));
                r.p()[i] = dr == 0 ? 0 : dr == 5 ? 0xFF : uint8_t(r.p()[i] | (dr < 3 ? 0 : rng()));
            }
            for (const KernelName &kn : names) {
                const vorn_dbv_fn fn = by_name("vorn_dbv_" + kn.metric + "_bitmsb0_bitmsb0");
                for (uint32_t code = 0; code <= 10; ++code) {
                    double out = 12345.0;
                    ASSERT_EQ(fn(dims, l.p(), r.p(), code, &out), 0u);
                    const double want = model(kn, dims, l.p(), r.p(), code);
                    ASSERT_TRUE(same_double(out, want))
                        << kn.metric << " dims " << dims << " code " << code << ": " << out << " vs " << want;
                }
            }
        }
    }
}

// Named cases: the kernel, its operands, the code, and the expected bits
// of the result (kNaN: any NaN).
TEST(VectorDistance, EdgeCases) {
    const float one[2] = {1.0f, 1.0000001f}, other[2] = {1.0000001f, 1.0f}, nan[1] = {NAN}, zero[2] = {};
    const float a[2] = {0, 0}, b[2] = {3, 4};
    const uint8_t z[8] = {};
    const double d1[1] = {1.0};
    const float f1[1] = {float(1.0 + 1.1920928955078125e-7)};  // double_float: float epsilon widened
    // signed: the sign of a zero result matters too.
    const struct {
        const char *name;
        uint32_t dims;
        const void *l, *r;
        uint32_t code;
        double want;
        bool is_signed;
        const char *why;
    } cases[] = {
        {"hamming_float_float", 2, one, other, 8, 0.0, false, "within the tolerance"},
        {"hamming_float_float", 1, nan, zero, 8, 0.0, false, "a NaN difference does not count"},
        {"cosine_float_float", 0, zero, zero, 3, NAN, false, "0 / 0"},
        {"cosine_float_float", 1, zero, zero, 4, NAN, false, "1 - 0 / 0"},
        {"dotprod_float_float", 1, zero, zero, 6, -0.0, true, "-0.0"},
        {"euclid_float_float", 2, a, b, 1, 5.0, false, "root"},
        {"euclid_float_float", 2, a, b, 2, 25.0, false, "square"},
        {"euclid_float_float", 0, a, b, 1, 0.0, false, "empty"},
        {"dotprod_float_float", 0, a, b, 1, 0.0, false, "empty"},
        {"manhattan_float_float", 0, a, b, 1, 0.0, false, "empty"},
        {"hamming_float_float", 0, a, b, 1, 0.0, false, "empty"},
        {"dotprod_bitmsb0_bitmsb0", 64, z, z, 6, 0.0, true, "negated as an integer: no -0.0"},
        {"jaccard_bitmsb0_bitmsb0", 64, z, z, 9, NAN, false, "0 / 0"},
        {"hamming_double_float", 1, d1, f1, 8, 0.0, false, "within the float tolerance"},
    };
    for (const auto &c : cases) {
        double out = 12345.0;
        by_name(std::string("vorn_dbv_") + c.name)(c.dims, c.l, c.r, c.code, &out);
        SCOPED_TRACE(testing::Message() << c.name << " code " << c.code << ": " << c.why);
        if (std::isnan(c.want)) EXPECT_TRUE(std::isnan(out)) << out;
        else if (c.is_signed) EXPECT_EQ(std::bit_cast<uint64_t>(out), std::bit_cast<uint64_t>(c.want)) << out;
        else EXPECT_EQ(out, c.want);
    }
}

// ---- The pick -------------------------------------------------------------------------

// The expected kernel name of a key, from the pairing rule; "" for none.
std::string expected_name(uint32_t metric, uint32_t lt, uint32_t lc, uint32_t ls, uint32_t rt, uint32_t rc,
                          uint32_t rs) {
    static const std::map<uint32_t, std::string> type = {{1, "float"},   {2, "double"},  {5, "int8"},
                                                         {6, "bitmsb0"}, {7, "float16"}, {8, "bfloat16"}};
    static const char *metrics[] = {"", "euclid", "euclid", "cosine", "cosine", "dotprod", "dotprod",
                                    "manhattan", "hamming", "jaccard", "jaccard"};
    if (metric < 1 || metric > 10 || !type.count(lt) || !type.count(rt) || ls > 1 || rs > 1 || ls != rs) return "";
    const std::string S = ls ? "S" : "";
    const bool lbits = lt == 6, rbits = rt == 6;
    if (lbits != rbits) return "";
    if (metric >= 9 && !lbits) return "";
    if (lbits) return std::string("vorn_dbv_") + metrics[metric] + "_" + S + "bitmsb0_" + S + "bitmsb0";
    const bool li8 = lt == 5, ri8 = rt == 5;
    bool lC = lc && !li8, rC = rc && !ri8;
    if (ri8 && rc) lC = false;
    if (li8 && lc) rC = false;
    return std::string("vorn_dbv_") + metrics[metric] + "_" + S + (lC ? "C" : "") + type.at(lt) + "_" + S +
           (rC ? "C" : "") + type.at(rt);
}

TEST(VectorPick, EveryKeyInRange) {
    std::map<vorn_dbv_fn, std::string> names;
    for (size_t k = 0; k < 822; ++k) names[vorn_dbv_kernels[k]] = vorn_dbv_kernel_names[k];
    ASSERT_EQ(names.size(), 822u) << "822 distinct kernels";
    // Names are those of the static archive's kernels; the slot of the loaded
    // library must agree on which keys have one.
    const auto pick = vorn_vector_pick_metric_dydi;
    const auto slot = ctx().vorn_vector_pick_metric_dydi;
    unsigned valid = 0;
    for (uint32_t metric = 0; metric <= 11; ++metric)
        for (uint32_t left = 0; left < 36; ++left)
            for (uint32_t right = 0; right < 36; ++right) {
                const uint32_t lt = left >> 2, lc = left & 1, ls = (left >> 1) & 1;
                const uint32_t rt = right >> 2, rc = right & 1, rs = (right >> 1) & 1;
                const vorn_dbv_fn got = pick(metric, lt, lc, ls, rt, rc, rs);
                const std::string want = expected_name(metric, lt, lc, ls, rt, rc, rs);
                ASSERT_EQ(slot(metric, lt, lc, ls, rt, rc, rs) == nullptr, want.empty());
                if (want.empty()) {
                    ASSERT_EQ(got, nullptr) << metric << " " << left << " " << right;
                } else {
                    ++valid;
                    ASSERT_NE(got, nullptr) << want;
                    ASSERT_EQ(names[got], want);
                    // A C indicator counts as 1 whatever its value.
                    ASSERT_EQ(pick(metric, lt, lc * 7, ls, rt, rc * 0x80000000u, rs), got);
                }
            }
    EXPECT_EQ(valid, 1680u);
    EXPECT_EQ(names[pick(1, 1, 0, 0, 1, 0, 0)], "vorn_dbv_euclid_float_float");
    EXPECT_EQ(pick(2, 1, 0, 0, 1, 0, 0), pick(1, 1, 0, 0, 1, 0, 0));
    EXPECT_EQ(pick(1, 1, 0, 1, 1, 0, 0), nullptr) << "sparse left, dense right";
    EXPECT_EQ(pick(9, 1, 0, 0, 1, 0, 0), nullptr) << "jaccard on floats";
    EXPECT_EQ(pick(0xFFFFFFFFu, 1, 0, 0, 1, 0, 0), nullptr);
    EXPECT_EQ(names[pick(3, 7, 1, 0, 5, 1, 0)], "vorn_dbv_cosine_float16_int8");
    EXPECT_EQ(names[pick(3, 7, 1, 0, 5, 0, 0)], "vorn_dbv_cosine_Cfloat16_int8");
}

// The single-query distance driver over every row from the cursor, cut by
// the result capacity: the walk takes the rows eight at a time straight
// from the column, so capacities and run lengths around a group and around
// the prefetch distance of sixteen rows each give the kernel's distance for
// each row, nothing behind the last, and the cursor behind the run.
TEST(VectorDistance, SingleQueryRunsCutByTheCapacity) {
    namespace tv = vorntest::vec;
    std::mt19937_64 rng(46);
    const ub4 caps[] = {1, 7, 8, 9, 16, 17, 24, 25, 33, 1000};
    for (unsigned elem : {unsigned(tv::kFloat), unsigned(tv::kInt8), tv::UnifColumn::kBits})
        for (ub4 cap : caps) {
            const unsigned dim = elem == tv::UnifColumn::kBits ? 128 : 4 + static_cast<unsigned>(rng() % 8);
            const ub4 n = 1 + static_cast<ub4>(rng() % 60);
            tv::UnifColumn right(elem, dim, n, rng), left(elem, dim, 1, rng);
            vorn_kernel_ctx k{};
            k.row_pos = static_cast<ub4>(rng() % (n + 2));
            const vorn_kernel_ctx before = k;
            const auto rows = tv::walked_rows(k, n, cap);
            std::vector<double> out(cap + 1, -7.0);
            DoubleResult res(out, cap);
            const unsigned metric = elem == tv::UnifColumn::kBits ? 8 : 1 + static_cast<unsigned>(rng() % 2);
            SCOPED_TRACE(testing::Message() << "elem " << elem << " n " << n << " from " << before.row_pos << " cap " << cap);
            ASSERT_EQ(ctx().vorn_vector_distance_dydi(&res.vec, &right.vec, &left.vec, metric, 0, &k, nullptr), 0u);
            for (std::size_t i = 0; i < rows.size(); ++i) {
                const ub4 r = rows[i];
                ASSERT_TRUE(tv::same_bits(out[i], tv::model_for(elem, elem, left.rows[0], right.rows[r], dim, metric)))
                    << "row " << r;
            }
            ASSERT_EQ(out[rows.size()], -7.0);
            EXPECT_EQ(k.row_pos, tv::cursor_after(before, rows));
        }
}

// Single-query float euclid over rows whose squares reach the ends of the
// float range: infinite squares, NaNs of either sign, finite squares whose
// sums pass 2^128, subnormal squares and subnormal elements, among ordinary
// values, at widths around the group of four and its tail.  Every distance
// is the kernel's double (NaN for NaN, whatever its payload).
TEST(VectorDistance, FloatRowsWithSquaresAtTheEndsOfTheRange) {
    namespace tv = vorntest::vec;
    std::mt19937_64 rng(48);
    const double specials[] = {3e19, -3e19, std::nan(""), -std::nan(""), 1.5e19, 1e-22, -1e-22, 1e-40, 0.0, -0.0};
    for (unsigned dim : {4u, 5u, 8u, 11u, 12u, 16u, 19u, 128u, 131u}) {
        const ub4 n = 19;
        tv::UnifColumn right(tv::kFloat, dim, n, rng), left(tv::kFloat, dim, 1, rng);
        for (unsigned i = 0; i < dim; ++i)
            if (rng() % 3 == 0) tv::put(left.rows[0], tv::kFloat, i, rng() % 2 ? 0.0 : 1e-41);
        for (ub4 r = 0; r < n; ++r) {
            // Row r takes one kind of special value at random places; every
            // third row stays ordinary.
            if (r % 3 == 2) continue;
            const double v = specials[r % std::size(specials)];
            for (unsigned i = 0; i < dim; ++i)
                if (rng() % 4 == 0 || (r % 3 == 1 && i == dim - 1)) tv::put(right.rows[r], tv::kFloat, i, v);
        }
        std::vector<double> out(n);
        DoubleResult res(out, n);
        for (unsigned metric : {1u, 2u}) {
            ASSERT_EQ(ctx().vorn_vector_distance_dydi(&res.vec, &right.vec, &left.vec, metric, 0, nullptr, nullptr), 0u);
            for (ub4 r = 0; r < n; ++r) {
                const double want = tv::euclid_model(tv::kFloat, tv::kFloat, left.rows[0], right.rows[r], dim, metric);
                ASSERT_TRUE(tv::same_bits(out[r], want) || (std::isnan(out[r]) && std::isnan(want)))
                    << "dim " << dim << " row " << r << " metric " << metric << ": " << out[r] << " against " << want;
            }
        }
    }
}

// Single-query int8 euclid sums its squares as integers: over widths
// around the blocks of 16 and 8 elements and up to and past the widest
// query that the walk widens (2048), with rows at the far ends of the range
// against a query at the other end (the largest squares), the distances
// are the kernel's doubles.
TEST(VectorDistance, Int8RowsAtTheLimitsOfTheirRange) {
    namespace tv = vorntest::vec;
    std::mt19937_64 rng(47);
    for (unsigned dim : {1u, 7u, 8u, 9u, 15u, 16u, 17u, 24u, 31u, 33u, 2047u, 2048u, 2049u}) {
        const ub4 n = 11;
        tv::UnifColumn right(tv::kInt8, dim, n, rng), left(tv::kInt8, dim, 1, rng);
        for (unsigned i = 0; i < dim; ++i) left.rows[0][i] = 0x7F;
        for (ub4 r = 0; r < n; ++r)
            for (unsigned i = 0; i < dim; ++i) {
                const unsigned pick = static_cast<unsigned>(rng() % 4);
                if (r % 3 == 0 || pick == 0) right.rows[r][i] = 0x80;
                else if (pick == 1) right.rows[r][i] = 0x7F;
            }
        std::vector<double> out(n);
        DoubleResult res(out, n);
        for (unsigned metric : {1u, 2u}) {
            ASSERT_EQ(ctx().vorn_vector_distance_dydi(&res.vec, &right.vec, &left.vec, metric, 0, nullptr, nullptr), 0u);
            for (ub4 r = 0; r < n; ++r)
                ASSERT_TRUE(tv::same_bits(out[r], tv::euclid_model(tv::kInt8, tv::kInt8, left.rows[0], right.rows[r],
                                                                    dim, metric)))
                    << "dim " << dim << " row " << r << " metric " << metric;
        }
        // The last call took metric 2: row 0 is all -128 against 127.
        ASSERT_EQ(out[0], double(dim) * 255 * 255);
    }
}

}  // namespace
