// The dense dotprod kernels: vorn_dbv_dotprod_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_DENSE_METRIC(dotprod)
