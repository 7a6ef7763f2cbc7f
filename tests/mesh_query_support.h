// Surfaces and private access shared by the mesh query tests.
#ifndef KIVGEO_TESTS_MESH_QUERY_SUPPORT_H
#define KIVGEO_TESTS_MESH_QUERY_SUPPORT_H

#include <kivgeo/mesh_data.h>
#include <kivgeo/mesh_query.h>
#include <kivgeo/tri3d.h>

#include "mesh_store_access.h"

#include <functional>
#include <random>
#include <vector>

namespace TriMesh {

// The query's protected and private members.
class CKivMeshQueryInspector {
public:
    using eTriHitMesh = CKivMeshQuery::eTriHitMesh;
    explicit CKivMeshQueryInspector(CKivMeshQuery& q) : m_q(q) {}
    void FindTriByPos(const CKivPoint3d& p, std::vector<_sTri*>& out, bool b3D) { m_q.FindTriByPos(p, out, b3D); }
    void FindTriBySeg(const CKivPoint3d& a, const CKivPoint3d& b, std::vector<_sTri*>& out)
    {
        m_q.FindTriBySeg(a, b, out);
    }
    void FindTriByShortSeg(const CKivPoint3d& a, const CKivPoint3d& b, std::vector<_sTri*>& out)
    {
        m_q.FindTriByShortSeg(a, b, out);
    }
    void GetMapLineSeg(const CKivPoint3d& a, const CKivPoint3d& b, std::vector<CKivSeg3d>& out)
    {
        m_q.GetMapLineSeg(a, b, out);
    }
    bool GetTrisInMapPolygon(const std::vector<CKivPoint3d>& poly, std::vector<_sTri*>& out)
    {
        return m_q.GetTrisInMapPolygon(poly, out);
    }
    eTriHitMesh HitTestPt(const CKivPoint3d& p, const CGeoVector& dir) { return m_q.HitTestPt(p, dir); }
    eTriHitMesh HitTestPt_New(const CKivPoint3d& p, const CGeoVector& dir) { return m_q.HitTestPt_New(p, dir); }
    void GetSegsOfMesh(std::vector<_sSeg*>& out) { m_q.GetSegsOfMesh(out); }
    bool LinkPtrSegs(const std::vector<_sSeg*>& segs, std::vector<CKivPolyLine>& out)
    {
        return m_q.LinkPtrSegs(segs, out);
    }
    const std::vector<CKivPolyLine>& Cache() { return m_q.m_vecOutline; }

private:
    CKivMeshQuery& m_q;
};

} // namespace TriMesh

namespace QueryTest {

inline CKivPoint3d P(double x, double y, double z = 0.0)
{
    return CKivPoint3d(x, y, z);
}

// A gridded TIN over [x0, x0 + nx * h] x [y0, y0 + ny * h], counter-clockwise
// in plan, each cell split along a diagonal; z from f. keep(i, j) picks cells.
inline std::vector<CKivTri3d> GridTris(int nx, int ny, double h, double x0, double y0,
                                       const std::function<double(double, double)>& f,
                                       const std::function<bool(int, int)>& keep = nullptr)
{
    std::vector<CKivTri3d> tris;
    const auto at = [&](int i, int j) {
        const double x = x0 + i * h, y = y0 + j * h;
        return CKivPoint3d(x, y, f(x, y));
    };
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            if (keep && !keep(i, j)) {
                continue;
            }
            const CKivPoint3d a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1), d = at(i, j + 1);
            if ((i + j) % 2 == 0) {
                tris.emplace_back(a, b, c);
                tris.emplace_back(a, c, d);
            } else {
                tris.emplace_back(a, b, d);
                tris.emplace_back(b, c, d);
            }
        }
    }
    return tris;
}

// The surface of the box [lo, hi], each face an n x n grid, triangles facing
// outward.
inline std::vector<CKivTri3d> BoxTris(const CKivPoint3d& lo, const CKivPoint3d& hi, int n)
{
    std::vector<CKivTri3d> tris;
    // Face k: fixed axis a at lo or hi; u, v span the other two axes.
    for (int a = 0; a < 3; ++a) {
        for (int side = 0; side < 2; ++side) {
            const int u = (a + 1) % 3, v = (a + 2) % 3;
            const double l[3] = {lo.x, lo.y, lo.z}, h[3] = {hi.x, hi.y, hi.z};
            const auto corner = [&](double su, double sv) {
                double c[3];
                c[a] = side ? h[a] : l[a];
                c[u] = l[u] + su * (h[u] - l[u]);
                c[v] = l[v] + sv * (h[v] - l[v]);
                return CKivPoint3d(c[0], c[1], c[2]);
            };
            for (int i = 0; i < n; ++i) {
                for (int j = 0; j < n; ++j) {
                    const CKivPoint3d p00 = corner(double(i) / n, double(j) / n);
                    const CKivPoint3d p10 = corner(double(i + 1) / n, double(j) / n);
                    const CKivPoint3d p11 = corner(double(i + 1) / n, double(j + 1) / n);
                    const CKivPoint3d p01 = corner(double(i) / n, double(j + 1) / n);
                    // (u, v, a) is right-handed, so u x v points along +a.
                    if (side) {
                        tris.emplace_back(p00, p10, p11);
                        tris.emplace_back(p00, p11, p01);
                    } else {
                        tris.emplace_back(p00, p11, p10);
                        tris.emplace_back(p00, p01, p11);
                    }
                }
            }
        }
    }
    return tris;
}

} // namespace QueryTest

#endif
