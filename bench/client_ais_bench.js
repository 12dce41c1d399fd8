#!/usr/bin/env node
/*
** client_ais_bench.js: the cost of AIS traffic in a render pass.
**
** Starts build/mareplotd (or MAREPLOTD) and Debian's chromium at 1280 by
** 800 on the 2D path, puts 100 and then 500 moving class A targets with
** hull sizes and rates of turn into the view (as one status reply would),
** with both labels, the predictor and the tracks on, and times 200 render
** passes for each: the whole pass and the AIS drawing alone.
**
**   flock /tmp/mareplot-port.lock node bench/client_ais_bench.js
*/
'use strict';

const { settled, setAndReload } = require('../tests/client/browser');
const { pct, withClient } = require('./bench_client');

async function main() {
    await withClient(async (page) => {
        await setAndReload(page, () => {
            const k = kelvor.settings.k;
            k.wizzard = COREVERSION;
            k.C.i_opengl_mode = false;
            k.map = { lonX: 10.1, latY: 54.52, zoom: 13 };
            k.S.i_traffic_ais_marker_text_1 = 1;
            k.S.i_traffic_ais_marker_text_2 = 5;
            k.S.i_traffic_ais_predictor = 1080;
            k.S.i_traffic_ais_track_length = 600;
        });
        await settled(page, 30000);
        for (const n of [100, 500]) {
            const r = await page.evaluate((count) => {
                const m = cpApp.map, A = kelvor.ais, B = MERC_SPHERE_BASE;
                A.ais_elem = {};
                const c = m.getPosWorldMerc(), w = m.getWidth() / m.getScm(), h = m.getHeight() / m.getScm();
                const rows = [];
                for (let i = 0; i < count; i++) {
                    const x = Math.round(c.x + (Math.random() - 0.5) * w), y = Math.round(c.y + (Math.random() - 0.5) * h);
                    rows.push([211000000 + i, 5, 0, 0, 0, 'DA' + i, 'SHIP ' + i, 70, 'KIEL', 0, 60, 20, 8, 8, 50, 0]);
                    for (let t = 0; t < 5; t++) {
                        rows.push([211000000 + i, 1, 0, x + t * 20, y - t * 20, 80 + i % 50, (i * 37) % 3600,
                            (i * 37 / 10) | 0, (i % 7) * 10 - 30, 0]);
                    }
                }
                kelvor.boat.loctime = new Date().gT();
                A.setAisData({ ais: rows, aisuserid: 0 });
                const all = [], ais = [];
                const orig = A.render;
                A.render = function (ctx) {
                    const t0 = performance.now();
                    orig(ctx);
                    ais.push(performance.now() - t0);
                };
                for (let i = 0; i < 200; i++) {
                    const t0 = performance.now();
                    m.render();
                    all.push(performance.now() - t0);
                }
                A.render = orig;
                return { all, ais, shown: Object.keys(A.ais_elem).length };
            }, n);
            console.log(`${n} targets (${r.shown} records): pass median ${pct(r.all, 0.5).toFixed(2)} ms, ` +
                `p90 ${pct(r.all, 0.9).toFixed(2)} ms; AIS drawing median ${pct(r.ais, 0.5).toFixed(2)} ms, ` +
                `p90 ${pct(r.ais, 0.9).toFixed(2)} ms`);
        }
    });
}

main().catch((e) => { console.error(e); process.exit(1); });
