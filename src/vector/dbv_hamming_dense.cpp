// The dense hamming kernels: vorn_dbv_hamming_*.
#include "vector/dbv_kernel.h"

VORN_DBV_DEFINE_DENSE_METRIC(hamming)
