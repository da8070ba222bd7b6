// kv_build.h - what the build entry and the folded adds share: reading the
// value column, running a bucket loop with the table's link, and staging
// keys into slot form block by block.
#pragma once

#include "kv/kv_bucket_add.h"

namespace vorn::kv {

// Keys are brought to slot form in blocks that stay in the first-level
// cache; the buffer has two slots of slack behind a block.
inline constexpr ub4 kStageRows = 2048;
inline constexpr ub4 kStageSlots = 2050;
// Rows ahead whose key bytes are prefetched while staging.
inline constexpr ub4 kStageAhead = 24;

VORN_INLINE bool is_autorid(const vorn_vec *v) {
    return v != nullptr && v->enc_ctx != nullptr && VORN_ENC_CTX_FLAG(v->enc_ctx, VORN_AUTORID);
}
VORN_INLINE bool has_flag(const vorn_vec *v, ub4 flag) {
    return v != nullptr && v->enc_ctx != nullptr && VORN_ENC_CTX_FLAG(v->enc_ctx, flag);
}
VORN_INLINE ub4 width_code(const vorn_vec *v) { return v->enc_ctx != nullptr ? v->enc_ctx->width_code : 0; }
VORN_INLINE ub4 key_kind(const vorn_vec *v) {
    return v != nullptr && v->enc_ctx != nullptr ? VORN_KEY_KIND(v->enc_ctx->flags) : 0;
}
inline constexpr ub4 kWidth64 = 22;  // width code of a 64-bit hash column
inline constexpr ub4 kWidth32 = 21;  // and of a 32-bit one

// Rows *pos to rows - 1 with the table's link, chosen once.
template <ub4 K, class In>
ub8 add_linked(vorn_kv *kv, ub1 *segment_base, ub8 rows, const In &in, ub8 *pos, vorn_kv_grow_fn grow,
               ub8 *status) {
    return (kv->flags & VORN_KV_PTR) ? add_rows<K, kPtr>(kv, segment_base, rows, in, pos, grow, status)
                                     : add_rows<K, kIdx>(kv, segment_base, rows, in, pos, grow, status);
}

// The same from ctx->row_pos on.
template <ub4 K, class In>
ub8 run_links(vorn_kv *kv, ub1 *segment_base, ub8 rows, const In &in, vorn_kernel_ctx *ctx,
              vorn_kv_grow_fn grow, ub8 *status) {
    ub8 pos = ctx->row_pos;
    const ub8 code = add_linked<K>(kv, segment_base, rows, in, &pos, grow, status);
    ctx->row_pos = static_cast<ub4>(pos);
    return code;
}

// The same with the value column read as row numbers or as a payload
// array of the kind's value width.
template <ub4 K, bool Hash32, KeyFrom Key, ub4 KeyStride>
ub8 run_values(vorn_kv *kv, ub1 *segment_base, ub8 rows, const void *hashes, const ub1 *keys,
               const vorn_vec *val_vec, vorn_kernel_ctx *ctx, vorn_kv_grow_fn grow, ub8 *status) {
    constexpr ub4 V = kBucketKinds[K].value_bytes;
    if (is_autorid(val_vec)) {
        return run_links<K>(kv, segment_base, rows,
                            ArrayInput<Hash32, Key, kAutorid, V, KeyStride>{hashes, keys, nullptr, val_vec->base_rid},
                            ctx, grow, status);
    }
    return run_links<K>(kv, segment_base, rows,
                        ArrayInput<Hash32, Key, kPayload, V, KeyStride>{hashes, keys, val_vec->data, 0}, ctx,
                        grow, status);
}

// Stages rows [first, first + n) of a variable-length key column into
// cleared slots of Slot bytes.
template <ub4 Slot>
void stage_var_keys(ub1 *slots, const vorn_vec *key_vec, ub8 first, ub8 n) {
    const bool ptr_len = VORN_ENC_CTX_FLAG(key_vec->enc_ctx, VORN_PTR_LEN);
    const ub1 *data = static_cast<const ub1 *>(key_vec->data);
    const ub2 *lens = static_cast<const ub2 *>(key_vec->data2);
    const ub8 end = key_vec->size;
    for (ub8 i = 0; i < n; ++i) {
        const ub8 row = first + i;
        const ub8 ahead = row + kStageAhead;
        if (ptr_len) {
            if (ahead < end) prefetch_read(reinterpret_cast<const void *>(load<ub8>(data + ahead * 8)));
            write_slot<Slot>(slots + i * Slot, reinterpret_cast<const ub1 *>(load<ub8>(data + row * 8)), lens[row]);
        } else {
            if (ahead < end) prefetch_read(reinterpret_cast<const void *>(load<ub8>(data + ahead * 10 + 2)));
            write_slot<Slot>(slots + i * Slot, reinterpret_cast<const ub1 *>(load<ub8>(data + row * 10 + 2)),
                             load<ub2>(data + row * 10));
        }
    }
}

// Keys of a fixed-width column as slots of Slot bytes: the column itself
// when it has the slot's width, otherwise copied zero-extended into the
// cleared slots (a wider column stops at the copy's assertion).
template <ub4 Slot>
const ub1 *stage_fixed_keys(ub1 *slots, const vorn_vec *key_vec, ub8 first, ub8 n) {
    const ub8 w = (key_vec->enc_ctx->bit_width + 7) >> 3;
    const ub1 *src = static_cast<const ub1 *>(key_vec->data) + first * w;
    if (w == Slot) return src;
    vorn_fixed_array_copy(slots, src, n, w, Slot);
    return slots;
}

// Staged adds: blocks of up to kStageRows rows, each staged by `stage`
// (returns the slot array) and added by `add` (block start, rows, slots,
// &pos in the block).  Stops at the first non-zero return.
template <ub4 Slot, class Stage, class Add>
ub8 staged_blocks(ub8 rows, vorn_kernel_ctx *ctx, Stage stage, Add add) {
    // Cleared once: staging writes whole slots (variable keys) or the same
    // low bytes of every slot (narrower fixed keys), so the rest stays zero
    // from block to block.
    alignas(64) ub1 buffer[kStageSlots * Slot];
    std::memset(buffer, 0, sizeof buffer);
    ub8 row = ctx->row_pos;
    while (row < rows) {
        const ub8 n = rows - row < kStageRows ? rows - row : kStageRows;
        const ub1 *slots = stage(buffer, row, n);
        ub8 done = 0;
        const ub8 code = add(row, n, slots, &done);
        row += done;
        if (code != 0) {
            ctx->row_pos = static_cast<ub4>(row);
            return code;
        }
    }
    ctx->row_pos = static_cast<ub4>(row);
    return 0;
}

}  // namespace vorn::kv
