// The sparse dotprod kernels: vorn_dbv_dotprod_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_SPARSE_METRIC(dotprod)
