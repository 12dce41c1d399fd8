// The status reply (exact JSON text, the four path numbers, the track points
// by since), a settings save racing a track row, and the mode string.
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "store/pack_store.h"

#include "nav_support.h"

using navtest::NavFixture;

namespace {

class NavStatus : public NavFixture {
  protected:
    void SetUp() override {
        NavFixture::SetUp();
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sv_));
        buffInit(&out_);
        out_.fd = sv_[0];
    }
    void TearDown() override {
        buffFree(&out_);
        close(sv_[0]);
        close(sv_[1]);
        NavFixture::TearDown();
    }
    // Runs the handler and returns the reply; the body goes to *body.
    std::string call(const char *path, const char *body, int n, std::string *replyBody) {
        getSetHostStat(&out_, path, body, n);
        std::string reply;
        char chunk[65536];
        ssize_t r;
        while ((r = recv(sv_[1], chunk, sizeof(chunk), MSG_DONTWAIT)) > 0) reply.append(chunk, (size_t)r);
        size_t cut = reply.find("\r\n\r\n");
        *replyBody = cut == std::string::npos ? "" : reply.substr(cut + 4);
        return reply;
    }
    std::string body(const char *path) {
        std::string b;
        call(path, "*", 1, &b);
        return b;
    }
    void addLog(long long ts, int t, double x, double y) {
        char sql[200];
        snprintf(sql, sizeof(sql), "INSERT INTO log (ts,x,y,t,v) VALUES (%lld,%f,%f,%d,'')", ts, x, y, t);
        sqlite3_exec(mrApp.tripDb, sql, NULL, NULL, NULL);
    }
    int sv_[2];
    ResponseBuffer out_;
};

TEST_F(NavStatus, NumberFormats) {
    gpsfix.navtime = (time_t)0x1FFFFFFFFLL; // low 32 bits read as -1
    gpsfix.fix = -12;
    gpsfix.latY = -54.1234565;
    gpsfix.lonX = 10.5;
    gpsfix.hdg = 123.6;
    gpsfix.cog = 0.4;
    gpsfix.dpt = 7.25;
    gpsfix.wdir = 359.96;
    gpsfix.wspd = 5.14444;
    gpsfix.sog = 1.05;
    gpsfix.hdop = 0.9;
    gpsfix.rot = 127;
    gpsfix.aisuserid = 4000000000u;
    MR_STORE(nmea_stat, -1);
    const char *want = "{\"navtime\":-1,\"fix\":-12,\"latY\":-54.123457,\"lonX\":10.500000,\"hdg\":124,\"cog\":0,"
                       "\"dpt\":7.2,\"wdir\":360.0,\"wspd\":5.1,\"sog\":1.1,\"hdop\":0.9,\"rot\":127,"
                       "\"aisuserid\":4000000000,\"nmea_stat\":-1,\"ais\":[\n],\"track\":[]}";
    EXPECT_EQ(want, body("1/2/3/-1"));
}

TEST_F(NavStatus, PathNumbers) {
    struct {
        const char *path;
        int32_t interval, distance, on;
        bool trackQueried;
    } cases[] = {
        {"600/25/1/4294967295", 600, 25, 1, false},
        {"7/8", 7, 8, -5, false}, // missing values keep the members
        {"", -5, -5, -5, false},
        {"1/2/0/0", 1, 2, 0, true},
        {"-3/x/1/0", -3, -5, -5, false}, // stops at the first mismatch
    };
    addLog(10, 1, 1, 2);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        gpsfix.logInterval = gpsfix.logDistance = gpsfix.trackOn = -5;
        std::string b = body(c.path);
        EXPECT_EQ(c.interval, gpsfix.logInterval);
        EXPECT_EQ(c.distance, gpsfix.logDistance);
        EXPECT_EQ(c.on, gpsfix.trackOn);
        EXPECT_EQ(c.trackQueried, b.find("\"track\":[[") != std::string::npos) << b;
    }
}

TEST_F(NavStatus, TrackPointsBySince) {
    addLog(100, 1, 10.5, 54.25);
    addLog(200, 2, 999, 999); // an event, never sent as track
    addLog(300, 1, -1.125, -2.5);
    const std::string both = "[[10.500000,54.250000,100],[-1.125000,-2.500000,300]]";
    // since, track points after it; since counts in 32 bits
    for (const auto &c : std::vector<std::pair<std::string, std::string>>{
             {"0", both}, {"100", "[[-1.125000,-2.500000,300]]"}, {"300", "[]"}, {"4294967295", "[]"}, {"-2", both}}) {
        std::string b = body(("1/1/1/" + c.first).c_str()), want = "\"track\":" + c.second + "}";
        ASSERT_GT(b.size(), want.size()) << c.first;
        EXPECT_EQ(want, b.substr(b.size() - want.size())) << c.first;
    }
}

// Past fault: a settings save that fell inside a track row's transaction
// (which rewrites a type-10 "settings" row) was lost or reported failure.
TEST_F(NavStatus, SettingsSavedWhileTrackRowsAreWrittenSurvive) {
    std::string b;
    call("1/1/1/1", "{\"status\":1}", 12, &b);  // the text a track row stores
    const int rounds = 5000;
    std::thread feedThread([] {
        for (int i = 0; i < rounds; i++) nmea_log_track();
    });
    int failed = 0;
    char value[32];
    for (int i = 0; i < rounds; i++) {
        int n = snprintf(value, sizeof(value), "{\"n\":%d}", i);
        if (setValue(&out_, "settings", value, n, 12, mrApp.tripDb) != 0) failed++;
    }
    feedThread.join();
    EXPECT_EQ(0, failed);
    EXPECT_EQ(std::vector<std::string>{"12|" + std::string(value)}, rows("SELECT t, v FROM kvt WHERE k='settings'"));
}

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
        {"0/1/0/h/5/", 0, 1, 0, "h", 5, (uint32_t)K, false},
        {"3/0/0/h/7/12\nrest", 3, 0, 0, "h", 7, 12, true},
        {"0/1/0/h/7/4294967297", 0, 1, 0, "h", 7, 1, true}, // kept in 32 bits
        {"5/6", 5, 6, K, "old", K, (uint32_t)K, false},
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

} // namespace
