/*
** chartkit_make.cpp -- mareplot-chartkit make: one chart pack from one or
** more inputs. Tiles go straight into the pack file under construction (a
** temporary file beside --out), so memory stays bounded by one tile plus
** the map of tile keys; the documents follow once all tiles are in, then
** the file is rebuilt in key order (VACUUM) and renamed into place.
**
** The file depends on nothing but the inputs and the options: no times,
** rows in key order, and the version is a CRC over what the pack holds,
** so the same inputs give a byte-identical file.
*/
#include <cairo.h>
#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>
#include <errno.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "store/pack_store.h"
#include "packs/chartpack_render.h"
#include "tools/chartkit/chartkit.h"
#include "tools/chartkit/chartkit_s57.h"
#include "tools/packcheck.h"

struct CkPackWriter {
    sqlite3 *db;
    sqlite3_stmt *put;             /* INSERT OR REPLACE INTO tiles */
    sqlite3_stmt *get;             /* SELECT png FROM tiles WHERE zyx=? */
    std::map<int64_t, int> corner; /* zyx -> 1 or 2, every tile so far */
};

static int64_t make_key(int z, int y, int x) {
    return (int64_t)z * 1099511627776LL + (int64_t)y * 1048576LL + (int64_t)x;
}

static int make_exec(sqlite3 *db, const char *sql) {
    return sqlite3_exec(db, sql, NULL, NULL, NULL) == SQLITE_OK ? 0 : -1;
}

/* ---- drawing a tile over another ---- */

static cairo_status_t make_png_write(void *closure, const unsigned char *data, unsigned int length) {
    ((std::string *)closure)->append((const char *)data, length);
    return CAIRO_STATUS_SUCCESS;
}

/* Draws top over bottom into *out (a PNG). Returns 0, or -1 when either
** can't be decoded, as a JPEG tile can't. */
static int make_composite(const std::string &bottom, const std::string &top, std::string *out) {
    cairo_surface_t *b = pc_decodePng(bottom.data(), bottom.size());
    cairo_surface_t *t = pc_decodePng(top.data(), top.size());
    int rc = -1;
    if (cairo_surface_status(b) == CAIRO_STATUS_SUCCESS && cairo_surface_status(t) == CAIRO_STATUS_SUCCESS) {
        cairo_surface_t *s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, CP_TILE_SIZE, CP_TILE_SIZE);
        cairo_t *cr = cairo_create(s);
        cairo_set_source_surface(cr, b, 0, 0);
        cairo_paint(cr);
        cairo_set_source_surface(cr, t, 0, 0);
        cairo_paint(cr);
        cairo_destroy(cr);
        out->clear();
        if (cairo_surface_write_to_png_stream(s, make_png_write, out) == CAIRO_STATUS_SUCCESS) rc = 0;
        cairo_surface_destroy(s);
    }
    cairo_surface_destroy(b);
    cairo_surface_destroy(t);
    return rc;
}

/* 1 when the bytes are a JPEG: no alpha, so opaque everywhere. */
static int make_is_jpeg(const std::string &image) {
    return image.size() > 3 && (unsigned char)image[0] == 0xFF && (unsigned char)image[1] == 0xD8 &&
           (unsigned char)image[2] == 0xFF;
}

int ck_pack_add_tile(CkPackWriter *w, int z, int y, int x, const std::string &image, int cornerValue,
                     std::string *reason) {
    if (z < 0 || z > 20 || y < 0 || x < 0 || y >= (1 << z) || x >= (1 << z)) {
        *reason = "a tile lies outside the tile grid";
        return -1;
    }
    if (cornerValue == 0) cornerValue = make_is_jpeg(image) ? 1 : pc_cornerValue(image.data(), (int)image.size());
    if (cornerValue == 0) {
        *reason = "a tile is neither a PNG nor a JPEG image";
        return -1;
    }
    int64_t key = make_key(z, y, x);
    std::string merged;
    const std::string *store = &image;
    auto old = w->corner.find(key);
    if (old != w->corner.end() && cornerValue == 2) {
        std::string bottom;
        sqlite3_bind_int64(w->get, 1, key);
        if (sqlite3_step(w->get) == SQLITE_ROW)
            bottom.assign((const char *)sqlite3_column_blob(w->get, 0), (size_t)sqlite3_column_bytes(w->get, 0));
        sqlite3_reset(w->get);
        if (make_composite(bottom, image, &merged) == 0) {
            store = &merged;
            cornerValue = pc_cornerValue(merged.data(), (int)merged.size());
        }
    }
    sqlite3_bind_int64(w->put, 1, key);
    sqlite3_bind_blob(w->put, 2, store->data(), (int)store->size(), SQLITE_STATIC);
    int rc = sqlite3_step(w->put);
    sqlite3_reset(w->put);
    if (rc != SQLITE_DONE) {
        *reason = std::string("cannot write the pack: ") + sqlite3_errmsg(w->db);
        return -1;
    }
    w->corner[key] = cornerValue;
    return 0;
}

long ck_scale_of_resolution(double metresPerPixel) {
    double sc = metresPerPixel / 0.00028;
    if (!(sc >= 1)) return 1;
    double unit = 1;
    while (sc / unit >= 100) unit *= 10;
    return (long)((long long)(sc / unit + 0.5) * (long long)unit);
}

/* ---- S-57 cells: drawn tile by tile over the zooms of their scale ---- */

static long make_s57_add(const char *path, CkZooms zooms, CkPackWriter *w, CkChartInfo *info,
                         std::string *reason) {
    CkS57Cell *cell = ck_s57_open(path, reason);
    if (cell == NULL) return -1;
    ck_s57_info(cell, info);
    int zmin, zmax;
    ck_s57_zooms(cell, &zmin, &zmax);
    if (zooms.zmin >= 0) {
        zmin = zooms.zmin;
        zmax = zooms.zmax;
    }
    CpGeoBox box = {info->west, info->east, info->south, info->north};
    long added = 0;
    for (int z = zmin; z <= zmax && added >= 0; z++) {
        int x1, y1, x2, y2;
        cp_tileRange(box, z, &x1, &y1, &x2, &y2);
        for (int y = y1; y <= y2 && added >= 0; y++)
            for (int x = x1; x <= x2 && added >= 0; x++) {
                std::string png;
                int opaque = 0;
                int rc = ck_s57_draw_tile(cell, z, y, x, &png, &opaque);
                if (rc == 1) continue;
                if (rc != 0) {
                    *reason = "drawing the cell failed";
                    added = -1;
                } else if (ck_pack_add_tile(w, z, y, x, png, opaque ? 1 : 2, reason) != 0) {
                    added = -1;
                } else {
                    added++;
                }
            }
    }
    ck_s57_close(cell);
    return added;
}

/* ---- the documents ---- */

static void make_grid_clamped(double lon, double lat, int32_t *x, int32_t *y) {
    const double maxLat = 85.05112878;
    if (lat > maxLat) lat = maxLat;
    if (lat < -maxLat) lat = -maxLat;
    if (lon < -180) lon = -180;
    if (lon > 180) lon = 180;
    ck_grid_of(lon, lat, x, y);
}

static std::string make_chartlist(const std::vector<CkChartInfo> &charts) {
    std::string j = "[";
    for (size_t i = 0; i < charts.size(); i++) {
        const CkChartInfo &c = charts[i];
        int32_t x1, y1, x2, y2;
        make_grid_clamped(c.west, c.north, &x1, &y1);
        make_grid_clamped(c.east, c.south, &x2, &y2);
        std::vector<double> ring = c.outline;
        if (ring.size() >= 4 && ring[0] == ring[ring.size() - 2] && ring[1] == ring[ring.size() - 1])
            ring.resize(ring.size() - 2); /* the outline closes implicitly */
        if (ring.size() < 6) ring = {c.west, c.north, c.east, c.north, c.east, c.south, c.west, c.south};
        std::vector<int32_t> po;
        for (size_t k = 0; k + 1 < ring.size(); k += 2) {
            int32_t px, py;
            make_grid_clamped(ring[k], ring[k + 1], &px, &py);
            po.push_back(px);
            po.push_back(py);
            /* the box holds the whole outline, whose corners may lie a little
            ** outside the warped extent */
            x1 = px < x1 ? px : x1;
            x2 = px > x2 ? px : x2;
            y1 = py < y1 ? py : y1;
            y2 = py > y2 ? py : y2;
        }
        if (x2 <= x1) x2 = x1 + 1; /* a box never collapses to a line */
        if (y2 <= y1) y2 = y1 + 1;
        if (i) j += ",";
        j += "{\"nu\":";
        ck_json_string(&j, c.number);
        j += ",\"na\":";
        ck_json_string(&j, c.name);
        j += ",\"ed\":";
        ck_json_string(&j, c.edition.empty() ? std::string("--") : c.edition);
        j += ",\"sc\":" + std::to_string(c.scale) + ",\"un\":";
        ck_json_string(&j, c.depthUnit);
        j += ",\"sd\":";
        ck_json_string(&j, c.soundingDatum);
        j += ",\"x1\":" + std::to_string(x1) + ",\"y1\":" + std::to_string(y1) + ",\"x2\":" + std::to_string(x2) +
             ",\"y2\":" + std::to_string(y2) + ",\"po\":[";
        for (size_t k = 0; k < po.size(); k++) {
            if (k) j += ",";
            j += std::to_string(po[k]);
        }
        j += "]}";
    }
    return j + "]";
}

static std::string make_info_html(const std::string &kitName, const std::vector<CkChartInfo> &charts) {
    std::string h = "<h3>";
    ck_html_text(&h, kitName);
    h += "</h3>\n<p>Charts and their sources:</p>\n<ul>\n";
    for (const CkChartInfo &c : charts) {
        h += "<li>";
        ck_html_text(&h, c.name);
        h += ": ";
        ck_html_text(&h, c.credit);
        h += "</li>\n";
    }
    return h + "</ul>\n";
}

static std::string make_history_html(const std::string &kitName, const std::vector<CkChartInfo> &charts,
                                     long version) {
    std::string h = "<p>";
    ck_html_text(&h, kitName);
    h += ", version " + std::to_string(version) + ", made with mareplot-chartkit from " +
         std::to_string(charts.size()) + (charts.size() == 1 ? " source" : " sources") + ":</p>\n<ul>\n";
    for (const CkChartInfo &c : charts) {
        h += "<li>";
        ck_html_text(&h, c.credit);
        h += "</li>\n";
    }
    return h + "</ul>\n";
}

/* The tile documents: avtiles2 with the corner values, avtiles with true. */
static void make_avtiles(const CkPackWriter *w, std::string *av, std::string *av2) {
    *av = "{";
    *av2 = "{";
    for (const auto &t : w->corner) {
        std::string key = "\"" + std::to_string(t.first) + "\":";
        if (av->size() > 1) {
            av->push_back(',');
            av2->push_back(',');
        }
        *av += key + "true";
        *av2 += key + (t.second == 1 ? "1" : "2");
    }
    av->push_back('}');
    av2->push_back('}');
}

/* A CRC over the tiles in key order and the documents that describe them,
** as a decimal below 2^31 and above 0. */
static long make_version(sqlite3 *db, const std::string &kitName, const std::string &chartlist) {
    uint32_t crc = 0xFFFFFFFFu;
    crc = ucrc32(crc, kitName.data(), (int)kitName.size());
    crc = ucrc32(crc, chartlist.data(), (int)chartlist.size());
    sqlite3_stmt *st = NULL;
    if (sqlite3_prepare_v2(db, "SELECT zyx, png FROM tiles ORDER BY zyx", -1, &st, NULL) == SQLITE_OK) {
        while (sqlite3_step(st) == SQLITE_ROW) {
            int64_t key = sqlite3_column_int64(st, 0);
            unsigned char k[8];
            for (int i = 0; i < 8; i++) k[i] = (unsigned char)(key >> (8 * i));
            crc = ucrc32(crc, k, 8);
            crc = ucrc32(crc, sqlite3_column_blob(st, 1), sqlite3_column_bytes(st, 1));
        }
    }
    sqlite3_finalize(st);
    long v = (long)(~crc & 0x7FFFFFFFu);
    return v == 0 ? 1 : v;
}

static int make_put_row(sqlite3 *db, const char *key, const std::string &value, int type) {
    return kv_put_blob(db, key, value.data(), (int)value.size(), type);
}

/* ---- the command ---- */

/* The temporary file, removed when the program is stopped by a signal. */
static char makeTmpPath[4096];

static void make_on_signal(int sig) {
    if (makeTmpPath[0]) unlink(makeTmpPath);
    signal(sig, SIG_DFL);
    raise(sig);
}

struct MakeOptions {
    long id;
    const char *name;
    const char *out;
    CkZooms zooms;
    std::vector<const char *> inputs;
};

/* Returns 0, or -1 after reporting the bad option. */
static int make_options(int argc, char **argv, MakeOptions *o) {
    o->id = -1;
    o->name = NULL;
    o->out = NULL;
    o->zooms.zmin = o->zooms.zmax = -1;
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i];
        if (strncmp(a, "--", 2) != 0) {
            o->inputs.push_back(a);
            continue;
        }
        if (i + 1 >= argc) {
            ck_fail(a, "missing value");
            return -1;
        }
        const char *v = argv[++i];
        char *end;
        if (!strcmp(a, "--id")) {
            o->id = strtol(v, &end, 10);
            if (*v == 0 || *end != 0 || o->id < 3 || o->id > 999999) {
                ck_fail(v, "--id takes a pack id from 3 to 999999");
                return -1;
            }
        } else if (!strcmp(a, "--name")) {
            o->name = v;
        } else if (!strcmp(a, "--out")) {
            o->out = v;
        } else if (!strcmp(a, "--zooms")) {
            int a1, b1, n = 0;
            if (sscanf(v, "%d-%d%n", &a1, &b1, &n) != 2 || v[n] != 0 || a1 < 0 || b1 < a1 || b1 > 20) {
                ck_fail(v, "--zooms takes A-B with 0 <= A <= B <= 20");
                return -1;
            }
            o->zooms.zmin = a1;
            o->zooms.zmax = b1;
        } else {
            ck_fail(a, "unknown switch");
            return -1;
        }
    }
    if (o->id < 0 || o->name == NULL || o->out == NULL || o->inputs.empty()) {
        ck_fail("make", "needs --id, --name, --out and at least one input");
        return -1;
    }
    if (o->name[0] == 0) {
        ck_fail("make", "the kit name is empty");
        return -1;
    }
    return 0;
}

/* The kind of input by its name and first bytes. */
enum MakeKind { MK_S57, MK_MBTILES, MK_GDAL };

static long make_add_input(const char *path, CkZooms zooms, CkPackWriter *w, CkChartInfo *info,
                           std::string *reason) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) {
        *reason = std::string("cannot read the file: ") + strerror(errno);
        return -1;
    }
    char head[16] = {0};
    size_t n = fread(head, 1, sizeof(head), f);
    fclose(f);
    if (n == 0) {
        *reason = "the file is empty";
        return -1;
    }
    size_t len = strlen(path);
    MakeKind kind = MK_GDAL;
    if (len > 4 && strcmp(path + len - 4, ".000") == 0) kind = MK_S57;
    else if (n == 16 && memcmp(head, "SQLite format 3", 16) == 0) kind = MK_MBTILES;

    *info = CkChartInfo();
    info->scale = 0;
    switch (kind) {
    case MK_S57: return make_s57_add(path, zooms, w, info, reason);
    case MK_MBTILES: return ck_mbtiles_add(path, zooms, w, info, reason);
    default: return ck_raster_add(path, zooms, w, info, reason);
    }
}

int ck_make_main(int argc, char **argv) {
    MakeOptions o;
    if (make_options(argc, argv, &o) != 0) return 2;

    CPLPushErrorHandler(CPLQuietErrorHandler);
    CPLSetConfigOption("GDAL_PAM_ENABLED", "NO"); /* no .aux.xml files beside the inputs */
    GDALAllRegister();

    std::string tmp = std::string(o.out) + ".part" + std::to_string((long)getpid());
    std::vector<CkChartInfo> charts;
    std::string reason, av, av2, chartlist;
    const char *failedFile = o.out;
    CkPackWriter w;
    w.db = NULL;
    w.put = w.get = NULL;
    int rc = 1;
    long version = 0;
    unlink(tmp.c_str());
    snprintf(makeTmpPath, sizeof(makeTmpPath), "%s", tmp.c_str());
    signal(SIGINT, make_on_signal);
    signal(SIGTERM, make_on_signal);
    signal(SIGHUP, make_on_signal);

    if (sqlite3_open_v2(tmp.c_str(), &w.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, NULL) != SQLITE_OK ||
        make_exec(w.db, "PRAGMA page_size=1024; PRAGMA auto_vacuum=NONE; PRAGMA encoding='UTF-8';"
                        "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF") ||
        make_exec(w.db, "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)") ||
        make_exec(w.db, "CREATE TABLE tiles (verid INTEGER,\t\tzyx INTEGER PRIMARY KEY,\t\tpng BLOB)") ||
        make_exec(w.db, "CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)") ||
        make_exec(w.db, "CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)") ||
        make_exec(w.db, "BEGIN") ||
        sqlite3_prepare_v2(w.db, "INSERT OR REPLACE INTO tiles (verid,zyx,png) VALUES (NULL,?,?)", -1, &w.put,
                           NULL) != SQLITE_OK ||
        sqlite3_prepare_v2(w.db, "SELECT png FROM tiles WHERE zyx=?", -1, &w.get, NULL) != SQLITE_OK) {
        reason = std::string("cannot create the pack: ") + (w.db ? sqlite3_errmsg(w.db) : "no memory");
        goto release;
    }

    for (const char *input : o.inputs) {
        CkChartInfo info;
        long added = make_add_input(input, o.zooms, &w, &info, &reason);
        if (added < 0) {
            failedFile = input;
            goto release;
        }
        if (added == 0) {
            failedFile = input;
            reason = o.zooms.zmin >= 0 ? "no tiles in the zooms asked for" : "no tiles: the input holds no data";
            goto release;
        }
        charts.push_back(info);
    }

    sqlite3_finalize(w.put);
    sqlite3_finalize(w.get);
    w.put = w.get = NULL;
    chartlist = make_chartlist(charts);
    make_avtiles(&w, &av, &av2);
    version = make_version(w.db, o.name, chartlist);
    /* rows in key order: "/" sorts before the letters */
    if (make_put_row(w.db, "/history", make_history_html(o.name, charts, version), 1) ||
        make_put_row(w.db, "/info", make_info_html(o.name, charts), 1) ||
        make_put_row(w.db, "avtiles", av, 5) || make_put_row(w.db, "avtiles2", av2, 5) ||
        make_put_row(w.db, "chartlist", chartlist, 5) || make_put_row(w.db, "kitname", o.name, 4) ||
        make_put_row(w.db, "tides", "{}", 5) || make_put_row(w.db, "version", std::to_string(version), 5) ||
        make_exec(w.db, "COMMIT") || make_exec(w.db, "CREATE INDEX i_kv_lk ON kvt(l,k) ") ||
        make_exec(w.db, "CREATE INDEX i_gaz ON gaz(x) ") ||
        make_exec(w.db, "CREATE UNIQUE INDEX i_tides ON tides(id,ts) ") || make_exec(w.db, "VACUUM")) {
        reason = std::string("cannot write the pack: ") + sqlite3_errmsg(w.db);
        goto release;
    }
    if (sqlite3_close(w.db) != SQLITE_OK) {
        reason = "cannot close the pack";
        w.db = NULL;
        goto release;
    }
    w.db = NULL;
    makeTmpPath[0] = 0; /* from here the file is either renamed or removed below */
    if (rename(tmp.c_str(), o.out) != 0) {
        reason = std::string("cannot rename the finished pack into place: ") + strerror(errno);
        goto release;
    }
    rc = 0;

release:
    sqlite3_finalize(w.put);
    sqlite3_finalize(w.get);
    if (w.db) sqlite3_close(w.db);
    if (rc != 0) {
        unlink(tmp.c_str());
        unlink((tmp + "-journal").c_str());
        ck_fail(failedFile, reason.c_str());
        return 1;
    }
    printf("%s: %zu tiles, version %ld\n", o.out, w.corner.size(), version);
    return 0;
}
