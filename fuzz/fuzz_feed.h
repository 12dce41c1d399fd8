/*
** fuzz_feed.h -- how the targets hand their input to the code under test:
** cut into lines or into "--next--\n" parts, or waiting at the far end of
** a socket pair that stands in for a network connection. Helpers only:
** each target keeps its own getaddrinfo, connect and sleep, which decide
** when these helpers apply.
*/
#ifndef MAREPLOT_FUZZ_FEED_H
#define MAREPLOT_FUZZ_FEED_H

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

/* Copies the line at data[*at] (up to a newline or size, at most cap - 1
** bytes) into line, ends it with a NUL and moves *at past it and its
** newline. A longer line goes on as the next one. Returns its length. */
static size_t fuzz_next_line(const uint8_t *data, size_t size, size_t *at, char *line, size_t cap) {
    size_t i = *at, n = 0;
    while (i < size && data[i] != '\n' && n < cap - 1) line[n++] = (char)data[i++];
    if (i < size && data[i] == '\n') i++;
    line[n] = 0;
    *at = i;
    return n;
}

/* The parts of data between "--next--\n" separators; at least one, which
** may be empty. */
static std::vector<std::string> fuzz_parts(const uint8_t *data, size_t size) {
    static const std::string sep = "--next--\n";
    std::vector<std::string> parts;
    std::string all((const char *)data, size);
    size_t at = 0;
    for (;;) {
        size_t hit = all.find(sep, at);
        if (hit == std::string::npos) break;
        parts.push_back(all.substr(at, hit - at));
        at = hit + sep.size();
    }
    parts.push_back(all.substr(at));
    return parts;
}

/* A name look-up's answer: the loopback address, port 80, one entry that
** stays valid (freeaddrinfo has nothing to free). */
static struct addrinfo *fuzz_loopback(void) {
    static struct sockaddr_in addr;
    static struct addrinfo ai;
    addr.sin_family = AF_INET;
    addr.sin_port = htons(80);
    addr.sin_addr.s_addr = htonl(0x7f000001);
    ai.ai_family = AF_INET;
    ai.ai_socktype = SOCK_STREAM;
    ai.ai_addr = (struct sockaddr *)&addr;
    ai.ai_addrlen = sizeof(addr);
    ai.ai_next = NULL;
    return &ai;
}

/* Puts one end of a fresh socket pair in place of fd, with the n bytes of
** data already waiting and the stream shut behind them. Returns the other
** end, which the caller closes once the reader is done, or -1 with errno
** ECONNREFUSED. */
static int fuzz_pair_connect(int fd, const void *data, size_t n) {
    int sv[2], room = 1 << 20;
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    setsockopt(sv[0], SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof(room));
    if (n && send(sv[0], data, n, MSG_NOSIGNAL) != (ssize_t)n) abort();
    shutdown(sv[0], SHUT_WR);
    dup2(sv[1], fd);
    close(sv[1]);
    return sv[0];
}

/* sleep() for the targets that replace it: no wait while skip is set
** (the code under test waits between retries), a real one otherwise. */
static unsigned int fuzz_sleep(unsigned int seconds, bool skip) {
    if (skip) return 0;
    struct timespec ts = {(time_t)seconds, 0};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
    return 0;
}

#endif
