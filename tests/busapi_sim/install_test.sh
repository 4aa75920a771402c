#!/bin/sh
# tools/install-sim: installs and removes only its own library.
#   install_test.sh <install-sim> <library>
set -u
TOOL=$1 LIB=$2
ROOT=$(mktemp -d) || exit 1
trap 'rm -rf "$ROOT"' EXIT
export NXSIM_INSTALL_ROOT=$ROOT
TARGET=$ROOT/opt/norvex/common/busapi/2024-A/Deliverables/bin/libNXBusApiCan.so

fail() {
    echo "install_test: $*" >&2
    exit 1
}

mkdir -p "$ROOT/opt/other"
"$TOOL" install "$LIB" >/dev/null || fail "first install failed"
cmp -s "$LIB" "$TARGET" || fail "library not at the fixed path"
"$TOOL" install "$LIB" >/dev/null || fail "reinstalling its own library failed"

# Someone replaced the file: neither overwritten nor removed.
echo vendor >"$TARGET"
"$TOOL" install "$LIB" 2>/dev/null && fail "overwrote a library it did not install"
"$TOOL" uninstall 2>/dev/null && fail "removed a library it did not install"
[ "$(cat "$TARGET")" = vendor ] || fail "the other library was touched"

# Back to its own file: uninstall removes the file, the marker and the
# folders it made, and nothing else.
cp "$LIB" "$TARGET"
"$TOOL" uninstall >/dev/null || fail "uninstall failed"
[ ! -e "$TARGET" ] || fail "library left behind"
[ ! -e "$ROOT/opt/norvex" ] || fail "folders it created are left: $(find "$ROOT/opt/norvex")"
[ -d "$ROOT/opt/other" ] || fail "removed a folder it did not create"
"$TOOL" uninstall >/dev/null || fail "uninstall with nothing installed should succeed"

# A real installation present from the start is refused.
mkdir -p "$(dirname "$TARGET")"
echo vendor >"$TARGET"
"$TOOL" install "$LIB" 2>/dev/null && fail "overwrote a pre-existing library"
[ "$(cat "$TARGET")" = vendor ] || fail "the pre-existing library was touched"
echo "install_test: passed"
