// Pack switching under load: connections fetch tiles, documents and SQL rows
// from the chart pack while another keeps replacing it. Every reply comes
// whole and belongs to one of the packs (or to none).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "support/feed_server.h"
#include "support/test_pack.h"

using namespace testpack;

TEST(PackGuard, SwitchWhileServing) {
    PackedHost h;
    h.select();
    const struct {
        std::string path;
        std::set<std::string> ok;  // the replies of each pack, and of none
    } kinds[] = {
        {"/getTileI/A5/3298535931904", {standardPack("A").tiles[0].png, standardPack("B").tiles[0].png, onePixelGif()}},
        {"/getMapData/version", {"1521740772A", "1521740772B", "File not found (de): version"}},
        {"/MexecSql/SELECT%20count(*)%20FROM%20tiles", {"[\n[3]\n]", "out of memory"}},
    };
    std::atomic<bool> stop(false);
    std::atomic<int> bad(0), served(0), switches(0);
    std::mutex firstLock;
    std::string first;  // the first bad reply, for the failure message
    auto fail = [&](const std::string &what) {
        std::lock_guard<std::mutex> g(firstLock);
        if (first.empty()) first = what;
        bad++;
    };

    auto reader = [&](int kind) {
        std::unique_ptr<Conn> c;
        for (int n = 0; !stop; n++) {
            // a connection serves 10000 requests at most: renew it well before
            if (n % 2000 == 0) c.reset(new Conn());
            c->send("GET " + kinds[kind].path + " HTTP/1.1\r\n\r\n");
            HttpReply r = c->read(20000);
            if (!r.complete || !kinds[kind].ok.count(r.body)) {
                fail(kinds[kind].path + " => " + r.statusLine + " " + r.body.substr(0, 80));
                return;
            }
            served++;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++) threads.emplace_back(reader, i % 4 == 3 ? 1 + (i / 4) : 0);
    threads.emplace_back([&] {
        const char *names[] = {"A000005.marepack", "A000006.marepack", "missing.marepack"};
        // each switch waits for 20 more replies, so that it falls among requests
        for (int i = 0; i < 30 && bad == 0; i++) {
            if (!waitFor([&] { return served >= 20 * (i + 1) || bad != 0; }, 60000)) {
                fail("readers served nothing for a minute");
                break;
            }
            Conn sw;
            sw.send(std::string("GET /getSetState/chartdb=") + names[i % 3] + " HTTP/1.1\r\n\r\n");
            HttpReply r = sw.read(20000);
            if (!r.complete) fail(std::string("switch to ") + names[i % 3]);
            switches++;
        }
        stop = true;
    });
    for (auto &t : threads) t.join();
    EXPECT_EQ(0, bad.load()) << first << "\nhost output:\n" << h.host->output();
    EXPECT_EQ(30, switches.load());
    EXPECT_GT(served.load(), 600);
    EXPECT_EQ("1521740772B", (h.select("A000006.marepack"), httpGet("/getMapData/version").body));
}
