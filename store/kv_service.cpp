/*
** kv_service.cpp -- getValue, getValueA and setValue: one kvt row (or all
** rows of a key) as an HTTP reply, and storing a value under a key.
**
** Values are read with their byte count, never as C strings: PNG files
** stored as TEXT hold NUL bytes. Lookups lower the asked key; the stored key
** is used as it is.
*/
#include <sqlite3.h>
#include <string.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

/* Collects the reply of getValue into b without sending it; the reply type
** is left in b->contentType. Returns 0, or 404. */
static int kv_collect(ResponseBuffer *b, const char *key, sqlite3 *db, const char *language) {
    sqlite3_stmt *stmt = NULL;
    int result = 404;

    buffReset(b);
    sqlite3_prepare_v2(db, "SELECT v,t FROM kvt WHERE k=LOWER(?) AND l IN (?,'**')", -1, &stmt,
                       NULL);
    sqlite3_bind_text(stmt, 1, key, -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, language, -1, SQLITE_STATIC);
    if (sqlite3_step(stmt) == SQLITE_ROW) {
        const void *v = sqlite3_column_blob(stmt, 0);
        int n = sqlite3_column_bytes(stmt, 0);
        int t = sqlite3_column_int(stmt, 1);
        if (t == MT_FRAGMENT) {
            buffAddChar(b, "<!DOCTYPE HTML>");
            t = MT_HTML_BARE;
        }
        if (t < 0 || t >= MIMETYPE_COUNT) t = MT_BINARY; /* a row outside the table never indexes past it */
        buffAddData(b, v, n);
        b->contentType = t;
        result = 0;
    } else {
        buffAppendStatus(b, "404 File not found");
        buffAddChar(b, "File not found (");
        buffAddChar(b, language);
        buffAddChar(b, "): ");
        buffAddChar(b, key);
        b->contentType = MT_TEXT;
    }
    sqlite3_finalize(stmt);
    return result;
}

/* Images (MT_PNG) are the only cacheable documents. */
static void kv_send(ResponseBuffer *b) {
    buffSendHttp(b, NULL, b->contentType, MT_MAX_AGE(b->contentType));
}

/* Sends the first row of key in language or "**" ("**" rows come first
** through the index order). Returns 0, or 404 with a plain-text page. */
int getValue(ResponseBuffer *b, const char *key, sqlite3 *db, const char *language) {
    int result = kv_collect(b, key, db, language);
    kv_send(b);
    return result;
}

int getValueAt(ResponseBuffer *b, const char *key, sqlite3 *const *slot, const char *language) {
    int result;
    mr_db_read_begin();
    result = kv_collect(b, key, *slot, language);
    mr_db_read_end();
    kv_send(b);
    return result;
}

/* Collects every row of key in language or "**" joined as "[v1,v2,...]". */
static void kv_collect_all(ResponseBuffer *b, const char *key, sqlite3 *db, const char *language) {
    sqlite3_stmt *stmt = NULL;
    int first = 1;

    buffReset(b);
    sqlite3_prepare_v2(db, "SELECT v FROM kvt WHERE k=LOWER(?) AND l IN (?,'**')", -1, &stmt, NULL);
    sqlite3_bind_text(stmt, 1, key, -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, language, -1, SQLITE_STATIC);
    buffAddChar(b, "[");
    while (sqlite3_step(stmt) == SQLITE_ROW) {
        if (!first) buffAddChar(b, ",");
        first = 0;
        buffAddData(b, sqlite3_column_blob(stmt, 0), sqlite3_column_bytes(stmt, 0));
    }
    sqlite3_finalize(stmt);
    buffAddChar(b, "]");
}

/* Sends every row of key in language or "**" joined as "[v1,v2,...]",
** status 200 always (a key with no rows gives "[]"). Returns 0. */
int getValueA(ResponseBuffer *b, const char *key, sqlite3 *db, const char *language) {
    kv_collect_all(b, key, db, language);
    buffSendHttp(b, NULL, MT_REPLY, 0);
    return 0;
}

int getValueAAt(ResponseBuffer *b, const char *key, sqlite3 *const *slot, const char *language) {
    mr_db_read_begin();
    kv_collect_all(b, key, *slot, language);
    mr_db_read_end();
    buffSendHttp(b, NULL, MT_REPLY, 0);
    return 0;
}

/* Deletes every row of key, then inserts (key, value, type, "**"); the two
** steps are no transaction. Sends nothing. Returns 0, -1 when the DELETE
** failed, -2 when the INSERT failed (the status text then says which).
**
** On the trip database both steps run under dbMutex. Its handle is shared
** with the feed, whose track row opens a transaction that also replaces a
** "settings" row of its own: falling between the DELETE and the INSERT it
** would take the key, the INSERT would fail on the unique index, and the
** client's settings would be lost to the host's status text. */
int setValue(ResponseBuffer *b, const char *key, const void *value, int32_t valueLength, int type,
             sqlite3 *db) {
    sqlite3_mutex *guard = db != NULL && db == mrApp.tripDb ? mrApp.dbMutex : NULL;
    sqlite3_stmt *stmt = NULL;
    int result = 0;

    sqlite3_mutex_enter(guard);
    sqlite3_prepare_v2(db, "DELETE FROM kvt WHERE k=?", -1, &stmt, NULL);
    sqlite3_bind_text(stmt, 1, key, -1, SQLITE_STATIC);
    if (sqlite3_step(stmt) != SQLITE_DONE) {
        buffAppendStatus(b, "500 DELETE FROM kvt");
        result = -1;
        goto done;
    }
    sqlite3_finalize(stmt);
    stmt = NULL;
    sqlite3_prepare_v2(db, "INSERT INTO kvt VALUES (?,?,?,'**')", -1, &stmt, NULL);
    sqlite3_bind_text(stmt, 1, key, -1, SQLITE_STATIC);
    sqlite3_bind_text(stmt, 2, value ? (const char *)value : "", valueLength < 0 ? 0 : valueLength,
                      SQLITE_STATIC);
    sqlite3_bind_int(stmt, 3, type);
    if (sqlite3_step(stmt) != SQLITE_DONE) {
        buffAppendStatus(b, "500 ERROR INSERT kvt");
        result = -2;
    }
done:
    sqlite3_finalize(stmt);
    sqlite3_mutex_leave(guard);
    return result;
}

int kv_put_blob(sqlite3 *db, const char *key, const void *value, int n, int type) {
    sqlite3_stmt *stmt = NULL;
    int result = -1;

    if (sqlite3_prepare_v2(db, "INSERT INTO kvt (k,v,t,l) VALUES (?,?,?,'**')", -1, &stmt, NULL) == SQLITE_OK) {
        sqlite3_bind_text(stmt, 1, key, -1, SQLITE_STATIC);
        sqlite3_bind_blob(stmt, 2, value, n, SQLITE_STATIC);
        sqlite3_bind_int(stmt, 3, type);
        if (sqlite3_step(stmt) == SQLITE_DONE) result = 0;
    }
    sqlite3_finalize(stmt);
    return result;
}
