// Low-level adds of the bucket tables, every member by name (white-box):
// random rows with skewed hashes, zero tags and long chains, read back by a
// walk of the table and held against a scalar model of chains; refused
// growth requests at random, with the resumption point, the status and the
// final table checked.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

#include "kv/kv_entries.h"
#include "support/kv_rows_a.h"
#include "support/test_host.h"

namespace {

using vorntest::KvEntry;
using vorntest::KvRow;
using vorntest::KvTable;

using Input = vorntest::KvInput;
using vorntest::KvSkew;
using vorntest::kv_put;

// ---- Every member, by name -----------------------------------------------------------
using Call = std::function<ub8(vorn_kv *, ub1 *, ub8, const Input &, ub8 *, vorn_kv_grow_fn, ub8 *)>;
struct Member {
    const char *kind;
    const char *input;
    Call idx, ptr;
};

#define ARGS_ridhash in.records.data()
#define ARGS_ridgdhash in.records.data()
#define ARGS_ridgdcachedhash in.records.data()
#define ARGS_gdhash in.records.data()
#define ARGS_gdcachedhash in.records.data()
#define ARGS_ridfixedhash in.records.data()
#define ARGS_fixedhash in.records.data()
#define ARGS_hash32value_payload in.hashes32.data(), in.payload.data()
#define ARGS_hash32value_autorid in.hashes32.data(), in.base_rid
#define ARGS_gd_hash64 in.codes.data(), in.hashes64.data()
#define ARGS_gd_hash32 in.codes.data(), in.hashes32.data()
#define ARGS_fixed_hash64_payload in.slots.data(), in.hashes64.data(), in.payload.data()
#define ARGS_fixed_hash64_autorid in.slots.data(), in.hashes64.data(), in.base_rid
#define ARGS_fixed_hash64 in.slots.data(), in.hashes64.data()
#define ARGS_fixed_hash32 in.slots.data(), in.hashes32.data()
#define MEMBER(kind, input)                                                                               \
    Member{#kind, #input,                                                                                 \
           [](vorn_kv *kv, ub1 *seg, ub8 rows, const Input &in, ub8 *pos, vorn_kv_grow_fn g, ub8 *st) {   \
               return vorn_kv_ll_add_##kind##_##input##_idx(kv, seg, rows, ARGS_##input, pos, g, st);      \
           },                                                                                             \
           [](vorn_kv *kv, ub1 *seg, ub8 rows, const Input &in, ub8 *pos, vorn_kv_grow_fn g, ub8 *st) {   \
               return vorn_kv_ll_add_##kind##_##input##_ptr(kv, seg, rows, ARGS_##input, pos, g, st);      \
           }},

const std::vector<Member> &members() {
    static const std::vector<Member> list = {VORN_KV_LL_BUCKET_MEMBERS(MEMBER)};
    return list;
}

ub4 kind_of(const char *name) {
    static const char *names[16] = {"", "k2v4", "k2v8", "k4", "k4v4", "k4v8", "k6", "k6v4", "k6v8",
                                    "k8", "k8v4", "k8v8", "k10v4", "k12", "", "k12v4"};
    for (ub4 k = 1; k < 16; ++k)
        if (std::string(names[k]) == name) return k;
    return 0;
}

const Member *find_member(ub4 kind, const std::string &input) {
    for (const Member &x : members())
        if (kind_of(x.kind) == kind && x.input == input) return &x;
    return nullptr;
}
const Member &member(const char *kind, const char *input) { return *find_member(kind_of(kind), input); }

std::unique_ptr<KvTable> table_for(ub4 kind, bool ptr, ub8 rows, ub4 segments_hint) {
    // idx whenever not forced: idx_min_units 0 and a fill minimum above every test size.
    return std::make_unique<KvTable>(VORN_KV_FLAGS(kind, 0), segments_hint, rows, 0, 0, 1u << 30, 50, ptr ? 1 : 0);
}

void expect_table(const KvTable &t, const Input &in, sb8 segment) { vorntest::expect_kv_table(t, in.rows, segment); }

TEST(KvLowLevelAdd, EveryMemberMatchesTheModel) {
    std::mt19937_64 rng(7);
    const ub8 sizes[] = {0, 1, 15, 16, 17, 33, 700};
    ub4 runs = 0;
    for (const Member &m : members()) {
        const ub4 kind = kind_of(m.kind);
        ASSERT_NE(kind, 0u) << m.kind;
        for (bool ptr : {false, true}) {
            for (KvSkew skew : {KvSkew::none, KvSkew::few_buckets, KvSkew::zero_tags}) {
                const ub8 n = sizes[rng() % 7];
                SCOPED_TRACE(testing::Message() << "vorn_kv_ll_add_" << m.kind << "_" << m.input
                                                << (ptr ? "_ptr" : "_idx") << " rows " << n << " skew "
                                                << static_cast<int>(skew));
                const Input in = vorntest::make_kv_input(m.input, kind, n, rng, skew);
                auto t = table_for(kind, ptr, n, 40000);
                ASSERT_EQ(t->layout_code, 0u);
                ASSERT_EQ(bool(t->kv.flags & VORN_KV_PTR), ptr);
                ub8 pos = 0, status[2] = {9, 9};
                const ub8 code = (ptr ? m.ptr : m.idx)(&t->kv, nullptr, n, in, &pos, KvTable::grow, status);
                ASSERT_EQ(code, 0u);
                EXPECT_EQ(pos, n);
                EXPECT_EQ(status[0], 9u);
                expect_table(*t, in, -1);
                EXPECT_EQ(t->requests, vorntest::kv_requesting_rows(t->kv, in.rows, -1).size());
                ++runs;
            }
        }
    }
    EXPECT_EQ(runs, 92u * 3);  // 46 inputs by kind, two links each
}

TEST(KvLowLevelAdd, FixedSegmentUsesOnlyBucketBits) {
    std::mt19937_64 rng(8);
    for (bool ptr : {false, true}) {
        const Input in = vorntest::make_kv_input("fixed_hash64_payload", VORN_KV_K8V8, 500, rng, KvSkew::none);
        auto t = table_for(VORN_KV_K8V8, ptr, 80000, 80000);
        ASSERT_GT(t->kv.regions[0].segment_bits, 0u);
        const Member &m = member("k8v8", "fixed_hash64_payload");
        ub8 pos = 0, status[2];
        const ub8 code = (ptr ? m.ptr : m.idx)(&t->kv, vorn_map_segment(&t->kv, 1), 500, in, &pos, KvTable::grow, status);
        ASSERT_EQ(code, 0u);
        expect_table(*t, in, 1);
    }
}

// Refusals at random requests: each stops at the row that needed the unit,
// with status {1, page of the id tried}; calling again finishes the same
// table as a build that was never refused.
TEST(KvLowLevelAdd, RefusedRequestsResumeToTheSameTable) {
    std::mt19937_64 rng(9);
    for (const char *input : {"fixed_hash64_payload", "ridhash", "gd_hash32", "fixed_hash32"}) {
        for (ub4 kind : {VORN_KV_K4V4, VORN_KV_K2V4, VORN_KV_K4, VORN_KV_K12}) {
            const Member *m = find_member(kind, input);
            if (m == nullptr) continue;
            for (bool ptr : {false, true}) {
                SCOPED_TRACE(testing::Message() << m->kind << " " << input << (ptr ? " ptr" : " idx"));
                const ub8 n = 3000;
                const Input in = vorntest::make_kv_input(input, kind, n, rng, KvSkew::few_buckets);
                auto clean = table_for(kind, ptr, n, n);
                ub8 pos = 0, status[2];
                ASSERT_EQ((ptr ? m->ptr : m->idx)(&clean->kv, nullptr, n, in, &pos, KvTable::grow, status), 0u);

                auto t = table_for(kind, ptr, n, n);
                const std::vector<ub8> want_rows = vorntest::kv_requesting_rows(t->kv, in.rows, -1);
                ASSERT_GT(want_rows.size(), 50u);
                for (ub8 r = 0; r < want_rows.size() + 40; ++r)
                    if (rng() % 4 == 0) t->refuse.insert(r);
                t->refusal_code = 5 + rng() % 9;
                pos = 0;
                const ub4 refusals = vorntest::kv_add_through_refusals(*t, want_rows, [&](ub8 *st) {
                    const ub8 code = (ptr ? m->ptr : m->idx)(&t->kv, nullptr, n, in, &pos, KvTable::grow, st);
                    return std::pair(code, pos);
                });
                EXPECT_EQ(pos, n);
                EXPECT_GT(refusals, 5u);
                expect_table(*t, in, -1);
                if (!ptr) {
                    // Same ids in the same order: byte for byte the same table.
                    for (ub8 p = 0; p < t->kv.regions[0].page_count; ++p)
                        EXPECT_EQ(0, std::memcmp(t->page(0, p), clean->page(0, p), t->page_bytes(0)));
                    ASSERT_EQ(t->units_used(1), clean->units_used(1));
                    for (ub8 u = 0; u < t->units_used(1); ++u)
                        EXPECT_EQ(0, std::memcmp(t->unit(1, u), clean->unit(1, u), 64));
                }
            }
        }
    }
}

TEST(KvLowLevelAdd, EleventhRowOfAK2v4BucketAsksForAUnit) {
    KvTable t(VORN_KV_FLAGS(VORN_KV_K2V4, 0), 10, 10, 0, 0, 1u << 30, 50, 0);
    ASSERT_FALSE(t.kv.flags & VORN_KV_PTR);
    std::vector<ub1> rec(16 * 11);
    for (ub8 i = 0; i < 11; ++i) {
        kv_put<ub8>(rec, i * 16, i);
        kv_put<ub8>(rec, i * 16 + 8, 0x0000123400000005ull);  // one bucket, tag 0x1234
    }
    ub8 pos = 0, status[2];
    ASSERT_EQ(vorn_kv_ll_add_k2v4_ridhash_idx(&t.kv, nullptr, 10, rec.data(), &pos, KvTable::grow, status), 0u);
    EXPECT_EQ(t.requests, 0u);
    const ub1 *b = t.page(0, 0) + 5 * 64;
    EXPECT_EQ(vorn::load<ub4>(b), 10u);
    ASSERT_EQ(vorn_kv_ll_add_k2v4_ridhash_idx(&t.kv, nullptr, 11, rec.data(), &pos, KvTable::grow, status), 0u);
    EXPECT_EQ(t.requests, 1u);
    EXPECT_EQ(vorn::load<ub4>(b), ((0u + 1) << 4) + 1);  // overflow id 0, one entry
    EXPECT_EQ(vorn::load<ub2>(b + 4), 0x1234u);
    EXPECT_EQ(vorn::load<ub4>(b + 24), 10u);
    const ub1 *o = t.unit(1, 0);
    EXPECT_EQ(vorn::load<ub4>(o), 10u);  // the old header, link 0
    for (ub4 i = 0; i < 10; ++i) EXPECT_EQ(vorn::load<ub4>(o + 24 + 4 * i), i);
}

// Hands out an overflow id whose link cannot fit a 32-bit header.
ub8 grant_huge_id(vorn_kv_region *, ub8, ub8 *id, ...) {
    *id = ub8{1} << 30;
    return 0;
}

TEST(KvLowLevelAddDeathTest, LinkThatDoesNotFitFailsTheAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // An overflow id whose link does not fit the 32-bit header.
    vorn_kv kv{};
    alignas(64) ub1 bucket[64] = {};
    alignas(64) ub1 page[64] = {};
    ub1 *pages[2] = {page, page};  // id 2^30 is unit 0 of page 1
    kv.regions[1].pages = pages;
    kv.regions[1].page_bits = 30;
    ub8 status[2] = {};
    EXPECT_DEATH(vorn_kv_rotate_idx(&kv, bucket, 3, grant_huge_id, status),
                 "vornc_x86.*link == \\(\\(new_id \\+ 1\\) << count_bits\\)");
}


TEST(KvLowLevelAdd, TheBuildSlotIsServed) {
    EXPECT_NE(reinterpret_cast<const void *>(vorntest::ctx().vorn_create_add_kv_dydi), nullptr);
    EXPECT_NE(reinterpret_cast<const void *>(vorntest::ctx().vorn_layout_kv_dydi), nullptr);
}
}  // namespace
