#!/bin/sh
# The Ethernet examples, each briefly, on the simulated link (run under
# tools/with-sim-bus): the live monitor fed by the sender until it shows
# traffic, then the synchronised replay to its end. The scripts are run from
# copies that load the packages of this build.
#   ethernet_examples.sh VELDOR EXAMPLES_FOLDER PACKAGES_FOLDER
set -u
veldor=$1 examples=$2 packages=$3
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
fail() {
    echo "ethernet_examples: $*" >&2
    exit 1
}
for script in ethernet_monitor ethernet_sender ethernet_replay; do
    sed "s#^load \.\./build/packages/#load $packages/#" "$examples/$script.vdl" >"$out/$script.vdl" || exit 1
done

# Live monitoring, with traffic from the same launch, until the monitor has
# printed five datagrams (30 s at most: a loaded or instrumented build starts
# slowly).
"$veldor" run -q "$out/ethernet_sender.vdl" >"$out/sender.txt" 2>&1 &
sender=$!
"$veldor" run -q "$out/ethernet_monitor.vdl" >"$out/monitor.txt" 2>&1 &
monitor=$!
for _ in $(seq 150); do
    [ "$(grep -c UDP "$out/monitor.txt")" -ge 5 ] || ! kill -0 $monitor 2>/dev/null && break
    sleep 0.2
done
kill -INT $monitor $sender 2>/dev/null
wait $monitor || fail "the monitor failed: $(cat "$out/monitor.txt")"
wait $sender || fail "the sender failed: $(cat "$out/sender.txt")"
n=$(grep -c UDP "$out/monitor.txt")
[ "$n" -ge 5 ] || fail "the monitor printed $n datagrams: $(cat "$out/monitor.txt")"

# The synchronised replay: 30 segments of 10 messages, all on the link.
"$veldor" run -q "$out/ethernet_replay.vdl" >"$out/replay.txt" 2>&1 || fail "the replay failed: $(cat "$out/replay.txt")"
n=$(grep -c "SOME/IP 0x12348001" "$out/replay.txt")
[ "$n" -eq 30 ] || fail "the replay printed $n segments of 30: $(cat "$out/replay.txt")"
