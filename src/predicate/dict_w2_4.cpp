// The packed dictionary compares of widths 2, 4.
#include "predicate/dict_kernels.h"

namespace vorn {
template struct DictWidthKernels<2>;
template struct DictWidthKernels<4>;
}  // namespace vorn
