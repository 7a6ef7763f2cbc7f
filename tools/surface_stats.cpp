#include "surface_stats.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>

namespace kivcli {

namespace {

struct CKivEdgeUse {
    int nForward = 0;  // uses as (lo, hi)
    int nBackward = 0; // uses as (hi, lo)
};

using CKivEdgeMap = std::unordered_map<std::uint64_t, CKivEdgeUse>;

std::uint64_t EdgeKey(int a, int b)
{
    const auto lo = static_cast<std::uint32_t>(std::min(a, b));
    const auto hi = static_cast<std::uint32_t>(std::max(a, b));
    return (static_cast<std::uint64_t>(lo) << 32) | hi;
}

CKivEdgeMap CountEdges(const CKivSurfaceData& surf)
{
    CKivEdgeMap edges;
    edges.reserve(surf.vecTri.size() * 2);
    for (const auto& t : surf.vecTri) {
        for (int k = 0; k < 3; ++k) {
            const int a = t[k], b = t[(k + 1) % 3];
            if (a == b) {
                continue;
            }
            CKivEdgeUse& use = edges[EdgeKey(a, b)];
            (a < b ? use.nForward : use.nBackward)++;
        }
    }
    return edges;
}

} // namespace

std::vector<CKivPolyLine> BoundaryLoops(const CKivSurfaceData& surf)
{
    const CKivEdgeMap edges = CountEdges(surf);
    // Boundary edges in the direction their one triangle runs them, keyed by
    // their start vertex.
    std::unordered_multimap<int, int> next;
    for (const auto& t : surf.vecTri) {
        for (int k = 0; k < 3; ++k) {
            const int a = t[k], b = t[(k + 1) % 3];
            if (a == b) {
                continue;
            }
            const CKivEdgeUse& use = edges.at(EdgeKey(a, b));
            if (use.nForward + use.nBackward == 1) {
                next.emplace(a, b);
            }
        }
    }
    std::vector<CKivPolyLine> loops;
    // Walk from starts that no edge enters first, so open chains (possible
    // where the boundary pinches or the orientation flips) come out whole.
    std::unordered_map<int, int> inDegree;
    for (const auto& e : next) {
        inDegree[e.second]++;
    }
    std::vector<int> starts;
    for (const auto& e : next) {
        if (inDegree.find(e.first) == inDegree.end()) {
            starts.push_back(e.first);
        }
    }
    std::sort(starts.begin(), starts.end());
    auto walk = [&](int start) {
        CKivPolyLine pl;
        pl.AddVertex(surf.vecPt[start]);
        int v = start;
        for (;;) {
            const auto it = next.find(v);
            if (it == next.end()) {
                break;
            }
            const int w = it->second;
            next.erase(it);
            if (w == start) {
                pl.SetClosed(true);
                break;
            }
            pl.AddVertex(surf.vecPt[w]);
            v = w;
        }
        if (pl.NumVerts() >= 2) {
            loops.push_back(pl);
        }
    };
    for (int s : starts) {
        while (next.find(s) != next.end()) {
            walk(s);
        }
    }
    while (!next.empty()) {
        int s = next.begin()->first;
        for (const auto& e : next) {
            s = std::min(s, e.first); // a stable choice of where a ring starts
        }
        walk(s);
    }
    std::stable_sort(loops.begin(), loops.end(),
                     [](const CKivPolyLine& a, const CKivPolyLine& b) { return a.GetLength() > b.GetLength(); });
    return loops;
}

CKivSurfaceStats ComputeStats(const CKivSurfaceData& surf)
{
    CKivSurfaceStats s;
    s.nVertices = surf.vecPt.size();
    s.nTriangles = surf.vecTri.size();
    s.nParts = std::max<std::size_t>(1, surf.vecPartStart.size());
    std::vector<char> used(surf.vecPt.size(), 0);
    bool bFirst = true;
    for (const auto& t : surf.vecTri) {
        const CKivPoint3d& a = surf.vecPt[t[0]];
        const CKivPoint3d& b = surf.vecPt[t[1]];
        const CKivPoint3d& c = surf.vecPt[t[2]];
        for (int k = 0; k < 3; ++k) {
            used[t[k]] = 1;
        }
        // Areas relative to the first corner keep map coordinates accurate.
        const CGeoVector n = CGeoVector(b - a) ^ CGeoVector(c - a);
        const double area = 0.5 * n.Length();
        s.dArea += area;
        s.dPlanArea += 0.5 * std::fabs(n.z);
        if (t[0] == t[1] || t[1] == t[2] || t[0] == t[2] || area == 0.0) {
            ++s.nDegenerate;
        }
    }
    for (std::size_t i = 0; i < surf.vecPt.size(); ++i) {
        const CKivPoint3d& p = surf.vecPt[i];
        if (!used[i]) {
            ++s.nUnusedVertices;
        }
        if (bFirst) {
            s.ptMin = s.ptMax = p;
            bFirst = false;
        }
        s.ptMin.Set(std::min(s.ptMin.x, p.x), std::min(s.ptMin.y, p.y), std::min(s.ptMin.z, p.z));
        s.ptMax.Set(std::max(s.ptMax.x, p.x), std::max(s.ptMax.y, p.y), std::max(s.ptMax.z, p.z));
    }
    const CKivEdgeMap edges = CountEdges(surf);
    s.nEdges = edges.size();
    for (const auto& e : edges) {
        const int uses = e.second.nForward + e.second.nBackward;
        if (uses == 1) {
            ++s.nBoundaryEdges;
        } else if (uses > 2) {
            ++s.nNonManifoldEdges;
        } else if (e.second.nForward != 1) {
            ++s.nFlippedEdges;
        }
    }
    s.bClosed = s.nTriangles > 0 && s.nBoundaryEdges == 0 && s.nNonManifoldEdges == 0;
    s.bOriented = s.nTriangles > 0 && s.nFlippedEdges == 0 && s.nNonManifoldEdges == 0;
    s.vecLoop = BoundaryLoops(surf);
    return s;
}

} // namespace kivcli
