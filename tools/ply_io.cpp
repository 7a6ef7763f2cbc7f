// PLY surfaces, text and binary (either byte order). Only the x, y, z of the
// vertex element and the index list of the face element are used; other
// elements and properties are read past.
#include "formats_internal.h"
#include "text_reader.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace kivcli {

namespace {

struct CKivPlyProperty {
    std::string strName;
    int nType = 0;      // value type; for a list, the item type
    int nCountType = 0; // list count type, 0 for a scalar
};

struct CKivPlyElement {
    std::string strName;
    std::size_t nCount = 0;
    std::vector<CKivPlyProperty> vecProp;
};

// Byte size of a PLY type name, 0 when unknown.
int PlyTypeSize(std::string_view t)
{
    if (t == "char" || t == "uchar" || t == "int8" || t == "uint8") {
        return 1;
    }
    if (t == "short" || t == "ushort" || t == "int16" || t == "uint16") {
        return 2;
    }
    if (t == "int" || t == "uint" || t == "int32" || t == "uint32" || t == "float" || t == "float32") {
        return 4;
    }
    if (t == "double" || t == "float64") {
        return 8;
    }
    return 0;
}

// Type codes: size * 10 + kind (0 signed, 1 unsigned, 2 float).
int PlyTypeCode(std::string_view t)
{
    const int size = PlyTypeSize(t);
    if (size == 0) {
        return 0;
    }
    const int kind = (t[0] == 'u') ? 1 : (t.substr(0, 5) == "float" || t == "double") ? 2 : 0;
    return size * 10 + kind;
}

class CKivBinaryCursor {
public:
    CKivBinaryCursor(const std::string& path, const std::string& bytes, std::size_t pos, bool bSwap)
        : m_path(path), m_bytes(bytes), m_pos(pos), m_bSwap(bSwap)
    {
    }
    double Read(int code, const std::string& what)
    {
        const std::size_t size = static_cast<std::size_t>(code / 10);
        if (m_pos + size > m_bytes.size()) {
            throw CKivIoError(m_path, 0, "unexpected end of binary data while reading " + what);
        }
        unsigned char b[8];
        std::memcpy(b, m_bytes.data() + m_pos, size);
        m_pos += size;
        if (m_bSwap) {
            for (std::size_t i = 0; i < size / 2; ++i) {
                std::swap(b[i], b[size - 1 - i]);
            }
        }
        switch (code) {
        case 10:
            return static_cast<double>(static_cast<std::int8_t>(b[0]));
        case 11:
            return static_cast<double>(b[0]);
        case 20:
            return static_cast<double>(Get<std::int16_t>(b));
        case 21:
            return static_cast<double>(Get<std::uint16_t>(b));
        case 40:
            return static_cast<double>(Get<std::int32_t>(b));
        case 41:
            return static_cast<double>(Get<std::uint32_t>(b));
        case 42:
            return static_cast<double>(Get<float>(b));
        default:
            return Get<double>(b);
        }
    }
    bool AtEnd() const { return m_pos == m_bytes.size(); }

private:
    template <typename T> static T Get(const unsigned char* b)
    {
        T v;
        std::memcpy(&v, b, sizeof(T));
        return v;
    }
    const std::string& m_path;
    const std::string& m_bytes;
    std::size_t m_pos;
    bool m_bSwap;
};

// Checks a face index and returns it.
int FaceIndex(double v, std::size_t nVerts, const std::function<void(const std::string&)>& fail)
{
    if (!(v >= 0.0) || v >= static_cast<double>(nVerts) || v != std::floor(v)) {
        fail("face vertex index " + std::to_string(static_cast<long long>(v)) + " out of range (" +
             std::to_string(nVerts) + " vertices)");
    }
    return static_cast<int>(v);
}

} // namespace

CKivSurfaceData ReadPly(const std::string& path)
{
    const std::string bytes = ReadFileBytes(path);
    // The header is text up to "end_header\n".
    const std::size_t headerEnd = bytes.find("end_header");
    if (bytes.compare(0, 3, "ply") != 0 || headerEnd == std::string::npos) {
        throw CKivIoError(path, bytes.empty() ? 0 : 1, "expected a PLY header: 'ply' ... 'end_header'");
    }
    std::size_t dataStart = bytes.find('\n', headerEnd);
    dataStart = dataStart == std::string::npos ? bytes.size() : dataStart + 1;
    CKivTextReader in(path, bytes.substr(0, dataStart));
    std::vector<CKivPlyElement> elements;
    std::string format;
    std::vector<std::string_view> w;
    std::string_view line;
    while (in.NextLine(line)) {
        SplitWords(Trim(line), w);
        if (w.empty() || w[0] == "ply" || w[0] == "comment" || w[0] == "obj_info" || w[0] == "end_header") {
            continue;
        }
        if (w[0] == "format") {
            if (w.size() < 2 ||
                (w[1] != "ascii" && w[1] != "binary_little_endian" && w[1] != "binary_big_endian")) {
                in.Fail("expected format ascii, binary_little_endian or binary_big_endian");
            }
            format = std::string(w[1]);
        } else if (w[0] == "element") {
            if (w.size() != 3) {
                in.Fail("expected element name count");
            }
            elements.push_back(
                {std::string(w[1]), static_cast<std::size_t>(in.ParseIndex(w[2], "the count")), {}});
        } else if (w[0] == "property") {
            if (elements.empty()) {
                in.Fail("expected an element before its properties");
            }
            CKivPlyProperty prop;
            if (w.size() == 5 && w[1] == "list") {
                prop.nCountType = PlyTypeCode(w[2]);
                prop.nType = PlyTypeCode(w[3]);
                prop.strName = std::string(w[4]);
                if (prop.nCountType == 0 || prop.nCountType % 10 == 2 || prop.nType == 0) {
                    in.Fail("expected integer count and known item types in a list property");
                }
            } else if (w.size() == 3) {
                prop.nType = PlyTypeCode(w[1]);
                prop.strName = std::string(w[2]);
                if (prop.nType == 0) {
                    in.Fail("unknown property type '" + std::string(w[1]) + "'");
                }
            } else {
                in.Fail("expected property type name or property list count-type item-type name");
            }
            elements.back().vecProp.push_back(prop);
        } else {
            in.Fail("unknown header keyword '" + std::string(w[0]) + "'");
        }
    }
    if (format.empty()) {
        throw CKivIoError(path, 0, "expected a format line in the PLY header");
    }
    const long headerLines = in.LineNo();

    CKivSurfaceData surf;
    std::vector<int> corners;
    const bool bAscii = format == "ascii";
    CKivTextReader body(path, bAscii ? bytes.substr(dataStart) : std::string());
    CKivBinaryCursor cur(path, bytes, dataStart, format == "binary_big_endian");
    std::vector<std::string_view> fields;
    for (const CKivPlyElement& el : elements) {
        const bool bVertex = el.strName == "vertex";
        const bool bFace = el.strName == "face";
        int ix = -1, iy = -1, iz = -1, iList = -1;
        for (std::size_t k = 0; k < el.vecProp.size(); ++k) {
            const std::string& n = el.vecProp[k].strName;
            ix = n == "x" ? static_cast<int>(k) : ix;
            iy = n == "y" ? static_cast<int>(k) : iy;
            iz = n == "z" ? static_cast<int>(k) : iz;
            if (el.vecProp[k].nCountType != 0 && (n == "vertex_indices" || n == "vertex_index")) {
                iList = static_cast<int>(k);
            }
        }
        if (bVertex && (ix < 0 || iy < 0 || iz < 0)) {
            throw CKivIoError(path, 0, "expected properties x, y and z in the vertex element");
        }
        if (bFace && iList < 0) {
            throw CKivIoError(path, 0, "expected a vertex_indices list in the face element");
        }
        for (std::size_t r = 0; r < el.nCount; ++r) {
            double xyz[3] = {0, 0, 0};
            corners.clear();
            std::size_t f = 0; // next text field
            auto failAt = [&](const std::string& what) {
                if (bAscii) {
                    throw CKivIoError(path, headerLines + body.LineNo(), what);
                }
                throw CKivIoError(path, 0, el.strName + " " + std::to_string(r + 1) + ": " + what);
            };
            if (bAscii) {
                std::string_view l;
                do {
                    if (!body.NextLine(l)) {
                        throw CKivIoError(path, headerLines + body.LineNo(),
                                          "unexpected end of file (expected " + std::to_string(el.nCount) + " " +
                                              el.strName + " rows)");
                    }
                } while (Trim(l).empty());
                SplitWords(Trim(l), fields);
            }
            auto next = [&](int code, const std::string& what) -> double {
                if (!bAscii) {
                    return cur.Read(code, what);
                }
                if (f >= fields.size()) {
                    failAt("expected more values in this " + el.strName + " row");
                }
                double v = 0.0;
                if (!ToNumber(fields[f], v)) {
                    failAt("expected " + what + " as a finite number, got '" + std::string(fields[f]) + "'");
                }
                ++f;
                return v;
            };
            for (std::size_t k = 0; k < el.vecProp.size(); ++k) {
                const CKivPlyProperty& p = el.vecProp[k];
                if (p.nCountType == 0) {
                    const double v = next(p.nType, p.strName);
                    if (bVertex && static_cast<int>(k) == ix) {
                        xyz[0] = v;
                    } else if (bVertex && static_cast<int>(k) == iy) {
                        xyz[1] = v;
                    } else if (bVertex && static_cast<int>(k) == iz) {
                        xyz[2] = v;
                    }
                    continue;
                }
                const double n = next(p.nCountType, "a list count");
                if (!(n >= 0.0) || n > 1e6) {
                    failAt("implausible list length");
                }
                for (long i = 0; i < static_cast<long>(n); ++i) {
                    const double v = next(p.nType, "a list item");
                    if (bFace && static_cast<int>(k) == iList) {
                        corners.push_back(FaceIndex(v, surf.vecPt.size(), failAt));
                    }
                }
            }
            if (bVertex) {
                if (!std::isfinite(xyz[0]) || !std::isfinite(xyz[1]) || !std::isfinite(xyz[2])) {
                    failAt("expected finite coordinates");
                }
                surf.vecPt.emplace_back(xyz[0], xyz[1], xyz[2]);
            }
            if (bFace) {
                if (corners.size() < 3) {
                    failAt("expected a face of at least 3 corners");
                }
                AddPolygon(surf, corners);
            }
        }
    }
    CheckNotEmpty(surf, path);
    return surf;
}

void WritePly(std::string& out, const CKivSurfaceData& surf, bool bBinary)
{
    out += "ply\nformat ";
    out += bBinary ? "binary_little_endian" : "ascii";
    out += " 1.0\ncomment kivgeo surface";
    if (!surf.info.strName.empty()) {
        out += " " + surf.info.strName;
    }
    out += "\nelement vertex " + std::to_string(surf.vecPt.size()) +
           "\nproperty double x\nproperty double y\nproperty double z\nelement face " +
           std::to_string(surf.vecTri.size()) + "\nproperty list uchar int vertex_indices\nend_header\n";
    if (!bBinary) {
        for (const CKivPoint3d& p : surf.vecPt) {
            AppendXyz(out, p);
        }
        for (const auto& t : surf.vecTri) {
            out += "3 " + std::to_string(t[0]) + ' ' + std::to_string(t[1]) + ' ' + std::to_string(t[2]) + '\n';
        }
        return;
    }
    auto put = [&out](const void* p, std::size_t n) { out.append(static_cast<const char*>(p), n); };
    for (const CKivPoint3d& p : surf.vecPt) {
        const double v[3] = {p.x, p.y, p.z};
        put(v, sizeof v);
    }
    for (const auto& t : surf.vecTri) {
        const unsigned char n = 3;
        const std::int32_t v[3] = {t[0], t[1], t[2]};
        put(&n, 1);
        put(v, sizeof v);
    }
}

} // namespace kivcli
