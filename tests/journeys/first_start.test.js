/* First start: the wizard, the chart it opens onto, the account About names (other journeys close it by ×). */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');

/* More than a few colours in the map area: a painted chart, not a blank canvas. */
function painted(img) {
    const seen = new Set();
    for (let y = 100; y < 700; y += 37) {
        for (let x = 100; x < 1100; x += 41) seen.add(img.pixel(x, y).join(','));
    }
    return seen.size > 3;
}

test('the wizard keeps the boat data typed on its second page; the chart paints', { timeout: 120000 }, async () => {
    await j.journey('first-start', { wizard: true }, async (page) => {
        await j.waitInView(page, '#np_wizzard_1');
        assert.match(await j.text(page, '#np_wizzard_1_text'), /Welcome aboard/);
        await j.click(page, '#btn_wizzard_next', { shows: '#np_wizzard_2' });
        assert.strictEqual(await page.inputValue('#i_wizzard_boat_name'), 'Boat 1');
        assert.strictEqual(await page.inputValue('#i_wizzard_boat_speed'), '8.0');
        await j.shot(page, 'first-start-wizard-2');
        await j.type(page, '#i_wizzard_boat_name', 'Seeschwalbe');
        await j.type(page, '#i_wizzard_boat_speed', '6,5');
        await j.click(page, '#btn_wizzard_done', { hides: '#np_wizzard_2' });
        await j.chartPainted(page);
        const img = await j.shot(page, 'first-start-chart');
        assert.ok(painted(img), 'the chart shows in ' + img.file);

        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Settings'));
        await j.click(page, '#np_settings_dlg .np_tabs button:text-is("Boat")', { shows: '#i_settings_boat_name' });
        assert.strictEqual(await page.inputValue('#i_settings_boat_name'), 'Seeschwalbe');
        assert.strictEqual(await page.inputValue('#i_settings_boat_speed'), '6.5');

        await j.click(page, '#np_settings_dlg .np_tabs button:text-is("AIS")');
        const report = 'label[for="i_traffic_mrapp_report"]';
        await j.click(page, report);
        assert.strictEqual(await j.isInView(page, '#np_dialog_common'), false, 'switching off explains nothing');
        await j.click(page, report, { shows: '#np_dialog_common' });
        assert.match(await j.text(page, '#cp_dialog_common'), /Position reports/);
        await j.click(page, '#btn_infopos_done', { shows: '#np_settings_dlg' });
        await j.click(page, '#np_settings_dlg > .np_close', { hides: '#np_settings_dlg' });

        await page.reload();
        await j.chartPainted(page);
        assert.strictEqual(await j.isInView(page, '#np_wizzard_1'), false, 'no wizard after it was done');

        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('About'), { shows: '#help_bubble' });
        const about = await j.text(page, '#help_bubble');
        assert.match(about, /User Guest \(no account\)/);
        assert.doesNotMatch(about, /false|-1/);
    });
});
