// Packed dictionary compares: eq and ge_lt, plain and _null, for every width
// of the table (the shuffle-and-mask kernels, width 1, and the whole-byte
// widths 8, 16, 32, 64, whose codes and literals are big-endian numbers of
// their bytes), on a column of 64 KiB
// (in cache) and of 256 MiB (out of every cache, on transparent huge pages
// as a column store maps a column that large).  Random bytes are a column
// of uniform random codes at any width, so one buffer of each size serves
// all widths; its row count is bytes * 8 / w.
//
// Groups: <form>/<w>bit/<size> with
//   kernel       vorn_<form>_dict_<w>bit through the dispatch table
//   kernel_null  vorn_<form>_dict_<w>bit_null on the same column
//   scalar       a plain loop: the reference read of each code, the compare,
//                the bit set and counted (in cache only: out of cache the
//                kernels are held against the bandwidth)
//   reference    the packed widths: the shuffle-and-mask method in its
//                plain lanes, a minimal loop (see reference_scan); width 1:
//                its former method, three rounds of bit swaps and a second
//                pass that counts (see former_bit1_scan)
//   kernel_copy  width 1 only, and no kernel: the column's bytes copied to
//                the result 16 at a time and counted, the least work any
//                width-1 compare does (it must also reverse each byte's
//                bits); the floor against which the width-1 rows are read
//   bandwidth    a streaming read of the column's bytes
#include <nmmintrin.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr unsigned kWidths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 32, 64};

constexpr bool whole_bytes(unsigned w) { return w == 8 || w == 16 || w == 32 || w == 64; }

// Column and result memory as a column store holds a large column: 2 MiB
// aligned and advised for transparent huge pages, so that the scan pays
// for lines from memory and not also for a page walk every 4 KiB.  Small
// buffers come from the heap as they are.
struct Buffer {
    struct Free {
        void operator()(ub8 *p) const { std::free(p); }
    };
    std::unique_ptr<ub8[], Free> words;
    std::size_t bytes;
    explicit Buffer(std::size_t n, bool random) : bytes(n) {
        constexpr std::size_t kHuge = std::size_t{2} << 20;
        const std::size_t count = (n + 64) / 8 + 1;
        std::size_t size = count * 8;
        const bool huge = size >= kHuge;
        if (huge) size = (size + kHuge - 1) & ~(kHuge - 1);
        words.reset(static_cast<ub8 *>(std::aligned_alloc(huge ? kHuge : 64, (size + 63) & ~std::size_t{63})));
        if (huge) madvise(words.get(), size, MADV_HUGEPAGE);
        for (std::size_t i = 0; i < count; ++i) words[i] = random ? rng()() : 0;
    }
    const ub1 *data() const { return reinterpret_cast<const ub1 *>(words.get()); }
    ub8 *bits() { return words.get(); }
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

// A scan of the test's own, with the signature of scalar_scan, timed on the
// column of `bytes` bytes of width w.
using LoopScan = ub8 (*)(ub8 *out, const ub1 *stream, ub4 rows, ub8 a, ub8 b);

void loop_run(benchmark::State &state, LoopScan scan, unsigned w, Form form, std::size_t bytes) {
    Data &d = data(bytes);
    const ub4 rows = rows_of(bytes, w);
    const Literals l = literals(form, w);
    for (auto _ : state) {
        benchmark::DoNotOptimize(scan(d.result.bits(), d.column.data(), rows, l.a, l.b));
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(bytes));
}

// ---- The reference: the shuffle-and-mask method in its plain lanes -----------
//
// The method as first built for every packed width: lanes of 8 bits (w 2,
// 4), 16 bits (3, 5, 6, 7, 9, 10, 12) or 32 bits (11, 13-15, 17-20, 24);
// a block of eight 16-byte loads, each shuffled so that lane j holds the
// bytes of code j, ANDed with the lane masks, compared with the literal
// shifted into each lane (eq: equality; ge_lt: the interval test, a bias
// added and one signed compare), packed to one bit a row and counted.  No
// prefetch, no tail: the whole blocks only.  The kernels are held against
// it in the same run.

constexpr unsigned plain_lane_bits(unsigned w) {
    return w == 2 || w == 4 ? 8 : (w <= 10 && w != 8) || w == 12 ? 16 : 32;
}

template <unsigned W>
struct PlainLanes {
    static constexpr unsigned kBytes = plain_lane_bits(W) / 8, kLanes = 16 / kBytes, kRows = 8 * kLanes;
    static constexpr unsigned kHalves = (kLanes * W) % 8 ? 2 : 1;
    struct Table {
        ub1 shuffle[2][16], mask[2][16];
        ub4 shift[2][16];
    };
    static constexpr Table table() {
        Table t{};
        for (unsigned h = 0; h < 2; ++h)
            for (unsigned i = 0; i < kLanes; ++i) {
                const unsigned j = h * kLanes + i, first = j * W / 8, last = (j * W + W - 1) / 8;
                const unsigned base = h * kLanes * W / 8, s = (0u - (j + 1) * W) & 7;
                const ub8 m = ((ub8{1} << W) - 1) << s;
                t.shift[h][i] = s;
                for (unsigned k = 0; k < kBytes; ++k) {
                    t.shuffle[h][i * kBytes + k] = k <= last - first ? static_cast<ub1>(last - k - base) : 0x80;
                    t.mask[h][i * kBytes + k] = static_cast<ub1>(m >> (8 * k));
                }
            }
        return t;
    }
    static constexpr Table kTable = table();

    static __m128i lanes_of(const ub1 *bytes) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes)); }
    // Lane values `f(h, i)` as a vector of half h.
    template <class F>
    static __m128i make(unsigned h, F f) {
        alignas(16) ub1 v[16];
        for (unsigned i = 0; i < kLanes; ++i) {
            const ub4 x = f(h, i);
            std::memcpy(v + i * kBytes, &x, kBytes);
        }
        return lanes_of(v);
    }
    static __m128i eq(__m128i a, __m128i b) {
        return kBytes == 1 ? _mm_cmpeq_epi8(a, b) : kBytes == 2 ? _mm_cmpeq_epi16(a, b) : _mm_cmpeq_epi32(a, b);
    }
    static __m128i gt(__m128i a, __m128i b) {
        return kBytes == 1 ? _mm_cmpgt_epi8(a, b) : kBytes == 2 ? _mm_cmpgt_epi16(a, b) : _mm_cmpgt_epi32(a, b);
    }
    static __m128i add(__m128i a, __m128i b) {
        return kBytes == 1 ? _mm_add_epi8(a, b) : kBytes == 2 ? _mm_add_epi16(a, b) : _mm_add_epi32(a, b);
    }
};

template <unsigned W, Form F>
__attribute__((noinline)) ub8 reference_scan(ub8 *out, const ub1 *stream, ub4 rows, ub8 a8, ub8 b8) {
    using P = PlainLanes<W>;
    const ub4 a = static_cast<ub4>(a8), b = static_cast<ub4>(b8);
    constexpr ub4 sign = ub4{1} << (8 * P::kBytes - 1);
    __m128i shuffle[2], mask[2], literal[2], offset[2];
    for (unsigned h = 0; h < 2; ++h) {
        shuffle[h] = P::lanes_of(P::kTable.shuffle[h % P::kHalves]);
        mask[h] = P::lanes_of(P::kTable.mask[h % P::kHalves]);
        const unsigned hh = h % P::kHalves;
        if (F == Form::eq) {
            literal[h] = P::make(hh, [&](unsigned x, unsigned i) { return a << P::kTable.shift[x][i]; });
        } else {  // [a, b - 1]
            literal[h] = P::make(hh, [&](unsigned x, unsigned i) { return ((b - 1 - a) << P::kTable.shift[x][i]) ^ sign; });
            offset[h] = P::make(hh, [&](unsigned x, unsigned i) { return sign - (a << P::kTable.shift[x][i]); });
        }
    }
    ub8 count = 0;
    ub1 *o = reinterpret_cast<ub1 *>(out);
    const ub4 blocks = rows / P::kRows;
    for (ub4 blk = 0; blk < blocks; ++blk, stream += P::kRows * W / 8, o += P::kRows / 8) {
        __m128i m[8];
        for (unsigned k = 0; k < 8; ++k) {
            const unsigned h = k % 2;
            const __m128i x = _mm_and_si128(_mm_shuffle_epi8(P::lanes_of(stream + k * P::kLanes * W / 8), shuffle[h]), mask[h]);
            m[k] = F == Form::eq ? P::eq(x, literal[h]) : P::gt(P::add(x, offset[h]), literal[h]);
        }
        auto bits = [](__m128i v) { return static_cast<ub8>(static_cast<ub4>(_mm_movemask_epi8(v))); };
        if constexpr (P::kBytes == 1) {
            ub8 w0 = bits(m[0]) | bits(m[1]) << 16 | bits(m[2]) << 32 | bits(m[3]) << 48;
            ub8 w1 = bits(m[4]) | bits(m[5]) << 16 | bits(m[6]) << 32 | bits(m[7]) << 48;
            if (F != Form::eq) w0 = ~w0, w1 = ~w1;
            std::memcpy(o, &w0, 8), std::memcpy(o + 8, &w1, 8);
            count += _mm_popcnt_u64(w0) + _mm_popcnt_u64(w1);
        } else if constexpr (P::kBytes == 2) {
            ub8 w = bits(_mm_packs_epi16(m[0], m[1])) | bits(_mm_packs_epi16(m[2], m[3])) << 16 |
                    bits(_mm_packs_epi16(m[4], m[5])) << 32 | bits(_mm_packs_epi16(m[6], m[7])) << 48;
            if (F != Form::eq) w = ~w;
            std::memcpy(o, &w, 8);
            count += _mm_popcnt_u64(w);
        } else {
            const __m128i lo = _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
            const __m128i hi = _mm_packs_epi16(_mm_packs_epi32(m[4], m[5]), _mm_packs_epi32(m[6], m[7]));
            ub4 w = static_cast<ub4>(bits(lo) | bits(hi) << 16);
            if (F != Form::eq) w = ~w;
            std::memcpy(o, &w, 4);
            count += _mm_popcnt_u32(w);
        }
    }
    return count;
}

// ---- Width 1: the former method and the floor -----------------------------------

// Width 1 as first built: each byte's bits reversed by three rounds of
// swapping (bits, pairs, nibbles), stored; then a second pass over the
// result that counts it, for eq the result ANDed with itself, for ge_lt (the
// rows of code 0) complemented.  Whole blocks of 128 rows only.
template <Form F>
__attribute__((noinline)) ub8 former_bit1_scan(ub8 *out, const ub1 *stream, ub4 rows, ub8, ub8) {
    const ub8 blocks = rows / 128;
    const __m128i m1 = _mm_set1_epi8(0x55), m2 = _mm_set1_epi8(0x33), m4 = _mm_set1_epi8(0x0f);
    for (ub8 b = 0; b < blocks; ++b) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(stream + 16 * b));
        v = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(v, 1), m1), _mm_slli_epi64(_mm_and_si128(v, m1), 1));
        v = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(v, 2), m2), _mm_slli_epi64(_mm_and_si128(v, m2), 2));
        v = _mm_or_si128(_mm_and_si128(_mm_srli_epi64(v, 4), m4), _mm_slli_epi64(_mm_and_si128(v, m4), 4));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 2 * b), v);
    }
    ub8 count = 0;
    for (ub8 i = 0; i < 2 * blocks; ++i) {
        const ub8 x = F == Form::eq ? out[i] & out[i] : ~out[i];
        out[i] = x;
        count += _mm_popcnt_u64(x);
    }
    return count;
}

// The floor: the column copied to the result 16 bytes at a time and its bits
// counted, with the stores the kernel uses (streaming beyond 1 MiB).
__attribute__((noinline)) ub8 copy_and_count(ub8 *out, const ub1 *stream, ub4 rows, ub8, ub8) {
    const ub8 blocks = rows / 128;
    const bool streaming = blocks * 16 >= (1u << 20);
    ub8 count = 0;
    for (ub8 b = 0; b < blocks; ++b) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(stream + 16 * b));
        if (streaming)
            _mm_stream_si128(reinterpret_cast<__m128i *>(out + 2 * b), v);
        else
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 2 * b), v);
        ub8 lo, hi;
        std::memcpy(&lo, stream + 16 * b, 8), std::memcpy(&hi, stream + 16 * b + 8, 8);
        count += _mm_popcnt_u64(lo) + _mm_popcnt_u64(hi);
    }
    _mm_sfence();
    return count;
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
            const bool eq = f == Form::eq;
            if constexpr (W == 1) {
                register_row(g, "kernel_copy", loop_run, LoopScan{copy_and_count}, W, f, bytes);
                register_row(g, "reference", loop_run, eq ? former_bit1_scan<Form::eq> : former_bit1_scan<Form::ge_lt>,
                             W, f, bytes);
            } else if constexpr (!whole_bytes(W)) {
                register_row(g, "reference", loop_run, eq ? reference_scan<W, Form::eq> : reference_scan<W, Form::ge_lt>,
                             W, f, bytes);
            }
            if (s.scalar)
                register_row(g, "scalar", loop_run, eq ? scalar_scan<W, Form::eq> : scalar_scan<W, Form::ge_lt>, W, f,
                             bytes);
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
