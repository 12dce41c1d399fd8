// Saved state over HTTP: the setting form for every name, its rows and key
// files, and the reading form's two replies.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

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
        EXPECT_EQ("no-cache, no-store, must-revalidate", r.headers["Cache-Control"]) << c.text;
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
