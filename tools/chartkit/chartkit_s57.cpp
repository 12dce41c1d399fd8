/*
** chartkit_s57.cpp -- S-57 ENC cells for mareplot-chartkit (see
** chartkit_s57.h). Not yet able to read cells: every open is refused.
*/
#include "tools/chartkit/chartkit_s57.h"

struct CkS57Cell {
    int unused;
};

CkS57Cell *ck_s57_open(const char *path, std::string *reason) {
    *reason = "S-57 cells are not supported yet";
    return NULL;
}

void ck_s57_close(CkS57Cell *cell) { delete cell; }

void ck_s57_info(const CkS57Cell *cell, CkChartInfo *info) {}

void ck_s57_zooms(const CkS57Cell *cell, int *zmin, int *zmax) { *zmin = *zmax = 0; }

int ck_s57_draw_tile(CkS57Cell *cell, int z, int y, int x, std::string *png, int *cornerOpaque) { return -1; }
