/*
** chartpack_build.cpp -- writes the base chart pack A000002.marepack: tiles
** drawn from the land polygons, their availability documents, the chart
** list, tide stations and rows, the gazetteer and the description rows.
**
** Usage: chartpack_build <lands.geo.json> <data.txt> <out.marepack>
** data.txt is the output of chartpack_data.mjs (regions, tides, places).
** The file is written under a temporary name and renamed at the end, so an
** interrupted build never leaves a pack that looks finished.
**
** Levels: the "world" region over its zooms, the "regional" one over its
** own, and the "detail" region whose tiles are painted only inside its box
** (transparent outside, so the coarser tiles show through there).
*/
#include <inttypes.h>
#include <math.h>
#include <sqlite3.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "packs/chartpack_render.h"
#include "store/pack_store.h"

struct Region {
    std::string name;
    CpGeoBox box;
    int minZoom, maxZoom;
};

struct TideRow {
    int64_t id, ts, level, typ;
};

struct Place {
    double lat, lon;
    std::string code, name;
    int rank;
};

struct BuildData {
    int year = 0;
    std::vector<Region> regions;
    std::string tidesDoc;
    std::vector<std::string> notices;
    std::vector<TideRow> tides;
    std::vector<Place> places;
};

/* Unix time of 1 January of a year, 00:00 UTC: the pack's version. */
static int64_t yearStart(int year) {
    int64_t days = 0;
    for (int y = 1970; y < year; y++) days += (y % 4 == 0 && (y % 100 != 0 || y % 400 == 0)) ? 366 : 365;
    return days * 86400;
}

static uint64_t tileKey(int z, int y, int x) {
    return ((uint64_t)z << 40) | ((uint64_t)y << 20) | (uint64_t)x;
}

/* Splits a line at tabs into at most max fields. Returns the count. */
static int splitTabs(char *line, char **f, int max) {
    int n = 0;
    f[n++] = line;
    for (char *p = line; *p && n < max; p++) {
        if (*p == '\t') {
            *p = 0;
            f[n++] = p + 1;
        }
    }
    return n;
}

/* Reads data.txt. Returns 0, or -1 on an unreadable file or a bad line. */
static int readData(const char *path, BuildData *d) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return -1;
    char *line = NULL;
    size_t cap = 0;
    ssize_t len;
    long lineNo = 0;
    int rc = 0;
    while ((len = getline(&line, &cap, f)) >= 0) {
        lineNo++;
        if (len > 0 && line[len - 1] == '\n') line[--len] = 0;
        if (len == 0) continue;
        char *fl[9];
        int n = splitTabs(line, fl, 9);
        char kind = fl[0][0];
        if (kind == 'Y' && n == 2) {
            d->year = atoi(fl[1]);
        } else if (kind == 'R' && n == 8) {
            Region r;
            r.name = fl[1];
            r.box.west = atof(fl[2]);
            r.box.east = atof(fl[3]);
            r.box.south = atof(fl[4]);
            r.box.north = atof(fl[5]);
            r.minZoom = atoi(fl[6]);
            r.maxZoom = atoi(fl[7]);
            d->regions.push_back(r);
        } else if (kind == 'S' && n == 2) {
            d->tidesDoc = fl[1];
        } else if (kind == 'A' && n == 2) {
            d->notices.push_back(fl[1]);
        } else if (kind == 'T' && n == 5) {
            d->tides.push_back({atoll(fl[1]), atoll(fl[2]), atoll(fl[3]), atoll(fl[4])});
        } else if (kind == 'G' && n == 6) {
            d->places.push_back({atof(fl[1]), atof(fl[2]), fl[3], fl[5], atoi(fl[4])});
        } else {
            fprintf(stderr, "%s:%ld: unexpected line\n", path, lineNo);
            rc = -1;
            break;
        }
    }
    free(line);
    fclose(f);
    if (rc == 0 && (d->year == 0 || d->regions.size() != 3 || d->tidesDoc.empty())) {
        fprintf(stderr, "%s: year, three regions and the tides document are required\n", path);
        rc = -1;
    }
    return rc;
}

/* The region of that name, or NULL. */
static const Region *findRegion(const BuildData &d, const char *name) {
    for (const Region &r : d.regions)
        if (r.name == name) return &r;
    return NULL;
}

/* ---- tiles ---- */

struct TileJob {
    std::set<uint64_t> wanted;     /* tiles to draw */
    std::set<uint64_t> nodes;      /* wanted tiles and all their ancestors */
    std::map<uint64_t, int> clipOf; /* wanted tile -> 1 when drawn inside the detail box */
    CpGeoBox detailBox;
    int maxZoom = 0;
    size_t done = 0;
    std::map<uint64_t, std::string> png;
    std::map<uint64_t, int> opaque;
    std::map<int, std::vector<CpLabel>> labels; /* place names by zoom */
    int failed = 0;
};

/* Smallest rank whose places are named at a zoom (ranks: 32 per factor of
** ten in population, 0 for 1000 people); -1 for no names. */
static int labelRank(int z) {
    static const int ranks[] = {-1, -1, -1, -1, -1, -1, -1, 100, 72, 56, 40, 24, 8};
    return z >= 0 && z <= 12 ? ranks[z] : 8;
}

/* Places names for every zoom that has them: towns of the region drawn at
** that zoom, most populous first, ties by name. */
static void placeLabels(TileJob *job, const BuildData &d) {
    std::vector<const Place *> order;
    for (const Place &p : d.places)
        if (p.code.compare(0, 2, "P.") == 0) order.push_back(&p);
    std::stable_sort(order.begin(), order.end(), [](const Place *a, const Place *b) {
        return a->rank != b->rank ? a->rank > b->rank : a->name < b->name;
    });
    for (const Region &r : d.regions) {
        for (int z = r.minZoom; z <= r.maxZoom; z++) {
            int min = labelRank(z);
            if (min < 0) continue;
            std::vector<double> lat, lon;
            std::vector<std::string> name;
            for (const Place *p : order) {
                if (p->rank < min || p->lon < r.box.west || p->lon > r.box.east || p->lat < r.box.south ||
                    p->lat > r.box.north)
                    continue;
                lat.push_back(p->lat);
                lon.push_back(p->lon);
                name.push_back(p->name);
            }
            job->labels[z] = cp_placeLabels(z, lat, lon, name);
            printf("chartpack: zoom %d: %zu place names\n", z, job->labels[z].size());
        }
    }
}

/* Adds every tile that the region's box touches at its zooms, with all the
** tiles above them as nodes of the walk; clip 1 paints them only inside
** the detail box. */
static void addTiles(TileJob *job, const Region &r, int clip) {
    for (int z = r.minZoom; z <= r.maxZoom; z++) {
        int x1, y1, x2, y2;
        cp_tileRange(r.box, z, &x1, &y1, &x2, &y2);
        for (int y = y1; y <= y2; y++) {
            for (int x = x1; x <= x2; x++) {
                uint64_t k = tileKey(z, y, x);
                job->wanted.insert(k);
                job->clipOf[k] = clip;
                for (int zz = z, yy = y, xx = x; zz >= 0; zz--, yy >>= 1, xx >>= 1)
                    job->nodes.insert(tileKey(zz, yy, xx));
            }
        }
        if (z > job->maxZoom) job->maxZoom = z;
    }
}

/* Draws tile z/y/x if wanted and goes on to its children, each time with
** the rings cut to the child's padded box, so that a deep tile never walks
** the whole coastline of a continent. */
static void descend(TileJob *job, int z, int y, int x, const std::vector<CpRing> &rings) {
    uint64_t key = tileKey(z, y, x);
    if (!job->nodes.count(key)) return;
    if (job->wanted.count(key)) {
        CpTileStyle style;
        style.hasClip = job->clipOf[key];
        style.clip = job->detailBox;
        auto names = job->labels.find(z);
        style.labels = names == job->labels.end() ? NULL : &names->second;
        int opaque = 0;
        std::string png;
        if (cp_drawTile(z, y, x, rings, style, &png, &opaque) != 0) {
            job->failed++;
        } else {
            job->png[key] = png;
            job->opaque[key] = opaque;
        }
        job->done++;
        if (job->done % 500 == 0 || job->done == job->wanted.size()) {
            printf("chartpack: tiles %zu/%zu (zoom %d)\n", job->done, job->wanted.size(), z);
            fflush(stdout);
        }
    }
    if (z >= job->maxZoom) return;
    int cz = z + 1;
    double side = (double)(1 << cz), pad = CP_TILE_PAD / CP_TILE_SIZE;
    for (int dy = 0; dy < 2; dy++) {
        for (int dx = 0; dx < 2; dx++) {
            int cy = 2 * y + dy, cx = 2 * x + dx;
            if (!job->nodes.count(tileKey(cz, cy, cx))) continue;
            double bx1 = (cx - pad) / side, bx2 = (cx + 1 + pad) / side;
            double by1 = (cy - pad) / side, by2 = (cy + 1 + pad) / side;
            std::vector<CpRing> cut;
            CpRing out;
            for (const CpRing &r : rings)
                if (cp_clipRing(r, bx1, by1, bx2, by2, &out) > 0) cut.push_back(std::move(out));
            descend(job, cz, cy, cx, cut);
        }
    }
}

/* ---- the pack file ---- */

/* Runs SQL text. Returns 0, or -1 after printing the error. */
static int execAll(sqlite3 *db, const char *sql) {
    char *err = NULL;
    if (sqlite3_exec(db, sql, NULL, NULL, &err) != SQLITE_OK) {
        fprintf(stderr, "chartpack: %s: %s\n", sql, err ? err : "?");
        sqlite3_free(err);
        return -1;
    }
    return 0;
}

/* Stores one "**" kvt row with the value as a BLOB. Returns 0 or -1. */
static int putKv(sqlite3 *db, const char *k, const std::string &v, int t) {
    return kv_put_blob(db, k, v.data(), (int)v.size(), t);
}

/* Appends formatted text of at most 1023 bytes. */
static void appendf(std::string *s, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
static void appendf(std::string *s, const char *fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    if (n > 0) s->append(buf, (size_t)n < sizeof(buf) ? (size_t)n : sizeof(buf) - 1);
}

/* One chart record: box and outline in grid units from a box in degrees. */
static void appendChart(std::string *s, const char *nu, const char *na, const char *ed, const char *sc,
                        const CpGeoBox &b) {
    int32_t x1, y1, x2, y2;
    toMerc(b.north, b.west, &y1, &x1);
    toMerc(b.south, b.east, &y2, &x2);
    if (s->size() > 1) s->append(",");
    appendf(s,
            "{\"nu\":\"%s\",\"na\":\"%s\",\"ed\":\"%s\",\"sc\":%s,\"un\":\"\",\"sd\":\"\","
            "\"x1\":%d,\"y1\":%d,\"x2\":%d,\"y2\":%d,\"po\":[%d,%d,%d,%d,%d,%d,%d,%d]}",
            nu, na, ed, sc, x1, y1, x2, y2, x1, y1, x2, y1, x2, y2, x1, y2);
}

/* Text for an HTML fragment: &, < and > as entities. */
static std::string htmlEscape(const std::string &in) {
    std::string out;
    for (char c : in) {
        if (c == '&') out += "&amp;";
        else if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else out += c;
    }
    return out;
}

/* The credit of the tide data: the attribution each chosen station
** carries (its source, licence and changes), or the database's own name
** when no station asks for one (public-domain sources). */
static std::string tideSources(const BuildData &d) {
    std::string out;
    for (const std::string &n : d.notices) out += (out.empty() ? "" : " ") + htmlEscape(n);
    return out.empty() ? "Neaps tide database (https://github.com/openwatersio/tide-database)." : out;
}

/* Writes the kvt rows: /info, /history, chartlist, tides, avtiles,
** avtiles2, version. Returns 0 or -1. */
static int writeDocuments(sqlite3 *db, const BuildData &d, const TileJob &job, int64_t version) {
    const Region *world = findRegion(d, "world"), *regional = findRegion(d, "regional"),
                 *detail = findRegion(d, "detail");
    char ed[16];
    snprintf(ed, sizeof(ed), "01/01/%04d", d.year);

    /* Scales: only the detail chart lies below 5000000, so a first view of
    ** the pack selects it; it is also the smallest scale that holds the
    ** detail region. */
    std::string charts = "[";
    appendChart(&charts, "MP_World_1", "World_Overview", ed, "\"20000000\"", world->box);
    appendChart(&charts, "MP_NAtl_1", "Europe_North_Atlantic", ed, "5000000", regional->box);
    appendChart(&charts, "MP_WBaltic_1", "Western_Baltic_German_Bight", ed, "100000", detail->box);
    charts += "]";

    std::string av = "{", av2 = "{";
    for (const auto &t : job.png) {
        if (av.size() > 1) av += ",", av2 += ",";
        appendf(&av, "\"%" PRIu64 "\":true", t.first);
        appendf(&av2, "\"%" PRIu64 "\":%d", t.first, job.opaque.at(t.first) ? 1 : 2);
    }
    av += "}";
    av2 += "}";

    std::string info =
        "<h3>mareplot base charts</h3>"
        "<p>Overview charts of the world (zoom 3 to 6), Europe and the North Atlantic (zoom 7), "
        "and the western Baltic with the German Bight (zoom 8 to 12). Land and coastline only: "
        "no depths, no buoys, no lights. <b>Not for navigation.</b></p>";
    appendf(&info, "<p>Tide predictions for %d to %d; %zu places in the gazetteer.</p>", d.year - 1,
            d.year + 2, d.places.size());
    info += "<p>Sources: land and coastline &copy; OpenStreetMap contributors, ODbL 1.0; "
            "place names GeoNames, CC BY 4.0; tides: " +
            tideSources(d) + "</p>";

    std::string hist =
        "<h3>Sources</h3>"
        "<p>Land and coastline: OpenStreetMap land polygons, &copy; OpenStreetMap contributors, "
        "available under the Open Database License (ODbL) 1.0, "
        "https://www.openstreetmap.org/copyright.</p>"
        "<p>Place names: GeoNames (www.geonames.org), licensed under CC BY 4.0, "
        "https://creativecommons.org/licenses/by/4.0/.</p>"
        "<p>Tides: predicted from harmonic constituents of the Neaps tide database. ";
    hist += tideSources(d) + " ";
    hist += "Tide levels are astronomical predictions: weather, surge and river flow are not included.</p>";
    appendf(&hist, "<p>Edition %s.</p>", ed);

    char ver[32];
    snprintf(ver, sizeof(ver), "%" PRId64, version);

    if (putKv(db, "/info", info, 1) || putKv(db, "/history", hist, 1) ||
        putKv(db, "chartlist", charts, 5) || putKv(db, "tides", d.tidesDoc, 5) ||
        putKv(db, "avtiles", av, 5) || putKv(db, "avtiles2", av2, 5) ||
        putKv(db, "version", ver, 5))
        return -1;
    return 0;
}

/* Writes the whole pack to path: file properties first (they must precede
** the first table), rows in key order, indexes after the rows, then VACUUM
** so the pages are packed and laid out the same on every run. Returns 0
** or -1. */
static int writePack(const char *path, const BuildData &d, const TileJob &job) {
    sqlite3 *db = NULL;
    sqlite3_stmt *st = NULL;
    int rc = -1;
    unlink(path);
    if (sqlite3_open(path, &db) != SQLITE_OK) {
        fprintf(stderr, "chartpack: cannot create %s\n", path);
        goto done;
    }
    if (execAll(db,
                "PRAGMA page_size=1024; PRAGMA auto_vacuum=NONE; PRAGMA encoding='UTF-8';"
                "PRAGMA journal_mode=DELETE; PRAGMA user_version=0; PRAGMA application_id=0;") ||
        execAll(db, "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)") ||
        execAll(db, "CREATE TABLE tiles (verid INTEGER,\t\tzyx INTEGER PRIMARY KEY,\t\tpng BLOB)") ||
        execAll(db, "CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)") ||
        execAll(db, "CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)") ||
        execAll(db, "BEGIN"))
        goto done;

    sqlite3_prepare_v2(db, "INSERT INTO tiles (verid,zyx,png) VALUES (NULL,?,?)", -1, &st, NULL);
    for (const auto &t : job.png) {
        sqlite3_bind_int64(st, 1, (sqlite3_int64)t.first);
        sqlite3_bind_blob(st, 2, t.second.data(), (int)t.second.size(), SQLITE_STATIC);
        if (sqlite3_step(st) != SQLITE_DONE) goto done;
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);

    sqlite3_prepare_v2(db, "INSERT INTO tides (id,ts,level,typ) VALUES (?,?,?,?)", -1, &st, NULL);
    for (const TideRow &r : d.tides) {
        sqlite3_bind_int64(st, 1, r.id);
        sqlite3_bind_int64(st, 2, r.ts);
        sqlite3_bind_int64(st, 3, r.level);
        sqlite3_bind_int64(st, 4, r.typ);
        if (sqlite3_step(st) != SQLITE_DONE) goto done;
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);

    sqlite3_prepare_v2(db, "INSERT INTO gaz (x,y,c,r,n) VALUES (?,?,?,?,?)", -1, &st, NULL);
    for (const Place &p : d.places) {
        int32_t x, y;
        toMerc(p.lat, p.lon, &y, &x);
        sqlite3_bind_int(st, 1, x);
        sqlite3_bind_int(st, 2, y);
        sqlite3_bind_text(st, 3, p.code.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_int(st, 4, p.rank < 0 ? 0 : p.rank > 255 ? 255 : p.rank);
        sqlite3_bind_text(st, 5, p.name.c_str(), -1, SQLITE_STATIC);
        if (sqlite3_step(st) != SQLITE_DONE) goto done;
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    st = NULL;

    if (writeDocuments(db, d, job, yearStart(d.year)) != 0) goto done;
    if (execAll(db, "COMMIT") || execAll(db, "CREATE INDEX i_kv_lk ON kvt(l,k) ") ||
        execAll(db, "CREATE INDEX i_gaz ON gaz(x) ") ||
        execAll(db, "CREATE UNIQUE INDEX i_tides ON tides(id,ts) ") || execAll(db, "VACUUM"))
        goto done;
    rc = 0;
done:
    sqlite3_finalize(st);
    sqlite3_close(db);
    return rc;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: %s <lands.geo.json> <data.txt> <out.marepack>\n", argv[0]);
        return 2;
    }
    BuildData d;
    if (readData(argv[2], &d) != 0) return 1;
    const Region *world = findRegion(d, "world"), *regional = findRegion(d, "regional"),
                 *detail = findRegion(d, "detail");
    if (!world || !regional || !detail) {
        fprintf(stderr, "chartpack: regions world, regional and detail are required\n");
        return 1;
    }
    printf("chartpack: %zu tide rows, %zu places\n", d.tides.size(), d.places.size());

    std::vector<CpRing> land;
    long n = cp_loadLand(argv[1], &land);
    if (n <= 0) {
        fprintf(stderr, "chartpack: no land polygons read from %s\n", argv[1]);
        return 1;
    }
    size_t points = 0;
    for (const CpRing &r : land) points += r.xy.size() / 2;
    printf("chartpack: %ld land rings, %zu points\n", n, points);
    fflush(stdout);

    TileJob job;
    job.detailBox = detail->box;
    addTiles(&job, *world, 0);
    addTiles(&job, *regional, 0);
    addTiles(&job, *detail, 1);
    placeLabels(&job, d);
    descend(&job, 0, 0, 0, land);
    land.clear();
    if (job.failed) {
        fprintf(stderr, "chartpack: %d tiles failed to draw\n", job.failed);
        return 1;
    }

    /* A private temporary name: two build trees may fill the cache at once. */
    char suffix[32];
    snprintf(suffix, sizeof(suffix), ".part%ld", (long)getpid());
    std::string tmp = std::string(argv[3]) + suffix;
    if (writePack(tmp.c_str(), d, job) != 0 || rename(tmp.c_str(), argv[3]) != 0) {
        fprintf(stderr, "chartpack: writing %s failed\n", argv[3]);
        unlink(tmp.c_str());
        return 1;
    }
    size_t bytes = 0, full = 0;
    for (const auto &t : job.png) bytes += t.second.size();
    for (const auto &t : job.opaque) full += t.second ? 1 : 0;
    printf("chartpack: wrote %s: %zu tiles (%zu covering, %zu partial), %zu bytes of PNG\n", argv[3],
           job.png.size(), full, job.png.size() - full, bytes);
    return 0;
}
