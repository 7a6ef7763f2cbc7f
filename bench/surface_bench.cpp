// Interpolation set-up and evaluation, and the plan convex hull.
#include <kivgeo/geo_convex.h>
#include <kivgeo/match_chazhi.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

// Scattered boreholes over a 1 km square with a smooth surface.
std::vector<CKivPoint3d> BasePoints(std::size_t n)
{
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(0.0, 1000.0);
    std::vector<CKivPoint3d> pts;
    pts.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double x = u(rng), y = u(rng);
        pts.emplace_back(x, y, 100.0 + 20.0 * std::sin(x / 150.0) * std::cos(y / 200.0) + 0.01 * x);
    }
    return pts;
}

void BM_Setup(benchmark::State& state, CKivMatchChaZhi::InterPolationType type)
{
    const std::vector<CKivPoint3d> base = BasePoints(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        CKivMatchChaZhi interp;
        interp.SetBase(type, base);
        CKivPoint3d probe(500.0, 500.0, -1.0);
        interp.ChaZhiPt(probe);
        benchmark::DoNotOptimize(probe.z);
    }
    state.counters["points"] = static_cast<double>(base.size());
}

void BM_Grid(benchmark::State& state, CKivMatchChaZhi::InterPolationType type)
{
    const std::vector<CKivPoint3d> base = BasePoints(static_cast<std::size_t>(state.range(0)));
    const int side = static_cast<int>(state.range(1));
    CKivMatchChaZhi interp;
    interp.SetBase(type, base);
    for (auto _ : state) {
        double sum = 0.0;
        for (int r = 0; r < side; ++r) {
            for (int c = 0; c < side; ++c) {
                CKivPoint3d p(c * 1000.0 / side, r * 1000.0 / side, 0.0);
                interp.ChaZhiPt(p);
                sum += p.z;
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.counters["evaluations/s"] =
        benchmark::Counter(static_cast<double>(side) * side, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_SplineSetup(benchmark::State& state)
{
    BM_Setup(state, CKivMatchChaZhi::eSpline);
}
void BM_RadialBasisSetup(benchmark::State& state)
{
    BM_Setup(state, CKivMatchChaZhi::eRadialBasis);
}
void BM_SplineGrid(benchmark::State& state)
{
    BM_Grid(state, CKivMatchChaZhi::eSpline);
}
void BM_RadialBasisGrid(benchmark::State& state)
{
    BM_Grid(state, CKivMatchChaZhi::eRadialBasis);
}
void BM_InverseDistanceGrid(benchmark::State& state)
{
    BM_Grid(state, CKivMatchChaZhi::eInverseDistance);
}

BENCHMARK(BM_SplineSetup)->Arg(500)->Arg(2000)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_RadialBasisSetup)->Arg(2000)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_SplineGrid)->Args({2000, 500})->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_RadialBasisGrid)->Args({2000, 500})->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_InverseDistanceGrid)->Args({2000, 500})->Unit(benchmark::kMillisecond)->Iterations(1);

enum HullInput { kSquare, kDisc, kCircle, kGrid };

std::vector<CKivPoint3d> HullPoints(std::size_t n, HullInput kind)
{
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<CKivPoint3d> pts;
    pts.reserve(n);
    const std::size_t side = static_cast<std::size_t>(std::sqrt(static_cast<double>(n)));
    while (pts.size() < n) {
        const double x = u(rng), y = u(rng), z = u(rng);
        switch (kind) {
        case kSquare:
            pts.emplace_back(500000.0 + 1000.0 * x, 3000000.0 + 1000.0 * y, z);
            break;
        case kDisc:
            if (x * x + y * y <= 1.0) {
                pts.emplace_back(1000.0 * x, 1000.0 * y, z);
            }
            break;
        case kCircle: {
            const double a = 3.14159265358979 * x;
            pts.emplace_back(1000.0 * std::cos(a), 1000.0 * std::sin(a), z);
            break;
        }
        case kGrid: {
            const std::size_t k = pts.size();
            pts.emplace_back(static_cast<double>(k % side), static_cast<double>(k / side), z);
            break;
        }
        }
    }
    return pts;
}

void BM_Hull(benchmark::State& state)
{
    const std::vector<CKivPoint3d> pts =
        HullPoints(static_cast<std::size_t>(state.range(0)), static_cast<HullInput>(state.range(1)));
    std::vector<CKivPoint3d> hull;
    for (auto _ : state) {
        benchmark::DoNotOptimize(CKivGeoConvex::Convex(pts, hull));
    }
    state.counters["hull"] = static_cast<double>(hull.size());
}

// Second argument: 0 square, 1 disc, 2 circle (every point on the hull), 3 grid.
BENCHMARK(BM_Hull)
    ->ArgNames({"n", "input"})
    ->Args({1000000, kSquare})
    ->Args({1000000, kDisc})
    ->Args({1000000, kCircle})
    ->Args({1000000, kGrid})
    ->Unit(benchmark::kMillisecond);

} // namespace
