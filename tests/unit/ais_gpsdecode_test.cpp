// Cross-check of the test-side encoder with gpsd's gpsdecode: a seeded table
// of the random messages that the row tests feed is decoded by an
// independent program, field by field. Needs gpsdecode (gpsd-clients).
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "support/ais_encoder.h"
#include "support/files.h"

// The value of "key" in a one-line JSON object: a string without its
// quotes, true/false as 1/0, or the number's text.
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
    for (int type : {1, 2, 3, 4, 5, 9, 18, 19, 21, 24, 124}) {
        for (int i = 0; i < 300; i++) {
            table.emplace_back(type, aisenc::randomMessage(rng, type));
            for (const std::string &s : table.back().second.sentences("AIVDM", 1 + i % 70, i % 10)) text += s + "\n";
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
