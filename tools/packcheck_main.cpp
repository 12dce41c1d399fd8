/*
** packcheck_main.cpp -- command-line front of the pack checker.
**
** Usage: packcheck <pack> ...
** Prints one line per problem and a summary per file. Exit status 0 when
** every pack passes, 1 when one has problems, 2 when one can't be opened.
*/
#include <stdio.h>

#include "tools/packcheck.h"

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <pack> ...\n", argv[0]);
        return 2;
    }
    int status = 0;
    for (int i = 1; i < argc; i++) {
        PcReport r;
        int rc = pc_checkFile(argv[i], &r);
        if (rc < 0) {
            fprintf(stderr, "%s: cannot open as SQLite\n", argv[i]);
            status = 2;
            continue;
        }
        for (const std::string &p : r.problems) printf("%s: %s\n", argv[i], p.c_str());
        printf("%s: %s pack, %ld kvt rows, %ld tiles, %ld tide rows, %ld places: %s\n", argv[i],
               r.chartPack ? "chart" : "application", r.kvRows, r.tiles, r.tideRows, r.gazRows,
               rc == 0 ? "good" : "PROBLEMS");
        if (rc != 0 && status == 0) status = 1;
    }
    return status;
}
