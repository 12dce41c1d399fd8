/*
** response_buffer.cpp -- ResponseBuffer: socket input by lines and counted
** blocks, reply output with exact growth, JSON escaping, the HTTP header,
** the mimetype table and url_decode.
**
** Every allocation carries one spare byte behind `capacity`, so that the
** terminating zero that buffGetLine, buffGetData and the connection loop
** store behind the received bytes never lands outside the allocation, even
** when the received bytes fill the whole capacity.
*/
#include "http/response_buffer.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

const char *const mimetype[MIMETYPE_COUNT] = {
    "application/binary;",
    "text/html; charset=UTF-8",
    "text/css; charset=UTF-8",
    "text/javascript; charset=UTF-8",
    "text/plain; charset=UTF-8",
    "text/plain; charset=UTF-8",
    "image/png",
    "image/jpeg",
    "image/gif",
    "text/html",
    "image/bmp",
    "application/state; charset=UTF-8",
    "application/user; charset=UTF-8",
    "application/ovl; charset=UTF-8",
    "audio/mp3",
};

/* Sixteen bytes a row; every byte from 96 on is copied as it stands. */
const char buffJsonEscape[256] = {
    0, 0, 0, 0, 0, 0, 0, 0, 'b', 't', 'n', 0, 'f', 'r', 0, 0,     /*  0..15 */
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,               /* 16..31 */
    0, 0, '"', 0, 0, 0, 0, '\'', 0, 0, 0, 0, 0, 0, 0, '/',        /* 32..47 */
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,               /* 48..63 */
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,               /* 64..79 */
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\\', 0, 0, 0,            /* 80..95 */
};

#define BUFF_INPUT_SIZE 10240
#define BUFF_OUTPUT_SIZE 65536

/* Clears the record and allocates the input-sized area.
** Returns data, or NULL when out of memory. */
char *buffInit(ResponseBuffer *b) {
    memset(b, 0, sizeof(*b));
    b->data = (char *)malloc(BUFF_INPUT_SIZE + 1);
    if (b->data == NULL) return NULL;
    b->capacity = BUFF_INPUT_SIZE;
    b->head = b->tail = b->scan = b->data;
    return b->data;
}

/* Readies the record for the next request; keeps the allocation, fd and
** keepAliveMax. */
void buffReset(ResponseBuffer *b) {
    b->head = b->tail = b->scan = b->data;
    b->lineLength = 0;
    b->length = 0;
    b->statusText[0] = 0;
    b->contentType = MT_BINARY;
}

/* Frees the allocation and clears the whole record. */
void buffFree(ResponseBuffer *b) {
    if (b->data) free(b->data);
    memset(b, 0, sizeof(*b));
}

/* Receives up to n bytes at tail, retrying on EINTR.
** Returns what recv returned. */
static int buffRecv(ResponseBuffer *b, int n) {
    ssize_t r;
    do {
        r = recv(b->fd, b->tail, (size_t)(n > 0 ? n : 0), 0);
    } while (r < 0 && errno == EINTR);
    return (int)r;
}

/* Moves the unconsumed bytes down to the start of the allocation. */
static void buffCompact(ResponseBuffer *b) {
    long inHand = b->tail - b->head;
    if (inHand < 0) inHand = 0;
    if (b->head != b->data && inHand > 0) memmove(b->data, b->head, (size_t)inHand);
    b->head = b->scan = b->data;
    b->tail = b->data + inHand;
}

/* At end of stream: hands back the bytes in hand, from the start of the
** data, as the last piece (NUL-terminated, lineLength says how many) and
** leaves the buffer empty. Returns b->data. */
static char *buffEndOfStream(ResponseBuffer *b) {
    b->lineLength = (int32_t)(b->tail - b->data);
    *b->tail = 0;
    b->tail = b->data;
    return b->data;
}

/* Returns the next line as zero-terminated text inside the buffer, its line
** end overwritten by zeros; lineLength counts the bytes consumed, line end
** included. At end of stream the bytes in hand come back as the last line
** (empty text with lineLength 0 when there are none). Returns NULL on a
** receive error. A line that fills the capacity is delivered cut. */
char *buffGetLine(ResponseBuffer *b) {
    if (b->scan < b->head) b->scan = b->head;
    if (b->scan > b->tail) b->scan = b->tail;
    for (;;) {
        b->lineLength = (int32_t)(b->scan - b->head);
        while (b->scan < b->tail) {
            char c = *b->scan;
            b->lineLength++;
            if (c == '\r') {
                *b->scan++ = 0;
            } else if (c == '\n') {
                char *line = b->head;
                *b->scan++ = 0;
                b->head = b->scan;
                return line;
            } else {
                b->scan++;
            }
        }
        buffCompact(b);
        b->scan = b->tail;
        int got = buffRecv(b, b->capacity - b->lineLength);
        if (got < 0) return NULL;
        if (got == 0) return buffEndOfStream(b);
        b->tail += got;
    }
}

/* Returns n bytes inside the buffer (fewer at end of stream; lineLength says
** how many), growing the allocation to n+8 when it is not larger than n.
** Returns NULL on a receive error or when the allocation cannot grow. */
char *buffGetData(ResponseBuffer *b, int n) {
    if (n < 0) return NULL;
    if (b->capacity <= n) {
        long headOff = b->head - b->data, tailOff = b->tail - b->data, scanOff = b->scan - b->data;
        char *grown = (char *)realloc(b->data, (size_t)n + 8 + 1);
        if (grown == NULL) return NULL;
        b->data = grown;
        b->capacity = n + 8;
        b->head = grown + headOff;
        b->tail = grown + tailOff;
        b->scan = grown + scanOff;
    }
    b->lineLength = 0;
    while (b->tail - b->head < n) {
        buffCompact(b);
        int got = buffRecv(b, n - (int)(b->tail - b->head));
        if (got < 0) return NULL;
        if (got == 0) return buffEndOfStream(b);
        b->tail += got;
    }
    char *block = b->head;
    b->lineLength = n;
    b->head += n;
    b->scan = b->head;
    return block;
}

/* GCC 12 reports the offsets taken before realloc as a use after free. */
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 12
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuse-after-free"
#define MR_POP_DIAGNOSTIC
#endif
/* Makes room for add more output bytes with exact growth; ends the process
** with status 1 when memory runs out. */
static void buffGrow(ResponseBuffer *b, int add) {
    if (b->data == NULL) {
        b->data = (char *)malloc(BUFF_OUTPUT_SIZE + 1);
        b->capacity = BUFF_OUTPUT_SIZE;
        b->length = 0;
    } else if ((long)b->length + add > b->capacity) {
        long want = (long)b->length + add;
        int inputSide = b->head != NULL;
        uintptr_t base = (uintptr_t)b->data;
        long headOff = (long)((uintptr_t)b->head - base);
        long tailOff = (long)((uintptr_t)b->tail - base);
        long scanOff = (long)((uintptr_t)b->scan - base);
        if (want > 0x7ffffff0L) exit(1);
        char *grown = (char *)realloc(b->data, (size_t)want + 1);
        if (grown == NULL) {
            free(b->data);
            b->data = NULL;
        } else {
            /* keep the input-side pointers valid for a record used both ways */
            b->data = grown;
            if (inputSide) {
                b->head = grown + headOff;
                b->tail = grown + tailOff;
                b->scan = grown + scanOff;
            }
        }
        b->capacity = (int32_t)want;
    }
    if (b->data == NULL) exit(1);
}
#ifdef MR_POP_DIAGNOSTIC
#pragma GCC diagnostic pop
#endif

/* Appends n raw bytes. Returns the new length. */
int buffAddData(ResponseBuffer *b, const void *p, int n) {
    if (n <= 0) {
        buffGrow(b, 0);
        return b->length;
    }
    buffGrow(b, n);
    memcpy(b->data + b->length, p, (size_t)n);
    b->length += n;
    return b->length;
}

/* Appends a zero-terminated text without its zero. Returns the new length,
** or 0 for a NULL text. */
int buffAddChar(ResponseBuffer *b, const char *s) {
    if (s == NULL) return 0;
    return buffAddData(b, s, (int)strlen(s));
}

/* Appends n bytes escaped for a JSON string: the nine escapes of the table
** below, every other byte as it stands. Returns the new length. */
int buffAddJson(ResponseBuffer *b, const unsigned char *p, int n) {
    for (int i = 0; i < n; i++) {
        char esc = buffJsonEscape[p[i]];
        if (esc) {
            buffGrow(b, 2);
            b->data[b->length++] = '\\';
            b->data[b->length++] = esc;
        } else {
            buffGrow(b, 1);
            b->data[b->length++] = (char)p[i];
        }
    }
    return b->length;
}

/* Sends all of n bytes unless the peer fails; never raises SIGPIPE.
** Returns the bytes sent, or -1 when nothing could be sent. */
static long buffSendAll(int fd, const char *p, long n, int flags) {
    long sent = 0;
    while (sent < n) {
        ssize_t r = send(fd, p + sent, (size_t)(n - sent), MSG_NOSIGNAL | flags);
        if (r < 0) {
            if (errno == EINTR) continue;
            return sent > 0 ? sent : -1;
        }
        if (r == 0) break;
        sent += r;
    }
    return sent;
}

/* Sends head and body (n1 and n2 bytes) as one stream with as few calls as
** the socket allows, one in the usual case, so that both leave in one
** segment; continues after a partial send. Never raises SIGPIPE. Returns
** the body bytes sent, or -1 when the peer failed before any body byte
** (also for an empty body whose head could not be sent). */
static long buffSendTwo(int fd, const char *head, long n1, const char *body, long n2) {
    long done = 0, total = n1 + n2;
    while (done < total) {
        struct iovec iov[2];
        struct msghdr msg;
        int k = 0;
        if (done < n1) {
            iov[k].iov_base = (void *)(head + done);
            iov[k++].iov_len = (size_t)(n1 - done);
        }
        if (n2 > 0) {
            long from = done > n1 ? done - n1 : 0;
            iov[k].iov_base = (void *)(body + from);
            iov[k++].iov_len = (size_t)(n2 - from);
        }
        memset(&msg, 0, sizeof(msg));
        msg.msg_iov = iov;
        msg.msg_iovlen = (size_t)k;
        ssize_t r = sendmsg(fd, &msg, MSG_NOSIGNAL);
        if (r < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (r == 0) break;
        done += r;
    }
    if (done < n1 || (done == n1 && n2 > 0)) return -1;
    return done - n1;
}

/* Sends the header and the collected body together. The status is the
** argument, else statusText, else "200 OK"; maxAge 0 means no-cache, any
** other value is raised to at least 900 seconds. A body not sent whole sets
** keepAliveMax to 0. Returns what the send of the body returned. */
int buffSendHttp(ResponseBuffer *b, const char *status, int type, int maxAge) {
    char header[2560 + 512];
    const char *st = status ? status : (b->statusText[0] ? b->statusText : "200 OK");
    int pos;
    if (type < 0 || type >= MIMETYPE_COUNT) type = 0;

    pos = snprintf(header, 2560, "HTTP/1.1 %s\r\n", st);
    if (pos < 0 || pos >= 2560) pos = 2559;
    if (b->keepAliveMax != 0)
        pos += snprintf(header + pos, sizeof(header) - pos,
                        "Connection: keep-alive\r\nKeep-Alive: max=%d\r\n", b->keepAliveMax);
    else
        pos += snprintf(header + pos, sizeof(header) - pos, "Connection: close\r\n");
    if (maxAge == 0)
        pos += snprintf(header + pos, sizeof(header) - pos,
                        "Cache-Control: no-cache, no-store, must-revalidate\r\n");
    else
        pos += snprintf(header + pos, sizeof(header) - pos, "Cache-Control: max-age=%d\r\n",
                        maxAge < 900 ? 900 : maxAge);
    pos += snprintf(header + pos, sizeof(header) - pos,
                    "Server: Marepack\r\nContent-Type: %s\r\nContent-Length: %d\r\n\r\n",
                    mimetype[type], b->length);

    long sent = buffSendTwo(b->fd, header, pos, b->data, b->length);
    if (sent != b->length) b->keepAliveMax = 0;
    return (int)sent;
}

/* Sends the collected bytes with no header. Returns length. */
int buffSendRaw(ResponseBuffer *b) {
    if (b->length > 0) buffSendAll(b->fd, b->data, b->length, 0);
    return b->length;
}

void buffAppendStatus(ResponseBuffer *b, const char *text) {
    size_t have = strlen(b->statusText);
    size_t room = sizeof(b->statusText) - 1 - have;
    size_t add = strlen(text);
    if (add > room) add = room;
    memcpy(b->statusText + have, text, add);
    b->statusText[have + add] = 0;
}

static int hexValue(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/* Decodes percent escapes from src into dst (dst may be src). Returns the
** number of output bytes after writing the terminator; returns 0 without a
** terminator when the text ends inside an escape. "+" stays "+". */
int url_decode(const char *src, char *dst) {
    const unsigned char *in = (const unsigned char *)src;
    unsigned char *out = (unsigned char *)dst;
    int count = 0;
    while (*in) {
        if (*in == '%') {
            int v;
            if (in[1] == 0) return 0;
            v = hexValue(in[1]);
            if (v >= 0) *out = (unsigned char)(v << 4);
            if (in[2] == 0) return 0;
            v = hexValue(in[2]);
            if (v >= 0) *out |= (unsigned char)v;
            if (in[3] == 0) return 0;
            out++;
            in += 3;
        } else {
            *out++ = *in++;
        }
        count++;
    }
    *out = 0;
    return count;
}
