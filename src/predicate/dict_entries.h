// dict_entries.h - places the dictionary compares and their _null forms in the dispatch table.
#pragma once

#include "frame/dispatch_scheme.h"

namespace vorn {

// Not served yet: the indexes stay null.
constexpr void put_dict(KernelTable &) {}

}  // namespace vorn
