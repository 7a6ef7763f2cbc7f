// kivgeo info: what a surface file holds.
#include "commands.h"
#include "surface_stats.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <iostream>

namespace kivcli {

namespace {

struct CKivInfoArgs {
    std::string strIn;
    bool bJson = false;
};

int RunInfo(const CKivInfoArgs& a)
{
    const CKivSurfaceData surf = LoadSurface(a.strIn);
    const CKivSurfaceStats s = ComputeStats(surf);
    std::size_t nClosedLoops = 0;
    for (const CKivPolyLine& pl : s.vecLoop) {
        nClosedLoops += pl.IsClosed() ? 1 : 0;
    }
    if (a.bJson) {
        nlohmann::json loops = nlohmann::json::array();
        for (const CKivPolyLine& pl : s.vecLoop) {
            loops.push_back({{"vertices", pl.NumVerts()},
                             {"closed", pl.IsClosed()},
                             {"length", pl.GetLength()},
                             {"plan_area", std::fabs(pl.GetArea())}});
        }
        const nlohmann::json j = {{"file", a.strIn},
                                  {"name", surf.info.strName},
                                  {"vertices", s.nVertices},
                                  {"unused_vertices", s.nUnusedVertices},
                                  {"triangles", s.nTriangles},
                                  {"parts", s.nParts},
                                  {"degenerate_triangles", s.nDegenerate},
                                  {"min", {s.ptMin.x, s.ptMin.y, s.ptMin.z}},
                                  {"max", {s.ptMax.x, s.ptMax.y, s.ptMax.z}},
                                  {"plan_area", s.dPlanArea},
                                  {"area", s.dArea},
                                  {"edges", s.nEdges},
                                  {"boundary_edges", s.nBoundaryEdges},
                                  {"non_manifold_edges", s.nNonManifoldEdges},
                                  {"closed", s.bClosed},
                                  {"oriented", s.bOriented},
                                  {"boundary_loops", loops}};
        std::cout << j.dump(2) << '\n';
        return 0;
    }
    std::printf("file        %s\n", a.strIn.c_str());
    if (!surf.info.strName.empty()) {
        std::printf("name        %s\n", surf.info.strName.c_str());
    }
    std::printf("vertices    %zu", s.nVertices);
    if (s.nUnusedVertices > 0) {
        std::printf(" (%zu used by no triangle)", s.nUnusedVertices);
    }
    std::printf("\ntriangles   %zu in %zu part%s", s.nTriangles, s.nParts, s.nParts == 1 ? "" : "s");
    if (s.nDegenerate > 0) {
        std::printf(" (%zu degenerate)", s.nDegenerate);
    }
    std::printf("\nextent x    %.3f .. %.3f\n", s.ptMin.x, s.ptMax.x);
    std::printf("       y    %.3f .. %.3f\n", s.ptMin.y, s.ptMax.y);
    std::printf("       z    %.3f .. %.3f\n", s.ptMin.z, s.ptMax.z);
    std::printf("plan area   %.3f\n", s.dPlanArea);
    std::printf("area        %.3f\n", s.dArea);
    std::printf("boundary    %zu edges in %zu loop%s (%zu closed)\n", s.nBoundaryEdges, s.vecLoop.size(),
                s.vecLoop.size() == 1 ? "" : "s", nClosedLoops);
    for (std::size_t i = 0; i < s.vecLoop.size() && i < 10; ++i) {
        const CKivPolyLine& pl = s.vecLoop[i];
        std::printf("  loop %zu: %u vertices, length %.3f%s\n", i + 1, pl.NumVerts(), pl.GetLength(),
                    pl.IsClosed() ? "" : ", open");
    }
    if (s.vecLoop.size() > 10) {
        std::printf("  ... %zu more\n", s.vecLoop.size() - 10);
    }
    if (s.nNonManifoldEdges > 0) {
        std::printf("non-manifold edges  %zu\n", s.nNonManifoldEdges);
    }
    std::printf("closed      %s\n", s.bClosed ? "yes" : "no");
    std::printf("oriented    %s", s.bOriented ? "yes (consistently)" : "no");
    if (s.nFlippedEdges > 0) {
        std::printf(" (%zu edges shared by triangles facing opposite ways)", s.nFlippedEdges);
    }
    std::printf("\n");
    return 0;
}

} // namespace

void AddInfoCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivInfoArgs>();
    CLI::App* sub = app.add_subcommand("info", "Counts, extent, areas, boundary loops, closed and oriented");
    sub->add_option("surface", args->strIn, "surface file (.ts .obj .off .ply .stl)")->required();
    sub->add_flag("--json", args->bJson, "print as JSON");
    SetExample(sub, "kivgeo info top.ts");
    sub->callback([args, &run]() { run = [args]() { return RunInfo(*args); }; });
}

} // namespace kivcli
