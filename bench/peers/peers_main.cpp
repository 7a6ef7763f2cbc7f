// Side-by-side runs of kivgeo and CGAL on the same inputs.
//
//   kivgeo_peers [--runs N] [--hinted-runs N] [--cases 1,2,...] [--scale S]
//                [--timeout SECONDS]
//
// For every case the input is generated once (seeded), then our library and
// CGAL run alternately, each run in a fresh child process (see peer_run.h).
// Progress goes to stderr; stdout receives the results as Markdown tables:
// medians, the ratio ours / CGAL with its target, and the peak memory of each
// side above its input. --scale shrinks the inputs for a quick try.
#include "peer_input.h"
#include "peer_run.h"
#include "peers_cgal.h"

#include <kivgeo/delaunay.h>
#include <kivgeo/geo_convex.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/mesh_query.h>

#include <malloc.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr double kNoTarget = std::numeric_limits<double>::quiet_NaN();

struct SOptions {
    int nRuns = 5;
    int nHintedRuns = 1;
    std::set<int> setCase{1, 2, 3, 4, 5, 6};
    double dScale = 1.0;
    unsigned nTimeout = 1800;
};

// One line of the result table: ours against one CGAL mode.
struct SRow {
    std::string strCase;
    std::string strInput;
    double dItems;  // items per run, for a rate in millions per second (0: none)
    double dTarget; // ratio ours / CGAL to stay at or below
    const std::vector<SPeerSample>* pOurs;
    std::vector<SPeerSample> vecCgal;
    std::string strOursCheck;
    std::string strCgalCheck;
};

std::size_t Scaled(const SOptions& opt, double n)
{
    return static_cast<std::size_t>(std::llround(std::max(16.0, n * opt.dScale)));
}

std::string Format(const char* fmt, double v)
{
    if (std::isnan(v)) {
        return "n/a";
    }
    char buf[512];
    std::snprintf(buf, sizeof(buf), fmt, v);
    return buf;
}

std::string CountText(double v)
{
    return Format("%.0f", v);
}

// The first successful sample's checks, as text; the failure otherwise.
std::string CheckText(const std::vector<SPeerSample>& s, const char* what, const char* what2 = nullptr)
{
    for (const SPeerSample& x : s) {
        if (x.bOk) {
            std::string t = std::string(what) + " " + CountText(x.dCheck);
            if (what2) {
                t += std::string(", ") + what2 + " " + Format("%.10g", x.dCheck2);
            }
            return t;
        }
    }
    return s.empty() ? "not run" : "failed: " + s.front().strFail;
}

void Progress(const char* who, const char* what, const SPeerSample& s)
{
    if (s.bOk) {
        std::fprintf(stderr, "  %-5s %-40s %9.3f s (wall %.3f s) %8.1f MiB\n", who, what, s.dSeconds,
                     s.dWallSeconds, s.dPeakMiB);
    } else {
        std::fprintf(stderr, "  %-5s %-40s FAILED (%s)\n", who, what, s.strFail.c_str());
    }
}

// Runs ours and each CGAL mode in turn, nRuns rounds.
void Alternate(const SOptions& opt, int nRuns, const char* what, const PeerFn& ours,
               std::vector<SPeerSample>* pOurs, const PeerFn& cgal, std::vector<SPeerSample>& vecCgal)
{
    for (int r = 0; r < nRuns; ++r) {
        if (pOurs) {
            pOurs->push_back(RunInChild(ours, opt.nTimeout));
            Progress("ours", what, pOurs->back());
        }
        vecCgal.push_back(RunInChild(cgal, opt.nTimeout));
        Progress("CGAL", what, vecCgal.back());
    }
}

// ---------------------------------------------------------------- our side

void OursTin(const std::vector<CKivPoint3d>& pts, CKivPeerClock& clock, double& check)
{
    clock.Start();
    TriMesh::CKivMeshData mesh;
    TriMesh::CKivDelaunay tin(mesh);
    for (const CKivPoint3d& p : pts) {
        tin.AddVertex(p);
    }
    const bool ok = tin.Delaunay();
    clock.Stop();
    check = ok ? static_cast<double>(mesh.TriNum()) : -1.0;
}

void OursConstrainedTin(const SPeerConstrained& in, CKivPeerClock& clock, double& check)
{
    clock.Start();
    TriMesh::CKivMeshData mesh;
    TriMesh::CKivDelaunay tin(mesh);
    for (const CKivPoint3d& p : in.vecPoint) {
        tin.AddVertex(p);
    }
    for (const auto& l : in.vecLine) {
        tin.AddSegYS(l, false);
    }
    for (const auto& h : in.vecHole) {
        tin.AddHoleLine(h);
    }
    tin.SetOutline(in.vecOutline);
    const bool ok = tin.Delaunay();
    clock.Stop();
    check = ok ? static_cast<double>(mesh.TriNum()) : -1.0;
}

void OursSoupToMesh(const std::vector<CKivTri3d>& soup, CKivPeerClock& clock, double& check, double& check2)
{
    clock.Start();
    TriMesh::CKivMeshData mesh;
    mesh.InputData(soup, true);
    clock.Stop();
    std::vector<CKivPoint3d> pts;
    mesh.OutputPoints(pts);
    check = static_cast<double>(pts.size());
    check2 = static_cast<double>(mesh.TriNum());
}

void OursConvexHull(const std::vector<CKivPoint3d>& pts, CKivPeerClock& clock, double& check)
{
    std::vector<CKivPoint3d> hull;
    clock.Start();
    CKivGeoConvex::Convex(pts, hull);
    clock.Stop();
    check = static_cast<double>(hull.size());
}

void OursQueries(const TriMesh::CKivMeshData& mesh, const std::vector<CKivPoint3d>& q, CKivPeerClock& clock,
                 double& check, double& check2)
{
    std::size_t found = 0;
    double sum = 0.0;
    clock.Start();
    const TriMesh::CKivMeshQuery query(mesh);
    for (const CKivPoint3d& p : q) {
        double z;
        if (query.GetMapPoint(p.x, p.y, z)) {
            ++found;
            sum += z;
        }
    }
    clock.Stop();
    check = static_cast<double>(found);
    check2 = sum;
}

// ------------------------------------------------------------------- cases

// Cases 1 and 2: a TIN from points in file order; CGAL by range insertion
// and one by one with the previous face as hint.
void TinCase(const SOptions& opt, const char* name, const std::string& input, const std::vector<CKivPoint3d>& pts,
             double dTargetRange, double dTargetHinted,
             std::vector<std::unique_ptr<std::vector<SPeerSample>>>& keep, std::vector<SRow>& rows)
{
    std::fprintf(stderr, "case %s: %zu points\n", name, pts.size());
    keep.emplace_back(new std::vector<SPeerSample>);
    std::vector<SPeerSample>& ours = *keep.back();

    SRow range{std::string(name) + "a TIN, CGAL range insertion", input, 0.0, dTargetRange, &ours, {}, "", ""};
    Alternate(
        opt, opt.nRuns, "TIN", [&](CKivPeerClock& c, double& k, double&) { OursTin(pts, c, k); }, &ours,
        [&](CKivPeerClock& c, double& k, double&) { CgalTin(pts, true, c, k); }, range.vecCgal);
    range.strOursCheck = CheckText(ours, "triangles");
    range.strCgalCheck = CheckText(range.vecCgal, "triangles");

    SRow hinted{std::string(name) + "b TIN, CGAL one by one, previous face as hint",
                input,
                0.0,
                dTargetHinted,
                &ours,
                {},
                range.strOursCheck,
                ""};
    if (opt.nHintedRuns > 0) {
        Alternate(
            opt, opt.nHintedRuns, "TIN one by one", nullptr, nullptr,
            [&](CKivPeerClock& c, double& k, double&) { CgalTin(pts, false, c, k); }, hinted.vecCgal);
    }
    hinted.strCgalCheck = CheckText(hinted.vecCgal, "triangles");
    rows.push_back(std::move(range));
    rows.push_back(std::move(hinted));
}

void ConstrainedCase(const SOptions& opt, std::vector<std::unique_ptr<std::vector<SPeerSample>>>& keep,
                     std::vector<SRow>& rows)
{
    const SPeerConstrained in = PeerConstrainedInput(Scaled(opt, 1e5), 3);
    const std::string input = std::to_string(in.vecPoint.size()) + " points, " +
                              std::to_string(in.SegmentCount()) + " constraint segments (outline, " +
                              std::to_string(in.vecHole.size()) + " holes, " + std::to_string(in.vecLine.size()) +
                              " lines)";
    std::fprintf(stderr, "case 3: %s\n", input.c_str());
    keep.emplace_back(new std::vector<SPeerSample>);
    SRow row{"3 constrained TIN with outline and holes", input, 0.0, 1.5, keep.back().get(), {}, "", ""};
    Alternate(
        opt, opt.nRuns, "constrained TIN",
        [&](CKivPeerClock& c, double& k, double&) { OursConstrainedTin(in, c, k); }, keep.back().get(),
        [&](CKivPeerClock& c, double& k, double& k2) { CgalConstrainedTin(in, c, k, k2); }, row.vecCgal);
    row.strOursCheck = CheckText(*row.pOurs, "triangles");
    row.strCgalCheck = CheckText(row.vecCgal, "triangles in the domain", "finite faces in all");
    rows.push_back(std::move(row));
}

void QueryCase(const SOptions& opt, std::vector<std::unique_ptr<std::vector<SPeerSample>>>& keep,
               std::vector<SRow>& rows, std::vector<std::string>& notes)
{
    const std::vector<CKivPoint3d> pts = PeerUniformPoints(Scaled(opt, 1e6), 1);
    const std::size_t side = static_cast<std::size_t>(std::llround(std::sqrt(static_cast<double>(pts.size()))));
    const std::vector<CKivPoint3d> random = PeerRandomQueries(pts.size(), 11);
    const std::vector<CKivPoint3d> rowOrder = PeerRowQueries(side);
    std::fprintf(stderr, "case 4: building both TINs of %zu points\n", pts.size());

    // Both TINs are built once here and shared, read-only, with the runs.
    TriMesh::CKivMeshData mesh;
    {
        TriMesh::CKivDelaunay tin(mesh);
        for (const CKivPoint3d& p : pts) {
            tin.AddVertex(p);
        }
        tin.Delaunay();
    }
    const CKivCgalQuery cgal(pts);
    // CGAL's search structure (the hierarchy) is built with its TIN; ours (a
    // plan grid) the mesh builds on demand once queries have done enough work
    // through the octree, and keeps. Both are timed in their steady state: a
    // first pass here, in the driver, leaves the grid in the mesh that every
    // run inherits. The first pass is reported on its own.
    {
        CKivPeerClock clock;
        double found = 0.0, sum = 0.0;
        OursQueries(mesh, random, clock, found, sum);
        clock.Stop();
        notes.push_back(
            Format("Case 4: our first pass over the random queries, which also builds the plan grid that "
                   "the timed runs find in place, took %.3f s of processor time.",
                   clock.Seconds()));
    }
    const std::string input = std::to_string(pts.size()) + "-point TIN, ";

    keep.emplace_back(new std::vector<SPeerSample>);
    SRow rnd{"4a elevation queries, random order (CGAL hierarchy)",
             input + std::to_string(random.size()) + " queries",
             static_cast<double>(random.size()),
             1.0,
             keep.back().get(),
             {},
             "",
             ""};
    Alternate(
        opt, opt.nRuns, "queries, random order",
        [&](CKivPeerClock& c, double& k, double& k2) { OursQueries(mesh, random, c, k, k2); }, keep.back().get(),
        [&](CKivPeerClock& c, double& k, double& k2) { cgal.Random(random, c, k, k2); }, rnd.vecCgal);
    rnd.strOursCheck = CheckText(*rnd.pOurs, "answered", "sum of z");
    rnd.strCgalCheck = CheckText(rnd.vecCgal, "answered", "sum of z");

    keep.emplace_back(new std::vector<SPeerSample>);
    SRow row{"4b elevation queries, row order (CGAL hint)",
             input + std::to_string(rowOrder.size()) + " queries",
             static_cast<double>(rowOrder.size()),
             1.5,
             keep.back().get(),
             {},
             "",
             ""};
    Alternate(
        opt, opt.nRuns, "queries, row order",
        [&](CKivPeerClock& c, double& k, double& k2) { OursQueries(mesh, rowOrder, c, k, k2); }, keep.back().get(),
        [&](CKivPeerClock& c, double& k, double& k2) { cgal.Rows(rowOrder, c, k, k2); }, row.vecCgal);
    row.strOursCheck = CheckText(*row.pOurs, "answered", "sum of z");
    row.strCgalCheck = CheckText(row.vecCgal, "answered", "sum of z");
    rows.push_back(std::move(rnd));
    rows.push_back(std::move(row));
}

void SoupCase(const SOptions& opt, std::vector<std::unique_ptr<std::vector<SPeerSample>>>& keep,
              std::vector<SRow>& rows)
{
    // 500 x 1000 cells, two triangles each: 10^6 triangles at full scale.
    const double k = std::sqrt(opt.dScale);
    const std::vector<CKivTri3d> soup = PeerTriangleSoup(std::max<std::size_t>(4, std::llround(500 * k)),
                                                         std::max<std::size_t>(4, std::llround(1000 * k)), 5);
    std::fprintf(stderr, "case 5: %zu triangles\n", soup.size());
    keep.emplace_back(new std::vector<SPeerSample>);
    SRow row{"5 triangle soup to mesh (CGAL repair, orient, Surface_mesh)",
             std::to_string(soup.size()) + " triangles",
             0.0,
             1.0,
             keep.back().get(),
             {},
             "",
             ""};
    Alternate(
        opt, opt.nRuns, "soup to mesh",
        [&](CKivPeerClock& c, double& v, double& f) { OursSoupToMesh(soup, c, v, f); }, keep.back().get(),
        [&](CKivPeerClock& c, double& v, double& f) { CgalSoupToMesh(soup, c, v, f); }, row.vecCgal);
    row.strOursCheck = CheckText(*row.pOurs, "vertices", "triangles");
    row.strCgalCheck = CheckText(row.vecCgal, "vertices", "faces");
    rows.push_back(std::move(row));
}

void HullCase(const SOptions& opt, std::vector<std::unique_ptr<std::vector<SPeerSample>>>& keep,
              std::vector<SRow>& rows)
{
    const std::vector<CKivPoint3d> pts = PeerUniformPoints(Scaled(opt, 1e6), 7);
    std::fprintf(stderr, "case 6: %zu points\n", pts.size());
    keep.emplace_back(new std::vector<SPeerSample>);
    SRow row{
        "6 plan convex hull", std::to_string(pts.size()) + " points", 0.0, 1.0, keep.back().get(), {}, "", ""};
    Alternate(
        opt, opt.nRuns, "convex hull", [&](CKivPeerClock& c, double& h, double&) { OursConvexHull(pts, c, h); },
        keep.back().get(), [&](CKivPeerClock& c, double& h, double&) { CgalConvexHull(pts, c, h); }, row.vecCgal);
    row.strOursCheck = CheckText(*row.pOurs, "hull points");
    row.strCgalCheck = CheckText(row.vecCgal, "hull points");
    rows.push_back(std::move(row));
}

std::size_t SuccessCount(const std::vector<SPeerSample>& s)
{
    std::size_t n = 0;
    for (const SPeerSample& x : s) {
        n += x.bOk ? 1 : 0;
    }
    return n;
}

void PrintTables(const std::vector<SRow>& rows)
{
    std::printf("| case | input | ours (s CPU) | CGAL (s CPU) | ours / CGAL | target | met | ours peak (MiB) | "
                "CGAL peak (MiB) | runs ours / CGAL |\n");
    std::printf("|---|---|--:|--:|--:|--:|:-:|--:|--:|--:|\n");
    for (const SRow& r : rows) {
        const double ours = MedianSeconds(*r.pOurs), cgal = MedianSeconds(r.vecCgal);
        const double ratio = ours / cgal;
        std::string target, met;
        if (!std::isnan(r.dTarget)) {
            target = "<= " + Format("%g", r.dTarget);
            met = std::isnan(ratio) ? "?" : (ratio <= r.dTarget ? "yes" : "**no**");
        }
        std::string oursText = Format("%.3f", ours), cgalText = Format("%.3f", cgal);
        if (r.dItems > 0.0 && !std::isnan(ours)) {
            oursText += Format(" (%.3g M/s)", r.dItems / ours / 1e6);
        }
        if (r.dItems > 0.0 && !std::isnan(cgal)) {
            cgalText += Format(" (%.3g M/s)", r.dItems / cgal / 1e6);
        }
        std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %zu / %zu |\n", r.strCase.c_str(),
                    r.strInput.c_str(), oursText.c_str(), cgalText.c_str(), Format("%.3f", ratio).c_str(),
                    target.c_str(), met.c_str(), Format("%.0f", MaxPeakMiB(*r.pOurs)).c_str(),
                    Format("%.0f", MaxPeakMiB(r.vecCgal)).c_str(), SuccessCount(*r.pOurs),
                    SuccessCount(r.vecCgal));
    }
    std::printf("\nWall-clock medians, and what each side built (first successful run):\n\n");
    std::printf("| case | ours wall (s) | CGAL wall (s) | ours built | CGAL built |\n|---|--:|--:|---|---|\n");
    for (const SRow& r : rows) {
        std::printf("| %s | %s | %s | %s | %s |\n", r.strCase.c_str(),
                    Format("%.3f", MedianSeconds(*r.pOurs, true)).c_str(),
                    Format("%.3f", MedianSeconds(r.vecCgal, true)).c_str(), r.strOursCheck.c_str(),
                    r.strCgalCheck.c_str());
    }
}

bool ParseOptions(int argc, char** argv, SOptions& opt)
{
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const char* v = (i + 1 < argc) ? argv[i + 1] : nullptr;
        if (a == "--runs" && v) {
            opt.nRuns = std::max(1, std::atoi(v));
        } else if (a == "--hinted-runs" && v) {
            opt.nHintedRuns = std::max(0, std::atoi(v));
        } else if (a == "--scale" && v) {
            opt.dScale = std::atof(v);
            if (!(opt.dScale > 0.0 && opt.dScale <= 1.0)) {
                return false;
            }
        } else if (a == "--timeout" && v) {
            opt.nTimeout = static_cast<unsigned>(std::max(1, std::atoi(v)));
        } else if (a == "--cases" && v) {
            opt.setCase.clear();
            for (const char* p = v; *p; ++p) {
                if (*p >= '1' && *p <= '6') {
                    opt.setCase.insert(*p - '0');
                } else if (*p != ',') {
                    return false;
                }
            }
        } else {
            return false;
        }
        ++i;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    SOptions opt;
    if (!ParseOptions(argc, argv, opt)) {
        std::fprintf(stderr,
                     "usage: %s [--runs N] [--hinted-runs N] [--cases 1,2,...] [--scale S (0..1]] "
                     "[--timeout SECONDS]\n",
                     argv[0]);
        return 2;
    }
    // A fixed threshold for serving large blocks by mmap: glibc otherwise
    // raises it as the driver frees big inputs, and the runs forked later
    // would then place their large blocks differently and show other peaks.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    std::vector<std::unique_ptr<std::vector<SPeerSample>>> keep;
    std::vector<SRow> rows;
    std::vector<std::string> notes;
    if (opt.setCase.count(1)) {
        const std::vector<CKivPoint3d> pts = PeerUniformPoints(Scaled(opt, 1e6), 1);
        TinCase(opt, "1", std::to_string(pts.size()) + " random points", pts, 1.5, 0.1, keep, rows);
    }
    if (opt.setCase.count(2)) {
        const std::size_t side = static_cast<std::size_t>(std::llround(std::sqrt(Scaled(opt, 1e6))));
        const std::vector<CKivPoint3d> pts = PeerGridPoints(side);
        TinCase(opt, "2", std::to_string(side) + " x " + std::to_string(side) + " grid", pts, 2.0, kNoTarget, keep,
                rows);
    }
    if (opt.setCase.count(3)) {
        ConstrainedCase(opt, keep, rows);
    }
    if (opt.setCase.count(4)) {
        QueryCase(opt, keep, rows, notes);
    }
    if (opt.setCase.count(5)) {
        SoupCase(opt, keep, rows);
    }
    if (opt.setCase.count(6)) {
        HullCase(opt, keep, rows);
    }
    PrintTables(rows);
    for (const std::string& n : notes) {
        std::printf("\n%s\n", n.c_str());
    }
    return 0;
}
