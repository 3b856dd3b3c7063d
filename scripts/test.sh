#!/usr/bin/env bash
# Sets up what is missing, builds everything and runs every test; then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer, a replay of the fuzz corpora, and the static
# checks. Any failure fails the run. Each stage says when it begins and how long it took.
#
#   scripts/test.sh           the whole run
#   scripts/test.sh --quick   a developer's loop: build, then the unit suites only
set -euo pipefail
cd "$(dirname "$0")/.."

run_start=$SECONDS
stage() {
    local name=$1 began=$SECONDS
    shift
    echo "== $name"
    if ! "$@"; then
        echo "== $name: FAILED after $((SECONDS - began)) s"
        return 1
    fi
    echo "== $name: done in $((SECONDS - began)) s (run so far $((SECONDS - run_start)) s)"
}

build() {
    cmake -S . -B build >/dev/null && cmake --build build -j "$(nproc)"
}

if [[ ${1:-} == --quick ]]; then
    stage "build" build
    stage "unit suites" ctest --test-dir build --output-on-failure -j "$(nproc)" \
        -L 'host|wire|store|driver'
    scripts/skips.sh build
    exit
fi

stage "set-up" scripts/install-deps.sh
stage "build" build
stage "every test" ctest --test-dir build --output-on-failure -j "$(nproc)"
scripts/skips.sh build
stage "every test under the sanitizers" scripts/sanitize.sh
stage "fuzz corpora replay" scripts/fuzz.sh replay
stage "static checks" scripts/tidy.sh
echo "== all passed in $((SECONDS - run_start)) s"
