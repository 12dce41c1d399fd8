/*
** pack_fuzz.cpp -- fuzz target for damaged database files: one options
** byte, then the whole file. The file is chosen as the chart pack through
** the state route and served as tiles, documents, places and SQL rows;
** opened as the application pack and served through the /app/ route; and
** opened as the trip database, which gets its tables, a track row, a
** status reply with its track, a stored value and the client's usual reads.
**
** The options byte picks the passes: its low two bits 1, 2 or 3 run only
** the chart pack, application pack or trip database pass, 0 runs all three
** in that order. Each pass opens the file and reads its schema again, so an
** input that runs one pass costs about a third as much.
*/
#include <stddef.h>
#include <stdint.h>

#include "fuzz_support.h"
#include "http/routes.h"
#include "nav/nmea.h"
#include "store/pack_store.h"

#define PACK_NAME "A000009.marepack"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_fill_app();
    nmea_init();
    return 0;
}

static void as_chart_pack(void) {
    static const char *const gets[] = {
        "/getTileI/A000009/3298535931904", "/getTileI/A000009/10995431997980",
        "/getTile/A000009/3/1/1",          "/getMapData//info",
        "/getMapDataA/mrk",                "/getMapData/tides",
        "/gazetteer/1200/1200/100000",     "/gazetteer/0/0/2147483647",
        "/info",
    };
    static const char *const sql[] = {
        "SELECT zyx FROM tiles",
        "SELECT ts,level,typ FROM tides WHERE id=167 ORDER BY ts",
        "SELECT DISTINCT l FROM kvt WHERE k='mrk'",
        "SELECT * FROM gaz ORDER BY r DESC LIMIT 50",
    };
    ResponseBuffer *out = fuzz_out();
    getSetState(out, "chartdb=" PACK_NAME);
    for (const char *path : gets) route_get(fuzz_out(), path);
    for (const char *s : sql) execSqlAt(fuzz_out(), s, &mrApp.chartDb, NULL, 0);
    mr_db_swap(&mrApp.chartDb, NULL);
}

static void as_app_pack(void) {
    mr_db_swap(&mrApp.appDb, fuzz_open_pack(PACK_NAME));
    if (mrApp.appDb == NULL) return; /* /app/ would read the file system */
    route_get(fuzz_out(), "/app/marepack.html");
    route_get(fuzz_out(), "/app/img/a.png");
    route_get(fuzz_out(), "/app/kelvor.js");
    mr_db_swap(&mrApp.appDb, NULL);
}

static void as_trip_db(void) {
    static const char body[] = "{\"n\":\"route\"}";
    if (sqlite3_open(fuzz_path(PACK_NAME), &mrApp.tripDb) != SQLITE_OK) {
        sqlite3_close(mrApp.tripDb);
        mrApp.tripDb = NULL;
        return;
    }
    fuzz_limit(mrApp.tripDb);
    fuzz_trip_schema(mrApp.tripDb);
    gpsfix.now = 1700000000;
    gpsfix.latY = 54.1;
    gpsfix.lonX = 7.5;
    gpsfix.dpt = 4.5;
    nmea_log_track();
    getSetHostStat(fuzz_out(), "60/50/1/0", "*", 1);
    route_post(fuzz_out(), "/setValue/route3", body, (int)sizeof(body) - 1);
    route_get(fuzz_out(), "/getValue/settings");
    route_get(fuzz_out(), "/getSetState/alang");
    execSql(fuzz_out(), "SELECT k,v,t,l FROM kvt WHERE t=13", mrApp.tripDb, NULL, 0);
    execSql(fuzz_out(), "SELECT id,ts,x,y,t,v FROM log ORDER BY id DESC LIMIT 20", mrApp.tripDb, NULL, 0);
    sqlite3_close(mrApp.tripDb);
    mrApp.tripDb = NULL;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    int passes = data[0] & 3;
    if (fuzz_write_file(PACK_NAME, data + 1, size - 1) != 0) return 0;
    if (passes == 0 || passes == 1 || passes == 2) {
        /* the trip database of the chart and application passes */
        mrApp.tripDb = fuzz_trip_db();
        if (passes != 2) as_chart_pack();
        if (passes != 1) as_app_pack();
        sqlite3_close(mrApp.tripDb);
        mrApp.tripDb = NULL;
    }
    /* the file last, as it is written to */
    if (passes == 0 || passes == 3) as_trip_db();
    fuzz_clear_dir();
    return 0;
}
