/* journey.js: the journeys' runner and screen helpers. They act only by clicks, keys and typing on elements
** visible inside the 1280 by 800 viewport; they read state only to wait or to check. */
'use strict';

const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawn } = require('child_process');
const browser = require('../client/browser');
const { until } = browser;

const ROOT = path.resolve(__dirname, '../..');
const REPLAY = process.env.NMEA_REPLAY || path.join(path.dirname(browser.MAREPLOTD), 'nmea_replay');
const SHOTS = process.env.JOURNEY_SHOTS || path.join(os.tmpdir(), 'mareplot-journeys');

/* The element's box when it is visible and wholly inside the viewport, else null. */
async function viewBox(page, sel) {
    const loc = page.locator(sel).first();
    if (!await loc.count() || !await loc.isVisible()) return null;
    const b = await loc.boundingBox(), vp = page.viewportSize();
    if (!b || b.width <= 0 || b.height <= 0) return null;
    if (b.x < -0.5 || b.y < -0.5 || b.x + b.width > vp.width + 0.5 || b.y + b.height > vp.height + 0.5) return null;
    return b;
}

const isInView = async (page, sel) => !!await viewBox(page, sel);

/* Waits until the element is in view and has stopped moving (the bars slide in for 0.3 s). */
async function waitInView(page, sel, timeout) {
    let last = '';
    await until(async () => {
        const b = await viewBox(page, sel);
        const now = b ? [b.x, b.y, b.width, b.height].join(',') : '';
        const still = now !== '' && now === last;
        last = now;
        return still;
    }, sel + ' in view', timeout || 20000);
}

async function waitHidden(page, sel, timeout) {
    await until(async () => {
        const loc = page.locator(sel).first();
        if (!await loc.count() || !await loc.isVisible()) return true;
        const b = await loc.boundingBox(), vp = page.viewportSize();
        return !b || b.y >= vp.height || b.y + b.height <= 0 || b.x >= vp.width || b.x + b.width <= 0;
    }, sel + ' hidden', timeout);
}

/* Clicks the element once it is in view; then waits until then.shows is in view or then.hides is not. */
async function click(page, sel, then) {
    await waitInView(page, sel);
    await page.click(sel);
    if (then && then.shows) await waitInView(page, then.shows);
    if (then && then.hides) await waitHidden(page, then.hides);
}

const chartPainted = (page, timeout) => browser.settled(page, timeout || 20000);

async function closeWizard(page) {
    await click(page, '#np_wizzard_1 .np_close', { hides: '#np_wizzard_1' });
}

/* A first start with the wizard closed and the chart painted (for tools/readme_shots.js). */
async function firstStart(opts) {
    const s = await browser.start(opts);
    try {
        await closeWizard(s.page);
        await chartPainted(s.page);
    } catch (e) {
        await s.close().catch(() => {});
        throw e;
    }
    return s;
}

/* The menu button hides while the main menu is up or sliding in after Back. */
async function openMainMenu(page) {
    if (await isInView(page, '#cp_tool')) await click(page, '#cp_tool');
    await waitInView(page, '#cp_menu_main');
}

const menuEntry = (label) => `#cp_menu_main .menu_btn:has(span:text-is("${label}"))`;
const text = (page, sel) => page.locator(sel).first().innerText();

async function select(page, sel, label) {
    await waitInView(page, sel);
    await page.selectOption(sel, { label });
}

async function type(page, sel, value) {
    await waitInView(page, sel);
    await page.click(sel, { clickCount: 3 });
    await page.keyboard.press('Control+A');
    await page.keyboard.press('Backspace');
    await page.keyboard.type(String(value));
}

/* Opens Settings by the gear, in any language, on a tab given by its label or its place from 0. */
async function openSettings(page, tab) {
    await openMainMenu(page);
    await click(page, '#cp_menu_main .menu_btn:has(img[src$="icon-50-settings.png"])',
        { shows: '#np_settings_dlg .np_tabs' });
    if (typeof tab === 'number') await click(page, `#np_settings_dlg .np_tabs button >> nth=${tab}`);
    else if (tab) await click(page, `#np_settings_dlg .np_tabs button:text-is("${tab}")`);
}

const settingsDone = (page) => click(page, '#btn_settings_done', { hides: '#np_settings_dlg' });

/* Position from NMEA RMC over the network, Host 1 at 127.0.0.1:port. */
async function setNetworkFeed(page, port) {
    await openSettings(page, 'AIS');
    await select(page, '#i_gps_source', 'NMEA RMC');
    await select(page, '#i_nmea_source', 'WiFi');
    await select(page, '#i_wifi_source', '1');
    await type(page, '#i_traffic_ais_ip1', '127.0.0.1');
    await type(page, '#i_traffic_ais_port1', String(port));
    await settingsDone(page);
}

/* The right column's texts a person could not read (cut off, on another text or the cross-track bar). */
function columnClashes(page) {
    return page.evaluate(() => {
        const col = document.getElementById('right_menu_main').getBoundingClientRect();
        const bar = document.getElementById('r_dist_outer').getBoundingClientRect();
        const texts = [];
        document.querySelectorAll('#right_menu_main_info .rmi > span, #r_dist_outer span, #r_dist_xte').forEach((e) => {
            const r = e.getBoundingClientRect();
            if (r.width > 0 && e.textContent.trim() && window.getComputedStyle(e).visibility !== 'hidden') {
                texts.push({ name: e.id || e.textContent.trim(), r });
            }
        });
        const meet = (a, b) => a.left < b.right - 0.5 && b.left < a.right - 0.5 && a.top < b.bottom - 0.5 && b.top < a.bottom - 0.5;
        const out = [];
        texts.forEach((a, i) => {
            if (a.r.left < col.left - 0.5 || a.r.right > col.right + 0.5) out.push(a.name + ' cut off');
            if (meet(a.r, bar)) out.push(a.name + ' on the cross-track bar');
            texts.slice(i + 1).forEach((b) => { if (meet(a.r, b.r)) out.push(a.name + ' on ' + b.name); });
        });
        return out;
    });
}

/* The scale bar in a screenshot: the longest dark run in the top rows, right of the middle. */
function scaleBar(img) {
    let best = { len: 0 };
    for (let y = 20; y < 140; y++) {
        let start = -1;
        for (let x = Math.floor(img.width / 2); x <= img.width; x++) {
            const p = x < img.width ? img.pixel(x, y) : [255, 255, 255];
            const dark = p[0] + p[1] + p[2] < 150;
            if (dark && start < 0) start = x;
            if (!dark && start >= 0) {
                if (x - start > best.len) best = { len: x - start, y, left: start, right: x - 1 };
                start = -1;
            }
        }
    }
    return best;
}

/* Keeps a screenshot as <name>.png under SHOTS; returns it with pixel(x, y) -> [r, g, b]. */
async function shot(page, name) {
    fs.mkdirSync(SHOTS, { recursive: true });
    const file = path.join(SHOTS, name + '.png');
    const buf = await page.screenshot({ path: file });
    const img = browser.PNG.sync.read(buf);
    img.file = file;
    img.pixel = (x, y) => {
        const i = (Math.round(y) * img.width + Math.round(x)) * 4;
        return [img.data[i], img.data[i + 1], img.data[i + 2]];
    };
    return img;
}

/* Starts cmd, waits until ready(output so far); returns { out, stop() } (stop and a failed start clean up). */
async function service(cmd, args, ready, what, cleanup) {
    const proc = spawn(cmd, args, { stdio: ['ignore', 'pipe', 'inherit'] });
    let exited = false, out = '';
    const gone = new Promise((res) => proc.on('exit', () => { exited = true; res(); }));
    const stop = async () => {
        if (!exited) proc.kill('SIGTERM');
        await gone;
        if (cleanup) cleanup();
    };
    proc.stdout.on('data', (d) => { out += d.toString(); });
    try {
        await until(() => exited || ready(out), what, 20000);
        if (exited) throw new Error(`${path.basename(cmd)} ended before ${what}: ${out}`);
    } catch (e) {
        await stop();
        throw e;
    }
    return { out, stop };
}

/* nmea_replay on a free port: the demo voyage looped, or opts.lines, from opts.startAt, opts.speed times fast. */
async function voyage(opts) {
    let lines = opts.lines || require(path.join(ROOT, 'tools/demo_voyage.js')).voyage().split('\r\n').filter(Boolean);
    if (opts.startAt) {
        let n = 0;
        const from = lines.findIndex((l) => l.startsWith('$GPRMC') && n++ === opts.startAt);
        lines = lines.slice(from).concat(lines.slice(0, from));
    }
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-replay-'));
    const file = path.join(dir, 'feed.nmea');
    fs.writeFileSync(file, lines.join('\r\n') + '\r\n');
    const args = ['-p', '0', '-l'].concat(opts.speed ? ['-x', String(opts.speed)] : [], [file]);
    const s = await service(REPLAY, args, (out) => /serving .* on 127\.0\.0\.1:\d+/.test(out), 'it listened',
        () => fs.rmSync(dir, { recursive: true, force: true }));
    return { port: Number(/127\.0\.0\.1:(\d+)/.exec(s.out)[1]), stop: s.stop };
}

/* Runs fn(page, s) on a first start (opts.wizard keeps the wizard), s.feed serving opts.voyage if given. */
async function journey(name, opts, fn) {
    const feed = opts.voyage ? await voyage(opts.voyage) : null;
    try {
        await browser.withPage(async (page, s) => {
            s.feed = feed;
            try {
                if (!opts.wizard) {
                    await closeWizard(page);
                    await chartPainted(page);
                }
                await fn(page, s);
            } catch (e) {
                await shot(page, name + '-failed').catch(() => {});
                throw e;
            }
        });
    } finally {
        if (feed) await feed.stop();
    }
}

module.exports = { journey, firstStart, loaded: browser.loaded, chartPainted, openMainMenu, menuEntry,
    waitInView, waitHidden, isInView, until, click, columnClashes, drag: browser.drag,
    openSettings, settingsDone, setNetworkFeed, scaleBar, text, select, type, shot, voyage, service };
