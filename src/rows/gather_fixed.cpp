// gather_fixed.cpp - the gather loops of the fixed-stride store: every id
// column, the result layouts VORN_FIXED and VORN_PTR_LEN, every choice of
// columns.  A row is one stride of bytes, so a one-value row is the same as
// the row's columns.
//
// A call that fetches one column per row (the common case: a join carrying
// one build-side column) has a loop of its own.  Every value then takes the
// same room, so the rows that fit are counted before the loop and the loop
// is only id, page and slot, one load and one store: short enough that the
// processor's window holds the line misses of many rows at once.
#include "rows/gather_loops.h"

namespace vorn::rows {
namespace {

template <bool>
using AnyFixedStore = FixedStore;

// The column of a call that fetches one value per row, or -1.
sb8 single_column(const Columns &cols) {
    switch (cols.kind) {
        case Columns::Kind::kOne: return cols.col;
        case Columns::Kind::kRowValue:
        case Columns::Kind::kAll: return cols.num == 1 ? 0 : -1;
        case Columns::Kind::kList: return cols.num == 1 ? cols.list[0] : -1;
    }
    return -1;
}

// VORN_FIXED: the kLen bytes of the value; room kLen a value.
template <ub8 kLen>
struct CopyOut {
    ub1 *data;
    CopyOut(vorn_vec *res, ub8) : data(bytes_of(res->data)) {}
    static constexpr ub8 room() { return kLen; }
    VORN_INLINE void put(ub8 i, const ub1 *value) const { std::memcpy(data + kLen * i, value, kLen); }
};

// VORN_PTR_LEN: the address and the column's length; room 8 a value.
struct AddressOut {
    ub1 *data, *lens;
    ub2 len;
    AddressOut(vorn_vec *res, ub8 len)
        : data(bytes_of(res->data)), lens(bytes_of(res->data2)), len(static_cast<ub2>(len)) {}
    static constexpr ub8 room() { return 8; }
    VORN_INLINE void put(ub8 i, const ub1 *value) const {
        store<ub8>(data + 8 * i, reinterpret_cast<ub8>(value));
        store<ub2>(lens + 2 * i, len);
    }
};

// Rows row_pos to src.size - 1, column `col` of each; 19 at the first row
// without room.  kWholeId: the page is every id bit from low_bit up (a
// high_bit at or above the id's top bit), and the loop does not mask it.
template <class Ids, class Out, bool kWholeId>
VORN_NOINLINE ub8 gather_column(vorn_vec *res, const vorn_vec *src, const vorn_gather_spec *spec,
                                vorn_kernel_ctx *ctx, ub4 col) {
    const Ids ids(src);
    const PageRule pages(spec);
    const ub1 *const *data_pages = spec->data_pages;
    const ub8 stride = spec->row_stride, offset = spec->col_offsets[col];
    const Out out(res, spec->col_lens[col]);
    const ub4 n = src->size, first = ctx->row_pos;
    const ub8 fit = res->byte_capacity / Out::room();
    const ub8 count = first >= n ? 0 : (n - first > fit ? fit : n - first);
    for (ub8 i = 0; i < count; ++i) {
        const ub8 id = ids(first + i);
        const ub8 page = kWholeId ? id >> pages.shift : pages.page(id);
        out.put(i, data_pages[page] + pages.slot(id) * stride + offset);
    }
    const ub4 end = first + static_cast<ub4>(count);
    res->size = static_cast<ub4>(count);
    res->byte_capacity = count * Out::room();
    ctx->row_pos = end;
    return end < n ? kGatherFull : 0;
}

template <class Out>
ub8 gather_one(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx, ub4 col) {
    return with_ids(id_kind(src), [&]<class Ids>() {
        // A one-page store (low_bit 64) keeps its masks: page 0 for every id.
        const ub4 id_top = Ids::kBits - 1;
        if (spec->low_bit < 64 && spec->high_bit >= id_top) return gather_column<Ids, Out, true>(res, src, spec, ctx, col);
        return gather_column<Ids, Out, false>(res, src, spec, ctx, col);
    });
}

}  // namespace

ub8 gather_fixed(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                 const Columns &cols) {
    // Refusals come before the store is read.
    const ub4 res_flags = res->enc_ctx->flags;
    if (!(res_flags & (VORN_FIXED | VORN_PTR_LEN)) || id_kind(src) == IdKind::kNone) return kNotServed;
    if (const sb8 found = single_column(cols); found >= 0) {
        const ub4 col = static_cast<ub4>(found);
        if (!(res_flags & VORN_FIXED)) return gather_one<AddressOut>(res, src, spec, ctx, col);
        switch (spec->col_lens[col]) {
            case 1: return gather_one<CopyOut<1>>(res, src, spec, ctx, col);
            case 2: return gather_one<CopyOut<2>>(res, src, spec, ctx, col);
            case 4: return gather_one<CopyOut<4>>(res, src, spec, ctx, col);
            case 8: return gather_one<CopyOut<8>>(res, src, spec, ctx, col);
            case 16: return gather_one<CopyOut<16>>(res, src, spec, ctx, col);
        }
    }
    Columns chosen = cols;
    if (chosen.kind == Columns::Kind::kRowValue) chosen.kind = Columns::Kind::kAll;
    return with_fixed_sink(res, [&]<class Sink>() {
        return with_columns<AnyFixedStore>(chosen, [&]<class Store>(auto columns) {
            return with_ids(id_kind(src), [&]<class Ids>() {
                return gather_rows<Ids, Store, Sink>(res, src, spec, ctx, columns);
            });
        });
    });
}

}  // namespace vorn::rows
