// spatial.cpp - Q11: a spatial filter on the points of a table.
//
//   planar     which points lie inside a star-shaped ring: the kernel counts
//              the ring's edges that the ray from the point towards +X
//              crosses (vorn_spatial_pip_dydi, one point a call), and an odd
//              count is inside
//   spherical  points on the unit sphere classified against a convex
//              polygon on the sphere (vorn_spheric_pip_dydi, a chunk of
//              points a call): outside its bounding cap, on a vertex or an
//              edge, or inside by the parity of the crossings
//
// The scalar evaluation is the textbook test of each: the crossing test
// with interpolated edges in the plane, and on the sphere the sign of each
// edge's great-circle normal against the point, as the polygon is convex.
#include <algorithm>
#include <cmath>
#include <random>

#include "vorn_demo/groups.h"

namespace demo {
namespace {

constexpr ub4 kChunk = 1u << 16;  // points of one task
constexpr ub4 kVertices = 40;     // even: the ring closes with one padding vertex

struct P3 {
    double x, y, z;
};
P3 cross(P3 a, P3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
double dot(P3 a, P3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
P3 unit(P3 a) {
    const double n = std::sqrt(dot(a, a));
    return {a.x / n, a.y / n, a.z / n};
}

class Spatial {
public:
    Spatial(Scan &scan, ub8 rows, ub8 seed) : scan_(scan), rows_(rows), rng_(seed ^ 0x5a7) {}

    std::vector<Outcome> run() {
        planar();
        spherical();
        return out_;
    }

private:
    ub4 units() const { return static_cast<ub4>((rows_ + kChunk - 1) / kChunk); }

    void planar() {
        // The ring: kVertices around the origin at radii 0.5 to 1, passed
        // closed (the first vertex again) and padded with it to an even
        // count, so that the kernel's count has the parity of inside.
        std::vector<double> rx, ry;
        for (ub4 k = 0; k < kVertices; ++k) {
            const double a = 2 * M_PI * k / kVertices, r = 0.5 + 0.5 * (rng_() % 1000) / 1000.0;
            rx.push_back(r * std::cos(a)), ry.push_back(r * std::sin(a));
        }
        std::vector<double> X(rx), Y(ry);
        X.push_back(rx[0]), Y.push_back(ry[0]);
        X.push_back(rx[0]), Y.push_back(ry[0]);
        std::vector<double> px(rows_), py(rows_);
        std::uniform_real_distribution<double> span(-1.2, 1.2);
        for (ub8 i = 0; i < rows_; ++i) px[i] = span(rng_), py[i] = span(rng_);

        Outcome o;
        o.title = "Q11 planar point in polygon";
        o.question = "points of " + commas(rows_) + " inside a star-shaped ring of " + std::to_string(kVertices) +
                     " vertices: crossing count parity";
        std::vector<ub1> inside(rows_), model(rows_);
        o.library_seconds = scan_.for_units(units(), [&](Worker &w, ub4 u) {
            const ub8 first = ub8{u} * kChunk, end = std::min<ub8>(rows_, first + kChunk);
            vorn_vec xs{};
            xs.data = X.data();
            xs.size = static_cast<ub4>(X.size());
            const double *ys = Y.data();
            const auto start = std::chrono::steady_clock::now();
            for (ub8 i = first; i < end; ++i) {
                ub4 count = 0;
                ub4 *at = &count;
                const double *x = &px[i], *y = &py[i];
                scan_.ctx().vorn_spatial_pip_dydi(&at, &xs, &ys, &x, &y);
                inside[i] = count & 1;
            }
            Scan::note_slot(w, "vorn_spatial_pip_dydi", end - first, end - first,
                            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        });
        o.scalar_seconds = scan_.for_units(units(), [&](Worker &, ub4 u) {
            for (ub8 i = ub8{u} * kChunk, end = std::min<ub8>(rows_, i + kChunk); i < end; ++i) {
                bool in = false;
                for (ub4 a = 0, b = kVertices - 1; a < kVertices; b = a++)
                    if ((ry[a] > py[i]) != (ry[b] > py[i]) &&
                        px[i] < (rx[b] - rx[a]) * (py[i] - ry[a]) / (ry[b] - ry[a]) + rx[a])
                        in = !in;
                model[i] = in;
            }
        });
        finish(o, inside, model, "");
    }

    void spherical() {
        // A convex polygon: kVertices on a circle of 20 degrees around a
        // centre in the northern hemisphere, counter-clockwise seen from
        // outside; the points scattered over a cap of 40 degrees around it.
        const P3 c = unit({0.3, -0.4, 0.87});
        const P3 e1 = unit(cross(c, {0, 0, 1})), e2 = cross(c, e1);
        auto at = [&](double radius, double angle) {
            const double s = std::sin(radius);
            return unit({c.x * std::cos(radius) + s * (std::cos(angle) * e1.x + std::sin(angle) * e2.x),
                         c.y * std::cos(radius) + s * (std::cos(angle) * e1.y + std::sin(angle) * e2.y),
                         c.z * std::cos(radius) + s * (std::cos(angle) * e1.z + std::sin(angle) * e2.z)});
        };
        std::vector<P3> poly;
        for (ub4 k = 0; k < kVertices; ++k) poly.push_back(at(20 * M_PI / 180, 2 * M_PI * k / kVertices));
        std::vector<double> vx, vy, vz, qx(rows_), qy(rows_), qz(rows_);
        for (const P3 &v : poly) vx.push_back(v.x), vy.push_back(v.y), vz.push_back(v.z);
        std::uniform_real_distribution<double> angle(0, 2 * M_PI), cosr(std::cos(40 * M_PI / 180), 1.0);
        for (ub8 i = 0; i < rows_; ++i) {
            const P3 p = at(std::acos(cosr(rng_)), angle(rng_));
            qx[i] = p.x, qy[i] = p.y, qz[i] = p.z;
        }

        Outcome o;
        o.title = "Q11 spherical point in polygon";
        o.question = commas(rows_) + " points on the unit sphere against a convex polygon of " +
                     std::to_string(kVertices) + " vertices, 20 degrees around its centre";
        const vorn_sphere_points polygon{vx.data(), vy.data(), vz.data(), kVertices};
        std::vector<ub1> bytes(rows_), inside(rows_), model(rows_);
        std::vector<ub8> outside_cap(units()), boundary(units());
        o.library_seconds = scan_.for_units(units(), [&](Worker &w, ub4 u) {
            const ub8 first = ub8{u} * kChunk, n = std::min<ub8>(rows_ - first, kChunk);
            const vorn_sphere_points points{qx.data() + first, qy.data() + first, qz.data() + first,
                                            static_cast<ub4>(n)};
            ub1 *out = bytes.data() + first;
            const ub8 code = scan_.slot(w, "vorn_spheric_pip_dydi", n, [&] {
                return scan_.ctx().vorn_spheric_pip_dydi(&out, &polygon, &points, nullptr, nullptr, 1e-12);
            });
            if (code != 0) return;
            for (ub8 i = first; i < first + n; ++i) {
                const ub1 b = bytes[i];
                outside_cap[u] += b == VORN_SPHERIC_OUTSIDE_CAP;
                boundary[u] += (b & 0x80) != 0;
                inside[i] = b != VORN_SPHERIC_OUTSIDE_CAP && !(b & 0x80) && (b & 1);
            }
        });
        std::vector<P3> normals;
        for (ub4 k = 0; k < kVertices; ++k) normals.push_back(cross(poly[k], poly[(k + 1) % kVertices]));
        o.scalar_seconds = scan_.for_units(units(), [&](Worker &, ub4 u) {
            for (ub8 i = ub8{u} * kChunk, end = std::min<ub8>(rows_, i + kChunk); i < end; ++i) {
                const P3 p{qx[i], qy[i], qz[i]};
                bool in = true;
                for (const P3 &nrm : normals) in = in && dot(nrm, p) > 0;
                model[i] = in;
            }
        });
        ub8 cap = 0, edge = 0;
        for (ub4 u = 0; u < units(); ++u) cap += outside_cap[u], edge += boundary[u];
        finish(o, inside, model, ", " + commas(cap) + " rejected by the bounding cap, " + commas(edge) + " on the boundary");
    }

    void finish(Outcome &o, const std::vector<ub1> &got, const std::vector<ub1> &want, const std::string &more) {
        ub8 count = 0;
        o.rows = static_cast<double>(rows_);
        for (ub8 i = 0; i < rows_; ++i) {
            count += got[i];
            if (got[i] != want[i] && o.ok) {
                o.ok = false;
                o.mismatch = "point " + std::to_string(i) + ": library " + std::to_string(got[i]) + ", scalar " +
                             std::to_string(want[i]);
            }
        }
        o.answer = commas(count) + " points inside" + more;
        out_.push_back(o);
    }

    Scan &scan_;
    ub8 rows_;
    std::mt19937_64 rng_;
    std::vector<Outcome> out_;
};

}  // namespace

std::vector<Outcome> run_spatial(Scan &scan, ub8 rows, ub8 seed) { return Spatial(scan, rows, seed).run(); }

}  // namespace demo
