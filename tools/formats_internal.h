// The format readers and writers behind the extension dispatch of formats.h.
#ifndef KIVGEO_TOOLS_FORMATS_INTERNAL_H
#define KIVGEO_TOOLS_FORMATS_INTERNAL_H

#include "formats.h"

namespace kivcli {

CKivSurfaceData ReadTSurf(const std::string& path, const CKivProgressFn& progress);
void WriteTSurf(std::string& out, const CKivSurfaceData& surf);
CKivLineData ReadPLine(const std::string& path);
void WritePLine(std::string& out, const CKivLineData& lines);

CKivLineData ReadGeoJson(const std::string& path);
void WriteGeoJson(std::string& out, const CKivLineData& lines);

CKivSurfaceData ReadObj(const std::string& path, const CKivProgressFn& progress);
void WriteObj(std::string& out, const CKivSurfaceData& surf);
CKivSurfaceData ReadOff(const std::string& path, const CKivProgressFn& progress);
void WriteOff(std::string& out, const CKivSurfaceData& surf);
CKivSurfaceData ReadPly(const std::string& path);
void WritePly(std::string& out, const CKivSurfaceData& surf, bool bBinary);
CKivSurfaceData ReadStl(const std::string& path);
void WriteStl(std::string& out, const CKivSurfaceData& surf, bool bBinary);
void WriteVtk(std::string& out, const CKivSurfaceData& surf);

// Appends "a b c\n" with shortest round-trip numbers.
void AppendXyz(std::string& out, const CKivPoint3d& p);
// Splits polygons of n >= 3 corners into a fan of triangles.
void AddPolygon(CKivSurfaceData& surf, const std::vector<int>& corners);
// Fails unless the surface has at least one triangle.
void CheckNotEmpty(const CKivSurfaceData& surf, const std::string& path);

} // namespace kivcli

#endif
