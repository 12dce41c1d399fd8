#!/usr/bin/env bash
# isolate.sh COMMAND [ARGS...] -- runs a test with a loopback of its own (unshare -n, or -rn unless root), so
# no other host answers on 19999; without namespaces, under /tmp/mareplot-port.lock once 19999 is free.
set -uo pipefail

if [ "${MAREPLOT_NETNS:-}" = 1 ]; then
    exec "$@"
fi

inner='ip link set lo up || exit 97; export MAREPLOT_NETNS=1; exec "$@"'
if [ "$(id -u)" = 0 ] && unshare -n true 2>/dev/null; then
    exec unshare -n bash -c "$inner" isolate "$@"
fi
if unshare -rn true 2>/dev/null; then
    exec unshare -rn bash -c "$inner" isolate "$@"
fi

# Fallback: one test at a time on the machine's own loopback.
exec 9>/tmp/mareplot-port.lock
flock 9
if (exec 3<>/dev/tcp/127.0.0.1/19999) 2>/dev/null; then
    echo "isolate.sh: something already listens on 127.0.0.1:19999; stop it before running the tests" >&2
    exit 1
fi
"$@"
