// Fuzz target: every file reader of the command line. The first byte picks
// the format (by extension), the rest is the file. A reader either throws
// CKivIoError naming the file, or returns data that holds together: finite
// coordinates, triangle indices in range, parts in order. Data that was read
// is written back in the same format and must read back the same.
#include "fuzz_input.h"

#include "formats.h"
#include "io_error.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

enum eKind { ePoints, eLines, eSurface };

struct CKivFormat {
    const char* ext;
    eKind kind;
};

const CKivFormat kFormats[] = {{"xyz", ePoints},    {"csv", ePoints},  {"pts", ePoints},  {"pl", eLines},
                               {"geojson", eLines}, {"json", eLines},  {"txt", eLines},   {"ts", eSurface},
                               {"obj", eSurface},   {"off", eSurface}, {"ply", eSurface}, {"stl", eSurface}};

// One scratch folder per process, removed at exit. A plain array, so that it
// outlives every static destructor that runs before the exit handler.
char g_szScratch[] = "/tmp/kivgeo-fuzz-XXXXXX";

std::string ScratchDir()
{
    static const bool made = [] {
        KIV_FUZZ_CHECK(mkdtemp(g_szScratch) != nullptr);
        std::atexit([] {
            const std::string cmd = std::string("rm -rf '") + g_szScratch + "'";
            if (std::system(cmd.c_str()) != 0) {
                std::fprintf(stderr, "could not remove %s\n", g_szScratch);
            }
        });
        return true;
    }();
    (void)made;
    return g_szScratch;
}

bool SameLines(const kivcli::CKivLineData& a, const kivcli::CKivLineData& b)
{
    if (a.vecLine.size() != b.vecLine.size()) {
        return false;
    }
    std::vector<CKivPoint3d> u, v;
    for (std::size_t i = 0; i < a.vecLine.size(); ++i) {
        a.vecLine[i].OutputData(u);
        b.vecLine[i].OutputData(v);
        if (a.vecLine[i].IsClosed() != b.vecLine[i].IsClosed() || u.size() != v.size()) {
            return false;
        }
        for (std::size_t k = 0; k < u.size(); ++k) {
            if (!SamePt(u[k], v[k])) {
                return false;
            }
        }
    }
    return true;
}

void CheckSurface(const kivcli::CKivSurfaceData& s)
{
    KIV_FUZZ_CHECK(AllFinite(s.vecPt));
    for (const std::array<int, 3>& t : s.vecTri) {
        for (int k : t) {
            KIV_FUZZ_CHECK(k >= 0 && static_cast<std::size_t>(k) < s.vecPt.size());
        }
    }
    KIV_FUZZ_CHECK(s.vecPartStart.empty() || s.vecPartStart[0] == 0);
    for (std::size_t i = 0; i < s.vecPartStart.size(); ++i) {
        KIV_FUZZ_CHECK(s.vecPartStart[i] <= s.vecTri.size());
        KIV_FUZZ_CHECK(i == 0 || s.vecPartStart[i] >= s.vecPartStart[i - 1]);
    }
}

void RoundTrip(const CKivFormat& f, const std::string& path, const kivcli::CKivSurfaceData* surf,
               const kivcli::CKivLineData* lines, const std::vector<CKivPoint3d>* pts)
{
    const std::string out = ScratchDir() + "/written." + f.ext;
    try {
        if (surf) {
            kivcli::WriteSurface(out, *surf);
        } else if (lines) {
            kivcli::WriteLines(out, *lines);
        } else {
            kivcli::WritePoints(out, *pts);
        }
    } catch (const kivcli::CKivIoError&) {
        // A writer may refuse what it cannot represent (an empty surface, a
        // line too short for the format); what it writes must read back.
        return;
    }
    try {
        if (surf) {
            std::vector<CKivTri3d> a, b;
            kivcli::SurfaceToTris(*surf, a);
            kivcli::SurfaceToTris(kivcli::ReadSurface(out), b);
            KIV_FUZZ_CHECK(a.size() == b.size());
            for (std::size_t i = 0; i < a.size(); ++i) {
                for (int k = 0; k < 3; ++k) {
                    KIV_FUZZ_CHECK(SamePt(a[i].m_pt[k], b[i].m_pt[k]));
                }
            }
        } else if (lines) {
            KIV_FUZZ_CHECK(SameLines(*lines, kivcli::ReadLines(out)));
        } else {
            const std::vector<CKivPoint3d> back = kivcli::ReadPoints(out);
            KIV_FUZZ_CHECK(back.size() == pts->size());
            for (std::size_t i = 0; i < back.size(); ++i) {
                KIV_FUZZ_CHECK(SamePt(back[i], (*pts)[i]));
            }
        }
    } catch (const kivcli::CKivIoError& e) {
        std::fprintf(stderr, "written data does not read back (read from %s): %s\n", path.c_str(), e.what());
        std::abort();
    }
    std::remove(out.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const CKivFormat& f = kFormats[data[0] % (sizeof(kFormats) / sizeof(kFormats[0]))];
    const std::string path = ScratchDir() + "/input." + f.ext;
    {
        std::ofstream os(path, std::ios::binary | std::ios::trunc);
        os.write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
        KIV_FUZZ_CHECK(os.good());
    }
    try {
        switch (f.kind) {
        case ePoints: {
            const std::vector<CKivPoint3d> pts = kivcli::ReadPoints(path);
            KIV_FUZZ_CHECK(AllFinite(pts));
            RoundTrip(f, path, nullptr, nullptr, &pts);
            break;
        }
        case eLines: {
            const kivcli::CKivLineData lines = kivcli::ReadLines(path);
            std::vector<CKivPoint3d> v;
            for (const CKivPolyLine& l : lines.vecLine) {
                l.OutputData(v);
                KIV_FUZZ_CHECK(!v.empty() && AllFinite(v));
            }
            RoundTrip(f, path, nullptr, &lines, nullptr);
            break;
        }
        case eSurface: {
            const kivcli::CKivSurfaceData surf = kivcli::ReadSurface(path);
            CheckSurface(surf);
            RoundTrip(f, path, &surf, nullptr, nullptr);
            break;
        }
        }
    } catch (const kivcli::CKivIoError& e) {
        // The message must say which file is at fault.
        KIV_FUZZ_CHECK(std::string(e.what()).find(path) != std::string::npos);
    }
    return 0;
}
