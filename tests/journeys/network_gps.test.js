/* Network GPS set in Settings moves the boat and fills the right column (read by the settings journey). */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');
const { ownShip } = require('../../tools/demo_voyage');

const CENTRE = { lat: 54.52, lon: 10.1 };

function metres(a, b) {
    const dy = (a.lat - b.lat) * 111120;
    const dx = (a.lon - b.lon) * 111120 * Math.cos(CENTRE.lat * Math.PI / 180);
    return Math.hypot(dx, dy);
}

const R = metres(ownShip(0), CENTRE);

const boatPos = (page) => page.evaluate(() => ({ lat: kelvor.boat.theBoat.lat(), lon: kelvor.boat.theBoat.lon() }));

test('a network feed set in Settings moves the boat and fills the right column', { timeout: 180000 }, async () => {
    await j.journey('network', { voyage: {} }, async (page, s) => {
        await j.setNetworkFeed(page, s.feed.port);

        let first = null;
        await j.until(async () => {
            const p = await boatPos(page);
            if (Math.abs(metres(p, CENTRE) - R) > 60) return false;
            if (!first) first = p;
            return metres(p, first) > 5;
        }, 'the boat on the recorded circle, moving', 40000);

        await j.click(page, '#cp_boat', { shows: '#cp_boat_dash' });
        for (const [button, name] of [[null, 'narrow'], ['#i_screen_more', 'wide']]) {
            if (button) {
                await j.click(page, button, { shows: '#i_screen_less' });
            }
            let seen = '';
            await j.until(async () => {
                const col = await page.locator('#right_menu_main').boundingBox();
                const bar = j.scaleBar(await j.shot(page, 'network-scale-' + name));
                seen = `bar ${JSON.stringify(bar)}, column from ${col.x} (${col.width} wide)`;
                return col.width === (button ? 300 : 50) && bar.len >= 30 && bar.y > 64 && bar.right < col.x - 4;
            }, `${name}: the scale bar below the dashboard and clear of the column`, 10000).catch((e) => {
                throw new Error(e.message + ': ' + seen);
            });
        }
        const rows = { SOG: '#i_boat_sog2', COG: '#i_boat_cog2', HDG: '#i_boat_hdg2', DPT: '#i_boat_dpt2' };
        await j.until(async () => {
            for (const sel of Object.values(rows)) if ((await j.text(page, sel)).indexOf('---') >= 0) return false;
            return true;
        }, 'speed, course, heading and depth in the right column', 15000);
        /* the status carries metres per second to one decimal: 10 kt reads 9.9 */
        const sog = /^(\d+\.\d) kt$/.exec(await j.text(page, rows.SOG));
        assert.ok(sog && Math.abs(Number(sog[1]) - 10) <= 0.2, 'SOG near 10 kt');
        assert.match(await j.text(page, rows.COG), /^\d{1,3}°T$/);
        assert.match(await j.text(page, rows.HDG), /^\d{1,3}°T$/);
        assert.match(await j.text(page, rows.DPT), /^\d+(\.\d+)? m$/);

        /* a long target list leaves the menu bar free */
        await j.openMainMenu(page);
        await j.until(async () => (await page.locator('#r_ais_list .ais_entry').count()) > 8, 'a long target list', 30000);
        for (const b of await page.locator('#cp_menu_main .menu_btn').all()) await b.click({ trial: true, timeout: 10000 });
        await j.shot(page, 'network-right-column');
    });
});
