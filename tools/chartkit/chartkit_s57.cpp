/*
** chartkit_s57.cpp -- S-57 ENC cells for mareplot-chartkit (see
** chartkit_s57.h). A cell is read once, through GDAL's OGR S57 driver with
** its update files applied, into plain records on the unit Mercator square
** of the base chart renderer; every tile then draws only the records whose
** boxes reach into it. Colours and sizes come from ck_s57Style.
*/
#include "tools/chartkit/chartkit_s57.h"

#include <cairo.h>
#include <algorithm>
#include <unordered_map>
#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>
#include <math.h>
#include <ogr_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "packs/chartpack_render.h"
#include "tools/chartkit/chartkit_s57_style.h"

static const double kPi = 3.141592653589793;

/* What a feature is drawn as. The order is the drawing order. */
enum {
    S57_DEPTH,     /* depth area: filled by its depth band */
    S57_DREDGED,   /* dredged area: filled by its depth band, dashed edge */
    S57_INLAND,    /* lake: inland water */
    S57_LAND,      /* land area */
    S57_BUILTUP,   /* built-up area */
    S57_RIVER,     /* river: an area of inland water or a line */
    S57_CONTOUR,   /* depth contour */
    S57_COAST,     /* coastline */
    S57_SHORE,     /* shoreline construction */
    S57_SOUNDING,  /* soundings: points with a depth each */
    S57_LIGHT,     /* light: a flare */
    S57_BEACON,    /* beacon: a small upright body in its colours */
    S57_BUOY       /* buoy: a small round body in its colours */
};

/* The object classes read from a cell, and how each is drawn. */
static const struct {
    const char *layer;
    int kind;
} s57_classes[] = {
    {"DEPARE", S57_DEPTH},   {"DRGARE", S57_DREDGED}, {"LAKARE", S57_INLAND}, {"LNDARE", S57_LAND},
    {"BUAARE", S57_BUILTUP}, {"RIVERS", S57_RIVER},   {"DEPCNT", S57_CONTOUR}, {"COALNE", S57_COAST},
    {"SLCONS", S57_SHORE},   {"SOUNDG", S57_SOUNDING}, {"LIGHTS", S57_LIGHT},  {"BCNLAT", S57_BEACON},
    {"BCNCAR", S57_BEACON},  {"BCNISD", S57_BEACON},  {"BCNSAW", S57_BEACON}, {"BCNSPP", S57_BEACON},
    {"BOYLAT", S57_BUOY},    {"BOYCAR", S57_BUOY},    {"BOYISD", S57_BUOY},   {"BOYSAW", S57_BUOY},
    {"BOYSPP", S57_BUOY},    {"BOYINB", S57_BUOY},
};

/* Sounding datum codes (SDAT) as their names. */
static const char *const s57_datums[] = {
    "",
    "Mean low water springs",
    "Mean lower low water springs",
    "Mean Sea Level",
    "Lowest low water",
    "Mean low water",
    "Lowest low water springs",
    "Approximate mean low water springs",
    "Indian spring low water",
    "Low water springs",
    "Approximate lowest astronomical tide",
    "Nearly lowest low water",
    "Mean lower low water",
    "Low water",
    "Approximate mean low water",
    "Approximate mean lower low water",
    "Mean high water",
    "Mean high water springs",
    "High water",
    "Approximate mean sea level",
    "High water springs",
    "Mean higher high water",
    "Equinoctial spring low water",
    "Lowest Astronomical Tide",
    "Local datum",
    "International Great Lakes Datum 1985",
    "Mean water level",
    "Lower low water large tide",
    "Higher high water large tide",
    "Nearly highest high water",
    "Highest astronomical tide",
};

#define S57_MAX_COLOURS 4

/* One feature on the unit Mercator square (x 0..1 west to east, y 0..1
** north to south). `parts` are rings (areas), lines, or for points one
** list of positions; `depth` holds a sounding's depth per position. */
struct S57Feature {
    int kind;
    int prim; /* 1 point, 2 line, 3 area */
    std::vector<std::vector<double>> parts;
    std::vector<double> depth;
    double x1, y1, x2, y2;
    double drval1, drval2; /* metres; drval2 NAN when not given */
    double scamin;         /* shown only at this scale denominator or larger scales; NAN: always */
    int colour[S57_MAX_COLOURS];
    int colours;
};

/* One sounding on the unit square, depth in metres (negative: drying). */
struct S57Sounding {
    double x, y, depth;
    double scamin;
};

struct CkS57Cell {
    std::vector<S57Feature> features; /* in drawing order, soundings apart */
    std::vector<S57Sounding> soundings; /* shallowest first */
    std::vector<std::vector<unsigned char>> soundingShown; /* per zoom, made when first drawn */
    std::vector<S57Feature> cover;    /* coverage areas: outside them tiles stay clear */
    double cx1, cy1, cx2, cy2;        /* box of the coverage on the unit square */
    CkChartInfo info;
    int zmin, zmax;
    double groundZ0; /* metres per pixel at zoom 0 at the cell's middle latitude */
};

/* ---- reading ---- */

/* Degree bounds gathered while reading. */
struct S57Bounds {
    double west, south, east, north;
    int any;
};

static void s57_boundsAdd(S57Bounds *b, double lon, double lat) {
    if (!b->any) {
        b->west = b->east = lon;
        b->south = b->north = lat;
        b->any = 1;
        return;
    }
    if (lon < b->west) b->west = lon;
    if (lon > b->east) b->east = lon;
    if (lat < b->south) b->south = lat;
    if (lat > b->north) b->north = lat;
}

/* Appends the points of a simple geometry (point, line string or ring) to
** a new part of f, on the unit square, and to the bounds. A sounding's
** depth comes from the third coordinate. */
static void s57_addPart(OGRGeometryH g, S57Feature *f, S57Bounds *b, int withDepth) {
    int n = OGR_G_GetPointCount(g);
    if (n <= 0) return;
    std::vector<double> xy;
    xy.reserve((size_t)n * 2);
    for (int i = 0; i < n; i++) {
        double lon = OGR_G_GetX(g, i), lat = OGR_G_GetY(g, i);
        if (!isfinite(lon) || !isfinite(lat) || lon < -180 || lon > 180 || lat < -90 || lat > 90) continue;
        xy.push_back(cp_mercX(lon));
        xy.push_back(cp_mercY(lat));
        s57_boundsAdd(b, lon, lat);
        if (withDepth) f->depth.push_back(OGR_G_GetZ(g, i));
    }
    if (!xy.empty()) f->parts.push_back(std::move(xy));
}

/* Walks a geometry down to its simple pieces. Soundings arrive as a
** multipoint whose members each carry a depth; they gather in one part. */
static void s57_addGeometry(OGRGeometryH g, S57Feature *f, S57Bounds *b) {
    OGRwkbGeometryType t = wkbFlatten(OGR_G_GetGeometryType(g));
    switch (t) {
    case wkbPoint:
        f->prim = 1;
        s57_addPart(g, f, b, f->kind == S57_SOUNDING);
        if (f->parts.size() > 1) { /* several points of one feature: one list */
            f->parts[0].insert(f->parts[0].end(), f->parts.back().begin(), f->parts.back().end());
            f->parts.pop_back();
        }
        break;
    case wkbLineString:
        f->prim = 2;
        s57_addPart(g, f, b, 0);
        break;
    case wkbPolygon:
        f->prim = 3;
        for (int i = 0; i < OGR_G_GetGeometryCount(g); i++) s57_addPart(OGR_G_GetGeometryRef(g, i), f, b, 0);
        break;
    case wkbMultiPoint:
    case wkbMultiLineString:
    case wkbMultiPolygon:
    case wkbGeometryCollection:
        for (int i = 0; i < OGR_G_GetGeometryCount(g); i++) s57_addGeometry(OGR_G_GetGeometryRef(g, i), f, b);
        break;
    default:
        break;
    }
}

static void s57_box(S57Feature *f) {
    f->x1 = f->y1 = 1e300;
    f->x2 = f->y2 = -1e300;
    for (const std::vector<double> &p : f->parts) {
        for (size_t i = 0; i + 1 < p.size(); i += 2) {
            if (p[i] < f->x1) f->x1 = p[i];
            if (p[i] > f->x2) f->x2 = p[i];
            if (p[i + 1] < f->y1) f->y1 = p[i + 1];
            if (p[i + 1] > f->y2) f->y2 = p[i + 1];
        }
    }
}

/* A real attribute of the feature, or NAN when it isn't set. */
static double s57_real(OGRFeatureH h, const char *name) {
    int i = OGR_F_GetFieldIndex(h, name);
    if (i < 0 || !OGR_F_IsFieldSetAndNotNull(h, i)) return NAN;
    return OGR_F_GetFieldAsDouble(h, i);
}

/* The COLOUR attribute: a list of codes (the driver gives a string list,
** older cells a comma-separated text). */
static void s57_colours(OGRFeatureH h, S57Feature *f) {
    f->colours = 0;
    int i = OGR_F_GetFieldIndex(h, "COLOUR");
    if (i < 0 || !OGR_F_IsFieldSetAndNotNull(h, i)) return;
    std::string text;
    if (OGR_Fld_GetType(OGR_F_GetFieldDefnRef(h, i)) == OFTStringList) {
        char **list = OGR_F_GetFieldAsStringList(h, i);
        for (int k = 0; list && list[k]; k++) {
            if (k) text += ',';
            text += list[k];
        }
    } else {
        text = OGR_F_GetFieldAsString(h, i);
    }
    const char *p = text.c_str();
    while (*p && f->colours < S57_MAX_COLOURS) {
        char *end;
        long c = strtol(p, &end, 10);
        if (end == p) break;
        f->colour[f->colours++] = c > 0 && c < CK_S57_COLOURS ? (int)c : 0;
        p = end;
        while (*p == ',' || *p == ' ') p++;
    }
}

/* Reads every feature of one layer into the cell. Coverage areas of the
** data (CATCOV 1) go to cell->cover and their largest ring to *outline. */
static void s57_readLayer(OGRLayerH layer, int kind, int isCover, CkS57Cell *cell, S57Bounds *b,
                          std::vector<double> *outline, double *outlineSize) {
    OGR_L_ResetReading(layer);
    OGRFeatureH h;
    while ((h = OGR_L_GetNextFeature(layer)) != NULL) {
        OGRGeometryH g = OGR_F_GetGeometryRef(h);
        if (g == NULL || (isCover && s57_real(h, "CATCOV") != 1)) {
            OGR_F_Destroy(h);
            continue;
        }
        S57Feature f;
        f.kind = kind;
        f.prim = 0;
        f.drval1 = s57_real(h, "DRVAL1");
        f.drval2 = s57_real(h, "DRVAL2");
        f.scamin = s57_real(h, "SCAMIN");
        s57_colours(h, &f);
        s57_addGeometry(g, &f, b);
        if (!f.parts.empty()) {
            s57_box(&f);
            if (isCover) {
                /* The outline in the chart list: the biggest coverage ring, in degrees. */
                double size = (f.x2 - f.x1) * (f.y2 - f.y1);
                OGRGeometryH ring = NULL;
                OGRwkbGeometryType t = wkbFlatten(OGR_G_GetGeometryType(g));
                if (t == wkbPolygon) ring = OGR_G_GetGeometryRef(g, 0);
                if (t == wkbMultiPolygon && OGR_G_GetGeometryCount(g) > 0)
                    ring = OGR_G_GetGeometryRef(OGR_G_GetGeometryRef(g, 0), 0);
                if (ring != NULL && size > *outlineSize) {
                    *outlineSize = size;
                    outline->clear();
                    for (int i = 0; i < OGR_G_GetPointCount(ring); i++) {
                        outline->push_back(OGR_G_GetX(ring, i));
                        outline->push_back(OGR_G_GetY(ring, i));
                    }
                }
                cell->cover.push_back(std::move(f));
            } else {
                cell->features.push_back(std::move(f));
            }
        }
        OGR_F_Destroy(h);
    }
}

static std::string s57_text(OGRFeatureH h, const char *name) {
    int i = OGR_F_GetFieldIndex(h, name);
    if (i < 0 || !OGR_F_IsFieldSetAndNotNull(h, i)) return "";
    return OGR_F_GetFieldAsString(h, i);
}

/* The producing agency's name for its code, from GDAL's own table of
** agencies; "" when the table or the code isn't found. */
static std::string s57_agencyName(long code) {
    const char *path = CPLFindFile("gdal", "s57agencies.csv");
    if (path == NULL) return "";
    FILE *f = fopen(path, "r");
    if (f == NULL) return "";
    char line[512];
    std::string name;
    while (fgets(line, sizeof(line), f) != NULL) {
        /* id,token,code,name (the name may hold commas) */
        char *c1 = strchr(line, ',');
        char *c2 = c1 ? strchr(c1 + 1, ',') : NULL;
        char *c3 = c2 ? strchr(c2 + 1, ',') : NULL;
        if (c3 == NULL || atol(c2 + 1) != code) continue;
        name = c3 + 1;
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        break;
    }
    fclose(f);
    return name;
}

/* Fills the chart list entry from the cell's DSID record. */
static void s57_readDsid(GDALDatasetH ds, const char *path, CkChartInfo *info) {
    std::string dsnm, edtn, updn, isdt;
    long agen = 0, sdat = 0, duni = 0;
    info->scale = 0;
    OGRLayerH l = GDALDatasetGetLayerByName(ds, "DSID");
    OGRFeatureH h = l ? OGR_L_GetNextFeature(l) : NULL;
    if (h != NULL) {
        dsnm = s57_text(h, "DSID_DSNM");
        edtn = s57_text(h, "DSID_EDTN");
        updn = s57_text(h, "DSID_UPDN");
        isdt = s57_text(h, "DSID_ISDT");
        agen = atol(s57_text(h, "DSID_AGEN").c_str());
        info->scale = atol(s57_text(h, "DSPM_CSCL").c_str());
        sdat = atol(s57_text(h, "DSPM_SDAT").c_str());
        duni = atol(s57_text(h, "DSPM_DUNI").c_str());
        OGR_F_Destroy(h);
    }
    if (dsnm.empty()) dsnm = CPLGetFilename(path);
    size_t dot = dsnm.rfind('.');
    info->number = dot == std::string::npos ? dsnm : dsnm.substr(0, dot);
    /* A cell carries no title of its own (DSID's comment is free text
    ** about the file), so the chart is named by its cell number. */
    info->name = info->number;
    if (info->scale < 0) info->scale = 0;

    info->edition = "--";
    if (!edtn.empty()) {
        info->edition = "Edition " + edtn;
        if (!updn.empty() && updn != "0") info->edition += ", update " + updn;
        if (isdt.size() == 8) /* YYYYMMDD as the chart list's dd/mm/yyyy */
            info->edition += ", " + isdt.substr(6, 2) + "/" + isdt.substr(4, 2) + "/" + isdt.substr(0, 4);
    }
    info->depthUnit = duni == 1 ? "Meters" : "";
    info->soundingDatum = sdat > 0 && sdat < (long)(sizeof(s57_datums) / sizeof(s57_datums[0])) ? s57_datums[sdat] : "";

    std::string agency = s57_agencyName(agen);
    char code[32];
    snprintf(code, sizeof(code), "%ld", agen);
    info->credit = "ENC by " + (agency.empty() ? "" : agency + " ") + "(producer code " + code + ")";
}

/* Screen pixels are taken as 0.28 mm: a zoom's scale denominator is its
** ground size of a pixel divided by that. */
#define S57_PIXEL_METRES 0.00028

/* The scale denominator of zoom z at the cell's middle latitude. */
static double s57_scaleAt(const CkS57Cell *cell, int z) {
    return cell->groundZ0 / (double)(1 << z) / S57_PIXEL_METRES;
}

/* Whether a feature with this SCAMIN shows at zoom z. */
static int s57_shownAt(const CkS57Cell *cell, double scamin, int z) {
    return isnan(scamin) || scamin <= 0 || s57_scaleAt(cell, z) <= scamin * 1.01;
}

/* The zooms whose scale suits the compilation scale: the finest is the one
** whose scale at the cell's middle latitude comes nearest to it, and four
** coarser ones, never below zoom 3. */
static void s57_pickZooms(CkS57Cell *cell) {
    const CkChartInfo &in = cell->info;
    double scale = in.scale > 0 ? (double)in.scale : 50000.0;
    double lat = (in.north + in.south) * 0.5 * kPi / 180.0;
    cell->groundZ0 = cos(lat) * 2 * kPi * 6378137.0 / CP_TILE_SIZE;
    double z = log2(cell->groundZ0 / (scale * S57_PIXEL_METRES));
    int zmax = (int)floor(z + 0.5);
    if (zmax < 3) zmax = 3;
    if (zmax > 20) zmax = 20;
    cell->zmax = zmax;
    cell->zmin = zmax - 4 < 3 ? 3 : zmax - 4;
}

/* Whether a file that GDAL refused still begins as a cell does: an
** ISO 8211 leader (five digits of record length, leader mark 'L' at
** offset 6) whose descriptive record names the DSID field. Such a file
** was cut short or damaged rather than being something else. */
static int s57_looksLikeCell(const char *path) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return 0;
    char head[4096];
    size_t n = fread(head, 1, sizeof(head), f);
    fclose(f);
    if (n < 24 || head[6] != 'L') return 0;
    for (int i = 0; i < 5; i++)
        if (head[i] < '0' || head[i] > '9') return 0;
    for (size_t i = 24; i + 4 <= n; i++)
        if (memcmp(head + i, "DSID", 4) == 0) return 1;
    return 0;
}

/* GDAL's messages while a cell is read: none reaches the user, and the
** failures among them (a record cut short, a field that can't be read)
** are counted, since the driver goes on and returns what it could read. */
static void CPL_STDCALL s57_countFailures(CPLErr level, CPLErrorNum, const char *) {
    if (level >= CE_Failure) (*(int *)CPLGetErrorHandlerUserData())++;
}

/* Opens the cell with its updates through the S57 driver alone. On
** failure tells why in *reason: updates that don't fit the cell (the
** driver then refuses the cell itself), a cell cut short, or no cell. */
static GDALDatasetH s57_openDataset(const char *path, std::string *reason) {
    const char *const drivers[] = {"S57", NULL};
    const char *const options[] = {"UPDATES=APPLY", "SPLIT_MULTIPOINT=OFF", "ADD_SOUNDG_DEPTH=OFF",
                                   "RETURN_PRIMITIVES=OFF", "RETURN_LINKAGES=OFF", "RECODE_BY_DSSI=ON", NULL};
    GDALDatasetH ds = GDALOpenEx(path, GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers, options, NULL);
    if (ds != NULL) return ds;
    const char *const noUpdates[] = {"UPDATES=IGNORE", NULL};
    GDALDatasetH base = GDALOpenEx(path, GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers, noUpdates, NULL);
    if (base != NULL) {
        *reason = "its update files don't apply to the cell";
        GDALClose(base);
    } else {
        *reason = s57_looksLikeCell(path) ? "the cell is truncated or damaged" : "not an S-57 cell";
    }
    return NULL;
}

/* Reads the drawn classes, the coverage and the DSID record into the
** cell. Returns the number of features of all classes in the cell. */
static long s57_readFeatures(GDALDatasetH ds, const char *path, CkS57Cell *cell, S57Bounds *b) {
    long total = 0;
    for (int i = 0; i < GDALDatasetGetLayerCount(ds); i++) {
        OGRLayerH l = GDALDatasetGetLayer(ds, i);
        if (strcmp(OGR_L_GetName(l), "DSID") != 0) total += (long)OGR_L_GetFeatureCount(l, TRUE);
    }
    double outlineSize = -1;
    for (const auto &c : s57_classes) {
        OGRLayerH l = GDALDatasetGetLayerByName(ds, c.layer);
        if (l != NULL) s57_readLayer(l, c.kind, 0, cell, b, &cell->info.outline, &outlineSize);
    }
    OGRLayerH cover = GDALDatasetGetLayerByName(ds, "M_COVR");
    if (cover != NULL) s57_readLayer(cover, S57_LAND, 1, cell, b, &cell->info.outline, &outlineSize);
    s57_readDsid(ds, path, &cell->info);
    return total;
}

/* Puts the features in drawing order (by kind, the cell's order within a
** kind), takes the soundings apart (each zoom thins them on its own),
** settles the coverage, the bounds and the zooms. */
static void s57_arrange(CkS57Cell *cell, const S57Bounds &b) {
    std::stable_sort(cell->features.begin(), cell->features.end(),
                     [](const S57Feature &a, const S57Feature &c) { return a.kind < c.kind; });
    for (const S57Feature &f : cell->features) {
        if (f.kind != S57_SOUNDING) continue;
        const std::vector<double> &p = f.parts[0];
        for (size_t i = 0; i + 1 < p.size() && i / 2 < f.depth.size(); i += 2)
            cell->soundings.push_back({p[i], p[i + 1], f.depth[i / 2], f.scamin});
    }
    cell->features.erase(std::remove_if(cell->features.begin(), cell->features.end(),
                                        [](const S57Feature &f) { return f.kind == S57_SOUNDING; }),
                         cell->features.end());
    std::stable_sort(cell->soundings.begin(), cell->soundings.end(),
                     [](const S57Sounding &a, const S57Sounding &c) { return a.depth < c.depth; });
    cell->soundingShown.resize(31);

    CkChartInfo &in = cell->info;
    in.west = b.west;
    in.south = b.south;
    in.east = b.east;
    in.north = b.north;
    if (cell->cover.empty()) {
        /* No coverage record: the data's box stands for it. */
        S57Feature f;
        f.kind = S57_LAND;
        f.prim = 3;
        f.parts.push_back({cp_mercX(b.west), cp_mercY(b.north), cp_mercX(b.east), cp_mercY(b.north),
                           cp_mercX(b.east), cp_mercY(b.south), cp_mercX(b.west), cp_mercY(b.south)});
        s57_box(&f);
        cell->cover.push_back(std::move(f));
    }
    cell->cx1 = cell->cy1 = 1e300;
    cell->cx2 = cell->cy2 = -1e300;
    for (const S57Feature &f : cell->cover) {
        cell->cx1 = fmin(cell->cx1, f.x1);
        cell->cy1 = fmin(cell->cy1, f.y1);
        cell->cx2 = fmax(cell->cx2, f.x2);
        cell->cy2 = fmax(cell->cy2, f.y2);
    }
    s57_pickZooms(cell);
}

CkS57Cell *ck_s57_open(const char *path, std::string *reason) {
    static int registered = 0;
    if (!registered) {
        GDALAllRegister();
        registered = 1;
    }
    FILE *probe = fopen(path, "rb");
    if (probe == NULL) {
        *reason = "cannot read the file";
        return NULL;
    }
    fclose(probe);

    CkS57Cell *cell = NULL;
    S57Bounds b = {0, 0, 0, 0, 0};
    long total = 0;
    int failures = 0;
    CPLPushErrorHandlerEx(s57_countFailures, &failures);
    GDALDatasetH ds = s57_openDataset(path, reason);
    if (ds != NULL) {
        cell = new CkS57Cell();
        total = s57_readFeatures(ds, path, cell, &b);
        GDALClose(ds);
    }
    CPLPopErrorHandler();
    if (cell == NULL) return NULL;

    if (failures > 0) {
        *reason = "the cell is truncated or damaged";
        goto fail;
    }
    if (total == 0 || !b.any) {
        *reason = "the cell holds no features";
        goto fail;
    }
    s57_arrange(cell, b);
    return cell;

fail:
    delete cell;
    return NULL;
}

void ck_s57_close(CkS57Cell *cell) { delete cell; }

void ck_s57_info(const CkS57Cell *cell, CkChartInfo *info) { *info = cell->info; }

void ck_s57_zooms(const CkS57Cell *cell, int *zmin, int *zmax) {
    *zmin = cell->zmin;
    *zmax = cell->zmax;
}

/* ---- drawing ---- */

/* One tile's frame: unit square to tile pixels. */
struct S57Frame {
    double scale, ox, oy;
};

static void s57_source(cairo_t *cr, const CkS57Pen &p) { cairo_set_source_rgba(cr, p.r, p.g, p.b, p.a); }

/* Adds the parts of f to the current path; points closer than a third of
** a pixel to the last one drawn are skipped. Rings are closed. */
static void s57_path(cairo_t *cr, const S57Feature &f, const S57Frame &fr, int close) {
    for (const std::vector<double> &p : f.parts) {
        if (p.size() < 4) continue;
        double lx = p[0] * fr.scale - fr.ox, ly = p[1] * fr.scale - fr.oy;
        cairo_move_to(cr, lx, ly);
        for (size_t i = 2; i + 1 < p.size(); i += 2) {
            double px = p[i] * fr.scale - fr.ox, py = p[i + 1] * fr.scale - fr.oy;
            if (fabs(px - lx) < 0.33 && fabs(py - ly) < 0.33) continue;
            cairo_line_to(cr, px, py);
            lx = px;
            ly = py;
        }
        if (close) cairo_close_path(cr);
    }
}

static void s57_fill(cairo_t *cr, const S57Feature &f, const S57Frame &fr, const CkS57Pen &pen) {
    cairo_new_path(cr);
    s57_path(cr, f, fr, 1);
    s57_source(cr, pen);
    cairo_fill(cr);
}

static void s57_stroke(cairo_t *cr, const S57Feature &f, const S57Frame &fr, const CkS57Pen &pen, int close) {
    cairo_new_path(cr);
    s57_path(cr, f, fr, close);
    s57_source(cr, pen);
    cairo_set_line_width(cr, pen.width);
    cairo_stroke(cr);
}

/* The depth band of an area from its depth range: drying when either
** limit lies above the datum, else by the shallow limit. */
static int s57_depthBand(double drval1, double drval2) {
    const CkS57Style &s = ck_s57Style;
    if ((!isnan(drval1) && drval1 < 0) || (!isnan(drval2) && drval2 <= 0)) return 0;
    double d = isnan(drval1) ? 0 : drval1;
    for (int i = CK_S57_DEPTH_BANDS - 1; i > 0; i--)
        if (d >= s.depthFrom[i]) return i;
    return 1;
}

static const CkS57Pen &s57_colour(int code) {
    return code > 0 && code < CK_S57_COLOURS ? ck_s57Style.colour[code] : ck_s57Style.unknownColour;
}

/* Fills the rectangle-bounded current clip with the feature's colours as
** horizontal bands from top to bottom, as buoys and beacons are painted. */
static void s57_bands(cairo_t *cr, const S57Feature &f, double x, double y, double w, double h) {
    if (f.colours == 0) {
        s57_source(cr, ck_s57Style.unknownColour);
        cairo_rectangle(cr, x, y, w, h);
        cairo_fill(cr);
        return;
    }
    for (int i = 0; i < f.colours; i++) {
        s57_source(cr, s57_colour(f.colour[i]));
        cairo_rectangle(cr, x, y + h * i / f.colours, w, h / f.colours);
        cairo_fill(cr);
    }
}

static void s57_drawBuoy(cairo_t *cr, const S57Feature &f, double px, double py) {
    const CkS57Style &s = ck_s57Style;
    double r = s.buoyRadius;
    cairo_save(cr);
    cairo_new_path(cr);
    cairo_arc(cr, px, py, r, 0, 2 * kPi);
    cairo_clip(cr);
    s57_bands(cr, f, px - r, py - r, 2 * r, 2 * r);
    cairo_restore(cr);
    cairo_new_path(cr);
    cairo_arc(cr, px, py, r, 0, 2 * kPi);
    s57_source(cr, s.symbolEdge);
    cairo_set_line_width(cr, s.symbolEdge.width);
    cairo_stroke(cr);
}

static void s57_drawBeacon(cairo_t *cr, const S57Feature &f, double px, double py) {
    const CkS57Style &s = ck_s57Style;
    double w = s.beaconWidth, h = s.beaconHeight;
    s57_bands(cr, f, px - w / 2, py - h, w, h);
    cairo_new_path(cr);
    cairo_rectangle(cr, px - w / 2, py - h, w, h);
    cairo_move_to(cr, px - w * 1.5, py);
    cairo_line_to(cr, px + w * 1.5, py);
    s57_source(cr, s.symbolEdge);
    cairo_set_line_width(cr, s.symbolEdge.width);
    cairo_stroke(cr);
}

/* A light's flare: a narrow drop from the light towards the south-east,
** in the light's first colour; white and uncoloured lights are magenta. */
static void s57_drawLight(cairo_t *cr, const S57Feature &f, double px, double py) {
    const CkS57Style &s = ck_s57Style;
    int c = f.colours > 0 ? f.colour[0] : 0;
    const CkS57Pen &pen = c == 0 || c == 1 ? s.lightDefault : s57_colour(c);
    double len = s.flareLength, w = s.flareWidth * 0.5;
    cairo_save(cr);
    cairo_translate(cr, px, py);
    cairo_rotate(cr, kPi / 4);
    cairo_new_path(cr);
    cairo_move_to(cr, 2, 0);
    cairo_curve_to(cr, len * 0.35, -w, len * 0.8, -w * 0.7, len, 0);
    cairo_curve_to(cr, len * 0.8, w * 0.7, len * 0.35, w, 2, 0);
    cairo_set_source_rgba(cr, pen.r, pen.g, pen.b, s.lightDefault.a);
    cairo_fill_preserve(cr);
    s57_source(cr, s.symbolEdge);
    cairo_set_line_width(cr, 0.5);
    cairo_stroke(cr);
    cairo_restore(cr);
}

/* A sounding's figure: whole metres, and under the style's limit the
** tenths as a smaller, lowered digit, as charts write them (none when
** they are 0); drying heights are underlined. Centred on the position. */
static void s57_drawSounding(cairo_t *cr, double depth, double px, double py) {
    const CkS57Style &s = ck_s57Style;
    double d = fabs(depth);
    long whole = (long)floor(d), tenths = 0;
    if (d < s.soundingDecimalsBelow) {
        long t = lround(d * 10);
        whole = t / 10;
        tenths = t % 10;
    }
    char text[24], tenth[4] = "";
    snprintf(text, sizeof(text), "%ld", whole);
    if (tenths > 0) snprintf(tenth, sizeof(tenth), "%ld", tenths);
    const double small = s.soundingSize * 0.75;

    cairo_text_extents_t ext, sub = {};
    cairo_text_extents(cr, text, &ext);
    if (tenth[0]) {
        cairo_set_font_size(cr, small);
        cairo_text_extents(cr, tenth, &sub);
        cairo_set_font_size(cr, s.soundingSize);
    }
    double width = ext.x_advance + sub.x_advance;
    double x = px - width / 2, y = py + ext.height / 2;
    s57_source(cr, s.sounding);
    cairo_move_to(cr, x, y);
    cairo_show_text(cr, text);
    if (tenth[0]) {
        cairo_set_font_size(cr, small);
        cairo_move_to(cr, x + ext.x_advance, y + small * 0.3);
        cairo_show_text(cr, tenth);
        cairo_set_font_size(cr, s.soundingSize);
    }
    if (depth < 0) {
        cairo_new_path(cr);
        cairo_move_to(cr, x, y + 1.5);
        cairo_line_to(cr, x + width, y + 1.5);
        cairo_set_line_width(cr, 0.6);
        cairo_stroke(cr);
    }
}

/* Which soundings zoom z shows: of those its scale admits (SCAMIN),
** shallowest first, each one whose figure would not crowd one kept. Decided once for the whole level, so
** a figure across a tile edge is drawn, or left out, on both tiles. */
static const std::vector<unsigned char> &s57_soundingsShown(CkS57Cell *cell, int z) {
    std::vector<unsigned char> &shown = cell->soundingShown[z];
    if (shown.size() == cell->soundings.size()) return shown;
    const CkS57Style &s = ck_s57Style;
    const double scale = (double)(1 << z) * CP_TILE_SIZE;
    const double w = s.soundingSize * 2.4, h = s.soundingSize * 1.4; /* room a figure needs */
    std::unordered_map<long long, std::vector<size_t>> grid; /* kept figures by w-sized cell */
    shown.assign(cell->soundings.size(), 0);
    for (size_t i = 0; i < cell->soundings.size(); i++) {
        if (!s57_shownAt(cell, cell->soundings[i].scamin, z)) continue;
        double px = cell->soundings[i].x * scale, py = cell->soundings[i].y * scale;
        long long gx = (long long)floor(px / w), gy = (long long)floor(py / w);
        int free = 1;
        for (long long dx = -1; dx <= 1 && free; dx++)
            for (long long dy = -1; dy <= 1 && free; dy++) {
                auto it = grid.find(((gx + dx) << 32) ^ (gy + dy));
                if (it == grid.end()) continue;
                for (size_t k : it->second) {
                    const S57Sounding &o = cell->soundings[k];
                    if (fabs(o.x * scale - px) < w && fabs(o.y * scale - py) < h) {
                        free = 0;
                        break;
                    }
                }
            }
        if (!free) continue;
        shown[i] = 1;
        grid[(gx << 32) ^ gy].push_back(i);
    }
    return shown;
}

/* Draws the soundings of the tile's level that reach into it. They show
** only on the finest zooms, where the figures have room. */
static void s57_drawSoundings(cairo_t *cr, CkS57Cell *cell, const S57Frame &fr, int z) {
    const CkS57Style &s = ck_s57Style;
    if (z < cell->zmax - s.soundingMinZoomBelowMax || z >= (int)cell->soundingShown.size()) return;
    const std::vector<unsigned char> &shown = s57_soundingsShown(cell, z);
    for (size_t i = 0; i < cell->soundings.size(); i++) {
        const S57Sounding &d = cell->soundings[i];
        double px = d.x * fr.scale - fr.ox, py = d.y * fr.scale - fr.oy;
        if (!shown[i] || px < -s.margin || py < -s.margin || px > CP_TILE_SIZE + s.margin ||
            py > CP_TILE_SIZE + s.margin)
            continue;
        s57_drawSounding(cr, d.depth, px, py);
    }
}

/* Draws one feature that reaches into the tile. */
static void s57_drawFeature(cairo_t *cr, const S57Feature &f, const S57Frame &fr) {
    const CkS57Style &s = ck_s57Style;
    if (f.prim == 1) {
        const std::vector<double> &p = f.parts[0];
        for (size_t i = 0; i + 1 < p.size(); i += 2) {
            double px = p[i] * fr.scale - fr.ox, py = p[i + 1] * fr.scale - fr.oy;
            if (px < -s.margin || py < -s.margin || px > CP_TILE_SIZE + s.margin || py > CP_TILE_SIZE + s.margin)
                continue;
            switch (f.kind) {
            case S57_LIGHT: s57_drawLight(cr, f, px, py); break;
            case S57_BUOY: s57_drawBuoy(cr, f, px, py); break;
            case S57_BEACON: s57_drawBeacon(cr, f, px, py); break;
            case S57_LAND: /* a rock or islet given as a point */
                cairo_new_path(cr);
                cairo_arc(cr, px, py, 1.5, 0, 2 * kPi);
                s57_source(cr, s.coastline);
                cairo_fill(cr);
                break;
            default: break;
            }
        }
        return;
    }
    if (f.prim == 3) {
        switch (f.kind) {
        case S57_DEPTH: s57_fill(cr, f, fr, s.depthBand[s57_depthBand(f.drval1, f.drval2)]); break;
        case S57_DREDGED:
            s57_fill(cr, f, fr, s.depthBand[s57_depthBand(f.drval1, f.drval2)]);
            cairo_set_dash(cr, &s.dredgedDash, 1, 0);
            s57_stroke(cr, f, fr, s.dredgedEdge, 1);
            cairo_set_dash(cr, NULL, 0, 0);
            break;
        case S57_INLAND:
        case S57_RIVER: s57_fill(cr, f, fr, s.inlandWater); break;
        case S57_LAND: s57_fill(cr, f, fr, s.land); break;
        case S57_BUILTUP: s57_fill(cr, f, fr, s.builtUp); break;
        case S57_SHORE:
            s57_fill(cr, f, fr, s.land);
            s57_stroke(cr, f, fr, s.shoreline, 1);
            break;
        default: break;
        }
        return;
    }
    switch (f.kind) {
    case S57_CONTOUR: s57_stroke(cr, f, fr, s.contour, 0); break;
    case S57_RIVER: s57_stroke(cr, f, fr, s.river, 0); break;
    case S57_LAND:
    case S57_COAST: s57_stroke(cr, f, fr, s.coastline, 0); break;
    case S57_SHORE: s57_stroke(cr, f, fr, s.shoreline, 0); break;
    default: break;
    }
}

/* Reads the drawn tile: 1 when no pixel shows anything, else its corner
** flag and PNG and 0; -1 when Cairo failed. */
static int s57_finishTile(cairo_surface_t *surface, std::string *png, int *cornerOpaque) {
    cairo_surface_flush(surface);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) return -1;
    const unsigned char *d = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    int any = 0;
    for (int row = 0; row < CP_TILE_SIZE && !any; row++) {
        const uint32_t *line = (const uint32_t *)(d + row * stride); /* Cairo's rows are 4-byte aligned */
        for (int col = 0; col < CP_TILE_SIZE && !any; col++) any = (line[col] >> 24) != 0;
    }
    if (!any) return 1;
    return cp_finishTile(surface, png, cornerOpaque);
}

int ck_s57_draw_tile(CkS57Cell *cell, int z, int y, int x, std::string *png, int *cornerOpaque) {
    const CkS57Style &s = ck_s57Style;
    *cornerOpaque = 0;
    if (z < 0 || z > 30 || x < 0 || y < 0 || x >= (1 << z) || y >= (1 << z)) return -1;
    S57Frame fr;
    fr.scale = (double)(1 << z) * CP_TILE_SIZE;
    fr.ox = (double)x * CP_TILE_SIZE;
    fr.oy = (double)y * CP_TILE_SIZE;

    /* The tile's box on the unit square, and with the margin that symbols
    ** and figures of features just outside may still reach across. */
    double tx1 = fr.ox / fr.scale, ty1 = fr.oy / fr.scale;
    double tx2 = (fr.ox + CP_TILE_SIZE) / fr.scale, ty2 = (fr.oy + CP_TILE_SIZE) / fr.scale;
    if (cell->cx2 <= tx1 || cell->cx1 >= tx2 || cell->cy2 <= ty1 || cell->cy1 >= ty2) return 1;
    double m = s.margin / fr.scale;
    double mx1 = tx1 - m, my1 = ty1 - m, mx2 = tx2 + m, my2 = ty2 + m;

    cairo_surface_t *surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, CP_TILE_SIZE, CP_TILE_SIZE);
    cairo_t *cr = cairo_create(surface);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_select_font_face(cr, s.soundingFont, CAIRO_FONT_SLANT_ITALIC, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, s.soundingSize);

    /* Outside the coverage the tile stays clear. */
    cairo_new_path(cr);
    for (const S57Feature &f : cell->cover)
        if (!(f.x2 < mx1 || f.x1 > mx2 || f.y2 < my1 || f.y1 > my2)) s57_path(cr, f, fr, 1);
    cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
    cairo_clip(cr);
    s57_source(cr, s.water);
    cairo_paint(cr);

    /* Areas and lines, the soundings, then the symbols over them. */
    int soundingsDrawn = 0;
    for (const S57Feature &f : cell->features) {
        if (!soundingsDrawn && f.kind > S57_SOUNDING) {
            s57_drawSoundings(cr, cell, fr, z);
            soundingsDrawn = 1;
        }
        if (f.x2 < mx1 || f.x1 > mx2 || f.y2 < my1 || f.y1 > my2 || !s57_shownAt(cell, f.scamin, z)) continue;
        s57_drawFeature(cr, f, fr);
    }
    if (!soundingsDrawn) s57_drawSoundings(cr, cell, fr, z);
    cairo_destroy(cr);

    int rc = s57_finishTile(surface, png, cornerOpaque);
    cairo_surface_destroy(surface);
    return rc;
}
