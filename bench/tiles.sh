#!/bin/bash
# tiles.sh -- tile serving throughput: wrk on /getTileI/ over keep-alive
# against build/mareplotd, and the same tile bytes served as a static file by
# nginx on another loopback port, side by side at 1, 8 and 64 connections.
#
# Usage: bench/tiles.sh [build-dir] [seconds-per-run] [rounds]
# Installs wrk, nginx-light and sqlite3 when missing (Debian). Takes the port
# lock, since the host binds the fixed port 19999. Prints a Markdown table.
#
# On a busy machine one run of each says little: with rounds above 1, each
# connection count runs host and nginx alternately that many times and the
# table gives the medians (the ratio is that of the median req/s), with the
# load average before and after.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${1:-$ROOT/build}
SECS=${2:-10}
ROUNDS=${3:-1}
HOSTBIN=$BUILD/mareplotd
NGINX_PORT=19989
TILE_SIZE=2192       # the size of a typical base-pack tile
KEY=3298535931904    # zoom 3, y 1, x 0

need=""
command -v wrk >/dev/null || need="$need wrk"
command -v nginx >/dev/null || need="$need nginx-light"
command -v sqlite3 >/dev/null || need="$need sqlite3"
if [ -n "$need" ]; then
    SUDO=$([ "$(id -u)" = 0 ] || echo sudo)
    $SUDO apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends $need
fi
[ -x "$HOSTBIN" ] || { echo "build $HOSTBIN first" >&2; exit 1; }

. "$ROOT/bench/scratch.sh"
HOST_PID=""
NGINX_PID=""
bench_scratch tilebench HOST_PID NGINX_PID

# One tile: PNG signature and random bytes, the same file for both servers.
DATA=$WORK/home/.local/share/mareplot
mkdir -p "$DATA" "$WORK/www/getTileI/A000009" "$WORK/nginx"
{ printf '\211PNG\r\n\032\n'; head -c $((TILE_SIZE - 8)) /dev/urandom; } > "$WORK/tile.png"
cp "$WORK/tile.png" "$WORK/www/getTileI/A000009/$KEY"
chmod -R a+rX "$WORK"   # nginx workers may run as another user
sqlite3 "$DATA/A000009.marepack" <<SQL
PRAGMA page_size=1024;
CREATE TABLE kvt (k TEXT,v TEXT,t INTEGER, l TEXT);
CREATE INDEX i_kv_lk ON kvt(l,k) ;
CREATE TABLE tiles (verid INTEGER, zyx INTEGER PRIMARY KEY, png BLOB);
INSERT INTO tiles (zyx,png) VALUES ($KEY, readfile('$WORK/tile.png'));
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<6000)
INSERT INTO tiles (zyx,png) SELECT $KEY + i, randomblob($TILE_SIZE) FROM n;
SQL

. "$ROOT/bench/nginx_peer.sh"
nginx_peer_conf "$WORK" "$NGINX_PORT" "$WORK/www" image/png

# CPU clock ticks (user and system) used so far by the given processes.
cpu_ticks() {
    local t=0 pid
    for pid in "$@"; do
        t=$((t + $(awk '{ sub(/.*\) /, ""); print $12 + $13 }' "/proc/$pid/stat")))
    done
    echo "$t"
}

# wrk --latency: prints "Requests/sec:" and the 50% and 99% lines; a line
# "cpu-us-per-request: N" is added, the server's CPU time (all of the given
# processes) per request served, which the other work on a shared machine
# does not change much.
run_wrk() { # url connections server-pids...
    local url=$1 c=$2 threads=$(( $2 < 2 ? 1 : 2 ))
    shift 2
    local before out
    before=$(cpu_ticks "$@")
    out=$(wrk -t"$threads" -c"$c" -d"${SECS}s" --latency "$url" 2>&1)
    echo "$out"
    awk -v t=$(( $(cpu_ticks "$@") - before )) -v hz="$(getconf CLK_TCK)" \
        '/ requests in / { printf "cpu-us-per-request: %.1f\n", ($1 > 0 ? t * 1000000 / hz / $1 : 0) }' <<<"$out"
}
field() { # output label
    case "$2" in
    rps) awk '/^Requests\/sec:/ {print $2}' <<<"$1" ;;
    p50) awk '$1=="50%" {print $2}' <<<"$1" ;;
    p99) awk '$1=="99%" {print $2}' <<<"$1" ;;
    cpu) awk '/^cpu-us-per-request:/ {print $2}' <<<"$1" ;;
    esac
}

# Median of one field over several wrk outputs: median OUT... -- LABEL.
# Times ("812.00us", "1.20ms", "1.13s") are compared in microseconds and
# printed as wrk prints them.
median() {
    local label=${*: -1} vals=() out
    for out in "${@:1:$#-2}"; do vals+=("$(field "$out" "$label")"); done
    printf '%s\n' "${vals[@]}" | awk '
        { v = $1; u = v + 0
          if (v ~ /us$/) u = u; else if (v ~ /ms$/) u *= 1000; else if (v ~ /s$/) u *= 1000000
          key[NR] = u; text[NR] = v }
        END { for (i = 1; i <= NR; i++) for (j = i + 1; j <= NR; j++)
                  if (key[j] < key[i]) { t = key[i]; key[i] = key[j]; key[j] = t; t = text[i]; text[i] = text[j]; text[j] = t }
              print text[int((NR + 1) / 2)] }'
}

bench() {
    nginx -c "$WORK/nginx/nginx.conf" -p "$WORK/nginx" &
    NGINX_PID=$!
    HOME=$WORK/home "$HOSTBIN" > "$WORK/host.log" 2>&1 &
    HOST_PID=$!
    for _ in $(seq 50); do
        curl -s -o /dev/null http://127.0.0.1:19999/hostversion &&
            curl -s -o /dev/null "http://127.0.0.1:$NGINX_PORT/" && break
        sleep 0.1
    done
    curl -s "http://127.0.0.1:19999/getSetState/chartdb=A000009.marepack" > "$WORK/select.txt"
    grep -q '^000 ' "$WORK/select.txt" || { echo "pack not selected: $(cat "$WORK/select.txt")" >&2; exit 1; }
    local url="http://127.0.0.1:19999/getTileI/A000009/$KEY"
    local ref="http://127.0.0.1:$NGINX_PORT/getTileI/A000009/$KEY"
    cmp -s <(curl -s "$url") "$WORK/tile.png" || { echo "host tile differs" >&2; exit 1; }
    cmp -s <(curl -s "$ref") "$WORK/tile.png" || { echo "nginx tile differs: $(cat "$WORK/nginx/error.log")" >&2; exit 1; }

    echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"
    echo
    echo "| connections | mareplotd req/s | p50 | p99 | nginx req/s | p50 | p99 | ratio |"
    echo "|---|---|---|---|---|---|---|---|"
    local nginx_pids cpu_rows=""
    nginx_pids="$NGINX_PID $(pgrep -P "$NGINX_PID" | tr '\n' ' ')"
    for c in 1 8 64; do
        local hs=() ns=()
        for _ in $(seq "$ROUNDS"); do
            hs+=("$(run_wrk "$url" "$c" "$HOST_PID")")
            # shellcheck disable=SC2086
            ns+=("$(run_wrk "$ref" "$c" $nginx_pids)")
        done
        hr=$(median "${hs[@]}" -- rps); nr=$(median "${ns[@]}" -- rps)
        ratio=$(awk -v a="$hr" -v b="$nr" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }')
        echo "| $c | $hr | $(median "${hs[@]}" -- p50) | $(median "${hs[@]}" -- p99) |" \
            "$nr | $(median "${ns[@]}" -- p50) | $(median "${ns[@]}" -- p99) | $ratio |"
        hc=$(median "${hs[@]}" -- cpu); nc=$(median "${ns[@]}" -- cpu)
        cpu_rows+="| $c | $hc | $nc | $(awk -v a="$hc" -v b="$nc" 'BEGIN { printf "%.2f", (a > 0 ? b / a : 0) }') |"$'\n'
    done
    echo
    echo "Server CPU time per request (user and system, microseconds):"
    echo
    echo "| connections | mareplotd | nginx | nginx / mareplotd |"
    echo "|---|---|---|---|"
    printf '%s' "$cpu_rows"
    echo
    echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"
}

# The host binds the fixed port: outside a loopback of its own
# (tests/support/isolate.sh), hold the lock that the black-box tests use.
if [ "${MAREPLOT_NETNS:-}" != 1 ]; then
    exec 9>/tmp/mareplot-port.lock
    flock 9
fi
bench
