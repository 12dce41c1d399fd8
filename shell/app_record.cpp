/*
** app_record.cpp -- the application record mrApp and its small tools: the
** record's filling, key files, the thread start and the bounded text
** copies. Everything else of the host includes this; it includes nothing
** of ours but its own header. The service start is in service.cpp.
*/
#include "shell/app_record.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

MrAppRecord mrApp;

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

/* Starts fn(arg) on a detached thread: nobody joins it, so its resources
** go back to the system when it ends. Returns 0, or -1 (arg is still the
** caller's). */
int mr_spawn_detached(void *(*fn)(void *), void *arg) {
    pthread_t th;
    pthread_attr_t attr;
    int rc;
    if (pthread_attr_init(&attr) != 0) return -1;
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    rc = pthread_create(&th, &attr, fn, arg);
    pthread_attr_destroy(&attr);
    return rc == 0 ? 0 : -1;
}

/* Starts start(arg) on a new thread and drops its handle; stackSize is
** ignored. */
void _beginthread(void (*start)(void *), unsigned stackSize, void *arg) {
    (void)stackSize;
    MrThreadStart *ts = (MrThreadStart *)malloc(sizeof(*ts));
    if (ts == NULL) return;
    ts->start = start;
    ts->arg = arg;
    if (mr_spawn_detached(mr_thread_trampoline, ts) != 0) free(ts);
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
