// The host killed outright, again and again, while a fast feed writes track rows: the trip database
// stays whole, and every track point a status reply showed before the kill is still in the log.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <set>
#include <string>

#include "chartkit/kit_support.h"
#include "support/feed_server.h"
#include "support/host_harness.h"
#include "support/nmea_sentence.h"

namespace {

// 500 fixes 18 m apart, northward from 54 deg 30 min.
std::string voyage() {
    std::string text;
    for (int i = 0; i < 500; i++) {
        char minutes[16];
        snprintf(minutes, sizeof(minutes), "%07.4f", 30 + i * 0.01);
        text += checksummed(std::string("GPRMC,120000,A,54") + minutes + ",N,01000.0000,E,5.0,0.0,210326,,");
    }
    return text;
}

// The elements "x,y,ts" of a status reply's track list; *last gets the newest ts.
void trackElements(const std::string &json, std::set<std::string> *into, long *last) {
    size_t at = json.find("\"track\":[");
    if (at == std::string::npos) return;
    for (size_t open = json.find('[', at + 9); open != std::string::npos; open = json.find('[', open + 1)) {
        size_t close = json.find(']', open);
        if (close == std::string::npos) break;
        std::string e = json.substr(open + 1, close - open - 1);
        into->insert(e);
        long ts = atol(e.c_str() + e.rfind(',') + 1);
        if (ts > *last) *last = ts;
        open = close;
    }
}

TEST(CrashSafety, KilledHostKeepsEveryTrackRowItReported) {
    const std::string home = makeTempDir("mareplot-home-");
    const std::string feedFile = home + "/voyage.nmea";
    writeFile(feedFile, voyage());
    const int port = FeedServer().port();  // free now, for the tool to take
    std::string tool = std::string(MAREPLOTD_PATH);
    tool = tool.substr(0, tool.rfind('/') + 1) + "nmea_replay";
    kit::Child replay({tool, "-p", std::to_string(port), "-r", "400", "-l", feedFile});

    std::set<std::string> reported;
    std::mt19937 rng(18);
    const std::string feedMode = "/setNmeaMode/0/1/1/127.0.0.1/" + std::to_string(port) + "/0";
    for (int round = 0; round < 20; round++) {
        Host host(home);
        ASSERT_TRUE(host.running()) << "round " << round << ": " << host.output();
        // track on, a row every metre: each fix of the feed is a row
        httpPost("/getSetHostStat/86400/1/1/4294967295", "*");
        httpGet(feedMode);
        auto killAt = std::chrono::steady_clock::now() + std::chrono::milliseconds(150 + rng() % 600);
        long last = 0;
        size_t before = reported.size();
        Conn conn;
        // poll as the client does; the kill follows a reply, amid the feed thread's writes
        while (std::chrono::steady_clock::now() < killAt || reported.size() == before) {
            std::string since = std::to_string(last > 0 ? last - 1 : 0);
            conn.send("POST /getSetHostStat/86400/1/1/" + since + " HTTP/1.1\r\nContent-Length: 1\r\n\r\n*");
            HttpReply r = conn.read();
            ASSERT_TRUE(r.complete) << "round " << round;
            trackElements(r.body, &reported, &last);
            ASSERT_LT(std::chrono::steady_clock::now(), killAt + std::chrono::seconds(5))
                << "no track rows in round " << round;
        }
        host.stop();
    }

    const std::string trip = home + "/.local/share/mareplot/marepack.trip";
    EXPECT_EQ("ok", kit::sqlOne(trip, "PRAGMA integrity_check"));
    std::string all;  // the reported elements as one JSON array
    for (const std::string &e : reported) all += (all.empty() ? "[[" : "],[") + e;
    EXPECT_EQ("0 lost", kit::sqlOne(trip, "SELECT count(*) || ' lost' || ifnull(', e.g. ' || min(r.value), '') FROM "
              "json_each(?) r WHERE NOT EXISTS (SELECT 1 FROM log WHERE t=1 AND ts=json_extract(r.value, '$[2]') "
              "AND abs(x-json_extract(r.value, '$[0]'))<1e-6 AND abs(y-json_extract(r.value, '$[1]'))<1e-6)",
              {all + "]]"}));
    EXPECT_GE(reported.size(), 20u);
    removeTree(home);
}

}  // namespace
