// kv_create_add.cpp - vorn_create_add_kv_dydi: looks once at the table's
// kind and form and at the input vectors, picks the one member that fits,
// and runs it.  Keys that are not yet in slot form are staged block by
// block into a stack buffer first.
#include "frame/fail.h"
#include "kv/kv_build.h"
#include "kv/kv_member_tables.h"

namespace vorn::kv {
namespace {

using RecordsFn = decltype(&vorn_kv_ll_add_k2v4_ridhash_idx);
using Hash32PayloadFn = decltype(&vorn_kv_ll_add_k4v4_hash32value_payload_idx);
using Hash32AutoridFn = decltype(&vorn_kv_ll_add_k4v4_hash32value_autorid_idx);
using GdHash64Fn = decltype(&vorn_kv_ll_add_k4_gd_hash64_idx);
using GdHash32Fn = decltype(&vorn_kv_ll_add_k4_gd_hash32_idx);
using SlotPayloadFn = decltype(&vorn_kv_ll_add_k4v4_fixed_hash64_payload_idx);
using SlotAutoridFn = decltype(&vorn_kv_ll_add_k4v4_fixed_hash64_autorid_idx);
using Slot64Fn = decltype(&vorn_kv_ll_add_k4_fixed_hash64_idx);
using Slot32Fn = decltype(&vorn_kv_ll_add_k4_fixed_hash32_idx);

constexpr auto kRidhash = ll_members<RecordsFn>("ridhash");
constexpr auto kHash32Payload = ll_members<Hash32PayloadFn>("hash32value_payload");
constexpr auto kHash32Autorid = ll_members<Hash32AutoridFn>("hash32value_autorid");
constexpr auto kGdhash = ll_members<RecordsFn>("gdhash");
constexpr auto kGdcachedhash = ll_members<RecordsFn>("gdcachedhash");
constexpr auto kRidgdhash = ll_members<RecordsFn>("ridgdhash");
constexpr auto kRidgdcachedhash = ll_members<RecordsFn>("ridgdcachedhash");
constexpr auto kGdHash64 = ll_members<GdHash64Fn>("gd_hash64");
constexpr auto kGdHash32 = ll_members<GdHash32Fn>("gd_hash32");
constexpr auto kFixedhash = ll_members<RecordsFn>("fixedhash");
constexpr auto kRidfixedhash = ll_members<RecordsFn>("ridfixedhash");
constexpr auto kSlotPayload = ll_members<SlotPayloadFn>("fixed_hash64_payload");
constexpr auto kSlotAutorid = ll_members<SlotAutoridFn>("fixed_hash64_autorid");
constexpr auto kSlot64 = ll_members<Slot64Fn>("fixed_hash64");
constexpr auto kSlot32 = ll_members<Slot32Fn>("fixed_hash32");
constexpr auto kHash64ValuesHash = add_members("hash64_values_hash");
constexpr auto kHash32ValuesHash = add_members("hash32_values_hash");
constexpr auto kGdGd = add_members("gd_gd");
constexpr auto kGdhcGd = add_members("gdhc_gd");
constexpr auto kHash32Fixed = add_members("hash32_fixed");
constexpr auto kLphashDirect = add_members("lphash_direct");
constexpr auto kRidlphashDirect = add_members("ridlphash_direct");

// One call of the build: the arguments and the choices made so far.
struct Call {
    vorn_kv *kv;
    vorn_vec *hash_vec;
    vorn_vec *val_vec;
    vorn_vec *key_vec;
    sb8 segment_id;
    vorn_kernel_ctx *ctx;
    vorn_kv_grow_fn grow;
    ub8 *status;
    ub4 kind;
    bool ptr;
    ub4 key_kind;

    ub8 folded(vorn_create_add_kv_fn fn) const {
        return fn(kv, hash_vec, val_vec, key_vec, segment_id, ctx, grow, status);
    }
    // A low-level member over the whole input, from row_pos on.
    template <class Fn, class... Arrays>
    ub8 low_level(Fn fn, ub8 rows, Arrays... arrays) const {
        ub8 pos = ctx->row_pos;
        const ub8 code = fn(kv, vorn_map_segment(kv, segment_id), rows, arrays..., &pos, grow, status);
        ctx->row_pos = static_cast<ub4>(pos);
        return code;
    }
    template <class Fn, class... Arrays>
    ub8 array_member(Fn fn, ub8 rows, Arrays... arrays) const {
        ub8 pos = ctx->row_pos;
        const ub8 code = fn(kv, rows, arrays..., &pos, grow, status);
        ctx->row_pos = static_cast<ub4>(pos);
        return code;
    }
    const ub4 *hashes32() const { return static_cast<const ub4 *>(hash_vec->data); }
    const ub8 *hashes64() const { return static_cast<const ub8 *>(hash_vec->data); }
    bool value_kind() const { return kBucketKinds[kind].value_bytes != 0; }
    bool kind_is(std::initializer_list<ub4> kinds) const {
        for (ub4 k : kinds) if (k == kind) return true;
        return false;
    }
};

// Staged adds into a fixed_hash64 or fixed_hash32 member with slots of K
// bytes: keys of a variable layout or of a fixed-width column.
template <ub4 K>
ub8 stage_and_add(const Call &c, bool var_keys, bool hash32) {
    const vorn_vec *key_vec = c.key_vec;
    auto stage = [&](ub1 *slots, ub8 first, ub8 n) -> const ub1 * {
        if (var_keys) {
            stage_var_keys<K>(slots, key_vec, first, n);
            return slots;
        }
        return stage_fixed_keys<K>(slots, key_vec, first, n);
    };
    ub1 *segment = vorn_map_segment(c.kv, c.segment_id);
    const ub8 rows = c.hash_vec->size;
    const ub4 value_bytes = kBucketKinds[c.kind].value_bytes;
    if (value_bytes != 0 && c.val_vec == nullptr) return 2;
    if (value_bytes == 0) {
        if (hash32) {
            const Slot32Fn fn = kSlot32.at(c.kind, c.ptr);
            if (fn == nullptr) return 2;
            return staged_blocks<K>(rows, c.ctx, stage, [&](ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
                return fn(c.kv, segment, n, slots, c.hashes32() + first, done, c.grow, c.status);
            });
        }
        const Slot64Fn fn = kSlot64.at(c.kind, c.ptr);
        if (fn == nullptr) return 2;
        return staged_blocks<K>(rows, c.ctx, stage, [&](ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
            return fn(c.kv, segment, n, slots, c.hashes64() + first, done, c.grow, c.status);
        });
    }
    if (is_autorid(c.val_vec)) {
        const SlotAutoridFn fn = kSlotAutorid.at(c.kind, c.ptr);
        if (fn == nullptr) return 2;
        const ub8 base = c.val_vec->base_rid;
        return staged_blocks<K>(rows, c.ctx, stage, [&](ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
            return fn(c.kv, segment, n, slots, c.hashes64() + first, base + first, done, c.grow, c.status);
        });
    }
    const SlotPayloadFn fn = kSlotPayload.at(c.kind, c.ptr);
    if (fn == nullptr) return 2;
    const ub1 *payload = static_cast<const ub1 *>(c.val_vec->data);
    return staged_blocks<K>(rows, c.ctx, stage, [&](ub8 first, ub8 n, const ub1 *slots, ub8 *done) {
        return fn(c.kv, segment, n, slots, c.hashes64() + first, payload + first * value_bytes, done, c.grow,
                  c.status);
    });
}

ub8 staged(const Call &c, bool var_keys, bool hash32) {
    switch (kBucketKinds[c.kind].key_bytes) {
        case 4: return stage_and_add<4>(c, var_keys, hash32);
        case 6: return stage_and_add<6>(c, var_keys, hash32);
        case 8: return stage_and_add<8>(c, var_keys, hash32);
        case 10: return stage_and_add<10>(c, var_keys, hash32);
        case 12: return stage_and_add<12>(c, var_keys, hash32);
        default: return 2;
    }
}

// Keys from key_vec: variable layouts and fixed-width columns.
ub8 form_key_bytes(const Call &c) {
    if (c.key_vec == nullptr || c.key_vec->enc_ctx == nullptr) return 2;
    if (has_flag(c.key_vec, VORN_LEN_PTR) || has_flag(c.key_vec, VORN_PTR_LEN)) return staged(c, true, false);
    if (!has_flag(c.key_vec, VORN_FIXED)) return 2;
    const ub4 wc = width_code(c.hash_vec);
    if (wc == kWidth64) return staged(c, false, false);
    if (wc == kWidth32) {
        if (!c.value_kind()) return staged(c, false, true);
        if (const auto fn = kHash32Fixed.at(c.kind, false)) return c.folded(fn);
    }
    return 2;
}

ub8 form_tags(const Call &c) {
    if (c.key_kind == 0x21) {
        if (const RecordsFn fn = kRidhash.at(c.kind, c.ptr)) return c.low_level(fn, c.hash_vec->size, c.hash_vec->data);
    }
    if (!has_flag(c.hash_vec, VORN_ALIGNED)) return 2;
    const ub4 wc = width_code(c.hash_vec);
    if (wc == kWidth64) {
        if (const auto fn = kHash64ValuesHash.at(c.kind, false)) return c.folded(fn);
        return 2;
    }
    if (wc == kWidth32) {
        if (const auto fn = kHash32ValuesHash.at(c.kind, false)) return c.folded(fn);
        if (c.val_vec == nullptr) return 2;
        if (is_autorid(c.val_vec)) {
            if (const auto fn = kHash32Autorid.at(c.kind, c.ptr))
                return c.low_level(fn, c.hash_vec->size, c.hashes32(), static_cast<ub8>(c.val_vec->base_rid));
        } else if (const auto fn = kHash32Payload.at(c.kind, c.ptr)) {
            return c.low_level(fn, c.hash_vec->size, c.hashes32(), static_cast<const void *>(c.val_vec->data));
        }
    }
    return 2;
}

ub8 form_records(const Call &c) {
    if (c.key_vec != nullptr && c.key_vec->enc_ctx != nullptr) {
        const ub4 bits = c.key_vec->enc_ctx->bit_width;
        if (c.kv->key_bits == 0) {
            c.kv->key_bits = bits;
        } else if (c.kv->key_bits != bits) {
            return 2;
        }
    }
    if (c.key_kind == 0x24) {
        if (const RecordsFn fn = kFixedhash.at(c.kind, c.ptr)) return c.low_level(fn, c.hash_vec->size, c.hash_vec->data);
    }
    if (c.key_kind == 0x25) {
        if (const RecordsFn fn = kRidfixedhash.at(c.kind, c.ptr))
            return c.low_level(fn, c.hash_vec->size, c.hash_vec->data);
    }
    return form_key_bytes(c);
}

ub8 form_codes(const Call &c) {
    const KindTable<RecordsFn> *records = nullptr;
    switch (c.key_kind) {
        case 0x22: records = &kGdhash; break;
        case 0x12: records = &kGdcachedhash; break;
        case 0x23: records = &kRidgdhash; break;
        case 0x13: records = &kRidgdcachedhash; break;
        default: break;
    }
    if (records != nullptr) {
        if (const RecordsFn fn = records->at(c.kind, c.ptr)) return c.low_level(fn, c.hash_vec->size, c.hash_vec->data);
    }
    if (!has_flag(c.key_vec, VORN_KEY32)) return 2;
    const ub4 wc = width_code(c.hash_vec);
    const ub4 *codes = static_cast<const ub4 *>(c.key_vec->data);
    if (c.kind == VORN_KV_K4) {
        if (wc == kWidth64) return c.low_level(kGdHash64.at(c.kind, c.ptr), c.hash_vec->size, codes, c.hashes64());
        if (wc == kWidth32) return c.low_level(kGdHash32.at(c.kind, c.ptr), c.hash_vec->size, codes, c.hashes32());
        return 2;
    }
    if (wc == kWidth64) {
        if (const auto fn = kGdGd.at(c.kind, false)) return c.folded(fn);
    } else if (wc == kWidth32) {
        if (const auto fn = kGdhcGd.at(c.kind, false)) return c.folded(fn);
    }
    return 2;
}

ub8 form_keys(const Call &c) {
    if (c.key_kind == 0x28) {
        if (const auto fn = kLphashDirect.at(c.kind, false)) return c.folded(fn);
    }
    if (c.key_kind == 0x29) {
        if (const auto fn = kRidlphashDirect.at(c.kind, false)) return c.folded(fn);
    }
    return form_key_bytes(c);
}

ub8 form_rids(const Call &c) {
    if (c.key_kind == 0x03) {
        if (c.kind == VORN_KV_K4V4) return c.array_member(vorn_kv_ll_add_k4v4_ridgd_arid4, c.hash_vec->size, c.hash_vec->data);
        if (c.kind == VORN_KV_K4V8) return c.array_member(vorn_kv_ll_add_k4v8_ridgd_arid8, c.hash_vec->size, c.hash_vec->data);
    }
    if (!has_flag(c.key_vec, VORN_KEY32)) return 2;
    const ub4 *keys = static_cast<const ub4 *>(c.key_vec->data);
    const ub8 rows = c.key_vec->size;
    if (c.val_vec == nullptr) return 2;
    const bool autorid = is_autorid(c.val_vec);
    if (c.kind == VORN_KV_K4V4) {
        if (autorid) return c.array_member(vorn_kv_ll_add_k4v4_key32_autorid_arid4, rows, keys, static_cast<ub8>(c.val_vec->base_rid));
        return c.array_member(vorn_kv_ll_add_k4v4_key32_payload_arid4, rows, keys, static_cast<const void *>(c.val_vec->data));
    }
    if (c.kind == VORN_KV_K4V8) {
        if (autorid) return c.array_member(vorn_kv_ll_add_k4v8_key32_autorid_arid8, rows, keys, static_cast<ub8>(c.val_vec->base_rid));
        return c.array_member(vorn_kv_ll_add_k4v8_key32_payload_arid8, rows, keys, static_cast<const void *>(c.val_vec->data));
    }
    return 2;
}

ub8 form_counts(const Call &c) {
    if (!has_flag(c.key_vec, VORN_KEY32) || c.kind != VORN_KV_K4) return 2;
    return c.array_member(vorn_kv_ll_add_k4_key32_acnt, c.key_vec->size, static_cast<const ub4 *>(c.key_vec->data));
}

}  // namespace
}  // namespace vorn::kv

extern "C" {

void vorn_fixed_array_copy(ub1 *dest, const ub1 *src, ub8 rows, ub8 src_elem_bytes, ub8 DEST_ELEM_BYTES) {
    VORN_ASSERT(src_elem_bytes < DEST_ELEM_BYTES, "vorn_fixed_array_copy");
    if (src_elem_bytes == 3 && DEST_ELEM_BYTES == 4) {
        for (ub8 i = 0; i < rows; ++i) {
            vorn::store<ub2>(dest + i * 4, vorn::load<ub2>(src + i * 3));
            dest[i * 4 + 2] = src[i * 3 + 2];
        }
        return;
    }
    for (ub8 i = 0; i < rows; ++i) {
        vorn::fast_copy(dest + i * DEST_ELEM_BYTES, src + i * src_elem_bytes, src_elem_bytes);
    }
}

ub8 vorn_create_add_kv_dydi(vorn_kv *kv, vorn_vec *hash_vec, vorn_vec *val_vec, vorn_vec *key_vec,
                            sb8 segment_id, vorn_kernel_ctx *ctx, vorn_kv_grow_fn grow, ub8 *status) {
    using namespace vorn::kv;
    const vorn_vec *rows_vec = hash_vec != nullptr ? hash_vec : key_vec;
    if (rows_vec == nullptr) return 2;
    if (ctx->row_pos >= rows_vec->size) return 0;
    const Call c{kv,     hash_vec, val_vec, key_vec, segment_id, ctx, grow, status, VORN_KV_KIND(kv->flags),
                 (kv->flags & VORN_KV_PTR) != 0, key_kind(hash_vec)};
    if (c.kind >= 16 || (VORN_KV_FORM(kv->flags) < VORN_KV_FORM_RIDS && !kBucketKinds[c.kind].exists())) return 2;
    switch (VORN_KV_FORM(kv->flags)) {
        case VORN_KV_FORM_TAGS: return hash_vec != nullptr ? form_tags(c) : 2;
        case VORN_KV_FORM_RECORDS: return hash_vec != nullptr ? form_records(c) : 2;
        case VORN_KV_FORM_CODES: return hash_vec != nullptr ? form_codes(c) : 2;
        case VORN_KV_FORM_KEYS: return hash_vec != nullptr ? form_keys(c) : 2;
        case VORN_KV_FORM_RIDS: return form_rids(c);
        case VORN_KV_FORM_COUNTS: return form_counts(c);
        default: return 2;
    }
}

}  // extern "C"
