/*
** mercator.cpp -- the Mercator grid: positions to whole grid units, for the
** chart packs and the AIS rows. The grid is a square of side
** MERC_SPHERE_BASE with its origin in the north-west corner; y grows
** southward. Results are truncated toward zero.
*/
#include <math.h>

#include "ais/ais.h"
#include "store/pack_store.h"

/* Truncation toward zero into 32 bits. NaN, infinities and values out of
** range give INT32_MIN, what the x86 conversion yields, far outside the
** grid: a position that is none (latitude 91, a pole) reads the same on
** every build instead of being an undefined conversion. */
static int32_t merc_trunc(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return (int32_t)v;
}

/* Grid position of a latitude and longitude in degrees; y first, as the
** arguments are ordered. */
void toMerc(double latitude, double longitude, int32_t *y, int32_t *x) {
    double phi = latitude * M_PI / 180.0;
    *x = merc_trunc((longitude + 180.0) / 360.0 * MERC_SPHERE_BASE);
    *y = merc_trunc((1.0 - log(tan(phi) + 1.0 / cos(phi)) / M_PI) * 0.5 * MERC_SPHERE_BASE);
}

/* The same for an AIS position in units of 1/600000 degree. */
void pos2merc(int32_t latitude, int32_t longitude, int32_t *y, int32_t *x) {
    double lat, lon;
    pos2ddd(latitude, longitude, &lat, &lon);
    toMerc(lat, lon, y, x);
}
