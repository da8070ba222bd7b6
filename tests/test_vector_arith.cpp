// Vector arithmetic: every one of the 1,104 kernels against a plain model
// over random operands (all dimensions around the blocks of 16 and 4,
// overflow to infinity, division by zero, the int8 limits), the norm in its
// fixed lane order, the dispatch key and its refusals, the entry's row walk
// over paired, single and scalar shapes with every selection, and the same
// over flexible columns: stored values of mixed forms and dimensions with
// faulty rows, each result value compared byte for byte.
#include <gtest/gtest.h>

#include "support/test_host.h"
#include "support/distance_model.h"
#include "support/fold_c.h"
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

// int8 operands small enough that add, sub and mul stay in range, so the
// 16-lane int8 blocks store and sum whole blocks; one lane pushed over the
// limit in each of a few vectors makes its block fail at that lane.
TEST(VectorArith, Int8BlocksInRange) {
    std::mt19937_64 rng(16);
    for (unsigned dim = 0; dim < 70; ++dim)
        for (unsigned op = 0; op < 4; ++op)
            for (unsigned shape = 0; shape < 4; ++shape) {
                std::vector<ub1> a(dim), b(std::max(dim, 1u));
                for (auto &x : a) x = static_cast<ub1>(static_cast<int>(rng() % 23) - 11);
                for (auto &x : b) x = static_cast<ub1>(static_cast<int>(rng() % 23) - 11);
                if (dim > 0 && rng() % 4 == 0) {
                    const std::size_t i = rng() % dim;
                    a[i] = 127;
                    if (shape < 2) b[i] = static_cast<ub1>(op == 1 ? -1 : 2);
                }
                for (unsigned R : {kInt8, kFloat, kCDouble}) check_kernel(op, kInt8, kInt8, R, shape, dim, a, b);
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

// A uniform vector column of `n` rows of `dim` elements in form f, each row
// its own allocation behind a pointer: random elements when given `rng`,
// else fill bytes.  Without `column`, one value: `data` points at it.
struct VecColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<std::vector<ub1>> rows;
    std::vector<void *> ptrs;
    VecColumn(unsigned f, unsigned dim, std::size_t n, std::mt19937_64 *rng = nullptr, bool column = true) {
        enc.elem_type = type_of(f);
        enc.flags = (is_c(f) ? 0u : VORN_NATIVE_FP) | (column ? VORN_VEC_COLUMN : 0u);
        enc.vec_dim = dim;
        for (std::size_t r = 0; r < n; ++r) {
            rows.push_back(rng ? random_elems(*rng, f, dim) : std::vector<ub1>(std::size_t(dim) * bytes_of(f), kFillByte));
            ptrs.push_back(rows.back().data());
        }
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(n);
        vec.data = column ? static_cast<void *>(ptrs.data()) : rows[0].data();
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
                VecColumn left(A, dim, shape == 1 ? 1 : n, &rng), right(B, dim, shape == 2 ? 1 : n, &rng);
                if (shape == 2) {
                    right.enc.flags = VORN_NATIVE_FP | VORN_CONST;
                    right.vec.data = right.rows[0].data();
                }
                const ub8 cap = 1 + rng() % (n + 40);
                VecColumn res(R, dim, cap);
                std::vector<double> norms(cap, -1.0);
                double *norm_ptr = norms.data();
                RowSelection chosen(rng, sel, n, 0.3, 3, n, host().kctx());
                vorn_kernel_ctx &k = chosen.k;
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
    VecColumn a(kFloat, 4, 3, &rng), b(kFloat, 4, 2, &rng), r(kFloat, 4, 3);
    vorn_kernel_ctx k = host().kctx();
    auto call = [&](vorn_vec *x, vorn_vec *y, ub8 op) {
        k.row_pos = 0;
        return ctx().vorn_vector_arith_dydi(&r.vec, nullptr, x, y, op, &k, nullptr);
    };
    EXPECT_EQ(call(&a.vec, &b.vec, 19), 2u);   // 3 rows against 2
    EXPECT_EQ(call(&a.vec, &a.vec, 18), 2u);   // not an arithmetic operation
    EXPECT_EQ(call(&a.vec, &a.vec, 23), 2u);
    EXPECT_EQ(call(&a.vec, &a.vec, 20), 0u);
    VecColumn d(kDouble, 4, 3, &rng);
    EXPECT_EQ(call(&d.vec, &a.vec, 19), 24u);  // double operands into a float result
    a.enc.flags |= VORN_VEC_FLEX;
    EXPECT_EQ(call(&a.vec, &a.vec, 19), 24u);  // flexible operands, uniform result
    EXPECT_EQ(call(&a.vec, &b.vec, 19), 2u);   // the shape is checked first
    EXPECT_EQ(call(&a.vec, &d.vec, 19), 24u);  // flexible against uniform
    a.enc.flags &= ~VORN_VEC_FLEX;
    VecColumn e(kFloat, 5, 3, &rng);
    EXPECT_EQ(call(&a.vec, &e.vec, 19), 2u);   // dimensions differ
    // A kernel failure ends the walk at its row, which the cursor keeps.
    VecColumn i8(kInt8, 2, 3), z(kInt8, 2, 3), out(kInt8, 2, 3);
    for (auto &row : i8.rows) row.assign(2, 1);
    for (auto &row : z.rows) row.assign(2, 1);
    z.rows[1][1] = 0;
    k.row_pos = 0;
    EXPECT_EQ(ctx().vorn_vector_arith_dydi(&out.vec, nullptr, &i8.vec, &z.vec, 22, &k, nullptr), 5u);
    EXPECT_EQ(k.row_pos, 1u);
}

// ---- Flexible columns ------------------------------------------------------------

// A stored value of some version (the header of distance_model.h).
std::vector<ub1> stored(ub1 version, ub1 flags, ub1 format, ub4 dims, const std::vector<ub1> &body) {
    auto v = stored_value(format, flags, dims, body);
    v[1] = version;
    return v;
}
std::size_t body_offset_of(unsigned f) { return is_c(f) || f == kInt8 ? 17 : 24; }

// One row of a flexible column as the model sees it: its form, count and
// body, and whether its header is one the kernels take at all.
struct FlexRow {
    unsigned form = kFloat;
    ub4 dims = 0;
    bool kernel_form = true;  // float, double or int8, dense
    bool header_ok = true;
    std::vector<ub1> body, value;
};

const unsigned kFlexDims[] = {0, 1, 2, 3, 4, 5, 7, 8, 15, 16, 17, 20, 31, 33, 47};

// A row of `dims` elements in a random form; `faults` breaks one in eight:
// a refused header, a type without kernels, a sparse body.
FlexRow flex_row(std::mt19937_64 &rng, ub4 dims, bool faults) {
    FlexRow row;
    row.form = static_cast<unsigned>(rng() % kFormCount);
    row.dims = dims;
    row.body = random_elems(rng, row.form, dims);
    const ub1 usable = rng() % 3 == 0 ? 0x10 : rng() % 2 ? 0x12 : 0x02;
    ub1 flags = static_cast<ub1>(usable | (is_c(row.form) ? 0 : 0x08));
    if (row.form == kInt8 && rng() % 2) flags &= ~0x08;  // int8 has one form either way
    ub1 version = static_cast<ub1>(rng() % 4), format = format_of(row.form), magic = 0xDB;
    if (faults && rng() % 8 == 0) {
        switch (rng() % 6) {
            case 0: magic = 0xDC; row.header_ok = false; break;
            case 1: version = 4; row.header_ok = false; break;
            case 2: flags &= ~0x12; flags |= 0x01; row.header_ok = false; break;
            case 3: format = 1; row.kernel_form = false; break;        // float16
            case 4: format = 5; row.kernel_form = false; break;        // bits
            default: flags |= 0x20; row.kernel_form = false; break;    // sparse
        }
    }
    row.value = stored(version, flags, format, dims, row.body);
    row.value[0] = magic;
    return row;
}

struct FlexColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<FlexRow> rows;
    std::vector<const void *> ptrs;
    void finish() {
        enc.flags = VORN_VEC_COLUMN | VORN_VEC_FLEX;
        for (auto &r : rows) ptrs.push_back(r.value.data());
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(rows.size());
        vec.data = ptrs.data();
    }
};

// The result column: one buffer a row, big enough for the largest value.
struct FlexResult {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<std::vector<ub1>> rows;
    std::vector<void *> ptrs;
    std::vector<ub2> lengths;
    FlexResult(unsigned form, std::size_t n, std::size_t bytes, bool with_lengths) {
        enc.elem_type = type_of(form);
        enc.flags = VORN_VEC_COLUMN | VORN_VEC_FLEX | (is_c(form) ? 0u : VORN_NATIVE_FP);
        rows.assign(n, std::vector<ub1>(bytes, kFillByte));
        for (auto &r : rows) ptrs.push_back(r.data());
        lengths.assign(n, 0xEEEE);
        vec.enc_ctx = &enc;
        vec.size = static_cast<ub4>(n);
        vec.data = ptrs.data();
        vec.data2 = with_lengths ? lengths.data() : nullptr;
    }
};

// What the model expects of one result place.
struct FlexWant {
    bool ok = false;
    std::vector<ub1> bytes;  // the whole buffer
    double norm = -1.0;
    ub2 length = 0;
};

FlexWant flex_model(unsigned op, unsigned R, bool wnorm, bool with_lengths, std::size_t buffer, const FlexRow &a,
                    const FlexRow *b, unsigned scalar_form, const std::vector<ub1> &scalar) {
    FlexWant w;
    w.bytes.assign(buffer, kFillByte);
    if (!a.header_ok || (b && !b->header_ok) || (b && a.dims != b->dims)) return w;
    const std::size_t off = body_offset_of(R), len = off + std::size_t(a.dims) * bytes_of(R);
    if (with_lengths && len > 0xFFFF) return w;
    const unsigned B = b ? b->form : scalar_form;
    if (!a.kernel_form || (b && !b->kernel_form) || !triple_ok(a.form, B, R)) return w;
    const Outcome o = model(op, a.form, B, R, b == nullptr, wnorm, a.dims, a.body, b ? b->body : scalar);
    std::copy(o.res.begin(), o.res.end(), w.bytes.begin() + off);  // a failed kernel's prefix stays
    if (o.code != 0) return w;
    w.ok = true;
    const ub1 flags = is_c(R) ? 0x02 : 0x0A;
    const auto head = stored(0, flags, format_of(R), a.dims, {});
    std::copy(head.begin(), head.begin() + 17, w.bytes.begin());
    if (wnorm) {
        const ub8 field = is_c(R) ? c_enc64(o.norm) : std::bit_cast<ub8>(o.norm);
        std::memcpy(w.bytes.data() + 9, &field, 8);
        w.norm = o.norm;
    }
    w.length = static_cast<ub2>(len);
    return w;
}

// Paired, single and scalar calls over flexible columns of mixed forms and
// dimensions with faulty rows, under every selection and capacity: each
// result buffer byte for byte, norms, lengths, cleared bits and the cursor.
TEST(VectorArith, FlexibleRowsAgainstTheModel) {
    std::mt19937_64 rng(15);
    unsigned good_rows = 0, failed_rows = 0;
    for (unsigned shape = 0; shape < 3; ++shape)       // paired, single left, scalar right
        for (unsigned sel = 0; sel < 3; ++sel)         // bit vector, row list, all rows
            for (unsigned trial = 0; trial < 12; ++trial) {
                // Every operation with every result form, under each shape.
                const unsigned t = sel * 12 + trial, op = t % 4, R = t / 4 % kFormCount;
                const bool wnorm = rng() % 3 != 0, with_lengths = rng() % 2;
                const ub4 n = 1 + static_cast<ub4>(rng() % 150);
                FlexColumn left, right;
                const ub4 single_dims = kFlexDims[rng() % std::size(kFlexDims)];
                for (ub4 r = 0; r < (shape == 1 ? 1 : n); ++r)
                    left.rows.push_back(flex_row(rng, shape == 1 ? single_dims : kFlexDims[rng() % std::size(kFlexDims)],
                                                 shape != 1 || trial % 4 == 3));
                if (shape != 2)
                    for (ub4 r = 0; r < n; ++r) {
                        ub4 dims = shape == 1 ? single_dims : left.rows[r].dims;
                        if (rng() % 10 == 0) dims = kFlexDims[rng() % std::size(kFlexDims)];  // may mismatch
                        right.rows.push_back(flex_row(rng, dims, true));
                    }
                left.finish();
                const unsigned scalar_form = static_cast<unsigned>(rng() % kFormCount);
                VecColumn scalar_column(scalar_form, 1, 1, &rng, false);
                scalar_column.enc.flags |= VORN_CONST;
                const std::vector<ub1> &scalar = scalar_column.rows[0];
                if (shape != 2) right.finish();
                vorn_vec *rv = shape == 2 ? &scalar_column.vec : &right.vec;

                const ub8 cap = 1 + rng() % (n + 20);
                const std::size_t buffer = 24 + 47 * 8;
                FlexResult res(R, cap, buffer, with_lengths);
                std::vector<double> norms(cap, -1.0);
                double *norm_ptr = norms.data();
                RowSelection chosen(rng, sel, n, 0.4, 3, n, host().kctx());
                vorn_kernel_ctx &k = chosen.k;
                auto &bits = chosen.bits;
                const vorn_kernel_ctx before = k;
                const auto bits_before = bits;
                const auto rows = walked_rows(k, n, cap);
                SCOPED_TRACE(testing::Message() << "shape " << shape << " sel " << sel << " trial " << trial << " op "
                                                << op << " R " << form_name(R));
                const ub8 code = ctx().vorn_vector_arith_dydi(&res.vec, wnorm ? &norm_ptr : nullptr, &left.vec, rv,
                                                              19 + op, &k, nullptr);
                ASSERT_EQ(code, 0u);
                EXPECT_EQ(res.vec.num_ones, rows.size());
                auto bits_want = bits_before;
                for (std::size_t i = 0; i < rows.size(); ++i) {
                    const ub4 r = rows[i];
                    const FlexRow &a = left.rows[shape == 1 ? 0 : r];
                    const FlexRow *b = shape == 2 ? nullptr : &right.rows[r];
                    const FlexWant want = flex_model(op, R, wnorm, with_lengths, buffer, a, b, scalar_form, scalar);
                    ASSERT_EQ(res.rows[i], want.bytes) << "row " << r << " ok " << want.ok;
                    ASSERT_TRUE(same_bits(norms[i], want.norm)) << "row " << r;
                    if (with_lengths) {
                        ASSERT_EQ(res.lengths[i], want.length) << "row " << r;
                    }
                    ++(want.ok ? good_rows : failed_rows);
                    if (!want.ok && sel == 0) bits_want[r / 64] &= ~(ub8{1} << (r % 64));
                }
                for (std::size_t i = rows.size(); i < cap; ++i) {
                    ASSERT_EQ(res.rows[i], std::vector<ub1>(buffer, kFillByte));
                    ASSERT_EQ(norms[i], -1.0);
                    ASSERT_EQ(res.lengths[i], 0xEEEE);
                }
                EXPECT_EQ(bits, bits_want);
                EXPECT_EQ(k.row_pos, cursor_after(before, rows));
            }
    // Both kinds of rows in numbers, so neither path goes untested.
    EXPECT_GT(good_rows, 300u);
    EXPECT_GT(failed_rows, 300u);
}

// The edges of flexible rows: an empty vector, an overflow and an int8
// division by zero in one column (the failing rows dropped, the walk going
// on), values at the ub2 length limit, and the refusals of the entry.
TEST(VectorArith, FlexibleEdges) {
    auto column = [](std::vector<FlexRow> rows) {
        auto c = std::make_unique<FlexColumn>();
        c->rows = std::move(rows);
        c->finish();
        return c;
    };
    auto row = [](unsigned f, std::vector<double> xs) {
        FlexRow r;
        r.form = f;
        r.dims = static_cast<ub4>(xs.size());
        r.body.resize(xs.size() * bytes_of(f));
        for (std::size_t i = 0; i < xs.size(); ++i) put(r.body, f, i, xs[i]);
        r.value = stored(1, f == kInt8 || is_c(f) ? 0x02 : 0x0A, format_of(f), r.dims, r.body);
        return r;
    };
    {
        auto l = column({row(kInt8, {}), row(kInt8, {100, 1}), row(kInt8, {5, 6}), row(kInt8, {-7})});
        auto r = column({row(kInt8, {}), row(kInt8, {100, 1}), row(kInt8, {0, 2}), row(kInt8, {2})});
        FlexResult out(kInt8, 4, 64, true);
        std::vector<double> norms(4, -1.0);
        double *np = norms.data();
        EXPECT_EQ(ctx().vorn_vector_arith_dydi(&out.vec, &np, &l->vec, &r->vec, 19, nullptr, nullptr), 0u);
        EXPECT_EQ(out.lengths[0], 17u);  // header and field alone
        EXPECT_EQ(norms[0], 0.0);
        EXPECT_EQ(out.lengths[1], 0u);   // 100 + 100 overflows int8
        EXPECT_EQ(norms[1], -1.0);
        EXPECT_EQ(out.rows[1][0], kFillByte);
        EXPECT_EQ(out.lengths[2], 19u);
        EXPECT_EQ(out.rows[2][17], 5u);
        EXPECT_EQ(out.vec.num_ones, 4u);
        // Division: 5 / 0 fails its row with the rest going on; -7 / 2 truncates.
        EXPECT_EQ(ctx().vorn_vector_arith_dydi(&out.vec, &np, &l->vec, &r->vec, 22, nullptr, nullptr), 0u);
        EXPECT_EQ(out.lengths[2], 0u);
        EXPECT_EQ(out.lengths[3], 18u);
        EXPECT_EQ(static_cast<sb1>(out.rows[3][17]), -3);
    }
    {
        // Native doubles: 24 + 8 * 8188 bytes fit a ub2, 24 + 8 * 8189 (65,536)
        // do not; without lengths nothing limits a value.
        std::vector<double> xs(8189, 0.5);
        auto fits = row(kDouble, std::vector<double>(xs.begin(), xs.end() - 1)), big = row(kDouble, xs);
        auto l = column({fits, big}), r = column({fits, big});
        FlexResult out(kDouble, 2, 24 + 8 * 8189, true);
        EXPECT_EQ(ctx().vorn_vector_arith_dydi(&out.vec, nullptr, &l->vec, &r->vec, 21, nullptr, nullptr), 0u);
        EXPECT_EQ(out.lengths[0], 24u + 8 * 8188);
        EXPECT_EQ(out.lengths[1], 0u);
        EXPECT_EQ(out.rows[1][0], kFillByte);  // not a length that wrapped to 0
        out.vec.data2 = nullptr;
        EXPECT_EQ(ctx().vorn_vector_arith_dydi(&out.vec, nullptr, &l->vec, &r->vec, 21, nullptr, nullptr), 0u);
        EXPECT_EQ(out.rows[1][0], 0xDB);
        double last;
        std::memcpy(&last, out.rows[1].data() + 24 + 8 * 8188, 8);
        EXPECT_EQ(last, 0.25);
    }
    {
        auto l = column({row(kFloat, {1, 2})}), r = column({row(kFloat, {1, 2}), row(kFloat, {3, 4})});
        auto three = column({row(kFloat, {1}), row(kFloat, {1}), row(kFloat, {1})});
        FlexResult out(kFloat, 3, 64, false);
        VecColumn unif(kFloat, 2, 2);
        auto call = [&](vorn_vec *res, vorn_vec *a, vorn_vec *b) {
            return ctx().vorn_vector_arith_dydi(res, nullptr, a, b, 20, nullptr, nullptr);
        };
        EXPECT_EQ(call(&out.vec, &l->vec, &r->vec), 0u);  // single: one left value, two right rows
        EXPECT_EQ(out.vec.num_ones, 2u);
        EXPECT_EQ(out.rows[1][0], 0xDB);
        EXPECT_EQ(call(&out.vec, &three->vec, &r->vec), 2u);     // 3 rows against 2
        EXPECT_EQ(call(&unif.vec, &l->vec, &r->vec), 24u);       // uniform result
        EXPECT_EQ(call(&out.vec, &unif.vec, &r->vec), 24u);      // uniform left
        out.enc.elem_type = 7;                                   // float16 result
        EXPECT_EQ(call(&out.vec, &l->vec, &r->vec), 24u);
        out.enc.elem_type = 1;
        vorn_enc_ctx se{};
        se.elem_type = 8;
        se.flags = VORN_CONST;
        float one = 1.0f;
        vorn_vec sv{};
        sv.enc_ctx = &se;
        sv.data = &one;
        sv.size = 1;
        EXPECT_EQ(call(&out.vec, &r->vec, &sv), 24u);            // bfloat16 scalar
    }
}

}  // namespace
