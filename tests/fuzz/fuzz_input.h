// Decoder shared by the fuzz targets: turns the fuzzer's bytes into geometry
// that reaches the interesting paths. Random doubles alone almost never repeat
// a point, line up three points or land on a tolerance boundary, so most
// points come from small integer grids, exact repeats, near repeats at the
// library's tolerances (1e-6 equality, 0.01 merging), collinear runs and
// midpoints, all mapped through a scale (1e-9 .. 1e9) and an offset (up to
// 1e9) chosen once per input. A few NaN, infinite and raw values are mixed in;
// Wild() then tells the target that finiteness of results is not owed.
#ifndef KIVGEO_TESTS_FUZZ_INPUT_H
#define KIVGEO_TESTS_FUZZ_INPUT_H

#include <kivgeo/point3d.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

// Aborts with the failed condition: the fuzzer records the input as a crash.
#define KIV_FUZZ_CHECK(cond)                                                                                      \
    do {                                                                                                          \
        if (!(cond)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: invariant violated: %s\n", __FILE__, __LINE__, #cond);                   \
            std::abort();                                                                                         \
        }                                                                                                         \
    } while (0)

// Coordinates beyond this are treated like infinities: products of two of
// them may overflow, so finite results are not owed.
constexpr double kFuzzHuge = 1e15;
// Non-zero coordinates below this next to ordinary ones span more than the
// exact orientation test covers (its products underflow), so validity is not
// owed for them either.
constexpr double kFuzzTiny = 1e-120;

inline bool IsFinitePt(const CKivPoint3d& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

inline bool AllFinite(const std::vector<CKivPoint3d>& pts)
{
    for (const CKivPoint3d& p : pts) {
        if (!IsFinitePt(p)) {
            return false;
        }
    }
    return true;
}

// NaN-aware bitwise-style equality: the same value, or NaN in the same places.
inline bool SameValue(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

inline bool SamePt(const CKivPoint3d& a, const CKivPoint3d& b)
{
    return SameValue(a.x, b.x) && SameValue(a.y, b.y) && SameValue(a.z, b.z);
}

class CKivFuzzInput {
public:
    CKivFuzzInput(const std::uint8_t* data, std::size_t size) : m_pData(data), m_nSize(size)
    {
        static const double kScale[] = {1, 1, 1, 1e-9, 1e-6, 1e-3, 0.01, 0.1, 10, 1e3, 1e6, 1e9};
        static const double kOffsetX[] = {0, 0, 0, 5e5, -1e9, 1e7, 0.5, 3e6};
        static const double kOffsetY[] = {0, 0, 0, 3e6, 1e9, -1e7, 0.25, 5e5};
        m_dScale = kScale[Below(sizeof(kScale) / sizeof(kScale[0]))];
        const unsigned o = Below(sizeof(kOffsetX) / sizeof(kOffsetX[0]));
        m_dOffsetX = kOffsetX[o];
        m_dOffsetY = kOffsetY[o];
    }

    std::size_t Remaining() const { return m_nSize - m_nPos; }
    bool Empty() const { return m_nPos >= m_nSize; }
    // True once a NaN, an infinity, a coordinate beyond kFuzzHuge or a
    // non-zero one below kFuzzTiny was made.
    bool Wild() const { return m_bWild; }
    double Scale() const { return m_dScale; }

    std::uint8_t Byte() { return m_nPos < m_nSize ? m_pData[m_nPos++] : 0; }
    bool Flag() { return (Byte() & 1) != 0; }
    // A value in [0, n), n > 0; two bytes when n exceeds 256.
    unsigned Below(unsigned n)
    {
        unsigned v = Byte();
        if (n > 256) {
            v = v << 8 | Byte();
        }
        return v % n;
    }
    // Any bit pattern: NaNs, infinities and denormals included.
    double Raw()
    {
        std::uint64_t bits = 0;
        for (int i = 0; i < 8; ++i) {
            bits = bits << 8 | Byte();
        }
        double d;
        std::memcpy(&d, &bits, sizeof d);
        Note(d);
        return d;
    }
    // A scalar parameter (distance, tolerance) on the input's scale, now and
    // then negative, zero or wild.
    double Param()
    {
        const std::uint8_t b = Byte();
        switch (b % 8) {
        case 0:
            return 0.0;
        case 1:
            return -static_cast<double>(b >> 3) * m_dScale;
        case 2:
            return Raw();
        default:
            return static_cast<double>(b >> 3) * 0.25 * m_dScale;
        }
    }

    CKivPoint3d Point()
    {
        const std::uint8_t mode = Byte() % 16;
        CKivPoint3d p;
        switch (mode) {
        case 6:
        case 7:
            p = m_ptLast;
            break;
        case 8: {
            // Just inside and just outside the tolerances that matter.
            static const double kDelta[] = {1e-7, 9e-7, 1.1e-6, 0.005, 0.0099, 0.0101, 0.011, 0.5};
            const std::uint8_t b = Byte();
            const double d = kDelta[b % 8];
            p = m_ptLast;
            p.x += (b & 8) ? d : ((b & 16) ? -d : 0.0);
            p.y += (b & 32) ? d : ((b & 64) ? -d : 0.0);
            p.z += (b & 128) ? d : 0.0;
            break;
        }
        case 9:
        case 10:
            // Continue the line through the last two points.
            p = CKivPoint3d(2 * m_ptLast.x - m_ptPrev.x, 2 * m_ptLast.y - m_ptPrev.y, 2 * m_ptLast.z - m_ptPrev.z);
            break;
        case 11:
            p = CKivPoint3d(0.5 * (m_ptLast.x + m_ptPrev.x), 0.5 * (m_ptLast.y + m_ptPrev.y),
                            0.5 * (m_ptLast.z + m_ptPrev.z));
            break;
        case 12: {
            const auto fine = [this]() {
                // One read per statement: the order of reads within an
                // expression is up to the compiler, and a saved input must
                // decode the same under every compiler.
                const int hi = Byte();
                const int lo = Byte();
                const std::int16_t v = static_cast<std::int16_t>(hi << 8 | lo);
                return v / 256.0;
            };
            const double x = fine(), y = fine(), z = fine();
            p = Map(x, y, z);
            break;
        }
        case 13:
            p = Special();
            break;
        case 14: {
            const double x = Raw(), y = Raw();
            p = CKivPoint3d(x, y, static_cast<double>(Byte() % 9));
            break;
        }
        case 15: {
            const double x = 1000.0 * (Byte() % 17 - 8.0);
            const double y = 1000.0 * (Byte() % 17 - 8.0);
            p = Map(x, y, Byte() % 9 - 4.0);
            break;
        }
        default: {
            const double x = Byte() % 17 - 8.0;
            const double y = Byte() % 17 - 8.0;
            p = Map(x, y, Byte() % 9 - 4.0);
            break;
        }
        }
        Note(p.x);
        Note(p.y);
        Note(p.z);
        m_ptPrev = m_ptLast;
        m_ptLast = p;
        return p;
    }

    std::vector<CKivPoint3d> Points(unsigned maxCount)
    {
        const unsigned n = Below(maxCount + 1);
        std::vector<CKivPoint3d> pts;
        pts.reserve(n);
        for (unsigned i = 0; i < n && !Empty(); ++i) {
            pts.push_back(Point());
        }
        return pts;
    }

private:
    CKivPoint3d Map(double x, double y, double z) const
    {
        return CKivPoint3d(x * m_dScale + m_dOffsetX, y * m_dScale + m_dOffsetY, z * m_dScale);
    }

    CKivPoint3d Special()
    {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const double inf = std::numeric_limits<double>::infinity();
        static const double kValue[] = {0.0,  1e300, -1e300, 1e-310, std::numeric_limits<double>::max(),
                                        1e15, -0.0,  0.0};
        const std::uint8_t b = Byte();
        CKivPoint3d p = m_ptLast;
        double v;
        switch (b % 4) {
        case 0:
            v = nan;
            break;
        case 1:
            v = inf;
            break;
        case 2:
            v = -inf;
            break;
        default:
            v = kValue[(b >> 2) % 8];
            break;
        }
        switch ((b >> 5) % 4) {
        case 0:
            p.x = v;
            break;
        case 1:
            p.y = v;
            break;
        case 2:
            p.z = v;
            break;
        default:
            p.x = p.y = v;
            break;
        }
        return p;
    }

    void Note(double d)
    {
        if (!(std::fabs(d) <= kFuzzHuge) || (d != 0.0 && std::fabs(d) < kFuzzTiny)) {
            m_bWild = true;
        }
    }

    const std::uint8_t* m_pData;
    std::size_t m_nSize;
    std::size_t m_nPos = 0;
    double m_dScale = 1.0;
    double m_dOffsetX = 0.0;
    double m_dOffsetY = 0.0;
    bool m_bWild = false;
    CKivPoint3d m_ptLast;
    CKivPoint3d m_ptPrev;
};

#endif
