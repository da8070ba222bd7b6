// Vector arithmetic over flexible columns: 256 rows of 128 elements, each
// row a stored value with its header, through vorn_vector_arith_dydi, for
//   - a paired add of native float rows into native float rows with norms
//     and the rows' ub2 lengths,
//   - a scalar multiply of order-preserving double rows, with norms,
//   - a paired add of int8 rows into int8 rows,
// beside a plain loop that reads the headers, checks them, computes and
// writes the same values (scalar), the uniform path over the same bodies
// (kernel_unif: what reading the headers costs), and a streaming read of
// one operand's values (bandwidth).  The data stays in cache.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kRows = 256;
constexpr ub4 kDim = 128;

enum Kind { kAddFloat, kMulCDouble, kAddInt8 };

ub4 elem_bytes(Kind k) { return k == kAddFloat ? 4 : k == kMulCDouble ? 8 : 1; }
// Native float bodies start on 8 bytes (offset 24); C and int8 at 17.
ub4 body_off(Kind k) { return k == kAddFloat ? 24 : 17; }
ub4 value_bytes(Kind k) { return body_off(k) + kDim * elem_bytes(k); }
ub1 flags_of(Kind k) { return k == kMulCDouble ? 0x02 : 0x0A; }
ub1 format_of(Kind k) { return k == kAddFloat ? 2 : k == kMulCDouble ? 3 : 4; }

ub8 c_enc64(double x) {
    ub8 v;
    std::memcpy(&v, &x, 8);
    if ((v & 0x7fffffffffffffffull) > 0x7ff0000000000000ull) v = 0xfff8000000000000ull;
    else if (v == 0x8000000000000000ull) {
    } else if (v & 0x8000000000000000ull) v = ~v;
    else v += 0x8000000000000000ull;
    return __builtin_bswap64(v);
}
double c_dec64(ub8 s) {
    const ub8 t = __builtin_bswap64(s);
    const ub8 v = (t & 0x8000000000000000ull) ? t - 0x8000000000000000ull : ~t;
    double x;
    std::memcpy(&x, &v, 8);
    return x;
}

// Two operand columns of stored values end to end, the result's room, and
// the descriptors of both the flexible and the uniform views.
struct Data {
    Kind kind;
    std::vector<ub1> a, b, out;
    std::vector<const void *> pa, pb, ba, bb;  // values; bodies
    std::vector<void *> po, bo;
    std::vector<double> norms;
    std::vector<ub2> lengths;
    double scalar = 1.0000001;
    ub8 scalar_c = 0;
    vorn_enc_ctx flex{}, unif{}, scalar_enc{};

    explicit Data(Kind k)
        : kind(k), a(std::size_t(kRows) * value_bytes(k)), b(a.size()), out(a.size()), pa(kRows), pb(kRows),
          ba(kRows), bb(kRows), po(kRows), bo(kRows), norms(kRows), lengths(kRows) {
        std::uniform_real_distribution<double> u(-1.0, 1.0);
        for (ub4 r = 0; r < kRows; ++r) {
            for (auto *col : {&a, &b}) {
                ub1 *v = col->data() + std::size_t(r) * value_bytes(k);
                v[0] = 0xDB;
                v[3] = flags_of(k);
                v[4] = format_of(k);
                const ub4 dims = __builtin_bswap32(kDim);
                std::memcpy(v + 5, &dims, 4);
                ub1 *body = v + body_off(k);
                for (ub4 i = 0; i < kDim; ++i) {
                    const double x = u(rng());
                    if (k == kAddFloat) {
                        const float f = static_cast<float>(x);
                        std::memcpy(body + 4 * i, &f, 4);
                    } else if (k == kMulCDouble) {
                        const ub8 e = c_enc64(x);
                        std::memcpy(body + 8 * i, &e, 8);
                    } else {
                        body[i] = static_cast<ub1>(static_cast<sb1>(x * 63));
                    }
                }
            }
            const std::size_t at = std::size_t(r) * value_bytes(k);
            pa[r] = &a[at];
            pb[r] = &b[at];
            po[r] = &out[at];
            ba[r] = &a[at + body_off(k)];
            bb[r] = &b[at + body_off(k)];
            bo[r] = &out[at + body_off(k)];
        }
        const ub1 type = k == kAddFloat ? 1 : k == kMulCDouble ? 2 : 5;
        const ub4 fp = k == kMulCDouble ? 0u : VORN_NATIVE_FP;
        flex.elem_type = unif.elem_type = scalar_enc.elem_type = type;
        flex.flags = VORN_VEC_COLUMN | VORN_VEC_FLEX | fp;
        unif.flags = VORN_VEC_COLUMN | fp;
        unif.vec_dim = kDim;
        scalar_enc.flags = VORN_CONST | fp;
        scalar_c = c_enc64(scalar);
    }

    // One call through the slot: flexible values or uniform bodies.
    void run(bool flexible) {
        vorn_vec l{}, r{}, o{};
        vorn_enc_ctx *e = flexible ? &flex : &unif;
        l.enc_ctx = r.enc_ctx = o.enc_ctx = e;
        l.data = flexible ? pa.data() : ba.data();
        r.data = flexible ? pb.data() : bb.data();
        o.data = flexible ? po.data() : bo.data();
        o.data2 = flexible ? lengths.data() : nullptr;
        l.size = r.size = o.size = kRows;
        if (kind == kMulCDouble) {
            r.enc_ctx = &scalar_enc;
            r.data = &scalar_c;
            r.size = 1;
        }
        double *np = norms.data();
        const ub8 op = kind == kMulCDouble ? 21 : 19;
        if (ctx().vorn_vector_arith_dydi(&o, kind == kAddInt8 ? nullptr : &np, &l, &r, op, nullptr, nullptr) != 0 ||
            o.num_ones != kRows)
            std::abort();
    }
};

Data &data(Kind k) {
    static std::unique_ptr<Data> d[3];
    if (!d[k]) d[k] = std::make_unique<Data>(k);
    return *d[k];
}

// The plain loop a host would write: each row's headers read and checked,
// the elements computed one by one with the overflow test, the norm summed
// in element order, the result's header, field and length written.
bool header_ok(const ub1 *v, ub1 format, ub4 *dims) {
    if (v[0] != 0xDB || v[1] > 3 || (v[3] & 0x12) == 0 || v[4] != format || (v[3] & 0x20)) return false;
    ub4 d;
    std::memcpy(&d, v + 5, 4);
    *dims = __builtin_bswap32(d);
    return true;
}
ub4 plain_body_off(const ub1 *v) {
    if ((v[3] & 0x3A) == 0) return 9;
    return (v[3] & 0x08) && !(v[3] & 0x20) && v[4] != 4 && v[4] != 5 ? 24 : 17;
}
void plain_header(ub1 *o, Kind k, ub4 dims, double norm, bool with_norm) {
    o[0] = 0xDB;
    o[1] = o[2] = 0;
    o[3] = flags_of(k);
    o[4] = format_of(k);
    const ub4 be = __builtin_bswap32(dims);
    std::memcpy(o + 5, &be, 4);
    const ub8 field = !with_norm ? 0 : k == kMulCDouble ? c_enc64(norm) : std::bit_cast<ub8>(norm);
    std::memcpy(o + 9, &field, 8);
}

VORN_SCALAR void plain(Data &d) {
    const Kind k = d.kind;
    for (ub4 r = 0; r < kRows; ++r) {
        const ub1 *x = static_cast<const ub1 *>(d.pa[r]), *y = static_cast<const ub1 *>(d.pb[r]);
        ub1 *o = static_cast<ub1 *>(d.po[r]);
        ub4 dx, dy = kDim;
        if (!header_ok(x, format_of(k), &dx) || (k != kMulCDouble && (!header_ok(y, format_of(k), &dy) || dx != dy)))
            std::abort();
        const ub1 *bx = x + plain_body_off(x), *by = y + plain_body_off(y);
        ub1 *bo = o + body_off(k);
        double s = 0.0;
        for (ub4 i = 0; i < dx; ++i) {
            if (k == kAddFloat) {
                float p, q;
                std::memcpy(&p, bx + 4 * i, 4);
                std::memcpy(&q, by + 4 * i, 4);
                const float v = p + q;
                if (std::isinf(v) || std::isnan(v)) std::abort();
                std::memcpy(bo + 4 * i, &v, 4);
                s += static_cast<double>(v * v);
            } else if (k == kMulCDouble) {
                ub8 p;
                std::memcpy(&p, bx + 8 * i, 8);
                const double v = c_dec64(p) * d.scalar;
                if (std::isinf(v) || std::isnan(v)) std::abort();
                const ub8 e = c_enc64(v);
                std::memcpy(bo + 8 * i, &e, 8);
                s += v * v;
            } else {
                const int v = static_cast<sb1>(bx[i]) + static_cast<sb1>(by[i]);
                if (v < -128 || v > 127) std::abort();
                bo[i] = static_cast<ub1>(static_cast<sb1>(v));
            }
        }
        const double norm = std::sqrt(s);
        plain_header(o, k, dx, norm, k != kAddInt8);
        if (k != kAddInt8) d.norms[r] = norm;
        d.lengths[r] = static_cast<ub2>(body_off(k) + dx * elem_bytes(k));
    }
}

// Before timing: the kernel and the plain loop write the same values
// (bodies, headers, lengths); the norms agree up to the order of their sums.
void check(Data &d) {
    d.run(true);
    const auto out = d.out;
    const auto norms = d.norms;
    const auto lengths = d.lengths;
    plain(d);
    for (ub4 r = 0; r < kRows; ++r) {
        const std::size_t at = std::size_t(r) * value_bytes(d.kind);
        const bool same_body = std::equal(out.begin() + at + body_off(d.kind), out.begin() + at + value_bytes(d.kind),
                                          d.out.begin() + at + body_off(d.kind));
        if (!same_body || !std::equal(out.begin() + at, out.begin() + at + 9, d.out.begin() + at) ||
            lengths[r] != d.lengths[r] || std::fabs(norms[r] - d.norms[r]) > 1e-9 * d.norms[r]) {
            std::fprintf(stderr, "bench_vector_arith: row %u differs\n", r);
            std::abort();
        }
    }
}

void register_kind(const char *group, Kind k) {
    const double bytes = double(kRows) * value_bytes(k);  // one operand's values
    register_group(
        group,
        [bytes, k](benchmark::State &state) {
            Data &d = data(k);
            check(d);
            for (auto _ : state) d.run(true);
            set_rates(state, kRows, bytes);
        },
        [bytes, k](benchmark::State &state) {
            Data &d = data(k);
            for (auto _ : state) plain(d);
            set_rates(state, kRows, bytes);
        },
        [k](benchmark::State &state) {
            Data &d = data(k);
            bandwidth(state, d.a.data(), d.a.size(), kRows);
        });
    register_row(group, "kernel_unif", [bytes, k](benchmark::State &state) {
        Data &d = data(k);
        for (auto _ : state) d.run(false);
        set_rates(state, kRows, bytes);
    });
}

const bool registered = [] {
    register_kind("arith_flex_add_float_wnorm", kAddFloat);
    register_kind("arith_flex_mul_Cdouble_scalar_wnorm", kMulCDouble);
    register_kind("arith_flex_add_int8", kAddInt8);
    return true;
}();

}  // namespace

VORN_BENCH_MAIN()
