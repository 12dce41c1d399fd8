// Which Origin, Host and Sec-Fetch-Site header lines mark a request as coming
// from a page elsewhere, and the line printed for a refusal.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "http/request_guard.h"

namespace {

TEST(ForeignHeader, OriginAndHostLines) {
    struct Case {
        const char *line;
        int foreign;
    } cases[] = {
        {"Origin: http://localhost:19999", 0},
        {"origin:http://127.0.0.1:19999  ", 0},
        {"Origin: http://127.0.0.1", 1},
        {"Origin: http://127.0.0.1:8080", 1},
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

// The header text came from outside: the printed line shows at most 100
// characters of it, control bytes made harmless. (The reply on the wire is
// checked by the black-box test.)
TEST(Refuse, PrintsOneHarmlessLine) {
    int sv[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sv));
    ResponseBuffer out;
    ASSERT_NE(nullptr, buffInit(&out));
    out.fd = sv[0];
    testing::internal::CaptureStdout();
    http_refuse(&out, ("Origin: http://evil.example\x1b[2J" + std::string(300, 'a')).c_str());
    std::string printed = testing::internal::GetCapturedStdout();
    buffFree(&out);
    close(sv[0]);
    close(sv[1]);
    EXPECT_EQ("refused a request from a foreign page (Origin: http://evil.example?[2J" + std::string(69, 'a') + ")\n",
              printed);
}

}  // namespace
