#include "tin_build.h"

#include "commands.h"
#include "io_error.h"
#include "progress.h"

#include <kivgeo/delaunay.h>

namespace kivcli {

CKivTinResult BuildTin(const CKivTinInput& in)
{
    // Check every name before reading anything.
    CheckPointsExtension(in.strPoints);
    for (const std::string& p : in.vecConstraints) {
        CheckLinesExtension(p);
    }
    for (const std::string& p : in.vecHoles) {
        CheckLinesExtension(p);
    }
    if (!in.strOutline.empty()) {
        CheckLinesExtension(in.strOutline);
    }
    CKivTinResult res;
    const std::vector<CKivPoint3d> pts = LoadPoints(in.strPoints);
    std::vector<CKivLineData> constraints, holes;
    for (const std::string& p : in.vecConstraints) {
        constraints.push_back(ReadLines(p));
    }
    for (const std::string& p : in.vecHoles) {
        holes.push_back(ReadLines(p));
        for (const CKivPolyLine& pl : holes.back().vecLine) {
            if (pl.NumVerts() < 3) {
                throw CKivIoError(p, 0, "expected closed rings of at least 3 points for holes");
            }
        }
    }
    CKivLineData outline;
    if (!in.strOutline.empty()) {
        outline = ReadLines(in.strOutline);
        if (outline.vecLine.size() != 1 || outline.vecLine[0].NumVerts() < 3) {
            throw CKivIoError(in.strOutline, 0,
                              "expected exactly one closed ring of at least 3 points as outline");
        }
    }

    CKivStopwatch clock;
    TriMesh::CKivMeshData mesh;
    TriMesh::CKivDelaunay tin(mesh);
    for (const CKivPoint3d& p : pts) {
        tin.AddVertex(p);
    }
    res.nInputPoints = pts.size();
    {
        std::vector<CKivPoint3d> v;
        mesh.OutputPoints(v);
        res.nDistinctPoints = v.size();
    }
    for (const CKivLineData& lines : constraints) {
        for (const CKivPolyLine& pl : lines.vecLine) {
            tin.AddSegYS(LinePoints(pl), pl.IsClosed());
            ++res.nConstraintLines;
        }
    }
    for (const CKivLineData& lines : holes) {
        for (const CKivPolyLine& pl : lines.vecLine) {
            tin.AddHoleLine(LinePoints(pl));
            ++res.nHoles;
        }
    }
    if (!outline.vecLine.empty()) {
        tin.SetOutline(LinePoints(outline.vecLine[0]));
        res.bOutline = true;
    }
    tin.SetCoverHull(!in.bLegacyHull);
    bool ok = false;
    {
        CKivProgress bar("triangulating");
        tin.SetProgress(bar.Callback());
        ok = tin.Delaunay();
        tin.SetProgress(nullptr);
    }
    if (!ok) {
        throw CKivIoError(in.strPoints, 0,
                          "cannot triangulate: expected at least 3 distinct points not all on one line");
    }
    // The triangulator leaves its bounding vertices without triangles.
    mesh.ClearVoidVet();
    res.surf = MeshToSurface(mesh);
    res.dSeconds = clock.Seconds();
    if (res.surf.vecTri.empty()) {
        throw CKivIoError(in.strPoints, 0, "no triangle left (is the outline around the points?)");
    }
    return res;
}

} // namespace kivcli
