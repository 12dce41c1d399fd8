/*
** chart_server.cpp -- a local chart distribution server for tests and for
** trying the chart-kit dialogue by hand.
**
** Serves GET /ajax3.php?download=<id>&v=<version>&p=<pos>&u=<n> from the
** file <dir>/A%06d.marepack, from byte p to the end, one reply per
** connection ("Connection: close"). Any other path is served as a file
** under <dir> when it names one (no ".." allowed), else 404.
**
** Switches make it misbehave the ways a real server or network can:
**   --drop-after N    close the connection after N body bytes
**   --drop-count K    ... but only for the first K pack replies (default all)
**   --stall-after N   send N body bytes, then send nothing more until the
**                     peer goes away
**   --chunked         answer with Transfer-Encoding: chunked
**   --no-length       answer without Content-Length (body until close)
**   --zero-length     answer Content-Length: 0 and no body
**   --wrong-bytes     flip one byte in the middle of the pack
**   --rate B          send at most B body bytes a second
** Other options:
**   --dir D           directory of the packs (default ".")
**   --port N          port on 127.0.0.1 (default 0: any free port)
**   --port-file F     write the port number there once listening
**   --log F           append one line per request: "download=.. v=.. p=.. u=.."
**
** Usage: chart_server --dir packs --port 8080, then put "127.0.0.1:8080" in
** chartserver.key of the host's data directory.
*/
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

typedef struct CsOptions {
    const char *dir;
    int port;
    const char *portFile;
    const char *logFile;
    long dropAfter;   /* -1: off */
    long dropCount;   /* -1: every reply */
    long stallAfter;  /* -1: off */
    int chunked;
    int noLength;
    int zeroLength;
    int wrongBytes;
    long rate;        /* 0: unlimited */
} CsOptions;

static CsOptions cs = {".", 0, NULL, NULL, -1, -1, -1, 0, 0, 0, 0, 0};
static pthread_mutex_t csLock = PTHREAD_MUTEX_INITIALIZER;
static long csDropped; /* pack replies dropped so far, under csLock */

/* Sends all n bytes. Returns 0, or -1 when the peer is gone. */
static int cs_send(int fd, const void *p, size_t n) {
    const char *c = (const char *)p;
    while (n > 0) {
        ssize_t w = send(fd, c, n, MSG_NOSIGNAL);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return -1;
        c += w;
        n -= (size_t)w;
    }
    return 0;
}

static int cs_send_text(int fd, const char *s) { return cs_send(fd, s, strlen(s)); }

/* Reads the request header (up to the blank line) into req, zero-terminated.
** Returns 0, or -1 when the peer closes first or the header is too long. */
static int cs_read_request(int fd, char *req, size_t size) {
    size_t have = 0;
    while (have + 1 < size) {
        ssize_t r = recv(fd, req + have, size - 1 - have, 0);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return -1;
        have += (size_t)r;
        req[have] = 0;
        if (strstr(req, "\r\n\r\n") || strstr(req, "\n\n")) return 0;
    }
    return -1;
}

/* Returns the integer value of key in the query text, or def. */
static long cs_query(const char *query, const char *key, long def) {
    size_t k = strlen(key);
    for (const char *p = query; p && *p; p = strchr(p, '&'), p = p ? p + 1 : NULL) {
        if (strncmp(p, key, k) == 0 && p[k] == '=') return strtol(p + k + 1, NULL, 10);
    }
    return def;
}

static void cs_log(const char *line) {
    printf("%s\n", line);
    fflush(stdout);
    if (cs.logFile == NULL) return;
    FILE *f = fopen(cs.logFile, "a");
    if (f == NULL) return;
    fprintf(f, "%s\n", line);
    fclose(f);
}

/* Waits until the peer closes or a minute has passed. */
static void cs_stall(int fd) {
    struct pollfd p = {fd, POLLIN, 0};
    char sink[512];
    for (int i = 0; i < 600; i++) {
        if (poll(&p, 1, 100) > 0 && recv(fd, sink, sizeof(sink), 0) <= 0) return;
    }
}

static void cs_not_found(int fd) {
    cs_send_text(fd, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
}

/* Sends body bytes [from, to) of the open file, honouring the misbehaviour
** switches. Returns 0 when everything went out, -1 when stopped early. */
static int cs_send_body(int sock, FILE *f, long from, long to, long fileSize, long limit) {
    char block[16384];
    long sent = 0;
    long flip = fileSize / 2;
    fseek(f, from, SEEK_SET);
    for (long pos = from; pos < to;) {
        size_t want = (size_t)(to - pos) < sizeof(block) ? (size_t)(to - pos) : sizeof(block);
        if (cs.rate > 0 && (long)want > cs.rate / 10 + 1) want = (size_t)(cs.rate / 10 + 1);
        if (limit >= 0 && (long)want > limit - sent) want = (size_t)(limit - sent);
        if (want == 0) return -1;
        size_t got = fread(block, 1, want, f);
        if (got == 0) return -1;
        if (cs.wrongBytes && flip >= pos && flip < pos + (long)got) block[flip - pos] ^= 0x5a;
        if (cs.chunked) {
            char head[32];
            snprintf(head, sizeof(head), "%zx\r\n", got);
            if (cs_send_text(sock, head) != 0) return -1;
        }
        if (cs_send(sock, block, got) != 0) return -1;
        if (cs.chunked && cs_send_text(sock, "\r\n") != 0) return -1;
        pos += (long)got;
        sent += (long)got;
        if (cs.rate > 0) {
            struct timespec ts = {0, 100000000L};
            nanosleep(&ts, NULL);
        }
    }
    if (cs.chunked) cs_send_text(sock, "0\r\n\r\n");
    return 0;
}

/* One pack reply: header by the switches, then the body from p. */
static void cs_serve_pack(int sock, long id, long version, long p, long u) {
    char name[4096], line[256], head[512];
    struct stat st;
    snprintf(line, sizeof(line), "download=%ld v=%ld p=%ld u=%ld", id, version, p, u);
    cs_log(line);
    snprintf(name, sizeof(name), "%s/A%06ld.marepack", cs.dir, id);
    FILE *f = fopen(name, "rb");
    if (f == NULL || fstat(fileno(f), &st) != 0) {
        if (f) fclose(f);
        cs_not_found(sock);
        return;
    }
    long size = (long)st.st_size;
    long from = p < 0 ? 0 : p > size ? size : p;
    long length = size - from;

    long limit = -1;
    if (cs.dropAfter >= 0) {
        pthread_mutex_lock(&csLock);
        if (cs.dropCount < 0 || csDropped < cs.dropCount) {
            limit = cs.dropAfter;
            csDropped++;
        }
        pthread_mutex_unlock(&csLock);
    }
    if (cs.stallAfter >= 0) limit = cs.stallAfter;

    if (cs.zeroLength)
        snprintf(head, sizeof(head), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    else if (cs.chunked)
        snprintf(head, sizeof(head),
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                 "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n");
    else if (cs.noLength)
        snprintf(head, sizeof(head),
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n\r\n");
    else
        snprintf(head, sizeof(head),
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                 "Content-Length: %ld\r\nConnection: close\r\n\r\n",
                 length);
    if (cs_send_text(sock, head) == 0 && !cs.zeroLength) {
        cs_send_body(sock, f, from, size, size, limit);
        if (cs.stallAfter >= 0) cs_stall(sock);
    }
    fclose(f);
}

/* Any other path: a file under dir, or 404. */
static void cs_serve_file(int sock, const char *target) {
    char name[4096], head[256];
    struct stat st;
    if (strstr(target, "..") || snprintf(name, sizeof(name), "%s%s", cs.dir, target) >= (int)sizeof(name)) {
        cs_not_found(sock);
        return;
    }
    char *q = strchr(name, '?');
    if (q) *q = 0;
    FILE *f = fopen(name, "rb");
    if (f == NULL || fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
        if (f) fclose(f);
        cs_not_found(sock);
        return;
    }
    snprintf(head, sizeof(head), "HTTP/1.1 200 OK\r\nContent-Length: %ld\r\nConnection: close\r\n\r\n",
             (long)st.st_size);
    if (cs_send_text(sock, head) == 0) {
        char block[16384];
        size_t got;
        while ((got = fread(block, 1, sizeof(block), f)) > 0)
            if (cs_send(sock, block, got) != 0) break;
    }
    fclose(f);
}

static void *cs_connection(void *arg) {
    int sock = (int)(intptr_t)arg;
    char req[8192], target[4096];
    if (cs_read_request(sock, req, sizeof(req)) == 0 && sscanf(req, "GET %4095s", target) == 1) {
        const char *query = strchr(target, '?');
        if (strncmp(target, "/ajax3.php?", 11) == 0 && cs_query(query + 1, "download", -1) >= 0)
            cs_serve_pack(sock, cs_query(query + 1, "download", 0), cs_query(query + 1, "v", 0),
                          cs_query(query + 1, "p", 0), cs_query(query + 1, "u", 0));
        else
            cs_serve_file(sock, target);
    }
    shutdown(sock, SHUT_WR);
    close(sock);
    return NULL;
}

static long cs_number(const char *s) {
    char *end;
    long v = strtol(s, &end, 10);
    if (*s == 0 || *end != 0) {
        fprintf(stderr, "chart_server: not a number: %s\n", s);
        exit(2);
    }
    return v;
}

static void cs_options(int argc, char **argv) {
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i];
        const char *v = i + 1 < argc ? argv[i + 1] : NULL;
        if (!strcmp(a, "--chunked")) cs.chunked = 1;
        else if (!strcmp(a, "--no-length")) cs.noLength = 1;
        else if (!strcmp(a, "--zero-length")) cs.zeroLength = 1;
        else if (!strcmp(a, "--wrong-bytes")) cs.wrongBytes = 1;
        else if (v == NULL) {
            fprintf(stderr, "chart_server: unknown switch or missing value: %s\n", a);
            exit(2);
        } else {
            i++;
            if (!strcmp(a, "--dir")) cs.dir = v;
            else if (!strcmp(a, "--port")) cs.port = (int)cs_number(v);
            else if (!strcmp(a, "--port-file")) cs.portFile = v;
            else if (!strcmp(a, "--log")) cs.logFile = v;
            else if (!strcmp(a, "--drop-after")) cs.dropAfter = cs_number(v);
            else if (!strcmp(a, "--drop-count")) cs.dropCount = cs_number(v);
            else if (!strcmp(a, "--stall-after")) cs.stallAfter = cs_number(v);
            else if (!strcmp(a, "--rate")) cs.rate = cs_number(v);
            else {
                fprintf(stderr, "chart_server: unknown switch: %s\n", a);
                exit(2);
            }
        }
    }
}

int main(int argc, char **argv) {
    struct sockaddr_in addr;
    socklen_t len = sizeof(addr);
    int one = 1;
    cs_options(argc, argv);
    signal(SIGPIPE, SIG_IGN);

    int lfd = socket(AF_INET, SOCK_STREAM, 0);
    setsockopt(lfd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons((uint16_t)cs.port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (lfd < 0 || bind(lfd, (struct sockaddr *)&addr, sizeof(addr)) != 0 || listen(lfd, 16) != 0) {
        perror("chart_server: listen");
        return 1;
    }
    getsockname(lfd, (struct sockaddr *)&addr, &len);
    printf("chart_server listening on 127.0.0.1:%d\n", ntohs(addr.sin_port));
    fflush(stdout);
    if (cs.portFile) {
        /* written whole under a temporary name, so a reader never sees half */
        char tmp[4096];
        snprintf(tmp, sizeof(tmp), "%s.part", cs.portFile);
        FILE *f = fopen(tmp, "w");
        if (f) {
            fprintf(f, "%d\n", ntohs(addr.sin_port));
            fclose(f);
            rename(tmp, cs.portFile);
        }
    }
    for (;;) {
        int sock = accept(lfd, NULL, NULL);
        if (sock < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            perror("chart_server: accept");
            return 1;
        }
        pthread_t th;
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        if (pthread_create(&th, &attr, cs_connection, (void *)(intptr_t)sock) != 0) close(sock);
        pthread_attr_destroy(&attr);
    }
}
