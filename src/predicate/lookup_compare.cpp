// lookup_compare.cpp - vorn_lookup_and_compare_dydi: two columns of native
// ub4 codes compared row by row, each code first carried through its own
// look-up table when one is given.
//
// The rows are the first src.size - kctx.row_pos of both arrays: row_pos
// shortens the loop and does not move it.  The operation is the ub1 behind
// `op`, read for each row: 0 eq, 1 lt, 2 gt, 3 le, 4 ge, 5 ne; 6 and above
// match nothing.  A matching row sets its bit; no bit is cleared, so the
// caller hands in a cleared vector.  The count goes to res.num_ones and the
// result is 0, also for an empty result.
#include "frame/entries.h"

namespace {

// A table is absent when its cell or the address in it is null.
VORN_INLINE const ub4 *table_of(const ub4 *const *cell) { return cell ? *cell : nullptr; }

VORN_INLINE bool holds(ub1 op, ub4 x, ub4 y) {
    switch (op) {
        case VORN_OP_EQ: return x == y;
        case VORN_OP_LT: return x < y;
        case VORN_OP_GT: return x > y;
        case VORN_OP_LE: return x <= y;
        case VORN_OP_GE: return x >= y;
        case VORN_OP_NE: return x != y;
        default: return false;
    }
}

}  // namespace

extern "C" ub8 vorn_lookup_and_compare_dydi(vorn_vec *res, vorn_vec *src, const ub4 *const *second,
                                            const ub4 *const *map1, const ub4 *const *map2,
                                            const ub1 *const *op, vorn_kernel_ctx *kctx) {
    const ub4 skip = kctx ? kctx->row_pos : 0;
    const ub4 n = src->size > skip ? src->size - skip : 0;
    const ub4 *x_codes = static_cast<const ub4 *>(src->data), *y_codes = *second;
    const ub4 *x_map = table_of(map1), *y_map = table_of(map2);
    const volatile ub1 *form = *op;  // read anew for each row
    ub8 *bits = res->res_bv;
    ub8 count = 0;
    for (ub4 i = 0; i < n; ++i) {
        ub4 x = x_codes[i], y = y_codes[i];
        if (x_map) x = x_map[x];
        if (y_map) y = y_map[y];
        if (holds(*form, x, y)) {
            bits[i >> 6] |= ub8{1} << (i & 63);
            ++count;
        }
    }
    res->num_ones = static_cast<ub4>(count);
    return 0;
}
