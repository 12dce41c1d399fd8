// The navigation core: sentence utilities; on a settable clock and an in-memory trip database, sentences
// in, gpsfix out, ageing and track rows, the status reply, a settings save racing a track row, the mode string.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <sqlite3.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

#include "nav/nmea.h"
#include "shell/app_record.h"
#include "store/pack_store.h"

namespace {

TEST(NavUtil, FieldReadersStopAtTheDelimiterAndTheBound) {
    EXPECT_EQ(12u, nmea_uint("12*"));
    EXPECT_EQ(0u, nmea_uint(nullptr));
    char dst[8];
    EXPECT_EQ(dst + 3, nmea_copy_field(dst, "ABCDE,", 3));
    EXPECT_STREQ("ABC", dst);
    EXPECT_EQ(dst + 2, nmea_copy_field(dst, "AB*CD", 5));
    EXPECT_STREQ("AB", dst);
    EXPECT_EQ(dst, nmea_copy_field(dst, nullptr, 3));
    EXPECT_STREQ("", dst);
}

TEST(NavUtil, Checksums) {
    struct {
        const char *text;
        int plain;   // nmea_checksum
        int checked; // check_nmea_checksum
    } cases[] = {
        {"$GPGLL,1*00", 0, 2},
        {"$GPGLL,1", 1, 2},
        {"$GPGLL,1*G1", 0, 1},
        {"$GPGLL,1*1", 0, 1},
        {"$A$B*00", 1, 2},
        {"no start*00", 1, 2},
        {"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47", 0, 0},
        {"junk!AIVDM,1,1,,A,13u?etPv2;0n:dDPwUM1U1Cb069D,0*24", 0, 0},
        {"$gpgga,1*6b", 0, 0}, // lower-case digits accepted
        {"$gpgga,1*\xc4" "c", 0, 1},
    };
    for (const auto &c : cases) {
        unsigned char x = 0xAA;
        EXPECT_EQ(c.plain, nmea_checksum(c.text, &x)) << c.text;
        EXPECT_EQ(c.checked, check_nmea_checksum(c.text, &x)) << c.text;
    }
    unsigned char x = 0;
    EXPECT_EQ(1, nmea_checksum(nullptr, &x));
    EXPECT_EQ(2, check_nmea_checksum(nullptr, &x));
    EXPECT_EQ(2, check_nmea_checksum("$AB", nullptr));
}

TEST(NavUtil, CoordinatesToDegrees) {
    struct {
        const char *coord, *hemi;
        double want;
    } cases[] = {
        {"5430.0000", "N", 54.5},
        {"5430.0000", "W", -54.5},
        {"5430.0000", "S", 54.5}, // only W negates
        {"01012.5678,E", "E", 10 + 12.5678 / 60},
        {"5430", "N", 0.0},
        {",N,01000.00,E", "N", 0.0}, // empty: runs on to a later '.' 8 bytes on
        {",N,10.00,E", "N", -400 + 300 - 4 + 10 / 60.0}, // ... or 5 bytes on: codes as digits
        {"12,3.5", "N", 12.0},       // the minutes stop at the comma
        {" 930.00", "N", 9.5},       // a blank degree digit counts 0
    };
    for (const auto &c : cases) EXPECT_NEAR(c.want, gps2float(c.coord, c.hemi), 1e-9) << c.coord << c.hemi;
}

TEST(NavUtil, TimeAndDateThroughMktime) {
    struct {
        const char *time, *date;
        int year, mon, mday, hour, min, sec;
    } cases[] = {
        {"123519.55,A", "230324,003.1", 124, 2, 23, 12, 35, 19},
        {"257099", "310224", 124, 1, 31, 25, 70, 99},
    };
    for (const auto &c : cases) {
        struct tm tm;
        memset(&tm, 0, sizeof(tm));
        tm.tm_year = c.year, tm.tm_mon = c.mon, tm.tm_mday = c.mday;
        tm.tm_hour = c.hour, tm.tm_min = c.min, tm.tm_sec = c.sec;
        EXPECT_EQ(mktime(&tm), gps2time(c.time, c.date)) << c.time << " " << c.date;
    }

    // an empty date takes today's UTC date (which may turn over between the calls)
    time_t before = time(NULL);
    time_t got = gps2time("010203", ",");
    time_t after = time(NULL);
    auto today = [](time_t now) {
        struct tm utc;
        gmtime_r(&now, &utc);
        utc.tm_hour = 1, utc.tm_min = 2, utc.tm_sec = 3;
        return mktime(&utc);
    };
    EXPECT_TRUE(got == today(before) || got == today(after)) << got;
}

time_t gNow;
time_t fakeClock(time_t *out) {
    if (out) *out = gNow;
    return gNow;
}

class NavFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        gNow = 1700000000;
        nmea_clock = fakeClock;
        MR_STORE(mrApp.running, 1);
        sqlite3_open(":memory:", &mrApp.tripDb);
        sqlite3_exec(mrApp.tripDb,
                     "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT);"
                     "CREATE UNIQUE INDEX i_kv_lk ON kvt(l,k);"
                     "CREATE TABLE log (id INTEGER PRIMARY KEY AUTOINCREMENT, ts INTEGER, x DOUBLE,"
                     " y DOUBLE,t INTEGER,v TEXT);",
                     NULL, NULL, NULL);
        if (mrApp.dbMutex == NULL) mrApp.dbMutex = sqlite3_mutex_alloc(SQLITE_MUTEX_FAST);
        nmea_init();
        MR_STORE(nmea_stat, 0);
        gpsfix.gpsSource = 1;
        gpsfix.nmeaSource = 1;
    }
    void TearDown() override {
        sqlite3_close(mrApp.tripDb);
        mrApp.tripDb = NULL;
        free(mrApp.settingsText);
        mrApp.settingsText = NULL;
        mrApp.settingsCapacity = 0;
        nmea_clock = time;
    }
    // Feeds one line, after moving the clock on by dt seconds.
    void feed(const char *line, int dt = 0) {
        gNow += dt;
        std::vector<char> b(line, line + strlen(line) + 1);
        nmea_update(b.data());
    }
    // The rows of sql on the trip database, their columns joined by '|'.
    std::vector<std::string> rows(const char *sql) {
        std::vector<std::string> out;
        sqlite3_stmt *st = NULL;
        sqlite3_prepare_v2(mrApp.tripDb, sql, -1, &st, NULL);
        while (sqlite3_step(st) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(st); i++) {
                const char *t = (const char *)sqlite3_column_text(st, i);
                row += (i ? "|" : "") + std::string(t ? t : "");
            }
            out.push_back(row);
        }
        sqlite3_finalize(st);
        return out;
    }
};

struct Step {
    int dt;  // seconds before the line
    const char *line;
};

// One output of the interpreter and its expected value.
struct Want {
    const char *field;
    double value;
};

double output(const std::string &n) {
    const GpsFix &g = gpsfix;
    return n == "latY" ? g.latY : n == "lonX" ? g.lonX : n == "sog" ? g.sog : n == "cog" ? g.cog
         : n == "hdg" ? g.hdg : n == "dpt" ? g.dpt : n == "hdop" ? g.hdop : n == "wdir" ? g.wdir
         : n == "wspd" ? g.wspd : n == "fix" ? g.fix : n == "rot" ? g.rot
         : n == "navtime" ? (double)g.navtime : n == "nmea_stat" ? MR_LOAD(nmea_stat) : NAN;
}

const char *kRmc = "$GPRMC,123519,A,5430.0000,N,01012.0000,W,10.0,084.4,230394,003.1,W*00";
const char *kRmcVoid = "$GPRMC,123520,V,5500.0000,N,01100.0000,E,1.0,001.0,230394,,*00";
const char *kGga9 = "$GPGGA,123519,5430.0000,N,01012.0000,E,1,09,1.3,545.4,M,46.9,M,,*00";
const char *kDbs = "$SDDBS,,f,7.1,M,,F";
const char *kOther = "$XXXXX,1*00";

class NavUpdate : public NavFixture {};

TEST_F(NavUpdate, SentencesFillTheFix) {
    struct Case {
        const char *name;
        int gpsSource;
        int32_t fixBefore, statBefore;
        std::vector<Step> steps;
        std::vector<Want> want;
    } cases[] = {
        {"rmc fills position, speed, course", 1, 0, 0, {{0, kRmc}},
         {{"latY", 54.5}, {"lonX", -10.2}, {"sog", 5.14444}, {"cog", 84.4}, {"fix", 1},
          {"navtime", (double)gps2time("123519", "230394")}, {"nmea_stat", 1}}},
        {"rmc with status V clears fix, keeps position", 1, 0, 0, {{0, kRmc}, {1, kRmcVoid}},
         {{"fix", 0}, {"latY", 54.5}}},
        {"gga count wins over rmc", 1, 0, 0, {{0, kRmc}, {0, kGga9}, {1, kRmc}}, {{"fix", 9}, {"hdop", 1.3}}},
        {"gga without quality clears fix", 1, 0, 0,
         {{0, kRmc}, {0, "$GPGGA,123519,5430.0000,N,01012.0000,E,0,09,1.3,545.4,M,46.9,M,,*00"}}, {{"fix", 0}}},
        {"rmc after 998 gives 1", 1, 998, 0, {{0, kRmc}}, {{"fix", 1}}},
        {"rmc keeps an injected accuracy", 1, -20, 0, {{0, kRmc}}, {{"fix", -20}}},
        {"no rmc while connecting: 998", 1, 0, -1, {{0, "$HCHDG,101.1,,,7.1,W*00"}}, {{"fix", 998}, {"hdg", 101.1}}},
        {"position sentences ignored unless source is nmea", 0, 0, 0,
         {{0, kRmc}, {0, "$HCHDG,101.1,,,7.1,W*00"}, {0, "$SDDPT,12.3,0.5,1.0*00"}},
         {{"latY", 999}, {"hdg", 511}, {"dpt", 13.3}, {"fix", 0}}},
        {"dpt takes the checksum as its third field", 1, 0, 0, {{0, "$SDDPT,12.3,0.5*5C"}}, {{"dpt", 17.3}}},
        {"dpt with empty third field changes nothing", 1, 0, 0, {{0, "$SDDPT,12.3,0.5,*hh"}}, {{"dpt", -100}}},
        {"dbs fills in only while no depth is held", 1, 0, 0, {{0, kDbs}, {10, "$SDDBS,,f,7.5,M,,F"}}, {{"dpt", 7.1}}},
        {"dpt overrides dbs", 1, 0, 0, {{0, kDbs}, {1, "$SDDPT,9.0,0,1.0*00"}}, {{"dpt", 10.0}}},
        {"depth ages after 60 s", 1, 0, 0, {{0, kDbs}, {60, kOther}, {1, kOther}}, {{"dpt", -100}}},
        {"depth stands for 60 s", 1, 0, 0, {{0, kDbs}, {60, kOther}}, {{"dpt", 7.1}}},
        {"mwv knots", 1, 0, 0, {{0, "$WIMWV,90,R,10,N,A"}}, {{"wdir", 90}, {"wspd", 5.14444}}},
        {"mwv km/h takes both factors", 1, 0, 0, {{0, "$WIMWV,90,R,10,K,A"}},
         {{"wspd", 10 * 0.2777775380361333 * 0.44703961417318716}}},
        {"mwv metres and unknown units stand", 1, 0, 0, {{0, "$WIMWV,90,T,10,M,A"}, {0, "$WIMWV,80,T,12,X,A"}},
         {{"wspd", 12}, {"wdir", 80}}},
        {"wind ages after 60 s", 1, 0, 0, {{0, "$WIMWV,90,R,10,M,A"}, {61, kOther}}, {{"wdir", -100}, {"wspd", -100}}},
        {"fix ages after 60 s without rmc", 1, 0, 0, {{0, kRmc}, {30, "$HCHDG,1,,,,*00"}, {31, "$HCHDG,1,,,,*00"}},
         {{"fix", 0}}},
        {"rot encodes like AIS", 1, 0, 0, {{0, "$TIROT,708,A*00"}}, {{"rot", 126}}},
        {"rot saturates", 1, 0, 0, {{0, "$TIROT,709,A*00"}}, {{"rot", 127}}},
        {"rot negative", 1, 0, 0, {{0, "$TIROT,-1,A*00"}}, {{"rot", -5}}},
        {"rot negative saturates", 1, 0, 0, {{0, "$TIROT,-800,A*00"}}, {{"rot", -127}}},
        {"rot invalid", 1, 0, 0, {{0, "$TIROT,5,A*00"}, {0, "$TIROT,5,V*00"}}, {{"rot", -128}}},
        {"rot without a start reaches the rot test", 1, 0, 0, {{0, "$TIROT,5,A*00"}, {0, "xxxROT,5,A"}},
         {{"rot", -128}}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        gpsfix.gpsSource = c.gpsSource;
        gpsfix.fix = c.fixBefore;
        MR_STORE(nmea_stat, c.statBefore);
        for (const auto &s : c.steps) feed(s.line, s.dt);
        for (const Want &w : c.want) EXPECT_NEAR(w.value, output(w.field), 1e-9) << w.field;
        TearDown();
        SetUp();
    }
}

TEST_F(NavUpdate, SourceChangeResetsThePositionAtTheNextLine) {
    feed(kRmc);
    gpsfix.gpsSource = 0;
    feed("**");
    EXPECT_DOUBLE_EQ(999, gpsfix.latY);
    EXPECT_DOUBLE_EQ(360, gpsfix.cog);
}

TEST_F(NavUpdate, BytesBehindTheTerminatorAreNotRead) {
    // truncated sentences followed, in the same buffer, by a complete tail
    char rmc[] = "$GPRMC,123519,A\0,5430.00,N,01000.00,E,9,9,230394", dpt[] = "$SDDPT,12.3\0,0,5,5,5";
    nmea_update(rmc);
    nmea_update(dpt);
    EXPECT_DOUBLE_EQ(0, gpsfix.latY);
    EXPECT_DOUBLE_EQ(0, gpsfix.lonX);
    EXPECT_DOUBLE_EQ(0, gpsfix.sog);
    EXPECT_DOUBLE_EQ(-100, gpsfix.dpt);
}

class NavTrack : public NavFixture {
  protected:
    // An RMC at latitude 54 deg 30 + minutes.
    void rmcAt(const char *latMinutes, int dt) {
        char line[160];
        snprintf(line, sizeof(line), "$GPRMC,123519,A,54%s,N,01000.0000,E,1.0,10.0,230394,,*00", latMinutes);
        feed(line, dt);
    }
    size_t trackRows() { return rows("SELECT id FROM log WHERE t=1").size(); }
};

TEST_F(NavTrack, DistanceAndIntervalThresholds) {
    struct {
        const char *name;
        int trackOn, distance, interval;
        std::vector<std::pair<const char *, int>> fixes; // minutes, seconds later
        size_t rows;
    } cases[] = {
        {"off", 0, 50, 86400, {{"30.0000", 0}, {"31.0000", 1}}, 0},
        {"first row at once, 49 m gives none", 1, 50, 86400, {{"30.0000", 0}, {"30.0264", 1}}, 1},
        {"51 m gives one", 1, 50, 86400, {{"30.0000", 0}, {"30.0275", 1}}, 2},
        {"distance counts from the last row", 1, 50, 86400,
         {{"30.0000", 0}, {"30.0200", 1}, {"30.0400", 1}, {"30.0500", 1}}, 2},
        {"interval only: 600 s is not enough", 1, 0, 600, {{"30.0000", 0}, {"35.0000", 600}}, 1},
        {"interval only: 601 s is", 1, 0, 600, {{"30.0000", 0}, {"35.0000", 601}}, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        gpsfix.trackOn = c.trackOn;
        gpsfix.logDistance = c.distance;
        gpsfix.logInterval = c.interval;
        for (const auto &f : c.fixes) rmcAt(f.first, f.second);
        EXPECT_EQ(c.rows, trackRows());
        TearDown();
        SetUp();
    }
}

TEST_F(NavTrack, NoRowsAfterTheFixIsLost) {
    gpsfix.trackOn = 1;
    gpsfix.logDistance = 1;
    rmcAt("30.0000", 0);
    MR_STORE(nmea_stat, 1);
    feed("$HCHDG,1,,,,*00", 61); // fix ages to 0
    feed("$HCHDG,1,,,,*00", 100);
    EXPECT_EQ(1u, trackRows());
    rmcAt("31.0000", 1);
    EXPECT_EQ(2u, trackRows());
}

TEST_F(NavTrack, Remarks) {
    time_t navtime = gps2time("123519", "230394");
    char nt[64];
    snprintf(nt, sizeof(nt), " nt=%llx", (unsigned long long)navtime);
    struct {
        const char *name;
        int offset;  // host clock minus navtime
        const char *depthLine;
        int fix999;
        std::string want;
    } cases[] = {
        {"70 s off: time piece and no-depth value", 70, nullptr, 0, std::string(nt) + " dpt=-100.0"},
        {"65 s off: no time piece", 65, nullptr, 0, " dpt=-100.0"},
        {"-66 s off", -66, "$SDDPT,12.34,0,1*00", 0, std::string(nt) + " dpt=13.3"},
        {"depth exactly 0: empty remark", 0, "$SDDPT,-1.0,0,1*00", 0, ""},
        {"simulation", 0, "$SDDPT,2,0,1*00", 1, " dpt=3.0 SIM"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        gNow = navtime + c.offset;
        if (c.depthLine) feed(c.depthLine);
        rmcAt("30.0000", 0);
        if (c.fix999) {
            gpsfix.gpsSource = 0;
            feed("**");  // the source change resets the depth
            gpsfix.trackOn = 1;
            gpsfix.fix = 999;
            gpsfix.dpt = 3;
            feed("**");
        } else {
            gpsfix.trackOn = 1;
            gpsfix.fix = 1;
            feed("$HCHDG,1,,,,*00");
        }
        EXPECT_EQ(std::vector<std::string>{c.want}, rows("SELECT v FROM log"));
        TearDown();
        SetUp();
    }
}

TEST_F(NavTrack, SettingsRowKeepsTheFirstOffer) {
    gpsfix.trackOn = 1;
    gpsfix.logDistance = 1;
    mrApp.settingsText = strdup("{\"first\":1}");
    rmcAt("30.0000", 0);
    free(mrApp.settingsText);
    mrApp.settingsText = strdup("{\"second\":2}");
    rmcAt("31.0000", 1);
    EXPECT_EQ(2u, trackRows());
    EXPECT_EQ(std::vector<std::string>{"{\"first\":1}|10|**"}, rows("SELECT v,t,l FROM kvt WHERE k='settings'"));
    EXPECT_TRUE(sqlite3_get_autocommit(mrApp.tripDb)) << "transaction left open";
}

class NavStatus : public NavFixture {
  protected:
    void SetUp() override {
        NavFixture::SetUp();
        buffInit(&out_);
        out_.fd = -1;  // no socket: the send fails and the reply's body stays in the buffer
    }
    void TearDown() override {
        buffFree(&out_);
        NavFixture::TearDown();
    }
    // Runs the handler on path with the request body; returns the reply's body.
    std::string call(const char *path, const char *body = "*", int n = 1) {
        getSetHostStat(&out_, path, body, n);
        return std::string(out_.data, (size_t)out_.length);
    }
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
    EXPECT_EQ(want, call("1/2/3/-1"));
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
    sqlite3_exec(mrApp.tripDb, "INSERT INTO log (ts,x,y,t,v) VALUES (10,1,2,1,'')", NULL, NULL, NULL);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        gpsfix.logInterval = gpsfix.logDistance = gpsfix.trackOn = -5;
        std::string b = call(c.path);
        EXPECT_EQ(c.interval, gpsfix.logInterval);
        EXPECT_EQ(c.distance, gpsfix.logDistance);
        EXPECT_EQ(c.on, gpsfix.trackOn);
        EXPECT_EQ(c.trackQueried, b.find("\"track\":[[") != std::string::npos) << b;
    }
}

TEST_F(NavStatus, TrackPointsBySince) {
    sqlite3_exec(mrApp.tripDb, "INSERT INTO log (ts,x,y,t,v) VALUES (100,10.5,54.25,1,''),(200,999,999,2,''),"
                 "(300,-1.125,-2.5,1,'')", NULL, NULL, NULL);
    const std::string both = "[[10.500000,54.250000,100],[-1.125000,-2.500000,300]]";
    // the row at 200 is an event, never track; since counts in 32 bits
    for (const auto &c : std::vector<std::pair<std::string, std::string>>{
             {"0", both}, {"100", "[[-1.125000,-2.500000,300]]"}, {"300", "[]"}, {"4294967295", "[]"}, {"-2", both}}) {
        std::string b = call(("1/1/1/" + c.first).c_str()), want = "\"track\":" + c.second + "}";
        ASSERT_GT(b.size(), want.size()) << c.first;
        EXPECT_EQ(want, b.substr(b.size() - want.size())) << c.first;
    }
}

// An empty body stores nothing, a long one grows the text, a shorter one after it is stored whole.
TEST_F(NavStatus, SettingsTextTakesAnyLength) {
    call("1/1/1/-1", "", 0);
    EXPECT_EQ(nullptr, mrApp.settingsText);
    for (const std::string &text : {std::string("abc"), std::string(70000, 's'), std::string("0123456789")}) {
        call("1/1/1/-1", text.c_str(), (int)text.size());
        EXPECT_EQ(text, mrApp.settingsText);
    }
}

// Past fault: a settings save inside a track row's transaction was lost or reported failure.
TEST_F(NavStatus, SettingsSavedWhileTrackRowsAreWrittenSurvive) {
    call("1/1/1/1", "{\"status\":1}", 12);  // the text a track row stores
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
