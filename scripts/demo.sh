#!/usr/bin/env bash
# Sets up what is missing, builds the driver and shows its banner.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build >/dev/null
cmake --build build -j "$(nproc)" --target arp-presence >/dev/null
build/arp-presence banner
