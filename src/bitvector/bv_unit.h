// bv_unit.h - what differs between the two bit-vector families: the unit of
// the byte form is a byte at any address, that of the word form an aligned
// 64-bit word.  Bit i is bit (i & 7) of byte i >> 3 in both, which on this
// little-endian machine is bit (i & 63) of word i >> 6.
#pragma once

#include <nmmintrin.h>

#include "frame/base.h"
#include "frame/entries.h"

namespace vorn::bv {

template <class U>
struct Unit;

template <>
struct Unit<ub1> {
    static constexpr ub4 kBits = 8;
    static constexpr ub8 kEnd = VORN_LBIV_END;  // the iterator's end value
    // A short tail is counted by table.
    static VORN_INLINE ub4 ones(ub1 v) { return vorn_byte_popc[v]; }
};

template <>
struct Unit<ub8> {
    static constexpr ub4 kBits = 64;
    static constexpr ub8 kEnd = VORN_LBIWV_END;
    static VORN_INLINE ub4 ones(ub8 v) { return static_cast<ub4>(_mm_popcnt_u64(v)); }
};

template <class U>
VORN_INLINE ub8 units_for_bits(ub8 bits) {
    return (bits + Unit<U>::kBits - 1) / Unit<U>::kBits;
}

// The ones of the last unit that lie behind `bits`: what a count taken over
// whole units must give back.
template <class U>
VORN_INLINE ub4 ones_behind_end(U last, ub8 bits) {
    const ub4 used = static_cast<ub4>(bits % Unit<U>::kBits);
    if (used == 0) return 0;
    const U mask = static_cast<U>((U(1) << used) - 1);
    return Unit<U>::ones(last) - Unit<U>::ones(static_cast<U>(last & mask));
}

}  // namespace vorn::bv
