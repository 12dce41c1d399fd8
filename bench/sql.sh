#!/bin/bash
# sql.sh -- the SQL gateway on a large result: "SELECT x,y,ts FROM log" over
# 100000 log rows, as JSON through POST /UexecSql, timed per reply.
#
# Usage: bench/sql.sh [build-dir] [repetitions]
# Takes the port lock, since the host binds the fixed port 19999. Prints the
# reply size and the fastest, median and slowest reply times.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${1:-$ROOT/build}
REPS=${2:-20}
HOSTBIN=$BUILD/mareplotd
ROWS=100000
[ -x "$HOSTBIN" ] || { echo "build $HOSTBIN first" >&2; exit 1; }

. "$ROOT/bench/scratch.sh"
HOST_PID=""
bench_scratch sqlbench HOST_PID

exec 9>/tmp/mareplot-port.lock
flock 9

HOME=$WORK "$HOSTBIN" > "$WORK/host.log" 2>&1 &
HOST_PID=$!
bench_wait_host 50
# A track of ROWS points, filled through the gateway itself.
fill="WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE i<$ROWS)
INSERT INTO log (ts,x,y,t,v) SELECT 1600000000+i*10, 10.0+i*0.00001, 54.0+i*0.000007, 1, '' FROM n"
[ "$(curl -s --data-binary "$fill" http://127.0.0.1:19999/UexecSql)" = OK ] || { echo "fill failed" >&2; exit 1; }

times=()
for _ in $(seq "$REPS"); do
    t=$(curl -s -o "$WORK/reply.json" -w '%{time_total}' --data-binary "SELECT x,y,ts FROM log" \
        http://127.0.0.1:19999/UexecSql)
    times+=("$t")
done
node -e 'JSON.parse(require("fs").readFileSync(process.argv[1], "utf8"))' "$WORK/reply.json" 2>/dev/null \
    && valid=yes || valid="no (node missing or reply not JSON)"
printf '%s\n' "${times[@]}" | sort -n | awk -v size="$(stat -c %s "$WORK/reply.json")" -v rows=$ROWS -v valid="$valid" '
    { t[NR] = $1 * 1000 }
    END {
        printf "rows %d, reply %d bytes, valid JSON: %s\n", rows, size, valid
        printf "reply time over %d runs: min %.1f ms, median %.1f ms, max %.1f ms\n", NR, t[1], t[int((NR + 1) / 2)], t[NR]
    }'
