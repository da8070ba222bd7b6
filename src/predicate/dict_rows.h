// dict_rows.h - the row-at-a-time side of the packed dictionary compares:
// what a row's code must satisfy, and the scalar walk over rows by the
// reference read that the block loops leave to it (the tail of a column, and
// the rows of a selection).
#pragma once

#include "frame/dispatch_scheme.h"
#include "frame/packed_read.h"

namespace vorn::dict {

// The ten forms on codes taken as unsigned numbers: x against the first
// literal a and, for the range forms, the second literal b.
template <Cmp C>
VORN_INLINE bool holds(ub4 x, ub4 a, ub4 b) {
    if constexpr (C == Cmp::eq) return x == a;
    else if constexpr (C == Cmp::lt) return x < a;
    else if constexpr (C == Cmp::gt) return x > a;
    else if constexpr (C == Cmp::le) return x <= a;
    else if constexpr (C == Cmp::ge) return x >= a;
    else if constexpr (C == Cmp::ne) return x != a;
    else if constexpr (C == Cmp::gt_lt) return a < x && x < b;
    else if constexpr (C == Cmp::gt_le) return a < x && x <= b;
    else if constexpr (C == Cmp::ge_lt) return a <= x && x < b;
    else return a <= x && x <= b;
}

// One row's answer.  In the _null forms code 0 is null and never matches,
// whatever the form: the code is read first and taken only if nonzero.
template <Cmp C, bool Null>
VORN_INLINE bool row_matches(ub4 code, ub4 a, ub4 b) {
    if constexpr (Null) {
        if (code == 0) return false;
    }
    return holds<C>(code, a, b);
}

// Rows first..n-1 by the reference read, the bit position running in a ub8
// that grows by W.  The bits are ORed into `out`, whose words from row
// `first` on are clear or hold only rows before `first`.  Returns the count.
template <ub4 W, Cmp C, bool Null>
VORN_INLINE ub8 scalar_rows(ub8 *out, const ub1 *stream, ub8 first, ub8 n, ub4 a, ub4 b) {
    ub8 count = 0, pending = 0, bitpos = first * W;
    for (ub8 i = first; i < n; ++i, bitpos += W) {
        const ub8 hit = row_matches<C, Null>(static_cast<ub4>(read_code_at<W>(stream, bitpos)), a, b);
        pending |= hit << (i & 63);
        count += hit;
        if ((i & 63) == 63) {
            out[i >> 6] |= pending;
            pending = 0;
        }
    }
    if (first < n && (n & 63) != 0) out[(n - 1) >> 6] |= pending;
    return count;
}

}  // namespace vorn::dict
