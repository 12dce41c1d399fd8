/* Follow modes: picked in Settings, turned on in the boat bar, ended by a pan or a target tap. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');

const followIcon = (page) => page.getAttribute('#i_boat_auto', 'src');
const stored = (page) => page.evaluate(() => Number(kelvor.settings.k.R.i_chart_follow_mode));
const rotation = (page) => page.evaluate(() => cpApp.map.rotation * 180 / Math.PI);

async function iconIs(page, on) {
    await j.until(async () => /auge_(in)?activ/.exec(await followIcon(page))[0] === (on ? 'auge_activ' : 'auge_inactiv'),
        'the follow icon ' + (on ? 'on' : 'off'), 5000);
}

test('follow modes from Settings and the boat bar; a pan or a target tap ends follow', { timeout: 240000 }, async () => {
    /* a quarter round in, the boat heads west, so Heading UP must turn the chart */
    await j.journey('follow', { voyage: { startAt: 450 } }, async (page, s) => {
        await j.setNetworkFeed(page, s.feed.port);

        await j.openSettings(page, 'Chart');
        await j.click(page, '#np_settings_chart label.radio_opt:has-text("Heading UP")');
        await j.settingsDone(page);
        assert.strictEqual(await stored(page), 3);

        await j.click(page, '#cp_boat', { shows: '#cp_boat_menu' });
        await iconIs(page, true);
        assert.strictEqual(await page.$eval('#i_boat_follow', (e) => e.options[e.selectedIndex].text), 'Heading UP');
        await j.until(async () => {
            const hdg = parseFloat(await j.text(page, '#i_boat_hdg'));
            const rot = await rotation(page);
            return isFinite(hdg) && Math.abs(((rot + hdg) % 360 + 540) % 360 - 180) < 3;
        }, 'the chart turned by the heading', 20000);
        await j.shot(page, 'follow-heading-up');

        await j.drag(page, { x: 400, y: 400 }, { x: 520, y: 460 });
        await iconIs(page, false);
        await j.until(async () => Math.abs(await rotation(page)) < 0.01, 'the chart north up again', 5000);

        await j.select(page, '#i_boat_follow', 'Follow Leg-Line');
        await iconIs(page, true);
        assert.strictEqual(await stored(page), 4);

        await j.click(page, '#i_screen_more');
        await j.until(async () => (await page.locator('#right_menu_main').boundingBox()).width === 300,
            'the column widened', 10000);
        /* the list may reorder between aiming and pressing: then the press is let go and made again */
        for (let aim = 0; ; aim++) {
            const vessel = page.locator('#r_ais_list .ais_entry[data-mmsi]').first();
            let entry = null, id = null;
            await j.until(async () => !!(id = await vessel.getAttribute('data-mmsi')) && !!(entry = await vessel.boundingBox()),
                'a vessel in the list', 30000);
            const x = entry.x + entry.width / 2, y = entry.y + entry.height / 2;
            await page.mouse.move(x, y);
            await page.mouse.down();
            const under = await page.evaluate(([px, py]) => {
                const e = document.elementFromPoint(px, py);
                const v = e && e.closest('.ais_entry[data-mmsi]');
                return v ? v.getAttribute('data-mmsi') : null;
            }, [x, y]);
            if (under === id) break;
            await page.mouse.up();
            assert.ok(aim < 5, 'the target list keeps still long enough to press an entry');
        }
        const tick = await page.evaluate(() => kelvor.boat.loctime);
        await j.until(async () => (await page.evaluate(() => kelvor.boat.loctime)) !== tick, 'a status tick', 10000);
        await page.mouse.up();
        await iconIs(page, false);
        await j.shot(page, 'follow-after-target-tap');
    });
});
