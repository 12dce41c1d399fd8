/* Chart kits made from GeoTIFFs by mareplot-chartkit make, offered by its serve, set up, listed,
** downloaded, switched and deleted through the screen. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');
const j = require('./journey');
const { chartServer } = require('./chart_server');
const { MAREPLOTD } = require('../client/browser');
const { load } = require('../client/harness');

const CHARTKIT = process.env.MAREPLOT_CHARTKIT || path.join(path.dirname(MAREPLOTD), 'mareplot-chartkit');
const KIEL = [200, 60, 60], SOUND = [60, 160, 60];
/* the client's own grid places the markers */
const geo = load(['kelvor.js']).kelvor.geo;

function run(cmd, args, input) {
    const r = spawnSync(cmd, args, { input });
    if (r.status !== 0) throw new Error(cmd + ' ' + args.join(' ') + ': ' + r.stderr);
}

/* A one-colour GeoTIFF with noise (so the download is not tiny) over [west, south, east, north], by GDAL. */
function raster(dir, name, rgb, box) {
    const w = 512, h = 512, img = Buffer.alloc(w * h * 3);
    let seed = 12345;
    for (let i = 0; i < img.length; i++) {
        seed = (seed * 1103515245 + 12345) & 0x7fffffff;
        img[i] = Math.max(0, Math.min(255, rgb[i % 3] + ((seed >> 16) % 17) - 8));
    }
    const ppm = path.join(dir, name + '.ppm'), tif = path.join(dir, name + '.tif');
    fs.writeFileSync(ppm, Buffer.concat([Buffer.from(`P6\n${w} ${h}\n255\n`), img]));
    const [west, south, east, north] = box.map(String);
    run('gdal_translate', ['-q', '-of', 'GTiff', '-a_srs', 'EPSG:4326', '-a_ullr', west, north, east, south, ppm, tif]);
    return tif;
}

/* Makes A<id>.marepack in dir from o.charts ({ name: box }), o.markers (lang -> texts) in its first chart. */
function kit(dir, id, o) {
    const work = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-kit-src-'));
    const file = path.join(dir, 'A' + String(id).padStart(6, '0') + '.marepack');
    const inputs = Object.keys(o.charts).map((n) => raster(work, n, o.rgb, o.charts[n]));
    run(CHARTKIT, ['make', '--id', String(id), '--name', o.name, '--out', file].concat(inputs));
    fs.rmSync(work, { recursive: true, force: true });
    const [w, s, e, n] = o.charts[Object.keys(o.charts)[0]];
    const sql = [];
    for (const lang of Object.keys(o.markers)) {
        o.markers[lang].forEach((txt, i) => {
            const m = { x: Math.round(geo.lon2x(w + (i + 1) * (e - w) / 4)), y: Math.round(geo.lat2y(n - (n - s) / 4)),
                s: 400000, txt };
            sql.push(`INSERT INTO kvt VALUES('mrk','${JSON.stringify(m)}',5,'${lang}');`);
        });
    }
    if (sql.length) run('sqlite3', [file], sql.join('\n'));
    return file;
}

/* The share of sample points around the middle of the map that show rgb. */
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

async function openKits(page) {
    await j.openMainMenu(page);
    await j.click(page, j.menuEntry('Charts'));
    await j.click(page, '#btn_chartkit_update', { shows: '#np_chartkit_add_form h2' });
}

test('chart kits from a chart server: set, list, download, switch, delete', { timeout: 300000 }, async () => {
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-kits-'));
    const kiel = kit(dir, 5, {
        name: 'Kiel red', rgb: KIEL,
        charts: { Kiel_Fjord: [10.1, 54.32, 10.22, 54.42], Kiel_Bay: [10.0, 54.3, 10.6, 54.7] },
        markers: { de: ['Leuchtturm'], en: ['Lighthouse', 'Pier'] },
    });
    const sound = kit(dir, 6, { name: 'Sound green', rgb: SOUND, charts: { Sound: [12.5, 55.7, 12.7, 55.9] }, markers: {} });
    /* slowed so that the download shows its progress */
    const server = await chartServer(CHARTKIT, dir, ['--rate', '250000']);
    try {
        await j.journey('chartkits', {}, async (page, s) => await steps(page, s.host.home, server, [kiel, sound]));
    } finally {
        await server.stop();
        fs.rmSync(dir, { recursive: true, force: true });
    }
});

async function steps(page, home, server, [kiel, sound]) {
    const key = path.join(home, '.local/share/mareplot', 'chartserver.key');
    await openKits(page);
    assert.match(await j.text(page, '#np_chartkit_add_form'), /No chart server is set\./);
    await j.shot(page, 'chartkits-no-server');
    await j.click(page, '#btn_chartkit_settings', { shows: '#i_chart_server' });
    assert.strictEqual(await page.evaluate(() => document.activeElement.id), 'i_chart_server');

    await page.keyboard.type('charts.lan/../x');
    await j.click(page, '#btn_settings_done', { shows: '#i_chart_server_error' });
    await j.shot(page, 'chartkits-server-refused');
    assert.ok(await j.isInView(page, '#np_settings_dlg .np_tabs'), 'Settings stay open');
    assert.ok(!fs.existsSync(key));

    await j.type(page, '#i_chart_server', server.address);
    /* the message made the dialogue taller than the window; Done stays in view */
    await j.settingsDone(page);
    assert.strictEqual(fs.readFileSync(key, 'utf8').trim(), server.address);

    await openKits(page);
    await j.waitInView(page, '#btn_chartkit_exec');
    const rows = await page.locator('#t_chartkit_list tr').allInnerTexts();
    const mb = (f) => (fs.statSync(f).size / 1000000).toFixed(1) + ' MB';
    assert.deepStrictEqual(rows.map((r) => r.replace(/\s+/g, ' ').trim()),
        [`Kiel red ${mb(kiel)} New`, `Sound green ${mb(sound)} New`]);
    await j.shot(page, 'chartkits-list');

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

    await j.select(page, '#i_chartkit_kit', 'Base chart');
    await j.until(async () => (await state(page)).kit === 'A000002.marepack', 'the base chart', 10000);
    assert.ok(await share(page, 'chartkits-base', KIEL) < 0.1, 'the base chart on screen');
    await j.select(page, '#i_chartkit_kit', 'Kiel red');
    await j.until(async () => (await state(page)).kit === 'A000005.marepack', 'the kit again', 10000);
    assert.ok(await share(page, 'chartkits-kiel-again', KIEL) > 0.8);

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

    await openKits(page);
    await j.waitInView(page, '#btn_chartkit_exec');
    assert.match(await j.text(page, '#t_chartkit_list'), /Kiel red\s+[\d.]+ MB\s+Installed/);
    await j.click(page, '#kit_5');
    await j.click(page, '#btn_chartkit_exec', { shows: '#np_chartkit_yesno' });
    assert.match(await j.text(page, '#np_chartkit_yesno_text'), /Delete these chart kits\?\s+Kiel red/);
    await j.shot(page, 'chartkits-delete');
    await j.click(page, '#np_chartkit_yesno button:text-is("Yes")');
    await j.until(async () => (await state(page)).kit === 'A000002.marepack', 'the base chart after deleting', 10000);
    st = await state(page);
    assert.ok(!st.listed.includes(5));
    assert.ok(!fs.existsSync(path.join(home, '.local/share/mareplot/A000005.marepack')), 'the file is gone');
    await j.openMainMenu(page);
    await j.click(page, j.menuEntry('Charts'), { shows: '#i_chartkit_kit' });
    assert.deepStrictEqual(await page.locator('#i_chartkit_kit option').allInnerTexts(), ['Base chart']);

    await server.stop();
    await j.click(page, '#btn_chartkit_update');
    await j.until(async () => /could not be reached/.test(await j.text(page, '#np_chartkit_add_form')), 'the message', 20000);
    assert.ok((await j.text(page, '#np_chartkit_add_form')).includes(server.address));
    assert.ok(await j.isInView(page, '#btn_chartkit_settings'));
    await j.shot(page, 'chartkits-unreachable');
}
