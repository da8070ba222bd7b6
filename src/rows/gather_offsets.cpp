// gather_offsets.cpp - the gather loops of the offset store: every id
// column, every variable result layout, every choice of columns.
#include "rows/gather_loops.h"

namespace vorn::rows {

ub8 gather_offsets(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                   const Columns &cols) {
    return with_variable_sink(res, [&]<class Sink>() {
        return with_columns<OffsetStore>(cols, [&]<class Store>(auto columns) {
            return with_ids(id_kind(src), [&]<class Ids>() {
                return gather_rows<Ids, Store, Sink>(res, src, spec, ctx, columns);
            });
        });
    });
}

}  // namespace vorn::rows
