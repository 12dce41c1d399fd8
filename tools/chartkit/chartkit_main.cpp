/*
** chartkit_main.cpp -- mareplot-chartkit: the subcommands make, info and
** serve, and the one-line failure report they share.
*/
#include <stdio.h>
#include <string.h>

#include "tools/chartkit/chartkit.h"

void ck_fail(const char *file, const char *reason) {
    fprintf(stderr, "mareplot-chartkit: %s: %s\n", file, reason);
}

static void usage(FILE *out) {
    fputs("usage: mareplot-chartkit make --id N --name TEXT --out FILE [--zooms A-B] INPUT...\n"
          "       mareplot-chartkit info FILE\n"
          "       mareplot-chartkit serve --dir DIR [--port P]\n", out);
}

int main(int argc, char **argv) {
    if (argc >= 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        usage(stdout);
        return 0;
    }
    usage(stderr);
    return 2;
}
