/*
** Kit list logic under node: which ticked kits are deleted, kept or
** queued, the download polling with its progress text and failure labels,
** and the overlay refresh into type 13 rows.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE, HOST } = require('./harness');

/* A client whose host answers from replies (url -> text or function) and
** whose interval timers are run by hand through ctx.tick(). */
function client(replies) {
    const ctx = load(CORE, (m, url, body) => {
        if (url === '/hostversion') return JSON.stringify(HOST);
        const r = replies[url];
        if (typeof r === 'function') return r(body);
        return r === undefined ? '0' : r;
    });
    const timers = [];
    ctx.setInterval = (f) => timers.push(f);
    ctx.clearInterval = (id) => { timers[id - 1] = null; };
    ctx.tick = () => timers.slice().forEach((f) => f && f());
    const els = {};
    ctx.document.getElementById = (id) => els[id] || (els[id] = { innerHTML: '', id });
    ctx.els = els;
    ctx.cpApp = { errors: 0, closed: 0, ineterror() { this.errors++; }, sizeDialog() {}, closeDlg() { this.closed++; },
        startAxImage() {}, update() {}, showMenuBar() {}, showRedMapDot() {}, showRedInfoDot() {},
        map: { clearImageList() {}, setPosWorldMerc() {}, paintByTimer() {}, _lat2y: () => 0 } };
    ctx.kelvor.settings.load();
    ctx.kelvor.chartkit.update = {
        5: { pid: 5, name: 'Baltic', version: '7', filesize: 2000000, crc32: 99, stat: 0 },
        6: { pid: 6, name: 'North Sea', version: '3', filesize: 1000000, crc32: 98, stat: 2 },
    };
    return ctx;
}

function tick(ctx, boxes) {
    ctx.document.querySelectorAll = () => boxes.map(([v, c]) => ({ value: String(v), checked: c }));
}

test('ticked kits: installed ones are deleted, current ones kept, others queued', () => {
    const ctx = client({ '/getSetState/chartdb=A000005.marepack': '0', '/getMapData/version': '7' });
    const ck = ctx.kelvor.chartkit, k = ctx.kelvor.settings.k;
    k.chartKitList2[6] = ck.update[6];
    tick(ctx, [[5, true], [6, true], [0, true], [2, false]]);
    ck.updateChartKitExec();
    assert.ok(ctx.requests.some((r) => r.url === '/getSetState/delchartdb=A000006.marepack'));
    assert.ok(!k.chartKitList2[6], 'ticking an installed kit deletes it');
    assert.ok(k.chartKitList2[5], 'same version on disk: listed without a download');
    assert.strictEqual(ck.updatePos.length, 0);
    assert.ok(!ctx.requests.some((r) => r.url.indexOf('/download/') === 0));
});

test('download: progress per poll, the kit listed at the end', () => {
    let b = 0;
    const ctx = client({
        '/download/5 7 2000000 99': '{"s":1,"e":0,"b":0}',
        '/download/*': () => JSON.stringify(b < 2000000 ? { s: 1, e: 0, b } : { s: 0, e: 0, b }),
        '/getMapData/chartlist': '[]',
    });
    const ck = ctx.kelvor.chartkit, k = ctx.kelvor.settings.k;
    tick(ctx, [[5, true]]);
    ck.updateChartKitExec();
    assert.strictEqual(ctx.els.np_chartkit_progress_text.innerHTML, 'Connecting');
    const seen = [];
    for (b of [500000, 1234567, 2000000]) {
        ctx.tick();
        const h = ctx.els.np_chartkit_progress_text.innerHTML;
        seen.push(h.match(/(\d+) %/)[1] + '|' + h.match(/([\d.]+ MB \/ [\d.]+ MB)/)[1]);
    }
    assert.deepStrictEqual(seen, ['25|0.50 MB / 2.00 MB', '62|1.23 MB / 2.00 MB', '100|2.00 MB / 2.00 MB']);
    assert.strictEqual(k.chartKitList2[5].stat, 2);
    assert.strictEqual(k.chartkit, 'A000005.marepack', 'the new kit is opened');
    assert.strictEqual(ctx.cpApp.closed, 1);
});

test('download failures show their label and cancel', () => {
    const cases = [
        // [first reply, poll reply, label]
        ['{"s":0,"e":-2}', null, 'Server not found'],
        ['{"s":2,"e":0}', null, ''],
        ['{"s":1,"e":0}', '{"s":1,"e":-4,"b":10}', 'Device Storage full'],
        ['{"s":1,"e":0}', '{"s":0,"e":-7,"b":10}', 'Aborted'],
        ['garbage', null, 'Internal Error'],
    ];
    for (const [first, poll, label] of cases) {
        const ctx = client({ '/download/5 7 2000000 99': first, '/download/*': poll || '' });
        tick(ctx, [[5, true]]);
        ctx.kelvor.chartkit.updateChartKitExec();
        if (poll) ctx.tick();
        const h = ctx.els.np_chartkit_progress_text.innerHTML;
        assert.strictEqual(h, `<div id="dl_label">${label}</div>`, first);
        assert.ok(ctx.requests.some((r) => r.url === '/download/**'), 'cancelled');
        assert.ok(!ctx.kelvor.settings.k.chartKitList2[5], 'a failed kit is not listed');
    }
});

test('checkOvl stores changed overlays as type 13 rows', () => {
    const ctx = client({});
    const ck = ctx.kelvor.chartkit, k = ctx.kelvor.settings.k;
    ctx.route = (m, url) => (url.indexOf('getoverlay=') > 0 ? '{"style":{},"map":[]}' : 'OK');
    k.ovlList = { 5: 1 };
    ck.checkOvl({ 5: 1, 9: 2 });
    const urls = ctx.requests.map((r) => decodeURI(r.url));
    assert.ok(urls.some((u) => /\?getoverlay=9$/.test(u)));
    assert.ok(!urls.some((u) => /\?getoverlay=5$/.test(u)), 'same version stays');
    assert.ok(urls.indexOf('/UexecSql/DELETE FROM kvt WHERE t=13 AND k=9') >= 0);
    const put = ctx.requests.find((r) => r.url.indexOf('/UPexecSql/') === 0);
    assert.strictEqual(decodeURI(put.url), "/UPexecSql/REPLACE INTO kvt (k,v,t,l) VALUES(9,?,13,'**')");
    assert.strictEqual(put.body, '{"style":{},"map":[]}');
    assert.strictEqual(k.ovlList[9], 2);
});

test('chart markers: shown up to their scale, found by range for Near Me', () => {
    const ctx = client({});
    const ck = ctx.kelvor.chartkit;
    ck.markerList = [
        { x: 1000, y: 1000, s: 50000, txt: 'Harbour office', n: 'Office', q: 3 },
        { x: 1000, y: 40000, s: 20000, txt: 'Far buoy' },
    ];
    const drawn = [];
    const g = {
        scm: 0.01, cxzero: 0, cyzero: 0, x1: 0, y1: 0, x2: 1000, y2: 1000,
        save() {}, restore() {}, beginPath() {}, arc() {}, fill() {}, drawImage() {},
        strokeText() {}, fillText(t) { drawn.push(t); },
    };
    for (const [scale, want] of [[10000, ['Harbour office', 'Far buoy']], [30000, ['Harbour office']], [60000, []]]) {
        drawn.length = 0;
        g.mapScale = scale;
        ck.renderMarker(g);
        assert.deepStrictEqual(drawn, want, `scale ${scale}`);
    }
    const near = ck.findByRange(1000, 2000, 5000);
    assert.strictEqual(near.length, 1);
    assert.strictEqual(near[0].n, 'Office');
    assert.strictEqual(near[0].q, 3);
});

/* Overlay labels: a glyph's top lies 100 - ofy units (scaled by the
** text height) below the top of its line, its foot h lower; a second
** line starts one text height lower. */
test('overlay text glyphs sit on their line', () => {
    const ctx = load(['lib/rx.js']);
    const font = {
        A: { u1: 0, v1: 0, u2: 1, v2: 1, w: 60, h: 70, ofx: 0, ofy: 70 },
        g: { u1: 0, v1: 0, u2: 1, v2: 1, w: 50, h: 80, ofx: 0, ofy: 50 },
    };
    const t = new ctx.RX.gltext(font, null);
    const quads = [];
    let corners = [];
    t.buffer = {
        add(x, y, nx, ny) { corners.push([nx, ny]); return 0; },
        quad() { quads.push({ top: corners[0][1], foot: corners[2][1] }); corners = []; },
    };
    const cases = [
        // [text, size, oy, want [top, foot] per glyph]
        ['A', 100, 0, [[30, 100]]],
        ['A', 250, -125, [[-50, 125]]],
        ['Ag', 100, 0, [[30, 100], [50, 130]]],
        ['A\nA', 200, 0, [[60, 200], [260, 400]]],
    ];
    for (const [text, size, oy, want] of cases) {
        quads.length = 0;
        t.addText(0, 0, text, size, 0, oy, 1, [0, 0, 0, 255]);
        assert.deepStrictEqual(quads.map((q) => [q.top, q.foot]), want, JSON.stringify(text) + ' at ' + size);
    }
});
