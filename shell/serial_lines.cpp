/*
** serial_lines.cpp -- the serial sentence accumulator: gate on the position
** source, the size guard, and the cutting of lines at their line feeds.
*/
#include "shell/serial_lines.h"

#include <string.h>

#include "nav/nmea.h"
#include "shell/app_record.h"

int mr_serial_arrival(MrSerialLines *acc, const char *bytes, size_t n, mr_sentence_fn deliver) {
    char sentence[MR_SERIAL_GUARD];
    unsigned char sum;
    int delivered = 0;

    /* The bytes count only while the client has chosen NMEA as the source. */
    if (MR_LOAD(gpsfix.gpsSource) != 1) return 0;

    /* Appending and then clearing at the guard is the same as clearing
    ** whenever the sum reaches it; a fixed buffer therefore suffices. */
    if ((size_t)acc->len + n >= MR_SERIAL_GUARD) {
        acc->len = 0;
        return 0;
    }
    memcpy(acc->data + acc->len, bytes, n);
    acc->len += (int32_t)n;

    for (;;) {
        const char *lf = (const char *)memchr(acc->data, '\n', (size_t)acc->len);
        int32_t i = lf ? (int32_t)(lf - acc->data) : -1;
        if (i <= 0) break;
        /* The interpreter works in place, so it gets a copy. */
        memcpy(sentence, acc->data, (size_t)(i - 1));
        sentence[i - 1] = 0;
        if (nmea_checksum(sentence, &sum) == 0) {
            deliver(sentence);
            delivered++;
        }
        acc->len -= i + 1;
        memmove(acc->data, acc->data + i + 1, (size_t)acc->len);
    }
    return delivered;
}
