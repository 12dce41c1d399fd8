/*
** request_guard.h -- refusal of requests that a web page from elsewhere
** makes through the user's own browser.
*/
#ifndef MAREPLOT_REQUEST_GUARD_H
#define MAREPLOT_REQUEST_GUARD_H

#include "http/response_buffer.h"

/* Looks at one header line, as buffGetLine returns it. Returns 1 when it is
** an Origin header other than http://127.0.0.1:<port> or
** http://localhost:<port>, or a Host header naming anything but 127.0.0.1
** or localhost, bare or with :<port>, or a Sec-Fetch-Site header other
** than same-origin or none. Returns 0 for every other line.
** Header names are matched without regard to case. */
int http_foreign_header(const char *line, int port);

/* Prints one line naming the refused header and answers "403 Forbidden"
** with Connection: close. The caller then ends the connection. */
void http_refuse(ResponseBuffer *out, const char *header);

#endif
