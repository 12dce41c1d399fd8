// Over-long and odd values from outside, one per guard (number parsing and key files are the unit tests',
// a pack's places the gazetteer's): the reply for nothing found, nothing stored, the host serving on.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

namespace {

// Whatever came before, the host still answers.
void expectAlive(const std::string &after) {
    HttpReply r = httpGet("/hostversion");
    EXPECT_TRUE(r.complete) << "no answer after " << after;
    EXPECT_EQ("HTTP/1.1 200 OK", r.statusLine) << "after " << after;
}

}  // namespace

TEST(LongInput, RoutesGiveTheirFailureReply) {
    PackedHost h;
    h.select();
    const std::string dir = h.home.dataDir() + "/";
    const std::string x400(400, 'x'), x1900(1900, 'x');
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
         "[\n[" + std::to_string(1e308) + "," + std::to_string(-1.7976931348623157e308) + "]\n]"},
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
