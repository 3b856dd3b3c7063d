#!/usr/bin/env bash
# Says why each test of the last ctest run in BUILD_DIR was skipped: ctest itself shows only
# "Skipped".
#
#   scripts/skips.sh BUILD_DIR
set -euo pipefail
log=${1:?usage: scripts/skips.sh BUILD_DIR}/Testing/Temporary/LastTest.log
[ -f "$log" ] || exit 0
awk '
    /^\[ RUN      \] / { test = $4 }
    reason { print "skipped: " test ": " $0; reason = 0 }
    /: Skipped$/ { reason = 1 }
' "$log"
