#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer and runs every test.
# Any report fails the run: the sanitizers are built not to recover.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build-asan -DARP_SANITIZE=ON -DARP_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build-asan -j "$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build-asan --output-on-failure -j "$(nproc)"
scripts/skips.sh build-asan
