/*
** nmea_feed.cpp -- the feeds that bring lines to nmea_update: the TCP
** client thread, the playback thread, the pause pair, a byte-wise line
** reader, and the mode string with which the client picks the feed and the
** position source.
**
** nmea_stat is the only signal between setNmeaMode (on a connection
** thread) and the TCP thread: -1 asks the thread to leave its read loop and
** connect anew with the current host and port. A small lock (feedLock)
** makes "is a feed thread alive, start one" a single step and guards the
** host name and lastrequest, so that two quick mode changes never start two
** feed threads; it is never held while reading or sleeping.
*/
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "nav/nmea.h"
#include "shell/app_record.h"

char nmea_host[256];
int32_t nmea_port;
int32_t nmea_pause;
ResponseBuffer bnmea;
char lastrequest[256];

#define FEED_RETRIES 3600
#define FEED_MAX_LINE 499
#define PLAY_LINE_SIZE 1000
#define TCP_LINE_LIMIT 1000

static pthread_mutex_t feedLock = PTHREAD_MUTEX_INITIALIZER;
static int feedAlive; /* a socketNmeaThread runs; under feedLock */
static unsigned feedAsk; /* counts reconnect requests; under feedLock */
static char playFile[1024];

/* Receive timeout of seconds plus 0.1 s, and keep-alive probes on. */
static void initSocketToKa(int fd, int seconds) {
    struct timeval tv;
    int one = 1;
    tv.tv_sec = seconds;
    tv.tv_usec = 100000;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof(one));
}

/* Starts the TCP thread unless one is alive. Call with feedLock held. */
static void start_feed_locked(void) {
    if (feedAlive) return;
    feedAlive = 1;
    _beginthread(socketNmeaThread, 0, &bnmea);
}

/* Stores the five leading fields and the sixth of a mode string and, once
** all six are there, switches the feed. An empty or over-long string (no
** mode string reaches 256 bytes) changes nothing. */
void setNmeaMode(const char *mode) {
    char buf[256];
    GpsFix *g = &gpsfix;

    if (mode == NULL) return;
    size_t len = strlen(mode);
    if (len == 0 || len >= sizeof(buf)) return;
    memcpy(buf, mode, len + 1);

    char *p = buf;
    for (int i = 0; i < 5; i++) {
        char *end = strchr(p, '/');
        if (end) *end = 0;
        switch (i) {
        case 0: MR_STORE(g->gpsIntern, atoi(p)); break;
        case 1: MR_STORE(g->gpsSource, atoi(p)); break;
        case 2: MR_STORE(g->nmeaSource, atoi(p)); break;
        case 3:
            pthread_mutex_lock(&feedLock);
            memcpy(nmea_host, p, strlen(p) + 1);
            pthread_mutex_unlock(&feedLock);
            break;
        case 4: MR_STORE(nmea_port, atoi(p)); break;
        }
        if (end == NULL || end[1] == 0) return;
        p = end + 1;
    }
    char *lf = strchr(p, '\n');
    if (lf) *lf = 0;
    if (*p == 0) return;
    MR_STORE(g->aisuserid, (uint32_t)atol(p));

    setSatMode(MR_LOAD(g->gpsSource) != 0 ? 0 : MR_LOAD(g->gpsIntern));

    if (MR_LOAD(g->nmeaSource) == 1) {
        /* a change of the last field alone (the own ship's MMSI) restarts
        ** nothing and is not remembered */
        size_t head = (size_t)(strrchr(mode, '/') - mode);
        pthread_mutex_lock(&feedLock);
        if (strncmp(mode, lastrequest, head) == 0) {
            pthread_mutex_unlock(&feedLock);
            return;
        }
        if (MR_LOAD(nmea_stat) != 0) {
            MR_STORE(nmea_stat, -1);
            feedAsk++;
        } else if (MR_LOAD(nmea_pause) != 1)
            start_feed_locked();
        pthread_mutex_unlock(&feedLock);
    }
    if (MR_LOAD(g->nmeaSource) == 2) beginSerial();

    pthread_mutex_lock(&feedLock);
    memcpy(lastrequest, mode, len + 1);
    pthread_mutex_unlock(&feedLock);
}

/* Closes the feed's socket and marks the record as having none, so that
** stop_nmea never shuts down a descriptor that was handed out again. */
static void close_feed_socket(ResponseBuffer *b) {
    int fd = MR_LOAD(b->fd);
    MR_STORE(b->fd, -1);
    if (fd >= 0) close(fd);
}

/* Resolves host to an IPv4 address with port, and sets *ask to the count of
** reconnect requests that the host name belongs to. Returns 0, or -1. */
static int resolve_feed(struct sockaddr_in *addr, unsigned *ask) {
    char host[sizeof(nmea_host)];
    struct addrinfo hints, *res = NULL;

    pthread_mutex_lock(&feedLock);
    memcpy(host, nmea_host, sizeof(host));
    *ask = feedAsk;
    pthread_mutex_unlock(&feedLock);
    host[sizeof(host) - 1] = 0;

    memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(host, NULL, &hints, &res) != 0 || res == NULL) return -1;
    memcpy(addr, res->ai_addr, sizeof(*addr));
    freeaddrinfo(res);
    addr->sin_port = htons((uint16_t)MR_LOAD(nmea_port));
    return 0;
}

/* Passes the lines of one connection to nmea_update until the stream
** breaks, times out, brings a line of 500 bytes or more, or nmea_stat asks
** for a reconnect. Lines without a start and a '*' are dropped. */
static void read_feed_lines(ResponseBuffer *b) {
    char line[512];
    unsigned char sum;
    do {
        char *text = buffGetLine(b);
        if (text == NULL) break;
        if (b->lineLength < 1 || b->lineLength > FEED_MAX_LINE) break;
        size_t n = strnlen(text, sizeof(line) - 1);
        memcpy(line, text, n);
        line[n] = 0;
        if (nmea_checksum(line, &sum) == 0) nmea_update(line);
    } while (MR_LOAD(nmea_stat) > 0);
}

/* The TCP feed: connects to nmea_host:nmea_port and reads lines until
** stopped. A failed name look-up is retried after 6 s, a failed connect
** after 1 s, each up to 3600 times in a row; a broken stream reconnects at
** once. Prints its state to standard output. */
void socketNmeaThread(void *arg) {
    ResponseBuffer *b = (ResponseBuffer *)arg;
    int retries = FEED_RETRIES;

    MR_ADD(mrApp.threadCount, 1);
    puts("nema starts\n");
    nmea_reset();
    for (;;) {
        struct sockaddr_in addr;
        unsigned ask;
        MR_STORE(gpsfix.fix, 998);
        buffReset(b);

        if (resolve_feed(&addr, &ask) != 0) {
            puts("gethostbyname fail...\n");
            sleep(6);
            puts("reconnecting...\n");
            if (--retries != 0) continue;
            break;
        }
        MR_STORE(nmea_stat, -1);

        int fd = socket(AF_INET, SOCK_STREAM, 0);
        MR_STORE(b->fd, fd);
        if (fd >= 0) initSocketToKa(fd, 60);
        if (fd < 0 || connect(fd, (struct sockaddr *)&addr, sizeof(addr)) != 0) {
            MR_STORE(gpsfix.fix, 998);
            puts("fail...\n");
            close_feed_socket(b);
            sleep(1);
            puts("reconnecting...\n");
            if (--retries != 0) continue;
            MR_STORE(gpsfix.fix, 998);
            break;
        }

        /* a new host or port, or a pause, asked for while this one was
        ** being reached wins: its -1 or 0 must not be overwritten by 1 */
        pthread_mutex_lock(&feedLock);
        int stale = ask != feedAsk;
        if (!stale) MR_STORE(nmea_stat, 1);
        pthread_mutex_unlock(&feedLock);
        if (stale) {
            close_feed_socket(b);
            if (MR_LOAD(nmea_pause) == 1) {
                MR_STORE(gpsfix.fix, 998);
                break;
            }
            continue;
        }
        puts("nmea sockt start\n");
        read_feed_lines(b);
        close_feed_socket(b);
        if (MR_LOAD(nmea_stat) == 0 || MR_LOAD(nmea_pause) == 1) {
            MR_STORE(gpsfix.fix, 998);
            break;
        }
        retries = FEED_RETRIES;
    }

    pthread_mutex_lock(&feedLock);
    feedAlive = 0;
    MR_STORE(nmea_stat, 0);
    lastrequest[0] = 0;
    pthread_mutex_unlock(&feedLock);
    puts("nema ends\n");
    MR_ADD(mrApp.threadCount, -1);
    pthread_exit(NULL);
}

/* Playback: clears the log, writes the start row and passes every line of
** the file to nmea_update as fast as it can be read, with no checksum gate.
** The end of file is tested behind the read, so the last line of a file
** that ends in a line feed goes through twice. */
void playNmeaThread(void *fileName) {
    char line[PLAY_LINE_SIZE];
    MR_ADD(mrApp.threadCount, 1);
    FILE *f = fopen((const char *)fileName, "r");
    if (f == NULL) {
        MR_ADD(mrApp.threadCount, -1);
        pthread_exit(NULL);
    }
    nmea_log_playback_start();
    line[0] = 0;
    /* a read error (a directory, say) never reaches end of file */
    while (!feof(f) && !ferror(f)) {
        if (fgets(line, sizeof(line), f) == NULL && ferror(f)) break;
        nmea_update(line);
    }
    fclose(f);
    MR_ADD(mrApp.threadCount, -1);
    pthread_exit(NULL);
}

/* Starts playNmeaThread on a copy of fileName. Returns 0, or -1 when the
** name does not fit. */
int nmea_playback(const char *fileName) {
    if (fileName == NULL || strlen(fileName) >= sizeof(playFile)) return -1;
    memcpy(playFile, fileName, strlen(fileName) + 1);
    _beginthread(playNmeaThread, 0, playFile);
    return 0;
}

/* Pauses the feed: nmea_stat 0, nmea_pause 1, and the socket shut down so
** that a read blocked in it returns at once; the thread closes it. Returns
** the result of the shutdown (-1 when no socket is open). */
int stop_nmea(void) {
    pthread_mutex_lock(&feedLock);
    MR_STORE(nmea_stat, 0);
    MR_STORE(nmea_pause, 1);
    feedAsk++;
    pthread_mutex_unlock(&feedLock);
    int fd = MR_LOAD(bnmea.fd);
    if (fd < 0) return -1;
    return shutdown(fd, SHUT_RDWR);
}

/* Resumes a paused feed: clears nmea_pause and starts the TCP thread. */
void cont_nmea(void) {
    if (MR_LOAD(nmea_pause) != 1) return;
    MR_STORE(nmea_pause, 0);
    pthread_mutex_lock(&feedLock);
    start_feed_locked();
    pthread_mutex_unlock(&feedLock);
}

/* Reads one line from b->fd a byte per recv, keeping its line feed. The
** 1000th byte is replaced by the terminator, so at most 999 bytes come
** back. A failed receive gives empty text and lineLength 0. Returns
** b->data (NULL when the record has no storage). */
char *getTcpLine(ResponseBuffer *b) {
    if (b->data == NULL) return NULL;
    int limit = b->capacity + 1 < TCP_LINE_LIMIT ? b->capacity + 1 : TCP_LINE_LIMIT;
    int n = 0;
    b->head = b->tail = b->scan = b->data;
    b->lineLength = 0;
    for (;;) {
        if (recv(b->fd, b->data + n, 1, 0) != 1) {
            n = 0;
            break;
        }
        if (n == limit - 1) break;
        if (b->data[n++] == '\n') break;
    }
    b->data[n] = 0;
    b->lineLength = n;
    return b->data;
}
