/*
** ais_sixbit.cpp -- the six-bit payload reader: bit fields drawn most
** significant bit first out of the armoured payload text, in place, one
** character at a time.
**
** Armour: '0'..'W' (48..87) carry 0..39, '`'..'w' (96..119) carry 40..63;
** 'X'..'_' are invalid. get_6bit itself is inline in ais.h.
*/
#include <string.h>

#include "ais/ais.h"

/* Empties the reader: no pending bits, cursor and an empty text at the start
** of bits. Returns 0. */
int init_6bit(SixBitReader *r) {
    r->remainder = 0;
    r->remainderBits = 0;
    r->cursor = r->bits;
    r->bits[0] = 0;
    return 0;
}

/* Six-bit value of the character in the low eight bits of c: 0..63, or -1
** outside the armour. */
int32_t binfrom6bit(int32_t c) {
    int32_t code = c & 0xff;
    if (code < 48 || code > 119 || (code >= 88 && code <= 95)) return -1;
    return (code < 96 ? code + 16 : code + 8) & 0x3f;
}

/* Armour character of a value taken as signed 8 bits; -1 above 63. Negative
** values are not refused. */
int32_t binto6bit(int32_t value) {
    int8_t v = (int8_t)value;
    if (v > 63) return -1;
    return v < 40 ? v + 48 : v + 56;
}

/* Bit length of the whole payload plus the pending remainder; it does not
** shrink as the cursor advances. */
uint32_t sixbit_length(const SixBitReader *r) {
    return (uint32_t)r->remainderBits + 6u * (uint32_t)strlen(r->bits);
}
