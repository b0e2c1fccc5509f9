#!/usr/bin/env bash
# The demo: builds what it needs (if missing), starts rux-sim on a private socket, runs
# the example application against it (one registration, a few requests and queries) and
# shows both sides: the application's callbacks and the simulator's decoded requests.
# Usage: scripts/demo.sh [build-dir]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"

if [[ ! -x "$build/tools/rux-sim/rux-sim" || ! -x "$build/examples/hello_rux_cpp" ]]; then
    "$root/scripts/install-deps.sh"
    cmake -S "$root" -B "$build" -G Ninja -DRUX_WERROR=ON >/dev/null
    cmake --build "$build" --target rux-sim hello_rux_cpp
fi

work="$(mktemp -d /tmp/rux-demo.XXXXXX)"
socket="$work/rux.sock"
log="$work/rux-sim.log"
mkfifo "$work/control"
cleanup() {
    exec 3>&- 2>/dev/null || true
    [[ -n "${sim:-}" ]] && wait "$sim" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# The simulator reads control lines from the fifo and stops when it is closed.
"$build/tools/rux-sim/rux-sim" --socket "$socket" --log "$log" --stdin \
    --command "value hst-state HST_STATE_SET" <"$work/control" >"$work/stdout" &
sim=$!
exec 3>"$work/control"
for _ in $(seq 100); do
    grep -q '^ready' "$work/stdout" 2>/dev/null && break
    kill -0 "$sim" 2>/dev/null || { echo "demo: rux-sim did not start" >&2; exit 1; }
    sleep 0.05
done

echo "== application (examples/hello_rux.cpp) =="
status=0
RUX_SOCKET_PATH="$socket" "$build/examples/hello_rux_cpp" 2>/dev/null || status=$?

exec 3>&-
wait "$sim" || true
sim=
echo
echo "== rux-sim: what the service saw and answered =="
cat "$log"
exit "$status"
