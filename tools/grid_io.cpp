#include "grid.h"

#include "formats.h"
#include "io_error.h"
#include "output_file.h"
#include "text_reader.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace kivcli {

CKivGrid MakeGrid(double xmin, double ymin, double xmax, double ymax, double step)
{
    if (!(step > 0.0) || !std::isfinite(step)) {
        throw std::runtime_error("the grid step must be a positive number");
    }
    if (!(xmax >= xmin) || !(ymax >= ymin) || !std::isfinite(xmax - xmin) || !std::isfinite(ymax - ymin)) {
        throw std::runtime_error("the grid bounds must be finite with min <= max");
    }
    const double cols = std::floor((xmax - xmin) / step) + 1.0;
    const double rows = std::floor((ymax - ymin) / step) + 1.0;
    if (cols * rows > 5e7) {
        throw std::runtime_error("the grid would have " + std::to_string(static_cast<long long>(cols * rows)) +
                                 " cells; choose a larger step");
    }
    CKivGrid g;
    g.dX0 = xmin;
    g.dY0 = ymin;
    g.dStep = step;
    g.nCols = static_cast<int>(cols);
    g.nRows = static_cast<int>(rows);
    g.vecZ.assign(static_cast<std::size_t>(g.nCols) * g.nRows, std::numeric_limits<double>::quiet_NaN());
    return g;
}

void CheckGridExtension(const std::string& path)
{
    const std::string ext = FileExtension(path);
    if (ext != "asc" && ext != "xyz" && ext != "csv") {
        throw CKivIoError(path, 0, "unknown grid extension '." + ext + "': expected .asc, .xyz or .csv");
    }
}

void WriteGrid(const std::string& path, const CKivGrid& grid, double noData)
{
    CheckGridExtension(path);
    const std::string ext = FileExtension(path);
    CKivOutputFile file(path);
    std::string out;
    auto value = [&](double z) { AppendNumber(out, std::isfinite(z) ? z : noData); };
    if (ext == "asc") {
        out += "ncols " + std::to_string(grid.nCols) + "\nnrows " + std::to_string(grid.nRows) + "\nxllcenter ";
        AppendNumber(out, grid.dX0);
        out += "\nyllcenter ";
        AppendNumber(out, grid.dY0);
        out += "\ncellsize ";
        AppendNumber(out, grid.dStep);
        out += "\nNODATA_value ";
        AppendNumber(out, noData);
        out += '\n';
        // Rows run from north to south.
        for (int r = grid.nRows - 1; r >= 0; --r) {
            for (int c = 0; c < grid.nCols; ++c) {
                if (c > 0) {
                    out += ' ';
                }
                value(grid.vecZ[static_cast<std::size_t>(r) * grid.nCols + c]);
            }
            out += '\n';
        }
    } else {
        const char sep = ext == "csv" ? ',' : ' ';
        if (ext == "csv") {
            out += "x,y,z\n";
        }
        for (int r = 0; r < grid.nRows; ++r) {
            for (int c = 0; c < grid.nCols; ++c) {
                AppendNumber(out, grid.CellX(c));
                out += sep;
                AppendNumber(out, grid.CellY(r));
                out += sep;
                value(grid.vecZ[static_cast<std::size_t>(r) * grid.nCols + c]);
                out += '\n';
            }
        }
    }
    file.Stream() << out;
    file.Commit();
}

} // namespace kivcli
