#include "render.h"

#include "formats_internal.h"

#include "io_error.h"
#include "output_file.h"
#include "surface_stats.h"
#include "text_reader.h"

#include <cairo-svg.h>
#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace kivcli {

namespace {

struct CKivRgb {
    double r, g, b;
};

// An elevation ramp from low (deep blue-green) through green and ochre to
// high (pale brown), readable in print and for most colour-blind readers.
CKivRgb Ramp(double t)
{
    static const std::array<CKivRgb, 6> stops = {{{0.19, 0.21, 0.58},
                                                  {0.13, 0.53, 0.64},
                                                  {0.36, 0.72, 0.36},
                                                  {0.85, 0.83, 0.42},
                                                  {0.76, 0.52, 0.30},
                                                  {0.93, 0.89, 0.85}}};
    t = std::clamp(std::isfinite(t) ? t : 0.0, 0.0, 1.0) * (stops.size() - 1);
    const std::size_t i = std::min(static_cast<std::size_t>(t), stops.size() - 2);
    const double f = t - static_cast<double>(i);
    const CKivRgb& a = stops[i];
    const CKivRgb& b = stops[i + 1];
    return {a.r + (b.r - a.r) * f, a.g + (b.g - a.g) * f, a.b + (b.b - a.b) * f};
}

const CKivRgb kLineColours[] = {{0.85, 0.10, 0.10}, {0.10, 0.10, 0.10}, {0.55, 0.10, 0.65}, {0.95, 0.45, 0.0}};

// Map to picture coordinates, y up on the map and down in the picture.
struct CKivView {
    double dScale, dX0, dY0, dLeft, dTop, dHeight;
    double X(double x) const { return dLeft + (x - dX0) * dScale; }
    double Y(double y) const { return dTop + dHeight - (y - dY0) * dScale; }
};

std::string Label(double v, double range)
{
    char buf[64];
    // Enough decimals to tell the labels of the bar apart.
    const int decimals = range >= 50 ? 0 : range >= 5 ? 1 : range >= 0.5 ? 2 : 4;
    std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
    return buf;
}

void PolylinePath(cairo_t* cr, const CKivView& view, const CKivPolyLine& pl)
{
    CKivPoint3d p;
    for (unsigned i = 0; i < pl.NumVerts(); ++i) {
        pl.GetVertex(i, p);
        if (i == 0) {
            cairo_move_to(cr, view.X(p.x), view.Y(p.y));
        } else {
            cairo_line_to(cr, view.X(p.x), view.Y(p.y));
        }
    }
    if (pl.IsClosed()) {
        cairo_close_path(cr);
    }
}

} // namespace

bool ContourSegment(const CKivPoint3d& a, const CKivPoint3d& b, const CKivPoint3d& c, double z, CKivPoint3d& p,
                    CKivPoint3d& q)
{
    // A corner exactly on the level counts as above, so a level through a
    // vertex gives one segment per triangle pair, not a dot or a doubled line.
    const CKivPoint3d* v[3] = {&a, &b, &c};
    CKivPoint3d hits[2];
    int n = 0;
    for (int k = 0; k < 3 && n < 2; ++k) {
        const CKivPoint3d& s = *v[k];
        const CKivPoint3d& e = *v[(k + 1) % 3];
        const bool sAbove = s.z >= z, eAbove = e.z >= z;
        if (sAbove == eAbove) {
            continue;
        }
        const double f = (z - s.z) / (e.z - s.z);
        hits[n++] = CKivPoint3d(s.x + (e.x - s.x) * f, s.y + (e.y - s.y) * f, z);
    }
    if (n != 2) {
        return false;
    }
    p = hits[0];
    q = hits[1];
    return true;
}

void CheckPictureExtension(const std::string& path)
{
    const std::string ext = FileExtension(path);
    if (ext != "png" && ext != "svg") {
        throw CKivIoError(path, 0, "unknown picture extension '." + ext + "': expected .png or .svg");
    }
}

void RenderSurface(const std::string& path, const CKivSurfaceData& surf, const CKivRenderOptions& opt)
{
    CheckPictureExtension(path);
    const bool bSvg = FileExtension(path) == "svg";
    CheckNotEmpty(surf, path);

    // Extent of what is drawn and the elevation range of the triangles.
    double xmin = HUGE_VAL, ymin = HUGE_VAL, xmax = -HUGE_VAL, ymax = -HUGE_VAL, zmin = HUGE_VAL, zmax = -HUGE_VAL;
    for (const auto& t : surf.vecTri) {
        for (int k : t) {
            const CKivPoint3d& p = surf.vecPt[k];
            xmin = std::min(xmin, p.x), xmax = std::max(xmax, p.x);
            ymin = std::min(ymin, p.y), ymax = std::max(ymax, p.y);
            zmin = std::min(zmin, p.z), zmax = std::max(zmax, p.z);
        }
    }
    const double zrange = zmax > zmin ? zmax - zmin : 1.0;
    const double dx = std::max(xmax - xmin, 1e-9), dy = std::max(ymax - ymin, 1e-9);

    const int width = std::clamp(opt.nWidth, 200, 8000);
    const double margin = 20.0, barSpace = 110.0, titleSpace = opt.strTitle.empty() ? 0.0 : 30.0;
    const double mapW = width - 2 * margin - barSpace;
    const double scale = mapW / dx;
    const double mapH = std::clamp(dy * scale, 100.0, 3.0 * width);
    const double s = std::min(scale, mapH / dy);
    const int height = static_cast<int>(std::ceil(mapH + 2 * margin + titleSpace));
    const CKivView view{s, xmin, ymin, margin, margin + titleSpace, mapH};

    CKivOutputFile file(path);
    const std::string& target = file.TempPath();
    using SurfacePtr = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
    SurfacePtr surface(bSvg ? cairo_svg_surface_create(target.c_str(), width, height)
                            : cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height),
                       &cairo_surface_destroy);
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw CKivIoError(path, 0, "cannot create the picture");
    }
    std::unique_ptr<cairo_t, decltype(&cairo_destroy)> ctx(cairo_create(surface.get()), &cairo_destroy);
    cairo_t* cr = ctx.get();
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);

    // Triangles: colour of the mean elevation, lit from the north-west so
    // that slopes read as relief.
    const bool bEdges = opt.bEdges && surf.vecTri.size() < 20000 &&
                        std::sqrt(mapW * mapH / static_cast<double>(surf.vecTri.size())) > 8.0;
    cairo_set_line_width(cr, 0.6);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    for (const auto& t : surf.vecTri) {
        const CKivPoint3d& a = surf.vecPt[t[0]];
        const CKivPoint3d& b = surf.vecPt[t[1]];
        const CKivPoint3d& c = surf.vecPt[t[2]];
        CGeoVector n = CGeoVector(b - a) ^ CGeoVector(c - a);
        if (n.z < 0) {
            n = CGeoVector(-n.x, -n.y, -n.z);
        }
        n.Normalize();
        const double light = std::clamp(0.8 + 0.35 * (-0.5 * n.x + 0.5 * n.y + 0.707 * n.z - 0.707), 0.55, 1.0);
        const CKivRgb col = Ramp(((a.z + b.z + c.z) / 3.0 - zmin) / zrange);
        cairo_move_to(cr, view.X(a.x), view.Y(a.y));
        cairo_line_to(cr, view.X(b.x), view.Y(b.y));
        cairo_line_to(cr, view.X(c.x), view.Y(c.y));
        cairo_close_path(cr);
        cairo_set_source_rgb(cr, col.r * light, col.g * light, col.b * light);
        if (bEdges) {
            cairo_fill_preserve(cr);
            cairo_set_source_rgba(cr, 1, 1, 1, 0.35);
            cairo_stroke(cr);
        } else {
            // Stroking with the fill colour closes the hairline seams that
            // anti-aliasing leaves between neighbours.
            cairo_fill_preserve(cr);
            cairo_set_line_width(cr, 0.5);
            cairo_stroke(cr);
        }
    }

    // Contours.
    if (opt.dContour > 0.0 && zrange / opt.dContour < 1000.0) {
        cairo_set_source_rgba(cr, 0.15, 0.1, 0.05, 0.8);
        cairo_set_line_width(cr, 0.8);
        const double first = std::ceil(zmin / opt.dContour) * opt.dContour;
        for (double level = first; level <= zmax; level += opt.dContour) {
            for (const auto& t : surf.vecTri) {
                CKivPoint3d p, q;
                if (ContourSegment(surf.vecPt[t[0]], surf.vecPt[t[1]], surf.vecPt[t[2]], level, p, q)) {
                    cairo_move_to(cr, view.X(p.x), view.Y(p.y));
                    cairo_line_to(cr, view.X(q.x), view.Y(q.y));
                }
            }
            cairo_stroke(cr);
        }
    }

    // Boundary, then the extra lines.
    if (opt.bOutline) {
        cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
        cairo_set_line_width(cr, 1.6);
        for (const CKivPolyLine& pl : BoundaryLoops(surf)) {
            PolylinePath(cr, view, pl);
        }
        cairo_stroke(cr);
    }
    cairo_set_line_width(cr, 2.2);
    for (std::size_t g = 0; g < opt.vecLineGroups.size(); ++g) {
        const CKivRgb& col = kLineColours[(g + (opt.bOutline ? 0 : 1)) % 4];
        cairo_set_source_rgb(cr, col.r, col.g, col.b);
        if (g % 2 == 1) {
            const double dash[] = {8.0, 4.0};
            cairo_set_dash(cr, dash, 2, 0.0);
        }
        for (const CKivPolyLine& pl : opt.vecLineGroups[g]) {
            PolylinePath(cr, view, pl);
        }
        cairo_stroke(cr);
        cairo_set_dash(cr, nullptr, 0, 0.0);
    }

    // Title, colour bar and legend.
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_source_rgb(cr, 0, 0, 0);
    if (!opt.strTitle.empty()) {
        cairo_set_font_size(cr, 16);
        cairo_move_to(cr, margin, margin + 14);
        cairo_show_text(cr, opt.strTitle.c_str());
    }
    const double barX = width - barSpace + 10, barY = margin + titleSpace, barW = 22;
    const double barH = std::min(mapH, 360.0);
    for (int i = 0; i < 100; ++i) {
        const CKivRgb col = Ramp(1.0 - (i + 0.5) / 100.0);
        cairo_set_source_rgb(cr, col.r, col.g, col.b);
        cairo_rectangle(cr, barX, barY + barH * i / 100.0, barW, barH / 100.0 + 0.5);
        cairo_fill(cr);
    }
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 1.0);
    cairo_rectangle(cr, barX, barY, barW, barH);
    cairo_stroke(cr);
    cairo_set_font_size(cr, 11);
    for (int i = 0; i <= 4; ++i) {
        const double y = barY + barH * i / 4.0;
        cairo_move_to(cr, barX + barW, y);
        cairo_line_to(cr, barX + barW + 4, y);
        cairo_stroke(cr);
        cairo_move_to(cr, barX + barW + 6, y + 4);
        cairo_show_text(cr, Label(zmax - zrange * i / 4.0, zrange).c_str());
    }
    double legendY = barY + barH + 24;
    for (std::size_t g = 0; g < opt.vecLineLabels.size() && g < opt.vecLineGroups.size(); ++g) {
        const CKivRgb& col = kLineColours[(g + (opt.bOutline ? 0 : 1)) % 4];
        cairo_set_source_rgb(cr, col.r, col.g, col.b);
        cairo_set_line_width(cr, 2.2);
        if (g % 2 == 1) {
            const double dash[] = {8.0, 4.0};
            cairo_set_dash(cr, dash, 2, 0.0);
        }
        cairo_move_to(cr, barX, legendY);
        cairo_line_to(cr, barX + 22, legendY);
        cairo_stroke(cr);
        cairo_set_dash(cr, nullptr, 0, 0.0);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_move_to(cr, barX + 26, legendY + 4);
        cairo_show_text(cr, opt.vecLineLabels[g].c_str());
        legendY += 18;
    }

    ctx.reset();
    cairo_surface_flush(surface.get());
    if (!bSvg && cairo_surface_write_to_png(surface.get(), target.c_str()) != CAIRO_STATUS_SUCCESS) {
        throw CKivIoError(path, 0, "cannot write the picture");
    }
    cairo_surface_finish(surface.get());
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw CKivIoError(path, 0, "cannot write the picture");
    }
    surface.reset();
    file.Commit();
}

} // namespace kivcli
