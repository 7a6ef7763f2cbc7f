// kivgeo convert: a surface (or a set of lines) from one format to another.
#include "commands.h"
#include "text_reader.h"

#include <cstdio>

namespace kivcli {

namespace {

struct CKivConvertArgs {
    std::string strIn;
    std::string strOut;
    std::string strName;
    bool bBinary = false;
};

bool IsLinesPath(const std::string& path)
{
    const std::string ext = FileExtension(path);
    return ext == "pl" || ext == "geojson" || ext == "json" || ext == "txt";
}

int RunConvert(const CKivConvertArgs& a)
{
    if (IsLinesPath(a.strIn)) {
        CheckLinesExtension(a.strOut);
        CKivLineData lines = ReadLines(a.strIn);
        if (!a.strName.empty()) {
            lines.info.strName = a.strName;
        }
        WriteLines(a.strOut, lines);
        std::printf("%zu lines written to %s\n", lines.vecLine.size(), a.strOut.c_str());
        return 0;
    }
    CheckSurfaceExtension(a.strIn, false);
    CheckSurfaceExtension(a.strOut, true);
    CKivSurfaceData surf = LoadSurface(a.strIn);
    if (!a.strName.empty()) {
        surf.info.strName = a.strName;
    }
    CKivWriteOptions opt;
    opt.bBinary = a.bBinary;
    WriteSurface(a.strOut, surf, opt);
    std::printf("%zu vertices, %zu triangles written to %s\n", surf.vecPt.size(), surf.vecTri.size(),
                a.strOut.c_str());
    return 0;
}

} // namespace

void AddConvertCommand(CLI::App& app, CKivRun& run)
{
    auto args = std::make_shared<CKivConvertArgs>();
    CLI::App* sub = app.add_subcommand("convert", "Convert a surface (or lines) between formats");
    sub->add_option("input", args->strIn, "surface (.ts .obj .off .ply .stl) or lines (.pl .geojson .txt)")
        ->required();
    sub->add_option("output", args->strOut, "surface (.ts .obj .off .ply .stl .vtk) or lines")->required();
    sub->add_option("--name", args->strName, "object name written into the header (TSurf, PLine, ...)");
    sub->add_flag("--binary", args->bBinary, "binary PLY or STL (STL keeps only single precision)");
    SetExample(sub, "kivgeo convert top.ts top.ply --binary");
    sub->callback([args, &run]() { run = [args]() { return RunConvert(*args); }; });
}

} // namespace kivcli
