// The packed dictionary compares of widths 1.
#include "predicate/dict_kernels.h"

namespace vorn {
template struct DictWidthKernels<1>;
}  // namespace vorn
