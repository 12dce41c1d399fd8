/*
** tile_service.cpp -- getTile and getTileI: one PNG tile of the chart pack
** in use per request, found by its zyx key, or a transparent one-pixel GIF
** when there is no such tile, no tiles table or no pack at all.
**
** This is the host's hottest path: one primary-key lookup, one copy from
** the database page into the connection's buffer, one reply. No tile is
** cached here (the web view caches through max-age); only the prepared
** statement is kept per connection thread.
*/
#include <pthread.h>
#include <sqlite3.h>
#include <stdlib.h>

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

/* The tile statement of one connection thread, prepared on its first tile
** request and kept until the thread ends or chartDb is closed (which
** finalizes it and moves the chart generation on). Preparing costs more
** than the lookup itself. */
typedef struct TileStmt {
    sqlite3_stmt *stmt;
    uint32_t generation;
} TileStmt;

static pthread_key_t tileStmtKey;
static pthread_once_t tileStmtOnce = PTHREAD_ONCE_INIT;

/* Thread exit: finalizes the statement unless a close already did. */
static void tile_stmt_release(void *p) {
    TileStmt *t = (TileStmt *)p;
    mr_db_read_begin();
    if (t->stmt && t->generation == mr_chart_generation()) sqlite3_finalize(t->stmt);
    mr_db_read_end();
    free(t);
}

static void tile_stmt_key_make(void) { pthread_key_create(&tileStmtKey, tile_stmt_release); }

/* This thread's tile statement on chartDb, reset and ready to bind, or
** NULL when there is no pack or it has no tiles table. Caller holds the
** read side. */
static sqlite3_stmt *tile_stmt(void) {
    TileStmt *t;
    uint32_t generation = mr_chart_generation();

    pthread_once(&tileStmtOnce, tile_stmt_key_make);
    t = (TileStmt *)pthread_getspecific(tileStmtKey);
    if (t == NULL) {
        t = (TileStmt *)calloc(1, sizeof(*t));
        /* out of memory: no lookup, the GIF goes out */
        if (t == NULL || pthread_setspecific(tileStmtKey, t) != 0) {
            free(t);
            return NULL;
        }
    }
    if (t->stmt && t->generation != generation) t->stmt = NULL;  /* finalized by the close */
    if (t->stmt == NULL) {
        if (sqlite3_prepare_v2(mrApp.chartDb, "SELECT png FROM tiles WHERE zyx=?", -1, &t->stmt, NULL) !=
            SQLITE_OK) {
            sqlite3_finalize(t->stmt);
            t->stmt = NULL;
            return NULL;
        }
        t->generation = generation;
    }
    return t->stmt;
}

/* Collects the tile of key from chartDb, or the GIF, and sends it. A text
** that did not parse (have == 0) gets the GIF without a lookup: its fields
** have no meaning and must not hit tile 0 by accident. */
static int tile_send(ResponseBuffer *b, int have, int64_t key) {
    sqlite3_stmt *stmt;
    int type = 8;

    if (have) {
        mr_db_read_begin();
        stmt = tile_stmt();
        if (stmt) {
            sqlite3_bind_int64(stmt, 1, key);
            if (sqlite3_step(stmt) == SQLITE_ROW) {
                buffAddData(b, sqlite3_column_blob(stmt, 0), sqlite3_column_bytes(stmt, 0));
                type = 6;
            }
            sqlite3_reset(stmt);
        }
        mr_db_read_end();
    }
    if (type == 8) {
        b->length = 0;
        buffAddData(b, onepixelgif, (int)sizeof(onepixelgif));
    }
    /* 600 is raised to 900 by the header writer: both replies cache */
    buffSendHttp(b, NULL, type, 600);
    return type == 6 ? 0 : 404;
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
