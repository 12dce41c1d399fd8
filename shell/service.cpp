/*
** service.cpp -- the service start on top of the record: app_init_qt,
** start_server and start_httpd with their stop counterparts. Opens the
** application pack and the trip database, starts the navigation state and
** the listener.
*/
#include "shell/service.h"

#include <sqlite3.h>
#include <unistd.h>

#include "http/http_server.h"
#include "nav/nmea.h"
#include "shell/app_record.h"
#include "store/pack_store.h"

/* The five statements that create the trip database; each may fail because
** its object already exists. */
static const char *const tripDbSchema[5] = {
    "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT) ",
    "CREATE UNIQUE INDEX i_kv_lk ON kvt(l,k) ",
    "CREATE TABLE log (id INTEGER PRIMARY KEY AUTOINCREMENT, ts INTEGER, x DOUBLE, y DOUBLE,t INTEGER,v TEXT) ",
    "CREATE INDEX i_log_ts ON log(ts) ",
    "CREATE INDEX i_log_t ON log(t) ",
};

/* Fills mrApp and starts the service; the listener is up when it returns.
** Returns 0. */
int app_init_qt(const char *language, const char *device, const char *dataDir, const char *appName) {
    mr_app_fill(language, device, dataDir, appName);
    start_server(0);
    return 0;
}

static void *service_listener(void *unused) {
    (void)unused;
    http_server();
    return NULL;
}

/* Starts http_server on a detached thread and waits until it is up. */
static void service_start_listener(void) {
    if (mr_spawn_detached(service_listener, NULL) != 0) return;
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
        service_start_listener();
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
    service_start_listener();
    return 0;
}

/* Closes the listening socket and clears httpd_running. */
void stop_httpd(void) {
    close(sockfd);
    MR_STORE(httpd_running, 0);
}
