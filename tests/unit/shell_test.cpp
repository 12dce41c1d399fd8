// The shell's start-up files (the data directory, the version stamp's pack decisions, the key files), the
// serial port's sentence accumulator and the edges of reading its stored setting.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "nav/nmea.h"
#include "shell/app_record.h"
#include "shell/serial_headless.h"
#include "shell/serial_lines.h"
#include "support/files.h"

namespace {

std::string tempDir() { return makeTempDir("mareplot-unit-"); }

// Writes a marker file in place of the carried pack.
int fakeCopy(const char *resource, const char *fileName) {
    writeFile(fileName, std::string("carried ") + resource);
    return 0;
}

struct CwdGuard {
    char saved[4096];
    CwdGuard() { EXPECT_NE(nullptr, getcwd(saved, sizeof saved)); }
    ~CwdGuard() { EXPECT_EQ(0, chdir(saved)); }
};

TEST(SettlePacks, DecisionsByStampAndFiles) {
    struct Case {
        const char *name;
        const char *stamp;
        bool pack2, replaced;
    } cases[] = {
        {"other version", "M.1.15.000", true, true},
        {"same version, pack 2 missing", "M.1.16.568", false, true},
        {"short stamp", "M.1.16", true, true},
        {"longer stamp, same first 10 bytes", "M.1.16.568\n", true, false},
    };
    for (const auto &c : cases) {
        CwdGuard cwd;
        std::string dir = tempDir() + "/mareplot";
        ASSERT_EQ(0, mkdir(dir.c_str(), 0755));
        writeFile(dir + "/version.key", c.stamp);
        writeFile(dir + "/A000001.marepack", "old1");
        if (c.pack2) writeFile(dir + "/A000002.marepack", "old2");
        writeFile(dir + "/marepack.trip", "trip");
        writeFile(dir + "/A000123.marepack", "downloaded");

        EXPECT_EQ(c.replaced ? 1 : 0, mr_settle_packs(dir.c_str(), fakeCopy)) << c.name;
        if (c.replaced) {
            EXPECT_EQ("M.1.16.568", readFile(dir + "/version.key")) << c.name;
            EXPECT_EQ("carried :/A000001.marepack", readFile(dir + "/A000001.marepack")) << c.name;
            EXPECT_EQ("carried :/A000002.marepack", readFile(dir + "/A000002.marepack")) << c.name;
        } else {
            EXPECT_EQ("old1", readFile(dir + "/A000001.marepack")) << c.name;
        }
        EXPECT_EQ("trip", readFile(dir + "/marepack.trip")) << c.name;
        EXPECT_EQ("downloaded", readFile(dir + "/A000123.marepack")) << c.name;
        char now[4096];
        ASSERT_NE(nullptr, getcwd(now, sizeof now));
        EXPECT_EQ(dir, std::string(now)) << "the data directory becomes current";
    }
}

TEST(SettlePacks, ParentsAreNotCreated) {
    CwdGuard cwd;
    std::string base = tempDir();
    ASSERT_EQ(0, chdir(base.c_str()));  // the steps go on in the current directory
    std::string dir = base + "/missing/mareplot";
    mr_settle_packs(dir.c_str(), fakeCopy);
    EXPECT_FALSE(fileExists(dir));
}

TEST(DataDir, PlatformPlaceThenXdgThenDefault) {
    std::string home = tempDir();
    ScopedEnv homeVar("HOME", home.c_str()), xdg("XDG_DATA_HOME", nullptr);
    char dir[300];
    xdg.set((home + "/xdg/data").c_str());
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/xdg/data/mareplot", std::string(dir));
    EXPECT_TRUE(fileExists(home + "/xdg/data"));

    xdg.set("relative/path");  // not taken: the default place, its parents created
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/.local/share/mareplot", std::string(dir));
    EXPECT_TRUE(fileExists(home + "/.local/share"));

    ASSERT_EQ(0, mkdir((home + "/Library").c_str(), 0755));
    ASSERT_EQ(0, mkdir((home + "/Library/Application Support").c_str(), 0755));
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/Library/Application Support/mareplot", std::string(dir));
}

// The environment is outside input: a path too long for the fixed areas is refused, nothing created.
TEST(DataDir, PathsBeyondTheLimitAreRefused) {
    std::string base = tempDir();
    ScopedEnv homeVar("HOME", nullptr), xdg("XDG_DATA_HOME", nullptr);
    // parent + "/mareplot" of exactly MR_DATA_DIR_MAX bytes, and one more
    std::string fits = base + "/" + std::string(MR_DATA_DIR_MAX - 9 - base.size() - 1, 'f');
    std::string over = base + "/" + std::string(MR_DATA_DIR_MAX - 9 - base.size(), 'o');
    struct Case {
        std::string home, xdg;  // xdg empty: unset
        int result;
        std::string dir;
    } cases[] = {
        {base, fits, 0, fits + "/mareplot"},
        {base, over, -2, ""},
        {"/" + std::string(2000, 'h'), "", -2, ""},
    };
    for (const Case &c : cases) {
        homeVar.set(c.home.c_str());
        xdg.set(c.xdg.empty() ? nullptr : c.xdg.c_str());
        char dir[300] = "";
        EXPECT_EQ(c.result, mr_data_dir(dir, sizeof dir)) << c.xdg.size() << " " << c.home.size();
        if (c.result == 0) {
            EXPECT_EQ(c.dir, std::string(dir));
        }
    }
    EXPECT_TRUE(fileExists(fits));
    EXPECT_FALSE(fileExists(over));
}

TEST(KeyFiles, ReadKeepsDefaultsAndTakesFirstLineBounded) {
    std::string dir = tempDir();
    MrAppRecord saved = mrApp;  // other tests keep handles in the record
    mr_bprintf(mrApp.keyDir, sizeof mrApp.keyDir, "%s/", dir.c_str());
    struct Case {
        const char *content;  // nullptr: no file
        unsigned size;
        const char *want;
    } cases[] = {
        {nullptr, 4, "en"},
        {"", 32, "en"},
        {"Foo\nBar", 32, "Foo\n"},
        {"0123456789012345678901234567890123456789", 32, "0123456789012345678901234567890"},
    };
    for (const auto &c : cases) {
        unlink((dir + "/k.key").c_str());
        if (c.content) writeFile(dir + "/k.key", c.content);
        char value[64] = "en";
        EXPECT_EQ(0, mrc_read_regkey("k", value, c.size));
        EXPECT_STREQ(c.want, value) << (c.content ? c.content : "(none)");
    }
    mrApp = saved;
}

}  // namespace

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
        ArrivalCase{"lf_only_loses_last_char", 1, {kRmc + "\n"}, {kRmc.substr(0, kRmc.size() - 1)}, 0},
        ArrivalCase{"two_in_one_arrival", 1, {kGga + "\r\n" + kRmc + "\r\n"}, {kGga, kRmc}, 0},
        ArrivalCase{"split_over_arrivals", 1, {kRmc.substr(0, 20), kRmc.substr(20) + "\r", "\n$GP"}, {kRmc}, 3},
        ArrivalCase{"no_star_is_dropped", 1, {"$GPRMC,1,2,3\r\n" + kGga + "\r\n"}, {kGga}, 0},
        ArrivalCase{"leading_lf_stalls", 1, {"\n" + kRmc + "\r\n", kGga + "\r\n"}, {},
                    (int)(1 + kRmc.size() + 2 + kGga.size() + 2)},
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
                      SettingCase{"overlong_port", std::string(300, 'a') + "\n9600", "Off", 4800},
                      SettingCase{"longest_port", std::string(255, 'a'), std::string(255, 'a'), 4800}),
    [](const ::testing::TestParamInfo<SettingCase> &i) { return std::string(i.param.name); });
