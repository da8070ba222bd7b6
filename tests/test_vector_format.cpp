// Stored vector values: the header parse against its table of refusals and
// offsets over random bytes, the format mapping, the order-preserving form
// (order, round trip, negative zero, the NaN image) and the half-width float
// conversions over every one of the 65,536 patterns against a model built
// from ldexp.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>

#include "support/vector_model.h"
#include "vector/value_format.h"

namespace {
using vorntest::vec::model_f16;
using vorntest::vec::order_decode_model;
using vorntest::vec::order_encode_model;

using namespace vorn::vec;

// ---- Header ------------------------------------------------------------------

struct ModelHeader {
    sb4 ret;
    vorn_lvector_header h;
};

ModelHeader model_header(const ub1 *v) {
    ModelHeader m{};
    if (v[0] != 0xDB) return {-251, {}};
    if (v[1] > 3) return {-226, {}};
    if ((v[3] & 0x12) == 0) return {-245, {}};
    m.h.format = v[4];
    const bool field = (v[3] & 0x3A) != 0;
    m.h.second_off = field ? 9 : 0;
    // Native dense float, double, float16 and bfloat16 bodies sit 8-aligned.
    const bool aligned = (v[3] & 0x08) && !(v[3] & 0x20) && (v[4] == 1 || v[4] == 2 || v[4] == 3 || v[4] == 6);
    m.h.body_off = !field ? 9 : aligned ? 24 : 17;
    m.h.flags = v[3] & 0x3B;
    m.h.dims = (ub4(v[5]) << 24) | (ub4(v[6]) << 16) | (ub4(v[7]) << 8) | v[8];
    return m;
}

TEST(VectorHeader, RandomBytesAgainstModel) {
    std::mt19937_64 rng(7);
    for (int n = 0; n < 200000; ++n) {
        ub1 v[9];
        for (auto &b : v) b = ub1(rng());
        // Mostly plausible headers, so that every branch is taken often.
        if (rng() % 8) v[0] = 0xDB;
        if (rng() % 4) v[1] = ub1(rng() % 5);
        if (rng() % 2) v[4] = ub1(rng() % 8);
        const ModelHeader m = model_header(v);
        vorn_lvector_header h;
        std::memset(&h, 0xEE, sizeof h);
        const sb4 r = lvector_to_header_basic(v, &h);
        ASSERT_EQ(r, m.ret);
        if (r != 0) {
            const ub1 *raw = reinterpret_cast<const ub1 *>(&h);
            for (size_t i = 0; i < sizeof h; ++i) ASSERT_EQ(raw[i], 0xEE) << "untouched on failure";
            continue;
        }
        ASSERT_EQ(h.format, m.h.format);
        ASSERT_EQ(h.body_off, m.h.body_off);
        ASSERT_EQ(h.second_off, m.h.second_off);
        ASSERT_EQ(h.flags, m.h.flags);
        ASSERT_EQ(h.dims, m.h.dims);
    }
}

// Magic before version before flags.
TEST(VectorHeader, RefusalsInOrder) {
    vorn_lvector_header h{};
    const ub1 version4[9] = {0xDB, 4, 0, 0x01, 2, 0, 0, 0, 1}, flags1[9] = {0xDB, 3, 0, 0x01, 2, 0, 0, 0, 1},
              magic[9] = {0xDC, 9, 0, 0x00, 2, 0, 0, 0, 1};
    EXPECT_EQ(lvector_to_header_basic(version4, &h), -226);
    EXPECT_EQ(lvector_to_header_basic(flags1, &h), -245);
    EXPECT_EQ(lvector_to_header_basic(magic, &h), -251);
    EXPECT_EQ(ub4(lvector_to_header_basic(magic, &h)), 0xFFFFFF05u);
}

TEST(VectorHeader, FormatMapping) {
    const ub4 expect[8] = {0, 7, 1, 2, 5, 6, 8, 0};
    for (ub4 f = 0; f < 300; ++f) EXPECT_EQ(vorn_dbv_lvtype2vorn(f), f < 8 ? expect[f] : 0u) << f;
}

// ---- Order-preserving form -----------------------------------------------------

// Random patterns of one width: the stored form read big-endian equals the
// model (the NaN image, negative zero onto zero included), the stored
// bytes keep numeric order, and decoding gives the pattern back (the
// model's inverse for NaNs and negative zero).
template <class U, class F, U (*Encode)(U)>
void check_order_form(ub8 seed, ub8 inf, int mantissa_bits) {
    constexpr int bits = 8 * sizeof(U);
    std::mt19937_64 rng(seed);
    for (int n = 0; n < 100000; ++n) {
        const U a = U(rng()), b = U(rng());
        const U ea = vorn::bswap(Encode(a)), eb = vorn::bswap(Encode(b));
        ASSERT_EQ(ea, U(order_encode_model(a, bits, inf, mantissa_bits))) << a;
        ASSERT_EQ(order_decode<U>(Encode(a)), U(order_decode_model(ea, bits))) << a;
        const F fa = std::bit_cast<F>(a), fb = std::bit_cast<F>(b);
        if (std::isnan(fa) || std::isnan(fb)) continue;
        if (fa < fb) { ASSERT_LT(ea, eb); }
        if (fa == fb) { ASSERT_EQ(ea, eb); }
    }
}

TEST(VectorOrderForm, FloatAndDoubleAgainstModel) {
    check_order_form<ub4, float, order_encode32>(11, 0x7F800000u, 23);
    check_order_form<ub8, double, order_encode64>(12, 0x7FF0000000000000ull, 52);
    EXPECT_EQ(order_encode32(0x80000000u), order_encode32(0u));
    EXPECT_EQ(order_decode<ub4>(order_encode32(0x80000000u)), 0u);
}

// Round trips of every 16-bit pattern: NaNs come back as the quiet NaN
// (float16 0x7E00, bfloat16 0x7FC0), negative zero as zero in float16.
TEST(VectorOrderForm, SixteenBitRoundTrip) {
    for (ub4 v = 0; v < 65536; ++v) {
        const ub2 h = ub2(v);
        const ub2 df = order_decode<ub2>(order_encode_f16(h)), db = order_decode<ub2>(order_encode_bf16(h));
        ASSERT_EQ(df, (h & 0x7FFF) > 0x7C00 ? 0x7E00 : h == 0x8000 ? 0 : h) << v;
        if (h != 0x8000) { ASSERT_EQ(db, (h & 0x7FFF) > 0x7F80 ? 0x7FC0 : h) << v; }
    }
}

// ---- Half-width floats ------------------------------------------------------------

TEST(VectorHalfFloat, Float16EveryPattern) {
    for (ub4 v = 0; v < 65536; ++v)
        ASSERT_EQ(std::bit_cast<ub4>(f16_to_f32(ub2(v))), std::bit_cast<ub4>(model_f16(ub2(v)))) << v;
    EXPECT_EQ(f16_to_f32(0x0001), std::ldexp(1.0f, -24));
    EXPECT_EQ(std::bit_cast<ub4>(f16_to_f32(0x7C01)), 0x7FC02000u);
    EXPECT_EQ(std::bit_cast<ub4>(f16_to_f32(0x8000)), 0x80000000u);
}

TEST(VectorHalfFloat, Bfloat16EveryPattern) {
    for (ub4 v = 0; v < 65536; ++v) ASSERT_EQ(std::bit_cast<ub4>(bf16_to_f32(ub2(v))), v << 16) << v;
}

}  // namespace
