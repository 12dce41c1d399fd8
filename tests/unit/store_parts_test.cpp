// Pure parts of the store: tile keys, the gazetteer's path numbers, grid
// positions, and two oracles: the number text against printf, CRC-32 against zlib.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <random>
#include <string>

#include "store/pack_store.h"

TEST(StoreKeys, TileKeys) {
    struct Case {
        const char *text;
        bool coords;  // getTile form, else getTileI form
        int rc;
        int64_t key;
    } cases[] = {
        {"A2/3/1/0", true, 0, 3298535931904LL},
        {"A000002/3298535931904", false, 0, 3298535931904LL},
        // zoom as unsigned 32 bits; y and x sign-extended over the high bits
        {"A2/-1/0/0", true, 0, (int64_t)(0xffffffffULL << 40)},
        {"A2/3/-1/0", true, 0, (int64_t)((3ULL << 40) | (0xffffffffffffffffULL << 20))},
        {"A2/3/0/-1", true, 0, -1},
        // huge numbers keep their low 32 bits after saturating, never undefined
        {"A2/99999999999999999999/0/0", true, 0, (int64_t)(0xffffffffULL << 40)},
        {"A2/18446744073709551615", false, 0, -1},
        {"A2/-1", false, 0, -1},
        {"A2/3/1", true, -1, 0},
        {"2/3/1/0", true, -1, 0},
        {"A2/", false, -1, 0},
        {"Ax/1", false, -1, 0},
    };
    for (const auto &c : cases) {
        int64_t key = 0;
        int rc = c.coords ? tile_key_of_coords(c.text, &key) : tile_key_of_id(c.text, &key);
        EXPECT_EQ(c.rc, rc) << c.text;
        EXPECT_EQ(c.key, key) << c.text;
    }
}

TEST(StoreKeys, GazetteerPathNumbers) {
    struct Case {
        const char *text;
        int count;
        int32_t x, y, range;
    } cases[] = {
        {"100/200", 2, 100, 200, 5000},
        {"100/200/50", 3, 100, 200, 50},
        {"-7/8/", 2, -7, 8, 5000},
        {"100", 1, 100, 0, 5000},
        {"", 0, 0, 0, 5000},
        {"4294967296/1/1", 3, 0, 1, 1},  // 2^32 keeps its low 32 bits
    };
    for (const auto &c : cases) {
        int32_t x = -1, y = -1, range = -1;
        EXPECT_EQ(c.count, gaz_parse(c.text, &x, &y, &range)) << c.text;
        EXPECT_EQ(c.x, x) << c.text;
        EXPECT_EQ(c.y, y) << c.text;
        EXPECT_EQ(c.range, range) << c.text;
    }
}

TEST(StoreKeys, GridPositionsTruncate) {
    struct Case {
        double lat, lon;
        int32_t y, x;
    } cases[] = {
        {0, 0, 20015089, 20015089},
        {54, 10, 12852955, 21127038},
        {0, -180, 20015089, 0},
        {0, 180, 20015089, 40030178},
        // no position: every axis that is not a number reads INT32_MIN
        {91, 181, INT32_MIN, 40141373},
        {NAN, NAN, INT32_MIN, INT32_MIN},
        {-90, INFINITY, INT32_MIN, INT32_MIN},
    };
    for (const auto &c : cases) {
        int32_t y = -1, x = -1;
        toMerc(c.lat, c.lon, &y, &x);
        EXPECT_EQ(c.y, y) << c.lat << "," << c.lon;
        EXPECT_EQ(c.x, x) << c.lat << "," << c.lon;
    }
    // the AIS unit form (1/10000 minute) lands on the same grid point
    int32_t y1, x1, y2, x2;
    toMerc(54.5, 10.25, &y1, &x1);
    pos2merc(54 * 600000 + 300000, 10 * 600000 + 150000, &y2, &x2);
    EXPECT_EQ(y1, y2);
    EXPECT_EQ(x1, x2);
}

TEST(StoreKeys, DoubleTextMatchesPrintf) {
    std::vector<double> values = {
        0.0, -0.0, 1.5, -2250.0, 0.0078125, 0.0234375, -0.0078125,  // exact ties round to even
        0.0000005, 0.0000015, 0.0000025, 1e-7, -1e-9, 4.9e-324, 2.2250738585072014e-308, 999999.9999995,
        123456789.123456789, 9007199254740991.0, 9007199254740992.0, INFINITY, -INFINITY,
        1.7976931348623157e308 / 1e160, -1.7976931348623157e308,  // the widest text of all
    };
    std::mt19937_64 rng(42);
    for (int i = 0; i < 20000; i++) {
        // random bit patterns, and values with few binary digits, where halfway cases occur
        uint64_t bits = rng();
        double d;
        memcpy(&d, &bits, sizeof(d));
        if (std::isnan(d)) continue;
        values.push_back(d);
        values.push_back(std::ldexp((double)(int64_t)(rng() % 2000001) - 1000000.0, -(int)(rng() % 40)));
        values.push_back(std::ldexp((double)(rng() >> 11), -(int)(rng() % 80)));
    }
    int mismatches = 0;
    for (double v : values) {
        char ours[SQL_DOUBLE_TEXT], ref[512];
        snprintf(ref, sizeof(ref), "%lf", v);
        int n = sql_format_double(ours, v);
        if (std::string(ref) != ours || n != (int)strlen(ref)) {
            if (++mismatches < 10) ADD_FAILURE() << "value " << v << ": printf " << ref << ", ours " << ours;
        }
    }
    EXPECT_EQ(0, mismatches);
}

namespace {

uint32_t zlibCrc(const std::string &data) {
    return (uint32_t)crc32(crc32(0L, Z_NULL, 0), (const Bytef *)data.data(), (uInt)data.size());
}

std::string pseudoRandom(size_t n, uint32_t seed) {
    std::string s(n, 0);
    for (size_t i = 0; i < n; i++) {
        seed = seed * 1103515245u + 12345u;
        s[i] = (char)(seed >> 16);
    }
    return s;
}

TEST(Crc32, MatchesZlibWholeOrSplitAndKeepsTheValueForNoBytes) {
    // every byte value passes through the table; cuts 0 and 200000 are the whole run
    const std::string data = pseudoRandom(200000, 3);
    for (size_t cut : {0ul, 1ul, 8192ul, 100000ul, 199999ul, 200000ul}) {
        uint32_t c = ucrc32(0xFFFFFFFFu, data.data(), (int)cut);
        c = ucrc32(c, data.data() + cut, (int)(data.size() - cut));
        EXPECT_EQ(zlibCrc(data), ~c) << "cut at " << cut;
    }
    for (int len : {0, -1, -65536}) EXPECT_EQ(0x12345678u, ucrc32(0x12345678u, "xyz", len));
}

}  // namespace
