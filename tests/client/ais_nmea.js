/*
** ais_nmea.js: NMEA lines for the page tests: an RMC of the own boat and
** AIS position reports (message 1) armoured into !AIVDM sentences, so the
** tests can make their own traffic and feed it through nmea_replay.
*/
'use strict';

function checksum(body) {
    let c = 0;
    for (let i = 0; i < body.length; i++) c ^= body.charCodeAt(i);
    return c.toString(16).toUpperCase().padStart(2, '0');
}

/* Bits appended most significant first; signed values in two's complement. */
class Bits {
    constructor() { this.b = []; }
    put(v, n) {
        let x = BigInt.asUintN(n, BigInt(Math.round(v)));
        for (let i = n - 1; i >= 0; i--) this.b.push(Number((x >> BigInt(i)) & 1n));
        return this;
    }
    armour() {
        let out = '';
        for (let i = 0; i < this.b.length; i += 6) {
            let v = 0;
            for (let j = 0; j < 6; j++) v = v * 2 + (this.b[i + j] || 0);
            out += String.fromCharCode(v < 40 ? v + 48 : v + 56);
        }
        return out;
    }
}

/* Message 1: position report of a class A ship. sog in knots, cog and hdg
** in degrees, rot the raw AIS code (-128 none). */
function msg1({ mmsi, lat, lon, sog = 0, cog = 0, hdg = 511, rot = -128, status = 0 }) {
    const b = new Bits().put(1, 6).put(0, 2).put(mmsi, 30).put(status, 4).put(rot, 8).put(sog * 10, 10).put(0, 1)
        .put(lon * 600000, 28).put(lat * 600000, 27).put(cog * 10, 12).put(hdg, 9).put(30, 6).put(0, 2).put(0, 3)
        .put(0, 1).put(0, 19);
    const body = 'AIVDM,1,1,,A,' + b.armour() + ',0';
    return '!' + body + '*' + checksum(body);
}

function dm(v, degDigits) {
    const a = Math.abs(v), d = Math.floor(a), m = (a - d) * 60;
    return String(d).padStart(degDigits, '0') + m.toFixed(4).padStart(7, '0');
}

/* RMC of the own boat at a given time (Date), speed in knots. */
function rmc({ lat, lon, sog = 0, cog = 0, time }) {
    const t = time || new Date();
    const p2 = (n) => String(n).padStart(2, '0');
    const hms = p2(t.getUTCHours()) + p2(t.getUTCMinutes()) + p2(t.getUTCSeconds()) + '.00';
    const date = p2(t.getUTCDate()) + p2(t.getUTCMonth() + 1) + p2(t.getUTCFullYear() % 100);
    const body = 'GPRMC,' + hms + ',A,' + dm(lat, 2) + ',' + (lat < 0 ? 'S' : 'N') + ',' + dm(lon, 3) + ',' +
        (lon < 0 ? 'W' : 'E') + ',' + sog.toFixed(1) + ',' + cog.toFixed(1) + ',' + date + ',,';
    return '$' + body + '*' + checksum(body);
}

module.exports = { msg1, rmc, checksum };
