/*
** nav_bench.cpp -- sentences per second through nmea_update on one core,
** for a mixed 1 Hz instrument log (RMC, GGA, HDG, DPT, MWV, ROT) and for
** each sentence type alone. Track recording is off, so no row is written.
*/
#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

#include "nav/nmea.h"
#include "shell/app_record.h"

static const char *const instrumentLog[] = {
    "$GPRMC,123519,A,5430.1234,N,01012.5678,E,5.2,084.4,230394,003.1,W*63",
    "$GPGGA,123519,5430.1234,N,01012.5678,E,1,08,0.9,545.4,M,46.9,M,,*4D",
    "$HCHDG,101.1,,,7.1,W*3C",
    "$SDDPT,12.3,0.5,1.0*61",
    "$WIMWV,214.8,R,10.1,N,A*1C",
    "$TIROT,-3.5,A*10",
};

static void prepare(void) {
    MR_STORE(mrApp.running, 1);
    nmea_init();
    gpsfix.gpsSource = 1;
    gpsfix.trackOn = 0;
}

/* One iteration is one six-sentence second of the log. */
static void BM_NmeaUpdateMixedLog(benchmark::State &state) {
    std::vector<std::vector<char>> lines;
    for (const char *s : instrumentLog) lines.emplace_back(s, s + strlen(s) + 1);
    prepare();
    for (auto _ : state) {
        for (auto &l : lines) nmea_update(l.data());
    }
    state.SetItemsProcessed(state.iterations() * (int64_t)lines.size());
    benchmark::DoNotOptimize(gpsfix);
}
BENCHMARK(BM_NmeaUpdateMixedLog);

static void BM_NmeaUpdateOne(benchmark::State &state) {
    std::string s = instrumentLog[state.range(0)];
    std::vector<char> line(s.begin(), s.end());
    line.push_back(0);
    prepare();
    state.SetLabel(s.substr(3, 3));
    for (auto _ : state) nmea_update(line.data());
    state.SetItemsProcessed(state.iterations());
    benchmark::DoNotOptimize(gpsfix);
}
BENCHMARK(BM_NmeaUpdateOne)->DenseRange(0, 5);

BENCHMARK_MAIN();
