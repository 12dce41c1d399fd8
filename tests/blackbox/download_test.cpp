// The pack download: mareplotd fetches packs from mareplot-chartkit serve (named in chartserver.key)
// through drops, bad replies, held bytes and cancels; and /getcrc32/.
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "chartkit/kit_support.h"
#include "support/feed_server.h"
#include "support/test_pack.h"

namespace {

using kit::crcHex;

struct DlStatus {
    int id = -99, b = -99, s = -99, e = -99;
};

DlStatus dl(const std::string &rest) {
    std::string path = "/download/";
    for (char c : rest) path += c == ' ' ? std::string("%20") : std::string(1, c);
    DlStatus st;
    sscanf(httpGet(path).body.c_str(), "{\"id\":%d,\"b\":%d,\"s\":%d,\"e\":%d}", &st.id, &st.b, &st.s, &st.e);
    return st;
}

// Polls until the download thread is idle again; returns the last status.
DlStatus waitIdle(int timeoutMs = 30000) {
    DlStatus st;
    waitFor([&] { return (st = dl("*")).s == 0; }, timeoutMs);
    return st;
}

std::vector<std::string> withLog(const std::string &dir, std::vector<std::string> switches) {
    switches.insert(switches.end(), {"--log", dir + "/.requests"});
    return switches;
}

// mareplot-chartkit serve on a free port, logging every pack request.
struct ChartServer : kit::Server {
    ChartServer(const std::string &dir, const std::vector<std::string> &switches)
        : kit::Server(CHARTKIT_PATH, dir, withLog(dir, switches)), log_(dir + "/.requests") {
        unlink(log_.c_str());  // the server appends, and no request has come yet
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(port()); }
    // "p" of every pack request so far, in order.
    std::vector<int> positions() const {
        std::vector<int> out;
        std::string log = readFile(log_);
        for (size_t at = log.find(" p="); at != std::string::npos; at = log.find(" p=", at + 1))
            out.push_back(atoi(log.c_str() + at + 3));
        return out;
    }
    std::string log_;
};

class Download : public ::testing::Test {
  protected:
    ~Download() override {
        host_.reset();
        removeTree(packs_);
    }
    // A pack of about `bytes` as A<id>.marepack on the server's side: one document and a filler row.
    std::string makePack(int id, size_t bytes, const std::string &key = "/info",
                         const std::string &value = "pack five", int type = 4) {
        std::string path = packs_ + name('A', id, ".marepack"), filler(bytes, 0);
        for (size_t i = 0; i < bytes; i++) filler[i] = (char)((i * 2654435761u) >> 13);
        testpack::Pack p;
        p.withTiles = false;
        p.kv = {{key, value, type, "**"}, {"/filler", filler, 0, "**"}};
        testpack::writePack(path, p);
        return readFile(path);
    }
    void useServer(const ChartServer &server) { writeFile(home_.path("chartserver.key"), server.host() + "\n"); }
    void startHost() {
        host_.reset();
        host_.reset(new Host(home_.home()));
        ASSERT_TRUE(host_->running());
    }
    static std::string start(int id, const std::string &pack) {
        return std::to_string(id) + " 1 " + std::to_string(pack.size()) + " " + crcHex(pack);
    }
    static std::string name(char kind, int id, const char *ext) {
        char n[32];
        snprintf(n, sizeof(n), "/%c%06d%s", kind, id, ext);
        return n;
    }
    std::string packFile(int id) { return home_.dataDir() + name('A', id, ".marepack"); }
    std::string tempFile(int id) { return home_.dataDir() + name('N', id, ".temp"); }
    testpack::PackHome home_;
    std::string packs_ = makeTempDir("mareplot-dl-packs-");
    std::unique_ptr<Host> host_;
};

// One host runs the cases in turn, each with its own pack id and server.
TEST_F(Download, OutcomesByServerBehaviourAndHeldBytes) {
    const int kWhole = -1;  // b or a held prefix: the whole pack
    struct Case {
        const char *name;
        std::vector<std::string> switches;
        int held;              // bytes in N<id>.temp before the start; 0: none
        bool oldPack;          // an older A<id>.marepack is in place
        int announce;          // a shorter size announced, with its CRC; 0: the pack's
        int e, b;              // outcome; b -2: not checked
        std::vector<int> positions;
        int temp;              // N<id>.temp afterwards: 1 kept, 0 gone, -1 not checked
        bool installed;
    } cases[] = {
        {"clean", {}, 0, false, 0, 0, kWhole, {0}, 0, true},
        {"one drop resumes from the last whole block", {"--drop-after", "100000", "--drop-count", "1"}, 0, false,
         0, 0, kWhole, {0, 65536}, 0, true},
        {"six drops in a row", {"--drop-after", "30000"}, 0, false, 0, -3, 0, std::vector<int>(6, 0), 1,
         false},
        {"zero length: an unusable reply is not retried", {"--zero-length"}, 0, false, 0, -2, -2, {0}, -1, false},
        {"wrong bytes: a failed CRC keeps the pack in place", {"--wrong-bytes"}, 0, true, 0, -5, kWhole, {0}, 0, false},
        {"more than the size, cut inside a whole block", {}, 0, false, 100000, -5, 131072, {0}, 0, false},
        {"held bytes of any length", {}, 100, false, 0, 0, kWhole, {100}, 0, true},
        {"held bytes complete: no request", {}, kWhole, false, 0, 0, kWhole, {}, 0, true},
    };
    startHost();
    int id = 10;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        id++;
        const std::string pack = makePack(id, 300000);
        if (c.held) writeFile(tempFile(id), c.held == kWhole ? pack : pack.substr(0, (size_t)c.held));
        if (c.oldPack) writeFile(packFile(id), "old pack");
        ChartServer server(packs_, c.switches);
        useServer(server);
        dl(c.announce ? std::to_string(id) + " 1 " + std::to_string(c.announce) + " " +
                            crcHex(pack.substr(0, (size_t)c.announce))
                      : start(id, pack));
        DlStatus done = waitIdle(40000);
        EXPECT_EQ(c.e, done.e);
        if (c.b != -2) { EXPECT_EQ(c.b == kWhole ? (int)pack.size() : c.b, done.b); }
        EXPECT_EQ(c.positions, server.positions());
        if (c.temp >= 0) { EXPECT_EQ(c.temp == 1, fileExists(tempFile(id))); }
        EXPECT_EQ(c.installed ? pack : c.oldPack ? "old pack" : "", readFile(packFile(id)));
    }
}

TEST_F(Download, CancelKeepsTheTemporaryFileAndSecondStartIsIgnored) {
    const std::string pack = makePack(5, 2000000);
    ChartServer server(packs_, {"--rate", "400000"});
    useServer(server);
    startHost();
    dl(start(5, pack));
    DlStatus st;
    waitFor([&] { return (st = dl("*")).b >= 65536; }, 4000);
    ASSERT_EQ(2, st.s);

    DlStatus other = dl("9 1 1000 12345678");
    EXPECT_EQ(5, other.id);
    EXPECT_EQ(2, other.s);
    EXPECT_EQ(2, dl("*").s);  // a poll changes nothing

    EXPECT_EQ(3, dl("**").s);
    DlStatus done = waitIdle();
    EXPECT_EQ(-7, done.e);
    EXPECT_LT(done.b, (int)pack.size());
    EXPECT_EQ(0, done.b % 65536);
    EXPECT_EQ(pack.substr(0, (size_t)done.b), readFile(tempFile(5)));
    EXPECT_FALSE(fileExists(packFile(5)));

    // acknowledged while idle: nothing changes
    DlStatus again = dl("**");
    EXPECT_EQ(0, again.s);
    EXPECT_EQ(-7, again.e);
}

TEST_F(Download, ApplicationPackIsReplacedAndServedAtOnce) {
    const std::string pack = makePack(1, 70000, "/app/marepack.html", "<html>new client</html>", 1);
    ChartServer server(packs_, {});
    useServer(server);
    startHost();
    EXPECT_NE("<html>new client</html>", httpGet("/app/marepack.html").body);
    dl(start(1, pack));
    EXPECT_EQ(0, waitIdle().e);
    EXPECT_EQ(pack, readFile(packFile(1)));
    EXPECT_EQ("<html>new client</html>", httpGet("/app/marepack.html").body);
}

TEST_F(Download, EmptyPackNeedsNoServer) {
    startHost();  // no chartserver.key: the built-in host is never asked
    dl("7 1 0 0");
    DlStatus done = waitIdle(5000);
    EXPECT_EQ(7, done.id);
    EXPECT_EQ(0, done.e);
    EXPECT_TRUE(fileExists(packFile(7)));
    EXPECT_EQ("", readFile(packFile(7)));
    EXPECT_FALSE(fileExists(tempFile(7)));
}

TEST(GetCrc32, ReportsCrcAndSizeOfAFileOnDisk) {
    Host host;
    ASSERT_TRUE(host.running());
    writeFile(host.dataDir() + "/digits.bin", "123456789");
    writeFile(host.dataDir() + "/empty.bin", "");
    const std::pair<const char *, const char *> cases[] = {  // file, reply
        {"digits.bin", "{\"crc32\":\"cbf43926\",\"size\":9}"},  // the CRC-32 check value
        {"empty.bin", "{\"crc32\":\"00000000\",\"size\":0}"},
        {"missing.bin", "{\"crc32\":\"none\",\"size\":0}"},
    };
    for (const auto &c : cases) {
        HttpReply r = httpGet(std::string("/getcrc32/") + c.first);
        EXPECT_EQ(c.second, r.body) << c.first;
        EXPECT_EQ("text/plain; charset=UTF-8", r.headers["Content-Type"]) << c.first;
    }
}

}  // namespace
