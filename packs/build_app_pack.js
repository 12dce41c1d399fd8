#!/usr/bin/env node
/*
** build_app_pack.js -- builds the application pack A000001.marepack from
** the client's files under app/.
**
** Usage:
**   node packs/build_app_pack.js --app <app dir> --modules <node_modules>
**        --i18n <table dir> --work <scratch dir> --writer <app_pack_write>
**        --version <text> --out <A000001.marepack>
**
** Rows (key, type code t, language l), the key always the whole URL path:
**   app/marepack.html        /app/marepack.html   1   en, de, fr
**   app/<name>.js            /app/<name>.js       3   en, de, fr
**   app/lib/*.js             /app/lib/...         3   **
**   npm scripts (LIBRARIES)  /app/<name>, /app/lib/<name>  3  en/de/fr or **
**   app/<lang>/*.txt         /app/<lang>/...      4   **
**   app/img/**.svg           /app/img/....png     6   **  (and /app/img/bw/
**                                                        ....png, in grey,
**                                                        for the top level)
**   app/img/**.<ext>.sox     /app/img/....<ext>   14 (mp3) or 0 (wav)
**   other files of app/img   /app/img/...         by extension
**   drawn here               /app/img/m32/mNN.png (28 moon phases),
**                            /app/img/ajax_loader_blue_256.gif
**   version                  version              0   **
** The German and French rows of the page and scripts are made from the
** English source with the tables <i18n>/de.tsv and fr.tsv (app_i18n.js).
** Texts without an entry are reported, and listed in
** <work>/untranslated.<lang>.tsv ready to be filled in; they never fail the
** build. Keys are lower case except the rows in KEEP_CASE.
**
** The rows go to a manifest in key order, and app_pack_write stores them, so
** the same sources give the same pack byte for byte.
** Exit status: 0 built, 1 failed (a missing tool, npm package or source).
*/
'use strict';

const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const i18n = require('./app_i18n');
const assets = require('./app_assets');

const LANGS = ['en', 'de', 'fr'];

/* Third-party scripts, copied as they are from the pinned npm packages,
** under the keys the page loads them by. Hammer.js, Hammer-time and the
** matrix script stand beside the client's modules in three language rows
** (identical bytes); the rest are common rows under lib/. */
const LIBRARIES = [
    ['/app/hammer-2-0-8.js', 'hammerjs/hammer.min.js', LANGS],
    ['/app/hammer-time.js', 'hammer-timejs/dist/hammer-time.min.js', LANGS],
    ['/app/matrix.js', 'transformation-matrix-js/matrix.js', LANGS],
    ['/app/lib/gl-matrix.js', 'gl-matrix/dist/gl-matrix-min.js', ['**']],
    ['/app/lib/earcut.js', 'earcut/dist/earcut.min.js', ['**']],
    ['/app/lib/suncalc.js', 'suncalc/suncalc.js', ['**']],
    ['/app/lib/rawinflate.js', 'zlibjs/bin/rawinflate.min.js', ['**']],
    ['/app/lib/rawdeflate.js', 'zlibjs/bin/rawdeflate.min.js', ['**']],
];

/* Rows whose key keeps its capitals. The lookup lower-cases the asked key,
** so these can never be fetched: they are kept as unreachable data, the
** way earlier packs carried them. */
const KEEP_CASE = new Set(['/app/img/Status-20.png', '/app/img/bw/Status-20.png']);

const MOON_PHASES = 28;
const LOADER_KEY = '/app/img/ajax_loader_blue_256.gif';

/* Type code by file kind; anything else is 0. */
function typeOf(name) {
    const ext = path.extname(name).toLowerCase();
    return { '.html': 1, '.css': 2, '.js': 3, '.txt': 4, '.png': 6, '.gif': 8, '.mp3': 14 }[ext] || 0;
}

function parseArgs(argv) {
    const opts = {};
    for (let i = 0; i < argv.length; i += 2) {
        if (!argv[i].startsWith('--') || i + 1 >= argv.length) throw new Error(`bad argument ${argv[i]}`);
        opts[argv[i].slice(2)] = argv[i + 1];
    }
    for (const k of ['app', 'modules', 'i18n', 'work', 'writer', 'version', 'out']) {
        if (!opts[k]) throw new Error(`--${k} is required`);
    }
    return opts;
}

/* Files below dir, as paths relative to it with "/", sorted. */
function listFiles(dir) {
    const out = [];
    const walk = (rel) => {
        const abs = path.join(dir, rel);
        for (const e of fs.readdirSync(abs, { withFileTypes: true })) {
            const r = rel ? rel + '/' + e.name : e.name;
            if (e.isDirectory()) walk(r);
            else if (e.isFile()) out.push(r);
        }
    };
    if (fs.existsSync(dir)) walk('');
    return out.sort();
}

/*
** The pack's rows in the making. add() refuses a second row with the same
** key and language, and lower-cases keys outside KEEP_CASE with a warning,
** so that every row can be reached.
*/
class Rows {
    constructor(warn) {
        this.rows = [];
        this.seen = new Set();
        this.warn = warn;
    }

    add(key, t, l, file) {
        if (/[\t\n\r]/.test(key)) throw new Error(`file name with a tab or line break: ${key}`);
        let k = key;
        if (k !== k.toLowerCase() && !KEEP_CASE.has(k)) {
            this.warn(`key ${k} stored in lower case`);
            k = k.toLowerCase();
        }
        const id = k + '\t' + l;
        if (this.seen.has(id)) throw new Error(`two sources for ${k} (${l})`);
        this.seen.add(id);
        this.rows.push({ k, t, l, file });
    }

    has(key) {
        return this.rows.some((r) => r.k === key);
    }

    /* Sorted by key, then language, for a stable file. */
    sorted() {
        return this.rows.slice().sort((a, b) => (a.k < b.k ? -1 : a.k > b.k ? 1 : a.l < b.l ? -1 : a.l > b.l ? 1 : 0));
    }
}

/* Adds the page and the top-level scripts in three languages. Returns the
** untranslated texts per language: Map lang -> Map text -> [files]. */
function addLanguageRows(rows, o, tables, warn) {
    const untranslated = new Map(LANGS.map((l) => [l, new Map()]));
    const files = fs.existsSync(o.app)
        ? fs.readdirSync(o.app).filter((f) => f === 'marepack.html' || /\.js$/.test(f)).sort()
        : [];
    if (!files.includes('marepack.html')) warn(`${o.app}/marepack.html is missing: the pack has no page`);
    for (const f of files) {
        const src = fs.readFileSync(path.join(o.app, f), 'utf8');
        rows.add('/app/' + f, typeOf(f), 'en', path.join(o.app, f));
        for (const lang of LANGS.filter((l) => l !== 'en')) {
            const seen = untranslated.get(lang);
            const report = (text) => {
                if (!seen.has(text)) seen.set(text, new Set());
                seen.get(text).add(f);
            };
            const table = tables[lang];
            const out = /\.html$/.test(f) ? i18n.translateHtml(src, table, report) : i18n.translateJs(src, table, report);
            const dest = path.join(o.work, lang, f);
            fs.mkdirSync(path.dirname(dest), { recursive: true });
            fs.writeFileSync(dest, out, 'utf8');
            rows.add('/app/' + f, typeOf(f), lang, dest);
        }
    }
    return untranslated;
}

/* Adds the client's own helper scripts under lib/ and the npm libraries. */
function addLibraryRows(rows, o) {
    for (const f of listFiles(path.join(o.app, 'lib'))) {
        rows.add('/app/lib/' + f, typeOf(f), '**', path.join(o.app, 'lib', f));
    }
    for (const [key, rel, langs] of LIBRARIES) {
        const src = path.join(o.modules, rel);
        if (!fs.existsSync(src)) throw new Error(`${src} is missing: run "npm ci" first`);
        for (const lang of langs) rows.add(key, 3, lang, src);
    }
}

/* Adds the help and information texts, app/<lang>/*.txt, as common rows:
** their language is in the path. */
function addTextRows(rows, o) {
    for (const d of fs.readdirSync(o.app).sort()) {
        if (!/^[a-z]{2}$/.test(d) || !fs.statSync(path.join(o.app, d)).isDirectory()) continue;
        for (const f of listFiles(path.join(o.app, d))) {
            rows.add(`/app/${d}/${f}`, typeOf(f), '**', path.join(o.app, d, f));
        }
    }
}

/* Converts and adds everything under app/img, then the drawn images. */
function addImageRows(rows, o, warn) {
    const imgDir = path.join(o.app, 'img');
    const out = path.join(o.work, 'img');
    for (const f of listFiles(imgDir)) {
        const src = path.join(imgDir, f);
        if (/\.svg$/i.test(f)) {
            const name = f.replace(/\.svg$/i, '.png');
            const svg = fs.readFileSync(src, 'utf8');
            assets.svgToPng(svg, path.join(out, name));
            rows.add('/app/img/' + name, 6, '**', path.join(out, name));
            if (!f.includes('/')) {
                const grey = assets.greySvg(svg);
                if (grey === null) throw new Error(`${src} has no <svg> root`);
                assets.svgToPng(grey, path.join(out, 'bw', name));
                rows.add('/app/img/bw/' + name, 6, '**', path.join(out, 'bw', name));
            }
        } else if (/\.sox$/i.test(f)) {
            const name = f.replace(/\.sox$/i, '');
            assets.makeSound(fs.readFileSync(src, 'utf8'), path.join(out, name), path.join(o.work, 'sound'));
            rows.add('/app/img/' + name, typeOf(name), '**', path.join(out, name));
        } else {
            if (typeOf(f) === 0) warn(`app/img/${f} is stored with type 0`);
            rows.add('/app/img/' + f, typeOf(f), '**', src);
        }
    }
    for (let i = 0; i < MOON_PHASES; i++) {
        const name = `m32/m${String(i).padStart(2, '0')}.png`;
        if (rows.has('/app/img/' + name)) continue;
        assets.svgToPng(assets.moonSvg(i, MOON_PHASES), path.join(out, name));
        rows.add('/app/img/' + name, 6, '**', path.join(out, name));
    }
    if (!rows.has(LOADER_KEY)) {
        const gif = path.join(out, path.basename(LOADER_KEY));
        assets.makeLoaderGif(gif, path.join(o.work, 'loader'));
        rows.add(LOADER_KEY, 8, '**', gif);
    }
}

/* Warns about images, sounds and scripts that the page, the scripts or the
** style sheets name but the pack does not hold. */
function checkReferences(rows, o, warn) {
    const refs = new Set();
    for (const f of fs.readdirSync(o.app).filter((x) => x === 'marepack.html' || /\.js$/.test(x))) {
        const src = fs.readFileSync(path.join(o.app, f), 'utf8');
        for (const m of src.matchAll(/\b(?:img|lib)\/[A-Za-z0-9_\-/.]+\.(?:png|gif|mp3|js)\b/g)) refs.add(m[0]);
        /* bare image names that the client puts behind "img/" itself */
        for (const m of src.matchAll(/["']([A-Za-z0-9_-]+\.(?:png|gif|mp3))["']/g)) refs.add('img/' + m[1]);
    }
    /* style sheets name their images relative to their own folder */
    for (const f of listFiles(path.join(o.app, 'img')).filter((x) => /\.css$/.test(x))) {
        const css = fs.readFileSync(path.join(o.app, 'img', f), 'utf8');
        for (const m of css.matchAll(/url\(\s*["']?([^)"'?#]+)/g)) {
            if (/^(data:|[a-z]+:\/\/|\/)/.test(m[1])) continue;
            refs.add(path.posix.normalize(path.posix.join('img', path.posix.dirname(f), m[1])));
        }
    }
    for (const r of [...refs].sort()) {
        if (!rows.has('/app/' + r.toLowerCase())) warn(`${r} is named by the client but not in the pack`);
    }
}

/* Prints the untranslated texts and writes them as table stubs. */
function reportUntranslated(untranslated, o) {
    for (const [lang, texts] of untranslated) {
        if (lang === 'en') continue;
        const file = path.join(o.work, `untranslated.${lang}.tsv`);
        const lines = [...texts.keys()].sort().map((t) => t.replace(/\\/g, '\\\\').replace(/\t/g, '\\t').replace(/\n/g, '\\n') + '\t');
        fs.writeFileSync(file, lines.join('\n') + (lines.length ? '\n' : ''), 'utf8');
        if (texts.size > 0) {
            console.log(`build_app_pack: ${texts.size} texts without a ${lang} translation (list: ${file})`);
            for (const t of [...texts.keys()].sort().slice(0, 20)) console.log(`  ${lang}: "${t}"`);
            if (texts.size > 20) console.log(`  ${lang}: ... and ${texts.size - 20} more`);
        }
    }
}

function main() {
    const o = parseArgs(process.argv.slice(2));
    const warn = (m) => console.log('build_app_pack: warning: ' + m);
    fs.rmSync(o.work, { recursive: true, force: true });
    fs.mkdirSync(o.work, { recursive: true });

    const tables = {};
    for (const lang of LANGS.filter((l) => l !== 'en')) {
        const { table, errors } = i18n.loadTable(path.join(o.i18n, lang + '.tsv'));
        if (errors.length) throw new Error(`${lang}.tsv: ${errors.join('; ')}`);
        tables[lang] = table;
    }

    const rows = new Rows(warn);
    const untranslated = addLanguageRows(rows, o, tables, warn);
    addLibraryRows(rows, o);
    addTextRows(rows, o);
    addImageRows(rows, o, warn);
    const versionFile = path.join(o.work, 'version');
    fs.writeFileSync(versionFile, o.version);
    rows.add('version', 0, '**', versionFile);
    checkReferences(rows, o, warn);
    reportUntranslated(untranslated, o);

    const manifest = path.join(o.work, 'manifest.tsv');
    fs.writeFileSync(manifest, rows.sorted().map((r) => [r.k, r.t, r.l, path.resolve(r.file)].join('\t')).join('\n') + '\n');
    fs.mkdirSync(path.dirname(path.resolve(o.out)), { recursive: true });
    const w = spawnSync(o.writer, [manifest, o.out], { stdio: 'inherit' });
    if (w.status !== 0) throw new Error(`${o.writer} failed`);
}

try {
    main();
} catch (e) {
    console.error('build_app_pack: ' + e.message);
    process.exit(1);
}
