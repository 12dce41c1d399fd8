# scratch.sh -- sourced by the host benchmarks: one scratch directory for
# a run and the background processes started into it, all gone when the
# script exits, however it exits.

# bench_scratch NAME VAR...: makes WORK, a fresh /tmp/mareplot-NAME-XXXXXX.
# At exit the processes whose pids the variables VAR then hold are killed
# and waited for, and WORK is removed; an empty or unset VAR is passed over.
bench_scratch() {
    WORK=$(mktemp -d "/tmp/mareplot-$1-XXXXXX")
    shift
    BENCH_PID_VARS="$*"
    trap bench_cleanup EXIT
}

bench_cleanup() {
    local v
    for v in $BENCH_PID_VARS; do
        if [ -n "${!v:-}" ]; then kill "${!v}" 2>/dev/null || true; fi
    done
    wait 2>/dev/null || true
    rm -rf "$WORK"
}

# bench_wait_host TRIES: polls the host on 127.0.0.1:19999 every 0.1 s
# until it answers, TRIES times at most. Returns 0 either way: the first
# request of the caller then says what went wrong.
bench_wait_host() {
    for _ in $(seq "$1"); do
        curl -s -o /dev/null http://127.0.0.1:19999/hostversion && return 0
        sleep 0.1
    done
    return 0
}
