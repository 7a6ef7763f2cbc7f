// kivgeo tin: scattered points, constraint lines, holes and an outline to a
// triangulated surface.
#include "commands.h"
#include "progress.h"
#include "tin_build.h"

#include <cstdio>

namespace kivcli {

namespace {

struct CKivTinArgs {
    CKivTinInput input;
    std::string strOut;
    std::string strName;
    bool bBinary = false;
};

int RunTin(CKivTinArgs a)
{
    CheckSurfaceExtension(a.strOut, true);
    const CKivTinResult res = BuildTin(a.input);
    CKivSurfaceData surf = res.surf;
    surf.info.strName = a.strName.empty() ? "surface" : a.strName;
    CKivWriteOptions opt;
    opt.bBinary = a.bBinary;
    WriteSurface(a.strOut, surf, opt);
    std::printf("tin: %zu points (%zu merged within 0.01), %zu constraint lines, %zu holes%s -> %zu vertices, "
                "%zu triangles in %.3f s\n",
                res.nInputPoints, res.nInputPoints - res.nDistinctPoints, res.nConstraintLines, res.nHoles,
                res.bOutline ? ", outline" : "", surf.vecPt.size(), surf.vecTri.size(), res.dSeconds);
    return 0;
}

} // namespace

void AddTinCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivTinArgs>();
    CLI::App* sub = app.add_subcommand("tin", "Triangulate points with constraint lines, holes and an outline");
    sub->add_option("points", args->input.strPoints, "points (.xyz .csv .pts)")->required();
    sub->add_option("-o,--output", args->strOut, "surface (.ts .obj .off .ply .stl .vtk)")->required();
    sub->add_option("-c,--constraint", args->input.vecConstraints,
                    "lines forced into the surface as edges (.pl .geojson .txt); repeatable");
    sub->add_option("--hole", args->input.vecHoles, "closed lines whose inside is removed; repeatable");
    sub->add_option("--outline", args->input.strOutline, "closed line outside which everything is removed");
    sub->add_option("--name", args->strName, "surface name written into the header");
    sub->add_flag("--legacy-hull", args->input.bLegacyHull,
                  "keep the classic result, which may leave thin gaps along the convex hull");
    sub->add_flag("--binary", args->bBinary, "binary PLY or STL");
    SetExample(sub, "kivgeo tin data/boreholes.xyz -c data/outcrop.pl -c data/fault.pl --hole data/hole.txt "
                    "--outline data/outline.geojson -o top.ts");
    sub->callback([args, &run]() { run = [args]() { return RunTin(*args); }; });
}

} // namespace kivcli
