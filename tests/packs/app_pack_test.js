/* The application pack builder: translation of page and scripts, the table format, a build run twice
** (node --test app_pack_test.js [path of app_pack_write]; skipped without the writer). */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const vm = require('vm');
const { spawnSync } = require('child_process');

const root = path.resolve(__dirname, '..', '..');
const i18n = require(path.join(root, 'packs', 'app_i18n.js'));
const assets = require(path.join(root, 'packs', 'app_assets.js'));

const table = new Map([
    ['Today', 'Heute'],
    ['No Signal', 'Kein Signal'],
    ['E', 'O'],
    ["Don't move", 'Nicht "bewegen"'],
    ['Speed', "Fahrt's"],
    ['About Map', 'Über die Karte'],
    ['Land & Sea', 'Land & Meer <1>'],
]);

/* [name, source, want] of the two translators */
const CASES = {
    translateJs: [
        ['quotes of each kind', 'a = "Today"; b = \'Today\'; c = `Today`;', 'a = "Heute"; b = \'Heute\'; c = `Heute`;'],
        ['template with substitution stays', 'a = `Today ${x}`;', 'a = `Today ${x}`;'],
        ['surrounding space is kept', 'a = " No Signal  ";', 'a = " Kein Signal  ";'],
        ['longer texts, names and markup stay', 'o.Today = "Today is fine" + "<h2>About Map</h2>";',
            'o.Today = "Today is fine" + "<h2>About Map</h2>";'],
        ['escaped source text matches', "a = 'Don\\'t move';", "a = 'Nicht \"bewegen\"';"],
        ['quote of the translation is escaped', 'a = "Don\'t move";', 'a = "Nicht \\"bewegen\\"";'],
        ['apostrophe inside single quotes', "a = 'Speed';", "a = 'Fahrt\\'s';"],
        ['comments stay', '// "Today"\n/* "Today" */ b = "Today";', '// "Today"\n/* "Today" */ b = "Heute";'],
        ['regexes with quotes and a slash in a class', 'r = /["\']Today/g; q = /[/"]/; s = "Today";',
            'r = /["\']Today/g; q = /[/"]/; s = "Heute";'],
        ['regex after return', 'function f(){return /"/.test(x) ? "Today" : 0}',
            'function f(){return /"/.test(x) ? "Heute" : 0}'],
        ['divisions after a name and a bracket', 'v = a / 2; w = (a) / 2 + c[1] / "E";',
            'v = a / 2; w = (a) / 2 + c[1] / "O";'],
        ['unterminated literal is copied', 'a = "Today\nb = 1;', 'a = "Today\nb = 1;'],
    ],
    translateHtml: [
        ['text keeps its white space; title translates, other attributes stay',
            '<b class="Today" onclick="f(\'Today\')" title="Today">\n  Today\n</b><img src="img/Today.png">',
            '<b class="Today" onclick="f(\'Today\')" title="Heute">\n  Heute\n</b><img src="img/Today.png">'],
        ['value attribute', "<input type='button' value='Speed'>", "<input type='button' value='Fahrt&#39;s'>"],
        ['comment and style stay, an inline script translates',
            '<!-- Today --><style>.x:after{content:"Today"}</style><script>var a = "Today"; if (a < b) c();</script>',
            '<!-- Today --><style>.x:after{content:"Today"}</style><script>var a = "Heute"; if (a < b) c();</script>'],
        ['reference in the text', '<td>Land &amp; Sea</td>', '<td>Land &amp; Meer &lt;1&gt;</td>'],
    ],
};

test('translation changes string literals, texts and text attributes only', async (t) => {
    for (const fn of Object.keys(CASES)) {
        for (const [name, src, want] of CASES[fn]) {
            await t.test(`${fn}: ${name}`, () => assert.strictEqual(i18n[fn](src, table), want));
        }
    }
});

test('untranslated messages are reported, code strings are not', () => {
    const seen = [];
    i18n.translateJs(
        'a("No Data available"); b("Overview"); c("i_chart_layer"); d("click"); e("SELECT ts FROM log");' +
        'k("AND ts <"); l(") FROM log GROUP BY 1"); m("ORDER BY id DESC");' +
        'f("img/icon-50-marker.png"); g("12px sans-serif"); h("#fff"); i("Today"); j("<b>Boat speed</b>");',
        table, (text) => seen.push(text));
    assert.deepStrictEqual(seen, ['No Data available', 'Overview', '<b>Boat speed</b>']);
});

test('parseTable reads entries, escapes and comments, and reports bad lines', () => {
    const { table: tb, errors } = i18n.parseTable(
        '# comment\n\nToday\tHeute\nTwo\\tcols\tZwei\\nZeilen\nno tab here\nToday\tnochmal\nA\tB\tC\n');
    assert.strictEqual(tb.get('Today'), 'Heute');
    assert.strictEqual(tb.get('Two\tcols'), 'Zwei\nZeilen');
    assert.strictEqual(tb.size, 2);
    assert.strictEqual(errors.length, 3);
});

test('every client script and the page stay valid in every language', () => {
    const app = path.join(root, 'app');
    for (const lang of ['de', 'fr']) {
        const { table: tb, errors } = i18n.loadTable(path.join(root, 'packs', 'i18n', lang + '.tsv'));
        assert.deepStrictEqual(errors, [], `${lang}.tsv`);
        for (const f of fs.readdirSync(app).filter((x) => /\.js$/.test(x))) {
            const src = fs.readFileSync(path.join(app, f), 'utf8');
            const out = i18n.translateJs(src, tb);
            assert.doesNotThrow(() => new vm.Script(out, { filename: `${lang}/${f}` }), `${lang}/${f}`);
            /* the copy differs only inside literals: the code around them is the same */
            const strip = (s) => i18n.mapJsStrings(s, () => '');
            assert.strictEqual(strip(out), strip(src), `${lang}/${f} changed outside string literals`);
        }
    }
});

test('grey copies are well formed', () => {
    const g = assets.greySvg('<svg xmlns="http://www.w3.org/2000/svg" width="4" height="4"><rect fill="red"/></svg>');
    assert.match(g, /<svg[^>]*><defs><filter id="mr_grey"[\s\S]*<g filter="url\(#mr_grey\)"><rect fill="red"\/><\/g><\/svg>$/);
    assert.strictEqual(assets.greySvg('<p>no svg</p>'), null);
});

const writer = process.argv[2];
test('the builder gives the same pack twice', { skip: !writer && 'no writer given' }, () => {
    const tmp = fs.mkdtempSync(path.join(os.tmpdir(), 'app-pack-'));
    try {
        const build = (n) => {
            const out = path.join(tmp, `A${n}.marepack`);
            const r = spawnSync(process.execPath, [path.join(root, 'packs', 'build_app_pack.js'),
                '--app', path.join(root, 'app'), '--modules', path.join(root, 'node_modules'),
                '--i18n', path.join(root, 'packs', 'i18n'), '--work', path.join(tmp, 'work' + n),
                '--writer', writer, '--version', '0.0.0', '--out', out], { encoding: 'utf8' });
            assert.strictEqual(r.status, 0, r.stderr + r.stdout);
            return fs.readFileSync(out);
        };
        assert.ok(build(1).equals(build(2)));
    } finally {
        fs.rmSync(tmp, { recursive: true, force: true });
    }
});
