/*
** http_fuzz.cpp -- fuzz target for the request path: the bytes of one
** input are what a browser sends on one connection. They go through a
** socket pair into `connection`, the real request reader, which decodes
** each path and runs the GET and POST route lists on stores that are open:
** a small chart pack and application pack in the scratch directory and an
** in-memory trip database made fresh for every input.
**
** `connection` ends its thread, so it runs on a thread of its own that is
** joined before the input is done; the replies are read and dropped.
** Three routes reach beyond the process and are kept inside: a download
** never starts (the download state is held at "running"), the TCP feed is
** held paused, and deleting a chart pack deletes only files of the
** scratch directory.
*/
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>

#include "fuzz_support.h"
#include "http/http_server.h"
#include "nav/nmea.h"
#include "store/pack_store.h"

/* delchartdb unlinks packDir + name, and the name may climb out with "..":
** only entries of the scratch directory are really removed. */
extern "C" int unlink(const char *path) {
    if (!fuzz_in_dir(path)) {
        errno = EACCES;
        return -1;
    }
    return unlinkat(AT_FDCWD, path, 0);
}

static void *connection_main(void *arg) {
    connection((int)(intptr_t)arg);
    return NULL;
}

/* Writes the input into one end while draining the replies, until the
** host side closes. */
static void converse(int fd, const uint8_t *data, size_t size) {
    static char sink[65536];
    size_t sent = 0;
    if (size == 0) shutdown(fd, SHUT_WR);
    for (;;) {
        struct pollfd p = {fd, (short)(POLLIN | (sent < size ? POLLOUT : 0)), 0};
        if (poll(&p, 1, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (p.revents & POLLOUT) {
            ssize_t w = send(fd, data + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (w > 0) sent += (size_t)w;
            if (w < 0 && errno != EAGAIN) sent = size;
            if (sent == size) shutdown(fd, SHUT_WR);
        }
        if (p.revents & (POLLIN | POLLHUP | POLLERR)) {
            ssize_t r = recv(fd, sink, sizeof(sink), MSG_DONTWAIT);
            if (r == 0 || (r < 0 && errno != EAGAIN)) return;
        }
    }
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    (void)argc;
    (void)argv;
    fuzz_fill_app();
    if (fuzz_make_pack("A000001.marepack", 1) != 0 || fuzz_make_pack("A000005.marepack", 0) != 0)
        abort();
    mrApp.appDb = fuzz_open_pack("A000001.marepack");
    nmea_init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    int sv[2];
    pthread_t th;

    /* delchartdb may have removed a pack: it comes back for the next input */
    if (!fuzz_exists("A000005.marepack")) fuzz_make_pack("A000005.marepack", 0);
    if (!fuzz_exists("A000001.marepack")) fuzz_make_pack("A000001.marepack", 1);
    mrApp.tripDb = fuzz_trip_db();
    mr_db_swap(&mrApp.chartDb, fuzz_open_pack("A000005.marepack"));
    MR_STORE(mrApp.running, 1);
    MR_STORE(mrApp.dlState, 2);
    MR_STORE(nmea_pause, 1);
    MR_STORE(nmea_stat, 0);

    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) abort();
    if (pthread_create(&th, NULL, connection_main, (void *)(intptr_t)sv[1]) != 0) abort();
    converse(sv[0], data, size);
    pthread_join(th, NULL);
    close(sv[0]);

    /* A state write may have renamed the language or the skin. */
    MR_BCOPY(mrApp.alang, "en");
    MR_BCOPY(mrApp.mlang, "de");
    MR_BCOPY(mrApp.skin, "Navy Blue");
    MR_STORE(mrApp.dlState, 0);
    sqlite3_close(mrApp.tripDb);
    mrApp.tripDb = NULL;
    return 0;
}
