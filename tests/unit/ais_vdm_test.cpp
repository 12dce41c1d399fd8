// VDM assembly: odd sentence sequences against the results of assemble_vdm and
// the payload left in the assembly (whole messages in one or more parts go
// through it in the AIS row tests).
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "ais/ais.h"
#include "support/ais_encoder.h"

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
