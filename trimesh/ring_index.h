// Point-in-ring tests against one closed ring, many times over: the same
// answers as IsPtInPolygon(), but each query looks only at the edges whose
// height band can count for it, found through horizontal strips.
#ifndef KIVGEO_TRIMESH_RING_INDEX_H
#define KIVGEO_TRIMESH_RING_INDEX_H

#include <kivgeo/point3d.h>

#include <cstdint>
#include <vector>

namespace TriMesh {

class CKivRingIndex {
public:
    // The ring is closed implicitly (the last point joins the first).
    explicit CKivRingIndex(const std::vector<CKivPoint3d>& ring);

    // 1 inside, 0 outside, -1 on the boundary, exactly as IsPtInPolygon().
    int Test(const CKivPoint3d& pt) const;

private:
    std::vector<CKivPoint3d> m_ring;
    // Plan box of the finite ring points, widened by the test's tolerance band;
    // a point outside it is outside the ring.
    double m_xMin, m_xMax, m_yMin, m_yMax;
    bool m_bIndexed;
    // Strip k covers heights [m_y0 + k * m_dy, m_y0 + (k + 1) * m_dy) and lists
    // every edge (by its first point) whose band reaches into it.
    double m_y0, m_dy;
    std::vector<std::uint32_t> m_stripStart;
    std::vector<std::uint32_t> m_stripEdge;
};

} // namespace TriMesh

#endif
