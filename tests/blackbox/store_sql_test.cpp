// The SQL gateway over its six routes: row formats by value type, the
// replies of statements without rows, errors, and the bound body.
#include <gtest/gtest.h>

#include "support/test_pack.h"

using namespace testpack;

namespace {
/* A statement as a path: blanks, quotes and '?' escaped (none ends in one). */
std::string enc(const std::string &s) {
    std::string o;
    for (char c : s) o += c == ' ' ? "%20" : c == '\'' ? "%27" : c == '?' ? "%3F" : std::string(1, c);
    return o;
}
}  // namespace

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
        // a value's type decides its format, row by row
        {"SELECT 1 UNION ALL SELECT 'a' UNION ALL SELECT 2.5",
         "[\n[1],\n[\"a\"],\n[2.500000]\n]"},
        {"INSERT INTO kvt VALUES ('k1','a',12,'**')", "OK"},
        {"INSERT INTO kvt VALUES ('k1','b',12,'**')", "ERR"},  // unique (l,k) in the trip db
    };
    for (const auto &c : cases) {
        HttpReply post = httpPost("/UexecSql", c.sql.empty() ? std::string(" ") : c.sql);
        EXPECT_EQ("HTTP/1.1 200 OK", post.statusLine) << c.sql;
        EXPECT_EQ("text/plain; charset=UTF-8", post.headers["Content-Type"]) << c.sql;
        EXPECT_EQ("no-cache, no-store, must-revalidate", post.headers["Cache-Control"]) << c.sql;
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
