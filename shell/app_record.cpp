/*
** app_record.cpp -- the application record, app_init_qt and the service
** start (start_server, start_httpd and their stop counterparts), key files,
** _beginthread and the bounded text copies.
*/
#include "shell/app_record.h"

#include <pthread.h>
#include <sqlite3.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "http/http_server.h"
#include "nav/nmea.h"
#include "store/pack_store.h"

MrAppRecord mrApp;

/* The five statements that create the trip database; each may fail because
** its object already exists. */
static const char *const tripDbSchema[5] = {
    "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT) ",
    "CREATE UNIQUE INDEX i_kv_lk ON kvt(l,k) ",
    "CREATE TABLE log (id INTEGER PRIMARY KEY AUTOINCREMENT, ts INTEGER, x DOUBLE, y DOUBLE,t INTEGER,v TEXT) ",
    "CREATE INDEX i_log_ts ON log(ts) ",
    "CREATE INDEX i_log_t ON log(t) ",
};

static void mr_overflow(size_t size) {
    fprintf(stderr, "*** bounded copy overflow (field of %zu bytes) ***: terminated\n", size);
    fflush(stderr);
    abort();
}

/* Copies src into dst of size bytes; aborts when it does not fit. */
void mr_bcopy(char *dst, size_t size, const char *src) {
    size_t n = strlen(src);
    if (n >= size) mr_overflow(size);
    memmove(dst, src, n + 1);
}

/* Formats into dst of size bytes; aborts when the result does not fit. */
void mr_bprintf(char *dst, size_t size, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(dst, size, fmt, ap);
    va_end(ap);
    if (n < 0 || (size_t)n >= size) mr_overflow(size);
}

/* Reads the first line of keyDir/<name>.key into value (at most size-1
** bytes, a line end included when it fits). A missing or empty file leaves
** value as it was. Returns 0. */
int mrc_read_regkey(const char *name, char *value, unsigned size) {
    char path[512];
    mr_bprintf(path, sizeof(path), "%s%s.key", mrApp.keyDir, name);
    FILE *f = fopen(path, "r");
    if (f == NULL) return 0;
    char line[4096];
    unsigned cap = size < sizeof(line) ? size : (unsigned)sizeof(line);
    /* fgets into a scratch line first: an empty file must leave value alone */
    if (cap > 1 && fgets(line, (int)cap, f) != NULL) memcpy(value, line, strlen(line) + 1);
    fclose(f);
    return 0;
}

/* Writes value, with no line end, to keyDir/<name>.key, truncating it.
** Returns 0. */
int mrc_write_regkey(const char *name, const char *value) {
    char path[512];
    mr_bprintf(path, sizeof(path), "%s%s.key", mrApp.keyDir, name);
    FILE *f = fopen(path, "w");
    if (f == NULL) return 0;
    fputs(value, f);
    fclose(f);
    return 0;
}

typedef struct MrThreadStart {
    void (*start)(void *);
    void *arg;
} MrThreadStart;

static void *mr_thread_trampoline(void *p) {
    MrThreadStart ts = *(MrThreadStart *)p;
    free(p);
    ts.start(ts.arg);
    return NULL;
}

/* Starts start(arg) on a new thread and drops its handle; stackSize is
** ignored. The thread is created detached so that its resources go back to
** the system when it ends, as nobody joins it. */
void _beginthread(void (*start)(void *), unsigned stackSize, void *arg) {
    (void)stackSize;
    MrThreadStart *ts = (MrThreadStart *)malloc(sizeof(*ts));
    if (ts == NULL) return;
    ts->start = start;
    ts->arg = arg;
    pthread_t th;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    if (pthread_create(&th, &attr, mr_thread_trampoline, ts) != 0) free(ts);
    pthread_attr_destroy(&attr);
}

/* Clears and fills mrApp: names, directories with their trailing "/", the
** listener address, alang and skin from their key files, mlang "de".
** dataDir comes without a trailing slash. */
void mr_app_fill(const char *language, const char *device, const char *dataDir, const char *appName) {
    memset(&mrApp, 0, sizeof(mrApp));
    MR_BCOPY(mrApp.appname, appName);
    MR_BCOPY(mrApp.device, device);
    mr_bprintf(mrApp.packDir, sizeof(mrApp.packDir), "%s/", dataDir);
    mr_bprintf(mrApp.keyDir, sizeof(mrApp.keyDir), "%s/", dataDir);
    mr_bprintf(mrApp.fileDir, sizeof(mrApp.fileDir), "%s/", dataDir);
    mrApp.port = 19999;
    MR_BCOPY(mrApp.bindAddress, "127.0.0.1");

    /* The check looks at the argument, not at what the key file holds. */
    MR_BCOPY(mrApp.alang, language);
    mrc_read_regkey("alang", mrApp.alang, sizeof(mrApp.alang));
    if (strcmp(language, "de") != 0 && strcmp(language, "en") != 0 && strcmp(language, "fr") != 0)
        MR_BCOPY(mrApp.alang, "en");

    MR_BCOPY(mrApp.skin, "Navy Blue");
    mrc_read_regkey("skin", mrApp.skin, sizeof(mrApp.skin));
    MR_BCOPY(mrApp.mlang, "de");
    mrApp.bootMark = 100;
}

/* Fills mrApp and starts the service; the listener is up when it returns.
** Returns 0. */
int app_init_qt(const char *language, const char *device, const char *dataDir, const char *appName) {
    mr_app_fill(language, device, dataDir, appName);
    start_server(0);
    return 0;
}

static void *mr_http_server_thread(void *unused) {
    (void)unused;
    http_server();
    return NULL;
}

/* Starts http_server on a detached thread and waits until it is up. */
static void mr_start_listener_thread(void) {
    pthread_t th;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_create(&th, &attr, mr_http_server_thread, NULL);
    pthread_attr_destroy(&attr);
    while (!MR_LOAD(httpd_running)) usleep(100000);
}

/* Opens the application pack and the trip database, creates the trip
** schema, starts the navigation state and the listener. With foreground 0
** it returns once the listener is up; otherwise it runs the listener on the
** calling thread and returns when it ends. Returns 0. */
int start_server(int foreground) {
    char path[300];
    mrApp.dbMutex = sqlite3_mutex_alloc(SQLITE_MUTEX_FAST);
    mrApp.appDb = NULL;
    mrApp.chartDb = NULL;

    mr_bprintf(path, sizeof(path), "%s%s", mrApp.packDir, "A000001.marepack");
    if (sqlite3_open_v2(path, &mrApp.appDb, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK ||
        mrApp.appDb == NULL) {
        if (mrApp.appDb) sqlite3_close(mrApp.appDb);
        mrApp.appDb = NULL;
        mr_bprintf(path, sizeof(path), "%s%s", mrApp.altPackDir, "A000001.marepack");
        if (sqlite3_open_v2(path, &mrApp.appDb, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK) {
            if (mrApp.appDb) sqlite3_close(mrApp.appDb);
            mrApp.appDb = NULL;
        }
    }

    mr_bprintf(path, sizeof(path), "%s%s", mrApp.keyDir, "marepack.trip");
    sqlite3_open(path, &mrApp.tripDb);
    for (int i = 0; i < 5; i++) {
        char *err = NULL;
        sqlite3_exec(mrApp.tripDb, tripDbSchema[i], NULL, NULL, &err);
        if (err) sqlite3_free(err);
    }

    mrApp.chartDb = NULL;
    nmea_init();

    if (foreground == 0)
        mr_start_listener_thread();
    else
        http_server();
    return 0;
}

/* Clears running and closes the three databases, in the order tripDb,
** appDb, chartDb. The packs go through the handle guard, so a request still
** running on another connection never uses a closed handle. */
void stop_server(void) {
    MR_STORE(mrApp.running, 0);
    sqlite3_close(mrApp.tripDb);
    mr_db_swap(&mrApp.appDb, NULL);
    mr_db_swap(&mrApp.chartDb, NULL);
}

/* Starts the listener on a thread and waits until it is up. Returns 0. */
int start_httpd(void) {
    mr_start_listener_thread();
    return 0;
}

/* Closes the listening socket and clears httpd_running. */
void stop_httpd(void) {
    close(sockfd);
    MR_STORE(httpd_running, 0);
}
