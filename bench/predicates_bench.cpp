// Cost per call of the predicates in the innermost loops of the triangulator
// and the booleans, over 4096 random cases cycled (all in cache). The 3D tests
// run both through the exported CKivSpaceMath members and through the inline
// bodies that library code can call directly.
#include <kivgeo/spacemath.h>

#include "spacemath/exact_incircle.h"
#include "spacemath/planar_internal.h"
#include "spacemath/spacemath_inline.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

constexpr size_t kCases = 4096;

std::vector<double> RandomCoords(size_t n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> c(-10.0, 10.0);
    std::vector<double> v(n);
    for (double& x : v) {
        x = c(rng);
    }
    return v;
}

std::vector<CKivPoint3d> RandomPoints(size_t n, unsigned seed)
{
    const std::vector<double> c = RandomCoords(3 * n, seed);
    std::vector<CKivPoint3d> p(n);
    for (size_t i = 0; i < n; ++i) {
        p[i] = CKivPoint3d(c[3 * i], c[3 * i + 1], c[3 * i + 2]);
    }
    return p;
}

void BM_GetPtSideOfLine2D(benchmark::State& state)
{
    const std::vector<double> c = RandomCoords(6 * kCases, 1);
    size_t i = 0;
    for (auto _ : state) {
        const double* q = &c[6 * i];
        benchmark::DoNotOptimize(GetPtSideOfLine2D(q[0], q[1], q[2], q[3], q[4], q[5]));
        i = (i + 1) % kCases;
    }
}
BENCHMARK(BM_GetPtSideOfLine2D);

void BM_IsPtInCircumCircle2D(benchmark::State& state)
{
    const std::vector<double> c = RandomCoords(8 * kCases, 2);
    size_t i = 0;
    for (auto _ : state) {
        const double* q = &c[8 * i];
        benchmark::DoNotOptimize(IsPtInCircumCircle2D(q[0], q[1], q[2], q[3], q[4], q[5], q[6], q[7]));
        i = (i + 1) % kCases;
    }
}
BENCHMARK(BM_IsPtInCircumCircle2D);

// The triangulator's exactly evaluated form of the same rule: on these inputs
// it never leaves the filter, so this is the filter's cost.
void BM_IsPtInCircumCircle2DExact(benchmark::State& state)
{
    const std::vector<double> c = RandomCoords(8 * kCases, 2);
    size_t i = 0;
    for (auto _ : state) {
        const double* q = &c[8 * i];
        benchmark::DoNotOptimize(IsPtInCircumCircle2DExact(q[0], q[1], q[2], q[3], q[4], q[5], q[6], q[7]));
        i = (i + 1) % kCases;
    }
}
BENCHMARK(BM_IsPtInCircumCircle2DExact);

// Triangle pairs: random in a box of side 20, about a quarter of them cut
// each other; arg 1 makes every pair cut (the second triangle straddles the
// first one's plane through its centroid), the expensive path.
std::vector<CKivPoint3d> TrianglePairs(bool allCut)
{
    std::vector<CKivPoint3d> p = RandomPoints(6 * kCases, 3);
    if (allCut) {
        for (size_t i = 0; i < kCases; ++i) {
            CKivPoint3d* t = &p[6 * i];
            const CKivPoint3d g = (t[0] + t[1] + t[2]) * (1.0 / 3.0);
            t[3] = g + CKivPoint3d(0.0, 0.5, 6.0);
            t[4] = g + CKivPoint3d(-1.0, -3.0, -6.0);
            t[5] = g + CKivPoint3d(2.0, -1.0, -5.0);
        }
    }
    return p;
}

template <bool Inline> void BM_TriTri(benchmark::State& state)
{
    const std::vector<CKivPoint3d> p = TrianglePairs(state.range(0) != 0);
    CKivPoint3d i0, i1;
    size_t i = 0;
    for (auto _ : state) {
        const CKivPoint3d* t = &p[6 * i];
        benchmark::DoNotOptimize(
            Inline ? SpaceMathInline::Test_Intersect_Tri_And_Tri_3D(t[0], t[1], t[2], t[3], t[4], t[5], i0, i1)
                   : CKivSpaceMath::Test_Intersect_Tri_And_Tri_3D(t[0], t[1], t[2], t[3], t[4], t[5], i0, i1));
        i = (i + 1) % kCases;
    }
}
BENCHMARK_TEMPLATE(BM_TriTri, false)->Name("BM_TriTri_Exported")->Arg(0)->Arg(1);
BENCHMARK_TEMPLATE(BM_TriTri, true)->Name("BM_TriTri_Inline")->Arg(0)->Arg(1);

// Rays from random points towards random targets near the triangle's
// centroid: roughly half of them hit.
std::vector<CKivPoint3d> RayCases()
{
    std::vector<CKivPoint3d> p = RandomPoints(5 * kCases, 4);
    for (size_t i = 0; i < kCases; ++i) {
        CKivPoint3d* t = &p[5 * i];
        const CKivPoint3d g = (t[2] + t[3] + t[4]) * (1.0 / 3.0);
        t[1] = g + (t[1] - g) * 0.15; // the second point: a target near the centroid
    }
    return p;
}

template <bool Inline> void BM_RayTri(benchmark::State& state)
{
    const std::vector<CKivPoint3d> p = RayCases();
    CKivPoint3d hit;
    size_t i = 0;
    for (auto _ : state) {
        const CKivPoint3d* t = &p[5 * i];
        const CGeoVector dir(t[1] - t[0]);
        benchmark::DoNotOptimize(
            Inline ? SpaceMathInline::Test_Intersect_Ray_And_Triangle_3D(t[0], dir, t[2], t[3], t[4], hit)
                   : CKivSpaceMath::Test_Intersect_Ray_And_Triangle_3D(t[0], dir, t[2], t[3], t[4], hit));
        i = (i + 1) % kCases;
    }
}
BENCHMARK_TEMPLATE(BM_RayTri, false)->Name("BM_RayTri_Exported");
BENCHMARK_TEMPLATE(BM_RayTri, true)->Name("BM_RayTri_Inline");

} // namespace
