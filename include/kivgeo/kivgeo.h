// The whole public interface of kivgeo.
#ifndef KIVGEO_KIVGEO_H
#define KIVGEO_KIVGEO_H

#include <kivgeo/delaunay.h>
#include <kivgeo/export.h>
#include <kivgeo/extent.h>
#include <kivgeo/geo_convex.h>
#include <kivgeo/match_chazhi.h>
#include <kivgeo/mesh_data.h>
#include <kivgeo/mesh_query.h>
#include <kivgeo/planar.h>
#include <kivgeo/point3d.h>
#include <kivgeo/polyline.h>
#include <kivgeo/seg3d.h>
#include <kivgeo/spacemath.h>
#include <kivgeo/tri3d.h>

#endif
