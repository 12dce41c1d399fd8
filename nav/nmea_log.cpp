/*
** nmea_log.cpp -- the track and event log in the trip database: the track
** row that nmea_update writes when one is due, and the row that marks the
** start of a playback.
**
** A track row carries the host clock, the position and a remark made of
** up to three blank-led pieces: the fix time when it is a minute or more
** off the host clock, the depth, and a simulation mark. The same
** transaction offers the client's settings text to the "settings" row;
** as the DELETE tests the value column, only the first offer ever lands
** and the failing INSERT is simply ignored. No statement result is looked
** at: a row that cannot be written leaves no trace.
*/
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>

#include "nav/nmea.h"
#include "shell/app_record.h"

#define REMARK_SIZE 512
#define PIECE_SIZE 64

/* Appends piece to the remark, bounded by its buffer. */
static void remark_add(char *remark, size_t *len, const char *piece) {
    size_t n = strlen(piece);
    if (*len + n >= REMARK_SIZE) n = REMARK_SIZE - 1 - *len;
    memcpy(remark + *len, piece, n);
    *len += n;
    remark[*len] = 0;
}

/* Builds the remark of a track row from gpsfix into remark (512 bytes). */
static void build_remark(char *remark) {
    char piece[PIECE_SIZE];
    size_t len = 0;
    remark[0] = 0;

    /* the clocks are compared on their low 32 bits, as the status sends them */
    time_t navtime = MR_LOAD(gpsfix.navtime);
    int64_t offset = (int64_t)(int32_t)MR_LOAD(gpsfix.now) - (int64_t)(int32_t)navtime;
    if (offset >= 66 || offset <= -66) {
        snprintf(piece, sizeof(piece), " nt=%llx", (unsigned long long)navtime);
        remark_add(remark, &len, piece);
    }
    double dpt = MR_LOAD(gpsfix.dpt);
    if (dpt != 0) {
        snprintf(piece, sizeof(piece), " dpt=%.1lf", dpt);
        remark_add(remark, &len, piece);
    }
    if (MR_LOAD(gpsfix.fix) == 999) remark_add(remark, &len, " SIM");
}

/* Writes the track row for the current fix under dbMutex and remembers its
** time and place for the next decision. */
void nmea_log_track(void) {
    char remark[REMARK_SIZE];
    sqlite3 *db = mrApp.tripDb;
    sqlite3_stmt *st = NULL;

    MR_STORE(gpsfix.lastLogTime, MR_LOAD(gpsfix.now));
    sqlite3_mutex_enter(mrApp.dbMutex);
    sqlite3_exec(db, "BEGIN TRANSACTION", NULL, NULL, NULL);
    build_remark(remark);

    sqlite3_prepare_v2(db, "INSERT INTO log (ts,x,y,t,v) VALUES (?,?,?,1,?)", -1, &st, NULL);
    sqlite3_bind_int64(st, 1, (sqlite3_int64)MR_LOAD(gpsfix.now));
    sqlite3_bind_double(st, 2, MR_LOAD(gpsfix.lonX));
    sqlite3_bind_double(st, 3, MR_LOAD(gpsfix.latY));
    sqlite3_bind_text(st, 4, remark, -1, SQLITE_TRANSIENT);
    sqlite3_step(st);
    sqlite3_finalize(st);

    sqlite3_exec(db, "DELETE FROM kvt WHERE v='settings'", NULL, NULL, NULL);
    st = NULL;
    sqlite3_prepare_v2(db, "INSERT INTO kvt(k,v,t,l) VALUES ('settings',?,10,'**')", -1, &st, NULL);
    sqlite3_bind_text(st, 1, mrApp.settingsText, -1, SQLITE_TRANSIENT);
    sqlite3_step(st);
    sqlite3_finalize(st);

    sqlite3_exec(db, "COMMIT", NULL, NULL, NULL);
    sqlite3_mutex_leave(mrApp.dbMutex);

    MR_STORE(gpsfix.lastLogLon, MR_LOAD(gpsfix.lonX));
    MR_STORE(gpsfix.lastLogLat, MR_LOAD(gpsfix.latY));
}

/* Empties the log (outside dbMutex), sets navtime to the host clock and
** writes the "NMEA playback starts" event row. */
void nmea_log_playback_start(void) {
    sqlite3 *db = mrApp.tripDb;
    sqlite3_stmt *st = NULL;

    sqlite3_exec(db, "DELETE FROM log", NULL, NULL, NULL);
    MR_STORE(gpsfix.navtime, nmea_clock(NULL));
    sqlite3_mutex_enter(mrApp.dbMutex);
    sqlite3_prepare_v2(db, "INSERT INTO log (ts,x,y,t,v) VALUES (?,999,999,2,'NMEA playback starts')", -1,
                       &st, NULL);
    sqlite3_bind_int64(st, 1, (sqlite3_int64)MR_LOAD(gpsfix.navtime));
    sqlite3_step(st);
    sqlite3_finalize(st);
    sqlite3_mutex_leave(mrApp.dbMutex);
}
