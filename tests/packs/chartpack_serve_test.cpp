// The carried base chart pack as the client meets it over HTTP: a tile of
// the default view and tide rows around today. (What the pack holds is the
// built pack's unit tests.)
#include <gtest/gtest.h>
#include <math.h>
#include <time.h>

#include <string>

#include "support/host_harness.h"

namespace {

TEST(CarriedChartPack, ServesTheDefaultViewAndTodaysTides) {
    Host host;
    ASSERT_EQ(0u, httpGet("/getSetState/chartdb=A000002.marepack").body.find("000 "));

    // the zoom 12 tile holding 54.52 N 10.1 E
    const long long z = 12, n = 1LL << z, x = (long long)((10.1 + 180) / 360 * n);
    const double phi = 54.52 * M_PI / 180;
    const long long y = (long long)((1 - log(tan(phi) + 1 / cos(phi)) / M_PI) / 2 * n);
    HttpReply r = httpGet("/getTileI/A000002/" + std::to_string((z << 40) + (y << 20) + x));
    ASSERT_TRUE(r.complete);
    EXPECT_EQ("image/png", r.headers["Content-Type"]);
    EXPECT_EQ(0u, r.body.find("\x89PNG\r\n\x1a\n"));
    EXPECT_GT(r.body.size(), 200u);

    long long now = (long long)time(nullptr);
    std::string sql = "SELECT ts,level,typ FROM tides WHERE id=1 AND ts > " + std::to_string(now - 86400) +
                      " AND  ts < " + std::to_string(now + 86400) + " ORDER BY id,ts ASC";
    HttpReply tides = httpPost("/MexecSql", sql);
    EXPECT_EQ("HTTP/1.1 200 OK", tides.statusLine);
    // two days of hourly rows and the highs and lows between them
    size_t rows = 0;
    for (size_t p = tides.body.find("\n["); p != std::string::npos; p = tides.body.find("\n[", p + 1)) rows++;
    EXPECT_GE(rows, 48u) << tides.body.substr(0, 200);
    EXPECT_NE(std::string::npos, tides.body.find(",1]")) << "no high water";
    EXPECT_NE(std::string::npos, tides.body.find(",0]")) << "no low water";
}

}  // namespace
