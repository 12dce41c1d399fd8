// The application pack as the build made it: reachable keys, page and scripts
// in three languages, and every asset the client names present and well formed.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>

#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

struct PackRow {
    std::string k, l;
    int storage;  // SQLITE_TEXT, SQLITE_BLOB, ...
    std::string v;
};

class AppPack : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        sqlite3 *db = NULL;
        ASSERT_EQ(SQLITE_OK, sqlite3_open_v2(MAREPLOT_APP_PACK, &db, SQLITE_OPEN_READONLY, NULL)) << MAREPLOT_APP_PACK;
        sqlite3_stmt *st = NULL;
        ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, "SELECT k,v,l FROM kvt", -1, &st, NULL));
        while (sqlite3_step(st) == SQLITE_ROW) {
            PackRow r;
            r.k = (const char *)sqlite3_column_text(st, 0);
            r.storage = sqlite3_column_type(st, 1);
            const char *v = (const char *)sqlite3_column_blob(st, 1);
            r.v.assign(v ? v : "", sqlite3_column_bytes(st, 1));
            r.l = (const char *)sqlite3_column_text(st, 2);
            rows().push_back(r);
        }
        sqlite3_finalize(st);
        sqlite3_close(db);
    }

    static std::vector<PackRow> &rows() {
        static std::vector<PackRow> r;
        return r;
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

unsigned be(const std::string &s, size_t at) {
    unsigned v = 0;
    for (size_t i = at; i < at + 4; i++) v = (v << 8) | (unsigned char)s[i];
    return v;
}

}  // namespace

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
    std::map<std::string, std::set<std::string>> langs;
    for (const auto &r : rows()) langs[r.k].insert(r.l);
    const std::set<std::string> three = {"de", "en", "fr"};
    for (const auto &kl : langs) {
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

// The images, sounds and texts the page and scripts name, and the tide view's numbered markers.
TEST_F(AppPack, EveryAssetTheClientNamesIsThereAndWellFormed) {
    const std::regex named("img/[A-Za-z0-9_./-]+\\.(png|gif|mp3)|[a-z]+-[a-z]+\\.txt");
    std::set<std::string> names;
    for (const auto &r : rows())
        if (r.l == "en" || (r.l == "**" && endsWith(r.k, ".js")))
            for (std::sregex_iterator m(r.v.begin(), r.v.end(), named), end; m != end; ++m) names.insert(m->str());
    for (int i = 0; i < 28; i++) {
        char k[32];
        snprintf(k, sizeof(k), "img/m32/m%02d.png", i);
        names.insert(k);
    }
    EXPECT_GT(names.size(), 70u);
    for (const std::string &n : names) {
        if (!endsWith(n, ".txt")) {
            EXPECT_NE(find("/app/" + n, "**"), nullptr) << n;
            continue;
        }
        for (const char *lang : {"en", "de", "fr"}) {
            const PackRow *r = find(std::string("/app/") + lang + "/" + n, "**");
            EXPECT_TRUE(r != nullptr && !r->v.empty()) << lang << "/" << n;
        }
    }

    /* images keep their bytes: whole PNG signature and IHDR, NULs included */
    for (const auto &r : rows()) {
        if (endsWith(r.k, ".png")) {
            ASSERT_GE(r.v.size(), 24u) << r.k;
            EXPECT_EQ(0, memcmp(r.v.data(), "\x89PNG\r\n\x1a\n", 8)) << r.k;
            unsigned w = be(r.v, 16), h = be(r.v, 20);
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
            bool frameSync = (unsigned char)r.v[0] == 0xff && ((unsigned char)r.v[1] & 0xe0) == 0xe0;
            EXPECT_TRUE(startsWith(r.v, "ID3") || frameSync) << r.k;
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
