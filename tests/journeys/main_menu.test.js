/* Main menu: the entries no other journey opens, each way of leaving them, and the wind forecast. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');
const { PNG } = require('../client/browser');

/* The forecast service: a 5 by 5 wind grid over 9-11 E, 54-55 N (u, v in red, green: 0-254 for -20-20 m/s). */
const GRID = { x1: 9, y1: 54, x2: 11, y2: 55, gx: 0.5, gy: 0.25, dx: 5, dy: 5, imin: 0, imax: 254,
    umin: -20, umax: 20, vmin: -20, vmax: 20 };
const pixel = (i) => [20 + i * 9, 200 - i * 7];

function forecast(page, asked) {
    const png = new PNG({ width: 5, height: 5 });
    for (let i = 0; i < 25; i++) png.data.set(pixel(i).concat(0, 255), 4 * i);
    const url = 'data:image/png;base64,' + PNG.sync.write(png).toString('base64');
    const now = Math.floor(Date.now() / 1000);
    const rows = [600, 4200, 7800].map((dt) =>
        `INSERT INTO forcastgrids VALUES('test-gfs',${now + dt},1000,'${JSON.stringify(GRID)}','${url}')`);
    const replies = {
        getGridList: JSON.stringify({ g1: { src: 'test-gfs', grp: 1, x1: 9, y1: 54, x2: 11, y2: 55, created: 1000 } }),
        getGridData: ['CREATE TABLE IF NOT EXISTS forcastgrids (src TEXT, vt INTEGER, vt_created INTEGER, json TEXT, ' +
            'png TEXT)'].concat(rows).join('\n'),
    };
    return page.route('http://cloud.mareplot.invalid/**', (route) => {
        const key = [...new URL(route.request().url()).searchParams.keys()][0];
        if (!replies[key]) return route.abort();
        asked.push(key);
        return route.fulfill({ status: 200, body: replies[key], headers: { 'Access-Control-Allow-Origin': '*' } });
    });
}

/* label, what opens, how one leaves it ('x' close, 'back', 'tool' menu button, 'wait' it goes), a text shown */
const ENTRIES = [
    ['Sync', '#np_chartkit_ineterror', 'x', 'Internet Error'],
    ['Current', '#np_wind_nodata', 'x', 'no valid data'],
    ['Log', '#cp_track_menu', 'back', 'Back'],
    ['Route', '#cp_route_menu', 'tool', 'Back'],
    ['MOB', '#cp_boat_menu', 'back', 'Follow'],
    ['Near Me', '#np_table_list', 'x', 'Near Me'],
    ['About', '#help_bubble', 'wait', 'mareplot'],
];

test('every main-menu entry opens and returns', { timeout: 180000 }, async () => {
    await j.journey('main-menu', {}, async (page) => {
        const asked = [];
        await forecast(page, asked);
        await j.waitInView(page, '#cp_menu_main');
        assert.strictEqual(await j.isInView(page, '#cp_tool'), false, 'no menu button while the main menu shows');

        for (const [label, opened, leave, shows] of ENTRIES) {
            await j.openMainMenu(page);
            await j.click(page, j.menuEntry(label), { shows: opened });
            assert.match(await j.text(page, opened), new RegExp(shows), label + ' shows its content');
            await j.shot(page, 'main-menu-' + label.replace(/ /g, '-'));
            if (leave === 'x') {
                await j.click(page, opened + ' > .np_close', { hides: opened });
            } else if (leave === 'back') {
                await j.click(page, opened + ' .menu_btn:has-text("Back")', { hides: opened });
            } else if (leave === 'tool') {
                assert.ok(await j.isInView(page, '#cp_tool'), label + ': the menu button shows beside another bar');
                await j.click(page, '#cp_tool', { hides: opened });
            } else {
                await j.waitHidden(page, opened, 15000);
            }
            await j.waitInView(page, '#cp_menu_main');
        }

        /* Wind: the grid goes through the host's database into barbs and three times */
        await page.evaluate(() => {
            const arrow = kelvor.wind.windArrow;
            window.barbs = 0;
            kelvor.wind.windArrow = function () { window.barbs++; return arrow.apply(this, arguments); };
        });
        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Wind'));
        await j.waitInView(page, '#np_html_wind_time', 20000);
        await j.until(() => page.evaluate(() => window.barbs > 20), 'wind barbs drawn', 20000);
        const downloads = () => asked.filter((k) => k === 'getGridData').length;
        assert.strictEqual(downloads(), 1);
        const [u, v] = pixel(6).map((b) => b * 40 / 254 - 20);
        const node = await page.evaluate(() => kelvor.wind.getWind(54.25, 9.5));
        assert.ok(Math.abs(node.u - u) < 1e-6 && Math.abs(node.v - v) < 1e-6, JSON.stringify(node));
        assert.strictEqual(await page.locator('#np_html_wind_time option').count(), 3);
        await j.shot(page, 'main-menu-Wind');
        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Wind'), { shows: '#np_html_wind_time' });
        assert.strictEqual(downloads(), 1, 'opened again, the stored rows are current');

        assert.strictEqual(await j.isInView(page, '#cp_boat_dash'), false, 'no dashboard over the wind bar');
        const shown = () => page.$eval('#np_html_wind_time', (s) => s.options[s.selectedIndex].text);
        const first = await shown();
        await j.click(page, '#windmenu img[src$="interface-75.png"]');
        await j.until(async () => await shown() !== first, 'the next forecast time shown', 10000);
        await j.shot(page, 'main-menu-Wind-step');
        await j.click(page, '#windmenu .np_close_inline', { hides: '#cp_windfinder_dash' });
        await page.evaluate(() => { window.barbs = 0; window.passes = cpApp.map._renderCount; });
        await j.until(() => page.evaluate(() => cpApp.map._renderCount > window.passes + 1), 'the map painted', 10000);
        assert.strictEqual(await page.evaluate(() => window.barbs), 0, 'no barbs after the close');
        await j.shot(page, 'main-menu-Wind-closed');
    });
});
