// Route-table answers that no handler test covers: the licence and purchase
// answers, download polls while idle, and prefixes without a trailing slash.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

TEST(Routes, SmallAnswers) {
    PackedHost h;
    const std::string idle = "{\"id\":0,\"b\":0,\"s\":0,\"e\":0}";
    struct Case {
        bool post;
        std::string path, body;
    } cases[] = {
        {true, "/inAppPurchase/buy", "{}"},
        {false, "/inAppPurchase/", "{}"},
        {false, "/download/*", idle},
        {false, "/download/**", idle},
        {true, "/setValue", ""},  // no slash: not the setValue route
    };
    for (const auto &c : cases) {
        HttpReply r = c.post ? httpPost(c.path, "body") : httpGet(c.path);
        EXPECT_EQ(c.post && c.body.empty() ? "HTTP/1.1 404 NOPE" : "HTTP/1.1 200 OK", r.statusLine) << c.path;
        EXPECT_EQ(c.body, r.body) << c.path;
    }
    // /hostversion has no trailing slash and takes anything behind it
    EXPECT_EQ(httpGet("/hostversion").body, httpGet("/hostversion/x").body);
    HttpReply a = httpGet("/getAuth/user"), b = httpGet("/getAuth/user");
    EXPECT_EQ("text/plain; charset=UTF-8", a.headers["Content-Type"]);
    EXPECT_FALSE(a.body.empty());
    EXPECT_EQ(a.body, b.body);  // a stable answer for this device
}
