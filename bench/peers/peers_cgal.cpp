#include "peers_cgal.h"

#include <CGAL/Constrained_Delaunay_triangulation_2.h>
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/repair_polygon_soup.h>
#include <CGAL/Projection_traits_xy_3.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/Triangulation_face_base_with_info_2.h>
#include <CGAL/Triangulation_hierarchy_2.h>
#include <CGAL/convex_hull_2.h>

#include <array>
#include <deque>
#include <iterator>
#include <utility>

namespace {

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Point3 = Kernel::Point_3;
using PlanTraits = CGAL::Projection_traits_xy_3<Kernel>;

using Dt = CGAL::Delaunay_triangulation_2<PlanTraits>;

using HierVb = CGAL::Triangulation_hierarchy_vertex_base_2<CGAL::Triangulation_vertex_base_2<PlanTraits>>;
using HierTds = CGAL::Triangulation_data_structure_2<HierVb, CGAL::Triangulation_face_base_2<PlanTraits>>;
using Dh = CGAL::Triangulation_hierarchy_2<CGAL::Delaunay_triangulation_2<PlanTraits, HierTds>>;

// Constrained faces carry their nesting level for the domain mark.
using CdtFbInfo = CGAL::Triangulation_face_base_with_info_2<int, PlanTraits>;
using CdtFb = CGAL::Constrained_triangulation_face_base_2<PlanTraits, CdtFbInfo>;
using CdtTds = CGAL::Triangulation_data_structure_2<CGAL::Triangulation_vertex_base_2<PlanTraits>, CdtFb>;
using Cdt = CGAL::Constrained_Delaunay_triangulation_2<PlanTraits, CdtTds>;

std::vector<Point3> ToCgal(const std::vector<CKivPoint3d>& pts)
{
    std::vector<Point3> out;
    out.reserve(pts.size());
    for (const CKivPoint3d& p : pts) {
        out.emplace_back(p.x, p.y, p.z);
    }
    return out;
}

// Nesting level of every face: 0 for the faces reachable from the infinite
// face without crossing a constraint, one more behind each further ring of
// constraints. Open constraint lines do not count, since a level is flooded
// completely (around the lines' ends) before the next one starts. Odd levels
// lie inside the outline and outside the holes.
void MarkNesting(Cdt& cdt)
{
    for (Cdt::Face_handle f : cdt.all_face_handles()) {
        f->info() = -1;
    }
    std::deque<Cdt::Edge> border;
    std::deque<Cdt::Face_handle> queue;
    auto flood = [&](Cdt::Face_handle start, int level) {
        queue.push_back(start);
        while (!queue.empty()) {
            const Cdt::Face_handle f = queue.front();
            queue.pop_front();
            if (f->info() != -1) {
                continue;
            }
            f->info() = level;
            for (int i = 0; i < 3; ++i) {
                const Cdt::Face_handle n = f->neighbor(i);
                if (n->info() != -1) {
                    continue;
                }
                if (cdt.is_constrained(Cdt::Edge(f, i))) {
                    border.emplace_back(f, i);
                } else {
                    queue.push_back(n);
                }
            }
        }
    };
    flood(cdt.infinite_face(), 0);
    while (!border.empty()) {
        const Cdt::Edge e = border.front();
        border.pop_front();
        const Cdt::Face_handle n = e.first->neighbor(e.second);
        if (n->info() == -1) {
            flood(n, e.first->info() + 1);
        }
    }
}

// Height at (x, y) on the plane of a finite face.
template <class Face> bool PlanarZ(const Face& f, double x, double y, double& z)
{
    const Point3& a = f->vertex(0)->point();
    const Point3& b = f->vertex(1)->point();
    const Point3& c = f->vertex(2)->point();
    const double bx = b.x() - a.x(), by = b.y() - a.y(), cx = c.x() - a.x(), cy = c.y() - a.y();
    const double det = bx * cy - cx * by;
    if (det == 0.0) {
        return false;
    }
    const double px = x - a.x(), py = y - a.y();
    const double wb = (px * cy - cx * py) / det, wc = (bx * py - px * by) / det;
    z = a.z() + wb * (b.z() - a.z()) + wc * (c.z() - a.z());
    return true;
}

// Elevation of every query by planar interpolation in the face that locate
// finds; check counts the answered ones, check2 sums their z.
template <class Tri, class Locate>
void Answer(const Tri& tri, const std::vector<CKivPoint3d>& q, CKivPeerClock& clock, double& check, double& check2,
            Locate locate)
{
    std::size_t found = 0;
    double sum = 0.0;
    clock.Start();
    for (const CKivPoint3d& p : q) {
        const typename Tri::Face_handle f = locate(Point3(p.x, p.y, 0.0));
        double z;
        if (f != typename Tri::Face_handle() && !tri.is_infinite(f) && PlanarZ(f, p.x, p.y, z)) {
            ++found;
            sum += z;
        }
    }
    clock.Stop();
    check = static_cast<double>(found);
    check2 = sum;
}

} // namespace

void CgalTin(const std::vector<CKivPoint3d>& pts, bool bRange, CKivPeerClock& clock, double& check)
{
    const std::vector<Point3> in = ToCgal(pts);
    clock.Start();
    Dt dt;
    if (bRange) {
        dt.insert(in.begin(), in.end());
    } else {
        Dt::Face_handle hint;
        for (const Point3& p : in) {
            hint = dt.insert(p, hint)->face();
        }
    }
    clock.Stop();
    check = static_cast<double>(dt.number_of_faces());
}

void CgalConstrainedTin(const SPeerConstrained& in, CKivPeerClock& clock, double& check, double& check2)
{
    const std::vector<Point3> pts = ToCgal(in.vecPoint);
    // Every constraint segment as a pair of indices into one point list.
    std::vector<Point3> cpts;
    std::vector<std::pair<std::size_t, std::size_t>> segs;
    auto addRing = [&](const std::vector<CKivPoint3d>& line, bool closed) {
        const std::size_t first = cpts.size();
        for (const CKivPoint3d& p : line) {
            cpts.emplace_back(p.x, p.y, p.z);
        }
        for (std::size_t i = first + 1; i < cpts.size(); ++i) {
            segs.emplace_back(i - 1, i);
        }
        if (closed) {
            segs.emplace_back(cpts.size() - 1, first);
        }
    };
    for (const auto& l : in.vecLine) {
        addRing(l, false);
    }
    for (const auto& h : in.vecHole) {
        addRing(h, true);
    }
    addRing(in.vecOutline, true);

    clock.Start();
    Cdt cdt;
    cdt.insert(pts.begin(), pts.end());
    cdt.insert_constraints(cpts.begin(), cpts.end(), segs.begin(), segs.end());
    MarkNesting(cdt);
    clock.Stop();
    std::size_t inDomain = 0;
    for (Cdt::Face_handle f : cdt.finite_face_handles()) {
        inDomain += (f->info() % 2 == 1) ? 1 : 0;
    }
    check = static_cast<double>(inDomain);
    check2 = static_cast<double>(cdt.number_of_faces());
}

void CgalSoupToMesh(const std::vector<CKivTri3d>& soup, CKivPeerClock& clock, double& check, double& check2)
{
    namespace PMP = CGAL::Polygon_mesh_processing;
    // CGAL's soup form: every corner its own point, triangles by index.
    std::vector<Point3> points;
    std::vector<std::array<std::size_t, 3>> tris;
    points.reserve(3 * soup.size());
    tris.reserve(soup.size());
    for (const CKivTri3d& t : soup) {
        const std::size_t i = points.size();
        for (const CKivPoint3d& p : t.m_pt) {
            points.emplace_back(p.x, p.y, p.z);
        }
        tris.push_back({i, i + 1, i + 2});
    }
    clock.Start();
    PMP::repair_polygon_soup(points, tris);
    PMP::orient_polygon_soup(points, tris);
    CGAL::Surface_mesh<Point3> mesh;
    PMP::polygon_soup_to_polygon_mesh(points, tris, mesh);
    clock.Stop();
    check = static_cast<double>(mesh.number_of_vertices());
    check2 = static_cast<double>(mesh.number_of_faces());
}

void CgalConvexHull(const std::vector<CKivPoint3d>& pts, CKivPeerClock& clock, double& check)
{
    const std::vector<Point3> in = ToCgal(pts);
    std::vector<Point3> hull;
    clock.Start();
    CGAL::convex_hull_2(in.begin(), in.end(), std::back_inserter(hull), PlanTraits());
    clock.Stop();
    check = static_cast<double>(hull.size());
}

struct CKivCgalQuery::SImpl {
    Dh hierarchy;
    Dt plain;
};

CKivCgalQuery::CKivCgalQuery(const std::vector<CKivPoint3d>& pts) : m_pImpl(new SImpl)
{
    const std::vector<Point3> in = ToCgal(pts);
    m_pImpl->hierarchy.insert(in.begin(), in.end());
    m_pImpl->plain.insert(in.begin(), in.end());
}

CKivCgalQuery::~CKivCgalQuery() = default;

void CKivCgalQuery::Random(const std::vector<CKivPoint3d>& q, CKivPeerClock& clock, double& check,
                           double& check2) const
{
    const Dh& dh = m_pImpl->hierarchy;
    Answer(dh, q, clock, check, check2, [&dh](const Point3& p) { return dh.locate(p); });
}

void CKivCgalQuery::Rows(const std::vector<CKivPoint3d>& q, CKivPeerClock& clock, double& check,
                         double& check2) const
{
    const Dt& dt = m_pImpl->plain;
    Dt::Face_handle hint;
    Answer(dt, q, clock, check, check2, [&dt, &hint](const Point3& p) {
        Dt::Locate_type lt;
        int li;
        const Dt::Face_handle f = dt.locate(p, lt, li, hint);
        if (!dt.is_infinite(f)) {
            hint = f;
        }
        return f;
    });
}
