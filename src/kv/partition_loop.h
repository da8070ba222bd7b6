// partition_loop.h - the pieces every loop of vorn_partition_dydi is made of:
// the partition arithmetic, the row drivers, and the readers of row ids,
// keys and payloads.
//
// A loop is one driver instantiated with one source and one record writer,
// so the row loop tests nothing but the loop bound and the room left.
#pragma once

#include <xmmintrin.h>

#include "frame/base.h"
#include "frame/fast_copy.h"
#include "kv/hash_walk.h"
#include "predicate/value_layouts.h"

namespace vorn::part {

using layout::Value;

inline constexpr ub8 kDone = 0;
inline constexpr ub8 kUnsupported = 2;
inline constexpr ub8 kFull = 6;
inline constexpr ub4 kBlockRows = 1024;  // keys hashed ahead of placing them
// Each partition is written front to back, a line at a time: when a row
// goes to a partition, a line some bytes after its cursor is fetched, so
// that the partition's next lines are there when its records reach them.
// This hides the read for ownership of every partition's stream at any
// fan-out, where the hardware's stream detection follows only a few of
// them (measured against no prefetch: 1.3x at 16 partitions, 1.8x at 256;
// a prefetch of the destination of a row some rows ahead gained less, and
// only from 256 partitions on).
//
// How far ahead: about kRowsInFlight rows' worth of records of one
// partition, at least the next line, at most kMaxAhead bytes.  The fewer
// the partitions, the sooner a partition's next line is needed: 128 bytes
// at 16 partitions of 16-byte records, the next line from 128 on.
inline constexpr ub8 kRowsInFlight = 128;
inline constexpr ub8 kMaxAhead = 512;
constexpr ub8 prefetch_ahead(ub4 bits, ub8 record_bytes) {
    const ub8 bytes = bits >= 32 ? 0 : (kRowsInFlight * record_bytes) >> bits;
    const ub8 lines = (bytes + 63) & ~ub8{63};
    return lines < 64 ? 64 : lines > kMaxAhead ? kMaxAhead : lines;
}
static_assert(prefetch_ahead(4, 16) == 128 && prefetch_ahead(8, 16) == 64 && prefetch_ahead(0, 16) == 512);

// Records of a size per row are taken as this many bytes for the distance.
inline constexpr ub8 kTypicalRecordBytes = 16;

// The partition of a hash, and the host's cursors and limits.
struct Target {
    ub1 **cursors;
    ub1 *const *limits;
    ub8 mask;
    ub4 low;
    ub4 bits;   // 2^bits partitions
    ub8 ahead;  // bytes after a cursor fetched when a row goes there
    Target(const vorn_partition_ctrl *c, ub8 record_bytes)
        : cursors(c->cursors), limits(c->limits),
          mask(c->high_bit >= 63 ? ~ub8{0} : (ub8{2} << c->high_bit) - 1), low(c->low_bit),
          bits(c->high_bit >= c->low_bit ? c->high_bit - c->low_bit + 1u : 0u),
          ahead(prefetch_ahead(bits, record_bytes ? record_bytes : kTypicalRecordBytes)) {}
    // The cursor of partition p, a line ahead of it fetched.
    VORN_INLINE ub1 *cursor(ub8 p) const {
        ub1 *c = cursors[p];
        _mm_prefetch(reinterpret_cast<const char *>(c + ahead), _MM_HINT_T0);
        return c;
    }
    VORN_INLINE ub8 part(ub8 h) const { return (h & mask) >> low; }
    // True when partition p has room for `size` bytes at cursor c.
    VORN_INLINE bool room(ub8 p, const ub1 *c, ub8 size) const {
        return limits[p] - c >= static_cast<std::ptrdiff_t>(size);
    }
};

// ---- Row ids ---------------------------------------------------------------------

struct AutoRids {
    ub8 base;
    explicit AutoRids(const vorn_vec *v) : base(v->base_rid) {}
    VORN_INLINE ub8 at(ub8 row) const { return base + row; }
};

struct StoredRids {
    const ub1 *p;
    explicit StoredRids(const vorn_vec *v) : p(layout::bytes_of(v->data)) {}
    VORN_INLINE ub8 at(ub8 row) const { return load<ub8>(p + 8 * row); }
};

// ---- Hashes that are already there -----------------------------------------------

template <class H>
struct HashColumn {
    const ub1 *p;
    explicit HashColumn(const vorn_vec *v) : p(layout::bytes_of(v->data)) {}
    VORN_INLINE ub8 hash(ub8 row) const { return load<H>(p + sizeof(H) * row); }
};

// ---- Keys to hash: cursors that also report a walked layout's offset -------------

// Layouts read at random by row: fixed width, address and length.
template <class L>
struct PointerKeys {
    static constexpr bool kWalked = false;
    L rows;
    explicit PointerKeys(const vorn_vec *v, const vorn_kernel_ctx *) : rows(v) {}
    VORN_INLINE Value next(ub8 row) { return rows.next(row); }
    ub8 offset() const { return 0; }
};

// VORN_FIXED: the walk the hash kernel uses, with nothing to report.
using FixedKeys = PointerKeys<hash::FixedWalk>;

// What the walked layouts share: a position from the column's start, moved
// past each value; Layout gives peek(row), the value at the position.
template <class Layout>
struct ForwardWalk {
    static constexpr bool kWalked = true;
    const ub1 *base, *p;
    ForwardWalk(const ub1 *start_of_column, ub8 start) : base(start_of_column), p(base + start) {}
    VORN_INLINE void skip(Value v) { p = v.p + v.len; }
    VORN_INLINE Value next(ub8 row) {
        const Value v = static_cast<const Layout *>(this)->peek(row);
        skip(v);
        return v;
    }
    ub8 offset() const { return static_cast<ub8>(p - base); }
};

// VORN_LV_SEP: values end to end, lengths by row at data2.
struct LvSepWalk : ForwardWalk<LvSepWalk> {
    const ub1 *lens;
    LvSepWalk(const vorn_vec *v, ub8 start)
        : ForwardWalk(layout::bytes_of(v->data), start), lens(layout::bytes_of(v->data2)) {}
    VORN_INLINE Value peek(ub8 row) const { return {p, load<ub2>(lens + 2 * row)}; }
};

// VORN_LV: each value behind its ub2 length.
struct LvWalk : ForwardWalk<LvWalk> {
    LvWalk(const vorn_vec *v, ub8 start) : ForwardWalk(layout::bytes_of(v->data), start) {}
    VORN_INLINE Value peek(ub8) const { return {p + 2, load<ub2>(p)}; }
};

template <class W>
struct WalkedKeys : W {
    WalkedKeys(const vorn_vec *v, const vorn_kernel_ctx *k) : W(v, k->byte_pos) {}
};

// ---- The drivers -----------------------------------------------------------------

// A record writer gives: kSize (0 for a size per row), size(row),
// write(dst, row, hash), advance(row) after a row is placed, and save(kctx)
// for a payload walked beside the rows (called when a call ends, full or
// done).  The row loop tests nothing per row but the loop bound and the
// room left, and for records of one size not even the room while every
// partition has room for all the rows of a stretch.
//
// Records go straight to their cursors with plain stores.  Staging each
// partition's records in lines written whole (with or without
// non-temporal stores), or sorting blocks of rows by partition in a local
// buffer and copying each partition's run out, measured 1.3x to 3x slower
// on this kind of machine at 16 and 64 partitions, and at 256 gained less
// than the prefetch ahead of the cursors.

// The most partitions whose least room is looked for to skip the room
// test: one pass over the cursors and limits for a stretch of at least as
// many rows as partitions.
inline constexpr int kMaxUncheckedPartitionBits = 12;

// Places rows j .. end - 1 with no room test: the caller knows they fit.
template <class Rec, class HashOf>
VORN_INLINE void place_unchecked(Target &t, Rec &rec, ub8 first, ub8 j, ub8 end, HashOf &hash_of) {
    for (; j < end; ++j) {
        const ub8 h = hash_of(j);
        const ub8 p = t.part(h);
        ub1 *c = t.cursor(p);
        rec.write(c, first + j, h);
        t.cursors[p] = c + Rec::kSize;
        rec.advance(first + j);
    }
}

// The number of records of `size` bytes that every one of the 2^bits
// partitions still has room for.
VORN_INLINE ub8 rows_that_fit(const Target &t, ub4 bits, ub8 size) {
    std::ptrdiff_t least = t.limits[0] - t.cursors[0];
    for (ub8 p = 1; p < (ub8{1} << bits); ++p) {
        const std::ptrdiff_t room = t.limits[p] - t.cursors[p];
        least = room < least ? room : least;
    }
    return least > 0 ? static_cast<ub8>(least) / size : 0;
}

// Places rows first .. first + count - 1, the hash of row first + j being
// hash_of(j).  Returns the j of the row that did not fit, or count; the
// partition that was full is in k->stop_part.
template <class Rec, class HashOf>
VORN_INLINE ub8 place(Target &t, Rec &rec, vorn_kernel_ctx *k, ub8 first, ub8 count, HashOf &&hash_of) {
    ub8 j = 0;
    if constexpr (Rec::kSize != 0) {
        // While at least as many rows are left as there are partitions and
        // every partition has room for at least that many records, the next
        // `fit` rows (the records every partition still has room for) run
        // without the room test.  Rooms only shrink, so the first stretch
        // too short ends the search.
        if (t.bits <= kMaxUncheckedPartitionBits) {
            const ub8 parts = ub8{1} << t.bits;
            while (count - j >= parts) {
                const ub8 fit = rows_that_fit(t, t.bits, Rec::kSize);
                if (fit < parts) break;
                const ub8 end = count - j < fit ? count : j + fit;
                place_unchecked(t, rec, first, j, end, hash_of);
                j = end;
            }
        }
    }
    for (; j < count; ++j) {
        const ub8 row = first + j;
        const ub8 h = hash_of(j);
        const ub8 p = t.part(h);
        const ub8 size = rec.size(row);
        ub1 *c = t.cursor(p);
        if (VORN_UNLIKELY(!t.room(p, c, size))) {
            k->stop_part = static_cast<ub4>(p);
            return j;
        }
        rec.write(c, row, h);
        t.cursors[p] = c + size;
        rec.advance(row);
    }
    return count;
}

// Ends a call at `row`: count rows, 6 when a partition was full there, else
// 0; the record writer leaves the offset of its payload walk.
template <class Rec>
VORN_INLINE ub8 end_call(Rec &rec, vorn_kernel_ctx *k, ub8 row, ub8 n) {
    k->row_pos = static_cast<ub4>(row);
    rec.save(k);
    return row < n ? kFull : kDone;
}

// Rows whose hash is read, not computed: a column of hashes, or records
// that carry theirs.
template <class Src, class Rec>
ub8 scatter_rows(Target t, Src src, Rec rec, vorn_kernel_ctx *k, ub8 n) {
    const ub8 first = k->row_pos;
    const ub8 row = first + place(t, rec, k, first, n - first, [&](ub8 j) { return src.hash(first + j); });
    return end_call(rec, k, row, n);
}

// Rows whose keys are hashed here: blocks of up to 1024 rows are hashed in
// one tight loop of callbacks, then placed in row order.  On a full
// partition the rest of the block is dropped and hashed again next call.
template <class Keys, class Rec>
ub8 scatter_keys(Target t, Keys keys, Rec rec, vorn_kernel_ctx *k, ub8 n, vorn_hash_fn fn) {
    ub8 hashes[kBlockRows];
    ub8 offsets[Keys::kWalked ? kBlockRows : 1];
    ub8 first = k->row_pos;
    for (; first < n; first += kBlockRows) {
        const ub8 count = n - first < kBlockRows ? n - first : kBlockRows;
        for (ub8 j = 0; j < count; ++j) {
            if constexpr (Keys::kWalked) offsets[j] = keys.offset();
            const Value v = keys.next(first + j);
            hashes[j] = fn(v.p, v.len, 0);
        }
        const ub8 j = place(t, rec, k, first, count, [&](ub8 i) { return hashes[i]; });
        if (j < count) {
            if constexpr (Keys::kWalked) k->byte_pos = offsets[j];
            return end_call(rec, k, first + j, n);
        }
    }
    if constexpr (Keys::kWalked) k->byte_pos = keys.offset();
    return end_call(rec, k, n, n);
}

template <class Src, class Rec>
VORN_NOINLINE ub8 partition_rows(const vorn_partition_ctrl *ctrl, Src src, Rec rec,
                                 vorn_kernel_ctx *k, ub8 n) {
    if (k->row_pos >= n) {
        k->row_pos = static_cast<ub4>(n);
        return kDone;
    }
    return scatter_rows(Target(ctrl, Rec::kSize), src, rec, k, n);
}

template <class Keys, class Rec>
VORN_NOINLINE ub8 partition_keys(const vorn_partition_ctrl *ctrl, const vorn_vec *src, Rec rec,
                                 vorn_kernel_ctx *k, vorn_hash_fn fn) {
    const ub8 n = src->size;
    if (k->row_pos >= n) {
        k->row_pos = static_cast<ub4>(n);
        return kDone;
    }
    return scatter_keys(Target(ctrl, Rec::kSize), Keys(src, k), rec, k, n, fn);
}

// Records without a walked payload have nothing to save.
struct NoPayloadWalk {
    VORN_INLINE void advance(ub8) {}
    VORN_INLINE void save(vorn_kernel_ctx *) const {}
};

}  // namespace vorn::part
