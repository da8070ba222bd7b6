// arith_drivers.h - the row drivers of vorn_vector_arith_dydi.
//
// Uniform columns (every row the same form and dimension, known from the
// descriptors) take one kernel for the whole call: the entry runs the paired
// and scalar shapes itself, vorn_vector_arith_vec_single_unif the one left
// vector against every right row.
//
// Flexible columns (VORN_VEC_COLUMN with VORN_VEC_FLEX) hold one stored
// value per row, header included; each row's header is read and its kernel
// picked from the row's own forms:
//   vorn_vector_arith_vec_paired_flex   left row r with right row r
//   vorn_vector_arith_vec_single_flex   the left's one value with each right row
//   vorn_vector_arith_scalar_flex       each left row with the scalar at
//                                       right->data (in the right's form)
// The result column is flexible too: res->data holds one pointer per result
// row, to room for one whole stored value, which the driver writes (header,
// the 8-byte field, body); see arith_flex.cpp for its form and for the rows
// that fail.  `norms` is null or one double per result row.
#pragma once

#include "vector/vector_entries.h"

extern "C" {

VORN_INTERNAL ub8 vorn_vector_arith_vec_single_unif(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right,
                                                    vorn_vector_arith_fn kernel, vorn_kernel_ctx *ctx);

VORN_INTERNAL ub8 vorn_vector_arith_vec_paired_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right,
                                                    ub4 op, vorn_kernel_ctx *ctx);
VORN_INTERNAL ub8 vorn_vector_arith_vec_single_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right,
                                                    ub4 op, vorn_kernel_ctx *ctx);
VORN_INTERNAL ub8 vorn_vector_arith_scalar_flex(vorn_vec *res, double *norms, vorn_vec *left, vorn_vec *right,
                                                ub4 op, vorn_kernel_ctx *ctx);

}  // extern "C"

namespace vorn::vec {
// False when the result's type, or the scalar's (scalar null: none), is not
// one the flexible drivers can serve (float, double, int8): every row would
// fail, so the entry refuses the call.
bool flex_types_served(const vorn_vec *res, const vorn_vec *scalar);
}  // namespace vorn::vec
