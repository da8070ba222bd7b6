// partition_records.h - the record shapes that vorn_partition_dydi writes.
// Each writer knows its size (kSize, or 0 for a size per row) and how to
// write row `row` with hash h; it never writes the bytes that a shape
// leaves as they were.  All fields are little-endian, records
// packed end to end.
#pragma once

#include <emmintrin.h>

#include <type_traits>

#include "kv/partition_loop.h"

namespace vorn::part {

// {hash}
struct HashRecord : NoPayloadWalk {
    static constexpr ub8 kSize = 8;
    explicit HashRecord(const vorn_vec *, const vorn_vec *) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    VORN_INLINE void write(ub1 *d, ub8, ub8 h) const { store<ub8>(d, h); }
};

// {row id, hash}
template <class Rids>
struct RidHashRecord : NoPayloadWalk {
    static constexpr ub8 kSize = 16;
    Rids rids;
    RidHashRecord(const vorn_vec *rid_col, const vorn_vec *) : rids(rid_col) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    // One 16-byte store per record: half the stores of two 8-byte ones.
    VORN_INLINE void write(ub1 *d, ub8 row, ub8 h) const {
        const __m128i rid = _mm_cvtsi64_si128(static_cast<long long>(rids.at(row)));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d),
                         _mm_unpacklo_epi64(rid, _mm_cvtsi64_si128(static_cast<long long>(h))));
    }
};

// The row ids of a shape that may carry them: Rids, or none for void.
// Without row ids nothing reads `rids`; it is built from the other column
// only so that every shape has one constructor.
template <class Rids>
struct MaybeRids : NoPayloadWalk {
    static constexpr bool kRid = !std::is_void_v<Rids>;
    std::conditional_t<kRid, Rids, AutoRids> rids;
    MaybeRids(const vorn_vec *rid_col, const vorn_vec *other) : rids(kRid ? rid_col : other) {}
};

// {payload as ub8, hash} and {payload, hash, row id}: a payload of 4 or 8
// bytes, read in the machine's order and widened.
template <class P, class Rids>
struct PayloadHashRecord : MaybeRids<Rids> {
    using MaybeRids<Rids>::kRid, MaybeRids<Rids>::rids;
    static constexpr ub8 kSize = kRid ? 24 : 16;
    const ub1 *payload;
    PayloadHashRecord(const vorn_vec *rid_col, const vorn_vec *payload_col)
        : MaybeRids<Rids>(rid_col, payload_col), payload(layout::bytes_of(payload_col->data)) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    VORN_INLINE void write(ub1 *d, ub8 row, ub8 h) const {
        store<ub8>(d, static_cast<ub8>(load<P>(payload + sizeof(P) * row)));
        store<ub8>(d + 8, h);
        if constexpr (kRid) store<ub8>(d + 16, rids.at(row));
    }
};

// A ub4 value beside a hash of H (ub4 or ub8), with or without a row id:
//   ub8 hash:  [rid] value ub4, 4 unwritten, hash ub8
//   ub4 hash:  value ub4, hash ub4 [rid]
template <class H, class Rids>
struct Value32Record : MaybeRids<Rids> {
    using MaybeRids<Rids>::kRid, MaybeRids<Rids>::rids;
    static constexpr bool kWideHash = sizeof(H) == 8;
    static constexpr ub8 kSize = (kWideHash ? 16 : 8) + (kRid ? 8 : 0);
    const ub1 *values;
    Value32Record(const vorn_vec *rid_col, const vorn_vec *value_col)
        : MaybeRids<Rids>(rid_col, value_col), values(layout::bytes_of(value_col->data)) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    VORN_INLINE void write(ub1 *d, ub8 row, ub8 h) const {
        const ub4 value = load<ub4>(values + 4 * row);
        if constexpr (kWideHash) {
            constexpr ub8 at = kRid ? 8 : 0;
            if constexpr (kRid) store<ub8>(d, rids.at(row));
            store<ub4>(d + at, value);
            store<ub8>(d + at + 8, h);
        } else {
            store<ub4>(d, value);
            store<ub4>(d + 4, static_cast<ub4>(h));
            if constexpr (kRid) store<ub8>(d + 8, rids.at(row));
        }
    }
};

// A VORN_FIXED column as references: address data + i * width, the width.
using FixedRefs = hash::FixedWalk;

// A payload by reference:
//   address ub8, length ub2, 6 unwritten, hash
//   row id, hash, address ub8, length ub2, 6 unwritten
template <class Refs, class Rids>
struct RefRecord : MaybeRids<Rids> {
    using MaybeRids<Rids>::kRid, MaybeRids<Rids>::rids;
    static constexpr ub8 kSize = kRid ? 32 : 24;
    Refs refs;
    RefRecord(const vorn_vec *rid_col, const vorn_vec *ref_col)
        : MaybeRids<Rids>(rid_col, ref_col), refs(ref_col) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    VORN_INLINE void write(ub1 *d, ub8 row, ub8 h) const {
        const Value v = refs.next(row);
        if constexpr (kRid) {
            store<ub8>(d, rids.at(row));
            store<ub8>(d + 8, h);
            store<ub8>(d + 16, reinterpret_cast<std::uintptr_t>(v.p));
            store<ub2>(d + 24, static_cast<ub2>(v.len));
        } else {
            store<ub8>(d, reinterpret_cast<std::uintptr_t>(v.p));
            store<ub2>(d + 8, static_cast<ub2>(v.len));
            store<ub8>(d + 16, h);
        }
    }
};

// 32-bit keys that are their own hash: {value} or {value, 4 unwritten, row id}.
template <class Rids>
struct Key32Record : MaybeRids<Rids> {
    using MaybeRids<Rids>::kRid, MaybeRids<Rids>::rids;
    static constexpr ub8 kSize = kRid ? 16 : 4;
    Key32Record(const vorn_vec *rid_col, const vorn_vec *key_col) : MaybeRids<Rids>(rid_col, key_col) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    VORN_INLINE void write(ub1 *d, ub8 row, ub8 h) const {
        store<ub4>(d, static_cast<ub4>(h));
        if constexpr (kRid) store<ub8>(d + 8, rids.at(row));
    }
};

// Finished {row id, hash} records, copied as they are.
struct RidHashCopy : NoPayloadWalk {
    static constexpr ub8 kSize = 16;
    const ub1 *records;
    RidHashCopy(const vorn_vec *, const vorn_vec *src) : records(layout::bytes_of(src->data)) {}
    VORN_INLINE ub8 size(ub8) const { return kSize; }
    VORN_INLINE void write(ub1 *d, ub8 row, ub8) const {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(d),
                         _mm_loadu_si128(reinterpret_cast<const __m128i *>(records + 16 * row)));
    }
};
struct RidHashRecords {
    const ub1 *records;
    explicit RidHashRecords(const vorn_vec *v) : records(layout::bytes_of(v->data)) {}
    VORN_INLINE ub8 hash(ub8 row) const { return load<ub8>(records + 16 * row + 8); }
};

// {hash, payload_bytes bytes}: the payload of row i is at data + i * width
// of a VORN_FIXED column.
struct HashPayloadRecord : NoPayloadWalk {
    static constexpr ub8 kSize = 0;
    const ub1 *payload;
    ub8 stride, bytes;
    HashPayloadRecord(const vorn_vec *payload_col, ub4 payload_bytes)
        : payload(layout::bytes_of(payload_col->data)), stride(payload_col->enc_ctx->bit_width >> 3),
          bytes(payload_bytes) {}
    VORN_INLINE ub8 size(ub8) const { return 8 + bytes; }
    VORN_INLINE void write(ub1 *d, ub8 row, ub8 h) const {
        store<ub8>(d, h);
        fast_copy(d + 8, payload + row * stride, bytes);
    }
};

// Random-access payloads behave as walks that need no state.
template <class L>
struct RandomPayload {
    static constexpr bool kWalked = false;
    L rows;
    RandomPayload(const vorn_vec *v, ub8) : rows(v) {}
    VORN_INLINE Value peek(ub8 row) const { return rows.next(row); }
    VORN_INLINE void skip(Value) {}
    ub8 offset() const { return 0; }
};

// The self-describing record: ub2 (length + 8), hash ub8, the payload.  The
// payload walk starts at payload_byte_pos and leaves there the offset of the
// row that did not fit, or the end.
template <class Walk>
struct VarRecord {
    static constexpr ub8 kSize = 0;
    Walk walk;
    Value v{};
    VarRecord(const vorn_vec *payload_col, const vorn_kernel_ctx *k)
        : walk(payload_col, k->payload_byte_pos) {}
    VORN_INLINE ub8 size(ub8 row) {
        v = walk.peek(row);
        return v.len + 10;
    }
    VORN_INLINE void write(ub1 *d, ub8, ub8 h) const {
        store<ub2>(d, static_cast<ub2>(v.len + 8));
        store<ub8>(d + 2, h);
        fast_copy(d + 10, v.p, v.len);
    }
    VORN_INLINE void advance(ub8) { walk.skip(v); }
    VORN_INLINE void save(vorn_kernel_ctx *k) const {
        if constexpr (Walk::kWalked) k->payload_byte_pos = walk.offset();
    }
};

}  // namespace vorn::part
