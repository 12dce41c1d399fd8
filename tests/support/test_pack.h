/* test_pack.h -- small chart packs, a home laid out as the host expects, and the host started over both. */
#ifndef MAREPLOT_TEST_PACK_H
#define MAREPLOT_TEST_PACK_H

#include <sqlite3.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "support/host_harness.h"

namespace testpack {

struct Kv {
    std::string k, v;
    int t;
    std::string l;
};
struct Tile {
    int64_t z, y, x;
    std::string png;
};
struct Place {
    int32_t x, y;
    std::string c;
    int r;
    std::string n;
};
struct Pack {
    bool withTiles = true;
    std::vector<Kv> kv;
    std::vector<Tile> tiles;
    std::vector<Place> gaz;
};

inline int64_t zyx(int64_t z, int64_t y, int64_t x) { return (z << 40) | (y << 20) | x; }

/* Bytes that look like a PNG and hold NUL bytes, distinct per seed. */
inline std::string fakePng(int seed, size_t size = 300) {
    std::string s("\x89PNG\r\n\x1a\n", 8);
    for (size_t i = s.size(); i < size; i++)
        s.push_back((char)((i * 7 + (size_t)seed * 13) % 5 == 0 ? 0 : 'a' + (i + (size_t)seed) % 26));
    return s;
}

/* The pack most tests use, tag making its documents and tiles its own; rows of each odd kind the host stores. */
inline Pack standardPack(const std::string &tag = "A") {
    Pack p;
    p.kv = {
        {"/info", "<p>info de " + tag + "</p>", 1, "de"},
        {"/info", "<p>info " + tag + "</p>", 1, "**"},
        {"/history", "<p>history</p>", 1, "**"},
        {"/onlyde", "nur deutsch", 4, "de"},
        {"version", "1521740772" + tag, 5, "**"},
        {"avtiles", "{\"3298535931904\":true}", 5, "**"},
        {"chartlist", "[]", 5, "**"},
        {"tides", "{\"167\":{\"id\":167}}", 5, "**"},
        {"mrk", "{\"n\":\"a\"}", 5, "en"},
        {"mrk", "{\"n\":\"b\"},{\"n\":\"c\"}", 5, "**"},
        {"mrk", "", 5, "**"},
        {"/img/a.png", fakePng(99, 500), 6, "**"},
        {"/Caps", "dead", 4, "**"},
        {"frag", "<b>x</b>", 100, "**"},
    };
    p.tiles = {
        {3, 1, 0, fakePng(tag[0] + 1, 2192)},
        {3, 1, 1, fakePng(tag[0] + 2)},
        {10, 300, 540, fakePng(tag[0] + 3)},
    };
    p.gaz = {
        {1000, 1000, "H.ANCH", 3, "Near3"},  {1500, 1500, "H.ANCH", 3, "Far3"},
        {1200, 1200, "P.PPL", 5, "Top5"},    {1100, 1100, "L.PRT", 0, "Zero1"},
        {1300, 1300, "L.PRT", 0, "Zero2"},   {9000, 9000, "P.PPL", 9, "Outside"},
    };
    return p;
}

inline bool exec(sqlite3 *db, const char *sql) {
    return sqlite3_exec(db, sql, NULL, NULL, NULL) == SQLITE_OK;
}

/* The first column of each row of sql on file db (read-only), joined by commas; empty if it does not open. */
inline std::string sqlColumn(const std::string &db, const std::string &sql) {
    sqlite3 *h = NULL;
    std::string out;
    if (sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, NULL) == SQLITE_OK) {
        sqlite3_stmt *st = NULL;
        sqlite3_prepare_v2(h, sql.c_str(), -1, &st, NULL);
        for (int n = 0; sqlite3_step(st) == SQLITE_ROW; n++)
            out += (n ? "," : "") + std::string((const char *)sqlite3_column_text(st, 0));
        sqlite3_finalize(st);
    }
    sqlite3_close(h);
    return out;
}

/* One INSERT with vals bound in order: numbers as integers, texts by byte count (NUL stays), BLOBs if blobs. */
inline bool insert(sqlite3 *db, const char *sql, const std::vector<std::variant<int64_t, std::string>> &vals,
                   bool blobs = false) {
    sqlite3_stmt *st = NULL;
    if (sqlite3_prepare_v2(db, sql, -1, &st, NULL) != SQLITE_OK) return false;
    for (int i = 0; i < (int)vals.size(); i++) {
        const std::string *t = std::get_if<std::string>(&vals[i]);
        if (t == NULL)
            sqlite3_bind_int64(st, i + 1, std::get<int64_t>(vals[i]));
        else if (blobs)
            sqlite3_bind_blob(st, i + 1, t->data(), (int)t->size(), SQLITE_TRANSIENT);
        else
            sqlite3_bind_text(st, i + 1, t->data(), (int)t->size(), SQLITE_TRANSIENT);
    }
    bool ok = sqlite3_step(st) == SQLITE_DONE;
    sqlite3_finalize(st);
    return ok;
}

/* Writes p to path, replacing any file there. Returns true on success. */
inline bool writePack(const std::string &path, const Pack &p) {
    sqlite3 *db = NULL;
    unlink(path.c_str());
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) return false;
    bool ok = exec(db, "PRAGMA page_size=1024") && exec(db, "BEGIN") &&
              exec(db, "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)") &&
              exec(db, "CREATE INDEX i_kv_lk ON kvt(l,k) ") &&
              exec(db, "CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)") &&
              exec(db, "CREATE INDEX i_gaz ON gaz(x) ") &&
              exec(db, "CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)") &&
              exec(db, "CREATE UNIQUE INDEX i_tides ON tides(id,ts) ") &&
              exec(db, "INSERT INTO tides VALUES (167,1420066800,120,1),(167,1420070400,-35,2)");
    if (ok && p.withTiles)
        ok = exec(db, "CREATE TABLE tiles (verid INTEGER,\t\tzyx INTEGER PRIMARY KEY,\t\tpng BLOB)");
    for (const Kv &r : p.kv)
        ok = ok && insert(db, "INSERT INTO kvt VALUES (?,?,?,?)", {r.k, r.v, (int64_t)r.t, r.l});
    for (const Tile &t : p.withTiles ? p.tiles : std::vector<Tile>())
        ok = ok && insert(db, "INSERT INTO tiles (zyx,png) VALUES (?,?)", {zyx(t.z, t.y, t.x), t.png}, true);
    for (const Place &g : p.gaz)
        ok = ok && insert(db, "INSERT INTO gaz VALUES (?,?,?,?,?)",
                          {(int64_t)g.x, (int64_t)g.y, g.c, (int64_t)g.r, g.n});
    ok = ok && exec(db, "COMMIT");
    sqlite3_close(db);
    return ok;
}

/* A temporary home whose data directory exists before the host starts, for packs and key files. */
class PackHome {
  public:
    PackHome() : home_(makeTempDir("mareplot-packs-")) {
        mkdir((home_ + "/.local").c_str(), 0755);
        mkdir((home_ + "/.local/share").c_str(), 0755);
        mkdir(dataDir().c_str(), 0755);
    }
    ~PackHome() { removeTree(home_); }
    const std::string &home() const { return home_; }
    std::string dataDir() const { return home_ + "/.local/share/mareplot"; }
    std::string path(const std::string &name) const { return dataDir() + "/" + name; }
    bool put(const std::string &name, const Pack &p) const { return writePack(path(name), p); }
    /* Stamps the running version, so the host keeps the packs placed here instead of writing its own. */
    void stampVersion() const { writeFile(path("version.key"), "M.1.16.568"); }

  private:
    std::string home_;
};

/* The 35-byte reply for a missing tile. */
inline std::string onePixelGif() {
    return std::string("GIF89a\x01\0\x01\0\x80\0\0\xff\xff\xff\0\0\0,\0\0\0\0\x01\0\x01\0\0\x02\x02" "D\x01\0;", 35);
}

using NamedPacks = std::vector<std::pair<std::string, Pack>>;

/* A home with the given packs by file name (default A000005 "A", A000006 "B"), prepared, and the host on it. */
struct PackedHost {
    PackHome home;
    std::unique_ptr<Host> host;
    explicit PackedHost(const NamedPacks &packs = {{"A000005.marepack", standardPack("A")},
                                                   {"A000006.marepack", standardPack("B")}},
                        const std::function<void(const PackHome &)> &prepare = nullptr) {
        for (const auto &p : packs) home.put(p.first, p.second);
        if (prepare) prepare(home);
        host.reset(new Host(home.home()));
    }
    HttpReply select(const std::string &name = "A000005.marepack") {
        return httpGet("/getSetState/chartdb=" + name);
    }
};

}  // namespace testpack

#endif
