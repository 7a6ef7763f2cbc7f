// Surface formats: extension dispatch, OBJ, OFF, STL, VTK, and the
// conversions between indexed surfaces and triangle soups.
//
// OBJ is read here rather than through tinyobjloader: that loader reads a
// malformed number as zero without naming the line, and the command line must
// reject such files.
#include "formats_internal.h"
#include "output_file.h"
#include "text_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <unordered_map>

namespace kivcli {

namespace {

const char* const kSurfaceRead = ".ts, .obj, .off, .ply or .stl";
const char* const kSurfaceWrite = ".ts, .obj, .off, .ply, .stl or .vtk";

// Exact-coordinate key for merging soup corners.
struct CKivPointKey {
    double x, y, z;
    bool operator==(const CKivPointKey& o) const { return x == o.x && y == o.y && z == o.z; }
};
struct CKivPointKeyHash {
    std::size_t operator()(const CKivPointKey& k) const
    {
        std::uint64_t h = 1469598103934665603ull;
        for (double d : {k.x, k.y, k.z}) {
            std::uint64_t bits;
            d = d == 0.0 ? 0.0 : d; // -0 and +0 are one position
            std::memcpy(&bits, &d, sizeof bits);
            h = (h ^ bits) * 1099511628211ull;
            h ^= h >> 29;
        }
        return static_cast<std::size_t>(h);
    }
};

class CKivPointIndexer {
public:
    explicit CKivPointIndexer(CKivSurfaceData& surf) : m_surf(surf) {}
    int Add(const CKivPoint3d& p)
    {
        const auto res = m_map.emplace(CKivPointKey{p.x, p.y, p.z}, static_cast<int>(m_surf.vecPt.size()));
        if (res.second) {
            m_surf.vecPt.push_back(p);
        }
        return res.first->second;
    }

private:
    CKivSurfaceData& m_surf;
    std::unordered_map<CKivPointKey, int, CKivPointKeyHash> m_map;
};

// A face corner of OBJ ("7", "7/2", "7//3", "-1"): the vertex index, 0-based.
int ParseObjCorner(CKivTextReader& in, std::string_view token, std::size_t nVerts)
{
    const std::string_view head = token.substr(0, token.find('/'));
    double v = 0.0;
    // Range first: converting a number beyond long is undefined.
    if (!ToNumber(head, v) || !(std::fabs(v) <= 2147483647.0) || v != std::trunc(v) || v == 0.0) {
        in.Fail("expected a face corner as a vertex number, got '" + std::string(token) + "'");
    }
    const long idx = v > 0 ? static_cast<long>(v) - 1 : static_cast<long>(nVerts) + static_cast<long>(v);
    if (idx < 0 || idx >= static_cast<long>(nVerts)) {
        in.Fail("face corner " + std::string(head) + " names no vertex defined before it (" +
                std::to_string(nVerts) + " so far)");
    }
    return static_cast<int>(idx);
}

} // namespace

void AppendXyz(std::string& out, const CKivPoint3d& p)
{
    AppendNumber(out, p.x);
    out += ' ';
    AppendNumber(out, p.y);
    out += ' ';
    AppendNumber(out, p.z);
    out += '\n';
}

void AddPolygon(CKivSurfaceData& surf, const std::vector<int>& corners)
{
    for (std::size_t i = 1; i + 1 < corners.size(); ++i) {
        surf.vecTri.push_back({corners[0], corners[i], corners[i + 1]});
    }
}

void CheckNotEmpty(const CKivSurfaceData& surf, const std::string& path)
{
    if (surf.vecTri.empty()) {
        throw CKivIoError(path, 0, "no triangles found (expected a triangulated surface)");
    }
}

void CheckSurfaceExtension(const std::string& path, bool bWrite)
{
    const std::string ext = FileExtension(path);
    if (ext == "ts" || ext == "obj" || ext == "off" || ext == "ply" || ext == "stl" || (bWrite && ext == "vtk")) {
        return;
    }
    throw CKivIoError(
        path, 0, "unknown surface extension '." + ext + "': expected " + (bWrite ? kSurfaceWrite : kSurfaceRead));
}

CKivSurfaceData ReadSurface(const std::string& path, const CKivProgressFn& progress)
{
    CheckSurfaceExtension(path, false);
    const std::string ext = FileExtension(path);
    CKivSurfaceData surf;
    if (ext == "ts") {
        surf = ReadTSurf(path, progress);
    } else if (ext == "obj") {
        surf = ReadObj(path, progress);
    } else if (ext == "off") {
        surf = ReadOff(path, progress);
    } else if (ext == "ply") {
        surf = ReadPly(path);
    } else {
        surf = ReadStl(path);
    }
    if (surf.vecPartStart.empty()) {
        surf.vecPartStart.push_back(0);
    }
    return surf;
}

void WriteSurface(const std::string& path, const CKivSurfaceData& surf, const CKivWriteOptions& opt)
{
    CheckSurfaceExtension(path, true);
    const std::string ext = FileExtension(path);
    CKivOutputFile file(path);
    std::string out;
    if (ext == "ts") {
        WriteTSurf(out, surf);
    } else if (ext == "obj") {
        WriteObj(out, surf);
    } else if (ext == "off") {
        WriteOff(out, surf);
    } else if (ext == "ply") {
        WritePly(out, surf, opt.bBinary);
    } else if (ext == "stl") {
        WriteStl(out, surf, opt.bBinary);
    } else {
        WriteVtk(out, surf);
    }
    file.Stream() << out;
    file.Commit();
}

void SurfaceToTris(const CKivSurfaceData& surf, std::vector<CKivTri3d>& tris)
{
    tris.clear();
    tris.reserve(surf.vecTri.size());
    for (const auto& t : surf.vecTri) {
        tris.emplace_back(surf.vecPt[t[0]], surf.vecPt[t[1]], surf.vecPt[t[2]]);
    }
}

CKivSurfaceData SurfaceFromTris(const std::vector<CKivTri3d>& tris)
{
    CKivSurfaceData surf;
    surf.vecPartStart.push_back(0);
    CKivPointIndexer index(surf);
    surf.vecTri.reserve(tris.size());
    for (const CKivTri3d& t : tris) {
        surf.vecTri.push_back({index.Add(t.m_pt[0]), index.Add(t.m_pt[1]), index.Add(t.m_pt[2])});
    }
    return surf;
}

// ---------------------------------------------------------------- OBJ

CKivSurfaceData ReadObj(const std::string& path, const CKivProgressFn& progress)
{
    CKivTextReader in(path);
    CKivSurfaceData surf;
    std::vector<std::string_view> w;
    std::vector<int> corners;
    std::string_view line;
    while (in.NextLine(line)) {
        const std::string_view t = StripComment(line);
        if (t.empty()) {
            continue;
        }
        SplitWords(t, w);
        if (w[0] == "v") {
            // x y z, optionally w or a colour after them.
            if (w.size() < 4) {
                in.Fail("expected v x y z");
            }
            surf.vecPt.emplace_back(in.ParseNumber(w[1], "x"), in.ParseNumber(w[2], "y"),
                                    in.ParseNumber(w[3], "z"));
        } else if (w[0] == "f") {
            if (w.size() < 4) {
                in.Fail("expected a face of at least 3 corners");
            }
            corners.clear();
            for (std::size_t i = 1; i < w.size(); ++i) {
                corners.push_back(ParseObjCorner(in, w[i], surf.vecPt.size()));
            }
            AddPolygon(surf, corners);
        }
        // Normals, texture coordinates, groups and materials are not needed.
        if (progress && (in.LineNo() & 0xffff) == 0) {
            progress(in.Fraction());
        }
    }
    CheckNotEmpty(surf, path);
    return surf;
}

void WriteObj(std::string& out, const CKivSurfaceData& surf)
{
    out += "# kivgeo surface";
    if (!surf.info.strName.empty()) {
        out += "\no " + surf.info.strName;
    }
    out += '\n';
    for (const CKivPoint3d& p : surf.vecPt) {
        out += "v ";
        AppendXyz(out, p);
    }
    for (const auto& t : surf.vecTri) {
        out += "f " + std::to_string(t[0] + 1) + ' ' + std::to_string(t[1] + 1) + ' ' + std::to_string(t[2] + 1) +
               '\n';
    }
}

// ---------------------------------------------------------------- OFF

CKivSurfaceData ReadOff(const std::string& path, const CKivProgressFn& progress)
{
    CKivTextReader in(path);
    CKivSurfaceData surf;
    std::vector<std::string_view> w;
    std::string_view line;
    // Tokens are read across lines: OFF does not tie values to lines.
    std::size_t nVerts = 0, nFaces = 0;
    int stage = 0; // 0 keyword, 1 counts, 2 vertices, 3 faces
    std::vector<int> corners;
    while (stage < 3 || surf.vecTri.size() < nFaces) {
        if (!in.NextLine(line)) {
            break;
        }
        const std::string_view t = StripComment(line);
        if (t.empty()) {
            continue;
        }
        SplitWords(t, w);
        if (stage == 0) {
            if (w[0] != "OFF") {
                in.Fail("expected the keyword OFF on the first line");
            }
            stage = 1;
            if (w.size() == 1) {
                continue;
            }
            w.erase(w.begin());
        }
        if (stage == 1) {
            if (w.size() < 2) {
                in.Fail("expected the counts: vertices faces [edges]");
            }
            nVerts = static_cast<std::size_t>(in.ParseIndex(w[0], "the vertex count"));
            nFaces = static_cast<std::size_t>(in.ParseIndex(w[1], "the face count"));
            surf.vecPt.reserve(std::min<std::size_t>(nVerts, 1u << 24));
            stage = nVerts > 0 ? 2 : 3;
            continue;
        }
        if (stage == 2) {
            if (w.size() < 3) {
                in.Fail("expected a vertex x y z");
            }
            surf.vecPt.emplace_back(in.ParseNumber(w[0], "x"), in.ParseNumber(w[1], "y"),
                                    in.ParseNumber(w[2], "z"));
            if (surf.vecPt.size() == nVerts) {
                stage = 3;
            }
            continue;
        }
        const long n = in.ParseIndex(w[0], "the corner count of a face");
        if (n < 3 || static_cast<std::size_t>(n) + 1 > w.size()) {
            in.Fail("expected a face: n >= 3 followed by n vertex numbers");
        }
        corners.clear();
        for (long i = 1; i <= n; ++i) {
            const long v = in.ParseIndex(w[i], "a vertex number");
            if (static_cast<std::size_t>(v) >= nVerts) {
                in.Fail("vertex number " + std::to_string(v) + " out of range (" + std::to_string(nVerts) +
                        " vertices)");
            }
            corners.push_back(static_cast<int>(v));
        }
        // Polygons count as one face, however many triangles they become.
        const std::size_t before = surf.vecTri.size();
        AddPolygon(surf, corners);
        nFaces += surf.vecTri.size() - before - 1;
        if (progress && (in.LineNo() & 0xffff) == 0) {
            progress(in.Fraction());
        }
    }
    if (stage < 3 || surf.vecTri.size() < nFaces) {
        throw CKivIoError(path, in.LineNo(),
                          "unexpected end of file (expected " + std::to_string(nVerts) +
                              " vertices and the faces after them)");
    }
    CheckNotEmpty(surf, path);
    return surf;
}

void WriteOff(std::string& out, const CKivSurfaceData& surf)
{
    out += "OFF\n" + std::to_string(surf.vecPt.size()) + ' ' + std::to_string(surf.vecTri.size()) + " 0\n";
    for (const CKivPoint3d& p : surf.vecPt) {
        AppendXyz(out, p);
    }
    for (const auto& t : surf.vecTri) {
        out += "3 " + std::to_string(t[0]) + ' ' + std::to_string(t[1]) + ' ' + std::to_string(t[2]) + '\n';
    }
}

// ---------------------------------------------------------------- STL

namespace {

CKivPoint3d StlNormal(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c)
{
    CGeoVector n = CGeoVector(b - a) ^ CGeoVector(c - a);
    n.Normalize();
    return n;
}

template <typename T> void PutLe(std::string& out, T v)
{
    char buf[sizeof(T)];
    std::memcpy(buf, &v, sizeof(T)); // the machines this runs on are little-endian
    out.append(buf, sizeof(T));
}

} // namespace

CKivSurfaceData ReadStl(const std::string& path)
{
    std::string bytes = ReadFileBytes(path);
    CKivSurfaceData surf;
    CKivPointIndexer index(surf);
    // Binary when the size matches the triangle count in the header; a text
    // file starting with "solid" whose size happens to match is unlikely.
    if (bytes.size() >= 84) {
        std::uint32_t n = 0;
        std::memcpy(&n, bytes.data() + 80, 4);
        if (bytes.size() == 84 + 50ull * n && (bytes.compare(0, 5, "solid") != 0 || n > 0)) {
            const char* p = bytes.data() + 84;
            for (std::uint32_t i = 0; i < n; ++i, p += 50) {
                int c[3];
                for (int k = 0; k < 3; ++k) {
                    float f[3];
                    std::memcpy(f, p + 12 + 12 * k, 12);
                    const CKivPoint3d q(static_cast<double>(f[0]), static_cast<double>(f[1]),
                                        static_cast<double>(f[2]));
                    if (!std::isfinite(q.x) || !std::isfinite(q.y) || !std::isfinite(q.z)) {
                        throw CKivIoError(path, 0,
                                          "triangle " + std::to_string(i + 1) + ": expected finite coordinates");
                    }
                    c[k] = index.Add(q);
                }
                surf.vecTri.push_back({c[0], c[1], c[2]});
            }
            CheckNotEmpty(surf, path);
            return surf;
        }
    }
    if (bytes.compare(0, 5, "solid") != 0) {
        throw CKivIoError(path, bytes.empty() ? 0 : 1,
                          "expected 'solid' (text STL) or a binary STL whose size fits its triangle count");
    }
    CKivTextReader in(path, std::move(bytes));
    std::vector<std::string_view> w;
    std::string_view line;
    int corners[3];
    int nCorner = -1; // -1 outside a facet loop
    while (in.NextLine(line)) {
        const std::string_view t = Trim(line);
        if (t.empty()) {
            continue;
        }
        SplitWords(t, w);
        if (w[0] == "outer") {
            nCorner = 0;
        } else if (w[0] == "vertex") {
            if (nCorner < 0 || nCorner >= 3 || w.size() != 4) {
                in.Fail(nCorner >= 3 ? "expected endloop after three vertices"
                                     : "expected vertex x y z in a loop");
            }
            corners[nCorner++] = index.Add(
                CKivPoint3d(in.ParseNumber(w[1], "x"), in.ParseNumber(w[2], "y"), in.ParseNumber(w[3], "z")));
        } else if (w[0] == "endloop") {
            if (nCorner != 3) {
                in.Fail("expected three vertices before endloop");
            }
            surf.vecTri.push_back({corners[0], corners[1], corners[2]});
            nCorner = -1;
        } else if (w[0] != "solid" && w[0] != "facet" && w[0] != "endfacet" && w[0] != "endsolid") {
            in.Fail("expected facet, outer loop, vertex, endloop or endfacet, got '" + std::string(w[0]) + "'");
        }
    }
    if (nCorner >= 0) {
        throw CKivIoError(path, in.LineNo(), "unexpected end of file inside a facet");
    }
    CheckNotEmpty(surf, path);
    return surf;
}

void WriteStl(std::string& out, const CKivSurfaceData& surf, bool bBinary)
{
    const std::string name = surf.info.strName.empty() ? "kivgeo" : surf.info.strName;
    if (bBinary) {
        // Binary STL holds single-precision floats: map coordinates keep
        // about 7 significant digits (a few decimetres at UTM northings).
        std::string header = "binary STL " + name;
        header.resize(80, ' ');
        out += header;
        PutLe<std::uint32_t>(out, static_cast<std::uint32_t>(surf.vecTri.size()));
        for (const auto& t : surf.vecTri) {
            const CKivPoint3d& a = surf.vecPt[t[0]];
            const CKivPoint3d& b = surf.vecPt[t[1]];
            const CKivPoint3d& c = surf.vecPt[t[2]];
            for (const CKivPoint3d& p : {StlNormal(a, b, c), a, b, c}) {
                PutLe<float>(out, static_cast<float>(p.x));
                PutLe<float>(out, static_cast<float>(p.y));
                PutLe<float>(out, static_cast<float>(p.z));
            }
            PutLe<std::uint16_t>(out, 0);
        }
        return;
    }
    out += "solid " + name + '\n';
    for (const auto& t : surf.vecTri) {
        const CKivPoint3d& a = surf.vecPt[t[0]];
        const CKivPoint3d& b = surf.vecPt[t[1]];
        const CKivPoint3d& c = surf.vecPt[t[2]];
        out += "facet normal ";
        AppendXyz(out, StlNormal(a, b, c));
        out += "outer loop\n";
        for (const CKivPoint3d* p : {&a, &b, &c}) {
            out += "vertex ";
            AppendXyz(out, *p);
        }
        out += "endloop\nendfacet\n";
    }
    out += "endsolid " + name + '\n';
}

// ---------------------------------------------------------------- VTK

void WriteVtk(std::string& out, const CKivSurfaceData& surf)
{
    out += "# vtk DataFile Version 3.0\n";
    out += surf.info.strName.empty() ? "kivgeo surface" : surf.info.strName;
    out += "\nASCII\nDATASET POLYDATA\nPOINTS " + std::to_string(surf.vecPt.size()) + " double\n";
    for (const CKivPoint3d& p : surf.vecPt) {
        AppendXyz(out, p);
    }
    out += "POLYGONS " + std::to_string(surf.vecTri.size()) + ' ' + std::to_string(4 * surf.vecTri.size()) + '\n';
    for (const auto& t : surf.vecTri) {
        out += "3 " + std::to_string(t[0]) + ' ' + std::to_string(t[1]) + ' ' + std::to_string(t[2]) + '\n';
    }
    // Elevation as a point attribute, for colouring in the viewer.
    out +=
        "POINT_DATA " + std::to_string(surf.vecPt.size()) + "\nSCALARS elevation double 1\nLOOKUP_TABLE default\n";
    for (const CKivPoint3d& p : surf.vecPt) {
        AppendNumber(out, p.z);
        out += '\n';
    }
}

} // namespace kivcli
