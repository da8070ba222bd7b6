// vorn_decode_dict_<w>bit, all 22 widths, through the dispatch table against
// the test's own model: random columns and dictionaries of both layouts
// (with symbols of length 0 and of 65,536, which is 0 in 16 bits), all rows
// or a ones_vec (with row numbers whose 32-bit bit position wraps), plain
// and really compressed columns with the cache cell reused; the fixed
// length 0, an unknown layout, the indicator clearing and the finish.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "frame/entries.h"
#include "support/kernel_checks_b.h"

namespace {

using namespace vorntest;

constexpr const auto &kWidths = kPackedWidths;

ub4 decode_index(unsigned width) { return kernel_index(width, VORN_ENC_DICT, VORN_OP_DECODE); }
vorn_decode_fn decoder(unsigned width) { return kernel(decode_index(width)).decode; }
std::string kernel_name(unsigned width) { return "vorn_decode_dict_" + std::to_string(width) + "bit"; }

// ---- The model -------------------------------------------------------------------

// Code of `width` bits starting at bit `bit` of the stream, most significant first.
ub4 code_at(const ub1 *stream, unsigned width, ub8 bit) {
    ub4 code = 0;
    for (unsigned k = 0; k < width; ++k, ++bit) code = code << 1 | ((stream[bit >> 3] >> (7 - (bit & 7))) & 1);
    return code;
}

void put_be32(ub4 *p, ub4 v) { *p = __builtin_bswap32(v); }

struct Dictionary {
    ub4 layout = 1;
    ub4 symbols = 0;
    std::vector<ub1> bytes;    // what sym_base points into
    std::vector<ub4> offsets;  // layout 1, host order, symbols + 1 of them
    std::vector<ub4> stored;   // layout 1, big-endian
    ub1 header[2] = {};        // layout 0: the big-endian length
    ub4 fixed_len = 0;

    void attach(vorn_enc_ctx &enc) const {
        enc.sym_layout = layout;
        enc.sym_base = bytes.data();
        enc.sym_offsets = stored.data();
        enc.sym_header = header;
        enc.num_symbols = symbols;
    }
    struct Entry {
        const ub1 *ptr;
        ub2 len, flag;
    };
    Entry entry(ub4 code) const {
        if (layout == 1) {
            const ub2 len = static_cast<ub2>(offsets[code + 1] - offsets[code]);
            return {bytes.data() + offsets[code], len, static_cast<ub2>(len == 0 ? 2 : 0)};
        }
        return {bytes.data() + ub8{code} * fixed_len, static_cast<ub2>(fixed_len), 0};
    }
};

// Lengths mostly short, some 0, and up to two of 65,536 (0 in 16 bits) or
// 65,537 (1 in 16 bits).
Dictionary variable_dictionary(std::mt19937_64 &rng, ub4 symbols) {
    Dictionary d;
    d.layout = 1;
    d.symbols = symbols;
    d.offsets.push_back(0);
    int big = 0;
    for (ub4 i = 0; i < symbols; ++i) {
        const ub4 pick = rng() % 100;
        const bool large = pick >= 10 && pick <= 11 && big < 2;
        big += large;
        const ub4 len = pick < 10 ? 0 : large ? 65536 + (pick - 10) : 1 + rng() % 24;
        d.offsets.push_back(d.offsets.back() + len);
    }
    d.bytes.assign(d.offsets.back() + 1, 0x77);
    d.stored.resize(d.offsets.size());
    for (std::size_t i = 0; i < d.offsets.size(); ++i) put_be32(&d.stored[i], d.offsets[i]);
    return d;
}

Dictionary fixed_dictionary(ub4 symbols, ub4 len) {
    Dictionary d;
    d.layout = 0;
    d.symbols = symbols;
    d.fixed_len = len;
    d.header[0] = static_cast<ub1>(len >> 8);
    d.header[1] = static_cast<ub1>(len);
    d.bytes.assign(ub8{symbols} * len + 1, 0x66);
    return d;
}

// A column of `codes` of width w over the dictionary d, compressed if asked.
std::unique_ptr<Column> dict_column(const std::vector<ub8> &codes, unsigned w, const Dictionary &d,
                                    bool compressed = false) {
    auto col = packed_column(codes, w);
    d.attach(col->enc);
    if (compressed) compress_column(*col);
    return col;
}

// ---- Output arrays with guards -----------------------------------------------------

constexpr ub8 kPtrSentinel = 0x5151515151515151ull;
constexpr ub2 kSentinel = 0x5151;
constexpr std::size_t kGuardEntries = 8;

struct Output {
    std::vector<ub8> ptr;
    std::vector<ub2> len, flag;
    vorn_vec vec{};

    explicit Output(std::size_t entries)
        : ptr(entries + kGuardEntries, kPtrSentinel), len(entries + kGuardEntries, kSentinel),
          flag(entries + kGuardEntries, kSentinel) {
        vec.data = ptr.data();
        vec.data2 = len.data();
        vec.data3 = flag.data();
        vec.num_ones = 0x12345;
    }
    bool untouched_from(std::size_t j) const {
        for (; j < ptr.size(); ++j)
            if (ptr[j] != kPtrSentinel || len[j] != kSentinel || flag[j] != kSentinel) return false;
        return true;
    }
};

// One call of the decoder of width w, with its own host and context.
struct DecodeCall {
    TestHost host;
    vorn_kernel_ctx k = host.kctx();
    Output out;
    explicit DecodeCall(std::size_t entries, ub4 ones_vec_size = 0) : out(entries) { k.ones_vec_size = ones_vec_size; }
    void select(const std::vector<ub4> &rows) {
        k.ones_vec = rows.data();
        k.ones_vec_size = static_cast<ub4>(rows.size());
    }
    ub8 operator()(unsigned w, Column &col) { return decoder(w)(&out.vec, &col.vec, &k); }
};

// ---- A case: a column, a dictionary, a selection ------------------------------------

struct Case {
    unsigned width;
    std::vector<ub8> codes;
    Dictionary dict;
    std::vector<ub4> ones = {};  // empty: all rows
    bool compressed = false;
};

// The code of a row as each walk finds it: the walk over all rows uses a
// 64-bit bit position, the ones_vec walk a 32-bit product.
ub4 model_code(const ub1 *plain, unsigned width, ub4 row, bool selected) {
    const ub8 bit = selected ? static_cast<ub4>(row * width) : ub8{row} * width;
    return code_at(plain, width, bit);
}

void run_case(const Case &c) {
    SCOPED_TRACE("width " + std::to_string(c.width) + " rows " + std::to_string(c.codes.size()) + " layout " +
                 std::to_string(c.dict.layout) + (c.ones.empty() ? "" : " ones_vec") +
                 (c.compressed ? " compressed" : ""));
    auto col = dict_column(c.codes, c.width, c.dict, c.compressed);
    const vornhost::Bytes plain = vornhost::pack_codes(c.codes, c.width);
    const bool selected = !c.ones.empty();
    const ub4 k = selected ? static_cast<ub4>(c.ones.size()) : static_cast<ub4>(c.codes.size());

    DecodeCall call(k, k);
    if (selected) call.select(c.ones);
    call.k.done_flags = 0x2;
    ASSERT_EQ(call(c.width, *col), 0u);
    const TestHost &host = call.host;
    const Output &out = call.out;

    for (ub4 j = 0; j < k; ++j) {
        const ub4 row = selected ? c.ones[j] : j;
        const auto e = c.dict.entry(model_code(plain.data(), c.width, row, selected));
        ASSERT_EQ(out.ptr[j], reinterpret_cast<ub8>(e.ptr)) << "position " << j;
        ASSERT_EQ(out.len[j], e.len) << "position " << j;
        ASSERT_EQ(out.flag[j], e.flag) << "position " << j;
    }
    EXPECT_TRUE(out.untouched_from(k));
    EXPECT_EQ(out.vec.num_ones, k);
    EXPECT_EQ(call.k.row_pos, selected ? c.ones.back() : k - 1);
    EXPECT_EQ(call.k.done_flags, 0x2 | VORN_DONE_DECODED);

    if (c.compressed) {
        expect_decoded_once(host, kernel_name(c.width));
        EXPECT_EQ(host.allocs[0].bytes, plain.size());
        EXPECT_EQ(host.allocs[0].eight, 8u);
        EXPECT_EQ(host.allocs[0].sixteen, 16u);
        EXPECT_EQ(host.allocs[0].tag, kLompAllocTag);
        EXPECT_NE(col->cell, nullptr);
        // Again, on the same column: the cell serves, nothing is decoded twice.
        Output again(k);
        vorn_kernel_ctx k2 = call.k;
        ASSERT_EQ(decoder(c.width)(&again.vec, &col->vec, &k2), 0u);
        EXPECT_EQ(again.ptr, out.ptr);
        EXPECT_EQ(again.len, out.len);
        EXPECT_EQ(again.flag, out.flag);
        EXPECT_EQ(host.allocs.size(), 1u);
        EXPECT_EQ(host.decode_calls, 1u);
    } else {
        EXPECT_TRUE(host.allocs.empty());
        EXPECT_EQ(host.decode_calls, 0u);
    }
    EXPECT_TRUE(raised().empty());
}

std::vector<ub8> random_codes(std::mt19937_64 &rng, std::size_t n, ub4 symbols) {
    std::vector<ub8> codes(n);
    for (auto &c : codes) c = rng() % symbols;
    return codes;
}

// An ascending selection of rows below n, and now and then, at its end, row
// numbers whose bit position passes 2^32 and wraps back into the stream.
// Unless w divides 2^32 that position is not a row's, so the code read
// there is any w-bit number: only a dictionary of 2^w symbols serves it.
std::vector<ub4> random_selection(std::mt19937_64 &rng, ub4 n, unsigned width, ub4 symbols) {
    std::vector<ub4> rows;
    const double density = std::uniform_real_distribution<double>(0.02, 1.0)(rng);
    std::bernoulli_distribution take(density);
    for (ub4 r = 0; r < n; ++r)
        if (take(rng)) rows.push_back(r);
    if (rows.empty()) rows.push_back(static_cast<ub4>(rng() % n));
    const bool any_code = (width & (width - 1)) == 0 || ub8{symbols} >= (ub8{1} << width);
    if (n > 4 && any_code && rng() % 3 == 0) {
        const ub8 first_wrap = ((ub8{1} << 32) + width - 1) / width;  // its bit position is below width
        for (ub4 x = 0; x + 2 < n && x < 6; x += 1 + rng() % 2) {
            const ub8 row = first_wrap + x;
            if (row > 0xffffffffu || row <= rows.back()) continue;
            rows.push_back(static_cast<ub4>(row));
        }
    }
    return rows;
}

// ---- The tests ------------------------------------------------------------------------

TEST(DecodeDict, TheTableHoldsTwentyTwoWidths) {
    for (unsigned w : kWidths) {
        EXPECT_NE(decoder(w), nullptr) << w;
        EXPECT_EQ(vorn_dispatch_func_names[decode_index(w)], kernel_name(w));
    }
    EXPECT_EQ(kernel(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(22, VORN_ENC_DICT), VORN_OP_DECODE, 0)).decode, nullptr);
}

TEST(DecodeDict, AgreesWithTheModelOverRandomColumns) {
    std::mt19937_64 rng(31);
    for (unsigned w : kWidths) {
        const ub4 symbols = static_cast<ub4>(std::min<ub8>(ub8{1} << w, 3000));
        for (ub4 n : {1u, 2u, 15u, 16u, 17u, 18u, 24u, 25u, 40u, 63u, 64u, 65u, 333u, 2000u}) {
            for (int layout = 0; layout < 2; ++layout) {
                for (int selected = 0; selected < 2; ++selected) {
                    Case c{w, random_codes(rng, n, symbols),
                           layout ? variable_dictionary(rng, symbols) : fixed_dictionary(symbols, 1 + rng() % 300)};
                    if (selected) c.ones = random_selection(rng, n, w, symbols);
                    c.compressed = rng() % 3 == 0;
                    run_case(c);
                    if (HasFatalFailure()) return;
                }
            }
        }
    }
}

// Decodes all `rows` rows of a column of width w, without ones_vec.
Output decode_every_row(unsigned w, Column &col, ub4 rows) {
    DecodeCall call(rows, rows);
    EXPECT_EQ(call(w, col), 0u);
    return call.out;
}

TEST(DecodeDict, ZeroAndSixtyFiveThousandFiveHundredThirtySixAreEmpty) {
    std::mt19937_64 rng(33);
    Dictionary d = variable_dictionary(rng, 4);
    d.offsets = {0, 0, 65536, 65536 + 3, 65536 + 3 + 65537};
    for (std::size_t i = 0; i < d.offsets.size(); ++i) put_be32(&d.stored[i], d.offsets[i]);
    d.bytes.assign(d.offsets.back() + 1, 0);
    Case c{4, {0, 1, 2, 3, 3, 2, 1, 0}, d};
    run_case(c);
    auto col = dict_column(c.codes, 4, d);
    const Output out = decode_every_row(4, *col, 8);
    EXPECT_EQ(std::vector<ub2>(out.len.begin(), out.len.begin() + 4), (std::vector<ub2>{0, 0, 3, 1}));
    EXPECT_EQ(std::vector<ub2>(out.flag.begin(), out.flag.begin() + 4), (std::vector<ub2>{2, 2, 0, 0}));
    EXPECT_EQ(out.ptr[1], reinterpret_cast<ub8>(d.bytes.data()));  // the symbol's own address
}

TEST(DecodeDict, ReadsCodesWhereThePackedLayoutPutsThem) {
    // Width 1: row 9 is bit 6 of byte 1.  Width 9: row 0 is byte 0 and the
    // top bit of byte 1; row 1 the low seven bits of byte 1 and the top two
    // of byte 2.
    std::mt19937_64 rng(34);
    const Dictionary d = fixed_dictionary(512, 1);
    auto col = dict_column(std::vector<ub8>(16, 0), 1, d);
    col->data.data()[1] = 0x40;
    const Output out = decode_every_row(1, *col, 16);
    for (ub4 r = 0; r < 16; ++r) EXPECT_EQ(out.ptr[r] - reinterpret_cast<ub8>(d.bytes.data()), r == 9 ? 1u : 0u);

    auto col9 = dict_column(std::vector<ub8>(2, 0), 9, d);
    col9->data.data()[0] = 0xa5;
    col9->data.data()[1] = 0x80 | 0x55;
    col9->data.data()[2] = 0xc0;
    const Output out9 = decode_every_row(9, *col9, 2);
    EXPECT_EQ(out9.ptr[0] - reinterpret_cast<ub8>(d.bytes.data()), 0xa5u << 1 | 1);
    EXPECT_EQ(out9.ptr[1] - reinterpret_cast<ub8>(d.bytes.data()), 0x55u << 2 | 3);
}

TEST(DecodeDict, TheSelectedWalkWrapsItsBitPositionAtTwoToThe32) {
    // Width 32: row 2^27 + 5 is at bit 2^32 + 160, which wraps to row 5.
    std::vector<ub8> codes = {10, 11, 12, 13, 14, 15, 16};
    const Dictionary d = fixed_dictionary(20, 3);
    auto col = dict_column(codes, 32, d);
    const std::vector<ub4> rows = {2, (1u << 27) + 5};
    DecodeCall call(2);
    call.select(rows);
    call(32, *col);
    EXPECT_EQ(call.out.ptr[0], reinterpret_cast<ub8>(d.bytes.data() + 12 * 3));
    EXPECT_EQ(call.out.ptr[1], reinterpret_cast<ub8>(d.bytes.data() + 15 * 3));
    EXPECT_EQ(call.k.row_pos, (1u << 27) + 5);
}

TEST(DecodeDict, AnEmptyColumnEndsAtRowMinusOne) {
    const Dictionary d = fixed_dictionary(4, 2);
    auto col = dict_column({}, 5, d);
    DecodeCall call(0);
    EXPECT_EQ(call(5, *col), 0u);
    EXPECT_EQ(call.k.row_pos, 0xffffffffu);
    EXPECT_EQ(call.out.vec.num_ones, 0u);
    EXPECT_EQ(call.k.done_flags, VORN_DONE_DECODED);
    EXPECT_TRUE(call.out.untouched_from(0));
}

// Without ones_vec the indicators are cleared for ones_vec_size entries,
// more or fewer than the rows: behind the cleared range only the empty
// symbols' 2s are written, the rest keep the caller's value.
TEST(DecodeDict, IndicatorsAreClearedForOnesVecSizeEvenWithoutOnesVec) {
    std::mt19937_64 rng(36);
    for (int layout = 0; layout < 2; ++layout) {
        const Dictionary d = layout ? variable_dictionary(rng, 8) : fixed_dictionary(8, 4);
        const auto codes = random_codes(rng, 10, 8);
        auto col = dict_column(codes, 3, d);
        for (ub4 cleared : {20u, 4u}) {
            DecodeCall call(20, cleared);
            call(3, *col);
            const Output &out = call.out;
            EXPECT_EQ(out.vec.num_ones, 10u);
            for (ub4 j = 0; j < 20; ++j) {
                const ub2 flag = j < 10 ? d.entry(codes[j]).flag : 0;
                const bool written = j < cleared || flag == 2;
                EXPECT_EQ(out.flag[j], written ? flag : kSentinel) << "cleared " << cleared << " row " << j;
            }
            EXPECT_EQ(out.len[10], kSentinel);
            EXPECT_TRUE(out.untouched_from(20));
        }
    }
}

TEST(DecodeDict, FixedLengthZeroMakesEveryRowEmptyWithoutTheStream) {
    std::mt19937_64 rng(37);
    for (unsigned w : {2u, 8u, 13u, 32u}) {
        const Dictionary d = fixed_dictionary(4, 0);
        auto col = dict_column(random_codes(rng, 300, 4), w, d, true);
        const std::vector<ub4> rows = random_selection(rng, 300, w, 4);
        DecodeCall call(rows.size());
        call.select(rows);
        EXPECT_EQ(call(w, *col), 0u);
        const Output &out = call.out;
        for (std::size_t j = 0; j < rows.size(); ++j) {
            EXPECT_EQ(out.ptr[j], kPtrSentinel);
            EXPECT_EQ(out.len[j], 0u);
            EXPECT_EQ(out.flag[j], 2u);
        }
        EXPECT_TRUE(out.untouched_from(rows.size()));
        EXPECT_EQ(call.k.row_pos, rows.back());
        EXPECT_EQ(out.vec.num_ones, rows.size());
        EXPECT_EQ(call.k.done_flags, VORN_DONE_DECODED);
        EXPECT_TRUE(call.host.allocs.empty());
        EXPECT_EQ(call.host.decode_calls, 0u);
        EXPECT_EQ(col->cell, nullptr);
    }
}

TEST(DecodeDict, AnUnknownLayoutIsRefusedWithNothingWritten) {
    std::mt19937_64 rng(38);
    for (ub4 layout : {2u, 3u, 0xffffffffu}) {
        Dictionary d = variable_dictionary(rng, 8);
        auto col = dict_column(random_codes(rng, 50, 8), 3, d);
        col->enc.sym_layout = layout;
        compress_column(*col);
        DecodeCall call(50, 50);
        call.k.row_pos = 77;
        EXPECT_EQ(call(3, *col), 24u);
        EXPECT_TRUE(call.out.untouched_from(0));
        EXPECT_EQ(call.out.vec.num_ones, 0x12345u);
        EXPECT_EQ(call.k.row_pos, 77u);
        EXPECT_EQ(call.k.done_flags, 0u);
        EXPECT_TRUE(call.host.allocs.empty());
        EXPECT_EQ(call.host.decode_calls, 0u);
    }
}

TEST(DecodeDict, AFailedDecompressionRaisesAndTheKernelGoesOn) {
    std::mt19937_64 rng(39);
    for (unsigned w : {6u, 17u}) {
        const Dictionary d = fixed_dictionary(40, 2);
        auto col = dict_column(random_codes(rng, 100, 40), w, d, true);
        col->data.data()[5] = 0x01;  // flags without 0x02: the decoder refuses
        DecodeCall call(100, 100);
        clear_raised();
        EXPECT_EQ(call(w, *col), 0u);
        expect_one_raise(kernel_name(w) + ": vorn_lomp_decode failed");
        EXPECT_EQ(call.out.vec.num_ones, 100u);
        EXPECT_NE(col->cell, nullptr);
        clear_raised();
    }
}

}  // namespace
