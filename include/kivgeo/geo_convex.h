// Plan convex hull of 3D points (x and y take part; z rides along).
#ifndef KIVGEO_GEO_CONVEX_H
#define KIVGEO_GEO_CONVEX_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

#include <vector>

class KIVGEO_API CKivGeoConvex {
public:
    CKivGeoConvex() {}
    virtual ~CKivGeoConvex();

    // Monotone chain over the points sorted by y, then x, with adjacent
    // repeats (point equality, z included) removed. The hull is
    // counter-clockwise from the point of least y (least x among equals), not
    // closed by a repeated point, and keeps points lying exactly on an edge.
    // Points with a non-finite x or y are left out.
    //
    // Returns 1 when some point stays off the upward chain (the right-hand
    // side, from the lowest to the highest point), else 0. Every hull with
    // area gives 1, except one whose left side is a single edge while all
    // other points lie on the right-hand side. Collinear points give 0, with
    // all of them in sorted order as the hull. Fewer than two distinct
    // points: 0 and the hull is left untouched.
    static int Convex(const std::vector<CKivPoint3d>& vecPt, std::vector<CKivPoint3d>& vecHull);

private:
    // 1 when o, a, b turn clockwise: the sign of the computed cross product,
    // with no tolerance, so a collinear triple gives 0.
    static int Multi(const CKivPoint3d& o, const CKivPoint3d& a, const CKivPoint3d& b);
    // a before b: smaller y, or equal y and smaller x.
    static bool ComparePt(const CKivPoint3d& a, const CKivPoint3d& b);
};

#endif
