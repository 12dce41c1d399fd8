/* The user's navigation objects under node: geometry, hit tests, typed coordinates, stored forms. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, near, NAV } = require('./harness');

function client(elements) {
    const ctx = load(NAV, (m, url) => (url.indexOf('/gazetteer/') === 0 ? '[{"n":"Kiel","c":"P","x":0,"y":0}]' : 'OK'));
    const els = elements || {};
    ctx.document.getElementById = (id) => els[id] || null;
    ctx.cpApp = {
        saves: 0, setModified() { this.saves++; }, unSelect() {}, update() {}, closeDlg() {},
        showMenuBar() {}, showDashBoard() {}, helpBubbleShow() {}, sizeDialog() {}, yesno() {},
        map: { getPosWorldMerc: () => ({ x: 0, y: 0 }), getBase: () => 65536, paintByTimer() {}, setCenter() {},
            setPosWorldMerc() {} },
    };
    return ctx;
}

/* Numbers rounded to 1e-9, for exact comparison of computed values. */
const r9 = (xs) => xs.map((v) => Math.round(v * 1e9) / 1e9 + 0);

/* Ruler and route journeys show bearings east and north-east; the great circle is kelvor.geo's. */
test('bearings run from -180 to 180, the degree bearing has no cosine; a step toward the point itself stays', () => {
    const M = client().kelvor.marker;
    const at = (lon, lat) => new M(M.getXpos(lon), M.getYpos(lat));
    near(at(10, 54).brg(at(9, 54)), -90, 1e-9, 'brg');
    near(at(10, 54).geoBrg(at(11, 55)), 45, 1e-6, 'geoBrg');
    const m = new M(0, 0).move(new M(30, 40), 10), same = new M(5, 5).move(new M(5, 5), 10);
    assert.deepStrictEqual(r9([m.x, m.y, same.x, same.y]), [6, 8, 5, 5], 'a step of 10 m; toward the point itself it stays');
});

test('line measure: offset, side and place along the line', () => {
    const ld = client().kelvor.marker.linedist;
    // [a, b, p, ab, lr*ab, fb]
    const cases = [
        [[0, 0], [100, 0], [50, 10], 100, -10, 0.5],
        [[0, 0], [100, 0], [50, -10], 100, 10, 0.5],
        [[0, 0], [0, 100], [10, 0], 100, 10, 0],
        [[0, 0], [100, 0], [150, 0], 100, 0, 1.5],
        [[5, 5], [5, 5], [9, 9], 0, 0, 0],
    ];
    for (const [a, b, p, ab, off, fb] of cases) {
        const r = ld(a[0], a[1], b[0], b[1], p[0], p[1]);
        assert.deepStrictEqual(r9([r.ab, r.lr * r.ab, r.fb]), [ab, off, fb], `${a} ${b} ${p}`);
    }
});

test('leg hit test: on a leg, before the start, past the end, and misses', () => {
    const R = client().kelvor.route, tol = 10;
    const pts = [[0, 0], [100, 0], [200, 0]].map(([x, y]) => ({ x, y }));
    // [pick, expected insert index or null, legs only]
    const cases = [
        [[150, -5], 2, false],
        [[-29, 0], 0, false], // 2.9 tolerances before the start
        [[-31, 0], null, false],
        [[229, 0], 3, false], // 2.9 tolerances past the end
        [[100, 15], 2, false], // near the first leg's second point: after it
        [[100, 35], null, false],
        [[50, 15], null, false],
        [[-29, 0], null, true], // a ruler knows only its legs
        [[50, 5], 1, true],
    ];
    for (const [p, want, legs] of cases) {
        const hit = R.hitLeg(pts, { x: p[0], y: p[1] }, tol, legs);
        assert.strictEqual(hit ? hit.e : null, want, `pick ${p} legs only ${legs}`);
    }
    assert.strictEqual(R.hitLeg(pts.slice(0, 2), { x: 125, y: 0 }, tol, false).e, 2, 'past a lone leg: after its end');
});

test('hidden routes take no hits on legs or waypoints', () => {
    const { kelvor } = client();
    const R = kelvor.route;
    const r = R.addNew(0, 0, 1000, 0);
    const so = { p: { x: 500, y: 2 }, d: 10, o: false, mapScale: 0 };
    R.find(so);
    assert.strictEqual(so.o, r);
    r.visible = false;
    const so2 = { p: { x: 500, y: 2 }, d: 10, o: false, mapScale: 0 };
    R.find(so2);
    kelvor.marker.find(Object.assign(so2, { p: { x: 0, y: 0 } }));
    assert.strictEqual(so2.o, false, 'neither the leg nor its waypoints');
});

test('typed coordinates in every accepted form', () => {
    const parse = client().kelvor.marker.parseCoord;
    // [text, degrees]
    const cases = [
        ['123°59\'59.99"', 123 + 59 / 60 + 59.99 / 3600],
        ['123°59.999\'', 123 + 59.999 / 60],
        ['123.9999', 123.9999],
        ['54°31.200\'S', -54.52],
        ['10°06\'00.00"W', -10.1],
        ['10°06\'00.00"O', 10.1],
        ['54,52', 54.52],
        [' 54.52', 54.52],
        ['-3.5', -3.5],
        ['-3.5S', 3.5],
    ];
    for (const [t, want] of cases) near(parse(t), want, 1e-9, t);
    for (const bad of ['', 'abc', '12°x', '54.5 N E']) assert.ok(Number.isNaN(parse(bad)), bad);
});

test('the coordinate dialog moves the active point and marks its owner', () => {
    const els = { np_edit_coord: { children: [{}] }, i_edit_coord_y: { value: '54°30.000\'N' }, i_edit_coord_x: { value: '10.25' } };
    const ctx = client(els);
    const M = ctx.kelvor.marker;
    const m = M.attach(new M(0, 0, 'img/icon-50-marker.png'));
    M.activeMarker = m;
    M.modified = false;
    ctx.kelvor.route.modified = false;
    M.editman(null, 2);
    assert.ok(M.editmansave());
    assert.deepStrictEqual(r9([M.getLatY(m.y), M.getLonX(m.x)]), [54.5, 10.25]);
    assert.deepStrictEqual([ctx.kelvor.route.modified, M.modified], [true, false], 'owner 2 is the route');
    els.i_edit_coord_y.value = 'north';
    const y = m.y;
    M.editmansave();
    assert.strictEqual(m.y, y, 'a text that does not parse leaves that axis');
});

test('XTE band: perpendicular to the leg, the limit over the latitude cosine', () => {
    const { marker: M, route: R } = client().kelvor;
    const a = new M(M.getXpos(10), M.getYpos(60));
    // 50 m at 60 degrees are 100 world metres, across an east and a north leg
    for (const [lon, lat, want] of [[11, 60, [0, 100]], [10, 61, [100, 0]]]) {
        const d = R.xteOffset(new M(M.getXpos(lon), M.getYpos(lat)), a, 50);
        assert.deepStrictEqual([d.x, d.y].map((v) => Math.round(Math.abs(v) * 1e6) / 1e6), want, `leg to ${lon},${lat}`);
    }
});

test('stored forms: key order, icons, and the XTE name on the second save', () => {
    const { kelvor } = client();
    const R = kelvor.route, M = kelvor.marker;
    R.load(JSON.stringify([{ name: 'A', m: [{ name: 'p', x: 1.4, y: 2.6 }, { name: 'q', x: 10, y: 20, xte: 80, noauto: true, note: 'n' }],
        color: '#ff0000', note: '', noauto: true, visible: false }]));
    const r = kelvor.routeList[0];
    assert.strictEqual(r.locked, true, 'everything loads locked');
    const first = JSON.stringify(kelvor.routeList);
    assert.strictEqual(first, '[{"name":"A","m":[{"name":"p","x":1,"y":3},{"name":"q","x":10,"y":20,"xte":80,' +
        '"noauto":true,"note":"n"}],"color":"#ff0000","note":"","noauto":true,"visible":false}]');
    assert.ok(JSON.stringify(kelvor.routeList).indexOf('"name":"XTE"') > 0, 'the second write stores "XTE"');

    const buoy = '[{"name":"Buoy","x":5,"y":6,"icon":"/app/img/icon-50-marker-sos.png"}]';
    M.load(buoy);
    M.load('');
    assert.strictEqual(JSON.stringify(M.userMarkers()), buoy, 'an empty list loads nothing; waypoints are not markers');

    const ruler = '[{"name":"R","note":"","m":[{"name":"a","x":0,"y":0},{"name":"b","x":3,"y":4,"noauto":true,' +
        '"note":"pier"}],"color":"#ff00ff","noauto":false}]';
    kelvor.ruler.load('[{"name":"bad","m":[null,{"x":1,"y":1}]},' + ruler.slice(1));
    assert.strictEqual(JSON.stringify(kelvor.rulerList), ruler,
        'ruler points keep noauto and note; a null point drops its ruler');
});

test('a moved point is named by the gazetteer unless the user named it; a locked marker does not move', () => {
    const ctx = client();
    const M = ctx.kelvor.marker;
    const m = M.attach(new M(0, 0, 'img/icon-50-marker.png'));
    m.locked = false;
    m.onMove(null, 10, 10);
    m.onUp();
    assert.strictEqual(m.name, 'Kiel');
    M.activeMarker = m;
    M.rename('Home');
    m.onMove(null, 5, 5);
    m.onUp();
    assert.strictEqual(m.name, 'Home');
    m.locked = true;
    m.onMove(null, 5, 5);
    assert.deepStrictEqual([m.x, m.y], [15, 15]);

    ctx.kelvor.ruler.load('[{"name":"R","m":[{"name":"a","x":0,"y":0},{"name":"b","x":3,"y":4,"noauto":true}]}]');
    const r = ctx.kelvor.rulerList[0];
    r.locked = false;
    for (const p of r.m) { p.onMove(null, 1, 1); p.onUp(); }
    assert.strictEqual(r.name, 'Kiel --> b', 'a ruler names itself after its ends, the user\'s name kept');
});

test('reverse keeps each limit on its waypoint; a two-point route keeps its waypoints', () => {
    const { route: R, marker: M } = client().kelvor;
    const r = R.addNew(0, 0, 100, 0);
    r.locked = false;
    r.m[1].xte = 70;
    r.select();
    R.activeRoute = r;
    R.reverse();
    assert.strictEqual(r.m[0].xte, 70);
    M.activeMarker = r.m[1];
    R.delWaypoint(true);
    assert.strictEqual(r.m.length, 2, 'the last two waypoints stay');
});
