// The jaccard kernels: bit vectors only, dense and sparse.
#include "vector/dbv_kernel.h"

extern "C" {
VORN_DBV_DEFINE_DENSE_(jaccard, bitmsb0, bitmsb0)
VORN_DBV_DEFINE_SPARSE_(jaccard, bitmsb0, bitmsb0)
}
