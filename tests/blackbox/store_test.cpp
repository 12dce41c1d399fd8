// The stores over HTTP: saved state, key/value documents and the application pack, the SQL gateway, the
// gazetteer, tiles, and pack switching under load. Each test starts its own host over packs it writes.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "support/feed_server.h"
#include "support/test_pack.h"

using namespace testpack;

namespace {

const char kNoCache[] = "no-cache, no-store, must-revalidate";

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

/* A statement as a path: blanks, quotes and '?' escaped (none ends in one). */
std::string enc(const std::string &s) {
    std::string o;
    for (char c : s) o += c == ' ' ? "%20" : c == '\'' ? "%27" : c == '?' ? "%3F" : std::string(1, c);
    return o;
}

/* A gazetteer entry as the reply lists it, at (xy, xy). */
std::string place(const char *n, const char *c, int xy) {
    return std::string("{\"n\":\"") + n + "\",\"c\":\"" + c + "\",\"x\":" + std::to_string(xy) +
           ",\"y\":" + std::to_string(xy) + "}";
}

/* Whether the host process holds a file open whose path names fileName. */
bool holdsOpen(pid_t pid, const std::string &fileName) {
    std::error_code ec;
    for (const auto &e : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec))
        if (std::filesystem::read_symlink(e.path(), ec).string().find(fileName) != std::string::npos) return true;
    return false;
}

}  // namespace

TEST(State, SettingFormRepliesAndRows) {
    PackedHost h;
    const std::string dir = h.home.dataDir() + "/";
    struct Case {
        std::string text, status, body, row;  // row: the value kept under the name
    } cases[] = {
        {"alang=fr", "200 OK", "000 fr", "fr"},
        {"mlang=en", "200 OK", "000 en", "en"},
        {"skin=Navy%20Blue", "200 OK", "000 Navy Blue", "Navy Blue"},
        {"chartdb=A000005.marepack", "200 OK", "000 " + dir + "A000005.marepack", "A000005.marepack"},
        // the bare name is tried second, and is what the reply names
        {"chartdb=nothing.marepack", "200 OK", "500 nothing.marepack", "nothing.marepack"},
        {"delchartdb=A000099.marepack", "200 OK", "000 A000099.marepack", "A000099.marepack"},
        {"foo=bar", "510 no such state", "", "bar"},
        // names are case-sensitive; rows are looked up in lower case
        {"Alang=xx", "510 no such state", "", "fr"},
    };
    for (const auto &c : cases) {
        HttpReply r = httpGet("/getSetState/" + c.text);
        ASSERT_TRUE(r.complete) << c.text;
        EXPECT_EQ("HTTP/1.1 " + c.status, r.statusLine) << c.text;
        EXPECT_EQ(c.body, r.body) << c.text;
        EXPECT_EQ("application/state; charset=UTF-8", r.headers["Content-Type"]) << c.text;
        EXPECT_EQ(kNoCache, r.headers["Cache-Control"]) << c.text;
        // every name keeps its last value as a type-11 row, failed actions too
        HttpReply row = httpGet("/getValue/" + c.text.substr(0, c.text.find('=')));
        EXPECT_EQ(c.row, row.body) << c.text;
        EXPECT_EQ("application/state; charset=UTF-8", row.headers["Content-Type"]) << c.text;
    }
    EXPECT_EQ("fr", readFile(dir + "alang.key"));
    EXPECT_EQ("Navy Blue", readFile(dir + "skin.key"));
    EXPECT_NE(std::string::npos, httpGet("/hostversion").body.find("\"alang\":\"fr\",\"skin\":\"Navy Blue\""));
}

TEST(State, ReadingFormSendsTwice) {
    PackedHost h;
    httpGet("/getSetState/mlang=en");
    const struct {
        const char *name, *status, *body;
    } cases[] = {{"mlang", "200 OK", "en"}, {"never", "404 File not found", "File not found (**): never"}};
    for (const auto &c : cases) {
        Conn conn;
        conn.send(std::string("GET /getSetState/") + c.name + " HTTP/1.1\r\n\r\n");
        for (int i = 0; i < 2; i++) {
            HttpReply r = conn.read();
            EXPECT_EQ(std::string("HTTP/1.1 ") + c.status, r.statusLine) << c.name << " " << i;
            EXPECT_EQ(c.body, r.body) << c.name << " " << i;
            if (i == 1) { EXPECT_EQ("application/state; charset=UTF-8", r.headers["Content-Type"]) << c.name; }
        }
    }
}

TEST(KeyValue, ChartPackLookups) {
    AppHost h;
    expectReply("/info", "404 File not found", "text/plain; charset=UTF-8", kNoCache, "File not found (de): /info");
    EXPECT_EQ("[]", httpGet("/getMapDataA/mrk").body);
    httpGet("/getSetState/chartdb=A000005.marepack");

    std::string png = fakePng(99, 500);
    struct Case {
        std::string path, status, type, cache, body;
    } cases[] = {
        {"/info", "200 OK", "text/html; charset=UTF-8", kNoCache, "<p>info A</p>"},
        {"/getMapData//info", "200 OK", "text/html; charset=UTF-8", kNoCache, "<p>info A</p>"},
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

TEST(Sql, RepliesOnTripDatabase) {
    PackedHost h;
    struct Case {
        std::string sql, body;
    } cases[] = {
        {"SELECT 1", "[\n[1]\n]"},
        {"SELECT NULL, 'a\"b', 'x/y', 'it''s'", "[\n[null,\"a\\\"b\",\"x\\/y\",\"it\\'s\"]\n]"},
        {"SELECT char(8,9,10,12,13,92,65)", "[\n[\"\\b\\t\\n\\f\\r\\\\A\"]\n]"},
        {"SELECT * FROM log WHERE 0", "[\n]"},
        {"DELETE FROM log WHERE 0", "OK"},
        {"SELEKT 1", "near \"SELEKT\": syntax error"},
        {"SELECT 1; DROP TABLE log", "[\n[1]\n]"},
        {"SELECT count(*) FROM log", "[\n[0]\n]"},  // the DROP above never ran
        {"SELECT ?", "[\n[null]\n]"},                // a parameter with no blob is NULL
        {"SELECT 9007199254740993", "[\n[9007199254740993]\n]"},
        {"SELECT x'00410042'", std::string("[\n[\"\0A\0B\"]\n]", 12)},
        {"", "ERR"},
        {"SELECT 1 UNION ALL SELECT 'a' UNION ALL SELECT 2.5",
         "[\n[1],\n[\"a\"],\n[2.500000]\n]"},
        {"INSERT INTO kvt VALUES ('k1','a',12,'**')", "OK"},
        {"INSERT INTO kvt VALUES ('k1','b',12,'**')", "ERR"},  // unique (l,k) in the trip db
    };
    for (const auto &c : cases) {
        HttpReply post = httpPost("/UexecSql", c.sql.empty() ? std::string(" ") : c.sql);
        EXPECT_EQ("HTTP/1.1 200 OK", post.statusLine) << c.sql;
        EXPECT_EQ("text/plain; charset=UTF-8", post.headers["Content-Type"]) << c.sql;
        EXPECT_EQ(kNoCache, post.headers["Cache-Control"]) << c.sql;
        EXPECT_TRUE(c.body == post.body) << c.sql << " => " << post.body;
    }
    // the same statement by GET, by the second POST name, and with any tail on the prefix
    EXPECT_EQ("[\n[1]\n]", httpGet("/UexecSql/SELECT%201").body);
    EXPECT_EQ("[\n[2]\n]", httpPost("/execSql3", "SELECT 2").body);
    EXPECT_EQ("[\n[3]\n]", httpPost("/UexecSql/ignored", "SELECT 3").body);
    EXPECT_EQ("[\n[\"a\"]\n]", httpGet("/UexecSql/" + enc("SELECT v FROM kvt WHERE k='k1' AND 1")).body);
}

TEST(Sql, BoundBodyAndChartPack) {
    PackedHost h;
    std::string ten("ab\0cd\0efgh", 10);
    EXPECT_EQ("OK", httpPost("/UPexecSql/" + enc("INSERT INTO kvt VALUES ('x',?,12,'**')"), ten).body);
    EXPECT_TRUE(ten == httpGet("/getValue/x").body);
    EXPECT_EQ("[\n[10,\"blob\"]\n]",
              httpGet("/UexecSql/" + enc("SELECT length(CAST(v AS BLOB)), typeof(v) FROM kvt WHERE k='x' AND 1")).body);
    // a statement without a parameter cannot take the body
    EXPECT_EQ("column index out of range", httpPost("/UPexecSql/SELECT%201", "zz").body);

    EXPECT_EQ("out of memory", httpPost("/MexecSql", "SELECT 1").body);
    h.select();
    EXPECT_EQ("[\n[3]\n]", httpGet("/MexecSql/" + enc("SELECT count(*) FROM tiles")).body);
    EXPECT_EQ("[\n[167,1420066800,120,1],\n[167,1420070400,-35,2]\n]",
              httpPost("/MexecSql", "SELECT * FROM tides ORDER BY ts").body);
    EXPECT_EQ("ERR", httpPost("/MexecSql", "DELETE FROM tiles").body);  // packs are read-only
    EXPECT_EQ("[\n[3]\n]", httpGet("/MexecSql/" + enc("SELECT count(*) FROM tiles")).body);
}

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
        {"1000/1000/200", "[" + near3 + "," + zero1 + "]"},  // bounds exclusive: Top5 lies on x + range
        {"1500/1500/300", "[" + far3 + "," + zero2 + "]"},   // the nearest of a rank wins, from the other side
        {"2000/2000/500", "[]"},  // Far3 lies exactly on x - range
        {"2147483647/2147483647", "[]"},  // the upper bound wraps below the lower one
    };
    for (const auto &c : cases)
        expectReply("/gazetteer/" + c.text, "200 OK", "text/plain; charset=UTF-8", kNoCache, c.body);
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

TEST(PackGuard, SwitchWhileServing) {
    PackedHost h;
    h.select();
    const struct {
        std::string path;
        std::set<std::string> ok;  // the replies of each pack, and of none
    } kinds[] = {
        {"/getTileI/A5/3298535931904", {standardPack("A").tiles[0].png, standardPack("B").tiles[0].png, onePixelGif()}},
        {"/getMapData/version", {"1521740772A", "1521740772B", "File not found (de): version"}},
        {"/MexecSql/SELECT%20count(*)%20FROM%20tiles", {"[\n[3]\n]", "out of memory"}},
    };
    std::atomic<bool> stop(false);
    std::atomic<int> bad(0), served(0), switches(0);
    std::mutex firstLock;
    std::string first;  // the first bad reply, for the failure message
    auto fail = [&](const std::string &what) {
        std::lock_guard<std::mutex> g(firstLock);
        if (first.empty()) first = what;
        bad++;
    };

    auto reader = [&](int kind) {
        std::unique_ptr<Conn> c;
        for (int n = 0; !stop; n++) {
            // a connection serves 10000 requests at most: renew it well before
            if (n % 2000 == 0) c.reset(new Conn());
            c->send("GET " + kinds[kind].path + " HTTP/1.1\r\n\r\n");
            HttpReply r = c->read(20000);
            if (!r.complete || !kinds[kind].ok.count(r.body)) {
                fail(kinds[kind].path + " => " + r.statusLine + " " + r.body.substr(0, 80));
                return;
            }
            served++;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) threads.emplace_back(reader, i % 4 == 3 ? 1 + (i / 4) : 0);
    threads.emplace_back([&] {
        const char *names[] = {"A000005.marepack", "A000006.marepack", "missing.marepack"};
        // each switch waits for 20 more replies, so that it falls among requests
        for (int i = 0; i < 30 && bad == 0; i++) {
            if (!waitFor([&] { return served >= 20 * (i + 1) || bad != 0; }, 60000)) {
                fail("readers served nothing for a minute");
                break;
            }
            Conn sw;
            sw.send(std::string("GET /getSetState/chartdb=") + names[i % 3] + " HTTP/1.1\r\n\r\n");
            HttpReply r = sw.read(20000);
            if (!r.complete) fail(std::string("switch to ") + names[i % 3]);
            switches++;
        }
        stop = true;
    });
    for (auto &t : threads) t.join();
    EXPECT_EQ(0, bad.load()) << first << "\nhost output:\n" << h.host->output();
    EXPECT_EQ(30, switches.load());
    EXPECT_GT(served.load(), 600);
    EXPECT_EQ("1521740772B", (h.select("A000006.marepack"), httpGet("/getMapData/version").body));
}
