// Fuzz target: the TIN builder fed points, constraint lines, hole lines and an
// outline decoded from the input, with SetCoverHull on or off, followed by
// queries on the result. Checked: the mesh is a valid plan triangulation
// (strictly counter-clockwise, no overlap), every corner is an input point,
// results are finite where the input was, the empty-circle property holds
// without constraints, and with SetCoverHull the triangles fill the convex
// hull of their corners.
#include "fuzz_input.h"
#include "fuzz_query.h"
#include "tin_check.h"

#include <kivgeo/delaunay.h>
#include <kivgeo/geo_convex.h>
#include <kivgeo/mesh_data.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

struct DecodedTin {
    std::vector<CKivPoint3d> points;
    std::vector<std::vector<CKivPoint3d>> lines;
    std::vector<bool> closed;
    std::vector<std::vector<CKivPoint3d>> holes;
    std::vector<CKivPoint3d> outline;
    bool coverHull = false;
};

DecodedTin Decode(CKivFuzzInput& in)
{
    DecodedTin d;
    d.coverHull = in.Flag();
    d.points = in.Points(64);
    const unsigned nLines = in.Byte() % 4;
    for (unsigned i = 0; i < nLines; ++i) {
        d.lines.push_back(in.Points(8));
        d.closed.push_back(in.Flag());
    }
    const unsigned nHoles = in.Byte() % 3;
    for (unsigned i = 0; i < nHoles; ++i) {
        d.holes.push_back(in.Points(8));
    }
    if (in.Flag()) {
        d.outline = in.Points(10);
    }
    return d;
}

// With KIVGEO_FUZZ_VERBOSE set, the decoded input as C++ initialisers, ready
// to paste into a regression test.
void Dump(const DecodedTin& d)
{
    if (std::getenv("KIVGEO_FUZZ_VERBOSE") == nullptr) {
        return;
    }
    const auto list = [](const char* name, const std::vector<CKivPoint3d>& pts) {
        std::fprintf(stderr, "%s = {", name);
        for (const CKivPoint3d& p : pts) {
            std::fprintf(stderr, "P(%.17g, %.17g, %.17g), ", p.x, p.y, p.z);
        }
        std::fprintf(stderr, "};\n");
    };
    std::fprintf(stderr, "coverHull = %d;\n", d.coverHull ? 1 : 0);
    list("points", d.points);
    for (std::size_t i = 0; i < d.lines.size(); ++i) {
        list(d.closed[i] ? "closed line" : "open line", d.lines[i]);
    }
    for (const std::vector<CKivPoint3d>& h : d.holes) {
        list("hole", h);
    }
    list("outline", d.outline);
}

double Reach(const CKivPoint3d& p)
{
    return std::fmax(std::fabs(p.x), std::fmax(std::fabs(p.y), std::fabs(p.z)));
}

// q is one of the inputs, up to the rounding of the shift to a local origin
// and back (a few units in the last place of the largest finite input).
// Every plan coordinate a multiple of 2^-8 (and small enough for the
// multiples to stay exact).
bool OnCoarseGrid(const std::vector<CKivPoint3d>& pts)
{
    for (const CKivPoint3d& p : pts) {
        for (double v : {p.x * 256.0, p.y * 256.0}) {
            if (!(std::fabs(v) < 0x1p40) || v != std::nearbyint(v)) {
                return false;
            }
        }
    }
    return true;
}

bool IsInputPoint(const CKivPoint3d& q, const std::vector<CKivPoint3d>& inputs)
{
    double reach = 0.0;
    for (const CKivPoint3d& p : inputs) {
        if (IsFinitePt(p)) {
            reach = std::fmax(reach, Reach(p));
        }
    }
    for (const CKivPoint3d& p : inputs) {
        const double tol = 1e-12 * (Reach(p) + 1.0) + 1e-15 * reach;
        if (std::fabs(p.x - q.x) <= tol && std::fabs(p.y - q.y) <= tol && std::fabs(p.z - q.z) <= tol) {
            return true;
        }
    }
    return false;
}

// Adds the magnitudes of the products each cross product cancels to terms,
// so that the caller can bound the rounding.
double HullArea(const std::vector<CKivPoint3d>& pts, double& terms)
{
    std::vector<CKivPoint3d> hull;
    // The return code says which side chains were found, not whether the
    // hull has area (a triangle can give 0); the area itself tells.
    CKivGeoConvex::Convex(pts, hull);
    // A fan from the first corner: the shoelace about the origin loses the
    // area to cancellation at map coordinates.
    double area = 0.0;
    for (std::size_t i = 1; i + 1 < hull.size(); ++i) {
        const CKivPoint3d &a = hull[0], &b = hull[i], &c = hull[i + 1];
        area += 0.5 * tincheck::Orient(a, b, c);
        terms += std::fabs((b.x - a.x) * (c.y - a.y)) + std::fabs((b.y - a.y) * (c.x - a.x));
    }
    return area;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CKivFuzzInput in(data, size);
    const DecodedTin d = Decode(in);
    Dump(d);

    TriMesh::CKivMeshData mesh;
    TriMesh::CKivDelaunay tin(mesh);
    tin.SetCoverHull(d.coverHull);
    std::vector<CKivPoint3d> inputs = d.points;
    for (const CKivPoint3d& p : d.points) {
        const int idx = tin.AddVertex(p);
        KIV_FUZZ_CHECK(idx >= 0);
    }
    for (std::size_t i = 0; i < d.lines.size(); ++i) {
        KIV_FUZZ_CHECK(tin.AddSegYS(d.lines[i], d.closed[i]) == (d.lines[i].size() >= 2));
        inputs.insert(inputs.end(), d.lines[i].begin(), d.lines[i].end());
    }
    for (const std::vector<CKivPoint3d>& h : d.holes) {
        KIV_FUZZ_CHECK(tin.AddHoleLine(h) == (h.size() >= 3));
        inputs.insert(inputs.end(), h.begin(), h.end());
    }
    if (!d.outline.empty()) {
        KIV_FUZZ_CHECK(tin.SetOutline(d.outline) == (d.outline.size() >= 3));
        inputs.insert(inputs.end(), d.outline.begin(), d.outline.end());
    }
    const bool ok = tin.Delaunay();

    std::vector<CKivTri3d> tris;
    mesh.OutputData(tris);
    KIV_FUZZ_CHECK(ok || tris.empty());
    const std::string why = tincheck::CheckTin(tris);
    if (!why.empty()) {
        std::fprintf(stderr, "invalid triangulation: %s\n", why.c_str());
        if (std::getenv("KIVGEO_FUZZ_VERBOSE") != nullptr) {
            for (const CKivTri3d& t : tris) {
                std::fprintf(stderr, "  (%.17g, %.17g) (%.17g, %.17g) (%.17g, %.17g)\n", t.m_pt[0].x, t.m_pt[0].y,
                             t.m_pt[1].x, t.m_pt[1].y, t.m_pt[2].x, t.m_pt[2].y);
            }
        }
    }
    // Coordinates beyond 1e15 next to small ones do not survive the shift to a
    // local origin (x - o rounds to the same value for many x), so validity
    // is owed only for tame input; wild input must still be survived.
    KIV_FUZZ_CHECK(why.empty() || in.Wild());

    std::vector<CKivPoint3d> corners;
    for (const CKivTri3d& t : tris) {
        for (const CKivPoint3d& p : t.m_pt) {
            KIV_FUZZ_CHECK(IsFinitePt(p));
            if (!IsInputPoint(p, inputs)) {
                std::fprintf(stderr, "corner (%.17g, %.17g, %.17g) is no input point\n", p.x, p.y, p.z);
            }
            KIV_FUZZ_CHECK(IsInputPoint(p, inputs));
            corners.push_back(p);
        }
    }

    const bool constrained = !d.lines.empty() || !d.holes.empty() || !d.outline.empty();
    // The triangulator's in-circle test takes a triangle whose doubled area is
    // at most 1e-6 as degenerate, and a degenerate triangle never joins a
    // cavity, so a thin sliver can keep triangles beyond it that are not
    // Delaunay. On a grid of 2^-8 (half that after the shift to the centre)
    // every doubled area is 0 or above 3.8e-6, and no such sliver can form.
    if (!constrained && !in.Wild() && !d.coverHull && OnCoarseGrid(inputs)) {
        for (const CKivTri3d& t : tris) {
            for (const CKivPoint3d& p : corners) {
                if (std::getenv("KIVGEO_FUZZ_VERBOSE") != nullptr &&
                    tincheck::InCircleStrict(t.m_pt[0], t.m_pt[1], t.m_pt[2], p)) {
                    std::fprintf(
                        stderr, "(%.17g, %.17g) in the circle of (%.17g, %.17g) (%.17g, %.17g) (%.17g, %.17g)\n",
                        p.x, p.y, t.m_pt[0].x, t.m_pt[0].y, t.m_pt[1].x, t.m_pt[1].y, t.m_pt[2].x, t.m_pt[2].y);
                }
                KIV_FUZZ_CHECK(!tincheck::InCircleStrict(t.m_pt[0], t.m_pt[1], t.m_pt[2], p));
            }
        }
    }
    if (!constrained && d.coverHull && !in.Wild() && !tris.empty()) {
        double area = 0.0;
        // Rounding of the cross products: an epsilon of the terms they cancel.
        double terms = 0.0;
        for (const CKivTri3d& t : tris) {
            area += 0.5 * tincheck::Orient(t.m_pt[0], t.m_pt[1], t.m_pt[2]);
            const CKivPoint3d* v = t.m_pt;
            terms += std::fabs((v[1].x - v[0].x) * (v[2].y - v[0].y)) +
                     std::fabs((v[1].y - v[0].y) * (v[2].x - v[0].x));
        }
        const double hull = HullArea(corners, terms);
        KIV_FUZZ_CHECK(std::fabs(area - hull) <= 1e-9 * hull + 1e-13 * terms);
    }
    FuzzQueries(in, mesh, why.empty() && !in.Wild());
    return 0;
}
