#!/usr/bin/env bash
# Sets up what is missing, builds the driver and the simulator (Release, in build-demo), and
# runs the simulator with the driver against this machine's real network. Extra arguments go to
# the simulator (see its --help).
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-demo

scripts/install-deps.sh

# Run as root (sudo) in someone's clone, the build stays theirs, so that they can go on using it.
as_owner=()
owner=$(stat -c %U .)
if [ "$(id -u)" -eq 0 ] && [ "$owner" != root ] && id "$owner" >/dev/null 2>&1; then
    as_owner=(runuser -u "$owner" --)
elif [ -e "$build" ] && ! { [ -w "$build" ] && [ -w "$build/CMakeCache.txt" ] ||
    [ ! -e "$build/CMakeCache.txt" ]; }; then
    echo "$PWD/$build belongs to $(stat -c %U "$build"), and $(id -un) cannot write to it." >&2
    echo "Run the demo as $(stat -c %U "$build"), or remove $build first." >&2
    exit 1
fi

# Make's "[ 42%] Building CXX object host/CMakeFiles/host.dir/Shell.cpp.o" becomes one line
# that is rewritten in place; the whole output goes to a log, shown if the build fails.
progress() {
    local line percent file
    while IFS= read -r line; do
        printf '%s\n' "$line" >>"$log"
        [[ $line =~ ^\[\ *([0-9]+)%\]\ (Building|Linking)\ CXX\ [a-z]+\ (.*)$ ]] || continue
        percent=${BASH_REMATCH[1]}
        file=${BASH_REMATCH[3]}
        file=${file/CMakeFiles\/*.dir\//}
        if [ -t 1 ]; then
            printf '\r\033[Kbuilding %3s%%  %s' "$percent" "${file%.o}"
        fi
    done
}

started=$SECONDS
log=$build/build.log
"${as_owner[@]}" mkdir -p "$build"
"${as_owner[@]}" touch "$log"
: >"$log"
echo "Building the driver and the simulator in $build (its output goes to $log)"
if ! { "${as_owner[@]}" cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DARP_BUILD_TESTS=OFF \
        -DARP_BUILD_BENCHMARKS=OFF &&
    "${as_owner[@]}" cmake --build "$build" -j "$(nproc)" --target arp-presence ambrelis-sim
}  2>&1 | progress; then
    [ -t 1 ] && printf '\n'
    tail -n 30 "$log" >&2
    echo "The build failed; the last lines are above, all of them in $log." >&2
    exit 1
fi
[ -t 1 ] && printf '\r\033[K'
echo "Built in $((SECONDS - started)) s."

# The default gateway, watched as a unit by its address, shows a named row beside the hardware
# addresses that the sweep finds; the driver pings it from its second sweep on.
units=()
gateway=$(ip -4 route show default 2>/dev/null | awk '{ print $3; exit }')
[ -n "$gateway" ] && units=(--unit "1, default gateway, $gateway")

# Without a terminal there are no keys to end the run, so it ends itself after two sweeps.
[ -t 0 ] && [ -t 1 ] || units+=(--for 70)
exec "$build/ambrelis-sim" --port 0 "${units[@]}" "$@"
