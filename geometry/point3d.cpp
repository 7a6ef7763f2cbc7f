#include <kivgeo/point3d.h>

#include <cmath>
#include <type_traits>

namespace {
constexpr double kEps = 1e-6;
// The guarded divisor: the product 10 * 1e-6 as evaluated in double arithmetic.
constexpr double kGuardDivisor = 10 * kEps;

inline double GuardDivisor(double s) { return std::fabs(s) < kEps ? kGuardDivisor : s; }
} // namespace

// Points travel as packed arrays of doubles, three per point.
static_assert(std::is_standard_layout<CKivPoint3d>::value, "CKivPoint3d must be standard-layout");
static_assert(sizeof(CKivPoint3d) == 3 * sizeof(double), "CKivPoint3d must be exactly three doubles");
static_assert(std::is_trivially_copyable<CKivPoint3d>::value, "CKivPoint3d must copy as raw doubles");
static_assert(sizeof(CGeoVector) == sizeof(CKivPoint3d), "CGeoVector adds no members");

int CompDouble(double a, double b)
{
    if (a == b) {
        return 0;
    }
    const double d = a - b;
    // NaN fails every comparison below and so never counts as equal.
    if (!(std::fabs(d) < kEps)) {
        return a > b ? 1 : -1;
    }
    if (a == 0.0 || b == 0.0) {
        return 0;
    }
    const double m = std::fmax(std::fabs(a), std::fabs(b));
    if (m >= 1.0) {
        return 0;
    }
    if (std::fabs(d / m) < kEps) {
        return 0;
    }
    return a > b ? 1 : -1;
}

double get_dist(double x1, double y1, double z1, double x2, double y2, double z2)
{
    const double dx = x1 - x2, dy = y1 - y2, dz = z1 - z2;
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

double get_dist(double x1, double y1, double x2, double y2)
{
    const double dx = x1 - x2, dy = y1 - y2;
    return std::sqrt(dx * dx + dy * dy);
}

namespace kiv3DGeoMetryold {

int CKivPoint3d::operator==(const CKivPoint3d& o) const
{
    if (CompDouble(x, o.x) != 0) {
        return 0;
    }
    if (CompDouble(y, o.y) != 0) {
        return 0;
    }
    return CompDouble(z, o.z) == 0 ? 1 : 0;
}

double CKivPoint3d::Distance(const CKivPoint3d& o) const { return std::sqrt(Dist2(o)); }

bool CKivPoint3d::IsEqualTo(const CKivPoint3d& o) const { return CompDouble(Dist2(o), 1e-20) == 0; }

CKivPoint3d CKivPoint3d::operator/(const double& s) const
{
    const double g = GuardDivisor(s);
    return CKivPoint3d(x / g, y / g, z / g);
}

CKivPoint3d CKivPoint3d::operator+=(const CKivPoint3d& o)
{
    x += o.x, y += o.y, z += o.z;
    return *this;
}

CKivPoint3d CKivPoint3d::operator-=(const CKivPoint3d& o)
{
    x -= o.x, y -= o.y, z -= o.z;
    return *this;
}

CKivPoint3d CKivPoint3d::operator*=(const double& s)
{
    x *= s, y *= s, z *= s;
    return *this;
}

CKivPoint3d CKivPoint3d::operator/=(const double& s)
{
    const double g = GuardDivisor(s);
    x /= g, y /= g, z /= g;
    return *this;
}

int CKivPoint3d::IsPtInCircle(double px, double py, double cx, double cy, double r)
{
    const double t = std::sqrt((px - cx) * (px - cx) + (py - cy) * (py - cy)) - r;
    return t <= kEps ? 1 : 0;
}

int CKivPoint3d::IsPtIn3PCircle(double px, double py, double x1, double y1, double x2, double y2, double x3,
                                double y3)
{
    // Twice the signed area; the tolerances here are absolute on the raw
    // determinants, which is why the triangulator works in local coordinates.
    const double a = x1 * y2 - x1 * y3 + x2 * y3 - x2 * y1 + x3 * y1 - x3 * y2;
    if (!(std::fabs(a) > kEps)) {
        return -1;
    }
    const bool clockwise = a < -kEps;
    const double dx1 = x1 - px, dy1 = y1 - py;
    const double dx2 = x2 - px, dy2 = y2 - py;
    const double dx3 = x3 - px, dy3 = y3 - py;
    const double d = (dx1 * dx1 + dy1 * dy1) * (dx2 * dy3 - dx3 * dy2) -
                     (dx2 * dx2 + dy2 * dy2) * (dx1 * dy3 - dx3 * dy1) +
                     (dx3 * dx3 + dy3 * dy3) * (dx1 * dy2 - dx2 * dy1);
    if (std::fabs(d) < kEps) {
        return 0;
    }
    if (d > 0) {
        return clockwise ? -1 : 1;
    }
    if (d < 0) {
        return clockwise ? 1 : -1;
    }
    return -1; // NaN determinant: treat as outside
}

int CKivPoint3d::Get_3P_Circle(double x1, double y1, double x2, double y2, double x3, double y3, double& r,
                               double& cx, double& cy)
{
    const CKivPoint3d p1(x1, y1, 0.0), p2(x2, y2, 0.0), p3(x3, y3, 0.0);
    if (IsConllinear(p1, p2, p3)) {
        return 0;
    }
    const double l = p1.Distance(p2);
    const double nx = -(y2 - y1) / l, ny = (x2 - x1) / l;
    const double u = x3 - x1, w = y3 - y1;
    const double k = w * ny + u * nx;
    const double t = ((y3 - y2) * w + (x3 - x2) * u) / (2 * k);
    cx = nx * t + (x1 + x2) * 0.5;
    cy = ny * t + (y1 + y2) * 0.5;
    r = p1.Distance(CKivPoint3d(cx, cy, 0.0));
    return 1;
}

int CKivPoint3d::IsConllinear(const CKivPoint3d& p1, const CKivPoint3d& p2, const CKivPoint3d& p3)
{
    const CGeoVector a(p2 - p1), b(p3 - p1);
    // Absolute tests: the last one is on twice the triangle's area in 3D.
    if (a.Length() < kEps || b.Length() < kEps || (a ^ b).Length() < kEps) {
        return 1;
    }
    return 0;
}

int CGeoVector::operator==(const CGeoVector& o) const
{
    return (CompDouble(x - o.x, 0.0) == 0 && CompDouble(y - o.y, 0.0) == 0 && CompDouble(z - o.z, 0.0) == 0) ? 1
                                                                                                            : 0;
}

double CGeoVector::Length() const { return std::sqrt(Length2()); }

void CGeoVector::Normalize()
{
    const double len = Length();
    if (len < kEps) {
        return;
    }
    const double inv = 1.0 / len;
    x *= inv, y *= inv, z *= inv;
}

} // namespace kiv3DGeoMetryold
