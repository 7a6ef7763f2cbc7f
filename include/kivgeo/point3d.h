// Points, vectors and the library tolerance.
//
// The one tolerance of the library is the absolute 1e-6. CompDouble() applies
// it to scalars (with a relative rule for small non-zero values, see below),
// point equality applies CompDouble() per coordinate, and vector equality is a
// purely absolute test on the differences. The two equalities differ on
// purpose; callers rely on both.
#ifndef KIVGEO_POINT3D_H
#define KIVGEO_POINT3D_H

#include <kivgeo/export.h>

// 0 when a and b count as equal, 1 when a is greater, -1 when a is smaller.
// Differences of 1e-6 or more always decide. Below that, values of magnitude
// 1 or more are equal, any value is equal to an exact 0.0, and two non-zero
// values both below 1 in magnitude must also agree to a relative 1e-6.
KIVGEO_API int CompDouble(double a, double b);

KIVGEO_API double get_dist(double x1, double y1, double z1, double x2, double y2, double z2);
KIVGEO_API double get_dist(double x1, double y1, double x2, double y2);

namespace kiv3DGeoMetryold {

class KIVGEO_API CKivPoint3d {
public:
    double x;
    double y;
    double z;

    CKivPoint3d() : x(0.0), y(0.0), z(0.0) {}
    CKivPoint3d(float fx, float fy, float fz) : x(fx), y(fy), z(fz) {}
    CKivPoint3d(double dx, double dy, double dz) : x(dx), y(dy), z(dz) {}
    CKivPoint3d(const CKivPoint3d& o) = default;

    void Set(float fx, float fy, float fz) { x = fx, y = fy, z = fz; }
    void Set(double dx, double dy, double dz) { x = dx, y = dy, z = dz; }
    void Get(float& fx, float& fy, float& fz) const
    {
        fx = static_cast<float>(x), fy = static_cast<float>(y), fz = static_cast<float>(z);
    }
    void Get(double& dx, double& dy, double& dz) const { dx = x, dy = y, dz = z; }

    // Member-wise; self-assignment leaves the values as they are. Kept trivial
    // so that arrays of points copy as packed doubles.
    CKivPoint3d& operator=(const CKivPoint3d& o) = default;

    // Per-coordinate CompDouble(); 1 when all three are equal, else 0.
    int operator==(const CKivPoint3d& o) const;
    int operator!=(const CKivPoint3d& o) const { return (*this == o) ? 0 : 1; }

    double Dist2(const CKivPoint3d& o) const
    {
        const double dx = x - o.x, dy = y - o.y, dz = z - o.z;
        return dx * dx + dy * dy + dz * dz;
    }
    double Distance(const CKivPoint3d& o) const;
    // Squared distance against 1e-20 through CompDouble(): in effect true only
    // for coincident points, far stricter than operator==.
    bool IsEqualTo(const CKivPoint3d& o) const;

    CKivPoint3d operator+(const CKivPoint3d& o) const { return CKivPoint3d(x + o.x, y + o.y, z + o.z); }
    CKivPoint3d operator-(const CKivPoint3d& o) const { return CKivPoint3d(x - o.x, y - o.y, z - o.z); }
    CKivPoint3d operator-() const { return CKivPoint3d(-x, -y, -z); }
    CKivPoint3d operator*(const double& s) const { return CKivPoint3d(x * s, y * s, z * s); }
    // Divides by the guarded divisor: |s| < 1e-6 divides by 10 * 1e-6 instead.
    CKivPoint3d operator/(const double& s) const;

    // Compound assignments modify this point and return a copy, not a reference.
    CKivPoint3d operator+=(const CKivPoint3d& o);
    CKivPoint3d operator-=(const CKivPoint3d& o);
    CKivPoint3d operator*=(const double& s);
    CKivPoint3d operator/=(const double& s);

    // 1 when (px, py) lies in or on the circle, within 1e-6 outside.
    static int IsPtInCircle(double px, double py, double cx, double cy, double r);
    // Against the circle through three points: 1 inside, 0 on it (|det| < 1e-6),
    // -1 outside or degenerate triangle (|2 * area| <= 1e-6). Absolute tolerances.
    static int IsPtIn3PCircle(double px, double py, double x1, double y1, double x2, double y2, double x3,
                              double y3);
    // Circle through three plan points; 0 (outputs untouched) when collinear.
    static int Get_3P_Circle(double x1, double y1, double x2, double y2, double x3, double y3, double& r,
                             double& cx, double& cy);
    // 1 when collinear in 3D or two points coincide (absolute tests on lengths).
    static int IsConllinear(const CKivPoint3d& p1, const CKivPoint3d& p2, const CKivPoint3d& p3);
};

class KIVGEO_API CGeoVector : public CKivPoint3d {
public:
    CGeoVector() = default;
    CGeoVector(float fx, float fy, float fz) : CKivPoint3d(fx, fy, fz) {}
    CGeoVector(double dx, double dy, double dz) : CKivPoint3d(dx, dy, dz) {}
    CGeoVector(const CKivPoint3d& p) : CKivPoint3d(p) {}
    CGeoVector(const CGeoVector& o) = default;

    CGeoVector& operator=(const CGeoVector& o) = default;

    using CKivPoint3d::operator*;
    // Dot product.
    double operator*(const CGeoVector& o) const { return x * o.x + y * o.y + z * o.z; }
    // Cross product.
    CGeoVector operator^(const CGeoVector& o) const
    {
        return CGeoVector(y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x);
    }

    // Absolute: every component difference below 1e-6.
    int operator==(const CGeoVector& o) const;
    int operator!=(const CGeoVector& o) const { return (*this == o) ? 0 : 1; }

    double Length2() const { return x * x + y * y + z * z; }
    double Length() const;
    // Scales to unit length; a vector shorter than 1e-6 is left as it is.
    void Normalize();
};

} // namespace kiv3DGeoMetryold

// The host application names the point and vector types without their
// namespace, as does the rest of this interface.
using kiv3DGeoMetryold::CGeoVector;
using kiv3DGeoMetryold::CKivPoint3d;

#endif
