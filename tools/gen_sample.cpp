// Writes the sample data set of data/ (run: kivgeo_gen_sample data). The
// output is deterministic: the random numbers come from std::mt19937, whose
// sequence the C++ standard fixes, turned into doubles by hand.
//
// The setting: a 3 x 2.4 km model area in UTM-like coordinates around
// (501500, 3001200). One stratum's top dips gently east-south-east with a
// broad fold and is thrown down 20 m east of a NNW-SSE fault. Boreholes on a
// jittered 150 m grid record the top (to 0.01 m, with 0.3 m of scatter); an
// outcrop line and the fault trace constrain the surface, a lake cuts a hole
// into the model, and an irregular outline bounds it. A second surface, the
// base of the stratum, comes as a gridded TSurf, and a section line crosses
// the model.
#include "formats.h"
#include "io_error.h"

#include <cmath>
#include <cstdio>
#include <random>

using namespace kivcli;

namespace {

const double kX0 = 500000.0, kY0 = 3000000.0;
// The fault trace, south-east end first.
const CKivPoint3d kFaultA(502520.0, 3000330.0, 0.0);
const CKivPoint3d kFaultB(501880.0, 3002130.0, 0.0);

double Round2(double v)
{
    return std::round(v * 100.0) / 100.0;
}

// Signed plan distance from the straight fault line; positive on its east.
double FaultSide(double x, double y)
{
    const double dx = kFaultB.x - kFaultA.x, dy = kFaultB.y - kFaultA.y;
    return ((x - kFaultA.x) * dy - (y - kFaultA.y) * dx) / std::hypot(dx, dy);
}

// Elevation of the stratum top without the fault, with the fault throw
// blended in over 30 m either side (the trace itself sits at mid-throw).
double TopUnfaulted(double x, double y)
{
    const double u = x - kX0, v = y - kY0;
    return 250.0 - 0.03 * u + 0.02 * v + 12.0 * std::sin(u / 600.0) * std::cos(v / 450.0);
}

double Throw(double x, double y)
{
    const double s = std::clamp(FaultSide(x, y) / 30.0, -1.0, 1.0);
    return 10.0 * (1.0 + std::sin(s * M_PI / 2.0));
}

double Top(double x, double y)
{
    return TopUnfaulted(x, y) - Throw(x, y);
}

double Base(double x, double y)
{
    const double u = x - kX0, v = y - kY0;
    return Top(x, y) - (35.0 + 10.0 * std::sin(u / 900.0) + 0.004 * v);
}

class CKivRandom {
public:
    double Uniform(double a, double b) { return a + (b - a) * (static_cast<double>(m_gen()) / 4294967296.0); }
    double Normal(double sigma)
    {
        const double u1 = 1.0 - static_cast<double>(m_gen()) / 4294967296.0;
        const double u2 = static_cast<double>(m_gen()) / 4294967296.0;
        return sigma * std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * M_PI * u2);
    }

private:
    std::mt19937 m_gen{20240611u};
};

CKivPolyLine Line(const std::vector<std::pair<double, double>>& xy, bool bClosed, double (*height)(double, double))
{
    CKivPolyLine pl;
    for (const auto& p : xy) {
        pl.AddVertex(CKivPoint3d(p.first, p.second, Round2(height(p.first, p.second))));
    }
    pl.SetClosed(bClosed);
    return pl;
}

std::vector<std::string> CoordinateSystem()
{
    return {"NAME \"WGS 84 / UTM zone 50N\"", "AXIS_NAME \"X\" \"Y\" \"Z\"", "AXIS_UNIT \"m\" \"m\" \"m\"",
            "ZPOSITIVE Elevation"};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: kivgeo_gen_sample FOLDER\n");
        return 2;
    }
    const std::string dir = std::string(argv[1]) + "/";
    CKivRandom rnd;
    try {
        // Boreholes: a jittered 150 m grid, none within 20 m of the fault.
        std::vector<CKivPoint3d> holes;
        for (int j = 0; j < 16; ++j) {
            for (int i = 0; i < 20; ++i) {
                const double x = Round2(kX0 + 75.0 + 150.0 * i + rnd.Uniform(-55.0, 55.0));
                const double y = Round2(kY0 + 75.0 + 150.0 * j + rnd.Uniform(-55.0, 55.0));
                const double noise = rnd.Normal(0.3);
                if (std::fabs(FaultSide(x, y)) < 20.0) {
                    continue;
                }
                holes.emplace_back(x, y, Round2(Top(x, y) + noise));
            }
        }
        WritePoints(dir + "boreholes.xyz", holes);

        const double fx0 = kFaultA.x, fy0 = kFaultA.y, fdx = kFaultB.x - kFaultA.x, fdy = kFaultB.y - kFaultA.y;
        std::vector<std::pair<double, double>> faultXy;
        for (int k = 0; k <= 7; ++k) {
            const double t = k / 7.0;
            // A gently curved trace about the straight line.
            const double bend = 25.0 * std::sin(t * M_PI);
            faultXy.emplace_back(Round2(fx0 + fdx * t + bend * fdy / std::hypot(fdx, fdy)),
                                 Round2(fy0 + fdy * t - bend * fdx / std::hypot(fdx, fdy)));
        }
        CKivLineData fault;
        fault.info.strName = "fault_F1_trace";
        fault.info.vecCoordSys = CoordinateSystem();
        fault.vecLine.push_back(Line(faultXy, false, Top));
        WriteLines(dir + "fault.pl", fault);

        CKivLineData outcrop;
        outcrop.info.strName = "stratum_outcrop";
        outcrop.info.vecCoordSys = CoordinateSystem();
        outcrop.vecLine.push_back(Line({{500310.0, 3001480.0},
                                        {500420.0, 3001590.0},
                                        {500515.0, 3001640.0},
                                        {500640.0, 3001760.0},
                                        {500770.0, 3001815.0},
                                        {500905.0, 3001930.0},
                                        {501040.0, 3001985.0},
                                        {501190.0, 3002105.0},
                                        {501320.0, 3002150.0}},
                                       false, Top));
        WriteLines(dir + "outcrop.pl", outcrop);

        CKivLineData outline;
        outline.info.strName = "model_outline";
        outline.vecLine.push_back(Line({{500140.0, 3000160.0},
                                        {500900.0, 3000090.0},
                                        {501700.0, 3000130.0},
                                        {502450.0, 3000110.0},
                                        {502870.0, 3000220.0},
                                        {502920.0, 3000900.0},
                                        {502860.0, 3001650.0},
                                        {502900.0, 3002260.0},
                                        {502200.0, 3002330.0},
                                        {501400.0, 3002290.0},
                                        {500700.0, 3002320.0},
                                        {500120.0, 3002240.0},
                                        {500080.0, 3001500.0},
                                        {500110.0, 3000800.0}},
                                       true, Top));
        WriteLines(dir + "outline.geojson", outline);

        CKivLineData lake;
        std::vector<std::pair<double, double>> lakeXy;
        for (int k = 0; k < 9; ++k) {
            const double a = 2.0 * M_PI * k / 9.0;
            const double r = 150.0 + 40.0 * std::sin(3.0 * a);
            lakeXy.emplace_back(Round2(501150.0 + 1.3 * r * std::cos(a)), Round2(3000800.0 + r * std::sin(a)));
        }
        lake.vecLine.push_back(Line(lakeXy, true, Top));
        WriteLines(dir + "hole.txt", lake);

        CKivLineData section;
        section.info.strName = "section_AA";
        section.info.vecCoordSys = CoordinateSystem();
        section.vecLine.push_back(
            Line({{500050.0, 3000350.0}, {501500.0, 3001050.0}, {502950.0, 3002050.0}}, false, Top));
        WriteLines(dir + "section.pl", section);

        // The base of the stratum as a gridded TSurf of two parts (west and
        // east of the fault's mid-line x), ids from 1.
        CKivSurfaceData base;
        base.info.strName = "stratum_base";
        base.info.vecHeader = {"*solid*color:0.6 0.4 0.2 1"};
        base.info.vecCoordSys = CoordinateSystem();
        const int nx = 25, ny = 20;
        for (int j = 0; j < ny; ++j) {
            for (int i = 0; i < nx; ++i) {
                const double x = kX0 - 100.0 + 3200.0 * i / (nx - 1);
                const double y = kY0 - 100.0 + 2600.0 * j / (ny - 1);
                base.vecPt.emplace_back(Round2(x), Round2(y), Round2(Base(x, y)));
            }
        }
        base.vecPartStart.push_back(0);
        for (int part = 0; part < 2; ++part) {
            if (part == 1) {
                base.vecPartStart.push_back(base.vecTri.size());
            }
            const int i0 = part == 0 ? 0 : nx / 2, i1 = part == 0 ? nx / 2 : nx - 1;
            for (int j = 0; j + 1 < ny; ++j) {
                for (int i = i0; i < i1; ++i) {
                    const int a = j * nx + i, b = a + 1, c = a + nx, d = c + 1;
                    base.vecTri.push_back({a, b, d});
                    base.vecTri.push_back({a, d, c});
                }
            }
        }
        WriteSurface(dir + "base.ts", base);
        std::printf("%zu boreholes written to %s\n", holes.size(), dir.c_str());
    } catch (const CKivIoError& e) {
        std::fprintf(stderr, "kivgeo_gen_sample: %s\n", e.what());
        return 2;
    }
    return 0;
}
