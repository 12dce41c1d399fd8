/*
** app_i18n.js -- makes the German and French copies of the client's page and
** scripts from the one English source.
**
** A translation table (packs/i18n/<lang>.tsv) maps an English text, exactly
** as it stands inside a string literal of a script or as a text of the page,
** to its translation. Only these places are translated:
**   - string literals of scripts ('...', "..." and `...` without ${}),
**     never comments, regular expressions, names or numbers;
**   - in the page: the text between tags, the attributes title, placeholder,
**     value, alt, label and aria-label, and string literals of inline scripts.
** A text matches when the whole literal (or the whole text between two tags)
** equals the English entry, or equals it once leading and trailing white
** space is set aside; that white space is kept around the translation.
** Everything else is copied byte for byte, so the copies differ from the
** English source only where a table says so.
**
** Texts that look like messages and have no entry are collected in a report;
** they stay English in the copy. A missing entry never fails the build.
*/
'use strict';

const fs = require('fs');

/* Undoes the backslash escapes of a table field: \t, \n, \\. */
function unescapeField(s) {
    return s.replace(/\\([tn\\])/g, (m, c) => (c === 't' ? '\t' : c === 'n' ? '\n' : '\\'));
}

/*
** Parses the text of a translation table: one entry a line, the English text,
** a tab, the translation; lines that are empty or begin with "#" are skipped.
** Returns { table: Map, errors: [line descriptions] }. A line without a tab
** or with an empty side is an error; a repeated English text keeps the first.
*/
function parseTable(text) {
    const table = new Map();
    const errors = [];
    text.split('\n').forEach((raw, i) => {
        const line = raw.replace(/\r$/, '');
        if (line === '' || line.startsWith('#')) return;
        const tab = line.indexOf('\t');
        if (tab <= 0 || tab === line.length - 1 || line.indexOf('\t', tab + 1) >= 0) {
            errors.push(`line ${i + 1}: expected "English<TAB>translation"`);
            return;
        }
        const en = unescapeField(line.slice(0, tab));
        if (table.has(en)) {
            errors.push(`line ${i + 1}: "${en}" has a second entry`);
            return;
        }
        table.set(en, unescapeField(line.slice(tab + 1)));
    });
    return { table, errors };
}

function loadTable(path) {
    return parseTable(fs.readFileSync(path, 'utf8'));
}

/* Decodes the body of a JS string literal (the text between its quotes). */
function decodeJsString(body) {
    return body.replace(/\\(u\{[0-9a-fA-F]+\}|u[0-9a-fA-F]{4}|x[0-9a-fA-F]{2}|\r\n|[\s\S])/g, (m, e) => {
        if (e[0] === 'u' && e[1] === '{') return String.fromCodePoint(parseInt(e.slice(2, -1), 16));
        if (e[0] === 'u' && e.length === 5) return String.fromCharCode(parseInt(e.slice(1), 16));
        if (e[0] === 'x' && e.length === 3) return String.fromCharCode(parseInt(e.slice(1), 16));
        switch (e) {
            case 'n': return '\n';
            case 't': return '\t';
            case 'r': return '\r';
            case 'b': return '\b';
            case 'f': return '\f';
            case 'v': return '\v';
            case '0': return '\0';
            case '\n': case '\r\n': return ''; /* line continuation */
            default: return e;
        }
    });
}

/* Encodes a text as the body of a literal delimited by quote. */
function encodeJsString(text, quote) {
    let out = '';
    for (const ch of text) {
        if (ch === '\\') out += '\\\\';
        else if (ch === quote) out += '\\' + quote;
        else if (ch === '\n') out += '\\n';
        else if (ch === '\r') out += '\\r';
        else if (ch === '\t') out += '\\t';
        else if (quote === '`' && ch === '$') out += '\\$';
        else out += ch;
    }
    return out;
}

/*
** Looks a text up, first whole, then with its surrounding white space set
** aside. Returns the translated text with that white space put back, or null.
*/
function lookup(text, table) {
    if (table.has(text)) return table.get(text);
    const m = /^(\s*)([\s\S]*?)(\s*)$/.exec(text);
    if (m[2] !== '' && m[2] !== text && table.has(m[2])) return m[1] + table.get(m[2]) + m[3];
    return null;
}

/*
** Tells whether a literal reads like a message for the user rather than a
** name, a selector, a path, markup or SQL. Used only for the report of
** untranslated texts, so it may err on either side.
*/
function looksLikeMessage(s) {
    const t = s.trim();
    if (!/[A-Za-z\u00c0-\u024f]{2}/.test(t)) return false;
    if (/^(SELECT|INSERT|UPDATE|DELETE|REPLACE|CREATE|DROP|BEGIN|COMMIT|ROLLBACK)\b/i.test(t)) return false;
    /* pieces of SQL built by concatenation: upper-case clauses, or a text
    ** that opens with a closing bracket */
    if (/^(AND|OR|WHERE|FROM|LIMIT)\b|\b(ORDER BY|GROUP BY|FROM|WHERE)\b/.test(t) || /^\)/.test(t)) return false;
    if (/^(\/|\.\/|#|\.|https?:|data:|img\/|lib\/)/.test(t)) return false;
    if (/\.(png|gif|jpe?g|mp3|wav|js|css|html|txt|marepack)\b/.test(t)) return false;
    if (/[{};=]|=>|\$\{/.test(t)) return false;
    if (/^\d+(\.\d+)?(px|pt|em|rem|%)\b/.test(t)) return false; /* a CSS font or size */
    if (/^<[^>]*>$/.test(t) || /^<\/?[a-z][^>]*>?$/i.test(t)) return false;
    if (/\s/.test(t)) return /[A-Za-z]{2,}\s+[A-Za-z]/.test(t.replace(/<[^>]*>/g, ' '));
    /* a single word: a capitalised word is a label ("Today"), anything
    ** else (ids, css values, event names, camelCase) is code */
    return /^[A-Z][a-z]+[.:!?]?$/.test(t);
}

/* Words after which a "/" begins a regular expression, not a division. */
const REGEX_AFTER_WORD = new Set(['return', 'typeof', 'instanceof', 'in', 'of', 'new', 'delete', 'void',
    'throw', 'case', 'do', 'else', 'yield', 'await']);

/*
** Walks a script and hands every string literal to onString(body, quote),
** whose return value (a new body, or null to keep it) replaces the body.
** Template literals with ${...} are copied as they are. Returns the text.
*/
function mapJsStrings(src, onString) {
    let out = '';
    let i = 0;
    const n = src.length;
    let lastSignificant = ''; /* last token kind: 'value' or 'op' */
    let lastWord = '';

    while (i < n) {
        const c = src[i];
        const d = src[i + 1];
        if (c === '/' && d === '/') {
            const e = src.indexOf('\n', i);
            const end = e < 0 ? n : e;
            out += src.slice(i, end);
            i = end;
            continue;
        }
        if (c === '/' && d === '*') {
            const e = src.indexOf('*/', i + 2);
            const end = e < 0 ? n : e + 2;
            out += src.slice(i, end);
            i = end;
            continue;
        }
        if (c === '"' || c === "'" || c === '`') {
            let j = i + 1;
            let hasSubst = false;
            while (j < n && src[j] !== c) {
                if (src[j] === '\\') j++;
                else if (c === '`' && src[j] === '$' && src[j + 1] === '{') {
                    hasSubst = true;
                    j = skipTemplateExpr(src, j + 2);
                    continue;
                } else if (c !== '`' && src[j] === '\n') break; /* unterminated: stop at the line end */
                j++;
            }
            const body = src.slice(i + 1, Math.min(j, n));
            const closed = j < n && src[j] === c;
            const repl = !hasSubst && closed ? onString(body, c) : null;
            out += c + (repl === null || repl === undefined ? body : repl) + (closed ? c : '');
            i = closed ? j + 1 : j;
            lastSignificant = 'value';
            lastWord = '';
            continue;
        }
        if (c === '/') {
            const regexAllowed = lastSignificant !== 'value' || REGEX_AFTER_WORD.has(lastWord);
            if (regexAllowed) {
                const end = skipRegex(src, i);
                out += src.slice(i, end);
                i = end;
                lastSignificant = 'value';
                lastWord = '';
                continue;
            }
            out += c;
            i++;
            lastSignificant = 'op';
            lastWord = '';
            continue;
        }
        if (/[A-Za-z_$0-9\u0080-\uffff]/.test(c)) {
            let j = i + 1;
            while (j < n && /[A-Za-z_$0-9\u0080-\uffff.]/.test(src[j]) && !(src[j] === '.' && !/[0-9]/.test(c))) j++;
            const word = src.slice(i, j);
            out += word;
            i = j;
            lastSignificant = 'value';
            lastWord = word;
            continue;
        }
        if (/\s/.test(c)) {
            out += c;
            i++;
            continue;
        }
        out += c;
        i++;
        /* a closing bracket ends a value: "a[1] / 2", "(x) / 2" divide */
        lastSignificant = c === ')' || c === ']' ? 'value' : 'op';
        lastWord = '';
    }
    return out;
}

/* Returns the index just past the "}" that closes a ${ expression. */
function skipTemplateExpr(src, i) {
    let depth = 1;
    while (i < src.length && depth > 0) {
        const c = src[i];
        if (c === '{') depth++;
        else if (c === '}') depth--;
        else if (c === '"' || c === "'" || c === '`') {
            let j = i + 1;
            while (j < src.length && src[j] !== c) j += src[j] === '\\' ? 2 : 1;
            i = j;
        }
        i++;
    }
    return i;
}

/* Returns the index just past a regular expression literal and its flags. */
function skipRegex(src, i) {
    let j = i + 1;
    let inClass = false;
    while (j < src.length && src[j] !== '\n') {
        const c = src[j];
        if (c === '\\') j++;
        else if (c === '[') inClass = true;
        else if (c === ']') inClass = false;
        else if (c === '/' && !inClass) break;
        j++;
    }
    j++;
    while (j < src.length && /[a-z]/i.test(src[j])) j++;
    return j;
}

/*
** Translates the string literals of a script. report(text) is called for
** each literal that looks like a message and has no entry. Returns the text.
*/
function translateJs(src, table, report) {
    return mapJsStrings(src, (body, quote) => {
        const text = decodeJsString(body);
        const tr = lookup(text, table);
        if (tr !== null) return encodeJsString(tr, quote);
        if (report && looksLikeMessage(text)) report(text.trim());
        return null;
    });
}

const HTML_TEXT_ATTRS = new Set(['title', 'placeholder', 'value', 'alt', 'label', 'aria-label']);

/* Decodes the character references a page's text may hold. */
function decodeEntities(s) {
    const named = { amp: '&', lt: '<', gt: '>', quot: '"', apos: "'", nbsp: '\u00a0' };
    return s.replace(/&(#x[0-9a-fA-F]+|#[0-9]+|[a-z]+);/g, (m, e) => {
        if (e[0] === '#') return String.fromCodePoint(e[1] === 'x' ? parseInt(e.slice(2), 16) : parseInt(e.slice(1), 10));
        return Object.prototype.hasOwnProperty.call(named, e) ? named[e] : m;
    });
}

/*
** Looks up a text of the page: first as written, so that an entry may hold
** markup or references; then as the plain text it stands for, in which case
** the translation is escaped back for the page.
*/
function lookupHtml(raw, table) {
    const tr = lookup(raw, table);
    if (tr !== null) return tr;
    const plain = decodeEntities(raw);
    if (plain === raw) return null;
    const tp = lookup(plain, table);
    return tp === null ? null : tp.replace(/&/g, '&amp;').replace(/</g, '&lt;').replace(/>/g, '&gt;');
}

/* Translates the text attributes of one start tag, keeping everything else. */
function translateTag(tag, table, report) {
    return tag.replace(/(\s)([A-Za-z_:][-A-Za-z0-9_:.]*)(\s*=\s*)("([^"]*)"|'([^']*)')/g,
        (m, sp, name, eq, quoted, dq, sq) => {
            if (!HTML_TEXT_ATTRS.has(name.toLowerCase())) return m;
            const q = quoted[0];
            const val = dq !== undefined ? dq : sq;
            const tr = lookupHtml(val, table);
            if (tr !== null) return sp + name + eq + q + tr.split(q).join(q === '"' ? '&quot;' : '&#39;') + q;
            if (report && looksLikeMessage(decodeEntities(val))) report(val.trim());
            return m;
        });
}

/*
** Translates the page: texts between tags, text attributes, and the string
** literals of inline scripts. Comments and style blocks stay as they are.
*/
function translateHtml(src, table, report) {
    let out = '';
    let i = 0;
    const n = src.length;
    while (i < n) {
        if (src.startsWith('<!--', i)) {
            const e = src.indexOf('-->', i + 4);
            const end = e < 0 ? n : e + 3;
            out += src.slice(i, end);
            i = end;
            continue;
        }
        if (src[i] === '<') {
            const e = src.indexOf('>', i);
            const end = e < 0 ? n : e + 1;
            const tag = src.slice(i, end);
            out += /^<[A-Za-z]/.test(tag) ? translateTag(tag, table, report) : tag;
            i = end;
            const m = /^<(script|style)\b/i.exec(tag);
            if (m) {
                const close = src.toLowerCase().indexOf('</' + m[1].toLowerCase(), i);
                const bodyEnd = close < 0 ? n : close;
                const body = src.slice(i, bodyEnd);
                out += m[1].toLowerCase() === 'script' ? translateJs(body, table, report) : body;
                i = bodyEnd;
            }
            continue;
        }
        let e = src.indexOf('<', i);
        if (e < 0) e = n;
        const text = src.slice(i, e);
        const tr = text.trim() === '' ? null : lookupHtml(text, table);
        if (tr !== null) out += tr;
        else {
            out += text;
            if (report && /[A-Za-z]{2}/.test(text)) report(text.trim());
        }
        i = e;
    }
    return out;
}

module.exports = {
    parseTable, loadTable, translateJs, translateHtml, looksLikeMessage,
    decodeJsString, encodeJsString, mapJsStrings,
};
