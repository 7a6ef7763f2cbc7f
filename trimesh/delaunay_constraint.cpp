// Constraint lines, hole lines and the outline of the triangulator: placeholder
// bodies until the constraint forcing lands.
#include <kivgeo/delaunay.h>

namespace TriMesh {

bool CKivDelaunay::AddSegYS(const std::vector<CKivPoint3d>&, bool)
{
    return false;
}
bool CKivDelaunay::AddHoleLine(const std::vector<CKivPoint3d>&)
{
    return false;
}
bool CKivDelaunay::SetOutline(const std::vector<CKivPoint3d>&)
{
    return false;
}
void CKivDelaunay::DealSegYS(const _sSeg*) {}
bool CKivDelaunay::GetSegYsPoly(_sVertex*, _sVertex*, std::vector<_sVertex*>&, std::vector<_sVertex*>&, _sVertex*&)
{
    return false;
}
bool CKivDelaunay::TriPolyDelaunay(std::vector<_sVertex*>&)
{
    return false;
}
_sTri* CKivDelaunay::FindNextTri(_sTri*, const _sVertex*, const _sVertex*, double, double, double, double)
{
    return nullptr;
}
void CKivDelaunay::FillHullPockets() {}
void CKivDelaunay::DigHolesAndOutline() {}

} // namespace TriMesh
