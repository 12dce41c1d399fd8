/*
** The page in a real browser against the real host and packs: the chart
** on the canvas in both raster paths, wheel, drag and pinch. The first
** start, Settings, languages and night mode are the journeys'.
**
** Needs build/mareplotd (or MAREPLOTD) and /usr/bin/chromium; binds port
** 19999, so run it through tests/support/isolate.sh.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { startHost, settled, configure, withPage, drag, syntheticPack } = require('./browser');

/* Colours of the tiles now on screen, coarsely binned, with their share of
** the view. Renders a pass first so that the WebGL buffer can be read. */
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
    const hist = {};
    let n = 0;
    for (let i = 0; i < data.length; i += 4 * 13) {
        const key = [data[i] >> 4 << 4, data[i + 1] >> 4 << 4, data[i + 2] >> 4 << 4].join(',');
        hist[key] = (hist[key] || 0) + 1;
        n++;
    }
    return Object.keys(hist).map((k) => ({ rgb: k.split(',').map(Number), share: hist[k] / n }))
        .sort((a, b) => b.share - a.share);
}

/* Share of one binned colour; the synthetic pack's sea and land, the blank. */
const share = (cols, rgb) => cols.filter((c) => c.rgb.join() === rgb).reduce((a, c) => a + c.share, 0);
const SEA = '160,208,208', LAND = '240,224,224', BLANK = '160,160,160';

function view() {
    const k = kelvor.settings.k.map;
    return { lon: k.lonX, lat: k.latY, zoom: k.zoom, cx: cpApp.map.cx, cy: cpApp.map.cy };
}

const HOME = { lonX: 10.1, latY: 54.52, zoom: 8 };
/* the carried base pack, or our own pack of known colours */
const chart = (gl, kit) => ({ C: { i_opengl_mode: gl }, map: HOME, chartkit: kit || 'A000002.marepack' });
const OWN = 'A000003.marepack';

let host;
test.before(async () => { host = await startHost(); syntheticPack(host.home); });
test.after(async () => { if (host) await host.stop(); });

for (const gl of [false, true]) {
    test(`the ${gl ? 'WebGL' : '2D'} path draws the chart, wheel and drag move it, a pack's tiles arrive`, async (t) => {
        await withPage(async (page) => {
            await settled(page);
            assert.strictEqual(await page.evaluate(() => !!cpApp.map.ctx3d), gl);
            if (await page.evaluate(() => cpApp.map.tileList.length) === 0) {
                t.diagnostic('the carried chart pack has no tiles in this view');
            } else {
                const cols = await page.evaluate(tileColours);
                assert.ok(share(cols, BLANK) < 0.5, 'most of the view is chart, not the blank grey');
                const big = cols.filter((c) => c.share > 0.02);
                assert.ok(big.some((c) => c.rgb[2] > c.rgb[0] + 16), 'sea colour: ' + JSON.stringify(big));
                assert.ok(big.some((c) => c.rgb[0] >= c.rgb[2] && c.rgb.join() !== BLANK), 'land colour: ' + JSON.stringify(big));
            }

            const v0 = await page.evaluate(view);
            await page.mouse.move(400, 300);
            await page.mouse.wheel(0, -120);
            await settled(page);
            const v1 = await page.evaluate(view);
            assert.ok(Math.abs(v1.zoom - v0.zoom - Math.log2(1.25)) < 1e-9, `wheel zooms in one step: ${v0.zoom} -> ${v1.zoom}`);

            await drag(page, { x: 600, y: 400 }, { x: 400, y: 300 });
            await settled(page);
            const v2 = await page.evaluate(view);
            assert.ok(Math.abs(v2.cx - v1.cx - 200) <= 1 && Math.abs(v2.cy - v1.cy - 100) <= 1, 'drag pans by the pointer path');
            assert.ok(v2.lon > v1.lon && v2.lat < v1.lat);

            // our own pack: tiles two levels finer than the display, in its two colours
            await configure(page, chart(gl, OWN));
            await settled(page);
            const zooms = await page.evaluate(() => cpApp.map.tileList.map((z) => Math.floor(z / 1099511627776)));
            assert.ok(zooms.length > 200 && zooms.every((z) => z === 10), 'zoom 10 tiles at display zoom 8');
            const own = await page.evaluate(tileColours);
            assert.ok(share(own, SEA) > 0.3 && share(own, LAND) > 0.2, JSON.stringify(own.slice(0, 4)));
            if (gl) {
                // a lost context leaves the 2D path drawing; a restored one takes over again
                await page.evaluate(() => { window._lose = cpApp.map.ctx3d.getExtension('WEBGL_lose_context'); _lose.loseContext(); });
                await page.waitForFunction(() => !cpApp.map.ctx3d);
                await page.evaluate(() => cpApp.map.update(true));
                await settled(page);
                assert.ok(share(await page.evaluate(tileColours), SEA) > 0.3, 'the 2D path shows the chart');
                await page.evaluate(() => _lose.restoreContext());
                await page.waitForFunction(() => !!cpApp.map.ctx3d);
                await settled(page);
                await page.waitForFunction(() => cpApp.map.tileList.every((z) => cpApp.map.renderList[z].tex));
                assert.ok(share(await page.evaluate(tileColours), SEA) > 0.3, 'textures are uploaded again');
            }
        }, { settings: chart(gl) });
    });
}

test('a two-finger pinch zooms about its centre, a short tap does not pan', async () => {
    await withPage(async (page) => {
        await settled(page);
        const cdp = await page.context().newCDPSession(page);
        const touch = (type, pts) => cdp.send('Input.dispatchTouchEvent',
            { type, touchPoints: pts.map(([x, y], id) => ({ x, y, id })) });
        const v0 = await page.evaluate(view);
        // a tap with a jitter below 20 pixels leaves the view
        await touch('touchStart', [[300, 300]]);
        await touch('touchMove', [[310, 308]]);
        await touch('touchEnd', []);
        await settled(page);
        const v1 = await page.evaluate(view);
        assert.deepStrictEqual([v1.cx, v1.cy, v1.zoom], [v0.cx, v0.cy, v0.zoom]);
        // fingers 200 pixels apart spread to 300 about the point (600, 400)
        await touch('touchStart', [[500, 400], [700, 400]]);
        for (let i = 1; i <= 10; i++) await touch('touchMove', [[500 - i * 5, 400], [700 + i * 5, 400]]);
        await touch('touchEnd', []);
        await settled(page);
        const v2 = await page.evaluate(view);
        const dz = v2.zoom - v1.zoom;
        assert.ok(dz > 0.4 && dz < 0.6, `zoomed by ${dz}`);
        // the point under the fingers' centre (40 px left of the middle) stays there; each pass rounds the centre
        const f = Math.pow(2, dz);
        assert.ok(Math.abs((v1.cx - 40) * f + 40 - v2.cx) < 6 && Math.abs(v1.cy * f - v2.cy) < 6, 'about the centre');
    }, { touch: true, settings: chart(false) });
});
