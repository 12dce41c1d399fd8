/*
** bench_client.js -- what the client benchmarks share: a quantile and one
** host with one browser on the chart page.
*/
'use strict';

const { startHost, openPage, PAGE } = require('../tests/client/browser');

/* The p-th quantile (0 to 1) of the numbers in list; NaN when it is empty. */
function pct(list, p) {
    const s = list.slice().sort((a, b) => a - b);
    return s.length ? s[Math.min(s.length - 1, Math.floor(p * s.length))] : NaN;
}

/* Starts a host and a 1280 by 800 browser on the chart page, waits until
** the map exists and returns what fn(page, host, browser) returns. The
** browser (browser.close, which fn may replace) and the host are closed
** whatever fn does. */
async function withClient(fn) {
    const host = await startHost();
    const b = await openPage({ width: 1280, height: 800 });
    try {
        const page = b.page;
        await page.goto(PAGE);
        await page.waitForFunction(() => window.cpApp && cpApp.map);
        return await fn(page, host, b);
    } finally {
        await b.close();
        await host.stop();
    }
}

module.exports = { pct, withClient };
