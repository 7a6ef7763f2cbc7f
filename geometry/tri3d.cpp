#include <kivgeo/tri3d.h>

#include <utility>

CKivTri3d::~CKivTri3d() = default;

void CKivTri3d::Invert() { std::swap(m_pt[0], m_pt[1]); }
