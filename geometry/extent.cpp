#include <kivgeo/extent.h>

CKivExtent2D::~CKivExtent2D() = default;

CKivBaseTriMesh::~CKivBaseTriMesh() = default;
