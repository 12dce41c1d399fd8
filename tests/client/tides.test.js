/* Tide curves: secondary stations' corrections and the shape fill. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

const H = 3600;

function tides() {
    return load(CORE).kelvor.tides;
}

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

/* The default shape is a half cosine: a third of the way to high water is a quarter of the rise. */
test('a station with only extremes is filled from the shape and smoothed through it', () => {
    const T = tides();
    const sh = T.parseShape({});
    const cv = T.buildCurve([0, 0, 0, 6 * H, 100, 1, 12 * H, 20, 0], {}, 86400, 86400, sh.shape, sh.shapeTop, 0);
    assert.ok(Math.abs(T.levelAt(T.spline(cv.pts, 0.5, 4), 2 * H) - 25) < 0.1);
    assert.ok(Math.abs(T.levelAt(cv.pts, 8 * H) - 80) < 0.1, 'falling to a low water of 20');
});
