// CRC-32 against zlib's crc32: whole runs, runs split at any point, and the
// no-inversion contract of ucrc32.
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "store/pack_store.h"

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
    // every byte value passes through the table in the random runs
    for (const std::string &in : {std::string(), std::string("a"), std::string(1, '\0'),
                                  std::string(8192, '\xff'), pseudoRandom(100003, 7)})
        EXPECT_EQ(zlibCrc(in), ~ucrc32(0xFFFFFFFFu, in.data(), (int)in.size())) << "length " << in.size();
    EXPECT_EQ(0xCBF43926u, ~ucrc32(0xFFFFFFFFu, "123456789", 9));

    const std::string data = pseudoRandom(200000, 3);
    for (size_t cut : {0ul, 1ul, 8191ul, 8192ul, 65536ul, 100000ul, 199999ul, 200000ul}) {
        uint32_t c = ucrc32(0xFFFFFFFFu, data.data(), (int)cut);
        c = ucrc32(c, data.data() + cut, (int)(data.size() - cut));
        EXPECT_EQ(zlibCrc(data), ~c) << "cut at " << cut;
    }
    for (int len : {0, -1, -65536}) EXPECT_EQ(0x12345678u, ucrc32(0x12345678u, "xyz", len));
    // no inversion inside: the running value of one zero byte from 0 is 0
    EXPECT_EQ(0u, ucrc32(0, "\0", 1));
}

}  // namespace
