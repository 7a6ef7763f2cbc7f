#include <kivgeo/spacemath.h>

#include "spacemath/spacemath_inline.h"

#include <algorithm>
#include <cmath>

using SpaceMathInline::kEps;

namespace {

inline double Cross2D(const CKivPoint3d& a, const CKivPoint3d& b)
{
    return a.x * b.y - a.y * b.x;
}

// Unit normal of the plane through three points: 0 when an edge from P0 is
// shorter than 1e-6 or the points are collinear.
int UnitNormal(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n)
{
    const CGeoVector u(P1 - P0), v(P2 - P0);
    if (SpaceMathInline::IsShorterThanEps(u) || SpaceMathInline::IsShorterThanEps(v)) {
        return 0;
    }
    n = u ^ v;
    SpaceMathInline::NormalizeInPlace(n);
    return SpaceMathInline::IsShorterThanEps(n) ? 0 : 1;
}

inline CGeoVector UnitCopy(const CGeoVector& v)
{
    CGeoVector u(v);
    SpaceMathInline::NormalizeInPlace(u);
    return u;
}

// Vector equality (absolute 1e-6 per component), inline.
inline bool SameDirection(const CGeoVector& a, const CGeoVector& b)
{
    return std::fabs(a.x - b.x) < kEps && std::fabs(a.y - b.y) < kEps && std::fabs(a.z - b.z) < kEps;
}

inline double Component(const CGeoVector& v, int k)
{
    return k == 0 ? v.x : (k == 1 ? v.y : v.z);
}

// How two lines P0P1 and Q0Q1 meet (see the rules in the class header).
enum class ELineMeet { eDegenerate, eParallel, eSameLine, eSkew, eCross };

struct SLineMeet {
    ELineMeet kind = ELineMeet::eDegenerate;
    double s = 0.0, t = 0.0; // length parameters along the unit directions
    CGeoVector up, uq;       // unit directions
};

SLineMeet MeetLines(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0, const CKivPoint3d& Q1,
                    bool assumeCoplanar)
{
    SLineMeet r;
    const CGeoVector u(P1 - P0), v(Q1 - Q0);
    if (SpaceMathInline::IsShorterThanEps(u) || SpaceMathInline::IsShorterThanEps(v)) {
        return r;
    }
    r.up = UnitCopy(u);
    r.uq = UnitCopy(v);
    const CGeoVector c = r.up ^ r.uq;
    const CGeoVector w(Q0 - P0);
    int k = -1;
    if (assumeCoplanar) {
        // First component that is non-zero by CompDouble, x then y then z.
        for (int i = 0; i < 3 && k < 0; ++i) {
            if (CompDouble(Component(c, i), 0.0) != 0) {
                k = i;
            }
        }
    } else if (CompDouble(c.x, 0.0) != 0 || CompDouble(c.y, 0.0) != 0 || CompDouble(c.z, 0.0) != 0) {
        // Best conditioned component; the meeting check below catches skew lines.
        const double ax = std::fabs(c.x), ay = std::fabs(c.y), az = std::fabs(c.z);
        k = (ax >= ay && ax >= az) ? 0 : (ay >= az ? 1 : 2);
    }
    if (k < 0) {
        // Parallel: the same line when Q0 lies within 1e-6 of line P.
        r.kind = (w ^ r.up).Length2() <= kEps * kEps ? ELineMeet::eSameLine : ELineMeet::eParallel;
        return r;
    }
    const double ck = Component(c, k);
    r.s = Component(w ^ r.uq, k) / ck;
    r.t = Component(w ^ r.up, k) / ck;
    r.kind = ELineMeet::eCross;
    if (!assumeCoplanar) {
        const CKivPoint3d x = P0 + r.up * r.s, y = Q0 + r.uq * r.t;
        if (!(x.Dist2(y) <= kEps * kEps)) {
            r.kind = ELineMeet::eSkew;
        }
    }
    return r;
}

int LineAndLine(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0, const CKivPoint3d& Q1,
                CKivPoint3d& X, bool assumeCoplanar)
{
    const SLineMeet m = MeetLines(P0, P1, Q0, Q1, assumeCoplanar);
    switch (m.kind) {
    case ELineMeet::eDegenerate:
        return assumeCoplanar ? 0 : -1;
    case ELineMeet::eSameLine:
        return 2;
    case ELineMeet::eCross:
        X = P0 + m.up * m.s;
        return 1;
    default:
        return 0;
    }
}

// Axis boxes of the two segments overlap with a 1e-6 slack.
bool BoxesMeet(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C, const CKivPoint3d& D)
{
    const auto meet = [](double a0, double a1, double b0, double b1) {
        return std::fmin(a0, a1) <= std::fmax(b0, b1) + kEps && std::fmin(b0, b1) - kEps <= std::fmax(a0, a1);
    };
    return meet(A.x, B.x, C.x, D.x) && meet(A.y, B.y, C.y, D.y) && meet(A.z, B.z, C.z, D.z);
}

// 0 <= s <= len by CompDouble.
inline bool WithinLength(double s, double len)
{
    return CompDouble(s, 0.0) >= 0 && CompDouble(s, len) <= 0;
}

int SegAndSeg(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0, const CKivPoint3d& Q1,
              CKivPoint3d& I0, CKivPoint3d& I1, bool assumeCoplanar)
{
    if (!BoxesMeet(P0, P1, Q0, Q1)) {
        return 0;
    }
    const SLineMeet m = MeetLines(P0, P1, Q0, Q1, assumeCoplanar);
    switch (m.kind) {
    case ELineMeet::eDegenerate:
        // A segment shorter than 1e-6 is a point: on the other segment or not.
        if (SpaceMathInline::IsShorterThanEps(CGeoVector(P1 - P0))) {
            if (CKivSpaceMath::JH_TestPointIn_LineSection3D(P0.x, P0.y, P0.z, Q0.x, Q0.y, Q0.z, Q1.x, Q1.y,
                                                            Q1.z)) {
                I0 = P0;
                return 1;
            }
            return 0;
        }
        if (CKivSpaceMath::JH_TestPointIn_LineSection3D(Q0.x, Q0.y, Q0.z, P0.x, P0.y, P0.z, P1.x, P1.y, P1.z)) {
            I0 = Q0;
            return 1;
        }
        return 0;
    case ELineMeet::eSameLine:
        return SpaceMathInline::Test_Insertsect_Seg_And_Seg_SamePL_3D(P0, P1, Q0, Q1, I0, I1);
    case ELineMeet::eCross:
        if (WithinLength(m.s, P0.Distance(P1)) && WithinLength(m.t, Q0.Distance(Q1))) {
            I0 = P0 + m.up * m.s;
            return 1;
        }
        return 0;
    default:
        return 0;
    }
}

// Ends of the coplanar piece found on the triangle's edges (up to the two
// needed). An edge overlapping the segment gives both its overlap ends.
struct SEdgeHits {
    CKivPoint3d pt[4];
    int count = 0;

    void Add(const CKivPoint3d& p)
    {
        for (int i = 0; i < count; ++i) {
            if (pt[i] == p) {
                return;
            }
        }
        pt[count++] = p;
    }
};

// Where the coplanar segment from the inside end `from` towards `to` leaves
// the triangle: the first edge (V0V1, V1V2, V2V0) giving a point other than
// `from`; of an overlap, the end farther from `from`.
bool FindExit(const CKivPoint3d* V, const CKivPoint3d& from, const CKivPoint3d& to, CKivPoint3d& exit)
{
    for (int e = 0; e < 3; ++e) {
        CKivPoint3d i0, i1;
        const int k =
            CKivSpaceMath::Test_Intersect_Seg_And_Seg_OnSamePlane_3D(V[e], V[(e + 1) % 3], from, to, i0, i1);
        if (k == 1 && i0 != from) {
            exit = i0;
            return true;
        }
        if (k == 2) {
            const bool d0 = i0 != from, d1 = i1 != from;
            if (d0 || d1) {
                exit = (d0 && (!d1 || i0.Dist2(from) >= i1.Dist2(from))) ? i0 : i1;
                return true;
            }
        }
    }
    return false;
}

} // namespace

CKivSpaceMath::~CKivSpaceMath() = default;

// ---------------------------------------------------------------- planar

int CKivSpaceMath::Is_Point_In_Seg_2D(const CKivPoint3d& P, const CKivPoint3d& A, const CKivPoint3d& B)
{
    double p, a, b;
    if (std::fabs(A.x - B.x) <= kEps) {
        p = P.y, a = A.y, b = B.y;
    } else {
        p = P.x, a = A.x, b = B.x;
    }
    return (p >= std::min(a, b) && p <= std::max(a, b)) ? 1 : 0;
}

int CKivSpaceMath::Test_Insertsect_Seg_And_Line_2D(const CKivPoint3d& A, const CKivPoint3d& B,
                                                   const CKivPoint3d& C, const CKivPoint3d& D, CKivPoint3d& I)
{
    const CGeoVector u(B - A), v(D - C), w(A - C);
    const double den = Cross2D(u, v);
    if (std::fabs(den) >= kEps) {
        const double t = Cross2D(v, w) / den;
        if (!(t >= 0 && t <= 1)) {
            return 0;
        }
        I = A + u * t;
        return 1;
    }
    if (std::fabs(Cross2D(u, w)) > kEps || std::fabs(Cross2D(v, w)) > kEps) {
        return 0; // parallel, not on one line
    }
    const double uu = u * u, vv = v * v;
    if (uu <= kEps && vv <= kEps) {
        if (A != C) {
            return 0;
        }
        I = A;
        return 1;
    }
    if (uu > kEps) {
        return vv <= kEps ? 0 : 2;
    }
    I = A; // a point-like segment on the line
    return 1;
}

int CKivSpaceMath::Test_Insertsect_Seg_And_Seg_2D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C,
                                                  const CKivPoint3d& D, CKivPoint3d& I0, CKivPoint3d& I1)
{
    const CGeoVector u(B - A), v(D - C), w(A - C);
    const double den = Cross2D(u, v);
    if (std::fabs(den) >= kEps) {
        const double s = Cross2D(v, w) / den;
        if (!(s >= 0 && s <= 1)) {
            return 0;
        }
        const double t = Cross2D(u, w) / den;
        if (!(t >= 0 && t <= 1)) {
            return 0;
        }
        I0 = A + u * s;
        return 1;
    }
    if (std::fabs(Cross2D(u, w)) > kEps || std::fabs(Cross2D(v, w)) > kEps) {
        return 0;
    }
    const double uu = u * u, vv = v * v;
    if (uu <= kEps && vv <= kEps) {
        if (A != C) {
            return 0;
        }
        I0 = A;
        return 1;
    }
    if (uu <= kEps) {
        if (!Is_Point_In_Seg_2D(A, C, D)) {
            return 0;
        }
        I0 = A;
        return 1;
    }
    if (vv <= kEps) {
        if (!Is_Point_In_Seg_2D(C, A, B)) {
            return 0;
        }
        I0 = C;
        return 1;
    }
    // Collinear: the overlap as parameters along CD.
    const CGeoVector w2(B - C);
    double t0, t1;
    if (std::fabs(v.x) > kEps) {
        t0 = w.x / v.x, t1 = w2.x / v.x;
    } else {
        t0 = w.y / v.y, t1 = w2.y / v.y;
    }
    if (t0 > t1) {
        std::swap(t0, t1);
    }
    if (!(t0 <= 1 && t1 >= 0)) {
        return 0;
    }
    t0 = std::max(t0, 0.0);
    t1 = std::min(t1, 1.0);
    I0 = C + v * t0;
    if (std::fabs(t0 - t1) <= kEps) {
        return 1;
    }
    I1 = C + v * t1;
    return 2;
}

// ---------------------------------------------------------------- planes

int CKivSpaceMath::PlaneFromPoints(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n,
                                   double& d)
{
    if (!UnitNormal(P0, P1, P2, n)) {
        return 0;
    }
    d = -(n * P0);
    return 1;
}

int CKivSpaceMath::PlaneFromPoints(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n,
                                   CKivPoint3d& Q)
{
    if (!UnitNormal(P0, P1, P2, n)) {
        return 0;
    }
    Q = P0;
    return 1;
}

int CKivSpaceMath::PlaneFromPointsEx(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2,
                                     CGeoVector& n, CKivPoint3d& Q)
{
    return SpaceMathInline::PlaneFromPointsEx(P0, P1, P2, n, Q);
}

double CKivSpaceMath::Get_Plane_D(const CGeoVector& n, const CKivPoint3d& Q)
{
    return -(n * CGeoVector(Q));
}

int CKivSpaceMath::PointToPlane(const CKivPoint3d& P, const CKivPoint3d& Q, const CGeoVector& n)
{
    return SpaceMathInline::SUnitPlane(Q, n).Side(P);
}

int CKivSpaceMath::IntersectPlaneAndLine(const CGeoVector& n, const double& d, const CGeoVector& P0,
                                         const CGeoVector& dir, CKivPoint3d& X)
{
    const double den = n * dir;
    const double num = -(n * P0 + d);
    if (std::fabs(den) < kEps) {
        return std::fabs(num) < kEps ? 1 : 0;
    }
    X = P0 + dir * (num / den);
    return 2;
}

// ---------------------------------------------------------------- distances

double CKivSpaceMath::Get_Dist_Point_To_Plane_3D(const CKivPoint3d& P, const CKivPoint3d& Q, const CGeoVector& n,
                                                 CKivPoint3d& foot)
{
    const CGeoVector w(P - Q);
    const double s = -(n * w) / (n * n);
    foot = P + n * s;
    return foot.Distance(P);
}

double CKivSpaceMath::Get_Dist_Point_To_Line3D_Adv(double px, double py, double pz, double ax, double ay,
                                                   double az, double bx, double by, double bz)
{
    const CKivPoint3d P(px, py, pz), A(ax, ay, az);
    const CGeoVector u(CKivPoint3d(bx, by, bz) - A), w(P - A);
    const double b = (w * u) / (u * u);
    return P.Distance(A + u * b);
}

double CKivSpaceMath::Get_Dist_Point_To_LineSection3D_Adv(double px, double py, double pz, double ax, double ay,
                                                          double az, double bx, double by, double bz)
{
    const CKivPoint3d P(px, py, pz), A(ax, ay, az), B(bx, by, bz);
    const CGeoVector u(B - A), w(P - A);
    const double c1 = w * u;
    if (c1 <= 0) {
        return P.Distance(A);
    }
    const double c2 = u * u;
    if (c2 <= c1) {
        return P.Distance(B);
    }
    return P.Distance(A + u * (c1 / c2));
}

int CKivSpaceMath::JH_TestPointIn_LineSection3D(double px, double py, double pz, double ax, double ay, double az,
                                                double bx, double by, double bz)
{
    const CKivPoint3d P(px, py, pz), A(ax, ay, az), B(bx, by, bz);
    if (P == A || P == B) {
        return 1;
    }
    const CGeoVector c = UnitCopy(A - P) ^ UnitCopy(B - P);
    if (std::fabs(c.x) > 1e-5 || std::fabs(c.y) > 1e-5 || std::fabs(c.z) > 1e-5) {
        return 0; // not collinear
    }
    const auto within = [](double p, double a, double b) {
        return p <= std::fmax(a, b) + kEps && p >= std::fmin(a, b) - kEps;
    };
    return (within(px, ax, bx) && within(py, ay, by) && within(pz, az, bz)) ? 1 : 0;
}

double CKivSpaceMath::Get_Dist_Line_To_Line_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0,
                                               const CKivPoint3d& Q1)
{
    const CGeoVector u(P1 - P0), v(Q1 - Q0), w(P0 - Q0);
    const double a = u * u, b = u * v, c = v * v, e1 = u * w, e2 = v * w;
    const double D = a * c - b * b;
    double sc, tc;
    if (D >= kEps) {
        sc = (b * e2 - c * e1) / D;
        tc = (a * e2 - b * e1) / D;
    } else {
        // Nearly parallel: measure from P0. (A zero-length Q0Q1 gives c = 0.)
        sc = 0.0;
        tc = b > c ? e1 / b : (c != 0 ? e2 / c : 0.0);
    }
    return CGeoVector(w + u * sc - v * tc).Length();
}

double CKivSpaceMath::Get_Dist_Seg_To_Seg_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0,
                                             const CKivPoint3d& Q1)
{
    const CGeoVector u(P1 - P0), v(Q1 - Q0), w(P0 - Q0);
    const double a = u * u, b = u * v, c = v * v, e1 = u * w, e2 = v * w;
    const double D = a * c - b * b;
    // Parameters kept as numerator over denominator so clamping needs no division.
    double sN, sD = D, tN, tD = D;
    if (D < kEps) {
        sN = 0.0, sD = 1.0, tN = e2, tD = c;
    } else {
        sN = b * e2 - c * e1;
        tN = a * e2 - b * e1;
        if (sN < 0) {
            sN = 0.0, tN = e2, tD = c;
        } else if (sN > sD) {
            sN = sD, tN = e2 + b, tD = c;
        }
    }
    if (tN < 0) {
        tN = 0.0;
        if (-e1 < 0) {
            sN = 0.0;
        } else if (-e1 > a) {
            sN = sD;
        } else {
            sN = -e1, sD = a;
        }
    } else if (tN > tD) {
        tN = tD;
        const double k = b - e1;
        if (k < 0) {
            sN = 0.0;
        } else if (k > a) {
            sN = sD;
        } else {
            sN = k, sD = a;
        }
    }
    const double sc = std::fabs(sN) < kEps ? 0.0 : sN / sD;
    const double tc = std::fabs(tN) < kEps ? 0.0 : tN / tD;
    return CGeoVector(w + u * sc - v * tc).Length();
}

double CKivSpaceMath::CalDistPtToTri(const CKivPoint3d& P, const CKivPoint3d& A, const CKivPoint3d& B,
                                     const CKivPoint3d& C)
{
    CGeoVector n;
    CKivPoint3d Q;
    if (!PlaneFromPoints(A, B, C, n, Q)) {
        return -1.0;
    }
    CKivPoint3d foot;
    Get_Dist_Point_To_Plane_3D(P, Q, n, foot);
    const double h2 = P.Dist2(foot);
    if (IsPtInTri3D(A, B, C, foot) > 0) {
        const double m =
            std::min({Get_Dist_Point_To_LineSection3D_Adv(foot.x, foot.y, foot.z, A.x, A.y, A.z, B.x, B.y, B.z),
                      Get_Dist_Point_To_LineSection3D_Adv(foot.x, foot.y, foot.z, B.x, B.y, B.z, C.x, C.y, C.z),
                      Get_Dist_Point_To_LineSection3D_Adv(foot.x, foot.y, foot.z, C.x, C.y, C.z, A.x, A.y, A.z)});
        return m * m + h2;
    }
    return h2;
}

// ---------------------------------------------------------------- intersections

int CKivSpaceMath::Test_Intersect_Seg_And_Plane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                   const CKivPoint3d& Q, const CGeoVector& n, CKivPoint3d& X)
{
    return SpaceMathInline::Test_Intersect_Seg_And_Plane_3D(P0, P1, Q, n, X);
}

int CKivSpaceMath::Test_Insersect_Plane_And_Plane_3D(const CKivPoint3d& Q1, const CGeoVector& nA,
                                                     const CKivPoint3d& Q2, const CGeoVector& nB, CKivPoint3d& L0,
                                                     CKivPoint3d& L1)
{
    const CGeoVector m = nA ^ nB;
    const double ax = std::fabs(m.x), ay = std::fabs(m.y), az = std::fabs(m.z);
    if (ax + ay + az < kEps) {
        return nA * CGeoVector(Q2 - Q1) == 0 ? 1 : 0; // exact on purpose
    }
    const double d1 = Get_Plane_D(nA, Q1), d2 = Get_Plane_D(nB, Q2);
    // The point of the line where the dominant coordinate of m is 0 (later
    // axis on ties).
    if (ax > ay && ax > az) {
        L0.Set(0.0, (nA.z * d2 - nB.z * d1) / m.x, (nB.y * d1 - nA.y * d2) / m.x);
    } else if (ay > az) {
        L0.Set((nB.z * d1 - nA.z * d2) / m.y, 0.0, (nA.x * d2 - nB.x * d1) / m.y);
    } else {
        L0.Set((nA.y * d2 - nB.y * d1) / m.z, (nB.x * d1 - nA.x * d2) / m.z, 0.0);
    }
    L1 = L0 + m;
    return 2;
}

int CKivSpaceMath::Test_Intersect_Tri_And_Plane_3D(const CKivPoint3d& A, const CKivPoint3d& B,
                                                   const CKivPoint3d& C, const CKivPoint3d& Q, const CGeoVector& n,
                                                   CKivPoint3d& S0, CKivPoint3d& S1)
{
    return SpaceMathInline::Test_Intersect_Tri_And_Plane_3D(A, B, C, Q, n, S0, S1);
}

int CKivSpaceMath::Test_Insertsect_Seg_And_Seg_SamePL_3D(const CKivPoint3d& A, const CKivPoint3d& B,
                                                         const CKivPoint3d& C, const CKivPoint3d& D,
                                                         CKivPoint3d& I0, CKivPoint3d& I1)
{
    return SpaceMathInline::Test_Insertsect_Seg_And_Seg_SamePL_3D(A, B, C, D, I0, I1);
}

int CKivSpaceMath::Test_Intersect_Tri_And_Tri_3D(const CKivPoint3d& A0, const CKivPoint3d& A1,
                                                 const CKivPoint3d& A2, const CKivPoint3d& B0,
                                                 const CKivPoint3d& B1, const CKivPoint3d& B2, CKivPoint3d& I0,
                                                 CKivPoint3d& I1)
{
    return SpaceMathInline::Test_Intersect_Tri_And_Tri_3D(A0, A1, A2, B0, B1, B2, I0, I1);
}

int CKivSpaceMath::Test_Intersect_Ray_And_Triangle_3D(const CKivPoint3d& P0, const CGeoVector& dir,
                                                      const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                      const CKivPoint3d& V2, CKivPoint3d& I)
{
    return SpaceMathInline::HitTriangle(P0, dir, V0, V1, V2, I, false, false);
}

int CKivSpaceMath::Test_Intersect_Ray_And_Triangle_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                      const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                      const CKivPoint3d& V2, CKivPoint3d& I)
{
    return SpaceMathInline::HitTriangle(P0, CGeoVector(P1 - P0), V0, V1, V2, I, false, false);
}

int CKivSpaceMath::Test_Intersect_Ray_And_Plane_3D(const CKivPoint3d& P0, const CGeoVector& dir,
                                                   const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                   const CKivPoint3d& V2, CKivPoint3d& I)
{
    return SpaceMathInline::HitTriangle(P0, dir, V0, V1, V2, I, false, true);
}

int CKivSpaceMath::Test_Intersect_Ray_And_Plane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                   const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                   const CKivPoint3d& V2, CKivPoint3d& I)
{
    return SpaceMathInline::HitTriangle(P0, CGeoVector(P1 - P0), V0, V1, V2, I, false, true);
}

int CKivSpaceMath::Test_Intersect_Line_And_Triangle_3D(const CKivPoint3d& P0, const CGeoVector& dir,
                                                       const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                       const CKivPoint3d& V2, CKivPoint3d& I)
{
    return SpaceMathInline::HitTriangle(P0, dir, V0, V1, V2, I, true, false);
}

int CKivSpaceMath::IsPtInTri3D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C, CKivPoint3d P)
{
    if (P == A || P == B || P == C) {
        return -4;
    }
    if (std::isnan(P.x) || std::isnan(P.y) || std::isnan(P.z)) {
        return 4; // nowhere, so off the plane
    }
    CGeoVector n;
    CKivPoint3d Q;
    if (!PlaneFromPoints(A, B, C, n, Q) || PointToPlane(P, Q, n) != 0) {
        return 4;
    }
    const CKivPoint3d* corner[4] = {&A, &B, &C, &A};
    int sign[3];
    for (int e = 0; e < 3; ++e) {
        const CKivPoint3d& s = *corner[e];
        const CKivPoint3d& t = *corner[e + 1];
        const CGeoVector dir = UnitCopy(t - s);
        const CGeoVector fromS = UnitCopy(P - s);
        if (SameDirection(fromS, dir) && SameDirection(UnitCopy(P - t), -dir)) {
            sign[e] = 0; // on the open edge
            continue;
        }
        const CGeoVector c = UnitCopy(dir ^ fromS);
        sign[e] = c * n >= 0 ? 1 : -1;
    }
    for (int e = 0; e < 3; ++e) {
        if (sign[e] == -1) {
            return e + 1;
        }
    }
    const int zeros = (sign[0] == 0) + (sign[1] == 0) + (sign[2] == 0);
    if (zeros == 0) {
        return 0;
    }
    if (zeros == 1) {
        return sign[0] == 0 ? -1 : (sign[1] == 0 ? -2 : -3);
    }
    double d[3];
    for (int e = 0; e < 3; ++e) {
        const CKivPoint3d& s = *corner[e];
        const CKivPoint3d& t = *corner[e + 1];
        d[e] =
            sign[e] == 0 ? Get_Dist_Point_To_LineSection3D_Adv(P.x, P.y, P.z, s.x, s.y, s.z, t.x, t.y, t.z) : -1.0;
    }
    if (d[0] < d[1] && d[0] < d[2]) {
        return -1;
    }
    if (d[1] < d[0] && d[1] < d[2]) {
        return -2;
    }
    return -3;
}

int CKivSpaceMath::Test_Intersect_Line_And_Line_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                   const CKivPoint3d& Q0, const CKivPoint3d& Q1, CKivPoint3d& X)
{
    return LineAndLine(P0, P1, Q0, Q1, X, false);
}

int CKivSpaceMath::Test_Intersect_Line_And_Line_OnSamePlane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                               const CKivPoint3d& Q0, const CKivPoint3d& Q1,
                                                               CKivPoint3d& X)
{
    return LineAndLine(P0, P1, Q0, Q1, X, true);
}

int CKivSpaceMath::Test_Intersect_Seg_And_Seg_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                 const CKivPoint3d& Q0, const CKivPoint3d& Q1, CKivPoint3d& I0,
                                                 CKivPoint3d& I1)
{
    return SegAndSeg(P0, P1, Q0, Q1, I0, I1, false);
}

int CKivSpaceMath::Test_Intersect_Seg_And_Seg_OnSamePlane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                             const CKivPoint3d& Q0, const CKivPoint3d& Q1,
                                                             CKivPoint3d& I0, CKivPoint3d& I1)
{
    return SegAndSeg(P0, P1, Q0, Q1, I0, I1, true);
}

int CKivSpaceMath::Test_Intersect_Seg_And_Tri_3D(const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                 const CKivPoint3d& V2, const CKivPoint3d& P0,
                                                 const CKivPoint3d& P1, CKivPoint3d& X0, CKivPoint3d& X1)
{
    CGeoVector n;
    double d = 0.0;
    PlaneFromPoints(V0, V1, V2, n, d); // a degenerate triangle is caught by IsPtInTri3D below
    const auto side = [&n, d](const CKivPoint3d& p) {
        return SpaceMathInline::SideOfPlane(n * CGeoVector(p) + d);
    };
    const int s0 = side(P0), s1 = side(P1);
    if (s0 * s1 == 1) {
        return 0; // both ends on one side
    }
    if (s0 != 0 || s1 != 0) {
        CKivPoint3d x;
        if (IntersectPlaneAndLine(n, d, P0, CGeoVector(P1 - P0), x) != 2) {
            return 0;
        }
        if (JH_TestPointIn_LineSection3D(x.x, x.y, x.z, P0.x, P0.y, P0.z, P1.x, P1.y, P1.z) &&
            IsPtInTri3D(V0, V1, V2, x) <= 0) {
            X0 = x;
            return 1;
        }
        return 0;
    }
    // The segment lies in the triangle's plane.
    const CKivPoint3d V[3] = {V0, V1, V2};
    const bool in0 = IsPtInTri3D(V0, V1, V2, P0) <= 0;
    const bool in1 = IsPtInTri3D(V0, V1, V2, P1) <= 0;
    if (in0 && in1) {
        X0 = P0, X1 = P1;
        return 2;
    }
    if (in0) {
        X0 = P0;
        return FindExit(V, P0, P1, X1) ? 2 : 1;
    }
    if (in1) {
        CKivPoint3d entry;
        if (FindExit(V, P1, P0, entry)) {
            X0 = entry, X1 = P1;
            return 2;
        }
        X0 = P1;
        return 1;
    }
    SEdgeHits hits;
    for (int e = 0; e < 3 && hits.count < 2; ++e) {
        CKivPoint3d i0, i1;
        const int k = Test_Intersect_Seg_And_Seg_OnSamePlane_3D(V[e], V[(e + 1) % 3], P0, P1, i0, i1);
        if (k >= 1) {
            hits.Add(i0);
        }
        if (k == 2) {
            hits.Add(i1);
        }
    }
    if (hits.count == 0) {
        return 0;
    }
    X0 = hits.pt[0];
    if (hits.count == 1) {
        return 1;
    }
    X1 = hits.pt[1];
    return 2;
}

namespace {

// 2D orientation of M against the edge PQ, computed with the edge's ends in
// a fixed (lexicographic) order, so that the two triangles sharing an edge
// clip a map segment at bit for bit the same parameter.
inline double EdgeSide(const CKivPoint3d& P, const CKivPoint3d& Q, const CKivPoint3d& M)
{
    const bool swap = Q.x < P.x || (Q.x == P.x && Q.y < P.y);
    const CKivPoint3d& a = swap ? Q : P;
    const CKivPoint3d& b = swap ? P : Q;
    const double c = (b.x - a.x) * (M.y - a.y) - (b.y - a.y) * (M.x - a.x);
    return swap ? -c : c;
}

// The piece of a triangle that is not steep over M0M1: clip the map segment
// to the plan triangle and lift the ends onto the triangle's plane. Exact up
// to rounding at every scale. False when the segment misses the triangle.
bool DrapeOnPlanTri(const CKivPoint3d* V, double area2, const CKivPoint3d& M0, const CKivPoint3d& M1,
                    CKivPoint3d& X0, CKivPoint3d& X1)
{
    const double sign = area2 > 0 ? 1.0 : -1.0;
    double t0 = 0.0, t1 = 1.0;
    for (int e = 0; e < 3; ++e) {
        const CKivPoint3d& P = V[e];
        const CKivPoint3d& Q = V[(e + 1) % 3];
        // Inside where f >= 0; f is linear along the segment.
        const double f0 = sign * EdgeSide(P, Q, M0), f1 = sign * EdgeSide(P, Q, M1);
        if (!(f0 >= 0.0) && !(f1 >= 0.0)) {
            return false; // both outside, or NaN
        }
        if (f0 < 0.0) {
            t0 = std::max(t0, f0 / (f0 - f1));
        } else if (f1 < 0.0) {
            t1 = std::min(t1, f0 / (f0 - f1));
        }
    }
    if (!(t0 <= t1)) {
        return false;
    }
    const CKivPoint3d& A = V[0];
    const double ux = V[1].x - A.x, uy = V[1].y - A.y, uz = V[1].z - A.z;
    const double vx = V[2].x - A.x, vy = V[2].y - A.y, vz = V[2].z - A.z;
    const auto lift = [&](double t) {
        const double x = t == 0.0 ? M0.x : (t == 1.0 ? M1.x : M0.x + t * (M1.x - M0.x));
        const double y = t == 0.0 ? M0.y : (t == 1.0 ? M1.y : M0.y + t * (M1.y - M0.y));
        const double wx = x - A.x, wy = y - A.y;
        const double b = (wx * vy - wy * vx) / area2, c = (ux * wy - uy * wx) / area2;
        return CKivPoint3d(x, y, A.z + b * uz + c * vz);
    };
    const CKivPoint3d a = lift(t0), b = lift(t1);
    if (!(std::isfinite(a.z) && std::isfinite(b.z) && std::isfinite(a.x + a.y + b.x + b.y))) {
        return false;
    }
    X0 = a;
    X1 = b;
    return true;
}

} // namespace

bool CKivSpaceMath::Test_Intersect_MapSeg_And_Tri_3D(const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                     const CKivPoint3d& V2, const CKivPoint3d& M0,
                                                     const CKivPoint3d& M1, CKivPoint3d& X0, CKivPoint3d& X1)
{
    const double mx = M1.x - M0.x, my = M1.y - M0.y;
    const double mm = mx * mx + my * my;
    if (!(mm >= SpaceMathInline::kLen2Below1e6)) {
        return false;
    }
    // A triangle whose plan area is not small against its area in space (a
    // slope below about 89.9 degrees) is clipped in plan: no tolerance, so
    // it works at every scale. A steeper one, up to a vertical one standing
    // across the segment, is cut by the wall as below.
    const CKivPoint3d V[3] = {V0, V1, V2};
    const CGeoVector n = CGeoVector(V1 - V0) ^ CGeoVector(V2 - V0);
    const double nn = n.Length2();
    if (n.z * n.z >= 1e-6 * nn && nn > 0.0) {
        return DrapeOnPlanTri(V, n.z, M0, M1, X0, X1);
    }
    // The wall over M0M1 as two triangles, reaching 1 beyond the triangle in z.
    const double lo = std::min({V0.z, V1.z, V2.z}) - 1.0;
    const double hi = std::max({V0.z, V1.z, V2.z}) + 1.0;
    const CKivPoint3d a0(M0.x, M0.y, lo), a1(M1.x, M1.y, lo), b0(M0.x, M0.y, hi), b1(M1.x, M1.y, hi);
    CKivPoint3d ends[4];
    int count = 0;
    CKivPoint3d i0, i1;
    if (SpaceMathInline::Test_Intersect_Tri_And_Tri_3D(a0, a1, b1, V0, V1, V2, i0, i1) == 2) {
        ends[count++] = i0, ends[count++] = i1;
    }
    if (SpaceMathInline::Test_Intersect_Tri_And_Tri_3D(a0, b1, b0, V0, V1, V2, i0, i1) == 2) {
        ends[count++] = i0, ends[count++] = i1;
    }
    if (count == 0) {
        return false;
    }
    // Both pieces lie on the line where the triangle's plane cuts the wall and
    // meet on the wall's diagonal: their union runs from the lowest to the
    // highest position along M0 -> M1.
    const auto along = [&](const CKivPoint3d& p) { return ((p.x - M0.x) * mx + (p.y - M0.y) * my) / mm; };
    int first = 0, last = 0;
    for (int i = 1; i < count; ++i) {
        if (along(ends[i]) < along(ends[first])) {
            first = i;
        }
        if (along(ends[i]) > along(ends[last])) {
            last = i;
        }
    }
    X0 = ends[first];
    X1 = ends[last];
    return true;
}
