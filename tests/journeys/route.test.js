/* Route: a ruler, a marker with a note and an activated three-point route, kept over a reload. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');

/* New objects appear around the map centre. */
const C = { x: 640, y: 400 };

async function valueOf(page, sel) {
    await j.waitInView(page, sel);
    return (await j.text(page, sel)).trim();
}

test('ruler, marker with a note, and an activated three-point route', { timeout: 180000 }, async () => {
    await j.journey('route', {}, async (page) => {
        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Ruler'));
        await j.click(page, '#btn_ruler_add');
        assert.strictEqual(await valueOf(page, '#i_ruler_brg'), '90°T');
        const before = await valueOf(page, '#i_ruler_length');
        await j.drag(page, { x: C.x + 50, y: C.y }, { x: C.x + 50, y: C.y - 100 });
        await j.until(async () => (await j.text(page, '#i_ruler_brg')).trim() === '45°T', 'the ruler turned');
        const after = await valueOf(page, '#i_ruler_length');
        assert.match(after, /^\d+(\.\d+)?\snm$/);
        assert.ok(parseFloat(after) > parseFloat(before) * 1.3, `${before} -> ${after}`);
        await j.select(page, '#i_ruler_color', 'Green');
        await j.select(page, '#i_ruler_point_list', '2 - WP 2');
        await j.click(page, '#btn_ruler_waypoint_note');
        await j.type(page, '#i_nob_comment', 'pier head');
        await j.click(page, '#btn_nob_save', { hides: '#np_nob_comment' });
        assert.deepStrictEqual(await page.evaluate(() => [kelvor.rulerList[0].color, kelvor.rulerList[0].m[1].note]),
            ['#00ff00', 'pier head']);
        await j.shot(page, 'route-ruler');
        await j.click(page, '#cp_ruler_menu .menu_btn:has-text("Back")');

        /* the chart follows the pointer, up, so that new objects keep clear of the ruler */
        const centre = () => page.evaluate(() => [cpApp.map.cx, cpApp.map.cy]);
        const c0 = await centre();
        await j.drag(page, { x: 300, y: 650 }, { x: 300, y: 450 });
        await j.chartPainted(page);
        const c1 = await centre();
        assert.ok(Math.abs(c1[0] - c0[0]) <= 1 && Math.abs(c1[1] - c0[1] - 200) <= 1, `panned from ${c0} to ${c1}`);

        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Marker'));
        await j.click(page, '#btn_marker_add');
        await j.click(page, '#btn_marker_note');
        await j.type(page, '#i_nob_comment', 'Fuel <dock> & water');
        await j.click(page, '#btn_nob_save', { hides: '#np_nob_comment' });
        assert.strictEqual(await valueOf(page, '#i_marker_note'), 'Fuel <dock> & water');
        await j.click(page, '#cp_marker_menu .menu_btn:has-text("Back")');

        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Route'));
        await j.click(page, '#btn_route_add', { shows: '#i_route_name' });
        const wp1 = { x: 450, y: 550 }, wp3 = { x: 820, y: 200 };
        await j.drag(page, { x: C.x + 50, y: C.y }, wp3);
        await j.drag(page, { x: C.x - 50, y: C.y }, wp1);
        const leg = { x: wp1.x + (wp3.x - wp1.x) / 4, y: wp1.y + (wp3.y - wp1.y) / 4 };
        await j.drag(page, leg, { x: 480, y: 380 });
        await j.until(() => page.evaluate(() => kelvor.routeList.length === 1 && kelvor.routeList[0].m.length === 3),
            'a third waypoint');
        await j.shot(page, 'route-three-points');

        await j.click(page, '#btn_route_lock');
        await j.click(page, '#btn_route_activate', { shows: '#i_boat_stop_route' });
        for (const sel of ['#i_boat_brg', '#i_boat_rng']) {
            await j.until(async () => /\d/.test(await j.text(page, sel)), sel + ' shows a value');
        }
        assert.match(await valueOf(page, '#i_boat_brg'), /^\d+°T$/);
        assert.match(await valueOf(page, '#i_boat_rng'), /^\d+(\.\d+)?\snm$/);

        await j.click(page, '#i_screen_more', { shows: '#r_dist_outer' });
        await j.waitInView(page, '#r_dist_outer_ship');
        await j.until(async () => /^\d+(\.\d+)?\s(m|nm)$/.test((await j.text(page, '#r_dist_xte')).trim()),
            'the cross-track distance');
        await j.waitInView(page, '#r_dist_xte');
        await j.shot(page, 'route-active');

        await j.until(() => page.evaluate(() => !cpApp.modified), 'the objects saved', 20000);
        await page.reload();
        await j.chartPainted(page);
        assert.deepStrictEqual(await page.evaluate(() => [kelvor.routeList.map((r) => [r.m.length, r.locked]),
            kelvor.rulerList.map((r) => r.m[1].note), kelvor.marker.userMarkers().map((m) => m.note)]),
        [[[3, true]], ['pier head'], ['Fuel <dock> & water']], 'saved after the last change, back locked');
    });
});
