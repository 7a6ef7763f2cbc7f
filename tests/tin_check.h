// Validity of a triangulated surface in plan, for tests and fuzzers: every
// triangle strictly counter-clockwise (exact test), no directed edge used twice, and no
// triangle overlapping another (no triangle's centroid or corner strictly
// inside another triangle). The overlap test buckets triangles on a grid,
// so it stays near linear on meshes of a few hundred thousand triangles.
// Returns an empty string for a valid mesh, else what is wrong.
#ifndef KIVGEO_TESTS_TIN_CHECK_H
#define KIVGEO_TESTS_TIN_CHECK_H

#include <kivgeo/mesh_data.h>
#include <kivgeo/tri3d.h>

#include "spacemath/exact_orient.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace tincheck {

inline double Orient(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c)
{
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

inline std::uint64_t Bits(double d)
{
    std::uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

// p lies strictly inside the counter-clockwise triangle t by a clear margin:
// farther from each edge's line than the rounding of the test (relative to
// the distances involved) and than a few units in the last place of the
// coordinates (a computed centroid is only that precise). A point on an edge,
// up to rounding, is not inside.
inline bool StrictlyInside(const CKivTri3d& t, const CKivPoint3d& p)
{
    const CKivPoint3d* v = t.m_pt;
    double mag = std::fmax(std::fabs(p.x), std::fabs(p.y));
    for (int k = 0; k < 3; ++k) {
        mag = std::fmax(mag, std::fmax(std::fabs(v[k].x), std::fabs(v[k].y)));
    }
    for (int k = 0; k < 3; ++k) {
        const CKivPoint3d& a = v[k];
        const CKivPoint3d& b = v[(k + 1) % 3];
        const double len = std::hypot(b.x - a.x, b.y - a.y);
        const double reach = std::fmax(std::fabs(p.x - a.x), std::fabs(p.y - a.y)) + len;
        if (!(Orient(a, b, p) > len * (1e-9 * reach + 8 * DBL_EPSILON * mag))) {
            return false;
        }
    }
    return true;
}

// p strictly inside the circumcircle of the counter-clockwise a, b, c, by a
// margin relative to the size of the terms plus the absolute 1e-6 band within
// which the triangulator's in-circle test reads a point as on the circle.
inline bool InCircleStrict(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c, const CKivPoint3d& p)
{
    const double ax = a.x - p.x, ay = a.y - p.y, bx = b.x - p.x, by = b.y - p.y, cx = c.x - p.x, cy = c.y - p.y;
    const double a2 = ax * ax + ay * ay, b2 = bx * bx + by * by, c2 = cx * cx + cy * cy;
    const double det = a2 * (bx * cy - by * cx) - b2 * (ax * cy - ay * cx) + c2 * (ax * by - ay * bx);
    const double mag = a2 * (std::fabs(bx * cy) + std::fabs(by * cx)) +
                       b2 * (std::fabs(ax * cy) + std::fabs(ay * cx)) +
                       c2 * (std::fabs(ax * by) + std::fabs(ay * bx));
    return det > 1e-9 * mag + 4e-6;
}

inline std::string CheckTin(const std::vector<CKivTri3d>& tris)
{
    struct EdgeHash {
        std::size_t operator()(const std::array<std::uint64_t, 4>& e) const
        {
            std::size_t h = 0;
            for (std::uint64_t u : e) {
                h = h * 1000003u ^ static_cast<std::size_t>(u ^ (u >> 29));
            }
            return h;
        }
    };
    std::unordered_set<std::array<std::uint64_t, 4>, EdgeHash> edges;
    edges.reserve(tris.size() * 3);
    double x0 = HUGE_VAL, y0 = HUGE_VAL, x1 = -HUGE_VAL, y1 = -HUGE_VAL;
    for (std::size_t i = 0; i < tris.size(); ++i) {
        const CKivPoint3d* v = tris[i].m_pt;
        // Exact: with huge coordinates the rounded cross product of a good
        // triangle can come out zero.
        if (ExactOrient2D(v[0].x, v[0].y, v[1].x, v[1].y, v[2].x, v[2].y) <= 0) {
            return "triangle " + std::to_string(i) + " is not strictly counter-clockwise";
        }
        for (int k = 0; k < 3; ++k) {
            const CKivPoint3d& a = v[k];
            const CKivPoint3d& b = v[(k + 1) % 3];
            if (!edges.insert({Bits(a.x), Bits(a.y), Bits(b.x), Bits(b.y)}).second) {
                return "directed edge of triangle " + std::to_string(i) + " used twice (overlap or fold)";
            }
            x0 = std::fmin(x0, a.x), y0 = std::fmin(y0, a.y);
            x1 = std::fmax(x1, a.x), y1 = std::fmax(y1, a.y);
        }
    }
    if (tris.empty()) {
        return "";
    }
    // Grid of about one cell per triangle over the plan extent.
    const std::size_t side = std::max<std::size_t>(1, static_cast<std::size_t>(std::sqrt(double(tris.size()))));
    const double w = std::fmax(x1 - x0, 1e-300), h = std::fmax(y1 - y0, 1e-300);
    auto cell = [&](double v, double lo, double size) {
        const double f = (v - lo) / size * static_cast<double>(side);
        return std::min(side - 1, static_cast<std::size_t>(std::fmax(0.0, std::fmin(f, double(side - 1)))));
    };
    std::vector<std::vector<std::size_t>> grid(side * side);
    for (std::size_t i = 0; i < tris.size(); ++i) {
        const CKivPoint3d* v = tris[i].m_pt;
        const std::size_t cx0 = cell(std::fmin(v[0].x, std::fmin(v[1].x, v[2].x)), x0, w);
        const std::size_t cx1 = cell(std::fmax(v[0].x, std::fmax(v[1].x, v[2].x)), x0, w);
        const std::size_t cy0 = cell(std::fmin(v[0].y, std::fmin(v[1].y, v[2].y)), y0, h);
        const std::size_t cy1 = cell(std::fmax(v[0].y, std::fmax(v[1].y, v[2].y)), y0, h);
        for (std::size_t cy = cy0; cy <= cy1; ++cy) {
            for (std::size_t cx = cx0; cx <= cx1; ++cx) {
                grid[cy * side + cx].push_back(i);
            }
        }
    }
    for (std::size_t i = 0; i < tris.size(); ++i) {
        const CKivPoint3d* v = tris[i].m_pt;
        const CKivPoint3d probes[4] = {
            CKivPoint3d((v[0].x + v[1].x + v[2].x) / 3, (v[0].y + v[1].y + v[2].y) / 3, 0.0), v[0], v[1], v[2]};
        for (const CKivPoint3d& p : probes) {
            for (std::size_t j : grid[cell(p.y, y0, h) * side + cell(p.x, x0, w)]) {
                if (j != i && StrictlyInside(tris[j], p)) {
                    return "triangles " + std::to_string(i) + " and " + std::to_string(j) + " overlap";
                }
            }
        }
    }
    return "";
}

inline std::string CheckTin(const TriMesh::CKivMeshData& mesh)
{
    std::vector<CKivTri3d> tris;
    mesh.OutputData(tris);
    return CheckTin(tris);
}

// Directed edges whose reverse no triangle uses, by plan position: the
// boundary of the mesh.
inline std::size_t BoundaryEdgeCount(const std::vector<CKivTri3d>& tris)
{
    std::map<std::pair<std::pair<double, double>, std::pair<double, double>>, int> edges;
    for (const CKivTri3d& t : tris) {
        for (int k = 0; k < 3; ++k) {
            const CKivPoint3d& a = t.m_pt[k];
            const CKivPoint3d& b = t.m_pt[(k + 1) % 3];
            ++edges[{{a.x, a.y}, {b.x, b.y}}];
        }
    }
    std::size_t n = 0;
    for (const auto& e : edges) {
        n += edges.count({e.first.second, e.first.first}) == 0 ? 1 : 0;
    }
    return n;
}

} // namespace tincheck

#endif
