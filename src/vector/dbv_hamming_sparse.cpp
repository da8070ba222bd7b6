// The sparse hamming kernels: vorn_dbv_hamming_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_SPARSE_METRIC(hamming)
