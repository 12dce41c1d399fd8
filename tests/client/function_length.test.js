/*
** No function of the client's scripts runs over 80 lines; a longer one
** reads as its named steps instead.
*/
'use strict';

const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { longFunctions, clientScripts } = require('../long_functions.js');

test('the counter skips braces in text and counts nested functions on their own', () => {
    const body = (n) => Array(n).fill('    x++;').join('\n');
    // [source, limit, expected [name, lines] list]
    const cases = [
        [`a.f = function () {\n${body(3)}\n};`, 4, [['a.f', 5]]],
        [`a.f = function () {\n${body(3)}\n};`, 5, []],
        [`var s = "{{{", r = /[}{]/g, t = '}';\n// }\n/* { */\nfunction g() {\n${body(2)}\n}`, 3, [['g', 4]]],
        [`o = { f: function () {\n var h = function () {\n${body(4)}\n };\n} };`, 5, [['h', 6], ['f', 8]]],
        [`(function (M) {\n${body(10)}\n})(kelvor.marker);`, 3, []],
        [`x = a / b; y = c / d; function k() {\n${body(2)}\n}`, 3, [['k', 4]]],
    ];
    for (const [src, limit, want] of cases) {
        assert.deepStrictEqual(longFunctions(src, limit).map((f) => [f.name, f.lines]), want, src);
    }
});

test('no client function runs over 80 lines', () => {
    const long = [];
    for (const f of clientScripts()) {
        for (const fn of longFunctions(fs.readFileSync(f, 'utf8'), 80)) {
            long.push(`${path.basename(f)}:${fn.line} ${fn.name} (${fn.lines} lines)`);
        }
    }
    assert.deepStrictEqual(long, []);
});
