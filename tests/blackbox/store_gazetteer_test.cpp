// The gazetteer over HTTP: square bounds, one place per rank except rank 0,
// the default range and extreme positions (the path's parsing is a unit test).
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

namespace {
std::string place(const char *n, const char *c, int xy) {
    return std::string("{\"n\":\"") + n + "\",\"c\":\"" + c + "\",\"x\":" + std::to_string(xy) +
           ",\"y\":" + std::to_string(xy) + "}";
}
}  // namespace

TEST(Gazetteer, RanksAndBounds) {
    PackedHost h;
    EXPECT_EQ("[]", httpGet("/gazetteer/1000/1000").body);  // no pack yet
    h.select();
    const std::string top5 = place("Top5", "P.PPL", 1200), near3 = place("Near3", "H.ANCH", 1000),
                      far3 = place("Far3", "H.ANCH", 1500), zero1 = place("Zero1", "L.PRT", 1100),
                      zero2 = place("Zero2", "L.PRT", 1300);
    struct Case {
        std::string text, body;
    } cases[] = {
        // default range 5000: "Outside" at 9000 is beyond it; Far3 loses to Near3
        {"1000/1000", "[" + top5 + "," + near3 + "," + zero1 + "," + zero2 + "]"},
        // bounds are exclusive: Top5 lies exactly on x + range
        {"1000/1000/200", "[" + near3 + "," + zero1 + "]"},
        // the nearest of a rank wins, seen from the other side
        {"1500/1500/300", "[" + far3 + "," + zero2 + "]"},
        {"2000/2000/500", "[]"},  // Far3 lies exactly on x - range
        {"2147483647/2147483647", "[]"},  // the upper bound wraps below the lower one
    };
    for (const auto &c : cases) {
        HttpReply r = httpGet("/gazetteer/" + c.text);
        EXPECT_EQ("HTTP/1.1 200 OK", r.statusLine) << c.text;
        EXPECT_EQ("text/plain; charset=UTF-8", r.headers["Content-Type"]) << c.text;
        EXPECT_EQ("no-cache, no-store, must-revalidate", r.headers["Cache-Control"]) << c.text;
        EXPECT_EQ(c.body, r.body) << c.text;
    }
}

TEST(Gazetteer, MissingTableAndBadRows) {
    Pack p = standardPack();
    p.gaz = {{10, 10, "A", 300, "Big"}, {20, 20, "A", 300, "Big2"}, {30, 30, "A", -4, "Neg"},
             // over-long names and classes are passed over, and take no rank's place
             {5, 5, "H.ANCH", 3, std::string(600, 'n')}, {6, 6, "H.ANCH", 3, "Short3"},
             {7, 7, std::string(600, 'c'), 0, "Zero"}};
    PackedHost h({{"A000005.marepack", p}}, [](const PackHome &home) {
        sqlite3 *bare = NULL;  // a database with no gaz table
        sqlite3_open(home.path("A000006.marepack").c_str(), &bare);
        exec(bare, "CREATE TABLE other (a)");
        sqlite3_close(bare);
        writeFile(home.path("A000007.marepack"), "not a database at all, only text");
    });

    // ranks outside the flag table are listed, never thinned, and never crash
    httpGet("/getSetState/chartdb=A000005.marepack");
    EXPECT_EQ("[" + place("Big", "A", 10) + "," + place("Big2", "A", 20) + "," + place("Short3", "H.ANCH", 6) + "," +
                  place("Neg", "A", 30) + "]",
              httpGet("/gazetteer/0/0").body);
    httpGet("/getSetState/chartdb=A000006.marepack");  // no gaz table
    EXPECT_EQ("[]", httpGet("/gazetteer/0/0").body);
    httpGet("/getSetState/chartdb=A000007.marepack");  // opens, fails at the first statement
    EXPECT_EQ("[]", httpGet("/gazetteer/0/0").body);
    EXPECT_EQ(onePixelGif(), httpGet("/getTileI/A7/3298535931904").body);  // no tile statement either
    EXPECT_EQ("file is not a database", httpPost("/MexecSql", "SELECT 1 FROM tiles").body);
}
