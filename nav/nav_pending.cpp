/*
** nav_pending.cpp -- the navigation entry points that the route table and
** start-up call, in their first form: no feed, no fix. The sentence
** interpreter, the feeds and the full status reply replace this file.
*/
#include <string.h>

#include "nav/nmea.h"

GpsFix gpsfix;
int32_t nmea_stat;

void nmea_init(void) { nmea_stat = 0; }

void setNmeaMode(const char *mode) { (void)mode; }

int getSetHostStat(ResponseBuffer *out, const char *text, const char *body, int n) {
    (void)text;
    (void)body;
    (void)n;
    buffReset(out);
    buffAddChar(out, "{}");
    buffSendHttp(out, NULL, 5, 0);
    return 0;
}
