// hash_callback.h - the hash function a host hands to vorn_hash_dydi and
// vorn_partition_dydi: XXH3, 64 bits, keyed by the callback's seed.  The
// library has no hash of its own; tables built with this function must be
// probed with it too.
#pragma once

#include "vorn.h"

namespace vornhost {

// XXH3_64bits_withSeed(value, length, seed).  Without libxxhash at build
// time a byte-wise multiply-xorshift of the same shape stands in, so the
// tree still builds; its values differ from XXH3's.
ub8 xxh3_hash(const void *value, ub8 length, ub8 seed);

}  // namespace vornhost
