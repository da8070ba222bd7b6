// The sparse cosine kernels: vorn_dbv_cosine_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_SPARSE_METRIC(cosine)
