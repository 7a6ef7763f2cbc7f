// Inline bodies of the spatial tests that run in the innermost loops of the
// booleans and the mesh queries. CKivSpaceMath's members forward here, so the
// two are one implementation; code inside the library may call these
// directly to avoid a call through the shared library's symbol table.
//
// Not installed. Every function gives bit for bit the results of its
// CKivSpaceMath namesake (same operations in the same order); where a
// CompDouble() call is replaced by a plain comparison, the comment shows why
// the two agree for every input, NaN included.
#ifndef KIVGEO_SPACEMATH_SPACEMATH_INLINE_H
#define KIVGEO_SPACEMATH_SPACEMATH_INLINE_H

#include <kivgeo/point3d.h>

#include <cmath>

namespace SpaceMathInline {

constexpr double kEps = 1e-6;
// sqrt(x) < 1e-6 exactly when x < this value (the smallest double whose
// correctly rounded square root is not below 1e-6), so length tests need no
// square root.
constexpr double kLen2Below1e6 = 0x1.19799812dea1p-40;

inline bool IsShorterThanEps(const CGeoVector& v)
{
    return v.Length2() < kLen2Below1e6;
}

// CGeoVector::Normalize(), inline: unchanged when shorter than 1e-6.
inline void NormalizeInPlace(CGeoVector& v)
{
    const double len = std::sqrt(v.Length2());
    if (len < kEps) {
        return;
    }
    const double inv = 1.0 / len;
    v.x *= inv, v.y *= inv, v.z *= inv;
}

// CompDouble(a, 1.0) <= 0. CompDouble answers 1 only when a - 1 is not
// below 1e-6 in magnitude and a > 1 (magnitudes of 1 or more never reach its
// relative rule); a NaN answers -1.
inline bool CompNotAboveOne(double a)
{
    return !(a - 1.0 >= kEps);
}

// CompDouble(a, 0.0) >= 0. Against an exact 0.0 only the absolute rule
// applies: -1 exactly when a <= -1e-6, or a is NaN.
inline bool CompNotBelowZero(double a)
{
    return a > -kEps;
}

inline int SideOfPlane(double s)
{
    if (s > kEps) {
        return 1;
    }
    return s < -kEps ? -1 : 0;
}

// Unit normal and offset as CKivSpaceMath::PointToPlane() builds them.
struct SUnitPlane {
    CGeoVector n;
    double d;

    SUnitPlane(const CKivPoint3d& q, const CGeoVector& normal) : n(normal)
    {
        NormalizeInPlace(n);
        d = -(n * CGeoVector(q));
    }
    int Side(const CKivPoint3d& p) const { return SideOfPlane(n * CGeoVector(p) + d); }
};

inline int PlaneFromPointsEx(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n,
                             CKivPoint3d& Q)
{
    const CGeoVector u(P1 - P0), v(P2 - P0);
    if (IsShorterThanEps(u) || IsShorterThanEps(v)) {
        return 0;
    }
    n = u ^ v;
    Q = P0;
    return 1;
}

inline int Test_Intersect_Seg_And_Plane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q,
                                           const CGeoVector& n, CKivPoint3d& X)
{
    const CGeoVector u(P1 - P0), w(P0 - Q);
    const double D = n * u;
    const double N = -(n * w);
    if (std::fabs(D) >= kEps) {
        const double s = N / D;
        if (s >= 0 && s <= 1) {
            X = P0 + u * s;
            return 1;
        }
        return 0;
    }
    return N == 0 ? 2 : 0; // exact on purpose: only a segment truly in the plane
}

// The cut point of edge PR whose ends lie on opposite sides of the plane.
// The segment test gives it; when it declines (a normal so short that n.u
// falls below 1e-6), the point is interpolated from the signed distances.
inline CKivPoint3d CutEdge(const CKivPoint3d& P, const CKivPoint3d& R, const CKivPoint3d& Q, const CGeoVector& n,
                           const SUnitPlane& plane)
{
    CKivPoint3d x;
    if (Test_Intersect_Seg_And_Plane_3D(P, R, Q, n, x) == 1) {
        return x;
    }
    const double dp = plane.n * CGeoVector(P) + plane.d;
    const double dr = plane.n * CGeoVector(R) + plane.d;
    return P + (R - P) * (dp / (dp - dr));
}

inline int Test_Intersect_Tri_And_Plane_3D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C,
                                           const CKivPoint3d& Q, const CGeoVector& n, CKivPoint3d& S0,
                                           CKivPoint3d& S1)
{
    const SUnitPlane plane(Q, n);
    int sa = plane.Side(A), sb = plane.Side(B), sc = plane.Side(C);
    // The table is symmetric under swapping the sides: fold it so that the
    // first corner off the plane is on the + side.
    if (sa < 0 || (sa == 0 && (sb < 0 || (sb == 0 && sc < 0)))) {
        sa = -sa, sb = -sb, sc = -sc;
    }
    if (sa == 0) {
        if (sb == 0) {
            if (sc == 0) {
                return 1;
            }
            S0 = A, S1 = B;
            return 2;
        }
        // sb == +1
        if (sc == 0) {
            S0 = A, S1 = C;
        } else if (sc > 0) {
            S0 = A, S1 = A;
        } else {
            S0 = A, S1 = CutEdge(B, C, Q, n, plane);
        }
        return 2;
    }
    // sa == +1
    if (sb == 0) {
        if (sc == 0) {
            S0 = B, S1 = C;
        } else if (sc > 0) {
            S0 = B, S1 = B;
        } else {
            S0 = B, S1 = CutEdge(A, C, Q, n, plane);
        }
        return 2;
    }
    if (sc == 0) {
        if (sb > 0) {
            S0 = C, S1 = C;
        } else {
            S0 = C, S1 = CutEdge(A, B, Q, n, plane);
        }
        return 2;
    }
    if (sb > 0) {
        if (sc > 0) {
            return 0;
        }
        S0 = CutEdge(A, C, Q, n, plane), S1 = CutEdge(B, C, Q, n, plane);
        return 2;
    }
    if (sc < 0) {
        S0 = CutEdge(B, A, Q, n, plane), S1 = CutEdge(C, A, Q, n, plane);
    } else {
        S0 = CutEdge(A, B, Q, n, plane), S1 = CutEdge(C, B, Q, n, plane);
    }
    return 2;
}

inline int Test_Insertsect_Seg_And_Seg_SamePL_3D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C,
                                                 const CKivPoint3d& D, CKivPoint3d& I0, CKivPoint3d& I1)
{
    const auto apart = [](double a0, double a1, double b0, double b1) {
        const double lo1 = std::fmin(a0, a1), hi1 = std::fmax(a0, a1);
        const double lo2 = std::fmin(b0, b1), hi2 = std::fmax(b0, b1);
        return !(lo1 <= hi2 + kEps && lo2 - kEps <= hi1);
    };
    if (apart(A.x, B.x, C.x, D.x) || apart(A.y, B.y, C.y, D.y) || apart(A.z, B.z, C.z, D.z)) {
        return 0;
    }
    const double ex = std::fabs(A.x - B.x), ey = std::fabs(A.y - B.y), ez = std::fabs(A.z - B.z);
    int axis = (ex > ey && ex > ez) ? 0 : ((ey > ex && ey > ez) ? 1 : 2);
    // On a tie the rule above falls to z even when AB does not move along z
    // (a cut at 45 degrees in a horizontal plane), and a point-like AB moves
    // along nothing. Sorting by a constant coordinate would pick arbitrary
    // ends, so then the longest extent of the longer segment decides.
    if ((axis == 2 ? ez : (axis == 1 ? ey : ex)) < kEps) {
        const double fx = std::fabs(C.x - D.x), fy = std::fabs(C.y - D.y), fz = std::fabs(C.z - D.z);
        const bool useCD = fx * fx + fy * fy + fz * fz > ex * ex + ey * ey + ez * ez;
        const double gx = useCD ? fx : ex, gy = useCD ? fy : ey, gz = useCD ? fz : ez;
        axis = (gx >= gy && gx >= gz) ? 0 : (gy >= gz ? 1 : 2);
    }
    const auto key = [axis](const CKivPoint3d& p) { return axis == 0 ? p.x : (axis == 1 ? p.y : p.z); };
    // Stable insertion sort of the four ends: ties keep the order A, B, C, D.
    const CKivPoint3d* pts[4] = {&A, &B, &C, &D};
    for (int i = 1; i < 4; ++i) {
        const CKivPoint3d* p = pts[i];
        int j = i;
        for (; j > 0 && key(*p) < key(*pts[j - 1]); --j) {
            pts[j] = pts[j - 1];
        }
        pts[j] = p;
    }
    if (*pts[1] == *pts[2]) {
        I0 = *pts[1];
        return 1;
    }
    I0 = *pts[1], I1 = *pts[2];
    return 2;
}

inline int Test_Intersect_Tri_And_Tri_3D(const CKivPoint3d& A0, const CKivPoint3d& A1, const CKivPoint3d& A2,
                                         const CKivPoint3d& B0, const CKivPoint3d& B1, const CKivPoint3d& B2,
                                         CKivPoint3d& I0, CKivPoint3d& I1)
{
    CGeoVector nA, nB;
    CKivPoint3d Q1, Q2;
    if (!PlaneFromPointsEx(A0, A1, A2, nA, Q1) || !PlaneFromPointsEx(B0, B1, B2, nB, Q2)) {
        return -1;
    }
    // The parallel test of the plane/plane intersection; its line is not needed.
    const CGeoVector m = nA ^ nB;
    if (std::fabs(m.x) + std::fabs(m.y) + std::fabs(m.z) < kEps) {
        return nA * CGeoVector(Q2 - Q1) == 0 ? 1 : 0;
    }
    CKivPoint3d S0, S1, T0, T1;
    int t = Test_Intersect_Tri_And_Plane_3D(A0, A1, A2, Q2, nB, S0, S1);
    if (t != 2) {
        return t;
    }
    t = Test_Intersect_Tri_And_Plane_3D(B0, B1, B2, Q1, nA, T0, T1);
    if (t != 2) {
        return t;
    }
    const int k = Test_Insertsect_Seg_And_Seg_SamePL_3D(S0, S1, T0, T1, I0, I1);
    if (k == 0) {
        return 0;
    }
    if (k == 1) {
        I1 = I0;
    }
    return 2;
}

// Shared body of the ray, line and plane tests against three points.
// wholeLine drops the r >= 0 restriction; planeOnly drops the inside test.
inline int HitTriangle(const CKivPoint3d& P0, const CGeoVector& dir, const CKivPoint3d& V0, const CKivPoint3d& V1,
                       const CKivPoint3d& V2, CKivPoint3d& I, bool wholeLine, bool planeOnly)
{
    const CGeoVector u(V1 - V0), v(V2 - V0);
    const CGeoVector n = u ^ v;
    if (n.Length2() < kEps) {
        return -1;
    }
    const CGeoVector w0(P0 - V0);
    const double a = -(n * w0);
    const double b = n * dir;
    if (std::fabs(b) < kEps) {
        return std::fabs(a) < kEps ? 2 : 0;
    }
    const double r = a / b;
    if (!wholeLine && r < 0) {
        return 0;
    }
    I = P0 + dir * r;
    if (planeOnly) {
        return 1;
    }
    // Barycentric s and t of I in (u, v). The textbook form divides
    // uv * wv - vv * wu by D = uv^2 - uu * vv; both are differences of
    // nearly equal products for a long thin triangle (D loses all its digits
    // when the triangle is 1e7 long and 1 wide). By Lagrange's identity they
    // equal (w ^ v) . n and -|n|^2, which come from the cross products
    // without that cancellation.
    const CGeoVector w(I - V0);
    const double nn = n * n;
    const double s = ((w ^ v) * n) / nn;
    if (!(s > -1e-10 && CompNotAboveOne(s))) {
        return 0;
    }
    const double t = ((u ^ w) * n) / nn;
    return (CompNotBelowZero(t) && CompNotAboveOne(s + t)) ? 1 : 0;
}

inline int Test_Intersect_Ray_And_Triangle_3D(const CKivPoint3d& P0, const CGeoVector& dir, const CKivPoint3d& V0,
                                              const CKivPoint3d& V1, const CKivPoint3d& V2, CKivPoint3d& I)
{
    return HitTriangle(P0, dir, V0, V1, V2, I, false, false);
}

} // namespace SpaceMathInline

#endif
