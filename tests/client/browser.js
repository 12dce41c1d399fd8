/*
** browser.js: runs the real host and a headless Chromium for the page
** tests and the benchmark.
**
** startHost() starts mareplotd (MAREPLOTD, default build/mareplotd) with
** HOME in a fresh temporary directory and waits until /hostversion
** answers on 127.0.0.1:19999. The port is fixed: callers run under
** `flock /tmp/mareplot-port.lock`. openPage() launches Debian's chromium
** through playwright-core with a fresh profile; Playwright never downloads
** a browser of its own.
*/
'use strict';

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

async function startHost() {
    const home = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-client-'));
    const env = Object.assign({}, process.env, { HOME: home });
    delete env.XDG_DATA_HOME;
    const proc = spawn(MAREPLOTD, [], { env, stdio: ['ignore', 'ignore', 'inherit'] });
    let exited = false;
    proc.on('exit', () => { exited = true; });
    for (let i = 0; i < 200 && !exited; i++) {
        const r = await get(ORIGIN + '/hostversion');
        if (r.status === 200) {
            return {
                home,
                async stop() {
                    if (!exited) {
                        proc.kill('SIGTERM');
                        await new Promise((res) => { if (exited) res(); else proc.on('exit', res); });
                    }
                    fs.rmSync(home, { recursive: true, force: true });
                },
            };
        }
        await new Promise((res) => setTimeout(res, 50));
    }
    proc.kill('SIGKILL');
    throw new Error('mareplotd did not answer on ' + ORIGIN);
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

/* Waits for a render pass with every tile of the view drawn. */
async function settled(page, timeout) {
    await page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0 &&
        cpApp.map.queueWait === 0 && cpApp.map.lastMouseB === 0 && cpApp.map.lastCx === cpApp.map.cx &&
        cpApp.map.lastSf === cpApp.map.base, null, { timeout: timeout || 15000 });
}

/* Stores settings through the page, then reloads it. */
async function setAndReload(page, fn, arg) {
    await page.evaluate(fn, arg);
    await page.evaluate(() => kelvor.settings.saveOnly());
    await page.reload();
    await page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0);
}

module.exports = { startHost, openPage, settled, setAndReload, PAGE, ORIGIN, MAREPLOTD };
