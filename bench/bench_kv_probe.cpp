// Probe: a hash join's probe side on a k4v4 table of 4-byte fixed keys, one
// thread.  The table holds 16M build rows (random 31-bit keys, 64-bit
// hashes); 64M probe rows, each with a partner or not by a coin toss (so
// no branch predictor learns which rows match), run through
// vorn_probe_kv_dydi in each link (idx, ptr, ptr_prefetch) and modes 0
// (every match) and 1 (count).  Beside each, in the same run:
//   scalar     the library's same loop without the batch prefetch of 16
//              bucket lines (run on one row at a time, chains walked as
//              found);
//   peer       absl::flat_hash_map::find with the same precomputed hashes
//              (when libabsl-dev is installed), writing or counting the
//              same matches;
//   bandwidth  a streaming read of the probe input.
// The join groups time a whole join, the table's layout and build plus the
// probe (mode 0), against absl's build and find: tuples (build + probe
// rows) per second on one core.
//
// The tables and absl's map are on advised 2 MiB pages (kv_host_table.h),
// as a host maps a join table this large.
//
// Sizes: VORN_BENCH_KV_BUILD_ROWS and VORN_BENCH_KV_PROBE_ROWS (default 16M
// and 64M; about 3 GiB in all with the absl map) for a smaller machine.
#include <cstdlib>
#include <memory>

#include "kv/kv_probe.h"
#include "support/bench_support.h"
#include "support/kv_host_table.h"

#if VORN_HAVE_ABSL
#include "absl/container/flat_hash_map.h"
#endif

namespace {

using namespace vornbench;

ub8 env_rows(const char *name, ub8 fallback) {
    const char *v = std::getenv(name);
    return v != nullptr && *v != 0 ? std::strtoull(v, nullptr, 0) : fallback;
}
const ub8 kBuild = env_rows("VORN_BENCH_KV_BUILD_ROWS", ub8{16} << 20);
const ub8 kProbe = env_rows("VORN_BENCH_KV_PROBE_ROWS", ub8{64} << 20);
constexpr ub8 kOutRows = 1 << 16;

ub8 hash_of(ub4 key) {
    ub8 h = (key + 0x9e3779b97f4a7c15ull) * 0xff51afd7ed558ccdull;
    return h ^ (h >> 29);
}

// Adds the build rows through the entry, with the table's own link.
void build(HostTable &t, const std::vector<ub4> &keys, const std::vector<ub8> &hashes) {
    HostTable::current() = &t;
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
    ctx().vorn_create_add_kv_dydi(&t.kv, &hv, &vv, &kvec, -1, &kctx, HostTable::grow, status);
}

struct Data {
    std::vector<ub4> build_keys, probe_keys;
    std::vector<ub8> build_hashes, probe_hashes;
    std::unique_ptr<HostTable> idx, ptr;
    Data() {
        for (ub8 i = 0; i < kBuild; ++i) {
            build_keys.push_back(static_cast<ub4>(rng()() & 0x7fffffff));
            build_hashes.push_back(hash_of(build_keys.back()));
        }
        for (ub8 i = 0; i < kProbe; ++i) {
            const bool partner = (rng()() & 1) != 0;
            probe_keys.push_back(partner ? build_keys[rng()() % kBuild] : static_cast<ub4>(rng()() | 0x80000000u));
            probe_hashes.push_back(hash_of(probe_keys.back()));
        }
        idx = std::make_unique<HostTable>(VORN_KV_K4V4, VORN_KV_FORM_KEYS, false, kBuild);
        build(*idx, build_keys, build_hashes);
        ptr = std::make_unique<HostTable>(VORN_KV_K4V4, VORN_KV_FORM_KEYS, true, kBuild);
        build(*ptr, build_keys, build_hashes);
    }
    // The table of a link: ptr and ptr_prefetch are one table, the flag set
    // or cleared before the run.
    vorn_kv &table(int link) {
        if (link == 0) return idx->kv;
        ptr->kv.flags = (ptr->kv.flags & ~VORN_KV_PREFETCH) | (link == 2 ? VORN_KV_PREFETCH : 0);
        return ptr->kv;
    }
};
Data &data() {
    static Data d;
    return d;
}

struct Outputs {
    std::vector<ub8> rows = std::vector<ub8>(kOutRows);
    std::vector<ub4> values = std::vector<ub4>(kOutRows);
};

// All probe rows through the entry, output emptied on every 15.
ub8 probe_entry(vorn_kv &kv, ub4 mode, Outputs &o) {
    Data &d = data();
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
    vorn_kernel_ctx kctx{};
    ub8 stats[2] = {}, code = 15, total = 0;
    while (code == 15) {
        vorn_vec ro{}, vo{};
        ro.data = o.rows.data();
        ro.size = static_cast<ub4>(kOutRows);
        vo.data = o.values.data();
        code = ctx().vorn_probe_kv_dydi(&ro, &vo, &hv, nullptr, &kvec, &kv, mode, &kctx, stats);
        total += ro.size;
    }
    return code == 0 ? total : ~ub8{0};
}

void probe_kernel(benchmark::State &state, int link, ub4 mode) {
    Data &d = data();
    Outputs o;
    ub8 total = 0;
    for (auto _ : state) {
        total = probe_entry(d.table(link), mode, o);
        if (total == ~ub8{0}) state.SkipWithError("probe failed");
    }
    benchmark::DoNotOptimize(total);
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}

// The same loop as the kernel's, rows one at a time without the batch
// prefetch of their bucket lines: the loop is run on one row per call, so
// it never has 16 rows for a batch.
template <vorn::kv::Link L, bool Prefetch, ub4 Op>
ub8 probe_unbatched(const vorn_kv &kv, Outputs &o) {
    using namespace vorn::kv;
    Data &d = data();
    vorn_kernel_ctx kctx{};
    const ProbeIo io{d.probe_hashes.data(), reinterpret_cast<const ub1 *>(d.probe_keys.data()), nullptr, 0, kOutRows,
                     o.rows.data(), o.values.data(), nullptr, 0};
    ub8 row = 0, stats[2] = {}, total = 0, n = 0;
    while (row < kProbe) {
        const ub8 code = probe_rows<VORN_KV_K4V4, L, Prefetch, false, kProbeSlot, Op>(&kv, row + 1, io, &row, &n,
                                                                                     &kctx, stats);
        if (code == 15) {
            total += n;
            n = 0;
        }
    }
    return total + n;
}
void probe_scalar(benchmark::State &state, int link, ub4 mode) {
    using namespace vorn::kv;
    Data &d = data();
    Outputs o;
    const vorn_kv &kv = d.table(link);
    constexpr ub4 kEvery = probe_op("autorid_value"), kCount = probe_op("count");
    ub8 total = 0;
    for (auto _ : state) {
        if (link == 0) total = mode == 0 ? probe_unbatched<kIdx, false, kEvery>(kv, o) : probe_unbatched<kIdx, false, kCount>(kv, o);
        else if (link == 1) total = mode == 0 ? probe_unbatched<kPtr, false, kEvery>(kv, o) : probe_unbatched<kPtr, false, kCount>(kv, o);
        else total = mode == 0 ? probe_unbatched<kPtr, true, kEvery>(kv, o) : probe_unbatched<kPtr, true, kCount>(kv, o);
    }
    benchmark::DoNotOptimize(total);
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}

#if VORN_HAVE_ABSL
// Keys carry their precomputed hash, which the map uses as it is.
using Key = std::pair<ub4, ub8>;
struct Precomputed {
    std::size_t operator()(const Key &k) const { return k.second; }
};
struct KeyEq {
    bool operator()(const Key &a, const Key &b) const { return a.first == b.first; }
};
using Map = absl::flat_hash_map<Key, ub4, Precomputed, KeyEq, HugePageAllocator<std::pair<const Key, ub4>>>;

void absl_build(Map &m) {
    Data &d = data();
    m.reserve(kBuild);
    for (ub8 i = 0; i < kBuild; ++i) m.emplace(Key{d.build_keys[i], d.build_hashes[i]}, static_cast<ub4>(i));
}
// Mode 0: identities and values of the matches into the output, emptied
// when full; mode 1: the count.
ub8 absl_probe(const Map &m, ub4 mode, Outputs &o) {
    Data &d = data();
    ub8 n = 0, total = 0;
    for (ub8 i = 0; i < kProbe; ++i) {
        const auto it = m.find(Key{d.probe_keys[i], d.probe_hashes[i]});
        if (it == m.end()) continue;
        if (mode == 0) {
            if (n == kOutRows) {
                total += n;
                n = 0;
            }
            o.rows[n] = i;
            o.values[n] = it->second;
        }
        ++n;
    }
    return total + n;
}
Map &absl_map() {
    static Map m = [] {
        Map x;
        absl_build(x);
        return x;
    }();
    return m;
}
void probe_absl(benchmark::State &state, int, ub4 mode) {
    Map &m = absl_map();
    Outputs o;
    ub8 total = 0;
    for (auto _ : state) total = absl_probe(m, mode, o);
    benchmark::DoNotOptimize(total);
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}
void join_absl(benchmark::State &state) {
    Outputs o;
    ub8 total = 0;
    for (auto _ : state) {
        Map m;
        absl_build(m);
        total = absl_probe(m, 0, o);
    }
    benchmark::DoNotOptimize(total);
    set_rates(state, static_cast<double>(kBuild + kProbe), static_cast<double>(kBuild + kProbe) * 12);
}
#endif

// A whole join: the table is emptied (the host's zeroed pages), built from
// the 16M rows and probed by the 64M in mode 0, with the link and prefetch
// bit that the layout chooses for a table of a million overflow buckets
// or more (ptr_prefetch at these sizes).
void join_kernel(benchmark::State &state) {
    Data &d = data();
    Outputs o;
    HostTable t(VORN_KV_K4V4, VORN_KV_FORM_KEYS, false, kBuild, 1u << 20);
    ub8 total = 0;
    for (auto _ : state) {
        t.clear();
        build(t, d.build_keys, d.build_hashes);
        total = probe_entry(t.kv, 0, o);
    }
    benchmark::DoNotOptimize(total);
    set_rates(state, static_cast<double>(kBuild + kProbe), static_cast<double>(kBuild + kProbe) * 12);
}

void read_input(benchmark::State &state, int, ub4) {
    Data &d = data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream_read(d.probe_hashes.data(), kProbe * 8));
        benchmark::DoNotOptimize(stream_read(d.probe_keys.data(), kProbe * 4));
    }
    set_rates(state, static_cast<double>(kProbe), static_cast<double>(kProbe) * 12);
}
void read_join_input(benchmark::State &state) {
    Data &d = data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream_read(d.build_hashes.data(), kBuild * 8));
        benchmark::DoNotOptimize(stream_read(d.build_keys.data(), kBuild * 4));
        benchmark::DoNotOptimize(stream_read(d.probe_hashes.data(), kProbe * 8));
        benchmark::DoNotOptimize(stream_read(d.probe_keys.data(), kProbe * 4));
    }
    set_rates(state, static_cast<double>(kBuild + kProbe), static_cast<double>(kBuild + kProbe) * 12);
}

std::string size_name() { return std::to_string(kProbe >> 20) + "Mx" + std::to_string(kBuild >> 20) + "M"; }

const bool registered = [] {
    const char *links[] = {"idx", "ptr", "ptr_prefetch"};
    for (int link = 0; link < 3; ++link) {
        for (ub4 mode : {0u, 1u}) {
            const std::string group = std::string("k4v4_") + links[link] + "_mode" + std::to_string(mode) + "/" + size_name();
            register_row(group, "kernel", probe_kernel, link, mode)->Unit(benchmark::kMillisecond)->Iterations(1);
            register_row(group, "scalar", probe_scalar, link, mode)->Unit(benchmark::kMillisecond)->Iterations(1);
#if VORN_HAVE_ABSL
            register_row(group, "peer", probe_absl, link, mode)->Unit(benchmark::kMillisecond)->Iterations(1);
#endif
            register_row(group, "bandwidth", read_input, link, mode)->Unit(benchmark::kMillisecond)->Iterations(1);
        }
    }
    const std::string join = "k4v4_join_build_probe/" + size_name();
    register_row(join, "kernel", join_kernel)->Unit(benchmark::kMillisecond)->Iterations(1);
#if VORN_HAVE_ABSL
    register_row(join, "peer", join_absl)->Unit(benchmark::kMillisecond)->Iterations(1);
#endif
    register_row(join, "bandwidth", read_join_input)->Unit(benchmark::kMillisecond)->Iterations(1);
    return true;
}();

}  // namespace

VORN_BENCH_MAIN()
