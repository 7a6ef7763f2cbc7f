#include "drape.h"

#include <kivgeo/mesh_query.h>
#include <kivgeo/seg3d.h>

namespace kivcli {

void DrapeLines(const TriMesh::CKivMeshData& mesh, const std::vector<CKivPolyLine>& lines,
                std::vector<CKivPolyLine>& out)
{
    const TriMesh::CKivMeshQuery query(mesh);
    for (const CKivPolyLine& pl : lines) {
        std::vector<CKivPoint3d> pts;
        pl.OutputData(pts);
        std::vector<CKivPolyLine> pieces;
        if (query.GetMapPolyline(pts, pl.IsClosed(), pieces)) {
            out.insert(out.end(), pieces.begin(), pieces.end());
            continue;
        }
        // Linking needs two segments; a line that crosses a single triangle
        // comes back as one segment.
        std::vector<CKivSeg3d> segs;
        if (query.GetMapPolyline(pts, pl.IsClosed(), segs) && segs.size() == 1) {
            CKivPolyLine one;
            one.AddVertex(segs[0].m_pt[0]);
            one.AddVertex(segs[0].m_pt[1]);
            out.push_back(one);
        }
    }
}

} // namespace kivcli
