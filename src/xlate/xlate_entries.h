// xlate_entries.h - places vorn_xlate_* in the dispatch table.
#pragma once

#include "frame/dispatch_scheme.h"

namespace vorn {

// Not served yet: the indexes stay null.
constexpr void put_xlate(KernelTable &) {}

}  // namespace vorn
