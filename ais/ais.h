/*
** ais.h -- AIS: the six-bit payload reader, VDM sentence assembly, the
** message parsers and the queue of target rows (aisjson) that the status
** reply takes.
*/
#ifndef MAREPLOT_AIS_H
#define MAREPLOT_AIS_H

#include <stdint.h>

#include "http/response_buffer.h"

/* Converts AIS positions (1/600000 degree) to decimal degrees. Returns 0. */
int pos2ddd(int32_t lat, int32_t lon, double *dlat, double *dlon);

/* Feeds one !AIVDM or !AIVDO sentence (writable, NUL-terminated). */
void ProcessAIS(char *sentence);
/* Converts AIS positions (1/600000 degree) to decimal degrees. Returns 0. */
int pos2ddd(int32_t lat, int32_t lon, double *dlat, double *dlon);

/* Feeds one !AIVDO sentence to the own-ship assembly. Returns the result of
** a failing step, or the MMSI taken. */
int64_t ProcessAOS(char *sentence);
/* Appends "nmea_stat" and the queued rows to a status reply and empties
** the queue. */
void getAisData(ResponseBuffer *b);

#endif
