// Plan-view pictures of a surface (PNG or SVG by extension): triangles shaded
// by elevation with a colour bar, optional contours, the boundary and extra
// lines (constraints, sections) on top.
#ifndef KIVGEO_TOOLS_RENDER_H
#define KIVGEO_TOOLS_RENDER_H

#include "formats.h"

#include <string>
#include <vector>

namespace kivcli {

struct CKivRenderOptions {
    // Width of the picture in pixels (points for SVG); the height follows
    // the surface's aspect ratio.
    int nWidth = 1000;
    // Contour interval; 0 draws none.
    double dContour = 0.0;
    bool bOutline = true;
    // Draw triangle edges (only where triangles are large enough to see).
    bool bEdges = true;
    std::string strTitle;
    // Drawn in order, each group in its own colour.
    std::vector<std::vector<CKivPolyLine>> vecLineGroups;
    std::vector<std::string> vecLineLabels;
};

void CheckPictureExtension(const std::string& path);
void RenderSurface(const std::string& path, const CKivSurfaceData& surf, const CKivRenderOptions& opt);

// Contour segments of level z through one triangle; false when the level
// does not cross it. Exposed for tests.
bool ContourSegment(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c, double z, CKivPoint3d& p,
                    CKivPoint3d& q);

} // namespace kivcli

#endif
