/*
** ais_bench.cpp -- AIS sentences per second through nmea_update on one
** core, for a receiver-like mix: 74% message 1, 11% message 3, 5% base
** stations (4), 3% static data (5, two sentences each), 2% class B (18)
** and the rest 19, 21 and 24 (parts A and B). The row queue is emptied
** every 1000 sentences, as the status poll would.
**
**   ais_bench [benchmark options]       run the benchmark
**   ais_bench --write-mix FILE [N]      write N messages of the mix to FILE
**                                       (for the gpsdecode comparison)
**   ais_bench --replay FILE             read FILE and pass every line through
**                                       nmea_update once, as a whole process
**                                       to time against gpsdecode on FILE
*/
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "ais/ais.h"
#include "nav/nmea.h"
#include "shell/app_record.h"
#include "tests/support/ais_encoder.h"

/* A base station report re-encoded with the time of day of message i:
** base stations send it a few seconds apart. */
static aisenc::Message withTime(const aisenc::Message &m, int i) {
    const std::pair<const char *, int64_t> times[] = {
        {"utc_year", 2026},           {"utc_month", 11},           {"utc_day", 21},
        {"utc_hour", 5 + i / 720000}, {"utc_minute", (i / 12000) % 60}, {"utc_second", (i / 200) % 60}};
    aisenc::Message out;
    for (aisenc::Field f : m.fields) {
        for (const auto &t : times)
            if (f.name == t.first) f.value = t.second;
        out.add(f);
    }
    return out;
}

/* The sentences of n messages of the mix, in a fixed pseudo-random order. */
static std::vector<std::string> mix(int n) {
    aisenc::Rng rng(4242);
    std::vector<std::string> out;
    for (int i = 0; i < n; i++) {
        int r = (int)aisenc::draw(rng, 0, 99), type;
        if (r < 74) type = 1;
        else if (r < 85) type = 3;
        else if (r < 90) type = 4;
        else if (r < 93) type = 5;
        else if (r < 95) type = 18;
        else if (r < 97) type = 19;
        else if (r < 98) type = 21;
        else type = r == 98 ? 24 : 124;
        aisenc::Message m = aisenc::randomMessage(rng, type);
        if (type == 4) m = withTime(m, i);
        for (const std::string &s : aisenc::sentences(m.bits, "AIVDM", 60, i % 10)) out.push_back(s);
    }
    return out;
}

static void BM_AisMixThroughNmeaUpdate(benchmark::State &state) {
    std::vector<std::string> lines = mix(20000);
    ResponseBuffer status;
    memset(&status, 0, sizeof(status));
    char line[256];
    MR_STORE(mrApp.running, 1);
    nmea_init();
    gpsfix.gpsSource = 0;
    gpsfix.trackOn = 0;
    for (auto _ : state) {
        size_t k = 0;
        for (const std::string &s : lines) {
            memcpy(line, s.c_str(), s.size() + 1);
            nmea_update(line);
            if (++k % 1000 == 0) {
                buffReset(&status);
                getAisData(&status);
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * (int64_t)lines.size());
    buffFree(&status);
}
BENCHMARK(BM_AisMixThroughNmeaUpdate)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
    if (argc >= 3 && strcmp(argv[1], "--write-mix") == 0) {
        FILE *f = fopen(argv[2], "w");
        if (f == NULL) return 1;
        std::vector<std::string> lines = mix(argc >= 4 ? atoi(argv[3]) : 1000000);
        for (const std::string &s : lines) fprintf(f, "%s\n", s.c_str());
        fclose(f);
        printf("%zu sentences\n", lines.size());
        return 0;
    }
    if (argc >= 3 && strcmp(argv[1], "--replay") == 0) {
        FILE *f = fopen(argv[2], "r");
        if (f == NULL) return 1;
        ResponseBuffer status;
        memset(&status, 0, sizeof(status));
        char line[1024];
        long k = 0;
        MR_STORE(mrApp.running, 1);
        nmea_init();
        while (fgets(line, sizeof(line), f)) {
            line[strcspn(line, "\r\n")] = 0;
            nmea_update(line);
            if (++k % 1000 == 0) {
                buffReset(&status);
                getAisData(&status);
            }
        }
        fclose(f);
        buffFree(&status);
        printf("%ld sentences\n", k);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
