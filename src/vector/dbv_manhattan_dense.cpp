// The dense manhattan kernels: vorn_dbv_manhattan_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_DENSE_METRIC(manhattan)
