// Helpers shared by the subcommands.
#include "commands.h"
#include "progress.h"

namespace kivcli {

CKivSurfaceData LoadSurface(const std::string& path)
{
    CKivProgress bar("reading");
    CKivSurfaceData surf = ReadSurface(path, bar.Callback());
    return surf;
}

std::vector<CKivPoint3d> LoadPoints(const std::string& path)
{
    CKivProgress bar("reading");
    return ReadPoints(path, bar.Callback());
}

void BuildMesh(const CKivSurfaceData& surf, TriMesh::CKivMeshData& mesh)
{
    std::vector<CKivTri3d> tris;
    SurfaceToTris(surf, tris);
    mesh.InputData(tris, true);
}

CKivSurfaceData MeshToSurface(const TriMesh::CKivMeshData& mesh)
{
    std::vector<CKivTri3d> tris;
    mesh.OutputData(tris);
    return SurfaceFromTris(tris);
}

std::vector<CKivPoint3d> LinePoints(const CKivPolyLine& pl)
{
    std::vector<CKivPoint3d> pts;
    pl.OutputData(pts);
    return pts;
}

void SetExample(CLI::App* sub, const std::string& example)
{
    sub->footer("Example:\n  " + example);
}

} // namespace kivcli
