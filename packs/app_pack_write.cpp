/*
** app_pack_write.cpp -- writes the application pack A000001.marepack from a
** manifest prepared by build_app_pack.js.
**
** Usage: app_pack_write <manifest> <out.marepack>
**
** The manifest holds one row per line, four fields separated by tabs:
**   key <TAB> type code <TAB> language <TAB> path of the file to store
** The file's bytes become `v`, stored with the TEXT storage class and their
** full byte count (images keep their NUL bytes), in manifest order, in one
** transaction. The result has page size 1024, UTF-8, a rollback journal, no
** auto-vacuum and user_version 0, and holds exactly the table `kvt` and the
** index `i_kv_lk`. The pack is written under a temporary name and renamed,
** so an interrupted build never leaves a half-written pack behind.
**
** Exit status: 0 done, 1 a file or database step failed, 2 usage.
*/
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

static const char *const apwSchema[] = {
    "PRAGMA page_size=1024",
    "PRAGMA auto_vacuum=NONE",
    "PRAGMA encoding='UTF-8'",
    "PRAGMA journal_mode=DELETE",
    "PRAGMA user_version=0",
    "PRAGMA application_id=0",
    "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT)",
    "CREATE INDEX i_kv_lk ON kvt(l,k) ",
};

/* Reads a whole file into out. Returns 0, or -1 when it cannot be read. */
static int apwReadFile(const char *path, std::vector<char> &out) {
    FILE *f = fopen(path, "rb");
    if (f == NULL) return -1;
    char chunk[65536];
    size_t n;
    out.clear();
    while ((n = fread(chunk, 1, sizeof(chunk), f)) > 0) out.insert(out.end(), chunk, chunk + n);
    int rc = ferror(f) ? -1 : 0;
    fclose(f);
    return rc;
}

/* Splits one manifest line into exactly four tab-separated fields. Returns 0,
** or -1 when the line has another number of fields or an empty key. */
static int apwSplit(const std::string &line, std::string field[4]) {
    size_t start = 0;
    for (int i = 0; i < 4; i++) {
        size_t tab = line.find('\t', start);
        if (i < 3 && tab == std::string::npos) return -1;
        if (i == 3 && tab != std::string::npos) return -1;
        field[i] = line.substr(start, i == 3 ? std::string::npos : tab - start);
        start = tab + 1;
    }
    return field[0].empty() ? -1 : 0;
}

/* Stores every manifest row through one prepared INSERT. Returns the number
** of rows stored, or -1 at the first failure (reported on stderr). */
static int apwInsertAll(sqlite3 *db, FILE *manifest) {
    sqlite3_stmt *st = NULL;
    int rows = 0;
    char buf[8192];
    std::vector<char> value;

    if (sqlite3_prepare_v2(db, "INSERT INTO kvt (k,v,t,l) VALUES (?,?,?,?)", -1, &st, NULL) != SQLITE_OK) {
        fprintf(stderr, "app_pack_write: %s\n", sqlite3_errmsg(db));
        return -1;
    }
    while (fgets(buf, sizeof(buf), manifest) != NULL) {
        std::string line(buf);
        if (!line.empty() && line.back() != '\n' && !feof(manifest)) {
            fprintf(stderr, "app_pack_write: manifest line too long\n");
            rows = -1;
            break;
        }
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        if (line.empty()) continue;
        std::string f[4];
        char *end = NULL;
        if (apwSplit(line, f) != 0) {
            fprintf(stderr, "app_pack_write: bad manifest line: %s\n", line.c_str());
            rows = -1;
            break;
        }
        long type = strtol(f[1].c_str(), &end, 10);
        /* 0 to 14 index the content-type table; 100 is the HTML fragment */
        if (end == f[1].c_str() || *end != '\0' || ((type < 0 || type > 14) && type != 100)) {
            fprintf(stderr, "app_pack_write: bad type code in: %s\n", line.c_str());
            rows = -1;
            break;
        }
        if (apwReadFile(f[3].c_str(), value) != 0) {
            fprintf(stderr, "app_pack_write: cannot read %s\n", f[3].c_str());
            rows = -1;
            break;
        }
        sqlite3_reset(st);
        sqlite3_bind_text(st, 1, f[0].c_str(), (int)f[0].size(), SQLITE_TRANSIENT);
        /* an empty file still stores an empty text, never NULL */
        sqlite3_bind_text(st, 2, value.empty() ? "" : value.data(), (int)value.size(), SQLITE_TRANSIENT);
        sqlite3_bind_int(st, 3, (int)type);
        sqlite3_bind_text(st, 4, f[2].c_str(), (int)f[2].size(), SQLITE_TRANSIENT);
        if (sqlite3_step(st) != SQLITE_DONE) {
            fprintf(stderr, "app_pack_write: %s: %s\n", f[0].c_str(), sqlite3_errmsg(db));
            rows = -1;
            break;
        }
        rows++;
    }
    sqlite3_finalize(st);
    return rows;
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s <manifest> <out.marepack>\n", argv[0]);
        return 2;
    }
    std::string tmp = std::string(argv[2]) + ".tmp";
    sqlite3 *db = NULL;
    FILE *manifest = NULL;
    int rows = -1;

    unlink(tmp.c_str());
    manifest = fopen(argv[1], "r");
    if (manifest == NULL) {
        fprintf(stderr, "app_pack_write: cannot open %s\n", argv[1]);
        goto fail;
    }
    if (sqlite3_open(tmp.c_str(), &db) != SQLITE_OK) {
        fprintf(stderr, "app_pack_write: cannot create %s: %s\n", tmp.c_str(), sqlite3_errmsg(db));
        goto fail;
    }
    for (const char *sql : apwSchema) {
        if (sqlite3_exec(db, sql, NULL, NULL, NULL) != SQLITE_OK) {
            fprintf(stderr, "app_pack_write: %s: %s\n", sql, sqlite3_errmsg(db));
            goto fail;
        }
    }
    if (sqlite3_exec(db, "BEGIN", NULL, NULL, NULL) != SQLITE_OK) goto fail;
    rows = apwInsertAll(db, manifest);
    if (rows < 0 || sqlite3_exec(db, "COMMIT", NULL, NULL, NULL) != SQLITE_OK) {
        rows = -1;
        goto fail;
    }
    if (sqlite3_close(db) != SQLITE_OK) {
        db = NULL;
        goto fail;
    }
    db = NULL;
    fclose(manifest);
    manifest = NULL;
    if (rename(tmp.c_str(), argv[2]) != 0) {
        fprintf(stderr, "app_pack_write: cannot rename to %s\n", argv[2]);
        goto fail;
    }
    printf("app_pack_write: %d rows in %s\n", rows, argv[2]);
    return 0;

fail:
    if (db != NULL) sqlite3_close(db);
    if (manifest != NULL) fclose(manifest);
    unlink(tmp.c_str());
    return 1;
}
