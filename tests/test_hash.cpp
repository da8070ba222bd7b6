// test_hash.cpp - vorn_hash_dydi against a model that knows, for every row of
// every layout, which bytes the host's hash must be called on.  A recording
// callback checks the calls themselves (address, length, seed, in row
// order), and the result column is checked against XXH3 of the same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <vector>

#include "support/fold_kv2.h"
#include "support/test_host.h"
#include "support/value_columns.h"

namespace vorntest {
namespace {

struct Call {
    const void *p;
    ub8 len, seed;
    bool operator==(const Call &o) const { return p == o.p && len == o.len && seed == o.seed; }
};
std::vector<Call> g_calls;

ub8 recording_hash(const void *p, ub8 len, ub8 seed) {
    g_calls.push_back({p, len, seed});
    return host_hash(p, len, seed);
}

// One row's value as the walk must find it.
struct Expect {
    const ub1 *p;
    ub8 len;
};

// A column of native values: ub8 seeds (one for all rows, or one per row),
// or ub4 codes of a code array.
template <class T, ub4 kFlags>
struct NativeColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    std::vector<T> values;
    explicit NativeColumn(std::vector<T> v, ub4 flags = kFlags) : values(std::move(v)) {
        column_vec(vec, enc, values.data(), values.size(), flags, 8 * sizeof(T));
    }
    T seed_of(ub8 row) const { return values.size() == 1 ? values[0] : values[row]; }
};
using SeedColumn = NativeColumn<ub8, VORN_ALIGNED>;
using CodeArray = NativeColumn<ub4, VORN_CODE_ARRAY>;

constexpr ub8 kGuard = 0x6b6b6b6b6b6b6b6bull;

// Runs the kernel with both seed forms and checks calls and results.
void check_hash(vorn_vec *src, const std::vector<Expect> &rows, std::mt19937_64 &rng) {
    const ub8 n = rows.size();
    std::vector<ub8> per_row(n);
    for (auto &s : per_row) s = rng();
    for (int single = 0; single < 2; ++single) {
        std::vector<ub8> seed_values = single ? std::vector<ub8>{rng()} : per_row;
        if (!single && n == 1) seed_values.push_back(0);  // two values: the per-row path
        SeedColumn seeds(seed_values);
        std::vector<ub8> out(n + 2, kGuard);
        vorn_vec res{};
        res.data = out.data();
        g_calls.clear();
        ASSERT_EQ(ctx().vorn_hash_dydi(&res, src, &seeds.vec, recording_hash, nullptr), 0u);
        std::vector<Call> want;
        for (ub8 i = 0; i < n; ++i) want.push_back({rows[i].p, rows[i].len, seeds.seed_of(i)});
        ASSERT_EQ(g_calls.size(), want.size()) << "single " << single;
        for (ub8 i = 0; i < n; ++i) {
            ASSERT_EQ(g_calls[i], want[i]) << "row " << i << " single " << single;
            ASSERT_EQ(out[i], host_hash(rows[i].p, rows[i].len, seeds.seed_of(i))) << "row " << i;
        }
        EXPECT_EQ(out[n], kGuard);
        EXPECT_EQ(out[n + 1], kGuard);
    }
}

// Row counts around the edges: none, one, a few, a few hundred.
const ub8 kRowCounts[] = {0, 1, 2, 7, 64, 333};

// ---- Value layouts -----------------------------------------------------------------

TEST(Hash, ValueLayoutsAgainstModel) {
    std::mt19937_64 rng(11);
    for (ub4 layout : kValueLayouts) {
        for (ub8 n : kRowCounts) {
            const std::size_t fixed = 1 + rng() % 16;
            std::vector<Value> values;
            for (ub8 i = 0; i < n; ++i)
                values.push_back(layout == VORN_FIXED ? random_value(rng, fixed, fixed) : random_value(rng, 40));
            auto col = value_column(values, layout);
            if (layout == VORN_FIXED) col->enc.bit_width = static_cast<ub4>(8 * fixed);
            std::vector<Expect> rows;
            for (ub8 i = 0; i < n; ++i) rows.push_back({col->where[i], values[i].size()});
            SCOPED_TRACE(layout_name(layout));
            check_hash(&col->vec, rows, rng);
        }
    }
}

// ---- Dictionary columns ------------------------------------------------------------

struct Dictionary {
    Bytes base, header, offsets;
    std::vector<Expect> symbols;
    ub4 layout = 0;

    // Symbol bytes: `total` random bytes.
    static Dictionary with_base(std::mt19937_64 &rng, std::size_t total) {
        Dictionary d;
        d.base.resize(total);
        for (std::size_t i = 0; i < total; ++i) d.base.data()[i] = static_cast<ub1>(rng());
        return d;
    }
    // sym_layout 0: `count` symbols of `length` bytes.
    static Dictionary fixed(std::mt19937_64 &rng, ub4 count, ub4 length) {
        Dictionary d = with_base(rng, std::size_t{count} * length);
        d.header.resize(2);
        d.header.data()[0] = static_cast<ub1>(length >> 8);
        d.header.data()[1] = static_cast<ub1>(length);
        for (ub4 c = 0; c < count; ++c) d.symbols.push_back({d.base.data() + std::size_t{c} * length, length});
        return d;
    }
    // sym_layout 1: symbols of the given lengths; a length is handed to the
    // hash modulo 65536.
    static Dictionary variable(std::mt19937_64 &rng, const std::vector<ub4> &lengths) {
        std::size_t total = 0;
        for (ub4 l : lengths) total += l;
        Dictionary d = with_base(rng, total);
        d.layout = 1;
        d.offsets.resize(4 * (lengths.size() + 1));
        ub4 at = 0;
        for (std::size_t c = 0; c <= lengths.size(); ++c) {
            const ub4 be = __builtin_bswap32(at);
            std::memcpy(d.offsets.data() + 4 * c, &be, 4);
            if (c < lengths.size()) {
                d.symbols.push_back({d.base.data() + at, lengths[c] & 0xffffu});
                at += lengths[c];
            }
        }
        return d;
    }
    void attach(vorn_enc_ctx &enc) const {
        enc.sym_base = base.data();
        enc.sym_header = header.data();
        enc.sym_offsets = reinterpret_cast<const ub4 *>(offsets.data());
        enc.sym_layout = layout;
        enc.num_symbols = static_cast<ub4>(symbols.size());
    }
};

Dictionary random_dictionary(std::mt19937_64 &rng, ub4 count, bool variable) {
    if (!variable) return Dictionary::fixed(rng, count, static_cast<ub4>(rng() % 13));
    std::vector<ub4> lengths(count);
    for (auto &l : lengths) l = static_cast<ub4>(rng() % 30);
    return Dictionary::variable(rng, lengths);
}

const ub4 kHashedWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};

// Packed codes of every width (and a code array, width 0) into fixed and
// variable dictionaries.
TEST(Hash, CodesEveryWidthBothDictionaries) {
    std::mt19937_64 rng(12);
    std::vector<ub4> widths(std::begin(kHashedWidths), std::end(kHashedWidths));
    widths.push_back(0);
    for (ub4 w : widths)
        for (int variable = 0; variable < 2; ++variable)
            for (ub8 n : kRowCounts) {
                const ub4 count = static_cast<ub4>(w == 0 ? 77 : w >= 6 ? 50 : ub8{1} << w);
                const Dictionary dict = random_dictionary(rng, count, variable);
                std::vector<ub8> codes(n);
                for (auto &c : codes) c = rng() % count;
                std::vector<Expect> rows;
                for (ub8 c : codes) rows.push_back(dict.symbols[c]);
                SCOPED_TRACE(testing::Message() << "width " << w << " variable " << variable);
                CodeArray array(std::vector<ub4>(codes.begin(), codes.end()));
                auto packed = packed_column(codes, w == 0 ? 8 : w);
                vorn_enc_ctx &enc = w == 0 ? array.enc : packed->enc;
                dict.attach(enc);
                check_hash(w == 0 ? &array.vec : &packed->vec, rows, rng);
            }
}

// Fixed symbols of length 0 are hashed with length 0; the length of a
// variable symbol is the offsets' difference modulo 65536.
TEST(Hash, DictionaryLengthRules) {
    std::mt19937_64 rng(14);
    const Dictionary none = Dictionary::fixed(rng, 4, 0);
    const Dictionary wide = Dictionary::variable(rng, {65536, 3, 65537, 0, 70000});
    EXPECT_EQ(wide.symbols[0].len, 0u);
    EXPECT_EQ(wide.symbols[2].len, 1u);
    EXPECT_EQ(wide.symbols[4].len, 70000u - 65536u);
    for (const Dictionary *dict : {&none, &wide}) {
        CodeArray col({0, 3, 1, 2, 2, 4 % static_cast<ub4>(dict->symbols.size())});
        dict->attach(col.enc);
        std::vector<Expect> rows;
        for (ub4 c : col.values) rows.push_back(dict->symbols[c]);
        check_hash(&col.vec, rows, rng);
    }
}

// ---- Seeds, empty sources, refusals ---------------------------------------------------

TEST(Hash, RefusalsWriteNothing) {
    std::mt19937_64 rng(17);
    auto col = value_column({random_value(rng, 5), random_value(rng, 5)}, VORN_LV);
    ub8 out[2] = {kGuard, kGuard};
    vorn_vec res{};
    res.data = out;
    // Seeds without VORN_ALIGNED: refused before the source is looked at,
    // here a source without even an encoding.
    for (ub4 flags : {0u, VORN_FIXED, VORN_PACKED | VORN_FIXED}) {
        SeedColumn seeds({1, 2}, flags);
        vorn_vec no_enc{};
        no_enc.size = 2;
        g_calls.clear();
        EXPECT_EQ(ctx().vorn_hash_dydi(&res, &no_enc, &seeds.vec, recording_hash, nullptr), 2u);
        EXPECT_EQ(ctx().vorn_hash_dydi(&res, &col->vec, &seeds.vec, recording_hash, nullptr), 2u);
        EXPECT_TRUE(g_calls.empty());
    }
    // A source with no layout this kernel walks.
    SeedColumn seeds({1});
    for (ub4 flags : {0u, VORN_ALIGNED, VORN_RLE, VORN_KEY32 | VORN_AUTORID}) {
        col->enc.flags = flags;
        g_calls.clear();
        EXPECT_EQ(ctx().vorn_hash_dydi(&res, &col->vec, &seeds.vec, recording_hash, nullptr), 2u);
        EXPECT_TRUE(g_calls.empty());
    }
    EXPECT_EQ(out[0], kGuard);
    EXPECT_EQ(out[1], kGuard);
}

// Two layout flags at once: the earlier in the order FIXED, PACKED,
// CODE_ARRAY, LV_SEP, LV, PTR_LEN, LEN_PTR is walked.
TEST(Hash, EarlierLayoutFlagWins) {
    std::mt19937_64 rng(18);
    std::vector<Value> values;
    for (int i = 0; i < 20; ++i) values.push_back(random_value(rng, 3, 3));
    const Dictionary dict = Dictionary::fixed(rng, 8, 5);
    std::vector<ub8> codes(20);
    for (auto &c : codes) c = rng() % 8;
    std::vector<ub4> codes4(codes.begin(), codes.end());
    const ub4 order[] = {VORN_FIXED, VORN_PACKED, VORN_CODE_ARRAY, VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR};
    auto later_than = [&](ub4 layout) {
        return std::accumulate(std::find(std::begin(order), std::end(order), layout) + 1, std::end(order), 0u,
                               std::bit_or<>());
    };
    // Each layout with every later flag set besides.
    for (ub4 layout : {VORN_FIXED, VORN_LV_SEP, VORN_LV, VORN_PTR_LEN}) {
        auto col = value_column(values, layout);
        col->enc.flags = layout | later_than(layout);
        std::vector<Expect> rows;
        for (int i = 0; i < 20; ++i) rows.push_back({col->where[i], 3});
        SCOPED_TRACE(layout_name(layout));
        check_hash(&col->vec, rows, rng);
    }
    auto packed = packed_column(codes, 8);
    dict.attach(packed->enc);
    packed->enc.flags |= later_than(VORN_PACKED);
    std::vector<Expect> rows;
    for (ub8 c : codes) rows.push_back(dict.symbols[c]);
    check_hash(&packed->vec, rows, rng);
    CodeArray array(codes4);
    dict.attach(array.enc);
    array.enc.flags |= later_than(VORN_CODE_ARRAY);
    check_hash(&array.vec, rows, rng);
}

}  // namespace
}  // namespace vorntest
