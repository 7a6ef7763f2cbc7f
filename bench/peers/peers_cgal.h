// The CGAL side of the side-by-side runs: one function per case, each given
// the same input as our side. Kept in its own source, so that only one file
// compiles CGAL's headers.
#ifndef KIVGEO_PEERS_CGAL_H
#define KIVGEO_PEERS_CGAL_H

#include "peer_input.h"
#include "peer_run.h"

#include <cstddef>
#include <memory>
#include <vector>

// A TIN built with CGAL's Delaunay triangulation in plan (x, y), z kept.
// bRange: range insertion (CGAL sorts spatially); else one point at a time
// in the given order, each located from the face of the previous one.
// check: finite faces.
void CgalTin(const std::vector<CKivPoint3d>& pts, bool bRange, CKivPeerClock& clock, double& check);

// Constrained TIN; the points, then every constraint segment at once; then
// the faces inside the outline and outside the holes are marked. check: the
// faces in that domain; check2: all finite faces.
void CgalConstrainedTin(const SPeerConstrained& in, CKivPeerClock& clock, double& check, double& check2);

// Soup repair (merge duplicate points, drop bad and repeated triangles),
// orientation, conversion to a Surface_mesh. check: vertices; check2: faces.
void CgalSoupToMesh(const std::vector<CKivTri3d>& soup, CKivPeerClock& clock, double& check, double& check2);

// Plan convex hull. check: hull vertices.
void CgalConvexHull(const std::vector<CKivPoint3d>& pts, CKivPeerClock& clock, double& check);

// Elevation queries on a TIN of the given points, built once and then queried
// by any number of runs: random order through the triangulation hierarchy
// (locate without hint), row order through a plain triangulation (locate from
// the previous face). check: queries answered; check2: sum of their z.
class CKivCgalQuery {
public:
    explicit CKivCgalQuery(const std::vector<CKivPoint3d>& pts);
    ~CKivCgalQuery();
    CKivCgalQuery(const CKivCgalQuery&) = delete;
    CKivCgalQuery& operator=(const CKivCgalQuery&) = delete;

    void Random(const std::vector<CKivPoint3d>& q, CKivPeerClock& clock, double& check, double& check2) const;
    void Rows(const std::vector<CKivPoint3d>& q, CKivPeerClock& clock, double& check, double& check2) const;

private:
    struct SImpl;
    std::unique_ptr<SImpl> m_pImpl;
};

#endif
