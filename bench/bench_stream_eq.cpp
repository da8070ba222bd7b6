// Stream equality of two VORN_LV columns of short values (0 to 8 bytes,
// VORN_SHORT_VALUES), most rows equal, in cache and out of it, against a
// plain loop that compares the lengths and then the bytes with memcmp.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

struct LvPair {
    ub4 rows;
    Bytes a, b;
    vorn_enc_ctx enc{};
    std::vector<ub8> res;

    explicit LvPair(ub4 n) : rows(n), res((n + 63) / 64 + 1) {
        std::vector<ub1> x, y;
        for (ub4 i = 0; i < n; ++i) {
            const ub2 len = static_cast<ub2>(rng()() % 9);
            ub1 value[8];
            for (auto &v : value) v = static_cast<ub1>(rng()() % 4);
            const bool differ = rng()() % 16 == 0;
            for (auto *out : {&x, &y}) {
                out->push_back(static_cast<ub1>(len));
                out->push_back(static_cast<ub1>(len >> 8));
                out->insert(out->end(), value, value + len);
            }
            if (differ && len) y.back() ^= 1;
        }
        a.resize(x.size());
        b.resize(y.size());
        std::copy(x.begin(), x.end(), a.data());
        std::copy(y.begin(), y.end(), b.data());
        enc.flags = VORN_LV | VORN_SHORT_VALUES;
        enc.max_len = 8;
    }
    std::size_t bytes() const { return a.size() + b.size(); }
};

LvPair &pair(ub4 rows) {
    static std::map<ub4, std::unique_ptr<LvPair>> cache;
    auto &p = cache[rows];
    if (!p) p = std::make_unique<LvPair>(rows);
    return *p;
}

void kernel_run(benchmark::State &state, ub4 rows) {
    LvPair &p = pair(rows);
    vorn_vec a{}, b{}, res{};
    a.data = p.a.data();
    b.data = p.b.data();
    a.enc_ctx = b.enc_ctx = &p.enc;
    a.size = b.size = rows;
    res.res_bv = p.res.data();
    res.size = rows;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ctx().vorn_eq_stream_dydi(&res, &a, &b, nullptr));
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(p.bytes()));
}

// The plain loop: both cursors walk by length + 2; a row is equal when the
// lengths are and memcmp finds the bytes the same.
VORN_SCALAR ub8 scalar_eq(const ub1 *a, const ub1 *b, ub4 n, ub8 *out) {
    ub8 count = 0, word = 0;
    for (ub4 i = 0; i < n; ++i) {
        ub2 la, lb;
        std::memcpy(&la, a, 2);
        std::memcpy(&lb, b, 2);
        const bool same = la == lb && std::memcmp(a + 2, b + 2, la) == 0;
        word |= ub8{same} << (i & 63);
        count += same;
        if ((i & 63) == 63) {
            out[i >> 6] = word;
            word = 0;
        }
        a += la + 2;
        b += lb + 2;
    }
    if (n & 63) out[n >> 6] = word;
    return count;
}

void scalar_run(benchmark::State &state, ub4 rows) {
    LvPair &p = pair(rows);
    for (auto _ : state) {
        benchmark::DoNotOptimize(scalar_eq(p.a.data(), p.b.data(), rows, p.res.data()));
        benchmark::ClobberMemory();
    }
    set_rates(state, rows, static_cast<double>(p.bytes()));
}

void bandwidth_run(benchmark::State &state, ub4 rows) {
    LvPair &p = pair(rows);
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream_read(p.a.data(), p.a.size()));
        benchmark::DoNotOptimize(stream_read(p.b.data(), p.b.size()));
    }
    set_rates(state, rows, static_cast<double>(p.bytes()));
}

void register_all() {
    struct Size { const char *name; ub4 rows; };
    // Values average 6 bytes with their length: about 64 KiB and 128 MiB in both columns.
    const Size sizes[] = {{"L2", 5 << 10}, {"128MiB", 10 << 20}};
    for (const Size &s : sizes) {
        const std::string g = std::string("eq_stream/lv_short/") + s.name;
        const ub4 rows = s.rows;
        register_group(
            g, [rows](benchmark::State &st) { kernel_run(st, rows); },
            [rows](benchmark::State &st) { scalar_run(st, rows); },
            [rows](benchmark::State &st) { bandwidth_run(st, rows); });
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
