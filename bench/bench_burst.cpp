// Burst: run bits to row bits at 1%, 30%, 70% and 99% of the runs selected,
// for ub1 and ub2 lengths and the cumulative-length form, beside a scalar
// loop that sets each selected run's bits one by one.
#include <cstring>
#include <map>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kRuns = 1 << 16;

// A run-length column of kRuns runs of 1 to 16 rows, and its run bit
// vectors by density.
struct Runs {
    unsigned len_bits;
    std::vector<ub4> lengths;
    Bytes lens, cla;
    vorn_enc_ctx enc{};
    vorn_vec src{};
    std::vector<ub8> rows_bv;  // with slack words behind, as the kernels need
    ub4 rows = 0;

    explicit Runs(unsigned bits) : len_bits(bits), lengths(kRuns), lens(kRuns * bits / 8), cla(4 * (kRuns + 1)) {
        ub4 sum = 0;
        for (ub4 r = 0; r < kRuns; ++r) {
            const ub4 len = 1 + static_cast<ub4>(rng()() % 16);
            lengths[r] = len;
            if (bits == 16) {
                lens.data()[2 * r] = 0;
                lens.data()[2 * r + 1] = static_cast<ub1>(len);
            } else {
                lens.data()[r] = static_cast<ub1>(len);
            }
            const ub4 be = __builtin_bswap32(sum);
            std::memcpy(cla.data() + 4 * r, &be, 4);
            sum += len;
        }
        const ub4 be = __builtin_bswap32(sum);
        std::memcpy(cla.data() + 4 * kRuns, &be, 4);
        rows = sum;
        enc.flags = VORN_RLE | VORN_PACKED;
        enc.rle_lens = lens.data();
        enc.rle_len_bits = static_cast<ub1>(bits);
        enc.rle_runs = kRuns;
        src.enc_ctx = &enc;
        src.size = rows;
        rows_bv.assign(rows / 64 + 4, 0);
    }
};

Runs &runs(unsigned bits) {
    static std::map<unsigned, std::unique_ptr<Runs>> cache;
    auto &r = cache[bits];
    if (!r) r = std::make_unique<Runs>(bits);
    return *r;
}

struct Selection {
    std::vector<ub8> bits;
    ub4 ones = 0;
};

const Selection &selection(double density) {
    static std::map<double, Selection> cache;
    Selection &s = cache[density];
    if (s.bits.empty()) {
        s.bits.assign(kRuns / 64 + 1, 0);
        std::bernoulli_distribution d(density);
        for (ub4 r = 0; r < kRuns; ++r)
            if (d(rng())) s.bits[r / 64] |= ub8{1} << (r % 64), ++s.ones;
    }
    return s;
}

double bytes_of(const Runs &r) { return kRuns * r.len_bits / 8.0 + kRuns / 8.0 + r.rows / 8.0; }

void burst_kernel(benchmark::State &state, unsigned bits, bool cla, double density) {
    Runs &r = runs(bits);
    const Selection &s = selection(density);
    r.enc.rle_cla = cla ? r.cla.data() : nullptr;
    const ub4 wf = (bits == 16 ? 14 : 6) + (cla ? 1 : 0);
    const vorn_decode_fn f = kernel(VORN_DISPATCH_INDEX(VORN_KERNEL_GROUP(wf, VORN_ENC_SPECIAL), VORN_OP_BURST, 0)).decode;
    vorn_vec res{};
    res.res_bv = r.rows_bv.data();
    res.size = r.rows;
    for (auto _ : state) {
        vorn_kernel_ctx k{};
        k.bv_aux = s.bits.data();
        k.num_ones = s.ones;
        benchmark::DoNotOptimize(f(&res, &r.src, &k));
        benchmark::ClobberMemory();
    }
    set_rates(state, r.rows, bytes_of(r));
}

// One selected run at a time, one bit at a time.
VORN_SCALAR ub8 scalar_burst(ub8 *bv, const ub8 *run_bits, const ub1 *lens, unsigned len_bytes, ub4 nruns, ub4 rows) {
    for (ub4 w = 0; w < (rows + 63) / 64; ++w) bv[w] = 0;
    ub8 row = 0, count = 0;
    for (ub4 r = 0; r < nruns; ++r) {
        const ub4 len = len_bytes == 2 ? (lens[2 * r] << 8 | lens[2 * r + 1]) : lens[r];
        if ((run_bits[r >> 6] >> (r & 63)) & 1) {
            for (ub4 i = 0; i < len; ++i) bv[(row + i) >> 6] |= ub8{1} << ((row + i) & 63);
            count += len;
        }
        row += len;
    }
    return count;
}

void burst_scalar(benchmark::State &state, unsigned bits, double density) {
    Runs &r = runs(bits);
    const Selection &s = selection(density);
    for (auto _ : state) {
        benchmark::DoNotOptimize(scalar_burst(r.rows_bv.data(), s.bits.data(), r.lens.data(), bits / 8, kRuns, r.rows));
        benchmark::ClobberMemory();
    }
    set_rates(state, r.rows, bytes_of(r));
}

void register_all() {
    const std::pair<const char *, double> densities[] = {{"1pct", 0.01}, {"30pct", 0.3}, {"70pct", 0.7}, {"99pct", 0.99}};
    struct Form { const char *name; unsigned bits; bool cla; };
    const Form forms[] = {{"burst8", 8, false}, {"burst16", 16, false}, {"burst8_cla", 8, true}};
    for (const Form &f : forms) {
        for (const auto &[dname, d] : densities) {
            const std::string g = std::string(f.name) + "/" + dname;
            register_group(
                g, [f, d](benchmark::State &st) { burst_kernel(st, f.bits, f.cla, d); },
                [f, d](benchmark::State &st) { burst_scalar(st, f.bits, d); },
                [f](benchmark::State &st) {
                    Runs &r = runs(f.bits);
                    bandwidth(st, r.rows_bv.data(), r.rows / 8, r.rows);
                });
        }
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
