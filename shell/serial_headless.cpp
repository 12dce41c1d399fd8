/*
** serial_headless.cpp -- the serial GPS port without a window. The window's
** menu has no counterpart here; the setting in "usbport.key" takes its
** place and is only read, never rewritten. The reader uses the same
** accumulator rules and the same position-source gate as the window.
*/
#include "shell/serial_headless.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include "http/http_server.h"
#include "nav/nmea.h"
#include "shell/app_record.h"
#include "shell/serial_lines.h"

void beginSerial(void) {}

/* Removes a trailing line end (LF, CR LF or a lone CR). */
static void chop_line_end(char *s) {
    size_t n = strlen(s);
    while (n > 0 && (s[n - 1] == '\n' || s[n - 1] == '\r')) s[--n] = 0;
}

int mr_serial_read_setting(const char *path, MrSerialSetting *s) {
    char speed[32];
    FILE *f;

    MR_BCOPY(s->portName, "Off");
    s->baudRate = 4800;
    f = fopen(path, "r");
    if (f == NULL) return -1;
    if (fgets(s->portName, sizeof(s->portName), f) == NULL) s->portName[0] = 0;
    /* a first line that does not fit names no port: a cut one is another
    ** device, and the rest of it is no speed */
    size_t n = strlen(s->portName);
    if (n == sizeof(s->portName) - 1 && s->portName[n - 1] != '\n' && fgetc(f) != EOF) {
        MR_BCOPY(s->portName, "Off");
        fclose(f);
        return 0;
    }
    chop_line_end(s->portName);
    if (s->portName[0] == 0) MR_BCOPY(s->portName, "Off");
    if (fgets(speed, sizeof(speed), f) != NULL) {
        long v = strtol(speed, NULL, 10);
        if (v > 0 && v <= 4000000) s->baudRate = (int32_t)v;
    }
    fclose(f);
    return 0;
}

unsigned mr_serial_speed(int32_t baudRate) {
    switch (baudRate) {
    case 1200: return B1200;
    case 2400: return B2400;
    case 4800: return B4800;
    case 9600: return B9600;
    case 19200: return B19200;
    case 38400: return B38400;
    case 57600: return B57600;
    case 115200: return B115200;
    case 230400: return B230400;
    default: return 0;
    }
}

/* The one reader's setting and accumulator; the accumulator lives as long
** as the process, also across reopening the port. */
static MrSerialSetting serialSetting;
static MrSerialLines serialLines;

/* Opens the port read-only and sets it raw, 8N1, no flow control, at the
** setting's speed. A device that is no terminal (a FIFO, say) is read as it
** is. Returns the descriptor or -1. */
static int serial_open(const MrSerialSetting *s) {
    struct termios tio;
    speed_t speed = mr_serial_speed(s->baudRate);
    int fd = open(s->portName, O_RDONLY | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return -1;
    if (tcgetattr(fd, &tio) == 0) {
        cfmakeraw(&tio);
        tio.c_cflag &= ~(CSTOPB | PARENB | CRTSCTS | CSIZE);
        tio.c_cflag |= CS8 | CLOCAL | CREAD;
        tio.c_iflag &= ~(IXON | IXOFF | IXANY);
        tio.c_cc[VMIN] = 1;
        tio.c_cc[VTIME] = 0;
        if (speed == 0) speed = B4800;
        cfsetispeed(&tio, speed);
        cfsetospeed(&tio, speed);
        tcsetattr(fd, TCSANOW, &tio);
        tcflush(fd, TCIFLUSH);
    }
    return fd;
}

static void serial_thread(void *unused) {
    char buf[512];
    int reported = 0;
    (void)unused;

    /* The port opens after the listener is up, as the window's does. */
    while (!MR_LOAD(httpd_running)) usleep(100000);
    MR_ADD(mrApp.threadCount, 1);
    for (;;) {
        int fd = serial_open(&serialSetting);
        if (fd < 0) {
            if (!reported) printf("serial port %s: %s, trying again\n", serialSetting.portName, strerror(errno));
            reported = 1;
            sleep(1);
            continue;
        }
        printf("serial port %s open at %d baud\n", serialSetting.portName, (int)serialSetting.baudRate);
        reported = 0;
        for (;;) {
            ssize_t n = read(fd, buf, sizeof(buf));
            if (n > 0) {
                mr_serial_arrival(&serialLines, buf, (size_t)n, nmea_update);
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else {
                break; /* end of data or the device went away */
            }
        }
        close(fd);
        printf("serial port %s closed\n", serialSetting.portName);
        sleep(1);
    }
}

int mr_serial_start_headless(void) {
    char path[512];
    mr_bprintf(path, sizeof(path), "%susbport.key", mrApp.keyDir);
    mr_serial_read_setting(path, &serialSetting);
    if (strcmp(serialSetting.portName, "Off") == 0) return 0;
    if (mr_serial_speed(serialSetting.baudRate) == 0) {
        printf("serial port %s: %d baud is not a standard speed, using 4800\n", serialSetting.portName,
               (int)serialSetting.baudRate);
        serialSetting.baudRate = 4800;
    }
    _beginthread(serial_thread, 0, NULL);
    return 1;
}
