// Line formats: extension dispatch, GeoJSON and plain text blocks.
#include "formats_internal.h"
#include "output_file.h"
#include "text_reader.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace kivcli {

namespace {

using json = nlohmann::json;

// Line number of a byte offset, for messages about JSON text.
long LineOfOffset(const std::string& text, std::size_t offset)
{
    offset = std::min(offset, text.size());
    return 1 + static_cast<long>(std::count(text.begin(), text.begin() + static_cast<long>(offset), '\n'));
}

// A position array [x, y] or [x, y, z] -> point.
CKivPoint3d JsonPosition(const json& pos, const std::string& where)
{
    if (!pos.is_array() || pos.size() < 2 || pos.size() > 4 || !pos[0].is_number() || !pos[1].is_number() ||
        (pos.size() > 2 && !pos[2].is_number())) {
        throw std::runtime_error(where + ": expected a position [x, y] or [x, y, z], got " + pos.dump());
    }
    const CKivPoint3d p(pos[0].get<double>(), pos[1].get<double>(), pos.size() > 2 ? pos[2].get<double>() : 0.0);
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
        throw std::runtime_error(where + ": expected finite coordinates");
    }
    return p;
}

// An array of positions -> polyline; rings end on their first position and
// become closed polylines without the repeat.
void JsonLine(const json& coords, bool bRing, const std::string& where, std::vector<CKivPolyLine>& out)
{
    if (!coords.is_array() || coords.size() < 2) {
        throw std::runtime_error(where + ": expected an array of at least 2 positions");
    }
    std::vector<CKivPoint3d> pts;
    for (std::size_t i = 0; i < coords.size(); ++i) {
        pts.push_back(JsonPosition(coords[i], where + " position " + std::to_string(i + 1)));
    }
    if (bRing && pts.size() < 3) {
        // Written back, such a ring could only be an open line.
        throw std::runtime_error(where + ": expected a ring of at least 3 positions");
    }
    CKivPolyLine pl;
    const bool bEndsOnStart = pts.size() >= 4 && pts.front().x == pts.back().x && pts.front().y == pts.back().y &&
                              pts.front().z == pts.back().z;
    if (bRing || bEndsOnStart) {
        if (bEndsOnStart) {
            pts.pop_back();
        }
        pl.SetClosed(true);
    }
    pl.SetVertex(pts);
    out.push_back(pl);
}

void JsonGeometry(const json& g, const std::string& where, std::vector<CKivPolyLine>& out)
{
    if (g.is_null()) {
        return; // a feature without geometry
    }
    if (!g.is_object() || !g.contains("type") || !g["type"].is_string()) {
        throw std::runtime_error(where + ": expected a geometry object with a type");
    }
    const std::string type = g["type"].get<std::string>();
    if (type == "GeometryCollection") {
        const json& gs = g.value("geometries", json::array());
        for (std::size_t i = 0; i < gs.size(); ++i) {
            JsonGeometry(gs[i], where + " geometry " + std::to_string(i + 1), out);
        }
        return;
    }
    if (!g.contains("coordinates")) {
        throw std::runtime_error(where + ": expected coordinates in the " + type);
    }
    const json& c = g["coordinates"];
    auto eachPart = [&](const json& parts, bool bRing, const std::string& what) {
        if (!parts.is_array()) {
            throw std::runtime_error(where + ": expected an array of " + what);
        }
        for (std::size_t i = 0; i < parts.size(); ++i) {
            JsonLine(parts[i], bRing, where + " " + what + " " + std::to_string(i + 1), out);
        }
    };
    if (type == "LineString") {
        JsonLine(c, false, where, out);
    } else if (type == "MultiLineString") {
        eachPart(c, false, "line");
    } else if (type == "Polygon") {
        eachPart(c, true, "ring");
    } else if (type == "MultiPolygon") {
        if (!c.is_array()) {
            throw std::runtime_error(where + ": expected an array of polygons");
        }
        for (const json& poly : c) {
            eachPart(poly, true, "ring");
        }
    } else {
        throw std::runtime_error(where + ": expected a line or polygon geometry, got " + type);
    }
}

CKivLineData ReadTextBlocks(const std::string& path)
{
    CKivTextReader in(path);
    CKivLineData data;
    std::vector<CKivPoint3d> block;
    std::vector<std::string_view> fields;
    long blockLine = 0;
    auto flush = [&]() {
        if (block.empty()) {
            return;
        }
        if (block.size() < 2) {
            throw CKivIoError(path, blockLine, "expected a line of at least 2 points, found a single point");
        }
        CKivPolyLine pl;
        const CKivPoint3d& a = block.front();
        const CKivPoint3d& b = block.back();
        if (block.size() >= 4 && a.x == b.x && a.y == b.y && a.z == b.z) {
            block.pop_back();
            pl.SetClosed(true);
        }
        pl.SetVertex(block);
        data.vecLine.push_back(pl);
        block.clear();
    };
    std::string_view line;
    while (in.NextLine(line)) {
        const std::string_view raw = Trim(line);
        if (raw.empty()) {
            flush();
            continue;
        }
        const std::string_view t = StripComment(raw);
        if (t.empty()) {
            continue; // a comment line does not end a block
        }
        SplitFields(t, fields);
        if (fields.size() != 2 && fields.size() != 3) {
            in.Fail("expected x y or x y z, found " + std::to_string(fields.size()) + " columns");
        }
        if (block.empty()) {
            blockLine = in.LineNo();
        }
        block.emplace_back(in.ParseNumber(fields[0], "x"), in.ParseNumber(fields[1], "y"),
                           fields.size() == 3 ? in.ParseNumber(fields[2], "z") : 0.0);
    }
    flush();
    if (data.vecLine.empty()) {
        throw CKivIoError(path, 0, "no lines found (expected blocks of x y z rows separated by blank lines)");
    }
    return data;
}

void WriteTextBlocks(std::string& out, const CKivLineData& lines)
{
    bool bFirst = true;
    for (const CKivPolyLine& pl : lines.vecLine) {
        if (!bFirst) {
            out += '\n';
        }
        bFirst = false;
        CKivPoint3d p;
        for (unsigned i = 0; i < pl.NumVerts(); ++i) {
            pl.GetVertex(i, p);
            AppendXyz(out, p);
        }
        if (pl.IsClosed() && pl.NumVerts() >= 3) {
            pl.GetVertex(0, p);
            AppendXyz(out, p);
        }
    }
}

} // namespace

CKivLineData ReadGeoJson(const std::string& path)
{
    const std::string text = ReadFileBytes(path);
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::parse_error& e) {
        // The message ends with what the parser expected at that byte.
        std::string what = e.what();
        const std::size_t colon = what.rfind(": ");
        what = colon == std::string::npos ? what : what.substr(colon + 2);
        throw CKivIoError(path, text.empty() ? 0 : LineOfOffset(text, e.byte == 0 ? 0 : e.byte - 1),
                          "invalid JSON: " + what);
    } catch (const json::exception& e) {
        // A number beyond the range of a double ("number overflow parsing
        // '1e999'"): the parser gives no position, so find the quoted number.
        std::string what = e.what();
        const std::size_t colon = what.find("] ");
        what = colon == std::string::npos ? what : what.substr(colon + 2);
        const std::size_t q0 = what.find('\''), q1 = what.rfind('\'');
        const std::size_t at = q0 < q1 ? text.find(what.substr(q0 + 1, q1 - q0 - 1)) : std::string::npos;
        throw CKivIoError(path, at == std::string::npos ? 0 : LineOfOffset(text, at), "invalid JSON: " + what);
    }
    CKivLineData data;
    try {
        const std::string type = doc.is_object() && doc.contains("type") && doc["type"].is_string()
                                     ? doc["type"].get<std::string>()
                                     : std::string();
        if (type == "FeatureCollection") {
            const json& fs = doc.value("features", json::array());
            for (std::size_t i = 0; i < fs.size(); ++i) {
                const std::string where = "feature " + std::to_string(i + 1);
                if (!fs[i].is_object() || !fs[i].contains("geometry")) {
                    throw std::runtime_error(where + ": expected a Feature with a geometry");
                }
                JsonGeometry(fs[i]["geometry"], where, data.vecLine);
            }
        } else if (type == "Feature") {
            JsonGeometry(doc.value("geometry", json()), "feature", data.vecLine);
        } else if (!type.empty()) {
            JsonGeometry(doc, "geometry", data.vecLine);
        } else {
            throw std::runtime_error("expected a GeoJSON object with a type");
        }
        if (doc.contains("name") && doc["name"].is_string()) {
            data.info.strName = doc["name"].get<std::string>();
        }
    } catch (const json::exception& e) {
        throw CKivIoError(path, 0, std::string("unexpected GeoJSON content: ") + e.what());
    } catch (const std::runtime_error& e) {
        throw CKivIoError(path, 0, e.what());
    }
    if (data.vecLine.empty()) {
        throw CKivIoError(path, 0, "no line or polygon geometry found");
    }
    return data;
}

void WriteGeoJson(std::string& out, const CKivLineData& lines)
{
    json features = json::array();
    for (const CKivPolyLine& pl : lines.vecLine) {
        json coords = json::array();
        CKivPoint3d p;
        for (unsigned i = 0; i < pl.NumVerts(); ++i) {
            pl.GetVertex(i, p);
            coords.push_back({p.x, p.y, p.z});
        }
        json geom;
        if (pl.IsClosed() && pl.NumVerts() >= 3) {
            pl.GetVertex(0, p);
            coords.push_back({p.x, p.y, p.z});
            geom = {{"type", "Polygon"}, {"coordinates", json::array({coords})}};
        } else {
            geom = {{"type", "LineString"}, {"coordinates", coords}};
        }
        features.push_back({{"type", "Feature"}, {"properties", json::object()}, {"geometry", geom}});
    }
    // One feature per line: readable, and diffs stay small.
    out += "{\"type\": \"FeatureCollection\"";
    if (!lines.info.strName.empty()) {
        out += ", \"name\": " + json(lines.info.strName).dump();
    }
    out += ", \"features\": [\n";
    for (std::size_t i = 0; i < features.size(); ++i) {
        out += features[i].dump();
        out += i + 1 < features.size() ? ",\n" : "\n";
    }
    out += "]}\n";
}

void CheckLinesExtension(const std::string& path)
{
    const std::string ext = FileExtension(path);
    if (ext != "pl" && ext != "geojson" && ext != "json" && ext != "txt") {
        throw CKivIoError(path, 0, "unknown lines extension '." + ext + "': expected .pl, .geojson or .txt");
    }
}

CKivLineData ReadLines(const std::string& path)
{
    CheckLinesExtension(path);
    const std::string ext = FileExtension(path);
    if (ext == "pl") {
        return ReadPLine(path);
    }
    if (ext == "txt") {
        return ReadTextBlocks(path);
    }
    return ReadGeoJson(path);
}

void WriteLines(const std::string& path, const CKivLineData& lines)
{
    CheckLinesExtension(path);
    const std::string ext = FileExtension(path);
    CKivOutputFile file(path);
    std::string out;
    if (ext == "pl") {
        WritePLine(out, lines);
    } else if (ext == "txt") {
        WriteTextBlocks(out, lines);
    } else {
        WriteGeoJson(out, lines);
    }
    file.Stream() << out;
    file.Commit();
}

} // namespace kivcli
