/*
** app_record.h -- the application record mrApp, key files, thread start,
** bounded text copies and the data directory steps shared by the window
** and the headless host. The service start is in service.h.
*/
#ifndef MAREPLOT_APP_RECORD_H
#define MAREPLOT_APP_RECORD_H

#include <stddef.h>
#include <stdint.h>

struct sqlite3;
struct sqlite3_mutex;

/* The host version: compared and written as exactly 10 bytes. */
#define MR_HOST_VERSION "M.1.16.568"
#define MR_HOST_VERSION_LEN 10

typedef struct MrAppRecord {
    int32_t bootMark;
    int32_t port;
    char bindAddress[64];
    int32_t running;
    char keyDir[320];
    char packDir[320];
    char fileDir[320];
    char altPackDir[320];
    char device[320];
    char appname[320];
    struct sqlite3 *tripDb;
    struct sqlite3 *chartDb;
    struct sqlite3 *appDb;
    struct sqlite3_mutex *dbMutex;
    char alang[4];
    char mlang[4];
    char skin[32];
    int32_t dlBytes;
    int32_t dlState;
    int32_t dlError;
    int32_t dlId;
    char dlArgs[256];
    char locale[16];
    int32_t threadCount;
    char *settingsText;
    int32_t settingsCapacity;
} MrAppRecord;

extern MrAppRecord mrApp;

/* Plain words shared between threads without a lock (running,
** httpd_running, the download figures, nmea_stat, the fields of gpsfix)
** are read and written through these: each access is one atomic load or
** store, so the compiler keeps every poll and no reader sees half a word.
** The fields themselves stay plain int32_t, time_t or double. */
#define MR_LOAD(x)                                        \
    __extension__({                                       \
        __typeof__(x) mr_loaded_;                         \
        __atomic_load(&(x), &mr_loaded_, __ATOMIC_SEQ_CST); \
        mr_loaded_;                                       \
    })
#define MR_STORE(x, v)                                      \
    __extension__({                                         \
        __typeof__(x) mr_stored_ = (v);                     \
        __atomic_store(&(x), &mr_stored_, __ATOMIC_SEQ_CST); \
    })
#define MR_ADD(x, v) __atomic_add_fetch(&(x), (v), __ATOMIC_SEQ_CST)
/* Sets x to v if it still holds *expected; otherwise stores what it holds
** in *expected. Nonzero when it set x. */
#define MR_CAS(x, expected, v) __atomic_compare_exchange_n(&(x), (expected), (v), 0, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)

/* The record-filling steps of app_init_qt, without the service start; the
** headless host follows them with start_server(1). */
void mr_app_fill(const char *language, const char *device, const char *dataDir, const char *appName);
int mrc_read_regkey(const char *name, char *value, unsigned size);
int mrc_write_regkey(const char *name, const char *value);

/* Starts fn(arg) on a detached thread. Returns 0, or -1 (arg is still the
** caller's). Every thread of the host starts here. */
int mr_spawn_detached(void *(*fn)(void *), void *arg);
/* The same for start(arg) with no result; stackSize is ignored and a
** failed start is dropped. */
void _beginthread(void (*start)(void *), unsigned stackSize, void *arg);

/* Bounded text copies. A text that does not fit is a fatal fault: the
** process prints the field's name and aborts; nothing is ever truncated. */
void mr_bcopy(char *dst, size_t size, const char *src);
void mr_bprintf(char *dst, size_t size, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));
#define MR_BCOPY(field, src) mr_bcopy((field), sizeof(field), (src))

/* ---- data directory and carried packs, shared by both binaries ---- */

/* Copies the carried resource `resource` (":/A000001.marepack") to the file
** `fileName` in the current directory. Returns 0 on success. */
typedef int (*mr_copy_resource_fn)(const char *resource, const char *fileName);

/* The longest data directory path: the fixed path areas built on it (300
** bytes for the packs and the trip database at start, the 320-byte
** directory fields with their "/") keep room for the longest file name. */
#define MR_DATA_DIR_MAX 256

/* Fills dir (size bytes) with the data directory path, no trailing slash:
** $HOME/Library/Application Support/mareplot where that parent exists,
** otherwise $XDG_DATA_HOME/mareplot or $HOME/.local/share/mareplot (whose
** parents are created). Returns 0, -1 when no home is known, or -2 when
** the path would be longer than MR_DATA_DIR_MAX. */
int mr_data_dir(char *dir, size_t size);

/* Takes an exclusive lock on "mareplot.lock" in dataDir (making the
** directory when it is missing), so that one host at a time keeps the packs
** and the trip database there; the lock lasts as long as the process.
** Returns 0 when it is held, 1 when another process holds it (message then
** says "mareplot is already running with <dataDir>"), and -1 when the file
** cannot be opened or locked at all, in which case the start goes on. */
int mr_lock_data_dir(const char *dataDir, char *message, size_t size);

/* The start-up file steps of the window constructor: create the data
** directory, make it current, read the version stamp and write the two
** packs out again when the stamp differs or a pack is missing.
** Returns 1 when the packs were written out, 0 when nothing was touched. */
int mr_settle_packs(const char *dataDir, mr_copy_resource_fn copy);

/* A stable identity string for this device (the licence check's business). */
void mr_device_identity(char *out, size_t size);

#endif
