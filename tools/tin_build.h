// Building a TIN from files, shared by `kivgeo tin` and `kivgeo demo`.
#ifndef KIVGEO_TOOLS_TIN_BUILD_H
#define KIVGEO_TOOLS_TIN_BUILD_H

#include "formats.h"

#include <string>
#include <vector>

namespace kivcli {

struct CKivTinInput {
    std::string strPoints;
    std::vector<std::string> vecConstraints;
    std::vector<std::string> vecHoles;
    std::string strOutline;
    // Off: the surface covers the whole convex hull of the input.
    bool bLegacyHull = false;
};

struct CKivTinResult {
    CKivSurfaceData surf;
    std::size_t nInputPoints = 0;
    // Vertices after merging points within 0.01 in plan.
    std::size_t nDistinctPoints = 0;
    std::size_t nConstraintLines = 0;
    std::size_t nHoles = 0;
    bool bOutline = false;
    // Reading excluded.
    double dSeconds = 0.0;
};

// Reads the inputs and triangulates; throws CKivIoError for bad input,
// including points the triangulator cannot use (fewer than three distinct
// or all on one line).
CKivTinResult BuildTin(const CKivTinInput& in);

} // namespace kivcli

#endif
