#include <kivgeo/polyline.h>

#include <cmath>
#include <utility>

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

unsigned CKivPolyLine::PtNumInLen(double len, bool bFromStart) const
{
    const unsigned n = NumVerts();
    if (!(len > 0.0) || n == 0) {
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
