// gather_fixed.cpp - the gather loops of the fixed-stride store: every id
// column, the result layouts VORN_FIXED and VORN_PTR_LEN, every choice of
// columns.  A row is one stride of bytes, so a one-value row is the same as
// the row's columns.
#include "rows/gather_loops.h"

namespace vorn::rows {
namespace {

template <bool>
using AnyFixedStore = FixedStore;

}  // namespace

ub8 gather_fixed(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                 const Columns &cols) {
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
