/*
** crc32.cpp -- CRC-32 of IEEE 802.3 (the one zlib computes): the byte table
** poly8_lookup, the running step ucrc32, and the /getcrc32/ service that
** reports the CRC and size of a pack file on disk.
**
** The running value is kept without inversion; callers start it at
** 0xFFFFFFFF and invert the end value, as the download thread does.
*/
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

/* Table entry i is i run through eight shift-and-reduce steps of the
** reflected polynomial 0xEDB88320; built by the compiler. */
static constexpr uint32_t crc32_entry(uint32_t i) {
    for (int k = 0; k < 8; k++) i = (i & 1) ? (i >> 1) ^ 0xEDB88320u : i >> 1;
    return i;
}

struct Crc32Table {
    uint32_t v[256];
};

static constexpr Crc32Table crc32_build(void) {
    Crc32Table t{};
    for (uint32_t i = 0; i < 256; i++) t.v[i] = crc32_entry(i);
    return t;
}

static constexpr Crc32Table crc32Table = crc32_build();
extern const uint32_t (&poly8_lookup)[256];
const uint32_t (&poly8_lookup)[256] = crc32Table.v;

/* Advances crc over length bytes of data, one table step per byte, with no
** inversion before or after. A length below 1 returns crc unchanged. */
uint32_t ucrc32(uint32_t crc, const void *data, int length) {
    const unsigned char *p = (const unsigned char *)data;
    for (int i = 0; i < length; i++) crc = poly8_lookup[(crc ^ p[i]) & 0xff] ^ (crc >> 8);
    return crc;
}

/* Opens packDir + name for reading. The name is not checked: the service
** only compares a file on disk with the server's list and the listener
** is bound to loopback. Returns the descriptor, or -1 (also for a path
** that does not fit). */
static int crc32_open(const char *name) {
    char path[4096];
    int n = snprintf(path, sizeof(path), "%s%s", mrApp.packDir, name);
    if (n < 0 || (size_t)n >= sizeof(path)) return -1;
    return open(path, O_RDONLY);
}

/* Route /getcrc32/<name>: replies {"crc32":"%08x","size":%d} for the file
** packDir + name, or {"crc32":"none","size":0} when it cannot be opened
** (after a second, identical try). Reply type 5, no cache. A file is read
** no further than 2 GiB, the most a pack can hold: the name comes from the
** request, and a device that never ends must not keep the thread reading.
** Returns 0. */
int getCrc32(ResponseBuffer *b, const char *name) {
    char json[64];
    unsigned char block[8192];
    uint32_t crc = 0xFFFFFFFFu;
    int64_t size = 0;
    ssize_t got;

    int fd = crc32_open(name);
    if (fd < 0) fd = crc32_open(name);
    buffReset(b);
    if (fd < 0) {
        buffAddChar(b, "{\"crc32\":\"none\",\"size\":0}");
        buffSendHttp(b, NULL, MT_REPLY, 0);
        return 0;
    }
    while (size <= INT32_MAX && (got = read(fd, block, sizeof(block))) > 0) {
        crc = ucrc32(crc, block, (int)got);
        size += got;
    }
    close(fd);
    /* a larger file reports the largest count */
    if (size > INT32_MAX) size = INT32_MAX;
    snprintf(json, sizeof(json), "{\"crc32\":\"%08x\",\"size\":%d}", (unsigned)~crc, (int)size);
    buffAddChar(b, json);
    buffSendHttp(b, NULL, MT_REPLY, 0);
    return 0;
}
