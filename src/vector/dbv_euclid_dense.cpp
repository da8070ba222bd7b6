// The dense euclid kernels: vorn_dbv_euclid_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_DENSE_METRIC(euclid)
