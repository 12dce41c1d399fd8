// Tile routes over HTTP: found tiles, the one-pixel GIF for every kind of
// miss, and malformed paths.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

TEST(Tiles, FoundAndMissing) {
    PackedHost h;
    ASSERT_EQ(0u, h.select().body.find("000 "));
    Pack p = standardPack("A");
    const std::string t0 = p.tiles[0].png, t2 = p.tiles[2].png, gif = onePixelGif();
    struct Case {
        std::string path, body;
    } cases[] = {
        {"/getTileI/A000005/3298535931904", t0},
        {"/getTile/A5/3/1/0", t0},
        {"/getTileI/A999999/3298535931904", t0},  // the pack number is not used
        {"/getTileI/A000005/" + std::to_string(zyx(10, 300, 540)), t2},
        {"/getTile/A0/10/300/540", t2},
        {"/getTileI/A000005/1", gif},
        {"/getTile/A5/3/-1/0", gif},           // negative y sets high bits
        {"/getTile/A5/-3/1/0", gif},           // negative zoom
        {"/getTile/A5/3/1", gif},              // missing number
        {"/getTile/A5/99999999999999999999/1/0", gif},
        {"/getTileI/A5/99999999999999999999999", gif},
        {"/getTileI/A5/", gif},
        {"/getTileI/", gif},
        {"/getTileI/3298535931904", gif},      // no pack part
        {"/getTile/A5/x/y/z", gif},
    };
    Conn c;  // one keep-alive connection for all: the buffer is reused
    for (const auto &k : cases) {
        c.send("GET " + k.path + " HTTP/1.1\r\n\r\n");
        HttpReply r = c.read();
        ASSERT_TRUE(r.complete) << k.path;
        EXPECT_EQ("HTTP/1.1 200 OK", r.statusLine) << k.path;
        EXPECT_EQ(k.body == gif ? "image/gif" : "image/png", r.headers["Content-Type"]) << k.path;
        EXPECT_EQ("max-age=900", r.headers["Cache-Control"]) << k.path;
        EXPECT_TRUE(r.body == k.body) << k.path << " got " << r.body.size() << " bytes";
    }
}

TEST(Tiles, GifWithoutPackOrTable) {
    Pack noTiles = standardPack();
    noTiles.withTiles = false;
    PackedHost h({{"A000007.marepack", noTiles}});
    // no pack chosen yet
    EXPECT_EQ(onePixelGif(), httpGet("/getTileI/A000002/3298535931904").body);
    // a pack without a tiles table
    EXPECT_EQ(0u, httpGet("/getSetState/chartdb=A000007.marepack").body.find("000 "));
    EXPECT_EQ(onePixelGif(), httpGet("/getTileI/A000007/3298535931904").body);
    // a pack that cannot be opened leaves none
    EXPECT_EQ(0u, httpGet("/getSetState/chartdb=nothing.marepack").body.find("500 "));
    EXPECT_EQ(onePixelGif(), httpGet("/getTile/A7/3/1/0").body);
}
