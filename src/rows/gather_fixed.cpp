// gather_fixed.cpp - the gather loops of the fixed-stride store: every id
// column, the result layouts VORN_FIXED and VORN_PTR_LEN, every choice of
// columns.  A row is one stride of bytes, so a one-value row is the same as
// the row's columns.
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

template <ub8 kLen>
ub8 gather_one_length(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx, ub4 col) {
    return with_fixed_sink<kLen>(res, [&]<class Sink>() {
        return with_ids(id_kind(src), [&]<class Ids>() {
            return gather_rows<Ids, FixedStoreOf<kLen>, Sink>(res, src, spec, ctx, OneColumn{col});
        });
    });
}

}  // namespace

ub8 gather_fixed(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                 const Columns &cols) {
    // Refusals come before the store is read.
    if (!(res->enc_ctx->flags & (VORN_FIXED | VORN_PTR_LEN)) || id_kind(src) == IdKind::kNone) return kNotServed;
    if (const sb8 col = single_column(cols); col >= 0) {
        switch (spec->col_lens[col]) {
            case 1: return gather_one_length<1>(res, src, spec, ctx, static_cast<ub4>(col));
            case 2: return gather_one_length<2>(res, src, spec, ctx, static_cast<ub4>(col));
            case 4: return gather_one_length<4>(res, src, spec, ctx, static_cast<ub4>(col));
            case 8: return gather_one_length<8>(res, src, spec, ctx, static_cast<ub4>(col));
            case 16: return gather_one_length<16>(res, src, spec, ctx, static_cast<ub4>(col));
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
