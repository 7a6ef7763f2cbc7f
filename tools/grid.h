// Regular grids of heights (elev, interp) and their files: ESRI ASCII grid
// (.asc) or one "x y z" row per cell (.xyz, .csv).
#ifndef KIVGEO_TOOLS_GRID_H
#define KIVGEO_TOOLS_GRID_H

#include <kivgeo/point3d.h>

#include <string>
#include <vector>

namespace kivcli {

struct CKivGrid {
    // Centre of the south-west cell, cell size, and the cell counts.
    double dX0 = 0.0;
    double dY0 = 0.0;
    double dStep = 1.0;
    int nCols = 0;
    int nRows = 0;
    // Row-major from the southern row; NaN marks a cell without a value.
    std::vector<double> vecZ;

    double CellX(int col) const { return dX0 + dStep * col; }
    double CellY(int row) const { return dY0 + dStep * row; }
    double& At(int col, int row) { return vecZ[static_cast<std::size_t>(row) * nCols + col]; }
};

// Cells of size step covering [xmin, xmax] x [ymin, ymax] (cell centres on
// the lower-left corner and every step after it). Throws std::runtime_error
// for a non-positive step or a grid of more than 50 million cells.
CKivGrid MakeGrid(double xmin, double ymin, double xmax, double ymax, double step);

// Writes by extension: .asc, .xyz or .csv; cells without a value are
// written as noData.
void WriteGrid(const std::string& path, const CKivGrid& grid, double noData);
void CheckGridExtension(const std::string& path);

} // namespace kivcli

#endif
