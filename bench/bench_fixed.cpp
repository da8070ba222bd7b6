// Fixed-width compares: eq and ge_lt in each width, on a column in L2 and on
// one of 256 MiB, beside a plain scalar loop that reads each big-endian value,
// compares it and sets its bit, and beside the streaming read of the same
// bytes.  In L2 also ge_lt of the _tz kernels, whose rows are the pair
// (value, tz) with the tz from its own stream.
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

// Random bytes, read as a column of any width.
const Bytes &column_bytes(std::size_t bytes) {
    static std::map<std::size_t, std::unique_ptr<Bytes>> cache;
    auto &b = cache[bytes];
    if (!b) {
        b = std::make_unique<Bytes>(bytes);
        for (std::size_t i = 0; i + 8 <= bytes; i += 8) {
            const ub8 r = rng()();
            std::memcpy(b->data() + i, &r, 8);
        }
    }
    return *b;
}

// A literal of `bits` bits in stored big-endian form.
struct Literal {
    ub1 bytes[8] = {};
    ub1 tz = 1;
    const void *addr[2] = {bytes, &tz};
    Literal(unsigned bits, ub8 value) {
        for (unsigned k = 0; k < bits / 8; ++k) bytes[k] = static_cast<ub1>(value >> (bits - 8 - 8 * k));
    }
};

ub8 max_of(unsigned bits) { return bits == 64 ? ~ub8{0} : (ub8{1} << bits) - 1; }

struct Call {
    vorn_enc_ctx enc{};
    vorn_vec src{}, res{};
    std::vector<ub8> bv;
    ub8 rows;
    Call(unsigned bits, std::size_t bytes) : rows(bytes / (bits / 8)) {
        const Bytes &data = column_bytes(bytes);
        src.data2 = const_cast<ub1 *>(column_bytes(bytes / 2 + 8).data());  // the tz stream, when read
        enc.flags = VORN_FIXED;
        enc.bit_width = bits;
        src.enc_ctx = &enc;
        src.data = const_cast<ub1 *>(data.data());
        src.size = static_cast<ub4>(rows);
        bv.assign(rows / 64 + 2, 0);
        res.res_bv = bv.data();
        res.size = src.size;
    }
};

ub4 index_of(unsigned bits, unsigned op, bool tz) {
    return VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(VORN_WIDTH_CODE(bits), VORN_ENC_FIXED), op, tz);
}

void kernel_run(benchmark::State &state, unsigned bits, unsigned op, bool tz, std::size_t bytes) {
    Call c(bits, bytes);
    const Literal low(bits, max_of(bits) / 4), high(bits, max_of(bits) / 4 * 3);
    const vorn_kernel &k = kernel(index_of(bits, op, tz));
    for (auto _ : state) {
        const ub8 code = op == VORN_OP_EQ ? k.cmp(&c.res, &c.src, low.addr, nullptr)
                                          : k.range(&c.res, &c.src, low.addr, high.addr, nullptr);
        benchmark::DoNotOptimize(code);
        benchmark::ClobberMemory();
    }
    set_rates(state, static_cast<double>(c.rows), static_cast<double>(bytes));
}

template <class T>
inline T load_be(const ub1 *p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    if constexpr (sizeof(T) == 2) return __builtin_bswap16(v);
    else if constexpr (sizeof(T) == 4) return __builtin_bswap32(v);
    else if constexpr (sizeof(T) == 8) return __builtin_bswap64(v);
    else return v;
}

// One row at a time: read the big-endian value, compare, set the bit; a
// word of bits goes out every 64 rows, and its ones are counted.
template <class T, bool Range>
VORN_SCALAR ub8 scalar_compare(const ub1 *p, ub8 rows, T a, T b, ub8 *out) {
    ub8 count = 0;
    for (ub8 w = 0; w < rows / 64; ++w) {
        ub8 bits = 0;
        for (ub8 k = 0; k < 64; ++k) {
            const T x = load_be<T>(p + (w * 64 + k) * sizeof(T));
            const bool hit = Range ? (a <= x && x < b) : x == a;
            bits |= ub8{hit} << k;
        }
        out[w] = bits;
        count += static_cast<ub8>(__builtin_popcountll(bits));
    }
    return count;
}

// The pair (value, tz) against [(a, 1), (b, 1)), with the tz of row i from a
// stream of sizeof(T) / 2 bits per row.
template <class T>
VORN_SCALAR ub8 scalar_pair_range(const ub1 *p, const ub1 *tz, ub8 rows, T a, T b, ub8 *out) {
    constexpr unsigned tz_bits = sizeof(T) / 2;
    ub8 count = 0;
    for (ub8 w = 0; w < rows / 64; ++w) {
        ub8 bits = 0;
        for (ub8 k = 0; k < 64; ++k) {
            const ub8 i = w * 64 + k;
            const T x = load_be<T>(p + i * sizeof(T));
            const unsigned t = (tz[i * tz_bits / 8] >> (8 - tz_bits - i * tz_bits % 8)) & ((1u << tz_bits) - 1);
            const bool above_low = x > a || (x == a && t >= 1);
            const bool below_high = x < b || (x == b && t < 1);
            bits |= ub8{above_low && below_high} << k;
        }
        out[w] = bits;
        count += static_cast<ub8>(__builtin_popcountll(bits));
    }
    return count;
}

template <class T>
void scalar_tz_run(benchmark::State &state, std::size_t bytes) {
    constexpr unsigned bits = 8 * sizeof(T);
    Call c(bits, bytes);
    const T a = static_cast<T>(max_of(bits) / 4), b = static_cast<T>(max_of(bits) / 4 * 3);
    for (auto _ : state) {
        benchmark::DoNotOptimize(scalar_pair_range<T>(static_cast<const ub1 *>(c.src.data),
                                                      static_cast<const ub1 *>(c.src.data2), c.rows, a, b, c.bv.data()));
        benchmark::ClobberMemory();
    }
    set_rates(state, static_cast<double>(c.rows), static_cast<double>(bytes));
}

template <class T>
void scalar_run(benchmark::State &state, unsigned op, std::size_t bytes) {
    constexpr unsigned bits = 8 * sizeof(T);
    Call c(bits, bytes);
    const T a = static_cast<T>(max_of(bits) / 4), b = static_cast<T>(max_of(bits) / 4 * 3);
    const ub1 *p = static_cast<const ub1 *>(c.src.data);
    for (auto _ : state) {
        const ub8 count = op == VORN_OP_EQ ? scalar_compare<T, false>(p, c.rows, a, b, c.bv.data())
                                           : scalar_compare<T, true>(p, c.rows, a, b, c.bv.data());
        benchmark::DoNotOptimize(count);
        benchmark::ClobberMemory();
    }
    set_rates(state, static_cast<double>(c.rows), static_cast<double>(bytes));
}

template <class T>
void register_width(const char *size_name, std::size_t bytes) {
    constexpr unsigned bits = 8 * sizeof(T);
    for (unsigned op : {unsigned{VORN_OP_EQ}, unsigned{VORN_OP_GE_LT}}) {
        const std::string g = std::string(op == VORN_OP_EQ ? "eq" : "ge_lt") + "_" + std::to_string(bits) + "bit/" + size_name;
        register_group(
            g, [op, bytes](benchmark::State &st) { kernel_run(st, bits, op, false, bytes); },
            [op, bytes](benchmark::State &st) { scalar_run<T>(st, op, bytes); },
            [bytes](benchmark::State &st) {
                bandwidth(st, column_bytes(bytes).data(), bytes, static_cast<double>(bytes / sizeof(T)));
            });
    }
}

template <class T>
void register_tz_width() {
    constexpr unsigned bits = 8 * sizeof(T);
    const std::string g = "ge_lt_tz_" + std::to_string(bits) + "bit/L2";
    register_row(g, "kernel", kernel_run, bits, unsigned{VORN_OP_GE_LT}, true, kInCacheBytes);
    register_row(g, "scalar", scalar_tz_run<T>, kInCacheBytes);
}

void register_all() {
    struct Size {
        const char *name;
        std::size_t bytes;
    };
    for (const Size &s : {Size{"L2", kInCacheBytes}, Size{"256MiB", kOutOfCacheBytes}}) {
        register_width<ub1>(s.name, s.bytes);
        register_width<ub2>(s.name, s.bytes);
        register_width<ub4>(s.name, s.bytes);
        register_width<ub8>(s.name, s.bytes);
    }
    register_tz_width<ub2>();
    register_tz_width<ub4>();
    register_tz_width<ub8>();
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
