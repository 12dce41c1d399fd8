/* Tides: a station's symbol opens its panel with the curve over day and night and the moon. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const j = require('./journey');

/* The panel's daylight, night, and the moon image's dark disc and lit part. */
const near = (p, rgb, tol) => Math.abs(p[0] - rgb[0]) + Math.abs(p[1] - rgb[1]) + Math.abs(p[2] - rgb[2]) <= (tol || 6);
const DAY = [255, 255, 221], NIGHT = [221, 221, 221], MOON_DARK = [60, 68, 82], MOON_LIT = [255, 246, 213];

test('a tide station symbol opens its curve with sun and moon', { timeout: 120000 }, async () => {
    await j.journey('tides', {}, async (page) => {
        /* stations show below 1:400000: seven steps by the button, one by the wheel */
        for (let i = 0; i < 7; i++) await j.click(page, '#cp_map_zup');
        await j.chartPainted(page);
        const zoom = () => page.evaluate(() => kelvor.settings.k.map.zoom);
        const z0 = await zoom();
        await page.mouse.move(600, 400);
        await page.mouse.wheel(0, -120);
        await j.chartPainted(page);
        assert.ok(Math.abs(await zoom() - z0 - Math.log2(1.25)) < 1e-9, 'the wheel zooms in one step');

        const st = await page.evaluate(() => {
            const m = cpApp.map, c = m.getPosWorldMerc(), scm = m.getScm(), r = m.canvas.getBoundingClientRect();
            let best = null;
            for (const e of kelvor.chartkit.markerList) {
                if (e.onUp !== kelvor.tides.showTide) continue;
                const x = r.left + r.width / 2 + (e.x - c.x) * scm, y = r.top + r.height / 2 + (e.y - c.y) * scm;
                const d = Math.hypot(x - 640, y - 400);
                if (x > 100 && x < 1100 && y > 100 && y < 700 && (!best || d < best.d)) best = { x, y, d, name: e.a.name };
            }
            return best;
        });
        assert.ok(st, 'a tide station in view');
        const img = await j.shot(page, 'tides-stations');
        const blue = img.pixel(st.x, st.y);
        assert.ok(blue[2] > blue[0] + 40, `the station symbol at ${Math.round(st.x)},${Math.round(st.y)}: ${blue}`);

        await page.mouse.click(st.x, st.y);
        await j.waitInView(page, '#np_tide_div');
        assert.strictEqual((await j.text(page, '#tide_info_txt')).trim(), st.name);
        assert.match(await j.text(page, '#tide_info_bottom'), /^Tide data: \S/);

        const box = await page.locator('#tide_canvas').boundingBox();
        const shot = await j.shot(page, 'tides-panel');
        let day = 0, night = 0, moon = 0;
        for (let y = Math.ceil(box.y); y < box.y + box.height; y += 2) {
            for (let x = Math.ceil(box.x); x < box.x + box.width; x += 2) {
                const p = shot.pixel(x, y);
                if (near(p, DAY)) day++;
                else if (near(p, NIGHT)) night++;
                else if (y < box.y + 60 && (near(p, MOON_DARK, 12) || near(p, MOON_LIT, 4))) moon++;
            }
        }
        assert.ok(day > 500 && night > 500, `daylight ${day} and night ${night} in the curve`);
        assert.ok(moon > 30, `the moon's phase image (${moon})`);
    });
});
