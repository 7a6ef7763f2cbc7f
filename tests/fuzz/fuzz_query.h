// Queries on a mesh built by a fuzz target, with what each owes: codes in
// range, outputs untouched on failure, finite results where the input was
// finite, and on a valid triangulation also heights and locations at the
// triangles' centroids and an outline of closed rings.
#ifndef KIVGEO_TESTS_FUZZ_QUERY_H
#define KIVGEO_TESTS_FUZZ_QUERY_H

#include "fuzz_input.h"
#include "tin_check.h"

#include <kivgeo/mesh_data.h>
#include <kivgeo/mesh_query.h>
#include <kivgeo/planar.h>
#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

inline bool IsFiniteSeg(const CKivSeg3d& s)
{
    return IsFinitePt(s.m_pt[0]) && IsFinitePt(s.m_pt[1]);
}

// tin: the mesh is a valid triangulation of finite, tame points (distinct
// vertices at distinct plan positions).
inline void FuzzQueries(CKivFuzzInput& in, const TriMesh::CKivMeshData& mesh, bool tin)
{
    using TriMesh::CKivMeshQuery;
    CKivMeshQuery query(mesh);
    std::vector<CKivTri3d> tris;
    mesh.OutputData(tris);

    // Centroids of a sample of triangles and a few decoded positions.
    // Each probe carries the height rounding owed to it: interpolating
    // between corners of height h loses a few ulps of h, whatever the result.
    struct SProbe {
        CKivPoint3d p;
        bool owed;
        double zTol;
    };
    std::vector<SProbe> probes;
    const std::size_t step = tris.size() / 16 + 1;
    for (std::size_t i = 0; i < tris.size(); i += step) {
        const CKivPoint3d* v = tris[i].m_pt;
        const double area2 = (v[1].x - v[0].x) * (v[2].y - v[0].y) - (v[1].y - v[0].y) * (v[2].x - v[0].x);
        const CKivPoint3d c((v[0].x + v[1].x + v[2].x) / 3, (v[0].y + v[1].y + v[2].y) / 3,
                            (v[0].z + v[1].z + v[2].z) / 3);
        // Well-shaped triangles only: slivers may read as degenerate to the
        // 1e-6 tests of the intersection code.
        const double len2 =
            std::fmax((v[1].x - v[0].x) * (v[1].x - v[0].x) + (v[1].y - v[0].y) * (v[1].y - v[0].y),
                      (v[2].x - v[0].x) * (v[2].x - v[0].x) + (v[2].y - v[0].y) * (v[2].y - v[0].y));
        const double zMax = std::fmax(std::fabs(v[0].z), std::fmax(std::fabs(v[1].z), std::fabs(v[2].z)));
        probes.push_back({c, tin && area2 > 0.1 * len2 && area2 > 1e-2, 1e-6 * (1.0 + zMax)});
    }
    for (int i = 0; i < 3 && !in.Empty(); ++i) {
        probes.push_back({in.Point(), false, 0.0});
    }

    for (const auto& [p, owed, zTol] : probes) {
        double z = -123.0;
        if (query.GetMapPoint(p.x, p.y, z)) {
            KIV_FUZZ_CHECK(in.Wild() || std::isfinite(z));
            if (owed) {
                // The triangle's own height, or a higher sheet: the 1e-6
                // tolerance on barycentrics lets a long neighbour claim points
                // a little outside it.
                KIV_FUZZ_CHECK(z >= p.z - zTol);
            }
        } else {
            KIV_FUZZ_CHECK(z == -123.0 && !owed);
        }
        CKivTri3d found(CKivPoint3d(1.0, 1.0, 1.0), CKivPoint3d(1.0, 1.0, 1.0), CKivPoint3d(1.0, 1.0, 1.0));
        if (!query.FindTriIncludePt(p, found)) {
            KIV_FUZZ_CHECK(!owed && SamePt(found.m_pt[0], CKivPoint3d(1.0, 1.0, 1.0)));
        }
        const int hit = query.HitTestPt(p);
        KIV_FUZZ_CHECK(hit >= 0 && hit <= 4);
        KIV_FUZZ_CHECK(!tris.empty() || hit == CKivMeshQuery::eHitNone);
    }
    if (!tris.empty()) {
        const CKivTri3d& t = tris[in.Below(static_cast<unsigned>(tris.size()))];
        const int hit = query.HitTestTri(t.m_pt[0], t.m_pt[1], t.m_pt[2]);
        KIV_FUZZ_CHECK(hit >= 0 && hit <= 4);
    }

    // Draping a decoded line.
    const std::vector<CKivPoint3d> line = in.Points(6);
    const bool closed = in.Flag();
    std::vector<CKivSeg3d> pieces(1);
    if (query.GetMapPolyline(line, closed, pieces)) {
        KIV_FUZZ_CHECK(line.size() >= 2);
        for (const CKivSeg3d& s : pieces) {
            KIV_FUZZ_CHECK(in.Wild() || IsFiniteSeg(s));
        }
    } else {
        KIV_FUZZ_CHECK(line.size() < 2 && pieces.size() == 1);
    }
    std::vector<CKivPolyLine> draped;
    query.GetMapPolyline(line, closed, draped);
    std::vector<CKivTri3d> inside;
    KIV_FUZZ_CHECK(query.GetTrisInMapPolygon(line, inside));
    KIV_FUZZ_CHECK(inside.size() <= tris.size());
    if (!in.Wild()) {
        for (const CKivTri3d& t : inside) {
            const CKivPoint3d c((t.m_pt[0].x + t.m_pt[1].x + t.m_pt[2].x) * 0.3333333333333333,
                                (t.m_pt[0].y + t.m_pt[1].y + t.m_pt[2].y) * 0.3333333333333333, 0.0);
            KIV_FUZZ_CHECK(IsPtInPolygon(line, c) == 1);
        }
    }

    // Outline: one vertex per boundary edge, rings closed on a triangulation.
    std::vector<CKivPolyLine> outline;
    query.GetOutline(outline);
    // A closed soup has no boundary; a plan triangulation always has one.
    KIV_FUZZ_CHECK(!tris.empty() || outline.empty());
    KIV_FUZZ_CHECK(!tin || tris.empty() == outline.empty());
    std::size_t verts = 0;
    for (const CKivPolyLine& l : outline) {
        verts += l.NumVerts();
        KIV_FUZZ_CHECK(!tin || l.IsClosed());
    }
    KIV_FUZZ_CHECK(verts <= 3 * tris.size() + outline.size());
    if (tin) {
        KIV_FUZZ_CHECK(verts == tincheck::BoundaryEdgeCount(tris));
    }
    CKivPolyLine outer;
    outer.AddVertex(CKivPoint3d(5.0, 5.0, 5.0));
    query.GetOutline(outer);
    KIV_FUZZ_CHECK(!tris.empty() || outer.NumVerts() == 1);
}

#endif
