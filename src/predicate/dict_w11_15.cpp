// The packed dictionary compares of widths 11, 13, 14, 15.
#include "predicate/dict_kernels.h"

namespace vorn {
template struct DictWidthKernels<11>;
template struct DictWidthKernels<13>;
template struct DictWidthKernels<14>;
template struct DictWidthKernels<15>;
}  // namespace vorn
