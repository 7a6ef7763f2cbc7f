// Polyline value: an ordered run of 3D vertices, open or closed. A closed
// polyline does not repeat its first vertex; its closing segment runs from the
// last vertex back to the first.
//
// Lengths, arc positions and point-on-segment tests are 3D; the operations
// whose names end in 2D (and the offsets and thinning) use x and y only.
#ifndef KIVGEO_POLYLINE_H
#define KIVGEO_POLYLINE_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

#include <vector>

class KIVGEO_API CKivPolyLine {
public:
    CKivPolyLine() = default;
    CKivPolyLine(const CKivPolyLine& o);
    CKivPolyLine(CKivPolyLine&& o) noexcept;
    CKivPolyLine& operator=(const CKivPolyLine& o);
    CKivPolyLine& operator=(CKivPolyLine&& o) noexcept;
    ~CKivPolyLine();

    // Editing. None of these touch the closed flag except Clear() (sets it open)
    // and SetClosed().
    void Clear();
    void AddVertex(const CKivPoint3d& pt);
    // Inserts before vertex i; appends when i is past the last vertex.
    void InsertVertex(unsigned i, const CKivPoint3d& pt);
    // An index past the last vertex is ignored.
    void DelVertex(unsigned i);
    void SetVertex(const std::vector<CKivPoint3d>& pts);
    void OutputData(std::vector<CKivPoint3d>& pts) const;
    void SetClosed(bool bClosed) { m_bClosed = bClosed; }
    bool IsClosed() const { return m_bClosed; }
    unsigned NumVerts() const { return static_cast<unsigned>(m_vVertex.size()); }
    bool GetVertex(unsigned i, CKivPoint3d& pt) const;
    // Translates every vertex by +v (bAdd) or -v.
    void Offset(const CKivPoint3d& v, bool bAdd);

    // Signed plan area (counter-clockwise positive); 0 for an open polyline.
    double GetArea() const;
    // Total 3D length, the closing segment included when closed.
    double GetLength() const;
    // 3D arc length from vertex 0 to vertex i (never over the closing
    // segment); -1 when i is not a vertex index.
    double GetLength(unsigned i) const;
    // 3D arc length from vertex 0 to a point on the polyline; -1 when the point
    // lies on no segment.
    double GetLength(const CKivPoint3d& pt) const;
    // Point-in-polygon code of pt against the vertices read as a ring (1
    // inside, 0 outside, -1 on the boundary); false below three vertices.
    bool HitTest(const CKivPoint3d& pt, int& result) const;
    // z interpolated along the first segment that passes over (x, y) in plan.
    bool GetZbyXY(double x, double y, double& z) const;
    // Point at 3D arc length dist from vertex 0.
    bool GetPoint(double dist, CKivPoint3d& pt) const;
    // Nearest point in plan (x and y written, z left as passed) and the
    // segment (i, j) it lies on; the earliest of equally near segments wins.
    bool GetNearPt2D(const CKivPoint3d& pt, CKivPoint3d& nearPt, unsigned& i, unsigned& j) const;
    // Nearest crossing, strictly ahead of a, of the ray from a through b.
    bool IntersectWithLine2D(const CKivPoint3d& a, const CKivPoint3d& b, CKivPoint3d& hit) const;
    // Vertices of a closed polyline strictly between a and b on the arc that
    // passes through c, ordered from a's side toward b's side.
    bool GetPtsInPtA_PtB(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c,
                         std::vector<CKivPoint3d>& pts) const;
    // Thinned copy into out, end vertices kept. Angle mode removes the vertices
    // where the line turns by more than tol radians; distance mode removes
    // vertices closer than tol in plan to their kept predecessor.
    bool Sample2D(double tol, CKivPolyLine& out, bool bByDist) const;
    // Mitred plan offset at a constant distance, to the left or right of the
    // direction of travel.
    bool GetOffset2D(double dist, CKivPolyLine& out, bool bLeft) const;
    // As above with linear run-in and run-out over taperLen at the chosen
    // ends. Note the order: the taper length comes before the distance.
    bool GetOffset2D(double taperLen, double dist, CKivPolyLine& out, bool bLeft, bool bTaperStart,
                     bool bTaperEnd) const;
    // Mitred plan offset with one distance per vertex; folded offset edges
    // are collapsed. out is left untouched when dists does not fit.
    void GetTrimmedOffset(bool bLeft, const std::vector<double>& dists, CKivPolyLine& out) const;

private:
    void CopyObj(const CKivPolyLine& o);
    // Offset of corner vertex b between a and c along its bisector.
    void CalPtByAnlge(bool bLeft, unsigned a, unsigned b, unsigned c, double dist, CKivPoint3d& pt) const;
    // Offset of the first (bStart) or last vertex square to its segment.
    void CalPtByMove(bool bLeft, bool bStart, double dist, CKivPoint3d& pt) const;
    // Vertices within arc length len of one end, the end vertex counted.
    unsigned PtNumInLen(double len, bool bFromStart) const;

    std::vector<CKivPoint3d> m_vVertex;
    bool m_bClosed = false;
};

#endif
