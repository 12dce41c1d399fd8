/* serve_test.cpp -- mareplot-chartkit serve over packs made from KAP charts: list, refusals, many clients. */
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "chartkit/kit_support.h"

namespace {

const char *kTool = CHARTKIT_PATH;

class ChartkitServe : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = makeTempDir("mareplot-serve-");
        writeFile(dir_ + "/bay.kap", kit::kapChart(10.0, 54.4, 10.2, 54.5));
        writeFile(dir_ + "/sound.kap", kit::kapChart(12.5, 55.5, 12.7, 55.6));
        ASSERT_EQ(0, make(7, "Bay <7>", "bay.kap"));
        ASSERT_EQ(0, make(12, "Sound", "sound.kap"));
        writeFile(dir_ + "/A000009.marepack", "not a pack at all");
    }
    void TearDown() override { removeTree(dir_); }
    int make(int id, const std::string &name, const std::string &input) {
        return kit::run({kTool, "make", "--id", std::to_string(id), "--name", name, "--zooms", "8-10", "--out",
                         pack(id), dir_ + "/" + input})
            .status;
    }
    std::string pack(int id) {
        char out[64];
        snprintf(out, sizeof(out), "/A%06d.marepack", id);
        return dir_ + out;
    }
    std::string dir_;
};

TEST_F(ChartkitServe, KitListAndPage) {
    kit::Server server(kTool, dir_);
    ASSERT_GT(server.port(), 0);
    std::string reply = kit::get(server.port(), "/kits.json");
    ASSERT_EQ(0u, reply.find("HTTP/1.1 200 OK\r\n")) << reply;
    EXPECT_NE(std::string::npos, reply.find("\r\nAccess-Control-Allow-Origin: *\r\n"));
    std::string list = kit::bodyOf(reply);
    EXPECT_EQ("(none)", kit::jsonAt(list, "$.update.9")) << "a file that is no pack is left out";
    EXPECT_LT(list.find("\"7\":"), list.find("\"12\":")) << "ids ascending";

    std::string page = kit::get(server.port(), "/");
    EXPECT_EQ(0u, page.find("HTTP/1.1 200 OK\r\n"));
    EXPECT_NE(std::string::npos, page.find("Bay &lt;7&gt;")) << "names are escaped in the page";
    EXPECT_NE(std::string::npos, page.find("href=\"/kits.json\""));

    /* a pack replaced on disk is read again; the cache goes by size and time */
    ASSERT_EQ(0, make(12, "Sound, second edition", "bay.kap"));
    std::string after = kit::bodyOf(kit::get(server.port(), "/kits.json"));
    EXPECT_EQ("Sound, second edition", kit::jsonAt(after, "$.update.\"12\".name"));
    EXPECT_NE(kit::jsonAt(list, "$.update.\"12\".version"), kit::jsonAt(after, "$.update.\"12\".version"));
}

/* Packs from a position are the host's download test's (it resumes and checks the CRC). */
TEST_F(ChartkitServe, Refusals) {
    kit::Server server(kTool, dir_);
    struct Case {
        const char *request, *status;
    } cases[] = {
        {"/ajax3.php?download=8&v=1&p=0&u=0", "404"}, /* no such pack */
        {"/A000007.marepack", "404"},                 /* packs only through the download */
        {"/../etc/passwd", "403"},
        {"RAW \x01\x02 nonsense\r\n\r\n", "400"},
    };
    for (const Case &c : cases) {
        std::string reply = kit::get(server.port(), c.request);
        EXPECT_EQ(0u, reply.find(std::string("HTTP/1.1 ") + c.status)) << c.request << ": " << reply;
    }
    /* a client that says nothing and one that hangs up early end nothing */
    EXPECT_EQ("", kit::get(server.port(), "RAW GET /kits", 200));
    EXPECT_TRUE(server.alive());
    EXPECT_EQ(0u, kit::get(server.port(), "/kits.json").find("HTTP/1.1 200 OK"));
}

TEST_F(ChartkitServe, ManyClientsAtOnceGetWholePacks) {
    kit::Server server(kTool, dir_, {"--rate", "400000"});
    const std::string bytes = readFile(pack(7));
    std::atomic<int> good{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < 8; i++)
        clients.emplace_back([&, i] {
            std::string reply = i % 2 ? kit::get(server.port(), "/kits.json")
                                      : kit::get(server.port(), "/ajax3.php?download=7&v=1&p=0&u=0", 30000);
            if (i % 2 ? kit::jsonAt(kit::bodyOf(reply), "$.update.\"7\".pid") == "7" : kit::bodyOf(reply) == bytes) good++;
        });
    for (std::thread &t : clients) t.join();
    EXPECT_EQ(8, good.load());
}

} // namespace
