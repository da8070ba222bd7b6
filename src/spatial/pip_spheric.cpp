// vorn_spheric_pip_dydi: points on the unit sphere against one polygon of
// unit vectors, one byte per point.
//
// Set-up, once a call: the bounding box of the vertices (from min 2, max
// -2) gives the centre C; F is the vertex farthest from C (the first of
// equals); P, the projection of F on C, and r2 = |P - F|^2 make a cap around
// the polygon.  r2 stays 2 when |C|^2 or F.C is below eps^2, and r2 >= 1
// means the polygon does not fit in a hemisphere: 24, nothing written.  The
// reference point Q = 2F - P lies beyond the farthest vertex, outside.
//
// A point V with |V - P|^2 above r2 + eps is outside the cap: 0x40.  Else
// N = V x Q, normalised by a single-precision reciprocal square root with
// one refinement in double, is the normal of the great circle through V and
// Q, and the walk counts the edges (A, B) that the arc from V to Q crosses:
// where the side of B (the sign of N.B) changes, or both ends lie within eps
// of the circle.  The vertices go two to a register; in each pair the
// coincidence test of both runs before either edge, so a vertex hit in the
// second lane wins over an edge hit in the first.
#include <emmintrin.h>
#include <xmmintrin.h>

#include <cmath>

#include "spatial/spatial_entries.h"

namespace vorn::spatial {
namespace {

struct V3 {
    double x, y, z;
};

VORN_INLINE V3 at(const vorn_sphere_points &p, ub8 i) { return {p.x[i], p.y[i], p.z[i]}; }
VORN_INLINE V3 sub(V3 a, V3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
VORN_INLINE double dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
VORN_INLINE double dist2(V3 a, V3 b) { return dot(sub(a, b), sub(a, b)); }
VORN_INLINE V3 cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }

struct Cap {
    V3 p, q;          // the cap's centre on the polygon's side, the reference point
    double limit;     // r2 + eps
};

// The bounding box, eight vertices a round.
VORN_INLINE V3 box_centre(const vorn_sphere_points &poly) {
    double lo[3] = {2.0, 2.0, 2.0}, hi[3] = {-2.0, -2.0, -2.0};
    const double *axis[3] = {poly.x, poly.y, poly.z};
    const ub8 n = poly.count;
    for (ub4 a = 0; a < 3; ++a) {
        const double *v = axis[a];
        __m128d l = _mm_set1_pd(2.0), h = _mm_set1_pd(-2.0);
        ub8 i = 0;
        for (; i + 8 <= n; i += 8)
            for (ub4 k = 0; k < 8; k += 2) {
                const __m128d x = _mm_loadu_pd(v + i + k);
                l = _mm_min_pd(x, l);  // x < l ? x : l: a NaN coordinate is passed over
                h = _mm_max_pd(x, h);
            }
        for (; i < n; ++i) {
            const __m128d x = _mm_set1_pd(v[i]);
            l = _mm_min_pd(x, l);
            h = _mm_max_pd(x, h);
        }
        const __m128d l2 = _mm_min_sd(_mm_unpackhi_pd(l, l), l), h2 = _mm_max_sd(_mm_unpackhi_pd(h, h), h);
        lo[a] = _mm_cvtsd_f64(_mm_min_sd(_mm_set_sd(lo[a]), l2));
        hi[a] = _mm_cvtsd_f64(_mm_max_sd(_mm_set_sd(hi[a]), h2));
    }
    return {(lo[0] + hi[0]) * 0.5, (lo[1] + hi[1]) * 0.5, (lo[2] + hi[2]) * 0.5};
}

// False when the polygon does not fit in a hemisphere.
bool make_cap(const vorn_sphere_points &poly, double eps, Cap &cap) {
    const double eps2 = eps * eps;
    const V3 c = box_centre(poly);
    const double c2 = dot(c, c);
    double r2 = 2.0;
    V3 f{}, p{};
    if (!(c2 < eps2) && poly.count > 0) {
        double best = -1.0;
        f = at(poly, 0);
        for (ub8 i = 0; i < poly.count; ++i) {
            const V3 v = at(poly, i);
            const double d = dist2(v, c);
            if (d > best) best = d, f = v;
        }
        const double fc = dot(f, c);
        if (!(fc < eps2)) {
            const double t = fc / c2;
            p = {t * c.x, t * c.y, t * c.z};
            r2 = dist2(p, f);
        }
    }
    if (r2 >= 1.0) return false;
    cap.p = p;
    cap.q = {2.0 * f.x - p.x, 2.0 * f.y - p.y, 2.0 * f.z - p.z};
    cap.limit = r2 + eps;
    return true;
}

// The walk's state of one point.
struct Walk {
    V3 v, q, n;
    double eps, eps2;
    double d = 0;          // |V - Q|^2, once it is needed
    bool have_d = false;
    ub4 count = 0;
    bool neg_prev, near_prev;
};

// The edge (A, B): false when the point lies on it (the walk ends).
VORN_INLINE bool edge(Walk &w, V3 a, V3 b) {
    const double s = dot(w.n, b);
    const bool near = std::fabs(s) < w.eps;
    const bool neg = std::signbit(s);
    const bool change = neg != w.neg_prev;
    if (near && w.near_prev) {
        if (!w.have_d) w.d = dist2(w.v, w.q), w.have_d = true;
        const double da = dist2(a, w.q) - w.d, db = dist2(b, w.q) - w.d;
        if ((0 < da) != (0 < db)) return false;
        if (!(0 < da)) w.count += change;
    } else if (change) {
        const V3 m = cross(a, b);
        const double mv = dot(m, w.v);
        if (dot(m, m) * w.eps2 > mv * mv) return false;
        w.count += (0 < mv) != (0 < dot(m, w.q));
    }
    w.neg_prev = neg;
    w.near_prev = near;
    return true;
}

VORN_INLINE ub1 classify(const vorn_sphere_points &poly, const Cap &cap, V3 v, double eps) {
    if (dist2(v, cap.p) > cap.limit) return VORN_SPHERIC_OUTSIDE_CAP;
    Walk w;
    w.v = v;
    w.q = cap.q;
    w.eps = eps;
    w.eps2 = eps * eps;
    V3 n = cross(v, cap.q);
    const double s = dot(n, n);
    double y = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(static_cast<float>(s))));
    y = y * (1.5 - 0.5 * s * y * y);
    w.n = {n.x * y, n.y * y, n.z * y};

    const ub8 count = poly.count;
    const V3 last = at(poly, count - 1);
    const double s_prev = dot(w.n, last);
    w.near_prev = std::fabs(s_prev) < eps;
    w.neg_prev = s_prev < 0;

    // Lanes of the pair: the coincidence test, the side and the nearness of
    // both vertices at once; an edge is looked at closely only when its lane
    // changes side or both of its ends are near.
    const __m128d vx = _mm_set1_pd(v.x), vy = _mm_set1_pd(v.y), vz = _mm_set1_pd(v.z);
    const __m128d nx = _mm_set1_pd(w.n.x), ny = _mm_set1_pd(w.n.y), nz = _mm_set1_pd(w.n.z);
    const __m128d eps_v = _mm_set1_pd(eps), eps2_v = _mm_set1_pd(w.eps2);
    const __m128d abs_mask = _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffll));
    ub8 i = 0;
    for (; i + 2 <= count; i += 2) {
        const __m128d bx = _mm_loadu_pd(poly.x + i), by = _mm_loadu_pd(poly.y + i), bz = _mm_loadu_pd(poly.z + i);
        const __m128d dx = _mm_sub_pd(bx, vx), dy = _mm_sub_pd(by, vy), dz = _mm_sub_pd(bz, vz);
        const __m128d dv = _mm_add_pd(_mm_add_pd(_mm_mul_pd(dx, dx), _mm_mul_pd(dy, dy)), _mm_mul_pd(dz, dz));
        if (VORN_UNLIKELY(_mm_movemask_pd(_mm_cmplt_pd(dv, eps2_v))))
            return static_cast<ub1>(w.count | VORN_SPHERIC_ON_VERTEX);
        const __m128d s2 = _mm_add_pd(_mm_add_pd(_mm_mul_pd(nx, bx), _mm_mul_pd(ny, by)), _mm_mul_pd(nz, bz));
        const ub4 neg = static_cast<ub4>(_mm_movemask_pd(s2));
        const ub4 near = static_cast<ub4>(_mm_movemask_pd(_mm_cmplt_pd(_mm_and_pd(s2, abs_mask), eps_v)));
        const ub4 neg_before = ((neg << 1) | ub4{w.neg_prev}) & 3;
        const ub4 near_before = ((near << 1) | ub4{w.near_prev}) & 3;
        if (VORN_UNLIKELY((neg ^ neg_before) | (near & near_before))) {
            const V3 b0 = at(poly, i);
            if (!edge(w, i ? at(poly, i - 1) : last, b0) || !edge(w, b0, at(poly, i + 1)))
                return static_cast<ub1>(w.count | VORN_SPHERIC_ON_EDGE);
        } else {
            w.neg_prev = neg >> 1;
            w.near_prev = near >> 1;
        }
    }
    if (i < count) {
        const V3 b = at(poly, i);
        if (dist2(b, v) < w.eps2) return static_cast<ub1>(w.count | VORN_SPHERIC_ON_VERTEX);
        if (!edge(w, i ? at(poly, i - 1) : last, b)) return static_cast<ub1>(w.count | VORN_SPHERIC_ON_EDGE);
    }
    return static_cast<ub1>(w.count & 0x7f);
}

}  // namespace
}  // namespace vorn::spatial

extern "C" {

ub8 vorn_spheric_pip_dydi(ub1 *const *res, const vorn_sphere_points *polygon, const vorn_sphere_points *points,
                          void *, void *, double eps) {
    using namespace vorn::spatial;
    Cap cap;
    if (!make_cap(*polygon, eps, cap)) return 24;
    ub1 *out = *res;
    for (ub8 i = 0; i < points->count; ++i) out[i] = classify(*polygon, cap, at(*points, i), eps);
    return 0;
}

}  // extern "C"
