/*
** Chart kits: without a chart server the kit dialogue says so and leads to
** Settings; with one typed into Settings, Chart, the dialogue lists the
** server's two kits as new, downloads one with its progress and shows it;
** the chart kit bar switches to the base chart and back, goes to a chart
** of the kit and changes its map language; ticking the installed kit
** deletes it after a question.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawn, spawnSync } = require('child_process');
const j = require('./journey');
const { writeChartPack, solidPng, MAREPLOTD } = require('../client/browser');

const CHARTKIT = process.env.MAREPLOT_CHARTKIT || path.join(path.dirname(MAREPLOTD), 'mareplot-chartkit');
const B = 40030178.618589391188160183529977;
const KIEL = [200, 60, 60], SOUND = [60, 160, 60];

const mx = (lon) => B * (lon + 180) / 360;
const my = (lat) => {
    const r = lat * Math.PI / 180;
    return B * (1 - Math.log(Math.tan(r) + 1 / Math.cos(r)) / Math.PI) / 2;
};

/* A chart list entry for a box in degrees. */
function chart(nu, na, sc, w, s, e, n) {
    const x1 = Math.round(mx(w)), x2 = Math.round(mx(e)), y1 = Math.round(my(n)), y2 = Math.round(my(s));
    return { nu, na, ed: '01/01/2026', sc, un: '', sd: '', x1, y1, x2, y2, po: [x1, y1, x2, y1, x2, y2, x1, y2] };
}

/*
** Writes kit A<id>.marepack into dir: tiles of one colour over a box in
** degrees at zooms 7 to 13, its charts, a version, a kit name, chart
** markers per language (lang -> texts), and filler so that the download
** takes a few polls.
*/
function kit(dir, id, o) {
    const png = solidPng(o.rgb), tiles = {}, av = {};
    const [w, s, e, n] = o.tiles;
    for (let z = 7; z <= 13; z++) {
        const t = Math.pow(2, z), side = B / t;
        for (let y = Math.floor(my(n) / side); y <= Math.floor(my(s) / side); y++) {
            for (let x = Math.floor(mx(w) / side); x <= Math.floor(mx(e) / side); x++) {
                const key = z * 1099511627776 + y * 1048576 + x;
                tiles[key] = png;
                av[key] = 1;
            }
        }
    }
    const name = 'A' + String(id).padStart(6, '0') + '.marepack';
    const file = writeChartPack(dir, name, tiles, { avtiles2: av, chartlist: o.charts, version: o.version, filler: 'x'.repeat(600000) });
    const q = (t) => "'" + String(t).replace(/'/g, "''") + "'";
    const sql = [`INSERT INTO kvt VALUES('kitname',${q(o.name)},5,'**');`];
    const c = o.charts[0];
    for (const lang of Object.keys(o.markers)) {
        o.markers[lang].forEach((txt, i) => {
            const m = { x: Math.round(c.x1 + (i + 1) * (c.x2 - c.x1) / 4), y: Math.round(c.y1 + (c.y2 - c.y1) / 4), s: 400000, txt };
            sql.push(`INSERT INTO kvt VALUES('mrk',${q(JSON.stringify(m))},5,'${lang}');`);
        });
    }
    const r = spawnSync('sqlite3', [file], { input: sql.join('\n') });
    if (r.status !== 0) throw new Error('sqlite3: ' + r.stderr);
    return file;
}

/* mareplot-chartkit serve on a free port for the packs in dir, slowed so
** that a download shows its progress. */
async function serve(dir) {
    const portFile = path.join(dir, 'port');
    const proc = spawn(CHARTKIT, ['serve', '--dir', dir, '--port', '0', '--port-file', portFile, '--rate', '250000'],
        { stdio: ['ignore', 'ignore', 'inherit'] });
    let exited = false;
    const gone = new Promise((res) => proc.on('exit', () => { exited = true; res(); }));
    await j.until(() => exited || fs.existsSync(portFile), 'the chart server\'s port file', 20000);
    if (exited) throw new Error('mareplot-chartkit serve ended');
    return {
        address: '127.0.0.1:' + Number(fs.readFileSync(portFile, 'utf8')),
        async stop() {
            if (!exited) proc.kill('SIGTERM');
            await gone;
        },
    };
}

/* The share of sample points around the middle of the map that show the
** colour rgb. */
async function share(page, name, rgb) {
    await j.chartPainted(page);
    const img = await j.shot(page, name);
    let hit = 0, all = 0;
    for (let dy = -150; dy <= 150; dy += 50) {
        for (let dx = -250; dx <= 250; dx += 50) {
            const p = img.pixel(615 + dx, 400 + dy);
            all++;
            if (Math.abs(p[0] - rgb[0]) + Math.abs(p[1] - rgb[1]) + Math.abs(p[2] - rgb[2]) < 30) hit++;
        }
    }
    return hit / all;
}

const state = (page) => page.evaluate(() => ({
    kit: kelvor.settings.k.chartkit,
    listed: Object.keys(kelvor.settings.k.chartKitList2).map(Number),
    selected: kelvor.chartkit.chartList.map((c) => !!c.selected),
    lang: kelvor.settings.k.maplang[kelvor.settings.k.chartkit],
    markers: kelvor.chartkit.markerList.map((m) => m.txt),
    scale: cpApp.map.getScm(),
}));

/* Opens the kit dialogue from the main menu's Charts and its bar. */
async function openKits(page) {
    await j.openMainMenu(page);
    await j.click(page, j.menuEntry('Charts'));
    await j.click(page, '#btn_chartkit_update');
    await j.waitInView(page, '#np_chartkit_add_form h2');
}

test('chart kits from a chart server: set, list, download, switch, delete', { timeout: 300000 }, async () => {
    const packs = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-kits-'));
    const dir = path.join(packs, '.local/share/mareplot');
    fs.mkdirSync(dir, { recursive: true });
    const kiel = kit(packs, 5, {
        name: 'Kiel red', version: 7, rgb: KIEL, tiles: [9.7, 54.15, 10.8, 54.75],
        charts: [chart('K1', 'Kiel_Fjord', 50000, 10.1, 54.32, 10.22, 54.42),
            chart('K2', 'Kiel_Bay', 200000, 10.0, 54.3, 10.6, 54.7)],
        markers: { de: ['Leuchtturm'], en: ['Lighthouse', 'Pier'] },
    });
    const sound = kit(packs, 6, {
        name: 'Sound green', version: 3, rgb: SOUND, tiles: [12.4, 55.6, 12.8, 56.0],
        charts: [chart('S1', 'Sound', 100000, 12.5, 55.7, 12.7, 55.9)], markers: {},
    });
    const server = await serve(dir);
    const s = await j.firstStart();
    const page = s.page;
    const key = path.join(s.host.home, '.local/share/mareplot', 'chartserver.key');
    try {
        /* no server yet: the dialogue says so, and its button leads to the field */
        await openKits(page);
        assert.match(await j.text(page, '#np_chartkit_add_form'), /No chart server is set\./);
        await j.shot(page, 'chartkits-no-server');
        await j.click(page, '#btn_chartkit_settings');
        await j.waitInView(page, '#i_chart_server');
        assert.strictEqual(await page.evaluate(() => document.activeElement.id), 'i_chart_server');

        /* a path is refused where it is typed, and nothing is stored */
        await page.keyboard.type('charts.lan/../x');
        await j.click(page, '#btn_settings_done');
        await j.waitInView(page, '#i_chart_server_error');
        assert.ok(await j.isInView(page, '#np_settings_dlg .np_tabs'), 'Settings stay open');
        assert.ok(!fs.existsSync(key));

        await j.type(page, '#i_chart_server', server.address);
        /* the message made the dialogue longer than the window: scroll to Done */
        const box = await page.locator('#np_settings_dlg .np_dialog_box').boundingBox();
        await page.mouse.move(box.x + box.width / 2, 400);
        await page.mouse.wheel(0, 300);
        await j.settingsDone(page);
        assert.strictEqual(fs.readFileSync(key, 'utf8').trim(), server.address);

        /* both kits are new */
        await openKits(page);
        await j.waitInView(page, '#btn_chartkit_exec');
        const rows = await page.locator('#t_chartkit_list tr').allInnerTexts();
        const mb = (f) => (fs.statSync(f).size / 1000000).toFixed(1) + ' MB';
        assert.deepStrictEqual(rows.map((r) => r.replace(/\s+/g, ' ').trim()),
            [`Kiel red ${mb(kiel)} New`, `Sound green ${mb(sound)} New`]);
        await j.shot(page, 'chartkits-list');

        /* download one: the progress shows, then the kit is in use */
        await j.click(page, '#kit_5');
        await j.click(page, '#btn_chartkit_exec');
        const seen = new Set();
        await j.until(async () => {
            const t = await page.evaluate(() => {
                const e = document.getElementById('np_chartkit_progress_text');
                return e.offsetParent ? e.innerText.replace(/\s+/g, ' ') : '';
            });
            if (/\d+ %/.test(t)) seen.add(t);
            return (await state(page)).kit === 'A000005.marepack';
        }, 'the downloaded kit in use', 60000);
        assert.ok([...seen].some((t) => /Kiel red/.test(t) && /\d\.\d\d MB \/ \d\.\d\d MB/.test(t)), [...seen].join(' | '));
        assert.ok(seen.size >= 2, 'progress moved: ' + [...seen].join(' | '));
        await j.waitInView(page, '#i_chartkit_kit');
        let st = await state(page);
        assert.deepStrictEqual([st.listed.includes(5), st.selected], [true, [false, true]],
            'first the chart of the largest scale below 1:5000000');
        assert.ok(await share(page, 'chartkits-kiel', KIEL) > 0.8, 'the kit\'s chart on screen');

        /* the bar: back to the base chart and to the kit again */
        await j.select(page, '#i_chartkit_kit', 'Base chart');
        await j.until(async () => (await state(page)).kit === 'A000002.marepack', 'the base chart', 10000);
        assert.ok(await share(page, 'chartkits-base', KIEL) < 0.1, 'the base chart on screen');
        await j.select(page, '#i_chartkit_kit', 'Kiel red');
        await j.until(async () => (await state(page)).kit === 'A000005.marepack', 'the kit again', 10000);
        assert.ok(await share(page, 'chartkits-kiel-again', KIEL) > 0.8);

        /* a chart of the kit, and the map language */
        const before = (await state(page)).scale;
        await j.select(page, '#i_chartkit_chart', 'Kiel Fjord');
        await j.chartPainted(page);
        st = await state(page);
        assert.deepStrictEqual(st.selected, [true, false]);
        assert.ok(st.scale > before, 'the fjord\'s chart shows it closer');
        assert.deepStrictEqual([st.lang, st.markers], ['de', ['Leuchtturm']]);
        await j.select(page, '#i_chartkit_lang', 'English');
        st = await state(page);
        assert.deepStrictEqual([st.lang, st.markers], ['en', ['Lighthouse', 'Pier']]);
        await j.shot(page, 'chartkits-bar');

        /* the installed kit says so; ticking it deletes it after a question */
        await openKits(page);
        await j.waitInView(page, '#btn_chartkit_exec');
        assert.match(await j.text(page, '#t_chartkit_list'), /Kiel red\s+[\d.]+ MB\s+Installed/);
        await j.click(page, '#kit_5');
        await j.click(page, '#btn_chartkit_exec');
        await j.waitInView(page, '#np_chartkit_yesno');
        assert.match(await j.text(page, '#np_chartkit_yesno_text'), /Delete these chart kits\?\s+Kiel red/);
        await j.shot(page, 'chartkits-delete');
        await j.click(page, '#np_chartkit_yesno button:text-is("Yes")');
        await j.until(async () => (await state(page)).kit === 'A000002.marepack', 'the base chart after deleting', 10000);
        st = await state(page);
        assert.ok(!st.listed.includes(5));
        assert.ok(!fs.existsSync(path.join(s.host.home, '.local/share/mareplot/A000005.marepack')), 'the file is gone');
        await j.openMainMenu(page);
        await j.click(page, j.menuEntry('Charts'));
        await j.waitInView(page, '#i_chartkit_kit');
        assert.deepStrictEqual(await page.locator('#i_chartkit_kit option').allInnerTexts(), ['Base chart']);
    } finally {
        await s.close();
        await server.stop();
        fs.rmSync(packs, { recursive: true, force: true });
    }
});
