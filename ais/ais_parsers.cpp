/*
** ais_parsers.cpp -- one parser per AIS message number, 1 to 24, and the
** text and position conversions they share.
**
** Every parser takes an assembly whose payload is complete and whose
** message number has already been read, checks the payload length against
** its gate (six bits per character), zeroes its record (all but 24), reads
** the fields in ITU-R M.1371 order with get_6bit and makes the positions
** signed. Results: AIS_OK, AIS_ERR_NULL, AIS_ERR_LENGTH, and AIS_ERR_PART
** for message 24. No value is range-checked: 91 degrees, the "no position"
** code, passes as a number.
*/
#include <stdlib.h>
#include <string.h>

#include "ais/ais.h"

#define LAT_SIGN 0x4000000ll  /* bit 26 of a 27-bit latitude */
#define LON_SIGN 0x8000000ll  /* bit 27 of a 28-bit longitude */

/* Payload length in bits: six per character of the joined text. */
static uint32_t payload_bits(const VdmAssembly *a) {
    return 6u * (uint32_t)strlen(a->six.bits);
}

/* Reads chars six-bit characters into dst as text and terminates it. */
static void read_text(SixBitReader *r, char *dst, int chars) {
    for (int i = 0; i < chars; i++) dst[i] = ais2ascii((uint8_t)get_6bit(r, 6));
    dst[chars < 0 ? 0 : chars] = 0;
}

/* The reader copy of messages 6, 8 and 17: text and position, with the
** cursor moved onto the copy's own text so it stays valid on its own. */
static void copy_reader(SixBitReader *dst, const SixBitReader *src) {
    memcpy(dst, src, sizeof(*dst));
    dst->cursor = dst->bits + (src->cursor - src->bits);
}

/* Six-bit value to its character: 0..31 become '@'..'_', 32..63 stay. */
char ais2ascii(uint8_t value) {
    value &= 0x3f;
    return (char)(value < 32 ? value + 64 : value);
}

/* Makes *value signed in place when any bit of mask is set (mask is the
** sign bit of the field). Returns the value. */
int32_t conv_sign(uint32_t mask, uint32_t *value) {
    if (*value & mask) *value -= 2u * mask;
    return (int32_t)*value;
}

/* Makes a 27-bit latitude and a 28-bit longitude signed in place. */
int conv_pos(int64_t *lat, int64_t *lon) {
    if (*lat & LAT_SIGN) *lat -= 2 * LAT_SIGN;
    if (*lon & LON_SIGN) *lon -= 2 * LON_SIGN;
    return 0;
}

/* Decimal degrees of positions in 1/600000 degree; the whole degrees are
** split off with truncation toward zero. Returns 0. */
int pos2ddd(int32_t lat, int32_t lon, double *dlat, double *dlon) {
    int32_t d = lat / 600000;
    *dlat = (lat - d * 600000) / 600000.0 + d;
    d = lon / 600000;
    *dlon = (lon - d * 600000) / 600000.0 + d;
    return 0;
}

/* Degrees and unsigned minutes of each position. Between -1 and 0 degrees
** the degrees are 0 and the sign is lost. Returns 0. */
int pos2dmm(int32_t lat, int32_t lon, int16_t *lat_dd, double *lat_min, int16_t *lon_ddd,
            double *lon_min) {
    int32_t d = lat / 600000;
    *lat_dd = (int16_t)d;
    *lat_min = abs(lat - d * 600000) / 10000.0;
    d = lon / 600000;
    *lon_ddd = (int16_t)d;
    *lon_min = abs(lon - d * 600000) / 10000.0;
    return 0;
}

/* Position report, SOTDMA. Gate: exactly 28 characters. */
unsigned parse_ais_1(VdmAssembly *a, AisMsg1 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->nav_status = (uint8_t)get_6bit(s, 4);
    m->rot = (uint8_t)get_6bit(s, 8);
    m->sog = (int32_t)get_6bit(s, 10);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->cog = (int32_t)get_6bit(s, 12);
    m->hdg = (int32_t)get_6bit(s, 9);
    m->utc_sec = (uint8_t)get_6bit(s, 6);
    m->regional = (uint8_t)get_6bit(s, 4);
    m->spare = (uint8_t)get_6bit(s, 1);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->sync_state = (uint8_t)get_6bit(s, 2);
    m->slot_timeout = (uint8_t)get_6bit(s, 3);
    m->sub_message = (int32_t)get_6bit(s, 14);
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Position report, SOTDMA, assigned. Gate: exactly 168 bits. */
unsigned parse_ais_2(VdmAssembly *a, AisMsg2 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (payload_bits(a) != 168) return AIS_ERR_LENGTH;
    return parse_ais_1(a, m);
}

/* Position report, ITDMA; the parser of all three class A reports at run
** time. Gate: exactly 28 characters. */
unsigned parse_ais_3(VdmAssembly *a, AisMsg3 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->nav_status = (uint8_t)get_6bit(s, 4);
    m->rot = (uint8_t)get_6bit(s, 8);
    m->sog = (int32_t)get_6bit(s, 10);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->cog = (int32_t)get_6bit(s, 12);
    m->hdg = (int32_t)get_6bit(s, 9);
    m->utc_sec = (uint8_t)get_6bit(s, 6);
    m->regional = (uint8_t)get_6bit(s, 4);
    m->spare = (uint8_t)get_6bit(s, 1);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->sync_state = (uint8_t)get_6bit(s, 2);
    m->slot_increment = (int32_t)get_6bit(s, 13);
    m->num_slots = (uint8_t)get_6bit(s, 3);
    m->keep = (uint8_t)get_6bit(s, 1);
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Base station report. Gate: exactly 28 characters. */
unsigned parse_ais_4(VdmAssembly *a, AisMsg4 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->utc_year = (int32_t)get_6bit(s, 14);
    m->utc_month = (uint8_t)get_6bit(s, 4);
    m->utc_day = (uint8_t)get_6bit(s, 5);
    m->utc_hour = (uint8_t)get_6bit(s, 5);
    m->utc_minute = (uint8_t)get_6bit(s, 6);
    m->utc_second = (uint8_t)get_6bit(s, 6);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->pos_type = (uint8_t)get_6bit(s, 4);
    m->spare = (int32_t)get_6bit(s, 10);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->sync_state = (uint8_t)get_6bit(s, 2);
    m->slot_timeout = (uint8_t)get_6bit(s, 3);
    m->sub_message = (int32_t)get_6bit(s, 14);
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Static and voyage data. Gate: exactly 71 characters. */
unsigned parse_ais_5(VdmAssembly *a, AisMsg5 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 71) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->version = (uint8_t)get_6bit(s, 2);
    m->imo = (int32_t)get_6bit(s, 30);
    read_text(s, m->callsign, 7);
    read_text(s, m->name, 20);
    m->shiptype = (uint8_t)get_6bit(s, 8);
    m->bow = (int32_t)get_6bit(s, 9);
    m->stern = (int32_t)get_6bit(s, 9);
    m->port = (uint8_t)get_6bit(s, 6);
    m->starboard = (uint8_t)get_6bit(s, 6);
    m->pos_type = (uint8_t)get_6bit(s, 4);
    m->eta = (uint32_t)get_6bit(s, 20);
    m->draught = (uint8_t)get_6bit(s, 8);
    read_text(s, m->dest, 20);
    m->dte = (uint8_t)get_6bit(s, 1);
    m->spare = (uint8_t)get_6bit(s, 1);
    return AIS_OK;
}

/* Addressed binary message. Gate: 88 to 1008 bits. */
unsigned parse_ais_6(VdmAssembly *a, AisMsg6 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 88 || bits > 1008) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->sequence = (uint8_t)get_6bit(s, 2);
    m->destination = get_6bit(s, 30);
    m->retransmit = (uint8_t)get_6bit(s, 1);
    m->spare = (uint8_t)get_6bit(s, 1);
    m->app_id = (int32_t)get_6bit(s, 16);
    copy_reader(&m->data, s);
    return AIS_OK;
}

/* Binary acknowledge. Gate: 72 to 168 bits; each further pair of
** destination and sequence is read when the length reaches it. */
unsigned parse_ais_7(VdmAssembly *a, AisMsg7 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 72 || bits > 168) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare = (uint8_t)get_6bit(s, 2);
    m->destination[0] = get_6bit(s, 30);
    m->sequence[0] = (uint8_t)get_6bit(s, 2);
    m->num_acks = 1;
    if (bits >= 73) {
        m->destination[1] = get_6bit(s, 30);
        m->sequence[1] = (uint8_t)get_6bit(s, 2);
        m->num_acks++;
    }
    if (bits >= 105) {
        m->destination[2] = get_6bit(s, 30);
        m->sequence[2] = (uint8_t)get_6bit(s, 2);
        m->num_acks++;
    }
    if (bits >= 137) {
        m->destination[3] = get_6bit(s, 30);
        m->sequence[3] = (uint8_t)get_6bit(s, 2);
        m->num_acks++;
    }
    return AIS_OK;
}

/* Binary broadcast. Gate: 56 to 1008 bits. */
unsigned parse_ais_8(VdmAssembly *a, AisMsg8 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 56 || bits > 1008) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare = (uint8_t)get_6bit(s, 2);
    m->app_id = (int32_t)get_6bit(s, 16);
    copy_reader(&m->data, s);
    return AIS_OK;
}

/* SAR aircraft position. Gate: exactly 28 characters. sog is stored as sent
** (knots for this message), not converted. */
unsigned parse_ais_9(VdmAssembly *a, AisMsg9 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->altitude = (int32_t)get_6bit(s, 12);
    m->sog = (int32_t)get_6bit(s, 10);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->cog = (int32_t)get_6bit(s, 12);
    m->utc_sec = (uint8_t)get_6bit(s, 6);
    m->regional = (uint8_t)get_6bit(s, 8);
    m->dte = (uint8_t)get_6bit(s, 1);
    m->spare = (uint8_t)get_6bit(s, 3);
    m->assigned = (uint8_t)get_6bit(s, 1);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->comm_state = (uint8_t)get_6bit(s, 1);
    if (m->comm_state == 0) {
        m->sotdma_state = (uint8_t)get_6bit(s, 2);
        m->slot_timeout = (uint8_t)get_6bit(s, 3);
        m->sub_message = (int32_t)get_6bit(s, 14);
    } else {
        m->itdma_state = (uint8_t)get_6bit(s, 2);
        m->slot_increment = (int32_t)get_6bit(s, 13);
        m->num_slots = (uint8_t)get_6bit(s, 3);
        m->keep = (uint8_t)get_6bit(s, 1);
    }
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* UTC inquiry. Gate: exactly 12 characters. */
unsigned parse_ais_10(VdmAssembly *a, AisMsg10 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 12) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 2);
    m->destination = get_6bit(s, 30);
    m->spare2 = (uint8_t)get_6bit(s, 2);
    return AIS_OK;
}

/* UTC response: the layout of the base station report. */
unsigned parse_ais_11(VdmAssembly *a, AisMsg11 *m) { return parse_ais_4(a, m); }

/* Addressed safety text. Gate: 72 to 1008 bits; the text fills the rest. */
unsigned parse_ais_12(VdmAssembly *a, AisMsg12 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 72 || bits > 1008) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->sequence = (uint8_t)get_6bit(s, 2);
    m->destination = get_6bit(s, 30);
    m->retransmit = (uint8_t)get_6bit(s, 1);
    m->spare = (uint8_t)get_6bit(s, 1);
    read_text(s, m->message, (int)(bits - 72) / 6);
    return AIS_OK;
}

/* Safety acknowledge: the layout of message 7. */
unsigned parse_ais_13(VdmAssembly *a, AisMsg13 *m) { return parse_ais_7(a, m); }

/* Safety broadcast text. Gate: 40 to 1008 bits; the text fills the rest. */
unsigned parse_ais_14(VdmAssembly *a, AisMsg14 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 40 || bits > 1008) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare = (uint8_t)get_6bit(s, 2);
    read_text(s, m->message, (int)(bits - 40) / 6);
    return AIS_OK;
}

/* Interrogation. Gate: 88 to 162 bits. The third request is read only at
** exactly 160 bits, a length no whole payload has, so it is never read. */
unsigned parse_ais_15(VdmAssembly *a, AisMsg15 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 88 || bits > 162) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 2);
    m->destid1 = get_6bit(s, 30);
    m->msgid1_1 = (uint8_t)get_6bit(s, 6);
    m->offset1_1 = (int32_t)get_6bit(s, 12);
    m->num_reqs = 1;
    if (bits >= 89) {
        m->spare2 = (uint8_t)get_6bit(s, 2);
        m->msgid1_2 = (uint8_t)get_6bit(s, 6);
        m->offset1_2 = (int32_t)get_6bit(s, 12);
        m->num_reqs = 2;
    }
    if (bits == 160) {
        m->spare3 = (uint8_t)get_6bit(s, 2);
        m->destid2 = get_6bit(s, 30);
        m->msgid2_1 = (uint8_t)get_6bit(s, 6);
        m->offset2_1 = (int32_t)get_6bit(s, 12);
        m->spare4 = (uint8_t)get_6bit(s, 2);
        m->num_reqs = 3;
    }
    return AIS_OK;
}

/* Assignment mode command. Gate: exactly 96 or 144 bits. */
unsigned parse_ais_16(VdmAssembly *a, AisMsg16 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits != 96 && bits != 144) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 2);
    m->destid_a = get_6bit(s, 30);
    m->offset_a = (int32_t)get_6bit(s, 12);
    m->increment_a = (int32_t)get_6bit(s, 10);
    m->num_cmds = 1;
    if (bits == 144) {
        m->destid_b = get_6bit(s, 30);
        m->offset_b = (int32_t)get_6bit(s, 12);
        m->increment_b = (int32_t)get_6bit(s, 10);
        m->spare2 = (uint8_t)get_6bit(s, 4);
        m->num_cmds = 2;
    }
    return AIS_OK;
}

/* DGNSS broadcast. Gate: 80 to 816 bits. The sign rule looks at bits 26
** and 27, which 17- and 18-bit fields never set: the position stays
** unsigned. */
unsigned parse_ais_17(VdmAssembly *a, AisMsg17 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 80 || bits > 816) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 2);
    m->lon = (int64_t)get_6bit(s, 18);
    m->lat = (int64_t)get_6bit(s, 17);
    m->spare2 = (uint8_t)get_6bit(s, 5);
    m->msg_type = (uint8_t)get_6bit(s, 6);
    m->station_id = (int32_t)get_6bit(s, 10);
    m->z_count = (int32_t)get_6bit(s, 13);
    m->seq_num = (uint8_t)get_6bit(s, 3);
    m->num_words = (uint8_t)get_6bit(s, 5);
    m->health = (uint8_t)get_6bit(s, 3);
    copy_reader(&m->data, s);
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Class B position report. Gate: exactly 28 characters. */
unsigned parse_ais_18(VdmAssembly *a, AisMsg18 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->regional1 = (uint8_t)get_6bit(s, 8);
    m->sog = (int32_t)get_6bit(s, 10);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->cog = (int32_t)get_6bit(s, 12);
    m->hdg = (int32_t)get_6bit(s, 9);
    m->utc_sec = (uint8_t)get_6bit(s, 6);
    m->regional2 = (uint8_t)get_6bit(s, 2);
    m->unit_flag = (uint8_t)get_6bit(s, 1);
    m->display_flag = (uint8_t)get_6bit(s, 1);
    m->dsc_flag = (uint8_t)get_6bit(s, 1);
    m->band_flag = (uint8_t)get_6bit(s, 1);
    m->msg22_flag = (uint8_t)get_6bit(s, 1);
    m->mode_flag = (uint8_t)get_6bit(s, 1);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->comm_state = (uint8_t)get_6bit(s, 1);
    if (m->comm_state == 0) {
        m->sotdma_state = (uint8_t)get_6bit(s, 2);
        m->slot_timeout = (uint8_t)get_6bit(s, 3);
        m->sub_message = (int32_t)get_6bit(s, 14);
    } else {
        m->itdma_state = (uint8_t)get_6bit(s, 2);
        m->slot_increment = (int32_t)get_6bit(s, 13);
        m->num_slots = (uint8_t)get_6bit(s, 3);
        m->keep = (uint8_t)get_6bit(s, 1);
    }
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Class B extended position report. Gate: exactly 52 characters. */
unsigned parse_ais_19(VdmAssembly *a, AisMsg19 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 52) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->regional1 = (uint8_t)get_6bit(s, 8);
    m->sog = (int32_t)get_6bit(s, 10);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->cog = (int32_t)get_6bit(s, 12);
    m->hdg = (int32_t)get_6bit(s, 9);
    m->utc_sec = (uint8_t)get_6bit(s, 6);
    m->regional2 = (uint8_t)get_6bit(s, 4);
    read_text(s, m->name, 20);
    m->shiptype = (uint8_t)get_6bit(s, 8);
    m->bow = (int32_t)get_6bit(s, 9);
    m->stern = (int32_t)get_6bit(s, 9);
    m->port = (uint8_t)get_6bit(s, 6);
    m->starboard = (uint8_t)get_6bit(s, 6);
    m->pos_type = (uint8_t)get_6bit(s, 4);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->dte = (uint8_t)get_6bit(s, 1);
    m->spare = (uint8_t)get_6bit(s, 5);
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Data link management. Gate: 72 to 162 bits; each further entry is read
** when the length reaches it. */
unsigned parse_ais_20(VdmAssembly *a, AisMsg20 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 72 || bits > 162) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 2);
    m->offset[0] = (int32_t)get_6bit(s, 12);
    m->slots[0] = (uint8_t)get_6bit(s, 4);
    m->timeout[0] = (uint8_t)get_6bit(s, 3);
    m->increment[0] = (int32_t)get_6bit(s, 11);
    m->num_cmds = 1;
    if (bits >= 73) {
        m->offset[1] = (int32_t)get_6bit(s, 12);
        m->slots[1] = (uint8_t)get_6bit(s, 4);
        m->timeout[1] = (uint8_t)get_6bit(s, 3);
        m->increment[1] = (int32_t)get_6bit(s, 11);
        m->num_cmds++;
    }
    if (bits >= 105) {
        m->offset[2] = (int32_t)get_6bit(s, 12);
        m->slots[2] = (uint8_t)get_6bit(s, 4);
        m->timeout[2] = (uint8_t)get_6bit(s, 3);
        m->increment[2] = (int32_t)get_6bit(s, 11);
        m->num_cmds++;
    }
    if (bits >= 137) {
        m->offset[3] = (int32_t)get_6bit(s, 12);
        m->slots[3] = (uint8_t)get_6bit(s, 4);
        m->timeout[3] = (uint8_t)get_6bit(s, 3);
        m->increment[3] = (int32_t)get_6bit(s, 11);
        m->num_cmds++;
    }
    return AIS_OK;
}

/* Aid to navigation. Gate: 272 to 360 bits; the characters behind the fixed
** part are the name extension. */
unsigned parse_ais_21(VdmAssembly *a, AisMsg21 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits < 272 || bits > 360) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->type = (uint8_t)get_6bit(s, 5);
    read_text(s, m->name, 20);
    m->pos_acc = (uint8_t)get_6bit(s, 1);
    m->lon = (int64_t)get_6bit(s, 28);
    m->lat = (int64_t)get_6bit(s, 27);
    m->bow = (int32_t)get_6bit(s, 9);
    m->stern = (int32_t)get_6bit(s, 9);
    m->port = (uint8_t)get_6bit(s, 6);
    m->starboard = (uint8_t)get_6bit(s, 6);
    m->pos_type = (uint8_t)get_6bit(s, 4);
    m->utc_sec = (uint8_t)get_6bit(s, 6);
    m->off_position = (uint8_t)get_6bit(s, 1);
    m->regional = (uint8_t)get_6bit(s, 8);
    m->raim = (uint8_t)get_6bit(s, 1);
    m->virtual_aton = (uint8_t)get_6bit(s, 1);
    m->assigned = (uint8_t)get_6bit(s, 1);
    m->spare = (uint8_t)get_6bit(s, 1);
    int extChars = (int)(bits - 272) / 6;
    if (extChars >= 1) read_text(s, m->name_ext, extChars);
    conv_pos(&m->lat, &m->lon);
    return AIS_OK;
}

/* Channel management. Gate: exactly 28 characters. Corners come in 1/10
** minute; addressed, they carry two destination ids instead. One spare bit
** is read after the MMSI where the published layout has two, so the later
** fields sit one bit early; no row uses this message. */
unsigned parse_ais_22(VdmAssembly *a, AisMsg22 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 1);
    m->channel_a = (int32_t)get_6bit(s, 12);
    m->channel_b = (int32_t)get_6bit(s, 12);
    m->txrx_mode = (uint8_t)get_6bit(s, 4);
    m->power = (uint8_t)get_6bit(s, 1);
    m->NE_lon = (int64_t)get_6bit(s, 18);
    m->NE_lat = (int64_t)get_6bit(s, 17);
    m->SW_lon = (int64_t)get_6bit(s, 18);
    m->SW_lat = (int64_t)get_6bit(s, 17);
    m->addressed = (uint8_t)get_6bit(s, 1);
    m->bw_a = (uint8_t)get_6bit(s, 1);
    m->bw_b = (uint8_t)get_6bit(s, 1);
    m->tz_size = (uint8_t)get_6bit(s, 3);
    if (m->addressed) {
        m->dest_addr_1 = ((uint64_t)m->NE_lon << 12) + ((uint64_t)m->NE_lat >> 5);
        m->dest_addr_2 = ((uint64_t)m->SW_lon << 12) + ((uint64_t)m->SW_lat >> 5);
    } else {
        m->NE_lon *= 1000;
        m->NE_lat *= 1000;
        m->SW_lon *= 1000;
        m->SW_lat *= 1000;
    }
    conv_pos(&m->NE_lat, &m->NE_lon);
    conv_pos(&m->SW_lat, &m->SW_lon);
    return AIS_OK;
}

/* Group assignment command. Gate: exactly 28 characters. Corners in 1/10
** minute are brought to 1/10000 minute before the sign rule. */
unsigned parse_ais_23(VdmAssembly *a, AisMsg23 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    if (strlen(a->six.bits) != 28) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    memset(m, 0, sizeof(*m));
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->spare1 = (uint8_t)get_6bit(s, 2);
    m->NE_lon = (int64_t)get_6bit(s, 18);
    m->NE_lat = (int64_t)get_6bit(s, 17);
    m->SW_lon = (int64_t)get_6bit(s, 18);
    m->SW_lat = (int64_t)get_6bit(s, 17);
    m->station_type = (uint8_t)get_6bit(s, 4);
    m->ship_type = (uint8_t)get_6bit(s, 8);
    m->spare2 = (int32_t)get_6bit(s, 22);
    m->txrx_mode = (uint8_t)get_6bit(s, 2);
    m->report_interval = (uint8_t)get_6bit(s, 4);
    m->quiet_time = (uint8_t)get_6bit(s, 4);
    m->spare3 = (uint8_t)get_6bit(s, 6);
    m->NE_lon *= 1000;
    m->NE_lat *= 1000;
    m->SW_lon *= 1000;
    m->SW_lat *= 1000;
    conv_pos(&m->NE_lat, &m->NE_lon);
    conv_pos(&m->SW_lat, &m->SW_lon);
    return AIS_OK;
}

/* Class B static data. Gate: 162 or 168 bits. The record is not zeroed, so
** the caller zeroes it; flags gains 1 for part A and 2 for part B. Part
** numbers other than 0 and 1 give AIS_ERR_PART. */
unsigned parse_ais_24(VdmAssembly *a, AisMsg24 *m) {
    if (a == NULL || m == NULL) return AIS_ERR_NULL;
    uint32_t bits = payload_bits(a);
    if (bits != 162 && bits != 168) return AIS_ERR_LENGTH;
    SixBitReader *s = &a->six;
    m->msgid = a->msgid;
    m->repeat = (uint8_t)get_6bit(s, 2);
    m->userid = get_6bit(s, 30);
    m->part_number = (uint8_t)get_6bit(s, 2);
    switch (m->part_number) {
    case 0:
        read_text(s, m->name, 20);
        m->flags += 1;
        break;
    case 1:
        m->shiptype = (uint8_t)get_6bit(s, 8);
        read_text(s, m->vendor_id, 7);
        read_text(s, m->callsign, 7);
        m->bow = (int32_t)get_6bit(s, 9);
        m->stern = (int32_t)get_6bit(s, 9);
        m->port = (uint8_t)get_6bit(s, 6);
        m->starboard = (uint8_t)get_6bit(s, 6);
        m->spare = (uint8_t)get_6bit(s, 6);
        m->flags += 2;
        break;
    default:
        return AIS_ERR_PART;
    }
    return AIS_OK;
}
