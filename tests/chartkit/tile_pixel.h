/*
** tile_pixel.h -- the chart kit tests' look at drawn tiles: which tile and
** pixel show a position, and the colour of a pixel of a PNG tile.
*/
#ifndef MAREPLOT_TEST_TILE_PIXEL_H
#define MAREPLOT_TEST_TILE_PIXEL_H

#include <cairo.h>
#include <math.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "packs/chartpack_render.h"
#include "tools/packcheck.h"

/* A tile and a pixel in it, for a position at zoom z. */
struct TilePixel {
    int x, y, col, row;
};

inline TilePixel tilePixel(double lon, double lat, int z) {
    double side = (double)(1 << z) * CP_TILE_SIZE;
    double px = cp_mercX(lon) * side, py = cp_mercY(lat) * side;
    TilePixel t;
    t.x = (int)floor(px / CP_TILE_SIZE);
    t.y = (int)floor(py / CP_TILE_SIZE);
    t.col = (int)floor(px) - t.x * CP_TILE_SIZE;
    t.row = (int)floor(py) - t.y * CP_TILE_SIZE;
    return t;
}

/* The pixel at col, row of a PNG as 0xAARRGGBB (premultiplied, as Cairo
** holds it; opaque pixels are plain colours). 0 when it can't be read. */
inline uint32_t pngPixel(const std::string &png, int col, int row) {
    cairo_surface_t *s = pc_decodePng(png.data(), png.size());
    uint32_t px = 0;
    if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) {
        cairo_surface_t *img = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, CP_TILE_SIZE, CP_TILE_SIZE);
        cairo_t *cr = cairo_create(img);
        cairo_set_source_surface(cr, s, 0, 0);
        cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
        cairo_paint(cr);
        cairo_destroy(cr);
        cairo_surface_flush(img);
        memcpy(&px, cairo_image_surface_get_data(img) + row * cairo_image_surface_get_stride(img) + col * 4, 4);
        cairo_surface_destroy(img);
    }
    cairo_surface_destroy(s);
    return px;
}

#endif
