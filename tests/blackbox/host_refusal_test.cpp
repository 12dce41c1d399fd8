// What the host refuses from outside: requests a page elsewhere makes through the user's browser
// (which headers count is the unit test's), and a second host on the same data directory.
#include <gtest/gtest.h>

#include <string>

#include "chartkit/kit_support.h"
#include "support/host_harness.h"
#include "support/test_pack.h"

namespace {

size_t countOf(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
    return n;
}

TEST(ForeignPages, RefusedBeforeAnyRouteRuns) {
    Host host;
    ASSERT_TRUE(host.running());
    const std::string sql = "CREATE TABLE pwned(x)";
    const std::string post = "POST /UexecSql HTTP/1.1\r\nContent-Type: text/plain\r\nContent-Length: " +
                             std::to_string(sql.size()) + "\r\n";
    struct Case {
        const char *name;
        std::string request;  // up to the headers' end
        bool refused;
    } cases[] = {
        {"the page's own origin", "GET /hostversion HTTP/1.1\r\nHost: 127.0.0.1:19999\r\n"
                                  "Origin: http://127.0.0.1:19999\r\n", false},
        {"SQL from a foreign page", post + "Origin: http://evil.example\r\n", true},
        {"SQL from a rebound name", post + "Host: evil.example\r\n", true},
        {"image tag on another site", "GET /getSetState/delchartdb=marepack.trip HTTP/1.1\r\n"
                                      "Host: 127.0.0.1:19999\r\nSec-Fetch-Site: cross-site\r\n", true},
    };
    size_t refusals = 0;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        Conn conn;
        ASSERT_TRUE(conn.ok());
        bool isPost = c.request.compare(0, 4, "POST") == 0;
        conn.send(c.request + "\r\n" + (isPost ? sql : ""));
        HttpReply r = conn.read();
        ASSERT_TRUE(r.complete);
        if (c.refused) {
            refusals++;
            EXPECT_EQ("HTTP/1.1 403 Forbidden", r.statusLine);
            EXPECT_EQ("close", r.headers["Connection"]);
            EXPECT_EQ("", r.body);
            EXPECT_TRUE(conn.closedWithin(2000));
        } else {
            EXPECT_EQ("HTTP/1.1 200 OK", r.statusLine);
            EXPECT_EQ(0u, r.body.find("{\"hostversion\":")) << r.body;
            conn.send("GET /hostversion HTTP/1.1\r\n\r\n");
            EXPECT_EQ("max=9998", conn.read().headers["Keep-Alive"]) << "the connection goes on as before";
        }
    }
    // nothing ran: the host still answers and no table was made
    EXPECT_EQ("HTTP/1.1 200 OK", httpGet("/hostversion").statusLine);
    EXPECT_EQ("kvt,log,sqlite_sequence",
              testpack::sqlColumn(host.dataDir() + "/marepack.trip",
                                  "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name"));
    std::string printed = host.output();
    EXPECT_EQ(refusals, countOf(printed, "refused a request from a foreign page")) << printed;
    EXPECT_NE(std::string::npos, printed.find("(Origin: http://evil.example)\n")) << printed;
}

// (That a killed host leaves no lock behind, the crash test's 20 restarts show.)
TEST(SecondHost, SameDataDirectoryIsRefused) {
    Host first;
    ASSERT_TRUE(first.running());
    const std::string dir = first.dataDir();
    // a stamp of another version would make a starting host write the packs
    writeFile(dir + "/version.key", "M.0.00.000");
    // a second host that kept running is ended after 10 s (status 124)
    kit::Run second = kit::run({"timeout", "-k", "2", "10", "env", "-u", "XDG_DATA_HOME", "HOME=" + first.home(),
                                MAREPLOTD_PATH});
    EXPECT_EQ(1, second.status);
    EXPECT_EQ("mareplot is already running with " + dir + "\n", second.out + second.err);
    EXPECT_EQ("M.0.00.000", readFile(dir + "/version.key"));
    EXPECT_EQ("HTTP/1.1 200 OK", httpGet("/hostversion").statusLine);
}

}  // namespace
