// Hash lookup of segments under CKivSeg3d::IsSameSeg (point equality of both
// ends, either direction), for the draping query. Not installed.
//
// Point equality (CompDouble per coordinate) holds only for coordinates that
// are identical or less than 1e-6 apart, so two equal points fall into the
// same or neighbouring cells of a grid with cells of 4e-6; a lookup visits
// just the cells that the 1e-6 neighbourhood of the point touches (one in
// almost every case). Segments are keyed by their first end; a query tries
// the neighbourhoods of both of its ends, so both directions are found.
#ifndef KIVGEO_TRIMESH_SEG_DEDUP_H
#define KIVGEO_TRIMESH_SEG_DEDUP_H

#include <kivgeo/point3d.h>
#include <kivgeo/seg3d.h>

#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace TriMesh {

class CKivSegDedup {
public:
    // Takes the segments already in segs (which must stay alive and only
    // grow through Add).
    explicit CKivSegDedup(const std::vector<CKivSeg3d>& segs) : m_pSegs(&segs)
    {
        m_mapHead.reserve(segs.size() * 2 + 16);
        for (std::size_t i = 0; i < segs.size(); ++i) {
            Index(i);
        }
    }

    // Whether some segment held is the same as (a, b).
    bool Contains(const CKivPoint3d& a, const CKivPoint3d& b) const { return Probe(a, a, b) || Probe(b, a, b); }
    // Call after appending a segment to the vector.
    void Added() { Index(m_pSegs->size() - 1); }

private:
    static constexpr double kCell = 4e-6;
    // A little over 1e-6, so that rounding in q +- kReach never loses a cell.
    static constexpr double kReach = 1.5e-6;

    // Cell coordinate of v; non-finite and huge values share end cells
    // (values that far out are equal only when identical).
    static std::int64_t Cell(double v)
    {
        const double c = std::floor(v / kCell);
        if (c != c) {
            return 0; // NaN never compares equal; any cell will do
        }
        if (c > 4.0e18) {
            return INT64_MAX;
        }
        if (c < -4.0e18) {
            return INT64_MIN;
        }
        return static_cast<std::int64_t>(c);
    }
    static std::uint64_t Key(std::int64_t x, std::int64_t y, std::int64_t z)
    {
        std::uint64_t h = static_cast<std::uint64_t>(x) * 0x9E3779B97F4A7C15ull;
        h ^= static_cast<std::uint64_t>(y) * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
        h ^= static_cast<std::uint64_t>(z) * 0x165667B19E3779F9ull + (h << 6) + (h >> 2);
        return h;
    }
    void Index(std::size_t i)
    {
        const CKivPoint3d& p = (*m_pSegs)[i].m_pt[0];
        const std::uint64_t k = Key(Cell(p.x), Cell(p.y), Cell(p.z));
        m_vecNext.push_back(-1);
        auto ins = m_mapHead.emplace(k, static_cast<std::int64_t>(i));
        if (!ins.second) {
            m_vecNext[i] = ins.first->second;
            ins.first->second = static_cast<std::int64_t>(i);
        }
    }
    // Segments whose first end lies in a cell near q, tested against (a, b).
    bool Probe(const CKivPoint3d& q, const CKivPoint3d& a, const CKivPoint3d& b) const
    {
        const std::int64_t x0 = Cell(q.x - kReach), x1 = Cell(q.x + kReach);
        const std::int64_t y0 = Cell(q.y - kReach), y1 = Cell(q.y + kReach);
        const std::int64_t z0 = Cell(q.z - kReach), z1 = Cell(q.z + kReach);
        for (std::int64_t x = x0;; ++x) {
            for (std::int64_t y = y0;; ++y) {
                for (std::int64_t z = z0;; ++z) {
                    const auto it = m_mapHead.find(Key(x, y, z));
                    if (it != m_mapHead.end()) {
                        for (std::int64_t i = it->second; i >= 0; i = m_vecNext[static_cast<std::size_t>(i)]) {
                            const CKivSeg3d& s = (*m_pSegs)[static_cast<std::size_t>(i)];
                            if (CKivSeg3d::IsSameSeg(s.m_pt[0], s.m_pt[1], a, b)) {
                                return true;
                            }
                        }
                    }
                    if (z >= z1) {
                        break;
                    }
                }
                if (y >= y1) {
                    break;
                }
            }
            if (x >= x1) {
                break;
            }
        }
        return false;
    }

    const std::vector<CKivSeg3d>* m_pSegs;
    std::unordered_map<std::uint64_t, std::int64_t> m_mapHead;
    std::vector<std::int64_t> m_vecNext;
};

} // namespace TriMesh

#endif
