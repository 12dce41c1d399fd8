/*
** The 2D tile composition while the tiles of a view come in: each pass
** adds only the tiles that arrived, yet the buffer must end up exactly as a
** full redraw in list order would leave it. The buffer here is a grid of
** tile ids in canvas pixels (last draw wins), which is what the order of
** opaque draws decides.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

const W = 160, H = 120;

function gridCtx() {
    const g = { px: new Array(W * H).fill(0), tx: 0, ty: 0, draws: 0 };
    g.setTransform = (a, b, c, d, e, f) => { g.tx = e; g.ty = f; };
    g.translate = (x, y) => { g.tx += x; g.ty += y; };
    g.rotate = () => {};
    g.fillRect = () => { g.px.fill(-1); };
    g.drawImage = (img, x, y, w, h) => {
        g.draws++;
        for (let j = Math.max(0, y + g.ty); j < Math.min(H, y + g.ty + h); j++) {
            for (let i = Math.max(0, x + g.tx); i < Math.min(W, x + g.tx + w); i++) g.px[j * W + i] = img.ti;
        }
    };
    return g;
}

/* A view at display zoom 9 with detail 1: zoom 10 tiles at half size over
** a few zoom 9 parents that show beneath them. */
function view(ctx) {
    const map = Object.create(ctx.kelvor.vmap.prototype);
    Object.assign(map, {
        base: Math.pow(2, 17), cx: 300, cy: 200, cxzero: 300, cyzero: 200, hx: W / 2, hy: H / 2, sx: W, sy: H,
        rotation: 0, queueWait: 0, lastCx: 300, lastCy: 200, lastSf: Math.pow(2, 17), _composition: 0,
        renderList: {}, tileList: [], paintByTimer() {},
    });
    map.ctx = { drawImage() {} };
    for (let z = 9; z <= 10; z++) {
        const s = Math.pow(2, z + 8) / map.base;
        for (let y = Math.floor((200 - 60) * s / 256) - 1; y <= Math.floor((200 + 60) * s / 256); y++) {
            for (let x = Math.floor((300 - 80) * s / 256) - 1; x <= Math.floor((300 + 80) * s / 256); x++) {
                const id = z * 1099511627776 + y * 1048576 + x;
                map.renderList[id] = { xt: x, yt: y, zt: z, ti: id, naturalWidth: 0 };
            }
        }
    }
    map.tileList = Object.keys(map.renderList).map(Number).sort((a, b) => a - b);
    return map;
}

function shuffled(list, seed) {
    const out = list.slice();
    for (let i = out.length - 1; i > 0; i--) {
        seed = (seed * 1103515245 + 12345) % 2147483648;
        const j = seed % (i + 1);
        [out[i], out[j]] = [out[j], out[i]];
    }
    return out;
}

test('tiles drawn as they arrive give the picture of one full redraw', () => {
    const ctx = load(CORE);
    const cases = [
        // [name, arrival order of ids, tiles per pass]
        ['list order', (ids) => ids, 4],
        ['fine tiles first, parents last', (ids) => ids.slice().reverse(), 3],
        ['shuffled', (ids) => shuffled(ids, 7), 5],
        ['shuffled, one at a time', (ids) => shuffled(ids, 99), 1],
    ];
    for (const [name, order, perPass] of cases) {
        const map = view(ctx);
        const full = gridCtx();
        map.tileList.forEach((id) => { map.renderList[id].naturalWidth = 256; });
        full.fillRect();
        full.setTransform(1, 0, 0, 1, map.hx, map.hy);
        map.drawTiles2d(full);
        const fullDraws = full.draws;

        const inc = gridCtx();
        inc.px.fill(-1); /* the pass that chose the list filled the buffer */
        const m2 = view(ctx);
        m2.bctx = inc;
        m2._compose(false);
        const arrivals = order(m2.tileList);
        let passes = 0;
        for (let i = 0; i < arrivals.length; i += perPass) {
            arrivals.slice(i, i + perPass).forEach((id) => { m2.renderList[id].naturalWidth = 256; });
            m2._compose(false);
            passes++;
        }
        assert.strictEqual(m2.queueWait, 0, name);
        assert.deepStrictEqual(inc.px, full.px, name + ': pixels differ from a full redraw');
        if (name === 'list order') {
            /* nothing ever lands beneath a drawn tile: each tile drawn once */
            assert.strictEqual(inc.draws, fullDraws, name);
        }
        assert.ok(inc.draws < fullDraws * passes, name + ': every pass redrew everything');
    }
});

test('a rotated view is always redrawn whole', () => {
    const ctx = load(CORE);
    const map = view(ctx);
    map.rotation = 0.3;
    const g = gridCtx();
    map.bctx = g;
    map._compose(false);
    map.renderList[map.tileList[0]].naturalWidth = 256;
    map._compose(false);
    map.renderList[map.tileList[1]].naturalWidth = 256;
    const before = g.draws;
    map._compose(false);
    assert.strictEqual(g.draws - before, 2);
});
