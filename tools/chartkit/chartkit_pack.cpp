/*
** chartkit_pack.cpp -- what a finished pack holds, read back for info and
** for serve's kit list: id, kit name, version, tiles per zoom, the chart
** list with boxes in degrees, size and CRC-32. Also the grid conversions
** and the JSON string writer the other parts share.
*/
#include <math.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "store/pack_store.h"
#include "tools/chartkit/chartkit.h"

void ck_grid_of(double lon, double lat, int32_t *x, int32_t *y) { toMerc(lat, lon, y, x); }

/* Inverse of toMerc: y = (1 - asinh(tan(lat)) / pi) / 2 * side. */
void ck_deg_of_grid(double x, double y, double *lon, double *lat) {
    const double pi = 3.141592653589793;
    *lon = x / MERC_SPHERE_BASE * 360.0 - 180.0;
    *lat = atan(sinh(pi * (1.0 - 2.0 * y / MERC_SPHERE_BASE))) * 180.0 / pi;
}

void ck_json_string(std::string *out, const std::string &s) {
    out->push_back('"');
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out->push_back('\\');
            out->push_back((char)c);
        } else if (c < 0x20) {
            char esc[8];
            snprintf(esc, sizeof(esc), "\\u%04x", c);
            out->append(esc);
        } else {
            out->push_back((char)c);
        }
    }
    out->push_back('"');
}

/* Degrees with six decimals, trailing zeros dropped: about 0.1 m. */
static void pack_json_degrees(std::string *out, double v) {
    char num[48];
    snprintf(num, sizeof(num), "%.6f", v);
    char *end = num + strlen(num);
    while (end > num && end[-1] == '0') *--end = 0;
    if (end > num && end[-1] == '.') *--end = 0;
    if (strcmp(num, "-0") == 0) strcpy(num, "0");
    out->append(num);
}

long ck_pack_id_of_name(const char *path) {
    const char *base = strrchr(path, '/');
    base = base ? base + 1 : path;
    if (base[0] != 'A' || strcmp(base + 7, ".marepack") != 0) return -1;
    for (int i = 1; i <= 6; i++)
        if (base[i] < '0' || base[i] > '9') return -1;
    return strtol(base + 1, NULL, 10);
}

/* The "**" row of key as bytes; found is 0 when there is none. */
static std::string pack_row(sqlite3 *db, const char *key, int *found) {
    sqlite3_stmt *st = NULL;
    std::string v;
    *found = 0;
    if (sqlite3_prepare_v2(db, "SELECT v FROM kvt WHERE k=? AND l='**' LIMIT 1", -1, &st, NULL) == SQLITE_OK) {
        sqlite3_bind_text(st, 1, key, -1, SQLITE_STATIC);
        if (sqlite3_step(st) == SQLITE_ROW) {
            const void *p = sqlite3_column_blob(st, 0);
            v.assign(p ? (const char *)p : "", (size_t)sqlite3_column_bytes(st, 0));
            *found = 1;
        }
    }
    sqlite3_finalize(st);
    return v;
}

/* Size and CRC-32 of the file's bytes. Returns 0, or -1 on a read error. */
static int pack_crc(const char *path, long long *bytes, uint32_t *crc) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return -1;
    char block[65536];
    uint32_t c = 0xFFFFFFFFu;
    long long n = 0;
    size_t got;
    while ((got = fread(block, 1, sizeof(block), f)) > 0) {
        c = ucrc32(c, block, (int)got);
        n += (long long)got;
    }
    int bad = ferror(f);
    fclose(f);
    if (bad) return -1;
    *bytes = n;
    *crc = ~c;
    return 0;
}

/* The chart list's entries, boxes turned back into degrees. A list that
** isn't JSON gives no entries. */
static void pack_charts(sqlite3 *db, const std::string &chartlist, std::vector<CkChartEntry> *charts) {
    sqlite3_stmt *st = NULL;
    const char *sql =
        "SELECT json_extract(value,'$.na'), json_extract(value,'$.sc'), json_extract(value,'$.x1'),"
        " json_extract(value,'$.y1'), json_extract(value,'$.x2'), json_extract(value,'$.y2')"
        " FROM json_each(CAST(? AS TEXT)) WHERE json_type(value)='object'";
    if (sqlite3_prepare_v2(db, sql, -1, &st, NULL) != SQLITE_OK) return;
    sqlite3_bind_blob(st, 1, chartlist.data(), (int)chartlist.size(), SQLITE_STATIC);
    while (sqlite3_step(st) == SQLITE_ROW) {
        CkChartEntry e;
        const unsigned char *na = sqlite3_column_text(st, 0);
        e.name = na ? (const char *)na : "";
        e.scale = (long)sqlite3_column_int64(st, 1); /* a string of digits converts too */
        ck_deg_of_grid(sqlite3_column_double(st, 2), sqlite3_column_double(st, 3), &e.west, &e.north);
        ck_deg_of_grid(sqlite3_column_double(st, 4), sqlite3_column_double(st, 5), &e.east, &e.south);
        charts->push_back(e);
    }
    sqlite3_finalize(st);
}

int ck_pack_read(const char *path, CkPackInfo *info, std::string *reason) {
    sqlite3 *db = NULL;
    sqlite3_stmt *st = NULL;
    int rc = -1, found;
    *info = CkPackInfo();
    info->id = ck_pack_id_of_name(path);

    if (pack_crc(path, &info->bytes, &info->crc32) != 0) {
        *reason = "cannot read the file";
        return -1;
    }
    if (sqlite3_open_v2(path, &db, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK ||
        sqlite3_prepare_v2(db, "SELECT count(*) FROM kvt", -1, &st, NULL) != SQLITE_OK ||
        sqlite3_step(st) != SQLITE_ROW) {
        int e = db ? sqlite3_errcode(db) : SQLITE_NOTADB;
        *reason = e == SQLITE_CORRUPT || e == SQLITE_NOTADB || e == SQLITE_IOERR
                      ? "not a pack: the file is no SQLite database, or a damaged or truncated one"
                      : "not a pack (no kvt table in an SQLite file)";
        goto release;
    }
    sqlite3_finalize(st);
    st = NULL;

    /* The application pack has no tiles table; that is no error here. */
    if (sqlite3_prepare_v2(db, "SELECT zyx>>40, count(*) FROM tiles GROUP BY 1 ORDER BY 1", -1, &st, NULL) ==
        SQLITE_OK) {
        int step;
        while ((step = sqlite3_step(st)) == SQLITE_ROW) {
            long long z = sqlite3_column_int64(st, 0);
            if (z < 0 || z > 30) continue;
            if ((long long)info->tilesPerZoom.size() <= z) info->tilesPerZoom.resize((size_t)z + 1, 0);
            info->tilesPerZoom[(size_t)z] = (long)sqlite3_column_int64(st, 1);
        }
        if (step != SQLITE_DONE) {
            *reason = "the tiles table cannot be read (a damaged or truncated file)";
            goto release;
        }
    }

    info->version = strtol(pack_row(db, "version", &found).c_str(), NULL, 10);
    pack_charts(db, pack_row(db, "chartlist", &found), &info->charts);
    info->name = pack_row(db, "kitname", &found);
    if (info->name.empty() && !info->charts.empty()) info->name = info->charts[0].name;
    if (info->name.empty()) {
        const char *base = strrchr(path, '/');
        info->name = base ? base + 1 : path;
    }
    rc = 0;

release:
    sqlite3_finalize(st);
    sqlite3_close(db);
    return rc;
}

std::string ck_pack_json(const CkPackInfo &info) {
    std::string j = "{\"id\":" + std::to_string(info.id) + ",\"name\":";
    ck_json_string(&j, info.name);
    j += ",\"tiles\":{";
    int first = 1;
    for (size_t z = 0; z < info.tilesPerZoom.size(); z++) {
        if (info.tilesPerZoom[z] == 0) continue;
        if (!first) j += ",";
        first = 0;
        j += "\"" + std::to_string(z) + "\":" + std::to_string(info.tilesPerZoom[z]);
    }
    j += "},\"charts\":[";
    for (size_t i = 0; i < info.charts.size(); i++) {
        const CkChartEntry &c = info.charts[i];
        if (i) j += ",";
        j += "{\"name\":";
        ck_json_string(&j, c.name);
        j += ",\"sc\":" + std::to_string(c.scale) + ",\"box\":[";
        pack_json_degrees(&j, c.west);
        j += ",";
        pack_json_degrees(&j, c.south);
        j += ",";
        pack_json_degrees(&j, c.east);
        j += ",";
        pack_json_degrees(&j, c.north);
        j += "]}";
    }
    char crc[16];
    snprintf(crc, sizeof(crc), "%08x", info.crc32);
    j += "],\"bytes\":" + std::to_string(info.bytes) + ",\"crc32\":\"" + crc + "\"}";
    return j;
}
