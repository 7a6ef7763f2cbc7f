// GOCAD ASCII TSurf and PLine.
//
// Readers are lenient about what they do not need (properties, borders,
// unknown keywords are skipped) and strict about what they do: coordinates
// and vertex ids must parse, and every id a triangle or segment names must
// have been defined. Ids are explicit and may start anywhere; they are mapped,
// never assumed to be positions.
#include "formats_internal.h"
#include "text_reader.h"

#include <unordered_map>

namespace kivcli {

namespace {

bool StartsWith(std::string_view s, std::string_view prefix)
{
    return s.substr(0, prefix.size()) == prefix;
}

// Reads the parts every GOCAD object shares: the HEADER block (multi-line or
// on one line), the coordinate-system block and keywords without geometry.
// True when the line was one of these and has been consumed.
bool ReadGocadCommon(CKivTextReader& in, std::string_view line, const std::vector<std::string_view>& words,
                     CKivGocadInfo& info, bool bFirstObject)
{
    const std::string_view key = words[0];
    auto takeHeaderLine = [&](std::string_view entry) {
        entry = Trim(entry);
        if (entry.empty()) {
            return;
        }
        if (StartsWith(entry, "name:")) {
            if (bFirstObject) {
                info.strName = std::string(Trim(entry.substr(5)));
            }
        } else if (bFirstObject) {
            info.vecHeader.emplace_back(entry);
        }
    };
    if (key == "HEADER" || StartsWith(key, "HEADER{")) {
        const std::size_t open = line.find('{');
        if (open == std::string_view::npos) {
            in.Fail("expected '{' after HEADER");
        }
        std::string_view rest = line.substr(open + 1);
        const std::size_t close = rest.find('}');
        if (close != std::string_view::npos) {
            // One-line form: HEADER {name:A}
            takeHeaderLine(rest.substr(0, close));
            return true;
        }
        takeHeaderLine(rest);
        std::string_view l;
        while (in.NextLine(l)) {
            const std::size_t c = l.find('}');
            if (c != std::string_view::npos) {
                takeHeaderLine(l.substr(0, c));
                return true;
            }
            takeHeaderLine(l);
        }
        in.Fail("expected '}' closing the HEADER block");
    }
    if (key == "GOCAD_ORIGINAL_COORDINATE_SYSTEM") {
        std::string_view l;
        std::vector<std::string_view> w;
        while (in.NextLine(l)) {
            const std::string_view t = Trim(l);
            if (t == "END_ORIGINAL_COORDINATE_SYSTEM") {
                return true;
            }
            SplitWords(t, w);
            if (!w.empty() && w[0] == "ZPOSITIVE" && bFirstObject) {
                info.bDepth = w.size() > 1 && w[1] == "Depth";
            }
            if (bFirstObject && !t.empty()) {
                info.vecCoordSys.emplace_back(t);
            }
        }
        in.Fail("expected END_ORIGINAL_COORDINATE_SYSTEM closing the coordinate-system block");
    }
    if (key == "PROPERTY_CLASS_HEADER") {
        // A brace block like HEADER, not kept.
        if (line.find('}') != std::string_view::npos) {
            return true;
        }
        std::string_view l;
        while (in.NextLine(l)) {
            if (l.find('}') != std::string_view::npos) {
                return true;
            }
        }
        in.Fail("expected '}' closing the PROPERTY_CLASS_HEADER block");
    }
    static const char* const kSkipped[] = {"GEOLOGICAL_FEATURE",
                                           "GEOLOGICAL_TYPE",
                                           "STRATIGRAPHIC_POSITION",
                                           "PROPERTIES",
                                           "NO_DATA_VALUES",
                                           "PROPERTY_CLASSES",
                                           "ESIZES",
                                           "UNITS",
                                           "PROPERTY_KINDS",
                                           "PROPERTY_SUBCLASSES",
                                           "BSTONE",
                                           "BORDER",
                                           "BSTONES",
                                           "BORDERS",
                                           "INTERPRETATION",
                                           "TYPE"};
    for (const char* s : kSkipped) {
        if (key == s) {
            return true;
        }
    }
    return false;
}

// Vertex id -> index, with the checks every GOCAD body needs.
class CKivIdMap {
public:
    void Define(CKivTextReader& in, long id, int index)
    {
        if (!m_map.emplace(id, index).second) {
            in.Fail("vertex id " + std::to_string(id) + " is defined twice");
        }
    }
    int Find(CKivTextReader& in, std::string_view token) const
    {
        const long id = in.ParseIndex(token, "a vertex id");
        const auto it = m_map.find(id);
        if (it == m_map.end()) {
            in.Fail("vertex id " + std::to_string(id) + " is not defined before its use");
        }
        return it->second;
    }
    void Clear() { m_map.clear(); }

private:
    std::unordered_map<long, int> m_map;
};

// VRTX/PVRTX id x y z [props] or ATOM/PATOM id ref [props]: a new vertex.
// True when the line was one of these.
bool ReadVertexLine(CKivTextReader& in, const std::vector<std::string_view>& w, bool bDepth,
                    std::vector<CKivPoint3d>& pts, CKivIdMap& ids)
{
    const std::string_view key = w[0];
    if (key == "VRTX" || key == "PVRTX") {
        if (w.size() < 5) {
            in.Fail("expected " + std::string(key) + " id x y z");
        }
        const long id = in.ParseIndex(w[1], "a vertex id");
        const double z = in.ParseNumber(w[4], "z");
        pts.emplace_back(in.ParseNumber(w[2], "x"), in.ParseNumber(w[3], "y"), bDepth ? -z : z);
        ids.Define(in, id, static_cast<int>(pts.size() - 1));
        return true;
    }
    if (key == "ATOM" || key == "PATOM") {
        if (w.size() < 3) {
            in.Fail("expected " + std::string(key) + " id ref");
        }
        const long id = in.ParseIndex(w[1], "a vertex id");
        // A distinct vertex at the position of an earlier one.
        const CKivPoint3d p = pts[static_cast<std::size_t>(ids.Find(in, w[2]))];
        pts.push_back(p);
        ids.Define(in, id, static_cast<int>(pts.size() - 1));
        return true;
    }
    return false;
}

void CheckGocadStart(CKivTextReader& in, const std::vector<std::string_view>& w, const char* type)
{
    if (w.size() < 2 || w[0] != "GOCAD" || w[1] != type) {
        in.Fail(std::string("expected 'GOCAD ") + type + " 1' to start an object");
    }
}

void WriteGocadCommon(std::string& out, const char* type, const CKivGocadInfo& info, const char* defaultName)
{
    out += "GOCAD ";
    out += type;
    out += " 1\nHEADER {\nname:";
    out += info.strName.empty() ? defaultName : info.strName;
    out += '\n';
    for (const std::string& h : info.vecHeader) {
        out += h;
        out += '\n';
    }
    out += "}\n";
    if (!info.vecCoordSys.empty() || info.bDepth) {
        out += "GOCAD_ORIGINAL_COORDINATE_SYSTEM\n";
        bool bHasZ = false;
        for (const std::string& c : info.vecCoordSys) {
            out += c;
            out += '\n';
            bHasZ = bHasZ || StartsWith(c, "ZPOSITIVE");
        }
        if (!bHasZ) {
            out += info.bDepth ? "ZPOSITIVE Depth\n" : "ZPOSITIVE Elevation\n";
        }
        out += "END_ORIGINAL_COORDINATE_SYSTEM\n";
    }
}

void AppendGocadVertex(std::string& out, long id, const CKivPoint3d& p, bool bDepth)
{
    out += "VRTX ";
    out += std::to_string(id);
    out += ' ';
    AppendXyz(out, CKivPoint3d(p.x, p.y, bDepth ? -p.z : p.z));
}

} // namespace

CKivSurfaceData ReadTSurf(const std::string& path, const CKivProgressFn& progress)
{
    CKivTextReader in(path);
    CKivSurfaceData surf;
    CKivIdMap ids;
    std::vector<std::string_view> w;
    std::string_view line;
    bool bInObject = false;
    int nObjects = 0;
    bool bDepth = false;
    while (in.NextLine(line)) {
        const std::string_view t = StripComment(line);
        if (t.empty()) {
            continue;
        }
        SplitWords(t, w);
        if (!bInObject) {
            CheckGocadStart(in, w, "TSurf");
            bInObject = true;
            ++nObjects;
            // Ids belong to one object; each object is a part of its own.
            ids.Clear();
            bDepth = false;
            if (!surf.vecTri.empty() || surf.vecPartStart.empty()) {
                surf.vecPartStart.push_back(surf.vecTri.size());
            }
            continue;
        }
        CKivGocadInfo local;
        if (ReadGocadCommon(in, t, w, nObjects == 1 ? surf.info : local, nObjects == 1)) {
            bDepth = nObjects == 1 ? surf.info.bDepth : local.bDepth;
            continue;
        }
        const std::string_view key = w[0];
        if (ReadVertexLine(in, w, bDepth, surf.vecPt, ids)) {
            continue;
        }
        if (key == "TRGL") {
            if (w.size() < 4) {
                in.Fail("expected TRGL a b c");
            }
            surf.vecTri.push_back({ids.Find(in, w[1]), ids.Find(in, w[2]), ids.Find(in, w[3])});
        } else if (key == "TFACE" || key == "3DFace") {
            if (surf.vecPartStart.back() != surf.vecTri.size()) {
                surf.vecPartStart.push_back(surf.vecTri.size());
            }
        } else if (key == "END") {
            bInObject = false;
        } else if (key == "GOCAD") {
            in.Fail("expected END before the next GOCAD object");
        }
        // Anything else (properties of other kinds, private keywords) is skipped.
        if (progress && (in.LineNo() & 0xffff) == 0) {
            progress(in.Fraction());
        }
    }
    if (nObjects == 0) {
        throw CKivIoError(path, 0, "empty file (expected 'GOCAD TSurf 1')");
    }
    if (bInObject) {
        throw CKivIoError(path, in.LineNo(), "expected END at the end of the TSurf object");
    }
    // A trailing part without triangles (TFACE just before END) is no part.
    while (surf.vecPartStart.size() > 1 && surf.vecPartStart.back() == surf.vecTri.size()) {
        surf.vecPartStart.pop_back();
    }
    CheckNotEmpty(surf, path);
    return surf;
}

void WriteTSurf(std::string& out, const CKivSurfaceData& surf)
{
    WriteGocadCommon(out, "TSurf", surf.info, "surface");
    // Each vertex is written in the first part that uses it (vertices no
    // triangle uses in the first), in index order within a part, so that a
    // surface read from TSurf keeps its vertex order on a round trip. Ids run
    // from 1 and continue across parts.
    std::vector<std::size_t> starts = surf.vecPartStart;
    if (starts.empty() || starts[0] != 0) {
        starts.insert(starts.begin(), 0);
    }
    std::vector<std::size_t> partOf(surf.vecPt.size(), starts.size());
    for (std::size_t part = starts.size(); part-- > 0;) {
        const std::size_t e = part + 1 < starts.size() ? starts[part + 1] : surf.vecTri.size();
        for (std::size_t k = starts[part]; k < e; ++k) {
            for (int c : surf.vecTri[k]) {
                partOf[c] = part;
            }
        }
    }
    std::vector<long> id(surf.vecPt.size(), 0);
    long next = 1;
    for (std::size_t part = 0; part < starts.size(); ++part) {
        const std::size_t b = starts[part];
        const std::size_t e = part + 1 < starts.size() ? starts[part + 1] : surf.vecTri.size();
        out += "TFACE\n";
        for (std::size_t i = 0; i < surf.vecPt.size(); ++i) {
            if (partOf[i] == part || (part == 0 && partOf[i] == starts.size())) {
                id[i] = next++;
                AppendGocadVertex(out, id[i], surf.vecPt[i], surf.info.bDepth);
            }
        }
        for (std::size_t k = b; k < e; ++k) {
            const auto& t = surf.vecTri[k];
            out += "TRGL " + std::to_string(id[t[0]]) + ' ' + std::to_string(id[t[1]]) + ' ' +
                   std::to_string(id[t[2]]) + '\n';
        }
    }
    out += "END\n";
}

CKivLineData ReadPLine(const std::string& path)
{
    CKivTextReader in(path);
    CKivLineData data;
    CKivIdMap ids;
    std::vector<CKivPoint3d> pts;
    std::vector<std::string_view> w;
    std::string_view line;
    bool bInObject = false;
    int nObjects = 0;
    bool bDepth = false;
    // The current part: vertex indices in definition order and its segments.
    std::vector<int> partVerts;
    std::vector<std::pair<int, int>> partSegs;

    auto flushPart = [&]() {
        if (partSegs.empty()) {
            // A part without segments runs through its vertices in order.
            for (std::size_t i = 1; i < partVerts.size(); ++i) {
                partSegs.emplace_back(partVerts[i - 1], partVerts[i]);
            }
        }
        CKivPolyLine cur;
        std::vector<int> curIdx;
        auto finish = [&]() {
            if (curIdx.size() >= 2) {
                if (curIdx.size() >= 4 && curIdx.front() == curIdx.back()) {
                    curIdx.pop_back();
                    cur.DelVertex(cur.NumVerts() - 1);
                    cur.SetClosed(true);
                }
                data.vecLine.push_back(cur);
            }
            cur.Clear();
            curIdx.clear();
        };
        // Segments are chained in file order; a segment that does not start
        // where the last one ended starts a new line.
        for (const auto& s : partSegs) {
            if (curIdx.empty() || curIdx.back() != s.first) {
                finish();
                cur.AddVertex(pts[s.first]);
                curIdx.push_back(s.first);
            }
            cur.AddVertex(pts[s.second]);
            curIdx.push_back(s.second);
        }
        finish();
        partVerts.clear();
        partSegs.clear();
    };

    while (in.NextLine(line)) {
        const std::string_view t = StripComment(line);
        if (t.empty()) {
            continue;
        }
        SplitWords(t, w);
        if (!bInObject) {
            CheckGocadStart(in, w, "PLine");
            bInObject = true;
            ++nObjects;
            ids.Clear();
            bDepth = false;
            continue;
        }
        CKivGocadInfo local;
        if (ReadGocadCommon(in, t, w, nObjects == 1 ? data.info : local, nObjects == 1)) {
            bDepth = nObjects == 1 ? data.info.bDepth : local.bDepth;
            continue;
        }
        const std::string_view key = w[0];
        if (ReadVertexLine(in, w, bDepth, pts, ids)) {
            partVerts.push_back(static_cast<int>(pts.size() - 1));
        } else if (key == "SEG") {
            if (w.size() < 3) {
                in.Fail("expected SEG a b");
            }
            partSegs.emplace_back(ids.Find(in, w[1]), ids.Find(in, w[2]));
        } else if (key == "ILINE") {
            flushPart();
        } else if (key == "END") {
            flushPart();
            bInObject = false;
        } else if (key == "GOCAD") {
            in.Fail("expected END before the next GOCAD object");
        }
    }
    if (nObjects == 0) {
        throw CKivIoError(path, 0, "empty file (expected 'GOCAD PLine 1')");
    }
    if (bInObject) {
        throw CKivIoError(path, in.LineNo(), "expected END at the end of the PLine object");
    }
    if (data.vecLine.empty()) {
        throw CKivIoError(path, 0, "no line with two or more vertices");
    }
    return data;
}

void WritePLine(std::string& out, const CKivLineData& lines)
{
    WriteGocadCommon(out, "PLine", lines.info, "lines");
    long next = 1;
    for (const CKivPolyLine& pl : lines.vecLine) {
        out += "ILINE\n";
        const long first = next;
        for (unsigned i = 0; i < pl.NumVerts(); ++i) {
            CKivPoint3d p;
            pl.GetVertex(i, p);
            AppendGocadVertex(out, next++, p, lines.info.bDepth);
        }
        for (long id = first; id + 1 < next; ++id) {
            out += "SEG " + std::to_string(id) + ' ' + std::to_string(id + 1) + '\n';
        }
        if (pl.IsClosed() && pl.NumVerts() >= 3) {
            out += "SEG " + std::to_string(next - 1) + ' ' + std::to_string(first) + '\n';
        }
    }
    out += "END\n";
}

} // namespace kivcli
