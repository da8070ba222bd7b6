// The compressed-stream decoder, vorn_lomp_decode_dydi, through its slot:
// round trips of every stream the host encoder makes, at every symbol count
// and at code counts around the block boundaries; the header checks and
// their order against allocation; the working arrays' names, sizes and
// releases; the final size comparison; what widths 0, 1 and 2 do in blocks;
// the extension blocks; corrupted and truncated headers.  Also the three
// block tables against the bit layout they extract, and compare kernels of
// the table over real compressed columns.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "decode/lomp_tables.h"
#include "host/lomp_encoder.h"
#include "support/lomp_column.h"
#include "support/test_host.h"

namespace {

using namespace vorntest;
using vornhost::LompOptions;
using vornhost::LompStream;
using vornhost::LompSymbol;

constexpr ub4 kUnwritten = 0xdeadbeef;
constexpr ub1 kGuard = 0xcd;
constexpr const char kLengthArray[] = "lomp_decode_x86 length_array";
constexpr const char kSymbolArray[] = "lomp_decode_x86: symbol_array";
const std::vector<std::string> kReleaseOrder = {kSymbolArray, kLengthArray};  // the symbol array first

// ---- The test's model of the format -----------------------------------------

std::vector<ub1> concat(const std::vector<LompSymbol> &symbols, const std::vector<ub4> &codes) {
    std::vector<ub1> out;
    for (ub4 c : codes) out.insert(out.end(), symbols[c].begin(), symbols[c].end());
    return out;
}

ub4 be(const ub1 *p, unsigned bytes) {
    ub4 v = 0;
    for (unsigned k = 0; k < bytes; ++k) v = v << 8 | p[k];
    return v;
}

unsigned bits_of(ub4 v) { return v ? 32 - __builtin_clz(v) : 0; }

// Writes the stream's declared uncompressed size, big-endian at byte 12.
void declare_size(ub1 *stream, ub4 size) {
    for (int k = 0; k < 4; ++k) stream[12 + k] = static_cast<ub1>(size >> (24 - 8 * k));
}

// ---- Calling the decoder -----------------------------------------------------

struct Decoded {
    ub8 result;
    ub4 out_length;
    std::vector<ub1> out;  // capacity bytes, then the guard bytes
    ub4 capacity;

    bool guard_intact() const {
        return std::all_of(out.begin() + capacity, out.end(), [](ub1 b) { return b == kGuard; });
    }
    std::vector<ub1> written(std::size_t n) const { return {out.begin(), out.begin() + n}; }
};

vorn_lomp_ctx lomp_ctx(TestHost &host) {
    return {host.services.env, host.services.heap, host.services.work_alloc, host.services.work_free, 0};
}

// Decodes into a buffer of exactly `capacity` bytes followed by 64 guard bytes.
Decoded decode(TestHost &host, const ub1 *stream, ub4 capacity) {
    Decoded d{0, kUnwritten, std::vector<ub1>(capacity + 64, kGuard), capacity};
    const vorn_lomp_ctx lctx = lomp_ctx(host);
    d.result = ctx().vorn_lomp_decode_dydi(&lctx, stream, d.out.data(), &d.out_length, capacity);
    return d;
}

std::vector<LompSymbol> random_symbols(std::mt19937_64 &rng, ub4 n, unsigned max_len = 8) {
    std::vector<LompSymbol> symbols(n);
    for (auto &s : symbols) {
        s.resize(rng() % (max_len + 1));
        for (auto &b : s) b = static_cast<ub1>(rng());
    }
    return symbols;
}

std::vector<ub4> random_codes(std::mt19937_64 &rng, ub4 n, std::size_t m) {
    std::vector<ub4> codes(m);
    for (auto &c : codes) c = static_cast<ub4>(rng() % n);
    return codes;
}

// Blocks run from 64 codes on; widths 1 and 2 decode correctly only without.
bool decodable(ub4 n, std::size_t m) { return !(n >= 2 && n <= 4 && m >= 64); }

void expect_round_trip(TestHost &host, const LompStream &s, ub4 slack, const char *what) {
    const std::vector<ub1> want = concat(s.symbols, s.codes);
    const Decoded d = decode(host, s.bytes.data(), s.uncompressed_size + slack);
    ASSERT_EQ(d.result, 0u) << what;
    ASSERT_EQ(d.out_length, want.size()) << what;
    ASSERT_EQ(d.written(want.size()), want) << what;
    ASSERT_TRUE(d.guard_intact()) << what;
}

// ---- Round trips ---------------------------------------------------------------

TEST(LompDecode, RoundTripsEverySymbolCountAroundTheBlockBoundaries) {
    std::mt19937_64 rng(11);
    TestHost host;
    for (ub4 n = 1; n <= 1024; ++n) {
        const auto symbols = random_symbols(rng, n);
        for (std::size_t m : {std::size_t{0}, std::size_t{1}, std::size_t{32}, std::size_t{33},
                              std::size_t{63}, std::size_t{64}, std::size_t{65}, std::size_t{96},
                              std::size_t{97}, std::size_t{1500 + rng() % 700}}) {
            if (!decodable(n, m)) continue;
            LompOptions opt;
            if (rng() % 3 == 0) opt.ext_marker = static_cast<ub2>(1 + rng() % 0x7fff);
            const LompStream s = vornhost::lomp_encode(symbols, random_codes(rng, n, m), opt);
            // Exactly the size (the tail's symbols or the decoder's care keep
            // the writes in), or with slack.
            const std::string what = "n " + std::to_string(n) + " m " + std::to_string(m);
            expect_round_trip(host, s, rng() % 2 ? 0 : 1 + rng() % 32, what.c_str());
        }
    }
}

TEST(LompDecode, RoundTripsWhatTheEncoderMakesOfByteStrings) {
    std::mt19937_64 rng(12);
    TestHost host;
    auto check = [&](const std::vector<ub1> &data, const char *what) {
        for (ub2 marker : {ub2{0}, ub2{3}}) {
            LompOptions opt;
            opt.ext_marker = marker;
            const LompStream s = vornhost::lomp_compress(data.data(), data.size(), opt);
            ASSERT_GE(s.symbols.size(), 1u);
            ASSERT_LE(s.symbols.size(), 1024u);
            for (const auto &sym : s.symbols) ASSERT_LE(sym.size(), 8u);
            ASSERT_TRUE(decodable(static_cast<ub4>(s.symbols.size()), s.codes.size())) << what;
            ASSERT_EQ(s.uncompressed_size, data.size());
            ASSERT_EQ(concat(s.symbols, s.codes), data) << what;
            expect_round_trip(host, s, 0, what);
        }
    };
    check({}, "empty");
    for (std::size_t size : {1u, 7u, 8u, 9u, 100u, 257u, 5000u, 100000u}) {
        std::vector<ub1> noise(size), few(size), packed;
        for (auto &b : noise) b = static_cast<ub1>(rng());
        for (auto &b : few) b = static_cast<ub1>(rng() % 3);
        // A packed column of low cardinality: what the store compresses.
        std::vector<ub8> codes(size);
        for (auto &c : codes) c = rng() % 5;
        const vornhost::Bytes p = vornhost::pack_codes(codes, 7);
        packed.assign(p.data(), p.data() + p.size());
        check(noise, "noise");
        check(few, "three byte values");
        check(packed, "packed 7-bit codes");
        check(std::vector<ub1>(size, 0x42), "one byte value");
    }
}

TEST(LompDecode, EncoderCompressesRecurringPieces) {
    std::vector<ub8> codes(80000);
    std::mt19937_64 rng(13);
    for (auto &c : codes) c = rng() % 4;
    const vornhost::Bytes p = vornhost::pack_codes(codes, 8);
    const LompStream s = vornhost::lomp_compress(p.data(), p.size());
    EXPECT_LT(s.bytes.size(), p.size() / 2);
}

// Valid streams of unusual forms, each decoded whole: empty symbols, flag
// bits other than the three, the spare nibble of an odd symbol count set,
// and extension blocks, which are skipped only for a positive marker.
TEST(LompDecode, UnusualValidStreamsRoundTrip) {
    std::mt19937_64 rng(17);
    std::vector<std::pair<std::string, LompStream>> streams;
    const std::vector<LompSymbol> gaps = {{}, {'x'}, {}, {'y', 'z'}, {}};
    std::vector<ub4> cycle(200);
    for (ub4 i = 0; i < 200; ++i) cycle[i] = i % 5;
    streams.emplace_back("empty symbols", vornhost::lomp_encode(gaps, cycle));
    streams.emplace_back("all empty", vornhost::lomp_encode(gaps, std::vector<ub4>(150, 2)));
    for (ub1 flags : {ub1{0x02}, ub1{0x06}, ub1{0x12}, ub1{0xf6}}) {
        LompOptions opt;
        opt.flags = flags;
        opt.reserved = 0xfeedf00d;
        streams.emplace_back("flags " + std::to_string(flags),
                             vornhost::lomp_encode(random_symbols(rng, 40), random_codes(rng, 40, 300), opt));
    }
    for (ub4 n : {1u, 5u, 9u, 1023u}) {
        LompStream s = vornhost::lomp_encode(random_symbols(rng, n), random_codes(rng, n, 100));
        s.bytes.data()[18 + n / 2] |= 0x0f;
        streams.emplace_back("odd n " + std::to_string(n), std::move(s));
    }
    for (ub2 marker : {ub2{0}, ub2{1}, ub2{0x7fff}, ub2{0x8000}, ub2{0xffff}})
        for (ub4 ext2 : {0u, 1u, 37u})
            for (ub1 low : {ub1{0}, ub1{0x7f}}) {
                LompOptions opt;
                opt.ext_marker = marker, opt.ext2_bytes = ext2, opt.ext_word_low = low;
                LompStream s = vornhost::lomp_encode(random_symbols(rng, 9), random_codes(rng, 9, 200), opt);
                const bool extended = marker >= 1 && marker <= 0x7fff;
                EXPECT_EQ(s.code_stream_offset - s.code_count_offset, extended ? 8 + ext2 : 4);
                streams.emplace_back("marker " + std::to_string(marker), std::move(s));
            }
    TestHost host;
    for (const auto &[what, s] : streams) expect_round_trip(host, s, 0, what.c_str());
}

// ---- Widths 0, 1 and 2 in blocks ------------------------------------------------

TEST(LompDecode, WidthsOneAndTwoGetBlockCodesWrongAndTailCodesRight) {
    // With 64 codes and more, blocks run, and they have no table rows for
    // these widths.  With symbols all of one length the size still matches,
    // so the decoder reports success; the block part is wrong, the tail right.
    std::mt19937_64 rng(15);
    TestHost host;
    for (ub4 n = 2; n <= 4; ++n) {
        std::vector<LompSymbol> symbols(n);
        for (ub4 i = 0; i < n; ++i) symbols[i] = {static_cast<ub1>('a' + i), static_cast<ub1>('A' + i)};
        for (std::size_t m : {64u, 65u, 100u, 1000u}) {
            const LompStream s = vornhost::lomp_encode(symbols, random_codes(rng, n, m));
            const std::vector<ub1> want = concat(s.symbols, s.codes);
            const Decoded d = decode(host, s.bytes.data(), s.uncompressed_size);
            EXPECT_EQ(d.result, 0u);
            EXPECT_EQ(d.out_length, want.size());
            const std::size_t block_bytes = (m / 32 - 1) * 32 * 2;
            EXPECT_FALSE(std::equal(want.begin(), want.begin() + block_bytes, d.out.begin()))
                << "n " << n << " m " << m;
            EXPECT_TRUE(std::equal(want.begin() + block_bytes, want.end(), d.out.begin() + block_bytes))
                << "n " << n << " m " << m;
            EXPECT_TRUE(d.guard_intact());
        }
    }
}

// ---- Header checks ---------------------------------------------------------------

// A valid stream of 10 symbols, and copies of it with room behind.
struct Base {
    LompStream s;
    Base() {
        std::mt19937_64 rng(16);
        s = vornhost::lomp_encode(random_symbols(rng, 10, 8), {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5});
        for (auto &sym : s.symbols) EXPECT_LE(sym.size(), 8u);
    }
    std::vector<ub1> copy() const { return {s.bytes.data(), s.bytes.data() + s.bytes.size() + 32}; }
};

void expect_refused_up_front(TestHost &host, const std::vector<ub1> &stream, ub4 capacity, const char *what) {
    const Decoded d = decode(host, stream.data(), capacity);
    EXPECT_EQ(d.result, 24u) << what;
    EXPECT_EQ(d.out_length, kUnwritten) << what;
    EXPECT_TRUE(std::all_of(d.out.begin(), d.out.end(), [](ub1 b) { return b == kGuard; })) << what;
    EXPECT_TRUE(host.work_allocs.empty()) << what;
    EXPECT_TRUE(host.allocs.empty()) << what;
}

TEST(LompDecode, HeaderFaultsAreRefusedBeforeAnyAllocation) {
    const Base base;
    const ub4 cap = base.s.uncompressed_size + 16;
    // (what, header byte, value): a magic byte with a bit flipped, versions
    // other than 0, flags without bit 1 or with bit 0 or 3, symbol counts of
    // 0 and above 1024 (big-endian in bytes 16 and 17).
    struct Fault {
        const char *what;
        int at;
        int value;
    };
    std::vector<Fault> faults;
    for (int byte = 0; byte < 4; ++byte) faults.push_back({"magic", byte, base.s.bytes.data()[byte] ^ 0x20});
    for (int version : {1, 0x80, 0xff}) faults.push_back({"version", 4, version});
    for (int flags : {0x00, 0x01, 0x03, 0x08, 0x0a, 0x0b, 0xf5}) faults.push_back({"flags", 5, flags});
    for (int n : {0, 1025, 2048, 0xffff}) faults.push_back({"symbol count", 16, n});
    for (const Fault &f : faults) {
        TestHost host;
        auto bad = base.copy();
        if (f.at == 16) bad[17] = static_cast<ub1>(f.value);
        bad[f.at] = static_cast<ub1>(f.at == 16 ? f.value >> 8 : f.value);
        expect_refused_up_front(host, bad, cap, f.what);
    }
    TestHost host;
    expect_refused_up_front(host, base.copy(), base.s.uncompressed_size - 1, "size above capacity");
}

// ---- Working arrays and the final comparison -------------------------------------

TEST(LompDecode, WorkingArraysAreAllocatedNamedAndReleasedInOrder) {
    std::mt19937_64 rng(19);
    for (ub4 n : {1u, 2u, 7u, 8u, 255u, 256u, 1024u}) {
        TestHost host;
        host.services.decoder_flags = 0x30;  // not the decoder's business
        const LompStream s = vornhost::lomp_encode(random_symbols(rng, n), random_codes(rng, n, 40));
        const Decoded d = decode(host, s.bytes.data(), s.uncompressed_size);
        EXPECT_EQ(d.result, 0u);
        ASSERT_EQ(host.work_allocs.size(), 2u);
        EXPECT_EQ(host.work_allocs[0].name, kLengthArray);
        EXPECT_EQ(host.work_allocs[0].bytes, n + 1);
        EXPECT_EQ(host.work_allocs[1].name, kSymbolArray);
        EXPECT_EQ(host.work_allocs[1].bytes, 8u * n);
        for (const auto &a : host.work_allocs) {
            EXPECT_EQ(a.eight, 8u);
            EXPECT_EQ(a.sixteen, 0u);  // the allocate operation's fifth argument
        }
        // Released with their release handles (the host checks them): the
        // symbol array first.
        EXPECT_EQ(host.work_frees, kReleaseOrder);
        EXPECT_TRUE(host.allocs.empty());
    }
}

TEST(LompDecode, ADeclaredSizeThatDiffersIsRefusedAfterDecoding) {
    std::mt19937_64 rng(20);
    const auto symbols = random_symbols(rng, 30);
    const LompStream s = vornhost::lomp_encode(symbols, random_codes(rng, 30, 500));
    const std::vector<ub1> want = concat(s.symbols, s.codes);
    for (int delta : {-1, 1, -100}) {
        TestHost host;
        std::vector<ub1> bad(s.bytes.data(), s.bytes.data() + s.bytes.size() + 32);
        declare_size(bad.data(), s.uncompressed_size + delta);
        const Decoded d = decode(host, bad.data(), s.uncompressed_size + 64);
        EXPECT_EQ(d.result, 24u);
        EXPECT_EQ(d.out_length, want.size());  // the bytes written
        EXPECT_EQ(d.written(want.size()), want);
        EXPECT_EQ(host.work_allocs.size(), 2u);
        EXPECT_EQ(host.work_frees, kReleaseOrder);
    }
}

// ---- What the decoder does with streams it cannot check ----------------------------

TEST(LompDecode, LengthsAboveEightMoveTheCursorButWriteEightBytes) {
    TestHost host;
    const LompSymbol twelve = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const LompStream s = vornhost::lomp_encode({twelve, {0xaa}, {0xbb}, {0xcc}, {0xdd}}, std::vector<ub4>(100, 0));
    const Decoded d = decode(host, s.bytes.data(), s.uncompressed_size);
    EXPECT_EQ(d.result, 0u);
    EXPECT_EQ(d.out_length, 1200u);
    for (ub4 i = 0; i < 100; ++i) EXPECT_TRUE(std::equal(twelve.begin(), twelve.begin() + 8, d.out.begin() + 12 * i));
    EXPECT_TRUE(d.guard_intact());
}

TEST(LompDecode, CodesBeyondTheSymbolCountReadTheLastSymbol) {
    // 5 symbols take 3 bits; codes 5, 6 and 7 have no symbol.  Built as a
    // stream of 8 symbols, then cut to 5 by the count (lengths stay in place
    // for the first five; the other three are dropped from the symbol bytes).
    TestHost host;
    const std::vector<LompSymbol> symbols = {{'a'}, {'b'}, {'c'}, {'d'}, {'e'}};
    std::vector<ub4> codes(300);
    for (ub4 i = 0; i < 300; ++i) codes[i] = i % 8;
    // Encode with 8 symbols of which the last three are empty, then say 5.
    auto eight = symbols;
    eight.resize(8);
    LompStream s = vornhost::lomp_encode(eight, codes);
    ub1 *p = s.bytes.data();
    p[17] = 5;
    // The nibbles shrink from 4 bytes to 3; the empty symbols took no bytes.
    std::vector<ub1> cut(p, p + 18 + 3);
    cut.insert(cut.end(), p + 18 + 4, p + s.bytes.size() + 16);
    std::vector<ub1> want;
    for (ub4 c : codes) want.push_back(static_cast<ub1>('a' + std::min<ub4>(c, 4)));
    declare_size(cut.data(), static_cast<ub4>(want.size()));
    const Decoded d = decode(host, cut.data(), static_cast<ub4>(want.size()));
    EXPECT_EQ(d.result, 0u);
    EXPECT_EQ(d.written(want.size()), want);
    EXPECT_TRUE(d.guard_intact());
}

TEST(LompDecode, AStreamLargerThanTheBufferStopsAtItsEnd) {
    std::mt19937_64 rng(23);
    for (ub4 n : {1u, 6u, 200u, 300u, 1000u}) {
        for (std::size_t m : {40u, 100u, 3000u}) {
            TestHost host;
            LompStream s = vornhost::lomp_encode(random_symbols(rng, n, 8), random_codes(rng, n, m));
            if (s.uncompressed_size < 2) continue;
            // Declare less than the stream holds, and give only that much room.
            const ub4 declared = s.uncompressed_size / 2;
            declare_size(s.bytes.data(), declared);
            const Decoded d = decode(host, s.bytes.data(), declared);
            EXPECT_EQ(d.result, 24u);
            EXPECT_GT(d.out_length, declared);
            EXPECT_TRUE(d.guard_intact()) << "n " << n << " m " << m;
            EXPECT_EQ(host.work_frees.size(), 2u);
        }
    }
}

// ---- Corrupted and truncated headers ---------------------------------------------

// Where the decoder will read, by the test's reading of the format, or
// false when the header is refused.
struct Layout {
    bool accepted = false;
    ub4 n = 0, w = 0, m = 0, size = 0;
    std::size_t code_stream = 0;
    bool empty_symbol = false;
};

Layout read_layout(const std::vector<ub1> &b, ub4 capacity) {
    Layout l;
    if (std::memcmp(b.data(), "LOMP", 4) || b[4] != 0 || !(b[5] & 2) || (b[5] & 9)) return l;
    l.size = be(&b[12], 4);
    l.n = be(&b[16], 2);
    if (l.size > capacity || l.n == 0 || l.n > 1024) return l;
    l.accepted = true;
    l.w = bits_of(l.n - 1);
    const bool extended = static_cast<sb2>(be(&b[10], 2)) > 0;
    std::size_t at = 18 + (l.n + 1) / 2 + (extended ? 2 * l.n : 0);
    for (ub4 i = 0; i < l.n; ++i) {
        const ub4 len = i % 2 ? b[18 + i / 2] & 15 : b[18 + i / 2] >> 4;
        l.empty_symbol |= len == 0;
        at += len;
    }
    l.m = be(&b[at], 4);
    at += 4;
    if (extended) at += be(&b[at], 4) >> 7;
    l.code_stream = at;
    return l;
}

TEST(LompDecode, CorruptedAndTruncatedHeadersOnlyEverGiveZeroOrTwentyFour) {
    std::mt19937_64 rng(24);
    std::vector<LompStream> bases;
    for (ub4 n : {1u, 3u, 5u, 17u, 200u, 1024u}) {
        for (std::size_t m : {40u, 700u}) {
            LompOptions opt;
            opt.ext_marker = rng() % 2 ? 1 : 0;
            // Symbols of 1 to 8 bytes: a corrupt count then still moves the
            // cursor with every code, which bounds what the decoder reads.
            auto symbols = random_symbols(rng, n);
            for (auto &s : symbols)
                if (s.empty()) s.push_back(0x11);
            bases.push_back(vornhost::lomp_encode(symbols, random_codes(rng, n, m), opt));
        }
    }
    constexpr std::size_t kSlack = 64 << 10;
    int ran = 0, refused_up_front = 0;
    const int trials = 6000;
    for (int t = 0; t < trials; ++t) {
        const LompStream &s = bases[rng() % bases.size()];
        std::vector<ub1> b(s.bytes.data(), s.bytes.data() + s.bytes.size());
        const std::size_t header = std::min<std::size_t>(b.size(), 18 + (s.symbols.size() + 1) / 2);
        if (rng() % 4 == 0) {
            b.resize(rng() % header);  // truncated: the rest of the buffer is zeros
        } else {
            for (int k = 1 + rng() % 3; k > 0; --k) b[rng() % header] = static_cast<ub1>(rng());
        }
        b.resize(b.size() + kSlack, 0);
        const ub4 capacity = s.uncompressed_size + static_cast<ub4>(rng() % 64);
        const Layout l = read_layout(b, capacity);
        if (l.accepted) {
            // A corrupt count or length may leave the decoder reading codes
            // until the output is full (one byte a code at least), or all m.
            const ub8 codes = l.empty_symbol ? l.m : std::min<ub8>(l.m, capacity + 64);
            if (l.code_stream + (codes * l.w + 7) / 8 + 64 > b.size()) continue;
        }
        TestHost host;
        const Decoded d = decode(host, b.data(), capacity);
        ++ran;
        ASSERT_TRUE(d.result == 0 || d.result == 24) << "trial " << t;
        ASSERT_TRUE(d.guard_intact()) << "trial " << t;
        if (!l.accepted) {
            ++refused_up_front;
            ASSERT_EQ(d.result, 24u);
            ASSERT_TRUE(host.work_allocs.empty());
        } else {
            ASSERT_EQ(host.work_frees.size(), 2u);
            if (d.result == 0) {
                ASSERT_EQ(d.out_length, l.size);
            }
        }
    }
    EXPECT_GT(ran, trials * 3 / 4);
    EXPECT_GT(refused_up_front, ran / 4);
}

// ---- The block tables --------------------------------------------------------------

// Applies one table row to 16 stream bytes as the block phase does: byte
// shuffle into 16-bit lanes, AND, shift; compared with the codes read bit by
// bit.
TEST(LompTables, EachRowExtractsEightCodesOfItsWidth) {
    std::mt19937_64 rng(25);
    for (ub4 w = 3; w <= 10; ++w) {
        const auto &shuffle = vorn_lomp_decode_shuffle_masks[w - 3];
        const auto &mask = vorn_lomp_decode_and_masks[w - 3];
        const auto &shift = vorn_lomp_decode_shift_masks[w - 3];
        for (int trial = 0; trial < 200; ++trial) {
            ub1 bytes[16];
            for (auto &b : bytes) b = static_cast<ub1>(rng());
            for (ub4 k = 0; k < 8; ++k) {
                auto pick = [&](ub1 index) -> ub4 { return index & 0x80 ? 0 : bytes[index & 15]; };
                const ub4 lane = pick(shuffle[2 * k]) | pick(shuffle[2 * k + 1]) << 8;
                ub4 want = 0;
                for (ub4 bit = k * w; bit < k * w + w; ++bit) want = want << 1 | ((bytes[bit / 8] >> (7 - bit % 8)) & 1);
                ASSERT_EQ((lane & mask[k]) >> shift[k], want) << "w " << w << " lane " << k;
                ASSERT_EQ(mask[k] >> shift[k], (1u << w) - 1);
            }
        }
    }
}

// ---- Compare kernels over real compressed columns -----------------------------------

// Width 16, 32, 64: big-endian in the stream's form; 8: one ub1; others: a native ub4.
ub8 literal_store(unsigned width, ub4 code) {
    return width == 16 ? __builtin_bswap16(static_cast<ub2>(code)) : width == 32 ? __builtin_bswap32(code)
           : width == 64 ? __builtin_bswap64(code) : code;
}

TEST(CompressedColumns, CompareKernelsOfTheTableReadRealStreams) {
    std::mt19937_64 rng(26);
    int served = 0;
    for (unsigned width : {1u, 3u, 5u, 8u, 12u, 16u, 20u, 24u, 32u, 64u}) {
        for (unsigned op : {unsigned{VORN_OP_EQ}, unsigned{VORN_OP_LT}, unsigned{VORN_OP_GE_LE}}) {
            const ub4 index = kernel_index(width, VORN_ENC_DICT, op);
            if (!kernel(index).cmp) continue;
            ++served;
            const ub8 range = width >= 3 ? 6 : 2;
            std::vector<ub8> codes(777);
            for (auto &c : codes) c = rng() % range;
            auto col = packed_column(codes, width);
            compress_column(*col);
            TestHost host;
            vorn_kernel_ctx k = host.kctx();
            Result res(codes.size());
            const ub4 a = 1, b = 3;
            const ub8 a_store = literal_store(width, a), b_store = literal_store(width, b);
            const void *low[1] = {&a_store}, *high[1] = {&b_store};
            const ub8 result = is_range_op(op) ? kernel(index).range(&res.vec, &col->vec, low, high, &k)
                                               : kernel(index).cmp(&res.vec, &col->vec, low, &k);
            ub8 count = 0;
            for (std::size_t i = 0; i < codes.size(); ++i) {
                const bool want = compare_model(op, codes[i], a, b);
                count += want;
                ASSERT_EQ(res.bit(i), want) << "width " << width << " " << compare_name(op) << " row " << i;
            }
            EXPECT_EQ(res.vec.num_ones, count);
            EXPECT_EQ(result, count ? 0u : 1u);
            EXPECT_EQ(host.decode_calls, 1u);
            ASSERT_EQ(host.allocs.size(), 1u);
            EXPECT_EQ(host.allocs[0].bytes, col->vec.decomp_size);
        }
    }
    if (!served) GTEST_SKIP() << "no dictionary compare kernel in the table yet";
}

}  // namespace
