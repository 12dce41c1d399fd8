/*
** nmea_fix.cpp -- the fix record gpsfix and the sentence interpreter
** nmea_update, through which every line of every feed passes.
**
** A line is split in place into 24 field pointers; a table of position
** sentences (RMC, GGA, ROT, HDG) with their minimum field counts files it
** into gpsfix while the position source is NMEA; depth (DPT, DBS) and wind
** (MWV) are taken from any source. Each line then ages stale data and
** decides whether a track row is due. Time only moves when a line arrives.
**
** gpsfix is shared with the status handler, the mode route and the other
** feeds without a lock: every member is read and written through the
** MR_LOAD/MR_STORE accessors, one whole word at a time, and a reader may
** see two sentences' worth mixed. nmea_stat is polled the same way.
*/
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "ais/ais.h"
#include "nav/nmea.h"
#include "shell/app_record.h"

GpsFix gpsfix;
int32_t nmea_stat;
time_t (*nmea_clock)(time_t *) = time;

#define NMEA_ENTRIES 24
#define EARTH_RADIUS_M 6371000.8
#define DEG2RAD 0.017453292519943295

/* Entries behind the end of a sentence point here: they read as empty text
** instead of whatever the caller's buffer holds behind its terminator. */
static char emptyField[1] = {0};

/* Source settings seen by the previous line; a change clears the position. */
static int32_t lastNmeaSource = -1;
static int32_t lastGpsSource = -1;

/* The serial port is handled by the window shell, which supplies the real
** beginSerial; the headless host and the tests have no port to open. */
__attribute__((weak)) void beginSerial(void) {}

/* Sets the no-data values of position, course, heading, depth and rate of
** turn; speed, hdop, wind and fix stay. Returns &gpsfix. */
GpsFix *nmea_reset(void) {
    MR_STORE(gpsfix.latY, 999);
    MR_STORE(gpsfix.lonX, 999);
    MR_STORE(gpsfix.rot, -128);
    MR_STORE(gpsfix.cog, 360);
    MR_STORE(gpsfix.hdg, 511);
    MR_STORE(gpsfix.dpt, -100);
    return &gpsfix;
}

/* Zeroes gpsfix, applies the no-data values, readies the TCP feed's buffer
** and sets the track thresholds to their defaults (50 m, one day). */
void nmea_init(void) {
    memset(&gpsfix, 0, sizeof(gpsfix));
    nmea_reset();
    if (bnmea.data == NULL) {
        buffInit(&bnmea);
        bnmea.fd = -1;
    } else {
        buffReset(&bnmea);
    }
    MR_STORE(gpsfix.logDistance, 50);
    MR_STORE(gpsfix.logInterval, 86400);
    lastrequest[0] = 0;
    lastNmeaSource = -1;
    lastGpsSource = -1;
}

/* Does nothing: an internal receiver would be switched here. Returns 0. */
int setSatMode(int mode) {
    (void)mode;
    return 0;
}

/* Returns the quality of the fix. */
int nema_getfix(void) { return MR_LOAD(gpsfix.fix); }

/* Nothing to look for: the window's "GPS Port" menu lists the ports. */
void find_serial(void) {}

/* Spherical law of cosines. The cosine is clamped to [-1, 1] so that two
** equal positions give 0 rather than the NaN of a rounding excess. */
double geoDist(double lon1, double lat1, double lon2, double lat2) {
    double c = sin(lat1 * DEG2RAD) * sin(lat2 * DEG2RAD) +
               cos(lat1 * DEG2RAD) * cos(lat2 * DEG2RAD) * cos((lon1 - lon2) * DEG2RAD);
    if (c > 1) c = 1;
    if (c < -1) c = -1;
    return acos(c) * EARTH_RADIUS_M;
}

/* Fills entry[] from the sentence start: entry 0 is the start, each next one
** lies behind the next ',', '*' or NUL. Once the terminator has been passed
** the remaining entries are empty text. Returns 24, or 0 for a NULL start
** (entry 0 is then the line and the rest are empty). */
static int split_fields(char *line, char *start, char *entry[NMEA_ENTRIES]) {
    char *p = start;
    entry[0] = start ? start : line;
    for (int i = 1; i < NMEA_ENTRIES; i++) {
        if (p != emptyField && p != NULL) {
            char *next = nmea_next_field(p);
            p = next[-1] == 0 ? emptyField : next;
        } else {
            p = emptyField;
        }
        entry[i] = p;
    }
    return start ? NMEA_ENTRIES : 0;
}

/* True when the three bytes at the fourth byte of e0 are type; never reads
** behind e0's terminator. */
static int is_type(const char *e0, const char *type) {
    if (e0[0] == 0 || e0[1] == 0 || e0[2] == 0) return 0;
    return e0[3] == type[0] && e0[4] == type[1] && e0[5] == type[2];
}

/* AIS encoding of a rate of turn in degrees per minute: 4.733 sqrt(|v|),
** signed, saturating at +-127 beyond 708. A value that is not a number
** reads as no data. */
static int32_t rot_encode(double v) {
    if (v > 708) return 127;
    if (v < -708) return -127;
    if (!(v == v)) return -128;
    int32_t r = (int32_t)round(4.733 * sqrt(fabs(v)));
    return v < 0 ? -r : r;
}

/* RMC: position, speed, course and the time of the fix. Returns 1 when the
** pass must end (status other than A). */
static int on_rmc(char **f) {
    GpsFix *g = &gpsfix;
    if (f[2][0] != 'A') {
        MR_STORE(g->fix, 0);
        return 1;
    }
    MR_STORE(nmea_stat, 1);
    MR_STORE(g->navtime, gps2time(f[1], f[9]));
    MR_STORE(g->latY, gps2float(f[3], f[4]));
    MR_STORE(g->lonX, gps2float(f[5], f[6]));
    MR_STORE(g->sog, atof(f[7]) * 0.514444);
    MR_STORE(g->cog, atof(f[8]));
    if (MR_LOAD(g->fix) == 0 || MR_LOAD(g->fix) >= 81) MR_STORE(g->fix, 1);
    MR_STORE(g->lastFixTime, MR_LOAD(g->now));
    return 0;
}

/* GGA: satellites in use and hdop. Returns 1 when the pass must end (no
** GPS or DGPS quality). */
static int on_gga(char **f) {
    if (f[6][0] != '1' && f[6][0] != '2') {
        MR_STORE(gpsfix.fix, 0);
        return 1;
    }
    MR_STORE(gpsfix.fix, atoi(f[7]));
    MR_STORE(gpsfix.hdop, atof(f[8]));
    return 0;
}

/* ROT: rate of turn. Returns 1 when the pass must end (invalid status). */
static int on_rot(char **f) {
    if (f[2][0] != 'A') {
        MR_STORE(gpsfix.rot, -128);
        return 1;
    }
    MR_STORE(gpsfix.rot, rot_encode(atof(f[1])));
    return 0;
}

/* HDG: the sensor heading as given; deviation and variation are not
** applied. */
static int on_hdg(char **f) {
    MR_STORE(gpsfix.hdg, atof(f[1]));
    return 0;
}

/* The position sentences, tested in this order; at most one is handled. */
static const struct {
    const char *type;
    int minEntries;
    int (*handle)(char **f);
} positionSentences[] = {
    {"RMC", 13, on_rmc},
    {"GGA", 16, on_gga},
    {"ROT", 0, on_rot},
    {"HDG", 4, on_hdg},
};

/* DPT adds the third data field to the first and uses it as its gate as
** well; DBS fills in only while no depth is held. Depth older than 60 s
** is dropped. */
static void on_depth(char **f, int n) {
    GpsFix *g = &gpsfix;
    if (n >= 5) {
        if (is_type(f[0], "DPT")) {
            double third = atof(f[3]);
            if (third > 0) {
                MR_STORE(g->dpt, third + atof(f[1]));
                MR_STORE(g->lastDepthTime, MR_LOAD(g->now));
            }
        }
        if (is_type(f[0], "DBS") && MR_LOAD(g->dpt) < 0) {
            MR_STORE(g->dpt, atof(f[3]));
            MR_STORE(g->lastDepthTime, MR_LOAD(g->now));
        }
    }
    if (MR_LOAD(g->lastDepthTime) + 60 < MR_LOAD(g->now)) MR_STORE(g->dpt, -100);
}

/* MWV: direction and speed in metres per second. A 'K' unit takes both the
** km/h and the mph factor, as the client has always received it. Wind
** older than 60 s is dropped. */
static void on_wind(char **f, int n) {
    GpsFix *g = &gpsfix;
    if (n >= 5 && is_type(f[0], "MWV")) {
        double wspd = atof(f[3]);
        if (f[4][0] == 'K') wspd *= 0.2777775380361333;
        if (f[4][0] == 'N') wspd *= 0.514444;
        if (f[4][0] == 'K') wspd *= 0.44703961417318716;
        MR_STORE(g->wdir, atof(f[1]));
        MR_STORE(g->wspd, wspd);
        MR_STORE(g->lastWindTime, MR_LOAD(g->now));
    }
    if (MR_LOAD(g->lastWindTime) + 60 < MR_LOAD(g->now)) {
        MR_STORE(g->wdir, -100);
        MR_STORE(g->wspd, -100);
    }
}

/* Ages the fix and writes a track row when one is due: after logInterval
** seconds, or once the vessel is more than logDistance metres from the
** last row. Injected positions worse than 49 m are never logged. */
static void age_and_log(void) {
    GpsFix *g = &gpsfix;
    if (MR_LOAD(g->lastFixTime) + 60 < MR_LOAD(g->now)) MR_STORE(g->fix, 0);
    if (MR_LOAD(g->gpsSource) > 0 && MR_LOAD(nmea_stat) != 1) MR_STORE(g->fix, 998);
    if (MR_LOAD(g->fix) < -49) return;
    if (MR_LOAD(g->trackOn) == 0 || MR_LOAD(g->fix) == 0) return;
    time_t now = MR_LOAD(g->now);
    double d = geoDist(MR_LOAD(g->lastLogLon), MR_LOAD(g->lastLogLat), MR_LOAD(g->lonX), MR_LOAD(g->latY));
    if ((now != 0 && now > MR_LOAD(g->lastLogTime) + MR_LOAD(g->logInterval)) ||
        (MR_LOAD(g->logDistance) != 0 && d > MR_LOAD(g->logDistance)))
        nmea_log_track();
}

/* Files one line into gpsfix. The line must be writable and NUL-terminated;
** it is read in place and left unchanged here (the AIS assembly may cut
** it). Nothing is reported: a bad sentence shows only in fix and
** nmea_stat. */
void nmea_update(char *line) {
    char *f[NMEA_ENTRIES];
    GpsFix *g = &gpsfix;

    if (line == NULL) return;
    char *start = find_nmea_start(line);
    if (!MR_LOAD(mrApp.running)) return;
    MR_STORE(g->now, nmea_clock(NULL));
    if (MR_LOAD(g->nmeaSource) != lastNmeaSource || MR_LOAD(g->gpsSource) != lastGpsSource) {
        nmea_reset();
        lastNmeaSource = MR_LOAD(g->nmeaSource);
        lastGpsSource = MR_LOAD(g->gpsSource);
    }

    /* AIS is recognised at the line's first byte only. */
    if (strncmp(line, "!AIVDM", 6) == 0) {
        ProcessAIS(line);
        age_and_log();
        return;
    }
    if (strncmp(line, "!AIVDO", 6) == 0) {
        ProcessAIS(line);
        ProcessAOS(line);
        age_and_log();
        return;
    }

    int n = split_fields(line, start, f);
    if (MR_LOAD(g->gpsSource) == 1) {
        for (size_t i = 0; i < sizeof(positionSentences) / sizeof(positionSentences[0]); i++) {
            if (!is_type(f[0], positionSentences[i].type)) continue;
            if (n < positionSentences[i].minEntries) continue;
            if (positionSentences[i].handle(f)) return;
            break;
        }
    }
    on_depth(f, n);
    on_wind(f, n);
    age_and_log();
}

/* Takes a position from outside the NMEA feeds, then runs the ageing and
** the track decision. Returns gpsIntern, or 0 (and changes nothing) while
** the position source is NMEA or AIS. */
int nmea_updateLL(time_t navtime, double lat, double lon, double sog, double cog, double accuracy) {
    static char noSentence[] = "**";
    GpsFix *g = &gpsfix;
    if (MR_LOAD(g->gpsSource) > 0) return 0;
    MR_STORE(g->navtime, navtime);
    MR_STORE(g->lastFixTime, nmea_clock(NULL));
    MR_STORE(g->latY, lat);
    MR_STORE(g->lonX, lon);
    MR_STORE(g->sog, sog);
    MR_STORE(g->cog, cog);
    MR_STORE(g->hdg, 511);
    MR_STORE(g->rot, -128);
    /* accuracy is metres; the fix holds it negated and truncated */
    double a = -accuracy;
    if (!(a == a) || a < -2147483647.0) a = -2147483647.0;
    if (a > 2147483647.0) a = 2147483647.0;
    MR_STORE(g->fix, (int32_t)a);
    nmea_update(noSentence);
    return MR_LOAD(g->gpsIntern);
}
