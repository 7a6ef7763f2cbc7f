#include "trimesh/soup_merge.h"

#include "trimesh/prefetch.h"
#include "trimesh/radix_sort.h"
#include "trimesh/vertex_index.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace TriMesh {

namespace {

// Cells of 2^-10: wide against the reach (a corner is not inside its cell
// with a chance of about 3 * 2 * 2e-6 * 1024, 1.2 %), and map data is rarely
// denser. Scaling by a power of two is exact, so cells are found by floor.
constexpr double kCellsPerUnit = 1024.0;
// Twice the tolerance of point equality: covers |difference| < 1e-6 with
// room for the rounding of v - reach and v + reach (below 2^30 a unit in the
// last place is at most 2^-23, far less than the 1e-6 spare).
constexpr double kReach = 2e-6;
constexpr double kInsideBelow = 1073741824.0; // 2^30

// std::floor for |x| < 2^52, inline (std::floor is a call without SSE4.1).
inline double Floor(double x)
{
    const double t = static_cast<double>(static_cast<std::int64_t>(x));
    return t > x ? t - 1.0 : t;
}

// The cell of v along one axis as a key, and whether v is inside it.
inline bool AxisCell(double v, std::uint64_t& key)
{
    if (!(std::fabs(v) < kInsideBelow)) {
        // Huge, infinite or NaN: never inside, any key will do.
        std::memcpy(&key, &v, sizeof key);
        return false;
    }
    const double cell = Floor(v * kCellsPerUnit);
    key = static_cast<std::uint64_t>(static_cast<std::int64_t>(cell));
    return Floor((v - kReach) * kCellsPerUnit) == cell && Floor((v + kReach) * kCellsPerUnit) == cell;
}

// Every axis keyed, also past the first one that is not inside.
inline bool InsideCell(const CKivPoint3d& p, std::uint64_t& kx, std::uint64_t& ky, std::uint64_t& kz)
{
    const bool x = AxisCell(p.x, kx);
    const bool y = AxisCell(p.y, ky);
    const bool z = AxisCell(p.z, kz);
    return x && y && z;
}

inline bool SameBits(const CKivPoint3d& q, const CKivPoint3d& p)
{
    return std::memcmp(&q, &p, sizeof(CKivPoint3d)) == 0;
}

inline const CKivPoint3d& CornerPt(const std::vector<CKivTri3d>& tris, std::uint32_t j)
{
    return tris[j / 3].m_pt[j % 3];
}

inline void SetBit(std::vector<std::uint64_t>& bits, std::uint32_t j, bool on)
{
    const std::uint64_t m = std::uint64_t(1) << (j & 63);
    bits[j >> 6] = on ? (bits[j >> 6] | m) : (bits[j >> 6] & ~m);
}

// Bits needed for the numbers below n.
inline int BitsFor(std::size_t n)
{
    int b = 1;
    while ((std::size_t(1) << b) < n) {
        ++b;
    }
    return b;
}

} // namespace

void CKivSoupMerge::Clear()
{
    CKivBigArray<std::uint64_t>().swap(m_vecGroup);
    CKivBigArray<std::uint64_t>().swap(m_vecOpen);
    CKivBigArray<CKivPoint3d>().swap(m_vecPt);
    std::vector<std::uint64_t>().swap(m_vecMaker);
    std::vector<std::uint64_t>().swap(m_vecMoved);
    std::vector<std::uint32_t>().swap(m_vecRankBase);
    m_nMaker = 0;
}

bool CKivSoupMerge::Run(const std::vector<CKivTri3d>& tris, bool bForce)
{
    Clear();
    const std::size_t nCorner = 3 * tris.size();
    if (nCorner == 0 || nCorner > kCornerMask) {
        return false;
    }
    const std::uint32_t n = static_cast<std::uint32_t>(nCorner);
    if (!bForce && Crowded(tris)) {
        return false;
    }
    // Keys of 22 bits sort in two passes; colliding cells only share a group
    // (see above), which costs little while keys outnumber cells.
    const int keyBits = n < (1u << 22) ? 22 : 32;
    const std::uint64_t keyMask = (std::uint64_t(1) << keyBits) - 1;
    m_vecGroup.reserve(n);
    m_vecPt.reserve(n);
    for (std::uint32_t j = 0; j < n; ++j) {
        const CKivPoint3d& p = CornerPt(tris, j);
        std::uint64_t kx, ky, kz;
        const bool inside = InsideCell(p, kx, ky, kz);
        const std::uint64_t key = KivMixKey(kx ^ KivMixKey(ky ^ KivMixKey(kz + 0x632be59bd9b4e019ULL))) & keyMask;
        m_vecGroup.push_back(key << 32 | j | (inside ? 0 : kMakerBit));
        m_vecPt.push_back(p);
    }
    KivSortByHighBits(m_vecGroup, keyBits);

    const std::size_t nWord = n / 64 + 1;
    m_vecMaker.assign(nWord, 0);
    m_vecMoved.assign(nWord, 0);
    // The groups come in key order, their corners anywhere in the soup: ask
    // for the positions some corners ahead.
    constexpr std::size_t kAheadPt = 48;
    std::size_t asked = 0;
    for (std::size_t s = 0; s < n;) {
        const std::uint64_t key = m_vecGroup[s] >> 32;
        // Until the merge, the maker bit marks a corner not inside its cell.
        bool open = false;
        std::size_t e = s;
        for (; e < n && m_vecGroup[e] >> 32 == key; ++e) {
            open = open || (m_vecGroup[e] & kMakerBit);
        }
        for (; asked < n && asked < e + kAheadPt; ++asked) {
            const CKivPoint3d* p = &m_vecPt[static_cast<std::uint32_t>(m_vecGroup[asked]) & kCornerMask];
            PrefetchRead(p);
            PrefetchRead(&p->z);
        }
        if (open || !MergeGroup(s, e)) {
            for (std::size_t t = s; t < e; ++t) {
                const std::uint32_t j = CornerOf(m_vecGroup[t]);
                m_vecGroup[t] = std::uint64_t(kOpen) << 32 | j;
                m_vecOpen.push_back(std::uint64_t(j) << 32);
            }
        }
        s = e;
    }
    if (!bForce && m_vecOpen.size() > n / 4) {
        Clear();
        return false;
    }
    MergeOpen();
    CKivBigArray<CKivPoint3d>().swap(m_vecPt);

    SortByVertex();
    return true;
}

void CKivSoupMerge::SortByVertex()
{
    // The vertex of a maker is its rank among the makers.
    const std::size_t nWord = m_vecMaker.size();
    m_vecRankBase.resize(nWord);
    std::size_t sum = 0;
    for (std::size_t w = 0; w < nWord; ++w) {
        m_vecRankBase[w] = static_cast<std::uint32_t>(sum);
        sum += static_cast<std::size_t>(KivPopCount(m_vecMaker[w]));
    }
    m_nMaker = sum;
    // Every vertex's corners are all in closed groups, in input order, or
    // all open: a stable sort by vertex keeps them in input order.
    std::size_t w = 0;
    for (std::size_t s = 0; s < m_vecGroup.size(); ++s) {
        const std::uint64_t r = m_vecGroup[s];
        if (IsOpen(r)) {
            continue;
        }
        const std::uint32_t j = CornerOf(r);
        m_vecGroup[w++] = std::uint64_t(Rank(IsMaker(r) ? j : MakerOf(r))) << 32 | j;
    }
    for (std::uint64_t r : m_vecOpen) {
        m_vecGroup[w++] = std::uint64_t(Rank(static_cast<std::uint32_t>(r))) << 32 | (r >> 32);
    }
    CKivBigArray<std::uint64_t>().swap(m_vecOpen);
    KivSortByHighBits(m_vecGroup, BitsFor(m_nMaker));
}

bool CKivSoupMerge::Crowded(const std::vector<CKivTri3d>& tris)
{
    // Corners spread over the soup: a quarter of them not inside their
    // cells, or cells holding many of them, and most groups would be open.
    constexpr std::size_t kSample = 1024;
    const std::size_t n = 3 * tris.size();
    if (n < 4 * kSample) {
        return false;
    }
    std::uint64_t key[kSample];
    std::size_t outside = 0;
    for (std::size_t i = 0; i < kSample; ++i) {
        const CKivPoint3d& p = CornerPt(tris, static_cast<std::uint32_t>(i * n / kSample));
        std::uint64_t kx, ky, kz;
        outside += InsideCell(p, kx, ky, kz) ? 0 : 1;
        key[i] = KivMixKey(kx ^ KivMixKey(ky ^ KivMixKey(kz)));
    }
    std::sort(key, key + kSample);
    const std::size_t cells = static_cast<std::size_t>(std::unique(key, key + kSample) - key);
    return 4 * outside > kSample || 16 * cells < kSample;
}

bool CKivSoupMerge::MergeGroup(std::size_t s, std::size_t e)
{
    struct SMaker {
        std::uint32_t nCorner;
        std::size_t nAt; // its record
        const CKivPoint3d* pPt;
    };
    SMaker made[kMaxMakers];
    int nMade = 0;
    for (std::size_t t = s; t < e; ++t) {
        const std::uint32_t j = CornerOf(m_vecGroup[t]);
        const CKivPoint3d& p = m_vecPt[j];
        int m = nMade;
        while (m-- > 0 && !KivSamePoint(*made[m].pPt, p)) {
        }
        if (m >= 0) {
            m_vecGroup[t] = std::uint64_t(made[m].nCorner) << 32 | j;
            continue;
        }
        if (nMade == kMaxMakers) {
            return false;
        }
        made[nMade++] = SMaker{j, t, &p};
    }
    for (int m = 0; m < nMade; ++m) {
        m_vecGroup[made[m].nAt] = made[m].nCorner | kMakerBit;
        SetBit(m_vecMaker, made[m].nCorner, true);
    }
    for (std::size_t t = s; t < e; ++t) {
        const std::uint64_t r = m_vecGroup[t];
        if (!IsMaker(r) && !SameBits(m_vecPt[MakerOf(r)], m_vecPt[CornerOf(r)])) {
            SetBit(m_vecMoved, CornerOf(r), true);
        }
    }
    return true;
}

void CKivSoupMerge::MergeOpen()
{
    if (m_vecOpen.empty()) {
        return;
    }
    KivSortByHighBits(m_vecOpen, BitsFor(m_vecGroup.size()));
    CKivPointIndex index;
    std::vector<std::uint32_t> maker; // by position in index
    for (std::uint64_t& r : m_vecOpen) {
        const std::uint32_t j = static_cast<std::uint32_t>(r >> 32);
        const CKivPoint3d& p = m_vecPt[j];
        const int f = index.FindLast(p);
        std::uint32_t by = j;
        if (f < 0) {
            index.Append(p);
            maker.push_back(j);
            SetBit(m_vecMaker, j, true);
        } else {
            by = maker[static_cast<std::size_t>(f)];
            SetBit(m_vecMoved, j, !SameBits(m_vecPt[by], p));
        }
        r |= by;
    }
}

} // namespace TriMesh
