// Read-only queries on one triangle mesh: point location, elevation at a plan
// position, inside/outside classification against a closed surface, draping
// plan lines and polygons onto the surface, and the surface's outline.
//
// The query object holds a pointer to a mesh it never changes and must not
// outlive it. Candidate triangles come from the mesh's octree; a mesh without
// an octree or without triangles answers as an empty one. The outline is
// computed on the first GetOutline() call and kept for the life of the query
// object, even if the mesh is edited afterwards: make a new query object after
// editing a mesh.
#ifndef KIVGEO_MESH_QUERY_H
#define KIVGEO_MESH_QUERY_H

#include <kivgeo/export.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/point3d.h>
#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>
#include <kivgeo/tri3d.h>

#include <vector>

namespace TriMesh {

class CKivSegDedup;

class KIVGEO_API CKivMeshQuery {
public:
    // Result of the inside/outside classification.
    enum eTriHitMesh {
        eHitNone = 0,       // no triangles, or no probe ray met the mesh
        eHitOutside = 1,    // off the surface, on the side the nearest normal points to
        eHitInside = 2,     // off the surface, on the other side (or within 1e-6 of the plane)
        eHitOnSame = 3,     // on the surface, direction along the normal
        eHitOnOpposite = 4, // on the surface, direction zero or against the normal
    };

    explicit CKivMeshQuery(const CKivMeshData& mesh);
    virtual ~CKivMeshQuery();
    CKivMeshQuery(const CKivMeshQuery&) = delete;
    CKivMeshQuery& operator=(const CKivMeshQuery&) = delete;

    // The first triangle, in octree order, whose plan triangle holds p
    // (boundary included) among those within 1e-6 of p in space; corners in
    // stored order. False, tri untouched, when none.
    bool FindTriIncludePt(const CKivPoint3d& p, CKivTri3d& tri) const;
    // Elevation of the surface over (x, y): the topmost of the sheets the
    // vertical line meets. False, z untouched, off the surface.
    bool GetMapPoint(double x, double y, double& z) const;
    // Classifies p against a closed mesh by casting a probe ray.
    eTriHitMesh HitTestPt(const CKivPoint3d& p) const;
    // Classifies the triangle's centroid, with its normal as the direction
    // for the on-surface cases; eHitNone for a degenerate triangle.
    eTriHitMesh HitTestTri(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c) const;

    // Drapes the plan polyline onto the surface as 3D pieces (one per
    // triangle crossed, each piece once). False, out untouched, for fewer than
    // two points.
    bool GetMapPolyline(const std::vector<CKivPoint3d>& points, bool closed, std::vector<CKivSeg3d>& out) const;
    // As above, the pieces linked into polylines; false (out empty) when
    // linking fails.
    bool GetMapPolyline(const std::vector<CKivPoint3d>& points, bool closed, std::vector<CKivPolyLine>& out) const;
    // Triangles whose plan centroid lies strictly inside the plan polygon,
    // corners in stored order. Always true.
    bool GetTrisInMapPolygon(const std::vector<CKivPoint3d>& polygon, std::vector<CKivTri3d>& out) const;

    // The outline polyline of largest absolute plan area (the first of equal
    // ones); out untouched for a mesh without triangles.
    void GetOutline(CKivPolyLine& out);
    // All outline polylines: every chain of boundary edges.
    void GetOutline(std::vector<CKivPolyLine>& out);

protected:
    // Triangles registered in the octree nodes that meet the 1e-6 box around
    // p (b3D) or the 1e-6 column through it; repeats possible.
    void FindTriByPos(CKivPoint3d p, std::vector<_sTri*>& out, bool b3D) const;
    // Triangles of the octree nodes met by the segment's box, or by the boxes
    // of its 16 pieces when it is longer than an eighth of the mesh diagonal;
    // each triangle once, sorted by address.
    void FindTriBySeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<_sTri*>& out) const;
    // Triangles of the octree nodes met by the polygon's plan column whose
    // plan centroid lies strictly inside it. False for fewer than three
    // points or when no node is met.
    bool GetTrisInMapPolygon(const std::vector<CKivPoint3d>& polygon, std::vector<_sTri*>& out) const;

private:
    friend class CKivMeshQueryInspector;

    eTriHitMesh HitTestPt(const CKivPoint3d& p, const CGeoVector& dir) const;
    eTriHitMesh HitTestPt_New(const CKivPoint3d& p, const CGeoVector& dir) const;
    // Appends the triangles of the octree nodes met by the segment's box.
    void FindTriByShortSeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<_sTri*>& out) const;
    // Appends the pieces of the surface over the plan segment that out does
    // not already hold.
    void GetMapLineSeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<CKivSeg3d>& out) const;
    // The same with a lookup over out kept across calls.
    void GetMapLineSeg(const CKivPoint3d& p1, const CKivPoint3d& p2, std::vector<CKivSeg3d>& out,
                       CKivSegDedup& seen) const;

    // Boundary edges (used by one triangle, or an odd number) as new records
    // owned by the caller.
    void GetSegsOfMesh(std::vector<_sSeg*>& out);
    // Chains edges that share vertices into polylines.
    bool LinkPtrSegs(const std::vector<_sSeg*>& segs, std::vector<CKivPolyLine>& out) const;
    void FormOutline();

    // Probe-ray loop shared by both classifiers, from triangle index k on.
    eTriHitMesh CastProbes(const CKivPoint3d& p, const CGeoVector& dir, std::size_t k, const _sTri* nearest,
                           double nearestDist2) const;
    // True when the mesh can be queried (it has triangles and an octree).
    bool HasSearch() const;
    // The mesh's plan grid, or null. Octree searches report the candidates
    // they went through as work; once the work since the mesh last changed
    // adds up to a share of its triangle count, the grid is built.
    const CKivPlanIndex* PlanIndex(std::size_t work) const;

    const CKivMeshData* m_pMesh;
    std::vector<CKivPolyLine> m_vecOutline;
};

} // namespace TriMesh

#endif
