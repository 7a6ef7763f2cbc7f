#include <kivgeo/delaunay.h>

#include "mesh_store_access.h"
#include "spacemath/exact_orient.h"
#include "spacemath/planar_internal.h"
#include "tin_check.h"
#include "trimesh/delaunay_work.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <unordered_map>
#include <vector>

namespace TriMesh {

// The test suite's access to the triangulator's private members.
class CKivDelaunayInspector {
public:
    explicit CKivDelaunayInspector(CKivDelaunay& d) : m_d(d) {}
    void SetMerge(bool b) { m_d.m_bMergePt = b; }
    void SetLocateAhead(bool b) { m_d.m_pWork->SetLocateAhead(b); }
    void TranslateCoord(bool bBack) { m_d.TranslateCoord(bBack); }
    void SetTriBound() { m_d.SetTriBound(); }
    _sVertex* const* BoundVt() const { return m_d.m_pBoundVt; }
    bool InsertPtIntoMesh(int i) { return m_d.InsertPtIntoMesh(i); }
    _sTri* FindTri(double x, double y) const { return m_d.FindTri(x, y); }
    void FindCircumTri(const _sVertex* v, _sTri* t, std::vector<_sTri*>& out) const
    {
        m_d.FindCircumTri(v, t, out);
    }

    // Steps 1 to 5 of a run without the constraints: the full triangulation
    // of the bounding triangle, in shifted coordinates.
    void CoreRun(int stopAfter = -1)
    {
        CKivMeshDataInspector mi(*m_d.m_pMesh);
        m_d.TranslateCoord(false);
        mi.ClearTriData();
        const std::size_t n = mi.Verts().size();
        m_d.SetTriBound();
        m_d.LoadWork();
        for (std::size_t i = 0; i < n; ++i) {
            if (m_d.IsUsableVertex(mi.Verts()[i])) {
                m_d.InsertPtIntoMesh(static_cast<int>(i));
            }
            if (static_cast<int>(i) == stopAfter) {
                break;
            }
        }
        m_d.StoreWork();
    }

private:
    CKivDelaunay& m_d;
};

} // namespace TriMesh

using TriMesh::_sTri;
using TriMesh::_sVertex;
using TriMesh::CKivDelaunay;
using TriMesh::CKivDelaunayInspector;
using TriMesh::CKivMeshData;
using TriMesh::CKivMeshDataInspector;

namespace {

using Triple = std::array<int, 3>;
using Pts = std::vector<CKivPoint3d>;

// ---------------------------------------------------------------------------
// The plain algorithm, written from its description: walk from the first
// triangle, recursive flood, quadratic edge cancellation, deletion from the
// list. Driven through the inspectors on the mesh's own records.

struct CPlain {
    CKivMeshData& mesh;
    CKivMeshDataInspector mi;
    bool cycled = false;

    explicit CPlain(CKivMeshData& m) : mesh(m), mi(m) {}

    static int Classify(const _sTri* t, double x, double y)
    {
        const CKivPoint3d &a = t->pVt[0]->pt, &b = t->pVt[1]->pt, &c = t->pVt[2]->pt;
        return GetPtPosInTri2D(x, y, a.x, a.y, b.x, b.y, c.x, c.y, false);
    }

    _sTri* FindTri(double x, double y)
    {
        if (mi.Tris().empty()) {
            return nullptr;
        }
        _sTri* t = mi.Tris().front();
        for (std::size_t steps = 0;; ++steps) {
            if (steps > 4 * mi.Tris().size() + 10) {
                cycled = true; // the plain walk has no guard; the test does
                return nullptr;
            }
            const int pos = Classify(t, x, y);
            if (pos < 1 || pos > 3) {
                return t;
            }
            t = mi.FindTriCoEdge(t->pVt[pos - 1], t->pVt[pos % 3], t);
            if (!t) {
                return nullptr;
            }
        }
    }

    void Flood(const _sVertex* v, _sTri* t, std::vector<_sTri*>& out)
    {
        while (t) {
            const CKivPoint3d &a = t->pVt[0]->pt, &b = t->pVt[1]->pt, &c = t->pVt[2]->pt;
            if (IsPtInCircumCircle2D(v->pt.x, v->pt.y, a.x, a.y, b.x, b.y, c.x, c.y) < 0) {
                return;
            }
            if (std::find(out.begin(), out.end(), t) != out.end()) {
                return;
            }
            out.push_back(t);
            Flood(v, mi.FindTriCoEdge(t->pVt[0], t->pVt[1], t), out);
            Flood(v, mi.FindTriCoEdge(t->pVt[1], t->pVt[2], t), out);
            t = mi.FindTriCoEdge(t->pVt[2], t->pVt[0], t);
        }
    }

    bool Insert(int i)
    {
        _sVertex* v = mi.Verts()[static_cast<std::size_t>(i)];
        _sTri* t = FindTri(v->pt.x, v->pt.y);
        if (!t) {
            return false;
        }
        std::vector<_sTri*> cav;
        Flood(v, t, cav);
        std::vector<std::pair<_sVertex*, _sVertex*>> edges;
        for (_sTri* c : cav) {
            for (int k = 0; k < 3; ++k) {
                edges.emplace_back(c->pVt[k], c->pVt[(k + 1) % 3]);
            }
            mi.DelTri(c);
            mi.CompactTris(); // as if the slot were erased at once
        }
        std::vector<bool> gone(edges.size(), false);
        for (std::size_t j = edges.size(); j-- > 1;) {
            if (gone[j]) {
                continue;
            }
            for (std::size_t k = j; k-- > 0;) {
                if (!gone[k] && ((edges[k].first == edges[j].first && edges[k].second == edges[j].second) ||
                                 (edges[k].first == edges[j].second && edges[k].second == edges[j].first))) {
                    gone[j] = gone[k] = true;
                    break;
                }
            }
        }
        bool any = false;
        for (std::size_t j = 0; j < edges.size(); ++j) {
            if (!gone[j]) {
                mi.AddTri(edges[j].first, edges[j].second, v);
                any = true;
            }
        }
        return any;
    }
};

// Each vertex's triangle list as positions in the mesh's triangle list.
std::vector<std::vector<int>> VertexLists(CKivMeshDataInspector& mi)
{
    std::unordered_map<const _sTri*, int> pos;
    for (std::size_t j = 0; j < mi.Tris().size(); ++j) {
        pos[mi.Tris()[j]] = static_cast<int>(j);
    }
    std::vector<std::vector<int>> out;
    for (const _sVertex* v : mi.Verts()) {
        out.emplace_back();
        for (const _sTri* t : v->vecTri) {
            out.back().push_back(pos.count(t) ? pos[t] : -1);
        }
    }
    return out;
}

// Runs the plain algorithm over the points (merging as AddVertex does).
// Returns the triangles as vertex-index triples in list order, and each
// vertex's list.
std::vector<Triple> PlainRun(const Pts& pts, bool merge, bool& cycled,
                             std::vector<std::vector<int>>* lists = nullptr)
{
    CKivMeshData mesh;
    CKivDelaunay d(mesh);
    CKivDelaunayInspector di(d);
    di.SetMerge(merge);
    for (const CKivPoint3d& p : pts) {
        d.AddVertex(p);
    }
    CPlain plain(mesh);
    di.TranslateCoord(false);
    const std::size_t n = plain.mi.Verts().size();
    di.SetTriBound();
    for (std::size_t i = 0; i < n; ++i) {
        plain.Insert(static_cast<int>(i));
    }
    std::vector<_sTri*>& tris = plain.mi.Tris();
    for (std::size_t j = tris.size(); j-- > 0;) {
        for (const _sVertex* c : tris[j]->pVt) {
            if (c == di.BoundVt()[0] || c == di.BoundVt()[1] || c == di.BoundVt()[2]) {
                plain.mi.DelTri(tris[j]);
                plain.mi.CompactTris();
                break;
            }
        }
    }
    di.TranslateCoord(true);
    cycled = plain.cycled;
    if (lists) {
        *lists = VertexLists(plain.mi);
    }
    std::unordered_map<const _sVertex*, int> id;
    for (std::size_t i = 0; i < plain.mi.Verts().size(); ++i) {
        id[plain.mi.Verts()[i]] = static_cast<int>(i);
    }
    std::vector<Triple> out;
    for (const _sTri* t : plain.mi.Tris()) {
        out.push_back({id[t->pVt[0]], id[t->pVt[1]], id[t->pVt[2]]});
    }
    return out;
}

std::vector<Triple> Triples(CKivMeshData& mesh)
{
    CKivMeshDataInspector mi(mesh);
    std::unordered_map<const _sVertex*, int> id;
    for (std::size_t i = 0; i < mi.Verts().size(); ++i) {
        id[mi.Verts()[i]] = static_cast<int>(i);
    }
    std::vector<Triple> out;
    for (const _sTri* t : mi.Tris()) {
        out.push_back({id[t->pVt[0]], id[t->pVt[1]], id[t->pVt[2]]});
    }
    return out;
}

// Each triple rotated to start at its least index, then sorted.
std::vector<Triple> AsSet(std::vector<Triple> v)
{
    for (Triple& t : v) {
        std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    }
    std::sort(v.begin(), v.end());
    return v;
}

// ---------------------------------------------------------------------------
// Validity of a triangulation given as index triples over positions.

struct CCheck {
    bool ok = true;
    std::string why;
    double area = 0; // sum of the plan areas
};

// A valid triangulation of the points it uses (see tin_check.h), and its area.
CCheck CheckValid(const std::vector<CKivPoint3d>& pos, const std::vector<Triple>& tris)
{
    std::vector<CKivTri3d> t;
    CCheck r;
    for (const Triple& x : tris) {
        t.emplace_back(pos[x[0]], pos[x[1]], pos[x[2]]);
        r.area += 0.5 * tincheck::Orient(t.back().m_pt[0], t.back().m_pt[1], t.back().m_pt[2]);
    }
    r.why = tincheck::CheckTin(t);
    r.ok = r.why.empty();
    return r;
}

// Empty circles, up to rounding: no vertex clearly inside a circumcircle.
int CountCircleViolations(const std::vector<CKivPoint3d>& pos, const std::vector<Triple>& tris,
                          const std::vector<int>& used)
{
    int bad = 0;
    for (const Triple& t : tris) {
        const CKivPoint3d &a = pos[t[0]], &b = pos[t[1]], &c = pos[t[2]];
        for (int i : used) {
            const CKivPoint3d& p = pos[static_cast<std::size_t>(i)];
            const long double ax = a.x - p.x, ay = a.y - p.y, bx = b.x - p.x, by = b.y - p.y;
            const long double cx = c.x - p.x, cy = c.y - p.y;
            const long double d = (ax * ax + ay * ay) * (bx * cy - by * cx) -
                                  (bx * bx + by * by) * (ax * cy - ay * cx) +
                                  (cx * cx + cy * cy) * (ax * by - ay * bx);
            const long double m = (ax * ax + ay * ay) * (std::fabs(bx * cy) + std::fabs(by * cx)) +
                                  (bx * bx + by * by) * (std::fabs(ax * cy) + std::fabs(ay * cx)) +
                                  (cx * cx + cy * cy) * (std::fabs(ax * by) + std::fabs(ay * bx));
            if (d > 1e-9L * m) {
                ++bad;
            }
        }
    }
    return bad;
}

std::vector<CKivPoint3d> Positions(CKivMeshData& mesh)
{
    std::vector<CKivPoint3d> p;
    mesh.OutputPoints(p);
    return p;
}

// ---------------------------------------------------------------------------
// Inputs.

Pts Random(std::mt19937& rng, int n, double x0, double y0, double span)
{
    std::uniform_real_distribution<double> u(0.0, span);
    Pts p;
    for (int i = 0; i < n; ++i) {
        p.emplace_back(x0 + u(rng), y0 + u(rng), u(rng) * 0.01);
    }
    return p;
}

Pts Clustered(std::mt19937& rng, int n, double x0, double y0, double span)
{
    std::uniform_real_distribution<double> u(0.0, span);
    std::normal_distribution<double> g(0.0, span * 0.01);
    Pts p;
    CKivPoint3d c;
    for (int i = 0; i < n; ++i) {
        if (i % 50 == 0) {
            c = CKivPoint3d(x0 + u(rng), y0 + u(rng), 0.0);
        }
        p.emplace_back(c.x + g(rng), c.y + g(rng), 1.0);
    }
    return p;
}

Pts Grid(int nx, int ny, double x0, double y0, double step)
{
    Pts p;
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            p.emplace_back(x0 + i * step, y0 + j * step, 0.5 * i);
        }
    }
    return p;
}

// Points on a few lines, plus some scattered ones.
Pts CollinearHeavy(std::mt19937& rng, int n, double x0, double y0, double span)
{
    std::uniform_real_distribution<double> u(0.0, 1.0);
    Pts p;
    for (int i = 0; i < n; ++i) {
        const int line = i % 4;
        const double t = u(rng);
        if (line == 0) {
            p.emplace_back(x0 + t * span, y0 + 0.5 * span, 0.0);
        } else if (line == 1) {
            p.emplace_back(x0 + 0.3 * span, y0 + t * span, 0.0);
        } else if (line == 2) {
            p.emplace_back(x0 + t * span, y0 + t * span, 0.0);
        } else {
            p.emplace_back(x0 + u(rng) * span, y0 + t * span, 0.0);
        }
    }
    return p;
}

struct CRun {
    CKivMeshData mesh;
    bool ok = false;
};

void Triangulate(CRun& r, const Pts& pts, bool merge = true)
{
    CKivDelaunay d(r.mesh);
    CKivDelaunayInspector(d).SetMerge(merge);
    for (const CKivPoint3d& p : pts) {
        d.AddVertex(p);
    }
    r.ok = d.Delaunay();
}

// ---------------------------------------------------------------------------

TEST(ExactOrient, AgreesWithIntegerArithmetic)
{
    // Coordinates on a 2^-30 lattice within [-2^20, 2^20]: every product is
    // an exact 128-bit integer.
    std::mt19937_64 rng(7);
    std::uniform_int_distribution<std::int64_t> u(-(std::int64_t(1) << 50), std::int64_t(1) << 50);
    const double unit = std::ldexp(1.0, -30);
    for (int i = 0; i < 20000; ++i) {
        std::int64_t q[6];
        for (auto& v : q) {
            v = u(rng);
        }
        if (i % 2) {
            // Nearly collinear: c close to the line a-b.
            q[4] = q[0] + (q[2] - q[0]) / 2 + (static_cast<std::int64_t>(rng() % 5) - 2);
            q[5] = q[1] + (q[3] - q[1]) / 2 + (static_cast<std::int64_t>(rng() % 5) - 2);
        }
        const __int128 det = static_cast<__int128>(q[0] - q[4]) * (q[3] - q[5]) -
                             static_cast<__int128>(q[1] - q[5]) * (q[2] - q[4]);
        const int want = det > 0 ? 1 : (det < 0 ? -1 : 0);
        double d[6];
        for (int k = 0; k < 6; ++k) {
            d[k] = static_cast<double>(q[k]) * unit;
        }
        ASSERT_EQ(ExactOrient2D(d[0], d[1], d[2], d[3], d[4], d[5]), want) << i;
        // Scaling by a power of two changes no sign.
        for (int e : {-700, 700}) {
            ASSERT_EQ(ExactOrient2D(std::ldexp(d[0], e), std::ldexp(d[1], e), std::ldexp(d[2], e),
                                    std::ldexp(d[3], e), std::ldexp(d[4], e), std::ldexp(d[5], e)),
                      want);
        }
    }
}

TEST(ExactOrient, DecidesWhereDoublesCannot)
{
    // Points along y = x near 0.5 with 1-ulp offsets: the naive determinant
    // is mostly noise here.
    const double e = std::ldexp(1.0, -53);
    EXPECT_EQ(ExactOrient2D(12, 12, 24, 24, 0.5, 0.5), 0);
    EXPECT_EQ(ExactOrient2D(12, 12, 24, 24, 0.5 + e, 0.5), -1);
    EXPECT_EQ(ExactOrient2D(12, 12, 24, 24, 0.5, 0.5 + e), 1);
    EXPECT_EQ(ExactOrient2D(0, 0, 1, 0, 0.5, 0.0), 0);
    EXPECT_EQ(ExactOrient2D(0, 0, 1, 0, 0.5, 1e-300), 1);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(ExactOrient2D(nan, 0, 1, 0, 0, 1), 0);
    EXPECT_EQ(ExactOrient2D(HUGE_VAL, 0, 1, 0, 0, 1), 0);
    EXPECT_EQ(ExactOrient2D(1e300, 0, 0, 1e300, -1e300, -1e300), 1);
}

// The triangulator against the plain algorithm: the same triangles (as sets
// of corner triples) whenever the plain algorithm gives a valid result, on
// every kind of input and both near the origin and at map coordinates.
TEST(Delaunay, SameTrianglesAsPlainAlgorithm)
{
    std::mt19937 rng(42);
    int compared = 0;
    for (int round = 0; round < 14; ++round) {
        const bool utm = round % 2 == 1;
        const double x0 = utm ? 500000.0 : 0.0, y0 = utm ? 3000000.0 : 0.0;
        Pts pts;
        switch (round / 2) {
        case 0:
            pts = Random(rng, 1500, x0, y0, 1000.0);
            break;
        case 1:
            pts = Clustered(rng, 800, x0, y0, 1000.0);
            break;
        case 2:
            pts = Grid(25, 24, x0, y0, 10.0);
            break;
        case 3:
            pts = CollinearHeavy(rng, 600, x0, y0, 500.0);
            break;
        case 4:
            pts = Random(rng, 300, x0, y0, 5.0);
            break;
        case 6: {
            // Wheels: rings of points, then each centre, whose cavity is the
            // whole ring (a large fan), then points in between.
            std::uniform_real_distribution<double> u(0.0, 1.0);
            for (int w = 0; w < 6; ++w) {
                const double cx = x0 + 100.0 + 800.0 * u(rng), cy = y0 + 100.0 + 800.0 * u(rng);
                const int k = 30 + 10 * w;
                for (int i = 0; i < k; ++i) {
                    const double a = 6.283185307179586 * i / k;
                    pts.emplace_back(cx + 40.0 * std::cos(a), cy + 40.0 * std::sin(a), 1.0);
                }
                pts.emplace_back(cx, cy, 2.0);
            }
            const Pts fill = Random(rng, 300, x0, y0, 1000.0);
            pts.insert(pts.end(), fill.begin(), fill.end());
            break;
        }
        case 5: {
            // A grid with every other point jittered, in scrambled order.
            pts = Grid(20, 20, x0, y0, 1.0);
            std::uniform_real_distribution<double> j(-0.2, 0.2);
            for (std::size_t i = 0; i < pts.size(); i += 2) {
                pts[i].x += j(rng), pts[i].y += j(rng);
            }
            std::shuffle(pts.begin(), pts.end(), rng);
        }
        }
        bool cycled = false;
        std::vector<std::vector<int>> plainLists;
        const std::vector<Triple> plain = PlainRun(pts, true, cycled, &plainLists);
        CRun run;
        Triangulate(run, pts);
        ASSERT_TRUE(run.ok);
        const std::vector<Triple> fast = Triples(run.mesh);
        const std::vector<CKivPoint3d> pos = Positions(run.mesh);
        const CCheck cf = CheckValid(pos, fast);
        EXPECT_TRUE(cf.ok) << "round " << round << ": " << cf.why;
        const CCheck cp = CheckValid(pos, plain);
        if (cycled || !cp.ok) {
            continue;
        }
        ++compared;
        EXPECT_EQ(AsSet(plain), AsSet(fast)) << "round " << round;
        // On points that lie on edges (collinear runs, jittered grids) the
        // walk may stop in the other triangle of the edge than the plain
        // walk from the first triangle: same cavity, same triangles, but the
        // new ones enter the list in another order. Elsewhere the order is
        // the same too.
        const int kind = round / 2;
        if (kind != 3 && kind != 5) {
            EXPECT_EQ(plain, fast) << "round " << round;
            // The lists are written back in bulk: each must still hold its
            // triangles in the order they were attached.
            CKivMeshDataInspector mi(run.mesh);
            EXPECT_EQ(plainLists, VertexLists(mi)) << "round " << round;
        }
    }
    EXPECT_GE(compared, 10);
}

// The walks made ahead of the insertions are taken only where walking
// again would give the same: the triangles and every vertex's list come out
// in the same order with and without them, also where points lie on edges
// (which of the edge's triangles the walk stops in decides the order).
TEST(Delaunay, WalksAheadChangeNothing)
{
    std::mt19937 rng(8);
    std::vector<Pts> sets;
    sets.push_back(Random(rng, 6000, 500000.0, 3000000.0, 1000.0));
    sets.push_back(CollinearHeavy(rng, 3000, 0.0, 0.0, 500.0));
    sets.push_back(Clustered(rng, 3000, 0.0, 0.0, 1000.0));
    Pts jittered = Grid(60, 60, 0.0, 0.0, 1.0);
    std::uniform_real_distribution<double> j(-0.2, 0.2);
    for (std::size_t i = 0; i < jittered.size(); i += 2) {
        jittered[i].x += j(rng), jittered[i].y += j(rng);
    }
    std::shuffle(jittered.begin(), jittered.end(), rng);
    sets.push_back(jittered);
    // Rows of a grid, whose walks made ahead mostly fail, with a scrambled
    // stretch in the middle.
    Pts rows = Grid(70, 70, 0.0, 0.0, 2.0);
    std::shuffle(rows.begin() + 2000, rows.begin() + 3000, rng);
    sets.push_back(rows);
    for (std::size_t s = 0; s < sets.size(); ++s) {
        std::vector<Triple> tris[2];
        std::vector<std::vector<int>> lists[2];
        for (int ahead = 0; ahead < 2; ++ahead) {
            CKivMeshData mesh;
            CKivDelaunay d(mesh);
            CKivDelaunayInspector(d).SetLocateAhead(ahead == 1);
            for (const CKivPoint3d& p : sets[s]) {
                d.AddVertex(p);
            }
            ASSERT_TRUE(d.Delaunay()) << s;
            tris[ahead] = Triples(mesh);
            CKivMeshDataInspector mi(mesh);
            lists[ahead] = VertexLists(mi);
        }
        EXPECT_GT(tris[0].size(), sets[s].size()) << s;
        EXPECT_EQ(tris[0], tris[1]) << s;
        EXPECT_EQ(lists[0], lists[1]) << s;
    }
}

bool Usable(const CKivPoint3d& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) && std::fabs(p.x) <= 1e150 &&
           std::fabs(p.y) <= 1e150;
}

// Properties of the full triangulation of the bounding triangle (before its
// triangles go): valid, every usable vertex used, areas adding up to the
// bounding triangle.
void CheckCore(const Pts& pts, bool merge, const std::string& what)
{
    CKivMeshData mesh;
    CKivDelaunay d(mesh);
    CKivDelaunayInspector di(d);
    di.SetMerge(merge);
    for (const CKivPoint3d& p : pts) {
        d.AddVertex(p);
    }
    const std::size_t nv = CKivMeshDataInspector(mesh).Verts().size();
    di.CoreRun();
    const std::vector<Triple> tris = Triples(mesh);
    const std::vector<CKivPoint3d> pos = Positions(mesh);
    const CCheck c = CheckValid(pos, tris);
    EXPECT_TRUE(c.ok) << what << ": " << c.why;
    std::vector<int> used(pos.size(), 0);
    for (const Triple& t : tris) {
        for (int k : t) {
            used[static_cast<std::size_t>(k)] = 1;
        }
    }
    int unused = 0;
    for (std::size_t i = 0; i < nv; ++i) {
        unused += !used[i] && Usable(pos[i]);
    }
    EXPECT_EQ(unused, 0) << what;
    // Euler for a disk: V - E + T = 1.
    std::map<std::pair<int, int>, int> edges;
    for (const Triple& t : tris) {
        for (int k = 0; k < 3; ++k) {
            ++edges[{std::min(t[k], t[(k + 1) % 3]), std::max(t[k], t[(k + 1) % 3])}];
        }
    }
    const long nUsed = std::count(used.begin(), used.end(), 1);
    EXPECT_EQ(nUsed - static_cast<long>(edges.size()) + static_cast<long>(tris.size()), 1) << what;
    const CKivPoint3d &a = di.BoundVt()[0]->pt, &b = di.BoundVt()[1]->pt, &e = di.BoundVt()[2]->pt;
    const double whole = 0.5 * std::fabs((b.x - a.x) * (e.y - a.y) - (e.x - a.x) * (b.y - a.y));
    EXPECT_NEAR(c.area, whole, whole * 1e-9) << what;
}

Pts Scaled(Pts p, double s)
{
    for (CKivPoint3d& q : p) {
        q.x *= s, q.y *= s;
    }
    return p;
}

TEST(Delaunay, ValidOnEveryScale)
{
    std::mt19937 rng(3);
    std::vector<std::pair<std::string, Pts>> sets;
    // Points 1e-3 apart: a jittered grid and a random set.
    Pts g = Grid(30, 30, 0.0, 0.0, 1e-3);
    std::uniform_real_distribution<double> j(-2e-4, 2e-4);
    for (CKivPoint3d& p : g) {
        p.x += j(rng), p.y += j(rng);
    }
    sets.emplace_back("grid 1e-3", g);
    sets.emplace_back("grid 1e-3 exact", Grid(25, 25, 0.0, 0.0, 1e-3));
    sets.emplace_back("random 1e-3", Random(rng, 800, 0.0, 0.0, 0.03));
    // A sphere of radius 100 seen from above: dense near the rim.
    Pts sphere;
    std::normal_distribution<double> nd(0.0, 1.0);
    for (int i = 0; i < 800; ++i) {
        double x = nd(rng), y = nd(rng), z = nd(rng);
        const double r = std::sqrt(x * x + y * y + z * z);
        sphere.emplace_back(100 * x / r, 100 * y / r, 100 * z / r);
    }
    sets.emplace_back("sphere", sphere);
    // Clusters of near-duplicates, 0.005 to 0.02 apart.
    Pts dup;
    std::uniform_real_distribution<double> u(0.0, 100.0), d(0.005, 0.02), ang(0.0, 6.283185307179586);
    for (int i = 0; i < 300; ++i) {
        const double x = u(rng), y = u(rng);
        dup.emplace_back(x, y, 0.0);
        const double r = d(rng), a = ang(rng);
        dup.emplace_back(x + r * std::cos(a), y + r * std::sin(a), 1.0);
    }
    sets.emplace_back("near duplicates", dup);
    const std::size_t base = sets.size();
    for (std::size_t i = 0; i < base; ++i) {
        sets.emplace_back(sets[i].first + " x1e-6", Scaled(sets[i].second, 1e-6));
        sets.emplace_back(sets[i].first + " x1e6", Scaled(sets[i].second, 1e6));
        sets.emplace_back(sets[i].first + " at map coordinates", [&] {
            Pts p = sets[i].second;
            for (CKivPoint3d& q : p) {
                q.x += 500000.0, q.y += 3000000.0;
            }
            return p;
        }());
    }
    // Far beyond any map: the tolerant tests overflow or see nothing, the
    // result must still be valid.
    sets.emplace_back("sphere x1e-100", Scaled(sphere, 1e-100));
    sets.emplace_back("sphere x1e100", Scaled(sphere, 1e100));
    for (const auto& s : sets) {
        // Merging would fold the small sets into single points.
        CheckCore(s.second, s.first == "near duplicates", s.first);
        CRun run;
        Triangulate(run, s.second, s.first == "near duplicates");
        const CCheck c = CheckValid(Positions(run.mesh), Triples(run.mesh));
        EXPECT_TRUE(c.ok) << s.first << ": " << c.why;
    }
}

TEST(Delaunay, PropertiesOnManyInputs)
{
    std::mt19937 rng(11);
    for (int round = 0; round < 30; ++round) {
        const int n = 20 + round * 13;
        const double span = std::pow(10.0, round % 5 - 1);
        Pts pts = round % 3 == 0
                      ? Clustered(rng, n, 0.0, 0.0, span * 100)
                      : Random(rng, n, round % 2 ? 500000.0 : -50.0, 3000000.0 * (round % 2), span * 100);
        CheckCore(pts, true, "round " + std::to_string(round));
        CRun run;
        Triangulate(run, pts);
        ASSERT_TRUE(run.ok);
        const std::vector<Triple> tris = Triples(run.mesh);
        const std::vector<CKivPoint3d> pos = Positions(run.mesh);
        EXPECT_TRUE(CheckValid(pos, tris).ok) << round;
        // Random points are in general position: empty circles.
        if (round % 3 != 0) {
            std::vector<int> used;
            for (std::size_t i = 0; i + 3 < pos.size(); ++i) {
                used.push_back(static_cast<int>(i));
            }
            EXPECT_EQ(CountCircleViolations(pos, tris, used), 0) << round;
        }
    }
}

TEST(Delaunay, MergesPointsWithinOneHundredth)
{
    CKivMeshData mesh;
    CKivDelaunay d(mesh);
    const int a = d.AddVertex(CKivPoint3d(10.0, 20.0, 1.0));
    EXPECT_EQ(d.AddVertex(CKivPoint3d(10.005, 20.005, 99.0)), a);
    EXPECT_EQ(d.AddVertex(CKivPoint3d(9.995, 19.995, -5.0)), a);
    EXPECT_NE(d.AddVertex(CKivPoint3d(10.011, 20.0, 1.0)), a);
    // The later vertex wins a point near both.
    EXPECT_EQ(d.AddVertex(CKivPoint3d(10.0055, 20.0, 0.0)), 1);
    Pts out;
    mesh.OutputPoints(out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].z, 1.0);
}

TEST(Delaunay, SmallInputs)
{
    // Clockwise input gives one counter-clockwise triangle, (p2, p1, p0).
    CRun cw;
    Triangulate(cw, {CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(0.0, 1.0, 0.0), CKivPoint3d(1.0, 0.0, 0.0)});
    ASSERT_TRUE(cw.ok);
    EXPECT_EQ(Triples(cw.mesh), (std::vector<Triple>{{2, 1, 0}}));
    // Three collinear points: false and nothing.
    CRun line;
    Triangulate(line, {CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(1.0, 2.0, 0.0), CKivPoint3d(2.0, 4.0, 0.0)});
    EXPECT_FALSE(line.ok);
    EXPECT_EQ(line.mesh.TriNum(), 0u);
    // The square: two triangles, seven vertices (the bounding ones stay).
    CRun square;
    Triangulate(square, {CKivPoint3d(-1.0, -1.0, 0.0), CKivPoint3d(1.0, -1.0, 0.0), CKivPoint3d(1.0, 1.0, 0.0),
                         CKivPoint3d(-1.0, 1.0, 0.0)});
    ASSERT_TRUE(square.ok);
    EXPECT_EQ(square.mesh.TriNum(), 2u);
    EXPECT_EQ(Positions(square.mesh).size(), 7u);
    const CCheck c = CheckValid(Positions(square.mesh), Triples(square.mesh));
    EXPECT_TRUE(c.ok) << c.why;
    EXPECT_NEAR(c.area, 4.0, 1e-12);
    // Cocircular: the fifth point on the circle of the first four.
    CRun round;
    Triangulate(round, {CKivPoint3d(1.0, 0.0, 0.0), CKivPoint3d(0.0, 1.0, 0.0), CKivPoint3d(-1.0, 0.0, 0.0),
                        CKivPoint3d(0.0, -1.0, 0.0), CKivPoint3d(0.6, 0.8, 0)});
    ASSERT_TRUE(round.ok);
    EXPECT_TRUE(CheckValid(Positions(round.mesh), Triples(round.mesh)).ok);
    EXPECT_EQ(round.mesh.TriNum(), 3u);
    // Two vertices: false, and the existing triangle stays.
    CKivMeshData mesh;
    mesh.InputData({CKivTri3d(CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(0.0, 0.0, 0.0), CKivPoint3d(1.0, 0.0, 0.0))},
                   true);
    CKivDelaunay d(mesh);
    EXPECT_FALSE(d.Delaunay());
    EXPECT_EQ(mesh.TriNum(), 1u);
}

TEST(Delaunay, MapCoordinatesMatchTheOrigin)
{
    std::mt19937 rng(5);
    const Pts local = Random(rng, 400, 0.0, 0.0, 100.0);
    Pts world = local;
    for (CKivPoint3d& p : world) {
        p.x += 500000.0, p.y += 3000000.0;
    }
    CRun a, b;
    Triangulate(a, local);
    Triangulate(b, world);
    ASSERT_TRUE(a.ok && b.ok);
    EXPECT_EQ(Triples(a.mesh), Triples(b.mesh));
    std::vector<CKivTri3d> tb;
    b.mesh.OutputData(tb);
    for (const CKivTri3d& t : tb) {
        for (const CKivPoint3d& p : t.m_pt) {
            EXPECT_GT(p.x, 499999.0);
            EXPECT_GT(p.y, 2999999.0);
        }
    }
    // The points come back where they were (up to the shift's rounding).
    Pts out;
    b.mesh.OutputPoints(out);
    for (std::size_t i = 0; i < world.size(); ++i) {
        EXPECT_NEAR(out[i].x, world[i].x, 1e-9);
        EXPECT_NEAR(out[i].y, world[i].y, 1e-9);
    }
}

TEST(Delaunay, NonFiniteVerticesTakeNoPart)
{
    std::mt19937 rng(9);
    const Pts clean = Random(rng, 300, 0.0, 0.0, 100.0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    Pts dirty;
    for (std::size_t i = 0; i < clean.size(); ++i) {
        dirty.push_back(clean[i]);
        if (i % 50 == 7) {
            dirty.emplace_back(nan, 1.0, 0.0);
            dirty.emplace_back(HUGE_VAL, 1.0, 0.0);
            dirty.emplace_back(1.0, -HUGE_VAL, 0.0);
            dirty.emplace_back(2.0, 3.0, nan);
            dirty.emplace_back(1e200, 3.0, 0.0);
        }
    }
    CRun a, b;
    Triangulate(a, clean);
    Triangulate(b, dirty);
    ASSERT_TRUE(a.ok && b.ok);
    std::vector<CKivTri3d> ta, tb;
    a.mesh.OutputData(ta);
    b.mesh.OutputData(tb);
    ASSERT_EQ(ta.size(), tb.size());
    for (std::size_t i = 0; i < ta.size(); ++i) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(ta[i].m_pt[k].x, tb[i].m_pt[k].x);
            EXPECT_EQ(ta[i].m_pt[k].y, tb[i].m_pt[k].y);
        }
    }
    EXPECT_LT(b.mesh.GetMaxLimit().x, 1000.0);
    // Nothing but non-finite points (and two good ones): false, no crash.
    CKivMeshData mesh;
    CKivDelaunay d(mesh);
    d.AddVertex(CKivPoint3d(0.0, 0.0, 0.0));
    d.AddVertex(CKivPoint3d(1.0, 0.0, 0.0));
    d.AddVertex(CKivPoint3d(nan, nan, nan));
    d.AddVertex(CKivPoint3d(HUGE_VAL, 0, 0));
    EXPECT_FALSE(d.Delaunay());
    EXPECT_EQ(mesh.TriNum(), 0u);
}

TEST(Delaunay, SecondRunGivesTheSameResult)
{
    std::mt19937 rng(21);
    const Pts pts = Random(rng, 500, 1000.0, 2000.0, 50.0);
    CKivMeshData mesh;
    CKivDelaunay d(mesh);
    for (const CKivPoint3d& p : pts) {
        d.AddVertex(p);
    }
    ASSERT_TRUE(d.Delaunay());
    std::vector<CKivTri3d> first, second;
    mesh.OutputData(first);
    Pts v1, v2;
    mesh.OutputPoints(v1);
    ASSERT_TRUE(d.Delaunay());
    mesh.OutputData(second);
    mesh.OutputPoints(v2);
    EXPECT_EQ(v1.size(), v2.size()); // the bounding vertices are reused
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(first[i].m_pt[k].x, second[i].m_pt[k].x, 1e-9);
            EXPECT_NEAR(first[i].m_pt[k].y, second[i].m_pt[k].y, 1e-9);
        }
    }
    // After the caller drops the bounding vertices and adds points (which
    // may land at the freed records' addresses), a run uses every point.
    mesh.ClearVoidVet();
    for (int k = 0; k < 3; ++k) {
        d.AddVertex(CKivPoint3d(1010.0 + k, 2010.0 + 7 * k, 0.0));
    }
    ASSERT_TRUE(d.Delaunay());
    CKivMeshDataInspector mi(mesh);
    for (std::size_t i = mi.Verts().size() - 6; i < mi.Verts().size() - 3; ++i) {
        EXPECT_FALSE(mi.Verts()[i]->vecTri.empty()) << i;
    }
    EXPECT_GT(mesh.TriNum(), first.size());
}

TEST(Delaunay, ReportsProgress)
{
    std::mt19937 rng(2);
    CKivMeshData mesh;
    CKivDelaunay d(mesh);
    for (const CKivPoint3d& p : Random(rng, 10000, 0.0, 0.0, 1000.0)) {
        d.AddVertex(p);
    }
    std::vector<double> seen;
    d.SetProgress([&seen](double f) { seen.push_back(f); });
    ASSERT_TRUE(d.Delaunay());
    ASSERT_GE(seen.size(), 2u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 1.0);
    EXPECT_GT(seen.front(), 0.0);
}

// The protected steps on their own: inserting into an existing mesh, and the
// mesh-based walk and flood, against the plain versions.
TEST(Delaunay, StepsOnTheirOwn)
{
    std::mt19937 rng(13);
    const Pts pts = Random(rng, 200, 0.0, 0.0, 100.0);
    CKivMeshData ref, mesh;
    for (CKivMeshData* m : {&ref, &mesh}) {
        CKivDelaunay d(*m);
        for (const CKivPoint3d& p : pts) {
            d.AddVertex(p);
        }
        ASSERT_TRUE(d.Delaunay());
    }
    const CKivPoint3d extra(50.5, 49.5, 0.0);
    CKivDelaunay dr(ref), dm(mesh);
    const int ir = dr.AddVertex(extra);
    const int im = dm.AddVertex(extra);
    CPlain plain(ref);
    EXPECT_TRUE(plain.Insert(ir));
    CKivDelaunayInspector di(dm);
    EXPECT_TRUE(di.InsertPtIntoMesh(im));
    EXPECT_EQ(Triples(ref), Triples(mesh));

    CKivMeshDataInspector mi(mesh);
    for (int k = 0; k < 50; ++k) {
        const CKivPoint3d q = pts[static_cast<std::size_t>(k)];
        const double x = q.x + 0.3, y = q.y - 0.2;
        EXPECT_EQ(di.FindTri(x, y), CPlain(mesh).FindTri(x, y));
    }
    const _sVertex* v = mi.Verts()[static_cast<std::size_t>(im)];
    _sTri* t = di.FindTri(v->pt.x + 0.5, v->pt.y + 0.5);
    ASSERT_NE(t, nullptr);
    std::vector<_sTri*> a, b;
    di.FindCircumTri(v, t, a);
    CPlain(mesh).Flood(v, t, b);
    EXPECT_EQ(a, b);
}

// Inputs with no general position at all: whatever comes out is valid and
// uses every point where the full triangulation is concerned.
TEST(Delaunay, DegenerateInputs)
{
    Pts line, circle, twoLines, same;
    for (int i = 0; i < 400; ++i) {
        line.emplace_back(1000.0 + 0.37 * i, 2000.0 + 0.11 * i, 0.0);
        const double a = 6.283185307179586 * i / 400;
        circle.emplace_back(500000.0 + 50.0 * std::cos(a), 3000000.0 + 50.0 * std::sin(a), 0.0);
        twoLines.emplace_back(0.5 * i, (i % 2) * 3.0, 0.0);
        same.emplace_back(7.0, 8.0, i);
    }
    for (const Pts* p : {&line, &circle, &twoLines}) {
        CheckCore(*p, true, "degenerate");
        CRun run;
        Triangulate(run, *p);
        EXPECT_TRUE(run.ok);
        const CCheck c = CheckValid(Positions(run.mesh), Triples(run.mesh));
        EXPECT_TRUE(c.ok) << c.why;
    }
    CRun run;
    Triangulate(run, line);
    EXPECT_EQ(run.mesh.TriNum(), 0u); // nothing but slivers to the bounding corners
    CRun one;
    Triangulate(one, same);
    EXPECT_FALSE(one.ok); // all merged into one vertex
}

} // namespace
