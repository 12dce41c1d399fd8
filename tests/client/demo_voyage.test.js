/*
** The demo voyage: every line carries a valid checksum, the own ship's
** circle closes so a looped replay does not jump, and the AIS payloads
** read back to the vessels put in (a dozen of classes A and B, the aid to
** navigation, the SART test).
*/
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { voyage, ownShip, DURATION } = require('../../tools/demo_voyage');

/* Unsigned or signed field of n bits at bit offset o of an armoured payload. */
function field(payload, o, n, signed) {
    let bits = '';
    for (const ch of payload) {
        let v = ch.charCodeAt(0) - 48;
        if (v > 40) v -= 8;
        bits += v.toString(2).padStart(6, '0');
    }
    let v = parseInt(bits.substr(o, n), 2);
    if (signed && bits[o] === '1') v -= 2 ** n;
    return v;
}

const lines = voyage().split('\r\n').filter(Boolean);

test('every sentence has a valid checksum; the depth stays between 8 and 20 m', () => {
    for (const l of lines) {
        const m = /^[$!]([^*]*)\*([0-9A-F]{2})$/.exec(l);
        assert.ok(m, l);
        let c = 0;
        for (const ch of m[1]) c ^= ch.charCodeAt(0);
        assert.strictEqual(c, parseInt(m[2], 16), l);
    }
    const kinds = new Set(lines.filter((l) => l[0] === '$').map((l) => l.slice(3, 6)));
    assert.deepStrictEqual([...kinds].sort(), ['DPT', 'GGA', 'HDG', 'MWV', 'RMC']);
    assert.strictEqual(lines.filter((l) => l.indexOf('RMC') === 3).length, DURATION);
    /* the depth the host reads is the first plus the third field */
    for (const l of lines.filter((x) => x.indexOf('DPT') === 3)) {
        const f = l.split('*')[0].split(',');
        assert.ok(parseFloat(f[1]) + parseFloat(f[3]) >= 8 && parseFloat(f[1]) + parseFloat(f[3]) <= 20, l);
    }
});

test('the own ship circle closes', () => {
    const a = ownShip(0), b = ownShip(DURATION - 1), c = ownShip(DURATION);
    assert.ok(Math.abs(a.lat - c.lat) < 1e-9 && Math.abs(a.lon - c.lon) < 1e-9);
    const step = Math.hypot((a.lat - b.lat) * 111120, (a.lon - b.lon) * 111120 * Math.cos(54.52 * Math.PI / 180));
    assert.ok(Math.abs(step - 10 * 1852 / 3600) < 0.05, `one second at 10 knots: ${step} m`);
});

test('AIS payloads read back to the scene', () => {
    const byType = {};
    for (const l of lines.filter((x) => x.startsWith('!AIVDM,1,1'))) {
        const p = l.split(',')[5], type = field(p, 0, 6), mmsi = field(p, 8, 30);
        (byType[type] = byType[type] || new Set()).add(mmsi);
        if (type === 1 && mmsi === 211887760) {
            assert.strictEqual(field(p, 38, 4), 1, 'at anchor');
            assert.strictEqual(field(p, 61, 28, true) / 600000, 10.22);
            assert.strictEqual(field(p, 89, 27, true) / 600000, 54.48);
        }
    }
    const classA = [...byType[1]].filter((m) => m < 970000000);
    assert.strictEqual(classA.length + byType[18].size, 12, 'a dozen vessels');
    assert.deepStrictEqual([...byType[21]], [992111222]);
    assert.deepStrictEqual([...byType[14]], [970012345]);
    assert.strictEqual(lines.filter((l) => l.startsWith('!AIVDM,2,')).length % 2, 0, 'voyage reports in two parts');
});
