/*
** chartkit.h -- shared types of mareplot-chartkit, the program that turns
** charts (raster MBTiles, georeferenced rasters GDAL opens, S-57 ENC cells)
** into chart packs, describes packs, and serves a directory of packs to the
** host's download.
**
** Positions are degrees (longitude, latitude) unless a name says grid units
** (the host's Mercator grid, toMerc in store/pack_store.h) or tile units.
*/
#ifndef MAREPLOT_CHARTKIT_H
#define MAREPLOT_CHARTKIT_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

/* What one input contributes to the pack's chart list and texts. */
struct CkChartInfo {
    std::string number;         /* chartlist "nu": the cell or file name without extension */
    std::string name;           /* chartlist "na" */
    std::string edition;        /* chartlist "ed", "--" when unknown */
    long scale;                 /* chartlist "sc": scale denominator, 0 when unknown */
    std::string depthUnit;      /* chartlist "un": "Meters" or "" */
    std::string soundingDatum;  /* chartlist "sd" */
    double west, south, east, north; /* the data's own bounds, not whole tiles */
    std::vector<double> outline;     /* closed ring as lon, lat pairs; empty: the box */
    std::string credit;         /* one line naming the source, shown in the pack's /info */
};

/* Writes one line "mareplot-chartkit: <file>: <reason>" to stderr. Every
** failure the user can cause is reported through this, once. */
void ck_fail(const char *file, const char *reason);

/* ---- the host's Mercator grid ---- */
/* Grid units of a position in degrees, as the host and the client compute
** them (toMerc); and the way back, for showing a chart list's boxes. */
void ck_grid_of(double lon, double lat, int32_t *x, int32_t *y);
void ck_deg_of_grid(double x, double y, double *lon, double *lat);

/* ---- what a pack holds, as info prints it and serve lists it ---- */
struct CkChartEntry {
    std::string name;            /* "na" */
    long scale;                  /* "sc" */
    double west, south, east, north; /* box in degrees */
};

struct CkPackInfo {
    long id;                     /* from the file name A<id>.marepack, -1 when it has none */
    std::string name;            /* kit name row, else the first chart's name, else the file name */
    long version;                /* the version row, 0 when absent */
    std::vector<long> tilesPerZoom; /* index: zoom */
    std::vector<CkChartEntry> charts;
    long long bytes;
    uint32_t crc32;
};

/* Reads the pack at path: its rows through SQLite, its size and CRC-32 from
** the bytes. Returns 0, or -1 with a short reason (no file name). */
int ck_pack_read(const char *path, CkPackInfo *info, std::string *reason);

/* The JSON object info prints for a pack, one line, no newline. */
std::string ck_pack_json(const CkPackInfo &info);

/* Appends s to out as a JSON string, quotes included. */
void ck_json_string(std::string *out, const std::string &s);

/* The pack id in a file name "A<6 digits>.marepack" (a directory part is
** allowed), or -1 when the name has another form. */
long ck_pack_id_of_name(const char *path);

/* ---- the pack being made ---- */
/* Tiles gathered into the pack file under construction (chartkit_make.cpp). */
struct CkPackWriter;

/* Adds tile z/y/x (rows from the north). cornerValue is 1 when the four
** corner pixels are opaque, 2 when one isn't, 0 when unknown (the PNG is
** then decoded to find out). Where an earlier input left a tile at the same
** place and the new one isn't opaque at its corners, the new one is drawn
** over the old. Returns 0, or -1 with a reason. */
int ck_pack_add_tile(CkPackWriter *w, int z, int y, int x, const std::string &image, int cornerValue,
                     std::string *reason);

/* The zooms --zooms asked for; zmin -1 when none were given. */
struct CkZooms {
    int zmin, zmax;
};

/* Inputs by kind (chartkit_raster.cpp). Each adds its tiles to w and fills
** info. Return the number of tiles added, or -1 with a short reason. */
long ck_mbtiles_add(const char *path, CkZooms zooms, CkPackWriter *w, CkChartInfo *info, std::string *reason);
long ck_raster_add(const char *path, CkZooms zooms, CkPackWriter *w, CkChartInfo *info, std::string *reason);

/* The chart scale denominator of a map whose pixel at the given latitude
** is metres long on the ground (a 0.28 mm screen pixel), rounded to two
** significant digits. */
long ck_scale_of_resolution(double metresPerPixel);

/* The subcommands; argv[0] is the subcommand's name. Return the exit code. */
int ck_make_main(int argc, char **argv);
int ck_serve_main(int argc, char **argv);

/* Appends s to out with <, >, & and " written as HTML entities: names and
** credits from the inputs go into the pack's HTML texts and the kit page. */
void ck_html_text(std::string *out, const std::string &s);

#endif
