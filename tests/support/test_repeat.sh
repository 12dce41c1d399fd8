#!/usr/bin/env bash
# test_repeat.sh -- runs a build directory's whole ctest suite N times under
# CPU load and prints one line per run: "<passed> passed, <failed> failed".
#
#   tests/support/test_repeat.sh BUILD_DIR N [CTEST ARGS...]
#
# The load is stress-ng with one CPU worker per core, started before each
# run and ended (by its own process id) after it; its timeout bounds it
# should this script be killed. Each run's ctest output goes to
# BUILD_DIR/test-repeat/run-<i>.log, and the time of each run is printed at
# the end. Exits 1 when any run had a failure.
set -uo pipefail

build=${1:?usage: test_repeat.sh BUILD_DIR N [CTEST ARGS...]}
runs=${2:?usage: test_repeat.sh BUILD_DIR N [CTEST ARGS...]}
shift 2
command -v stress-ng >/dev/null || { echo "test_repeat.sh: stress-ng is missing (make deps)" >&2; exit 2; }
logs="$build/test-repeat"
mkdir -p "$logs"

load=
stop_load() {
    if [ -n "$load" ]; then
        kill "$load" 2>/dev/null
        wait "$load" 2>/dev/null
        load=
    fi
}
trap stop_load EXIT
trap 'exit 130' INT TERM

cores=$(nproc)
times=
bad=0
for i in $(seq 1 "$runs"); do
    stress-ng --cpu "$cores" --timeout 7200s --quiet &
    load=$!
    start=$(date +%s)
    (cd "$build" && ctest --output-on-failure "$@") >"$logs/run-$i.log" 2>&1
    times="${times:+$times, }$(( $(date +%s) - start )) s"
    stop_load
    # ctest's summary: "97% tests passed, 1 tests failed out of 40"
    summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$logs/run-$i.log" | tail -1)
    if [ -z "$summary" ]; then
        echo "0 passed, 1 failed"
        bad=1
        continue
    fi
    failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$summary")
    total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$summary")
    echo "$((total - failed)) passed, $failed failed"
    [ "$failed" = 0 ] || bad=1
done
echo "load: stress-ng --cpu $cores; time per run: $times; logs in $logs/"
exit $bad
