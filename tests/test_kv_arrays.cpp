// Array tables: arid4 and arid8 (key to its rid list) and acnt (key to its
// count), by the low-level members and through the build entry.  A walk of
// elements, list records and chunks finds each key's rows in arrival order;
// refusals of requests and of unmapped key pages resume to the same lists.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "kv/kv_entries.h"
#include "support/fold_kv2.h"
#include "support/kv_table.h"
#include "support/test_host.h"

namespace {

using vorntest::KvTable;
using Lists = std::map<ub4, std::vector<ub8>>;

template <class T>
T at(const ub1 *p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// ---- Walks --------------------------------------------------------------------------
std::vector<ub8> arid4_list(const KvTable &t, ub4 key, std::vector<ub4> *capacities = nullptr) {
    const ub1 *elem = t.page(0, key >> 17) + ((key & 0x1ffff) >> 3) * 34;
    const ub1 bit = static_cast<ub1>(1u << (key & 7));
    const ub4 w = at<ub4>(elem + 2 + 4 * (key & 7));
    if (!(elem[0] & bit)) return w == 0 ? std::vector<ub8>{} : std::vector<ub8>{w - 1};
    const ub1 *rec = t.unit(1, w);
    std::vector<ub8> out;
    if (!(elem[1] & bit)) {
        for (ub4 i = 0; i < rec[0]; ++i) out.push_back(at<ub4>(rec + 1 + 4 * i));
        return out;
    }
    EXPECT_EQ(rec[0], 2u);
    out.push_back(at<ub4>(rec + 1));
    out.push_back(at<ub4>(rec + 5));
    const ub1 *newest = reinterpret_cast<const ub1 *>(at<ub8>(rec + 9));
    const ub1 *first = reinterpret_cast<const ub1 *>(at<ub8>(newest + 4));
    const ub1 *c = first;
    do {
        for (ub4 i = 0; i < at<ub2>(c); ++i) out.push_back(at<ub4>(c + 12 + 4 * i));
        if (capacities) capacities->push_back(at<ub2>(c + 2));
        if (c != newest) { EXPECT_EQ(at<ub2>(c), at<ub2>(c + 2)) << "an older chunk is full"; }
        c = reinterpret_cast<const ub1 *>(at<ub8>(c + 4));
    } while (c != first);
    return out;
}

std::vector<ub8> arid8_list(const KvTable &t, ub4 key) {
    const ub8 w = at<ub8>(t.page(0, key >> 17) + (key & 0x1ffff) * 8);
    if (w == 0) return {};
    if ((w & 1) == 0) return {(w >> 1) - 1};
    const ub1 *rec = reinterpret_cast<const ub1 *>(w & ~ub8{7});
    std::vector<ub8> out = {at<ub8>(rec + 16), at<ub8>(rec + 24)};
    switch (w & 7) {
        case 1: return out;
        case 3: out.push_back(at<ub8>(rec)); return out;
        case 5: out.push_back(at<ub8>(rec)); out.push_back(at<ub8>(rec + 8)); return out;
        default: break;
    }
    std::vector<const ub1 *> chunks;
    for (const ub1 *c = reinterpret_cast<const ub1 *>(at<ub8>(rec) - 1);;) {
        chunks.push_back(c);
        const ub8 next = at<ub8>(c);
        if (next & 1) break;
        c = reinterpret_cast<const ub1 *>(next);
    }
    for (auto it = chunks.rbegin(); it != chunks.rend(); ++it)
        for (ub4 i = 0; i < at<ub4>(*it + 8); ++i) out.push_back(at<ub8>(*it + 16 + 8 * i));
    return out;
}

// Occurrences of a key in an acnt table.
ub8 acnt_count(const KvTable &t, ub4 key) {
    const ub1 *elem = t.page(0, key >> 18) + ((key & 0x3ffe0) >> 5) * 8;
    const ub4 bit = 1u << (key & 31);
    if (!(at<ub4>(elem) & bit)) return 0;
    if (!(at<ub4>(elem + 4) & bit)) return 1;
    return 1 + at<ub8>(t.page(1, key >> 18) + (key & 0x3ffff) * 8);
}

// Keys: most from a small range, some hot ones with long lists, some in
// higher pages.
std::vector<ub4> random_keys(std::mt19937_64 &rng, ub8 n, ub4 pages) {
    std::vector<ub4> keys(n);
    for (ub4 &k : keys) {
        const ub4 r = rng() % 10;
        k = r < 4 ? static_cast<ub4>(rng() % 7) : static_cast<ub4>(rng() % (pages * 131072ull));
    }
    return keys;
}

Lists model(const std::vector<ub4> &keys, const std::vector<ub8> &rids, bool unique) {
    Lists m;
    for (ub8 i = 0; i < keys.size(); ++i) {
        auto &l = m[keys[i]];
        if (!unique || l.empty()) l.push_back(rids[i]);
    }
    return m;
}

// Runs a member to the end, mapping what it asks for: code 11 maps the key
// page named in status, code 12 the count page of the row's key; any other
// refusal is simply retried.
template <class Add>
ub4 run_to_end(KvTable &t, const std::vector<ub4> &keys, ub4 key_shift, Add add) {
    ub8 pos = 0, status[2];
    ub4 stops = 0;
    for (;;) {
        const ub8 before = pos;
        const ub8 code = add(&pos, status);
        if (code == 0) break;
        ++stops;
        if (code == 11) {
            EXPECT_EQ(status[0], 0u);
            EXPECT_EQ(pos % 16, before % 16);  // a block start
            ub8 greatest = 0;
            for (ub8 i = pos; i < std::min<ub8>(pos + 16, keys.size()); ++i)
                if ((keys[i] >> key_shift) >= t.kv.regions[0].mapped) greatest = std::max<ub8>(greatest, keys[i]);
            EXPECT_EQ(status[1], greatest >> key_shift);
            for (ub8 p = 0; p <= status[1]; ++p) t.map_page(0, p);  // pages below are mapped too
        } else if (code == 12) {  // a count table's second page for the row's key
            EXPECT_EQ(status[0], 1u);
            EXPECT_EQ(status[1], keys[pos] >> 18);
            t.map_page(1, status[1]);
        } else {
            EXPECT_EQ(code, t.refusal_code);
            EXPECT_EQ(status[0], t.log.back().region);
            EXPECT_EQ(status[1], t.log.back().id >> t.kv.regions[status[0]].page_bits);
        }
        if (stops > 100000) break;
    }
    EXPECT_EQ(pos, keys.size());
    return stops;
}

// Each arid member (rid-and-code records, a key column with a payload or
// with row numbers), unique or not, with refused requests or without.
TEST(KvArrays, RidListsMatchTheModel) {
    std::mt19937_64 rng(11);
    for (bool arid4 : {true, false})
        for (bool unique : {false, true})
            for (int source = 0; source < 3; ++source)
                for (bool refusals : {false, true}) {
                    SCOPED_TRACE(testing::Message() << (arid4 ? "arid4" : "arid8") << " unique " << unique
                                                    << " source " << source << " refusals " << refusals);
                    const ub8 n = 3000 + rng() % 40, base = rng() % 1000;
                    const std::vector<ub4> keys = random_keys(rng, n, 3);
                    std::vector<ub8> rids(n);
                    std::vector<ub4> rids4(n);
                    std::vector<ub1> records(n * 16);
                    for (ub8 i = 0; i < n; ++i) {
                        rids[i] = source == 2 ? base + i : (rng() % 3 ? rng() % 100 : rng() >> 33);
                        if (arid4) rids[i] &= 0x7fffffffu;  // rid + 1 fits the slot word
                        rids4[i] = static_cast<ub4>(rids[i]);
                        std::memcpy(&records[i * 16], &keys[i], 4);
                        std::memcpy(&records[i * 16 + 8], &rids4[i], 4);
                    }
                    const ub4 flags = VORN_KV_FLAGS(arid4 ? VORN_KV_K4V4 : VORN_KV_K4V8, 4) | (unique ? VORN_KV_UNIQUE : 0);
                    KvTable t(flags, 3 * 131072 - 1, n, 0, 0, 0, 0, 0, !refusals);
                    ASSERT_EQ(t.layout_code, 0u);
                    for (ub8 r = 0; refusals && r < 400; ++r)
                        if (rng() % 3 == 0) t.refuse.insert(r);
                    const ub4 stops = run_to_end(t, keys, 17, [&](ub8 *pos, ub8 *status) -> ub8 {
                        const auto g = KvTable::grow;
                        const ub1 *rec = records.data();
                        if (arid4 && source == 0) return vorn_kv_ll_add_k4v4_ridgd_arid4(&t.kv, n, rec, pos, g, status);
                        if (arid4 && source == 1) return vorn_kv_ll_add_k4v4_key32_payload_arid4(&t.kv, n, keys.data(), rids4.data(), pos, g, status);
                        if (arid4) return vorn_kv_ll_add_k4v4_key32_autorid_arid4(&t.kv, n, keys.data(), base, pos, g, status);
                        if (source == 0) return vorn_kv_ll_add_k4v8_ridgd_arid8(&t.kv, n, rec, pos, g, status);
                        if (source == 1) return vorn_kv_ll_add_k4v8_key32_payload_arid8(&t.kv, n, keys.data(), rids.data(), pos, g, status);
                        return vorn_kv_ll_add_k4v8_key32_autorid_arid8(&t.kv, n, keys.data(), base, pos, g, status);
                    });
                    if (refusals && !unique) { EXPECT_GT(stops, 3u); }  // unique keys ask for nothing
                    if (arid4 || source == 0)
                        for (ub8 &r : rids) r &= 0xffffffffu;  // records carry ub4 rids
                    const Lists want = model(keys, rids, unique);
                    auto list = [&](ub4 key) { return arid4 ? arid4_list(t, key) : arid8_list(t, key); };
                    for (ub4 key = 0; key < 3 * 131072; key += (key < 64 ? 1 : 1 + rng() % 97)) {
                        const auto it = want.find(key);
                        ASSERT_EQ(list(key), it == want.end() ? std::vector<ub8>{} : it->second) << "key " << key;
                    }
                    for (const auto &[key, l] : want) ASSERT_EQ(list(key), l) << "key " << key;
                }
}

TEST(KvArrays, Arid4ListGrowsThroughRecordAndChunks) {
    KvTable t(VORN_KV_FLAGS(VORN_KV_K4V4, 4), 100, 13000);
    const ub8 n = 12000;
    std::vector<ub4> keys(n, 77);
    ub8 pos = 0, status[2];
    // Row by row: one row, then two to four in the record, then chunks.
    for (ub8 i = 0; i < n; ++i) {
        ASSERT_EQ(vorn_kv_ll_add_k4v4_key32_autorid_arid4(&t.kv, i + 1, keys.data(), 0, &pos, KvTable::grow, status), 0u);
        const ub1 *elem = t.page(0, 0) + (77 >> 3) * 34;
        const ub1 bit = 1u << (77 & 7);
        if (i == 0) { EXPECT_FALSE(elem[0] & bit); }
        if (i >= 1 && i <= 3) { EXPECT_TRUE((elem[0] & bit) && !(elem[1] & bit)); }
        if (i == 4) { EXPECT_TRUE(elem[1] & bit); }  // the fifth moves the last two into a chunk
    }
    std::vector<ub4> caps;
    std::vector<ub8> want(n);
    for (ub8 i = 0; i < n; ++i) want[i] = i;
    EXPECT_EQ(arid4_list(t, 77, &caps), want);
    std::vector<ub4> expect_caps = {8};
    while (expect_caps.size() < caps.size())
        expect_caps.push_back(std::min<ub4>(4000, static_cast<ub4>((expect_caps.back() + 2) * 1.618)));
    EXPECT_EQ(caps, expect_caps);
    ASSERT_GE(caps.size(), 5u);
    EXPECT_EQ((std::vector<ub4>(caps.begin(), caps.begin() + 5)), (std::vector<ub4>{8, 16, 29, 50, 84}));
    EXPECT_EQ(caps.back(), 4000u);
    // Requests: one record of one unit, then chunks of (c * 4 + 13) >> 1 units.
    ASSERT_EQ(t.log.size(), 1 + caps.size());
    EXPECT_EQ(t.log[0].region, 1u);
    EXPECT_EQ(t.log[0].units, 1u);
    for (ub8 i = 0; i < caps.size(); ++i) {
        EXPECT_EQ(t.log[1 + i].region, 2u);
        EXPECT_EQ(t.log[1 + i].units, (caps[i] * 4 + 13) >> 1);
    }
}

TEST(KvArrays, RidZeroAndUniqueKeys) {
    KvTable t(VORN_KV_FLAGS(VORN_KV_K4V4, 4), 10, 10);
    const ub4 keys[] = {5, 5};
    const ub4 rids[] = {0, 9};
    ub8 pos = 0, status[2];
    ASSERT_EQ(vorn_kv_ll_add_k4v4_key32_payload_arid4(&t.kv, 1, keys, rids, &pos, KvTable::grow, status), 0u);
    EXPECT_EQ(at<ub4>(t.page(0, 0) + 2 + 4 * 5), 1u);  // rid 0 is stored as word 1
    EXPECT_EQ(arid4_list(t, 5), std::vector<ub8>{0});
    t.kv.flags |= VORN_KV_UNIQUE;
    ASSERT_EQ(vorn_kv_ll_add_k4v4_key32_payload_arid4(&t.kv, 2, keys, rids, &pos, KvTable::grow, status), 0u);
    EXPECT_EQ(arid4_list(t, 5), std::vector<ub8>{0});
    EXPECT_EQ(t.requests, 0u);

    KvTable e(VORN_KV_FLAGS(VORN_KV_K4V8, 4), 10, 10);
    const ub4 zero[] = {0};
    pos = 0;
    ASSERT_EQ(vorn_kv_ll_add_k4v8_key32_autorid_arid8(&e.kv, 1, zero, 0, &pos, KvTable::grow, status), 0u);
    EXPECT_EQ(at<ub8>(e.page(0, 0)), 2u);  // key 0, rid 0: word 2, not the empty word
    EXPECT_EQ(arid8_list(e, 0), std::vector<ub8>{0});
}

TEST(KvArrays, Arid8TagsAndFirstChunk) {
    KvTable t(VORN_KV_FLAGS(VORN_KV_K4V8, 4), 10, 100);
    std::vector<ub4> keys(40, 3);
    ub8 pos = 0, status[2];
    const ub8 tags[] = {0, 1, 3, 5, 7};
    for (ub8 i = 0; i < 5; ++i) {
        ASSERT_EQ(vorn_kv_ll_add_k4v8_key32_autorid_arid8(&t.kv, i + 1, keys.data(), 100, &pos, KvTable::grow, status), 0u);
        const ub8 w = at<ub8>(t.page(0, 0) + 24);
        if (i == 0) EXPECT_EQ(w, (100u + 1) * 2);  // one row: (rid + 1) * 2
        else EXPECT_EQ(w & 7, tags[i]) << i;
    }
    ASSERT_EQ(t.log.size(), 2u);
    EXPECT_EQ(t.log[0].units, 4u);
    EXPECT_EQ(t.log[1].units, 9u);
    ASSERT_EQ(vorn_kv_ll_add_k4v8_key32_autorid_arid8(&t.kv, 40, keys.data(), 100, &pos, KvTable::grow, status), 0u);
    std::vector<ub8> want;
    for (ub8 i = 0; i < 40; ++i) want.push_back(100 + i);
    EXPECT_EQ(arid8_list(t, 3), want);
    EXPECT_EQ(t.log[2].units, 2u + 14);  // capacity (7 + 2) * 1.618 = 14
}

TEST(KvArrays, CountsMatchTheModel) {
    std::mt19937_64 rng(12);
    for (bool unique : {false, true}) {
        for (bool map_late : {false, true}) {
            const ub8 n = 5000;
            const std::vector<ub4> keys = random_keys(rng, n, 5);
            KvTable t(VORN_KV_FLAGS(VORN_KV_K4, 5) | (unique ? VORN_KV_UNIQUE : 0), 5 * 131072, n, 0, 0, 0, 0, 0, !map_late);
            ASSERT_EQ(t.layout_code, 0u);
            const ub4 stops = run_to_end(t, keys, 18, [&](ub8 *pos, ub8 *status) {
                return vorn_kv_ll_add_k4_key32_acnt(&t.kv, n, keys.data(), pos, KvTable::grow, status);
            });
            EXPECT_EQ(stops > 0, map_late || !unique);
            std::map<ub4, ub8> want;
            for (ub4 k : keys) ++want[k];
            for (const auto &[k, c] : want) ASSERT_EQ(acnt_count(t, k), unique ? 1 : c) << k;
            for (ub4 k = 0; k < 5 * 131072; k += 1 + rng() % 301)
                if (!want.count(k)) { ASSERT_EQ(acnt_count(t, k), 0u); }
        }
    }
}

TEST(KvArrays, AcntKeySeenThreeTimes) {
    KvTable t(VORN_KV_FLAGS(VORN_KV_K4, 5), 100, 3);
    t.map_page(1, 0);
    const ub4 keys[] = {70, 70, 70};
    ub8 pos = 0, status[2];
    ASSERT_EQ(vorn_kv_ll_add_k4_key32_acnt(&t.kv, 3, keys, &pos, KvTable::grow, status), 0u);
    const ub1 *elem = t.page(0, 0) + (70 >> 5) * 8;
    EXPECT_EQ(at<ub4>(elem), 1u << (70 & 31));
    EXPECT_EQ(at<ub4>(elem + 4), 1u << (70 & 31));
    EXPECT_EQ(at<ub8>(t.page(1, 0) + 70 * 8), 2u);
}

// ---- Through the entry --------------------------------------------------------------
TEST(KvArrays, TheEntryChoosesTheArrayMember) {
    std::mt19937_64 rng(13);
    const ub8 n = 1000;
    std::vector<ub4> keys = random_keys(rng, n, 1);
    vorn_enc_ctx key_enc{}, auto_enc{};
    vorn_vec key_vec{}, val_vec{};
    vorntest::column_vec(key_vec, key_enc, keys.data(), n, VORN_KEY32);
    vorntest::autorid_vec(val_vec, auto_enc, 500);
    for (ub4 kind : {VORN_KV_K4V4, VORN_KV_K4V8}) {
        KvTable t(VORN_KV_FLAGS(kind, 4), 131071, n);
        vorn_kernel_ctx ctx{};
        ub8 status[2];
        ASSERT_EQ(vorntest::ctx().vorn_create_add_kv_dydi(&t.kv, nullptr, &val_vec, &key_vec, -1, &ctx, KvTable::grow, status), 0u);
        EXPECT_EQ(ctx.row_pos, n);
        std::vector<ub8> rids(n);
        for (ub8 i = 0; i < n; ++i) rids[i] = 500 + i;
        for (const auto &[k, l] : model(keys, rids, false))
            ASSERT_EQ(kind == VORN_KV_K4V4 ? arid4_list(t, k) : arid8_list(t, k), l);
    }
    KvTable c(VORN_KV_FLAGS(VORN_KV_K4, 5), 131071, n);
    c.map_page(1, 0);
    vorn_kernel_ctx ctx{};
    ub8 status[2];
    ASSERT_EQ(vorntest::ctx().vorn_create_add_kv_dydi(&c.kv, nullptr, nullptr, &key_vec, -1, &ctx, KvTable::grow, status), 0u);
    std::map<ub4, ub8> want;
    for (ub4 k : keys) ++want[k];
    for (const auto &[k, cnt] : want) ASSERT_EQ(acnt_count(c, k), cnt);
    // Without VORN_KEY32 there is no member; a count table of another kind neither.
    key_enc.flags = VORN_FIXED;
    ctx.row_pos = 0;
    EXPECT_EQ(vorntest::ctx().vorn_create_add_kv_dydi(&c.kv, nullptr, nullptr, &key_vec, -1, &ctx, KvTable::grow, status), 2u);
}

// Hands out a list-record id that does not fit a slot word.
ub8 grant_wide_id(vorn_kv_region *, ub8, ub8 *id, ...) {
    *id = ub8{1} << 32;
    return 0;
}

TEST(KvArraysDeathTest, ListIdThatDoesNotFitFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    KvTable t(VORN_KV_FLAGS(VORN_KV_K4V4, 4), 10, 10);
    const ub4 keys[] = {9, 9};
    ub8 pos = 0, status[2];
    EXPECT_DEATH(vorn_kv_ll_add_k4v4_key32_autorid_arid4(&t.kv, 2, keys, 0, &pos, grant_wide_id, status),
                 "vornc_x86.*id == \\(ub4\\) id");
}

}  // namespace
