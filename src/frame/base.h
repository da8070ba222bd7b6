// base.h - what every source file of the library includes: the host's
// records, the attributes of internal symbols, and the byte-order loads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vorn.h"

// Every symbol of the library is hidden; the one exception is the context
// record, which the version script exports.  Internal entries keep their
// system names and C linkage so that white-box tests can reach them in the
// static archive.
#define VORN_INTERNAL __attribute__((visibility("hidden")))
#define VORN_INLINE inline __attribute__((always_inline))
#define VORN_NOINLINE __attribute__((noinline))
#define VORN_COLD __attribute__((noinline, cold))
#define VORN_LIKELY(x) __builtin_expect(!!(x), 1)
#define VORN_UNLIKELY(x) __builtin_expect(!!(x), 0)

namespace vorn {

// Unaligned loads and stores.  memcpy of a constant size compiles to one move.
template <class T>
VORN_INLINE T load(const void *p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return v;
}
template <class T>
VORN_INLINE void store(void *p, T v) {
    std::memcpy(p, &v, sizeof(T));
}

VORN_INLINE ub2 bswap(ub2 v) { return __builtin_bswap16(v); }
VORN_INLINE ub4 bswap(ub4 v) { return __builtin_bswap32(v); }
VORN_INLINE ub8 bswap(ub8 v) { return __builtin_bswap64(v); }
VORN_INLINE ub1 bswap(ub1 v) { return v; }

// Big-endian loads: the stored order of codes, fixed values and offsets.
VORN_INLINE ub2 load_be16(const void *p) { return bswap(load<ub2>(p)); }
VORN_INLINE ub4 load_be32(const void *p) { return bswap(load<ub4>(p)); }
VORN_INLINE ub8 load_be64(const void *p) { return bswap(load<ub8>(p)); }

VORN_INLINE ub8 words_for_bits(ub8 bits) { return (bits + 63) >> 6; }

}  // namespace vorn
