// The packed dictionary compares of widths 17, 18, 19, 20, 24.
#include "predicate/dict_kernels.h"

namespace vorn {
template struct DictWidthKernels<17>;
template struct DictWidthKernels<18>;
template struct DictWidthKernels<19>;
template struct DictWidthKernels<20>;
template struct DictWidthKernels<24>;
}  // namespace vorn
