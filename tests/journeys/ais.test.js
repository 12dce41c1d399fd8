/*
** AIS: the targets of a replayed voyage appear in the right column's
** list; clicking an entry centres the chart on that target, and tapping
** the target opens its dialogue with CPA and TCPA. One target sends the
** name "<IMG SRC=X>": list and dialogue show it as written and no image
** element comes of it.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');
const demo = require('../../tools/demo_voyage');

/* a 12 m sailing yacht (type 36) with odd texts */
const ODD = { mmsi: 211999001, name: '<IMG SRC=X>', call: 'D<=>', dest: 'A=B', lat: 54.547, lon: 10.1,
    type: 36, len: 12, beam: 4, draught: 1.5 };

/* The demo voyage with the odd target added: 3 km north of the own
** ship's circle, reporting southward at 10 kt every 10 s, its name every
** 30 s. */
function lines() {
    const out = [];
    let s = 0;
    for (const l of demo.voyage().split('\r\n')) {
        if (!l) continue;
        out.push(l);
        if (!/^\$GPRMC/.test(l)) continue;
        if (s % 10 === 0) out.push(...demo.vdm(demo.msg1({ mmsi: ODD.mmsi, sog: 10, cog: 180 }, ODD, s)));
        if (s % 30 === 1) out.push(...demo.vdm(demo.msg5(ODD)));
        s++;
    }
    return out;
}

test('targets list, centre, open with CPA and TCPA; an odd name stays text', { timeout: 180000 }, async () => {
    const feed = await j.voyage({ lines: lines() });
    const s = await j.firstStart();
    const page = s.page;
    const entry = `#r_ais_list .ais_entry[data-mmsi="${ODD.mmsi}"]`;
    try {
        await j.setNetworkFeed(page, feed.port);
        await j.click(page, '#i_screen_more');
        await j.until(async () => await page.locator('#r_ais_list .ais_entry').count() >= 5, 'targets in the list', 40000);
        await j.until(async () => /<IMG SRC=X>/.test(await page.locator('#r_ais_list').innerText()),
            'the odd name in the list', 40000);
        await j.waitInView(page, entry);
        assert.strictEqual(await page.locator('#r_ais_list img, #r_ais_list b > *').count(), 0, 'no element from a name');
        await j.shot(page, 'ais-list');

        /* zoom in, then the list entry brings the target to the centre */
        for (let i = 0; i < 10; i++) await j.click(page, '#cp_map_zup');
        await j.click(page, entry);
        const off = await page.evaluate((id) => {
            const e = kelvor.ais.ais_elem[id], c = cpApp.map.getPosWorldMerc();
            return Math.hypot(e.X - c.x, e.Y - c.y) * cpApp.map.getScm();
        }, ODD.mmsi);
        assert.ok(off < 2, `the target ${off.toFixed(1)} px from the centre`);
        await j.chartPainted(page);
        await j.shot(page, 'ais-centred');

        /* a tap on the target at the centre of the chart opens its dialogue */
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
        await j.click(page, `${dlg} > .np_close`);
        await j.waitHidden(page, dlg);
    } catch (e) {
        await j.shot(page, 'ais-failed');
        throw e;
    } finally {
        await s.close();
        await feed.stop();
    }
});
