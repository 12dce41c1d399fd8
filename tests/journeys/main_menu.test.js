/*
** Main menu: every entry of the main menu bar opens its dialogue, bar or
** bubble, and its close control or Back brings the main menu back. The
** menu button in the right column brings the main menu back from any
** other bar.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');

/* label, what opens, how a person leaves it ('x' the dialogue's close
** control, 'back' the bar's Back, 'tool' the menu button, 'wait' the
** bubble goes by itself), and a text the opened element shows */
const ENTRIES = [
    ['Settings', '#np_settings_dlg', 'x', 'Settings'],
    ['Sync', '#np_chartkit_ineterror', 'x', 'Internet Error'],
    ['Current', '#np_wind_nodata', 'x', 'no valid data'],
    ['Wind', '#np_wind_nodata', 'x', 'no valid data'],
    ['Charts', '#cp_chartkit_menu', 'back', 'Chart kits'],
    ['Log', '#cp_track_menu', 'back', 'Back'],
    ['Alarm', '#cp_alarm_menu', 'back', 'Circle'],
    ['Ruler', '#cp_ruler_menu', 'back', 'Back'],
    ['Marker', '#cp_marker_menu', 'back', 'Back'],
    ['Route', '#cp_route_menu', 'tool', 'Back'],
    ['MOB', '#cp_boat_menu', 'back', 'Follow'],
    ['Near Me', '#np_table_list', 'x', 'Near Me'],
    ['About', '#help_bubble', 'wait', 'mareplot'],
];

test('every main-menu entry opens and returns', { timeout: 180000 }, async () => {
    const s = await j.firstStart();
    const page = s.page;
    try {
        await j.waitInView(page, '#cp_menu_main');
        assert.strictEqual(await j.isInView(page, '#cp_tool'), false, 'no menu button while the main menu shows');
        for (const [label, opened, leave, shows] of ENTRIES) {
            await j.openMainMenu(page);
            await j.click(page, j.menuEntry(label));
            await j.waitInView(page, opened);
            assert.match(await j.text(page, opened), new RegExp(shows), label + ' shows its content');
            await j.shot(page, 'main-menu-' + label.replace(/ /g, '-'));
            if (leave === 'x') {
                await j.click(page, opened + ' > .np_close');
                await j.waitHidden(page, opened);
            } else if (leave === 'back') {
                await j.click(page, opened + ' .menu_btn:has-text("Back")');
                await j.waitHidden(page, opened);
            } else if (leave === 'tool') {
                assert.ok(await j.isInView(page, '#cp_tool'), label + ': the menu button shows beside another bar');
                await j.click(page, '#cp_tool');
                await j.waitHidden(page, opened);
            } else {
                await j.waitHidden(page, opened, 15000);
            }
            await j.waitInView(page, '#cp_menu_main');
        }
    } finally {
        await s.close();
    }
});
