// kv_scan.cpp - vorn_mut_kv_scan_dydi and vorn_kv_scan_<kind>: a walk of
// every chain of a `ptr` table after marking probes, giving the values (or
// the number) of the entries that found a partner, or of those that did
// not.  Each entry's matched flag is bit first_matched_bit + i of the word
// at byte 8; for the unmatched modes the word is inverted first, so one
// test serves both.
//
// Resumption: ctx->stop_row is the segment, ctx->byte_pos the bucket in it
// and ctx->payload_byte_pos the links already walked in that chain.  Output
// room is tested before each bucket for all of its entries (the counting
// modes too), so a capacity below `entries` returns 16 at once.
#include "kv/kv_kinds.h"
#include "kv/kv_bucket_add.h"
#include "kv/kv_probe_entries.h"

namespace vorn::kv {
namespace {

template <ub4 K, bool Prefetch>
ub8 scan_kind(vorn_vec *out, const vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 num_segments) {
    constexpr BucketKind D = kBucketKinds[K];
    constexpr ub4 E = D.entries[kPtr];
    constexpr ub4 VB = D.value_bytes;
    const bool counting = mode == 2 || mode == 4;
    const ub8 invert = mode >= 3 ? ~ub8{0} : 0;
    const ub8 capacity = out->size;
    ub1 *dst = static_cast<ub1 *>(out->data);
    const vorn_kv_region &r0 = kv->regions[0];
    const ub8 buckets = ub8{1} << r0.page_bits;
    ub8 n = 0;
    ub8 seg = ctx->stop_row;
    ub8 bucket = ctx->byte_pos;
    ub8 skip = ctx->payload_byte_pos;

    // One chain from its primary bucket; false when the output is full.
    auto walk = [&](const ub1 *b) -> bool {
        ub8 depth = 0;
        for (; depth < skip && b != nullptr; ++depth) b = reinterpret_cast<const ub1 *>(load<ub8>(b));
        skip = 0;
        while (b != nullptr) {
            if (n + E > capacity) {
                ctx->stop_row = static_cast<ub4>(seg);
                ctx->byte_pos = bucket;
                ctx->payload_byte_pos = depth;
                return false;
            }
            const ub8 word = load<ub8>(b + 8);
            const ub4 count = static_cast<ub4>(word) & D.count_mask();
            const ub8 flags = (word ^ invert) >> D.first_matched_bit();
            for (ub4 e = 0; e < count; ++e) {
                if (((flags >> e) & 1) == 0) continue;
                if (!counting) {
                    if constexpr (VB == 4) store<ub4>(dst + n * 4, load<ub4>(b + D.value_offset(kPtr, e)));
                    else store<ub8>(dst + n * 8, load<ub8>(b + D.value_offset(kPtr, e)));
                }
                ++n;
            }
            b = reinterpret_cast<const ub1 *>(load<ub8>(b));
            ++depth;
        }
        return true;
    };

    for (; seg < num_segments; ++seg, bucket = 0) {
        const ub1 *page = r0.pages[seg];
        if constexpr (Prefetch) {
            // Primary lines of a batch ahead, then their first overflow links.
            for (; bucket < buckets;) {
                const ub8 end = bucket + kBatch < buckets ? bucket + kBatch : buckets;
                for (ub8 j = bucket; j < end; ++j) prefetch_read(page + (j << kBucketShift));
                for (ub8 j = bucket; j < end; ++j)
                    if (const ub1 *nb = reinterpret_cast<const ub1 *>(load<ub8>(page + (j << kBucketShift)))) prefetch_read(nb);
                for (; bucket < end; ++bucket)
                    if (!walk(page + (bucket << kBucketShift))) goto full;
            }
        } else {
            for (; bucket < buckets; ++bucket)
                if (!walk(page + (bucket << kBucketShift))) goto full;
        }
    }
    ctx->stop_row = static_cast<ub4>(num_segments);
    ctx->byte_pos = 0;
    ctx->payload_byte_pos = 0;
    out->size = static_cast<ub4>(n);
    return 0;
full:
    out->size = static_cast<ub4>(n);
    return 16;
}

template <ub4 K>
ub8 scan(vorn_vec *out, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 num_segments) {
    if (kv->flags & VORN_KV_PREFETCH) return scan_kind<K, true>(out, kv, mode, ctx, num_segments);
    return scan_kind<K, false>(out, kv, mode, ctx, num_segments);
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

#define VORN_KV_SCAN_KINDS(M) M(k4v4) M(k4v8) M(k6v4) M(k6v8) M(k8v4) M(k8v8) M(k10v4) M(k12v4)
#define VORN_KV_SCAN_DEFINE(kind)                                                                         \
    VORN_INTERNAL ub8 vorn_kv_scan_##kind(vorn_vec *out, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx,     \
                                          ub8 num_segments) {                                             \
        return vorn::kv::scan<vorn::kv::kind_number(#kind)>(out, kv, mode, ctx, num_segments);            \
    }
VORN_KV_SCAN_KINDS(VORN_KV_SCAN_DEFINE)

ub8 vorn_mut_kv_scan_dydi(vorn_vec *out, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 num_segments) {
    using ScanFn = ub8 (*)(vorn_vec *, vorn_kv *, ub4, vorn_kernel_ctx *, ub8);
    static constexpr auto kScans = [] {
        struct Table { ScanFn fn[16] = {}; } t;
#define VORN_KV_SCAN_TAKE(kind) t.fn[vorn::kv::kind_number(#kind)] = &vorn_kv_scan_##kind;
        VORN_KV_SCAN_KINDS(VORN_KV_SCAN_TAKE)
#undef VORN_KV_SCAN_TAKE
        return t;
    }();
    const ub4 kind = VORN_KV_KIND(kv->flags);
    if (kind >= 16 || kScans.fn[kind] == nullptr || VORN_KV_FORM(kv->flags) >= VORN_KV_FORM_RIDS) return 2;
    if ((kv->flags & VORN_KV_PTR) == 0) return 3;
    if (mode < 1 || mode > 4) return 14;
    return kScans.fn[kind](out, kv, mode, ctx, num_segments);
}

}  // extern "C"
