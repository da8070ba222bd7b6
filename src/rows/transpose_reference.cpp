// transpose_reference.cpp - vorn_transpose_reference_dydi: the references
// of one column into the row reference table of a block.
//
// Row i's reference of column `col` (its low 16 bits) goes to
// ref_tables[block] + 10 * (i * num_cols + col): a native ub2 length and an
// unaligned ub8 address into the source column, which must outlive the
// store's conversion.  All rows of src are written; the kernel keeps no
// position and does not read ctx.  Only a store record with VORN_STORE_REFS is
// served.  A block below 0 gives no table: the host always gives one.
#include "frame/entries.h"
#include "predicate/value_layouts.h"
#include "rows/gather_loops.h"
#include "rows/transpose_rows.h"

namespace vorn::rows {
namespace {

struct FixedValues {
    const ub1 *p;
    ub8 width;
    explicit FixedValues(const vorn_vec *v) : p(bytes_of(v->data)), width(v->enc_ctx->bit_width >> 3) {}
    VORN_INLINE layout::Value next(ub8 row) const { return {p + width * row, width}; }
};

template <class Values>
VORN_NOINLINE void write_references(ub1 *table, ub8 per_row, ub4 col, const vorn_vec *src) {
    Values values(src);
    write_rows(table + 10 * ub8{col}, 10 * per_row, src->size, [&](ub1 *ref, ub8 i) {
        const layout::Value v = values.next(i);
        store<ub2>(ref, static_cast<ub2>(v.len));
        store<ub8>(ref + 2, reinterpret_cast<ub8>(v.p));
    });
}

// A VORN_LEN_PTR row already is the reference.
VORN_NOINLINE void copy_references(ub1 *table, ub8 per_row, ub4 col, const vorn_vec *src) {
    const ub1 *from = bytes_of(src->data);
    write_rows(table + 10 * ub8{col}, 10 * per_row, src->size, [&](ub1 *ref, ub8 i) {
        store<ub8>(ref, load<ub8>(from + 10 * i));
        store<ub2>(ref + 8, load<ub2>(from + 10 * i + 8));
    });
}

}  // namespace
}  // namespace vorn::rows

extern "C" ub8 vorn_transpose_reference_dydi(const vorn_transpose_spec *spec, vorn_vec *src, ub4 col, sb4 block,
                                             vorn_kernel_ctx *) {
    using namespace vorn::rows;
    const ub4 flags = transposed_flags(spec, src, VORN_STORE_REFS);
    if (flags == 0) return kNotServed;
    ub1 *table = block < 0 ? nullptr : spec->ref_tables[block];
    const ub8 per_row = spec->num_cols;
    col &= 0xffff;
    if (flags & VORN_FIXED) return write_references<FixedValues>(table, per_row, col, src), 0;
    if (flags & VORN_LV_SEP) return write_references<vorn::layout::LvSep>(table, per_row, col, src), 0;
    if (flags & VORN_LV) return write_references<vorn::layout::Lv>(table, per_row, col, src), 0;
    if (flags & VORN_PTR_LEN) return write_references<vorn::layout::PtrLen>(table, per_row, col, src), 0;
    if (flags & VORN_LEN_PTR) return copy_references(table, per_row, col, src), 0;
    return kNotServed;
}
