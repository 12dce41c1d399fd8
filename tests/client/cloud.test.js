/* Backups under node: the log's texts both ways, and a restore in one transaction with the log in batches. */
'use strict';

const test = require('node:test');
const assert = require('node:assert');
const { load, CORE } = require('./harness');

/* The cloud answers cloudReply; local(url, body) may answer a host request first. */
function client(cloudReply, local) {
    const scripts = CORE.concat(['kelvor.route.js', 'kelvor.ruler.js', 'kelvor.alarm.js', 'kelvor.cloud.js']);
    const ctx = load(scripts, (m, url, body) => {
        const own = local && local(url, String(body));
        if (own !== undefined) return own;
        if (url.indexOf('/getAuth/') === 0) return 'AUTH';
        if (url.indexOf('http') === 0) return cloudReply;
        if (url === '/UexecSql') return 'OK';
        return '[]';
    });
    ctx.document.getElementById = () => ({ innerHTML: '' });
    ctx.cpApp = { errors: 0, saves: 0, ineterror() { this.errors++; }, sizeDialog() {}, save() { this.saves++; },
        yesno() {}, startWithWait() {}, setModified() {}, update() {}, unSelect() {},
        map: { paintByTimer() {}, getBase: () => 65536 } };
    ctx.kelvor.settings.load();
    ctx.kelvor.settings.k.userid = 7;
    return ctx;
}

const sql = (ctx) => ctx.requests.filter((r) => r.url === '/UexecSql' && r.method === 'POST').map((r) => String(r.body));

function backup(nrows, v) {
    const tr = [];
    for (let i = 0; i < nrows; i++) tr.push([i + 1, 1700000000 + i, 5000000 + i, 3000000 + i, 1, v || 'fix']);
    return { mk: '[{"name":"Buoy","x":5,"y":6}]', rt: '[]', rl: '[]', al: '[]', tr };
}

test('restore: one transaction, batches over 15000 characters, the restored row last', () => {
    // [rows, INSERT requests]: about 37 characters a row
    for (const [n, inserts] of [[0, 1], [1200, 3]]) {
        const ctx = client('<p>ok</p>|---|' + JSON.stringify(backup(n)));
        ctx.kelvor.cloud.loadFromCloud3('42');
        const q = sql(ctx);
        const ins = q.filter((s) => s.indexOf('INSERT INTO log') === 0);
        assert.strictEqual(q[0], 'BEGIN', `${n} rows`);
        assert.strictEqual(q[q.length - 1], 'COMMIT');
        assert.ok(q.indexOf('DELETE FROM log') > 0 && q.indexOf('DELETE FROM log') < q.indexOf(ins[0]));
        assert.strictEqual(ins.length, inserts, `${n} rows`);
        for (let i = 0; i + 1 < ins.length; i++) assert.ok(ins[i].length > 15000 && ins[i].length < 15200);
        const rows = ins.join('').match(/\(/g).length - ins.length; // one "(ts,x,y,t,v)" per statement
        assert.strictEqual(rows, n + 1, 'every row and the restored one');
        assert.ok(/,999,999,2,'Data restored'\)$/.test(ins[ins.length - 1]));
        assert.ok(!/\(1,1700000000/.test(ins[0]), 'old ids are dropped');
        assert.strictEqual(ctx.cpApp.errors, 0);
        assert.strictEqual(ctx.kelvor.marker.markerList.length, 1, 'markers replaced by the backup');
        assert.ok(ctx.requests.some((r) => /loadFromCloud=7,[^,]*,42&a=AUTH&alang=/.test(r.url)));
    }
});

test('restore: a broken reply changes nothing, a dead host rolls back', () => {
    const ctx = client('<p>no separator</p>');
    ctx.kelvor.cloud.loadFromCloud3('1');
    assert.deepStrictEqual(sql(ctx), []);
    assert.strictEqual(ctx.cpApp.errors, 1);

    const dead = (url, body) => (body === 'DELETE FROM log' ? 500 : undefined);
    const ctx2 = client('x|---|' + JSON.stringify(backup(3)), dead);
    ctx2.kelvor.cloud.loadFromCloud3('1');
    const q = sql(ctx2);
    assert.deepStrictEqual([q[0], q[q.length - 1]], ['BEGIN', 'ROLLBACK']);
    assert.strictEqual(ctx2.cpApp.errors, 1);
});

// Text as the host's gateway writes it: b t n f r " ' / and \ get a backslash, the apostrophe too.
const gatewayText = (s) => '"' + s.replace(/[\b\t\n\f\r"'/\\]/g,
    (c) => '\\' + ({ '\b': 'b', '\t': 't', '\n': 'n', '\f': 'f', '\r': 'r' }[c] || c)) + '"';
// The SQL text literals of a statement, read back as SQLite reads them.
const sqlTexts = (q) => (q.match(/'(?:[^']|'')*'/g) || []).map((l) => l.slice(1, -1).replace(/''/g, "'"));

test('log texts with apostrophes and backslashes survive backup and restore', () => {
    for (const v of ['54°50\'19.19"N 8°17\'01.5"E', 'C:\\tmp\\\'s', "it's \\\\ 'quoted'", 'plain/text']) {
        const rows = '[\n[1,100,2,3,1,' + gatewayText(v) + ']\n]';
        const ctx = client('<p>saved</p>', (u, q) => (u === '/UexecSql' && /^SELECT/.test(q) ? rows : undefined));
        assert.strictEqual(ctx.kelvor.track.sql('SELECT * FROM log')[0][5], v, 'track view reads it');
        ctx.kelvor.cloud.saveInCloud(false);
        const post = ctx.requests.find((r) => r.url.indexOf('?saveInCloud=') > 0);
        assert.ok(post, `backup of ${v}`);
        assert.strictEqual(JSON.parse(post.body).tr[0][5], v);
        assert.strictEqual(ctx.cpApp.saves, 1, 'settings saved with the backup');

        const back = client('x|---|' + post.body);
        back.kelvor.cloud.loadFromCloud3('1');
        const ins = sql(back).filter((s) => s.indexOf('INSERT INTO log') === 0);
        assert.deepStrictEqual(sqlTexts(ins[0]), [v, 'Data restored'], `restore of ${v}`);
        assert.strictEqual(back.cpApp.errors + ctx.cpApp.errors, 0);
    }
});

test('a restore leaves exactly the backup\'s routes, rulers, alarms and markers', () => {
    const two = (name) => JSON.stringify([{ name, m: [{ name: 'A', x: 1, y: 2 }, { name: 'B', x: 3, y: 4 }] }]);
    const doc = { mk: '[{"name":"Buoy","x":5,"y":6}]', rt: two('Backup route'), rl: two('Backup ruler'), al: two('Backup alarm'), tr: [] };
    for (const keys of [['mk', 'rt', 'rl', 'al'], ['mk']]) {
        const ctx = client('x|---|' + JSON.stringify(Object.fromEntries(keys.map((k) => [k, doc[k]]))));
        const K = ctx.kelvor;
        K.route.load(two('Device route'));
        K.ruler.load(two('Device ruler'));
        K.alarm.load(two('Device alarm'));
        K.route.activeRoute = K.routeList[0];
        K.boat.activeWayPoint = K.routeList[0].m[1];
        K.cloud.loadFromCloud3('1');
        const names = (l) => Array.from(l, (o) => o.name);
        const want = (k, name) => (keys.indexOf(k) >= 0 ? [name] : []);
        assert.deepStrictEqual(names(K.routeList), want('rt', 'Backup route'), keys.join());
        assert.deepStrictEqual(names(K.rulerList), want('rl', 'Backup ruler'));
        assert.deepStrictEqual(names(K.alarmList), want('al', 'Backup alarm'));
        assert.strictEqual(K.marker.markerList.length, 1 + 2 * (keys.length - 1), 'the backup\'s markers and points');
        assert.ok(!K.route.activeRoute && !K.boat.activeWayPoint, 'nothing selected or steered to from before');
    }
});
