// kv_model.h - scalar models of the key-value tables and walks of a built
// table that read it back the way its format says, independently of the
// library's code.
#pragma once

#include <array>
#include <cstring>
#include <map>
#include <vector>

#include "support/kv_table.h"

namespace vorntest {

struct KvShape {
    ub4 key_bytes, value_bytes, idx_entries, ptr_entries, count_bits, idx_key, idx_value, ptr_key, ptr_value;
};
// The bucket format of each kind, written out as the format gives it.
inline KvShape kv_shape(ub4 kind) {
    static const KvShape shapes[16] = {
        {},
        {2, 4, 10, 9, 4, 4, 24, 10, 28}, {2, 8, 6, 5, 3, 4, 16, 10, 24}, {4, 0, 15, 13, 4, 4, 0, 12, 0},
        {4, 4, 7, 6, 3, 4, 32, 12, 36}, {4, 8, 5, 4, 3, 4, 24, 12, 32}, {6, 0, 10, 9, 4, 4, 0, 10, 0},
        {6, 4, 6, 5, 3, 4, 40, 10, 40}, {6, 8, 4, 3, 3, 4, 32, 10, 32}, {8, 0, 7, 6, 3, 8, 0, 16, 0},
        {8, 4, 5, 4, 3, 4, 44, 12, 44}, {8, 8, 3, 3, 2, 8, 32, 16, 40}, {10, 4, 4, 3, 3, 4, 44, 10, 40},
        {12, 0, 5, 4, 3, 4, 0, 12, 0}, {}, {12, 4, 3, 3, 2, 4, 40, 12, 48},
    };
    return shapes[kind];
}

struct KvEntry {
    std::array<ub1, 12> key{};
    ub8 value = 0;
    bool operator==(const KvEntry &o) const { return key == o.key && value == o.value; }
    bool operator<(const KvEntry &o) const { return key != o.key ? key < o.key : value < o.value; }
};

// A row as the model sees it: the hash that routes it and the entry it makes.
struct KvRow {
    ub8 hash;
    KvEntry entry;
};

// Chains by primary bucket (segment << 32 | bucket), entries in walk order:
// newest bucket first, entries of a bucket in arrival order.
using KvChains = std::map<ub8, std::vector<KvEntry>>;

inline KvChains model_chains(const vorn_kv &kv, const std::vector<KvRow> &rows, sb8 segment) {
    const ub4 kind = kv.flags & 0xff;
    const KvShape s = kv_shape(kind);
    const bool ptr = kv.flags & VORN_KV_PTR;
    const ub4 e = ptr ? s.ptr_entries : s.idx_entries;
    const ub4 pb = kv.regions[0].page_bits;
    std::map<ub8, std::vector<KvEntry>> arrivals;
    for (const KvRow &r : rows) {
        const ub8 bucket = (r.hash & 0xffffffffu) & ((ub8{1} << pb) - 1);
        const ub8 seg = segment >= 0 ? ub8(segment) : (r.hash >> pb) & ((ub8{1} << kv.regions[0].segment_bits) - 1);
        arrivals[seg << 32 | bucket].push_back(r.entry);
    }
    KvChains out;
    for (auto &[where, list] : arrivals) {
        std::vector<KvEntry> walk;
        const ub8 buckets = (list.size() + e - 1) / e;
        for (ub8 b = buckets; b-- > 0;) {
            for (ub8 i = b * e; i < std::min<ub8>(list.size(), (b + 1) * e); ++i) walk.push_back(list[i]);
        }
        out[where] = walk;
    }
    return out;
}

struct KvWalk {
    KvChains chains;
    ub8 overflow_buckets = 0;
    ub8 overflow_not_full = 0;
    ub8 primary_overfull = 0;
};

inline KvWalk walk_buckets(const KvTable &t) {
    const vorn_kv &kv = t.kv;
    const ub4 kind = kv.flags & 0xff;
    const KvShape s = kv_shape(kind);
    const bool ptr = kv.flags & VORN_KV_PTR;
    const ub4 e = ptr ? s.ptr_entries : s.idx_entries;
    const ub4 mask = (1u << s.count_bits) - 1;
    const ub4 key_at = ptr ? s.ptr_key : s.idx_key;
    const ub4 value_at = ptr ? s.ptr_value : s.idx_value;
    KvWalk w;
    const ub8 segments = ub8{1} << kv.regions[0].segment_bits;
    const ub8 buckets = ub8{1} << kv.regions[0].page_bits;
    for (ub8 seg = 0; seg < segments; ++seg) {
        for (ub8 b = 0; b < buckets; ++b) {
            const ub1 *bucket = kv.regions[0].pages[seg] + b * 64;
            std::vector<KvEntry> walk;
            bool primary = true;
            while (bucket != nullptr) {
                ub4 count;
                const ub1 *next = nullptr;
                if (ptr) {
                    ub8 a;
                    std::memcpy(&a, bucket, 8);
                    ub2 c;
                    std::memcpy(&c, bucket + 8, 2);
                    count = c & mask;
                    next = reinterpret_cast<const ub1 *>(a);
                } else {
                    ub4 h;
                    std::memcpy(&h, bucket, 4);
                    count = h & mask;
                    const ub4 link = h >> s.count_bits;
                    if (link != 0) next = t.unit(1, link - 1);
                }
                if (!primary) {
                    ++w.overflow_buckets;
                    if (count != e) ++w.overflow_not_full;
                } else if (count > e) {
                    ++w.primary_overfull;
                    count = e;
                }
                for (ub4 i = 0; i < count; ++i) {
                    KvEntry en;
                    std::memcpy(en.key.data(), bucket + key_at + i * s.key_bytes, s.key_bytes);
                    if (s.value_bytes) std::memcpy(&en.value, bucket + value_at + i * s.value_bytes, s.value_bytes);
                    walk.push_back(en);
                }
                primary = false;
                bucket = next;
            }
            if (!walk.empty()) w.chains[seg << 32 | b] = walk;
        }
    }
    return w;
}

// The output vectors of one probe call: `cap` rows in each array, the bit
// vector of modes 7, 10 and 11 and its base behind values.
struct ProbeOutputs {
    vorn_vec rows{}, values{};
    ProbeOutputs(ub8 *rows_out, void *values_out, ub8 cap, ub8 *bv, ub8 bv_base) {
        rows.data = rows_out;
        rows.size = static_cast<ub4>(cap);
        values.data = values_out;
        values.size = static_cast<ub4>(cap);
        values.res_bv = bv;
        values.base_rid = static_cast<ub4>(bv_base);
    }
};

}  // namespace vorntest
