#include <kivgeo/mesh_data.h>

#include "mesh_store_access.h"
#include "trimesh/oct_tree.h"
#include "trimesh/tri_pool.h"
#include "trimesh/vertex_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <vector>

using TriMesh::_sTri;
using TriMesh::_sVertex;
using TriMesh::CKivMeshData;
using TriMesh::CKivMeshDataInspector;
using TriMesh::CKivOctBox;
using TriMesh::CKivOctNode;
using TriMesh::CKivOctTree;

namespace {

CKivPoint3d P(double x, double y, double z)
{
    return CKivPoint3d(x, y, z);
}

// The plain merge the store must reproduce: a backward linear scan per corner.
struct RefMesh {
    std::vector<CKivPoint3d> pts;
    std::vector<int> corner;

    int Find(const CKivPoint3d& p) const
    {
        for (std::size_t i = pts.size(); i-- > 0;) {
            if (pts[i] == p) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    int Find2D(const CKivPoint3d& p) const
    {
        for (std::size_t i = pts.size(); i-- > 0;) {
            if (std::fabs(pts[i].x - p.x) <= 0.01 && std::fabs(pts[i].y - p.y) <= 0.01) {
                return static_cast<int>(i);
            }
        }
        return -1;
    }
    void Input(const std::vector<CKivTri3d>& tris)
    {
        for (const CKivTri3d& t : tris) {
            for (const CKivPoint3d& p : t.m_pt) {
                int i = Find(p);
                if (i < 0) {
                    i = static_cast<int>(pts.size());
                    pts.push_back(p);
                }
                corner.push_back(i);
            }
        }
    }
};

// Checks every invariant the store keeps, with the mesh compacted.
void ExpectConsistent(CKivMeshData& m)
{
    CKivMeshDataInspector in(m);
    std::set<const _sTri*> live(in.Tris().begin(), in.Tris().end());
    ASSERT_EQ(live.count(nullptr), 0u);
    ASSERT_EQ(live.size(), in.Tris().size());
    std::size_t listed = 0;
    for (const _sVertex* v : in.Verts()) {
        for (const _sTri* t : v->vecTri) {
            ASSERT_EQ(live.count(t), 1u);
            ++listed;
        }
    }
    std::size_t slots = 0;
    for (std::size_t i = 0; i < in.Tris().size(); ++i) {
        const _sTri* t = in.Tris()[i];
        EXPECT_EQ(t->nPos, static_cast<int>(i));
        for (const _sVertex* v : t->pVt) {
            EXPECT_NE(std::find(v->vecTri.begin(), v->vecTri.end(), t), v->vecTri.end());
        }
        slots += 3;
    }
    EXPECT_EQ(listed, slots);
}

// Random TIN-like soup: a jittered grid written out as two triangles per
// cell, plus near-duplicates and small-magnitude corners where asked.
std::vector<CKivTri3d> RandomSoup(std::mt19937& rng, int nx, int ny, double x0, double y0, double step,
                                  double jitter)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<CKivPoint3d> g(static_cast<std::size_t>((nx + 1) * (ny + 1)));
    for (int j = 0; j <= ny; ++j) {
        for (int i = 0; i <= nx; ++i) {
            g[static_cast<std::size_t>(j * (nx + 1) + i)] =
                P(x0 + i * step + u(rng) * 0.3 * step, y0 + j * step + u(rng) * 0.3 * step, u(rng) * 10.0);
        }
    }
    auto at = [&](int i, int j) {
        CKivPoint3d p = g[static_cast<std::size_t>(j * (nx + 1) + i)];
        // Corners written again slightly off: some merge, some do not.
        p.x += u(rng) * jitter;
        p.y += u(rng) * jitter;
        return p;
    };
    std::vector<CKivTri3d> tris;
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            tris.emplace_back(at(i, j), at(i + 1, j), at(i + 1, j + 1));
            tris.emplace_back(at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
    }
    std::shuffle(tris.begin(), tris.end(), rng);
    return tris;
}

void ExpectMatchesReference(CKivMeshData& m, const RefMesh& ref, const std::vector<CKivTri3d>& tris)
{
    CKivMeshDataInspector in(m);
    ASSERT_EQ(in.Verts().size(), ref.pts.size());
    for (std::size_t i = 0; i < ref.pts.size(); ++i) {
        const CKivPoint3d& a = in.Verts()[i]->pt;
        const CKivPoint3d& b = ref.pts[i];
        // Bitwise, NaN included.
        EXPECT_TRUE((a.x == b.x || (a.x != a.x && b.x != b.x)) && (a.y == b.y || (a.y != a.y && b.y != b.y)) &&
                    (a.z == b.z || (a.z != a.z && b.z != b.z)))
            << "vertex " << i;
    }
    ASSERT_EQ(in.Tris().size(), tris.size());
    for (std::size_t i = 0; i < tris.size(); ++i) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(in.Tris()[i]->pVt[k]->nIndex, ref.corner[3 * i + static_cast<std::size_t>(k)]);
        }
    }
}

} // namespace

TEST(MeshData, EmptyMesh)
{
    CKivMeshData m;
    EXPECT_EQ(m.TriNum(), 0u);
    EXPECT_EQ(m.GetMinLimit().x, DBL_MAX);
    EXPECT_EQ(m.GetMinLimit().z, DBL_MAX);
    EXPECT_EQ(m.GetMaxLimit().y, -DBL_MAX);
    CKivPoint3d a, b, c;
    EXPECT_FALSE(m.GetTriPts(0, a, b, c));
    EXPECT_EQ(m.GetVertexIndex(P(0.0, 0.0, 0.0)), -1);
    EXPECT_EQ(m.GetVertexIndex2D(P(0.0, 0.0, 0.0)), -1);

    CKivMeshData dst;
    dst.InputData({CKivTri3d(P(0.0, 0.0, 0.0), P(1.0, 0.0, 0.0), P(0.0, 1.0, 0.0))}, true);
    EXPECT_FALSE(m.Clone(dst));
    EXPECT_EQ(dst.TriNum(), 1u);

    // An empty input keeps what bClear left and builds no octree.
    m.InputData(std::vector<CKivTri3d>(), true);
    EXPECT_EQ(CKivMeshDataInspector(m).Tree(), nullptr);
    m.InputData(nullptr, 0, false);
    EXPECT_EQ(m.TriNum(), 0u);
}

TEST(MeshData, InputMergesSharedCornersWithinTolerance)
{
    CKivMeshData m;
    const std::vector<CKivTri3d> tris = {
        CKivTri3d(P(0.0, 0.0, 0.0), P(10.0, 0.0, 0.0), P(0.0, 10.0, 0.0)),
        CKivTri3d(P(10.0 + 5e-7, 0.0, 0.0), P(10.0, 10.0, 0.0), P(0.0, 10.0 - 5e-7, 0.0))};
    m.InputData(tris, true);
    CKivMeshDataInspector in(m);
    ASSERT_EQ(in.Verts().size(), 4u);
    ASSERT_EQ(m.TriNum(), 2u);
    ExpectConsistent(m);
    _sTri* t0 = in.Tris()[0];
    _sTri* t1 = in.Tris()[1];
    EXPECT_EQ(in.FindTriCoEdge(in.Verts()[1], in.Verts()[2], t0), t1);
    EXPECT_EQ(in.FindTriCoEdge(in.Verts()[2], in.Verts()[1], t1), t0);
    EXPECT_EQ(in.FindTriCoEdge(in.Verts()[0], in.Verts()[1], t0), nullptr);
    EXPECT_EQ(in.FindTriCoEdge(nullptr, in.Verts()[1], nullptr), nullptr);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(in.Verts()[static_cast<std::size_t>(i)]->nIndex, i);
    }
    // The first-created position stays; the extent counts created vertices only.
    EXPECT_EQ(in.Verts()[1]->pt.x, 10.0);
    EXPECT_EQ(m.GetMaxLimit().x, 10.0);
    EXPECT_EQ(m.GetMinLimit().y, 0.0);

    CKivPoint3d a, b, c;
    ASSERT_TRUE(m.GetTriPts(1, a, b, c));
    EXPECT_EQ(a.x, 10.0);
    EXPECT_EQ(c.y, 10.0);
    EXPECT_FALSE(m.GetTriPts(m.TriNum(), a, b, c));

    // Appending reuses existing vertices.
    m.InputData({CKivTri3d(P(10.0, 10.0, 0.0), P(20.0, 10.0, 0.0), P(10.0, 0.0, 0.0))}, false);
    EXPECT_EQ(in.Verts().size(), 5u);
    EXPECT_EQ(m.TriNum(), 3u);
    EXPECT_EQ(in.Tris()[2]->pVt[0], in.Verts()[3]);
    EXPECT_EQ(in.Tris()[2]->pVt[2], in.Verts()[1]);
    EXPECT_EQ(in.Verts()[4]->nIndex, 4);
    ExpectConsistent(m);
}

TEST(MeshData, DegenerateTriangleIsKept)
{
    CKivMeshData m;
    m.InputData({CKivTri3d(P(1.0, 1.0, 1.0), P(1.0, 1.0, 1.0), P(2.0, 1.0, 1.0))}, true);
    CKivMeshDataInspector in(m);
    ASSERT_EQ(in.Verts().size(), 2u);
    ASSERT_EQ(m.TriNum(), 1u);
    ASSERT_EQ(in.Verts()[0]->vecTri.size(), 2u);
    EXPECT_EQ(in.Verts()[0]->vecTri[0], in.Verts()[0]->vecTri[1]);
    EXPECT_EQ(in.IndexDefaultPt(in.Tris()[0], in.Verts()[0], in.Verts()[0]), 2);
    // Deleting it empties both lists and keeps the vertices, until they go
    // as void ones.
    in.DelTri(in.Tris()[0]);
    in.DelTri(nullptr);
    in.CompactTris();
    EXPECT_EQ(m.TriNum(), 0u);
    ASSERT_EQ(in.Verts().size(), 2u);
    EXPECT_TRUE(in.Verts()[0]->vecTri.empty());
    EXPECT_TRUE(in.Verts()[1]->vecTri.empty());
    m.ClearVoidVet();
    EXPECT_TRUE(in.Verts().empty());
    // The extent is only reset by ClearAllData.
    EXPECT_EQ(m.GetMaxLimit().x, 2.0);
    m.ClearAllData();
    EXPECT_EQ(m.GetMaxLimit().x, -DBL_MAX);
}

TEST(MeshData, VertexLookupsFollowTheBackwardScan)
{
    CKivMeshData m;
    CKivMeshDataInspector in(m);
    in.NewVertex(P(10.0, 10.0, 99.0));
    EXPECT_EQ(m.GetVertexIndex2D(P(10.01, 9.99, 0.0)), 0);
    EXPECT_EQ(m.GetVertexIndex2D(P(10.011, 10.0, 0.0)), -1);
    // Both bounds of the plan box are inclusive.
    in.NewVertex(P(0.0, 0.0, 5.0));
    EXPECT_EQ(m.GetVertexIndex2D(P(0.01, -0.01, 0.0)), 1);
    EXPECT_EQ(m.GetVertexIndex2D(P(std::nextafter(0.01, 1.0), 0.0, 0.0)), -1);
    in.DelVoidVet(in.Verts()[1]);
    EXPECT_EQ(m.GetVertexIndex(P(10.0, 10.0, 99.0000005)), 0);
    EXPECT_EQ(m.GetVertexIndex(P(10.0, 10.0, 99.0000011)), -1);
    // Later matches win, for both lookups.
    in.NewVertex(P(10.0000003, 10.0, 99.0000008));
    in.NewVertex(P(50.0, 50.0, 0.0));
    EXPECT_EQ(m.GetVertexIndex(P(10.0, 10.0, 99.0)), 1);
    EXPECT_EQ(m.GetVertexIndex(P(10.0, 10.0, 98.9999995)), 0);
    EXPECT_EQ(m.GetVertexIndex2D(P(10.0, 10.0, 0.0)), 1);
    EXPECT_EQ(in.Verts()[2]->nIndex, 2);
    // NewVertex leaves the extent alone.
    EXPECT_EQ(m.GetMaxLimit().x, -DBL_MAX);
    // Relative rule below 1: 1e-8 and 2e-8 differ, 0 and 2e-8 do not.
    in.NewVertex(P(1e-8, 0.0, 0.0));
    EXPECT_EQ(m.GetVertexIndex(P(2e-8, 0.0, 0.0)), -1);
    EXPECT_EQ(m.GetVertexIndex(P(1e-8, 1e-7, 0.0)), 3);
    EXPECT_EQ(m.GetVertexIndex(P(0.0, 0.0, 0.0)), 3);
}

TEST(MeshData, MovedVerticesAreFoundAfterInvalidation)
{
    CKivMeshData m;
    CKivMeshDataInspector in(m);
    for (int i = 0; i < 100; ++i) {
        in.NewVertex(P(500000.0 + i, 3000000.0 + i * 0.5, 1.0));
    }
    EXPECT_EQ(m.GetVertexIndex(P(500042.0, 3000021.0, 1.0)), 42);
    for (_sVertex* v : in.Verts()) {
        v->pt.x -= 500050.0;
        v->pt.y -= 3000025.0;
    }
    in.InvalidateVertexIndex();
    EXPECT_EQ(m.GetVertexIndex(P(-8.0, -4.0, 1.0)), 42);
    EXPECT_EQ(m.GetVertexIndex2D(P(-8.0, -4.0, 7.0)), 42);
    EXPECT_EQ(m.GetVertexIndex(P(500042.0, 3000021.0, 1.0)), -1);
    // Removing a vertex renumbers the lookups.
    in.DelVoidVet(in.Verts()[10]);
    EXPECT_EQ(in.Verts().size(), 99u);
    EXPECT_EQ(m.GetVertexIndex(P(-8.0, -4.0, 1.0)), 41);
    EXPECT_EQ(in.Verts()[41]->nIndex, 42);
}

// Void-vertex removal against the plain erase-while-walking-down, then the
// lookups against the scan over what is left; ClearTriData leaves the
// vertices alone.
TEST(MeshData, VoidVertexRemovalAndClearTriData)
{
    std::mt19937 rng(3);
    CKivMeshData m;
    m.InputData(RandomSoup(rng, 15, 12, 10.0, 20.0, 0.5, 0.0), true);
    CKivMeshDataInspector in(m);
    // Vertices that only a friend made (no triangle, no extent) are void too.
    for (int i = 0; i < 20; ++i) {
        in.NewVertex(P(10.0 + i * 0.25, 20.0, 0.0));
    }
    // A friend may also append records directly; the lookups see them.
    _sVertex* direct = new _sVertex;
    direct->pt = P(-5.0, -5.0, -5.0);
    in.Verts().push_back(direct);
    EXPECT_EQ(m.GetVertexIndex(P(-5.0, -5.0, -5.0)), static_cast<int>(in.Verts().size()) - 1);
    std::bernoulli_distribution pick(0.4);
    for (_sTri* t : std::vector<_sTri*>(in.Tris())) {
        if (pick(rng)) {
            in.DelTri(t);
        }
    }
    in.CompactTris();
    std::vector<_sVertex*> expect = in.Verts();
    for (std::size_t j = expect.size(); j-- > 0;) {
        if (expect[j]->vecTri.empty()) {
            expect.erase(expect.begin() + static_cast<std::ptrdiff_t>(j));
        }
    }
    const CKivPoint3d maxBefore = m.GetMaxLimit();
    m.ClearVoidVet();
    ASSERT_EQ(in.Verts(), expect);
    EXPECT_EQ(m.GetMaxLimit().x, maxBefore.x);
    ExpectConsistent(m);
    RefMesh ref;
    for (const _sVertex* v : in.Verts()) {
        ref.pts.push_back(v->pt);
    }
    std::uniform_real_distribution<double> u(-0.3, 0.3);
    for (std::size_t q = 0; q < 2 * ref.pts.size(); ++q) {
        CKivPoint3d p = ref.pts[q % ref.pts.size()];
        if (q % 2) {
            p.x += u(rng) * 1e-5;
            p.y += u(rng);
        }
        ASSERT_EQ(m.GetVertexIndex(p), ref.Find(p));
        ASSERT_EQ(m.GetVertexIndex2D(p), ref.Find2D(p));
    }
    // nIndex keeps the creation position.
    EXPECT_GE(in.Verts().back()->nIndex, static_cast<int>(in.Verts().size()) - 1);

    // Removing one vertex, used or not, drops only that record.
    _sVertex* victim = in.Verts()[3];
    const std::size_t before = in.Verts().size();
    for (_sTri* t : std::vector<_sTri*>(victim->vecTri)) {
        in.DelTri(t);
    }
    in.CompactTris();
    in.DelVoidVet(victim);
    EXPECT_EQ(in.Verts().size(), before - 1);
    in.DelVoidVet(nullptr);
    EXPECT_EQ(in.Verts().size(), before - 1);

    const std::size_t nVert = in.Verts().size();
    in.ClearTriData();
    EXPECT_EQ(m.TriNum(), 0u);
    EXPECT_EQ(in.Tree(), nullptr);
    EXPECT_EQ(in.Verts().size(), nVert);
    // The lists still name the freed triangles until the caller rebuilds them.
    std::size_t listed = 0;
    for (_sVertex* v : in.Verts()) {
        listed += v->vecTri.size();
        v->vecTri.clear();
    }
    EXPECT_GT(listed, 0u);
    m.ClearAllData();
    EXPECT_TRUE(in.Verts().empty());
    EXPECT_EQ(m.GetVertexIndex(P(-5.0, -5.0, -5.0)), -1);
}

// The neighbour search against the plain scan from its description, on
// random fans where an edge may carry several triangles or none.
TEST(MeshData, FindTriCoEdgeMatchesPlainScan)
{
    std::mt19937 rng(17);
    CKivMeshData m;
    CKivMeshDataInspector in(m);
    for (int i = 0; i < 8; ++i) {
        in.NewVertex(P(i, i * i, 0.0));
    }
    std::vector<_sVertex*>& v = in.Verts();
    std::uniform_int_distribution<std::size_t> pv(0, v.size() - 1);
    for (int i = 0; i < 60; ++i) {
        in.AddTri(v[pv(rng)], v[pv(rng)], v[pv(rng)]);
    }
    const auto plain = [](const _sVertex* a, const _sVertex* b, const _sTri* ex) -> _sTri* {
        if (!a || !b) {
            return nullptr;
        }
        for (std::size_t i = a->vecTri.size(); i-- > 0;) {
            _sTri* t = a->vecTri[i];
            if (!t || t == ex) {
                continue;
            }
            for (std::size_t j = b->vecTri.size(); j-- > 0;) {
                if (b->vecTri[j] == t && t != ex) {
                    return t;
                }
            }
        }
        return nullptr;
    };
    int found = 0;
    for (_sVertex* a : v) {
        for (_sVertex* b : v) {
            for (int e = -1; e < static_cast<int>(in.Tris().size()); e += 7) {
                const _sTri* ex = e < 0 ? nullptr : in.Tris()[static_cast<std::size_t>(e)];
                _sTri* got = in.FindTriCoEdge(a, b, ex);
                ASSERT_EQ(got, plain(a, b, ex));
                found += got != nullptr;
            }
        }
    }
    EXPECT_GT(found, 100);
    EXPECT_EQ(in.FindTriCoEdge(v[0], nullptr, nullptr), nullptr);
    // Every corner is a or b: no third corner.
    in.AddTri(v[1], v[2], v[1]);
    EXPECT_EQ(in.IndexDefaultPt(in.Tris().back(), v[2], v[1]), -1);
}

TEST(MeshData, IndexDefaultPtAndDelTriFromVec)
{
    CKivMeshData m;
    m.InputData({CKivTri3d(P(0.0, 0.0, 0.0), P(1.0, 0.0, 0.0), P(0.0, 1.0, 0.0))}, true);
    CKivMeshDataInspector in(m);
    _sVertex* A = in.Verts()[0];
    _sVertex* B = in.Verts()[1];
    _sVertex* C = in.Verts()[2];
    _sTri* t = in.Tris()[0];
    EXPECT_EQ(in.IndexDefaultPt(t, C, A), 1);
    EXPECT_EQ(in.IndexDefaultPt(t, A, B), 2);
    EXPECT_EQ(in.IndexDefaultPt(nullptr, A, B), -2);
    EXPECT_EQ(in.IndexDefaultPt(t, nullptr, B), -3);
    _sTri x, y;
    std::vector<_sTri*> v = {&x, &y, &x};
    in.DelTriFromVec(v, &x);
    EXPECT_EQ(v, (std::vector<_sTri*>{&y, &x}));
    in.DelTriFromVec(v, t);
    EXPECT_EQ(v.size(), 2u);
    t->Invert();
    EXPECT_EQ(t->pVt[0], B);
    EXPECT_EQ(t->pVt[1], A);
}

TEST(MeshData, CloneAndOutput)
{
    std::mt19937 rng(7);
    const std::vector<CKivTri3d> tris = RandomSoup(rng, 6, 5, 100.0, 200.0, 1.0, 0.0);
    CKivMeshData m, c;
    m.InputData(tris, true);
    ASSERT_TRUE(m.Clone(c));
    std::vector<CKivTri3d> a, b;
    m.OutputData(a);
    c.OutputData(b);
    ASSERT_EQ(a.size(), tris.size());
    ASSERT_EQ(b.size(), a.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (int k = 0; k < 3; ++k) {
            EXPECT_TRUE(a[i].m_pt[k] == tris[i].m_pt[k]);
            EXPECT_EQ(b[i].m_pt[k].x, a[i].m_pt[k].x);
        }
    }
    std::vector<CKivPoint3d> pa, pb;
    m.OutputPoints(pa);
    c.OutputPoints(pb);
    EXPECT_EQ(pa.size(), 42u);
    EXPECT_EQ(pb.size(), pa.size());
    // Cloning a mesh into itself rebuilds it unchanged.
    ASSERT_TRUE(m.Clone(m));
    m.OutputData(b);
    ASSERT_EQ(b.size(), a.size());
    EXPECT_EQ(b.back().m_pt[2].y, a.back().m_pt[2].y);
    ExpectConsistent(m);
}

// The hash-grid merge against the plain backward scan, on soups whose corners
// are rewritten with offsets around the 1e-6 tolerance, at several scales.
TEST(MeshData, MergeMatchesReferenceScan)
{
    struct Scale {
        double x0, y0, step, jitter;
    };
    const Scale scales[] = {{500000.0, 3000000.0, 1.0, 1.5e-6},
                            {0.0, 0.0, 1e-3, 1.5e-6},
                            {-0.5, -0.5, 1e-5, 1e-7},
                            {0.0, 0.0, 1e-7, 3e-8},
                            {1e12, -1e12, 1.0, 0.0},
                            {-2.0, 3.0, 0.01, 1e-6}};
    std::mt19937 rng(1234);
    for (const Scale& s : scales) {
        for (int rep = 0; rep < 3; ++rep) {
            const std::vector<CKivTri3d> tris = RandomSoup(rng, 12, 9, s.x0, s.y0, s.step, s.jitter);
            RefMesh ref;
            ref.Input(tris);
            CKivMeshData m;
            m.InputData(tris, true);
            SCOPED_TRACE(s.step);
            ExpectMatchesReference(m, ref, tris);
            ExpectConsistent(m);
            // Random probes near existing points, in both lookups.
            std::uniform_real_distribution<double> u(-1.0, 1.0);
            for (int q = 0; q < 300; ++q) {
                CKivPoint3d p = ref.pts[static_cast<std::size_t>(q) % ref.pts.size()];
                p.x += u(rng) * 2e-6;
                p.y += u(rng) * std::max(2e-6, s.step);
                ASSERT_EQ(m.GetVertexIndex(p), ref.Find(p));
                ASSERT_EQ(m.GetVertexIndex2D(p), ref.Find2D(p));
            }
        }
    }
}

// Coordinates drawn from the places where the index changes how it keys a
// value (0, the small cell below 2e-6, relative cells below 1, absolute cells,
// the exact range from 2^36, the largest doubles), each nudged by amounts
// around the tolerance: absolute, relative, or a few units in the last place.
// Few bases per axis, so many points meet; the merge and both lookups must
// agree with the plain scan.
TEST(MeshData, MergeMatchesReferenceScanAcrossKeyRanges)
{
    const double bases[] = {0.0,           1e-9,         5e-7,     9.9e-7, 1e-6,     1.5e-6,  2e-6, 2.5e-6,
                            1e-3,          0.5,          0.999999, 1.0,    1.000001, 3.7,     5e5,  3e6,
                            68719476736.0, 6.8719476e10, 1e12,     1e308,  DBL_MAX,  4.9e-324};
    std::mt19937 rng(2024);
    std::uniform_int_distribution<std::size_t> pickBase(0, sizeof bases / sizeof bases[0] - 1);
    std::uniform_int_distribution<int> pickKind(0, 4), pickK(-15, 15), pickUlp(-3, 3);
    const auto coord = [&](double b) {
        double v = rng() % 2 ? -b : b;
        switch (pickKind(rng)) {
        case 0:
            break;
        case 1:
            v += pickK(rng) * 1e-7;
            break;
        case 2:
            v += pickK(rng) * 1e-7 * v;
            break;
        default:
            for (int s = pickUlp(rng); s != 0; s += s > 0 ? -1 : 1) {
                v = std::nextafter(v, s > 0 ? DBL_MAX : -DBL_MAX);
            }
        }
        return v;
    };
    for (int rep = 0; rep < 60; ++rep) {
        // Each run keeps only a few bases, so that nudged copies meet.
        const double bx = bases[pickBase(rng)], by = bases[pickBase(rng)], bz = bases[pickBase(rng)];
        const double other = bases[pickBase(rng)];
        std::vector<CKivTri3d> tris;
        std::vector<CKivPoint3d> probes;
        for (int i = 0; i < 200; ++i) {
            CKivPoint3d p[3];
            for (CKivPoint3d& q : p) {
                q = P(coord(rng() % 4 ? bx : other), coord(rng() % 4 ? by : other), coord(rng() % 4 ? bz : other));
            }
            tris.emplace_back(p[0], p[1], p[2]);
            probes.push_back(P(coord(bx), coord(by), coord(bz)));
        }
        RefMesh ref;
        ref.Input(tris);
        CKivMeshData m;
        m.InputData(tris, true);
        SCOPED_TRACE(testing::Message() << bx << " " << by << " " << bz << " " << other);
        ExpectMatchesReference(m, ref, tris);
        for (const CKivPoint3d& q : probes) {
            ASSERT_EQ(m.GetVertexIndex(q), ref.Find(q)) << q.x << " " << q.y << " " << q.z;
            ASSERT_EQ(m.GetVertexIndex2D(q), ref.Find2D(q)) << q.x << " " << q.y;
        }
    }
}

TEST(MeshData, NonFiniteCoordinatesMergeLikeTheScan)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<CKivTri3d> tris = {
        CKivTri3d(P(nan, 0.0, 0.0), P(nan, 0.0, 0.0), P(1.0, 1.0, 1.0)),
        CKivTri3d(P(inf, 0.0, 0.0), P(inf, 0.0, 0.0), P(-inf, 5.0, inf)),
        CKivTri3d(P(1.0, 1.0, 1.0), P(1e300, -1e300, 0.0), P(-inf, 5.0000001, inf)),
        CKivTri3d(P(DBL_MAX, 0.0, 0.0), P(1e300, -1e300, 0.0), P(0.0, nan, 0.0))};
    RefMesh ref;
    ref.Input(tris);
    CKivMeshData m;
    m.InputData(tris, true);
    ExpectMatchesReference(m, ref, tris);
    ExpectConsistent(m);
    for (const CKivTri3d& t : tris) {
        for (const CKivPoint3d& p : t.m_pt) {
            EXPECT_EQ(m.GetVertexIndex(p), ref.Find(p));
            EXPECT_EQ(m.GetVertexIndex2D(p), ref.Find2D(p));
        }
    }
    EXPECT_EQ(m.GetMaxLimit().x, inf);
    EXPECT_EQ(m.GetMinLimit().x, -inf);
    // The octree is built over an infinite extent without trouble.
    CKivMeshDataInspector in(m);
    ASSERT_NE(in.Tree(), nullptr);
    std::vector<const CKivOctNode*> nodes;
    in.Tree()->QueryBox(-1.0, -1.0, -1.0, 1.0, 1.0, 1.0, nodes);
    in.Tree()->QueryBox2D(nan, 0.0, 1.0, 1.0, nodes);
    EXPECT_TRUE(nodes.empty());
}

// Deleting many triangles (tombstones, then one compaction) leaves exactly
// what erasing each slot at once would.
TEST(MeshData, BulkDeletionMatchesEraseOrder)
{
    std::mt19937 rng(99);
    const std::vector<CKivTri3d> tris = RandomSoup(rng, 20, 20, 0.0, 0.0, 1.0, 0.0);
    CKivMeshData m;
    m.InputData(tris, true);
    CKivMeshDataInspector in(m);
    for (int round = 0; round < 4; ++round) {
        std::vector<_sTri*> expect = in.Tris();
        std::vector<_sTri*> victims;
        std::bernoulli_distribution pick(0.3);
        for (_sTri* t : expect) {
            if (pick(rng)) {
                victims.push_back(t);
            }
        }
        std::shuffle(victims.begin(), victims.end(), rng);
        for (_sTri* t : victims) {
            expect.erase(std::find(expect.begin(), expect.end(), t));
            in.DelTri(t);
        }
        // Public reads see the survivors even before compaction.
        EXPECT_EQ(m.TriNum(), expect.size());
        CKivPoint3d a, b, c;
        ASSERT_TRUE(m.GetTriPts(m.TriNum() - 1, a, b, c));
        EXPECT_EQ(c.x, expect.back()->pVt[2]->pt.x);
        in.CompactTris();
        EXPECT_EQ(in.Tris(), expect);
        ExpectConsistent(m);
        // New triangles go to the end, into the octree too.
        std::vector<_sVertex*>& v = in.Verts();
        in.AddTri(v[0], v[1], v[2]);
        EXPECT_EQ(in.Tris().back()->pVt[1], v[1]);
        EXPECT_EQ(in.Tris().back()->nPos, static_cast<int>(in.Tris().size()) - 1);
    }
    // Every tree entry is a live triangle, each exactly once.
    std::vector<const CKivOctNode*> nodes;
    in.Tree()->QueryBox(-DBL_MAX, -DBL_MAX, -DBL_MAX, DBL_MAX, DBL_MAX, DBL_MAX, nodes);
    std::multiset<const _sTri*> inTree;
    for (const CKivOctNode* n : nodes) {
        inTree.insert(n->m_vecTri.begin(), n->m_vecTri.end());
    }
    EXPECT_EQ(inTree, std::multiset<const _sTri*>(in.Tris().begin(), in.Tris().end()));
}

namespace {

bool BoxesMeet(const CKivOctBox& a, const CKivOctBox& b)
{
    return a.Overlaps(b);
}

// Walks the whole tree in the order the queries report nodes.
void AllNodes(const CKivOctNode& n, int depth, std::vector<std::pair<const CKivOctNode*, int>>& out)
{
    out.emplace_back(&n, depth);
    if (n.m_pChild) {
        for (int i = 0; i < 8; ++i) {
            AllNodes(n.m_pChild[i], depth + 1, out);
        }
    }
}

bool SameBits(const CKivOctBox& a, const CKivOctBox& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The two trees hold the same nodes (boxes to the bit, children, counts,
// hulls) and every node the same triangles in the same order.
void ExpectSameTree(const CKivOctNode& a, const CKivOctNode& b, int depth)
{
    ASSERT_TRUE(SameBits(a.m_box, b.m_box)) << "depth " << depth;
    ASSERT_TRUE(SameBits(a.m_boxTri, b.m_boxTri)) << "depth " << depth;
    ASSERT_TRUE(SameBits(a.m_boxSub, b.m_boxSub)) << "depth " << depth;
    ASSERT_EQ(a.m_nSubTri, b.m_nSubTri);
    ASSERT_EQ(a.m_vecTri, b.m_vecTri);
    ASSERT_EQ(a.m_pChild == nullptr, b.m_pChild == nullptr) << "depth " << depth;
    if (a.m_pChild) {
        for (int i = 0; i < 8; ++i) {
            ExpectSameTree(a.m_pChild[i], b.m_pChild[i], depth + 1);
        }
    }
}

// Checks a tree against the insertion rule read plainly: each triangle sits
// where the walk through the first containing child ends, the nodes with
// children are exactly those such walks passed above the deepest level, and
// the counts and boxes are what the stored triangles make them.
void ExpectPlainInsertion(const CKivOctTree& tree, const std::vector<_sTri*>& tris)
{
    const CKivOctNode* root = tree.Root();
    std::map<const CKivOctNode*, std::vector<_sTri*>> lists;
    std::map<const CKivOctNode*, std::size_t> sub;
    std::map<const CKivOctNode*, CKivOctBox> boxTri, boxSub;
    std::set<const CKivOctNode*> passed;
    const double big = std::numeric_limits<double>::max();
    const CKivOctBox empty{{big, big, big}, {-big, -big, -big}};
    const auto widen = [](CKivOctBox& acc, const CKivOctBox& b) {
        for (int k = 0; k < 3; ++k) {
            acc.dMin[k] = std::min(acc.dMin[k], b.dMin[k]);
            acc.dMax[k] = std::max(acc.dMax[k], b.dMax[k]);
        }
    };
    for (_sTri* t : tris) {
        const CKivOctBox b = CKivOctBox::OfTri(*t);
        if (!root->m_box.Contains(b)) {
            continue;
        }
        std::vector<const CKivOctNode*> path{root};
        for (int depth = 0; depth < tree.MaxDepth(); ++depth) {
            const CKivOctNode* n = path.back();
            passed.insert(n);
            ASSERT_NE(n->m_pChild, nullptr);
            const CKivOctNode* next = nullptr;
            for (int i = 0; i < 8 && !next; ++i) {
                if (n->m_pChild[i].m_box.Contains(b)) {
                    next = &n->m_pChild[i];
                }
            }
            if (!next) {
                break;
            }
            path.push_back(next);
        }
        const CKivOctNode* n = path.back();
        lists[n].push_back(t);
        boxTri.emplace(n, empty);
        widen(boxTri[n], b);
        for (const CKivOctNode* p : path) {
            ++sub[p];
            boxSub.emplace(p, empty);
            widen(boxSub[p], n->m_box);
        }
    }
    std::vector<std::pair<const CKivOctNode*, int>> all;
    AllNodes(*root, 0, all);
    for (const auto& nd : all) {
        const CKivOctNode* n = nd.first;
        EXPECT_EQ(n->m_pChild != nullptr, passed.count(n) == 1);
        EXPECT_EQ(n->m_vecTri, lists[n]);
        EXPECT_EQ(n->m_nSubTri, sub[n]);
        const CKivOctBox bt = boxTri.count(n) ? boxTri[n] : empty;
        const CKivOctBox bs = boxSub.count(n) ? boxSub[n] : empty;
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(n->m_boxTri.dMin[k], bt.dMin[k]);
            EXPECT_EQ(n->m_boxTri.dMax[k], bt.dMax[k]);
            EXPECT_EQ(n->m_boxSub.dMin[k], bs.dMin[k]);
            EXPECT_EQ(n->m_boxSub.dMax[k], bs.dMax[k]);
        }
    }
}

} // namespace

TEST(OctTree, LayoutAndQueries)
{
    std::mt19937 rng(5);
    std::vector<CKivTri3d> tris = RandomSoup(rng, 30, 25, 500000.0, 3000000.0, 4.0, 0.0);
    CKivMeshData m;
    m.InputData(tris, true);
    CKivMeshDataInspector in(m);
    const CKivOctTree* tree = in.Tree();
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(tree->MaxDepth(), 8);
    EXPECT_DOUBLE_EQ(tree->Ratio(), 0.2);

    // Root: the extent grown by 10 % of its size on each side.
    const CKivPoint3d lo = m.GetMinLimit(), hi = m.GetMaxLimit();
    const CKivOctBox& root = tree->Root()->m_box;
    EXPECT_DOUBLE_EQ(root.dMin[0], lo.x - 0.1 * (hi.x - lo.x));
    EXPECT_DOUBLE_EQ(root.dMax[2], hi.z + 0.1 * (hi.z - lo.z));

    std::vector<std::pair<const CKivOctNode*, int>> all;
    AllNodes(*tree->Root(), 0, all);
    for (const auto& nd : all) {
        const CKivOctNode& n = *nd.first;
        EXPECT_LE(nd.second, 8);
        if (n.m_pChild) {
            // Children: octants grown by 10 % of their size per side.
            const double half = 0.5 * (n.m_box.dMax[0] - n.m_box.dMin[0]);
            EXPECT_NEAR(n.m_pChild[1].m_box.dMin[0], n.m_box.dMin[0] + half - 0.1 * half, 1e-6 * half);
            EXPECT_NEAR(n.m_pChild[0].m_box.dMax[0], n.m_box.dMin[0] + 1.1 * half, 1e-6 * half);
        }
    }
    // Every triangle where the plain descent puts it, each exactly once.
    ExpectPlainInsertion(*tree, in.Tris());
    EXPECT_EQ(tree->Root()->m_nSubTri, tris.size());

    std::uniform_real_distribution<double> ux(lo.x, hi.x), uy(lo.y, hi.y), us(0.0, 20.0);
    std::vector<const CKivOctNode*> nodes;
    for (int q = 0; q < 200; ++q) {
        const double x = ux(rng), y = uy(rng), w = us(rng);
        const bool column = q % 2 == 1;
        CKivOctBox qb{{x, y, column ? root.dMin[2] : -2.0}, {x + w, y + w, column ? root.dMax[2] : 3.0}};
        if (column) {
            tree->QueryBox2D(x, y, x + w, y + w, nodes);
        } else {
            tree->QueryBox(x, y, -2.0, x + w, y + w, 3.0, nodes);
        }
        // Reported: exactly the storing nodes that meet the box and whose
        // ancestors do, in depth-first order.
        std::vector<const CKivOctNode*> expect;
        std::vector<bool> reach(all.size());
        std::vector<int> parentDepthOk(10, 1);
        for (std::size_t i = 0; i < all.size(); ++i) {
            const int d = all[i].second;
            const bool ok =
                (d == 0 || parentDepthOk[static_cast<std::size_t>(d - 1)]) && BoxesMeet(all[i].first->m_box, qb);
            parentDepthOk[static_cast<std::size_t>(d)] = ok;
            if (ok && !all[i].first->m_vecTri.empty()) {
                expect.push_back(all[i].first);
            }
        }
        ASSERT_EQ(nodes, expect);
        // Complete: every triangle whose box meets the query is a candidate.
        std::set<const _sTri*> cand;
        for (const CKivOctNode* n : nodes) {
            cand.insert(n->m_vecTri.begin(), n->m_vecTri.end());
        }
        for (const _sTri* t : in.Tris()) {
            if (CKivOctBox::OfTri(*t).Overlaps(qb)) {
                ASSERT_EQ(cand.count(t), 1u);
            }
        }
    }
}

TEST(OctTree, PairingQuery)
{
    std::mt19937 rng(11);
    CKivMeshData a, b;
    a.InputData(RandomSoup(rng, 20, 20, 0.0, 0.0, 1.0, 0.0), true);
    b.InputData(RandomSoup(rng, 10, 10, 12.0, 7.0, 1.3, 0.0), true);
    CKivMeshDataInspector ia(a), ib(b);
    std::vector<_sTri*> got;
    ia.Tree()->QueryPairs(*ib.Tree(), got);

    std::vector<std::pair<const CKivOctNode*, int>> na, nb;
    AllNodes(*ia.Tree()->Root(), 0, na);
    AllNodes(*ib.Tree()->Root(), 0, nb);
    std::vector<_sTri*> expect;
    for (const auto& x : na) {
        bool hit = false;
        for (const auto& y : nb) {
            hit = hit || (!y.first->m_vecTri.empty() && x.first->m_box.Overlaps(y.first->m_box));
        }
        if (hit) {
            expect.insert(expect.end(), x.first->m_vecTri.begin(), x.first->m_vecTri.end());
        }
    }
    std::sort(expect.begin(), expect.end(), std::less<_sTri*>());
    EXPECT_EQ(got, expect);
    EXPECT_FALSE(got.empty());
    EXPECT_LT(got.size(), a.TriNum());
    // Every triangle of a that really meets a triangle box of b is there.
    for (_sTri* t : ia.Tris()) {
        for (_sTri* u : ib.Tris()) {
            if (CKivOctBox::OfTri(*t).Overlaps(CKivOctBox::OfTri(*u))) {
                ASSERT_TRUE(std::binary_search(got.begin(), got.end(), t, std::less<_sTri*>()));
                break;
            }
        }
    }
}

TEST(OctTree, LifecycleAndTrianglesOutsideTheRoot)
{
    CKivOctTree bare;
    EXPECT_EQ(bare.MaxDepth(), 10);
    EXPECT_DOUBLE_EQ(bare.Ratio(), 0.2);
    std::vector<const CKivOctNode*> nodes(3);
    bare.QueryBox(0.0, 0.0, 0.0, 1.0, 1.0, 1.0, nodes);
    EXPECT_TRUE(nodes.empty());
    bare.Create(P(0.0, 0.0, 0.0), P(10.0, 20.0, 0.0), 3, 0.2);
    EXPECT_DOUBLE_EQ(bare.Root()->m_box.dMin[1], -2.0);
    EXPECT_DOUBLE_EQ(bare.Root()->m_box.dMax[2], 0.0);
    bare.Destroy();
    EXPECT_EQ(bare.MaxDepth(), -1);
    EXPECT_EQ(bare.Root(), nullptr);

    CKivMeshData m;
    m.InputData({CKivTri3d(P(0.0, 0.0, 0.0), P(10.0, 0.0, 1.0), P(0.0, 10.0, 2.0)),
                 CKivTri3d(P(10.0, 0.0, 1.0), P(10.0, 10.0, 1.0), P(0.0, 10.0, 2.0))},
                true);
    CKivMeshDataInspector in(m);
    // A flat column query takes its z range from the root box.
    in.Tree()->QueryBox2D(4.0, 4.0, 4.0, 4.0, nodes);
    EXPECT_FALSE(nodes.empty());
    in.Tree()->QueryBox(4.0, 4.0, 50.0, 4.0, 4.0, 60.0, nodes);
    EXPECT_TRUE(nodes.empty());
    // A triangle beyond the root box is kept in the mesh but not indexed,
    // and deleting it leaves the tree as it was.
    _sVertex* far = in.NewVertex(P(100.0, 100.0, 0.0));
    in.AddTri(in.Verts()[0], in.Verts()[1], far);
    EXPECT_EQ(m.TriNum(), 3u);
    const auto treeTris = [&] {
        std::multiset<const _sTri*> s;
        in.Tree()->QueryBox(-DBL_MAX, -DBL_MAX, -DBL_MAX, DBL_MAX, DBL_MAX, DBL_MAX, nodes);
        for (const CKivOctNode* n : nodes) {
            s.insert(n->m_vecTri.begin(), n->m_vecTri.end());
        }
        return s;
    };
    EXPECT_EQ(treeTris().size(), 2u);
    in.DelTri(in.Tris().back());
    in.CompactTris();
    EXPECT_EQ(treeTris().size(), 2u);
    // The extent only counts vertices that were counted in; a rebuild covers
    // what it says.
    in.UpdateExtent(*far);
    in.ResetOctTree();
    in.AddTri(in.Verts()[0], in.Verts()[1], far);
    EXPECT_EQ(treeTris().size(), 3u);
    EXPECT_DOUBLE_EQ(in.Tree()->Root()->m_box.dMax[0], 110.0);
    // No triangles, no tree.
    in.ClearTriData();
    in.ResetOctTree();
    EXPECT_EQ(in.Tree(), nullptr);
}

// Filling a fresh tree in bulk builds exactly the tree that inserting the
// triangles one by one does, and both follow the plain insertion rule: on
// TINs, on triangles of every size, on pathological inputs (all corners in
// one point, NaN and infinite corners, boxes beyond the root, huge and tiny
// coordinates) and at every depth.
TEST(OctTree, BulkFillMatchesOneByOne)
{
    std::mt19937 rng(21);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const auto scatter = [&](double scale, double x0, int n, double size) {
        std::vector<CKivTri3d> tris;
        for (int i = 0; i < n; ++i) {
            const CKivPoint3d a = P(x0 + u(rng) * scale, x0 + u(rng) * scale, u(rng) * scale * 0.1);
            const double s = size * scale * u(rng) * u(rng);
            tris.emplace_back(a, P(a.x + s, a.y, a.z), P(a.x, a.y + s * u(rng), a.z + s));
        }
        return tris;
    };
    struct Case {
        const char* name;
        std::vector<CKivTri3d> tris;
    };
    std::vector<Case> cases;
    cases.push_back({"tin", RandomSoup(rng, 40, 30, 500000.0, 3000000.0, 10.0, 0.0)});
    cases.push_back({"sizes", scatter(100.0, 0.0, 1500, 0.5)});
    cases.push_back({"tiny", scatter(1e-9, 1e-9, 400, 0.3)});
    cases.push_back({"huge", scatter(1e300, -5e299, 400, 0.3)});
    std::vector<CKivTri3d> point(300, CKivTri3d(P(3.0, -0.0, 0.0), P(3.0, 0.0, -0.0), P(3.0, -0.0, -0.0)));
    cases.push_back({"one point", point});
    std::vector<CKivTri3d> odd = scatter(10.0, 0.0, 300, 0.2);
    for (std::size_t i = 0; i < odd.size(); i += 7) {
        odd[i].m_pt[i % 3].y = (i % 2) ? nan : inf;
    }
    cases.push_back({"nan and inf", odd});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CKivMeshData m;
        CKivMeshDataInspector in(m);
        const std::vector<_sTri*>& tris = in.Tris();
        // The tree InputData builds, on an empty mesh and on top of what a
        // mesh holds, is the tree of one-by-one insertion over the extent.
        for (bool clear : {true, false}) {
            m.InputData(c.tris, clear);
            CKivOctTree one;
            one.Create(m.GetMinLimit(), m.GetMaxLimit(), 8, 0.2);
            for (_sTri* t : tris) {
                one.Insert(t, CKivOctBox::OfTri(*t));
            }
            ASSERT_NE(in.Tree(), nullptr);
            ExpectSameTree(*one.Root(), *in.Tree()->Root(), 0);
        }
        // The mesh extent, and one that leaves part of the triangles out.
        CKivPoint3d lo = m.GetMinLimit(), hi = m.GetMaxLimit();
        for (int shrink = 0; shrink < 2; ++shrink) {
            if (shrink) {
                hi = P(0.5 * (lo.x + hi.x), hi.y, hi.z);
            }
            for (int depth : {0, 1, 3, 8, 9, 10}) {
                SCOPED_TRACE(depth);
                CKivOctTree one, bulk;
                one.Create(lo, hi, depth, 0.2);
                bulk.Create(lo, hi, depth, 0.2);
                for (_sTri* t : tris) {
                    one.Insert(t, CKivOctBox::OfTri(*t));
                }
                bulk.InsertAll(tris);
                ExpectSameTree(*one.Root(), *bulk.Root(), 0);
                ExpectPlainInsertion(bulk, tris);
                // A tree that already holds triangles takes more the same way.
                one.InsertAll(tris);
                for (_sTri* t : tris) {
                    bulk.Insert(t, CKivOctBox::OfTri(*t));
                }
                ExpectSameTree(*one.Root(), *bulk.Root(), 0);
            }
        }
    }
}

// The record pools grow their chunks from small to huge-page size: records
// stay distinct and aligned across chunk sizes, Owns tells pool records from
// heap ones at every chunk boundary, and freed slots come back.
TEST(MeshStorePools, RecordsAcrossGrowingChunks)
{
    TriMesh::CKivVertexPool vp;
    std::vector<TriMesh::_sVertex*> vs;
    for (int i = 0; i < 100000; ++i) {
        vs.push_back(vp.New());
        vs.back()->nIndex = i;
    }
    std::set<const void*> seen(vs.begin(), vs.end());
    EXPECT_EQ(seen.size(), vs.size());
    for (const TriMesh::_sVertex* v : vs) {
        ASSERT_TRUE(vp.Owns(v));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(v) % 64, 0u);
    }
    auto* heap = new TriMesh::_sVertex;
    EXPECT_FALSE(vp.Owns(heap));
    delete heap;
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(vs[static_cast<std::size_t>(i)]->nIndex, i);
    }
    TriMesh::_sVertex* back = vs[777];
    vp.Delete(back);
    EXPECT_EQ(vp.New(), back);
    EXPECT_EQ(back->nIndex, -1);
    for (TriMesh::_sVertex* v : vs) {
        vp.Delete(v);
    }
    vp.Clear();
    EXPECT_FALSE(vp.Owns(vs[0]));

    TriMesh::CKivTriPool tp;
    std::set<const void*> tris;
    for (int i = 0; i < 200000; ++i) {
        TriMesh::_sTri* t = tp.New();
        ASSERT_EQ(t->pVt[0], nullptr);
        t->nPos = i;
        tris.insert(t);
    }
    EXPECT_EQ(tris.size(), 200000u);
    tp.Clear();
    EXPECT_EQ(tp.New()->nPos, -1);
}

namespace {

// Two meshes built from the same soup hold the same thing: vertices (to the
// bit) and their numbers, triangles and their corners, every vertex's
// triangle list, the extent and the octree, triangles compared by slot.
void ExpectSameMesh(CKivMeshData& a, CKivMeshData& b)
{
    CKivMeshDataInspector ia(a), ib(b);
    const auto bits = [](const CKivPoint3d& p, const CKivPoint3d& q) {
        return std::memcmp(&p, &q, sizeof p) == 0;
    };
    ASSERT_TRUE(bits(a.GetMinLimit(), b.GetMinLimit()));
    ASSERT_TRUE(bits(a.GetMaxLimit(), b.GetMaxLimit()));
    ASSERT_EQ(ia.Verts().size(), ib.Verts().size());
    ASSERT_EQ(ia.Tris().size(), ib.Tris().size());
    for (std::size_t i = 0; i < ia.Verts().size(); ++i) {
        const _sVertex* u = ia.Verts()[i];
        const _sVertex* v = ib.Verts()[i];
        ASSERT_TRUE(bits(u->pt, v->pt)) << "vertex " << i;
        ASSERT_EQ(u->nIndex, v->nIndex);
        ASSERT_EQ(u->vecTri.size(), v->vecTri.size()) << "vertex " << i;
        for (std::size_t k = 0; k < u->vecTri.size(); ++k) {
            ASSERT_EQ(u->vecTri[k]->nPos, v->vecTri[k]->nPos) << "vertex " << i;
        }
    }
    for (std::size_t i = 0; i < ia.Tris().size(); ++i) {
        ASSERT_EQ(ia.Tris()[i]->nPos, static_cast<int>(i));
        ASSERT_EQ(ib.Tris()[i]->nPos, static_cast<int>(i));
        for (int k = 0; k < 3; ++k) {
            ASSERT_EQ(ia.Tris()[i]->pVt[k]->nIndex, ib.Tris()[i]->pVt[k]->nIndex) << "triangle " << i;
        }
    }
    ASSERT_EQ(ia.Tree() == nullptr, ib.Tree() == nullptr);
    if (!ia.Tree()) {
        return;
    }
    std::vector<std::pair<const CKivOctNode*, int>> na, nb;
    AllNodes(*ia.Tree()->Root(), 0, na);
    AllNodes(*ib.Tree()->Root(), 0, nb);
    ASSERT_EQ(na.size(), nb.size());
    for (std::size_t i = 0; i < na.size(); ++i) {
        const CKivOctNode& x = *na[i].first;
        const CKivOctNode& y = *nb[i].first;
        ASSERT_TRUE(SameBits(x.m_box, y.m_box) && SameBits(x.m_boxTri, y.m_boxTri) &&
                    SameBits(x.m_boxSub, y.m_boxSub));
        ASSERT_EQ(x.m_nSubTri, y.m_nSubTri);
        ASSERT_EQ(x.m_vecTri.size(), y.m_vecTri.size());
        for (std::size_t k = 0; k < x.m_vecTri.size(); ++k) {
            ASSERT_EQ(x.m_vecTri[k]->nPos, y.m_vecTri[k]->nPos);
        }
    }
}

} // namespace

// The sorted merge of large soups against the hashed one and the plain scan,
// on soups built to hit its cases: corners on and near the borders of its
// cells (2^-10), near-duplicates around the tolerance, coordinates below 1,
// crowded cells (more makers than a group takes), collinear and degenerate
// triangles, huge, infinite and NaN values.
TEST(MeshData, SortedMergeMatchesHashedAndScan)
{
    std::mt19937 rng(4242);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const double cell = 1.0 / 1024;
    struct Case {
        const char* name;
        std::vector<CKivTri3d> tris;
    };
    std::vector<Case> cases;
    cases.push_back({"utm", RandomSoup(rng, 30, 20, 500000.0, 3000000.0, 10.0, 0.0)});
    cases.push_back({"jittered", RandomSoup(rng, 25, 20, 500000.0, 3000000.0, 1e-3, 1.5e-6)});
    cases.push_back({"small", RandomSoup(rng, 20, 20, -0.01, -0.01, 1e-3, 1e-6)});
    cases.push_back({"tiny", RandomSoup(rng, 12, 12, 0.0, 0.0, 1e-7, 3e-8)});
    // Flat patches: several vertices a cell, and far more than a group takes.
    const auto flat = [](std::vector<CKivTri3d> tris) {
        for (CKivTri3d& t : tris) {
            for (CKivPoint3d& p : t.m_pt) {
                p.z = 0.3;
            }
        }
        return tris;
    };
    cases.push_back({"several a cell", flat(RandomSoup(rng, 30, 30, 7.0, 7.0, 2e-4, 1e-6))});
    cases.push_back({"crowded", flat(RandomSoup(rng, 30, 30, 7.0004, 7.0004, 1e-5, 1e-6))});
    // Corners on cell borders, nudged by amounts around the reach of a cell.
    std::vector<CKivTri3d> border;
    const double nudges[] = {0.0, 1e-7, -1e-7, 9e-7, -9e-7, 1.1e-6, -1.1e-6, 2.5e-6, -2.5e-6};
    std::uniform_int_distribution<int> pickNudge(0, 8), pickCell(-3, 3);
    const auto near = [&](double base) { return base + pickCell(rng) * cell + nudges[pickNudge(rng)]; };
    for (int i = 0; i < 1500; ++i) {
        CKivPoint3d p[3];
        for (CKivPoint3d& q : p) {
            q = P(near(1000.0), near(-3.0), near(0.0));
        }
        border.emplace_back(p[0], p[1], p[2]);
    }
    cases.push_back({"cell borders", border});
    // Degenerate and odd triangles mixed into a TIN.
    std::vector<CKivTri3d> odd = RandomSoup(rng, 20, 20, 100.0, 200.0, 1.0, 1e-6);
    for (std::size_t i = 0; i < odd.size(); i += 5) {
        CKivTri3d& t = odd[i];
        switch (i % 4) {
        case 0:
            t.m_pt[2] = t.m_pt[0]; // two corners one vertex
            break;
        case 1:
            t.m_pt[1].x = (i % 3) ? nan : inf;
            break;
        case 2:
            t.m_pt[0] = P(1e300 * u(rng), -1e300, DBL_MAX);
            break;
        default:
            t.m_pt[1] = P(0.5 * (t.m_pt[0].x + t.m_pt[2].x), 0.5 * (t.m_pt[0].y + t.m_pt[2].y), t.m_pt[0].z);
        }
    }
    odd.insert(odd.end(), odd.begin(), odd.begin() + 100); // duplicated triangles
    cases.push_back({"odd", odd});
    std::vector<CKivTri3d> point(200, CKivTri3d(P(3.0, -0.0, 0.0), P(3.0, 0.0, -0.0), P(3.0, -0.0, -0.0)));
    cases.push_back({"one point", point});

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        RefMesh ref;
        ref.Input(c.tris);
        CKivMeshData sorted, hashed;
        ASSERT_TRUE(CKivMeshDataInspector(sorted).InputSorted(c.tris, true, true));
        CKivMeshDataInspector(hashed).InputHashed(c.tris, true);
        ExpectMatchesReference(sorted, ref, c.tris);
        ExpectSameMesh(sorted, hashed);
        ExpectConsistent(sorted);
        // Lookups afterwards find what the plain scan finds.
        for (std::size_t i = 0; i < c.tris.size(); i += 7) {
            const CKivPoint3d& p = c.tris[i].m_pt[i % 3];
            ASSERT_EQ(sorted.GetVertexIndex(p), ref.Find(p));
        }
        // On top of a mesh that has vertices the sorted merge steps aside.
        EXPECT_FALSE(CKivMeshDataInspector(sorted).InputSorted(c.tris, false, true));
        EXPECT_EQ(CKivMeshDataInspector(sorted).Tris().size(), c.tris.size());
    }
}

// InputData takes the sorted merge for large soups, unless they crowd, and
// gives what the hashed merge gives either way.
TEST(MeshData, LargeSoupsTakeTheSortedMerge)
{
    std::mt19937 rng(77);
    const std::vector<CKivTri3d> tin = RandomSoup(rng, 40, 30, 500000.0, 3000000.0, 10.0, 1e-6);
    const std::vector<CKivTri3d> crowded = RandomSoup(rng, 40, 30, 0.0, 0.0, 1e-9, 0.0);
    for (const std::vector<CKivTri3d>* tris : {&tin, &crowded}) {
        CKivMeshData m, hashed, probe;
        m.InputData(*tris, true);
        CKivMeshDataInspector(hashed).InputHashed(*tris, true);
        ExpectSameMesh(m, hashed);
        EXPECT_EQ(CKivMeshDataInspector(probe).InputSorted(*tris, true, false), tris == &tin);
    }
}
