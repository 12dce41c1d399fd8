/* The own boat and the track under node: fix texts, steering, status, track. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, NAV } = require('./harness');

/* Elements are made on first use (ctx.els). */
function client() {
    const ctx = load(NAV, () => 'OK');
    const els = ctx.els = {};
    ctx.document.getElementById = (id) => els[id] || (els[id] = { id, innerHTML: '', className: '', style: {},
        parentNode: null, value: '', children: [{ textContent: '' }, { textContent: '' }], addEventListener() {},
        appendChild() {} });
    ctx.cpApp = {
        setModified() {}, unSelect() {}, update() {}, showMenuBar() {}, showDashBoard() {},
        sizeDialog() {}, closeDlg() {},
        map: {
            getWidth: () => 600, getHeight: () => 500, getScm: () => 0.01, setCenter(x, y) { this.c = [x, y]; },
            update() {}, rotation: 0, paintByTimer() {}, setPosMM() {}, setScale() {},
        },
    };
    return ctx;
}

/* The log texts the client wrote, decoded from their hex literals. */
function logRows(ctx, type) {
    return ctx.requests.filter((r) => r.url === '/UexecSql' && /^INSERT INTO log/.test(r.body))
        .map((r) => /VALUES\(\d+,([^,]+),([^,]+),(\d+),X'([0-9a-f]*)'\)/.exec(r.body))
        .filter((m) => m && Number(m[3]) === type)
        .map((m) => Buffer.from(m[4], 'hex').toString('utf8'));
}

test('fix texts and their alarm colour', () => {
    const b = client().kelvor.boat;
    // [fix, i_gps_intern, text, red]
    const cases = [
        [999, 2, 'NO FIX', true], [800, 2, 'AIS A', false], [7, 2, '7 Sat.', false], [950, 2, '950 Sat.', true],
        [-12, 2, '12&nbsp;m', false], [-60, 2, '60&nbsp;m', true], [0, 1, 'NO FIX', true], [0, 2, 'GPS OFF', true],
    ];
    for (const [fix, intern, t, red] of cases) {
        const r = b.fixText(fix, intern);
        assert.deepStrictEqual([r.t, r.red], [t, red], `fix ${fix}`);
    }
    assert.deepStrictEqual([-128, 127, -20].map(b.rotText), [null, '>720.0°/min', '-17.9°/min']);
});

test('waypoint progress: times from speed, none at speed 0', () => {
    const { marker: M, boat: b, route: R, settings: S } = client().kelvor;
    const r = R.addNew(M.getXpos(10), M.getYpos(54), M.getXpos(10), M.getYpos(54.1));
    r.m.push(R.newWp(r, M.getXpos(10), M.getYpos(54.2)));
    const boat = new M(M.getXpos(10), M.getYpos(53.9));
    const leg = 0.1 * 6371000.8 * Math.PI / 180;
    const p = b.progress(boat, r.m[1], 5, 1000);
    assert.ok(Math.abs(p.rng - 2 * leg) < 1, 'range');
    assert.ok(Math.abs(p.dist - 3 * leg) < 1, 'range plus the remaining legs');
    assert.ok(Math.abs(p.ttg - 2 * leg / 5) < 1);
    const z = b.progress(boat, r.m[1], 0, 1000);
    assert.deepStrictEqual([z.ttg, z.ete, z.eta], [0, 0, false]);
    assert.strictEqual(S.fmtDuration(z.ttg), '---');
    assert.strictEqual(b.fmtTime(z.eta, 2), 'Never');
});

test('route steering: activation, abeam passing, destination once', () => {
    const ctx = client();
    const { marker: M, boat: b } = ctx.kelvor;
    const r = ctx.kelvor.route.addNew(0, 0, 0, -1000);
    [r.name, r.m[0].name, r.m[1].name] = ['Trip', 'A', 'B'];
    b.gps = { fix: 5, lonX: 10, latY: 54 };
    Object.assign(b.theBoat, { x: 0, y: 100 }); // south of A, heading north
    b.activateRoute(r);
    assert.deepStrictEqual([b.activeWayPoint === r.m[0], b.activeBrg], [true, 0], 'nearest waypoint first');
    b.theBoat.y = -50; // past A abeam
    b.checkNextWp();
    assert.deepStrictEqual([b.activeWayPoint === r.m[1], b.activeBrg], [true, 0]);
    b.theBoat.y = -1100;
    b.checkNextWp();
    b.checkNextWp();
    assert.strictEqual(b.activeWayPoint, false);
    assert.deepStrictEqual(logRows(ctx, 5), ['Route activated: Trip', 'Waypoint reached: B', 'Destination reached: B']);
    // a point outside any route is steered to until stopped
    const mob = new M(5, 5, 'img/icon-50-marker-sos.png');
    mob.name = 'Man over Board';
    b.setActiveWaypoint(mob);
    b.theBoat.y = 5000;
    b.checkNextWp();
    assert.strictEqual(b.activeWayPoint, mob);
    b.stopRoute();
    assert.strictEqual(b.activeWayPoint, false);
    assert.deepStrictEqual(logRows(ctx, 5).slice(3), ['Route activated: Man over Board', 'Route aborted: Man over Board']);
    b.theBoat.y = -600;
    b.activateRoute(r);
    assert.strictEqual(b.activeWayPoint, r.m[1], 'starting past the first abeam takes the next');
});

test('status handler: no position falls back, fix 0 keeps the boat, dashboards follow', () => {
    const { kelvor: { boat: b, marker: M }, els } = client();
    const base = { navtime: 0, hdg: 511, cog: 360, dpt: -100, wdir: -100, wspd: -100, sog: 0, rot: -128,
        aisuserid: 0, nmea_stat: 0, ais: [], track: [] };
    const html = (id) => els[id].innerHTML, r6 = (v) => Math.round(v * 1e6) / 1e6;
    const steps = [
        // [status, boat lon and lat after it, dashboard read, want]
        [{ fix: 999, latY: 999, lonX: 999 }, [10.1, 54.52], () => [els.i_boat_gps_fix.style.backgroundColor, html('i_boat_gps_fix')],
            ['red', 'GPS OFF']],
        [{ fix: 8, latY: 55, lonX: 11, sog: 5, cog: 90, dpt: 0 }, [11, 55],
            () => [html('i_boat_sog'), html('i_boat_cog2'), html('i_boat_dpt'), html('i_boat_brg'), els.i_boat_gps_warning.className],
            ['9.7 kt', '90°T', '---', '---', 'none']],
        // fix 0 never moves the boat, the status takes the last place; a warning once a signal was seen
        [{ fix: 0, latY: 50, lonX: 5 }, [11, 55], () => [r6(b.gps.latY), els.i_boat_gps_warning.className], [55, '']],
    ];
    for (const [st, [lon, lat], read, want] of steps) {
        b.updateDash2(Object.assign({}, base, st));
        assert.deepStrictEqual([r6(M.getLonX(b.theBoat.x)), r6(M.getLatY(b.theBoat.y))], [lon, lat], `boat after fix ${st.fix}`);
        assert.deepStrictEqual(read(), want, `dashboard after fix ${st.fix}`);
    }
});

test('rolling track: since advances, old points drop, no position is skipped', () => {
    const { kelvor } = client();
    const t = kelvor.track, b = kelvor.boat;
    kelvor.settings.k.S.i_settings_track_length = 100;
    b.loctime = 1000;
    t.clearTrack();
    assert.strictEqual(t.lastTrackTimeStamp, 900);
    t.updateTrack([[10, 54, 910], [999, 999, 920], [10.1, 54, 930]]);
    assert.deepStrictEqual([t.trackCoords.length, t.lastTrackTimeStamp], [6, 930]);
    b.loctime = 1025;
    t.updateTrack([[10.2, 54, 1020]]);
    assert.deepStrictEqual(Array.from(t.trackCoords.filter((v, i) => i % 3 === 2)), [930, 1020]);
    t.setTrackOn(false);
    t.updateTrack([[10.3, 54, 1030]]);
    assert.deepStrictEqual([t.lastTrackTimeStamp, t.trackCoords.length], [4294967295, 6], 'a track turned off takes nothing');
});
