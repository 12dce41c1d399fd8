// Grid positions: truncation, corners and the AIS unit form.
#include <gtest/gtest.h>

#include "store/pack_store.h"

TEST(Mercator, GridPositionsTruncate) {
    struct Case {
        double lat, lon;
        int32_t y, x;
    } cases[] = {
        {0, 0, 20015089, 20015089},
        {54, 10, 12852955, 21127038},
        {0, -180, 20015089, 0},
        {0, 180, 20015089, 40030178},
    };
    for (const auto &c : cases) {
        int32_t y = -1, x = -1;
        toMerc(c.lat, c.lon, &y, &x);
        EXPECT_EQ(c.y, y) << c.lat << "," << c.lon;
        EXPECT_EQ(c.x, x) << c.lat << "," << c.lon;
    }
    int32_t y1, x1, y2, x2;
    toMerc(54.5, 10.25, &y1, &x1);
    pos2merc(54 * 600000 + 300000, 10 * 600000 + 150000, &y2, &x2);
    EXPECT_EQ(y1, y2);
    EXPECT_EQ(x1, x2);
}
