/*
** store_pending.cpp -- the pack store services in their first form: every
** request gets the reply for "nothing found". The tile, state, SQL,
** and gazetteer services replace this file.
*/
#include <string.h>

#include "shell/app_record.h"
#include "store/pack_store.h"

/* The 35-byte transparent one-pixel GIF. */
static const unsigned char onePixelGif[35] = {
    0x47, 0x49, 0x46, 0x38, 0x39, 0x61, 0x01, 0x00, 0x01, 0x00, 0x80, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0xf9, 0x04, 0x01, 0x00,
    0x00, 0x00, 0x00, 0x2c, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01};

static int sendGif(ResponseBuffer *b) {
    buffReset(b);
    buffAddData(b, onePixelGif, sizeof(onePixelGif));
    buffSendHttp(b, NULL, 8, 600);
    return 0;
}

int getTile(ResponseBuffer *b, const char *text) { (void)text; return sendGif(b); }
int getTileI(ResponseBuffer *b, const char *text) { (void)text; return sendGif(b); }

int getSetState(ResponseBuffer *b, const char *text) {
    (void)text;
    buffReset(b);
    return 0;
}

int loadOrSaveDb(struct sqlite3 *db, const char *fileName, int isSave) {
    (void)db; (void)fileName; (void)isSave;
    return 1;
}

int execSql(ResponseBuffer *b, const char *statementText, struct sqlite3 *db, const void *blob,
            int blobLength) {
    (void)statementText; (void)db; (void)blob; (void)blobLength;
    buffReset(b);
    buffAddChar(b, "ERR");
    buffSendHttp(b, NULL, 5, 0);
    return 0;
}

int gazetteer(ResponseBuffer *b, const char *text) {
    (void)text;
    buffReset(b);
    buffAddChar(b, "[]");
    buffSendHttp(b, NULL, 4, 0);
    return 0;
}

