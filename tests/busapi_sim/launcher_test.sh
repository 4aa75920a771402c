#!/bin/sh
# tools/with-sim-bus: inside, the simulated libraries are at their fixed
# paths and the CAN one loads; outside, nothing has changed.
#   launcher_test.sh <with-sim-bus> <list of simulated libraries> <nxsim_load_probe>
set -u
LAUNCHER=$1 LIST=$2 PROBE=$3
LIB=$(sed -n 's/^\(.*libNXBusApiCan.so\) .*/\1/p' "$LIST")
FIXED=$(sed -n 's/^.*libNXBusApiCan.so \(.*\)/\1/p' "$LIST")

fail() {
    echo "launcher_test: $*" >&2
    exit 1
}
state() {
    ls -la /opt 2>&1
    ls -la "$(dirname "$FIXED")" 2>&1
    [ -e "$FIXED" ] && sha256sum "$FIXED"
    cut -d' ' -f5 /proc/self/mountinfo | sort
}

TMPDIR=$(mktemp -d) || exit 1
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
before=$(state)

out=$("$LAUNCHER" --libraries "$LIST" -- sh -c '
    while read -r lib fixed; do cmp -s "$lib" "$fixed" || { echo "$lib not at $fixed"; exit 1; }; done <"$5"
    for f in $3; do [ -e "$f" ] || { echo "$f hidden by the overlay"; exit 1; }; done
    exec "$4" "$1"' sh "$FIXED" "$LIB" "$(ls -d /opt/* 2>/dev/null | grep -v '^/opt/norvex$')" "$PROBE" "$LIST" 2>&1)
rc=$?
[ $rc -eq 77 ] && { echo "$out"; exit 77; }
[ $rc -eq 0 ] || fail "inside the launcher (exit $rc): $out"
[ "$out" = ok ] || fail "probe said: $out"

# A command's own exit status passes through.
"$LAUNCHER" --libraries "$LIST" -- sh -c 'exit 5'
[ $? -eq 5 ] || fail "exit status of the command was not passed on"

# A command killed before it removed its buses leaves none behind.
ns=$("$LAUNCHER" --libraries "$LIST" -- sh -c '
    : >/dev/shm/nxbusapi-sim.$NXBUSAPI_SIM_NAMESPACE.CAN1
    : >/dev/shm/nxbusapi-sim.$NXBUSAPI_SIM_NAMESPACE@ethernet
    echo "$NXBUSAPI_SIM_NAMESPACE"
    kill -9 $$')
[ -n "$ns" ] || fail "no bus namespace given to the command"
left=$(ls /dev/shm | grep -F "nxbusapi-sim.$ns")
[ -z "$left" ] || fail "a killed command's buses were left: $left"

after=$(state)
[ "$before" = "$after" ] || fail "the machine changed: $(printf '%s\n' "$before" >"$TMPDIR/a"; printf '%s\n' "$after" | diff "$TMPDIR/a" -)"
[ -z "$(ls -A "$TMPDIR")" ] || fail "temporary files left: $(ls -A "$TMPDIR")"
echo "launcher_test: passed"
