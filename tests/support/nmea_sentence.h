/* nmea_sentence.h -- NMEA sentences for tests that feed a port. */
#ifndef MAREPLOT_NMEA_SENTENCE_H
#define MAREPLOT_NMEA_SENTENCE_H

#include <stdio.h>
#include <time.h>

#include <string>

/* start + body + "*" + two hex digits of the XOR over body. */
inline std::string withChecksum(const std::string &body, char start = '$') {
    unsigned char x = 0;
    for (char c : body) x ^= (unsigned char)c;
    char tail[4];
    snprintf(tail, sizeof(tail), "*%02X", x);
    return std::string(1, start) + body + tail;
}

inline std::string checksummed(const std::string &body) { return withChecksum(body) + "\r\n"; }

/* A valid RMC sentence for the position at the current UTC time, with its checksum and CR LF. */
inline std::string rmcNow(const char *lat, const char *ns, const char *lon, const char *ew) {
    time_t t = time(nullptr);
    struct tm u;
    gmtime_r(&t, &u);
    char body[160];
    snprintf(body, sizeof(body), "GPRMC,%02d%02d%02d,A,%s,%s,%s,%s,3.0,180.0,%02d%02d%02d,,,A", u.tm_hour, u.tm_min,
             u.tm_sec, lat, ns, lon, ew, u.tm_mday, u.tm_mon + 1, u.tm_year % 100);
    return checksummed(body);
}

#endif
