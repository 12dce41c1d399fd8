/*
** packcheck.cpp -- the pack checker. Every test reads the file through
** SQLite (JSON documents through its json_each), tiles are decoded with
** Cairo's PNG reader. Problems are collected, never fatal, and listed at
** most a few per kind so that a broken pack gives a readable report.
*/
#include "tools/packcheck.h"

#include <cairo.h>
#include <inttypes.h>
#include <sqlite3.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <set>

static const double kGridSide = 40030178.618589391188160183529977;
static const int kMaxPerKind = 5;

struct Checker {
    sqlite3 *db = NULL;
    PcReport *r = NULL;
    std::map<std::string, int> perKind;
};

static void problem(Checker *c, const char *kind, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
static void problem(Checker *c, const char *kind, const char *fmt, ...) {
    int n = ++c->perKind[kind];
    if (n > kMaxPerKind) {
        if (n == kMaxPerKind + 1) c->r->problems.push_back(std::string(kind) + ": more of the same left out");
        return;
    }
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    c->r->problems.push_back(std::string(kind) + ": " + buf);
}

/* ---- PNG corners ---- */

struct PngSource {
    const unsigned char *p;
    size_t left;
};

/* cairo's read callback over a PngSource: hands out the next length bytes. */
static cairo_status_t pc_readPng(void *closure, unsigned char *data, unsigned int length) {
    PngSource *s = (PngSource *)closure;
    if (length > s->left) return CAIRO_STATUS_READ_ERROR;
    memcpy(data, s->p, length);
    s->p += length;
    s->left -= length;
    return CAIRO_STATUS_SUCCESS;
}

cairo_surface_t *pc_decodePng(const void *png, size_t length) {
    PngSource src = {(const unsigned char *)png, length};
    return cairo_image_surface_create_from_png_stream(pc_readPng, &src);
}

int pc_cornerValue(const void *png, int length) {
    static const unsigned char sig[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    if (png == NULL || length < 8 || memcmp(png, sig, 8) != 0) return 0;
    cairo_surface_t *s = pc_decodePng(png, (size_t)length);
    int value = 0;
    if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) {
        int w = cairo_image_surface_get_width(s), h = cairo_image_surface_get_height(s);
        int stride = cairo_image_surface_get_stride(s);
        cairo_format_t f = cairo_image_surface_get_format(s);
        const unsigned char *d = cairo_image_surface_get_data(s);
        value = 1;
        if (f == CAIRO_FORMAT_ARGB32 && w > 0 && h > 0) {
            const int corners[4][2] = {{0, 0}, {w - 1, 0}, {0, h - 1}, {w - 1, h - 1}};
            for (const auto &k : corners) {
                uint32_t px;
                memcpy(&px, d + k[1] * stride + k[0] * 4, 4);
                if ((px >> 24) != 255) value = 2;
            }
        } /* RGB24 and the like have no alpha: every corner is opaque */
    }
    cairo_surface_destroy(s);
    return value;
}

/* ---- helpers ---- */

static sqlite3_stmt *prepare(Checker *c, const char *sql) {
    sqlite3_stmt *st = NULL;
    if (sqlite3_prepare_v2(c->db, sql, -1, &st, NULL) != SQLITE_OK) {
        problem(c, "sql", "%s: %s", sql, sqlite3_errmsg(c->db));
        sqlite3_finalize(st);
        return NULL;
    }
    return st;
}

static std::string colText(sqlite3_stmt *st, int i) {
    const void *p = sqlite3_column_blob(st, i);
    int n = sqlite3_column_bytes(st, i);
    return p ? std::string((const char *)p, (size_t)n) : std::string();
}

/* Value of a kvt document with l '**', or "" with *found 0. */
static std::string document(Checker *c, const char *key, int *found) {
    std::string v;
    *found = 0;
    sqlite3_stmt *st = prepare(c, "SELECT v FROM kvt WHERE k=? AND l='**'");
    if (st == NULL) return v;
    sqlite3_bind_text(st, 1, key, -1, SQLITE_STATIC);
    if (sqlite3_step(st) == SQLITE_ROW) {
        v = colText(st, 0);
        *found = 1;
    }
    sqlite3_finalize(st);
    return v;
}

static int isDecimal(const std::string &s) {
    if (s.empty() || s.size() > 18) return 0;
    for (char ch : s)
        if (ch < '0' || ch > '9') return 0;
    return 1;
}

/* ---- file and schema ---- */

static void checkHeader(Checker *c, const char *path) {
    unsigned char h[100];
    FILE *f = fopen(path, "rb");
    size_t n = f ? fread(h, 1, sizeof(h), f) : 0;
    if (f) fclose(f);
    if (n != sizeof(h)) {
        problem(c, "file", "shorter than an SQLite header");
        return;
    }
    unsigned pageSize = (unsigned)h[16] << 8 | h[17];
    uint32_t autoVacuum = (uint32_t)h[52] << 24 | h[53] << 16 | h[54] << 8 | h[55];
    uint32_t encoding = (uint32_t)h[56] << 24 | h[57] << 16 | h[58] << 8 | h[59];
    uint32_t userVersion = (uint32_t)h[60] << 24 | h[61] << 16 | h[62] << 8 | h[63];
    uint32_t appId = (uint32_t)h[68] << 24 | h[69] << 16 | h[70] << 8 | h[71];
    if (pageSize != 1024) problem(c, "file", "page size %u, not 1024", pageSize);
    if (h[18] != 1 || h[19] != 1) problem(c, "file", "journal versions %d/%d, not the rollback journal", h[18], h[19]);
    if (autoVacuum != 0) problem(c, "file", "auto-vacuum is on");
    if (encoding != 1) problem(c, "file", "text encoding %u, not UTF-8", encoding);
    if (userVersion != 0) problem(c, "file", "user_version %u, not 0", userVersion);
    if (appId != 0) problem(c, "file", "application_id %u, not 0", appId);
}

/* Whitespace-insensitive form of a CREATE TABLE statement: the tiles
** table is stored with runs of tabs between its columns. */
static std::string squeeze(const std::string &s) {
    std::string out;
    for (char ch : s)
        if (ch != ' ' && ch != '\t' && ch != '\n') out += ch;
    return out;
}

static void checkSchema(Checker *c) {
    struct Want {
        const char *name, *sql;
        int chartOnly, exact;
    };
    static const Want wants[] = {
        {"kvt", "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)", 0, 1},
        {"i_kv_lk", "CREATE INDEX i_kv_lk ON kvt(l,k) ", 0, 1},
        {"tiles", "CREATE TABLE tiles (verid INTEGER, zyx INTEGER PRIMARY KEY, png BLOB)", 1, 0},
        {"gaz", "CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)", 1, 1},
        {"i_gaz", "CREATE INDEX i_gaz ON gaz(x) ", 1, 1},
        {"tides", "CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)", 1, 1},
        {"i_tides", "CREATE UNIQUE INDEX i_tides ON tides(id,ts) ", 1, 1},
    };
    std::map<std::string, std::string> have;
    sqlite3_stmt *st = prepare(c, "SELECT name, sql FROM sqlite_master WHERE sql IS NOT NULL");
    if (st == NULL) return;
    while (sqlite3_step(st) == SQLITE_ROW) have[colText(st, 0)] = colText(st, 1);
    sqlite3_finalize(st);
    c->r->chartPack = have.count("tiles") ? 1 : 0;
    for (const Want &w : wants) {
        if (w.chartOnly && !c->r->chartPack) continue;
        auto it = have.find(w.name);
        if (it == have.end()) {
            problem(c, "schema", "%s is missing", w.name);
        } else if (w.exact ? it->second != w.sql : squeeze(it->second) != squeeze(w.sql)) {
            problem(c, "schema", "%s is \"%s\"", w.name, it->second.c_str());
        }
        if (it != have.end()) have.erase(it);
    }
    for (const auto &h : have) problem(c, "schema", "unexpected %s", h.first.c_str());
}

/* ---- kvt ---- */

static void checkKv(Checker *c) {
    sqlite3_stmt *st = prepare(c, "SELECT k, t, l FROM kvt");
    if (st == NULL) return;
    while (sqlite3_step(st) == SQLITE_ROW) {
        c->r->kvRows++;
        std::string k = colText(st, 0), l = colText(st, 2);
        int t = sqlite3_column_int(st, 1);
        if (sqlite3_column_type(st, 1) != SQLITE_INTEGER || ((t < 0 || t > 14) && t != 100))
            problem(c, "kvt", "%s: type code outside the table", k.c_str());
        if (l.empty()) problem(c, "kvt", "%s: no language", k.c_str());
        if (c->r->chartPack) {
            for (char ch : k)
                if (ch >= 'A' && ch <= 'Z') {
                    problem(c, "kvt", "%s: capitals in the key can never be found", k.c_str());
                    break;
                }
        }
    }
    sqlite3_finalize(st);
}

/* ---- tiles and their availability documents ---- */

static int validKey(int64_t k) {
    if (k < 0 || k >= ((int64_t)1 << 53)) return 0;
    int64_t z = k >> 40, y = (k >> 20) & 0xfffff, x = k & 0xfffff;
    return z <= 20 && y < ((int64_t)1 << z) && x < ((int64_t)1 << z);
}

static void checkTiles(Checker *c) {
    std::map<int64_t, int> tiles; /* zyx -> corner value */
    sqlite3_stmt *st = prepare(c, "SELECT zyx, png, verid FROM tiles");
    if (st == NULL) return;
    while (sqlite3_step(st) == SQLITE_ROW) {
        int64_t k = sqlite3_column_int64(st, 0);
        int v = pc_cornerValue(sqlite3_column_blob(st, 1), sqlite3_column_bytes(st, 1));
        if (!validKey(k)) problem(c, "tiles", "%" PRId64 ": not a tile key", k);
        if (v == 0) problem(c, "tiles", "%" PRId64 ": png is not a PNG image", k);
        if (sqlite3_column_type(st, 2) != SQLITE_NULL) problem(c, "tiles", "%" PRId64 ": verid is not NULL", k);
        tiles[k] = v;
    }
    sqlite3_finalize(st);
    c->r->tiles = (long)tiles.size();

    int found;
    std::string av2 = document(c, "avtiles2", &found);
    if (!found) {
        problem(c, "avtiles2", "no document");
    } else if (av2 != "false") {
        st = prepare(c, "SELECT key, value, type FROM json_each(CAST(? AS TEXT))");
        if (st == NULL) return;
        sqlite3_bind_blob(st, 1, av2.data(), (int)av2.size(), SQLITE_STATIC);
        std::set<int64_t> listed;
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            std::string key = colText(st, 0), type = colText(st, 2);
            int value = sqlite3_column_int(st, 1);
            if (!isDecimal(key)) {
                problem(c, "avtiles2", "key \"%s\" is not a decimal tile key", key.c_str());
                continue;
            }
            int64_t k = strtoll(key.c_str(), NULL, 10);
            listed.insert(k);
            auto it = tiles.find(k);
            if (type != "integer" || (value != 1 && value != 2)) {
                problem(c, "avtiles2", "%s: value is not 1 or 2", key.c_str());
            } else if (it == tiles.end()) {
                problem(c, "avtiles2", "%s: no such tile", key.c_str());
            } else if (it->second != 0 && it->second != value) {
                problem(c, "avtiles2", "%s: %d, but the corners say %d", key.c_str(), value, it->second);
            }
        }
        if (rc != SQLITE_DONE) problem(c, "avtiles2", "not a JSON object: %s", sqlite3_errmsg(c->db));
        sqlite3_finalize(st);
        for (const auto &t : tiles)
            if (!listed.count(t.first)) problem(c, "avtiles2", "tile %" PRId64 " is not listed", t.first);
    }

    std::string av = document(c, "avtiles", &found);
    if (found) {
        st = prepare(c, "SELECT key, type FROM json_each(CAST(? AS TEXT))");
        if (st == NULL) return;
        sqlite3_bind_blob(st, 1, av.data(), (int)av.size(), SQLITE_STATIC);
        long n = 0;
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            std::string key = colText(st, 0), type = colText(st, 1);
            n++;
            if (!isDecimal(key) || !tiles.count(strtoll(key.c_str(), NULL, 10)))
                problem(c, "avtiles", "%s: no such tile", key.c_str());
            if (type != "true") problem(c, "avtiles", "%s: value is not true", key.c_str());
        }
        if (rc != SQLITE_DONE) problem(c, "avtiles", "not a JSON object");
        sqlite3_finalize(st);
        if (n != (long)tiles.size()) problem(c, "avtiles", "%ld entries for %zu tiles", n, tiles.size());
    }
}

/* ---- chart list ---- */

/* One scalar of a JSON text by path, as SQLite's json_extract gives it;
** *type receives json_type. */
static std::string jsonField(Checker *c, const std::string &json, const char *path, std::string *type) {
    std::string v;
    type->clear();
    sqlite3_stmt *st = prepare(c, "SELECT json_type(?1, ?2), json_extract(?1, ?2)");
    if (st == NULL) return v;
    sqlite3_bind_text(st, 1, json.data(), (int)json.size(), SQLITE_STATIC);
    sqlite3_bind_text(st, 2, path, -1, SQLITE_STATIC);
    if (sqlite3_step(st) == SQLITE_ROW) {
        *type = colText(st, 0);
        v = colText(st, 1);
    }
    sqlite3_finalize(st);
    return v;
}

static void checkChart(Checker *c, int index, const std::string &obj) {
    /* exactly the eleven keys */
    sqlite3_stmt *st = prepare(c, "SELECT group_concat(key, ',') FROM (SELECT key FROM json_each(?) ORDER BY key)");
    if (st == NULL) return;
    sqlite3_bind_text(st, 1, obj.data(), (int)obj.size(), SQLITE_STATIC);
    std::string keys = sqlite3_step(st) == SQLITE_ROW ? colText(st, 0) : "";
    sqlite3_finalize(st);
    if (keys != "ed,na,nu,po,sc,sd,un,x1,x2,y1,y2") problem(c, "chartlist", "chart %d has keys %s", index, keys.c_str());

    std::string type;
    static const char *const texts[] = {"$.nu", "$.na", "$.ed", "$.un", "$.sd"};
    for (const char *t : texts) {
        jsonField(c, obj, t, &type);
        if (type != "text") problem(c, "chartlist", "chart %d: %s is not a string", index, t + 2);
    }
    std::string sc = jsonField(c, obj, "$.sc", &type);
    if (!(type == "integer" || type == "real" || (type == "text" && isDecimal(sc))))
        problem(c, "chartlist", "chart %d: sc is neither a number nor digits", index);

    double box[4];
    static const char *const boxKeys[] = {"$.x1", "$.y1", "$.x2", "$.y2"};
    for (int i = 0; i < 4; i++) {
        box[i] = atof(jsonField(c, obj, boxKeys[i], &type).c_str());
        if (type != "integer") problem(c, "chartlist", "chart %d: %s is not an integer", index, boxKeys[i] + 2);
        if (box[i] < 0 || box[i] > kGridSide)
            problem(c, "chartlist", "chart %d: %s lies outside the grid", index, boxKeys[i] + 2);
    }
    if (!(box[0] < box[2] && box[1] < box[3])) problem(c, "chartlist", "chart %d: box is empty or turned", index);

    st = prepare(c, "SELECT value, type FROM json_each(?, '$.po')");
    if (st == NULL) return;
    sqlite3_bind_text(st, 1, obj.data(), (int)obj.size(), SQLITE_STATIC);
    std::vector<double> po;
    while (sqlite3_step(st) == SQLITE_ROW) {
        std::string t = colText(st, 1);
        if (t != "integer" && t != "real") problem(c, "chartlist", "chart %d: po holds a %s", index, t.c_str());
        po.push_back(sqlite3_column_double(st, 0));
    }
    sqlite3_finalize(st);
    if (po.size() < 6 || po.size() % 2 != 0) {
        problem(c, "chartlist", "chart %d: po has %zu numbers, not a closed outline", index, po.size());
        return;
    }
    for (size_t i = 0; i + 1 < po.size(); i += 2) {
        if (po[i] < box[0] - 1 || po[i] > box[2] + 1 || po[i + 1] < box[1] - 1 || po[i + 1] > box[3] + 1) {
            problem(c, "chartlist", "chart %d: outline point %zu lies outside its box", index, i / 2);
            break;
        }
    }
}

static void checkChartList(Checker *c) {
    int found;
    std::string list = document(c, "chartlist", &found);
    if (!found) {
        problem(c, "chartlist", "no document");
        return;
    }
    sqlite3_stmt *st = prepare(c, "SELECT value, type FROM json_each(CAST(? AS TEXT))");
    if (st == NULL) return;
    sqlite3_bind_blob(st, 1, list.data(), (int)list.size(), SQLITE_STATIC);
    std::vector<std::string> charts;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        if (colText(st, 1) != "object") problem(c, "chartlist", "an entry is not an object");
        else charts.push_back(colText(st, 0));
    }
    if (rc != SQLITE_DONE) problem(c, "chartlist", "not a JSON array");
    sqlite3_finalize(st);
    if (charts.empty()) problem(c, "chartlist", "no charts");
    for (size_t i = 0; i < charts.size(); i++) checkChart(c, (int)i, charts[i]);
}

/* ---- tides ---- */

static void checkTides(Checker *c) {
    /* Rows in storage order must already be sorted by station and time. */
    sqlite3_stmt *st = prepare(c, "SELECT id, ts FROM tides ORDER BY rowid");
    if (st == NULL) return;
    int64_t lastId = INT64_MIN, lastTs = INT64_MIN;
    while (sqlite3_step(st) == SQLITE_ROW) {
        int64_t id = sqlite3_column_int64(st, 0), ts = sqlite3_column_int64(st, 1);
        if (id < lastId) problem(c, "tides", "station %" PRId64 " stored after station %" PRId64, id, lastId);
        else if (id == lastId && ts <= lastTs)
            problem(c, "tides", "station %" PRId64 ": row at %" PRId64 " not after %" PRId64, id, ts, lastTs);
        lastId = id;
        lastTs = ts;
    }
    sqlite3_finalize(st);

    /* Then station by station in time order. */
    st = prepare(c, "SELECT id, ts, level, typ FROM tides ORDER BY id, ts");
    if (st == NULL) return;
    lastId = INT64_MIN;
    std::map<int64_t, long> rowsOf;
    struct Pending {
        int64_t ts, level, typ;
    };
    std::vector<Pending> pending; /* extremes since the last sample */
    int64_t sampleLevel = 0, lastExtremeTyp = -1;
    int hasSample = 0;

    auto closeStation = [&](int64_t id) {
        if (hasSample && !pending.empty())
            problem(c, "tides", "station %" PRId64 ": extreme at %" PRId64 " after the last sample", id, pending[0].ts);
        pending.clear();
        hasSample = 0;
        lastExtremeTyp = -1;
    };

    while (sqlite3_step(st) == SQLITE_ROW) {
        int64_t id = sqlite3_column_int64(st, 0), ts = sqlite3_column_int64(st, 1);
        int64_t level = sqlite3_column_int64(st, 2), typ = sqlite3_column_int64(st, 3);
        c->r->tideRows++;
        rowsOf[id]++;
        if (id != lastId && lastId != INT64_MIN) closeStation(lastId);
        lastId = id;
        if (typ < 0 || typ > 2) {
            problem(c, "tides", "station %" PRId64 ": typ %" PRId64 " at %" PRId64, id, typ, ts);
            continue;
        }
        if (typ == 2) {
            /* an extreme lies between two samples and is not passed by them */
            for (const Pending &e : pending) {
                if (!hasSample) {
                    problem(c, "tides", "station %" PRId64 ": extreme at %" PRId64 " before the first sample", id, e.ts);
                    continue;
                }
                int64_t lo = sampleLevel < level ? sampleLevel : level, hi = sampleLevel < level ? level : sampleLevel;
                if ((e.typ == 1 && e.level < hi - 1) || (e.typ == 0 && e.level > lo + 1))
                    problem(c, "tides", "station %" PRId64 ": %s at %" PRId64 " is passed by its samples", id,
                            e.typ == 1 ? "high" : "low", e.ts);
            }
            pending.clear();
            hasSample = 1;
            sampleLevel = level;
        } else {
            if (typ == lastExtremeTyp)
                problem(c, "tides", "station %" PRId64 ": two %s waters in a row at %" PRId64, id,
                        typ == 1 ? "high" : "low", ts);
            lastExtremeTyp = typ;
            pending.push_back({ts, level, typ});
        }
    }
    if (lastId != INT64_MIN) closeStation(lastId);
    sqlite3_finalize(st);

    int found;
    std::string doc = document(c, "tides", &found);
    if (!found) {
        if (c->r->tideRows > 0) problem(c, "tides", "rows but no tides document");
        return;
    }
    st = prepare(c, "SELECT key, value, type FROM json_each(CAST(? AS TEXT))");
    if (st == NULL) return;
    sqlite3_bind_blob(st, 1, doc.data(), (int)doc.size(), SQLITE_STATIC);
    std::vector<std::pair<std::string, std::string>> stations;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
        if (colText(st, 2) != "object") problem(c, "tides", "station %s is not an object", colText(st, 0).c_str());
        else stations.push_back({colText(st, 0), colText(st, 1)});
    }
    if (rc != SQLITE_DONE) problem(c, "tides", "document is not a JSON object");
    sqlite3_finalize(st);
    for (const auto &s : stations) {
        std::string type;
        const char *name = s.first.c_str();
        std::string id = jsonField(c, s.second, "$.id", &type);
        if (type != "integer" || id != s.first) problem(c, "tides", "station %s: id %s differs from its name", name, id.c_str());
        jsonField(c, s.second, "$.name", &type);
        if (type != "text") problem(c, "tides", "station %s: no name", name);
        std::string src = jsonField(c, s.second, "$.src", &type);
        if (type != "text" || src.empty()) problem(c, "tides", "station %s: no src", name);
        std::string stype = jsonField(c, s.second, "$.stype", &type);
        if (stype == "1" && !rowsOf.count(strtoll(name, NULL, 10)))
            problem(c, "tides", "station %s: stype 1 but no rows", name);
        if (stype != "1" && stype != "2") problem(c, "tides", "station %s: stype %s", name, stype.c_str());
    }
}

/* ---- gazetteer ---- */

static void checkGaz(Checker *c) {
    sqlite3_stmt *st = prepare(c, "SELECT x, y, c, r, n, typeof(r) FROM gaz");
    if (st == NULL) return;
    while (sqlite3_step(st) == SQLITE_ROW) {
        c->r->gazRows++;
        double x = sqlite3_column_double(st, 0), y = sqlite3_column_double(st, 1);
        std::string code = colText(st, 2), n = colText(st, 4), rType = colText(st, 5);
        int64_t r = sqlite3_column_int64(st, 3);
        if (rType != "integer" || r < 0 || r > 255) problem(c, "gaz", "%s: rank outside 0 to 255", n.c_str());
        if (n.empty()) problem(c, "gaz", "a place without a name");
        if (n.find_first_of("\"\\") != std::string::npos || code.find_first_of("\"\\") != std::string::npos)
            problem(c, "gaz", "%s: quote or backslash in the name or code", n.c_str());
        if (strlen(n.c_str()) != n.size()) problem(c, "gaz", "%s: NUL inside the name", n.c_str());
        if (code.empty()) problem(c, "gaz", "%s: no feature code", n.c_str());
        if (n.size() + code.size() > 400) problem(c, "gaz", "%s: name too long for a gazetteer reply", n.c_str());
        if (x < 0 || x > kGridSide || y < 0 || y > kGridSide) problem(c, "gaz", "%s: outside the grid", n.c_str());
    }
    sqlite3_finalize(st);
}

int pc_checkFile(const char *path, PcReport *report) {
    Checker c;
    c.r = report;
    *report = PcReport();
    FILE *f = fopen(path, "rb");
    if (f == NULL) return -1;
    fclose(f);
    if (sqlite3_open_v2(path, &c.db, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK) {
        sqlite3_close(c.db);
        return -1;
    }
    sqlite3_stmt *probe = NULL;
    if (sqlite3_prepare_v2(c.db, "SELECT count(*) FROM sqlite_master", -1, &probe, NULL) != SQLITE_OK ||
        sqlite3_step(probe) != SQLITE_ROW) {
        sqlite3_finalize(probe);
        sqlite3_close(c.db);
        return -1;
    }
    sqlite3_finalize(probe);

    checkHeader(&c, path);
    checkSchema(&c);
    checkKv(&c);
    if (report->chartPack) {
        checkTiles(&c);
        checkChartList(&c);
        checkTides(&c);
        checkGaz(&c);
        int found;
        std::string v = document(&c, "version", &found);
        if (!found || !isDecimal(v)) problem(&c, "version", "missing or not a decimal number");
    }
    sqlite3_close(c.db);
    return report->problems.empty() ? 0 : 1;
}
