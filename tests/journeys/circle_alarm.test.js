/* Circle alarm: laid around the followed boat and armed, it fires when the boat leaves it. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');

test('a circle alarm fires when the boat leaves it and stays armed after the acknowledge', { timeout: 180000 }, async () => {
    await j.journey('circle-alarm', { voyage: { speed: 10 } }, async (page, s) => {
        await j.setNetworkFeed(page, s.feed.port);
        await j.until(() => page.evaluate(() => !!(kelvor.boat.gps && kelvor.boat.gps.fix)), 'a fix', 30000);

        /* zoomed in until the new circle's 100 pixel radius is about a kilometre */
        await j.click(page, '#cp_boat', { shows: '#i_boat_auto' });
        await j.until(async () => /auge_activ/.test(await page.getAttribute('#i_boat_auto', 'src')), 'follow on');
        for (let i = 0; i < 15; i++) {
            const before = await page.evaluate(() => cpApp.map.mapScale);
            await j.click(page, '#cp_map_zup');
            await j.until(() => page.evaluate((b) => cpApp.map.mapScale < b, before), 'zoomed in');
        }

        await page.evaluate(() => {
            window.klaxonStarts = 0;
            document.getElementById('klaxon').addEventListener('play', () => { window.klaxonStarts++; });
        });

        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Alarm'));
        await j.click(page, '#btn_alarm_add_circle');
        await j.click(page, '#btn_alarm_on', { shows: '#btn_alarm_off' });
        await j.until(() => page.evaluate(() => kelvor.alarm.running.side !== 0), 'the armed alarm learns');
        assert.strictEqual(await page.evaluate(() => kelvor.alarm.running.side), 1, 'armed with the boat inside');
        await j.shot(page, 'circle-alarm-armed');

        await j.waitInView(page, '#np_chartkit_confirm', 60000);
        assert.match(await j.text(page, '#np_chartkit_confirm_text'), /Alarm triggered/);
        await j.until(() => page.evaluate(() => window.klaxonStarts > 0), 'the klaxon playing');
        await j.shot(page, 'circle-alarm-triggered');

        await j.click(page, '#np_chartkit_confirm button:has-text("OK")', { hides: '#np_chartkit_confirm' });
        await j.until(() => page.evaluate(() => !kelvor.alarm.klaxontimer), 'the klaxon stopped');
        assert.ok(await j.isInView(page, '#btn_alarm_off'), 'the alarm is still armed: its Off shows');
        assert.strictEqual(await j.isInView(page, '#btn_alarm_on'), false);
        const starts = await page.evaluate(() => window.klaxonStarts);
        await j.until(() => page.evaluate(() => kelvor.alarm.running && kelvor.alarm.running.side !== 0),
            'the alarm relearns the boat\'s side');
        assert.strictEqual(await j.isInView(page, '#np_chartkit_confirm'), false);
        assert.strictEqual(await page.evaluate(() => window.klaxonStarts), starts,
            'relearning the side alone rings nothing');
    });
});
