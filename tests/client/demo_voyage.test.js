/* The demo voyage's depth and circle; that its sentences reach the screen is the journeys'. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { voyage, ownShip, DURATION } = require('../../tools/demo_voyage');

test('the depth the host reads, the first plus the third field, stays between 8 and 20 m', () => {
    const dpt = voyage().split('\r\n').filter((l) => l.indexOf('DPT') === 3);
    assert.strictEqual(dpt.length, DURATION);
    for (const l of dpt) {
        const f = l.split('*')[0].split(',');
        const d = parseFloat(f[1]) + parseFloat(f[3]);
        assert.ok(d >= 8 && d <= 20, l);
    }
});

test('the own ship circle closes', () => {
    const a = ownShip(0), b = ownShip(DURATION - 1), c = ownShip(DURATION);
    assert.ok(Math.abs(a.lat - c.lat) < 1e-9 && Math.abs(a.lon - c.lon) < 1e-9);
    const step = Math.hypot((a.lat - b.lat) * 111120, (a.lon - b.lon) * 111120 * Math.cos(54.52 * Math.PI / 180));
    assert.ok(Math.abs(step - 10 * 1852 / 3600) < 0.05, `one second at 10 knots: ${step} m`);
});
