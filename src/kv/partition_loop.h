// partition_loop.h - the pieces every loop of vorn_partition_dydi is made of:
// the partition arithmetic, the two ways of writing records (plain stores,
// or per-partition lines written whole with non-temporal stores), the row
// drivers, and the readers of row ids, keys and payloads.
//
// A loop is one driver instantiated with one source and one record writer,
// so the row loop tests nothing but the loop bound and the room left.
#pragma once

#include <emmintrin.h>

#include "frame/base.h"
#include "frame/fast_copy.h"
#include "predicate/value_layouts.h"

namespace vorn::part {

using layout::Value;

inline constexpr ub8 kDone = 0;
inline constexpr ub8 kUnsupported = 2;
inline constexpr ub8 kFull = 6;
inline constexpr ub4 kBlockRows = 1024;  // keys hashed ahead of placing them
inline constexpr ub4 kLineBytes = 64;
inline constexpr ub4 kMaxLinePartitionBits = 12;  // up to 4096 lines on the stack

// The partition of a hash, and the host's cursors and limits.
struct Target {
    ub1 **cursors;
    ub1 *const *limits;
    ub8 mask;
    ub4 low;
    explicit Target(const vorn_partition_ctrl *c)
        : cursors(c->cursors), limits(c->limits),
          mask(c->high_bit >= 63 ? ~ub8{0} : (ub8{2} << c->high_bit) - 1), low(c->low_bit) {}
    VORN_INLINE ub8 part(ub8 h) const { return (h & mask) >> low; }
    // True when partition p has room for `size` bytes at cursor c.
    VORN_INLINE bool room(ub8 p, const ub1 *c, ub8 size) const {
        return limits[p] - c >= static_cast<std::ptrdiff_t>(size);
    }
};

// ---- Writing records -------------------------------------------------------------

// Every record straight to its cursor.
struct DirectSink {
    static constexpr bool kLines = false;
    template <ub8 S, class Write>
    VORN_INLINE void put(ub1 **cursors, ub8 p, ub1 *c, Write &&write) {
        write(c);
        cursors[p] = c + S;
    }
    VORN_INLINE void finish(ub1 **) {}
};

// Software write-combining: the records of a partition gather in a 64-byte
// line that mirrors the destination's cache line, and a line that fills is
// written whole with non-temporal stores, so the destination is never read
// for ownership and the scatter touches one line per partition.  from[p] is
// the first byte of line p that this call owns: the bytes before a cursor
// that did not start on a line boundary belong to earlier writes, so such a
// line goes out with plain stores of its own bytes only.  A record that
// would cross the line's end is written directly.  Records must be gapless:
// a whole line is written.  finish() stores what is pending, so the host
// sees every record once the kernel returns.
struct LineSink {
    static constexpr bool kLines = true;
    ub1 *lines;  // 64 bytes per partition, 64-byte aligned
    ub1 *from;   // per partition
    ub8 parts;

    LineSink(ub1 *lines_, ub1 *from_, ub8 parts_, ub1 *const *cursors)
        : lines(lines_), from(from_), parts(parts_) {
        for (ub8 p = 0; p < parts; ++p) from[p] = offset(cursors[p]);
    }
    static VORN_INLINE ub4 offset(const ub1 *c) {
        return static_cast<ub4>(reinterpret_cast<std::uintptr_t>(c) & (kLineBytes - 1));
    }
    // Stores bytes [from[p], end) of line p to the destination line at `dst`.
    VORN_INLINE void store_part(ub8 p, ub1 *dst, ub4 end) {
        const ub4 f = from[p];
        if (end > f) fast_copy(dst + f, lines + p * kLineBytes + f, end - f);
    }
    VORN_INLINE void flush_full(ub8 p, ub1 *dst) {
        ub1 *line = lines + p * kLineBytes;
        if (VORN_LIKELY(from[p] == 0)) {
            auto *d = reinterpret_cast<__m128i *>(dst);
            const auto *s = reinterpret_cast<const __m128i *>(line);
            _mm_stream_si128(d, _mm_load_si128(s));
            _mm_stream_si128(d + 1, _mm_load_si128(s + 1));
            _mm_stream_si128(d + 2, _mm_load_si128(s + 2));
            _mm_stream_si128(d + 3, _mm_load_si128(s + 3));
        } else {
            store_part(p, dst, kLineBytes);
            from[p] = 0;
        }
    }
    template <ub8 S, class Write>
    VORN_INLINE void put(ub1 **cursors, ub8 p, ub1 *c, Write &&write) {
        static_assert(S <= kLineBytes);
        const ub4 off = offset(c);
        if (VORN_LIKELY(off + S <= kLineBytes)) {
            write(lines + p * kLineBytes + off);
            c += S;
            if (offset(c) == 0) flush_full(p, c - kLineBytes);
        } else {
            store_part(p, c - off, off);
            write(c);
            c += S;
            from[p] = static_cast<ub1>(offset(c));
        }
        cursors[p] = c;
    }
    void finish(ub1 **cursors) {
        for (ub8 p = 0; p < parts; ++p) {
            ub1 *c = cursors[p];
            const ub4 off = offset(c);
            store_part(p, c - off, off);
            from[p] = static_cast<ub1>(off);
        }
        _mm_sfence();
    }
};

// Lines pay when each partition gets many records and the run is larger
// than the caches; a short run keeps its records in cache with plain stores.
VORN_INLINE bool lines_pay(const vorn_partition_ctrl *ctrl, ub8 rows, ub8 record_bytes) {
    const int bits = int{ctrl->high_bit} - int{ctrl->low_bit} + 1;
    if (bits <= 0 || bits > static_cast<int>(kMaxLinePartitionBits)) return false;
    const ub8 parts = ub8{1} << bits;
    return rows >= 16 * parts && rows * record_bytes >= (ub8{1} << 20);
}

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

struct FixedKeys {
    static constexpr bool kWalked = false;
    const ub1 *p;
    ub8 width;
    explicit FixedKeys(const vorn_vec *v, const vorn_kernel_ctx *)
        : p(layout::bytes_of(v->data)), width(v->enc_ctx->bit_width >> 3) {}
    VORN_INLINE Value next(ub8 row) { return {p + row * width, width}; }
    ub8 offset() const { return 0; }
};

template <class L>
struct PointerKeys {
    static constexpr bool kWalked = false;
    L rows;
    explicit PointerKeys(const vorn_vec *v, const vorn_kernel_ctx *) : rows(v) {}
    VORN_INLINE Value next(ub8 row) { return rows.next(row); }
    ub8 offset() const { return 0; }
};

// VORN_LV_SEP: values end to end, lengths by row at data2.
struct LvSepWalk {
    static constexpr bool kWalked = true;
    const ub1 *base, *p, *lens;
    LvSepWalk(const vorn_vec *v, ub8 start)
        : base(layout::bytes_of(v->data)), p(base + start), lens(layout::bytes_of(v->data2)) {}
    VORN_INLINE Value peek(ub8 row) const { return {p, load<ub2>(lens + 2 * row)}; }
    VORN_INLINE void skip(Value v) { p = v.p + v.len; }
    VORN_INLINE Value next(ub8 row) {
        const Value v = peek(row);
        skip(v);
        return v;
    }
    ub8 offset() const { return static_cast<ub8>(p - base); }
};

// VORN_LV: each value behind its ub2 length.
struct LvWalk {
    static constexpr bool kWalked = true;
    const ub1 *base, *p;
    LvWalk(const vorn_vec *v, ub8 start) : base(layout::bytes_of(v->data)), p(base + start) {}
    VORN_INLINE Value peek(ub8) const { return {p + 2, load<ub2>(p)}; }
    VORN_INLINE void skip(Value v) { p = v.p + v.len; }
    VORN_INLINE Value next(ub8 row) {
        const Value v = peek(row);
        skip(v);
        return v;
    }
    ub8 offset() const { return static_cast<ub8>(p - base); }
};

template <class W>
struct WalkedKeys : W {
    WalkedKeys(const vorn_vec *v, const vorn_kernel_ctx *k) : W(v, k->byte_pos) {}
};

// ---- The drivers -----------------------------------------------------------------

// A record writer gives: kSize (0 for a size per row), size(row),
// write(dst, row, hash), advance(row) after a row is placed, and save(kctx)
// / finish(kctx) for a payload walked beside the rows.

template <class Rec, class Sink, class W>
VORN_INLINE void put_record(Sink &sink, ub1 **cursors, ub8 p, ub1 *c, ub8 size, W &&write) {
    if constexpr (Rec::kSize != 0) {
        sink.template put<Rec::kSize>(cursors, p, c, write);
    } else {
        write(c);
        cursors[p] = c + size;
    }
}

// Rows whose hash is read, not computed: a column of hashes, or records
// that carry theirs.
template <class Src, class Rec, class Sink>
ub8 scatter_rows(Target t, Src src, Rec rec, Sink &sink, vorn_kernel_ctx *k, ub8 n) {
    for (ub8 row = k->row_pos; row < n; ++row) {
        const ub8 h = src.hash(row);
        const ub8 p = t.part(h);
        const ub8 size = rec.size(row);
        ub1 *c = t.cursors[p];
        if (VORN_UNLIKELY(!t.room(p, c, size))) {
            sink.finish(t.cursors);
            k->stop_part = static_cast<ub4>(p);
            k->row_pos = static_cast<ub4>(row);
            rec.save(k);
            return kFull;
        }
        put_record<Rec>(sink, t.cursors, p, c, size, [&](ub1 *d) { rec.write(d, row, h); });
        rec.advance(row);
    }
    sink.finish(t.cursors);
    k->row_pos = static_cast<ub4>(n);
    rec.finish(k);
    return kDone;
}

// Rows whose keys are hashed here: blocks of up to 1024 rows are hashed in
// one tight loop of callbacks, then placed in row order.  On a full
// partition the rest of the block is dropped and hashed again next call.
template <class Keys, class Rec, class Sink>
ub8 scatter_keys(Target t, Keys keys, Rec rec, Sink &sink, vorn_kernel_ctx *k, ub8 n,
                 vorn_hash_fn fn) {
    ub8 hashes[kBlockRows];
    ub8 offsets[Keys::kWalked ? kBlockRows : 1];
    for (ub8 first = k->row_pos; first < n; first += kBlockRows) {
        const ub8 count = n - first < kBlockRows ? n - first : kBlockRows;
        for (ub8 j = 0; j < count; ++j) {
            if constexpr (Keys::kWalked) offsets[j] = keys.offset();
            const Value v = keys.next(first + j);
            hashes[j] = fn(v.p, v.len, 0);
        }
        for (ub8 j = 0; j < count; ++j) {
            const ub8 row = first + j;
            const ub8 h = hashes[j];
            const ub8 p = t.part(h);
            const ub8 size = rec.size(row);
            ub1 *c = t.cursors[p];
            if (VORN_UNLIKELY(!t.room(p, c, size))) {
                sink.finish(t.cursors);
                k->stop_part = static_cast<ub4>(p);
                k->row_pos = static_cast<ub4>(row);
                if constexpr (Keys::kWalked) k->byte_pos = offsets[j];
                rec.save(k);
                return kFull;
            }
            put_record<Rec>(sink, t.cursors, p, c, size, [&](ub1 *d) { rec.write(d, row, h); });
            rec.advance(row);
        }
    }
    sink.finish(t.cursors);
    k->row_pos = static_cast<ub4>(n);
    if constexpr (Keys::kWalked) k->byte_pos = keys.offset();
    rec.finish(k);
    return kDone;
}

// Runs a driver with plain stores, or with lines on the stack when the
// record allows it and the run is large enough.
template <class Rec, class Run>
VORN_INLINE ub8 with_sink(const vorn_partition_ctrl *ctrl, const vorn_kernel_ctx *k, ub8 n,
                          Run &&run) {
    if constexpr (Rec::kGapless && Rec::kSize != 0) {
        const ub8 rows = n > k->row_pos ? n - k->row_pos : 0;
        if (lines_pay(ctrl, rows, Rec::kSize)) {
            const ub8 parts = ub8{1} << (ctrl->high_bit - ctrl->low_bit + 1);
            auto *raw = static_cast<ub1 *>(__builtin_alloca(parts * (kLineBytes + 1) + kLineBytes));
            auto *lines = reinterpret_cast<ub1 *>(
                (reinterpret_cast<std::uintptr_t>(raw) + kLineBytes - 1) & ~std::uintptr_t{kLineBytes - 1});
            LineSink sink(lines, lines + parts * kLineBytes, parts, ctrl->cursors);
            return run(sink);
        }
    }
    DirectSink sink;
    return run(sink);
}

template <class Src, class Rec>
VORN_NOINLINE ub8 partition_rows(const vorn_partition_ctrl *ctrl, Src src, Rec rec,
                                 vorn_kernel_ctx *k, ub8 n) {
    if (k->row_pos >= n) {
        k->row_pos = static_cast<ub4>(n);
        return kDone;
    }
    return with_sink<Rec>(ctrl, k, n, [&](auto &sink) {
        return scatter_rows(Target(ctrl), src, rec, sink, k, n);
    });
}

template <class Keys, class Rec>
VORN_NOINLINE ub8 partition_keys(const vorn_partition_ctrl *ctrl, const vorn_vec *src, Rec rec,
                                 vorn_kernel_ctx *k, vorn_hash_fn fn) {
    const ub8 n = src->size;
    if (k->row_pos >= n) {
        k->row_pos = static_cast<ub4>(n);
        return kDone;
    }
    return with_sink<Rec>(ctrl, k, n, [&](auto &sink) {
        return scatter_keys(Target(ctrl), Keys(src, k), rec, sink, k, n, fn);
    });
}

// Records without a walked payload have nothing to save.
struct NoPayloadWalk {
    VORN_INLINE void advance(ub8) {}
    VORN_INLINE void save(vorn_kernel_ctx *) const {}
    VORN_INLINE void finish(vorn_kernel_ctx *) const {}
};

}  // namespace vorn::part
