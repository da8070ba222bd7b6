// Point in polygon.
//
// Planar: vorn_spatial_pip_dydi, one call per point, on star-shaped rings of
// 16, 256 and 4096 vertices (closed and padded with the first vertex, as a
// host passes a ring whose parity it reads as "inside"), points spread over
// the ring's box; beside the classic crossing loop over the same ring, the
// streaming read of the ring once per point, and GEOS's prepared polygon
// (GEOSPreparedContains: the indexed ray-crossing location) on the same
// points.
//
// Spherical: vorn_spheric_pip_dydi, one call for 1M points (32K for the
// largest polygon), against star polygons of 16, 256 and 4096 vertices
// within a hemisphere; the points lie
// around the polygon, inside its cap, so every one takes the vertex walk.
// Beside a plain loop of the same walk, the streaming read of the points,
// and S2Loop::Contains per point (S2 indexes a loop of more than 32
// vertices after its first queries; the index is warm before timing).
#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "support/bench_support.h"

#if VORN_HAVE_GEOS
#include <geos_c.h>
#endif
#if VORN_HAVE_S2
#include <s2/s2loop.h>
#endif

namespace {

using namespace vornbench;

std::uniform_real_distribution<double> unit_interval(0, 1);
double uniform(double lo, double hi) { return lo + (hi - lo) * unit_interval(rng()); }

// ---- Planar -------------------------------------------------------------------------
struct Planar {
    std::vector<double> x, y;        // the ring, closed and padded
    std::vector<double> px, py;      // the points
    std::size_t vertices;
#if VORN_HAVE_GEOS
    GEOSContextHandle_t geos = nullptr;
    GEOSGeometry *polygon = nullptr;
    const GEOSPreparedGeometry *prepared = nullptr;
    std::vector<GEOSGeometry *> points;
#endif

    explicit Planar(std::size_t n) : vertices(n) {
        std::vector<double> angles(n);
        for (auto &a : angles) a = uniform(0, 2 * M_PI);
        std::sort(angles.begin(), angles.end());
        for (double a : angles) {
            const double r = uniform(1, 10);
            x.push_back(r * std::cos(a));
            y.push_back(r * std::sin(a));
        }
        const double x0 = x[0], y0 = y[0];
        do {
            x.push_back(x0);
            y.push_back(y0);
        } while (x.size() % 2 || x.size() == n + 1);
        const std::size_t count = std::max<std::size_t>(4096, (std::size_t{16} << 20) / n);
        for (std::size_t i = 0; i < count; ++i) {
            px.push_back(uniform(-10, 10));
            py.push_back(uniform(-10, 10));
        }
#if VORN_HAVE_GEOS
        geos = GEOS_init_r();
        GEOSCoordSequence *seq = GEOSCoordSeq_create_r(geos, static_cast<unsigned>(n + 1), 2);
        for (std::size_t i = 0; i <= n; ++i) GEOSCoordSeq_setXY_r(geos, seq, static_cast<unsigned>(i), x[i], y[i]);
        polygon = GEOSGeom_createPolygon_r(geos, GEOSGeom_createLinearRing_r(geos, seq), nullptr, 0);
        prepared = GEOSPrepare_r(geos, polygon);
        for (std::size_t i = 0; i < count; ++i) points.push_back(GEOSGeom_createPointFromXY_r(geos, px[i], py[i]));
        // The prepared polygon builds its index at its first query: not timed.
        GEOSPreparedContains_r(geos, prepared, points[0]);
#endif
    }
};

Planar &planar(std::size_t n) {
    static std::map<std::size_t, std::unique_ptr<Planar>> cache;
    auto &p = cache[n];
    if (!p) p = std::make_unique<Planar>(n);
    return *p;
}

void planar_kernel(benchmark::State &state, std::size_t n) {
    Planar &p = planar(n);
    vorn_vec xs{};
    xs.data = p.x.data();
    xs.size = static_cast<ub4>(p.x.size());
    const double *ys = p.y.data();
    for (auto _ : state) {
        ub4 inside = 0, count;
        ub4 *out = &count;
        for (std::size_t i = 0; i < p.px.size(); ++i) {
            const double *x = &p.px[i], *y = &p.py[i];
            ctx().vorn_spatial_pip_dydi(&out, &xs, &ys, &x, &y);
            inside += count & 1;
        }
        benchmark::DoNotOptimize(inside);
    }
    set_rates(state, static_cast<double>(p.px.size()), 16.0 * p.x.size() * p.px.size());
}

// The classic crossing loop: every edge of the ring, j trailing i.
VORN_SCALAR ub4 crossings(const double *x, const double *y, std::size_t n, double px, double py) {
    ub4 count = 0;
    for (std::size_t i = 0, j = n - 1; i < n; j = i++)
        if ((py < y[i]) != (py < y[j]) && x[i] + (x[j] - x[i]) * (py - y[i]) / (y[j] - y[i]) > px) ++count;
    return count;
}

void planar_scalar(benchmark::State &state, std::size_t n) {
    Planar &p = planar(n);
    for (auto _ : state) {
        ub4 inside = 0;
        for (std::size_t i = 0; i < p.px.size(); ++i) inside += crossings(p.x.data(), p.y.data(), p.x.size(), p.px[i], p.py[i]) & 1;
        benchmark::DoNotOptimize(inside);
    }
    set_rates(state, static_cast<double>(p.px.size()), 16.0 * p.x.size() * p.px.size());
}

void planar_bandwidth(benchmark::State &state, std::size_t n) {
    Planar &p = planar(n);
    const std::size_t bytes = 8 * p.x.size();
    for (auto _ : state)
        for (std::size_t i = 0; i < p.px.size(); ++i) {
            benchmark::DoNotOptimize(stream_read(p.x.data(), bytes));
            benchmark::DoNotOptimize(stream_read(p.y.data(), bytes));
        }
    set_rates(state, static_cast<double>(p.px.size()), 16.0 * p.x.size() * p.px.size());
}

#if VORN_HAVE_GEOS
void planar_geos(benchmark::State &state, std::size_t n) {
    Planar &p = planar(n);
    for (auto _ : state) {
        ub4 inside = 0;
        for (GEOSGeometry *pt : p.points) inside += GEOSPreparedContains_r(p.geos, p.prepared, pt) == 1;
        benchmark::DoNotOptimize(inside);
    }
    set_rates(state, static_cast<double>(p.px.size()), 16.0 * p.x.size() * p.px.size());
}
#endif

// ---- Spherical ------------------------------------------------------------------------
// 1M points; the 4096-vertex polygon takes 32K of them, so that its plain
// loop finishes in seconds.
constexpr std::size_t sphere_points(std::size_t vertices) {
    return std::min(std::size_t{1} << 20, (std::size_t{128} << 20) / vertices);
}
constexpr double kEps = 1e-12;

struct V3 {
    double x, y, z;
};
V3 unit(V3 a) {
    const double s = 1 / std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z);
    return {a.x * s, a.y * s, a.z * s};
}
V3 cross(V3 a, V3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double dot(V3 a, V3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

struct Sphere {
    std::vector<double> vx, vy, vz, px, py, pz;
    vorn_sphere_points polygon{}, points{};
    std::vector<ub1> out;
    V3 centre{0.3, -0.5, 0.8};
    V3 cap_p{}, cap_q{};             // the plain loop's cap and reference point
    double cap_limit = 0;
#if VORN_HAVE_S2
    std::unique_ptr<S2Loop> loop;
#endif

    // The cap of the plain loop, as the kernel draws it: the box's centre
    // C, the vertex F farthest from it, F's projection P on C, Q = 2F - P.
    void make_cap() {
        V3 lo{2, 2, 2}, hi{-2, -2, -2};
        for (std::size_t i = 0; i < vx.size(); ++i) {
            lo = {std::min(lo.x, vx[i]), std::min(lo.y, vy[i]), std::min(lo.z, vz[i])};
            hi = {std::max(hi.x, vx[i]), std::max(hi.y, vy[i]), std::max(hi.z, vz[i])};
        }
        const V3 c{(lo.x + hi.x) * 0.5, (lo.y + hi.y) * 0.5, (lo.z + hi.z) * 0.5};
        V3 f{};
        double best = -1;
        for (std::size_t i = 0; i < vx.size(); ++i) {
            const V3 d{vx[i] - c.x, vy[i] - c.y, vz[i] - c.z};
            if (dot(d, d) > best) best = dot(d, d), f = {vx[i], vy[i], vz[i]};
        }
        const double t = dot(f, c) / dot(c, c);
        cap_p = {t * c.x, t * c.y, t * c.z};
        const V3 pf{cap_p.x - f.x, cap_p.y - f.y, cap_p.z - f.z};
        cap_limit = dot(pf, pf) + kEps;
        cap_q = {2 * f.x - cap_p.x, 2 * f.y - cap_p.y, 2 * f.z - cap_p.z};
    }

    std::size_t count;

    explicit Sphere(std::size_t n) : out(sphere_points(n)), count(sphere_points(n)) {
        centre = unit(centre);
        const V3 e1 = unit(cross(centre, {1, 0, 0})), e2 = cross(centre, e1);
        std::vector<double> angles(n);
        for (auto &a : angles) a = uniform(0, 2 * M_PI);
        std::sort(angles.begin(), angles.end());
        for (double a : angles) {
            const double rho = uniform(0.2, 0.6);
            const V3 d{e1.x * std::cos(a) + e2.x * std::sin(a), e1.y * std::cos(a) + e2.y * std::sin(a),
                       e1.z * std::cos(a) + e2.z * std::sin(a)};
            const V3 v = unit({centre.x * std::cos(rho) + d.x * std::sin(rho), centre.y * std::cos(rho) + d.y * std::sin(rho),
                               centre.z * std::cos(rho) + d.z * std::sin(rho)});
            vx.push_back(v.x), vy.push_back(v.y), vz.push_back(v.z);
        }
        std::normal_distribution<double> g(0, 0.3);
        for (std::size_t i = 0; i < count; ++i) {
            const V3 p = unit({centre.x + g(rng()), centre.y + g(rng()), centre.z + g(rng())});
            px.push_back(p.x), py.push_back(p.y), pz.push_back(p.z);
        }
        polygon = {vx.data(), vy.data(), vz.data(), static_cast<ub4>(n)};
        make_cap();
        points = {px.data(), py.data(), pz.data(), static_cast<ub4>(count)};
#if VORN_HAVE_S2
        std::vector<S2Point> vertices;
        for (std::size_t i = 0; i < n; ++i) vertices.emplace_back(vx[i], vy[i], vz[i]);
        loop = std::make_unique<S2Loop>(vertices, S2Debug::DISABLE);
        loop->Normalize();
        for (std::size_t i = 0; i < 1000; ++i) loop->Contains(S2Point(px[i], py[i], pz[i]));
#endif
    }
};

Sphere &sphere(std::size_t n) {
    static std::map<std::size_t, std::unique_ptr<Sphere>> cache;
    auto &s = cache[n];
    if (!s) s = std::make_unique<Sphere>(n);
    return *s;
}

void sphere_rates(benchmark::State &state, const Sphere &s) {
    set_rates(state, static_cast<double>(s.count), 24.0 * static_cast<double>(s.count));
}

void sphere_kernel(benchmark::State &state, std::size_t n) {
    Sphere &s = sphere(n);
    ub1 *out = s.out.data();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ctx().vorn_spheric_pip_dydi(&out, &s.polygon, &s.points, nullptr, nullptr, kEps));
        benchmark::ClobberMemory();
    }
    sphere_rates(state, s);
}

// The same walk as a plain loop, one vertex at a time: the coincidence test,
// the side of the vertex against the great circle through the point and the
// reference point (normalised by a square root), and the crossing test where
// the side changes or both ends are near.  The arithmetic is written out: a
// function of other optimisation options would not inline helpers, and the
// loop would measure their calls.
VORN_SCALAR ub1 sphere_scalar_walk(const Sphere &s, V3 q, V3 v) {
    double nx = v.y * q.z - v.z * q.y, ny = v.z * q.x - v.x * q.z, nz = v.x * q.y - v.y * q.x;
    const double len = 1 / std::sqrt(nx * nx + ny * ny + nz * nz);
    nx *= len, ny *= len, nz *= len;
    const double *x = s.vx.data(), *y = s.vy.data(), *z = s.vz.data();
    const std::size_t count = s.vx.size();
    double ax = x[count - 1], ay = y[count - 1], az = z[count - 1];
    const double s_last = nx * ax + ny * ay + nz * az;
    bool neg_prev = s_last < 0, near_prev = std::fabs(s_last) < kEps;
    ub4 crossings = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const double bx = x[i], by = y[i], bz = z[i];
        const double dx = bx - v.x, dy = by - v.y, dz = bz - v.z;
        if (dx * dx + dy * dy + dz * dz < kEps * kEps) return static_cast<ub1>(crossings | 0xC0);
        const double side = nx * bx + ny * by + nz * bz;
        const bool neg = side < 0, near = std::fabs(side) < kEps;
        if (near && near_prev) {
            return static_cast<ub1>(crossings | 0x80);  // not met by these points
        } else if (neg != neg_prev) {
            const double mx = ay * bz - az * by, my = az * bx - ax * bz, mz = ax * by - ay * bx;
            const double mv = mx * v.x + my * v.y + mz * v.z;
            if ((mx * mx + my * my + mz * mz) * kEps * kEps > mv * mv) return static_cast<ub1>(crossings | 0x80);
            crossings += (0 < mv) != (0 < mx * q.x + my * q.y + mz * q.z);
        }
        neg_prev = neg, near_prev = near;
        ax = bx, ay = by, az = bz;
    }
    return static_cast<ub1>(crossings & 0x7f);
}

void sphere_scalar(benchmark::State &state, std::size_t n) {
    Sphere &s = sphere(n);
    for (auto _ : state) {
        for (std::size_t i = 0; i < s.count; ++i) {
            const V3 v{s.px[i], s.py[i], s.pz[i]};
            const V3 d{v.x - s.cap_p.x, v.y - s.cap_p.y, v.z - s.cap_p.z};
            s.out[i] = dot(d, d) > s.cap_limit ? 0x40 : sphere_scalar_walk(s, s.cap_q, v);
        }
        benchmark::ClobberMemory();
    }
    sphere_rates(state, s);
}

void sphere_bandwidth(benchmark::State &state, std::size_t n) {
    Sphere &s = sphere(n);
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream_read(s.px.data(), 8 * s.count));
        benchmark::DoNotOptimize(stream_read(s.py.data(), 8 * s.count));
        benchmark::DoNotOptimize(stream_read(s.pz.data(), 8 * s.count));
    }
    sphere_rates(state, s);
}

#if VORN_HAVE_S2
void sphere_s2(benchmark::State &state, std::size_t n) {
    Sphere &s = sphere(n);
    for (auto _ : state) {
        for (std::size_t i = 0; i < s.count; ++i) s.out[i] = s.loop->Contains(S2Point(s.px[i], s.py[i], s.pz[i]));
        benchmark::ClobberMemory();
    }
    sphere_rates(state, s);
}
#endif

void register_all() {
    for (std::size_t n : {16, 256, 4096}) {
        const std::string g = "planar/ring" + std::to_string(n);
        register_row(g, "kernel", [n](benchmark::State &st) { planar_kernel(st, n); })->Unit(benchmark::kMillisecond);
        register_row(g, "scalar", [n](benchmark::State &st) { planar_scalar(st, n); })->Unit(benchmark::kMillisecond);
        register_row(g, "bandwidth", [n](benchmark::State &st) { planar_bandwidth(st, n); })->Unit(benchmark::kMillisecond);
#if VORN_HAVE_GEOS
        register_row(g, "peer", [n](benchmark::State &st) { planar_geos(st, n); })->Unit(benchmark::kMillisecond);
#endif
    }
    for (std::size_t n : {16, 256, 4096}) {
        const std::string g = "spheric/polygon" + std::to_string(n);
        register_row(g, "kernel", [n](benchmark::State &st) { sphere_kernel(st, n); })->Unit(benchmark::kMillisecond);
        register_row(g, "scalar", [n](benchmark::State &st) { sphere_scalar(st, n); })->Unit(benchmark::kMillisecond);
        register_row(g, "bandwidth", [n](benchmark::State &st) { sphere_bandwidth(st, n); })->Unit(benchmark::kMillisecond);
#if VORN_HAVE_S2
        register_row(g, "peer", [n](benchmark::State &st) { sphere_s2(st, n); })->Unit(benchmark::kMillisecond);
#endif
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()
