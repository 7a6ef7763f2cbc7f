// Validity of a triangulated surface in plan, for tests and fuzzers: every
// triangle strictly counter-clockwise and no two overlapping (sharing a
// directed edge or folded over included), all decided by exact turns. Returns an empty
// string for a valid mesh, else what is wrong.
#ifndef KIVGEO_TESTS_TIN_CHECK_H
#define KIVGEO_TESTS_TIN_CHECK_H

#include <kivgeo/mesh_data.h>
#include <kivgeo/tri3d.h>

#include "spacemath/exact_orient.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tincheck {

inline double Orient(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c)
{
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

// Two counter-clockwise triangles are apart when some edge of either has
// every corner of the other on or beyond its line (separating axes: enough
// for convex shapes).
inline bool Apart(const CKivTri3d& s, const CKivTri3d& t)
{
    for (int side = 0; side < 2; ++side) {
        const CKivPoint3d* u = side ? t.m_pt : s.m_pt;
        const CKivPoint3d* v = side ? s.m_pt : t.m_pt;
        for (int k = 0; k < 3; ++k) {
            const CKivPoint3d& a = u[k];
            const CKivPoint3d& b = u[(k + 1) % 3];
            bool beyond = true;
            for (int m = 0; m < 3 && beyond; ++m) {
                beyond = ExactOrient2D(a.x, a.y, b.x, b.y, v[m].x, v[m].y) <= 0;
            }
            if (beyond) {
                return true;
            }
        }
    }
    return false;
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
    for (std::size_t i = 0; i < tris.size(); ++i) {
        const CKivPoint3d* v = tris[i].m_pt;
        // Exact: with huge coordinates the rounded cross product of a good
        // triangle can come out zero.
        if (ExactOrient2D(v[0].x, v[0].y, v[1].x, v[1].y, v[2].x, v[2].y) <= 0) {
            return "triangle " + std::to_string(i) + " is not strictly counter-clockwise";
        }
    }
    // Two triangles on one directed edge, a fold, or any other overlap:
    // compared pairwise by a sweep over the plan boxes in x order.
    struct SBox {
        double x0, x1, y0, y1;
        std::size_t i;
    };
    std::vector<SBox> boxes;
    for (std::size_t i = 0; i < tris.size(); ++i) {
        const CKivPoint3d* p = tris[i].m_pt;
        boxes.push_back({std::min({p[0].x, p[1].x, p[2].x}), std::max({p[0].x, p[1].x, p[2].x}),
                         std::min({p[0].y, p[1].y, p[2].y}), std::max({p[0].y, p[1].y, p[2].y}), i});
    }
    std::sort(boxes.begin(), boxes.end(), [](const SBox& a, const SBox& b) { return a.x0 < b.x0; });
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        for (std::size_t j = i + 1; j < boxes.size() && boxes[j].x0 <= boxes[i].x1; ++j) {
            if (boxes[j].y0 <= boxes[i].y1 && boxes[j].y1 >= boxes[i].y0 &&
                !Apart(tris[boxes[i].i], tris[boxes[j].i])) {
                return "triangles " + std::to_string(boxes[i].i) + " and " + std::to_string(boxes[j].i) +
                       " overlap";
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
