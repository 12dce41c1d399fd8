/*
** ais.h -- AIS: the six-bit payload reader, VDM sentence assembly, the
** message parsers and the queue of target rows (aisjson) that the status
** reply takes.
**
** Records are plain structs filled by one sequential pass of get_6bit over
** the payload. Widths of 1 to 8 bits land in uint8_t members, wider ones in
** int32_t; MMSIs and destination ids are uint64_t, positions int64_t in
** 1/10000 of a minute. Text members hold the six-bit characters as ASCII,
** padding '@' included, and are NUL-terminated.
*/
#ifndef MAREPLOT_AIS_H
#define MAREPLOT_AIS_H

#include <stdint.h>
#include <time.h>

#include "http/response_buffer.h"

/* ---- six-bit payload reader ---- */

typedef struct SixBitReader {
    char bits[256];         /* payload text, NUL-terminated */
    char *cursor;           /* next character to decode */
    uint8_t remainder;      /* bits of the last decoded character not yet handed out */
    uint8_t remainderBits;  /* how many */
} SixBitReader;

/* Low-bit masks by bit count. */
inline constexpr uint8_t pow2_mask[8] = {0, 1, 3, 7, 15, 31, 63, 0};

int init_6bit(SixBitReader *r);

/* Six-bit value of every byte, 255 where the armour has none; the same
** rule as binfrom6bit, computed at compile time. */
struct SixbitTable {
    uint8_t v[256];
    constexpr SixbitTable() : v() {
        for (int c = 0; c < 256; c++) {
            bool bad = c < 48 || c > 119 || (c >= 88 && c <= 95);
            v[c] = bad ? 255 : (uint8_t)((c < 96 ? c + 16 : c + 8) & 0x3f);
        }
    }
};
inline constexpr SixbitTable sixbit_table{};

/* Reads count bits (0 < count <= 64) and returns them as an unsigned value.
** count <= 0 gives 0 and changes nothing. A read past the end of the text
** returns what the available bits made, with no error; the cursor never
** moves past the terminating NUL. An invalid character reads as the byte
** 255, added in at its place like any other value. Inline, so that the
** parsers' fixed counts fold into it. */
inline uint64_t get_6bit(SixBitReader *r, int16_t count) {
    uint64_t result = 0;
    int n = count;
    /* The reader's members live in locals for the loop and are stored back
    ** once: the char cursor would otherwise make every store reload them. */
    unsigned rem = r->remainder;
    unsigned remBits = r->remainderBits;
    const char *c = r->cursor;

    if (n <= 0) return 0;
    for (;;) {
        if (remBits > 0) {
            if (n < (int)remBits) {
                result = (result << n) + (uint64_t)(rem >> (remBits - n));
                remBits -= (unsigned)n;
                rem &= pow2_mask[remBits];
                break;
            }
            n -= (int)remBits;
            /* A pending remainder shorter than 6 bits only exists at the start
            ** of a call, when result is still 0, so the fixed shift is exact. */
            result = (result << 6) + rem;
            rem = 0;
            remBits = 0;
        }
        if (*c == 0) break;
        rem = sixbit_table.v[(uint8_t)*c++];
        remBits = 6;
        if (n == 0) break;
    }
    r->remainder = (uint8_t)rem;
    r->remainderBits = (uint8_t)remBits;
    r->cursor = (char *)c;
    return result;
}

int32_t binfrom6bit(int32_t c);
int32_t binto6bit(int32_t value);
uint32_t sixbit_length(const SixBitReader *r);

/* ---- VDM assembly and dispatch ---- */

typedef struct VdmAssembly {
    uint8_t msgid;    /* message number, the payload's first six bits */
    uint32_t seqId;   /* sequential id of the open group */
    uint32_t parts;   /* sentences in the open group; 0 when none is open */
    uint32_t partNo;  /* number of the last sentence taken */
    uint8_t channel;  /* first byte of the channel field */
    SixBitReader six; /* the payload */
} VdmAssembly;

extern VdmAssembly ais;  /* assembly of ProcessAIS */
extern VdmAssembly ais2; /* assembly of ProcessAOS (own ship) */
extern time_t aistime;   /* time of the last base station report, 0 before one */

/* Results of assemble_vdm. */
enum {
    VDM_COMPLETE = 0,     /* a->six holds the whole payload, cursor at its start */
    VDM_MORE = 1,         /* more sentences of the group are to come */
    VDM_BAD_CHECKSUM = 2, /* the checksum does not match, or no sentence start */
    VDM_NOT_VDM = 3,      /* neither VDM nor VDO */
    VDM_SHORT = 4,        /* the sentence ends before its payload field */
    VDM_OUT_OF_ORDER = 5  /* not the open group's next sentence: both are dropped */
};
int assemble_vdm(VdmAssembly *a, char *sentence);
int get_timetag(SixBitReader *r, uint8_t tag[4]);

/* Feeds one !AIVDM or !AIVDO sentence (writable, NUL-terminated). */
void ProcessAIS(char *sentence);
/* Feeds one !AIVDO sentence to the own-ship assembly. Returns the result of
** a failing step, or the MMSI taken. */
int64_t ProcessAOS(char *sentence);

/* ---- decoded message records ---- */

/* 1 and 2: position report, SOTDMA */
typedef struct AisMsg1 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t nav_status;
    uint8_t rot;
    int32_t sog;
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    int32_t cog;
    int32_t hdg;
    uint8_t utc_sec;
    uint8_t regional;
    uint8_t spare;
    uint8_t raim;
    uint8_t sync_state;
    uint8_t slot_timeout;
    int32_t sub_message;
} AisMsg1;
typedef AisMsg1 AisMsg2;

/* 3: position report, ITDMA */
typedef struct AisMsg3 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t nav_status;
    uint8_t rot;
    int32_t sog;
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    int32_t cog;
    int32_t hdg;
    uint8_t utc_sec;
    uint8_t regional;
    uint8_t spare;
    uint8_t raim;
    uint8_t sync_state;
    int32_t slot_increment;
    uint8_t num_slots;
    uint8_t keep;
} AisMsg3;

/* 4 and 11: base station report, UTC response */
typedef struct AisMsg4 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    int32_t utc_year;
    uint8_t utc_month;
    uint8_t utc_day;
    uint8_t utc_hour;
    uint8_t utc_minute;
    uint8_t utc_second;
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    uint8_t pos_type;
    int32_t spare;
    uint8_t raim;
    uint8_t sync_state;
    uint8_t slot_timeout;
    int32_t sub_message;
} AisMsg4;
typedef AisMsg4 AisMsg11;

/* 5: static and voyage data */
typedef struct AisMsg5 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t version;
    int32_t imo;
    char callsign[8];
    char name[21];
    uint8_t shiptype;
    int32_t bow;
    int32_t stern;
    uint8_t port;
    uint8_t starboard;
    uint8_t pos_type;
    uint32_t eta;
    uint8_t draught;
    char dest[21];
    uint8_t dte;
    uint8_t spare;
} AisMsg5;

/* 6: addressed binary message */
typedef struct AisMsg6 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t sequence;
    uint64_t destination;
    uint8_t retransmit;
    uint8_t spare;
    int32_t app_id;
    SixBitReader data; /* the payload, positioned at the application data */
} AisMsg6;

/* 7 and 13: binary and safety acknowledge */
typedef struct AisMsg7 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare;
    uint64_t destination[4];
    uint8_t sequence[4];
    uint8_t num_acks;
} AisMsg7;
typedef AisMsg7 AisMsg13;

/* 8: binary broadcast */
typedef struct AisMsg8 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare;
    int32_t app_id;
    SixBitReader data; /* the payload, positioned at the application data */
} AisMsg8;

/* 9: SAR aircraft position; 18: class B position. The sync state lands in
** sotdma_state or itdma_state by the communication flag. */
typedef struct AisMsg9 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    int32_t altitude;
    int32_t sog;
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    int32_t cog;
    uint8_t utc_sec;
    uint8_t regional;
    uint8_t dte;
    uint8_t spare;
    uint8_t assigned;
    uint8_t raim;
    uint8_t comm_state;
    uint8_t sotdma_state;
    uint8_t slot_timeout;
    int32_t sub_message;
    uint8_t itdma_state;
    int32_t slot_increment;
    uint8_t num_slots;
    uint8_t keep;
} AisMsg9;

/* 10: UTC inquiry */
typedef struct AisMsg10 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    uint64_t destination;
    uint8_t spare2;
} AisMsg10;

/* 12: addressed safety text */
typedef struct AisMsg12 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t sequence;
    uint64_t destination;
    uint8_t retransmit;
    uint8_t spare;
    char message[157];
} AisMsg12;

/* 14: safety broadcast text */
typedef struct AisMsg14 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare;
    char message[162];
} AisMsg14;

/* 15: interrogation */
typedef struct AisMsg15 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    uint64_t destid1;
    uint8_t msgid1_1;
    int32_t offset1_1;
    uint8_t spare2;
    uint8_t msgid1_2;
    int32_t offset1_2;
    uint8_t spare3;
    uint64_t destid2;
    uint8_t msgid2_1;
    int32_t offset2_1;
    uint8_t spare4;
    uint8_t num_reqs;
} AisMsg15;

/* 16: assignment mode command */
typedef struct AisMsg16 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    uint64_t destid_a;
    int32_t offset_a;
    int32_t increment_a;
    uint64_t destid_b;
    int32_t offset_b;
    int32_t increment_b;
    uint8_t spare2;
    uint8_t num_cmds;
} AisMsg16;

/* 17: DGNSS broadcast */
typedef struct AisMsg17 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    int64_t lon;
    int64_t lat;
    uint8_t spare2;
    uint8_t msg_type;
    int32_t station_id;
    int32_t z_count;
    uint8_t seq_num;
    uint8_t num_words;
    uint8_t health;
    SixBitReader data; /* the payload, positioned at the correction words */
} AisMsg17;

/* 18: class B position report */
typedef struct AisMsg18 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t regional1;
    int32_t sog;
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    int32_t cog;
    int32_t hdg;
    uint8_t utc_sec;
    uint8_t regional2;
    uint8_t unit_flag;
    uint8_t display_flag;
    uint8_t dsc_flag;
    uint8_t band_flag;
    uint8_t msg22_flag;
    uint8_t mode_flag;
    uint8_t raim;
    uint8_t comm_state;
    uint8_t sotdma_state;
    uint8_t slot_timeout;
    int32_t sub_message;
    uint8_t itdma_state;
    int32_t slot_increment;
    uint8_t num_slots;
    uint8_t keep;
} AisMsg18;

/* 19: class B extended position report */
typedef struct AisMsg19 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t regional1;
    int32_t sog;
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    int32_t cog;
    int32_t hdg;
    uint8_t utc_sec;
    uint8_t regional2;
    char name[21];
    uint8_t shiptype;
    int32_t bow;
    int32_t stern;
    uint8_t port;
    uint8_t starboard;
    uint8_t pos_type;
    uint8_t raim;
    uint8_t dte;
    uint8_t spare;
} AisMsg19;

/* 20: data link management */
typedef struct AisMsg20 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    int32_t offset[4];
    uint8_t slots[4];
    uint8_t timeout[4];
    int32_t increment[4];
    uint8_t num_cmds;
} AisMsg20;

/* 21: aid to navigation */
typedef struct AisMsg21 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t type;
    char name[21];
    uint8_t pos_acc;
    int64_t lon;
    int64_t lat;
    int32_t bow;
    int32_t stern;
    uint8_t port;
    uint8_t starboard;
    uint8_t pos_type;
    uint8_t utc_sec;
    uint8_t off_position;
    uint8_t regional;
    uint8_t raim;
    uint8_t virtual_aton;
    uint8_t assigned;
    uint8_t spare;
    char name_ext[15];
} AisMsg21;

/* 22: channel management. With the addressed flag the two corners carry
** destination ids instead. */
typedef struct AisMsg22 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    int32_t channel_a;
    int32_t channel_b;
    uint8_t txrx_mode;
    uint8_t power;
    int64_t NE_lon;
    int64_t NE_lat;
    int64_t SW_lon;
    int64_t SW_lat;
    uint8_t addressed;
    uint8_t bw_a;
    uint8_t bw_b;
    uint8_t tz_size;
    uint64_t dest_addr_1;
    uint64_t dest_addr_2;
} AisMsg22;

/* 23: group assignment command */
typedef struct AisMsg23 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t spare1;
    int64_t NE_lon;
    int64_t NE_lat;
    int64_t SW_lon;
    int64_t SW_lat;
    uint8_t station_type;
    uint8_t ship_type;
    int32_t spare2;
    uint8_t txrx_mode;
    uint8_t report_interval;
    uint8_t quiet_time;
    uint8_t spare3;
} AisMsg23;

/* 24: class B static data, part A (0) or part B (1). flags gathers the parts
** seen: 1 for part A, 2 for part B. */
typedef struct AisMsg24 {
    uint8_t msgid;
    uint8_t repeat;
    uint64_t userid;
    uint8_t part_number;
    uint8_t flags;
    char name[21];
    uint8_t shiptype;
    char vendor_id[8];
    char callsign[8];
    int32_t bow;
    int32_t stern;
    uint8_t port;
    uint8_t starboard;
    uint8_t spare;
} AisMsg24;

/* Parser results. */
#define AIS_OK 0
#define AIS_ERR_NULL 1
#define AIS_ERR_LENGTH 2
#define AIS_ERR_PART 3

unsigned parse_ais_1(VdmAssembly *a, AisMsg1 *m);
unsigned parse_ais_2(VdmAssembly *a, AisMsg2 *m);
unsigned parse_ais_3(VdmAssembly *a, AisMsg3 *m);
unsigned parse_ais_4(VdmAssembly *a, AisMsg4 *m);
unsigned parse_ais_5(VdmAssembly *a, AisMsg5 *m);
unsigned parse_ais_6(VdmAssembly *a, AisMsg6 *m);
unsigned parse_ais_7(VdmAssembly *a, AisMsg7 *m);
unsigned parse_ais_8(VdmAssembly *a, AisMsg8 *m);
unsigned parse_ais_9(VdmAssembly *a, AisMsg9 *m);
unsigned parse_ais_10(VdmAssembly *a, AisMsg10 *m);
unsigned parse_ais_11(VdmAssembly *a, AisMsg11 *m);
unsigned parse_ais_12(VdmAssembly *a, AisMsg12 *m);
unsigned parse_ais_13(VdmAssembly *a, AisMsg13 *m);
unsigned parse_ais_14(VdmAssembly *a, AisMsg14 *m);
unsigned parse_ais_15(VdmAssembly *a, AisMsg15 *m);
unsigned parse_ais_16(VdmAssembly *a, AisMsg16 *m);
unsigned parse_ais_17(VdmAssembly *a, AisMsg17 *m);
unsigned parse_ais_18(VdmAssembly *a, AisMsg18 *m);
unsigned parse_ais_19(VdmAssembly *a, AisMsg19 *m);
unsigned parse_ais_20(VdmAssembly *a, AisMsg20 *m);
unsigned parse_ais_21(VdmAssembly *a, AisMsg21 *m);
unsigned parse_ais_22(VdmAssembly *a, AisMsg22 *m);
unsigned parse_ais_23(VdmAssembly *a, AisMsg23 *m);
unsigned parse_ais_24(VdmAssembly *a, AisMsg24 *m);

/* ---- conversions ---- */

char ais2ascii(uint8_t value);
int32_t conv_sign(uint32_t mask, uint32_t *value);
int conv_pos(int64_t *lat, int64_t *lon);
/* Converts AIS positions (1/600000 degree) to decimal degrees. Returns 0. */
int pos2ddd(int32_t lat, int32_t lon, double *dlat, double *dlon);
int pos2dmm(int32_t lat, int32_t lon, int16_t *lat_dd, double *lat_min, int16_t *lon_ddd,
            double *lon_min);

/* ---- application message records and their accessors ---- */

/* Every application record with a time stamp opens with this. */
typedef struct AisUtcTime {
    uint8_t month;
    uint8_t day;
    uint8_t hours;
    uint8_t minutes;
} AisUtcTime;

typedef struct AisWeatherReport {
    int64_t lon;
    int64_t lat;
    int32_t wind_speed;
    int32_t wind_gust;
    int32_t wind_direction;
    int32_t air_temp;
    int32_t humidity;
    int32_t air_pressure;
    int32_t visibility;
} AisWeatherReport;
typedef struct AisWeatherMsg {
    AisUtcTime utc_time;
    uint8_t count;
    AisWeatherReport report[4];
} AisWeatherMsg;

/* wind, water level, water flow, current and salinity share one shape:
** a position and up to six readings. */
typedef struct AisSensorReport {
    int64_t lon;
    int64_t lat;
    int32_t value[6];
} AisSensorReport;
typedef struct AisSensorMsg {
    AisUtcTime utc_time;
    uint8_t count;
    AisSensorReport report[6];
} AisSensorMsg;
typedef AisSensorMsg AisWindMsg;
typedef AisSensorMsg AisWaterLevelMsg;
typedef AisSensorMsg AisWaterFlowMsg;
typedef AisSensorMsg AisCurrentMsg;
typedef AisSensorMsg AisSalinityMsg;

typedef struct AisLockScheduleEntry {
    char name[21];
    AisUtcTime eta;
    int32_t direction;
} AisLockScheduleEntry;
typedef struct AisLockScheduleMsg {
    AisUtcTime utc_time;
    uint8_t count;
    AisLockScheduleEntry entry[6];
} AisLockScheduleMsg;

typedef struct AisProcessionEntry {
    uint64_t userid;
    int32_t order;
} AisProcessionEntry;
typedef struct AisProcessionOrderMsg {
    AisUtcTime utc_time;
    uint8_t count;
    AisProcessionEntry entry[6];
} AisProcessionOrderMsg;

typedef struct AisTidalWindow {
    int64_t lon;
    int64_t lat;
    AisUtcTime from;
    AisUtcTime to;
    int32_t current_dir;
    int32_t current_speed;
} AisTidalWindow;
typedef struct AisTidalWindowMsg {
    uint8_t count;
    AisTidalWindow window[3];
} AisTidalWindowMsg;

typedef struct AisPseudoTarget {
    uint64_t id;
    int64_t lon;
    int64_t lat;
    int32_t cog;
    int32_t sog;
} AisPseudoTarget;
typedef struct AisPseudoTargetMsg {
    uint8_t count;
    AisPseudoTarget target[4];
} AisPseudoTargetMsg;

typedef struct AisLockTimesMsg {
    AisUtcTime utc_time;
    AisUtcTime last_ata;
    AisUtcTime first_eta;
    AisUtcTime second_eta;
} AisLockTimesMsg;

typedef struct AisImo1_12Msg {
    uint64_t userid;
    AisUtcTime atd;
    AisUtcTime eta;
} AisImo1_12Msg;

SixBitReader *get_msg6_data(AisMsg6 *m);
SixBitReader *get_msg8_data(AisMsg8 *m);
SixBitReader *get_msg17_data(AisMsg17 *m);
AisWeatherReport *get_weather_report(AisWeatherMsg *m, unsigned n);
AisSensorReport *get_wind_report(AisWindMsg *m, unsigned n);
AisSensorReport *get_water_level_report(AisWaterLevelMsg *m, unsigned n);
AisSensorReport *get_water_flow_report(AisWaterFlowMsg *m, unsigned n);
AisSensorReport *get_current_report(AisCurrentMsg *m, unsigned n);
AisSensorReport *get_salinity_report(AisSalinityMsg *m, unsigned n);
AisLockScheduleEntry *get_lock_schedule(AisLockScheduleMsg *m, unsigned n);
AisProcessionEntry *get_procession_order(AisProcessionOrderMsg *m, unsigned n);
AisTidalWindow *get_tidal_window(AisTidalWindowMsg *m, unsigned n);
AisPseudoTarget *get_pseudo_target(AisPseudoTargetMsg *m, unsigned n);
AisUtcTime *get_lock_schedule_eta(AisLockScheduleEntry *e);
AisUtcTime *get_lock_times_last_ata(AisLockTimesMsg *m);
AisUtcTime *get_lock_times_first_eta(AisLockTimesMsg *m);
AisUtcTime *get_lock_times_second_eta(AisLockTimesMsg *m);
AisUtcTime *get_imo1_12_atd(AisImo1_12Msg *m);
AisUtcTime *get_imo1_12_eta(AisImo1_12Msg *m);
AisUtcTime *get_weather_utc_time(AisWeatherMsg *m);
AisUtcTime *get_wind_utc_time(AisWindMsg *m);
AisUtcTime *get_water_level_utc_time(AisWaterLevelMsg *m);
AisUtcTime *get_water_flow_utc_time(AisWaterFlowMsg *m);
AisUtcTime *get_lock_schedule_utc_time(AisLockScheduleMsg *m);
AisUtcTime *get_lock_times_utc_time(AisLockTimesMsg *m);
AisUtcTime *get_current_utc_time(AisCurrentMsg *m);
AisUtcTime *get_salinity_utc_time(AisSalinityMsg *m);
AisUtcTime *get_procession_order_utc_time(AisProcessionOrderMsg *m);

/* ---- target rows ---- */

extern AisMsg24 aisPartA; /* the last part A of message 24 */

/* Writes src as a JSON string into dst, which must hold 2*strlen(src)+3
** bytes. */
void aisJsonString(char *dst, const char *src);
/* The most bytes of rows that wait for a status reply. A feed that runs
** while no client asks (a headless host with no page open) would otherwise
** grow the queue for as long as it runs; at the limit the waiting rows,
** stale by then, are dropped and the queue starts again with the new one. */
#define AIS_QUEUE_MAX (4 * 1024 * 1024)
/* Appends "nmea_stat" and the queued rows to a status reply and empties
** the queue. */
void getAisData(ResponseBuffer *b);
time_t getTimeStamp(uint32_t eta);

#endif
