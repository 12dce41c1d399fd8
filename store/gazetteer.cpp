/*
** gazetteer.cpp -- names of places around a grid position, from the gaz
** table of the chart pack in use.
**
** The search is a square of half side `range` (exclusive bounds) served by
** the index on x. Rows come by rank, highest first, and within a rank by
** squared distance; each rank reports only its nearest place, except rank
** 0, whose flag is the low byte of the rank and so never gets set: every
** rank-0 place in the square is listed.
*/
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

#define GAZ_DEFAULT_RANGE 5000

/* Reads one decimal number as scanf's %d would and keeps its low 32 bits
** (saturating first, so that huge numbers are defined). */
static const char *gaz_number(const char *p, int32_t *out) {
    char *end;
    long long v = strtoll(p, &end, 10);
    if (end == p) return NULL;
    *out = (int32_t)(uint32_t)(unsigned long long)v;
    return end;
}

int gaz_parse(const char *text, int32_t *x, int32_t *y, int32_t *range) {
    const char *p = text;
    *range = GAZ_DEFAULT_RANGE;
    *x = 0;
    *y = 0;
    if ((p = gaz_number(p, x)) == NULL) return 0;
    if (*p++ != '/' || (p = gaz_number(p, y)) == NULL) return 1;
    if (*p++ != '/' || gaz_number(p, range) == NULL) return 2;
    return 3;
}

/* 32-bit wrapping sum and difference, as the bounds are computed. */
static int32_t wrap_add(int32_t a, int32_t b) { return (int32_t)((uint32_t)a + (uint32_t)b); }
static int32_t wrap_sub(int32_t a, int32_t b) { return (int32_t)((uint32_t)a - (uint32_t)b); }

void gaz_sql(char *out, size_t size, int32_t x, int32_t y, int32_t range) {
    mr_bprintf(out, size,
               "SELECT c,n,(%d-x)*(%d-x)+(%d-y)*(%d-y) AS d,x,y,r FROM gaz WHERE %d < x AND x < %d "
               "AND %d < y AND y < %d ORDER BY r DESC, 3",
               x, x, y, y, wrap_sub(x, range), wrap_add(x, range), wrap_sub(y, range),
               wrap_add(y, range));
}

/* Text of a column for "%s": a NULL column reads as empty. */
static const char *gaz_text(sqlite3_stmt *stmt, int col) {
    const unsigned char *t = sqlite3_column_text(stmt, col);
    return t ? (const char *)t : "";
}

/* Answers /gazetteer/<x>/<y>[/<range>]. With no pack, no gaz table or no
** place in range the body is "[]". A place whose object would not fit 511
** bytes is passed over as if it were not there: names are short by the pack
** format, and a pack that breaks it comes from outside. Ranks outside
** 0..255 have no flag and are listed like rank 0, so that a bad row never
** reaches outside the table. Returns 0. */
int gazetteer(ResponseBuffer *b, const char *text) {
    char sql[512];
    char entry[512];
    unsigned char seen[256];
    sqlite3_stmt *stmt = NULL;
    int32_t x, y, range;
    int first = 1;

    gaz_parse(text, &x, &y, &range);
    gaz_sql(sql, sizeof(sql), x, y, range);
    buffReset(b);
    memset(seen, 0, sizeof(seen));
    buffAddChar(b, "[");

    mr_db_read_begin();
    sqlite3_prepare_v2(mrApp.chartDb, sql, -1, &stmt, NULL);
    while (sqlite3_step(stmt) == SQLITE_ROW) {
        int r = sqlite3_column_int(stmt, 5);
        int flagged = r >= 0 && r < 256;
        if (flagged && seen[r]) continue;
        int n = snprintf(entry, sizeof(entry), "{\"n\":\"%s\",\"c\":\"%s\",\"x\":%d,\"y\":%d}",
                         gaz_text(stmt, 1), gaz_text(stmt, 0), sqlite3_column_int(stmt, 3),
                         sqlite3_column_int(stmt, 4));
        if (n < 0 || (size_t)n >= sizeof(entry)) continue;
        if (!first) buffAddChar(b, ",");
        first = 0;
        if (flagged) seen[r] = (unsigned char)(r & 0xff);
        buffAddChar(b, entry);
    }
    sqlite3_finalize(stmt);
    mr_db_read_end();

    buffAddChar(b, "]");
    buffSendHttp(b, NULL, MT_TEXT, 0);
    return 0;
}
