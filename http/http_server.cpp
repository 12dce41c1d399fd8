/*
** http_server.cpp -- http_server, the listener on bindAddress:port, and
** connection, the loop that reads one request after another from a socket,
** keeps Content-Length and Authorization and hands the decoded path to the
** route lists.
**
** Keep-alive counting: requestBudget starts at 10000 and is decremented
** before each request into keepAliveMax, so replies say max=9999, 9998 ...;
** the reply for 0 says "Connection: close", and the loop ends only after
** the reply that carried -3.
*/
#include "http/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "http/request_guard.h"
#include "http/response_buffer.h"
#include "http/routes.h"
#include "shell/app_record.h"

int32_t sockfd;
int32_t httpd_running;
int32_t httpd_connections;

#define METHOD_SIZE 16
#define PATH_SIZE 2048
#define AUTH_SIZE 256

static void *connection_thread(void *arg) {
    connection((int)(intptr_t)arg);
    return NULL;
}

/* Listens on bindAddress:port and starts a connection thread per accepted
** socket while running is set. Socket errors are printed and do not stop
** start-up. Returns 0 when the listener ends (or at once if one runs). */
int http_server(void) {
    struct sockaddr_in addr;
    int one = 1;

    if (MR_LOAD(httpd_running)) return 0;
    /* A peer that has gone must never end the process through SIGPIPE. */
    signal(SIGPIPE, SIG_IGN);

    sockfd = socket(AF_INET, SOCK_STREAM, 0);
    if (sockfd < 0) {
        printf("ERROR opening socket");
        fflush(stdout);
    }
    MR_ADD(mrApp.threadCount, 1);
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = inet_addr(mrApp.bindAddress);
    addr.sin_port = htons((uint16_t)mrApp.port);
    setsockopt(sockfd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    setsockopt(sockfd, SOL_SOCKET, SO_REUSEPORT, &one, sizeof(one));
    if (bind(sockfd, (struct sockaddr *)&addr, sizeof(addr)) < 0) {
        printf("ERROR on binding");
        fflush(stdout);
    }
    listen(sockfd, 5);
    MR_STORE(mrApp.running, 1);
    MR_STORE(httpd_running, 1);

    do {
        int fd = accept(sockfd, NULL, NULL);
        if (fd < 1) break;
        /* A reply leaves in one send; without TCP_NODELAY a reply that
        ** follows one not yet acknowledged would wait for the peer's
        ** delayed ACK. */
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        /* counted before the thread runs, so that nobody waiting for the
        ** connections to end can miss one that has not started yet */
        MR_ADD(httpd_connections, 1);
        if (mr_spawn_detached(connection_thread, (void *)(intptr_t)fd) != 0) {
            MR_ADD(httpd_connections, -1);
            close(fd);
        }
    } while (MR_LOAD(mrApp.running));

    MR_ADD(mrApp.threadCount, -1);
    close(sockfd);
    puts("httpd ends");
    fflush(stdout);
    MR_STORE(httpd_running, 0);
    return 0;
}

/* Length of the whitespace-delimited token that starts at p after any
** leading whitespace, as sscanf's %s would take it. */
static size_t token_length(const char *p, const char **start) {
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\v' || *p == '\f' || *p == '\r') p++;
    *start = p;
    return strcspn(p, " \t\n\v\f\r");
}

/* Reads "Content-Length:%d" (case-sensitive, optional blanks before the
** number) into *value; a line that does not match leaves it unchanged.
** Numbers beyond the 32-bit range are clamped instead of overflowing. */
static void parse_content_length(const char *line, int32_t *value) {
    const char *p;
    char *end;
    if (strncmp(line, "Content-Length:", 15) != 0) return;
    p = line + 15;
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\v' || *p == '\f' || *p == '\r') p++;
    long long v = strtoll(p, &end, 10);
    if (end == p) return;
    if (v > INT32_MAX) v = INT32_MAX;
    if (v < INT32_MIN) v = INT32_MIN;
    *value = (int32_t)v;
}

/* Parses "%s %s HTTP/1.%d" into method and path, bounded by their fields.
** Returns 0, or -1 when a token would not fit its field. */
static int parse_request_line(const char *line, char *method, char *path, int *minor) {
    const char *p;
    size_t n = token_length(line, &p);
    if (n >= METHOD_SIZE) return -1;
    n = token_length(p + n, &p);
    if (n >= PATH_SIZE) return -1;
    sscanf(line, "%15s %2047s HTTP/1.%d", method, path, minor);
    return 0;
}

/* Serves requests on fd until the peer leaves, a receive fails or times
** out, a body comes short, running is cleared or the budget is spent.
** Ends the thread with pthread_exit. */
void connection(int fd) {
    ResponseBuffer in, out;
    char method[METHOD_SIZE];
    char path[PATH_SIZE];
    char authorization[AUTH_SIZE];
    char refused[128]; /* the header that a refused request carried */
    int minor = 0;
    int32_t requestBudget;
    int32_t contentLength;
    int one = 1;
    struct timeval tv;

    memset(authorization, 0, sizeof(authorization));
    memset(method, 0, sizeof(method));
    memset(path, 0, sizeof(path));
    memset(&out, 0, sizeof(out));
    if (buffInit(&in) == NULL || buffInit(&out) == NULL) {
        MR_ADD(mrApp.threadCount, -1);
        goto end;
    }
    in.fd = fd;
    out.fd = fd;

    tv.tv_sec = 120;
    tv.tv_usec = 100000;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof(one));
    MR_ADD(mrApp.threadCount, 1);
    requestBudget = 10000;

    do {
        char *line;
        buffReset(&out);
        out.keepAliveMax = --requestBudget;

        line = buffGetLine(&in);
        if (line == NULL || line[0] == 0) break;
        if (parse_request_line(line, method, path, &minor) != 0) break;

        contentLength = 0;
        refused[0] = 0;
        for (;;) {
            line = buffGetLine(&in);
            if (line == NULL) goto done;
            parse_content_length(line, &contentLength);
            if (strncmp(line, "Authorization: Basic ", 21) == 0)
                sscanf(line, "Authorization: Basic %255s", authorization);
            if (refused[0] == 0 && http_foreign_header(line, mrApp.port))
                snprintf(refused, sizeof(refused), "%s", line);
            if (in.lineLength <= 2) break;
        }
        if (refused[0] != 0) {
            /* A small body is read first, so that closing with it unread
            ** does not reset the connection before the peer has the reply. */
            if (contentLength > 0 && contentLength <= 65536) buffGetData(&in, contentLength);
            http_refuse(&out, refused);
            break;
        }

        if (strcmp(method, "POST") == 0 && contentLength != 0) {
            char *body;
            if (contentLength < 0 || contentLength > HTTP_MAX_BODY) break;
            url_decode(path, path);
            body = buffGetData(&in, contentLength);
            if (body == NULL || in.lineLength != contentLength) break;
            body[contentLength] = 0;
            route_post(&out, path, body, contentLength);
        } else if (strcmp(method, "GET") == 0) {
            url_decode(path, path);
            route_get(&out, path);
        }
        path[0] = 0;
        method[0] = 0;
    } while (MR_LOAD(mrApp.running) && out.keepAliveMax > -3);

done:
    MR_ADD(mrApp.threadCount, -1);
end:
    buffFree(&in);
    buffFree(&out);
    close(fd);
    MR_ADD(httpd_connections, -1);
    pthread_exit(NULL);
}
