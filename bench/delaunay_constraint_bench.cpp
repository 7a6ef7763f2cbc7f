// The constrained TIN: 10^5 random points in UTM-like coordinates (a 10 km
// square at x = 500000, y = 3000000) with about 2,000 non-crossing
// constraint segments, an outline and a few holes; the same points without
// constraints for comparison. Peak memory is the process's maximum resident
// size after the runs (ru_maxrss), so run one benchmark at a time with
// --benchmark_filter for a per-case figure.
#include <kivgeo/delaunay.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using Pts = std::vector<CKivPoint3d>;

constexpr double kX0 = 500000.0, kY0 = 3000000.0, kSize = 10000.0;

struct SCase {
    Pts points;
    std::vector<Pts> lines;
    std::vector<Pts> holes;
    Pts outline;
};

Pts Ring(double cx, double cy, double r, int n)
{
    Pts p;
    for (int i = 0; i < n; ++i) {
        const double a = 6.283185307179586 * i / n;
        p.emplace_back(cx + r * std::cos(a), cy + r * std::sin(a), 0.0);
    }
    return p;
}

// 50 wavy lines of 40 segments, 100 m apart, inside a 64-gon outline; three
// holes above the lines.
SCase MakeCase(std::size_t n, bool constrained)
{
    SCase c;
    std::mt19937_64 rng(17);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    c.points.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        c.points.emplace_back(kX0 + kSize * u(rng), kY0 + kSize * u(rng), 100.0 * u(rng));
    }
    if (!constrained) {
        return c;
    }
    const double cx = kX0 + 0.5 * kSize, cy = kY0 + 0.5 * kSize, r = 0.49 * kSize;
    c.outline = Ring(cx, cy, r, 64);
    for (int k = 0; k < 50; ++k) {
        const double y = kY0 + 1000.0 + 100.0 * k;
        const double half = std::sqrt(r * r - (y - cy) * (y - cy)) - 300.0;
        Pts line;
        for (int j = 0; j <= 40; ++j) {
            line.emplace_back(cx - half + 2.0 * half * j / 40.0, y + 40.0 * (u(rng) - 0.5), 0.0);
        }
        c.lines.push_back(line);
    }
    for (int h = 0; h < 3; ++h) {
        c.holes.push_back(Ring(kX0 + 2500.0 * (h + 1), kY0 + 7600.0, 500.0, 16));
    }
    return c;
}

long PeakRssKb()
{
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

void Run(benchmark::State& state, bool constrained, bool cover)
{
    const SCase c = MakeCase(static_cast<std::size_t>(state.range(0)), constrained);
    std::size_t tris = 0;
    for (auto _ : state) {
        TriMesh::CKivMeshData mesh;
        TriMesh::CKivDelaunay tin(mesh);
        tin.SetCoverHull(cover);
        for (const CKivPoint3d& p : c.points) {
            tin.AddVertex(p);
        }
        for (const Pts& l : c.lines) {
            tin.AddSegYS(l, false);
        }
        for (const Pts& h : c.holes) {
            tin.AddHoleLine(h);
        }
        if (!c.outline.empty()) {
            tin.SetOutline(c.outline);
        }
        benchmark::DoNotOptimize(tin.Delaunay());
        tris = mesh.TriNum();
    }
    state.counters["triangles"] = static_cast<double>(tris);
    state.counters["segments"] =
        static_cast<double>(c.lines.size() * 40 + c.holes.size() * 16 + 64 * !c.outline.empty());
    state.counters["peak_MB"] = static_cast<double>(PeakRssKb()) / 1024.0;
}

void BM_Unconstrained(benchmark::State& state)
{
    Run(state, false, false);
}
void BM_Constrained(benchmark::State& state)
{
    Run(state, true, false);
}
void BM_ConstrainedCoverHull(benchmark::State& state)
{
    Run(state, true, true);
}
void BM_UnconstrainedCoverHull(benchmark::State& state)
{
    Run(state, false, true);
}

// A long thin input: points along a zig-zag line. Nearly every triangle of
// the core run uses a bounding vertex, so the full-hull option has to wrap
// almost all of them again.
void BM_CoverHullZigZag(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    std::vector<CKivPoint3d> pts;
    for (int i = 0; i < n; ++i) {
        pts.emplace_back(kX0 + 10.0 * i, kY0 + ((i % 2) ? 3.0 : 0.0) + 1e-3 * (i % 7), 0.0);
    }
    std::size_t tris = 0;
    for (auto _ : state) {
        TriMesh::CKivMeshData mesh;
        TriMesh::CKivDelaunay tin(mesh);
        tin.SetCoverHull(true);
        for (const CKivPoint3d& p : pts) {
            tin.AddVertex(p);
        }
        benchmark::DoNotOptimize(tin.Delaunay());
        tris = mesh.TriNum();
    }
    state.counters["triangles"] = static_cast<double>(tris);
}

} // namespace

BENCHMARK(BM_Unconstrained)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Constrained)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConstrainedCoverHull)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnconstrainedCoverHull)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CoverHullZigZag)->Arg(2000)->Arg(8000)->Arg(32000)->Unit(benchmark::kMillisecond);
