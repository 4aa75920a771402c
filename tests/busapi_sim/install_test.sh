#!/bin/sh
# tools/install-sim: installs and removes only its own libraries.
#   install_test.sh <install-sim> <list of simulated libraries>
set -u
TOOL=$1 LIST=$2
ROOT=$(mktemp -d) || exit 1
trap 'rm -rf "$ROOT"' EXIT
export NXSIM_INSTALL_ROOT=$ROOT
read -r LIB FIXED <"$LIST"
TARGET=$ROOT$FIXED
TOP=$ROOT/$(echo "$FIXED" | cut -d/ -f2-3)

fail() {
    echo "install_test: $*" >&2
    exit 1
}
all_installed() {
    while read -r lib fixed; do cmp -s "$lib" "$ROOT$fixed" || return 1; done <"$LIST"
}

mkdir -p "$ROOT/opt/other"
"$TOOL" install "$LIST" >/dev/null || fail "first install failed"
all_installed || fail "a library is not at its fixed path"
"$TOOL" install "$LIST" >/dev/null || fail "reinstalling its own libraries failed"

# Someone replaced a file: neither overwritten nor removed.
echo vendor >"$TARGET"
"$TOOL" install "$LIST" 2>/dev/null && fail "overwrote a library it did not install"
"$TOOL" uninstall "$LIST" 2>/dev/null && fail "removed a library it did not install"
[ "$(cat "$TARGET")" = vendor ] || fail "the other library was touched"

# Back to its own file: uninstall removes the files, the markers and the
# folders it made, and nothing else.
cp "$LIB" "$TARGET"
"$TOOL" uninstall "$LIST" >/dev/null || fail "uninstall failed"
[ ! -e "$TARGET" ] || fail "library left behind"
[ ! -e "$TOP" ] || fail "folders it created are left: $(find "$TOP")"
[ -d "$ROOT/opt/other" ] || fail "removed a folder it did not create"
"$TOOL" uninstall "$LIST" >/dev/null || fail "uninstall with nothing installed should succeed"

# A real installation present from the start is refused, and nothing of
# the simulator is put beside it.
mkdir -p "$(dirname "$TARGET")"
echo vendor >"$TARGET"
"$TOOL" install "$LIST" 2>/dev/null && fail "overwrote a pre-existing library"
[ "$(cat "$TARGET")" = vendor ] || fail "the pre-existing library was touched"
[ "$(ls -A "$(dirname "$TARGET")")" = "$(basename "$TARGET")" ] || fail "installed beside a refused library"
echo "install_test: passed"
