/*
** ais_vdm.cpp -- VDM/VDO sentence assembly: joins the sentences of one
** message into one payload text, and the own-ship path ProcessAOS that
** learns the own MMSI from !AIVDO reports.
**
** Two assemblies exist: ais for every AIS sentence and ais2 for the own
** ship's, so an !AIVDO sentence is assembled in both. Both are touched only
** on the thread that delivers sentences.
*/
#include <string.h>

#include "ais/ais.h"
#include "nav/nmea.h"
#include "shell/app_record.h"

VdmAssembly ais;
VdmAssembly ais2;
time_t aistime;

/* Field behind p, or NULL when p's field was the last one. nmea_next_field
** steps over a NUL like any delimiter, so the field after the last would lie
** outside the sentence; a sentence cut short must not lead us there. */
static char *vdm_next_field(char *p) {
    if (p == NULL) return NULL;
    char *q = nmea_next_field(p);
    return q[-1] == 0 ? NULL : q;
}

/* Takes one VDM or VDO sentence into the assembly. Returns VDM_COMPLETE
** when the message is whole, or one of the other VDM_* results (ais.h). */
int assemble_vdm(VdmAssembly *a, char *sentence) {
    unsigned char sum = 0;
    if (check_nmea_checksum(sentence, &sum) != 0) return VDM_BAD_CHECKSUM;

    char *start = find_nmea_start(sentence);
    if (start == NULL) return VDM_BAD_CHECKSUM;
    /* short-circuit order keeps every byte read inside the text */
    if (!(start[1] && start[2] && start[3] == 'V' && start[4] == 'D' &&
          (start[5] == 'M' || start[5] == 'O')))
        return VDM_NOT_VDM;

    char *fTotal = vdm_next_field(start);
    char *fNumber = vdm_next_field(fTotal);
    char *fSeq = vdm_next_field(fNumber);
    char *fChannel = vdm_next_field(fSeq);
    char *fPayload = vdm_next_field(fChannel);
    if (fPayload == NULL) return VDM_SHORT;

    uint32_t total = nmea_uint(fTotal);
    uint32_t number = nmea_uint(fNumber);
    uint32_t seq = nmea_uint(fSeq);

    if (a->parts != 0) {
        if (a->seqId != seq || a->partNo != number - 1) {
            a->seqId = 0;
            a->parts = 0;
            a->partNo = 0;
            return VDM_OUT_OF_ORDER;
        }
        a->partNo++;
    } else {
        a->parts = total;
        a->partNo = number;
        a->seqId = seq;
        init_6bit(&a->six);
    }

    a->channel = (uint8_t)fChannel[0];

    /* The joined payload keeps at most 255 characters; the rest is cut. */
    if (a->six.bits[0] == 0) {
        nmea_copy_field(a->six.bits, fPayload, 255);
    } else {
        uint32_t have = (uint32_t)strlen(a->six.bits);
        nmea_copy_field(a->six.bits + have, fPayload, 255 - have);
    }

    if (total != 0 && a->parts != number) return VDM_MORE;

    a->partNo = 0;
    a->seqId = 0;
    a->parts = 0;
    return VDM_COMPLETE;
}

/* Reads a month, day, hour and minute stamp (4, 5, 5 and 6 bits) into tag.
** Returns 0, 1 for a NULL argument, 2 when the payload is shorter than 20
** bits. */
int get_timetag(SixBitReader *r, uint8_t tag[4]) {
    if (r == NULL || tag == NULL) return 1;
    if (sixbit_length(r) < 20) return 2;
    tag[0] = (uint8_t)get_6bit(r, 4);
    tag[1] = (uint8_t)get_6bit(r, 5);
    tag[2] = (uint8_t)get_6bit(r, 5);
    tag[3] = (uint8_t)get_6bit(r, 6);
    return 0;
}

/* Own-ship path for !AIVDO sentences: a complete position report of class A
** (1 to 3) or class B (18) sets gpsfix.aisuserid to its MMSI.
** Returns the non-zero result of assemble_vdm or of the parser, the MMSI
** taken, or 0 for other message numbers. */
int64_t ProcessAOS(char *sentence) {
    int rc = assemble_vdm(&ais2, sentence);
    if (rc != VDM_COMPLETE) return rc;

    ais2.msgid = (uint8_t)get_6bit(&ais2.six, 6);
    uint64_t userid;
    unsigned prc;
    if (ais2.msgid >= 1 && ais2.msgid <= 3) {
        AisMsg3 m;
        prc = parse_ais_3(&ais2, &m);
        userid = m.userid;
    } else if (ais2.msgid == 18) {
        AisMsg18 m;
        prc = parse_ais_18(&ais2, &m);
        userid = m.userid;
    } else {
        return 0;
    }
    if (prc != 0) return prc;
    MR_STORE(gpsfix.aisuserid, (uint32_t)userid);
    return (int64_t)userid;
}
