/* The chart on the canvas, read back pixel by pixel: tiles in both raster paths, a WebGL vector overlay,
** both over a lost context, a tap on a feature, the pinch. Run through tests/support/isolate.sh. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { settled, withPage, loaded, PNG } = require('./browser');

/* After a fresh pass: with pure, counts of the overlay's pure colours; else each colour's share of the view. */
function viewColours(pure) {
    const m = cpApp.map, gl = m.ctx3d;
    m.force = true;
    m.render();
    let data = gl ? new Uint8Array(gl.drawingBufferWidth * gl.drawingBufferHeight * 4) : null;
    if (gl) gl.readPixels(0, 0, gl.drawingBufferWidth, gl.drawingBufferHeight, gl.RGBA, gl.UNSIGNED_BYTE, data);
    else data = m.bctx.getImageData(0, 0, m.buffer.width, m.buffer.height).data;
    const out = pure ? { red: 0, green: 0, blue: 0, yellow: 0, magenta: 0 } : {};
    const step = pure ? 4 : 4 * 13, n = Math.ceil(data.length / step);
    for (let i = 0; i < data.length; i += step) {
        const [r, g, b] = [data[i], data[i + 1], data[i + 2]];
        if (pure) {
            if (r > 220 && g < 40 && b < 40) out.red++;
            if (r < 30 && g > 170 && g < 230 && b < 30) out.green++;
            if (r < 30 && g < 30 && b > 220) out.blue++;
            if (r > 220 && g > 220 && b < 40) out.yellow++;
            if (r > 220 && g < 40 && b > 220) out.magenta++;
        } else {
            const key = [r >> 4 << 4, g >> 4 << 4, b >> 4 << 4].join(',');
            out[key] = (out[key] || 0) + 1 / n;
        }
    }
    return out;
}

const SEA = '160,208,208', LAND = '240,224,224';

/* The synthetic pack's sea and land, binned, and the pack shown at zoom 8 in one path. */
const own = (gl) => ({ synthetic: true,
    settings: { C: { i_opengl_mode: gl }, map: { lonX: 10.1, latY: 54.52, zoom: 8 }, chartkit: 'A000003.marepack' } });

/* The view at display zoom 8 is drawn from zoom 10 tiles, sea and land in their colours. */
async function tilesTwoLevelsFiner(page, gl) {
    await settled(page);
    assert.strictEqual(await page.evaluate(() => !!cpApp.map.ctx3d), gl);
    const zooms = await page.evaluate(() => cpApp.map.tileList.map((z) => Math.floor(z / 1099511627776)));
    assert.ok(zooms.length > 200 && zooms.every((z) => z === 10), 'zoom 10 tiles at display zoom 8');
    const cols = await page.evaluate(viewColours, false);
    assert.ok(cols[SEA] > 0.3 && cols[LAND] > 0.2, JSON.stringify(cols));
}

/* A 64 by 64 sheet as a data URL, each pixel fill(x, y) (RGBA, or nothing for clear). */
function sheet(fill) {
    const png = new PNG({ width: 64, height: 64 });
    for (let i = 0; i < 64 * 64; i++) png.data.set(fill(i % 64, Math.floor(i / 64)) || [0, 0, 0, 0], i * 4);
    return 'data:image/png;base64,' + PNG.sync.write(png).toString('base64');
}

/* A yellow disc in the symbol sheet's top left quarter, one solid glyph cell in the font sheet. */
const SHEETS = {
    sym: sheet((x, y) => (Math.hypot(x - 16, y - 16) <= 14 ? [255, 255, 0, 255] : null)),
    font: sheet((x, y) => (x < 32 && y < 32 ? [0, 0, 0, 255] : null)),
};

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

test('tiles and an overlay draw in WebGL with the world grid; the feature shows its texts', async () => {
    await withPage(async (page) => {
        await tilesTwoLevelsFiner(page, true);
        await page.evaluate((doc) => fetch("/UPexecSql/REPLACE INTO kvt (k,v,t,l) VALUES(3,?,13,'**')",
            { method: 'POST', body: doc }), JSON.stringify(overlay(SHEETS)));
        await page.reload();
        await loaded(page);
        assert.strictEqual(await page.evaluate(() => !!cpApp.map.ctx3d), true, 'WebGL under swiftshader');
        /* sheets decode asynchronously: a render now and then (each frame starves a loaded machine) takes them up */
        await page.waitForFunction(() => {
            const v = kelvor.chartkit.vectorMap;
            cpApp.map.render();
            return v.style.loaded && v.map.loaded;
        }, null, { timeout: 60000, polling: 100 });
        await settled(page);
        const n = await page.evaluate(viewColours, true);
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

        await page.evaluate(() => {
            window._lose = cpApp.map.ctx3d.getExtension('WEBGL_lose_context');
            _lose.loseContext();
        });
        await page.waitForFunction(() => !cpApp.map.ctx3d);
        await settled(page);
        assert.ok((await page.evaluate(viewColours, false))[SEA] > 0.3, 'the 2D path shows the chart');
        await page.evaluate(() => _lose.restoreContext());
        await page.waitForFunction(() => !!cpApp.map.ctx3d);
        await settled(page);
        await page.waitForFunction(() => cpApp.map.tileList.every((z) => cpApp.map.renderList[z].tex));
        const after = await page.evaluate(viewColours, true);
        assert.ok(await page.evaluate(() => kelvor.chartkit.vectorMap.map.loaded), 'the map kept');
        assert.ok(after.green > 30, JSON.stringify(after));

        const at = await page.evaluate(() => {
            const m = cpApp.map, r = m.canvas.getBoundingClientRect();
            return { x: r.left + m.getXpos(10.25) - m.cx + m.sx / 2, y: r.top + m.getYpos(54.4) - m.cy + m.sy / 2 };
        });
        await page.mouse.click(at.x, at.y);
        await page.waitForSelector('#cp_dialog_common:has-text("Harbour office")', { state: 'visible' });
        assert.match(await page.innerText('#cp_dialog_common'), /Open 8 to 18/);
    }, own(true));
});

test('the 2D path draws the tiles; a two-finger pinch zooms about its centre, a short tap does not pan', async () => {
    await withPage(async (page) => {
        await tilesTwoLevelsFiner(page, false);
        const cdp = await page.context().newCDPSession(page);
        const touch = (type, pts) => cdp.send('Input.dispatchTouchEvent',
            { type, touchPoints: pts.map(([x, y], id) => ({ x, y, id })) });
        const view = () => page.evaluate(() => ({ zoom: kelvor.settings.k.map.zoom, cx: cpApp.map.cx, cy: cpApp.map.cy }));
        const v0 = await view();
        await touch('touchStart', [[300, 300]]);
        await touch('touchMove', [[310, 308]]);
        await touch('touchEnd', []);
        await settled(page);
        const v1 = await view();
        assert.deepStrictEqual(v1, v0, 'a tap with a jitter below 20 pixels leaves the view');
        await touch('touchStart', [[500, 400], [700, 400]]);
        for (let i = 1; i <= 10; i++) await touch('touchMove', [[500 - i * 5, 400], [700 + i * 5, 400]]);
        await touch('touchEnd', []);
        await settled(page);
        const v2 = await view();
        const dz = v2.zoom - v1.zoom;
        assert.ok(dz > 0.4 && dz < 0.6, `zoomed by ${dz}`);
        // the point under the fingers' centre (40 px left of the middle) stays there; each pass rounds the centre
        const f = Math.pow(2, dz);
        assert.ok(Math.abs((v1.cx - 40) * f + 40 - v2.cx) < 6 && Math.abs(v1.cy * f - v2.cy) < 6, 'about the centre');
    }, Object.assign({ touch: true }, own(false)));
});
