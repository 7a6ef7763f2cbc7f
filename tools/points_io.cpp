// Scattered points as text: x y z per row.
#include "formats.h"
#include "output_file.h"
#include "text_reader.h"

#include <charconv>
#include <cmath>

namespace kivcli {

namespace {

std::string Lower(std::string_view s)
{
    std::string r(s);
    for (char& c : r) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return r;
}

// Column of the first header name in names, or -1.
int FindColumn(const std::vector<std::string_view>& header, std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        for (std::size_t i = 0; i < header.size(); ++i) {
            if (Lower(header[i]) == name) {
                return static_cast<int>(i);
            }
        }
    }
    return -1;
}

} // namespace

void CheckPointsExtension(const std::string& path)
{
    const std::string ext = FileExtension(path);
    if (ext != "xyz" && ext != "csv" && ext != "pts") {
        throw CKivIoError(path, 0, "unknown points extension '." + ext + "': expected .xyz, .csv or .pts");
    }
}

void AppendNumber(std::string& out, double v)
{
    // Plain decimals for map-sized values (500000, not 5e+05); exponents
    // only for the very large or very small. Either way the shortest text
    // that reads back as the same double.
    char buf[400];
    const double a = std::fabs(v);
    const bool bFixed = a == 0.0 || (a >= 1e-5 && a < 1e16);
    const auto res = bFixed ? std::to_chars(buf, buf + sizeof(buf), v, std::chars_format::fixed)
                            : std::to_chars(buf, buf + sizeof(buf), v);
    out.append(buf, res.ptr);
}

std::vector<CKivPoint3d> ReadPoints(const std::string& path, const CKivProgressFn& progress)
{
    CheckPointsExtension(path);
    CKivTextReader in(path);
    std::vector<CKivPoint3d> pts;
    std::vector<std::string_view> fields;
    std::string_view line;
    std::size_t nColumns = 0; // fixed by the header or the first data row
    int cx = 0, cy = 1, cz = 2;
    bool bFirst = true;
    while (in.NextLine(line)) {
        const std::string_view text = StripComment(line);
        if (text.empty()) {
            continue;
        }
        SplitFields(text, fields);
        if (bFirst) {
            bFirst = false;
            double v;
            if (!ToNumber(fields[0], v)) {
                // A header row: take the named columns, else the first three.
                if (fields.size() < 3) {
                    in.Fail("expected a header of at least 3 columns (x y z), found " +
                            std::to_string(fields.size()));
                }
                nColumns = fields.size();
                const int hx = FindColumn(fields, {"x", "easting", "east", "xcoord"});
                const int hy = FindColumn(fields, {"y", "northing", "north", "ycoord"});
                const int hz = FindColumn(fields, {"z", "elevation", "elev", "height", "zcoord"});
                if (hx >= 0 && hy >= 0 && hz >= 0) {
                    cx = hx, cy = hy, cz = hz;
                }
                continue;
            }
        }
        if (nColumns == 0) {
            if (fields.size() < 3) {
                in.Fail("expected at least 3 columns x y z, found " + std::to_string(fields.size()));
            }
            nColumns = fields.size();
        } else if (fields.size() != nColumns) {
            in.Fail("expected " + std::to_string(nColumns) + " columns like the rows before, found " +
                    std::to_string(fields.size()));
        }
        pts.emplace_back(in.ParseNumber(fields[cx], "x"), in.ParseNumber(fields[cy], "y"),
                         in.ParseNumber(fields[cz], "z"));
        if (progress && (pts.size() & 0xffff) == 0) {
            progress(in.Fraction());
        }
    }
    if (pts.empty()) {
        throw CKivIoError(path, 0, "no points found (expected rows of x y z)");
    }
    return pts;
}

void WritePoints(const std::string& path, const std::vector<CKivPoint3d>& pts)
{
    CheckPointsExtension(path);
    const bool bCsv = FileExtension(path) == "csv";
    const char sep = bCsv ? ',' : ' ';
    CKivOutputFile file(path);
    std::string text = bCsv ? "x,y,z\n" : "";
    for (const CKivPoint3d& p : pts) {
        AppendNumber(text, p.x);
        text += sep;
        AppendNumber(text, p.y);
        text += sep;
        AppendNumber(text, p.z);
        text += '\n';
    }
    file.Stream() << text;
    file.Commit();
}

} // namespace kivcli
