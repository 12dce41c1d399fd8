// AIS decoding below the rows: the six-bit reader on invalid armour, reads
// past the end and odd counts; VDM assembly of odd sentence sequences; the
// parsers' length gates. Whole messages, every armour value and field width,
// signed positions among them, go through all three in the AIS row tests.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "ais/ais.h"
#include "support/ais_encoder.h"

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
        init_6bit(&r);
        strcpy(r.bits, c.text);
        for (size_t i = 0; i < c.counts.size(); i++)
            EXPECT_EQ(c.values[i], get_6bit(&r, (int16_t)c.counts[i]))
                << c.text << " read " << i;
    }
}

// "AIVDM,<total>,<number>,<id>,A,<payload>,0" with its checksum.
static std::string vdm(const std::string &fields) { return withChecksum("AIVDM," + fields, '!'); }

TEST(AisVdm, AssemblySequences) {
    std::string p300a(150, 'A'), p300b(150, 'B');
    struct Case {
        const char *name;
        std::vector<std::string> lines;
        std::vector<int> results;
        std::string payload;  // checked after the last line when results end in 0
    } cases[] = {
        {"total zero", {vdm("0,0,,A,abc,0")}, {0}, "abc"},
        {"interleaved groups",
         {vdm("2,1,1,A,AAA,0"), vdm("2,1,2,A,XXX,0"), vdm("2,2,1,A,BBB,0")},
         {1, 5, 0},
         "BBB"},
        {"repeated part", {vdm("2,1,3,A,AAA,0"), vdm("2,1,3,A,AAA,0")}, {1, 5}, ""},
        {"part 2 alone", {vdm("2,2,4,A,BBB,0")}, {0}, "BBB"},
        {"bad checksum keeps the group",
         {vdm("2,1,5,A,AAA,0"), "!AIVDM,2,1,9,A,ZZZ,0*00", vdm("2,2,5,A,BBB,0")},
         {1, 2, 0},
         "AAABBB"},
        {"not VDM or VDO", {withChecksum("AIVDX,1,1,,A,abc,0", '!'), withChecksum("GPRMC,1", '$')},
         {3, 3}, ""},
        {"short sentence", {withChecksum("AI", '!'), withChecksum("AIVDM,1,1", '!')}, {3, 4}, ""},
        {"VDO of any talker", {withChecksum("XXVDO,1,1,,A,w,0", '!')}, {0}, "w"},
        {"cut at 255", {vdm("2,1,1,A," + p300a + ",0"), vdm("2,2,1,A," + p300b + ",0")}, {1, 0},
         p300a + p300b.substr(0, 105)},
        {"no checksum", {"!AIVDM,1,1,,A,abc,0"}, {2}, ""},
    };
    for (const Case &c : cases) {
        VdmAssembly a;
        memset(&a, 0, sizeof(a));
        for (size_t i = 0; i < c.lines.size(); i++) {
            std::vector<char> line(c.lines[i].begin(), c.lines[i].end());
            line.push_back(0);
            EXPECT_EQ(c.results[i], assemble_vdm(&a, line.data())) << c.name << " line " << i;
        }
        if (c.results.back() == 0) {
            EXPECT_EQ(c.payload, std::string(a.six.bits)) << c.name;
            EXPECT_EQ(a.six.bits, a.six.cursor) << c.name;
            EXPECT_EQ(0u, a.parts) << c.name;
        }
    }
}

// A payload given as armoured text, message number read.
static void loadPayload(VdmAssembly *a, const std::string &payload) {
    memset(a, 0, sizeof(*a));
    init_6bit(&a->six);
    strcpy(a->six.bits, payload.c_str());
    a->msgid = (uint8_t)get_6bit(&a->six, 6);
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
    loadPayload(&a, "3" + std::string(26, '0'));  // one character short: the record stays as it was
    EXPECT_EQ(2u, parse_ais_3(&a, &m));
    EXPECT_EQ(0, memcmp(&m, &untouched, sizeof(m)));
    EXPECT_EQ(1u, parse_ais_3(&a, NULL));

    // message 24 knows parts A and B only
    aisenc::Bits part2;
    part2.put(24, 6).put(0, 2).put(42, 30).put(2, 2).put(0, 128);
    loadPayload(&a, part2.armour());
    AisMsg24 m24;
    memset(&m24, 0, sizeof(m24));
    EXPECT_EQ(3u, parse_ais_24(&a, &m24));
}
