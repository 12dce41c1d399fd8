/*
** browser.js: runs the real host and a headless Chromium for the page
** tests and the benchmark.
**
** startHost() starts mareplotd (MAREPLOTD, default build/mareplotd) with
** HOME in a fresh temporary directory and waits until /hostversion
** answers on 127.0.0.1:19999; it refuses to start while anything else
** answers there. The port is fixed: tests run through
** tests/support/isolate.sh, which gives each a loopback of its own.
** openPage() launches Debian's chromium through playwright-core with a
** fresh profile; Playwright never downloads a browser of its own.
** withPage() wraps both for one test, loaded() waits for the page's first
** render pass, configure() stores settings and reloads, replay() serves
** NMEA through nmea_replay on a free port, drag() moves the mouse with
** its button down. The journeys build on these helpers.
*/
'use strict';

const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const http = require('http');
const { spawn } = require('child_process');

const ROOT = path.resolve(__dirname, '../..');
const MAREPLOTD = process.env.MAREPLOTD || path.join(ROOT, 'build/mareplotd');
const CHROMIUM = process.env.CHROMIUM || '/usr/bin/chromium';
const ORIGIN = 'http://127.0.0.1:19999';
const PAGE = ORIGIN + '/app/marepack.html';
const REPLAY = process.env.NMEA_REPLAY || path.join(path.dirname(MAREPLOTD), 'nmea_replay');

function get(url) {
    return new Promise((resolve) => {
        const req = http.get(url, (res) => {
            const parts = [];
            res.on('data', (d) => parts.push(d));
            res.on('end', () => resolve({ status: res.statusCode, body: Buffer.concat(parts).toString('utf8') }));
        });
        req.on('error', () => resolve({ status: 0, body: '' }));
        req.setTimeout(2000, () => req.destroy());
    });
}

/* True once nothing answers on the host's port, polled for at most ms. */
async function portFree(ms) {
    const end = Date.now() + ms;
    for (;;) {
        const r = await get(ORIGIN + '/hostversion');
        if (r.status === 0) return true;
        if (Date.now() >= end) return false;
        await new Promise((res) => setTimeout(res, 50));
    }
}

async function startHost() {
    /* whatever answers before ours starts is a stranger the test would
    ** talk to instead (SO_REUSEPORT even lets ours listen beside it) */
    if (!await portFree(5000)) {
        throw new Error('something already listens on 127.0.0.1:19999 before the test\'s host starts; ' +
            'stop it, or run the test through tests/support/isolate.sh');
    }
    const home = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-client-'));
    const env = Object.assign({}, process.env, { HOME: home });
    delete env.XDG_DATA_HOME;
    const proc = spawn(MAREPLOTD, [], { env, stdio: ['ignore', 'ignore', 'inherit'] });
    let exited = false;
    const gone = new Promise((res) => proc.on('exit', () => { exited = true; res(); }));
    /* the start writes both carried packs: slow under the sanitizers */
    const end = Date.now() + 60000;
    while (!exited && Date.now() < end) {
        const r = await get(ORIGIN + '/hostversion');
        if (r.status === 200 && !exited) {
            return {
                home,
                /* ends the host and waits until it is gone and the port free */
                async stop() {
                    if (!exited) proc.kill('SIGTERM');
                    await gone;
                    fs.rmSync(home, { recursive: true, force: true });
                    if (!await portFree(10000)) throw new Error('127.0.0.1:19999 still answers after the host ended');
                },
            };
        }
        await new Promise((res) => setTimeout(res, 50));
    }
    if (!exited) {
        proc.kill('SIGKILL');
        await gone;
    }
    fs.rmSync(home, { recursive: true, force: true });
    throw new Error('mareplotd did not start on ' + ORIGIN + (exited ? ' (it ended)' : ' within 60 s'));
}

async function openPage(opts) {
    const { chromium } = require(path.join(ROOT, 'node_modules/playwright-core'));
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-chromium-'));
    const ctx = await chromium.launchPersistentContext(dir, {
        executablePath: CHROMIUM,
        headless: true,
        args: ['--headless', '--no-sandbox', '--enable-unsafe-swiftshader', '--disable-background-networking',
            '--disable-component-update', '--disable-sync', '--no-first-run'],
        viewport: { width: (opts && opts.width) || 1280, height: (opts && opts.height) || 800 },
        hasTouch: !!(opts && opts.touch),
    });
    const page = ctx.pages()[0] || await ctx.newPage();
    page.errors = [];
    page.on('pageerror', (e) => page.errors.push(e.message));
    page.on('dialog', (d) => d.dismiss());
    return {
        page,
        async close() {
            await ctx.close();
            fs.rmSync(dir, { recursive: true, force: true });
        },
    };
}

/*
** Writes a chart pack into the host's data directory: tiles is an object of
** tile id to PNG bytes, docs an object of kvt key to JSON value. Uses the
** sqlite3 shell, so the pack is made the way any SQLite client would.
*/
function writeChartPack(home, name, tiles, docs) {
    const file = path.join(home, '.local/share/mareplot', name);
    if (fs.existsSync(file)) return file;
    const sql = ['CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT);', 'CREATE INDEX i_kv_lk ON kvt(l,k);',
        'CREATE TABLE tiles (verid INTEGER, zyx INTEGER PRIMARY KEY, png BLOB);', 'BEGIN;'];
    for (const id of Object.keys(tiles)) sql.push(`INSERT INTO tiles VALUES(1,${id},X'${tiles[id].toString('hex')}');`);
    for (const k of Object.keys(docs)) {
        sql.push(`INSERT INTO kvt VALUES('${k}','${JSON.stringify(docs[k]).replace(/'/g, "''")}',5,'**');`);
    }
    sql.push('COMMIT;');
    const r = require('child_process').spawnSync('sqlite3', [file], { input: sql.join('\n') });
    if (r.status !== 0) throw new Error('sqlite3: ' + r.stderr);
    return file;
}

/* A 256 by 256 PNG of one colour. */
function solidPng(rgb) {
    const crc32 = (buf) => {
        let crc = 0xffffffff;
        for (const b of buf) {
            crc ^= b;
            for (let k = 0; k < 8; k++) crc = crc & 1 ? 0xedb88320 ^ (crc >>> 1) : crc >>> 1;
        }
        return (crc ^ 0xffffffff) >>> 0;
    };
    const chunk = (type, data) => {
        const td = Buffer.concat([Buffer.from(type, 'ascii'), data]), out = Buffer.alloc(td.length + 8);
        out.writeUInt32BE(data.length, 0);
        td.copy(out, 4);
        out.writeUInt32BE(crc32(td), td.length + 4);
        return out;
    };
    const row = Buffer.concat([Buffer.from([0]), Buffer.from(new Array(256).fill(rgb).flat())]);
    const ihdr = Buffer.from([0, 0, 1, 0, 0, 0, 1, 0, 8, 2, 0, 0, 0]); // 256 x 256, 8-bit RGB
    return Buffer.concat([Buffer.from([137, 80, 78, 71, 13, 10, 26, 10]), chunk('IHDR', ihdr),
        chunk('IDAT', require('zlib').deflateSync(Buffer.concat(new Array(256).fill(row)))), chunk('IEND', Buffer.alloc(0))]);
}

/* A pack of our own, A000003.marepack: every tile from zoom 3 to 10
** around 10.1 E, 54.52 N, full, each of one of two known colours, sea
** [170, 211, 223] or land [242, 239, 233], in diagonal bands. For checks
** that must not depend on the content of the carried chart pack. */
function syntheticPack(home) {
    const sea = solidPng([170, 211, 223]), land = solidPng([242, 239, 233]);
    const tiles = {}, av = {};
    const lat = 54.52 * Math.PI / 180;
    for (let z = 3; z <= 10; z++) {
        const n = Math.pow(2, z);
        const cx = Math.floor((10.1 + 180) / 360 * n);
        const cy = Math.floor((1 - Math.log(Math.tan(lat) + 1 / Math.cos(lat)) / Math.PI) / 2 * n);
        for (let y = Math.max(0, cy - 12); y <= Math.min(n - 1, cy + 12); y++) {
            for (let x = Math.max(0, cx - 12); x <= Math.min(n - 1, cx + 12); x++) {
                const id = z * 1099511627776 + y * 1048576 + x;
                tiles[id] = (x + y) % 7 < 3 ? land : sea;
                av[id] = 1;
            }
        }
    }
    return writeChartPack(home, 'A000003.marepack', tiles, { avtiles2: av, chartlist: [] });
}

/* Waits until the page has started and made its first render pass. */
function loaded(page, timeout) {
    return page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0, null,
        { timeout: timeout || 30000 });
}

/* Waits for a render pass with every tile of the view drawn (a deadline
** for a loaded machine and a sanitizer build of the host). */
async function settled(page, timeout) {
    await page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0 &&
        cpApp.map.queueWait === 0 && cpApp.map.lastMouseB === 0 && cpApp.map.lastCx === cpApp.map.cx &&
        cpApp.map.lastSf === cpApp.map.base, null, { timeout: timeout || 60000 });
}

/* Stores settings through the page, then reloads it. */
async function setAndReload(page, fn, arg) {
    await page.evaluate(fn, arg);
    await page.evaluate(() => kelvor.settings.saveOnly());
    await page.reload();
    await loaded(page);
}

/* Stores settings given as an object and reloads: objects are merged one
** level deep into kelvor.settings.k, other values replace; the first start
** wizard counts as done. */
function configure(page, settings) {
    return setAndReload(page, (s) => {
        const k = kelvor.settings.k;
        k.wizzard = COREVERSION;
        for (const key of Object.keys(s)) {
            const v = s[key];
            if (v && typeof v === 'object' && !Array.isArray(v) && k[key]) Object.assign(k[key], v);
            else k[key] = v;
        }
    }, settings);
}

/*
** Runs fn(page) on a fresh browser showing the page, configured first
** with opts.settings when given (a first start otherwise), and fails on any
** script error the page raised. opts also go to openPage.
*/
async function withPage(fn, opts) {
    const o = opts || {};
    const b = await openPage(o);
    try {
        await b.page.goto(PAGE);
        await loaded(b.page);
        if (o.settings) await configure(b.page, o.settings);
        await fn(b.page);
        assert.deepStrictEqual(b.page.errors, [], 'no script errors');
    } finally {
        await b.close();
    }
}

/* Drags with the mouse from one page point to another in ten steps. */
async function drag(page, from, to) {
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    for (let i = 1; i <= 10; i++) await page.mouse.move(from.x + (to.x - from.x) * i / 10, from.y + (to.y - from.y) * i / 10);
    await page.mouse.up();
}

/* Serves NMEA lines through nmea_replay (NMEA_REPLAY, default beside
** mareplotd) on a free port of 127.0.0.1 until stopped; args are its
** further options (-r, -x, -l). Returns { port, stop() } once it listens. */
async function replay(lines, args) {
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-replay-'));
    const file = path.join(dir, 'feed.nmea');
    fs.writeFileSync(file, lines.join('\r\n') + '\r\n');
    const proc = spawn(REPLAY, ['-p', '0'].concat(args || [], [file]), { stdio: ['ignore', 'pipe', 'inherit'] });
    let exited = false;
    const done = new Promise((res) => proc.on('exit', () => { exited = true; res(); }));
    const stop = async () => {
        if (!exited) proc.kill('SIGTERM');
        await done;
        fs.rmSync(dir, { recursive: true, force: true });
    };
    try {
        const port = await new Promise((resolve, reject) => {
            let out = '';
            const timer = setTimeout(() => reject(new Error('nmea_replay did not start')), 10000);
            proc.stdout.on('data', (d) => {
                out += d.toString();
                const m = /serving .* on 127\.0\.0\.1:(\d+)/.exec(out);
                if (m) { clearTimeout(timer); resolve(Number(m[1])); }
            });
            proc.on('exit', () => { clearTimeout(timer); reject(new Error('nmea_replay ended: ' + out)); });
        });
        proc.stdout.resume();
        return { port, stop };
    } catch (e) {
        await stop();
        throw e;
    }
}

module.exports = { startHost, openPage, loaded, settled, setAndReload, configure, withPage, drag, replay, writeChartPack,
    syntheticPack, PAGE, ORIGIN, MAREPLOTD };
