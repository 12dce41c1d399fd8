/*
** fuzz_support.h -- what the fuzz targets share: a private scratch
** directory that becomes the data directory, small databases to run the
** stores on, and the limits that keep SQL from a fuzzer inside that
** directory and inside a bounded time.
*/
#ifndef MAREPLOT_FUZZ_SUPPORT_H
#define MAREPLOT_FUZZ_SUPPORT_H

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <sqlite3.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "http/response_buffer.h"
#include "shell/app_record.h"

/* The scratch directory (no trailing slash), made at first use and emptied
** again at exit. The working directory stays where it is: libFuzzer reads
** its corpus and dictionary by relative names. */
static const char *fuzz_dir(void) {
    static char dir[PATH_MAX];
    if (dir[0] == 0) {
        /* in memory where possible: the trip database syncs every write */
        const char *tmp = getenv("TMPDIR");
        if (tmp == NULL || *tmp == 0) tmp = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        snprintf(dir, sizeof(dir), "%s/mareplot-fuzz-XXXXXX", tmp);
        if (mkdtemp(dir) == NULL) abort();
    }
    return dir;
}

/* The path of name inside the scratch directory, in one of four rotating
** buffers. */
static const char *fuzz_path(const char *name) {
    static char paths[4][PATH_MAX];
    static int next;
    char *p = paths[next++ & 3];
    snprintf(p, PATH_MAX, "%s/%s", fuzz_dir(), name);
    return p;
}

/* True when path names an entry of the scratch directory itself: its
** prefix and no further slash. */
static int fuzz_in_dir(const char *path) {
    const char *dir = fuzz_dir();
    size_t n = strlen(dir);
    return strncmp(path, dir, n) == 0 && path[n] == '/' && strchr(path + n + 1, '/') == NULL &&
           strcmp(path + n + 1, "..") != 0;
}

/* Removes every file in the scratch directory. */
static void fuzz_clear_dir(void) {
    DIR *d = opendir(fuzz_dir());
    if (d == NULL) return;
    while (struct dirent *e = readdir(d)) {
        if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
        unlinkat(dirfd(d), e->d_name, 0);
    }
    closedir(d);
}

static void fuzz_remove_dir(void) {
    fuzz_clear_dir();
    rmdir(fuzz_dir());
}

/* True when name exists in the scratch directory. */
static int fuzz_exists(const char *name) { return access(fuzz_path(name), F_OK) == 0; }

/* Writes n bytes to name inside the scratch directory. Returns 0 or -1. */
static int fuzz_write_file(const char *name, const void *data, size_t n) {
    int fd = open(fuzz_path(name), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return -1;
    ssize_t w = n ? write(fd, data, n) : 0;
    close(fd);
    return w == (ssize_t)n ? 0 : -1;
}

/* Fills mrApp as the host does, with the scratch directory as data
** directory, leaving the database handles closed. */
static void fuzz_fill_app(void) {
    mr_app_fill("en", "mareplot-fuzz", fuzz_dir(), "mareplot");
    mrApp.dbMutex = sqlite3_mutex_alloc(SQLITE_MUTEX_FAST);
    MR_STORE(mrApp.running, 1);
    atexit(fuzz_remove_dir);
}

/* Ends any statement that runs longer than this many virtual machine steps
** (a recursive query from the fuzzer would otherwise never finish). */
static int fuzz_progress(void *unused) {
    (void)unused;
    return 1;
}

/* Keeps a handle's statements small and inside the scratch directory:
** no ATTACH (nor VACUUM INTO, which attaches), short values, bounded
** run time. */
static void fuzz_limit(sqlite3 *db) {
    if (db == NULL) return;
    sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 1 << 20);
    sqlite3_progress_handler(db, 200000, fuzz_progress, NULL);
}

/* A handle that a target keeps from one input to the next is watched: any
** statement prepared on it that does more than read (a write, a schema
** change, a transaction, a pragma, an attach) sets *touched, and the target
** replaces the handle before the next input. Every input then starts from
** the same database and connection state, without the cost of opening the
** database and reading its schema again after inputs that only read. */
static int fuzz_watch(void *touched, int action, const char *a, const char *b, const char *c, const char *d) {
    (void)a;
    (void)b;
    (void)c;
    (void)d;
    if (action != SQLITE_READ && action != SQLITE_SELECT && action != SQLITE_FUNCTION && action != SQLITE_RECURSIVE)
        *(int *)touched = 1;
    return SQLITE_OK;
}

static void fuzz_watch_db(sqlite3 *db, int *touched) {
    *touched = 0;
    if (db != NULL) sqlite3_set_authorizer(db, fuzz_watch, touched);
}

static int fuzz_exec(sqlite3 *db, const char *sql) { return sqlite3_exec(db, sql, NULL, NULL, NULL); }

/* The trip database's tables as the host creates them. */
static void fuzz_trip_schema(sqlite3 *db) {
    fuzz_exec(db, "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT) ");
    fuzz_exec(db, "CREATE UNIQUE INDEX i_kv_lk ON kvt(l,k) ");
    fuzz_exec(db, "CREATE TABLE log (id INTEGER PRIMARY KEY AUTOINCREMENT, ts INTEGER, x DOUBLE, "
                  "y DOUBLE,t INTEGER,v TEXT) ");
    fuzz_exec(db, "CREATE INDEX i_log_ts ON log(ts) ");
    fuzz_exec(db, "CREATE INDEX i_log_t ON log(t) ");
}

/* A fresh in-memory trip database with a few rows of each kind. The
** tables and rows are made once; every later database is a copy of that
** image, which spares the statements that build it on every input. */
static sqlite3 *fuzz_trip_db(void) {
    static unsigned char *image;
    static sqlite3_int64 imageSize;
    sqlite3 *db = NULL;
    if (image == NULL) {
        if (sqlite3_open(":memory:", &db) != SQLITE_OK) abort();
        fuzz_trip_schema(db);
        fuzz_exec(db, "INSERT INTO kvt VALUES ('settings','{\"units\":1}',10,'**'),"
                      "('route1','{\"n\":\"r\",\"p\":[[1,2],[3,4]]}',13,'**'),"
                      "('alang','en',11,'**')");
        fuzz_exec(db, "INSERT INTO log (ts,x,y,t,v) VALUES (100,7.5,54.1,1,' dpt=3.0'),"
                      "(200,7.6,54.2,1,''),(300,999,999,2,'NMEA playback starts')");
        image = sqlite3_serialize(db, "main", &imageSize, 0);
        sqlite3_close(db);
        if (image == NULL) abort();
    }
    if (sqlite3_open(":memory:", &db) != SQLITE_OK) abort();
    fuzz_limit(db);
    unsigned char *copy = (unsigned char *)sqlite3_malloc64((sqlite3_uint64)imageSize);
    if (copy == NULL) abort();
    memcpy(copy, image, (size_t)imageSize);
    if (sqlite3_deserialize(db, "main", copy, imageSize, imageSize,
                            SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE) != SQLITE_OK)
        abort();
    return db;
}

/* Writes a small chart pack (kvt documents, tiles, places, tide rows) to
** name, and a small application pack when app is set. Returns 0 or -1. */
static int fuzz_make_pack(const char *name, int app) {
    sqlite3 *db = NULL;
    const char *path = fuzz_path(name);
    unlinkat(AT_FDCWD, path, 0);
    if (sqlite3_open(path, &db) != SQLITE_OK) return -1;
    fuzz_exec(db, "PRAGMA page_size=1024");
    fuzz_exec(db, "BEGIN");
    fuzz_exec(db, "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)");
    fuzz_exec(db, "CREATE INDEX i_kv_lk ON kvt(l,k) ");
    if (app) {
        fuzz_exec(db, "INSERT INTO kvt VALUES ('/app/marepack.html','<html>en</html>',1,'en'),"
                      "('/app/kelvor.js','var kelvor={};',3,'en'),"
                      "('/app/img/_style.css','body{}',2,'**'),"
                      "('/app/img/a.png',X'89504E470D0A1A0A0000',6,'**'),"
                      "('/app/en/help-route.txt','help',4,'**'),('version','1',0,'**'),"
                      "('/app/frag','<b>x</b>',100,'**'),('/app/bad','x',77,'**')");
    } else {
        fuzz_exec(db, "CREATE TABLE tiles (verid INTEGER,\t\tzyx INTEGER PRIMARY KEY,\t\tpng BLOB)");
        fuzz_exec(db, "CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)");
        fuzz_exec(db, "CREATE INDEX i_gaz ON gaz(x) ");
        fuzz_exec(db, "CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)");
        fuzz_exec(db, "CREATE UNIQUE INDEX i_tides ON tides(id,ts) ");
        fuzz_exec(db, "INSERT INTO kvt VALUES ('/info','<p>info</p>',1,'**'),('/info','<p>de</p>',1,'de'),"
                      "('chartlist','[]',5,'**'),('tides','{\"167\":{\"id\":167}}',5,'**'),"
                      "('version','1521740772',5,'**'),('mrk','{\"n\":\"a\"}',5,'de'),"
                      "('mrk','{\"n\":\"b\"}',5,'**'),('avtiles2','{\"3298535931904\":1}',5,'**')");
        /* zoom 3 row 1 columns 0 and 1; zoom 10 row 300 column 540 */
        fuzz_exec(db, "INSERT INTO tiles (zyx,png) VALUES (3298535931904,X'89504E470D0A1A0A00'),"
                      "(3298535931905,X'89504E47'),(10995431997980,X'89504E470D0A')");
        fuzz_exec(db, "INSERT INTO gaz VALUES (1000,1000,'H.ANCH',3,'Near3'),(1500,1500,'H.ANCH',3,'Far3'),"
                      "(1200,1200,'P.PPL',5,'Top5'),(1100,1100,'L.PRT',0,'Zero1'),"
                      "(1300,1300,'L.PRT',-4,'Neg'),(1400,1400,NULL,300,NULL)");
        fuzz_exec(db, "INSERT INTO tides VALUES (167,1420066800,120,1),(167,1420070400,-35,2)");
    }
    int rc = fuzz_exec(db, "COMMIT");
    sqlite3_close(db);
    return rc == SQLITE_OK ? 0 : -1;
}

/* Every pack the code under test opens gets the same limits: the library's
** own entry is called behind them. */
extern "C" int sqlite3_open_v2(const char *name, sqlite3 **db, int flags, const char *vfs) {
    typedef int (*open_fn)(const char *, sqlite3 **, int, const char *);
    static open_fn real = (open_fn)dlsym(RTLD_NEXT, "sqlite3_open_v2");
    int rc = real(name, db, flags, vfs);
    if (rc == SQLITE_OK) fuzz_limit(*db);
    return rc;
}

/* Opens name read-only as the host opens packs, or returns NULL. */
static sqlite3 *fuzz_open_pack(const char *name) {
    sqlite3 *db = NULL;
    if (sqlite3_open_v2(fuzz_path(name), &db, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK) {
        sqlite3_close(db);
        return NULL;
    }
    fuzz_limit(db);
    return db;
}

/* A reply buffer with no socket: sends fail and are ignored. */
static ResponseBuffer *fuzz_out(void) {
    static ResponseBuffer out;
    if (out.data == NULL) {
        buffInit(&out);
        out.fd = -1;
        out.keepAliveMax = 100;
    }
    buffReset(&out);
    return &out;
}

#endif
