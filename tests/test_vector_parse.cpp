// The vector text parser, vorn_vector_parse_dydi, through its slot: random
// columns of valid and broken texts in both character forms, one string or
// a row per pointer, fixed and flexible dimensions, float, double and int8
// results native or order-preserving, with and without norms and bad-row
// vectors, against the plain model; then the named cases and refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "support/test_host.h"
#include "support/vector_parse_model.h"

namespace {

using namespace vorntest::vecparse;
using vorntest::ctx;

// A source column of text rows, each at its own offset from a 16-byte
// boundary so that the blank skip meets every alignment.
struct TextColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<std::vector<uint64_t>> storage;
    std::vector<uint64_t> addresses;
    std::vector<uint16_t> lengths;

    TextColumn(const std::vector<std::vector<uint8_t>> &rows, int form, bool per_row, std::mt19937_64 &rng) {
        for (const auto &r : rows) {
            const size_t shift = rng() % 16;
            storage.emplace_back((r.size() + shift) / 8 + 3, 0x7878787878787878ull);  // 'x' behind the text
            uint8_t *p = reinterpret_cast<uint8_t *>(storage.back().data()) + shift;
            if (!r.empty()) std::memcpy(p, r.data(), r.size());
            addresses.push_back(reinterpret_cast<uint64_t>(p));
            lengths.push_back(uint16_t(r.size() + (form == 1 && rng() % 8 == 0 ? 1 : 0)));
        }
        enc.elem_type_ext = ub1(form);
        if (per_row) {
            enc.flags = VORN_PTR_LEN;
            vec.data = addresses.data();
            vec.data2 = lengths.data();
            vec.size = ub4(rows.size());
        } else {
            enc.max_len = lengths[0];
            vec.data = reinterpret_cast<void *>(addresses[0]);
            vec.size = 7;  // not read for one string
        }
        vec.enc_ctx = &enc;
    }
};

struct Result {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<uint8_t> data;
    std::vector<uint16_t> lengths;
    std::vector<double> norms;

    Result(const Settings &s, size_t rows, bool with_lengths) {
        data.assign(rows * 8 * 70 + 64, 0xEE);
        lengths.assign(rows + 1, 0xEEEE);
        norms.assign(rows + 1, -1.0);
        enc.elem_type = ub1(s.type);
        enc.vec_dim = s.dims;
        enc.flags = s.native ? VORN_NATIVE_FP : 0;
        vec.enc_ctx = &enc;
        vec.data = data.data();
        vec.data2 = with_lengths ? lengths.data() : nullptr;
    }
};

bool same(double a, double b) { return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b); }

void check_call(std::mt19937_64 &rng, const Settings &s, const std::vector<Units> &units, bool per_row,
                bool with_bad, bool with_norms, std::set<uint64_t> &codes) {
    std::vector<std::vector<uint8_t>> bytes;
    for (const auto &u : units) bytes.push_back(to_bytes(u, s.form));
    TextColumn src(bytes, s.form, per_row, rng);
    // The model reads the units that the lengths cover.
    std::vector<Units> seen = units;
    for (size_t r = 0; r < seen.size(); ++r) {
        const size_t n = s.form == 0 ? src.lengths[r] : src.lengths[r] / 2;
        if (n > seen[r].size()) seen[r].push_back('x');  // the odd byte: 'x' in form 0 only
        seen[r].resize(n);
    }
    const ModelResult m = model_parse(seen, s, with_bad);
    codes.insert(m.code);
    if (!m.bad.empty()) codes.insert(100);
    Result res(s, units.size(), true);
    std::vector<ub8> bad((units.size() + 63) / 64 + 1, 0);
    double *norms = res.norms.data();
    vorn_kernel_ctx kctx{};
    const ub8 code = ctx().vorn_vector_parse_dydi(&res.vec, with_norms ? &norms : nullptr, &src.vec,
                                                  with_bad ? bad.data() : nullptr, &kctx);
    ASSERT_EQ(code, m.code);
    ASSERT_EQ(kctx.num_ones, m.done);
    ASSERT_EQ(res.vec.num_ones, m.done);
    ASSERT_TRUE(std::equal(m.out.begin(), m.out.end(), res.data.begin())) << "elements";
    if (code == 0 && m.bad.empty()) {
        ASSERT_EQ(res.data[m.out.size()], 0xEE) << "nothing behind the last row";
    }
    for (uint32_t r = 0; r < m.done; ++r) {
        ASSERT_TRUE(!with_norms || same(res.norms[r], m.norms[r])) << "norm of row " << r;
        ASSERT_TRUE(s.dims != 0 || res.lengths[r] == m.lengths[r]) << "length of row " << r;
    }
    ASSERT_TRUE(with_norms || res.norms[0] == -1.0) << "norms written without a norm vector";
    if (with_bad && m.code == 0) {
        std::vector<ub8> want(bad.size(), 0);
        for (uint32_t r : m.bad) want[r >> 6] |= ub8(1) << (r & 63);
        ASSERT_EQ(bad, want);
    }
}

TEST(VectorParse, RandomColumnsAgainstModel) {
    std::mt19937_64 rng(31);
    std::set<uint64_t> codes;
    for (int call = 0; call < 6000; ++call) {
        Settings s;
        s.type = (const uint32_t[]){1, 2, 5}[rng() % 3];
        s.dims = rng() % 3 == 0 ? 0 : uint32_t(1 + rng() % 5);
        s.native = rng() % 2;
        s.form = int(rng() % 2);
        const bool per_row = rng() % 4 != 0;
        const size_t rows = per_row ? rng() % 70 : 1;
        std::vector<Units> units;
        for (size_t r = 0; r < rows; ++r) units.push_back(to_units(random_row(rng, s.dims ? s.dims : 3), s.form, rng));
        check_call(rng, s, units, per_row, rng() % 3 != 0, rng() % 2, codes);
        if (HasFatalFailure()) {
            ADD_FAILURE() << "call " << call << " type " << s.type << " dims " << s.dims << " form " << s.form;
            return;
        }
    }
    // Every code came up, and rows failed into a bad-row vector.
    EXPECT_EQ(codes, (std::set<uint64_t>{0, 4, 20, 21, 22, 100}));
}

// ---- Named cases -------------------------------------------------------------------

struct One {
    ub8 code;
    std::vector<uint8_t> out;
    double norm;
    ub8 bad;
    ub8 done;
};

One parse_one(const std::string &text, uint32_t type, uint32_t dims, bool native = true, bool with_bad = false,
              int form = 0) {
    std::mt19937_64 rng(1);
    Settings s{type, dims, native, form};
    std::vector<std::vector<uint8_t>> rows = {to_bytes(Units(text.begin(), text.end()), form)};
    TextColumn src(rows, form, true, rng);
    src.lengths[0] = uint16_t(rows[0].size());
    Result res(s, 1, true);
    double *norms = res.norms.data();
    ub8 bad = 0;
    vorn_kernel_ctx kctx{};
    One o;
    o.code = ctx().vorn_vector_parse_dydi(&res.vec, &norms, &src.vec, with_bad ? &bad : nullptr, &kctx);
    o.out.assign(res.data.begin(), res.data.begin() + 16);
    o.norm = res.norms[0];
    o.bad = bad;
    o.done = kctx.num_ones;
    return o;
}

TEST(VectorParse, NamedCases) {
    EXPECT_EQ(parse_one("[1,2,3]", 1, 3).code, 0u);
    EXPECT_EQ(parse_one("[1,2,3]", 1, 2).code, 20u);
    EXPECT_EQ(parse_one("[1,2,3]", 1, 2, true, true).bad, 0u) << "20 stops the call as if no bad rows";
    EXPECT_EQ(parse_one("[1,2,3]", 1, 4).code, 22u);
    EXPECT_EQ(parse_one("[1e]", 1, 0).code, 21u);
    EXPECT_EQ(parse_one("[ 1 , 2 ] ", 1, 0).code, 0u);
    EXPECT_EQ(parse_one("[]", 1, 0).code, 21u);
    EXPECT_EQ(parse_one("[1e39]", 1, 0).code, 21u);
    EXPECT_EQ(parse_one("[1e39]", 2, 0).code, 0u);
    EXPECT_EQ(parse_one("[1e39]", 1, 0, true, true).bad, 1u);
    EXPECT_EQ(parse_one("[.5, 5., 5]", 2, 3).code, 0u);
    EXPECT_EQ(parse_one("[1]x", 1, 0).code, 22u);
    EXPECT_EQ(parse_one("[1\t]", 1, 0).code, 21u) << "only 0x20 is a blank";
    EXPECT_EQ(parse_one("[1e200, 1e200]", 2, 0).code, 4u);
    EXPECT_EQ(parse_one("[127, -128]", 5, 2).code, 0u);
    EXPECT_EQ(parse_one("[127.4]", 5, 1).code, 21u);
    EXPECT_EQ(parse_one("[-128.5]", 5, 1).code, 21u);
    const One half = parse_one("[2.5, -2.5]", 5, 2);
    EXPECT_EQ(half.out[0], 3);
    EXPECT_EQ(int8_t(half.out[1]), -3) << "halves away from zero";
    EXPECT_EQ(half.norm, std::sqrt(18.0));
    // -0 in the order-preserving form: 0x80000000, stored big-endian.
    const One nz = parse_one("[-0]", 1, 1, false);
    EXPECT_EQ(nz.out[0], 0x80);
    EXPECT_EQ(nz.out[1] | nz.out[2] | nz.out[3], 0);
    const One three = parse_one("[3, 4]", 1, 2);
    EXPECT_EQ(three.norm, 5.0);
    EXPECT_EQ(parse_one("[1,2]", 2, 0, true, false, 1).code, 0u) << "16-bit characters";
    EXPECT_EQ(parse_one(std::string(37, ' ') + "[1]", 1, 1).code, 0u);
}

TEST(VectorParse, Refusals) {
    std::mt19937_64 rng(5);
    std::vector<std::vector<uint8_t>> rows = {{'[', '1', ']'}};
    TextColumn src(rows, 0, true, rng);
    for (uint32_t type : {0u, 3u, 6u, 7u, 8u}) {
        Result res(Settings{type, 1, true, 0}, 1, true);
        EXPECT_EQ(ctx().vorn_vector_parse_dydi(&res.vec, nullptr, &src.vec, nullptr, nullptr), 2u) << type;
    }
    src.enc.elem_type_ext = 2;
    Result ok(Settings{1, 1, true, 0}, 1, true);
    EXPECT_EQ(ctx().vorn_vector_parse_dydi(&ok.vec, nullptr, &src.vec, nullptr, nullptr), 2u);
    src.enc.elem_type_ext = 0;
    Result flex(Settings{1, 0, true, 0}, 1, false);
    EXPECT_EQ(ctx().vorn_vector_parse_dydi(&flex.vec, nullptr, &src.vec, nullptr, nullptr), 2u)
        << "flexible rows need a length array";
    EXPECT_EQ(flex.data[0], 0xEE);
}

// Failed rows leave nothing behind in a flexible result: the next row's
// elements start where the failed one's did.
TEST(VectorParse, FailedRowsLeaveNoElements) {
    std::mt19937_64 rng(8);
    const std::vector<std::string> texts = {"[1, 2]", "[3, x]", "[4]"};
    std::vector<std::vector<uint8_t>> rows;
    for (const auto &t : texts) rows.emplace_back(t.begin(), t.end());
    TextColumn src(rows, 0, true, rng);
    Result res(Settings{2, 0, true, 0}, 3, true);
    ub8 bad = 0;
    vorn_kernel_ctx kctx{};
    ASSERT_EQ(ctx().vorn_vector_parse_dydi(&res.vec, nullptr, &src.vec, &bad, &kctx), 0u);
    EXPECT_EQ(bad, 2u);
    EXPECT_EQ(kctx.num_ones, 2u);
    std::vector<double> got(3);
    std::memcpy(got.data(), res.data.data(), 24);
    EXPECT_EQ(got, (std::vector<double>{1, 2, 4}));
    EXPECT_EQ(res.lengths[0], 2);
    EXPECT_EQ(res.lengths[1], 1);
}

}  // namespace
