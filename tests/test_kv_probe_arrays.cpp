// Probes of the array tables (arid4, arid8, acnt) through the probe entry,
// on tables built by the library's own build entry: random keys with lists
// of every length (single rows, full list records, rings and chains of
// chunks), keys that are absent or above the mapped pages.  Each mode's
// output against a scalar model, with capacities from the smallest the
// table allows upward and the call repeated on 15 until done; the codes of
// the modes a table lacks; the arid8 list reader by itself.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "frame/base.h"
#include "kv/kv_probe_entries.h"
#include "support/fold_kv2.h"
#include "support/kv_model.h"
#include "support/kv_table.h"
#include "support/test_host.h"

namespace {

using vorntest::autorid_vec;
using vorntest::column_vec;
using vorntest::KvTable;
using Pairs = std::multiset<std::pair<ub8, ub8>>;

enum Kind { kArid4, kArid8, kAcnt };

// A built array table and the rows that went in.
struct Built {
    Kind kind;
    std::unique_ptr<KvTable> table;
    std::map<ub4, std::vector<ub8>> lists;  // key -> rids (acnt: one 0 an occurrence)
};

// Keys: a few hot ones with long lists (rings of several chunks), many
// with one to five rows, all below 2^17 so the one mapped page holds them.
std::vector<ub4> build_keys(std::mt19937_64 &rng, ub8 n) {
    std::vector<ub4> keys(n);
    for (ub4 &k : keys) k = rng() % 5 == 0 ? static_cast<ub4>(rng() % 3) : static_cast<ub4>(rng() % 700);
    return keys;
}

std::unique_ptr<Built> build(std::mt19937_64 &rng, Kind kind, bool autorid, bool unique = false) {
    auto b = std::make_unique<Built>();
    b->kind = kind;
    const ub4 flags = (kind == kArid4 ? VORN_KV_FLAGS(VORN_KV_K4V4, 4)
                       : kind == kArid8 ? VORN_KV_FLAGS(VORN_KV_K4V8, 4)
                                        : VORN_KV_FLAGS(VORN_KV_K4, 5)) |
                      (unique ? VORN_KV_UNIQUE : 0);
    const ub8 n = 1500 + rng() % 300;
    b->table = std::make_unique<KvTable>(flags, 1000, n);
    EXPECT_EQ(b->table->layout_code, 0u);
    std::vector<ub4> keys = build_keys(rng, n);
    std::vector<ub8> payload(n);
    for (ub8 &p : payload) p = rng() % 50000;
    std::vector<ub4> payload4(payload.begin(), payload.end());  // arid4 reads ub4 values
    vorn_enc_ctx ke{}, ve{};
    vorn_vec kv{}, vv{};
    column_vec(kv, ke, keys.data(), n, VORN_KEY32, 32);
    column_vec(vv, ve, kind == kArid4 ? static_cast<void *>(payload4.data()) : payload.data(), n,
               autorid ? VORN_AUTORID : 0);
    vv.base_rid = autorid ? 7000 : 0;
    vorn_kernel_ctx ctx{};
    ub8 status[2] = {}, code;
    while ((code = vorntest::ctx().vorn_create_add_kv_dydi(&b->table->kv, nullptr, kind == kAcnt ? nullptr : &vv,
                                                             &kv, -1, &ctx, KvTable::grow, status)) == 12) {
        b->table->map_page(1, status[1]);  // the count page of acnt
    }
    EXPECT_EQ(code, 0u);
    for (ub8 i = 0; i < n; ++i) {
        auto &l = b->lists[keys[i]];
        if (unique && !l.empty()) continue;
        l.push_back(kind == kAcnt ? 0 : autorid ? 7000 + i : payload[i]);
    }
    return b;
}

struct Probe {
    std::vector<ub4> keys;
    std::vector<ub8> ids;
    vorn_enc_ctx ke{}, re{};
    vorn_vec kv{}, rows{};
};

void fill_probe(Probe &p, std::mt19937_64 &rng, ub8 n, bool payload) {
    p.keys.resize(n);
    for (ub4 &k : p.keys) {
        const ub4 r = rng() % 10;
        k = r < 2 ? static_cast<ub4>(rng() % 3) : r < 9 ? static_cast<ub4>(rng() % 900)
                                                         : static_cast<ub4>(131072 + rng() % 500000);  // unmapped
    }
    column_vec(p.kv, p.ke, p.keys.data(), n, VORN_KEY32, 32);
    p.ids.resize(n);
    for (ub8 i = 0; i < n; ++i) p.ids[i] = payload ? rng() % 1000000 : 300 + i;
    if (payload) p.rows.data = p.ids.data(), p.rows.size = static_cast<ub4>(n);
    else autorid_vec(p.rows, p.re, 300);
}

struct Outcome {
    ub8 code = 0;
    Pairs pairs;
    std::multiset<ub8> values;
    ub8 count = 0;
};

bool counting(ub4 mode) { return mode == 1 || mode == 6 || mode == 10; }

// A mode to the end with `cap` output rows a call, repeating on 15.
Outcome run(const Built &b, Probe &p, vorn_vec *hash_vec, ub4 mode, ub8 cap, ub8 *bv, ub4 bv_base, ub8 *stats) {
    Outcome o;
    std::vector<ub8> rows_out(cap), values_out(cap);
    vorn_kernel_ctx ctx{};
    for (int guard = 0; guard < 200000; ++guard) {
        vorntest::ProbeOutputs out(rows_out.data(), values_out.data(), cap, bv, bv_base);
        vorn_vec &ro = out.rows, &vo = out.values;
        const ub4 before = ctx.row_pos;
        o.code = vorntest::ctx().vorn_probe_kv_dydi(mode == 3 ? nullptr : &ro, &vo, hash_vec, &p.rows, &p.kv,
                                                    &b.table->kv, mode, &ctx, stats);
        if (o.code != 0 && o.code != 15) return o;
        const ub4 written = mode == 3 ? vo.size : ro.size;
        if (counting(mode)) {
            o.count += written;
        } else {
            for (ub4 i = 0; i < written; ++i) {
                const ub8 v = b.kind == kArid4 ? reinterpret_cast<const ub4 *>(values_out.data())[i] : values_out[i];
                if (mode == 3) o.values.insert(v);
                else o.pairs.insert({rows_out[i], b.kind == kAcnt && mode != 2 ? 0 : v});
            }
        }
        if (o.code == 0) {
            EXPECT_EQ(ctx.row_pos, p.keys.size());
            EXPECT_EQ(ctx.byte_pos, 0u);
            return o;
        }
        EXPECT_TRUE(written > 0 || ctx.row_pos != before) << "a resumed call must make progress";
    }
    ADD_FAILURE() << "probe never finished";
    return o;
}

const std::vector<ub8> *list_of(const Built &b, ub4 key) {
    auto it = b.lists.find(key);
    return it == b.lists.end() ? nullptr : &it->second;
}

TEST(ProbeArrays, RidListsMatchTheModel) {
    for (Kind kind : {kArid4, kArid8}) {
        for (bool autorid : {false, true}) {
            std::mt19937_64 rng(kind * 10 + autorid);
            auto b = build(rng, kind, autorid);
            Probe p;
            fill_probe(p, rng, 400 + rng() % 50, !autorid);
            Pairs want;
            std::multiset<ub8> values;
            std::vector<ub8> value_bits(1 + 60000 / 64, 0);
            ub8 total = 0;
            std::vector<bool> matched(p.keys.size());
            for (size_t r = 0; r < p.keys.size(); ++r) {
                if (const auto *l = list_of(*b, p.keys[r])) {
                    matched[r] = true;
                    for (ub8 rid : *l) {
                        want.insert({p.ids[r], rid});
                        values.insert(rid);
                        value_bits[rid / 64] |= ub8{1} << (rid % 64);
                        ++total;
                    }
                }
            }
            ASSERT_GT(total, 1000u);
            const ub8 smallest = kind == kArid8 ? 4 : 1;  // a list word needs room for its record
            for (ub8 cap : {smallest, smallest + 1, ub8{7}, ub8{1} + rng() % 40, ub8{5000}}) {
                SCOPED_TRACE(testing::Message() << "kind " << kind << " autorid " << autorid << " cap " << cap);
                ub8 stats[2] = {};
                Outcome o = run(*b, p, nullptr, 0, cap, nullptr, 0, stats);
                EXPECT_EQ(o.code, 0u);
                EXPECT_EQ(o.pairs, want);
                EXPECT_EQ(stats[0], total);
                if (kind == kArid4) {
                    EXPECT_GT(stats[1], 0u) << "chunks walked";
                }
                o = run(*b, p, nullptr, 1, cap, nullptr, 0, stats);
                EXPECT_EQ(o.count, total);
                o = run(*b, p, nullptr, 3, cap, nullptr, 0, stats);
                EXPECT_EQ(o.values, values);
                // Mode 7 clears the bits of the rows with a match.
                std::vector<ub8> rows_bv(p.keys.size() / 64 + 1, ~ub8{0});
                if (autorid) {
                    o = run(*b, p, nullptr, 7, cap, rows_bv.data(), 300, stats);
                    EXPECT_EQ(o.pairs, want);
                    for (size_t r = 0; r < p.keys.size(); ++r)
                        EXPECT_EQ((rows_bv[r / 64] >> (r % 64)) & 1, matched[r] ? 0u : 1u) << r;
                }
                // Modes 10 and 11 set a bit per matched value.
                std::vector<ub8> bv10(value_bits.size(), 0), bv11(value_bits.size(), 0);
                o = run(*b, p, nullptr, 10, cap, bv10.data(), 0, stats);
                EXPECT_EQ(o.count, total);
                if (autorid) {
                    EXPECT_EQ(bv10, value_bits);
                    o = run(*b, p, nullptr, 11, cap, bv11.data(), 0, stats);
                    EXPECT_EQ(o.pairs, want);
                    EXPECT_EQ(bv11, value_bits);
                }
            }
            ub8 stats[2] = {};
            for (ub4 mode : {2u, 4u, 5u, 6u, 8u, 9u, 12u})
                EXPECT_EQ(run(*b, p, nullptr, mode, 64, nullptr, 0, stats).code, 14u) << mode;
        }
    }
}

// Key records of kind 0x03 (key at byte 0, row id at byte 8) probe a list
// table with the record's row id as the identity.
TEST(ProbeArrays, KeyRecordsCarryTheIdentity) {
    for (Kind kind : {kArid4, kArid8}) {
        std::mt19937_64 rng(70 + kind);
        auto b = build(rng, kind, true);
        Probe p;
        fill_probe(p, rng, 300, false);
        std::vector<ub1> records(p.keys.size() * 16);
        Pairs want;
        for (size_t r = 0; r < p.keys.size(); ++r) {
            const ub4 id = static_cast<ub4>(rng() % 90000);
            std::memcpy(&records[r * 16], &p.keys[r], 4);
            std::memcpy(&records[r * 16 + 8], &id, 4);
            if (const auto *l = list_of(*b, p.keys[r]))
                for (ub8 rid : *l) want.insert({id, rid});
        }
        vorn_enc_ctx he{};
        vorn_vec hv{};
        column_vec(hv, he, records.data(), p.keys.size(), 0x03u << 24);
        p.kv.enc_ctx = nullptr;  // the records alone
        ub8 stats[2] = {};
        const Outcome o = run(*b, p, &hv, 0, 9, nullptr, 0, stats);
        EXPECT_EQ(o.code, 0u);
        EXPECT_EQ(o.pairs, want);
    }
}

TEST(ProbeArrays, CountsMatchTheModel) {
    for (bool unique : {false, true}) {
        std::mt19937_64 rng(90 + unique);
        auto b = build(rng, kAcnt, false, unique);
        if (unique) {
            EXPECT_EQ(b->table->kv.regions[1].mapped, 0u) << "no count page was needed";
        }
        Probe p;
        fill_probe(p, rng, 500, true);
        Pairs every, occurrences;
        ub8 total = 0, without = 0;
        std::vector<bool> matched(p.keys.size());
        for (size_t r = 0; r < p.keys.size(); ++r) {
            const auto *l = list_of(*b, p.keys[r]);
            if (l == nullptr) {
                ++without;
                continue;
            }
            matched[r] = true;
            total += l->size();
            occurrences.insert({p.ids[r], l->size()});
            for (size_t i = 0; i < l->size(); ++i) every.insert({p.ids[r], 0});
        }
        for (ub8 cap : {ub8{1}, ub8{2}, ub8{1} + rng() % 30, ub8{4000}}) {
            SCOPED_TRACE(testing::Message() << "unique " << unique << " cap " << cap);
            ub8 stats[2] = {};
            EXPECT_EQ(run(*b, p, nullptr, 0, cap, nullptr, 0, stats).pairs, every);
            EXPECT_EQ(stats[0], total);
            EXPECT_EQ(run(*b, p, nullptr, 1, cap, nullptr, 0, stats).count, total);
            EXPECT_EQ(run(*b, p, nullptr, 2, cap, nullptr, 0, stats).pairs, occurrences);
            EXPECT_EQ(run(*b, p, nullptr, 6, cap, nullptr, 0, stats).count, total + without);
            std::vector<ub8> bv(p.keys.size() / 64 + 1, ~ub8{0});
            // Bits by identity: give the rows their numbers as identities.
            Probe q = p;
            autorid_vec(q.rows, q.re, 0, p.keys.size());
            q.kv.data = q.keys.data();
            q.kv.enc_ctx = &q.ke;
            run(*b, q, nullptr, 7, cap, bv.data(), 0, stats);
            for (size_t r = 0; r < p.keys.size(); ++r)
                EXPECT_EQ((bv[r / 64] >> (r % 64)) & 1, matched[r] ? 0u : 1u) << r;
        }
        ub8 stats[2] = {};
        for (ub4 mode : {3u, 4u, 5u, 8u, 9u, 10u, 11u, 12u})
            EXPECT_EQ(run(*b, p, nullptr, mode, 64, nullptr, 0, stats).code, 14u) << mode;
    }
}

TEST(ProbeArrays, RefusedShapes) {
    std::mt19937_64 rng(3);
    auto b = build(rng, kArid4, true);
    Probe p;
    fill_probe(p, rng, 10, false);
    ub8 stats[2] = {};
    p.ke.flags = VORN_FIXED;  // not ub4 keys
    EXPECT_EQ(run(*b, p, nullptr, 0, 64, nullptr, 0, stats).code, 2u);
    EXPECT_EQ(run(*b, p, nullptr, 4, 64, nullptr, 0, stats).code, 14u) << "the mode is judged first";
    // An array form with a kind it does not have.
    KvTable wrong(VORN_KV_FLAGS(VORN_KV_K4V4, 5), 100, 100);
    p.ke.flags = VORN_KEY32;
    vorn_vec ro{}, vo{};
    vorn_kernel_ctx ctx{};
    EXPECT_EQ(vorntest::ctx().vorn_probe_kv_dydi(&ro, &vo, nullptr, &p.rows, &p.kv, &wrong.kv, 0, &ctx, stats), 2u);
    wrong.kv.flags = VORN_KV_FLAGS(VORN_KV_K4, 4);
    EXPECT_EQ(vorntest::ctx().vorn_probe_kv_dydi(&ro, &vo, nullptr, &p.rows, &p.kv, &wrong.kv, 0, &ctx, stats), 2u);
    // A row_pos at the end: 0 with nothing written.
    ctx.row_pos = 10;
    ro.size = 64;
    EXPECT_EQ(vorntest::ctx().vorn_probe_kv_dydi(&ro, &vo, nullptr, &p.rows, &p.kv, &b->table->kv, 0, &ctx, stats), 0u);
    EXPECT_EQ(ro.size, 0u);
}

// The arid8 list reader: a chain read in pieces gives the whole list once;
// below 4 rows of room nothing is read; a short list begun while a chain
// is open is a broken caller.
TEST(ProbeArrays, List8Reader) {
    std::mt19937_64 rng(8);
    auto b = build(rng, kArid8, true);
    const vorn_kv &kv = b->table->kv;
    bool death_tested = false;
    for (const auto &[key, list] : b->lists) {
        const ub8 word = *reinterpret_cast<const ub8 *>(kv.regions[0].pages[0] + key * 8);
        if ((word & 1) == 0) continue;
        for (ub8 room : {ub8{3}, ub8{4}, ub8{5}, ub8{11}, ub8{1000}}) {
            vorn_kv_list_reader ai{};
            std::vector<ub8> got, out(room);
            for (int guard = 0; guard < 10000; ++guard) {
                const sb8 n = vorn_kv_list8_read(word, out.data(), room, &ai);
                if (room < 4) {
                    EXPECT_EQ(n, 0);
                    break;
                }
                got.insert(got.end(), out.begin(), out.begin() + (n < 0 ? -n : n));
                if (n >= 0) break;
                EXPECT_EQ(-n, static_cast<sb8>(room));
            }
            if (room < 4) continue;
            EXPECT_EQ(std::multiset<ub8>(got.begin(), got.end()), std::multiset<ub8>(list.begin(), list.end()));
            EXPECT_EQ(ai.vorn_aux_stream2_current_pos, 0u);
        }
        std::vector<ub8> bv(2000, 0);
        vorn_kv_list_reader ai{};
        EXPECT_EQ(vorn_kv_list8_read_noridout_segbv(word, &ai, bv.data(), 7000), list.size());
        for (ub8 rid : list) EXPECT_TRUE((bv[(rid - 7000) / 64] >> ((rid - 7000) % 64)) & 1);
        if ((word & 7) != 7 && !death_tested) {
            death_tested = true;
            vorn_kv_list_reader open{0x1000, 1};
            std::vector<ub8> out(8);
            EXPECT_DEATH(vorn_kv_list8_read(word, out.data(), 8, &open),
                         "vornc_x86:[0-9]+: vorn_kv_list8_read: Assertion `ai->vorn_aux_stream2_current_pos == 0' failed");
        }
    }
}

}  // namespace
