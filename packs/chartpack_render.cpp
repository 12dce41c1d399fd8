/*
** chartpack_render.cpp -- reading the land polygons, cutting them to tiles
** and drawing a tile with Cairo: light sea, buff land, a dark coastline and
** a latitude/longitude graticule whose spacing follows the zoom.
**
** Place names use DejaVu Sans through Cairo's simple text interface. They
** are placed once per zoom level for the whole level, so a name that runs
** over a tile edge is drawn the same on both tiles.
*/
#include "packs/chartpack_render.h"

#include <cairo.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const double kPi = 3.141592653589793;
static const double kMaxLat = 85.05112877980659;

double cp_mercX(double lon) { return (lon + 180.0) / 360.0; }

double cp_mercY(double lat) {
    if (lat > kMaxLat) lat = kMaxLat;
    if (lat < -kMaxLat) lat = -kMaxLat;
    double phi = lat * kPi / 180.0;
    return (1.0 - log(tan(phi) + 1.0 / cos(phi)) / kPi) * 0.5;
}

static double lonOfX(double x) { return x * 360.0 - 180.0; }
static double latOfY(double y) { return atan(sinh(kPi * (1.0 - 2.0 * y))) * 180.0 / kPi; }

/* Sets the bounding box of a ring from its points. */
static void ringBox(CpRing *r) {
    r->x1 = r->y1 = 1e300;
    r->x2 = r->y2 = -1e300;
    for (size_t i = 0; i + 1 < r->xy.size(); i += 2) {
        double x = r->xy[i], y = r->xy[i + 1];
        if (x < r->x1) r->x1 = x;
        if (x > r->x2) r->x2 = x;
        if (y < r->y1) r->y1 = y;
        if (y > r->y2) r->y2 = y;
    }
}

/* Moves a finished ring into rings unless it has fewer than three points;
** a last point repeating the first is dropped. Leaves r empty. */
static void finishRing(CpRing *r, int hole, std::vector<CpRing> *rings) {
    r->hole = hole;
    size_t n = r->xy.size();
    if (n >= 4 && r->xy[0] == r->xy[n - 2] && r->xy[1] == r->xy[n - 1]) r->xy.resize(n - 2);
    if (r->xy.size() >= 6) {
        ringBox(r);
        rings->push_back(std::move(*r));
    }
    *r = CpRing();
}

/* Walks the coordinate arrays that follow one "coordinates" key, from its
** '[' to the matching ']'. A ring is an array of positions; the first ring
** of a polygon is its outline, the others are lakes (`hole`). Beyond that
** the nesting (polygon, multipolygon) only groups rings, and an even-odd
** fill of land without overlaps doesn't need it. Returns the position after
** the array, or NULL on malformed text. */
static const char *readCoordinates(const char *p, const char *end, std::vector<CpRing> *rings) {
    int depth = 0, ringDepth = -1, inRing = 0, ringIndex = 0;
    CpRing ring;
    while (p < end) {
        char c = *p;
        if (c == '[') {
            const char *q = p + 1;
            while (q < end && (*q == ' ' || *q == '\n' || *q == '\r' || *q == '\t')) q++;
            if (q < end && (*q == '-' || (*q >= '0' && *q <= '9'))) {
                char *e1, *e2;
                double lon = strtod(q, &e1);
                if (e1 == q) return NULL;
                while (e1 < end && (*e1 == ',' || *e1 == ' ')) e1++;
                double lat = strtod(e1, &e2);
                if (e2 == e1) return NULL;
                while (e2 < end && *e2 != ']') e2++; /* a third value, if any */
                if (e2 >= end) return NULL;
                ring.xy.push_back(cp_mercX(lon));
                ring.xy.push_back(cp_mercY(lat));
                ringDepth = depth;
                inRing = 1;
                p = e2 + 1;
                continue;
            }
            depth++;
        } else if (c == ']') {
            if (inRing && depth == ringDepth) {
                finishRing(&ring, ringIndex++ > 0, rings); /* the first ring of a polygon is its outline */
                inRing = 0;
            } else if (depth == ringDepth - 1) {
                ringIndex = 0; /* a polygon ends */
            }
            depth--;
            if (depth == 0) return p + 1;
            if (depth < 0) return NULL;
        }
        p++;
    }
    return NULL;
}

long cp_loadLand(const char *path, std::vector<CpRing> *rings) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return -1;
    std::string text;
    char buf[1 << 16];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0) text.append(buf, n);
    fclose(f);

    const char *p = text.c_str(), *end = p + text.size();
    size_t before = rings->size();
    const char *key;
    while ((key = strstr(p, "\"coordinates\"")) != NULL) {
        const char *q = key + 13;
        while (q < end && *q != '[') {
            if (*q != ' ' && *q != ':' && *q != '\n' && *q != '\r' && *q != '\t') return -1;
            q++;
        }
        if (q >= end) return -1;
        p = readCoordinates(q, end, rings);
        if (p == NULL) return -1;
    }
    return (long)(rings->size() - before);
}

/* One pass of Sutherland-Hodgman against the line v = edge on axis
** (0 x, 1 y), keeping the side where v >= edge (keepAbove) or v <= edge. */
static void clipPass(const std::vector<double> &in, int axis, double edge, int keepAbove,
                     std::vector<double> *out) {
    out->clear();
    size_t n = in.size() / 2;
    if (n == 0) return;
    for (size_t i = 0; i < n; i++) {
        size_t j = (i + n - 1) % n; /* previous point */
        double cx = in[2 * i], cy = in[2 * i + 1];
        double px = in[2 * j], py = in[2 * j + 1];
        double cv = axis == 0 ? cx : cy, pv = axis == 0 ? px : py;
        int cIn = keepAbove ? cv >= edge : cv <= edge;
        int pIn = keepAbove ? pv >= edge : pv <= edge;
        if (cIn != pIn) {
            double t = (edge - pv) / (cv - pv);
            double ix = axis == 0 ? edge : px + t * (cx - px);
            double iy = axis == 1 ? edge : py + t * (cy - py);
            out->push_back(ix);
            out->push_back(iy);
        }
        if (cIn) {
            out->push_back(cx);
            out->push_back(cy);
        }
    }
}

int cp_clipRing(const CpRing &in, double x1, double y1, double x2, double y2, CpRing *out) {
    out->xy.clear();
    if (in.x2 < x1 || in.x1 > x2 || in.y2 < y1 || in.y1 > y2) return 0;
    if (in.x1 >= x1 && in.x2 <= x2 && in.y1 >= y1 && in.y2 <= y2) {
        *out = in;
        return (int)(out->xy.size() / 2);
    }
    std::vector<double> a, b;
    clipPass(in.xy, 0, x1, 1, &a);
    clipPass(a, 0, x2, 0, &b);
    clipPass(b, 1, y1, 1, &a);
    clipPass(a, 1, y2, 0, &b);
    if (b.size() < 6) return 0;
    out->xy.swap(b);
    out->hole = in.hole;
    ringBox(out);
    return (int)(out->xy.size() / 2);
}

void cp_tileRange(const CpGeoBox &box, int z, int *x1, int *y1, int *x2, int *y2) {
    double side = (double)(1 << z);
    int last = (1 << z) - 1;
    *x1 = (int)floor(cp_mercX(box.west) * side);
    *x2 = (int)ceil(cp_mercX(box.east) * side) - 1;
    *y1 = (int)floor(cp_mercY(box.north) * side);
    *y2 = (int)ceil(cp_mercY(box.south) * side) - 1;
    if (*x1 < 0) *x1 = 0;
    if (*y1 < 0) *y1 = 0;
    if (*x2 > last) *x2 = last;
    if (*y2 > last) *y2 = last;
}

/* Graticule spacing in degrees by zoom: about two to four lines a tile. */
static double graticuleStep(int z) {
    static const double steps[] = {30, 30, 30, 30, 20, 10, 5, 5, 1, 0.5, 10.0 / 60, 5.0 / 60, 2.0 / 60};
    if (z < 0) z = 0;
    if (z > 12) z = 12;
    return steps[z];
}

#define CP_FONT "DejaVu Sans"
#define CP_FONT_SIZE 11.0

std::vector<CpLabel> cp_placeLabels(int z, const std::vector<double> &lat, const std::vector<double> &lon,
                                    const std::vector<std::string> &name) {
    std::vector<CpLabel> kept;
    cairo_surface_t *s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
    cairo_t *cr = cairo_create(s);
    cairo_select_font_face(cr, CP_FONT, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, CP_FONT_SIZE);
    const double scale = (double)(1 << z) * CP_TILE_SIZE;
    for (size_t i = 0; i < name.size() && i < lat.size() && i < lon.size(); i++) {
        cairo_text_extents_t ext;
        cairo_text_extents(cr, name[i].c_str(), &ext);
        CpLabel l;
        l.px = floor(cp_mercX(lon[i]) * scale) + 0.5;
        l.py = floor(cp_mercY(lat[i]) * scale) + 0.5;
        l.bx1 = l.px - 4;
        l.by1 = l.py - CP_FONT_SIZE;
        l.bx2 = l.px + 6 + ext.x_advance + 2;
        l.by2 = l.py + 6;
        l.name = name[i];
        int free = 1;
        for (const CpLabel &o : kept) {
            if (l.bx1 < o.bx2 && o.bx1 < l.bx2 && l.by1 < o.by2 && o.by1 < l.by2) {
                free = 0;
                break;
            }
        }
        if (free) kept.push_back(l);
    }
    cairo_destroy(cr);
    cairo_surface_destroy(s);
    return kept;
}

/* Draws the names whose boxes reach into the tile: a dot, and the name to
** its right with a light halo so it reads over land, sea and coastline. */
static void drawLabels(cairo_t *cr, const std::vector<CpLabel> &labels, double ox, double oy) {
    cairo_select_font_face(cr, CP_FONT, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, CP_FONT_SIZE);
    for (const CpLabel &l : labels) {
        if (l.bx2 < ox || l.bx1 > ox + CP_TILE_SIZE || l.by2 < oy || l.by1 > oy + CP_TILE_SIZE) continue;
        double x = l.px - ox, y = l.py - oy;
        cairo_new_path(cr);
        cairo_arc(cr, x, y, 2.0, 0, 2 * kPi);
        cairo_set_source_rgb(cr, 0x3a / 255.0, 0x2e / 255.0, 0x1c / 255.0);
        cairo_fill(cr);
        cairo_move_to(cr, x + 6, y + 4);
        cairo_text_path(cr, l.name.c_str());
        cairo_set_source_rgba(cr, 1, 1, 1, 0.75);
        cairo_set_line_width(cr, 2.5);
        cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
        cairo_stroke_preserve(cr);
        cairo_set_source_rgb(cr, 0x3a / 255.0, 0x2e / 255.0, 0x1c / 255.0);
        cairo_fill(cr);
    }
}

/* Cairo's PNG writer callback: appends to a std::string. */
static cairo_status_t pngToString(void *closure, const unsigned char *data, unsigned int length) {
    ((std::string *)closure)->append((const char *)data, length);
    return CAIRO_STATUS_SUCCESS;
}

int cp_finishTile(cairo_surface_t *s, std::string *png, int *cornerOpaque) {
    cairo_surface_flush(s);
    if (cairo_surface_status(s) != CAIRO_STATUS_SUCCESS) return -1;
    const unsigned char *d = cairo_image_surface_get_data(s);
    int stride = cairo_image_surface_get_stride(s);
    const int last = CP_TILE_SIZE - 1;
    const int corners[4][2] = {{0, 0}, {last, 0}, {0, last}, {last, last}};
    *cornerOpaque = 1;
    for (const auto &c : corners) {
        uint32_t px;
        memcpy(&px, d + c[1] * stride + c[0] * 4, 4);
        if ((px >> 24) != 255) *cornerOpaque = 0;
    }
    /* Cairo itself writes a tile that is opaque all over as an RGB PNG. */
    png->clear();
    return cairo_surface_write_to_png_stream(s, pngToString, png) == CAIRO_STATUS_SUCCESS ? 0 : -1;
}

int cp_drawTile(int z, int y, int x, const std::vector<CpRing> &rings, const CpTileStyle &style,
                std::string *png, int *cornerOpaque) {
    const double scale = (double)(1 << z) * CP_TILE_SIZE; /* unit square to tile pixels */
    const double ox = (double)x * CP_TILE_SIZE, oy = (double)y * CP_TILE_SIZE;
    int rc = -1;

    cairo_surface_t *s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, CP_TILE_SIZE, CP_TILE_SIZE);
    cairo_t *cr = cairo_create(s);

    if (style.hasClip) {
        double cx1 = cp_mercX(style.clip.west) * scale - ox, cx2 = cp_mercX(style.clip.east) * scale - ox;
        double cy1 = cp_mercY(style.clip.north) * scale - oy, cy2 = cp_mercY(style.clip.south) * scale - oy;
        cairo_rectangle(cr, cx1, cy1, cx2 - cx1, cy2 - cy1);
        cairo_clip(cr);
    }

    /* Sea. */
    cairo_set_source_rgb(cr, 0xdd / 255.0, 0xee / 255.0, 0xf8 / 255.0);
    cairo_paint(cr);

    /* Land: every ring in one path, even-odd, so that lakes stay open.
    ** Points closer than a third of a pixel to the last one drawn are
    ** skipped; islands smaller than half a pixel and lakes smaller than a
    ** few pixels are left out, as a chart of that scale would. */
    cairo_new_path(cr);
    for (const CpRing &r : rings) {
        double minSide = r.hole ? 4.0 : 0.5;
        if ((r.x2 - r.x1) * scale < minSide && (r.y2 - r.y1) * scale < minSide) continue;
        double lx = r.xy[0] * scale - ox, ly = r.xy[1] * scale - oy;
        cairo_move_to(cr, lx, ly);
        for (size_t i = 2; i + 1 < r.xy.size(); i += 2) {
            double px = r.xy[i] * scale - ox, py = r.xy[i + 1] * scale - oy;
            if (fabs(px - lx) < 0.33 && fabs(py - ly) < 0.33) continue;
            cairo_line_to(cr, px, py);
            lx = px;
            ly = py;
        }
        cairo_close_path(cr);
    }
    cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
    cairo_set_source_rgb(cr, 0xf4 / 255.0, 0xe4 / 255.0, 0xb0 / 255.0);
    cairo_fill_preserve(cr);
    cairo_set_source_rgb(cr, 0x5b / 255.0, 0x4b / 255.0, 0x2e / 255.0);
    cairo_set_line_width(cr, z >= 8 ? 1.0 : 0.6);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke(cr);

    /* Graticule, on whole pixels plus a half so the hairlines stay sharp. */
    double step = graticuleStep(z);
    double lonW = lonOfX(ox / scale), lonE = lonOfX((ox + CP_TILE_SIZE) / scale);
    double latN = latOfY(oy / scale), latS = latOfY((oy + CP_TILE_SIZE) / scale);
    cairo_set_source_rgba(cr, 0x28 / 255.0, 0x46 / 255.0, 0x6e / 255.0, 0.4);
    cairo_set_line_width(cr, 1.0);
    for (long i = (long)ceil(lonW / step - 1e-9); i * step <= lonE + 1e-9; i++) {
        double px = floor(cp_mercX(i * step) * scale - ox) + 0.5;
        cairo_move_to(cr, px, 0);
        cairo_line_to(cr, px, CP_TILE_SIZE);
    }
    for (long i = (long)ceil(latS / step - 1e-9); i * step <= latN + 1e-9; i++) {
        double py = floor(cp_mercY(i * step) * scale - oy) + 0.5;
        cairo_move_to(cr, 0, py);
        cairo_line_to(cr, CP_TILE_SIZE, py);
    }
    cairo_stroke(cr);

    if (style.labels) drawLabels(cr, *style.labels, ox, oy);

    cairo_destroy(cr);
    rc = cp_finishTile(s, png, cornerOpaque);
    cairo_surface_destroy(s);
    return rc;
}
