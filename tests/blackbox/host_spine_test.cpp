// The headless host's connection loop over raw sockets: the request budget,
// header parsing quirks, how connections end, and the routes of the spine.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <string>
#include <thread>

#include "support/host_harness.h"

namespace {

const char *kVersionBody =
    "{\"hostversion\":\"M.1.16.568\",\"locale\":\"\",\"alang\":\"en\",\"skin\":\"Navy Blue\",\"device\":\"";

std::string getReq(const std::string &path) { return "GET " + path + " HTTP/1.1\r\n\r\n"; }

class Spine : public ::testing::Test {
  protected:
    Host host;
};

TEST_F(Spine, HostversionRepliesAndTheRequestBudget) {
    Conn c;
    std::string all;
    for (int i = 0; i < 10004; i++) all += "GET /hostversion\n\n";
    std::thread writer([&] { c.send(all); });
    HttpReply first = c.read();
    EXPECT_TRUE(first.complete);  // no early return: the writer must be joined
    EXPECT_EQ("HTTP/1.1 200 OK", first.statusLine);
    EXPECT_EQ("max=9999", first.headers["Keep-Alive"]);
    EXPECT_EQ(0u, first.body.find(kVersionBody)) << first.body;
    EXPECT_EQ("\",\"appname\":\"mareplot\"}", first.body.substr(first.body.size() - 23));
    // the 10000th reply closes; requests already read get negative budgets
    std::map<int, std::string> seen;
    int replies = 1;
    for (HttpReply r; (r = c.read(5000)).complete;) {
        replies++;
        if (replies == 2 || replies == 9999 || replies == 10001 || replies == 10003)
            seen[replies] = r.headers["Keep-Alive"];
        if (replies == 10000) seen[replies] = r.headers["Connection"];
    }
    writer.join();
    EXPECT_EQ(10003, replies);
    std::map<int, std::string> budget = {
        {2, "max=9998"}, {9999, "max=1"}, {10000, "close"}, {10001, "max=-1"}, {10003, "max=-3"}};
    EXPECT_EQ(budget, seen);
}

TEST_F(Spine, HeaderParsingQuirks) {
    {   // a GET's Content-Length is not read as a body: its bytes are the next request line
        Conn c;
        c.send("GET /hostversion HTTP/1.1\r\nContent-Length: 5\r\n\r\nGET /a%20\r\n\r\n");
        EXPECT_TRUE(c.read().complete);
        HttpReply second = c.read();
        EXPECT_EQ("HTTP/1.1 404 File not found", second.statusLine);
        EXPECT_EQ("File not found (de): /a 20", second.body) << "escape at the end keeps its raw tail";
    }
    {   // "Content-Length:5" counts; a lower-case name does not, so that POST gets no reply
        Conn c;
        c.send("POST /nope HTTP/1.1\r\nContent-Length:5\r\n\r\nabcde");
        EXPECT_EQ("HTTP/1.1 404 NOPE", c.read().statusLine);
        c.send("POST /nope HTTP/1.1\r\ncontent-length: 5\r\n\r\n");
        EXPECT_TRUE(c.silentFor(300));
        c.send(getReq("/hostversion"));
        HttpReply r = c.read();  // nothing of the 404 is left on the connection
        EXPECT_EQ("HTTP/1.1 200 OK", r.statusLine);
        EXPECT_EQ("text/plain; charset=UTF-8", r.headers["Content-Type"]);
        EXPECT_EQ("max=9997", r.headers["Keep-Alive"]);
    }
    {   // other methods get no reply and the connection stays
        Conn c;
        c.send("PUT /hostversion HTTP/1.1\r\n\r\n");
        EXPECT_TRUE(c.silentFor(300));
        c.send(getReq("/hostversion"));
        EXPECT_TRUE(c.read().complete);
    }
}

TEST_F(Spine, ConnectionEndings) {
    struct Case {
        const char *name;
        std::string bytes;
        int repliesBeforeClose;
    } cases[] = {
        {"empty line between requests", getReq("/hostversion") + "\r\n" + getReq("/hostversion"), 1},
        {"request pipelined behind a POST loses its first byte",
         "POST /nope HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc" + getReq("/hostversion"), 1},
        {"short body", "POST /nope HTTP/1.1\r\nContent-Length: 10\r\n\r\nabc", 0},
        {"quit", getReq("/hostversion") + getReq("/quit!now"), 1},
    };
    for (const auto &c : cases) {
        Conn conn;
        conn.send(c.bytes);
        if (c.name == std::string("short body")) shutdown(conn.fd(), SHUT_WR);
        int replies = 0;
        for (HttpReply r; (r = conn.read(3000)).complete;) replies++;
        EXPECT_EQ(c.repliesBeforeClose, replies) << c.name;
        EXPECT_TRUE(conn.closedWithin(3000)) << c.name;
        if (std::string(c.name) == "quit") break;  // the listener is winding down
    }
}

TEST_F(Spine, QuitLetsAnIdleConnectionFinishItsNextRequest) {
    // the loop serves a first request before it looks at running
    Conn idle;
    ASSERT_TRUE(idle.ok());
    {
        Conn q;
        q.send(getReq("/quit!"));
        EXPECT_TRUE(q.closedWithin(3000));
    }
    idle.send(getReq("/hostversion"));
    EXPECT_TRUE(idle.read().complete);
    EXPECT_TRUE(idle.closedWithin(3000));
}

TEST_F(Spine, PeersThatVanishDoNotEndTheHost) {
    for (int i = 0; i < 20; i++) {
        Conn c;
        c.send("GET /app/marepack.html HTTP/1.1\r\n\r\n");
        struct linger lg = {1, 0};  // reset instead of a clean close
        setsockopt(c.fd(), SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
    }
    HttpReply r = httpGet("/hostversion");
    EXPECT_TRUE(r.complete);
    EXPECT_TRUE(host.running());
}

TEST_F(Spine, RoutesOfTheSpine) {
    const char *idle = "{\"id\":0,\"b\":0,\"s\":0,\"e\":0}";
    struct Case {
        std::string method, path;
        const char *status, *type, *body;  // nullptr: not checked
    } cases[] = {
        {"GET", "/app/marepack.html", "200 OK", "text/html; charset=UTF-8", nullptr},
        {"GET", "/rateApp", "200 OK", "text/plain; charset=UTF-8", ""},
        {"POST", "/postShare/title", "200 OK", "application/state; charset=UTF-8", "0"},
        {"POST", "/unknown", "404 NOPE", "application/state; charset=UTF-8", ""},
        {"POST", "/setValue", "404 NOPE", nullptr, ""},  // no slash: not the setValue route
        {"GET", "/download/*", "200 OK", "text/plain; charset=UTF-8", idle},
        {"POST", "/inAppPurchase/buy", "200 OK", nullptr, "{}"},
        {"GET", "/inAppPurchase/", "200 OK", nullptr, "{}"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.method + " " + c.path);
        HttpReply r = c.method == "GET" ? httpGet(c.path) : httpPost(c.path, "body");
        EXPECT_EQ(std::string("HTTP/1.1 ") + c.status, r.statusLine);
        if (c.type) { EXPECT_EQ(c.type, r.headers["Content-Type"]); }
        if (c.body) { EXPECT_EQ(c.body, r.body); }
    }
    // /hostversion has no trailing slash and takes anything behind it
    EXPECT_EQ(httpGet("/hostversion").body, httpGet("/hostversion/x").body);
    HttpReply a = httpGet("/getAuth/user"), b = httpGet("/getAuth/user");
    EXPECT_EQ("text/plain; charset=UTF-8", a.headers["Content-Type"]);
    EXPECT_FALSE(a.body.empty());
    EXPECT_EQ(a.body, b.body);  // a stable answer for this device
}

}  // namespace
