/*
** Alarms: which side of a line or circle the boat is on, and the armed
** alarm's learn, trigger and acknowledge cycle.
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

function client() {
    const ctx = load(CORE.concat(['kelvor.alarm.js']));
    ctx.confirms = [];
    ctx.cpApp = {
        confirm: (t, a) => ctx.confirms.push([t, a]),
        update() {}, showMenuBar() {}, showDashBoard() {}, unSelect() {}, setModified() {},
    };
    let n = 0;
    ctx.setInterval = () => ++n;
    return ctx;
}

function alarm(ctx, type, pts) {
    const al = new ctx.kelvor.alarm('t');
    al.aType = type;
    al.m = pts.map(([x, y]) => ({ x, y }));
    return al;
}

test('side of a point against line and circle alarms', () => {
    const ctx = client();
    const A = ctx.kelvor.alarm;
    const circle = alarm(ctx, 1, [[0, 0], [100, 0]]);
    const line = alarm(ctx, 0, [[0, 0], [100, 0]]);
    const bend = alarm(ctx, 0, [[0, 0], [100, 0], [100, 100]]);
    const cases = [
        // [name, alarm, point, side]
        ['inside the circle', circle, [50, 0], 1],
        ['on the rim counts as outside', circle, [100, 0], -1],
        ['outside the circle', circle, [0, 150], -1],
        ['north of an eastward line (y grows south)', line, [50, -10], 1],
        ['south of it', line, [50, 10], -1],
        ['beyond the end: not tested', line, [150, 10], 0],
        ['abeam of the very end point: not tested', line, [0, 10], 0],
        ['inside the bend, nearer the second leg', bend, [90, 50], -1],
        ['outside the bend, abeam of the second leg only', bend, [110, 50], 1],
    ];
    for (const [name, al, [x, y], want] of cases) assert.strictEqual(A.sideOf(al, { x, y }), want, name);
});

test('armed alarm learns, fires on crossing, relearns on acknowledge', () => {
    const ctx = client();
    const A = ctx.kelvor.alarm;
    const al = alarm(ctx, 1, [[0, 0], [100, 0]]);
    A.activeAlarm = al;
    A.on();
    const steps = [
        // [boat, confirms so far, klaxon running, stored side]
        [[10, 10], 0, false, 1],     // learns: inside
        [[20, 10], 0, false, 1],
        [[200, 0], 1, true, 1],      // left the circle
        [[210, 0], 2, true, 1],      // repeats until answered
    ];
    for (const [[x, y], n, kl, side] of steps) {
        A.monitor({ x, y });
        assert.deepStrictEqual([ctx.confirms.length, !!A.klaxontimer, al.side], [n, kl, side], `boat at ${x},${y}`);
    }
    assert.strictEqual(ctx.confirms[0][1], 'kelvor.alarm.off()');
    A.off();
    assert.deepStrictEqual([!!A.klaxontimer, A.running === al], [false, true], 'acknowledge keeps the alarm armed');
    A.monitor({ x: 210, y: 0 });
    assert.strictEqual(al.side, -1, 'relearnt outside');
    A.monitor({ x: 5, y: 0 });
    assert.strictEqual(ctx.confirms.length, 3, 'now guards the way back');
    A.disable();
    assert.strictEqual(A.running, false);

    /* a line passed around its end never learns nor fires */
    const line = alarm(ctx, 0, [[0, 0], [100, 0]]);
    A.activeAlarm = line;
    A.on();
    for (const [x, y] of [[150, 10], [150, -10], [160, 0]]) A.monitor({ x, y });
    assert.strictEqual(line.side, 0);
    assert.strictEqual(ctx.confirms.length, 3);
});

test('stored form keeps key order and loads locked and disarmed', () => {
    const ctx = client();
    const A = ctx.kelvor.alarm;
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
