#include "peer_input.h"

#include <cmath>
#include <random>

namespace {

constexpr double kPi = 3.14159265358979323846;

CKivPoint3d OnTerrain(double x, double y)
{
    return CKivPoint3d(x, y, PeerTerrainZ(x, y));
}

// A ring of n points around (cx, cy), counter-clockwise, radius r(angle).
template <class Radius> std::vector<CKivPoint3d> Ring(double cx, double cy, std::size_t n, Radius r)
{
    std::vector<CKivPoint3d> ring;
    ring.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double a = 2.0 * kPi * static_cast<double>(i) / static_cast<double>(n);
        ring.push_back(OnTerrain(cx + r(a) * std::cos(a), cy + r(a) * std::sin(a)));
    }
    return ring;
}

// side x side points row by row over the square, offset by a fraction of
// the spacing; on the terrain, or at z 0.
std::vector<CKivPoint3d> Grid(std::size_t side, double offset, bool bTerrain)
{
    const double h = kPeerSpread / static_cast<double>(side);
    std::vector<CKivPoint3d> pts;
    pts.reserve(side * side);
    for (std::size_t r = 0; r < side; ++r) {
        for (std::size_t c = 0; c < side; ++c) {
            const double x = kPeerX0 + h * (static_cast<double>(c) + offset);
            const double y = kPeerY0 + h * (static_cast<double>(r) + offset);
            pts.push_back(bTerrain ? OnTerrain(x, y) : CKivPoint3d(x, y, 0.0));
        }
    }
    return pts;
}

} // namespace

double PeerTerrainZ(double x, double y)
{
    const double u = x - kPeerX0, v = y - kPeerY0;
    return 800.0 + 60.0 * std::sin(u / 900.0) * std::cos(v / 1300.0) + 0.004 * u;
}

std::vector<CKivPoint3d> PeerUniformPoints(std::size_t n, unsigned seed)
{
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> ux(kPeerX0, kPeerX0 + kPeerSpread);
    std::uniform_real_distribution<double> uy(kPeerY0, kPeerY0 + kPeerSpread);
    std::vector<CKivPoint3d> pts;
    pts.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double x = ux(rng);
        pts.push_back(OnTerrain(x, uy(rng)));
    }
    return pts;
}

std::vector<CKivPoint3d> PeerGridPoints(std::size_t side)
{
    return Grid(side, 0.0, true);
}

std::size_t SPeerConstrained::SegmentCount() const
{
    std::size_t n = vecOutline.size();
    for (const auto& h : vecHole) {
        n += h.size();
    }
    for (const auto& l : vecLine) {
        n += l.size() - 1;
    }
    return n;
}

SPeerConstrained PeerConstrainedInput(std::size_t nPoints, unsigned seed)
{
    SPeerConstrained in;
    in.vecPoint = PeerUniformPoints(nPoints, seed);
    const double cx = kPeerX0 + 0.5 * kPeerSpread, cy = kPeerY0 + 0.5 * kPeerSpread;

    // Outline radius between 4250 and 4950 m: inside the square, so that the
    // points outside it are removed.
    in.vecOutline = Ring(cx, cy, 600,
                         [](double a) { return 4600.0 + 250.0 * std::sin(5.0 * a) + 100.0 * std::cos(13.0 * a); });

    // Six round holes of 300 m radius on two rows, 1500 m off the centre line.
    for (double dy : {-1500.0, 1500.0}) {
        for (double dx : {-2500.0, 0.0, 2500.0}) {
            in.vecHole.push_back(Ring(cx + dx, cy + dy, 80, [](double) { return 300.0; }));
        }
    }

    // Six fault traces running east-west with a 50 m wobble, kept 200 m inside
    // the outline's smallest radius and 700 m clear of the holes' rows.
    for (double dy : {-3500.0, -2500.0, -500.0, 500.0, 2500.0, 3500.0}) {
        const double half = std::sqrt(4250.0 * 4250.0 - (std::fabs(dy) + 50.0) * (std::fabs(dy) + 50.0)) - 200.0;
        const std::size_t nSeg = 160;
        std::vector<CKivPoint3d> line;
        for (std::size_t i = 0; i <= nSeg; ++i) {
            const double x = cx - half + 2.0 * half * static_cast<double>(i) / static_cast<double>(nSeg);
            line.push_back(OnTerrain(x, cy + dy + 50.0 * std::sin((x - cx) / 400.0)));
        }
        in.vecLine.push_back(std::move(line));
    }
    return in;
}

std::vector<CKivTri3d> PeerTriangleSoup(std::size_t nx, std::size_t ny, unsigned seed)
{
    // Jittered grid corners, then two triangles per cell, counter-clockwise.
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    const double hx = kPeerSpread / static_cast<double>(nx), hy = kPeerSpread / static_cast<double>(ny);
    std::vector<CKivPoint3d> corner;
    corner.reserve((nx + 1) * (ny + 1));
    for (std::size_t r = 0; r <= ny; ++r) {
        for (std::size_t c = 0; c <= nx; ++c) {
            const double x = kPeerX0 + hx * (static_cast<double>(c) + jitter(rng));
            const double y = kPeerY0 + hy * (static_cast<double>(r) + jitter(rng));
            corner.push_back(OnTerrain(x, y));
        }
    }
    std::vector<CKivTri3d> soup;
    soup.reserve(2 * nx * ny);
    for (std::size_t r = 0; r < ny; ++r) {
        for (std::size_t c = 0; c < nx; ++c) {
            const CKivPoint3d& a = corner[r * (nx + 1) + c];
            const CKivPoint3d& b = corner[r * (nx + 1) + c + 1];
            const CKivPoint3d& d = corner[(r + 1) * (nx + 1) + c];
            const CKivPoint3d& e = corner[(r + 1) * (nx + 1) + c + 1];
            soup.emplace_back(a, b, e);
            soup.emplace_back(a, e, d);
        }
    }
    return soup;
}

std::vector<CKivPoint3d> PeerRandomQueries(std::size_t n, unsigned seed)
{
    std::vector<CKivPoint3d> q = PeerUniformPoints(n, seed);
    for (CKivPoint3d& p : q) {
        p.z = 0.0;
    }
    return q;
}

std::vector<CKivPoint3d> PeerRowQueries(std::size_t side)
{
    // Cell centres, so that no query lands exactly on a data point's row.
    return Grid(side, 0.5, false);
}
