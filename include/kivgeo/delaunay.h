// Constrained Delaunay triangulator: builds a TIN in the plane (x, y) from the
// vertices of a mesh, keeping each vertex's z, by incremental insertion with
// cavity re-triangulation. Constraint lines, hole lines and an outline are
// forced into the result as edges; triangles inside a hole or outside the
// outline are removed.
//
// Usage:
//   TriMesh::CKivMeshData mesh;
//   TriMesh::CKivDelaunay tin(mesh);
//   for (auto& p : boreholes) tin.AddVertex(p);
//   tin.AddSegYS(faultTrace, false);
//   tin.SetOutline(boundary);
//   bool ok = tin.Delaunay();   // triangles now in mesh, octree built
//
// Input points within 0.01 of an existing vertex in x and y are merged into
// it (the vertex added last wins, its z is kept). The three corners of the
// temporary bounding triangle stay in the mesh's vertex list without
// triangles; ClearVoidVet removes them.
#ifndef KIVGEO_DELAUNAY_H
#define KIVGEO_DELAUNAY_H

#include <kivgeo/export.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/point3d.h>
#include <kivgeo/polyline.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace TriMesh {

class CKivDelaunayWork;

class KIVGEO_API CKivDelaunay {
public:
    explicit CKivDelaunay(CKivMeshData& mesh);
    virtual ~CKivDelaunay();
    CKivDelaunay(const CKivDelaunay&) = delete;
    CKivDelaunay& operator=(const CKivDelaunay&) = delete;

    // Index of the mesh vertex that now represents p: an existing vertex
    // within 0.01 in x and y, or a new one.
    int AddVertex(const CKivPoint3d& p);
    // Triangulates all vertices of the mesh and forces the constraint
    // segments; false for fewer than 3 vertices or 3 collinear ones.
    bool Delaunay();

    // Registers the points as vertices and their consecutive pairs (and the
    // closing pair when closed) as constraint segments; false below 2 points.
    bool AddSegYS(const std::vector<CKivPoint3d>& points, bool closed);
    // A closed constraint ring whose inside is removed; false below 3 points.
    bool AddHoleLine(const std::vector<CKivPoint3d>& points);
    // A closed constraint ring outside which everything is removed; false
    // below 3 points.
    bool SetOutline(const std::vector<CKivPoint3d>& points);

    // Off by default: the temporary bounding triangle lies close to the data,
    // so once it is removed some convex-hull edges can be missing (thin
    // pockets along the hull stay uncovered). When on, Delaunay() fills those
    // pockets so that the result covers the whole convex hull of the input.
    void SetCoverHull(bool bCover) { m_bCoverHull = bCover; }
    bool IsCoverHull() const { return m_bCoverHull; }

    // Optional progress report during Delaunay(): called now and then with
    // the fraction done, from 0 to 1. Empty (no calls) by default.
    void SetProgress(std::function<void(double)> fnProgress) { m_fnProgress = std::move(fnProgress); }

protected:
    // Shifts the mesh vertices, the extent, the holes and the outline to the
    // local origin (bBack false) or back (bBack true).
    void TranslateCoord(bool bBack);
    // Creates the bounding triangle and its three vertices.
    void SetTriBound();
    // Inserts mesh vertex i into the current triangulation.
    bool InsertPtIntoMesh(int i);
    // Forces one constraint segment into the triangulation, piece by piece.
    void DealSegYS(const _sSeg* seg);

private:
    friend class CKivDelaunayInspector; // the test suite's window

    bool IsNotMesh() const;
    // Walking point location; null when (x, y) lies outside the triangulation.
    _sTri* FindTri(double x, double y) const;
    // The cavity of v: triangles reachable from t whose circumcircle holds v.
    void FindCircumTri(const _sVertex* v, _sTri* t, std::vector<_sTri*>& out) const;
    // Collects the polygons on either side of the piece of a constraint
    // segment starting at start; next receives the vertex where it ends.
    bool GetSegYsPoly(_sVertex* start, _sVertex* end, std::vector<_sVertex*>& left, std::vector<_sVertex*>& right,
                      _sVertex*& next);
    // Fills a side polygon with triangles.
    bool TriPolyDelaunay(std::vector<_sVertex*>& ring);
    // The neighbour of current across edge (a, b) when the segment from
    // (sx, sy) to (ex, ey) properly crosses that edge (current is deleted),
    // else null.
    _sTri* FindNextTri(_sTri* current, const _sVertex* a, const _sVertex* b, double sx, double sy, double ex,
                       double ey);
    // After the bounding triangles are gone: fills the pockets between the
    // triangulation and the convex hull of its vertices (SetCoverHull).
    void FillHullPockets();
    // Removes the triangles whose plan centroid lies inside a hole ring or,
    // when an outline is set, not inside the outline.
    void DigHolesAndOutline();
    // Whether a vertex takes part in the run: finite, not a bounding vertex
    // of this run or the previous one.
    bool IsUsableVertex(const _sVertex* v) const;
    // Plan extent of the vertices that take part; false when there are none.
    bool UsableExtent(double& x0, double& y0, double& x1, double& y1) const;
    double ExactShiftOrigin(double centre, double CKivPoint3d::*axis) const;
    // Mirror the mesh's triangles into the working triangulation and write
    // the outcome back.
    void LoadWork();
    void StoreWork();

    // Constraint helpers. PlanRingTris turns a side polygon counter-clockwise
    // and finds index triples that fill it: 1 a fill checked exactly, 0 none
    // (the ear clipper rejects the polygon; the side stays open), -1 no valid
    // fill exists (the ear clipper's answer is invalid and the ring is not
    // simple, or the ring runs against the sense nSense asks for: 1 as given,
    // -1 reversed, 0 either). FillSides fills both sides of a forced piece,
    // or puts the piece's deleted triangles (m_vecCutTri) back when a side
    // has no valid fill.
    int PlanRingTris(std::vector<_sVertex*>& ring, std::vector<std::array<int, 3>>& tris, int nSense = 0) const;
    void AddRingTris(const std::vector<_sVertex*>& ring, const std::vector<std::array<int, 3>>& tris);
    void FillSides(std::vector<_sVertex*>& left, std::vector<_sVertex*>& right);
    // One gift-wrapping pass of FillHullPockets; with bReforce it then forces
    // again the constraints along the filled pockets (true when it did).
    bool WrapPockets(bool bReforce);
    // Corners of the triangles the current piece's walk deleted.
    std::vector<std::array<_sVertex*, 3>> m_vecCutTri;

    CKivMeshData* m_pMesh;
    CKivPoint3d m_ptOrigin;
    _sVertex* m_pBoundVt[3];
    CKivPolyLine m_Outline;
    std::vector<CKivPolyLine*> m_vecHole;
    std::vector<_sSeg*> m_vecSegYS;
    bool m_bMergePt;

    // Additive options and the run's bookkeeping (point location aids).
    bool m_bCoverHull;
    // Pockets wrapped with plain scans instead of the bucket grid (the test
    // suite's reference for the grid search).
    bool m_bPlainWrap = false;
    std::function<void(double)> m_fnProgress;
    std::unique_ptr<CKivDelaunayWork> m_pWork;
};

} // namespace TriMesh

#endif
