// Compressed code streams and dictionary decode.
//
//   lomp/<stream>       vorn_lomp_decode_dydi against a plain decoder that
//                       reads each code bit by bit and memcpy's its symbol;
//                       the bandwidth is a streaming read of the output.
//   decode_var1M/<walk> vorn_decode_dict_20bit over a column of 16M rows and
//                       a variable-length dictionary of 1M symbols, all rows
//                       or a 10% selection, against the same loop without
//                       prefetch.  Out of cache: 40 MiB of codes, 4 MiB of
//                       offsets, 192 MiB of output.
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "host/lomp_encoder.h"
#include "support/bench_support.h"

namespace {

using namespace vornbench;
using vornhost::LompStream;
using vornhost::LompSymbol;

// ---- The compressed-stream decoder --------------------------------------------

// Working arrays straight from malloc: the recording host of the tests would
// measure its own bookkeeping.
void *bench_work_alloc(void *, ub8 bytes, const char *, ub4, ub4, void **release) {
    *release = nullptr;
    return std::malloc(bytes);
}
void bench_work_free(void *, void *memory, void *) { std::free(memory); }
const vorn_lomp_ctx kLompCtx = {nullptr, nullptr, bench_work_alloc, bench_work_free, 0};

struct LompCase {
    LompStream s;
    std::vector<ub1> out;
};

std::vector<LompSymbol> symbols_of(ub4 n, unsigned min_len, unsigned max_len) {
    std::vector<LompSymbol> symbols(n);
    for (auto &s : symbols) {
        s.resize(min_len + rng()() % (max_len - min_len + 1));
        for (auto &b : s) b = static_cast<ub1>(rng()());
    }
    return symbols;
}

// A packed column of 12-bit codes from 600 distinct values, in runs: the
// kind of stream the store keeps compressed.
std::vector<ub1> packed_column_bytes(std::size_t rows) {
    std::vector<ub8> codes(rows);
    ub8 value = 0;
    for (std::size_t i = 0; i < rows; ++i) {
        if (rng()() % 4 == 0) value = rng()() % 600;
        codes[i] = value;
    }
    const vornhost::Bytes b = vornhost::pack_codes(codes, 12);
    return {b.data(), b.data() + b.size()};
}

LompCase &lomp_case(const std::string &name) {
    static std::map<std::string, std::unique_ptr<LompCase>> cache;
    auto &c = cache[name];
    if (c) return *c;
    c = std::make_unique<LompCase>();
    constexpr std::size_t kCodes = 4 << 20;
    auto codes = [](ub4 n) {
        std::vector<ub4> v(kCodes);
        for (auto &x : v) x = static_cast<ub4>(rng()() % n);
        return v;
    };
    if (name == "w10_1to8") c->s = vornhost::lomp_encode(symbols_of(1000, 1, 8), codes(1000));
    else if (name == "w8_1to8") c->s = vornhost::lomp_encode(symbols_of(200, 1, 8), codes(200));
    else if (name == "w5_1to4") c->s = vornhost::lomp_encode(symbols_of(20, 1, 4), codes(20));
    else if (name == "w3_8") c->s = vornhost::lomp_encode(symbols_of(7, 8, 8), codes(7));
    else {
        const auto plain = packed_column_bytes(12 << 20);
        c->s = vornhost::lomp_compress(plain.data(), plain.size());
    }
    c->out.assign(c->s.uncompressed_size + 64, 0);
    return *c;
}

// The plain decoder: the same header, then per code a bit read and a memcpy.
// (A VORN_SCALAR function inlines no callee of other options, so it works
// on plain pointers only: a std::vector index would be a call.)
VORN_SCALAR ub4 scalar_lomp_decode(const ub1 *s, ub1 *out, const ub1 **where, ub1 *len) {
    const bool extended = static_cast<sb2>(s[10] << 8 | s[11]) > 0;
    const ub4 n = s[16] << 8 | s[17];
    unsigned w = 0;
    for (ub4 top = n - 1; top; top >>= 1) ++w;
    const ub1 *at = s + 18 + (n + 1) / 2 + (extended ? 2 * n : 0);
    for (ub4 i = 0; i < n; ++i) {
        len[i] = i % 2 ? s[18 + i / 2] & 15 : s[18 + i / 2] >> 4;
        where[i] = at;
        at += len[i];
    }
    const ub4 m = static_cast<ub4>(at[0]) << 24 | at[1] << 16 | at[2] << 8 | at[3];
    at += 4;
    if (extended) at += (static_cast<ub4>(at[0]) << 24 | at[1] << 16 | at[2] << 8 | at[3]) >> 7;
    ub8 pos = 0;
    for (ub8 i = 0, bit = 0; i < m; ++i, bit += w) {
        const ub1 *p = at + (bit >> 3);
        const ub4 three = static_cast<ub4>(p[0]) << 16 | p[1] << 8 | p[2];
        const ub4 code = w ? ((three << (bit & 7)) & 0xffffff) >> (24 - w) : 0;
        std::memcpy(out + pos, where[code], len[code]);
        pos += len[code];
    }
    return static_cast<ub4>(pos);
}

void lomp_kernel(benchmark::State &state, const std::string &name) {
    LompCase &c = lomp_case(name);
    ub4 written = 0;
    for (auto _ : state) {
        if (ctx().vorn_lomp_decode_dydi(&kLompCtx, c.s.bytes.data(), c.out.data(), &written,
                                        c.s.uncompressed_size) != 0)
            state.SkipWithError("the decoder refused the stream");
        benchmark::ClobberMemory();
    }
    set_rates(state, static_cast<double>(c.s.codes.size()), c.s.uncompressed_size);
}

void lomp_scalar(benchmark::State &state, const std::string &name) {
    LompCase &c = lomp_case(name);
    std::vector<const ub1 *> where(1024);
    std::vector<ub1> len(1024);
    for (auto _ : state) {
        if (scalar_lomp_decode(c.s.bytes.data(), c.out.data(), where.data(), len.data()) != c.s.uncompressed_size)
            state.SkipWithError("the plain decoder went wrong");
        benchmark::ClobberMemory();
    }
    set_rates(state, static_cast<double>(c.s.codes.size()), c.s.uncompressed_size);
}

void lomp_bandwidth(benchmark::State &state, const std::string &name) {
    LompCase &c = lomp_case(name);
    bandwidth(state, c.out.data(), c.s.uncompressed_size, static_cast<double>(c.s.codes.size()));
}

// ---- Dictionary decode with a variable-length dictionary of 1M symbols -------------

constexpr unsigned kWidth = 20;
constexpr ub4 kSymbols = 1u << 20;
constexpr ub4 kRows = 16u << 20;

struct DecodeCase {
    vornhost::Bytes stream;
    std::vector<ub4> offsets;  // big-endian
    std::vector<ub1> symbol_bytes;
    vorn_enc_ctx enc{};
    vorn_vec src{};
    std::vector<ub4> selection;
    std::vector<const ub1 *> ptr;
    std::vector<ub2> len, flag;
    vornhost::HostServices host;

    DecodeCase() {
        std::vector<ub8> codes(kRows);
        for (auto &c : codes) c = rng()() % kSymbols;
        stream = vornhost::pack_codes(codes, kWidth);
        offsets.resize(kSymbols + 1);
        ub4 off = 0;
        for (ub4 i = 0; i <= kSymbols; ++i) {
            offsets[i] = __builtin_bswap32(off);
            off += 1 + rng()() % 15;
        }
        symbol_bytes.assign(off, 0);
        enc.flags = VORN_PACKED;
        enc.bit_width = kWidth;
        enc.sym_layout = 1;
        enc.sym_base = symbol_bytes.data();
        enc.sym_offsets = offsets.data();
        enc.num_symbols = kSymbols;
        src.data = stream.data();
        src.enc_ctx = &enc;
        src.size = kRows;
        for (ub4 r = 0; r < kRows; ++r)
            if (rng()() % 10 == 0) selection.push_back(r);
        ptr.resize(kRows);
        len.resize(kRows);
        flag.resize(kRows);
    }
};

DecodeCase &decode_case() {
    static DecodeCase c;
    return c;
}

void decode_kernel(benchmark::State &state, bool selected) {
    DecodeCase &c = decode_case();
    const vorn_decode_fn f = kernel(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(kWidth - 1, VORN_ENC_DICT),
                                                        VORN_OP_DECODE, 0)).decode;
    const ub4 rows = selected ? static_cast<ub4>(c.selection.size()) : kRows;
    for (auto _ : state) {
        vorn_vec res{};
        res.data = c.ptr.data();
        res.data2 = c.len.data();
        res.data3 = c.flag.data();
        vorn_kernel_ctx k{};
        k.host = &c.host.services;
        k.ones_vec = selected ? c.selection.data() : nullptr;
        k.ones_vec_size = rows;
        f(&res, &c.src, &k);
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, rows * 12.0);
}

inline ub4 load32(const ub1 *p) {
    ub4 v;
    std::memcpy(&v, p, 4);
    return v;
}

// The same loop as the kernel's, without prefetch.
VORN_SCALAR void scalar_decode(const ub1 *stream, const ub1 *base, const ub4 *offsets, const ub4 *rows, ub4 count,
                               const ub1 **ptr, ub2 *len, ub2 *flag) {
    for (ub4 j = 0; j < count; ++j) {
        const ub8 bit = ub8{rows ? rows[j] : j} * kWidth;
        const ub4 code = (__builtin_bswap32(load32(stream + (bit >> 3))) << (bit & 7)) >> (32 - kWidth);
        const ub4 off = __builtin_bswap32(offsets[code]);
        const ub2 l = static_cast<ub2>(__builtin_bswap32(offsets[code + 1]) - off);
        ptr[j] = base + off;
        len[j] = l;
        flag[j] = l == 0 ? 2 : 0;
    }
}

void decode_scalar(benchmark::State &state, bool selected) {
    DecodeCase &c = decode_case();
    const ub4 rows = selected ? static_cast<ub4>(c.selection.size()) : kRows;
    for (auto _ : state) {
        scalar_decode(c.stream.data(), c.symbol_bytes.data(), c.offsets.data(), selected ? c.selection.data() : nullptr,
                      rows, c.ptr.data(), c.len.data(), c.flag.data());
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, rows * 12.0);
}

void decode_bandwidth(benchmark::State &state, bool selected) {
    DecodeCase &c = decode_case();
    const ub4 rows = selected ? static_cast<ub4>(c.selection.size()) : kRows;
    bandwidth(state, c.ptr.data(), std::size_t{rows} * 8, rows);
}

void register_all() {
    for (const char *name : {"w10_1to8", "w8_1to8", "w5_1to4", "w3_8", "packed12"}) {
        const std::string g = std::string("lomp/") + name;
        register_row(g, "kernel", lomp_kernel, std::string(name));
        register_row(g, "scalar", lomp_scalar, std::string(name));
        register_row(g, "bandwidth", lomp_bandwidth, std::string(name));
    }
    for (bool selected : {false, true}) {
        const std::string g = std::string("decode_var1M/") + (selected ? "ones_vec_10pct" : "all_rows");
        register_row(g, "kernel", decode_kernel, selected)->Unit(benchmark::kMillisecond);
        register_row(g, "scalar", decode_scalar, selected)->Unit(benchmark::kMillisecond);
        register_row(g, "bandwidth", decode_bandwidth, selected)->Unit(benchmark::kMillisecond);
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
