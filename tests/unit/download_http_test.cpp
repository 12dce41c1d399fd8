// http_get against a one-reply server on loopback: the request it sends,
// how it reads the reply header, and the chart server host from its key
// file.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "shell/app_record.h"
#include "store/pack_store.h"
#include "support/files.h"

namespace {

// Accepts one connection, keeps the request header, answers with a canned
// reply and closes.
class OneReplyServer {
  public:
    explicit OneReplyServer(std::string reply) : reply_(std::move(reply)) {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(a);
        if (bind(fd_, (sockaddr *)&a, sizeof(a)) != 0 || listen(fd_, 1) != 0) return;
        getsockname(fd_, (sockaddr *)&a, &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~OneReplyServer() {
        if (thread_.joinable()) thread_.join();
        close(fd_);
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(port_); }
    std::string request() {
        if (thread_.joinable()) thread_.join();
        return request_;
    }

  private:
    void serve() {
        int c = accept(fd_, nullptr, nullptr);
        if (c < 0) return;
        char buf[2048];
        while (request_.find("\r\n\r\n") == std::string::npos) {
            ssize_t r = recv(c, buf, sizeof(buf), 0);
            if (r <= 0) break;
            request_.append(buf, (size_t)r);
        }
        ::send(c, reply_.data(), reply_.size(), MSG_NOSIGNAL);
        close(c);
    }
    std::string reply_, request_;
    int fd_ = -1;
    int port_ = 0;
    std::thread thread_;
};

struct Buf {
    ResponseBuffer b;
    Buf() {
        buffInit(&b);
        b.fd = -1;
    }
    ~Buf() {
        if (b.fd >= 0) close(b.fd);
        buffFree(&b);
    }
};

TEST(HttpGet, ReadsTheReplyHeader) {
    struct Case {
        const char *name;
        const char *reply;
        int result;
    } cases[] = {
        {"length with blank", "HTTP/1.1 200 OK\r\nContent-Length: 123\r\n\r\n", 123},
        {"length without blank", "HTTP/1.1 200 OK\r\nContent-Length:123\r\n\r\n", 123},
        {"status not examined", "HTTP/1.1 500 Oops\r\nContent-Length: 7\r\n\r\n", 7},
        {"bare line ends", "HTTP/1.1 200 OK\nServer: x\nContent-Length: 9\n\n", 9},
        {"no length", "HTTP/1.1 200 OK\r\nServer: x\r\n\r\nbody", -3},
        {"zero length", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 0},
        {"chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\n", -6},
        {"chunked, 24 characters", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunkXYZ\r\n\r\n", -6},
        {"lower case is not seen", "HTTP/1.1 200 OK\r\ncontent-length: 5\r\n\r\n", -3},
        {"closed inside the header", "HTTP/1.1 200 OK\r\nContent-Length: 44", 44},
        {"nothing at all", "", -3},
    };
    for (const Case &c : cases) {
        OneReplyServer server(c.reply);
        Buf buf;
        EXPECT_EQ(c.result, http_get(server.host().c_str(), "/x", &buf.b)) << c.name;
        EXPECT_GE(buf.b.fd, 0) << c.name;
    }
}

TEST(HttpGet, SendsOneExactRequestAndLeavesTheBodyToRead) {
    OneReplyServer server("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello");
    Buf buf;
    const std::string host = server.host();
    ASSERT_EQ(5, http_get(host.c_str(), "/ajax3.php?download=5&v=2&p=65536&u=0", &buf.b));
    EXPECT_EQ("GET /ajax3.php?download=5&v=2&p=65536&u=0 HTTP/1.1\r\nHost: " + host + "\r\n\r\n",
              server.request());
    char *body = buffGetData(&buf.b, 65536);
    ASSERT_NE(nullptr, body);
    EXPECT_EQ("hello", std::string(body, (size_t)buf.b.lineLength));
}

TEST(DownloadServerHost, ComesFromTheKeyFileOrStaysInvalid) {
    const std::string dir = makeTempDir("mareplot-dlkey-") + "/";
    const std::string key = dir + "chartserver.key";
    mr_bcopy(mrApp.keyDir, sizeof(mrApp.keyDir), dir.c_str());

    const std::string longest(255, 'h'), tooLong(256, 'h');
    struct Case {
        bool file;
        std::string content, host;
        int result;
    } cases[] = {
        {false, "", "charts.mareplot.invalid", 0},
        {true, "", "charts.mareplot.invalid", 0},
        {true, "  \r\n", "charts.mareplot.invalid", 0},
        {true, "charts.example.org", "charts.example.org", 0},
        {true, "127.0.0.1:8080\n", "127.0.0.1:8080", 0},
        {true, " [::1]:8080 \r\nsecond line\n", "[::1]:8080", 0},
        // a name that does not fit is no server at all, never a cut one
        {true, longest + "  \n", longest, 0},
        {true, tooLong + "\n", "", -1},
        {true, std::string(5000, 'h'), "", -1},
    };
    for (const Case &c : cases) {
        unlink(key.c_str());
        if (c.file) writeFile(key, c.content);
        char host[256] = "garbage";
        EXPECT_EQ(c.result, download_server_host(host, sizeof(host))) << c.content.substr(0, 40);
        EXPECT_EQ(c.host, host) << (c.file ? c.content.substr(0, 40) : "(no file)");
    }
    removeTree(dir);
    mrApp.keyDir[0] = 0;
}

}  // namespace
