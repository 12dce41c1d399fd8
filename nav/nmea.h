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

void nmea_init(void);
GpsFix *nmea_reset(void);
void nmea_update(char *line);
/* Route /setNmeaMode/<mode>: the six-field mode string. */
void setNmeaMode(const char *mode);
/* Route POST /getSetHostStat/<interval>/<distance>/<on>/<since>. */
int getSetHostStat(ResponseBuffer *out, const char *text, const char *body, int n);

#endif
