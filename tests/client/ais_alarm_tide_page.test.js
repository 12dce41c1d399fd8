/*
** Traffic in the page: own boat and AIS traffic made here and fed through
** nmea_replay into the host's TCP feed; the SART alert and the ageing of
** targets over the page's clock. The list itself is the AIS journey's.
**
** Needs build/mareplotd and build/nmea_replay (or MAREPLOTD and
** NMEA_REPLAY) and /usr/bin/chromium; binds port 19999, so run it through
** tests/support/isolate.sh.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { startHost, withPage, replay } = require('./browser');
const demo = require('../../tools/demo_voyage');

/* Message 1 of a class A ship: sog in knots, cog in degrees (the heading
** follows the course). */
const msg1 = ({ mmsi, lat, lon, sog = 0, cog = 0, status = 0 }) =>
    demo.vdm(demo.msg1({ mmsi, sog, cog, status }, { lat, lon }, 0))[0];

const BOAT = { lat: 54.52, lon: 10.1 };

let host;
test.before(async () => { host = await startHost(); });
test.after(async () => { if (host) await host.stop(); });

/* The page reading position and AIS from the feed on port, 2D, at the boat. */
const feedSettings = (port) => ({
    C: { i_opengl_mode: false },
    I: { i_nmea_source: 1, i_gps_source: 1, i_wifi_source: 0 },
    V: { i_traffic_ais_ip1: '127.0.0.1', i_traffic_ais_ip: '127.0.0.1', i_traffic_ais_port1: String(port),
        i_traffic_ais_port: String(port) },
    map: { lonX: BOAT.lon, latY: BOAT.lat, zoom: 14 },
});

/* A still ship 3 km east of the boat and one at 1 km heading west toward
** it. Then a SART. */
const SHIPS = [
    { mmsi: 211000003, lat: BOAT.lat, lon: BOAT.lon + 0.0465, sog: 0, cog: 0 },
    { mmsi: 211000001, lat: BOAT.lat, lon: BOAT.lon + 0.0155, sog: 12, cog: 270, hdg: 270 },
];
const SART = { mmsi: 970123456, lat: BOAT.lat - 0.003, lon: BOAT.lon, status: 14 };

/* Waits for n further status replies of the page (its boat time moves
** with each). */
function ticks(page, n) {
    return page.evaluate(async (count) => {
        for (let i = 0; i < count; i++) {
            const t0 = kelvor.boat.loctime;
            await new Promise((r) => { const w = () => (kelvor.boat.loctime !== t0 ? r() : setTimeout(w, 50)); w(); });
        }
    }, n);
}

test('targets appear, age and go; a SART raises one alert', async () => {
    /* looped ten lines a second */
    const own = demo.rmc(Object.assign({ sog: 0, cog: 0 }, BOAT), Math.floor(Date.now() / 1000));
    const f = await replay([own].concat(SHIPS.map(msg1), [msg1(SART)]), ['-r', '10', '-l']);
    try {
        await withPage(async (page) => {
            await page.evaluate(() => {
                window.__yesno = 0;
                const y = cpApp.yesno;
                cpApp.yesno = function () { window.__yesno++; return y.apply(this, arguments); };
            });
            await page.waitForFunction((ids) => ids.every((id) => kelvor.ais.ais_elem[id] && kelvor.ais.ais_elem[id].X),
                SHIPS.map((s) => s.mmsi), { timeout: 20000 });

            // the SART alert comes once, "yes" makes the MOB marker
            await page.waitForFunction(() => cpApp.activeDialog && cpApp.activeDialog.id === 'np_chartkit_yesno');
            assert.match(await page.textContent('#np_chartkit_yesno_text'), /AIS SART EMERGENY/);
            await ticks(page, 3);  // each status brings the SART's report again
            assert.strictEqual(await page.evaluate(() => window.__yesno), 1, 'one alert for repeated reports');
            await page.click('#np_chartkit_yesno button:has-text("Yes")');
            const mob = await page.evaluate((id) => {
                const e = kelvor.ais.ais_elem[id];
                return { name: e.sartMarker && e.sartMarker.name, klaxon: !!kelvor.alarm.klaxontimer,
                    wp: kelvor.boat.activeWayPoint === e.sartMarker };
            }, SART.mmsi);
            assert.deepStrictEqual(mob, { name: 'AIS SART 970123456', klaxon: false, wp: true });
            /* the emergency is noted in the log, once */
            const alerts = () => JSON.parse(postSync('/UexecSql', 'SELECT v FROM log WHERE t=4')).map((r) => r[0]);
            await page.waitForFunction(`(${alerts})().length > 0`, null, { polling: 100 });
            assert.deepStrictEqual(await page.evaluate(alerts), ['AIS SART 970123456']);

            // the feed ends: stale after 240 s at low speed, 60 s moving; gone after 900 s
            await f.stop();
            await ticks(page, 2);  // the rows still queued in the host are in
            /* moves the page's clock by s seconds, then reads after the next status */
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
            assert.strictEqual((await stale(0))[211000001], false);
            const st = await stale(120);
            assert.deepStrictEqual([st[211000001], st[211000003]], [true, false], 'moving ship greys first');
            assert.strictEqual((await stale(300))[211000003], true);
            assert.strictEqual((await stale(905)).left, 0, 'all records gone after 900 s');
        }, { settings: feedSettings(f.port) });
    } finally {
        await f.stop();
    }
});
