/*
** request_guard.cpp -- the host listens on the loopback address only, but
** every page open in the user's browser can reach that address: a form or
** an image tag sends a request, and DNS rebinding lets a page read replies.
** The browser says where such a request comes from in Origin, and under
** rebinding the Host header carries the page's own name. The client itself
** is always served from 127.0.0.1, so anything else there is refused.
** A plain GET from an image tag or a link carries no Origin, but the
** browser marks it with Sec-Fetch-Site: the client's own requests say
** "same-origin", a typed address or bookmark "none"; anything else comes
** from another site's page and is refused too. Requests with none of these
** headers (curl, the tools) pass as before.
*/
#include "http/request_guard.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

static int is_blank(char c) { return c == ' ' || c == '\t'; }

/* Returns the value of line when its header name is name (any case),
** with surrounding blanks taken off and its length in *len; else NULL. */
static const char *header_value(const char *line, const char *name, size_t *len) {
    size_t n = strlen(name);
    const char *v;
    if (strncasecmp(line, name, n) != 0 || line[n] != ':') return NULL;
    v = line + n + 1;
    while (is_blank(*v)) v++;
    *len = strlen(v);
    while (*len > 0 && is_blank(v[*len - 1])) (*len)--;
    return v;
}

/* 1 when s (n bytes) is 127.0.0.1 or localhost, followed by :<port> or,
** unless the port is required, by nothing. */
static int loopback_authority(const char *s, size_t n, int port, int portRequired) {
    static const char *const names[] = {"127.0.0.1", "localhost"};
    char portText[16];
    size_t portLen = (size_t)snprintf(portText, sizeof(portText), ":%d", port);
    for (size_t i = 0; i < sizeof(names) / sizeof(names[0]); i++) {
        size_t h = strlen(names[i]);
        if (n < h || strncasecmp(s, names[i], h) != 0) continue;
        if (n == h) return !portRequired;
        if (n - h == portLen && memcmp(s + h, portText, portLen) == 0) return 1;
    }
    return 0;
}

int http_foreign_header(const char *line, int port) {
    size_t n;
    const char *v = header_value(line, "Origin", &n);
    if (v != NULL)
        return !(n > 7 && strncasecmp(v, "http://", 7) == 0 && loopback_authority(v + 7, n - 7, port, 1));
    v = header_value(line, "Host", &n);
    if (v != NULL) return !loopback_authority(v, n, port, 0);
    v = header_value(line, "Sec-Fetch-Site", &n);
    if (v != NULL)
        return !((n == 11 && strncasecmp(v, "same-origin", 11) == 0) || (n == 4 && strncasecmp(v, "none", 4) == 0));
    return 0;
}

void http_refuse(ResponseBuffer *out, const char *header) {
    char shown[101];
    size_t i;
    /* The header came from outside: print a bounded, printable excerpt. */
    for (i = 0; i < sizeof(shown) - 1 && header[i]; i++)
        shown[i] = header[i] >= 32 && header[i] < 127 ? header[i] : '?';
    shown[i] = 0;
    printf("refused a request from a foreign page (%s)\n", shown);
    fflush(stdout);
    buffReset(out);
    out->keepAliveMax = 0;
    buffSendHttp(out, "403 Forbidden", MT_TEXT, 0);
}
