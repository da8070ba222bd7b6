// The sparse euclid kernels: vorn_dbv_euclid_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_SPARSE_METRIC(euclid)
