/*
** The remote features in a real browser against the real host. The cloud
** endpoint is not ours, so Playwright answers its requests: backups, the
** grid list and grid SQL, overlays. A backup restores routes, markers and
** the log in one transaction; a routed wind grid goes through the host's
** SQL into barbs and values; an overlay draws in WebGL with its world grid
** and its tappable feature shows its texts. Downloading kits from a chart
** server is the chart kit journey's.
**
** Needs build/mareplotd (or MAREPLOTD) and /usr/bin/chromium; binds port
** 19999, so run it through tests/support/isolate.sh.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { startHost, withPage, settled, syntheticPack } = require('./browser');

const CLOUD = 'http://cloud.mareplot.invalid/**';

/* Answers the cloud endpoint: handler(query, postBody) gives the reply
** text. Cross-origin, so every reply allows any origin. */
async function routeCloud(page, handler) {
    await page.route(CLOUD, (route) => {
        const req = route.request();
        const q = new URL(req.url()).searchParams;
        const body = handler(q, req.postData());
        route.fulfill({ status: 200, body: body === undefined ? '' : body,
            headers: { 'Access-Control-Allow-Origin': '*', 'Content-Type': 'text/plain; charset=utf-8' } });
    });
}

let host;
test.before(async () => { host = await startHost(); });
test.after(async () => { if (host) await host.stop(); });

/* The 2D path at 10.1 E, 54.52 N, zoom 8. */
const plain2d = { settings: { C: { i_opengl_mode: false }, map: { lonX: 10.1, latY: 54.52, zoom: 8 } } };

test('a backup restores routes, markers and the log in one transaction', async () => {
    await withPage(async (page) => {
        let saved = null;
        await routeCloud(page, (q, body) => {
            if (q.has('saveInCloud')) {
                saved = body;
                return '<p id="cloud_saved">Saved</p>';
            }
            if (q.has('loadFromCloud')) return '<p id="cloud_loaded">Loaded</p>|---|' + saved;
            return '';
        });
        const sqls = [];
        page.on('request', (r) => { if (r.url().endsWith('/UexecSql')) sqls.push(r.postData()); });

        await page.evaluate(() => {
            kelvor.route.load(JSON.stringify([{ name: 'Kiel run', m: [{ name: 'a', x: 20000000, y: 12000000 },
                { name: 'b', x: 20001000, y: 12001000 }] }]));
            kelvor.marker.load('[{"name":"Buoy","x":20000500,"y":12000500}]');
            kelvor.route.modified = kelvor.marker.modified = true;
            postSync('/UexecSql', "DELETE FROM log");
            postSync('/UexecSql', "INSERT INTO log (ts,x,y,t,v) VALUES (1700000000,1,2,1,'start'),(1700000060,3,4,1,'fix')");
            kelvor.cloud.saveInCloud(false);
        });
        assert.ok(saved, 'the backup was posted');
        const doc = JSON.parse(saved);
        assert.ok(/Kiel run/.test(doc.rt) && /Buoy/.test(doc.mk));
        assert.deepStrictEqual(doc.tr.map((r) => r[5]), ['start', 'fix']);
        assert.ok(await page.isVisible('#cloud_saved'));

        // everything changes, then the backup comes back
        await page.evaluate(() => {
            kelvor.routeList.length = 0;
            kelvor.marker.markerList = [];
            postSync('/setValue/route', '[]');
            postSync('/setValue/marker', '[]');
            postSync('/UexecSql', 'DELETE FROM log');
            postSync('/UexecSql', "INSERT INTO log (ts,x,y,t,v) VALUES (1,1,1,1,'later')");
        });
        sqls.length = 0;
        await page.evaluate(() => kelvor.cloud.loadFromCloud3('b1'));
        const st = await page.evaluate(() => ({
            routes: kelvor.routeList.map((r) => r.name),
            markers: kelvor.marker.markerList.filter((m) => !m.route).map((m) => m.name),
            log: JSON.parse(postSync('/UexecSql', 'SELECT v FROM log ORDER BY id')).map((r) => r[0]),
            stored: getSync('/getValue/route'),
            dialog: cpApp.activeDialog && cpApp.activeDialog.id,
        }));
        assert.deepStrictEqual(st.routes, ['Kiel run']);
        assert.deepStrictEqual(st.markers, ['Buoy']);
        assert.deepStrictEqual(st.log, ['start', 'fix', 'Data restored']);
        assert.ok(/Kiel run/.test(st.stored), 'restored lists are saved');
        assert.strictEqual(st.dialog, 'np_dialog_common');
        const tx = sqls.filter((s) => s !== 'SELECT v FROM log ORDER BY id');
        assert.strictEqual(tx[0], 'BEGIN');
        assert.strictEqual(tx[1], 'DELETE FROM log');
        assert.strictEqual(tx[tx.length - 1], 'COMMIT');
    }, plain2d);
});

/* A 5 by 5 wind grid over 9 to 11 E, 54 to 55 N; u and v from the red and
** green bytes, u from -20 to 20 and v likewise over bytes 0 to 254. */
const GRID = { x1: 9, y1: 54, x2: 11, y2: 55, gx: 0.5, gy: 0.25, dx: 5, dy: 5, imin: 0, imax: 254,
    umin: -20, umax: 20, vmin: -20, vmax: 20 };
const pixel = (i) => [20 + i * 9, 200 - i * 7];

function expectedWind(lat, lon) {
    const f = (GRID.imax - GRID.imin) / (GRID.umax - GRID.umin);
    const u = (i) => pixel(i)[0] / f - 20, v = (i) => pixel(i)[1] / f - 20;
    const fx = (lon - GRID.x1) / GRID.gx, fy = (lat - GRID.y1) / GRID.gy;
    const ix = Math.floor(fx), iy = Math.floor(fy), ax = fx - ix, ay = fy - iy;
    const at = (g) => {
        const i = ix + iy * GRID.dx;
        return (g(i) * (1 - ax) + g(i + 1) * ax) * (1 - ay) + (g(i + 5) * (1 - ax) + g(i + 6) * ax) * ay;
    };
    return { u: at(u), v: at(v) };
}

test('a routed wind grid goes through the host into barbs and values', async () => {
    await withPage(async (page) => {
        const png = await page.evaluate((px) => {
            const c = document.createElement('canvas');
            c.width = 5;
            c.height = 5;
            const x = c.getContext('2d'), im = x.createImageData(5, 5);
            for (let i = 0; i < 25; i++) im.data.set([px[i][0], px[i][1], 0, 255], 4 * i);
            x.putImageData(im, 0, 0);
            return c.toDataURL('image/png');
        }, Array.from({ length: 25 }, (_, i) => pixel(i)));
        const now = Math.floor(Date.now() / 1000);
        const sql = ['CREATE TABLE IF NOT EXISTS forcastgrids (src TEXT, vt INTEGER, vt_created INTEGER, json TEXT, png TEXT)'];
        for (const vt of [now + 600, now + 4200, now + 7800]) {
            sql.push(`INSERT INTO forcastgrids VALUES('test-gfs',${vt},1000,'${JSON.stringify(GRID)}','${png}')`);
        }
        const asked = [];
        await routeCloud(page, (q) => {
            asked.push([...q.keys()][0]);
            if (q.has('getGridList')) {
                return JSON.stringify({ g1: { src: 'test-gfs', grp: 1, x1: 9, y1: 54, x2: 11, y2: 55, created: 1000 },
                    far: { src: 'far', grp: 1, x1: 100, y1: 0, x2: 101, y2: 1, created: 5 } });
            }
            if (q.get('getGridData') === 'test-gfs') return sql.join('\n');
            return '';
        });
        await page.evaluate(() => kelvor.wind.windFinderOn(1));
        await page.waitForFunction(() => kelvor.wind.grid && kelvor.wind.grid.ud, null, { timeout: 15000 });
        assert.deepStrictEqual(asked, ['getGridList', 'getGridData']);

        const pts = [[54.3, 9.7], [54.52, 10.1], [54.01, 10.49]];
        const got = await page.evaluate((p) => p.map(([lat, lon]) => kelvor.wind.getWind(lat, lon)), pts);
        for (let i = 0; i < pts.length; i++) {
            const w = expectedWind(pts[i][0], pts[i][1]);
            assert.ok(Math.abs(got[i].u - w.u) < 1e-6 && Math.abs(got[i].v - w.v) < 1e-6,
                `${pts[i]}: ${JSON.stringify(got[i])} vs ${JSON.stringify(w)}`);
        }
        const st = await page.evaluate(() => {
            let n = 0;
            const orig = kelvor.wind.windArrow;
            kelvor.wind.windArrow = function () { n++; return orig.apply(this, arguments); };
            cpApp.map.force = true;
            cpApp.map.render();
            kelvor.wind.windArrow = orig;
            const sel = document.getElementById('np_html_wind_time');
            return { arrows: n, times: sel.options.length, legend: document.querySelectorAll('.wind_legend td').length,
                stored: JSON.parse(postSync('/UexecSql', 'SELECT count(*) FROM forcastgrids'))[0][0] };
        });
        assert.ok(st.arrows > 20, `barbs drawn: ${st.arrows}`);
        assert.deepStrictEqual([st.times, st.legend, st.stored], [3, 7, 3]);

        // a second start finds the rows current and asks for no grid data
        asked.length = 0;
        await page.evaluate(() => { kelvor.wind.windFinderOff(); kelvor.wind.windFinderOn(1); });
        assert.ok(!asked.includes('getGridData'), asked.join());
        await page.evaluate(() => kelvor.wind.windFinderStep(1));
        await page.waitForFunction(() => document.getElementById('np_html_wind_time').selectedIndex === 1);
    }, plain2d);
});

/* Sheets drawn in the page: a symbol sheet with a yellow disc in its top
** left quarter, a font sheet with one solid glyph cell. */
function sheets() {
    const mk = (draw) => {
        const c = document.createElement('canvas');
        c.width = 64;
        c.height = 64;
        draw(c.getContext('2d'));
        return c.toDataURL('image/png');
    };
    return {
        sym: mk((x) => { x.fillStyle = '#ffff00'; x.beginPath(); x.arc(16, 16, 14, 0, 7); x.fill(); }),
        font: mk((x) => { x.fillStyle = '#000'; x.fillRect(0, 0, 32, 32); }),
    };
}

/* Counts of the overlay's pure colours in a fresh WebGL pass. */
function overlayColours() {
    const m = cpApp.map, gl = m.ctx3d;
    m.force = true;
    m.render();
    const data = new Uint8Array(gl.drawingBufferWidth * gl.drawingBufferHeight * 4);
    gl.readPixels(0, 0, gl.drawingBufferWidth, gl.drawingBufferHeight, gl.RGBA, gl.UNSIGNED_BYTE, data);
    const n = { red: 0, green: 0, blue: 0, yellow: 0, magenta: 0 };
    for (let i = 0; i < data.length; i += 4) {
        const [r, g, b] = [data[i], data[i + 1], data[i + 2]];
        if (r > 220 && g < 40 && b < 40) n.red++;
        if (r < 30 && g > 170 && g < 230 && b < 30) n.green++;
        if (r < 30 && g < 30 && b > 220) n.blue++;
        if (r > 220 && g > 220 && b < 40) n.yellow++;
        if (r > 220 && g < 40 && b > 220) n.magenta++;
    }
    return n;
}

function overlay(img) {
    const glyph = { u1: 0, v1: 0, u2: 0.5, v2: 0.5, w: 60, h: 100, ofx: 0, ofy: 100 };
    return {
        style: {
            RR: {
                area: { draw: [{ AC: [0, 200, 0, 255] }] },
                fair: { draw: [{ LC: '[0,0,255,255]', LW: 60 }] },
                sym: { draw: [{ SY: 'buoy' }, { TX$: 'NAME', TX: '?', OY: 300, TBOXCOL: [255, 255, 255, 200] }] },
                ring: { draw: [{ RC: 2, RR: 10000, RLC: [255, 0, 255, 255], RW: 30 }] },
                nothere: { draw: [{ SY: 'no such symbol' }] },
            },
            TEX: {
                SY: { 'Blue X': { u1: 0, v1: 0, u2: 0.5, v2: 0.5, w: 300, h: 300, ofx: 150, ofy: 150 },
                    buoy: { u1: 0, v1: 0, u2: 0.5, v2: 0.5, w: 500, h: 500, ofx: 250, ofy: 250 } },
                ArialN: { _defimage: 'font.png', H: glyph, O: glyph },
            },
            IMG: { 'symbols.png': img.sym, 'font.png': img.font },
        },
        map: [
            { _XY: [10.15, 54.45, 10.3, 54.45, 10.3, 54.6, 10.15, 54.6], _RR: 'area', _SC1: 0, _SC2: 50000000 },
            { _XY: [9.9, 54.3, 10.05, 54.7], _RR: 'fair', _LY: 'RTE_FAIRWAY', NAME: 'Test fairway' },
            { _XY: [10.25, 54.4], _RR: ['sym', 'ring'], NAME: 'HO', action: 1, Name: 'Harbour office',
                Description: 'Open 8 to 18' },
            { _XY: [10.0, 54.6], _RR: 'nothere', _LY: 'RTE_MARKER', _ID: 7, NAME: 'Fairway buoy 7' },
            { _XY: [10.1, 54.5], _RR: 'area', _SC1: 1, _SC2: 2 },
        ],
    };
}

test('an overlay draws in WebGL with the world grid; its feature shows its texts', async () => {
    syntheticPack(host.home);
    await withPage(async (page) => {
        const img = await page.evaluate(sheets);
        await page.evaluate((doc) => {
            postSync("/UPexecSql/REPLACE INTO kvt (k,v,t,l) VALUES(3,?,13,'**')", JSON.stringify(doc));
            kelvor.chartkit.loadOverlay();
            cpApp.map.force = true;
            cpApp.update();
        }, overlay(img));
        assert.strictEqual(await page.evaluate(() => !!cpApp.map.ctx3d), true, 'WebGL under swiftshader');
        /* the sheets decode asynchronously; a render now and then (not one
        ** per frame, which starves a loaded machine) takes them up */
        await page.waitForFunction(() => {
            const v = kelvor.chartkit.vectorMap;
            cpApp.map.render();
            return v.style.loaded && v.map.loaded;
        }, null, { timeout: 60000, polling: 100 });
        await settled(page);
        const n = await page.evaluate(overlayColours);
        const st = await page.evaluate(() => {
            const v = kelvor.chartkit.vectorMap;
            return { missing: Object.keys(v.missing), navrte: kelvor.chartkit.navrte.name,
                marker: kelvor.ais.ais_elem.RTEMRK7 && kelvor.ais.ais_elem.RTEMRK7.name,
                scales: v.scaleList, boxes: v.boxTriangles.count(), glyphs: v.fonts.ArialN.buffer.count() };
        });
        for (const c of Object.keys(n)) assert.ok(n[c] > 30, `${c}: ${JSON.stringify(n)}`);
        assert.deepStrictEqual(st.missing, ['no such symbol']);
        assert.strictEqual(st.navrte, 'Test fairway');
        assert.strictEqual(st.marker, 'Fairway buoy 7');
        assert.deepStrictEqual(st.scales, ['0', '1', '2', '50000000'], 'scale keys sorted as text');
        assert.deepStrictEqual([st.boxes, st.glyphs], [6, 12], 'one text box, two glyphs');

        // a lost and restored context draws the kept geometry again
        await page.evaluate(() => {
            const ext = cpApp.map.ctx3d.getExtension('WEBGL_lose_context');
            window.__lose = ext;
            ext.loseContext();
        });
        await page.waitForFunction(() => !cpApp.map.ctx3d);
        await page.evaluate(() => window.__lose.restoreContext());
        await page.waitForFunction(() => !!cpApp.map.ctx3d);
        const after = await page.evaluate(overlayColours);
        assert.ok(await page.evaluate(() => kelvor.chartkit.vectorMap.map.loaded), 'the map kept');
        assert.ok(after.green > 30, JSON.stringify(after));

        // a tap on the feature shows its name and description
        const tapped = await page.evaluate(() => {
            const m = cpApp.map;
            const sx = m.getXpos(10.25) - m.cx + m.sx / 2, sy = m.getYpos(54.4) - m.cy + m.sy / 2;
            const o = m.checkIcon(sx, sy);
            if (!o || !o.onUp) return null;
            o.onUp(m.ctx, 0, 0);
            return document.getElementById('cp_dialog_common').innerText;
        });
        assert.ok(tapped && /Harbour office/.test(tapped) && /Open 8 to 18/.test(tapped), String(tapped));
    }, { settings: { C: { i_opengl_mode: true }, map: plain2d.settings.map, chartkit: 'A000003.marepack' } });
});
