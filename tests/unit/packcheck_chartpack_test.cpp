// The base chart pack: its drawing functions on small inputs, and the pack
// as built, read the way the host and the client read it.
#include <cairo.h>
#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <time.h>

#include <string>
#include <vector>

#include "packs/chartpack_render.h"
#include "store/pack_store.h"
#include "support/test_pack.h"
#include "tools/packcheck.h"

namespace {

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
        {"across the right edge", {0.5, 0.25, 1.5, 0.25, 1.5, 0.75, 0.5, 0.75}, 0, 0.25},
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

TEST(ChartPackRender, TileRangeOfABox) {
    struct Case {
        CpGeoBox box;
        int z, x1, y1, x2, y2;
    } cases[] = {
        {{-180, 180, -85, 85}, 3, 0, 0, 7, 7},
        {{0, 45, 0, 40}, 3, 4, 3, 4, 3},    // exactly one tile: its east and south edges are not the next tile
        {{10.1, 10.1, 54.52, 54.52}, 8, 135, 81, 135, 81},
        {{-200, 200, -89, 89}, 2, 0, 0, 3, 3},  // held inside the grid
    };
    for (const auto &c : cases) {
        int x1, y1, x2, y2;
        cp_tileRange(c.box, c.z, &x1, &y1, &x2, &y2);
        EXPECT_EQ((std::vector<int>{c.x1, c.y1, c.x2, c.y2}), (std::vector<int>{x1, y1, x2, y2})) << c.z;
    }
}

TEST(ChartPackRender, ReadsPolygonsAndHoles) {
    const char *text =
        "{\"type\":\"GeometryCollection\",\"geometries\":[\n"
        "{\"type\":\"Polygon\",\"coordinates\":[[[0,0],[10,0],[10,10],[0,10],[0,0]],[[2,2],[3,2],[3,3],[2,2]]]},\n"
        "{\"type\":\"MultiPolygon\",\"coordinates\":[[[[20,0],[30,0],[30,5, 7],[20,0]]],[[[40,0],[41,0]]]]}]}";
    const std::string dir = makeTempDir("packcheck-land-"), path = dir + "/land.geo.json";
    writeFile(path, text);
    std::vector<CpRing> rings;
    EXPECT_EQ(3, cp_loadLand(path.c_str(), &rings));  // the two-point ring is dropped
    removeTree(dir);
    ASSERT_EQ(3u, rings.size());
    EXPECT_EQ(0, rings[0].hole);
    EXPECT_EQ(1, rings[1].hole);
    EXPECT_EQ(0, rings[2].hole);
    EXPECT_EQ(8u, rings[0].xy.size());  // the repeated first point is not kept
    EXPECT_NEAR(cp_mercX(10), rings[0].x2, 1e-12);
    EXPECT_NEAR(cp_mercY(10), rings[0].y1, 1e-12);

    std::vector<CpRing> none;
    EXPECT_EQ(-1, cp_loadLand("/nonexistent.geo.json", &none));
}

TEST(ChartPackRender, NamesDoNotOverlap) {
    struct Case {
        const char *what;
        std::vector<double> lat, lon;
        size_t kept;
    } cases[] = {
        {"far apart", {54.32, 53.55}, {10.13, 9.99}, 2},
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
    // Cairo and fontconfig keep the font they measured with in static
    // caches; release them so the leak checker of the sanitizer build sees a
    // clean exit (both set themselves up again when next used).
    cairo_debug_reset_static_data();
    FcFini();
}

// ---- the pack as built ----

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
        int rc = pc_checkFile(c.path, &r);
        std::string all;
        for (const auto &p : r.problems) all += p + "\n";
        EXPECT_EQ(0, rc) << c.path << ":\n" << all;
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
    // both texts the client shows name the land, the places and the tides'
    // sources, with the station data's own credit
    for (const char *s : {"OpenStreetMap contributors", "ODbL", "GeoNames", "CC BY 4.0", "Neaps tide database", "TICON"}) {
        EXPECT_NE(std::string::npos, history.find(s)) << s;
        EXPECT_NE(std::string::npos, info.find(s)) << s;
    }
}

}  // namespace
