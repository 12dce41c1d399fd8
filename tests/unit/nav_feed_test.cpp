// The mode string, the byte-wise line reader and file playback.
#include <sys/socket.h>
#include <unistd.h>

#include "nav_support.h"
#include "support/feed_server.h"
#include "support/files.h"

using navtest::NavFixture;

namespace {

class NavMode : public NavFixture {};

TEST_F(NavMode, FieldsAreStoredUntilTheTextEnds) {
    const int32_t K = -7; // untouched
    struct {
        std::string mode;
        int32_t intern, source, nmea;
        const char *host;
        int32_t port;
        uint32_t user;
        bool remembered; // copied to lastrequest
    } cases[] = {
        {"1/2/0/host.example/10110/244660000", 1, 2, 0, "host.example", 10110, 244660000u, true},
        {"0/1/2/x/0/0", 0, 1, 2, "x", 0, 0, true},
        {"0/1/0/h/5/", 0, 1, 0, "h", 5, (uint32_t)K, false},
        {"3/0/0/h/7/12\nrest", 3, 0, 0, "h", 7, 12, true},
        {"0/1/0/h/7/4294967297", 0, 1, 0, "h", 7, 1, true}, // kept in 32 bits
        {"9/", 9, K, K, "old", K, (uint32_t)K, false},
        {"5/6", 5, 6, K, "old", K, (uint32_t)K, false},
        {"", K, K, K, "old", K, (uint32_t)K, false},
        {"2/2/0//1/1", 2, 2, 0, "", 1, 1, true},
        {"1/1/0/" + std::string(300, 'h') + "/1/1", K, K, K, "old", K, (uint32_t)K, false},  // overlong
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode.substr(0, 40));
        gpsfix.gpsIntern = gpsfix.gpsSource = gpsfix.nmeaSource = K;
        gpsfix.aisuserid = (uint32_t)K;
        nmea_port = K;
        strcpy(nmea_host, "old");
        lastrequest[0] = 0;
        setNmeaMode(c.mode.c_str());
        EXPECT_EQ(c.intern, gpsfix.gpsIntern);
        EXPECT_EQ(c.source, gpsfix.gpsSource);
        EXPECT_EQ(c.nmea, gpsfix.nmeaSource);
        EXPECT_STREQ(c.host, nmea_host);
        EXPECT_EQ(c.port, nmea_port);
        EXPECT_EQ(c.user, gpsfix.aisuserid);
        EXPECT_STREQ(c.remembered ? c.mode.c_str() : "", lastrequest);
    }
    EXPECT_EQ(0, nmea_stat) << "no feed was started";
}

TEST_F(NavMode, PauseEndsTheFeedThreadAndResumeStartsAnother) {
    FeedServer feed;
    std::string mode = "0/1/1/127.0.0.1/" + std::to_string(feed.port()) + "/0";
    int32_t before = MR_LOAD(mrApp.threadCount);
    auto threadsBack = [&] { return MR_LOAD(mrApp.threadCount) == before; };
    auto delivering = [] { return MR_LOAD(nmea_stat) == 1; };

    setNmeaMode(mode.c_str());
    ASSERT_TRUE(feed.waitAccepts(1, 5000));
    ASSERT_TRUE(waitFor(delivering, 5000));
    EXPECT_STREQ(mode.c_str(), lastrequest);

    // the reader is blocked in its receive: pausing must end it at once
    EXPECT_EQ(0, stop_nmea());
    EXPECT_TRUE(waitFor(threadsBack, 2000));
    EXPECT_EQ(0, nmea_stat);
    EXPECT_STREQ("", lastrequest);
    EXPECT_EQ(998, gpsfix.fix);

    // while paused a mode string starts nothing; resuming does
    setNmeaMode(mode.c_str());
    EXPECT_FALSE(feed.waitAccepts(2, 300));
    cont_nmea();
    EXPECT_TRUE(feed.waitAccepts(2, 5000));
    ASSERT_TRUE(waitFor(delivering, 5000));
    stop_nmea();
    EXPECT_TRUE(waitFor(threadsBack, 2000));
    MR_STORE(nmea_pause, 0);
}

TEST(NavTcpLine, ReadsOneLineAByteAtATime) {
    int sv[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sv));
    ResponseBuffer b;
    buffInit(&b);
    b.fd = sv[0];

    std::string input = "$GPHDG,1*00\r\nsecond\n" + std::string(1500, 'x') + "\ntail";
    ASSERT_EQ((ssize_t)input.size(), send(sv[1], input.data(), input.size(), 0));
    shutdown(sv[1], SHUT_WR);

    struct {
        std::string text;
        int length;
    } want[] = {
        {"$GPHDG,1*00\r\n", 13},
        {"second\n", 7},
        {std::string(999, 'x'), 999}, // the 1000th byte is overwritten
        {std::string(500, 'x') + "\n", 501},
        {"", 0}, // "tail" ends without a line feed: a failed read gives nothing
    };
    for (const auto &w : want) {
        char *line = getTcpLine(&b);
        EXPECT_EQ(b.data, line);
        EXPECT_EQ(w.text, std::string(line));
        EXPECT_EQ(w.length, b.lineLength);
    }
    buffFree(&b);
    close(sv[0]);
    close(sv[1]);
}

class NavPlayback : public NavFixture {};

TEST_F(NavPlayback, FileLinesReachTheInterpreterUnchecked) {
    std::string path = "/tmp/nav-playback-" + std::to_string(getpid()) + ".nmea";
    writeFile(path, "$GPRMC,120000,A,5430.0000,N,01000.0000,E,1.0,10.0,230394,,\n"  // no checksum
                    + std::string(1500, '$') + "\ngarbage \x01\x02\xff\n"
                    "$GPRMC,120001,A,5431.0000,N,01000.0000,E,1.0,10.0,230394,,*00\n");

    sqlite3_exec(mrApp.tripDb, "INSERT INTO log (ts,x,y,t,v) VALUES (1,0,0,1,'old')", NULL, NULL, NULL);
    gpsfix.trackOn = 1;
    gpsfix.logDistance = 1;
    int32_t before = MR_LOAD(mrApp.threadCount);
    ASSERT_EQ(0, nmea_playback(path.c_str()));
    // the playback thread ends at the end of the file
    ASSERT_TRUE(waitFor([&] { return MR_LOAD(mrApp.threadCount) == before && logRows().size() >= 3; }, 10000));
    auto rows = logRows();
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ(0u, rows[0].find("2|")) << rows[0];
    EXPECT_NE(std::string::npos, rows[0].find("NMEA playback starts"));
    EXPECT_EQ(0u, rows[1].find("1|")) << rows[1];
    EXPECT_NEAR(54.5 + 1 / 60.0, gpsfix.latY, 1e-9);
    unlink(path.c_str());

    EXPECT_EQ(-1, nmea_playback(std::string(2000, 'p').c_str()));
}

} // namespace
