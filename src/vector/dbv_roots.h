// dbv_roots.h - square roots of the bit counts, read from a table.
//
// A bit metric takes the root of a population count (euclid's distance,
// cosine's two norms).  A count is a small integer, and the root instruction
// is the slowest step of a short pair: on a 128-bit vector it costs more
// than counting the bits.  Below kCountRoots every root is one load from a
// table holding the correctly rounded square root of each count, the very
// double the instruction gives; larger counts take the instruction.
#pragma once

#include <array>

#include "frame/base.h"
#include "vector/value_format.h"

namespace vorn::vec {

// Counts 0 to 1,024 have a table entry: every count of a vector up to 1,024
// bits, the usual sizes of binary embeddings (8 KiB, of which a search
// touches the few lines around its typical counts).
inline constexpr ub4 kCountRoots = 1025;

}  // namespace vorn::vec

extern "C" {
// vorn_count_roots[n] is sqrt(n) correctly rounded to a double.
VORN_INTERNAL extern const std::array<double, vorn::vec::kCountRoots> vorn_count_roots;
}

namespace vorn::vec {

// The root of a count n (0 <= n < 2^33).
VORN_INLINE double count_root(sb8 n) {
    if (ub8(n) < kCountRoots) [[likely]] return vorn_count_roots[ub8(n)];
    return exact_sqrt(double(n));
}

}  // namespace vorn::vec
