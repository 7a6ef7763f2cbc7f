// Deterministic inputs for the side-by-side runs, in map coordinates of the
// kind our users have (UTM-like: x about 500 000, y about 3 000 000) over a
// 10 km square, so that both libraries meet the same large offsets.
#ifndef KIVGEO_PEER_INPUT_H
#define KIVGEO_PEER_INPUT_H

#include <kivgeo/point3d.h>
#include <kivgeo/tri3d.h>

#include <cstddef>
#include <vector>

constexpr double kPeerX0 = 500000.0;
constexpr double kPeerY0 = 3000000.0;
constexpr double kPeerSpread = 10000.0;

// The terrain the generated points lie on.
double PeerTerrainZ(double x, double y);

// n points uniform over the square, in generation (file) order.
std::vector<CKivPoint3d> PeerUniformPoints(std::size_t n, unsigned seed);

// side x side points on a regular grid over the square (10 m spacing for
// side 1000), row by row: every four neighbours are cocircular.
std::vector<CKivPoint3d> PeerGridPoints(std::size_t side);

// Scattered points with constraint lines, holes and an outline that do not
// cross one another: a wavy outline ring, round holes and wavy fault traces
// between them.
struct SPeerConstrained {
    std::vector<CKivPoint3d> vecPoint;
    std::vector<std::vector<CKivPoint3d>> vecLine; // open polylines
    std::vector<std::vector<CKivPoint3d>> vecHole; // closed rings, not repeated
    std::vector<CKivPoint3d> vecOutline;           // closed ring, not repeated
    std::size_t SegmentCount() const;
};
SPeerConstrained PeerConstrainedInput(std::size_t nPoints, unsigned seed);

// A triangle soup of 2 * nx * ny triangles over a jittered nx x ny cell grid;
// triangles sharing a corner repeat its coordinates exactly.
std::vector<CKivTri3d> PeerTriangleSoup(std::size_t nx, std::size_t ny, unsigned seed);

// Query positions (z 0): n uniform ones in random order, or side x side on a
// grid inside the square, row by row.
std::vector<CKivPoint3d> PeerRandomQueries(std::size_t n, unsigned seed);
std::vector<CKivPoint3d> PeerRowQueries(std::size_t side);

#endif
