// Loading a triangle soup into the mesh store (vertex merging, topology,
// octree) and writing it back out.
#include <kivgeo/mesh_data.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

// A random TIN written out as a soup of about n triangles: a jittered grid
// over a smooth surface with some noise, two triangles per cell, shuffled. Corners are written as the grid holds
// them, so shared corners are bitwise equal, as an exported TIN's are.
std::vector<CKivTri3d> TinSoup(int n, double x0, double y0, double step)
{
    const int nx = static_cast<int>(std::sqrt(n / 2.0));
    const int ny = std::max(1, n / (2 * nx));
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> u(-0.3, 0.3), h(-0.05, 0.05);
    std::vector<CKivPoint3d> g(static_cast<size_t>((nx + 1) * (ny + 1)));
    for (int j = 0; j <= ny; ++j) {
        for (int i = 0; i <= nx; ++i) {
            g[static_cast<size_t>(j * (nx + 1) + i)] =
                CKivPoint3d(x0 + (i + u(rng)) * step, y0 + (j + u(rng)) * step,
                            (20.0 * std::sin(i * 0.013) * std::cos(j * 0.011) + h(rng)) * step);
        }
    }
    const auto at = [&](int i, int j) { return g[static_cast<size_t>(j * (nx + 1) + i)]; };
    std::vector<CKivTri3d> tris;
    tris.reserve(static_cast<size_t>(2 * nx * ny));
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            tris.emplace_back(at(i, j), at(i + 1, j), at(i + 1, j + 1));
            tris.emplace_back(at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
    }
    std::shuffle(tris.begin(), tris.end(), rng);
    return tris;
}

void Run(benchmark::State& state, const std::vector<CKivTri3d>& soup)
{
    // One untimed round first: the small sizes run many rounds, in which
    // the caller's output vector and the freed heap are reused, while the
    // largest runs once and would otherwise also pay every first touch of
    // that memory. Both are then timed in the same steady state.
    std::vector<CKivTri3d> out;
    {
        TriMesh::CKivMeshData m;
        m.InputData(soup, true);
        m.OutputData(out);
    }
    for (auto _ : state) {
        TriMesh::CKivMeshData m;
        m.InputData(soup, true);
        m.OutputData(out);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["tris"] = static_cast<double>(soup.size());
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(soup.size()));
}

// UTM-like map coordinates, 10 m spacing.
void BM_InputOutputUtm(benchmark::State& state)
{
    Run(state, TinSoup(static_cast<int>(state.range(0)), 500000.0, 3000000.0, 10.0));
}
BENCHMARK(BM_InputOutputUtm)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole surface inside a box of 1e-4: coordinates far below 1, where
// point equality is relative.
void BM_InputOutputTiny(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    Run(state, TinSoup(n, 0.0, 0.0, 1e-4 / std::sqrt(n / 2.0)));
}
BENCHMARK(BM_InputOutputTiny)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
