// burst_entries.h - places vorn_burst_rle_* in the dispatch table.
#pragma once

#include "frame/dispatch_scheme.h"

namespace vorn {

// Not served yet: the indexes stay null.
constexpr void put_burst(KernelTable &) {}

}  // namespace vorn
