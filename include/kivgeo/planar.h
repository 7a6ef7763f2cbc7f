// Planar (map view) predicates on plain coordinates; z is ignored throughout.
//
// Two tolerances meet here and are not interchangeable: CompDouble() (1e-6
// with its relative rule for small values) where coordinates are compared,
// and the bare absolute 1e-6 against cross products and differences. Each
// function says which one it uses; callers branch on the exact result codes.
// Angles are radians; a full turn is the truncated 6.28318530718.
#ifndef KIVGEO_PLANAR_H
#define KIVGEO_PLANAR_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

#include <vector>

// Segment AB against segment CD. 2: they share an end point (|dx| and |dy|
// both below 1e-6; tried A=C, A=D, B=D, B=C), which is written out; 1: they
// cross, the crossing is written out; 0: no intersection, also for parallel
// and for collinear overlapping segments. The boxes of the two segments must
// overlap strictly on x and on y (so equal x ranges, or ranges that only
// touch, give 0). eps is
// the band around AB, in its own frame, within which CD's line is accepted.
// A zero-length CD (without a shared end) counts as parallel: 0.
KIVGEO_API int JH_GetInterPoint_LineSection(double ax, double ay, double bx, double by, double cx, double cy,
                                            double dx, double dy, double* outX, double* outY, double eps);

// P on the closed segment AB: P equal to an end (CompDouble on x and y), or
// inside the box (CompDouble) and GetPtSideOfLine2D() == 0.
KIVGEO_API bool IsPtInSeg2D(double px, double py, double ax, double ay, double bx, double by);

// Counter-clockwise angle at (x1, y1) from the arm towards (x2, y2) to the arm
// towards (x0, y0), in [0, 6.28318530718). For a counter-clockwise ring called
// with (previous, vertex, next) it is the interior angle.
KIVGEO_API double GetTwoSegAngle(double x0, double y0, double x1, double y1, double x2, double y2);

// Nearest point of the closed segment AB to P, written to (nx, ny); returns
// its distance to P. No tolerance; a zero-length segment yields A.
KIVGEO_API double GetNearestPtToSeg2D(double ax, double ay, double bx, double by, double px, double py, double& nx,
                                      double& ny);

// Ring closed implicitly (the last point joins the first). 1 inside, 0
// outside (also for fewer than 3 points), -1 on the boundary: on a horizontal
// edge strictly between its ends, or within 1e-6 horizontally of another edge.
KIVGEO_API int IsPtInPolygon(const std::vector<CKivPoint3d>& ring, const CKivPoint3d& pt);

// Area centroid of the ring (z = 0); false for fewer than 3 points. A ring of
// zero area is not guarded and yields non-finite coordinates.
KIVGEO_API bool CalRegionCenter(const std::vector<CKivPoint3d>& ring, CKivPoint3d& centre);

#endif
