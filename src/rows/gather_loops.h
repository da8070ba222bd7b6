// gather_loops.h - the parts every gather loop is made of, and the loop.
//
// A gather reads row ids from `src`, turns each id into a page and a slot,
// finds the row in the store, and appends the values of the columns it is
// asked for to `res`.  Each of those four steps is a small type:
//
//   Ids      the row id of source row i (FixedIds<T>, RecordIds)
//   Store    the row of a (page, slot), and value c of that row
//            (RefStore, OffsetStore, FixedStore)
//   Sink     the result layout: room test and store of one value
//   Columns  which values of a row, in which order (RowValue, AllColumns,
//            OneColumn, ColumnList)
//
// and gather_rows<> puts one of each together into a loop with no test of
// form inside it.  The entries choose the combination once per call.
#pragma once

#include <xmmintrin.h>

#include "frame/base.h"
#include "frame/fast_copy.h"

namespace vorn::rows {

inline constexpr ub8 kNotServed = 2;
inline constexpr ub8 kGatherFull = 19;

// Rows whose store line is in flight ahead of the row being copied.
inline constexpr ub4 kPrefetchRows = 32;
// Where the store line holds the value's address (the ten-byte references),
// the value of the row this many ahead is requested as well: its reference
// line was requested 16 rows before, so the address is read from the cache,
// and the copy does not wait on the value's own miss.
inline constexpr ub4 kValueAheadRows = 16;

struct Value {
    const ub1 *addr;
    ub8 len;
};

VORN_INLINE const ub1 *bytes_of(const void *p) { return static_cast<const ub1 *>(p); }
VORN_INLINE ub1 *bytes_of(void *p) { return static_cast<ub1 *>(p); }
VORN_INLINE const ub1 *address_at(const ub1 *p) { return reinterpret_cast<const ub1 *>(load<ub8>(p)); }

// ---- Row ids -------------------------------------------------------------------

// A VORN_FIXED column of native unsigned ids of 1, 2, 4 or 8 bytes.
template <class T>
struct FixedIds {
    static constexpr ub4 kBits = 8 * sizeof(T);
    const ub1 *data;
    explicit FixedIds(const vorn_vec *src) : data(bytes_of(src->data)) {}
    VORN_INLINE ub8 operator()(ub8 row) const { return load<T>(data + sizeof(T) * row); }
};

// 16-byte records, the id at byte 8.
struct RecordIds {
    static constexpr ub4 kBits = 64;
    const ub1 *data;
    explicit RecordIds(const vorn_vec *src) : data(bytes_of(src->data)) {}
    VORN_INLINE ub8 operator()(ub8 row) const { return load<ub8>(data + 16 * row + 8); }
};

// The kinds of id column, in the order a source is tested.
enum class IdKind { k1, k2, k4, k8, kRecord, kNone };

inline IdKind id_kind(const vorn_vec *src) {
    const ub4 flags = src->enc_ctx->flags;
    if (flags & VORN_FIXED) {
        switch (src->enc_ctx->bit_width >> 3) {
            case 1: return IdKind::k1;
            case 2: return IdKind::k2;
            case 4: return IdKind::k4;
            case 8: return IdKind::k8;
            default: return IdKind::kNone;
        }
    }
    if (VORN_KEY_KIND(flags) == VORN_KEY_KIND_KEYRID) return IdKind::kRecord;
    return IdKind::kNone;
}

// Calls fn.template operator()<Ids>() with the id reader of the source's
// kind, or returns 2.
template <class Fn>
VORN_INLINE ub8 with_ids(IdKind kind, Fn &&fn) {
    switch (kind) {
        case IdKind::k1: return fn.template operator()<FixedIds<ub1>>();
        case IdKind::k2: return fn.template operator()<FixedIds<ub2>>();
        case IdKind::k4: return fn.template operator()<FixedIds<ub4>>();
        case IdKind::k8: return fn.template operator()<FixedIds<ub8>>();
        case IdKind::kRecord: return fn.template operator()<RecordIds>();
        case IdKind::kNone: break;
    }
    return kNotServed;
}

// ---- Page and slot -------------------------------------------------------------

// slot = id & (2^low_bit - 1); page = (id & mask(high_bit)) >> low_bit.  A
// low_bit of 64 (or more) gives page 0 and the whole id as slot: the masks
// carry that case, so the row loop does not test it.
struct PageRule {
    ub8 page_mask, slot_mask;
    ub4 shift;
    explicit PageRule(const vorn_gather_spec *spec) {
        const ub4 low = spec->low_bit, high = spec->high_bit;
        if (low >= 64) {
            page_mask = 0;
            slot_mask = ~ub8{0};
            shift = 0;
        } else {
            page_mask = high >= 63 ? ~ub8{0} : (ub8{2} << high) - 1;
            slot_mask = (ub8{1} << low) - 1;
            shift = low;
        }
    }
    VORN_INLINE ub8 page(ub8 id) const { return (id & page_mask) >> shift; }
    VORN_INLINE ub4 slot(ub8 id) const { return static_cast<ub4>(id & slot_mask); }
};

// ---- Stores ----------------------------------------------------------------------

// Ten-byte references: a native ub2 length and an unaligned ub8 address.
// kOnePerRow: the row is one value (one reference per slot).
template <bool kOnePerRow>
struct RefStore {
    static constexpr bool kPrefetches = true;
    using Row = const ub1 *;
    const ub1 *const *pages;
    ub8 per_row;
    explicit RefStore(const vorn_gather_spec *spec)
        : pages(spec->ref_pages), per_row(kOnePerRow ? 1 : spec->num_cols) {}
    VORN_INLINE Row row(ub8 page, ub4 slot) const { return pages[page] + 10 * (slot * per_row); }
    VORN_INLINE Value value(Row row, ub4 col) const {
        const ub1 *ref = row + 10 * ub8{col};
        return {address_at(ref + 2), load<ub2>(ref)};
    }
    // The lines that the prefetch brings in ahead: the row's first
    // reference, and later the value of reference c.
    VORN_INLINE const void *line(Row row) const { return row; }
    VORN_INLINE const void *value_line(Row row, ub4 col) const { return address_at(row + 10 * ub8{col} + 2); }
};

// ub4 offsets into the page's bytes; a row of n values reads n + 1 offsets.
template <bool kOnePerRow>
struct OffsetStore {
    static constexpr bool kPrefetches = false;
    struct Row {
        const ub4 *offsets;
        const ub1 *bytes;
    };
    const ub4 *const *offset_pages;
    const ub1 *const *data_pages;
    ub8 per_row;
    explicit OffsetStore(const vorn_gather_spec *spec)
        : offset_pages(spec->offset_pages), data_pages(spec->data_pages),
          per_row(kOnePerRow ? 1 : spec->num_cols) {}
    VORN_INLINE Row row(ub8 page, ub4 slot) const {
        return {offset_pages[page] + slot * per_row, data_pages[page]};
    }
    VORN_INLINE Value value(Row row, ub4 col) const {
        const ub4 from = load<ub4>(row.offsets + col), to = load<ub4>(row.offsets + col + 1);
        return {row.bytes + from, ub8{to - from}};
    }
};

// Rows of fixed stride; column c at col_offsets[c], col_lens[c] bytes.
struct FixedStore {
    static constexpr bool kPrefetches = false;
    using Row = const ub1 *;
    const ub1 *const *pages;
    const ub1 *lens, *offsets;
    ub8 stride;
    explicit FixedStore(const vorn_gather_spec *spec)
        : pages(spec->data_pages), lens(spec->col_lens), offsets(spec->col_offsets), stride(spec->row_stride) {}
    VORN_INLINE Row row(ub8 page, ub4 slot) const { return pages[page] + slot * stride; }
    VORN_INLINE Value value(Row row, ub4 col) const { return {row + offsets[col], lens[col]}; }
};

// ---- Result layouts ------------------------------------------------------------
//
// Every call writes from the start of res.data (and res.data2).  The room is
// res.byte_capacity bytes at res.data; a value that needs more than is left
// stops the call.  On return res.size holds the values written and
// res.byte_capacity the bytes written at res.data.

struct SinkBase {
    ub1 *data;
    ub8 at = 0, count = 0, capacity;
    explicit SinkBase(vorn_vec *res) : data(bytes_of(res->data)), capacity(res->byte_capacity) {}
    VORN_INLINE bool no_room(ub8 need) const { return capacity - at < need; }
    VORN_INLINE void finish(vorn_vec *res) const {
        res->size = static_cast<ub4>(count);
        res->byte_capacity = at;
    }
};

// Bytes at data, end to end, and the ub2 length into data2.
struct LvSepSink : SinkBase {
    ub1 *lens;
    explicit LvSepSink(vorn_vec *res) : SinkBase(res), lens(bytes_of(res->data2)) {}
    VORN_INLINE bool put(Value v) {
        if (VORN_UNLIKELY(no_room(v.len))) return false;
        store<ub2>(lens + 2 * count, static_cast<ub2>(v.len));
        fast_copy(data + at, v.addr, v.len);
        at += v.len;
        ++count;
        return true;
    }
};

// A ub2 length and the bytes, end to end at data; a value takes its length + 2.
struct LvSink : SinkBase {
    explicit LvSink(vorn_vec *res) : SinkBase(res) {}
    VORN_INLINE bool put(Value v) {
        if (VORN_UNLIKELY(no_room(v.len + 2))) return false;
        store<ub2>(data + at, static_cast<ub2>(v.len));
        fast_copy(data + at + 2, v.addr, v.len);
        at += v.len + 2;
        ++count;
        return true;
    }
};

// The address as ub8 at data, the ub2 length into data2: 8 bytes of room.
struct PtrLenSink : SinkBase {
    ub1 *lens;
    explicit PtrLenSink(vorn_vec *res) : SinkBase(res), lens(bytes_of(res->data2)) {}
    VORN_INLINE bool put(Value v) {
        if (VORN_UNLIKELY(no_room(8))) return false;
        store<ub8>(data + at, reinterpret_cast<ub8>(v.addr));
        store<ub2>(lens + 2 * count, static_cast<ub2>(v.len));
        at += 8;
        ++count;
        return true;
    }
};

// Ten-byte references at data.
struct LenPtrSink : SinkBase {
    explicit LenPtrSink(vorn_vec *res) : SinkBase(res) {}
    VORN_INLINE bool put(Value v) {
        if (VORN_UNLIKELY(no_room(10))) return false;
        store<ub2>(data + at, static_cast<ub2>(v.len));
        store<ub8>(data + at + 2, reinterpret_cast<ub8>(v.addr));
        at += 10;
        ++count;
        return true;
    }
};

// The bytes alone, end to end: a row of the fixed store's columns becomes
// one element of the result of their summed lengths.
struct FixedSink : SinkBase {
    explicit FixedSink(vorn_vec *res) : SinkBase(res) {}
    VORN_INLINE bool put(Value v) {
        if (VORN_UNLIKELY(no_room(v.len))) return false;
        fast_copy(data + at, v.addr, v.len);
        at += v.len;
        ++count;
        return true;
    }
};

// Calls fn.template operator()<Sink>() with the sink of the first of
// VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR that res has, or returns 2.
template <class Fn>
VORN_INLINE ub8 with_variable_sink(const vorn_vec *res, Fn &&fn) {
    const ub4 flags = res->enc_ctx->flags;
    if (flags & VORN_LV_SEP) return fn.template operator()<LvSepSink>();
    if (flags & VORN_LV) return fn.template operator()<LvSink>();
    if (flags & VORN_PTR_LEN) return fn.template operator()<PtrLenSink>();
    if (flags & VORN_LEN_PTR) return fn.template operator()<LenPtrSink>();
    return kNotServed;
}

// The fixed store gives bytes in place: VORN_FIXED copies them, VORN_PTR_LEN
// points at them.
template <class Fn>
VORN_INLINE ub8 with_fixed_sink(const vorn_vec *res, Fn &&fn) {
    const ub4 flags = res->enc_ctx->flags;
    if (flags & VORN_FIXED) return fn.template operator()<FixedSink>();
    if (flags & VORN_PTR_LEN) return fn.template operator()<PtrLenSink>();
    return kNotServed;
}

// ---- Columns of a row ------------------------------------------------------------

// The row is one value.
struct RowValue {
    static constexpr bool kPrefetches = true;
    static constexpr ub4 first() { return 0; }
    template <class Store, class Sink>
    VORN_INLINE bool put(const Store &store, typename Store::Row row, Sink &out) const {
        return out.put(store.value(row, 0));
    }
};

// All num_cols columns, in order.
struct AllColumns {
    static constexpr bool kPrefetches = true;
    ub4 num;
    static constexpr ub4 first() { return 0; }
    template <class Store, class Sink>
    VORN_INLINE bool put(const Store &store, typename Store::Row row, Sink &out) const {
        for (ub4 c = 0; c < num; ++c)
            if (!out.put(store.value(row, c))) return false;
        return true;
    }
};

// One column by its index.
struct OneColumn {
    static constexpr bool kPrefetches = true;
    ub4 col;
    ub4 first() const { return col; }
    template <class Store, class Sink>
    VORN_INLINE bool put(const Store &store, typename Store::Row row, Sink &out) const {
        return out.put(store.value(row, col));
    }
};

// The columns of a list, in its order, repeats included.  Built for rows in
// a few pages, so it does not prefetch.
struct ColumnList {
    static constexpr bool kPrefetches = false;
    const ub2 *list;
    ub4 num;
    template <class Store, class Sink>
    VORN_INLINE bool put(const Store &store, typename Store::Row row, Sink &out) const {
        for (ub4 i = 0; i < num; ++i)
            if (!out.put(store.value(row, list[i]))) return false;
        return true;
    }
};

// ---- The loop ----------------------------------------------------------------------

// Rows row_pos to src.size - 1.  Stops with 19 at the first value without
// room: row_pos is then that value's row, whose earlier values stay written.
// Where the store and the columns prefetch, the store lines of the next 32
// rows are always requested ahead of the row being copied, and the row's
// first value 16 rows ahead.
template <class Ids, class Store, class Sink, class Columns>
VORN_NOINLINE ub8 gather_rows(vorn_vec *res, const vorn_vec *src, const vorn_gather_spec *spec,
                              vorn_kernel_ctx *ctx, Columns cols) {
    constexpr bool kPrefetch = Store::kPrefetches && Columns::kPrefetches;
    const Ids ids(src);
    const PageRule pages(spec);
    const Store store(spec);
    Sink out(res);
    const ub4 n = src->size;
    ub4 row = ctx->row_pos;
    auto row_at = [&](ub4 i) {
        const ub8 id = ids(i);
        return store.row(pages.page(id), pages.slot(id));
    };
    auto stop = [&](ub4 at, ub8 code) {
        ctx->row_pos = at;
        out.finish(res);
        return code;
    };
    if constexpr (kPrefetch) {
        if (row >= n) return stop(row > n ? row : n, 0);
        const ub4 primed = n - row > kPrefetchRows ? row + kPrefetchRows : n;
        for (ub4 i = row; i < primed; ++i) _mm_prefetch(static_cast<const char *>(store.line(row_at(i))), _MM_HINT_T0);
        const ub4 ahead_end = n > kPrefetchRows ? n - kPrefetchRows : 0;
        for (; row < ahead_end; ++row) {
            _mm_prefetch(static_cast<const char *>(store.line(row_at(row + kPrefetchRows))), _MM_HINT_T0);
            _mm_prefetch(static_cast<const char *>(store.value_line(row_at(row + kValueAheadRows), cols.first())),
                         _MM_HINT_T0);
            if (VORN_UNLIKELY(!cols.put(store, row_at(row), out))) return stop(row, kGatherFull);
        }
    }
    for (; row < n; ++row)
        if (VORN_UNLIKELY(!cols.put(store, row_at(row), out))) return stop(row, kGatherFull);
    return stop(row > n ? row : n, 0);
}

// The store forms, each in a translation unit of its own.  `cols` says which
// values a row gives: RowValue, AllColumns, OneColumn or ColumnList.
struct Columns {
    enum class Kind { kRowValue, kAll, kOne, kList } kind;
    ub4 col;          // kOne
    const ub2 *list;  // kList
    ub4 num;          // kAll, kList
};

VORN_INTERNAL ub8 gather_refs(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                              const Columns &cols);
VORN_INTERNAL ub8 gather_offsets(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec,
                                 vorn_kernel_ctx *ctx, const Columns &cols);
VORN_INTERNAL ub8 gather_fixed(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                               const Columns &cols);

// Calls fn.template operator()<Store<one-per-row>, ColumnType>(columns) for
// the kind of `cols`; the one-value row takes the store's one-per-row form.
template <template <bool> class Store, class Fn>
VORN_INLINE ub8 with_columns(const Columns &cols, Fn &&fn) {
    switch (cols.kind) {
        case Columns::Kind::kRowValue: return fn.template operator()<Store<true>>(RowValue{});
        case Columns::Kind::kAll: return fn.template operator()<Store<false>>(AllColumns{cols.num});
        case Columns::Kind::kOne: return fn.template operator()<Store<false>>(OneColumn{cols.col});
        case Columns::Kind::kList: return fn.template operator()<Store<false>>(ColumnList{cols.list, cols.num});
    }
    return kNotServed;
}

}  // namespace vorn::rows
