/* Tide curves: the level window, secondary stations' corrections, the shape fill, the spline. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

const H = 3600;

function tides() {
    return load(CORE).kelvor.tides;
}

test('level window: secondary corrections, then 20 per cent margins', () => {
    const T = tides();
    const cases = [
        // [station, lmin, lmax, want lmin, lmax, mean]
        [{ stype: 1 }, 0, 100, -20, 120, 50],
        [{ stype: 2, level_mode: 1, level_low: 2, level_high: 2 }, 10, 100, -16, 236, 110],
        [{ stype: 2, level_mode: 0, level_low: -10, level_high: 10 }, 10, 100, -22, 132, 55],
    ];
    for (const [st, lo, hi, wlo, whi, wm] of cases) {
        const w = T.levelWindow(lo, hi, st);
        assert.deepStrictEqual([Math.round(w.lmin), Math.round(w.lmax), w.mean], [wlo, whi, wm], JSON.stringify(st));
    }
});

test('spans map linearly onto corrected times and levels', () => {
    const T = tides();
    /* low 0 cm at 0 h, samples, high 100 cm at 2 h, low 0 cm at 4 h */
    const C = [0, 0, 0, H, 20, 2, 2 * H, 100, 1, 3 * H, 50, 2, 4 * H, 0, 0, 5 * H, 10, 2];
    const cases = [
        // [name, station, want points]
        ['primary station is unchanged', { stype: 1 },
            [[0, 0], [H, 20], [2 * H, 100], [3 * H, 50], [4 * H, 0]]],
        ['secondary moves high water 30 min later and doubles it',
            { stype: 2, time_high: 30, level_mode: 1, level_high: 2 },
            [[0, 0], [4500, 40], [9000, 200], [11700, 100], [4 * H, 0]]],
        ['secondary adds to levels', { stype: 2, level_mode: 0, level_low: 10, level_high: 10 },
            [[0, 10], [H, 30], [2 * H, 110], [3 * H, 60], [4 * H, 10]]],
    ];
    for (const [name, st, want] of cases) {
        const cv = T.buildCurve(C, st, 86400, 86400, null, 0, 3);
        const got = [];
        for (let i = 0; i < cv.pts.length; i += 2) got.push([Math.round(cv.pts[i]), Math.round(cv.pts[i + 1])]);
        assert.deepStrictEqual(got, want, name);
        assert.strictEqual(JSON.stringify(cv.hl.map((h) => h[2])), '[0,1,0]', `${name}: extremes`);
    }
});

test('stations with only extremes are filled from the shape', () => {
    const T = tides();
    const C = [0, 0, 0, 6 * H, 100, 1, 12 * H, 20, 0];
    const cases = [
        ['default cosine of 50 points', null],
        ['own shape, top at index 2', '0,500,1000,500'],
    ];
    for (const [name, shape] of cases) {
        const sh = T.parseShape({ shape });
        const cv = T.buildCurve(C, {}, 86400, 86400, sh.shape, sh.shapeTop, 0);
        const p = cv.pts;
        const n = p.length / 2;
        assert.strictEqual(n, sh.shape.length + 1, `${name}: one point per shape entry and the end`);
        assert.deepStrictEqual([p[0], p[1]], [0, 0], `${name}: starts at low water`);
        const top = sh.shapeTop * 2;
        assert.deepStrictEqual([p[top], Math.round(p[top + 1])], [6 * H, 100], `${name}: high water at the top`);
        assert.deepStrictEqual([p[p.length - 2], p[p.length - 1]], [12 * H, 20], `${name}: ends on the extreme`);
        for (let i = 2; i < p.length; i += 2) assert.ok(p[i] > p[i - 2], `${name}: time grows`);
    }
});

test('the spline runs through its points', () => {
    const T = tides();
    const pts = [0, 0, 10, 10, 20, 0, 30, 5];
    const seg = 4;
    const s = T.spline(pts, 0.5, seg);
    assert.strictEqual(s.length, ((pts.length / 2 - 1) * seg + 1) * 2);
    for (let i = 0; i < pts.length / 2; i++) {
        assert.deepStrictEqual([s[i * seg * 2], s[i * seg * 2 + 1]], [pts[i * 2], pts[i * 2 + 1]], `point ${i}`);
    }
    /* points on a straight line stay on it */
    const line = T.spline([0, 0, 1, 2, 2, 4, 3, 6], 0.5, 5);
    for (let i = 0; i < line.length; i += 2) assert.ok(Math.abs(line[i + 1] - 2 * line[i]) < 1e-9);
    assert.strictEqual(T.levelAt([0, 0, 10, 100], 2.5), 25);
    assert.strictEqual(T.levelAt([0, 0, 10, 100], 11), null);
});
