// Symbol visibility for the kivgeo shared library. Everything is hidden by
// default; the public classes and free functions carry KIVGEO_API.
#ifndef KIVGEO_EXPORT_H
#define KIVGEO_EXPORT_H

#if defined(_WIN32)
#if defined(KIVGEO_BUILDING)
#define KIVGEO_API __declspec(dllexport)
#else
#define KIVGEO_API __declspec(dllimport)
#endif
#else
#define KIVGEO_API __attribute__((visibility("default")))
#endif

#endif
