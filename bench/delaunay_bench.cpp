// TIN building at map coordinates (x about 500000, y about 3000000, a 10 km
// square): random points and a regular grid, timed from the first AddVertex
// to the end of Delaunay(). "delaunay_s" is the Delaunay() call alone.
//
// "peak_MB" is the process's peak resident size (getrusage), which only
// grows: run one size per process for a clean figure, e.g.
//   delaunay_bench --benchmark_filter='Random/1000000'
#include <kivgeo/delaunay.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <chrono>
#include <random>
#include <vector>

namespace {

constexpr double kX0 = 500000.0, kY0 = 3000000.0, kSpan = 10000.0;

double PeakMB()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_maxrss) / 1024.0; // kilobytes on Linux
}

std::vector<CKivPoint3d> RandomPoints(std::size_t n)
{
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(0.0, kSpan);
    std::vector<CKivPoint3d> pts;
    pts.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double x = u(rng), y = u(rng);
        pts.emplace_back(kX0 + x, kY0 + y, 0.01 * x);
    }
    return pts;
}

// Row by row, as a DEM comes.
std::vector<CKivPoint3d> GridPoints(std::size_t side)
{
    std::vector<CKivPoint3d> pts;
    pts.reserve(side * side);
    const double step = kSpan / static_cast<double>(side);
    for (std::size_t j = 0; j < side; ++j) {
        for (std::size_t i = 0; i < side; ++i) {
            pts.emplace_back(kX0 + i * step, kY0 + j * step, 0.001 * i * j);
        }
    }
    return pts;
}

void Build(benchmark::State& state, const std::vector<CKivPoint3d>& pts)
{
    double secDelaunay = 0.0;
    unsigned tris = 0;
    for (auto _ : state) {
        TriMesh::CKivMeshData mesh;
        TriMesh::CKivDelaunay tin(mesh);
        for (const CKivPoint3d& p : pts) {
            tin.AddVertex(p);
        }
        const auto t0 = std::chrono::steady_clock::now();
        const bool ok = tin.Delaunay();
        secDelaunay = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        tris = mesh.TriNum();
        if (!ok) {
            state.SkipWithError("Delaunay() failed");
        }
    }
    state.counters["points"] = static_cast<double>(pts.size());
    state.counters["triangles"] = tris;
    state.counters["delaunay_s"] = secDelaunay;
    state.counters["peak_MB"] = PeakMB();
}

void BM_Random(benchmark::State& state)
{
    Build(state, RandomPoints(static_cast<std::size_t>(state.range(0))));
}

void BM_Grid(benchmark::State& state)
{
    Build(state, GridPoints(static_cast<std::size_t>(state.range(0))));
}

} // namespace

BENCHMARK(BM_Random)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_Grid)->Arg(316)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(1);
