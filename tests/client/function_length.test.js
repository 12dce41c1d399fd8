/* No function of the client's scripts runs over 80 lines. A function spanning lines ends its first line
** with "{" and its "}" starts a line at the same indent; a top-level "(function (M) {" wrapper is exempt. */
'use strict';

const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

/* The functions of src over limit lines ([line, lines]), and function openings the rule cannot measure. */
function longFunctions(src, limit) {
    const lines = src.split('\n'), long = [], odd = [];
    lines.forEach((l, i) => {
        if (!/\bfunction\b\s*[\w$]*\s*\(/.test(l) || /\bfunction\b[^{]*\{.*\}/.test(l)) return;
        const m = /^( *)(.*)\bfunction\b[^{]*\{\s*$/.exec(l);
        if (!m) {
            odd.push(i + 1);
        } else if (m[1] !== '' || !m[2].startsWith('(')) {
            const end = lines.findIndex((e, j) => j > i && e.startsWith(m[1] + '}'));
            const n = (end < 0 ? lines.length : end) - i + 1;
            if (n > limit) long.push([i + 1, n]);
        }
    });
    return { long, odd };
}

test('no client function runs over 80 lines', () => {
    const dir = path.resolve(__dirname, '../../app'), problems = [];
    for (const f of fs.readdirSync(dir).filter((n) => /^kelvor.*\.js$/.test(n))) {
        const { long, odd } = longFunctions(fs.readFileSync(path.join(dir, f), 'utf8'), 80);
        for (const [line, n] of long) problems.push(`${f}:${line} runs ${n} lines`);
        for (const line of odd) problems.push(`${f}:${line} opens a function off the layout`);
    }
    assert.deepStrictEqual(problems, []);
});
