// The probe entry, vorn_probe_kv_dydi, and the mutable table scan,
// vorn_mut_kv_scan_dydi, reached through the context as a host reaches
// them.  Tables are built with the library's own build entry from random
// keys (absent keys, duplicates, hashes crowded into a few buckets so that
// chains run over several buckets), then every mode is checked against a
// scalar join model: the output multiset of each mode, with output
// capacities from a bucket's entries upward and the call repeated on 15
// until done, the bit vectors of modes 7, 10 and 11, and the marks of
// modes 8 and 9 set from two threads and read back by the scan.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <random>
#include <string>
#include <thread>

#include "frame/base.h"
#include "kv/kv_probe_entries.h"
#include "support/kv_model.h"
#include "support/fold_kv2.h"
#include "support/kv_table.h"
#include "support/test_host.h"

namespace {

using vorntest::autorid_vec;
using vorntest::column_vec;
using vorntest::KvTable;

// Hash of a key: a fixed function of its bytes, with the bucket bits
// crowded into `spread` values so that chains grow long.
ub8 key_hash(ub8 key, ub8 spread, bool hash32) {
    ub8 h = (key + 0x9e3779b97f4a7c15ull) * 0xff51afd7ed558ccdull;
    h ^= h >> 29;
    h = (h & ~ub8{0xfff}) | (h % spread);
    return hash32 ? h & 0xffffffffu : h;
}

// A built table and its rows, keys of `key_bytes` bytes drawn from a small
// domain, values the build's row numbers (autorid) or a random payload.
struct Joined {
    ub4 kind, key_bytes, value_bytes, entries;
    bool hash32;
    ub4 form = VORN_KV_FORM_KEYS;
    std::unique_ptr<KvTable> table;
    std::vector<ub8> build_keys, build_values;

    std::vector<ub1> key_bytes_of(const std::vector<ub8> &keys) const {
        std::vector<ub1> out(keys.size() * key_bytes);
        for (size_t i = 0; i < keys.size(); ++i) {
            ub1 b[16] = {};
            std::memcpy(b, &keys[i], 8);
            std::memcpy(out.data() + i * key_bytes, b, key_bytes);
        }
        return out;
    }
};

struct Vecs {
    vorn_enc_ctx hash_enc{}, key_enc{}, val_enc{};
    vorn_vec hash_vec{}, key_vec{}, val_vec{};
    std::vector<ub8> hashes64;
    std::vector<ub4> hashes32;
    std::vector<ub1> keys;
};

void fill_vecs(Vecs &v, const Joined &j, const std::vector<ub8> &keys, ub8 spread) {
    v.keys = j.key_bytes_of(keys);
    v.hashes64.clear();
    v.hashes32.clear();
    for (ub8 k : keys) {
        if (j.hash32) v.hashes32.push_back(static_cast<ub4>(key_hash(k, spread, true)));
        else v.hashes64.push_back(key_hash(k, spread, false));
    }
    column_vec(v.hash_vec, v.hash_enc, j.hash32 ? static_cast<void *>(v.hashes32.data()) : v.hashes64.data(),
               keys.size(), VORN_ALIGNED);
    v.hash_enc.width_code = j.hash32 ? 21 : 22;
    column_vec(v.key_vec, v.key_enc, v.keys.data(), keys.size(),
               j.form == VORN_KV_FORM_CODES ? VORN_KEY32 : VORN_FIXED, j.key_bytes * 8);
}

// One entry call on v's hashes and keys (none if !with_keys), rows numbered.
ub8 probe_call(vorn_vec &ro, vorn_vec &vo, Vecs &v, const Joined &j, ub4 mode, vorn_kernel_ctx &ctx, ub8 *stats,
               bool with_keys = true) {
    return vorntest::ctx().vorn_probe_kv_dydi(&ro, &vo, &v.hash_vec, nullptr, with_keys ? &v.key_vec : nullptr,
                                              &j.table->kv, mode, &ctx, stats);
}

std::unique_ptr<Joined> build_table(std::mt19937_64 &rng, ub4 kind, bool ptr, bool prefetch, bool hash32, ub8 rows,
                                    ub8 domain, ub8 spread, ub4 form = VORN_KV_FORM_KEYS) {
    auto j = std::make_unique<Joined>();
    j->form = form;
    const vorntest::KvShape s = vorntest::kv_shape(kind);
    j->kind = kind;
    j->key_bytes = s.key_bytes;
    j->value_bytes = s.value_bytes;
    j->hash32 = hash32;
    j->table = std::make_unique<KvTable>(VORN_KV_FLAGS(kind, form), rows, rows, 0, 0, 1u << 30, 50,
                                         ptr ? 1 : 0);
    if (ptr && prefetch) j->table->kv.flags |= VORN_KV_PREFETCH;
    j->entries = ptr ? s.ptr_entries : s.idx_entries;
    for (ub8 i = 0; i < rows; ++i) j->build_keys.push_back(rng() % domain);
    Vecs v;
    fill_vecs(v, *j, j->build_keys, spread);
    autorid_vec(v.val_vec, v.val_enc, 1000, rows);
    for (ub8 i = 0; i < rows; ++i) j->build_values.push_back(1000 + i);
    vorn_kernel_ctx ctx{};
    ub8 status[2] = {};
    const ub8 code = vorntest::ctx().vorn_create_add_kv_dydi(&j->table->kv, &v.hash_vec,
                                                             s.value_bytes != 0 ? &v.val_vec : nullptr,
                                                             form == VORN_KV_FORM_TAGS ? nullptr : &v.key_vec,
                                                             -1, &ctx, KvTable::grow, status);
    EXPECT_EQ(code, 0u);
    return j;
}

// What the model says one probe call sequence must produce.
struct Result {
    std::multiset<std::pair<ub8, ub8>> pairs;  // (identity, value); value 0 for key-only kinds
    std::multiset<ub8> values;
    ub8 count = 0;
};

// Runs a mode to completion with capacity `cap`, repeating on 15.
Result run_mode(const Joined &j, Vecs &v, const std::vector<ub8> *ids, ub4 mode, ub8 cap, ub8 *bv, ub8 bv_base,
                ub8 *stats, ub8 *code_out = nullptr) {
    Result r;
    std::vector<ub8> rows_out(cap + 1);
    std::vector<ub8> values_out(cap + 1);
    vorn_enc_ctx rows_enc{};
    vorn_vec rows{};
    if (ids != nullptr) rows.data = const_cast<ub8 *>(ids->data()), rows.size = static_cast<ub4>(ids->size());
    else autorid_vec(rows, rows_enc, 500);
    vorn_kernel_ctx ctx{};
    for (int guard = 0; guard < 100000; ++guard) {
        // Output slots past the rows a call reports must keep what they held.
        std::memset(rows_out.data(), 0xa5, rows_out.size() * 8);
        std::memset(values_out.data(), 0xa5, values_out.size() * 8);
        vorntest::ProbeOutputs out(rows_out.data(), values_out.data(), cap, bv, bv_base);
        vorn_vec &ro = out.rows, &vo = out.values;
        const ub8 code = vorntest::ctx().vorn_probe_kv_dydi(&ro, &vo, &v.hash_vec, &rows, &v.key_vec, &j.table->kv,
                                                            mode, &ctx, stats);
        if (code_out != nullptr) *code_out = code;
        if (code != 0 && code != 15) return r;
        const bool counting = mode == 1 || mode == 4 || mode == 6 || mode == 8 || mode == 10;
        if (counting) {
            r.count += ro.size;
        } else {
            const ub8 value_bytes = j.value_bytes != 0 ? j.value_bytes : 8;
            const ub8 rows_written = mode == 3 ? 0 : ro.size, values_written = j.value_bytes != 0 ? ro.size : 0;
            const auto *bytes = reinterpret_cast<const ub1 *>(values_out.data());
            const auto past = [](const ub1 *p, ub8 from, ub8 to) { return std::all_of(p + from, p + to, [](ub1 b) { return b == 0xa5; }); };
            if (!past(reinterpret_cast<const ub1 *>(rows_out.data()), rows_written * 8, rows_out.size() * 8) ||
                !past(bytes, values_written * value_bytes, values_out.size() * 8)) {
                ADD_FAILURE() << "mode " << mode << " wrote output slots past the " << ro.size << " rows it reports";
                return r;
            }
            for (ub4 i = 0; i < ro.size; ++i) {
                ub8 value = 0;
                if (j.value_bytes == 4) value = reinterpret_cast<const ub4 *>(values_out.data())[i];
                if (j.value_bytes == 8) value = values_out[i];
                if (mode == 3) r.values.insert(value);
                else r.pairs.insert({rows_out[i], value});
            }
        }
        if (code == 0) return r;
        EXPECT_TRUE(counting || ro.size > 0) << "a resumed call must make progress";
    }
    ADD_FAILURE() << "probe never finished";
    return r;
}

// The scalar join: every (probe identity, build value) pair of equal keys.
struct Model {
    std::vector<std::vector<ub8>> matches;  // build row indexes by probe row
};
Model join(const Joined &j, const std::vector<ub8> &probe_keys) {
    std::map<ub8, std::vector<ub8>> by_key;
    const ub8 key_mask = j.key_bytes >= 8 ? ~ub8{0} : (ub8{1} << (8 * j.key_bytes)) - 1;
    for (size_t i = 0; i < j.build_keys.size(); ++i) by_key[j.build_keys[i] & key_mask].push_back(i);
    Model m;
    for (ub8 k : probe_keys) {
        auto it = by_key.find(k & key_mask);
        m.matches.push_back(it == by_key.end() ? std::vector<ub8>{} : it->second);
    }
    return m;
}

struct Case {
    ub4 kind;
    bool ptr, prefetch, hash32;
};

class ProbeModes : public ::testing::TestWithParam<Case> {};

TEST_P(ProbeModes, EveryModeMatchesTheJoinModel) {
    Case c = GetParam();
    const ub4 form = c.kind >> 8 ? VORN_KV_FORM_CODES : VORN_KV_FORM_KEYS;
    c.kind &= 0xff;
    std::mt19937_64 rng(c.kind * 131 + c.ptr * 7 + c.prefetch * 3 + c.hash32);
    for (int round = 0; round < 2; ++round) {
        const ub8 build_rows = 300 + rng() % 400;
        const ub8 domain = 80 + rng() % 200;
        const ub8 spread = round == 0 ? 1u << 20 : 5;  // round 1: long chains
        auto j = build_table(rng, c.kind, c.ptr, c.prefetch, c.hash32, build_rows, domain, spread, form);
        ASSERT_EQ(j->table->layout_code, 0u);
        std::vector<ub8> probe_keys;
        const ub8 probe_rows = 1 + rng() % 200;
        for (ub8 i = 0; i < probe_rows; ++i) probe_keys.push_back(rng() % (domain + domain / 4));  // some absent
        Vecs v;
        fill_vecs(v, *j, probe_keys, spread);
        std::vector<ub8> ids(probe_rows);
        for (ub8 &x : ids) x = rng() % 100000;
        const Model m = join(*j, probe_keys);
        const bool value_kind = j->value_bytes != 0;

        ub8 total = 0, rows_matched = 0, rows_without = 0;
        for (auto &mm : m.matches) {
            total += mm.size();
            rows_matched += !mm.empty();
            rows_without += mm.empty();
        }
        for (ub8 cap : {ub8{j->entries}, ub8{j->entries} + 1 + rng() % 7, ub8{4096}}) {
            ub8 stats[2] = {};
            // Mode 0 with payload identities.
            Result r = run_mode(*j, v, &ids, 0, cap, nullptr, 0, stats);
            std::multiset<std::pair<ub8, ub8>> want;
            for (ub8 p = 0; p < probe_rows; ++p)
                for (ub8 b : m.matches[p]) want.insert({ids[p], value_kind ? j->build_values[b] : 0});
            EXPECT_EQ(r.pairs, want) << "mode 0 cap " << cap;
            EXPECT_EQ(stats[0], total);
            EXPECT_GT(total, 0u);
            if (round == 1) {
                EXPECT_GT(stats[1], 0u) << "chains of several buckets";
            }
            // Mode 1: count.
            r = run_mode(*j, v, nullptr, 1, cap, nullptr, 0, stats);
            EXPECT_EQ(r.count, total);
            // Mode 5: one output per matched row, one of its matches.
            r = run_mode(*j, v, nullptr, 5, cap, nullptr, 0, stats);
            EXPECT_EQ(r.pairs.size(), rows_matched);
            for (auto &[id, value] : r.pairs) {
                const ub8 p = id - 500;
                ASSERT_LT(p, probe_rows);
                if (value_kind) {
                    bool ok = false;
                    for (ub8 b : m.matches[p]) ok |= j->build_values[b] == value;
                    EXPECT_TRUE(ok);
                }
            }
            // Mode 7: the bits of matched rows are cleared.
            std::vector<ub8> bv((probe_rows + 63) / 64 + 1, ~ub8{0});
            r = run_mode(*j, v, nullptr, 7, cap, bv.data(), 500, stats);
            std::multiset<std::pair<ub8, ub8>> want7;
            for (ub8 p = 0; p < probe_rows; ++p) {
                for (ub8 b : m.matches[p]) want7.insert({500 + p, value_kind ? j->build_values[b] : 0});
                EXPECT_EQ((bv[p / 64] >> (p % 64)) & 1, m.matches[p].empty() ? 1u : 0u) << p;
            }
            EXPECT_EQ(r.pairs, want7);
            if (value_kind) {
                // Mode 3: values only.
                r = run_mode(*j, v, nullptr, 3, cap, nullptr, 0, stats);
                std::multiset<ub8> want3;
                for (auto &mm : m.matches)
                    for (ub8 b : mm) want3.insert(j->build_values[b]);
                EXPECT_EQ(r.values, want3);
                // Modes 10 and 11: a bit per matched build value.
                std::vector<ub8> want_bv((build_rows + 63) / 64, 0);
                for (auto &mm : m.matches)
                    for (ub8 b : mm) want_bv[b / 64] |= ub8{1} << (b % 64);
                std::vector<ub8> bv10(want_bv.size(), 0), bv11(want_bv.size(), 0);
                r = run_mode(*j, v, nullptr, 10, cap, bv10.data(), 1000, stats);
                EXPECT_EQ(r.count, total);
                EXPECT_EQ(bv10, want_bv);
                r = run_mode(*j, v, &ids, 11, cap, bv11.data(), 1000, stats);
                EXPECT_EQ(r.pairs, want);
                EXPECT_EQ(bv11, want_bv);
            } else {
                EXPECT_EQ(run_mode(*j, v, nullptr, 4, cap, nullptr, 0, stats).count, rows_matched);
                EXPECT_EQ(run_mode(*j, v, nullptr, 6, cap, nullptr, 0, stats).count, total + rows_without);
            }
        }
        // Modes the kind has no member for: 14.
        for (ub4 mode : {value_kind ? 4u : 3u, 2u, 12u}) {
            ub8 code = 0, stats[2] = {};
            run_mode(*j, v, nullptr, mode, 64, nullptr, 0, stats, &code);
            EXPECT_EQ(code, 14u) << mode;
        }
    }
}

std::vector<Case> probe_cases() {
    std::vector<Case> out;
    for (ub4 kind : {3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 13u, 15u}) {
        out.push_back({kind, false, false, false});
        out.push_back({kind, true, false, false});
        out.push_back({kind, true, true, false});
    }
    out.push_back({4, false, false, true});
    out.push_back({3 | 0x200, false, false, false});  // dictionary codes
    out.push_back({3 | 0x200, true, true, true});
    out.push_back({4 | 0x200, true, false, false});
    out.push_back({5 | 0x200, false, false, true});
    out.push_back({4, true, true, true});
    out.push_back({9, true, false, true});
    return out;
}
INSTANTIATE_TEST_SUITE_P(Kinds, ProbeModes, ::testing::ValuesIn(probe_cases()), [](const auto &info) {
    const Case &c = info.param;
    return std::string(c.kind >> 8 ? "codes_kind" : "kind") + std::to_string(c.kind & 0xff) + (c.ptr ? (c.prefetch ? "_ptr_prefetch" : "_ptr") : "_idx") +
           (c.hash32 ? "_h32" : "_h64");
});

// Tag tables: a probe reports every entry of its bucket with the same tag,
// so distinct keys whose tags collide in one bucket match too.
TEST(Probe, TagTablesReportEqualTagsInTheBucket) {
    for (ub4 kind : {VORN_KV_K2V4, VORN_KV_K2V8, VORN_KV_K4V4, VORN_KV_K4V8}) {
        for (bool hash32 : {false, true}) {
            for (bool ptr : {false, true}) {
                std::mt19937_64 rng(kind * 3 + hash32 + 2 * ptr);
                const ub8 spread = 3;
                auto j = build_table(rng, kind, ptr, ptr, hash32, 400, 3000, spread, VORN_KV_FORM_TAGS);
                std::vector<ub8> keys;
                for (int i = 0; i < 150; ++i) keys.push_back(rng() % 3300);
                Vecs v;
                fill_vecs(v, *j, keys, spread);
                const vorn_kv &kv = j->table->kv;
                const ub4 pb = kv.regions[0].page_bits;
                auto where = [&](ub8 h) {
                    ub8 seg = (h >> pb) & ((ub8{1} << kv.regions[0].segment_bits) - 1);
                    ub8 tag = hash32 ? (j->key_bytes == 2 ? (h >> 16) & 0xffff : h & 0xffffffff)
                                     : (j->key_bytes == 2 ? (h >> 32) & 0xffff : h >> 32);
                    return std::array<ub8, 3>{seg, h & 0xffffffffu & ((ub8{1} << pb) - 1), tag == 0 ? 1 : tag};
                };
                std::multiset<std::pair<ub8, ub8>> want;
                for (size_t p = 0; p < keys.size(); ++p)
                    for (size_t b = 0; b < j->build_keys.size(); ++b)
                        if (where(key_hash(keys[p], spread, hash32)) == where(key_hash(j->build_keys[b], spread, hash32)))
                            want.insert({500 + p, j->build_values[b]});
                for (ub8 cap : {ub8{j->entries}, ub8{300}}) {
                    ub8 stats[2] = {};
                    EXPECT_EQ(run_mode(*j, v, nullptr, 0, cap, nullptr, 0, stats).pairs, want) << kind << hash32 << ptr;
                }
                ub8 stats[2] = {}, code = 0;
                run_mode(*j, v, nullptr, 1, 64, nullptr, 0, stats, &code);
                EXPECT_EQ(code, 14u);
            }
        }
    }
}

// Keys given by address and length are staged into slots on both sides: a
// key shorter than the slot matches only itself, keys as long as the slot
// or longer match every such key of their bucket.
TEST(Probe, StagedKeysOfAddressAndLength) {
    for (ub4 kind : {VORN_KV_K8V4, VORN_KV_K4, VORN_KV_K12V4}) {
        for (bool ptr : {false, true}) {
            std::mt19937_64 rng(kind + 40 * ptr);
            const vorntest::KvShape s = vorntest::kv_shape(kind);
            auto make = [&](ub8 n) {
                std::vector<std::string> out;
                for (ub8 i = 0; i < n; ++i) out.push_back(std::string(rng() % (s.key_bytes + 3), 'a' + rng() % 3));
                return out;
            };
            // The hash routes by length only, so long keys share buckets.
            auto hash = [](const std::string &k) { return ((ub8{k.size()} * 0x9e3779b97f4a7c15ull) & ~ub8{0xfff}) | k.size(); };
            const std::vector<std::string> build = make(500), probe = make(2100);
            auto slot = [&](const std::string &k) { return k.size() >= s.key_bytes ? std::string(1, '\xff') : k; };
            struct Column {
                std::vector<ub8> hashes, addrs;
                std::vector<ub2> lens;
                vorn_enc_ctx he{}, ke{}, ve{};
                vorn_vec hv{}, kv{}, vv{};
            };
            auto column = [&](Column &c, const std::vector<std::string> &keys) {
                for (const std::string &k : keys) {
                    c.hashes.push_back(hash(k));
                    c.addrs.push_back(reinterpret_cast<ub8>(k.data()));
                    c.lens.push_back(static_cast<ub2>(k.size()));
                }
                column_vec(c.hv, c.he, c.hashes.data(), keys.size(), 0);
                c.he.width_code = 22;
                column_vec(c.kv, c.ke, c.addrs.data(), keys.size(), VORN_PTR_LEN).data2 = c.lens.data();
                autorid_vec(c.vv, c.ve, 0);
            };
            Column bc, pc;
            column(bc, build);
            column(pc, probe);
            KvTable t(VORN_KV_FLAGS(kind, VORN_KV_FORM_KEYS), build.size(), build.size(), 0, 0, 1u << 30, 50, ptr);
            vorn_kernel_ctx ctx{};
            ub8 status[2] = {};
            ASSERT_EQ(vorntest::ctx().vorn_create_add_kv_dydi(&t.kv, &bc.hv, s.value_bytes ? &bc.vv : nullptr, &bc.kv, -1,
                                                              &ctx, KvTable::grow, status),
                      0u);
            std::multiset<std::pair<ub8, ub8>> want;
            for (size_t p = 0; p < probe.size(); ++p)
                for (size_t b = 0; b < build.size(); ++b)
                    if (slot(probe[p]) == slot(build[b]) && hash(probe[p]) == hash(build[b]))
                        want.insert({p, s.value_bytes ? b : 0});
            std::vector<ub8> rows_out(64), values_out(64);
            std::multiset<std::pair<ub8, ub8>> got;
            vorn_kernel_ctx pctx{};
            ub8 stats[2] = {}, code = 15;
            for (int guard = 0; code == 15 && guard < 1000000; ++guard) {
                vorntest::ProbeOutputs out(rows_out.data(), values_out.data(), 64, nullptr, 0);
                vorn_vec &ro = out.rows, &vo = out.values;
                code = vorntest::ctx().vorn_probe_kv_dydi(&ro, &vo, &pc.hv, nullptr, &pc.kv, &t.kv, 0, &pctx, stats);
                for (ub4 i = 0; i < ro.size; ++i)
                    got.insert({rows_out[i], s.value_bytes ? reinterpret_cast<const ub4 *>(values_out.data())[i] : 0});
            }
            EXPECT_EQ(code, 0u);
            EXPECT_EQ(got, want) << "kind " << kind << " ptr " << ptr;
        }
    }
}

// A capacity below a bucket's entries stops at once, for ever, row_pos kept.
TEST(Probe, CapacityBelowEntriesNeverMoves) {
    std::mt19937_64 rng(5);
    auto j = build_table(rng, VORN_KV_K4V4, false, false, false, 50, 20, 1u << 20);
    Vecs v;
    std::vector<ub8> keys = {1, 2, 3};
    fill_vecs(v, *j, keys, 1u << 20);
    std::vector<ub8> out(8);
    vorn_vec ro{}, vo{};
    vorn_kernel_ctx ctx{};
    ub8 stats[2] = {};
    for (int i = 0; i < 3; ++i) {
        ro.data = vo.data = out.data();
        ro.size = j->entries - 1;
        EXPECT_EQ(probe_call(ro, vo, v, *j, 0, ctx, stats), 15u);
        EXPECT_EQ(ctx.row_pos, 0u);
        EXPECT_EQ(ro.size, 0u);
    }
    ctx.row_pos = 3;
    ro.size = 8;
    EXPECT_EQ(probe_call(ro, vo, v, *j, 0, ctx, stats), 0u);
    EXPECT_EQ(ro.size, 0u);
}

// Modes 8 and 9 from two threads on one ptr table, then the scan gives the
// matched and unmatched entries as the model says, resumed by small outputs.
TEST(ProbeScan, MarksFromTwoThreadsThenScan) {
    for (ub4 kind : {4u, 5u, 7u, 8u, 10u, 11u, 12u, 15u}) {
        for (bool prefetch : {false, true}) {
            std::mt19937_64 rng(kind * 17 + prefetch);
            const ub8 spread = 7;
            auto j = build_table(rng, kind, true, prefetch, false, 600, 300, spread);
            std::vector<ub8> keys[2];
            for (auto &k : keys)
                for (int i = 0; i < 150; ++i) k.push_back(rng() % 400);
            std::vector<bool> matched(j->build_keys.size(), false);
            for (auto &k : keys) {
                const Model m = join(*j, k);
                for (auto &mm : m.matches)
                    for (ub8 b : mm) matched[b] = true;
            }
            Vecs v[2];
            fill_vecs(v[0], *j, keys[0], spread);
            fill_vecs(v[1], *j, keys[1], spread);
            Result r[2];
            ub8 stats[2][2] = {};
            std::thread t0([&] { r[0] = run_mode(*j, v[0], nullptr, 8, 64, nullptr, 0, stats[0]); });
            std::thread t1([&] { r[1] = run_mode(*j, v[1], nullptr, 9, j->entries, nullptr, 0, stats[1]); });
            t0.join();
            t1.join();
            EXPECT_EQ(r[0].count, stats[0][0]);
            std::multiset<ub8> want_on, want_off;
            for (size_t b = 0; b < matched.size(); ++b) (matched[b] ? want_on : want_off).insert(j->build_values[b]);
            const ub8 segments = ub8{1} << j->table->kv.regions[0].segment_bits;
            for (ub4 mode = 1; mode <= 4; ++mode) {
                for (ub8 cap : {ub8{j->entries}, ub8{j->entries} + 3, ub8{2000}}) {
                    vorn_kernel_ctx ctx{};
                    std::multiset<ub8> got;
                    ub8 count = 0, code = 16;
                    std::vector<ub8> out(cap);
                    for (int guard = 0; code == 16 && guard < 100000; ++guard) {
                        vorn_vec o{};
                        o.data = out.data();
                        o.size = static_cast<ub4>(cap);
                        code = vorntest::ctx().vorn_mut_kv_scan_dydi(&o, &j->table->kv, mode, &ctx, segments);
                        ASSERT_TRUE(code == 0 || code == 16) << code;
                        count += o.size;
                        for (ub4 i = 0; i < o.size && (mode & 1); ++i) {
                            got.insert(j->value_bytes == 4 ? reinterpret_cast<const ub4 *>(out.data())[i] : out[i]);
                        }
                    }
                    EXPECT_EQ(code, 0u);
                    EXPECT_EQ(ctx.stop_row, segments);
                    EXPECT_EQ(ctx.byte_pos, 0u);
                    const auto &want = mode <= 2 ? want_on : want_off;
                    EXPECT_EQ(count, want.size()) << "kind " << kind << " mode " << mode << " cap " << cap;
                    if (mode & 1) {
                        EXPECT_EQ(got, want);
                    }
                }
            }
            vorn_vec o{};
            o.size = j->entries - 1;
            vorn_kernel_ctx ctx{};
            EXPECT_EQ(vorntest::ctx().vorn_mut_kv_scan_dydi(&o, &j->table->kv, 2, &ctx, segments), 16u);
            EXPECT_EQ(vorntest::ctx().vorn_mut_kv_scan_dydi(&o, &j->table->kv, 5, &ctx, segments), 14u);
        }
    }
}

TEST(ProbeScan, Refusals) {
    std::mt19937_64 rng(9);
    auto idx = build_table(rng, VORN_KV_K4V4, false, false, false, 40, 20, 1u << 20);
    vorn_vec o{};
    vorn_kernel_ctx ctx{};
    EXPECT_EQ(vorntest::ctx().vorn_mut_kv_scan_dydi(&o, &idx->table->kv, 1, &ctx, 1), 3u);
    auto keys = build_table(rng, VORN_KV_K4, true, false, false, 40, 20, 1u << 20);
    EXPECT_EQ(vorntest::ctx().vorn_mut_kv_scan_dydi(&o, &keys->table->kv, 1, &ctx, 1), 2u);
    // Modes 8 and 9 have no idx member.
    Vecs v;
    std::vector<ub8> k = {1, 2};
    fill_vecs(v, *idx, k, 1u << 20);
    ub8 stats[2] = {}, code = 0;
    run_mode(*idx, v, nullptr, 8, 64, nullptr, 0, stats, &code);
    EXPECT_EQ(code, 2u);
}

// The named probes that the entry hands a call to give what the entry
// gives, called directly; the vectors are judged before the mode.
TEST(Probe, NamedProbesServeTheEntry) {
    struct Named {
        ub4 kind, form;
        bool hash32;
        decltype(&vorn_kv_probe_k4v4_gd_gd) fn;
    };
    const Named cases[] = {
        {VORN_KV_K4V4, VORN_KV_FORM_CODES, false, vorn_kv_probe_k4v4_gd_gd},
        {VORN_KV_K4, VORN_KV_FORM_CODES, true, vorn_kv_probe_k4_gdhc_gd},
        {VORN_KV_K8V4, VORN_KV_FORM_KEYS, false, vorn_kv_probe_k8v4_hash64_fixed},
        {VORN_KV_K6, VORN_KV_FORM_KEYS, true, vorn_kv_probe_k6_hash32_fixed},
        {VORN_KV_K12V4, VORN_KV_FORM_KEYS, true, vorn_kv_probe_k12v4_hash32_fixed},
    };
    for (const Named &c : cases) {
        std::mt19937_64 rng(c.kind);
        auto j = build_table(rng, c.kind, false, false, c.hash32, 200, 90, 7, c.form);
        std::vector<ub8> keys;
        for (int i = 0; i < 120; ++i) keys.push_back(rng() % 110);
        Vecs v;
        fill_vecs(v, *j, keys, 7);
        for (ub4 mode : {0u, 1u}) {
            std::vector<ub8> a(4096), b(4096), av(4096), bv(4096);
            vorn_vec ra{}, va{}, rb{}, vb{};
            ra.data = a.data(), ra.size = 4096, va.data = av.data();
            rb.data = b.data(), rb.size = 4096, vb.data = bv.data();
            vorn_kernel_ctx ca{}, cb{};
            ub8 sa[2] = {}, sb[2] = {};
            EXPECT_EQ(probe_call(ra, va, v, *j, mode, ca, sa), 0u);
            EXPECT_EQ(c.fn(&rb, &vb, &v.hash_vec, nullptr, &v.key_vec, &j->table->kv, mode, &cb, sb), 0u);
            EXPECT_EQ(ra.size, rb.size);
            EXPECT_EQ(a, b);
            EXPECT_EQ(av, bv);
            EXPECT_EQ(sa[0], sb[0]);
            EXPECT_GT(sa[0], 0u);
        }
    }
    // No key column for a table of key bytes: 2, whatever the mode.
    std::mt19937_64 rng(1);
    auto j = build_table(rng, VORN_KV_K4V4, false, false, false, 20, 20, 7);
    Vecs v;
    std::vector<ub8> keys = {1, 2};
    fill_vecs(v, *j, keys, 7);
    vorn_vec ro{}, vo{};
    vorn_kernel_ctx ctx{};
    ub8 stats[2] = {};
    EXPECT_EQ(probe_call(ro, vo, v, *j, 12, ctx, stats, false), 2u);
    EXPECT_EQ(probe_call(ro, vo, v, *j, 12, ctx, stats), 14u);
}

}  // namespace
