// Shared set-up of the navigation unit tests: a running host record, a
// settable clock and an in-memory trip database with the log and kvt tables.
#ifndef MAREPLOT_NAV_SUPPORT_H
#define MAREPLOT_NAV_SUPPORT_H

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string.h>

#include <string>
#include <vector>

#include "nav/nmea.h"
#include "shell/app_record.h"

namespace navtest {

inline time_t &clockNow() {
    static time_t t = 1700000000;
    return t;
}
inline time_t fakeClock(time_t *out) {
    if (out) *out = clockNow();
    return clockNow();
}

class NavFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        clockNow() = 1700000000;
        nmea_clock = fakeClock;
        MR_STORE(mrApp.running, 1);
        sqlite3_open(":memory:", &mrApp.tripDb);
        sqlite3_exec(mrApp.tripDb,
                     "CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT);"
                     "CREATE UNIQUE INDEX i_kv_lk ON kvt(l,k);"
                     "CREATE TABLE log (id INTEGER PRIMARY KEY AUTOINCREMENT, ts INTEGER, x DOUBLE,"
                     " y DOUBLE,t INTEGER,v TEXT);",
                     NULL, NULL, NULL);
        if (mrApp.dbMutex == NULL) mrApp.dbMutex = sqlite3_mutex_alloc(SQLITE_MUTEX_FAST);
        nmea_init();
        MR_STORE(nmea_stat, 0);
        gpsfix.gpsSource = 1;
        gpsfix.nmeaSource = 1;
    }
    void TearDown() override {
        sqlite3_close(mrApp.tripDb);
        mrApp.tripDb = NULL;
        free(mrApp.settingsText);
        mrApp.settingsText = NULL;
        mrApp.settingsCapacity = 0;
        nmea_clock = time;
    }
    // Feeds one line, after moving the clock on by dt seconds.
    void feed(const char *line, int dt = 0) {
        clockNow() += dt;
        std::vector<char> b(line, line + strlen(line) + 1);
        nmea_update(b.data());
    }
    // The rows of sql on the trip database, their columns joined by '|'.
    std::vector<std::string> rows(const char *sql) {
        std::vector<std::string> out;
        sqlite3_stmt *st = NULL;
        sqlite3_prepare_v2(mrApp.tripDb, sql, -1, &st, NULL);
        while (sqlite3_step(st) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(st); i++) {
                const char *t = (const char *)sqlite3_column_text(st, i);
                row += (i ? "|" : "") + std::string(t ? t : "");
            }
            out.push_back(row);
        }
        sqlite3_finalize(st);
        return out;
    }
};

} // namespace navtest

#endif
