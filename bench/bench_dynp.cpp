// Dynamic-prefix compares: eq, lt and ge_le, and lt of the _tz form, at the
// maximum widths 16, 32 and 64 bits, in cache and out of it, against a
// scalar loop that walks the selectors row by row and compares each value.
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

// A column of random values stored without their trailing zero bytes: each
// row's stored length is uniform over 1..Bytes.
struct DynpData {
    unsigned bytes;
    ub4 rows;
    Bytes values, selectors;
    vorn_enc_ctx enc{};
    std::vector<ub8> res;
    ub8 literal_low, literal_high;  // native, at full width

    DynpData(unsigned b, ub4 n) : bytes(b), rows(n), res((n + 63) / 64 + 1) {
        const unsigned bits = b == 2 ? 1 : b == 4 ? 2 : 4, per = 8 / bits;
        std::vector<ub1> stored;
        stored.reserve(std::size_t{n} * b);
        selectors.resize((n + per - 1) / per);
        std::vector<ub8> some;
        for (ub4 i = 0; i < n; ++i) {
            const unsigned len = 1 + rng()() % b;
            ub8 v = 0;
            for (unsigned k = 0; k < len; ++k) {
                const ub1 byte = static_cast<ub1>(rng()());
                stored.push_back(byte);
                v |= ub8{byte} << (8 * (b - 1 - k));
            }
            if (i < 64) some.push_back(v);
            selectors.data()[i / per] |= static_cast<ub1>((len - 1) << ((per - 1 - i % per) * bits));
        }
        values.resize(stored.size());
        std::copy(stored.begin(), stored.end(), values.data());
        std::sort(some.begin(), some.end());
        literal_low = some[16];
        literal_high = some[48];
        enc.kernel_group = static_cast<ub1>(VORN_KERNEL_GROUP(VORN_WIDTH_CODE(b * 8), VORN_ENC_DYNP));
    }
    std::size_t bytes_read() const { return values.size() + selectors.size(); }
};

DynpData &data(unsigned bytes, ub4 rows) {
    static std::map<std::pair<unsigned, ub4>, std::unique_ptr<DynpData>> cache;
    auto &d = cache[{bytes, rows}];
    if (!d) d = std::make_unique<DynpData>(bytes, rows);
    return *d;
}

struct BigEndianLiteral {
    ub1 value[8] = {};
    ub1 key;
    const void *ptrs[2] = {value, &key};
    BigEndianLiteral(ub8 v, unsigned bytes, ub1 k) : key(k) {
        for (unsigned i = 0; i < bytes; ++i) value[i] = static_cast<ub1>(v >> (8 * (bytes - 1 - i)));
    }
};

enum Form { kEq, kLt, kGeLe, kLtTz };

void kernel_run(benchmark::State &state, unsigned bytes, ub4 rows, Form form) {
    DynpData &d = data(bytes, rows);
    const bool tz = form == kLtTz;
    const ub4 op = form == kEq ? VORN_OP_EQ : form == kGeLe ? VORN_OP_GE_LE : VORN_OP_LT;
    const vorn_kernel k = kernel(VORN_DISPATCH_INDEX(d.enc.kernel_group, op, tz));
    const BigEndianLiteral low(d.literal_low, bytes, static_cast<ub1>(bytes / 2)), high(d.literal_high, bytes, 1);
    vorn_vec src{}, res{};
    src.data = d.values.data();
    src.data2 = d.selectors.data();
    src.enc_ctx = &d.enc;
    src.size = rows;
    res.res_bv = d.res.data();
    res.size = rows;
    for (auto _ : state) {
        const ub8 code = form == kGeLe ? k.range(&res, &src, low.ptrs, high.ptrs, nullptr)
                                       : k.cmp(&res, &src, low.ptrs, nullptr);
        benchmark::DoNotOptimize(code);
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(d.bytes_read()));
}

template <unsigned Bytes>
inline ub8 load_be(const ub1 *p) {
    if constexpr (Bytes == 2) {
        ub2 v;
        std::memcpy(&v, p, 2);
        return __builtin_bswap16(v);
    } else if constexpr (Bytes == 4) {
        ub4 v;
        std::memcpy(&v, p, 4);
        return __builtin_bswap32(v);
    } else {
        ub8 v;
        std::memcpy(&v, p, 8);
        return __builtin_bswap64(v);
    }
}

// The scalar loop: each row's selector, then its value by a full-width
// big-endian load with the bytes behind the stored ones masked off.
template <unsigned Bytes, Form F>
VORN_SCALAR ub8 scalar_scan(const ub1 *values, const ub1 *selectors, ub4 n, ub8 a, ub8 b, ub4 u, ub8 *out) {
    constexpr unsigned bits = Bytes == 2 ? 1 : Bytes == 4 ? 2 : 4, per = 8 / bits, mask = (1u << bits) - 1;
    ub8 keep[9] = {};
    for (unsigned len = 1; len <= Bytes; ++len)
        keep[len] = len == 8 ? ~ub8{0} : (((ub8{1} << (8 * len)) - 1) << (8 * (Bytes - len)));
    const ub1 *p = values;
    ub8 count = 0, word = 0;
    for (ub4 i = 0; i < n; ++i) {
        const ub4 sel = (selectors[i / per] >> ((per - 1 - i % per) * bits)) & mask;
        const ub8 x = load_be<Bytes>(p) & keep[sel + 1];
        p += sel + 1;
        bool hit;
        if constexpr (F == kEq) hit = x == a;
        else if constexpr (F == kLt) hit = x < a;
        else if constexpr (F == kGeLe) hit = x >= a && x <= b;
        else hit = x < a || (x == a && sel < u);
        word |= ub8{hit} << (i & 63);
        count += hit;
        if ((i & 63) == 63) {
            out[i >> 6] = word;
            word = 0;
        }
    }
    if (n & 63) out[n >> 6] = word;
    return count;
}

template <unsigned Bytes, Form F>
void scalar_run(benchmark::State &state, ub4 rows) {
    DynpData &d = data(Bytes, rows);
    for (auto _ : state) {
        benchmark::DoNotOptimize(scalar_scan<Bytes, F>(d.values.data(), d.selectors.data(), rows, d.literal_low,
                                                       d.literal_high, Bytes / 2, d.res.data()));
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(d.bytes_read()));
}

template <unsigned Bytes, Form F>
void register_form(const char *form_name, const char *size_name, ub4 rows) {
    const std::string g = "dynp" + std::to_string(Bytes * 8) + "/" + form_name + "/" + size_name;
    register_group(
        g, [rows](benchmark::State &st) { kernel_run(st, Bytes, rows, F); },
        [rows](benchmark::State &st) { scalar_run<Bytes, F>(st, rows); },
        [rows](benchmark::State &st) {
            DynpData &d = data(Bytes, rows);
            bandwidth(st, d.values.data(), d.bytes_read() - d.selectors.size(), rows);
            set_rates(st, rows, static_cast<double>(d.bytes_read()));
        });
}

template <unsigned Bytes>
void register_width() {
    struct Size { const char *name; ub4 rows; };
    // About 64 KiB of values in cache; 64 MiB out of every cache.
    const Size sizes[] = {{"L2", static_cast<ub4>(kInCacheBytes * 2 / (Bytes + 1))},
                          {"64MiB", static_cast<ub4>((std::size_t{64} << 20) * 2 / (Bytes + 1))}};
    for (const Size &s : sizes) {
        register_form<Bytes, kEq>("eq", s.name, s.rows);
        register_form<Bytes, kLt>("lt", s.name, s.rows);
        register_form<Bytes, kGeLe>("ge_le", s.name, s.rows);
        register_form<Bytes, kLtTz>("lt_tz", s.name, s.rows);
    }
}

const int registered = (register_width<2>(), register_width<4>(), register_width<8>(), 0);

}  // namespace

VORN_BENCH_MAIN()
