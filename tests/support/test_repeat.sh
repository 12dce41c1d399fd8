#!/usr/bin/env bash
# test_repeat.sh BUILD_DIR N [CTEST ARGS...] -- runs the build's ctest suite N times under stress-ng CPU load,
# one line per run ("<passed> passed, <failed> failed", logs in BUILD_DIR/test-repeat/); exits 1 on a failure.
set -uo pipefail

usage='usage: test_repeat.sh BUILD_DIR N [CTEST ARGS...]'
build=${1:?$usage} runs=${2:?$usage}
shift 2
command -v stress-ng >/dev/null || { echo "test_repeat.sh: stress-ng is missing (make deps)" >&2; exit 2; }
logs="$build/test-repeat"
mkdir -p "$logs"
load=
trap '[ -n "$load" ] && kill "$load" 2>/dev/null' EXIT
trap 'exit 130' INT TERM

cores=$(nproc) times= bad=0
for i in $(seq 1 "$runs"); do
    stress-ng --cpu "$cores" --timeout 7200s --quiet &
    load=$!
    start=$(date +%s)
    (cd "$build" && ctest --output-on-failure "$@") >"$logs/run-$i.log" 2>&1
    times="${times:+$times, }$(( $(date +%s) - start )) s"
    kill "$load" 2>/dev/null; wait "$load" 2>/dev/null; load=
    # ctest's summary: "97% tests passed, 1 tests failed out of 40"
    summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$logs/run-$i.log" | tail -1)
    if [[ $summary =~ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]]; then
        failed=${BASH_REMATCH[1]}
        echo "$((BASH_REMATCH[2] - failed)) passed, $failed failed"
    else
        failed=1
        echo "0 passed, 1 failed"
    fi
    [ "$failed" = 0 ] || bad=1
done
echo "load: stress-ng --cpu $cores; time per run: $times; logs in $logs/"
exit $bad
