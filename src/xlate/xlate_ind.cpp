// xlate_ind.cpp - the vorn_xlate_ind_* members without a layout suffix.
#include "xlate/xlate_kernel.h"
#include "xlate/xlate_instances.h"

namespace vorn {

VORN_XLATE_SERVED_MEMBERS(ind)

}  // namespace vorn
