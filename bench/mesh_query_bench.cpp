// Surface queries on large surfaces: elevation at 10^6 plan positions on a
// triangulated TIN of 10^6 points, its outline, draping a 10,000-vertex
// polyline, and the inside/outside test against a closed surface of 10^5
// triangles.
#include <kivgeo/delaunay.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/mesh_query.h>

#include "trimesh/plan_index.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace TriMesh {
// Access to the mesh's octree and triangle list, to time the plan grid alone.
class CKivMeshDataInspector {
public:
    static std::size_t BuildPlanIndex(const CKivMeshData& m, std::size_t& bytes)
    {
        const CKivPlanIndex grid(m.m_vecTri, *m.m_pOctTree);
        bytes = grid.MemoryBytes();
        return grid.EntryCount();
    }
    // Candidates the octree searches went through since the last change, and
    // whether the plan grid has been built.
    static std::size_t PlanWork(const CKivMeshData& m) { return m.m_nPlanWork.load(); }
    static bool HasPlanIndex(const CKivMeshData& m) { return m.m_pPlanIndex.load() != nullptr; }
};
} // namespace TriMesh

namespace {

constexpr double kSide = 10000.0; // the TIN covers [0, kSide]^2
constexpr int kTinPoints = 1000000;
constexpr int kQueries = 1000000;

double Terrain(double x, double y)
{
    return 300.0 + 40.0 * std::sin(x * 0.003) * std::cos(y * 0.002) + 0.01 * x;
}

// Built once: Delaunay of 10^6 random points. The triangulator leaves the
// extent (and so the octree's root box) reaching out to the corners of its
// bounding triangle, which is the case the elevation query must handle.
TriMesh::CKivMeshData& Tin()
{
    static std::unique_ptr<TriMesh::CKivMeshData> mesh;
    if (!mesh) {
        mesh.reset(new TriMesh::CKivMeshData);
        TriMesh::CKivDelaunay tin(*mesh);
        std::mt19937_64 rng(7);
        std::uniform_real_distribution<double> u(0.0, kSide);
        for (int i = 0; i < kTinPoints; ++i) {
            const double x = u(rng), y = u(rng);
            tin.AddVertex(CKivPoint3d(x, y, Terrain(x, y)));
        }
        if (!tin.Delaunay()) {
            mesh->ClearAllData();
        }
    }
    return *mesh;
}

std::vector<CKivPoint3d> RandomPositions(int n)
{
    std::mt19937_64 rng(9);
    std::uniform_real_distribution<double> u(0.0, kSide);
    std::vector<CKivPoint3d> p(static_cast<std::size_t>(n));
    for (CKivPoint3d& q : p) {
        q = CKivPoint3d(u(rng), u(rng), 0.0);
    }
    return p;
}

// Row by row, as a raster of the surface is sampled.
std::vector<CKivPoint3d> RowPositions(int n)
{
    const int side = static_cast<int>(std::sqrt(static_cast<double>(n)));
    std::vector<CKivPoint3d> p;
    p.reserve(static_cast<std::size_t>(side) * side);
    for (int j = 0; j < side; ++j) {
        for (int i = 0; i < side; ++i) {
            p.emplace_back((i + 0.5) * kSide / side, (j + 0.5) * kSide / side, 0.0);
        }
    }
    return p;
}

void RunMapPoints(benchmark::State& state, const std::vector<CKivPoint3d>& pts, bool fresh)
{
    TriMesh::CKivMeshData& mesh = Tin();
    if (mesh.TriNum() == 0) {
        state.SkipWithError("triangulation failed");
        return;
    }
    std::size_t hits = 0;
    for (auto _ : state) {
        if (fresh) {
            // Drops the plan grid, so the first queries run on the octree and
            // the grid is built within the timed loop.
            state.PauseTiming();
            mesh.InputData(std::vector<CKivTri3d>(), false);
            state.ResumeTiming();
        }
        const TriMesh::CKivMeshQuery q(mesh);
        for (const CKivPoint3d& p : pts) {
            double z;
            hits += q.GetMapPoint(p.x, p.y, z);
        }
    }
    state.counters["octree candidates"] = static_cast<double>(TriMesh::CKivMeshDataInspector::PlanWork(mesh));
    state.counters["grid built"] = TriMesh::CKivMeshDataInspector::HasPlanIndex(mesh);
    state.counters["hit share"] =
        static_cast<double>(hits) / (static_cast<double>(state.iterations()) * static_cast<double>(pts.size()));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(pts.size()));
}

void BM_MapPointRandom(benchmark::State& state)
{
    static const std::vector<CKivPoint3d> pts = RandomPositions(kQueries);
    RunMapPoints(state, pts, false);
}

void BM_MapPointRandomFromScratch(benchmark::State& state)
{
    static const std::vector<CKivPoint3d> pts = RandomPositions(kQueries);
    RunMapPoints(state, pts, true);
}

// The first few queries after the mesh changed: a user triangulates, then
// asks a handful of elevations.
void BM_MapPointFirstFew(benchmark::State& state)
{
    static const std::vector<CKivPoint3d> all = RandomPositions(kQueries);
    const std::vector<CKivPoint3d> pts(all.begin(), all.begin() + state.range(0));
    RunMapPoints(state, pts, true);
}

void BM_MapPointRows(benchmark::State& state)
{
    static const std::vector<CKivPoint3d> pts = RowPositions(kQueries);
    RunMapPoints(state, pts, false);
}

void BM_PlanGridBuild(benchmark::State& state)
{
    TriMesh::CKivMeshData& mesh = Tin();
    std::size_t entries = 0, bytes = 0;
    for (auto _ : state) {
        entries = TriMesh::CKivMeshDataInspector::BuildPlanIndex(mesh, bytes);
    }
    state.counters["entries"] = static_cast<double>(entries);
    state.counters["bytes per triangle"] = static_cast<double>(bytes) / mesh.TriNum();
}

void BM_Outline(benchmark::State& state)
{
    TriMesh::CKivMeshData& mesh = Tin();
    std::size_t verts = 0;
    for (auto _ : state) {
        TriMesh::CKivMeshQuery q(mesh);
        CKivPolyLine outline;
        q.GetOutline(outline);
        verts = outline.NumVerts();
    }
    state.counters["outline vertices"] = static_cast<double>(verts);
    state.counters["triangles"] = mesh.TriNum();
}

void BM_DrapePolyline(benchmark::State& state)
{
    TriMesh::CKivMeshData& mesh = Tin();
    // A winding section line of 10,000 vertices across the whole TIN, about
    // one unit between vertices (the triangles are some ten units across).
    std::vector<CKivPoint3d> line;
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> wobble(-0.3, 0.3);
    for (int i = 0; i < 10000; ++i) {
        const double t = (i + 0.5) / 10000.0;
        line.emplace_back(t * kSide, 0.5 * kSide + 0.3 * kSide * std::sin(6.0 * t) + wobble(rng), 0.0);
    }
    std::size_t pieces = 0;
    for (auto _ : state) {
        TriMesh::CKivMeshQuery q(mesh);
        std::vector<CKivPolyLine> out;
        q.GetMapPolyline(line, false, out);
        std::size_t n = 0;
        for (const CKivPolyLine& l : out) {
            n += l.NumVerts();
        }
        pieces = n;
    }
    state.counters["draped vertices"] = static_cast<double>(pieces);
}

// A closed sphere of about 10^5 outward-facing triangles.
TriMesh::CKivMeshData& Sphere()
{
    static std::unique_ptr<TriMesh::CKivMeshData> mesh;
    if (!mesh) {
        const int slices = 316, stacks = 159;
        const double r = 100.0, pi = 3.141592653589793;
        const auto at = [&](int i, int j) {
            const double th = pi * j / stacks, ph = 2.0 * pi * (i % slices) / slices;
            if (j == 0) {
                return CKivPoint3d(0.0, 0.0, r);
            }
            if (j == stacks) {
                return CKivPoint3d(0.0, 0.0, -r);
            }
            return CKivPoint3d(r * std::sin(th) * std::cos(ph), r * std::sin(th) * std::sin(ph), r * std::cos(th));
        };
        std::vector<CKivTri3d> tris;
        for (int j = 0; j < stacks; ++j) {
            for (int i = 0; i < slices; ++i) {
                if (j > 0) {
                    tris.emplace_back(at(i + 1, j), at(i, j), at(i + 1, j + 1));
                }
                if (j + 1 < stacks) {
                    tris.emplace_back(at(i + 1, j + 1), at(i, j), at(i, j + 1));
                }
            }
        }
        mesh.reset(new TriMesh::CKivMeshData);
        mesh->InputData(tris, true);
    }
    return *mesh;
}

void BM_HitTestPt(benchmark::State& state)
{
    TriMesh::CKivMeshData& mesh = Sphere();
    std::mt19937_64 rng(5);
    std::uniform_real_distribution<double> u(-150.0, 150.0);
    std::vector<CKivPoint3d> pts;
    for (int i = 0; i < 100000; ++i) {
        pts.emplace_back(u(rng), u(rng), u(rng));
    }
    std::size_t inside = 0;
    for (auto _ : state) {
        const TriMesh::CKivMeshQuery q(mesh);
        inside = 0;
        for (const CKivPoint3d& p : pts) {
            inside += q.HitTestPt(p) == TriMesh::CKivMeshQuery::eHitInside;
        }
    }
    state.counters["triangles"] = mesh.TriNum();
    state.counters["inside"] = static_cast<double>(inside);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 100000);
}

} // namespace

BENCHMARK(BM_MapPointRandomFromScratch)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_MapPointFirstFew)->Unit(benchmark::kMillisecond)->Arg(1)->Arg(100)->Arg(10000)->Iterations(3);
BENCHMARK(BM_MapPointRandom)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_MapPointRows)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlanGridBuild)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Outline)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_DrapePolyline)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_HitTestPt)->Unit(benchmark::kMillisecond)->Iterations(1);
