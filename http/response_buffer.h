/*
** response_buffer.h -- the one byte buffer of the host's HTTP traffic.
**
** A ResponseBuffer reads lines and counted blocks from a socket (input side)
** or collects a reply body and sends it behind a header (output side).
** Each connection owns one of each kind; the TCP feed, the pack download and
** the AIS row queue use the same record.
*/
#ifndef MAREPLOT_RESPONSE_BUFFER_H
#define MAREPLOT_RESPONSE_BUFFER_H

#include <stdint.h>

typedef struct ResponseBuffer {
    int32_t fd;            /* the socket; set by the owner */
    int32_t lineLength;    /* bytes consumed by the last buffGetLine/buffGetData */
    char *data;            /* start of the allocation, owned by the record */
    char *head;            /* input: start of the unconsumed data */
    char *tail;            /* input: end of the received data */
    char *scan;            /* input: how far buffGetLine has looked */
    int32_t capacity;      /* size of the allocation in bytes */
    int32_t length;        /* output: bytes collected, starting at data */
    char statusText[64];   /* status line text set by a handler; empty means none */
    int32_t contentType;   /* index into mimetype, set by handlers that read stored types */
    int32_t keepAliveMax;  /* Keep-Alive: max= value; 0 selects Connection: close */
} ResponseBuffer;

/* JSON string escapes: for each byte, the letter that follows the
** backslash (8 b, 9 t, 10 n, 12 f, 13 r, '"', '\'', '/', '\\'), or 0 for a
** byte that is copied as it stands. */
extern const char buffJsonEscape[256];

#define MIMETYPE_COUNT 15
extern const char *const mimetype[MIMETYPE_COUNT];

/* Indexes into mimetype: the reply type of buffSendHttp and the type code
** of a kvt row. MT_TEXT and MT_REPLY send the same text; JSON and plain
** answers go out as either. */
enum {
    MT_BINARY = 0,     /* application/binary */
    MT_HTML = 1,       /* text/html, UTF-8 */
    MT_CSS = 2,
    MT_JS = 3,
    MT_TEXT = 4,       /* text/plain, UTF-8 */
    MT_REPLY = 5,      /* text/plain, UTF-8: JSON and short answers */
    MT_PNG = 6,
    MT_JPEG = 7,
    MT_GIF = 8,
    MT_HTML_BARE = 9,  /* text/html with no charset: HTML fragment rows */
    MT_BMP = 10,
    MT_STATE = 11,     /* application/state */
    MT_USER = 12,      /* application/user: rows the client stores */
    MT_OVL = 13,       /* application/ovl */
    MT_MP3 = 14,
    MT_FRAGMENT = 100  /* kvt type code only: an HTML fragment, sent as MT_HTML_BARE */
};

/* The max-age of a stored document: PNG images are the only ones cached. */
#define MT_MAX_AGE(type) ((type) == MT_PNG ? 900 : 0)

char *buffInit(ResponseBuffer *b);
void buffReset(ResponseBuffer *b);
void buffFree(ResponseBuffer *b);
char *buffGetLine(ResponseBuffer *b);
char *buffGetData(ResponseBuffer *b, int n);
int buffAddData(ResponseBuffer *b, const void *p, int n);
int buffAddChar(ResponseBuffer *b, const char *s);
int buffAddJson(ResponseBuffer *b, const unsigned char *p, int n);
int buffSendHttp(ResponseBuffer *b, const char *status, int type, int maxAge);
int buffSendRaw(ResponseBuffer *b);
int url_decode(const char *src, char *dst);

/* Appends the text of a status line to statusText, bounded by the field.
** Handlers use it where a failure "appends" its text to the status. */
void buffAppendStatus(ResponseBuffer *b, const char *text);

#endif
