// kv_probe.cpp - vorn_probe_kv_dydi: looks once at the table's kind, form
// and link and at the vectors and the mode, picks the one probe member that
// fits, and runs it.  Keys not yet in slot form are staged block by block
// into a stack buffer first, as the build stages them.
//
// Where the outputs go:
// - rows_out->data: ub8 identities; values_out->data: values in the kind's
//   width.  The capacity is rows_out->size (values_out->size without
//   rows_out); on return that field holds the rows written by this call.
// - Count modes (1, 4, 6, 8, 10) write their total into that same size.
// - Modes 7, 10, 11: the bit vector is values_out->res_bv and its base
//   values_out->base_rid.
// - rows: VORN_AUTORID gives base_rid + row; otherwise ub8 identities in
//   data.  Absent: row numbers from 0.
#include <utility>

#include "kv/kv_build.h"
#include "kv/kv_probe.h"
#include "kv/kv_probe_entries.h"

namespace vorn::kv {
namespace {

using ProbeFn = decltype(&vorn_kv_ll_probe_k4v4_fixed_hash64_payload_value_idx);
enum : ub4 { kLinkIdx = 0, kLinkPtr = 1, kLinkPrefetch = 2 };

struct ProbeTable {
    ProbeFn fn[16][kProbeOps][3] = {};
    constexpr ProbeFn at(ub4 kind, ub4 op, ub4 link) const {
        return kind < 16 && op < kProbeOps ? fn[kind][op][link] : nullptr;
    }
};

constexpr bool same_text(const char *a, const char *b) {
    while (*a != 0 && *a == *b) ++a, ++b;
    return *a == *b;
}

#define VORN_KV_TAKE_PROBE(kind, input, op)                                                     \
    if (same_text(#input, input_name)) {                                                        \
        auto &slot = t.fn[kind_number(#kind)][probe_op(#op)];                                   \
        slot[kLinkIdx] = &vorn_kv_ll_probe_##kind##_##input##_##op##_idx;                       \
        slot[kLinkPtr] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr;                       \
        slot[kLinkPrefetch] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr_prefetch;         \
    }
#define VORN_KV_TAKE_PROBE_PTR(kind, input, op)                                                 \
    if (same_text(#input, input_name)) {                                                        \
        auto &slot = t.fn[kind_number(#kind)][probe_op(#op)];                                   \
        slot[kLinkPtr] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr;                       \
        slot[kLinkPrefetch] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr_prefetch;         \
    }

constexpr ProbeTable probe_members(const char *input_name) {
    ProbeTable t;
    VORN_KV_PROBE_LINKED_MEMBERS(VORN_KV_TAKE_PROBE)
    VORN_KV_PROBE_MUTKV_MEMBERS(VORN_KV_TAKE_PROBE_PTR)
    return t;
}
#undef VORN_KV_TAKE_PROBE
#undef VORN_KV_TAKE_PROBE_PTR

constexpr ProbeTable kHash64Value = probe_members("hash64value");
constexpr ProbeTable kHash32Value = probe_members("hash32value");
constexpr ProbeTable kFixedHash64 = probe_members("fixed_hash64");

// The loops that stand inline rather than as named members: 32-bit hashes
// over slots (fixed keys) and ub4 dictionary codes, which are 4-byte slots.
template <ub4 K, Link L, bool PF, ub4 Op>
ub8 inline_probe_hash32(const vorn_kv *kv, ub8 rows, const void *hashes, const ub1 *keys, const ub8 *payload,
                        ub8 base_rid, ub8 capacity, ub8 *rows_out, void *values_out, ub8 *bv, ub8 bv_base,
                        ub8 *row_reached, ub8 *out_count, vorn_kernel_ctx *ctx, ub8 *stats) {
    const ProbeIo io{hashes, keys, payload, base_rid, capacity, rows_out, values_out, bv, bv_base};
    return probe_rows<K, L, PF, true, kProbeSlot, Op>(kv, rows, io, row_reached, out_count, ctx, stats);
}
// Only the ops a mode can pick for the kind: value kinds write values or
// count, key-only kinds never touch values.
template <ub4 K, ub4 Op>
constexpr bool op_fits_kind() {
    constexpr ProbeOp o = probe_op_traits(Op);
    if (kBucketKinds[K].value_bytes == 0) return !(o.value || o.segbv || o.mutkv);
    return o.value || (o.count && !o.distinct && !o.nonmatch);
}
template <ub4 K, ub4 Op, ub4 LinkNo>
constexpr ProbeFn inline_member() {
    constexpr ProbeOp o = probe_op_traits(Op);
    if constexpr (!op_fits_kind<K, Op>() || (o.mutkv && LinkNo == kLinkIdx)) {
        return nullptr;
    } else {
        return &inline_probe_hash32<K, LinkNo == kLinkIdx ? kIdx : kPtr, LinkNo == kLinkPrefetch, Op>;
    }
}
template <ub4 K, ub4... Ops>
constexpr void take_inline(ProbeTable &t, std::integer_sequence<ub4, Ops...>) {
    ((t.fn[K][Ops][kLinkIdx] = inline_member<K, Ops, kLinkIdx>(),
      t.fn[K][Ops][kLinkPtr] = inline_member<K, Ops, kLinkPtr>(),
      t.fn[K][Ops][kLinkPrefetch] = inline_member<K, Ops, kLinkPrefetch>()),
     ...);
}
template <ub4... Kinds>
constexpr ProbeTable inline_members() {
    ProbeTable t;
    (take_inline<Kinds>(t, std::make_integer_sequence<ub4, kProbeOps>{}), ...);
    return t;
}
constexpr ProbeTable kFixedHash32 = inline_members<3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15>();

// The op of a mode for a table with or without values; kProbeOps: none.
ub4 mode_op(ub4 mode, bool value_kind, bool autorid) {
    const char *name = nullptr;
    switch (mode) {
        case 0: name = value_kind ? (autorid ? "autorid_value" : "payload_value") : (autorid ? "autorid" : "payload"); break;
        case 1: name = "count"; break;
        case 3: name = value_kind ? "value" : nullptr; break;
        case 4: name = value_kind ? nullptr : "count_distinct"; break;
        case 5:
            name = value_kind ? (autorid ? "distinct_autorid_value" : "distinct_payload_value")
                              : (autorid ? "distinct_autorid" : "distinct_payload");
            break;
        case 6: name = value_kind ? nullptr : "count_nonmatch"; break;
        case 7:
            name = value_kind ? (autorid ? "autorid_value_nonmatch" : "payload_value_nonmatch")
                              : (autorid ? "autorid_nonmatch" : "payload_nonmatch");
            break;
        case 8: name = value_kind ? "count_mutkv" : nullptr; break;
        case 9: name = value_kind ? (autorid ? "autorid_value_mutkv" : "payload_value_mutkv") : nullptr; break;
        case 10: name = value_kind ? "count_segbv" : nullptr; break;
        case 11: name = value_kind ? (autorid ? "autorid_value_segbv" : "payload_value_segbv") : nullptr; break;
        default: break;
    }
    return name != nullptr ? probe_op(name) : kProbeOps;
}

// One call: the vectors, the member, and the running output count.
struct Probe {
    vorn_vec *rows_out, *values_out, *hash_vec, *rows, *key_vec;
    const vorn_kv *kv;
    vorn_kernel_ctx *ctx;
    ub8 *stats;
    ProbeFn fn;
    ub8 written;

    vorn_vec *size_vec() const { return rows_out != nullptr ? rows_out : values_out; }
    // Rows [first, first + n) with their key slots; *done the rows finished.
    ub8 run(ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
        const bool autorid = rows == nullptr || is_autorid(rows);
        const ub8 *payload = autorid ? nullptr : static_cast<const ub8 *>(rows->data) + first;
        const ub8 base = autorid ? (rows != nullptr ? rows->base_rid : 0) + first : 0;
        const ub4 hash_bytes = width_code(hash_vec) == kWidth32 ? 4 : 8;
        const vorn_vec *sv = size_vec();
        const ub8 capacity = sv != nullptr ? sv->size : 0;
        ub8 pos = 0;
        const ub8 code =
            fn(kv, n, static_cast<const ub1 *>(hash_vec->data) + first * hash_bytes, slots, payload, base, capacity,
               rows_out != nullptr ? static_cast<ub8 *>(rows_out->data) : nullptr,
               values_out != nullptr ? values_out->data : nullptr, values_out != nullptr ? values_out->res_bv : nullptr,
               values_out != nullptr ? values_out->base_rid : 0, &pos, &written, ctx, stats);
        *done = pos;
        return code;
    }
    ub8 finish(ub8 code) {
        if (vorn_vec *sv = size_vec()) sv->size = static_cast<ub4>(written);
        return code;
    }
};

// Keys already in slot form (fixed columns of the slot's width, codes, or
// tags): the member runs once over all remaining rows.
ub8 run_direct(Probe &p, const ub1 *slots, ub4 slot_bytes) {
    const ub8 first = p.ctx->row_pos;
    ub8 done = 0;
    const ub8 code = p.run(first, p.hash_vec->size - first, slots != nullptr ? slots + first * slot_bytes : nullptr, &done);
    p.ctx->row_pos = static_cast<ub4>(first + done);
    return p.finish(code);
}

// Keys staged into slots of Slot bytes block by block.
template <ub4 Slot>
ub8 run_staged(Probe &p, bool var_keys) {
    alignas(64) ub1 buffer[kStageSlots * Slot];
    const ub8 rows = p.hash_vec->size;
    ub8 row = p.ctx->row_pos;
    while (row < rows) {
        const ub8 n = rows - row < kStageRows ? rows - row : kStageRows;
        std::memset(buffer, 0, n * Slot);
        const ub1 *slots = buffer;
        if (var_keys) stage_var_keys<Slot>(buffer, p.key_vec, row, n);
        else slots = stage_fixed_keys<Slot>(buffer, p.key_vec, row, n);
        ub8 done = 0;
        const ub8 code = p.run(row, n, slots, &done);
        row += done;
        if (code != 0) {
            p.ctx->row_pos = static_cast<ub4>(row);
            return p.finish(code);
        }
    }
    p.ctx->row_pos = static_cast<ub4>(row);
    return p.finish(0);
}

ub8 run_key_bytes(Probe &p, ub4 key_bytes) {
    const bool var_keys = has_flag(p.key_vec, VORN_LEN_PTR) || has_flag(p.key_vec, VORN_PTR_LEN);
    if (!var_keys && ((p.key_vec->enc_ctx->bit_width + 7) >> 3) == key_bytes) {
        return run_direct(p, static_cast<const ub1 *>(p.key_vec->data), key_bytes);
    }
    switch (key_bytes) {
        case 4: return run_staged<4>(p, var_keys);
        case 6: return run_staged<6>(p, var_keys);
        case 8: return run_staged<8>(p, var_keys);
        case 10: return run_staged<10>(p, var_keys);
        case 12: return run_staged<12>(p, var_keys);
        default: return 2;
    }
}

}  // namespace
}  // namespace vorn::kv

extern "C" ub8 vorn_probe_kv_dydi(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec, vorn_vec *rows,
                                  vorn_vec *key_vec, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 *stats) {
    using namespace vorn::kv;
    const ub4 kind = VORN_KV_KIND(kv->flags);
    const ub4 form = VORN_KV_FORM(kv->flags);
    if (form == VORN_KV_FORM_RIDS) {
        if (kind == VORN_KV_K4V4)
            return vorn_kv_probe_k4v4_gd_array_arid4(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
        if (kind == VORN_KV_K4V8)
            return vorn_kv_probe_k4v8_gd_array_arid8(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
        return 2;
    }
    if (form == VORN_KV_FORM_COUNTS) {
        if (kind == VORN_KV_K4)
            return vorn_kv_probe_k4_gd_array_acnt(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
        return 2;
    }
    if (form > VORN_KV_FORM_COUNTS || hash_vec == nullptr || kind >= 16) return 2;
    const BucketKind &d = kBucketKinds[kind];
    if (!d.exists()) return 2;
    const bool value_kind = d.value_bytes != 0;
    const bool autorid = rows == nullptr || is_autorid(rows);
    const ub4 link = (kv->flags & VORN_KV_PTR) == 0 ? kLinkIdx : (kv->flags & VORN_KV_PREFETCH) ? kLinkPrefetch : kLinkPtr;
    const ub4 wc = width_code(hash_vec);
    Probe p{rows_out, values_out, hash_vec, rows, key_vec, kv, ctx, stats, nullptr, 0};

    if (form == VORN_KV_FORM_TAGS) {
        if (!has_flag(hash_vec, VORN_ALIGNED)) return 2;
        const ProbeTable *t = wc == kWidth64 ? &kHash64Value : wc == kWidth32 ? &kHash32Value : nullptr;
        if (t == nullptr || t->at(kind, probe_op("payload_value"), link) == nullptr) return 2;
        if (mode != 0) return 14;
        p.fn = t->at(kind, mode_op(0, true, autorid), link);
        if (ctx->row_pos >= hash_vec->size) return p.finish(0);
        return run_direct(p, nullptr, 0);
    }
    if (mode > 11) return 14;
    const ub4 op = mode_op(mode, value_kind, autorid);
    if (op >= kProbeOps) return 14;
    if (form == VORN_KV_FORM_CODES) {
        if (!has_flag(key_vec, VORN_KEY32) || (kind != VORN_KV_K4 && kind != VORN_KV_K4V4 && kind != VORN_KV_K4V8))
            return 2;
        // Codes are the 4-byte slots of these kinds; both hash widths run inline.
        p.fn = wc == kWidth64 ? kFixedHash64.at(kind, op, link) : wc == kWidth32 ? kFixedHash32.at(kind, op, link) : nullptr;
        if (p.fn == nullptr) return 2;
        if (ctx->row_pos >= hash_vec->size) return p.finish(0);
        return run_direct(p, static_cast<const ub1 *>(key_vec->data), 4);
    }
    // Forms 1 and 3: keys in slots.
    if (key_vec == nullptr || key_vec->enc_ctx == nullptr) return 2;
    const bool var_keys = has_flag(key_vec, VORN_LEN_PTR) || has_flag(key_vec, VORN_PTR_LEN);
    if (!var_keys && !has_flag(key_vec, VORN_FIXED)) return 2;
    p.fn = wc == kWidth64 ? kFixedHash64.at(kind, op, link) : wc == kWidth32 ? kFixedHash32.at(kind, op, link) : nullptr;
    if (p.fn == nullptr) return 2;
    if (ctx->row_pos >= hash_vec->size) return p.finish(0);
    return run_key_bytes(p, d.key_bytes);
}
