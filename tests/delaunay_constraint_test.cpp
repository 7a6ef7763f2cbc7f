// Constraint lines, hole lines, the outline and the full-hull cover of the
// triangulator: validity of the result on many inputs, constraints present,
// holes and outline applied, and the point-in-ring index against the plain
// test.
#include <kivgeo/delaunay.h>
#include <kivgeo/planar.h>

#include "mesh_store_access.h"
#include "spacemath/exact_orient.h"
#include "tin_check.h"
#include "trimesh/ring_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace TriMesh {
// Private access for the argument checks and the side-polygon fill.
class CKivDelaunayInspector {
public:
    static std::size_t SegCount(const CKivDelaunay& d) { return d.m_vecSegYS.size(); }
    static std::size_t HoleCount(const CKivDelaunay& d) { return d.m_vecHole.size(); }
    static unsigned OutlineSize(const CKivDelaunay& d) { return d.m_Outline.NumVerts(); }
    static bool TriPoly(CKivDelaunay& d, std::vector<_sVertex*>& ring) { return d.TriPolyDelaunay(ring); }
    static void DealSegYS(CKivDelaunay& d, const _sSeg* s) { d.DealSegYS(s); }
    static void SetPlainWrap(CKivDelaunay& d, bool bPlain) { d.m_bPlainWrap = bPlain; }
};
} // namespace TriMesh

using TriMesh::_sTri;
using TriMesh::_sVertex;
using TriMesh::CKivDelaunay;
using TriMesh::CKivDelaunayInspector;
using TriMesh::CKivMeshData;
using TriMesh::CKivMeshDataInspector;
using TriMesh::CKivRingIndex;

namespace {

using Pts = std::vector<CKivPoint3d>;

CKivPoint3d P(double x, double y, double z)
{
    return CKivPoint3d(x, y, z);
}

struct SInput {
    Pts points;
    std::vector<Pts> lines; // open constraint lines
    std::vector<Pts> holes;
    Pts outline;
    bool cover = false;
};

// The triangles of a run; verts (when given) receives the mesh's vertices
// without the three bounding ones the run appends last.
std::vector<CKivTri3d> RunTin(const SInput& in, bool* ok = nullptr, Pts* verts = nullptr)
{
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    tin.SetCoverHull(in.cover);
    for (const CKivPoint3d& p : in.points) {
        tin.AddVertex(p);
    }
    for (const Pts& l : in.lines) {
        tin.AddSegYS(l, false);
    }
    for (const Pts& h : in.holes) {
        tin.AddHoleLine(h);
    }
    if (!in.outline.empty()) {
        tin.SetOutline(in.outline);
    }
    const bool r = tin.Delaunay();
    if (ok) {
        *ok = r;
    }
    std::vector<CKivTri3d> out;
    mesh.OutputData(out);
    if (verts) {
        mesh.OutputPoints(*verts);
        verts->resize(verts->size() >= 3 ? verts->size() - 3 : 0);
    }
    return out;
}

int Orient(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c)
{
    return ExactOrient2D(a.x, a.y, b.x, b.y, c.x, c.y);
}

double Area2(const CKivTri3d& t)
{
    const CKivPoint3d &a = t.m_pt[0], &b = t.m_pt[1], &c = t.m_pt[2];
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

using Key = std::pair<double, double>;
Key K(const CKivPoint3d& p)
{
    return {p.x, p.y};
}

// The constraint AB is in the mesh as one edge or a chain of edges through
// vertices on AB, each step getting closer to B. Vertices come back from the
// local origin with a rounding error, so ends match within 1e-9 relative.
using Neighbours = std::map<Key, std::set<Key>>;

Neighbours EdgeMap(const std::vector<CKivTri3d>& tris)
{
    Neighbours nb;
    for (const CKivTri3d& t : tris) {
        for (int k = 0; k < 3; ++k) {
            nb[K(t.m_pt[k])].insert(K(t.m_pt[(k + 1) % 3]));
            nb[K(t.m_pt[(k + 1) % 3])].insert(K(t.m_pt[k]));
        }
    }
    return nb;
}

bool HasConstraint(const Neighbours& nb, const CKivPoint3d& a, const CKivPoint3d& b)
{
    const double tol = 1e-9 * (std::fabs(a.x) + std::fabs(a.y) + std::fabs(b.x) + std::fabs(b.y) + 1e-3);
    const auto d2 = [](const Key& p, const CKivPoint3d& q) {
        return (p.first - q.x) * (p.first - q.x) + (p.second - q.y) * (p.second - q.y);
    };
    auto cur = nb.end();
    for (auto it = nb.begin(); it != nb.end(); ++it) {
        if (d2(it->first, a) <= tol * tol) {
            cur = it;
        }
    }
    for (std::size_t guard = 0; cur != nb.end() && guard <= nb.size(); ++guard) {
        if (d2(cur->first, b) <= tol * tol) {
            return true;
        }
        Key best = cur->first;
        for (const Key& w : cur->second) {
            const bool on = d2(w, b) <= tol * tol || IsPtInSeg2D(w.first, w.second, a.x, a.y, b.x, b.y);
            if (on && d2(w, b) < d2(best, b)) {
                best = w;
            }
        }
        if (best == cur->first) {
            return false;
        }
        cur = nb.find(best);
    }
    return false;
}

bool HasConstraint(const std::vector<CKivTri3d>& tris, const CKivPoint3d& a, const CKivPoint3d& b)
{
    return HasConstraint(EdgeMap(tris), a, b);
}

// Every point the triangulator was given, lines and rings included.
Pts AllPoints(const SInput& in)
{
    Pts p = in.points;
    for (const Pts& l : in.lines) {
        p.insert(p.end(), l.begin(), l.end());
    }
    for (const Pts& h : in.holes) {
        p.insert(p.end(), h.begin(), h.end());
    }
    p.insert(p.end(), in.outline.begin(), in.outline.end());
    return p;
}

CKivPoint3d Centroid(const CKivTri3d& t)
{
    return P((t.m_pt[0].x + t.m_pt[1].x + t.m_pt[2].x) / 3.0, (t.m_pt[0].y + t.m_pt[1].y + t.m_pt[2].y) / 3.0,
             0.0);
}

// Twice the area of the convex hull (monotone chain, exact turns).
double HullArea2(Pts p)
{
    std::sort(p.begin(), p.end(),
              [](const CKivPoint3d& a, const CKivPoint3d& b) { return a.x < b.x || (a.x == b.x && a.y < b.y); });
    if (p.size() < 3) {
        return 0.0;
    }
    Pts h(2 * p.size());
    std::size_t k = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
        while (k >= 2 && Orient(h[k - 2], h[k - 1], p[i]) <= 0) {
            --k;
        }
        h[k++] = p[i];
    }
    for (std::size_t i = p.size() - 1, t = k + 1; i-- > 0;) {
        while (k >= t && Orient(h[k - 2], h[k - 1], p[i]) <= 0) {
            --k;
        }
        h[k++] = p[i];
    }
    double s = 0.0;
    for (std::size_t i = 1; i + 2 < k; ++i) {
        s += (h[i].x - h[0].x) * (h[i + 1].y - h[0].y) - (h[i].y - h[0].y) * (h[i + 1].x - h[0].x);
    }
    return s;
}

double SumArea2(const std::vector<CKivTri3d>& tris)
{
    double s = 0.0;
    for (const CKivTri3d& t : tris) {
        s += Area2(t);
    }
    return s;
}

Pts RandomPoints(std::mt19937& rng, int n, double x0, double y0, double size)
{
    std::uniform_real_distribution<double> u(0.0, 1.0);
    Pts p;
    for (int i = 0; i < n; ++i) {
        p.emplace_back(x0 + size * u(rng), y0 + size * u(rng), u(rng));
    }
    return p;
}

// Random segments inside the square, none crossing or touching another.
std::vector<Pts> RandomNonCrossingSegs(std::mt19937& rng, int n, double x0, double y0, double size)
{
    std::uniform_real_distribution<double> u(0.05, 0.95);
    std::vector<Pts> segs;
    for (int tries = 0; static_cast<int>(segs.size()) < n && tries < 50 * n; ++tries) {
        const CKivPoint3d a(x0 + size * u(rng), y0 + size * u(rng), 0.0);
        const double ang = 6.283 * u(rng), len = size * 0.3 * u(rng);
        const CKivPoint3d b(a.x + len * std::cos(ang), a.y + len * std::sin(ang), 0.0);
        if (b.x < x0 || b.x > x0 + size || b.y < y0 || b.y > y0 + size) {
            continue;
        }
        bool clear = true;
        for (const Pts& s : segs) {
            // Keep a margin: disjoint boxes grown by 1 % of the square.
            const double m = 0.01 * size;
            const bool boxApart = std::max(a.x, b.x) + m < std::min(s[0].x, s[1].x) ||
                                  std::min(a.x, b.x) - m > std::max(s[0].x, s[1].x) ||
                                  std::max(a.y, b.y) + m < std::min(s[0].y, s[1].y) ||
                                  std::min(a.y, b.y) - m > std::max(s[0].y, s[1].y);
            if (!boxApart) {
                clear = false;
                break;
            }
        }
        if (clear) {
            segs.push_back({a, b});
        }
    }
    return segs;
}

Pts Regular(double cx, double cy, double r, int n, bool ccw = true)
{
    Pts p;
    for (int i = 0; i < n; ++i) {
        const double a = (ccw ? 1 : -1) * 6.283185307179586 * i / n + 0.1;
        p.emplace_back(cx + r * std::cos(a), cy + r * std::sin(a), 0.0);
    }
    return p;
}

SInput Scaled(const SInput& in, double s, double dx, double dy)
{
    SInput out = in;
    const auto f = [&](Pts& p) {
        for (CKivPoint3d& q : p) {
            q.x = q.x * s + dx, q.y = q.y * s + dy;
        }
    };
    f(out.points);
    for (Pts& l : out.lines) {
        f(l);
    }
    for (Pts& h : out.holes) {
        f(h);
    }
    f(out.outline);
    return out;
}

TEST(DelaunayConstraint, ArgumentChecksAndSegmentCounts)
{
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    const Pts one = {P(0, 0, 0)};
    const Pts two = {P(0, 0, 0), P(1, 0, 0)};
    const Pts four = {P(0, 0, 0), P(1, 0, 0), P(1, 1, 0), P(0, 1, 0)};
    EXPECT_FALSE(tin.AddSegYS(one, false));
    EXPECT_FALSE(tin.AddSegYS({}, true));
    EXPECT_FALSE(tin.AddHoleLine(two));
    EXPECT_FALSE(tin.SetOutline(two));
    EXPECT_EQ(CKivDelaunayInspector::SegCount(tin), 0u);
    EXPECT_EQ(CKivDelaunayInspector::HoleCount(tin), 0u);
    EXPECT_EQ(CKivDelaunayInspector::OutlineSize(tin), 0u);
    EXPECT_EQ(CKivMeshDataInspector(mesh).Verts().size(), 0u);

    EXPECT_TRUE(tin.AddSegYS(four, false));
    EXPECT_EQ(CKivDelaunayInspector::SegCount(tin), 3u);
    EXPECT_TRUE(tin.AddSegYS(four, true));
    EXPECT_EQ(CKivDelaunayInspector::SegCount(tin), 7u);
    EXPECT_EQ(CKivMeshDataInspector(mesh).Verts().size(), 4u); // merged with the first line's points
    EXPECT_TRUE(tin.AddHoleLine(four));
    EXPECT_EQ(CKivDelaunayInspector::SegCount(tin), 11u);
    EXPECT_EQ(CKivDelaunayInspector::HoleCount(tin), 1u);
    EXPECT_TRUE(tin.SetOutline(four));
    EXPECT_EQ(CKivDelaunayInspector::SegCount(tin), 15u);
    EXPECT_EQ(CKivDelaunayInspector::OutlineSize(tin), 4u);
    // Points that merge still make a segment (which forcing then skips).
    EXPECT_TRUE(tin.AddSegYS({P(5, 5, 0), P(5.005, 5, 1)}, false));
    EXPECT_EQ(CKivDelaunayInspector::SegCount(tin), 16u);
    EXPECT_TRUE(tin.Delaunay());
}

TEST(DelaunayConstraint, ThreeVertexSidePolygonIsOneCounterClockwiseTriangle)
{
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    tin.AddVertex(P(0, 0, 0));
    tin.AddVertex(P(0, 1, 0));
    tin.AddVertex(P(1, 0, 0));
    std::vector<_sVertex*> ring = CKivMeshDataInspector(mesh).Verts(); // clockwise
    ASSERT_TRUE(CKivDelaunayInspector::TriPoly(tin, ring));
    std::vector<CKivTri3d> out;
    mesh.OutputData(out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_GT(Area2(out[0]), 0.0);
    // Collinear: refused, nothing added.
    tin.AddVertex(P(2, 0, 0));
    tin.AddVertex(P(3, 0, 0));
    std::vector<_sVertex*> line = {CKivMeshDataInspector(mesh).Verts()[2], CKivMeshDataInspector(mesh).Verts()[3],
                                   CKivMeshDataInspector(mesh).Verts()[4]};
    EXPECT_FALSE(CKivDelaunayInspector::TriPoly(tin, line));
    EXPECT_EQ(mesh.TriNum(), 1u);
}

TEST(DelaunayConstraint, SegmentAlreadyAnEdgeChangesNothing)
{
    std::mt19937 rng(7);
    SInput in;
    in.points = RandomPoints(rng, 60, 0, 0, 100);
    const std::vector<CKivTri3d> base = RunTin(in);
    ASSERT_FALSE(base.empty());
    for (int k = 0; k < 5; ++k) {
        const CKivTri3d& t = base[static_cast<std::size_t>(k) * base.size() / 5];
        SInput with = in;
        with.lines.push_back({t.m_pt[0], t.m_pt[1]});
        const std::vector<CKivTri3d> got = RunTin(with);
        ASSERT_EQ(got.size(), base.size());
        for (std::size_t i = 0; i < got.size(); ++i) {
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(K(got[i].m_pt[c]), K(base[i].m_pt[c]));
            }
        }
    }
}

TEST(DelaunayConstraint, SegmentThroughAVertexIsForcedInTwoPieces)
{
    SInput in;
    // A fan that certainly hides the diagonal, with a vertex exactly on it.
    in.points = {P(0, 0, 0),   P(10, 0, 0),  P(10, 10, 0), P(0, 10, 0),  P(5, 5, 0),
                 P(3, 6.5, 0), P(6.5, 3, 0), P(2, 3.5, 0), P(8, 6.5, 0), P(1, 8, 0)};
    in.lines.push_back({P(0, 0, 0), P(10, 10, 0)});
    const std::vector<CKivTri3d> out = RunTin(in);
    EXPECT_EQ(tincheck::CheckTin(out), "");
    std::set<std::pair<Key, Key>> edges;
    for (const CKivTri3d& t : out) {
        for (int k = 0; k < 3; ++k) {
            edges.insert({K(t.m_pt[k]), K(t.m_pt[(k + 1) % 3])});
        }
    }
    const auto has = [&](Key a, Key b) { return edges.count({a, b}) || edges.count({b, a}); };
    EXPECT_TRUE(has({0, 0}, {5, 5}));
    EXPECT_TRUE(has({5, 5}, {10, 10}));
    EXPECT_FALSE(has({0, 0}, {10, 10}));
}

// A walk can meet a vertex twice on one side when the vertex's star is not
// convex: here L0's two long triangles reach across the segment and the short
// one between them does not, so the left chain is A, L0, X, Y, L0, B. Such a
// side is no simple polygon; the segment must still go in and the mesh stay
// valid and whole.
TEST(DelaunayConstraint, WalkMeetingAVertexTwiceKeepsTheMeshValid)
{
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    const Pts pts = {P(-5, 0, 0), P(-1, -1, 0), P(1, -1, 0), P(5, 0, 0), P(0, 4, 0), P(-0.5, 1, 0), P(0.5, 1, 0)};
    for (const CKivPoint3d& p : pts) {
        tin.AddVertex(p);
    }
    std::vector<_sVertex*>& v = CKivMeshDataInspector(mesh).Verts();
    _sVertex *a = v[0], *r1 = v[1], *r2 = v[2], *b = v[3], *l0 = v[4], *x = v[5], *y = v[6];
    const _sVertex* tris[][3] = {{a, r1, l0}, {r1, x, l0}, {r1, r2, x}, {x, r2, y},
                                 {r2, l0, y}, {r2, b, l0}, {l0, x, y}};
    for (const auto& t : tris) {
        CKivMeshDataInspector(mesh).AddTri(const_cast<_sVertex*>(t[0]), const_cast<_sVertex*>(t[1]),
                                           const_cast<_sVertex*>(t[2]));
    }
    std::vector<CKivTri3d> before, after;
    mesh.OutputData(before);
    ASSERT_EQ(tincheck::CheckTin(before), "");
    TriMesh::_sSeg seg;
    seg.pVt[0] = a;
    seg.pVt[1] = b;
    CKivDelaunayInspector::DealSegYS(tin, &seg);
    CKivMeshDataInspector(mesh).CompactTris();
    mesh.OutputData(after);
    EXPECT_EQ(tincheck::CheckTin(after), "");
    EXPECT_NEAR(SumArea2(after), SumArea2(before), 1e-12);
    // The side is filled from its edges (the ear clipper cannot): the same
    // region, as many triangles, and the segment is an edge.
    EXPECT_EQ(after.size(), before.size());
    EXPECT_TRUE(HasConstraint(after, pts[0], pts[3]));
}

// The main property run: random points and non-crossing segments, at several
// scales; every triangle valid and every segment present.
TEST(DelaunayConstraint, RandomConstraintsArePresentAndValidAtEveryScale)
{
    std::mt19937 rng(11);
    const double scales[][3] = {{1, 0, 0}, {1e-6, 0, 0}, {1e6, 0, 0}, {1, 500000, 3000000}, {1e-3, 0.5, 0.5}};
    for (int trial = 0; trial < 30; ++trial) {
        // Points kept more than 150 apart in x or y so that no two merge at
        // the smallest scale (0.015 > 0.01).
        SInput in;
        in.lines = RandomNonCrossingSegs(rng, 12, 0, 0, 1e4);
        Pts taken;
        for (const Pts& l : in.lines) {
            taken.insert(taken.end(), l.begin(), l.end());
        }
        for (const CKivPoint3d& p : RandomPoints(rng, 150, 0, 0, 1e4)) {
            if (std::none_of(taken.begin(), taken.end(), [&p](const CKivPoint3d& q) {
                    return std::fabs(p.x - q.x) < 150 && std::fabs(p.y - q.y) < 150;
                })) {
                taken.push_back(p);
                in.points.push_back(p);
            }
        }
        in.cover = trial % 2 == 1;
        for (const auto& sc : scales) {
            // 1e4 * 1e-6 = 0.01: too small for the 0.01 merge; use 1e6 wide there.
            const double s = sc[0] == 1e-6 ? 1e-6 * 100 : sc[0];
            const SInput run = Scaled(in, s, sc[1], sc[2]);
            bool ok = false;
            const std::vector<CKivTri3d> out = RunTin(run, &ok);
            ASSERT_TRUE(ok);
            ASSERT_EQ(tincheck::CheckTin(out), "") << "trial " << trial << " scale " << s;
            for (const Pts& l : run.lines) {
                EXPECT_TRUE(HasConstraint(out, l[0], l[1])) << "trial " << trial << " scale " << s;
            }
            if (run.cover) {
                const double hull = HullArea2(AllPoints(run));
                EXPECT_NEAR(SumArea2(out), hull, 1e-9 * hull) << "trial " << trial << " scale " << s;
            }
        }
    }
}

// Long wavy lines through dense data (skinny strips of crossed triangles,
// vertices met twice by a walk): every segment goes in.
TEST(DelaunayConstraint, WavyLinesThroughDenseDataAreAllPresent)
{
    std::mt19937 rng(29);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    SInput in;
    in.points = RandomPoints(rng, 3000, 500000, 3000000, 1000);
    for (int k = 0; k < 8; ++k) {
        Pts line;
        for (int j = 0; j <= 25; ++j) {
            line.push_back(P(500050 + 36.0 * j, 3000100 + 100.0 * k + 20.0 * (u(rng) - 0.5), 0));
        }
        in.lines.push_back(line);
    }
    for (const bool cover : {false, true}) {
        in.cover = cover;
        const std::vector<CKivTri3d> out = RunTin(in);
        ASSERT_EQ(tincheck::CheckTin(out), "");
        const Neighbours nb = EdgeMap(out);
        for (const Pts& l : in.lines) {
            for (std::size_t j = 1; j < l.size(); ++j) {
                EXPECT_TRUE(HasConstraint(nb, l[j - 1], l[j]));
            }
        }
    }
}

// Holes and outline: nothing inside a hole, nothing outside the outline, and
// the result equals the plain removal by IsPtInPolygon applied to the same
// triangulation with the rings as plain closed constraint lines.
TEST(DelaunayConstraint, HolesAndOutlineMatchPlainRemoval)
{
    std::mt19937 rng(3);
    for (int trial = 0; trial < 20; ++trial) {
        SInput in;
        in.points = RandomPoints(rng, 200, 0, 0, 100);
        in.outline = Regular(50, 50, 45, 40, trial % 2 == 0); // clockwise every other run
        in.holes.push_back(Regular(35, 40, 8, 12));
        in.holes.push_back(Regular(65, 60, 10, 5, false));
        in.holes.push_back(Regular(150, 150, 10, 6)); // outside the outline and the data
        in.cover = trial % 3 == 0;
        const std::vector<CKivTri3d> out = RunTin(in);
        ASSERT_EQ(tincheck::CheckTin(out), "");
        for (const CKivTri3d& t : out) {
            const CKivPoint3d c = Centroid(t);
            EXPECT_EQ(IsPtInPolygon(in.outline, c), 1);
            for (const Pts& h : in.holes) {
                EXPECT_NE(IsPtInPolygon(h, c), 1);
            }
        }
        for (std::size_t i = 0; i < in.outline.size(); ++i) {
            EXPECT_TRUE(HasConstraint(out, in.outline[i], in.outline[(i + 1) % in.outline.size()]));
        }

        SInput plain = in;
        plain.holes.clear();
        plain.outline.clear();
        plain.lines.push_back(in.outline);
        plain.lines.back().push_back(in.outline.front());
        for (const Pts& h : in.holes) {
            plain.lines.push_back(h);
            plain.lines.back().push_back(h.front());
        }
        // Same vertex order: the outline's points came after the holes' in
        // the first run; register them in that order here too.
        std::rotate(plain.lines.begin(), plain.lines.begin() + 1, plain.lines.end());
        std::vector<CKivTri3d> ref;
        for (const CKivTri3d& t : RunTin(plain)) {
            const CKivPoint3d c = Centroid(t);
            bool dig = IsPtInPolygon(in.outline, c) != 1;
            for (const Pts& h : in.holes) {
                dig = dig || IsPtInPolygon(h, c) == 1;
            }
            if (!dig) {
                ref.push_back(t);
            }
        }
        ASSERT_EQ(out.size(), ref.size()) << "trial " << trial;
        for (std::size_t i = 0; i < out.size(); ++i) {
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(K(out[i].m_pt[c]), K(ref[i].m_pt[c]));
            }
        }
    }
}

// Crossing constraints, self-crossing lines, rings through each other, near
// duplicates and non-finite points: never an invalid triangulation.
TEST(DelaunayConstraint, HostileConstraintsStayValid)
{
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const double scales[][3] = {{1, 0, 0}, {100, 0, 0}, {1e4, 500000, 3000000}, {0.05, 0, 0}};
    for (int trial = 0; trial < 24; ++trial) {
        const auto& sc = scales[trial % 4];
        SInput in;
        in.points = RandomPoints(rng, 80, 0, 0, 10);
        // Near-duplicate pairs 0.005 to 0.02 apart (at scale 1).
        for (int i = 0; i < 10; ++i) {
            const CKivPoint3d p = in.points[static_cast<std::size_t>(i)];
            in.points.emplace_back(p.x + 0.005 + 0.015 * u(rng), p.y, 0.0);
        }
        for (int l = 0; l < 4; ++l) {
            Pts line = RandomPoints(rng, 6, 0, 0, 10); // self-crossing zigzags
            in.lines.push_back(line);
        }
        in.lines.push_back({P(0, 5, 0), P(10, 5, 0), P(5, 0, 0), P(5, 10, 0)});
        if (trial % 4 != 0) {
            in.holes.push_back(RandomPoints(rng, 5, 2, 2, 6)); // self-crossing ring
            in.outline = RandomPoints(rng, 7, 0, 0, 10);
        }
        if (trial % 6 == 5) {
            in.points.emplace_back(std::nan(""), 1.0, 0.0);
            in.lines.push_back({P(1, 1, 0), P(HUGE_VAL, 2, 0), P(3, 3, 0)});
        }
        in.cover = trial % 2 == 0;
        const SInput run = Scaled(in, sc[0], sc[1], sc[2]);
        Pts verts;
        const std::vector<CKivTri3d> out = RunTin(run, nullptr, &verts);
        EXPECT_EQ(tincheck::CheckTin(out), "") << "trial " << trial;
        if (run.cover && run.holes.empty() && run.outline.empty()) {
            // Walks that lose their way leave gaps; the cover fills every
            // one, so the plan areas still add up to the hull's (of the
            // vertices: near duplicates merged away).
            Pts finite;
            for (const CKivPoint3d& p : verts) {
                if (std::isfinite(p.x) && std::isfinite(p.y)) {
                    finite.push_back(p);
                }
            }
            const double hull = HullArea2(finite);
            EXPECT_NEAR(SumArea2(out), hull, 1e-9 * hull) << "trial " << trial;
        }
    }
}

// A clustered layout with tiny spacing (0.02 to 0.05 apart): the tolerant
// tests are near their limits, fills must still be valid.
TEST(DelaunayConstraint, TightSpacingStaysValid)
{
    std::mt19937 rng(9);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int trial = 0; trial < 10; ++trial) {
        SInput in;
        for (int i = 0; i < 12; ++i) {
            for (int j = 0; j < 12; ++j) {
                in.points.emplace_back(0.03 * i + 0.008 * u(rng), 0.03 * j + 0.008 * u(rng), 0.0);
            }
        }
        in.lines.push_back({P(0.001, 0.002, 0), P(0.33, 0.31, 0)});
        in.lines.push_back({P(0.02, 0.3, 0), P(0.3, 0.04, 0), P(0.31, 0.2, 0)});
        in.holes.push_back(Regular(0.15, 0.15, 0.06, 7));
        in.cover = trial % 2 == 0;
        for (double s : {1.0, 1e-3 / 0.03 * 0.7}) {
            const std::vector<CKivTri3d> out = RunTin(Scaled(in, s, 0, 0));
            EXPECT_EQ(tincheck::CheckTin(out), "") << "trial " << trial << " scale " << s;
        }
    }
}

// The cover option only adds: without it the triangles are a subset, with it
// the plan areas add up to the hull's and, on points in general position,
// every circumcircle is empty.
TEST(DelaunayConstraint, CoverHullAddsDelaunayTrianglesOnly)
{
    std::mt19937 rng(21);
    for (int trial = 0; trial < 40; ++trial) {
        SInput in;
        in.points =
            trial % 4 == 3 ? RandomPoints(rng, 40, 500000, 3000000, 1000) : RandomPoints(rng, 120, 0, 0, 50);
        if (trial % 5 == 4) {
            // Two far clusters: the bounding triangle cuts between them.
            const CKivPoint3d o = in.points.front();
            Pts more = RandomPoints(rng, 30, o.x + 400, o.y + 10, 20);
            in.points.insert(in.points.end(), more.begin(), more.end());
        }
        const std::vector<CKivTri3d> legacy = RunTin(in);
        in.cover = true;
        const std::vector<CKivTri3d> full = RunTin(in);
        ASSERT_EQ(tincheck::CheckTin(full), "");
        std::set<std::vector<Key>> all;
        for (const CKivTri3d& t : full) {
            all.insert({K(t.m_pt[0]), K(t.m_pt[1]), K(t.m_pt[2])});
        }
        for (const CKivTri3d& t : legacy) {
            EXPECT_TRUE(all.count({K(t.m_pt[0]), K(t.m_pt[1]), K(t.m_pt[2])}));
        }
        const double hull = HullArea2(in.points);
        EXPECT_NEAR(SumArea2(full), hull, 1e-9 * hull) << "trial " << trial;
        // Empty circles, with a margin for the rounding of the determinant
        // (the points are in general position).
        for (const CKivTri3d& t : full) {
            const CKivPoint3d &a = t.m_pt[0], &b = t.m_pt[1], &c = t.m_pt[2];
            for (const CKivPoint3d& p : in.points) {
                const double ax = a.x - p.x, ay = a.y - p.y, bx = b.x - p.x, by = b.y - p.y;
                const double cx = c.x - p.x, cy = c.y - p.y;
                const double la = ax * ax + ay * ay, lb = bx * bx + by * by, lc = cx * cx + cy * cy;
                const double d = la * (bx * cy - by * cx) - lb * (ax * cy - ay * cx) + lc * (ax * by - ay * bx);
                const double mag = la * (std::fabs(bx * cy) + std::fabs(by * cx)) +
                                   lb * (std::fabs(ax * cy) + std::fabs(ay * cx)) +
                                   lc * (std::fabs(ax * by) + std::fabs(ay * bx));
                // The insertion treats |d| below 1e-6 as on the circle.
                EXPECT_LE(d, std::max(1e-6, 1e-9 * mag)) << "trial " << trial;
            }
        }
    }
}

TEST(DelaunayConstraint, SecondRunKeepsConstraintsAndHoles)
{
    std::mt19937 rng(4);
    SInput in;
    in.points = RandomPoints(rng, 100, 0, 0, 100);
    in.lines = RandomNonCrossingSegs(rng, 6, 0, 0, 100);
    in.holes.push_back(Regular(50, 50, 15, 9));
    CKivMeshData mesh;
    CKivDelaunay tin(mesh);
    tin.SetCoverHull(true);
    for (const CKivPoint3d& p : in.points) {
        tin.AddVertex(p);
    }
    for (const Pts& l : in.lines) {
        tin.AddSegYS(l, false);
    }
    tin.AddHoleLine(in.holes[0]);
    ASSERT_TRUE(tin.Delaunay());
    std::vector<CKivTri3d> first, second;
    mesh.OutputData(first);
    ASSERT_TRUE(tin.Delaunay());
    mesh.OutputData(second);
    EXPECT_EQ(tincheck::CheckTin(second), "");
    // The same triangles again (the first run's bounding vertices take no
    // part), constraints away from the hole present in both.
    const auto keys = [](const std::vector<CKivTri3d>& tris) {
        std::set<std::vector<Key>> s;
        for (const CKivTri3d& t : tris) {
            s.insert({K(t.m_pt[0]), K(t.m_pt[1]), K(t.m_pt[2])});
        }
        return s;
    };
    EXPECT_EQ(keys(first), keys(second));
    for (const Pts& l : in.lines) {
        if (IsPtInPolygon(in.holes[0], l[0]) == 0 && IsPtInPolygon(in.holes[0], l[1]) == 0) {
            EXPECT_TRUE(HasConstraint(first, l[0], l[1]));
            EXPECT_TRUE(HasConstraint(second, l[0], l[1]));
        }
    }
}

// The strip index must give IsPtInPolygon's answer everywhere, on the
// boundary and at vertex heights included.
TEST(DelaunayConstraint, RingIndexMatchesPlainPointInPolygon)
{
    std::mt19937 rng(13);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int trial = 0; trial < 40; ++trial) {
        const int n = 3 + trial * 5;
        Pts ring;
        for (int i = 0; i < n; ++i) {
            const double a = 6.283185307179586 * i / n, r = 1.0 + 0.6 * u(rng);
            // Snap some heights to a coarse grid: horizontal edges and
            // vertices at the query heights.
            double y = r * std::sin(a);
            if (i % 3 == 0) {
                y = std::round(y * 4) / 4;
            }
            ring.emplace_back(r * std::cos(a) * (trial % 5 == 4 ? 1e6 : 1.0), y, 0.0);
        }
        if (trial % 7 == 6) {
            std::swap(ring[1], ring[ring.size() / 2]); // self-crossing
        }
        const CKivRingIndex index(ring);
        Pts queries;
        for (int q = 0; q < 400; ++q) {
            queries.emplace_back(1.7 * u(rng) * (trial % 5 == 4 ? 1e6 : 1.0), 1.7 * u(rng), 0.0);
        }
        for (const CKivPoint3d& p : ring) {
            queries.push_back(p);
            queries.emplace_back(p.x - 0.5, p.y, 0.0);
            queries.emplace_back(p.x + 1e-7, p.y + 5e-7, 0.0);
        }
        queries.emplace_back(std::nan(""), 0.0, 0.0);
        queries.emplace_back(0.0, HUGE_VAL, 0.0);
        for (const CKivPoint3d& p : queries) {
            ASSERT_EQ(index.Test(p), IsPtInPolygon(ring, p)) << "trial " << trial << " at " << p.x << ", " << p.y;
        }
    }
}

} // namespace

// The full-hull wrap searches a bucket grid for each front edge's vertex and
// for blocking vertices and edges; the plain scans of every vertex and edge
// are the reference. Long thin, ring-like, banded and gridded point sets
// (where pockets are long and their vertices nearly collinear), at three
// scales, some with a constraint line: the same triangles in the same order.
TEST(DelaunayConstraint, CoverHullGridSearchMatchesPlainScans)
{
    for (int seed = 0; seed < 40; ++seed) {
        std::mt19937_64 rng(static_cast<std::uint64_t>(seed));
        std::uniform_real_distribution<double> u(0.0, 1.0);
        const int kind = seed % 5;
        const double scale = seed % 3 == 0 ? 1e-3 : (seed % 3 == 1 ? 1.0 : 1e3);
        const int n = 100 + static_cast<int>(u(rng) * 900);
        std::vector<CKivPoint3d> pts;
        for (int i = 0; i < n; ++i) {
            double x = 0.0, y = 0.0;
            switch (kind) {
            case 0:
                x = u(rng), y = u(rng);
                break;
            case 1:
                x = i, y = (i % 2) * 0.3 + 1e-3 * (i % 7);
                break; // zig-zag
            case 2: {
                const double a = 6.283185307179586 * u(rng);
                x = std::cos(a), y = 0.05 * std::sin(a); // thin ellipse
                break;
            }
            case 3:
                x = std::floor(20.0 * u(rng)), y = std::floor(3.0 * u(rng));
                break; // grid, repeats
            default:
                x = 100.0 * u(rng), y = 1e-4 * x * x + 0.1 * u(rng);
                break; // curved band
            }
            pts.emplace_back(5e5 + x * scale, 3e6 + y * scale, u(rng));
        }
        std::vector<CKivTri3d> out[2];
        for (int plain = 0; plain < 2; ++plain) {
            TriMesh::CKivMeshData mesh;
            CKivDelaunay tin(mesh);
            tin.SetCoverHull(true);
            CKivDelaunayInspector::SetPlainWrap(tin, plain == 1);
            for (const CKivPoint3d& p : pts) {
                tin.AddVertex(p);
            }
            if (seed % 4 == 1) {
                tin.AddSegYS(std::vector<CKivPoint3d>(pts.begin(), pts.begin() + 30), false);
            }
            tin.Delaunay();
            mesh.OutputData(out[plain]);
        }
        SCOPED_TRACE("seed " + std::to_string(seed));
        ASSERT_EQ(out[0].size(), out[1].size());
        for (std::size_t t = 0; t < out[0].size(); ++t) {
            for (int k = 0; k < 3; ++k) {
                const CKivPoint3d &p = out[0][t].m_pt[k], &q = out[1][t].m_pt[k];
                ASSERT_TRUE(p.x == q.x && p.y == q.y && p.z == q.z) << "triangle " << t;
            }
        }
    }
}
