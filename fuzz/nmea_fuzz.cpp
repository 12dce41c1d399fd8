/*
** nmea_fuzz.cpp -- fuzz target for the sentence interpreter: lines of input
** go through nmea_update as a feed hands them over, with the position taken
** from NMEA, from the own ship's AIS reports or from outside the feeds, and
** the status reply is written from whatever they left in gpsfix.
**
** The first input byte holds options: bits 0-1 the gpsSource (0 internal,
** 1 NMEA, 2 AIS own ship, 3 none of these), bit 2 rewrites each line's
** checksum so that mutated sentences pass the feed's checksum gate, bit 3
** sends the bytes through the serial port's accumulator in arrivals of the
** sizes given by the second byte instead of line by line, bit 4 turns the
** track on, bit 5 sets an own MMSI, bit 6 sends the bytes as the stream of
** the TCP feed (its thread body runs here, on a socket pair, until the
** stream ends; bit 2 then has no effect). The second byte also sets how far
** the clock moves per line (0 to 15 s), so that ageing and the track
** decision both run; track rows go to an in-memory trip database.
*/
#include <errno.h>
#include <netdb.h>
#include <setjmp.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>
#include <time.h>

#include "ais/ais.h"
#include "fuzz_feed.h"
#include "fuzz_support.h"
#include "nav/nmea.h"
#include "shell/serial_lines.h"

static time_t fuzzClock;

static time_t fuzz_time(time_t *t) {
    if (t) *t = fuzzClock;
    return fuzzClock;
}

/* ---- the TCP feed on a socket pair ----
** Name look-up always finds the loopback address; the one connect of an
** input gets a socket pair end whose other end holds the input and is shut
** for writing; the feed thread's waits take no time and its closing
** pthread_exit returns to the caller. */
static const uint8_t *feedData;
static size_t feedSize;
static int feedPeer = -1;
static __thread bool inFeed;
static jmp_buf feedEnd;

extern "C" int getaddrinfo(const char *, const char *, const struct addrinfo *, struct addrinfo **res) {
    *res = fuzz_loopback();
    return 0;
}

extern "C" void freeaddrinfo(struct addrinfo *) {}

extern "C" int connect(int fd, const struct sockaddr *, socklen_t) {
    if (feedPeer >= 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    feedPeer = fuzz_pair_connect(fd, feedData, feedSize);
    return feedPeer >= 0 ? 0 : -1;
}

extern "C" unsigned int sleep(unsigned int seconds) { return fuzz_sleep(seconds, inFeed); }

extern "C" void pthread_exit(void *retval) {
    if (inFeed) longjmp(feedEnd, 1);
    typedef void (*exit_fn)(void *);
    ((exit_fn)dlsym(RTLD_NEXT, "pthread_exit"))(retval);
    abort();
}

/* Runs the feed thread's body over the bytes until their stream ends; the
** feed is paused beforehand, so that it does not connect again. */
static void tcp_feed(const uint8_t *data, size_t size) {
    feedData = data;
    feedSize = size;
    MR_STORE(nmea_pause, 1);
    inFeed = true;
    if (setjmp(feedEnd) == 0) socketNmeaThread(&bnmea);
    inFeed = false;
    MR_STORE(nmea_pause, 0);
    if (feedPeer >= 0) close(feedPeer);
    feedPeer = -1;
}

/* Writes the right two hex digits behind the first '*' when they fit. */
static void fix_checksum(char *line) {
    char *start = strpbrk(line, "!$");
    char *star = start ? strchr(start, '*') : NULL;
    if (star == NULL || star[1] == 0 || star[2] == 0) return;
    unsigned char x = 0;
    for (char *p = start + 1; p < star; p++) x ^= (unsigned char)*p;
    static const char hex[] = "0123456789ABCDEF";
    star[1] = hex[x >> 4];
    star[2] = hex[x & 15];
}

/* The feed's path for one line: the checksum gate, then the interpreter. */
static void feed_line(char *line) {
    unsigned char sum;
    if (nmea_checksum(line, &sum) == 0) nmea_update(line);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_fill_app();
    mrApp.tripDb = fuzz_trip_db();
    nmea_clock = fuzz_time;
    /* the feed thread reports its state on standard output */
    if (getenv("FUZZ_SHOW") == NULL) {
        int null = open("/dev/null", O_WRONLY);
        if (null >= 0) dup2(null, 1);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static MrSerialLines acc;
    if (size < 2) return 0;
    uint8_t opts = data[0], pace = data[1];
    data += 2;
    size -= 2;

    nmea_init();
    /* the track rows of the last input would slow every status reply; most
    ** inputs write none, and they skip the statement */
    static int changes = -1;
    if (sqlite3_total_changes(mrApp.tripDb) != changes) {
        fuzz_exec(mrApp.tripDb, "DELETE FROM log WHERE id > 3");
        changes = sqlite3_total_changes(mrApp.tripDb);
    }
    fuzzClock = 1700000000;
    gpsfix.gpsSource = opts & 3;
    gpsfix.nmeaSource = (opts & 8) ? 2 : 1;
    gpsfix.trackOn = (opts >> 4) & 1;
    gpsfix.aisuserid = (opts & 32) ? 211000001u : 0u;
    gpsfix.logDistance = 20;
    gpsfix.logInterval = 30;
    MR_STORE(nmea_stat, 1);
    acc.len = 0;

    if (opts & 64) {
        tcp_feed(data, size);
    } else if (opts & 8) {
        /* arrivals of 1 to 16 bytes, as a port delivers them */
        size_t step = (size_t)(pace & 15) + 1;
        for (size_t i = 0; i < size; i += step) {
            size_t n = size - i < step ? size - i : step;
            fuzzClock += pace >> 4;
            mr_serial_arrival(&acc, (const char *)data + i, n, nmea_update);
        }
    } else {
        char line[1024];
        size_t at = 0;
        while (at < size) {
            fuzz_next_line(data, size, &at, line, sizeof(line));
            if (opts & 4) fix_checksum(line);
            fuzzClock += pace >> 4;
            if (opts & 4)
                feed_line(line);
            else
                nmea_update(line); /* playback: no checksum gate */
        }
    }
    /* a position from outside the feeds, from the last bytes */
    if (gpsfix.gpsSource == 0 && size >= 8) {
        double lat = (double)(int8_t)data[size - 1], lon = (double)(int16_t)(data[size - 2] << 8 | data[size - 3]);
        nmea_updateLL(fuzzClock, lat, lon, data[size - 4] / 10.0, data[size - 5] * 2.0,
                      (double)(int8_t)data[size - 6] * 1e6);
    }

    ResponseBuffer *out = fuzz_out();
    getSetHostStat(out, "30/20/1/0", "*", 1);
    return 0;
}
