// AIS targets: sentences through ProcessAIS, rows read with getAisData against the encoded values (the
// encoder checked against gpsdecode); own ship; the six-bit reader, VDM assembly and the length gates.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ais/ais.h"
#include "nav/nmea.h"
#include "store/pack_store.h"
#include "support/ais_encoder.h"
#include "support/files.h"

// Everything getAisData appends, as text.
static std::string takeRows() {
    ResponseBuffer b;
    memset(&b, 0, sizeof(b));
    getAisData(&b);
    std::string s(b.data, (size_t)b.length);
    buffFree(&b);
    return s;
}

// The rows between "ais":[\n and ], of a getAisData text.
static std::string rowsOf(const std::string &status) {
    size_t open = status.find("\"ais\":[\n");
    size_t close = status.rfind("],");
    if (open == std::string::npos || close == std::string::npos) return "?";
    open += 8;
    return status.substr(open, close - open);
}

// Feeds a message split into parts of maxChars characters.
static void feed(const aisenc::Message &m, size_t maxChars = 60, int seqId = 1) {
    for (std::string l : aisenc::sentences(m.bits, "AIVDM", maxChars, seqId)) ProcessAIS(&l[0]);
}

// A text column as rows write it: quoted, '/' escaped (no encoded text holds another escape).
static std::string q(const std::string &text) {
    std::string out = "\"";
    for (char c : text) out += c == '/' ? std::string("\\/") : std::string(1, c);
    return out + "\"";
}

static std::string num(int64_t v) { return std::to_string(v); }

// mktime of the fields, as the row's time column.
static std::string localTime(int64_t year, int64_t mon, int64_t mday, int64_t hour, int64_t min, int64_t sec) {
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    tm.tm_year = (int)year - 1900, tm.tm_mon = (int)mon - 1, tm.tm_mday = (int)mday;
    tm.tm_hour = (int)hour, tm.tm_min = (int)min, tm.tm_sec = (int)sec;
    return num((unsigned)mktime(&tm));
}

class AisRows : public ::testing::Test {
  protected:
    void SetUp() override {
        memset(&gpsfix, 0, sizeof(gpsfix));
        memset(&aisPartA, 0, sizeof(aisPartA));
        aistime = 0;
        takeRows();
    }
};

// Row columns by type: a field's number, "$field" its text, "=v" a value, "@t" the time, "@x"/"@y" the grid.
static const std::map<int, std::string> kColumns = {
    {1, "userid msgid @t @x @y sog cog hdg rot nav_status"},
    {4, "userid msgid @t @x @y"},
    {5, "userid msgid @t =0 =0 $callsign $name shiptype $dest eta bow stern port starboard draught imo"},
    {9, "userid msgid @t @x @y sog cog =511 =-128 =15"},
    {18, "userid msgid @t @x @y sog cog hdg =-128 =0"},
    {19, "userid msgid @t @x @y $- $name shiptype $- =0 bow stern port starboard =-1"},
    {21, "userid msgid @t @x @y $- $name type $- =0 bow stern port starboard =-1"},  // aid type for ship type
    {24, "userid msgid @t =0 =0 $callsign $name shiptype $vendor_id =0 bow stern port starboard =-1"},
};

TEST_F(AisRows, RandomMessagesGiveTheirRows) {
    aisenc::Rng rng(77);
    for (int type : {1, 2, 3, 4, 5, 9, 18, 19, 21, 24}) {
        for (int i = 0; i < 100; i++) {
            aisenc::Message m = aisenc::randomMessage(rng, type);
            if (type == 24) {
                // part A is kept; part B of the same MMSI makes the row
                feed(m, 1 + i % 70, i % 10);
                EXPECT_EQ("", rowsOf(takeRows()));
                aisenc::Message b = aisenc::randomMessage(rng, 124, m.num("userid"));
                m.fields.insert(m.fields.end(), b.fields.begin() + 3, b.fields.end());
                m.bits = b.bits;
            }
            feed(m, 1 + i % 70, i % 10);
            std::string at = num((unsigned)aistime), row, col;
            if (type == 4)
                at = localTime(m.num("utc_year"), m.num("utc_month"), m.num("utc_day"), m.num("utc_hour"),
                               m.num("utc_minute"), m.num("utc_second"));
            int32_t y = 0, x = 0;  // 91 degrees, no position, reads INT32_MIN
            if (type != 5 && type != 24) pos2merc((int32_t)m.num("lat"), (int32_t)m.num("lon"), &y, &x);
            for (std::istringstream cols(kColumns.at(type <= 3 ? 1 : type)); cols >> col;) {
                row += row.empty() ? "[" : ",";
                row += col[0] == '=' ? col.substr(1) : col[0] == '$' ? q(m.str(col.substr(1)))
                     : col == "@t" ? at : col == "@x" ? num(x) : col == "@y" ? num(y)
                     : col == "rot" ? num((int8_t)m.num("rot")) : num(m.num(col));
            }
            EXPECT_EQ(row + "]", rowsOf(takeRows())) << "type " << type << " #" << i;
        }
    }
}

// A class A position report at 0/0, 1.2 kn, course 45: one sentence.
static std::string classAReport(uint32_t mmsi) {
    aisenc::Bits b;
    b.put(1, 6).put(0, 2).put(mmsi, 30).put(0, 4).put(0x80, 8).put(12, 10).put(0, 1);
    b.put(0, 28).put(0, 27).put(450, 12).put(511, 9).put(0, 6).put(0, 25);
    return aisenc::sentences(b)[0];
}

// Rows nobody takes stop at the limit: the oldest go, the newest stays.
TEST_F(AisRows, QueueNobodyTakesStaysBounded) {
    const std::string busy = classAReport(111111111), newest = classAReport(222222222);
    const std::string row = "[111111111,1,0,20015089,20015089,12,450,511,-128,0]";
    for (size_t queued = 0; queued < AIS_QUEUE_MAX + AIS_QUEUE_MAX / 2; queued += row.size() + 2) {
        std::string l = busy;
        ProcessAIS(&l[0]);
    }
    std::string l = newest;
    ProcessAIS(&l[0]);
    std::string rows = rowsOf(takeRows());
    EXPECT_LT(rows.size(), (size_t)AIS_QUEUE_MAX);
    EXPECT_GT(rows.size(), (size_t)AIS_QUEUE_MAX / 4);
    EXPECT_EQ(row + ",\n", rows.substr(0, row.size() + 2));  // whole rows only
    EXPECT_EQ(",\n[222222222,1,0,20015089,20015089,12,450,511,-128,0]", rows.substr(rows.rfind(",\n")));
    EXPECT_EQ("", rowsOf(takeRows())) << "each row goes out once";
}

// The hours around the spring clock change, with the out-of-range minutes and seconds six bits allow.
TEST_F(AisRows, BaseStationTimes) {
    ScopedEnv cet("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const int minSec[][2] = {{0, 0}, {59, 59}, {12, 60}, {63, 63}, {0, 61}};
    aisenc::Bits pos;
    pos.put(18, 6).put(0, 2).put(222222222, 30).put(0, 130);
    for (int hour = 0; hour < 4; hour++) {
        for (const auto &ms : minSec) {
            aisenc::Bits b;
            b.put(4, 6).put(0, 2).put(2190047, 30).put(2026, 14).put(3, 4).put(29, 5);
            b.put(hour, 5).put(ms[0], 6).put(ms[1], 6).put(0, 90);
            for (std::string l : aisenc::sentences(b)) ProcessAIS(&l[0]);
            for (std::string l : aisenc::sentences(pos)) ProcessAIS(&l[0]);
            std::string t = localTime(2026, 3, 29, hour, ms[0], ms[1]);
            EXPECT_EQ("[2190047,4," + t + ",20015089,20015089],\n[222222222,18," + t +
                          ",20015089,20015089,0,0,0,-128,0]",
                      rowsOf(takeRows()))
                << hour << ":" << ms[0] << ":" << ms[1];
        }
    }
}

// A text ends at its first '@' and loses its trailing blanks.
TEST_F(AisRows, StaticRowsKeepTheirTextsAndOddMessagesMakeNone) {
    aisenc::Bits b5, bB, b27;
    b5.put(5, 6).put(0, 2).put(333333333, 30).put(0, 2).put(9074729, 30).text("C\"1", 7);
    b5.text("AB @ C", 20).put(70, 8).put(100, 9).put(20, 9).put(10, 6).put(12, 6).put(1, 4);
    b5.put(0, 20).put(55, 8).text("HAMBURG/DE", 20).put(0, 2);
    for (std::string l : aisenc::sentences(b5)) ProcessAIS(&l[0]);
    EXPECT_EQ("[333333333,5,0,0,0,\"C\\\"1\",\"AB\",70,\"HAMBURG\\/DE\",0,100,20,10,12,55,9074729]",
              rowsOf(takeRows()));
    // part B of an MMSI whose part A never came: no row
    bB.put(24, 6).put(0, 2).put(444444444, 30).put(1, 2).put(37, 8).put(0, 120);
    for (std::string l : aisenc::sentences(bB)) ProcessAIS(&l[0]);
    b27.put(27, 6).put(0, 90);
    for (std::string l : aisenc::sentences(b27)) ProcessAIS(&l[0]);
    EXPECT_EQ("", rowsOf(takeRows()));
}

// Own-ship reports by class and gpsfix.gpsSource: the row, and gpsfix when it takes the report.
TEST_F(AisRows, OwnShip) {
    struct Case {
        int msgid, source;
        const char *row;
        int fix, rot;
    } cases[] = {
        {1, 2, "[555,1,0,21127038,12852955,100,900,45,10,3]", 0, 0},  // another MMSI
        {1, 0, "[246000000,1,0,0,0,100,900,45,10,3]", 0, 0},
        {1, 1, "[246000000,1,0,20015089,20015089,10,1234,511,-128,3]", 0, 0},
        {1, 2, "[246000000,1,0,21127038,12852955,100,900,45,10,3]", 800, 10},
        {18, 0, "[246000000,18,0,21127038,12852955,100,900,45,-128,0]", 0, 0},
        {18, 1, "[246000000,18,0,20015089,20015089,10,1234,511,-128,0]", 0, 0},
        {18, 2, "[246000000,18,0,21127038,12852955,100,900,45,-128,0]", 801, -128},
    };
    for (const Case &c : cases) {
        memset(&gpsfix, 0, sizeof(gpsfix));
        gpsfix.aisuserid = 246000000;
        gpsfix.gpsSource = c.source;
        if (c.source == 1) {  // the NMEA fix the own row shows instead
            gpsfix.hdg = 511;
            gpsfix.cog = 123.45;
            gpsfix.sog = 0.5;
            gpsfix.rot = -128;
        }
        uint64_t mmsi = strstr(c.row, "[555,") ? 555 : 246000000;
        aisenc::Bits b;
        b.put(c.msgid, 6).put(0, 2).put((int64_t)mmsi, 30);
        if (c.msgid == 1)
            b.put(3, 4).put(10, 8).put(100, 10);
        else
            b.put(0, 8).put(100, 10);
        b.put(0, 1).put(10 * 600000, 28).put(54 * 600000, 27).put(900, 12).put(45, 9);
        b.put(0, 168 - b.size());
        std::string vdo = aisenc::sentences(b, "AIVDO")[0], vdo2 = vdo;
        ProcessAIS(&vdo[0]);
        EXPECT_EQ(c.row, rowsOf(takeRows())) << c.msgid << "/" << c.source;
        EXPECT_EQ(c.fix, gpsfix.fix) << c.msgid << "/" << c.source;
        if (c.fix) {
            EXPECT_DOUBLE_EQ(54, gpsfix.latY);
            EXPECT_DOUBLE_EQ(10, gpsfix.lonX);
            EXPECT_DOUBLE_EQ(100 * 0.0514444444, gpsfix.sog);
            EXPECT_DOUBLE_EQ(90, gpsfix.cog);
            EXPECT_DOUBLE_EQ(45, gpsfix.hdg);
            EXPECT_EQ(c.rot, gpsfix.rot);
            EXPECT_GT(gpsfix.lastFixTime, 0);
        }
        // the own-ship path learns the MMSI from the same sentence
        gpsfix.aisuserid = 0;
        EXPECT_EQ((int64_t)mmsi, ProcessAOS(&vdo2[0]));
        EXPECT_EQ(mmsi, gpsfix.aisuserid);
    }
    std::vector<std::string> notOwn = aisenc::sentences(aisenc::Bits().put(5, 6).put(0, 420), "AIVDO");
    EXPECT_EQ(1, ProcessAOS(&notOwn[0][0]));  // first of two parts
    EXPECT_EQ(0, ProcessAOS(&notOwn[1][0]));  // message 5 teaches no MMSI
    std::string badSum = "!AIVDO,1,1,,A,1,0*00";
    EXPECT_EQ(2, ProcessAOS(&badSum[0]));
}

// The value of "key" in a one-line JSON object: a string unquoted, true/false as 1/0, a number's text.
static std::string jsonValue(const std::string &line, const std::string &key) {
    size_t at = line.find("\"" + key + "\":");
    if (at == std::string::npos) return "<missing>";
    at += key.size() + 3;
    if (line[at] == '"') return line.substr(at + 1, line.find('"', at + 1) - at - 1);
    std::string v = line.substr(at, line.find_first_of(",}", at) - at);
    return v == "true" ? "1" : v == "false" ? "0" : v;
}

// gpsd's JSON keys and the encoder's field names that carry the same value.
static const char *const sameValue[][2] = {
    {"repeat", "repeat"}, {"mmsi", "userid"}, {"status", "nav_status"}, {"speed", "sog"},
    {"accuracy", "pos_acc"}, {"lon", "lon"}, {"lat", "lat"}, {"course", "cog"},
    {"heading", "hdg"}, {"second", "utc_sec"}, {"raim", "raim"}, {"imo", "imo"},
    {"ais_version", "version"}, {"shiptype", "shiptype"}, {"to_bow", "bow"},
    {"to_stern", "stern"}, {"to_port", "port"}, {"to_starboard", "starboard"},
    {"epfd", "pos_type"}, {"draught", "draught"}, {"dte", "dte"}, {"alt", "altitude"},
    {"cs", "unit_flag"}, {"display", "display_flag"}, {"dsc", "dsc_flag"},
    {"band", "band_flag"}, {"msg22", "msg22_flag"}, {"aid_type", "type"},
    {"off_position", "off_position"}, {"virtual_aid", "virtual_aton"},
    {"callsign", "callsign"}, {"shipname", "name"}, {"destination", "dest"},
};

// Compares one gpsdecode line with the message; returns the keys compared.
static int compare(const std::string &line, const aisenc::Message &m, int type) {
    int compared = 0;
    for (const auto &kv : sameValue) {
        const aisenc::Field *f = nullptr;
        for (const aisenc::Field &g : m.fields)
            if (g.name == kv[1]) f = &g;
        std::string got = jsonValue(line, kv[0]);
        if (f == nullptr || got == "<missing>") continue;
        EXPECT_EQ(f->width ? std::to_string(f->value) : f->text, got)
            << "type " << type << " " << kv[0] << "\n" << line;
        compared++;
    }
    char buf[64];
    if (type <= 3) {
        EXPECT_EQ(std::to_string((int8_t)m.num("rot")), jsonValue(line, "turn")) << line;
    } else if (type == 4) {
        snprintf(buf, sizeof(buf), "%04d-%02d-%02dT%02d:%02d:%02dZ", (int)m.num("utc_year"),
                 (int)m.num("utc_month"), (int)m.num("utc_day"), (int)m.num("utc_hour"),
                 (int)m.num("utc_minute"), (int)m.num("utc_second"));
        EXPECT_EQ(buf, jsonValue(line, "timestamp")) << line;
    } else if (type == 5) {
        int64_t eta = m.num("eta");
        snprintf(buf, sizeof(buf), "%02d-%02dT%02d:%02dZ", (int)(eta >> 16), (int)(eta >> 11) & 31,
                 (int)(eta >> 6) & 31, (int)eta & 63);
        EXPECT_EQ(buf, jsonValue(line, "eta")) << line;
    } else if (type == 21) {  // gpsd appends the name extension to the name
        EXPECT_EQ(0u, jsonValue(line, "name").find(m.str("name"))) << line;
    }
    return compared;
}

TEST(AisGpsdecode, EncoderAgreesWithGpsd) {
    if (system("command -v gpsdecode >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "gpsdecode not installed (Debian package gpsd-clients)";

    aisenc::Rng rng(20240605);
    std::vector<std::pair<int, aisenc::Message>> table;
    std::string text;
    for (int type : {1, 4, 5, 9, 18, 19, 21, 24, 124}) {  // 2 and 3 share 1's layout
        for (int i = 0; i < 300; i++) {
            table.emplace_back(type, aisenc::randomMessage(rng, type));
            for (const std::string &s : aisenc::sentences(table.back().second.bits, "AIVDM", 1 + i % 70, i % 10))
                text += s + "\n";
        }
    }
    const std::string dir = makeTempDir("ais-gpsdecode-");
    writeFile(dir + "/in.nmea", text);
    FILE *p = popen(("gpsdecode -u -s < " + dir + "/in.nmea").c_str(), "r");
    ASSERT_NE(nullptr, p);
    std::vector<std::string> lines;
    char buf[4096];
    while (fgets(buf, sizeof(buf), p)) lines.push_back(buf);
    pclose(p);
    removeTree(dir);

    ASSERT_EQ(table.size(), lines.size());
    for (size_t i = 0; i < table.size(); i++) {
        int type = table[i].first;
        EXPECT_EQ(std::to_string(type == 124 ? 24 : type), jsonValue(lines[i], "type"));
        EXPECT_GE(compare(lines[i], table[i].second, type), type == 24 ? 3 : 7) << lines[i];
    }
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
