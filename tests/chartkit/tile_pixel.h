/* tile_pixel.h -- which tile and pixel show a position, and the colour of a pixel of a PNG tile. */
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

/* Pixel col, row of a PNG as 0xAARRGGBB (premultiplied, as Cairo holds it), or 0 when unreadable. */
inline uint32_t pngPixel(const std::string &png, int col, int row) {
    cairo_surface_t *s = pc_decodePng(png.data(), png.size());
    uint32_t px = 0;
    if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) {
        memcpy(&px, cairo_image_surface_get_data(s) + row * cairo_image_surface_get_stride(s) + col * 4, 4);
        if (cairo_image_surface_get_format(s) == CAIRO_FORMAT_RGB24) px |= 0xff000000u; /* no alpha kept */
    }
    cairo_surface_destroy(s);
    return px;
}

#endif
