// gather.cpp - the three gather entries and the plain copy.
//
// vorn_gather_dydi(res, src, spec, ctx) fetches every column of each row
// (one value per row with VORN_STORE_ONE_COL in the reference and offset
// stores); vorn_gather_one_col_dydi one column by index;
// vorn_gather_cols_dydi the columns of a list, in its order.  Ids come from
// src: a VORN_FIXED column of native 1, 2, 4 or 8-byte ids, or 16-byte
// records of key kind VORN_KEY_KIND_KEYRID with the id at byte 8.  Rows
// row_pos to src.size - 1 are done; 19 stops at the value without room (see
// gather_loops.h for the result's fields).
//
// Before any of that, vorn_gather_dydi copies a VORN_PTR_LEN or VORN_LEN_PTR
// src straight into a VORN_LV_SEP res: no store and no spec, the value 32
// rows ahead always in flight.
#include "frame/entries.h"
#include "rows/gather_loops.h"

namespace vorn::rows {
namespace {

struct PtrLenValues {
    const ub1 *ptrs, *lens;
    explicit PtrLenValues(const vorn_vec *src) : ptrs(bytes_of(src->data)), lens(bytes_of(src->data2)) {}
    VORN_INLINE const ub1 *addr(ub8 row) const { return address_at(ptrs + 8 * row); }
    VORN_INLINE Value operator()(ub8 row) const { return {addr(row), load<ub2>(lens + 2 * row)}; }
};

struct LenPtrValues {
    const ub1 *refs;
    explicit LenPtrValues(const vorn_vec *src) : refs(bytes_of(src->data)) {}
    VORN_INLINE const ub1 *addr(ub8 row) const { return address_at(refs + 10 * row + 2); }
    VORN_INLINE Value operator()(ub8 row) const { return {addr(row), load<ub2>(refs + 10 * row)}; }
};

template <class Values>
VORN_NOINLINE ub8 plain_copy(vorn_vec *res, const vorn_vec *src, vorn_kernel_ctx *ctx) {
    const Values values(src);
    LvSepSink out(res);
    const ub4 n = src->size;
    ub4 row = ctx->row_pos;
    auto stop = [&](ub4 at, ub8 code) {
        ctx->row_pos = at;
        out.finish(res);
        return code;
    };
    if (row >= n) return stop(row, 0);
    const ub4 primed = n - row > kPrefetchRows ? row + kPrefetchRows : n;
    for (ub4 i = row; i < primed; ++i) _mm_prefetch(reinterpret_cast<const char *>(values.addr(i)), _MM_HINT_T0);
    const ub4 ahead_end = n > kPrefetchRows ? n - kPrefetchRows : 0;
    for (; row < ahead_end; ++row) {
        _mm_prefetch(reinterpret_cast<const char *>(values.addr(row + kPrefetchRows)), _MM_HINT_T0);
        if (VORN_UNLIKELY(!out.put(values(row)))) return stop(row, kGatherFull);
    }
    for (; row < n; ++row)
        if (VORN_UNLIKELY(!out.put(values(row)))) return stop(row, kGatherFull);
    return stop(n, 0);
}

// The store forms in the order they are tested: references, offsets, fixed.
ub8 gather_store(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                 const Columns &cols) {
    if (spec->flags & VORN_STORE_REFS) return gather_refs(res, src, spec, ctx, cols);
    if (spec->flags & VORN_STORE_OFFSETS) return gather_offsets(res, src, spec, ctx, cols);
    if (spec->flags & VORN_STORE_FIXED) return gather_fixed(res, src, spec, ctx, cols);
    return kNotServed;
}

}  // namespace
}  // namespace vorn::rows

extern "C" {

ub8 vorn_gather_dydi(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx) {
    using namespace vorn::rows;
    const ub4 src_flags = src->enc_ctx->flags;
    if (res->enc_ctx->flags & VORN_LV_SEP) {
        if (src_flags & VORN_PTR_LEN) return plain_copy<PtrLenValues>(res, src, ctx);
        if (src_flags & VORN_LEN_PTR) return plain_copy<LenPtrValues>(res, src, ctx);
    }
    // The fixed store has no one-value rows: it fetches num_cols columns.
    const bool one_per_row = spec->flags & VORN_STORE_ONE_COL;
    const Columns cols{one_per_row ? Columns::Kind::kRowValue : Columns::Kind::kAll, 0, nullptr, spec->num_cols};
    return gather_store(res, src, spec, ctx, cols);
}

ub8 vorn_gather_one_col_dydi(vorn_vec *res, vorn_vec *src, const vorn_gather_spec *spec, vorn_kernel_ctx *ctx,
                             ub4 col) {
    using namespace vorn::rows;
    return gather_store(res, src, spec, ctx, Columns{Columns::Kind::kOne, col, nullptr, 0});
}

ub8 vorn_gather_cols_dydi(vorn_vec *res, vorn_vec *src, const ub2 *col_list, ub4 num, const vorn_gather_spec *spec,
                          vorn_kernel_ctx *ctx) {
    using namespace vorn::rows;
    return gather_store(res, src, spec, ctx, Columns{Columns::Kind::kList, 0, col_list, num});
}

}  // extern "C"
