// AIS end to end: mareplotd reads AIS sentences from a TCP feed on
// loopback, and the status reply carries their rows exactly once and, for
// the own ship with an AIS position source, the fix 800 or 801.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/ais_encoder.h"
#include "support/host_harness.h"

namespace {

// A one-client feed server on an ephemeral loopback port.
class AisFeed {
  public:
    AisFeed() {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
        struct sockaddr_in a;
        memset(&a, 0, sizeof(a));
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(fd_, (struct sockaddr *)&a, sizeof(a)) != 0 || listen(fd_, 4) != 0) abort();
        socklen_t len = sizeof(a);
        getsockname(fd_, (struct sockaddr *)&a, &len);
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] {
            struct pollfd pf = {fd_, POLLIN, 0};
            while (!stop_ && client_ < 0)
                if (poll(&pf, 1, 50) > 0) client_ = accept(fd_, NULL, NULL);
        });
    }
    ~AisFeed() {
        stop_ = true;
        thread_.join();
        if (client_ >= 0) close(client_);
        close(fd_);
    }
    int port() const { return port_; }
    bool connected(int ms) {
        for (int i = 0; i < ms / 10 && client_ < 0; i++) usleep(10000);
        return client_ >= 0;
    }
    void send(const std::vector<std::string> &lines) {
        for (const std::string &l : lines) {
            std::string crlf = l + "\r\n";
            ::send(client_, crlf.data(), crlf.size(), MSG_NOSIGNAL);
        }
    }

  private:
    int fd_ = -1, port_ = 0;
    std::atomic<int> client_{-1};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

std::string status() { return httpPost("/getSetHostStat/86400/50/0/4294967295", "*").body; }

double field(const std::string &json, const char *key) {
    std::string k = std::string("\"") + key + "\":";
    size_t at = json.find(k);
    return at == std::string::npos ? -99999 : strtod(json.c_str() + at + k.size(), NULL);
}

std::string aisRows(const std::string &json) {
    size_t open = json.find("\"ais\":[\n"), close = json.find("],\"track\"");
    if (open == std::string::npos || close == std::string::npos) return "?";
    return json.substr(open + 8, close - open - 8);
}

// A position report of class A (1) or B (18) at 54 N 10 E.
std::vector<std::string> report(int msgid, uint32_t mmsi, const char *talker) {
    aisenc::Bits b;
    b.put(msgid, 6).put(0, 2).put(mmsi, 30);
    if (msgid == 1)
        b.put(0, 4).put(0, 8).put(100, 10);
    else
        b.put(0, 8).put(100, 10);
    b.put(0, 1).put(10 * 600000, 28).put(54 * 600000, 27).put(900, 12).put(45, 9);
    b.put(0, 168 - b.size());
    return aisenc::sentences(b, talker);
}

// Polls the status as the client would, gathering every AIS row, until a
// reply shows fix == wantFix and the rows include wantRow.
std::string pollRows(int wantFix, const std::string &wantRow, std::string *last) {
    std::string rows;
    for (int i = 0; i < 60; i++) {
        *last = status();
        std::string r = aisRows(*last);
        if (!r.empty()) rows += (rows.empty() ? "" : ",\n") + r;
        if (field(*last, "fix") == wantFix && rows.find(wantRow) != std::string::npos) break;
        usleep(50000);
    }
    return rows;
}

size_t count(const std::string &s, const std::string &what) {
    size_t n = 0;
    for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1)) n++;
    return n;
}

TEST(AisStatus, OwnShipFixAndRowsOnce) {
    Host host;
    AisFeed feed;
    ASSERT_TRUE(host.running());
    // gpsSource 2 (AIS own ship), TCP feed, own MMSI 246000000
    httpGet("/setNmeaMode/0/2/1/127.0.0.1/" + std::to_string(feed.port()) + "/246000000");
    ASSERT_TRUE(feed.connected(5000));
    for (int i = 0; i < 60 && field(status(), "nmea_stat") != 1; i++) usleep(50000);

    struct Step {
        int msgid;
        int fix;
        const char *row;
    } steps[] = {
        {1, 800, "[246000000,1,0,21127038,12852955,100,900,45,0,0]"},
        {18, 801, "[246000000,18,0,21127038,12852955,100,900,45,-128,0]"},
    };
    for (const Step &s : steps) {
        std::vector<std::string> lines = report(s.msgid, 246000000, "AIVDO");
        std::vector<std::string> other = report(s.msgid, 211000000 + s.msgid, "AIVDM");
        lines.insert(lines.end(), other.begin(), other.end());
        feed.send(lines);
        std::string last;
        std::string rows = pollRows(s.fix, s.row, &last);
        EXPECT_EQ(s.fix, field(last, "fix")) << last;
        EXPECT_EQ(54, field(last, "latY"));
        EXPECT_EQ(10, field(last, "lonX"));
        EXPECT_EQ(90, field(last, "cog"));
        EXPECT_EQ(246000000, field(last, "aisuserid"));
        EXPECT_EQ(1u, count(rows, s.row)) << rows;
        EXPECT_EQ(1u, count(rows, "[" + std::to_string(211000000 + s.msgid) + ",")) << rows;
        EXPECT_EQ(2u, count(rows, "[")) << rows;
        EXPECT_EQ("", aisRows(status()));  // nothing is delivered twice
    }
}

} // namespace
