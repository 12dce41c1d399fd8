/*
** http_fuzz.cpp -- fuzz target for the request path: the bytes of one
** input are what a browser sends on one connection. They go through a
** socket pair into `connection`, the real request reader, which decodes
** each path and runs the GET and POST route lists on stores that are open:
** a small chart pack and application pack in the scratch directory and an
** in-memory trip database, each as it was before any input.
**
** The whole input is written and the writing side shut before
** `connection` runs, on the fuzzer's own thread; its replies wait unread
** in a large socket buffer and are dropped. `connection` ends with
** pthread_exit, which here returns to the caller instead: a thread per
** input would cost a time slice on a busy machine for every switch.
** Three routes reach beyond the process and are kept inside: a download
** never starts (the download state is held at "running"), the TCP feed is
** held paused, and deleting a chart pack deletes only files of the
** scratch directory.
*/
#include <errno.h>
#include <setjmp.h>
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

static int tripTouched, chartTouched;
static uint32_t chartGeneration;

static jmp_buf connectionEnd;
static bool inConnection;

/* The end of `connection` comes back to the caller; any other use of
** pthread_exit goes to the library. */
extern "C" void pthread_exit(void *retval) {
    if (inConnection) longjmp(connectionEnd, 1);
    typedef void (*exit_fn)(void *);
    ((exit_fn)dlsym(RTLD_NEXT, "pthread_exit"))(retval);
    abort();
}

/* Makes fd's send room at least bytes (beyond the system's default limit,
** as root may). */
static void send_room(int fd, int bytes) {
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &bytes, sizeof(bytes)) != 0)
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes));
}

/* Reads and drops whatever the host side sent; with FUZZ_SHOW set in the
** environment it goes to standard error, to see what an input does. */
static void drain(int fd) {
    static char sink[65536];
    static int show = getenv("FUZZ_SHOW") != NULL;
    ssize_t n;
    while ((n = recv(fd, sink, sizeof(sink), MSG_DONTWAIT)) > 0)
        if (show) fwrite(sink, 1, (size_t)n, stderr);
}
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_fill_app();
    if (fuzz_make_pack("A000001.marepack", 1) != 0 || fuzz_make_pack("A000005.marepack", 0) != 0)
        abort();
    mrApp.appDb = fuzz_open_pack("A000001.marepack");
    nmea_init();
    /* the host prints a line for each refused request */
    if (getenv("FUZZ_SHOW") == NULL) {
        int null = open("/dev/null", O_WRONLY);
        if (null >= 0) dup2(null, 1);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    int sv[2];

    /* delchartdb may have removed a pack: it comes back for the next input */
    int remade = 0;
    if (!fuzz_exists("A000005.marepack")) remade = fuzz_make_pack("A000005.marepack", 0) == 0;
    if (!fuzz_exists("A000001.marepack")) fuzz_make_pack("A000001.marepack", 1);
    /* The trip database and the chart pack stay open across inputs that
    ** only read them; an input that changed either, or switched, closed or
    ** deleted the pack, gets them anew for the next one. */
    if (mrApp.tripDb == NULL || tripTouched) {
        sqlite3_close(mrApp.tripDb);
        mrApp.tripDb = fuzz_trip_db();
        fuzz_watch_db(mrApp.tripDb, &tripTouched);
    }
    if (mrApp.chartDb == NULL || remade || chartTouched || chartGeneration != mr_chart_generation()) {
        mr_db_swap(&mrApp.chartDb, fuzz_open_pack("A000005.marepack"));
        fuzz_watch_db(mrApp.chartDb, &chartTouched);
        chartGeneration = mr_chart_generation();
    }
    MR_STORE(mrApp.running, 1);
    MR_STORE(mrApp.dlState, 2);
    MR_STORE(nmea_pause, 1);
    MR_STORE(nmea_stat, 0);

    /* The host side does not block on sending: a reply too large even for
    ** its room ends the connection as a peer that stopped reading would. */
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) abort();
    send_room(sv[0], 1 << 20);
    send_room(sv[1], 32 << 20);
    if (size > 0 && send(sv[0], data, size, MSG_NOSIGNAL) != (ssize_t)size) abort();
    shutdown(sv[0], SHUT_WR);
    fcntl(sv[1], F_SETFL, O_NONBLOCK);
    inConnection = true;
    if (setjmp(connectionEnd) == 0) connection(sv[1]);
    inConnection = false;
    drain(sv[0]);
    close(sv[0]);

    /* A state write may have renamed the language or the skin. */
    MR_BCOPY(mrApp.alang, "en");
    MR_BCOPY(mrApp.mlang, "de");
    MR_BCOPY(mrApp.skin, "Navy Blue");
    MR_STORE(mrApp.dlState, 0);
    return 0;
}
