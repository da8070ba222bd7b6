// The build side of an outer join under contention: eight threads probe one
// `ptr` table at once in modes 8 and 9 (count and every match, each marking
// its matches in the buckets by compare-and-swap), then the table scan
// gives the matched and the unmatched entries exactly as a scalar model of
// the join says.  Chains of several buckets put many threads on the same
// words.  The loops are called as the entry calls them for a k4v4 table
// of fixed 4-byte keys, so that this test also builds with only the table
// sources; scripts/test runs it again under ThreadSanitizer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "kv/kv_entries.h"
#include "kv/kv_probe_entries.h"

#ifdef VORN_STANDALONE_HOST
// Nothing here raises; the assertion frame still links the host's raise.
extern "C" void vornhost_raise_internal(void *, ub8, const char *, ...) { std::abort(); }
#define VORN_LINK_HOST_RAISE() (void)0
#else
#include "support/test_host.h"
// The test host's raise comes with the rest of the test host.
#define VORN_LINK_HOST_RAISE() vorntest::clear_raised()
#endif

namespace {

ub8 key_hash(ub4 key) {
    ub8 h = (key + 0x9e3779b97f4a7c15ull) * 0xff51afd7ed558ccdull;
    h ^= h >> 29;
    return (h & ~ub8{0xfff}) | (h % 61);  // 61 buckets: chains of several buckets
}

// A host table: region 0 mapped whole, overflow buckets from one arena.
struct Table {
    vorn_kv kv{};
    std::vector<ub1 *> pages[2];
    std::vector<void *> owned;
    ub8 next = 0;
    static Table *&current() {
        static Table *t = nullptr;
        return t;
    }
    ub1 *page(ub8 bytes) {
        void *p = std::aligned_alloc(64, bytes);
        std::memset(p, 0, bytes);
        owned.push_back(p);
        return static_cast<ub1 *>(p);
    }
    static ub8 grow(vorn_kv_region *r, ub8 units, ub8 *id, ...) {
        Table &t = *current();
        const ub8 per_page = ub8{1} << r->page_bits;
        *id = t.next;
        t.next += units;
        while ((t.next + per_page - 1) / per_page > t.pages[1].size()) t.pages[1].push_back(t.page(64 * per_page));
        r->pages = t.pages[1].data();
        r->mapped = static_cast<ub4>(t.pages[1].size());
        return 0;
    }
    Table(ub8 rows, bool prefetch) {
        kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, VORN_KV_FORM_KEYS);
        EXPECT_EQ(vorn_layout_kv_dydi(rows, rows, &kv.flags, &kv, 0, 0, 1u << 30, 50, 1), 0u);
        EXPECT_TRUE(kv.flags & VORN_KV_PTR);
        if (prefetch) kv.flags |= VORN_KV_PREFETCH;
        for (ub8 p = 0; p < kv.regions[0].page_count; ++p) pages[0].push_back(page(ub8{64} << kv.regions[0].page_bits));
        kv.regions[0].pages = pages[0].data();
        kv.regions[0].mapped = kv.regions[0].page_count;
        pages[1].reserve(1024);
        kv.regions[1].pages = pages[1].data();
    }
    ~Table() {
        for (void *p : owned) std::free(p);
    }
};

TEST(ProbeMarks, EightThreadsThenTheScan) {
    constexpr int kThreads = 8;
    VORN_LINK_HOST_RAISE();
    for (bool prefetch : {false, true}) {
        std::mt19937_64 rng(41 + prefetch);
        const ub8 build_rows = 1200;
        Table t(build_rows, prefetch);
        Table::current() = &t;
        std::vector<ub4> keys(build_rows);
        std::vector<ub8> hashes(build_rows);
        for (ub8 i = 0; i < build_rows; ++i) {
            keys[i] = static_cast<ub4>(rng() % 700);
            hashes[i] = key_hash(keys[i]);
        }
        ub8 pos = 0, status[2] = {};
        ASSERT_EQ(vorn_kv_ll_add_k4v4_fixed_hash64_autorid_ptr(&t.kv, nullptr, build_rows,
                                                              reinterpret_cast<const ub1 *>(keys.data()), hashes.data(),
                                                              0, &pos, Table::grow, status),
                  0u);
        std::map<ub4, std::vector<ub8>> rows_of;
        for (ub8 i = 0; i < build_rows; ++i) rows_of[keys[i]].push_back(i);

        // Each thread its own probe keys, many shared with the others.
        std::vector<ub4> probe[kThreads];
        std::vector<ub8> probe_hashes[kThreads];
        std::vector<bool> matched(build_rows, false);
        ub8 want_count[kThreads] = {};
        std::multiset<std::pair<ub8, ub8>> want_pairs[kThreads];
        for (int th = 0; th < kThreads; ++th) {
            for (int i = 0; i < 250; ++i) {
                const ub4 k = static_cast<ub4>(rng() % 1000);
                probe[th].push_back(k);
                probe_hashes[th].push_back(key_hash(k));
                auto it = rows_of.find(k);
                if (it == rows_of.end()) continue;
                for (ub8 b : it->second) {
                    matched[b] = true;
                    ++want_count[th];
                    want_pairs[th].insert({static_cast<ub8>(i), b});
                }
            }
        }
        ub8 got_count[kThreads] = {};
        std::multiset<std::pair<ub8, ub8>> got_pairs[kThreads];
        std::vector<std::thread> threads;
        for (int th = 0; th < kThreads; ++th) {
            threads.emplace_back([&, th] {
                const ub1 *slots = reinterpret_cast<const ub1 *>(probe[th].data());
                const ub8 rows = probe[th].size();
                vorn_kernel_ctx ctx{};
                ub8 stats[2] = {}, row = 0, out = 0;
                if (th % 2 == 0) {
                    const auto count = prefetch ? vorn_kv_ll_probe_k4v4_fixed_hash64_count_mutkv_ptr_prefetch
                                                : vorn_kv_ll_probe_k4v4_fixed_hash64_count_mutkv_ptr;
                    EXPECT_EQ(count(&t.kv, rows, probe_hashes[th].data(), slots, nullptr, 0, 0, nullptr, nullptr,
                                    nullptr, 0, &row, &out, &ctx, stats),
                              0u);
                    got_count[th] = out;
                    return;
                }
                // Every match with a small output, resumed on 15.
                const auto every = prefetch ? vorn_kv_ll_probe_k4v4_fixed_hash64_autorid_value_mutkv_ptr_prefetch
                                            : vorn_kv_ll_probe_k4v4_fixed_hash64_autorid_value_mutkv_ptr;
                const ub8 cap = 6 + th;
                std::vector<ub8> ids(cap);
                std::vector<ub4> values(cap);
                for (int guard = 0; guard < 100000; ++guard) {
                    out = 0;
                    const ub8 code = every(&t.kv, rows, probe_hashes[th].data(), slots, nullptr, 0, cap, ids.data(),
                                           values.data(), nullptr, 0, &row, &out, &ctx, stats);
                    for (ub8 i = 0; i < out; ++i) got_pairs[th].insert({ids[i], values[i]});
                    if (code != 15) {
                        EXPECT_EQ(code, 0u);
                        break;
                    }
                }
            });
        }
        for (auto &th : threads) th.join();
        for (int th = 0; th < kThreads; ++th) {
            if (th % 2 == 0) EXPECT_EQ(got_count[th], want_count[th]) << th;
            else EXPECT_EQ(got_pairs[th], want_pairs[th]) << th;
        }

        // The scan: values of matched entries (1), their number (2), and the
        // same for the unmatched ones (3, 4), by outputs of a few entries.
        std::multiset<ub8> on, off;
        for (ub8 b = 0; b < build_rows; ++b) (matched[b] ? on : off).insert(b);
        ASSERT_FALSE(on.empty());
        ASSERT_FALSE(off.empty());
        const ub8 segments = vorn_kv_num_segments(&t.kv);
        for (ub4 mode = 1; mode <= 4; ++mode) {
            for (ub8 cap : {ub8{6}, ub8{11}, ub8{5000}}) {
                vorn_kernel_ctx ctx{};
                std::vector<ub4> buf(cap);
                std::multiset<ub8> got;
                ub8 count = 0, code = 16;
                for (int guard = 0; code == 16 && guard < 100000; ++guard) {
                    vorn_vec o{};
                    o.data = buf.data();
                    o.size = static_cast<ub4>(cap);
                    code = vorn_mut_kv_scan_dydi(&o, &t.kv, mode, &ctx, segments);
                    count += o.size;
                    if (mode & 1) got.insert(buf.begin(), buf.begin() + o.size);
                }
                EXPECT_EQ(code, 0u);
                const auto &want = mode <= 2 ? on : off;
                EXPECT_EQ(count, want.size()) << "mode " << mode << " cap " << cap;
                if (mode & 1) {
                    EXPECT_EQ(got, want) << "mode " << mode << " cap " << cap;
                }
            }
        }
    }
}

}  // namespace
