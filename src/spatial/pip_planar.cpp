// vorn_spatial_pip_dydi: how many edges of a planar ring the ray from a
// point towards +X crosses.  The count is stored; what it means is the
// caller's.
//
// An edge (i, j) is looked at when (y < Y[i]) differs from (y < Y[j]): a
// vertex at the ray's height counts as below it, horizontal edges never
// cross, and NaN compares false throughout.
//
// Paired path: with m = n / 2 >= 2, the edges (k, k+1) for k below 2(m - 1),
// taken in pairs.  A straddling edge crosses to the right of the point
// when a = (x - X[k]) * dY is below b = (y - Y[k]) * dX for an edge going up
// (dY not negative), or b below a for one going down.
// Ring path: the last n - 2(m - 1) vertices (all n when m < 2) walked as a
// closed ring of their own, j trailing i from the last: a straddling edge
// crosses when X[i] + (X[j] - X[i]) * (y - Y[i]) / (Y[j] - Y[i]) > x.
// So the closing edge is the one between the last vertex and the first of
// the rest, and for even n the edge (n-2, n-1) is taken in both directions.
#include <emmintrin.h>
#include <smmintrin.h>

#include "spatial/spatial_entries.h"

namespace vorn::spatial {
namespace {

// Rings of at least this many paired edges skip the rounds of eight edges
// that no edge of straddles.
inline constexpr ub8 kSkippingEdges = 64;

// Crossings of the edges (k, k+1) and (k+1, k+2) as lanes of -1.
VORN_INLINE __m128i paired_crossings(const double *xs, const double *ys, ub8 k, __m128d x, __m128d y) {
    const __m128d x0 = _mm_loadu_pd(xs + k), x1 = _mm_loadu_pd(xs + k + 1);
    const __m128d y0 = _mm_loadu_pd(ys + k), y1 = _mm_loadu_pd(ys + k + 1);
    const __m128d straddle = _mm_xor_pd(_mm_cmplt_pd(y, y0), _mm_cmplt_pd(y, y1));
    const __m128d dy = _mm_sub_pd(y1, y0);
    const __m128d a = _mm_mul_pd(_mm_sub_pd(x, x0), dy);
    const __m128d b = _mm_mul_pd(_mm_sub_pd(y, y0), _mm_sub_pd(x1, x0));
    const __m128d down = _mm_cmplt_pd(dy, _mm_setzero_pd());
    const __m128d right = _mm_blendv_pd(_mm_cmplt_pd(a, b), _mm_cmplt_pd(b, a), down);
    return _mm_castpd_si128(_mm_and_pd(straddle, right));
}

// Most edges of a large ring do not straddle the ray.  Eight edges a round:
// the below-the-ray bits of their nine vertices come from four compares of
// two lanes, and only a round with a straddling edge computes its crossings,
// two edges to a register.  The last edges, fewer than eight, go in pairs.
ub4 paired_path(const double *xs, const double *ys, ub8 edges, double px, double py) {
    const __m128d x = _mm_set1_pd(px), y = _mm_set1_pd(py);
    __m128i acc0 = _mm_setzero_si128(), acc1 = _mm_setzero_si128();
    ub8 k = 0;
    // A small ring straddles in most rounds: it takes every round, and the
    // test of a round would only add a branch that the points decide.
    const bool skip_rounds = edges >= kSkippingEdges;
    for (; k + 8 <= edges; k += 8) {
        ub4 below = 0;
        if (skip_rounds) {
            for (ub4 j = 0; j < 4; ++j)
                below |= static_cast<ub4>(_mm_movemask_pd(_mm_cmplt_pd(y, _mm_loadu_pd(ys + k + 2 * j)))) << (2 * j);
            below |= ub4{py < ys[k + 8]} << 8;
        }
        if (skip_rounds && !((below ^ (below >> 1)) & 0xff)) continue;
        acc0 = _mm_sub_epi64(acc0, paired_crossings(xs, ys, k, x, y));
        acc1 = _mm_sub_epi64(acc1, paired_crossings(xs, ys, k + 2, x, y));
        acc0 = _mm_sub_epi64(acc0, paired_crossings(xs, ys, k + 4, x, y));
        acc1 = _mm_sub_epi64(acc1, paired_crossings(xs, ys, k + 6, x, y));
    }
    for (; k < edges; k += 2) acc0 = _mm_sub_epi64(acc0, paired_crossings(xs, ys, k, x, y));
    const __m128i acc = _mm_add_epi64(acc0, acc1);
    return static_cast<ub4>(_mm_cvtsi128_si64(acc) + _mm_extract_epi64(acc, 1));
}

ub4 ring_path(const double *xs, const double *ys, ub8 first, ub8 n, double x, double y) {
    ub4 count = 0;
    for (ub8 i = first, j = n - 1; i < n; j = i++) {
        if ((y < ys[i]) != (y < ys[j]) && xs[i] + (xs[j] - xs[i]) * (y - ys[i]) / (ys[j] - ys[i]) > x) ++count;
    }
    return count;
}

}  // namespace
}  // namespace vorn::spatial

extern "C" {

ub8 vorn_spatial_pip_dydi(ub4 *const *res, const vorn_vec *xs, const double *const *ys, const double *const *px,
                          const double *const *py) {
    using namespace vorn::spatial;
    const double *x = static_cast<const double *>(xs->data);
    const double *y = *ys;
    const double point_x = **px, point_y = **py;
    const ub8 n = xs->size;
    const ub8 m = n / 2;
    ub4 count = 0;
    ub8 rest = 0;
    if (m >= 2) {
        rest = 2 * (m - 1);
        count = paired_path(x, y, rest, point_x, point_y);
    }
    count += ring_path(x, y, rest, n, point_x, point_y);
    **res = count;
    return 0;
}

}  // extern "C"
