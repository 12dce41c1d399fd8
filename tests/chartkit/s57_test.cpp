/* s57_test.cpp -- ENC cells written by GDAL's S57 writer, read and drawn by the chart kit's cell reader:
** the chart list entry, colours at known places, the coverage and corner rule, update files, bad inputs. */
#include <gtest/gtest.h>
#include <stdio.h>

#include "chartkit/kit_support.h"
#include "chartkit/s57_cell.h"
#include "chartkit/tile_pixel.h"
#include "tools/chartkit/chartkit_s57.h"
#include "tools/chartkit/chartkit_s57_style.h"

namespace {

/* The test cell: a bay at 54.3-54.42 N, 10.0-10.2 E; deep water, a shallow strip, land in the south-east. */
const double kWest = 10.0, kSouth = 54.3, kEast = 10.2, kNorth = 54.42;
const double kBuoyLon = 10.08, kBuoyLat = 54.38;     /* red lateral buoy */
const double kNewBuoyLon = 10.04, kNewBuoyLat = 54.40; /* green one, added by the update */
const double kHarbourBuoyLon = 10.06, kHarbourBuoyLat = 54.41; /* yellow, shown from 1:30000 on */

const std::vector<std::string> kBaseOptions = {"S57_CSCL=22000", "S57_AGEN=540", "S57_EDTN=3",
                                               "S57_ISDT=20240501", "S57_SDAT=23"};

bool writeBaseCell(const std::string &path) {
    S57CellWriter w;
    if (!w.create(path, kBaseOptions)) return false;
    w.area("M_COVR", S57_OBJL_M_COVR, s57Box(kWest, kSouth, kEast, kNorth), {{"CATCOV", "1"}});
    w.area("DEPARE", S57_OBJL_DEPARE, s57Box(kWest, kSouth, kEast, kNorth), {{"DRVAL1", "20"}, {"DRVAL2", "50"}});
    w.area("DEPARE", S57_OBJL_DEPARE, s57Box(10.1, kSouth, kEast, 54.36), {{"DRVAL1", "2"}, {"DRVAL2", "5"}});
    w.area("LNDARE", S57_OBJL_LNDARE, s57Box(10.15, kSouth, kEast, 54.33), {});
    w.line("DEPCNT", S57_OBJL_DEPCNT, {10.1, kSouth, 10.1, 54.36, kEast, 54.36}, {{"VALDCO", "20"}});
    w.line("COALNE", S57_OBJL_COALNE, {10.15, kSouth, 10.15, 54.33, kEast, 54.33}, {});
    w.soundings({10.05, 54.35, 10.12, 54.32}, {23.4, 3.2});
    w.point("LIGHTS", S57_OBJL_LIGHTS, 10.15, 54.33, {{"COLOUR", "3"}});
    w.point("BOYLAT", S57_OBJL_BOYLAT, kBuoyLon, kBuoyLat, {{"COLOUR", "3"}});
    w.point("BOYSPP", 19, kHarbourBuoyLon, kHarbourBuoyLat, {{"COLOUR", "6"}, {"SCAMIN", "30000"}});
    w.close();
    return w.ok;
}

/* The first update: one new green buoy; it applies to the base cell's edition only. */
bool writeUpdate(const std::string &path, const char *edition) {
    S57CellWriter w;
    if (!w.create(path, {"S57_EXPP=2", std::string("S57_EDTN=") + edition, "S57_UPDN=1", "S57_CSCL=22000",
                         "S57_ISDT=20240601", "S57_UADT=20240601"},
                  100))
        return false;
    w.point("BOYLAT", S57_OBJL_BOYLAT, kNewBuoyLon, kNewBuoyLat, {{"COLOUR", "4"}});
    w.close();
    return w.ok;
}

uint32_t argb(const CkS57Pen &p) {
    return 0xff000000u | (uint32_t)lround(p.r * 255) << 16 | (uint32_t)lround(p.g * 255) << 8 |
           (uint32_t)lround(p.b * 255);
}

/* The colour drawn at a position, or 0 for a tile with nothing. */
uint32_t colourAt(CkS57Cell *cell, double lon, double lat, int z) {
    TilePixel t = tilePixel(lon, lat, z);
    std::string png;
    int corner;
    if (ck_s57_draw_tile(cell, z, t.y, t.x, &png, &corner) != 0) return 0;
    return pngPixel(png, t.col, t.row);
}

class S57Test : public ::testing::Test {
  protected:
    std::string dir = makeTempDir("mareplot-s57-"), path = dir + "/MP5BAY01.000";
    CkS57Cell *cell = NULL;
    void SetUp() override {
        ASSERT_TRUE(writeBaseCell(path));
        reopen();
    }
    void TearDown() override {
        ck_s57_close(cell);
        removeTree(dir);
    }
    /* Reads the cell (again), with the update files beside it. */
    void reopen() {
        std::string reason;
        ck_s57_close(cell);
        cell = ck_s57_open(path.c_str(), &reason);
        ASSERT_TRUE(cell != NULL) << reason;
    }
};

TEST_F(S57Test, ChartListEntryComesFromTheCell) {
    CkChartInfo info;
    ck_s57_info(cell, &info);
    EXPECT_EQ(info.number, "MP5BAY01");
    EXPECT_EQ(info.name, "MP5BAY01");
    EXPECT_EQ(info.edition, "Edition 3, 01/05/2024");
    EXPECT_EQ(info.scale, 22000);
    EXPECT_EQ(info.depthUnit, "Meters");
    EXPECT_EQ(info.soundingDatum, "Lowest Astronomical Tide");
    EXPECT_NEAR(info.west, kWest, 1e-6);
    EXPECT_NEAR(info.south, kSouth, 1e-6);
    EXPECT_NEAR(info.east, kEast, 1e-6);
    EXPECT_NEAR(info.north, kNorth, 1e-6);
    std::vector<double> ring = s57Box(kWest, kSouth, kEast, kNorth);
    ASSERT_EQ(info.outline.size(), ring.size());
    for (size_t i = 0; i < ring.size(); i++) EXPECT_NEAR(info.outline[i], ring[i], 1e-6);
    EXPECT_EQ(info.credit, "ENC by Hydrographic Office, UK (producer code 540)");

    /* 1:22000 at 54 N is about zoom 14 (0.28 mm pixels), and four coarser */
    int zmin, zmax;
    ck_s57_zooms(cell, &zmin, &zmax);
    EXPECT_EQ(zmax, 14);
    EXPECT_EQ(zmin, 10);
}

TEST_F(S57Test, TilesByCoverageCornerRuleAndColour) {
    const CkS57Style &s = ck_s57Style;
    ASSERT_NE(argb(s.depthBand[2]), argb(s.depthBand[5]));
    const uint32_t kAny = 1;  // no colour is 1
    const struct {
        const char *what;
        double lon, lat;
        int z, rc, corner;  // corner -1: not checked
        uint32_t colour;    // 0: nothing drawn
    } cases[] = {
        {"land", 10.18, 54.31, 14, 0, -1, argb(s.land)},
        {"deep water", 10.03, 54.33, 14, 0, -1, argb(s.depthBand[5])},
        {"shallow water, 2 to 5 m", 10.12, 54.345, 14, 0, -1, argb(s.depthBand[2])},
        {"red buoy", kBuoyLon, kBuoyLat, 14, 0, -1, argb(s.colour[3])},
        {"red buoy at the coarsest zoom", kBuoyLon, kBuoyLat, 10, 0, -1, argb(s.colour[3])},
        {"yellow buoy at 1:20000", kHarbourBuoyLon, kHarbourBuoyLat, 14, 0, -1, argb(s.colour[6])},
        {"yellow buoy left out at 1:40000", kHarbourBuoyLon, kHarbourBuoyLat, 13, 0, -1, argb(s.depthBand[5])},
        {"outside the coverage, in a tile that holds some", 10.21, 54.36, 14, 0, -1, 0},
        {"inside the coverage", 10.05, 54.36, 14, 0, 1, kAny},
        {"across the east edge", kEast, 54.36, 14, 0, 0, kAny},
        {"the whole cell in one tile", 10.1, 54.36, 10, 0, 0, kAny},
        {"far away", 0.0, 0.0, 14, 1, 0, kAny},
        {"next to the cell", kEast + 0.03, 54.36, 14, 1, 0, kAny},
    };
    for (const auto &c : cases) {
        TilePixel t = tilePixel(c.lon, c.lat, c.z);
        std::string png;
        int corner = -1;
        EXPECT_EQ(ck_s57_draw_tile(cell, c.z, t.y, t.x, &png, &corner), c.rc) << c.what;
        if (c.corner >= 0) { EXPECT_EQ(corner, c.corner) << c.what; }
        if (c.rc == 0) { EXPECT_EQ(png.compare(1, 3, "PNG"), 0) << c.what; }
        if (c.colour != kAny) { EXPECT_EQ(pngPixel(png, t.col, t.row), c.colour) << c.what; }
    }

    /* the same tile from another reading of the cell */
    TilePixel t = tilePixel(10.12, 54.33, 14);
    std::string a, b;
    int corner;
    ASSERT_EQ(ck_s57_draw_tile(cell, 14, t.y, t.x, &a, &corner), 0);
    reopen();
    ASSERT_EQ(ck_s57_draw_tile(cell, 14, t.y, t.x, &b, &corner), 0);
    EXPECT_TRUE(a == b);
}

TEST_F(S57Test, UpdateFileIsApplied) {
    EXPECT_EQ(colourAt(cell, kNewBuoyLon, kNewBuoyLat, 14), argb(ck_s57Style.depthBand[5]));
    ASSERT_TRUE(writeUpdate(dir + "/MP5BAY01.001", "3"));
    reopen();
    EXPECT_EQ(colourAt(cell, kNewBuoyLon, kNewBuoyLat, 14), argb(ck_s57Style.colour[4]));
    EXPECT_EQ(colourAt(cell, kBuoyLon, kBuoyLat, 14), argb(ck_s57Style.colour[3]));
    CkChartInfo info;
    ck_s57_info(cell, &info);
    EXPECT_EQ(info.edition, "Edition 3, update 1, 01/06/2024");
}

TEST_F(S57Test, BadInputsAreRefusedWithAReason) {
    std::string text = dir + "/NOTES.000", empty = dir + "/EMPTY01.000", cut = dir + "/CUT01.000",
                stale = dir + "/STALE01.000";
    writeFile(text, "These are my notes about the harbour, not a chart.\n");
    S57CellWriter w;
    ASSERT_TRUE(w.create(empty, kBaseOptions));
    w.close();
    std::string whole = readFile(path);
    writeFile(cut, whole.substr(0, whole.size() / 2));
    writeFile(stale, whole);
    ASSERT_TRUE(writeUpdate(dir + "/STALE01.001", "2")); /* made for another edition */

    const struct {
        const char *what;
        std::string file;
        const char *reason;
    } cases[] = {
        {"missing file", dir + "/NONE01.000", "cannot read the file"},
        {"text named .000", text, "not an S-57 cell"},
        {"cell with no features", empty, "the cell holds no features"},
        {"cell cut in half", cut, "the cell is truncated or damaged"},
        {"update for another edition", stale, "its update files don't apply to the cell"},
    };
    for (const auto &c : cases) {
        std::string reason;
        CkS57Cell *bad = ck_s57_open(c.file.c_str(), &reason);
        EXPECT_TRUE(bad == NULL) << c.what;
        EXPECT_EQ(reason, c.reason) << c.what;
        ck_s57_close(bad);
    }
}

TEST_F(S57Test, MakeTakesTheCompilationScaleIntoTheChartList) {
    std::string out = dir + "/A001234.marepack";
    ASSERT_EQ(0, kit::run({CHARTKIT_PATH, "make", "--id", "1234", "--name", "Bay", "--out", out, path}).status);
    std::string list = kit::sqlOne(out, "SELECT v FROM kvt WHERE k='chartlist'");
    EXPECT_NE(list.find("\"nu\":\"MP5BAY01\""), std::string::npos) << list;
    EXPECT_NE(list.find("\"sc\":22000"), std::string::npos) << list;
}

} // namespace
