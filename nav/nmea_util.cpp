/*
** nmea_util.cpp -- sentence utilities: finding a sentence start, stepping
** through comma fields, reading numbers, the checksum, and the position,
** date and time fields. Pure functions over NUL-terminated 8-bit text; they
** keep no state and allocate nothing.
**
** A sentence start is '$' or '!'; a field delimiter is ',', '*' or NUL.
*/
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "nav/nmea.h"

static inline int is_delim(char c) { return c == ',' || c == '*' || c == 0; }

/* Returns the first '$' or '!' of text, or NULL (also for NULL text). */
char *find_nmea_start(char *text) {
    if (text == NULL) return NULL;
    for (; *text; text++)
        if (*text == '$' || *text == '!') return text;
    return NULL;
}

/* Returns the byte behind the next delimiter; a NUL counts as one, so at the
** last field the result lies one byte past the terminator. NULL only for a
** NULL argument. */
char *nmea_next_field(char *p) {
    if (p == NULL) return NULL;
    while (!is_delim(*p)) p++;
    return p + 1;
}

/* Unsigned value of the field up to its delimiter; every byte counts as its
** code minus 48, with 32-bit wrap-around. NULL gives 0. */
uint32_t nmea_uint(const char *field) {
    uint32_t acc = 0;
    if (field == NULL) return 0;
    for (; !is_delim(*field); field++) acc = acc * 10u + (uint32_t)((int)(signed char)*field - 48);
    return acc;
}

/* Copies at most max bytes of the field, stopping before its delimiter, and
** terminates. dst must hold max+1 bytes. Returns the address of the NUL. */
char *nmea_copy_field(char *dst, const char *src, uint32_t max) {
    if (src == NULL || max == 0) {
        *dst = 0;
        return dst;
    }
    uint32_t i = 0;
    while (i < max && !is_delim(src[i])) {
        dst[i] = src[i];
        i++;
    }
    dst[i] = 0;
    return dst + i;
}

/* Walks from the start behind the sentence's '$'/'!' and folds the bytes
** into *result up to NUL, '!', '$' or '*'. Returns the stopping byte's
** address, or NULL when there is no start. */
static const char *checksum_walk(const char *sentence, unsigned char *result) {
    const char *p = sentence;
    while (*p && *p != '!' && *p != '$') p++;
    if (*p == 0) return NULL;
    unsigned char x = 0;
    for (p++; *p && *p != '!' && *p != '$' && *p != '*'; p++) {
        *result = x;
        x ^= (unsigned char)*p;
    }
    *result = x;
    return p;
}

/* Computes the XOR of the sentence into *result. Returns 0 when the sentence
** has a start and a '*', 1 otherwise. The digits are not read. */
int nmea_checksum(const char *sentence, unsigned char *result) {
    if (sentence == NULL || result == NULL) return 1;
    const char *stop = checksum_walk(sentence, result);
    if (stop == NULL) return 1;
    return *stop == '*' ? 0 : 1;
}

/* Checks the checksum. Returns 0 when it matches, 1 when the two bytes
** behind '*' are not hexadecimal, 2 for a NULL argument, no start, no '*',
** a second start, or a wrong value. */
int check_nmea_checksum(const char *sentence, unsigned char *result) {
    if (sentence == NULL || result == NULL) return 2;
    const char *stop = checksum_walk(sentence, result);
    if (stop == NULL || *stop != '*') return 2;
    const char *star = strchr(sentence, '*');
    if (star == NULL) return 2;
    int hi = ahextobin(star + 1);
    if ((signed char)star[1] < 0 || hi < 0) return 1;
    int lo = ahextobin(star + 2);
    if ((signed char)star[2] < 0 || lo < 0) return 1;
    return ((hi << 4) | lo) == *result ? 0 : 2;
}

/* Value of one hexadecimal digit of either case, or -1. */
int32_t ahextobin(const char *c) {
    if (*c >= '0' && *c <= '9') return *c - '0';
    if (*c >= 'A' && *c <= 'F') return *c - 'A' + 10;
    if (*c >= 'a' && *c <= 'f') return *c - 'a' + 10;
    return -1;
}

/* Tokenizer that keeps empty tokens: cuts the text at the next delimiter,
** moves the cursor one byte behind it and returns the token; NULL when the
** cursor stands on a NUL. */
char *xtrtok(int delimiter, char **cursor) {
    char *start = *cursor;
    char *p = start;
    if (*p == 0) return NULL;
    while (*p && *p != (char)delimiter) p++;
    *p = 0;
    *cursor = p + 1;
    return start;
}

/* Decimal degrees of a ddmm.mmmm or dddmm.mmmm field; negated only for a
** hemisphere 'W' (a southern latitude stays positive). 0.0 when the first
** '.' of the text does not stand four or five bytes on. */
double gps2float(const char *coordinate, const char *hemisphere) {
    static const int weights4[2] = {10, 1};
    static const int weights5[3] = {100, 10, 1};
    const char *dot = strchr(coordinate, '.');
    const int *w;
    int ndeg;
    double deg = 0;

    if (dot == NULL) return 0.0;
    switch (dot - coordinate) {
    case 4: w = weights4; ndeg = 2; break;
    case 5: w = weights5; ndeg = 3; break;
    default: return 0.0;
    }
    for (int i = 0; i < ndeg; i++) {
        char c = coordinate[i];
        deg += (c == ' ' ? 0 : (c - 48)) * w[i];
    }
    deg += atof(coordinate + ndeg) / 60.0;
    if (hemisphere && hemisphere[0] == 'W') deg = -deg;
    return deg;
}

/* mktime re-reads the zone file on every call (a stat when TZ is unset),
** which costs more than the rest of a sentence. Each thread therefore keeps
** mktime's result for the start of the last hour it converted; when
** localtime_r (which does not re-read the file) reports the same UTC offset
** and daylight flag at the first and the last second of that hour, no
** change of offset falls inside it, and a time within the hour is exactly
** the hour's result plus its minutes and seconds. Otherwise, and for
** fields out of their ranges, mktime itself answers. */
typedef struct HourCache {
    int valid;
    int year, mon, mday, hour;
    time_t base;
} HourCache;

static time_t mktime_cached(struct tm *tm) {
    static thread_local HourCache c;

    if (tm->tm_min < 0 || tm->tm_min > 59 || tm->tm_sec < 0 || tm->tm_sec > 59 || tm->tm_hour < 0 ||
        tm->tm_hour > 23 || tm->tm_mon < 0 || tm->tm_mon > 11 || tm->tm_mday < 1 || tm->tm_mday > 31 ||
        tm->tm_isdst != 0)
        return mktime(tm);
    if (!c.valid || c.year != tm->tm_year || c.mon != tm->tm_mon || c.mday != tm->tm_mday ||
        c.hour != tm->tm_hour) {
        struct tm h = *tm, first, last;
        h.tm_min = 0;
        h.tm_sec = 0;
        c.valid = 0;
        time_t base = mktime(&h);
        time_t end = base + 3599;
        if (base == (time_t)-1 || localtime_r(&base, &first) == NULL || localtime_r(&end, &last) == NULL ||
            first.tm_gmtoff != last.tm_gmtoff || first.tm_isdst != last.tm_isdst)
            return mktime(tm);
        c.base = base;
        c.year = tm->tm_year;
        c.mon = tm->tm_mon;
        c.mday = tm->tm_mday;
        c.hour = tm->tm_hour;
        c.valid = 1;
    }
    return c.base + tm->tm_min * 60 + tm->tm_sec;
}

/* Seconds of an hhmmss time field and a ddmmyy date field (20yy), read as
** local time by mktime; an empty date takes today's UTC date. */
time_t gps2time(const char *timeField, const char *dateField) {
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    if (dateField[0] != ',') {
        sscanf(dateField, "%2d%2d%2d", &tm.tm_mday, &tm.tm_mon, &tm.tm_year);
        tm.tm_year += 100;
        tm.tm_mon -= 1;
    } else {
        time_t now = time(NULL);
        struct tm utc;
        gmtime_r(&now, &utc);
        tm = utc;
    }
    sscanf(timeField, "%2d%2d%2d", &tm.tm_hour, &tm.tm_min, &tm.tm_sec);
    return mktime_cached(&tm);
}
