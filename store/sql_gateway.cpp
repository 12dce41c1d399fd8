/*
** sql_gateway.cpp -- execSql: runs the client's own statement on the trip
** database or the chart pack and answers a JSON array of arrays, or "OK",
** "ERR" or SQLite's error text for a statement without result columns.
**
** Only the first statement of the text is compiled; the rest is ignored.
** Each value is formatted by the type SQLite gives it in its row, not by
** the column's declared type. The status is always "200 OK": the client
** tells success from the body.
*/
#include <math.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

/* The rows are collected in a text of their own that doubles as it grows,
** and go into the connection's buffer with one copy at the end: the buffer
** grows to exactly what it needs, which per value would cost a realloc
** (and for large replies a system call) each time. */
typedef struct SqlText {
    char *p;
    size_t len, cap;
} SqlText;

/* Makes room for add more bytes; ends the process with status 1 when
** memory runs out, as every reply that grows does. */
static void sqlt_room(SqlText *t, size_t add) {
    if (t->len + add <= t->cap) return;
    size_t cap = t->cap ? t->cap : 65536;
    while (cap < t->len + add) cap *= 2;
    char *p = (char *)realloc(t->p, cap);
    if (p == NULL) exit(1);
    t->p = p;
    t->cap = cap;
}

static void sqlt_add(SqlText *t, const void *p, size_t n) {
    sqlt_room(t, n);
    memcpy(t->p + t->len, p, n);
    t->len += n;
}

static void sqlt_str(SqlText *t, const char *s) { sqlt_add(t, s, strlen(s)); }

/* Appends n bytes escaped as buffAddJson does: backspace, tab, line feed,
** form feed, carriage return, double quote, apostrophe, slash and
** backslash get a backslash; every other byte stands as it is. */
static void sqlt_json(SqlText *t, const unsigned char *s, int n) {
    sqlt_room(t, 2 * (size_t)n);
    char *o = t->p + t->len;
    for (int i = 0; i < n; i++) {
        char esc = buffJsonEscape[s[i]];
        if (esc) {
            *o++ = '\\';
            *o++ = esc;
        } else {
            *o++ = (char)s[i];
        }
    }
    t->len = (size_t)(o - t->p);
}

/* Formatting a double through printf is the largest cost of a reply of
** many rows. For finite values below 2^53 in magnitude the text is built
** here from the exact binary value: v = mant * 2^shift, so v * 10^6 is
** mant * 10^6 (below 2^73) shifted right, rounded half to even as printf
** rounds. Everything else goes through the bounded format itself. */
int sql_format_double(char *out, double v) {
    char digits[24];
    int n = 0, len = 0;
    int e;

    if (!isfinite(v) || fabs(v) >= 9007199254740992.0) {
        mr_bprintf(out, SQL_DOUBLE_TEXT, "%lf", v);
        return (int)strlen(out);
    }
    double m = frexp(fabs(v), &e); /* |v| = m * 2^e, m in [0.5, 1) or 0 */
    uint64_t mant = (uint64_t)ldexp(m, 53);
    int s = 53 - e;                /* |v| = mant / 2^s, and s >= 0 here */
    unsigned __int128 scaled = (unsigned __int128)mant * 1000000u;
    unsigned __int128 q = 0;
    if (s == 0) {
        q = scaled;
    } else if (s <= 74) {          /* beyond 74 the value rounds to 0 */
        unsigned __int128 half = (unsigned __int128)1 << (s - 1);
        unsigned __int128 rem = scaled & ((half << 1) - 1);
        q = scaled >> s;
        if (rem > half || (rem == half && (q & 1))) q++;
    }
    uint64_t whole = (uint64_t)(q / 1000000u);
    uint32_t frac = (uint32_t)(q % 1000000u);

    if (signbit(v)) out[len++] = '-';
    do {
        digits[n++] = (char)('0' + whole % 10);
        whole /= 10;
    } while (whole);
    while (n) out[len++] = digits[--n];
    out[len++] = '.';
    for (int i = 5; i >= 0; i--, frac /= 10) out[len + i] = (char)('0' + frac % 10);
    len += 6;
    out[len] = 0;
    return len;
}

/* Appends one value of the current row by its storage class. Returns 0,
** or -1 (nothing appended) when the value would take the rows past
** SQL_REPLY_MAX. */
static int sql_value(SqlText *t, sqlite3_stmt *stmt, int col) {
    char num[SQL_DOUBLE_TEXT];
    int type = sqlite3_column_type(stmt, col);
    if (type == SQLITE_TEXT || type == SQLITE_BLOB) {
        /* escapes at most double a text; only near the limit are they
        ** counted, and a text too long even without them is not read */
        size_t n = (size_t)sqlite3_column_bytes(stmt, col);
        if (t->len + n + 2 > SQL_REPLY_MAX) return -1;
        if (t->len + 2 * n + 2 > SQL_REPLY_MAX) {
            const unsigned char *s = sqlite3_column_text(stmt, col);
            size_t need = n + 2;
            for (size_t i = 0; s && i < n; i++) need += buffJsonEscape[s[i]] != 0;
            if (t->len + need > SQL_REPLY_MAX) return -1;
        }
    } else if (t->len + sizeof(num) > SQL_REPLY_MAX) {
        return -1;
    }
    switch (type) {
    case SQLITE_INTEGER:
        sqlt_str(t, (const char *)sqlite3_column_text(stmt, col));
        break;
    case SQLITE_FLOAT:
        /* six decimals always; the area holds the widest double */
        sqlt_add(t, num, (size_t)sql_format_double(num, sqlite3_column_double(stmt, col)));
        break;
    case SQLITE_TEXT:
    case SQLITE_BLOB: {
        /* a BLOB comes out as its bytes inside a string, like a text */
        const unsigned char *s = sqlite3_column_text(stmt, col);
        int n = sqlite3_column_bytes(stmt, col);
        sqlt_add(t, "\"", 1);
        if (s) sqlt_json(t, s, n);
        sqlt_add(t, "\"", 1);
        break;
    }
    default:
        sqlt_str(t, "null");
        break;
    }
    return 0;
}

/* Collects the reply for statementText on db into b. A failed prepare is
** not tested: it leaves no statement and no columns, and shows as the
** connection's error text. A blob is bound to parameter 1 as a static
** value (the request body outlives the statement). */
static void sql_collect(ResponseBuffer *b, const char *statementText, sqlite3 *db,
                        const void *blob, int blobLength) {
    sqlite3_stmt *stmt = NULL;
    int bindFailed = 0;

    buffReset(b);
    sqlite3_prepare_v2(db, statementText, -1, &stmt, NULL);
    if (blob != NULL)
        bindFailed = sqlite3_bind_blob(stmt, 1, blob, blobLength, SQLITE_STATIC) != SQLITE_OK;

    if (bindFailed || sqlite3_column_count(stmt) == 0) {
        /* no result columns: an error text, or the outcome of one step */
        if (sqlite3_errcode(db) != SQLITE_OK)
            buffAddChar(b, sqlite3_errmsg(db));
        else
            buffAddChar(b, sqlite3_step(stmt) == SQLITE_DONE ? "OK" : "ERR");
    } else {
        int ncol = sqlite3_column_count(stmt);
        int first = 1, tooBig = 0;
        SqlText rows = {NULL, 0, 0};
        sqlt_add(&rows, "[", 1);
        /* a step that fails ends the rows like the last one: the part read
        ** stands as the result */
        while (!tooBig && sqlite3_step(stmt) == SQLITE_ROW) {
            sqlt_str(&rows, first ? "\n[" : ",\n[");
            first = 0;
            for (int i = 0; i < ncol && !tooBig; i++) {
                if (i) sqlt_add(&rows, ",", 1);
                tooBig = sql_value(&rows, stmt, i) != 0;
            }
            sqlt_add(&rows, "]", 1);
        }
        sqlt_add(&rows, "\n]", 2);
        /* a result the reply cannot hold is an error, not a cut array */
        if (tooBig)
            buffAddChar(b, sqlite3_errstr(SQLITE_TOOBIG));
        else
            buffAddData(b, rows.p, (int)rows.len);
        free(rows.p);
    }
    sqlite3_finalize(stmt);
}

/* Runs the first statement of statementText on db (which may be NULL: the
** body is then "out of memory", SQLite's text for a missing handle) and
** sends the reply with type 5 and no-cache headers. Returns 0. */
int execSql(ResponseBuffer *b, const char *statementText, sqlite3 *db, const void *blob,
            int blobLength) {
    sql_collect(b, statementText, db, blob, blobLength);
    buffSendHttp(b, NULL, MT_REPLY, 0);
    return 0;
}

int execSqlAt(ResponseBuffer *b, const char *statementText, sqlite3 *const *slot, const void *blob,
              int blobLength) {
    mr_db_read_begin();
    sql_collect(b, statementText, *slot, blob, blobLength);
    mr_db_read_end();
    buffSendHttp(b, NULL, MT_REPLY, 0);
    return 0;
}
