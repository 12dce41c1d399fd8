/*
** serial_lines_test.cpp -- the serial sentence accumulator (gate, guard,
** line cutting) and the edges of reading the stored port setting (the
** plain setting and "Off" go through the host in the black-box serial test).
*/
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "nav/nmea.h"
#include "shell/serial_headless.h"
#include "shell/serial_lines.h"

static std::vector<std::string> delivered;
static void capture(char *sentence) { delivered.push_back(sentence); }

static const std::string kGga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47";
static const std::string kRmc = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A";

struct ArrivalCase {
    const char *name;
    int gpsSource;
    std::vector<std::string> arrivals;
    std::vector<std::string> sentences; /* handed on, in order */
    int heldAfter;                      /* bytes left in the accumulator */
};

class SerialLines : public ::testing::TestWithParam<ArrivalCase> {};

TEST_P(SerialLines, CutsAndGates) {
    const ArrivalCase &c = GetParam();
    MrSerialLines acc = {};
    int saved = gpsfix.gpsSource;
    gpsfix.gpsSource = c.gpsSource;
    delivered.clear();
    int count = 0;
    for (const std::string &a : c.arrivals) count += mr_serial_arrival(&acc, a.data(), a.size(), capture);
    gpsfix.gpsSource = saved;
    EXPECT_EQ(delivered, c.sentences);
    EXPECT_EQ(count, (int)c.sentences.size());
    EXPECT_EQ(acc.len, c.heldAfter);
}

INSTANTIATE_TEST_SUITE_P(
    Arrivals, SerialLines,
    ::testing::Values(
        ArrivalCase{"ignored_unless_nmea_source", 0, {kRmc + "\r\n", "$GP"}, {}, 0},
        /* the byte before the line feed is always dropped */
        ArrivalCase{"lf_only_loses_last_char", 1, {kRmc + "\n"}, {kRmc.substr(0, kRmc.size() - 1)}, 0},
        ArrivalCase{"two_in_one_arrival", 1, {kGga + "\r\n" + kRmc + "\r\n"}, {kGga, kRmc}, 0},
        ArrivalCase{"split_over_arrivals", 1, {kRmc.substr(0, 20), kRmc.substr(20) + "\r", "\n$GP"}, {kRmc}, 3},
        ArrivalCase{"no_star_is_dropped", 1, {"$GPRMC,1,2,3\r\n" + kGga + "\r\n"}, {kGga}, 0},
        /* a leading line feed stops the cutting; bytes pile up */
        ArrivalCase{"leading_lf_stalls", 1, {"\n" + kRmc + "\r\n", kGga + "\r\n"}, {}, (int)(1 + kRmc.size() + 2 + kGga.size() + 2)},
        /* ...until the guard clears them, after which lines flow again */
        ArrivalCase{"guard_clears_stall", 1, {"\n" + kRmc + "\r\n", kGga + "\r\n", kGga + "\r\n", kRmc + "\r\n"},
                    {kRmc}, 0},
        ArrivalCase{"guard_at_201", 1, {std::string(200, 'x'), "y"}, {}, 0},
        ArrivalCase{"guard_not_at_200", 1, {std::string(199, 'x'), "y"}, {}, 200}),
    [](const ::testing::TestParamInfo<ArrivalCase> &i) { return std::string(i.param.name); });

struct SettingCase {
    const char *name;
    std::string content; /* "-": no file */
    std::string port;
    int baud;
};

class SerialSetting : public ::testing::TestWithParam<SettingCase> {};

TEST_P(SerialSetting, ReadsPortAndSpeed) {
    const SettingCase &c = GetParam();
    char path[] = "/tmp/mareplot-usbport-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    bool present = c.content != "-";
    if (present) {
        ASSERT_EQ(write(fd, c.content.data(), c.content.size()), (ssize_t)c.content.size());
    }
    close(fd);
    if (!present) unlink(path);
    MrSerialSetting s;
    int rc = mr_serial_read_setting(path, &s);
    unlink(path);
    EXPECT_EQ(rc, present ? 0 : -1);
    EXPECT_EQ(std::string(s.portName), c.port);
    EXPECT_EQ(s.baudRate, c.baud);
}

INSTANTIATE_TEST_SUITE_P(
    Files, SerialSetting,
    ::testing::Values(SettingCase{"crlf_and_trailing_newline", "/dev/ttyS1\r\n9600\n", "/dev/ttyS1", 9600},
                      SettingCase{"no_file", "-", "Off", 4800},
                      SettingCase{"empty_file", "", "Off", 4800},
                      SettingCase{"no_speed_line", "/dev/ttyACM0\n", "/dev/ttyACM0", 4800},
                      SettingCase{"negative_speed", "/dev/ttyACM0\n-9600", "/dev/ttyACM0", 4800},
                      /* a first line longer than the field names no port */
                      SettingCase{"overlong_port", std::string(300, 'a') + "\n9600", "Off", 4800},
                      SettingCase{"longest_port", std::string(255, 'a'), std::string(255, 'a'), 4800}),
    [](const ::testing::TestParamInfo<SettingCase> &i) { return std::string(i.param.name); });
