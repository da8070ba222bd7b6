// Key-value table layout: the kind descriptions against the table formats,
// the sizing rule against a scalar model over a grid of inputs, its edge
// cases and refusals, and the segment mapping's assertion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <tuple>

#include "kv/kv_entries.h"
#include "kv/kv_kinds.h"
#include "support/kv_model.h"
#include "support/test_host.h"

namespace {

using vorn::kv::kBucketKinds;
using vorn::kv::kIdx;
using vorn::kv::kPtr;

// ---- The kind descriptions ------------------------------------------------------
// Against the bucket format as the table model writes it out: sizes, entries,
// count bits, and the offsets of entries 0 to 2 (steps of the key and value).
TEST(KvKinds, DescriptionsMatchTheBucketFormat) {
    const char *names[16] = {"", "k2v4", "k2v8", "k4", "k4v4", "k4v8", "k6", "k6v4", "k6v8",
                             "k8", "k8v4", "k8v8", "k10v4", "k12", "", "k12v4"};
    ub4 seen = 0;
    for (ub4 kind = 0; kind < 16; ++kind) {
        const auto &d = kBucketKinds[kind];
        const vorntest::KvShape r = vorntest::kv_shape(kind);
        ASSERT_EQ(d.exists(), r.key_bytes != 0) << kind;
        if (!d.exists()) continue;
        SCOPED_TRACE(names[kind]);
        EXPECT_STREQ(d.name, names[kind]);
        EXPECT_EQ(d.key_bytes, r.key_bytes);
        EXPECT_EQ(d.value_bytes, r.value_bytes);
        EXPECT_EQ(d.entries[kIdx], r.idx_entries);
        EXPECT_EQ(d.entries[kPtr], r.ptr_entries);
        EXPECT_EQ(d.count_bits, r.count_bits);
        for (ub4 i = 0; i < 3; ++i) {
            EXPECT_EQ(d.key_offset(kIdx, i), r.idx_key + r.key_bytes * i);
            EXPECT_EQ(d.key_offset(kPtr, i), r.ptr_key + r.key_bytes * i);
            if (r.value_bytes != 0) {
                EXPECT_EQ(d.value_offset(kIdx, i), r.idx_value + r.value_bytes * i);
                EXPECT_EQ(d.value_offset(kPtr, i), r.ptr_value + r.value_bytes * i);
            }
        }
        ++seen;
    }
    EXPECT_EQ(seen, 14u);
}

TEST(KvKinds, FirstMatchedFlagBits) {
    const std::pair<ub4, ub4> flags[] = {{4, 10}, {5, 12}, {10, 12}, {7, 11}, {8, 13}, {11, 13}, {12, 13}, {15, 13}};
    for (auto [kind, bit] : flags) EXPECT_EQ(kBucketKinds[kind].first_matched_bit(), bit) << kBucketKinds[kind].name;
}

// ---- The sizing rule, as a scalar model ------------------------------------------
struct RegionModel {
    ub8 page_count;
    ub4 segment_bits, page_bits, group_bits, unit_bits, entries, active;
};
struct LayoutModel {
    ub8 code;
    ub4 flag_bits;  // 0x4000 and 0x8000
    RegionModel r[3];
};

ub4 bit_len(ub8 x) {
    ub4 n = 0;
    while (x != 0) ++n, x >>= 1;
    return n;
}

LayoutModel bucket_model(ub8 de, ub8 rc, ub4 ie, ub4 pe, ub4 cb, ub4 hint, ub4 idx_min, ub4 fill_min,
                         ub4 pct, ub4 force) {
    LayoutModel out{};
    const ub4 p = hint < 12 ? 12 : hint - 6;
    const ub8 limit = (ub8{1} << (32 - cb)) - 1;
    const ub8 m = std::min(de, rc);
    auto size = [&](ub4 e, ub8 &w, ub4 &s) {
        const ub8 b = (m + e - 1) / e;
        w = (b < fill_min || pct == 0) ? 2 * b : static_cast<ub8>(static_cast<double>(b) * (100.0 / pct));
        const ub4 bits = w <= 1 ? 0 : bit_len(w - 1);
        const ub4 t = std::max(bits, p);
        s = t - p;
        if (s < 33) w = ub8{1} << t;
        return s >= 33;
    };
    ub8 w_ptr, w_idx;
    ub4 s_ptr, s_idx;
    const bool noted = size(pe, w_ptr, s_ptr);
    const ub8 r_idx = (rc + ie - 1) / ie, r_ptr = (rc + pe - 1) / pe;
    bool ptr;
    if (r_idx > limit || force) {
        if (noted) return {10, 0, {}};
        ptr = true;
    } else if (size(ie, w_idx, s_idx)) {
        if (noted) return {10, 0, {}};
        ptr = true;
    } else {
        ptr = !noted && (r_idx < idx_min || r_idx >= fill_min);
    }
    const ub8 w = ptr ? w_ptr : w_idx;
    const ub8 r = ptr ? r_ptr : r_idx;
    // page_count is a ub4: a table of 2^32 pages or more wraps, as stored.
    out.r[0] = {static_cast<ub4>((w + (ub8{1} << p) - 1) >> p), ptr ? s_ptr : s_idx, p, 4, 512, ptr ? pe : ie, 1};
    out.r[1] = {static_cast<ub4>((r + 4095) >> 12), r <= 1 ? 0 : (bit_len(r - 1) > 12 ? bit_len(r - 1) - 12 : 0), 12,
                ptr ? 0u : 4u, 512, 0, 0};
    out.flag_bits = ptr ? (0x4000 | (r_ptr >= fill_min ? 0x8000 : 0)) : 0;
    return out;
}

void expect_region(const vorn_kv_region &got, const RegionModel &want, int region) {
    // In the order page_count, segment_bits, page_bits, group_bits, unit_bits, entries, active.
    using Fields = std::tuple<ub8, ub4, ub4, ub4, ub4, ub4, ub4>;
    EXPECT_EQ(Fields(got.page_count, got.segment_bits, got.page_bits, got.group_bits, got.unit_bits, got.entries,
                     got.active),
              Fields(want.page_count, want.segment_bits, want.page_bits, want.group_bits, want.unit_bits, want.entries,
                     want.active))
        << "region " << region;
}

ub8 layout_via_slot(vorn_kv &kv, ub8 de, ub8 rc, ub4 hint, ub4 idx_min, ub4 fill_min, ub4 pct, ub4 force) {
    return vorntest::ctx().vorn_layout_kv_dydi(de, rc, &kv.flags, &kv, hint, idx_min, fill_min, pct, force);
}

TEST(KvLayout, BucketRuleMatchesModelOnAGrid) {
    std::mt19937_64 rng(71);
    const ub8 counts[] = {0, 1, 2, 7, 100, 4095, 4096, 100000, 3000000, 1ull << 31, 1ull << 36, 1ull << 40};
    const ub4 hints[] = {0, 11, 12, 16, 17, 18, 22};
    const ub4 pcts[] = {0, 50, 75, 100};
    int checked = 0;
    for (ub4 kind = 1; kind < 16; ++kind) {
        if (!kBucketKinds[kind].exists()) continue;
        const auto &d = kBucketKinds[kind];
        for (ub8 rc : counts) {
            for (int trial = 0; trial < 6; ++trial) {
                const ub8 de = trial == 0 ? rc : (trial == 1 ? rc + 5 : rng() % (rc + 1));
                const ub4 hint = hints[rng() % 7];
                const ub4 pct = pcts[rng() % 4];
                const ub4 idx_min = static_cast<ub4>(rng() % 64);
                const ub4 fill_min = static_cast<ub4>(rng() % 2 ? rng() % 100000 : 1u << 30);
                const ub4 force = rng() % 4 == 0;
                vorn_kv kv;
                std::memset(&kv, 0x77, sizeof kv);
                kv.flags = VORN_KV_FLAGS(kind, trial % 4) | 0xc000 | (rng() % 2 ? VORN_KV_UNIQUE : 0);
                const ub4 before = kv.flags;
                const ub8 code = layout_via_slot(kv, de, rc, hint, idx_min, fill_min, pct, force);
                const LayoutModel want = bucket_model(de, rc, d.entries[kIdx], d.entries[kPtr], d.count_bits,
                                                      hint, idx_min, fill_min, pct, force);
                SCOPED_TRACE(testing::Message() << d.name << " rc=" << rc << " de=" << de << " hint=" << hint
                                                << " pct=" << pct << " idx_min=" << idx_min
                                                << " fill_min=" << fill_min << " force=" << force);
                ASSERT_EQ(code, want.code);
                EXPECT_EQ(kv.flags, (before & ~0xc000u) | want.flag_bits);
                if (code != 0) continue;
                for (int r = 0; r < 2; ++r) expect_region(kv.regions[r], want.r[r], r);
                EXPECT_EQ(kv.key_bits, 0x77777777u);  // the host's bytes are left alone
                EXPECT_EQ(kv.regions[0].mapped, 0x77777777u);
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 500);
}

TEST(KvLayout, BucketedHelperIsTheSameRule) {
    for (ub8 rc : {ub8{0}, ub8{50}, ub8{1} << 20}) {
        vorn_kv a{}, b{};
        a.flags = b.flags = VORN_KV_FLAGS(VORN_KV_K8V8, 3);
        ASSERT_EQ(layout_via_slot(a, rc, rc, 0, 2, 1000, 50, 0), 0u);
        ASSERT_EQ(vorn_kv_layout_bucketed(rc, rc, &b.flags, 3, 3, 2, 0, &b, 2, 1000, 50, 0), 0u);
        EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a));
    }
}

TEST(KvLayout, EdgeCases) {
    vorn_kv kv{};
    // No rows: an empty overflow region and one primary page.
    kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 0);
    ASSERT_EQ(layout_via_slot(kv, 0, 0, 0, 0, 100, 50, 0), 0u);
    EXPECT_EQ(kv.regions[1].page_count, 0u);
    EXPECT_EQ(kv.regions[1].segment_bits, 0u);
    EXPECT_EQ(kv.regions[0].page_count, 1u);
    // An estimate above the rows is sized by the rows.
    vorn_kv a{}, b{};
    a.flags = b.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 0);
    ASSERT_EQ(layout_via_slot(a, 1u << 30, 1u << 24, 0, 0, 100, 50, 0), 0u);
    ASSERT_EQ(layout_via_slot(b, 1u << 24, 1u << 24, 0, 0, 100, 50, 0), 0u);
    EXPECT_EQ(0, std::memcmp(&a, &b, sizeof a));
    // An estimate of 1: one page.
    kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 0);
    ASSERT_EQ(layout_via_slot(kv, 1, 1, 0, 0, 100, 50, 0), 0u);
    EXPECT_EQ(kv.regions[0].page_count, 1u);
    EXPECT_EQ(kv.regions[0].page_bits, 12u);
    // The link: force_ptr with R_idx in range takes ptr; R_idx equal to
    // idx_min_units takes idx, one less ptr; R_idx one above the count limit
    // (k8v8: 30 link bits) never takes idx.
    const ub8 rows = 7 * 40, over = (ub8{1} << 30) * 3;  // R_idx = 40; 2^30
    const struct {
        ub4 kind;
        ub8 de, rc;
        ub4 idx_min, fill_min, force;
        bool ptr;
    } links[] = {
        {VORN_KV_K4V4, 1000, 1000, 0, 1u << 30, 1, true},      {VORN_KV_K4V4, rows, rows, 40, 1u << 30, 0, false},
        {VORN_KV_K4V4, rows, rows, 41, 1u << 30, 0, true},     {VORN_KV_K8V8, 10, over, 0, 0xffffffffu, 0, true},
        {VORN_KV_K8V8, 10, over - 3, 0, 0xffffffffu, 0, false},
    };
    for (const auto &c : links) {
        kv.flags = VORN_KV_FLAGS(c.kind, 0);
        ASSERT_EQ(layout_via_slot(kv, c.de, c.rc, 0, c.idx_min, c.fill_min, 50, c.force), 0u);
        EXPECT_EQ(bool(kv.flags & VORN_KV_PTR), c.ptr) << c.rc << " " << c.idx_min;
        EXPECT_EQ(kv.regions[0].entries, kBucketKinds[c.kind].entries[c.ptr ? kPtr : kIdx]);
        EXPECT_EQ(kv.regions[1].group_bits, c.ptr ? 0u : 4u);
    }
    // fill_percent 0 means twice the buckets at any size.
    kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 0);
    ASSERT_EQ(layout_via_slot(kv, 6ull << 22, 6ull << 22, 0, 0, 0, 0, 1), 0u);
    EXPECT_EQ(kv.regions[0].page_count, (2ull << 22) >> 12);
}

TEST(KvLayout, RefusalsAndTooLarge) {
    vorn_kv kv{};
    const std::pair<ub4, ub4> bad[] = {{0, 0}, {14, 0}, {16, 1}, {200, 3}, {3, 4}, {6, 4}, {4, 5}, {5, 5}, {4, 6}, {4, 15}};
    for (auto [kind, form] : bad) {
        kv.flags = VORN_KV_FLAGS(kind, form);
        EXPECT_EQ(layout_via_slot(kv, 10, 10, 0, 0, 100, 50, 0), 24u) << kind << " " << form;
    }
    // 33 segment bits for both links: 10, with the link bits cleared.
    kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 0) | VORN_KV_PTR | VORN_KV_PREFETCH;
    const ub8 huge = 1ull << 50;
    EXPECT_EQ(layout_via_slot(kv, huge, huge, 0, 0, 100, 50, 0), 10u);
    EXPECT_EQ(kv.flags, VORN_KV_FLAGS(VORN_KV_K4V4, 0));
}

// ---- Array tables ---------------------------------------------------------------
TEST(KvLayout, ArrayTablesMatchTheirRule) {
    const ub8 keys[] = {0, 1, (1u << 17) - 1, 1u << 17, (1u << 18) - 1, 1u << 18, 5000000, 0xffffffffull};
    const ub8 rows[] = {0, 1, 16384, 16385, 1u << 17, 3000000};
    auto seg = [](ub8 units, ub4 pb) { ub4 b = units == 0 ? 0 : bit_len(units - 1); return b > pb ? b - pb : 0u; };
    for (ub8 n : keys) {
        for (ub8 rc : rows) {
            vorn_kv kv{};
            const ub8 r17 = (n + (1u << 17)) & ~ub8{(1u << 17) - 1};
            const ub8 r18 = (n + (1u << 18)) & ~ub8{(1u << 18) - 1};
            kv.flags = VORN_KV_FLAGS(VORN_KV_K4V4, 4) | VORN_KV_UNIQUE;
            ASSERT_EQ(layout_via_slot(kv, n, rc, 30, 0, 0, 0, 1), 0u);
            EXPECT_EQ(kv.flags, VORN_KV_FLAGS(VORN_KV_K4V4, 4) | VORN_KV_UNIQUE);
            expect_region(kv.regions[0], {r17 >> 17, seg(r17, 17), 17, 3, 34, 1, 1}, 0);
            expect_region(kv.regions[1], {(rc + 16383) >> 14, seg(rc, 14), 14, 0, 136, 0, 0}, 1);
            expect_region(kv.regions[2], {(rc + 0x1ffff) >> 17, seg(rc, 17), 17, 0, 16, 0, 0}, 2);
            kv.flags = VORN_KV_FLAGS(VORN_KV_K4V8, 4);
            ASSERT_EQ(layout_via_slot(kv, n, rc, 0, 0, 0, 0, 0), 0u);
            expect_region(kv.regions[0], {r17 >> 17, seg(r17, 17), 17, 4, 64, 1, 1}, 0);
            expect_region(kv.regions[1], {(rc + 0x1ffff) >> 17, seg(rc, 17), 17, 0, 64, 0, 0}, 1);
            kv.flags = VORN_KV_FLAGS(VORN_KV_K4, 5);
            ASSERT_EQ(layout_via_slot(kv, n, rc, 0, 0, 0, 0, 0), 0u);
            expect_region(kv.regions[0], {r18 >> 18, seg(r18, 18), 18, 16, 2, 1, 1}, 0);
            expect_region(kv.regions[1], {(n + (1u << 18)) >> 18, bit_len(n) > 18 ? bit_len(n) - 18 : 0u, 18, 0, 64, 0, 0}, 1);
        }
    }
}

// ---- Segments -------------------------------------------------------------------
TEST(KvSegments, MapAndCount) {
    vorn_kv kv{};
    ub1 pages[4][64];
    ub1 *table[4] = {pages[0], pages[1], pages[2], pages[3]};
    kv.regions[0].segment_bits = 2;
    kv.regions[0].pages = table;
    EXPECT_EQ(vorn_kv_num_segments(&kv), 4u);
    EXPECT_EQ(vorn_map_segment(&kv, -1), nullptr);
    for (sb8 s = 0; s < 4; ++s) EXPECT_EQ(vorn_map_segment(&kv, s), pages[s]);
}

TEST(KvSegmentsDeathTest, SegmentBeyondTheTableFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    vorn_kv kv{};
    ub1 *table[4] = {};
    kv.regions[0].segment_bits = 2;
    kv.regions[0].pages = table;
    EXPECT_DEATH(vorn_map_segment(&kv, 4),
                 "vornc_x86.*0 == \\(segment_id & ~\\(sb8\\) \\(vorn_kv_num_segments\\(kv\\) - 1\\)\\)");
}

}  // namespace
