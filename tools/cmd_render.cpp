// kivgeo render: a plan-view picture of a surface.
#include "commands.h"
#include "render.h"
#include "text_reader.h"

#include <cstdio>

namespace kivcli {

namespace {

struct CKivRenderArgs {
    std::string strIn;
    std::string strOut;
    std::vector<std::string> vecLines;
    double dContour = 0.0;
    int nWidth = 1000;
    bool bNoOutline = false;
    bool bNoEdges = false;
    std::string strTitle;
};

int RunRender(const CKivRenderArgs& a)
{
    CheckPictureExtension(a.strOut);
    for (const std::string& l : a.vecLines) {
        CheckLinesExtension(l);
    }
    const CKivSurfaceData surf = LoadSurface(a.strIn);
    CKivRenderOptions opt;
    opt.nWidth = a.nWidth;
    opt.dContour = a.dContour;
    opt.bOutline = !a.bNoOutline;
    opt.bEdges = !a.bNoEdges;
    opt.strTitle = a.strTitle.empty() ? (surf.info.strName.empty() ? a.strIn : surf.info.strName) : a.strTitle;
    for (const std::string& l : a.vecLines) {
        opt.vecLineGroups.push_back(ReadLines(l).vecLine);
        const std::size_t slash = l.find_last_of('/');
        opt.vecLineLabels.push_back(slash == std::string::npos ? l : l.substr(slash + 1));
    }
    RenderSurface(a.strOut, surf, opt);
    std::printf("%zu triangles drawn to %s\n", surf.vecTri.size(), a.strOut.c_str());
    return 0;
}

} // namespace

void AddRenderCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivRenderArgs>();
    CLI::App* sub = app.add_subcommand("render", "Plan-view picture (PNG or SVG) shaded by elevation");
    sub->add_option("surface", args->strIn, "surface file (.ts .obj .off .ply .stl)")->required();
    sub->add_option("-o,--output", args->strOut, "picture (.png or .svg)")->required();
    sub->add_option("-l,--lines", args->vecLines, "lines to draw on top (.pl .geojson .txt); repeatable");
    sub->add_option("-c,--contour", args->dContour, "contour interval in elevation units")
        ->check(CLI::NonNegativeNumber);
    sub->add_option("-w,--width", args->nWidth, "picture width in pixels")
        ->check(CLI::Range(200, 8000))
        ->capture_default_str();
    sub->add_option("--title", args->strTitle, "title (default: the surface's name)");
    sub->add_flag("--no-outline", args->bNoOutline, "do not draw the boundary");
    sub->add_flag("--no-edges", args->bNoEdges, "do not draw triangle edges");
    SetExample(sub, "kivgeo render top.ts -c 5 -l data/fault.pl -o top.png");
    sub->callback([args, &run]() { run = [args]() { return RunRender(*args); }; });
}

} // namespace kivcli
