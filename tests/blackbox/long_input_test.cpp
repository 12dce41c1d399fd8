// Over-long and odd values from outside, one per guard (number parsing is
// the unit tests'): the reply for nothing found, nothing changed or stored,
// the host serving on. Key files and a pack's places are outside data too.
#include <gtest/gtest.h>
#include <stdio.h>

#include "support/feed_server.h"
#include "support/test_pack.h"

using namespace testpack;

namespace {

// Whatever came before, the host still answers.
void expectAlive(const std::string &after) {
    HttpReply r = httpGet("/hostversion");
    EXPECT_TRUE(r.complete) << "no answer after " << after;
    EXPECT_EQ("HTTP/1.1 200 OK", r.statusLine) << "after " << after;
}

std::string lf(double v) {
    char s[400];
    snprintf(s, sizeof(s), "%lf", v);
    return s;
}

}  // namespace

TEST(LongInput, RoutesGiveTheirFailureReply) {
    PackedHost h;
    h.select();
    const std::string dir = h.home.dataDir() + "/";
    const std::string x400(400, 'x'), x1900(1900, 'x');
    // the longest pack name that still fits the 320-byte path area, and one more
    const std::string fitting(319 - dir.size(), 'p'), tooLong(320 - dir.size(), 'p');
    std::string escaped32;
    for (int i = 0; i < 32; i++) escaped32 += "%41";
    struct Case {
        std::string method, path, body;  // body only for POST
        std::string status, reply;
    } cases[] = {
        {"GET", "/getSetState/chartdb=" + tooLong, "", "200 OK", "500 "},
        {"GET", "/getSetState/alang=abcd", "", "200 OK", "500 "},
        {"GET", "/getSetState/mlang=abcd", "", "200 OK", "500 "},
        // escapes count as the bytes they decode to: 32 of them are too many
        {"GET", "/getSetState/skin=" + escaped32, "", "200 OK", "500 "},
        {"GET", "/download/1%201%201%20" + x400, "", "200 OK", "{\"id\":0,\"b\":0,\"s\":0,\"e\":0}"},
        {"GET", "/UexecSql/SELECT%201e308,-1.7976931348623157e308", "", "200 OK",
         "[\n[" + lf(1e308) + "," + lf(-1.7976931348623157e308) + "]\n]"},
        {"GET", "/UexecSql/SELECT%20zeroblob(300000000)", "", "200 OK", "string or blob too big"},
        {"GET", "/setNmeaMode/0/1/1/" + x400 + "/10110/0", "", "200 OK", "0"},
        {"GET", "/getValue/" + x1900, "", "404 File not found", "File not found (**): " + x1900},
        {"GET", "/getMapData/" + x1900, "", "404 File not found", "File not found (de): " + x1900},
        {"GET", "/getMapDataA/" + x1900, "", "200 OK", "[]"},
        {"GET", "/getcrc32/" + x1900, "", "200 OK", "{\"crc32\":\"none\",\"size\":0}"},
        {"POST", "/setValue/" + x1900, "v", "200 OK", "OK"},
    };
    for (const Case &c : cases) {
        const std::string what = c.method + " " + c.path.substr(0, 60);
        HttpReply r = c.method == "GET" ? httpGet(c.path) : httpPost(c.path, c.body);
        ASSERT_TRUE(r.complete) << what << "\nhost output:\n" << h.host->output();
        EXPECT_EQ("HTTP/1.1 " + c.status, r.statusLine) << what;
        EXPECT_EQ(c.reply, r.body) << what;
        expectAlive(what);
    }

    // the refused values changed nothing and were not kept
    EXPECT_NE(std::string::npos,
              httpGet("/hostversion").body.find("\"alang\":\"en\",\"skin\":\"Navy Blue\""));
    for (const char *name : {"alang", "mlang", "skin"})
        EXPECT_EQ("HTTP/1.1 404 File not found", httpGet(std::string("/getValue/") + name).statusLine) << name;
    EXPECT_EQ("1521740772A", httpGet("/getMapData/version").body);
    EXPECT_EQ("v", httpGet("/getValue/" + x1900).body);
    // the longest name that fits is tried (and, missing, closes the pack)
    EXPECT_EQ("500 " + fitting, httpGet("/getSetState/chartdb=" + fitting).body);
    EXPECT_EQ("HTTP/1.1 404 File not found", httpGet("/getMapData/version").statusLine);
    EXPECT_EQ(std::string::npos, h.host->output().find("nema starts"));
}

TEST(LongInput, RequestsBeyondTheirRoom) {
    PackedHost h;
    struct Case {
        const char *name;
        std::string request;
        bool answered;  // else the connection ends with no reply
    } cases[] = {
        {"path of 2048 bytes", "GET /getValue/" + std::string(2048, 'x') + " HTTP/1.1\r\n\r\n", false},
        {"line beyond the input buffer", "GET /" + std::string(20000, 'x') + " HTTP/1.1\r\n\r\n", false},
        {"method of 16 bytes", std::string(16, 'G') + " /hostversion HTTP/1.1\r\n\r\n", false},
        {"body beyond the limit", "POST /setValue/k HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\nv", false},
        {"negative body length", "POST /setValue/k HTTP/1.1\r\nContent-Length: -5\r\n\r\nv", false},
        // headers are read for two names only: a long one is passed over
        {"header beyond the input buffer",
         "GET /hostversion HTTP/1.1\r\nCookie: " + std::string(20000, 'c') + "\r\n\r\n", true},
        {"authorization token of 5000 bytes",
         "GET /hostversion HTTP/1.1\r\nAuthorization: Basic " + std::string(5000, 'a') + "\r\n\r\n", true},
    };
    for (const Case &c : cases) {
        Conn conn;
        conn.send(c.request);
        if (c.answered)
            EXPECT_EQ("HTTP/1.1 200 OK", conn.read().statusLine) << c.name;
        else
            EXPECT_TRUE(conn.closedWithin(5000)) << c.name;
        expectAlive(c.name);
    }
}

TEST(LongInput, OverlongKeyFilesAreNotTaken) {
    // a cut server name would be another server; a cut port another device
    PackedHost h({}, [](const PackHome &home) {
        writeFile(home.path("chartserver.key"), std::string(300, 'c') + ".example:8080\n");
        writeFile(home.path("usbport.key"), "/dev/" + std::string(300, 't') + "\n9600");
    });
    // the first reply says 1, however far the thread has come meanwhile
    HttpReply start = httpGet("/download/7%201%20100%200");
    EXPECT_NE(std::string::npos, start.body.find("\"s\":1,")) << start.body;
    // no name is looked up (that would take 20 tries 2 s apart): it ends at once
    std::string last;
    waitFor([&] { return (last = httpGet("/download/*").body).find("\"s\":0") != std::string::npos; }, 10000);
    EXPECT_EQ("{\"id\":7,\"b\":0,\"s\":0,\"e\":-2}", last);
    EXPECT_FALSE(fileExists(h.home.path("N000007.temp")));
    EXPECT_EQ(std::string::npos, h.host->output().find("serial port")) << h.host->output();
}

TEST(LongInput, OverlongPlaceOfAPackIsPassedOver) {
    Pack p = standardPack("A");
    p.gaz = {{1000, 1000, "H.ANCH", 3, std::string(600, 'n')},
             {1100, 1100, "H.ANCH", 3, "Short3"},
             {1050, 1050, std::string(600, 'c'), 0, "Zero"}};
    PackedHost h({{"A000005.marepack", p}});
    h.select();
    HttpReply r = httpGet("/gazetteer/1000/1000");
    EXPECT_EQ("[{\"n\":\"Short3\",\"c\":\"H.ANCH\",\"x\":1100,\"y\":1100}]", r.body);
}
