/*
** packcheck.h -- checks a pack file against the format the host and the
** client rely on: file header properties, schema statements, kvt rows, and
** for a chart pack the tile availability documents, the chart list, tide
** rows and gazetteer rows.
*/
#ifndef MAREPLOT_PACKCHECK_H
#define MAREPLOT_PACKCHECK_H

#include <cairo.h>

#include <stddef.h>

#include <string>
#include <vector>

struct PcReport {
    int chartPack = 0;                 /* 1 when the file has a tiles table */
    long tiles = 0, tideRows = 0, gazRows = 0, kvRows = 0;
    std::vector<std::string> problems; /* one line each, empty when the pack is good */
};

/* Checks the pack at path. Returns 0 when it passes, 1 when problems were
** found (listed in the report), -1 when the file can't be opened as SQLite. */
int pc_checkFile(const char *path, PcReport *report);

/* Corner rule of the availability document: 1 when the four corner pixels
** of the PNG are opaque, 2 when one of them isn't, 0 when the bytes are not
** a PNG that can be decoded. */
int pc_cornerValue(const void *png, int length);

/* Decodes length bytes of PNG held in memory. Returns a surface the caller
** destroys; its status is not CAIRO_STATUS_SUCCESS when the bytes are not
** a PNG that can be decoded. */
cairo_surface_t *pc_decodePng(const void *png, size_t length);

#endif
