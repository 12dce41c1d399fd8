#!/bin/bash
# soak.sh -- the host under a long mixed load: wrk with 64 connections over
# tiles of the base chart pack, status posts (which carry the AIS rows queued
# since the last one), SQL gateway reads on the trip database and the chart
# pack, and gazetteer lookups, while nmea_replay plays the demo voyage (own
# ship and AIS traffic) as fast as it can and the track is recorded.
#
# Usage: bench/soak.sh [build-dir] [seconds] [connections]   (60 and 64)
#
# Reports wrk's errors, the host's resident memory sampled each second (the
# first 10 s are warm-up; after that it must stay within 5 MB) and its
# thread count before the load and once the load has ended (it must come
# back to the idle figure). Exits 1 when any of the three fails. Takes the
# port lock outside a loopback of its own (tests/support/isolate.sh).
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${1:-$ROOT/build}
SECS=${2:-60}
CONNS=${3:-64}
WARMUP=10
RSS_LIMIT_KB=5120
HOSTBIN=$BUILD/mareplotd
REPLAY=$BUILD/nmea_replay
PACK=$BUILD/packs/A000002.marepack
for f in "$HOSTBIN" "$REPLAY" "$PACK"; do [ -e "$f" ] || { echo "build $f first" >&2; exit 1; }; done
for t in wrk sqlite3 curl node; do command -v $t >/dev/null || { echo "$t is needed" >&2; exit 1; }; done

. "$ROOT/bench/scratch.sh"
HOST_PID=""
REPLAY_PID=""
SAMPLER_PID=""
bench_scratch soak SAMPLER_PID REPLAY_PID HOST_PID

if [ "${MAREPLOT_NETNS:-}" != 1 ]; then
    exec 9>/tmp/mareplot-port.lock
    flock 9
fi

status_of() { awk -v k="$2:" '$1 == k {print $2}' "/proc/$1/status"; }

# ---- the host, its chart pack and the feed ----
HOME=$WORK "$HOSTBIN" > "$WORK/host.log" 2>&1 &
HOST_PID=$!
bench_wait_host 100
curl -s http://127.0.0.1:19999/getSetState/chartdb=A000002.marepack | grep -q '^000 ' ||
    { echo "chart pack not selected" >&2; exit 1; }

node "$ROOT/tools/demo_voyage.js" "$WORK/voyage.nmea"
"$REPLAY" -p 0 -r 4000 -l "$WORK/voyage.nmea" > "$WORK/replay.log" 2>&1 &
REPLAY_PID=$!
for _ in $(seq 50); do
    FEED_PORT=$(sed -n 's/^nmea_replay: serving .* on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$WORK/replay.log")
    [ -n "$FEED_PORT" ] && break
    sleep 0.1
done
[ -n "${FEED_PORT:-}" ] || { echo "nmea_replay did not start: $(cat "$WORK/replay.log")" >&2; exit 1; }
# track on every 50 m, then the feed
curl -s -o /dev/null --data-binary '*' http://127.0.0.1:19999/getSetHostStat/86400/50/1/4294967295
curl -s -o /dev/null "http://127.0.0.1:19999/setNmeaMode/0/1/1/127.0.0.1/$FEED_PORT/0"
for _ in $(seq 50); do
    curl -s --data-binary '*' http://127.0.0.1:19999/getSetHostStat/86400/50/1/4294967295 |
        grep -q '"nmea_stat":1' && break
    sleep 0.1
done

# ---- the request mix ----
TILES=$(sqlite3 "$PACK" "SELECT '\"' || zyx || '\"' FROM tiles WHERE (zyx >> 40) BETWEEN 5 AND 10 ORDER BY zyx LIMIT 400" | paste -sd,)
PLACES=$(sqlite3 "$PACK" "SELECT '\"' || x || '/' || y || '\"' FROM gaz ORDER BY rowid LIMIT 200" | paste -sd,)
cat > "$WORK/mix.lua" <<LUA
-- Per thread: half tiles, a fifth status posts, SQL reads and gazetteer
-- lookups for the rest, in a fixed rotation.
local tiles = { $TILES }
local places = { $PLACES }
local n = 0
request = function()
    n = n + 1
    local k = n % 20
    if k < 10 then
        return wrk.format("GET", "/getTileI/A000002/" .. tiles[math.random(#tiles)])
    elseif k < 14 then
        return wrk.format("POST", "/getSetHostStat/86400/50/1/4294967295", nil, "*")
    elseif k < 16 then
        return wrk.format("POST", "/UexecSql", nil, "SELECT x,y,ts FROM log ORDER BY id DESC LIMIT 20")
    elseif k < 17 then
        return wrk.format("POST", "/MexecSql", nil, "SELECT n,x,y FROM gaz WHERE r > 100 LIMIT 20")
    else
        return wrk.format("GET", "/gazetteer/" .. places[math.random(#places)] .. "/50000")
    end
end
LUA

# ---- the run ----
sleep 1
IDLE_THREADS=$(status_of "$HOST_PID" Threads)
(
    start=$(date +%s)
    while kill -0 "$HOST_PID" 2>/dev/null; do
        echo "$(($(date +%s) - start)) $(status_of "$HOST_PID" VmRSS) $(status_of "$HOST_PID" Threads)"
        sleep 1
    done
) > "$WORK/samples.txt" &
SAMPLER_PID=$!
wrk -t2 -c"$CONNS" -d"${SECS}s" --timeout 10s --latency -s "$WORK/mix.lua" http://127.0.0.1:19999 > "$WORK/wrk.txt" 2>&1 || true
kill "$SAMPLER_PID" 2>/dev/null || true
wait "$SAMPLER_PID" 2>/dev/null || true
SAMPLER_PID=""

# wrk has closed its connections: their threads end on the next read
AFTER_THREADS=$(status_of "$HOST_PID" Threads)
for _ in $(seq 100); do
    AFTER_THREADS=$(status_of "$HOST_PID" Threads)
    [ "$AFTER_THREADS" -le "$IDLE_THREADS" ] && break
    sleep 0.1
done
ALIVE=$(curl -s -o /dev/null -w '%{http_code}' http://127.0.0.1:19999/hostversion || true)
TRACK_ROWS=$(curl -s --data-binary "SELECT count(*) FROM log WHERE t=1" http://127.0.0.1:19999/UexecSql | tr -dc 0-9)

# ---- the figures ----
cat "$WORK/wrk.txt"
requests=$(awk '/requests in/ {print $1}' "$WORK/wrk.txt")
rps=$(awk '/^Requests\/sec:/ {print $2}' "$WORK/wrk.txt")
p99=$(awk '$1 == "99%" {print $2}' "$WORK/wrk.txt")
socket_errors=$(awk '/Socket errors:/ {gsub(",", ""); print $4 + $6 + $8 + $10}' "$WORK/wrk.txt")
non2xx=$(awk '/Non-2xx or 3xx responses:/ {print $5}' "$WORK/wrk.txt")
errors=$(( ${socket_errors:-0} + ${non2xx:-0} ))
read -r rss_warm rss_min rss_max rss_end < <(awk -v w=$WARMUP '
    $1 >= w && $2 != "" { if (first == "") first = $2; if (min == "" || $2 < min) min = $2;
                          if ($2 > max) max = $2; last = $2 }
    END { print first, min, max, last }' "$WORK/samples.txt")
max_threads=$(awk 'BEGIN { m = 0 } $3 > m { m = $3 } END { print m }' "$WORK/samples.txt")

echo
echo "| measure | value |"
echo "|---|---|"
echo "| requests in ${SECS} s, ${CONNS} connections | ${requests:-0} (${rps:-0}/s, p99 ${p99:-?}) |"
echo "| errors (socket errors and non-2xx replies) | $errors |"
echo "| RSS after ${WARMUP} s warm-up, min / max / at end (kB) | $rss_warm: $rss_min / $rss_max / $rss_end |"
echo "| RSS spread after warm-up (kB, limit $RSS_LIMIT_KB) | $((rss_max - rss_min)) |"
echo "| threads idle / under load (max) / after the load | $IDLE_THREADS / $max_threads / $AFTER_THREADS |"
echo "| track rows written meanwhile | $TRACK_ROWS |"
echo "| host answers afterwards | $ALIVE |"

fail=0
[ "$errors" -eq 0 ] || { echo "FAIL: $errors errors"; fail=1; }
[ $((rss_max - rss_min)) -le $RSS_LIMIT_KB ] || { echo "FAIL: RSS grew by $((rss_max - rss_min)) kB"; fail=1; }
[ "$AFTER_THREADS" -le "$IDLE_THREADS" ] || { echo "FAIL: $AFTER_THREADS threads, idle was $IDLE_THREADS"; fail=1; }
[ "$ALIVE" = 200 ] || { echo "FAIL: host does not answer"; fail=1; }
exit $fail
