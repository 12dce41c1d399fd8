/*
** serial_headless.h -- the serial GPS port of the host without a window:
** the port named in "usbport.key" is read through termios on a thread of
** its own. Also beginSerial, the mode switch's call for the serial feed.
*/
#ifndef MAREPLOT_SERIAL_HEADLESS_H
#define MAREPLOT_SERIAL_HEADLESS_H

#include <stddef.h>
#include <stdint.h>

/* Called by setNmeaMode when the serial feed is chosen. Does nothing: the
** port is opened by the window's menu, or at start by the headless host. */
void beginSerial(void);

/* The port setting kept in "usbport.key": line 1 the port's location, line
** 2 the speed in decimal. */
typedef struct MrSerialSetting {
    char portName[256];
    int32_t baudRate;
} MrSerialSetting;

/* Reads path into *s. The first line (at most 255 bytes, its line end
** removed) is the port, the second (at most 31 bytes) the speed. A missing
** file, an empty first line or a longer one gives "Off"; a missing or
** non-positive speed gives 4800. Returns 0 when the file was read, -1 when it could not be
** opened. */
int mr_serial_read_setting(const char *path, MrSerialSetting *s);

/* The termios speed constant for a speed in baud, or 0 when the speed is
** not one of the standard rates. */
unsigned mr_serial_speed(int32_t baudRate);

/* Reads keyDir/usbport.key and, unless it names "Off", starts a thread
** that opens that port read-only at its speed (8 data bits, no parity, one
** stop bit, no flow control) once the listener is up, and feeds its bytes
** through the same accumulator as the window. A port that cannot be opened
** or goes away is tried again every second. Returns 1 when a reader was
** started, 0 when the setting is "Off". */
int mr_serial_start_headless(void);

#endif
