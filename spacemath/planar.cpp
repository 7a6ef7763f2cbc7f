#include <kivgeo/planar.h>

#include "spacemath/planar_internal.h"

#include <cmath>

namespace {
constexpr double kEps = 1e-6;
constexpr double kFullTurn = 6.28318530718; // truncated on purpose; callers compare against it
constexpr double kHalfTurn = 3.141592653589793;

inline bool NearXY(double ax, double ay, double bx, double by)
{
    return std::fabs(ax - bx) < kEps && std::fabs(ay - by) < kEps;
}

// lo < v < hi by CompDouble().
inline bool StrictlyInside(double v, double lo, double hi)
{
    return CompDouble(v, lo) == 1 && CompDouble(v, hi) == -1;
}
} // namespace

bool IsRangeOverlap(double lo1, double hi1, double lo2, double hi2)
{
    return StrictlyInside(lo2, lo1, hi1) || StrictlyInside(hi2, lo1, hi1) || StrictlyInside(lo1, lo2, hi2) ||
           StrictlyInside(hi1, lo2, hi2);
}

double GetLineAngle2D(double ax, double ay, double bx, double by)
{
    const double dx = bx - ax, dy = by - ay;
    if (dx == 0.0) {
        return dy >= 0 ? 1.570796326795 : 4.712388980385;
    }
    // Single precision on purpose: the crossing test rotates by this angle.
    const float a = static_cast<float>(std::atan(dy / dx));
    if (dx >= 0) {
        return dy >= 0 ? a : a + kFullTurn;
    }
    return a + kHalfTurn;
}

int JH_GetInterPoint_LineSection(double ax, double ay, double bx, double by, double cx, double cy, double dx,
                                 double dy, double* outX, double* outY, double eps)
{
    if (NearXY(ax, ay, cx, cy) || NearXY(ax, ay, dx, dy)) {
        *outX = ax, *outY = ay;
        return 2;
    }
    if (NearXY(bx, by, dx, dy) || NearXY(bx, by, cx, cy)) {
        *outX = bx, *outY = by;
        return 2;
    }
    if (!IsRangeOverlap(std::fmin(ax, bx), std::fmax(ax, bx), std::fmin(cx, dx), std::fmax(cx, dx)) ||
        !IsRangeOverlap(std::fmin(ay, by), std::fmax(ay, by), std::fmin(cy, dy), std::fmax(cy, dy))) {
        return 0;
    }
    // Frame with A at the origin and AB along the positive x axis.
    const double len = get_dist(ax, ay, bx, by);
    const double theta = GetLineAngle2D(ax, ay, bx, by);
    const double c = std::cos(theta), s = std::sin(theta);
    const double tcx = cx - ax, tcy = cy - ay, tdx = dx - ax, tdy = dy - ay;
    const double c1x = c * tcx + s * tcy, c1y = c * tcy - s * tcx;
    const double d1x = c * tdx + s * tdy, d1y = c * tdy - s * tdx;
    // Line C'D' as q x - p y + r = 0.
    const double ex = d1x - c1x, ey = d1y - c1y;
    if (ex == 0.0 && ey == 0.0) {
        return 0; // a point, not a line: nothing to cross with
    }
    double q, r;
    if (std::fabs(ex) < std::fabs(ey)) {
        const double p = ex / ey;
        q = 1.0;
        r = p * c1y - c1x;
    } else {
        q = ey / ex;
        r = c1y - q * c1x;
    }
    if ((c1y > eps && d1y > eps) || (c1y < -eps && d1y < -eps)) {
        return 0;
    }
    if (std::fabs(q) < kEps) {
        return 0;
    }
    const double x = -r / q;
    if (!(x >= -eps && x <= len + eps)) {
        return 0; // also rejects a non-finite crossing
    }
    *outX = c * x + ax;
    *outY = s * x + ay;
    return 1;
}

bool IsPtInSeg2D(double px, double py, double ax, double ay, double bx, double by)
{
    if ((CompDouble(px, ax) == 0 && CompDouble(py, ay) == 0) ||
        (CompDouble(px, bx) == 0 && CompDouble(py, by) == 0)) {
        return true;
    }
    if (CompDouble(px, std::fmax(ax, bx)) == 1 || CompDouble(px, std::fmin(ax, bx)) == -1 ||
        CompDouble(py, std::fmax(ay, by)) == 1 || CompDouble(py, std::fmin(ay, by)) == -1) {
        return false;
    }
    return GetPtSideOfLine2D(px, py, ax, ay, bx, by) == 0;
}

double GetTwoSegAngle(double x0, double y0, double x1, double y1, double x2, double y2)
{
    double a1 = std::atan2(y0 - y1, x0 - x1);
    double a2 = std::atan2(y2 - y1, x2 - x1);
    if (a1 < 0) {
        a1 += kFullTurn;
    }
    if (a2 < 0) {
        a2 += kFullTurn;
    }
    double a = a1 - a2;
    if (a < 0) {
        a += kFullTurn;
    }
    return a;
}

double GetNearestPtToSeg2D(double ax, double ay, double bx, double by, double px, double py, double& nx,
                           double& ny)
{
    const double ux = bx - ax, uy = by - ay;
    const double t = (px - ax) * ux + (py - ay) * uy;
    const double uu = ux * ux + uy * uy;
    if (t <= 0) {
        nx = ax, ny = ay;
    } else if (t >= uu) {
        nx = bx, ny = by;
    } else {
        const double f = t / uu;
        nx = ax + ux * f, ny = ay + uy * f;
    }
    return get_dist(nx, ny, px, py);
}

int IsPtInPolygon(const std::vector<CKivPoint3d>& ring, const CKivPoint3d& pt)
{
    const size_t n = ring.size();
    if (n < 3) {
        return 0;
    }
    bool inside = false;
    for (size_t i = 0; i < n; ++i) {
        const int r = PolygonEdgeRayTest(ring[i], ring[i + 1 == n ? 0 : i + 1], pt);
        if (r < 0) {
            return -1;
        }
        inside = inside != (r == 1);
    }
    return inside ? 1 : 0;
}

bool CalRegionCenter(const std::vector<CKivPoint3d>& ring, CKivPoint3d& centre)
{
    const size_t n = ring.size();
    if (n < 3) {
        return false;
    }
    double sx = 0.0, sy = 0.0, sc = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const CKivPoint3d& a = ring[i];
        const CKivPoint3d& b = ring[i + 1 == n ? 0 : i + 1];
        const double c = a.x * b.y - b.x * a.y;
        sc += c;
        sx += (a.x + b.x) * c;
        sy += (a.y + b.y) * c;
    }
    const double s = 3.0 * sc;
    centre.Set(sx / s, sy / s, 0.0);
    return true;
}
