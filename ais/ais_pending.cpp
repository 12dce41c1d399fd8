/*
** ais_pending.cpp -- the AIS entry points in their first form: sentences
** are dropped and the status carries an empty row list. The six-bit reader,
** assembly, parsers and row queue replace this file.
*/
#include <stdio.h>

#include "ais/ais.h"
#include "nav/nmea.h"

int pos2ddd(int32_t lat, int32_t lon, double *dlat, double *dlon) {
    int32_t d = lat / 600000;
    *dlat = (lat - d * 600000) / 600000.0 + d;
    d = lon / 600000;
    *dlon = (lon - d * 600000) / 600000.0 + d;
    return 0;
}

void ProcessAIS(char *sentence) { (void)sentence; }

int64_t ProcessAOS(char *sentence) {
    (void)sentence;
    return 0;
}

void getAisData(ResponseBuffer *b) {
    char head[64];
    snprintf(head, sizeof(head), "\"nmea_stat\":%d,\"ais\":[\n", nmea_stat);
    buffAddChar(b, head);
    buffAddChar(b, "],");
}
