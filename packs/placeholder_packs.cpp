/*
** placeholder_packs.cpp -- writes the two packs that the binaries carry
** until the real pack builders produce them: an application pack holding a
** minimal /app/marepack.html per language and a version row, and a chart
** pack with its schema and empty tables.
**
** Usage: placeholder_packs <A000001.marepack> <A000002.marepack>
** Both files: page size 1024, rollback journal, no auto-vacuum, UTF-8,
** user_version 0.
*/
#include <sqlite3.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static const char *const appSchema[] = {
    "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)",
    "CREATE INDEX i_kv_lk ON kvt(l,k) ",
};

static const char *const chartSchema[] = {
    "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)",
    "CREATE INDEX i_kv_lk ON kvt(l,k) ",
    "CREATE TABLE tiles (verid INTEGER,\t\tzyx INTEGER PRIMARY KEY,\t\tpng BLOB)",
    "CREATE TABLE gaz (x INTEGER, y INTEGER, c TEXT, r INTEGER, n TEXT)",
    "CREATE INDEX i_gaz ON gaz(x) ",
    "CREATE TABLE tides (id INTEGER, ts INTEGER, level INTEGER, typ INTEGER)",
    "CREATE UNIQUE INDEX i_tides ON tides(id,ts) ",
};

static const struct {
    const char *lang;
    const char *title;
    const char *text;
} pages[] = {
    {"en", "mareplot", "The chart client is being installed."},
    {"de", "mareplot", "Der Kartenclient wird installiert."},
    {"fr", "mareplot", "Le client cartographique est en cours d'installation."},
};

/* Opens a new pack file with the fixed file properties. Returns the handle
** or NULL. */
static sqlite3 *openNewPack(const char *path) {
    sqlite3 *db = NULL;
    unlink(path);
    if (sqlite3_open(path, &db) != SQLITE_OK) {
        fprintf(stderr, "cannot create %s: %s\n", path, sqlite3_errmsg(db));
        sqlite3_close(db);
        return NULL;
    }
    sqlite3_exec(db,
                 "PRAGMA page_size=1024; PRAGMA auto_vacuum=NONE; PRAGMA encoding='UTF-8';"
                 "PRAGMA journal_mode=DELETE; PRAGMA user_version=0;",
                 NULL, NULL, NULL);
    return db;
}

static int run(sqlite3 *db, const char *const *stmts, int n) {
    for (int i = 0; i < n; i++) {
        char *err = NULL;
        if (sqlite3_exec(db, stmts[i], NULL, NULL, &err) != SQLITE_OK) {
            fprintf(stderr, "%s: %s\n", stmts[i], err ? err : "?");
            sqlite3_free(err);
            return -1;
        }
    }
    return 0;
}

static int insertRow(sqlite3 *db, const char *k, const char *v, int t, const char *l) {
    sqlite3_stmt *st = NULL;
    int rc;
    sqlite3_prepare_v2(db, "INSERT INTO kvt VALUES (?,?,?,?)", -1, &st, NULL);
    sqlite3_bind_text(st, 1, k, -1, SQLITE_STATIC);
    sqlite3_bind_text(st, 2, v, -1, SQLITE_STATIC);
    sqlite3_bind_int(st, 3, t);
    sqlite3_bind_text(st, 4, l, -1, SQLITE_STATIC);
    rc = sqlite3_step(st);
    sqlite3_finalize(st);
    return rc == SQLITE_DONE ? 0 : -1;
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s A000001.marepack A000002.marepack\n", argv[0]);
        return 2;
    }
    sqlite3 *app = openNewPack(argv[1]);
    if (app == NULL || run(app, appSchema, 2) != 0) return 1;
    sqlite3_exec(app, "BEGIN", NULL, NULL, NULL);
    for (const auto &p : pages) {
        char html[512];
        snprintf(html, sizeof(html),
                 "<!DOCTYPE html>\n<html lang=\"%s\"><head><meta charset=\"utf-8\"><title>%s</title>"
                 "</head><body><p>%s</p></body></html>\n",
                 p.lang, p.title, p.text);
        if (insertRow(app, "/app/marepack.html", html, 1, p.lang) != 0) return 1;
    }
    if (insertRow(app, "version", "0", 0, "**") != 0) return 1;
    sqlite3_exec(app, "COMMIT", NULL, NULL, NULL);
    sqlite3_close(app);

    sqlite3 *chart = openNewPack(argv[2]);
    if (chart == NULL || run(chart, chartSchema, 7) != 0) return 1;
    sqlite3_close(chart);
    return 0;
}
