/*
** download.cpp -- the pack download: the background thread `download`,
** which fetches one pack from the chart distribution server into the
** temporary file packDir + "N%06d.temp", resumes it after dropped
** connections and restarts of the host, verifies size and CRC-32 and then
** puts it in place of packDir + "A%06d.marepack"; and `http_get`, the
** plain HTTP/1.1 GET that opens each connection.
**
** The thread shares dlId, dlBytes, dlState and dlError with the /download/
** route through plain 32-bit words (MR_LOAD/MR_STORE keep every poll).
** Only one download runs at a time: the route starts the thread only in
** state 0, and the thread goes back to 0 as its last act.
**
** The server's host comes from the one-line key file "chartserver.key" in
** the data directory, as "host" or "host:port" ("[v6addr]:port" for an
** IPv6 literal with a port). Without it the host is a name under the
** reserved ".invalid" domain, which never resolves, so an unconfigured host
** sends no traffic anywhere. The client's Settings write and read that
** file through /setChartServer/ and /getChartServer, which take only a
** plain address.
*/
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

#define DL_DEFAULT_HOST "charts.mareplot.invalid"
#define DL_BLOCK 65536
#define DL_RESUME_BLOCK 8192
#define DL_RETRIES 5
#define DL_LOOKUP_TRIES 20
/* room for the server's "host[:port]", its end included */
#define DL_HOST_SIZE 256

/* ---- configuration ---- */

/* Fills value (size bytes) with the first line of keyDir +
** "chartserver.key", surrounding blanks and the line end removed; empty
** when the file is missing or blank. Returns 0, or -1 with value empty
** when the line does not fit: a cut name would be another server. */
int download_server_key(char *value, unsigned size) {
    char line[1024];
    char *p, *end;
    if (size == 0) return -1;
    value[0] = 0;
    line[0] = 0;
    mrc_read_regkey("chartserver", line, sizeof(line));
    /* a line that fills the whole read without its line end is longer still */
    if (strlen(line) == sizeof(line) - 1 && line[sizeof(line) - 2] != '\n') return -1;
    for (p = line; *p == ' ' || *p == '\t'; p++) {
    }
    end = p + strlen(p);
    while (end > p && (end[-1] == '\n' || end[-1] == '\r' || end[-1] == ' ' || end[-1] == '\t'))
        *--end = 0;
    if (strlen(p) >= size) return -1;
    memcpy(value, p, strlen(p) + 1);
    return 0;
}

/* Fills host (size bytes) with the chart server's "host" or "host:port"
** from chartserver.key, or with the built-in ".invalid" host when the file
** is missing or blank. Returns 0, or -1 with host empty when the line does
** not fit. */
int download_server_host(char *host, unsigned size) {
    if (download_server_key(host, size) != 0) return -1;
    if (host[0]) return 0;
    if (strlen(DL_DEFAULT_HOST) >= size) return -1;
    memcpy(host, DL_DEFAULT_HOST, strlen(DL_DEFAULT_HOST) + 1);
    return 0;
}

/* 1 when the n bytes at s are a host name or IPv4 address: labels of
** letters, digits and "-", 1 to 63 bytes each, joined by single dots. */
static int server_name_valid(const char *s, size_t n) {
    size_t label = 0;
    if (n == 0) return 0;
    for (size_t i = 0; i < n; i++) {
        char c = s[i];
        if (c == '.') {
            if (label == 0) return 0;
            label = 0;
        } else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-') {
            if (++label > 63) return 0;
        } else {
            return 0;
        }
    }
    return label > 0;
}

/* 1 when the n bytes at s can be an IPv6 literal: hexadecimal digits,
** colons (two at least) and the dots of an embedded IPv4 address. */
static int server_v6_valid(const char *s, size_t n) {
    int colons = 0;
    for (size_t i = 0; i < n; i++) {
        char c = s[i];
        if (c == ':') colons++;
        else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || c == '.'))
            return 0;
    }
    return colons >= 2;
}

/* 1 when address is a chart server address the download can use: "host",
** "host:port", "[v6]" or "[v6]:port", with a port of 1 to 65535, and
** short enough for the download's host field. Anything else, a path or a
** scheme among it, is refused. */
int download_server_valid(const char *address) {
    size_t len = strlen(address);
    const char *port;
    if (len == 0 || len >= DL_HOST_SIZE) return 0;
    if (address[0] == '[') {
        const char *close = strchr(address, ']');
        if (close == NULL || !server_v6_valid(address + 1, (size_t)(close - address - 1))) return 0;
        if (close[1] == 0) return 1;
        if (close[1] != ':') return 0;
        port = close + 2;
    } else {
        const char *colon = strchr(address, ':');
        if (!server_name_valid(address, colon ? (size_t)(colon - address) : len)) return 0;
        if (colon == NULL) return 1;
        port = colon + 1;
    }
    long value = 0;
    size_t digits = strlen(port);
    if (digits == 0 || digits > 5) return 0;
    for (size_t i = 0; i < digits; i++) {
        if (port[i] < '0' || port[i] > '9') return 0;
        value = value * 10 + (port[i] - '0');
    }
    return value >= 1 && value <= 65535;
}

/* Stores the chart server's address in chartserver.key; an empty address
** removes the file, so downloads go nowhere again. Returns 0, or -1 for
** an address that is refused or could not be written (the read-back
** differs). */
int download_set_server(const char *address) {
    char path[512], back[DL_HOST_SIZE];
    if (address[0] == 0) {
        mr_bprintf(path, sizeof(path), "%schartserver.key", mrApp.keyDir);
        return unlink(path) == 0 || errno == ENOENT ? 0 : -1;
    }
    if (!download_server_valid(address)) return -1;
    mrc_write_regkey("chartserver", address);
    if (download_server_key(back, sizeof(back)) != 0 || strcmp(back, address) != 0) return -1;
    return 0;
}

/* Route /setChartServer/<address>: "OK" when stored (or removed, for an
** empty address), "ERR" otherwise. */
void setChartServer(ResponseBuffer *out, const char *address) {
    buffReset(out);
    buffAddChar(out, download_set_server(address) == 0 ? "OK" : "ERR");
    buffSendHttp(out, NULL, MT_BINARY, 0);
}

/* Route /getChartServer: the address in chartserver.key as it stands, or
** nothing when none is set (the built-in host is not shown). */
void getChartServer(ResponseBuffer *out) {
    char value[1024];
    if (download_server_key(value, sizeof(value)) != 0) value[0] = 0;
    buffReset(out);
    buffAddChar(out, value);
    buffSendHttp(out, NULL, MT_BINARY, 0);
}

/* Splits "host", "host:port", "[v6]" or "[v6]:port" into name and service.
** The service is "80" (the "http" port, given as a number so that the
** lookup needs no services database) when no port follows. A bare text with
** several colons is an IPv6 literal without port. Returns 0, or -1 when the
** parts do not fit. */
static int http_split_host(const char *text, char *name, size_t nameSize, char *service,
                           size_t serviceSize) {
    const char *colon = NULL;
    size_t nameLen;
    if (text[0] == '[') {
        const char *close = strchr(text, ']');
        if (close == NULL) return -1;
        text++;
        nameLen = (size_t)(close - text);
        if (close[1] == ':') colon = close + 1;
    } else {
        colon = strchr(text, ':');
        if (colon && strchr(colon + 1, ':')) colon = NULL;
        nameLen = colon ? (size_t)(colon - text) : strlen(text);
    }
    if (nameLen >= nameSize) return -1;
    memcpy(name, text, nameLen);
    name[nameLen] = 0;
    if (snprintf(service, serviceSize, "%s", colon && colon[1] ? colon + 1 : "80") >=
        (int)serviceSize)
        return -1;
    return 0;
}

/* ---- http_get ---- */

/* Receive timeout and keep-alive, set on each new socket and once more after
** the connect. */
static void http_socket_options(int fd) {
    struct timeval tv;
    int one = 1;
    tv.tv_sec = 60;
    tv.tv_usec = 100000;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof(one));
}

/* Opens a connection to host ("host" or "host:port", port 80 by default),
** sends "GET <path> HTTP/1.1" with a Host header and reads the reply's
** header. On return b->fd holds the socket whenever one was connected
** (also for -3 and -6; the caller closes it), and b is ready to read the
** body with buffGetData. The status line is not examined.
** Returns the Content-Length when it is at least 1, otherwise the value
** read (0 or negative), or -1 name lookup failed 20 times, 2 seconds apart;
** -2 no connection; -3 no Content-Length header; -6 chunked reply. */
int http_get(const char *host, const char *path, ResponseBuffer *b) {
    char name[256], service[32], request[1024];
    struct addrinfo hints, *list = NULL, *ai;
    int fd = -1, contentLength = -3, n;

    if (http_split_host(host, name, sizeof(name), service, sizeof(service)) != 0) return -1;
    memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    for (int tries = 0;; tries++) {
        if (getaddrinfo(name, service, &hints, &list) == 0) break;
        list = NULL;
        sleep(2);
        if (tries + 1 >= DL_LOOKUP_TRIES) return -1;
    }

    for (ai = list; ai != NULL; ai = ai->ai_next) {
        fd = socket(ai->ai_family, ai->ai_socktype, ai->ai_protocol);
        if (fd < 0) continue;
        http_socket_options(fd);
        if (connect(fd, ai->ai_addr, ai->ai_addrlen) == 0) break;
        close(fd);
        fd = -1;
    }
    freeaddrinfo(list);
    if (fd < 0) return -2;

    http_socket_options(fd);
    buffReset(b);
    b->fd = fd;

    /* name is at most 255 bytes and the path is the host's own, so the
    ** request always fits; a cut one would still be sent whole as cut */
    n = snprintf(request, sizeof(request), "GET %s HTTP/1.1\r\nHost: %s\r\n\r\n", path, host);
    if (n < 0 || n >= (int)sizeof(request)) n = (int)strlen(request);
    send(fd, request, (size_t)n, MSG_NOSIGNAL);

    for (;;) {
        char *line = buffGetLine(b);
        int value;
        if (line == NULL) break;
        if (strncmp(line, "Transfer-Encoding: chunked", 24) == 0) return DL_ERR_PROVIDER;
        if (sscanf(line, "Content-Length:%d", &value) == 1) contentLength = value;
        if (b->lineLength <= 2) break;
    }
    return contentLength;
}

/* ---- the install step ---- */

/* Puts the verified temporary file in place of packDir + "A%06d.marepack":
** closes the handle that may hold the old file (appDb for pack 1, chartDb,
** whichever pack it is, for any other) and renames the temporary file over
** the old one. rename replaces the old file in one step, so no moment
** exists at which the pack is missing on disk. Both handle changes go
** through the guard of the database set, so no request is inside a
** statement on the old file when it is closed.
** Pack 1 is opened again at once, read-only, so that the next /app/ request
** serves from it (a failed open leaves appDb null and /app/ falls back to
** the file system). A chart pack is left for the client to select. */
static void download_install(int id, const char *tempPath) {
    char packPath[512];
    snprintf(packPath, sizeof(packPath), "%sA%06d.marepack", mrApp.packDir, id);
    mr_db_swap(id == 1 ? &mrApp.appDb : &mrApp.chartDb, NULL);
    rename(tempPath, packPath);
    if (id == 1) {
        sqlite3 *db = NULL;
        if (sqlite3_open_v2(packPath, &db, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK) {
            sqlite3_close(db);
            db = NULL;
        }
        mr_db_swap(&mrApp.appDb, db);
    }
}

/* ---- the thread ---- */

/* Writes all n bytes at the file position. Returns 0, or -1 on a failed or
** short write. */
static int download_write(int fd, const char *p, int n) {
    ssize_t w;
    do {
        w = write(fd, p, (size_t)n);
    } while (w < 0 && errno == EINTR);
    return w == n ? 0 : -1;
}

/* The download thread. Runs only when dlState is DL_REQUESTED (set by the
** route); takes everything from dlArgs ("<id> <version> <size> <crc32 in
** hex>"; fields that do not parse stay 0) and leaves its result in dlError:
** DL_OK when installed (or nothing to do), otherwise a DL_ERR_* code.
** Ends with dlState DL_IDLE. */
void download(void) {
    ResponseBuffer buf;
    char args[sizeof(mrApp.dlArgs)], host[DL_HOST_SIZE], tempPath[512], path[160];
    int id = 0, version = 0, size = 0, fileFd = -1, retries = DL_RETRIES;
    unsigned expected = 0;
    uint32_t crc = 0xFFFFFFFFu;
    int judge = 1;

    /* 1 -> 2 in one step: should two starts race in the route, only one
    ** thread takes the download and the other leaves at once */
    int32_t requested = DL_REQUESTED;
    if (!MR_CAS(mrApp.dlState, &requested, DL_RUNNING)) return;
    MR_STORE(mrApp.dlBytes, 0);
    MR_STORE(mrApp.dlError, DL_OK);
    MR_STORE(mrApp.dlId, 0);

    memset(&buf, 0, sizeof(buf));
    if (buffInit(&buf) == NULL) {
        MR_STORE(mrApp.dlError, DL_ERR_LOCAL);
        judge = 0;
        goto release;
    }
    buf.fd = -1;

    memcpy(args, mrApp.dlArgs, sizeof(args));
    args[sizeof(args) - 1] = 0;
    sscanf(args, "%d %d %d %8x", &id, &version, &size, &expected);
    MR_STORE(mrApp.dlId, id);
    if (download_server_host(host, sizeof(host)) != 0) {
        /* an unusable server name is a server not found, asked of no one */
        MR_STORE(mrApp.dlError, DL_ERR_SERVER);
        judge = 0;
        goto release;
    }

    snprintf(tempPath, sizeof(tempPath), "%sN%06d.temp", mrApp.packDir, id);
    fileFd = open(tempPath, O_RDWR | O_CREAT, 0666);
    if (fileFd < 0) {
        MR_STORE(mrApp.dlError, DL_ERR_LOCAL);
        judge = 0;
        goto release;
    }

    /* Resume: whatever an earlier run left is taken as the first bytes of
    ** the pack; the file position ends at its end, where new data goes. */
    {
        char block[DL_RESUME_BLOCK];
        ssize_t got;
        int32_t held = 0;
        while ((got = read(fileFd, block, sizeof(block))) > 0) {
            crc = ucrc32(crc, block, (int)got);
            /* a file beyond 2 GiB is more than any size: judged as such */
            held = got > INT32_MAX - held ? INT32_MAX : held + (int32_t)got;
        }
        MR_STORE(mrApp.dlBytes, held);
    }

    while (MR_LOAD(mrApp.dlBytes) < size && MR_LOAD(mrApp.dlError) == DL_OK &&
           MR_LOAD(mrApp.dlState) != DL_CANCEL) {
        buffReset(&buf);
        snprintf(path, sizeof(path), "/ajax3.php?download=%d&v=%d&p=%d&u=%d", id, version,
                 MR_LOAD(mrApp.dlBytes), 0);
        if (http_get(host, path, &buf) < 1) {
            MR_STORE(mrApp.dlError, DL_ERR_SERVER);
        } else {
            while (MR_LOAD(mrApp.dlBytes) < size && MR_LOAD(mrApp.dlState) != DL_CANCEL) {
                int32_t held = MR_LOAD(mrApp.dlBytes);
                char *block = buffGetData(&buf, DL_BLOCK);
                int n = block ? buf.lineLength : -1;
                if (n == DL_BLOCK || (n > 0 && n == size - held)) {
                    if (download_write(fileFd, block, n) != 0) {
                        MR_STORE(mrApp.dlError, DL_ERR_WRITE);
                        break;
                    }
                    /* a full block past the size is counted and judged */
                    MR_STORE(mrApp.dlBytes, n > INT32_MAX - held ? INT32_MAX : held + n);
                    crc = ucrc32(crc, block, n);
                    retries = DL_RETRIES;
                    continue;
                }
                /* a read error, a timeout or a short block of a dropped
                ** connection: its bytes are lost, the block is fetched again */
                if (retries > 0) {
                    retries--;
                    sleep(2);
                } else {
                    MR_STORE(mrApp.dlError, DL_ERR_NETWORK);
                }
                break;
            }
        }
        if (buf.fd >= 0) close(buf.fd);
        buf.fd = -1;
    }

release:
    if (fileFd >= 0) close(fileFd);
    if (buf.fd > 0) close(buf.fd);
    buffFree(&buf);

    if (judge) {
        int32_t held = MR_LOAD(mrApp.dlBytes);
        int crcOk = (uint32_t)~crc == (uint32_t)expected;
        if (held > size || (held == size && !crcOk)) {
            MR_STORE(mrApp.dlError, DL_ERR_DAMAGED);
            unlink(tempPath);
        } else if (crcOk) {
            /* also below the size when the CRC of the part matches: kept so */
            download_install(id, tempPath);
        }
    }

    if (MR_LOAD(mrApp.dlState) == DL_CANCEL) MR_STORE(mrApp.dlError, DL_ERR_CANCELLED);
    MR_STORE(mrApp.dlState, DL_IDLE);
}
