#!/usr/bin/env bash
# Sets up what is missing, builds everything and runs every test; then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer, a replay of the fuzz corpora, and the static
# checks. Any failure fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build
cmake --build build -j "$(nproc)"
ctest --test-dir build --output-on-failure -j "$(nproc)"

scripts/sanitize.sh
scripts/fuzz.sh replay
TIDY_BUILD_DIR=build scripts/tidy.sh
