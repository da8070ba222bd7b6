// xlate_unsettled.cpp - the members whose layouts are not settled yet: the
// _cla, _const and _sep forms of every lookup kind, and the group-key
// members.  They are instances of the same template, which refuses them
// with 2 before reading anything.
#include "xlate/xlate_kernel.h"
#include "xlate/xlate_instances.h"

namespace vorn {

VORN_XLATE_FORM_MEMBERS(sim, cla)
VORN_XLATE_FORM_MEMBERS(sim, const_)
VORN_XLATE_FORM_MEMBERS(sim, sep)
VORN_XLATE_FORM_MEMBERS(off, cla)
VORN_XLATE_FORM_MEMBERS(off, const_)
VORN_XLATE_FORM_MEMBERS(off, sep)
VORN_XLATE_FORM_MEMBERS(ind, cla)
VORN_XLATE_FORM_MEMBERS(ind, const_)
VORN_XLATE_FORM_MEMBERS(ind, sep)

VORN_XLATE_INSTANCE(groupkey, nib, plain, true)
VORN_XLATE_INSTANCE(groupkey, ub1, plain, true)
VORN_XLATE_INSTANCE(groupkey, ub2, plain, true)
VORN_XLATE_INSTANCE(groupkey, ub4, plain, true)

}  // namespace vorn
