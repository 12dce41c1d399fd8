/* Chart kit logic under node: the server's kit list, failure labels, chart markers, overlay text. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, same, CORE } = require('./harness');

/* The host answers from replies (url -> text); ctx.tick() runs the interval timers. */
function client(replies) {
    const ctx = load(CORE, (m, url) => {
        const r = url === '/getChartServer' && !(url in replies) ? '' : replies[url];
        return r === undefined ? '0' : r;
    });
    const timers = [];
    ctx.setInterval = (f) => timers.push(f);
    ctx.clearInterval = (id) => { timers[id - 1] = null; };
    ctx.tick = () => timers.slice().forEach((f) => f && f());
    const els = ctx.els = {};
    ctx.document.getElementById = (id) => els[id] || (els[id] = { innerHTML: '', id });
    ctx.cpApp = { activeDialog: false, ineterror() {}, yesno() {}, showSettings() {}, startAxImage() {}, update() {},
        sizeDialog(f) { this.activeDialog = typeof f === 'string' ? ctx.document.getElementById(f) : f; },
        closeDlg() { this.activeDialog = false; }, showMenuBar() {}, showDashBoard() {},
        showRedMapDot() {}, showRedInfoDot() {},
        map: { clearImageList() {}, setPosWorldMerc() {}, paintByTimer() {} } };
    ctx.kelvor.settings.load();
    ctx.kelvor.chartkit.update = { 5: { pid: 5, name: 'Baltic', version: '7', filesize: 2000000, crc32: 99, stat: 0 } };
    return ctx;
}

test('download failures show their label and cancel', () => {
    const cases = [
        // [first reply, poll reply, label]
        ['{"s":0,"e":-2}', null, 'Server not found'],
        ['{"s":2,"e":0}', null, ''],
        ['{"s":1,"e":0}', '{"s":1,"e":-4,"b":10}', 'Device Storage full'],
        ['garbage', null, 'Internal Error'],
    ];
    for (const [first, poll, label] of cases) {
        const ctx = client({ '/download/5 7 2000000 99': first, '/download/*': poll || '' });
        ctx.document.querySelectorAll = () => [{ value: '5', checked: true }];
        ctx.kelvor.chartkit.updateChartKitExec();
        if (poll) ctx.tick();
        const h = ctx.els.np_chartkit_progress_text.innerHTML;
        assert.strictEqual(h, `<div id="dl_label">${label}</div>`, first);
        assert.ok(ctx.requests.some((r) => r.url === '/download/**'), 'cancelled');
        assert.ok(!ctx.kelvor.settings.k.chartKitList2[5], 'a failed kit is not listed');
    }
});

test('chart markers are shown up to their scale', () => {
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
});

/* A glyph's top is 100 - ofy units (times text height) below its line's top, its foot h lower; lines step by height. */
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

const SERVER = 'http://charts.lan:8080/kits.json';
const KIT = (pid, version, extra) => Object.assign({ pid, name: 'Kit ' + pid, version, filesize: 1500000, crc32: '0a1b2c3d' }, extra);
/* Kit 7 installed in the server's version 3, kit 8 in version 2 of the server's 4. */
const installed = () => ({ 7: KIT(7, 3), 8: KIT(8, 2) });

test('the server list keeps only kits that can be downloaded', () => {
    const ctx = client({});
    const ck = ctx.kelvor.chartkit, k = ctx.kelvor.settings.k;
    Object.assign(k.chartKitList2, installed());
    const cases = [
        // [entry, kept, stat]
        [KIT(7, 3), true, 2],
        [KIT(8, 4), true, 0],
        [KIT(9, '1', { filesize: '20', crc32: 'ABCDEF01' }), true, 0],
        [KIT(2, 1), false], // the base chart: the program's own packs are not listed
        [KIT(9.5, 1), false],
        [KIT(2147483648, 1), false],
        [KIT(9, true), false],
        [KIT(9, 1, { crc32: '123456789' }), false],
        [KIT(9, 1, { crc32: 'xyz' }), false],
        ['9', false],
    ];
    for (const [entry, kept, stat] of cases) {
        const got = Object.values(ck.parseKits({ a: entry })).map((e) => [e.stat, typeof e.version]);
        same(got, kept ? [[stat, 'number']] : [], JSON.stringify(entry));
    }
    assert.strictEqual(ck.parseKits('x'), null);
});

/* No server set is the chart kit journey's. */
test('the kit dialogue: no list, empty, kits with their state', () => {
    const list = JSON.stringify({ update: { 7: KIT(7, 3), 8: KIT(8, 4), 9: KIT(9, 1, { name: '<b>Bay</b>' }) } });
    const cases = [
        // [kits.json reply, texts shown, settings button]
        ['<html>', ['sent no list', 'charts.lan:8080'], true],
        ['{"update":[]}', ['lists no chart kits'], false],
        [list, ['Kit 7', 'Installed', 'Kit 8', 'Update', '&lt;b&gt;Bay&lt;/b&gt;', 'New', '1.5 MB'], false],
    ];
    for (const [reply, texts, button] of cases) {
        const ctx = client({ '/getChartServer': 'charts.lan:8080', [SERVER]: reply });
        const k = ctx.kelvor.settings.k;
        Object.assign(k.chartKitList2, installed());
        ctx.kelvor.chartkit.updateChartKit(0);
        const h = ctx.els.np_chartkit_add_form.innerHTML;
        for (const t of texts) assert.ok(h.indexOf(t) >= 0, `${reply.slice(0, 20)}: ${t} in ${h}`);
        assert.strictEqual(/btn_chartkit_settings/.test(h), button, h);
        assert.strictEqual(ctx.cpApp.activeDialog, ctx.els.np_chartkit_add);
    }
});

test('with a chart server the daily check counts new and old kits from its list', () => {
    const ctx = client({ '/getChartServer': 'charts.lan:8080',
        [SERVER]: JSON.stringify({ update: { 7: KIT(7, 3), 8: KIT(8, 4), 9: KIT(9, 1), 10: KIT(10, 1) } }) });
    const ck = ctx.kelvor.chartkit, k = ctx.kelvor.settings.k;
    Object.assign(k.chartKitList2, installed());
    k.chartkit = 'A000008.marepack';
    ck.checkForNewMaps(true);
    assert.strictEqual(k.newMapCount, 2);
    assert.deepStrictEqual(Array.from(k.oldmaps), [8]);
    assert.strictEqual(ck.outdated, true, 'the kit in use is old');
    assert.ok(!ctx.requests.some((r) => r.url.indexOf('checkmaps2') >= 0), 'no cloud request');
});

/* A refused address is the chart kit journey's. */
test('Settings Done sends a changed chart server address in its plain form', () => {
    const cases = [
        // [typed, address on the host, host's reply, request sent]
        ['  http://charts.lan:8080/ ', '', 'OK', '/setChartServer/charts.lan%3A8080'],
        ['[::1]:8080', '', 'OK', '/setChartServer/%5B%3A%3A1%5D%3A8080'],
        ['charts.lan', 'charts.lan', 'ERR', null],
        ['', 'charts.lan', 'OK', '/setChartServer/'],
    ];
    for (const [typed, has, reply, sent] of cases) {
        const ctx = client({ '/getChartServer': has });
        ctx.route = (m, url) => (url === '/getChartServer' ? has : url.startsWith('/setChartServer/') ? reply : '0');
        ctx.els.i_chart_server = { value: typed };
        ctx.els.i_chart_server_error = { className: 'none' };
        assert.strictEqual(ctx.kelvor.settings._doneChartServer(), true, typed);
        const asked = ctx.requests.filter((r) => r.url.startsWith('/setChartServer/')).map((r) => r.url);
        assert.deepStrictEqual(asked, sent ? [sent] : [], typed);
    }
});
