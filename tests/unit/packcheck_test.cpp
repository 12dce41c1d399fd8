// The pack checker on small packs made here: a good pack passes, and each
// kind of damage is reported under its own heading.
#include <cairo.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

#include "support/files.h"
#include "tools/packcheck.h"

namespace {

cairo_status_t toString(void *closure, const unsigned char *data, unsigned int length) {
    ((std::string *)closure)->append((const char *)data, length);
    return CAIRO_STATUS_SUCCESS;
}

// A 256 by 256 PNG: opaque all over, or with its top left quarter clear.
std::string tilePng(bool clearCorner) {
    cairo_surface_t *s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 256, 256);
    cairo_t *cr = cairo_create(s);
    cairo_set_source_rgb(cr, 0.8, 0.9, 1.0);
    cairo_paint(cr);
    if (clearCorner) {
        cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
        cairo_rectangle(cr, 0, 0, 128, 128);
        cairo_fill(cr);
    }
    cairo_destroy(cr);
    std::string png;
    cairo_surface_write_to_png_stream(s, toString, &png);
    cairo_surface_destroy(s);
    return png;
}

const long long kFull = (3LL << 40) | (1LL << 20) | 0;   // 3/1/0
const long long kPartial = (3LL << 40) | (1LL << 20) | 1; // 3/1/1

// A good chart pack: both tiles listed, one chart, one tide station with
// samples around a high and a low, one place. Documents are BLOBs, as built.
struct TempPack {
    std::string dir = makeTempDir("packcheck-"), path = dir + "/pack.marepack";
    sqlite3 *db = nullptr;

    TempPack() {
        sqlite3_open(path.c_str(), &db);
        exec("PRAGMA page_size=1024; PRAGMA journal_mode=DELETE;");
        exec("CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)");
        exec("CREATE INDEX i_kv_lk ON kvt(l,k) ");
        exec("CREATE TABLE tiles (verid INTEGER,\t\tzyx INTEGER PRIMARY KEY,\t\tpng BLOB)");
        exec("CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)");
        exec("CREATE INDEX i_gaz ON gaz(x) ");
        exec("CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)");
        exec("CREATE UNIQUE INDEX i_tides ON tides(id,ts) ");
        tile(kFull, tilePng(false));
        tile(kPartial, tilePng(true));
        const std::string full = "\"" + std::to_string(kFull) + "\"", part = "\"" + std::to_string(kPartial) + "\"";
        exec("INSERT INTO kvt VALUES ('avtiles2','{" + full + ":1," + part + ":2}',5,'**'),"
             "('avtiles','{" + full + ":true," + part + ":true}',5,'**'),"
             "('chartlist','[{\"nu\":\"N1\",\"na\":\"Name\",\"ed\":\"--\",\"sc\":\"5000000\",\"un\":\"\",\"sd\":\"\","
             "\"x1\":100,\"y1\":200,\"x2\":900,\"y2\":800,\"po\":[100,200,900,200,900,800,100,800]}]',5,'**'),"
             "('tides','{\"7\":{\"id\":7,\"src\":\"X\",\"name\":\"Pier\",\"stype\":1}}',5,'**'),"
             "('version','1700000000',5,'**'); UPDATE kvt SET v=CAST(v AS BLOB)");
        exec("INSERT INTO tides VALUES (7,0,10,2),(7,1800,5,0),(7,3600,40,2),(7,5400,90,1),(7,7200,80,2)");
        exec("INSERT INTO gaz VALUES (21000000,12800000,'P.PPL',40,'Kiel')");
    }
    ~TempPack() {
        if (db) sqlite3_close(db);
        removeTree(dir);
    }
    void exec(const std::string &sql) {
        char *err = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &err)) << sql << ": " << (err ? err : "");
    }
    void tile(long long key, const std::string &png) {
        sqlite3_stmt *st;
        sqlite3_prepare_v2(db, "INSERT INTO tiles VALUES (NULL,?,?)", -1, &st, nullptr);
        sqlite3_bind_int64(st, 1, key);
        sqlite3_bind_blob(st, 2, png.data(), (int)png.size(), SQLITE_TRANSIENT);
        sqlite3_step(st);
        sqlite3_finalize(st);
    }
    PcReport check() {
        sqlite3_close(db);
        db = nullptr;
        PcReport r;
        pc_checkFile(path.c_str(), &r);
        return r;
    }
};

std::string joined(const PcReport &r) {
    std::string s;
    for (const auto &p : r.problems) s += p + "\n";
    return s;
}

TEST(PackCheck, GoodPacksPass) {
    TempPack good;
    PcReport r = good.check();
    EXPECT_TRUE(r.problems.empty()) << joined(r);
    EXPECT_EQ(1, r.chartPack);
    EXPECT_EQ(2, r.tiles);
    EXPECT_EQ(5, r.tideRows);
    EXPECT_EQ(1, r.gazRows);

    struct Case {
        const char *what, *sql;
        int chartPack;
    } cases[] = {
        {"availability false", "UPDATE kvt SET v='false' WHERE k='avtiles2'", 1},
        {"application pack: no chart tables", "DROP TABLE tiles; DROP TABLE gaz; DROP TABLE tides; DELETE FROM kvt", 0},
    };
    for (const auto &c : cases) {
        TempPack p;
        p.exec(c.sql);
        r = p.check();
        EXPECT_TRUE(r.problems.empty()) << c.what << ":\n" << joined(r);
        EXPECT_EQ(c.chartPack, r.chartPack) << c.what;
    }
    EXPECT_EQ(-1, pc_checkFile("/nonexistent/pack.marepack", &r));
}

TEST(PackCheck, EachDamageIsReported) {
    const std::string full = std::to_string(kFull), part = std::to_string(kPartial);
    struct Case {
        std::string sql;  // run on the good pack
        const char *expect;
    } cases[] = {
        {"UPDATE kvt SET v='{\"" + full + "\":1}' WHERE k='avtiles2'", "is not listed"},
        {"DELETE FROM tiles WHERE zyx=" + part, "no such tile"},
        {"UPDATE kvt SET v='{\"" + full + "\":1,\"" + part + "\":1}' WHERE k='avtiles2'", "the corners say 2"},
        {"UPDATE kvt SET v='{\"" + full + "\":3,\"" + part + "\":2}' WHERE k='avtiles2'", "not 1 or 2"},
        {"UPDATE kvt SET v='{1:' WHERE k='avtiles2'", "not a JSON object"},
        {"UPDATE kvt SET v='{\"" + full + "\":true}' WHERE k='avtiles'", "1 entries for 2 tiles"},
        {"UPDATE tiles SET png=x'0102' WHERE zyx=" + full, "not a PNG"},
        {"UPDATE tiles SET zyx=" + std::to_string((3LL << 40) | 9) + " WHERE zyx=" + full, "not a tile key"},
        {"UPDATE tiles SET verid=1", "verid is not NULL"},
        {"UPDATE kvt SET v=replace(v,'\"x2\":900','\"x2\":41000000') WHERE k='chartlist'", "x2 lies outside the grid"},
        {"UPDATE kvt SET v=replace(v,'\"y1\":200','\"y1\":850') WHERE k='chartlist'", "box is empty"},
        {"UPDATE kvt SET v=replace(v,',100,800]',',100]') WHERE k='chartlist'", "not a closed outline"},
        {"UPDATE kvt SET v=replace(v,'[100,200,','[5,200,') WHERE k='chartlist'", "outside its box"},
        {"UPDATE kvt SET v=replace(v,'\"un\":\"\",','') WHERE k='chartlist'", "has keys"},
        {"UPDATE kvt SET v=replace(v,'\"5000000\"','\"big\"') WHERE k='chartlist'", "sc is neither"},
        {"INSERT INTO tides VALUES (7,-100,5,0)", "before the first sample"},
        {"INSERT INTO tides VALUES (7,9000,5,0)", "after the last sample"},
        {"UPDATE tides SET level=60 WHERE typ=1", "passed by its samples"},
        {"UPDATE tides SET typ=1, level=95 WHERE ts=1800", "two high waters in a row"},
        {"UPDATE tides SET typ=5 WHERE ts=1800", "typ 5"},
        {"DELETE FROM tides WHERE ts=0; INSERT INTO tides VALUES (7,0,10,2)", "not after"},
        {"UPDATE kvt SET v=replace(v,'\"7\":{\"id\":7','\"8\":{\"id\":8') WHERE k='tides'", "stype 1 but no rows"},
        {"UPDATE kvt SET v=replace(v,'\"id\":7','\"id\":9') WHERE k='tides'", "differs from its name"},
        {"UPDATE gaz SET r=256", "rank outside"},
        {"UPDATE gaz SET n='Kiel \"Fjord\"'", "quote or backslash"},
        {"UPDATE gaz SET n=''", "without a name"},
        {"UPDATE gaz SET y=-5", "outside the grid"},
        {"UPDATE kvt SET t=15 WHERE k='version'", "type code"},
        {"UPDATE kvt SET k='Version' WHERE k='version'", "capitals"},
        {"UPDATE kvt SET v='v1' WHERE k='version'", "version"},
        {"DROP INDEX i_tides; CREATE INDEX i_tides ON tides(id,ts) ", "schema: i_tides is"},
        {"DROP TABLE gaz", "gaz is missing"},
        {"CREATE TABLE extra (a)", "unexpected extra"},
        {"PRAGMA user_version=3", "user_version 3"},
        {"PRAGMA application_id=7", "application_id 7"},
        {"PRAGMA journal_mode=WAL", "not the rollback journal"},
        {"PRAGMA page_size=4096; VACUUM", "page size 4096"},
    };
    for (const auto &c : cases) {
        TempPack p;
        p.exec(c.sql);
        PcReport r = p.check();
        EXPECT_NE(std::string::npos, joined(r).find(c.expect)) << c.sql << ":\n" << joined(r);
    }
}

TEST(PackCheck, CornerValue) {
    const std::string opaque = tilePng(false), partial = tilePng(true);
    struct Case {
        std::string bytes;
        int want;
    } cases[] = {
        {opaque, 1},
        {partial, 2},
        {opaque.substr(0, opaque.size() / 2), 0},  // cut short
        {"GIF89a", 0},
        {"", 0},
    };
    for (const auto &c : cases) EXPECT_EQ(c.want, pc_cornerValue(c.bytes.data(), (int)c.bytes.size()));
    EXPECT_EQ(0, pc_cornerValue(nullptr, 10));
}

}  // namespace
