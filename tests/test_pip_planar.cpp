// Planar point-in-polygon, vorn_spatial_pip_dydi: the crossing count against
// a plain model that takes the edges in the kernel's order and does its
// arithmetic in the same order, result for result, over random rings of 0
// to 200 vertices and points anywhere, on vertices, on edges, on vertical
// edges, at a vertex's height, and NaN; the shapes of the two paths by
// hand; and, where GEOS is installed, the parity of the count against its
// point-in-polygon location for random simple polygons.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/test_host.h"

#if VORN_HAVE_GEOS
#include <geos_c.h>
#endif

namespace {

using namespace vorntest;

struct Ring {
    std::vector<double> x, y;
    std::size_t size() const { return x.size(); }
};

// The model: pairs of edges (k, k+1) below 2(n/2 - 1) by the
// cross-multiplied test, then the rest of the vertices as a ring of their
// own by the interpolated crossing.
ub4 model(const Ring &r, double px, double py) {
    const std::size_t n = r.size();
    const std::size_t m = n / 2;
    const double *X = r.x.data(), *Y = r.y.data();
    ub4 count = 0;
    std::size_t first = 0;
    if (m >= 2) {
        first = 2 * (m - 1);
        for (std::size_t k = 0; k < first; ++k) {
            if ((py < Y[k]) == (py < Y[k + 1])) continue;
            const double dy = Y[k + 1] - Y[k];
            const double a = (px - X[k]) * dy;
            const double b = (py - Y[k]) * (X[k + 1] - X[k]);
            if ((a < b && !(dy < 0)) || (b < a && dy < 0)) ++count;
        }
    }
    std::size_t j = n - 1;
    for (std::size_t i = first; i < n; j = i, ++i) {
        if ((py < Y[i]) == (py < Y[j])) continue;
        if (X[i] + (X[j] - X[i]) * (py - Y[i]) / (Y[j] - Y[i]) > px) ++count;
    }
    return count;
}

ub4 kernel_count(const Ring &r, double px, double py) {
    ub4 out = 0xdeadbeef;
    ub4 *out_at = &out;
    vorn_vec xs{};
    xs.data = const_cast<double *>(r.x.data());
    xs.size = static_cast<ub4>(r.size());
    const double *ys = r.y.data();
    const double *x_at = &px, *y_at = &py;
    EXPECT_EQ(ctx().vorn_spatial_pip_dydi(&out_at, &xs, &ys, &x_at, &y_at), 0u);
    return out;
}

// Rings of every kind of vertex: random reals, a coarse integer grid (so
// that vertices share heights and edges run vertical and horizontal), and
// now and then a NaN.
Ring random_ring(std::mt19937_64 &rng, std::size_t n, bool grid, bool nan) {
    std::uniform_real_distribution<double> u(-10, 10);
    Ring r;
    for (std::size_t i = 0; i < n; ++i) {
        double x = grid ? static_cast<double>(static_cast<int>(rng() % 9) - 4) : u(rng);
        double y = grid ? static_cast<double>(static_cast<int>(rng() % 9) - 4) : u(rng);
        if (i > 0 && rng() % 6 == 0) x = r.x.back();  // a vertical edge
        if (nan && rng() % 10 == 0) (rng() % 2 ? x : y) = std::numeric_limits<double>::quiet_NaN();
        r.x.push_back(x);
        r.y.push_back(y);
    }
    return r;
}

// Points of the kinds that decide a crossing.
std::vector<std::pair<double, double>> probe_points(std::mt19937_64 &rng, const Ring &r) {
    std::uniform_real_distribution<double> u(-12, 12), t(0, 1);
    std::vector<std::pair<double, double>> p;
    for (int i = 0; i < 6; ++i) p.push_back({u(rng), u(rng)});
    const std::size_t n = r.size();
    for (int i = 0; n && i < 6; ++i) {
        const std::size_t a = rng() % n, b = (a + 1) % n;
        const double s = t(rng);
        p.push_back({r.x[a], r.y[a]});                                           // on a vertex
        p.push_back({r.x[a] + s * (r.x[b] - r.x[a]), r.y[a] + s * (r.y[b] - r.y[a])});  // on an edge
        p.push_back({u(rng), r.y[a]});                                           // at a vertex's height
        p.push_back({r.x[a], r.y[a] + s * (r.y[b] - r.y[a])});                   // on a vertical edge, if it is one
    }
    p.push_back({std::numeric_limits<double>::quiet_NaN(), 0.5});
    p.push_back({0.5, std::numeric_limits<double>::quiet_NaN()});
    return p;
}

TEST(PlanarPip, CountsAsTheModelOnRandomRings) {
    std::mt19937_64 rng(2001);
    for (std::size_t n = 0; n <= 200; n += n < 40 ? 1 : 1 + rng() % 23) {
        for (int kind = 0; kind < 4; ++kind) {
            const Ring r = random_ring(rng, n, kind & 1, kind == 3);
            for (const auto &[x, y] : probe_points(rng, r))
                ASSERT_EQ(kernel_count(r, x, y), model(r, x, y)) << "n " << n << " kind " << kind << " point " << x << ", " << y;
        }
    }
}

// The two paths by hand.  Fewer than two vertices store zero.  n = 3 takes
// the ring path alone, and a vertex at the ray's height counts as below it.
// An even n never takes the edge (n-1, 0) and takes (n-2, n-1) both ways.
// Six vertices take the pairs (0,1) to (3,4), then the ring of vertices 4
// and 5, walked both ways.  The ring path's comparison is strict: a point
// on a vertical edge of the rest does not count it.  NaN compares false.
TEST(PlanarPip, ThePathsByHand) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Ring none{}, one{{1.0}, {1.0}}, tri{{0, 4, 0}, {0, 0, 4}}, right{{0, 4, 4}, {0, 0, 4}};
    const Ring square{{0, 1, 1, 0}, {0, 0, 1, 1}}, quad{{0, 2, 2, 0}, {0, 0, 2, 1}};
    const Ring hex{{2, 4, 4, 2, 0, 0}, {0, 1, 3, 4, 3, 1}};
    const struct {
        const Ring &ring;
        double x, y;
        ub4 count;
    } cases[] = {
        {none, 0, 0, 0},      {one, 0, 0.5, 0},        {one, 0, 1, 0},       {tri, 1, 1, 1},
        {tri, -1, 1, 2},      {tri, 5, 1, 0},          {tri, -1, 0, 2},      {tri, -1, 4, 0},
        {square, -1, 0.5, 1}, {square, 0.5, 0.5, 1},   {quad, -1, 1.5, 3},   {quad, 1.5, 1.5, 1},
        {hex, -1, 2, 3},      {hex, 2, 2, 1},          {right, 4, 2, 0},     {right, 3.999, 2, 1},
        {tri, nan, 1, 0},     {tri, 1, nan, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(kernel_count(c.ring, c.x, c.y), c.count) << c.ring.size() << " vertices, point " << c.x << ", " << c.y;
    const Ring holed{{0, 4, nan, 0, 4, 4}, {0, 0, 4, 4, 4, 0}};
    EXPECT_EQ(kernel_count(holed, 1, 1), model(holed, 1, 1));
}

// ---- Against GEOS ---------------------------------------------------------------
// A star-shaped polygon around the origin: simple by construction.
Ring star_polygon(std::mt19937_64 &rng, std::size_t n) {
    std::vector<double> angles(n);
    std::uniform_real_distribution<double> a(0, 2 * M_PI), rad(1, 10);
    for (auto &t : angles) t = a(rng);
    std::sort(angles.begin(), angles.end());
    Ring r;
    for (double t : angles) {
        const double radius = rad(rng);
        r.x.push_back(radius * std::cos(t));
        r.y.push_back(radius * std::sin(t));
    }
    return r;
}

double segment_distance(double px, double py, double ax, double ay, double bx, double by) {
    const double dx = bx - ax, dy = by - ay, len2 = dx * dx + dy * dy;
    double t = len2 > 0 ? ((px - ax) * dx + (py - ay) * dy) / len2 : 0;
    t = std::clamp(t, 0.0, 1.0);
    return std::hypot(px - (ax + t * dx), py - (ay + t * dy));
}

// The ring as the kernel wants it for a parity that says "inside": closed
// by its first vertex, then padded with the first vertex to an even count.
Ring closed_and_padded(const Ring &r) {
    Ring p = r;
    p.x.push_back(r.x[0]);
    p.y.push_back(r.y[0]);
    do {
        p.x.push_back(r.x[0]);
        p.y.push_back(r.y[0]);
    } while (p.size() % 2);
    return p;
}

#if VORN_HAVE_GEOS
TEST(PlanarPip, ParityAgreesWithGeos) {
    GEOSContextHandle_t h = GEOS_init_r();
    std::mt19937_64 rng(2002);
    std::uniform_real_distribution<double> u(-11, 11);
    int inside = 0, checked = 0;
    for (int trial = 0; trial < 120; ++trial) {
        const std::size_t n = 3 + rng() % 60;
        const Ring r = star_polygon(rng, n);
        GEOSCoordSequence *seq = GEOSCoordSeq_create_r(h, static_cast<unsigned>(n + 1), 2);
        for (std::size_t i = 0; i <= n; ++i) GEOSCoordSeq_setXY_r(h, seq, static_cast<unsigned>(i), r.x[i % n], r.y[i % n]);
        GEOSGeometry *poly = GEOSGeom_createPolygon_r(h, GEOSGeom_createLinearRing_r(h, seq), nullptr, 0);
        const Ring padded = closed_and_padded(r);
        for (int k = 0; k < 60; ++k) {
            const double px = u(rng), py = u(rng);
            double nearest = 1e300;
            for (std::size_t i = 0; i < n; ++i)
                nearest = std::min(nearest, segment_distance(px, py, r.x[i], r.y[i], r.x[(i + 1) % n], r.y[(i + 1) % n]));
            if (nearest <= 1e-9) continue;
            GEOSGeometry *pt = GEOSGeom_createPointFromXY_r(h, px, py);
            const bool geos_inside = GEOSContains_r(h, poly, pt) == 1;
            GEOSGeom_destroy_r(h, pt);
            const bool odd = kernel_count(padded, px, py) % 2 == 1;
            ASSERT_EQ(odd, geos_inside) << "n " << n << " point " << px << ", " << py;
            inside += geos_inside;
            ++checked;
        }
        GEOSGeom_destroy_r(h, poly);
    }
    GEOS_finish_r(h);
    EXPECT_GT(inside, checked / 20);  // the points were not all outside
}
#else
TEST(PlanarPip, ParityAgreesWithGeos) { GTEST_SKIP() << "GEOS is not installed"; }
#endif

}  // namespace
