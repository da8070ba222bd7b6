// Spherical point-in-polygon, vorn_spheric_pip_dydi: every output byte
// against a plain model that builds the cap and walks the vertices in the
// kernel's order of operations, over random star-shaped polygons within and
// beyond a hemisphere, far points, points near the polygon, at its vertices
// and on its edges, several tolerances; the refusals; and, where S2 is
// installed, the parity of the crossing count against S2Loop::Contains.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cmath>

#include "support/test_host.h"

#if VORN_HAVE_S2
#include <s2/s2edge_distances.h>
#include <s2/s2loop.h>
#endif

namespace {

using namespace vorntest;

struct P3 {
    double x, y, z;
};
P3 operator-(P3 a, P3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
P3 operator+(P3 a, P3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
double dot(P3 a, P3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
double norm2(P3 a) { return dot(a, a); }
P3 cross(P3 a, P3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
P3 scaled(P3 a, double s) { return {a.x * s, a.y * s, a.z * s}; }
P3 unit(P3 a) { return scaled(a, 1 / std::sqrt(norm2(a))); }

struct Points {
    std::vector<double> x, y, z;
    vorn_sphere_points rec{};
    void add(P3 p) {
        x.push_back(p.x);
        y.push_back(p.y);
        z.push_back(p.z);
    }
    P3 at(std::size_t i) const { return {x[i], y[i], z[i]}; }
    std::size_t size() const { return x.size(); }
    const vorn_sphere_points *record() {
        rec = {x.data(), y.data(), z.data(), static_cast<ub4>(x.size())};
        return &rec;
    }
};

// ---- The model --------------------------------------------------------------------
struct ModelCap {
    bool fits;
    P3 p, q;
    double limit;
};

ModelCap model_cap(const Points &poly, double eps) {
    double lo[3] = {2, 2, 2}, hi[3] = {-2, -2, -2};
    for (std::size_t i = 0; i < poly.size(); ++i) {
        const double v[3] = {poly.x[i], poly.y[i], poly.z[i]};
        for (int a = 0; a < 3; ++a) {
            if (v[a] < lo[a]) lo[a] = v[a];
            if (v[a] > hi[a]) hi[a] = v[a];
        }
    }
    const P3 c{(lo[0] + hi[0]) * 0.5, (lo[1] + hi[1]) * 0.5, (lo[2] + hi[2]) * 0.5};
    double r2 = 2.0;
    P3 f{}, p{};
    if (!(norm2(c) < eps * eps) && poly.size() > 0) {
        double best = -1;
        for (std::size_t i = 0; i < poly.size(); ++i)
            if (norm2(poly.at(i) - c) > best) best = norm2(poly.at(i) - c), f = poly.at(i);
        if (!(dot(f, c) < eps * eps)) {
            p = scaled(c, dot(f, c) / norm2(c));
            r2 = norm2(p - f);
        }
    }
    if (r2 >= 1.0) return {false, {}, {}, 0};
    return {true, p, scaled(f, 2.0) - p, r2 + eps};
}

ub1 model_point(const Points &poly, const ModelCap &cap, P3 v, double eps) {
    if (norm2(v - cap.p) > cap.limit) return 0x40;
    P3 n = cross(v, cap.q);
    const double s = norm2(n);
    double y = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(static_cast<float>(s))));
    y = y * (1.5 - 0.5 * s * y * y);
    n = scaled(n, y);
    const std::size_t count = poly.size();
    const double eps2 = eps * eps;
    double s_prev = dot(n, poly.at(count - 1));
    bool near_prev = std::fabs(s_prev) < eps, neg_prev = s_prev < 0;
    ub4 crossings = 0;
    for (std::size_t i = 0; i < count; i += 2) {
        // Both vertices of the pair are tested for coincidence first.
        for (std::size_t k = i; k < std::min(i + 2, count); ++k)
            if (norm2(poly.at(k) - v) < eps2) return static_cast<ub1>(crossings | 0xC0);
        for (std::size_t k = i; k < std::min(i + 2, count); ++k) {
            const P3 a = poly.at(k ? k - 1 : count - 1), b = poly.at(k);
            const double sb = dot(n, b);
            const bool near = std::fabs(sb) < eps, neg = std::signbit(sb), change = neg != neg_prev;
            if (near && near_prev) {
                const double d = norm2(v - cap.q);
                const double da = norm2(a - cap.q) - d, db = norm2(b - cap.q) - d;
                if ((0 < da) != (0 < db)) return static_cast<ub1>(crossings | 0x80);
                if (!(0 < da)) crossings += change;
            } else if (change) {
                const P3 m = cross(a, b);
                const double mv = dot(m, v);
                if (norm2(m) * eps2 > mv * mv) return static_cast<ub1>(crossings | 0x80);
                crossings += (0 < mv) != (0 < dot(m, cap.q));
            }
            neg_prev = neg;
            near_prev = near;
        }
    }
    return static_cast<ub1>(crossings & 0x7F);
}

// ---- Data ---------------------------------------------------------------------------
P3 random_unit(std::mt19937_64 &rng) {
    std::normal_distribution<double> g;
    return unit({g(rng), g(rng), g(rng)});
}

// A star-shaped polygon around `centre`, vertex angles sorted, radii (as
// angles from the centre) between a third of `radius` and `radius`.
Points star(std::mt19937_64 &rng, P3 centre, double radius, std::size_t n) {
    const P3 e1 = unit(cross(centre, std::fabs(centre.x) < 0.9 ? P3{1, 0, 0} : P3{0, 1, 0}));
    const P3 e2 = cross(centre, e1);
    std::vector<double> angles(n);
    std::uniform_real_distribution<double> a(0, 2 * M_PI), r(radius / 3, radius);
    for (auto &t : angles) t = a(rng);
    std::sort(angles.begin(), angles.end());
    if (rng() % 2) std::reverse(angles.begin(), angles.end());
    Points p;
    for (double t : angles) {
        const double rho = r(rng);
        const P3 dir = scaled(e1, std::cos(t)) + scaled(e2, std::sin(t));
        p.add(unit(scaled(centre, std::cos(rho)) + scaled(dir, std::sin(rho))));
    }
    return p;
}

// Points of every kind: anywhere, near the polygon, the antipode of its
// centre, its vertices, points on its edges and just off them.
Points probes(std::mt19937_64 &rng, const Points &poly, P3 centre, double radius) {
    Points q;
    std::uniform_real_distribution<double> t(0, 1);
    for (int i = 0; i < 8; ++i) q.add(random_unit(rng));
    for (int i = 0; i < 24; ++i) q.add(unit(centre + scaled(random_unit(rng), radius)));
    q.add(scaled(centre, -1));
    for (int i = 0; i < 6 && poly.size(); ++i) {
        const std::size_t a = rng() % poly.size(), b = (a + 1) % poly.size();
        q.add(poly.at(a));
        const double s = t(rng);
        const P3 on = unit(poly.at(a) + scaled(poly.at(b) - poly.at(a), s));
        q.add(on);
        q.add(unit({on.x + 1e-7 * (t(rng) - 0.5), on.y + 1e-7 * (t(rng) - 0.5), on.z}));
    }
    return q;
}

// One call, each byte against the model; the code and that nothing is written
// on a refusal.
void check(Points &poly, Points &pts, double eps) {
    std::vector<ub1> out(pts.size() + 1, 0xEE);
    ub1 *out_at = out.data();
    const ub8 code = ctx().vorn_spheric_pip_dydi(&out_at, poly.record(), pts.record(), nullptr, nullptr, eps);
    const ModelCap cap = model_cap(poly, eps);
    ASSERT_EQ(code, cap.fits ? 0u : 24u) << "vertices " << poly.size() << " eps " << eps;
    for (std::size_t i = 0; i < pts.size(); ++i) {
        const ub1 want = cap.fits ? model_point(poly, cap, pts.at(i), eps) : 0xEE;
        ASSERT_EQ(out[i], want) << "point " << i << " of " << pts.size() << ", vertices " << poly.size() << " eps " << eps;
    }
    EXPECT_EQ(out.back(), 0xEE);
}

TEST(SphericPip, BytesAsTheModel) {
    std::mt19937_64 rng(3001);
    for (int trial = 0; trial < 400; ++trial) {
        const std::size_t n = trial < 40 ? trial / 4 + 1 : 1 + rng() % 200;
        const P3 centre = random_unit(rng);
        // Mostly well within a hemisphere; some reach beyond it.
        const double radius = trial % 5 == 4 ? 1.4 + 1.5 * static_cast<double>(rng() % 100) / 100
                                             : 0.05 + 1.3 * static_cast<double>(rng() % 100) / 100;
        Points poly = star(rng, centre, radius, n);
        Points pts = probes(rng, poly, centre, radius);
        for (double eps : {1e-9, 1e-6, 1e-12, 0.0, 1e-3}) check(poly, pts, eps);
    }
}

TEST(SphericPip, BeyondAHemisphereAndEmptyPolygonsAreRefused) {
    std::mt19937_64 rng(3002);
    Points none, pts;
    pts.add({1, 0, 0});
    std::vector<ub1> out(1, 0xEE);
    ub1 *out_at = out.data();
    // No vertices; vertices around the equator (the box's centre is the
    // origin); a star wider than a hemisphere.
    Points equator, wide = star(rng, {0, 0, 1}, 2.5, 30);
    for (int i = 0; i < 8; ++i) equator.add({std::cos(i * M_PI / 4), std::sin(i * M_PI / 4), 0});
    for (auto [poly, eps] : {std::pair{&none, 1e-9}, {&none, 0.0}, {&equator, 1e-9}, {&wide, 1e-9}})
        EXPECT_EQ(ctx().vorn_spheric_pip_dydi(&out_at, poly->record(), pts.record(), nullptr, nullptr, eps), 24u);
    EXPECT_EQ(out[0], 0xEE);
    // No points: 0, nothing written.
    Points small = star(rng, {0, 0, 1}, 0.3, 10), no_points;
    EXPECT_EQ(ctx().vorn_spheric_pip_dydi(&out_at, small.record(), no_points.record(), nullptr, nullptr, 1e-9), 0u);
    EXPECT_EQ(out[0], 0xEE);
}

// A square around the north pole, by hand.
TEST(SphericPip, VertexEdgeInsideOutsideAndFar) {
    Points sq;
    const double h = 0.2;
    for (P3 p : {P3{h, h, 1}, P3{-h, h, 1}, P3{-h, -h, 1}, P3{h, -h, 1}}) sq.add(unit(p));
    Points pts;
    pts.add({0, 0, 1});                 // inside
    pts.add(sq.at(2));                  // a vertex
    pts.add(unit({0, h, 1}));           // on the edge from vertex 0 to 1
    pts.add(unit({0, 2 * h, 1}));       // near, outside
    pts.add({0, 0, -1});                // far
    std::vector<ub1> out(pts.size());
    ub1 *out_at = out.data();
    ASSERT_EQ(ctx().vorn_spheric_pip_dydi(&out_at, sq.record(), pts.record(), nullptr, nullptr, 1e-9), 0u);
    const ub1 mask[] = {0x81, 0xC0, 0xC0, 0x81, 0xFF}, want[] = {0x01, 0xC0, 0x80, 0x00, 0x40};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(out[i] & mask[i], want[i]) << "point " << i;
}

// ---- Against S2 --------------------------------------------------------------------
#if VORN_HAVE_S2
TEST(SphericPip, ParityAgreesWithS2) {
    std::mt19937_64 rng(3003);
    int inside = 0, checked = 0;
    for (int trial = 0; trial < 150; ++trial) {
        const std::size_t n = 3 + rng() % 80;
        const P3 centre = random_unit(rng);
        const double radius = 0.05 + 1.2 * static_cast<double>(rng() % 100) / 100;
        Points poly = star(rng, centre, radius, n);
        std::vector<S2Point> vertices;
        for (std::size_t i = 0; i < n; ++i) vertices.emplace_back(poly.x[i], poly.y[i], poly.z[i]);
        S2Loop loop(vertices, S2Debug::DISABLE);
        loop.Normalize();  // the smaller of the two regions, whichever way the vertices turn
        Points pts;
        for (int i = 0; i < 80; ++i) {
            const P3 r = random_unit(rng);
            const P3 p = i < 60 ? unit(centre + scaled(r, radius)) : r;
            const S2Point sp(p.x, p.y, p.z);
            S1ChordAngle nearest = S1ChordAngle::Infinity();
            for (std::size_t k = 0; k < n; ++k) S2::UpdateMinDistance(sp, vertices[k], vertices[(k + 1) % n], &nearest);
            if (nearest.ToAngle().radians() > 1e-9) pts.add(p);
        }
        std::vector<ub1> out(pts.size());
        ub1 *out_at = out.data();
        ASSERT_EQ(ctx().vorn_spheric_pip_dydi(&out_at, poly.record(), pts.record(), nullptr, nullptr, 1e-12), 0u);
        for (std::size_t i = 0; i < pts.size(); ++i) {
            const bool s2_inside = loop.Contains(S2Point(pts.x[i], pts.y[i], pts.z[i]));
            ASSERT_EQ(out[i] & 0x80, 0) << "not near any edge or vertex";
            const bool odd = out[i] != 0x40 && (out[i] & 1);
            ASSERT_EQ(odd, s2_inside) << "trial " << trial << " point " << i << " byte " << int{out[i]};
            inside += s2_inside;
            ++checked;
        }
    }
    EXPECT_GT(inside, checked / 20);
}
#else
TEST(SphericPip, ParityAgreesWithS2) { GTEST_SKIP() << "S2 is not installed"; }
#endif

}  // namespace
