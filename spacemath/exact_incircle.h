// The triangulator's in-circle rule, IsPtInCircumCircle2D(), evaluated on
// the exact values of its two determinants instead of their rounded ones.
//
// Why: the rule compares raw determinants against an absolute 1e-6. Twice the
// triangle's area is formed from products of coordinates, so a million units
// from the local origin its rounding alone is ~1e-4: a thin triangle can come
// out with the wrong winding and the in-circle answer is then inverted. The
// in-circle determinant is of fourth degree; next to the far corners of the
// bounding triangle its rounding exceeds the value itself. Either way a cavity
// is cut short and the result is not Delaunay.
//
// How: both determinants are first formed in doubles with a bound on their
// rounding error. Where the bound cannot move a value across one of the
// rule's thresholds (nearly every call), the answer is the plain rule's.
// Otherwise the determinant is formed exactly as a floating-point expansion
// (the coordinate differences as two-term sums, then exact products and sums)
// and the rule is applied to its correctly rounded value. Inputs large enough
// to overflow the products are left to the plain rule.
#ifndef KIVGEO_SPACEMATH_EXACT_INCIRCLE_H
#define KIVGEO_SPACEMATH_EXACT_INCIRCLE_H

#include "spacemath/exact_orient.h"
#include "spacemath/planar_internal.h"

#include <cfloat>
#include <cmath>
#include <vector>

namespace KivExact {

using Expansion = std::vector<double>;

// Shortens a non-overlapping expansion without changing its value, so that
// products of sums stay a few terms long: one sweep down that merges terms
// into the largest, one sweep up that emits what cannot be merged.
inline void Compress(Expansion& e)
{
    if (e.size() < 2) {
        return;
    }
    const std::size_t m = e.size();
    Expansion g(m);
    std::size_t bottom = m - 1;
    double q = e[m - 1];
    for (std::size_t i = m - 1; i-- > 0;) {
        double sum, err;
        TwoSum(q, e[i], sum, err);
        if (err != 0.0) {
            g[bottom--] = sum;
            q = err;
        } else {
            q = sum;
        }
    }
    g[bottom] = q;
    std::size_t top = 0;
    for (std::size_t i = bottom + 1; i < m; ++i) {
        double sum, err;
        TwoSum(g[i], q, sum, err);
        if (err != 0.0) {
            e[top++] = err;
        }
        q = sum;
    }
    e[top++] = q;
    e.resize(top);
    if (top == 1 && e[0] == 0.0) {
        e.clear();
    }
}

// e + f for non-overlapping expansions in increasing magnitude; zero terms
// are dropped (an empty result is zero).
inline Expansion Sum(const Expansion& e, const Expansion& f)
{
    Expansion h = e;
    Expansion next;
    for (double b : f) {
        next.resize(h.size() + 1);
        next.resize(static_cast<std::size_t>(GrowExpansion(static_cast<int>(h.size()), h.data(), b, next.data())));
        h.swap(next);
    }
    Compress(h);
    return h;
}

// e * b, exact: each term's product is a two-term sum.
inline Expansion Scale(const Expansion& e, double b)
{
    Expansion h;
    for (double x : e) {
        double hi, lo;
        TwoProduct(x, b, hi, lo);
        h = Sum(h, Expansion{lo, hi});
    }
    return h;
}

inline Expansion Product(const Expansion& e, const Expansion& f)
{
    Expansion h;
    for (double b : f) {
        h = Sum(h, Scale(e, b));
    }
    return h;
}

inline Expansion Negate(Expansion e)
{
    for (double& x : e) {
        x = -x;
    }
    return e;
}

// The double nearest to the expansion's value (up to one rounding).
inline double Estimate(const Expansion& e)
{
    double s = 0.0;
    for (double x : e) {
        s += x;
    }
    return s;
}

// a - b as a two-term expansion.
inline Expansion Diff(double a, double b)
{
    double hi, lo;
    TwoSum(a, -b, hi, lo);
    return lo != 0.0 ? Expansion{lo, hi} : (hi != 0.0 ? Expansion{hi} : Expansion{});
}

// Exact twice the signed area of abc.
inline double Area2Exact(double ax, double ay, double bx, double by, double cx, double cy)
{
    const Expansion ux = Diff(bx, ax), uy = Diff(by, ay), vx = Diff(cx, ax), vy = Diff(cy, ay);
    return Estimate(Sum(Product(ux, vy), Negate(Product(uy, vx))));
}

// Exact in-circle determinant of the rule, with a = A - P etc.
inline double InCircleDetExact(double px, double py, double ax, double ay, double bx, double by, double cx,
                               double cy)
{
    const Expansion dax = Diff(ax, px), day = Diff(ay, py);
    const Expansion dbx = Diff(bx, px), dby = Diff(by, py);
    const Expansion dcx = Diff(cx, px), dcy = Diff(cy, py);
    const auto len2 = [](const Expansion& x, const Expansion& y) { return Sum(Product(x, x), Product(y, y)); };
    const auto cross = [](const Expansion& x0, const Expansion& y0, const Expansion& x1, const Expansion& y1) {
        return Sum(Product(x0, y1), Negate(Product(y0, x1)));
    };
    const Expansion t1 = Product(len2(dax, day), cross(dbx, dby, dcx, dcy));
    const Expansion t2 = Product(len2(dbx, dby), cross(dax, day, dcx, dcy));
    const Expansion t3 = Product(len2(dcx, dcy), cross(dax, day, dbx, dby));
    return Estimate(Sum(Sum(t1, Negate(t2)), t3));
}

} // namespace KivExact

// The first half of the rule, which depends on the triangle alone: -1 when
// its doubled area is within 1e-6 of zero (never in the circle), else 1 for
// counter-clockwise and 2 for clockwise (the area against -1e-6), decided
// on the exact area where rounding could change it. A caller that tests one
// triangle against many points can keep it.
inline int InCircleTriSense(double ax, double ay, double bx, double by, double cx, double cy)
{
    // Twice the area, as the plain rule forms it, and a bound on its rounding
    // (six products and five sums: 8 eps of the sum of magnitudes is ample).
    const double p1 = ax * by, p2 = bx * cy, p3 = cx * ay, p4 = ay * bx, p5 = by * cx, p6 = ax * cy;
    double s = p1 + p2 + p3 - p4 - p5 - p6;
    const double sMag =
        std::fabs(p1) + std::fabs(p2) + std::fabs(p3) + std::fabs(p4) + std::fabs(p5) + std::fabs(p6);
    if (!std::isfinite(sMag)) {
        return 0; // left to the plain rule
    }
    // Where |s| is clear of the threshold, the sign is right too: |s| above
    // it exceeds the error, and below it the triangle is degenerate anyway.
    const double sErr = 8.0 * DBL_EPSILON * sMag;
    if (std::fabs(std::fabs(s) - 1e-6) <= sErr) {
        s = KivExact::Area2Exact(ax, ay, bx, by, cx, cy);
    }
    if (!(std::fabs(s) > 1e-6)) {
        return -1;
    }
    return s < -1e-6 ? 2 : 1;
}

// The second half: the in-circle answer for a triangle of sense 1 or 2 (as
// InCircleTriSense gives it), from the determinant formed about P.
inline int InCircleWithSense(double px, double py, double ax, double ay, double bx, double by, double cx,
                             double cy, int sense)
{
    const double ax_ = ax - px, ay_ = ay - py;
    const double bx_ = bx - px, by_ = by - py;
    const double cx_ = cx - px, cy_ = cy - py;
    const double a2 = ax_ * ax_ + ay_ * ay_, b2 = bx_ * bx_ + by_ * by_, c2 = cx_ * cx_ + cy_ * cy_;
    double d = a2 * (bx_ * cy_ - by_ * cx_) - b2 * (ax_ * cy_ - ay_ * cx_) + c2 * (ax_ * by_ - ay_ * bx_);
    const double dMag = a2 * (std::fabs(bx_ * cy_) + std::fabs(by_ * cx_)) +
                        b2 * (std::fabs(ax_ * cy_) + std::fabs(ay_ * cx_)) +
                        c2 * (std::fabs(ax_ * by_) + std::fabs(ay_ * bx_));
    if (!std::isfinite(dMag)) {
        return IsPtInCircumCircle2D(px, py, ax, ay, bx, by, cx, cy);
    }
    // The rounded differences, products and sums: 16 units of rounding
    // (2^-53 each) of the permanent bound the error; about 10 would do.
    const double dErr = 8.0 * DBL_EPSILON * dMag;
    const bool clear = std::fabs(d) - dErr > 2e-6 || std::fabs(d) + dErr < 0.5e-6;
    if (!clear) {
        d = KivExact::InCircleDetExact(px, py, ax, ay, bx, by, cx, cy);
    }
    return InCircleSense(d, sense == 2);
}

// Same answers as IsPtInCircumCircle2D() wherever its rounding cannot change
// them; elsewhere the answer the rule gives on exact determinants.
inline int IsPtInCircumCircle2DExact(double px, double py, double ax, double ay, double bx, double by, double cx,
                                     double cy)
{
    const int sense = InCircleTriSense(ax, ay, bx, by, cx, cy);
    if (sense == 0) {
        return IsPtInCircumCircle2D(px, py, ax, ay, bx, by, cx, cy);
    }
    if (sense < 0) {
        return -1;
    }
    return InCircleWithSense(px, py, ax, ay, bx, by, cx, cy, sense);
}

#endif
