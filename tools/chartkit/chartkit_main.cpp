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

void ck_html_text(std::string *out, const std::string &s) {
    for (char c : s) {
        if (c == '<') out->append("&lt;");
        else if (c == '>') out->append("&gt;");
        else if (c == '&') out->append("&amp;");
        else if (c == '"') out->append("&quot;");
        else out->push_back(c);
    }
}

static const char ckUsage[] =
    "usage: mareplot-chartkit make --id N --name TEXT --out FILE [--zooms A-B] INPUT...\n"
    "       mareplot-chartkit info FILE\n"
    "       mareplot-chartkit serve --dir DIR [--port P] [--bind ADDR]\n"
    "\n"
    "make   writes one chart pack A<N>.marepack from raster MBTiles (tiles copied),\n"
    "       georeferenced rasters GDAL opens (GeoTIFF, BSB/KAP, ...: warped to Web\n"
    "       Mercator and cut into tiles) and S-57 ENC cells (.000, drawn as a chart).\n"
    "       --id N       pack id, 3 to 999999\n"
    "       --name TEXT  kit name shown in the kit list\n"
    "       --out FILE   the pack to write (replaced only when all went well)\n"
    "       --zooms A-B  zoom levels to make (default: what the data supports)\n"
    "info   prints what a pack holds as one JSON object: id, name, tiles per\n"
    "       zoom, charts with scale and box, size and CRC-32.\n"
    "serve  offers the packs A<6 digits>.marepack of DIR for download:\n"
    "       GET /ajax3.php?download=ID&v=VERSION&p=POS  the pack from byte POS on\n"
    "       GET /kits.json                              the kit list (JSON)\n"
    "       GET /                                       the kit list (HTML)\n"
    "       --port P     port (default 0: any free one, printed at start)\n"
    "       --bind ADDR  address to listen on (default 127.0.0.1)\n"
    "       HOST:PORT is the chart server to give in the client's Settings.\n";

static int ck_info_main(int argc, char **argv) {
    if (argc != 2) {
        fputs(ckUsage, stderr);
        return 2;
    }
    CkPackInfo info;
    std::string reason;
    if (ck_pack_read(argv[1], &info, &reason) != 0) {
        ck_fail(argv[1], reason.c_str());
        return 1;
    }
    printf("%s\n", ck_pack_json(info).c_str());
    return 0;
}

static const struct {
    const char *name;
    int (*run)(int argc, char **argv);
} ckCommands[] = {
    {"make", ck_make_main},
    {"info", ck_info_main},
    {"serve", ck_serve_main},
};

int main(int argc, char **argv) {
    if (argc >= 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 ||
                      strcmp(argv[1], "help") == 0)) {
        fputs(ckUsage, stdout);
        return 0;
    }
    for (const auto &c : ckCommands) {
        if (argc >= 2 && strcmp(argv[1], c.name) == 0) {
            for (int i = 2; i < argc; i++)
                if (strcmp(argv[i], "--help") == 0) {
                    fputs(ckUsage, stdout);
                    return 0;
                }
            return c.run(argc - 1, argv + 1);
        }
    }
    fputs(ckUsage, stderr);
    return 2;
}
