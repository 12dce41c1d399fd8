// The HTTP layer's parts: buffers over a socketpair, url_decode's early exits,
// which header lines mark a request as foreign, and the line printed for a refusal.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <cstring>
#include <vector>

#include "http/request_guard.h"
#include "http/response_buffer.h"

namespace {

struct Pair {
    int in = -1, out = -1;
    Pair() {
        int sv[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0) {
            in = sv[0];
            out = sv[1];
        }
    }
    ~Pair() {
        if (in >= 0) close(in);
        if (out >= 0) close(out);
    }
    void write(const std::string &s) { ASSERT_EQ((ssize_t)s.size(), ::write(out, s.data(), s.size())); }
    void closeWriter() {
        close(out);
        out = -1;
    }
};

struct Buf {
    ResponseBuffer b;
    Buf(int fd) {
        buffInit(&b);
        b.fd = fd;
    }
    ~Buf() { buffFree(&b); }
};

TEST(BuffGetLine, SplitsLinesAndCountsTerminators) {
    struct Case {
        const char *input;
        std::vector<std::pair<std::string, int>> lines;  // text, lineLength
    } cases[] = {
        {"GET /hostversion\r\n", {{"GET /hostversion", 18}}},
        {"\n", {{"", 1}}},
        {"\r\n", {{"", 2}}},
        {"a\rb\nnext\n", {{"a", 4}, {"next", 5}}},  // CR mid-line cuts the text
        {"one\ntwo", {{"one", 4}, {"two", 3}}},     // last line without terminator
    };
    for (const auto &c : cases) {
        Pair p;
        Buf in(p.in);
        p.write(c.input);
        p.closeWriter();
        for (const auto &want : c.lines) {
            char *line = buffGetLine(&in.b);
            ASSERT_NE(line, nullptr) << c.input;
            EXPECT_EQ(want.first, std::string(line)) << c.input;
            EXPECT_EQ(want.second, in.b.lineLength) << c.input;
        }
        char *end = buffGetLine(&in.b);  // end of stream: an empty line
        ASSERT_NE(end, nullptr);
        EXPECT_STREQ("", end);
        EXPECT_EQ(0, in.b.lineLength);
    }
    Buf broken(-1);  // a receive error: no line at all
    EXPECT_EQ(nullptr, buffGetLine(&broken.b));
}

TEST(BuffGetLine, LineArrivingInPiecesIsJoined) {
    Pair p;
    Buf in(p.in);
    p.write("Content-Le");
    std::thread later([&] {
        usleep(20000);
        p.write("ngth: 5\r\nX\n");
    });
    char *line = buffGetLine(&in.b);
    later.join();
    ASSERT_NE(line, nullptr);
    EXPECT_STREQ("Content-Length: 5", line);
    EXPECT_EQ(19, in.b.lineLength);
    EXPECT_STREQ("X", buffGetLine(&in.b));
}

TEST(BuffGetData, CountedBlocksGrowthAndShortBlocks) {
    Pair p;
    Buf in(p.in);
    std::string body(20000, 'x');
    body[19999] = 'z';
    std::thread writer([&] { p.write("line\n" + body + "tail"); p.closeWriter(); });
    EXPECT_STREQ("line", buffGetLine(&in.b));
    char *block = buffGetData(&in.b, 20000);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(20000, in.b.lineLength);
    EXPECT_EQ('z', block[19999]);
    char *shortBlock = buffGetData(&in.b, 10);
    writer.join();
    ASSERT_NE(shortBlock, nullptr);
    EXPECT_EQ(4, in.b.lineLength);
    EXPECT_STREQ("tail", shortBlock);
}

TEST(UrlDecode, EscapesAndEarlyExits) {
    struct Case {
        const char *in;
        const char *out;  // as read after decoding in place
        int result;
    } cases[] = {
        {"/a%", "/a%", 0},
        {"/a%2", "/a 2", 0},  // the high half is written before the exit
        {"%41%42x", "ABx", 3},
    };
    for (const auto &c : cases) {
        char buf[64];
        strcpy(buf, c.in);
        EXPECT_EQ(c.result, url_decode(buf, buf)) << c.in;
        EXPECT_STREQ(c.out, buf) << c.in;
    }
    // an invalid escape leaves its output byte as it was
    char out[8];
    memset(out, 'Q', sizeof out);
    EXPECT_EQ(2, url_decode("%zzx", out));
    EXPECT_EQ(std::string("Qx"), std::string(out));
}

// A reply larger than the send buffer arrives whole, wherever its pieces end.
TEST(BuffSendHttp, ReplyLargerThanSendBufferArrivesWhole) {
    struct Case {
        size_t statusLength, bodyLength;
    } cases[] = {{6, 3 << 20}, {2000, 1 << 20}, {2000, 0}, {2000, 1}};
    for (const auto &c : cases) {
        Pair p;
        int small = 2048;  // the kernel raises this to its minimum
        setsockopt(p.out, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
        std::string status = "200 " + std::string(c.statusLength - 4, 'k');
        std::string body(c.bodyLength, 0);
        for (size_t i = 0; i < body.size(); i++) body[i] = (char)(i * 7 + i / 251);
        std::string got;
        std::thread reader([&] {
            char buf[1500];  // small reads keep the writer's buffer full
            ssize_t r;
            while ((r = recv(p.in, buf, sizeof buf, 0)) > 0) got.append(buf, (size_t)r);
        });
        Buf out(p.out);
        out.b.keepAliveMax = 5;
        buffAddData(&out.b, body.data(), (int)body.size());
        EXPECT_EQ((int)body.size(), buffSendHttp(&out.b, status.c_str(), 0, 0));
        EXPECT_EQ(5, out.b.keepAliveMax);
        shutdown(p.out, SHUT_WR);
        reader.join();
        size_t end = got.find("\r\n\r\n");
        ASSERT_NE(std::string::npos, end) << c.bodyLength;
        EXPECT_EQ(0u, got.find("HTTP/1.1 " + status + "\r\n"));
        EXPECT_NE(std::string::npos, got.find("Content-Length: " + std::to_string(body.size()) + "\r\n"));
        EXPECT_TRUE(got.substr(end + 4) == body) << c.statusLength << "/" << c.bodyLength << ": "
                                                 << got.size() - end - 4 << " body bytes";
    }
}

TEST(BuffSendHttp, FailedBodySendClearsKeepAlive) {
    Pair p;
    Buf out(p.out);
    out.b.keepAliveMax = 7;
    buffAddChar(&out.b, "body");
    close(p.in);
    p.in = -1;
    buffSendHttp(&out.b, nullptr, 4, 0);  // must not raise SIGPIPE
    EXPECT_EQ(0, out.b.keepAliveMax);
}

TEST(ForeignHeader, OriginAndHostLines) {
    struct Case {
        const char *line;
        int foreign;
    } cases[] = {
        {"Origin: http://localhost:19999", 0},
        {"origin:http://127.0.0.1:19999  ", 0},
        {"Origin: http://127.0.0.1", 1},
        {"Origin: http://127.0.0.1:8080", 1},
        {"Origin: http://127.0.0.1:19998", 1},
        {"Origin: https://127.0.0.1:19999", 1},
        {"Origin: http://127.0.0.1:19999.evil.example", 1},
        {"Origin: null", 1},
        {"Origin:", 1},
        {"Host: 127.0.0.1", 0},
        {"host:LOCALHOST:19999", 0},
        {"Host: ", 1},
        {"Sec-Fetch-Site: same-origin", 0},
        {"sec-fetch-site: none", 0},
        {"Sec-Fetch-Site: same-site", 1},
        {"Sec-Fetch-Site: same-origin-x", 1},
        {"Referer: http://evil.example/", 0},
        {"Hostname: evil.example", 0},
        {"X-Origin: http://evil.example", 0},
    };
    for (const Case &c : cases) EXPECT_EQ(c.foreign, http_foreign_header(c.line, 19999)) << c.line;
}

// The header came from outside: at most 100 characters of it are printed, control bytes made harmless.
TEST(Refuse, PrintsOneHarmlessLine) {
    Pair p;
    Buf out(p.out);
    testing::internal::CaptureStdout();
    http_refuse(&out.b, ("Origin: http://evil.example\x1b[2J" + std::string(300, 'a')).c_str());
    EXPECT_EQ("refused a request from a foreign page (Origin: http://evil.example?[2J" + std::string(69, 'a') + ")\n",
              testing::internal::GetCapturedStdout());
}

}  // namespace
