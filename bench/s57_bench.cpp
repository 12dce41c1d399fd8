/*
** s57_bench.cpp -- how fast an ENC cell becomes tiles. Writes a harbour
** approach cell of the size real ones have (a coastline of thousands of
** vertices, nested depth areas and contours, islands, soundings, buoys,
** beacons and lights) through GDAL's S57 writer, then reads it and draws
** every tile of its zooms as mareplot-chartkit make does, and prints the
** time to read and the tiles per second per zoom and in all.
**
**     s57_bench [--keep DIR]
**
** --keep DIR leaves the cell in DIR (as DIR/MP5BENCH.000) for timing
** `mareplot-chartkit make` on it.
*/
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "chartkit/s57_cell.h"
#include "packs/chartpack_render.h"
#include "support/files.h"
#include "tools/chartkit/chartkit_s57.h"

/* Seconds on the wall clock, or of this process's CPU time: the machine
** is shared, so both are told. */
static double bench_now(clockid_t clock) {
    struct timespec ts;
    clock_gettime(clock, &ts);
    return ts.tv_sec + ts.tv_nsec * 1e-9;
}

/* A wavy shore from west to east: latitude at a longitude, shifted north
** by `off` degrees for the depth bands off it. */
static double bench_shore(double lon, double off) {
    return 54.36 + off + 0.02 * sin(lon * 90) + 0.006 * sin(lon * 710) + 0.002 * sin(lon * 3300);
}

static const double W = 10.0, S = 54.3, E = 10.3, N = 54.5;
static const int kShorePoints = 900;

/* The area between the shore shifted by off1 and off2 (off2 north). */
static std::vector<double> bench_band(double off1, double off2) {
    std::vector<double> ring;
    for (int i = 0; i <= kShorePoints; i++) {
        double lon = W + (E - W) * i / kShorePoints;
        ring.push_back(lon);
        ring.push_back(fmax(S, fmin(N, bench_shore(lon, off1))));
    }
    for (int i = kShorePoints; i >= 0; i--) {
        double lon = W + (E - W) * i / kShorePoints;
        ring.push_back(lon);
        ring.push_back(fmin(N, bench_shore(lon, off2)));
    }
    ring.push_back(ring[0]);
    ring.push_back(ring[1]);
    return ring;
}

static bool bench_writeCell(const std::string &path) {
    S57CellWriter w;
    if (!w.create(path, {"S57_CSCL=22000", "S57_AGEN=540", "S57_EDTN=1", "S57_ISDT=20240501"})) return false;
    w.area("M_COVR", S57_OBJL_M_COVR, s57Box(W, S, E, N), {{"CATCOV", "1"}});
    /* Depth bands from the shore out, the last reaching the north edge. */
    const struct {
        double off1, off2;
        const char *d1, *d2;
    } bands[] = {{-0.004, 0.0, "-2", "0"},     {0.0, 0.006, "0", "2"},     {0.006, 0.015, "2", "5"},
                 {0.015, 0.03, "5", "10"},     {0.03, 0.06, "10", "20"},   {0.06, 0.3, "20", "50"}};
    for (const auto &b : bands) w.area("DEPARE", S57_OBJL_DEPARE, bench_band(b.off1, b.off2), {{"DRVAL1", b.d1}, {"DRVAL2", b.d2}});
    w.area("LNDARE", S57_OBJL_LNDARE, bench_band(-0.2, -0.004), {});
    for (const auto &b : bands) {
        std::vector<double> line;
        for (int i = 0; i <= kShorePoints; i++) {
            double lon = W + (E - W) * i / kShorePoints;
            line.push_back(lon);
            line.push_back(fmin(N, bench_shore(lon, b.off2)));
        }
        w.line("DEPCNT", S57_OBJL_DEPCNT, line, {{"VALDCO", b.d2}});
    }
    std::vector<double> coast;
    for (int i = 0; i <= kShorePoints; i++) {
        double lon = W + (E - W) * i / kShorePoints;
        coast.push_back(lon);
        coast.push_back(bench_shore(lon, -0.004));
    }
    w.line("COALNE", S57_OBJL_COALNE, coast, {});
    /* Islands: small rings of 60 points. */
    for (int k = 0; k < 24; k++) {
        double cx = W + 0.01 + 0.012 * k, cy = 54.44 + 0.02 * sin(k * 1.7), r = 0.002 + 0.001 * (k % 3);
        std::vector<double> ring;
        for (int i = 0; i < 60; i++) {
            double a = 2 * M_PI * i / 60;
            ring.push_back(cx + r * 1.7 * cos(a) * (1 + 0.2 * sin(5 * a)));
            ring.push_back(cy + r * sin(a) * (1 + 0.2 * sin(5 * a)));
        }
        ring.push_back(ring[0]);
        ring.push_back(ring[1]);
        w.area("LNDARE", S57_OBJL_LNDARE, ring, {});
    }
    /* Soundings in groups of 100, spread over the water. */
    for (int g = 0; g < 25; g++) {
        std::vector<double> pos, depth;
        for (int i = 0; i < 100; i++) {
            double lon = W + 0.003 + (E - W - 0.006) * ((g * 100 + i) * 0.618034 - floor((g * 100 + i) * 0.618034));
            double lat = bench_shore(lon, 0.002) + (N - bench_shore(lon, 0.002)) * ((i * 0.7548777) - floor(i * 0.7548777));
            pos.push_back(lon);
            pos.push_back(fmin(N - 0.001, lat));
            depth.push_back(0.4 + 40.0 * (lat - bench_shore(lon, 0)) / 0.14);
        }
        w.soundings(pos, depth);
    }
    /* A buoyed channel, beacons on the shore and lights on some of both. */
    for (int k = 0; k < 30; k++) {
        double lon = W + 0.01 + 0.0095 * k;
        w.point("BOYLAT", S57_OBJL_BOYLAT, lon, bench_shore(lon, 0.02), {{"COLOUR", "3"}});
        w.point("BOYLAT", S57_OBJL_BOYLAT, lon, bench_shore(lon, 0.026), {{"COLOUR", "4"}});
        if (k % 3 == 0) w.point("LIGHTS", S57_OBJL_LIGHTS, lon, bench_shore(lon, 0.02), {{"COLOUR", "3"}});
        if (k % 2 == 0) w.point("BCNLAT", 7, lon, bench_shore(lon, -0.001), {{"COLOUR", "6,2"}});
        if (k % 5 == 0) w.point("LIGHTS", S57_OBJL_LIGHTS, lon, bench_shore(lon, -0.001), {{"COLOUR", "1"}});
    }
    w.close();
    return w.ok;
}

int main(int argc, char **argv) {
    std::string keep = argc == 3 && strcmp(argv[1], "--keep") == 0 ? argv[2] : "";
    std::string dir = keep.empty() ? makeTempDir("mareplot-s57bench-") : keep;
    if (!keep.empty()) mkdir(keep.c_str(), 0755);
    std::string path = dir + "/MP5BENCH.000";
    if (!bench_writeCell(path)) {
        fprintf(stderr, "s57_bench: writing the cell failed\n");
        return 1;
    }
    struct stat st;
    stat(path.c_str(), &st);

    double t0 = bench_now(CLOCK_MONOTONIC);
    std::string reason;
    CkS57Cell *cell = ck_s57_open(path.c_str(), &reason);
    if (cell == NULL) {
        fprintf(stderr, "s57_bench: %s\n", reason.c_str());
        return 1;
    }
    double tOpen = bench_now(CLOCK_MONOTONIC) - t0;
    CkChartInfo info;
    ck_s57_info(cell, &info);
    int zmin, zmax;
    ck_s57_zooms(cell, &zmin, &zmax);
    printf("cell %s: %ld bytes, 1:%ld, zooms %d-%d, read in %.3f s\n", path.c_str(), (long)st.st_size, info.scale,
           zmin, zmax, tOpen);
    printf("| zoom | tiles drawn | tiles empty | wall s | tiles/s (wall) | CPU s | tiles/s (CPU) |\n"
           "|---|---|---|---|---|---|---|\n");

    CpGeoBox box = {info.west, info.east, info.south, info.north};
    long allTiles = 0;
    double allWall = 0, allCpu = 0;
    for (int z = zmin; z <= zmax; z++) {
        int x1, y1, x2, y2;
        cp_tileRange(box, z, &x1, &y1, &x2, &y2);
        long tiles = 0, empty = 0;
        double wall = bench_now(CLOCK_MONOTONIC), cpu = bench_now(CLOCK_PROCESS_CPUTIME_ID);
        for (int y = y1; y <= y2; y++)
            for (int x = x1; x <= x2; x++) {
                std::string png;
                int corner;
                int rc = ck_s57_draw_tile(cell, z, y, x, &png, &corner);
                if (rc == 0) tiles++;
                else empty++;
            }
        wall = bench_now(CLOCK_MONOTONIC) - wall;
        cpu = bench_now(CLOCK_PROCESS_CPUTIME_ID) - cpu;
        printf("| %d | %ld | %ld | %.2f | %.0f | %.2f | %.0f |\n", z, tiles, empty, wall, (tiles + empty) / wall, cpu,
               (tiles + empty) / cpu);
        allTiles += tiles + empty;
        allWall += wall;
        allCpu += cpu;
    }
    printf("| all | %ld | | %.2f | %.0f | %.2f | %.0f |\n", allTiles, allWall, allTiles / allWall, allCpu,
           allTiles / allCpu);
    ck_s57_close(cell);
    if (keep.empty()) removeTree(dir);
    return 0;
}
