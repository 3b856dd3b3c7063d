#!/usr/bin/env bash
# Runs clang-tidy, with the checks in .clang-tidy, over the product code: host wire store core
# link scan, and tools when it exists. Fails on any warning.
#
#   scripts/tidy.sh [dir...]    only these source folders (default: all of the above)
#   TIDY_BUILD_DIR=build-x      build dir of the compilation database (default build-tidy),
#                               configured without precompiled headers
#   TIDY_JOBS=4                 parallel clang-tidy processes (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${TIDY_BUILD_DIR:-build-tidy}
jobs=${TIDY_JOBS:-2}

tidy=$(command -v clang-tidy-14 || command -v clang-tidy || true)
if [[ -z $tidy ]]; then
    echo "tidy: clang-tidy not found (apt-get install clang-tidy)" >&2
    exit 2
fi

# Only the compilation database is needed, so a new build dir leaves tests and benchmarks out.
# An existing one is configured again, which is quick and picks up added sources. clang-tidy
# cannot read the compiler's precompiled headers, so the database is made without them.
if [[ -f $build/CMakeCache.txt ]]; then
    cmake -S . -B "$build" -DARP_PRECOMPILED_HEADERS=OFF >/dev/null
else
    cmake -S . -B "$build" -DARP_BUILD_TESTS=OFF -DARP_BUILD_BENCHMARKS=OFF \
        -DARP_PRECOMPILED_HEADERS=OFF >/dev/null
fi
database=$build/compile_commands.json

if (($# == 0)); then
    set -- host wire store core link scan tools
fi
dirs=()
for dir in "$@"; do
    if [[ -d $dir ]]; then
        dirs+=("${dir%/}")
    fi
done
if ((${#dirs[@]} == 0)); then
    echo "tidy: no source folder to check" >&2
    exit 2
fi
mapfile -t files < <(find "${dirs[@]}" -name '*.cpp' | sort)

# A source that no target compiles would be skipped without a word; say so and fail instead.
missing=0
for file in "${files[@]}"; do
    if ! grep -qF "\"file\": \"$root/$file\"" "$database"; then
        echo "tidy: $file is not in $database (no target builds it)" >&2
        missing=$((missing + 1))
    fi
done

log=$(mktemp)
trap 'rm -f "$log"' EXIT
start=$SECONDS
status=0
if command -v run-clang-tidy-14 >/dev/null; then
    patterns=()
    for file in "${files[@]}"; do
        patterns+=("^$(printf '%s' "$root/$file" | sed 's/[][\.*^$+?(){}|]/\\&/g')\$")
    done
    run-clang-tidy-14 -clang-tidy-binary "$tidy" -p "$build" -j "$jobs" -quiet "${patterns[@]}" \
        >"$log" 2>&1 || status=$?
else
    printf '%s\n' "${files[@]/#/$root/}" | xargs -P "$jobs" -n 1 "$tidy" -p "$build" --quiet \
        >"$log" 2>&1 || status=$?
fi
seconds=$((SECONDS - start))
# run-clang-tidy asks for colour whatever the output is.
sed -i 's/\x1b\[[0-9;]*m//g' "$log"

# The invocations and the per-file tallies are noise; the diagnostics and their context are not.
grep -vE "^$tidy |^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$" "$log" || true

# A header's warning comes once for every file that includes it: count places, not reports.
warnings=$({ grep -E '^[^ ]+:[0-9]+:[0-9]+: (warning|error): ' "$log" || true; } | sort -u | wc -l)
echo "tidy: ${#files[@]} files checked, $warnings warnings, ${seconds}s"
if ((warnings != 0 || missing != 0 || status != 0)); then
    ((warnings != 0 || missing != 0)) || echo "tidy: clang-tidy failed (exit $status)" >&2
    exit 1
fi
