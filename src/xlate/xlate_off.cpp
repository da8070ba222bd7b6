// xlate_off.cpp - the vorn_xlate_off_* members without a layout suffix.
#include "xlate/xlate_kernel.h"
#include "xlate/xlate_instances.h"

namespace vorn {

VORN_XLATE_SERVED_MEMBERS(off)

}  // namespace vorn
