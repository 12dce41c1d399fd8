// Start-up file logic: the data directory rule, the pack decisions of the
// version stamp, and the key files.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "shell/app_record.h"
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
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/.local/share/mareplot", std::string(dir));
    EXPECT_TRUE(fileExists(home + "/.local/share")) << "parents are created";

    xdg.set((home + "/xdg/data").c_str());
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/xdg/data/mareplot", std::string(dir));
    EXPECT_TRUE(fileExists(home + "/xdg/data"));

    xdg.set("relative/path");
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/.local/share/mareplot", std::string(dir));

    ASSERT_EQ(0, mkdir((home + "/Library").c_str(), 0755));
    ASSERT_EQ(0, mkdir((home + "/Library/Application Support").c_str(), 0755));
    ASSERT_EQ(0, mr_data_dir(dir, sizeof dir));
    EXPECT_EQ(home + "/Library/Application Support/mareplot", std::string(dir));
}

// The environment is outside input: a path that would not fit the fixed
// path areas is refused whole (nothing created) rather than ending the start.
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
        {"de\n", 4, "de\n"},
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

TEST(BoundedCopy, OverflowIsFatal) {
    char small[4];
    mr_bcopy(small, sizeof small, "abc");
    EXPECT_STREQ("abc", small);
    EXPECT_DEATH(mr_bcopy(small, sizeof small, "abcd"), "bounded copy overflow");
    EXPECT_DEATH(mr_bprintf(small, sizeof small, "%d", 12345), "bounded copy overflow");
}

}  // namespace
