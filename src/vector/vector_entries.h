// vector_entries.h - the entries of vector search that this tree serves:
// distances and top-K over vector columns, element type conversion and
// element-wise arithmetic, with their kernel shapes and drivers.
#pragma once

#include "frame/entries.h"

extern "C" {

// A vector arithmetic kernel: (dimensions, left, right or the scalar, result,
// norm output).  Returns 0, 4 (overflow, also of the norm) or 5 (int8
// division by zero).  The norm output is written only by the _wnorm shapes
// and only on success.
typedef ub8 (*vorn_vector_arith_fn)(ub4 dim, const void *left, const void *right, void *res, double *norm);

// The kernel for an operation (19 add, 20 sub, 21 mul, 22 div), the type,
// C indicator and sparse indicator of the left, right and result operands,
// and the scalar and norm flags, by the key
//   ((((op * 36 + 4 tA + cA + 2 sA) * 36 + 4 tB + cB + 2 sB) * 36
//     + 4 tR + cR + 2 sR) * 2 + scalar) * 2 + wnorm.
// Null when no kernel stands at the key.
VORN_INTERNAL vorn_vector_arith_fn vorn_vector_arith_dispatch(ub4 op, ub4 type_a, ub4 c_a, ub4 sparse_a,
                                                              ub4 type_b, ub4 c_b, ub4 sparse_b, ub4 type_r,
                                                              ub4 c_r, ub4 sparse_r, ub4 scalar, ub4 wnorm);
VORN_INTERNAL ub4 vorn_vector_arith_key(ub4 op, ub4 type_a, ub4 c_a, ub4 sparse_a, ub4 type_b, ub4 c_b,
                                        ub4 sparse_b, ub4 type_r, ub4 c_r, ub4 sparse_r, ub4 scalar, ub4 wnorm);

VORN_INTERNAL ub8 vorn_vector_arith_dydi(vorn_vec *res, double **norms, vorn_vec *left, vorn_vec *right,
                                         ub8 operation, vorn_kernel_ctx *ctx, void *unused);
VORN_INTERNAL ub8 vorn_vector_convert_fp_dydi(vorn_vec *res, double **norms, vorn_vec *src, ub8 *bad_rows,
                                              vorn_kernel_ctx *ctx);

// Distances: vorn_vector_distance_dydi checks the shapes and picks a
// driver; the drivers walk the rows (distance_entry.cpp).
VORN_INTERNAL ub8 vorn_vector_distance_dydi(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms,
                                            vorn_kernel_ctx *ctx, void *scratch);
VORN_INTERNAL ub8 vorn_dbv_single_unif_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel,
                                                ub4 metric, vorn_kernel_ctx *ctx, void *scratch, ub4 left_sparse);
VORN_INTERNAL ub8 vorn_dbv_paired_unif_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel,
                                                ub4 metric, vorn_kernel_ctx *ctx);
VORN_INTERNAL ub8 vorn_dbv_single_flex_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub4 metric,
                                                vorn_kernel_ctx *ctx);
VORN_INTERNAL ub8 vorn_dbv_paired_flex_distance(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub4 metric,
                                                vorn_kernel_ctx *ctx);

// Top-K over the same walks (topk_entry.cpp).
VORN_INTERNAL ub8 vorn_vector_topk_dydi(vorn_vec *res, vorn_vec *right, vorn_vec *left, ub8 metric, ub8 forms,
                                        vorn_kernel_ctx *ctx, void *scratch);
VORN_INTERNAL ub8 vorn_dbv_single_unif_topk(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel,
                                            ub4 metric, vorn_kernel_ctx *ctx, void *scratch, ub4 left_sparse);
VORN_INTERNAL ub8 vorn_dbv_paired_unif_topk(vorn_vec *res, vorn_vec *right, vorn_vec *left, vorn_dbv_fn kernel,
                                            ub4 metric, vorn_kernel_ctx *ctx);

}  // extern "C"
