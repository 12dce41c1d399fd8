// The TCP feed end to end: mareplotd connects to a test feed server on loopback; the status reply and
// the host's printed texts show what it made of the lines (the checksum gate itself is the unit tests').
#include <gtest/gtest.h>
#include <math.h>

#include <memory>
#include <string>

#include "support/feed_server.h"
#include "support/host_harness.h"
#include "support/nmea_sentence.h"

namespace {

// An RMC at 54 deg 30 + minutes north, 10 deg east.
std::string rmc(const char *latMinutes) {
    return checksummed(std::string("GPRMC,120000,A,54") + latMinutes + ",N,01000.0000,E,5.0,90.0,210326,,");
}

std::string status() { return httpPost("/getSetHostStat/86400/50/0/4294967295", "*").body; }
double statusNumber(const char *key) { return jsonNumber(status(), key); }
bool latIs(double minutes) { return fabs(statusNumber("latY") - (54 + minutes / 60)) < 1e-6; }

std::string setMode(const std::string &mode) { return httpGet("/setNmeaMode/" + mode).body; }
std::string feedMode(int port, const char *user = "0") {
    return "0/1/1/127.0.0.1/" + std::to_string(port) + "/" + user;
}

TEST(NavFeed, ConnectsOnceMovesThePositionAndDropsBadInput) {
    Host host;
    FeedServer feed;
    EXPECT_EQ("0", setMode(feedMode(feed.port())));
    ASSERT_TRUE(feed.waitAccepts(1, 5000));
    EXPECT_TRUE(waitFor([] { return statusNumber("nmea_stat") == 1; }, 3000));
    EXPECT_EQ(998, statusNumber("fix"));

    feed.sendLine(rmc("30.0000"));
    ASSERT_TRUE(waitFor([] { return latIs(30); }, 3000)) << status();

    // the same string, or one with another own ship's MMSI, restarts nothing (no -1)
    setMode(feedMode(feed.port()));
    setMode(feedMode(feed.port(), "244660000"));
    std::string st = status();
    EXPECT_EQ(244660000, jsonNumber(st, "aisuserid"));
    EXPECT_EQ(1, jsonNumber(st, "nmea_stat"));
    std::string out = host.output();
    EXPECT_NE(std::string::npos, out.find("nema starts\n\n"));
    EXPECT_NE(std::string::npos, out.find("nmea sockt start\n\n"));

    std::string noise;
    for (int i = 0; i < 200; i++) noise.push_back((char)(i * 37 % 251 + 1));
    feed.sendLine(noise + "\n");
    feed.sendLine("$GPRMC,120001,A,5500.0000,N,01000.0000,E,5.0,90.0,210326,,\r\n");
    feed.sendLine("\r\n\n\n");
    std::string base = rmc("31.0000");
    std::string pad499 =
        base.substr(0, base.size() - 5) + std::string(499 - base.size(), 'p') + base.substr(base.size() - 5);
    ASSERT_EQ(499u, pad499.size());
    feed.sendLine(pad499);
    ASSERT_TRUE(waitFor([] { return latIs(31); }, 3000)) << status();
    EXPECT_EQ(1, feed.accepts());

    // a 500-byte line ends the connection and the host comes back at once
    feed.sendLine(std::string(500 - 2, 'L') + "\r\n");
    ASSERT_TRUE(feed.waitAccepts(2, 3000));
    feed.sendLine(rmc("32.0000"));
    EXPECT_TRUE(waitFor([] { return latIs(32); }, 3000));
    EXPECT_TRUE(host.running());
}

TEST(NavFeed, NewPortReconnectsAtTheNextLine) {
    Host host;
    FeedServer first, second;
    setMode(feedMode(first.port()));
    ASSERT_TRUE(first.waitAccepts(1, 5000));
    setMode(feedMode(second.port()));
    EXPECT_EQ(-1, statusNumber("nmea_stat"));
    // the next line wakes the reader, which then leaves (an RMC would keep it)
    first.sendLine(checksummed("HCHDG,12.0,,,,"));
    ASSERT_TRUE(second.waitAccepts(1, 5000));
    EXPECT_TRUE(first.newestClosedWithin(2000));
    second.sendLine(rmc("33.0000"));
    EXPECT_TRUE(waitFor([] { return latIs(33); }, 3000));
    EXPECT_EQ(1, statusNumber("nmea_stat"));
}

// A feed that goes away: the host retries each second until it is back.
TEST(NavFeed, FeedThatGoesAwayIsReconnected) {
    Host host;
    auto feed = std::make_unique<FeedServer>();
    int port = feed->port();
    setMode(feedMode(port));
    ASSERT_TRUE(feed->waitAccepts(1, 5000));
    feed->sendLine(rmc("34.0000"));
    ASSERT_TRUE(waitFor([] { return latIs(34); }, 3000)) << status();

    feed.reset();
    EXPECT_TRUE(waitFor([] { return statusNumber("nmea_stat") == -1; }, 3000));
    feed = std::make_unique<FeedServer>(port);
    ASSERT_TRUE(feed->waitAccepts(1, 5000));
    feed->sendLine(rmc("35.0000"));
    EXPECT_TRUE(waitFor([] { return latIs(35); }, 3000)) << status();
    EXPECT_EQ(1, statusNumber("nmea_stat"));
    EXPECT_NE(std::string::npos, host.output().find("reconnecting...\n"));
}

}  // namespace
