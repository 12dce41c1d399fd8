/*
** db_set.cpp -- the database set and the saved state: the guard around the
** two replaceable handles, getSetState (languages, skin, choosing and
** deleting the chart pack, and the reading form), and loadOrSaveDb.
**
** The guard: chartDb and appDb are shared by every connection thread and
** one of them can close a handle while another runs a statement on it.
** A process-wide reader/writer lock makes that safe without changing any
** reply: readers hold it only while they prepare, step and finalize (never
** while sending), and a replacement closes the old handle only once every
** statement on it is finalized. The lock prefers writers, so a steady flow
** of tile requests cannot keep a pack switch waiting.
*/
#include <pthread.h>
#include <sqlite3.h>
#include <string.h>
#include <unistd.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

static pthread_rwlock_t dbGuard = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;

/* Counts the opens and closes of the chart pack's handle. What a
** connection thread keeps of the pack across requests (its tile lookup)
** belongs to the value it was made under. */
static uint32_t chartGeneration;

void mr_db_read_begin(void) { pthread_rwlock_rdlock(&dbGuard); }
void mr_db_read_end(void) { pthread_rwlock_unlock(&dbGuard); }
void mr_db_write_begin(void) { pthread_rwlock_wrlock(&dbGuard); }
void mr_db_write_end(void) { pthread_rwlock_unlock(&dbGuard); }
uint32_t mr_chart_generation(void) { return MR_LOAD(chartGeneration); }

/* Finalizes the statements still kept on db, then closes it. Caller holds
** the write side, so no reader is inside any of those statements. */
void mr_db_close(sqlite3 *db) {
    sqlite3_stmt *stmt;
    if (db == NULL) return;
    if (db == mrApp.chartDb) MR_ADD(chartGeneration, 1);
    while ((stmt = sqlite3_next_stmt(db, NULL)) != NULL) sqlite3_finalize(stmt);
    sqlite3_close(db);
}

/* Closes *slot and stores db, with no reader inside a statement. */
void mr_db_swap(sqlite3 **slot, sqlite3 *db) {
    mr_db_write_begin();
    mr_db_close(*slot);
    MR_STORE(*slot, db); /* some routes glance at a handle outside the guard */
    mr_db_write_end();
}

/* The area in which a pack directory and a file name are joined. */
#define STATE_PATH_SIZE 320

/* True when value fits the room that the named state copies it into: the
** field of alang, mlang or skin, or the path area of chartdb and
** delchartdb joined to either pack directory. Other names store the value
** only as a row, which has no fixed room. The value comes from the request
** path, so this test keeps an over-long one away from the bounded copies. */
static int state_value_fits(const char *name, const char *value) {
    size_t n = strlen(value);
    if (strcmp(name, "alang") == 0) return n < sizeof(mrApp.alang);
    if (strcmp(name, "mlang") == 0) return n < sizeof(mrApp.mlang);
    if (strcmp(name, "skin") == 0) return n < sizeof(mrApp.skin);
    if (strcmp(name, "chartdb") == 0 || strcmp(name, "delchartdb") == 0)
        return strlen(mrApp.packDir) + n < STATE_PATH_SIZE &&
               strlen(mrApp.altPackDir) + n < STATE_PATH_SIZE;
    return 1;
}

/* Opens path read-only into chartDb; a failed open leaves chartDb NULL
** and closes the half-made handle. Caller holds the write side.
** The pack is only ever read, and nothing writes its file while it is
** open (a download closes it first), so the shared lock taken by the first
** read is kept until the close: otherwise every tile lookup would lock and
** unlock the file and look for a journal, which cost more than the lookup. */
static void open_chart(const char *path) {
    if (sqlite3_open_v2(path, &mrApp.chartDb, SQLITE_OPEN_READONLY, NULL) != SQLITE_OK) {
        if (mrApp.chartDb) sqlite3_close(mrApp.chartDb);
        mrApp.chartDb = NULL;
        return;
    }
    sqlite3_exec(mrApp.chartDb, "PRAGMA locking_mode=EXCLUSIVE", NULL, NULL, NULL);
    MR_ADD(chartGeneration, 1);
}

/* chartdb=<file>: close the pack in use, open packDir + file, else
** altPackDir + file. The reply is "000 " or "500 " and the last path tried.
** The whole switch happens under the write side, so a request sees either
** the old pack or the new one (or none when the open failed). */
static void state_chartdb(ResponseBuffer *b, const char *value) {
    char path[STATE_PATH_SIZE];
    mr_db_write_begin();
    mr_db_close(mrApp.chartDb);
    mrApp.chartDb = NULL;
    mr_bprintf(path, sizeof(path), "%s%s", mrApp.packDir, value);
    open_chart(path);
    if (mrApp.chartDb == NULL) {
        mr_bprintf(path, sizeof(path), "%s%s", mrApp.altPackDir, value);
        open_chart(path);
    }
    buffAddChar(b, mrApp.chartDb ? "000 " : "500 ");
    mr_db_write_end();
    buffAddChar(b, path);
}

/* delchartdb=<file>: close whatever pack is in use, then delete the file
** in both pack directories; results are ignored. The reply names the last
** path tried. */
static void state_delchartdb(ResponseBuffer *b, const char *value) {
    char path[STATE_PATH_SIZE];
    mr_db_swap(&mrApp.chartDb, NULL);
    mr_bprintf(path, sizeof(path), "%s%s", mrApp.packDir, value);
    unlink(path);
    mr_bprintf(path, sizeof(path), "%s%s", mrApp.altPackDir, value);
    unlink(path);
    buffAddChar(b, "000 ");
    buffAddChar(b, path);
}

/* Handles the text behind /getSetState/.
**
** With no "=" the text is a name: its tripDb row is sent at once (the route
** then sends the same body a second time). With "name=value" the named
** state changes, the reply is collected for the route to send, and the
** value is always kept as a kvt row of type 11, also for unknown names and
** failed actions. A value longer than its room (alang and mlang 3 bytes,
** skin 31, a pack path 319) changes nothing, is not stored, and gets the
** body "500 ".
** Returns the result of getValue (reading form) or setValue (0, -1, -2),
** or -3 for a value that did not fit. */
int getSetState(ResponseBuffer *b, const char *text) {
    char name[2048];
    const char *value;
    const char *eq = strchr(text, '=');

    if (eq == NULL) return getValue(b, text, mrApp.tripDb, "**");

    buffReset(b);
    /* the decoded path is bounded by the request line, and so is the name */
    size_t n = (size_t)(eq - text);
    if (n >= sizeof(name)) n = sizeof(name) - 1;
    memcpy(name, text, n);
    name[n] = 0;
    value = eq + 1;

    if (!state_value_fits(name, value)) {
        buffAddChar(b, "500 ");
        return -3;
    }
    if (strcmp(name, "alang") == 0) {
        MR_BCOPY(mrApp.alang, value);
        mrc_write_regkey("alang", value);
        buffAddChar(b, "000 ");
        buffAddChar(b, value);
    } else if (strcmp(name, "mlang") == 0) {
        MR_BCOPY(mrApp.mlang, value);
        buffAddChar(b, "000 ");
        buffAddChar(b, value);
    } else if (strcmp(name, "skin") == 0) {
        MR_BCOPY(mrApp.skin, value);
        mrc_write_regkey("skin", value);
        buffAddChar(b, "000 ");
        buffAddChar(b, value);
    } else if (strcmp(name, "delchartdb") == 0) {
        state_delchartdb(b, value);
    } else if (strcmp(name, "chartdb") == 0) {
        state_chartdb(b, value);
    } else {
        buffAppendStatus(b, "510 no such state");
    }
    return setValue(b, name, value, (int32_t)strlen(value), 11, mrApp.tripDb);
}

/* Copies the whole "main" database of db to fileName (isSave non-zero) or
** from fileName into db (isSave 0) with one backup step. The file's handle
** is closed in every case. Returns the SQLite result code of the
** destination (of the open when the file could not be opened). */
int loadOrSaveDb(sqlite3 *db, const char *fileName, int isSave) {
    sqlite3 *file = NULL;
    sqlite3 *from, *to;
    sqlite3_backup *backup;
    int rc = sqlite3_open(fileName, &file);

    if (rc == SQLITE_OK) {
        from = isSave ? db : file;
        to = isSave ? file : db;
        backup = sqlite3_backup_init(to, "main", from, "main");
        if (backup) {
            sqlite3_backup_step(backup, -1);
            sqlite3_backup_finish(backup);
        }
        rc = sqlite3_errcode(to);
    }
    sqlite3_close(file);
    return rc;
}
