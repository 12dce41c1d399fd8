/*
** mercator.cpp -- the Mercator grid: positions to whole grid units. The grid
** is a square of side MERC_SPHERE_BASE with its origin in the north-west
** corner; y grows southward. Results are truncated toward zero.
*/
#include <math.h>

#include "ais/ais.h"
#include "store/pack_store.h"

/* Grid position of a latitude and longitude in degrees; y first, as the
** arguments are ordered. */
void toMerc(double latitude, double longitude, int32_t *y, int32_t *x) {
    const double pi = 3.141592653589793;
    double phi = latitude * pi / 180.0;
    *x = (int32_t)((longitude + 180.0) / 360.0 * MERC_SPHERE_BASE);
    *y = (int32_t)((1.0 - log(tan(phi) + 1.0 / cos(phi)) / pi) * 0.5 * MERC_SPHERE_BASE);
}

/* The same for an AIS position in units of 1/600000 degree. */
void pos2merc(int32_t latitude, int32_t longitude, int32_t *y, int32_t *x) {
    double lat, lon;
    pos2ddd(latitude, longitude, &lat, &lon);
    toMerc(lat, lon, y, x);
}
