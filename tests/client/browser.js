/* browser.js: the real host on 127.0.0.1:19999 with HOME in a fresh directory (run it through isolate.sh)
** and Debian's headless Chromium with a fresh profile, for the page tests, journeys and benchmarks. */
'use strict';

const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const http = require('http');
const { spawn, spawnSync } = require('child_process');

const ROOT = path.resolve(__dirname, '../..');
const MAREPLOTD = process.env.MAREPLOTD || path.join(ROOT, 'build/mareplotd');
const CHROMIUM = process.env.CHROMIUM || '/usr/bin/chromium';
const ORIGIN = 'http://127.0.0.1:19999';
const PAGE = ORIGIN + '/app/marepack.html';
const { PNG } = require(path.join(ROOT, 'node_modules/playwright-core/lib/utilsBundle'));

async function until(fn, what, timeout) {
    const end = Date.now() + (timeout || 10000);
    for (;;) {
        if (await fn()) return;
        if (Date.now() > end) throw new Error('timed out waiting for ' + what);
        await new Promise((res) => setTimeout(res, 50));
    }
}

/* The status of the host's /hostversion, 0 while nothing answers. */
function hostStatus() {
    return new Promise((resolve) => {
        const req = http.get(ORIGIN + '/hostversion', (res) => {
            res.resume();
            resolve(res.statusCode);
        });
        req.on('error', () => resolve(0));
        req.setTimeout(2000, () => req.destroy());
    });
}

const portFree = async () => await hostStatus() === 0;

async function startHost() {
    /* a stranger on the port would get our requests (SO_REUSEPORT lets ours listen beside it) */
    await until(portFree, 'nothing else on 127.0.0.1:19999 (run the test through tests/support/isolate.sh)', 5000);
    const home = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-client-'));
    const env = Object.assign({}, process.env, { HOME: home });
    delete env.XDG_DATA_HOME;
    const proc = spawn(MAREPLOTD, [], { env, stdio: ['ignore', 'ignore', 'inherit'] });
    let exited = false;
    const gone = new Promise((res) => proc.on('exit', () => { exited = true; res(); }));
    try {
        /* the start writes both carried packs: slow under the sanitizers */
        await until(async () => exited || await hostStatus() === 200, 'mareplotd on ' + ORIGIN, 60000);
        if (exited) throw new Error('mareplotd ended before it answered on ' + ORIGIN);
    } catch (e) {
        proc.kill('SIGKILL');
        await gone;
        fs.rmSync(home, { recursive: true, force: true });
        throw e;
    }
    return {
        home,
        async stop() {
            if (!exited) proc.kill('SIGTERM');
            await gone;
            fs.rmSync(home, { recursive: true, force: true });
            await until(portFree, '127.0.0.1:19999 free after the host ended', 10000);
        },
    };
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

function solidPng(rgb) {
    const png = new PNG({ width: 256, height: 256 });
    for (let i = 0; i < png.data.length; i += 4) png.data.set(rgb.concat(255), i);
    return PNG.sync.write(png);
}

/* A000003.marepack by the sqlite3 shell: zoom 3-10 tiles near 10.1 E 54.52 N in diagonal sea and land bands. */
function syntheticPack(home) {
    const sea = solidPng([170, 211, 223]).toString('hex'), land = solidPng([242, 239, 233]).toString('hex');
    const sql = ['CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT);', 'CREATE INDEX i_kv_lk ON kvt(l,k);',
        'CREATE TABLE tiles (verid INTEGER, zyx INTEGER PRIMARY KEY, png BLOB);', 'BEGIN;'];
    const av = {}, lat = 54.52 * Math.PI / 180;
    for (let z = 3; z <= 10; z++) {
        const n = Math.pow(2, z);
        const cx = Math.floor((10.1 + 180) / 360 * n);
        const cy = Math.floor((1 - Math.log(Math.tan(lat) + 1 / Math.cos(lat)) / Math.PI) / 2 * n);
        for (let y = Math.max(0, cy - 12); y <= Math.min(n - 1, cy + 12); y++) {
            for (let x = Math.max(0, cx - 12); x <= Math.min(n - 1, cx + 12); x++) {
                const id = z * 1099511627776 + y * 1048576 + x;
                sql.push(`INSERT INTO tiles VALUES(1,${id},X'${(x + y) % 7 < 3 ? land : sea}');`);
                av[id] = 1;
            }
        }
    }
    sql.push(`INSERT INTO kvt VALUES('avtiles2','${JSON.stringify(av)}',5,'**');`,
        "INSERT INTO kvt VALUES('chartlist','[]',5,'**');", 'COMMIT;');
    const file = path.join(home, '.local/share/mareplot/A000003.marepack');
    const r = spawnSync('sqlite3', [file], { input: sql.join('\n') });
    if (r.status !== 0) throw new Error('sqlite3: ' + r.stderr);
}

function loaded(page, timeout) {
    return page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0, null,
        { timeout: timeout || 30000 });
}

/* Waits for a render pass with every tile of the view drawn. */
async function settled(page, timeout) {
    await page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0 &&
        cpApp.map.queueWait === 0 && cpApp.map.lastMouseB === 0 && cpApp.map.lastCx === cpApp.map.cx &&
        cpApp.map.lastSf === cpApp.map.base, null, { timeout: timeout || 60000 });
}

async function setAndReload(page, fn, arg) {
    await page.evaluate(fn, arg);
    await page.evaluate(() => kelvor.settings.saveOnly());
    await page.reload();
    await loaded(page);
}

/* Starts a host (syntheticPack() if opts.synthetic), opens the page with opts.settings merged in, wizard done. */
async function start(opts) {
    const o = opts || {};
    const host = await startHost();
    let b;
    try {
        if (o.synthetic) syntheticPack(host.home);
        b = await openPage(o);
        await b.page.goto(PAGE);
        await loaded(b.page);
        if (o.settings) {
            await setAndReload(b.page, (s) => {
                const k = kelvor.settings.k;
                k.wizzard = COREVERSION;
                for (const [key, v] of Object.entries(s)) {
                    if (v && typeof v === 'object' && !Array.isArray(v) && k[key]) Object.assign(k[key], v);
                    else k[key] = v;
                }
            }, o.settings);
        }
    } catch (e) {
        if (b) await b.close();
        await host.stop();
        throw e;
    }
    return {
        page: b.page,
        host,
        async close() {
            const errors = b.page.errors.slice();
            await b.close();
            await host.stop();
            assert.deepStrictEqual(errors, [], 'no script errors in the page');
        },
    };
}

/* Runs fn(page, s) on start(opts) and closes it; a failure of fn is the one reported. */
async function withPage(fn, opts) {
    const s = await start(opts);
    try {
        await fn(s.page, s);
    } catch (e) {
        await s.close().catch(() => {});
        throw e;
    }
    await s.close();
}

async function drag(page, from, to) {
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    for (let i = 1; i <= 10; i++) await page.mouse.move(from.x + (to.x - from.x) * i / 10, from.y + (to.y - from.y) * i / 10);
    await page.mouse.up();
}

module.exports = { startHost, openPage, loaded, settled, setAndReload, start, withPage, drag, until, syntheticPack,
    PNG, PAGE, MAREPLOTD };
