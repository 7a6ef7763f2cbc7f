// Exact orientation of three points in the plane, for the places where a
// wrong sign would break a triangulation (the triangulator's cavity repair,
// the test suite's validity checks). Inline and unexported, like the other
// internal predicates.
//
// Why exact: the library's own tests use an absolute 1e-6 on raw cross
// products. On small coordinates (degrees, points 1e-3 apart) that band
// swallows whole triangles, and on large ones rounding exceeds it; either way
// a "counter-clockwise" triangle may really be clockwise. This test is never
// wrong for finite input.
//
// How: the determinant is first evaluated in doubles together with a bound on
// its rounding error (the classic (3 + 16 eps) eps bound for this 2x2 form).
// When |det| exceeds the bound its sign is certain; that is nearly every call.
// Otherwise the six products of the expanded determinant are formed exactly
// (each as a two-term sum, Dekker's split) and added into a non-overlapping
// floating-point expansion (Priest, Shewchuk); the sign of the expansion's
// largest term is the exact sign. Before that, all six inputs are scaled by
// one power of two so that the largest is in [1, 2): scaling by 2^k changes
// no sign and keeps huge inputs from overflowing in the products. Only inputs
// more than ~2^450 smaller than the largest can lose bits there (underflow).
#ifndef KIVGEO_SPACEMATH_EXACT_ORIENT_H
#define KIVGEO_SPACEMATH_EXACT_ORIENT_H

#include <algorithm>
#include <cmath>

namespace KivExact {

// a + b = x + y exactly, |y| <= ulp(x) / 2.
inline void TwoSum(double a, double b, double& x, double& y)
{
    const double s = a + b;
    const double bv = s - a;
    const double av = s - bv;
    y = (a - av) + (b - bv);
    x = s;
}

// a * b = x + y exactly (no overflow or underflow assumed).
inline void TwoProduct(double a, double b, double& x, double& y)
{
    const auto split = [](double v, double& hi, double& lo) {
        const double c = 134217729.0 * v; // 2^27 + 1
        const double big = c - v;
        hi = c - big;
        lo = v - hi;
    };
    double ahi, alo, bhi, blo;
    const double p = a * b;
    split(a, ahi, alo);
    split(b, bhi, blo);
    const double e1 = p - ahi * bhi;
    const double e2 = e1 - alo * bhi;
    const double e3 = e2 - ahi * blo;
    y = alo * blo - e3;
    x = p;
}

// h = e + b for a non-overlapping expansion e of n terms in increasing
// magnitude; zero terms are dropped. h needs room for n + 1 terms. Returns
// the length of h (at least 1).
inline int GrowExpansion(int n, const double* e, double b, double* h)
{
    double q = b;
    int k = 0;
    for (int i = 0; i < n; ++i) {
        double s, t;
        TwoSum(q, e[i], s, t);
        if (t != 0.0) {
            h[k++] = t;
        }
        q = s;
    }
    if (q != 0.0 || k == 0) {
        h[k++] = q;
    }
    return k;
}

// Exact sign of ax*by - ax*cy - ay*bx + ay*cx + bx*cy - by*cx.
inline int OrientExactSlow(double ax, double ay, double bx, double by, double cx, double cy)
{
    double v[6] = {ax, ay, bx, by, cx, cy};
    double m = 0.0;
    for (double x : v) {
        if (!std::isfinite(x)) {
            return 0;
        }
        m = std::max(m, std::fabs(x));
    }
    if (m == 0.0) {
        return 0;
    }
    const int shift = -std::ilogb(m);
    for (double& x : v) {
        x = std::ldexp(x, shift);
    }
    const double f[6][2] = {{v[0], v[3]}, {-v[0], v[5]}, {-v[1], v[2]}, {v[1], v[4]}, {v[2], v[5]}, {-v[3], v[4]}};
    double e[14], h[14];
    int n = 0;
    for (const auto& pr : f) {
        double x, y;
        TwoProduct(pr[0], pr[1], x, y);
        n = GrowExpansion(n, e, y, h);
        std::copy(h, h + n, e);
        n = GrowExpansion(n, e, x, h);
        std::copy(h, h + n, e);
    }
    const double top = e[n - 1];
    return top > 0.0 ? 1 : (top < 0.0 ? -1 : 0);
}

} // namespace KivExact

// Exact orientation of C against the directed line A->B in the plane: +1 when
// A, B, C turn counter-clockwise (C to the left), -1 clockwise, 0 collinear
// (or any input non-finite).
inline int ExactOrient2D(double ax, double ay, double bx, double by, double cx, double cy)
{
    const double l = (ax - cx) * (by - cy);
    const double r = (ay - cy) * (bx - cx);
    const double det = l - r;
    // (3 + 16 eps) eps with eps = 2^-53: bounds the rounding of the three
    // differences, two products and one subtraction above.
    constexpr double kErrBound = 3.3306690738754716e-16;
    const double mag = std::fabs(l) + std::fabs(r);
    // Below ~1e-280 the products may have lost bits to underflow and the
    // bound no longer holds; such inputs go the exact way.
    if (mag > 1e-280) {
        const double bound = kErrBound * mag;
        if (det > bound) {
            return 1;
        }
        if (-det > bound) {
            return -1;
        }
    }
    return KivExact::OrientExactSlow(ax, ay, bx, by, cx, cy);
}

#endif
