/*
** ais_rows.cpp -- AIS dispatch and target rows: ProcessAIS decodes each
** complete message and turns it into one row of JSON text, queued in
** aisjson until the next status reply takes the whole queue (getAisData).
**
** The host keeps no target table; the client merges rows by MMSI. Rows come
** in three shapes: position (1, 2, 3, 9, 18), static (5, 19, 21, 24) and
** base station (4). Own-ship class A and B reports may feed gpsfix,
** depending on gpsfix.gpsSource.
**
** aisjson is the only shared state here and aismutex guards it alone; the
** lock is held for the append or the take and nothing else. aisPartA and
** aistime belong to the feed thread.
*/
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "ais/ais.h"
#include "nav/nmea.h"
#include "shell/app_record.h"
#include "store/pack_store.h"

/* The queue of rows, joined by ",\n". It grows geometrically up to
** AIS_QUEUE_MAX; it is emptied, not shrunk, by each status reply. */
typedef struct AisText {
    char *data;
    size_t length;
    size_t capacity;
} AisText;

static AisText aisjson;
static pthread_mutex_t aismutex = PTHREAD_MUTEX_INITIALIZER;

AisMsg24 aisPartA;

#define KNOT_MS 0.0514444444 /* tenths of a knot in metres per second */

/* Frees the queue at exit; a row appended after this starts a new one. */
__attribute__((destructor)) static void aisjson_teardown(void) {
    pthread_mutex_lock(&aismutex);
    free(aisjson.data);
    memset(&aisjson, 0, sizeof(aisjson));
    pthread_mutex_unlock(&aismutex);
}

/* Appends n bytes; out of memory ends the process with status 1, as a
** growing reply does. Called with aismutex held. */
static void aisjson_add(const char *p, size_t n) {
    if (aisjson.length + n + 1 > aisjson.capacity) {
        size_t want = aisjson.capacity ? aisjson.capacity * 2 : 4096;
        while (want < aisjson.length + n + 1) want *= 2;
        char *grown = (char *)realloc(aisjson.data, want);
        if (grown == NULL) exit(1);
        aisjson.data = grown;
        aisjson.capacity = want;
    }
    memcpy(aisjson.data + aisjson.length, p, n);
    aisjson.length += n;
    aisjson.data[aisjson.length] = 0;
}

/* Queues one row; an empty text queues nothing. A row that would take the
** queue past AIS_QUEUE_MAX drops the rows waiting before it. */
static void ais_queue_row(const char *row) {
    if (row[0] == 0) return;
    size_t n = strlen(row);
    pthread_mutex_lock(&aismutex);
    if (aisjson.length + 2 + n >= AIS_QUEUE_MAX) aisjson.length = 0;
    if (aisjson.length > 0) aisjson_add(",\n", 2);
    aisjson_add(row, n);
    pthread_mutex_unlock(&aismutex);
}

/* Row text is written by hand rather than with snprintf, which took half
** the time of a message; the output is the same as the printf formats
** named at each row. The writer stops at the end of its buffer, which the
** bounded fields never reach. */
typedef struct RowWriter {
    char *p;
    char *end; /* last byte, kept for the NUL */
} RowWriter;

static void rw_init(RowWriter *w, char *row, size_t size) {
    w->p = row;
    w->end = row + size - 1;
}

static void rw_text(RowWriter *w, const char *s) {
    while (*s && w->p < w->end) *w->p++ = *s++;
    *w->p = 0;
}

/* Decimal text of v, as %d, %u or %lu print it for values in their range;
** two digits per division. */
static void rw_num(RowWriter *w, int64_t v) {
    static const char pairs[] =
        "0001020304050607080910111213141516171819202122232425262728293031323334353637383940"
        "4142434445464748495051525354555657585960616263646566676869707172737475767778798081"
        "828384858687888990919293949596979899";
    static_assert(sizeof(pairs) == 201, "two digits for each of 0 to 99");
    char tmp[24];
    char *t = tmp + sizeof(tmp);
    uint64_t u = v < 0 ? 0 - (uint64_t)v : (uint64_t)v;
    while (u >= 100) {
        unsigned d = (unsigned)(u % 100);
        u /= 100;
        t -= 2;
        memcpy(t, pairs + 2 * d, 2);
    }
    if (u >= 10) {
        t -= 2;
        memcpy(t, pairs + 2 * u, 2);
    } else {
        *--t = (char)('0' + u);
    }
    if (v < 0) *--t = '-';
    char *stop = tmp + sizeof(tmp);
    while (t < stop && w->p < w->end) *w->p++ = *t++;
    *w->p = 0;
}

/* The columns common to all rows: "[%lu,%u,%u". */
static void rw_head(RowWriter *w, uint64_t userid, unsigned msgid) {
    rw_text(w, "[");
    rw_num(w, (int64_t)userid);
    rw_text(w, ",");
    rw_num(w, msgid);
    rw_text(w, ",");
    rw_num(w, (unsigned)aistime);
}

/* Appends ",%d" for each value. */
static void rw_nums(RowWriter *w, const int64_t *v, int n) {
    for (int i = 0; i < n; i++) {
        rw_text(w, ",");
        rw_num(w, v[i]);
    }
}

/* Position row "[%lu,%u,%u,%d,%d,%d,%d,%d,%d,%d]": MMSI, message, aistime,
** X, Y, sog, cog, hdg, rot, nav_status. */
static void row_position(char *row, size_t size, uint64_t userid, unsigned msgid, int32_t x,
                         int32_t y, int sog, int cog, int hdg, int rot, int navStatus) {
    RowWriter w;
    const int64_t v[] = {x, y, sog, cog, hdg, rot, navStatus};
    rw_init(&w, row, size);
    rw_head(&w, userid, msgid);
    rw_nums(&w, v, 7);
    rw_text(&w, "]");
}

/* Truncation toward zero into 32 bits, for the own ship's heading, course
** and speed. NaN and values out of range give INT32_MIN, the value the x86
** conversion instruction yields, as toMerc does for positions, so a row
** reads the same on every build instead of an undefined conversion. */
static int32_t trunc32(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return (int32_t)v;
}

/* Grid position of a raw AIS position (1/10000 minute). */
static void ais_merc_raw(int64_t lat, int64_t lon, int32_t *y, int32_t *x) {
    pos2merc((int32_t)lat, (int32_t)lon, y, x);
}

/* Writes src as a JSON string: up to the first NUL or '@' (the end of an
** AIS text), control characters 8, 9, 10, 12, 13 and '"', '/', '\' escaped,
** trailing blanks removed. dst must hold 2*strlen(src)+3 bytes. */
void aisJsonString(char *dst, const char *src) {
    char *d = dst;
    *d++ = '"';
    char *body = d;
    for (const char *s = src; *s && *s != '@'; s++) {
        /* the apostrophe stays bare in AIS texts */
        char esc = *s == '\'' ? 0 : buffJsonEscape[(unsigned char)*s];
        if (esc) {
            *d++ = '\\';
            *d++ = esc;
        } else {
            *d++ = *s;
        }
    }
    while (d > body && d[-1] == ' ') d--;
    *d++ = '"';
    *d = 0;
}

/* The own ship's place and motion from gpsfix, in row units: world
** metres, degrees, tenths of a degree, tenths of a knot. */
static void own_motion(int32_t *y, int32_t *x, int *hdg, int *cog, int *sog) {
    toMerc(MR_LOAD(gpsfix.latY), MR_LOAD(gpsfix.lonX), y, x);
    *hdg = trunc32(MR_LOAD(gpsfix.hdg));
    *cog = trunc32(MR_LOAD(gpsfix.cog) * 10);
    *sog = trunc32(round(MR_LOAD(gpsfix.sog) / KNOT_MS));
}

/* Fills gpsfix from the own ship's report (raw position, heading, course
** in tenths of a degree, speed in tenths of a knot) with the given fix. */
static void own_fix_from_report(int32_t lat, int32_t lon, int hdg, int cog, int sog, int32_t rot,
                                int32_t fix) {
    double dlat, dlon;
    pos2ddd(lat, lon, &dlat, &dlon);
    MR_STORE(gpsfix.latY, dlat);
    MR_STORE(gpsfix.lonX, dlon);
    MR_STORE(gpsfix.hdg, (double)hdg);
    MR_STORE(gpsfix.cog, cog / 10.0);
    MR_STORE(gpsfix.sog, sog * KNOT_MS);
    MR_STORE(gpsfix.rot, rot);
    MR_STORE(gpsfix.lastFixTime, time(NULL));
    MR_STORE(gpsfix.fix, fix);
}

/* Position row of a class A report, with the own-ship rules: gpsSource 1
** takes position and motion from gpsfix, 2 feeds gpsfix from the report
** (fix 800), any other source hides the own position as 0, 0. */
static void row_class_a(const AisMsg3 *m, char *row, size_t size) {
    int32_t x, y;
    int sog = m->sog, cog = m->cog, hdg = m->hdg, rot = (int8_t)m->rot;

    int32_t source = MR_LOAD(gpsfix.gpsSource);
    if (m->userid != MR_LOAD(gpsfix.aisuserid)) {
        ais_merc_raw(m->lat, m->lon, &y, &x);
    } else if (source == 1) {
        own_motion(&y, &x, &hdg, &cog, &sog);
        rot = MR_LOAD(gpsfix.rot);
    } else if (source == 2) {
        ais_merc_raw(m->lat, m->lon, &y, &x);
        own_fix_from_report(m->lat, m->lon, m->hdg, m->cog, m->sog, (int8_t)m->rot, 800);
    } else {
        x = 0;
        y = 0;
    }
    row_position(row, size, m->userid, m->msgid, x, y, sog, cog, hdg, rot, m->nav_status);
}

/* Position row of a class B report: rot is always -128 and nav_status 0.
** Unlike class A, an own ship with another source keeps its reported
** place. gpsSource 2 feeds gpsfix with fix 801. */
static void row_class_b(const AisMsg18 *m, char *row, size_t size) {
    int32_t x, y;
    int sog = m->sog, cog = m->cog, hdg = m->hdg;

    int own = m->userid == MR_LOAD(gpsfix.aisuserid);
    int32_t source = MR_LOAD(gpsfix.gpsSource);
    if (own && source == 1) {
        own_motion(&y, &x, &hdg, &cog, &sog);
    } else {
        ais_merc_raw(m->lat, m->lon, &y, &x);
        if (own && source == 2) own_fix_from_report(m->lat, m->lon, m->hdg, m->cog, m->sog, -128, 801);
    }
    row_position(row, size, m->userid, m->msgid, x, y, sog, cog, hdg, -128, 0);
}

/* Position row of a SAR aircraft: no heading, rot or status; sog as sent. */
static void row_sar(const AisMsg9 *m, char *row, size_t size) {
    int32_t x, y;
    ais_merc_raw(m->lat, m->lon, &y, &x);
    row_position(row, size, m->userid, m->msgid, x, y, m->sog, m->cog, 511, -128, 15);
}

/* mktime of a base station's fields. mktime re-reads the time zone file on
** every call, which costs microseconds, and base stations report every few
** seconds; so the result for the report's hour is kept and its minutes and
** seconds are added, as long as the UTC offset is the same at both ends.
** Otherwise, and for a new hour, mktime decides. Feed thread only. */
static time_t ais_mktime(struct tm *tm) {
    static struct {
        int valid, year, mon, mday, hour;
        time_t base;
    } hour;
    if (hour.valid && hour.year == tm->tm_year && hour.mon == tm->tm_mon &&
        hour.mday == tm->tm_mday && hour.hour == tm->tm_hour) {
        time_t t = hour.base + tm->tm_min * 60 + tm->tm_sec;
        struct tm atBase, atT;
        localtime_r(&hour.base, &atBase);
        localtime_r(&t, &atT);
        if (atBase.tm_gmtoff == atT.tm_gmtoff) return t;
    }
    struct tm top = *tm;
    top.tm_min = 0;
    top.tm_sec = 0;
    time_t base = mktime(&top);
    hour.valid = base != (time_t)-1;
    hour.year = tm->tm_year;
    hour.mon = tm->tm_mon;
    hour.mday = tm->tm_mday;
    hour.hour = tm->tm_hour;
    hour.base = base;
    return mktime(tm);
}

/* Sets aistime from a base station's UTC fields, read as local time like
** the fix's navtime, and makes the base station row. */
static void row_base_station(const AisMsg4 *m, char *row, size_t size) {
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    tm.tm_year = m->utc_year - 1900;
    tm.tm_mon = m->utc_month - 1;
    tm.tm_mday = m->utc_day;
    tm.tm_hour = m->utc_hour;
    tm.tm_min = m->utc_minute;
    tm.tm_sec = m->utc_second;
    aistime = ais_mktime(&tm);

    int32_t x, y;
    ais_merc_raw(m->lat, m->lon, &y, &x);
    /* "[%lu,%u,%u,%d,%d]" */
    RowWriter w;
    const int64_t v[] = {x, y};
    rw_init(&w, row, size);
    rw_head(&w, m->userid, 4);
    rw_nums(&w, v, 2);
    rw_text(&w, "]");
}

/* JSON strings of the text columns: 20 characters at most, each escaped to
** at most two bytes, plus quotes and NUL. */
typedef char AisJsonField[2 * 20 + 3];

/* Static row "[%lu,%u,%u,%d,%d,%s,%s,%d,%s,%lu,%d,%d,%d,%d,%d]": MMSI,
** message, aistime, X, Y, callsign, name, type, destination (texts already
** JSON strings), ETA, bow, stern, port, starboard, draught; message 5 adds
** a sixteenth column ",%d", the IMO number, when hasImo is set. */
static void row_static(char *row, size_t size, uint64_t userid, unsigned msgid, int32_t x,
                       int32_t y, const char *callsign, const char *name, int type,
                       const char *dest, uint32_t eta, int bow, int stern, int port,
                       int starboard, int draught, int hasImo, int32_t imo) {
    RowWriter w;
    const int64_t pos[] = {x, y};
    const int64_t tail[] = {eta, bow, stern, port, starboard, draught};
    rw_init(&w, row, size);
    rw_head(&w, userid, msgid);
    rw_nums(&w, pos, 2);
    rw_text(&w, ",");
    rw_text(&w, callsign);
    rw_text(&w, ",");
    rw_text(&w, name);
    rw_text(&w, ",");
    rw_num(&w, type);
    rw_text(&w, ",");
    rw_text(&w, dest);
    rw_nums(&w, tail, 6);
    if (hasImo) {
        rw_text(&w, ",");
        rw_num(&w, imo);
    }
    rw_text(&w, "]");
}

static void row_static_voyage(const AisMsg5 *m, char *row, size_t size) {
    AisJsonField callsign, name, dest;
    aisJsonString(callsign, m->callsign);
    aisJsonString(name, m->name);
    aisJsonString(dest, m->dest);
    row_static(row, size, m->userid, m->msgid, 0, 0, callsign, name, m->shiptype, dest, m->eta,
               m->bow, m->stern, m->port, m->starboard, m->draught, 1, m->imo);
}

/* The shorter static row of 19, 21 and 24: no IMO column. */
static void row_static_short(char *row, size_t size, uint64_t userid, unsigned msgid,
                             int32_t x, int32_t y, const char *callsign, const char *name,
                             int type, const char *dest, int bow, int stern, int port,
                             int starboard) {
    AisJsonField jcallsign, jname, jdest;
    aisJsonString(jcallsign, callsign);
    aisJsonString(jname, name);
    aisJsonString(jdest, dest);
    row_static(row, size, userid, msgid, x, y, jcallsign, jname, type, jdest, 0, bow, stern, port,
               starboard, -1, 0, 0);
}

static void row_class_b_extended(const AisMsg19 *m, char *row, size_t size) {
    int32_t x, y;
    ais_merc_raw(m->lat, m->lon, &y, &x);
    row_static_short(row, size, m->userid, m->msgid, x, y, "", m->name, m->shiptype, "",
                     m->bow, m->stern, m->port, m->starboard);
}

/* Aid to navigation: the aid type in the ship type column; the name
** extension is left out. */
static void row_aid(const AisMsg21 *m, char *row, size_t size) {
    int32_t x, y;
    ais_merc_raw(m->lat, m->lon, &y, &x);
    row_static_short(row, size, m->userid, m->msgid, x, y, "", m->name, m->type, "", m->bow,
                     m->stern, m->port, m->starboard);
}

/* Class B static data: part A is kept; part B of the same MMSI as the kept
** part A makes a row with A's name and B's other fields (the vendor text in
** the destination column). Part A stays, so later parts B give rows too. */
static void row_class_b_static(const AisMsg24 *m, char *row, size_t size) {
    if (m->part_number == 0) {
        aisPartA = *m;
        return;
    }
    if (m->userid != aisPartA.userid) return;
    row_static_short(row, size, m->userid, m->msgid, 0, 0, m->callsign, aisPartA.name,
                     m->shiptype, m->vendor_id, m->bow, m->stern, m->port, m->starboard);
}

/* Takes one !AIVDM or !AIVDO sentence; a complete message that its parser
** accepts becomes one queued row (message 24 part A is kept instead).
** Failures are silent. */
void ProcessAIS(char *sentence) {
    char row[512];

    if (assemble_vdm(&ais, sentence) != VDM_COMPLETE) return;
    ais.msgid = (uint8_t)get_6bit(&ais.six, 6);
    row[0] = 0;

    switch (ais.msgid) {
    case 1:
    case 2:
    case 3: {
        AisMsg3 m;
        if (parse_ais_3(&ais, &m) != 0) return;
        row_class_a(&m, row, sizeof(row));
        break;
    }
    case 4: {
        AisMsg4 m;
        if (parse_ais_4(&ais, &m) != 0) return;
        row_base_station(&m, row, sizeof(row));
        break;
    }
    case 5: {
        AisMsg5 m;
        if (parse_ais_5(&ais, &m) != 0) return;
        row_static_voyage(&m, row, sizeof(row));
        break;
    }
    case 9: {
        AisMsg9 m;
        if (parse_ais_9(&ais, &m) != 0) return;
        row_sar(&m, row, sizeof(row));
        break;
    }
    case 18: {
        AisMsg18 m;
        if (parse_ais_18(&ais, &m) != 0) return;
        row_class_b(&m, row, sizeof(row));
        break;
    }
    case 19: {
        AisMsg19 m;
        if (parse_ais_19(&ais, &m) != 0) return;
        row_class_b_extended(&m, row, sizeof(row));
        break;
    }
    case 21: {
        AisMsg21 m;
        if (parse_ais_21(&ais, &m) != 0) return;
        row_aid(&m, row, sizeof(row));
        break;
    }
    case 24: {
        AisMsg24 m;
        memset(&m, 0, sizeof(m));
        if (parse_ais_24(&ais, &m) != 0) return;
        row_class_b_static(&m, row, sizeof(row));
        break;
    }
    default:
        return;
    }
    ais_queue_row(row);
}

/* Appends "nmea_stat":n,"ais":[ rows ], to a status reply and empties the
** queue, so each row is delivered once. */
void getAisData(ResponseBuffer *b) {
    char head[64];
    pthread_mutex_lock(&aismutex);
    snprintf(head, sizeof(head), "\"nmea_stat\":%d,\"ais\":[\n", MR_LOAD(nmea_stat));
    buffAddChar(b, head);
    if (aisjson.length > 0) buffAddData(b, aisjson.data, (int)aisjson.length);
    buffAddChar(b, "],");
    aisjson.length = 0;
    if (aisjson.data) aisjson.data[0] = 0;
    pthread_mutex_unlock(&aismutex);
}

/* Time of a raw 20-bit ETA in the present year; 0 gives 0. The hour field
** lands in tm_min (24 counting as 0) and the minute field is not read. */
time_t getTimeStamp(uint32_t eta) {
    if (eta == 0) return 0;
    time_t now = time(NULL);
    struct tm tm;
    gmtime_r(&now, &tm);
    uint32_t month = (eta >> 16) & 0xf;
    uint32_t day = (eta >> 11) & 0x1f;
    uint32_t hour = (eta >> 6) & 0x1f;
    tm.tm_min = hour == 24 ? 0 : (int)hour;
    if (month != 0) tm.tm_mon = (int)month - 1;
    if (day != 0) tm.tm_mday = (int)day;
    return mktime(&tm);
}
