#!/usr/bin/env node
/*
** readme_shots.js -- makes the two pictures of the README's "Your own
** charts": an S-57 kit and a raster kit in the chart client.
**
**     node tools/readme_shots.js [BUILD_DIR]      (default: build)
**
** It runs itself again inside tests/support/isolate.sh, so the host it
** starts has a loopback of its own. From BUILD_DIR it needs mareplotd,
** mareplot-chartkit and bench/s57_bench; from Debian, GDAL's tools and
** ferret-datasets (NOAA's ETOPO5 relief).
**
** The inputs: the harbour approach cell that s57_bench writes through
** GDAL's S57 writer, and a colour relief of the North Sea and the western
** Baltic from ETOPO5 that GDAL tiles into raster MBTiles. Each becomes a
** kit with `mareplot-chartkit make`, and `mareplot-chartkit serve` offers
** both. Then, in headless chromium at 1280 by 800, it does what a user
** does: types the server's address into Settings, Chart, downloads each
** kit in the kit dialogue, zooms and pans by the map's own controls, and
** writes docs/img/chartkit-raster.png and docs/img/chartkit-s57.png.
*/
'use strict';

const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');

const ROOT = path.resolve(__dirname, '..');
const BUILD = path.resolve(ROOT, process.argv[2] || 'build');
const OUT = path.join(ROOT, 'docs/img');
const RELIEF = '/usr/share/ferret-vis/data/etopo5.cdf';

/* The run inside isolate.sh is marked by an argument of its own: where
** isolate.sh can make no namespace it runs the command under a lock
** without marking the environment. */
const INNER = '--isolated';
if (process.argv[3] !== INNER) {
    const r = spawnSync(path.join(ROOT, 'tests/support/isolate.sh'), [process.execPath, __filename, BUILD, INNER],
        { stdio: 'inherit' });
    process.exit(r.status === null ? 1 : r.status);
}

process.env.MAREPLOTD = path.join(BUILD, 'mareplotd');
process.env.JOURNEY_SHOTS = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-shots-'));
const j = require('../tests/journeys/journey');
const { chartServer } = require('../tests/journeys/chart_server');
const CHARTKIT = path.join(BUILD, 'mareplot-chartkit');

function run(cmd, args) {
    const r = spawnSync(cmd, args, { encoding: 'utf8' });
    if (r.status !== 0) throw new Error(cmd + ' ' + args.join(' ') + ' failed: ' + (r.stderr || r.error));
    return r.stdout;
}

/* Depth and height colours of the relief, metres: shades of blue that
** lighten towards the shore as on a paper chart, buff land above. */
const RELIEF_COLOURS = [
    '-3000 40 90 160', '-500 70 125 190', '-100 120 170 215', '-50 155 195 230', '-20 185 215 240',
    '-5 205 228 245', '0 215 235 248', '1 240 228 180', '100 225 210 160', '500 200 180 130',
    '2000 170 150 110', 'nv 0 0 0 0',
].join('\n') + '\n';

/* The two kits in dir: 101 from the harbour cell, 102 from the relief. */
function makeKits(work, dir) {
    run(path.join(BUILD, 'bench/s57_bench'), ['--keep', path.join(work, 'cell')]);
    const at = (name) => path.join(work, name);
    fs.writeFileSync(at('colours.txt'), RELIEF_COLOURS);
    run('gdal_translate', ['-q', '-projwin', '2', '60', '16', '52', '-a_srs', 'EPSG:4326', RELIEF, at('cut.tif')]);
    run('gdalwarp', ['-q', '-tr', '0.01', '0.01', '-r', 'cubicspline', at('cut.tif'), at('fine.tif')]);
    run('gdaldem', ['color-relief', '-q', '-nearest_color_entry', '-alpha', at('fine.tif'), at('colours.txt'), at('relief.tif')]);
    run('gdal_translate', ['-q', '-of', 'MBTILES', at('relief.tif'), at('relief.mbtiles')]);
    run('gdaladdo', ['-q', '-r', 'average', at('relief.mbtiles'), '2', '4', '8']);
    run(CHARTKIT, ['make', '--id', '101', '--name', 'Harbour approach', '--out', path.join(dir, 'A000101.marepack'),
        path.join(work, 'cell/MP5BENCH.000')]);
    run(CHARTKIT, ['make', '--id', '102', '--name', 'North Sea relief', '--out', path.join(dir, 'A000102.marepack'),
        at('relief.mbtiles')]);
}

const serve = (dir) => chartServer(CHARTKIT, dir);

const kitInUse = (page) => page.evaluate(() => kelvor.settings.k.chartkit);

/* Charts, "Chart kits": ticks the kit and downloads it, then waits until
** the client shows it. */
async function download(page, id) {
    await j.openMainMenu(page);
    await j.click(page, j.menuEntry('Charts'));
    await j.click(page, '#btn_chartkit_update');
    await j.waitInView(page, '#btn_chartkit_exec');
    await j.click(page, '#kit_' + id);
    await j.click(page, '#btn_chartkit_exec');
    const file = 'A' + String(id).padStart(6, '0') + '.marepack';
    await j.until(async () => (await kitInUse(page)) === file, file + ' in use', 120000);
}

/* Presses the zoom-in button until the scale is 1:scale or closer. */
async function zoomTo(page, scale) {
    for (;;) {
        const before = await page.evaluate(() => cpApp.map.mapScale);
        if (before <= scale) return;
        await j.click(page, '#cp_map_zup');
        await j.until(() => page.evaluate((b) => cpApp.map.mapScale < b, before), 'zoomed in');
    }
}

/* Drags the chart with the mouse so that the point lon, lat comes to the
** middle of the map. The drag starts in the middle, where the map is
** free of bars. */
async function centreOn(page, lon, lat) {
    const v = await page.evaluate((p) => {
        const m = cpApp.map;
        return { w: m.sx, h: m.sy, dx: kelvor.geo.lon2x(p[0], m.base) - m.cx, dy: kelvor.geo.lat2y(p[1], m.base) - m.cy };
    }, [lon, lat]);
    const from = { x: v.w / 2, y: v.h / 2 };
    await page.mouse.move(from.x, from.y);
    await page.mouse.down();
    for (let i = 1; i <= 10; i++) await page.mouse.move(from.x - v.dx * i / 10, from.y - v.dy * i / 10);
    await page.mouse.up();
}

/* Waits for the chart to paint and copies the screenshot to docs/img. */
async function picture(page, name) {
    await j.chartPainted(page);
    const img = await j.shot(page, name);
    fs.mkdirSync(OUT, { recursive: true });
    fs.copyFileSync(img.file, path.join(OUT, name + '.png'));
    console.log(path.join(OUT, name + '.png') + ': ' + fs.statSync(img.file).size + ' bytes');
}

async function main() {
    const work = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-shots-src-'));
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'mareplot-shots-kits-'));
    let server = null, s = null;
    try {
        makeKits(work, dir);
        server = await serve(dir);
        s = await j.firstStart();
        const page = s.page;

        await j.openSettings(page, 'Chart');
        await j.type(page, '#i_chart_server', server.address);
        await j.settingsDone(page);

        await download(page, 102);
        await zoomTo(page, 2000000);
        await centreOn(page, 9.0, 57.2);
        await picture(page, 'chartkit-raster');

        /* the shore with a buoyed channel, beacons and lights */
        await download(page, 101);
        await zoomTo(page, 25000);
        await centreOn(page, 10.1525, 54.382);
        await picture(page, 'chartkit-s57');
    } finally {
        if (s) await s.close();
        if (server) await server.stop();
        for (const d of [work, dir, process.env.JOURNEY_SHOTS]) fs.rmSync(d, { recursive: true, force: true });
    }
}

main().catch((e) => {
    console.error('readme_shots: ' + (e && e.stack ? e.stack : e));
    process.exit(1);
});
