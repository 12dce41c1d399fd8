// The mode string: which fields are stored, and when it is remembered.
#include "nav_support.h"

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

} // namespace
