#!/bin/bash
# chartkit.sh -- mareplot-chartkit: make from a raster MBTiles file of about
# 50 MB and from a GeoTIFF, in tiles per second (wall and CPU); then serve
# against nginx handing out the same pack file, by wrk, with the download's
# request from a position (nginx: a Range request for the same bytes).
#
# Usage: bench/chartkit.sh [build-dir] [seconds-per-run]
# The inputs are made with GDAL from NOAA's ETOPO5 relief (ferret-datasets)
# and kept in ${XDG_CACHE_HOME:-~/.cache}/mareplot, so later runs skip that
# step. serve and nginx listen on ports of their own; run it inside
# tests/support/isolate.sh to keep them off the machine's loopback.
# Prints Markdown tables.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${1:-$ROOT/build}
SECS=${2:-10}
TOOL=$BUILD/mareplot-chartkit
RELIEF=/usr/share/ferret-vis/data/etopo5.cdf
CACHE=${XDG_CACHE_HOME:-$HOME/.cache}/mareplot
NGINX_PORT=19988
[ -x "$TOOL" ] || { echo "build $TOOL first" >&2; exit 1; }
for t in gdal_translate gdaldem gdalwarp gdaladdo wrk nginx curl sqlite3 bc; do
    command -v $t >/dev/null || { echo "$t is missing (tools/debian-packages.txt)" >&2; exit 1; }
done

. "$ROOT/bench/scratch.sh"
SERVE_PID=""
NGINX_PID=""
bench_scratch kitbench SERVE_PID NGINX_PID
mkdir -p "$CACHE" "$WORK/packs" "$WORK/nginx"

# Relief of 0 to 30 E, 35 to 62 N in a graded sea and land palette, warped to
# 300 m Web Mercator pixels (zoom 9), tiled by GDAL with four overview levels.
MBTILES=$CACHE/bench-relief-z9.mbtiles
GEOTIFF=$CACHE/bench-relief-0.01deg.tif
if [ ! -s "$MBTILES" ] || [ ! -s "$GEOTIFF" ]; then
    printf -- "-6000 10 30 110\n-3000 30 80 170\n-200 90 150 210\n-1 170 210 235\n0 200 230 190\n300 150 190 120\n1000 190 160 110\n3000 240 240 240\nnv 0 0 0 0\n" > "$WORK/palette.txt"
    gdal_translate -q -projwin 0 62 30 35 -a_srs EPSG:4326 "$RELIEF" "$WORK/cut.tif"
    gdaldem color-relief -q -alpha "$WORK/cut.tif" "$WORK/palette.txt" "$WORK/relief.tif"
    gdalwarp -q -of VRT -t_srs EPSG:3857 -tr 300 300 -r cubic "$WORK/relief.tif" "$WORK/merc.vrt"
    gdal_translate -q -of MBTILES "$WORK/merc.vrt" "$WORK/relief.mbtiles"
    gdaladdo -q -r average "$WORK/relief.mbtiles" 2 4 8 16
    mv "$WORK/relief.mbtiles" "$MBTILES"
    # a 10 by 8 degree part of it as a GeoTIFF of 0.01 degree pixels
    gdalwarp -q -te 5 50 15 58 -tr 0.01 0.01 -r bilinear -co COMPRESS=DEFLATE "$WORK/relief.tif" "$WORK/geo.tif"
    mv "$WORK/geo.tif" "$GEOTIFF"
fi

# make: wall and CPU seconds of one run, and the tiles it wrote.
make_row() { # label input...
    local label=$1
    shift
    local out=$WORK/packs/A000050.marepack t0 t1 cpu tiles
    rm -f "$out"
    t0=$(date +%s.%N)
    /usr/bin/time -f "%U %S" -o "$WORK/time.txt" "$TOOL" make --id 50 --name Bench --out "$out" "$@" > /dev/null
    t1=$(date +%s.%N)
    cpu=$(awk '{ print $1 + $2 }' "$WORK/time.txt")
    tiles=$(sqlite3 "$out" "SELECT count(*) FROM tiles")
    awk -v l="$label" -v n="$tiles" -v w="$(echo "$t1 - $t0" | bc)" -v c="$cpu" \
        -v mb="$(stat -c %s "$out")" -v inb="$(du -bc "$@" | tail -1 | cut -f1)" 'BEGIN {
        printf "| %s | %.1f | %d | %.1f | %.0f | %.1f | %.0f | %.1f |\n", l, inb / 1e6, n, w, n / w, c, n / c, mb / 1e6 }'
}

echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
echo
echo "| input | MB in | tiles | wall s | tiles/s (wall) | CPU s | tiles/s (CPU) | pack MB |"
echo "|---|---|---|---|---|---|---|---|"
make_row "MBTiles, copied" "$MBTILES"
make_row "GeoTIFF, warped" "$GEOTIFF"
echo

# serve against nginx, on the pack from the MBTiles file.
"$TOOL" make --id 51 --name Bench --out "$WORK/packs/A000051.marepack" "$MBTILES" > /dev/null
SIZE=$(stat -c %s "$WORK/packs/A000051.marepack")
chmod -R a+rX "$WORK"
. "$ROOT/bench/nginx_peer.sh"
nginx_peer_conf "$WORK" "$NGINX_PORT" "$WORK/packs" application/octet-stream
nginx -c "$WORK/nginx/nginx.conf" -p "$WORK/nginx" &
NGINX_PID=$!
"$TOOL" serve --dir "$WORK/packs" --port-file "$WORK/port" > /dev/null &
SERVE_PID=$!
for _ in $(seq 100); do
    [ -s "$WORK/port" ] && curl -s -o /dev/null "http://127.0.0.1:$NGINX_PORT/" && break
    sleep 0.1
done
PORT=$(cat "$WORK/port")

# The same bytes both ways, checked before timing.
for p in 0 $((SIZE - 65536)); do
    cmp -s <(curl -s "http://127.0.0.1:$PORT/ajax3.php?download=51&v=1&p=$p&u=0") \
        <(curl -s -H "Range: bytes=$p-" "http://127.0.0.1:$NGINX_PORT/A000051.marepack") ||
        { echo "serve and nginx differ at p=$p" >&2; exit 1; }
done

wrk_row() { # label p connections
    local p=$1 c=$2 s n
    s=$(wrk -t1 -c"$c" -d"${SECS}s" "http://127.0.0.1:$PORT/ajax3.php?download=51&v=1&p=$p&u=0" 2>&1)
    n=$(wrk -t1 -c"$c" -d"${SECS}s" -H "Range: bytes=$p-" "http://127.0.0.1:$NGINX_PORT/A000051.marepack" 2>&1)
    awk -v p="$p" -v c="$c" -v size="$SIZE" '
        /^Requests\/sec:/ { r[++i] = $2 }
        /^Transfer\/sec:/ { v = $2; u = v + 0; if (v ~ /GB$/) u *= 1024; else if (v ~ /KB$/) u /= 1024; t[i] = u }
        END { printf "| %d | %d | %.1f | %.0f | %.1f | %.0f | %.2f |\n", size - p, c, r[1], t[1], r[2], t[2], (r[2] > 0 ? r[1] / r[2] : 0) }' \
        <(echo "$s"; echo "$n")
}
echo "pack: $SIZE bytes"
echo
echo "| bytes per reply | connections | serve req/s | serve MB/s | nginx req/s | nginx MB/s | serve / nginx |"
echo "|---|---|---|---|---|---|---|"
for c in 1 8; do
    wrk_row $((SIZE - 65536)) "$c"
    wrk_row 0 "$c"
done
echo
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
