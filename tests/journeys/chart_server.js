/* chart_server.js -- `mareplot-chartkit serve` over a folder of packs on a free port. */
'use strict';
const fs = require('fs');
const path = require('path');
const { spawn } = require('child_process');
const j = require('./journey');

/* Resolves to { address: "127.0.0.1:<port>", stop() } once it listens. */
async function chartServer(chartkit, dir, extra) {
    const portFile = path.join(dir, 'port');
    const args = ['serve', '--dir', dir, '--port', '0', '--port-file', portFile].concat(extra || []);
    const proc = spawn(chartkit, args, { stdio: ['ignore', 'ignore', 'inherit'] });
    let exited = false;
    const gone = new Promise((res) => proc.on('exit', () => { exited = true; res(); }));
    await j.until(() => exited || fs.existsSync(portFile), 'the chart server\'s port file', 20000);
    if (exited) throw new Error('mareplot-chartkit serve ended');
    return {
        address: '127.0.0.1:' + Number(fs.readFileSync(portFile, 'utf8')),
        async stop() {
            if (!exited) proc.kill('SIGTERM');
            await gone;
        },
    };
}

module.exports = { chartServer };
