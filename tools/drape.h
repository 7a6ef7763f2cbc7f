// Draping plan lines on a mesh, shared by `kivgeo drape` and `kivgeo demo`.
#ifndef KIVGEO_TOOLS_DRAPE_H
#define KIVGEO_TOOLS_DRAPE_H

#include <kivgeo/mesh_data.h>
#include <kivgeo/polyline.h>

#include <vector>

namespace kivcli {

// Appends the pieces of each line that lie over the surface, as 3D lines
// ordered along the input line where the pieces chain.
void DrapeLines(const TriMesh::CKivMeshData& mesh, const std::vector<CKivPolyLine>& lines,
                std::vector<CKivPolyLine>& out);

} // namespace kivcli

#endif
