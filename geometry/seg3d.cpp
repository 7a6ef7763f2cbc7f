#include <kivgeo/seg3d.h>
#include <kivgeo/spacemath.h>

#include <cmath>

CKivSeg3d::~CKivSeg3d() = default;

bool CKivSeg3d::IsSameSeg(const CKivPoint3d& a1, const CKivPoint3d& a2, const CKivPoint3d& b1,
                          const CKivPoint3d& b2)
{
    if (a1 == b1 && a2 == b2) {
        return true;
    }
    return a2 == b1 && a1 == b2;
}

bool CKivSeg3d::IsSamePlane(const CKivSeg3d& s, const CKivSeg3d& t)
{
    if (CKivPoint3d::IsConllinear(s.m_pt[0], s.m_pt[1], t.m_pt[0]) ||
        CKivPoint3d::IsConllinear(s.m_pt[0], s.m_pt[1], t.m_pt[1]) ||
        CKivPoint3d::IsConllinear(t.m_pt[0], t.m_pt[1], s.m_pt[0]) ||
        CKivPoint3d::IsConllinear(t.m_pt[0], t.m_pt[1], s.m_pt[1])) {
        return true;
    }
    CGeoVector n;
    double d = 0.0;
    if (!CKivSpaceMath::PlaneFromPoints(s.m_pt[0], s.m_pt[1], t.m_pt[0], n, d)) {
        return false; // unreachable after the collinearity tests, short of NaN
    }
    const double v = n * CGeoVector(t.m_pt[1]) + d;
    return !(v < -1e-6) && !(v > 1e-6) && !std::isnan(v);
}
