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

/* ---- tiles ---- */
int getTile(ResponseBuffer *b, const char *text);
int getTileI(ResponseBuffer *b, const char *text);

/* ---- saved state and the database set ---- */
/* Collects the reply of /getSetState/<text>; the route sends it. */
int getSetState(ResponseBuffer *b, const char *text);
int loadOrSaveDb(struct sqlite3 *db, const char *fileName, int isSave);

/* ---- SQL gateway: writes the reply and sends it ---- */
int execSql(ResponseBuffer *b, const char *statementText, struct sqlite3 *db, const void *blob,
            int blobLength);

/* ---- gazetteer and Mercator grid ---- */
#define MERC_SPHERE_BASE 40030178.618589391188160183529977
void toMerc(double latitude, double longitude, int32_t *y, int32_t *x);
void pos2merc(int32_t latitude, int32_t longitude, int32_t *y, int32_t *x);
int gazetteer(ResponseBuffer *b, const char *text);

/* ---- pack download ---- */
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
** host that never resolves. */
void download_server_host(char *host, unsigned size);

#endif
