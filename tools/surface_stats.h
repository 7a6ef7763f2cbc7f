// What `kivgeo info` reports about an indexed surface, and its boundary loops
// (also drawn by `kivgeo render`). Works on vertex indices, so coincident but
// distinct vertices (TSurf ATOMs, split seams) do not join.
#ifndef KIVGEO_TOOLS_SURFACE_STATS_H
#define KIVGEO_TOOLS_SURFACE_STATS_H

#include "formats.h"

namespace kivcli {

struct CKivSurfaceStats {
    std::size_t nVertices = 0;
    std::size_t nUnusedVertices = 0;
    std::size_t nTriangles = 0;
    std::size_t nParts = 0;
    // Triangles with a repeated corner or zero plan-and-space area.
    std::size_t nDegenerate = 0;
    CKivPoint3d ptMin;
    CKivPoint3d ptMax;
    // Sum of the triangles' plan areas (absolute) and space areas.
    double dPlanArea = 0.0;
    double dArea = 0.0;
    std::size_t nEdges = 0;
    std::size_t nBoundaryEdges = 0;
    // Edges used by more than two triangles.
    std::size_t nNonManifoldEdges = 0;
    // Interior edges whose two triangles run them the same way.
    std::size_t nFlippedEdges = 0;
    // No boundary and every edge used exactly twice.
    bool bClosed = false;
    // Every edge shared by two triangles is run in opposite directions.
    bool bOriented = false;
    // Boundary loops (closed polylines where they close), longest first.
    std::vector<CKivPolyLine> vecLoop;
};

CKivSurfaceStats ComputeStats(const CKivSurfaceData& surf);

// Boundary edges chained into polylines.
std::vector<CKivPolyLine> BoundaryLoops(const CKivSurfaceData& surf);

} // namespace kivcli

#endif
