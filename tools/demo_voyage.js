#!/usr/bin/env node
/*
** demo_voyage.js: writes a half-hour NMEA 0183 voyage for the demo.
**
**   node tools/demo_voyage.js [out.nmea]      (default: standard output)
**
** The own ship runs a closed circle of 1.47 km radius at 10 knots in Kiel
** Bay, around the chart's default view, so that a replay in a loop runs on
** without a jump: one RMC, GGA, HDG, DPT and MWV group per second. Around
** it a dozen AIS vessels (class A with position and voyage reports, class
** B with position and name reports) go their ways, an aid to navigation
** marks the fairway, and a SART sends its test message once a minute.
** Everything is computed from fixed numbers, so the file is the same on
** every run.
*/
'use strict';

const fs = require('fs');

const CENTRE = { lat: 54.52, lon: 10.1 };
const DURATION = 1800; // seconds; the own ship's circle takes exactly this
const START = Date.UTC(2026, 5, 21, 10, 0, 0) / 1000;
const M_PER_DEG = 111120;

/* ---- NMEA text -------------------------------------------------------- */

function checksum(body) {
    let c = 0;
    for (let i = 0; i < body.length; i++) c ^= body.charCodeAt(i);
    return c.toString(16).toUpperCase().padStart(2, '0');
}

const sentence = (lead, body) => `${lead}${body}*${checksum(body)}`;

function hhmmss(t) {
    const d = new Date(t * 1000);
    return [d.getUTCHours(), d.getUTCMinutes(), d.getUTCSeconds()].map((v) => String(v).padStart(2, '0')).join('') + '.00';
}

function ddmmyy(t) {
    const d = new Date(t * 1000);
    return [d.getUTCDate(), d.getUTCMonth() + 1, d.getUTCFullYear() % 100].map((v) => String(v).padStart(2, '0')).join('');
}

function nmeaLat(lat) {
    const a = Math.abs(lat), d = Math.floor(a);
    return `${String(d).padStart(2, '0')}${((a - d) * 60).toFixed(4).padStart(7, '0')},${lat < 0 ? 'S' : 'N'}`;
}

function nmeaLon(lon) {
    const a = Math.abs(lon), d = Math.floor(a);
    return `${String(d).padStart(3, '0')}${((a - d) * 60).toFixed(4).padStart(7, '0')},${lon < 0 ? 'W' : 'E'}`;
}

/* RMC of a position p (lat, lon, sog in knots, cog) at t, Unix seconds. */
function rmc(p, t) {
    return sentence('$', `GPRMC,${hhmmss(t)},A,${nmeaLat(p.lat)},${nmeaLon(p.lon)},${p.sog.toFixed(1)},${p.cog.toFixed(1)},${ddmmyy(t)},2.5,E,A`);
}

/* ---- AIS six-bit payloads ---------------------------------------------- */

class Bits {
    constructor() { this.b = []; }
    u(n, v) {
        v = Math.round(v);
        if (v < 0) v += 2 ** n; // two's complement for signed fields
        for (let i = n - 1; i >= 0; i--) this.b.push(Math.floor(v / 2 ** i) % 2);
        return this;
    }
    text(n, s) {
        s = String(s).toUpperCase();
        for (let i = 0; i < n; i++) {
            const c = i < s.length ? s.charCodeAt(i) : 64;
            this.u(6, c >= 64 ? c - 64 : c);
        }
        return this;
    }
    /* Armoured payload and the number of fill bits. */
    armour() {
        const fill = (6 - this.b.length % 6) % 6;
        const b = this.b.concat(new Array(fill).fill(0));
        let s = '';
        for (let i = 0; i < b.length; i += 6) {
            let v = 0;
            for (let j = 0; j < 6; j++) v = v * 2 + b[i + j];
            s += String.fromCharCode(v < 40 ? v + 48 : v + 56);
        }
        return { s, fill };
    }
}

let seqId = 0;

/* VDM sentences of one message, in fragments of at most 60 characters. */
function vdm(bits) {
    const { s, fill } = bits.armour();
    const parts = [];
    for (let i = 0; i < s.length; i += 60) parts.push(s.slice(i, i + 60));
    const seq = parts.length > 1 ? String(seqId++ % 10) : '';
    return parts.map((p, i) => sentence('!', `AIVDM,${parts.length},${i + 1},${seq},A,${p},${i === parts.length - 1 ? fill : 0}`));
}

const lonField = (lon) => lon * 600000;
const latField = (lat) => lat * 600000;

function msg1(v, p, t) {
    return new Bits().u(6, 1).u(2, 0).u(30, v.mmsi).u(4, v.status || 0).u(8, 0).u(10, v.sog * 10).u(1, 1)
        .u(28, lonField(p.lon)).u(27, latField(p.lat)).u(12, v.cog * 10).u(9, Math.round(v.cog)).u(6, t % 60)
        .u(2, 0).u(3, 0).u(1, 0).u(19, 0);
}

function msg5(v) {
    return new Bits().u(6, 5).u(2, 0).u(30, v.mmsi).u(2, 0).u(30, v.imo || 0).text(7, v.call).text(20, v.name)
        .u(8, v.type).u(9, v.len * 0.6).u(9, v.len * 0.4).u(6, v.beam / 2).u(6, v.beam / 2).u(4, 1)
        .u(4, 6).u(5, 21).u(5, 18).u(6, 0).u(8, v.draught * 10).text(20, v.dest).u(1, 0).u(1, 0);
}

function msg18(v, p, t) {
    return new Bits().u(6, 18).u(2, 0).u(30, v.mmsi).u(8, 0).u(10, v.sog * 10).u(1, 1)
        .u(28, lonField(p.lon)).u(27, latField(p.lat)).u(12, v.cog * 10).u(9, 511).u(6, t % 60)
        .u(2, 0).u(1, 1).u(1, 0).u(1, 1).u(1, 1).u(1, 1).u(1, 0).u(1, 0).u(20, 0);
}

function msg24a(v) {
    return new Bits().u(6, 24).u(2, 0).u(30, v.mmsi).u(2, 0).text(20, v.name).u(8, 0);
}

function msg21(a) {
    return new Bits().u(6, 21).u(2, 0).u(30, a.mmsi).u(5, a.kind).text(20, a.name).u(1, 1)
        .u(28, lonField(a.lon)).u(27, latField(a.lat)).u(9, 0).u(9, 0).u(6, 0).u(6, 0).u(4, 1).u(6, 60)
        .u(1, 0).u(8, 0).u(1, 0).u(1, 0).u(1, 0).u(1, 0);
}

function msg14(mmsi, text) {
    return new Bits().u(6, 14).u(2, 0).u(30, mmsi).u(2, 0).text(text.length, text);
}

/* ---- the scene ----------------------------------------------------------- */

/* Position after t seconds on a straight course from (lat, lon). */
function dead(v, t) {
    const d = v.sog * 1852 / 3600 * t, c = v.cog * Math.PI / 180;
    return {
        lat: v.lat + d * Math.cos(c) / M_PER_DEG,
        lon: v.lon + d * Math.sin(c) / (M_PER_DEG * Math.cos(v.lat * Math.PI / 180)),
    };
}

const CLASS_A = [
    { mmsi: 211234560, name: 'NORDLICHT', call: 'DABC1', type: 70, len: 120, beam: 18, draught: 6.5, dest: 'KIEL', lat: 54.47, lon: 10.02, sog: 12, cog: 40 },
    { mmsi: 219876540, name: 'DANA EXPRESS', call: 'OXYZ2', type: 60, len: 180, beam: 27, draught: 6.2, dest: 'OSLO', lat: 54.56, lon: 10.2, sog: 16, cog: 330 },
    { mmsi: 265112230, name: 'BALTIC TRADER', call: 'SFGH3', type: 79, len: 90, beam: 14, draught: 5.1, dest: 'GDANSK', lat: 54.5, lon: 10.25, sog: 9, cog: 250 },
    { mmsi: 230998870, name: 'SUOMI', call: 'OJKL4', type: 80, len: 150, beam: 22, draught: 8.9, dest: 'HAMINA', lat: 54.44, lon: 10.15, sog: 11, cog: 15 },
    { mmsi: 244660990, name: 'DOLFIJN', call: 'PDMN5', type: 30, len: 24, beam: 6, draught: 3.0, dest: 'FISHING', lat: 54.53, lon: 10.0, sog: 4, cog: 100 },
    { mmsi: 211445560, name: 'KIELER FOERDE', call: 'DCDE6', type: 60, len: 45, beam: 9, draught: 2.5, dest: 'LABOE', lat: 54.41, lon: 10.18, sog: 8, cog: 200 },
    { mmsi: 257334450, name: 'FJORDLINE', call: 'LAPQ7', type: 69, len: 200, beam: 30, draught: 7.0, dest: 'KIEL', lat: 54.6, lon: 10.12, sog: 14, cog: 185, status: 0 },
    { mmsi: 211887760, name: 'ANKERLIEGER', call: 'DRST8', type: 70, len: 110, beam: 16, draught: 6.0, dest: 'KIEL ROADS', lat: 54.48, lon: 10.22, sog: 0, cog: 0, status: 1 },
];

const CLASS_B = [
    { mmsi: 211556670, name: 'SEESCHWALBE', lat: 54.52, lon: 10.05, sog: 5, cog: 80 },
    { mmsi: 219445580, name: 'HYGGE', lat: 54.5, lon: 10.13, sog: 6, cog: 300 },
    { mmsi: 211778890, name: 'MOEWE', lat: 54.545, lon: 10.08, sog: 4.5, cog: 160 },
    { mmsi: 232001120, name: 'WIND SPIRIT', lat: 54.49, lon: 10.07, sog: 7, cog: 20 },
];

const ATON = { mmsi: 992111222, kind: 13, name: 'KIEL LT FAIRWAY', lat: 54.505, lon: 10.155 };
const SART = { mmsi: 970012345, lat: 54.535, lon: 10.16 };

/* The own ship: a circle around the centre, counter-clockwise. */
function ownShip(t) {
    const R = 10 * 1852 / 3600 * DURATION / (2 * Math.PI);
    const a = 2 * Math.PI * t / DURATION;
    const lat = CENTRE.lat + R * Math.sin(a) / M_PER_DEG;
    const lon = CENTRE.lon + R * Math.cos(a) / (M_PER_DEG * Math.cos(CENTRE.lat * Math.PI / 180));
    const cog = ((360 - a * 180 / Math.PI) % 360 + 360) % 360; // tangent heading
    return { lat, lon, cog, sog: 10 };
}

function voyage() {
    const out = [];
    for (let s = 0; s < DURATION; s++) {
        const t = START + s, o = ownShip(s);
        const hdg = (o.cog + 3 + 360) % 360;
        const depth = 14 + 6 * Math.sin(s / 120);
        const wind = { angle: ((225 - hdg) % 360 + 360) % 360, speed: 12 + 3 * Math.sin(s / 90) };
        out.push(rmc(o, t));
        out.push(sentence('$', `GPGGA,${hhmmss(t)},${nmeaLat(o.lat)},${nmeaLon(o.lon)},1,09,0.9,3.0,M,39.0,M,,`));
        out.push(sentence('$', `HCHDG,${hdg.toFixed(1)},,,2.5,E`));
        // the host adds the third field to the first: depth below the
        // transducer plus the transducer's 0.5 m gives the depth shown
        out.push(sentence('$', `SDDPT,${(depth - 0.5).toFixed(1)},0.5,0.5`));
        out.push(sentence('$', `WIMWV,${wind.angle.toFixed(1)},R,${wind.speed.toFixed(1)},N,A`));
        CLASS_A.forEach((v, i) => {
            if ((s + i) % 10 === 0) out.push(...vdm(msg1(v, dead(v, s), t)));
            if ((s + i * 3) % 60 === 0) out.push(...vdm(msg5(v)));
        });
        CLASS_B.forEach((v, i) => {
            if ((s + i) % 30 === 0) out.push(...vdm(msg18(v, dead(v, s), t)));
            if ((s + i * 5) % 60 === 0) out.push(...vdm(msg24a(v)));
        });
        if (s % 60 === 7) out.push(...vdm(msg21(ATON)));
        if (s % 60 === 30) {
            out.push(...vdm(msg1({ mmsi: SART.mmsi, status: 15, sog: 0, cog: 0 }, SART, t)));
            out.push(...vdm(msg14(SART.mmsi, 'SART TEST')));
        }
    }
    return out.join('\r\n') + '\r\n';
}

if (require.main === module) {
    const text = voyage();
    if (process.argv[2]) fs.writeFileSync(process.argv[2], text);
    else process.stdout.write(text);
}

module.exports = { voyage, vdm, msg1, msg5, msg14, rmc, checksum, ownShip, DURATION };
