/*
** ais_binary.cpp -- accessors into the records of binary application
** messages (messages 6, 8 and 17 and the records decoded from their data).
** They compute where a member lies and decode nothing.
**
** An indexed accessor returns NULL when the index is above its bound. The
** index is unsigned, so the bound is the only test needed, and each array
** holds bound + 1 entries so every index that passes lies inside it.
*/
#include <stddef.h>

#include "ais/ais.h"

#define AIS_ELEMENT(m, array, n, bound) ((n) > (bound) ? NULL : &(m)->array[(n)])

SixBitReader *get_msg6_data(AisMsg6 *m) { return &m->data; }
SixBitReader *get_msg8_data(AisMsg8 *m) { return &m->data; }
SixBitReader *get_msg17_data(AisMsg17 *m) { return &m->data; }

AisWeatherReport *get_weather_report(AisWeatherMsg *m, unsigned n) {
    return AIS_ELEMENT(m, report, n, 3u);
}
AisSensorReport *get_wind_report(AisWindMsg *m, unsigned n) {
    return AIS_ELEMENT(m, report, n, 5u);
}
AisSensorReport *get_water_level_report(AisWaterLevelMsg *m, unsigned n) {
    return AIS_ELEMENT(m, report, n, 5u);
}
AisSensorReport *get_water_flow_report(AisWaterFlowMsg *m, unsigned n) {
    return AIS_ELEMENT(m, report, n, 5u);
}
AisSensorReport *get_current_report(AisCurrentMsg *m, unsigned n) {
    return AIS_ELEMENT(m, report, n, 5u);
}
AisSensorReport *get_salinity_report(AisSalinityMsg *m, unsigned n) {
    return AIS_ELEMENT(m, report, n, 5u);
}
AisLockScheduleEntry *get_lock_schedule(AisLockScheduleMsg *m, unsigned n) {
    return AIS_ELEMENT(m, entry, n, 5u);
}
AisProcessionEntry *get_procession_order(AisProcessionOrderMsg *m, unsigned n) {
    return AIS_ELEMENT(m, entry, n, 5u);
}
AisTidalWindow *get_tidal_window(AisTidalWindowMsg *m, unsigned n) {
    return AIS_ELEMENT(m, window, n, 2u);
}
AisPseudoTarget *get_pseudo_target(AisPseudoTargetMsg *m, unsigned n) {
    return AIS_ELEMENT(m, target, n, 3u);
}

AisUtcTime *get_lock_schedule_eta(AisLockScheduleEntry *e) { return &e->eta; }
AisUtcTime *get_lock_times_last_ata(AisLockTimesMsg *m) { return &m->last_ata; }
AisUtcTime *get_lock_times_first_eta(AisLockTimesMsg *m) { return &m->first_eta; }
AisUtcTime *get_lock_times_second_eta(AisLockTimesMsg *m) { return &m->second_eta; }
AisUtcTime *get_imo1_12_atd(AisImo1_12Msg *m) { return &m->atd; }
AisUtcTime *get_imo1_12_eta(AisImo1_12Msg *m) { return &m->eta; }

/* Each time-stamped record opens with its UTC time. */
AisUtcTime *get_weather_utc_time(AisWeatherMsg *m) { return &m->utc_time; }
AisUtcTime *get_wind_utc_time(AisWindMsg *m) { return &m->utc_time; }
AisUtcTime *get_water_level_utc_time(AisWaterLevelMsg *m) { return &m->utc_time; }
AisUtcTime *get_water_flow_utc_time(AisWaterFlowMsg *m) { return &m->utc_time; }
AisUtcTime *get_lock_schedule_utc_time(AisLockScheduleMsg *m) { return &m->utc_time; }
AisUtcTime *get_lock_times_utc_time(AisLockTimesMsg *m) { return &m->utc_time; }
AisUtcTime *get_current_utc_time(AisCurrentMsg *m) { return &m->utc_time; }
AisUtcTime *get_salinity_utc_time(AisSalinityMsg *m) { return &m->utc_time; }
AisUtcTime *get_procession_order_utc_time(AisProcessionOrderMsg *m) { return &m->utc_time; }
