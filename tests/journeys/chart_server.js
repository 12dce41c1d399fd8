/* chart_server.js -- `mareplot-chartkit serve` over a folder of packs on a free port. */
'use strict';
const fs = require('fs');
const path = require('path');
const j = require('./journey');

/* Resolves to { address: "127.0.0.1:<port>", stop() } once it listens. */
async function chartServer(chartkit, dir, extra) {
    const portFile = path.join(dir, 'port');
    const args = ['serve', '--dir', dir, '--port', '0', '--port-file', portFile].concat(extra || []);
    const s = await j.service(chartkit, args, () => fs.existsSync(portFile), 'its port file');
    return { address: '127.0.0.1:' + Number(fs.readFileSync(portFile, 'utf8')), stop: s.stop };
}

module.exports = { chartServer };
