/*
** ais_nmea.js: NMEA lines for the page tests, so that they can make their
** own traffic and feed it through nmea_replay: an RMC of the own boat and
** AIS position reports (message 1), encoded by the demo voyage's writer.
*/
'use strict';

const demo = require('../../tools/demo_voyage');

/* Message 1 of a class A ship: sog in knots, cog in degrees (the heading
** follows the course). */
function msg1({ mmsi, lat, lon, sog = 0, cog = 0, status = 0 }) {
    return demo.vdm(demo.msg1({ mmsi, sog, cog, status }, { lat, lon }, 0))[0];
}

function dm(v, degDigits) {
    const a = Math.abs(v), d = Math.floor(a), m = (a - d) * 60;
    return String(d).padStart(degDigits, '0') + m.toFixed(4).padStart(7, '0');
}

/* RMC of the own boat at a given time (Date, default now), speed in knots. */
function rmc({ lat, lon, sog = 0, cog = 0, time }) {
    const t = time || new Date();
    const p2 = (n) => String(n).padStart(2, '0');
    const hms = p2(t.getUTCHours()) + p2(t.getUTCMinutes()) + p2(t.getUTCSeconds()) + '.00';
    const date = p2(t.getUTCDate()) + p2(t.getUTCMonth() + 1) + p2(t.getUTCFullYear() % 100);
    const body = 'GPRMC,' + hms + ',A,' + dm(lat, 2) + ',' + (lat < 0 ? 'S' : 'N') + ',' + dm(lon, 3) + ',' +
        (lon < 0 ? 'W' : 'E') + ',' + sog.toFixed(1) + ',' + cog.toFixed(1) + ',' + date + ',,';
    return '$' + body + '*' + demo.checksum(body);
}

module.exports = { msg1, rmc };
