// Table build: rows into a key-value table through vorn_create_add_kv_dydi,
// one thread, beside the same insert loop without the batch prefetch and
// beside absl::flat_hash_map inserting the same keys with the same
// precomputed hashes (when libabsl-dev is installed).
//
// Groups: k4v4 tags of a 64-bit hash column (hash64_values_hash) and k8v4
// 8-byte fixed keys (staged in place into fixed_hash64), idx and ptr links,
// 1M and 16M rows.  Values are row numbers (autorid).  Table pages are
// allocated and cleared outside the timed region of each iteration; the
// table and absl's map are both on advised huge pages (kv_host_table.h).
#include <cstdlib>
#include <memory>

#include "kv/kv_build.h"
#include "support/bench_support.h"
#include "support/kv_host_table.h"

#if VORN_HAVE_ABSL
#include "absl/container/flat_hash_map.h"
#endif

namespace {

using namespace vornbench;

struct Data {
    std::vector<ub8> hashes;  // also the 8-byte keys' hashes
    std::vector<ub8> keys;    // 8-byte fixed keys
    vorn_enc_ctx hash_enc{}, key_enc{}, val_enc{};
    vorn_vec hash_vec{}, key_vec{}, val_vec{};

    explicit Data(ub8 n) : hashes(n), keys(n) {
        for (ub8 i = 0; i < n; ++i) {
            keys[i] = rng()();
            hashes[i] = keys[i] * 0x9e3779b97f4a7c15ull ^ (keys[i] >> 29);  // the host's hash, precomputed
        }
        hash_enc.flags = VORN_ALIGNED;
        hash_enc.width_code = 22;
        hash_vec.data = hashes.data();
        hash_vec.enc_ctx = &hash_enc;
        hash_vec.size = static_cast<ub4>(n);
        key_enc.flags = VORN_FIXED;
        key_enc.bit_width = 64;
        key_vec.data = keys.data();
        key_vec.enc_ctx = &key_enc;
        key_vec.size = static_cast<ub4>(n);
        val_enc.flags = VORN_AUTORID;
        val_vec.enc_ctx = &val_enc;
        val_vec.size = static_cast<ub4>(n);
    }
};

Data &data(ub8 n) {
    static std::unique_ptr<Data> d;
    if (!d || d->hashes.size() != n) d = std::make_unique<Data>(n);
    return *d;
}

enum Source { kTags, kFixedKeys };

void build_kernel(benchmark::State &state, Source source, bool ptr, ub8 n) {
    Data &d = data(n);
    HostTable t(source == kTags ? VORN_KV_K4V4 : VORN_KV_K8V4, source == kTags ? 0 : 3, ptr, n);
    for (auto _ : state) {
        state.PauseTiming();
        t.clear();
        state.ResumeTiming();
        vorn_kernel_ctx kctx{};
        ub8 status[2];
        const ub8 code = ctx().vorn_create_add_kv_dydi(&t.kv, &d.hash_vec, &d.val_vec,
                                                       source == kTags ? nullptr : &d.key_vec, -1, &kctx,
                                                       HostTable::grow, status);
        if (code != 0 || kctx.row_pos != n) state.SkipWithError("build failed");
    }
    set_rates(state, static_cast<double>(n), static_cast<double>(n) * (source == kTags ? 8 : 16));
}

// The same loop, instantiated here without the batch prefetch.
template <ub4 Kind, vorn::kv::Link L, class In>
void run_plain(HostTable &t, const In &in, ub8 n) {
    ub8 pos = 0, status[2];
    vorn::kv::add_rows<Kind, L, In, false>(&t.kv, nullptr, n, in, &pos, HostTable::grow, status);
}

void build_plain(benchmark::State &state, Source source, bool ptr, ub8 n) {
    using namespace vorn::kv;
    Data &d = data(n);
    HostTable t(source == kTags ? VORN_KV_K4V4 : VORN_KV_K8V4, source == kTags ? 0 : 3, ptr, n);
    const ArrayInput<false, kTag, kAutorid, 4, 0> tags{d.hashes.data(), nullptr, nullptr, 0};
    const ArrayInput<false, kBytes, kAutorid, 4, 8> fixed{d.hashes.data(),
                                                          reinterpret_cast<const ub1 *>(d.keys.data()), nullptr, 0};
    for (auto _ : state) {
        state.PauseTiming();
        t.clear();
        state.ResumeTiming();
        if (source == kTags) {
            if (ptr) run_plain<VORN_KV_K4V4, kPtr>(t, tags, n);
            else run_plain<VORN_KV_K4V4, kIdx>(t, tags, n);
        } else {
            if (ptr) run_plain<VORN_KV_K8V4, kPtr>(t, fixed, n);
            else run_plain<VORN_KV_K8V4, kIdx>(t, fixed, n);
        }
        benchmark::ClobberMemory();
    }
    set_rates(state, static_cast<double>(n), static_cast<double>(n) * (source == kTags ? 8 : 16));
}

#if VORN_HAVE_ABSL
// The hash is the one computed beforehand: absl takes it as it is.
struct Precomputed {
    std::size_t operator()(ub8 h) const { return h; }
};
struct KeyAndHash {
    ub8 key, hash;
    bool operator==(const KeyAndHash &o) const { return key == o.key; }
};
struct ByHash {
    std::size_t operator()(const KeyAndHash &k) const { return k.hash; }
};

void build_absl(benchmark::State &state, Source source, bool, ub8 n) {
    Data &d = data(n);
    for (auto _ : state) {
        state.PauseTiming();
        absl::flat_hash_map<ub8, ub4, Precomputed, std::equal_to<ub8>, HugePageAllocator<std::pair<const ub8, ub4>>> tags;
        absl::flat_hash_map<KeyAndHash, ub4, ByHash, std::equal_to<KeyAndHash>,
                            HugePageAllocator<std::pair<const KeyAndHash, ub4>>>
            fixed;
        if (source == kTags) tags.reserve(n);
        else fixed.reserve(n);
        state.ResumeTiming();
        if (source == kTags) {
            for (ub8 i = 0; i < n; ++i) tags.emplace(d.hashes[i], static_cast<ub4>(i));
        } else {
            for (ub8 i = 0; i < n; ++i) fixed.emplace(KeyAndHash{d.keys[i], d.hashes[i]}, static_cast<ub4>(i));
        }
        benchmark::DoNotOptimize(tags.size() + fixed.size());
        state.PauseTiming();
        tags = {};
        fixed = {};
        state.ResumeTiming();
    }
    set_rates(state, static_cast<double>(n), static_cast<double>(n) * (source == kTags ? 8 : 16));
}
#endif

void read_input(benchmark::State &state, Source source, bool, ub8 n) {
    Data &d = data(n);
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream_read(d.hashes.data(), n * 8));
        if (source == kFixedKeys) benchmark::DoNotOptimize(stream_read(d.keys.data(), n * 8));
    }
    set_rates(state, static_cast<double>(n), static_cast<double>(n) * (source == kTags ? 8 : 16));
}

const bool registered = [] {
    for (ub8 n : {ub8{1} << 20, ub8{1} << 24}) {
        for (Source source : {kTags, kFixedKeys}) {
            for (bool ptr : {false, true}) {
                const std::string group = std::string(source == kTags ? "k4v4_hash64_values_hash" : "k8v4_fixed8") +
                                          (ptr ? "_ptr" : "_idx") + "/" + (n == (ub8{1} << 20) ? "1M" : "16M");
                const int iters = n == (ub8{1} << 20) ? 20 : 3;
                register_row(group, "kernel", build_kernel, source, ptr, n)->Unit(benchmark::kMillisecond)->Iterations(iters);
                register_row(group, "scalar", build_plain, source, ptr, n)->Unit(benchmark::kMillisecond)->Iterations(iters);
#if VORN_HAVE_ABSL
                register_row(group, "peer_absl", build_absl, source, ptr, n)->Unit(benchmark::kMillisecond)->Iterations(iters);
#endif
                register_row(group, "bandwidth", read_input, source, ptr, n)->Unit(benchmark::kMillisecond);
            }
        }
    }
    return true;
}();

}  // namespace

VORN_BENCH_MAIN()
