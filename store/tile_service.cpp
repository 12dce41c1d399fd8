/*
** tile_service.cpp -- getTile and getTileI: one PNG tile of the chart pack
** in use per request, found by its zyx key, or a transparent one-pixel GIF
** when there is no such tile, no tiles table or no pack at all.
**
** This is the host's hottest path: one primary-key lookup, one copy from
** the database page into the connection's buffer, one reply. No tile is
** cached here (the web view caches through max-age); each connection
** thread keeps its own handle on the pack and its prepared statement.
*/
#include <pthread.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

/* GIF89a, 1 by 1 pixel, transparent. */
static const unsigned char onepixelgif[35] = {
    0x47, 0x49, 0x46, 0x38, 0x39, 0x61, 0x01, 0x00, 0x01, 0x00, 0x80, 0x00,
    0x00, 0xff, 0xff, 0xff, 0x00, 0x00, 0x00, 0x2c, 0x00, 0x00, 0x00, 0x00,
    0x01, 0x00, 0x01, 0x00, 0x00, 0x02, 0x02, 0x44, 0x01, 0x00, 0x3b};

/* Reads a decimal number the way scanf's %d does (leading blanks, optional
** sign) and keeps its low 32 bits; out-of-range text saturates first, so
** no input is undefined. Returns the end of the number, or NULL. */
static const char *scan_int32(const char *p, int32_t *out) {
    char *end;
    long long v = strtoll(p, &end, 10);
    if (end == p) return NULL;
    *out = (int32_t)(uint32_t)(unsigned long long)v;
    return end;
}

/* As scan_int32 for scanf's %llu: a leading minus negates modulo 2^64. */
static const char *scan_uint64(const char *p, uint64_t *out) {
    char *end;
    unsigned long long v = strtoull(p, &end, 10);
    if (end == p) return NULL;
    *out = (uint64_t)v;
    return end;
}

/* Reads "A<pack>/" and returns the text behind the slash, or NULL. */
static const char *skip_pack(const char *text) {
    int32_t pack;
    if (text[0] != 'A') return NULL;
    text = scan_int32(text + 1, &pack);
    if (text == NULL || *text != '/') return NULL;
    return text + 1;
}

int tile_key_of_coords(const char *text, int64_t *key) {
    int32_t z, y, x;
    const char *p = skip_pack(text);
    if (p == NULL || (p = scan_int32(p, &z)) == NULL || *p++ != '/') return -1;
    if ((p = scan_int32(p, &y)) == NULL || *p++ != '/') return -1;
    if (scan_int32(p, &x) == NULL) return -1;
    /* unsigned arithmetic: negative y or x set the high bits, as intended */
    uint64_t k = ((uint64_t)(uint32_t)z << 40) | ((uint64_t)(int64_t)y << 20) | (uint64_t)(int64_t)x;
    *key = (int64_t)k;
    return 0;
}

int tile_key_of_id(const char *text, int64_t *key) {
    uint64_t k;
    const char *p = skip_pack(text);
    if (p == NULL || scan_uint64(p, &k) == NULL) return -1;
    *key = (int64_t)k;
    return 0;
}

/* The tile lookup of one connection thread: a read-only handle of its own
** on the pack in use, and the statement prepared on it. Tile requests of
** different connections then share no SQLite mutex and no reader lock: a
** thread descheduled in the middle of a lookup holds up nobody else. The
** handle belongs to one chart generation (mr_chart_generation moves on at
** every open and close of chartDb); a request under a newer one closes it
** and opens the pack that is in use then, or none. A lookup that races a
** switch may still serve a tile of the old pack, as a request a moment
** earlier would have. */
typedef struct TileLookup {
    sqlite3 *db;         /* NULL: no pack, or it couldn't be opened */
    sqlite3_stmt *stmt;
    uint32_t generation;
    int valid;           /* generation has been looked at */
} TileLookup;

static pthread_key_t tileLookupKey;
static pthread_once_t tileLookupOnce = PTHREAD_ONCE_INIT;

static void tile_lookup_close(TileLookup *t) {
    sqlite3_finalize(t->stmt);
    sqlite3_close(t->db);
    t->stmt = NULL;
    t->db = NULL;
}

/* Thread exit: the handle is the thread's own, no lock is needed. */
static void tile_lookup_release(void *p) {
    tile_lookup_close((TileLookup *)p);
    free(p);
}

static void tile_lookup_key_make(void) { pthread_key_create(&tileLookupKey, tile_lookup_release); }

/* Opens the file of the pack in use into t, or leaves t empty when there
** is none. The name is read under the reader lock, together with the
** generation it belongs to. */
static void tile_lookup_open(TileLookup *t) {
    char path[1024];
    path[0] = 0;
    mr_db_read_begin();
    t->generation = mr_chart_generation();
    if (mrApp.chartDb) {
        const char *name = sqlite3_db_filename(mrApp.chartDb, "main");
        if (name && strlen(name) < sizeof(path)) memcpy(path, name, strlen(name) + 1);
    }
    mr_db_read_end();
    t->valid = 1;
    if (path[0] == 0) return;
    if (sqlite3_open_v2(path, &t->db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, NULL) != SQLITE_OK) {
        tile_lookup_close(t);
        return;
    }
    /* as chartDb: keep the shared lock, the file is never written while open;
    ** a small cache, since the kernel's page cache is shared by all threads */
    sqlite3_exec(t->db, "PRAGMA locking_mode=EXCLUSIVE; PRAGMA cache_size=-512", NULL, NULL, NULL);
    if (sqlite3_prepare_v2(t->db, "SELECT png FROM tiles WHERE zyx=?", -1, &t->stmt, NULL) != SQLITE_OK)
        tile_lookup_close(t);
}

/* This thread's tile statement, reset and ready to bind, or NULL when
** there is no pack, it has no tiles table or memory ran out. */
static sqlite3_stmt *tile_stmt(void) {
    TileLookup *t;

    pthread_once(&tileLookupOnce, tile_lookup_key_make);
    t = (TileLookup *)pthread_getspecific(tileLookupKey);
    if (t == NULL) {
        t = (TileLookup *)calloc(1, sizeof(*t));
        /* out of memory: no lookup, the GIF goes out */
        if (t == NULL || pthread_setspecific(tileLookupKey, t) != 0) {
            free(t);
            return NULL;
        }
    }
    if (!t->valid || t->generation != mr_chart_generation()) {
        tile_lookup_close(t);
        tile_lookup_open(t);
    }
    return t->stmt;
}

/* Collects the tile of key from chartDb, or the GIF, and sends it. A text
** that did not parse (have == 0) gets the GIF without a lookup: its fields
** have no meaning and must not hit tile 0 by accident. */
static int tile_send(ResponseBuffer *b, int have, int64_t key) {
    sqlite3_stmt *stmt;
    int type = MT_GIF;

    if (have) {
        stmt = tile_stmt();
        if (stmt) {
            sqlite3_bind_int64(stmt, 1, key);
            if (sqlite3_step(stmt) == SQLITE_ROW) {
                buffAddData(b, sqlite3_column_blob(stmt, 0), sqlite3_column_bytes(stmt, 0));
                type = MT_PNG;
            }
            sqlite3_reset(stmt);
        }
    }
    if (type == MT_GIF) {
        b->length = 0;
        buffAddData(b, onepixelgif, (int)sizeof(onepixelgif));
    }
    /* 600 is raised to 900 by the header writer: both replies cache */
    buffSendHttp(b, NULL, type, 600);
    return type == MT_PNG ? 0 : 404;
}

int getTile(ResponseBuffer *b, const char *text) {
    int64_t key = 0;
    int have = tile_key_of_coords(text, &key) == 0;
    buffReset(b);
    return tile_send(b, have, key);
}

int getTileI(ResponseBuffer *b, const char *text) {
    int64_t key = 0;
    int have = tile_key_of_id(text, &key) == 0;
    buffReset(b);
    return tile_send(b, have, key);
}
