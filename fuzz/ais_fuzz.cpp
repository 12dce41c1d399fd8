/*
** ais_fuzz.cpp -- fuzz target for the AIS path: lines of input go through
** ProcessAIS (and ProcessAOS for !AIVDO), as the sentence interpreter hands
** them over, and the row queue is drained as a status reply would.
**
** The first input byte holds options: bit 0 rewrites each line's checksum
** to the right value, so mutated sentences get past the checksum gate and
** reach assembly and the parsers; bit 1 sets an own MMSI and bits 2-3 the
** gpsSource, so the own-ship paths run too.
*/
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "ais/ais.h"
#include "fuzz_feed.h"
#include "nav/nmea.h"

/* The fix record and feed state that the AIS path reads and writes; the
** real ones live with the sentence interpreter, which is not linked here. */
GpsFix gpsfix;
int32_t nmea_stat;

/* Writes the right two hex digits behind the first '*' when they fit. */
static void fix_checksum(char *line) {
    char *start = strpbrk(line, "!$");
    char *star = start ? strchr(start, '*') : NULL;
    if (star == NULL || star[1] == 0 || star[2] == 0) return;
    unsigned char x = 0;
    for (char *p = start + 1; p < star; p++) {
        if (*p == '!' || *p == '$') return;
        x ^= (unsigned char)*p;
    }
    static const char hex[] = "0123456789ABCDEF";
    star[1] = hex[x >> 4];
    star[2] = hex[x & 15];
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static ResponseBuffer out;
    if (size == 0) return 0;
    uint8_t opts = data[0];
    data++;
    size--;
    gpsfix.aisuserid = (opts & 2) ? 123456789u : 0u;
    gpsfix.gpsSource = (opts >> 2) & 3;

    char line[1024];
    size_t at = 0;
    while (at < size) {
        size_t n = fuzz_next_line(data, size, &at, line, sizeof(line));
        if (opts & 1) fix_checksum(line);
        char copy[1024];
        memcpy(copy, line, n + 1);
        ProcessAIS(line);
        if (strncmp(copy, "!AIVDO", 6) == 0) ProcessAOS(copy);
    }
    buffReset(&out);
    getAisData(&out);
    return 0;
}
