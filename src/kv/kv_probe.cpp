// kv_probe.cpp - vorn_probe_kv_dydi: looks once at the table's kind, form
// and link and at the vectors, and hands the call to the one probe that
// fits: a low-level member straight from here (tag tables, key-only kinds
// with 64-bit hashes), or a vorn_kv_probe_* function named by kind and key
// source, which then picks its loop by the mode and the link.  Keys not
// yet in slot form are staged block by block into a stack buffer first,
// as the build stages them.
//
// Codes: 2 where no probe fits the table and the vectors (judged first),
// then 14 for a mode the table lacks, 15 when the output is full.  The
// vectors are described in kv_probe_call.h.
#include "kv/kv_probe_named.h"

namespace vorn::kv {

#define VORN_KV_TAKE_PROBE(kind, input, op)                                                     \
    if (name_has(#input, input_name) && name_has(input_name, #input)) {                         \
        auto &slot = t.fn[kind_number(#kind)][probe_op(#op)];                                   \
        slot[kLinkIdx] = &vorn_kv_ll_probe_##kind##_##input##_##op##_idx;                       \
        slot[kLinkPtr] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr;                       \
        slot[kLinkPrefetch] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr_prefetch;         \
    }
#define VORN_KV_TAKE_PROBE_PTR(kind, input, op)                                                 \
    if (name_has(#input, input_name) && name_has(input_name, #input)) {                         \
        auto &slot = t.fn[kind_number(#kind)][probe_op(#op)];                                   \
        slot[kLinkPtr] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr;                       \
        slot[kLinkPrefetch] = &vorn_kv_ll_probe_##kind##_##input##_##op##_ptr_prefetch;         \
    }
namespace {
constexpr ProbeTable probe_members(const char *input_name) {
    ProbeTable t;
    VORN_KV_PROBE_LINKED_MEMBERS(VORN_KV_TAKE_PROBE)
    VORN_KV_PROBE_MUTKV_MEMBERS(VORN_KV_TAKE_PROBE_PTR)
    return t;
}
}  // namespace
#undef VORN_KV_TAKE_PROBE
#undef VORN_KV_TAKE_PROBE_PTR

constexpr ProbeTable kHash64Value = probe_members("hash64value");
constexpr ProbeTable kHash32Value = probe_members("hash32value");
constexpr ProbeTable kFixedHash64 = probe_members("fixed_hash64");

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

namespace {

// Rows [first, first + n) with their key slots; *done the rows finished.
ub8 run_block(ProbeCall &p, ProbeFn fn, ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
    const ub4 hash_bytes = width_code(p.hash_vec) == kWidth32 ? 4 : 8;
    ub8 pos = 0;
    const ub8 code = fn(p.kv, n, static_cast<const ub1 *>(p.hash_vec->data) + first * hash_bytes, slots,
                        p.payload(first), p.base_rid(first), p.capacity(), p.rows_data(), p.values_data(), p.bv(),
                        p.bv_base(), &pos, &p.written, p.ctx, p.stats);
    *done = pos;
    return code;
}

// Keys staged into slots of Slot bytes block by block.
template <ub4 Slot>
ub8 run_staged(ProbeCall &p, ProbeFn fn, bool var_keys) {
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
        const ub8 code = run_block(p, fn, row, n, slots, &done);
        row += done;
        if (code != 0) {
            p.ctx->row_pos = static_cast<ub4>(row);
            return p.finish(code);
        }
    }
    p.ctx->row_pos = static_cast<ub4>(row);
    return p.finish(0);
}

}  // namespace

ub8 run_direct(ProbeCall &p, ProbeFn fn, const ub1 *slots, ub4 slot_bytes) {
    const ub8 first = p.ctx->row_pos;
    ub8 done = 0;
    const ub8 code =
        run_block(p, fn, first, p.hash_vec->size - first, slots != nullptr ? slots + first * slot_bytes : nullptr, &done);
    p.ctx->row_pos = static_cast<ub4>(first + done);
    return p.finish(code);
}

ub8 run_key_bytes(ProbeCall &p, ProbeFn fn, ub4 key_bytes) {
    const bool var_keys = has_flag(p.key_vec, VORN_LEN_PTR) || has_flag(p.key_vec, VORN_PTR_LEN);
    if (!var_keys && ((p.key_vec->enc_ctx->bit_width + 7) >> 3) == key_bytes) {
        return run_direct(p, fn, static_cast<const ub1 *>(p.key_vec->data), key_bytes);
    }
    switch (key_bytes) {
        case 4: return run_staged<4>(p, fn, var_keys);
        case 6: return run_staged<6>(p, fn, var_keys);
        case 8: return run_staged<8>(p, fn, var_keys);
        case 10: return run_staged<10>(p, fn, var_keys);
        case 12: return run_staged<12>(p, fn, var_keys);
        default: return 2;
    }
}

namespace {

// The key shape and hash width of a named probe, read from its source name.
constexpr KeyShape source_shape(const char *source) {
    return name_has(source, "lp") ? KeyShape::kStaged : name_has(source, "fixed") ? KeyShape::kFixed : KeyShape::kCodes;
}
constexpr HashWidth source_width(const char *source) {
    return name_has(source, "lp") ? HashWidth::kByColumn
           : (name_has(source, "hash32") || name_has(source, "gdhc")) ? HashWidth::k32
                                                                      : HashWidth::k64;
}

using EntryFn = decltype(&vorn_probe_kv_dydi);
// The named probes by kind and source; null where the kind has none.
struct NamedProbes {
    EntryFn gd_gd[16] = {}, gdhc_gd[16] = {}, lp_direct[16] = {}, lpsep_direct[16] = {}, hash64_fixed[16] = {},
            hash32_fixed[16] = {};
};
constexpr NamedProbes named_probes() {
    NamedProbes n;
#define VORN_KV_TAKE_NAMED(kind, source) n.source[kind_number(#kind)] = &vorn_kv_probe_##kind##_##source;
    VORN_KV_PROBE_SLOT_FUNCTIONS(VORN_KV_TAKE_NAMED)
#undef VORN_KV_TAKE_NAMED
    return n;
}
constexpr NamedProbes kNamed = named_probes();

// Key-only kinds with staged keys or fixed keys and 64-bit hashes run their
// low-level member straight from the entry.
template <ub4 Kind>
constexpr EntryFn key_only_slots(bool by_column) {
    return by_column ? &probe_slots<Kind, KeyShape::kStaged, HashWidth::kByColumn>
                     : &probe_slots<Kind, KeyShape::kFixed, HashWidth::k64>;
}
constexpr EntryFn key_only_probe(ub4 kind, bool staged) {
    switch (kind) {
        case VORN_KV_K4: return key_only_slots<VORN_KV_K4>(staged);
        case VORN_KV_K6: return key_only_slots<VORN_KV_K6>(staged);
        case VORN_KV_K8: return key_only_slots<VORN_KV_K8>(staged);
        case VORN_KV_K12: return key_only_slots<VORN_KV_K12>(staged);
        default: return nullptr;
    }
}

// The probe of a bucket table of forms 1 to 3 for these vectors, or null.
EntryFn choose_slot_probe(ub4 form, ub4 kind, const vorn_vec *hash_vec, const vorn_vec *key_vec) {
    const ub4 wc = width_code(hash_vec);
    const bool value_kind = kBucketKinds[kind].value_bytes != 0;
    if (form == VORN_KV_FORM_CODES) {
        if (!has_flag(key_vec, VORN_KEY32)) return nullptr;
        return wc == kWidth64 ? kNamed.gd_gd[kind] : wc == kWidth32 ? kNamed.gdhc_gd[kind] : nullptr;
    }
    if (key_vec == nullptr || key_vec->enc_ctx == nullptr) return nullptr;
    if (has_flag(key_vec, VORN_LEN_PTR) || has_flag(key_vec, VORN_PTR_LEN)) {
        if (!value_kind) return key_only_probe(kind, true);
        return has_flag(key_vec, VORN_LEN_PTR) ? kNamed.lp_direct[kind] : kNamed.lpsep_direct[kind];
    }
    if (!has_flag(key_vec, VORN_FIXED)) return nullptr;
    if (wc == kWidth32) return kNamed.hash32_fixed[kind];
    if (wc != kWidth64) return nullptr;
    return value_kind ? kNamed.hash64_fixed[kind] : key_only_probe(kind, false);
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

using namespace vorn::kv;

#define VORN_KV_DEFINE_NAMED(kind, source)                                                                        \
    VORN_KV_PROBE_ENTRY_SIGNATURE(vorn_kv_probe_##kind##_##source) {                                              \
        return probe_slots<kind_number(#kind), source_shape(#source), source_width(#source)>(                    \
            rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);                                 \
    }
VORN_KV_PROBE_SLOT_FUNCTIONS(VORN_KV_DEFINE_NAMED)
#undef VORN_KV_DEFINE_NAMED

ub8 vorn_probe_kv_dydi(vorn_vec *rows_out, vorn_vec *values_out, vorn_vec *hash_vec, vorn_vec *rows,
                       vorn_vec *key_vec, vorn_kv *kv, ub4 mode, vorn_kernel_ctx *ctx, ub8 *stats) {
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
    if (form > VORN_KV_FORM_COUNTS || hash_vec == nullptr || kind >= 16 || !kBucketKinds[kind].exists()) return 2;

    if (form == VORN_KV_FORM_TAGS) {
        // Tag tables have the one mode of every match.
        if (!has_flag(hash_vec, VORN_ALIGNED)) return 2;
        const ub4 wc = width_code(hash_vec);
        const ProbeTable *t = wc == kWidth64 ? &kHash64Value : wc == kWidth32 ? &kHash32Value : nullptr;
        if (t == nullptr || t->at(kind, probe_op("payload_value"), table_link(kv)) == nullptr) return 2;
        if (mode != 0) return 14;
        ProbeCall p{rows_out, values_out, hash_vec, rows, key_vec, kv, ctx, stats};
        const ProbeFn fn = t->at(kind, mode_op(0, true, p.autorid()), table_link(kv));
        if (ctx->row_pos >= hash_vec->size) return p.finish(0);
        return run_direct(p, fn, nullptr, 0);
    }
    const EntryFn fn = choose_slot_probe(form, kind, hash_vec, key_vec);
    if (fn == nullptr) return 2;
    return fn(rows_out, values_out, hash_vec, rows, key_vec, kv, mode, ctx, stats);
}

}  // extern "C"
