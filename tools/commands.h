// The subcommands of `kivgeo`. Each Add...Command registers its options on
// the application; when the subcommand is chosen its callback stores the work
// in run, which main() calls after parsing. Work reports bad input by throwing
// CKivIoError (or std::runtime_error for bad option values); main() turns that
// into a one-line message and exit status 2.
#ifndef KIVGEO_TOOLS_COMMANDS_H
#define KIVGEO_TOOLS_COMMANDS_H

#include "formats.h"
#include "io_error.h"

#include <kivgeo/mesh_data.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kivcli {

using CKivRun = std::function<int()>;

void AddTinCommand(CLI::App& app, CKivRun& run);
void AddInfoCommand(CLI::App& app, CKivRun& run);
void AddConvertCommand(CLI::App& app, CKivRun& run);
void AddElevCommand(CLI::App& app, CKivRun& run);
void AddDrapeCommand(CLI::App& app, CKivRun& run);
void AddOutlineCommand(CLI::App& app, CKivRun& run);
void AddInterpCommand(CLI::App& app, CKivRun& run);
void AddHullCommand(CLI::App& app, CKivRun& run);
void AddRenderCommand(CLI::App& app, CKivRun& run);
void AddDemoCommand(CLI::App& app, CKivRun& run);

// Helpers shared by the commands.

// Reads with a progress bar.
CKivSurfaceData LoadSurface(const std::string& path);
std::vector<CKivPoint3d> LoadPoints(const std::string& path);
// Loads the surface into a mesh store (octree built).
void BuildMesh(const CKivSurfaceData& surf, TriMesh::CKivMeshData& mesh);
// The mesh's triangles as an indexed surface.
CKivSurfaceData MeshToSurface(const TriMesh::CKivMeshData& mesh);
// Plan points of every vertex of the lines.
std::vector<CKivPoint3d> LinePoints(const CKivPolyLine& pl);

// Adds the example text shown at the end of a subcommand's --help.
void SetExample(CLI::App* sub, const std::string& example);

// Wall-clock seconds since construction.
class CKivStopwatch {
public:
    CKivStopwatch() : m_t0(std::chrono::steady_clock::now()) {}
    double Seconds() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_t0).count();
    }

private:
    std::chrono::steady_clock::time_point m_t0;
};

} // namespace kivcli

#endif
