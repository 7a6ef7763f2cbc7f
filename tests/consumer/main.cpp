// A separate program built against the installed package.
#include <kivgeo/kivgeo.h>

#include <cstdio>

int main()
{
    CKivTri3d tri(CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(2.0, 0.0, 0.0), CKivPoint3d(0.0, 2.0, 0.0));
    double r = 0.0, cx = 0.0, cy = 0.0;
    if (!CKivPoint3d::Get_3P_Circle(tri.m_pt[0].x, tri.m_pt[0].y, tri.m_pt[1].x, tri.m_pt[1].y, tri.m_pt[2].x,
                                    tri.m_pt[2].y, r, cx, cy)) {
        return 1;
    }
    std::printf("centre %.3f %.3f radius %.6f\n", cx, cy, r);
    return (CompDouble(cx, 1.0) == 0 && CompDouble(cy, 1.0) == 0) ? 0 : 1;
}
