/*
** service.h -- starting and stopping the host's service: the databases,
** the navigation state and the listener, on top of the record mrApp.
*/
#ifndef MAREPLOT_SERVICE_H
#define MAREPLOT_SERVICE_H

/* Fills mrApp (mr_app_fill) and starts the service; the listener is up
** when it returns. Returns 0. */
int app_init_qt(const char *language, const char *device, const char *dataDir, const char *appName);
int start_server(int foreground);
void stop_server(void);
int start_httpd(void);
void stop_httpd(void);

#endif
