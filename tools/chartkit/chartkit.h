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

#endif
