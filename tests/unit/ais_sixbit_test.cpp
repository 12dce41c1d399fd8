// Six-bit reader: invalid armour, reads past the end, odd counts (every armour
// value and field width goes through it in the AIS row tests).
#include <gtest/gtest.h>
#include <string.h>

#include "ais/ais.h"

static void load(SixBitReader *r, const char *text) {
    init_6bit(r);
    strcpy(r->bits, text);
}

TEST(AisSixBit, ReadSequences) {
    struct Case {
        const char *text;
        std::vector<int> counts;
        std::vector<uint64_t> values;
    } cases[] = {
        {"0", {12}, {0}},                 // past the end: six bits only
        {"X", {6}, {255}},                // invalid character reads as 255
        {"wwwwwwwwwww", {64}, {~0ull}},   // a full 64-bit read
        {"1w", {4, 8, 4}, {0, 0x7f, 0}},  // a read spanning two characters
        {"W", {0, -3, 6}, {0, 0, 39}},    // counts <= 0 read nothing
        {"", {6, 30}, {0, 0}},
    };
    for (const Case &c : cases) {
        SixBitReader r;
        load(&r, c.text);
        for (size_t i = 0; i < c.counts.size(); i++)
            EXPECT_EQ(c.values[i], get_6bit(&r, (int16_t)c.counts[i]))
                << c.text << " read " << i;
    }
}
