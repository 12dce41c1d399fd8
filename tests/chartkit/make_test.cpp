/* make_test.cpp -- mareplot-chartkit make and info on rasters GDAL wrote from NOAA's ETOPO5 relief, an
** MBTiles file made from it and a hand-made KAP chart. GDAL is the oracle for tile bytes, boxes, colours. */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "chartkit/kit_support.h"
#include "chartkit/tile_pixel.h"

namespace {

const char *kTool = CHARTKIT_PATH;
const char *kRelief = "/usr/share/ferret-vis/data/etopo5.cdf";
/* two colours by the sign of the height: every pixel off the coast is one */
const unsigned char kSea[4] = {100, 150, 220, 255}, kLand[4] = {230, 220, 170, 255};
const unsigned char kKapLeft[4] = {200, 220, 240, 255}, kKapRight[4] = {240, 220, 160, 255};

std::string dir; /* inputs and packs of the whole suite */

using kit::sqlOne;

double jsonNumber(const std::string &json, const std::string &path) {
    return atof(kit::jsonAt(json, path).c_str());
}

/* The pack's pixel at a position as pngPixel gives it; 1 when there is no tile. */
uint32_t pixelAt(const std::string &pack, double lon, double lat, int z) {
    TilePixel t = tilePixel(lon, lat, z);
    int64_t key = ((int64_t)z << 40) | ((int64_t)t.y << 20) | t.x;
    std::string png = sqlOne(pack, "SELECT png FROM tiles WHERE zyx=" + std::to_string(key));
    return png == "(none)" ? 1 : pngPixel(png, t.col, t.row);
}

kit::Run make(const std::vector<std::string> &rest) {
    std::vector<std::string> args = {kTool, "make"};
    args.insert(args.end(), rest.begin(), rest.end());
    return kit::run(args);
}

std::string at(const char *name) { return dir + "/" + name; }

class ChartkitMake : public ::testing::Test {
  protected:
    /* Made once: the German Bight's relief (4 by 4 degrees) tiled to MBTiles, a KAP chart, a pack of each. */
    static void SetUpTestSuite() {
        dir = makeTempDir("mareplot-chartkit-");
        writeFile(at("colours.txt"), "-1 100 150 220\n1 230 220 170\nnv 0 0 0 0\n");
        const std::vector<std::vector<std::string>> steps = {
            {"gdal_translate", "-q", "-projwin", "5", "56", "9", "52", "-a_srs", "EPSG:4326", kRelief, at("cut.tif")},
            {"gdaldem", "color-relief", "-q", "-nearest_color_entry", "-alpha", at("cut.tif"), at("colours.txt"),
             at("relief.tif")},
            {"gdalwarp", "-q", "-tr", "0.01", "0.01", "-r", "bilinear", at("relief.tif"), at("geo.tif")},
            {"gdal_translate", "-q", "-of", "MBTILES", at("geo.tif"), at("relief.mbtiles")},
            {"gdaladdo", "-q", "-r", "average", at("relief.mbtiles"), "2", "4", "8"},
            {"gdal_translate", "-q", "-of", "PNG", at("relief.tif"), at("plain.png")},
        };
        for (const auto &s : steps) {
            kit::Run r = kit::run(s);
            ASSERT_EQ(0, r.status) << s[0] << ": " << r.err;
        }
        writeFile(at("harbour.kap"), kit::kapChart(10.0, 54.4, 10.2, 54.5));
        ASSERT_EQ(0, make({"--id", "5", "--name", "Relief", "--out", at("A000005.marepack"), at("relief.mbtiles")}).status);
        ASSERT_EQ(0, make({"--id", "6", "--name", "Relief TIFF", "--out", at("A000006.marepack"), at("geo.tif")}).status);
        ASSERT_EQ(0, make({"--id", "7", "--name", "Harbour", "--out", at("A000007.marepack"), at("harbour.kap")}).status);
    }
    static void TearDownTestSuite() { removeTree(dir); }
};

TEST_F(ChartkitMake, MbtilesTilesAreCopiedWithTheirRowsTurned) {
    const std::string pack = at("A000005.marepack"), mbtiles = at("relief.mbtiles");
    ASSERT_GT(atoi(sqlOne(mbtiles, "SELECT count(*) FROM tiles").c_str()), 10);
    EXPECT_EQ(sqlOne(mbtiles, "SELECT count(*) FROM tiles"), sqlOne(pack, "SELECT count(*) FROM tiles"));
    EXPECT_EQ("0", sqlOne(pack, "ATTACH '" + mbtiles + "' AS m; SELECT count(*) FROM m.tiles t WHERE NOT EXISTS "
                                "(SELECT 1 FROM tiles WHERE png = t.tile_data AND zyx = (t.zoom_level << 40) | "
                                "(((1 << t.zoom_level) - 1 - t.tile_row) << 20) | t.tile_column)"));
    /* info counts the tiles by zoom */
    EXPECT_EQ(sqlOne(mbtiles, "SELECT json_group_object(z, n) FROM (SELECT zoom_level AS z, count(*) AS n FROM tiles "
                              "GROUP BY z ORDER BY z)"),
              kit::jsonAt(kit::run({kTool, "info", pack}).out, "$.tiles"));
}

TEST_F(ChartkitMake, ChartListHoldsTheDataBoxNameAndScale) {
    double mb[4];
    ASSERT_EQ(4, sscanf(sqlOne(at("relief.mbtiles"), "SELECT value FROM metadata WHERE name='bounds'").c_str(),
                        "%lf,%lf,%lf,%lf", &mb[0], &mb[1], &mb[2], &mb[3]));
    writeFile(at("nobounds.mbtiles"), readFile(at("relief.mbtiles")));
    sqlOne(at("nobounds.mbtiles"), "DELETE FROM metadata WHERE name='bounds'");
    ASSERT_EQ(0, make({"--id", "11", "--name", "N", "--out", at("A000011.marepack"), at("nobounds.mbtiles")}).status);
    int z, x1, x2, r1, r2;
    ASSERT_EQ(5, sscanf(sqlOne(at("nobounds.mbtiles"),
                               "SELECT zoom_level||' '||min(tile_column)||' '||max(tile_column)||' '||min(tile_row)||' '||"
                               "max(tile_row) FROM tiles WHERE zoom_level=(SELECT max(zoom_level) FROM tiles)")
                            .c_str(),
                        "%d %d %d %d %d", &z, &x1, &x2, &r1, &r2));
    double n = (double)(1 << z);
    auto lat = [n](double row) { return atan(sinh(M_PI * (2 * row / n - 1))) * 180 / M_PI; }; /* TMS rows from the south */
    struct Case {
        const char *pack, *kit, *chart;
        double box[4], tolerance;
        long scaleLow, scaleHigh;
    } cases[] = {
        /* the MBTiles bounds are kept as given; zoom 7 at 54 N is 1:2.6 million */
        {"A000005.marepack", "Relief", "relief", {mb[0], mb[1], mb[2], mb[3]}, 1e-5, 2600000, 2600000},
        /* without bounds, the box of the finest tiles */
        {"A000011.marepack", "N", "relief", {x1 / n * 360 - 180, lat(r1), (x2 + 1) / n * 360 - 180, lat(r2 + 1)}, 1e-4,
         2600000, 2600000},
        /* the warped raster's own extent; its 0.01 degree pixels are a bit over a kilometre */
        {"A000006.marepack", "Relief TIFF", "geo", {4.958, 52.04, 8.958, 56.042}, 0.02, 2000000, 5000000},
        /* the KAP header's name and scale win over what the pixels say */
        {"A000007.marepack", "Harbour", "Test Harbour", {10.0, 54.4, 10.2, 54.5}, 0.005, 25000, 25000},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.pack);
        kit::Run r = kit::run({kTool, "info", at(c.pack)});
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ(c.kit, kit::jsonAt(r.out, "$.name"));
        EXPECT_EQ(c.chart, kit::jsonAt(r.out, "$.charts[0].name"));
        EXPECT_EQ("(none)", kit::jsonAt(r.out, "$.charts[1]"));
        for (int i = 0; i < 4; i++)
            EXPECT_NEAR(c.box[i], jsonNumber(r.out, "$.charts[0].box[" + std::to_string(i) + "]"), c.tolerance) << i;
        long sc = atol(kit::jsonAt(r.out, "$.charts[0].sc").c_str());
        EXPECT_GE(sc, c.scaleLow);
        EXPECT_LE(sc, c.scaleHigh);
        std::string list = sqlOne(at(c.pack), "SELECT v FROM kvt WHERE k='chartlist'");
        EXPECT_LT(jsonNumber(list, "$[0].x1"), jsonNumber(list, "$[0].x2"));
        EXPECT_LT(jsonNumber(list, "$[0].y1"), jsonNumber(list, "$[0].y2"));
        /* the KAP border's five corners, the others the box's four */
        EXPECT_EQ(c.pack == std::string("A000007.marepack") ? "10" : "8", sqlOne(at(c.pack), "SELECT json_array_length(CAST(v AS TEXT), '$[0].po') FROM kvt WHERE k='chartlist'"))
            << list;
        std::string bytes = readFile(at(c.pack));
        EXPECT_EQ(std::to_string(bytes.size()), kit::jsonAt(r.out, "$.bytes"));
        EXPECT_EQ(kit::crcHex(bytes), kit::jsonAt(r.out, "$.crc32"));
        EXPECT_EQ(atoi(c.pack + 1), atoi(kit::jsonAt(r.out, "$.id").c_str()));
    }
}

TEST_F(ChartkitMake, WarpedTilesShowTheSourceColoursAndAreClearOutsideIt) {
    struct Case {
        const char *pack;
        double lon, lat;
        int z;
        const unsigned char *want; /* NULL: transparent */
    } cases[] = {
        {"A000006.marepack", 6.0, 54.5, 7, kSea},    /* the North Sea west of Heligoland */
        {"A000006.marepack", 8.0, 52.5, 7, kLand},   /* Lower Saxony */
        {"A000006.marepack", 4.5, 54.0, 7, nullptr}, /* west of the cut, in an edge tile */
        {"A000006.marepack", 6.0, 54.5, 4, kSea},    /* a coarse zoom averages sea with sea */
        {"A000007.marepack", 10.05, 54.45, 9, kKapLeft},
        {"A000007.marepack", 10.15, 54.45, 9, kKapRight},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.pack) + " " + std::to_string(c.lon) + " " + std::to_string(c.lat));
        uint32_t px = pixelAt(at(c.pack), c.lon, c.lat, c.z);
        ASSERT_NE(1u, px) << "no tile";
        if (c.want == nullptr) {
            EXPECT_EQ(0u, px >> 24);
            continue;
        }
        for (int i = 0; i < 4; i++) EXPECT_NEAR(c.want[i], (px >> (i < 3 ? 16 - 8 * i : 24)) & 0xff, 2) << "channel " << i;
    }
}

TEST_F(ChartkitMake, PacksPassTheCheckerAndTwoMakesGiveTheSameBytes) {
    ASSERT_EQ(0, make({"--id", "8", "--name", "Both", "--out", at("A000008.marepack"), at("geo.tif"), at("harbour.kap")}).status);
    ASSERT_EQ(0, make({"--id", "8", "--name", "Both", "--out", at("again.marepack"), at("geo.tif"), at("harbour.kap")}).status);
    std::string first = readFile(at("A000008.marepack"));
    EXPECT_EQ(first, readFile(at("again.marepack")));
    EXPECT_EQ("2", sqlOne(at("A000008.marepack"), "SELECT json_array_length(CAST(v AS TEXT)) FROM kvt WHERE k='chartlist'"));
    std::string credits = sqlOne(at("A000008.marepack"), "SELECT v FROM kvt WHERE k='/info'");
    EXPECT_NE(std::string::npos, credits.find("geo.tif"));
    EXPECT_NE(std::string::npos, credits.find("harbour.kap"));

    for (const char *pack : {"A000005.marepack", "A000006.marepack", "A000007.marepack", "A000008.marepack"}) {
        SCOPED_TRACE(pack);
        PcReport report;
        EXPECT_EQ(0, pc_checkFile(at(pack).c_str(), &report));
        for (const std::string &p : report.problems) ADD_FAILURE() << p;
        long version = atol(sqlOne(at(pack), "SELECT v FROM kvt WHERE k='version'").c_str());
        EXPECT_GT(version, 0);
        EXPECT_LT(version, 2147483648L);
    }
    /* another name is another version, so the kit list offers it as new */
    EXPECT_NE(sqlOne(at("A000006.marepack"), "SELECT v FROM kvt WHERE k='version'"),
              sqlOne(at("A000008.marepack"), "SELECT v FROM kvt WHERE k='version'"));
}

TEST_F(ChartkitMake, ZoomsAskedForAreTheOnlyOnes) {
    ASSERT_EQ(0, make({"--id", "9", "--name", "Z", "--zooms", "9-10", "--out", at("A000009.marepack"), at("harbour.kap")}).status);
    EXPECT_EQ("9|10", sqlOne(at("A000009.marepack"), "SELECT min(zyx>>40) || '|' || max(zyx>>40) FROM tiles"));
}

std::string leftOvers() {
    std::string out;
    for (const auto &e : std::filesystem::directory_iterator(dir)) {
        std::string name = e.path().filename().string();
        if (name.find(".part") != std::string::npos) out += name + " ";
    }
    return out;
}

TEST_F(ChartkitMake, BadInputGivesOneLineAndLeavesThePackAlone) {
    std::string geo = readFile(at("geo.tif")), mbtiles = readFile(at("relief.mbtiles"));
    writeFile(at("short.tif"), geo.substr(0, geo.size() / 3));
    writeFile(at("short.mbtiles"), mbtiles.substr(0, 20000));
    writeFile(at("empty.tif"), "");
    writeFile(at("notes.txt"), "soundings in fathoms\n");
    sqlOne(at("vector.mbtiles"), "CREATE TABLE metadata (name TEXT, value TEXT); INSERT INTO metadata VALUES "
                                 "('format','pbf'); CREATE TABLE tiles (zoom_level, tile_column, tile_row, tile_data)");
    sqlOne(at("other.sqlite"), "CREATE TABLE t (a)");
    const std::pair<const char *, const char *> cases[] = { /* input, reason */
        {"missing.tif", "cannot read the file"},
        {"empty.tif", "empty"},
        {"notes.txt", "not a chart format"},
        {"plain.png", "no georeference"},
        {"short.tif", "damaged or truncated"},
        {"short.mbtiles", "damaged or truncated"},
        {"vector.mbtiles", "vector MBTiles"},
        {"other.sqlite", "not MBTiles"},
    };
    const std::string out = at("A000010.marepack");
    writeFile(out, "the previous pack");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.first);
        /* a good input first: a later failure must still leave nothing */
        kit::Run r = make({"--id", "10", "--name", "Bad", "--out", out, at("harbour.kap"), at(c.first)});
        EXPECT_EQ(1, r.status);
        std::string prefix = "mareplot-chartkit: " + at(c.first) + ": ";
        EXPECT_EQ(0u, r.err.compare(0, prefix.size(), prefix)) << r.err;
        EXPECT_NE(std::string::npos, r.err.find(c.second)) << r.err;
        EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
        EXPECT_EQ("the previous pack", readFile(out));
        EXPECT_EQ("", leftOvers());
    }
    /* wrong use of the command itself: ids below 3 are the program's own packs */
    kit::Run usage = make({"--id", "2", "--name", "x", "--out", out, at("harbour.kap")});
    EXPECT_EQ(2, usage.status);
    EXPECT_EQ(1, std::count(usage.err.begin(), usage.err.end(), '\n')) << usage.err;
    kit::Run r = kit::run({kTool, "info", at("short.mbtiles")});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n')) << r.err;
}

} // namespace
