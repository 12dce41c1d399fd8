// The chart server from the host's side: http_get's reading of reply headers, the
// address in chartserver.key and its routes, and the first reply of /download/.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "http/response_buffer.h"
#include "http/routes.h"
#include "shell/app_record.h"
#include "store/pack_store.h"
#include "support/files.h"

namespace {

// The reply body to one GET of the decoded path: with no socket behind it the send fails and the body stays.
std::string routeBody(const std::string &path) {
    ResponseBuffer out;
    buffInit(&out);
    out.fd = -1;
    route_get(&out, path.c_str());
    std::string body(out.data, (size_t)out.length);
    buffFree(&out);
    return body;
}

// A loopback socket bound to a free port; listening when asked to.
int loopbackSocket(bool listening, int *port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(a);
    if (bind(fd, (sockaddr *)&a, sizeof(a)) != 0 || (listening && listen(fd, 1) != 0)) return fd;
    getsockname(fd, (sockaddr *)&a, &len);
    *port = ntohs(a.sin_port);
    return fd;
}

// Accepts one connection, reads the request header, sends a canned reply and closes.
class OneReplyServer {
  public:
    explicit OneReplyServer(std::string reply) : reply_(std::move(reply)) {
        fd_ = loopbackSocket(true, &port_);
        thread_ = std::thread([this] {
            int c = accept(fd_, nullptr, nullptr);
            if (c < 0) return;
            std::string request;
            char buf[2048];
            ssize_t r;
            while (request.find("\r\n\r\n") == std::string::npos && (r = recv(c, buf, sizeof(buf), 0)) > 0)
                request.append(buf, (size_t)r);
            ::send(c, reply_.data(), reply_.size(), MSG_NOSIGNAL);
            close(c);
        });
    }
    ~OneReplyServer() {
        thread_.join();
        close(fd_);
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(port_); }

  private:
    std::string reply_;
    int fd_ = -1, port_ = 0;
    std::thread thread_;
};

// The replies the host cannot use are the black-box download test's; these are the header readings.
TEST(HttpGet, ReadsTheReplyHeader) {
    struct Case {
        const char *name;
        const char *reply;
        int result;
    } cases[] = {
        {"length with blank", "HTTP/1.1 200 OK\r\nContent-Length: 123\r\n\r\n", 123},
        {"status not examined", "HTTP/1.1 500 Oops\r\nContent-Length: 7\r\n\r\n", 7},
        {"bare line ends", "HTTP/1.1 200 OK\nServer: x\nContent-Length: 9\n\n", 9},
        {"chunked, 24 characters", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunkXYZ\r\n\r\n", -6},
        {"lower case is not seen", "HTTP/1.1 200 OK\r\ncontent-length: 5\r\n\r\n", -3},
        {"closed inside the header", "HTTP/1.1 200 OK\r\nContent-Length: 44", 44},
    };
    for (const Case &c : cases) {
        OneReplyServer server(c.reply);
        ResponseBuffer b;
        buffInit(&b);
        b.fd = -1;
        EXPECT_EQ(c.result, http_get(server.host().c_str(), "/x", &b)) << c.name;
        EXPECT_GE(b.fd, 0) << c.name;
        close(b.fd);
        buffFree(&b);
    }
}

// A temporary key and pack directory.
class KeyDir : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = makeTempDir("mareplot-dl-") + "/";
        mr_bcopy(mrApp.keyDir, sizeof(mrApp.keyDir), dir_.c_str());
        mr_bcopy(mrApp.packDir, sizeof(mrApp.packDir), dir_.c_str());
    }
    void TearDown() override {
        removeTree(dir_);
        mrApp.keyDir[0] = mrApp.packDir[0] = 0;
    }
    std::string key() const { return dir_ + "chartserver.key"; }
    std::string dir_;
};

TEST_F(KeyDir, ServerHostComesFromTheKeyFileOrStaysInvalid) {
    const std::string longest(255, 'h'), tooLong(256, 'h');
    struct Case {
        bool file;
        std::string content, host;
        int result;
    } cases[] = {
        {false, "", "charts.mareplot.invalid", 0},
        {true, "  \r\n", "charts.mareplot.invalid", 0},
        {true, "charts.example.org", "charts.example.org", 0},
        {true, " [::1]:8080 \r\nsecond line\n", "[::1]:8080", 0},
        // a name that does not fit is no server at all, never a cut one
        {true, longest + "  \n", longest, 0},
        {true, tooLong + "\n", "", -1},
    };
    for (const Case &c : cases) {
        unlink(key().c_str());
        if (c.file) writeFile(key(), c.content);
        char host[256] = "garbage";
        EXPECT_EQ(c.result, download_server_host(host, sizeof(host))) << c.content.substr(0, 40);
        EXPECT_EQ(c.host, host) << (c.file ? c.content.substr(0, 40) : "(no file)");
    }
}

TEST_F(KeyDir, SetChartServerStoresOnlyPlainAddresses) {
    // the longest address the download's host field takes: 255 bytes
    const std::string label63(63, 'a'), labels = label63 + "." + label63 + "." + label63 + ".";
    const std::string longest = labels + std::string(58, 'h') + ":8080";
    struct Case {
        std::string address;
        bool ok;
    } cases[] = {
        {"127.0.0.1:1", true},
        {"chartbox:65535", true},
        {"[::1]", true},
        {"[::ffff:192.168.1.2]:8080", true},
        {label63 + ".example", true},
        {longest, true},
        {labels + std::string(59, 'h') + ":8080", false},  // longer than the download's host field
        {label63 + "a.example", false},
        {"../chartserver", false},
        {"http://host", false},
        {"host\r\nX: 1", false},
        {"host.", false},
        {":8080", false},
        {"host:", false},
        {"host:0", false},
        {"host:65536", false},
        {"host:123456", false},
        {"[::1", false},
        {"[::1]8080", false},
        {"[host]:80", false},
        {"[1]", false},
    };
    for (const Case &c : cases) {
        writeFile(key(), "before.example:8080\n");
        EXPECT_EQ(c.ok ? "OK" : "ERR", routeBody("/setChartServer/" + c.address)) << c.address.substr(0, 60);
        EXPECT_EQ(c.ok ? c.address : "before.example:8080", routeBody("/getChartServer"))
            << c.address.substr(0, 60);
    }
}

TEST_F(KeyDir, EmptyAddressRemovesTheKeyAndAnUnwritableOneIsAnError) {
    ASSERT_EQ("OK", routeBody("/setChartServer/[::1]:8080"));
    EXPECT_EQ("OK", routeBody("/setChartServer/"));
    EXPECT_FALSE(fileExists(key()));
    EXPECT_EQ("", routeBody("/getChartServer"));
    EXPECT_EQ("OK", routeBody("/setChartServer/")) << "nothing to remove";
    mr_bcopy(mrApp.keyDir, sizeof(mrApp.keyDir), (dir_ + "missing/").c_str());
    EXPECT_EQ("ERR", routeBody("/setChartServer/charts.lan"));
}

struct Figures {
    int id = 0, b = 0, s = -99, e = 0;
};

Figures download(const char *path) {
    Figures f;
    sscanf(routeBody(path).c_str(), "{\"id\":%d,\"b\":%d,\"s\":%d,\"e\":%d}", &f.id, &f.b, &f.s, &f.e);
    return f;
}

// Waits until the download thread has put the state back to 0.
bool idle() {
    for (int i = 0; i < 20000; i++) {
        if (MR_LOAD(mrApp.dlState) == 0) return true;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return false;
}

// The chart server is a bound port that does not listen: each download fails at once.
class DownloadRoute : public KeyDir {
  protected:
    void SetUp() override {
        KeyDir::SetUp();
        int port = 0;
        closed_ = loopbackSocket(false, &port);
        ASSERT_NE(0, port);
        writeFile(key(), "127.0.0.1:" + std::to_string(port) + "\n");
        MR_STORE(mrApp.dlState, 0);
        MR_STORE(mrApp.dlError, 0);
    }
    void TearDown() override {
        EXPECT_TRUE(idle());
        close(closed_);
        KeyDir::TearDown();
    }
    int closed_ = -1;
};

// The client takes only a first reply of state 1 as a start; a quick thread must not show through.
TEST_F(DownloadRoute, FirstReplyOfAStartSaysRequested) {
    int other = 0;
    std::string seen;
    for (int i = 0; i < 3000; i++) {
        Figures f = download("/download/5 7 1000 0000abcd");
        if (f.s != 1 && other++ < 5) seen += " " + std::to_string(f.s);
        ASSERT_TRUE(idle()) << "start " << i;
        Figures done = download("/download/*");
        ASSERT_EQ(0, done.s);
        ASSERT_EQ(-2, done.e) << "start " << i;
    }
    EXPECT_EQ(0, other) << "first replies with another state:" << seen;
}

}  // namespace
