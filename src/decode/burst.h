// burst.h - the parts of the burst kernels that do not depend on the width
// of a stored length, and the choice of path by density.
#pragma once

#include "frame/base.h"

namespace vorn::burst {

// The four paths of the kernels that sum lengths, by the ones of the run bit
// vector against the runs (products truncated to integers):
//   sparse       ones below 0.02 * runs: walk the ones, summing the lengths
//                between them eight at a time;
//   near_full    otherwise ones above 0.98 * runs: all rows set, walk the
//                zeros and clear their rows;
//   middle_low   otherwise ones at most runs / 2: blocks of 64 runs, with
//                the prefix sums of the block's lengths in vector lanes;
//   middle_high  the rest: the same over the zero bits, from all ones.
// The _cla kernels know every run's position, so they have two paths: the
// walk of the ones up to runs / 2, the walk of the zeros above.
enum class Path { sparse, near_full, middle_low, middle_high };

VORN_INLINE Path choose_path(ub8 ones, ub4 runs) {
    const double n = static_cast<double>(runs);
    if (ones < static_cast<ub8>(0.02 * n)) return Path::sparse;
    if (ones > static_cast<ub8>(0.98 * n)) return Path::near_full;
    if (ones <= runs / 2) return Path::middle_low;
    return Path::middle_high;
}

// Row bits of the selected runs, positions and lengths from the cumulative
// length array; returns the rows set.
VORN_INTERNAL ub8 expand_by_cla(ub8 *res_bv, const ub8 *run_bv, ub8 ones, const vorn_enc_ctx *enc, ub4 rows);

// The same by the stored lengths, LenBytes bytes each.
template <ub4 LenBytes>
VORN_INTERNAL ub8 expand_by_lengths(ub8 *res_bv, const ub8 *run_bv, ub8 ones, const vorn_enc_ctx *enc,
                                    ub4 rows);

}  // namespace vorn::burst
