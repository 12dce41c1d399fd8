/*
** chartkit_serve.cpp -- mareplot-chartkit serve: the chart distribution
** server for a directory of packs A<6 digits>.marepack. One thread per
** connection, one reply per connection ("Connection: close").
**
**   GET /ajax3.php?download=<id>&v=<version>&p=<pos>&u=<n>
**       the pack's bytes from position p to the end, with Content-Length
**   GET /kits.json
**       {"update":{"<id>":{"pid":..,"name":..,"version":..,"filesize":..,
**       "crc32":".."},...}}, ids ascending, readable from any origin
**   GET /
**       the same list as an HTML table for a person
** Anything else is 404; a path holding ".." is refused with 403.
**
** The kit list reads every pack once and keeps what it read per file name
** with the file's size and modification time, so a listing doesn't read
** gigabytes again; a changed file is read afresh.
**
** Switches make the pack replies misbehave the ways a real server or
** network can, for the download's tests:
**   --drop-after N    close the connection after N body bytes
**   --drop-count K    ... but only for the first K pack replies (default all)
**   --stall-after N   send N body bytes, then nothing more until the peer goes
**   --chunked         answer with Transfer-Encoding: chunked
**   --no-length       answer without Content-Length (body until close)
**   --zero-length     answer Content-Length: 0 and no body
**   --wrong-bytes     flip one byte in the middle of the pack
**   --rate B          send at most B body bytes a second
** Other options: --dir D (default "."), --port N (default 0: any free port),
** --bind ADDR (default 127.0.0.1), --port-file F (the port, written once
** listening), --log F (one line per pack request "download=.. v=.. p=.. u=..").
*/
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
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

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tools/chartkit/chartkit.h"

typedef struct SvOptions {
    const char *dir;
    int port;
    const char *bind;
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
} SvOptions;

static SvOptions sv = {".", 0, "127.0.0.1", NULL, NULL, -1, -1, -1, 0, 0, 0, 0, 0};
static pthread_mutex_t svLock = PTHREAD_MUTEX_INITIALIZER;
static long svDropped; /* pack replies dropped so far, under svLock */

/* What the kit list knows of one file, valid while size and mtime hold. */
struct SvCached {
    long long size;
    long long mtimeNs;
    CkPackInfo info;
};
static std::map<std::string, SvCached> svCache; /* under svLock */

/* Sends all n bytes. Returns 0, or -1 when the peer is gone. */
static int sv_send(int fd, const void *p, size_t n) {
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

static int sv_send_text(int fd, const char *s) { return sv_send(fd, s, strlen(s)); }

/* Reads the request header (up to the blank line) into req, zero-terminated.
** Returns 0, or -1 when the peer closes first, is silent for 30 seconds,
** or the header is too long. */
static int sv_read_request(int fd, char *req, size_t size) {
    size_t have = 0;
    struct timeval tv = {30, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
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
static long sv_query(const char *query, const char *key, long def) {
    size_t k = strlen(key);
    for (const char *p = query; p && *p; p = strchr(p, '&'), p = p ? p + 1 : NULL) {
        if (strncmp(p, key, k) == 0 && p[k] == '=') return strtol(p + k + 1, NULL, 10);
    }
    return def;
}

static void sv_log(const char *line) {
    printf("%s\n", line);
    fflush(stdout);
    if (sv.logFile == NULL) return;
    pthread_mutex_lock(&svLock);
    FILE *f = fopen(sv.logFile, "a");
    if (f != NULL) {
        fprintf(f, "%s\n", line);
        fclose(f);
    }
    pthread_mutex_unlock(&svLock);
}

/* Waits until the peer closes or a minute has passed. */
static void sv_stall(int fd) {
    struct pollfd p = {fd, POLLIN, 0};
    char sink[512];
    for (int i = 0; i < 600; i++) {
        if (poll(&p, 1, 100) > 0 && recv(fd, sink, sizeof(sink), 0) <= 0) return;
    }
}

static void sv_status(int fd, const char *status) {
    char head[256];
    snprintf(head, sizeof(head), "HTTP/1.1 %s\r\nContent-Length: 0\r\nConnection: close\r\n\r\n", status);
    sv_send_text(fd, head);
}

/* Sends a whole reply with a body. */
static void sv_reply(int fd, const char *type, const std::string &body) {
    char head[512];
    snprintf(head, sizeof(head),
             "HTTP/1.1 200 OK\r\nContent-Type: %s\r\nContent-Length: %zu\r\n"
             "Access-Control-Allow-Origin: *\r\nCache-Control: no-cache\r\nConnection: close\r\n\r\n",
             type, body.size());
    if (sv_send_text(fd, head) == 0) sv_send(fd, body.data(), body.size());
}

/* Sends body bytes [from, to) of the open file, honouring the misbehaviour
** switches. Returns 0 when everything went out, -1 when stopped early. */
static int sv_send_body(int sock, FILE *f, long long from, long long to, long long fileSize, long limit) {
    char block[16384];
    long sent = 0;
    long long flip = fileSize / 2;
    if (fseeko(f, (off_t)from, SEEK_SET) != 0) return -1;
    for (long long pos = from; pos < to;) {
        size_t want = (size_t)(to - pos) < sizeof(block) ? (size_t)(to - pos) : sizeof(block);
        if (sv.rate > 0 && (long)want > sv.rate / 10 + 1) want = (size_t)(sv.rate / 10 + 1);
        if (limit >= 0 && (long)want > limit - sent) want = (size_t)(limit - sent);
        if (want == 0) return -1;
        size_t got = fread(block, 1, want, f);
        if (got == 0) return -1;
        if (sv.wrongBytes && flip >= pos && flip < pos + (long long)got) block[flip - pos] ^= 0x5a;
        if (sv.chunked) {
            char head[32];
            snprintf(head, sizeof(head), "%zx\r\n", got);
            if (sv_send_text(sock, head) != 0) return -1;
        }
        if (sv_send(sock, block, got) != 0) return -1;
        if (sv.chunked && sv_send_text(sock, "\r\n") != 0) return -1;
        pos += (long long)got;
        sent += (long)got;
        if (sv.rate > 0) {
            struct timespec ts = {0, 100000000L};
            nanosleep(&ts, NULL);
        }
    }
    if (sv.chunked) sv_send_text(sock, "0\r\n\r\n");
    return 0;
}

/* One pack reply: header by the switches, then the body from p. */
static void sv_serve_pack(int sock, long id, long version, long p, long u) {
    char name[4096], line[256], head[512];
    struct stat st;
    snprintf(line, sizeof(line), "download=%ld v=%ld p=%ld u=%ld", id, version, p, u);
    sv_log(line);
    if (id < 0 || id > 999999) {
        sv_status(sock, "404 Not Found");
        return;
    }
    snprintf(name, sizeof(name), "%s/A%06ld.marepack", sv.dir, id);
    FILE *f = fopen(name, "rb");
    if (f == NULL || fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
        if (f) fclose(f);
        sv_status(sock, "404 Not Found");
        return;
    }
    long long size = (long long)st.st_size;
    long long from = p < 0 ? 0 : p > size ? size : p;
    long long length = size - from;

    long limit = -1;
    if (sv.dropAfter >= 0) {
        pthread_mutex_lock(&svLock);
        if (sv.dropCount < 0 || svDropped < sv.dropCount) {
            limit = sv.dropAfter;
            svDropped++;
        }
        pthread_mutex_unlock(&svLock);
    }
    if (sv.stallAfter >= 0) limit = sv.stallAfter;

    if (sv.zeroLength)
        snprintf(head, sizeof(head), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    else if (sv.chunked)
        snprintf(head, sizeof(head),
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                 "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n");
    else if (sv.noLength)
        snprintf(head, sizeof(head),
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nConnection: close\r\n\r\n");
    else
        snprintf(head, sizeof(head),
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                 "Content-Length: %lld\r\nConnection: close\r\n\r\n",
                 length);
    if (sv_send_text(sock, head) == 0 && !sv.zeroLength) {
        sv_send_body(sock, f, from, size, size, limit);
        if (sv.stallAfter >= 0) sv_stall(sock);
    }
    fclose(f);
}

/* The packs of the directory, ids ascending, each read once per size and
** mtime. Files that don't read as packs are left out of the list. */
static std::vector<CkPackInfo> sv_list(void) {
    std::vector<std::string> names;
    DIR *d = opendir(sv.dir);
    if (d != NULL) {
        struct dirent *e;
        while ((e = readdir(d)) != NULL)
            if (ck_pack_id_of_name(e->d_name) >= 0) names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end()); /* six digits: name order is id order */

    std::vector<CkPackInfo> out;
    for (const std::string &n : names) {
        std::string path = std::string(sv.dir) + "/" + n;
        struct stat st;
        if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        long long mtimeNs = (long long)st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;

        pthread_mutex_lock(&svLock);
        auto it = svCache.find(n);
        int fresh = it != svCache.end() && it->second.size == (long long)st.st_size && it->second.mtimeNs == mtimeNs;
        if (fresh) out.push_back(it->second.info);
        pthread_mutex_unlock(&svLock);
        if (fresh) continue;

        /* read outside the lock: a large pack must not hold up other lists */
        CkPackInfo info;
        std::string reason;
        if (ck_pack_read(path.c_str(), &info, &reason) != 0) continue;
        out.push_back(info);
        pthread_mutex_lock(&svLock);
        svCache[n] = SvCached{(long long)st.st_size, mtimeNs, info};
        pthread_mutex_unlock(&svLock);
    }
    return out;
}

static void sv_kits_json(int sock) {
    std::vector<CkPackInfo> kits = sv_list();
    std::string j = "{\"update\":{";
    for (size_t i = 0; i < kits.size(); i++) {
        const CkPackInfo &k = kits[i];
        char crc[16];
        snprintf(crc, sizeof(crc), "%08x", k.crc32);
        if (i) j += ",";
        j += "\"" + std::to_string(k.id) + "\":{\"pid\":" + std::to_string(k.id) + ",\"name\":";
        ck_json_string(&j, k.name);
        j += ",\"version\":" + std::to_string(k.version) + ",\"filesize\":" + std::to_string(k.bytes) +
             ",\"crc32\":\"" + crc + "\"}";
    }
    j += "}}";
    sv_reply(sock, "application/json; charset=UTF-8", j);
}

static void sv_index_html(int sock) {
    std::vector<CkPackInfo> kits = sv_list();
    std::string h =
        "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Chart kits</title></head><body>\n"
        "<h1>Chart kits</h1>\n<p>The same list as JSON: <a href=\"/kits.json\">/kits.json</a></p>\n"
        "<table border=\"1\" cellpadding=\"4\">\n"
        "<tr><th>Id</th><th>Name</th><th>Version</th><th>Bytes</th><th>CRC-32</th></tr>\n";
    for (const CkPackInfo &k : kits) {
        char row[256];
        h += "<tr><td>" + std::to_string(k.id) + "</td><td>";
        ck_html_text(&h, k.name);
        snprintf(row, sizeof(row), "</td><td>%ld</td><td>%lld</td><td>%08x</td></tr>\n", k.version, k.bytes,
                 k.crc32);
        h += row;
    }
    h += "</table>\n</body></html>\n";
    sv_reply(sock, "text/html; charset=UTF-8", h);
}

static void *sv_connection(void *arg) {
    int sock = (int)(intptr_t)arg;
    char req[8192], method[16], target[4096];
    if (sv_read_request(sock, req, sizeof(req)) != 0) {
        /* nothing whole arrived: no reply */
    } else if (sscanf(req, "%15s %4095s", method, target) != 2 || strcmp(method, "GET") != 0) {
        sv_status(sock, "400 Bad Request");
    } else if (strstr(target, "..") != NULL) {
        sv_status(sock, "403 Forbidden");
    } else {
        const char *query = strchr(target, '?');
        size_t pathLength = query ? (size_t)(query - target) : strlen(target);
        std::string path(target, pathLength);
        if (path == "/ajax3.php" && query && sv_query(query + 1, "download", -1) >= 0)
            sv_serve_pack(sock, sv_query(query + 1, "download", 0), sv_query(query + 1, "v", 0),
                          sv_query(query + 1, "p", 0), sv_query(query + 1, "u", 0));
        else if (path == "/kits.json")
            sv_kits_json(sock);
        else if (path == "/" || path == "/index.html")
            sv_index_html(sock);
        else
            sv_status(sock, "404 Not Found");
    }
    shutdown(sock, SHUT_WR);
    close(sock);
    return NULL;
}

/* Reads a whole decimal number. Returns 0, or -1 when s isn't one. */
static int sv_number(const char *s, long *v) {
    char *end;
    errno = 0;
    *v = strtol(s, &end, 10);
    return (*s == 0 || *end != 0 || errno != 0) ? -1 : 0;
}

/* Returns 0, or -1 after reporting the bad switch. */
static int sv_options(int argc, char **argv) {
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i];
        const char *v = i + 1 < argc ? argv[i + 1] : NULL;
        long n = 0;
        if (!strcmp(a, "--chunked")) sv.chunked = 1;
        else if (!strcmp(a, "--no-length")) sv.noLength = 1;
        else if (!strcmp(a, "--zero-length")) sv.zeroLength = 1;
        else if (!strcmp(a, "--wrong-bytes")) sv.wrongBytes = 1;
        else if (v == NULL) {
            ck_fail(a, "unknown switch or missing value");
            return -1;
        } else {
            i++;
            if (!strcmp(a, "--dir")) sv.dir = v;
            else if (!strcmp(a, "--bind")) sv.bind = v;
            else if (!strcmp(a, "--port-file")) sv.portFile = v;
            else if (!strcmp(a, "--log")) sv.logFile = v;
            else if (sv_number(v, &n) != 0) {
                ck_fail(v, "not a number");
                return -1;
            } else if (!strcmp(a, "--port") && n >= 0 && n <= 65535) sv.port = (int)n;
            else if (!strcmp(a, "--drop-after")) sv.dropAfter = n;
            else if (!strcmp(a, "--drop-count")) sv.dropCount = n;
            else if (!strcmp(a, "--stall-after")) sv.stallAfter = n;
            else if (!strcmp(a, "--rate")) sv.rate = n;
            else {
                ck_fail(a, "unknown switch or value out of range");
                return -1;
            }
        }
    }
    return 0;
}

int ck_serve_main(int argc, char **argv) {
    struct sockaddr_in addr;
    socklen_t len = sizeof(addr);
    int one = 1;
    struct stat st;
    if (sv_options(argc, argv) != 0) return 2;
    if (stat(sv.dir, &st) != 0 || !S_ISDIR(st.st_mode)) {
        ck_fail(sv.dir, "not a directory");
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);

    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons((uint16_t)sv.port);
    if (inet_pton(AF_INET, sv.bind, &addr.sin_addr) != 1) {
        ck_fail(sv.bind, "not an IPv4 address");
        return 2;
    }
    int lfd = socket(AF_INET, SOCK_STREAM, 0);
    if (lfd >= 0) setsockopt(lfd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    if (lfd < 0 || bind(lfd, (struct sockaddr *)&addr, sizeof(addr)) != 0 || listen(lfd, 64) != 0) {
        ck_fail(sv.bind, strerror(errno));
        return 1;
    }
    getsockname(lfd, (struct sockaddr *)&addr, &len);
    printf("mareplot-chartkit serving %s on %s:%d\n", sv.dir, sv.bind, ntohs(addr.sin_port));
    fflush(stdout);
    if (sv.portFile) {
        /* written whole under a temporary name, so a reader never sees half */
        std::string tmp = std::string(sv.portFile) + ".part";
        FILE *f = fopen(tmp.c_str(), "w");
        if (f) {
            fprintf(f, "%d\n", ntohs(addr.sin_port));
            fclose(f);
            rename(tmp.c_str(), sv.portFile);
        }
    }
    for (;;) {
        int sock = accept(lfd, NULL, NULL);
        if (sock < 0) {
            if (errno == EINTR || errno == ECONNABORTED || errno == EMFILE || errno == ENFILE) {
                if (errno == EMFILE || errno == ENFILE) usleep(10000); /* let connections end first */
                continue;
            }
            ck_fail("accept", strerror(errno));
            return 1;
        }
        pthread_t th;
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
        if (pthread_create(&th, &attr, sv_connection, (void *)(intptr_t)sock) != 0) close(sock);
        pthread_attr_destroy(&attr);
    }
}
