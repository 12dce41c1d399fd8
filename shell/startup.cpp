/*
** startup.cpp -- the data directory and the carried packs: the file steps
** that the window constructor and the headless host both run before the
** service starts, and the device identity string.
*/
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "shell/app_record.h"

static int dir_exists(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

static int file_exists(const char *path) {
    struct stat st;
    return stat(path, &st) == 0;
}

/* Creates every missing directory of path, like mkdir -p. Returns 0 or -1. */
static int make_parents(const char *path) {
    char tmp[1024];
    if (strlen(path) >= sizeof(tmp)) return -1;
    strcpy(tmp, path);
    for (char *p = tmp + 1; *p; p++) {
        if (*p != '/') continue;
        *p = 0;
        if (mkdir(tmp, 0755) != 0 && errno != EEXIST) return -1;
        *p = '/';
    }
    if (mkdir(tmp, 0755) != 0 && errno != EEXIST) return -1;
    return 0;
}

/* Writes parent + "/mareplot" into dir. Returns 0, or -2 when that is
** longer than MR_DATA_DIR_MAX or than dir holds. */
static int data_dir_join(char *dir, size_t size, const char *parent) {
    size_t n = strlen(parent) + strlen("/mareplot");
    if (n > MR_DATA_DIR_MAX || n >= size) return -2;
    snprintf(dir, size, "%s/mareplot", parent);
    return 0;
}

/* Fills dir with the data directory: "$HOME/Library/Application Support/
** mareplot" where "$HOME/Library/Application Support" exists; otherwise
** "$XDG_DATA_HOME/mareplot" (an absolute XDG_DATA_HOME only), by default
** "$HOME/.local/share/mareplot". The parents of the Linux places are
** created; the directory itself is left to mr_settle_packs.
** Returns 0, -1 when HOME is unset and no XDG_DATA_HOME is given, or -2
** (nothing created) when the path would be longer than MR_DATA_DIR_MAX. */
int mr_data_dir(char *dir, size_t size) {
    const char *home = getenv("HOME");
    const char *xdg = getenv("XDG_DATA_HOME");
    char parent[1024];
    int n;

    if (home && *home) {
        n = snprintf(parent, sizeof(parent), "%s/Library/Application Support", home);
        if (n > 0 && (size_t)n < sizeof(parent) && dir_exists(parent))
            return data_dir_join(dir, size, parent);
    }
    if (xdg && xdg[0] == '/') {
        n = snprintf(parent, sizeof(parent), "%s", xdg);
    } else if (home && *home) {
        n = snprintf(parent, sizeof(parent), "%s/.local/share", home);
    } else {
        return -1;
    }
    /* the environment is outside input: a path too long is refused whole */
    if (n < 0 || (size_t)n >= sizeof(parent) || data_dir_join(dir, size, parent) != 0) return -2;
    make_parents(parent);
    return 0;
}

/* The lock file's descriptor; it stays open, and so locked, for the
** life of the process. */
static int dataDirLock = -1;

int mr_lock_data_dir(const char *dataDir, char *message, size_t size) {
    char path[1024];
    if (dataDirLock >= 0) return 0;
    if (snprintf(path, sizeof(path), "%s/mareplot.lock", dataDir) >= (int)sizeof(path)) return -1;
    /* The directory's one mkdir, as mr_settle_packs would make it. */
    if (!dir_exists(dataDir)) mkdir(dataDir, 0755);
    /* Close-on-exec: a program started later (the web engine's helpers, the
    ** desktop's mail or browser) must not hold the lock after we are gone. */
    int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        int busy = errno == EWOULDBLOCK;
        close(fd);
        if (!busy) return -1;
        snprintf(message, size, "mareplot is already running with %s", dataDir);
        return 1;
    }
    dataDirLock = fd;
    return 0;
}

/* The constructor's file steps, in their order: one mkdir of the data
** directory (parents not created, result not looked at), chdir into it,
** read 10 bytes of "version.key", and when that stamp differs from the host
** version or either pack is missing: delete both packs, write the stamp,
** then copy both carried packs. Failures are not reported; the next start
** repairs a missing pack. Returns 1 when the packs were written, else 0. */
int mr_settle_packs(const char *dataDir, mr_copy_resource_fn copy) {
    char stamp[MR_HOST_VERSION_LEN + 1];
    ssize_t got = 0;
    int fd;
    int replace;

    if (!dir_exists(dataDir)) mkdir(dataDir, 0755);
    if (chdir(dataDir) != 0) { /* not reported; names stay relative */
    }

    memset(stamp, 0, sizeof(stamp));
    fd = open("version.key", O_RDONLY);
    if (fd >= 0) {
        got = read(fd, stamp, MR_HOST_VERSION_LEN);
        if (got < 0) got = 0;
    }
    stamp[got] = 0;

    replace = got != MR_HOST_VERSION_LEN || memcmp(stamp, MR_HOST_VERSION, MR_HOST_VERSION_LEN) != 0 ||
              !file_exists("A000001.marepack") || !file_exists("A000002.marepack");
    if (replace) {
        unlink("A000001.marepack");
        unlink("A000002.marepack");
        if (fd >= 0) close(fd);
        /* the stamp is written before the two copies */
        fd = open("version.key", O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            ssize_t w = write(fd, MR_HOST_VERSION, MR_HOST_VERSION_LEN);
            (void)w;
        }
        copy(":/A000001.marepack", "A000001.marepack");
        copy(":/A000002.marepack", "A000002.marepack");
    }
    if (fd >= 0) close(fd);
    return replace;
}

/* A stable device identity: "mareplot-" and 16 hexadecimal digits of a
** hash of the machine id (or, without one, the host name). */
void mr_device_identity(char *out, size_t size) {
    char id[256];
    unsigned long long h = 1469598103934665603ULL;
    FILE *f = fopen("/etc/machine-id", "r");
    memset(id, 0, sizeof(id));
    if (f == NULL) f = fopen("/var/lib/dbus/machine-id", "r");
    if (f) {
        if (fgets(id, sizeof(id), f) == NULL) id[0] = 0;
        fclose(f);
    }
    if (id[0] == 0) gethostname(id, sizeof(id) - 1);
    for (const char *p = id; *p && *p != '\n'; p++) {
        h ^= (unsigned char)*p;
        h *= 1099511628211ULL;
    }
    snprintf(out, size, "mareplot-%016llx", h);
}
