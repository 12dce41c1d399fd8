/* harness.js: the client's scripts in a node vm context with a document that knows no elements and an
** XMLHttpRequest answering from ctx.route(method, url, body): a body, or a number for a status. */
'use strict';

const assert = require('node:assert');
const fs = require('fs');
const path = require('path');
const vm = require('vm');

const APP = path.resolve(__dirname, '../../app');
const MODULES = path.resolve(__dirname, '../../node_modules');

const HOST = { hostversion: 'test', locale: 'de-DE', alang: 'en', skin: 'day', device: 'L|linux|1|tester', appname: 'mareplot' };

function makeXhr(ctx) {
    return function XMLHttpRequest() {
        this.readyState = 0;
        this.status = 0;
        this.responseText = '';
        this.open = (m, u) => { this._m = m; this._u = u; };
        this.setRequestHeader = () => {};
        this.send = (body) => {
            ctx.requests.push({ method: this._m, url: this._u, body: body });
            const r = this._u === '/hostversion' ? JSON.stringify(HOST) : ctx.route(this._m, this._u, body);
            this.readyState = 4;
            this.status = typeof r === 'number' ? r : 200;
            this.responseText = typeof r === 'number' ? '404 File not found' : r;
            if (this.onreadystatechange) this.onreadystatechange();
        };
    };
}

/* A context with the given scripts of app/ loaded in order. */
function load(scripts, route) {
    const ctx = {
        console: { log() {} },
        navigator: { userAgent: 'Mozilla/5.0 (X11; Linux x86_64) Chrome/87.0' },
        requests: [],
        route: route || (() => 404),
        setTimeout: () => 0, clearTimeout() {}, setInterval: () => 0, clearInterval() {},
        document: { getElementById: () => null, getElementsByClassName: () => [], querySelector: () => null,
            querySelectorAll: () => [], addEventListener() {} },
    };
    ctx.window = ctx;
    ctx.XMLHttpRequest = makeXhr(ctx);
    vm.createContext(ctx);
    vm.runInContext(fs.readFileSync(path.join(MODULES, 'transformation-matrix-js/matrix.js'), 'utf8'), ctx);
    for (const s of scripts) {
        vm.runInContext(fs.readFileSync(path.join(APP, s), 'utf8'), ctx, { filename: s });
    }
    return ctx;
}

/* Compares values of the client's realm by their JSON (deepStrictEqual sees other prototypes). */
function same(a, b, msg) {
    assert.strictEqual(JSON.stringify(a), JSON.stringify(b), msg);
}

function near(a, b, eps, msg) {
    assert.ok(Math.abs(a - b) <= eps, `${msg}: ${a} vs ${b}`);
}

/* The scripts the logic tests need, in the page's order, and those of the navigation objects. */
const CORE = ['kelvor.js', 'kelvor.marepack.js', 'kelvor.marker.js', 'kelvor.track.js', 'kelvor.tides.js',
    'kelvor.chartkit.js', 'kelvor.ais.js', 'kelvor.navrte.js', 'kelvor.boat.js', 'kelvor.vmap.js',
    'kelvor.settings.js', 'kelvor.info.js'];

const NAV = ['kelvor.js', 'kelvor.marepack.js', 'kelvor.marker.js', 'kelvor.route.js', 'kelvor.ruler.js',
    'kelvor.track.js', 'kelvor.chartkit.js', 'kelvor.ais.js', 'kelvor.navrte.js', 'kelvor.boat.js',
    'kelvor.vmap.js', 'kelvor.settings.js'];

module.exports = { load, same, near, CORE, NAV, HOST, APP };
