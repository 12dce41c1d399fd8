// Message parsers: the sign rule of positions, the length gates, and the
// kept oddities of the parsers that no row uses. The fields of the types
// that make rows are checked through their rows (ais_rows_test.cpp).
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "ais/ais.h"
#include "support/ais_encoder.h"

// A payload given as armoured text, message number read.
static void loadPayload(VdmAssembly *a, const std::string &payload) {
    memset(a, 0, sizeof(*a));
    init_6bit(&a->six);
    strcpy(a->six.bits, payload.c_str());
    a->msgid = (uint8_t)get_6bit(&a->six, 6);
}

// A 28-character message 1 whose lat and lon fields carry the given raw bits.
static std::string positionPayload(int64_t lon, int64_t lat, int chars = 28) {
    aisenc::Bits b;
    b.put(1, 6).put(0, 2).put(123456789, 30).put(0, 4).put(0, 8).put(0, 10).put(0, 1);
    b.put(lon, 28).put(lat, 27).put(0, 168 - 116);
    return b.armour().substr(0, chars);
}

TEST(AisParsers, PositionSignRule) {
    struct Case {
        int64_t lonBits, latBits, lon, lat;
    } cases[] = {
        {0, 0x3412140, 0, 0x3412140},  // 91 degrees: bit 26 clear, stays positive
        {0, 0x4000000, 0, -67108864},
        {0x8000000, 0, -134217728, 0},
        {0x6750000, 0x7ffffff, 0x6750000, -1},
    };
    for (const Case &c : cases) {
        VdmAssembly a;
        loadPayload(&a, positionPayload(c.lonBits, c.latBits));
        AisMsg3 m;
        ASSERT_EQ(0u, parse_ais_3(&a, &m));
        EXPECT_EQ(c.lon, m.lon);
        EXPECT_EQ(c.lat, m.lat);
    }
}

// Runs the parser of msgid on a zeroed record of its type.
#define PARSE(n)                           \
    case n: {                              \
        AisMsg##n m;                       \
        memset(&m, 0, sizeof(m));          \
        return parse_ais_##n(a, &m);       \
    }
static unsigned parseAny(VdmAssembly *a, int msgid) {
    switch (msgid) {
        PARSE(1) PARSE(2) PARSE(3) PARSE(4) PARSE(5) PARSE(6) PARSE(7) PARSE(8)
        PARSE(9) PARSE(10) PARSE(11) PARSE(12) PARSE(13) PARSE(14) PARSE(15) PARSE(16)
        PARSE(17) PARSE(18) PARSE(19) PARSE(20) PARSE(21) PARSE(22) PARSE(23) PARSE(24)
    }
    return 99;
}

TEST(AisParsers, LengthGates) {
    // payload lengths in characters that pass and that fail each gate
    struct Case {
        int msgid;
        std::vector<int> good, bad;
    } cases[] = {
        {1, {28}, {27, 29}},   {2, {28}, {27}},       {3, {28}, {27}},       {4, {28}, {0, 30}},
        {5, {71}, {70, 72}},   {6, {15, 168}, {14, 169}}, {7, {12, 28}, {11, 29}},
        {8, {10, 168}, {9, 169}}, {9, {28}, {27}},    {10, {12}, {11, 13}},  {11, {28}, {27}},
        {12, {12, 168}, {11, 169}}, {13, {12}, {29}}, {14, {7, 168}, {6, 169}},
        {15, {15, 27}, {14, 28}}, {16, {16, 24}, {17, 23}}, {17, {14, 136}, {13, 137}},
        {18, {28}, {27}},      {19, {52}, {51, 53}},  {20, {12, 27}, {11, 28}},
        {21, {46, 60}, {45, 61}}, {22, {28}, {27}},   {23, {28}, {27}},
        {24, {27, 28}, {26, 29}},
    };
    for (const Case &c : cases) {
        for (int pass = 0; pass < 2; pass++) {
            for (int len : pass == 0 ? c.good : c.bad) {
                VdmAssembly a;
                std::string payload(len, '0');
                if (len > 0) payload[0] = (char)binto6bit(c.msgid);
                loadPayload(&a, payload);
                EXPECT_EQ(pass == 0 ? 0u : 2u, parseAny(&a, c.msgid)) << c.msgid << " length " << len;
            }
        }
        EXPECT_EQ(1u, parseAny(NULL, c.msgid)) << c.msgid;
    }
    AisMsg3 untouched;
    memset(&untouched, 0xab, sizeof(untouched));
    AisMsg3 m = untouched;
    VdmAssembly a;
    loadPayload(&a, positionPayload(0, 0, 27));
    EXPECT_EQ(2u, parse_ais_3(&a, &m));
    EXPECT_EQ(0, memcmp(&m, &untouched, sizeof(m)));
    EXPECT_EQ(1u, parse_ais_3(&a, NULL));
}

TEST(AisParsers, CountedParts) {
    // message 7/13 pairs, 20 entries, 15 requests and 16 commands by length
    struct Case {
        int msgid, chars, count;
    } cases[] = {
        {7, 12, 1}, {7, 13, 2}, {7, 18, 3}, {7, 23, 4}, {13, 28, 4}, {20, 12, 1}, {20, 13, 2},
        {20, 18, 3}, {20, 23, 4}, {15, 15, 2}, {15, 27, 2}, {16, 16, 1}, {16, 24, 2},
    };
    for (const Case &c : cases) {
        VdmAssembly a;
        std::string payload(c.chars, 'w');
        payload[0] = (char)binto6bit(c.msgid);
        loadPayload(&a, payload);
        int count = -1;
        if (c.msgid == 7 || c.msgid == 13) {
            AisMsg7 m;
            ASSERT_EQ(0u, parse_ais_7(&a, &m));
            count = m.num_acks;
        } else if (c.msgid == 20) {
            AisMsg20 m;
            ASSERT_EQ(0u, parse_ais_20(&a, &m));
            count = m.num_cmds;
        } else if (c.msgid == 15) {
            AisMsg15 m;
            ASSERT_EQ(0u, parse_ais_15(&a, &m));
            count = m.num_reqs;
            EXPECT_EQ(0u, m.destid2);  // the third request is never read
        } else {
            AisMsg16 m;
            ASSERT_EQ(0u, parse_ais_16(&a, &m));
            count = m.num_cmds;
        }
        EXPECT_EQ(c.count, count) << c.msgid << " with " << c.chars;
    }
}

TEST(AisParsers, TextsAndReaderCopies) {
    // 12 and 14: the text fills the payload; 21: a name extension
    aisenc::Bits b12;
    b12.put(12, 6).put(0, 2).put(1, 30).put(0, 2).put(2, 30).put(0, 2).text("HELLO \"/", 10);
    VdmAssembly a;
    loadPayload(&a, b12.armour());
    AisMsg12 m12;
    ASSERT_EQ(0u, parse_ais_12(&a, &m12));
    EXPECT_STREQ("HELLO \"/@@", m12.message);
    EXPECT_EQ(2u, m12.destination);

    aisenc::Bits b14;
    b14.put(14, 6).put(0, 2).put(1, 30).put(0, 2);
    loadPayload(&a, b14.armour());
    AisMsg14 m14;
    ASSERT_EQ(0u, parse_ais_14(&a, &m14));
    EXPECT_STREQ("", m14.message);

    // 8: the record's reader copy goes on with the application data, also
    // after the assembly's own text has been overwritten
    aisenc::Bits b8;
    b8.put(8, 6).put(0, 2).put(99, 30).put(0, 2).put(0x1234, 16).put(0xabcde, 20).put(0, 4);
    loadPayload(&a, b8.armour());
    AisMsg8 m8;
    ASSERT_EQ(0u, parse_ais_8(&a, &m8));
    memset(a.six.bits, 0, sizeof(a.six.bits));
    EXPECT_EQ(0x1234, m8.app_id);
    EXPECT_EQ(0xabcdeu, get_6bit(get_msg8_data(&m8), 20));

    // 17: 18/17-bit corners stay unsigned
    aisenc::Bits b17;
    b17.put(17, 6).put(0, 2).put(5, 30).put(0, 2).put(-1, 18).put(-1, 17).put(0, 5);
    b17.put(9, 6).put(0, 44);
    loadPayload(&a, b17.armour());
    AisMsg17 m17;
    ASSERT_EQ(0u, parse_ais_17(&a, &m17));
    EXPECT_EQ(0x3ffff, m17.lon);
    EXPECT_EQ(0x1ffff, m17.lat);
    EXPECT_EQ(9, m17.msg_type);
}

TEST(AisParsers, ChannelAndGroupCorners) {
    struct Case {
        int msgid, addressed;
        int64_t neLon, neLat, swLon, swLat;  // raw 18/17-bit fields
        int64_t eNeLon, eNeLat, eSwLon, eSwLat;
        uint64_t dest1, dest2;
    } cases[] = {
        // unaddressed 22: times 1000, then the sign rule on bits 26/27
        {22, 0, 6000, 3000, 100, 50, 6000000, 3000000, 100000, 50000, 0, 0},
        {22, 0, 0x25a20, 0x1d5c0, 0, 0, 0x25a20 * 1000 - 0x10000000, 0x1d5c0 * 1000 - 0x8000000,
         0, 0, 0, 0},
        // addressed 22: two destination ids from the corner bits
        {22, 1, 0x3ffff, 0x1ffff, 0x12345, 0x0abcd, 0x3ffff, 0x1ffff, 0x12345, 0x0abcd,
         (0x3ffffull << 12) + (0x1ffff >> 5), (0x12345ull << 12) + (0x0abcd >> 5)},
        {23, 0, 6000, 3000, 100, 50, 6000000, 3000000, 100000, 50000, 0, 0},
    };
    for (const Case &c : cases) {
        aisenc::Bits b;
        b.put(c.msgid, 6).put(0, 2).put(7, 30);
        if (c.msgid == 22) {
            b.put(0, 1).put(2087, 12).put(2088, 12).put(1, 4).put(0, 1);
            b.put(c.neLon, 18).put(c.neLat, 17).put(c.swLon, 18).put(c.swLat, 17);
            b.put(c.addressed, 1).put(0, 1).put(0, 1).put(4, 3).put(0, 24);
        } else {
            b.put(0, 2).put(c.neLon, 18).put(c.neLat, 17).put(c.swLon, 18).put(c.swLat, 17);
            b.put(0, 58);
        }
        VdmAssembly a;
        loadPayload(&a, b.armour());
        int64_t got[4];
        uint64_t d1 = 0, d2 = 0;
        if (c.msgid == 22) {
            AisMsg22 m;
            ASSERT_EQ(0u, parse_ais_22(&a, &m));
            EXPECT_EQ(2087, m.channel_a);
            EXPECT_EQ(4, m.tz_size);
            got[0] = m.NE_lon, got[1] = m.NE_lat, got[2] = m.SW_lon, got[3] = m.SW_lat;
            d1 = m.dest_addr_1, d2 = m.dest_addr_2;
        } else {
            AisMsg23 m;
            ASSERT_EQ(0u, parse_ais_23(&a, &m));
            got[0] = m.NE_lon, got[1] = m.NE_lat, got[2] = m.SW_lon, got[3] = m.SW_lat;
        }
        EXPECT_EQ(c.eNeLon, got[0]);
        EXPECT_EQ(c.eNeLat, got[1]);
        EXPECT_EQ(c.eSwLon, got[2]);
        EXPECT_EQ(c.eSwLat, got[3]);
        EXPECT_EQ(c.dest1, d1);
        EXPECT_EQ(c.dest2, d2);
    }
}

TEST(AisParsers, Message24PartsAndFlags) {
    aisenc::Bits partA, partB, part2;
    partA.put(24, 6).put(0, 2).put(42, 30).put(0, 2).text("BOAT", 20);
    partB.put(24, 6).put(0, 2).put(42, 30).put(1, 2).put(37, 8).text("VND", 7).text("CALL", 7);
    partB.put(10, 9).put(5, 9).put(2, 6).put(3, 6).put(0, 6);
    part2.put(24, 6).put(0, 2).put(42, 30).put(2, 2).put(0, 128);
    AisMsg24 m;
    memset(&m, 0, sizeof(m));
    VdmAssembly a;
    loadPayload(&a, partA.armour());
    ASSERT_EQ(0u, parse_ais_24(&a, &m));
    loadPayload(&a, partB.armour());
    ASSERT_EQ(0u, parse_ais_24(&a, &m));
    EXPECT_EQ(3, m.flags);  // the record is not zeroed: both parts are marked
    EXPECT_STREQ("BOAT@@@@@@@@@@@@@@@@", m.name);
    EXPECT_STREQ("CALL@@@", m.callsign);
    EXPECT_EQ(37, m.shiptype);
    loadPayload(&a, part2.armour());
    EXPECT_EQ(3u, parse_ais_24(&a, &m));
}

TEST(AisParsers, Conversions) {
    struct Pos {
        int32_t v;
        double ddd;
        int16_t deg;
        double min;
    } pos[] = {
        {-3000000, -5.0, -5, 0.0},
        {3300000, 5.5, 5, 30.0},
        {-300000, -0.5, 0, 30.0},  // the sign is lost between -1 and 0 degrees
        {54600000, 91.0, 91, 0.0},
    };
    for (const Pos &p : pos) {
        double dlat, dlon;
        EXPECT_EQ(0, pos2ddd(p.v, p.v, &dlat, &dlon));
        EXPECT_DOUBLE_EQ(p.ddd, dlat);
        EXPECT_DOUBLE_EQ(p.ddd, dlon);
        int16_t d1, d2;
        double m1, m2;
        EXPECT_EQ(0, pos2dmm(p.v, p.v, &d1, &m1, &d2, &m2));
        EXPECT_EQ(p.deg, d1);
        EXPECT_DOUBLE_EQ(p.min, m1);
    }
    uint32_t v = 0x4000000;
    EXPECT_EQ(-67108864, conv_sign(0x4000000, &v));
    v = 0x3ffffff;
    EXPECT_EQ(0x3ffffff, conv_sign(0x4000000, &v));
    EXPECT_EQ('@', ais2ascii(0));
    EXPECT_EQ('_', ais2ascii(31));
    EXPECT_EQ(' ', ais2ascii(32));
    EXPECT_EQ('?', ais2ascii(63));
    EXPECT_EQ('A', ais2ascii(65));  // kept to six bits
}
