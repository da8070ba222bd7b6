// Vector element conversion: every pair of the five forms against a plain
// model, with and without norms and bad_rows, over rows that fail (int8
// range, float overflow, NaN), rows around the range edges that convert,
// norm overflow, and the refused types.
#include <gtest/gtest.h>

#include "support/test_host.h"
#include "support/vector_model.h"

namespace {

using namespace vorntest;
using namespace vorntest::vec;

struct Want {
    ub8 code = 0;
    std::vector<ub1> out;
    std::vector<double> norms;
    std::vector<ub8> bad;
};

Want model(unsigned S, unsigned R, unsigned dim, ub4 rows, const std::vector<ub1> &src, bool with_norms,
           bool with_bad) {
    Want w;
    w.bad.assign((rows + 63) / 64 + 1, 0);
    std::vector<ub1> row(dim * bytes_of(R));
    for (ub4 r = 0; r < rows; ++r) {
        double sum = 0.0;
        bool ok = true;
        for (unsigned i = 0; i < dim && ok; ++i) {
            const double v = get(src, S, std::size_t(r) * dim + i);
            double out, sq;
            if (R == kInt8) {
                const float f = static_cast<float>(v);
                if (S != kInt8 && (f < -128.0f || f > 127.0f)) ok = false;
                out = std::round(f);
                sq = out * out;
            } else if (is_flt(R)) {
                const float f = static_cast<float>(v);
                if (is_dbl(S) && exp_ones(f, true)) ok = false;
                out = f;
                sq = static_cast<double>(f * f);
            } else {
                out = v;
                sq = v * v;
            }
            if (ok) put(row, R, i, out);
            sum += sq;
        }
        if (!ok && !with_bad) { w.code = 22; return w; }
        if (!ok) {
            w.bad[r / 64] |= ub8{1} << (r % 64);
            continue;
        }
        if (with_norms && exp_ones(sum, false)) { w.code = 4; return w; }
        if (with_norms) w.norms.push_back(sum < 0.0 ? 0.0 : std::sqrt(sum));
        w.out.insert(w.out.end(), row.begin(), row.end());
    }
    return w;
}

double edge_value(std::mt19937_64 &rng, unsigned S) {
    static const double edges[] = {127.0, -128.0, 127.4, -128.5, 126.5, -127.5, 0.5, -0.5, 2.5, 1e39, -1e39};
    if (S != kInt8 && rng() % 8 == 0) return edges[rng() % (is_dbl(S) ? 11 : 9)];
    return random_value(rng, S) / (rng() % 2 ? 1.0 : 1e35);
}

struct VecCol {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    VecCol(unsigned f, unsigned dim, ub4 rows, void *data) {
        enc.elem_type = type_of(f);
        enc.flags = is_c(f) || f == kInt8 ? 0u : VORN_NATIVE_FP;
        enc.vec_dim = dim;
        vec.enc_ctx = &enc;
        vec.size = rows;
        vec.data = data;
    }
};

TEST(VectorConvert, EveryPairAgainstTheModel) {
    std::mt19937_64 rng(21);
    for (unsigned S = 0; S < kFormCount; ++S)
        for (unsigned R = 0; R < kFormCount; ++R)
            for (unsigned variant = 0; variant < 4; ++variant)
                for (unsigned trial = 0; trial < 8; ++trial) {
                    const bool with_norms = variant & 1, with_bad = variant & 2;
                    const unsigned dim = static_cast<unsigned>(rng() % 19);
                    const ub4 rows = static_cast<ub4>(rng() % 70);
                    std::vector<ub1> src(std::size_t(rows) * dim * bytes_of(S));
                    const bool failing = R == kInt8 || (is_flt(R) && is_dbl(S));
                    for (std::size_t i = 0; i < std::size_t(rows) * dim; ++i)
                        put(src, S, i, failing || rng() % 4 ? edge_value(rng, S) : random_value(rng, S));
                    std::vector<ub1> out(std::size_t(rows) * dim * bytes_of(R) + 8, 0xcd);
                    std::vector<double> norms(rows + 1, -1.0);
                    std::vector<ub8> bad((rows + 63) / 64 + 1, 0);
                    double *np = norms.data();
                    VecCol s(S, dim, rows, src.data()), r(R, dim, rows, out.data());
                    vorn_kernel_ctx k{};
                    const ub8 code = vorntest::ctx().vorn_vector_convert_fp_dydi(
                        &r.vec, with_norms ? &np : nullptr, &s.vec, with_bad ? bad.data() : nullptr, &k);
                    const Want w = model(S, R, dim, rows, src, with_norms, with_bad);
                    SCOPED_TRACE(testing::Message() << form_name(S) << " -> " << form_name(R) << " variant "
                                                    << variant << " dim " << dim << " rows " << rows);
                    ASSERT_EQ(code, w.code);
                    if (code == 22) continue;
                    ASSERT_TRUE(std::equal(w.out.begin(), w.out.end(), out.begin()));
                    for (std::size_t i = 0; i < w.norms.size(); ++i) ASSERT_TRUE(same_bits(norms[i], w.norms[i]));
                    if (code != 0) continue;
                    ASSERT_EQ(norms[w.norms.size()], -1.0);
                    if (with_bad) {
                        ASSERT_EQ(bad, w.bad);
                    }
                    const ub4 written = static_cast<ub4>(w.out.size() / std::max<std::size_t>(1, dim * bytes_of(R)));
                    if (dim != 0) {
                        EXPECT_EQ(r.vec.num_ones, written);
                        EXPECT_EQ(k.num_ones, written);
                    }
                }
}

TEST(VectorConvert, EdgesOfTheRanges) {
    auto one = [](unsigned S, unsigned R, double v) {
        std::vector<ub1> src(bytes_of(S)), out(8, 0);
        put(src, S, 0, v);
        VecCol s(S, 1, 1, src.data()), r(R, 1, 1, out.data());
        const ub8 code = vorntest::ctx().vorn_vector_convert_fp_dydi(&r.vec, nullptr, &s.vec, nullptr, nullptr);
        return std::pair<ub8, double>(code, code == 0 ? get(out, R, 0) : 0.0);
    };
    EXPECT_EQ(one(kCFloat, kInt8, 127.0), (std::pair<ub8, double>(0, 127)));
    EXPECT_EQ(one(kCFloat, kInt8, -128.0), (std::pair<ub8, double>(0, -128)));
    EXPECT_EQ(one(kCDouble, kInt8, 127.4).first, 22u);
    EXPECT_EQ(one(kCDouble, kInt8, -128.5).first, 22u);
    EXPECT_EQ(one(kCDouble, kInt8, 2.5), (std::pair<ub8, double>(0, 3)));
    EXPECT_EQ(one(kCDouble, kInt8, -2.5), (std::pair<ub8, double>(0, -3)));
    EXPECT_EQ(one(kCDouble, kCFloat, 1e39).first, 22u);
    EXPECT_EQ(one(kCDouble, kCFloat, 3e38), (std::pair<ub8, double>(0, double(3e38f))));
    EXPECT_EQ(one(kInt8, kCDouble, -128), (std::pair<ub8, double>(0, -128)));
}

TEST(VectorConvert, NormOverflowAndRefusedTypes) {
    std::vector<ub1> src(2 * 8), out(2 * 8);
    put(src, kCDouble, 0, 1e300);
    put(src, kCDouble, 1, 1e300);
    VecCol s(kCDouble, 2, 1, src.data()), r(kCDouble, 2, 1, out.data());
    std::vector<double> norms(1);
    double *np = norms.data();
    EXPECT_EQ(vorntest::ctx().vorn_vector_convert_fp_dydi(&r.vec, &np, &s.vec, nullptr, nullptr), 4u);
    EXPECT_EQ(vorntest::ctx().vorn_vector_convert_fp_dydi(&r.vec, nullptr, &s.vec, nullptr, nullptr), 0u);
    r.enc.elem_type = 7;
    EXPECT_EQ(vorntest::ctx().vorn_vector_convert_fp_dydi(&r.vec, nullptr, &s.vec, nullptr, nullptr), 2u);
    r.enc.elem_type = 2;
    s.enc.elem_type = 6;
    EXPECT_EQ(vorntest::ctx().vorn_vector_convert_fp_dydi(&r.vec, nullptr, &s.vec, nullptr, nullptr), 2u);
}

}  // namespace
