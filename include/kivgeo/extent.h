// Interface-completeness classes of the host application. Nothing in the
// library creates or uses them.
#ifndef KIVGEO_EXTENT_H
#define KIVGEO_EXTENT_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

#include <vector>

class KIVGEO_API CKivExtent2D {
public:
    virtual ~CKivExtent2D();

    CKivPoint3d m_ptMin;
    CKivPoint3d m_ptMax;
};

class KIVGEO_API CKivBaseTriMesh {
public:
    virtual ~CKivBaseTriMesh();

    std::vector<CKivPoint3d> m_vVertex;
    std::vector<int> m_vTriIndex;
    std::vector<int> m_vSegIndex;
};

#endif
