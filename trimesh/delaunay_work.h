// The triangulator's working triangulation: an array of triangles with
// neighbour links, on which points are inserted one by one. It mirrors the
// mesh's triangles (Load), works without touching the mesh, and writes the
// outcome back (Store) so that the mesh ends up exactly as if every step had
// been made with AddTri and DelTri: surviving triangles in creation order,
// each vertex's list in attachment order.
//
// Why a separate structure: the mesh keeps adjacency only through each
// vertex's triangle list, so every neighbour look-up is a list search and
// every triangle a heap record. Here a neighbour is one array read, deleted
// triangles are recycled, and the mesh records are made once at the end.
//
// Insertion follows the plain algorithm step for step: walk with the
// tolerant side test (first edge whose side test fails, in corner order),
// flood the cavity in the recursive order (edge 01, 12, 20) by the tolerant
// in-circle test, keep the cavity's boundary edges in collection order and
// fan them to the new point. What differs is bookkeeping only, plus one
// repair where the tolerant tests would not give a valid triangulation (see
// Insert).
#ifndef KIVGEO_TRIMESH_DELAUNAY_WORK_H
#define KIVGEO_TRIMESH_DELAUNAY_WORK_H

#include <kivgeo/mesh_data.h>

#include "trimesh/big_array_alloc.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

namespace TriMesh {

class CKivDelaunayWork {
public:
    // Whether a vertex takes part in a triangulation: finite coordinates, and
    // x and y within 1e150 (beyond, the exact predicates' products overflow).
    static bool IsUsable(const CKivPoint3d& p);

    // The mesh's own members reach this class through the triangulator (a
    // friend of the store) as these callbacks.
    using FnCoEdge = std::function<const _sTri*(const _sVertex*, const _sVertex*, const _sTri*)>;
    using FnDel = std::function<void(const _sTri*)>;
    using FnAdd = std::function<void(_sVertex*, _sVertex*, _sVertex*)>;

    // Copies the vertex positions and the triangles (null slots skipped;
    // neighbours by coEdge). The mesh must not change until Store.
    void Load(const std::vector<_sVertex*>& verts, const std::vector<_sTri*>& tris, const FnCoEdge& coEdge);
    // Prepares the point-location grid over [xmin, xmax] x [ymin, ymax] for
    // about nPoints insertions.
    void PrepareLocate(double xmin, double ymin, double xmax, double ymax, std::size_t nPoints);
    // Inserts vertex iv (an index into the loaded vertex list); false when it
    // cannot be placed (outside the triangulation, on an existing vertex).
    bool Insert(int iv);
    // Locates the vertices to insert next (up to kAheadPoints, in insertion
    // order) on the current triangulation, their walks in lockstep. Each
    // walk is a chain of cache misses (grid cell, vertex, triangle, corners,
    // next triangle, ...); side by side the chains' misses overlap instead of
    // following one another. Insert then takes a walk's outcome when nothing
    // it passed has changed since (the same start, every triangle on the
    // path still alive), which is exactly when walking again would repeat
    // it; otherwise it walks again.
    static constexpr int kAheadPoints = 16;
    void LocateAhead(const int* next, std::size_t count);
    // Off, LocateAhead does nothing (every walk is made by Insert): the same
    // triangulation, for comparisons.
    void SetLocateAhead(bool bAhead) { m_bAhead = bAhead; }
    // Writes the changes back into the mesh (DelTri for the loaded triangles
    // that died, AddTri for the new survivors in creation order) and
    // compacts its triangle list. The work is empty afterwards.
    void Store(const FnDel& del, const FnAdd& add);
    // The same outcome handed over for a bulk write-back: the loaded
    // triangles that died, and the corners (vertex indices, three per
    // triangle) of the new survivors in creation order. The work is empty
    // afterwards, so its memory is free before the mesh records are made.
    void Export(std::vector<const _sTri*>& dead, CKivBigArray<int>& corners);
    // Drops everything loaded.
    void Clear();
    bool IsLoaded() const { return m_bLoaded; }

    // The bounding vertices of the last run, remembered by record and world
    // position (the caller may have freed them since, and a new vertex may
    // sit at the same address), so that a later run can tell them from data.
    void SetPrevBound(_sVertex* const* v);
    bool IsPrevBound(const _sVertex* v) const;
    // The vertices a run leaves out besides the non-finite ones: at its
    // start (world coordinates) the previous run's bounding vertices, then
    // its own as SetTriBound makes them.
    void BeginRun(const std::vector<_sVertex*>& verts);
    void Exclude(const _sVertex* v) { m_vecExclude.push_back(v); }
    bool IsExcluded(const _sVertex* v) const
    {
        return std::find(m_vecExclude.begin(), m_vecExclude.end(), v) != m_vecExclude.end();
    }
    void EndRun() { m_vecExclude.clear(); }

private:
    // One cache line holds two. A free slot has v[0] == -1 and links the
    // free list through n[0].
    struct alignas(32) STri {
        int v[3];            // corners, counter-clockwise
        int n[3];            // neighbour across edge (v[k], v[k+1]), -1 for none
        std::uint32_t seq;   // creation number (loaded triangles first)
        std::uint8_t mark;   // in the current cavity (1); other values while it is found
        std::uint8_t sense;  // the in-circle rule's verdict on the triangle alone, 0 before it is known
        std::uint16_t spare; // (keeps the record at 32 bytes)
    };
    struct SEdge {
        int a, b;  // the edge as oriented in its triangle
        int owner; // cavity triangle
        int outer; // the triangle across it, -1 for none
    };

    // A walk made ahead by LocateAhead.
    static constexpr int kAheadSteps = 12;
    struct SAhead {
        int vert = -1;  // vertex
        int iv = -1;    // the same, -1 when no outcome is kept
        int start = -1; // first triangle of the walk
        int found = -1; // outcome (LegacyWalk's)
        int cur = -1;   // triangle the walk is at while it runs
        int steps = 0;  // triangles passed
        int path[kAheadSteps];
        std::uint32_t seq[kAheadSteps];
    };
    // The walk of LocateAhead for vertex iv from start, when it still holds.
    bool TakeAhead(int iv, int start, int& found);

    int NewTri(int a, int b, int c);
    void Renumber();
    void CreationOrder(CKivBigArray<std::uint32_t>& order) const;
    void FreeTri(int t);
    int LegacyWalk(int start, double px, double py) const;
    int ExactLocate(int start, double px, double py) const;
    int Orient(int a, int b, double px, double py) const;
    bool Holds(int t, double px, double py, int& onEdge) const;
    int StartTri(double px, double py) const;
    int CellOf(double x, double y) const;
    void GridPut(int iv);
    void GridRebuild();
    void FloodCavity(int start, double px, double py, bool bNear);
    // The in-circle rule for triangle x, its verdict on the triangle alone
    // kept in the record: a triangle stays in place over many insertions
    // and is tested by the cavities of all the points nearby.
    int InCircle(int x, double px, double py);
    void CollectBoundary();
    bool RepairCavity(int iv, const int* hold, int nHold);

    bool m_bLoaded = false;
    std::vector<_sVertex*> m_vecVert;
    // Plan position and one live triangle of each vertex (-1 before it has
    // one), side by side so that keeping the triangle costs no extra miss.
    struct SVert {
        double x, y;
        int tri;
    };
    // The arrays the walk and the cavity search read at random, in blocks
    // that may be backed by huge pages (fewer TLB misses: ~15 % at 10^6).
    CKivBigArray<SVert> m_vecPt;
    CKivBigArray<STri> m_vecTri;
    std::vector<const _sTri*> m_vecSrc;      // mesh records of loaded triangles, by seq
    std::vector<std::uint32_t> m_vecDeadSrc; // loaded triangles since deleted
    std::uint32_t m_nSeq = 0;
    int m_nFree = -1;
    int m_nLive = 0;
    int m_nLastTri = -1;

    bool m_bAhead = true;
    SAhead m_ahead[kAheadPoints];
    int m_nAhead = 0;      // walks made by the last LocateAhead
    int m_nAheadNext = 0;  // the next one to be taken
    int m_nAheadTaken = 0; // of them taken so far
    int m_nAheadSkip = 0;  // blocks still to locate one by one
    static constexpr int kAheadPause = 64;

    // Scratch of one insertion.
    std::vector<int> m_vecCavity;
    std::vector<int> m_vecStack;
    std::vector<int> m_vecRing, m_vecNext, m_vecTouched; // the breadth-first pass
    std::vector<SEdge> m_vecEdge;
    std::vector<int> m_vecNew;
    // Per vertex, for large fans only (made on first use): the new triangle
    // with that first corner, and with that second corner.
    std::vector<int> m_vecStartAt;
    std::vector<int> m_vecEndAt;
    std::vector<int> m_vecStamp; // per vertex: insertion stamp (interior-vertex check)
    int m_nStamp = 0;

    // Grid of inserted vertices (the last one per cell), refined each time
    // their number grows fourfold.
    double m_dX0 = 0, m_dY0 = 0, m_dX1 = 0, m_dY1 = 0;
    double m_dInvW = 0, m_dInvH = 0;
    int m_nCols = 0, m_nRows = 0;
    CKivBigArray<int> m_vecCell;
    int m_nLastCell = -1; // cell of the last point inserted (the grid may be rebuilt since)
    std::size_t m_nInserted = 0;
    std::size_t m_nRebuildAt = 0;

    _sVertex* m_pPrevBound[3] = {nullptr, nullptr, nullptr};
    std::vector<const _sVertex*> m_vecExclude;
    CKivPoint3d m_ptPrevBound[3];
};

} // namespace TriMesh

#endif
