/*
** serial_lines.h -- cutting a serial byte stream into NMEA sentences: the
** accumulator shared by the window's port handler and the headless port
** reader, so that both treat the bytes exactly alike.
*/
#ifndef MAREPLOT_SERIAL_LINES_H
#define MAREPLOT_SERIAL_LINES_H

#include <stddef.h>
#include <stdint.h>

/* An accumulator that reaches this many bytes is cleared whole: the guard
** against a stream with no line ends. */
#define MR_SERIAL_GUARD 201

typedef struct MrSerialLines {
    int32_t len;                 /* bytes held, always below MR_SERIAL_GUARD */
    char data[MR_SERIAL_GUARD];  /* the pending bytes, not zero-terminated */
} MrSerialLines;

/* Receives one sentence, zero-terminated, in a scratch buffer it may edit. */
typedef void (*mr_sentence_fn)(char *sentence);

/* Takes one arrival of n bytes from the port.
**
** While gpsfix.gpsSource is not 1 the bytes are dropped and the
** accumulator is left alone. Otherwise they are appended; when the
** accumulator then holds MR_SERIAL_GUARD bytes or more it is cleared, before
** any line is taken out. Then, while the first line feed stands at an index
** i above 0, the i-1 bytes ahead of it (the line feed and the byte before
** it, the carriage return, are dropped) form a sentence, which goes to
** deliver when nmea_checksum accepts it; the bytes up to and including the
** line feed are removed. A line feed at index 0 stops the cutting.
**
** Returns the number of sentences handed to deliver. */
int mr_serial_arrival(MrSerialLines *acc, const char *bytes, size_t n, mr_sentence_fn deliver);

#endif
