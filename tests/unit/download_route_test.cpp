// The /download/ route with the real download thread behind it: what the
// first reply of a start says, however quickly the thread gets going. The
// chart server is a bound port that does not listen, so each thread fails
// at once with "Server not found" and the next start can follow.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "http/response_buffer.h"
#include "http/routes.h"
#include "shell/app_record.h"

namespace {

struct Figures {
    int id = 0, b = 0, s = -99, e = 0;
};

// Runs one GET through the route table and parses the figures of the reply
// that it sends on the socket pair.
Figures ask(const char *path) {
    int sv[2];
    Figures f;
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) return f;
    ResponseBuffer out;
    buffInit(&out);
    out.fd = sv[0];
    route_get(&out, path);
    buffFree(&out);
    close(sv[0]);
    std::string reply;
    char buf[1024];
    ssize_t n;
    while ((n = read(sv[1], buf, sizeof(buf))) > 0) reply.append(buf, (size_t)n);
    close(sv[1]);
    size_t body = reply.find("\r\n\r\n");
    if (body != std::string::npos)
        sscanf(reply.c_str() + body + 4, "{\"id\":%d,\"b\":%d,\"s\":%d,\"e\":%d}", &f.id, &f.b, &f.s, &f.e);
    return f;
}

// Waits until the thread has put the state back to 0.
bool idle() {
    for (int i = 0; i < 20000; i++) {
        if (MR_LOAD(mrApp.dlState) == 0) return true;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return false;
}

class DownloadRoute : public ::testing::Test {
  protected:
    void SetUp() override {
        char tmpl[] = "/tmp/mareplot-dlroute-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(tmpl));
        dir_ = tmpl;
        mr_bcopy(mrApp.packDir, sizeof(mrApp.packDir), (dir_ + "/").c_str());
        mr_bcopy(mrApp.keyDir, sizeof(mrApp.keyDir), (dir_ + "/").c_str());
        // bound but not listening: a connect is refused at once
        closed_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(a);
        ASSERT_EQ(0, bind(closed_, (sockaddr *)&a, sizeof(a)));
        getsockname(closed_, (sockaddr *)&a, &len);
        std::ofstream(dir_ + "/chartserver.key") << "127.0.0.1:" << ntohs(a.sin_port) << "\n";
        MR_STORE(mrApp.dlState, 0);
        MR_STORE(mrApp.dlError, 0);
    }
    void TearDown() override {
        EXPECT_TRUE(idle());
        close(closed_);
        std::string cmd = "rm -rf '" + dir_ + "'";
        EXPECT_EQ(0, system(cmd.c_str()));
        mrApp.packDir[0] = mrApp.keyDir[0] = 0;
    }
    std::string dir_;
    int closed_ = -1;
};

// The client counts only a first reply of state 1 as a start and cancels
// on anything else, so a thread that is quicker than the reply (already
// running, or already done) must not show through. Many starts in a row
// give the thread every chance to win.
TEST_F(DownloadRoute, FirstReplyOfAStartSaysRequested) {
    int other = 0;
    std::string seen;
    for (int i = 0; i < 3000; i++) {
        Figures f = ask("/download/5 7 1000 0000abcd");
        if (f.s != 1 && other++ < 5) seen += " " + std::to_string(f.s);
        ASSERT_TRUE(idle()) << "start " << i;
        Figures done = ask("/download/*");
        ASSERT_EQ(0, done.s);
        ASSERT_EQ(-2, done.e) << "start " << i;
    }
    EXPECT_EQ(0, other) << "first replies with another state:" << seen;
}

}  // namespace
