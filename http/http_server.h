/*
** http_server.h -- the listener and the per-connection request loop.
*/
#ifndef MAREPLOT_HTTP_SERVER_H
#define MAREPLOT_HTTP_SERVER_H

#include <stdint.h>

extern int32_t sockfd;        /* the listening socket */
extern int32_t httpd_running; /* set once the listener is up */
extern int32_t httpd_connections; /* accepted sockets whose connection has not ended */

int http_server(void);
void connection(int fd);

/* Upper bound of a request body; a larger Content-Length ends the
** connection with no reply, as a short body does. */
#define HTTP_MAX_BODY (256 * 1024 * 1024)

#endif
