// unpack_entries.h - places vorn_decode_unpack_dict_* in the dispatch table.
#pragma once

#include "frame/dispatch_scheme.h"

namespace vorn {

// Not served yet: the indexes stay null.
constexpr void put_unpack(KernelTable &) {}

}  // namespace vorn
