/*
** ais_sixbit.cpp -- the six-bit payload reader: bit fields drawn most
** significant bit first out of the armoured payload text, in place, one
** character at a time.
**
** Armour: '0'..'W' (48..87) carry 0..39, '`'..'w' (96..119) carry 40..63;
** 'X'..'_' are invalid. Inside get_6bit an invalid character reads as the
** byte 255, which is added in at its place like any other value.
*/
#include <string.h>

#include "ais/ais.h"

const uint8_t pow2_mask[8] = {0, 1, 3, 7, 15, 31, 63, 0};

/* Six-bit value of every byte, 255 where the armour has none; the same
** rule as binfrom6bit, computed at compile time. */
struct SixbitTable {
    uint8_t v[256];
    constexpr SixbitTable() : v() {
        for (int c = 0; c < 256; c++) {
            bool bad = c < 48 || c > 119 || (c >= 88 && c <= 95);
            v[c] = bad ? 255 : (uint8_t)((c < 96 ? c + 16 : c + 8) & 0x3f);
        }
    }
};
static constexpr SixbitTable sixbit_table{};

/* Empties the reader: no pending bits, cursor and an empty text at the start
** of bits. Returns 0. */
int init_6bit(SixBitReader *r) {
    r->remainder = 0;
    r->remainderBits = 0;
    r->cursor = r->bits;
    r->bits[0] = 0;
    return 0;
}

/* Reads count bits (0 < count <= 64) and returns them as an unsigned value.
** count <= 0 gives 0 and changes nothing. A read past the end of the text
** returns what the available bits made, with no error; the cursor never
** moves past the terminating NUL. */
uint64_t get_6bit(SixBitReader *r, int16_t count) {
    uint64_t result = 0;
    int n = count;

    if (n <= 0) return 0;
    for (;;) {
        if (r->remainderBits > 0) {
            if (n < r->remainderBits) {
                result = (result << n) + (uint64_t)(r->remainder >> (r->remainderBits - n));
                r->remainderBits = (uint8_t)(r->remainderBits - n);
                r->remainder &= pow2_mask[r->remainderBits];
                return result;
            }
            n -= r->remainderBits;
            /* A pending remainder shorter than 6 bits only exists at the start
            ** of a call, when result is still 0, so the fixed shift is exact. */
            result = (result << 6) + r->remainder;
            r->remainder = 0;
            r->remainderBits = 0;
        }
        if (*r->cursor == 0) return result;
        r->remainder = sixbit_table.v[(uint8_t)*r->cursor];
        r->remainderBits = 6;
        r->cursor++;
        if (n == 0) return result;
    }
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
