// dbv_names.h - the names of the distance kernels, as lists that expand to
// declarations, definitions and tables: vorn_dbv_<metric>_<left>_<right>.
//
// Each of the five metrics euclid, cosine, dotprod, manhattan and hamming
// has 164 members: the nine dense forms against each other, the same 81
// pairs with both sides sparse (prefix S, outside the C of the form), and
// bitmsb0_bitmsb0 and Sbitmsb0_Sbitmsb0.  Jaccard has only the two bit
// pairs.  822 kernels in all.
#pragma once

#include "frame/entries.h"

// The nine dense forms, in the order of the pick table's indexes.  Two
// copies of the list, because one macro cannot expand inside itself.
#define VORN_DBV_LEFT_FORMS(X, ...)                                                        \
    X(__VA_ARGS__, float) X(__VA_ARGS__, Cfloat) X(__VA_ARGS__, double)                    \
    X(__VA_ARGS__, Cdouble) X(__VA_ARGS__, int8) X(__VA_ARGS__, float16)                   \
    X(__VA_ARGS__, Cfloat16) X(__VA_ARGS__, bfloat16) X(__VA_ARGS__, Cbfloat16)
#define VORN_DBV_RIGHT_FORMS(X, ...)                                                       \
    X(__VA_ARGS__, float) X(__VA_ARGS__, Cfloat) X(__VA_ARGS__, double)                    \
    X(__VA_ARGS__, Cdouble) X(__VA_ARGS__, int8) X(__VA_ARGS__, float16)                   \
    X(__VA_ARGS__, Cfloat16) X(__VA_ARGS__, bfloat16) X(__VA_ARGS__, Cbfloat16)

// X(metric, left, right) over the 81 dense pairs of a metric, and over the
// 81 sparse ones (the S is pasted on by the caller's X through S##left).
#define VORN_DBV_ROW_(X, metric, left) VORN_DBV_RIGHT_FORMS(X, metric, left)
#define VORN_DBV_PAIRS(X, metric) VORN_DBV_LEFT_FORMS(VORN_DBV_ROW_, X, metric)

// The five metrics with the full grid.
#define VORN_DBV_GRID_METRICS(X) X(euclid) X(cosine) X(dotprod) X(manhattan) X(hamming)

// Kernel signature.
#define VORN_DBV_SIGNATURE(name) \
    ub8 name(ub4 dims, const void *left, const void *right, ub4 metric, double *out)

// Declarations of all 822.
#define VORN_DBV_DECLARE_DENSE_(metric, left, right) \
    VORN_INTERNAL VORN_DBV_SIGNATURE(vorn_dbv_##metric##_##left##_##right);
#define VORN_DBV_DECLARE_SPARSE_(metric, left, right) \
    VORN_INTERNAL VORN_DBV_SIGNATURE(vorn_dbv_##metric##_S##left##_S##right);
#define VORN_DBV_DECLARE_METRIC_(metric)                              \
    VORN_DBV_PAIRS(VORN_DBV_DECLARE_DENSE_, metric)                   \
    VORN_DBV_PAIRS(VORN_DBV_DECLARE_SPARSE_, metric)                  \
    VORN_INTERNAL VORN_DBV_SIGNATURE(vorn_dbv_##metric##_bitmsb0_bitmsb0); \
    VORN_INTERNAL VORN_DBV_SIGNATURE(vorn_dbv_##metric##_Sbitmsb0_Sbitmsb0);

extern "C" {
VORN_DBV_GRID_METRICS(VORN_DBV_DECLARE_METRIC_)
VORN_INTERNAL VORN_DBV_SIGNATURE(vorn_dbv_jaccard_bitmsb0_bitmsb0);
VORN_INTERNAL VORN_DBV_SIGNATURE(vorn_dbv_jaccard_Sbitmsb0_Sbitmsb0);

// Every kernel with its name, in the order of the pick table's indexes:
// per grid metric the 81 dense pairs (left-major in the order of the form
// list), bitmsb0_bitmsb0, the 81 sparse pairs, Sbitmsb0_Sbitmsb0; then the
// two jaccard kernels.
VORN_INTERNAL extern const vorn_dbv_fn vorn_dbv_kernels[822];
VORN_INTERNAL extern const char *const vorn_dbv_kernel_names[822];
}
