// The route lists themselves: prefixes taking anything behind them, the
// small answers of the table, the POST fall-through and /quit!.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

namespace {
const char kNoCache[] = "no-cache, no-store, must-revalidate";
}

TEST(Routes, SmallAnswers) {
    PackedHost h;
    struct Case {
        bool post;
        std::string path, status, type, body;
    } cases[] = {
        {true, "/nothing", "404 NOPE", "application/state; charset=UTF-8", ""},
        {true, "/setValue", "404 NOPE", "application/state; charset=UTF-8", ""},
        {true, "/postShare/title", "200 OK", "application/state; charset=UTF-8", "0"},
        {true, "/inAppPurchase/buy", "200 OK", "text/plain; charset=UTF-8", "{}"},
        {false, "/inAppPurchase/", "200 OK", "text/plain; charset=UTF-8", "{}"},
        {false, "/rateApp", "200 OK", "text/plain; charset=UTF-8", ""},
        {false, "/rateAppNow", "200 OK", "text/plain; charset=UTF-8", ""},
        {false, "/download/*", "200 OK", "text/plain; charset=UTF-8",
         "{\"id\":0,\"b\":0,\"s\":0,\"e\":0}"},
        {false, "/download/**", "200 OK", "text/plain; charset=UTF-8",
         "{\"id\":0,\"b\":0,\"s\":0,\"e\":0}"},
    };
    for (const auto &c : cases) {
        HttpReply r = c.post ? httpPost(c.path, "body") : httpGet(c.path);
        ASSERT_TRUE(r.complete) << c.path;
        EXPECT_EQ("HTTP/1.1 " + c.status, r.statusLine) << c.path;
        EXPECT_EQ(c.type, r.headers["Content-Type"]) << c.path;
        EXPECT_EQ(c.body, r.body) << c.path;
        if (c.path != "/inAppPurchase/buy") {
            EXPECT_EQ(kNoCache, r.headers["Cache-Control"]) << c.path;
        }
    }
}

TEST(Routes, HostFactsAndLicence) {
    PackedHost h;
    // the prefix has no slash, so anything behind it is the same route
    for (const char *path : {"/hostversion", "/hostversion/x"}) {
        HttpReply r = httpGet(path);
        EXPECT_EQ("text/plain; charset=UTF-8", r.headers["Content-Type"]);
        EXPECT_EQ(0u, r.body.find("{\"hostversion\":\"M.1.16.568\",\"locale\":\"\",\"alang\":\"en\","
                                  "\"skin\":\"Navy Blue\",\"device\":\"mareplot-"))
            << r.body;
        EXPECT_NE(std::string::npos, r.body.find("\",\"appname\":\"mareplot\"}")) << r.body;
    }
    HttpReply a = httpGet("/getAuth/user"), b = httpGet("/getAuth/user");
    EXPECT_EQ("text/plain; charset=UTF-8", a.headers["Content-Type"]);
    EXPECT_EQ(kNoCache, a.headers["Cache-Control"]);
    EXPECT_FALSE(a.body.empty());
    EXPECT_EQ(a.body, b.body);  // a stable answer for this device
}

TEST(Routes, QuitSendsNothing) {
    PackedHost h;
    Conn c;
    c.send("GET /quit!now HTTP/1.1\r\n\r\n");
    HttpReply r = c.read(3000);
    EXPECT_TRUE(r.statusLine.empty()) << r.statusLine;
    EXPECT_TRUE(c.closedWithin(3000));
}
