// xlate_sim.cpp - the vorn_xlate_sim_* members without a layout suffix.
#include "xlate/xlate_kernel.h"
#include "xlate/xlate_instances.h"

namespace vorn {

VORN_XLATE_SERVED_MEMBERS(sim)

}  // namespace vorn
