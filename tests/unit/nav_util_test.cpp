// Sentence utilities: numbers, bounded field copies, checksums, positions, times.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "nav/nmea.h"

TEST(NavUtil, UintReadsEveryByteAsDigit) {
    struct {
        const char *text;
        uint32_t want;
    } cases[] = {
        {"12*", 12},
        {"1a", 59},           // 10 + ('a' - 48)
        {"", 0},
        {"4294967296", 0},    // wraps in 32 bits
    };
    for (const auto &c : cases) EXPECT_EQ(c.want, nmea_uint(c.text)) << c.text;
    EXPECT_EQ(0u, nmea_uint(nullptr));
}

TEST(NavUtil, CopyFieldIsBounded) {
    struct {
        const char *src;
        uint32_t max;
        const char *want;
    } cases[] = {
        {"ABCDE,", 3, "ABC"},
        {"AB,CD", 5, "AB"},
        {"AB*CD", 5, "AB"},
        {"ABC", 0, ""},
    };
    for (const auto &c : cases) {
        char dst[16];
        memset(dst, 'x', sizeof(dst));
        char *end = nmea_copy_field(dst, c.src, c.max);
        EXPECT_STREQ(c.want, dst) << c.src;
        EXPECT_EQ(dst + strlen(c.want), end);
    }
    char dst[4] = "zz";
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
    EXPECT_EQ(0, nmea_checksum("$AB*", &x));
    EXPECT_EQ('A' ^ 'B', x);
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
    // fields as mktime reads them, out-of-range ones normalised the same way
    struct {
        const char *time, *date;
        int year, mon, mday, hour, min, sec;
    } cases[] = {
        {"123519.55,A", "230324,003.1", 124, 2, 23, 12, 35, 19},
        {"130000", "230324", 124, 2, 23, 13, 0, 0},
        {"115959", "230324", 124, 2, 23, 11, 59, 59},
        {"257099", "310224", 124, 1, 31, 25, 70, 99},
    };
    for (const auto &c : cases) {
        struct tm tm;
        memset(&tm, 0, sizeof(tm));
        tm.tm_year = c.year, tm.tm_mon = c.mon, tm.tm_mday = c.mday;
        tm.tm_hour = c.hour, tm.tm_min = c.min, tm.tm_sec = c.sec;
        EXPECT_EQ(mktime(&tm), gps2time(c.time, c.date)) << c.time << " " << c.date;
    }

    // an empty date takes today's UTC date; the date may turn over between
    // the two calls, so the later day is accepted too
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
