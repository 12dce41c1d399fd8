/*
** routes.h -- the ordered GET and POST route lists, the serving of client
** files from disk, and the hooks that the window fills.
*/
#ifndef MAREPLOT_ROUTES_H
#define MAREPLOT_ROUTES_H

#include "http/response_buffer.h"

/* Runs the GET list on the decoded path; the handler replies. */
void route_get(ResponseBuffer *out, const char *path);
/* Runs the POST list; body is zero-terminated, n is its length. */
void route_post(ResponseBuffer *out, const char *path, const char *body, int n);

/* Serves fileDir/name from disk (used when there is no application pack). */
int readFromFileSystem(ResponseBuffer *out, const char *name);

/* Hands a share to the desktop; the route has answered already. Calls the
** window's hook when one is installed, and does nothing otherwise. */
void postShare(const char *title, const char *body);
/* Does nothing on this platform; calls the window's hook when installed. */
void rateApp(void);
extern void (*mr_postShare_hook)(const char *title, const char *body);
extern void (*mr_rateApp_hook)(void);

#endif
