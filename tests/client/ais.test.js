/* AIS targets and fairways: CPA, the record merge, dialogue texts, ageing, the nearest-30 list. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

const B = 40030178.618589391188160183529977;
/* a place on the equator, where true and grid metres agree */
const X0 = B / 2, Y0 = B / 2;

function client() {
    return load(CORE.concat(['kelvor.alarm.js']));
}

/* A 2D context that accepts every call. */
function nullCtx(extra) {
    const base = Object.assign({ scm: 1, cxzero: X0, cyzero: Y0, mapScale: 4000, x1: -640, y1: -400, x2: 640, y2: 400,
        measureText: () => ({ width: 10 }) }, extra);
    return new Proxy(base, { get: (o, k) => (k in o ? o[k] : () => {}), set: (o, k, v) => { o[k] = v; return true; } });
}

test('straight-line CPA and its text, shown within 4200 s only', () => {
    const nr = new (client().kelvor.navrte)('empty');
    const cases = [
        // [name, target dx, dy (grid metres, y south), speed, course, boat refLat, want, text]
        ['crossing meets at the same point', 1000, -1000, 5, 270, 1, { cpa: 0, tcpa: 200 }, /^.*m&nbsp;\/&nbsp;3min&nbsp;20s&nbsp;$/],
        ['head-on passes 100 m apart', 100, -2000, 5, 180, 1, { cpa: 100, tcpa: 200 }, /&nbsp;3min&nbsp;20s&nbsp;$/],
        ['grid metres count at the boat latitude', 2000, -2000, 5, 270, 0.5, { cpa: 0, tcpa: 200 }, /3min/],
        ['same velocity has no meeting', 500, 0, 5, 0, 1, false, false],
        ['opening ships have no meeting', 0, -1000, 10, 0, 1, false, false],
        ['far future computes but is not shown', 0, -30000, 1, 180, 1, { cpa: 0, tcpa: 5000 }, false],
    ];
    for (const [name, dx, dy, spd, crs, ref, want, text] of cases) {
        nr.setBoat(X0, Y0, 5, 0, 50, ref);
        const r = nr.cpaCalc(X0 + dx, Y0 + dy, spd, crs);
        if (want === false) assert.strictEqual(r, false, name);
        else assert.deepStrictEqual([r.cpa, r.tcpa], [want.cpa, want.tcpa], name);
        const c = nr.cpa(X0 + dx, Y0 + dy, spd, crs);
        if (text === false) assert.strictEqual(c.CPA, false, name);
        else assert.match(c.CPA, text, name);
    }
});

test('fairway run and CPA along the line', () => {
    const nr = new (client().kelvor.navrte)('fw');
    /* a channel 10 km due north, then 5 km east */
    nr.x = [X0, X0, X0 + 5000];
    nr.y = [Y0, Y0 - 10000, Y0 - 10000];
    nr.setBoat(X0 + 10, Y0 - 1000, 5, 0, 50, 1);
    assert.deepStrictEqual(nr.b && [Math.round(nr.b.run), nr.b.dir], [1000, 1], 'the boat on the fairway');

    const runs = [
        // [name, x, y, cog, run or false, dir]
        ['on the first leg against it', X0 - 20, Y0 - 5000, 180, 5000, -1],
        ['on the second leg with it', X0 + 2000, Y0 - 10030, 90, 12000, 1],
        ['too far off the line', X0 + 80, Y0 - 5000, 0, false],
        ['before the start', X0, Y0 + 500, 0, false],
    ];
    for (const [name, x, y, cog, run, dir] of runs) {
        const r = nr.run(x, y, cog);
        assert.deepStrictEqual(r && [Math.round(r.run), r.dir], run === false ? false : [run, dir], name);
    }

    const c = nr.cpa(X0 - 20, Y0 - 5000, 5, 180);
    assert.deepStrictEqual([Math.round(c.tcpa), Math.round(c.cpa), c.cdir, c.CPA[0]], [400, 30, ' ', ' '],
        'cpa: the difference of the lateral offsets');
    assert.strictEqual(nr.cpa(X0, Y0 - 5000, 5, 0).CPA, false, 'a target ahead at the same speed never meets');
    assert.strictEqual(nr.cpa(X0 + 500, Y0 - 2000, 5, 180).run, undefined, 'off the fairway: straight line, no run');

    const p = nr.getXY(11000);
    assert.deepStrictEqual([Math.round(p.x - X0), Math.round(p.y - Y0), p.dx, p.dy], [1000, -10000, 1, 0]);
    assert.strictEqual(nr.getXY(20000), false);
});

test('ship type, navigational status and ETA texts', () => {
    const a = client().kelvor.ais;
    assert.deepStrictEqual([29, 100, 101, 0].map(a.shipType),
        ['Wing in ground (WIG), Reserved for future use', 'Pleasure Craft, MrAppUser', '101', '0']);
    assert.deepStrictEqual([211000001, 970000001].map((user) => a.navStatus({ stat: 15, user })),
        ['undefined', 'AIS SART TEST'], 'status 15 of a SART under test');

    const eta = (mo, d, h, mi) => (mo << 16) | (d << 11) | (h << 6) | mi;
    const etas = [
        // [packed, want month index, day, hour, minute]
        [eta(6, 15, 10, 20), 6, 15, 10, 20],
        [eta(6, 15, 10, 45), 6, 15, 10, 13], // a minute above 31 loses its top bit
        [eta(1, 1, 0, 0), 1, 1, 0, 0],       // month 1 goes in as February
    ];
    for (const [v, mo, d, h, mi] of etas) {
        const t = a.etaUnpack(v, 2026);
        assert.deepStrictEqual([t.getMonth(), t.getDate(), t.getHours(), t.getMinutes()], [mo, d, h, mi]);
    }
});

test('rows merge into records; stale records go in the render pass', () => {
    const ctx = client(), a = ctx.kelvor.ais;
    ctx.kelvor.boat.loctime = 100000;
    ctx.kelvor.chartkit.navrte = new ctx.kelvor.navrte('empty');
    const X = Math.round(X0 + 1000), Y = Math.round(Y0 - 1000);
    a.setAisData({ ais: [
        [211000001, 5, 0, 0, 0, 'DABC', 'STATIC FIRST', 70, 'KIEL', 0, 50, 10, 5, 5, 42, 1234567],
        [211000002, 18, 0, X, Y, 50, 900, 511, -128, 0],
        [211000003, 21, 0, X, Y + 500, '', 'BUOY', 1, '', 0, 0, 0, 0, 0, -1],
        [211000004, 1, 0, X, Y - 500, 0, 0, 511, -128, 0],
    ] });
    const e1 = a.ais_elem[211000001], e2 = a.ais_elem[211000002];
    // message 5 carries no position; course 0 counts as missing
    assert.deepStrictEqual([e1.name, e1.isB, e1.X, e2.isB, e2.SOG !== 'n/a', e2.cog, a.ais_elem[211000004].COG],
        ['STATIC FIRST', false, undefined, true, true, 90, 'n/a']);
    a.setAisData({ ais: [[211000001, 1, 0, X - 300, Y, 100, 0, 0, 0, 0]] });
    assert.deepStrictEqual([e1.X, e1.track.length], [X - 300, 1], 'a position joins the static record');

    ctx.kelvor.boat.loctime = 100000 + 901;
    a.addMarker({ _ID: 7, NAME: 'Fairway 7', lon: 0, lat: 0 });
    a.render(nullCtx());
    assert.deepStrictEqual(Object.keys(a.ais_elem).sort(), ['211000003', 'RTEMRK7']);
});

/* A page with only the target list, the boat at X0, Y0 and no route. */
function listClient() {
    const ctx = client();
    const div = { innerHTML: '', addEventListener() {} };
    ctx.document.getElementById = (id) => (id === 'r_ais_list' ? div : null);
    ctx.document.addEventListener = () => {};
    ctx.kelvor.boat.loctime = 5000;
    ctx.kelvor.boat.theBoat = { x: X0, y: Y0 };
    ctx.kelvor.chartkit.navrte = new ctx.kelvor.navrte('empty');
    return { ctx, a: ctx.kelvor.ais, div };
}

test('the target list takes the nearest 30 shown targets', () => {
    const { ctx, a, div } = listClient();
    const rows = [];
    for (let i = 0; i < 40; i++) rows.push([211000100 + i, 1, 0, Math.round(X0 + 100 * (40 - i)), Math.round(Y0 - 50), 0, 0, 511, -128, 0]);
    rows.push([211000999, 18, 0, Math.round(X0 + 30), Math.round(Y0 - 30), 0, 0, 511, -128, 0]);
    ctx.kelvor.settings.k.C.i_traffic_ais_showClassB = false;
    a.setAisData({ ais: rows, aisuserid: 211000139 });
    const ids = [...div.innerHTML.matchAll(/data-mmsi="(\d+)"/g)].map((m) => Number(m[1]));
    assert.strictEqual(ids.length, 30);
    assert.strictEqual(ids[0], 211000138, 'own AIS ship and hidden class B are left out');
    for (let i = 1; i < ids.length; i++) assert.ok(ids[i] < ids[i - 1], 'nearest first');
});

test('target dialog rows: short and long form, the swapped longitude letters', () => {
    const ctx = client(), a = ctx.kelvor.ais;
    ctx.kelvor.settings.k.I.i_settings_geofmt = 1;
    const e = { user: 211000001, name: '211000001', callsign: 'DABC', bow: 50, stern: 10, port: 5, starboard: 6,
        draught: 42, hdg: 511, COG: 'n/a', SOG: 'n/a', rot: -128, CPA: false, lat: 54.5, lon: 10.25, time: 0,
        stat: 15, dest: 'KIEL', eta: 0, shiptype: 36 };
    ctx.kelvor.boat.loctime = 125;
    const rows = Object.fromEntries(a.statusRows(e).map((r) => [r[0], [r[1], r[2]]]));
    // row: [value, only in the long form]
    const want = { Length: ['60 m', false], Beam: ['11 m', false], Draught: ['4.2 m', false], HDG: ['n/a', true],
        CPA: ['---', true], Position: ['54\u00b030.000\'N 10\u00b015.000\'W', false], Age: ['2:05', false],
        'Status Navigation': ['undefined', false], 'Ship Type': ['Sailing', false] };
    for (const k of Object.keys(want)) assert.deepStrictEqual(rows[k], want[k], k);
    assert.ok(!('Name' in rows) && !('ETA' in rows), 'no name that is only the MMSI, no empty ETA');
});

/* Names by radio reaching the list and the dialogue as text is the AIS journey's. */
test('names and ids from other users reach the list as text', () => {
    const { a, div } = listClient();
    a.setRemote([{ uid: "9'); alert(2); ('", source: 200, showtime: 5000, lon: 0.01, lat: 0.01, cog: 0, sog: 0,
        descr: '<script>x</script>' }]);
    a.setAisData({ ais: [] });
    const html = div.innerHTML;
    assert.ok(!/<script/i.test(html) && html.includes('&lt;script&gt;x&lt;/script&gt;'), html);
    assert.ok(!html.includes("alert(2); ('\""), 'a remote id cannot leave its attribute');
});
