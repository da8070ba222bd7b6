// The packed dictionary compares of widths 3, 5, 6, 7.
#include "predicate/dict_kernels.h"

namespace vorn {
template struct DictWidthKernels<3>;
template struct DictWidthKernels<5>;
template struct DictWidthKernels<6>;
template struct DictWidthKernels<7>;
}  // namespace vorn
