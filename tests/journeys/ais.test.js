/* AIS: targets of a replayed voyage in the list and their dialogue, an odd name as text, and an
** active SART's one alert with its MOB marker. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');
const demo = require('../../tools/demo_voyage');

/* a 12 m sailing yacht (type 36) with odd texts */
const ODD = { mmsi: 211999001, name: '<IMG SRC=X>', call: 'D<=>', dest: 'A=B', lat: 54.547, lon: 10.1,
    type: 36, len: 12, beam: 4, draught: 1.5 };
const SART = { mmsi: 970123456, lat: 54.505, lon: 10.1, status: 14, sog: 0, cog: 0 };

/* The demo voyage, an odd target 3 km north heading south at 10 kt (name every 30 s), an active SART south. */
function lines() {
    const out = [];
    let s = 0;
    for (const l of demo.voyage().split('\r\n')) {
        if (!l) continue;
        out.push(l);
        if (!/^\$GPRMC/.test(l)) continue;
        if (s % 10 === 0) out.push(...demo.vdm(demo.msg1({ mmsi: ODD.mmsi, sog: 10, cog: 180 }, ODD, s)));
        if (s % 30 === 1) out.push(...demo.vdm(demo.msg5(ODD)));
        if (s % 10 === 5) out.push(...demo.vdm(demo.msg1(SART, SART, s)));
        s++;
    }
    return out;
}

test('targets list, centre, open with CPA and TCPA; an odd name stays text', { timeout: 180000 }, async () => {
    const entry = `#r_ais_list .ais_entry[data-mmsi="${ODD.mmsi}"]`;
    await j.journey('ais', { voyage: { lines: lines() } }, async (page, s) => {
        await j.setNetworkFeed(page, s.feed.port);
        await j.waitInView(page, '#np_chartkit_yesno', 40000);
        assert.match(await j.text(page, '#np_chartkit_yesno_text'), /AIS SART EMERGENY/);
        await j.click(page, '#np_chartkit_yesno button:has-text("Yes")', { hides: '#np_chartkit_yesno' });
        assert.deepStrictEqual(await page.evaluate(() => [kelvor.boat.activeWayPoint.name, !!kelvor.alarm.klaxontimer]),
            ['AIS SART 970123456', false], 'the MOB marker is the waypoint, the klaxon off');
        await j.click(page, '#i_screen_more');
        await j.until(async () => await page.locator('#r_ais_list .ais_entry').count() >= 5, 'targets in the list', 40000);
        await j.until(async () => /<IMG SRC=X>/.test(await page.locator('#r_ais_list').innerText()),
            'the odd name in the list', 40000);
        await j.waitInView(page, entry);
        assert.strictEqual(await page.locator('#r_ais_list img, #r_ais_list b > *').count(), 0, 'no element from a name');
        await j.shot(page, 'ais-list');

        for (let i = 0; i < 10; i++) await j.click(page, '#cp_map_zup');
        await j.click(page, entry);
        const off = await page.evaluate((id) => {
            const e = kelvor.ais.ais_elem[id], c = cpApp.map.getPosWorldMerc();
            return Math.hypot(e.X - c.x, e.Y - c.y) * cpApp.map.getScm();
        }, ODD.mmsi);
        assert.ok(off < 2, `the target ${off.toFixed(1)} px from the centre`);
        await j.chartPainted(page);
        await j.shot(page, 'ais-centred');

        await page.mouse.click(640, 400);
        await j.waitInView(page, '#np_ais_status_dlg');
        const dlg = '#np_ais_status_dlg';
        assert.match(await j.text(page, dlg), /Name\s+<IMG SRC=X>/);
        assert.match(await j.text(page, dlg), /Callsign\s+D<=>/);
        await j.click(page, '#btn_ais_more');
        await j.until(async () => /CPA\s+\S+\s?\S*\s\/\s\S+/.test(await j.text(page, dlg)), 'CPA and TCPA', 15000);
        assert.match(await j.text(page, dlg), /MMSI\s+211999001/);
        assert.strictEqual(await page.locator(`${dlg} img, ${dlg} td > *:not(input)`).count(), 0, 'no element from a text');
        await j.shot(page, 'ais-dialogue');
        await j.click(page, `${dlg} > .np_close`, { hides: dlg });
        /* the SART reported all along: one alert, one log entry */
        assert.strictEqual(await j.isInView(page, '#np_chartkit_yesno'), false);
        const alerts = await page.evaluate(() => JSON.parse(postSync('/UexecSql', 'SELECT v FROM log WHERE t=4')));
        assert.deepStrictEqual(alerts, [['AIS SART 970123456']]);
    });
});
