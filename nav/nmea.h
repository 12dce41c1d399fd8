/*
** nmea.h -- navigation input: sentence utilities, the fix record gpsfix,
** the sentence interpreter, the feeds, the track log and the status
** exchange with the client.
*/
#ifndef MAREPLOT_NMEA_H
#define MAREPLOT_NMEA_H

#include <stdint.h>

#include "http/response_buffer.h"

/* 0 no feed, -1 connecting, 1 delivering */
extern int32_t nmea_stat;

void nmea_init(void);
/* Route /setNmeaMode/<mode>: the six-field mode string. */
void setNmeaMode(const char *mode);
/* Route POST /getSetHostStat/<interval>/<distance>/<on>/<since>. */
int getSetHostStat(ResponseBuffer *out, const char *text, const char *body, int n);

#endif
