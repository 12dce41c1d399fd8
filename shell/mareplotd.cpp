/*
** mareplotd.cpp -- the headless host: the window's start-up steps with no
** window, then the listener in the foreground. It takes no options; open
** http://127.0.0.1:19999/app/marepack.html in any browser. With no menu to
** pick a serial GPS port, the port named in "usbport.key" is read.
*/
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include "http/http_server.h"

#include "shell/app_record.h"
#include "shell/carried_packs.h"
#include "shell/serial_headless.h"
#include "shell/service.h"

int main(void) {
    char dataDir[300];
    char device[320];
    char message[400];

    signal(SIGPIPE, SIG_IGN);
    setvbuf(stdout, NULL, _IOLBF, 0);
    int found = mr_data_dir(dataDir, sizeof(dataDir));
    if (found != 0) {
        fprintf(stderr, found == -2 ? "mareplotd: the data directory's path is too long\n"
                                    : "mareplotd: no home directory (set HOME)\n");
        return 1;
    }
    /* One host per data directory: a second one would share the port
    ** (SO_REUSEPORT) and write the same trip database. */
    if (mr_lock_data_dir(dataDir, message, sizeof(message)) == 1) {
        fprintf(stderr, "%s\n", message);
        return 1;
    }
    mr_settle_packs(dataDir, mr_copy_carried);
    mr_device_identity(device, sizeof(device));
    mr_app_fill("en", device, dataDir, "mareplot");
    printf("mareplot host %s serving http://127.0.0.1:19999/app/marepack.html (data in %s)\n",
           MR_HOST_VERSION, dataDir);
    mr_serial_start_headless();
    start_server(1);
    /* The listener has ended (/quit!). Connections it accepted still answer
    ** the request they are in or receive next, as they do in the window;
    ** the process waits for them, an idle one at most five seconds. */
    for (int i = 0; i < 500 && MR_LOAD(httpd_connections) > 0; i++) usleep(10000);
    return 0;
}
