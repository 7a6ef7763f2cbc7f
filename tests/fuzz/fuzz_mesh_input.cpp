// Fuzz target: a triangle soup loaded with InputData (once, or twice with the
// second load merging into the first), checked for what the store promises:
// every triangle kept in input order, corners merged only with equal points,
// the extent covering every finite vertex, Clone reproducing the triangles;
// then the mesh queries on the result.
#include "fuzz_input.h"
#include "fuzz_query.h"

#include <kivgeo/mesh_data.h>
#include <kivgeo/tri3d.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

std::vector<CKivTri3d> DecodeSoup(CKivFuzzInput& in)
{
    // Corners are drawn from a small pool so that triangles share corners,
    // repeat each other and degenerate (two or three corners alike).
    const std::vector<CKivPoint3d> pool = in.Points(24);
    std::vector<CKivTri3d> tris;
    if (pool.empty()) {
        return tris;
    }
    const unsigned n = in.Below(40);
    const unsigned m = static_cast<unsigned>(pool.size());
    for (unsigned i = 0; i < n && !in.Empty(); ++i) {
        // One read per statement, so that a saved input decodes the same
        // under every compiler.
        const unsigned a = in.Below(m);
        const unsigned b = in.Below(m);
        const unsigned c = in.Below(m);
        tris.emplace_back(pool[a], pool[b], pool[c]);
    }
    return tris;
}

bool HasNaN(const CKivPoint3d& p)
{
    return std::isnan(p.x) || std::isnan(p.y) || std::isnan(p.z);
}

void CheckLoaded(const TriMesh::CKivMeshData& mesh, const std::vector<CKivTri3d>& want)
{
    KIV_FUZZ_CHECK(mesh.TriNum() == want.size());
    std::vector<CKivTri3d> out;
    mesh.OutputData(out);
    KIV_FUZZ_CHECK(out.size() == want.size());
    std::vector<CKivPoint3d> verts;
    mesh.OutputPoints(verts);
    KIV_FUZZ_CHECK(verts.size() <= 3 * want.size());
    const CKivPoint3d lo = mesh.GetMinLimit(), hi = mesh.GetMaxLimit();
    for (const CKivPoint3d& v : verts) {
        KIV_FUZZ_CHECK(!(v.x < lo.x || v.y < lo.y || v.z < lo.z || v.x > hi.x || v.y > hi.y || v.z > hi.z));
    }
    CKivPoint3d a, b, c;
    KIV_FUZZ_CHECK(!mesh.GetTriPts(mesh.TriNum(), a, b, c));
    for (std::size_t i = 0; i < want.size(); ++i) {
        KIV_FUZZ_CHECK(mesh.GetTriPts(static_cast<unsigned>(i), a, b, c));
        const CKivPoint3d got[3] = {a, b, c};
        for (int k = 0; k < 3; ++k) {
            KIV_FUZZ_CHECK(SamePt(got[k], out[i].m_pt[k]));
            const CKivPoint3d& p = want[i].m_pt[k];
            if (HasNaN(p)) {
                // A NaN equals nothing: the corner has a vertex of its own.
                KIV_FUZZ_CHECK(SamePt(got[k], p));
            } else {
                KIV_FUZZ_CHECK(got[k] == p);
                KIV_FUZZ_CHECK(mesh.GetVertexIndex(p) >= 0);
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CKivFuzzInput in(data, size);
    TriMesh::CKivMeshData mesh;
    std::vector<CKivTri3d> all = DecodeSoup(in);
    mesh.InputData(all, true);
    CheckLoaded(mesh, all);

    if (in.Flag()) {
        // A second soup merged into the first (or replacing it).
        const bool clear = in.Flag();
        std::vector<CKivTri3d> more = DecodeSoup(in);
        if (clear) {
            all = more;
        } else {
            all.insert(all.end(), more.begin(), more.end());
        }
        mesh.InputData(more.data(), static_cast<int>(more.size()), clear);
        CheckLoaded(mesh, all);
    }

    // Clone copies the triangles as they are in the mesh, merged once more.
    std::vector<CKivTri3d> out;
    std::vector<CKivPoint3d> verts;
    mesh.OutputData(out);
    mesh.OutputPoints(verts);
    TriMesh::CKivMeshData copy;
    const bool cloned = mesh.Clone(copy);
    KIV_FUZZ_CHECK(cloned == !(verts.empty() && out.empty()));
    if (cloned) {
        CheckLoaded(copy, out);
    }

    FuzzQueries(in, mesh, false);
    mesh.ClearVoidVet();
    CheckLoaded(mesh, all);
    mesh.ClearAllData();
    KIV_FUZZ_CHECK(mesh.TriNum() == 0);

    // A soup large enough for the sorted merge: the soup again and again,
    // each copy with one coordinate nudged by a step around the tolerance or
    // the merge's cell (2^-10). Loaded at once it must give what loading its
    // first triangle and then appending the rest (the hashed merge) gives.
    if (in.Flag() && !all.empty()) {
        static const double kNudge[] = {0.0, 0.0, 1e-7, -9e-7, 1.1e-6, -2.5e-6, 1.0 / 1024, 0.5};
        std::vector<CKivTri3d> big;
        for (unsigned round = 0; big.size() < 1100; ++round) {
            const unsigned pick = in.Below(8);
            const double d = kNudge[pick] * (round % 2 ? in.Scale() : 1.0);
            for (const CKivTri3d& t : all) {
                CKivTri3d u = t;
                u.m_pt[round % 3].x += d;
                big.push_back(u);
            }
        }
        TriMesh::CKivMeshData one, two;
        one.InputData(big, true);
        CheckLoaded(one, big);
        two.InputData(std::vector<CKivTri3d>(big.begin(), big.begin() + 1), true);
        two.InputData(std::vector<CKivTri3d>(big.begin() + 1, big.end()), false);
        std::vector<CKivPoint3d> p1, p2;
        one.OutputPoints(p1);
        two.OutputPoints(p2);
        KIV_FUZZ_CHECK(p1.size() == p2.size());
        for (std::size_t i = 0; i < p1.size() && i < p2.size(); ++i) {
            KIV_FUZZ_CHECK(SamePt(p1[i], p2[i]));
        }
        std::vector<CKivTri3d> t1, t2;
        one.OutputData(t1);
        two.OutputData(t2);
        KIV_FUZZ_CHECK(t1.size() == t2.size());
        for (std::size_t i = 0; i < t1.size() && i < t2.size(); ++i) {
            for (int k = 0; k < 3; ++k) {
                KIV_FUZZ_CHECK(SamePt(t1[i].m_pt[k], t2[i].m_pt[k]));
            }
        }
    }
    return 0;
}
