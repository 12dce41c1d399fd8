// A kit made by mareplot-chartkit from a KAP chart, listed and delivered by
// mareplot-chartkit serve, downloaded by mareplotd with the figures of the
// kit list, then opened as the chart in use and asked for a tile and the
// chart list.
#include <gtest/gtest.h>
#include <math.h>
#include <sqlite3.h>

#include <chrono>
#include <thread>

#include "chartkit/kit_support.h"
#include "support/test_pack.h"

namespace {

TEST(ChartkitDownload, AKitGoesFromTheServerIntoTheHostAndShowsItsTiles) {
    std::string packs = makeTempDir("mareplot-kits-");
    writeFile(packs + "/bay.kap", kit::kapChart(10.0, 54.4, 10.2, 54.5));
    kit::Run made = kit::run({CHARTKIT_PATH, "make", "--id", "7", "--name", "Bay", "--zooms", "8-10", "--out",
                              packs + "/A000007.marepack", packs + "/bay.kap"});
    ASSERT_EQ(0, made.status) << made.err;
    const std::string bytes = readFile(packs + "/A000007.marepack");

    kit::Server server(CHARTKIT_PATH, packs);
    ASSERT_GT(server.port(), 0);
    std::string list = kit::bodyOf(kit::get(server.port(), "/kits.json"));
    std::string k = "$.update.\"7\"";

    testpack::PackHome home;
    writeFile(home.path("chartserver.key"), "127.0.0.1:" + std::to_string(server.port()) + "\n");
    Host host(home.home());
    ASSERT_TRUE(host.running());

    /* the request the kit dialogue sends, with the list's own figures */
    std::string start = "/download/" + kit::jsonAt(list, k + ".pid") + "%20" + kit::jsonAt(list, k + ".version") + "%20" +
                        kit::jsonAt(list, k + ".filesize") + "%20" + kit::jsonAt(list, k + ".crc32");
    httpGet(start);
    std::string status;
    for (int i = 0; i < 600; i++) {
        status = httpGet("/download/*").body;
        if (kit::jsonAt(status, "$.s") == "0") break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ("0", kit::jsonAt(status, "$.s")) << status;
    EXPECT_EQ("0", kit::jsonAt(status, "$.e")) << status;
    EXPECT_EQ(bytes, readFile(home.path("A000007.marepack")));

    EXPECT_EQ("000 " + home.path("A000007.marepack"), httpGet("/getSetState/chartdb=A000007.marepack").body);
    EXPECT_EQ("Test Harbour", kit::jsonAt(httpGet("/getMapData/chartlist").body, "$[0].na"));
    /* the zoom 9 tile over the chart's middle, 54.45 N 10.1 E */
    const double lat = 54.45 * M_PI / 180;
    int z = 9, x = (int)((10.1 + 180) / 360 * 512), y = (int)((1 - log(tan(lat) + 1 / cos(lat)) / M_PI) / 2 * 512);
    int64_t key = ((int64_t)z << 40) | ((int64_t)y << 20) | x;
    sqlite3 *db;
    sqlite3_stmt *st;
    ASSERT_EQ(SQLITE_OK, sqlite3_open_v2((packs + "/A000007.marepack").c_str(), &db, SQLITE_OPEN_READONLY, nullptr));
    sqlite3_prepare_v2(db, "SELECT png FROM tiles WHERE zyx=?", -1, &st, nullptr);
    sqlite3_bind_int64(st, 1, key);
    ASSERT_EQ(SQLITE_ROW, sqlite3_step(st));
    std::string png((const char *)sqlite3_column_blob(st, 0), (size_t)sqlite3_column_bytes(st, 0));
    sqlite3_finalize(st);
    sqlite3_close(db);
    HttpReply tile = httpGet("/getTile/A000007/9/" + std::to_string(y) + "/" + std::to_string(x));
    EXPECT_EQ(png, tile.body);
    EXPECT_EQ(png, httpGet("/getTileI/A000007/" + std::to_string(key)).body);
    removeTree(packs);
}

} // namespace
