/*
** Traffic, alarms and tides in the page: own boat and AIS traffic made
** here and fed through nmea_replay into the host's TCP feed; the tide
** panel over the base pack's stations.
**
** Needs build/mareplotd and build/nmea_replay (or MAREPLOTD and
** NMEA_REPLAY) and /usr/bin/chromium; binds port 19999, so run it under
** flock /tmp/mareplot-port.lock.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawn } = require('child_process');
const { startHost, openPage, settled, setAndReload, PAGE, MAREPLOTD } = require('./browser');
const { msg1, rmc } = require('./ais_nmea');

const REPLAY = process.env.NMEA_REPLAY || path.join(path.dirname(MAREPLOTD), 'nmea_replay');
const BOAT = { lat: 54.52, lon: 10.1 };
const PORT = 19987;

/* Serves lines in a loop, ten a second, until stopped. */
function replay(lines) {
    const file = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-replay-')), 'feed.nmea');
    fs.writeFileSync(file, lines.join('\r\n') + '\r\n');
    const proc = spawn(REPLAY, ['-p', String(PORT), '-r', '10', '-l', file], { stdio: 'ignore' });
    let exited = false;
    proc.on('exit', () => { exited = true; });
    return {
        async stop() {
            if (!exited) {
                proc.kill('SIGTERM');
                await new Promise((res) => { if (exited) res(); else proc.on('exit', res); });
            }
            fs.rmSync(path.dirname(file), { recursive: true, force: true });
        },
    };
}

/* Moves the page's clock by s seconds (status times, ages, the list). */
function skew(page, s) {
    return page.evaluate((sec) => {
        window.__skew = sec;
        Date.prototype.gT = function () { return Math.floor(this.getTime() / 1000) + (window.__skew || 0); };
    }, s);
}

let host;
test.before(async () => { host = await startHost(); });
test.after(async () => { if (host) await host.stop(); });

async function withFeedPage(fn) {
    const b = await openPage();
    try {
        await b.page.goto(PAGE);
        await b.page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0);
        await setAndReload(b.page, (a) => {
            const k = kelvor.settings.k;
            k.wizzard = COREVERSION;
            k.C.i_opengl_mode = false;
            k.I.i_nmea_source = 1;
            k.I.i_gps_source = 1;
            k.I.i_wifi_source = 0;
            k.V.i_traffic_ais_ip1 = k.V.i_traffic_ais_ip = '127.0.0.1';
            k.V.i_traffic_ais_port1 = k.V.i_traffic_ais_port = String(a.port);
            k.map = { lonX: a.lon, latY: a.lat, zoom: 14 };
        }, { port: PORT, lat: BOAT.lat, lon: BOAT.lon });
        await fn(b.page);
    } finally {
        await b.close();
    }
}

/* Three ships east of the boat at 1, 2 and 3 km; the nearest heads west
** toward the boat. Then a SART. */
const SHIPS = [
    { mmsi: 211000003, lat: BOAT.lat, lon: BOAT.lon + 0.0465, sog: 0, cog: 0 },
    { mmsi: 211000001, lat: BOAT.lat, lon: BOAT.lon + 0.0155, sog: 12, cog: 270, hdg: 270 },
    { mmsi: 211000002, lat: BOAT.lat + 0.005, lon: BOAT.lon + 0.031, sog: 3, cog: 180, hdg: 180 },
];
const SART = { mmsi: 970123456, lat: BOAT.lat - 0.003, lon: BOAT.lon, status: 14 };

test('targets appear, list by range, age and go; a SART raises one alert', async () => {
    const lines = [rmc(BOAT)].concat(SHIPS.map(msg1), [msg1(SART)]);
    const feed = replay(lines);
    try {
        await withFeedPage(async (page) => {
            await page.evaluate(() => {
                window.__yesno = 0;
                const y = cpApp.yesno;
                cpApp.yesno = function () { window.__yesno++; return y.apply(this, arguments); };
            });
            await page.waitForFunction((ids) => ids.every((id) => kelvor.ais.ais_elem[id] && kelvor.ais.ais_elem[id].X),
                SHIPS.map((s) => s.mmsi), { timeout: 20000 });
            await page.waitForFunction(() => document.querySelectorAll('#r_ais_list .ais_entry').length >= 3);
            const list = await page.evaluate(() => [...document.querySelectorAll('#r_ais_list .ais_entry')]
                .map((e) => ({ id: Number(e.dataset.mmsi), cpa: e.querySelector('.ais_cpa').textContent })));
            const ships = list.filter((e) => e.id !== SART.mmsi).map((e) => e.id);
            assert.deepStrictEqual(ships, [211000001, 211000002, 211000003], 'nearest first');
            assert.match(list.find((e) => e.id === 211000001).cpa, /\//, 'the approaching ship has a CPA');
            assert.strictEqual(list.find((e) => e.id === 211000003).cpa, '---', 'the still ship has none');

            // the SART alert comes once, "yes" makes the MOB marker
            await page.waitForFunction(() => cpApp.activeDialog && cpApp.activeDialog.id === 'np_chartkit_yesno');
            assert.match(await page.textContent('#np_chartkit_yesno_text'), /AIS SART EMERGENY/);
            await page.waitForTimeout(2500);
            assert.strictEqual(await page.evaluate(() => window.__yesno), 1, 'one alert for repeated reports');
            await page.click('#np_chartkit_yesno button:has-text("Yes")');
            const mob = await page.evaluate((id) => {
                const e = kelvor.ais.ais_elem[id];
                return { name: e.sartMarker && e.sartMarker.name, klaxon: !!kelvor.alarm.klaxontimer,
                    wp: kelvor.boat.activeWayPoint === e.sartMarker };
            }, SART.mmsi);
            assert.deepStrictEqual(mob, { name: 'AIS SART 970123456', klaxon: false, wp: true });

            // the feed ends: stale after 240 s at low speed, 60 s moving; gone after 900 s
            await feed.stop();
            await page.waitForTimeout(1500);
            const stale = (sec) => page.evaluate(async (s) => {
                window.__skew = s;
                Date.prototype.gT = function () { return Math.floor(this.getTime() / 1000) + (window.__skew || 0); };
                const t0 = kelvor.boat.loctime;
                await new Promise((r) => { const w = () => (kelvor.boat.loctime !== t0 ? r() : setTimeout(w, 100)); w(); });
                const out = {};
                for (const id in kelvor.ais.ais_elem) out[id] = kelvor.ais.isStale(kelvor.ais.ais_elem[id], kelvor.boat.loctime);
                cpApp.map.render();
                out.left = Object.keys(kelvor.ais.ais_elem).length;
                return out;
            }, sec);
            let st = await stale(0);
            assert.strictEqual(st[211000001], false);
            st = await stale(120);
            assert.deepStrictEqual([st[211000001], st[211000003]], [true, false], 'moving ship greys first');
            st = await stale(300);
            assert.strictEqual(st[211000003], true);
            st = await stale(905);
            assert.strictEqual(st.left, 0, 'all records gone after 900 s');
            assert.deepStrictEqual(page.errors, [], 'no script errors');
        });
    } finally {
        await feed.stop();
    }
});

test('a circle alarm around the boat sounds when the boat leaves it, then relearns', async () => {
    let feed = replay([rmc(BOAT)]);
    try {
        await withFeedPage(async (page) => {
            await page.waitForFunction(() => kelvor.boat.gps && kelvor.boat.gps.nmea_stat === 1, null, { timeout: 20000 });
            /* a feed switch while the host still reconnects may have opened
            ** the connection error dialog; it is no part of this test */
            await page.evaluate(() => { if (cpApp.activeDialog) cpApp.closeDlg(); });
            await page.evaluate(() => {
                const A = kelvor.alarm, b = kelvor.boat.theBoat;
                const al = A.add(1);
                al.m[0].x = b.x;
                al.m[0].y = b.y;
                al.m[1].x = b.x + 500;
                al.m[1].y = b.y;
                A.on();
            });
            await page.waitForFunction(() => kelvor.alarm.running && kelvor.alarm.running.side === 1);
            assert.strictEqual(await page.evaluate(() => cpApp.activeDialog && cpApp.activeDialog.id), false);

            await feed.stop();
            feed = replay([rmc({ lat: BOAT.lat, lon: BOAT.lon + 0.02 })]);
            await page.waitForFunction(() => cpApp.activeDialog && cpApp.activeDialog.id === 'np_chartkit_confirm',
                null, { timeout: 30000 });
            assert.match(await page.textContent('#np_chartkit_confirm_text'), /Alarm triggered/);
            assert.ok(await page.evaluate(() => !!kelvor.alarm.klaxontimer), 'klaxon runs');
            await page.click('#np_chartkit_confirm button:has-text("OK")');
            await page.waitForFunction(() => kelvor.alarm.running.side === -1);
            assert.ok(await page.evaluate(() => !kelvor.alarm.klaxontimer && kelvor.alarm.running !== false));
            await page.waitForTimeout(2000);
            assert.strictEqual(await page.evaluate(() => cpApp.activeDialog && cpApp.activeDialog.id), false, 'quiet outside after acknowledge');
            assert.deepStrictEqual(page.errors, [], 'no script errors');
        });
    } finally {
        await feed.stop();
    }
});

test('a tap on a tide station shows today\'s curve with sun and moon', async () => {
    const b = await openPage();
    try {
        const page = b.page;
        await page.goto(PAGE);
        await page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0);
        await setAndReload(page, () => {
            kelvor.settings.k.wizzard = COREVERSION;
            kelvor.settings.k.C.i_opengl_mode = false;
        });
        const st = await page.evaluate(() => {
            const m = kelvor.chartkit.markerList.find((x) => x.a && x.onUp === kelvor.tides.showTide);
            if (!m) return null;
            cpApp.map.setPosLatLon(Number(m.a.lat), Number(m.a.lon), 13);
            return { id: m.a.id, name: m.a.name };
        });
        assert.ok(st, 'the base pack has tide stations');
        await settled(page);
        await page.mouse.click(640, 400);
        await page.waitForFunction(() => !document.getElementById('np_tide_div').classList.contains('none') ||
            (cpApp.activeDialog && cpApp.activeDialog.id === 'np_tide_nodata'));
        const r = await page.evaluate(() => {
            const cv = kelvor.tides.lastCurve, now = Date.now() / 1000;
            const ts = cv ? cv.pts.filter((v, i) => i % 2 === 0) : [];
            return {
                dialog: cpApp.activeDialog && cpApp.activeDialog.id,
                name: document.getElementById('tide_info_txt').textContent,
                source: document.getElementById('tide_info_bottom').textContent,
                spansNow: ts.some((t) => t < now) && ts.some((t) => t > now),
                sun: typeof SunCalc !== 'undefined' && !isNaN(SunCalc.getTimes(new Date(), 54.5, 10).sunrise),
            };
        });
        assert.strictEqual(r.dialog, false, 'the pack carries current tides');
        assert.strictEqual(r.name, st.name);
        assert.match(r.source, /^Tide data: /);
        assert.ok(r.spansNow, 'the curve covers now');
        assert.ok(r.sun, 'SunCalc is loaded');
        await page.waitForFunction(() => Object.keys(kelvor.tides._icons).some((k) => /m32/.test(k) &&
            kelvor.tides._icons[k].naturalWidth > 0) || (kelvor.tides.drawTide(document.getElementById('tide_canvas'),
            kelvor.tides.tidetime), false), null, { timeout: 5000 });
        assert.deepStrictEqual(page.errors, [], 'no script errors');
    } finally {
        await b.close();
    }
});
