// Six-bit reader: bit fields across character boundaries, invalid armour,
// reads past the end, and the character conversions.
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
        {"1", {6}, {1}},
        {"15", {2, 4, 6}, {0, 1, 5}},
        {"w", {6}, {63}},
        {"`", {6}, {40}},
        {"0", {12}, {0}},                 // past the end: six bits only
        {"X", {6}, {255}},                // invalid character reads as 255
        {"wwwwwwwwwww", {64}, {~0ull}},   // a full 64-bit read
        {"w0", {3, 3, 3, 3}, {7, 7, 0, 0}},
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

TEST(AisSixBit, CharacterConversions) {
    struct Case {
        int32_t in, out;
    } from[] = {
        {'0', 0}, {'W', 39}, {'X', -1}, {'_', -1}, {'`', 40}, {'w', 63}, {'x', -1}, {'/', -1},
        {'0' + 0x100, 0},  // only the low eight bits count
    }, to[] = {
        {0, '0'}, {39, 'W'}, {40, '`'}, {63, 'w'}, {64, -1}, {-1, '/'}, {0x100, '0'},
    };
    for (const Case &c : from) EXPECT_EQ(c.out, binfrom6bit(c.in)) << "binfrom6bit " << c.in;
    for (const Case &c : to) EXPECT_EQ(c.out, binto6bit(c.in)) << "binto6bit " << c.in;
    for (int v = 0; v < 64; v++) EXPECT_EQ(v, binfrom6bit(binto6bit(v)));
}
