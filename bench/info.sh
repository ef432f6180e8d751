#!/usr/bin/env bash
# Measures img_info in the sandbox: --verify of an image of 768 MiB beside cksum and cat of the same
# file, and the listing of 8,000 entries beside tar -tvf of the same tree. Usage: bench/info.sh
set -euo pipefail

rounds=7

# median COMMAND...: of the CPU seconds, over the rounds.
median() {
    for ((i = 0; i < rounds; i++)); do measure "$@" | cut -d ' ' -f 2; done | sort -g | sed -n "$(((rounds + 1) / 2))p"
}

# compare WORDS TARGET OURS THEIRS
compare() {
    awk -v words="$1" -v target="$2" -v ours="$3" -v theirs="$4" 'BEGIN {
        printf "%-36s %8.1f ms beside %8.1f ms, ratio %.2f (target %s)\n",
            words, ours * 1e3, theirs * 1e3, ours / theirs, target }'
}

if [[ ${1:-} == --in-sandbox ]]; then
    mkdir -p /mnt/bench
    mount -t tmpfs tmpfs /mnt/bench
    cd /mnt/bench
    make_tree big 8 100663296 100663296 1 8 0
    img_deploy -c ./big big.img >/dev/null
    rm -r big
    verify=$(median img_info --verify big.img)
    compare 'verify 768 MiB beside cksum' 0.6 "$verify" "$(median cksum big.img)"
    compare 'verify 768 MiB beside cat' none "$verify" "$(median cat big.img)"
    rm big.img
    make_tree small 8000 4096 4096 1 50 0
    img_deploy -c ./small small.img >/dev/null
    tar -cf small.tar small
    compare 'list 8,000 entries beside tar -tvf' 1.0 "$(median img_info small.img)" "$(median tar -tvf small.tar)"
    exit
fi

root=$(realpath "$(dirname "$0")/..")
cd "$root"
cmake --preset release -DBUILD_BENCHMARKS=ON >/dev/null
cmake --build --preset release --target img_deploy img_info make_tree measure >/dev/null
build=$root/build/release
SANDBOX_PATH=$build/update/img_deploy:$build/companions/img_info:$build/bench \
    tests/sandbox.sh "$BASH" "$root/bench/info.sh" --in-sandbox
