#!/usr/bin/env bash
# Sets up what is missing, builds everything, and runs the controller simulator with the driver
# against this machine's real network. Extra arguments go to the simulator (see its --help).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build >/dev/null
cmake --build build -j "$(nproc)" >/dev/null

# The default gateway, watched as a unit by its address, shows a named row next to the hardware
# addresses that the sweep finds. It is pinged from the second sweep on, about 30 s in.
units=()
gateway=$(ip -4 route show default 2>/dev/null | awk '{ print $3; exit }')
[ -n "$gateway" ] && units=(--unit "1, gateway, $gateway")

# Without a terminal there are no keys to end the run, so it ends itself after two sweeps.
[ -t 0 ] && [ -t 1 ] || units+=(--for 70)
exec build/ambrelis-sim --port 0 "${units[@]}" "$@"
