#!/bin/sh
# tools/with-sim-bus: inside, the simulator is at the fixed path and loads;
# outside, nothing has changed.
#   launcher_test.sh <with-sim-bus> <library> <nxsim_load_probe>
set -u
LAUNCHER=$1 LIB=$2 PROBE=$3
FIXED=/opt/norvex/common/busapi/2024-A/Deliverables/bin/libNXBusApiCan.so

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

out=$("$LAUNCHER" --lib "$LIB" -- sh -c '
    cmp -s "$1" "$2" || { echo "not at the fixed path"; exit 1; }
    for f in $3; do [ -e "$f" ] || { echo "$f hidden by the overlay"; exit 1; }; done
    exec "$4" "$1"' sh "$FIXED" "$LIB" "$(ls -d /opt/* 2>/dev/null | grep -v '^/opt/norvex$')" "$PROBE" 2>&1)
rc=$?
[ $rc -eq 77 ] && { echo "$out"; exit 77; }
[ $rc -eq 0 ] || fail "inside the launcher (exit $rc): $out"
[ "$out" = ok ] || fail "probe said: $out"

# A command's own exit status passes through.
"$LAUNCHER" --lib "$LIB" -- sh -c 'exit 5'
[ $? -eq 5 ] || fail "exit status of the command was not passed on"

after=$(state)
[ "$before" = "$after" ] || fail "the machine changed: $(printf '%s\n' "$before" >"$TMPDIR/a"; printf '%s\n' "$after" | diff "$TMPDIR/a" -)"
[ -z "$(ls -A "$TMPDIR")" ] || fail "temporary files left: $(ls -A "$TMPDIR")"
echo "launcher_test: passed"
