/*
** The chart on the canvas in both raster paths, read back pixel by pixel,
** and the two-finger pinch. Needs build/mareplotd (or MAREPLOTD) and
** /usr/bin/chromium; binds port 19999, so run it through
** tests/support/isolate.sh.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { settled, withPage } = require('./browser');

/* The share of each colour of the view, coarsely binned ("r,g,b"), after
** a fresh render pass so that the WebGL buffer can be read. */
function tileColours() {
    const m = cpApp.map;
    m.force = true;
    m.render();
    let data;
    if (m.ctx3d) {
        const gl = m.ctx3d;
        data = new Uint8Array(gl.drawingBufferWidth * gl.drawingBufferHeight * 4);
        gl.readPixels(0, 0, gl.drawingBufferWidth, gl.drawingBufferHeight, gl.RGBA, gl.UNSIGNED_BYTE, data);
    } else {
        data = m.bctx.getImageData(0, 0, m.buffer.width, m.buffer.height).data;
    }
    const hist = {}, step = 4 * 13, n = Math.ceil(data.length / step);
    for (let i = 0; i < data.length; i += step) {
        const key = [data[i] >> 4 << 4, data[i + 1] >> 4 << 4, data[i + 2] >> 4 << 4].join(',');
        hist[key] = (hist[key] || 0) + 1 / n;
    }
    return hist;
}

/* the synthetic pack's sea and land, binned */
const SEA = '160,208,208', LAND = '240,224,224';

/* Our own pack of known colours at 10.1 E, 54.52 N, zoom 8, in one path. */
const own = (gl) => ({ synthetic: true,
    settings: { C: { i_opengl_mode: gl }, map: { lonX: 10.1, latY: 54.52, zoom: 8 }, chartkit: 'A000003.marepack' } });

for (const gl of [false, true]) {
    test(`the ${gl ? 'WebGL' : '2D'} path draws a pack's tiles two levels finer than the display`, async () => {
        await withPage(async (page) => {
            await settled(page);
            assert.strictEqual(await page.evaluate(() => !!cpApp.map.ctx3d), gl);
            const zooms = await page.evaluate(() => cpApp.map.tileList.map((z) => Math.floor(z / 1099511627776)));
            assert.ok(zooms.length > 200 && zooms.every((z) => z === 10), 'zoom 10 tiles at display zoom 8');
            const cols = await page.evaluate(tileColours);
            assert.ok(cols[SEA] > 0.3 && cols[LAND] > 0.2, JSON.stringify(cols));
            if (!gl) return;
            // a lost context leaves the 2D path drawing; a restored one takes over again
            await page.evaluate(() => { window._lose = cpApp.map.ctx3d.getExtension('WEBGL_lose_context'); _lose.loseContext(); });
            await page.waitForFunction(() => !cpApp.map.ctx3d);
            await settled(page);
            assert.ok((await page.evaluate(tileColours))[SEA] > 0.3, 'the 2D path shows the chart');
            await page.evaluate(() => _lose.restoreContext());
            await page.waitForFunction(() => !!cpApp.map.ctx3d);
            await settled(page);
            await page.waitForFunction(() => cpApp.map.tileList.every((z) => cpApp.map.renderList[z].tex));
            assert.ok((await page.evaluate(tileColours))[SEA] > 0.3, 'textures are uploaded again');
        }, own(gl));
    });
}

test('a two-finger pinch zooms about its centre, a short tap does not pan', async () => {
    await withPage(async (page) => {
        await settled(page);
        const cdp = await page.context().newCDPSession(page);
        const touch = (type, pts) => cdp.send('Input.dispatchTouchEvent',
            { type, touchPoints: pts.map(([x, y], id) => ({ x, y, id })) });
        const view = () => page.evaluate(() => ({ zoom: kelvor.settings.k.map.zoom, cx: cpApp.map.cx, cy: cpApp.map.cy }));
        const v0 = await view();
        // a tap with a jitter below 20 pixels leaves the view
        await touch('touchStart', [[300, 300]]);
        await touch('touchMove', [[310, 308]]);
        await touch('touchEnd', []);
        await settled(page);
        const v1 = await view();
        assert.deepStrictEqual(v1, v0);
        // fingers 200 pixels apart spread to 300 about the point (600, 400)
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
