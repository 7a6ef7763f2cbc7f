#include <kivgeo/planar.h>
#include <kivgeo/polyline.h>
#include <kivgeo/spacemath.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {
bool IsOnSegment3D(const CKivPoint3d& p, const CKivPoint3d& a, const CKivPoint3d& b)
{
    return CKivSpaceMath::JH_TestPointIn_LineSection3D(p.x, p.y, p.z, a.x, a.y, a.z, b.x, b.y, b.z) != 0;
}
} // namespace

CKivPolyLine::CKivPolyLine(const CKivPolyLine& o)
{
    CopyObj(o);
}

CKivPolyLine::CKivPolyLine(CKivPolyLine&& o) noexcept : m_vVertex(std::move(o.m_vVertex)), m_bClosed(o.m_bClosed)
{
    o.m_vVertex.clear();
    o.m_bClosed = false;
}

CKivPolyLine& CKivPolyLine::operator=(const CKivPolyLine& o)
{
    if (this != &o) {
        CopyObj(o);
    }
    return *this;
}

CKivPolyLine& CKivPolyLine::operator=(CKivPolyLine&& o) noexcept
{
    if (this != &o) {
        m_vVertex = std::move(o.m_vVertex);
        m_bClosed = o.m_bClosed;
        o.m_vVertex.clear();
        o.m_bClosed = false;
    }
    return *this;
}

CKivPolyLine::~CKivPolyLine() = default;

void CKivPolyLine::CopyObj(const CKivPolyLine& o)
{
    m_vVertex = o.m_vVertex;
    m_bClosed = o.m_bClosed;
}

void CKivPolyLine::Clear()
{
    m_vVertex.clear();
    m_bClosed = false;
}

void CKivPolyLine::AddVertex(const CKivPoint3d& pt)
{
    m_vVertex.push_back(pt);
}

void CKivPolyLine::InsertVertex(unsigned i, const CKivPoint3d& pt)
{
    if (i < m_vVertex.size()) {
        m_vVertex.insert(m_vVertex.begin() + i, pt);
    } else {
        m_vVertex.push_back(pt);
    }
}

void CKivPolyLine::DelVertex(unsigned i)
{
    if (i < m_vVertex.size()) {
        m_vVertex.erase(m_vVertex.begin() + i);
    }
}

void CKivPolyLine::SetVertex(const std::vector<CKivPoint3d>& pts)
{
    if (&pts != &m_vVertex) {
        m_vVertex = pts;
    }
}

void CKivPolyLine::OutputData(std::vector<CKivPoint3d>& pts) const
{
    if (&pts != &m_vVertex) {
        pts = m_vVertex;
    }
}

bool CKivPolyLine::GetVertex(unsigned i, CKivPoint3d& pt) const
{
    if (i >= m_vVertex.size()) {
        return false;
    }
    pt = m_vVertex[i];
    return true;
}

void CKivPolyLine::Offset(const CKivPoint3d& v, bool bAdd)
{
    const CKivPoint3d d = bAdd ? v : -v;
    for (CKivPoint3d& p : m_vVertex) {
        p.x += d.x, p.y += d.y, p.z += d.z;
    }
}

double CKivPolyLine::GetArea() const
{
    const size_t n = m_vVertex.size();
    if (!m_bClosed || n == 0) {
        return 0.0;
    }
    // Shoelace sum about the origin; the sign tells the winding.
    double s = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const CKivPoint3d& p = m_vVertex[i];
        const CKivPoint3d& q = m_vVertex[(i + 1) % n];
        s += p.x * q.y - q.x * p.y;
    }
    return 0.5 * s;
}

double CKivPolyLine::GetLength() const
{
    const size_t n = m_vVertex.size();
    if (n < 2) {
        return 0.0;
    }
    double len = 0.0;
    for (size_t i = 0; i + 1 < n; ++i) {
        len += m_vVertex[i].Distance(m_vVertex[i + 1]);
    }
    if (m_bClosed) {
        len += m_vVertex[n - 1].Distance(m_vVertex[0]);
    }
    return len;
}

double CKivPolyLine::GetLength(unsigned i) const
{
    if (i >= m_vVertex.size()) {
        return -1.0;
    }
    double len = 0.0;
    for (unsigned k = 0; k < i; ++k) {
        len += m_vVertex[k].Distance(m_vVertex[k + 1]);
    }
    return len;
}

double CKivPolyLine::GetLength(const CKivPoint3d& pt) const
{
    const size_t n = m_vVertex.size();
    if (n < 2) {
        return -1.0;
    }
    const size_t nSeg = m_bClosed ? n : n - 1;
    double len = 0.0;
    for (size_t i = 0; i < nSeg; ++i) {
        const CKivPoint3d& a = m_vVertex[i];
        const CKivPoint3d& b = m_vVertex[(i + 1) % n];
        if (IsOnSegment3D(pt, a, b)) {
            return len + a.Distance(pt);
        }
        len += a.Distance(b);
    }
    return -1.0;
}

bool CKivPolyLine::HitTest(const CKivPoint3d& pt, int& result) const
{
    if (m_vVertex.size() < 3) {
        return false;
    }
    result = IsPtInPolygon(m_vVertex, pt);
    return true;
}

bool CKivPolyLine::GetZbyXY(double x, double y, double& z) const
{
    const size_t n = m_vVertex.size();
    if (n == 0 || (n == 1 && !m_bClosed)) {
        return false;
    }
    const size_t nSeg = m_bClosed ? n : n - 1;
    for (size_t i = 0; i < nSeg; ++i) {
        const CKivPoint3d& a = m_vVertex[i];
        const CKivPoint3d& b = m_vVertex[(i + 1) % n];
        if (!IsPtInSeg2D(x, y, a.x, a.y, b.x, b.y)) {
            continue;
        }
        if (CompDouble(x, a.x) == 0 && CompDouble(y, a.y) == 0) {
            z = a.z;
        } else if (CompDouble(x, b.x) == 0 && CompDouble(y, b.y) == 0) {
            z = b.z;
        } else {
            // Interpolate along the segment's longer plan extent.
            const double dx = std::fabs(a.x - b.x), dy = std::fabs(a.y - b.y);
            if (dy < dx) {
                const double t = std::fabs(a.x - x) / dx;
                z = (1.0 - t) * a.z + t * b.z;
            } else if (dy > 0.0) {
                const double t = std::fabs(a.y - y) / dy;
                z = (1.0 - t) * a.z + t * b.z;
            } else {
                z = a.z;
            }
        }
        return true;
    }
    return false;
}

bool CKivPolyLine::GetPoint(double dist, CKivPoint3d& pt) const
{
    const size_t n = m_vVertex.size();
    if (n < 2 || dist < 0.0) {
        return false;
    }
    const size_t nSeg = m_bClosed ? n : n - 1;
    double sum = 0.0;
    for (size_t i = 0; i < nSeg; ++i) {
        const CKivPoint3d& a = m_vVertex[i];
        const CKivPoint3d& b = m_vVertex[(i + 1) % n];
        const double len = a.Distance(b);
        sum += len;
        if (CompDouble(sum, dist) >= 0) {
            // Step back from the segment's end by the overshoot. The guarded
            // division keeps a zero-length segment finite (the overshoot is
            // then zero as well).
            const double over = sum - dist;
            pt = b - (b - a) * over / len;
            return true;
        }
    }
    return false;
}

bool CKivPolyLine::GetNearPt2D(const CKivPoint3d& pt, CKivPoint3d& nearPt, unsigned& i, unsigned& j) const
{
    const size_t n = m_vVertex.size();
    if (n < 2) {
        return false;
    }
    const size_t nSeg = m_bClosed ? n : n - 1;
    const double px = pt.x, py = pt.y;
    double best = std::numeric_limits<double>::max();
    double bestX = 0.0, bestY = 0.0;
    size_t bestSeg = nSeg;
    for (size_t k = 0; k < nSeg; ++k) {
        const CKivPoint3d& a = m_vVertex[k];
        const CKivPoint3d& b = m_vVertex[(k + 1) % n];
        double nx = 0.0, ny = 0.0;
        const double d = GetNearestPtToSeg2D(a.x, a.y, b.x, b.y, px, py, nx, ny);
        if (d < best) {
            best = d;
            bestX = nx, bestY = ny;
            bestSeg = k;
            if (CompDouble(d, 0.0) == 0) {
                break; // an exact hit: the first one wins
            }
        }
    }
    if (bestSeg == nSeg) {
        return false;
    }
    nearPt.x = bestX;
    nearPt.y = bestY;
    i = static_cast<unsigned>(bestSeg);
    j = static_cast<unsigned>((bestSeg + 1) % n);
    return true;
}

bool CKivPolyLine::IntersectWithLine2D(const CKivPoint3d& a, const CKivPoint3d& b, CKivPoint3d& hit) const
{
    const size_t n = m_vVertex.size();
    if (n < 2) {
        return false;
    }
    const size_t nSeg = m_bClosed ? n : n - 1;
    const double wx = b.x - a.x, wy = b.y - a.y;
    bool found = false;
    double bestD2 = 0.0;
    CKivPoint3d best;
    for (size_t k = 0; k < nSeg; ++k) {
        CKivPoint3d q;
        if (CKivSpaceMath::Test_Insertsect_Seg_And_Line_2D(m_vVertex[k], m_vVertex[(k + 1) % n], a, b, q) != 1) {
            continue;
        }
        // Only crossings strictly ahead of a count; the nearest wins, the
        // earliest segment on a tie.
        const double qx = q.x - a.x, qy = q.y - a.y;
        if (!(wx * qx + wy * qy > 0.0)) {
            continue;
        }
        const double d2 = qx * qx + qy * qy;
        if (!found || d2 < bestD2) {
            found = true;
            bestD2 = d2;
            best = q;
        }
    }
    if (found) {
        hit = best;
    }
    return found;
}

bool CKivPolyLine::GetPtsInPtA_PtB(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c,
                                   std::vector<CKivPoint3d>& pts) const
{
    const int n = static_cast<int>(m_vVertex.size());
    if (n < 3 || a == b || a == c || b == c || !m_bClosed) {
        return false;
    }
    pts.clear();
    // Arc position of a, b and c along the ring, and the segments of a and b.
    const CKivPoint3d* q[3] = {&a, &b, &c};
    double arc[3] = {0.0, 0.0, 0.0};
    int seg[3] = {-1, -1, -1};
    int nPlaced = 0, stop = 0;
    for (int i = 0; i < n && nPlaced < 3; ++i) {
        const CKivPoint3d& s = m_vVertex[static_cast<size_t>(i)];
        const CKivPoint3d& e = m_vVertex[static_cast<size_t>((i + 1) % n)];
        for (int k = 0; k < 3; ++k) {
            if (seg[k] >= 0) {
                continue;
            }
            if (IsOnSegment3D(*q[k], s, e)) {
                arc[k] += s.Distance(*q[k]);
                seg[k] = i;
                ++nPlaced;
            } else {
                arc[k] += s.Distance(e);
            }
        }
        stop = i;
    }
    if (nPlaced < 3) {
        return false;
    }
    const double sA = arc[0], sB = arc[1], sC = arc[2];
    const int iA = seg[0], iB = seg[1];
    const bool cBetween = (sB < sC && sC < sA) || (sA < sC && sC < sB);
    int count = 0, start = 0;
    bool prepend = false;
    if (cBetween) {
        if (sB <= sA) {
            count = iA - iB, start = iB + 1, prepend = true;
        } else {
            count = iB - iA, start = iA + 1;
        }
    } else if (sB <= sA) {
        count = iB - iA + n, start = iA + 1;
    } else {
        count = iA - iB + n, start = iB + 1, prepend = true;
    }
    // Both modes leave the vertices running from a's side toward b's side.
    // The first one visited is skipped when it repeats the start (append) or
    // end (prepend) vertex of the segment where the search stopped.
    const CKivPoint3d& skip = m_vVertex[static_cast<size_t>(prepend ? (stop + 1) % n : stop)];
    std::vector<CKivPoint3d> run;
    run.reserve(static_cast<size_t>(std::max(count, 0)));
    for (int k = 0; k < count; ++k) {
        const CKivPoint3d& v = m_vVertex[static_cast<size_t>((start + k) % n)];
        if (k == 0 && v == skip) {
            continue;
        }
        run.push_back(v);
    }
    if (prepend) {
        pts.assign(run.rbegin(), run.rend());
    } else {
        pts.swap(run);
    }
    return true;
}

bool CKivPolyLine::Sample2D(double tol, CKivPolyLine& out, bool bByDist) const
{
    const size_t n = m_vVertex.size();
    if (tol < 0.0 || n < 3) {
        return false;
    }
    // Each rule only ever looks at the last kept vertex and the vertices not
    // yet visited, so a stack of kept vertices gives the removals in one pass.
    const std::vector<CKivPoint3d>& p = m_vVertex;
    std::vector<CKivPoint3d> kept;
    kept.reserve(n);
    kept.push_back(p[0]);
    if (!bByDist) {
        for (size_t j = 1; j + 1 < n; ++j) {
            const CKivPoint3d& prev = kept.back();
            const double ux = p[j].x - prev.x, uy = p[j].y - prev.y;
            const double vx = p[j + 1].x - p[j].x, vy = p[j + 1].y - p[j].y;
            double angle = GetTwoSegAngle(ux, uy, 0.0, 0.0, vx, vy);
            if (angle > 3.141592653589793) {
                angle = 6.283185307179586 - angle;
            }
            // The vertex goes when the line turns at it by more than tol.
            if (!(angle > tol)) {
                kept.push_back(p[j]);
            }
        }
    } else {
        const double tol2 = tol * tol;
        auto close = [tol2](const CKivPoint3d& a, const CKivPoint3d& b) {
            const double dx = b.x - a.x, dy = b.y - a.y;
            return dx * dx + dy * dy < tol2;
        };
        for (size_t j = 1; j + 1 < n; ++j) {
            if (!close(kept.back(), p[j])) {
                kept.push_back(p[j]);
            }
        }
        // The last vertex always survives: the kept vertices too close to it
        // give way instead, the first vertex excepted.
        while (kept.size() >= 2 && close(kept.back(), p[n - 1])) {
            kept.pop_back();
        }
    }
    kept.push_back(p[n - 1]);
    out.SetVertex(kept);
    return true;
}

void CKivPolyLine::CalPtByMove(bool bLeft, bool bStart, double dist, CKivPoint3d& pt) const
{
    const size_t n = m_vVertex.size();
    const CKivPoint3d& end = bStart ? m_vVertex[0] : m_vVertex[n - 1];
    CGeoVector d =
        bStart ? CGeoVector(m_vVertex[1] - m_vVertex[0]) : CGeoVector(m_vVertex[n - 1] - m_vVertex[n - 2]);
    d.z = 0.0;
    d.Normalize();
    const CKivPoint3d normal = bLeft ? CKivPoint3d(-d.y, d.x, 0.0) : CKivPoint3d(d.y, -d.x, 0.0);
    pt = end + normal * dist;
}

void CKivPolyLine::CalPtByAnlge(bool bLeft, unsigned a, unsigned b, unsigned c, double dist, CKivPoint3d& pt) const
{
    const CKivPoint3d& pa = m_vVertex[a];
    const CKivPoint3d& pb = m_vVertex[b];
    const CKivPoint3d& pc = m_vVertex[c];
    // Counter-clockwise from the leg toward c to the leg toward a.
    const double theta = GetTwoSegAngle(pa.x, pa.y, pb.x, pb.y, pc.x, pc.y);
    const CKivPoint3d base = bLeft ? pc - pb : pa - pb;
    const double opening = bLeft ? theta : 6.28318530718 - theta;
    const double h = opening * 0.5;
    const double ch = std::cos(h), sh = std::sin(h);
    CGeoVector bisector(base.x * ch - base.y * sh, base.x * sh + base.y * ch, 0.0);
    bisector.Normalize();
    // No mitre limit: sharp corners give long spikes, which the fold removal
    // of GetTrimmedOffset() trims.
    const double hs = h <= 1.570796326795 ? h : 3.141592653589793 - h;
    pt = pb + bisector * (dist / std::sin(hs));
}

void CKivPolyLine::GetTrimmedOffset(bool bLeft, const std::vector<double>& dists, CKivPolyLine& out) const
{
    const unsigned n = NumVerts();
    if (n < 2 || (m_bClosed && n < 3) || dists.size() != n) {
        return;
    }
    const std::vector<CKivPoint3d>& p = m_vVertex;
    std::vector<CKivPoint3d> o(n);
    for (unsigned i = 1; i + 1 < n; ++i) {
        CalPtByAnlge(bLeft, i - 1, i, i + 1, dists[i], o[i]);
    }
    if (m_bClosed) {
        CalPtByAnlge(bLeft, n - 1, 0, 1, dists[0], o[0]);
        CalPtByAnlge(bLeft, n - 2, n - 1, 0, dists[n - 1], o[n - 1]);
    } else {
        CalPtByMove(bLeft, true, dists[0], o[0]);
        CalPtByMove(bLeft, false, dists[n - 1], o[n - 1]);
    }
    // Where the connectors of two neighbouring vertices cross, the offset edge
    // between them has turned over: collapse it to one point.
    for (unsigned i = 1; i < n; ++i) {
        double x = 0.0, y = 0.0;
        if (JH_GetInterPoint_LineSection(p[i - 1].x, p[i - 1].y, o[i - 1].x, o[i - 1].y, p[i].x, p[i].y, o[i].x,
                                         o[i].y, &x, &y, 1e-6) == 1) {
            if (i >= 2) {
                o[i] = o[i - 1];
            } else {
                o[0] = o[1];
            }
        }
    }
    std::vector<CKivPoint3d> kept;
    kept.reserve(n);
    for (const CKivPoint3d& v : o) {
        if (kept.empty() || kept.back() != v) {
            kept.push_back(v);
        }
    }
    out.m_vVertex.swap(kept);
    out.m_bClosed = m_bClosed;
}

bool CKivPolyLine::GetOffset2D(double dist, CKivPolyLine& out, bool bLeft) const
{
    if (m_vVertex.size() < 2) {
        return false;
    }
    GetTrimmedOffset(bLeft, std::vector<double>(m_vVertex.size(), dist), out);
    return true;
}

bool CKivPolyLine::GetOffset2D(double taperLen, double dist, CKivPolyLine& out, bool bLeft, bool bTaperStart,
                               bool bTaperEnd) const
{
    if (!bTaperStart && !bTaperEnd) {
        return GetOffset2D(dist, out, bLeft);
    }
    CKivPolyLine w(*this);
    unsigned n = w.NumVerts();
    if (n < 2) {
        return false;
    }
    const double len = w.GetLength();
    if (2.0 * taperLen > len) {
        taperLen = len * 0.5;
    }
    unsigned k1 = w.PtNumInLen(taperLen, true);
    unsigned k2 = w.PtNumInLen(taperLen, false);
    if (k1 + k2 > n) {
        k1 = k2 = n / 2;
    }
    // Taper points where the run-in ends and the run-out begins. A taper of
    // no length (k1 or k2 zero) has no such point and leaves the distance
    // constant.
    CKivPoint3d s, e;
    bool haveS = false;
    if (bTaperStart && k1 > 0 && w.GetPoint(taperLen, s)) {
        haveS = true;
        if (k1 < n && s == w.m_vVertex[k1]) {
            ++k1; // the run-in ends on a vertex: no duplicate vertex
        } else if (s != w.m_vVertex[k1 - 1]) {
            w.InsertVertex(k1, s);
            ++k1, ++n;
        }
    }
    if (bTaperEnd && k2 > 0 && w.GetPoint(len - taperLen, e)) {
        const unsigned m = n - k2;
        if (m > 0 && e == w.m_vVertex[m - 1]) {
            ++k2; // the run-out starts on a vertex
        } else if (e != w.m_vVertex[m] && !(haveS && e == s)) {
            w.InsertVertex(m, e);
            ++k2, ++n;
        }
    }
    // Distances rise linearly with arc length from 0 at the start and fall to
    // 0 at the end.
    // arc[i] is GetLength(i), summed once in the same order.
    std::vector<double> arc(n, 0.0);
    for (unsigned i = 1; i < n; ++i) {
        arc[i] = arc[i - 1] + w.m_vVertex[i - 1].Distance(w.m_vVertex[i]);
    }
    std::vector<double> dists(n, dist);
    if (bTaperStart && k1 > 0) {
        const double span = arc[k1 - 1];
        for (unsigned i = 0; i < k1; ++i) {
            dists[i] = span > 0.0 ? dist * arc[i] / span : dist;
        }
    }
    if (bTaperEnd && k2 > 0) {
        const unsigned m = n - k2;
        const double total = w.GetLength();
        const double span = total - arc[m];
        for (unsigned i = m; i < n; ++i) {
            dists[i] = span > 0.0 ? dist * (total - arc[i]) / span : dist;
        }
    }
    w.GetTrimmedOffset(bLeft, dists, out);
    return true;
}

unsigned CKivPolyLine::PtNumInLen(double len, bool bFromStart) const
{
    const unsigned n = NumVerts();
    if (len <= 0.0 || n == 0) {
        return 0;
    }
    if (GetLength() <= len) {
        return n;
    }
    const std::vector<CKivPoint3d>& p = m_vVertex;
    unsigned count = 1;
    double sum = 0.0;
    if (bFromStart) {
        for (unsigned i = 0; i + 1 < n; ++i) {
            sum += p[i].Distance(p[i + 1]);
            if (sum >= len) {
                return count;
            }
            ++count;
        }
        return count;
    }
    if (m_bClosed) {
        // Backwards from vertex 0 the walk first crosses the closing segment.
        sum += p[0].Distance(p[n - 1]);
        if (sum >= len) {
            return 1;
        }
        count = 2;
    }
    for (unsigned i = n - 1; i >= 1; --i) {
        sum += p[i].Distance(p[i - 1]);
        if (sum >= len) {
            return count;
        }
        ++count;
    }
    return count;
}
