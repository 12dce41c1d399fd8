// The pack checker on small packs made here (a good pack passes, each damage is reported), the base chart
// pack's clipping and label placement, and the packs as built, read the way the host and the client read them.
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>
#include <math.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <time.h>

#include <string>
#include <vector>

#include "packs/chartpack_render.h"
#include "store/pack_store.h"
#include "support/test_pack.h"
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

// A good chart pack: two tiles, one chart, one tide station around a high and a low, one place.
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
        for (long long key : {kFull, kPartial})
            testpack::insert(db, "INSERT INTO tiles VALUES (NULL,?,?)", {(int64_t)key, tilePng(key == kPartial)}, true);
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
    TempPack noAvailability;  // the application pack's case is the built one's
    noAvailability.exec("UPDATE kvt SET v='false' WHERE k='avtiles2'");
    r = noAvailability.check();
    EXPECT_TRUE(r.problems.empty()) << joined(r);
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

// Whole tiles and other bytes go through the checker's runs above.
TEST(PackCheck, CornerValueOfACutOrMissingTileIsZero) {
    const std::string opaque = tilePng(false);
    EXPECT_EQ(0, pc_cornerValue(opaque.data(), (int)opaque.size() / 2));
    EXPECT_EQ(0, pc_cornerValue(nullptr, 10));
}

double area(const CpRing &r) {
    double a = 0;
    size_t n = r.xy.size() / 2;
    for (size_t i = 0; i < n; i++) {
        size_t j = (i + 1) % n;
        a += r.xy[2 * i] * r.xy[2 * j + 1] - r.xy[2 * j] * r.xy[2 * i + 1];
    }
    return fabs(a) / 2;
}

CpRing ring(std::vector<double> xy) {
    CpRing r;
    r.xy = xy;
    r.hole = 0;
    r.x1 = r.y1 = 1e9;
    r.x2 = r.y2 = -1e9;
    for (size_t i = 0; i < xy.size(); i += 2) {
        r.x1 = fmin(r.x1, xy[i]), r.x2 = fmax(r.x2, xy[i]);
        r.y1 = fmin(r.y1, xy[i + 1]), r.y2 = fmax(r.y2, xy[i + 1]);
    }
    return r;
}

TEST(ChartPackRender, ClipKeepsTheAreaInsideTheBoxAndTheHoleFlag) {
    struct Case {
        const char *what;
        std::vector<double> xy;
        int hole;
        double wantArea;  // inside the box 0..1 x 0..1
    } cases[] = {
        {"inside", {0.2, 0.2, 0.8, 0.2, 0.8, 0.8, 0.2, 0.8}, 0, 0.36},
        {"outside", {2, 2, 3, 2, 3, 3}, 0, 0},
        {"around the box", {-1, -1, 2, -1, 2, 2, -1, 2}, 0, 1},
        // a U open to the top, its arms reaching out of the box
        {"concave across the top", {0.1, -0.5, 0.3, -0.5, 0.3, 0.5, 0.7, 0.5, 0.7, -0.5, 0.9, -0.5, 0.9, 0.7, 0.1, 0.7},
         0, 0.2 * 0.7 * 2 + 0.4 * 0.2},
        {"triangle over a corner", {-0.5, 0.5, 0.5, -0.5, 0.5, 0.5}, 0, 0.25},
        {"lake across the box", {-1, 0.5, 2, 0.5, 2, 0.6}, 1, 0.05},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        CpRing in = ring(c.xy), out;
        in.hole = c.hole;
        int n = cp_clipRing(in, 0, 0, 1, 1, &out);
        if (c.wantArea == 0) {
            EXPECT_EQ(0, n);
            continue;
        }
        ASSERT_GE(n, 3);
        EXPECT_EQ(c.hole, out.hole);
        EXPECT_NEAR(c.wantArea, area(out), 1e-9);
        for (double v : out.xy) {
            EXPECT_GE(v, -1e-12);
            EXPECT_LE(v, 1 + 1e-12);
        }
    }
}

TEST(ChartPackRender, NamesDoNotOverlap) {
    struct Case {
        const char *what;
        std::vector<double> lat, lon;
        size_t kept;
    } cases[] = {
        {"same place: the first wins", {54.32, 54.3201}, {10.13, 10.1301}, 1},
        {"side by side at zoom 12", {54.32, 54.32}, {10.13, 10.14}, 1},
        {"one above the other, apart", {54.32, 54.30}, {10.13, 10.13}, 2},
    };
    for (const auto &c : cases) {
        std::vector<CpLabel> l = cp_placeLabels(12, c.lat, c.lon, {"Kiel", "Hamburg"});
        ASSERT_EQ(c.kept, l.size()) << c.what;
        EXPECT_EQ("Kiel", l[0].name) << c.what;
        EXPECT_LT(l[0].bx1, l[0].px) << c.what;  // the box holds the dot and the text to its right
        EXPECT_GT(l[0].bx2, l[0].px + 20) << c.what;
    }
    // release cairo's and fontconfig's static font caches for the leak checker
    cairo_debug_reset_static_data();
    FcFini();
}

// The first column of sql on the built pack ("" when there is no row).
std::string packText(const std::string &sql) { return testpack::sqlColumn(MAREPLOT_CHART_PACK, sql); }
long long packCount(const std::string &sql) { return atoll(packText(sql).c_str()); }

TEST(BuiltPack, BothPacksPassTheChecker) {
    struct Case {
        const char *path;
        int chartPack;
    } cases[] = {{MAREPLOT_CHART_PACK, 1}, {MAREPLOT_APP_PACK, 0}};
    for (const Case &c : cases) {
        PcReport r;
        EXPECT_EQ(0, pc_checkFile(c.path, &r)) << c.path << ":\n" << joined(r);
        EXPECT_EQ(c.chartPack, r.chartPack) << c.path;
        if (c.chartPack) {
            EXPECT_GT(r.tiles, 5000);
            EXPECT_GT(r.tideRows, 100000);
            EXPECT_GT(r.gazRows, 1000);
        }
    }
}

TEST(BuiltPack, DefaultViewHasEveryDetailLevel) {
    for (int z = 3; z <= 12; z++) {
        int n = 1 << z;
        long long x = (long long)((10.1 + 180) / 360 * n);
        double phi = 54.52 * M_PI / 180;
        long long y = (long long)((1 - log(tan(phi) + 1 / cos(phi)) / M_PI) / 2 * n);
        long long key = ((long long)z << 40) + (y << 20) + x;
        EXPECT_EQ(1, packCount("SELECT count(*) FROM tiles WHERE zyx=" + std::to_string(key))) << "zoom " << z;
        // the client draws this tile alone: all four corners opaque
        EXPECT_EQ(1, packCount("SELECT value FROM json_each((SELECT CAST(v AS TEXT) FROM kvt WHERE k='avtiles2')) "
                           "WHERE key='" + std::to_string(key) + "'"))
            << "zoom " << z;
    }
}

TEST(BuiltPack, TidesCoverTheComingWeeksAtEveryStation) {
    // what the tide view asks for when opened now: 30 days either side
    long long now = (long long)time(nullptr), db1 = now - 30 * 86400, db2 = db1 + 60 * 86400;
    long long stations = packCount("SELECT count(*) FROM json_each((SELECT CAST(v AS TEXT) FROM kvt WHERE k='tides'))");
    ASSERT_GT(stations, 0);
    // names keep their umlauts, which the station source leaves out for some gauges
    EXPECT_EQ(1, packCount("SELECT count(*) FROM json_each((SELECT CAST(v AS TEXT) FROM kvt WHERE k='tides')) "
                           "WHERE json_extract(value,'$.name')='Eckernf\xc3\xb6rde'"));
    for (long long id = 1; id <= stations; id++) {
        std::string where = " FROM tides WHERE id=" + std::to_string(id) + " AND ts > " + std::to_string(db1) +
                            " AND ts < " + std::to_string(db2);
        EXPECT_GE(packCount("SELECT count(*)" + where + " AND typ=2"), 60 * 24 - 2) << "station " << id;
        EXPECT_GT(packCount("SELECT count(*)" + where + " AND typ=1"), 40) << "station " << id;
        EXPECT_GT(packCount("SELECT count(*)" + where + " AND typ=0"), 40) << "station " << id;
    }
}

TEST(BuiltPack, ChartListLeadsToTheDetailChart) {
    const char *charts = "json_each((SELECT CAST(v AS TEXT) FROM kvt WHERE k='chartlist'))";
    // first view of the pack: the largest scale below 5000000
    std::string first = packText(std::string("SELECT json_extract(value,'$.nu') FROM ") + charts +
                             " WHERE CAST(json_extract(value,'$.sc') AS REAL) < 5000000"
                             " ORDER BY CAST(json_extract(value,'$.sc') AS REAL) DESC LIMIT 1");
    // a tap on the default position: the smallest scale whose box holds it
    int32_t y, x;
    toMerc(54.52, 10.1, &y, &x);
    std::string best = packText(std::string("SELECT json_extract(value,'$.nu') FROM ") + charts + " WHERE " +
                            std::to_string(x) + " > json_extract(value,'$.x1') AND " + std::to_string(x) +
                            " < json_extract(value,'$.x2') AND " + std::to_string(y) +
                            " > json_extract(value,'$.y1') AND " + std::to_string(y) +
                            " < json_extract(value,'$.y2') ORDER BY CAST(json_extract(value,'$.sc') AS REAL) LIMIT 1");
    EXPECT_FALSE(first.empty());
    EXPECT_EQ(first, best);
}

TEST(BuiltPack, GazetteerNamesThePlacesAroundTheDefaultView) {
    int32_t y, x;
    toMerc(54.32, 10.13, &y, &x);  // Kiel
    long long near = packCount("SELECT count(*) FROM gaz WHERE x > " + std::to_string(x - 50000) + " AND x < " +
                           std::to_string(x + 50000) + " AND y > " + std::to_string(y - 50000) + " AND y < " +
                           std::to_string(y + 50000));
    EXPECT_GT(near, 10);
    EXPECT_EQ(1, packCount("SELECT count(*) FROM gaz WHERE n='Kiel' AND c LIKE 'P.PPL%'"));
}

TEST(BuiltPack, CreditsItsSources) {
    std::string info = packText("SELECT v FROM kvt WHERE k='/info' AND l='**'");
    std::string history = packText("SELECT v FROM kvt WHERE k='/history' AND l='**'");
    EXPECT_FALSE(info.empty());
    // both texts the client shows credit every source
    for (auto s : {"OpenStreetMap contributors", "ODbL", "GeoNames", "CC BY 4.0", "Neaps tide database", "TICON"}) {
        EXPECT_NE(std::string::npos, history.find(s)) << s;
        EXPECT_NE(std::string::npos, info.find(s)) << s;
    }
}

}  // namespace
