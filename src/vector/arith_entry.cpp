// arith_entry.cpp - vorn_vector_arith_dydi: element-wise arithmetic over
// vector columns, and the uniform drivers.
//
// vorn_vector_arith_dydi(res, norms, left, right, operation, ctx, unused)
//   operation  19 add, 20 sub, 21 mul, 22 div; any other returns 2.
//   left, right, res  vector columns; each enc_ctx gives the element type
//              (1 float, 2 double, 5 int8) and the form (C unless
//              VORN_NATIVE_FP).  With VORN_VEC_COLUMN `data` is an array of
//              row pointers, without it `data` is the one vector.  A right
//              column flagged VORN_CONST is a scalar: `data` points to one
//              element in the right's form.
//   norms      null, or the address of a pointer to one double per row done.
// Steps:
//   1. Shape: a scalar right, or equal row counts (paired: row i with row
//      i), or a left of one row against more right rows (single).  Any
//      other pair of counts, or a column of more than one row without
//      VORN_VEC_COLUMN, returns 2.
//   2. Flexibility: VORN_VEC_COLUMN with VORN_VEC_FLEX on some of left,
//      right (unless scalar) and res but not all returns 24.  On all, the
//      flexible drivers run (arith_flex.cpp); a result or scalar type other
//      than float, double and int8 returns 24.
//   3. Uniform: the kernel of the three forms (none: 24); rows are bodies of
//      vec_dim elements, and different dimensions on the two sides return 2.
// Rows are walked as the distance drivers walk them (row_walk.h), up to
// res->size rows; result row k (the k-th pointer of res->data, or res->data
// itself without VORN_VEC_COLUMN) and norm k belong to the k-th row done,
// and res->num_ones receives the rows done.  In uniform columns a kernel
// failure (4, 5) ends the walk at its row and is returned.
#include "vector/arith_drivers.h"
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

enum class UnifShape { Paired, Single, Scalar };

// The uniform walk: one kernel for every row.
template <UnifShape Shape>
ub8 walk_unif(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right, vorn_vector_arith_fn kernel,
              vorn_kernel_ctx *ctx) {
    constexpr bool kSingle = Shape == UnifShape::Single, kScalar = Shape == UnifShape::Scalar;
    const ub4 dim = left->enc_ctx->vec_dim;
    vorn_vec *walked_col = kSingle ? right : left;
    const void *fixed = kSingle ? row_pointer(left, 0) : kScalar ? right->data : nullptr;
    ub8 done = 0;
    const ub8 code = walk_rows(
        ctx, walked_col->size, res->size,
        [&](const ub4 *batch, ub4 n) { prefetch_row_pointers(walked_col, batch, n); },
        [&](ub8 k, ub4 r, ub4 next) -> ub8 {
            const void *a = kSingle ? fixed : row_pointer(left, r);
            const void *b = kSingle || !kScalar ? row_pointer(right, r) : fixed;
            __builtin_prefetch(row_pointer(walked_col, next));
            double norm;
            const ub8 c = kernel(dim, a, b, result_row(res, k), &norm);
            if (c == 0 && norms != nullptr) norms[k] = norm;
            return c;
        },
        &done);
    res->num_ones = static_cast<ub4>(done);
    return code;
}

}  // namespace
}  // namespace vorn::vec

extern "C" {

ub8 vorn_vector_arith_vec_single_unif(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right,
                                      vorn_vector_arith_fn kernel, vorn_kernel_ctx *ctx) {
    return vorn::vec::walk_unif<vorn::vec::UnifShape::Single>(res, norms, left, right, kernel, ctx);
}

ub8 vorn_vector_arith_dydi(vorn_vec *res, double **norms, vorn_vec *left, vorn_vec *right, ub8 operation,
                           vorn_kernel_ctx *ctx, void *) {
    using namespace vorn::vec;
    const ub4 op = static_cast<ub4>(operation);
    if (op < kFirstArithCode || op >= kFirstArithCode + kArithOps) return 2;
    const vorn_enc_ctx *le = left->enc_ctx, *re = right->enc_ctx, *oe = res->enc_ctx;
    const bool scalar = VORN_ENC_CTX_FLAG(re, VORN_CONST);

    const ub4 nl = left->size, nr = right->size;
    bool single = false;
    if (!scalar) {
        if (nl == 1 && nr > 1) single = true;
        else if (nl != nr) return 2;
        if (nr > 1 && !VORN_ENC_CTX_FLAG(re, VORN_VEC_COLUMN)) return 2;
    }
    if (nl > 1 && !VORN_ENC_CTX_FLAG(le, VORN_VEC_COLUMN)) return 2;
    double *norm_out = norms != nullptr ? *norms : nullptr;

    const bool lf = is_flex(le), of = is_flex(oe), rf = scalar ? lf : is_flex(re);
    if (lf != of || lf != rf) return 24;
    if (lf) {
        if (!flex_types_served(res, scalar ? right : nullptr)) return 24;
        if (scalar) return vorn_vector_arith_scalar_flex(res, norm_out, left, right, op, ctx);
        if (single) return vorn_vector_arith_vec_single_flex(res, norm_out, left, right, op, ctx);
        return vorn_vector_arith_vec_paired_flex(res, norm_out, left, right, op, ctx);
    }

    const vorn_vector_arith_fn kernel =
        vorn_vector_arith_dispatch(op, le->elem_type, c_bit(le), 0, re->elem_type, c_bit(re), 0, oe->elem_type,
                                   c_bit(oe), 0, scalar ? 1 : 0, norm_out != nullptr ? 1 : 0);
    if (kernel == nullptr) return 24;
    if (!scalar && re->vec_dim != le->vec_dim) return 2;
    if (scalar) return walk_unif<UnifShape::Scalar>(res, norm_out, left, right, kernel, ctx);
    if (single) return vorn_vector_arith_vec_single_unif(res, norm_out, left, right, kernel, ctx);
    return walk_unif<UnifShape::Paired>(res, norm_out, left, right, kernel, ctx);
}

}  // extern "C"
