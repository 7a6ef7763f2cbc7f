// The linking rule of CKivSeg3d::LinkSeg written as a plain scan: after every
// attachment the scan restarts from the first remaining segment (or piece).
// Quadratic, and the reference the indexed version must reproduce exactly.
// Shared by the unit tests and the segment-linking fuzzer.
#ifndef KIVGEO_TESTS_LINK_SEG_REFERENCE_H
#define KIVGEO_TESTS_LINK_SEG_REFERENCE_H

#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

inline std::vector<CKivPolyLine> PlainLink(std::vector<CKivSeg3d> segs)
{
    std::vector<CKivPolyLine> lines;
    std::vector<std::vector<CKivPoint3d>> pieces;
    while (!segs.empty()) {
        CKivPoint3d head = segs[0].m_pt[0], tail = segs[0].m_pt[1];
        std::vector<CKivPoint3d> chain{head, tail};
        segs.erase(segs.begin());
        for (bool found = true; found;) {
            found = false;
            for (size_t k = 0; k < segs.size() && !found; ++k) {
                const CKivPoint3d s1 = segs[k].m_pt[0], s2 = segs[k].m_pt[1];
                if (head == s1) {
                    head = s2, chain.insert(chain.begin(), s2);
                } else if (head == s2) {
                    head = s1, chain.insert(chain.begin(), s1);
                } else if (tail == s1) {
                    tail = s2, chain.push_back(s2);
                } else if (tail == s2) {
                    tail = s1, chain.push_back(s1);
                } else {
                    continue;
                }
                segs.erase(segs.begin() + static_cast<long>(k));
                found = true;
            }
        }
        if (head == tail) {
            CKivPolyLine line;
            line.SetVertex(chain);
            line.SetClosed(true);
            line.DelVertex(line.NumVerts() - 1);
            lines.push_back(line);
        } else {
            pieces.push_back(chain);
        }
    }
    while (!pieces.empty()) {
        std::vector<CKivPoint3d> c = pieces[0];
        pieces.erase(pieces.begin());
        CKivPoint3d start = c.front(), end = c.back();
        for (bool found = true; found;) {
            found = false;
            for (size_t k = 0; k < pieces.size() && !found; ++k) {
                std::vector<CKivPoint3d> p = pieces[k];
                const CKivPoint3d s = p.front(), e = p.back();
                if (start.Distance(s) < 0.0001) {
                    std::reverse(p.begin(), p.end());
                    p.pop_back();
                    p.insert(p.end(), c.begin(), c.end());
                    c = p, start = e;
                } else if (start.Distance(e) < 0.0001) {
                    p.pop_back();
                    p.insert(p.end(), c.begin(), c.end());
                    c = p, start = s;
                } else if (end.Distance(s) < 0.0001) {
                    c.insert(c.end(), p.begin() + 1, p.end());
                    end = e;
                } else if (end.Distance(e) < 0.0001) {
                    std::reverse(p.begin(), p.end());
                    c.insert(c.end(), p.begin() + 1, p.end());
                    end = s;
                } else {
                    continue;
                }
                pieces.erase(pieces.begin() + static_cast<long>(k));
                found = true;
            }
        }
        CKivPolyLine line;
        line.SetVertex(c);
        if (start == end) {
            line.SetClosed(true);
            line.DelVertex(line.NumVerts() - 1);
        }
        lines.push_back(line);
    }
    return lines;
}

// "" when got and want are exactly the same polylines (count, order, closed
// flags, vertex values, NaN where NaN), else the first difference.
inline std::string LinkDiff(const std::vector<CKivPolyLine>& got, const std::vector<CKivPolyLine>& want)
{
    const auto same = [](double u, double v) { return u == v || (std::isnan(u) && std::isnan(v)); };
    if (got.size() != want.size()) {
        return std::to_string(got.size()) + " lines, expected " + std::to_string(want.size());
    }
    std::vector<CKivPoint3d> g, w;
    for (size_t i = 0; i < got.size(); ++i) {
        got[i].OutputData(g);
        want[i].OutputData(w);
        if (got[i].IsClosed() != want[i].IsClosed() || g.size() != w.size()) {
            return "line " + std::to_string(i) + ": " + std::to_string(g.size()) + " vertices, closed " +
                   std::to_string(got[i].IsClosed()) + "; expected " + std::to_string(w.size()) + ", closed " +
                   std::to_string(want[i].IsClosed());
        }
        for (size_t k = 0; k < g.size(); ++k) {
            if (!same(g[k].x, w[k].x) || !same(g[k].y, w[k].y) || !same(g[k].z, w[k].z)) {
                return "line " + std::to_string(i) + " vertex " + std::to_string(k) + " differs";
            }
        }
    }
    return "";
}

#endif
