// arith_entry.cpp - vorn_vector_arith_dydi: element-wise arithmetic over
// uniform vector columns.
//
// vorn_vector_arith_dydi(res, norms, left, right, operation, ctx, unused)
//   operation  19 add, 20 sub, 21 mul, 22 div; any other returns 2.
//   left, right, res  vector columns; each enc_ctx gives the element type
//              (1 float, 2 double, 5 int8) and the form (C unless
//              VORN_NATIVE_FP).  With VORN_VEC_COLUMN `data` is an array of
//              row pointers to bodies of vec_dim elements, without it `data`
//              is the one vector.  A right column flagged VORN_CONST is a
//              scalar: `data` points to one element in the right's form.
//   norms      null, or the address of a pointer to one double per row done.
// Shapes: a scalar right, or equal row counts (row i with row i), or a left
// of one row against every right row.  Any other pair of counts, a column
// of more than one row without VORN_VEC_COLUMN, or vectors of different
// dimensions return 2.  A triple of forms without a kernel returns 24, and
// so do flexible columns (VORN_VEC_COLUMN with VORN_VEC_FLEX), which this
// build does not serve.
// Rows are walked as the distance drivers walk them (row_walk.h), up to
// res->size rows; result row k and norm k belong to the k-th row done.  A
// kernel failure (4, 5) ends the walk and is returned.
#include "vector/arith_kernel.h"
#include "vector/row_walk.h"

namespace vorn::vec {
namespace {

constexpr ub4 kFlexMask = VORN_VEC_COLUMN | VORN_VEC_FLEX;

bool is_flex(const vorn_enc_ctx *e) { return (e->flags & kFlexMask) == kFlexMask; }
bool is_c(const vorn_enc_ctx *e) { return !VORN_ENC_CTX_FLAG(e, VORN_NATIVE_FP); }
// int8 has one form, whatever VORN_NATIVE_FP says.
ub4 c_bit(const vorn_enc_ctx *e) { return e->elem_type == kTypeInt8 ? 0 : is_c(e) ? 1 : 0; }

void *result_row(vorn_vec *res, ub8 k) {
    if (VORN_ENC_CTX_FLAG(res->enc_ctx, VORN_VEC_COLUMN)) return static_cast<void *const *>(res->data)[k];
    return res->data;
}

}  // namespace
}  // namespace vorn::vec

extern "C" ub8 vorn_vector_arith_dydi(vorn_vec *res, double **norms, vorn_vec *left, vorn_vec *right,
                                      ub8 operation, vorn_kernel_ctx *ctx, void *) {
    using namespace vorn::vec;
    const ub4 op = static_cast<ub4>(operation);
    if (op < kFirstArithCode || op >= kFirstArithCode + kArithOps) return 2;
    const vorn_enc_ctx *le = left->enc_ctx, *re = right->enc_ctx, *oe = res->enc_ctx;
    if (is_flex(le) || is_flex(re) || is_flex(oe)) return 24;
    const bool scalar = VORN_ENC_CTX_FLAG(re, VORN_CONST);
    const vorn_vector_arith_fn kernel =
        vorn_vector_arith_dispatch(op, le->elem_type, c_bit(le), 0, re->elem_type, c_bit(re), 0, oe->elem_type,
                                   c_bit(oe), 0, scalar ? 1 : 0, norms != nullptr ? 1 : 0);
    if (kernel == nullptr) return 24;

    const ub4 nl = left->size, nr = right->size;
    bool left_fixed = false;
    ub4 rows = nl;
    if (!scalar) {
        if (nl == 1 && nr > 1) {
            left_fixed = true;
            rows = nr;
        } else if (nl != nr) {
            return 2;
        }
        if (nr > 1 && !VORN_ENC_CTX_FLAG(re, VORN_VEC_COLUMN)) return 2;
        if (re->vec_dim != le->vec_dim) return 2;
    }
    if (nl > 1 && !VORN_ENC_CTX_FLAG(le, VORN_VEC_COLUMN)) return 2;

    const ub4 dim = le->vec_dim;
    double *norm_out = norms != nullptr ? *norms : nullptr;
    const void *fixed = left_fixed ? row_pointer(left, 0) : nullptr;
    const void *scalar_value = scalar ? right->data : nullptr;
    ub8 walked = 0;
    return walk_rows(
        ctx, rows, res->size, [&](const ub4 *batch, ub4 n) { prefetch_row_pointers(left_fixed ? right : left, batch, n); },
        [&](ub8 k, ub4 r, ub4 next) -> ub8 {
            const void *a = left_fixed ? fixed : row_pointer(left, r);
            const void *b = scalar ? scalar_value : row_pointer(right, r);
            __builtin_prefetch(left_fixed ? row_pointer(right, next) : row_pointer(left, next));
            double norm;
            const ub8 code = kernel(dim, a, b, result_row(res, k), &norm);
            if (code == 0 && norm_out != nullptr) norm_out[k] = norm;
            return code;
        },
        &walked);
}
