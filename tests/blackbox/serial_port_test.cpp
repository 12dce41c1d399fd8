/* serial_port_test.cpp -- the headless host's serial GPS port: a socat pty pair stands in for the
** receiver; the port named in "usbport.key" is read and its sentences reach the status exchange. */
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "chartkit/kit_support.h"
#include "support/feed_server.h"
#include "support/nmea_sentence.h"
#include "support/test_pack.h"

using testpack::PackHome;

TEST(HeadlessSerial, SentencesFromTheStoredPortReachTheStatus) {
    kit::PtyPair pty;
    ASSERT_TRUE(fileExists(pty.feed)) << "socat is needed for this test";
    PackHome home;
    writeFile(home.path("usbport.key"), pty.gps + "\n9600");
    Host host(home.home());
    /* NMEA as the position source; serial feed. */
    ASSERT_TRUE(httpGet("/setNmeaMode/0/1/2/x/0/0").complete);

    int out = open(pty.feed.c_str(), O_WRONLY | O_NOCTTY);
    ASSERT_GE(out, 0);
    std::string stat;
    for (int i = 0; i < 40 && stat.find("\"latY\":54.500000") == std::string::npos; i++) {
        std::string line = rmcNow("5430.000", "N", "01012.600", "E");
        ASSERT_EQ(write(out, line.data(), line.size()), (ssize_t)line.size());
        usleep(150000);
        stat = httpPost("/getSetHostStat/5/10/0/-1", "*").body;
    }
    close(out);
    EXPECT_NE(stat.find("\"latY\":54.500000"), std::string::npos) << stat;
    EXPECT_NE(stat.find("\"lonX\":10.210000"), std::string::npos) << stat;
    EXPECT_NE(host.output().find("serial port " + pty.gps + " open at 9600 baud"), std::string::npos)
        << host.output();
    /* The stored setting is the user's: the host only reads it. */
    EXPECT_EQ(readFile(home.path("usbport.key")), pty.gps + "\n9600");
}

TEST(HeadlessSerial, OffOrMissingPortLeavesTheHostServing) {
    struct Case {
        const char *usbport;
        bool announces;
    } cases[] = {{"Off\n4800", false}, {"/dev/mareplot-no-such-port\n4800", true}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.usbport);
        PackHome home;
        writeFile(home.path("usbport.key"), c.usbport);
        Host host(home.home());
        // the port's thread announces a missing device; "Off" starts none
        if (c.announces) {
            EXPECT_TRUE(waitFor([&] { return host.output().find("serial port") != std::string::npos; }, 10000));
        }
        EXPECT_TRUE(httpGet("/hostversion").complete);
        EXPECT_EQ(host.output().find("serial port") != std::string::npos, c.announces) << host.output();
        EXPECT_EQ(readFile(home.path("usbport.key")), c.usbport);
    }
}
