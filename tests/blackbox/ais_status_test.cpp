// AIS end to end: mareplotd reads AIS sentences from a TCP feed on
// loopback, and the status reply carries their rows exactly once and, for
// the own ship with an AIS position source, the fix 800 or 801.
#include <gtest/gtest.h>

#include <string>

#include "support/ais_encoder.h"
#include "support/feed_server.h"
#include "support/host_harness.h"

namespace {

std::string status() { return httpPost("/getSetHostStat/86400/50/0/4294967295", "*").body; }

std::string aisRows(const std::string &json) {
    size_t open = json.find("\"ais\":[\n"), close = json.find("],\"track\"");
    if (open == std::string::npos || close == std::string::npos) return "?";
    return json.substr(open + 8, close - open - 8);
}

// A position report of class A (1) or B (18) at 54 N 10 E.
std::vector<std::string> report(int msgid, uint32_t mmsi, const char *talker) {
    aisenc::Bits b;
    b.put(msgid, 6).put(0, 2).put(mmsi, 30);
    if (msgid == 1)
        b.put(0, 4).put(0, 8).put(100, 10);
    else
        b.put(0, 8).put(100, 10);
    b.put(0, 1).put(10 * 600000, 28).put(54 * 600000, 27).put(900, 12).put(45, 9);
    b.put(0, 168 - b.size());
    return aisenc::sentences(b, talker);
}

size_t count(const std::string &s, const std::string &what) {
    size_t n = 0;
    for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1)) n++;
    return n;
}

TEST(AisStatus, OwnShipFixAndRowsOnce) {
    Host host;
    FeedServer feed;
    ASSERT_TRUE(host.running());
    // gpsSource 2 (AIS own ship), TCP feed, own MMSI 246000000
    httpGet("/setNmeaMode/0/2/1/127.0.0.1/" + std::to_string(feed.port()) + "/246000000");
    ASSERT_TRUE(feed.waitAccepts(1, 10000));
    ASSERT_TRUE(waitFor([] { return jsonNumber(status(), "nmea_stat") == 1; }, 10000));

    struct Step {
        int msgid;
        int fix;
        const char *row;
    } steps[] = {
        {1, 800, "[246000000,1,0,21127038,12852955,100,900,45,0,0]"},
        {18, 801, "[246000000,18,0,21127038,12852955,100,900,45,-128,0]"},
    };
    for (const Step &s : steps) {
        SCOPED_TRACE(s.msgid);
        feed.sendLines(report(s.msgid, 246000000, "AIVDO"));
        feed.sendLines(report(s.msgid, 211000000 + s.msgid, "AIVDM"));
        // poll as the client would, gathering every row, until the fix and
        // both rows are there (the other vessel's line comes after ours)
        std::string last, rows, other = "[" + std::to_string(211000000 + s.msgid) + ",";
        waitFor([&] {
            last = status();
            std::string r = aisRows(last);
            if (!r.empty()) rows += (rows.empty() ? "" : ",\n") + r;
            return jsonNumber(last, "fix") == s.fix && rows.find(s.row) != std::string::npos &&
                   rows.find(other) != std::string::npos;
        }, 10000);
        EXPECT_EQ(s.fix, jsonNumber(last, "fix")) << last;
        EXPECT_EQ(54, jsonNumber(last, "latY"));
        EXPECT_EQ(10, jsonNumber(last, "lonX"));
        EXPECT_EQ(90, jsonNumber(last, "cog"));
        EXPECT_EQ(246000000, jsonNumber(last, "aisuserid"));
        EXPECT_EQ(1u, count(rows, s.row)) << rows;
        EXPECT_EQ(1u, count(rows, other)) << rows;
        EXPECT_EQ(2u, count(rows, "[")) << rows;
        EXPECT_EQ("", aisRows(status()));  // nothing is delivered twice
    }
}

}  // namespace
