#!/usr/bin/env node
/*
** client_bench.js: how fast the chart client shows and pans the chart.
**
** Starts build/mareplotd (or MAREPLOTD) with a fresh data directory and
** Debian's chromium at 1280 by 800, and for the 2D and the WebGL raster
** path measures
**   - first view: page time from navigation to the first render pass with
**     every tile of the view drawn (cold host, cold browser cache);
**   - the same in the same browser again (tiles from its cache);
**   - the view's tile requests alone, made by a bare page in a fresh
**     browser: what the browser needs for them without the client;
**   - pan pass: the median and 90th percentile duration of the render
**     passes during a 2 second drag.
** The WebGL figures are the time to issue the frame; swiftshader finishes
** it on other threads.
**
**   flock /tmp/mareplot-port.lock node bench/client_bench.js [runs]
*/
'use strict';

const path = require('path');
const { openPage, settled, setAndReload, syntheticPack, PAGE } = require('../tests/client/browser');
const { pct, withClient } = require('./bench_client');

async function oneRun(gl) {
    return withClient(async (page, host, b) => {
        /* choose the path and skip the wizard, then measure a fresh load */
        await setAndReload(page, (g) => {
            kelvor.settings.k.wizzard = COREVERSION;
            kelvor.settings.k.C.i_opengl_mode = g;
        }, gl);
        await settled(page, 30000);
        let pack = 'carried';
        if (await page.evaluate(() => cpApp.map.tileList.length) === 0) {
            /* the carried pack has nothing here: measure on the synthetic one */
            syntheticPack(host.home);
            pack = 'synthetic';
            await setAndReload(page, () => {
                kelvor.settings.k.chartkit = 'A000003.marepack';
                kelvor.settings.k.map = { lonX: 10.1, latY: 54.52, zoom: 8 };
            });
            await settled(page, 30000);
        }
        await b.close();
        const c = await openPage({ width: 1280, height: 800 });
        b.close = c.close;
        const p2 = c.page;
        await p2.goto(PAGE);
        await settled(p2, 30000);
        const first = await p2.evaluate(() => ({ at: cpApp.map.firstCompleteAt, tiles: cpApp.map.tileList.length,
            gl: !!cpApp.map.ctx3d }));
        const ids = await p2.evaluate(() => cpApp.map.tileList.map(String));
        const version = await p2.evaluate(() => cpApp.map.mapVersion);
        /* the same start in the same browser: the tiles now come from its
        ** cache (the host's replies allow 900 seconds), as on a restart of
        ** the window soon after the last one */
        await p2.goto(PAGE);
        await settled(p2, 30000);
        const warm = await p2.evaluate(() => cpApp.map.firstCompleteAt);
        await p2.evaluate(() => { cpApp.map.passTimes = []; });
        await p2.mouse.move(900, 500);
        await p2.mouse.down();
        const t0 = Date.now();
        let i = 0;
        while (Date.now() - t0 < 2000) {
            i++;
            await p2.mouse.move(900 - (i % 200) * 3, 500 - (i % 200) * 1.5);
            await p2.waitForTimeout(16);
        }
        await p2.mouse.up();
        const passes = await p2.evaluate(() => cpApp.map.passTimes.slice());
        /* the browser's own floor: the view's tile requests made by a bare
        ** page in a fresh browser, with none of the client's work */
        const f = await openPage({ width: 1280, height: 800 });
        let floor;
        try {
            await f.page.goto(PAGE.replace('/app/marepack.html', '/hostversion'));
            floor = await f.page.evaluate(({ ids, version }) => new Promise((resolve) => {
                const t0 = performance.now();
                let left = ids.length;
                for (const id of ids) {
                    const img = new Image();
                    img.onload = img.onerror = () => { if (--left === 0) resolve(performance.now() - t0); };
                    img.src = '/getTileI/' + version + '/' + id;
                }
            }), { ids, version });
        } finally {
            await f.close();
        }
        return { first, passes, pack, warm, floor };
    });
}

async function main() {
    const runs = Number(process.argv[2]) || 3;
    const rows = [];
    for (const gl of [false, true]) {
        const firsts = [], passes = [], warms = [], floors = [];
        let tiles = 0, usedGl = false, pack = '';
        for (let r = 0; r < runs; r++) {
            const res = await oneRun(gl);
            firsts.push(res.first.at);
            warms.push(res.warm);
            floors.push(res.floor);
            tiles = res.first.tiles;
            usedGl = res.first.gl;
            pack = res.pack;
            passes.push(...res.passes);
        }
        rows.push({
            path: gl ? 'WebGL' : '2D', used: usedGl ? 'WebGL' : '2D', tiles, pack,
            firstMs: pct(firsts, 0.5), warmMs: pct(warms, 0.5), floorMs: pct(floors, 0.5), panMedianMs: pct(passes, 0.5), panP90Ms: pct(passes, 0.9), passes: passes.length,
        });
    }
    console.log('| path | pack | tiles in view | first full view (ms, median of ' + runs + ') | same, warm browser cache (ms) | ' +
        'tile requests alone, bare page (ms) | pan pass median (ms) | pan pass p90 (ms) | passes |');
    console.log('|---|---|---|---|---|---|---|---|---|');
    for (const r of rows) {
        console.log(`| ${r.path}${r.used !== r.path ? ' (fell back to ' + r.used + ')' : ''} | ${r.pack} | ${r.tiles} | ` +
            `${r.firstMs.toFixed(0)} | ${r.warmMs.toFixed(0)} | ${r.floorMs.toFixed(0)} | ${r.panMedianMs.toFixed(2)} | ${r.panP90Ms.toFixed(2)} | ${r.passes} |`);
    }
}

main().catch((e) => {
    console.error(e);
    process.exit(1);
});
