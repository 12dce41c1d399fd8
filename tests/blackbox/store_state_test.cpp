// Saved state over HTTP: the setting form for every name, its rows and key
// files, and the reading form's two replies.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

TEST(State, SettingFormRepliesAndRows) {
    PackedHost h;
    const std::string dir = h.home.dataDir() + "/";
    struct Case {
        std::string text, status, body;
    } cases[] = {
        {"alang=fr", "200 OK", "000 fr"},
        {"mlang=en", "200 OK", "000 en"},
        {"skin=Navy%20Blue", "200 OK", "000 Navy Blue"},
        {"chartdb=A000005.marepack", "200 OK", "000 " + dir + "A000005.marepack"},
        // the bare name is tried second, and is what the reply names
        {"chartdb=nothing.marepack", "200 OK", "500 nothing.marepack"},
        {"delchartdb=A000099.marepack", "200 OK", "000 A000099.marepack"},
        {"foo=bar", "510 no such state", ""},
        {"Alang=xx", "510 no such state", ""},  // names are case-sensitive
    };
    for (const auto &c : cases) {
        HttpReply r = httpGet("/getSetState/" + c.text);
        ASSERT_TRUE(r.complete) << c.text;
        EXPECT_EQ("HTTP/1.1 " + c.status, r.statusLine) << c.text;
        EXPECT_EQ(c.body, r.body) << c.text;
        EXPECT_EQ("application/state; charset=UTF-8", r.headers["Content-Type"]) << c.text;
        EXPECT_EQ("no-cache, no-store, must-revalidate", r.headers["Cache-Control"]) << c.text;
    }
    // every name leaves its last value as a type-11 row, failed actions too
    struct Row {
        std::string name, value;
    } rows[] = {{"alang", "fr"},          {"mlang", "en"},
                {"skin", "Navy Blue"},     {"chartdb", "nothing.marepack"},
                {"delchartdb", "A000099.marepack"}, {"foo", "bar"}};
    for (const auto &w : rows) {
        HttpReply r = httpGet("/getValue/" + w.name);
        EXPECT_EQ(w.value, r.body) << w.name;
        EXPECT_EQ("application/state; charset=UTF-8", r.headers["Content-Type"]) << w.name;
    }
    EXPECT_EQ("fr", readFile(dir + "alang.key"));
    EXPECT_EQ("Navy Blue", readFile(dir + "skin.key"));
    EXPECT_NE(std::string::npos, httpGet("/hostversion").body.find("\"alang\":\"fr\",\"skin\":\"Navy Blue\""));
}

TEST(State, ReadingFormSendsTwice) {
    PackedHost h;
    httpGet("/getSetState/mlang=en");
    Conn c;
    c.send("GET /getSetState/mlang HTTP/1.1\r\n\r\n");
    HttpReply first = c.read(), second = c.read();
    EXPECT_EQ("HTTP/1.1 200 OK", first.statusLine);
    EXPECT_EQ("en", first.body);
    EXPECT_EQ("en", second.body);
    EXPECT_EQ("application/state; charset=UTF-8", second.headers["Content-Type"]);

    Conn d;
    d.send("GET /getSetState/never HTTP/1.1\r\n\r\n");
    HttpReply a = d.read(), b = d.read();
    EXPECT_EQ("HTTP/1.1 404 File not found", a.statusLine);
    EXPECT_EQ("HTTP/1.1 404 File not found", b.statusLine);
    EXPECT_EQ("File not found (**): never", b.body);
}
