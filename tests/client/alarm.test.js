/* Alarms: the boat's side of a line or circle, the armed alarm's cycle, stored form, bar and notes. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

function client() {
    const ctx = load(CORE.concat(['kelvor.route.js', 'kelvor.alarm.js']));
    ctx.confirms = [];
    ctx.cpApp = {
        confirm: (t, a) => ctx.confirms.push([t, a]),
        update() {}, showMenuBar() {}, showDashBoard() {}, unSelect() {}, setModified() {},
    };
    let n = 0;
    ctx.setInterval = () => ++n;
    return ctx;
}

const alarm = (ctx, aType, pts) =>
    Object.assign(new ctx.kelvor.alarm('t'), { aType, m: pts.map(([x, y]) => ({ x, y })) });

test('side of a point against line and circle alarms', () => {
    const ctx = client(), A = ctx.kelvor.alarm;
    const circle = alarm(ctx, 1, [[0, 0], [100, 0]]);
    const line = alarm(ctx, 0, [[0, 0], [100, 0]]);
    const bend = alarm(ctx, 0, [[0, 0], [100, 0], [100, 100]]);
    const cases = [
        // [name, alarm, point, side]
        ['on the rim counts as outside', circle, [100, 0], -1],
        ['north of an eastward line (y grows south)', line, [50, -10], 1],
        ['south of it', line, [50, 10], -1],
        ['beyond the end: not tested', line, [150, 10], 0],
        ['abeam of the very end point: not tested', line, [0, 10], 0],
        ['inside the bend, nearer the second leg', bend, [90, 50], -1],
        ['outside the bend, abeam of the second leg only', bend, [110, 50], 1],
    ];
    for (const [name, al, [x, y], want] of cases) assert.strictEqual(A.sideOf(al, { x, y }), want, name);
});

/* Inside a circle, firing on leaving and the acknowledge are the circle alarm journey's. */
test('an armed alarm repeats until answered, then guards the way back; a line passed round its end stays quiet', () => {
    const ctx = client(), A = ctx.kelvor.alarm;
    const al = alarm(ctx, 1, [[0, 0], [100, 0]]);
    A.activeAlarm = al;
    A.on();
    for (const [x, y] of [[10, 10], [200, 0], [210, 0]]) A.monitor({ x, y });
    assert.deepStrictEqual([ctx.confirms.length, !!A.klaxontimer], [2, true], 'repeats until answered');
    A.off();
    A.monitor({ x: 210, y: 0 });
    A.monitor({ x: 5, y: 0 });
    assert.strictEqual(ctx.confirms.length, 3, 'relearnt outside, it fires on the way back in');
    A.disable();
    assert.strictEqual(A.running, false);

    const line = alarm(ctx, 0, [[0, 0], [100, 0]]);
    A.activeAlarm = line;
    A.on();
    for (const [x, y] of [[150, 10], [150, -10], [160, 0]]) A.monitor({ x, y });
    assert.deepStrictEqual([line.side, ctx.confirms.length], [0, 3]);
});

test('stored form keeps key order and loads locked and disarmed', () => {
    const ctx = client(), A = ctx.kelvor.alarm;
    A.load('[{"name":"Anchor","m":[{"name":"AP 1","x":10.4,"y":20},{"name":"AP 2","x":60,"y":20}],' +
        '"color":"#0000ff","note":"","noauto":false,"aType":1},{"name":"bad","m":[{"x":1,"y":1}]},7]');
    assert.strictEqual(ctx.kelvor.alarmList.length, 1);
    const al = ctx.kelvor.alarmList[0];
    assert.deepStrictEqual([al.locked, A.running, al.m[0].type], [true, false, 7]);
    assert.strictEqual(JSON.stringify(ctx.kelvor.alarmList),
        '[{"name":"Anchor","m":[{"name":"AP 1","x":10,"y":20},{"name":"AP 2","x":60,"y":20}],' +
        '"color":"#0000ff","note":"","noauto":false,"aType":1}]');
    A.load('not json');
    assert.strictEqual(ctx.kelvor.alarmList.length, 0);
});

/* Picked through the route's leg test, past its ends too, as a route is. */
test('a line alarm is picked past its end', () => {
    const ctx = client(), A = ctx.kelvor.alarm;
    ctx.kelvor.alarmList = [alarm(ctx, 0, [[0, 0], [100, 0], [200, 0]])];
    const so = { p: { x: 225, y: 2 }, d: 10, o: null };
    A.find(so);
    assert.deepStrictEqual([so.o === ctx.kelvor.alarmList[0], so.o.e], [true, 3]);
});

test('alarm bar, notes and the armed and selected style', () => {
    const ctx = client(), A = ctx.kelvor.alarm;
    const els = { cp_alarm_dash: { innerHTML: '' }, np_nob_comment: { children: [{ innerHTML: '' }] },
        i_nob_comment: { value: '' } };
    ctx.document.getElementById = (id) => els[id] || null;
    Object.assign(ctx.cpApp, { sizeDialog: (f) => { ctx.opened = f; }, closeDlg() {} });
    const al = alarm(ctx, 0, [[0, 0], [0, 18520]]);
    ctx.kelvor.alarmList = [al];
    A.activeAlarm = al;
    ctx.kelvor.settings.k.V.i_settings_boat_speed = 5 * 1852 / 3600;
    A.showactiveAlarm();
    assert.match(els.cp_alarm_dash.innerHTML, /id="i_alarm_duration">[^<-]+</, 'the boat speed gives a duration');

    ctx.window.prompt = () => { throw new Error('prompt used'); };
    A.note();
    assert.strictEqual(ctx.opened, els.np_nob_comment);
    els.i_nob_comment.value = 'Sandbank <keep off>';
    ctx.kelvor.alarm.noteSave(false);
    A.activePoint = al.m[1];
    A.noteWaypoint();
    els.i_nob_comment.value = 'turn';
    A.noteSave(true);
    const stored = JSON.parse(JSON.stringify(ctx.kelvor.alarmList))[0];
    assert.deepStrictEqual([stored.note, stored.m[1].note], ['Sandbank <keep off>', 'turn']);

    const bands = (running) => {
        A.running = running;
        const seen = [];
        const c2d = new Proxy({ scm: 1, cxzero: 0, cyzero: 0 }, {
            get: (o, k) => (k in o ? o[k] : () => {}),
            set: (o, k, v) => { if (k === 'strokeStyle') seen.push(v); o[k] = v; return true; },
        });
        A.render(c2d);
        return ['rgba(255,63,0,0.3)', 'rgba(0,128,255,0.3)'].map((c) => seen.includes(c));
    };
    assert.deepStrictEqual(bands(false), [false, true], 'selected');
    assert.deepStrictEqual(bands(al), [true, true], 'armed and selected show both');
});
