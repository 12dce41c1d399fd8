/*
** nmea_status.cpp -- the status exchange with the client: one POST a
** second that hands the host the track settings and the client's settings
** text, and takes back the fix, the queued AIS rows and the track points
** newer than the client's last one, as one JSON object.
*/
#include <sqlite3.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ais/ais.h"
#include "nav/nmea.h"
#include "shell/app_record.h"

/* Reads up to four "%d/%d/%d/%d" numbers from text into v[], each wrapped
** to 32 bits as the client's 4294967295 ("no track points") must read as
** -1. Stops at the first place that does not match. Returns the count. */
static int read_numbers(const char *text, int32_t v[4]) {
    const char *p = text;
    int count = 0;
    if (p == NULL) return 0;
    while (count < 4) {
        char *end;
        long long x = strtoll(p, &end, 10);
        if (end == p) break;
        v[count++] = (int32_t)(uint32_t)(unsigned long long)x;
        if (count == 4 || *end != '/') break;
        p = end + 1;
    }
    return count;
}

/* Appends one formatted fragment. The scratch holds the widest double that
** "%.6lf" can print (DBL_MAX has 309 digits), so no fragment is ever cut
** and the object stays whole whatever a sentence put into gpsfix. */
static void add_fragment(ResponseBuffer *out, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
static void add_fragment(ResponseBuffer *out, const char *fmt, ...) {
    char scratch[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(scratch, sizeof(scratch), fmt, ap);
    va_end(ap);
    buffAddChar(out, scratch);
}

/* Keeps the request body in settingsText, growing it to the body's length
** plus one when needed; a failed reallocation stores nothing. The swap is
** done under dbMutex, so that a track row that binds the text meanwhile
** never sees it freed. */
static void store_settings(const char *body, int n) {
    if (body == NULL || n < 0) n = 0;
    sqlite3_mutex_enter(mrApp.dbMutex);
    if (n > mrApp.settingsCapacity) {
        char *grown = (char *)realloc(mrApp.settingsText, (size_t)n + 1);
        if (grown == NULL) free(mrApp.settingsText);
        mrApp.settingsText = grown;
        mrApp.settingsCapacity = n;
    }
    if (mrApp.settingsText == NULL) {
        mrApp.settingsCapacity = 0;
    } else if (body == NULL) {
        mrApp.settingsText[0] = 0;
    } else {
        memcpy(mrApp.settingsText, body, (size_t)n);
        mrApp.settingsText[n] = 0;
    }
    sqlite3_mutex_leave(mrApp.dbMutex);
}

/* Appends the track elements "[x,y,ts]" of the t=1 log rows newer than
** since, in time order. Query errors just end the list. The query runs
** under dbMutex: on the shared handle it would otherwise see a track row
** that the feed thread has inserted but not yet committed, and a row the
** client was shown could then vanish with a crash before the commit. */
static void add_track(ResponseBuffer *out, int32_t since) {
    sqlite3_stmt *st = NULL;
    sqlite3_mutex_enter(mrApp.dbMutex);
    sqlite3_prepare_v2(mrApp.tripDb, "SELECT x,y,ts FROM log WHERE ts > ? AND t=1 ORDER BY ts", -1, &st,
                       NULL);
    sqlite3_bind_int64(st, 1, (sqlite3_int64)since);
    buffAddChar(out, "\"track\":[");
    for (int first = 1; sqlite3_step(st) == SQLITE_ROW; first = 0) {
        add_fragment(out, "%s[%f,%f,%d]", first ? "" : ",", sqlite3_column_double(st, 0),
                     sqlite3_column_double(st, 1), (int32_t)sqlite3_column_int64(st, 2));
    }
    sqlite3_finalize(st);
    sqlite3_mutex_leave(mrApp.dbMutex);
}

/* The fix's measured numbers in the status reply, in reply order, each with
** the decimals it is given. */
static const struct {
    const char *name;
    double GpsFix::*field;
    int decimals;
} status_numbers[] = {
    {"latY", &GpsFix::latY, 6}, {"lonX", &GpsFix::lonX, 6}, {"hdg", &GpsFix::hdg, 0},
    {"cog", &GpsFix::cog, 0},   {"dpt", &GpsFix::dpt, 1},   {"wdir", &GpsFix::wdir, 1},
    {"wspd", &GpsFix::wspd, 1}, {"sog", &GpsFix::sog, 1},   {"hdop", &GpsFix::hdop, 1},
};

/* Stores interval, distance and on from text into gpsfix and replies with
** the status JSON; since (the fourth number) selects the track points. A
** request without a fourth number asks for none. Returns 0. */
int getSetHostStat(ResponseBuffer *out, const char *text, const char *body, int n) {
    int32_t v[4] = {0, 0, 0, -1};
    GpsFix *g = &gpsfix;

    MR_STORE(g->now, nmea_clock(NULL));
    int count = read_numbers(text, v);
    if (count > 0) MR_STORE(g->logInterval, v[0]);
    if (count > 1) MR_STORE(g->logDistance, v[1]);
    if (count > 2) MR_STORE(g->trackOn, v[2]);
    int32_t since = v[3];

    buffReset(out);
    add_fragment(out, "{\"navtime\":%d,", (int32_t)MR_LOAD(g->navtime));
    add_fragment(out, "\"fix\":%d,", MR_LOAD(g->fix));
    for (size_t i = 0; i < sizeof(status_numbers) / sizeof(status_numbers[0]); i++)
        add_fragment(out, "\"%s\":%.*lf,", status_numbers[i].name, status_numbers[i].decimals,
                     MR_LOAD(g->*status_numbers[i].field));
    add_fragment(out, "\"rot\":%d,", MR_LOAD(g->rot));
    add_fragment(out, "\"aisuserid\":%u,", MR_LOAD(g->aisuserid));
    getAisData(out);

    store_settings(body, n);

    if (since == -1)
        buffAddChar(out, "\"track\":[");
    else
        add_track(out, since);
    buffAddChar(out, "]}");
    buffSendHttp(out, NULL, MT_TEXT, 0);
    return 0;
}
