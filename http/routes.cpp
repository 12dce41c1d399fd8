/*
** routes.cpp -- the route table: ordered prefix tests on the decoded path,
** one list for GET and one for POST; the first match takes the request.
** Also /hostversion, the route side of the download state machine,
** readFromFileSystem, and the licence answers.
**
** Each test is strncmp with the exact length of its prefix, so every entry
** is a pure prefix ("/quit!x" also quits). Unknown GET paths fall through
** to a lookup of the whole path in the chart pack.
**
** chartDb and appDb can be replaced by another connection at any moment, so
** routes on them use the guarded handler forms, which take the handle from
** its field under the store's handle guard (see pack_store.h).
*/
#include "http/routes.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "nav/nmea.h"
#include "shell/app_record.h"
#include "store/pack_store.h"

void (*mr_postShare_hook)(const char *title, const char *body) = NULL;
void (*mr_rateApp_hook)(void) = NULL;

void postShare(const char *title, const char *body) {
    if (mr_postShare_hook) mr_postShare_hook(title, body);
}

void rateApp(void) {
    if (mr_rateApp_hook) mr_rateApp_hook();
}

/* Prefix test with the exact length of the literal. */
#define PREFIX(path, lit) (strncmp((path), (lit), sizeof(lit) - 1) == 0)
#define REST(path, lit) ((path) + sizeof(lit) - 1)

/* 64-bit FNV-1a, the mixing step of the licence answers below. */
static unsigned long long fnv1a(unsigned long long h, const char *s) {
    while (*s) {
        h ^= (unsigned char)*s++;
        h *= 1099511628211ULL;
    }
    return h;
}

/* The licence check: an authorisation text for `text`, stable for this
** device, as 16 hexadecimal digits. Accounts and entitlement live on the
** remote side; locally every text is authorised. */
static void route_getAuth(ResponseBuffer *out, const char *text) {
    char hex[32];
    unsigned long long h = fnv1a(fnv1a(1469598103934665603ULL, mrApp.device), text);
    snprintf(hex, sizeof(hex), "%016llx", h);
    buffReset(out);
    buffAddChar(out, hex);
    buffSendHttp(out, NULL, 5, 0);
}

/* The in-app purchase hook: there is no store on this platform; it answers
** an empty JSON object. */
static void route_inAppPurchase(ResponseBuffer *out) {
    buffReset(out);
    buffAddChar(out, "{}");
    buffSendHttp(out, NULL, 5, 0);
}

static void route_hostversion(ResponseBuffer *out) {
    buffReset(out);
    buffAddChar(out, "{\"hostversion\":\"");
    buffAddChar(out, MR_HOST_VERSION);
    buffAddChar(out, "\",\"locale\":\"");
    buffAddChar(out, mrApp.locale);
    buffAddChar(out, "\",\"alang\":\"");
    buffAddChar(out, mrApp.alang);
    buffAddChar(out, "\",\"skin\":\"");
    buffAddChar(out, mrApp.skin);
    buffAddChar(out, "\",\"device\":\"");
    buffAddChar(out, mrApp.device);
    buffAddChar(out, "\",\"appname\":\"");
    buffAddChar(out, mrApp.appname);
    buffAddChar(out, "\"}");
    buffSendHttp(out, NULL, 5, 0);
}

static void download_thread(void *unused) {
    (void)unused;
    download();
}

/* /download/: idle + anything but "*" starts a download with the rest of
** the path as arguments (unless they are longer than dlArgs holds);
** running + "**" requests a stop; failed + "**" acknowledges. Always
** answers the four figures.
**
** The state in the reply is the one this step leaves. For a start that is
** 1, also when the new thread has already moved on to 2 (or, failing at
** once, back to 0): the client takes only a first reply of 1 as a start and
** cancels on anything else, so the thread's speed must not show there.
** The start and the stop change the state by compare-and-swap: of two
** starts at once only one starts a thread, and a stop that comes as the
** thread ends leaves the state at 0 instead of setting a 3 that nothing
** would ever clear. */
static void route_download(ResponseBuffer *out, const char *path) {
    char json[160];
    int32_t state = MR_LOAD(mrApp.dlState);
    int32_t shown;
    size_t len = strlen(path);
    char b10 = len > 10 ? path[10] : 0;
    char b11 = len > 11 ? path[11] : 0;
    int started = 0;

    if (state == 0) {
        /* arguments that do not fit dlArgs start nothing: a cut text could
        ** name another pack or size */
        int fits = len - 10 < sizeof(mrApp.dlArgs);
        if (b10 != '*' && fits && MR_CAS(mrApp.dlState, &state, 1)) {
            memcpy(mrApp.dlArgs, path + 10, len - 10 + 1);
            _beginthread(download_thread, 0, NULL);
            started = 1;
        }
    } else if (state > 0) {
        if (b11 == '*') {
            while (state > 0 && !MR_CAS(mrApp.dlState, &state, 3)) {
            }
        }
    } else {
        if (b11 == '*') MR_STORE(mrApp.dlState, 0);
    }
    shown = started ? 1 : MR_LOAD(mrApp.dlState);
    buffReset(out);
    snprintf(json, sizeof(json), "{\"id\":%d,\"b\":%d,\"s\":%d,\"e\":%d}", MR_LOAD(mrApp.dlId),
             MR_LOAD(mrApp.dlBytes), shown, MR_LOAD(mrApp.dlError));
    buffAddChar(out, json);
    buffSendHttp(out, NULL, 5, 0);
}

/* Serves fileDir + "/" + name from disk with the type chosen by substrings
** of name (".mp3", ".html", ".js", ".css", ".png", in that precedence).
** Returns 0, or 404 when the file cannot be opened. */
int readFromFileSystem(ResponseBuffer *out, const char *name) {
    char path[16384];
    int type = 0;
    int fd;

    buffReset(out);
    mr_bprintf(path, sizeof(path), "%s/%s", mrApp.fileDir, name);
    fd = open(path, O_RDONLY);
    if (strstr(name, ".mp3")) type = 14;
    else if (strstr(name, ".html")) type = 1;
    else if (strstr(name, ".js")) type = 3;
    else if (strstr(name, ".css")) type = 2;
    else if (strstr(name, ".png")) type = 6;
    if (fd < 1) {
        if (fd == 0) close(fd);
        buffSendHttp(out, "404 File not found", 0, 0);
        return 404;
    }
    for (;;) {
        char chunk[16384];
        ssize_t got = read(fd, chunk, sizeof(chunk));
        if (got > 0) buffAddData(out, chunk, (int)got);
        if (got != (ssize_t)sizeof(chunk)) break;
    }
    close(fd);
    buffSendHttp(out, NULL, type, type == 6 ? 900 : 0);
    return 0;
}

static void route_app(ResponseBuffer *out, const char *path) {
    /* a glance outside the guard: the download may be replacing appDb */
    if (MR_LOAD(mrApp.appDb) == NULL) {
        readFromFileSystem(out, REST(path, "/app/"));
        return;
    }
    /* appDb can be replaced meanwhile; the guarded form reads it again */
    getValueAt(out, path, &mrApp.appDb, PREFIX(path, "/app/img") ? mrApp.skin : mrApp.alang);
}

void route_get(ResponseBuffer *out, const char *path) {
    if (PREFIX(path, "/getTileI/")) {
        getTileI(out, REST(path, "/getTileI/"));
    } else if (PREFIX(path, "/getTile/")) {
        getTile(out, REST(path, "/getTile/"));
    } else if (PREFIX(path, "/getSetState/")) {
        getSetState(out, REST(path, "/getSetState/"));
        buffSendHttp(out, NULL, 11, 0);
    } else if (PREFIX(path, "/gazetteer/")) {
        gazetteer(out, REST(path, "/gazetteer/"));
    } else if (PREFIX(path, "/hostversion")) {
        route_hostversion(out);
    } else if (PREFIX(path, "/getValue/")) {
        getValue(out, REST(path, "/getValue/"), mrApp.tripDb, "**");
    } else if (PREFIX(path, "/getMapData/")) {
        getValueAt(out, REST(path, "/getMapData/"), &mrApp.chartDb, mrApp.mlang);
    } else if (PREFIX(path, "/getMapDataA/")) {
        getValueAAt(out, REST(path, "/getMapDataA/"), &mrApp.chartDb, mrApp.mlang);
    } else if (PREFIX(path, "/getAuth/")) {
        route_getAuth(out, REST(path, "/getAuth/"));
    } else if (PREFIX(path, "/getcrc32/")) {
        getCrc32(out, REST(path, "/getcrc32/"));
    } else if (PREFIX(path, "/download/")) {
        route_download(out, path);
    } else if (PREFIX(path, "/app/")) {
        route_app(out, path);
    } else if (PREFIX(path, "/quit!")) {
        MR_STORE(mrApp.running, 0);
    } else if (PREFIX(path, "/setNmeaMode/")) {
        setNmeaMode(REST(path, "/setNmeaMode/"));
        buffReset(out);
        buffAddChar(out, "0");
        buffSendHttp(out, NULL, 11, 0);
    } else if (PREFIX(path, "/UexecSql/")) {
        execSql(out, REST(path, "/UexecSql/"), mrApp.tripDb, NULL, 0);
    } else if (PREFIX(path, "/rateApp")) {
        rateApp();
        buffReset(out);
        buffSendHttp(out, NULL, 4, 0);
    } else if (PREFIX(path, "/MexecSql/")) {
        execSqlAt(out, REST(path, "/MexecSql/"), &mrApp.chartDb, NULL, 0);
    } else if (PREFIX(path, "/kvt/")) {
        getValue(out, REST(path, "/kvt/"), mrApp.tripDb, mrApp.mlang);
    } else if (PREFIX(path, "/inAppPurchase/")) {
        route_inAppPurchase(out);
    } else {
        getValueAt(out, path, &mrApp.chartDb, mrApp.mlang);
    }
}

void route_post(ResponseBuffer *out, const char *path, const char *body, int n) {
    if (PREFIX(path, "/setValue/")) {
        buffReset(out);
        int r = setValue(out, REST(path, "/setValue/"), body, n, 12, mrApp.tripDb);
        buffAddChar(out, r == 0 ? "OK" : "ERR");
        buffSendHttp(out, NULL, 0, 0);
    } else if (PREFIX(path, "/UexecSql")) {
        execSql(out, body, mrApp.tripDb, NULL, 0);
    } else if (PREFIX(path, "/execSql3")) {
        execSql(out, body, mrApp.tripDb, NULL, 0);
    } else if (PREFIX(path, "/UPexecSql/")) {
        execSql(out, REST(path, "/UPexecSql/"), mrApp.tripDb, body, n);
    } else if (PREFIX(path, "/MexecSql")) {
        execSqlAt(out, body, &mrApp.chartDb, NULL, 0);
    } else if (PREFIX(path, "/getSetHostStat/")) {
        getSetHostStat(out, REST(path, "/getSetHostStat/"), body, n);
    } else if (PREFIX(path, "/postShare/")) {
        buffReset(out);
        buffAddChar(out, "0");
        buffSendHttp(out, NULL, 11, 0);
        postShare(REST(path, "/postShare/"), body);
    } else if (PREFIX(path, "/inAppPurchase/")) {
        route_inAppPurchase(out);
    } else {
        buffReset(out);
        buffSendHttp(out, "404 NOPE", 11, 0);
    }
}
