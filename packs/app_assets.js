/*
** app_assets.js -- turns the client's image and sound sources into the
** files that the application pack stores, with Debian command-line tools:
**   SVG -> PNG          rsvg-convert
**   PNG frames -> GIF   pngtopam, pamtogif (netpbm), gifsicle
**   sox recipe -> WAV   sox; WAV -> MP3 with lame
** and draws the images that are easier to compute than to draw by hand:
** the 28 moon phases and the frames of the wait animation.
**
** Every step is deterministic: sox runs in repeatable mode without dither,
** SVGs carry no text (fonts differ between machines), and numbers written
** into generated SVGs are rounded to fixed decimals.
*/
'use strict';

const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');

/* Runs a tool; returns its stdout as a Buffer, or throws with its stderr. */
function run(cmd, args, input) {
    const r = spawnSync(cmd, args, { input, maxBuffer: 64 << 20 });
    if (r.error) throw new Error(`${cmd}: ${r.error.message}`);
    if (r.status !== 0) throw new Error(`${cmd} ${args.join(' ')}: ${String(r.stderr).trim()}`);
    return r.stdout;
}

/* Renders SVG text to a PNG file at the SVG's own size. */
function svgToPng(svgText, outPath) {
    fs.mkdirSync(path.dirname(outPath), { recursive: true });
    const png = run('rsvg-convert', ['--format=png'], Buffer.from(svgText, 'utf8'));
    fs.writeFileSync(outPath, png);
}

/*
** Returns the monochrome form of an SVG: its content wrapped in a group
** whose filter removes all saturation, so every colour becomes its grey of
** the same luminance and transparency is untouched. Returns null when the
** text has no <svg> root.
*/
function greySvg(svgText) {
    const open = /<svg\b[^>]*>/.exec(svgText);
    const close = svgText.lastIndexOf('</svg>');
    if (!open || close < open.index) return null;
    const start = open.index + open[0].length;
    return svgText.slice(0, start) +
        '<defs><filter id="mr_grey" color-interpolation-filters="sRGB" x="-1" y="-1" width="3" height="3"' +
        '><feColorMatrix type="saturate" values="0"/></filter></defs>' +
        '<g filter="url(#mr_grey)">' + svgText.slice(start, close) + '</g>' + svgText.slice(close);
}

const f2 = (v) => (Math.round(v * 100) / 100).toFixed(2);

/*
** SVG of moon phase index i of count (0 new moon, count/2 full moon), 32 by
** 32 pixels: the dark disc, and the lit part bounded by the limb and the
** terminator, an ellipse whose half-width is r times cos(2 pi phase). Waxing
** phases are lit on the right, as seen from the northern hemisphere.
*/
function moonSvg(i, count) {
    const p = i / count;
    const cx = 16, cy = 16, r = 13, steps = 36;
    const waxing = p <= 0.5;
    const side = waxing ? 1 : -1;
    const k = Math.cos(2 * Math.PI * p);
    const pts = [];
    for (let s = 0; s <= steps; s++) {
        const th = -Math.PI / 2 + (Math.PI * s) / steps;
        pts.push([cx + side * r * Math.cos(th), cy + r * Math.sin(th)]);
    }
    for (let s = steps; s >= 0; s--) {
        const th = -Math.PI / 2 + (Math.PI * s) / steps;
        pts.push([cx + side * r * Math.cos(th) * k, cy + r * Math.sin(th)]);
    }
    const d = 'M' + pts.map((q) => f2(q[0]) + ',' + f2(q[1])).join('L') + 'Z';
    return '<svg xmlns="http://www.w3.org/2000/svg" width="32" height="32" viewBox="0 0 32 32">' +
        `<circle cx="${cx}" cy="${cy}" r="${r}" fill="#3c4452" stroke="#8a93a3" stroke-width="1"/>` +
        `<path d="${d}" fill="#fff6d5"/></svg>\n`;
}

/*
** SVG of frame f of frames of the wait animation: twelve blue dots on a
** ring, the brightest one stepping on by one place per frame.
*/
function loaderFrameSvg(f, frames, size) {
    const c = size / 2, ring = size * 0.36, dot = size * 0.075;
    let body = '';
    for (let j = 0; j < 12; j++) {
        const a = (2 * Math.PI * j) / 12 - Math.PI / 2;
        const age = (f - j + 12 * frames) % 12;
        const op = Math.max(0.15, 1 - age / 10);
        body += `<circle cx="${f2(c + ring * Math.cos(a))}" cy="${f2(c + ring * Math.sin(a))}" r="${f2(dot)}"` +
            ` fill="#1f5fae" fill-opacity="${f2(op)}"/>`;
    }
    return `<svg xmlns="http://www.w3.org/2000/svg" width="${size}" height="${size}">` +
        `<rect width="${size}" height="${size}" fill="#ffffff"/>${body}</svg>\n`;
}

/*
** Writes the animated wait image: frames rendered to PNG, each made a GIF
** by netpbm, joined by gifsicle into one looping image. The frames stand on
** white, so the GIF palette needs no partial transparency.
*/
function makeLoaderGif(outPath, workDir, size = 64, frames = 12) {
    fs.mkdirSync(workDir, { recursive: true });
    const gifs = [];
    for (let f = 0; f < frames; f++) {
        const png = path.join(workDir, `frame${String(f).padStart(2, '0')}.png`);
        svgToPng(loaderFrameSvg(f, frames, size), png);
        const pam = run('pngtopam', [png]);
        const gif = run('pamtogif', [], pam);
        const gifPath = png.replace(/\.png$/, '.gif');
        fs.writeFileSync(gifPath, gif);
        gifs.push(gifPath);
    }
    const out = run('gifsicle', ['--no-warnings', '--loopcount=forever', '--delay=8', ...gifs]);
    fs.writeFileSync(outPath, out);
}

/*
** Makes a sound from a recipe: the recipe text is the sox effect chain after
** "sox -n", for instance "synth 0.25 sine 1000 fade q 0.01 0.25 0.05".
** Lines beginning with "#" are comments. The output's extension decides
** the format: ".wav" is written by sox, ".mp3" is encoded from it by lame.
*/
function makeSound(recipeText, outPath, workDir) {
    const args = recipeText.split('\n').filter((l) => !l.trim().startsWith('#')).join(' ')
        .trim().split(/\s+/).filter(Boolean);
    if (args.length === 0) throw new Error(`empty sound recipe for ${outPath}`);
    fs.mkdirSync(path.dirname(outPath), { recursive: true });
    const isMp3 = /\.mp3$/i.test(outPath);
    const wav = isMp3 ? path.join(workDir, path.basename(outPath) + '.wav') : outPath;
    fs.mkdirSync(path.dirname(wav), { recursive: true });
    run('sox', ['-R', '-D', '-n', '-r', '22050', '-c', '1', '-b', '16', wav, ...args]);
    if (isMp3) run('lame', ['--quiet', '-b', '64', wav, outPath]);
}

module.exports = { svgToPng, greySvg, moonSvg, loaderFrameSvg, makeLoaderGif, makeSound };
