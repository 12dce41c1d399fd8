#!/usr/bin/env bash
# isolate.sh -- runs one test command with a loopback network of its own.
#
#   tests/support/isolate.sh COMMAND [ARGS...]
#
# The hosts a test starts bind 127.0.0.1:19999. In a network namespace of
# the test's own (unshare -n as root, unshare -rn where unprivileged user
# namespaces are allowed) nothing else on the machine can listen there or
# answer in their place, and tests may run side by side. Where neither kind
# of namespace can be made, the command runs under the port lock
# /tmp/mareplot-port.lock instead, and only once nothing answers on 19999.
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
