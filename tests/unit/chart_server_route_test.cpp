// /setChartServer/ and /getChartServer through the route table: which
// addresses reach chartserver.key, that a refused one leaves the file as it
// was, that an empty one removes it, and that the download then reads what
// was stored.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "http/response_buffer.h"
#include "http/routes.h"
#include "shell/app_record.h"
#include "store/pack_store.h"
#include "support/files.h"

namespace {

// The body of the reply to one GET of the (already decoded) path.
std::string get(const std::string &path) {
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) return "(no socket)";
    ResponseBuffer out;
    buffInit(&out);
    out.fd = sv[0];
    route_get(&out, path.c_str());
    buffFree(&out);
    close(sv[0]);
    std::string reply;
    char buf[4096];
    ssize_t n;
    while ((n = read(sv[1], buf, sizeof(buf))) > 0) reply.append(buf, (size_t)n);
    close(sv[1]);
    size_t body = reply.find("\r\n\r\n");
    return body == std::string::npos ? "(no reply)" : reply.substr(body + 4);
}

class ChartServerRoute : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = makeTempDir("mareplot-csroute-") + "/";
        mr_bcopy(mrApp.keyDir, sizeof(mrApp.keyDir), dir_.c_str());
    }
    void TearDown() override {
        removeTree(dir_);
        mrApp.keyDir[0] = 0;
    }
    std::string key() const { return dir_ + "chartserver.key"; }
    bool hasKey() const { return access(key().c_str(), F_OK) == 0; }
    std::string dir_;
};

TEST_F(ChartServerRoute, StoresOnlyPlainAddresses) {
    // the longest address the download's host field takes: 255 bytes
    const std::string label63(63, 'a'), labels = label63 + "." + label63 + "." + label63 + ".";
    const std::string longest = labels + std::string(58, 'h') + ":8080";
    struct Case {
        std::string address;
        bool ok;
    } cases[] = {
        {"charts.example.org", true},
        {"my-boat", true},
        {"127.0.0.1:8080", true},
        {"localhost:1", true},
        {"chartbox:65535", true},
        {"[::1]", true},
        {"[::1]:8080", true},
        {"[fe80::1:2]:80", true},
        {"[::ffff:192.168.1.2]:8080", true},
        {label63 + ".example", true},
        {longest, true},
        // longer than the download's host field holds
        {labels + std::string(59, 'h') + ":8080", false},
        {std::string(2000, 'h'), false},
        {label63 + "a.example", false},
        // paths, schemes and other tricks
        {"../chartserver", false},
        {"..", false},
        {".", false},
        {"host/kits.json", false},
        {"http://host", false},
        {"host/../../etc/passwd", false},
        {"host?x=1", false},
        {"user@host", false},
        {"host name", false},
        {" host", false},
        {"host\n", false},
        {"host\r\nX: 1", false},
        {"ho%st", false},
        // name and port rules
        {".host", false},
        {"host.", false},
        {"a..b", false},
        {"host:", false},
        {"host:0", false},
        {"host:65536", false},
        {"host:123456", false},
        {"host:80:90", false},
        {"host:8o", false},
        {":8080", false},
        {"::1", false},
        {"[::1", false},
        {"[::1]8080", false},
        {"[::1]:", false},
        {"[host]:80", false},
        {"[1]", false},
    };
    for (const Case &c : cases) {
        writeFile(key(), "before.example:8080\n");
        EXPECT_EQ(c.ok ? "OK" : "ERR", get("/setChartServer/" + c.address)) << c.address.substr(0, 60);
        EXPECT_EQ(c.ok ? c.address : "before.example:8080", get("/getChartServer")) << c.address.substr(0, 60);
    }
}

TEST_F(ChartServerRoute, EmptyRemovesTheKeyAndTheDownloadGoesNowhere) {
    EXPECT_EQ("", get("/getChartServer")) << "none set";
    EXPECT_EQ("OK", get("/setChartServer/"));
    EXPECT_FALSE(hasKey());

    ASSERT_EQ("OK", get("/setChartServer/[::1]:8080"));
    char host[256];
    ASSERT_EQ(0, download_server_host(host, sizeof(host)));
    EXPECT_STREQ("[::1]:8080", host);

    EXPECT_EQ("OK", get("/setChartServer/"));
    EXPECT_FALSE(hasKey());
    EXPECT_EQ("", get("/getChartServer"));
    ASSERT_EQ(0, download_server_host(host, sizeof(host)));
    EXPECT_STREQ("charts.mareplot.invalid", host);
}

// A key file written by hand shows as it is, so the user sees and can
// correct it; a line too long for any address shows as none.
TEST_F(ChartServerRoute, ShowsAHandWrittenKey) {
    writeFile(key(), "  charts.lan:8080 \r\n");
    EXPECT_EQ("charts.lan:8080", get("/getChartServer"));
    writeFile(key(), std::string(3000, 'x'));
    EXPECT_EQ("", get("/getChartServer"));
}

// A directory that cannot take the file: the route says so.
TEST_F(ChartServerRoute, UnwritableDirectoryIsAnError) {
    mr_bcopy(mrApp.keyDir, sizeof(mrApp.keyDir), (dir_ + "missing/").c_str());
    EXPECT_EQ("ERR", get("/setChartServer/charts.lan"));
}

}  // namespace
