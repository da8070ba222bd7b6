// hash_callback.cpp - the host's hash callback (see hash_callback.h).
#include "host/hash_callback.h"

#include <cstring>

#if defined(VORN_HAVE_XXHASH)
#include <xxhash.h>
#endif

namespace vornhost {

ub8 xxh3_hash(const void *value, ub8 length, ub8 seed) {
#if defined(VORN_HAVE_XXHASH)
    return XXH3_64bits_withSeed(value, static_cast<size_t>(length), seed);
#else
    // Stand-in: eight bytes at a time, each word mixed into the state.
    const auto *p = static_cast<const unsigned char *>(value);
    ub8 h = seed ^ (length * 0x9e3779b97f4a7c15ull);
    for (ub8 i = 0; i < length; i += 8) {
        ub8 w = 0;
        std::memcpy(&w, p + i, length - i < 8 ? length - i : 8);
        h = (h ^ w) * 0xbf58476d1ce4e5b9ull;
        h ^= h >> 31;
    }
    h ^= h >> 29;
    h *= 0x94d049bb133111ebull;
    return h ^ (h >> 32);
#endif
}

}  // namespace vornhost
