#!/usr/bin/env bash
# Builds the libFuzzer targets (clang) and replays their seed corpora, or fuzzes them.
#
#   scripts/fuzz.sh replay
#       Runs every input of every corpus once; fails on any crash, leak or time-out.
#   scripts/fuzz.sh run SECONDS [--keep] [--parallel N] [TARGET...]
#       Fuzzes each target (all by default) for SECONDS, N at a time (1 by default), at the
#       lowest priority. New inputs and findings go to the scratch folder, never to the
#       repository; --keep merges the new inputs that add coverage into fuzz/corpus afterwards.
#
# Environment: FUZZ_BUILD_DIR (build-fuzz), FUZZ_SCRATCH (FUZZ_BUILD_DIR/fuzz-scratch),
# JOBS (2, for the build).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${FUZZ_BUILD_DIR:-$root/build-fuzz}
scratch=${FUZZ_SCRATCH:-$build/fuzz-scratch}
all_targets=(link_delivery common_message multi_packet cxml_string cxml_file ping_output neighbour_dump)
# Standard output is dropped: the driver's log lines go there while no link stands.
common_flags=(-timeout=10 -rss_limit_mb=2048 -close_fd_mask=1)

usage() {
    sed -n '3,10s/^# \{0,1\}//p' "$0" >&2
    exit 2
}

build_targets() {
    cmake -S "$root" -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DARP_FUZZ=ON \
        -DARP_BUILD_TESTS=OFF >/dev/null
    cmake --build "$build" -j "${JOBS:-2}" --target "${targets[@]}"
}

# The cxml targets share one dictionary.
dictionary_flag() {
    local name
    for name in "$1" "${1%%_*}"; do
        if [[ -f $root/fuzz/$name.dict ]]; then
            echo "-dict=$root/fuzz/$name.dict"
            return
        fi
    done
}

# Findings libFuzzer wrote into a folder, by kind.
findings() {
    local folder=$1 kind count summary=""
    for kind in crashes:crash leaks:leak timeouts:timeout ooms:oom; do
        count=$(find "$folder" -maxdepth 1 -name "${kind#*:}-*" 2>/dev/null | wc -l)
        summary+=", ${kind%:*} $count"
    done
    echo "${summary#, }"
}

seconds_since() {
    awk -v start="$1" -v now="$(date +%s%N)" 'BEGIN { printf "%.1f", (now - start) / 1e9 }'
}

replay() {
    local target failed=0 inputs start log
    mkdir -p "$scratch"
    for target in "${targets[@]}"; do
        inputs=("$root/fuzz/corpus/$target"/*)
        log=$scratch/$target.replay.log
        start=$(date +%s%N)
        if "$build/fuzz/$target" "${common_flags[@]}" "${inputs[@]}" >"$log" 2>&1; then
            echo "$target: ${#inputs[@]} runs in $(seconds_since "$start") s, no crashes"
        else
            echo "$target: FAILED after $(seconds_since "$start") s; see $log"
            grep -m1 -E 'ERROR|property broken|deadly signal' "$log" || true
            failed=1
        fi
    done
    return "$failed"
}

fuzz_one() {
    local target=$1 seconds=$2 work=$scratch/$1 runs start elapsed status=0
    mkdir -p "$work/corpus" "$work/findings"
    start=$(date +%s)
    # shellcheck disable=SC2046  # the dictionary flag is one word or none
    nice -n 19 "$build/fuzz/$target" "${common_flags[@]}" -max_total_time="$seconds" \
        -print_final_stats=1 -artifact_prefix="$work/findings/" $(dictionary_flag "$target") \
        "$work/corpus" "$root/fuzz/corpus/$target" >"$work/log" 2>&1 || status=$?
    elapsed=$(($(date +%s) - start))
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -1)
    printf '%s: %s runs in %d s, %s (exit %d)\n' "$target" "${runs:-?}" "$elapsed" \
        "$(findings "$work/findings")" "$status"
    return "$status"
}

keep() {
    local target
    for target in "${targets[@]}"; do
        "$build/fuzz/$target" -merge=1 "${common_flags[@]}" "$root/fuzz/corpus/$target" \
            "$scratch/$target/corpus" >"$scratch/$target/merge.log" 2>&1
        echo "$target: $(sed -n 's/.*MERGE-OUTER: \([0-9]*\) new files.*/\1/p' \
            "$scratch/$target/merge.log") inputs added to fuzz/corpus/$target"
    done
}

run() {
    local seconds=${1:-} keep_new=0 parallel=1 failed=0 pids=() target pid
    [[ $seconds =~ ^[0-9]+$ ]] || usage
    shift
    targets=()
    while (($#)); do
        case $1 in
            --keep) keep_new=1 ;;
            --parallel) parallel=${2:?}; shift ;;
            -*) usage ;;
            *) targets+=("$1") ;;
        esac
        shift
    done
    ((${#targets[@]})) || targets=("${all_targets[@]}")
    build_targets
    for target in "${targets[@]}"; do
        while ((${#pids[@]} >= parallel)); do
            wait -n || failed=1
            for pid in "${!pids[@]}"; do
                kill -0 "${pids[$pid]}" 2>/dev/null || unset "pids[$pid]"
            done
        done
        fuzz_one "$target" "$seconds" &
        pids+=("$!")
    done
    for pid in "${pids[@]}"; do
        wait "$pid" || failed=1
    done
    if ((keep_new)); then
        keep
    fi
    return "$failed"
}

case ${1:-} in
    replay)
        targets=("${all_targets[@]}")
        build_targets
        replay
        ;;
    run)
        shift
        run "$@"
        ;;
    *) usage ;;
esac
