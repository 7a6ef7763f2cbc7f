// A first look at the library: reads plan points (x y z per line) and reports
// their extent and the circle through the first three.
#include <kivgeo/kivgeo.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: kivgeo_example POINTS.xyz\n");
        return 2;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::fprintf(stderr, "%s: cannot open\n", argv[1]);
        return 2;
    }
    std::vector<CKivPoint3d> pts;
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream ss(line);
        double x, y, z;
        if (!(ss >> x >> y >> z)) {
            std::fprintf(stderr, "%s:%d: expected three numbers x y z\n", argv[1], lineNo);
            return 2;
        }
        pts.emplace_back(x, y, z);
    }
    if (pts.size() < 3) {
        std::fprintf(stderr, "%s: need at least three points\n", argv[1]);
        return 2;
    }
    CKivPoint3d lo = pts[0], hi = pts[0];
    for (const CKivPoint3d& p : pts) {
        lo.Set(std::min(lo.x, p.x), std::min(lo.y, p.y), std::min(lo.z, p.z));
        hi.Set(std::max(hi.x, p.x), std::max(hi.y, p.y), std::max(hi.z, p.z));
    }
    std::printf("%zu points\nextent x %.3f .. %.3f, y %.3f .. %.3f, z %.3f .. %.3f\n", pts.size(), lo.x, hi.x,
                lo.y, hi.y, lo.z, hi.z);
    double r, cx, cy;
    if (CKivPoint3d::Get_3P_Circle(pts[0].x, pts[0].y, pts[1].x, pts[1].y, pts[2].x, pts[2].y, r, cx, cy)) {
        std::printf("circle through the first three points: centre (%.3f, %.3f), radius %.3f\n", cx, cy, r);
    } else {
        std::printf("the first three points are collinear\n");
    }
    return 0;
}
