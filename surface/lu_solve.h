// Dense LU factorisation with partial pivoting and the matching
// substitution, for the interpolation systems. Internal; header-only so that
// tests can check it against a plain reference.
//
// The factorisation produces exactly what the column-by-column (Crout) order
// produces: every entry starts from its original value and has the products
// A[i][k] * A[k][j] subtracted one at a time in ascending k, multipliers are
// scaled by the reciprocal of the pivot, and the pivot of column j is the
// first row of largest magnitude. Only the order in which entries are visited
// differs: columns are taken in panels, and the trailing block is then
// updated in small register tiles, which keeps the working set in cache.
// Nothing is reassociated, so the results are bit for bit the same.
#ifndef KIVGEO_SURFACE_LU_SOLVE_H
#define KIVGEO_SURFACE_LU_SOLVE_H

#include <algorithm>
#include <cmath>

namespace KivLU {

// Panel width: the trailing update reuses each loaded entry this many times.
constexpr long kPanel = 64;

// A[k1.., k1..] -= A[k1.., k0..k1) * A[k0..k1), k1..], one product at a time in
// ascending k for every entry.
inline void UpdateTrailing(long n, double* a, long k0, long k1)
{
    const long kb = k1 - k0;
    const double* u = a + k0 * n; // rows k0..k1 of the block row
    long i = k1;
    for (; i + 4 <= n; i += 4) {
        const double* l[4] = {a + i * n + k0, a + (i + 1) * n + k0, a + (i + 2) * n + k0, a + (i + 3) * n + k0};
        double* c[4] = {a + i * n, a + (i + 1) * n, a + (i + 2) * n, a + (i + 3) * n};
        long j = k1;
        for (; j + 4 <= n; j += 4) {
            double t[4][4];
            for (int r = 0; r < 4; ++r) {
                for (int s = 0; s < 4; ++s) {
                    t[r][s] = c[r][j + s];
                }
            }
            const double* um = u + j;
            for (long m = 0; m < kb; ++m, um += n) {
                for (int r = 0; r < 4; ++r) {
                    const double f = l[r][m];
                    for (int s = 0; s < 4; ++s) {
                        t[r][s] -= f * um[s];
                    }
                }
            }
            for (int r = 0; r < 4; ++r) {
                for (int s = 0; s < 4; ++s) {
                    c[r][j + s] = t[r][s];
                }
            }
        }
        for (; j < n; ++j) {
            for (int r = 0; r < 4; ++r) {
                double t = c[r][j];
                for (long m = 0; m < kb; ++m) {
                    t -= l[r][m] * u[m * n + j];
                }
                c[r][j] = t;
            }
        }
    }
    for (; i < n; ++i) {
        double* c = a + i * n;
        for (long m = 0; m < kb; ++m) {
            const double f = c[k0 + m];
            const double* um = u + m * n;
            for (long j = k1; j < n; ++j) {
                c[j] -= f * um[j];
            }
        }
    }
}

// In-place LU of the row-major n x n matrix a: unit lower triangle below the
// diagonal, upper triangle on and above it. pivots[j] is the row swapped with
// row j at column j. Returns 0, or -1 when a pivot column is exactly zero or
// its largest magnitude is not a number.
inline int Factorize(long n, double* a, long* pivots)
{
    if (n < 1) {
        return 0;
    }
    for (long k0 = 0; k0 < n; k0 += kPanel) {
        const long k1 = std::min(n, k0 + kPanel);
        for (long k = k0; k < k1; ++k) {
            // Strictly larger replaces, so the first of equal magnitudes wins.
            long p = k;
            double big = std::fabs(a[k * n + k]);
            for (long i = k + 1; i < n; ++i) {
                const double v = std::fabs(a[i * n + k]);
                if (v > big) {
                    big = v;
                    p = i;
                }
            }
            // Exact test: only a column of zeros (or a NaN pivot) is singular.
            if (!(big > 0.0)) {
                return -1;
            }
            pivots[k] = p;
            if (p != k) {
                std::swap_ranges(a + k * n, a + k * n + n, a + p * n);
            }
            const double inv = 1.0 / a[k * n + k];
            const double* rk = a + k * n;
            for (long i = k + 1; i < n; ++i) {
                double* ri = a + i * n;
                ri[k] *= inv;
                const double f = ri[k];
                for (long j = k + 1; j < k1; ++j) {
                    ri[j] -= f * rk[j];
                }
            }
        }
        if (k1 == n) {
            break;
        }
        // The panel's rows of the columns to its right.
        for (long k = k0; k < k1; ++k) {
            const double* rk = a + k * n;
            for (long i = k + 1; i < k1; ++i) {
                double* ri = a + i * n;
                const double f = ri[k];
                for (long j = k1; j < n; ++j) {
                    ri[j] -= f * rk[j];
                }
            }
        }
        UpdateTrailing(n, a, k0, k1);
    }
    return 0;
}

// Solves with the factors of Factorize(): b is permuted and substituted in
// place (forward with the unit lower triangle, then backward).
inline void Substitute(long n, const double* lu, const long* pivots, double* b)
{
    for (long i = 0; i < n; ++i) {
        std::swap(b[i], b[pivots[i]]);
        double s = b[i];
        const double* ri = lu + i * n;
        for (long k = 0; k < i; ++k) {
            s -= ri[k] * b[k];
        }
        b[i] = s;
    }
    for (long i = n - 1; i >= 0; --i) {
        double s = b[i];
        const double* ri = lu + i * n;
        for (long k = i + 1; k < n; ++k) {
            s -= ri[k] * b[k];
        }
        b[i] = s / ri[i];
    }
}

} // namespace KivLU

#endif
