/* Pure logic of the chart client: formats, settings, grid, tile choice, zoom, chart pack loading. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, same, CORE, HOST } = require('./harness');

function client(route) {
    return load(CORE, route);
}

test('unit formats follow the chosen table row; depth reads back', () => {
    const s = client().kelvor.settings;
    const I = s.k.I, base = JSON.parse(JSON.stringify(I));
    const cases = [
        // [unit setting, its value, function, [argument(s), expected]...]
        ['speed', 0, 'fmtSpeed', [5, '9.7 kt'], [60, '117 kt']],
        ['speed', 1, 'fmtSpeed', [5, '5.0 m/s']],
        ['depth', 0, 'fmtDeep', [5, '5.00 m'], [50, '50.0 m'], [150, '150 m']],
        ['depth', 1, 'fmtDeep', [5, '16.4 ft']],
        ['distance', 0, 'fmtDist', [1000, '0.54&nbsp;nm'], [300, '300&nbsp;m'], [2000, '1.1&nbsp;nm'], [40000, '22&nbsp;nm'],
            [-1, '---']],
        ['distance', 1, 'fmtDist', [12000, '12&nbsp;km'], [999, '999&nbsp;m']],
        ['distance', 2, 'fmtDist', [304, '997&nbsp;ft']],
        ['distance', 3, 'fmtDist', [16090, '10.0&nbsp;mi']],
        ['geofmt', 0, 'fmtGeo', [[54.52, 'N', 'S'], '54.5200']],
        ['geofmt', 1, 'fmtGeo', [[54.52, 'N', 'S'], '54\u00b031.200\'N'], [[-3.05, 'N', 'S'], '3\u00b003.000\'S']],
        ['geofmt', 2, 'fmtGeo', [[10.1, 'E', 'W'], '10\u00b006\'00.00"E'], [[0, 'N', 'S'], '0\u00b000\'00.00"S'],
            [[200, 'N', 'S'], '---']],
        ['none', 0, 'fmtDuration', [0, '---'], [-5, '---'], [45, '45s&nbsp;'], [3605, '1h&nbsp;5s&nbsp;'],
            [90061, '1D&nbsp;1h&nbsp;'], [694800, '1W&nbsp;1D&nbsp;']],
        ['none', 0, 'fmtBrg', [-90, '270\u00b0T'], [12.6, '13\u00b0T']],
    ];
    for (const [unit, value, fn, ...calls] of cases) {
        Object.assign(I, base, { ['i_settings_' + unit]: value });
        for (const [args, want] of calls) {
            assert.strictEqual(s[fn].apply(null, [].concat(args)), want, `${fn}(${args}) with ${unit} ${value}`);
        }
    }
    s.k.I.i_settings_depth = 2;
    assert.ok(Math.abs(s.getDeep(s.fmtDeep(3).split(' ')[0]) - 3) < 0.01);
});

test('settings load merges the stored record over the defaults', async (t) => {
    const cases = [
        // [name, stored record or status, read back, want]; the base chart pack does not open here (version 0)
        ['first start: no row, all defaults, the carried packs\' versions', 404,
            (k) => [k.map, k.chartkit, k.chartKitList2[1].version, k.chartKitList2[2].version],
            [{ lonX: 10.1, latY: 54.52, zoom: 8 }, 'A000002.marepack', '12', 0]],
        ['a stored record keeps defaults for its missing keys and keeps unknown keys; the language follows the host',
            { map: { zoom: 11 }, C: { i_night_mode: true }, S: { i_settings_language: 'fr' }, futureKey: { a: 1 } },
            (k) => [k.map, k.C.i_night_mode, k.C.i_opengl_mode, k.futureKey, k.S.i_settings_language],
            [{ lonX: 10.1, latY: 54.52, zoom: 11 }, true, true, { a: 1 }, HOST.alang]],
        ['arrays replace rather than merge', { oldmaps: [7] }, (k) => k.oldmaps, [7]],
        ['an old kit array becomes the kit map',
            { chartKitList: [{ pid: 5, name: 'Baltic', version: 3, stat: 2 }], chartKitList2: { 1: { version: 4 } } },
            (k) => ['chartKitList' in k, k.chartKitList2[5].name, k.chartKitList2[2].name], [false, 'Baltic', 'Overview']],
        ['an old single AIS host moves to the first slot', { V: { i_traffic_ais_ip: '10.0.0.5', i_traffic_ais_port: '2000' } },
            (k) => [k.V.i_traffic_ais_ip1, k.V.i_traffic_ais_port1], ['10.0.0.5', '2000']],
        ['text that is not JSON leaves the defaults', '<html>404</html>', (k) => k.map.zoom, 8],
    ];
    for (const [name, stored, read, want] of cases) {
        await t.test(name, () => {
            const ctx = client((m, url) => {
                if (url === '/getValue/settings') return typeof stored === 'object' ? JSON.stringify(stored) : stored;
                if (url.startsWith('/getSetState/chartdb=')) return url.endsWith('2.marepack') ? '500 ' : '000 OK';
                if (url === '/getMapData/version') return '12';
                return 404;
            });
            ctx.kelvor.settings.load();
            same(read(ctx.kelvor.settings.k), want);
        });
    }
});

test('grid conversions go both ways, on the world plane and on a pixel base', () => {
    const ctx = client();
    const G = ctx.kelvor.geo;
    for (const B of [undefined, Math.pow(2, 20)]) {
        const side = B || ctx.MERC_SPHERE_BASE;
        for (const [lon, x] of [[0, side / 2], [-180, 0], [180, side]]) {
            assert.ok(Math.abs(G.lon2x(lon, B) - x) < 1e-6, `lon ${lon}`);
        }
        assert.ok(Math.abs(G.lat2y(0, B) - side / 2) < 1e-6);
        for (const [lat, lon] of [[54.52, 10.1], [-33.9, 151.2], [79.9, -179.9], [0.0001, 0]]) {
            assert.ok(Math.abs(G.x2lon(G.lon2x(lon, B), B) - lon) < 1e-9, `lon ${lon}`);
            assert.ok(Math.abs(G.y2lat(G.lat2y(lat, B), B) - lat) < 1e-9, `lat ${lat}`);
        }
        assert.ok(G.lat2y(60, B) < G.lat2y(50, B), 'y grows southward');
    }
    // great circle: one degree of latitude, equal points, across the date line
    const deg = 6371000.8 * Math.PI / 180;
    assert.ok(Math.abs(G.dist(54, 10, 55, 10) - deg) < 1e-6);
    assert.strictEqual(G.dist(54.52, 10.1, 54.52, 10.1), 0);
    assert.ok(Math.abs(G.dist(0, 179.5, 0, -179.5) - deg) < 1e-6);
});

/* A map object with no canvas: enough for tile choice, fitting and zoom. */
function bareMap(ctx, base) {
    const v = Object.create(ctx.kelvor.vmap.prototype);
    Object.assign(v, {
        base: base, cx: 0, cy: 0, newScaleFactor: 1, imglist: {}, renderList: {}, tileList: [],
        MAXZOOM: 20, mapVersion: 'A000002', sx: 1280, sy: 800, hx: 640, hy: 400, rotation: 0, needPaint: 0, lastMouseB: 0,
        canvas: { clientWidth: 1280, clientHeight: 800 },
    });
    v.update = function () {};
    return v;
}

const id = (z, y, x) => z * 1099511627776 + y * 1048576 + x;

test('checkTile walks up to the first full tile', () => {
    const up = (zs) => zs.map((z) => id(z, 600 >> (11 - z), 1000 >> (11 - z)));
    const cases = [
        // [name, available tiles, cell, tiles drawn]
        ['a full tile hides its parents', { [id(10, 300, 500)]: 1, [id(9, 150, 250)]: 1 }, [500, 300, 10, 5],
            [id(10, 300, 500)]],
        ['a partial tile pulls in its parent', { [id(10, 300, 500)]: 2, [id(9, 150, 250)]: 1, [id(8, 75, 125)]: 1 },
            [500, 300, 10, 5], [id(9, 150, 250), id(10, 300, 500)]],
        ['gaps are skipped on the way up', { [id(7, 37, 62)]: 1 }, [500, 300, 10, 5], [id(7, 37, 62)]],
        ['zoom 3 is the floor', { [id(2, 1, 1)]: 1 }, [8, 5, 4, 5], []],
        ['at zoom 3 a partial tile ends the walk', { [id(3, 2, 4)]: 2 }, [4, 2, 3, 5], [id(3, 2, 4)]],
        ['at most five levels up', { [id(6, 18, 31)]: 2, [id(5, 9, 15)]: 1 }, [1000, 600, 11, 5], [id(6, 18, 31)]],
        ['presence only (fallback) counts as partial: all five parents',
            Object.fromEntries(up([11, 10, 9, 8, 7, 6]).map((t) => [t, true])), [1000, 600, 11, 5],
            up([6, 7, 8, 9, 10, 11])],
        ['no tile anywhere leaves the cell blank', {}, [1000, 600, 11, 5], []],
    ];
    for (const [name, av, cell, want] of cases) {
        const ctx = client();
        ctx.Image = function () {};
        ctx.kelvor.chartkit.avTiles = av;
        const v = bareMap(ctx, Math.pow(2, 18));
        v.checkTile(...cell);
        same(Object.keys(v.renderList).map(Number).sort((x, y) => x - y), want, name);
    }
});

test('fitting a box clamps the zoom', () => {
    const ctx = client();
    const B = ctx.MERC_SPHERE_BASE;
    const cases = [
        { box: [21e6, 13e6, 21e6 + 10, 13e6 + 10], base: Math.pow(2, 28), why: 'a point fits at zoom 20' },
        { box: [0, 0, B, B], base: Math.pow(2, 11), why: 'the world is not shown below zoom 3' },
    ];
    for (const c of cases) {
        const v = bareMap(ctx, Math.pow(2, 20));
        v.setPosWorldMerc(...c.box);
        assert.strictEqual(v.base, c.base, c.why);
        assert.ok(Math.abs(v.cx / v.base * B - (c.box[0] + c.box[2]) / 2) < 1, 'centred on the box');
    }
});

test('wheel zoom stops at zoom 3 and at zoom 20', () => {
    const ctx = client();
    const v = bareMap(ctx, Math.pow(2, 11.1));
    v.imtr = new ctx.Matrix().translate(-(v.cx - 640), -(v.cy - 400)).inverse();
    assert.strictEqual(v.onZoom(100, 100, 0.8), false, 'zoom 3.1 does not go past 3');
    assert.strictEqual(v.onZoom(100, 100, 1.25), true);
    const hi = bareMap(ctx, Math.pow(2, 27.9));
    hi.imtr = v.imtr;
    assert.strictEqual(hi.onZoom(0, 0, 1.25), false, 'zoom 20 is the top');
});

/* A host with one chart pack for the pack loading tests. */
function packHost(opts) {
    return (method, url, body) => {
        if (url.startsWith('/getSetState/chartdb=')) return opts.open500 && !url.endsWith('A000002.marepack') ? '500 ' : '000 OK';
        if (url === '/MexecSql' && body.indexOf("k='mrk'") >= 0) return opts.mrk === undefined ? '[]' : opts.mrk;
        if (url === '/MexecSql' && body === 'SELECT zyx FROM tiles') return JSON.stringify(opts.tiles || []);
        if (url === '/getMapData/chartlist') return JSON.stringify(opts.charts || []);
        if (url === '/getMapData/avtiles2') return opts.av === undefined ? 404 : opts.av;
        if (url === '/getMapData/tides') return '{}';
        if (url === '/getMapDataA/mrk') return '[]';
        return 404;
    };
}

function withMap(ctx) {
    const v = bareMap(ctx, Math.pow(2, 16));
    v.clearImageList = function () {};
    ctx.cpApp = { map: v, update() {}, showMenuBar(id) { this.menu = id; }, showDashBoard(id) { this.dash = id; } };
    return v;
}

test('loading a chart pack', async (t) => {
    const asked = (ctx, url) => ctx.requests.some((r) => r.url === url);
    const lang = (ctx, f) => ctx.kelvor.settings.k.maplang[f];
    const cases = [
        // [name, host, loadChartKit arguments, read (chartkit, context, map), want]
        ['no mrk rows: map language en, empty language list', { av: '{}' }, ['A000002.marepack', false],
            (ck, ctx) => [ck.langlist, lang(ctx, 'A000002.marepack')], [[], 'en']],
        ['a pack that fails to open falls back but keeps its name in the map', { open500: true, av: '{}' },
            ['A000009.marepack', false],
            (ck, ctx, v) => [asked(ctx, '/getSetState/chartdb=A000002.marepack'), v.mapVersion, ctx.kelvor.settings.k.chartkit],
            [true, 'A000009', 'A000009.marepack']],
        ['an unreadable language query selects the base pack', { av: '{}', mrk: 'out of memory' }, ['A000009.marepack', false],
            (ck, ctx, v) => v.mapVersion, 'A000002'],
        ['without avtiles2 the tiles table gives presence', { tiles: [[id(5, 1, 2)], [id(6, 2, 4)]] }, ['A000002.marepack', false],
            (ck) => ck.avTiles, { [id(5, 1, 2)]: true, [id(6, 2, 4)]: true }],
        ['a pack listed as old is marked outdated, the base pack not', { av: '{}' }, ['A000009.marepack', false],
            (ck) => [ck.outdated, (ck.loadChartKit('A000002.marepack', false), ck.outdated)], [true, false]],
    ];
    for (const [name, host, args, read, want] of cases) {
        await t.test(name, () => {
            const ctx = client(packHost(host));
            const v = withMap(ctx);
            ctx.kelvor.settings.k.oldmaps = [9];
            ctx.requests.length = 0;
            ctx.kelvor.chartkit.loadChartKit(...args);
            same(read(ctx.kelvor.chartkit, ctx, v), want);
        });
    }
});

test('showBestChart takes the finest chart holding the point, bounds exclusive', () => {
    const ctx = client();
    const v = withMap(ctx);
    let scale = null;
    v.setScale = (s) => { scale = s; };
    v.setPosMM = function () {};
    const ck = ctx.kelvor.chartkit;
    ck.chartList = [
        { sc: '5000000', x1: 0, y1: 0, x2: 100, y2: 100 },
        { sc: 50000, x1: 10, y1: 10, x2: 20, y2: 20 },
        { sc: 200000, x1: 5, y1: 5, x2: 50, y2: 50 },
    ];
    const cases = [[15, 15, 50000 / 2.5], [10, 15, 200000 / 2.5], [60, 60, 2000000], [200, 200, 200000 / 2.5]];
    for (const [x, y, want] of cases) {
        ck.showBestChart(x, y);
        assert.strictEqual(scale, want, `point ${x},${y}`);
    }
});

test('text from outside: hex for SQL literals, escaped for markup, select lists of names', () => {
    const ctx = client();
    const aux = ctx.kelvor.aux;
    for (const [s, h] of [['MrApp started', '4d724170702073746172746564'], ["it's", '69742773'], ['\u00e9\u20ac', 'c3a9e282ac'], ['', '']]) {
        assert.strictEqual(aux.hexscape(s), h);
    }
    const escaped = [
        [`<img src=x onerror='a("&")'>`, '&lt;img src=x onerror=&#39;a(&quot;&amp;&quot;)&#39;&gt;'],
        [null, ''], [undefined, ''], [0, '0'], [false, 'false'],
    ];
    for (const [s, want] of escaped) assert.strictEqual(aux.esc(s), want, String(s));

    const sel = { innerHTML: '' };
    ctx.document.getElementById = (id) => (id === 'list' ? sel : null);
    aux.fillList('list', [{ name: '"><script>' }, { name: 'B' }], null, 'Pick');
    assert.strictEqual(sel.innerHTML, '<option value="-1">Pick</option><option value="0">1 - &quot;&gt;&lt;script&gt;</option>' +
        '<option value="1">2 - B</option>');
    aux.setText('absent', 'x');
    aux.show('absent', true);
    aux.fillList('absent', [], null, 'Pick');
});

/* A bare map at zoom 10 over tile 10/600/1000, a clock the test moves, the images asked for, its 2D pass logged. */
function oneTileMap() {
    const ctx = client(), clock = { now: 1000000 }, made = [], drawn = [];
    require('vm').runInContext('Date', ctx).now = () => clock.now;
    ctx.Image = function () { made.push(this); };
    ctx.kelvor.chartkit.avTiles = { [id(10, 600, 1000)]: 1 };
    const v = bareMap(ctx, Math.pow(2, 18));
    v.bctx = { setTransform() {}, translate() {}, rotate() {}, fillRect: () => drawn.push('clear'),
        drawImage: () => drawn.push('tile') };
    v.ctx = { drawImage: () => drawn.push('copy') };
    v.buffer = {};
    v.renderRasterTile = function () {
        this.renderList = {};
        this.checkTile(1000, 600, 10, 5);
        this.tileList = Object.keys(this.renderList).map(Number);
    };
    return { v, clock, made, drawn };
}

test('a pass with nothing new keeps the composed chart', () => {
    const { v, made, drawn } = oneTileMap();
    v._compose(true);
    assert.deepStrictEqual([drawn, v.queueWait, v.busy()], [['clear', 'copy'], 1, true],
        'a missing tile keeps the map busy');
    drawn.length = 0;
    v.needPaint = 0;
    v._compose(false);
    assert.deepStrictEqual(drawn, ['copy'], 'the buffer is neither cleared nor redrawn');
    assert.ok(v.needPaint > 0, 'another pass is asked for');
    made[0].naturalWidth = 256;
    v._compose(false);
    assert.deepStrictEqual([drawn.slice(1), v.queueWait, v.busy()], [['clear', 'tile', 'copy'], 0, false],
        'an arrived tile redraws the buffer');
});

test('a tile that does not come holds the map busy for tileWait at most', async (t) => {
    const cases = [
        { name: 'no answer', end() {}, busyAt0: true, asksAgain: false },
        { name: 'an error', end(img) { img.onerror(); }, busyAt0: false, asksAgain: true },
        { name: 'a one-pixel answer', end(img) { img.naturalWidth = 1; img.onload(); }, busyAt0: false, asksAgain: false },
    ];
    for (const c of cases) {
        await t.test(c.name, () => {
            const { v, clock, made } = oneTileMap();
            v._compose(true);
            c.end(made[0]);
            v._compose(false);
            assert.strictEqual(v.busy(), c.busyAt0, 'busy right after the request ended');
            clock.now += v.tileWait - 1;
            v._compose(false);
            assert.strictEqual(v.busy(), c.busyAt0, 'still the same just before the wait runs out');
            clock.now += 1;
            v._compose(false);
            assert.strictEqual(v.busy(), false, 'not busy once the wait ran out');
            v._compose(true);
            assert.strictEqual(v.busy(), c.asksAgain, 'a new tile list waits only for a new request');
            assert.strictEqual(made.length, c.asksAgain ? 2 : 1);
        });
    }

    await t.test('a failed tile is asked again with the next tile list; a late one composes anew', () => {
        const { v, clock, made } = oneTileMap();
        v.checkTile(1000, 600, 10, 5);
        made[0].onerror();
        v.renderList = {};
        v.checkTile(1000, 600, 10, 5);
        assert.strictEqual(made.length, 2, 'a new request for the failed tile');
        v.tileList = Object.keys(v.renderList).map(Number);
        clock.now += v.tileWait;
        v._missing();
        v.force = false;
        made[1].naturalWidth = 256;
        made[1].onload();
        assert.ok(v.force, 'the late tile makes the next pass compose the chart');
    });

    await t.test('on WebGL a cached tile with pixels is awaited until its texture is made', () => {
        const { v, made } = oneTileMap();
        const gl = {};
        for (const f of ['createTexture', 'bindTexture', 'texImage2D', 'texParameteri']) gl[f] = () => ({});
        v.ctx3d = gl;
        v.checkTile(1000, 600, 10, 5);
        v.tileList = Object.keys(v.renderList).map(Number);
        made[0].naturalWidth = 256;
        v.queueWait = 1;
        assert.ok(v._missing(), 'pixels without a texture still count as missing');
        made[0].onload();
        assert.ok(made[0].tex && !v._missing(), 'the texture ends the wait');
    });
});

test('Settings Done sends the host that the network source selection picks', () => {
    const cases = [
        ['host 3, blanks around it', 2, 'feed.local/2003'],
        ['a stored selection out of range falls back to host 1', 7, '10.0.0.1/2001'],
    ];
    for (const [name, source, want] of cases) {
        const ctx = client((m, url) => (url.startsWith('/setNmeaMode/') ? '1' : ''));
        ctx.document.getElementsByName = () => [];
        ctx.cpApp = null;
        const k = ctx.kelvor.settings.k;
        Object.assign(k.V, { i_traffic_ais_ip1: '10.0.0.1', i_traffic_ais_port1: '2001', i_traffic_ais_ip2: '10.0.0.2',
            i_traffic_ais_port2: '2002', i_traffic_ais_ip3: ' feed.local ', i_traffic_ais_port3: '2003 ' });
        Object.assign(k.I, { i_gps_source: 1, i_nmea_source: 1, i_wifi_source: source });
        ctx.kelvor.settings.done();
        const sent = ctx.requests.filter((r) => r.url.startsWith('/setNmeaMode/')).map((r) => r.url);
        assert.deepStrictEqual(sent, [`/setNmeaMode/2/1/1/${want}/0`], name);
    }
});
