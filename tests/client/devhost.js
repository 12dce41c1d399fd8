#!/usr/bin/env node
/*
** devhost.js: a stand-in host for working on the client without building
** the packs. Serves app/ from the source tree (and the npm libraries under
** /app/lib/ as the pack builder names them), keeps /getValue and /setValue
** in memory, and answers the chart routes with a small synthetic chart:
** sea-blue tiles with a land-coloured diagonal, full coverage from zoom 3
** to 12 around 10.1 E, 54.52 N.
**
**   node tests/client/devhost.js [port]      (default 19980)
*/
'use strict';

const http = require('http');
const fs = require('fs');
const path = require('path');
const zlib = require('zlib');

const ROOT = path.resolve(__dirname, '../..');
const LIBS = {
    '/app/hammer-2-0-8.js': 'hammerjs/hammer.min.js',
    '/app/matrix.js': 'transformation-matrix-js/matrix.js',
    '/app/lib/gl-matrix.js': 'gl-matrix/dist/gl-matrix-min.js',
    '/app/lib/earcut.js': 'earcut/dist/earcut.min.js',
    '/app/lib/suncalc.js': 'suncalc/suncalc.js',
    '/app/lib/rawinflate.js': 'zlibjs/bin/rawinflate.min.js',
};

const SEA = [170, 211, 223], LAND = [242, 239, 233];

function crc32(buf) {
    let c, crc = 0xffffffff;
    for (let n = 0; n < buf.length; n++) {
        c = (crc ^ buf[n]) & 0xff;
        for (let k = 0; k < 8; k++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
        crc = (crc >>> 8) ^ c;
    }
    return (crc ^ 0xffffffff) >>> 0;
}

function chunk(type, data) {
    const len = Buffer.alloc(4);
    len.writeUInt32BE(data.length);
    const td = Buffer.concat([Buffer.from(type, 'ascii'), data]);
    const crc = Buffer.alloc(4);
    crc.writeUInt32BE(crc32(td));
    return Buffer.concat([len, td, crc]);
}

/* A 256x256 RGBA tile: land where x + y of the world pixel is below a
** diagonal, sea elsewhere. */
function tilePng(z, y, x) {
    const raw = Buffer.alloc(256 * (256 * 4 + 1));
    const scale = Math.pow(2, 12 - z);
    for (let py = 0; py < 256; py++) {
        raw[py * 1025] = 0;
        for (let px = 0; px < 256; px++) {
            const wx = (x * 256 + px) * scale, wy = (y * 256 + py) * scale;
            const land = ((wx >> 8) + (wy >> 8)) % 7 < 3;
            const c = land ? LAND : SEA, o = py * 1025 + 1 + px * 4;
            raw[o] = c[0]; raw[o + 1] = c[1]; raw[o + 2] = c[2]; raw[o + 3] = 255;
        }
    }
    const ihdr = Buffer.alloc(13);
    ihdr.writeUInt32BE(256, 0);
    ihdr.writeUInt32BE(256, 4);
    ihdr[8] = 8; ihdr[9] = 6;
    return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), chunk('IHDR', ihdr),
        chunk('IDAT', zlib.deflateSync(raw)), chunk('IEND', Buffer.alloc(0))]);
}

function avtiles() {
    const av = {};
    for (let z = 3; z <= 12; z++) {
        const n = Math.pow(2, z);
        const cx = Math.floor((10.1 + 180) / 360 * n);
        const lat = 54.52 * Math.PI / 180;
        const cy = Math.floor((1 - Math.log(Math.tan(lat) + 1 / Math.cos(lat)) / Math.PI) / 2 * n);
        const r = Math.min(12, n);
        for (let y = cy - r; y <= cy + r; y++) {
            for (let x = cx - r; x <= cx + r; x++) {
                if (x >= 0 && y >= 0 && x < n && y < n) av[z * 1099511627776 + y * 1048576 + x] = 1;
            }
        }
    }
    return av;
}

const AV = JSON.stringify(avtiles());
const store = {};

function send(res, code, type, body) {
    res.writeHead(code, { 'Content-Type': type, 'Cache-Control': 'no-cache' });
    res.end(body);
}

function serveFile(res, file) {
    fs.readFile(file, (err, data) => {
        if (err) return send(res, 404, 'text/plain', '404 File not found');
        const ext = path.extname(file);
        const type = { '.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.png': 'image/png' }[ext]
            || 'text/plain';
        send(res, 200, type, data);
    });
}

function handle(req, res, body) {
    const url = decodeURIComponent(req.url.split('?')[0]);
    if (LIBS[url]) {
        return serveFile(res, path.join(ROOT, 'node_modules', LIBS[url]));
    }
    if (url.startsWith('/app/')) return serveFile(res, path.join(ROOT, 'app', url.slice(5)));
    if (url === '/hostversion') {
        return send(res, 200, 'text/plain', JSON.stringify({ hostversion: 'dev', locale: 'en-GB', alang: 'en',
            skin: 'day', device: 'L|linux|1|devhost', appname: 'mareplot' }));
    }
    if (url.startsWith('/getValue/')) {
        const v = store[url.slice(10)];
        return v === undefined ? send(res, 404, 'text/plain', '404') : send(res, 200, 'text/plain', v);
    }
    if (url.startsWith('/setValue/')) {
        store[url.slice(10)] = body;
        return send(res, 200, 'text/plain', 'OK');
    }
    if (url.startsWith('/getSetState/')) return send(res, 200, 'text/plain', '000 OK');
    if (url === '/getMapData/avtiles2') return send(res, 200, 'text/plain', AV);
    if (url === '/getMapData/chartlist') {
        return send(res, 200, 'text/plain', JSON.stringify([{ nu: 'DEV1', na: 'Dev chart', ed: '--', sc: 250000,
            un: 'Meters', sd: '', x1: 21000000, y1: 12800000, x2: 21400000, y2: 13100000,
            po: [21000000, 12800000, 21400000, 12800000, 21400000, 13100000, 21000000, 13100000] }]));
    }
    if (url.startsWith('/getMapData/') || url.startsWith('/getMapDataA/') || url.startsWith('/gazetteer/')) {
        return send(res, 200, 'text/plain', url.endsWith('tides') ? '{}' : '[]');
    }
    if (url.startsWith('/getTileI/')) {
        const id = Number(url.split('/')[3]);
        const z = Math.floor(id / 1099511627776), rest = id - z * 1099511627776;
        return send(res, 200, 'image/png', tilePng(z, Math.floor(rest / 1048576), rest % 1048576));
    }
    if (url.startsWith('/MexecSql') || url.startsWith('/UexecSql')) return send(res, 200, 'text/plain', '[]');
    if (url.startsWith('/setNmeaMode/')) return send(res, 200, 'text/plain', '0');
    if (url.startsWith('/getSetHostStat/')) {
        return send(res, 200, 'text/plain', JSON.stringify({ navtime: 0, fix: 998, latY: 999, lonX: 999, hdg: 511,
            cog: 360, dpt: -100, wdir: -100, wspd: -100, sog: 0, hdop: 0, rot: -128, aisuserid: 0, nmea_stat: 0,
            ais: [], track: [] }));
    }
    return send(res, 404, 'text/plain', '404 File not found');
}

function start(port) {
    const srv = http.createServer((req, res) => {
        const parts = [];
        req.on('data', (d) => parts.push(d));
        req.on('end', () => handle(req, res, Buffer.concat(parts).toString('utf8')));
    });
    srv.listen(port, '127.0.0.1');
    return srv;
}

if (require.main === module) {
    const port = Number(process.argv[2]) || 19980;
    start(port);
    console.log(`devhost on http://127.0.0.1:${port}/app/marepack.html`);
}

module.exports = { start, tilePng };
