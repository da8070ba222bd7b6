// Vector arithmetic: every one of the 1,104 kernels against a plain model
// over random operands (all dimensions around the blocks of 16 and 4,
// overflow to infinity, division by zero, the int8 limits), the norm in its
// fixed lane order, the dispatch key and its refusals, and the entry's row
// walk over paired, single and scalar shapes with every selection.
#include <gtest/gtest.h>

#include "support/test_host.h"
#include "support/vector_model.h"
#include "vector/vector_entries.h"

namespace {

using namespace vorntest;
using namespace vorntest::vec;

constexpr ub1 kFillByte = 0xee;
const unsigned kDims[] = {0, 1, 3, 4, 5, 8, 15, 16, 17, 19, 20, 31, 32, 36, 37, 53};

bool triple_ok(unsigned a, unsigned b, unsigned r) {
    if (a == kInt8 && b == kInt8) return true;
    if (is_dbl(a) || is_dbl(b)) return is_dbl(r);
    return r != kInt8;
}

struct Outcome {
    ub8 code = 0;
    std::vector<ub1> res;
    double norm = -1.0;
};

// Which accumulator lane element i of a vector of `dim` adds to: 0..7 for
// acc0 lane 0 .. acc3 lane 1, 8 for the single accumulator.
unsigned norm_lane(unsigned i, unsigned dim) {
    const unsigned in16 = dim / 16 * 16, in4 = in16 + (dim - in16) / 4 * 4;
    if (i < in16) return (i % 16) / 4 * 2 + i % 2;
    if (i < in4) return (i - in16) % 2;
    return 8;
}

Outcome model(unsigned op, unsigned A, unsigned B, unsigned R, bool scalar, bool wnorm, unsigned dim,
              const std::vector<ub1> &a, const std::vector<ub1> &b) {
    Outcome o;
    o.res.assign(std::size_t(dim) * bytes_of(R), kFillByte);
    double lane[9] = {};
    const bool as_int = R == kInt8, as_dbl = is_dbl(A) || is_dbl(B) || is_dbl(R);
    for (unsigned i = 0; i < dim; ++i) {
        const double x = get(a, A, i), y = get(b, B, scalar ? 0 : i);
        double r, sq;
        if (as_int) {
            const int p = static_cast<int>(x), q = static_cast<int>(y);
            int v;
            if (op == 3) {
                if (q == 0) { o.code = 5; return o; }
                v = p / q;
            } else {
                v = op == 0 ? p + q : op == 1 ? p - q : p * q;
            }
            if (v < -128 || v > 127) { o.code = 4; return o; }
            r = v;
            sq = static_cast<double>(v * v);
        } else if (as_dbl) {
            r = op == 0 ? x + y : op == 1 ? x - y : op == 2 ? x * y : x / y;
            if (exp_ones(r, false)) { o.code = 4; return o; }
            sq = r * r;
        } else {
            const float p = static_cast<float>(x), q = static_cast<float>(y);
            const float v = op == 0 ? p + q : op == 1 ? p - q : op == 2 ? p * q : p / q;
            if (exp_ones(v, true)) { o.code = 4; return o; }
            r = v;
            sq = static_cast<double>(v * v);
        }
        put(o.res, R, i, r);
        lane[norm_lane(i, dim)] += sq;
    }
    if (wnorm) {
        const double lo = (lane[0] + lane[2]) + (lane[4] + lane[6]);
        const double hi = (lane[1] + lane[3]) + (lane[5] + lane[7]);
        const double s = (lo + hi) + lane[8];
        if (exp_ones(s, false)) { o.code = 4; return o; }
        o.norm = s < 0.0 ? 0.0 : std::sqrt(s);
    }
    return o;
}

ub4 c_ind(unsigned f) { return is_c(f) ? 1 : 0; }

vorn_vector_arith_fn kernel_for(unsigned op, unsigned A, unsigned B, unsigned R, bool scalar, bool wnorm) {
    return vorn_vector_arith_dispatch(19 + op, type_of(A), c_ind(A), 0, type_of(B), c_ind(B), 0, type_of(R),
                                      c_ind(R), 0, scalar, wnorm);
}

TEST(VectorArith, DispatchKeysAndRefusals) {
    EXPECT_EQ(vorn_vector_arith_key(19, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0), 3567184u);
    EXPECT_EQ(vorn_vector_arith_key(20, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0), 0x394750u);
    EXPECT_EQ(vorn_vector_arith_key(21, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0), 0x3C2050u);
    EXPECT_EQ(vorn_vector_arith_key(22, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0), 0x3EF950u);
    unsigned served = 0;
    for (unsigned op = 0; op < 4; ++op)
        for (unsigned A = 0; A < kFormCount; ++A)
            for (unsigned B = 0; B < kFormCount; ++B)
                for (unsigned R = 0; R < kFormCount; ++R)
                    for (unsigned shape = 0; shape < 4; ++shape) {
                        const bool has = kernel_for(op, A, B, R, shape >> 1, shape & 1) != nullptr;
                        EXPECT_EQ(has, triple_ok(A, B, R)) << op << form_name(A) << form_name(B) << form_name(R);
                        served += has;
                    }
    EXPECT_EQ(served, 1104u);
    // Sparse operands, the C bit on int8, other operations and types: none.
    EXPECT_EQ(vorn_vector_arith_dispatch(19, 1, 0, 1, 1, 0, 0, 1, 0, 0, 0, 0), nullptr);
    EXPECT_EQ(vorn_vector_arith_dispatch(19, 5, 1, 0, 5, 0, 0, 5, 0, 0, 0, 0), nullptr);
    EXPECT_EQ(vorn_vector_arith_dispatch(23, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0), nullptr);
    EXPECT_EQ(vorn_vector_arith_dispatch(18, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0), nullptr);
    EXPECT_EQ(vorn_vector_arith_dispatch(19, 7, 0, 0, 7, 0, 0, 1, 0, 0, 0, 0), nullptr);
    // Descriptions meeting at one key meet at one kernel: float with C = 4
    // is the key of double.
    EXPECT_EQ(vorn_vector_arith_dispatch(19, 1, 4, 0, 2, 0, 0, 2, 0, 0, 0, 0),
              vorn_vector_arith_dispatch(19, 2, 0, 0, 2, 0, 0, 2, 0, 0, 0, 0));
}

// One kernel on one pair of operands against the model: code, every result
// byte (the stored prefix on a failure, fill behind it), and the norm.
void check_kernel(unsigned op, unsigned A, unsigned B, unsigned R, unsigned shape, unsigned dim,
                  const std::vector<ub1> &a, const std::vector<ub1> &b) {
    const bool scalar = shape >> 1, wnorm = shape & 1;
    const Outcome want = model(op, A, B, R, scalar, wnorm, dim, a, b);
    std::vector<ub1> got(std::size_t(dim) * bytes_of(R), kFillByte);
    double norm = -1.0;
    const ub8 code = kernel_for(op, A, B, R, scalar, wnorm)(dim, a.data(), b.data(), got.data(), &norm);
    SCOPED_TRACE(testing::Message() << "op " << op << " " << form_name(A) << "_" << form_name(B) << "_"
                                    << form_name(R) << " shape " << shape << " dim " << dim);
    ASSERT_EQ(code, want.code);
    ASSERT_EQ(got, want.res);
    ASSERT_TRUE(same_bits(norm, want.norm)) << norm << " vs " << want.norm;
}

TEST(VectorArith, EveryKernelAgainstTheModel) {
    std::mt19937_64 rng(11);
    for (unsigned op = 0; op < 4; ++op)
        for (unsigned A = 0; A < kFormCount; ++A)
            for (unsigned B = 0; B < kFormCount; ++B)
                for (unsigned R = 0; R < kFormCount; ++R) {
                    if (!triple_ok(A, B, R)) continue;
                    for (unsigned shape = 0; shape < 4; ++shape)
                        for (unsigned dim : kDims) {
                            const auto a = random_elems(rng, A, dim);
                            auto b = random_elems(rng, B, std::max(dim, 1u));
                            check_kernel(op, A, B, R, shape, dim, a, b);
                        }
                }
}

// Values small enough that nothing overflows: the norm's lane order is
// what the result bits then depend on.
TEST(VectorArith, NormInItsLaneOrder) {
    std::mt19937_64 rng(12);
    for (unsigned R : {kFloat, kCFloat, kDouble, kCDouble})
        for (unsigned dim = 0; dim < 70; ++dim) {
            std::vector<ub1> a(dim * bytes_of(R)), b(dim * bytes_of(R));
            for (unsigned i = 0; i < dim; ++i) {
                put(a, R, i, std::ldexp(double(rng() % 1000003) / 7.0, int(rng() % 40) - 20));
                put(b, R, i, double(rng() % 1000) / 3.0);
            }
            for (unsigned op = 0; op < 4; ++op) check_kernel(op, R, R, R, 1, dim, a, b);
        }
}

TEST(VectorArith, EdgeValues) {
    auto run = [](unsigned op, unsigned F, std::vector<double> x, std::vector<double> y, bool wnorm = false) {
        std::vector<ub1> a(x.size() * bytes_of(F)), b(y.size() * bytes_of(F));
        for (std::size_t i = 0; i < x.size(); ++i) put(a, F, i, x[i]);
        for (std::size_t i = 0; i < y.size(); ++i) put(b, F, i, y[i]);
        std::vector<ub1> out(x.size() * bytes_of(F), kFillByte);
        double norm = -7.0;
        const ub8 code = kernel_for(op, F, F, F, false, wnorm)(ub4(x.size()), a.data(), b.data(), out.data(), &norm);
        return std::pair<ub8, double>(code, norm);
    };
    EXPECT_EQ(run(0, kFloat, {3e38f, 1}, {3e38f, 1}).first, 4u);
    EXPECT_EQ(run(3, kCFloat, {1, 2}, {1, 0}).first, 4u);     // x / 0.0 = inf
    EXPECT_EQ(run(3, kDouble, {0}, {0}).first, 4u);           // 0 / 0 = NaN
    EXPECT_EQ(run(0, kInt8, {127}, {1}).first, 4u);
    EXPECT_EQ(run(1, kInt8, {-128}, {1}).first, 4u);
    EXPECT_EQ(run(3, kInt8, {5}, {0}).first, 5u);
    EXPECT_EQ(run(3, kInt8, {-128}, {-1}).first, 4u);
    EXPECT_EQ(run(3, kInt8, {-7}, {2}).first, 0u);
    // A failed wnorm kernel leaves the norm output alone.
    EXPECT_EQ(run(0, kFloat, {3e38f}, {3e38f}, true).second, -7.0);
    // A norm that overflows although every element is finite.
    EXPECT_EQ(run(0, kDouble, {1e200, 1e200}, {0, 0}, true).first, 4u);
    EXPECT_EQ(run(0, kFloat, {2e19f}, {0}, true).first, 4u);  // squared in float: inf
}

// ---- The entry -----------------------------------------------------------------

TestHost &host() {
    static TestHost h;
    return h;
}

// A uniform vector column of `rows` rows of `dim` elements in form f, each
// row its own allocation behind a pointer.
struct VecColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<std::vector<ub1>> rows;
    std::vector<void *> ptrs;
    VecColumn(unsigned f, unsigned dim, std::size_t n, bool column = true) {
        enc.elem_type = type_of(f);
        enc.flags = (is_c(f) ? 0u : VORN_NATIVE_FP) | (column ? VORN_VEC_COLUMN : 0u);
        enc.vec_dim = dim;
        rows.resize(n);
        ptrs.resize(n);
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(n);
        vec.data = column ? static_cast<void *>(ptrs.data()) : nullptr;
    }
    void fill(std::mt19937_64 &rng, unsigned f, unsigned dim) {
        for (std::size_t r = 0; r < rows.size(); ++r) {
            rows[r] = random_elems(rng, f, dim);
            ptrs[r] = rows[r].data();
        }
        if (!VORN_ENC_CTX_FLAG(&enc, VORN_VEC_COLUMN)) vec.data = rows[0].data();
    }
    void blank(unsigned f, unsigned dim) {
        for (std::size_t r = 0; r < rows.size(); ++r) {
            rows[r].assign(std::size_t(dim) * bytes_of(f), kFillByte);
            ptrs[r] = rows[r].data();
        }
    }
};

TEST(VectorArith, EntryWalksPairedSingleAndScalar) {
    std::mt19937_64 rng(13);
    const unsigned dim = 21;
    for (unsigned shape = 0; shape < 3; ++shape)          // paired, single left, scalar right
        for (unsigned sel = 0; sel < 3; ++sel)            // bit vector, row list, all rows
            for (unsigned trial = 0; trial < 6; ++trial) {
                const unsigned A = kCFloat, B = shape == 2 ? kInt8 : kFloat, R = kCDouble;
                const ub4 n = 1 + static_cast<ub4>(rng() % 600);
                VecColumn left(A, dim, shape == 1 ? 1 : n), right(B, dim, shape == 0 ? n : shape == 1 ? n : 1);
                left.fill(rng, A, dim);
                right.fill(rng, B, dim);
                if (shape == 2) {
                    right.enc.flags = VORN_NATIVE_FP | VORN_CONST;
                    right.vec.data = right.rows[0].data();
                }
                const ub8 cap = 1 + rng() % (n + 40);
                VecColumn res(R, dim, cap);
                res.blank(R, dim);
                res.vec.size = static_cast<ub4>(cap);
                std::vector<double> norms(cap, -1.0);
                double *norm_ptr = norms.data();
                vorn_kernel_ctx k = host().kctx();
                const auto bits = random_bits(rng, n, 0.3);
                std::vector<ub4> list;
                for (ub4 r = 0; r < n; ++r)
                    if (rng() % 3 == 0) list.push_back(r);
                if (sel == 0) k.bv_aux = bits.data();
                if (sel == 1) { k.ones_vec = list.data(); k.ones_vec_size = static_cast<ub4>(list.size()); }
                k.row_pos = static_cast<ub4>(sel == 1 ? rng() % (list.size() + 1) : rng() % n);
                const vorn_kernel_ctx before = k;
                const auto rows = walked_rows(k, n, cap);
                const ub8 code = ctx().vorn_vector_arith_dydi(&res.vec, &norm_ptr, &left.vec, &right.vec, 19, &k,
                                                              nullptr);
                ASSERT_EQ(code, 0u);
                for (std::size_t i = 0; i < rows.size(); ++i) {
                    const ub4 r = rows[i];
                    const Outcome want = model(0, A, B, R, shape == 2, true, dim, left.rows[shape == 1 ? 0 : r],
                                               right.rows[shape == 2 ? 0 : r]);
                    ASSERT_EQ(res.rows[i], want.res) << "row " << r;
                    ASSERT_TRUE(same_bits(norms[i], want.norm));
                }
                for (std::size_t i = rows.size(); i < cap; ++i) ASSERT_EQ(norms[i], -1.0);
                EXPECT_EQ(k.row_pos, cursor_after(before, rows));
            }
}

TEST(VectorArith, EntryRefusalsAndFailures) {
    std::mt19937_64 rng(14);
    VecColumn a(kFloat, 4, 3), b(kFloat, 4, 2), r(kFloat, 4, 3);
    a.fill(rng, kFloat, 4);
    b.fill(rng, kFloat, 4);
    r.blank(kFloat, 4);
    vorn_kernel_ctx k = host().kctx();
    auto call = [&](vorn_vec *x, vorn_vec *y, ub8 op) {
        k.row_pos = 0;
        return ctx().vorn_vector_arith_dydi(&r.vec, nullptr, x, y, op, &k, nullptr);
    };
    EXPECT_EQ(call(&a.vec, &b.vec, 19), 2u);   // 3 rows against 2
    EXPECT_EQ(call(&a.vec, &a.vec, 18), 2u);   // not an arithmetic operation
    EXPECT_EQ(call(&a.vec, &a.vec, 23), 2u);
    EXPECT_EQ(call(&a.vec, &a.vec, 20), 0u);
    VecColumn d(kDouble, 4, 3);
    d.fill(rng, kDouble, 4);
    EXPECT_EQ(call(&d.vec, &a.vec, 19), 24u);  // double operands into a float result
    a.enc.flags |= VORN_VEC_FLEX;
    EXPECT_EQ(call(&a.vec, &a.vec, 19), 24u);
    a.enc.flags &= ~VORN_VEC_FLEX;
    VecColumn e(kFloat, 5, 3);
    e.fill(rng, kFloat, 5);
    EXPECT_EQ(call(&a.vec, &e.vec, 19), 2u);   // dimensions differ
    // A kernel failure ends the walk at its row, which the cursor keeps.
    VecColumn i8(kInt8, 2, 3), z(kInt8, 2, 3), out(kInt8, 2, 3);
    i8.blank(kInt8, 2);
    z.blank(kInt8, 2);
    out.blank(kInt8, 2);
    for (auto &row : i8.rows) row.assign(2, 1);
    for (auto &row : z.rows) row.assign(2, 1);
    z.rows[1][1] = 0;
    k.row_pos = 0;
    EXPECT_EQ(ctx().vorn_vector_arith_dydi(&out.vec, nullptr, &i8.vec, &z.vec, 22, &k, nullptr), 5u);
    EXPECT_EQ(k.row_pos, 1u);
}

}  // namespace
