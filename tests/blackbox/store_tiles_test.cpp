// Tile routes over HTTP: found tiles, the one-pixel GIF for a miss, a
// malformed path (the forms are the store's unit tests) and no pack (a pack
// that fails its statements is the gazetteer's case), and pack changes.
#include <gtest/gtest.h>

#include <filesystem>

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
        {"/getTile/A0/10/300/540", t2},
        {"/getTileI/A000005/1", gif},
        {"/getTileI/", gif},  // the other malformed forms are the key unit tests
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

/* Whether the host process holds a file open whose path names fileName. */
static bool holdsOpen(pid_t pid, const std::string &fileName) {
    std::error_code ec;
    for (const auto &e : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec))
        if (std::filesystem::read_symlink(e.path(), ec).string().find(fileName) != std::string::npos) return true;
    return false;
}

// A pack switched or deleted elsewhere shows on a kept connection's next request.
TEST(Tiles, PackChangesReachAKeptConnection) {
    PackedHost h;
    const std::string tileA = standardPack("A").tiles[0].png, tileB = standardPack("B").tiles[0].png;
    const std::string path = "/getTileI/A5/3298535931904";
    Conn c;
    auto tile = [&] {
        c.send("GET " + path + " HTTP/1.1\r\n\r\n");
        HttpReply r = c.read();
        EXPECT_TRUE(r.complete);
        return r.body;
    };
    struct Step {
        const char *state, *body, *closed;  // closed: a pack file the host must not hold
    } steps[] = {
        {"chartdb=A000005.marepack", "A", nullptr},
        {"chartdb=A000006.marepack", "B", "A000005.marepack"},
        {"chartdb=A000005.marepack", "A", "A000006.marepack"},
        {"chartdb=missing.marepack", "gif", "A000005.marepack"},
        {"chartdb=A000006.marepack", "B", nullptr},
        {"delchartdb=A000006.marepack", "gif", "A000006.marepack"},
    };
    for (const auto &s : steps) {
        ASSERT_TRUE(httpGet(std::string("/getSetState/") + s.state).complete) << s.state;
        std::string want = std::string(s.body) == "A" ? tileA : std::string(s.body) == "B" ? tileB : onePixelGif();
        // twice: the first request may prepare, the second reuses
        EXPECT_TRUE(tile() == want) << s.state;
        EXPECT_TRUE(tile() == want) << s.state;
        if (s.closed) {
            EXPECT_FALSE(holdsOpen(h.host->pid(), s.closed)) << s.state;
        }
    }
}
