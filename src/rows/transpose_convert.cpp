// transpose_convert.cpp - vorn_transpose_convert_dydi: rows of references
// packed into a block of a variable-length row store.
//
// refs[ref_block] is a table of row references as vorn_transpose_reference_dydi
// leaves it: row i's num_cols references at 10 * i * num_cols.  Rows
// first_row to last_row (both included) are written to block `block` at its
// cursors, by the store that the record's flags name, tested in this order:
//
//   REFS and ONE_COL    bytes: each value behind a native ub2 length;
//                       one reference per row: the row's bytes, length
//                       fields included, and its first byte
//   REFS and LEN_FIELDS bytes as above; one reference per value: its length
//                       and the address of its bytes, behind the length
//   REFS and OFFSETS    bytes of the values end to end; per value a ub4
//                       offset and a reference
//   REFS                bytes of the values end to end; a reference per value
//   OFFSETS             bytes of the values end to end; per value the ub4
//                       offset of its end from the block's first byte
//   neither             2
//
// Offsets: a call with first_row 0 first writes the block's leading 0; any
// other call takes the last offset from behind the offset cursor.  (A host
// that goes on into a fresh block with first_row above 0 puts the 0 there
// itself and its offset cursor behind it.)
//
// A row is written whole or not at all: when the bytes left in the block
// (data_limits - data_cursors) are fewer than the row needs, row_pos is set
// to the row, the cursors are saved as they stood at its start and 18 is
// returned; the host gives the block room, or a fresh block, and calls again
// with first_row = row_pos.  At the end row_pos is last_row + 1 and the
// cursors are saved.  Only the cursors the store uses are read and written.
#include <xmmintrin.h>

#include "frame/entries.h"
#include "rows/gather_loops.h"

namespace vorn::rows {
namespace {

constexpr ub8 kBlockFull = 18;

// What a store writes per value and per row.
struct StoreShape {
    bool len_fields;     // each value behind a ub2 length in the bytes
    bool row_ref;        // one reference per row (else per value, if value_refs)
    bool value_refs;     // one reference per value
    bool offsets;        // one ub4 offset per value
};

constexpr StoreShape kRowRefs{true, true, false, false};
constexpr StoreShape kValueRefsWithLengths{true, false, true, false};
constexpr StoreShape kValueRefsAndOffsets{false, false, true, true};
constexpr StoreShape kValueRefs{false, false, true, false};
constexpr StoreShape kOffsets{false, false, false, true};

VORN_INLINE void put_reference(ub1 *at, ub8 len, const ub1 *addr) {
    store<ub2>(at, static_cast<ub2>(len));
    store<ub8>(at + 2, reinterpret_cast<ub8>(addr));
}

template <StoreShape kShape>
VORN_NOINLINE ub8 convert_rows(const vorn_transpose_spec *spec, const ub1 *table, sb4 block, ub4 first_row,
                               ub4 last_row, vorn_kernel_ctx *ctx) {
    constexpr ub8 kLenField = kShape.len_fields ? 2 : 0;
    constexpr bool kRefs = kShape.row_ref || kShape.value_refs;
    const ub8 per_row = spec->num_cols;
    ub1 *data = spec->data_cursors[block];
    const ub1 *const limit = spec->data_limits[block];
    ub1 *ref_cursor = nullptr;
    ub4 *offset_cursor = nullptr, *offsets_at_row = nullptr;
    ub4 last_offset = 0;
    if constexpr (kRefs) ref_cursor = spec->ref_cursors[block];
    if constexpr (kShape.offsets) {
        offset_cursor = offsets_at_row = spec->offset_cursors[block];
        if (first_row == 0) {
            store<ub4>(offset_cursor++, 0);
        } else {
            last_offset = load<ub4>(offset_cursor - 1);
        }
    }
    auto save = [&]() {
        spec->data_cursors[block] = data;
        if constexpr (kRefs) spec->ref_cursors[block] = ref_cursor;
        if constexpr (kShape.offsets) spec->offset_cursors[block] = offset_cursor;
    };
    // The last reference of the range: the prefetch goes no further.
    const ub8 last_ref = (ub8{last_row} + 1) * per_row - (per_row ? 1 : 0);
    for (ub8 row = first_row; row <= last_row; ++row) {
        const ub1 *refs = table + 10 * row * per_row;
        ub8 need = 0;
        for (ub8 c = 0; c < per_row; ++c) need += load<ub2>(refs + 10 * c) + kLenField;
        if (VORN_UNLIKELY(static_cast<ub8>(limit - data) < need)) {
            if constexpr (kShape.offsets) offset_cursor = offsets_at_row;
            save();
            ctx->row_pos = static_cast<ub4>(row);
            return kBlockFull;
        }
        ub1 *const row_start = data;
        for (ub8 c = 0; c < per_row; ++c) {
            const ub8 index = row * per_row + c;
            const ub8 ahead = index + kPrefetchRows < last_ref ? index + kPrefetchRows : last_ref;
            _mm_prefetch(reinterpret_cast<const char *>(address_at(table + 10 * ahead + 2)), _MM_HINT_NTA);
            const ub1 *ref = refs + 10 * c;
            const ub8 len = load<ub2>(ref);
            if constexpr (kShape.len_fields) store<ub2>(data, static_cast<ub2>(len));
            fast_copy(data + kLenField, address_at(ref + 2), len);
            if constexpr (kShape.value_refs) {
                put_reference(ref_cursor, len, data + kLenField);
                ref_cursor += 10;
            }
            if constexpr (kShape.offsets) {
                last_offset += static_cast<ub4>(len);
                store<ub4>(offset_cursor++, last_offset);
            }
            data += len + kLenField;
        }
        if constexpr (kShape.row_ref) {
            put_reference(ref_cursor, static_cast<ub8>(data - row_start), row_start);
            ref_cursor += 10;
        }
        if constexpr (kShape.offsets) offsets_at_row = offset_cursor;
    }
    save();
    ctx->row_pos = last_row + 1;
    return 0;
}

}  // namespace
}  // namespace vorn::rows

extern "C" ub8 vorn_transpose_convert_dydi(const vorn_transpose_spec *spec, const ub1 *const *refs, sb4 block,
                                           sb4 ref_block, ub4 first_row, ub4 last_row, vorn_kernel_ctx *ctx) {
    using namespace vorn::rows;
    const ub4 flags = spec->flags;
    if (!(flags & (VORN_STORE_REFS | VORN_STORE_OFFSETS))) return kNotServed;
    if (last_row < first_row) {
        ctx->row_pos = first_row;
        return 0;
    }
    const ub1 *table = refs[ref_block];
    if (flags & VORN_STORE_REFS) {
        if (flags & VORN_STORE_ONE_COL) return convert_rows<kRowRefs>(spec, table, block, first_row, last_row, ctx);
        if (flags & VORN_STORE_LEN_FIELDS)
            return convert_rows<kValueRefsWithLengths>(spec, table, block, first_row, last_row, ctx);
        if (flags & VORN_STORE_OFFSETS)
            return convert_rows<kValueRefsAndOffsets>(spec, table, block, first_row, last_row, ctx);
        return convert_rows<kValueRefs>(spec, table, block, first_row, last_row, ctx);
    }
    return convert_rows<kOffsets>(spec, table, block, first_row, last_row, ctx);
}
