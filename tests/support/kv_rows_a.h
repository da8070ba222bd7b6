// kv_rows_a.h - the rows of a bucket-table build and the inputs that carry
// them: random hashes with the skews that make long chains and zero tags,
// every record and column layout filled from one set of rows, the rows
// whose add asks for an overflow bucket, the check of a built table against
// the model of chains, and the loop that drives an add through refusals.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/kv_model.h"

namespace vorntest {

enum class KvSkew { none, few_buckets, zero_tags };

inline ub8 kv_random_hash(std::mt19937_64 &rng, KvSkew skew, bool hash32, ub4 key_bytes) {
    ub8 h = rng();
    if (hash32) h &= 0xffffffffu;
    if (skew == KvSkew::few_buckets) h = (h & ~ub8{0xffffff}) | (rng() % 3) * 0x10001;  // three buckets a segment
    if (skew == KvSkew::zero_tags && rng() % 3 == 0) {
        if (hash32) h &= key_bytes == 2 ? 0xffffu : 0;
        else h &= key_bytes == 2 ? 0xffff0000ffffffffull : 0xffffffffull;
    }
    return h;
}

// The tag a hash leaves in a key slot: its high half (or 16 bits of it),
// never zero.
inline ub8 kv_tag_of(ub8 h, ub4 key_bytes, bool hash32) {
    ub8 t = hash32 ? (key_bytes == 2 ? (h >> 16) & 0xffff : h) : (key_bytes == 2 ? (h >> 32) & 0xffff : h >> 32);
    return t == 0 ? 1 : t;
}

inline void kv_set_tags(std::vector<KvRow> &rows, ub4 key_bytes, bool hash32) {
    for (KvRow &r : rows) {
        const ub8 t = kv_tag_of(r.hash, key_bytes, hash32);
        r.entry.key = {};
        std::memcpy(r.entry.key.data(), &t, key_bytes);
    }
}

template <class T>
void kv_put(std::vector<ub1> &v, std::size_t at, T x) {
    std::memcpy(v.data() + at, &x, sizeof x);
}

// The arrays of one input shape (named as the low-level members name it:
// "ridhash", "gd_hash32", "fixed_hash64_payload", ...) and the rows the
// model expects of them.  Column inputs fill every column, so a caller may
// attach values of its own choice (kv_take_values).
struct KvInput {
    std::vector<KvRow> rows;
    std::vector<ub1> records, slots, payload;
    std::vector<ub8> hashes64, pays;
    std::vector<ub4> hashes32, codes;
    ub8 base_rid = 0;
    ub4 record_bytes = 0;
};

inline bool kv_has(const std::string &s, const char *part) { return s.find(part) != std::string::npos; }

inline KvInput make_kv_input(const std::string &input, ub4 kind, ub8 n, std::mt19937_64 &rng, KvSkew skew) {
    const KvShape s = kv_shape(kind);
    const ub4 K = s.key_bytes, V = s.value_bytes;
    const bool hash32 = kv_has(input, "hash32") || kv_has(input, "cached");
    // Record layouts: {field offset of rid, code, key bytes, hash, payload}; -1 absent.
    struct Layout { const char *name; ub4 bytes; int rid, code, key, hash, pay; };
    static const Layout layouts[] = {
        {"ridhash", 16, 0, -1, -1, 8, -1},         {"ridgdhash", 24, 0, 8, -1, 16, -1},
        {"ridgdcachedhash", 16, -1, 0, -1, 4, 8},  {"gdhash", 16, -1, 0, -1, 8, -1},
        {"gdcachedhash", 8, -1, 0, -1, 4, -1},     {"ridfixedhash", 24, -1, -1, 0, 8, 16},
        {"fixedhash", 16, -1, -1, 0, 8, -1},
    };
    const Layout *rec = nullptr;
    for (const Layout &l : layouts)
        if (input == l.name) rec = &l;
    KvInput in;
    in.base_rid = rng() % 100000;
    in.record_bytes = rec ? rec->bytes : 0;
    in.records.assign(n * in.record_bytes + 8, 0);
    in.payload.assign(n * 8 + 8, 0);
    in.slots.assign(n * K + 16, 0);
    for (ub8 i = 0; i < n; ++i) {
        KvRow row;
        row.hash = kv_random_hash(rng, skew, hash32, K);
        // Keys: a tag, a code or K random bytes (few distinct ones, so that
        // equal keys meet in one chain).
        std::array<ub1, 12> bytes{};
        for (ub4 b = 0; b < K; ++b) bytes[b] = static_cast<ub1>(rng() % 4 == 0 ? rng() : b);
        const ub4 code = static_cast<ub4>(rng() % 1000);
        const ub8 rid = rng() >> (rng() % 2 ? 0 : 40), pay = rng();
        row.entry.key = bytes;
        if (kv_has(input, "ridhash") || kv_has(input, "hash32value")) {
            row.entry.key = {};
            const ub8 t = kv_tag_of(row.hash, K, hash32);
            std::memcpy(row.entry.key.data(), &t, K);
        } else if (kv_has(input, "gd")) {
            row.entry.key = {};
            std::memcpy(row.entry.key.data(), &code, 4);
        }
        ub8 value = 0;
        if (rec) {
            ub1 *r = in.records.data() + i * rec->bytes;
            if (rec->rid >= 0) kv_put<ub8>(in.records, i * rec->bytes + rec->rid, value = rid);
            if (rec->pay >= 0) kv_put<ub8>(in.records, i * rec->bytes + rec->pay, value = pay);
            if (rec->code >= 0) kv_put<ub4>(in.records, i * rec->bytes + rec->code, code);
            if (rec->key >= 0) std::memcpy(r + rec->key, bytes.data(), K);
            if (rec->hash >= 0 && hash32) kv_put<ub4>(in.records, i * rec->bytes + rec->hash, ub4(row.hash));
            if (rec->hash >= 0 && !hash32) kv_put<ub8>(in.records, i * rec->bytes + rec->hash, row.hash);
        } else {
            in.hashes64.push_back(row.hash);
            in.hashes32.push_back(static_cast<ub4>(row.hash));
            in.codes.push_back(code);
            in.pays.push_back(pay);
            std::memcpy(in.slots.data() + i * K, bytes.data(), K);
            if (V == 4) kv_put<ub4>(in.payload, i * 4, static_cast<ub4>(pay));
            else kv_put<ub8>(in.payload, i * 8, pay);
            if (kv_has(input, "payload")) value = pay;
            if (kv_has(input, "autorid")) value = in.base_rid + i;
        }
        row.entry.value = V == 4 ? value & 0xffffffffu : (V == 8 ? value : 0);
        in.rows.push_back(row);
    }
    in.hashes64.push_back(0);
    in.hashes32.push_back(0);
    in.codes.push_back(0);
    return in;
}

// Gives a column input's rows the values of its payload or row numbers.
inline void kv_take_values(KvInput &in, ub4 value_bytes, bool autorid) {
    for (ub8 i = 0; i < in.rows.size(); ++i) {
        const ub8 v = autorid ? in.base_rid + i : in.pays[i];
        in.rows[i].entry.value = value_bytes == 4 ? v & 0xffffffffu : (value_bytes == 8 ? v : 0);
    }
}

// Rows whose add needs a new overflow bucket, in order.
inline std::vector<ub8> kv_requesting_rows(const vorn_kv &kv, const std::vector<KvRow> &rows, sb8 segment) {
    const KvShape s = kv_shape(kv.flags & 0xff);
    const ub4 e = (kv.flags & VORN_KV_PTR) ? s.ptr_entries : s.idx_entries;
    const ub4 pb = kv.regions[0].page_bits;
    std::map<ub8, ub8> counts;
    std::vector<ub8> out;
    for (ub8 i = 0; i < rows.size(); ++i) {
        const ub8 h = rows[i].hash;
        const ub8 seg = segment >= 0 ? ub8(segment) : (h >> pb) & ((ub8{1} << kv.regions[0].segment_bits) - 1);
        ub8 &c = counts[seg << 32 | (h & 0xffffffffu & ((ub8{1} << pb) - 1))];
        if (c != 0 && c % e == 0) out.push_back(i);
        ++c;
    }
    return out;
}

// A walk of the built table against the model: the same chains, overflow
// buckets full, no primary bucket above its entries.
inline void expect_kv_table(const KvTable &t, const std::vector<KvRow> &rows, sb8 segment) {
    const KvWalk walk = walk_buckets(t);
    EXPECT_EQ(walk.overflow_not_full, 0u);
    EXPECT_EQ(walk.primary_overfull, 0u);
    const KvChains want = model_chains(t.kv, rows, segment);
    ASSERT_EQ(walk.chains.size(), want.size());
    for (const auto &[where, list] : want) {
        auto it = walk.chains.find(where);
        ASSERT_NE(it, walk.chains.end()) << "bucket " << where;
        EXPECT_TRUE(it->second == list) << "bucket " << where;
    }
}

// Calls `add(status)` (which returns {code, position}) until it returns 0.
// Each refusal stops at the row that asked for the refused unit, with
// status {1, page of the id tried}.  Returns the refusals.
template <class Add>
ub4 kv_add_through_refusals(const KvTable &t, const std::vector<ub8> &asking, Add add) {
    ub4 refusals = 0;
    for (;;) {
        ub8 status[2] = {77, 77};
        const auto [code, pos] = add(status);
        if (code == 0) return refusals;
        ++refusals;
        EXPECT_EQ(code, t.refusal_code);
        ub8 granted = 0;
        for (const auto &rq : t.log) granted += rq.refused ? 0 : 1;
        if (granted >= asking.size() || refusals > 100000) {
            ADD_FAILURE() << "a refusal with no row left to ask";
            return refusals;
        }
        EXPECT_EQ(pos, asking[granted]);
        EXPECT_EQ(status[0], 1u);
        EXPECT_EQ(status[1], t.log.back().id >> 12);
    }
}

}  // namespace vorntest
