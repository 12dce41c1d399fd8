/*
** Checks of the application pack as the build made it: the file header's
** properties, the schema, and the rows the host and the client rely on
** (reachable lower-case keys, page and scripts in three languages, common
** rows for the rest, the assets the client names; the type code of each
** kind is the builder's own table, and a wrong one shows in the page tests).
*/
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/packcheck.h"

namespace {

struct PackRow {
    std::string k, l;
    int t;
    int storage;  // SQLITE_TEXT, SQLITE_BLOB, ...
    std::string v;
};

class AppPack : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        sqlite3 *db = NULL;
        ASSERT_EQ(SQLITE_OK, sqlite3_open_v2(MAREPLOT_APP_PACK, &db, SQLITE_OPEN_READONLY, NULL)) << MAREPLOT_APP_PACK;
        sqlite3_stmt *st = NULL;
        ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, "SELECT k,v,t,l FROM kvt", -1, &st, NULL));
        while (sqlite3_step(st) == SQLITE_ROW) {
            PackRow r;
            r.k = (const char *)sqlite3_column_text(st, 0);
            r.storage = sqlite3_column_type(st, 1);
            const char *v = (const char *)sqlite3_column_blob(st, 1);
            r.v.assign(v ? v : "", sqlite3_column_bytes(st, 1));
            r.t = sqlite3_column_int(st, 2);
            r.l = (const char *)sqlite3_column_text(st, 3);
            rows().push_back(r);
        }
        sqlite3_finalize(st);
        sqlite3_close(db);
    }

    static std::vector<PackRow> &rows() {
        static std::vector<PackRow> r;
        return r;
    }
    /* languages of each key */
    static std::map<std::string, std::set<std::string>> langs() {
        std::map<std::string, std::set<std::string>> m;
        for (const auto &r : rows()) m[r.k].insert(r.l);
        return m;
    }
    static const PackRow *find(const std::string &k, const std::string &l) {
        for (const auto &r : rows())
            if (r.k == k && r.l == l) return &r;
        return NULL;
    }
};

bool endsWith(const std::string &s, const char *tail) {
    size_t n = strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

bool startsWith(const std::string &s, const char *head) { return s.compare(0, strlen(head), head) == 0; }

unsigned be(const unsigned char *p, int n) {
    unsigned v = 0;
    for (int i = 0; i < n; i++) v = (v << 8) | p[i];
    return v;
}

}  // namespace

TEST_F(AppPack, PassesTheCheckerAsAnApplicationPack) {
    // file header (page size, rollback journal, UTF-8, user_version,
    // application_id) and exactly the kvt table and its index
    PcReport r;
    int rc = pc_checkFile(MAREPLOT_APP_PACK, &r);
    std::string all;
    for (const auto &p : r.problems) all += p + "\n";
    EXPECT_EQ(0, rc) << all;
    EXPECT_EQ(0, r.chartPack);
}

TEST_F(AppPack, KeysAreReachableAndUnique) {
    /* the only keys with capitals: rows kept unreachable on purpose */
    const std::set<std::string> deadRows = {"/app/img/Status-20.png", "/app/img/bw/Status-20.png"};
    std::set<std::string> seen;
    for (const auto &r : rows()) {
        std::string lower = r.k;
        for (auto &c : lower) c = (char)tolower((unsigned char)c);
        if (!deadRows.count(r.k)) {
            EXPECT_EQ(lower, r.k) << "unreachable key";
        }
        EXPECT_TRUE(r.k == "version" || startsWith(r.k, "/app/")) << r.k;
        EXPECT_TRUE(seen.insert(r.k + "\t" + r.l).second) << "duplicate " << r.k << " " << r.l;
        EXPECT_EQ(SQLITE_TEXT, r.storage) << r.k;
    }
}

TEST_F(AppPack, PageAndScriptsInThreeLanguagesTheRestCommon) {
    const std::set<std::string> three = {"de", "en", "fr"};
    for (const auto &kl : langs()) {
        const std::string &k = kl.first;
        bool perLanguage = k == "/app/marepack.html" ||
                           (endsWith(k, ".js") && k.find('/', 5) == std::string::npos);
        if (perLanguage) {
            EXPECT_EQ(three, kl.second) << k;
        } else {
            EXPECT_EQ(std::set<std::string>{"**"}, kl.second) << k;
        }
    }
}

TEST_F(AppPack, ClientAssetsArePresentAndWellFormed) {
    const char *named[] = {
        "/app/img/icon-50-screen-full.png", "/app/img/icon-50-screen-window.png", "/app/img/icon-50-cursor.png",
        "/app/img/auge_activ.png", "/app/img/auge_inactiv.png", "/app/img/icon-50-marker-selected-move.png",
        "/app/img/info-24-red.png", "/app/img/icon-50-marker.png", "/app/img/icon-50-waypoint-big.png",
        "/app/img/icon-50-waypoint-selected-endpoint.png", "/app/img/icon-50-waypoint-selected-move.png",
        "/app/img/icon-50-waypoint-selected.png", "/app/img/orange-40.png", "/app/img/icon-50-marker-sos.png",
        "/app/img/icon-50-waypoint.png", "/app/img/blank.png", "/app/img/tiden_30_none.png",
        "/app/img/tiden_30_down.png", "/app/img/tiden_30_up.png", "/app/img/dvplay.png", "/app/img/dvstop.png",
        "/app/img/ic50-earth.png", "/app/img/interface-75.png", "/app/img/interface-76.png",
        "/app/img/ajax_loader_blue_256.gif", "/app/img/beep-05.mp3",
        "/app/lib/gl-matrix.js", "/app/lib/earcut.js", "/app/lib/suncalc.js",
        "/app/lib/rawinflate.js", "/app/lib/rawdeflate.js",
    };
    for (const char *k : named) EXPECT_NE(find(k, "**"), nullptr) << k;
    /* libraries that stand beside the modules come in the three languages */
    for (const char *k : {"/app/hammer-2-0-8.js", "/app/matrix.js", "/app/hammer-time.js"})
        for (const char *lang : {"en", "de", "fr"}) EXPECT_NE(find(k, lang), nullptr) << k << " " << lang;
    for (int i = 0; i < 28; i++) {
        char k[64];
        snprintf(k, sizeof(k), "/app/img/m32/m%02d.png", i);
        EXPECT_NE(find(k, "**"), nullptr) << k;
    }
    const char *texts[] = {"help-alarm", "help-chartkit", "help-marker", "help-route",
                           "help-ruler", "info-app",      "info-pos",    "intro-wiz"};
    for (const char *lang : {"en", "de", "fr"})
        for (const char *t : texts) {
            std::string k = std::string("/app/") + lang + "/" + t + ".txt";
            const PackRow *r = find(k, "**");
            EXPECT_TRUE(r != nullptr && !r->v.empty()) << k;
        }

    /* images keep their bytes: whole PNG signature and IHDR, NULs included */
    for (const auto &r : rows()) {
        if (endsWith(r.k, ".png")) {
            ASSERT_GE(r.v.size(), 24u) << r.k;
            EXPECT_EQ(0, memcmp(r.v.data(), "\x89PNG\r\n\x1a\n", 8)) << r.k;
            unsigned w = be((const unsigned char *)r.v.data() + 16, 4), h = be((const unsigned char *)r.v.data() + 20, 4);
            if (r.k.find("/icon-50-") != std::string::npos) {
                EXPECT_TRUE(w == 50 && h == 50) << r.k;
            }
            if (r.k.find("/m32/") != std::string::npos) {
                EXPECT_TRUE(w == 32 && h == 32) << r.k;
            }
        } else if (endsWith(r.k, ".gif")) {
            EXPECT_TRUE(startsWith(r.v, "GIF89a")) << r.k;
        } else if (endsWith(r.k, ".mp3")) {
            ASSERT_GE(r.v.size(), 3u);
            EXPECT_TRUE(startsWith(r.v, "ID3") || ((unsigned char)r.v[0] == 0xff && ((unsigned char)r.v[1] & 0xe0) == 0xe0)) << r.k;
        }
    }
}

TEST_F(AppPack, MonochromeFamilyMirrorsTheTopLevelImages) {
    for (const auto &r : rows()) {
        if (!startsWith(r.k, "/app/img/") || !endsWith(r.k, ".png")) continue;
        std::string name = r.k.substr(9);
        if (name.find('/') != std::string::npos) continue;
        EXPECT_NE(find("/app/img/bw/" + name, "**"), nullptr) << name;
    }
}
