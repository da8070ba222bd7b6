// kv_layout.cpp - sizing of key-value tables: how many pages each region
// needs, and which way a bucket table links its chains.
#include "frame/fail.h"
#include "kv/kv_entries.h"
#include "kv/kv_kinds.h"

namespace vorn::kv {
namespace {

// Number of bits needed to write x; 0 for 0.
constexpr ub4 bit_length(ub8 x) { return x == 0 ? 0 : 64 - __builtin_clzll(x); }

// Bits above `page_bits` needed for `units` units: never below 0.
constexpr ub1 extra_bits(ub8 units, ub4 page_bits) {
    const ub4 bits = units <= 1 ? 0 : bit_length(units - 1);
    return static_cast<ub1>(bits > page_bits ? bits - page_bits : 0);
}

void set_region(vorn_kv_region &r, ub4 page_count, ub1 segment_bits, ub1 page_bits, ub1 group_bits,
                ub2 unit_bits, ub2 entries, ub4 active) {
    r.page_count = page_count;
    r.segment_bits = segment_bits;
    r.page_bits = page_bits;
    r.group_bits = group_bits;
    r.unit_bits = unit_bits;
    r.entries = entries;
    r.active = active;
}

// Buckets wanted for `m` keys at `entries` a bucket, rounded up to a power
// of two no smaller than a page of 2^p buckets.
struct Sizing {
    ub8 buckets;   // 2^t; meaningless when too_big
    ub4 seg_bits;  // t - p
    bool too_big;  // 33 or more segment bits
};

Sizing size_for(ub8 m, ub4 entries, ub4 p, ub4 fill_min_units, ub4 fill_percent) {
    const ub8 b = (m + entries - 1) / entries;
    ub8 wanted;
    if (b < fill_min_units || fill_percent == 0) {
        wanted = 2 * b;
    } else {
        wanted = static_cast<ub8>(static_cast<double>(b) * (100.0 / static_cast<double>(fill_percent)));
    }
    const ub4 bits = wanted <= 1 ? 0 : bit_length(wanted - 1);
    const ub4 t = bits > p ? bits : p;
    const ub4 s = t - p;
    if (s >= 33) return {0, s, true};
    return {ub8{1} << t, s, false};
}

ub8 layout_buckets(ub8 distinct_estimate, ub8 row_count, ub4 *flags, ub4 idx_entries, ub4 ptr_entries,
                   ub4 count_bits, ub4 page_hint, vorn_kv *table, ub4 idx_min_units, ub4 fill_min_units,
                   ub4 fill_percent, ub4 force_ptr) {
    const ub4 p = page_hint < 12 ? 12 : page_hint - 6;
    const ub8 limit = (ub8{1} << (32 - count_bits)) - 1;
    const ub8 m = distinct_estimate < row_count ? distinct_estimate : row_count;
    *flags &= ~(VORN_KV_PTR | VORN_KV_PREFETCH);

    const Sizing ptr = size_for(m, ptr_entries, p, fill_min_units, fill_percent);
    const ub8 r_idx = (row_count + idx_entries - 1) / idx_entries;
    const ub8 r_ptr = (row_count + ptr_entries - 1) / ptr_entries;

    bool take_ptr;
    Sizing chosen = ptr;
    if (r_idx > limit || force_ptr != 0) {
        if (ptr.too_big) return 10;
        take_ptr = true;
    } else {
        const Sizing idx = size_for(m, idx_entries, p, fill_min_units, fill_percent);
        if (idx.too_big) {
            if (ptr.too_big) return 10;
            take_ptr = true;
        } else if (!ptr.too_big && (r_idx < idx_min_units || r_idx >= fill_min_units)) {
            take_ptr = true;
        } else {
            take_ptr = false;
            chosen = idx;
        }
    }

    const ub8 pages0 = (chosen.buckets + (ub8{1} << p) - 1) >> p;
    set_region(table->regions[0], static_cast<ub4>(pages0), static_cast<ub1>(chosen.seg_bits),
               static_cast<ub1>(p), 4, 512, static_cast<ub2>(take_ptr ? ptr_entries : idx_entries), 1);
    const ub8 r = take_ptr ? r_ptr : r_idx;
    set_region(table->regions[1], static_cast<ub4>((r + 4095) >> 12), extra_bits(r, 12), 12,
               take_ptr ? 0 : 4, 512, 0, 0);
    set_region(table->regions[2], 0, 0, 0, 0, 0, 0, 0);
    if (take_ptr) {
        *flags |= VORN_KV_PTR;
        if (r_ptr >= fill_min_units) *flags |= VORN_KV_PREFETCH;
    }
    return 0;
}

// Array tables are addressed by the key: n is the greatest key.
ub8 layout_arrays(ub4 form, ub4 kind, ub8 n, ub8 row_count, vorn_kv *table) {
    if (form == VORN_KV_FORM_RIDS) {
        const ub8 r17 = (n + (ub8{1} << 17)) & ~((ub8{1} << 17) - 1);
        const ub4 pages0 = static_cast<ub4>((r17 + (ub8{1} << 17) - 1) >> 17);
        if (kind == VORN_KV_K4V4) {
            set_region(table->regions[0], pages0, extra_bits(r17, 17), 17, 3, 34, 1, 1);
            set_region(table->regions[1], static_cast<ub4>((row_count + 16383) >> 14),
                       extra_bits(row_count, 14), 14, 0, 136, 0, 0);
            set_region(table->regions[2], static_cast<ub4>((row_count + 0x1ffff) >> 17),
                       extra_bits(row_count, 17), 17, 0, 16, 0, 0);
        } else {
            set_region(table->regions[0], pages0, extra_bits(r17, 17), 17, 4, 64, 1, 1);
            set_region(table->regions[1], static_cast<ub4>((row_count + 0x1ffff) >> 17),
                       extra_bits(row_count, 17), 17, 0, 64, 0, 0);
            set_region(table->regions[2], 0, 0, 0, 0, 0, 0, 0);
        }
        return 0;
    }
    const ub8 r18 = (n + (ub8{1} << 18)) & ~((ub8{1} << 18) - 1);
    set_region(table->regions[0], static_cast<ub4>((r18 + (ub8{1} << 18) - 1) >> 18), extra_bits(r18, 18),
               18, 16, 2, 1, 1);
    set_region(table->regions[1], static_cast<ub4>((n + (ub8{1} << 18)) >> 18), extra_bits(n + 1, 18), 18,
               0, 64, 0, 0);
    set_region(table->regions[2], 0, 0, 0, 0, 0, 0, 0);
    return 0;
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

ub8 vorn_kv_layout_bucketed(ub8 distinct_estimate, ub8 row_count, ub4 *flags, ub4 idx_entries,
                            ub4 ptr_entries, ub4 count_bits, ub4 page_hint, vorn_kv *table,
                            ub4 idx_min_units, ub4 fill_min_units, ub4 fill_percent, ub4 force_ptr) {
    return vorn::kv::layout_buckets(distinct_estimate, row_count, flags, idx_entries, ptr_entries,
                                    count_bits, page_hint, table, idx_min_units, fill_min_units,
                                    fill_percent, force_ptr);
}

ub8 vorn_layout_kv_dydi(ub8 distinct_estimate, ub8 row_count, ub4 *flags, vorn_kv *table, ub4 page_hint,
                        ub4 idx_min_units, ub4 fill_min_units, ub4 fill_percent, ub4 force_ptr) {
    using namespace vorn::kv;
    const ub4 kind = VORN_KV_KIND(*flags);
    const ub4 form = VORN_KV_FORM(*flags);
    if (form == VORN_KV_FORM_RIDS) {
        if (kind != VORN_KV_K4V4 && kind != VORN_KV_K4V8) return 24;
        return layout_arrays(form, kind, distinct_estimate, row_count, table);
    }
    if (form == VORN_KV_FORM_COUNTS) {
        if (kind != VORN_KV_K4) return 24;
        return layout_arrays(form, kind, distinct_estimate, row_count, table);
    }
    if (form > VORN_KV_FORM_COUNTS || kind > 15 || !bucket_kind(kind).exists()) return 24;
    const BucketKind &d = bucket_kind(kind);
    return vorn_kv_layout_bucketed(distinct_estimate, row_count, flags, d.entries[kIdx], d.entries[kPtr],
                                   d.count_bits, page_hint, table, idx_min_units, fill_min_units,
                                   fill_percent, force_ptr);
}

ub8 vorn_kv_num_segments(const vorn_kv *kv) { return ub8{1} << kv->regions[0].segment_bits; }

ub1 *vorn_map_segment(const vorn_kv *kv, sb8 segment_id) {
    if (segment_id < 0) return nullptr;
    VORN_ASSERT(0 == (segment_id & ~(sb8) (vorn_kv_num_segments(kv) - 1)), "vorn_map_segment");
    return kv->regions[0].pages[segment_id];
}

}  // extern "C"
