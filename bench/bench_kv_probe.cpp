// Probe: rows against a k4v4 table of 4-byte fixed keys through
// vorn_probe_kv_dydi, one thread, in each link (idx, ptr, ptr_prefetch)
// and modes 0 (every match) and 1 (count), beside a plain chain walk
// without prefetch computing the same count, absl::flat_hash_map::find with
// the same precomputed hashes (when libabsl-dev is installed), and a
// streaming read of the probe input.
//
// Sizes are scaled down from a 64M-row table to 4M build rows and 4M probe
// rows (half of them present), as the shared machine is loaded.
#include <cstdlib>
#include <memory>

#include "kv/kv_bucket_add.h"
#include "support/bench_support.h"

#if VORN_HAVE_ABSL
#include "absl/container/flat_hash_map.h"
#endif

namespace {

using namespace vornbench;

constexpr ub8 kBuild = ub8{1} << 22;
constexpr ub8 kProbe = ub8{1} << 22;

ub8 hash_of(ub4 key) {
    ub8 h = (key + 0x9e3779b97f4a7c15ull) * 0xff51afd7ed558ccdull;
    return h ^ (h >> 29);
}

// A table whose pages come from two arenas: region 0 mapped whole,
// overflow units handed out in order.
struct Table {
    vorn_kv kv{};
    std::vector<ub1 *> pages0, pages1;
    std::vector<ub1> arena0, arena1;
    ub8 next1 = 0;
    static Table *&current() {
        static Table *t = nullptr;
        return t;
    }
    static ub8 grow(vorn_kv_region *, ub8 units, ub8 *id, ...) {
        *id = current()->next1;
        current()->next1 += units;
        return 0;
    }
    Table(int link, const std::vector<ub4> &keys, const std::vector<ub8> &hashes) {
        kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, VORN_KV_FORM_KEYS);
        ctx().vorn_layout_kv_dydi(keys.size(), keys.size(), &kv.flags, &kv, 0, 0, 1u << 30, 50, link != 0);
        if (link == 2) kv.flags |= VORN_KV_PREFETCH;
        const vorn_kv_region &r0 = kv.regions[0];
        const ub8 page0 = ub8{64} << r0.page_bits;
        arena0.assign(page0 * r0.page_count + 64, 0);
        ub1 *base0 = reinterpret_cast<ub1 *>((reinterpret_cast<uintptr_t>(arena0.data()) + 63) & ~uintptr_t{63});
        for (ub8 p = 0; p < r0.page_count; ++p) pages0.push_back(base0 + p * page0);
        kv.regions[0].pages = pages0.data();
        kv.regions[0].mapped = r0.page_count;
        const ub8 page1 = ub8{64} << kv.regions[1].page_bits;
        const ub8 count1 = kv.regions[1].page_count + 1;
        arena1.assign(page1 * count1 + 64, 0);
        ub1 *base1 = reinterpret_cast<ub1 *>((reinterpret_cast<uintptr_t>(arena1.data()) + 63) & ~uintptr_t{63});
        for (ub8 p = 0; p < count1; ++p) pages1.push_back(base1 + p * page1);
        kv.regions[1].pages = pages1.data();
        kv.regions[1].mapped = static_cast<ub4>(count1);
        current() = this;
        vorn_enc_ctx he{}, ke{}, ve{};
        he.flags = VORN_ALIGNED;
        he.width_code = 22;
        ke.flags = VORN_FIXED;
        ke.bit_width = 32;
        ve.flags = VORN_AUTORID;
        vorn_vec hv{}, kvec{}, vv{};
        hv.data = const_cast<ub8 *>(hashes.data());
        hv.size = static_cast<ub4>(keys.size());
        hv.enc_ctx = &he;
        kvec.data = const_cast<ub4 *>(keys.data());
        kvec.size = hv.size;
        kvec.enc_ctx = &ke;
        vv.enc_ctx = &ve;
        vorn_kernel_ctx kctx{};
        ub8 status[2];
        ctx().vorn_create_add_kv_dydi(&kv, &hv, &vv, &kvec, -1, &kctx, grow, status);
    }
};

struct Data {
    std::vector<ub4> build_keys, probe_keys;
    std::vector<ub8> build_hashes, probe_hashes;
    std::unique_ptr<Table> tables[3];
    Data() {
        for (ub8 i = 0; i < kBuild; ++i) {
            build_keys.push_back(static_cast<ub4>(rng()() & 0x7fffffff));
            build_hashes.push_back(hash_of(build_keys.back()));
        }
        for (ub8 i = 0; i < kProbe; ++i) {
            probe_keys.push_back((i & 1) ? build_keys[rng()() % kBuild] : static_cast<ub4>(rng()() | 0x80000000u));
            probe_hashes.push_back(hash_of(probe_keys.back()));
        }
        for (int l = 0; l < 3; ++l) tables[l] = std::make_unique<Table>(l, build_keys, build_hashes);
    }
};
Data &data() {
    static Data d;
    return d;
}

void probe_kernel(benchmark::State &state, int link, ub4 mode) {
    Data &d = data();
    std::vector<ub8> rows_out(1 << 16), values_out(1 << 16);
    vorn_enc_ctx he{}, ke{};
    he.flags = VORN_ALIGNED;
    he.width_code = 22;
    ke.flags = VORN_FIXED;
    ke.bit_width = 32;
    vorn_vec hv{}, kvec{};
    hv.data = d.probe_hashes.data();
    hv.size = static_cast<ub4>(kProbe);
    hv.enc_ctx = &he;
    kvec.data = d.probe_keys.data();
    kvec.size = hv.size;
    kvec.enc_ctx = &ke;
    ub8 total = 0;
    for (auto _ : state) {
        vorn_kernel_ctx kctx{};
        ub8 stats[2] = {}, code = 15;
        while (code == 15) {
            vorn_vec ro{}, vo{};
            ro.data = rows_out.data();
            ro.size = static_cast<ub4>(rows_out.size());
            vo.data = values_out.data();
            code = ctx().vorn_probe_kv_dydi(&ro, &vo, &hv, nullptr, &kvec, &d.tables[link]->kv, mode, &kctx, stats);
            total += ro.size;
        }
        if (code != 0) state.SkipWithError("probe failed");
    }
    benchmark::DoNotOptimize(total);
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}

// The count of mode 1 by a plain walk of the idx or ptr chains, no prefetch.
void probe_plain(benchmark::State &state, int link, ub4) {
    using namespace vorn::kv;
    using vorn::load;
    Data &d = data();
    const vorn_kv &kv = d.tables[link]->kv;
    const BucketAddress address(&kv, nullptr);
    const vorn_kv_region &r1 = kv.regions[1];
    for (auto _ : state) {
        ub8 count = 0;
        for (ub8 i = 0; i < kProbe; ++i) {
            const ub1 *b = address(d.probe_hashes[i]);
            const ub4 key = d.probe_keys[i];
            while (b != nullptr) {
                const ub4 n = link == 0 ? load<ub4>(b) & 7 : load<ub2>(b + 8) & 7;
                const ub1 *keys = b + (link == 0 ? 4 : 12);
                for (ub4 e = 0; e < n; ++e) count += load<ub4>(keys + 4 * e) == key;
                if (link == 0) {
                    const ub8 l = load<ub4>(b) >> 3;
                    b = l == 0 ? nullptr : r1.pages[(l - 1) >> r1.page_bits] + (((l - 1) << 6) & ((ub8{64} << r1.page_bits) - 1));
                } else {
                    b = reinterpret_cast<const ub1 *>(load<ub8>(b));
                }
            }
        }
        benchmark::DoNotOptimize(count);
    }
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}

#if VORN_HAVE_ABSL
struct Precomputed {
    std::size_t operator()(const std::pair<ub4, ub8> &k) const { return k.second; }
};
struct KeyEq {
    bool operator()(const std::pair<ub4, ub8> &a, const std::pair<ub4, ub8> &b) const { return a.first == b.first; }
};
void probe_absl(benchmark::State &state, int, ub4) {
    Data &d = data();
    static absl::flat_hash_map<std::pair<ub4, ub8>, ub4, Precomputed, KeyEq> map = [&] {
        absl::flat_hash_map<std::pair<ub4, ub8>, ub4, Precomputed, KeyEq> m;
        m.reserve(kBuild);
        for (ub8 i = 0; i < kBuild; ++i) m.emplace(std::pair<ub4, ub8>{d.build_keys[i], d.build_hashes[i]}, ub4(i));
        return m;
    }();
    for (auto _ : state) {
        ub8 found = 0;
        for (ub8 i = 0; i < kProbe; ++i) found += map.find(std::pair<ub4, ub8>{d.probe_keys[i], d.probe_hashes[i]}) != map.end();
        benchmark::DoNotOptimize(found);
    }
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}
#endif

void read_input(benchmark::State &state, int, ub4) {
    Data &d = data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream_read(d.probe_hashes.data(), kProbe * 8));
        benchmark::DoNotOptimize(stream_read(d.probe_keys.data(), kProbe * 4));
    }
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}

const bool registered = [] {
    const char *links[] = {"idx", "ptr", "ptr_prefetch"};
    for (int link = 0; link < 3; ++link) {
        for (ub4 mode : {0u, 1u}) {
            const std::string group = std::string("k4v4_fixed4_") + links[link] + "_mode" + std::to_string(mode) + "/4M";
            register_row(group, "kernel", probe_kernel, link, mode)->Unit(benchmark::kMillisecond);
            if (link < 2) register_row(group, "scalar", probe_plain, link, mode)->Unit(benchmark::kMillisecond);
#if VORN_HAVE_ABSL
            register_row(group, "peer_absl", probe_absl, link, mode)->Unit(benchmark::kMillisecond);
#endif
            register_row(group, "bandwidth", read_input, link, mode)->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}();

}  // namespace

VORN_BENCH_MAIN()
