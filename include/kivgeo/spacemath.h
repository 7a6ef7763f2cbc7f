// CKivSpaceMath: stateless planar and spatial tests, planes and distances.
//
// Every member is static and pure. Results are small codes (commonly 0 none,
// 1 a point, 2 a segment or an overlap, -1 degenerate input); point outputs
// are written only on the paths that say so and keep their values otherwise.
//
// Tolerances: the bare absolute 1e-6 against differences, cross and dot
// products and signed distances; CompDouble() only where named below; 1e-5
// on the cross product of unit directions in JH_TestPointIn_LineSection3D();
// -1e-10 as the lower bound of the first barycentric coordinate in the ray
// tests. A few in-plane tests compare with an exact 0 on purpose.
//
// Inside the library the hot tests are also available inline from
// spacemath/spacemath_inline.h (same names in namespace SpaceMathInline).
#ifndef KIVGEO_SPACEMATH_H
#define KIVGEO_SPACEMATH_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

class KIVGEO_API CKivSpaceMath {
public:
    CKivSpaceMath() = default;
    CKivSpaceMath(const CKivSpaceMath&) = default;
    CKivSpaceMath& operator=(const CKivSpaceMath&) = default;
    virtual ~CKivSpaceMath();

    // ---- In the map plane (sidedness uses x and y; points carry z) ----

    // Range test only, P assumed on the line AB: 1 when P's x (or y, when AB
    // is within 1e-6 of vertical) lies between A's and B's, inclusive and exact.
    static int Is_Point_In_Seg_2D(const CKivPoint3d& P, const CKivPoint3d& A, const CKivPoint3d& B);
    // Segment AB against the infinite line through C and D. 1: one point I
    // (also a zero-length segment on the line); 2: the segment lies on the
    // line (I not written); 0: none.
    static int Test_Insertsect_Seg_And_Line_2D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C,
                                               const CKivPoint3d& D, CKivPoint3d& I);
    // Segment AB against segment CD. 1: one point I0; 2: a collinear overlap
    // from I0 to I1, I0 the end nearer C along CD; 0: disjoint.
    static int Test_Insertsect_Seg_And_Seg_2D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C,
                                              const CKivPoint3d& D, CKivPoint3d& I0, CKivPoint3d& I1);

    // ---- Planes ----

    // Plane through three points: unit normal n and offset d (n.X + d = 0).
    // 0 when an edge from P0 is shorter than 1e-6 or the points are collinear
    // (n may already be overwritten then).
    static int PlaneFromPoints(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n,
                               double& d);
    // As above, carrying the plane as its unit normal and the point Q = P0.
    static int PlaneFromPoints(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n,
                               CKivPoint3d& Q);
    // Unnormalized normal (P1-P0)^(P2-P0) and Q = P0; fails only on the two
    // edge lengths, so distinct collinear points give 1 with a zero normal.
    static int PlaneFromPointsEx(const CGeoVector& P0, const CGeoVector& P1, const CGeoVector& P2, CGeoVector& n,
                                 CKivPoint3d& Q);
    // -(n.Q) with n exactly as passed (not normalized).
    static double Get_Plane_D(const CGeoVector& n, const CKivPoint3d& Q);
    // Signed distance of P from the plane (Q, n), n normalized here: 1 beyond
    // 1e-6 on the side n points to, -1 beyond 1e-6 on the other, else 0.
    static int PointToPlane(const CKivPoint3d& P, const CKivPoint3d& Q, const CGeoVector& n);
    // Line P0 + t dir against plane n.X + d = 0 (n need not be unit). 2 and X
    // written (any t); 1 the line lies in the plane; 0 parallel apart.
    static int IntersectPlaneAndLine(const CGeoVector& n, const double& d, const CGeoVector& P0,
                                     const CGeoVector& dir, CKivPoint3d& X);

    // ---- Distances ----

    // Distance from P to the plane (Q, n); writes the foot. A zero normal is
    // not guarded.
    static double Get_Dist_Point_To_Plane_3D(const CKivPoint3d& P, const CKivPoint3d& Q, const CGeoVector& n,
                                             CKivPoint3d& foot);
    // Distance from P to the infinite line AB (A = B is not guarded).
    static double Get_Dist_Point_To_Line3D_Adv(double px, double py, double pz, double ax, double ay, double az,
                                               double bx, double by, double bz);
    // Distance from P to the closed segment AB (A when AB has zero length).
    static double Get_Dist_Point_To_LineSection3D_Adv(double px, double py, double pz, double ax, double ay,
                                                      double az, double bx, double by, double bz);
    // 1 when P equals A or B, or the unit directions from P to A and to B are
    // parallel (cross components within 1e-5) and P lies in AB's box grown by
    // 1e-6; else 0.
    static int JH_TestPointIn_LineSection3D(double px, double py, double pz, double ax, double ay, double az,
                                            double bx, double by, double bz);
    // Closest approach of the infinite lines P0P1 and Q0Q1. A zero-length
    // Q0Q1 measures from P0 to Q0.
    static double Get_Dist_Line_To_Line_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0,
                                           const CKivPoint3d& Q1);
    // Closest approach of the segments P0P1 and Q0Q1.
    static double Get_Dist_Seg_To_Seg_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0,
                                         const CKivPoint3d& Q1);
    // SQUARED distance from P to the solid triangle ABC; -1.0 for a triangle
    // without a plane.
    static double CalDistPtToTri(const CKivPoint3d& P, const CKivPoint3d& A, const CKivPoint3d& B,
                                 const CKivPoint3d& C);

    // ---- Intersections in space ----

    // Segment P0P1 against the plane (Q, n): 1 point X, 2 segment exactly in
    // the plane (parallel and zero offset), 0 none.
    static int Test_Intersect_Seg_And_Plane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q,
                                               const CGeoVector& n, CKivPoint3d& X);
    // Two planes (point, raw normal): 2 and the line L0 -> L1 = L0 + nA^nB;
    // 1 coincident (offset exactly 0); 0 parallel apart.
    static int Test_Insersect_Plane_And_Plane_3D(const CKivPoint3d& Q1, const CGeoVector& nA,
                                                 const CKivPoint3d& Q2, const CGeoVector& nB, CKivPoint3d& L0,
                                                 CKivPoint3d& L1);
    // Triangle ABC against the plane (Q, n): 0 none, 1 the triangle lies in
    // the plane, 2 the cut S0 -> S1 (S0 = S1 when a corner only touches). The
    // order of S0 and S1 follows the corner order, not the plane's side.
    static int Test_Intersect_Tri_And_Plane_3D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C,
                                               const CKivPoint3d& Q, const CGeoVector& n, CKivPoint3d& S0,
                                               CKivPoint3d& S1);
    // Overlap of two segments known to lie on one line, in ascending order of
    // the axis along which AB runs mostly (the axis of the strictly largest
    // component of A - B, else z); 1 one point I0, 2 I0 -> I1, 0 apart. The
    // axis boxes must overlap with a 1e-6 slack. When AB spans less than 1e-6
    // on that axis (a tie, or a point-like AB), the largest component of the
    // longer of AB and CD decides instead (x, then y, on ties).
    static int Test_Insertsect_Seg_And_Seg_SamePL_3D(const CKivPoint3d& A, const CKivPoint3d& B,
                                                     const CKivPoint3d& C, const CKivPoint3d& D, CKivPoint3d& I0,
                                                     CKivPoint3d& I1);
    // Triangle A against triangle B. -1: an edge from a first corner is
    // shorter than 1e-6. 0: no contact, or the planes count as parallel (their
    // raw normals, the unnormalized edge cross products, cross to less than
    // 1e-6 in the sum of the components: triangles with edges well below 1e-2
    // always do) without being exactly coincident. 1: coplanar, not
    // intersected further; also when one triangle lies within 1e-6 of the
    // other's plane. 2: the common piece I0 -> I1 (I1 = I0 for a single
    // point), ascending along the axis on which A's cut runs mostly.
    static int Test_Intersect_Tri_And_Tri_3D(const CKivPoint3d& A0, const CKivPoint3d& A1, const CKivPoint3d& A2,
                                             const CKivPoint3d& B0, const CKivPoint3d& B1, const CKivPoint3d& B2,
                                             CKivPoint3d& I0, CKivPoint3d& I1);
    // Ray P0 + r dir (r >= 0) against the solid triangle: -1 degenerate
    // triangle, 0 none, 1 point I, 2 the ray lies in the triangle's plane. I is
    // written once the plane is hit, even if the hit then falls outside.
    static int Test_Intersect_Ray_And_Triangle_3D(const CKivPoint3d& P0, const CGeoVector& dir,
                                                  const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                  const CKivPoint3d& V2, CKivPoint3d& I);
    // The ray from P0 through P1.
    static int Test_Intersect_Ray_And_Triangle_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                  const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                  const CKivPoint3d& V2, CKivPoint3d& I);
    // The ray against the plane through V0, V1, V2 (no inside test).
    static int Test_Intersect_Ray_And_Plane_3D(const CKivPoint3d& P0, const CGeoVector& dir, const CKivPoint3d& V0,
                                               const CKivPoint3d& V1, const CKivPoint3d& V2, CKivPoint3d& I);
    static int Test_Intersect_Ray_And_Plane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& V0,
                                               const CKivPoint3d& V1, const CKivPoint3d& V2, CKivPoint3d& I);
    // The whole line P0 + r dir against the solid triangle; codes as the ray.
    static int Test_Intersect_Line_And_Triangle_3D(const CKivPoint3d& P0, const CGeoVector& dir,
                                                   const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                   const CKivPoint3d& V2, CKivPoint3d& I);
    // Where P lies against triangle ABC in space: 4 off the plane (beyond
    // 1e-6) or degenerate triangle; 0 inside; 1, 2, 3 outside beyond AB, BC,
    // CA; -1, -2, -3 on that open edge; -4 at a corner (point equality); 4
    // also for a P with a NaN coordinate. A
    // point lies on an open edge when the unit directions from the edge's two
    // ends to it equal the edge's unit direction and its reverse (vector
    // equality, 1e-6 per component, i.e. about 1e-6 radians). With two or
    // more such edges the answer is -3 unless AB or BC is strictly nearest.
    static int IsPtInTri3D(const CKivPoint3d& A, const CKivPoint3d& B, const CKivPoint3d& C, CKivPoint3d P);

    // Lines and segments in space. Rules:
    // - A line or segment shorter than 1e-6 is degenerate.
    // - Directions are normalized and crossed; the pair is parallel when every
    //   component of the cross product is 0 by CompDouble. Otherwise the
    //   parameters (in length units) come from the first component that is
    //   non-zero by CompDouble, x then y then z.
    // - Crossing points are reported on the first line (P0P1). The general
    //   forms also require the two lines to meet: the points found on both
    //   must lie within 1e-6; the OnSamePlane forms assume coplanar input.
    // - Segment forms: the axis boxes must overlap with a 1e-6 slack, and the
    //   parameters must lie within both segments by CompDouble. Collinear
    //   segments (the second within 1e-6 of the first's line) give their
    //   overlap as Test_Insertsect_Seg_And_Seg_SamePL_3D() does: 2 I0 -> I1,
    //   or 1 when it is a single point. A degenerate segment is a point: 1
    //   when it lies on the other segment.
    // Line forms: 1 crossing X; 2 the same line (X not written); 0 parallel
    // apart or skew; -1 (general form only) a degenerate line. The
    // OnSamePlane form answers 0 for a degenerate line.
    static int Test_Intersect_Line_And_Line_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0,
                                               const CKivPoint3d& Q1, CKivPoint3d& X);
    static int Test_Intersect_Line_And_Line_OnSamePlane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                           const CKivPoint3d& Q0, const CKivPoint3d& Q1,
                                                           CKivPoint3d& X);
    // Segment forms: 0 none, 1 one point I0, 2 collinear overlap I0 -> I1.
    static int Test_Intersect_Seg_And_Seg_3D(const CKivPoint3d& P0, const CKivPoint3d& P1, const CKivPoint3d& Q0,
                                             const CKivPoint3d& Q1, CKivPoint3d& I0, CKivPoint3d& I1);
    static int Test_Intersect_Seg_And_Seg_OnSamePlane_3D(const CKivPoint3d& P0, const CKivPoint3d& P1,
                                                         const CKivPoint3d& Q0, const CKivPoint3d& Q1,
                                                         CKivPoint3d& I0, CKivPoint3d& I1);
    // Segment P0P1 against the solid triangle V0V1V2: 0 none, 1 one point X0,
    // 2 the piece X0 -> X1. A crossing segment gives the point where it
    // pierces; a segment in the plane gives its part on the triangle, in the
    // direction P0 -> P1 when an end lies on the triangle, else in the order
    // of the edges V0V1, V1V2, V2V0 that cut it. Where an edge overlaps the
    // segment, the overlap end farther from the inside end is taken.
    static int Test_Intersect_Seg_And_Tri_3D(const CKivPoint3d& V0, const CKivPoint3d& V1, const CKivPoint3d& V2,
                                             const CKivPoint3d& P0, const CKivPoint3d& P1, CKivPoint3d& X0,
                                             CKivPoint3d& X1);
    // The piece of the triangle over the map segment M0M1 (z of M0, M1
    // ignored). A triangle less steep than about 89.9 degrees is clipped in
    // plan, without tolerance (boundary included), and the piece's ends are
    // lifted onto its plane. A steeper one is cut against the vertical wall
    // over M0M1, from 1 below to 1 above the triangle, taken as two
    // triangles (Test_Intersect_Tri_And_Tri_3D, so with its tolerances).
    // True with X0 -> X1 running in the direction M0 -> M1 (X1 = X0 for a
    // single point); false when the triangle does not reach the segment or
    // the wall, lies in the wall, or M0M1 is shorter than 1e-6 in plan.
    static bool Test_Intersect_MapSeg_And_Tri_3D(const CKivPoint3d& V0, const CKivPoint3d& V1,
                                                 const CKivPoint3d& V2, const CKivPoint3d& M0,
                                                 const CKivPoint3d& M1, CKivPoint3d& X0, CKivPoint3d& X1);
};

#endif
