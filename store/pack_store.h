/*
** pack_store.h -- the pack store: key/value documents, tiles, the SQL
** gateway, saved state and the database set, the gazetteer and Mercator
** grid, the pack download and its CRC-32.
**
** Every handler that takes a ResponseBuffer writes its reply into it; which
** of them send the reply themselves and which leave that to the route is
** told above each function.
*/
#ifndef MAREPLOT_PACK_STORE_H
#define MAREPLOT_PACK_STORE_H

#include <stddef.h>
#include <stdint.h>

#include "http/response_buffer.h"

struct sqlite3;

/* ---- key/value content ---- */
/* Sends one kvt row of key in language or "**". Returns 0, or 404. */
int getValue(ResponseBuffer *b, const char *key, struct sqlite3 *db, const char *language);
/* Sends all rows of key as one JSON array. Returns 0. */
int getValueA(ResponseBuffer *b, const char *key, struct sqlite3 *db, const char *language);
/* Replaces every row of key with one "**" row; sends nothing.
** Returns 0, -1 (DELETE failed) or -2 (INSERT failed). */
int setValue(ResponseBuffer *b, const char *key, const void *value, int32_t valueLength, int type,
             struct sqlite3 *db);
/* Adds one "**" row of key holding the n bytes of value as a BLOB, as the
** pack builders store their documents; rows already there stay. Returns 0,
** or -1 when the row can't be added. */
int kv_put_blob(struct sqlite3 *db, const char *key, const void *value, int n, int type);

/* Guarded forms for the replaceable handles (chartDb, appDb): the handle is
** read from *slot and used under the read side of the handle guard, which
** is released before the reply goes out. Replies are those of the plain
** forms with db = *slot. */
int getValueAt(ResponseBuffer *b, const char *key, struct sqlite3 *const *slot,
               const char *language);
int getValueAAt(ResponseBuffer *b, const char *key, struct sqlite3 *const *slot,
                const char *language);

/* ---- tiles ---- */
/* Sends one tile of chartDb (type 6) or the 35-byte one-pixel GIF (type 8),
** both with max-age 900. text is "A<pack>/<z>/<y>/<x>" for getTile and
** "A<pack>/<zyx>" for getTileI; the pack number is read and not used.
** Returns 0 when a tile was sent, 404 for the GIF. */
int getTile(ResponseBuffer *b, const char *text);
int getTileI(ResponseBuffer *b, const char *text);
/* The keys of those two texts: zoom as unsigned 32 bits shifted by 40, y
** and x sign-extended, y shifted by 20, combined by OR. Return 0, or -1
** (key untouched) when the text does not have the form. */
int tile_key_of_coords(const char *text, int64_t *key);
int tile_key_of_id(const char *text, int64_t *key);

/* ---- the handle guard ----
** chartDb and appDb may be closed and replaced by one thread while others
** run statements on them. Every use of either handle by a request happens
** between mr_db_read_begin and mr_db_read_end; every replacement goes
** through mr_db_swap (or between mr_db_write_begin and mr_db_write_end).
** The read side is never held across a send and never taken twice by one
** thread; the write side waits for the readers in flight and holds new
** ones back, so a pack switch is never starved by a stream of tiles.
** tripDb is never replaced and needs no guard. */
void mr_db_read_begin(void);
void mr_db_read_end(void);
void mr_db_write_begin(void);
void mr_db_write_end(void);
/* Closes the handle in *slot (when there is one) and stores db in its
** place, under the write side. db may be NULL. For the pack download's
** install step: mr_db_swap(&mrApp.appDb, NULL) before the file is
** replaced, then open the new file and mr_db_swap(&mrApp.appDb, newDb). */
void mr_db_swap(struct sqlite3 **slot, struct sqlite3 *db);
/* Finalizes every statement still prepared on db and closes it; NULL does
** nothing. Only under the write side. */
void mr_db_close(struct sqlite3 *db);
/* Changes whenever chartDb is opened or closed. Whatever a thread keeps
** of the chart pack from one request to the next (the tile lookup's own
** handle) belongs to the generation it was made in and is renewed once the
** generation has moved on. Read together with chartDb under the read side. */
uint32_t mr_chart_generation(void);

/* ---- saved state and the database set ---- */
/* Collects the reply of /getSetState/<text>; the route sends it. */
int getSetState(ResponseBuffer *b, const char *text);
int loadOrSaveDb(struct sqlite3 *db, const char *fileName, int isSave);

/* ---- SQL gateway: writes the reply and sends it ---- */
int execSql(ResponseBuffer *b, const char *statementText, struct sqlite3 *db, const void *blob,
            int blobLength);
/* Room for any double as "%lf" writes it: DBL_MAX has 309 digits, and a
** sign, the point and six decimals come with them. */
#define SQL_DOUBLE_TEXT 320
/* Writes v into out (SQL_DOUBLE_TEXT bytes) exactly as "%lf" formats it.
** Returns the length. */
int sql_format_double(char *out, double v);
/* The largest reply that the gateway collects; a result beyond it is
** answered with SQLite's "string or blob too big" instead. */
#define SQL_REPLY_MAX (256 * 1024 * 1024)
/* The same on a replaceable handle, under the guard (see getValueAt). */
int execSqlAt(ResponseBuffer *b, const char *statementText, struct sqlite3 *const *slot,
              const void *blob, int blobLength);

/* ---- gazetteer and Mercator grid ---- */
#define MERC_SPHERE_BASE 40030178.618589391188160183529977
void toMerc(double latitude, double longitude, int32_t *y, int32_t *x);
void pos2merc(int32_t latitude, int32_t longitude, int32_t *y, int32_t *x);
/* Sends the places of chartDb around "<x>/<y>[/<range>]" as a JSON array,
** nearest per rank, highest rank first (type 4, no cache). Returns 0. */
int gazetteer(ResponseBuffer *b, const char *text);
/* Reads "<x>/<y>[/<range>]"; range stays 5000 when absent. Returns the
** count of numbers read (x and y stay 0 when missing). */
int gaz_parse(const char *text, int32_t *x, int32_t *y, int32_t *range);
/* Writes the gazetteer's SELECT for a square of half side range around
** (x, y), bounds exclusive, computed with wrapping 32-bit arithmetic. */
void gaz_sql(char *out, size_t size, int32_t x, int32_t y, int32_t range);

/* ---- pack download ---- */
/* mrApp.dlState, shared by the /download/ route and the download thread. */
enum {
    DL_IDLE = 0,      /* the start value, and the thread's last act */
    DL_REQUESTED = 1, /* set by the route while the thread is being started */
    DL_RUNNING = 2,   /* set by the thread at its start */
    DL_CANCEL = 3     /* a stop the route asked for */
};
/* mrApp.dlError: the result of the last download, kept until the next
** one starts. */
enum {
    DL_OK = 0,             /* finished, or running with no error so far */
    DL_ERR_LOCAL = -1,     /* no temporary file, or no memory for the buffer */
    DL_ERR_SERVER = -2,    /* server not found, or its reply unusable */
    DL_ERR_NETWORK = -3,   /* the retries are used up */
    DL_ERR_WRITE = -4,     /* a write to the temporary file failed or was short */
    DL_ERR_DAMAGED = -5,   /* too many bytes, or a wrong CRC; the file is deleted */
    DL_ERR_PROVIDER = -6,  /* a chunked reply: only http_get returns it */
    DL_ERR_CANCELLED = -7  /* stopped on request */
};
void download(void);
int getCrc32(ResponseBuffer *b, const char *name);
uint32_t ucrc32(uint32_t crc, const void *data, int length);
/* The CRC-32 byte table of the reflected polynomial 0xEDB88320. */
extern const uint32_t (&poly8_lookup)[256];
/* GET path from host ("host" or "host:port"); returns the Content-Length
** (at least 1) with the socket in b->fd, or -1 lookup, -2 connect, -3 no
** Content-Length, -6 chunked (see download.cpp). */
int http_get(const char *host, const char *path, ResponseBuffer *b);
/* The chart server's "host[:port]" from chartserver.key, or the built-in
** host that never resolves. Returns 0, or -1 (host empty) when the key
** file's line does not fit size bytes. */
int download_server_host(char *host, unsigned size);
/* The address as chartserver.key holds it, empty when none is set.
** Returns 0, or -1 (value empty) when it does not fit size bytes. */
int download_server_key(char *value, unsigned size);
/* 1 when address is "host", "host:port", "[v6]" or "[v6]:port" and fits
** the download's host field. */
int download_server_valid(const char *address);
/* Writes chartserver.key (an empty address removes it). Returns 0 or -1. */
int download_set_server(const char *address);
/* Routes /setChartServer/<address> ("OK" or "ERR") and /getChartServer. */
void setChartServer(ResponseBuffer *out, const char *address);
void getChartServer(ResponseBuffer *out);

#endif
