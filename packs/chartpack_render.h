/*
** chartpack_render.h -- land geometry and tile drawing of the base chart
** pack: the OpenStreetMap land polygons read from GeoJSON into the unit
** Mercator square, cut down the tile pyramid, and drawn with Cairo as
** 256 by 256 tiles in the manner of a paper chart.
**
** Unit Mercator square: x 0 at longitude -180 to 1 at 180, y 0 at the top
** (85.0511 N) to 1 at the bottom; a tile z/y/x covers 1/2^z of each side.
*/
#ifndef MAREPLOT_CHARTPACK_RENDER_H
#define MAREPLOT_CHARTPACK_RENDER_H

#include <cairo.h>
#include <stdint.h>

#include <string>
#include <vector>

#define CP_TILE_SIZE 256

/* One closed ring as x, y pairs in the unit square, first point not
** repeated at the end. */
struct CpRing {
    std::vector<double> xy;
    double x1, y1, x2, y2; /* bounding box */
    int hole;              /* 1 for an inner ring: a lake in the land */
};

/* A box in degrees. */
struct CpGeoBox {
    double west, east, south, north;
};

/* Unit Mercator position of a longitude and a latitude in degrees; the
** latitude is held inside the square's own limits. */
double cp_mercX(double lon);
double cp_mercY(double lat);

/* Reads every Polygon and MultiPolygon ring of a GeoJSON file. Returns the
** number of rings read, or -1 when the file can't be read or isn't GeoJSON
** coordinates as expected. Rings with fewer than three points are dropped. */
long cp_loadLand(const char *path, std::vector<CpRing> *rings);

/* Clips ring `in` to the box x1..x2, y1..y2 (Sutherland-Hodgman). The
** result may run along the box's edges; it fills the same area inside the
** box. Returns the number of points of `out`, 0 when nothing is left. */
int cp_clipRing(const CpRing &in, double x1, double y1, double x2, double y2, CpRing *out);

/* Tile rows or columns at zoom z that a box touches. */
void cp_tileRange(const CpGeoBox &box, int z, int *x1, int *y1, int *x2, int *y2);

/* A place name placed on one zoom level: position and the box its dot and
** text take, in pixels of the whole level (tile x * 256 + column). */
struct CpLabel {
    double px, py;
    double bx1, by1, bx2, by2;
    std::string name;
};

/* Places names of one zoom level, most important first: a name whose box
** would overlap one already placed is left out. `lat`, `lon` and `name`
** hold the candidates in order of importance. Returns the labels kept. */
std::vector<CpLabel> cp_placeLabels(int z, const std::vector<double> &lat, const std::vector<double> &lon,
                                    const std::vector<std::string> &name);

/* How a tile is drawn. `clip` limits the painted area to a box (the area a
** chart covers); outside it the tile stays transparent. */
struct CpTileStyle {
    int hasClip;
    CpGeoBox clip;
    const std::vector<CpLabel> *labels; /* names of this zoom, or NULL */
};

/* Draws tile z/y/x from rings already cut to (at least) its padded box into
** a PNG. Sets *cornerOpaque to 1 when the four corner pixels have alpha
** 255. Returns 0, or -1 when Cairo failed. */
int cp_drawTile(int z, int y, int x, const std::vector<CpRing> &rings, const CpTileStyle &style,
                std::string *png, int *cornerOpaque);

/* Finishes a tile drawn on a 256 by 256 ARGB surface: sets *cornerOpaque
** to 1 when its four corner pixels have alpha 255 (else 0) and writes the
** surface into *png. Returns 0, or -1 when Cairo failed. */
int cp_finishTile(cairo_surface_t *s, std::string *png, int *cornerOpaque);

/* The padding around a tile, in tile pixels, that rings are cut to: wider
** than the coastline's pen, so the cut edges never show. */
#define CP_TILE_PAD 4.0

#endif
