// The spatial tests run billions of times inside the booleans and the
// triangulator, so none of them may touch the heap (the ear clipper, which
// builds a list, is the one exception). This binary counts every call of the
// global allocation functions while the predicates run, on ordinary,
// degenerate and non-finite input; under the sanitizers it is also the
// no-crash test of every predicate on NaN, infinite and huge coordinates.
#include <kivgeo/geo_convex.h>
#include <kivgeo/planar.h>
#include <kivgeo/point3d.h>
#include <kivgeo/seg3d.h>
#include <kivgeo/spacemath.h>

#include "spacemath/planar_internal.h"
#include "spacemath/spacemath_inline.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>
#include <vector>

namespace {
bool g_counting = false;
long g_allocations = 0;

void* CountedAlloc(std::size_t n)
{
    if (g_counting) {
        ++g_allocations;
    }
    if (void* p = std::malloc(n == 0 ? 1 : n)) {
        return p;
    }
    throw std::bad_alloc();
}
} // namespace

void* operator new(std::size_t n)
{
    return CountedAlloc(n);
}
void* operator new[](std::size_t n)
{
    return CountedAlloc(n);
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

namespace {

using M = CKivSpaceMath;

// Sums every result so that no call can be dropped as unused.
struct SSink {
    double sum = 0.0;
    void Add(double v) { sum += v == v ? v : 1.0; }
    void Add(const CKivPoint3d& p)
    {
        Add(p.x);
        Add(p.y);
        Add(p.z);
    }
};

// Every planar and spatial predicate once on the points of q.
void RunAll(const CKivPoint3d* q, const std::vector<CKivPoint3d>& ring, SSink& s)
{
    const CKivPoint3d &a = q[0], &b = q[1], &c = q[2], &d = q[3], &e = q[4], &f = q[5];
    CKivPoint3d o0, o1;
    double x = 0.0, y = 0.0, r = 0.0;

    // Primitives.
    s.Add(CompDouble(a.x, b.x));
    s.Add(a == b);
    s.Add(CGeoVector(a) == CGeoVector(b));
    s.Add(a.IsEqualTo(b));
    s.Add(a / b.x);
    s.Add(CKivPoint3d::IsPtInCircle(a.x, a.y, b.x, b.y, c.z));
    s.Add(CKivPoint3d::IsPtIn3PCircle(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y));
    s.Add(CKivPoint3d::Get_3P_Circle(a.x, a.y, b.x, b.y, c.x, c.y, r, x, y));
    s.Add(CKivPoint3d::IsConllinear(a, b, c));
    s.Add(CKivSeg3d::IsSameSeg(a, b, c, d));
    s.Add(CKivSeg3d::IsSamePlane(CKivSeg3d(a, b), CKivSeg3d(c, d)));

    // Planar free functions, exported and internal.
    s.Add(JH_GetInterPoint_LineSection(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y, &x, &y, 1e-6));
    s.Add(IsPtInSeg2D(a.x, a.y, b.x, b.y, c.x, c.y));
    s.Add(GetTwoSegAngle(a.x, a.y, b.x, b.y, c.x, c.y));
    s.Add(GetNearestPtToSeg2D(a.x, a.y, b.x, b.y, c.x, c.y, x, y));
    s.Add(IsPtInPolygon(ring, a));
    s.Add(CalRegionCenter(ring, o0));
    s.Add(GetPtSideOfLine2D(a.x, a.y, b.x, b.y, c.x, c.y));
    s.Add(IsPtInCircumCircle2D(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y));
    s.Add(IsSegCrossSeg2D(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y));
    s.Add(GetPtPosInTri2D(a.x, a.y, b.x, b.y, c.x, c.y, d.x, d.y, true));
    s.Add(IsPolygonDiagonal(ring, 0, 2));
    s.Add(M::Is_Point_In_Seg_2D(a, b, c));
    s.Add(M::Test_Insertsect_Seg_And_Line_2D(a, b, c, d, o0));
    s.Add(M::Test_Insertsect_Seg_And_Seg_2D(a, b, c, d, o0, o1));

    // Planes and distances.
    CGeoVector n;
    CKivPoint3d pq;
    s.Add(M::PlaneFromPoints(a, b, c, n, r));
    s.Add(M::PlaneFromPoints(a, b, c, n, pq));
    s.Add(M::PlaneFromPointsEx(a, b, c, n, pq));
    const CGeoVector nd(d);
    s.Add(M::Get_Plane_D(nd, e));
    s.Add(M::PointToPlane(a, e, nd));
    s.Add(M::IntersectPlaneAndLine(nd, b.x, c, CGeoVector(e), o0));
    s.Add(M::Get_Dist_Point_To_Plane_3D(a, e, nd, o0));
    s.Add(M::Get_Dist_Point_To_Line3D_Adv(a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z));
    s.Add(M::Get_Dist_Point_To_LineSection3D_Adv(a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z));
    s.Add(M::JH_TestPointIn_LineSection3D(a.x, a.y, a.z, b.x, b.y, b.z, c.x, c.y, c.z));
    s.Add(M::Get_Dist_Line_To_Line_3D(a, b, c, d));
    s.Add(M::Get_Dist_Seg_To_Seg_3D(a, b, c, d));
    s.Add(M::CalDistPtToTri(a, b, c, d));

    // Intersections in space.
    s.Add(M::Test_Intersect_Seg_And_Plane_3D(a, b, e, nd, o0));
    s.Add(M::Test_Insersect_Plane_And_Plane_3D(a, CGeoVector(b), c, nd, o0, o1));
    s.Add(M::Test_Intersect_Tri_And_Plane_3D(a, b, c, e, nd, o0, o1));
    s.Add(M::Test_Insertsect_Seg_And_Seg_SamePL_3D(a, b, c, d, o0, o1));
    s.Add(M::Test_Intersect_Tri_And_Tri_3D(a, b, c, d, e, f, o0, o1));
    s.Add(SpaceMathInline::Test_Intersect_Tri_And_Tri_3D(a, b, c, d, e, f, o0, o1));
    s.Add(M::Test_Intersect_Ray_And_Triangle_3D(a, CGeoVector(b), c, d, e, o0));
    s.Add(M::Test_Intersect_Ray_And_Triangle_3D(a, b, c, d, e, o0));
    s.Add(SpaceMathInline::Test_Intersect_Ray_And_Triangle_3D(a, CGeoVector(b), c, d, e, o0));
    s.Add(M::Test_Intersect_Ray_And_Plane_3D(a, CGeoVector(b), c, d, e, o0));
    s.Add(M::Test_Intersect_Ray_And_Plane_3D(a, b, c, d, e, o0));
    s.Add(M::Test_Intersect_Line_And_Triangle_3D(a, CGeoVector(b), c, d, e, o0));
    s.Add(M::IsPtInTri3D(a, b, c, d));
    s.Add(M::Test_Intersect_Line_And_Line_3D(a, b, c, d, o0));
    s.Add(M::Test_Intersect_Line_And_Line_OnSamePlane_3D(a, b, c, d, o0));
    s.Add(M::Test_Intersect_Seg_And_Seg_3D(a, b, c, d, o0, o1));
    s.Add(M::Test_Intersect_Seg_And_Seg_OnSamePlane_3D(a, b, c, d, o0, o1));
    s.Add(M::Test_Intersect_Seg_And_Tri_3D(a, b, c, d, e, o0, o1));
    s.Add(M::Test_Intersect_MapSeg_And_Tri_3D(a, b, c, d, e, o0, o1));
    s.Add(o0);
    s.Add(o1);
}

TEST(Predicates, NeverAllocate)
{
    std::mt19937 rng(17);
    std::uniform_real_distribution<double> u(-10.0, 10.0);
    std::uniform_int_distribution<int> pick(0, 3);
    const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    // A few values that make degenerate configurations likely: shared and
    // coincident points, axis-parallel and coplanar pieces, non-finite values.
    const double special[] = {0.0, 1.0, 1e-7, 1e12, 1e300, inf, -inf, nan};
    // Points drawn from a small pool repeat, so zero-length segments,
    // collinear triples and shared corners come up often.
    std::vector<CKivPoint3d> pool;
    auto draw = [&]() {
        switch (pick(rng)) {
        case 0:
            if (!pool.empty()) {
                return pool[rng() % pool.size()];
            }
            [[fallthrough]];
        case 1:
            return CKivPoint3d(u(rng), u(rng), 0.0); // horizontal
        case 2:
            return CKivPoint3d(std::round(u(rng)), std::round(u(rng)), std::round(u(rng)));
        default: {
            // Any coordinate may be special: NaN, infinite or huge in the plan too.
            auto c = [&]() { return rng() % 10 == 0 ? special[rng() % 8] : u(rng); };
            const double x = c(), y = c();
            return CKivPoint3d(x, y, c());
        }
        }
    };
    pool.reserve(64);
    for (int i = 0; i < 64; ++i) {
        pool.push_back(draw());
    }
    std::vector<CKivPoint3d> ring = {CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(4.0, 0.0, 0.0),
                                     CKivPoint3d(4.0, 3.0, 0.0), CKivPoint3d(2.0, 1.0, 0.0),
                                     CKivPoint3d(0.0, 3.0, 0.0)};
    SSink sink;
    CKivPoint3d q[6];
    for (int rep = 0; rep < 20000; ++rep) {
        for (CKivPoint3d& p : q) {
            p = draw();
        }
        ring[3] = q[5];
        g_counting = true;
        RunAll(q, ring, sink);
        g_counting = false;
        ASSERT_EQ(g_allocations, 0) << "a predicate allocated on repetition " << rep;
    }
    EXPECT_NE(sink.sum, 0.0);

    // The counter sees allocations made inside the library too (the hull
    // copies its input), and the ear clipper's lists.
    std::vector<CKivPoint3d> hull;
    hull.reserve(16);
    g_counting = true;
    CKivGeoConvex::Convex(ring, hull);
    const long inLibrary = g_allocations;
    std::vector<std::array<int, 3>> tris;
    EarTriangulatePolygon(ring, tris);
    g_counting = false;
    EXPECT_GT(inLibrary, 0);
    EXPECT_GT(g_allocations, inLibrary);
}

} // namespace
