/*
** nmea_replay.cpp -- serves a recorded NMEA 0183 file over TCP on the
** loopback address, the way an instrument multiplexer would, so that the
** host's TCP feed can be pointed at a recorded voyage.
**
**   nmea_replay [-p port] [-r lines/s] [-x speed] [-w clients] [-l] file
**
** Every connected client receives every line, each ended by CR LF. Lines
** are paced by the times of the RMC sentences (the gap between two RMC
** times, divided by the speed factor) unless -r gives a fixed rate. With
** -l the file starts over at its end; otherwise the tool closes its clients
** and exits. It starts sending once -w clients (default 1) are connected,
** and clients may come and go at any time after that.
**
** Exit status: 0 at the end of the file, 2 for bad arguments, 1 when the
** file cannot be read or the port cannot be bound.
*/
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#define MAX_CLIENTS 32
#define LINE_SIZE 65536

typedef struct ReplayState {
    int listenFd;
    int clients[MAX_CLIENTS];
    int clientCount;
} ReplayState;

static void usage(void) {
    fprintf(stderr,
            "usage: nmea_replay [-p port] [-r lines_per_second] [-x speed] [-w clients] [-l] file\n"
            "  -p port     TCP port on 127.0.0.1 (default 10110; 0 picks a free one)\n"
            "  -r rate     send at a fixed rate instead of the RMC times\n"
            "  -x speed    play RMC-paced files this many times faster (default 1)\n"
            "  -w clients  wait for this many clients before the first line (default 1)\n"
            "  -l          loop: start over at the end of the file\n");
}

static double mono_now(void) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + ts.tv_nsec / 1e9;
}

static void drop_client(ReplayState *s, int i) {
    close(s->clients[i]);
    s->clients[i] = s->clients[--s->clientCount];
}

/* Accepts waiting clients and drops the ones that closed, waiting at most
** timeoutMs for something to happen. */
static void serve_events(ReplayState *s, int timeoutMs) {
    struct pollfd pf[MAX_CLIENTS + 1];
    int n = 0;
    pf[n].fd = s->listenFd;
    pf[n++].events = POLLIN;
    for (int i = 0; i < s->clientCount; i++) {
        pf[n].fd = s->clients[i];
        pf[n++].events = POLLIN;
    }
    if (poll(pf, (nfds_t)n, timeoutMs) <= 0) return;
    /* clients first, from the back, as dropping moves the last one down */
    for (int i = s->clientCount - 1; i >= 0; i--) {
        if (pf[i + 1].revents == 0) continue;
        char sink[512];
        ssize_t r = recv(s->clients[i], sink, sizeof(sink), MSG_DONTWAIT);
        if (r == 0 || (r < 0 && errno != EAGAIN && errno != EINTR)) drop_client(s, i);
    }
    if (pf[0].revents & POLLIN) {
        int fd = accept(s->listenFd, NULL, NULL);
        if (fd < 0) return;
        if (s->clientCount == MAX_CLIENTS) {
            close(fd);
            return;
        }
        s->clients[s->clientCount++] = fd;
        fprintf(stdout, "nmea_replay: client connected (%d)\n", s->clientCount);
    }
}

/* Serves events until the monotonic clock reaches deadline. */
static void wait_until(ReplayState *s, double deadline) {
    for (;;) {
        double left = deadline - mono_now();
        if (left <= 0) {
            serve_events(s, 0);
            return;
        }
        serve_events(s, (int)(left * 1000) + 1);
    }
}

/* Sends len bytes to every client; a client that takes nothing for a
** second is dropped. */
static void broadcast(ReplayState *s, const char *data, size_t len) {
    for (int i = s->clientCount - 1; i >= 0; i--) {
        size_t done = 0;
        while (done < len) {
            ssize_t w = send(s->clients[i], data + done, len - done, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (w > 0) {
                done += (size_t)w;
                continue;
            }
            if (w < 0 && (errno == EAGAIN || errno == EINTR)) {
                struct pollfd pf = {s->clients[i], POLLOUT, 0};
                if (poll(&pf, 1, 1000) > 0) continue;
            }
            break;
        }
        if (done < len) drop_client(s, i);
    }
}

/* Seconds of the day in an RMC sentence's time field, or -1 when the line
** is no RMC or carries no time. */
static double rmc_seconds(const char *line) {
    const char *start = strpbrk(line, "$!");
    if (start == NULL || strlen(start) < 7 || strncmp(start + 3, "RMC,", 4) != 0) return -1;
    const char *t = start + 7;
    for (int i = 0; i < 6; i++)
        if (t[i] < '0' || t[i] > '9') return -1;
    int hh = (t[0] - '0') * 10 + (t[1] - '0');
    int mm = (t[2] - '0') * 10 + (t[3] - '0');
    double ss = atof(t + 4);
    return hh * 3600.0 + mm * 60.0 + ss;
}

static int open_listener(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    struct sockaddr_in a;
    if (fd < 0) return -1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_port = htons((uint16_t)port);
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, (struct sockaddr *)&a, sizeof(a)) != 0 || listen(fd, 8) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

static int bound_port(int fd) {
    struct sockaddr_in a;
    socklen_t len = sizeof(a);
    if (getsockname(fd, (struct sockaddr *)&a, &len) != 0) return -1;
    return ntohs(a.sin_port);
}

int main(int argc, char **argv) {
    int port = 10110, waitFor = 1, loop = 0, opt;
    double rate = 0, speed = 1;
    ReplayState s;

    while ((opt = getopt(argc, argv, "p:r:x:w:lh")) != -1) {
        switch (opt) {
        case 'p': port = atoi(optarg); break;
        case 'r': rate = atof(optarg); break;
        case 'x': speed = atof(optarg); break;
        case 'w': waitFor = atoi(optarg); break;
        case 'l': loop = 1; break;
        default: usage(); return 2;
        }
    }
    if (optind != argc - 1 || port < 0 || port > 65535 || rate < 0 || !(speed > 0) || waitFor < 0 ||
        waitFor > MAX_CLIENTS) {
        usage();
        return 2;
    }
    const char *path = argv[optind];
    FILE *f = fopen(path, "rb");
    if (f == NULL) {
        fprintf(stderr, "nmea_replay: cannot open %s: %s\n", path, strerror(errno));
        return 1;
    }

    signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, NULL, _IOLBF, 0);
    memset(&s, 0, sizeof(s));
    s.listenFd = open_listener(port);
    if (s.listenFd < 0) {
        fprintf(stderr, "nmea_replay: cannot listen on 127.0.0.1:%d: %s\n", port, strerror(errno));
        return 1;
    }
    fcntl(s.listenFd, F_SETFL, fcntl(s.listenFd, F_GETFL) | O_NONBLOCK);
    printf("nmea_replay: serving %s on 127.0.0.1:%d\n", path, bound_port(s.listenFd));

    while (s.clientCount < waitFor) serve_events(&s, 1000);

    static char line[LINE_SIZE + 2];
    double next = mono_now();
    double lastRmc = -1;
    for (;;) {
        if (fgets(line, LINE_SIZE, f) == NULL) {
            if (!loop) break;
            rewind(f);
            lastRmc = -1;
            if (fgets(line, LINE_SIZE, f) == NULL) break; /* empty file */
        }
        size_t len = strcspn(line, "\r\n");
        if (len == 0) continue;

        if (rate > 0) {
            next += 1.0 / rate;
        } else {
            double t = rmc_seconds(line);
            if (t >= 0) {
                if (lastRmc >= 0) {
                    double gap = t - lastRmc;
                    if (gap < 0) gap += 86400; /* past midnight */
                    if (gap > 60) gap = 1;     /* a pause in the recording */
                    next += gap / speed;
                }
                lastRmc = t;
            }
        }
        wait_until(&s, next);
        if (mono_now() - next > 1) next = mono_now(); /* do not rush to catch up */

        memcpy(line + len, "\r\n", 2);
        broadcast(&s, line, len + 2);
    }

    for (int i = s.clientCount - 1; i >= 0; i--) drop_client(&s, i);
    close(s.listenFd);
    fclose(f);
    printf("nmea_replay: end of %s\n", path);
    return 0;
}
