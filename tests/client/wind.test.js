/* Forecast grids under node: pixel decoding with gaps, the bilinear lookup, the default grid, labels. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, same, CORE } = require('./harness');

function wind() {
    return load(CORE.concat(['kelvor.wind.js'])).kelvor.wind;
}

/* A 3 by 3 grid of one degree cells: u = R/10 - 10, v = G/10 - 10 (imin 0, imax 200); x2, y2 the last column, row. */
function grid(W, pixels) {
    const g = { x1: 10, y1: 50, x2: 12, y2: 52, gx: 1, gy: 1, dx: 3, dy: 3, imin: 0, imax: 200,
        umin: -10, umax: 10, vmin: -10, vmax: 10 };
    const data = [];
    for (const [r, gr] of pixels) data.push(r, gr, 0, 255);
    return W.decodePixels(g, data);
}

test('decodePixels: linear ranges, gaps where red is 0 or 255', () => {
    const W = wind();
    const g = grid(W, [[100, 100], [120, 80], [0, 150], [255, 10], [1, 199], [199, 1], [100, 100], [100, 100], [100, 100]]);
    const r9 = (v) => Math.round(v * 1e9) / 1e9;
    same([g.ud[1], g.vd[1], g.ud[4], g.vd[4], g.ud[5]].map(r9), [2, -2, -9.9, 9.9, 9.9], 'linear, to both ends');
    assert.deepStrictEqual([g.ud[2], g.vd[2], g.ud[3], g.vd[3]], [999, 999, 999, 999], 'gap despite green');
});

test('getWind: bilinear inside, false at the edges and next to gaps', () => {
    const W = wind();
    /* row 0 at lat 50: u 0, 2, 4; row 1 at lat 51: u 10, 12, 14; v = -u */
    const px = (u) => [u * 10 + 100, -u * 10 + 100];
    const row2 = [px(0), px(0), px(0)];
    W.grid = grid(W, [px(0), px(2), px(4), px(10), px(12), px(14)].concat(row2));
    const cases = [
        // [lat, lon, want u or false]
        [50, 10, 0],
        [50.5, 10.5, 6],
        [50.25, 10, 2.5],
        [50, 10.75, 1.5],
        [49.99, 10.5, false], // below y1
        [50.5, 9.99, false], // left of x1
        [50.5, 11, false], // one cell short of x2: last column not interpolated
        [50, 11.5, false],
        [51, 10.5, false], // one row short of y2
    ];
    for (const [lat, lon, u] of cases) {
        const w = W.getWind(lat, lon);
        same(w && [w.u, -w.v].map((v) => Math.round(v * 1e9) / 1e9), u === false ? false : [u, u], `${lat},${lon}`);
    }
    W.grid = grid(W, [px(0), [0, 0], px(4), px(10), px(12), px(14)].concat(row2));
    assert.strictEqual(W.getWind(50.5, 10.5), false, 'a gap at one corner');
    assert.strictEqual(W.getWind(50.5, 10.5, null), false);
});

test('findDefault: the smallest grid of the mode that holds the point', () => {
    const W = wind();
    W.list = { lastloaded: 0, data: {
        big: { src: 'big', grp: 1, x1: 0, y1: 40, x2: 30, y2: 60 },
        small: { src: 'small', grp: 1, x1: 9, y1: 53, x2: 12, y2: 56 },
        cur: { src: 'cur', grp: 2, x1: 9.5, y1: 53.5, x2: 10.5, y2: 54.5 },
    } };
    assert.strictEqual(W.findDefault(1, 54, 10), 'small');
    assert.strictEqual(W.findDefault(2, 54, 10), 'cur');
});

/* Grid speeds are m/s: the legend and current labels go through fmtSpeed, which alone converts to the unit. */
test('legend and current labels convert metres per second once', () => {
    const ctx = load(CORE.concat(['kelvor.wind.js']));
    const W = ctx.kelvor.wind;
    const dash = { innerHTML: '', className: 'none' };
    ctx.document.getElementById = (id) => (id === 'cp_windfinder_dash' ? dash : null);
    W.legend = [[0, 0, 0], [255, 255, 255]];
    W.max = 50 / 1.94384449244;
    W.vtlist = [];
    W.windLegend();
    const cells = dash.innerHTML.match(/&gt;[^<]*/g).map((c) => c.slice(4));
    assert.deepStrictEqual([cells[0], cells[6]], ['0 kt', '50 kt']);

    const texts = [];
    const c2d = { x1: 0, x2: 60, y1: 0, y2: 60, cxzero: 0, cyzero: 0, fillText: (t) => texts.push(t) };
    ctx.cpApp = { map: { getLatLon: () => ({ lat: 54, lon: 10 }), getXpos: () => 0, getYpos: () => 0 } };
    W.grid = { ud: [0] };
    W.grp = 2;
    W.colorBG = null;
    W.getWind = () => ({ u: 1, v: 0 });
    W.streamArrow = () => {};
    W.render(c2d);
    assert.deepStrictEqual(texts, ['1.9 kt']);
});

/* Closing it is the main menu journey's. */
test('a failed download ends the wind view wholly: no grid, no bar, the scale back at the top', () => {
    const ctx = load(CORE.concat(['kelvor.wind.js']));
    const dash = { className: '' }, dialogs = [];
    ctx.document.getElementById = (id) => (id === 'cp_windfinder_dash' ? dash : null);
    ctx.cpApp = { map: { wftoken: true, scaleposY: 60 }, update: () => {}, sizeDialog: (id) => dialogs.push(id) };
    ctx.kelvor.wind._loadFail();
    assert.deepStrictEqual([ctx.cpApp.map.wftoken, ctx.cpApp.map.scaleposY, dash.className, dialogs],
        [false, 0, 'none', ['np_wind_nodata']]);
});
