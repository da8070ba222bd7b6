// The sparse manhattan kernels: vorn_dbv_manhattan_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_SPARSE_METRIC(manhattan)
