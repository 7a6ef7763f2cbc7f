// Triangle value: three corners whose order gives the orientation
// (counter-clockwise seen from above means the normal (p1-p0)^(p2-p0) points up).
#ifndef KIVGEO_TRI3D_H
#define KIVGEO_TRI3D_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

class KIVGEO_API CKivTri3d {
public:
    CKivTri3d() = default;
    CKivTri3d(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c) : m_pt{a, b, c} {}
    CKivTri3d(const CKivTri3d& o) = default;
    CKivTri3d& operator=(const CKivTri3d& o) = default;
    virtual ~CKivTri3d();

    // Reverses the orientation by swapping corners 0 and 1.
    void Invert();

    CKivPoint3d m_pt[3];
};

#endif
