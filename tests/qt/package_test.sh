#!/usr/bin/env bash
# Builds the .deb with CPack, unpacks it with dpkg -x into a temporary root and starts both of its
# programs there: each must answer on 127.0.0.1:19999. Argument: the build directory.
set -euo pipefail
build=$1
work=$(mktemp -d /tmp/mareplot-deb-XXXXXX)
pids=()
# Ends a process and waits until it is gone, child of this shell or not.
stop() {
  kill "$1" 2>/dev/null || true
  for _ in $(seq 1 50); do kill -0 "$1" 2>/dev/null || break; sleep 0.1; done
  wait "$1" 2>/dev/null || true
}
cleanup() {
  # xvfb-run passes no signal on: the window's own process (its id noted at start) goes first
  if [ -s "$work/window.pid" ]; then stop "$(cat "$work/window.pid")"; fi
  for p in "${pids[@]}"; do stop "$p"; done
  # the web engine's helpers may still write their cache for a moment
  for _ in 1 2 3 4 5; do rm -rf "$work" 2>/dev/null && break; sleep 0.5; done
}
trap cleanup EXIT

fail() { echo "FAIL: $*"; exit 1; }

# Runs its arguments every 0.2 s until they succeed, for up to 30 s.
poll() {
  for _ in $(seq 1 150); do "$@" && return 0; sleep 0.2; done
  return 1
}
answers() { poll curl -sf -m 5 -o /dev/null http://127.0.0.1:19999/hostversion; }
# curl's 7: nothing listens on the port
port_free() { poll sh -c 'curl -s -m 2 -o /dev/null http://127.0.0.1:19999/; [ $? = 7 ]'; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1 \
  || { cat "$work/cpack.log"; fail "cpack"; }
deb=$(ls "$work"/out/*.deb)
[ "$(dpkg-deb -f "$deb" Package)" = mareplot ] || fail "package name"
dpkg -x "$deb" "$work/root"
for f in usr/bin/mareplotd usr/share/applications/mareplot.desktop \
         usr/share/icons/hicolor/scalable/apps/mareplot.svg; do
  [ -e "$work/root/$f" ] || fail "$f missing from the package"
done
if command -v desktop-file-validate >/dev/null; then
  desktop-file-validate "$work/root/usr/share/applications/mareplot.desktop"
fi

port_free || fail "port 19999 is taken"
mkdir -p "$work/home1"
HOME="$work/home1" "$work/root/usr/bin/mareplotd" >"$work/d.log" 2>&1 &
pids+=($!)
answers || { cat "$work/d.log"; fail "mareplotd from the package does not answer"; }
[ -s "$work/home1/.local/share/mareplot/A000001.marepack" ] || fail "mareplotd wrote no application pack"
kill "${pids[-1]}"; wait "${pids[-1]}" 2>/dev/null || true
port_free || fail "mareplotd did not let go of the port"

# the window, when it was built
if [ -x "$work/root/usr/bin/mareplot" ]; then
  mkdir -p "$work/home2"
  [ "$(id -u)" = 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1
  HOME="$work/home2" xvfb-run -a sh -c 'echo $$ >"$0"; exec "$1"' "$work/window.pid" \
    "$work/root/usr/bin/mareplot" >"$work/w.log" 2>&1 &
  pids+=($!)
  answers || { cat "$work/w.log"; fail "mareplot from the package does not answer"; }
  [ -s "$work/home2/.local/share/mareplot/A000002.marepack" ] || fail "mareplot wrote no chart pack"
fi
echo "package ok: $(basename "$deb")"
