/*
** chartkit_raster.cpp -- raster inputs of mareplot-chartkit make.
**
** Raster MBTiles: the tiles are copied byte for byte, their TMS rows
** (counted from the south) turned into the pack's rows from the north.
**
** Any other raster GDAL opens with a georeference: warped tile by tile to
** Web Mercator into a 256 by 256 RGBA image (transparent outside the data)
** and written as PNG. Memory stays at one tile and GDAL's block cache.
** Palette rasters (BSB/KAP) are warped by nearest neighbour and looked up
** afterwards; others bilinearly, which at coarse zooms averages over all
** the source pixels a tile pixel covers.
*/
#include <cpl_conv.h>
#include <cpl_string.h>
#include <cpl_vsi.h>
#include <gdal.h>
#include <gdal_alg.h>
#include <gdalwarper.h>
#include <math.h>
#include <ogr_srs_api.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "tools/chartkit/chartkit.h"

#define RS_TILE 256
/* Half the side of the Web Mercator square, metres. */
#define RS_HALF 20037508.342789244
#define RS_EARTH 6378137.0
#define RS_PI 3.141592653589793

/* The file name without directory and extension. */
static std::string rs_base_name(const char *path) {
    const char *b = strrchr(path, '/');
    std::string s = b ? b + 1 : path;
    size_t dot = s.rfind('.');
    if (dot != std::string::npos && dot > 0) s.resize(dot);
    return s;
}

/* Text with its HTML tags taken out, as attributions often carry links. */
static std::string rs_plain_text(const std::string &html) {
    std::string out;
    int inTag = 0;
    for (char c : html) {
        if (c == '<') inTag = 1;
        else if (c == '>') inTag = 0;
        else if (!inTag && c != '\n' && c != '\r') out.push_back(c);
    }
    return out;
}

static double rs_lon_of_x(double x) { return x / RS_HALF * 180.0; }
static double rs_lat_of_y(double y) { return atan(sinh(y / RS_EARTH)) * 180.0 / RS_PI; }

/* ================= raster MBTiles ================= */

static std::string rs_meta(sqlite3 *db, const char *name) {
    sqlite3_stmt *st = NULL;
    std::string v;
    if (sqlite3_prepare_v2(db, "SELECT value FROM metadata WHERE name=?", -1, &st, NULL) == SQLITE_OK) {
        sqlite3_bind_text(st, 1, name, -1, SQLITE_STATIC);
        if (sqlite3_step(st) == SQLITE_ROW && sqlite3_column_text(st, 0))
            v = (const char *)sqlite3_column_text(st, 0);
    }
    sqlite3_finalize(st);
    return v;
}

/* 1 when SQLite's last failure on db says the file itself is bad. */
static int rs_sqlite_damaged(sqlite3 *db) {
    int e = db ? sqlite3_errcode(db) : SQLITE_NOTADB;
    return e == SQLITE_CORRUPT || e == SQLITE_NOTADB || e == SQLITE_IOERR;
}

long ck_mbtiles_add(const char *path, CkZooms zooms, CkPackWriter *w, CkChartInfo *info, std::string *reason) {
    sqlite3 *db = NULL;
    sqlite3_stmt *st = NULL;
    long added = -1;
    int zmin = 0, zmax = 20, step;
    int tzMax = -1, tx1 = 0, tx2 = 0, ty1 = 0, ty2 = 0; /* tiles present at the finest zoom, XYZ rows */
    double bounds[4];
    std::string format, text;

    if (sqlite3_open_v2(path, &db, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK ||
        sqlite3_prepare_v2(db, "SELECT count(*) FROM metadata", -1, &st, NULL) != SQLITE_OK ||
        sqlite3_step(st) != SQLITE_ROW) {
        *reason = rs_sqlite_damaged(db) ? "the file is damaged or truncated"
                                        : "an SQLite file, but not MBTiles (no metadata table)";
        goto release;
    }
    sqlite3_finalize(st);
    st = NULL;
    format = rs_meta(db, "format");
    if (format == "pbf" || format == "mvt") {
        *reason = "vector MBTiles are not supported, only raster MBTiles";
        goto release;
    }
    if (zooms.zmin >= 0) {
        zmin = zooms.zmin;
        zmax = zooms.zmax;
    }
    if (sqlite3_prepare_v2(db,
                           "SELECT zoom_level, tile_column, tile_row, tile_data FROM tiles"
                           " WHERE zoom_level BETWEEN ? AND ? ORDER BY zoom_level, tile_row DESC, tile_column",
                           -1, &st, NULL) != SQLITE_OK) {
        *reason = rs_sqlite_damaged(db) ? "the file is damaged or truncated"
                                        : "an SQLite file, but not MBTiles (no tiles table)";
        goto release;
    }
    sqlite3_bind_int(st, 1, zmin);
    sqlite3_bind_int(st, 2, zmax);
    added = 0;
    while ((step = sqlite3_step(st)) == SQLITE_ROW) {
        int z = sqlite3_column_int(st, 0), x = sqlite3_column_int(st, 1), row = sqlite3_column_int(st, 2);
        if (z < 0 || z > 20 || x < 0 || row < 0 || x >= (1 << z) || row >= (1 << z)) continue;
        int y = (1 << z) - 1 - row;
        const void *p = sqlite3_column_blob(st, 3);
        std::string image(p ? (const char *)p : "", (size_t)sqlite3_column_bytes(st, 3));
        if (image.empty()) continue;
        if (ck_pack_add_tile(w, z, y, x, image, 0, reason) != 0) {
            added = -1;
            goto release;
        }
        added++;
        if (z > tzMax) {
            tzMax = z;
            tx1 = tx2 = x;
            ty1 = ty2 = y;
        } else {
            tx1 = x < tx1 ? x : tx1;
            tx2 = x > tx2 ? x : tx2;
            ty1 = y < ty1 ? y : ty1;
            ty2 = y > ty2 ? y : ty2;
        }
    }
    if (step != SQLITE_DONE) {
        *reason = "the tiles cannot be read (a damaged or truncated file)";
        added = -1;
        goto release;
    }
    if (added == 0) goto release;

    /* bounds "west,south,east,north"; missing or unusable: from the tiles */
    if (sscanf(rs_meta(db, "bounds").c_str(), "%lf,%lf,%lf,%lf", &bounds[0], &bounds[1], &bounds[2],
               &bounds[3]) == 4 &&
        bounds[0] < bounds[2] && bounds[1] < bounds[3] && bounds[0] >= -180 && bounds[2] <= 180 &&
        bounds[1] >= -90 && bounds[3] <= 90) {
        info->west = bounds[0];
        info->south = bounds[1];
        info->east = bounds[2];
        info->north = bounds[3];
    } else {
        double side = 2 * RS_HALF / (double)(1 << tzMax);
        info->west = rs_lon_of_x(-RS_HALF + tx1 * side);
        info->east = rs_lon_of_x(-RS_HALF + (tx2 + 1) * side);
        info->north = rs_lat_of_y(RS_HALF - ty1 * side);
        info->south = rs_lat_of_y(RS_HALF - (ty2 + 1) * side);
    }
    info->number = rs_base_name(path);
    info->name = rs_meta(db, "name");
    if (info->name.empty()) info->name = info->number;
    info->edition = rs_meta(db, "version");
    {
        /* the scale of the finest zoom at the middle of the chart */
        double lat = (info->north + info->south) / 2 * RS_PI / 180;
        info->scale = ck_scale_of_resolution(2 * RS_HALF / RS_TILE / (double)(1 << tzMax) * cos(lat));
    }
    text = rs_plain_text(rs_meta(db, "attribution"));
    if (text.empty()) text = rs_plain_text(rs_meta(db, "description"));
    info->credit = info->name + " (" + info->number + ".mbtiles)" + (text.empty() ? "" : ": " + text);

release:
    sqlite3_finalize(st);
    sqlite3_close(db);
    return added;
}

/* ================= rasters through GDAL ================= */

/* How the source's bands turn into red, green, blue and alpha. */
enum RsKind { RS_PALETTE, RS_GREY, RS_GREY_ALPHA, RS_RGB, RS_RGBA };

struct RsSource {
    GDALDatasetH ds;
    RsKind kind;
    int bands[3];           /* the source bands warped: 1, or 3 */
    int bandCount;
    int alphaBand;          /* 0 or the source's alpha band */
    GDALDataType warpType;  /* Byte, or Float64 when values are scaled */
    double low, high;       /* value range mapped onto 0..255 for scaled data */
    unsigned char palette[256][4];
    void *transformer;
    double extent[4];       /* minX, minY, maxX, maxY in Web Mercator metres */
    double resolution;      /* metres per source pixel, Web Mercator */
};

static const char *rsMercatorWkt = NULL;

/* The WKT of EPSG:3857, made once. */
static const char *rs_mercator_wkt(void) {
    if (rsMercatorWkt == NULL) {
        OGRSpatialReferenceH srs = OSRNewSpatialReference(NULL);
        char *wkt = NULL;
        if (OSRImportFromEPSG(srs, 3857) == OGRERR_NONE && OSRExportToWkt(srs, &wkt) == OGRERR_NONE)
            rsMercatorWkt = wkt;
        OSRDestroySpatialReference(srs);
    }
    return rsMercatorWkt;
}

/* Sorts out how the bands become colours. Returns 0, or -1 with a reason. */
static int rs_bands(RsSource *s, std::string *reason) {
    int n = GDALGetRasterCount(s->ds);
    if (n < 1) {
        *reason = "the file holds no raster bands";
        return -1;
    }
    GDALRasterBandH b1 = GDALGetRasterBand(s->ds, 1);
    GDALColorTableH ct = GDALGetRasterColorTable(b1);
    GDALRasterBandH last = GDALGetRasterBand(s->ds, n);
    int lastIsAlpha = n > 1 && GDALGetRasterColorInterpretation(last) == GCI_AlphaBand;
    s->alphaBand = 0;
    s->warpType = GDT_Byte;
    s->low = 0;
    s->high = 255;
    if (ct != NULL) {
        s->kind = RS_PALETTE;
        s->bandCount = 1;
        s->bands[0] = 1;
        memset(s->palette, 0, sizeof(s->palette));
        int entries = GDALGetColorEntryCount(ct);
        for (int i = 0; i < entries && i < 256; i++) {
            const GDALColorEntry *e = GDALGetColorEntry(ct, i);
            s->palette[i][0] = (unsigned char)e->c1;
            s->palette[i][1] = (unsigned char)e->c2;
            s->palette[i][2] = (unsigned char)e->c3;
            s->palette[i][3] = (unsigned char)e->c4;
        }
        if (GDALGetRasterDataType(b1) != GDT_Byte) {
            *reason = "palette rasters with more than 256 colours are not supported";
            return -1;
        }
    } else if (n >= 3) {
        s->kind = n >= 4 && lastIsAlpha ? RS_RGBA : RS_RGB;
        s->bandCount = 3;
        for (int i = 0; i < 3; i++) s->bands[i] = i + 1;
        if (s->kind == RS_RGBA) s->alphaBand = n;
    } else {
        s->kind = lastIsAlpha ? RS_GREY_ALPHA : RS_GREY;
        s->bandCount = 1;
        s->bands[0] = 1;
        if (lastIsAlpha) s->alphaBand = n;
    }
    if (s->kind != RS_PALETTE && GDALGetRasterDataType(b1) != GDT_Byte) {
        /* elevations, 16-bit scans and the like: their range onto 0..255 */
        double mm[2];
        s->warpType = GDT_Float64;
        if (GDALComputeRasterMinMax(b1, TRUE, mm) != CE_None) {
            *reason = "the raster data cannot be read (a damaged or truncated file)";
            return -1;
        }
        s->low = mm[0];
        s->high = mm[1] > mm[0] ? mm[1] : mm[0] + 1;
    }
    return 0;
}

/* Looks for the georeference and the Web Mercator extent and resolution.
** Returns 0, or -1 with a reason. */
static int rs_georef(RsSource *s, std::string *reason) {
    double gt[6];
    const char *wkt = GDALGetProjectionRef(s->ds);
    int hasGt = GDALGetGeoTransform(s->ds, gt) == CE_None;
    int hasGcps = GDALGetGCPCount(s->ds) >= 3 && GDALGetGCPProjection(s->ds) && GDALGetGCPProjection(s->ds)[0];
    if (!hasGcps && !(hasGt && wkt && wkt[0])) {
        *reason = "the raster has no georeference";
        return -1;
    }
    if (rs_mercator_wkt() == NULL) {
        *reason = "GDAL knows no Web Mercator (EPSG:3857): its data files are missing";
        return -1;
    }
    char **opts = CSLSetNameValue(NULL, "DST_SRS", rs_mercator_wkt());
    if (!hasGt || !(wkt && wkt[0])) opts = CSLSetNameValue(opts, "METHOD", "GCP_POLYNOMIAL");
    s->transformer = GDALCreateGenImgProjTransformer2(s->ds, NULL, opts);
    CSLDestroy(opts);
    if (s->transformer == NULL) {
        *reason = "the georeference cannot be turned into Web Mercator";
        return -1;
    }
    double outGt[6];
    int pixels = 0, lines = 0;
    if (GDALSuggestedWarpOutput2(s->ds, GDALGenImgProjTransform, s->transformer, outGt, &pixels, &lines,
                                 s->extent, 0) != CE_None ||
        pixels < 1 || lines < 1) {
        *reason = "the raster's area cannot be placed on Web Mercator";
        return -1;
    }
    for (int i = 0; i < 4; i++) {
        if (s->extent[i] < -RS_HALF) s->extent[i] = -RS_HALF;
        if (s->extent[i] > RS_HALF) s->extent[i] = RS_HALF;
    }
    s->resolution = outGt[1];
    if (!(s->extent[0] < s->extent[2] && s->extent[1] < s->extent[3]) || !(s->resolution > 0)) {
        *reason = "the raster's area lies outside Web Mercator";
        return -1;
    }
    return 0;
}

/* The zooms the resolution supports: the finest whose pixel is not much
** smaller than the source's (at least 0.7 of it), and five coarser, never
** below 3. */
static void rs_zooms(const RsSource *s, int *zmin, int *zmax) {
    double z = log2(2 * RS_HALF / RS_TILE / s->resolution);
    int top = (int)floor(z + 0.5);
    if (top > 20) top = 20;
    if (top < 3) top = 3;
    *zmax = top;
    *zmin = top - 5 < 3 ? 3 : top - 5;
}

/* Colours of warped pixel i: the values of the warped bands and alpha. */
static void rs_colour(const RsSource *s, const double *v[3], const unsigned char *alpha, int i,
                      unsigned char *rgba) {
    if (s->kind == RS_PALETTE) {
        int k = (int)v[0][i];
        k = k < 0 ? 0 : k > 255 ? 255 : k;
        memcpy(rgba, s->palette[k], 4);
        rgba[3] = (unsigned char)(rgba[3] * alpha[i] / 255);
        return;
    }
    for (int c = 0; c < 3; c++) {
        double x = v[s->bandCount == 3 ? c : 0][i];
        if (s->warpType != GDT_Byte) x = (x - s->low) * 255.0 / (s->high - s->low);
        rgba[c] = (unsigned char)(x < 0 ? 0 : x > 255 ? 255 : x + 0.5);
    }
    rgba[3] = alpha[i];
}

/* Warps tile z/y/x into rgba (256*256*4). Returns 1 when it holds data,
** 0 when all of it is transparent, -1 when reading the source failed. */
static int rs_warp_tile(RsSource *s, int z, int y, int x, unsigned char *rgba) {
    double side = 2 * RS_HALF / (double)(1 << z);
    double gt[6] = {-RS_HALF + x * side, side / RS_TILE, 0, RS_HALF - y * side, 0, -side / RS_TILE};
    GDALDriverH mem = GDALGetDriverByName("MEM");
    GDALDatasetH dst = GDALCreate(mem, "", RS_TILE, RS_TILE, s->bandCount + 1, GDT_Float64, NULL);
    if (dst == NULL) return -1;
    GDALSetGeoTransform(dst, gt);
    GDALSetProjection(dst, rs_mercator_wkt());
    GDALSetGenImgProjTransformerDstGeoTransform(s->transformer, gt);

    GDALWarpOptions *wo = GDALCreateWarpOptions();
    wo->hSrcDS = s->ds;
    wo->hDstDS = dst;
    wo->nBandCount = s->bandCount;
    wo->panSrcBands = (int *)CPLMalloc(sizeof(int) * s->bandCount);
    wo->panDstBands = (int *)CPLMalloc(sizeof(int) * s->bandCount);
    for (int i = 0; i < s->bandCount; i++) {
        wo->panSrcBands[i] = s->bands[i];
        wo->panDstBands[i] = i + 1;
    }
    wo->nSrcAlphaBand = s->alphaBand;
    wo->nDstAlphaBand = s->bandCount + 1;
    wo->eResampleAlg = s->kind == RS_PALETTE ? GRA_NearestNeighbour : GRA_Bilinear;
    wo->eWorkingDataType = GDT_Float64;
    wo->pfnTransformer = GDALGenImgProjTransform;
    wo->pTransformerArg = s->transformer;
    wo->dfWarpMemoryLimit = 64.0 * 1024 * 1024;
    wo->papszWarpOptions = CSLSetNameValue(NULL, "INIT_DEST", "0");
    int hasNoData = 0;
    GDALGetRasterNoDataValue(GDALGetRasterBand(s->ds, s->bands[0]), &hasNoData);
    if (hasNoData) {
        wo->padfSrcNoDataReal = (double *)CPLMalloc(sizeof(double) * s->bandCount);
        for (int i = 0; i < s->bandCount; i++)
            wo->padfSrcNoDataReal[i] =
                GDALGetRasterNoDataValue(GDALGetRasterBand(s->ds, s->bands[i]), &hasNoData);
        if (s->bandCount == 3) wo->papszWarpOptions = CSLSetNameValue(wo->papszWarpOptions, "UNIFIED_SRC_NODATA", "YES");
    }

    GDALWarpOperationH op = GDALCreateWarpOperation(wo);
    int rc = -1;
    if (op != NULL && GDALChunkAndWarpImage(op, 0, 0, RS_TILE, RS_TILE) == CE_None) {
        std::vector<double> values((size_t)RS_TILE * RS_TILE * (s->bandCount + 1));
        const int n = RS_TILE * RS_TILE;
        if (GDALDatasetRasterIO(dst, GF_Read, 0, 0, RS_TILE, RS_TILE, values.data(), RS_TILE, RS_TILE,
                                GDT_Float64, s->bandCount + 1, NULL, 0, 0, 0) == CE_None) {
            std::vector<unsigned char> alpha((size_t)n);
            const double *a = values.data() + (size_t)n * s->bandCount;
            for (int i = 0; i < n; i++) alpha[i] = (unsigned char)(a[i] < 0 ? 0 : a[i] > 255 ? 255 : a[i] + 0.5);
            const double *v[3];
            for (int c = 0; c < 3; c++) v[c] = values.data() + (size_t)n * (c < s->bandCount ? c : 0);
            for (int i = 0; i < n; i++) rs_colour(s, v, alpha.data(), i, rgba + 4 * i);
            rc = 0;
            for (int i = 0; i < n && !rc; i++) rc = rgba[4 * i + 3] != 0;
        }
    }
    if (op) GDALDestroyWarpOperation(op);
    wo->pTransformerArg = NULL; /* kept for the next tile */
    GDALDestroyWarpOptions(wo);
    GDALClose(dst);
    return rc;
}

/* The RGBA pixels as a PNG through GDAL's PNG writer, in memory. Returns 0,
** or -1. */
static int rs_png(const unsigned char *rgba, std::string *png) {
    static int serial = 0;
    char name[64];
    snprintf(name, sizeof(name), "/vsimem/chartkit_tile_%d.png", serial++);
    GDALDatasetH mem = GDALCreate(GDALGetDriverByName("MEM"), "", RS_TILE, RS_TILE, 4, GDT_Byte, NULL);
    if (mem == NULL) return -1;
    int bandMap[4] = {1, 2, 3, 4};
    int rc = -1;
    if (GDALDatasetRasterIO(mem, GF_Write, 0, 0, RS_TILE, RS_TILE, (void *)rgba, RS_TILE, RS_TILE, GDT_Byte, 4,
                            bandMap, 4, 4 * RS_TILE, 1) == CE_None) {
        GDALDatasetH out = GDALCreateCopy(GDALGetDriverByName("PNG"), name, mem, FALSE, NULL, NULL, NULL);
        if (out != NULL) {
            GDALClose(out);
            vsi_l_offset length = 0;
            GByte *bytes = VSIGetMemFileBuffer(name, &length, FALSE);
            if (bytes != NULL && length > 0) {
                png->assign((const char *)bytes, (size_t)length);
                rc = 0;
            }
        }
    }
    VSIUnlink(name);
    GDALClose(mem);
    return rc;
}

/* Fields of a KAP header that GDAL doesn't hand out: the chart's name,
** number, scale, edition, depth unit, sounding datum and border. */
static void rs_kap_header(const char *path, CkChartInfo *info) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return;
    std::string head;
    int c;
    while (head.size() < 65536 && (c = fgetc(f)) != EOF && c != 0x1A) head.push_back((char)c);
    fclose(f);
    struct {
        const char *record, *field;
        std::string *text;
    } fields[] = {
        {"BSB/", "NA=", &info->name},   {"BSB/", "NU=", &info->number},        {"CED/", "ED=", &info->edition},
        {"KNP/", "UN=", &info->depthUnit}, {"KNP/", "SD=", &info->soundingDatum},
    };
    std::string scale;
    for (size_t line = 0; line < head.size();) {
        size_t end = head.find('\n', line);
        if (end == std::string::npos) end = head.size();
        std::string l = head.substr(line, end - line);
        while (!l.empty() && (l.back() == '\r' || l.back() == ' ')) l.pop_back();
        for (auto &fd : fields) {
            if (l.compare(0, 4, fd.record) != 0) continue;
            size_t at = l.find(fd.field);
            if (at == std::string::npos || (at > 4 && l[at - 1] != ',' && l[at - 1] != '/')) continue;
            size_t from = at + strlen(fd.field), to = l.find(',', from);
            std::string v = l.substr(from, to == std::string::npos ? std::string::npos : to - from);
            if (!v.empty()) *fd.text = v;
        }
        double lat, lon;
        int point;
        if (sscanf(l.c_str(), "PLY/%d,%lf,%lf", &point, &lat, &lon) == 3) {
            info->outline.push_back(lon); /* the chart's border, lon, lat pairs */
            info->outline.push_back(lat);
        }
        if (l.compare(0, 4, "KNP/") == 0) {
            size_t at = l.find("SC=");
            if (at != std::string::npos) info->scale = strtol(l.c_str() + at + 3, NULL, 10);
        }
        line = end + 1;
    }
    if (info->depthUnit == "METERS" || info->depthUnit == "METRES") info->depthUnit = "Meters";
}

/* A credit line from the raster's own metadata, where it names a source. */
static std::string rs_credit(GDALDatasetH ds, const char *path) {
    static const char *keys[] = {"TIFFTAG_COPYRIGHT", "COPYRIGHT", "NC_GLOBAL#source", "NC_GLOBAL#title",
                                 "NC_GLOBAL#history", "TIFFTAG_IMAGEDESCRIPTION"};
    std::string file = strrchr(path, '/') ? strrchr(path, '/') + 1 : path;
    std::string line = file + " (" + GDALGetDriverLongName(GDALGetDatasetDriver(ds)) + ")";
    for (const char *k : keys) {
        const char *v = GDALGetMetadataItem(ds, k, NULL);
        if (v && v[0]) return line + ": " + rs_plain_text(v);
    }
    return line;
}

long ck_raster_add(const char *path, CkZooms zooms, CkPackWriter *w, CkChartInfo *info, std::string *reason) {
    RsSource s;
    memset(&s, 0, sizeof(s));
    long added = -1;
    int zmin, zmax;
    std::vector<unsigned char> rgba((size_t)RS_TILE * RS_TILE * 4);

    s.ds = GDALOpenEx(path, GDAL_OF_RASTER | GDAL_OF_READONLY, NULL, NULL, NULL);
    if (s.ds == NULL) {
        *reason = "not a chart format this program reads (no raster GDAL opens, nor MBTiles or S-57)";
        return -1;
    }
    if (rs_bands(&s, reason) != 0 || rs_georef(&s, reason) != 0) goto release;
    rs_zooms(&s, &zmin, &zmax);
    if (zooms.zmin >= 0) {
        zmin = zooms.zmin;
        zmax = zooms.zmax;
    }

    info->number = rs_base_name(path);
    info->name = info->number;
    info->west = rs_lon_of_x(s.extent[0]);
    info->east = rs_lon_of_x(s.extent[2]);
    info->south = rs_lat_of_y(s.extent[1]);
    info->north = rs_lat_of_y(s.extent[3]);
    {
        double lat = (info->north + info->south) / 2 * RS_PI / 180;
        info->scale = ck_scale_of_resolution(s.resolution * cos(lat));
    }
    if (strcmp(GDALGetDriverShortName(GDALGetDatasetDriver(s.ds)), "BSB") == 0) rs_kap_header(path, info);
    info->credit = rs_credit(s.ds, path);

    added = 0;
    for (int z = zmin; z <= zmax; z++) {
        double side = 2 * RS_HALF / (double)(1 << z);
        int last = (1 << z) - 1;
        int x1 = (int)floor((s.extent[0] + RS_HALF) / side), x2 = (int)ceil((s.extent[2] + RS_HALF) / side) - 1;
        int y1 = (int)floor((RS_HALF - s.extent[3]) / side), y2 = (int)ceil((RS_HALF - s.extent[1]) / side) - 1;
        x1 = x1 < 0 ? 0 : x1;
        y1 = y1 < 0 ? 0 : y1;
        x2 = x2 > last ? last : x2;
        y2 = y2 > last ? last : y2;
        for (int y = y1; y <= y2; y++)
            for (int x = x1; x <= x2; x++) {
                int got = rs_warp_tile(&s, z, y, x, rgba.data());
                if (got < 0) {
                    *reason = "the raster data cannot be read (a damaged or truncated file)";
                    added = -1;
                    goto release;
                }
                if (got == 0) continue;
                std::string png;
                if (rs_png(rgba.data(), &png) != 0) {
                    *reason = "a tile cannot be written as PNG";
                    added = -1;
                    goto release;
                }
                int opaque = 1;
                const int corners[4] = {0, RS_TILE - 1, RS_TILE * (RS_TILE - 1), RS_TILE * RS_TILE - 1};
                for (int k : corners)
                    if (rgba[4 * k + 3] != 255) opaque = 0;
                if (ck_pack_add_tile(w, z, y, x, png, opaque ? 1 : 2, reason) != 0) {
                    added = -1;
                    goto release;
                }
                added++;
            }
    }

release:
    if (s.transformer) GDALDestroyGenImgProjTransformer(s.transformer);
    GDALClose(s.ds);
    return added;
}
