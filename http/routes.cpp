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
    buffSendHttp(out, NULL, MT_REPLY, 0);
}

/* The in-app purchase hook: there is no store on this platform; it answers
** an empty JSON object. */
static void route_inAppPurchase(ResponseBuffer *out, const char *rest) {
    (void)rest;
    buffReset(out);
    buffAddChar(out, "{}");
    buffSendHttp(out, NULL, MT_REPLY, 0);
}

static void route_hostversion(ResponseBuffer *out, const char *rest) {
    (void)rest;
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
    buffSendHttp(out, NULL, MT_REPLY, 0);
}

static void *download_thread(void *unused) {
    (void)unused;
    download();
    return NULL;
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
static void route_download(ResponseBuffer *out, const char *rest) {
    char json[160];
    int32_t state = MR_LOAD(mrApp.dlState);
    int32_t shown;
    size_t len = strlen(rest);
    char first = rest[0];
    char second = len > 1 ? rest[1] : 0;
    int started = 0;

    if (state == DL_IDLE) {
        /* arguments that do not fit dlArgs start nothing: a cut text could
        ** name another pack or size */
        int fits = len < sizeof(mrApp.dlArgs);
        if (first != '*' && fits && MR_CAS(mrApp.dlState, &state, DL_REQUESTED)) {
            memcpy(mrApp.dlArgs, rest, len + 1);
            /* with no thread to run it, the request falls back to idle */
            if (mr_spawn_detached(download_thread, NULL) == 0) started = 1;
            else MR_STORE(mrApp.dlState, DL_IDLE);
        }
    } else if (state > DL_IDLE) {
        if (second == '*') {
            while (state > DL_IDLE && !MR_CAS(mrApp.dlState, &state, DL_CANCEL)) {
            }
        }
    } else {
        if (second == '*') MR_STORE(mrApp.dlState, DL_IDLE);
    }
    shown = started ? DL_REQUESTED : MR_LOAD(mrApp.dlState);
    buffReset(out);
    snprintf(json, sizeof(json), "{\"id\":%d,\"b\":%d,\"s\":%d,\"e\":%d}", MR_LOAD(mrApp.dlId),
             MR_LOAD(mrApp.dlBytes), shown, MR_LOAD(mrApp.dlError));
    buffAddChar(out, json);
    buffSendHttp(out, NULL, MT_REPLY, 0);
}

/* Serves fileDir + "/" + name from disk with the type chosen by substrings
** of name (".mp3", ".html", ".js", ".css", ".png", in that precedence).
** Returns 0, or 404 when the file cannot be opened. */
int readFromFileSystem(ResponseBuffer *out, const char *name) {
    char path[16384];
    int type = MT_BINARY;
    int fd;

    buffReset(out);
    mr_bprintf(path, sizeof(path), "%s/%s", mrApp.fileDir, name);
    fd = open(path, O_RDONLY);
    if (strstr(name, ".mp3")) type = MT_MP3;
    else if (strstr(name, ".html")) type = MT_HTML;
    else if (strstr(name, ".js")) type = MT_JS;
    else if (strstr(name, ".css")) type = MT_CSS;
    else if (strstr(name, ".png")) type = MT_PNG;
    if (fd < 1) {
        if (fd == 0) close(fd);
        buffSendHttp(out, "404 File not found", MT_BINARY, 0);
        return 404;
    }
    for (;;) {
        char chunk[16384];
        ssize_t got = read(fd, chunk, sizeof(chunk));
        if (got > 0) buffAddData(out, chunk, (int)got);
        if (got != (ssize_t)sizeof(chunk)) break;
    }
    close(fd);
    buffSendHttp(out, NULL, type, MT_MAX_AGE(type));
    return 0;
}

/* /app/: the client's own files, from the application pack, or from disk
** when there is none. The pack's keys hold the whole path, "/app/"
** included, and rest always lies in the decoded path right behind that
** prefix, so the key starts just before rest. */
static void route_app(ResponseBuffer *out, const char *rest) {
    const char *path = rest - (sizeof("/app/") - 1);
    /* a glance outside the guard: the download may be replacing appDb */
    if (MR_LOAD(mrApp.appDb) == NULL) {
        readFromFileSystem(out, rest);
        return;
    }
    /* appDb can be replaced meanwhile; the guarded form reads it again */
    getValueAt(out, path, &mrApp.appDb, PREFIX(path, "/app/img") ? mrApp.skin : mrApp.alang);
}

/* Adapters: each row's handler takes (out, rest); these bind the database,
** the language or the reply that a route adds to its handler. */
static void route_getTileI(ResponseBuffer *out, const char *rest) { getTileI(out, rest); }
static void route_getTile(ResponseBuffer *out, const char *rest) { getTile(out, rest); }
static void route_gazetteer(ResponseBuffer *out, const char *rest) { gazetteer(out, rest); }
static void route_getcrc32(ResponseBuffer *out, const char *rest) { getCrc32(out, rest); }

static void route_getSetState(ResponseBuffer *out, const char *rest) {
    getSetState(out, rest);
    buffSendHttp(out, NULL, MT_STATE, 0);
}

static void route_getValue(ResponseBuffer *out, const char *rest) {
    getValue(out, rest, mrApp.tripDb, "**");
}

static void route_getMapData(ResponseBuffer *out, const char *rest) {
    getValueAt(out, rest, &mrApp.chartDb, mrApp.mlang);
}

static void route_getMapDataA(ResponseBuffer *out, const char *rest) {
    getValueAAt(out, rest, &mrApp.chartDb, mrApp.mlang);
}

/* /quit! ends the listener and the connections; nothing is sent. */
static void route_quit(ResponseBuffer *out, const char *rest) {
    (void)out;
    (void)rest;
    MR_STORE(mrApp.running, 0);
}

static void route_setNmeaMode(ResponseBuffer *out, const char *rest) {
    setNmeaMode(rest);
    buffReset(out);
    buffAddChar(out, "0");
    buffSendHttp(out, NULL, MT_STATE, 0);
}

static void route_get_UexecSql(ResponseBuffer *out, const char *rest) {
    execSql(out, rest, mrApp.tripDb, NULL, 0);
}

static void route_rateApp(ResponseBuffer *out, const char *rest) {
    (void)rest;
    rateApp();
    buffReset(out);
    buffSendHttp(out, NULL, MT_TEXT, 0);
}

static void route_get_MexecSql(ResponseBuffer *out, const char *rest) {
    execSqlAt(out, rest, &mrApp.chartDb, NULL, 0);
}

static void route_kvt(ResponseBuffer *out, const char *rest) {
    getValue(out, rest, mrApp.tripDb, mrApp.mlang);
}

/* The chart server's address in chartserver.key, which Settings set. */
static void route_setChartServer(ResponseBuffer *out, const char *rest) { setChartServer(out, rest); }

static void route_getChartServer(ResponseBuffer *out, const char *rest) {
    (void)rest;
    getChartServer(out);
}

/* A row of a route list: the prefix, its length for the exact-length
** strncmp, and the handler. */
#define ROUTE(lit, fn) {lit, sizeof(lit) - 1, fn}

static const struct {
    const char *prefix;
    size_t length;
    void (*handle)(ResponseBuffer *out, const char *rest);
} getRoutes[] = {
    ROUTE("/getTileI/", route_getTileI), /* before /getTile/, which it is not */
    ROUTE("/getTile/", route_getTile),
    ROUTE("/getSetState/", route_getSetState),
    ROUTE("/gazetteer/", route_gazetteer),
    ROUTE("/hostversion", route_hostversion),
    ROUTE("/getValue/", route_getValue),
    ROUTE("/getMapData/", route_getMapData),
    ROUTE("/getMapDataA/", route_getMapDataA),
    ROUTE("/getAuth/", route_getAuth),
    ROUTE("/getcrc32/", route_getcrc32),
    ROUTE("/download/", route_download),
    ROUTE("/app/", route_app),
    ROUTE("/quit!", route_quit),
    ROUTE("/setNmeaMode/", route_setNmeaMode),
    ROUTE("/UexecSql/", route_get_UexecSql),
    ROUTE("/rateApp", route_rateApp),
    ROUTE("/MexecSql/", route_get_MexecSql),
    ROUTE("/kvt/", route_kvt),
    ROUTE("/inAppPurchase/", route_inAppPurchase),
    ROUTE("/setChartServer/", route_setChartServer),
    ROUTE("/getChartServer", route_getChartServer),
};

void route_get(ResponseBuffer *out, const char *path) {
    for (size_t i = 0; i < sizeof(getRoutes) / sizeof(getRoutes[0]); i++) {
        if (strncmp(path, getRoutes[i].prefix, getRoutes[i].length) == 0) {
            getRoutes[i].handle(out, path + getRoutes[i].length);
            return;
        }
    }
    /* any other path is a key of the chart pack */
    getValueAt(out, path, &mrApp.chartDb, mrApp.mlang);
}

static void route_setValue(ResponseBuffer *out, const char *rest, const char *body, int n) {
    buffReset(out);
    int r = setValue(out, rest, body, n, MT_USER, mrApp.tripDb);
    buffAddChar(out, r == 0 ? "OK" : "ERR");
    buffSendHttp(out, NULL, MT_BINARY, 0);
}

/* /UexecSql and /execSql3: the body is the statement; the rest is ignored. */
static void route_post_execSql(ResponseBuffer *out, const char *rest, const char *body, int n) {
    (void)rest;
    (void)n;
    execSql(out, body, mrApp.tripDb, NULL, 0);
}

/* /UPexecSql/: the rest is the statement, the body its bound parameter. */
static void route_UPexecSql(ResponseBuffer *out, const char *rest, const char *body, int n) {
    execSql(out, rest, mrApp.tripDb, body, n);
}

static void route_post_MexecSql(ResponseBuffer *out, const char *rest, const char *body, int n) {
    (void)rest;
    (void)n;
    execSqlAt(out, body, &mrApp.chartDb, NULL, 0);
}

static void route_getSetHostStat(ResponseBuffer *out, const char *rest, const char *body, int n) {
    getSetHostStat(out, rest, body, n);
}

/* /postShare/: the answer goes out first, since the share may open a
** window on the desktop and take its time. */
static void route_postShare(ResponseBuffer *out, const char *rest, const char *body, int n) {
    (void)n;
    buffReset(out);
    buffAddChar(out, "0");
    buffSendHttp(out, NULL, MT_STATE, 0);
    postShare(rest, body);
}

static void route_post_inAppPurchase(ResponseBuffer *out, const char *rest, const char *body,
                                     int n) {
    (void)body;
    (void)n;
    route_inAppPurchase(out, rest);
}

static const struct {
    const char *prefix;
    size_t length;
    void (*handle)(ResponseBuffer *out, const char *rest, const char *body, int n);
} postRoutes[] = {
    ROUTE("/setValue/", route_setValue),
    ROUTE("/UexecSql", route_post_execSql),
    ROUTE("/execSql3", route_post_execSql),
    ROUTE("/UPexecSql/", route_UPexecSql),
    ROUTE("/MexecSql", route_post_MexecSql),
    ROUTE("/getSetHostStat/", route_getSetHostStat),
    ROUTE("/postShare/", route_postShare),
    ROUTE("/inAppPurchase/", route_post_inAppPurchase),
};

void route_post(ResponseBuffer *out, const char *path, const char *body, int n) {
    for (size_t i = 0; i < sizeof(postRoutes) / sizeof(postRoutes[0]); i++) {
        if (strncmp(path, postRoutes[i].prefix, postRoutes[i].length) == 0) {
            postRoutes[i].handle(out, path + postRoutes[i].length, body, n);
            return;
        }
    }
    buffReset(out);
    buffSendHttp(out, "404 NOPE", MT_STATE, 0);
}
