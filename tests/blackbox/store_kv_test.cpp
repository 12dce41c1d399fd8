// Key/value documents over HTTP: getValue on the three databases with their
// languages, getValueA joining, setValue, and the application pack routes.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

namespace {

const char kNoCache[] = "no-cache, no-store, must-revalidate";

/* One GET and the reply it must get. */
void expectReply(const std::string &path, const std::string &status, const std::string &type,
                 const std::string &cache, const std::string &body) {
    HttpReply r = httpGet(path);
    ASSERT_TRUE(r.complete) << path;
    EXPECT_EQ("HTTP/1.1 " + status, r.statusLine) << path;
    EXPECT_EQ(type, r.headers["Content-Type"]) << path;
    EXPECT_EQ(cache, r.headers["Cache-Control"]) << path;
    EXPECT_TRUE(body == r.body) << path << ": " << r.body.substr(0, 80);
}

/* An application pack of our own, kept as the version stamp matches. */
Pack appPack() {
    Pack p;
    p.withTiles = false;
    p.kv = {
        {"/app/kelvor.js", "var k=1;", 3, "de"},
        {"/app/img/x.png", fakePng(5, 700), 6, "**"},
        {"/app/img/x.png", "skinned", 6, "Night"},
        {"/app/img/night.png", "night only", 6, "Night"},
        {"/app/img/Status-20.png", "dead", 6, "**"},
    };
    return p;
}

/* The host over our application pack, a base pack and pack A000005. */
struct AppHost : PackedHost {
    AppHost()
        : PackedHost({{"A000001.marepack", appPack()},
                      {"A000002.marepack", standardPack("Z")},
                      {"A000005.marepack", standardPack("A")}},
                     [](const PackHome &h) { h.stampVersion(); }) {}
};

}  // namespace

TEST(KeyValue, ChartPackLookups) {
    AppHost h;
    // before a pack is chosen every chart lookup misses
    expectReply("/info", "404 File not found", "text/plain; charset=UTF-8", kNoCache, "File not found (de): /info");
    EXPECT_EQ("[]", httpGet("/getMapDataA/mrk").body);
    httpGet("/getSetState/chartdb=A000005.marepack");

    std::string png = fakePng(99, 500);
    struct Case {
        std::string path, status, type, cache, body;
    } cases[] = {
        {"/info", "200 OK", "text/html; charset=UTF-8", kNoCache, "<p>info A</p>"},
        {"/getMapData//info", "200 OK", "text/html; charset=UTF-8", kNoCache, "<p>info A</p>"},
        {"/getMapData//history", "200 OK", "text/html; charset=UTF-8", kNoCache, "<p>history</p>"},
        {"/getMapData/AVTILES", "200 OK", "text/plain; charset=UTF-8", kNoCache,
         "{\"3298535931904\":true}"},
        {"/getMapData//img/a.png", "200 OK", "image/png", "max-age=900", png},
        {"/getMapData/frag", "200 OK", "text/html", kNoCache, "<!DOCTYPE HTML><b>x</b>"},
        {"/getMapData//Caps", "404 File not found", "text/plain; charset=UTF-8", kNoCache,
         "File not found (de): /Caps"},
        {"/nothing/here", "404 File not found", "text/plain; charset=UTF-8", kNoCache,
         "File not found (de): /nothing/here"},
        // GET /UexecSql without its slash is not the SQL route
        {"/UexecSql", "404 File not found", "text/plain; charset=UTF-8", kNoCache,
         "File not found (de): /UexecSql"},
        {"/getMapDataA/mrk", "200 OK", "text/plain; charset=UTF-8", kNoCache,
         "[{\"n\":\"b\"},{\"n\":\"c\"},]"},
        {"/getMapDataA/none", "200 OK", "text/plain; charset=UTF-8", kNoCache, "[]"},
    };
    for (const auto &c : cases) expectReply(c.path, c.status, c.type, c.cache, c.body);
    // "**" rows come first, the language's rows behind, empty rows keep their comma
    httpGet("/getSetState/mlang=en");
    EXPECT_EQ("[{\"n\":\"b\"},{\"n\":\"c\"},,{\"n\":\"a\"}]", httpGet("/getMapDataA/mrk").body);
}

TEST(KeyValue, SetValueAndTripLookups) {
    AppHost h;
    struct Case {
        std::string key, body, expectGet, getStatus;
    } cases[] = {
        {"route", "[1,2]", "[1,2]", "200 OK"},
        {"bin", std::string("a\0b\0c", 5), std::string("a\0b\0c", 5), "200 OK"},
        {"Foo", "x", "File not found (**): Foo", "404 File not found"},  // stored, never found
    };
    for (const auto &c : cases) {
        HttpReply w = httpPost("/setValue/" + c.key, c.body);
        EXPECT_EQ("OK", w.body) << c.key;
        EXPECT_EQ("application/binary;", w.headers["Content-Type"]) << c.key;
        HttpReply r = httpGet("/getValue/" + c.key);
        EXPECT_EQ("HTTP/1.1 " + c.getStatus, r.statusLine) << c.key;
        EXPECT_TRUE(c.expectGet == r.body) << c.key;
        if (c.getStatus == "200 OK") {
            EXPECT_EQ("application/user; charset=UTF-8", r.headers["Content-Type"]) << c.key;
        }
    }
    // an empty value stored through the state route reads back as length 0
    httpGet("/getSetState/empty2=");
    HttpReply e = httpGet("/getValue/empty2");
    EXPECT_EQ("HTTP/1.1 200 OK", e.statusLine);
    EXPECT_EQ("0", e.headers["Content-Length"]);
    // setValue replaces: the second value wins, and /kvt/ reads the same row
    httpPost("/setValue/route", "[3]");
    EXPECT_EQ("[3]", httpGet("/getValue/route").body);
    EXPECT_EQ("[3]", httpGet("/kvt/route").body);
}

TEST(KeyValue, ApplicationPackBySkinAndLanguage) {
    AppHost h;
    struct Case {
        std::string setting, path, status, body;
    } cases[] = {
        {"alang=fr", "/app/kelvor.js", "404 File not found", "File not found (fr): /app/kelvor.js"},
        {"alang=de", "/app/nothing", "404 File not found", "File not found (de): /app/nothing"},
        {"skin=Navy%20Blue", "/app/IMG/X.PNG", "200 OK", fakePng(5, 700)},
        {"skin=Night", "/app/img/x.png", "200 OK", fakePng(5, 700)},  // "**" first
        {"skin=Night", "/app/img/night.png", "200 OK", "night only"},
        {"skin=Navy%20Blue", "/app/img/night.png", "404 File not found",
         "File not found (Navy Blue): /app/img/night.png"},
        {"skin=Navy%20Blue", "/app/img/Status-20.png", "404 File not found",
         "File not found (Navy Blue): /app/img/Status-20.png"},
    };
    for (const auto &c : cases) {
        httpGet("/getSetState/" + c.setting);
        HttpReply r = httpGet(c.path);
        EXPECT_EQ("HTTP/1.1 " + c.status, r.statusLine) << c.setting << " " << c.path;
        EXPECT_TRUE(c.body == r.body) << c.setting << " " << c.path << ": " << r.body;
    }
}

TEST(KeyValue, FilesFromDiskWithoutApplicationPack) {
    std::string big(40000, 'q');
    PackedHost h({{"A000002.marepack", standardPack("Z")}}, [&](const PackHome &home) {
        home.stampVersion();
        mkdir(home.path("A000001.marepack").c_str(), 0755);  // cannot be opened: no appDb
        mkdir(home.path("www").c_str(), 0755);
        writeFile(home.path("www/a.js.png"), "js first");
        writeFile(home.path("www/b.png"), big);
        writeFile(home.path("www/d.mp3.html"), "mp3");
        writeFile(home.path("www/e.txt"), "plain");
    });
    expectReply("/app/www/a.js.png", "200 OK", "text/javascript; charset=UTF-8", kNoCache, "js first");
    expectReply("/app/www/b.png", "200 OK", "image/png", "max-age=900", big);
    expectReply("/app/www/d.mp3.html", "200 OK", "audio/mp3", kNoCache, "mp3");
    expectReply("/app/www/e.txt", "200 OK", "application/binary;", kNoCache, "plain");
    HttpReply miss = httpGet("/app/www/none.html");
    EXPECT_EQ("HTTP/1.1 404 File not found", miss.statusLine);
    EXPECT_EQ("", miss.body);
}
