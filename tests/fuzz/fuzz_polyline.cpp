// Fuzz target: polyline editing and queries, then segment linking checked
// against the plain-scan reference. Every query's result is checked against
// what it promises (sizes, indices, kept end vertices, finite values when the
// input was finite), not only for survival.
#include "fuzz_input.h"
#include "link_seg_reference.h"

#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

// Slack for comparisons of computed lengths and distances: rounding relative
// to the coordinates, plus the library's absolute 1e-6 (a distance within it
// counts as zero, which ends some searches early).
double Slack(double scale)
{
    return 1e-9 * scale + 1e-6;
}

double PlanDist(const CKivPoint3d& a, const CKivPoint3d& b)
{
    return std::hypot(a.x - b.x, a.y - b.y);
}

// Each vertex of sub appears in full, in order, as a vertex of all.
bool IsSubsequence(const std::vector<CKivPoint3d>& sub, const std::vector<CKivPoint3d>& all)
{
    std::size_t k = 0;
    for (const CKivPoint3d& p : sub) {
        while (k < all.size() && !SamePt(all[k], p)) {
            ++k;
        }
        if (k == all.size()) {
            return false;
        }
        ++k;
    }
    return true;
}

void CheckQueries(CKivFuzzInput& in, const CKivPolyLine& line)
{
    std::vector<CKivPoint3d> v;
    line.OutputData(v);
    const unsigned n = line.NumVerts();
    KIV_FUZZ_CHECK(v.size() == n);
    const bool tame = !in.Wild();
    double scale = in.Scale();
    for (const CKivPoint3d& p : v) {
        scale = std::fmax(scale, std::fmax(std::fabs(p.x), std::fmax(std::fabs(p.y), std::fabs(p.z))));
    }

    const double area = line.GetArea();
    if (!line.IsClosed()) {
        KIV_FUZZ_CHECK(area == 0.0);
    }
    const double total = line.GetLength();
    KIV_FUZZ_CHECK(!tame || (std::isfinite(area) && std::isfinite(total)));
    KIV_FUZZ_CHECK(!(total < 0));
    KIV_FUZZ_CHECK(line.GetLength(n) == -1.0);
    bool zeroSeg = false;
    for (unsigned i = 0; i + 1 < n || (line.IsClosed() && i < n); ++i) {
        zeroSeg = zeroSeg || v[i].Distance(v[(i + 1) % n]) == 0.0;
    }
    double prev = 0.0;
    for (unsigned i = 0; i < n; ++i) {
        const double li = line.GetLength(i);
        KIV_FUZZ_CHECK(i > 0 || li == 0.0);
        if (tame) {
            KIV_FUZZ_CHECK(li >= prev && li <= total + Slack(scale) * n);
        }
        prev = li;
    }

    for (int round = 0; round < 4 && !in.Empty(); ++round) {
        const CKivPoint3d pt = in.Point();

        const double along = line.GetLength(pt);
        KIV_FUZZ_CHECK(along == -1.0 || std::isnan(along) || along >= 0.0);

        int hit = 7;
        if (line.HitTest(pt, hit)) {
            KIV_FUZZ_CHECK(n >= 3 && (hit == -1 || hit == 0 || hit == 1));
        } else {
            KIV_FUZZ_CHECK(n < 3 && hit == 7);
        }

        double z = 12345.0;
        if (line.GetZbyXY(pt.x, pt.y, z)) {
            KIV_FUZZ_CHECK(in.Wild() || std::isfinite(z));
        } else {
            KIV_FUZZ_CHECK(z == 12345.0);
        }

        CKivPoint3d nearPt = pt;
        unsigned i = 99999, j = 99999;
        if (line.GetNearPt2D(pt, nearPt, i, j)) {
            KIV_FUZZ_CHECK(n >= 2 && i < n && j == (i + 1) % n);
            KIV_FUZZ_CHECK(SameValue(nearPt.z, pt.z));
            if (!in.Wild()) {
                // The nearest point on the line is no farther than any vertex.
                const double d = PlanDist(pt, nearPt);
                KIV_FUZZ_CHECK(std::isfinite(d));
                for (const CKivPoint3d& p : v) {
                    KIV_FUZZ_CHECK(d <= PlanDist(pt, p) + Slack(scale));
                }
            }
        } else {
            KIV_FUZZ_CHECK(i == 99999 && SamePt(nearPt, pt));
        }

        const CKivPoint3d b = in.Point();
        CKivPoint3d ray(1.0, 2.0, 3.0);
        if (line.IntersectWithLine2D(pt, b, ray)) {
            KIV_FUZZ_CHECK(n >= 2);
            KIV_FUZZ_CHECK(in.Wild() || IsFinitePt(ray));
        } else {
            KIV_FUZZ_CHECK(SamePt(ray, CKivPoint3d(1.0, 2.0, 3.0)));
        }

        const double dist = in.Param();
        CKivPoint3d at(4.0, 5.0, 6.0);
        if (line.GetPoint(dist, at)) {
            KIV_FUZZ_CHECK(n >= 2 && !(dist < 0));
            // A zero-length segment at the stopping place has no direction.
            KIV_FUZZ_CHECK(in.Wild() || IsFinitePt(at) || zeroSeg);
        } else {
            KIV_FUZZ_CHECK(SamePt(at, CKivPoint3d(4.0, 5.0, 6.0)));
        }

        const CKivPoint3d c = in.Point();
        std::vector<CKivPoint3d> between{CKivPoint3d(7.0, 7.0, 7.0)};
        if (line.GetPtsInPtA_PtB(pt, b, c, between)) {
            // At most one lap of the ring, in index terms; equal arc positions
            // on different segments (zero-length segments, infinite
            // coordinates) can make it a little more than n.
            KIV_FUZZ_CHECK(line.IsClosed() && n >= 3 && between.size() <= 2 * n);
            for (const CKivPoint3d& p : between) {
                bool found = false;
                for (const CKivPoint3d& q : v) {
                    found = found || SamePt(p, q);
                }
                KIV_FUZZ_CHECK(found);
            }
        }
    }

    // Thinning keeps both end vertices and only ever drops vertices.
    const double tol = in.Param();
    for (int mode = 0; mode < 2; ++mode) {
        CKivPolyLine thin;
        thin.SetClosed(mode == 1);
        if (line.Sample2D(tol, thin, mode == 1)) {
            KIV_FUZZ_CHECK(n >= 3 && !(tol < 0));
            KIV_FUZZ_CHECK(thin.IsClosed() == (mode == 1));
            std::vector<CKivPoint3d> t;
            thin.OutputData(t);
            KIV_FUZZ_CHECK(t.size() >= 2 && t.size() <= n);
            KIV_FUZZ_CHECK(SamePt(t.front(), v.front()) && SamePt(t.back(), v.back()));
            KIV_FUZZ_CHECK(IsSubsequence(t, v));
        } else {
            KIV_FUZZ_CHECK(thin.NumVerts() == 0);
        }
    }

    // Offsets: no finiteness is owed (a reversal has no mitre), but the
    // vertex count never grows beyond one per vertex (plus two taper points).
    const double dist = in.Param();
    const bool left = in.Flag();
    CKivPolyLine off;
    if (line.GetOffset2D(dist, off, left)) {
        KIV_FUZZ_CHECK(n >= 2 && off.NumVerts() <= n);
    }
    const double taper = in.Param();
    const bool ts = in.Flag(), te = in.Flag();
    CKivPolyLine offT;
    if (line.GetOffset2D(taper, dist, offT, left, ts, te)) {
        KIV_FUZZ_CHECK(n >= 2 && offT.NumVerts() <= n + 2);
    }
    std::vector<double> dists(n + (in.Byte() % 8 == 0 ? 1 : 0), dist);
    CKivPolyLine trimmed;
    trimmed.AddVertex(CKivPoint3d(9.0, 9.0, 9.0));
    line.GetTrimmedOffset(left, dists, trimmed);
    if (dists.size() != n) {
        KIV_FUZZ_CHECK(trimmed.NumVerts() == 1);
    } else if (n >= 2 && !(line.IsClosed() && n < 3)) {
        KIV_FUZZ_CHECK(trimmed.NumVerts() >= 1 && trimmed.NumVerts() <= n &&
                       trimmed.IsClosed() == line.IsClosed());
    }
}

void FuzzEditing(CKivFuzzInput& in, CKivPolyLine& line)
{
    const int steps = in.Byte() % 8;
    for (int s = 0; s < steps && !in.Empty(); ++s) {
        const unsigned n = line.NumVerts();
        const bool closed = line.IsClosed();
        const unsigned i = in.Below(n + 2);
        switch (in.Byte() % 6) {
        case 0:
            line.AddVertex(in.Point());
            KIV_FUZZ_CHECK(line.NumVerts() == n + 1);
            break;
        case 1: {
            const CKivPoint3d p = in.Point();
            line.InsertVertex(i, p);
            CKivPoint3d got;
            KIV_FUZZ_CHECK(line.NumVerts() == n + 1 && line.GetVertex(i < n ? i : n, got) && SamePt(got, p));
            break;
        }
        case 2:
            line.DelVertex(i);
            KIV_FUZZ_CHECK(line.NumVerts() == (i < n ? n - 1 : n));
            break;
        case 3: {
            const CKivPoint3d d = in.Point();
            const bool add = in.Flag();
            line.Offset(d, add);
            KIV_FUZZ_CHECK(line.NumVerts() == n);
            break;
        }
        case 4:
            line.SetClosed(!closed);
            continue;
        default: {
            CKivPolyLine copy(line);
            line = copy;
            KIV_FUZZ_CHECK(line.NumVerts() == n);
            break;
        }
        }
        KIV_FUZZ_CHECK(line.IsClosed() == closed);
    }
}

void FuzzLinkSeg(CKivFuzzInput& in)
{
    const std::vector<CKivPoint3d> pts = in.Points(48);
    std::vector<CKivSeg3d> segs;
    for (std::size_t k = 0; k + 1 < pts.size(); ++k) {
        // Pairs from the point list, now and then reversed or reaching back,
        // so that chains, rings, branches and duplicates all occur.
        const std::uint8_t b = in.Byte();
        const std::size_t j = (b & 3) == 0 && k > 0 ? in.Below(static_cast<unsigned>(k)) : k + 1;
        segs.emplace_back(b & 4 ? pts[j] : pts[k], b & 4 ? pts[k] : pts[j]);
    }
    std::vector<CKivPolyLine> lines(in.Byte() % 3);
    for (CKivPolyLine& l : lines) {
        l.AddVertex(CKivPoint3d(1.0, 1.0, 1.0));
    }
    const std::size_t before = lines.size();
    const std::vector<CKivSeg3d> input = segs;

    const bool ok = CKivSeg3d::LinkSeg(segs, lines);
    if (input.size() < 2) {
        KIV_FUZZ_CHECK(!ok && segs.size() == input.size() && lines.size() == before);
        return;
    }
    KIV_FUZZ_CHECK(ok && segs.empty() && lines.size() > before);
    for (std::size_t i = 0; i < before; ++i) {
        KIV_FUZZ_CHECK(lines[i].NumVerts() == 1);
    }
    // Every input segment is used once: segment counts add up, and every
    // vertex is an input end point.
    std::size_t used = 0;
    std::vector<CKivPoint3d> v;
    for (std::size_t i = before; i < lines.size(); ++i) {
        lines[i].OutputData(v);
        // A degenerate segment (both ends equal) closes on itself.
        KIV_FUZZ_CHECK(v.size() >= 2 || (v.size() == 1 && lines[i].IsClosed()));
        used += lines[i].IsClosed() ? v.size() : v.size() - 1;
        for (const CKivPoint3d& p : v) {
            bool found = false;
            for (const CKivSeg3d& s : input) {
                found = found || SamePt(p, s.m_pt[0]) || SamePt(p, s.m_pt[1]);
            }
            KIV_FUZZ_CHECK(found);
        }
    }
    KIV_FUZZ_CHECK(used == input.size());

    // The indexed linker must give exactly what the plain scan gives.
    KIV_FUZZ_CHECK(LinkDiff(std::vector<CKivPolyLine>(lines.begin() + static_cast<long>(before), lines.end()),
                            PlainLink(input))
                       .empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CKivFuzzInput in(data, size);
    if (in.Flag()) {
        FuzzLinkSeg(in);
        return 0;
    }
    CKivPolyLine line;
    line.SetVertex(in.Points(40));
    line.SetClosed(in.Flag());
    FuzzEditing(in, line);
    CheckQueries(in, line);
    return 0;
}
