// The packed dictionary compares of widths 9, 10, 12.
#include "predicate/dict_kernels.h"

namespace vorn {
template struct DictWidthKernels<9>;
template struct DictWidthKernels<10>;
template struct DictWidthKernels<12>;
}  // namespace vorn
