/*
** chartkit_s57.h -- S-57 ENC cells for mareplot-chartkit: a base cell (.000)
** read through GDAL's S57 driver with its update files (.001, .002, ...)
** applied, and drawn as 256 by 256 chart tiles with Cairo in a day palette
** whose colours and pens stand in one style table.
*/
#ifndef MAREPLOT_CHARTKIT_S57_H
#define MAREPLOT_CHARTKIT_S57_H

#include <string>

#include "tools/chartkit/chartkit.h"

struct CkS57Cell;

/* Opens the cell at path with its updates applied. Returns NULL when the
** file can't be read, isn't an S-57 cell or holds no features; the reason
** (one short phrase, no file name) then goes into *reason. */
CkS57Cell *ck_s57_open(const char *path, std::string *reason);

void ck_s57_close(CkS57Cell *cell);

/* The cell's chart list entry: its name, edition, compilation scale,
** units, bounds of its data and coverage outline, and a credit line. */
void ck_s57_info(const CkS57Cell *cell, CkChartInfo *info);

/* The zooms the compilation scale supports, coarsest first. */
void ck_s57_zooms(const CkS57Cell *cell, int *zmin, int *zmax);

/* Draws tile z/y/x (rows from the north) as a PNG into *png and sets
** *cornerOpaque to 1 when its four corner pixels are opaque. Returns 0,
** 1 when the tile holds nothing of the cell (no PNG), -1 when drawing
** failed. Safe to call from one thread at a time per cell. */
int ck_s57_draw_tile(CkS57Cell *cell, int z, int y, int x, std::string *png, int *cornerOpaque);

#endif
