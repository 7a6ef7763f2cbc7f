#include <kivgeo/geo_convex.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

constexpr double kEps = 1e-6;

// Exact sign of the computed cross product: no tolerance.
inline bool IsClockwise(const CKivPoint3d& o, const CKivPoint3d& a, const CKivPoint3d& b)
{
    const double cross = (b.y - o.y) * (a.x - o.x) - (a.y - o.y) * (b.x - o.x);
    return cross < 0.0;
}

inline bool IsBelow(const CKivPoint3d& a, const CKivPoint3d& b)
{
    return a.y < b.y || (a.y == b.y && a.x < b.x);
}

// The sort order: y, then x, then z, so that points at the same plan position
// with equal heights end up next to each other and merge. A NaN z sorts after
// every number. Ties beyond that keep the input order (the sort is stable).
inline bool SortsBefore(const CKivPoint3d& a, const CKivPoint3d& b)
{
    if (a.y != b.y) {
        return a.y < b.y;
    }
    if (a.x != b.x) {
        return a.x < b.x;
    }
    return a.z < b.z || (!std::isnan(a.z) && std::isnan(b.z));
}

// Insertion sort, stable; for short runs that are nearly in order.
void InsertionSort(CKivPoint3d* first, CKivPoint3d* last)
{
    for (CKivPoint3d* i = first + 1; i < last; ++i) {
        const CKivPoint3d v = *i;
        CKivPoint3d* j = i;
        for (; j > first && SortsBefore(v, *(j - 1)); --j) {
            *j = *(j - 1);
        }
        *j = v;
    }
}

// Copies the points with a finite x and y into out, in sort order.
//
// Bucket sort on y: a bucket index that never decreases as y grows (about two
// points per bucket on evenly spread data) orders the points up to short runs,
// which are then sorted by the full order. The index is split in two digits:
// the first pass scatters into a few hundred buckets, so that every write
// stream stays in cache, and the second orders each of those buckets within
// cache. Heavily clustered data ends up in long runs and falls back to a
// stable comparison sort.
void SortPlanPoints(const std::vector<CKivPoint3d>& in, std::vector<CKivPoint3d>& out)
{
    std::size_t count = 0;
    double ymin = 0.0, ymax = 0.0;
    for (const CKivPoint3d& p : in) {
        if (std::isfinite(p.x) && std::isfinite(p.y)) {
            if (count == 0 || p.y < ymin) {
                ymin = p.y;
            }
            if (count == 0 || p.y > ymax) {
                ymax = p.y;
            }
            ++count;
        }
    }
    out.resize(count);
    if (count == 0) {
        return;
    }

    constexpr std::size_t kLowBits = 10;
    constexpr std::size_t kLow = std::size_t(1) << kLowBits;
    // Halved so that the span of any two finite values stays finite.
    const double lo = ymin * 0.5;
    std::size_t buckets = count / 2 + 1;
    double scale = static_cast<double>(buckets) / (ymax * 0.5 - lo);
    if (!(scale < HUGE_VAL)) { // one plan height, or a span too thin to divide
        buckets = 1;
        scale = 0.0;
    }
    const double top = static_cast<double>(buckets - 1);
    // Monotone in y: the difference, the product and the clamp never decrease.
    auto bucket = [&](double y) {
        const double t = (y * 0.5 - lo) * scale;
        return static_cast<std::size_t>(t < top ? t : top);
    };

    // First digit: scatter the input into out.
    const std::size_t high = ((buckets - 1) >> kLowBits) + 1;
    std::vector<std::size_t> start(high + 1, 0);
    for (const CKivPoint3d& p : in) {
        if (std::isfinite(p.x) && std::isfinite(p.y)) {
            ++start[(bucket(p.y) >> kLowBits) + 1];
        }
    }
    std::size_t largest = 0;
    for (std::size_t b = 0; b < high; ++b) {
        largest = std::max(largest, start[b + 1]);
        start[b + 1] += start[b];
    }
    {
        std::vector<std::size_t> fill(start.begin(), start.end() - 1);
        for (const CKivPoint3d& p : in) {
            if (std::isfinite(p.x) && std::isfinite(p.y)) {
                out[fill[bucket(p.y) >> kLowBits]++] = p;
            }
        }
    }

    // Second digit within each first-digit bucket, through a scratch buffer.
    std::vector<CKivPoint3d> scratch(largest);
    std::size_t sub[kLow + 1];
    for (std::size_t b = 0; b < high; ++b) {
        CKivPoint3d* first = out.data() + start[b];
        const std::size_t n = start[b + 1] - start[b];
        if (n <= 16) {
            InsertionSort(first, first + n);
            continue;
        }
        {
            std::fill(sub, sub + kLow + 1, 0);
            for (std::size_t i = 0; i < n; ++i) {
                ++sub[(bucket(first[i].y) & (kLow - 1)) + 1];
            }
            for (std::size_t d = 0; d < kLow; ++d) {
                sub[d + 1] += sub[d];
            }
            for (std::size_t i = 0; i < n; ++i) {
                scratch[sub[bucket(first[i].y) & (kLow - 1)]++] = first[i];
            }
            std::copy(scratch.begin(), scratch.begin() + static_cast<std::ptrdiff_t>(n), first);
        }
        // Runs of one bucket index are short unless the data are clustered.
        for (std::size_t i = 0; i < n;) {
            const std::size_t key = bucket(first[i].y);
            std::size_t j = i + 1;
            while (j < n && bucket(first[j].y) == key) {
                ++j;
            }
            if (j - i > 32) {
                std::stable_sort(first + i, first + j, SortsBefore);
            } else {
                InsertionSort(first + i, first + j);
            }
            i = j;
        }
    }
}

// Removes adjacent repeats in place, each point compared with the last one
// kept; returns the number kept.
std::size_t RemoveRepeats(std::vector<CKivPoint3d>& pts)
{
    if (pts.empty()) {
        return 0;
    }
    std::size_t kept = 0;
    for (std::size_t i = 1; i < pts.size(); ++i) {
        const CKivPoint3d& last = pts[kept];
        // Point equality needs the y values within 1e-6 first; most adjacent
        // pairs fail that and skip the full comparison.
        if (std::fabs(pts[i].y - last.y) < kEps && last == pts[i]) {
            continue;
        }
        pts[++kept] = pts[i];
    }
    return kept + 1;
}

} // namespace

CKivGeoConvex::~CKivGeoConvex() {}

int CKivGeoConvex::Multi(const CKivPoint3d& o, const CKivPoint3d& a, const CKivPoint3d& b)
{
    return IsClockwise(o, a, b) ? 1 : 0;
}

bool CKivGeoConvex::ComparePt(const CKivPoint3d& a, const CKivPoint3d& b)
{
    return IsBelow(a, b);
}

int CKivGeoConvex::Convex(const std::vector<CKivPoint3d>& vecPt, std::vector<CKivPoint3d>& vecHull)
{
    if (vecPt.size() < 2) {
        return 0;
    }
    std::vector<CKivPoint3d> pts;
    SortPlanPoints(vecPt, pts);
    const std::size_t m = RemoveRepeats(pts);
    if (m < 2) {
        return 0;
    }
    const CKivPoint3d* p = pts.data();

    // Upward chain: the right-hand side from the lowest to the highest point.
    // Only a strictly clockwise turn pops, so points on an edge stay.
    std::vector<std::size_t> stack;
    stack.reserve(m + 1);
    stack.push_back(0);
    stack.push_back(1);
    for (std::size_t i = 2; i < m; ++i) {
        while (stack.size() >= 2 && IsClockwise(p[stack[stack.size() - 2]], p[stack.back()], p[i])) {
            stack.pop_back();
        }
        stack.push_back(i);
    }

    // Downward chain over the points the upward one left out. The lowest
    // point is never marked, so the scan ends by pushing it again.
    std::vector<char> used(m, 0);
    for (std::size_t k = 1; k < stack.size(); ++k) {
        used[stack[k]] = 1;
    }
    std::size_t pushed = 0;
    for (std::size_t i = m; i-- > 0;) {
        if (used[i]) {
            continue;
        }
        while (stack.size() >= 2 && IsClockwise(p[stack[stack.size() - 2]], p[stack.back()], p[i])) {
            stack.pop_back();
        }
        stack.push_back(i);
        ++pushed;
    }

    // The ring without its repeated closing point.
    vecHull.clear();
    vecHull.reserve(stack.size() - 1);
    for (std::size_t k = 0; k + 1 < stack.size(); ++k) {
        vecHull.push_back(p[stack[k]]);
    }
    return pushed > 1 ? 1 : 0;
}
