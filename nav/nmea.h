/*
** nmea.h -- navigation input: sentence utilities, the fix record gpsfix,
** the sentence interpreter, the feeds, the track log and the status
** exchange with the client.
*/
#ifndef MAREPLOT_NMEA_H
#define MAREPLOT_NMEA_H

#include <stdint.h>
#include <time.h>

#include "http/response_buffer.h"

/* ---- sentence utilities: pure functions over NUL-terminated text ---- */
char *find_nmea_start(char *text);
char *nmea_next_field(char *p);
uint32_t nmea_uint(const char *field);
char *nmea_copy_field(char *dst, const char *src, uint32_t max);
int nmea_checksum(const char *sentence, unsigned char *result);
int check_nmea_checksum(const char *sentence, unsigned char *result);
int32_t ahextobin(const char *c);
char *xtrtok(int delimiter, char **cursor);
double gps2float(const char *coordinate, const char *hemisphere);
time_t gps2time(const char *timeField, const char *dateField);

/* ---- the fix record ---- */
typedef struct GpsFix {
    int32_t fix;
    time_t now;
    time_t navtime;
    time_t lastFixTime;
    time_t lastLogTime;
    time_t lastDepthTime;
    time_t lastWindTime;
    int32_t trackOn;
    int32_t gpsIntern;
    int32_t gpsSource;
    int32_t nmeaSource;
    double latY;
    double lonX;
    double sog;
    double cog;
    double hdg;
    double dpt;
    double hdop;
    double wdir;
    double wspd;
    int32_t rot;
    int32_t logDistance;
    int32_t logInterval;
    double lastLogLon;
    double lastLogLat;
    uint32_t aisuserid;
} GpsFix;

extern GpsFix gpsfix;
/* 0 no feed, -1 connecting, 1 delivering */
extern int32_t nmea_stat;

/* ---- the fix model and the sentence interpreter (nmea_fix.cpp) ---- */

/* Zeroes gpsfix, applies the no-data values, readies the TCP feed's buffer,
** sets the track thresholds to 50 m / 86400 s and forgets the last mode. */
void nmea_init(void);
/* Sets the no-data values of position, course, heading, depth and rate of
** turn. Returns &gpsfix. */
GpsFix *nmea_reset(void);
/* Files one line (writable, NUL-terminated) into gpsfix, hands AIS sentences
** on, ages stale data and writes a track row when one is due. */
void nmea_update(char *line);
/* Position from outside the NMEA feeds. Returns gpsIntern, or 0 when the
** position source is NMEA or AIS (nothing changes then). */
int nmea_updateLL(time_t navtime, double lat, double lon, double sog, double cog, double accuracy);
/* Where an internal receiver would be switched. Returns 0. */
int setSatMode(int mode);
/* Returns gpsfix.fix. */
int nema_getfix(void);
/* Great-circle distance in metres between two positions in degrees. */
double geoDist(double lon1, double lat1, double lon2, double lat2);
/* Serial ports are found by the window's menu; nothing to do here. */
void find_serial(void);
/* Starts the serial feed; the window shell provides the real one. */
void beginSerial(void);

/* The clock behind gpsfix.now and the log rows; time() unless a test
** replaces it. */
extern time_t (*nmea_clock)(time_t *);

/* ---- the feeds (nmea_feed.cpp) ---- */
extern char nmea_host[256];
extern int32_t nmea_port;
extern int32_t nmea_pause;
extern ResponseBuffer bnmea;
extern char lastrequest[256];

/* Route /setNmeaMode/<mode>: the six-field mode string
** gpsIntern/gpsSource/nmeaSource/host/port/aisuserid. */
void setNmeaMode(const char *mode);
/* Thread body of the TCP feed; arg is &bnmea. Ends with pthread_exit. */
void socketNmeaThread(void *arg);
/* Thread body of the playback feed; arg is the file name. Ends with
** pthread_exit. */
void playNmeaThread(void *fileName);
/* Starts playNmeaThread on a private copy of fileName. Playback clears the
** track log first, so only a deliberate caller starts it. Returns 0, or -1
** when the name does not fit. */
int nmea_playback(const char *fileName);
/* Pauses the TCP feed. Returns the result of shutting its socket down. */
int stop_nmea(void);
/* Resumes a feed paused by stop_nmea. */
void cont_nmea(void);
/* Reads one line byte by byte from b->fd into b->data (at most 999 bytes,
** line feed kept). Returns b->data; b->lineLength is 0 after a failed
** receive. */
char *getTcpLine(ResponseBuffer *b);

/* ---- the track log (nmea_log.cpp) ---- */

/* Writes the track row for the current fix and offers settingsText to the
** settings row, in one transaction under dbMutex. */
void nmea_log_track(void);
/* Empties the log and writes the playback start row; sets navtime. */
void nmea_log_playback_start(void);

/* ---- the status exchange (nmea_status.cpp) ---- */

/* Route POST /getSetHostStat/<interval>/<distance>/<on>/<since>: stores the
** track settings and the body, replies with the fix, the AIS rows and the
** track points newer than since. Sends its own reply; returns 0. */
int getSetHostStat(ResponseBuffer *out, const char *text, const char *body, int n);

#endif
