// Planar predicates used inside the library only (the triangulator, the mesh
// query, the polyline, and the helpers of JH_GetInterPoint_LineSection()). Not installed and not exported:
// everything here is inline, so the hot tests compile into their callers' loops and the test suite can reach them
// without a symbol in the shared library.
//
// Tolerances: GetPtSideOfLine2D() and IsPtInCircumCircle2D() use the bare
// absolute 1e-6 on raw (unscaled) determinants; IsPtInCircumCircle2D() then
// decides the on-circle case through CompDouble(). Coordinates far from the
// origin must be shifted to a local origin first (the triangulator does).
#ifndef KIVGEO_SPACEMATH_PLANAR_INTERNAL_H
#define KIVGEO_SPACEMATH_PLANAR_INTERNAL_H

#include <kivgeo/planar.h>
#include <kivgeo/point3d.h>

#include <array>
#include <cmath>
#include <vector>

// True when, by CompDouble(), lo2 or hi2 lies strictly inside (lo1, hi1), or
// lo1 or hi1 strictly inside (lo2, hi2). Equal ranges and ranges that only
// touch do not overlap: two crossing diagonals of a square have equal x
// ranges and so never meet in the segment tests built on this.
inline bool IsRangeOverlap(double lo1, double hi1, double lo2, double hi2)
{
    const auto strictlyInside = [](double v, double lo, double hi) {
        return CompDouble(v, lo) == 1 && CompDouble(v, hi) == -1;
    };
    return strictlyInside(lo2, lo1, hi1) || strictlyInside(hi2, lo1, hi1) || strictlyInside(lo1, lo2, hi2) ||
           strictlyInside(hi1, lo2, hi2);
}

// Direction of A->B in [0, 6.28318530718). The arc tangent is rounded to
// single precision on purpose: JH_GetInterPoint_LineSection() rotates by this
// rounded angle. Vertical lines give exactly 1.570796326795 or 4.712388980385.
inline double GetLineAngle2D(double ax, double ay, double bx, double by)
{
    const double dx = bx - ax, dy = by - ay;
    if (dx == 0.0) {
        return dy >= 0 ? 1.570796326795 : 4.712388980385;
    }
    const float a = static_cast<float>(std::atan(dy / dx));
    if (dx >= 0) {
        return dy >= 0 ? a : a + 6.28318530718;
    }
    return a + 3.141592653589793;
}

// Side of P against the directed line A->B: +1 left (cross >= 1e-6), -1 right
// (cross <= -1e-6), 0 within the band. The band is on the cross product, so
// it narrows as the segment grows.
inline int GetPtSideOfLine2D(double px, double py, double ax, double ay, double bx, double by)
{
    const double c = (bx - ax) * (py - ay) - (by - ay) * (px - ax);
    if (c >= 1e-6) {
        return 1;
    }
    return c <= -1e-6 ? -1 : 0;
}

// The in-circle answer from the determinant d and the winding: 0 when d is
// within 1e-6 of zero by CompDouble(), else inside (1) when d exceeds 1e-6
// for a counter-clockwise triangle, the opposite for a clockwise one.
inline int InCircleSense(double d, bool cw)
{
    // Away from the 1e-6 boundary both CompDouble() calls are decided by the
    // absolute difference alone; |d| >= 4e-6 gives the same answers without
    // the call (1 for |d| against 1e-6, the sign of d for d against 1e-6).
    int sense;
    if (std::fabs(d) >= 4e-6) {
        sense = d > 0 ? 1 : -1;
    } else {
        if (CompDouble(std::fabs(d), 1e-6) == -1) {
            return 0;
        }
        sense = CompDouble(d, 1e-6) == 1 ? 1 : -1;
    }
    if (sense == 1) {
        return cw ? -1 : 1;
    }
    return cw ? 1 : -1;
}

// In-circle test of the Delaunay triangulation: 1 P strictly inside the
// circumcircle of ABC, 0 on it, -1 outside; also -1 for a triangle whose
// doubled area is within 1e-6 of zero. Independent of ABC's winding.
inline int IsPtInCircumCircle2D(double px, double py, double ax, double ay, double bx, double by, double cx,
                                double cy)
{
    const double s = ax * by + bx * cy + cx * ay - ay * bx - by * cx - ax * cy;
    if (!(std::fabs(s) > 1e-6)) {
        return -1;
    }
    const bool cw = s < -1e-6;
    const double ax_ = ax - px, ay_ = ay - py;
    const double bx_ = bx - px, by_ = by - py;
    const double cx_ = cx - px, cy_ = cy - py;
    const double d = (ax_ * ax_ + ay_ * ay_) * (bx_ * cy_ - by_ * cx_) -
                     (bx_ * bx_ + by_ * by_) * (ax_ * cy_ - ay_ * cx_) +
                     (cx_ * cx_ + cy_ * cy_) * (ax_ * by_ - ay_ * bx_);
    return InCircleSense(d, cw);
}

// Proper crossing of segments A0A1 and B0B1 for the Delaunay walk. The boxes
// must overlap by IsRangeOverlap(); then each cross-product sign counts an
// exact zero as negative, so an end point touching the other segment's line
// counts as crossing from one side only.
inline bool IsSegCrossSeg2D(double a0x, double a0y, double a1x, double a1y, double b0x, double b0y, double b1x,
                            double b1y)
{
    if (!IsRangeOverlap(std::fmin(a0x, a1x), std::fmax(a0x, a1x), std::fmin(b0x, b1x), std::fmax(b0x, b1x)) ||
        !IsRangeOverlap(std::fmin(a0y, a1y), std::fmax(a0y, a1y), std::fmin(b0y, b1y), std::fmax(b0y, b1y))) {
        return false;
    }
    const double ux = a1x - a0x, uy = a1y - a0y;
    const double vx = b1x - b0x, vy = b1y - b0y;
    const int s1 = (ux * (b0y - a0y) - uy * (b0x - a0x)) > 0 ? 1 : -1;
    const int s2 = (ux * (b1y - a0y) - uy * (b1x - a0x)) > 0 ? 1 : -1;
    const int s3 = (vx * (a0y - b0y) - vy * (a0x - b0x)) > 0 ? 1 : -1;
    const int s4 = (vx * (a1y - b0y) - vy * (a1x - b0x)) > 0 ? 1 : -1;
    return s1 * s2 < 0 && s3 * s4 < 0;
}

// Where P lies against triangle ABC: 0 strictly inside; 1, 2, 3 outside
// beyond edge AB, BC, CA (first failing edge wins); -1, -2, -3 on that open
// edge; -4 at a corner (CompDouble on x and y). With fixOrientation a triangle
// that is not counter-clockwise (zero area included) is read reversed. When
// two or three edge signs are zero and no corner matched, the zero edge whose
// line lies nearest (but not at distance 0) wins, first of AB, BC, CA on ties;
// failing that -4 (the usual answer for two zeros).
inline int GetPtPosInTri2D(double px, double py, double ax, double ay, double bx, double by, double cx, double cy,
                           bool fixOrientation)
{
    int s1 = GetPtSideOfLine2D(px, py, ax, ay, bx, by);
    int s2 = GetPtSideOfLine2D(px, py, bx, by, cx, cy);
    int s3 = GetPtSideOfLine2D(px, py, cx, cy, ax, ay);
    if (fixOrientation) {
        const double area = ((cy - ay) * (bx - ax) - (by - ay) * (cx - ax)) * (-0.5);
        if (!(area < 0)) {
            s1 = -s1, s2 = -s2, s3 = -s3;
        }
    }
    if (s1 == -1) {
        return 1;
    }
    if (s2 == -1) {
        return 2;
    }
    if (s3 == -1) {
        return 3;
    }
    // All signs are now 0 or 1.
    const int zeros = (s1 == 0) + (s2 == 0) + (s3 == 0);
    if (zeros == 0) {
        return 0;
    }
    if (zeros == 1) {
        return s1 == 0 ? -1 : (s2 == 0 ? -2 : -3);
    }
    if ((CompDouble(px, ax) == 0 && CompDouble(py, ay) == 0) ||
        (CompDouble(px, bx) == 0 && CompDouble(py, by) == 0) ||
        (CompDouble(px, cx) == 0 && CompDouble(py, cy) == 0)) {
        return -4;
    }
    const auto lineDist = [px, py](double x0, double y0, double x1, double y1) {
        return std::fabs((x1 - x0) * (py - y0) - (y1 - y0) * (px - x0)) / get_dist(x0, y0, x1, y1);
    };
    const double d1 = s1 == 0 ? lineDist(ax, ay, bx, by) : -1.0;
    const double d2 = s2 == 0 ? lineDist(bx, by, cx, cy) : -1.0;
    const double d3 = s3 == 0 ? lineDist(cx, cy, ax, ay) : -1.0;
    if (d1 > 0 && d1 <= d2 && d1 <= d3) {
        return -1;
    }
    if (d2 > 0 && d2 <= d1 && d2 <= d3) {
        return -2;
    }
    if (d3 > 0 && d3 <= d1 && d3 <= d2) {
        return -3;
    }
    return -4;
}

// One edge A->B of the ray-crossing test of IsPtInPolygon() for P (a ray
// towards +x): 0 the edge does not count, 1 it toggles the inside flag, -1 P
// lies on it. The edge is skipped when both ends lie strictly above or both
// strictly below P by CompDouble(), so an edge can only count when
// min(A.y, B.y) - 1e-6 < P.y < max(A.y, B.y) + 1e-6; callers that index the
// edges by height rely on that band.
inline int PolygonEdgeRayTest(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& pt)
{
    const int s1 = CompDouble(a.y, pt.y);
    const int s2 = CompDouble(b.y, pt.y);
    if (s1 * s2 >= 1) {
        return 0; // both ends strictly above or both below
    }
    if (CompDouble(a.y, b.y) == 0) {
        // On a horizontal edge, else not counted.
        return (b.x - pt.x) * (a.x - pt.x) < 0 ? -1 : 0;
    }
    const double t = (a.x - pt.x) - (b.x - a.x) * (a.y - pt.y) / (b.y - a.y);
    if (std::fabs(t) < 1e-6) {
        return -1;
    }
    if (t < 0) {
        return 0;
    }
    // A vertex at the ray's height counts only for the edge it tops, so a ray
    // through a vertex is counted once (or not at all at an extreme vertex).
    const bool lowerEndOnRay = (CompDouble(pt.y, a.y) == 0 && s2 == 1) || (CompDouble(pt.y, b.y) == 0 && s1 == 1);
    return lowerEndOnRay ? 0 : 1;
}

// True when the chord from ring[i] to ring[j] of a counter-clockwise ring
// leaves corner i into the polygon's inside and crosses (or touches, by
// JH_GetInterPoint_LineSection with eps 1e-6) no ring edge that does not end
// at i or j. False for fewer than 4 points or indices out of range.
inline bool IsPolygonDiagonal(const std::vector<CKivPoint3d>& ring, int i, int j)
{
    if (ring.size() < 4 || i < 0 || j < 0 || static_cast<size_t>(i) >= ring.size() ||
        static_cast<size_t>(j) >= ring.size()) {
        return false;
    }
    const int n = static_cast<int>(ring.size());
    const CKivPoint3d& pi = ring[i];
    const CKivPoint3d& pj = ring[j];
    const CKivPoint3d& pp = ring[(i + n - 1) % n];
    const CKivPoint3d& pn = ring[(i + 1) % n];
    const double dx = pj.x - pi.x, dy = pj.y - pi.y;
    const double ex = pp.x - pi.x, ey = pp.y - pi.y;
    const double fx = pn.x - pi.x, fy = pn.y - pi.y;
    const double c1 = fx * ey - fy * ex;
    const double c2 = dx * fy - dy * fx;
    const double c3 = dx * ey - dy * ex;
    // A convex corner needs the chord inside its cone; a reflex (or straight)
    // corner only needs it outside the cone of the outside.
    const bool inside = c1 > 0 ? (c2 < 0 && c3 > 0) : (c2 < 0 || c3 > 0);
    if (!inside) {
        return false;
    }
    for (int k = 0; k < n; ++k) {
        const int k0 = (k + n - 1) % n;
        if (k == i || k == j || k0 == i || k0 == j) {
            continue;
        }
        double x = 0.0, y = 0.0;
        if (JH_GetInterPoint_LineSection(pi.x, pi.y, pj.x, pj.y, ring[k].x, ring[k].y, ring[k0].x, ring[k0].y, &x,
                                         &y, 1e-6) != 0) {
            return false;
        }
    }
    return true;
}

// Ear clipping of a simple counter-clockwise ring into index triples of the
// ring. Each step cuts the admissible ear with the smallest interior angle
// (lowest index on ties). tris is cleared first; false for fewer than 3
// points, or when no admissible ear is left (self-crossing or clockwise
// rings), with the triples cut so far left in tris.
inline bool EarTriangulatePolygon(const std::vector<CKivPoint3d>& ring, std::vector<std::array<int, 3>>& tris)
{
    tris.clear();
    const int n = static_cast<int>(ring.size());
    if (n < 3) {
        return false;
    }
    if (n == 3) {
        tris.push_back({0, 1, 2});
        return true;
    }
    std::vector<CKivPoint3d> pts(ring);
    std::vector<int> index(n);
    std::vector<double> angle(n);
    const auto cornerAngle = [&pts](int prev, int k, int next) {
        return GetTwoSegAngle(pts[prev].x, pts[prev].y, pts[k].x, pts[k].y, pts[next].x, pts[next].y);
    };
    for (int k = 0; k < n; ++k) {
        index[k] = k;
        angle[k] = cornerAngle((k + n - 1) % n, k, (k + 1) % n);
    }
    while (pts.size() > 3) {
        const int m = static_cast<int>(pts.size());
        double best = 10.0; // above any angle
        int chosen = -1;
        for (int k = 0; k < m; ++k) {
            if (angle[k] < best && IsPolygonDiagonal(pts, (k + m - 1) % m, (k + 1) % m)) {
                best = angle[k];
                chosen = k;
            }
        }
        if (chosen < 0) {
            return false;
        }
        const int prev = (chosen + m - 1) % m;
        const int next = (chosen + 1) % m;
        tris.push_back({index[prev], index[chosen], index[next]});
        angle[prev] = cornerAngle((prev + m - 1) % m, prev, next);
        angle[next] = cornerAngle(prev, next, (next + 1) % m);
        angle.erase(angle.begin() + chosen);
        index.erase(index.begin() + chosen);
        pts.erase(pts.begin() + chosen);
    }
    tris.push_back({index[0], index[1], index[2]});
    return true;
}

#endif
