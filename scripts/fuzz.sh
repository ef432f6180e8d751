#!/usr/bin/env bash
# Builds the fuzz targets and runs each that is named, or all, for SECONDS. What they have learnt
# stays in build/fuzz/corpus, the inputs of findings in build/fuzz/artifacts; the seeds are only read.
# With 0 seconds the seeds and some thousand inputs that are made from them are run, the same each
# time. Prints the executions of each target; the status is 0 if nothing was found.
# Usage: scripts/fuzz.sh SECONDS [image|inventory|signature]...
set -euo pipefail
cd "$(dirname "$0")/.."
if [[ ! ${1:-} =~ ^[0-9]+$ ]]; then
    sed -n 's/^# Usage: //p' "$0" >&2
    exit 2
fi
seconds=$1
targets=("${@:2}")
((${#targets[@]})) || targets=(image inventory signature)
for target in "${targets[@]}"; do
    [[ -f fuzz/fuzz_$target.cpp ]] || { echo "no target $target" >&2; exit 2; }
done
scripts/setup.sh --fuzz

cmake -S . -B build/fuzz -G Ninja -DBUILD_FUZZERS=ON -DSIGNATURES=ON -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_CXX_FLAGS="-O1 -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all" \
    >/dev/null
cmake --build build/fuzz --target fuzzers

# In memory, if it can be: an apply run makes and removes files.
work=$(mktemp -d -p "$([[ -w /dev/shm ]] && echo /dev/shm || echo /tmp)" XXXXXX)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work
mkdir -p build/fuzz/artifacts

status=0
for target in "${targets[@]}"; do
    corpus=build/fuzz/corpus/$target
    options=(-print_final_stats=1 -close_fd_mask=3 -timeout=10 -rss_limit_mb=2048
        "-artifact_prefix=$PWD/build/fuzz/artifacts/$target-")
    if ((seconds)); then
        options+=("-max_total_time=$seconds")
    else
        corpus=$work/corpus/$target
        options+=(-runs=5000 -seed=1)
    fi
    mkdir -p "$corpus"
    found=0
    build/fuzz/fuzz/fuzz_"$target" "${options[@]}" "$corpus" "fuzz/seeds/$target" \
        >"$work/$target.log" 2>&1 || found=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$target.log")
    seeds=("fuzz/seeds/$target"/*)
    outcome='nothing found'
    # A target that loses its way, and with it the seeds, must not pass.
    ((${runs:-0} >= ${#seeds[@]})) || outcome='STOPPED EARLY'
    ((!found)) || outcome='FOUND SOMETHING'
    if [[ $outcome != nothing* ]]; then
        cat "$work/$target.log"
        status=1
    fi
    printf '%s: %s executions, %s\n' "$target" "${runs:-unknown}" "$outcome"
done
exit "$status"
