// minmax_entries.h - places vorn_minmax_dict_* and their _null forms in the dispatch table.
#pragma once

#include "frame/dispatch_scheme.h"

namespace vorn {

// Not served yet: the indexes stay null.
constexpr void put_minmax(KernelTable &) {}

}  // namespace vorn
