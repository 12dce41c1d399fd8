/*
** ais_pending.cpp -- the AIS entry points in their first form: sentences
** are dropped and the status carries an empty row list. The six-bit reader,
** assembly, parsers and row queue replace this file.
*/
#include <stdio.h>

#include "ais/ais.h"
#include "nav/nmea.h"

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
