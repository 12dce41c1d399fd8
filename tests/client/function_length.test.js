/*
** No function of the client's scripts runs over 80 lines, counted from the
** `function` keyword to its closing brace; a longer one reads as its named
** steps instead. A top-level wrapper `(function (M) { ... })(x)` is not counted.
*/
'use strict';

const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

/* Characters after which a slash starts a regular expression, not a division. */
const BEFORE_REGEX = '(,=:[!&|?{};+-*%<>~^';

/* The name a function is known by: `function name`, `name: function` or `a.b.name = function`. */
function nameBefore(src, at) {
    const after = /^function\s+([A-Za-z0-9_$]+)/.exec(src.slice(at, at + 80));
    if (after) return after[1];
    const before = /([A-Za-z0-9_$.]+)\s*[:=]\s*$/.exec(src.slice(Math.max(0, at - 120), at));
    return before ? before[1] : '(anonymous)';
}

/* Returns [{ line, name, lines }] for every function of src (ES5 text) longer
** than limit lines. Braces in strings, comments and regular expressions do not count. */
function longFunctions(src, limit) {
    const found = [], stack = [];
    let line = 1, last = '', word = '', pending = null;
    for (let i = 0; i < src.length; i++) {
        const c = src[i];
        if (c === '\n') { line++; continue; }
        if (c === '/' && (src[i + 1] === '/' || src[i + 1] === '*')) {
            const lineComment = src[i + 1] === '/', end = src.indexOf(lineComment ? '\n' : '*/', i + 2);
            const stop = end < 0 ? src.length : lineComment ? end : end + 2;
            for (let j = i; j < stop; j++) if (src[j] === '\n') line++;
            i = stop - 1;
            continue;
        }
        if (c === '"' || c === "'" || c === '`' ||
            (c === '/' && (BEFORE_REGEX.indexOf(last) >= 0 || last === '' || word === 'return' || word === 'typeof'))) {
            let inClass = false;
            for (i++; i < src.length; i++) {
                const d = src[i];
                if (d === '\\') { i++; continue; }
                if (d === '\n') line++;
                if (c === '/' && d === '[') inClass = true;
                else if (c === '/' && d === ']') inClass = false;
                else if (d === c && !inClass) break;
            }
            last = c === '/' ? ')' : '"';
            word = '';
            continue;
        }
        if (/\s/.test(c)) continue;
        if (/[A-Za-z0-9_$]/.test(c)) {
            let j = i;
            while (j < src.length && /[A-Za-z0-9_$]/.test(src[j])) j++;
            word = src.slice(i, j);
            if (word === 'function') {
                pending = { line, name: nameBefore(src, i), wrapper: !stack.length && last === '(' };
            }
            last = 'a';
            i = j - 1;
            continue;
        }
        if (c === '{') {
            stack.push(pending);
            pending = null;
        } else if (c === '}') {
            const f = stack.pop();
            const lines = f ? line - f.line + 1 : 0;
            if (f && !f.wrapper && lines > limit) found.push({ line: f.line, name: f.name, lines });
        }
        last = c;
        word = '';
    }
    return found;
}

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
    const dir = path.resolve(__dirname, '../../app'), long = [];
    for (const f of fs.readdirSync(dir).filter((n) => /^kelvor.*\.js$/.test(n))) {
        for (const fn of longFunctions(fs.readFileSync(path.join(dir, f), 'utf8'), 80)) {
            long.push(`${f}:${fn.line} ${fn.name} (${fn.lines} lines)`);
        }
    }
    assert.deepStrictEqual(long, []);
});
