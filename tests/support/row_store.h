// row_store.h - paged row stores built through the library's transposes,
// and the scalar model that the gathers are held to.
//
// A Table is R rows of C columns of byte strings, each column in a source
// layout of its own.  Rows fill pages of 2^low_bit slots in order, so row
// i sits in page i >> low_bit, slot i & (slots - 1): its id is i itself,
// and the tests add bits above high_bit that the page rule must drop.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "support/value_columns.h"

namespace vorntest {

// A column of the table: its layout (VORN_FIXED, VORN_LV_SEP, ...) and values.
struct TableColumn {
    ub4 layout;
    std::vector<Value> values;  // one per row
};

struct Table {
    std::vector<TableColumn> cols;
    ub4 rows = 0;
    const Value &at(ub4 row, ub4 col) const { return cols[col].values[row]; }
};

inline Value random_bytes(std::mt19937_64 &rng, std::size_t len) {
    Value v(len);
    for (auto &b : v) b = static_cast<ub1>(rng());
    return v;
}

// Values of random length up to max_len; now and then a long one, so that
// the copies' long path runs too.
inline Value random_length_value(std::mt19937_64 &rng, std::size_t max_len) {
    return random_bytes(rng, rng() % 16 == 0 ? 40 + rng() % 200 : rng() % (max_len + 1));
}

inline const ub4 kSourceLayouts[] = {VORN_FIXED, VORN_LV_SEP, VORN_LV, VORN_PTR_LEN, VORN_LEN_PTR};
inline const ub4 kFixedWidths[] = {1, 2, 4, 8, 3, 5, 16};

// A table whose columns take random source layouts (all VORN_FIXED with
// fixed_only); a fixed column takes one of kFixedWidths.
inline Table random_table(std::mt19937_64 &rng, ub4 rows, ub4 cols, bool fixed_only = false) {
    Table t;
    t.rows = rows;
    for (ub4 c = 0; c < cols; ++c) {
        TableColumn col{fixed_only ? VORN_FIXED : kSourceLayouts[rng() % 5], {}};
        const std::size_t width = kFixedWidths[rng() % 7];
        for (ub4 r = 0; r < rows; ++r)
            col.values.push_back(col.layout == VORN_FIXED ? random_bytes(rng, width) : random_length_value(rng, 24));
        t.cols.push_back(std::move(col));
    }
    return t;
}

// A column of n raw elements at data: fixed values or codes.
struct RawColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    RawColumn(ub4 flags, ub4 bit_width, const void *data, ub4 n) {
        enc.flags = flags;
        enc.bit_width = bit_width;
        vec.enc_ctx = &enc;
        vec.data = const_cast<void *>(data);
        vec.size = n;
    }
};

// The rows of page `page`: [first, end).
struct PageRows {
    ub4 first, end;
};
inline PageRows page_rows(ub4 rows, ub4 low_bit, ub4 page) {
    if (low_bit >= 64) return {0, rows};
    const ub8 slots = ub8{1} << low_bit;
    return {static_cast<ub4>(std::min<ub8>(rows, page * slots)), static_cast<ub4>(std::min<ub8>(rows, (page + 1) * slots))};
}
inline ub4 page_count(ub4 rows, ub4 low_bit) {
    if (low_bit >= 64) return 1;
    const ub8 slots = ub8{1} << low_bit;
    return static_cast<ub4>(std::max<ub8>(1, (rows + slots - 1) / slots));
}

// The columns of rows [first, end) of a table column, in its layout.
inline std::unique_ptr<ValueColumn> column_slice(const TableColumn &col, PageRows rows) {
    std::vector<Value> slice(col.values.begin() + rows.first, col.values.begin() + rows.end);
    auto c = value_column(slice, col.layout);
    if (col.layout == VORN_FIXED && !col.values.empty()) c->enc.bit_width = static_cast<ub4>(8 * col.values[0].size());
    return c;
}

// ---- Variable-length stores: references, then the packed block ------------------

// One block per page; the block's buffers are sized for the table.  The
// transposes fill them through tspec, the gathers read them through gspec.
struct VarStore {
    ub4 flags = 0, low_bit = 64;
    std::vector<Bytes> ref_tables, data, refs, offsets;
    std::vector<ub1 *> ref_table_ptrs, ref_cursors, data_cursors, data_limits;
    std::vector<ub4 *> offset_cursors;
    std::vector<const ub1 *> ref_pages, data_pages;
    std::vector<const ub4 *> offset_pages;
    std::vector<std::unique_ptr<ValueColumn>> sources;  // the references point into them
    vorn_transpose_spec tspec{};
    vorn_gather_spec gspec{};
};

// Room of a block: exactly the bytes its rows need, plus `extra`.
inline ub8 block_bytes(const Table &t, PageRows rows, ub4 flags) {
    const ub8 field = (flags & VORN_STORE_REFS) && (flags & (VORN_STORE_ONE_COL | VORN_STORE_LEN_FIELDS)) ? 2 : 0;
    ub8 bytes = 0;
    for (ub4 r = rows.first; r < rows.end; ++r)
        for (const auto &c : t.cols) bytes += c.values[r].size() + field;
    return bytes;
}

// Fills the row reference table of every block with the library's
// reference transpose and allocates the blocks; convert_blocks() packs them.
inline std::unique_ptr<VarStore> reference_store(const Table &t, ub4 flags, ub4 low_bit, ub8 extra_room = 0) {
    auto s = std::make_unique<VarStore>();
    s->flags = flags;
    s->low_bit = low_bit;
    const ub4 pages = page_count(t.rows, low_bit);
    const ub4 cols = static_cast<ub4>(t.cols.size());
    s->ref_tables.resize(pages);
    s->data.resize(pages);
    s->refs.resize(pages);
    s->offsets.resize(pages);
    for (ub4 p = 0; p < pages; ++p) {
        const PageRows rows = page_rows(t.rows, low_bit, p);
        const ub4 n = rows.end - rows.first;
        s->ref_tables[p].resize(10 * ub8{n} * cols + 10);
        const ub8 room = block_bytes(t, rows, flags) + extra_room;
        s->data[p].resize(room + 1);
        s->refs[p].resize(10 * (ub8{n} * cols + 1));
        s->offsets[p].resize(4 * (ub8{n} * cols + 1));
        s->ref_table_ptrs.push_back(s->ref_tables[p].data());
        s->ref_cursors.push_back(s->refs[p].data());
        s->data_cursors.push_back(s->data[p].data());
        s->data_limits.push_back(s->data[p].data() + room);
        s->offset_cursors.push_back(reinterpret_cast<ub4 *>(s->offsets[p].data()));
        s->ref_pages.push_back(s->refs[p].data());
        s->data_pages.push_back(s->data[p].data());
        s->offset_pages.push_back(reinterpret_cast<const ub4 *>(s->offsets[p].data()));
    }
    s->tspec.flags = static_cast<ub1>(flags);
    s->tspec.num_cols = static_cast<ub2>(cols);
    s->tspec.ref_tables = s->ref_table_ptrs.data();
    s->tspec.ref_cursors = s->ref_cursors.data();
    s->tspec.offset_cursors = s->offset_cursors.data();
    s->tspec.data_cursors = s->data_cursors.data();
    s->tspec.data_limits = s->data_limits.data();
    // The references are the first step of every variable store.
    vorn_transpose_spec by_reference = s->tspec;
    by_reference.flags |= VORN_STORE_REFS;
    TestHost host;
    for (ub4 p = 0; p < pages; ++p) {
        const PageRows rows = page_rows(t.rows, low_bit, p);
        for (ub4 c = 0; c < cols; ++c) {
            s->sources.push_back(column_slice(t.cols[c], rows));
            vorn_kernel_ctx k = host.kctx();
            EXPECT_EQ(ctx().vorn_transpose_reference_dydi(&by_reference, &s->sources.back()->vec, c, static_cast<sb4>(p), &k), 0u);
        }
    }
    s->gspec.flags = flags;
    s->gspec.num_cols = static_cast<ub2>(cols);
    s->gspec.high_bit = 63;
    s->gspec.low_bit = static_cast<ub1>(low_bit);
    s->gspec.ref_pages = s->ref_pages.data();
    s->gspec.offset_pages = s->offset_pages.data();
    s->gspec.data_pages = s->data_pages.data();
    return s;
}

// Packs every block in one call each; returns false if a call failed.
inline bool convert_blocks(VarStore &s, const Table &t) {
    TestHost host;
    for (ub4 p = 0; p < s.data.size(); ++p) {
        const PageRows rows = page_rows(t.rows, s.low_bit, p);
        if (rows.end == rows.first) continue;  // an empty table: nothing to pack
        vorn_kernel_ctx k = host.kctx();
        const ub8 code = ctx().vorn_transpose_convert_dydi(&s.tspec, s.ref_table_ptrs.data(), static_cast<sb4>(p),
                                                           static_cast<sb4>(p), 0, rows.end - rows.first - 1, &k);
        if (code != 0 || k.row_pos != rows.end - rows.first) return false;
    }
    return true;
}

// ---- Fixed-stride stores ---------------------------------------------------------

// Fixed-width columns placed at offsets in a row with gaps.
struct FixedStoreBuild {
    ub4 low_bit = 64;
    std::vector<ub1> lens, offs;
    ub2 stride = 0;
    std::vector<Bytes> data;
    std::vector<ub1 *> data_cursors;
    std::vector<const ub1 *> data_pages;
    vorn_transpose_spec tspec{};
    vorn_gather_spec gspec{};
};

// Lays the columns out in the row, gaps between them, and fills the pages
// with the library's fixed transpose.
inline std::unique_ptr<FixedStoreBuild> fixed_store(const Table &t, ub4 low_bit, std::mt19937_64 &rng) {
    auto s = std::make_unique<FixedStoreBuild>();
    s->low_bit = low_bit;
    ub4 at = 0;
    for (const auto &c : t.cols) {
        at += static_cast<ub4>(rng() % 3);
        s->offs.push_back(static_cast<ub1>(at));
        s->lens.push_back(static_cast<ub1>(c.values.empty() ? 1 : c.values[0].size()));
        at += s->lens.back();
    }
    s->stride = static_cast<ub2>(at + rng() % 4);
    const ub4 pages = page_count(t.rows, low_bit);
    for (ub4 p = 0; p < pages; ++p) {
        const PageRows rows = page_rows(t.rows, low_bit, p);
        s->data.emplace_back(ub8{s->stride} * (rows.end - rows.first) + 1);
        s->data_cursors.push_back(s->data.back().data());
        s->data_pages.push_back(s->data.back().data());
    }
    s->tspec.flags = VORN_STORE_FIXED;
    s->tspec.num_cols = static_cast<ub2>(t.cols.size());
    s->tspec.row_stride = s->stride;
    s->tspec.col_lens = s->lens.data();
    s->tspec.col_offsets = s->offs.data();
    s->tspec.data_cursors = s->data_cursors.data();
    s->gspec.flags = VORN_STORE_FIXED;
    s->gspec.num_cols = static_cast<ub2>(t.cols.size());
    s->gspec.row_stride = s->stride;
    s->gspec.col_lens = s->lens.data();
    s->gspec.col_offsets = s->offs.data();
    s->gspec.high_bit = 63;
    s->gspec.low_bit = static_cast<ub1>(low_bit);
    s->gspec.data_pages = s->data_pages.data();
    TestHost host;
    for (ub4 p = 0; p < pages; ++p) {
        for (ub4 c = 0; c < t.cols.size(); ++c) {
            auto src = column_slice(t.cols[c], page_rows(t.rows, low_bit, p));
            vorn_kernel_ctx k = host.kctx();
            EXPECT_EQ(ctx().vorn_transpose_fixed_dydi(&s->tspec, &src->vec, c, static_cast<sb4>(p), &k), 0u);
        }
    }
    return s;
}

// ---- Row ids ---------------------------------------------------------------------

// A source of row ids: a VORN_FIXED column of `width` bytes, or (width 16)
// records of key kind VORN_KEY_KIND_KEYRID.  Bits above high_bit are filled with noise.
struct IdColumn {
    vorn_enc_ctx enc{};
    vorn_vec vec{};
    Bytes data;
};

inline std::unique_ptr<IdColumn> id_column(const std::vector<ub4> &rows, ub4 width, ub4 high_bit,
                                           std::mt19937_64 &rng) {
    auto c = std::make_unique<IdColumn>();
    const ub4 bits = width == 16 ? 64 : 8 * width;
    c->data.resize(std::max<std::size_t>(1, rows.size() * width));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        ub8 id = rows[i];
        if (high_bit < bits - 1) {
            const ub8 noise = rng() << (high_bit + 1);
            id |= bits == 64 ? noise : noise & ((ub8{1} << bits) - 1);
        }
        if (width == 16) {
            const ub8 key = rng();
            std::memcpy(c->data.data() + 16 * i, &key, 8);
            std::memcpy(c->data.data() + 16 * i + 8, &id, 8);
        } else {
            std::memcpy(c->data.data() + width * i, &id, width);  // little-endian: the low bytes
        }
    }
    c->enc.flags = width == 16 ? VORN_KEY_KIND_FLAGS(VORN_KEY_KIND_KEYRID) : VORN_FIXED;
    c->enc.bit_width = width == 16 ? 128 : 8 * width;
    c->vec.enc_ctx = &c->enc;
    c->vec.data = c->data.data();
    c->vec.size = static_cast<ub4>(rows.size());
    return c;
}

// The smallest high_bit that keeps the row numbers of a table of `rows`.
inline ub4 needed_high_bit(ub4 rows) {
    ub4 b = 0;
    while (b < 63 && (ub8{1} << (b + 1)) < rows) ++b;
    return b;
}

}  // namespace vorntest
