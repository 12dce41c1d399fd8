/*
** keys_fuzz.cpp -- fuzz target for the key files of the data directory:
** the input holds the contents of alang.key, skin.key, version.key,
** usbport.key and chartserver.key, separated by "--next--\n" (a missing
** part leaves its file absent). They are read as the host reads them at
** start and later: the application record with language and skin and the
** reply of /hostversion that carries both, the version stamp that decides
** whether the carried packs are written out, the serial port setting and
** the chart server's address.
*/
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "fuzz_feed.h"
#include "fuzz_support.h"
#include "http/routes.h"
#include "shell/serial_headless.h"
#include "store/pack_store.h"

static const char *const keyNames[5] = {"alang.key", "skin.key", "version.key", "usbport.key",
                                        "chartserver.key"};

/* Stands in for copying a carried pack out of the resources. */
static int fake_copy(const char *resource, const char *fileName) {
    (void)resource;
    return fuzz_write_file(fileName, "pack", 4);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_fill_app();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<std::string> parts = fuzz_parts(data, size);
    for (size_t i = 0; i < 5 && i < parts.size(); i++) fuzz_write_file(keyNames[i], parts[i].data(), parts[i].size());

    /* start: the record, then what the client asks first */
    sqlite3_mutex *mutex = mrApp.dbMutex;
    mr_app_fill("de", "mareplot-fuzz", fuzz_dir(), "mareplot");
    mrApp.dbMutex = mutex;
    MR_STORE(mrApp.running, 1);
    route_get(fuzz_out(), "/hostversion");

    /* the version stamp; the steps change directory, so come back after */
    int here = open(".", O_RDONLY | O_DIRECTORY);
    mr_settle_packs(fuzz_dir(), fake_copy);
    if (here >= 0) {
        if (fchdir(here) != 0) abort();
        close(here);
    }

    MrSerialSetting serial;
    mr_serial_read_setting(fuzz_path("usbport.key"), &serial);
    mr_serial_speed(serial.baudRate);

    char host[256];
    download_server_host(host, sizeof(host));
    char small[4] = "xx";
    mrc_read_regkey("chartserver", small, sizeof(small));

    fuzz_clear_dir();
    return 0;
}
