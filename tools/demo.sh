#!/bin/sh
# demo.sh: a moving scene for a first look. Writes the demo voyage, serves it
# in a loop over TCP on 127.0.0.1:10110 and starts the host with its own data
# directory (build/demo/home), whose settings already read position and AIS
# from that port. With a display the desktop program opens; without one the
# headless host runs and the page is opened in a browser.
#
#   tools/demo.sh [build-dir]
set -eu
BUILD=${1:-build}
PORT=10110
DEMO="$BUILD/demo"
mkdir -p "$DEMO/home"
node tools/demo_voyage.js "$DEMO/voyage.nmea"

PIDS=""
cleanup() {
    for p in $PIDS; do kill "$p" 2>/dev/null || true; done
}
trap cleanup EXIT INT TERM

"$BUILD/nmea_replay" -p "$PORT" -l "$DEMO/voyage.nmea" &
PIDS="$PIDS $!"

HOME=$(cd "$DEMO/home" && pwd)
export HOME
if { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; } && [ -x "$BUILD/mareplot" ]; then
    [ "$(id -u)" = 0 ] && export QTWEBENGINE_DISABLE_SANDBOX=1
    "$BUILD/mareplot" &
else
    "$BUILD/mareplotd" &
fi
HOSTPID=$!
PIDS="$PIDS $HOSTPID"

# Wait for the host, then give a fresh data directory the demo's inputs:
# position from NMEA RMC, input over the network from the replay port.
i=0
until curl -s -o /dev/null http://127.0.0.1:19999/hostversion; do
    i=$((i + 1))
    if [ $i -gt 100 ] || ! kill -0 "$HOSTPID" 2>/dev/null; then
        echo "The host did not start (is port 19999 taken?)." >&2
        exit 1
    fi
    sleep 0.1
done
case "$(curl -s http://127.0.0.1:19999/getValue/settings)" in
"{"*) ;;
*)
    curl -s -o /dev/null --data-binary \
        "{\"I\":{\"i_gps_source\":1,\"i_nmea_source\":1,\"i_traffic_ais_source\":1},\"V\":{\"i_traffic_ais_ip\":\"127.0.0.1\",\"i_traffic_ais_port\":\"$PORT\",\"i_traffic_ais_ip1\":\"127.0.0.1\",\"i_traffic_ais_port1\":\"$PORT\"}}" \
        http://127.0.0.1:19999/setValue/settings
    ;;
esac

cat <<TXT

  The demo voyage runs: an own ship circling in Kiel Bay at 10 knots, twelve
  AIS vessels, a fairway beacon and a SART test, replayed in a loop from
  127.0.0.1:$PORT.

  Page: http://127.0.0.1:19999/app/marepack.html
  The demo's settings already read the network input. To use it elsewhere,
  choose in Settings > Boat: Position source "NMEA RMC", NMEA input "WiFi",
  address 127.0.0.1, port $PORT.

  Ctrl-C ends the demo.
TXT
wait "$HOSTPID"
