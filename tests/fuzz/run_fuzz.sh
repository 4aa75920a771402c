#!/bin/sh
# run_fuzz.sh PROGRAM SECONDS SEEDS ARTIFACTS
#
# Runs a libFuzzer target over its seed corpus, then fuzzes from there for
# SECONDS. What it finds new goes to a temporary folder, never into SEEDS;
# an input that fails is kept in ARTIFACTS, and its path is printed.
set -u
[ $# -eq 4 ] || { echo "usage: run_fuzz.sh PROGRAM SECONDS SEEDS ARTIFACTS" >&2; exit 2; }
PROGRAM=$1 SECONDS=$2 SEEDS=$3 ARTIFACTS=$4
[ -x "$PROGRAM" ] || { echo "run_fuzz: no fuzz target at $PROGRAM (build first)" >&2; exit 2; }
[ -d "$SEEDS" ] || { echo "run_fuzz: no seed corpus at $SEEDS" >&2; exit 2; }
mkdir -p "$ARTIFACTS" || exit 2
TMP=$(mktemp -d "${TMPDIR:-/tmp}/fuzz.XXXXXX") || exit 2
trap 'rm -rf "$TMP"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
NAME=$(basename "$PROGRAM")
# Five seconds of one input is a hang; 2 GiB is a leak or a runaway size.
"$PROGRAM" -seed=1 -max_total_time="$SECONDS" -timeout=5 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$ARTIFACTS/$NAME-" "$TMP" "$SEEDS"
