/*
** The own boat, the track and a route over a reload in a real browser
** against mareplotd fed by the replay tool: a voyage due north at 20 m/s.
** Laying and activating routes on the screen is the route journey's,
** steering along them the unit test's.
**
** Needs build/mareplotd, build/nmea_replay and /usr/bin/chromium; binds
** port 19999, so run it through tests/support/isolate.sh.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { startHost, withPage, drag, replay } = require('./browser');
const { rmc } = require('./ais_nmea');

const FEED_PORT = 20000 + (process.pid % 5000);
const SOG = 20; // metres per second

/* One RMC a second from now on for 15 minutes, heading north from 54.40 N 10.10 E. */
const VOYAGE = Array.from({ length: 900 }, (_, i) => rmc({ lat: 54.4 + i * SOG / 111195, lon: 10.1,
    sog: SOG * 3600 / 1852, time: new Date(Date.now() + i * 1000) }));

let host, feed;
test.before(async () => {
    feed = replay(VOYAGE, FEED_PORT);
    host = await startHost();
});
test.after(async () => {
    if (feed) await feed.stop();
    if (host) await host.stop();
});

async function sql(page, q) {
    return page.evaluate((s) => JSON.parse(postSync('/UexecSql', s)), q);
}

/* The first column of q's rows once there are at least n of them (the log
** is written as the page goes on), or what there is after 20 s. */
async function rowsOnce(page, q, n) {
    const end = Date.now() + 20000;
    for (;;) {
        const rows = (await sql(page, q)).map((r) => r[0]);
        if (rows.length >= n || Date.now() > end) return rows;
        await new Promise((r) => setTimeout(r, 100));
    }
}

/* Screen point of a world position (the view is not rotated here). */
function screenOf(page, p) {
    return page.evaluate((w) => {
        const m = cpApp.map, r = m.canvas.getBoundingClientRect();
        return { x: r.left + w.x * m.scm - m.cx + m.hx, y: r.top + w.y * m.scm - m.cy + m.hy };
    }, p);
}

test('a replayed voyage: boat, dashboards, track, a route over a reload, MOB', async () => {
    await withPage(async (page) => {
        // the boat moves and the dashboard shows speed and course in the chosen units
        await page.waitForFunction(() => kelvor.boat.gps.fix > 0 && kelvor.boat.gps.sog > 0, null, { timeout: 30000 });
        const y0 = await page.evaluate(() => kelvor.boat.theBoat.y);
        await page.evaluate(() => kelvor.boat.menu());
        await page.waitForFunction((y) => kelvor.boat.theBoat.y < y - 30, y0, { timeout: 10000 });
        const dash = await page.evaluate(() => ({
            sog: document.getElementById('i_boat_sog').innerHTML,
            cog: document.getElementById('i_boat_cog2').innerHTML,
            follow: kelvor.boat.autoUpdate,
        }));
        assert.match(dash.sog, /^(19|20|21)\.\d m\/s$/);
        assert.strictEqual(dash.cog, '0°T');
        assert.ok(dash.follow, 'the boat menu turns follow on');

        // the rolling track grows
        await page.waitForFunction(() => kelvor.track.trackCoords.length >= 9, null, { timeout: 20000 });
        const n1 = await page.evaluate(() => kelvor.track.trackCoords.length);
        await page.waitForFunction((n) => kelvor.track.trackCoords.length > n, n1, { timeout: 20000 });

        // lay a route ahead of the boat by taps and drags
        await page.evaluate(() => {
            kelvor.boat.cruiseMode(0);
            const t = kelvor.boat.theBoat, f = 1 / Math.cos(54.4 * Math.PI / 180);
            cpApp.map.setPosMM(t.x, t.y - 1250 * f, 14, true);
            cpApp.map.render();
            kelvor.route.menu();
        });
        await page.click('#btn_route_add');
        const plan = await page.evaluate(() => {
            const r = kelvor.route.activeRoute, t = kelvor.boat.theBoat, f = 1 / Math.cos(54.4 * Math.PI / 180);
            return { a: { x: r.m[0].x, y: r.m[0].y }, e: { x: r.m[1].x, y: r.m[1].y },
                to1: { x: t.x, y: t.y - 500 * f }, to2: { x: t.x, y: t.y - 2000 * f }, locked: r.locked };
        });
        assert.strictEqual(plan.locked, false, 'a new route is unlocked');
        await drag(page, await screenOf(page, plan.a), await screenOf(page, plan.to1));
        await drag(page, await screenOf(page, plan.e), await screenOf(page, plan.to2));
        const laid = await page.evaluate(() => {
            const r = kelvor.route.activeRoute;
            cpApp.save();
            return { n: r.m.length, name: r.name, ys: r.m.map((p) => Math.round(p.y)) };
        });
        assert.strictEqual(laid.n, 2);
        assert.ok(laid.ys[0] > laid.ys[1], 'in order from south to north: ' + laid.ys);
        assert.ok(laid.name.indexOf(' --> ') > 0, laid.name);

        // everything persists across a reload; the day view reads the track from the log
        await page.reload();
        await page.waitForFunction(() => window.cpApp && cpApp.map && cpApp.map._renderCount > 0);
        const back = await page.evaluate(() => {
            kelvor.track.menu();
            return {
                routes: kelvor.routeList.map((r) => ({ n: r.m.length, name: r.name, locked: r.locked })),
                track: kelvor.track.trackCoords.length / 3,
                days: document.getElementById('i_track_days').options.length,
            };
        });
        assert.deepStrictEqual(back.routes, [{ n: 2, name: laid.name, locked: true }]);
        assert.ok(back.track >= 3, 'track points from the log: ' + back.track);
        assert.ok(back.days >= 3, 'Today, All and at least one day');

        // MOB: a locked marker steered to, the boat menu in follow mode
        await page.evaluate(() => kelvor.boat.menu(true));
        await page.click('#btn_boat_mob');
        const mob = await page.evaluate(() => {
            const m = kelvor.boat.activeWayPoint;
            return { name: m.name, locked: m.locked, bar: cpApp.activeMenuBar, follow: kelvor.boat.autoUpdate,
                stop: !document.getElementById('i_boat_stop_route').classList.contains('none') };
        });
        assert.deepStrictEqual(mob, { name: 'Man over Board', locked: true, bar: 'cp_boat_menu', follow: true, stop: true });
        const alerts = await rowsOnce(page, 'SELECT v FROM log WHERE t=4', 1);
        assert.deepStrictEqual(alerts, ['Man over Board']);

        // a share with no cloud ends in the internet error dialog
        await page.evaluate(() => { kelvor.route.showRoute(0); kelvor.route.share(); });
        await page.waitForFunction(() => cpApp.activeDialog && cpApp.activeDialog.id === 'np_chartkit_ineterror', null,
            { timeout: 15000 });
    }, { settings: {
        C: { i_opengl_mode: false },
        I: { i_settings_speed: 1, i_gps_source: 1, i_nmea_source: 1 }, // speeds in m/s
        V: { i_traffic_ais_ip: '127.0.0.1', i_traffic_ais_port: String(FEED_PORT) },
        S: { i_settings_track_distance: 50 },
    } });
});

