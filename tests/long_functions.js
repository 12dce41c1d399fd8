#!/usr/bin/env node
/*
** long_functions.js: lists the functions of the client's scripts that run
** over a number of lines (80 unless given), counted from the line of the
** `function` keyword to the line of its closing brace. A function that
** wraps a whole module, `(function (M) { ... })(kelvor.marker)` at the top
** level, is not counted.
**
**   node tests/long_functions.js [limit] [file...]
**
** With no files it reads app/kelvor*.js. Prints "file:line name length"
** per function and exits 1 when it found any.
*/
'use strict';

const fs = require('fs');
const path = require('path');

/* Characters after which a slash starts a regular expression, not a division. */
const BEFORE_REGEX = '(,=:[!&|?{};+-*%<>~^';

/*
** Returns [{ line, name, lines }] for every function of src (ES5 text)
** longer than limit lines. Strings, comments and regular expressions are
** skipped, so braces inside them do not count.
*/
function longFunctions(src, limit) {
    const found = [];
    const stack = [];
    let line = 1, last = '', word = '', pending = null;
    for (let i = 0; i < src.length; i++) {
        const c = src[i];
        if (c === '\n') { line++; continue; }
        if (c === '/' && src[i + 1] === '/') {
            while (i < src.length && src[i] !== '\n') i++;
            i--;
            continue;
        }
        if (c === '/' && src[i + 1] === '*') {
            const end = src.indexOf('*/', i + 2);
            const stop = end < 0 ? src.length : end + 2;
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
                pending = { line, name: nameBefore(src, i), wrapper: stack.length === 0 && last === '(' };
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
            if (f && !f.wrapper && line - f.line + 1 > limit) {
                found.push({ line: f.line, name: f.name, lines: line - f.line + 1 });
            }
        }
        last = c;
        word = '';
    }
    return found;
}

/* The name a function is known by: `function name`, `name: function` or
** `a.b.name = function`. */
function nameBefore(src, at) {
    const after = /^function\s+([A-Za-z0-9_$]+)/.exec(src.slice(at, at + 80));
    if (after) return after[1];
    const before = /([A-Za-z0-9_$.]+)\s*[:=]\s*$/.exec(src.slice(Math.max(0, at - 120), at));
    return before ? before[1] : '(anonymous)';
}

function clientScripts() {
    const dir = path.resolve(__dirname, '../app');
    return fs.readdirSync(dir).filter((f) => /^kelvor.*\.js$/.test(f)).sort().map((f) => path.join(dir, f));
}

if (require.main === module) {
    const args = process.argv.slice(2);
    const limit = args.length && /^\d+$/.test(args[0]) ? Number(args.shift()) : 80;
    const files = args.length ? args : clientScripts();
    let n = 0;
    for (const f of files) {
        for (const fn of longFunctions(fs.readFileSync(f, 'utf8'), limit)) {
            console.log(`${path.relative(process.cwd(), f)}:${fn.line} ${fn.name} ${fn.lines}`);
            n++;
        }
    }
    process.exit(n ? 1 : 0);
}

module.exports = { longFunctions, clientScripts };
