// Packed dictionary compares: eq and ge_lt, plain and _null, for every width
// of the table (the shuffle-and-mask kernels, width 1, and the whole-byte
// widths 8, 16, 32, 64, whose codes and literals are big-endian numbers of
// their bytes), on a column of 64 KiB
// (in cache) and of 256 MiB (out of every cache).  Random bytes are a column
// of uniform random codes at any width, so one buffer of each size serves
// all widths; its row count is bytes * 8 / w.
//
// Groups: <form>/<w>bit/<size> with
//   kernel       vorn_<form>_dict_<w>bit through the dispatch table
//   kernel_null  vorn_<form>_dict_<w>bit_null on the same column
//   scalar       a plain loop: the reference read of each code, the compare,
//                the bit set and counted (in cache only: out of cache the
//                kernels are held against the bandwidth)
//   bandwidth    a streaming read of the column's bytes
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr unsigned kWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};

constexpr bool whole_bytes(unsigned w) { return w == 8 || w == 16 || w == 32 || w == 64; }

struct Buffer {
    std::vector<ub8> words;
    std::size_t bytes;
    explicit Buffer(std::size_t n, bool random) : words((n + 64) / 8 + 1), bytes(n) {
        if (random)
            for (auto &w : words) w = rng()();
    }
    const ub1 *data() const { return reinterpret_cast<const ub1 *>(words.data()); }
    ub8 *bits() { return words.data(); }
};

// The column bytes and a result vector big enough for width 1, per size.
struct Data {
    Buffer column, result;
    explicit Data(std::size_t bytes) : column(bytes, true), result(bytes, false) {}
};

Data &data(std::size_t bytes) {
    static std::map<std::size_t, std::unique_ptr<Data>> cache;
    auto &d = cache[bytes];
    if (!d) d = std::make_unique<Data>(bytes);
    return *d;
}

enum class Form { eq, ge_lt };

struct Literals {
    ub8 a, b;
};

// eq: a code in the middle of the range; ge_lt: half the codes.  Width 1,
// where a nonzero literal stands for code 1: eq takes the rows of code 1,
// ge_lt those of code 0 (the complement of the stream); its _null form can
// match nothing and only clears.
Literals literals(Form form, unsigned w) {
    const ub8 top = w == 64 ? ~ub8{0} : (ub8{1} << w) - 1;
    if (form == Form::eq) return {top / 3 | 1, 0};
    if (w == 1) return {0, 1};
    const ub8 quarter = (top >> 2) + 1;  // 2^(w-2)
    return {quarter, 3 * quarter};
}

ub4 rows_of(std::size_t bytes, unsigned w) { return static_cast<ub4>(bytes * 8 / w); }

void kernel_run(benchmark::State &state, Form form, unsigned w, bool null, std::size_t bytes) {
    Data &d = data(bytes);
    const ub4 rows = rows_of(bytes, w);
    vorn_enc_ctx enc{};
    enc.flags = VORN_PACKED;
    enc.bit_width = w;
    vorn_vec src{}, res{};
    src.data = const_cast<ub1 *>(d.column.data());
    src.enc_ctx = &enc;
    src.size = rows;
    res.res_bv = d.result.bits();
    res.size = rows;
    const Literals l = literals(form, w);
    // A native ub4, or for the whole-byte widths the stream's own form.
    ub8 a = l.a, b = l.b;
    ub4 a4 = static_cast<ub4>(l.a), b4 = static_cast<ub4>(l.b);
    if (whole_bytes(w)) a = __builtin_bswap64(l.a) >> (64 - w), b = __builtin_bswap64(l.b) >> (64 - w);
    const void *low[1] = {whole_bytes(w) ? static_cast<const void *>(&a) : &a4};
    const void *high[1] = {whole_bytes(w) ? static_cast<const void *>(&b) : &b4};
    const ub4 op = form == Form::eq ? VORN_OP_EQ : VORN_OP_GE_LT;
    const vorn_kernel &k = kernel(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(VORN_WIDTH_CODE(w), VORN_ENC_DICT), op, null));
    if (!k.cmp) {
        state.SkipWithError("kernel not in the table");
        return;
    }
    for (auto _ : state) {
        const ub8 code = form == Form::eq ? k.cmp(&res, &src, low, nullptr) : k.range(&res, &src, low, high, nullptr);
        benchmark::DoNotOptimize(code);
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(bytes));
}

// The code of a row: the reference read, or a big-endian number of whole bytes.
template <unsigned W>
inline ub8 code_at(const ub1 *stream, ub8 bitpos) {
    if constexpr (!whole_bytes(W)) return reference_read(stream, W, bitpos);
    ub8 v = 0;
    std::memcpy(&v, stream + bitpos / 8, W / 8);
    return __builtin_bswap64(v) >> (64 - W);
}

template <unsigned W, Form F>
VORN_SCALAR ub8 scalar_scan(ub8 *out, const ub1 *stream, ub4 rows, ub8 a, ub8 b) {
    ub8 count = 0, word = 0, bitpos = 0;
    for (ub4 i = 0; i < rows; ++i, bitpos += W) {
        const ub8 code = code_at<W>(stream, bitpos);
        const ub8 hit = F == Form::eq ? code == a : (a <= code && code < b);
        word |= hit << (i & 63);
        count += hit;
        if ((i & 63) == 63) {
            out[i >> 6] = word;
            word = 0;
        }
    }
    if (rows & 63) out[rows >> 6] = word;
    return count;
}

template <unsigned W, Form F>
void scalar_run(benchmark::State &state, std::size_t bytes) {
    Data &d = data(bytes);
    const ub4 rows = rows_of(bytes, W);
    const Literals l = literals(F, W);
    for (auto _ : state) {
        benchmark::DoNotOptimize(scalar_scan<W, F>(d.result.bits(), d.column.data(), rows, l.a, l.b));
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(bytes));
}

template <unsigned W>
void register_width() {
    struct Size {
        const char *name;
        std::size_t bytes;
        bool scalar;
    };
    const Size sizes[] = {{"64KiB", kInCacheBytes, true}, {"256MiB", kOutOfCacheBytes, false}};
    for (const Size &s : sizes) {
        for (Form f : {Form::eq, Form::ge_lt}) {
            const std::string g = std::string(f == Form::eq ? "eq" : "ge_lt") + "/" + std::to_string(W) + "bit/" + s.name;
            const std::size_t bytes = s.bytes;
            register_row(g, "kernel", kernel_run, f, W, false, bytes);
            register_row(g, "kernel_null", kernel_run, f, W, true, bytes);
            if (s.scalar) register_row(g, "scalar", f == Form::eq ? scalar_run<W, Form::eq> : scalar_run<W, Form::ge_lt>, bytes);
            register_row(g, "bandwidth", [bytes](benchmark::State &st) {
                bandwidth(st, data(bytes).column.data(), bytes, rows_of(bytes, W));
            });
        }
    }
}

void register_all() {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (register_width<kWidths[I]>(), ...);
    }(std::make_index_sequence<std::size(kWidths)>{});
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
